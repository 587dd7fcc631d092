// Reference rewriting: the decision table that moves, stretches, shrinks or deletes one reference
// when a block of cells moves, its walk over token strings, and ShiftRange, which moves the block
// with what the sheet anchors to its cells and then rewrites every formula and name of the
// workbook. Records of later subsystems (rules, objects, charts, filters, print areas) are handed
// to their hooks in model/hooks.h at the points where they must follow.
#include "formula/rewrite.h"

#include <algorithm>
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "formula/recalc.h"
#include "functions/table.h"
#include "model/hooks.h"
#include "model/names.h"
#include "model/workbook.h"

// Corner weights: top left, top right, bottom left, bottom right. A corner in the source block
// weighs the high nibble, a corner only in the block where it lands the low one.
static const uint8_t InSourceWeight[4] = {128, 64, 32, 16};
static const uint8_t InLandingWeight[4] = {8, 4, 2, 1};

void AdjustReference(const Range* source, int32_t rowDelta, int32_t colDelta, Range* reference,
                     int* changed, int* deleted) {
  *changed = 0;
  *deleted = 0;
  const Range in = *reference;
  // A whole axis has no edge to move: it covers the block before and after.
  if (in.firstRow == 0 && in.lastRow == MaxRow) rowDelta = 0;
  if (in.firstCol == 0 && in.lastCol == MaxCol) colDelta = 0;
  Range landing = *source;
  MoveRange(&landing, rowDelta, colDelta);

  const uint32_t rows[4] = {in.firstRow, in.firstRow, in.lastRow, in.lastRow};
  const uint32_t cols[4] = {in.firstCol, in.lastCol, in.firstCol, in.lastCol};
  uint32_t code = 0;
  for (int i = 0; i < 4; i++) {
    if (RangeContains(source, rows[i], cols[i]))
      code += InSourceWeight[i];
    else if (RangeContains(&landing, rows[i], cols[i]))
      code += InLandingWeight[i];
  }

  // Worked in signed arithmetic and cut back to the fields' widths, which wrap as MoveRange does.
  int32_t top = in.firstRow, bottom = in.lastRow, left = in.firstCol, right = in.lastCol;
  switch (code) {
    case 240:
      top += rowDelta, bottom += rowDelta, left += colDelta, right += colDelta;
      break;
    case 15:
      *changed = 1;
      *deleted = 1;
      return;
    case 48:
      bottom += rowDelta;
      break;
    case 80:
      right += colDelta;
      break;
    case 60:
      top = std::max<int32_t>(top + rowDelta, landing.firstRow);
      bottom += rowDelta;
      break;
    case 195:
    case 130:
      top += rowDelta;
      bottom = std::min<int32_t>(bottom + rowDelta, landing.lastRow);
      break;
    case 90:
      left = std::max<int32_t>(left + colDelta, landing.firstCol);
      right += colDelta;
      break;
    case 165:
    case 132:
      left += colDelta;
      right = std::min<int32_t>(right + colDelta, landing.lastCol);
      break;
    case 12:
      top = landing.lastRow + 1;
      break;
    case 3:
      bottom = landing.firstRow - 1;
      break;
    case 10:
      left = landing.lastCol + 1;
      break;
    case 5:
      right = landing.firstCol - 1;
      break;
    default:
      return;
  }
  Range out{static_cast<uint16_t>(top), static_cast<uint16_t>(bottom), static_cast<uint8_t>(left),
            static_cast<uint8_t>(right)};
  if (!EqualRanges(&out, &in)) {
    *reference = out;
    *changed = 1;
  }
}

// True when 3-D link `link` of `book` is a link of the workbook to itself spanning exactly
// `blockSheet`. Links to other files are never resolved here, since that could load a workbook.
static bool LinkIsBlockSheet(uint32_t book, uint32_t link, uint32_t blockSheet) {
  if (!IsSelfLink(book, link)) return false;
  ResolvedLink resolved{book, 0, 0, 0};
  if (!ResolveLink(static_cast<int32_t>(link), &resolved)) return false;
  return resolved.book == book && resolved.firstSheet == static_cast<int32_t>(blockSheet) &&
         resolved.lastSheet == resolved.firstSheet;
}

