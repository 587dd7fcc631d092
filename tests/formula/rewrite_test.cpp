// Tests of reference rewriting: the decision table on single references, formulas written as text
// and read back after a move (inserted and deleted rows and columns, moves across sheets, names),
// and ShiftRange on a real sheet: cells, their order, what the sheet anchors to rows, columns and
// cells, and the recalculation of what reads the moved cells.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/formula_text.h"
#include "formula/parser.h"
#include "formula/recalc.h"
#include "formula/reference_text.h"
#include "formula/rewrite.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

// "B3:D7", "3:65536" or "C:IV" as a 0-based range, and back.
Range R(const char16_t* text) {
  Range r{};
  uint8_t flags = 0;
  int32_t end = static_cast<int32_t>(TextLength(text));
  EXPECT_EQ(ParseCellReference(text, 0, end, 1, 0, 0, &r, &flags), end) << TextToUtf8(text);
  return r;
}
std::string Show(const Range& r) {
  return TextToUtf8(RangeText(0, 0, &r, RangeTextA1 | RangeTextCompact | 15, 0, 0));
}

// Insertions and deletions as their callers express them: rows 5-7 deleted is rows 8 on moved up
// by three, one row inserted at 3 is rows 3 to 65535 moved down by one.
struct Move {
  const char16_t* source;
  int32_t rowDelta, colDelta;
};
const Move DeleteRows5To7 = {u"8:65536", -3, 0}, DeleteRow6 = {u"7:65536", -1, 0},
           DeleteRow2 = {u"3:65536", -1, 0}, InsertRow3 = {u"3:65535", 1, 0},
           InsertColumnC = {u"C:IU", 0, 1}, DeleteColumnB = {u"C:IV", 0, -1},
           CutB2C3ToE6 = {u"B2:C3", 4, 3};

struct RewriteTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override {
    ApplyLocale(LocaleFrench);
    CloseAllWorkbooks();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    ASSERT_TRUE(InsertSheet(book, 1, u"Feuille2", SheetWorksheet, 0, 0));
  }
  void TearDown() override { CloseAllWorkbooks(); }

  FormulaTokens Compile(uint32_t sheet, const char16_t* text, ClassCode root = ClassCodeValue) {
    ParseContext ctx{book, sheet, A1Style, 0, 0, ReferencesAsWritten, SingleCellFormula};
    FormulaTokens tokens{};
    EXPECT_EQ(CompileFormula(&ctx, text, root, &tokens), CompileOk) << TextToUtf8(text);
    return tokens;
  }
  std::string Text(const FormulaTokens* tokens) const {
    char16_t* text = FormulaText(book, tokens, 0, 0, 1, 0, 0);
    std::string s = text ? TextToUtf8(text) : "(null)";
    Release(text);
    return s;
  }
  Cell* At(uint32_t sheet, const char16_t* where) const {
    return CellAt(&GetSheet(book, sheet)->cells, R(where).firstRow, R(where).firstCol);
  }
  void Put(uint32_t sheet, const char16_t* where, double number,
           const char16_t* formula = nullptr) {
    Cell proto{};
    proto.row = R(where).firstRow;
    proto.col = R(where).firstCol;
    proto.value = NumberValue(number);
    if (formula) proto.formula = Compile(sheet, formula);
    EXPECT_TRUE(StoreCell(book, sheet, &proto, StoreAndRecalc, KeepRowHeight));
  }
  void PutOneToFive() {
    for (const char16_t* where : {u"A1", u"A2", u"A3", u"A4", u"A5"})
      Put(0, where, where[1] - u'0');
  }
  // The value as a reader sees it: calculated only when marked dirty; -2 when not a number.
  double ValueAt(uint32_t sheet, const char16_t* where) const {
    Cell* c = At(sheet, where);
    EXPECT_TRUE(c->state >= CellCalculated || CalculateCell(book, sheet, c));
    return c->value.tag == ValueNumber ? c->value.number : -2;
  }
  // Moves as a command would: the cells of the landing area that are not in the block go first.
  void Shift(const Move& m) {
    Range source = R(m.source), landing = source;
    MoveRange(&landing, m.rowDelta, m.colDelta);
    CellArray* cells = &GetSheet(book, 0)->cells;
    for (uint32_t i = cells->count; i-- > 0;) {
      const Cell* c = cells->cells[i];
      if (RangeContains(&landing, c->row, c->col) && !RangeContains(&source, c->row, c->col))
        DeleteCell(book, 0, cells, i);
    }
    ShiftRange(book, 0, &source, m.rowDelta, m.colDelta);
  }
};
struct ShiftRangeTest : RewriteTest {};

