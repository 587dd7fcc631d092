// The locale's form of the built-in number formats. The file format numbers its built-in formats
// with codes written for one country; a workbook shows them in the user's regional settings: the
// short date and time of the locale, and its currency symbol placed as its negative-currency
// mode says. Codes a file brings are shown as written.
#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "format/number_format.h"
#include "model/styles.h"
#include "model/workbook.h"

namespace {

constexpr uint32_t LocalCodeCapacity = 320;

struct CodeBuilder {
  char16_t text[LocalCodeCapacity];
  uint32_t length;
};

void Append(CodeBuilder* b, const char16_t* text) {
  for (; *text && b->length + 1 < LocalCodeCapacity; text++) b->text[b->length++] = *text;
  b->text[b->length] = 0;
}

void AppendChar(CodeBuilder* b, char16_t c) {
  const char16_t text[2] = {c, 0};
  Append(b, text);
}

// The time code of the locale, with seconds when asked. A separator other than ":" is escaped so
// that the engine prints it as it is.
void AppendTime(CodeBuilder* b, bool seconds) {
  Append(b, TimeCode);
  if (!seconds) return;
  if (TimeSeparator[0] != u':') AppendChar(b, u'\\');
  AppendChar(b, TimeSeparator[0]);
  Append(b, u"ss");
}

enum SymbolUse { SymbolQuoted, SymbolSpace };

// Copies a currency pattern, writing the locale's symbol for each "$" (quoted, or for the
// accounting forms without one, blanks as wide as the symbol or nothing), `decimals` places behind
// each "#,##0", and "[Red]" in front of the negative section when asked.
void AppendCurrency(CodeBuilder* b, const char16_t* pattern, SymbolUse use, int32_t decimals,
                    bool red) {
  uint32_t section = 0;
  bool quoted = false, filled = false;
  for (const char16_t* p = pattern; *p; p++) {
    if (*p == u'"') quoted = !quoted;
    if (quoted) {
      AppendChar(b, *p);
      continue;
    }
    if (*p == u';') {
      AppendChar(b, *p);
      if (++section == 1 && red) Append(b, u"[Red]");
      filled = false;
      continue;
    }
    if (*p == u'*') filled = true;
    if (*p == u'$') {
      // Without a symbol, room is kept for it behind the amount, where it would line up with the
      // amounts that show it; in front, the fill takes up the slack anyway.
      for (const char16_t* c = CurrencySymbol; *c && use == SymbolSpace && filled; c++) {
        AppendChar(b, u'_');
        AppendChar(b, *c);
      }
      if (use == SymbolQuoted) {
        AppendChar(b, u'"');
        Append(b, CurrencySymbol);
        AppendChar(b, u'"');
      }
      continue;
    }
    AppendChar(b, *p);
    if (decimals > 0 && *p == u'0' && p[1] != u'0' && p > pattern && p[-1] == u'#') {
      AppendChar(b, u'.');
      for (int32_t k = 0; k < decimals; k++) AppendChar(b, u'0');
    }
    // The dash shown for zero keeps room for the decimals: "-"??.
    if (decimals > 0 && *p == u'"' && p - pattern >= 2 && p[-1] == u'-' && p[-2] == u'"')
      Append(b, u"??");
  }
}

// Builds the locale's code for a built-in file id; false when the code serves as written.
bool LocalCode(uint16_t id, CodeBuilder* b) {
  switch (id) {
    case 5:
    case 6:
    case 7:
    case 8:
      AppendCurrency(b, LocaleCurrencyFormat(), SymbolQuoted, id >= 7 ? 2 : 0, id == 6 || id == 8);
      return true;
    case 14:
      Append(b, ShortDateCode);
      return true;
    case 20:
    case 21:
      AppendTime(b, id == 21);
      return true;
    case 22:
      Append(b, ShortDateCode);
      AppendChar(b, u' ');
      AppendTime(b, false);
      return true;
    case 41:
    case 42:
    case 43:
    case 44:
      AppendCurrency(b, LocaleAccountingFormat(), id == 42 || id == 44 ? SymbolQuoted : SymbolSpace,
                     id >= 43 ? 2 : 0, false);
      return true;
    default:
      return false;
  }
}

}  // namespace

const char16_t* CurrencyFormatCode(int32_t decimals) {
  static CodeBuilder builder;
  builder = CodeBuilder{};
  AppendCurrency(&builder, LocaleCurrencyFormat(), SymbolQuoted, decimals, false);
  return builder.text;
}

int LocalizeFormatCode(uint32_t book, uint32_t index) {
  Workbook* wb = GetWorkbook(book);
  if (index >= wb->numberFormatCount) return 1;
  NumberFormat* format = &wb->numberFormats[index];
  Release(format->compiled);
  format->compiled = nullptr;
  CodeBuilder builder{};
  if (!(format->flags & NumberFormatBuiltIn) || !LocalCode(format->id, &builder)) return 1;
  format->compiled = TextDuplicate(builder.text);
  return format->compiled != nullptr;
}

const char16_t* FormatCodeAt(uint32_t book, uint32_t index) {
  const Workbook* wb = GetWorkbook(book);
  if (index >= wb->numberFormatCount) return u"General";
  const NumberFormat* format = &wb->numberFormats[index];
  return format->compiled ? format->compiled : format->code;
}
