// Plain sheet geometry: a rectangle of cells and a list of rectangles, with the few operations
// the model needs. Both ends of a range are inclusive. Rows run 0..65535 and columns 0..255, so a
// range from row 0 to 65535 means whole columns and one from column 0 to 255 whole rows.
#pragma once
#include <cstdint>

constexpr uint32_t MaxRow = 65535;
constexpr uint32_t MaxCol = 255;

#pragma pack(push, 1)
struct Range {
  uint16_t firstRow;
  uint16_t lastRow;
  uint8_t firstCol;
  uint8_t lastCol;
};
#pragma pack(pop)
static_assert(sizeof(Range) == 6, "Range is stored packed in values, blocks and files");

struct RangeList {
  uint32_t count;
  Range* ranges;  // owned, grown one at a time
};

// Writes the overlap of a and b to out (always written); returns 0 when they do not overlap.
int IntersectRanges(const Range* a, const Range* b, Range* out);
inline bool RangeContains(const Range* r, uint32_t row, uint32_t col) {
  return row >= r->firstRow && row <= r->lastRow && col >= r->firstCol && col <= r->lastCol;
}
inline bool EqualRanges(const Range* a, const Range* b) {
  return a->firstRow == b->firstRow && a->lastRow == b->lastRow && a->firstCol == b->firstCol &&
         a->lastCol == b->lastCol;
}
// Adds the deltas to both corners; rows wrap at 16 bits and columns at 8, as the fields do.
void MoveRange(Range* r, int32_t rowDelta, int32_t colDelta);

int AppendRange(RangeList* list, const Range* r);
void FreeRangeList(RangeList* list);
// Removes `hole` from entry `index`, appending the pieces outside it in the order: left strip
// (whole height), right strip, then above and below within the remaining columns. The entry
// itself becomes the overlap, for the caller to drop. Returns 0 on exhausted memory.
int SplitRange(RangeList* list, uint32_t index, const Range* hole);
// Sorts by firstRow, then firstCol.
void SortRanges(RangeList* list);
