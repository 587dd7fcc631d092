// The text functions that print a number: TEXTE through any format code, CTXT with fixed
// decimals and optional grouping, FRANC in the locale's currency form. All three go through the
// number format engine with no measure, so they print as a cell would.
#include <cmath>

#include "base/text.h"
#include "format/number_format.h"
#include "functions/aggregate.h"
#include "functions/handlers.h"
#include "functions/numeric.h"
#include "model/workbook.h"

namespace {

// The most decimals CTXT and FRANC accept.
constexpr int32_t MaxDecimals = 127;

void TextResult(const char16_t* text, Value* result) {
  char16_t* copy = TextDuplicate(text);
  *result = copy ? TextValue(copy) : ErrorValue(ErrNA);
}

int DateSystem(const EvalContext* ctx) {
  return ctx->book < App.workbookCount ? GetWorkbook(ctx->book)->date1904 : 0;
}

// The decimals argument: 2 when it is left out; above MaxDecimals gives #VALUE!.
int DecimalsArg(Value* a, Value* result, const EvalContext* ctx, int32_t* decimals) {
  *decimals = 2;
  if (a->tag == ValueEmpty) return 1;
  double d;
  if (!NumberFromArg(a, result, ctx, &d)) return 0;
  *decimals = TruncateToInt32(d);
  if (*decimals > MaxDecimals) {
    *result = ErrorValue(ErrValue);
    return 0;
  }
  return 1;
}

// The number rounded half away from zero at `decimals` places, which may be negative.
double RoundAt(double x, int32_t decimals) {
  if (decimals < -308) return 0;
  double p = std::pow(10.0, decimals);
  double rounded = RoundHalfAway(x * p) / p;
  return std::isfinite(rounded) ? rounded : x;
}

}  // namespace

void FnTexte(Value* args, Value* result, const EvalContext* ctx) {
  ReduceToScalar(&args[0], ctx);
  ReduceToScalar(&args[1], ctx);
  if (args[1].tag == ValueError) {
    *result = args[1];
    return;
  }
  // A text that does not read as a number is given back as it is, as spreadsheets do.
  Value copy{};
  if (args[0].tag == ValueText && CopyValue(&copy, &args[0])) {
    CoerceValue(&copy, ValueNumber, ctx);
    if (copy.tag != ValueNumber) {
      FreeValue(&copy);
      TextResult(args[0].text, result);
      return;
    }
    FreeValue(&copy);
  }
  double value;
  if (!NumberFromArg(&args[0], result, ctx, &value)) return;
  CoerceValue(&args[1], ValueText, ctx);
  if (args[1].tag != ValueText) {
    *result = ErrorValue(ErrValue);
    return;
  }
  TextResult(FormatNumber(value, args[1].text, DateSystem(ctx), nullptr, 0, nullptr), result);
}

void FnCtxt(Value* args, Value* result, const EvalContext* ctx) {
  double number;
  int32_t decimals;
  if (!NumberFromArg(&args[0], result, ctx, &number)) return;
  if (!DecimalsArg(&args[1], result, ctx, &decimals)) return;
  bool plain = false;
  if (args[2].tag != ValueEmpty) {
    CoerceValue(&args[2], ValueBoolean, ctx);
    if (args[2].tag != ValueBoolean) {
      *result = args[2].tag == ValueError ? args[2] : ErrorValue(ErrValue);
      return;
    }
    plain = args[2].boolean != 0;
  }
  char16_t code[8 + MaxDecimals];
  uint32_t length = 0;
  for (const char16_t* p = plain ? u"0" : u"#,##0"; *p; p++) code[length++] = *p;
  if (decimals > 0) code[length++] = u'.';
  for (int32_t k = 0; k < decimals; k++) code[length++] = u'0';
  code[length] = 0;
  TextResult(FormatNumber(RoundAt(number, decimals), code, DateSystem(ctx), nullptr, 0, nullptr),
             result);
}

void FnFranc(Value* args, Value* result, const EvalContext* ctx) {
  double number;
  int32_t decimals;
  if (!NumberFromArg(&args[0], result, ctx, &number)) return;
  if (!DecimalsArg(&args[1], result, ctx, &decimals)) return;
  const char16_t* code = CurrencyFormatCode(decimals > 0 ? decimals : 0);
  TextResult(FormatNumber(RoundAt(number, decimals), code, DateSystem(ctx), nullptr, 0, nullptr),
             result);
}
