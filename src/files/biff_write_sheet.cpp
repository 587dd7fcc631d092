// The substream of a worksheet or macro sheet: calculation and print settings (fresh defaults,
// since the model keeps none), the default sizes and column records, the dimensions, the cells in
// blocks of 32 rows (biff_write_cells.cpp), Excel 95 notes, the window with its frozen panes and
// selection, merged areas (BIFF8) and the zoom. The INDEX record is patched with the position of
// each block's DBCELL once the blocks are written.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/biff_internal.h"
#include "files/biff_write_internal.h"
#include "model/workbook.h"

// The area of the cells written; false when there are none.
static bool UsedArea(const BiffWriter* w, const Sheet* s, uint32_t* firstRow, uint32_t* lastRow,
                     uint32_t* firstCol, uint32_t* lastCol) {
  *firstRow = *firstCol = UINT32_MAX;
  *lastRow = *lastCol = 0;
  for (uint32_t i = 0; i < w->cellCount; i++) {
    const Cell* c = s->cells.cells[i];
    if (c->row < *firstRow) *firstRow = c->row;
    if (c->row > *lastRow) *lastRow = c->row;
    if (c->col < *firstCol) *firstCol = c->col;
    if (c->col > *lastCol) *lastCol = c->col;
  }
  return w->cellCount > 0;
}

// The number of 32-row blocks that hold a cell or a row record.
static uint32_t CountRowBlocks(const BiffWriter* w, const Sheet* s) {
  uint32_t count = 0, last = UINT32_MAX, ci = 0, ri = 0;
  while (ci < w->cellCount || ri < w->rowCount) {
    uint32_t cellRow = ci < w->cellCount ? s->cells.cells[ci]->row : UINT32_MAX;
    uint32_t rowRow = ri < w->rowCount ? s->rows.records[ri]->row : UINT32_MAX;
    uint32_t row = cellRow < rowRow ? cellRow : rowRow;
    if (row / 32 != last) {
      last = row / 32;
      count++;
    }
    if (cellRow == row) ci++;
    if (rowRow == row) ri++;
  }
  return count;
}

static uint16_t DefaultHeight(const Sheet* s) {
  return (s->flags & SheetStandardHeight) ? StandardRowHeight : s->defaultRowHeight;
}

static uint16_t DefaultWidth(const Sheet* s) {
  return (s->flags & SheetStandardWidth) ? StandardColumnWidth : s->defaultColWidth;
}

// Page setup for a sheet that has none stored: A4, portrait, 100 %, no printer data.
static void WriteSetup(BiffWriter* w) {
  uint8_t* p = BeginRecord(w, 0x00A1, 34);
  if (!p) return;
  static const uint16_t words[8] = {9, 100, 1, 1, 1, 0x0006, 600, 600};
  for (uint32_t i = 0; i < 8; i++) WriteU16(p + 2 * i, words[i]);
  WriteDouble(p + 16, 0.5);
  WriteDouble(p + 24, 0.5);
  WriteU16(p + 32, 1);
}

static void WriteColumns(BiffWriter* w, const Sheet* s) {
  const Workbook* wb = GetWorkbook(w->book);
  uint32_t count = s->columns.count;
  for (uint32_t i = 0; i < count;) {
    const ColumnRecord* first = s->columns.records[i];
    uint32_t j = i + 1;
    while (j < count) {
      const ColumnRecord* next = s->columns.records[j];
      const ColumnRecord* previous = s->columns.records[j - 1];
      if (next->col != previous->col + 1 || next->info.flags != first->info.flags ||
          next->info.size != first->info.size || next->info.xf != first->info.xf)
        break;
      j++;
    }
    const RowColInfo& info = first->info;
    if (uint8_t* p = BeginRecord(w, 0x007D, 12)) {
      WriteU16(p, first->col);
      WriteU16(p + 2, s->columns.records[j - 1]->col);
      WriteU16(p + 4, (info.flags & RowColDefault) ? DefaultWidth(s) : info.size);
      WriteU16(p + 6, info.xf < wb->xfCount ? info.xf : DefaultCellXf);
      WriteU16(p + 8, (info.flags & RowColHidden) ? 1 : 0);
      WriteU16(p + 10, 0);
    }
    i = j;
  }
}

static void WriteDimensions(BiffWriter* w, uint32_t sheet) {
  uint32_t firstRow, lastRow, firstCol, lastCol;
  if (!UsedArea(w, GetSheet(w->book, sheet), &firstRow, &lastRow, &firstCol, &lastCol))
    firstRow = lastRow = firstCol = lastCol = 0;
  else
    lastRow++, lastCol++;
  if (w->version >= 8) {
    if (uint8_t* p = BeginRecord(w, 0x0200, 14)) {
      WriteU32(p, firstRow);
      WriteU32(p + 4, lastRow);
      WriteU16(p + 8, static_cast<uint16_t>(firstCol));
      WriteU16(p + 10, static_cast<uint16_t>(lastCol));
      WriteU16(p + 12, 0);
    }
  } else if (uint8_t* p = BeginRecord(w, 0x0200, 10)) {
    WriteU16(p, static_cast<uint16_t>(firstRow));
    WriteU16(p + 2, static_cast<uint16_t>(lastRow > 0xFFFF ? 0xFFFF : lastRow));
    WriteU16(p + 4, static_cast<uint16_t>(firstCol));
    WriteU16(p + 6, static_cast<uint16_t>(lastCol));
    WriteU16(p + 8, 0);
  }
}

