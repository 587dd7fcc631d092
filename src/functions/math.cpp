// The scalar functions of the "Math & Trig" category: rounding, powers and logarithms,
// trigonometry, factorials and combinations, random numbers, ROMAIN. Each reads its arguments as
// numbers, the first failing one deciding the error, and computes in plain doubles. A NaN, which
// only an argument outside a function's domain produces, is given as #NUM!.
#include <cmath>
#include <cstdlib>

#include "base/text.h"
#include "functions/handlers.h"
#include "functions/numeric.h"

namespace {

constexpr double Pi = 3.141592653589793;

Value Finished(double x) {
  return std::isnan(x) ? ErrorValue(ErrNum) : NumberValue(x);
}

using Unary = double (*)(double);
using Binary = Value (*)(double, double);

void ApplyUnary(Value* args, Value* result, const EvalContext* ctx, Unary f) {
  double x;
  if (NumberFromArg(&args[0], result, ctx, &x)) *result = Finished(f(x));
}

void ApplyBinary(Value* args, Value* result, const EvalContext* ctx, Binary f) {
  double a, b;
  if (!NumberFromArg(&args[0], result, ctx, &a) || !NumberFromArg(&args[1], result, ctx, &b))
    return;
  *result = f(a, b);
  if (result->tag == ValueNumber) *result = Finished(result->number);
}

// 10 to the power of a digit count, the count already truncated.
double PowerOfTen(int32_t digits) {
  return std::pow(10.0, static_cast<double>(digits));
}

double TruncateAt(double x, int32_t digits) {
  double p = PowerOfTen(digits);
  return Truncate32(p * x) / p;
}

// The sign tests that PLAFOND, PLANCHER and ARRONDI.AU.MULTIPLE share: a value and a step of
// opposite signs cannot meet.
bool OppositeSigns(double x, double step) {
  return (x < 0 && step > 0) || (x > 0 && step < 0);
}

Value Arrondi(double x, double d) {
  double p = PowerOfTen(TruncateToInt32(d));
  return NumberValue(x >= 0 ? RoundHalfAway(x * p) / p : -(RoundHalfAway(-x * p) / p));
}

Value ArrondiInf(double x, double d) {
  int32_t digits = TruncateToInt32(d);
  if (digits < 0) {
    double step = PowerOfTen(-static_cast<int64_t>(digits));
    return NumberValue(Truncate32(x / step) * step);
  }
  return NumberValue(TruncateAt(x, digits));
}

Value ArrondiSup(double x, double d) {
  int32_t digits = TruncateToInt32(d);
  double t = TruncateAt(x, digits);
  if (t == x) return NumberValue(t);
  double step = PowerOfTen(-static_cast<int64_t>(digits));
  return NumberValue(x > 0 ? t + step : t - step);
}

Value Plafond(double x, double s) {
  if (OppositeSigns(x, s)) return ErrorValue(ErrNum);
  if (s == 0) return NumberValue(0);
  return NumberValue(std::ceil(x / s) * s);
}

Value Plancher(double x, double s) {
  if (OppositeSigns(x, s)) return ErrorValue(ErrNum);
  if (s == 0) return ErrorValue(ErrDiv0);
  return NumberValue(std::floor(x / s) * s);
}

Value ArrondiAuMultiple(double x, double m) {
  if (OppositeSigns(x, m)) return ErrorValue(ErrNum);
  if (m == 0) return NumberValue(0);
  return NumberValue(RoundHalfAway(x / m) * m);
}

Value Mod(double n, double d) {
  if (d == 0) return ErrorValue(ErrDiv0);
  return NumberValue(n - std::floor(n / d) * d);
}

Value Quotient(double n, double d) {
  if (d == 0) return ErrorValue(ErrDiv0);
  return NumberValue(Truncate32(n / d));
}

Value Puissance(double x, double y) {
  if (y == 0) return x == 0 ? ErrorValue(ErrNum) : NumberValue(1);
  if (x == 0) return y > 0 ? NumberValue(0) : ErrorValue(ErrDiv0);
  if (x < 0 && y != std::floor(y)) return ErrorValue(ErrNum);
  return NumberValue(std::pow(x, y));
}

Value Atan2(double x, double y) {
  if (x == 0 && y == 0) return ErrorValue(ErrDiv0);
  return NumberValue(std::atan2(y, x));
}

Value Combin(double n, double k) {
  int32_t whole = TruncateToInt32(n), chosen = TruncateToInt32(k);
  if (chosen < 0 || whole < chosen) return ErrorValue(ErrNum);
  return NumberValue(Combinations(whole, chosen));
}

// The generator's draw cut to the fifteen bits that the function is defined over, where the
// platform's generator gives more.
int32_t Draw15() {
  return std::rand() / (RAND_MAX / 32768 + 1);
}

double Alea() {
  // 1/32767: the largest draw maps to exactly 1.
  return Draw15() * 3.051850947599719e-5;
}

Value AleaEntreBornes(double a, double b) {
  double low = Truncate32(a), high = Truncate32(b);
  if (low > high) return ErrorValue(ErrNum);
  return NumberValue(low + std::floor(Alea() * (high - low + 1)));
}

// The parts of a Roman numeral, largest first. Form 0 is the classic notation; each further
// form also allows a subtraction reaching one step further down, so the numeral gets shorter.
struct RomanPart {
  uint16_t value;
  uint8_t form;
  char16_t text[3];
};
const RomanPart romanParts[] = {
    {1000, 0, u"M"}, {999, 4, u"IM"}, {995, 3, u"VM"}, {990, 2, u"XM"}, {950, 1, u"LM"},
    {900, 0, u"CM"}, {500, 0, u"D"},  {499, 4, u"ID"}, {495, 3, u"VD"}, {490, 2, u"XD"},
    {450, 1, u"LD"}, {400, 0, u"CD"}, {100, 0, u"C"},  {99, 2, u"IC"},  {95, 1, u"VC"},
    {90, 0, u"XC"},  {50, 0, u"L"},   {49, 2, u"IL"},  {45, 1, u"VL"},  {40, 0, u"XL"},
    {10, 0, u"X"},   {9, 0, u"IX"},   {5, 0, u"V"},    {4, 0, u"IV"},   {1, 0, u"I"},
};

// The form argument of ROMAIN: 0 when left out, VRAI for the classic form and FAUX for the
// shortest. Returns -1 when it is no form.
int32_t RomanForm(Value* a, Value* result, const EvalContext* ctx) {
  if (a->tag == ValueEmpty) return 0;
  if (a->tag == ValueBoolean) return a->boolean ? 0 : 4;
  double form;
  if (!NumberFromArg(a, result, ctx, &form)) return -1;
  int32_t whole = TruncateToInt32(form);
  if (whole < 0 || whole > 4) {
    *result = ErrorValue(ErrValue);
    return -1;
  }
  return whole;
}

}  // namespace

