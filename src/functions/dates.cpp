// The "Date et heure" functions. Dates are serial numbers: the whole part counts days, the
// fraction is the time of day. All calendar work is done in the 1900 system on the calendar core
// of format/calendar; under the 1904 system a serial gains 1462 days on the way in and loses them
// on the way out. Date arguments are truncated to 32-bit integers; a serial outside 0 to
// 31 December 9999 has no date and gives #NUM!.
#include <cmath>
#include <cstdlib>
#include <ctime>

#include "base/text.h"
#include "format/calendar.h"
#include "format/input.h"
#include "functions/aggregate.h"
#include "functions/handlers.h"
#include "functions/numeric.h"
#include "functions/table.h"
#include "model/workbook.h"

namespace {

constexpr double SecondsPerDay = 86400;

int32_t Offset(const EvalContext* ctx) {
  return ContextDate1904(ctx) ? Date1904Offset : 0;
}

// A date argument as a day of the 1900 system. Returns 0 with the error in `result` when it does
// not convert or lies outside the calendar.
int DayArg(Value* a, Value* result, const EvalContext* ctx, int32_t* out) {
  double d;
  if (!NumberFromArg(a, result, ctx, &d)) return 0;
  if (d < 0 || d >= LastDateSerial + 1.0 - Offset(ctx)) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  *out = TruncateToInt32(d) + Offset(ctx);
  return 1;
}

// A day of the 1900 system as the result, in the workbook's system.
void DayResult(int64_t day, Value* result, const EvalContext* ctx) {
  int64_t serial = day - Offset(ctx);
  *result = serial < 0 || day > LastDateSerial ? ErrorValue(ErrNum)
                                               : NumberValue(static_cast<double>(serial));
}

// Moves (year, month) by `months`, the year carried.
void AddMonths(int32_t* year, int32_t* month, int32_t months) {
  int64_t index = int64_t{*year} * 12 + (*month - 1) + months;
  int64_t y = index >= 0 ? index / 12 : (index - 11) / 12;
  *year = static_cast<int32_t>(y);
  *month = static_cast<int32_t>(index - y * 12) + 1;
}

// The fraction of the day as hours, minutes and seconds, rounded to the second.
void FractionToTime(double value, int32_t* hour, int32_t* minute, int32_t* second) {
  double seconds = RoundHalfAway((value - std::floor(value)) * SecondsPerDay);
  auto s = static_cast<int32_t>(seconds) % 86400;
  *hour = s / 3600;
  *minute = s / 60 % 60;
  *second = s % 60;
}

double TimeToFraction(double hour, double minute, double second) {
  return (second + (minute + hour * 60) * 60) / SecondsPerDay;
}

void DateField(Value* args, Value* result, const EvalContext* ctx, int field) {
  int32_t day, y, m, d;
  if (!DayArg(&args[0], result, ctx, &day)) return;
  if (day == 0) {
    // Serial 0 is the day before 1 January 1900, shown as 0 January 1900.
    y = 1900, m = 1, d = 0;
  } else {
    SerialToDate(day, &y, &m, &d);
  }
  *result = NumberValue(field == 0 ? y : field == 1 ? m : d);
}

void TimeField(Value* args, Value* result, const EvalContext* ctx, int field) {
  double value;
  if (!NumberFromArg(&args[0], result, ctx, &value)) return;
  if (value < 0) {
    *result = ErrorValue(ErrNum);
    return;
  }
  int32_t h, m, s;
  FractionToTime(value, &h, &m, &s);
  *result = NumberValue(field == 0 ? h : field == 1 ? m : s);
}

bool IsWorkday(int32_t day) {
  int32_t weekday = SerialWeekday(day);
  return weekday != 1 && weekday != 7;
}

// Working days from 1 up to `day`, counted in whole weeks and the days left over.
int64_t WorkdaysThrough(int64_t day) {
  int64_t weeks = day >= 0 ? day / 7 : (day - 6) / 7;
  int64_t count = weeks * 5;
  for (int64_t d = weeks * 7 + 1; d <= day; d++) count += IsWorkday(static_cast<int32_t>(d));
  return count;
}

// The holidays of NB.JOURS.OUVRES and SERIE.JOUR.OUVRE, gathered as whole days of the 1900 system
// and sorted, duplicates removed.
struct Holidays {
  NumberList list;
  int32_t offset;
};

int CollectHoliday(double number, void* state) {
  auto* h = static_cast<Holidays*>(state);
  return AppendNumber(&h->list, std::trunc(number) + h->offset);
}

int CompareDoubles(const void* a, const void* b) {
  double x = *static_cast<const double*>(a), y = *static_cast<const double*>(b);
  return (x > y) - (x < y);
}

int GatherHolidays(Value* a, Value* result, const EvalContext* ctx, Holidays* h) {
  h->offset = Offset(ctx);
  Value stop{};
  Value frame[FunctionFrameSize] = {};
  frame[0] = *a;
  int ok = WalkNumbers(frame, ctx, CollectHoliday, h, &stop);
  *a = frame[0];
  if (!ok) {
    *result = stop.tag == ValueError ? stop : ErrorValue(ErrNA);
    FreeNumberList(&h->list);
    return 0;
  }
  if (h->list.count > 1) {
    std::qsort(h->list.items, h->list.count, sizeof(double), CompareDoubles);
    uint32_t kept = 1;
    for (uint32_t i = 1; i < h->list.count; i++)
      if (h->list.items[i] != h->list.items[kept - 1]) h->list.items[kept++] = h->list.items[i];
    h->list.count = kept;
  }
  return 1;
}

bool IsHoliday(const Holidays* h, int64_t day) {
  uint32_t low = 0, high = h->list.count;
  while (low < high) {
    uint32_t mid = (low + high) / 2;
    if (h->list.items[mid] < day)
      low = mid + 1;
    else
      high = mid;
  }
  return low < h->list.count && h->list.items[low] == day;
}

}  // namespace

