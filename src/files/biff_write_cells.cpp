// The rows and cells of a sheet substream, in blocks of 32 rows: the ROW records of the block,
// then its cells, then a DBCELL with the offsets of the rows. Cells take their smallest form:
// runs of blanks and of RK numbers share one MULBLANK or MULRK record, other numbers are RK or
// NUMBER, texts LABELSST (BIFF8) or LABEL (BIFF5), and formulas FORMULA with STRING for a text
// result. The cells of an array formula all hold ptgExp to their anchor, which is followed by the
// ARRAY record with the formula itself.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/biff_write_internal.h"
#include "model/workbook.h"

static uint16_t CellXf(const BiffWriter* w, const Cell* c) {
  return c->xf < GetWorkbook(w->book)->xfCount ? c->xf : DefaultCellXf;
}

static void WriteRowRecord(BiffWriter* w, const Sheet* s, uint32_t row, uint32_t firstCol,
                           uint32_t endCol) {
  RowColInfo info;
  GetRowInfo(&s->rows, row, &info);
  uint16_t standard = (s->flags & SheetStandardHeight) ? StandardRowHeight : s->defaultRowHeight;
  uint16_t height = (info.flags & RowColDefault) ? standard : info.size;
  uint16_t options = 0x100;
  if (info.flags & RowColHidden) options |= 0x20;
  if (info.flags & RowHeightByHand) options |= 0x40;
  if (uint8_t* p = BeginRecord(w, 0x0208, 16)) {
    WriteU16(p, static_cast<uint16_t>(row));
    WriteU16(p + 2, static_cast<uint16_t>(firstCol));
    WriteU16(p + 4, static_cast<uint16_t>(endCol));
    WriteU16(p + 6, height & 0x7FFF);
    WriteU32(p + 8, 0);
    WriteU16(p + 12, options);
    WriteU16(p + 14, DefaultCellXf);
  }
}

static bool IsBlank(const Cell* c) {
  return !c->formula.bytes && c->value.tag != ValueNumber && c->value.tag != ValueText &&
         c->value.tag != ValueBoolean && c->value.tag != ValueError;
}

static bool IsRkNumber(const Cell* c, uint32_t* rk) {
  return !c->formula.bytes && c->value.tag == ValueNumber && EncodeRk(c->value.number, rk) >= 0;
}

static void WriteHead(uint8_t* p, const BiffWriter* w, const Cell* c) {
  WriteU16(p, c->row);
  WriteU16(p + 2, c->col);
  WriteU16(p + 4, CellXf(w, c));
}

// A cell's value in its own record (also a formula cell whose formula cannot be written).
static void WriteValueCell(BiffWriter* w, const Cell* c) {
  const Value& v = c->value;
  uint32_t rk;
  if (v.tag == ValueNumber) {
    if (EncodeRk(v.number, &rk) >= 0) {
      if (uint8_t* p = BeginRecord(w, 0x027E, 10)) {
        WriteHead(p, w, c);
        WriteU32(p + 6, rk);
      }
    } else if (uint8_t* p = BeginRecord(w, 0x0203, 14)) {
      WriteHead(p, w, c);
      WriteDouble(p + 6, v.number);
    }
  } else if (v.tag == ValueText) {
    const char16_t* text = v.text ? v.text : u"";
    uint32_t index = 0;
    if (w->version >= 8 && FindSstText(w, text, &index)) {
      if (uint8_t* p = BeginRecord(w, 0x00FD, 10)) {
        WriteHead(p, w, c);
        WriteU32(p + 6, index);
      }
    } else {
      uint8_t head[6];
      WriteHead(head, w, c);
      WriteStringRecord(w, 0x0204, head, 6, text, TextLength(text));
    }
  } else if (v.tag == ValueBoolean || v.tag == ValueError) {
    if (uint8_t* p = BeginRecord(w, 0x0205, 8)) {
      WriteHead(p, w, c);
      p[6] = v.tag == ValueBoolean ? (v.boolean ? 1 : 0) : ErrorToBiff(v.error);
      p[7] = v.tag == ValueError ? 1 : 0;
    }
  } else if (uint8_t* p = BeginRecord(w, 0x0201, 6)) {
    WriteHead(p, w, c);
  }
}