// --- Rounding ------------------------------------------------------------------------------

void FnArrondi(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, Arrondi);
}

void FnArrondiInf(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, ArrondiInf);
}

void FnArrondiSup(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, ArrondiSup);
}

void FnTronque(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx,
              [](double x, double d) { return NumberValue(TruncateAt(x, TruncateToInt32(d))); });
}

void FnEnt(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::floor(x); });
}

void FnPlafond(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, Plafond);
}

void FnPlancher(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, Plancher);
}

void FnArrondiAuMultiple(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, ArrondiAuMultiple);
}

void FnPair(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx,
             [](double x) { return x >= 0 ? std::ceil(x * 0.5) * 2 : std::floor(x * 0.5) * 2; });
}

void FnImpair(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) {
    return x >= 0 ? std::ceil((x - 1) * 0.5) * 2 + 1 : std::floor((x + 1) * 0.5) * 2 - 1;
  });
}

void FnMod(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, Mod);
}

void FnQuotient(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, Quotient);
}

// --- Powers and logarithms -----------------------------------------------------------------

void FnPuissance(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, Puissance);
}

void FnLog(Value* args, Value* result, const EvalContext* ctx) {
  double x, base = 10;
  if (!NumberFromArg(&args[0], result, ctx, &x)) return;
  if (args[1].tag != ValueEmpty && !NumberFromArg(&args[1], result, ctx, &base)) return;
  if (!(x > 0)) {
    *result = ErrorValue(ErrNum);
    return;
  }
  double logBase = std::log(base);
  *result = logBase == 0 ? ErrorValue(ErrDiv0) : Finished(std::log(x) / logBase);
}

