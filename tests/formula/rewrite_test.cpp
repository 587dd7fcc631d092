// Tests of reference rewriting: the decision table on single references, formulas written as text
// and read back after a move (inserted and deleted rows and columns, moves across sheets, names),
// and ShiftRange on a real sheet: cells, their order, row and column records, comments, merges,
// array formulas and the recalculation of what reads the moved cells.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
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
  uint32_t sheet;
  const char16_t* source;
  int32_t rowDelta, colDelta;
};
const Move DeleteRows5To7 = {0, u"8:65536", -3, 0};
const Move DeleteRow6 = {0, u"7:65536", -1, 0};
const Move InsertRow3 = {0, u"3:65535", 1, 0};
const Move InsertColumnC = {0, u"C:IU", 0, 1};
const Move DeleteColumnB = {0, u"C:IV", 0, -1};
const Move CutB2C3ToE6 = {0, u"B2:C3", 4, 3};

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
    ParseContext ctx{book, sheet, 1, 0, 0, 0, 0};
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
    Range r = R(where);
    return CellAt(&GetSheet(book, sheet)->cells, r.firstRow, r.firstCol);
  }
  void Put(uint32_t sheet, const char16_t* where, double number,
           const char16_t* formula = nullptr) {
    Cell proto{};
    proto.row = R(where).firstRow;
    proto.col = R(where).firstCol;
    proto.value = NumberValue(number);
    if (formula) proto.formula = Compile(sheet, formula);
    EXPECT_TRUE(StoreCell(book, sheet, &proto, 1, 0));
  }
  std::string FormulaAt(uint32_t sheet, const char16_t* where) const {
    return At(sheet, where) ? Text(&At(sheet, where)->formula) : "(no cell)";
  }
  // The value as a reader sees it: calculated only when marked dirty; -2 when not a number.
  double ValueAt(uint32_t sheet, const char16_t* where) const {
    Cell* c = At(sheet, where);
    if (c->state < CellCalculated) {
      EXPECT_TRUE(CalculateCell(book, sheet, c));
    }
    return c->value.tag == ValueNumber ? c->value.number : -2;
  }
  // Moves as a command would: the cells of the landing area that are not in the block go first.
  void Shift(const Move& m) {
    Range source = R(m.source), landing = source;
    MoveRange(&landing, m.rowDelta, m.colDelta);
    CellArray* cells = &GetSheet(book, m.sheet)->cells;
    for (uint32_t i = 0; i < cells->count;) {
      const Cell* c = cells->cells[i];
      if (RangeContains(&landing, c->row, c->col) && !RangeContains(&source, c->row, c->col))
        DeleteCell(book, m.sheet, cells, i);
      else
        i++;
    }
    ShiftRange(book, m.sheet, &source, m.rowDelta, m.colDelta);
  }
};
struct ShiftRangeTest : RewriteTest {};

