// The complex-number functions COMPLEXE and COMPLEXE.*. A complex number travels as text: "3+4i",
// "-2.5-j", "i", "7", with the locale's decimal separator and an optional exponent on each part.
// The suffix is a lower-case i or j; what a function writes keeps the suffix it read, and mixing
// the two in one call is #VALUE!. A number argument is a complex number with no imaginary part,
// an empty one is 0. Text that does not have the form is #NUM!.
#include <charconv>
#include <cmath>
#include <complex>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "functions/aggregate.h"
#include "functions/handlers.h"
#include "functions/numeric.h"
#include "functions/table.h"

namespace {

using Complex = std::complex<double>;

// A complex argument read: the number and its suffix (0 when the text has no imaginary part).
struct ComplexArg {
  Complex z;
  char16_t suffix;
};

bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

// Reads an unsigned decimal number (digits, separator, digits, exponent) at text[*at], rounded
// correctly from its digits. Returns 0 when there are no digits or the text is too long to be one.
int ReadMagnitude(const char16_t* text, uint32_t* at, double* out) {
  char ascii[64];
  uint32_t i = *at, n = 0;
  int digits = 0;
  bool shrinking = false;  // a negative exponent: out of range means too small, not too large
  auto take = [&](char c) {
    if (n + 1 < sizeof ascii) ascii[n] = c;
    n++;
  };
  for (; IsDigit(text[i]); i++, digits++) take(static_cast<char>(text[i]));
  if (text[i] == DecimalSeparator[0]) {
    take('.');
    for (i++; IsDigit(text[i]); i++, digits++) take(static_cast<char>(text[i]));
  }
  if (!digits) return 0;
  if (text[i] == u'e' || text[i] == u'E') {
    uint32_t j = i + 1;
    take('e');
    shrinking = text[j] == u'-';
    if (text[j] == u'+' || text[j] == u'-') take(static_cast<char>(text[j++]));
    if (!IsDigit(text[j])) return 0;
    for (; IsDigit(text[j]); j++) take(static_cast<char>(text[j]));
    i = j;
  }
  if (n >= sizeof ascii) return 0;
  auto [end, error] = std::from_chars(ascii, ascii + n, *out);
  if (end != ascii + n || (error != std::errc() && error != std::errc::result_out_of_range))
    return 0;
  if (error == std::errc::result_out_of_range) *out = shrinking ? 0 : HUGE_VAL;
  *at = i;
  return 1;
}

// Reads one signed term at text[*at]: a number, a number followed by the suffix, or the suffix
// alone (a coefficient of 1). `imaginary` says whether the suffix came.
int ReadTerm(const char16_t* text, uint32_t* at, double* value, char16_t* suffix) {
  uint32_t i = *at;
  double sign = 1;
  if (text[i] == u'+' || text[i] == u'-') sign = text[i++] == u'-' ? -1 : 1;
  double magnitude = 1;
  bool number = ReadMagnitude(text, &i, &magnitude);
  *suffix = 0;
  if (text[i] == u'i' || text[i] == u'j') {
    *suffix = text[i++];
  } else if (!number) {
    return 0;
  }
  *value = sign * magnitude;
  *at = i;
  return 1;
}

// Parses "a", "bi", "a+bi" and their like. Returns 0 when the text is not of that form.
int ParseComplex(const char16_t* text, ComplexArg* out) {
  uint32_t at = 0;
  double first, second;
  char16_t s1, s2;
  if (!ReadTerm(text, &at, &first, &s1)) return 0;
  if (!text[at]) {
    out->z = s1 ? Complex(0, first) : Complex(first, 0);
    out->suffix = s1;
    return 1;
  }
  // A second term must be signed, imaginary, and follow a real first term.
  if (s1 || (text[at] != u'+' && text[at] != u'-')) return 0;
  if (!ReadTerm(text, &at, &second, &s2) || !s2 || text[at]) return 0;
  out->z = Complex(first, second);
  out->suffix = s2;
  return 1;
}

// Reads a scalar argument as a complex number. Returns 0 with the error in `result`.
int ComplexFromValue(const Value* a, Value* result, ComplexArg* out) {
  switch (a->tag) {
    case ValueEmpty:
      *out = ComplexArg{Complex(0, 0), 0};
      return 1;
    case ValueNumber:
      *out = ComplexArg{Complex(a->number, 0), 0};
      return 1;
    case ValueText:
      if (a->text && ParseComplex(a->text, out)) return 1;
      *result = ErrorValue(ErrNum);
      return 0;
    case ValueError:
      *result = *a;
      return 0;
    default:
      *result = ErrorValue(ErrValue);
      return 0;
  }
}

int ComplexArgument(Value* a, Value* result, const EvalContext* ctx, ComplexArg* out) {
  ReduceToScalar(a, ctx);
  if (a->tag == ValueBoolean) {
    *result = ErrorValue(ErrValue);
    return 0;
  }
  return ComplexFromValue(a, result, out);
}

// The suffix two operands share: #VALUE! when they differ, the one given when only one has one.
int MergeSuffix(char16_t* suffix, char16_t other, Value* result) {
  if (other && *suffix && other != *suffix) {
    *result = ErrorValue(ErrValue);
    return 0;
  }
  if (other) *suffix = other;
  return 1;
}

// Appends the number in fifteen significant digits, as a cell shows it in the general format.
void AppendNumber(std::u16string* out, double x) {
  char16_t* text = NumberToText(x, 15);
  if (text) *out += text;
  Release(text);
}

// Writes z as text with `suffix` (i when none): "0", "3", "4i", "-i", "3+i", "3-4i".
void GiveComplex(Complex z, char16_t suffix, Value* result) {
  double re = z.real(), im = z.imag();
  if (!std::isfinite(re) || !std::isfinite(im)) {
    *result = ErrorValue(ErrNum);
    return;
  }
  if (re == 0) re = 0;  // no "-0"
  if (im == 0) im = 0;
  std::u16string text;
  if (re != 0 || im == 0) AppendNumber(&text, re);
  if (im != 0) {
    if (im > 0 && re != 0) text += u'+';
    if (im == -1)
      text += u'-';
    else if (im != 1)
      AppendNumber(&text, im);
    text += suffix ? suffix : u'i';
  }
  char16_t* copy = TextDuplicate(text.c_str());
  *result = copy ? TextValue(copy) : ErrorValue(ErrNA);
}

// The handlers of one complex argument: a complex result or a number.
void UnaryComplex(Value* args, Value* result, const EvalContext* ctx, Complex (*f)(Complex)) {
  ComplexArg a;
  if (ComplexArgument(&args[0], result, ctx, &a)) GiveComplex(f(a.z), a.suffix, result);
}

void UnaryNumber(Value* args, Value* result, const EvalContext* ctx, double (*f)(Complex)) {
  ComplexArg a;
  if (ComplexArgument(&args[0], result, ctx, &a)) GiveNumber(result, f(a.z));
}

// The logarithms of 0 have no value.
void Logarithm(Value* args, Value* result, const EvalContext* ctx, double base) {
  ComplexArg a;
  if (!ComplexArgument(&args[0], result, ctx, &a)) return;
  if (a.z == Complex(0, 0)) {
    *result = ErrorValue(ErrNum);
    return;
  }
  Complex ln(std::log(std::abs(a.z)), std::atan2(a.z.imag(), a.z.real()));
  GiveComplex(base ? ln / std::log(base) : ln, a.suffix, result);
}

// z to the real power n through the polar form, as |z|^n (cos n*theta + i sin n*theta).
int PolarPower(Complex z, double n, Complex* out) {
  double r = std::abs(z);
  if (r == 0) {
    if (n <= 0) return 0;
    *out = Complex(0, 0);
    return 1;
  }
  double theta = std::atan2(z.imag(), z.real());
  *out = std::polar(std::pow(r, n), n * theta);
  return 1;
}

// COMPLEXE.SOMME and COMPLEXE.PRODUIT: every slot, and every element of a reference or array,
// folds into the running value; empty cells are skipped.
struct Fold {
  Complex value;
  char16_t suffix;
  bool product;
};

int FoldValue(Fold* fold, const Value* v, Value* result) {
  if (v->tag == ValueEmpty) return 1;
  ComplexArg a;
  if (v->tag == ValueBoolean) {
    *result = ErrorValue(ErrValue);
    return 0;
  }
  if (!ComplexFromValue(v, result, &a) || !MergeSuffix(&fold->suffix, a.suffix, result)) return 0;
  fold->value = fold->product ? fold->value * a.z : fold->value + a.z;
  return 1;
}

void FoldArguments(Value* args, Value* result, const EvalContext* ctx, bool product) {
  Fold fold{product ? Complex(1, 0) : Complex(0, 0), 0, product};
  bool any = false;
  for (int i = 0; i < FunctionFrameSize; i++) {
    Value* a = &args[i];
    if (a->tag == ValueEmpty) continue;
    any = true;
    if (a->tag == ValueRef || a->tag == ValueRefList || a->tag == ValueArray) {
      CoerceValue(a, ValueArray, ctx);
      if (a->tag == ValueError) {
        *result = *a;
        return;
      }
      for (uint32_t k = 0; k < ElementCount(a); k++)
        if (!FoldValue(&fold, &a->elements[k], result)) return;
    } else if (!FoldValue(&fold, a, result)) {
      return;
    }
  }
  if (!any) {
    *result = ErrorValue(ErrValue);
    return;
  }
  GiveComplex(fold.value, fold.suffix, result);
}

// a / b by Smith's scaling, dividing through by the larger part of b, which keeps the
// intermediate products in range and rounds as workbooks' stored quotients do.
Complex Divide(Complex a, Complex b) {
  double c = b.real(), d = b.imag();
  if (std::fabs(c) >= std::fabs(d)) {
    double r = d / c, den = c + d * r;
    return Complex((a.real() + a.imag() * r) / den, (a.imag() - a.real() * r) / den);
  }
  double r = c / d, den = c * r + d;
  return Complex((a.real() * r + a.imag()) / den, (a.imag() * r - a.real()) / den);
}

// The binary handlers: both operands read left to right, then the suffix settled.
int ReadPair(Value* args, Value* result, const EvalContext* ctx, ComplexArg* a, ComplexArg* b) {
  return ComplexArgument(&args[0], result, ctx, a) && ComplexArgument(&args[1], result, ctx, b) &&
         MergeSuffix(&a->suffix, b->suffix, result);
}

}  // namespace

