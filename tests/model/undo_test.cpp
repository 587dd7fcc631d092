// Tests of the undo stack. Each change of the main table runs as its command would (record, then
// change) on one sample workbook; the whole workbook is printed before the change and after the
// undo step, values recalculated, and the two prints must agree. Then the depth of the stack,
// lost memory while pushing, and closing a workbook under records of others.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/formula_text.h"
#include "formula/parser.h"
#include "formula/recalc.h"
#include "formula/rewrite.h"
#include "model/undo.h"
#include "model/workbook.h"

namespace {

constexpr uint16_t Percent = 20;  // a built-in Xf other than the default 15
const Range WholeSheet{0, static_cast<uint16_t>(MaxRow), 0, static_cast<uint8_t>(MaxCol)};

struct UndoTest : testing::Test {
  void SetUp() override {
    CloseAllWorkbooks();
    ApplyLocale(LocaleFrench);
  }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    ClearUndo();
    CloseAllWorkbooks();
  }
};

void Store(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col, Value value,
           FormulaTokens formula = {}, uint16_t xf = 15) {
  Cell proto{};
  proto.row = row;
  proto.col = col;
  proto.xf = xf;
  proto.value = value;
  proto.formula = formula;
  ASSERT_TRUE(StoreCell(book, sheet, &proto, 1, 0));
}

FormulaTokens Compile(uint32_t book, uint32_t sheet, const char16_t* text, uint16_t row = 0,
                      uint8_t col = 0, ClassCode root = ClassCodeValue) {
  ParseContext ctx{book, sheet, 1, row, col, 0, 0};
  FormulaTokens tokens{};
  EXPECT_EQ(CompileFormula(&ctx, text, root, &tokens), CompileOk) << TextToUtf8(text);
  return tokens;
}

void Number(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col, double n, uint16_t xf = 15) {
  Store(book, sheet, row, col, NumberValue(n), {}, xf);
}

void Formula(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col, const char16_t* text) {
  Store(book, sheet, row, col, Value{}, Compile(book, sheet, text, row, col));
}

void Name(uint32_t book, const char16_t* text, uint16_t localSheet, const char16_t* formula) {
  DefinedName name{};
  name.name = TextDuplicate(text);
  name.localSheet = localSheet;
  name.formula = Compile(book, 0, formula, 0, 0, ClassCodeReference);
  ASSERT_TRUE(AddName(book, &name, nullptr));
}

