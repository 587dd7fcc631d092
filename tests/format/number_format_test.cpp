// Tests of the number format engine: tables of value, code, expected text and colour under the
// French and the English (US) settings, the shrinking of General and the "*" fill against a
// fixed-width measure, the splitting of codes into sections and the comparators of conditions.
// Every expectation was worked out by hand from the rules of the engine.
#include <gtest/gtest.h>

#include <string>

#include "base/text.h"
#include "format/locale.h"
#include "format/number_format.h"

namespace {

struct Row {
  double value;
  const char16_t* code;
  const char8_t* expected;
  uint8_t color = 255;  // 255: the chosen section names no colour
  int date1904 = 0;
};

// A time of day as the fraction of a day.
constexpr double T(double hours, double minutes, double seconds) {
  return (hours * 3600 + minutes * 60 + seconds) / 86400;
}

std::string Utf8(const char8_t* text) {
  return reinterpret_cast<const char*>(text);
}

template <size_t N>
void CheckRows(const Row (&rows)[N]) {
  for (size_t i = 0; i < N; i++) {
    const Row& row = rows[i];
    SCOPED_TRACE(testing::Message()
                 << "row " << i << ": " << row.value << " by \"" << TextToUtf8(row.code) << "\"");
    uint8_t color = 255;
    const char16_t* out = FormatNumber(row.value, row.code, row.date1904, nullptr, 0, &color);
    EXPECT_EQ(TextToUtf8(out), Utf8(row.expected));
    EXPECT_EQ(color, row.color);
  }
}

constexpr const char16_t* Accounting = u"_(* #,##0_);_(* (#,##0);_(* \"-\"_);_(@_)";
constexpr const char16_t* AccountingDollar =
    u"_($* #,##0.00_);_($* (#,##0.00);_($* \"-\"??_);_(@_)";
constexpr const char16_t* AccountingFrench = u"_-* #,##0 $_-;-* #,##0 $_-;_-* \"-\" $_-;_-@_-";

// French settings: "," for decimals, a blank between thousands, French day and month names.
const Row frenchRows[] = {
    // Literals, quotes, escapes, blanks and fills (a fill leaves no trace without a measure).
    {5, u"\"Total: \"0", u8"Total: 5"},
    {5, u"\"a\"\"b\"0", u8"a\"b5"},
    {5, u"0\"\"\"\"", u8"5\""},
    {5, u"\"x;y\"0", u8"x;y5"},
    {5, u"0\\;0", u8"0;5"},
    {5, u"0\\%", u8"5%"},
    {5, u"0\" %\"", u8"5 %"},
    {5, u"\\d0", u8"d5"},
    {5, u"0_)", u8"5 "},
    {5, u"0*-", u8"5"},
    {5, u"$0", u8"$5"},
    {5, u"0 kW", u8"5 kW"},
    {5, u"0 Eur", u8"5 Eur"},
    {123, u"0 00", u8"1 23"},
    {-5, u"-0", u8"--5"},
    {-5, u"\"$\"0", u8"-$5"},
    {-1, u"[Red]\"x\"0.0", u8"-x1,0", 2},
    // Integer placeholders.
    {0, u"0", u8"0"},
    {1234.5, u"0", u8"1235"},
    {-2.5, u"0", u8"-3"},
    {0.4, u"0", u8"0"},
    {-0.4, u"0", u8"-0"},
    {0, u"#", u8""},
    {12345, u"00", u8"12345"},
    {123, u"00000", u8"00123"},
    {5, u"?0", u8" 5"},
    {5, u"0#", u8"05"},
    // Decimals, rounded half away from zero on what the double holds.
    {1234.5, u"0.00", u8"1234,50"},
    {1.005, u"0.00", u8"1,01"},
    {2.675, u"0.00", u8"2,68"},
    {0.05, u"0.0", u8"0,1"},
    {0.999, u"0.00", u8"1,00"},
    {123456789.125, u"0.00", u8"123456789,13"},
    {1e-10, u"0.00", u8"0,00"},
    {-1e-10, u"0.00", u8"-0,00"},
    {1.0 / 3, u"0.0000000000", u8"0,3333333333"},
    {0.1, u"0.000000000000000", u8"0,100000000000000"},
    {1, u"0.##", u8"1,"},
    {0, u"#.##", u8","},
    {1.25, u"0.0#", u8"1,25"},
    {1.5, u"0.??", u8"1,5 "},
    {0.5, u"?.??", u8" ,5 "},
    {12.5, u".00", u8"12,50"},
    {0.5, u".00", u8",50"},
    // Thousands: positional, the separator before every third digit, fillers included.
    {1234567, u"#,##0", u8"1 234 567"},
    {12, u"#,##0", u8"12"},
    {1000, u"#,##0", u8"1 000"},
    {999.5, u"#,##0", u8"1 000"},
    {0, u"#,##0", u8"0"},
    {-0.4, u"#,##0", u8"-0"},
    {1234, u"#,#0", u8"1 234"},
    {5, u"0,000", u8"0 005"},
    {5, u"00,000", u8"00 005"},
    {1234.5, u"#,##0.00", u8"1 234,50"},
    {1e20, u"#,##0", u8"100 000 000 000 000 000 000"},
    // Scaling commas, and a comma with no placeholder before it.
    {1234567, u"0,,", u8"1"},
    {1234567, u"#,##0.0,", u8"1 234,6"},
    {999999, u"0.0,,", u8"1,0"},
    {1234567, u"#,##0,\"k\"", u8"1 235k"},
    {1234567890, u"0.00,,,\" Md\"", u8"1,23 Md"},
    {5, u",0", u8",5"},
    // Percent: each sign multiplies by 100 before rounding.
    {0.125, u"0%", u8"13%"},
    {-0.25, u"0%", u8"-25%"},
    {0.5, u"0%%", u8"5000%%"},
    {15, u"#,##0%", u8"1 500%"},
    // Integers past 15 digits keep 15 significant ones.
    {1e15, u"0", u8"1000000000000000"},
    {1e20, u"0", u8"100000000000000000000"},
    {1234567890123456789.0, u"0", u8"1234567890123460000"},
    // Scientific and engineering notation.
    {12345, u"0.00E+00", u8"1,23E+04"},
    {-12345, u"0.00E+00", u8"-1,23E+04"},
    {0.1, u"0.00E+00", u8"1,00E-01"},
    {9.999, u"0.00E+00", u8"1,00E+01"},
    {0, u"0.00E+00", u8"0,00E+00"},
    {1e100, u"0.00E+00", u8"1,00E+100"},
    {1e-100, u"0.00E+00", u8"1,00E-100"},
    {12345, u"0.00E-00", u8"1,23E04"},
    {12345, u"0.00e+00", u8"1,23e+04"},
    {5, u"0E+0", u8"5E+0"},
    {12345, u"00.0E+0", u8"12,3E+3"},
    {0.5, u"00.0E+0", u8"50,0E-2"},
    {12345, u"##0.0E+0", u8"12,3E+3"},
    {123456, u"##0.0E+0", u8"123,5E+3"},
    {1000, u"##0.0E+0", u8"1,0E+3"},
    {999.96, u"##0.0E+0", u8"1,0E+3"},
    {0.01234, u"##0.0E+0", u8"12,3E-3"},
    {0.001234, u"##0.0E+0", u8"1,2E-3"},
    // Fractions: numerator to the right, denominator to the left of their groups.
    {0.5, u"# ?/?", u8" 1/2"},
    {1.25, u"# ?/?", u8"1 1/4"},
    {5.1, u"# ?/?", u8"5 1/9"},
    {-1.5, u"# ?/?", u8"-1 1/2"},
    {2, u"# ?/?", u8"2    "},
    {1.01, u"# ?/?", u8"1    "},
    {0.5, u"0 ?/?", u8"0 1/2"},
    {3.5, u"# ?\?/??", u8"3  1/2 "},
    {0.45, u"# ?\?/??", u8"  9/20"},
    {3.14159265, u"# ?\?/??", u8"3 14/99"},
    {0.123, u"# ??\?/???", u8" 100/813"},
    {1.5, u"?/?", u8"3/2"},
    {2, u"?/?", u8"2/1"},
    {3.14159265, u"?\?/??", u8"311/99"},
    {1.25, u"# ?/8", u8"1 2/8"},
    {1.9, u"# ?/8", u8"1 7/8"},
    {2.5, u"# ?\?/16", u8"2  8/16"},
    // Text of the value, and General inside a code.
    {1234.5, u"@", u8"1234,5"},
    {2, u"\"x\"@", u8"x2"},
    {0, u"General", u8"0"},
    {-0.5, u"General", u8"-0,5"},
    {1.0 / 3, u"General", u8"0,333333333333333"},
    {123456789012345, u"General", u8"123456789012345"},
    {1e15, u"General", u8"1E+15"},
    {1e20, u"General", u8"1E+20"},
    {123456789012345678.0, u"General", u8"1,23456789012346E+17"},
    {0.00001, u"General", u8"1E-05"},
    {1.5e-10, u"General", u8"1,5E-10"},
    {5, u"General\" kg\"", u8"5 kg"},
    {-5, u"0;General", u8"5"},
    {-5, u"[Red]General", u8"-5", 2},
    {5, u"[Red]", u8"5", 2},
    // Dates. 45000 is Wednesday 15 March 2023; 60 is the fictitious 29 February 1900.
    {45000, u"dd/mm/yyyy", u8"15/03/2023"},
    {45000.9, u"d", u8"15"},
    {44958, u"d/m", u8"1/2"},
    {45000, u"mm", u8"03"},
    {45000, u"dddd d mmmm yyyy", u8"mercredi 15 mars 2023"},
    {45000, u"ddd dd mmm yyyy", u8"mer. 15 mars 2023"},
    {44958, u"mmmm", u8"février"},
    {44958, u"mmmmm", u8"f"},
    {45139, u"mmmm yyyy", u8"août 2023"},
    {45291, u"dddd dd mmm", u8"dimanche 31 déc."},
    {40000, u"dddd", u8"lundi"},
    {36526, u"dddd dd/mm/yyyy", u8"samedi 01/01/2000"},
    {36526, u"yy", u8"00"},
    {45000, u"y", u8"23"},
    {45000, u"dd.mm.yyyy", u8"15.03.2023"},
    {45000, u"yyyy-mm-dd", u8"2023-03-15"},
    {0, u"dd/mm/yyyy", u8"00/01/1900"},
    {1, u"dd/mm/yyyy", u8"01/01/1900"},
    {60, u"dd/mm/yyyy", u8"29/02/1900"},
    {61, u"dd/mm/yyyy", u8"01/03/1900"},
    {60, u"dddd", u8"mercredi"},
    {2958465, u"dd/mm/yyyy", u8"31/12/9999"},
    {0, u"dd/mm/yyyy", u8"01/01/1904", 255, 1},
    {0, u"dddd", u8"vendredi", 255, 1},
    {43538, u"dd/mm/yyyy", u8"15/03/2023", 255, 1},
    // Times: seconds rounded once, then split; never rounded again to the minute.
    {1.5, u"h:mm", u8"12:00"},
    {T(13, 45, 30), u"h:mm:ss", u8"13:45:30"},
    {T(9, 5, 7), u"h:m:s", u8"9:5:7"},
    {T(13, 45, 29.6), u"h:mm:ss", u8"13:45:30"},
    {T(13, 45, 29.4), u"h:mm:ss", u8"13:45:29"},
    {T(13, 59, 59.6), u"h:mm:ss", u8"14:00:00"},
    {T(13, 45, 59), u"h:mm", u8"13:45"},
    {T(0, 0, 1.6), u"ss", u8"02"},
    {T(0, 0, 5), u"s", u8"5"},
    {T(0, 0, 1.56), u"ss.0", u8"01,6"},
    {T(0, 0, 1.54), u"ss.00", u8"01,54"},
    {T(0, 1, 5.54), u"mm:ss.0", u8"01:05,5"},
    // Minute or month: an hour before, or a second behind, makes it a minute.
    {T(13, 45, 0), u"mm", u8"01"},
    {T(13, 5, 0), u"h m", u8"13 5"},
    {T(13, 45, 0), u"h\\hmm", u8"13h45"},
    {T(13, 45, 0), u"h.mm", u8"13.45"},
    {T(0, 2, 5), u"mm:ss", u8"02:05"},
    {T(0, 2, 5), u"m\" min \"s\" s\"", u8"2 min 5 s"},
    {45000.5, u"hh dd/mm", u8"12 15/03"},
    {45000 + T(13, 45, 0), u"dd/mm hh:mm", u8"15/03 13:45"},
    // Elapsed time.
    {1.5, u"[h]:mm", u8"36:00"},
    {0.75, u"0.00 AM/PM", u8"0,75 PM"},  // the half of the day with no hour shown
    // A time that rounds up to midnight moves to the next day.
    {0.99999999, u"hh:mm:ss", u8"00:00:00"},
    {45000.999999999, u"dd/mm/yyyy hh:mm", u8"16/03/2023 00:00"},
    {0.99999999, u"[h]:mm", u8"24:00"},
    {1.5 + T(0, 0, 30), u"[h]:mm:ss", u8"36:00:30"},
    {1.0 / 24, u"[mm]:ss", u8"60:00"},
    {1 + T(0, 2, 5), u"[mm]:ss", u8"1442:05"},
    {0.01, u"[ss]", u8"864"},
    {1, u"[s]", u8"86400"},
    // The four AM/PM forms, each printed in the case of the form written.
    {0, u"h AM/PM", u8"12 AM"},
    {0.5, u"h AM/PM", u8"12 PM"},
    {T(13, 0, 0), u"h AM/PM", u8"1 PM"},
    {T(23, 0, 0), u"hh AM/PM", u8"11 PM"},
    {T(13, 45, 30), u"h:mm:ss AM/PM", u8"1:45:30 PM"},
    {T(13, 30, 0), u"h:mm am/pm", u8"1:30 pm"},
    {T(13, 30, 0), u"h:mm A/P", u8"1:30 P"},
    {T(9, 0, 0), u"h:mm a/p", u8"9:00 a"},
    {45000.75, u"dd/mm/yyyy h AM/PM", u8"15/03/2023 6 PM"},
    // Section choice: a first section that is plain.
    {5, u"0;[Red]-0", u8"5"},
    {-5, u"0;[Red]-0", u8"-5", 2},
    {-5, u"0", u8"-5"},
    {-5, u"0;", u8""},
    {-1, u"0;;", u8""},
    {-5, u"0;(0)", u8"(5)"},
    {-20, u"0.0;[<-10]0", u8"-20"},
    {-5, u"0.0;[<-10]0", u8"-5"},
    {-5, u"0.0;[Red][<-10]0", u8"-5"},
    {-5, u"0.0;[<-10]0;", u8""},
    {-5, u"0.0;[<-10]0;0.000", u8"-5,000"},
    {-3, u"0.0;[<-10]0;[=-5]0.00", u8"-3,00"},
    {0, u"0.0", u8"0,0"},
    {0, u"0.0;", u8"0,0"},
    {0, u"0.0;(0)", u8"0,0"},
    {0, u"0;;", u8""},
    {0, u"0.0;(0);", u8""},
    {0, u"0.0;(0);\"zéro\"", u8"zéro"},
    {0, u"0;;\"nul\"", u8"nul"},
    {0, u"0.0;;[=1]\"z\"", u8"z"},
    {0, u"0;[Red]-0;[Blue]\"zéro\"", u8"zéro", 4},
    {0, u"0.0;-0.0;\"zéro\";@", u8"zéro"},
    {0, u"0.0;[=0]\"nul\"", u8"nul"},
    {0, u"0.0;[<-10]0", u8"0"},
    {0, u"0.0;[<-10]0;", u8""},
    {0, u"0.0;[<-10]0;\"z\"", u8"z"},
    // A first section that is blank.
    {5, u"", u8""},
    {5, u";0", u8""},
    {-5, u";;0", u8""},
    {-5, u";0.0", u8"5,0"},
    {-20, u";[<-10]0", u8""},
    {-5, u";[<-10]0", u8"-5"},
    {-5, u"", u8"-5"},
    {-5, u";[<-10]0;", u8""},
    {-5, u";[<-10]0;0.0", u8"-5,0"},
    {0, u";0;\"z\"", u8"z"},
    {0, u";;\"z\"", u8"z"},
    {0, u";0", u8""},
    {0, u";0;", u8""},
    {0, u";0;[=0]\"z\"", u8""},
    {0, u";[=0]0", u8""},
    {0, u";[<-10]0", u8"0"},
    {0, u"", u8"0"},
    {0, u";[<-10]0;", u8""},
    {0, u";[<-10]0;\"z\"", u8"z"},
    // A first section with a condition.
    {150, u"[>100]0;0.0", u8"150"},
    {-5, u"[<0]\"neg\";\"pos\"", u8"-neg"},
    {50, u"[>100]0.0", u8"50"},
    {-5, u"[>100]0.0", u8"-5"},
    {50, u"[Red][>100]0.0", u8"50"},
    {50, u"[>100]0;", u8""},
    {50, u"[>100]0;;\"z\"", u8"z"},
    {50, u"[>100]0;;[>0]\"z\"", u8""},
    {-5, u"[>100]0;;\"z\"", u8""},
    {50, u"[>100]0;0.0", u8"50,0"},
    {-5, u"[>100]0;0.0", u8"5,0"},
    {5, u"[<0]\"neg\";\"pos\"", u8"pos"},
    {50, u"[>100]0;0.0;", u8""},
    {50, u"[>100]0;0.0;\"z\"", u8"z"},
    {70, u"[>100]0;[>50]0.0", u8"70,0"},
    {-150, u"[>100]0;[<-100]0.0", u8"-150,0"},
    {20, u"[>100]0;[>50]0.0", u8"20"},
    {-20, u"[>100]0;[>50]0.0", u8"-20"},
    {20, u"[>100]0;[>50]0.0;", u8""},
    {20, u"[>100]0;[>50]0.0;0.00", u8"20,00"},
    {-20, u"[>100]0;[>50]0.0;0.00", u8"-20,00"},
    // Each comparator on both sides of its bound.
    {5, u"[=5]\"cinq\";0", u8"cinq"},
    {6, u"[=5]\"cinq\";0", u8"6"},
    {6, u"[<>5]\"autre\";0", u8"autre"},
    {5, u"[<>5]\"autre\";0", u8"5"},
    {5, u"[>=5]\"grand\";0", u8"grand"},
    {4, u"[>=5]\"grand\";0", u8"4"},
    {5, u"[<=5]\"petit\";0", u8"petit"},
    {6, u"[<=5]\"petit\";0", u8"6"},
    {4, u"[<5]\"petit\";0", u8"petit"},
    {5, u"[<5]\"petit\";0", u8"5"},
    // Colours, by name in any case, with or around a condition.
    {-5, u"[Red]0;[Blue]0", u8"5", 4},
    {5, u"[Red]0;[Blue]0", u8"5", 2},
    {5, u"[Black]0", u8"5", 0},
    {5, u"[White]0", u8"5", 1},
    {5, u"[Green]0", u8"5", 3},
    {5, u"[Yellow]0", u8"5", 5},
    {5, u"[Magenta]0", u8"5", 6},
    {5, u"[Cyan]0", u8"5", 7},
    {5, u"[red]0", u8"5", 2},
    {5, u"[BLUE]0", u8"5", 4},
    {-5, u"[Red][<0]0;[Blue]0", u8"-5", 2},
    {5, u"[Red][<0]0;[Blue]0", u8"5", 4},
    {-5, u"[<0][Green]0;0", u8"-5", 3},
    {-5, u"[Red]0;", u8""},
    {1.5, u"[Red][h]:mm", u8"36:00", 2},
    // Currency brackets print their symbol; the locale tag is dropped.
    {1234.5, u"[$€-40C] #,##0.00", u8"€ 1 234,50"},
    {1234.5, u"#,##0.00 [$€-40C]", u8"1 234,50 €"},
    {5, u"[$USD] 0", u8"USD 5"},
    {45000, u"[$-40C]dd/mm/yyyy", u8"15/03/2023"},
    // The built-in codes of the file format, and the French currency and accounting codes.
    {1234, u"$#,##0_);($#,##0)", u8"$1 234 "},
    {-1234, u"$#,##0_);($#,##0)", u8"($1 234)"},
    {-1234.5, u"$#,##0_);[Red]($#,##0)", u8"($1 235)", 2},
    {-0.5, u"$#,##0.00_);($#,##0.00)", u8"($0,50)"},
    {0, u"#,##0_);(#,##0)", u8"0 "},
    {-1234, u"#,##0_);[Red](#,##0)", u8"(1 234)", 2},
    {1234, Accounting, u8" 1 234 "},
    {-1234, Accounting, u8" (1 234)"},
    {0, Accounting, u8" - "},
    {1234.5, AccountingDollar, u8" $1 234,50 "},
    {-1234.5, AccountingDollar, u8" $(1 234,50)"},
    {0, AccountingDollar, u8" $-   "},
    {-1234.5, u"#,##0 $;-#,##0 $", u8"-1 235 $"},
    {1234, AccountingFrench, u8" 1 234 $ "},
    {-1234, AccountingFrench, u8"-1 234 $ "},
    {0, AccountingFrench, u8" - $ "},
    {45000, u"m/d/yy", u8"3/15/23"},
    {45000, u"dd-mmm-yy", u8"15-mars-23"},
    {44958, u"mmm-yy", u8"févr.-23"},
    {45000.75, u"m/d/yy h:mm", u8"3/15/23 18:00"},
};

TEST(NumberFormat, FrenchTable) {
  ApplyLocale(LocaleFrench);
  CheckRows(frenchRows);
}

// English (US) settings: "." for decimals, "," between thousands, English names.
const Row englishRows[] = {
    {1234.5, u"0.00", u8"1234.50"},
    {-0.001, u"0.00", u8"-0.00"},
    {1234567, u"#,##0", u8"1,234,567"},
    {1e20, u"#,##0", u8"100,000,000,000,000,000,000"},
    {1234.5, u"#,##0.00", u8"1,234.50"},
    {5, u"0,000", u8"0,005"},
    {1234567, u"#,##0.0,", u8"1,234.6"},
    {1234567, u"0,,", u8"1"},
    {1234567890, u"0.00,,,\" bn\"", u8"1.23 bn"},
    {12.5, u".00", u8"12.50"},
    {0.5, u".00", u8".50"},
    {1, u"0.##", u8"1."},
    {0.5, u"?.??", u8" .5 "},
    {1234.5, u"0.00_)", u8"1234.50 "},
    {-5, u"\"$\"0", u8"-$5"},
    {0.125, u"0%", u8"13%"},
    {12345, u"0.00E+00", u8"1.23E+04"},
    {12345, u"##0.0E+0", u8"12.3E+3"},
    {0.001234, u"##0.0E+0", u8"1.2E-3"},
    {1.25, u"# ?/?", u8"1 1/4"},
    {3.5, u"# ?\?/??", u8"3  1/2 "},
    {1234.5, u"General", u8"1234.5"},
    {1.0 / 3, u"General", u8"0.333333333333333"},
    {1e20, u"General", u8"1E+20"},
    {1.5, u"@", u8"1.5"},
    {-2.5, u"0.0;[Red]-0.0", u8"-2.5", 2},
    {1234.5, u"[$€-40C] #,##0.00", u8"€ 1,234.50"},
    {1234, u"$#,##0_);($#,##0)", u8"$1,234 "},
    {-1234, u"$#,##0_);($#,##0)", u8"($1,234)"},
    {-1234.5, u"$#,##0.00_);[Red]($#,##0.00)", u8"($1,234.50)", 2},
    {-1234.5, u"#,##0.00_);(#,##0.00)", u8"(1,234.50)"},
    {1234, Accounting, u8" 1,234 "},
    {-1234.5, AccountingDollar, u8" $(1,234.50)"},
    {0, AccountingDollar, u8" $-   "},
    {45000, u"m/d/yy", u8"3/15/23"},
    {45000, u"m/d/yyyy", u8"3/15/2023"},
    {45000, u"dd-mmm-yy", u8"15-Mar-23"},
    {45000, u"mmm-yy", u8"Mar-23"},
    {45000, u"dddd, mmmm d, yyyy", u8"Wednesday, March 15, 2023"},
    {45000, u"mmmmm", u8"M"},
    {45291, u"dddd mmm d", u8"Sunday Dec 31"},
    {40000, u"dddd", u8"Monday"},
    {45000, u"dd.mm.yyyy", u8"15.03.2023"},
    {0.75, u"h:mm:ss", u8"18:00:00"},
    {45000.75, u"m/d/yy h:mm", u8"3/15/23 18:00"},
    {0, u"h:mm AM/PM", u8"12:00 AM"},
    {0.5, u"h:mm AM/PM", u8"12:00 PM"},
    {T(13, 30, 0), u"h:mm AM/PM", u8"1:30 PM"},
    {T(13, 45, 30), u"h:mm:ss AM/PM", u8"1:45:30 PM"},
    {T(13, 30, 0), u"h:mm am/pm", u8"1:30 pm"},
    {T(0, 1, 5.54), u"mm:ss.0", u8"01:05.5"},
    {1.5, u"[h]:mm:ss", u8"36:00:00"},
};

TEST(NumberFormat, EnglishTable) {
  ApplyLocale(LocaleEnglishUS);
  CheckRows(englishRows);
  ApplyLocale(LocaleFrench);
}

// With a measure of one unit a character: General gives up decimals (or, with an exponent,
// precision) to fit the room left after what precedes it, and the fill takes the rest.
TEST(NumberFormat, ShrinkAndFill) {
  ApplyLocale(LocaleFrench);
  struct Fit {
    double value;
    const char16_t* code;
    int32_t width;
    const char8_t* expected;
  };
  const Fit fits[] = {
      {3.14159265, u"General", 20, u8"3,14159265"},
      {3.14159265, u"General", 6, u8"3,1416"},
      {3.14159265, u"General", 2, u8"3"},
      {-3.14159265, u"General", 6, u8"-3,142"},
      {3.14159265, u"\"x=\"General", 6, u8"x=3,14"},
      {1234567.891, u"General", 9, u8"1234567,9"},
      {1234567.891, u"General", 7, u8"1234568"},
      {1.23456789e20, u"General", 10, u8"1,2346E+20"},
      {1.23456789e20, u"General", 8, u8"1,23E+20"},
      {1.23456789e20, u"General", 3, u8"1,2E+20"},
      {1234.5, u"0.00", 3, u8"1234,50"},
      {5, u"0*x", 4, u8"5xxx"},
      {5, u"*x0", 4, u8"xxx5"},
      {12345, u"0*x", 3, u8"12345"},
      {5, u"*a0*b", 3, u8"5bb"},
      {5, u"\"a\"*.\"b\"", 6, u8"a....b"},
      {1234, u"_($* #,##0_);_($* (#,##0);_($* \"-\"_);_(@_)", 12, u8" $    1 234 "},
      {-1234, u"_($* #,##0_);_($* (#,##0);_($* \"-\"_);_(@_)", 12, u8" $   (1 234)"},
      {0, u"_($* #,##0_);_($* (#,##0);_($* \"-\"_);_(@_)", 8, u8" $    - "},
  };
  FixedWidthMeasure measure = MakeFixedWidthMeasure(1);
  for (const Fit& fit : fits) {
    SCOPED_TRACE(testing::Message()
                 << fit.value << " by \"" << TextToUtf8(fit.code) << "\" in " << fit.width);
    const char16_t* out = FormatNumber(fit.value, fit.code, 0, &measure.base, fit.width, nullptr);
    EXPECT_EQ(TextToUtf8(out), Utf8(fit.expected));
  }

  // Results longer than the buffer are cut, never written past it.
  std::u16string longCode(3 * FormatOutputCapacity, u'x');
  longCode += u"0";
  EXPECT_LT(TextLength(FormatNumber(5, longCode.c_str(), 0, nullptr, 0, nullptr)),
            FormatOutputCapacity);
  EXPECT_LT(TextLength(FormatNumber(5, u"0*x", 0, &measure.base, 100000, nullptr)),
            FormatOutputCapacity);
}

TEST(NumberFormat, ParseSections) {
  struct Expected {
    const char16_t* code;
    uint32_t index;
    uint8_t kind;
    uint8_t color;
    uint8_t comparator;
    double bound;
    const char16_t* text;
  };
  const Expected rows[] = {
      {u"", 0, SectionBlank, FormatNoColor, CompareNone, 0, u""},
      {u"", 1, SectionAbsent, 0, 0, 0, nullptr},
      {u"0;[Red]-0", 0, SectionPlain, FormatNoColor, CompareNone, 0, u"0"},
      {u"0;[Red]-0", 1, SectionPlain, 2, CompareNone, 0, u"-0"},
      {u"0;[Red]-0", 2, SectionAbsent, 0, 0, 0, nullptr},
      {u"[>=100][Blue]0.0;", 0, SectionConditional, 4, CompareGreaterEqual, 100, u"0.0"},
      {u"[>=100][Blue]0.0;", 1, SectionBlank, FormatNoColor, CompareNone, 0, u""},
      {u"[>=100][Blue]0.0;", 2, SectionAbsent, 0, 0, 0, nullptr},
      {u"[h]:mm;[Red]", 0, SectionPlain, FormatNoColor, CompareNone, 0, u"[h]:mm"},
      {u"[h]:mm;[Red]", 1, SectionPlain, 2, CompareNone, 0, u"General"},
      {u"[Red][<-5]", 0, SectionConditional, 2, CompareLess, -5, u"General"},
      {u"[=1]0;[>2]0;[<=3]0", 1, SectionConditional, FormatNoColor, CompareGreater, 2, u"0"},
      {u"[=1]0;[>2]0;[<=3]0", 2, SectionConditional, FormatNoColor, CompareLessEqual, 3, u"0"},
      {u"[<>0]0", 0, SectionConditional, FormatNoColor, CompareNotEqual, 0, u"0"},
      {u"\"a;b\"0;\\;0", 0, SectionPlain, FormatNoColor, CompareNone, 0, u"\"a;b\"0"},
      {u"\"a;b\"0;\\;0", 1, SectionPlain, FormatNoColor, CompareNone, 0, u"\\;0"},
      {u"_;0*;", 0, SectionPlain, FormatNoColor, CompareNone, 0, u"_;0*;"},
      {u"_;0*;", 1, SectionAbsent, 0, 0, 0, nullptr},
      {u"0;0;0;@;0", 3, SectionPlain, FormatNoColor, CompareNone, 0, u"@"},
  };
  for (const Expected& row : rows) {
    SCOPED_TRACE(testing::Message() << "\"" << TextToUtf8(row.code) << "\" #" << row.index);
    FormatSection sections[FormatSectionCount] = {};
    ParseFormatSections(row.code, sections);
    const FormatSection& s = sections[row.index];
    EXPECT_EQ(s.kind, row.kind);
    if (row.kind == SectionAbsent) continue;
    EXPECT_EQ(s.color, row.color);
    EXPECT_EQ(s.comparator, row.comparator);
    if (row.comparator != CompareNone) {
      EXPECT_EQ(s.bound, row.bound);
    }
    EXPECT_EQ(std::u16string(s.text, s.length), std::u16string(row.text));
  }
}

TEST(NumberFormat, EvaluateCondition) {
  struct Case {
    uint8_t comparator;
    double value;
    bool expected;
  };
  // Against a bound of 5; each comparator on the bound and on one side of it.
  const Case cases[] = {
      {CompareNone, 5, false},         {CompareEqual, 5, true},      {CompareEqual, 6, false},
      {CompareGreater, 6, true},       {CompareGreater, 5, false},   {CompareGreaterEqual, 5, true},
      {CompareGreaterEqual, 4, false}, {CompareLess, 4, true},       {CompareLess, 5, false},
      {CompareLessEqual, 5, true},     {CompareLessEqual, 6, false}, {CompareNotEqual, 4, true},
      {CompareNotEqual, 5, false},
  };
  for (const Case& c : cases)
    EXPECT_EQ(EvaluateCondition(c.comparator, 5, c.value), c.expected)
        << int(c.comparator) << " " << c.value;
}

}  // namespace
