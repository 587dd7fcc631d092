// Helpers the bond and discount-security functions share.
#pragma once
#include <cstdint>

#include "model/value.h"

// A date argument as a day of the 1900 system, the fraction cut. Returns 0 with the error in
// `result` when it does not convert (#NUM! for a date outside the calendar).
int BondDateArg(Value* a, Value* result, const EvalContext* ctx, int32_t* out);
// Coupons come once, twice or four times a year.
int ValidFrequency(int32_t frequency);
// The day-count bases 0 to 4.
int ValidBasis(int32_t basis);
// Finds x from `low` up where the decreasing function f(x, state) meets `target`, by bracketing
// and halving. Returns 0 when no such x is found.
int SolveDecreasing(double (*f)(double, const void*), const void* state, double target, double low,
                    double* out);
