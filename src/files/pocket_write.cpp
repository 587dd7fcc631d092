// The Pocket Excel writer: the globals (code page, zoom, window, fonts, number formats, cell
// formats, sheets, names), then each sheet in blocks of 32 rows, a ROW record for every row
// followed by its cells. What the format cannot hold is left out and counted: a formula it
// cannot hold is written as its current value, rows past 16,383 are dropped, and a sheet that is
// not a worksheet becomes an empty one. The same walk, run without writing, counts the drops.
#include <cstring>

#include "base/alloc.h"
#include "base/byte_buffer.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/pocket.h"
#include "files/pocket_internal.h"
#include "formula/recalc.h"
#include "model/workbook.h"

// The stream being built; with `discard` nothing is kept and only the decisions are made.
struct PocketOut {
  ByteBuffer buffer;
  bool discard;
};

static void Put(PocketOut* out, const void* bytes, uint32_t n) {
  if (!out->discard) PutBytes(&out->buffer, bytes, n);
}

static void PutU8(PocketOut* out, uint8_t v) {
  if (!out->discard) PutU8(&out->buffer, v);
}

static void PutU16(PocketOut* out, uint16_t v) {
  if (!out->discard) PutU16(&out->buffer, v);
}

static void PutDouble(PocketOut* out, double d) {
  if (!out->discard) PutDouble(&out->buffer, d);
}

static void PutChars(PocketOut* out, const char16_t* text, uint32_t count) {
  for (uint32_t i = 0; i < count; i++) PutU16(out, text[i]);
}

// A text with a count of at most `limit` characters, the count in a byte or a word.
static void PutCountedText(PocketOut* out, const char16_t* text, uint32_t limit, bool wordCount) {
  uint32_t count = TextLength(text);
  if (count > limit) count = limit;
  if (wordCount)
    PutU16(out, static_cast<uint16_t>(count));
  else
    PutU8(out, static_cast<uint8_t>(count));
  PutChars(out, text, count);
}

struct PocketSave {
  uint32_t book;
  PocketOut out;
  PocketDrops* drops;
  uint16_t* formatMap;  // by number format table index: the number the file gives it
  uint16_t* xfMap;      // by Xf index: the file's XF number
};

static void PutBof(PocketOut* out, uint16_t type) {
  PutU8(out, PocketBof);
  PutU16(out, PocketVersion);
  PutU16(out, type);
}

// ---------------------------------------------------------------------------------------------
// Globals

static uint32_t CommonDivisor(uint32_t a, uint32_t b) {
  while (b) {
    uint32_t t = a % b;
    a = b;
    b = t;
  }
  return a;
}

static void WriteZoom(PocketSave* save) {
  const Workbook* wb = GetWorkbook(save->book);
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    const Sheet* sheet = wb->sheets[s];
    if (sheet->kind != SheetWorksheet) continue;
    if (sheet->zoom != 100 && sheet->zoom != 0) {
      uint32_t divisor = CommonDivisor(sheet->zoom, 100);
      PutU8(&save->out, PocketScl);
      PutU16(&save->out, static_cast<uint16_t>(sheet->zoom / divisor));
      PutU16(&save->out, static_cast<uint16_t>(100 / divisor));
    }
    return;
  }
}

static void WriteFont(PocketOut* out, const FontRecord* font) {
  PutU8(out, PocketFont);
  PutU16(out, font->height);
  PutU16(out, static_cast<uint16_t>(font->attributes & ~FontUnderline));
  PutU16(out, FontColorToPocket(font->color));
  PutU16(out, font->weight);
  PutU16(out, 0);
  PutU8(out, (font->attributes & FontUnderline) ? 1 : 0);
  PutU8(out, font->pitchAndFamily);
  PutU8(out, font->charset);
  PutU8(out, 0);
  PutCountedText(out, font->faceName, 31, false);
}

