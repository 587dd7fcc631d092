// The records of a BIFF sheet substream that are not cells: rows and columns with their sizes,
// merged areas, the window (frozen panes, scroll position, selection, zoom, display flags),
// protection, and BIFF5 notes, whose text comes with them. Page setup, objects, validation,
// conditional formats and autofilters belong to later parts and are skipped by their length.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "files/biff_internal.h"
#include "model/workbook.h"

static Sheet* CurrentSheet(const BiffLoad* load) {
  return GetSheet(load->book, static_cast<uint32_t>(load->sheet));
}

static int ReadRow(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t row = ReadWord(&body);
  SkipBytes(&body, 4);
  uint16_t height = ReadWord(&body) & 0x7FFF;
  SkipBytes(&body, 4);
  uint16_t options = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  RowColInfo info{};
  if (options & 0x20) info.flags |= RowColHidden;
  if (options & 0x40) info.flags |= RowHeightByHand;
  info.size = height;
  info.xf = DefaultCellXf;
  return SetRowRecord(&CurrentSheet(load)->rows, row, &info) ? 1 : FailOutOfMemory(load);
}

static int ReadColumnInfo(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint32_t first = ReadWord(&body);
  uint32_t last = ReadWord(&body);
  uint16_t width = ReadWord(&body);
  uint16_t xf = ReadWord(&body);
  uint16_t options = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  if (last == MaxCol + 1) last = MaxCol;
  if (first > last || last > MaxCol) return 1;
  ColumnArray* columns = &CurrentSheet(load)->columns;
  for (uint32_t col = first; col <= last; col++) {
    RowColInfo info{};
    GetColumnInfo(columns, col, &info);
    info.flags &= ~(RowColDefault | RowColHidden);
    if (width == 0)
      info.flags |= RowColDefault;  // the width held before stays for when it is shown
    else
      info.size = width;
    if (options & 1) info.flags |= RowColHidden;
    info.xf = xf;
    if (!SetColumnRecord(columns, col, &info)) return FailOutOfMemory(load);
  }
  return 1;
}

static int ReadDefaultColumnWidth(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t width = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  Sheet* s = CurrentSheet(load);
  s->flags &= ~SheetStandardWidth;
  s->defaultColWidth = record->id == 0x0055 ? static_cast<uint16_t>((width & 0xFF) * 256) : width;
  return 1;
}

static int ReadDefaultRowHeight(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t options = ReadWord(&body);
  uint16_t height = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  Sheet* s = CurrentSheet(load);
  s->flags &= ~SheetStandardHeight;
  if (options & 1) s->flags |= SheetHeightByHand;
  s->defaultRowHeight = height;
  return 1;
}

static int ReadMergedCells(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t count = ReadWord(&body);
  if (body.overrun || BytesLeft(&body) / 8 < count)
    return Fail(load, "a list of merged areas runs past its record");
  Sheet* s = CurrentSheet(load);
  for (uint32_t i = 0; i < count; i++) {
    Range r;
    r.firstRow = ReadWord(&body);
    r.lastRow = ReadWord(&body);
    uint16_t firstCol = ReadWord(&body), lastCol = ReadWord(&body);
    if (r.firstRow > r.lastRow || firstCol > lastCol || lastCol > MaxCol) continue;
    r.firstCol = static_cast<uint8_t>(firstCol);
    r.lastCol = static_cast<uint8_t>(lastCol);
    uint32_t capacity = s->mergeCount;
    if (!GrowArray(&s->merges, &capacity, s->mergeCount + 1, 1)) return FailOutOfMemory(load);
    s->merges[s->mergeCount++] = r;
  }
  return 1;
}

static int ReadWindow2(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t options = ReadWord(&body);
  uint16_t top = ReadWord(&body);
  uint16_t left = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  Sheet* s = CurrentSheet(load);
  static const uint32_t flagBits[] = {SheetShowFormulas, SheetGridLines, SheetHeaders,
                                      SheetPanesFrozen};
  for (uint32_t i = 0; i < 4; i++) {
    s->flags &= ~flagBits[i];
    if (options & (1u << i)) s->flags |= flagBits[i];
  }
  uint8_t col = static_cast<uint8_t>(left > MaxCol ? MaxCol : left);
  if (s->flags & SheetPanesFrozen) {
    s->paneTopRow = top;
    s->paneLeftCol = col;
  } else {
    s->topRow = top;
    s->leftCol = col;
  }
  return 1;
}