// Every code of the table, with the smallest picture that produces it.
TEST_F(RewriteTest, TableCodesMoveStretchShrinkOrDelete) {
  struct Case {
    int code;
    const char16_t* source;
    int32_t rowDelta, colDelta;
    const char16_t* reference;
    const char* expected;  // null: deleted
  };
  // Rows 11-20 of C:F move up five rows onto 6-15, or down five onto 16-25; columns E-K of rows
  // 4-9 move two columns right onto G-M, or left onto C-I.
  static const Case cases[] = {
      {240, u"C11:F20", -5, 0, u"D12:E13", "D7:E8"},
      {15, u"C11:F20", -5, 0, u"C7:D9", nullptr},
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
    Range source = R(c.source), ref = R(c.reference), in = ref;
    int changed = -1, deleted = -1;
    AdjustReference(&source, c.rowDelta, c.colDelta, &ref, &changed, &deleted);
    EXPECT_EQ(deleted, c.expected ? 0 : 1);
    EXPECT_EQ(c.expected ? Show(ref) : "deleted", c.expected ? c.expected : "deleted");
    EXPECT_EQ(changed, c.expected && Show(in) == c.expected ? 0 : 1);
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
      {0, u"=A6", DeleteRow6, "=#REF!"},
      {0, u"=SOMME(A6;A7)", DeleteRow6, "=SOMME(#REF!;A6)"},
      {0, u"=A6:B6*2", DeleteRow6, "=#REF!*2"},
      {0, u"=A6:A9", DeleteRow6, "=A6:A8"},
      {0, u"=A1:A5", InsertRow3, "=A1:A6"},
      {0, u"=A1:A2+A3", InsertRow3, "=A1:A2+A4"},
      {0, u"=$B$10*C$12-$D12", InsertRow3, "=$B$11*C$13-$D13"},
      {0, u"=A:A", InsertRow3, "=A:A"},
      {0, u"=SOMME(2:4)", InsertRow3, "=SOMME(2:5)"},
      {0, u"=SOMME(B2:D2)", InsertColumnC, "=SOMME(B2:E2)"},
      {0, u"=SOMME(1:1)+C:C", InsertColumnC, "=SOMME(1:1)+D:D"},
      {0, u"=B1+C1+D1", DeleteColumnB, "=#REF!+B1+C1"},
      {0, u"=B2+C3+D4+F7", CutB2C3ToE6, "=E6+F7+D4+#REF!"},
      // Across sheets: a 3-D reference into the sheet follows, a plain one elsewhere does not.
      {1, u"=Feuille1!A5", InsertRow3, "=Feuille1!A6"},
      {1, u"=Feuille1!A1:A5", InsertRow3, "=Feuille1!A1:A6"},
      {1, u"=A5", InsertRow3, "=A5"},
      {1, u"=Feuille1!A6+1", DeleteRow6, "=#REF!+1"},
      {0, u"=Feuille2!A5+Feuille1!A5", InsertRow3, "=Feuille2!A5+Feuille1!A6"},
      // A span of sheets is not one sheet's reference.
      {1, u"=SOMME(Feuille1:Feuille2!A5)", InsertRow3, "=SOMME(Feuille1:Feuille2!A5)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(TextToUtf8(c.formula));
    FormulaTokens tokens = Compile(c.formulaSheet, c.formula);
    FormulaTokens before{};
    ASSERT_TRUE(CopyTokens(&before, &tokens));
    Range source = R(c.move.source);
    int changed = RewriteTokens(book, c.formulaSheet, c.move.sheet, &tokens, &source,
                                c.move.rowDelta, c.move.colDelta);
    EXPECT_EQ(Text(&tokens), c.expected);
    EXPECT_EQ(changed != 0, !EqualTokens(&before, &tokens));
    FreeTokens(&tokens);
    FreeTokens(&before);
  }
}

// A name's 3-D reference to the sheet follows, and what uses the name is calculated again; a
// name's plain reference means the sheet where it is used and stays as written.
TEST_F(RewriteTest, NamesFollowThroughTheirSheetReferences) {
  struct NameCase {
    const char16_t* name;
    const char16_t* formula;
    const char* expected;
  };
  static const NameCase names[] = {
      {u"Taux", u"=Feuille1!$A$5", "=Feuille1!$A$4"},
      {u"Bloc", u"=Feuille1!$A$1:$A$5", "=Feuille1!$A$1:$A$4"},
      {u"Ici", u"=$A$5", "=$A$5"},
      {u"Ailleurs", u"=Feuille2!$A$5", "=Feuille2!$A$5"},
  };
  for (const NameCase& n : names) {
    DefinedName name{};
    name.name = TextDuplicate(n.name);
    name.formula = Compile(0, n.formula, ClassCodeReference);
    ASSERT_TRUE(AddName(book, &name, nullptr));
  }
  static const char16_t* const column[] = {u"A1", u"A2", u"A3", u"A4", u"A5"};
  for (int i = 0; i < 5; i++) Put(0, column[i], i + 1);
  Put(0, u"C1", 0, u"=Taux*2");
  Put(0, u"D1", 0, u"=SOMME(Bloc)");
  EXPECT_EQ(ValueAt(0, u"D1"), 15);
  // Row 2 deleted: the name of A5 follows it to A4, the name of A1:A5 loses a row.
  Shift({0, u"3:65536", -1, 0});
  for (uint32_t i = 0; i < 4; i++)
    EXPECT_EQ(Text(&GetWorkbook(book)->names[i].formula), names[i].expected);
  EXPECT_EQ(ValueAt(0, u"C1"), 10);
  EXPECT_EQ(ValueAt(0, u"D1"), 13);
}

TEST_F(ShiftRangeTest, ReadersRecalculateAfterTheMove) {
  static const char16_t* const column[] = {u"A1", u"A2", u"A3", u"A4", u"A5"};
  for (int i = 0; i < 5; i++) Put(0, column[i], i + 1);
  Put(0, u"A8", 0, u"=SOMME(A1:A5)");
  Put(0, u"B1", 0, u"=A4*10");
  Put(1, u"A1", 0, u"=SOMME(Feuille1!A1:A5)");
  Put(0, u"C9", 0, u"=LIGNE()");
  Put(0, u"C1", 0, u"=LIGNE()");
  EXPECT_EQ(ValueAt(0, u"A8"), 15);

  Shift(InsertRow3);
  EXPECT_EQ(FormulaAt(0, u"A9"), "=SOMME(A1:A6)");
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
  Shift({0, u"3:65536", -1, 0});
  EXPECT_EQ(FormulaAt(0, u"A8"), "=SOMME(A1:A5)");
  EXPECT_EQ(ValueAt(0, u"A8"), 58);
  EXPECT_EQ(ValueAt(1, u"A1"), 58);
  EXPECT_EQ(FormulaAt(0, u"D1"), "=#REF!+1");
  EXPECT_EQ(ValueAt(0, u"D1"), -2);
  EXPECT_EQ(At(0, u"D1")->value.error, static_cast<uint32_t>(ErrRef));

  // A reader that reaches into a cut block without holding a corner of it still sees the change.
  Put(0, u"F1", 0, u"=SOMME(A3:A5)");
  EXPECT_EQ(ValueAt(0, u"F1"), 57);  // 3 + 4 + 50
  Shift({0, u"A1:A3", 20, 6});       // A1:A3 (1, empty, 3) cut to G21:G23
  EXPECT_EQ(FormulaAt(0, u"F1"), "=SOMME(A3:A5)");
  EXPECT_EQ(ValueAt(0, u"F1"), 54);
}

TEST_F(ShiftRangeTest, CellsMoveAndTheArrayStaysSorted) {
  static const Move moves[] = {
      InsertRow3,
      DeleteRows5To7,
      InsertColumnC,
      DeleteColumnB,
      CutB2C3ToE6,
      {0, u"C3:D65535", 1, 0},  // cells inserted in C3:D3, shifting down
      {0, u"C3:IU4", 0, 1},     // cells inserted in C3:C4, shifting right
      {0, u"D5:E6", -3, -2},    // cut and pasted up and left
      {0, u"A1:B2", 5, 4},      // down and right past the rest
  };
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
        ASSERT_TRUE(StoreCell(book, 0, &proto, 0, 0));
        if (RangeContains(&source, row, col))
          expected[{row + m.rowDelta, col + m.colDelta}] = row * 16 + col;
        else if (!RangeContains(&landing, row, col))
          expected[{row, col}] = row * 16 + col;
      }
    }
    Shift(m);
    const CellArray* cells = &GetSheet(book, 0)->cells;
    EXPECT_EQ(cells->count, expected.size());
    for (uint32_t i = 1; i < cells->count; i++) {
      const Cell *a = cells->cells[i - 1], *b = cells->cells[i];
      EXPECT_TRUE(a->row < b->row || (a->row == b->row && a->col < b->col)) << "at " << i;
    }
    for (const auto& [where, value] : expected) {
      const Cell* c = CellAt(cells, where.first, where.second);
      ASSERT_NE(c, nullptr) << where.first << "," << where.second;
      EXPECT_EQ(c->value.number, value);
    }
  }
  EXPECT_EQ(GetWorkbook(book)->dirty, 1);
}

