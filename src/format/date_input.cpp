// Dates and times typed as text, read under the regional settings, and the plain date and time
// texts of a serial. Dates are cut into up to three fields (numbers or month names) whose roles
// the locale's date order decides; times are hours, minutes, seconds and a fraction, with an
// optional morning or afternoon marker.
#include <cmath>
#include <cstdint>
#include <ctime>

#include "base/text.h"
#include "format/calendar.h"
#include "format/input.h"
#include "format/locale.h"

static bool IsBlank(char16_t c) {
  return c == u' ';
}
static bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
static uint32_t SkipBlanks(const char16_t* text, uint32_t i, uint32_t end) {
  while (i < end && IsBlank(text[i])) i++;
  return i;
}

// No field of a date or time is meaningful beyond this; a longer run of digits is refused rather
// than wrapped.
static constexpr int64_t FieldLimit = 999999999;

// Reads the run of digits at i into *value; returns the index behind it, or i when there is none.
// *tooLarge is set for a run whose value passes FieldLimit.
static uint32_t ReadDigits(const char16_t* text, uint32_t i, uint32_t end, int64_t* value,
                           bool* tooLarge) {
  int64_t v = 0;
  for (; i < end && IsDigit(text[i]); i++) {
    if (v <= FieldLimit) v = v * 10 + (text[i] - u'0');
    if (v > FieldLimit) *tooLarge = true;
  }
  *value = v;
  return i;
}

// True when `name` (not empty) starts text[i, end) with equal letters ignoring case.
static bool StartsWithNoCase(const char16_t* text, uint32_t i, uint32_t end, const char16_t* name,
                             uint32_t nameLength) {
  if (nameLength == 0 || end - i < nameLength) return false;
  for (uint32_t k = 0; k < nameLength; k++)
    if (FoldCase(text[i + k]) != FoldCase(name[k])) return false;
  return true;
}

// ---------------------------------------------------------------------------------------------
// Times

namespace {

enum Meridiem { MeridiemNone = 0, MeridiemMorning = 1, MeridiemAfternoon = 2 };

}  // namespace

// Reads the morning or afternoon text at i, whole or by its first letter, standing alone as a
// word; returns the index behind it, or 0 when there is none.
static uint32_t ReadMeridiem(const char16_t* text, uint32_t i, uint32_t end, Meridiem* meridiem) {
  const char16_t* texts[2] = {MorningText, AfternoonText};
  for (int pass = 0; pass < 2; pass++) {
    for (int k = 0; k < 2; k++) {
      uint32_t length = pass == 0 ? TextLength(texts[k]) : (texts[k][0] ? 1 : 0);
      if (!StartsWithNoCase(text, i, end, texts[k], length)) continue;
      uint32_t behind = i + length;
      if (behind < end && !IsBlank(text[behind])) continue;
      *meridiem = k == 0 ? MeridiemMorning : MeridiemAfternoon;
      return behind;
    }
  }
  return 0;
}

// Reads text[start, end) as a time of day. Hours, minutes and seconds are not checked against 24
// and 60: larger values carry over into the next unit.
static int ReadTime(const char16_t* text, uint32_t start, uint32_t end, double* out,
                    int32_t* formatIndex) {
  uint32_t i = SkipBlanks(text, start, end);
  bool tooLarge = false;
  int64_t hour = 0, minute = 0, second = 0;
  uint32_t fieldCount = 1;
  uint32_t behind = ReadDigits(text, i, end, &hour, &tooLarge);
  if (behind == i) return 0;
  i = behind;
  bool shifted = false;  // "m:s,f": the digits read as hours were minutes
  if (i < end && text[i] == TimeSeparator[0]) {
    i++;
    fieldCount = 2;  // "14:" is 14:00
    behind = ReadDigits(text, i, end, &minute, &tooLarge);
    if (behind > i) {
      i = behind;
      if (i < end && text[i] == TimeSeparator[0]) {
        i++;
        behind = ReadDigits(text, i, end, &second, &tooLarge);
        if (behind == i) return 0;
        fieldCount = 3;
        i = behind;
      } else if (i < end && text[i] == DecimalSeparator[0]) {
        second = minute;
        minute = hour;
        hour = 0;
        fieldCount = 3;
        shifted = true;
      }
    }
  } else if (i == end || !IsBlank(text[i])) {
    return 0;  // hours alone need the morning or afternoon text behind them
  }
  if (tooLarge) return 0;

  double fraction = 0;
  if (fieldCount == 3 && i < end && text[i] == DecimalSeparator[0]) {
    i++;
    if (i >= end || !IsDigit(text[i])) return 0;
    double scale = 0.1;
    for (; i < end && IsDigit(text[i]); i++) {
      fraction += (text[i] - u'0') * scale;
      scale *= 0.1;
    }
  }

  Meridiem meridiem = MeridiemNone;
  uint32_t j = SkipBlanks(text, i, end);
  if (j < end && j > i && !shifted) {
    j = ReadMeridiem(text, j, end, &meridiem);
    if (!j) return 0;
    j = SkipBlanks(text, j, end);
  }
  if (j != end) return 0;
  if (fieldCount == 1 && meridiem == MeridiemNone) return 0;
  if (meridiem == MeridiemAfternoon && hour < 12) hour += 12;
  if (meridiem == MeridiemMorning && hour == 12) hour = 0;

  *out = (static_cast<double>(hour) * 3600 + static_cast<double>(minute) * 60 +
          static_cast<double>(second) + fraction) /
         86400;
  if (formatIndex) {
    bool withSeconds = fieldCount == 3;
    if (meridiem != MeridiemNone)
      *formatIndex = withSeconds ? 19 : 18;
    else
      *formatIndex = withSeconds ? 21 : 20;
  }
  return 1;
}

