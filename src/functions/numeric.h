// Numeric helpers shared by the function families: the rounding rule of ARRONDI, the conversion
// through a 32-bit integer that the truncating functions go through, factorials and combinations,
// the determinant of the matrix functions, and the small statistics over a list of numbers that
// SOUS.TOTAL computes and the statistics family builds on.
#pragma once
#include <cstdint>

#include "model/value.h"

// Rounds half away from zero. A non-negative value one unit in the last place below a half is
// pulled up, so that 1.005 * 100, stored as 100.49999999999999, rounds to 101; negative values
// get no such nudge.
double RoundHalfAway(double x);

// The value converted to a signed 32-bit integer, the fraction cut. Values outside the range, and
// NaN, give INT32_MIN, as the processor's conversion does: the truncating functions are defined
// over this range only.
int32_t TruncateToInt32(double x);
inline double Truncate32(double x) {
  return TruncateToInt32(x);
}

// n! as a product of doubles; 1 below 2.
double Factorial(int32_t n);
// The number of ways to choose k of n, dividing at each step so the product stays small; 1 for k
// below 1.
double Combinations(int32_t n, int32_t k);

// Matrices above this order give #NUM!: the expansion keeps one value per set of rows, 2^n of
// them, and without that store the expansion by minors would take n! steps.
constexpr uint32_t MaxDeterminantOrder = 20;
// The determinant of the n by n row-major block `m`, by expansion along the first column.
// Returns 0 when memory runs out or n is above MaxDeterminantOrder. Defined with the matrix
// functions.
int Determinant(const double* m, uint32_t n, double* out);

// The standard prologue for a number argument: converts `a` in place. Returns 0 with the error in
// `result` when it does not convert.
// Non-zero when the workbook of the calling cell counts dates from 1904.
int ContextDate1904(const EvalContext* ctx);

int NumberFromArg(Value* a, Value* result, const EvalContext* ctx, double* out);
// The same for a whole number: the value cut to a 32-bit integer, or `fallback` for an empty slot.
int IntegerFromArg(Value* a, Value* result, const EvalContext* ctx, int32_t fallback, int32_t* out);
// The same for a text, which stays owned by `a`. An error keeps its code instead of becoming its
// own text.
int TextFromArg(Value* a, Value* result, const EvalContext* ctx, const char16_t** out);
// The same for a boolean, or `fallback` for an empty slot.
int BooleanFromArg(Value* a, Value* result, const EvalContext* ctx, bool fallback, bool* out);

// The same for an argument that must be an array: converts `a` in place, and returns 0 with the
// error in `result` (#VALUE! for what cannot be an array) when it does not convert.
int ArrayArg(Value* a, Value* result, const EvalContext* ctx);
inline uint32_t ElementCount(const Value* array) {
  return uint32_t{array->rows} * array->columns;
}

// A growable block of doubles gathered from arguments.
struct NumberList {
  double* items;
  uint32_t count;
  uint32_t capacity;
};
// Returns 0 when memory runs out (the list is left as it was).
int AppendNumber(NumberList* list, double x);
void FreeNumberList(NumberList* list);

// Running mean and sum of squared deviations, updated one value at a time (Welford), so that a
// walk needs no second pass.
struct Moments {
  uint32_t count;
  double mean;
  double m2;
};
void AddToMoments(Moments* m, double x);
// The variance, sample (m2 / (n - 1)) or population (m2 / n), or its square root with `root`.
// Returns 0 when there are too few values: none for the population, fewer than two for the sample.
int MomentsVariance(const Moments* m, int sample, int root, double* out);

// The same over a list. Both return 0 when the list is too short.
int ListMean(const double* x, uint32_t count, double* out);
int ListVariance(const double* x, uint32_t count, int sample, int root, double* out);

// One of the eleven aggregates that SOUS.TOTAL and the database functions share, numbered as
// SOUS.TOTAL numbers them (1 MOYENNE, 2 NB, 3 NBVAL, 4 MAX, 5 MIN, 6 PRODUIT, 7 ECARTYPE,
// 8 ECARTYPEP, 9 SOMME, 10 VAR, 11 VAR.P), over the numbers gathered and, for NBVAL, the count of
// values that are not empty. Defined with SOUS.TOTAL.
Value Subtotal(uint32_t function, const NumberList* list, double nonEmpty);

// Reads the number arguments of slots 0 to count - 1 into `out`, left to right, the first that
// fails deciding the error in `result`. An empty slot, an optional argument left out, keeps the
// default the caller put in `out`. Returns 0 on an error.
int ReadNumbers(Value* args, int count, double* out, Value* result, const EvalContext* ctx);
// Writes x to `result`, or #NUM! when it is not a finite number: such a result only comes from
// arguments outside a function's domain.
void GiveNumber(Value* result, double x);
