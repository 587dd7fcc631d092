// Tests of range arithmetic: overlaps, cutting a hole out of a list entry, sorting and moving
// with the wrap-around of the 16-bit row and 8-bit column fields.
#include <gtest/gtest.h>

#include <vector>

#include "base/alloc.h"
#include "model/range.h"

// At global scope, where argument-dependent lookup from GoogleTest finds them.
static bool operator==(const Range& a, const Range& b) {
  return EqualRanges(&a, &b);
}

static void PrintTo(const Range& r, std::ostream* out) {
  *out << "rows " << r.firstRow << "-" << r.lastRow << " cols " << int{r.firstCol} << "-"
       << int{r.lastCol};
}

namespace {

using Ranges = std::vector<Range>;

Ranges Items(const RangeList& list) {
  return Ranges(list.ranges, list.ranges + list.count);
}

RangeList ListOf(const Ranges& ranges) {
  RangeList list{};
  for (const Range& r : ranges) EXPECT_TRUE(AppendRange(&list, &r));
  return list;
}

TEST(RangeTest, Intersect) {
  struct {
    Range a, b;
    int overlaps;
    Range out;
  } cases[] = {
      {{0, 5, 0, 3}, {5, 9, 2, 6}, 1, {5, 5, 2, 3}},  // touching on one row
      {{0, 5, 0, 3}, {2, 9, 3, 6}, 1, {2, 5, 3, 3}},  // touching on one column
      {{0, 65535, 0, 255}, {7, 7, 9, 9}, 1, {7, 7, 9, 9}},
      {{0, 4, 0, 3}, {5, 9, 0, 3}, 0, {5, 4, 0, 3}},  // adjacent rows, no overlap
      {{0, 9, 0, 3}, {0, 9, 4, 6}, 0, {0, 9, 4, 3}},
  };
  for (const auto& c : cases) {
    Range out = {1, 1, 1, 1};
    EXPECT_EQ(IntersectRanges(&c.a, &c.b, &out), c.overlaps);
    EXPECT_EQ(out, c.out);
    EXPECT_EQ(IntersectRanges(&c.b, &c.a, &out), c.overlaps);
  }
}

// Left and right strips take the whole height; above and below stay within the hole's columns,
// so that no two pieces overlap. The entry becomes the overlap and the pieces are appended.
// A first try without memory must leave the list as it was.
TEST(RangeTest, SplitRange) {
  struct {
    Range entry, hole;
    Ranges pieces;
    Range overlap;
  } cases[] = {
      {{0, 9, 0, 9},
       {3, 5, 4, 6},
       {{0, 9, 0, 3}, {0, 9, 7, 9}, {0, 2, 4, 6}, {6, 9, 4, 6}},
       {3, 5, 4, 6}},
      {{1, 4, 1, 4}, {0, 2, 0, 2}, {{1, 4, 3, 4}, {3, 4, 1, 2}}, {1, 2, 1, 2}},
      {{0, 65535, 0, 255},
       {65535, 65535, 255, 255},
       {{0, 65535, 0, 254}, {0, 65534, 255, 255}},
       {65535, 65535, 255, 255}},
      {{5, 9, 2, 3}, {0, 100, 0, 50}, {}, {5, 9, 2, 3}},  // the hole covers the entry
      {{2, 4, 2, 4}, {5, 9, 0, 255}, {}, {2, 4, 2, 4}},   // the hole misses the entry
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.hole));
    Range other = {100, 200, 10, 20};
    RangeList list = ListOf({other, c.entry});
    SetAllocationFailureAfter(0);
    EXPECT_EQ(SplitRange(&list, 1, &c.hole), c.pieces.empty() ? 1 : 0);
    SetAllocationFailureAfter(-1);
    EXPECT_EQ(Items(list), (Ranges{other, c.entry}));
    ASSERT_TRUE(SplitRange(&list, 1, &c.hole));
    Ranges expected = {other, c.overlap};
    expected.insert(expected.end(), c.pieces.begin(), c.pieces.end());
    EXPECT_EQ(Items(list), expected);
    FreeRangeList(&list);
  }
}

TEST(RangeTest, SortByFirstRowThenFirstColumn) {
  RangeList list =
      ListOf({{9, 9, 0, 0}, {2, 8, 5, 6}, {2, 3, 1, 1}, {0, 65535, 7, 7}, {9, 9, 3, 4}});
  SortRanges(&list);
  EXPECT_EQ(Items(list),
            (Ranges{{0, 65535, 7, 7}, {2, 3, 1, 1}, {2, 8, 5, 6}, {9, 9, 0, 0}, {9, 9, 3, 4}}));
  FreeRangeList(&list);
}

TEST(RangeTest, MoveRangeWraps) {
  struct {
    Range start;
    int32_t rows, cols;
    Range moved;
  } cases[] = {
      {{10, 20, 5, 6}, 3, -2, {13, 23, 3, 4}},
      {{10, 20, 5, 6}, -11, -6, {65535, 9, 255, 0}},
      {{0, 65535, 0, 255}, 65536, 256, {0, 65535, 0, 255}},
  };
  for (const auto& c : cases) {
    Range r = c.start;
    MoveRange(&r, c.rows, c.cols);
    EXPECT_EQ(r, c.moved);
  }
}

}  // namespace
