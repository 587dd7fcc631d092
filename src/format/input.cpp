// The number reader that every recogniser of typed text shares, and the readers built on it:
// whole-string numbers with percent, currency and parenthesised forms, currency amounts, the
// boolean and error literals, and the conversion of a text value to what it spells.
#include "format/input.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/text.h"
#include "format/locale.h"
#include "model/value.h"

static bool IsBlank(char16_t c) {
  return c == u' ';
}
static bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}

bool IsThousandsSeparator(char16_t c) {
  char16_t sep = ThousandsSeparator[0];
  bool blankSeparator = sep == u' ' || sep == 0x00A0 || sep == 0x202F;
  if (blankSeparator) return c == u' ' || c == 0x00A0 || c == 0x202F;
  return c == sep && sep != 0;
}

int ParseNumberText(const char16_t* text, uint32_t start, uint32_t end, double* out,
                    int32_t grouping) {
  if (!text) return 0;
  uint32_t i = start;
  while (i < end && IsBlank(text[i])) i++;
  bool negative = false;
  if (i < end && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
  while (i < end && IsBlank(text[i])) i++;
  if (i >= end) return 0;

  // The significant digits are gathered as ASCII and converted once, so that the value is the
  // double nearest to what was typed.
  char digits[40];
  int digitCount = 0;
  int scale = 0;  // power of ten to apply to the gathered integer
  bool sawDigit = false, significant = false;
  for (; i < end; i++) {
    char16_t c = text[i];
    if (IsDigit(c)) {
      sawDigit = true;
      if (c != u'0' || significant) {
        significant = true;
        if (digitCount < 15)
          digits[digitCount++] = static_cast<char>(c);
        else
          scale++;
      }
    } else if (grouping != GroupingNone && sawDigit && IsThousandsSeparator(c) && i + 1 < end &&
               IsDigit(text[i + 1])) {
      if (grouping == GroupingStrict) {
        uint32_t n = 0;
        while (i + 1 + n < end && IsDigit(text[i + 1 + n])) n++;
        if (n != 3) return 0;
      }
    } else {
      break;
    }
  }
  if (i < end && text[i] == DecimalSeparator[0]) {
    i++;
    bool fractionDigit = false;
    for (; i < end && IsDigit(text[i]); i++) {
      fractionDigit = true;
      if (text[i] != u'0' || significant) {
        significant = true;
        if (digitCount < 15) {
          digits[digitCount++] = static_cast<char>(text[i]);
          scale--;
        }
      } else {
        scale--;
      }
    }
    if (!sawDigit && !fractionDigit) return 0;
    sawDigit = true;
  }
  if (!sawDigit) return 0;
  while (i < end && IsBlank(text[i])) i++;
  long exponent = 0;
  if (i < end && (text[i] == u'E' || text[i] == u'e')) {
    i++;
    while (i < end && IsBlank(text[i])) i++;
    bool negativeExponent = false;
    if (i < end && (text[i] == u'+' || text[i] == u'-')) negativeExponent = text[i++] == u'-';
    while (i < end && IsBlank(text[i])) i++;
    if (i >= end || !IsDigit(text[i])) return 0;
    for (; i < end && IsDigit(text[i]); i++)
      if (exponent < 100000) exponent = exponent * 10 + (text[i] - u'0');
    if (negativeExponent) exponent = -exponent;
    while (i < end && IsBlank(text[i])) i++;
  }
  if (i != end) return 0;

  double value = 0;
  if (significant) {
    char number[64];
    int n = 0;
    for (int k = 0; k < digitCount; k++) number[n++] = digits[k];
    number[n++] = 'e';
    long total = exponent + scale;
    if (total > 100000) total = 100000;
    if (total < -100000) total = -100000;
    char buffer[16];
    int len = 0;
    long magnitude = total < 0 ? -total : total;
    do buffer[len++] = static_cast<char>('0' + magnitude % 10);
    while ((magnitude /= 10) > 0);
    if (total < 0) number[n++] = '-';
    while (len) number[n++] = buffer[--len];
    number[n] = 0;
    value = std::strtod(number, nullptr);
    if (!std::isfinite(value) || value == 0) return 0;
  }
  *out = negative ? -value : value;
  return 1;
}

// Blanks around a currency symbol may be typed as any of the space characters.
static bool IsSpace(char16_t c) {
  return c == u' ' || c == 0x00A0 || c == 0x202F;
}
static uint32_t SkipSpaces(const char16_t* text, uint32_t i, uint32_t end) {
  while (i < end && IsSpace(text[i])) i++;
  return i;
}

// Length of the currency symbol when it starts text[i, end), else 0.
static uint32_t MatchCurrencySymbol(const char16_t* text, uint32_t i, uint32_t end) {
  uint32_t length = TextLength(CurrencySymbol);
  if (length == 0 || end - i < length) return 0;
  for (uint32_t k = 0; k < length; k++)
    if (FoldCase(text[i + k]) != FoldCase(CurrencySymbol[k])) return 0;
  return length;
}

// Reads the signs, symbol and blanks on one side of the amount. Each of sign and symbol may appear
// once over both sides; returns the index behind what was read.
static uint32_t ReadCurrencyAffixes(const char16_t* text, uint32_t i, uint32_t end, int* sign,
                                    bool* symbol) {
  for (;;) {
    i = SkipSpaces(text, i, end);
    if (i >= end) return i;
    if (!*sign && (text[i] == u'-' || text[i] == u'+')) {
      *sign = text[i++] == u'-' ? -1 : 1;
    } else if (uint32_t length = !*symbol ? MatchCurrencySymbol(text, i, end) : 0) {
      *symbol = true;
      i += length;
    } else {
      return i;
    }
  }
}

// The amount is any arrangement the negative-currency patterns allow: "$1", "1 $", "-$1", "$-1",
// "$1-", "1$-", "-1 $", "($1)", "(1 $)" and the like.
int ParseCurrencyText(const char16_t* text, uint32_t start, uint32_t end, double* out,
                      int32_t* digits) {
  if (!text || start >= end) return 0;
  uint32_t i = SkipSpaces(text, start, end);
  uint32_t last = end;
  while (last > i && IsSpace(text[last - 1])) last--;
  bool parentheses = last - i >= 2 && text[i] == u'(' && text[last - 1] == u')';
  if (parentheses) {
    i++;
    last--;
  }
  int sign = 0;
  bool symbol = false;
  i = ReadCurrencyAffixes(text, i, last, &sign, &symbol);

  // The extent of the amount: digits, grouped or not, and a fraction. The grouping itself is
  // checked by the number reader.
  uint32_t amountStart = i;
  bool sawDigit = false;
  while (i < last) {
    if (IsDigit(text[i])) {
      sawDigit = true;
      i++;
    } else if (sawDigit && IsThousandsSeparator(text[i]) && i + 1 < last && IsDigit(text[i + 1])) {
      i++;
    } else {
      break;
    }
  }
  int32_t decimals = 0;
  if (i < last && text[i] == DecimalSeparator[0]) {
    i++;
    for (; i < last && IsDigit(text[i]); i++) decimals++;
  }
  if (!sawDigit && decimals == 0) return 0;
  uint32_t amountEnd = i;

  i = ReadCurrencyAffixes(text, i, last, &sign, &symbol);
  if (i != last || !symbol || (parentheses && sign)) return 0;
  double value;
  if (!ParseNumberText(text, amountStart, amountEnd, &value, GroupingStrict)) return 0;
  *out = parentheses || sign < 0 ? -value : value;
  if (digits) *digits = decimals;
  return 1;
}

int ParseNumberInput(const char16_t* text, double* out) {
  uint32_t length = TextLength(text);
  if (length == 0) return 0;
  double value;
  int32_t decimals;
  if (ParseNumberText(text, 0, length, &value, GroupingLoose)) {
    *out = value;
    return 1;
  }
  if (length > 1 && text[length - 1] == u'%' &&
      ParseNumberText(text, 0, length - 1, &value, GroupingLoose)) {
    *out = value * 0.01;
    return 1;
  }
  if (ParseCurrencyText(text, 0, length, &value, &decimals)) {
    *out = value;
    return 1;
  }
  if (length > 2 && text[0] == u'(' && text[length - 1] == u')' &&
      ParseNumberText(text, 1, length - 1, &value, GroupingLoose)) {
    *out = -value;
    return 1;
  }
  return 0;
}

int ParseBooleanText(const char16_t* text, int32_t* out) {
  if (!text) return 0;
  if (EqualTextNoCase(text, FalseText)) {
    *out = 0;
    return 1;
  }
  if (EqualTextNoCase(text, TrueText)) {
    *out = 1;
    return 1;
  }
  return 0;
}

int ParseErrorText(const char16_t* text, uint8_t* code) {
  if (!text || !text[0]) return 0;
  for (uint32_t k = 0; k < ErrorCodeCount; k++)
    if (EqualTextNoCase(text, ErrorText(k))) {
      *code = static_cast<uint8_t>(k);
      return 1;
    }
  return 0;
}

void TextToValue(Value* v, int date1904) {
  if (v->tag != ValueText || !v->text) return;
  const char16_t* text = v->text;
  double number;
  int32_t boolean;
  Value result;
  if (ParseNumberInput(text, &number) || ParseDateText(text, date1904, &number) ||
      ParseTimeText(text, &number, nullptr))
    result = NumberValue(number);
  else if (ParseBooleanText(text, &boolean))
    result = BooleanValue(boolean != 0);
  else
    return;
  FreeValue(v);
  *v = result;
}