// Excel 95 notes carry their text: 2048 bytes a record, the rest in records of row 0xFFFF.
static void WriteNotes(BiffWriter* w, const Sheet* s) {
  for (uint32_t i = 0; i < s->commentCount; i++) {
    const CellComment& c = s->comments[i];
    if (c.row >= 16384) continue;
    uint32_t length = TextLength(c.text);
    uint8_t* bytes = static_cast<uint8_t*>(Allocate(2 * length + 1));
    if (!bytes) {
      w->failed = true;
      return;
    }
    uint32_t total = NarrowText(w, c.text, length, bytes, 2 * length);
    uint32_t at = 0;
    do {
      uint32_t piece = total - at < 2048 ? total - at : 2048;
      if (uint8_t* p = BeginRecord(w, 0x001C, 6 + piece)) {
        WriteU16(p, at == 0 ? c.row : 0xFFFF);
        WriteU16(p + 2, at == 0 ? c.col : 0);
        WriteU16(p + 4, static_cast<uint16_t>(at == 0 ? total : piece));
        std::memcpy(p + 6, bytes + at, piece);
      }
      at += piece;
    } while (at < total);
    Release(bytes);
  }
}

// The pane the selection lives in: bottom-right with both splits, else the one beyond the split.
static uint8_t ActivePane(const Sheet* s) {
  bool frozen = (s->flags & SheetPanesFrozen) && (s->frozenRow || s->frozenCol);
  if (!frozen) return 3;
  if (s->frozenRow && s->frozenCol) return 0;
  return s->frozenRow ? 2 : 1;
}

static void WriteWindow(BiffWriter* w, uint32_t sheet) {
  const Sheet* s = GetSheet(w->book, sheet);
  bool frozen = (s->flags & SheetPanesFrozen) && (s->frozenRow || s->frozenCol);
  uint32_t x = frozen && s->frozenCol ? s->frozenCol - s->paneLeftCol : 0;
  uint32_t y = frozen && s->frozenRow ? s->frozenRow - s->paneTopRow : 0;
  bool active = sheet == GetWorkbook(w->book)->currentSheet;
  uint16_t options = static_cast<uint16_t>(
      ((s->flags & SheetShowFormulas) ? 1 : 0) | ((s->flags & SheetGridLines) ? 2 : 0) |
      ((s->flags & SheetHeaders) ? 4 : 0) | (frozen ? 8 | 0x100 : 0) | 0x10 | 0x20 | 0x80 |
      (active ? 0x600 : 0));
  uint16_t top = x || y ? (y ? s->paneTopRow : s->topRow) : s->topRow;
  uint16_t left = x || y ? (x ? s->paneLeftCol : s->leftCol) : s->leftCol;
  if (uint8_t* p = BeginRecord(w, 0x023E, w->version >= 8 ? 18 : 10)) {
    std::memset(p, 0, w->version >= 8 ? 18 : 10);
    WriteU16(p, options);
    WriteU16(p + 2, top);
    WriteU16(p + 4, left);
    if (w->version >= 8) WriteU16(p + 6, 64);  // the automatic grid colour
  }
  uint8_t pane = ActivePane(s);
  if (x || y) {
    if (uint8_t* p = BeginRecord(w, 0x0041, 10)) {
      WriteU16(p, static_cast<uint16_t>(x));
      WriteU16(p + 2, static_cast<uint16_t>(y));
      WriteU16(p + 4, y ? s->topRow : 0);
      WriteU16(p + 6, x ? s->leftCol : 0);
      p[8] = pane;
      p[9] = 0;
    }
  }
  if (uint8_t* p = BeginRecord(w, 0x001D, 15)) {
    p[0] = pane;
    WriteU16(p + 1, s->activeRow);
    WriteU16(p + 3, s->activeCol);
    WriteU16(p + 5, 0);
    WriteU16(p + 7, 1);
    Range r = s->selection;
    if (r.firstRow > r.lastRow || r.firstCol > r.lastCol ||
        !RangeContains(&r, s->activeRow, s->activeCol))
      r = Range{s->activeRow, s->activeRow, s->activeCol, s->activeCol};
    WriteU16(p + 9, r.firstRow);
    WriteU16(p + 11, r.lastRow);
    p[13] = r.firstCol;
    p[14] = r.lastCol;
  }
}

