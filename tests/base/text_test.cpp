// Tests of the 16-bit text helpers: the one case-folding rule of the program, comparison ignoring
// case, UTF-8 conversion at the borders, and the rounding of MulDiv.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "base/muldiv.h"
#include "base/text.h"

namespace {

std::string Hex(char16_t c) {
  char buffer[8];
  std::snprintf(buffer, sizeof buffer, "U+%04X", static_cast<unsigned>(c));
  return buffer;
}

// Upper and lower case of one letter in each script and layout the folding covers, then
// characters without a partner and neighbours of the pair ranges, which stay as they are.
TEST(TextCase, PairsFoldAndRoundTrip) {
  const char16_t upper[] = u"AZÀÉÞŸĀĮĲĹŁŇŊŶŹŽΑΣΩΫΆΈΊΌΎΏϘЀЁЏАЖЯѢҐӁӍӀӘ0@[`{×÷ßĸŉƀΐΰ҂€中";
  const char16_t lower[] = u"azàéþÿāįĳĺłňŋŷźžασωϋάέίόύώϙѐёџажяѣґӂӎӏә0@[`{×÷ßĸŉƀΐΰ҂€中";
  static_assert(sizeof upper == sizeof lower);
  for (size_t i = 0; upper[i]; i++) {
    SCOPED_TRACE(Hex(upper[i]));
    EXPECT_EQ(Hex(FoldCase(upper[i])), Hex(lower[i]));
    EXPECT_EQ(Hex(FoldCase(lower[i])), Hex(lower[i]));
    EXPECT_EQ(Hex(UpperCase(lower[i])), Hex(upper[i]));
    EXPECT_EQ(Hex(UpperCase(upper[i])), Hex(upper[i]));
  }
  // Variants that fold onto another letter.
  EXPECT_EQ(Hex(FoldCase(u'ς')), Hex(u'σ'));
  EXPECT_EQ(Hex(UpperCase(u'ς')), Hex(u'Σ'));
  EXPECT_EQ(Hex(FoldCase(u'µ')), Hex(u'μ'));
  EXPECT_EQ(Hex(FoldCase(u'ſ')), Hex(u's'));
}

TEST(TextCase, CompareIgnoringCase) {
  struct {
    const char16_t *a, *b;
    int order;
  } cases[] = {
      {u"Sheet1", u"SHEET1", 0}, {u"Été", u"éTÉ", 0}, {u"Łódź", u"ŁÓDŹ", 0}, {u"Žluť", u"žLUŤ", 0},
      {u"ΟΔΟΣ", u"οδος", 0},     {u"ΣΣ", u"σς", 0},   {u"Жёлт", u"ЖЁЛТ", 0}, {u"µm", u"Μm", 0},
      {u"abc", u"ABD", -1},      {u"B", u"a", 1},     {u"ab", u"AB ", -1},   {u"", nullptr, 0},
      {u"x", nullptr, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(TextToUtf8(c.a) + " " + TextToUtf8(c.b));
    EXPECT_EQ(CompareTextNoCase(c.a, c.b), c.order);
    EXPECT_EQ(CompareTextNoCase(c.b, c.a), -c.order);
  }
  EXPECT_EQ(CompareTextNoCaseN(u"Feuille1", u"FEUILLE2", 7), 0);
  EXPECT_LT(CompareTextNoCaseN(u"Feuille1", u"FEUILLE2", 8), 0);
  // Exact comparison keeps case apart and orders by code unit; null reads as empty.
  EXPECT_LT(CompareText(u"Été", u"été"), 0);
  EXPECT_EQ(CompareText(u"Été", u"Été"), 0);
  EXPECT_EQ(CompareText(nullptr, u""), 0);
}

TEST(TextUtf8, RoundTripIncludingASurrogatePair) {
  const char16_t text[] = u"Été € Ж 𝄞!";
  const std::string utf8 = "\xC3\x89t\xC3\xA9 \xE2\x82\xAC \xD0\x96 \xF0\x9D\x84\x9E!";
  EXPECT_EQ(TextToUtf8(text), utf8);
  EXPECT_EQ(Utf8ToU16(utf8), std::u16string(text));
  // A surrogate without its partner cannot be written as it is.
  const char16_t lone[] = {u'a', 0xD834, u'b', 0};
  EXPECT_EQ(TextToUtf8(lone), std::string("a\xEF\xBF\xBD") + "b");
}

// Whatever the bytes, nothing but U+FFFD comes out for them, and decoding picks up again at the
// next well-formed character. In turn: a lone continuation byte, sequences cut short, overlong
// forms, an encoded surrogate, a code point above U+10FFFF and bytes that never lead.
TEST(TextUtf8, MalformedBytesBecomeReplacementCharacters) {
  const char* cases[] = {"\x80",         "\xC3",         "\xE2\x82",         "\xC0\xAF",
                         "\xE0\x80\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF5\x80",
                         "\xFF"};
  for (const char* bytes : cases) {
    std::u16string decoded = Utf8ToU16(std::string(bytes) + "A");
    ASSERT_GE(decoded.size(), 2u) << bytes;
    EXPECT_EQ(decoded.back(), u'A');
    for (size_t i = 0; i + 1 < decoded.size(); i++) EXPECT_EQ(Hex(decoded[i]), "U+FFFD");
  }
  EXPECT_EQ(Utf8ToU16("\xC3(\xC3\xA9"), u"\uFFFD(é");
}

TEST(TextMulDiv, RoundsToNearestAndGivesZeroForNoDivisor) {
  struct {
    int32_t a, b, c, result;
  } cases[] = {
      {7, 2048, 256, 56}, {1, 1, 2, 1},   {3, 1, 2, 2},
      {-1, 1, 2, -1},     {5, 1, -2, -3}, {-5, -1, 2, 3},
      {1, 1, 3, 0},       {2, 1, 3, 1},   {100000, 100000, 100000, 100000},
      {12, 34, 0, 0},
  };
  for (const auto& c : cases)
    EXPECT_EQ(MulDiv(c.a, c.b, c.c), c.result) << c.a << "*" << c.b << "/" << c.c;
  // Twips and width units become pixels with the half added before the division.
  EXPECT_EQ(MulDivRound(255, 96, 1440), 17);
  EXPECT_EQ(MulDivRound(1, 1, 2), 1);
  EXPECT_EQ(MulDivRound(9, 9, 0), 0);
}

}  // namespace
