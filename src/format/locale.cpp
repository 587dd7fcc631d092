// The regional-settings globals with their French (France) starting values. Constant-initialised:
// no code runs before main to fill them.
#include "format/locale.h"

char16_t DateOrder[2] = u"1";
char16_t DateSeparator[2] = u"/";
char16_t TimeSeparator[2] = u":";
char16_t DecimalSeparator[2] = u",";
char16_t ThousandsSeparator[2] = u" ";
char16_t CurrencySymbol[4] = u"\u20AC";
char16_t CurrencyDigits[2] = u"2";
char16_t ListSeparator[2] = u";";
char16_t DayNames[7][16] = {u"lundi",    u"mardi",  u"mercredi", u"jeudi",
                            u"vendredi", u"samedi", u"dimanche"};
char16_t ShortDayNames[7][8] = {u"lun.", u"mar.", u"mer.", u"jeu.", u"ven.", u"sam.", u"dim."};
char16_t MonthNames[12][16] = {u"janvier",   u"f\u00E9vrier", u"mars",     u"avril",
                               u"mai",       u"juin",         u"juillet",  u"ao\u00FBt",
                               u"septembre", u"octobre",      u"novembre", u"d\u00E9cembre"};
char16_t ShortMonthNames[12][8] = {u"janv.", u"f\u00E9vr.", u"mars",  u"avr.",
                                   u"mai",   u"juin",       u"juil.", u"ao\u00FBt",
                                   u"sept.", u"oct.",       u"nov.",  u"d\u00E9c."};
char16_t MorningText[4] = u"AM";
char16_t AfternoonText[4] = u"PM";
char16_t ShortDatePattern[16] = u"dd/MM/yyyy";
char16_t TimeLeadingZero[2] = u"1";
char16_t AmPmTokens[AmPmTokenCount][12] = {u"AM/PM", u"am/pm", u"A/P", u"a/p"};
char16_t ShortDateCode[36] = u"dd\\/mm\\/yyyy";
char16_t TimeCode[8] = u"hh:mm";
int32_t NegativeCurrencyMode = 8;
char16_t FalseText[8] = u"FAUX";
char16_t TrueText[8] = u"VRAI";

#include <cstdlib>
#include <cstring>

#include "base/text.h"

namespace {

struct LocaleTable {
  const char16_t* dateOrder;
  const char16_t* dateSeparator;
  const char16_t* timeSeparator;
  const char16_t* decimalSeparator;
  const char16_t* thousandsSeparator;
  const char16_t* currencySymbol;
  const char16_t* currencyDigits;
  const char16_t* listSeparator;
  const char16_t* dayNames[7];
  const char16_t* shortDayNames[7];
  const char16_t* monthNames[12];
  const char16_t* shortMonthNames[12];
  const char16_t* morningText;
  const char16_t* afternoonText;
  const char16_t* shortDatePattern;
  const char16_t* timeLeadingZero;
  int32_t negativeCurrencyMode;
};

}  // namespace

static const LocaleTable localeTables[] = {
    {u"1",
     u"/",
     u":",
     u",",
     u" ",
     u"\u20AC",
     u"2",
     u";",
     {u"lundi", u"mardi", u"mercredi", u"jeudi", u"vendredi", u"samedi", u"dimanche"},
     {u"lun.", u"mar.", u"mer.", u"jeu.", u"ven.", u"sam.", u"dim."},
     {u"janvier", u"f\u00E9vrier", u"mars", u"avril", u"mai", u"juin", u"juillet", u"ao\u00FBt",
      u"septembre", u"octobre", u"novembre", u"d\u00E9cembre"},
     {u"janv.", u"f\u00E9vr.", u"mars", u"avr.", u"mai", u"juin", u"juil.", u"ao\u00FBt", u"sept.",
      u"oct.", u"nov.", u"d\u00E9c."},
     u"",
     u"",
     u"dd/MM/yyyy",
     u"1",
     8},
    {u"0",
     u"/",
     u":",
     u".",
     u",",
     u"$",
     u"2",
     u",",
     {u"Monday", u"Tuesday", u"Wednesday", u"Thursday", u"Friday", u"Saturday", u"Sunday"},
     {u"Mon", u"Tue", u"Wed", u"Thu", u"Fri", u"Sat", u"Sun"},
     {u"January", u"February", u"March", u"April", u"May", u"June", u"July", u"August",
      u"September", u"October", u"November", u"December"},
     {u"Jan", u"Feb", u"Mar", u"Apr", u"May", u"Jun", u"Jul", u"Aug", u"Sep", u"Oct", u"Nov",
      u"Dec"},
     u"AM",
     u"PM",
     u"M/d/yyyy",
     u"0",
     0},
};

