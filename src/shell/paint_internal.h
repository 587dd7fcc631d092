// What the painting files share while one paint runs: the sheet being painted, its flags and
// the fonts of this paint, with the cell helpers both the row painter and the text painter use.
#pragma once
#include <cstdint>

#include "model/styles.h"
#include "model/workbook.h"
#include "platform/platform.h"

struct PaintState {
  DrawContext* dc;
  uint32_t book;
  uint32_t sheet;
  Workbook* w;
  Sheet* s;
  PlatformRect update;
  bool gridlines;
  bool showFormulas;
};

// The merged range holding the cell, or null.
const Range* FindMerge(const Sheet* s, uint32_t row, uint32_t col);
// A cell counts as empty when it is not stored or holds neither formula nor value.
bool CellIsEmpty(const Cell* cell);
// The Xf a cell paints with: its own when stored, else its row's or column's default.
const Xf* PaintXf(const PaintState* ps, const Cell* cell, uint32_t row, uint32_t col);

// One row strip of one pane: columns from firstCol, starting at x, until clipRight. Returns the
// x after the last column painted.
int32_t PaintCells(PaintState* ps, int32_t x, int32_t top, int32_t bottom, uint32_t firstCol,
                   uint32_t lastCol, uint32_t row, int32_t clipRight);

// How the text of one cell is to be painted.
struct CellText {
  const char16_t* text;
  int32_t length;
  uint16_t tag;         // the value's type: number, text, boolean, error
  const Xf* xf;         // the source cell's format
  uint16_t textColor;   // palette index, or AutomaticFontColor
  PlatformRect extent;  // the room the text is laid out in
  bool merged;          // the extent is a merged range
  bool overflow;        // the text may run past the cell into empty neighbours
  bool inverted;        // the cell is selected and not active
  bool gridlineRight;   // the cell's right edge is a gridline, which overflow may erase
  bool nextEmpty;       // the cell to the right is empty
  bool nextMerged;      // the cell to the right lies in a merged range
  bool patterned;       // the painted cell has a fill pattern
  uint32_t col;         // the painted cell's column
  uint32_t sourceCol;   // the column the text belongs to
};

// Paints the text clipped to r; returns 1 when it erased the gridline at r's right edge.
int PaintCellText(PaintState* ps, const PlatformRect& r, const CellText* t);
