// The shell's global view blocks: the options that say what is shown and whether an entry is
// being typed, and the pixel edges of the client area that painting, hit testing and scrolling
// all measure from. MeasureView recomputes the edges; the frame's LayoutView calls it and then
// places the child windows along them.
#pragma once
#include <cstdint>

#include "model/range.h"
#include "platform/platform.h"

struct AppOptions {
  int32_t standardBarVisible;
  int32_t formatBarVisible;
  int32_t formulaBarVisible;
  int32_t statusBarVisible;
  int32_t statusFunction;  // aggregate shown in the status bar, 0 to 6
  int32_t editMode;        // 0 not editing, 1 typed entry, 2 in-cell edit
  int32_t endMode;         // 1 after the End key, until the next move
};

extern AppOptions Options;

// Device pixels of the client area; right and bottom edges are exclusive.
struct ViewMetrics {
  int32_t barsBottom;    // bottom of the command bands
  int32_t gridTop;       // top of the column header strip (same as barsBottom)
  int32_t cellsTop;      // first pixel row of cells
  int32_t cellsBottom;   // bottom of cells, top of the tab and scroll strip
  int32_t stripBottom;   // bottom of the strip, top of the status bar
  int32_t clientBottom;  // bottom of the client area
  int32_t gridLeft;      // 0
  int32_t cellsLeft;     // first pixel column of cells, right of the row headers
  int32_t tabsLeft;      // right edge of the tab scroller
  int32_t tabsRight;     // right edge of the tab strip, left edge of the horizontal bar
  int32_t cellsRight;    // right edge of cells, left edge of the vertical bar
  int32_t clientRight;   // right edge of the client area
  int32_t headerHeight;  // zoomed character height plus 1
  int32_t digitWidth;    // zoomed width of "0"; doubled while formulas are shown
  int32_t dpiX, dpiY;    // zoomed device resolution
  PlatformRect cellsRect;
};

extern ViewMetrics View;

// What the frame measures of its own children before the grid is laid out.
struct FrameSizes {
  int32_t clientWidth;
  int32_t clientHeight;
  int32_t barsHeight;       // the command bands above the grid
  int32_t statusHeight;     // the status bar, when shown
  int32_t scrollBarSize;    // width of the vertical bar, height of the horizontal one
  int32_t scrollArrowSize;  // width of a horizontal scroll arrow
};

// Recomputes View from the current workbook and sheet and the frame's sizes, and stores the
// current sheet's last visible row and column. With no workbook the cell edges are zero.
void MeasureView(const FrameSizes* frame);

// Whether the tab and scroll strip is shown for the current workbook and sheet.
int StripShown();

// Sizes on screen at the current zoom: 0 for a hidden row or column.
int32_t ColumnPixels(uint32_t book, uint32_t sheet, uint32_t col);
int32_t RowPixels(uint32_t book, uint32_t sheet, uint32_t row);
// Distance in pixels of the column's left edge (row's top edge) from column (row) 0, plus
// fraction/1024 of the column's width (fraction/256 of the row's height).
int32_t ColumnOffset(uint32_t book, uint32_t sheet, uint32_t col, uint32_t fraction = 0);
int32_t RowOffset(uint32_t book, uint32_t sheet, uint32_t row, uint32_t fraction = 0);

// The panes of the cell area. With frozen rows or columns the area splits at splitX, splitY;
// the frozen pane shows its own rows from frozenTopRow, the scrolled pane from topRow.
struct PaneGeometry {
  int32_t splitX;  // left edge of the scrolled columns
  int32_t splitY;  // top edge of the scrolled rows
};
void MeasurePanes(uint32_t book, uint32_t sheet, PaneGeometry* out);

// A reference being pointed at with the pen while a formula is typed: the stretch of the edit
// line its text occupies and the range, which the painter outlines.
struct PointModeState {
  int32_t active;
  int32_t selStart, selEnd;
  Range range;
  int32_t dragging;
  int32_t dragKind;  // 0 cells, 1 whole rows, 2 whole columns
  uint16_t anchorRow;
  uint8_t anchorCol;
};

extern PointModeState PointMode;

// Set by MeasureView: the next paint sends the scroll bars their ranges.
extern int ScrollBarsStale;

// The current workbook, the index of its current sheet and that sheet; valid only while a
// workbook is open, and the pointer only until the sheet array changes.
struct Sheet;
uint32_t CurrentBook();
uint32_t CurrentSheetIndex();
Sheet* CurrentSheet();

// MeasureView again with the frame sizes it was last given, then a repaint of the whole client
// area: what scrolling and sheet changes need.
void RemeasureView();