// The file's number for each format of the workbook: its row of the built-in table by BIFF
// number, else by text; else, when a cell format that is written uses it, a custom number from 233
// on with its FORMAT record; else General.
static int MapFormats(PocketSave* save) {
  const Workbook* wb = GetWorkbook(save->book);
  uint32_t count = wb->numberFormatCount;
  save->formatMap = static_cast<uint16_t*>(Allocate((count + 1) * sizeof(uint16_t)));
  if (!save->formatMap) return 0;
  // First the formats the written cell formats use (marked 1), then each format's number.
  for (uint32_t x = 0; x < wb->xfCount; x++)
    if (!(wb->xfs[x].flags & XfStyle) && wb->xfs[x].numberFormat < count)
      save->formatMap[wb->xfs[x].numberFormat] = 1;
  uint16_t nextCustom = PocketCustomFormatBase;
  for (uint32_t i = 0; i < count; i++) {
    const NumberFormat* format = &wb->numberFormats[i];
    bool used = save->formatMap[i] != 0;
    int32_t row = -1;
    for (uint32_t r = 0; r < PocketFormatRows && row < 0; r++)
      if (PocketFormatTable[r].biffId == format->id) row = static_cast<int32_t>(r);
    for (uint32_t r = 0; r < PocketFormatRows && row < 0; r++)
      if (PocketFormatTable[r].text && CompareText(PocketFormatTable[r].text, format->code) == 0)
        row = static_cast<int32_t>(r);
    if (row >= 0) {
      save->formatMap[i] = static_cast<uint16_t>(row);
      continue;
    }
    save->formatMap[i] = 0;
    if (!used || TextLength(format->code) > 255 || nextCustom == 0xFFFF) continue;
    save->formatMap[i] = nextCustom++;
    PutU8(&save->out, PocketFormat);
    PutCountedText(&save->out, format->code, 255, false);
  }
  return 1;
}

// Cell formats get the file's numbers from 0 in order; style formats are not written and stand
// for the default.
static int WriteXfs(PocketSave* save) {
  const Workbook* wb = GetWorkbook(save->book);
  save->xfMap = static_cast<uint16_t*>(Allocate((wb->xfCount + 1) * sizeof(uint16_t)));
  if (!save->xfMap) return 0;
  uint16_t next = 0;
  for (uint32_t i = 0; i < wb->xfCount; i++) {
    const Xf* xf = &wb->xfs[i];
    if (xf->flags & XfStyle) {
      save->xfMap[i] = 0;
      continue;
    }
    save->xfMap[i] = next++;
    uint8_t record[PocketXfSize];
    uint16_t format =
        xf->numberFormat < wb->numberFormatCount ? save->formatMap[xf->numberFormat] : 0;
    EncodePocketXf(xf, format, record);
    PutU8(&save->out, PocketXf);
    Put(&save->out, record, sizeof record);
  }
  return 1;
}

static uint16_t FileXf(const PocketSave* save, uint16_t xf) {
  return xf < GetWorkbook(save->book)->xfCount ? save->xfMap[xf] : 0;
}

// Every name is written, so that name tokens keep their numbers; a formula the format cannot
// hold leaves its name empty.
static int WriteNames(PocketSave* save) {
  const Workbook* wb = GetWorkbook(save->book);
  for (uint32_t i = 0; i < wb->nameCount; i++) {
    const DefinedName* name = &wb->names[i];
    FormulaTokens tokens{};
    if (name->formula.bytes) {
      if (!PocketCanHold(save->book, &name->formula))
        save->drops->count[PocketDropNameFormula]++;
      else if (!save->out.discard && !TokensToPocket(save->book, &name->formula, &tokens))
        return 0;
    }
    uint32_t length = TextLength(name->name);
    if (length > 255) length = 255;
    PutU8(&save->out, PocketName);
    PutU16(&save->out, 0);
    PutU8(&save->out, static_cast<uint8_t>(length));
    PutU16(&save->out, tokens.length);
    PutU16(&save->out, static_cast<uint16_t>(name->localSheet - 1));
    PutChars(&save->out, name->name, length);
    if (tokens.length) Put(&save->out, tokens.bytes, tokens.length);
    FreeTokens(&tokens);
  }
  return 1;
}

static int WriteGlobals(PocketSave* save) {
  const Workbook* wb = GetWorkbook(save->book);
  PocketOut* out = &save->out;
  PutBof(out, PocketGlobalsType);
  PutU8(out, PocketCodePage);
  PutU16(out, wb->codePage);
  // COUNTRY is written only for nonzero country words, which the model does not keep.
  WriteZoom(save);
  PutU8(out, PocketWindow1);
  PutU16(out, 31);
  PutU16(out, static_cast<uint16_t>(wb->currentSheet));
  for (uint32_t i = 0; i < wb->fontCount; i++) WriteFont(out, &wb->fonts[i]);
  if (!MapFormats(save) || !WriteXfs(save)) return 0;
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    PutU8(out, PocketBoundSheet);
    PutU8(out, 0);
    PutCountedText(out, wb->sheets[s]->name, 255, false);
  }
  if (!WriteNames(save)) return 0;
  PutU8(out, PocketEof);
  return 1;
}