void FnComplexe(Value* args, Value* result, const EvalContext* ctx) {
  double parts[2];
  if (!ReadNumbers(args, 2, parts, result, ctx)) return;
  char16_t suffix = u'i';
  if (args[2].tag != ValueEmpty) {
    const char16_t* text;
    if (!TextFromArg(&args[2], result, ctx, &text)) return;
    if (text[0] && !((text[0] == u'i' || text[0] == u'j') && !text[1])) {
      *result = ErrorValue(ErrValue);
      return;
    }
    if (text[0]) suffix = text[0];
  }
  GiveComplex(Complex(parts[0], parts[1]), suffix, result);
}

void FnComplexeReel(Value* args, Value* result, const EvalContext* ctx) {
  UnaryNumber(args, result, ctx, [](Complex z) { return z.real(); });
}

void FnComplexeImaginaire(Value* args, Value* result, const EvalContext* ctx) {
  UnaryNumber(args, result, ctx, [](Complex z) { return z.imag(); });
}

void FnComplexeModule(Value* args, Value* result, const EvalContext* ctx) {
  UnaryNumber(args, result, ctx, [](Complex z) { return std::abs(z); });
}

// The angle of 0 is undefined: #DIV/0!.
void FnComplexeArgument(Value* args, Value* result, const EvalContext* ctx) {
  ComplexArg a;
  if (!ComplexArgument(&args[0], result, ctx, &a)) return;
  if (a.z == Complex(0, 0))
    *result = ErrorValue(ErrDiv0);
  else
    GiveNumber(result, std::atan2(a.z.imag(), a.z.real()));
}

