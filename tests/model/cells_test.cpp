// Tests of the cell store: the sorted pointer array and its binary search, storing over and
// deleting cells, range walks and range clearing, row and column geometry, and lost memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "model/cells.h"
#include "model/workbook.h"

namespace {

using Position = std::pair<uint32_t, uint32_t>;

struct CellsTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override {
    CloseAllWorkbooks();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
  }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
  }
  CellArray* cells() { return &GetSheet(book, 0)->cells; }
  // `full` also marks readers and fits the row, as typing does.
  int Store(uint32_t row, uint32_t col, Value value, int full = 0, uint8_t state = CellDirty) {
    Cell proto{};
    proto.row = static_cast<uint16_t>(row);
    proto.col = static_cast<uint8_t>(col);
    proto.xf = 15;
    proto.value = value;
    proto.state = state;
    return StoreCell(book, 0, &proto, full, full);
  }
  std::vector<Position> Positions() {
    std::vector<Position> out;
    for (uint32_t i = 0; i < cells()->count; i++)
      out.push_back({cells()->cells[i]->row, cells()->cells[i]->col});
    return out;
  }
};

TEST_F(CellsTest, BinarySearchAtTheEdges) {
  struct Case {
    uint32_t row, col;
    int found;
    uint32_t index;
  };
  auto check = [&](const Case& c) {
    uint32_t index = 99;
    EXPECT_EQ(FindCell(cells(), c.row, c.col, &index), c.found) << c.row << "," << c.col;
    EXPECT_EQ(index, c.index) << c.row << "," << c.col;
  };
  check({0, 0, 0, 0});  // an empty array
  check({65535, 255, 0, 0});
  for (Position p : {Position{2, 3}, {2, 200}, {40000, 0}, {65535, 254}})
    ASSERT_TRUE(Store(p.first, p.second, NumberValue(p.first * 256.0 + p.second)));
  EXPECT_EQ(cells()->capacity, CellArrayStep);
  const Case cases[] = {{0, 0, 0, 0},       {2, 2, 0, 0},    {2, 3, 1, 0},     {2, 4, 0, 1},
                        {2, 255, 0, 2},     {3, 0, 0, 2},    {40000, 0, 1, 2}, {65535, 254, 1, 3},
                        {65535, 255, 0, 4}, {65535, 0, 0, 3}};
  for (const Case& c : cases) check(c);
  // The very first and very last cell of a sheet can be stored and found.
  ASSERT_TRUE(Store(0, 0, NumberValue(-1)));
  ASSERT_TRUE(Store(65535, 255, NumberValue(-2)));
  EXPECT_EQ(cells()->cells[0]->value.number, -1);
  EXPECT_EQ(CellAt(cells(), 65535, 255), cells()->cells[cells()->count - 1]);
  EXPECT_EQ(cells()->cells[cells()->count - 1]->value.number, -2);
}

// Storing over a cell reuses its record and takes away its comment; the state follows the value,
// whatever the proto says; clearing the contents keeps the place and the format.
TEST_F(CellsTest, StoringOverACellReusesItAndDropsItsComment) {
  for (uint32_t col = 1; col <= 3; col++) ASSERT_TRUE(Store(4, col, NumberValue(col)));
  Cell* cell = CellAt(cells(), 4, 2);
  cell->xf = 21;
  Sheet* s = GetSheet(book, 0);
  s->comments = static_cast<CellComment*>(Allocate(2 * sizeof(CellComment)));
  s->comments[0] = {4, 2, TextDuplicate(u"on the cell")};
  s->comments[1] = {4, 3, TextDuplicate(u"next door")};
  s->commentCount = 2;
  std::pair<Value, uint8_t> cases[] = {{TextValue(TextDuplicate(u"new")), CellCalculated},
                                       {BooleanValue(true), CellCalculated},
                                       {ErrorValue(ErrNA), CellCalculated},
                                       {Value{}, CellShown},
                                       {NumberValue(2.5), CellCalculated}};
  for (const auto& [value, state] : cases) {
    uint16_t tag = value.tag;
    ASSERT_TRUE(Store(4, 2, value, 1, CellCalculating));
    EXPECT_EQ(CellAt(cells(), 4, 2), cell);
    EXPECT_EQ(cell->value.tag, tag);
    EXPECT_EQ(cell->state, state) << tag;
  }
  EXPECT_EQ(cells()->count, 3u);
  EXPECT_EQ(cell->xf, 15);
  EXPECT_EQ(cell->value.number, 2.5);
  ASSERT_EQ(s->commentCount, 1u);
  EXPECT_EQ(s->comments[0].col, 3);

  cell->text = TextDuplicate(u"shown");
  cell->precedents = static_cast<Precedent*>(Allocate(2 * sizeof(Precedent)));
  cell->precedentCount = 1;
  cell->precedentCapacity = 2;
  cell->isVolatile = 1;
  ClearCellContents(cell);
  EXPECT_EQ(Position(cell->row, cell->col), Position(4, 2));
  EXPECT_EQ(cell->xf, 15);
  EXPECT_EQ(cell->value.tag, ValueEmpty);
  EXPECT_TRUE(!cell->text && !cell->formula.bytes && !cell->precedents && !cell->isVolatile);
  EXPECT_EQ(cell->precedentCount + cell->precedentCapacity, 0u);
}