// The array block whose range holds the cell, or null.
static const ArrayFormula* ArrayOf(const Sheet* s, const Cell* c) {
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++)
    if (RangeContains(&s->arrayFormulas[i].range, c->row, c->col)) return &s->arrayFormulas[i];
  return nullptr;
}

// The 8-byte cached result of a formula; true when a STRING record must follow.
static bool PutResult(uint8_t* p, const Value& v) {
  std::memset(p, 0, 8);
  p[6] = p[7] = 0xFF;
  switch (v.tag) {
    case ValueNumber:
      WriteDouble(p, v.number);
      return false;
    case ValueText:
      return true;
    case ValueBoolean:
      p[0] = 1;
      p[2] = v.boolean ? 1 : 0;
      return false;
    case ValueError:
      p[0] = 2;
      p[2] = ErrorToBiff(v.error);
      return false;
    default:
      p[0] = 3;
      return false;
  }
}

static void WriteFormulaCell(BiffWriter* w, const Sheet* s, const Cell* c) {
  FormulaTokens tokens = c->formula;
  FormulaTokens narrowed{};
  if (w->version < 8) {
    int converted = DowngradeTokens(w, &c->formula, &narrowed);
    if (converted == 0) {
      w->failed = true;
      return;
    }
    if (converted < 0) {
      w->report.formulasAsValues++;
      WriteValueCell(w, c);
      return;
    }
    tokens = narrowed;
  }
  const ArrayFormula* array = ArrayOf(s, c);
  uint8_t expression[5];
  FormulaTokens written = tokens;
  if (array) {
    expression[0] = ptgExp;
    WriteU16(expression + 1, array->range.firstRow);
    WriteU16(expression + 3, array->range.firstCol);
    written = FormulaTokens{5, 0, expression};
  }
  uint32_t tokenBytes = written.length + static_cast<uint32_t>(written.extraLength);
  uint8_t* p = BeginRecord(w, 0x0006, 22 + tokenBytes);
  if (p) {
    WriteHead(p, w, c);
    bool text = PutResult(p + 6, c->value);
    WriteU16(p + 14, c->isVolatile ? 1 : 0);
    WriteU32(p + 16, 0);
    WriteU16(p + 20, written.length);
    std::memcpy(p + 22, written.bytes, tokenBytes);
    if (array && array->range.firstRow == c->row && array->range.firstCol == c->col) {
      tokenBytes = tokens.length + static_cast<uint32_t>(tokens.extraLength);
      if (uint8_t* a = BeginRecord(w, 0x0221, 14 + tokenBytes)) {
        WriteU16(a, array->range.firstRow);
        WriteU16(a + 2, array->range.lastRow);
        a[4] = array->range.firstCol;
        a[5] = array->range.lastCol;
        WriteU16(a + 6, 0);
        WriteU32(a + 8, 0);
        WriteU16(a + 12, tokens.length);
        std::memcpy(a + 14, tokens.bytes, tokenBytes);
      }
    }
    if (text) {
      const char16_t* t = c->value.text ? c->value.text : u"";
      WriteStringRecord(w, 0x0207, nullptr, 0, t, TextLength(t));
    }
  }
  FreeTokens(&narrowed);
}

