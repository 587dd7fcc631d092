// The evaluator: a stack machine that runs one token string to one value. Operators, reference
// operators, names, and the jumps of IF and CHOOSE are handled here; function calls leave through
// one dispatcher. Evaluation nests: a reference that reaches a dirty cell calculates it on the
// spot.
#pragma once
#include <cstdint>

#include "formula/tokens.h"
#include "functions/table.h"
#include "model/range.h"
#include "model/value.h"

// Runs `tokens` into `result` (which the caller then owns). Returns 1, or 0 when a running macro
// was aborted.
int Evaluate(const FormulaTokens* tokens, Value* result, const EvalContext* ctx);

// Calls `handler` on the frame `args` (argCount arguments, frameSize slots), broadcasting array
// arguments of value class over the handler. Releases the arguments.
void CallFunction(Value* args, int argCount, Value* result, FunctionHandler handler,
                  const char* argClasses, const EvalContext* ctx, int frameSize);

// Evaluates `tokens` at (book, sheet, row, col) and gives the sheet and first area of the
// reference it yields; 0 when it yields anything else.
int EvaluateToReference(uint32_t book, uint32_t sheet, const FormulaTokens* tokens,
                        uint32_t* sheetOut, Range* rangeOut, int32_t row, int32_t col);

// 1 when a macro is running and `ctx` is its current cell; 0 until the macro interpreter exists.
int IsRunningCell(const EvalContext* ctx);

// Sums every area of a reference list over every sheet of its link; the first error found, or
// #REF! for a link that does not resolve, is the result instead.
void SumRefList(const Value* list, Value* result, const EvalContext* ctx);

// How deep names may nest inside one another before evaluation gives up with an error, so that
// a name defined through itself cannot exhaust the machine's stack.
constexpr int MaxNameNesting = 64;
