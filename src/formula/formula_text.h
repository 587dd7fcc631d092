// Formula tokens back to the text the user sees in the edit line: the reverse of the parser. A
// token walk over one growing text buffer with a stack of operand start positions; operators are
// put in by moving text, and only the user's own parentheses (ptgParen) are printed.
#pragma once
#include <cstdint>

#include "formula/tokens.h"

// The text of `tokens`, starting with "=", in a block the caller owns and releases (null on lost
// memory). `baseRow`/`baseColumn` place the cell for ptgRefN and ptgAreaN; `rowOffset` and
// `columnOffset` are what R1C1 text counts relative references from. Malformed token strings
// (too few operands, unknown tokens) print something and never read or write out of bounds.
char16_t* FormulaText(uint32_t book, const FormulaTokens* tokens, uint16_t baseRow,
                      uint8_t baseColumn, int a1Style, uint16_t rowOffset, uint8_t columnOffset);

// The qualifier text of sheet link `link` of `book`: "[book]sheet", "sheet", "first:last",
// "#REF" for a deleted sheet, quoted as a whole where any piece needs it, then "!" with
// `addBang`. Writes at most `capacity` characters including the terminator (cutting the text if
// it must) and returns the length written; 0 for a link index out of range.
uint32_t ExternSheetText(uint32_t book, int32_t link, char16_t* out, uint32_t capacity,
                         int addBang);
