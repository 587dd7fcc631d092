// Undo: a bounded stack of snapshots. Before a change the command pushes a record saying what kind
// of change comes, with a copy of what it will lose; one undo step pops the record and puts things
// back. There is no redo. At most 16 records are kept: a seventeenth drops the oldest.
#pragma once
#include <cstdint>

#include "model/cells.h"
#include "model/range.h"
#include "model/workbook.h"

constexpr uint32_t UndoDepth = 16;

// What a record undoes; the numbers are fixed by the commands that record them.
enum UndoKind : int32_t {
  UndoCellContents = 0,  // 0 to 3, 31 and 36 to 43: contents or formats of a region
  UndoDeleteShiftUp = 4,
  UndoDeleteShiftLeft = 5,
  UndoDeleteSheet = 6,
  UndoDeleteChartSheet = 7,
  UndoInsertCells = 8,
  UndoInsertRows = 9,
  UndoInsertColumns = 10,
  UndoInsertWorksheet = 11,
  UndoInsertChartSheet = 12,
  UndoAddName = 13,
  UndoChangeName = 14,
  UndoDeleteName = 15,
  UndoColumnFormat = 16,
  UndoRowHeight = 17,    // 17 to 19: row height, hide, show
  UndoColumnWidth = 20,  // 20 to 22: column width, hide, show
  UndoSheetWindow = 23,  // 23 to 30 and 34: window and options of a sheet
  UndoDeleteMacroSheet = 32,
  UndoInsertMacroSheet = 33,
  UndoMoveRange = 35,
  UndoHideSheet = 44,
  UndoShowSheet = 45,
};
constexpr int32_t UndoKindCount = 46;

// Makes room and fills the fixed fields of a record for (book, sheet): the sheet's name, zoom,
// flags, default sizes, pane, scroll, active cell, selection and visibility; for the structural
// kinds and the row and column kinds a copy of the row and column records; for a sheet deletion
// the whole sheet, with the names and self links that the deletion renumbers. Returns 0 when
// memory runs out, with the stack as it was: the command then stops before changing anything.
int PushUndo(uint32_t book, uint32_t sheet, int32_t kind);
// PushUndo and a deep copy of the cells (formulas, texts, precedents), and of the array formulas,
// merges and comments that lie wholly in `range`.
int PushRegionUndo(int32_t kind, uint32_t book, uint32_t sheet, const Range* range);
// For the name kinds, on the book's current sheet: the record keeps the name's index and, when
// the entry exists (a change or a deletion, pushed before it happens), its text and tokens.
int PushNameUndo(int32_t kind, uint32_t book, uint32_t nameIndex);
// For the structural kinds: the block `source` as it was before the change and the deltas the
// change moves it by, kept on the top record so that undo can move it back.
void SetUndoShift(const Range* source, int32_t rowDelta, int32_t colDelta);
// Undoes the top record on its own workbook, which becomes current; the record's sheet goes on
// show. Marks the workbook dirty and what changed for recalculation. Returns 0 when the stack is
// empty.
int PopUndo();
// Records on the stack: the Undo command is enabled while this is above zero.
uint32_t UndoCount();
// Releases every record (shut-down, tests).
void ClearUndo();
