// Tests of workbooks and sheets: what a new workbook holds, generated workbook and sheet names,
// finding sheets by name, closing a workbook among others, the sheet limit and lost memory.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "model/workbook.h"

namespace {

struct WorkbookTest : testing::Test {
  void SetUp() override { CloseAllWorkbooks(); }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    ClearLastMessage();
    CloseAllWorkbooks();
  }
};

uint32_t NewBook(const char16_t* path = nullptr) {
  uint32_t book = 99;
  EXPECT_TRUE(CreateWorkbook(path, 0, &book));
  return book;
}

// The paths of the open workbooks, then the current one after a bar.
std::string Books() {
  std::string out;
  for (uint32_t i = 0; i < App.workbookCount; i++) out += TextToUtf8(GetWorkbook(i)->path) + " ";
  return out + "| " + std::to_string(App.currentBook);
}

std::string SheetNames(uint32_t book) {
  std::string out;
  for (uint32_t i = 0; i < GetWorkbook(book)->sheetCount; i++)
    out += TextToUtf8(GetSheet(book, i)->name) + " ";
  return out;
}

TEST_F(WorkbookTest, NewWorkbooksAndClosing) {
  uint32_t book = NewBook();
  EXPECT_EQ(book, 0u);
  EXPECT_EQ(Books(), "Classeur1 | 0");
  const Workbook* wb = GetWorkbook(book);
  // BIFF version, code pages, dirty, scroll bars and tabs shown, sheet count, current sheet.
  EXPECT_EQ((std::vector<int64_t>{wb->biffVersion, wb->codePage, wb->fileCodePage, wb->dirty,
                                  wb->showHorizontalScrollBar, wb->showVerticalScrollBar,
                                  wb->showSheetTabs, wb->sheetCount, wb->currentSheet}),
            (std::vector<int64_t>{8, AnsiCodePage, AnsiCodePage, 0, 1, 1, 1, 1, 0}));
  const Sheet* s = GetSheet(book, 0);
  EXPECT_EQ(SheetNames(book), "Feuille1 ");
  EXPECT_EQ((std::vector<int64_t>{s->kind, s->zoom, s->hidden, s->flags, s->selectedObject,
                                  s->cells.count}),
            (std::vector<int64_t>{
                SheetWorksheet, 100, 0,
                SheetStandardWidth | SheetStandardHeight | SheetGridLines | SheetHeaders, -1, 0}));

  // A workbook opened under its own path takes no number, and numbers never go back.
  CloseWorkbook(book);
  EXPECT_EQ(Books(), "| 0");
  NewBook(u"C:\\Docs\\Budget.xls");
  NewBook();
  NewBook(u"C.xls");
  EXPECT_EQ(Books(), "C:\\Docs\\Budget.xls Classeur2 C.xls | 2");
  CloseWorkbook(0);
  EXPECT_EQ(Books(), "Classeur2 C.xls | 1");
  EXPECT_EQ(SheetNames(1), "Feuille1 ");
  CloseWorkbook(1);
  EXPECT_EQ(Books(), "Classeur2 | 0");
}

// "feuille3" differs from a generated name only in case, so it counts as taken. Sheets are found
// by name ignoring case, but nothing else.
TEST_F(WorkbookTest, GeneratedSheetNamesSkipTakenNames) {
  uint32_t book = NewBook();
  struct {
    uint32_t at;
    int32_t kind;
    const char16_t* name;
  } inserts[] = {{1, SheetWorksheet, u"feuille3"}, {0, SheetWorksheet, nullptr},
                 {3, SheetWorksheet, nullptr},     {4, SheetChart, nullptr},
                 {5, SheetMacro, nullptr},         {6, SheetMacro, u""},
                 {7, SheetChart, nullptr},         {8, SheetModule, nullptr},
                 {9, SheetWorksheet, nullptr},     {10, SheetWorksheet, u"Été"}};
  for (const auto& c : inserts) {
    SCOPED_TRACE(c.at);
    ASSERT_TRUE(InsertSheet(book, c.at, c.name, c.kind, 0, 0));
    EXPECT_EQ(GetWorkbook(book)->currentSheet, c.at);
    const Sheet* s = GetSheet(book, c.at);
    EXPECT_EQ(s->kind, c.kind);
    if (c.kind != SheetChart) {
      EXPECT_EQ((s->flags & SheetShowFormulas) != 0, c.kind == SheetMacro);
    }
  }
  EXPECT_EQ(SheetNames(book),
            "Feuille2 Feuille1 feuille3 Feuille4 Graphique1 Macro1 Macro2 Graphique2 Macro3 "
            "Feuille5 Été ");
  struct {
    const char16_t* name;
    int32_t index;
  } finds[] = {
      {u"FEUILLE3", 2}, {u"éTÉ", 10},     {u"ÉTÉ", 10}, {u"Ete", -1},
      {u"Été ", -1},    {u"Feuille", -1}, {u"", -1},
  };
  for (const auto& c : finds)
    EXPECT_EQ(FindSheetByName(book, c.name), c.index) << TextToUtf8(c.name);
}

TEST_F(WorkbookTest, RefusesTheSheetAfterTheLimit) {
  uint32_t book = NewBook();
  // Named sheets: generating a name costs a search over all sheets per candidate.
  while (GetWorkbook(book)->sheetCount < MaxSheets) {
    ASSERT_TRUE(InsertSheet(book, GetWorkbook(book)->sheetCount, u"S", SheetWorksheet, 0, 0));
  }
  EXPECT_EQ(InsertSheet(book, 0, u"S", SheetWorksheet, 0, 0), 0);
  EXPECT_EQ(GetWorkbook(book)->sheetCount, MaxSheets);
  EXPECT_EQ(TextToUtf8(LastMessage()), "No room to insert sheet");
}

// Every allocation of CreateWorkbook in turn is made to fail, first with no workbook open and
// then beside an open one: the application record must come back as it was. A first workbook
// that fails after the workbook array has grown leaves that array behind with no workbook
// counted, so closing everything right then is what shows a leak of it.
TEST_F(WorkbookTest, CreateWorkbookFailsCleanly) {
  for (bool beside : {false, true}) {
    if (beside) NewBook(u"Open.xls");
    int ok = 0;
    for (int64_t n = 0; !ok && n <= 40; n++) {
      std::string before = Books();
      SetAllocationFailureAfter(n);
      uint32_t book = 99;
      ok = CreateWorkbook(nullptr, 0, &book);
      SetAllocationFailureAfter(-1);
      if (ok) {
        EXPECT_EQ(App.currentBook, book);
        EXPECT_EQ(SheetNames(book), "Feuille1 ");
        CloseWorkbook(book);
      }
      EXPECT_EQ(Books(), before) << n;
      if (!ok && !beside) CloseAllWorkbooks();
    }
    EXPECT_TRUE(ok);
  }
}

}  // namespace
