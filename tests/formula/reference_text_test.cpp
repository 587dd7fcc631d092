// Tests of reference text: cells, ranges, rows and columns in both styles with their relative
// flags, sheet/book/path qualifiers and the link entries they create, qualified identifiers, the
// writers, a write-then-read round trip, and reading of truncated and garbled text.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/reference_text.h"
#include "model/workbook.h"

namespace {

// Sheets 0 to 5: Feuille1, Feuil1, Feuil2, Feuil3, "Feuil 1", "O'Neil".
struct ReferenceTextTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override {
    CloseAllWorkbooks();
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(u"C:\\dossier\\Budget.xls", 0, &book));
    for (const char16_t* name : {u"Feuil1", u"Feuil2", u"Feuil3", u"Feuil 1", u"O'Neil"})
      ASSERT_TRUE(InsertSheet(book, GetWorkbook(book)->sheetCount, name, SheetWorksheet, 0, 0));
  }
  void TearDown() override { CloseAllWorkbooks(); }
};

int32_t Length(const std::u16string& s) {
  return static_cast<int32_t>(s.size());
}
std::string U8(const std::u16string& s) {
  return TextToUtf8(s.c_str());
}
// "firstRow-lastRow firstCol-lastCol fFlags".
std::string Show(const Range& r, uint8_t flags) {
  return std::to_string(r.firstRow) + "-" + std::to_string(r.lastRow) + " " +
         std::to_string(r.firstCol) + "-" + std::to_string(r.lastCol) + " f" +
         std::to_string(flags);
}

// The index behind the reference and what it reads, or -1 alone. R1C1 counts from row and
// column 10.
std::string ReadCell(const char16_t* text, int a1) {
  Range r{9, 9, 9, 9};
  uint8_t f = 99;
  int32_t behind = ParseCellReference(text, 0, Length(text), a1, 10, 10, &r, &f);
  std::string out = std::to_string(behind);
  if (behind >= 0) {
    out += ' ';  // piece by piece, which keeps GCC 12's -Wrestrict quiet
    out += Show(r, f);
  }
  return out;
}

// The ordinary forms are also read in the round-trip tests; these rows hold the bounds, the
// normalising, the fallbacks and the wraps.
TEST(ReferenceTextCells, ReadsCellsRangesRowsAndColumns) {
  const std::pair<const char16_t*, const char*> a1[] = {
      {u"$A$1", "4 0-0 0-0 f0"},
      {u"a1+1", "2 0-0 0-0 f15"},
      {u"A1:IV65536", "10 0-65535 0-255 f15"},
      {u"$B3:A$1", "7 0-2 0-1 f6"},  // the flags follow their coordinates
      {u"A:A", "3 0-65535 0-0 f5"},
      {u"1:1", "3 0-0 0-255 f10"},
      {u"$3:2", "4 1-2 0-255 f8"},
      {u"A1:B", "2 0-0 0-0 f15"},  // the ":" is left to the parser
      {u"A1:B2:C3", "5 0-1 0-1 f15"},
  };
  for (const auto& [text, read] : a1) EXPECT_EQ(ReadCell(text, 1), read) << U8(text);
  for (const char16_t* text : {u"IW1", u"A0", u"A65537", u"A1!", u"A:B1"})
    EXPECT_EQ(ReadCell(text, 1), "-1") << U8(text);

  const std::pair<const char16_t*, const char*> r1c1[] = {
      {u"r[1]c", "5 11-11 10-10 f15"},
      {u"R[-11]C[-11]", "12 65535-65535 255-255 f15"},  // offsets wrap
      {u"R65536C256", "10 65535-65535 255-255 f0"},
      {u"R[-65535]C[255]", "15 11-11 9-9 f15"},
      {u"R3C13:R1C[1]", "12 0-2 11-12 f4"},
      {u"R1C1:R2", "4 0-0 0-0 f0"},  // falls back to the first cell
      {u"R2", "2 1-1 0-255 f0"},
      {u"R1:R2C2", "2 0-0 0-255 f0"},
      {u"C300", "4 0-65535 43-43 f0"},  // wraps onto "C44"
  };
  for (const auto& [text, read] : r1c1) EXPECT_EQ(ReadCell(text, 0), read) << U8(text);
  for (const char16_t* text :
       {u"R0C1", u"R65537", u"R1C257", u"R[65536]C", u"RC[256]", u"R1C1x", u"A1"})
    EXPECT_EQ(ReadCell(text, 0), "-1") << U8(text);
}

// "path|book|first|last", with "|!" for a bare "!".
std::string Show(const SheetQualifier& q) {
  return U8(q.path) + "|" + U8(q.book) + "|" + U8(q.sheetFirst) + "|" + U8(q.sheetLast) +
         (q.bareBang ? "|!" : "");
}

