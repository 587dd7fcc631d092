// Deciding what a text typed into a cell is: empty, a formula, a number (with the built-in format
// its form suggests), a boolean, an error literal, or plain text. The first character chooses
// which readers are tried, so that a text is never read two ways.
#include "base/text.h"
#include "format/input.h"
#include "format/locale.h"
#include "formula/parser.h"
#include "model/workbook.h"

static bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

static bool HoldsDecimalSeparator(const char16_t* text, uint32_t length) {
  for (uint32_t i = 0; i < length; i++)
    if (text[i] == DecimalSeparator[0]) return true;
  return false;
}

// A thousands separator typed between two digits; blanks elsewhere (before an exponent, around
// the number) do not count.
static bool HoldsGroupSeparator(const char16_t* text, uint32_t length) {
  for (uint32_t i = 1; i + 1 < length; i++)
    if (IsThousandsSeparator(text[i]) && IsDigit(text[i - 1]) && IsDigit(text[i + 1])) return true;
  return false;
}

static InputKind Number(InputResult* out, double number, InputFormatHint hint, int32_t detail) {
  out->kind = InputNumber;
  out->number = number;
  out->hint = hint;
  out->hintDetail = detail;
  return InputNumber;
}

// A plain number, a percentage, a currency amount, or a currency amount in percent, in that order.
// Thousands separators must group by three, so that "12 34" stays text. InputEmpty when the text
// is none of these.
static InputKind ReadAmount(const char16_t* text, uint32_t length, InputResult* out) {
  double value;
  int32_t decimals = 0;
  bool decimal = HoldsDecimalSeparator(text, length);
  bool percent = length > 1 && text[length - 1] == u'%';
  if (ParseNumberText(text, 0, length, &value, GroupingStrict)) {
    if (HoldsGroupSeparator(text, length))
      return Number(out, value, HintThousands, decimal ? 2 : 0);
    return Number(out, value, HintNone, 0);
  }
  if (percent && ParseNumberText(text, 0, length - 1, &value, GroupingStrict))
    return Number(out, value * 0.01, HintPercent, decimal ? 2 : 0);
  if (ParseCurrencyText(text, 0, length, &value, &decimals))
    return Number(out, value, HintCurrency, decimals);
  if (percent && ParseCurrencyText(text, 0, length - 1, &value, &decimals))
    return Number(out, value * 0.01, HintPercent, 2);
  return InputEmpty;
}

// A formula when the scan from `start` reaches the end; a failed formula is text for the caller
// to report.
static InputKind Formula(const ParseContext* ctx, const char16_t* text, uint32_t start,
                         uint32_t length, int unionAllowed, InputResult* out) {
  out->kind = InputText;
  if (ctx && start < length &&
      ScanExpression(ctx, text, static_cast<int32_t>(start), static_cast<int32_t>(length),
                     unionAllowed, nullptr) == static_cast<int32_t>(length))
    out->kind = InputFormula;
  return out->kind;
}

InputKind ClassifyInput(const ParseContext* ctx, const char16_t* text, InputResult* out) {
  *out = InputResult{};
  uint32_t length = TextLength(text);
  if (length == 0) return InputEmpty;
  out->kind = InputText;
  // "=", "+" or "-" alone is text, whatever a scan would make of it.
  if (length == 1 && (text[0] == u'=' || text[0] == u'+' || text[0] == u'-')) return InputText;
  int date1904 = ctx ? GetWorkbook(ctx->book)->date1904 : 0;
  double value;
  char16_t first = text[0];

  if (first == u'=') {
    uint32_t start = 1;
    while (start < length && text[start] == u' ') start++;
    return Formula(ctx, text, start, length, 0, out);
  }
  if (first == u'+' || first == u'-') {
    if (ReadAmount(text, length, out) == InputNumber) return InputNumber;
    return Formula(ctx, text, 0, length, 1, out);
  }
  if (IsDigit(first) || first == DecimalSeparator[0]) {
    if (ReadAmount(text, length, out) == InputNumber) return InputNumber;
    if (ParseDateText(text, date1904, &value)) return Number(out, value, HintDate, 0);
    int32_t format = 0;
    if (ParseTimeText(text, &value, &format)) return Number(out, value, HintTime, format);
    return InputText;
  }

  int32_t boolean;
  uint8_t error;
  if (ParseBooleanText(text, &boolean)) {
    out->kind = InputBoolean;
    out->boolean = boolean;
    return InputBoolean;
  }
  if (ParseErrorText(text, &error)) {
    out->kind = InputError;
    out->error = error;
    return InputError;
  }
  // A leading currency symbol: the number behind it takes the grouped format, with decimals
  // when a decimal separator was typed.
  uint32_t symbolLength = TextLength(CurrencySymbol);
  if (symbolLength && CompareTextNoCaseN(text, CurrencySymbol, symbolLength) == 0) {
    if (!ParseNumberText(text, symbolLength, length, &value, GroupingStrict)) return InputText;
    return Number(out, value, HintThousands, HoldsDecimalSeparator(text, length) ? 2 : 0);
  }
  if (first == u'(' && text[length - 1] == u')' &&
      ParseNumberText(text, 1, length - 1, &value, GroupingStrict))
    return Number(out, -value, HintNone, 0);
  // What is left may be a date that starts with a month name, as "janv. 2024".
  if (ParseDateText(text, date1904, &value)) return Number(out, value, HintDate, 0);
  return InputText;
}

int32_t BuiltInFormatForHint(InputFormatHint hint, int32_t detail) {
  switch (hint) {
    case HintThousands:
      return detail == 2 ? 4 : 3;  // "#,##0.00" or "#,##0"
    case HintDate:
      return 14;  // the short date
    case HintTime:
      return detail > 0 ? detail : 20;
    case HintPercent:
      return detail == 2 ? 10 : 9;  // "0.00%" or "0%"
    case HintCurrency:
      return detail > 0 ? 7 : 5;  // the currency form with or without decimals
    default:
      return -1;
  }
}