TEST_F(ShiftRangeTest, RowAndColumnRecordsMoveWithWholeRowsAndColumns) {
  struct Case {
    Move move;
    std::vector<uint32_t> rows;     // records first set on rows 2, 5 and 9 (1-based 3, 6, 10)
    std::vector<uint32_t> columns;  // and on columns 1 and 4 (B and E)
    uint32_t tenth;                 // where the record of row 10 is found after
  };
  static const Case cases[] = {
      {InsertRow3, {3, 6, 10}, {1, 4}, 10},
      {DeleteRow6, {2, 8}, {1, 4}, 8},
      {DeleteRows5To7, {2, 6}, {1, 4}, 6},
      {{0, u"10:10", -7, 0}, {2, 5}, {1, 4}, 2},  // row 10 cut and pasted over row 3
      {InsertColumnC, {2, 5, 9}, {1, 5}, 9},
      {DeleteColumnB, {2, 5, 9}, {3}, 9},
      {{0, u"C6:F65535", 1, 0}, {2, 5, 9}, {1, 4}, 9},  // not whole rows
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(TextToUtf8(c.move.source));
    Sheet* s = GetSheet(book, 0);
    FreeRowArray(&s->rows);
    FreeColumnArray(&s->columns);
    for (uint32_t row : {9u, 2u, 5u}) {
      RowColInfo info{0, static_cast<uint16_t>(100 + row), 0};
      ASSERT_TRUE(SetRowRecord(&s->rows, row, &info));
    }
    for (uint32_t col : {1u, 4u})
      ASSERT_TRUE(SetColumnRecord(&s->columns, col, &s->rows.records[0]->info));
    Shift(c.move);
    std::vector<uint32_t> rows, columns;
    for (uint32_t i = 0; i < s->rows.count; i++) rows.push_back(s->rows.records[i]->row);
    for (uint32_t i = 0; i < s->columns.count; i++) columns.push_back(s->columns.records[i]->col);
    EXPECT_EQ(rows, c.rows);
    EXPECT_EQ(columns, c.columns);
    // A record keeps its own height, and the search finds it where its row went.
    EXPECT_EQ(RowHeightTwips(book, 0, c.tenth), 109u);
  }
}

