// The operators of the evaluator: arithmetic, concatenation, comparison, unary minus and
// percent, and the three reference operators (intersection, union, range). Each binary operator
// takes its two operands from the evaluator's stack slots, leaves its result in `left` and
// releases `right`; each unary operator works in place. Operators never fail outwardly: what goes
// wrong becomes an error value.
#pragma once
#include <cstdint>

#include "model/value.h"

// ptgAdd, ptgSub, ptgMul, ptgDiv or ptgPower.
void ArithmeticOperator(uint8_t ptg, Value* left, Value* right, const EvalContext* ctx);
void ConcatOperator(Value* left, Value* right, const EvalContext* ctx);
// ptgLT, ptgLE, ptgEQ, ptgGE, ptgGT or ptgNE.
void ComparisonOperator(uint8_t ptg, Value* left, Value* right, const EvalContext* ctx);
void NegateOperator(Value* v, const EvalContext* ctx);
void PercentOperator(Value* v, const EvalContext* ctx);
void IntersectionOperator(Value* left, Value* right, const EvalContext* ctx);
void UnionOperator(Value* left, Value* right, const EvalContext* ctx);
void RangeOperator(Value* left, Value* right, const EvalContext* ctx);

// Compares two scalars (empty, number, text or boolean) for one of the comparison opcodes and
// gives a boolean, or #VALUE! for anything else.
Value CompareScalars(uint8_t ptg, const Value* a, const Value* b);

inline bool IsReference(const Value* v) {
  return v->tag == ValueRef || v->tag == ValueRefList;
}