// Three worksheets with values, texts, formulas within and across sheets, formats, a merge, an
// array block, a comment, row and column records (one on the last row), names and self links.
uint32_t Sample() {
  uint32_t b = 0;
  EXPECT_TRUE(CreateWorkbook(nullptr, 0, &b));
  EXPECT_TRUE(InsertSheet(b, 1, nullptr, SheetWorksheet, 0, 0));
  EXPECT_TRUE(InsertSheet(b, 2, nullptr, SheetWorksheet, 0, 0));
  Name(b, u"Taux", 0, u"=0,5");
  Name(b, u"Local", 2, u"=3");
  for (uint16_t r = 0; r < 6; r++) Number(b, 0, r, 0, r + 1);  // A1:A6
  Store(b, 0, 1, 1, TextValue(TextDuplicate(u"abc")));         // B2
  Number(b, 0, 1, 2, 0.25, Percent);                           // C2
  Formula(b, 0, 2, 1, u"=A1*2");                               // B3
  Formula(b, 0, 2, 2, u"=B3+C2");                              // C3
  Store(b, 0, 3, 1, Value{}, {}, Percent);                     // B4, merged with C4
  Formula(b, 0, 4, 1, u"=A5");                                 // B5:C5, an array block
  Formula(b, 0, 4, 2, u"=A5");
  Formula(b, 0, 0, 3, u"=SOMME(B2:C3)");  // D1
  Formula(b, 0, 7, 3, u"=SOMME(A1:A5)");  // D8
  Formula(b, 0, 6, 1, u"=A1*Taux");       // B7
  Number(b, 0, 9, 0, 5, Percent);         // A10
  Formula(b, 0, 9, 1, u"=A21*2");         // B10
  Number(b, 0, 20, 0, 4);                 // A21
  Formula(b, 0, 0, 4, u"=A21+1");         // E1
  Number(b, 0, 2, 4, 1);                  // E3
  Formula(b, 0, 4, 4, u"=E3+1");          // E5
  Number(b, 0, 0, 6, 1);                  // G1
  Formula(b, 0, 1, 7, u"=I1*2");          // H2
  Number(b, 0, 0, 8, 3);                  // I1
  Formula(b, 0, 0, 9, u"=I1");            // J1
  Store(b, 0, static_cast<uint16_t>(MaxRow), 0, Value{}, {}, Percent);
  Number(b, 1, 0, 0, 7);
  Formula(b, 1, 0, 1, u"=Feuille1!A2*10");
  Formula(b, 2, 0, 0, u"=Feuille2!A1+1");
  Formula(b, 2, 1, 0, u"=SOMME(Feuille1:Feuille3!A1)");

  Sheet* s = GetSheet(b, 0);
  RowColInfo tall{RowHeightByHand, 400, 15}, formatted{RowColDefault, 0, Percent};
  RowColInfo wide{0, 3000, 15};
  EXPECT_TRUE(SetRowRecord(&s->rows, 2, &tall) && SetRowRecord(&s->rows, 9, &tall) &&
              SetRowRecord(&s->rows, MaxRow, &formatted) &&
              SetColumnRecord(&s->columns, 6, &wide) &&
              SetRowRecord(&GetSheet(b, 1)->rows, 4, &tall));
  s->merges = static_cast<Range*>(Allocate(sizeof(Range)));
  s->merges[s->mergeCount++] = Range{3, 3, 1, 2};
  s->arrayFormulas = static_cast<ArrayFormula*>(Allocate(sizeof(ArrayFormula)));
  s->arrayFormulas[s->arrayFormulaCount++] = ArrayFormula{Range{4, 4, 1, 2}, {}};
  s->comments = static_cast<CellComment*>(Allocate(sizeof(CellComment)));
  s->comments[s->commentCount++] = CellComment{1, 2, TextDuplicate(u"note")};
  s->selection = Range{1, 2, 1, 2};
  s->activeRow = 1;
  s->activeCol = 1;
  GetWorkbook(b)->currentSheet = 0;
  GetWorkbook(b)->dirty = 0;
  return b;
}

std::string Print(uint32_t book, const FormulaTokens* tokens, uint16_t row, uint8_t col) {
  char16_t* text = FormulaText(book, tokens, row, col, 1, row, col);
  std::string s = text ? TextToUtf8(text) : "?";
  Release(text);
  return s;
}

std::string Shown(const Value& v) {
  char b[40];
  switch (v.tag) {
    case ValueNumber:
      std::snprintf(b, sizeof b, "%.15g", v.number);
      return b;
    case ValueText:
      return "\"" + TextToUtf8(v.text) + "\"";
    case ValueBoolean:
      return v.boolean ? "TRUE" : "FALSE";
    case ValueError:
      return TextToUtf8(ErrorText(v.error));
    default:
      return "";
  }
}

// A line of a label and numbers, separated by blanks.
template <typename... Numbers>
std::string Join(const char* label, Numbers... numbers) {
  std::string s = label;
  ((s += " " + std::to_string(numbers)), ...);
  return s + "\n";
}

