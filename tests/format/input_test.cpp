// Tests of the readers of typed text under both built-in locales: what ClassifyInput makes of
// numbers, percentages, currency amounts, dates, times, booleans and errors, the whole-string
// readers behind CNUM and the coercions, and the date and time texts of serials.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <string>

#include "base/text.h"
#include "format/calendar.h"
#include "format/input.h"
#include "format/locale.h"
#include "formula/parser.h"
#include "model/value.h"
#include "model/workbook.h"

namespace {

struct InputTest : testing::Test {
  void TearDown() override { ApplyLocale(LocaleFrench); }
};

constexpr double Hour = 1.0 / 24;
constexpr double Second = 1.0 / 86400;

// A number to 15 significant digits, as the program itself shows numbers.
std::string Digits(double d) {
  char text[32];
  std::snprintf(text, sizeof text, "%.15g", d);
  return text;
}

struct Number {
  const char16_t* text;
  double number;
  InputFormatHint hint;
  int32_t detail;
};

void ExpectNumbers(std::initializer_list<Number> rows, const ParseContext* ctx = nullptr) {
  for (const Number& row : rows) {
    SCOPED_TRACE(TextToUtf8(row.text));
    InputResult r;
    EXPECT_EQ(ClassifyInput(ctx, row.text, &r), InputNumber);
    EXPECT_EQ(r.kind, InputNumber);
    EXPECT_NEAR(r.number, row.number, 1e-9 * std::fmax(1, std::fabs(row.number)));
    EXPECT_EQ(r.hint, row.hint);
    EXPECT_EQ(r.hintDetail, row.detail);
  }
}

void ExpectKind(InputKind kind, std::initializer_list<const char16_t*> texts,
                const ParseContext* ctx = nullptr) {
  for (const char16_t* text : texts) {
    InputResult r;
    EXPECT_EQ(ClassifyInput(ctx, text, &r), kind) << TextToUtf8(text);
    EXPECT_EQ(r.kind, kind) << TextToUtf8(text);
  }
}

TEST_F(InputTest, ClassifiesFrenchNumbers) {
  ExpectNumbers({
      {u"1,5", 1.5, HintNone, 0},
      {u",5", 0.5, HintNone, 0},
      {u"1 234,5", 1234.5, HintThousands, 2},
      {u"1\u202F234", 1234, HintThousands, 0},
      {u"-1 234 567", -1234567, HintThousands, 0},
      {u"1 E 5", 1e5, HintNone, 0},
      {u"12%", 0.12, HintPercent, 0},
      {u"-1,5 %", -0.015, HintPercent, 2},
      {u"(12)", -12, HintNone, 0},
      {u"(1 234)", -1234, HintNone, 0},
      {u"12 \u20AC", 12, HintCurrency, 0},
      {u"12,50\u00A0\u20AC", 12.5, HintCurrency, 2},
      {u"-12 \u20AC", -12, HintCurrency, 0},
      {u"12 \u20AC-", -12, HintCurrency, 0},
      // A leading symbol gives the grouped format.
      {u"\u20AC12", 12, HintThousands, 0},
      {u"\u20AC12,5", 12.5, HintThousands, 2},
  });
  // Parentheses hold only a plain number; with no workbook nothing is scanned as a formula.
  ExpectKind(InputText, {u"1.5", u"12 34", u"1E999", u"\u20AC12 \u20AC", u"(1 234 \u20AC)",
                         u"-(12 \u20AC)", u"12 $", u"-", u"=", u"=1+2"});
  ExpectKind(InputEmpty, {u""});
  InputResult r;
  ASSERT_EQ(ClassifyInput(nullptr, u"vrai", &r), InputBoolean);
  EXPECT_EQ(r.boolean, 1);
  ASSERT_EQ(ClassifyInput(nullptr, u"#n/a", &r), InputError);
  EXPECT_EQ(r.error, ErrNA);
}

TEST_F(InputTest, ClassifiesFrenchDatesAndTimes) {
  std::time_t now = std::time(nullptr);
  const int32_t year = std::localtime(&now)->tm_year + 1900;
  ExpectNumbers({
      {u"1/2/2024", 45323, HintDate, 0},
      {u"01-02-24", 45323, HintDate, 0},
      {u"29/2/2024", 45351, HintDate, 0},
      {u"2024/1/15", 45306, HintDate, 0},  // a leading year reads year first
      {u"1/2/2024 12:00", 45323.5, HintDate, 0},
      {u"1/2024", 45292, HintDate, 0},
      {u"janv. 2024", 45292, HintDate, 0},
      {u"15 JANV 2024", 45306, HintDate, 0},
      {u"15-janv.-24", 45306, HintDate, 0},
      {u"1/2", DateToSerial(year, 2, 1) * 1.0, HintDate, 0},
      {u"janv. 15", DateToSerial(year, 1, 15) * 1.0, HintDate, 0},
      {u"1/13", DateToSerial(year, 1, 13) * 1.0, HintDate, 0},
      {u"14:30", 14.5 * Hour, HintTime, 20},
      {u"14:30:15", 14.5 * Hour + 15 * Second, HintTime, 21},
      {u"2:30 PM", 14.5 * Hour, HintTime, 18},
      {u"12:00 am", 0, HintTime, 18},
      {u"2 p", 14 * Hour, HintTime, 18},
      {u"1:02:03,5 PM", 13 * Hour + 123.5 * Second, HintTime, 19},
      {u"1:30,5", 90.5 * Second, HintTime, 21},
      {u"0:90", 0.0625, HintTime, 20},
      {u"14:", 14 * Hour, HintTime, 20},
  });
  ExpectKind(InputText,
             {u"29/2/2023", u"1/2/", u"1 2 2024", u"1/1/1899", u"janv.", u"janvx 2024", u"2 PMX"});
}

TEST_F(InputTest, ClassifiesUsForms) {
  ApplyLocale(LocaleEnglishUS);
  ExpectNumbers({
      {u"1,234.5", 1234.5, HintThousands, 2},
      {u"1.5", 1.5, HintNone, 0},
      {u"$12", 12, HintThousands, 0},
      {u"-$1,234.50", -1234.5, HintCurrency, 2},
      {u"1/2/2024", 45293, HintDate, 0},
      {u"13/1/2024", 45304, HintDate, 0},
      {u"12/25/29", 47477, HintDate, 0},
      {u"12/25/30", 11317, HintDate, 0},
      {u"jan 2024", 45292, HintDate, 0},
      {u"1:30.5", 90.5 * Second, HintTime, 21},
  });
  ExpectKind(InputText, {u"1,5", u"($12)"});
  ExpectKind(InputBoolean, {u"vrai"});
}

TEST_F(InputTest, WholeStringReaders) {
  // What ParseNumberInput returns, then the output, which a failure leaves alone.
  auto number = [](const char16_t* text) {
    double out = -7;
    int ok = ParseNumberInput(text, &out);
    return std::to_string(ok) + " " + Digits(out);
  };
  EXPECT_EQ(number(u"12 34"), "1 1234");  // grouping is loose here
  EXPECT_EQ(number(u"12%"), "1 0.12");
  EXPECT_EQ(number(u"12 \u20AC"), "1 12");
  EXPECT_EQ(number(u"(5)"), "1 -5");
  EXPECT_EQ(number(u"1/2/2024"), "0 -7");
  EXPECT_EQ(number(u""), "0 -7");

  double amount = 0;
  int32_t digits = -1;
  EXPECT_TRUE(ParseCurrencyText(u"x12,5 \u20ACy", 1, 7, &amount, &digits));
  EXPECT_EQ(amount, 12.5);
  EXPECT_EQ(digits, 1);
  for (const char16_t* bad : {u"12", u"--12 \u20AC", u"(-12 \u20AC)", u"1 23 \u20AC", u"\u20AC"})
    EXPECT_FALSE(ParseCurrencyText(bad, 0, TextLength(bad), &amount, &digits)) << TextToUtf8(bad);

  double serial = 0;
  EXPECT_TRUE(ParseDateText(u"1/2/2024", 1, &serial));
  EXPECT_EQ(serial, 45323 - Date1904Offset);
  EXPECT_FALSE(ParseDateText(u"31/12/1903", 1, &serial));
  EXPECT_FALSE(ParseDateText(nullptr, 0, &serial));
  int32_t format = 0;
  EXPECT_TRUE(ParseTimeText(u"25:00", &serial, &format));
  EXPECT_DOUBLE_EQ(serial, 25 * Hour);
  EXPECT_FALSE(ParseTimeText(u"14", &serial, nullptr));

  int32_t boolean = -1;
  uint8_t code = 99;
  EXPECT_FALSE(ParseBooleanText(u"VRAIE", &boolean));
  EXPECT_FALSE(ParseErrorText(u"#N/A ", &code));
  EXPECT_TRUE(ParseErrorText(u"#ref!", &code));
  EXPECT_EQ(code, ErrRef);
}

TEST_F(InputTest, TextToValueReplacesWhatItSpells) {
  auto replaced = [](Value v) {
    TextToValue(&v, 1);
    std::string s = v.tag == ValueNumber    ? "n:" + Digits(v.number)
                    : v.tag == ValueBoolean ? "b:" + std::to_string(v.boolean)
                    : v.tag == ValueText    ? "s:" + TextToUtf8(v.text)
                                            : "?";
    FreeValue(&v);
    return s;
  };
  EXPECT_EQ(replaced(TextValue(TextDuplicate(u"1,5"))), "n:1.5");
  EXPECT_EQ(replaced(TextValue(TextDuplicate(u"1/2/2024"))), "n:43861");  // 1904 system
  EXPECT_EQ(replaced(TextValue(TextDuplicate(u"12:00"))), "n:0.5");
  EXPECT_EQ(replaced(TextValue(TextDuplicate(u"vrai"))), "b:1");
  EXPECT_EQ(replaced(TextValue(TextDuplicate(u"#N/A"))), "s:#N/A");
  EXPECT_EQ(replaced(NumberValue(3)), "n:3");
}

TEST_F(InputTest, DateAndTimeTexts) {
  char16_t out[NumberTextCapacity];
  struct TextRow {
    LocaleId locale;
    double serial;
    int date1904;
    const char* date;
    const char* time;
  };
  for (const TextRow& row : std::initializer_list<TextRow>{
           {LocaleFrench, 45323.25, 0, "1/2/24", "06:00:00"},
           {LocaleEnglishUS, 45323 + 14.5 * Hour + 15 * Second, 0, "2/1/24", "14:30:15"},
           {LocaleFrench, 45323 - Date1904Offset, 1, "1/2/24", "00:00:00"},
           {LocaleFrench, 36526.99999999, 0, "1/1/00", "00:00:00"},
           {LocaleFrench, -0.25, 0, "31/12/99", "18:00:00"},
       }) {
    ApplyLocale(row.locale);
    uint32_t n = DateText(row.serial, row.date1904, out);
    EXPECT_EQ(TextToUtf8(out), row.date);
    EXPECT_EQ(n, TextLength(out));
    n = TimeText(row.serial, out);
    EXPECT_EQ(TextToUtf8(out), row.time);
    EXPECT_EQ(n, TextLength(out));
  }
  DateText(1e300, 0, out);
  DateText(NAN, 0, out);
  TimeText(-1e300, out);
}

// Long runs of digits, blanks and separators must be refused or read without reading or writing
// out of bounds.
TEST_F(InputTest, LongTextsStayInBounds) {
  const char16_t* pieces[] = {u"9", u" ", u"/", u":", u"1 ", u"1/", u"1:", u"(", u"\u20AC", u",0"};
  for (const char16_t* piece : pieces) {
    std::u16string text = u"1";
    while (text.size() < 5000) text += piece;
    InputResult r;
    ClassifyInput(nullptr, text.c_str(), &r);
    double value;
    ParseNumberInput(text.c_str(), &value);
    ParseDateText(text.c_str(), 0, &value);
    Value v = TextValue(TextDuplicate(text.c_str()));
    TextToValue(&v, 0);
    FreeValue(&v);
  }
  // Digits past the fifteenth only scale the number.
  std::u16string digits(300, u'7');
  InputResult r;
  EXPECT_EQ(ClassifyInput(nullptr, digits.c_str(), &r), InputNumber);
  EXPECT_NEAR(r.number, 7.77777777777777e299, 1e286);
  digits.append(100, u'7');
  EXPECT_EQ(ClassifyInput(nullptr, digits.c_str(), &r), InputText);
}

// With a workbook, its date system applies and a text that starts with "=", "+" or "-" is a
// formula when the scan reaches its end.
TEST_F(InputTest, FormulasAndTheWorkbookDateSystem) {
  uint32_t book = 0;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
  ParseContext ctx{};
  ctx.book = book;
  ctx.a1Style = 1;
  ExpectKind(InputFormula, {u"=1+2", u"= 1", u"-A1"}, &ctx);
  ExpectKind(InputText, {u"=1+", u"=", u"-"}, &ctx);
  GetWorkbook(book)->date1904 = 1;
  ExpectNumbers({{u"-5", -5, HintNone, 0}, {u"1/2/2024", 45323 - Date1904Offset, HintDate, 0}},
                &ctx);
  CloseAllWorkbooks();
}

}  // namespace
