// The one road by which a file reader fills a workbook with cells. Readers of every format call
// LoadCell for each cell in the order the file holds them, and FinishLoad once at the end. Nothing
// is calculated and no reader is marked while cells arrive: a loaded workbook has up to 65,536
// cells a sheet, and marking per cell would cost a scan of the whole workbook for each one. The
// precedents of every formula are built in one pass when the load ends, and the cells that must
// be worked out again are marked then, with their readers, in one marking.
//
// What a reader may assume:
// - The workbook and sheet exist (the reader made them) and stay as they are between calls,
//   apart from what the reader itself changes.
// - Cells that arrive in row-then-column order cost one append each. A cell that arrives out of
//   order, or a second time at the same place, is put in its place (the later one wins), so a
//   disordered file gives a correct store, only a slower load.
//
// What a reader must guarantee:
// - row <= MaxRow and col <= MaxCol; the sheet index names a sheet of the workbook.
// - Formula tokens are BIFF8 tokens with no relative-offset tokens, and have passed
//   ValidateTokens(TokensForCell): the store and the evaluator trust them from here on.
// - Every Xf index is below the workbook's Xf count by the time FinishLoad runs; FinishLoad
//   puts an Xf it does not know back to the default cell Xf rather than trust it.
// - FinishLoad is called once after the last cell, also after a failed load, so that what was
//   read is consistent (a failed load keeps what it read).
#pragma once
#include <cstdint>

#include "formula/tokens.h"
#include "model/value.h"

// Appends the cell (row, col) to the sheet with its Xf, its value and, for a formula, its tokens.
// The value and the tokens pass to the store in every case: on failure (lost memory, return 0)
// they are released. A plain value arrives calculated; a formula arrives calculated with the
// value as its cached result, unless `calculateOnLoad` asks for it to be worked out again.
int LoadCell(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col, uint16_t xf, Value* value,
             FormulaTokens* tokens, int calculateOnLoad);

// Ends the load of `book`: builds the precedents of every worksheet formula; a volatile formula
// joins those asked to be worked out again; all of them, and every cell that reads them, are
// marked dirty in one marking. A workbook whose file opened with a volatile formula is marked as
// changed since its file, since its values are not those of the file any more. Returns 0 when
// memory runs out (the allocator has told the user; the cells are kept, some without precedents).
int FinishLoad(uint32_t book);
