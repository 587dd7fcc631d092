// Tests of the undo stack. Each change of the main table runs as its command would (record, then
// change) on one sample workbook under a stack nearly full of other records; the push is first
// run out of memory at each allocation in turn, which must leave the workbook and the stack alone.
// The whole workbook is printed before the change and after the undo step, values recalculated,
// and the two prints must agree. Then the depth of the stack, and closing a workbook under records
// of others.
#include <gtest/gtest.h>

#include <algorithm>
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
const Range WholeSheet{0, 65535, 0, 255};

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

FormulaTokens Compile(uint32_t book, uint32_t sheet, const char16_t* text, uint16_t row = 0,
                      uint8_t col = 0, ClassCode root = ClassCodeValue) {
  ParseContext ctx{book, sheet, A1Style, row, col, ReferencesAsWritten, SingleCellFormula};
  FormulaTokens tokens{};
  EXPECT_EQ(CompileFormula(&ctx, text, root, &tokens), CompileOk) << TextToUtf8(text);
  return tokens;
}

// Stores cells as typed, given as "address content" items separated by ";": a content "=..." is
// a formula, "'..." a text, "" a blank, anything else a number; a leading "%" gives the cell the
// percent format.
void Put(uint32_t book, uint32_t sheet, const std::u16string& items) {
  for (size_t at = 0, end; at < items.size(); at = end + 1) {
    end = std::min(items.find(u';', at), items.size());
    uint32_t row = 0, col = 0;
    size_t i = at;
    for (; items[i] >= u'A'; i++) col = col * 26 + (items[i] - u'A' + 1);
    for (; items[i] != u' '; i++) row = row * 10 + (items[i] - u'0');
    std::u16string text = items.substr(i + 1, end - i - 1);
    Cell proto{};
    proto.row = static_cast<uint16_t>(row - 1);
    proto.col = static_cast<uint8_t>(col - 1);
    proto.xf = text[0] == u'%' ? Percent : 15;
    if (text[0] == u'%') text.erase(0, 1);
    if (text[0] == u'=')
      proto.formula = Compile(book, sheet, text.c_str(), proto.row, proto.col);
    else if (text[0] == u'\'')
      proto.value = TextValue(TextDuplicate(text.c_str() + 1));
    else if (!text.empty())
      proto.value = NumberValue(std::stod(TextToUtf8(text.c_str())));
    ASSERT_TRUE(StoreCell(book, sheet, &proto, StoreAndRecalc, KeepRowHeight));
  }
}

void Number(uint32_t book, const char16_t* address, int n) {
  Put(book, 0, address + (u" " + Utf8ToU16(std::to_string(n))));
}

void Name(uint32_t book, const char16_t* text, uint16_t localSheet, const char16_t* formula) {
  DefinedName name{};
  name.name = TextDuplicate(text);
  name.localSheet = localSheet;
  name.formula = Compile(book, 0, formula, 0, 0, ClassCodeReference);
  ASSERT_TRUE(AddName(book, &name, nullptr));
}