TEST_F(ShiftRangeTest, FrozenRowsGrowAndShrinkWithTheirRows) {
  Sheet* s = GetSheet(book, 0);
  s->flags |= SheetPanesFrozen;
  s->frozenRow = 4;  // rows 1-4 frozen, the scrolled pane showing row 11 first
  s->topRow = 10;
  struct Step {
    Move move;
    uint16_t frozenRow, topRow;
  };
  static const Step steps[] = {
      {InsertRow3, 5, 11},
      {{0, u"3:65536", -2, 0}, 3, 9},   // rows 1-2 deleted
      {{0, u"20:65536", -5, 0}, 3, 9},  // below the frozen rows
  };
  for (const Step& step : steps) {
    Shift(step.move);
    EXPECT_EQ(s->frozenRow, step.frozenRow);
    EXPECT_EQ(s->topRow, step.topRow);
  }
}

// The comments, merges and array formulas of a sheet as text.
std::string Anchors(const Sheet* s) {
  std::string text = "comments";
  for (uint32_t i = 0; i < s->commentCount; i++) {
    Range r{s->comments[i].row, s->comments[i].row, s->comments[i].col, s->comments[i].col};
    text += " " + Show(r);
  }
  text += ", merges";
  for (uint32_t i = 0; i < s->mergeCount; i++) text += " " + Show(s->merges[i]);
  text += ", arrays";
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++) text += " " + Show(s->arrayFormulas[i].range);
  return text;
}

TEST_F(ShiftRangeTest, CommentsMergesAndArrayFormulasMoveWithTheirCorner) {
  Sheet* s = GetSheet(book, 0);
  const char16_t* const comments[] = {u"A1", u"B5", u"C9"};
  s->commentCount = 3;
  s->comments = static_cast<CellComment*>(Allocate(3 * sizeof(CellComment)));
  for (uint32_t i = 0; i < 3; i++)
    s->comments[i] =
        CellComment{R(comments[i]).firstRow, R(comments[i]).firstCol, TextDuplicate(u"note")};
  s->mergeCount = 3;
  s->merges = static_cast<Range*>(Allocate(3 * sizeof(Range)));
  s->merges[0] = R(u"A1:B1"), s->merges[1] = R(u"A5:B6"), s->merges[2] = R(u"C9:D10");
  s->arrayFormulaCount = 3;
  s->arrayFormulas = static_cast<ArrayFormula*>(Allocate(3 * sizeof(ArrayFormula)));
  s->arrayFormulas[0].range = R(u"D2:D3");
  s->arrayFormulas[1].range = R(u"B6");
  s->arrayFormulas[2].range = R(u"E9:E11");
  struct Step {
    Move move;
    const char* expected;
  };
  static const Step steps[] = {
      {InsertRow3, "comments A1 B6 C10, merges A1:B1 A6:B7 C10:D11, arrays D2:D3 B7 E10:E12"},
      // Deleting rows 6-7 takes what stood there; what stood below comes up whole.
      {{0, u"8:65536", -2, 0}, "comments A1 C8, merges A1:B1 C8:D9, arrays D2:D3 E8:E10"},
      // A cut and paste of one array block.
      {{0, u"E8:E10", 0, 1}, "comments A1 C8, merges A1:B1 C8:D9, arrays D2:D3 F8:F10"},
  };
  for (const Step& step : steps) {
    Shift(step.move);
    EXPECT_EQ(Anchors(s), step.expected);
  }
}

}  // namespace