// The one walk behind RewriteTokens and RewriteTokens3d. Plain references are taken only with
// `plainToo`. ptgRefN and ptgAreaN are left alone: they hold offsets from the cell that uses
// them, and no cell formula carries them.
static int RewriteWalk(uint32_t book, bool plainToo, uint32_t blockSheet, FormulaTokens* tokens,
                       const Range* source, int32_t rowDelta, int32_t colDelta) {
  if (!tokens->bytes) return 0;
  uint8_t* b = tokens->bytes;
  int any = 0;
  for (uint32_t p = 0; p < tokens->length; p = NextTokenPosition(b, p)) {
    uint8_t base = FoldOpcode(b[p]);
    uint32_t at;
    uint8_t toError;  // what turns the opcode into its #REF! form, keeping the class bits
    if (base == ptgRef || base == ptgArea) {
      if (!plainToo) continue;
      at = p + 1;
      toError = ptgRefErr - ptgRef;
    } else if (base == ptgRef3d || base == ptgArea3d) {
      if (!LinkIsBlockSheet(book, ReadU16(b + p + 1), blockSheet)) continue;
      at = p + 3;
      toError = ptgRefErr3d - ptgRef3d;
    } else {
      continue;
    }
    bool area = base == ptgArea || base == ptgArea3d;
    Range r = area ? Range{ReadU16(b + at), ReadU16(b + at + 2), b[at + 4], b[at + 6]}
                   : Range{ReadU16(b + at), ReadU16(b + at), b[at + 2], b[at + 2]};
    int changed = 0, deleted = 0;
    AdjustReference(source, rowDelta, colDelta, &r, &changed, &deleted);
    if (!changed) continue;
    any = 1;
    if (deleted) {
      b[p] = static_cast<uint8_t>(b[p] + toError);
    } else if (area) {
      WriteU16(b + at, r.firstRow);
      WriteU16(b + at + 2, r.lastRow);
      b[at + 4] = r.firstCol;
      b[at + 6] = r.lastCol;
    } else {
      // A single cell only ever moves whole or goes, so its two corners stay one.
      WriteU16(b + at, r.firstRow);
      b[at + 2] = r.firstCol;
    }
  }
  return any;
}

int RewriteTokens(uint32_t book, uint32_t sheet, uint32_t blockSheet, FormulaTokens* tokens,
                  const Range* source, int32_t rowDelta, int32_t colDelta) {
  return RewriteWalk(book, sheet == blockSheet, blockSheet, tokens, source, rowDelta, colDelta);
}

int RewriteTokens3d(uint32_t book, uint32_t blockSheet, FormulaTokens* tokens, const Range* source,
                    int32_t rowDelta, int32_t colDelta) {
  return RewriteWalk(book, false, blockSheet, tokens, source, rowDelta, colDelta);
}

// --- Moving the block ------------------------------------------------------------------------

static bool CellBefore(const Cell* a, const Cell* b) {
  return a->row != b->row ? a->row < b->row : a->col < b->col;
}

// Moves the cells of the block, then restores the order the binary search needs if the move
// broke it: a block narrower than the sheet that moves by rows, or one that wraps, does.
static void MoveCells(Sheet* s, const Range* source, int32_t rowDelta, int32_t colDelta) {
  CellArray* array = &s->cells;
  uint32_t i;
  FindCell(array, source->firstRow, source->firstCol, &i);
  // Cells behind i have moved already; the one at i has not, so its row still says where the
  // block ends.
  for (; i < array->count && array->cells[i]->row <= source->lastRow; i++) {
    Cell* c = array->cells[i];
    if (c->col < source->firstCol || c->col > source->lastCol) continue;
    c->row = static_cast<uint16_t>(c->row + rowDelta);
    c->col = static_cast<uint8_t>(c->col + colDelta);
  }
  for (i = 1; i < array->count; i++) {
    if (!CellBefore(array->cells[i - 1], array->cells[i])) {
      std::sort(array->cells, array->cells + array->count, CellBefore);
      break;
    }
  }
}

// What lies in the landing area and did not come from the block was overwritten.
static bool Overwritten(const Range* source, const Range* landing, uint32_t row, uint32_t col) {
  return !RangeContains(source, row, col) && RangeContains(landing, row, col);
}

