// The cell store: binary search over the sorted pointer arrays of cells, rows and columns;
// storing, clearing and deleting cells; row and column geometry.
#include "model/cells.h"

#include <cstring>

#include "base/alloc.h"
#include "base/check.h"
#include "base/muldiv.h"
#include "model/hooks.h"
#include "model/workbook.h"

// Signed bounds, so that an empty array and a miss before index 0 cannot wrap.
int FindCell(const CellArray* array, uint32_t row, uint32_t col, uint32_t* index) {
  int64_t low = 0, high = static_cast<int64_t>(array->count) - 1;
  while (low <= high) {
    int64_t mid = (low + high) / 2;
    const Cell* c = array->cells[mid];
    int64_t order =
        c->row != row ? static_cast<int64_t>(c->row) - row : static_cast<int64_t>(c->col) - col;
    if (order == 0) {
      *index = static_cast<uint32_t>(mid);
      return 1;
    }
    if (order < 0)
      low = mid + 1;
    else
      high = mid - 1;
  }
  *index = static_cast<uint32_t>(low);
  return 0;
}

void BeginRangeWalk(CellRangeWalk* walk, const CellArray* array, const Range* range) {
  walk->array = array;
  walk->range = *range;
  FindCell(array, range->firstRow, range->firstCol, &walk->index);
}

Cell* NextCellInRange(CellRangeWalk* walk) {
  const Range& r = walk->range;
  while (walk->index < walk->array->count) {
    Cell* c = walk->array->cells[walk->index];
    if (c->row > r.lastRow) return nullptr;
    if (c->col < r.firstCol) {
      FindCell(walk->array, c->row, r.firstCol, &walk->index);
    } else if (c->col > r.lastCol) {
      if (c->row == MaxRow) return nullptr;
      FindCell(walk->array, c->row + 1u, r.firstCol, &walk->index);
    } else {
      walk->index++;
      return c;
    }
  }
  return nullptr;
}

template <typename Record, typename Key>
static int FindRecord(Record* const* records, uint32_t count, Key Record::*key, uint32_t value,
                      uint32_t* index) {
  int64_t low = 0, high = static_cast<int64_t>(count) - 1;
  while (low <= high) {
    int64_t mid = (low + high) / 2;
    uint32_t k = records[mid]->*key;
    if (k == value) {
      *index = static_cast<uint32_t>(mid);
      return 1;
    }
    if (k < value)
      low = mid + 1;
    else
      high = mid - 1;
  }
  *index = static_cast<uint32_t>(low);
  return 0;
}

int FindRowRecord(const RowArray* array, uint32_t row, uint32_t* index) {
  return FindRecord(array->records, array->count, &RowRecord::row, row, index);
}

int FindColumnRecord(const ColumnArray* array, uint32_t col, uint32_t* index) {
  return FindRecord(array->records, array->count, &ColumnRecord::col, col, index);
}

static const RowColInfo defaultRowInfo = {RowColDefault, 0, 0};
static const RowColInfo defaultColumnInfo = {RowColDefault, 0, DefaultCellXf};

void GetRowInfo(const RowArray* array, uint32_t row, RowColInfo* out) {
  uint32_t index;
  *out = FindRowRecord(array, row, &index) ? array->records[index]->info : defaultRowInfo;
}

void GetColumnInfo(const ColumnArray* array, uint32_t col, RowColInfo* out) {
  uint32_t index;
  *out = FindColumnRecord(array, col, &index) ? array->records[index]->info : defaultColumnInfo;
}

// Inserts `record` into a sorted pointer array at `index`. The array doubles, so that a file with
// a record for each of 65,536 rows does not copy the array thousands of times while it loads.
template <typename Record>
static int InsertRecordAt(Record*** records, uint32_t* count, uint32_t* capacity, uint32_t index,
                          Record* record) {
  if (!GrowArrayByDoubling(records, capacity, *count + 1, RowColArrayStep)) return 0;
  std::memmove(*records + index + 1, *records + index, (*count - index) * sizeof(Record*));
  (*records)[index] = record;
  (*count)++;
  return 1;
}

