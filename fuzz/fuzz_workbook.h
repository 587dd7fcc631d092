// What the reader fuzz targets do with a workbook that a load left: make the text of the first
// cells of every sheet, which calculates the formulas they hold, so that loaded tokens run too.
#pragma once
#include <cstdint>

#include "formula/recalc.h"
#include "model/workbook.h"

inline void ShowFirstCells(uint32_t book) {
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    Sheet* sheet = GetSheet(book, s);
    for (uint32_t i = 0; i < sheet->cells.count && i < 256; i++)
      EnsureCellText(book, s, sheet->cells.cells[i]);
  }
}