static void WriteMerges(BiffWriter* w, const Sheet* s) {
  for (uint32_t at = 0; at < s->mergeCount;) {
    uint32_t count = s->mergeCount - at < 1027 ? s->mergeCount - at : 1027;
    uint8_t* p = BeginRecord(w, 0x00E5, 2 + 8 * count);
    if (!p) return;
    WriteU16(p, static_cast<uint16_t>(count));
    for (uint32_t i = 0; i < count; i++) {
      const Range& r = s->merges[at + i];
      WriteU16(p + 2 + 8 * i, r.firstRow);
      WriteU16(p + 4 + 8 * i, r.lastRow);
      WriteU16(p + 6 + 8 * i, r.firstCol);
      WriteU16(p + 8 + 8 * i, r.lastCol);
    }
    at += count;
  }
}

void WriteSheetSubstream(BiffWriter* w, uint32_t sheet) {
  const Sheet* s = GetSheet(w->book, sheet);
  WriteBof(w, s->kind == SheetMacro ? 0x40 : 0x10);
  // INDEX: the used rows and where each block's DBCELL lies, patched below.
  uint32_t limit = w->version >= 8 ? MaxRow + 1 : 16384;
  uint32_t index;
  FindCell(&s->cells, limit, 0, &index);
  w->cellCount = index;
  FindRowRecord(&s->rows, limit, &index);
  w->rowCount = index;
  w->report.cellsDropped += s->cells.count - w->cellCount;
  uint32_t blocks = CountRowBlocks(w, s);
  uint32_t firstRow = 0, lastRow = 0;
  if (w->cellCount)
    firstRow = s->cells.cells[0]->row, lastRow = s->cells.cells[w->cellCount - 1]->row + 1;
  if (w->rowCount) {
    uint32_t a = s->rows.records[0]->row, b = s->rows.records[w->rowCount - 1]->row + 1u;
    if (!w->cellCount || a < firstRow) firstRow = a;
    if (b > lastRow) lastRow = b;
  }
  uint32_t head = w->version >= 8 ? 16 : 12;
  uint8_t* indexBody = BeginRecord(w, 0x020B, head + 4 * blocks);
  uint32_t indexAt = w->size - 4 * blocks;
  if (indexBody) {
    std::memset(indexBody, 0, head + 4 * blocks);
    if (w->version >= 8) {
      WriteU32(indexBody + 4, firstRow);
      WriteU32(indexBody + 8, lastRow);
    } else {
      WriteU16(indexBody + 4, static_cast<uint16_t>(firstRow));
      WriteU16(indexBody + 6, static_cast<uint16_t>(lastRow > 0xFFFF ? 0xFFFF : lastRow));
    }
  }
  WriteSmallRecord(w, 0x000D, 1);
  WriteSmallRecord(w, 0x000C, 100);
  WriteSmallRecord(w, 0x000F, 1);
  WriteSmallRecord(w, 0x0011, 0);
  WriteDoubleRecord(w, 0x0010, 0.001);
  WriteSmallRecord(w, 0x005F, 1);
  if (w->version < 8) WriteExternList(w);
  WriteSmallRecord(w, 0x002A, 0);
  WriteSmallRecord(w, 0x002B, 0);
  WriteSmallRecord(w, 0x0082, 1);
  if (uint8_t* p = BeginRecord(w, 0x0080, 8)) std::memset(p, 0, 8);
  WriteWordsRecord(w, 0x0225, (s->flags & SheetHeightByHand) ? 1 : 0, DefaultHeight(s));
  WriteSmallRecord(w, 0x0081, 0x04C1);
  WriteSmallRecord(w, 0x0083, 0);
  WriteSmallRecord(w, 0x0084, 0);
  WriteDoubleRecord(w, 0x0026, 0.75);
  WriteDoubleRecord(w, 0x0027, 0.75);
  WriteDoubleRecord(w, 0x0028, 1.0);
  WriteDoubleRecord(w, 0x0029, 1.0);
  WriteSetup(w);
  WriteSmallRecord(w, 0x0012, (s->flags & SheetProtected) ? 1 : 0);
  WriteSmallRecord(w, 0x0013, 0);
  WriteSmallRecord(w, 0x0055, static_cast<uint16_t>(DefaultWidth(s) / 256));
  if (w->version >= 8) WriteSmallRecord(w, 0x0099, DefaultWidth(s));
  WriteColumns(w, s);
  WriteDimensions(w, sheet);
  uint32_t* positions = static_cast<uint32_t*>(Allocate((blocks + 1) * sizeof(uint32_t)));
  if (!positions) {
    w->failed = true;
    return;
  }
  WriteSheetCells(w, sheet, positions);
  if (!w->failed)
    for (uint32_t b = 0; b < blocks; b++) WriteU32(w->bytes + indexAt + 4 * b, positions[b]);
  Release(positions);
  s = GetSheet(w->book, sheet);
  if (w->version < 8) WriteNotes(w, s);
  WriteWindow(w, sheet);
  if (w->version >= 8)
    WriteMerges(w, s);
  else
    w->report.mergesDropped += s->mergeCount;
  uint16_t zoom = s->zoom ? s->zoom : 100;
  if (w->version >= 8 || zoom != 100) WriteWordsRecord(w, 0x00A0, zoom, 100);
}
