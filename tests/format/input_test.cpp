// Tests of the readers of typed text under both built-in locales: what ClassifyInput makes of
// numbers, percentages, currency amounts, dates, times, booleans and errors, the whole-string
// readers behind CNUM and the coercions, and the date and time texts of serials.
#include <gtest/gtest.h>

#include <cmath>
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
struct InputUsTest : InputTest {
  void SetUp() override { ApplyLocale(LocaleEnglishUS); }
};

constexpr double Hour = 1.0 / 24;
constexpr double Second = 1.0 / 86400;

struct Row {
  const char16_t* text;
  InputKind kind;
  double number;  // the number, the boolean (0 or 1) or the error code
  InputFormatHint hint;
  int32_t detail;
};

void ExpectClassified(std::initializer_list<Row> rows, const ParseContext* ctx = nullptr) {
  for (const Row& row : rows) {
    SCOPED_TRACE(TextToUtf8(row.text));
    InputResult r;
    EXPECT_EQ(ClassifyInput(ctx, row.text, &r), row.kind);
    EXPECT_EQ(r.kind, row.kind);
    if (row.kind == InputNumber) {
      EXPECT_NEAR(r.number, row.number, 1e-9 * std::fmax(1, std::fabs(row.number)));
      EXPECT_EQ(r.hint, row.hint);
      EXPECT_EQ(r.hintDetail, row.detail);
    }
    if (row.kind == InputBoolean) {
      EXPECT_EQ(r.boolean, row.number);
    }
    if (row.kind == InputError) {
      EXPECT_EQ(r.error, row.number);
    }
  }
}

int32_t ThisYear() {
  std::time_t now = std::time(nullptr);
  return std::localtime(&now)->tm_year + 1900;
}

TEST_F(InputTest, ClassifiesFrenchNumbers) {
  ExpectClassified({
      {u"", InputEmpty, 0, HintNone, 0},
      {u"1,5", InputNumber, 1.5, HintNone, 0},
      {u",5", InputNumber, 0.5, HintNone, 0},
      {u"1.5", InputText, 0, HintNone, 0},
      {u"1 234,5", InputNumber, 1234.5, HintThousands, 2},
      {u"1\u00A0234,5", InputNumber, 1234.5, HintThousands, 2},
      {u"1\u202F234", InputNumber, 1234, HintThousands, 0},
      {u"-1 234 567", InputNumber, -1234567, HintThousands, 0},
      {u"12 34", InputText, 0, HintNone, 0},
      {u"1E5", InputNumber, 1e5, HintNone, 0},
      {u"1 E 5", InputNumber, 1e5, HintNone, 0},
      {u"1E999", InputText, 0, HintNone, 0},
      {u"12%", InputNumber, 0.12, HintPercent, 0},
      {u"-1,5 %", InputNumber, -0.015, HintPercent, 2},
      {u"(12)", InputNumber, -12, HintNone, 0},
      {u"12 \u20AC", InputNumber, 12, HintCurrency, 0},
      {u"12,50\u00A0\u20AC", InputNumber, 12.5, HintCurrency, 2},
      // A leading symbol gives the grouped format; parentheses hold only a plain number.
      {u"\u20AC12", InputNumber, 12, HintThousands, 0},
      {u"\u20AC12,5", InputNumber, 12.5, HintThousands, 2},
      {u"\u20AC12 \u20AC", InputText, 0, HintNone, 0},
      {u"-12 \u20AC", InputNumber, -12, HintCurrency, 0},
      {u"12 \u20AC-", InputNumber, -12, HintCurrency, 0},
      {u"(1 234 \u20AC)", InputText, 0, HintNone, 0},
      {u"(1 234)", InputNumber, -1234, HintNone, 0},
      {u"-(12 \u20AC)", InputText, 0, HintNone, 0},
      {u"12 $", InputText, 0, HintNone, 0},
      {u"vrai", InputBoolean, 1, HintNone, 0},
      {u"#n/a", InputError, ErrNA, HintNone, 0},
      {u"-", InputText, 0, HintNone, 0},
      {u"=", InputText, 0, HintNone, 0},
      {u"=1+2", InputText, 0, HintNone, 0},  // no workbook: no formula scan
  });
}

TEST_F(InputTest, ClassifiesFrenchDatesAndTimes) {
  ExpectClassified({
      {u"1/2/2024", InputNumber, 45323, HintDate, 0},
      {u"01-02-24", InputNumber, 45323, HintDate, 0},
      {u"29/2/2024", InputNumber, 45351, HintDate, 0},
      {u"29/2/2023", InputText, 0, HintNone, 0},
      {u"2024/1/15", InputNumber, 45306, HintDate, 0},  // a leading year reads year first
      {u"1/2/2024 12:00", InputNumber, 45323.5, HintDate, 0},
      {u"1/2/", InputText, 0, HintNone, 0},
      {u"1 2 2024", InputText, 0, HintNone, 0},
      {u"1/1/1899", InputText, 0, HintNone, 0},
      {u"1/2024", InputNumber, 45292, HintDate, 0},
      {u"janv. 2024", InputNumber, 45292, HintDate, 0},
      {u"15 JANV 2024", InputNumber, 45306, HintDate, 0},
      {u"15-janv.-24", InputNumber, 45306, HintDate, 0},
      {u"janv.", InputText, 0, HintNone, 0},
      {u"janvx 2024", InputText, 0, HintNone, 0},
      {u"14:30", InputNumber, 14.5 * Hour, HintTime, 20},
      {u"14:30:15", InputNumber, 14.5 * Hour + 15 * Second, HintTime, 21},
      {u"2:30 PM", InputNumber, 14.5 * Hour, HintTime, 18},
      {u"12:00 am", InputNumber, 0, HintTime, 18},
      {u"2 p", InputNumber, 14 * Hour, HintTime, 18},
      {u"1:02:03,5 PM", InputNumber, 13 * Hour + 123.5 * Second, HintTime, 19},
      {u"1:30,5", InputNumber, 90.5 * Second, HintTime, 21},
      {u"0:90", InputNumber, 0.0625, HintTime, 20},
      {u"14:", InputNumber, 14 * Hour, HintTime, 20},
      {u"2 PMX", InputText, 0, HintNone, 0},
  });
  int32_t year = ThisYear();
  ExpectClassified({
      {u"1/2", InputNumber, DateToSerial(year, 2, 1) * 1.0, HintDate, 0},
      {u"janv. 15", InputNumber, DateToSerial(year, 1, 15) * 1.0, HintDate, 0},
      {u"1/13", InputNumber, DateToSerial(year, 1, 13) * 1.0, HintDate, 0},
  });
}