int ParseTimeText(const char16_t* text, double* out, int32_t* formatIndex) {
  if (!text) return 0;
  return ReadTime(text, 0, TextLength(text), out, formatIndex);
}

// ---------------------------------------------------------------------------------------------
// Dates

namespace {

struct DateField {
  int64_t value;
  bool monthName;
};

}  // namespace

static bool IsFieldEnd(const char16_t* text, uint32_t i, uint32_t end) {
  return i >= end || IsBlank(text[i]) || text[i] == DateSeparator[0] || text[i] == u'-';
}

// Reads a month name at i: the long names first, then the short ones, then the short ones without
// their final period ("janv" for "janv."). The name must end the field. Returns the index behind
// it, or 0.
static uint32_t ReadMonthName(const char16_t* text, uint32_t i, uint32_t end, int64_t* month) {
  for (int pass = 0; pass < 3; pass++) {
    for (int k = 0; k < 12; k++) {
      const char16_t* name = pass == 0 ? MonthNames[k] : ShortMonthNames[k];
      uint32_t length = TextLength(name);
      if (pass == 2) {
        if (length < 2 || name[length - 1] != u'.') continue;
        length--;
      }
      if (!StartsWithNoCase(text, i, end, name, length) || !IsFieldEnd(text, i + length, end))
        continue;
      *month = k + 1;
      return i + length;
    }
  }
  return 0;
}

// The serial of a date whose year may have been typed with two digits, or 0 when the fields do
// not make a date: the year must fall in 1900 to 9999 and the day exist in its month.
static int32_t CheckedSerial(int64_t year, int64_t month, int64_t day) {
  if (year >= 0 && year < 30)
    year += 2000;
  else if (year >= 30 && year <= 99)
    year += 1900;
  if (year < 1900 || year > 9999 || month < 1 || month > 12 || day < 1 || day > 31) return 0;
  int32_t y = static_cast<int32_t>(year), m = static_cast<int32_t>(month),
          d = static_cast<int32_t>(day);
  int32_t serial = DateToSerial(y, m, d);
  int32_t backYear, backMonth, backDay;
  SerialToDate(serial, &backYear, &backMonth, &backDay);
  if (backYear != y || backMonth != m || backDay != d) return 0;
  return serial;
}

static int32_t CurrentYear() {
  std::time_t now = std::time(nullptr);
  const std::tm* local = std::localtime(&now);
  return local ? local->tm_year + 1900 : 2000;
}

// The role orders tried for three fields: the locale's order first, then the others, so that a
// field that cannot have its role falls to the next order in which every field fits.
static const char* DateRoleOrders(char16_t dateOrder) {
  if (dateOrder == u'0')
    return "MDY"
           "DMY"
           "YMD";
  if (dateOrder == u'1')
    return "DMY"
           "MDY"
           "YMD";
  return "YMD"
         "MDY"
         "DMY";
}

// Places the fields by role and returns the serial, or 0 when no order fits.
static int32_t PlaceFields(const DateField* fields, uint32_t count) {
  int nameIndex = -1;
  for (uint32_t k = 0; k < count; k++)
    if (fields[k].monthName) {
      if (nameIndex >= 0) return 0;
      nameIndex = static_cast<int>(k);
    }

  if (count == 2) {
    if (nameIndex >= 0) {
      // With a month name, the number is a day of the current year, or above 31 a year.
      int64_t other = fields[1 - nameIndex].value, month = fields[nameIndex].value;
      if (other <= 31) return CheckedSerial(CurrentYear(), month, other);
      return CheckedSerial(other, month, 1);
    }
    int64_t a = fields[0].value, b = fields[1].value;
    if (a > 31 || b > 31) return b > 31 ? CheckedSerial(b, a, 1) : CheckedSerial(a, b, 1);
    int32_t year = CurrentYear();
    bool monthFirst = DateOrder[0] != u'1';
    int32_t serial = monthFirst ? CheckedSerial(year, a, b) : CheckedSerial(year, b, a);
    if (!serial) serial = monthFirst ? CheckedSerial(year, b, a) : CheckedSerial(year, a, b);
    return serial;
  }

  const char* orders = DateRoleOrders(DateOrder[0]);
  for (int candidate = 0; candidate < 3; candidate++) {
    const char* roles = orders + candidate * 3;
    if (nameIndex >= 0 && roles[nameIndex] != 'M') continue;
    int64_t year = 0, month = 0, day = 0;
    for (int k = 0; k < 3; k++) {
      if (roles[k] == 'Y') year = fields[k].value;
      if (roles[k] == 'M') month = fields[k].value;
      if (roles[k] == 'D') day = fields[k].value;
    }
    if (int32_t serial = CheckedSerial(year, month, day)) return serial;
  }
  return 0;
}

