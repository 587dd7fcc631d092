// Range arithmetic and range lists.
#include "model/range.h"

#include <algorithm>

#include "base/alloc.h"

int IntersectRanges(const Range* a, const Range* b, Range* out) {
  Range r;
  r.firstRow = std::max(a->firstRow, b->firstRow);
  r.lastRow = std::min(a->lastRow, b->lastRow);
  r.firstCol = std::max(a->firstCol, b->firstCol);
  r.lastCol = std::min(a->lastCol, b->lastCol);
  *out = r;
  return r.firstRow <= r.lastRow && r.firstCol <= r.lastCol;
}

void MoveRange(Range* r, int32_t rowDelta, int32_t colDelta) {
  r->firstRow = static_cast<uint16_t>(r->firstRow + rowDelta);
  r->lastRow = static_cast<uint16_t>(r->lastRow + rowDelta);
  r->firstCol = static_cast<uint8_t>(r->firstCol + colDelta);
  r->lastCol = static_cast<uint8_t>(r->lastCol + colDelta);
}

int AppendRange(RangeList* list, const Range* r) {
  uint32_t capacity = list->count;
  if (!GrowArray(&list->ranges, &capacity, list->count + 1, 1)) return 0;
  list->ranges[list->count++] = *r;
  return 1;
}

void FreeRangeList(RangeList* list) {
  Release(list->ranges);
  *list = RangeList{};
}

int SplitRange(RangeList* list, uint32_t index, const Range* hole) {
  Range entry = list->ranges[index];
  Range overlap;
  if (!IntersectRanges(&entry, hole, &overlap)) return 1;
  Range pieces[4];
  int count = 0;
  if (entry.firstCol < overlap.firstCol)
    pieces[count++] = Range{entry.firstRow, entry.lastRow, entry.firstCol,
                            static_cast<uint8_t>(overlap.firstCol - 1)};
  if (entry.lastCol > overlap.lastCol)
    pieces[count++] = Range{entry.firstRow, entry.lastRow,
                            static_cast<uint8_t>(overlap.lastCol + 1), entry.lastCol};
  if (entry.firstRow < overlap.firstRow)
    pieces[count++] = Range{entry.firstRow, static_cast<uint16_t>(overlap.firstRow - 1),
                            overlap.firstCol, overlap.lastCol};
  if (entry.lastRow > overlap.lastRow)
    pieces[count++] = Range{static_cast<uint16_t>(overlap.lastRow + 1), entry.lastRow,
                            overlap.firstCol, overlap.lastCol};
  uint32_t capacity = list->count;
  if (!GrowArray(&list->ranges, &capacity, list->count + count, 1)) return 0;
  for (int i = 0; i < count; i++) list->ranges[list->count++] = pieces[i];
  list->ranges[index] = overlap;
  return 1;
}

void SortRanges(RangeList* list) {
  std::stable_sort(list->ranges, list->ranges + list->count, [](const Range& a, const Range& b) {
    return a.firstRow != b.firstRow ? a.firstRow < b.firstRow : a.firstCol < b.firstCol;
  });
}
