// Serial day numbers of the 1900 date system and back. The day count is a civil calendar with
// March as the first month of the year, so that the leap day falls at the end and the month
// lengths follow the 153-days-per-five-months pattern.
#include "format/calendar.h"

// The day count of 1 March 1900. Serials before it are one lower than the count suggests, so that
// serial 60 stays free for the fictitious 29 February 1900 that the file formats keep; any other
// arguments that run on to this day (29 February, 60 January) name that fictitious day.
static constexpr int64_t LeapBugDay = 0xA96C9;

int32_t DateToSerial(int32_t year, int32_t month, int32_t day) {
  int64_t y = year, m = month;
  if (m < 3) {
    y -= 1;
    m += 9;
  } else {
    m -= 3;
  }
  // Computed in 64 bits: the arguments of DATE may be far out of range.
  int64_t n = (m * 153 + 2) / 5 + ((y % 100) * 1461) / 4 + ((y / 100) * 146097) / 4 + day;
  int64_t serial = n - 693900;
  if (serial < 61 || (n == LeapBugDay && !(year == 1900 && month == 3 && day == 1)))
    serial = n - 693901;
  return static_cast<int32_t>(serial);
}

// Division rounding towards minus infinity, so that serials before the calendar's start still
// give a valid month and day.
static int64_t FloorDivide(int64_t a, int64_t b) {
  int64_t q = a / b;
  return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

void SerialToDate(int32_t serial, int32_t* year, int32_t* month, int32_t* day) {
  if (serial == 60) {
    *year = 1900;
    *month = 2;
    *day = 29;
    return;
  }
  int64_t t = 2775599 + 4 * (static_cast<int64_t>(serial) + (serial < 60 ? 1 : 0));
  int64_t century = FloorDivide(t, 146097);
  int64_t dayOfCentury = (t - century * 146097) / 4;
  int64_t t2 = dayOfCentury * 4 + 3;
  int64_t yearOfCentury = t2 / 1461;
  int64_t dayOfYear = (t2 - yearOfCentury * 1461 + 4) / 4;
  int64_t t3 = dayOfYear * 5 - 3;
  int64_t m = t3 / 153;
  *day = static_cast<int32_t>((t3 - m * 153 + 5) / 5);
  int64_t y = century * 100 + yearOfCentury;
  if (m >= 10) {
    *month = static_cast<int32_t>(m - 9);
    y++;
  } else {
    *month = static_cast<int32_t>(m + 3);
  }
  *year = static_cast<int32_t>(y);
}

int32_t SerialWeekday(int32_t serial) {
  int64_t k = (static_cast<int64_t>(serial) + 2415020) % 7;
  return static_cast<int32_t>(k < 0 ? k + 7 : k) + 1;
}

int32_t DaysInMonth(int32_t year, int32_t month) {
  int64_t index = static_cast<int64_t>(year) * 12 + (month - 1);
  auto y = static_cast<int32_t>(FloorDivide(index, 12));
  auto m = static_cast<int32_t>(index - int64_t{y} * 12) + 1;
  return m == 12 ? 31 : DateToSerial(y, m + 1, 1) - DateToSerial(y, m, 1);
}

int32_t Days360(int32_t start, int32_t end, bool european) {
  int32_t y1, m1, d1, y2, m2, d2;
  SerialToDate(start, &y1, &m1, &d1);
  SerialToDate(end, &y2, &m2, &d2);
  int32_t months = (y2 - y1) * 12 - m1;
  if (european) {
    if (d1 == 31) d1 = 30;
    if (d2 == 31) d2 = 30;
  } else {
    if (d1 == 31 || (m1 == 2 && d1 >= 28)) d1 = 30;
    if (d2 == 31) {
      if (d1 < 30) return (months + m2 + 1) * 30 - d1 + 1;
      d2 = 30;
    }
  }
  return (months + m2) * 30 - d1 + d2;
}

static bool IsLeapYear(int32_t y) {
  return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
}

// Actual/actual: within a year, the length of the year the span lies in (366 when it holds a
// 29 February); over longer spans, the mean length of the calendar years it touches.
static double ActualYearLength(int32_t start, int32_t end) {
  int32_t y1, m1, d1, y2, m2, d2;
  SerialToDate(start, &y1, &m1, &d1);
  SerialToDate(end, &y2, &m2, &d2);
  bool withinYear = y1 == y2 || (y2 == y1 + 1 && (m1 > m2 || (m1 == m2 && d1 >= d2)));
  if (withinYear) {
    if (y1 == y2) return IsLeapYear(y1) ? 366 : 365;
    bool leapDay =
        (IsLeapYear(y1) && (m1 < 3)) || (IsLeapYear(y2) && (m2 > 2 || (m2 == 2 && d2 == 29)));
    return leapDay ? 366 : 365;
  }
  double days = DateToSerial(y2 + 1, 1, 1) - DateToSerial(y1, 1, 1);
  return days / (y2 - y1 + 1);
}

int YearFraction(int32_t start, int32_t end, int32_t basis, double* out) {
  double actual = static_cast<double>(end) - start;
  switch (basis) {
    case 0:
      *out = Days360(start, end, false) / 360.0;
      return 1;
    case 1:
      *out = actual / ActualYearLength(start, end);
      return 1;
    case 2:
      *out = actual / 360;
      return 1;
    case 3:
      *out = actual / 365;
      return 1;
    case 4:
      *out = Days360(start, end, true) / 360.0;
      return 1;
    default:
      return 0;
  }
}