// ---------------------------------------------------------------------------------------------
// Cells

static void PutCellHead(PocketSave* save, uint8_t id, const Cell* cell, uint16_t xf) {
  PutU8(&save->out, id);
  PutU16(&save->out, cell->row);
  PutU8(&save->out, cell->col);
  PutU16(&save->out, FileXf(save, xf));
}

// A blank is written when it carries a format: its own, or its column's when it has the default.
static void WriteBlank(PocketSave* save, const Sheet* sheet, const Cell* cell) {
  uint16_t xf = cell->xf;
  if (xf == DefaultCellXf) {
    RowColInfo column;
    GetColumnInfo(&sheet->columns, cell->col, &column);
    if (column.xf == DefaultCellXf) return;
    xf = column.xf;
  }
  PutCellHead(save, PocketBlank, cell, xf);
}

static void WriteValue(PocketSave* save, const Sheet* sheet, const Cell* cell) {
  const Value& v = cell->value;
  PocketOut* out = &save->out;
  switch (v.tag) {
    case ValueNumber:
      PutCellHead(save, PocketNumber, cell, cell->xf);
      PutDouble(out, v.number);
      return;
    case ValueText:
      PutCellHead(save, PocketLabel, cell, cell->xf);
      PutCountedText(out, v.text, 0xFFFF, true);
      return;
    case ValueBoolean:
    case ValueError:
      PutCellHead(save, PocketBoolErr, cell, cell->xf);
      PutU8(out,
            v.tag == ValueBoolean ? static_cast<uint8_t>(v.boolean != 0) : ErrorToBiff(v.error));
      PutU8(out, v.tag == ValueBoolean ? 0 : 1);
      return;
    default:
      WriteBlank(save, sheet, cell);
      return;
  }
}

// The cached result of a formula in eight bytes: a number as itself, other types marked by 0xFFFF
// in the top word with the type in byte 0; an empty result is eight zero bytes.
static void FormulaResult(const Value& v, uint8_t result[8]) {
  std::memset(result, 0, 8);
  if (v.tag == ValueNumber) {
    WriteDouble(result, v.number);
    return;
  }
  if (v.tag != ValueText && v.tag != ValueBoolean && v.tag != ValueError) return;
  result[0] = v.tag == ValueText ? 0 : v.tag == ValueBoolean ? 1 : 2;
  result[2] = v.tag == ValueBoolean ? static_cast<uint8_t>(v.boolean != 0)
              : v.tag == ValueError ? ErrorToBiff(v.error)
                                    : 0;
  result[6] = result[7] = 0xFF;
}

static int WriteFormula(PocketSave* save, const Cell* cell) {
  FormulaTokens tokens{};
  if (!save->out.discard && !TokensToPocket(save->book, &cell->formula, &tokens)) return 0;
  uint8_t result[8];
  FormulaResult(cell->value, result);
  PocketOut* out = &save->out;
  PutCellHead(save, PocketFormula, cell, cell->xf);
  Put(out, result, 8);
  PutU8(out, cell->isVolatile ? 1 : 0);
  PutU16(out, tokens.length);
  if (tokens.length) Put(out, tokens.bytes, tokens.length);
  FreeTokens(&tokens);
  if (cell->value.tag == ValueText) {
    PutU8(out, PocketString);
    PutCountedText(out, cell->value.text, 0xFFFF, true);
  }
  return 1;
}

static bool InArrayFormula(const Sheet* sheet, const Cell* cell) {
  for (uint32_t i = 0; i < sheet->arrayFormulaCount; i++)
    if (RangeContains(&sheet->arrayFormulas[i].range, cell->row, cell->col)) return true;
  return false;
}

static int WriteCell(PocketSave* save, uint32_t s, Cell* cell) {
  const Sheet* sheet = GetSheet(save->book, s);
  if (!cell->formula.bytes) {
    WriteValue(save, sheet, cell);
    return 1;
  }
  int32_t drop =
      InArrayFormula(sheet, cell) ? PocketDropArray : PocketFormulaDrop(save->book, &cell->formula);
  // The value written, with the formula or in its place, is the current one.
  if (!save->out.discard && cell->state == CellDirty) CalculateCell(save->book, s, cell);
  if (drop == PocketKept) return WriteFormula(save, cell);
  save->drops->count[drop]++;
  WriteValue(save, sheet, cell);
  return 1;
}

// ---------------------------------------------------------------------------------------------
// Sheets