// Array formulas and merges move whole with their top left corner; those left in the landing
// area go, so that none overlaps what arrived.
static void MoveArraysAndMerges(Sheet* s, const Range* source, const Range* landing,
                                int32_t rowDelta, int32_t colDelta) {
  uint32_t kept = 0;
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++) {
    ArrayFormula* a = &s->arrayFormulas[i];
    if (RangeContains(source, a->range.firstRow, a->range.firstCol)) {
      MoveRange(&a->range, rowDelta, colDelta);
    } else if (Overwritten(source, landing, a->range.firstRow, a->range.firstCol)) {
      FreeTokens(&a->formula);
      continue;
    }
    s->arrayFormulas[kept++] = *a;
  }
  s->arrayFormulaCount = kept;

  kept = 0;
  for (uint32_t i = 0; i < s->mergeCount; i++) {
    Range m = s->merges[i];
    if (RangeContains(source, m.firstRow, m.firstCol))
      MoveRange(&m, rowDelta, colDelta);
    else if (Overwritten(source, landing, m.firstRow, m.firstCol))
      continue;
    s->merges[kept++] = m;
  }
  s->mergeCount = kept;
}

static void MoveComments(Sheet* s, const Range* source, const Range* landing, int32_t rowDelta,
                         int32_t colDelta) {
  uint32_t kept = 0;
  for (uint32_t i = 0; i < s->commentCount; i++) {
    CellComment c = s->comments[i];
    if (RangeContains(source, c.row, c.col)) {
      c.row = static_cast<uint16_t>(c.row + rowDelta);
      c.col = static_cast<uint8_t>(c.col + colDelta);
    } else if (Overwritten(source, landing, c.row, c.col)) {
      Release(c.text);
      continue;
    }
    s->comments[kept++] = c;
  }
  s->commentCount = kept;
}

// Row or column records of whole rows or columns [first, last] move by delta; those of the
// landing band [landFirst, landLast] that stayed belong to rows that were overwritten and go.
template <typename Record, typename Key>
static void MoveRecords(Record** records, uint32_t* count, Key Record::*key, uint32_t first,
                        uint32_t last, uint32_t landFirst, uint32_t landLast, int32_t delta) {
  uint32_t kept = 0;
  for (uint32_t i = 0; i < *count; i++) {
    Record* r = records[i];
    uint32_t at = r->*key;
    if (at >= first && at <= last) {
      r->*key = static_cast<Key>(at + delta);
    } else if (at >= landFirst && at <= landLast) {
      Release(r);
      continue;
    }
    records[kept++] = r;
  }
  *count = kept;
  auto before = [key](const Record* a, const Record* b) { return a->*key < b->*key; };
  if (!std::is_sorted(records, records + kept, before)) std::sort(records, records + kept, before);
}

// The frozen rows are the band [0, frozenRow - 1]: it follows the table like a reference, and the
// scrolled pane keeps its distance below it.
static void AdjustFrozenRows(Sheet* s, const Range* source, const Range* landing,
                             int32_t rowDelta) {
  if (!(s->flags & SheetPanesFrozen) || s->frozenRow == 0) return;
  Range band{0, static_cast<uint16_t>(s->frozenRow - 1), 0, MaxCol};
  int changed = 0, deleted = 0;
  AdjustReference(source, rowDelta, 0, &band, &changed, &deleted);
  if (!changed) return;
  int32_t frozen = deleted ? landing->firstRow : band.lastRow + 1;
  int32_t top = std::clamp<int32_t>(s->topRow + frozen - s->frozenRow, frozen, MaxRow);
  s->frozenRow = static_cast<uint16_t>(frozen);
  s->topRow = static_cast<uint16_t>(top);
  if (s->paneTopRow >= frozen) s->paneTopRow = static_cast<uint16_t>(frozen ? frozen - 1 : 0);
}

static void AdjustFrozenColumns(Sheet* s, const Range* source, const Range* landing,
                                int32_t colDelta) {
  if (!(s->flags & SheetPanesFrozen) || s->frozenCol == 0) return;
  Range band{0, MaxRow, 0, static_cast<uint8_t>(s->frozenCol - 1)};
  int changed = 0, deleted = 0;
  AdjustReference(source, 0, colDelta, &band, &changed, &deleted);
  if (!changed) return;
  int32_t frozen = deleted ? landing->firstCol : band.lastCol + 1;
  int32_t left = std::clamp<int32_t>(s->leftCol + frozen - s->frozenCol, frozen, MaxCol);
  s->frozenCol = static_cast<uint8_t>(frozen);
  s->leftCol = static_cast<uint8_t>(left);
  if (s->paneLeftCol >= frozen) s->paneLeftCol = static_cast<uint8_t>(frozen ? frozen - 1 : 0);
}