void FnDate(Value* args, Value* result, const EvalContext* ctx) {
  int32_t year, month, day;
  if (!IntegerFromArg(&args[0], result, ctx, 0, &year) ||
      !IntegerFromArg(&args[1], result, ctx, 0, &month) ||
      !IntegerFromArg(&args[2], result, ctx, 0, &day))
    return;
  if (year < 1900) year += 1900;
  if (year < 1900 || year > 9999) {
    *result = ErrorValue(ErrNum);
    return;
  }
  // Months beyond the year carry into the next; days run on through the day count.
  AddMonths(&year, &month, 0);
  if (year > 9999 || year < 1900) {
    *result = ErrorValue(ErrNum);
    return;
  }
  DayResult(int64_t{DateToSerial(year, month, 1)} - 1 + day, result, ctx);
}

void FnAnnee(Value* args, Value* result, const EvalContext* ctx) {
  DateField(args, result, ctx, 0);
}

void FnMois(Value* args, Value* result, const EvalContext* ctx) {
  DateField(args, result, ctx, 1);
}

void FnJour(Value* args, Value* result, const EvalContext* ctx) {
  DateField(args, result, ctx, 2);
}

void FnHeure(Value* args, Value* result, const EvalContext* ctx) {
  TimeField(args, result, ctx, 0);
}

void FnMinute(Value* args, Value* result, const EvalContext* ctx) {
  TimeField(args, result, ctx, 1);
}

void FnSeconde(Value* args, Value* result, const EvalContext* ctx) {
  TimeField(args, result, ctx, 2);
}

void FnTemps(Value* args, Value* result, const EvalContext* ctx) {
  int32_t h, m, s;
  if (!IntegerFromArg(&args[0], result, ctx, 0, &h) ||
      !IntegerFromArg(&args[1], result, ctx, 0, &m) ||
      !IntegerFromArg(&args[2], result, ctx, 0, &s))
    return;
  double t = TimeToFraction(h, m, s);
  if (t < 0) {
    *result = ErrorValue(ErrNum);
    return;
  }
  *result = NumberValue(t - std::floor(t));
}

void FnAujourdhui(Value*, Value* result, const EvalContext* ctx) {
  std::time_t now = std::time(nullptr);
  const std::tm* local = std::localtime(&now);
  DayResult(DateToSerial(local->tm_year + 1900, local->tm_mon + 1, local->tm_mday), result, ctx);
}

