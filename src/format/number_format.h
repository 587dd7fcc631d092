// The number format engine: a double and a format code in, the text a cell shows and the colour
// the code asks for out. Codes are always written as the files write them ("." and "," and the
// English keywords); the regional settings enter only when the text is produced.
//
// The work is done in three stages: the code is split into sections and one is chosen for the
// value; the chosen section is walked once to count its placeholders and settle the numbers to
// print; and walked a second time to emit the text.
#pragma once
#include <cstdint>

// Measures text for the painter, so that General can shrink to the room a cell has and the "*"
// fill can repeat its character across it. The units are the painter's (pixels on screen); the
// engine only compares and divides them.
struct TextMeasure {
  int32_t (*width)(const TextMeasure* self, const char16_t* text, uint32_t length);
};

// A measure in which every character has the same width; for tests and the command line.
struct FixedWidthMeasure {
  TextMeasure base;
  int32_t characterWidth;
};
FixedWidthMeasure MakeFixedWidthMeasure(int32_t characterWidth);

enum SectionKind : uint8_t {
  SectionAbsent = 0,
  SectionBlank = 1,
  SectionPlain = 2,
  SectionConditional = 3,
};

enum Comparator : uint8_t {
  CompareNone = 0,
  CompareEqual = 1,
  CompareGreater = 2,
  CompareGreaterEqual = 3,
  CompareLess = 4,
  CompareLessEqual = 5,
  CompareNotEqual = 6,
};

// The colour names of a code, in the order of their index; index 8 means none. The indices are
// also the first eight entries of a workbook's palette.
constexpr uint8_t FormatColorCount = 8;
constexpr uint8_t FormatNoColor = 8;
extern const char16_t* const FormatColorNames[FormatColorCount];

// One section of a code. The body points into the code itself (or at a constant "General"), so
// splitting a code allocates nothing.
struct FormatSection {
  uint8_t kind;
  uint8_t color;
  uint8_t comparator;
  double bound;
  const char16_t* text;  // the body, without its colour and condition; not terminated
  uint32_t length;
};

constexpr uint32_t FormatSectionCount = 4;

// Stage one: splits `code` into at most four sections. Sections past the fourth are ignored.
void ParseFormatSections(const char16_t* code, FormatSection sections[FormatSectionCount]);

// True when `value` compares with `bound` as the comparator says; CompareNone is false.
bool EvaluateCondition(uint8_t comparator, double bound, double value);

// The size of the global output buffer; longer results are cut.
constexpr uint32_t FormatOutputCapacity = 2048;

// Formats `value` by `code`. `date1904` selects the workbook's date system for date and time
// codes. With a `measure`, General shrinks to fit `availableWidth` and the "*" fill is done;
// without one neither happens. `colorOut`, when given, receives the section's colour index and is
// left alone when the section names none. The result is a global buffer, valid until the next
// call.
const char16_t* FormatNumber(double value, const char16_t* code, int date1904,
                             const TextMeasure* measure, int32_t availableWidth, uint8_t* colorOut);

// Formats a text through the code's text section: the fourth section, or else the first that
// holds an "@", which the text takes the place of. Null when the code has none, and the text then
// stands as it is. Same buffer as FormatNumber.
const char16_t* FormatText(const char16_t* text, const char16_t* code, uint8_t* colorOut);
// True when the section the value prints through shows a date or a time and the value lies
// outside the calendar (below 0, or past 31 December 9999): such a value has no text, and a cell
// showing it is filled with "#".
bool FormatOutsideCalendar(double value, const char16_t* code, int date1904);
// The locale's form of the number format at `index` in the workbook's table: the short date and
// the time codes of the regional settings for the built-in date and time formats, and the locale's
// currency symbol and negative form for the built-in currency and accounting formats. Fills the
// entry's `compiled` text, or leaves it null where the code serves as written. Returns 0 when
// memory runs out.
int LocalizeFormatCode(uint32_t book, uint32_t index);
// The locale's plain currency code with `decimals` places (at most 127), as FRANC prints: the
// symbol where the locale puts it and the negative form of its negative-currency mode. A shared
// buffer, valid until the next call.
const char16_t* CurrencyFormatCode(int32_t decimals);
// The code the engine should use for the number format at `index`: the localized form when there
// is one. General for an index outside the table.
const char16_t* FormatCodeAt(uint32_t book, uint32_t index);

// The section the value prints through: an index into `sections`, or one of these. `negative` is
// set when a "-" is to lead the text; the value is then printed without its sign in every case.
constexpr int32_t ChoiceNothing = -1;  // the empty text
constexpr int32_t ChoiceGeneral = -2;  // no section: the built-in General, no colour
int32_t ChooseFormatSection(const FormatSection sections[FormatSectionCount], double value,
                            bool* negative);
