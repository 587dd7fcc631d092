// Moving the active cell and the selection from keys and presses: the plain and Shift steps,
// the jumps to the edge of a block of data, paging, scrolling the active cell into view, and the
// presses on cells, headers, the corner and the sheet tabs.
#pragma once
#include <cstdint>

#include "model/range.h"

enum HitCode : int32_t {
  HitNothing = 0,
  HitCorner = 1,
  HitColumnHeader = 2,
  HitRowHeader = 3,
  HitCell = 4,
  HitTab = 5,
  HitRightOfCells = 6,
  HitStrip = 7,
  HitBottomRight = 8,
};

struct HitResult {
  HitCode code;
  uint32_t row, col;  // the cell, row or column under the point
  uint32_t sheet;     // HitTab: the sheet whose tab is under the point
};

// What is under a client point.
HitCode HitTest(int32_t x, int32_t y, HitResult* out);

// The one road to change the selection of the current sheet: grows `range` until it cuts no
// merged range, repaints what changed and, with moveActive, makes (row, col) the active cell,
// scrolling it into view with `scroll`. Ends any entry without storing it.
void SelectRange(const Range* range, int moveActive, uint32_t row, uint32_t col, int scroll);
void SelectCell(uint32_t row, uint32_t col, int scroll);
// Scrolls the current sheet so that the cell is wholly in view.
void ScrollIntoView(uint32_t row, uint32_t col);
// Makes `sheet` of the current workbook current and lays the view out again.
void SetActiveSheet(uint32_t sheet);

// A key pressed on the grid; returns 1 when it was handled.
int GridKeyDown(int32_t key, uint32_t modifiers);
// An arrow key's move: a plain step, or with Shift the selection step; Ctrl or End mode jump to
// the edge of the data.
void ArrowMove(int32_t key, uint32_t modifiers);
// The cell one step from (row, col) in a direction, over hidden rows and columns and past merged
// ranges; returns 0 when there is none.
int StepCell(int32_t dRow, int32_t dCol, uint32_t* row, uint32_t* col);
// A press of the left button at a client point.
int GridButtonDown(int32_t x, int32_t y, uint32_t modifiers);
// Scroll bar codes: 0 line up, 1 line down, 2 page up, 3 page down, 4 and 5 thumb at position.
void ScrollView(int vertical, int32_t code, int32_t position);

// The merged range holding the cell, or null; the ranges are the current sheet's.
const Range* MergeAt(uint32_t row, uint32_t col);
// Grows a range until no merged range is cut by it.
void GrowOverMerges(Range* range);