TEST_F(ReferenceTextTest, ReadsSheetPrefixes) {
  const std::u16string sheet31(31, u'x'), ok = u"[b.xls]" + sheet31 + u"!A1";
  const struct {
    const char16_t* text;
    int32_t behind;
    std::string read;
  } cases[] = {
      {u"A1+Feuil1!B1", 0, "|||"},
      {u"Feuil 1!A1", 0, "|||"},  // the blank ends the scan
      {u"!A1", 1, "||||!"},
      {u"feuil1:Feuil3!A1", 14, "||feuil1|Feuil3"},
      {u"'Feuil 1'!A1", 10, "||Feuil 1|"},
      {u"'O''Neil'!A1", 10, "||O'Neil|"},
      {u"'Feuil 1':Feuil2!A1", 17, "||Feuil 1|Feuil2"},
      {u"'[b c.xls]Feuil 9:X'!A1", 21, "|b c.xls|Feuil 9|X"},
      {u"'C:\\dir\\[b.xls]Feuil1'!A1", 23, "C:\\dir|b.xls|Feuil1|"},
      {u"'C:\\dir\\b.xls'!A1", 15, "C:\\dir|b.xls||"},
      {ok.c_str(), 39, "|b.xls|" + U8(sheet31) + "|"},
  };
  for (const auto& c : cases) {
    SheetQualifier q;
    EXPECT_EQ(ParseSheetPrefix(c.text, 0, Length(c.text), book, &q), c.behind) << U8(c.text);
    EXPECT_EQ(Show(q), c.read) << U8(c.text);
  }
  std::vector<std::u16string> refused = {
      u"Inconnu!A1",  u"Feuil1:Inconnu!A1", u"'Inconnu'!A1",  u"1Feuil!A1",   u"[b.xls!A1",
      u"[]S!A1",      u"[b.xls]!A1",        u"[a:b.xls]S!A1", u"'Feuil 1!A1", u"''!A1",
      u"'Feuil 1'A1", u"'Fe/uil'!A1",
  };
  // Parts too long for the fixed fields are refused before they reach them.
  const std::u16string p261(261, u'p');
  refused.insert(refused.end(),
                 {u"[b.xls]x" + sheet31 + u"!A1", u"'" + p261 + u"\\[b.xls]S'!A1",
                  u"[" + p261 + u"]S!A1", u"'" + std::u16string(700, u'q') + u"'!A1"});
  for (const std::u16string& text : refused) {
    SheetQualifier q;
    EXPECT_EQ(ParseSheetPrefix(text.c_str(), 0, Length(text), book, &q), -1) << U8(text);
  }
}

TEST_F(ReferenceTextTest, QualifiedReferencesCreateTheirLinks) {
  const Workbook* wb = GetWorkbook(book);
  Range r{};
  uint8_t flags = 0;
  int32_t link = 99;
  auto read = [&](const char16_t* text, int32_t* externSheet) {
    return ParseReferenceText(text, 0, Length(text), 1, 0, 0, book, externSheet, &r, &flags);
  };
  // "book kind first last" of the link just read.
  auto linked = [&] {
    const SheetLink& s = wb->sheetLinks[link];
    return std::to_string(s.bookIndex) + " " + std::to_string(wb->externalBooks[s.bookIndex].kind) +
           " " + std::to_string(s.firstSheet) + " " + std::to_string(s.lastSheet);
  };

  EXPECT_EQ(read(u"[c.xls]S!A1", nullptr), 11);  // checking only: no entry is made
  EXPECT_EQ(wb->externalBookCount, 0u);
  EXPECT_EQ(read(u"B2", &link), 2);
  EXPECT_EQ(link, -1);

  ASSERT_EQ(read(u"'C:\\dir\\[b.xls]Feuil1'!A1:B2", &link), 28);
  ASSERT_EQ(wb->externalBookCount, 1u);
  EXPECT_EQ(std::u16string(wb->externalBooks[0].path), u"\1C:\3dir\3b.xls");
  EXPECT_EQ(linked(), "0 0 0 0");
  // The same book in other case; a second sheet name joins its list.
  ASSERT_EQ(read(u"'C:\\DIR\\[B.XLS]Feuil1:Zed'!A1", &link), 29);
  EXPECT_EQ(wb->externalBookCount, 1u);
  ASSERT_EQ(wb->externalBooks[0].sheetCount, 2u);
  EXPECT_EQ(U8(wb->externalBooks[0].sheetNames[0]), "Feuil1");
  EXPECT_EQ(linked(), "0 0 0 1");

  ASSERT_EQ(read(u"Feuil3:Feuil1!A1", &link), 16);  // kept in sheet order
  EXPECT_EQ(linked(), "1 1 1 3");
  ASSERT_EQ(read(u"!A1", &link), 3);
  EXPECT_EQ(linked(), "2 3 -2 -2");

  // "'C:\dir\b.xls'!" names a book but no sheet.
  for (const char16_t* bad : {u"Feuil1!", u"'C:\\dir\\b.xls'!A1", u"Feuil 1!A1", u""})
    EXPECT_EQ(read(bad, &link), -1) << U8(bad);
}

