// Recalculation. Until the walk over precedents is in place, a formula cell keeps its cached
// result and nothing depends on anything.
#include "formula/recalc.h"

int BuildPrecedents(uint32_t, uint32_t, Cell* cell) {
  cell->precedentCount = 0;
  cell->isVolatile = 0;
  return 1;
}

int CalculateCell(uint32_t, uint32_t, Cell* cell) {
  if (cell->state < CellCalculated) cell->state = CellCalculated;
  return 1;
}

void MarkDependents(uint32_t, uint32_t, Cell*, int) {}