void FnMaintenant(Value*, Value* result, const EvalContext* ctx) {
  std::time_t now = std::time(nullptr);
  const std::tm* local = std::localtime(&now);
  int32_t day = DateToSerial(local->tm_year + 1900, local->tm_mon + 1, local->tm_mday);
  *result =
      NumberValue(day - Offset(ctx) + TimeToFraction(local->tm_hour, local->tm_min, local->tm_sec));
}

void FnDateVal(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t* text;
  if (!TextFromArg(&args[0], result, ctx, &text)) return;
  double serial;
  if (!ParseDateText(text, Offset(ctx) != 0, &serial)) {
    *result = ErrorValue(ErrValue);
    return;
  }
  *result = NumberValue(std::floor(serial));
}

void FnTempsVal(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t* text;
  if (!TextFromArg(&args[0], result, ctx, &text)) return;
  // A date with a time behind it gives its time.
  double value;
  if (!ParseTimeText(text, &value, nullptr) && !ParseDateText(text, Offset(ctx) != 0, &value)) {
    *result = ErrorValue(ErrValue);
    return;
  }
  *result = NumberValue(value - std::floor(value));
}

void FnJourSem(Value* args, Value* result, const EvalContext* ctx) {
  int32_t day, type;
  if (!DayArg(&args[0], result, ctx, &day) || !IntegerFromArg(&args[1], result, ctx, 1, &type))
    return;
  int32_t sunday1 = SerialWeekday(day);
  int32_t monday0 = (sunday1 + 5) % 7;
  *result = NumberValue(type == 2 ? monday0 + 1 : type == 3 ? monday0 : sunday1);
}

void FnJours360(Value* args, Value* result, const EvalContext* ctx) {
  int32_t start, end;
  if (!DayArg(&args[0], result, ctx, &start) || !DayArg(&args[1], result, ctx, &end)) return;
  bool european;
  if (BooleanFromArg(&args[2], result, ctx, false, &european))
    *result = NumberValue(Days360(start, end, european));
}

void FnDateDif(Value* args, Value* result, const EvalContext* ctx) {
  int32_t first, second;
  const char16_t* unit;
  if (!DayArg(&args[0], result, ctx, &first) || !DayArg(&args[1], result, ctx, &second) ||
      !TextFromArg(&args[2], result, ctx, &unit))
    return;
  if (first > second) {
    *result = ErrorValue(ErrNum);
    return;
  }
  int32_t y1, m1, d1, y2, m2, d2;
  SerialToDate(first, &y1, &m1, &d1);
  SerialToDate(second, &y2, &m2, &d2);
  int32_t months = (y2 - y1) * 12 - m1 + m2 - (d2 < d1 ? 1 : 0);
  double value;
  if (EqualTextNoCase(unit, u"y")) {
    value = y2 - y1 - ((m2 < m1 || (m2 == m1 && d2 < d1)) ? 1 : 0);
  } else if (EqualTextNoCase(unit, u"m")) {
    value = months;
  } else if (EqualTextNoCase(unit, u"d")) {
    value = second - first;
  } else if (EqualTextNoCase(unit, u"ym")) {
    value = months % 12;
  } else if (EqualTextNoCase(unit, u"yd")) {
    int32_t year = (m2 < m1 || (m2 == m1 && d2 < d1)) ? y1 + 1 : y1;
    value = DateToSerial(year, m2, d2) - first;
  } else if (EqualTextNoCase(unit, u"md")) {
    if (d2 < d1) {
      int32_t y = y2, m = m2;
      AddMonths(&y, &m, -1);
      value = second - DateToSerial(y, m, d1);
    } else {
      value = d2 - d1;
    }
  } else {
    *result = ErrorValue(ErrNum);
    return;
  }
  *result = NumberValue(value);
}

// Reads a date and a count of months, and moves the date's month by that count: the year and
// month land in *y and *m, the day of the month stays in *d. Returns 0 with the error in *result.
static int ShiftedMonth(Value* args, Value* result, const EvalContext* ctx, int32_t* y, int32_t* m,
                        int32_t* d) {
  int32_t day, months;
  if (!DayArg(&args[0], result, ctx, &day) || !IntegerFromArg(&args[1], result, ctx, 0, &months))
    return 0;
  SerialToDate(day, y, m, d);
  AddMonths(y, m, months);
  if (*y < 1900 || *y > 9999) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  return 1;
}

