// Tests of serial day numbers: a day-by-day walk over every serial of the 1900 system up to 9999,
// its fictitious leap day included, fields that run on past their range, and serials before it.
#include <gtest/gtest.h>

#include <climits>

#include "format/calendar.h"

namespace {

TEST(CalendarTest, FieldsRunOn) {
  EXPECT_EQ(DateToSerial(2023, 13, 1), DateToSerial(2024, 1, 1));
  EXPECT_EQ(DateToSerial(2024, 0, 1), DateToSerial(2023, 12, 1));
  EXPECT_EQ(DateToSerial(2024, 3, 0), DateToSerial(2024, 2, 29));
  EXPECT_EQ(DateToSerial(2024, 1, 32), DateToSerial(2024, 2, 1));
  // Whatever runs on to the day after 28 February 1900 is the fictitious day, except 1 March.
  EXPECT_EQ(DateToSerial(1900, 1, 60), 60);
}

// Every serial from 1 (1 January 1900) to 31 December 9999 names the next day of the calendar,
// and reads back; 60 is the 29 February 1900 that other programs count.
TEST(CalendarTest, WalksEveryDay) {
  EXPECT_EQ(DateToSerial(1904, 1, 1), Date1904Offset);
  int32_t year = 1900, month = 1, day = 1;
  for (int32_t serial = 1; serial <= 2958465; serial++) {
    int32_t y, m, d;
    SerialToDate(serial, &y, &m, &d);
    if (y != year || m != month || d != day || DateToSerial(y, m, d) != serial) {
      ADD_FAILURE() << "serial " << serial << " gives " << y << "-" << m << "-" << d
                    << ", expected " << year << "-" << month << "-" << day;
      return;
    }
    bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0 || year == 1900;
    static const int32_t lengths[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    int32_t length = month == 2 && leap ? 29 : lengths[month - 1];
    if (++day > length) {
      day = 1;
      if (++month > 12) {
        month = 1;
        year++;
      }
    }
  }
}

// Serials before the start of the calendar still give a month and a day in range.
TEST(CalendarTest, ExtremeSerials) {
  for (int32_t serial : {0, -1, -693902, INT_MIN, INT_MAX}) {
    int32_t y, m, d;
    SerialToDate(serial, &y, &m, &d);
    EXPECT_TRUE(m >= 1 && m <= 12 && d >= 1 && d <= 31) << serial;
  }
  int32_t y, m, d;
  SerialToDate(0, &y, &m, &d);
  EXPECT_EQ(y * 10000 + m * 100 + d, 18991231);
}

}  // namespace
