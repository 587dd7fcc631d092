// Tests of the cell store: the sorted pointer array and its binary search, storing over and
// deleting cells, range walks and range clearing, row and column geometry, and lost memory.
#include <gtest/gtest.h>

#include <random>
#include <set>
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
  Sheet* sheet() { return GetSheet(book, 0); }
  int Store(uint32_t row, uint32_t col, Value value, int fitRow = 0) {
    Cell proto{};
    proto.row = static_cast<uint16_t>(row);
    proto.col = static_cast<uint8_t>(col);
    proto.value = value;
    return StoreCell(book, 0, &proto, 0, fitRow);
  }
  std::vector<Position> Positions() {
    std::vector<Position> out;
    for (uint32_t i = 0; i < sheet()->cells.count; i++)
      out.push_back({sheet()->cells.cells[i]->row, sheet()->cells.cells[i]->col});
    return out;
  }
};
struct CellsGeometryTest : CellsTest {};

TEST_F(CellsTest, EmptyArrayThenFirstInsertGrowsByOneStep) {
  uint32_t index = 99;
  EXPECT_EQ(FindCell(&sheet()->cells, 0, 0, &index), 0);
  EXPECT_EQ(index, 0u);
  EXPECT_EQ(FindCell(&sheet()->cells, 65535, 255, &index), 0);
  EXPECT_EQ(index, 0u);

  ASSERT_TRUE(Store(7, 3, NumberValue(1)));
  EXPECT_EQ(sheet()->cells.count, 1u);
  EXPECT_EQ(sheet()->cells.capacity, 1024u);
}

TEST_F(CellsTest, BinarySearchAtTheEdges) {
  for (Position p : {Position{2, 3}, {2, 200}, {40000, 0}, {65535, 254}})
    ASSERT_TRUE(Store(p.first, p.second, NumberValue(p.first * 256.0 + p.second)));
  struct {
    uint32_t row, col;
    int found;
    uint32_t index;
  } cases[] = {
      {0, 0, 0, 0}, {2, 2, 0, 0},     {2, 3, 1, 0},       {2, 4, 0, 1},       {2, 255, 0, 2},
      {3, 0, 0, 2}, {40000, 0, 1, 2}, {65535, 254, 1, 3}, {65535, 255, 0, 4}, {65535, 0, 0, 3},
  };
  for (const auto& c : cases) {
    uint32_t index = 99;
    EXPECT_EQ(FindCell(&sheet()->cells, c.row, c.col, &index), c.found) << c.row << "," << c.col;
    EXPECT_EQ(index, c.index) << c.row << "," << c.col;
  }

  // The very first and very last cell of a sheet can be stored and found.
  ASSERT_TRUE(Store(0, 0, NumberValue(-1)));
  ASSERT_TRUE(Store(65535, 255, NumberValue(-2)));
  EXPECT_EQ(sheet()->cells.cells[0]->value.number, -1);
  const Cell* last = CellAt(&sheet()->cells, 65535, 255);
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(last, sheet()->cells.cells[sheet()->cells.count - 1]);
  EXPECT_EQ(last->value.number, -2);
}

TEST_F(CellsTest, RandomInsertionKeepsRowThenColumnOrder) {
  std::mt19937 random(20240611);
  std::set<Position> expected;
  for (int i = 0; i < 5000; i++) {
    // A narrow row span forces repeats, which must reuse the stored cell.
    uint32_t row = random() % 3000, col = random() % 256;
    ASSERT_TRUE(Store(row, col, NumberValue(row * 256.0 + col)));
    expected.insert({row, col});
  }
  EXPECT_EQ(Positions(), std::vector<Position>(expected.begin(), expected.end()));
  EXPECT_EQ(sheet()->cells.capacity % 1024, 0u);
  for (Position p : expected) {
    const Cell* c = CellAt(&sheet()->cells, p.first, p.second);
    ASSERT_NE(c, nullptr);
    EXPECT_EQ(c->value.number, p.first * 256.0 + p.second);
  }
}