void FnLn(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return x > 0 ? std::log(x) : NAN; });
}

void FnLog10(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return x > 0 ? std::log10(x) : NAN; });
}

void FnRacine(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return x >= 0 ? std::sqrt(x) : NAN; });
}

void FnRacinePi(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return x >= 0 ? std::sqrt(x * Pi) : NAN; });
}

void FnExp(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::exp(x); });
}

// --- Trigonometry --------------------------------------------------------------------------

void FnSin(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::sin(x); });
}

void FnCos(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::cos(x); });
}

void FnTan(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::tan(x); });
}

void FnAsin(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::fabs(x) > 1 ? NAN : std::asin(x); });
}

void FnAcos(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::fabs(x) > 1 ? NAN : std::acos(x); });
}

void FnAtan(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::atan(x); });
}

void FnAtan2(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, Atan2);
}

void FnSinh(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::sinh(x); });
}

void FnCosh(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::cosh(x); });
}

void FnTanh(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::tanh(x); });
}

// The inverse hyperbolic functions by their logarithm formulas. ASINH works on the magnitude, so
// that large negative values do not lose everything to cancellation.
void FnAsinh(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) {
    double a = std::fabs(x), y = std::log(a + std::sqrt(a * a + 1));
    return x < 0 ? -y : y;
  });
}

void FnAcosh(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx,
             [](double x) { return x < 1 ? NAN : std::log(x + std::sqrt(x * x - 1)); });
}

void FnAtanh(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx,
             [](double x) { return std::fabs(x) >= 1 ? NAN : 0.5 * std::log((1 + x) / (1 - x)); });
}

void FnDegres(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return x * (180 / Pi); });
}

void FnRadians(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return x * (Pi / 180); });
}

void FnPi(Value*, Value* result, const EvalContext*) {
  *result = NumberValue(Pi);
}

// --- Small ones ----------------------------------------------------------------------------

void FnAbs(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return std::fabs(x); });
}

void FnSigne(Value* args, Value* result, const EvalContext* ctx) {
  ApplyUnary(args, result, ctx, [](double x) { return x > 0 ? 1.0 : x < 0 ? -1.0 : 0.0; });
}

// --- Combinatorics -------------------------------------------------------------------------

void FnFact(Value* args, Value* result, const EvalContext* ctx) {
  // 170! is the largest factorial a double holds.
  ApplyUnary(args, result, ctx,
             [](double x) { return x < 0 || x > 170 ? NAN : Factorial(TruncateToInt32(x)); });
}

void FnCombin(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, Combin);
}

// --- Random numbers ------------------------------------------------------------------------

void FnAlea(Value*, Value* result, const EvalContext*) {
  *result = NumberValue(Alea());
}

void FnAleaEntreBornes(Value* args, Value* result, const EvalContext* ctx) {
  ApplyBinary(args, result, ctx, AleaEntreBornes);
}

// --- Roman numerals ------------------------------------------------------------------------

void FnRomain(Value* args, Value* result, const EvalContext* ctx) {
  double n;
  if (!NumberFromArg(&args[0], result, ctx, &n)) return;
  int32_t form = RomanForm(&args[1], result, ctx);
  if (form < 0) return;
  int32_t rest = TruncateToInt32(n);
  if (rest < 0 || rest > 3999) {
    *result = ErrorValue(ErrValue);
    return;
  }
  char16_t numeral[32];
  uint32_t length = 0;
  for (const RomanPart& part : romanParts) {
    if (part.form > form) continue;
    for (; rest >= part.value; rest -= part.value)
      for (const char16_t* c = part.text; *c; c++) numeral[length++] = *c;
  }
  numeral[length] = 0;
  char16_t* text = TextDuplicate(numeral);
  *result = text ? TextValue(text) : ErrorValue(ErrNA);
}
