// Serial day numbers of the 1900 date system and back, including the fictitious 29 February
// 1900 (serial 60) that the file formats keep. Months and days out of range run on through the
// formula; callers that need them normalised do so before. The day counts of the date and
// financial functions (30/360, fractions of a year) build on them.
#pragma once
#include <cstdint>

constexpr int32_t Date1904Offset = 1462;     // serial of 1 January 1904 in the 1900 system
constexpr int32_t LastDateSerial = 2958465;  // 31 December 9999, the last day shown

int32_t DateToSerial(int32_t year, int32_t month, int32_t day);
void SerialToDate(int32_t serial, int32_t* year, int32_t* month, int32_t* day);

// The day of the week of a serial of the 1900 system, 1 for Sunday to 7 for Saturday.
int32_t SerialWeekday(int32_t serial);
// The days in a month, with the month counted from 1 and the year carried; February 1900 has the
// fictitious 29th.
int32_t DaysInMonth(int32_t year, int32_t month);
// The 30/360 day count between two serials of the 1900 system, in the US (NASD) or European rule.
int32_t Days360(int32_t start, int32_t end, bool european);
// The fraction of a year between two serials of the 1900 system, start not after end, by day-count
// basis: 0 US 30/360, 1 actual/actual, 2 actual/360, 3 actual/365, 4 European 30/360. Returns 0
// for a basis outside 0 to 4.
int YearFraction(int32_t start, int32_t end, int32_t basis, double* out);