// The workbook as text: sheets with their fields, records, cells (formula text, recalculated
// value, format) and lists, then names and self links. Lists are sorted: undo may append.
std::string Dump(uint32_t book) {
  std::string out;
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t si = 0; si < wb->sheetCount; si++) {
    Sheet* s = wb->sheets[si];
    out += TextToUtf8(s->name) + Join("", s->kind, s->hidden, s->zoom, s->flags, s->topRow,
                                      s->selection.firstRow, s->selection.lastRow,
                                      s->selection.firstCol, s->selection.lastCol, s->activeRow,
                                      s->activeCol);
    for (uint32_t i = 0; i < s->rows.count; i++) {
      const RowRecord* r = s->rows.records[i];
      out += Join("row", r->row, r->info.flags, r->info.size, r->info.xf);
    }
    for (uint32_t i = 0; i < s->columns.count; i++) {
      const ColumnRecord* c = s->columns.records[i];
      out += Join("col", c->col, c->info.flags, c->info.size, c->info.xf);
    }
    for (uint32_t i = 0; i < s->cells.count; i++) {
      Cell* c = GetSheet(book, si)->cells.cells[i];
      if (c->formula.bytes && c->state == CellDirty) CalculateCell(book, si, c);
      out += (c->formula.bytes ? Print(book, &c->formula, c->row, c->col) + " " : "") +
             Shown(c->value) + Join("", c->row, c->col, c->xf);
    }
    std::vector<std::string> lists;
    for (uint32_t i = 0; i < s->mergeCount; i++)
      lists.push_back(Join("merge", s->merges[i].firstRow, s->merges[i].firstCol));
    for (uint32_t i = 0; i < s->arrayFormulaCount; i++) {
      const Range& r = s->arrayFormulas[i].range;
      lists.push_back(Join("array", r.firstRow, r.firstCol));
    }
    for (uint32_t i = 0; i < s->commentCount; i++)
      lists.push_back(TextToUtf8(s->comments[i].text) +
                      Join("", s->comments[i].row, s->comments[i].col));
    std::sort(lists.begin(), lists.end());
    for (const std::string& item : lists) out += item;
  }
  for (uint32_t i = 0; i < wb->nameCount; i++) {
    const DefinedName* n = &wb->names[i];
    out += TextToUtf8(n->name) + " " + (n->formula.bytes ? Print(book, &n->formula, 0, 0) : "-") +
           Join("", n->localSheet);
  }
  for (uint32_t i = 0; i < wb->sheetLinkCount; i++)
    out += Join("link", wb->sheetLinks[i].firstSheet, wb->sheetLinks[i].lastSheet);
  return out;
}

std::string ValueAt(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col) {
  Cell* c = CellAt(&GetSheet(book, sheet)->cells, row, col);
  if (!c) return "none";
  if (c->formula.bytes && c->state == CellDirty) CalculateCell(book, sheet, c);
  return Shown(c->value);
}

// Whole rows [first, last] deleted, the rows below moving up; columns likewise.
void DeleteRows(uint32_t b, uint16_t first, uint16_t last) {
  Range gone{first, last, 0, static_cast<uint8_t>(MaxCol)};
  Range below{static_cast<uint16_t>(last + 1), static_cast<uint16_t>(MaxRow), 0,
              static_cast<uint8_t>(MaxCol)};
  ASSERT_TRUE(PushRegionUndo(UndoDeleteShiftUp, b, 0, &gone));
  int32_t count = last - first + 1;
  SetUndoShift(&below, -count, 0);
  ClearCellsInRange(b, 0, &gone);
  ShiftRange(b, 0, &below, -count, 0);
}

void DeleteColumns(uint32_t b, uint8_t first, uint8_t last) {
  Range gone{0, static_cast<uint16_t>(MaxRow), first, last};
  Range right{0, static_cast<uint16_t>(MaxRow), static_cast<uint8_t>(last + 1),
              static_cast<uint8_t>(MaxCol)};
  ASSERT_TRUE(PushRegionUndo(UndoDeleteShiftLeft, b, 0, &gone));
  int32_t count = last - first + 1;
  SetUndoShift(&right, 0, -count);
  ClearCellsInRange(b, 0, &gone);
  ShiftRange(b, 0, &right, 0, -count);
}

// Rows inserted at `first` over the columns of the range, with what falls off the last rows.
void InsertRows(uint32_t b, uint16_t first, uint16_t count, uint8_t firstCol, uint8_t lastCol) {
  Range block{first, static_cast<uint16_t>(MaxRow - count), firstCol, lastCol};
  Range falls{static_cast<uint16_t>(MaxRow + 1 - count), static_cast<uint16_t>(MaxRow), firstCol,
              lastCol};
  bool whole = firstCol == 0 && lastCol == MaxCol;
  ASSERT_TRUE(PushRegionUndo(whole ? UndoInsertRows : UndoInsertCells, b, 0, &falls));
  SetUndoShift(&block, count, 0);
  ClearCellsInRange(b, 0, &falls);
  if (whole) {
    RowArray* rows = &GetSheet(b, 0)->rows;
    while (rows->count && rows->records[rows->count - 1]->row >= falls.firstRow)
      Release(rows->records[--rows->count]);
  }
  ShiftRange(b, 0, &block, count, 0);
}

