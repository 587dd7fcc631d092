// The regional settings and the format codes derived from them.
#include <gtest/gtest.h>

#include <string>

#include "format/locale.h"

static std::u16string S(const char16_t* text) {
  return std::u16string(text);
}

TEST(Locale, FrenchStartValuesEqualWhatApplyLocaleBuilds) {
  // The globals start French without code running before main; applying the French table must
  // leave every derived code exactly as it started.
  std::u16string before[] = {S(AmPmTokens[0]), S(AmPmTokens[1]), S(AmPmTokens[2]),
                             S(AmPmTokens[3]), S(ShortDateCode), S(TimeCode)};
  int32_t mode = NegativeCurrencyMode;
  ApplyLocale(LocaleFrench);
  std::u16string after[] = {S(AmPmTokens[0]), S(AmPmTokens[1]), S(AmPmTokens[2]),
                            S(AmPmTokens[3]), S(ShortDateCode), S(TimeCode)};
  for (int i = 0; i < 6; i++) EXPECT_EQ(before[i], after[i]) << i;
  EXPECT_EQ(mode, NegativeCurrencyMode);
  EXPECT_EQ(S(ListSeparator), u";");
  EXPECT_EQ(S(DecimalSeparator), u",");
  EXPECT_EQ(S(ShortDateCode), u"dd\\/mm\\/yyyy");
  EXPECT_EQ(S(TimeCode), u"hh:mm");
  // No French morning text: the English ones stand in.
  EXPECT_EQ(S(AmPmTokens[0]), u"AM/PM");
  EXPECT_EQ(S(LocaleCurrencyFormat()), u"#,##0 $;-#,##0 $");
}

TEST(Locale, EnglishDerivedCodes) {
  ApplyLocale(LocaleEnglishUS);
  EXPECT_EQ(S(ListSeparator), u",");
  EXPECT_EQ(S(ShortDateCode), u"m\\/d\\/yyyy");
  EXPECT_EQ(S(TimeCode), u"h:mm");
  EXPECT_EQ(S(AmPmTokens[1]), u"am/pm");
  EXPECT_EQ(S(AmPmTokens[2]), u"A/P");
  EXPECT_EQ(S(AmPmTokens[3]), u"a/p");
  EXPECT_EQ(S(LocaleCurrencyFormat()), u"$#,##0_);($#,##0)");
  EXPECT_EQ(S(LocaleAccountingFormat()), u"_($* #,##0_);_($* (#,##0);_($* \"-\"_);_(@_)");
  ApplyLocale(LocaleFrench);
}

TEST(Locale, EveryCurrencyCodeHasTheSymbolAndTwoOrFourSections) {
  for (uint32_t i = 0; i < CurrencyFormatCount; i++) {
    std::u16string code = CurrencyFormatCodes[i];
    size_t sections = 1;
    for (char16_t c : code) sections += c == u';';
    EXPECT_EQ(sections, i < 16 ? 2u : 4u) << i;
    EXPECT_NE(code.find(u'$'), std::u16string::npos) << i;
  }
}