template <size_t N>
static void Put(char16_t (&target)[N], const char16_t* source) {
  TextCopy(target, N, source);
}

const char16_t* const CurrencyFormatCodes[CurrencyFormatCount] = {
    u"$#,##0_);($#,##0)",
    u"$#,##0;-$#,##0",
    u"$#,##0;$-#,##0",
    u"$#,##0_-;$#,##0-",
    u"#,##0$_);(#,##0$)",
    u"#,##0$;-#,##0$",
    u"#,##0_-$;#,##0-$",
    u"#,##0$_-;#,##0$-",
    u"#,##0 $;-#,##0 $",
    u"$ #,##0;-$ #,##0",
    u"#,##0 $_-;#,##0 $-",
    u"$ #,##0_-;$ #,##0-",
    u"$ #,##0;$ -#,##0",
    u"#,##0_- $;#,##0- $",
    u"$ #,##0_);($ #,##0)",
    u"#,##0 $_);(#,##0 $)",
    // The accounting forms: the symbol placed as in the plain form of the same mode, the amount
    // padded by a fill, a dash for zero and room kept for the sign on text.
    u"_($* #,##0_);_($* (#,##0);_($* \"-\"_);_(@_)",
    u"_-$* #,##0_-;-$* #,##0_-;_-$* \"-\"_-;_-@_-",
    u"_-$* #,##0_-;_-$* -#,##0_-;_-$* \"-\"_-;_-@_-",
    u"_-$* #,##0_-;_-$* #,##0-;_-$* \"-\"_-;_-@_-",
    u"_(* #,##0$_);_(* (#,##0$);_(* \"-\"$_);_(@_)",
    u"_-* #,##0$_-;-* #,##0$_-;_-* \"-\"$_-;_-@_-",
    u"_-* #,##0_-$;_-* #,##0-$;_-* \"-\"_-$;_-@_-",
    u"_-* #,##0$_-;_-* #,##0$-;_-* \"-\"$_-;_-@_-",
    u"_-* #,##0 $_-;-* #,##0 $_-;_-* \"-\" $_-;_-@_-",
    u"_-$ * #,##0_-;-$ * #,##0_-;_-$ * \"-\"_-;_-@_-",
    u"_-* #,##0 $_-;_-* #,##0 $-;_-* \"-\" $_-;_-@_-",
    u"_-$ * #,##0_-;_-$ * #,##0-;_-$ * \"-\"_-;_-@_-",
    u"_-$ * #,##0_-;_-$ * -#,##0_-;_-$ * \"-\"_-;_-@_-",
    u"_-* #,##0_- $;_-* #,##0- $;_-* \"-\"_- $;_-@_-",
    u"_($ * #,##0_);_($ * (#,##0);_($ * \"-\"_);_(@_)",
    u"_(* #,##0 $_);_(* (#,##0 $);_(* \"-\" $_);_(@_)",
};

const char16_t* LocaleCurrencyFormat() {
  uint32_t mode = static_cast<uint32_t>(NegativeCurrencyMode);
  return CurrencyFormatCodes[mode < 16 ? mode : 0];
}

const char16_t* LocaleAccountingFormat() {
  uint32_t mode = static_cast<uint32_t>(NegativeCurrencyMode);
  return CurrencyFormatCodes[16 + (mode < 16 ? mode : 0)];
}