void FnFinMois(Value* args, Value* result, const EvalContext* ctx) {
  int32_t y, m, d;
  if (!ShiftedMonth(args, result, ctx, &y, &m, &d)) return;
  DayResult(DateToSerial(y, m, DaysInMonth(y, m)), result, ctx);
}

void FnMoisDecaler(Value* args, Value* result, const EvalContext* ctx) {
  int32_t y, m, d;
  if (!ShiftedMonth(args, result, ctx, &y, &m, &d)) return;
  int32_t length = DaysInMonth(y, m);
  DayResult(DateToSerial(y, m, d < length ? d : length), result, ctx);
}

void FnNoSemaine(Value* args, Value* result, const EvalContext* ctx) {
  int32_t day, type, y, m, d;
  if (!DayArg(&args[0], result, ctx, &day) || !IntegerFromArg(&args[1], result, ctx, 1, &type))
    return;
  if (type == 21) {
    // The ISO week: the one holding the week's Thursday, counted in that Thursday's year.
    int32_t thursday = day - (SerialWeekday(day) + 5) % 7 + 3;
    SerialToDate(thursday, &y, &m, &d);
    *result = NumberValue((thursday - DateToSerial(y, 1, 1)) / 7 + 1);
    return;
  }
  // The week holding 1 January is week 1. Types 1 and 2 start weeks on Sunday and Monday; the
  // later types 11 to 17 on each day from Monday to Sunday.
  int32_t start = type == 1                  ? 1
                  : type == 2                ? 2
                  : type >= 11 && type <= 16 ? type - 9
                  : type == 17               ? 1
                                             : 0;
  if (!start) {
    *result = ErrorValue(ErrNum);
    return;
  }
  SerialToDate(day, &y, &m, &d);
  int32_t newYear = DateToSerial(y, 1, 1);
  int32_t lead = (SerialWeekday(newYear) - start + 7) % 7;
  *result = NumberValue((day - newYear + lead) / 7 + 1);
}

void FnNbJoursOuvres(Value* args, Value* result, const EvalContext* ctx) {
  int32_t start, end;
  Holidays holidays{};
  if (!DayArg(&args[0], result, ctx, &start) || !DayArg(&args[1], result, ctx, &end) ||
      !GatherHolidays(&args[2], result, ctx, &holidays))
    return;
  int32_t low = start < end ? start : end, high = start < end ? end : start;
  int64_t count = WorkdaysThrough(high) - WorkdaysThrough(int64_t{low} - 1);
  for (uint32_t i = 0; i < holidays.list.count; i++) {
    double h = holidays.list.items[i];
    if (h >= low && h <= high && IsWorkday(static_cast<int32_t>(h))) count--;
  }
  FreeNumberList(&holidays.list);
  *result = NumberValue(static_cast<double>(start <= end ? count : -count));
}

void FnSerieJourOuvre(Value* args, Value* result, const EvalContext* ctx) {
  int32_t start, steps;
  Holidays holidays{};
  if (!DayArg(&args[0], result, ctx, &start) || !IntegerFromArg(&args[1], result, ctx, 0, &steps) ||
      !GatherHolidays(&args[2], result, ctx, &holidays))
    return;
  int64_t day = start;
  int32_t direction = steps < 0 ? -1 : 1;
  // Each step moves to the next working day that is no holiday; the walk leaves the calendar
  // after at most a few days per step.
  for (int64_t left = steps < 0 ? -int64_t{steps} : steps; left > 0;) {
    day += direction;
    if (day < 0 || day > LastDateSerial) break;
    if (IsWorkday(static_cast<int32_t>(day)) && !IsHoliday(&holidays, day)) left--;
  }
  FreeNumberList(&holidays.list);
  DayResult(day, result, ctx);
}

void FnFractionAnnee(Value* args, Value* result, const EvalContext* ctx) {
  int32_t start, end, basis;
  if (!DayArg(&args[0], result, ctx, &start) || !DayArg(&args[1], result, ctx, &end) ||
      !IntegerFromArg(&args[2], result, ctx, 0, &basis))
    return;
  if (start > end) {
    int32_t swap = start;
    start = end;
    end = swap;
  }
  double fraction;
  *result = YearFraction(start, end, basis, &fraction) ? NumberValue(fraction) : ErrorValue(ErrNum);
}