static uint16_t DefaultHeight(const Sheet* s) {
  return (s->flags & SheetStandardHeight) ? StandardRowHeight : s->defaultRowHeight;
}

static uint16_t DefaultWidth(const Sheet* s) {
  return (s->flags & SheetStandardWidth) ? StandardColumnWidth : s->defaultColWidth;
}

// The width a column record is written with and its option bits.
static uint16_t ColumnWidth(const Sheet* s, const RowColInfo& info) {
  return (info.flags & RowColDefault) ? DefaultWidth(s) : info.size;
}

static uint8_t ColumnOptions(const RowColInfo& info) {
  return static_cast<uint8_t>(((info.flags & RowColHidden) ? 1 : 0) |
                              ((info.flags & RowColDefault) ? 0 : 2));
}

// Runs of neighbouring columns with the same attributes share one COLINFO.
static void WriteColumns(PocketSave* save, const Sheet* s) {
  const ColumnArray& columns = s->columns;
  for (uint32_t i = 0; i < columns.count;) {
    const ColumnRecord* first = columns.records[i];
    uint32_t last = i;
    while (last + 1 < columns.count) {
      const ColumnRecord* next = columns.records[last + 1];
      if (next->col != columns.records[last]->col + 1 ||
          ColumnOptions(next->info) != ColumnOptions(first->info) ||
          ColumnWidth(s, next->info) != ColumnWidth(s, first->info) ||
          next->info.xf != first->info.xf)
        break;
      last++;
    }
    PutU8(&save->out, PocketColInfo);
    PutU16(&save->out, first->col);
    PutU16(&save->out, columns.records[last]->col);
    PutU16(&save->out, ColumnWidth(s, first->info));
    PutU16(&save->out, FileXf(save, first->info.xf));
    PutU8(&save->out, ColumnOptions(first->info));
    i = last + 1;
  }
}

static void WriteRow(PocketSave* save, const Sheet* s, uint32_t row) {
  RowColInfo info;
  GetRowInfo(&s->rows, row, &info);
  uint16_t height = (info.flags & RowColDefault) ? DefaultHeight(s) : info.size;
  uint16_t flags = static_cast<uint16_t>(((info.flags & RowColHidden) ? 1 : 0) |
                                         ((info.flags & RowHeightByHand) ? 2 : 0));
  PutU8(&save->out, PocketRow);
  PutU16(&save->out, static_cast<uint16_t>(row));
  PutU16(&save->out, height);
  PutU16(&save->out, flags);
  PutU16(&save->out, 0);
}

// True when the row's record says more than the default row would: hidden, sized by hand, or
// of another height.
static bool RowDiffers(const Sheet* s, const RowColInfo& info) {
  if (info.flags & (RowColHidden | RowHeightByHand)) return true;
  return !(info.flags & RowColDefault) && info.size != DefaultHeight(s);
}

// The last row the sheet uses, by its cells and the row records that differ from the default;
// -1 for none.
static int32_t LastUsedRow(const Sheet* s) {
  int32_t last = -1;
  if (s->cells.count) last = s->cells.cells[s->cells.count - 1]->row;
  for (uint32_t i = s->rows.count; i-- > 0 && s->rows.records[i]->row > last;)
    if (RowDiffers(s, s->rows.records[i]->info)) last = s->rows.records[i]->row;
  return last;
}

static void WriteWindow(PocketSave* save, const Sheet* s) {
  PocketOut* out = &save->out;
  bool frozen = (s->flags & SheetPanesFrozen) != 0;
  uint8_t options = static_cast<uint8_t>(((s->flags & SheetShowFormulas) ? 1 : 0) |
                                         ((s->flags & SheetGridLines) ? 0 : 2) |
                                         ((s->flags & SheetHeaders) ? 0 : 4) | (frozen ? 8 : 0));
  PutU8(out, PocketWindow2);
  PutU16(out, s->topRow);
  PutU8(out, s->leftCol);
  PutU8(out, options);
  PutU8(out, frozen ? 1 : 0);
  if (frozen) {
    PutU8(out, PocketPane);
    PutU16(out, s->frozenCol ? static_cast<uint16_t>(s->frozenCol - s->paneLeftCol) : s->leftCol);
    PutU16(out, s->frozenRow ? static_cast<uint16_t>(s->frozenRow - s->paneTopRow) : s->topRow);
    PutU16(out, s->topRow);
    PutU16(out, s->leftCol);
    PutU8(out, 0);
  }
  PutU8(out, PocketSelection);
  PutU16(out, s->selection.firstRow);
  PutU8(out, s->selection.firstCol);
  PutU16(out, s->selection.lastRow);
  PutU8(out, s->selection.lastCol);
  PutU16(out, s->activeRow);
  PutU8(out, s->activeCol);
}