static int ReadPane(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t x = ReadWord(&body);
  uint16_t y = ReadWord(&body);
  uint16_t top = ReadWord(&body);
  uint16_t left = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  Sheet* s = CurrentSheet(load);
  if (!(s->flags & SheetPanesFrozen)) return 1;
  if (x) {
    uint32_t frozen = s->paneLeftCol + x;
    s->frozenCol = static_cast<uint8_t>(frozen > MaxCol ? MaxCol : frozen);
    s->leftCol = static_cast<uint8_t>(left > MaxCol ? MaxCol : left);
  } else {
    s->frozenCol = 0;
    s->leftCol = s->paneLeftCol;
    s->paneLeftCol = 0;
  }
  if (y) {
    uint32_t frozen = s->paneTopRow + y;
    s->frozenRow = static_cast<uint16_t>(frozen > MaxRow ? MaxRow : frozen);
    s->topRow = top;
  } else {
    s->frozenRow = 0;
    s->topRow = s->paneTopRow;
    s->paneTopRow = 0;
  }
  return 1;
}

static int ReadSelection(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  ReadByte(&body);  // the pane: a later SELECTION replaces an earlier one
  uint16_t row = ReadWord(&body);
  uint16_t col = ReadWord(&body);
  uint16_t active = ReadWord(&body);
  uint16_t count = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  if (col > MaxCol) return 1;
  Sheet* s = CurrentSheet(load);
  s->activeRow = row;
  s->activeCol = static_cast<uint8_t>(col);
  s->selection = Range{row, row, s->activeCol, s->activeCol};
  if (active < count && BytesLeft(&body) / 6 > active) {
    SkipBytes(&body, active * 6u);
    Range r;
    r.firstRow = ReadWord(&body);
    r.lastRow = ReadWord(&body);
    r.firstCol = ReadByte(&body);
    r.lastCol = ReadByte(&body);
    if (r.firstRow <= r.lastRow && r.firstCol <= r.lastCol) s->selection = r;
  }
  return 1;
}

static int ReadZoom(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint32_t numerator = ReadWord(&body);
  uint32_t denominator = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  uint32_t zoom = denominator == 0 ? 100 : numerator == 0 ? 10 : 100 * numerator / denominator;
  CurrentSheet(load)->zoom = static_cast<uint16_t>(zoom < 10 ? 10 : zoom > 400 ? 400 : zoom);
  return 1;
}

static int ReadProtect(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t on = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  Sheet* s = CurrentSheet(load);
  s->flags &= ~SheetProtected;
  if (on == 1) s->flags |= SheetProtected;
  return 1;
}

// NOTE of a BIFF5 file: the comment's text comes with it (a long one goes on in further NOTE
// records with row 0xFFFF, whose pieces are appended). BIFF8 comments arrive with their drawing
// objects, which this reader does not build yet.
static int ReadNote(BiffLoad* load, const BiffRecord* record) {
  if (load->version >= 8) return 1;
  BiffBody body;
  BeginBody(&body, record);
  uint16_t row = ReadWord(&body);
  uint16_t col = ReadWord(&body);
  uint16_t length = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  uint32_t here = BytesLeft(&body) < length ? BytesLeft(&body) : length;
  char16_t* text = DecodeBytes(&load->page, ReadBytes(&body, here), here);
  if (!text) return FailOutOfMemory(load);
  Sheet* s = CurrentSheet(load);
  if (row == 0xFFFF) {
    // A continuation of the last note.
    if (!s->commentCount) {
      Release(text);
      return 1;
    }
    CellComment* c = &s->comments[s->commentCount - 1];
    uint32_t a = 0, b = 0;
    while (c->text && c->text[a]) a++;
    while (text[b]) b++;
    char16_t* joined = static_cast<char16_t*>(Reallocate(
        c->text, c->text ? (a + 1) * sizeof(char16_t) : 0, (a + b + 1) * sizeof(char16_t)));
    if (!joined) {
      Release(text);
      return FailOutOfMemory(load);
    }
    std::memcpy(joined + a, text, (b + 1) * sizeof(char16_t));
    c->text = joined;
    Release(text);
    return 1;
  }
  if (col > MaxCol) {
    Release(text);
    return 1;
  }
  uint32_t capacity = s->commentCount;
  if (!GrowArray(&s->comments, &capacity, s->commentCount + 1, 1)) {
    Release(text);
    return FailOutOfMemory(load);
  }
  s->comments[s->commentCount++] = CellComment{row, static_cast<uint8_t>(col), text};
  return 1;
}

const RecordEntry SheetRecords[] = {
    {0x0208, ReadRow},
    {0x007D, ReadColumnInfo},
    {0x0055, ReadDefaultColumnWidth},
    {0x0099, ReadDefaultColumnWidth},
    {0x0225, ReadDefaultRowHeight},
    {0x00E5, ReadMergedCells},
    {0x023E, ReadWindow2},
    {0x0041, ReadPane},
    {0x001D, ReadSelection},
    {0x00A0, ReadZoom},
    {0x0012, ReadProtect},
    {0x001C, ReadNote},
    {0x0017, ReadExternSheet},
    {0x0023, ReadExternName},
};
const uint32_t SheetRecordCount = sizeof SheetRecords / sizeof SheetRecords[0];
