// Argument walks shared by the function handlers. The aggregates (SOMME, MOYENNE, MAX, NB, ...)
// take up to 30 arguments of any kind and reduce them to a stream of numbers handed to a visitor;
// a reference is walked through the stored cells only, so a whole column costs what it holds.
// Functions that take one value (ET's direct arguments, NON, the ESTxxx family) reduce a
// reference or an array to the single value that stands for the formula's cell.
#pragma once
#include <cstdint>

#include "functions/numeric.h"
#include "model/value.h"

// Called with each number of the walk, in argument order and, inside a reference, sheet by sheet,
// area by area, row by row. Returns 0 to stop the walk.
using NumberVisitor = int (*)(double number, void* state);

// Options that widen what the walk hands to the visitor. With none, the walk follows SOMME: inside
// references and arrays only numbers count, and the first error ends the walk.
enum WalkFlags : uint32_t {
  WalkPlain = 0,
  WalkLogicalInRanges = 1,  // booleans in references and arrays are visited as 1 or 0
  WalkTextInRanges = 2,     // texts in references and arrays are visited as 0
  WalkSkipErrors = 4,       // errors, and direct texts that are not numbers, are passed over
  WalkErrorsInRanges = 8,   // errors in references and arrays are visited as 0 (for counting)
};

// Walks the 30-slot frame `args`, which it may change in place. Returns 1 when the walk went to
// the end. Returns 0 when it stopped early: `*error` is then the error value that ended it, or
// empty when the visitor asked to stop.
int WalkNumbers(Value* args, const EvalContext* ctx, NumberVisitor visit, void* state,
                Value* error);
int WalkNumbersWith(Value* args, const EvalContext* ctx, uint32_t flags, NumberVisitor visit,
                    void* state, Value* error);

// The pieces of the walk, for handlers that treat direct arguments in their own way but walk
// references and arrays like the aggregates. `reference` is a ValueRef (on the sheet of `ctx`) or
// a ValueRefList (every area on every sheet of its link).
int WalkReferenceNumbers(const Value* reference, const EvalContext* ctx, uint32_t flags,
                         NumberVisitor visit, void* state, Value* error);
int WalkArrayNumbers(const Value* array, uint32_t flags, NumberVisitor visit, void* state,
                     Value* error);

// Gathers the numbers of the walk into `list`. Returns 0 with the error in `result` (the one that
// ended the walk, or #N/A when memory ran out), the list then released.
int GatherNumbers(Value* args, const EvalContext* ctx, uint32_t flags, NumberList* list,
                  Value* result);
// The same for one argument alone, walked as the first slot of a frame of its own; the argument
// is consumed.
int GatherArgumentNumbers(Value* arg, const EvalContext* ctx, NumberList* list, Value* result);

// Reduces a reference to the value of the cell that lines up with the formula's cell, and an
// array to its element for that cell; anything else is left as it is. Unlike a direct coercion to
// a boolean, an error found there keeps its code.
void ReduceToScalar(Value* v, const EvalContext* ctx);

// Reduces a reference to the value of its first cell, whatever its size (N and T read a range so),
// and an array to its element for the formula's cell; anything else is left as it is.
void ReduceToFirstCell(Value* v, const EvalContext* ctx);
