// Tests of storing typed text: what each kind of entry leaves in the cell and its format, the
// exclusions that keep a chosen format, refused formulas, text-only cells, and entries over a
// range (fill and array).
#include "edit/entry.h"

#include <gtest/gtest.h>

#include <string>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/formula_text.h"
#include "model/styles.h"
#include "model/value.h"
#include "model/workbook.h"

namespace {

struct EntryTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override {
    CloseAllWorkbooks();
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
  }
  void TearDown() override { CloseAllWorkbooks(); }

  int Enter(const char16_t* text, Range range, EntryStatus* status, int fill = 0, int array = 0) {
    EntryTarget target{book, 0, range, range.firstRow, range.firstCol, array, fill, 0};
    return StoreEntry(text, &target, status);
  }
  int Enter(const char16_t* text, uint16_t row = 0, uint8_t col = 0) {
    EntryStatus status;
    return Enter(text, Range{row, row, col, col}, &status);
  }
  Cell* At(uint32_t row, uint32_t col) { return CellAt(&GetSheet(book, 0)->cells, row, col); }
  const Xf& XfOf(const Cell* cell) { return GetWorkbook(book)->xfs[cell->xf]; }
  uint16_t FormatId(const Cell* cell) {
    return GetWorkbook(book)->numberFormats[XfOf(cell).numberFormat].id;
  }
  // Gives cell (row, col) the built-in number format `id` through a stored blank.
  void FormatCell(uint16_t row, uint8_t col, uint16_t id) {
    Xf xf = GetWorkbook(book)->xfs[DefaultCellXf];
    xf.numberFormat = static_cast<uint16_t>(FindNumberFormatById(book, id));
    Cell proto{};
    proto.row = row;
    proto.col = col;
    ASSERT_TRUE(InternXf(book, &xf, &proto.xf));
    ASSERT_TRUE(StoreCell(book, 0, &proto, 0, 0));
  }
  std::string Formula(const Cell* cell) {
    char16_t* text =
        FormulaText(book, &cell->formula, cell->row, cell->col, 1, cell->row, cell->col);
    std::string out = TextToUtf8(text);
    Release(text);
    return out;
  }
};

TEST_F(EntryTest, EachKindStoresItsValueAndFormat) {
  struct Case {
    const char16_t* text;
    uint16_t tag;
    double number;          // for numbers and booleans
    const char* shownText;  // for texts
    uint16_t formatId;      // the number format the cell ends with
    bool prefix, wrap;
  } cases[] = {
      {u"1,5", ValueNumber, 1.5, nullptr, 0, false, false},
      {u"1 234,5", ValueNumber, 1234.5, nullptr, 4, false, false},
      {u"15%", ValueNumber, 0.15, nullptr, 9, false, false},
      {u"12,5%", ValueNumber, 0.125, nullptr, 10, false, false},
      {u"15/03/2024", ValueNumber, 45366, nullptr, 14, false, false},
      {u"(5)", ValueNumber, -5, nullptr, 0, false, false},
      {u"vrai", ValueBoolean, 1, nullptr, 0, false, false},
      {u"bonjour", ValueText, 0, "bonjour", 0, false, false},
      {u"'12", ValueText, 0, "12", 0, true, false},
      {u"'=1+", ValueText, 0, "=1+", 0, true, false},
      {u"-", ValueText, 0, "-", 0, false, false},
      {u"deux\nlignes", ValueText, 0, "deux\nlignes", 0, false, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(TextToUtf8(c.text));
    ASSERT_TRUE(Enter(c.text));
    Cell* cell = At(0, 0);
    ASSERT_NE(cell, nullptr);
    EXPECT_EQ(cell->value.tag, c.tag);
    if (c.tag == ValueNumber) {
      EXPECT_DOUBLE_EQ(cell->value.number, c.number);
    }
    if (c.tag == ValueBoolean) {
      EXPECT_EQ(cell->value.boolean, c.number != 0);
    }
    if (c.tag == ValueText) {
      EXPECT_EQ(TextToUtf8(cell->value.text), c.shownText);
    }
    EXPECT_EQ(FormatId(cell), c.formatId);
    EXPECT_EQ((XfOf(cell).flags & XfQuotePrefix) != 0, c.prefix);
    EXPECT_EQ((XfOf(cell).flags & XfWrap) != 0, c.wrap);
    FormatCell(0, 0, 0);  // the next entry starts from a plain cell again
  }
}

TEST_F(EntryTest, FormulasAreCompiledAndCalculated) {
  struct Case {
    const char16_t* text;
    const char* formula;
    double value;  // 0: not checked
    uint16_t formatId;
  } cases[] = {
      {u"=1+2", "=1+2", 3, 0},
      {u"+2*3", "=2*3", 6, 0},
      {u"=DATE(2024;3;15)", "=DATE(2024;3;15)", 0, 14},
      {u"=SOMME(DATE(2024;3;15))", "=SOMME(DATE(2024;3;15))", 0, 14},
      {u"=SOMME(1;2)", "=SOMME(1;2)", 3, 0},
      {u"=TAUX(10;-100;900)", "=TAUX(10;-100;900)", 0, 9},
  };
  uint16_t row = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.formula);
    ASSERT_TRUE(Enter(c.text, row));
    Cell* cell = At(row++, 0);
    ASSERT_NE(cell, nullptr);
    ASSERT_NE(cell->formula.bytes, nullptr);
    EXPECT_EQ(Formula(cell), c.formula);
    if (c.value) {
      EXPECT_DOUBLE_EQ(cell->value.number, c.value);
    }
    EXPECT_EQ(FormatId(cell), c.formatId);
  }
}

