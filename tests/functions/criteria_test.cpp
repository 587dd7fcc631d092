// The wildcard compare and the criterion test on single values, kind by kind of criterion and of
// value; the range functions that apply them are tested with the math functions.
#include <gtest/gtest.h>

#include "base/text.h"
#include "format/locale.h"
#include "functions/criteria.h"

namespace {

TEST(Criteria, WildcardCompare) {
  struct {
    const char16_t* pattern;
    const char16_t* text;
    bool matches;
  } cases[] = {
      {u"a*", u"abc", true},        {u"a*", u"bac", false},
      {u"*c", u"abc", true},        {u"a?c", u"abc", true},
      {u"a?c", u"ac", false},       {u"?", u"", false},
      {u"~*", u"*", true},          {u"~*", u"a", false},
      {u"a~?", u"a?", true},        {u"a~?", u"ab", false},
      {u"~~", u"~", true},          {u"~a", u"~a", true},
      {u"a~", u"a~", true},         {u"", u"", true},
      {u"", u"a", false},           {u"*", u"", true},
      {u"**", u"x", true},          {u"ABC", u"abc", true},
      {u"*a*b", u"xxaxxb", true},   {u"*a*b", u"xxbxxa", false},
      {u"a*b*c", u"aXbYbZc", true}, {u"a*b*c", u"aXbYbZ", false},
      {u"ÉTÉ", u"été", true},
  };
  for (const auto& c : cases)
    EXPECT_EQ(MatchWildcard(c.pattern, c.text, false), c.matches)
        << TextToUtf8(c.pattern) << " / " << TextToUtf8(c.text);
  EXPECT_FALSE(MatchWildcard(u"ABC", u"abc", true));
  EXPECT_TRUE(MatchWildcard(u"A*", u"Abc", true));
  EXPECT_TRUE(MatchWildcard(nullptr, nullptr, false));
}

Value Text(const char16_t* s) {
  return TextValue(TextDuplicate(s));
}

TEST(Criteria, EachKindOfCriterionAgainstEachKindOfValue) {
  ApplyLocale(LocaleFrench);
  const Value blank{}, zero = NumberValue(0), five = NumberValue(5), yes = BooleanValue(true),
                       no = BooleanValue(false), na = ErrorValue(ErrNA);
  struct {
    const char* name;
    Value criterion;
    Value value;
    bool matches;
  } cases[] = {
      {"a blank criterion meets 0", blank, zero, true},
      {"but not a blank", blank, blank, false},
      {"nor the text 0", blank, Text(u"0"), false},
      {"a number meets a text that reads as it", five, Text(u"5"), true},
      {"even as a percentage", NumberValue(0.05), Text(u"5%"), true},
      {"a number meets no boolean", NumberValue(1), yes, false},
      {"a date criterion meets its serial", Text(u">=01/01/2000"), NumberValue(36526), true},
      {"and not the day before", Text(u">=01/01/2000"), NumberValue(36525), false},
      {"a number meets a date text", NumberValue(36526), Text(u"01/01/2000"), true},
      {"= alone meets a blank", Text(u"="), blank, true},
      {"= alone meets an empty text", Text(u"="), Text(u""), true},
      {"= alone does not meet 0", Text(u"="), zero, false},
      {"=5 meets a text of the same number", Text(u"=5"), Text(u"5,0"), true},
      {"=a* takes wildcards", Text(u"=a*"), Text(u"Abc"), true},
      {"=vrai meets VRAI", Text(u"=vrai"), yes, true},
      {"=#N/A meets the error", Text(u"=#n/a"), na, true},
      {">=FAUX meets every boolean", Text(u">=FAUX"), no, true},
      {">FAUX meets VRAI", Text(u">FAUX"), yes, true},
      {">FAUX does not meet FAUX", Text(u">FAUX"), no, false},
      {"<VRAI meets FAUX", Text(u"<VRAI"), no, true},
      {"<=VRAI meets VRAI", Text(u"<=VRAI"), yes, true},
      {"<>5 meets 4", Text(u"<>5"), NumberValue(4), true},
      {"<>5 does not meet 5", Text(u"<>5"), five, false},
      {"<>5 meets no text", Text(u"<>5"), Text(u"a"), false},
      {"<>a does not meet A", Text(u"<>a"), Text(u"A"), false},
      {"<>a meets a blank", Text(u"<>a"), blank, true},
      {"<>a meets an error", Text(u"<>a"), na, true},
      {"<>a meets no number", Text(u"<>a"), five, false},
      {"<1 meets no blank", Text(u"<1"), blank, false},
      {">b meets c", Text(u">b"), Text(u"C"), true},
      {">5 meets no text, even a number's", Text(u">5"), Text(u"6"), false},
      {"<=5 meets 5", Text(u"<=5"), five, true},
      {"plain text meets a number it spells", Text(u"5"), five, true},
      {"plain text with wildcards", Text(u"?b*"), Text(u"abc"), true},
      {"plain text meets a boolean by name", Text(u"faux"), no, true},
      {"plain text meets an error by name", Text(u"#N/A"), na, true},
      {"an empty text meets a blank", Text(u""), blank, true},
      {"a boolean meets the same boolean", yes, yes, true},
      {"a boolean meets no number", yes, NumberValue(1), false},
      {"an error meets the same error", na, na, true},
      {"an error meets no other error", na, ErrorValue(ErrDiv0), false},
  };
  for (auto& c : cases) {
    EXPECT_EQ(CriteriaMatch(&c.criterion, &c.value, 0), c.matches) << c.name;
    FreeValue(&c.criterion);
    FreeValue(&c.value);
  }
}

TEST(Criteria, DatesFollowTheWorkbookSystem) {
  ApplyLocale(LocaleFrench);
  Value criterion = Text(u"=01/01/2000");
  Value serial1904 = NumberValue(36526 - 1462);
  EXPECT_TRUE(CriteriaMatch(&criterion, &serial1904, 1));
  EXPECT_FALSE(CriteriaMatch(&criterion, &serial1904, 0));
  FreeValue(&criterion);
}

}  // namespace