TEST_F(CellsTest, StoringOverACellReusesItAndDropsItsComment) {
  ASSERT_TRUE(Store(4, 1, NumberValue(1)));
  ASSERT_TRUE(Store(4, 2, TextValue(TextDuplicate(u"old"))));
  ASSERT_TRUE(Store(4, 3, NumberValue(3)));
  uint32_t index = 0;
  ASSERT_TRUE(FindCell(&sheet()->cells, 4, 2, &index));
  Cell* before = sheet()->cells.cells[index];
  before->xf = 21;  // a proto replaces the whole record, format included

  Sheet* s = sheet();
  s->comments = static_cast<CellComment*>(Allocate(2 * sizeof(CellComment)));
  s->comments[0] = {4, 2, TextDuplicate(u"on the cell")};
  s->comments[1] = {4, 3, TextDuplicate(u"next door")};
  s->commentCount = 2;

  Cell proto{};
  proto.row = 4;
  proto.col = 2;
  proto.xf = 15;
  proto.value = TextValue(TextDuplicate(u"new"));
  ASSERT_TRUE(StoreCell(book, 0, &proto, 1, 0));

  EXPECT_EQ(sheet()->cells.count, 3u);
  EXPECT_EQ(sheet()->cells.cells[index], before);
  EXPECT_EQ(before->xf, 15);
  EXPECT_EQ(TextToUtf8(before->value.text), "new");
  ASSERT_EQ(s->commentCount, 1u);
  EXPECT_EQ(s->comments[0].col, 3);
}

TEST_F(CellsTest, StateAfterStoringFollowsTheValue) {
  struct {
    Value value;
    uint8_t state;
  } cases[] = {
      {NumberValue(2.5), CellCalculated},
      {TextValue(TextDuplicate(u"x")), CellCalculated},
      {BooleanValue(true), CellCalculated},
      {ErrorValue(ErrNA), CellCalculated},
      {Value{}, CellShown},
  };
  uint32_t col = 0;
  for (const auto& c : cases) {
    Cell proto{};
    proto.col = static_cast<uint8_t>(col);
    proto.value = c.value;
    proto.state = CellCalculating;  // whatever the proto says, storing decides
    ASSERT_TRUE(StoreCell(book, 0, &proto, 0, 0));
    EXPECT_EQ(CellAt(&sheet()->cells, 0, col)->state, c.state) << col;
    col++;
  }
}

TEST_F(CellsTest, ClearCellContentsKeepsPositionAndFormat) {
  ASSERT_TRUE(Store(9, 4, TextValue(TextDuplicate(u"value"))));
  Cell* c = CellAt(&sheet()->cells, 9, 4);
  c->xf = 22;
  c->text = TextDuplicate(u"shown");
  c->precedents = static_cast<Precedent*>(Allocate(2 * sizeof(Precedent)));
  c->precedentCount = 1;
  c->precedentCapacity = 2;
  ClearCellContents(c);
  EXPECT_EQ(Position(c->row, c->col), Position(9, 4));
  EXPECT_EQ(c->xf, 22);
  EXPECT_EQ(c->value.tag, ValueEmpty);
  EXPECT_TRUE(!c->text && !c->formula.bytes && !c->precedents);
  EXPECT_EQ(c->precedentCount + c->precedentCapacity, 0u);
}

TEST_F(CellsTest, DeleteCellClosesTheGap) {
  for (uint32_t col = 0; col < 5; col++) ASSERT_TRUE(Store(1, col, NumberValue(col)));
  DeleteCell(book, 0, &sheet()->cells, 2);
  EXPECT_EQ(Positions(), (std::vector<Position>{{1, 0}, {1, 1}, {1, 3}, {1, 4}}));
  DeleteCell(book, 0, &sheet()->cells, 3);
  EXPECT_EQ(Positions(), (std::vector<Position>{{1, 0}, {1, 1}, {1, 3}}));
}

TEST_F(CellsTest, ClearingWholeColumnsRemovesOnlyThoseColumns) {
  for (uint32_t row : {0u, 7u, 65535u})
    for (uint32_t col = 0; col < 5; col++) ASSERT_TRUE(Store(row, col, NumberValue(col)));
  Range columnsBC = {0, 65535, 1, 2};
  ClearCellsInRange(book, 0, &columnsBC);
  EXPECT_EQ(
      Positions(),
      (std::vector<Position>{
          {0, 0}, {0, 3}, {0, 4}, {7, 0}, {7, 3}, {7, 4}, {65535, 0}, {65535, 3}, {65535, 4}}));
}