// Reads text[start, end) as a date with an optional time behind it.
static int ReadDate(const char16_t* text, uint32_t start, uint32_t end, int date1904, double* out) {
  DateField fields[3] = {};
  uint32_t count = 0;
  bool markedSeparator = false;  // a date separator or "-" rather than blanks only
  uint32_t i = SkipBlanks(text, start, end);
  for (;;) {
    bool tooLarge = false;
    uint32_t behind = ReadDigits(text, i, end, &fields[count].value, &tooLarge);
    if (behind > i) {
      if (tooLarge) return 0;
    } else {
      behind = ReadMonthName(text, i, end, &fields[count].value);
      if (!behind) return 0;
      fields[count].monthName = true;
    }
    i = behind;
    if (++count == 3) break;
    uint32_t j = SkipBlanks(text, i, end);
    bool marked = j < end && (text[j] == DateSeparator[0] || text[j] == u'-');
    if (marked) j = SkipBlanks(text, j + 1, end);
    if (j == end && !marked) {
      i = end;
      break;
    }
    if (j == i || j == end) return 0;
    markedSeparator = markedSeparator || marked;
    i = j;
  }

  double time = 0;
  if (i < end) {
    // Only a time may follow the third field, and only behind a blank.
    uint32_t j = SkipBlanks(text, i, end);
    if (j == i) return 0;
    if (j < end && !ReadTime(text, j, end, &time, nullptr)) return 0;
  }
  if (count < 2) return 0;
  // Numbers separated by blanks alone are no date: under a locale that groups thousands with a
  // blank they are a mistyped number such as "12 34".
  bool anyName = fields[0].monthName || fields[1].monthName || fields[2].monthName;
  if (!markedSeparator && !anyName) return 0;

  int32_t serial = PlaceFields(fields, count);
  if (!serial) return 0;
  if (date1904) {
    serial -= Date1904Offset;
    if (serial < 0) return 0;
  }
  *out = serial + time;
  return 1;
}

int ParseDateText(const char16_t* text, int date1904, double* out) {
  if (!text) return 0;
  return ReadDate(text, 0, TextLength(text), date1904, out);
}

// ---------------------------------------------------------------------------------------------
// Dates and times to text

// Appends `value` with at least `width` digits.
static void AppendNumber(char16_t* out, uint32_t* length, int64_t value, int width) {
  if (value < 0) {
    out[(*length)++] = u'-';
    value = -value;
  }
  char16_t digits[24];
  int count = 0;
  do digits[count++] = static_cast<char16_t>(u'0' + value % 10);
  while ((value /= 10) > 0);
  while (count < width) digits[count++] = u'0';
  while (count) out[(*length)++] = digits[--count];
}

static void AppendSeparator(char16_t* out, uint32_t* length, const char16_t* separator) {
  if (separator[0]) out[(*length)++] = separator[0];
}

uint32_t DateText(double serial, int date1904, char16_t* out) {
  double s = serial + (date1904 ? Date1904Offset : 0);
  if (!(s >= INT32_MIN)) s = std::isnan(s) ? 0 : INT32_MIN;
  if (s > INT32_MAX) s = INT32_MAX;
  int32_t year, month, day;
  SerialToDate(static_cast<int32_t>(s), &year, &month, &day);
  uint32_t length = 0;
  int64_t shortYear = year % 100;
  if (DateOrder[0] == u'0' || DateOrder[0] == u'1') {
    bool monthFirst = DateOrder[0] == u'0';
    AppendNumber(out, &length, monthFirst ? month : day, 1);
    AppendSeparator(out, &length, DateSeparator);
    AppendNumber(out, &length, monthFirst ? day : month, 1);
    AppendSeparator(out, &length, DateSeparator);
    AppendNumber(out, &length, shortYear, 2);
  } else {
    AppendNumber(out, &length, shortYear, 2);
    AppendSeparator(out, &length, DateSeparator);
    AppendNumber(out, &length, month, 1);
    AppendSeparator(out, &length, DateSeparator);
    AppendNumber(out, &length, day, 1);
  }
  out[length] = 0;
  return length;
}

uint32_t TimeText(double serial, char16_t* out) {
  double fraction = std::isfinite(serial) ? serial - std::floor(serial) : 0;
  // Rounded to the nearest second; a time that rounds up to midnight is the next day's 00:00:00.
  int64_t seconds = static_cast<int64_t>(std::floor(fraction * 86400 + 0.5));
  if (seconds >= 86400) seconds = 0;
  uint32_t length = 0;
  AppendNumber(out, &length, seconds / 3600, 2);
  AppendSeparator(out, &length, TimeSeparator);
  AppendNumber(out, &length, seconds / 60 % 60, 2);
  AppendSeparator(out, &length, TimeSeparator);
  AppendNumber(out, &length, seconds % 60, 2);
  out[length] = 0;
  return length;
}
