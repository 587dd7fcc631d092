// The numeric helpers of numeric.h, apart from the determinant, which lives with the matrix
// functions.
#include "functions/numeric.h"

#include <cmath>

#include "base/alloc.h"
#include "model/workbook.h"

double RoundHalfAway(double x) {
  if (x < 0) return -std::floor(0.5 - x);
  double plain = std::floor(x + 0.5);
  double nudged = std::floor(std::nextafter(x, x + 0.05) + 0.5);
  return nudged > plain ? nudged : plain;
}

int32_t TruncateToInt32(double x) {
  // The test is written so that NaN fails it too.
  if (!(x > -2147483649.0 && x < 2147483648.0)) return INT32_MIN;
  return static_cast<int32_t>(x);
}

double Factorial(int32_t n) {
  double result = 1;
  for (int32_t i = n; i >= 2; i--) result *= i;
  return result;
}

double Combinations(int32_t n, int32_t k) {
  double result = 1;
  double top = n;
  for (int32_t i = k; i >= 1; i--) result = top-- * result / i;
  return result;
}

int ContextDate1904(const EvalContext* ctx) {
  return ctx->book < App.workbookCount ? GetWorkbook(ctx->book)->date1904 : 0;
}

int NumberFromArg(Value* a, Value* result, const EvalContext* ctx, double* out) {
  CoerceValue(a, ValueNumber, ctx);
  if (a->tag == ValueNumber) {
    *out = a->number;
    return 1;
  }
  *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
  return 0;
}

int ArrayArg(Value* a, Value* result, const EvalContext* ctx) {
  CoerceValue(a, ValueArray, ctx);
  if (a->tag == ValueArray && a->elements) return 1;
  *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
  return 0;
}

int IntegerFromArg(Value* a, Value* result, const EvalContext* ctx, int32_t fallback,
                   int32_t* out) {
  double d = fallback;
  if (a->tag != ValueEmpty && !NumberFromArg(a, result, ctx, &d)) return 0;
  *out = a->tag == ValueEmpty ? fallback : TruncateToInt32(d);
  return 1;
}

int TextFromArg(Value* a, Value* result, const EvalContext* ctx, const char16_t** out) {
  if (a->tag != ValueError) CoerceValue(a, ValueText, ctx);
  if (a->tag != ValueText) {
    *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
    return 0;
  }
  *out = a->text ? a->text : u"";
  return 1;
}

int BooleanFromArg(Value* a, Value* result, const EvalContext* ctx, bool fallback, bool* out) {
  if (a->tag == ValueEmpty) {
    *out = fallback;
    return 1;
  }
  CoerceValue(a, ValueBoolean, ctx);
  if (a->tag != ValueBoolean) {
    *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
    return 0;
  }
  *out = a->boolean != 0;
  return 1;
}

int AppendNumber(NumberList* list, double x) {
  if (!GrowArray(&list->items, &list->capacity, list->count + 1, 64)) return 0;
  list->items[list->count++] = x;
  return 1;
}

void FreeNumberList(NumberList* list) {
  Release(list->items);
  *list = NumberList{};
}

void AddToMoments(Moments* m, double x) {
  m->count++;
  double delta = x - m->mean;
  m->mean += delta / m->count;
  m->m2 += (x - m->mean) * delta;
}

int MomentsVariance(const Moments* m, int sample, int root, double* out) {
  uint32_t divisor = sample ? m->count - 1 : m->count;
  if (m->count == 0 || divisor == 0) return 0;
  double variance = m->m2 / divisor;
  *out = root ? std::sqrt(variance) : variance;
  return 1;
}

int ListMean(const double* x, uint32_t count, double* out) {
  if (!count) return 0;
  Moments m{};
  for (uint32_t i = 0; i < count; i++) AddToMoments(&m, x[i]);
  *out = m.mean;
  return 1;
}

int ListVariance(const double* x, uint32_t count, int sample, int root, double* out) {
  Moments m{};
  for (uint32_t i = 0; i < count; i++) AddToMoments(&m, x[i]);
  return MomentsVariance(&m, sample, root, out);
}

int ReadNumbers(Value* args, int count, double* out, Value* result, const EvalContext* ctx) {
  for (int i = 0; i < count; i++)
    if (args[i].tag != ValueEmpty && !NumberFromArg(&args[i], result, ctx, &out[i])) return 0;
  return 1;
}

void GiveNumber(Value* result, double x) {
  *result = std::isfinite(x) ? NumberValue(x) : ErrorValue(ErrNum);
}
