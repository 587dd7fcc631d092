// The regional settings: fixed global strings that everything reading or printing numbers, dates
// and formulas uses. They start with the French (France) values, the design target; the start-up
// of a program may replace them once from a locale source, and they are only read afterwards.
// Separators are single characters.
#pragma once
#include <cstdint>

extern char16_t DateOrder[2];  // "0" month-day-year, "1" day-month-year, "2" year-month-day
extern char16_t DateSeparator[2];
extern char16_t TimeSeparator[2];
extern char16_t DecimalSeparator[2];
extern char16_t ThousandsSeparator[2];  // printed; input also accepts U+00A0 and U+202F
extern char16_t CurrencySymbol[4];
extern char16_t CurrencyDigits[2];
extern char16_t ListSeparator[2];
extern char16_t DayNames[7][16];  // Monday first
extern char16_t ShortDayNames[7][8];
extern char16_t MonthNames[12][16];
extern char16_t ShortMonthNames[12][8];
extern char16_t MorningText[4];
extern char16_t AfternoonText[4];
extern char16_t ShortDatePattern[16];
extern char16_t TimeLeadingZero[2];
// The boolean texts, false first; used both for printing and for reading.
extern char16_t FalseText[8];
extern char16_t TrueText[8];

// Derived at ApplyLocale from the values above.
// The AM/PM tokens of number formats: morning "/" afternoon in upper case, in lower case, then
// the first letters of each in upper case and in lower case ("AM/PM", "am/pm", "A/P", "a/p").
constexpr uint32_t AmPmTokenCount = 4;
extern char16_t AmPmTokens[AmPmTokenCount][12];
// The short date pattern as a number format code: the letters g, M, d, y in lower case and every
// other character behind a backslash, so "dd/MM/yyyy" becomes "dd\/mm\/yyyy".
extern char16_t ShortDateCode[36];
// "h:mm" or "hh:mm" by the leading-zero setting, with the locale's time separator.
extern char16_t TimeCode[8];
// The locale's negative-currency mode, 0 to 15: which of the currency format codes it uses.
extern int32_t NegativeCurrencyMode;
// The currency format codes: 16 plain forms by negative-currency mode, then the 16 accounting
// forms in the same order. "$" stands for the locale's currency symbol, put in at output.
constexpr uint32_t CurrencyFormatCount = 32;
extern const char16_t* const CurrencyFormatCodes[CurrencyFormatCount];
// The plain and the accounting code of the current locale.
const char16_t* LocaleCurrencyFormat();
const char16_t* LocaleAccountingFormat();

// The built-in regional settings the core carries.
enum LocaleId : int32_t {
  LocaleFrench = 0,  // fr-FR, the default
  LocaleEnglishUS = 1,
};
// Fills the globals above from a built-in table.
void ApplyLocale(LocaleId id);
// Chooses a locale by tag ("fr-FR", "en-US", also "fr_FR.UTF-8" and the like); returns 0 and
// leaves *id alone for a tag it does not know.
int LocaleFromTag(const char* tag, LocaleId* id);
// The locale the environment asks for: LC_ALL, then LC_NUMERIC, then LANG; French when none is
// set, for C and POSIX, and for a language without a built-in table.
LocaleId LocaleFromEnvironment();