struct ChangeCase {
  const char* name;
  std::function<void(uint32_t)> change;
  std::function<void(uint32_t)> during;  // checks on the changed workbook, may be empty
};

TEST_F(UndoTest, EachChangeIsTakenBackExactly) {
  const ChangeCase cases[] = {
      {"region contents, formats, merge, array and comment",
       [](uint32_t b) {
         Range r{1, 4, 1, 2};  // B2:C5
         ASSERT_TRUE(PushRegionUndo(UndoCellContents, b, 0, &r));
         Number(b, 0, 1, 1, 9);
         Formula(b, 0, 1, 2, u"=A3");
         Range b3{2, 2, 1, 1};
         ClearCellsInRange(b, 0, &b3);
         CellAt(&GetSheet(b, 0)->cells, 2, 2)->xf = Percent;
         GetSheet(b, 0)->mergeCount = 0;
         GetSheet(b, 0)->arrayFormulaCount = 0;
       },
       [](uint32_t b) {
         EXPECT_EQ(ValueAt(b, 0, 0, 3), "15");  // D1 = B2 9 + C2 3 + C3 3
         EXPECT_EQ(GetSheet(b, 0)->commentCount, 0u);
       }},
      {"whole rows inserted, with what fell off the last row",
       [](uint32_t b) { InsertRows(b, 2, 2, 0, static_cast<uint8_t>(MaxCol)); },
       [](uint32_t b) {
         EXPECT_EQ(CellAt(&GetSheet(b, 0)->cells, MaxRow, 0), nullptr);
         EXPECT_EQ(Print(b, &CellAt(&GetSheet(b, 0)->cells, 0, 3)->formula, 0, 3), "=SOMME(B2:C5)");
       }},
      {"cells inserted down one column", [](uint32_t b) { InsertRows(b, 2, 2, 4, 4); }, {}},
      {"whole rows deleted", [](uint32_t b) { DeleteRows(b, 9, 10); },
       [](uint32_t b) {
         EXPECT_EQ(Print(b, &CellAt(&GetSheet(b, 0)->cells, 0, 4)->formula, 0, 4), "=A19+1");
       }},
      {"whole columns deleted", [](uint32_t b) { DeleteColumns(b, 6, 7); }, {}},
      {"range moved onto part of itself",
       [](uint32_t b) {
         Range source{1, 2, 1, 2}, target{2, 3, 2, 3};  // B2:C3 to C3:D4
         ASSERT_TRUE(PushRegionUndo(UndoMoveRange, b, 0, &target));
         SetUndoShift(&source, 1, 1);
         Range d34{2, 3, 3, 3}, c4{3, 3, 2, 2};
         ClearCellsInRange(b, 0, &d34);
         ClearCellsInRange(b, 0, &c4);
         ShiftRange(b, 0, &source, 1, 1);
       },
       {}},
      {"row height and column width",
       [](uint32_t b) {
         ASSERT_TRUE(PushUndo(b, 0, UndoRowHeight));
         RowColInfo hidden{RowColHidden, 400, 15};
         ASSERT_TRUE(SetRowRecord(&GetSheet(b, 0)->rows, 2, &hidden));
         ASSERT_TRUE(SetRowRecord(&GetSheet(b, 0)->rows, 5, &hidden));
         ASSERT_TRUE(PushUndo(b, 0, UndoColumnWidth));
         ASSERT_TRUE(SetColumnRecord(&GetSheet(b, 0)->columns, 1, &hidden));
       },
       {}},
      {"window and options",
       [](uint32_t b) {
         ASSERT_TRUE(PushUndo(b, 0, UndoSheetWindow));
         Sheet* s = GetSheet(b, 0);
         s->zoom = 150;
         s->flags ^= SheetGridLines | SheetShowFormulas;
         s->selection = Range{10, 12, 3, 3};
         s->activeRow = 10;
         s->topRow = 8;
       },
       {}},
      {"name added",
       [](uint32_t b) {
         ASSERT_TRUE(PushNameUndo(UndoAddName, b, GetWorkbook(b)->nameCount));
         Name(b, u"Nouveau", 0, u"=1");
       },
       {}},
      {"name changed",
       [](uint32_t b) {
         ASSERT_TRUE(PushNameUndo(UndoChangeName, b, 0));
         DefinedName* n = &GetWorkbook(b)->names[0];
         FreeTokens(&n->formula);
         n->formula = Compile(b, 0, u"=2", 0, 0, ClassCodeReference);
         RenewNameUsers(b, 0);
       },
       [](uint32_t b) { EXPECT_EQ(ValueAt(b, 0, 6, 1), "2"); }},
      {"name deleted and taken out",
       [](uint32_t b) {
         ASSERT_TRUE(PushNameUndo(UndoDeleteName, b, 0));
         DeleteName(b, 0, 1);
       },
       {}},
      {"name deleted, entry kept",
       [](uint32_t b) {
         ASSERT_TRUE(PushNameUndo(UndoDeleteName, b, 0));
         DeleteName(b, 0, 0);
       },
       [](uint32_t b) { EXPECT_EQ(ValueAt(b, 0, 6, 1), "#NAME?"); }},
      {"sheet inserted",
       [](uint32_t b) { ASSERT_TRUE(InsertSheet(b, 1, u"Nouvelle", SheetWorksheet, 1, 0)); },
       [](uint32_t b) { EXPECT_EQ(GetWorkbook(b)->sheetCount, 4u); }},
      {"sheet deleted",
       [](uint32_t b) {
         ASSERT_TRUE(PushUndo(b, 1, UndoDeleteSheet));
         PropagateDirty(b, 1, &WholeSheet);
         ASSERT_TRUE(DeleteSheet(b, 1));
       },
       [](uint32_t b) {
         EXPECT_EQ(GetWorkbook(b)->sheetCount, 2u);
         EXPECT_EQ(ValueAt(b, 1, 0, 0), "#REF!");
       }},
      {"sheet hidden",
       [](uint32_t b) {
         ASSERT_TRUE(PushUndo(b, 2, UndoHideSheet));
         GetSheet(b, 2)->hidden = 1;
       },
       {}},
  };
  for (const ChangeCase& c : cases) {
    SCOPED_TRACE(c.name);
    uint32_t b = Sample();
    const std::string before = Dump(b);
    uint32_t records = UndoCount();
    c.change(b);
    if (c.during) c.during(b);
    EXPECT_NE(Dump(b), before);
    ASSERT_GT(UndoCount(), records);
    while (UndoCount() > records) ASSERT_TRUE(PopUndo());
    EXPECT_EQ(Dump(b), before);
    EXPECT_TRUE(GetWorkbook(b)->dirty);
    ClearUndo();
    CloseAllWorkbooks();
  }
}