TEST_F(ReferenceTextTest, ScansQualifiedIdentifiers) {
  // "nameStart-behind qualified book|sheet", or -1 alone.
  auto scan = [&](const std::u16string& text) {
    NameToken t;
    int32_t behind = ScanNameToken(text.c_str(), 0, Length(text), book, &t);
    EXPECT_TRUE(behind < 0 || t.nameLength == behind - t.nameStart) << U8(text);
    return behind < 0 ? std::to_string(behind)
                      : std::to_string(t.nameStart) + "-" + std::to_string(behind) + " " +
                            std::to_string(t.qualified != 0) + " " + U8(t.qualifier.book) + "|" +
                            U8(t.qualifier.sheetFirst);
  };
  const std::u16string longest(MaxIdentifierLength, u'n');
  EXPECT_EQ(scan(longest), "0-255 0 |");
  EXPECT_EQ(scan(u"_x.1+2"), "0-4 0 |");
  EXPECT_EQ(scan(u"Total)"), "0-5 0 |");
  EXPECT_EQ(scan(u"Total\\2}"), "0-5 0 |");  // the French array column separator
  EXPECT_EQ(scan(u"Feuil1!Total"), "7-12 1 |Feuil1");
  EXPECT_EQ(scan(u"'Feuil 1'!Total "), "10-15 1 |Feuil 1");
  EXPECT_EQ(scan(u"Budget.xls!Total"), "11-16 1 Budget.xls|");
  EXPECT_EQ(scan(u"'C:\\d\\b.xls'!Total"), "13-18 1 b.xls|");
  EXPECT_EQ(scan(u"!Total"), "1-6 1 |");
  const std::u16string refused[] = {
      longest + u"n", u"R2D2",   u"Feuil1!A1", u"1abc",
      u"Total,5",     u"Total#", u"a:b!Total", u"Total!",
  };
  for (const std::u16string& text : refused) EXPECT_EQ(scan(text), "-1") << U8(text);
}

TEST(ReferenceTextClasses, CellLikeNamesAndQuoting) {
  struct Case {
    const char16_t* text;
    bool cell;
  } names[] = {{u"R", true},     {u"C", true},       {u"rc", true},     {u"R2D2", true},
               {u"RC256", true}, {u"IV12", true},    {u"A256", true},   {u"R65536", true},
               {u"R0", false},   {u"R65537", false}, {u"RC257", false}, {u"IW12", false},
               {u"A300", false}, {u"ABC1", false},   {u"A1B", false},   {u"Recette", false}};
  for (const Case& c : names)
    EXPECT_EQ(LooksLikeCellName(c.text, TextLength(c.text)), c.cell) << U8(c.text);
  // Only the given length counts: "A1" in front of more text still looks like a cell.
  EXPECT_TRUE(LooksLikeCellName(u"A1xyz", 2));

  struct Quote {
    const char16_t* text;
    bool quote;
  } quotes[] = {{u"Feuil1", false}, {u"b.xls", false},  {u"Données", false}, {u"_a", false},
                {u"", false},       {u"Feuil 1", true}, {u"1Feuil", true},   {u".x", true},
                {u"O'Neil", true},  {u"a-b", true},     {u"Σύνολο", true}};
  for (const Quote& c : quotes) EXPECT_EQ(QuoteNeeded(c.text), c.quote) << U8(c.text);
}

// The writers also print every reference of the round-trip tests; these are the edges they miss.
TEST(ReferenceTextClasses, CellAndColumnWriters) {
  char16_t out[16];
  // The count returned, then the text.
  auto written = [&](uint32_t n) { return std::to_string(n) + " " + U8(out); };
  EXPECT_EQ(written(ColumnText(25, out)), "1 Z");
  EXPECT_EQ(written(ColumnText(26, out)), "2 AA");
  // Plain differences, no wrap.
  EXPECT_EQ(written(CellR1C1Text(out, 2, 250, true, true, 4, 5)), "11 R[-2]C[245]");
}

