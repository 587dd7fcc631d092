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

// Upper and lower case of one letter in each script and layout the folding covers.
TEST(TextCase, PairsFoldAndRoundTrip) {
  struct {
    char16_t upper, lower;
  } pairs[] = {
      {u'A', u'a'}, {u'Z', u'z'}, {u'À', u'à'}, {u'É', u'é'}, {u'Þ', u'þ'}, {u'Ÿ', u'ÿ'},
      {u'Ā', u'ā'}, {u'Į', u'į'}, {u'Ĳ', u'ĳ'}, {u'Ĺ', u'ĺ'}, {u'Ł', u'ł'}, {u'Ň', u'ň'},
      {u'Ŋ', u'ŋ'}, {u'Ŷ', u'ŷ'}, {u'Ź', u'ź'}, {u'Ž', u'ž'}, {u'Α', u'α'}, {u'Σ', u'σ'},
      {u'Ω', u'ω'}, {u'Ϋ', u'ϋ'}, {u'Ά', u'ά'}, {u'Έ', u'έ'}, {u'Ί', u'ί'}, {u'Ό', u'ό'},
      {u'Ύ', u'ύ'}, {u'Ώ', u'ώ'}, {u'Ϙ', u'ϙ'}, {u'Ѐ', u'ѐ'}, {u'Ё', u'ё'}, {u'Џ', u'џ'},
      {u'А', u'а'}, {u'Ж', u'ж'}, {u'Я', u'я'}, {u'Ѣ', u'ѣ'}, {u'Ґ', u'ґ'}, {u'Ӂ', u'ӂ'},
      {u'Ӎ', u'ӎ'}, {u'Ӏ', u'ӏ'}, {u'Ә', u'ә'},
  };
  for (const auto& p : pairs) {
    EXPECT_EQ(Hex(FoldCase(p.upper)), Hex(p.lower)) << Hex(p.upper);
    EXPECT_EQ(Hex(FoldCase(p.lower)), Hex(p.lower)) << Hex(p.lower);
    EXPECT_EQ(Hex(UpperCase(p.lower)), Hex(p.upper)) << Hex(p.lower);
    EXPECT_EQ(Hex(UpperCase(p.upper)), Hex(p.upper)) << Hex(p.upper);
  }
}

// Characters without a partner, and neighbours of the pair ranges, stay as they are.
TEST(TextCase, CharactersWithoutPartnerStay) {
  const char16_t same[] = {u'0', u'@', u'[', u'`', u'{', u'×', u'÷', u'ß',
                           u'ĸ', u'ŉ', u'ƀ', u'ΐ', u'ΰ', u'҂', u'€', u'中'};
  for (char16_t c : same) {
    EXPECT_EQ(Hex(FoldCase(c)), Hex(c));
    EXPECT_EQ(Hex(UpperCase(c)), Hex(c));
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
      {u"Feuille1", u"FEUILLE1", 0},
      {u"Été", u"éTÉ", 0},
      {u"ÿ", u"Ÿ", 0},
      {u"Łódź", u"ŁÓDŹ", 0},
      {u"Žluťoučký", u"žLUŤOUČKÝ", 0},
      {u"ΟΔΟΣ", u"οδος", 0},
      {u"ΣΣ", u"σς", 0},
      {u"Жёлтый", u"ЖЁЛТЫЙ", 0},
      {u"µm", u"Μm", 0},
      {u"abc", u"ABD", -1},
      {u"B", u"a", 1},
      {u"ab", u"AB ", -1},
      {u"", nullptr, 0},
      {u"x", nullptr, 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CompareTextNoCase(c.a, c.b), c.order) << TextToUtf8(c.a) << " " << TextToUtf8(c.b);
    EXPECT_EQ(CompareTextNoCase(c.b, c.a), -c.order) << TextToUtf8(c.a) << " " << TextToUtf8(c.b);
  }
  EXPECT_EQ(CompareTextNoCaseN(u"Feuille1", u"FEUILLE2", 7), 0);
  EXPECT_LT(CompareTextNoCaseN(u"Feuille1", u"FEUILLE2", 8), 0);
  EXPECT_NE(CompareText(u"Été", u"été"), 0);
}

TEST(TextUtf8, RoundTripIncludingASurrogatePair) {
  const char16_t text[] = u"Été € Ж 𝄞!";
  const std::string utf8 = "\xC3\x89t\xC3\xA9 \xE2\x82\xAC \xD0\x96 \xF0\x9D\x84\x9E!";
  EXPECT_EQ(text[8], 0xD834);
  EXPECT_EQ(text[9], 0xDD1E);
  EXPECT_EQ(TextToUtf8(text), utf8);
  EXPECT_EQ(Utf8ToU16(utf8), std::u16string(text));
  // A surrogate without its partner cannot be written as it is.
  const char16_t lone[] = {u'a', 0xD834, u'b', 0};
  EXPECT_EQ(TextToUtf8(lone),
            "a\xEF\xBF\xBD"
            "b");
}

// Whatever the bytes, nothing but U+FFFD comes out for them, and decoding picks up again at the
// next well-formed character.
TEST(TextUtf8, MalformedBytesBecomeReplacementCharacters) {
  const char* cases[] = {
      "\x80",              // continuation byte alone
      "\xC3",              // truncated at the end
      "\xE2\x82",          // truncated three-byte sequence
      "\xC0\xAF",          // overlong slash
      "\xE0\x80\xAF",      // overlong three-byte form
      "\xED\xA0\x80",      // an encoded surrogate
      "\xF4\x90\x80\x80",  // above U+10FFFF
      "\xF5\x80",          // lead byte that never starts a sequence
      "\xFF",
  };
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
  EXPECT_EQ(MulDivRound(300, 96, 1440), 20);
  EXPECT_EQ(MulDivRound(7, 3072, 256), 84);
  EXPECT_EQ(MulDivRound(1, 1, 2), 1);
  EXPECT_EQ(MulDivRound(9, 9, 0), 0);
}

}  // namespace