void FnComplexeConjugue(Value* args, Value* result, const EvalContext* ctx) {
  UnaryComplex(args, result, ctx, [](Complex z) { return std::conj(z); });
}

void FnComplexeCos(Value* args, Value* result, const EvalContext* ctx) {
  UnaryComplex(args, result, ctx, [](Complex z) { return std::cos(z); });
}

void FnComplexeSin(Value* args, Value* result, const EvalContext* ctx) {
  UnaryComplex(args, result, ctx, [](Complex z) { return std::sin(z); });
}

void FnComplexeExp(Value* args, Value* result, const EvalContext* ctx) {
  UnaryComplex(args, result, ctx, [](Complex z) { return std::exp(z); });
}

void FnComplexeLn(Value* args, Value* result, const EvalContext* ctx) {
  Logarithm(args, result, ctx, 0);
}

void FnComplexeLog10(Value* args, Value* result, const EvalContext* ctx) {
  Logarithm(args, result, ctx, 10);
}

void FnComplexeLog2(Value* args, Value* result, const EvalContext* ctx) {
  Logarithm(args, result, ctx, 2);
}

void FnComplexeRacine(Value* args, Value* result, const EvalContext* ctx) {
  ComplexArg a;
  Complex root;
  if (ComplexArgument(&args[0], result, ctx, &a) && PolarPower(a.z, 0.5, &root))
    GiveComplex(root, a.suffix, result);
}

void FnComplexePuissance(Value* args, Value* result, const EvalContext* ctx) {
  ComplexArg a;
  double n;
  Complex power;
  if (!ComplexArgument(&args[0], result, ctx, &a) || !NumberFromArg(&args[1], result, ctx, &n))
    return;
  if (!PolarPower(a.z, n, &power))
    *result = ErrorValue(ErrNum);
  else
    GiveComplex(power, a.suffix, result);
}

void FnComplexeDifference(Value* args, Value* result, const EvalContext* ctx) {
  ComplexArg a, b;
  if (ReadPair(args, result, ctx, &a, &b)) GiveComplex(a.z - b.z, a.suffix, result);
}

// Dividing by 0 is #NUM!.
void FnComplexeDiv(Value* args, Value* result, const EvalContext* ctx) {
  ComplexArg a, b;
  if (!ReadPair(args, result, ctx, &a, &b)) return;
  if (b.z == Complex(0, 0))
    *result = ErrorValue(ErrNum);
  else
    GiveComplex(Divide(a.z, b.z), a.suffix, result);
}

void FnComplexeSomme(Value* args, Value* result, const EvalContext* ctx) {
  FoldArguments(args, result, ctx, false);
}

void FnComplexeProduit(Value* args, Value* result, const EvalContext* ctx) {
  FoldArguments(args, result, ctx, true);
}