// Records come zeroed and distinct across several of the pool's blocks, and a freed record is
// handed out again zeroed.
TEST_F(CellsTest, CellRecordsComeZeroedAcrossBlocksAndAfterReuse) {
  std::vector<Cell*> records;
  unsigned char zero[sizeof(Cell)] = {};
  for (uint32_t i = 0; i < 70000; i++) {
    Cell* c = AllocateCell();
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(std::memcmp(c, zero, sizeof(Cell)), 0) << i;
    c->row = static_cast<uint16_t>(i);
    c->xf = 7;
    records.push_back(c);
  }
  std::vector<Cell*> sorted = records;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end());
  for (uint32_t i = 0; i < records.size(); i += 2) ReleaseCell(records[i]);
  for (uint32_t i = 0; i < records.size(); i += 2) {
    records[i] = AllocateCell();
    ASSERT_EQ(std::memcmp(records[i], zero, sizeof(Cell)), 0) << i;
  }
  for (uint32_t i = 1; i < records.size(); i += 2) EXPECT_EQ(records[i]->row, uint16_t(i));
  for (Cell* c : records) ReleaseCell(c);
}

// A full-width sheet with holes, stored in random order and some cells twice: the array keeps
// row then column order, and a repeat reuses the stored cell. Then each range is walked and
// cleared: the walk sees exactly the stored cells inside it, seeking past the columns outside, and
// the clearing removes exactly those.
TEST_F(CellsTest, RangeWalkAndClearingTakeExactlyTheCellsOfTheRange) {
  std::vector<Position> all{{65535, 0}, {65535, 254}, {65535, 255}};
  for (uint32_t row = 0; row < 80; row++)
    for (uint32_t col = 0; col < 256; col++)
      if ((row * 7 + col) % 3) all.push_back({row, col});
  std::vector<Position> order = all;
  order.insert(order.end(), all.begin(), all.begin() + 2000);
  std::shuffle(order.begin(), order.end(), std::mt19937(20240611));
  for (Position p : order)
    ASSERT_TRUE(Store(p.first, p.second, NumberValue(p.first * 256.0 + p.second)));
  std::sort(all.begin(), all.end());
  ASSERT_EQ(Positions(), all);
  EXPECT_EQ(cells()->capacity % CellArrayStep, 0u);
  for (Position p : all)
    EXPECT_EQ(CellAt(cells(), p.first, p.second)->value.number, p.first * 256.0 + p.second);

  const Range ranges[] = {{10, 60, 100, 102},   {5, 5, 0, 0},          {0, 65535, 1, 2},
                          {0, 65535, 255, 255}, {79, 65535, 254, 255}, {80, 65534, 0, 255},
                          {79, 79, 0, 0}};
  for (const Range& r : ranges) {
    SCOPED_TRACE(testing::Message() << r.firstRow << ":" << r.lastRow << " " << int{r.firstCol});
    std::vector<Position> inside, outside, seen;
    for (Position p : Positions())
      (RangeContains(&r, p.first, p.second) ? inside : outside).push_back(p);
    CellRangeWalk walk;
    BeginRangeWalk(&walk, cells(), &r);
    while (Cell* c = NextCellInRange(&walk)) seen.push_back({c->row, c->col});
    EXPECT_EQ(seen, inside);
    ClearCellsInRange(book, 0, &r);
    EXPECT_EQ(Positions(), outside);
  }
}

