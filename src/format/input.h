// Reading typed text as values. This file holds the number reader that every recogniser shares;
// the date, time, currency and classification readers join it.
#pragma once
#include <cstdint>

enum NumberGrouping : int32_t {
  GroupingNone = 0,    // no thousands separator accepted
  GroupingLoose = 1,   // thousands separators anywhere in the integer part
  GroupingStrict = 2,  // each separator followed by exactly three digits
};

// Reads text[start, end) as one number: blanks, one sign, blanks, digits with the locale's
// decimal separator, blanks, an optional exponent ("E", blanks, sign, blanks, digits), blanks.
// At most 15 significant digits take part; later digits only shift the scale. The result must
// be finite, and a number with significant digits must not underflow to 0. Returns 0 and leaves
// *out alone when the text is not a number.
int ParseNumberText(const char16_t* text, uint32_t start, uint32_t end, double* out,
                    int32_t grouping);
// True for the characters read as a thousands separator: the locale's, and when that is a blank
// of any kind, the plain, no-break and narrow no-break spaces alike.
bool IsThousandsSeparator(char16_t c);
