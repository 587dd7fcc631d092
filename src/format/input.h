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

// What a typed text is.
enum InputKind : int32_t {
  InputEmpty = 0,
  InputFormula = 1,
  InputText = 2,
  InputNumber = 3,
  InputBoolean = 4,
  InputError = 5,
};

// Which built-in format a number typed into a cell without a format of its own takes; the detail
// narrows it (see ClassifyInput).
enum InputFormatHint : int32_t {
  HintNone = 0,
  HintThousands = 2,  // detail 2 when a decimal separator was typed
  HintDate = 4,
  HintTime = 5,      // detail: the built-in format index (20 h:mm, 21 h:mm:ss, 18/19 with AM/PM)
  HintPercent = 6,   // detail 2 when a decimal separator was typed, else 0
  HintCurrency = 7,  // detail: the count of decimals typed
};

struct InputResult {
  InputKind kind;
  double number;    // InputNumber
  int32_t boolean;  // InputBoolean
  uint8_t error;    // InputError: the error code (ErrNull ... ErrNA)
  InputFormatHint hint;
  int32_t hintDetail;
};

// The file id of the built-in number format that a cell without a format of its own takes for a
// typed number with this hint; -1 for none.
int32_t BuiltInFormatForHint(InputFormatHint hint, int32_t detail);

struct ParseContext;
// Decides what a typed text is under the regional settings. A text starting with "=" (or "+"
// or "-" when it is no number) is a formula when it scans to its end, and otherwise text; the
// caller reports a failed formula. `ctx` gives the workbook, sheet and reference style for the
// scan; `date1904` comes from the workbook too.
InputKind ClassifyInput(const ParseContext* ctx, const char16_t* text, InputResult* out);

// The whole string as a number with loose grouping, percent and currency forms included, as
// CNUM and the coercion of text to number read it. Returns 0 and leaves *out alone otherwise.
int ParseNumberInput(const char16_t* text, double* out);
// A date, with an optional time behind it, as a serial of the 1900 system, or of the 1904
// system when `date1904` is set.
int ParseDateText(const char16_t* text, int date1904, double* out);
// A time of day as a fraction (values beyond 60 and 24 carry over); *formatIndex, when not null,
// gets the built-in format the text suggests (20, 21, or 18/19 with AM/PM).
int ParseTimeText(const char16_t* text, double* out, int32_t* formatIndex);
// text[start, end) as an amount in any of the currency patterns; *digits gets the count of
// decimals typed.
int ParseCurrencyText(const char16_t* text, uint32_t start, uint32_t end, double* out,
                      int32_t* digits);
// Whole-string, case-insensitive matches of "FAUX"/"VRAI" and the seven error literals.
int ParseBooleanText(const char16_t* text, int32_t* out);
int ParseErrorText(const char16_t* text, uint8_t* code);
// Replaces a text value by the number, date, time or boolean it spells, if any; other values and
// other texts are left as they are.
struct Value;
void TextToValue(Value* v, int date1904);

// Plain values to text. Each writes into `out`, adds the terminator and returns the length.
constexpr uint32_t NumberTextCapacity = 32;
// The number with `digits` significant digits (1 to 17), as the C library's "%G" prints it: plain
// notation for decimal exponents from -4 to digits - 1, else "d.dddE+XX"; the value rounded
// exactly, trailing zeros of a fraction cut (and the separator with them), the locale's decimal
// separator, and -0 printed as "0".
uint32_t ValueNumberText(double number, int digits, char16_t* out);
// The date by the locale's order and separator with a two-digit year.
uint32_t DateText(double serial, int date1904, char16_t* out);
// "hh:mm:ss" with the locale's time separator.
uint32_t TimeText(double serial, char16_t* out);