int SetRowRecord(RowArray* array, uint32_t row, const RowColInfo* info) {
  uint32_t index;
  if (FindRowRecord(array, row, &index)) {
    array->records[index]->info = *info;
    return 1;
  }
  RowRecord* record = static_cast<RowRecord*>(Allocate(sizeof(RowRecord)));
  if (!record) return 0;
  record->row = static_cast<uint16_t>(row);
  record->info = *info;
  if (InsertRecordAt(&array->records, &array->count, &array->capacity, index, record)) return 1;
  Release(record);
  return 0;
}

int SetColumnRecord(ColumnArray* array, uint32_t col, const RowColInfo* info) {
  uint32_t index;
  if (FindColumnRecord(array, col, &index)) {
    array->records[index]->info = *info;
    return 1;
  }
  ColumnRecord* record = static_cast<ColumnRecord*>(Allocate(sizeof(ColumnRecord)));
  if (!record) return 0;
  record->col = static_cast<uint8_t>(col);
  record->info = *info;
  if (InsertRecordAt(&array->records, &array->count, &array->capacity, index, record)) return 1;
  Release(record);
  return 0;
}

static uint32_t DefaultRowHeight(const Sheet* s) {
  return (s->flags & SheetStandardHeight) ? StandardRowHeight : s->defaultRowHeight;
}

static uint32_t DefaultColumnWidth(const Sheet* s) {
  return (s->flags & SheetStandardWidth) ? StandardColumnWidth : s->defaultColWidth;
}

static uint32_t SizeOf(const RowColInfo& info, uint32_t defaultSize) {
  if (info.flags & RowColHidden) return 0;
  if (info.flags & RowColDefault) return defaultSize;
  return info.size;
}

uint32_t RowHeightTwips(uint32_t book, uint32_t sheet, uint32_t row) {
  const Sheet* s = GetSheet(book, sheet);
  RowColInfo info;
  GetRowInfo(&s->rows, row, &info);
  return SizeOf(info, DefaultRowHeight(s));
}

uint32_t ColumnWidthUnits(uint32_t book, uint32_t sheet, uint32_t col) {
  const Sheet* s = GetSheet(book, sheet);
  RowColInfo info;
  GetColumnInfo(&s->columns, col, &info);
  return SizeOf(info, DefaultColumnWidth(s));
}

static int32_t TwipsToPixels(uint32_t twips, const ZoomMetrics* m) {
  return MulDivRound(static_cast<int32_t>(twips), m->dpiY, 1440);
}

static int32_t UnitsToPixels(uint32_t units, const ZoomMetrics* m) {
  return MulDivRound(m->digitWidth, static_cast<int32_t>(units), 256);
}

// Sums the records before `target`: hidden ones add nothing, sized ones their size; both are
// counted, so the rows or columns without a record make up the rest at the default size.
template <typename Record, typename Key>
static int64_t EdgeBefore(Record* const* records, uint32_t count, Key Record::*key, uint32_t target,
                          int32_t defaultPixels, int32_t (*toPixels)(uint32_t, const ZoomMetrics*),
                          const ZoomMetrics* m) {
  int64_t sum = 0;
  uint32_t counted = 0;
  for (uint32_t i = 0; i < count && static_cast<uint32_t>(records[i]->*key) < target; i++) {
    const RowColInfo& info = records[i]->info;
    if (info.flags & RowColHidden) {
      counted++;
    } else if (!(info.flags & RowColDefault)) {
      sum += toPixels(info.size, m);
      counted++;
    }
  }
  return sum + static_cast<int64_t>(target - counted) * defaultPixels;
}