static void CountSheetDrops(PocketSave* save, const Sheet* s) {
  uint32_t* count = save->drops->count;
  count[PocketDropComment] += s->commentCount;
  count[PocketDropObject] += s->objectCount;
  count[PocketDropValidation] += s->validationCount;
  count[PocketDropConditional] += s->conditionalCount;
  count[PocketDropMerge] += s->mergeCount;
}

constexpr uint32_t PocketRowBlock = 32;

static int WriteSheet(PocketSave* save, uint32_t index) {
  Sheet* s = GetSheet(save->book, index);
  PocketOut* out = &save->out;
  PutBof(out, PocketSheetType);
  if (s->kind != SheetWorksheet) {
    save->drops->count[PocketDropSheet]++;
    return 1;
  }
  CountSheetDrops(save, s);
  int32_t lastRow = LastUsedRow(s);
  if (lastRow > static_cast<int32_t>(PocketLastRow)) lastRow = PocketLastRow;
  if (!(s->flags & SheetStandardHeight)) {
    PutU8(out, PocketDefaultRowHeight);
    PutU16(out, 0);
    PutU16(out, s->defaultRowHeight);
  }
  PutU8(out, PocketDefColWidth);
  PutU16(out, 0);
  PutU16(out, DefaultWidth(s));
  PutU16(out, 0);
  WriteColumns(save, s);
  uint32_t next = 0;  // the next cell to write
  for (int32_t block = 0; block <= lastRow; block += PocketRowBlock) {
    int32_t end = block + static_cast<int32_t>(PocketRowBlock) - 1;
    if (end > lastRow) end = lastRow;
    for (int32_t row = block; row <= end; row++) WriteRow(save, s, static_cast<uint32_t>(row));
    // Calculation may not add or move cells, but the array is read afresh each time.
    for (; next < s->cells.count && s->cells.cells[next]->row <= end; next++)
      if (!WriteCell(save, index, s->cells.cells[next])) return 0;
  }
  save->drops->count[PocketDropCellRow] += s->cells.count - next;
  WriteWindow(save, s);
  PutU8(out, PocketEof);
  return 1;
}

static int RunSave(PocketSave* save) {
  if (!WriteGlobals(save)) return 0;
  for (uint32_t s = 0; s < GetWorkbook(save->book)->sheetCount; s++)
    if (!WriteSheet(save, s)) return 0;
  return !save->out.buffer.failed && !save->out.buffer.tooLong;
}

static void EndSave(PocketSave* save) {
  Release(save->formatMap);
  Release(save->xfMap);
}

void CountPocketDrops(uint32_t book, PocketDrops* drops) {
  *drops = PocketDrops{};
  PocketSave save{};
  save.book = book;
  save.out.discard = true;
  save.drops = drops;
  RunSave(&save);
  EndSave(&save);
}

int WritePocketBytes(uint32_t book, uint8_t** bytes, size_t* size, PocketDrops* drops) {
  PocketDrops local;
  PocketSave save{};
  save.book = book;
  save.drops = drops ? drops : &local;
  *save.drops = PocketDrops{};
  int ok = RunSave(&save);
  EndSave(&save);
  if (!ok) {
    Release(save.out.buffer.bytes);
    return 0;
  }
  *bytes = save.out.buffer.bytes;
  *size = save.out.buffer.count;
  return 1;
}

int WritePocketWorkbook(uint32_t book, FILE* file) {
  uint8_t* bytes = nullptr;
  size_t size = 0;
  if (!WritePocketBytes(book, &bytes, &size, nullptr)) return 0;
  // A short write shows in the file's error state, which the caller checks.
  std::fwrite(bytes, 1, size, file);
  Release(bytes);
  return 1;
}

const char* PocketDropName(int32_t reason) {
  static const char* const names[PocketDropKinds] = {
      "kept",
      "formulas calling a function outside the format's list",
      "cells of array formulas",
      "formulas referring past row 16384",
      "formulas referring to another workbook",
      "formulas with a token the format lacks",
      "formulas keeping typed spaces",
      "cells past row 16384",
      "names whose formula the format cannot hold",
      "chart and macro sheets saved empty",
      "comments",
      "drawing objects",
      "validation rules",
      "conditional formats",
      "merged areas",
  };
  return reason >= 0 && reason < PocketDropKinds ? names[reason] : "?";
}