TEST_F(CellsTest, RangeWalkVisitsExactlyTheCellsOfTheRange) {
  // A full-width sheet with holes, so that seeking past the columns outside the range matters.
  for (uint32_t row = 0; row < 80; row++) {
    for (uint32_t col = 0; col < 256; col++) {
      if ((row * 7 + col) % 3) {
        ASSERT_TRUE(Store(row, col, NumberValue(0)));
      }
    }
  }
  for (uint32_t col : {0u, 254u, 255u}) ASSERT_TRUE(Store(65535, col, NumberValue(0)));

  Range ranges[] = {{10, 60, 100, 102},
                    {0, 65535, 255, 255},
                    {79, 65535, 254, 255},
                    {80, 65534, 0, 255},
                    {5, 5, 0, 0}};
  for (const Range& r : ranges) {
    std::vector<Position> expected, seen;
    for (Position p : Positions())
      if (RangeContains(&r, p.first, p.second)) expected.push_back(p);
    CellRangeWalk walk;
    BeginRangeWalk(&walk, &sheet()->cells, &r);
    while (Cell* c = NextCellInRange(&walk)) seen.push_back({c->row, c->col});
    EXPECT_EQ(seen, expected) << r.firstRow << ":" << r.lastRow << " " << int{r.firstCol};
  }
}

TEST_F(CellsTest, LostMemoryLeavesTheSheetAsItWas) {
  for (uint32_t col = 0; col < 3; col++) ASSERT_TRUE(Store(0, col, NumberValue(col)));
  std::vector<Position> before = Positions();
  Cell* first = sheet()->cells.cells[0];

  // A new cell needs its record; storing over an existing one needs nothing.
  char16_t* owned = TextDuplicate(u"kept by the caller");
  Cell proto{};
  proto.row = 0;
  proto.col = 200;
  proto.value = TextValue(owned);
  SetAllocationFailureAfter(0);
  EXPECT_EQ(StoreCell(book, 0, &proto, 1, 1), 0);
  proto.col = 1;
  proto.value = NumberValue(5);
  EXPECT_EQ(StoreCell(book, 0, &proto, 1, 1), 1);
  SetAllocationFailureAfter(-1);
  Release(owned);
  EXPECT_EQ(Positions(), before);
  EXPECT_EQ(sheet()->cells.cells[0], first);

  // A full array whose growth fails: the record allocated first must not leak.
  for (uint32_t i = 3; i < 1024; i++) ASSERT_TRUE(Store(i / 256, i % 256, NumberValue(i)));
  ASSERT_EQ(sheet()->cells.capacity, 1024u);
  SetAllocationFailureAfter(1);
  EXPECT_EQ(Store(10, 0, NumberValue(1)), 0);
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(sheet()->cells.count, 1024u);
  EXPECT_EQ(sheet()->cells.capacity, 1024u);
  EXPECT_EQ(CellAt(&sheet()->cells, 10, 0), nullptr);
}

// Sizes with the sheet's standard flags cleared, then set: default rows and columns follow the
// sheet's own default only while its flag is clear.
TEST_F(CellsGeometryTest, RowHeightsAndColumnWidths) {
  Sheet* s = sheet();
  s->defaultRowHeight = 300;
  s->defaultColWidth = 2500;
  RowColInfo rows[] = {{RowColDefault, 600, 0}, {RowColHidden, 400, 0}, {0, 500, 0}};
  RowColInfo cols[] = {{RowColDefault, 4000, 0}, {RowColHidden, 1000, 0}, {0, 512, 0}};
  for (uint32_t i = 0; i < 3; i++) {
    ASSERT_TRUE(SetRowRecord(&s->rows, i + 1, &rows[i]));
    ASSERT_TRUE(SetColumnRecord(&s->columns, i + 1, &cols[i]));
  }
  struct {
    bool standard;
    uint32_t index, height, width;
  } cases[] = {
      {false, 0, 300, 2500}, {false, 1, 300, 2500},   {false, 2, 0, 0},
      {false, 3, 500, 512},  {false, 255, 300, 2500}, {true, 0, 255, 2048},
      {true, 1, 255, 2048},  {true, 2, 0, 0},         {true, 3, 500, 512},
  };
  for (const auto& c : cases) {
    const uint32_t standard = SheetStandardWidth | SheetStandardHeight;
    s->flags = c.standard ? (s->flags | standard) : (s->flags & ~standard);
    EXPECT_EQ(RowHeightTwips(book, 0, c.index), c.height) << c.standard << " " << c.index;
    EXPECT_EQ(ColumnWidthUnits(book, 0, c.index), c.width) << c.standard << " " << c.index;
  }

  // A hidden row keeps its size, so showing it again brings the height back.
  RowColInfo info;
  GetRowInfo(&s->rows, 2, &info);
  EXPECT_EQ(info.size, 400);
  info.flags &= ~RowColHidden;
  ASSERT_TRUE(SetRowRecord(&s->rows, 2, &info));
  EXPECT_EQ(RowHeightTwips(book, 0, 2), 400u);
  EXPECT_EQ(s->rows.count, 3u);
}