int32_t RowTop(uint32_t book, uint32_t sheet, uint32_t row, uint32_t fraction,
               const ZoomMetrics* metrics) {
  const Sheet* s = GetSheet(book, sheet);
  int32_t defaultPixels = TwipsToPixels(DefaultRowHeight(s), metrics);
  int64_t top = EdgeBefore(s->rows.records, s->rows.count, &RowRecord::row, row, defaultPixels,
                           TwipsToPixels, metrics);
  if (fraction)
    top += MulDivRound(TwipsToPixels(RowHeightTwips(book, sheet, row), metrics),
                       static_cast<int32_t>(fraction), 256);
  return static_cast<int32_t>(top);
}

int32_t ColumnLeft(uint32_t book, uint32_t sheet, uint32_t col, uint32_t fraction,
                   const ZoomMetrics* metrics) {
  const Sheet* s = GetSheet(book, sheet);
  int32_t defaultPixels = UnitsToPixels(DefaultColumnWidth(s), metrics);
  int64_t left = EdgeBefore(s->columns.records, s->columns.count, &ColumnRecord::col, col,
                            defaultPixels, UnitsToPixels, metrics);
  if (fraction)
    left += MulDivRound(UnitsToPixels(ColumnWidthUnits(book, sheet, col), metrics),
                        static_cast<int32_t>(fraction), 1024);
  return static_cast<int32_t>(left);
}

// The pointer array of a big sheet lives in large blocks (see AllocateLarge), a smaller one on
// the heap; the capacity tells which.
static bool LargeCellArray(uint32_t capacity) {
  return static_cast<uint64_t>(capacity) * sizeof(Cell*) >= LargeBlockSize;
}

static void ReleaseCellArray(CellArray* array) {
  if (LargeCellArray(array->capacity))
    ReleaseLarge(array->cells, static_cast<size_t>(array->capacity) * sizeof(Cell*));
  else
    Release(array->cells);
}

// The array grows by about half its size, in whole steps, so that appending a sheet's cells one by
// one copies the array a few dozen times rather than once per step.
int GrowCellArray(CellArray* array) {
  if (array->count < array->capacity) return 1;
  uint32_t step = array->capacity / 2 / CellArrayStep * CellArrayStep;
  if (step < CellArrayStep) step = CellArrayStep;
  uint64_t wanted = static_cast<uint64_t>(array->capacity) + step;
  if (!LargeCellArray(static_cast<uint32_t>(wanted)))
    return GrowArray(&array->cells, &array->capacity, array->count + 1, step);
  // Whole large blocks, every byte of them used.
  uint64_t bytes = (wanted * sizeof(Cell*) + LargeBlockSize - 1) / LargeBlockSize * LargeBlockSize;
  if (bytes / sizeof(Cell*) > UINT32_MAX) return 0;
  auto* grown = static_cast<Cell**>(AllocateLarge(static_cast<size_t>(bytes)));
  if (!grown) return 0;
  if (array->count) std::memcpy(grown, array->cells, array->count * sizeof(Cell*));
  ReleaseCellArray(array);
  array->cells = grown;
  array->capacity = static_cast<uint32_t>(bytes / sizeof(Cell*));
  return 1;
}

Cell* AppendCell(CellArray* array, uint32_t row, uint32_t col) {
  if (!GrowCellArray(array)) return nullptr;
  Cell* cell = AllocateCell();
  if (!cell) return nullptr;
  cell->row = static_cast<uint16_t>(row);
  cell->col = static_cast<uint8_t>(col);
  array->cells[array->count++] = cell;
  return cell;
}

void ClearCellContents(Cell* cell) {
  FreeValue(&cell->value);
  cell->value = Value{};
  Release(cell->text);
  cell->text = nullptr;
  FreeTokens(&cell->formula);
  Release(cell->precedents);
  cell->precedents = nullptr;
  cell->precedentCount = 0;
  cell->precedentCapacity = 0;
  cell->isVolatile = 0;
}

