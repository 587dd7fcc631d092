// The date and time functions, run from formula text: the fictitious 29 February 1900 around
// serials 59 to 61, the 1904 system both ways, weekday types, the two 30/360 rules, DATEDIF's
// units, month arithmetic, working days with holidays, year fractions, and reading typed dates.
#include <ctime>

#include "format/calendar.h"
#include "functions/formula_fixture.h"

namespace {

// A1:A3 hold holidays: 2 January 2024 twice and a Saturday; A4 a text, A5 an error.
struct DatesTest : FormulaTest {
  void SetUp() override {
    Open({});
    Put(0, "A1", NumberValue(45293));
    Put(0, "A2", NumberValue(45293));
    Put(0, "A3", NumberValue(45297));
    Put(0, "A4", Text(u"x"));
    Put(0, "A5", ErrorValue(ErrNA));
  }
};

TEST_F(DatesTest, SerialsAroundTheFictitiousLeapDay) {
  const Calls rows[] = {
      {u"DATE", {{u"1900;2;28", "59"}, {u"1900;2;29", "60"}, {u"1900;3;1", "61"}}},
      {u"DATE", {{u"99;1;1", "36161"}, {u"2000;14;1", "36923"}, {u"2000;0;1", "36495"}}},
      {u"DATE", {{u"2000;3;0", "36585"}, {u"1900;1;0", "0"}, {u"1900;1;-1", "#NUM!"}}},
      {u"DATE", {{u"-1;1;1", "#NUM!"}, {u"10000;1;1", "#NUM!"}, {u"\"a\";1;1", "#VALUE!"}}},
      {u"JOUR", {{u"59", "28"}, {u"60", "29"}, {u"61", "1"}, {u"0", "0"}, {u"-1", "#NUM!"}}},
      {u"MOIS", {{u"60", "2"}, {u"61", "3"}, {u"2958465", "12"}, {u"2958466", "#NUM!"}}},
      {u"ANNEE", {{u"36526,9", "2000"}, {u"0", "1900"}}},
      {u"HEURE", {{u"0,75", "18"}, {u"1,5", "12"}, {u"0,99999999", "0"}, {u"-0,5", "#NUM!"}}},
      {u"MINUTE", {{u"TEMPS(1;59;59,9)", "59"}}},
      {u"SECONDE", {{u"TEMPS(0;0;59)", "59"}}},
      {u"TEMPS", {{u"12;0;0", "0.5"}, {u"25;0;0", "0.0416666666666667"}, {u"0;-1;0", "#NUM!"}}},
      {u"TEMPS", {{u"0;90;0", "0.0625"}}},
  };
  ExpectCalls(rows);
}

TEST_F(DatesTest, WeekdaysAndDayCounts) {
  const Calls rows[] = {
      {u"JOURSEM", {{u"1", "1"}, {u"1;2", "7"}, {u"1;3", "6"}, {u"2;2", "1"}, {u"2;3", "0"}}},
      {u"JOURSEM", {{u"7;9", "7"}, {u"0", "7"}, {u"-1", "#NUM!"}}},
      {u"JOURS360", {{u"DATE(2000;1;31);DATE(2000;3;1)", "31"}}},
      {u"JOURS360",
       {{u"DATE(2001;2;28);DATE(2001;3;31)", "30"}, {u"DATE(2001;2;28);DATE(2001;3;31);1", "32"}}},
      {u"JOURS360", {{u"DATE(2000;2;29);DATE(2000;3;31)", "30"}}},
      {u"JOURS360", {{u"DATE(2000;3;31);DATE(2000;1;1)", "-89"}}},
      {u"NO.SEMAINE", {{u"DATE(2024;1;6)", "1"}, {u"DATE(2024;1;7)", "2"}}},
      {u"NO.SEMAINE", {{u"DATE(2023;1;1);2", "1"}, {u"DATE(2023;1;2);2", "2"}}},
      {u"NO.SEMAINE", {{u"DATE(2024;12;31)", "53"}, {u"1;3", "#NUM!"}, {u"1;18", "#NUM!"}}},
      // Tuesday starts (12), and the ISO week (21) across the turn of the year.
      {u"NO.SEMAINE", {{u"DATE(2024;1;9);12", "3"}, {u"DATE(2024;1;8);12", "2"}}},
      {u"NO.SEMAINE", {{u"DATE(2021;1;3);21", "53"}, {u"DATE(2024;12;30);21", "1"}}},
      {u"NO.SEMAINE", {{u"DATE(2024;1;1);21", "1"}, {u"DATE(2024;1;7);21", "1"}}},
  };
  ExpectCalls(rows);
}

// "md" counts from the first day's number in the month before the second date, which runs on
// past a short February: 31 February 2001 is 3 March.
TEST_F(DatesTest, DateDifUnits) {
  const char16_t* from = u"DATE(2000;1;31);DATE(2001;3;15);";
  const std::pair<const char16_t*, const char*> units[] = {
      {u"\"y\"", "1"},   {u"\"M\"", "13"},  {u"\"d\"", "409"},  {u"\"ym\"", "1"},
      {u"\"yd\"", "44"}, {u"\"md\"", "12"}, {u"\"w\"", "#NUM!"}};
  for (const auto& [unit, expected] : units)
    EXPECT_EQ(Eval(FormulaOf(u"DATEDIF", (std::u16string(from) += unit).c_str()).c_str()), expected)
        << TextToUtf8(unit);
  const Calls rows[] = {
      {u"DATEDIF", {{u"100;100;\"y\"", "0"}, {u"101;100;\"d\"", "#NUM!"}}},
      {u"DATEDIF", {{u"DATE(2000;3;15);DATE(2001;3;14);\"y\"", "0"}}},
      {u"DATEDIF", {{u"DATE(2000;3;15);DATE(2001;2;10);\"yd\"", "332"}}},
      {u"DATEDIF", {{u"1;2;1/0", "#DIV/0!"}}},
  };
  ExpectCalls(rows);
}

TEST_F(DatesTest, MonthArithmeticAndWorkingDays) {
  const Calls rows[] = {
      {u"FIN.MOIS", {{u"DATE(2000;1;15);1", "36585"}, {u"DATE(2000;1;15);-13", "36160"}}},
      {u"FIN.MOIS", {{u"DATE(1900;1;15);1", "60"}, {u"DATE(1900;1;15);-1", "#NUM!"}}},
      {u"MOIS.DECALER", {{u"DATE(2000;1;31);1", "36585"}, {u"DATE(2000;3;31);-1", "36585"}}},
      {u"MOIS.DECALER", {{u"DATE(2000;5;15);0", "36661"}, {u"DATE(2000;5;15);-1300", "#NUM!"}}},
      {u"NB.JOURS.OUVRES", {{u"DATE(2024;1;1);DATE(2024;1;31)", "23"}}},
      // The holiday on Tuesday counts once; the one on Saturday is no working day anyway.
      {u"NB.JOURS.OUVRES", {{u"DATE(2024;1;1);DATE(2024;1;31);A1:A4", "22"}}},
      {u"NB.JOURS.OUVRES", {{u"DATE(2024;1;31);DATE(2024;1;1);{45293\\45294}", "-21"}}},
      {u"NB.JOURS.OUVRES", {{u"DATE(2024;1;6);DATE(2024;1;7)", "0"}, {u"1;2;A5", "#N/A"}}},
      {u"SERIE.JOUR.OUVRE", {{u"DATE(2024;1;5);1", "45299"}, {u"DATE(2024;1;1);1;A1", "45294"}}},
      {u"SERIE.JOUR.OUVRE", {{u"DATE(2024;1;8);-1", "45296"}, {u"DATE(2024;1;6);0", "45297"}}},
      {u"SERIE.JOUR.OUVRE", {{u"2958465;5", "#NUM!"}}},
  };
  ExpectCalls(rows);
}

TEST_F(DatesTest, YearFractionsByBasis) {
  const char16_t* span = u"DATE(2000;1;31);DATE(2000;7;31)";
  const std::pair<const char16_t*, const char*> bases[] = {{u"", "0.5"},
                                                           {u";1", "0.497267759562842"},
                                                           {u";2", "0.505555555555556"},
                                                           {u";3", "0.498630136986301"},
                                                           {u";4", "0.5"},
                                                           {u";5", "#NUM!"},
                                                           {u";-1", "#NUM!"}};
  for (const auto& [basis, expected] : bases)
    EXPECT_EQ(Eval(FormulaOf(u"FRACTION.ANNEE", (std::u16string(span) += basis).c_str()).c_str()),
              expected)
        << TextToUtf8(basis);
  const Calls rows[] = {
      // Reversed dates are swapped; over several years the mean length of the years touched is
      // used, three of them here.
      {u"FRACTION.ANNEE", {{u"DATE(2000;7;31);DATE(2000;1;31);2", "0.505555555555556"}}},
      {u"FRACTION.ANNEE", {{u"DATE(1999;1;1);DATE(2001;1;1);1", "2.00091240875912"}}},
      {u"FRACTION.ANNEE", {{u"DATE(1999;3;1);DATE(2000;3;1);1", "1"}}},
  };
  ExpectCalls(rows);
}

TEST_F(DatesTest, TypedDatesAndTimes) {
  const Calls rows[] = {
      {u"DATEVAL", {{u"\"15/03/2000\"", "36600"}, {u"\"15/03/2000 12:00\"", "36600"}}},
      {u"DATEVAL", {{u"\"x\"", "#VALUE!"}, {u"A5", "#N/A"}}},
      {u"TEMPSVAL", {{u"\"12:30\"", "0.520833333333333"}, {u"\"15/03/2000 06:00\"", "0.25"}}},
      {u"TEMPSVAL", {{u"\"x\"", "#VALUE!"}}},
  };
  ExpectCalls(rows);
}

// Under the 1904 system serials count from 1 January 1904, and each function converts on the
// way in and out.
TEST_F(DatesTest, The1904SystemBothWays) {
  GetWorkbook(book)->date1904 = 1;
  const Calls rows[] = {
      {u"DATE", {{u"1904;1;1", "0"}, {u"1904;1;2", "1"}, {u"1903;12;31", "#NUM!"}}},
      {u"ANNEE", {{u"0", "1904"}}},
      {u"JOUR", {{u"0", "1"}}},
      {u"JOURSEM", {{u"0", "6"}}},
      {u"FIN.MOIS", {{u"0;1", "59"}}},
      {u"DATEVAL", {{u"\"02/01/1904\"", "1"}}},
      {u"MOIS", {{u"2958465", "#NUM!"}}},
  };
  ExpectCalls(rows);
}

TEST_F(DatesTest, TodayAndNowFollowTheClock) {
  std::time_t now = std::time(nullptr);
  const std::tm* local = std::localtime(&now);
  double today = DateToSerial(local->tm_year + 1900, local->tm_mon + 1, local->tm_mday);
  double shown = std::stod(Eval(u"=AUJOURDHUI()"));
  double moment = std::stod(Eval(u"=MAINTENANT()"));
  // A run across midnight may see the next day.
  EXPECT_TRUE(shown == today || shown == today + 1) << shown;
  EXPECT_GE(moment, shown);
  EXPECT_LT(moment, shown + 1);
}

}  // namespace
