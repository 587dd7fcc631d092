// The text functions that print a number: TEXTE through any format code, CTXT with fixed
// decimals and optional grouping, FRANC in the locale's currency form and USDOLLAR in dollars,
// DATESTRING and NUMBERSTRING in the Japanese forms of dates and numerals. All go through the
// number format engine with no measure, so they print as a cell would, except NUMBERSTRING,
// which spells its numerals itself.
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
  CoerceValue(&args[1], ValueText, ctx);
  if (args[1].tag != ValueText) {
    *result = ErrorValue(ErrValue);
    return;
  }
  const char16_t* code = args[1].text ? args[1].text : u"";
  // A text that does not read as a number goes through the code's text section, or is given
  // back as it is when the code has none.
  Value copy{};
  if (args[0].tag == ValueText && CopyValue(&copy, &args[0])) {
    CoerceValue(&copy, ValueNumber, ctx);
    if (copy.tag != ValueNumber) {
      FreeValue(&copy);
      const char16_t* shown = FormatText(args[0].text, code, nullptr);
      TextResult(shown ? shown : args[0].text, result);
      return;
    }
    FreeValue(&copy);
  }
  double value;
  if (!NumberFromArg(&args[0], result, ctx, &value)) return;
  if (FormatOutsideCalendar(value, code, ContextDate1904(ctx))) {
    *result = ErrorValue(ErrValue);
    return;
  }
  TextResult(FormatNumber(value, code, ContextDate1904(ctx), nullptr, 0, nullptr), result);
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
  TextResult(
      FormatNumber(RoundAt(number, decimals), code, ContextDate1904(ctx), nullptr, 0, nullptr),
      result);
}

// The currency code without its "_x" paddings (outside quotes and escapes): they line a
// positive amount up with a negative one in a column, and a text has no column to line up in.
static void DropPaddings(const char16_t* code, char16_t* out, uint32_t capacity) {
  uint32_t n = 0;
  bool quoted = false;
  for (const char16_t* p = code; *p && n + 2 < capacity; p++) {
    if (*p == u'"') quoted = !quoted;
    if (!quoted && *p == u'_' && p[1]) {
      p++;
      continue;
    }
    out[n++] = *p;
    if (!quoted && *p == u'\\' && p[1]) out[n++] = *++p;
  }
  out[n] = 0;
}

void FnFranc(Value* args, Value* result, const EvalContext* ctx) {
  double number;
  int32_t decimals;
  if (!NumberFromArg(&args[0], result, ctx, &number)) return;
  if (!DecimalsArg(&args[1], result, ctx, &decimals)) return;
  char16_t code[2 * (MaxDecimals + 64)];
  DropPaddings(CurrencyFormatCode(decimals > 0 ? decimals : 0), code, 2 * (MaxDecimals + 64));
  TextResult(
      FormatNumber(RoundAt(number, decimals), code, ContextDate1904(ctx), nullptr, 0, nullptr),
      result);
}

void FnUsDollar(Value* args, Value* result, const EvalContext* ctx) {
  double number;
  int32_t decimals;
  if (!NumberFromArg(&args[0], result, ctx, &number)) return;
  if (!DecimalsArg(&args[1], result, ctx, &decimals)) return;
  // The dollar form whatever the locale: the symbol in front, negatives in parentheses.
  char16_t code[2 * (16 + MaxDecimals)];
  uint32_t length = 0;
  for (int section = 0; section < 2; section++) {
    for (const char16_t* p = section ? u";(\"$\"#,##0" : u"\"$\"#,##0"; *p; p++)
      code[length++] = *p;
    if (decimals > 0) code[length++] = u'.';
    for (int32_t k = 0; k < decimals; k++) code[length++] = u'0';
    if (section) code[length++] = u')';
  }
  code[length] = 0;
  TextResult(
      FormatNumber(RoundAt(number, decimals), code, ContextDate1904(ctx), nullptr, 0, nullptr),
      result);
}

void FnDateString(Value* args, Value* result, const EvalContext* ctx) {
  double serial;
  if (!NumberFromArg(&args[0], result, ctx, &serial)) return;
  const char16_t* code = u"yy\"\u5E74\"mm\"\u6708\"dd\"\u65E5\"";
  if (FormatOutsideCalendar(serial, code, ContextDate1904(ctx))) {
    *result = ErrorValue(ErrValue);
    return;
  }
  TextResult(FormatNumber(serial, code, ContextDate1904(ctx), nullptr, 0, nullptr), result);
}

namespace {

// The numerals of NUMBERSTRING: the digits in the common and the formal (banking) forms, and the
// units of ten, hundred and thousand in each.
const char16_t commonDigits[] = u"\u3007\u4E00\u4E8C\u4E09\u56DB\u4E94\u516D\u4E03\u516B\u4E5D";
const char16_t formalDigits[] = u"\u3007\u58F1\u5F10\u53C2\u56DB\u4F0D\u516D\u4E03\u516B\u4E5D";
const char16_t commonUnits[] = u"\u5341\u767E\u5343";
const char16_t formalUnits[] = u"\u62FE\u767E\u9621";
// Ten thousand, a hundred million, a million million: the groups of four digits.
const char16_t groupUnits[] = u"\u4E07\u5104\u5146";

// Writes one group of four digits (1 to 9999) with its units; the common form leaves out the one
// before ten, a hundred and a thousand.
uint32_t SpellGroup(uint32_t group, bool formal, char16_t* out) {
  uint32_t n = 0;
  const char16_t* digits = formal ? formalDigits : commonDigits;
  const char16_t* units = formal ? formalUnits : commonUnits;
  for (int place = 3; place >= 0; place--) {
    uint32_t d = group / (place == 3 ? 1000 : place == 2 ? 100 : place == 1 ? 10 : 1) % 10;
    if (d == 0) continue;
    if (place == 0 || d != 1 || formal) out[n++] = digits[d];
    if (place > 0) out[n++] = units[place - 1];
  }
  return n;
}

}  // namespace

void FnNumberString(Value* args, Value* result, const EvalContext* ctx) {
  double number, kind;
  if (!NumberFromArg(&args[0], result, ctx, &number) ||
      !NumberFromArg(&args[1], result, ctx, &kind))
    return;
  int32_t type = TruncateToInt32(kind);
  double whole = RoundHalfAway(std::fabs(number));
  // Four groups of four digits are what the units can name.
  if (type < 1 || type > 3 || whole >= 1e16) {
    *result = ErrorValue(ErrNum);
    return;
  }
  char16_t out[80];
  uint32_t n = 0;
  auto value = static_cast<uint64_t>(whole);
  if (value == 0) {
    out[n++] = commonDigits[0];
  } else if (type == 3) {
    // Digit by digit, with the zero as a circle.
    char digits[20];
    uint32_t count = 0;
    for (uint64_t v = value; v; v /= 10) digits[count++] = static_cast<char>(v % 10);
    while (count) out[n++] = commonDigits[static_cast<int>(digits[--count])];
  } else {
    for (int g = 3; g >= 0; g--) {
      uint64_t scale = 1;
      for (int k = 0; k < g; k++) scale *= 10000;
      auto group = static_cast<uint32_t>(value / scale % 10000);
      if (!group) continue;
      n += SpellGroup(group, type == 2, out + n);
      if (g > 0) out[n++] = groupUnits[g - 1];
    }
  }
  out[n] = 0;
  TextResult(out, result);
}