// Every code of the table, with the smallest picture that produces it. Rows 11-20 of C:F move up
// five rows onto 6-15, or down five onto 16-25; columns E-K of rows 4-9 move two columns right
// onto G-M, or left onto C-I.
TEST_F(RewriteTest, TableCodesMoveStretchShrinkOrDelete) {
  struct Case {
    int code;
    const char16_t* source;
    int32_t rowDelta, colDelta;
    const char16_t* reference;
    const char* expected;
  };
  static const Case cases[] = {
      {240, u"C11:F20", -5, 0, u"D12:E13", "D7:E8"},
      {15, u"C11:F20", -5, 0, u"C7:D9", "deleted"},
      {48, u"C11:F20", -5, 0, u"D3:E13", "D3:E8"},
      {60, u"C11:F20", -5, 0, u"D8:E13", "D6:E8"},
      {12, u"C11:F20", -5, 0, u"D8:E31", "D16:E31"},
      {3, u"C11:F20", -5, 0, u"D3:E9", "D3:E5"},
      {195, u"C11:F20", 5, 0, u"D13:E23", "D18:E25"},
      {130, u"C11:F20", 5, 0, u"E13:J23", "E18:J25"},
      {80, u"E4:K9", 0, 2, u"B5:H6", "B5:J6"},
      {165, u"E4:K9", 0, 2, u"I5:L6", "K5:M6"},
      {90, u"E4:K9", 0, -2, u"D5:G6", "C5:E6"},
      {10, u"E4:K9", 0, -2, u"D5:U6", "J5:U6"},
      {5, u"E4:K9", 0, -2, u"A5:D6", "A5:B6"},
      // A corner in the block with the far one outside both keeps the shape.
      {192, u"C11:F20", -5, 0, u"D13:E41", "D13:E41"},
      // A whole column ignores a row move, a whole row a column move.
      {0, u"C11:F20", -5, 0, u"D:D", "D:D"},
      {0, u"E4:K9", 0, 2, u"5:5", "5:5"},
      {240, u"C:IU", 0, 1, u"D:E", "E:F"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("code " + std::to_string(c.code) + ", " + TextToUtf8(c.reference));
    Range source = R(c.source), ref = R(c.reference);
    int changed = -1, deleted = -1;
    AdjustReference(&source, c.rowDelta, c.colDelta, &ref, &changed, &deleted);
    EXPECT_EQ(deleted ? "deleted" : Show(ref), c.expected);
    EXPECT_EQ(changed, Show(R(c.reference)) != c.expected);
  }
}

TEST_F(RewriteTest, FormulasFollowTheMove) {
  struct Case {
    uint32_t formulaSheet;
    const char16_t* formula;
    Move move;
    const char* expected;
  };
  static const Case cases[] = {
      {0, u"=SOMME(A1:A10)", DeleteRows5To7, "=SOMME(A1:A7)"},
      {0, u"=SOMME(A6;A7)+A6:B6*2+SOMME(A6:A9)", DeleteRow6,
       "=SOMME(#REF!;A6)+#REF!*2+SOMME(A6:A8)"},
      {0, u"=A1:A5+A1:A2+A3+$B$10*C$12-$D12", InsertRow3, "=A1:A6+A1:A2+A4+$B$11*C$13-$D13"},
      {0, u"=SOMME(2:4)+A:A", InsertRow3, "=SOMME(2:5)+A:A"},
      {0, u"=SOMME(B2:D2)+SOMME(1:1)+C:C", InsertColumnC, "=SOMME(B2:E2)+SOMME(1:1)+D:D"},
      {0, u"=B1+C1+D1", DeleteColumnB, "=#REF!+B1+C1"},
      {0, u"=B2+C3+D4+F7", CutB2C3ToE6, "=E6+F7+D4+#REF!"},
      // Across sheets: a 3-D reference into the sheet follows, a plain one elsewhere does not, nor
      // does a span of sheets.
      {1, u"=Feuille1!A5+SOMME(Feuille1!A1:A5)", InsertRow3, "=Feuille1!A6+SOMME(Feuille1!A1:A6)"},
      {1, u"=A5+SOMME(Feuille1:Feuille2!A5)", InsertRow3, "=A5+SOMME(Feuille1:Feuille2!A5)"},
      {1, u"=Feuille1!A6+1", DeleteRow6, "=#REF!+1"},
      {0, u"=Feuille2!A5+Feuille1!A5", InsertRow3, "=Feuille2!A5+Feuille1!A6"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(TextToUtf8(c.formula));
    FormulaTokens tokens = Compile(c.formulaSheet, c.formula);
    Range source = R(c.move.source);
    int changed =
        RewriteTokens(book, c.formulaSheet, 0, &tokens, &source, c.move.rowDelta, c.move.colDelta);
    EXPECT_EQ(Text(&tokens), c.expected);
    EXPECT_EQ(changed != 0, Text(&tokens) != TextToUtf8(c.formula));
    FreeTokens(&tokens);
  }
}

// A name's 3-D reference to the sheet follows, and what uses the name is calculated again; a
// name's plain reference means the sheet where it is used and stays as written.
TEST_F(RewriteTest, NamesFollowThroughTheirSheetReferences) {
  static const char16_t* const names[][2] = {{u"Taux", u"=Feuille1!$A$5"},
                                             {u"Bloc", u"=Feuille1!$A$1:$A$5"},
                                             {u"Ici", u"=$A$5"},
                                             {u"Ailleurs", u"=Feuille2!$A$5"}};
  for (const auto& n : names) {
    DefinedName name{};
    name.name = TextDuplicate(n[0]);
    name.formula = Compile(0, n[1], ClassCodeReference);
    ASSERT_TRUE(AddName(book, &name, nullptr));
  }
  PutOneToFive();
  Put(0, u"C1", 0, u"=Taux*2");
  Put(0, u"D1", 0, u"=SOMME(Bloc)");
  EXPECT_EQ(ValueAt(0, u"D1"), 15);
  Shift(DeleteRow2);
  std::vector<std::string> texts,
      expected = {"=Feuille1!$A$4", "=Feuille1!$A$1:$A$4", "=$A$5", "=Feuille2!$A$5"};
  for (uint32_t i = 0; i < 4; i++) texts.push_back(Text(&GetWorkbook(book)->names[i].formula));
  EXPECT_EQ(texts, expected);
  EXPECT_EQ(ValueAt(0, u"C1"), 10);
  EXPECT_EQ(ValueAt(0, u"D1"), 13);
}

TEST_F(ShiftRangeTest, ReadersRecalculateAfterTheMove) {
  PutOneToFive();
  Put(0, u"A8", 0, u"=SOMME(A1:A5)");
  Put(0, u"B1", 0, u"=A4*10");
  Put(1, u"A1", 0, u"=SOMME(Feuille1!A1:A5)");
  Put(0, u"C9", 0, u"=LIGNE()");
  Put(0, u"C1", 0, u"=LIGNE()");
  EXPECT_EQ(ValueAt(0, u"A8"), 15);

  Shift(InsertRow3);
  EXPECT_EQ(ValueAt(0, u"A9"), 15);
  EXPECT_EQ(ValueAt(0, u"B1"), 40);
  EXPECT_EQ(ValueAt(1, u"A1"), 15);
  // The rewritten formulas read the cells where they are now.
  Put(0, u"A6", 50);
  EXPECT_EQ(ValueAt(0, u"A9"), 60);
  EXPECT_EQ(ValueAt(1, u"A1"), 60);
  // A moved cell whose result depends on where it stands is calculated again; one that stayed
  // is not.
  EXPECT_EQ(At(0, u"C10")->state, CellDirty);
  EXPECT_NE(At(0, u"C1")->state, CellDirty);

  // Row 2 (holding 2) deleted: the sums lose it, and a reader of it gets #REF!.
  Put(0, u"D1", 0, u"=A2+1");
  Shift(DeleteRow2);
  EXPECT_EQ(ValueAt(0, u"A8"), 58);
  EXPECT_EQ(ValueAt(1, u"A1"), 58);
  EXPECT_EQ(ValueAt(0, u"D1"), -2);
  EXPECT_EQ(At(0, u"D1")->value.error, static_cast<uint32_t>(ErrRef));

  // A reader that reaches into a cut block without holding a corner of it still sees the change.
  Put(0, u"F1", 0, u"=SOMME(A3:A5)");
  EXPECT_EQ(ValueAt(0, u"F1"), 57);  // 3 + 4 + 50
  Shift({u"A1:A3", 20, 6});          // A1:A3 (1, empty, 3) cut to G21:G23
  EXPECT_EQ(ValueAt(0, u"F1"), 54);
}

TEST_F(ShiftRangeTest, CellsMoveAndTheArrayStaysSorted) {
  // Beside insertions, deletions and a cut: cells inserted in C3:D3 shifting down, a block cut up
  // and left, and one cut down and right past the rest.
  static const Move moves[] = {InsertRow3,           DeleteColumnB,      CutB2C3ToE6,
                               {u"C3:D65535", 1, 0}, {u"D5:E6", -3, -2}, {u"A1:B2", 5, 4}};
  for (const Move& m : moves) {
    SCOPED_TRACE(TextToUtf8(m.source) + " by " + std::to_string(m.rowDelta) + ", " +
                 std::to_string(m.colDelta));
    FreeCellArray(&GetSheet(book, 0)->cells);
    // An 8 x 6 grid, each cell holding its own position.
    Range source = R(m.source), landing = source;
    MoveRange(&landing, m.rowDelta, m.colDelta);
    std::map<std::pair<int, int>, double> expected;
    for (uint16_t row = 0; row < 8; row++) {
      for (uint8_t col = 0; col < 6; col++) {
        Cell proto{};
        proto.row = row, proto.col = col;
        proto.value = NumberValue(row * 16 + col);
        ASSERT_TRUE(StoreCell(book, 0, &proto, StoreOnly, KeepRowHeight));
        if (RangeContains(&source, row, col))
          expected[{row + m.rowDelta, col + m.colDelta}] = row * 16 + col;
        else if (!RangeContains(&landing, row, col))
          expected[{row, col}] = row * 16 + col;
      }
    }
    Shift(m);
    // The cells in array order, which must be the order of their positions.
    std::map<std::pair<int, int>, double> got;
    const CellArray* cells = &GetSheet(book, 0)->cells;
    for (uint32_t i = 0; i < cells->count; i++) {
      std::pair<int, int> at{cells->cells[i]->row, cells->cells[i]->col};
      EXPECT_TRUE(got.empty() || got.rbegin()->first < at);
      got[at] = cells->cells[i]->value.number;
    }
    EXPECT_EQ(got, expected);
  }
  EXPECT_EQ(GetWorkbook(book)->dirty, 1);
}

// "comments | merges | array formulas | row records | column records | frozen rows and the first
// row of the pane below": a row record shows as row:height, its height being the row it was first
// set on.
std::string Anchors(const Sheet* s) {
  std::string t;
  for (uint32_t i = 0; i < s->commentCount; i++)
    t += Show(Range{s->comments[i].row, s->comments[i].row, s->comments[i].col,
                    s->comments[i].col}) +
         " ";
  t += "|";
  // Appended piece by piece, which keeps GCC 12's -Wrestrict quiet.
  for (uint32_t i = 0; i < s->mergeCount; i++) {
    t += ' ';
    t += Show(s->merges[i]);
  }
  t += " |";
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++) {
    t += ' ';
    t += Show(s->arrayFormulas[i].range);
  }
  t += " |";
  for (uint32_t i = 0; i < s->rows.count; i++) {
    t += ' ';
    t += std::to_string(s->rows.records[i]->row + 1);
    t += ':';
    t += std::to_string(s->rows.records[i]->info.size);
  }
  t += " |";
  for (uint32_t i = 0; i < s->columns.count; i++) {
    t += ' ';
    t += static_cast<char>('A' + s->columns.records[i]->col);
  }
  return t + " | " + std::to_string(s->frozenRow) + " " + std::to_string(s->topRow + 1);
}

// What is anchored to cells moves with its cell or top left corner, what is anchored to whole
// rows or columns moves only with them, and what stood in the landing area goes.
TEST_F(ShiftRangeTest, AnchorsFollowTheirCellsRowsAndColumns) {
  Sheet* s = GetSheet(book, 0);
  // Comment, merge and array formula.
  static const char16_t* const anchors[][3] = {
      {u"A1", u"A1:B1", u"D2:D3"}, {u"B5", u"A5:B6", u"B6"}, {u"C9", u"C9:D10", u"E9:E11"}};
  s->commentCount = s->mergeCount = s->arrayFormulaCount = 3;
  s->comments = static_cast<CellComment*>(Allocate(3 * sizeof(CellComment)));
  s->merges = static_cast<Range*>(Allocate(3 * sizeof(Range)));
  s->arrayFormulas = static_cast<ArrayFormula*>(Allocate(3 * sizeof(ArrayFormula)));
  for (int i = 0; i < 3; i++) {
    Range at = R(anchors[i][0]);
    s->comments[i] = {at.firstRow, at.firstCol, TextDuplicate(u"note")};
    s->merges[i] = R(anchors[i][1]);
    s->arrayFormulas[i].range = R(anchors[i][2]);
  }
  for (uint16_t row : {10, 3, 6}) {
    RowColInfo info{0, row, 0};
    ASSERT_TRUE(SetRowRecord(&s->rows, row - 1u, &info));
  }
  for (uint32_t col : {1u, 4u})
    ASSERT_TRUE(SetColumnRecord(&s->columns, col, &s->rows.records[0]->info));
  s->flags |= SheetPanesFrozen;
  s->frozenRow = 4;  // rows 1-4 frozen, the pane below showing row 11 first
  s->topRow = 10;
  struct Step {
    Move move;
    const char* expected;
  };
  static const Step steps[] = {
      {InsertRow3,
       "A1 B6 C10 | A1:B1 A6:B7 C10:D11 | D2:D3 B7 E10:E12 | 4:3 7:6 11:10 | B E | 5 12"},
      // Not whole rows: no row record moves.
      {{u"C6:F65535", 1, 0},
       "A1 B6 C11 | A1:B1 A6:B7 C11:D12 | D2:D3 B7 E11:E13 | 4:3 7:6 11:10 | B E | 5 12"},
      // Row 11 cut and pasted over row 4; then rows 6-7 deleted.
      {{u"11:11", -7, 0}, "A1 B6 C4 | A1:B1 A6:B7 C4:D5 | D2:D3 B7 E4:E6 | 4:10 7:6 | B E | 5 12"},
      {{u"8:65536", -2, 0}, "A1 C4 | A1:B1 C4:D5 | D2:D3 E4:E6 | 4:10 | B E | 5 12"},
      {{u"E4:E6", 0, 1}, "A1 C4 | A1:B1 C4:D5 | D2:D3 F4:F6 | 4:10 | B E | 5 12"},
      {InsertColumnC, "A1 D4 | A1:B1 D4:E5 | E2:E3 G4:G6 | 4:10 | B F | 5 12"},
      {DeleteColumnB, "A1 C4 | A1:B1 C4:D5 | D2:D3 F4:F6 | 4:10 | E | 5 12"},
      // Rows 1-2 deleted, from the frozen ones; then rows below them.
      {{u"3:65536", -2, 0}, "C2 | C2:D3 | F2:F4 | 2:10 | E | 3 10"},
      {{u"20:65536", -5, 0}, "C2 | C2:D3 | F2:F4 | 2:10 | E | 3 10"},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(TextToUtf8(step.move.source));
    Shift(step.move);
    EXPECT_EQ(Anchors(s), step.expected);
  }
}

}  // namespace
