// Tests of the conversion of numbers to text with a count of significant digits, and of General
// built on it. The conversion rounds through the shortest decimal form instead of printf, so it is
// held here against the C library's "%G" (the way the text used to be made, kept only as this
// reference) over hand-picked boundaries and a few hundred thousand pseudo-random doubles, at every
// precision, under both the French and the English (US) decimal separators, and through General
// at every width a cell can give it.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "base/text.h"
#include "format/input.h"
#include "format/locale.h"
#include "format/number_format.h"
#include "functions/numeric.h"

namespace {

// The reference: printf's "%-.*G", trailing zeros of a plain fraction cut, the locale's separator.
std::u16string ReferenceText(double number, int digits) {
  char buffer[64];
  if (number == 0) number = 0;
  if (digits < 1) digits = 1;
  if (digits > 17) digits = 17;
  std::snprintf(buffer, sizeof buffer, "%-.*G", digits, number);
  bool hasExponent = std::strchr(buffer, 'E') != nullptr;
  char* point = std::strpbrk(buffer, ".,");
  size_t length = std::strlen(buffer);
  if (point && !hasExponent) {
    while (length > 0 && buffer[length - 1] == '0') buffer[--length] = 0;
    if (length > 0 && buffer + length - 1 == point) buffer[--length] = 0;
  }
  std::u16string out;
  for (size_t i = 0; i < length; i++)
    out += &buffer[i] == point ? DecimalSeparator[0] : static_cast<char16_t>(buffer[i]);
  return out;
}

// The reference General in a cell `room` wide: the decimals given up one by one with re-rounding,
// or with an exponent the precision from 14 down to 2, until the text fits.
std::u16string ReferenceGeneral(double value, int32_t room) {
  std::u16string sign = value < 0 ? u"-" : u"";
  double v = std::fabs(value);
  std::u16string text = ReferenceText(v, 15);
  auto fits = [&] { return static_cast<int32_t>(sign.size() + text.size()) <= room; };
  size_t point = text.find(DecimalSeparator[0]);
  if (text.find(u'E') != std::u16string::npos) {
    for (int precision = 14; precision >= 2 && !fits(); precision--)
      text = ReferenceText(v, precision);
  } else if (point != std::u16string::npos) {
    for (int32_t decimals = static_cast<int32_t>(text.size() - point - 1);
         decimals > 0 && !fits();) {
      decimals--;
      double scale = std::pow(10.0, decimals);
      text = ReferenceText(RoundHalfAway(v * scale) / scale, 15);
    }
  }
  return sign + text;
}

std::u16string Converted(double number, int digits) {
  char16_t out[NumberTextCapacity];
  uint32_t length = ValueNumberText(number, digits, out);
  EXPECT_EQ(length, TextLength(out));
  return std::u16string(out, length);
}

// The values where conversions go wrong: rounding at each digit count, ties, carries into a new
// digit, the switches between plain and exponent notation, the ends of the double range.
std::vector<double> Boundaries() {
  std::vector<double> v = {0.0,
                           1,
                           0.1,
                           0.2,
                           0.1 + 0.2,
                           1.0 / 3,
                           2.0 / 3,
                           0.5,
                           1.5,
                           2.5,
                           0.125,
                           0.375,
                           1.005,
                           2.675,
                           1.45,
                           0.045,
                           123456.789,
                           9.9999999999,
                           9.99999999999999,
                           9.999999999999995,
                           9.9999999999999995,
                           99999.99999999999,
                           0.99999999999999994,
                           999999999999999,
                           999999999999999.4,
                           999999999999999.5,
                           1e15,
                           1e15 + 2,
                           9007199254740992.0,  // 2^53
                           9007199254740994.0,
                           9223372036854775808.0,  // 2^63
                           1234567890123456789.0,
                           1e-5,
                           1e-4,
                           0.00009999999999999999,
                           0.000099999999999999995,
                           0.000099999999999999,
                           0.00001234567890123456,
                           1e10,
                           1e11,
                           99999999999.5,
                           12345678901,
                           123456789012345,
                           1e14,
                           1e16,
                           1e17,
                           1e21,
                           1e22,
                           1e99,
                           1e100,
                           9.9999999999999999e99,
                           1e-99,
                           1e-100,
                           1e300,
                           1e308,
                           DBL_MAX,
                           DBL_MIN,
                           DBL_MIN / 2,
                           2.2250738585072009e-308,
                           4.9406564584124654e-324,
                           1e-310,
                           1.2345e-320,
                           DBL_EPSILON,
                           45323.25,
                           36526.99999999};
  // For every count of digits: a tie at that count, and nines that carry into the next decade.
  double whole = 0;
  const char* digits = "1234567890123456789";
  for (int n = 1; n <= 17; n++) {
    whole = whole * 10 + (digits[n - 1] - '0');
    double decade = std::pow(10.0, n);
    v.insert(v.end(), {whole + 0.5, whole / decade + 0.5 / decade, decade - 0.5, decade - 1,
                       1 - 0.5 / decade, 1 - 1 / decade, (decade - 1) / decade, 5 / decade,
                       whole * 1e-20, whole * 1e20});
  }
  // Each one with its neighbours on both sides, and negated.
  size_t count = v.size();
  for (size_t i = 0; i < count; i++) {
    v.push_back(std::nextafter(v[i], 0.0));
    v.push_back(std::nextafter(v[i], INFINITY));
  }
  count = v.size();
  for (size_t i = 0; i < count; i++) v.push_back(-v[i]);
  return v;
}

// Doubles of every kind: random bit patterns (every exponent, subnormals included), amounts with
// few decimals as people type them, and random mantissas over forty decades.
std::vector<double> RandomValues(size_t count) {
  std::vector<double> v;
  std::mt19937_64 random(20261124);
  std::uniform_real_distribution<double> decades(-20, 20), unit(0, 1);
  while (v.size() < count) {
    uint64_t bits = random();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    if (std::isfinite(d)) v.push_back(d);
    double amount = std::round(unit(random) * 1e7) / std::pow(10.0, static_cast<int>(random() % 9));
    v.push_back(random() % 2 ? amount : -amount);
    v.push_back(std::pow(10.0, decades(random)) * (random() % 2 ? 1 : -1));
  }
  return v;
}

class NumberText : public testing::TestWithParam<LocaleId> {
 protected:
  void SetUp() override { ApplyLocale(GetParam()); }
  void TearDown() override { ApplyLocale(LocaleFrench); }
};

TEST_P(NumberText, BoundariesMatchPrintfAtEveryPrecision) {
  std::vector<double> values = Boundaries();
  values.insert(values.end(), {INFINITY, -INFINITY, NAN});
  for (double v : values)
    for (int digits = 0; digits <= 18; digits++)
      ASSERT_EQ(TextToUtf8(Converted(v, digits).c_str()),
                TextToUtf8(ReferenceText(v, digits).c_str()))
          << std::hexfloat << v << " with " << digits << " digits";
}

TEST_P(NumberText, RandomDoublesMatchPrintf) {
  std::vector<double> values = RandomValues(300000);
  for (size_t i = 0; i < values.size(); i++) {
    double v = values[i];
    ASSERT_EQ(Converted(v, 15), ReferenceText(v, 15)) << std::hexfloat << v;
    // Every precision for a share of them: General's shrinking uses all of those below 15.
    if (i % 16 != 0) continue;
    for (int digits = 1; digits <= 17; digits++)
      ASSERT_EQ(Converted(v, digits), ReferenceText(v, digits))
          << std::hexfloat << v << " with " << digits << " digits";
  }
}

// General in cells from too narrow for anything to wider than any number's text, with and
// without a measure; "General;-General" takes the engine's section road to the same text.
TEST_P(NumberText, GeneralMatchesAtEveryWidth) {
  FixedWidthMeasure measure = MakeFixedWidthMeasure(7);
  std::vector<double> values = Boundaries();
  std::vector<double> random = RandomValues(6000);
  values.insert(values.end(), random.begin(), random.end());
  for (double v : values) {
    if (!std::isfinite(v)) continue;  // "#NUM!", below
    if (v == 0) v = 0;                // a negative zero is not below 0, and prints as "0"
    std::u16string plain = FormatNumber(v, u"General", 0, nullptr, 0, nullptr);
    ASSERT_EQ(plain, ReferenceGeneral(v, 1000)) << std::hexfloat << v;
    ASSERT_EQ(plain, std::u16string(FormatNumber(v, u"General;-General", 0, nullptr, 0, nullptr)));
    for (int32_t room = 0; room <= 24; room++) {
      std::u16string shrunk = FormatNumber(v, u"General", 0, &measure.base, room * 7, nullptr);
      ASSERT_EQ(shrunk, ReferenceGeneral(v, room)) << std::hexfloat << v << " in " << room;
    }
  }
}

TEST_P(NumberText, GeneralLeavesTheColourAlone) {
  uint8_t color = 99;
  FormatNumber(-12.5, u"General", 0, nullptr, 0, &color);
  EXPECT_EQ(color, 99);
  EXPECT_EQ(TextToUtf8(FormatNumber(INFINITY, u"General", 0, nullptr, 0, &color)), "#NUM!");
}

INSTANTIATE_TEST_SUITE_P(Locales, NumberText, testing::Values(LocaleFrench, LocaleEnglishUS));

}  // namespace