TEST_F(UndoTest, SeventeenChangesLeaveSixteenSteps) {
  uint32_t b = Sample();
  Range a1{0, 0, 0, 0};
  for (int i = 2; i <= 18; i++) {
    ASSERT_TRUE(PushRegionUndo(UndoCellContents, b, 0, &a1));
    Number(b, 0, 0, 0, i);
  }
  EXPECT_EQ(UndoCount(), UndoDepth);
  for (uint32_t i = 0; i < UndoDepth; i++) EXPECT_TRUE(PopUndo());
  EXPECT_FALSE(PopUndo());
  EXPECT_EQ(ValueAt(b, 0, 0, 0), "2");  // the first change stays
  EXPECT_EQ(ValueAt(b, 0, 2, 1), "4");  // and B3 = A1*2 follows
}

// Every allocation of a command's push fails in turn: the command reports it and stops, leaving
// the workbook and the records under it alone; with memory enough it runs, and undoing
// everything then gives back the workbook of the start.
TEST_F(UndoTest, LostMemoryLeavesTheStackAsItWas) {
  const std::function<int(uint32_t)> commands[] = {
      [](uint32_t b) {
        Range r{0, 20, 0, 9};
        if (!PushRegionUndo(UndoCellContents, b, 0, &r)) return 0;
        ClearCellsInRange(b, 0, &r);
        return 1;
      },
      [](uint32_t b) {
        if (!PushUndo(b, 1, UndoDeleteSheet)) return 0;
        PropagateDirty(b, 1, &WholeSheet);
        return DeleteSheet(b, 1);
      },
      [](uint32_t b) {
        if (!PushNameUndo(UndoDeleteName, b, 0)) return 0;
        DeleteName(b, 0, 1);
        return 1;
      },
      [](uint32_t b) { return InsertSheet(b, 1, nullptr, SheetWorksheet, 1, 0); },
  };
  for (const auto& command : commands) {
    uint32_t b = Sample();
    const std::string start = Dump(b);
    Range a1{0, 0, 0, 0};
    for (uint32_t i = 1; i < UndoDepth; i++) {
      ASSERT_TRUE(PushRegionUndo(UndoCellContents, b, 0, &a1));
      Number(b, 0, 0, 0, 100 + i);
    }
    const std::string full = Dump(b);
    int failures = 0;
    for (int64_t n = 0;; n++) {
      SetAllocationFailureAfter(n);
      int ok = command(b);
      SetAllocationFailureAfter(-1);
      if (ok) break;
      failures++;
      ASSERT_EQ(UndoCount(), UndoDepth - 1);
      ASSERT_EQ(Dump(b), full) << "after " << n << " allocations";
    }
    EXPECT_GT(failures, 0);
    EXPECT_EQ(UndoCount(), UndoDepth);
    while (UndoCount()) ASSERT_TRUE(PopUndo());
    EXPECT_EQ(Dump(b), start);
    CloseAllWorkbooks();
  }
}