static void RemoveComment(Sheet* s, uint32_t row, uint32_t col) {
  for (uint32_t i = 0; i < s->commentCount; i++) {
    if (s->comments[i].row != row || s->comments[i].col != col) continue;
    Release(s->comments[i].text);
    std::memmove(&s->comments[i], &s->comments[i + 1],
                 (s->commentCount - i - 1) * sizeof(CellComment));
    s->commentCount--;
    return;
  }
}

int StoreCell(uint32_t book, uint32_t sheet, const Cell* proto, int recalculate, int fitRow) {
  Sheet* s = GetSheet(book, sheet);
  CellArray* array = &s->cells;
  uint32_t index;
  Cell* cell;
  if (FindCell(array, proto->row, proto->col, &index)) {
    cell = array->cells[index];
    ClearCellContents(cell);
    cell->state = CellDirty;
    RemoveComment(s, proto->row, proto->col);
  } else {
    // The record is allocated before the slot is opened, so a failure leaves the array as it was.
    cell = AllocateCell();
    if (!cell) return 0;
    if (!GrowCellArray(array)) {
      ReleaseCell(cell);
      return 0;
    }
    std::memmove(&array->cells[index + 1], &array->cells[index],
                 (array->count - index) * sizeof(Cell*));
    array->cells[index] = cell;
    array->count++;
  }
  *cell = *proto;
  bool worksheet = s->kind == SheetWorksheet;
  if (cell->formula.bytes) {
    cell->state = CellDirty;
    if (worksheet) BuildPrecedents(book, sheet, cell);
    CalculateCell(book, sheet, cell);
  } else {
    cell->state = cell->value.tag == ValueEmpty ? CellShown : CellCalculated;
  }
  if (worksheet) {
    UpdateLinkedControls(book, sheet, cell->row, cell->col);
    if (fitRow) {
      RowColInfo info;
      GetRowInfo(&s->rows, cell->row, &info);
      if (!(info.flags & RowHeightByHand)) FitRowToContents(book, sheet, cell->row);
    }
  }
  if (recalculate && worksheet) {
    // Calculation and fitting delete no cells, so the record is still the one in the store; it is
    // looked up again so that a release build could never mark a freed record.
    Cell* stored = CellAt(&GetSheet(book, sheet)->cells, proto->row, proto->col);
    DEBUG_ASSERT(stored == cell);
    if (stored) MarkDependents(book, sheet, stored, 0);
  }
  return 1;
}

static void FreeCell(Cell* cell) {
  ClearCellContents(cell);
  ReleaseCell(cell);
}

void DeleteCell(uint32_t book, uint32_t sheet, CellArray* array, uint32_t index) {
  Cell* cell = array->cells[index];
  if (GetSheet(book, sheet)->kind == SheetWorksheet) MarkDependents(book, sheet, cell, 0);
  FreeCell(cell);
  std::memmove(&array->cells[index], &array->cells[index + 1],
               (array->count - index - 1) * sizeof(Cell*));
  array->count--;
}

void ClearCellsInRange(uint32_t book, uint32_t sheet, const Range* range) {
  CellArray* array = &GetSheet(book, sheet)->cells;
  uint32_t index;
  FindCell(array, range->firstRow, range->firstCol, &index);
  while (index < array->count) {
    Cell* c = array->cells[index];
    if (c->row > range->lastRow) break;
    if (c->col >= range->firstCol && c->col <= range->lastCol)
      DeleteCell(book, sheet, array, index);
    else
      index++;
  }
}

void FreeCellArray(CellArray* array) {
  for (uint32_t i = 0; i < array->count; i++) FreeCell(array->cells[i]);
  ReleaseCellArray(array);
  *array = CellArray{};
}

void FreeRowArray(RowArray* array) {
  for (uint32_t i = 0; i < array->count; i++) Release(array->records[i]);
  Release(array->records);
  *array = RowArray{};
}

void FreeColumnArray(ColumnArray* array) {
  for (uint32_t i = 0; i < array->count; i++) Release(array->records[i]);
  Release(array->records);
  *array = ColumnArray{};
}
