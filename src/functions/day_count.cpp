// The 30/360 day count and the year fraction. Under the actual/actual basis a span within one
// year is divided by the length of the year it touches (366 when it contains a 29 February),
// and a longer span by the average length of the calendar years it covers.
#include "functions/day_count.h"

#include "format/calendar.h"

namespace {

bool IsLeapYear(int32_t year) {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// Whether the span from start to end, both included, holds a 29 February.
bool SpanHoldsLeapDay(int32_t start, int32_t end) {
  int32_t y1, m1, d1, y2, m2, d2;
  SerialToDate(start, &y1, &m1, &d1);
  SerialToDate(end, &y2, &m2, &d2);
  for (int32_t y = y1; y <= y2; y++) {
    if (!IsLeapYear(y)) continue;
    int32_t leapDay = DateToSerial(y, 2, 29);
    if (leapDay >= start && leapDay <= end) return true;
  }
  return false;
}

double ActualYearLength(int32_t start, int32_t end) {
  int32_t y1, m1, d1, y2, m2, d2;
  SerialToDate(start, &y1, &m1, &d1);
  SerialToDate(end, &y2, &m2, &d2);
  bool withinAYear = y1 == y2 || (y2 == y1 + 1 && (m1 > m2 || (m1 == m2 && d1 >= d2)));
  if (withinAYear) {
    if (y1 == y2) return IsLeapYear(y1) ? 366 : 365;
    return SpanHoldsLeapDay(start, end) ? 366 : 365;
  }
  double days = DateToSerial(y2 + 1, 1, 1) - DateToSerial(y1, 1, 1);
  return days / (y2 - y1 + 1);
}

}  // namespace

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

int YearFraction(int32_t start, int32_t end, int32_t basis, double* out) {
  if (start > end) {
    int32_t swap = start;
    start = end;
    end = swap;
  }
  double actual = end - start;
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
