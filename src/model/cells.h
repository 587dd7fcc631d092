// The cell store of a sheet: one small record per existing cell (from a pool of large blocks, see
// cell_pool.cpp), reached through one array of pointers sorted by row then column, found by
// binary search. Rows and columns that differ
// from the sheet's defaults have records in two more sorted pointer arrays.
#pragma once
#include <cstdint>

#include "formula/tokens.h"
#include "model/range.h"
#include "model/value.h"

enum CellState : uint8_t {
  CellDirty = 0,        // formula not calculated since a precedent changed
  CellCalculating = 1,  // on the calculation stack: reading it is a circular reference
  CellCalculated = 2,   // value right, display text not made yet
  CellShown = 3,        // value and text both right
};

#pragma pack(push, 2)
struct Precedent {
  int32_t linkIndex;  // -1 for the cell's own sheet
  Range range;
};
#pragma pack(pop)

struct Cell {
  uint16_t row;
  uint8_t col;
  uint16_t xf;
  uint16_t textColor;
  FormulaTokens formula;
  int32_t isVolatile;
  uint32_t precedentCount;
  uint32_t precedentCapacity;
  Precedent* precedents;
  Value value;
  char16_t* text;
  uint8_t state;
};

struct CellArray {
  uint32_t count;
  uint32_t capacity;
  Cell** cells;
};

constexpr uint32_t RowColDefault = 1;
constexpr uint32_t RowColHidden = 2;
constexpr uint32_t RowHeightByHand = 4;

struct RowColInfo {
  uint32_t flags;
  uint16_t size;  // rows: twips; columns: 1/256 of a digit width
  uint16_t xf;
};

struct RowRecord {
  uint16_t row;
  RowColInfo info;
};

struct ColumnRecord {
  uint8_t col;
  RowColInfo info;
};

struct RowArray {
  uint32_t count;
  uint32_t capacity;
  RowRecord** records;
};

struct ColumnArray {
  uint32_t count;
  uint32_t capacity;
  ColumnRecord** records;
};

constexpr uint32_t CellArrayStep = 1024;
constexpr uint32_t RowColArrayStep = 8;
constexpr uint16_t StandardColumnWidth = 2048;  // eight digits
constexpr uint16_t StandardRowHeight = 255;     // twips

// Binary search; returns 1 and the cell's position, or 0 and the position to insert at.
int FindCell(const CellArray* array, uint32_t row, uint32_t col, uint32_t* index);
inline Cell* CellAt(const CellArray* array, uint32_t row, uint32_t col) {
  uint32_t index;
  return FindCell(array, row, col, &index) ? array->cells[index] : nullptr;
}
// Visits the stored cells of a range in row-then-column order, seeking past the cells of a row
// that lie outside the columns, so a narrow range over a wide sheet costs one search per row.
struct CellRangeWalk {
  const CellArray* array;
  Range range;
  uint32_t index;
};
void BeginRangeWalk(CellRangeWalk* walk, const CellArray* array, const Range* range);
Cell* NextCellInRange(CellRangeWalk* walk);

int FindRowRecord(const RowArray* array, uint32_t row, uint32_t* index);
int FindColumnRecord(const ColumnArray* array, uint32_t col, uint32_t* index);
void GetRowInfo(const RowArray* array, uint32_t row, RowColInfo* out);
void GetColumnInfo(const ColumnArray* array, uint32_t col, RowColInfo* out);
int SetRowRecord(RowArray* array, uint32_t row, const RowColInfo* info);
int SetColumnRecord(ColumnArray* array, uint32_t col, const RowColInfo* info);

uint32_t RowHeightTwips(uint32_t book, uint32_t sheet, uint32_t row);
uint32_t ColumnWidthUnits(uint32_t book, uint32_t sheet, uint32_t col);

// The drawing metrics at the current zoom that row and column positions are measured with.
struct ZoomMetrics {
  int32_t dpiY;        // vertical device resolution, zoomed
  int32_t digitWidth;  // width of the default font's "0" in pixels, zoomed
};
// Pixel position of the top edge of `row`, plus `fraction`/256 of its height.
int32_t RowTop(uint32_t book, uint32_t sheet, uint32_t row, uint32_t fraction,
               const ZoomMetrics* metrics);
// Pixel position of the left edge of `col`, plus `fraction`/1024 of its width.
int32_t ColumnLeft(uint32_t book, uint32_t sheet, uint32_t col, uint32_t fraction,
                   const ZoomMetrics* metrics);

// A zeroed cell record from the pool of records, and its return there (null is allowed). Records
// come from large blocks shared by every sheet; nothing else may allocate or free a store's cells.
Cell* AllocateCell();
void ReleaseCell(Cell* cell);
// Makes room for one more cell pointer; the array grows by about half its size, in whole
// multiples of CellArrayStep.
int GrowCellArray(CellArray* array);
// Adds a zeroed cell at the end without searching, for readers that see cells in order.
Cell* AppendCell(CellArray* array, uint32_t row, uint32_t col);
// What StoreCell does beyond storing: mark the cell and its readers for recalculation, and fit
// the row's height to the new content.
enum : int { StoreOnly = 0, StoreAndRecalc = 1 };
enum : int { KeepRowHeight = 0, FitRowHeight = 1 };
// Puts a finished cell in its place; proto's owned pointers pass to the store on success and
// stay with the caller on failure (return 0).
int StoreCell(uint32_t book, uint32_t sheet, const Cell* proto, int recalculate, int fitRow);
void ClearCellContents(Cell* cell);
void DeleteCell(uint32_t book, uint32_t sheet, CellArray* array, uint32_t index);
void ClearCellsInRange(uint32_t book, uint32_t sheet, const Range* range);
void FreeCellArray(CellArray* array);
void FreeRowArray(RowArray* array);
void FreeColumnArray(ColumnArray* array);
