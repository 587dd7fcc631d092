// The engineering functions: DELTA and SUP.SEUIL, FACTDOUBLE, the Bessel functions of whole
// order, and the conversions between binary, octal, decimal and hexadecimal. Binary, octal and
// hexadecimal numbers have at most ten digits; a ten-digit number whose top digit has its high bit
// set is negative, in two's complement over the ten digits.
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "base/text.h"
#include "functions/aggregate.h"
#include "functions/handlers.h"
#include "functions/numeric.h"

namespace {

constexpr int DigitLimit = 10;

// The number of values ten digits of `base` hold: 2^10, 8^10 = 2^30 or 16^10 = 2^40.
double DigitSpan(int base) {
  return std::pow(static_cast<double>(base), DigitLimit);
}

int DigitValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'z') return c - u'a' + 10;
  if (c >= u'A' && c <= u'Z') return c - u'A' + 10;
  return 99;
}

// Reads the first argument as a number written in `base`. A number argument stands for the
// digits of its decimal form, so that BINDEC(101) reads "101". Returns 0 with the error in
// `result`: #VALUE! for what is neither text nor number, #NUM! for a bad digit or too many.
int ReadBased(Value* a, int base, Value* result, const EvalContext* ctx, double* out) {
  char16_t digits[24] = {};
  const char16_t* text = u"";
  ReduceToScalar(a, ctx);
  if (a->tag == ValueNumber) {
    if (!(a->number >= 0 && a->number < 1e10 && a->number == std::floor(a->number))) {
      *result = ErrorValue(ErrNum);
      return 0;
    }
    char ascii[24];
    int n = std::snprintf(ascii, sizeof ascii, "%.0f", a->number);
    for (int i = 0; i < n && i < 23; i++) digits[i] = static_cast<char16_t>(ascii[i]);
    text = digits;
  } else if (a->tag == ValueText) {
    text = a->text ? a->text : u"";
  } else if (a->tag != ValueEmpty) {
    *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
    return 0;
  }
  double value = 0;
  int count = 0;
  for (; text[count]; count++) {
    int d = DigitValue(text[count]);
    if (d >= base || count >= DigitLimit) {
      *result = ErrorValue(ErrNum);
      return 0;
    }
    value = value * base + d;
  }
  double span = DigitSpan(base);
  *out = value >= span / 2 ? value - span : value;
  return 1;
}

// Writes `value` in `base`: a negative value as all ten digits of its two's complement, a
// positive one padded with zeros to `places` digits when places is given. #NUM! when the value
// does not fit ten digits, or its digits do not fit `places`.
void WriteBased(double value, int base, Value* places, Value* result, const EvalContext* ctx) {
  int32_t width = 0;
  if (places->tag != ValueEmpty) {
    double p;
    if (!NumberFromArg(places, result, ctx, &p)) return;
    width = TruncateToInt32(p);
    if (width < 1 || width > DigitLimit) {
      *result = ErrorValue(ErrNum);
      return;
    }
  }
  double span = DigitSpan(base);
  value = std::trunc(value);
  if (!(value >= -span / 2 && value < span / 2)) {
    *result = ErrorValue(ErrNum);
    return;
  }
  if (value < 0) {
    value += span;
    width = DigitLimit;
  }
  char16_t digits[DigitLimit];
  int count = 0;
  do {
    int d = static_cast<int>(std::fmod(value, base));
    digits[count++] = static_cast<char16_t>(d < 10 ? u'0' + d : u'A' + d - 10);
    value = std::floor(value / base);
  } while (value > 0 && count < DigitLimit);
  if (width && count > width) {
    *result = ErrorValue(ErrNum);
    return;
  }
  char16_t text[DigitLimit + 1] = {};
  int length = width > count ? width : count;
  for (int i = 0; i < length; i++) text[i] = length - 1 - i < count ? digits[length - 1 - i] : u'0';
  char16_t* copy = TextDuplicate(text);
  *result = copy ? TextValue(copy) : ErrorValue(ErrNA);
}

void Convert(Value* args, Value* result, const EvalContext* ctx, int from, int to) {
  double value;
  if (from == 10) {
    if (!NumberFromArg(&args[0], result, ctx, &value)) return;
  } else if (!ReadBased(&args[0], from, result, ctx, &value)) {
    return;
  }
  if (to == 10)
    *result = NumberValue(value);
  else
    WriteBased(value, to, &args[1], result, ctx);
}