TEST_F(CellsTest, LostMemoryLeavesTheSheetAsItWas) {
  for (uint32_t col = 0; col < 3; col++) ASSERT_TRUE(Store(0, col, NumberValue(col)));
  std::vector<Position> before = Positions();
  Cell* first = cells()->cells[0];
  // A new cell needs its record; storing over an existing one needs nothing.
  char16_t* owned = TextDuplicate(u"kept by the caller");
  SetAllocationFailureAfter(0);
  EXPECT_EQ(Store(0, 200, TextValue(owned), 1), 0);
  EXPECT_EQ(Store(0, 1, NumberValue(5), 1), 1);
  SetAllocationFailureAfter(-1);
  Release(owned);
  EXPECT_EQ(Positions(), before);
  EXPECT_EQ(cells()->cells[0], first);

  // A full array whose growth fails: the record allocated first must not leak.
  for (uint32_t i = 3; i < 1024; i++) ASSERT_TRUE(Store(i / 256, i % 256, NumberValue(i)));
  ASSERT_EQ(cells()->capacity, 1024u);
  SetAllocationFailureAfter(1);
  EXPECT_EQ(Store(10, 0, NumberValue(1)), 0);
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(cells()->count, 1024u);
  EXPECT_EQ(cells()->capacity, 1024u);
  EXPECT_EQ(CellAt(cells(), 10, 0), nullptr);
}

// Sizes and edges with the sheet's standard flags set, then cleared: rows and columns without a
// record, or with one that says default, take the standard size or the sheet's own default.
TEST_F(CellsTest, RowAndColumnSizesAndEdges) {
  Sheet* s = GetSheet(book, 0);
  s->defaultRowHeight = 300;  // 20 px when the standard flag is clear
  s->defaultColWidth = 3072;  // 84 px likewise
  RowColInfo hidden{RowColHidden, 400, 0}, tall{0, 600, 0}, defaulted{RowColDefault, 900, 0},
      low{0, 300, 0}, narrow{0, 512, 0};
  ASSERT_TRUE(SetRowRecord(&s->rows, 7, &low));  // out of order on purpose
  ASSERT_TRUE(SetRowRecord(&s->rows, 2, &hidden));
  ASSERT_TRUE(SetRowRecord(&s->rows, 3, &tall));       // 40 px
  ASSERT_TRUE(SetRowRecord(&s->rows, 5, &defaulted));  // its size ignored
  ASSERT_TRUE(SetColumnRecord(&s->columns, 4, &defaulted));
  ASSERT_TRUE(SetColumnRecord(&s->columns, 1, &hidden));
  ASSERT_TRUE(SetColumnRecord(&s->columns, 2, &narrow));  // 14 px

  // At 96 dpi a standard row of 255 twips is 17 px; at 7 px a digit a standard column is 56 px.
  // The column's fraction is four times the row's, in 1024ths rather than 256ths.
  const ZoomMetrics metrics{96, 7};
  struct {
    bool standard;
    uint32_t index, fraction, height, width;
    int32_t top, left;
  } cases[] = {
      {true, 0, 64, 255, 2048, 4, 14},      {true, 1, 0, 255, 0, 17, 56},
      {true, 2, 128, 0, 512, 34, 63},       {true, 3, 128, 600, 2048, 54, 98},
      {true, 5, 0, 255, 2048, 91, 182},     {true, 7, 256, 300, 2048, 145, 350},
      {true, 8, 0, 255, 2048, 145, 350},    {true, 255, 0, 255, 2048, 4344, 14182},
      {false, 0, 0, 300, 3072, 0, 0},       {false, 1, 0, 300, 0, 20, 84},
      {false, 3, 0, 600, 3072, 40, 98},     {false, 4, 0, 300, 3072, 80, 182},
      {false, 5, 128, 300, 3072, 110, 308}, {false, 255, 0, 300, 3072, 5100, 21266},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.standard << " " << c.index << "+" << c.fraction);
    const uint32_t standard = SheetStandardWidth | SheetStandardHeight;
    s->flags = c.standard ? (s->flags | standard) : (s->flags & ~standard);
    EXPECT_EQ(RowHeightTwips(book, 0, c.index), c.height);
    EXPECT_EQ(ColumnWidthUnits(book, 0, c.index), c.width);
    EXPECT_EQ(RowTop(book, 0, c.index, c.fraction, &metrics), c.top);
    EXPECT_EQ(ColumnLeft(book, 0, c.index, c.fraction * 4, &metrics), c.left);
  }
  EXPECT_EQ(RowTop(book, 0, 65535, 0, &metrics), 60 + 65532 * 20);

  // A hidden row keeps its size, so showing it again brings the height back.
  RowColInfo info;
  GetRowInfo(&s->rows, 2, &info);
  info.flags &= ~RowColHidden;
  ASSERT_TRUE(SetRowRecord(&s->rows, 2, &info));
  EXPECT_EQ(RowHeightTwips(book, 0, 2), 400u);
  EXPECT_EQ(s->rows.count, 4u);
}

}  // namespace