// A date typed into a cell formatted 0.00 keeps 0.00; a date into a percent cell becomes a date.
TEST_F(EntryTest, ChosenFormatsAreKeptAgainstTheEntry) {
  struct Case {
    uint16_t before;
    const char16_t* text;
    uint16_t after;
  } cases[] = {
      {2, u"15/03/2024", 2},       {7, u"15/03/2024", 7},        {20, u"15/03/2024", 20},
      {49, u"15/03/2024", 49},     {9, u"15/03/2024", 14},       {9, u"5", 9},
      {2, u"=DATE(2024;3;15)", 2}, {0, u"=DATE(2024;3;15)", 14},
  };
  for (const Case& c : cases) {
    std::string trace = TextToUtf8(c.text);
    trace += " over format ";
    trace += std::to_string(c.before);
    SCOPED_TRACE(trace);
    FormatCell(0, 0, c.before);
    ASSERT_TRUE(Enter(c.text));
    EXPECT_EQ(FormatId(At(0, 0)), c.after);
  }
}

TEST_F(EntryTest, AFormulaThatDoesNotCompileChangesNothing) {
  ASSERT_TRUE(Enter(u"ancien"));
  uint32_t dirtyBefore = GetWorkbook(book)->dirty;
  for (const char16_t* text : {u"=1+", u"=SOMME(1;", u"-(", u"+)"}) {
    SCOPED_TRACE(TextToUtf8(text));
    EntryStatus status;
    EXPECT_FALSE(Enter(text, Range{0, 0, 0, 0}, &status));
    EXPECT_EQ(status, EntryBadFormula);
    ASSERT_NE(At(0, 0), nullptr);
    EXPECT_EQ(TextToUtf8(At(0, 0)->value.text), "ancien");
    EXPECT_EQ(At(0, 0)->formula.bytes, nullptr);
  }
  EXPECT_EQ(GetWorkbook(book)->dirty, dirtyBefore);
}

TEST_F(EntryTest, TextOnlyCellsStoreEvenAFormulaAsText) {
  Cell proto{};
  proto.xf = TextOnlyXf;
  while (GetWorkbook(book)->xfCount <= TextOnlyXf) {
    Xf xf = GetWorkbook(book)->xfs[DefaultCellXf];
    xf.rotation = static_cast<uint8_t>(GetWorkbook(book)->xfCount);  // a distinct Xf each time
    uint16_t index;
    ASSERT_TRUE(InternXf(book, &xf, &index));
  }
  ASSERT_TRUE(StoreCell(book, 0, &proto, 0, 0));
  for (const char16_t* text : {u"=1+2", u"=1+", u"12"}) {
    ASSERT_TRUE(Enter(text));
    EXPECT_EQ(At(0, 0)->value.tag, ValueText);
    EXPECT_EQ(At(0, 0)->value.text, std::u16string_view(text));
  }
}

TEST_F(EntryTest, FillMovesRelativeReferencesAndArrayKeepsOneBlock) {
  EntryStatus status;
  ASSERT_TRUE(Enter(u"=A1*2", Range{0, 1, 1, 2}, &status, 1));
  EXPECT_EQ(Formula(At(0, 1)), "=A1*2");
  EXPECT_EQ(Formula(At(1, 1)), "=A2*2");
  EXPECT_EQ(Formula(At(1, 2)), "=B2*2");
  ASSERT_TRUE(Enter(u"=A1*2", Range{0, 1, 1, 2}, &status));
  EXPECT_EQ(Formula(At(1, 2)), "=A1*2");
  ASSERT_TRUE(Enter(u"=A1*2", Range{3, 4, 0, 0}, &status, 0, 1));
  ASSERT_TRUE(Enter(u"=A1*3", Range{3, 4, 0, 0}, &status, 0, 1));
  const Sheet* s = GetSheet(book, 0);
  ASSERT_EQ(s->arrayFormulaCount, 1u);
  EXPECT_EQ(s->arrayFormulas[0].range.firstRow, 3);
  EXPECT_EQ(s->arrayFormulas[0].range.lastRow, 4);
}

}  // namespace