TEST_F(InputUsTest, ClassifiesUsForms) {
  ExpectClassified({
      {u"1,234.5", InputNumber, 1234.5, HintThousands, 2},
      {u"1.5", InputNumber, 1.5, HintNone, 0},
      {u"1,5", InputText, 0, HintNone, 0},
      {u"$12", InputNumber, 12, HintThousands, 0},
      {u"-$1,234.50", InputNumber, -1234.5, HintCurrency, 2},
      {u"($12)", InputText, 0, HintNone, 0},
      {u"(12)", InputNumber, -12, HintNone, 0},
      {u"1/2/2024", InputNumber, 45293, HintDate, 0},
      {u"13/1/2024", InputNumber, 45304, HintDate, 0},
      {u"12/25/29", InputNumber, 47477, HintDate, 0},
      {u"12/25/30", InputNumber, 11317, HintDate, 0},
      {u"jan 2024", InputNumber, 45292, HintDate, 0},
      {u"1:30.5", InputNumber, 90.5 * Second, HintTime, 21},
      {u"2:30 pm", InputNumber, 14.5 * Hour, HintTime, 18},
      {u"vrai", InputBoolean, 1, HintNone, 0},
  });
}

TEST_F(InputTest, WholeStringReaders) {
  struct NumberRow {
    const char16_t* text;
    int ok;
    double number;
  };
  for (const NumberRow& row : std::initializer_list<NumberRow>{
           {u"12 34", 1, 1234},  // grouping is loose here
           {u"12%", 1, 0.12},
           {u"12 \u20AC", 1, 12},
           {u"(5)", 1, -5},
           {u"1/2/2024", 0, 0},
           {u"", 0, 0},
       }) {
    SCOPED_TRACE(TextToUtf8(row.text));
    double out = -7;
    EXPECT_EQ(ParseNumberInput(row.text, &out), row.ok);
    EXPECT_DOUBLE_EQ(out, row.ok ? row.number : -7);
  }

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
  struct ValueRow {
    const char16_t* text;
    uint16_t tag;
    double number;
  };
  for (const ValueRow& row : std::initializer_list<ValueRow>{
           {u"1,5", ValueNumber, 1.5},
           {u"1/2/2024", ValueNumber, 45323 - Date1904Offset},
           {u"12:00", ValueNumber, 0.5},
           {u"vrai", ValueBoolean, 1},
           {u"#N/A", ValueText, 0},
       }) {
    SCOPED_TRACE(TextToUtf8(row.text));
    Value v = TextValue(TextDuplicate(row.text));
    TextToValue(&v, 1);
    EXPECT_EQ(v.tag, row.tag);
    if (row.tag == ValueNumber) {
      EXPECT_DOUBLE_EQ(v.number, row.number);
    } else if (row.tag == ValueBoolean) {
      EXPECT_EQ(v.boolean, row.number);
    } else {
      EXPECT_EQ(TextToUtf8(v.text), TextToUtf8(row.text));
    }
    FreeValue(&v);
  }
  Value n = NumberValue(3);
  TextToValue(&n, 0);
  EXPECT_EQ(n.number, 3);
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
    EXPECT_EQ(DateText(row.serial, row.date1904, out), std::char_traits<char>::length(row.date));
    EXPECT_EQ(TextToUtf8(out), row.date);
    EXPECT_EQ(TimeText(row.serial, out), 8u);
    EXPECT_EQ(TextToUtf8(out), row.time);
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

struct InputFormulaTest : InputTest {
  uint32_t book = 0;
  ParseContext ctx{};
  void SetUp() override {
    CloseAllWorkbooks();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    ctx.book = book;
    ctx.a1Style = 1;
  }
  void TearDown() override {
    CloseAllWorkbooks();
    InputTest::TearDown();
  }
};

TEST_F(InputFormulaTest, UsesTheWorkbookDateSystem) {
  GetWorkbook(book)->date1904 = 1;
  ExpectClassified({{u"1/2/2024", InputNumber, 45323 - Date1904Offset, HintDate, 0}}, &ctx);
}

TEST_F(InputFormulaTest, FormulasScanToTheEnd) {
  if (ScanExpression(&ctx, u"1", 0, 1, 0, nullptr) != 1) GTEST_SKIP() << "no parser yet";
  ExpectClassified(
      {
          {u"=1+2", InputFormula, 0, HintNone, 0},
          {u"= 1", InputFormula, 0, HintNone, 0},
          {u"=1+", InputText, 0, HintNone, 0},
          {u"=", InputText, 0, HintNone, 0},
          {u"-A1", InputFormula, 0, HintNone, 0},
          {u"-", InputText, 0, HintNone, 0},
          {u"-5", InputNumber, -5, HintNone, 0},
      },
      &ctx);
}

}  // namespace
