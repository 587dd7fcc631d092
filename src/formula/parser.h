// The formula parser: text to BIFF8 tokens, in two passes over the text itself. ScanExpression
// only checks and returns where a well-formed expression ends; ParseExpression only emits, and
// uses the scan again as look-ahead to find where each operand ends. Parsing changes the
// workbook: unknown names are created undefined, and external books, sheet links and external
// names are added as the text names them; they stay even when the formula is abandoned.
#pragma once
#include <cstdint>

#include "formula/tokens.h"

// The class an operand is expected to have, handed down the recursion.
enum ClassCode : char {
  ClassCodeReference = 'R',  // a reference is welcome and stays one
  ClassCodeValue = 'V',
  ClassCodeArray = 'A',
  ClassCodeCell = 'T',        // value in a cell formula, array in an array formula
  ClassCodeRefOrArray = 'U',  // reference or array
  ClassCodeRefOrValue = 'W',  // reference or value
};

// Values of ParseContext's flags, named for the calls that fill one in order.
enum : int { R1C1Style = 0, A1Style = 1 };
enum : int { ReferencesAsWritten = 0, ReferencesAsOffsets = 1 };
enum : int { SingleCellFormula = 0, ArrayOfCellsFormula = 1 };

struct ParseContext {
  uint32_t book;
  uint32_t sheet;    // decides which names and sheets are visible; its active cell is the base
                     // of relative references in relativeMode
  int a1Style;       // non-zero for A1 text, zero for R1C1
  uint16_t baseRow;  // the cell that relative R1C1 references count from
  uint8_t baseColumn;
  int relativeMode;  // shared and name formulas: relative references become ptgRefN/ptgAreaN
  int arrayFormula;  // an array formula: what the class rules call array
};

// The token and extra-data budgets of one formula: a text that would compile to more is refused.
constexpr uint32_t MaxTokenBytes = 1024;
constexpr uint32_t MaxExtraBytes = 1024;

// Checks text[start, end) and returns the index where a well-formed expression ends, or -1.
// `unionAllowed` is 1 inside parentheses (the list separator is then the union operator).
// `formatHint`, when it points at -1, receives the format hint of the first function met (0 for
// add-ins and calls through names).
int32_t ScanExpression(const ParseContext* ctx, const char16_t* text, int32_t start, int32_t end,
                       int unionAllowed, int32_t* formatHint);
// True when the whole text, after an optional leading "=" and blanks, scans as one expression.
bool IsFormulaText(const ParseContext* ctx, const char16_t* text);

enum CompileStatus : int32_t {
  CompileOk = 1,
  CompileSyntaxError = 0,  // the scan did not reach the end of the text
  CompileTooLong = -1,     // more than MaxTokenBytes or MaxExtraBytes, a string constant of more
                           // than 255 characters or an array of more than 256 columns
  CompileNoMemory = -2,    // a table of the workbook could not grow; a notice has been shown
};

// Scans, then compiles `text` (a leading "=" and the blanks behind it are skipped) into `out`,
// which the caller frees with FreeTokens. `rootClass` is ClassCodeValue for a cell formula and
// ClassCodeReference where a reference result is wanted (names, chart series). A formula that
// calls a volatile function gets the volatile attribute in front. On any status but CompileOk,
// `out` is left empty.
CompileStatus CompileFormula(const ParseContext* ctx, const char16_t* text, ClassCode rootClass,
                             FormulaTokens* out);
