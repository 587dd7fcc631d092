// What the two halves of the formula parser share. parser.cpp holds the scan, the expression and
// operand parsing, names and references, and the entry points; parser_calls.cpp holds function
// calls with their jump tokens, and constant arrays. Private to the formula layer.
#pragma once
#include <cstdint>

#include "formula/parser.h"
#include "functions/table.h"

// Parentheses, call arguments and array elements make the scan and the parse recurse. Every level
// of nesting costs at least one token byte, so text nested deeper than the token budget can never
// compile; it is refused before it can exhaust the machine stack.
constexpr int32_t MaxNesting = static_cast<int32_t>(MaxTokenBytes);

struct ScanState {
  int32_t depth;
  int32_t tooDeep;    // the nesting limit refused the text
  int32_t lookAhead;  // the text has passed the scan: a parenthesised group needs no second check
};

// One compilation: tokens and extra data in buffers of exactly the budget's size, written only
// through the Emit functions, which refuse to pass the end.
struct Emitter {
  const ParseContext* ctx;
  const char16_t* text;
  uint32_t length;
  uint32_t extraLength;
  int32_t depth;
  CompileStatus status;  // CompileOk until a budget, a table or the text fails
  uint8_t tokens[MaxTokenBytes];
  uint8_t extra[MaxExtraBytes];
};

// Argument letters for a call through a name or a reference: up to 29 arguments, all optional.
extern const char CalleeArguments[];

inline bool IsBlank(char16_t c) {
  return c == u' ';
}
inline bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
int32_t SkipBlanks(const char16_t* text, int32_t p, int32_t end);
// The length of the error literal at text[p] (the text upper-cased) and its error code; 0 when
// none of the seven matches.
int32_t MatchErrorLiteral(const char16_t* text, int32_t p, int32_t end, uint32_t* code);
// True when the `length` characters at `text` are the locale's true or false text, ignoring
// case; *value tells which.
bool MatchBooleanLiteral(const char16_t* text, int32_t length, bool* value);

// ScanExpression with the nesting count of the enclosing scan.
int32_t ScanExpressionAt(const ParseContext* ctx, ScanState* state, const char16_t* text,
                         int32_t start, int32_t end, int unionAllowed, int32_t* formatHint);

// Record the first failure; Fail returns false, Refuse the -1 of a failed parse.
bool Fail(Emitter* e, CompileStatus status);
inline int32_t Refuse(Emitter* e, CompileStatus status) {
  Fail(e, status);
  return -1;
}
bool EmitBytes(Emitter* e, const uint8_t* bytes, uint32_t count);
bool EmitByte(Emitter* e, uint8_t b);
bool EmitWord(Emitter* e, uint16_t w);
bool EmitExtra(Emitter* e, const uint8_t* bytes, uint32_t count);

// Emits the tokens of text[start, end) with `cls` as the expected class. Returns the index where
// it stopped, or -1 with e->status telling why.
int32_t ParseExpression(Emitter* e, int32_t start, int32_t end, char cls);

// p is behind "(". Returns the index behind ")" or -1.
int32_t ScanCallArguments(const ParseContext* ctx, ScanState* state, const char16_t* text,
                          int32_t p, int32_t end, const char* args, int32_t* formatHint);
// Emits the arguments behind "(" at p and the token that closes the call: the function token of
// a main-table row, or ptgFuncVar 255 for an add-in (`isAddIn`) or a callee whose token has been
// emitted already (`entry` null). Returns the index behind ")" or -1.
int32_t ParseCall(Emitter* e, const FunctionEntry* entry, int isAddIn, int32_t p, int32_t end,
                  char cls);

// p is at "{". Return the index behind "}" or -1.
int32_t ScanArray(const ParseContext* ctx, ScanState* state, const char16_t* text, int32_t p,
                  int32_t end);
int32_t ParseArray(Emitter* e, int32_t p, int32_t end, char cls);
