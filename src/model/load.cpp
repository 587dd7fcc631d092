// The load road shared by the file readers: cells appended in file order without calculation,
// then precedents and dirty marking once for the whole workbook.
#include "model/load.h"

#include <cstring>

#include "base/alloc.h"
#include "formula/recalc.h"
#include "model/hooks.h"
#include "model/workbook.h"

// Places a cell that did not arrive after the last one: a cell at the same place is emptied and
// reused, otherwise a slot opens at the sorted position.
static Cell* PlaceOutOfOrder(CellArray* array, uint32_t row, uint32_t col) {
  uint32_t index;
  if (FindCell(array, row, col, &index)) {
    Cell* cell = array->cells[index];
    ClearCellContents(cell);
    return cell;
  }
  Cell* cell = AllocateCell();
  if (!cell) return nullptr;
  if (!GrowCellArray(array)) {
    ReleaseCell(cell);
    return nullptr;
  }
  std::memmove(&array->cells[index + 1], &array->cells[index],
               (array->count - index) * sizeof(Cell*));
  cell->row = static_cast<uint16_t>(row);
  cell->col = static_cast<uint8_t>(col);
  array->cells[index] = cell;
  array->count++;
  return cell;
}

int LoadCell(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col, uint16_t xf, Value* value,
             FormulaTokens* tokens, int calculateOnLoad) {
  CellArray* array = &GetSheet(book, sheet)->cells;
  Cell* cell;
  const Cell* last = array->count ? array->cells[array->count - 1] : nullptr;
  if (!last || last->row < row || (last->row == row && last->col < col))
    cell = AppendCell(array, row, col);
  else
    cell = PlaceOutOfOrder(array, row, col);
  if (!cell) {
    FreeValue(value);
    *value = Value{};
    if (tokens) FreeTokens(tokens);
    return 0;
  }
  cell->xf = xf;
  cell->value = *value;
  *value = Value{};
  if (tokens && tokens->bytes) {
    cell->formula = *tokens;
    *tokens = FormulaTokens{};
    cell->state = calculateOnLoad ? CellDirty : CellCalculated;
  } else {
    cell->state = cell->value.tag == ValueEmpty ? CellShown : CellCalculated;
  }
  return 1;
}

// The file's own mark of a formula that must be worked out on every opening.
static bool MarkedVolatileInFile(const FormulaTokens* f) {
  return f->length >= 4 && FoldOpcode(f->bytes[0]) == ptgAttr && (f->bytes[1] & AttrVolatile);
}

int FinishLoad(uint32_t book) {
  Workbook* wb = GetWorkbook(book);
  int ok = 1;
  bool anyDirty = false, anyVolatile = false;
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    Sheet* sh = GetSheet(book, s);
    for (uint32_t i = 0; i < sh->cells.count; i++) {
      Cell* c = sh->cells.cells[i];
      if (c->xf >= wb->xfCount) c->xf = DefaultCellXf;
      if (!c->formula.bytes) continue;
      if (sh->kind == SheetWorksheet && !BuildPrecedents(book, s, c)) ok = 0;
      if (MarkedVolatileInFile(&c->formula)) anyVolatile = true;
      if (c->isVolatile) {
        c->state = CellDirty;
        anyVolatile = true;
      }
      if (c->state == CellDirty) anyDirty = true;
    }
  }
  if (anyDirty) MarkReadersOfDirtyFormulas(book);
  // Whatever the reader did to the workbook on the way, a fresh load matches its file unless a
  // volatile formula will change its values.
  wb->dirty = anyVolatile ? 1 : 0;
  return ok;
}