static void MoveRowsAndColumns(Sheet* s, const Range* source, const Range* landing,
                               int32_t rowDelta, int32_t colDelta) {
  if (source->firstCol == 0 && source->lastCol == MaxCol && rowDelta != 0) {
    MoveRecords(s->rows.records, &s->rows.count, &RowRecord::row, source->firstRow, source->lastRow,
                landing->firstRow, landing->lastRow, rowDelta);
    AdjustFrozenRows(s, source, landing, rowDelta);
  }
  if (source->firstRow == 0 && source->lastRow == MaxRow && colDelta != 0) {
    MoveRecords(s->columns.records, &s->columns.count, &ColumnRecord::col, source->firstCol,
                source->lastCol, landing->firstCol, landing->lastCol, colDelta);
    AdjustFrozenColumns(s, source, landing, colDelta);
  }
}

// Rewrites the formulas of every sheet with cells. The sheet is reached afresh for each cell,
// since marking may resolve links and so move the workbook array.
static void RewriteCellFormulas(uint32_t book, uint32_t blockSheet, const Range* source,
                                const Range* landing, int32_t rowDelta, int32_t colDelta) {
  for (uint32_t sheet = 0; sheet < GetWorkbook(book)->sheetCount; sheet++) {
    if (!SheetHasCells(GetSheet(book, sheet))) continue;
    bool worksheet = GetSheet(book, sheet)->kind == SheetWorksheet;
    for (uint32_t i = 0; i < GetSheet(book, sheet)->cells.count; i++) {
      Cell* cell = GetSheet(book, sheet)->cells.cells[i];
      if (!cell->formula.bytes) continue;
      bool changed =
          RewriteTokens(book, sheet, blockSheet, &cell->formula, source, rowDelta, colDelta) != 0;
      // Every cell now in the landing area came from the block, which was cleared before.
      bool moved = sheet == blockSheet && RangeContains(landing, cell->row, cell->col);
      bool positional = moved && TokensCallFunctionWith(&cell->formula, FunctionPositional);
      if (changed && worksheet) BuildPrecedents(book, sheet, cell);
      if (!changed && !positional) continue;
      if (worksheet)
        MarkDependents(book, sheet, cell, 1);
      else if (positional)
        cell->state = CellDirty;
    }
  }
}

static void RewriteNames(uint32_t book, uint32_t blockSheet, const Range* source, int32_t rowDelta,
                         int32_t colDelta) {
  for (uint32_t i = 0; i < GetWorkbook(book)->nameCount; i++) {
    // A name's plain references mean the sheet where the name is used, so only the 3-D ones can
    // point into the block.
    FormulaTokens* tokens = &GetWorkbook(book)->names[i].formula;
    if (RewriteTokens3d(book, blockSheet, tokens, source, rowDelta, colDelta))
      RenewNameUsers(book, i);
  }
}

void ShiftRange(uint32_t book, uint32_t sheet, const Range* source, int32_t rowDelta,
                int32_t colDelta) {
  const Range block = *source;  // the caller's range may live in what is about to change
  Range landing = block;
  MoveRange(&landing, rowDelta, colDelta);

  MoveCells(GetSheet(book, sheet), &block, rowDelta, colDelta);
  GetWorkbook(book)->dirty = 1;
  MoveArraysAndMerges(GetSheet(book, sheet), &block, &landing, rowDelta, colDelta);
  ShiftValidationAndConditionalAreas(book, sheet, &block, rowDelta, colDelta);
  MoveRowsAndColumns(GetSheet(book, sheet), &block, &landing, rowDelta, colDelta);
  MoveComments(GetSheet(book, sheet), &block, &landing, rowDelta, colDelta);
  ShiftSheetObjects(book, sheet, &block, rowDelta, colDelta);

  RewriteCellFormulas(book, sheet, &block, &landing, rowDelta, colDelta);
  RewriteRuleAndChartTokens(book, sheet, &block, rowDelta, colDelta);
  ShiftFilterAndPrintAreas(book, sheet, &block, rowDelta, colDelta);
  RewriteNames(book, sheet, &block, rowDelta, colDelta);

  // A reader whose reference kept its shape may still cover cells that left or arrived, as one
  // that reaches into the block without containing a corner of it.
  if (GetSheet(book, sheet)->kind == SheetWorksheet) {
    PropagateDirty(book, sheet, &block);
    PropagateDirty(book, sheet, &landing);
  }
}