static char16_t LowerAscii(char16_t c) {
  return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

// Writes morning "/" afternoon, or only their first letters, in one case.
static void BuildAmPmToken(char16_t* out, uint32_t capacity, bool firstLetters, bool upper) {
  uint32_t n = 0;
  auto put = [&](const char16_t* text) {
    for (uint32_t i = 0; text[i] && (!firstLetters || i < 1) && n + 1 < capacity; i++) {
      char16_t c = upper ? UpperCase(text[i]) : FoldCase(text[i]);
      out[n++] = c;
    }
  };
  put(MorningText);
  if (n + 1 < capacity) out[n++] = u'/';
  put(AfternoonText);
  out[n] = 0;
}

// The format codes that follow from the regional settings: the AM/PM tokens, the short date
// pattern turned into a code, and the time code.
static void BuildDerivedCodes() {
  for (uint32_t i = 0; i < AmPmTokenCount; i++)
    BuildAmPmToken(AmPmTokens[i], sizeof AmPmTokens[i] / sizeof(char16_t), i >= 2, i % 2 == 0);

  uint32_t n = 0;
  constexpr uint32_t dateCapacity = sizeof ShortDateCode / sizeof(char16_t);
  for (const char16_t* p = ShortDatePattern; *p && n + 2 < dateCapacity; p++) {
    char16_t lower = LowerAscii(*p);
    if (lower == u'g' || lower == u'm' || lower == u'd' || lower == u'y') {
      ShortDateCode[n++] = lower;
    } else {
      ShortDateCode[n++] = u'\\';
      ShortDateCode[n++] = *p;
    }
  }
  ShortDateCode[n] = 0;

  n = 0;
  TimeCode[n++] = u'h';
  if (TimeLeadingZero[0] == u'1') TimeCode[n++] = u'h';
  if (TimeSeparator[0] != u':' && TimeSeparator[0]) TimeCode[n++] = u'\\';
  TimeCode[n++] = TimeSeparator[0] ? TimeSeparator[0] : u':';
  TimeCode[n++] = u'm';
  TimeCode[n++] = u'm';
  TimeCode[n] = 0;
}

void ApplyLocale(LocaleId id) {
  const LocaleTable& t = localeTables[id == LocaleEnglishUS ? 1 : 0];
  Put(DateOrder, t.dateOrder);
  Put(DateSeparator, t.dateSeparator);
  Put(TimeSeparator, t.timeSeparator);
  Put(DecimalSeparator, t.decimalSeparator);
  Put(ThousandsSeparator, t.thousandsSeparator);
  Put(CurrencySymbol, t.currencySymbol);
  Put(CurrencyDigits, t.currencyDigits);
  Put(ListSeparator, t.listSeparator);
  for (int i = 0; i < 7; i++) Put(DayNames[i], t.dayNames[i]);
  for (int i = 0; i < 7; i++) Put(ShortDayNames[i], t.shortDayNames[i]);
  for (int i = 0; i < 12; i++) Put(MonthNames[i], t.monthNames[i]);
  for (int i = 0; i < 12; i++) Put(ShortMonthNames[i], t.shortMonthNames[i]);
  // A locale without morning and afternoon texts falls back to the English ones.
  Put(MorningText, t.morningText[0] ? t.morningText : u"AM");
  Put(AfternoonText, t.afternoonText[0] ? t.afternoonText : u"PM");
  Put(ShortDatePattern, t.shortDatePattern);
  Put(TimeLeadingZero, t.timeLeadingZero);
  NegativeCurrencyMode = t.negativeCurrencyMode;
  BuildDerivedCodes();
  // Function names, and so the boolean texts, stay French whatever the regional settings.
  Put(FalseText, u"FAUX");
  Put(TrueText, u"VRAI");
}

int LocaleFromTag(const char* tag, LocaleId* id) {
  if (!tag) return 0;
  if (!std::strncmp(tag, "fr", 2) && (tag[2] == 0 || tag[2] == '-' || tag[2] == '_')) {
    *id = LocaleFrench;
    return 1;
  }
  if (!std::strncmp(tag, "en", 2) && (tag[2] == 0 || tag[2] == '-' || tag[2] == '_')) {
    *id = LocaleEnglishUS;
    return 1;
  }
  return 0;
}

LocaleId LocaleFromEnvironment() {
  static const char* const variables[] = {"LC_ALL", "LC_NUMERIC", "LANG"};
  for (const char* name : variables) {
    const char* value = std::getenv(name);
    if (!value || !value[0]) continue;
    LocaleId id = LocaleFrench;
    LocaleFromTag(value, &id);
    return id;
  }
  return LocaleFrench;
}