TEST_F(ReferenceTextTest, WritesRanges) {
  const uint32_t A1 = RangeTextA1, Q = RangeTextQualify, Eq = RangeTextEquals;
  const struct {
    uint32_t sheet;
    Range range;
    uint32_t options;
    const char* text;
  } cases[] = {
      {1, {0, 2, 0, 255}, A1 | RefFirstRowRelative, "1:$3"},
      {1, {4, 4, 0, 255}, A1 | 15, "5:5"},
      {1, {0, 65535, 0, 255}, A1, "$1:$65536"},
      {1, {0, 65535, 0, 2}, A1 | RefFirstColRelative, "A:$C"},
      {1, {2, 2, 1, 1}, A1 | 15, "B3"},
      {1, {2, 2, 1, 1}, A1 | 8 | 4, "B3:$B$3"},
      {1, {0, 2, 0, 1}, A1 | 3, "$A$1:B3"},
      {1, {1, 1, 0, 255}, 0, "R2"},
      {1, {0, 65535, 1, 1}, 0, "C2"},
      {1, {4, 4, 3, 3}, 15, "R[-1]C"},
      {1, {0, 0, 0, 0}, A1 | Q, "[Budget.xls]Feuil1!$A$1"},
      {4, {0, 0, 0, 0}, Q, "'[Budget.xls]Feuil 1'!R1C1"},
      {5, {0, 0, 0, 0}, A1 | Q | Eq, "='[Budget.xls]O''Neil'!$A$1"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(U8(RangeText(book, c.sheet, &c.range, c.options, 5, 3)), c.text) << c.text;

  const Range cell{0, 0, 0, 0};
  char16_t* shared = RangeText(book, 0, &cell, A1, 0, 0);
  char16_t* copy = RangeText(book, 0, &cell, A1 | RangeTextCopy, 0, 0);
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, shared);
  EXPECT_EQ(U8(copy), "$A$1");
  Release(copy);

  // A workbook path longer than any buffer is cut, not written past the shared buffer.
  uint32_t big = 0;
  ASSERT_TRUE(CreateWorkbook(std::u16string(3000, u'b').c_str(), 0, &big));
  EXPECT_LT(TextLength(RangeText(big, 0, &cell, Q, 0, 0)), 1024u);
}

// Whatever RangeText writes reads back as the same range, and the flags read back print the same.
TEST_F(ReferenceTextTest, WrittenRangesReadBack) {
  const Range ranges[] = {{0, 0, 0, 0},   {2, 9, 1, 4},        {0, 65535, 0, 255},
                          {0, 2, 0, 255}, {0, 65535, 3, 3},    {65535, 65535, 255, 255},
                          {5, 5, 0, 255}, {0, 65535, 255, 255}};
  for (const Range& range : ranges) {
    for (uint32_t options = 0; options < 32; options++) {  // the flags, and A1 or R1C1
      const std::u16string text = RangeText(book, 0, &range, options, 7, 3);
      Range r{};
      uint8_t flags = 0;
      const int a1 = (options & RangeTextA1) != 0;
      ASSERT_EQ(ParseCellReference(text.c_str(), 0, Length(text), a1, 7, 3, &r, &flags),
                Length(text))
          << U8(text);
      EXPECT_TRUE(EqualRanges(&r, &range)) << U8(text);
      EXPECT_EQ(U8(RangeText(book, 0, &r, (options & RangeTextA1) | flags, 7, 3)), U8(text));
    }
  }
}

// Readers given garbled text cut at every length stay inside it (the sanitizer watches the
// exactly sized copies) and answer at most the end.
TEST_F(ReferenceTextTest, GarbledTextStaysInBounds) {
  const std::u16string alphabet = u"ArRcC19$:![]'\\.() +-;_\x03";
  std::mt19937 random(12345);
  for (int round = 0; round < 3000; round++) {
    std::vector<char16_t> exact(random() % 24);
    for (char16_t& c : exact) c = alphabet[random() % alphabet.size()];
    const int32_t n = static_cast<int32_t>(exact.size());
    const char16_t* p = exact.data();
    Range r;
    uint8_t flags;
    SheetQualifier q;
    NameToken t;
    int32_t link = 0;
    for (int a1 = 0; a1 < 2; a1++) {
      EXPECT_LE(ParseCellReference(p, 0, n, a1, 0, 0, &r, &flags), n);
      EXPECT_LE(ParseReferenceText(p, 0, n, a1, 0, 0, book, &link, &r, &flags), n);
    }
    EXPECT_LE(ParseSheetPrefix(p, 0, n, book, &q), n);
    EXPECT_LE(ScanNameToken(p, 0, n, book, &t), n);
    LooksLikeCellName(p, static_cast<uint32_t>(n));
  }
}

}  // namespace
