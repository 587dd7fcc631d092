// The shared number reader of typed text.
#include "format/input.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "format/locale.h"

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

uint32_t ValueNumberText(double number, int digits, char16_t* out) {
  char buffer[NumberTextCapacity];
  if (number == 0) number = 0;  // never print a negative zero
  if (digits < 1) digits = 1;
  if (digits > 17) digits = 17;
  std::snprintf(buffer, sizeof buffer, "%-.*G", digits, number);
  // The C library may use its own decimal point; whichever it wrote becomes the locale's.
  bool hasExponent = std::strchr(buffer, 'E') != nullptr;
  char* point = nullptr;
  for (char* p = buffer; *p; p++)
    if (*p == '.' || *p == ',') {
      point = p;
      break;
    }
  size_t length = std::strlen(buffer);
  if (point && !hasExponent) {
    while (length > 0 && buffer[length - 1] == '0') buffer[--length] = 0;
    if (&buffer[length - 1] == point) buffer[--length] = 0;
  }
  for (size_t i = 0; i < length; i++)
    out[i] = &buffer[i] == point ? DecimalSeparator[0] : static_cast<char16_t>(buffer[i]);
  out[length] = 0;
  return static_cast<uint32_t>(length);
}