// DELTA and SUP.SEUIL: the second number defaults to 0.
int ReadPair(Value* args, Value* result, const EvalContext* ctx, double* pair) {
  pair[0] = pair[1] = 0;
  return ReadNumbers(args, 2, pair, result, ctx);
}

enum BesselKind { BesselFirst, BesselSecond, BesselModifiedFirst, BesselModifiedSecond };

// Orders above this give #NUM!: the recurrences behind the library's routines grow with the order,
// and no such order is of practical use.
constexpr double MaxBesselOrder = 1000;

// J, Y, I or K of whole order n at x, from the standard library's special functions. J and I of a
// negative x follow from their parity; Y and K exist for x above 0 only. The library reports a
// failed evaluation by throwing, which is caught here at the only place it is called.
int Bessel(BesselKind kind, double x, double n, double* out) {
  if ((kind == BesselSecond || kind == BesselModifiedSecond) && !(x > 0)) return 0;
  double sign = x < 0 && std::fmod(n, 2) != 0 ? -1 : 1;
  double ax = std::fabs(x);
  try {
    switch (kind) {
      case BesselFirst:
        *out = sign * std::cyl_bessel_j(n, ax);
        break;
      case BesselSecond:
        *out = std::cyl_neumann(n, ax);
        break;
      case BesselModifiedFirst:
        *out = sign * std::cyl_bessel_i(n, ax);
        break;
      case BesselModifiedSecond:
        *out = std::cyl_bessel_k(n, ax);
        break;
    }
  } catch (const std::exception&) {
    return 0;
  }
  return std::isfinite(*out);
}

// The four handlers: x, then the order cut to a whole number, from 0 up.
void BesselFunction(Value* args, Value* result, const EvalContext* ctx, BesselKind kind) {
  double xn[2] = {};
  if (!ReadNumbers(args, 2, xn, result, ctx)) return;
  double n = std::trunc(xn[1]), value;
  if (n < 0 || n > MaxBesselOrder || !std::isfinite(xn[0]) || !Bessel(kind, xn[0], n, &value))
    *result = ErrorValue(ErrNum);
  else
    *result = NumberValue(value);
}

}  // namespace

void FnBesselJ(Value* args, Value* result, const EvalContext* ctx) {
  BesselFunction(args, result, ctx, BesselFirst);
}
void FnBesselY(Value* args, Value* result, const EvalContext* ctx) {
  BesselFunction(args, result, ctx, BesselSecond);
}
void FnBesselI(Value* args, Value* result, const EvalContext* ctx) {
  BesselFunction(args, result, ctx, BesselModifiedFirst);
}
void FnBesselK(Value* args, Value* result, const EvalContext* ctx) {
  BesselFunction(args, result, ctx, BesselModifiedSecond);
}

void FnDelta(Value* args, Value* result, const EvalContext* ctx) {
  double pair[2];
  if (ReadPair(args, result, ctx, pair)) *result = NumberValue(pair[0] == pair[1]);
}

void FnSupSeuil(Value* args, Value* result, const EvalContext* ctx) {
  double pair[2];
  if (ReadPair(args, result, ctx, pair)) *result = NumberValue(pair[0] >= pair[1]);
}

// The product of n, n - 2, n - 4, ... down to 1 or 2; 1 for 0 and -1 alike.
void FnFactDouble(Value* args, Value* result, const EvalContext* ctx) {
  double n;
  if (!NumberFromArg(&args[0], result, ctx, &n)) return;
  n = std::trunc(n);
  if (n < -1 || n > 400) {
    *result = ErrorValue(ErrNum);
    return;
  }
  double product = 1;
  for (double k = n; k > 1; k -= 2) product *= k;
  GiveNumber(result, product);
}

void FnBinDec(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 2, 10);
}
void FnBinHex(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 2, 16);
}
void FnBinOct(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 2, 8);
}
void FnDecBin(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 10, 2);
}
void FnDecHex(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 10, 16);
}
void FnDecOct(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 10, 8);
}
void FnHexBin(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 16, 2);
}
void FnHexDec(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 16, 10);
}
void FnHexOct(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 16, 8);
}
void FnOctBin(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 8, 2);
}
void FnOctDec(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 8, 10);
}
void FnOctHex(Value* args, Value* result, const EvalContext* ctx) {
  Convert(args, result, ctx, 8, 16);
}