TEST_F(UndoTest, ClosingAWorkbookDropsItsRecordsAndRenumbersTheOthers) {
  uint32_t books[3];
  Range a1{0, 0, 0, 0};
  for (uint32_t& b : books) {
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &b));
    Number(b, 0, 0, 0, 1);
  }
  for (uint32_t b : {0u, 1u, 2u, 1u}) {
    ASSERT_TRUE(PushRegionUndo(UndoCellContents, b, 0, &a1));
    Number(b, 0, 0, 0, 10 + b);
  }
  CloseWorkbook(1);
  ASSERT_EQ(UndoCount(), 2u);
  App.currentBook = 0;
  ASSERT_TRUE(PopUndo());  // the record of the third book, now the second
  EXPECT_EQ(App.currentBook, 1u);
  EXPECT_EQ(ValueAt(1, 0, 0, 0), "1");
  EXPECT_EQ(ValueAt(0, 0, 0, 0), "10");
  ASSERT_TRUE(PopUndo());
  EXPECT_EQ(App.currentBook, 0u);
  EXPECT_EQ(ValueAt(0, 0, 0, 0), "1");
  EXPECT_FALSE(PopUndo());
}

// Deleting a sheet moves what counts sheets behind it: local names, spans and single links.
TEST_F(UndoTest, DeletedSheetRenumbersNamesAndSelfLinks) {
  uint32_t b = Sample();
  ASSERT_TRUE(InsertSheet(b, 3, u"Feuille4", SheetWorksheet, 0, 0));
  Name(b, u"Quatre", 4, u"=4");
  Formula(b, 0, 30, 0, u"=Feuille4!A1+SOMME(Feuille2:Feuille4!A1)+SOMME(Feuille1:Feuille2!A1)");
  GetWorkbook(b)->currentSheet = 3;
  ASSERT_TRUE(DeleteSheet(b, 1));
  EXPECT_EQ(GetWorkbook(b)->currentSheet, 2u);
  EXPECT_EQ(FindName(b, 2, u"Quatre"), 2);
  EXPECT_EQ(FindName(b, 0, u"Local"), -1);
  EXPECT_EQ(Print(b, &CellAt(&GetSheet(b, 0)->cells, 30, 0)->formula, 30, 0),
            "=Feuille4!A1+SOMME(Feuille3:Feuille4!A1)+SOMME(Feuille1!A1)");
  EXPECT_EQ(Print(b, &CellAt(&GetSheet(b, 1)->cells, 0, 0)->formula, 0, 0), "=#REF!A1+1");
  EXPECT_FALSE(DeleteSheet(b, 3));
  ASSERT_TRUE(DeleteSheet(b, 2) && DeleteSheet(b, 1));
  EXPECT_FALSE(DeleteSheet(b, 0));  // a workbook keeps one sheet
}

}  // namespace