// Writes the cells of one row from `i` on; returns the index behind them.
static uint32_t WriteRowCells(BiffWriter* w, const Sheet* s, uint32_t i) {
  const CellArray& cells = s->cells;
  uint32_t row = cells.cells[i]->row;
  while (i < cells.count && cells.cells[i]->row == row && !w->failed) {
    const Cell* c = cells.cells[i];
    // The run of cells of the same multiple form in adjacent columns.
    uint32_t rk;
    bool blank = IsBlank(c), number = IsRkNumber(c, &rk);
    uint32_t end = i + 1;
    if (blank || number)
      while (end < cells.count && cells.cells[end]->row == row &&
             cells.cells[end]->col == cells.cells[end - 1]->col + 1 &&
             (blank ? IsBlank(cells.cells[end]) : IsRkNumber(cells.cells[end], &rk)))
        end++;
    uint32_t count = end - i;
    if (c->formula.bytes) {
      WriteFormulaCell(w, s, c);
    } else if (count == 1) {
      WriteValueCell(w, c);
    } else {
      uint32_t size = blank ? 2 : 6;
      uint8_t* p = BeginRecord(w, blank ? 0x00BE : 0x00BD, 6 + size * count);
      if (!p) return end;
      WriteU16(p, static_cast<uint16_t>(row));
      WriteU16(p + 2, c->col);
      for (uint32_t k = 0; k < count; k++) {
        const Cell* cell = cells.cells[i + k];
        uint8_t* q = p + 4 + size * k;
        WriteU16(q, CellXf(w, cell));
        if (!blank) {
          EncodeRk(cell->value.number, &rk);
          WriteU32(q + 2, rk);
        }
      }
      WriteU16(p + 4 + size * count, cells.cells[end - 1]->col);
    }
    i = end;
  }
  return i;
}

void WriteSheetCells(BiffWriter* w, uint32_t sheet, uint32_t* blockPositions) {
  const Sheet* s = GetSheet(w->book, sheet);
  const CellArray& cells = s->cells;
  const RowArray& rows = s->rows;
  uint32_t cellCount = w->cellCount, rowCount = w->rowCount;
  uint32_t ci = 0, ri = 0, block = 0;
  while ((ci < cellCount || ri < rowCount) && !w->failed) {
    uint32_t cellRow = ci < cellCount ? cells.cells[ci]->row : UINT32_MAX;
    uint32_t recordRow = ri < rowCount ? rows.records[ri]->row : UINT32_MAX;
    uint32_t blockEnd = ((cellRow < recordRow ? cellRow : recordRow) / 32 + 1) * 32;
    // The ROW records of the block: rows with cells and rows with a record of their own.
    uint32_t firstRowAt = w->size;
    uint32_t cj = ci, rj = ri;
    for (;;) {
      cellRow = cj < cellCount ? cells.cells[cj]->row : UINT32_MAX;
      recordRow = rj < rowCount ? rows.records[rj]->row : UINT32_MAX;
      uint32_t row = cellRow < recordRow ? cellRow : recordRow;
      if (row >= blockEnd) break;
      uint32_t firstCol = 0, endCol = 0;
      if (cellRow == row) {
        firstCol = cells.cells[cj]->col;
        while (cj < cellCount && cells.cells[cj]->row == row) cj++;
        endCol = cells.cells[cj - 1]->col + 1u;
      }
      if (recordRow == row) rj++;
      WriteRowRecord(w, s, row, firstCol, endCol);
    }
    // The cells, noting where each row's first cell lies for the DBCELL.
    uint16_t offsets[32];
    uint32_t rowIndex = 0, previous = firstRowAt + 20;
    while (ci < cj && !w->failed) {
      uint32_t at = w->size;
      if (rowIndex < 32) offsets[rowIndex++] = static_cast<uint16_t>(at - previous);
      previous = at;
      ci = WriteRowCells(w, s, ci);
    }
    ri = rj;
    uint32_t dbcellAt = w->size;
    blockPositions[block++] = dbcellAt;
    if (uint8_t* p = BeginRecord(w, 0x00D7, 4 + 2 * rowIndex)) {
      WriteU32(p, dbcellAt - firstRowAt);
      for (uint32_t k = 0; k < rowIndex; k++) WriteU16(p + 4 + 2 * k, offsets[k]);
    }
  }
}
