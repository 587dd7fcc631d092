// Painting the current sheet into the main window's client area: headers, the four panes of
// cells with their backgrounds, borders, gridlines and text, the selection frame, and the sheet
// tabs. Every pixel of the update rectangle is painted once, directly; there is no backing copy.
#pragma once
#include <cstdint>

#include "model/range.h"
#include "platform/platform.h"

// The WM_PAINT work: paints what meets `update` of the current workbook's current sheet.
void PaintSheet(DrawContext* dc, const PlatformRect* update);

// A header cell: white lines on the left and top, black (active) or shadow lines on the right
// and bottom, light grey inside.
void HeaderBox(DrawContext* dc, int32_t x0, int32_t y0, int32_t x1, int32_t y1, int active);

// "A" to "Z", then two letters: "AA" for 26 up to "IV" for 255. Writes a terminated name.
void FormatHeaderColumn(uint32_t col, char16_t out[3]);

// Invalidates the screen area of `range` on the current sheet of `book` in each pane it shows
// in; with `outset` the area grows by 2 pixels left and top and 1 right and bottom, which covers
// the selection frame around it.
void InvalidateRange(uint32_t book, uint32_t sheet, const Range* range, int outset);

// Invalidates what a change of the cells in `range` may alter on screen: the whole width of its
// rows, since text overflows into empty neighbours.
void InvalidateChangedCells(uint32_t book, uint32_t sheet, const Range* range);

// The screen rectangle of one cell in the pane that shows it; 0 when it is in no pane.
int CellScreenRect(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col, PlatformRect* out);

// The first sheet whose tab is shown, for the current workbook; recomputed so that the current
// sheet's tab shows (on resize and sheet change).
extern uint32_t FirstShownTab;
void RecheckFirstTab(DrawContext* dc);

// The stroke of one border edge of a cell. For a horizontal edge `start` and `end` are the
// pixel columns it runs over and `last` the cell's last pixel row; vertical edges are the same
// turned. Returns nothing: pixels outside the styles' patterns are left alone.
void PaintBorderEdge(DrawContext* dc, int vertical, uint32_t style, Colour colour, int32_t start,
                     int32_t end, int32_t last);