TEST_F(CellsGeometryTest, RowTopAndColumnLeftInPixels) {
  Sheet* s = sheet();
  // At 96 dpi a standard row of 255 twips is 17 px; at 7 px a digit a standard column is 56 px.
  const ZoomMetrics metrics = {96, 7};
  RowColInfo hidden = {RowColHidden, 400, 0}, tall = {0, 600, 0},
             defaulted = {RowColDefault, 900, 0}, low = {0, 300, 0};
  ASSERT_TRUE(SetRowRecord(&s->rows, 7, &low));  // out of order on purpose
  ASSERT_TRUE(SetRowRecord(&s->rows, 2, &hidden));
  ASSERT_TRUE(SetRowRecord(&s->rows, 3, &tall));       // 40 px
  ASSERT_TRUE(SetRowRecord(&s->rows, 5, &defaulted));  // 17 px, its size ignored
  RowColInfo narrow = {0, 512, 0};                     // 14 px
  ASSERT_TRUE(SetColumnRecord(&s->columns, 1, &hidden));
  ASSERT_TRUE(SetColumnRecord(&s->columns, 2, &narrow));
  ASSERT_TRUE(SetColumnRecord(&s->columns, 4, &defaulted));

  struct {
    uint32_t row, fraction;
    int32_t top;
  } rowCases[] = {
      {0, 0, 0},    {2, 0, 34},   {3, 0, 34},  {4, 0, 74},     {5, 0, 91},
      {6, 0, 108},  {7, 0, 125},  {8, 0, 145}, {100, 0, 1709}, {65535, 0, 1114104},
      {3, 128, 54}, {2, 128, 34}, {0, 64, 4},  {7, 256, 145},
  };
  for (const auto& c : rowCases)
    EXPECT_EQ(RowTop(book, 0, c.row, c.fraction, &metrics), c.top) << c.row << "+" << c.fraction;

  struct {
    uint32_t col, fraction;
    int32_t left;
  } colCases[] = {
      {0, 0, 0},   {1, 0, 56},      {2, 0, 56},   {3, 0, 70},    {4, 0, 126},
      {5, 0, 182}, {255, 0, 14182}, {2, 512, 63}, {0, 1024, 56}, {1, 512, 56},
  };
  for (const auto& c : colCases)
    EXPECT_EQ(ColumnLeft(book, 0, c.col, c.fraction, &metrics), c.left)
        << c.col << "+" << c.fraction;

  // With the standard flags cleared the sheet's own defaults apply: 300 twips is 20 px, 3072
  // units (twelve digits) 84 px.
  s->flags &= ~(SheetStandardHeight | SheetStandardWidth);
  s->defaultRowHeight = 300;
  s->defaultColWidth = 3072;
  EXPECT_EQ(RowTop(book, 0, 2, 0, &metrics), 40);
  EXPECT_EQ(RowTop(book, 0, 6, 0, &metrics), 40 + 40 + 20 + 20);
  EXPECT_EQ(ColumnLeft(book, 0, 3, 0, &metrics), 84 + 14);
  EXPECT_EQ(ColumnLeft(book, 0, 5, 512, &metrics), 84 + 14 + 84 + 84 + 42);
}

}  // namespace
