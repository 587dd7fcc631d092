// Tests of the load road: cells appended in any order end sorted, nothing is calculated while
// cells arrive, and the end of the load builds precedents and marks exactly the cells that must
// be worked out again, with their readers.
#include <gtest/gtest.h>

#include <vector>

#include "formula/recalc.h"
#include "formula/token_builder.h"
#include "model/load.h"
#include "model/workbook.h"

namespace {

using TB = TokenBuilder;

struct LoadTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override { ASSERT_TRUE(CreateWorkbook(u"t.xls", 0, &book)); }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
  }
  Cell* At(uint16_t row, uint8_t col) { return CellAt(&GetSheet(book, 0)->cells, row, col); }
  void Number(uint16_t row, uint8_t col, double n) {
    Value v = NumberValue(n);
    ASSERT_TRUE(LoadCell(book, 0, row, col, DefaultCellXf, &v, nullptr, 0));
  }
  void Formula(uint16_t row, uint8_t col, const TB& t, double cached, int calcOnLoad = 0) {
    Value v = NumberValue(cached);
    FormulaTokens tokens = t.Build();
    ASSERT_TRUE(LoadCell(book, 0, row, col, DefaultCellXf, &v, &tokens, calcOnLoad));
    EXPECT_EQ(tokens.bytes, nullptr);  // ownership passed
  }
};

TEST_F(LoadTest, CellsInAnyOrderEndSortedAndTheLaterDuplicateWins) {
  struct Case {
    std::vector<std::pair<uint16_t, uint8_t>> arrivals;
    std::vector<std::pair<uint16_t, uint8_t>> stored;
  };
  const Case cases[] = {
      {{{0, 0}, {0, 3}, {2, 1}}, {{0, 0}, {0, 3}, {2, 1}}},
      {{{5, 0}, {1, 2}, {1, 1}, {9, 9}}, {{1, 1}, {1, 2}, {5, 0}, {9, 9}}},
      {{{1, 1}, {1, 1}, {0, 0}, {1, 1}}, {{0, 0}, {1, 1}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.arrivals.size());
    FreeCellArray(&GetSheet(book, 0)->cells);
    double n = 0;
    for (auto [row, col] : c.arrivals) Number(row, col, ++n);
    const CellArray& cells = GetSheet(book, 0)->cells;
    ASSERT_EQ(cells.count, c.stored.size());
    for (size_t i = 0; i < c.stored.size(); i++) {
      EXPECT_EQ(cells.cells[i]->row, c.stored[i].first);
      EXPECT_EQ(cells.cells[i]->col, c.stored[i].second);
    }
  }
  EXPECT_EQ(At(1, 1)->value.number, 4);  // the last of three at B2
}

TEST_F(LoadTest, FinishMarksOnlyWhatMustBeWorkedOutAgainWithItsReaders) {
  // A1 plain, B1 = A1 (cached), C1 = B1, D1 asked to calculate on load, E1 = D1, F1 = E1,
  // G1 volatile by the file's mark, H1 = G1, I1 an Xf the workbook does not have.
  Number(0, 0, 1);
  Formula(0, 1, TB().Ref(0, 0), 1);
  Formula(0, 2, TB().Ref(0, 1), 1);
  Formula(0, 3, TB().Int(7), 0, 1);
  Formula(0, 4, TB().Ref(0, 3), 0);
  Formula(0, 5, TB().Ref(0, 4), 0);
  Formula(0, 6, TB().Attr(AttrVolatile).Func(221), 0);
  Formula(0, 7, TB().Ref(0, 6), 0);
  Value v = NumberValue(3);
  ASSERT_TRUE(LoadCell(book, 0, 0, 8, 9999, &v, nullptr, 0));
  EXPECT_EQ(At(0, 2)->precedentCount, 0u);  // nothing built while cells arrive
  ASSERT_TRUE(FinishLoad(book));

  const uint8_t expected[] = {CellCalculated, CellCalculated, CellCalculated,
                              CellDirty,      CellDirty,      CellDirty,
                              CellDirty,      CellDirty,      CellCalculated};
  for (uint8_t col = 0; col < 9; col++) EXPECT_EQ(At(0, col)->state, expected[col]) << int(col);
  EXPECT_EQ(At(0, 2)->precedentCount, 1u);
  EXPECT_EQ(At(0, 8)->xf, DefaultCellXf);
  EXPECT_EQ(GetWorkbook(book)->dirty, 1);
  EXPECT_EQ(At(0, 1)->value.number, 1);  // the cached result stands
}

TEST_F(LoadTest, AWorkbookWithoutVolatileFormulasStaysClean) {
  Formula(0, 0, TB().Int(2), 2, 1);
  ASSERT_TRUE(FinishLoad(book));
  EXPECT_EQ(GetWorkbook(book)->dirty, 0);
  EXPECT_EQ(At(0, 0)->state, CellDirty);
}

TEST_F(LoadTest, LostMemoryReleasesWhatWasHandedOver) {
  Number(0, 0, 1);
  for (int64_t after = 0; after < 3; after++) {
    Value v = NumberValue(2);
    FormulaTokens tokens = TB().Int(1).Build();
    SetAllocationFailureAfter(after);
    int ok = LoadCell(book, 0, 0, static_cast<uint32_t>(200 + after), 0, &v, &tokens, 0);
    SetAllocationFailureAfter(-1);
    if (!ok) {
      EXPECT_EQ(tokens.bytes, nullptr);
    }
  }
}

}  // namespace
