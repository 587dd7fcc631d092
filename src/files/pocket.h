// Pocket Excel 2.0 workbooks and templates (.pxl, .pxt): a flat stream of records with one-byte
// ids and bodies whose size the id fixes, 16-bit text throughout, worksheets only. The reader
// feeds the model through the one load road; the writer saves what the format can hold and
// drops the rest (a formula it cannot hold is saved as its last value), counting what it dropped.
// Formulas cross the border through PocketToTokens and TokensToPocket, between the file's
// BIFF5-shaped tokens and the BIFF8 tokens kept in memory.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "formula/tokens.h"

// Reads a whole .pxl or .pxt file held in memory into `book`, a workbook just made by
// CreateWorkbook. Returns 1 on success; 0 after showing the reason (a password-protected file, a
// record cut short by the end of the file, a malformed formula). What was read before a failure
// stays in the workbook.
int ReadPocketWorkbook(uint32_t book, const uint8_t* bytes, size_t size);

// Why a formula, a cell or a part of a workbook is left out of a save.
enum PocketDrop : int32_t {
  PocketKept = 0,
  PocketDropFunction,  // a formula calls a function outside the format's list
  PocketDropArray,     // a cell of an array formula
  PocketDropRows,      // a formula refers to a row past 16,383
  PocketDropLink,      // a formula refers to another workbook (or an add-in)
  PocketDropToken,     // a formula holds a token the format lacks (union, constant array, ...)
  PocketDropSpace,     // a formula holds the tokens that keep its typed spaces
  PocketDropFormulaKinds,
  // What the format has no room for at all; counted, never written.
  PocketDropCellRow = PocketDropFormulaKinds,  // a cell in a row past 16,383
  PocketDropNameFormula,                       // a name whose formula the format cannot hold
  PocketDropSheet,                             // a chart or macro sheet, saved as an empty sheet
  PocketDropComment,
  PocketDropObject,
  PocketDropValidation,
  PocketDropConditional,
  PocketDropMerge,
  PocketDropKinds,
};

struct PocketDrops {
  uint32_t count[PocketDropKinds];
};

// A short English description of a drop reason, for reports.
const char* PocketDropName(int32_t reason);

// What a save as .pxl would leave out of `book`, counted without writing or calculating.
void CountPocketDrops(uint32_t book, PocketDrops* drops);

// Writes `book` as a Pocket Excel stream into a new block (owned by the caller, from the
// allocation wrapper). Pending formulas are calculated first. `drops`, when not null, receives
// what was left out. Returns 0 when memory runs out.
int WritePocketBytes(uint32_t book, uint8_t** bytes, size_t* size, PocketDrops* drops);
// The same into an open file; returns 0 only when memory runs out (a failed write shows in the
// file's error state).
int WritePocketWorkbook(uint32_t book, FILE* file);

// Why a token string cannot go into the file (PocketKept when it can). `book` owns the link
// table that 3-D references and external names point into.
int32_t PocketFormulaDrop(uint32_t book, const FormulaTokens* tokens);
inline bool PocketCanHold(uint32_t book, const FormulaTokens* tokens) {
  return PocketFormulaDrop(book, tokens) == PocketKept;
}

// The file's tokens of `length` bytes as BIFF8 tokens in a new block (extra length 0). 3-D
// references and external names point at this workbook, through entries of its link table that
// are found or added. Returns 0 when the string is malformed, with a reason, or when memory runs
// out, with a null reason (the allocator has told the user).
int PocketToTokens(uint32_t book, const uint8_t* bytes, uint32_t length, FormulaTokens* out,
                   const char** reason);
// BIFF8 tokens as the file's tokens in a new block (`out->extraLength` is 0). Returns 0 when the
// format cannot hold them or memory runs out.
int TokensToPocket(uint32_t book, const FormulaTokens* tokens, FormulaTokens* out);

// The BIFF numbers of the functions a formula in the file may call.
constexpr uint32_t PocketFunctionCount = 109;
extern const uint16_t PocketFunctions[];