// Four worksheets with values, texts, formulas within and across sheets, formats, a merge
// (B4:D4), an array block (B5:C5), a comment, row and column records (one on the last row), names
// global and local, and self links to single sheets and spans.
uint32_t Sample() {
  uint32_t b = 0;
  EXPECT_TRUE(CreateWorkbook(nullptr, 0, &b));
  for (uint32_t s = 1; s < 4; s++) EXPECT_TRUE(InsertSheet(b, s, nullptr, SheetWorksheet, 0, 0));
  Name(b, u"Taux", 0, u"=0,5");
  Name(b, u"Local", 2, u"=3");
  Name(b, u"Quatre", 4, u"=4");
  Put(b, 0,
      u"A1 1;A2 2;A3 3;A4 4;A5 5;A6 6;B2 'abc;C2 %0.25;B3 =A1*2;C3 =B3+C2;B4 %;B5 =A5;C5 =A5;"
      u"D1 =SOMME(B2:C3);D8 =SOMME(A1:A5);B7 =A1*Taux;A10 %5;B10 =A21*2;A21 4;E1 =A21+1;E3 1;"
      u"E5 =E3+1;G1 1;H2 =I1*2;I1 3;J1 =I1;A65536 %;"
      u"A31 =Feuille4!A1+SOMME(Feuille2:Feuille4!A1)+SOMME(Feuille1:Feuille2!A1)");
  Put(b, 1, u"A1 7;B1 =Feuille1!A2*10");
  Put(b, 2, u"A1 =Feuille2!A1+1;A2 =SOMME(Feuille1:Feuille3!A1)");
  Sheet* s = GetSheet(b, 0);
  RowColInfo tall{RowHeightByHand, 400, 15}, formatted{RowColDefault, 0, Percent};
  RowColInfo wide{0, 3000, 15};
  EXPECT_TRUE(SetRowRecord(&s->rows, 2, &tall) && SetRowRecord(&s->rows, 9, &tall) &&
              SetRowRecord(&s->rows, MaxRow, &formatted) &&
              SetColumnRecord(&s->columns, 6, &wide) &&
              SetRowRecord(&GetSheet(b, 1)->rows, 4, &tall));
  s->merges = static_cast<Range*>(Allocate(sizeof(Range)));
  s->merges[s->mergeCount++] = Range{3, 3, 1, 3};
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

// What the cell shows, calculated first; "none" for no cell.
std::string ValueAt(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col) {
  Cell* c = CellAt(&GetSheet(book, sheet)->cells, row, col);
  if (!c) return "none";
  EXPECT_TRUE(EnsureCellText(book, sheet, c));
  return c->text ? TextToUtf8(c->text) : "";
}

// A line of a label and numbers, separated by blanks.
template <typename... Numbers>
std::string Join(const std::string& label, Numbers... numbers) {
  std::string s = label;
  // Piece by piece: a literal in front of a temporary string makes GCC 12 warn (-Wrestrict).
  ((s += ' ', s += std::to_string(numbers)), ...);
  return s + "\n";
}

// The workbook as text: sheets with their fields, records, cells (formula text, recalculated
// value, format) and lists, then names and self links. Lists are sorted: undo may append.
std::string Dump(uint32_t book) {
  std::string out;
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t si = 0; si < wb->sheetCount; si++) {
    Sheet* s = wb->sheets[si];
    const Range& sel = s->selection;
    out += TextToUtf8(s->name) + Join("", s->kind, s->hidden, s->zoom, s->flags, s->topRow,
                                      sel.firstRow, sel.lastRow, sel.firstCol, sel.lastCol,
                                      s->activeRow, s->activeCol);
    for (uint32_t i = 0; i < s->rows.count; i++) {
      const RowRecord* r = s->rows.records[i];
      out += Join("row", r->row, r->info.flags, r->info.size, r->info.xf);
    }
    for (uint32_t i = 0; i < s->columns.count; i++) {
      const ColumnRecord* c = s->columns.records[i];
      out += Join("col", c->col, c->info.flags, c->info.size, c->info.xf);
    }
    for (uint32_t i = 0; i < s->cells.count; i++) {
      Cell* c = s->cells.cells[i];
      std::string shown = ValueAt(book, si, c->row, c->col);
      out += (c->formula.bytes ? Print(book, &c->formula, c->row, c->col) + " " : "") +
             Join(shown, c->value.tag, c->row, c->col, c->xf);
    }
    std::vector<std::string> lists;
    for (uint32_t i = 0; i < s->mergeCount; i++)
      lists.push_back(Join("merge", s->merges[i].firstRow, s->merges[i].firstCol));
    for (uint32_t i = 0; i < s->arrayFormulaCount; i++)
      lists.push_back(
          Join("array", s->arrayFormulas[i].range.firstRow, s->arrayFormulas[i].range.firstCol));
    for (uint32_t i = 0; i < s->commentCount; i++)
      lists.push_back(
          Join(TextToUtf8(s->comments[i].text), s->comments[i].row, s->comments[i].col));
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

// Commands record before they change: these make the recording step of each, which returns 0
// when memory runs out. A structural change also clears what lies on `gone` and moves `block` by
// the deltas; whole rows inserted drop the row records that fall off.
using Push = std::function<int(uint32_t)>;
Push Record(int32_t kind, uint32_t sheet) {
  return [=](uint32_t b) { return PushUndo(b, sheet, kind); };
}
Push RecordName(int32_t kind, uint32_t index) {
  return [=](uint32_t b) { return PushNameUndo(kind, b, index); };
}
Push RecordRegion(int32_t kind, Range region) {
  return [=](uint32_t b) { return PushRegionUndo(kind, b, 0, &region); };
}
Push Shift(int32_t kind, Range gone, Range block, int32_t rows, int32_t cols) {
  return [=](uint32_t b) {
    if (!PushRegionUndo(kind, b, 0, &gone)) return 0;
    SetUndoShift(&block, rows, cols);
    ClearCellsInRange(b, 0, &gone);
    RowArray* records = &GetSheet(b, 0)->rows;
    while (kind == UndoInsertRows && records->count &&
           records->records[records->count - 1]->row >= gone.firstRow)
      Release(records->records[--records->count]);
    ShiftRange(b, 0, &block, rows, cols);
    return 1;
  };
}

// A command: its recording step, then the change itself with checks on the changed workbook.
struct ChangeCase {
  const char* name;
  Push push;
  std::function<void(uint32_t)> change;
};

TEST_F(UndoTest, EachChangeIsTakenBackExactly) {
  const ChangeCase cases[] = {
      {"region contents, formats, merge, array and comment",
       // B1:D5: D1 comes back before the cells it reads; the merge and the array block end on
       // the region's edges.
       RecordRegion(UndoCellContents, Range{0, 4, 1, 3}),
       [](uint32_t b) {
         Put(b, 0, u"B2 9;C2 =A3");
         Range b3{2, 2, 1, 1};
         ClearCellsInRange(b, 0, &b3);
         CellAt(&GetSheet(b, 0)->cells, 2, 2)->xf = Percent;
         GetSheet(b, 0)->mergeCount = 0;
         GetSheet(b, 0)->arrayFormulaCount = 0;
         EXPECT_EQ(ValueAt(b, 0, 0, 3), "15");  // D1 = B2 9 + C2 3 + C3 3
         EXPECT_EQ(GetSheet(b, 0)->commentCount, 0u);
       }},
      {"whole rows inserted, with what fell off the last row",
       Shift(UndoInsertRows, {65534, 65535, 0, 255}, {2, 65533, 0, 255}, 2, 0),
       [](uint32_t b) {
         EXPECT_EQ(CellAt(&GetSheet(b, 0)->cells, MaxRow, 0), nullptr);
         EXPECT_EQ(Print(b, &CellAt(&GetSheet(b, 0)->cells, 0, 3)->formula, 0, 3), "=SOMME(B2:C5)");
       }},
      {"cells inserted down one column",
       Shift(UndoInsertCells, {65534, 65535, 4, 4}, {2, 65533, 4, 4}, 2, 0),
       {}},
      {"whole rows deleted", Shift(UndoDeleteShiftUp, {9, 10, 0, 255}, {11, 65535, 0, 255}, -2, 0),
       [](uint32_t b) {
         EXPECT_EQ(Print(b, &CellAt(&GetSheet(b, 0)->cells, 0, 4)->formula, 0, 4), "=A19+1");
       }},
      {"whole columns deleted",
       Shift(UndoDeleteShiftLeft, {0, 65535, 6, 7}, {0, 65535, 8, 255}, 0, -2),
       {}},
      {"range moved onto part of itself", RecordRegion(UndoMoveRange, Range{2, 3, 2, 3}),
       [](uint32_t b) {
         Range source{1, 2, 1, 2}, d34{2, 3, 3, 3}, c4{3, 3, 2, 2};  // B2:C3 to C3:D4
         SetUndoShift(&source, 1, 1);
         ClearCellsInRange(b, 0, &d34);
         ClearCellsInRange(b, 0, &c4);
         ShiftRange(b, 0, &source, 1, 1);
       }},
      {"row height and column width", Record(UndoRowHeight, 0),
       [](uint32_t b) {
         RowColInfo hidden{RowColHidden, 400, 15};
         ASSERT_TRUE(SetRowRecord(&GetSheet(b, 0)->rows, 2, &hidden));
         ASSERT_TRUE(SetRowRecord(&GetSheet(b, 0)->rows, 5, &hidden));
         ASSERT_TRUE(PushUndo(b, 0, UndoColumnWidth));
         ASSERT_TRUE(SetColumnRecord(&GetSheet(b, 0)->columns, 1, &hidden));
       }},
      {"window and options", Record(UndoSheetWindow, 0),
       [](uint32_t b) {
         Sheet* s = GetSheet(b, 0);
         s->zoom = 150;
         s->flags ^= SheetGridLines | SheetShowFormulas;
         s->selection = Range{10, 12, 3, 3};
         s->activeRow = 10;
         s->topRow = 8;
       }},
      {"name added", RecordName(UndoAddName, 3), [](uint32_t b) { Name(b, u"Nouveau", 0, u"=1"); }},
      {"name changed", RecordName(UndoChangeName, 0),
       [](uint32_t b) {
         DefinedName* n = &GetWorkbook(b)->names[0];
         FreeTokens(&n->formula);
         n->formula = Compile(b, 0, u"=2", 0, 0, ClassCodeReference);
         RenewNameUsers(b, 0);
         EXPECT_EQ(ValueAt(b, 0, 6, 1), "2");
       }},
      {"name deleted and taken out", RecordName(UndoDeleteName, 0),
       [](uint32_t b) { DeleteName(b, 0, 1); }},
      {"name deleted, entry kept", RecordName(UndoDeleteName, 0),
       [](uint32_t b) {
         DeleteName(b, 0, 0);
         EXPECT_EQ(ValueAt(b, 0, 6, 1), "#NAME?");
       }},
      {"sheet inserted",
       [](uint32_t b) { return InsertSheet(b, 1, u"Nouvelle", SheetWorksheet, 1, 0); },
       [](uint32_t b) { EXPECT_EQ(GetWorkbook(b)->sheetCount, 5u); }},
      {"sheet deleted", Record(UndoDeleteSheet, 1),
       [](uint32_t b) {
         // What counts sheets behind it moves: the sheet on show, local names, spans and links.
         PropagateDirty(b, 1, &WholeSheet);
         GetWorkbook(b)->currentSheet = 3;
         ASSERT_TRUE(DeleteSheet(b, 1));
         EXPECT_EQ(GetWorkbook(b)->sheetCount, 3u);
         EXPECT_EQ(GetWorkbook(b)->currentSheet, 2u);
         EXPECT_EQ(ValueAt(b, 1, 0, 0), "#REF!");
         EXPECT_EQ(FindName(b, 2, u"Quatre"), 2);
         EXPECT_EQ(FindName(b, 0, u"Local"), -1);
         EXPECT_EQ(Print(b, &CellAt(&GetSheet(b, 0)->cells, 30, 0)->formula, 30, 0),
                   "=Feuille4!A1+SOMME(Feuille3:Feuille4!A1)+SOMME(Feuille1!A1)");
         EXPECT_EQ(Print(b, &CellAt(&GetSheet(b, 1)->cells, 0, 0)->formula, 0, 0), "=#REF!A1+1");
       }},
      {"sheet hidden", Record(UndoHideSheet, 2), [](uint32_t b) { GetSheet(b, 2)->hidden = 1; }},
  };
  for (const ChangeCase& c : cases) {
    SCOPED_TRACE(c.name);
    uint32_t b = Sample();
    const std::string start = Dump(b);
    Range z99{98, 98, 25, 25};  // Z99, read by nobody
    for (uint32_t i = 2; i < UndoDepth; i++) {
      ASSERT_TRUE(PushRegionUndo(UndoCellContents, b, 0, &z99));
      Number(b, u"Z99", i);
    }
    const std::string before = Dump(b);
    int failures = 0;
    for (int64_t n = 0;; n++, failures++) {
      SetAllocationFailureAfter(n);
      int ok = c.push(b);
      SetAllocationFailureAfter(-1);
      if (ok) break;
      ASSERT_EQ(UndoCount(), UndoDepth - 2);
      ASSERT_EQ(Dump(b), before) << "after " << n << " allocations";
    }
    EXPECT_GT(failures, 0);
    if (c.change) c.change(b);
    EXPECT_NE(Dump(b), before);
    ASSERT_GT(UndoCount(), UndoDepth - 2);
    GetWorkbook(b)->dirty = 0;
    while (UndoCount() > UndoDepth - 2) ASSERT_TRUE(PopUndo());
    EXPECT_EQ(Dump(b), before);
    EXPECT_TRUE(GetWorkbook(b)->dirty);
    while (UndoCount()) ASSERT_TRUE(PopUndo());
    EXPECT_EQ(Dump(b), start);
    ClearUndo();
    CloseAllWorkbooks();
  }
}

// Seventeen changes leave sixteen steps; closing a workbook drops its records and renumbers those
// of the workbooks after it.
TEST_F(UndoTest, StackKeepsSixteenStepsAndForgetsClosedWorkbooks) {
  uint32_t b = Sample(), books[2];
  Range a1{0, 0, 0, 0};
  for (int i = 2; i <= 18; i++) {
    ASSERT_TRUE(PushRegionUndo(UndoCellContents, b, 0, &a1));
    Number(b, u"A1", i);
  }
  EXPECT_EQ(UndoCount(), UndoDepth);
  for (uint32_t i = 0; i < UndoDepth; i++) EXPECT_TRUE(PopUndo());
  EXPECT_FALSE(PopUndo());
  EXPECT_EQ(ValueAt(b, 0, 0, 0), "2");  // the first change stays
  EXPECT_EQ(ValueAt(b, 0, 2, 1), "4");  // and B3 = A1*2 follows
  // A workbook keeps at least one sheet.
  EXPECT_FALSE(DeleteSheet(b, 4));
  ASSERT_TRUE(DeleteSheet(b, 3) && DeleteSheet(b, 2) && DeleteSheet(b, 1));
  EXPECT_FALSE(DeleteSheet(b, 0));

  for (uint32_t& other : books) {
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &other));
    Number(other, u"A1", 1);
  }
  for (uint32_t changed : {0u, 1u, 2u, 1u}) {
    ASSERT_TRUE(PushRegionUndo(UndoCellContents, changed, 0, &a1));
    Number(changed, u"A1", 10 + changed);
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
  EXPECT_EQ(ValueAt(0, 0, 0, 0), "2");
  EXPECT_FALSE(PopUndo());
}

}  // namespace
