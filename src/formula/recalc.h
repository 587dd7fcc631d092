// Recalculation: lazy, with no calculation chain. A formula cell knows only what it reads (its
// precedents); a change marks the cells that read it dirty, and a dirty cell is worked out when
// somebody wants its value, by a depth-first walk over its precedents on an explicit stack.
#pragma once
#include <cstdint>

#include "model/cells.h"
#include "model/range.h"

// BuildPrecedents, CalculateCell and MarkDependents are declared with the model's hooks
// (model/hooks.h), since the cell store calls them.
#include "model/hooks.h"

// Marks everything that reads `range` of (book, sheet) dirty, transitively.
void PropagateDirty(uint32_t book, uint32_t sheet, const Range* range);
// Marks the readers of every dirty formula of `book`'s worksheets, transitively, in one marking:
// the end of a load, where many cells may start dirty at once.
void MarkReadersOfDirtyFormulas(uint32_t book);
// Marks every volatile formula cell of the current workbook's worksheets dirty, with the cells
// that read them.
void RefreshVolatiles();
// Marks every formula cell of one sheet of the current workbook dirty, without scanning.
void DirtySheet(uint32_t sheet);
// DirtySheet on each worksheet of the current workbook, then a repaint of the sheet on show.
void RecalculateWorkbook();
// Calculates the cell if needed and makes its display text; the state becomes CellShown. A number
// prints through the number format of the cell's Xf, whose colour section, if any, sets
// `textColor` over the font's colour. The painter passes its measure and the cell's width, so that
// General can shrink and a "*" fill can fill the cell.
struct TextMeasure;
int EnsureCellText(uint32_t book, uint32_t sheet, Cell* cell, const TextMeasure* measure = nullptr,
                   int32_t availableWidth = 0);
// The text of a number cell's value through its Xf's number format, as EnsureCellText makes it,
// but without keeping it: the format engine's buffer, valid until its next call. Null for a
// number that has no text under its format (a date outside the calendar), which shows as "#".
// `color` receives the format's colour, if it names one.
const char16_t* CellNumberText(uint32_t book, const Cell* cell, const TextMeasure* measure,
                               int32_t availableWidth, uint8_t* color);

// Invalidation of the screen area of a range, which the shell installs; no-op without a shell.
using InvalidateRangeHook = void (*)(uint32_t book, uint32_t sheet, const Range* range);
void SetInvalidateRangeHook(InvalidateRangeHook hook);
