// Moving a block of cells with everything that refers to it. One routine, ShiftRange, moves the
// block by a row and column delta (an insertion, a deletion, a cut and paste, a sort) and rewrites
// every token string of the workbook through one decision table on the four corners of each
// reference: references wholly in the block move, references that straddle its edge stretch or
// shrink, and references left inside the area the block lands on become #REF!.
#pragma once
#include <cstdint>

#include "formula/tokens.h"
#include "model/range.h"

// The decision table for one reference. `source` is the block before the move; the reference is
// rewritten in place. *changed is 1 when it differs from the input, *deleted (with *changed) when
// the block landed on all of it; both are always written. A delta is dropped on an axis where the
// reference is whole (all rows, all columns).
void AdjustReference(const Range* source, int32_t rowDelta, int32_t colDelta, Range* reference,
                     int* changed, int* deleted);
// Applies the table to the references of a formula that stands on `sheet` of `book`, for a block
// on `blockSheet`: inline references when the two sheets are one, 3-D references whose link spans
// exactly `blockSheet` of `book`. Deleted references become ptgRefErr/ptgAreaErr (and their 3-D
// forms), keeping their class. ptgRefN and ptgAreaN, offsets from the cell that uses them, are
// left alone. Returns non-zero when something changed.
int RewriteTokens(uint32_t book, uint32_t sheet, uint32_t blockSheet, FormulaTokens* tokens,
                  const Range* source, int32_t rowDelta, int32_t colDelta);
// The same for a token string from another context (validation and conditional rules, chart
// series, object links): only 3-D references whose link spans [firstSheet, lastSheet] of `book`
// with firstSheet == lastSheet == the block's sheet are touched.
int RewriteTokens3d(uint32_t book, uint32_t blockSheet, FormulaTokens* tokens, const Range* source,
                    int32_t rowDelta, int32_t colDelta);

// Moves the block `source` of (book, sheet) by the deltas with its cells, array formulas, merges,
// row and column records, comments, and rewrites the formulas of every sheet and the defined
// names (their 3-D references only). The caller has checked that the move is allowed (no partial
// array block) and cleared the cells of the area the block lands on; array formulas, merges,
// comments and row or column records left there and not in the block are dropped here.
void ShiftRange(uint32_t book, uint32_t sheet, const Range* source, int32_t rowDelta,
                int32_t colDelta);
