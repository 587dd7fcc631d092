// Tests of reference text: cells, ranges, rows and columns in both styles with their relative
// flags, sheet/book/path qualifiers and the link entries they create, qualified identifiers, the
// writers, a write-then-read round trip, and reading of truncated and garbled text.
#include <gtest/gtest.h>

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

int32_t Length(const char16_t* s) {
  return static_cast<int32_t>(TextLength(s));
}
std::string Utf8(const char16_t* s) {
  return TextToUtf8(s);
}
std::string Utf8(const std::u16string& s) {
  return TextToUtf8(s.c_str());
}

struct CellCase {
  const char16_t* text;
  int a1;
  uint16_t baseRow;
  uint8_t baseCol;
  int32_t behind;
  Range range;  // firstRow, lastRow, firstCol, lastCol
  uint8_t flags;
};

TEST_F(ReferenceTextTest, ReadsCellsRangesRowsAndColumns) {
  const CellCase cases[] = {
      {u"A1", 1, 0, 0, 2, {0, 0, 0, 0}, 15},
      {u"$A$1", 1, 0, 0, 4, {0, 0, 0, 0}, 0},
      {u"a1+1", 1, 0, 0, 2, {0, 0, 0, 0}, 15},
      {u"A1(", 1, 0, 0, 2, {0, 0, 0, 0}, 15},
      {u"A1:IV65536", 1, 0, 0, 10, {0, 65535, 0, 255}, 15},
      {u"$B3:A$1", 1, 0, 0, 7, {0, 2, 0, 1}, 6},  // the flags follow their coordinates
      {u"A:A", 1, 0, 0, 3, {0, 65535, 0, 0}, 5},
      {u"$A:$C", 1, 0, 0, 5, {0, 65535, 0, 2}, 0},
      {u"1:1", 1, 0, 0, 3, {0, 0, 0, 255}, 10},
      {u"$3:2", 1, 0, 0, 4, {1, 2, 0, 255}, 8},
      {u"A1:B", 1, 0, 0, 2, {0, 0, 0, 0}, 15},  // the ":" is left to the parser
      {u"A1:B2:C3", 1, 0, 0, 5, {0, 1, 0, 1}, 15},
      {u"A65536", 1, 0, 0, 6, {65535, 65535, 0, 0}, 15},
      {u"IW1", 1, 0, 0, -1, {}, 0},
      {u"A0", 1, 0, 0, -1, {}, 0},
      {u"A65537", 1, 0, 0, -1, {}, 0},
      {u"A", 1, 0, 0, -1, {}, 0},
      {u"1:", 1, 0, 0, -1, {}, 0},
      {u"A1!", 1, 0, 0, -1, {}, 0},
      {u"A:B1", 1, 0, 0, -1, {}, 0},
      {u"R1C1", 0, 0, 0, 4, {0, 0, 0, 0}, 0},
      {u"rc", 0, 5, 3, 2, {5, 5, 3, 3}, 15},
      {u"R[-1]C", 0, 0, 0, 6, {65535, 65535, 0, 0}, 15},
      {u"R[1]C[-1]", 0, 10, 10, 9, {11, 11, 9, 9}, 15},
      {u"R3C3:R1C[1]", 0, 0, 0, 11, {0, 2, 1, 2}, 4},
      {u"R1C1:R2", 0, 0, 0, 4, {0, 0, 0, 0}, 0},  // falls back to the first cell
      {u"R2", 0, 0, 0, 2, {1, 1, 0, 255}, 0},
      {u"R1:R3", 0, 0, 0, 5, {0, 2, 0, 255}, 0},
      {u"R1:R2C2", 0, 0, 0, 2, {0, 0, 0, 255}, 0},
      {u"C1:C3", 0, 0, 0, 5, {0, 65535, 0, 2}, 0},
      {u"C300", 0, 0, 0, 4, {0, 65535, 43, 43}, 0},  // wraps onto "C44"
      {u"R0C1", 0, 0, 0, -1, {}, 0},
      {u"R65537", 0, 0, 0, -1, {}, 0},
      {u"R1C257", 0, 0, 0, -1, {}, 0},
      {u"R[65536]C", 0, 0, 0, -1, {}, 0},
      {u"RC[256]", 0, 0, 0, -1, {}, 0},
      {u"R1C1x", 0, 0, 0, -1, {}, 0},
      {u"A1", 0, 0, 0, -1, {}, 0},
  };
  for (const CellCase& c : cases) {
    Range r{9, 9, 9, 9};
    uint8_t flags = 99;
    int32_t behind =
        ParseCellReference(c.text, 0, Length(c.text), c.a1, c.baseRow, c.baseCol, &r, &flags);
    EXPECT_EQ(behind, c.behind) << Utf8(c.text);
    if (behind < 0 || c.behind < 0) continue;
    EXPECT_TRUE(EqualRanges(&r, &c.range)) << Utf8(c.text) << " " << r.firstRow << "-" << r.lastRow
                                           << " " << int(r.firstCol) << "-" << int(r.lastCol);
    EXPECT_EQ(flags, c.flags) << Utf8(c.text);
  }
}

struct PrefixCase {
  const char16_t* text;
  int32_t behind;
  const char* path;
  const char* bookName;
  const char* first;
  const char* last;
};

TEST_F(ReferenceTextTest, ReadsSheetPrefixes) {
  const std::u16string longSheet(32, u'x'), longPath(261, u'p');
  const std::u16string longSheetText = u"[b.xls]" + longSheet + u"!A1";
  const std::u16string okSheetText = u"[b.xls]" + longSheet.substr(1) + u"!A1";
  const std::string okSheet(31, 'x');
  const std::u16string longPathText = u"'" + longPath + u"\\[b.xls]S'!A1";
  const std::u16string longBookText = u"[" + longPath + u"]S!A1";
  const std::u16string longQuotedText = u"'" + std::u16string(700, u'q') + u"'!A1";
  const PrefixCase cases[] = {
      {u"A1", 0, "", "", "", ""},
      {u"A1+Feuil1!B1", 0, "", "", "", ""},
      {u"Feuil 1!A1", 0, "", "", "", ""},  // the blank ends the scan
      {u"Feuil1!A1", 7, "", "", "Feuil1", ""},
      {u"feuil1:Feuil3!A1", 14, "", "", "feuil1", "Feuil3"},
      {u"'Feuil 1'!A1", 10, "", "", "Feuil 1", ""},
      {u"'O''Neil'!A1", 10, "", "", "O'Neil", ""},
      {u"'Feuil 1':Feuil2!A1", 17, "", "", "Feuil 1", "Feuil2"},
      {u"[b.xls]Autre!A1", 13, "", "b.xls", "Autre", ""},
      {u"'[b c.xls]Feuil 9:X'!A1", 21, "", "b c.xls", "Feuil 9", "X"},
      {u"'C:\\dir\\[b.xls]Feuil1'!A1", 23, "C:\\dir", "b.xls", "Feuil1", ""},
      {u"'C:\\dir\\b.xls'!A1", 15, "C:\\dir", "b.xls", "", ""},
      {okSheetText.c_str(), 39, "", "b.xls", okSheet.c_str(), ""},
      {u"Inconnu!A1", -1, "", "", "", ""},
      {u"Feuil1:Inconnu!A1", -1, "", "", "", ""},
      {u"'Inconnu'!A1", -1, "", "", "", ""},
      {u"1Feuil!A1", -1, "", "", "", ""},
      {u"[b.xls!A1", -1, "", "", "", ""},
      {u"[]S!A1", -1, "", "", "", ""},
      {u"[b.xls]!A1", -1, "", "", "", ""},
      {u"[a:b.xls]S!A1", -1, "", "", "", ""},
      {u"'Feuil 1!A1", -1, "", "", "", ""},
      {u"''!A1", -1, "", "", "", ""},
      {u"'Feuil 1'A1", -1, "", "", "", ""},
      {u"'Fe/uil'!A1", -1, "", "", "", ""},
      {longSheetText.c_str(), -1, "", "", "", ""},
      {longPathText.c_str(), -1, "", "", "", ""},
      {longBookText.c_str(), -1, "", "", "", ""},
      {longQuotedText.c_str(), -1, "", "", "", ""},
  };
  for (const PrefixCase& c : cases) {
    SheetQualifier q;
    int32_t behind = ParseSheetPrefix(c.text, 0, Length(c.text), book, &q);
    EXPECT_EQ(behind, c.behind) << Utf8(c.text);
    if (behind <= 0) continue;
    EXPECT_EQ(Utf8(q.path), c.path) << Utf8(c.text);
    EXPECT_EQ(Utf8(q.book), c.bookName) << Utf8(c.text);
    EXPECT_EQ(Utf8(q.sheetFirst), c.first) << Utf8(c.text);
    EXPECT_EQ(Utf8(q.sheetLast), c.last) << Utf8(c.text);
    EXPECT_EQ(q.bareBang, 0);
  }
  SheetQualifier q;
  EXPECT_EQ(ParseSheetPrefix(u"!A1", 0, 3, book, &q), 1);
  EXPECT_NE(q.bareBang, 0);
}

TEST_F(ReferenceTextTest, QualifiedReferencesCreateTheirLinks) {
  const Workbook* wb = GetWorkbook(book);
  Range r{};
  uint8_t flags = 0;
  int32_t link = 99;
  auto read = [&](const char16_t* text, int32_t* externSheet) {
    return ParseReferenceText(text, 0, Length(text), 1, 0, 0, book, externSheet, &r, &flags);
  };

  EXPECT_EQ(read(u"[c.xls]S!A1", nullptr), 11);  // checking only: no entry is made
  EXPECT_EQ(wb->externalBookCount, 0u);
  EXPECT_EQ(read(u"B2", &link), 2);
  EXPECT_EQ(link, -1);

  ASSERT_EQ(read(u"'C:\\dir\\[b.xls]Feuil1'!A1:B2", &link), 28);
  ASSERT_EQ(wb->externalBookCount, 1u);
  const ExternalBook* other = &wb->externalBooks[0];
  EXPECT_EQ(other->kind, ExternalOtherFile);
  EXPECT_EQ(Utf8(other->path), Utf8(u"\x01"
                                    u"C:\x03"
                                    u"dir\x03"
                                    u"b.xls"));
  ASSERT_EQ(other->sheetCount, 1u);
  EXPECT_EQ(Utf8(other->sheetNames[0]), "Feuil1");
  ASSERT_GE(link, 0);
  EXPECT_EQ(wb->sheetLinks[link].bookIndex, 0);
  EXPECT_EQ(wb->sheetLinks[link].firstSheet, 0);
  EXPECT_EQ(wb->sheetLinks[link].lastSheet, 0);

  // The same book in other case; a second sheet name joins its list.
  ASSERT_EQ(read(u"'C:\\DIR\\[B.XLS]Feuil1:Zed'!A1", &link), 29);
  EXPECT_EQ(wb->externalBookCount, 1u);
  EXPECT_EQ(wb->externalBooks[0].sheetCount, 2u);
  EXPECT_EQ(wb->sheetLinks[link].firstSheet, 0);
  EXPECT_EQ(wb->sheetLinks[link].lastSheet, 1);

  ASSERT_EQ(read(u"Feuil3:Feuil1!A1", &link), 16);  // kept in sheet order
  const SheetLink self = wb->sheetLinks[link];
  EXPECT_EQ(wb->externalBooks[self.bookIndex].kind, ExternalSelf);
  EXPECT_EQ(self.firstSheet, 1);
  EXPECT_EQ(self.lastSheet, 3);

  ASSERT_EQ(read(u"!A1", &link), 3);
  EXPECT_EQ(wb->externalBooks[wb->sheetLinks[link].bookIndex].kind, ExternalUnused);
  EXPECT_EQ(wb->sheetLinks[link].firstSheet, NoSheet);

  EXPECT_EQ(read(u"Feuil1!", &link), -1);
  EXPECT_EQ(read(u"'C:\\dir\\b.xls'!A1", &link), -1);  // a book but no sheet
  EXPECT_EQ(read(u"Feuil 1!A1", &link), -1);
  EXPECT_EQ(read(u"", &link), -1);
}

TEST_F(ReferenceTextTest, ScansQualifiedIdentifiers) {
  const std::u16string longest(MaxIdentifierLength, u'n'), tooLong = longest + u"n";
  struct Case {
    const char16_t* text;
    int32_t behind;
    int32_t nameStart;
    bool qualified;
    const char* bookName;
    const char* sheet;
  } cases[] = {
      {u"Total", 5, 0, false, "", ""},
      {u"_x.1+2", 4, 0, false, "", ""},
      {u"Total)", 5, 0, false, "", ""},
      {u"Total\\2}", 5, 0, false, "", ""},  // the French array column separator
      {u"A300", 4, 0, false, "", ""},
      {u"Feuil1!Total", 12, 7, true, "", "Feuil1"},
      {u"'Feuil 1'!Total ", 15, 10, true, "", "Feuil 1"},
      {u"Budget.xls!Total", 16, 11, true, "Budget.xls", ""},
      {u"'C:\\d\\b.xls'!Total", 18, 13, true, "b.xls", ""},
      {u"!Total", 6, 1, true, "", ""},
      {longest.c_str(), 255, 0, false, "", ""},
      {tooLong.c_str(), -1, 0, false, "", ""},
      {u"R2D2", -1, 0, false, "", ""},
      {u"Feuil1!A1", -1, 0, false, "", ""},
      {u"1abc", -1, 0, false, "", ""},
      {u"Total,5", -1, 0, false, "", ""},
      {u"Total#", -1, 0, false, "", ""},
      {u"a:b!Total", -1, 0, false, "", ""},
      {u"Total!", -1, 0, false, "", ""},
  };
  for (const Case& c : cases) {
    NameToken t;
    int32_t behind = ScanNameToken(c.text, 0, Length(c.text), book, &t);
    EXPECT_EQ(behind, c.behind) << Utf8(c.text);
    if (behind < 0) continue;
    EXPECT_EQ(t.nameStart, c.nameStart) << Utf8(c.text);
    EXPECT_EQ(t.nameLength, behind - c.nameStart) << Utf8(c.text);
    EXPECT_EQ(t.qualified != 0, c.qualified) << Utf8(c.text);
    EXPECT_EQ(Utf8(t.qualifier.book), c.bookName) << Utf8(c.text);
    EXPECT_EQ(Utf8(t.qualifier.sheetFirst), c.sheet) << Utf8(c.text);
  }
}

TEST(ReferenceTextClasses, CellLikeNamesAndQuoting) {
  struct Case {
    const char16_t* text;
    bool cell;
  } names[] = {{u"R", true},      {u"C", true},      {u"rc", true},       {u"R2D2", true},
               {u"RC256", true},  {u"C3", true},     {u"A1", true},       {u"IV12", true},
               {u"A256", true},   {u"R65536", true}, {u"R0", false},      {u"R65537", false},
               {u"RC257", false}, {u"IW12", false},  {u"A300", false},    {u"AB", false},
               {u"ABC1", false},  {u"A1B", false},   {u"Recette", false}, {u"A", false}};
  for (const Case& c : names)
    EXPECT_EQ(LooksLikeCellName(c.text, TextLength(c.text)), c.cell) << Utf8(c.text);
  // Only the given length counts: "A1" in front of more text still looks like a cell.
  EXPECT_TRUE(LooksLikeCellName(u"A1xyz", 2));

  struct Quote {
    const char16_t* text;
    bool quote;
  } quotes[] = {{u"Feuil1", false}, {u"b.xls", false},  {u"Données", false}, {u"_a", false},
                {u"", false},       {u"Feuil 1", true}, {u"1Feuil", true},   {u".x", true},
                {u"O'Neil", true},  {u"a-b", true},     {u"Σύνολο", true}};
  for (const Quote& c : quotes) EXPECT_EQ(QuoteNeeded(c.text), c.quote) << Utf8(c.text);
}

TEST(ReferenceTextClasses, CellAndColumnWriters) {
  char16_t out[16];
  const std::pair<uint8_t, const char*> columns[] = {{0, "A"}, {25, "Z"}, {26, "AA"}, {255, "IV"}};
  for (const auto& c : columns) {
    EXPECT_EQ(ColumnText(c.first, out), strlen(c.second));
    EXPECT_EQ(Utf8(out), c.second);
  }
  EXPECT_EQ(RowText(65535, out), 5u);
  EXPECT_EQ(Utf8(out), "65536");
  EXPECT_EQ(CellA1Text(2, 1, true, false, out), 3u);
  EXPECT_EQ(Utf8(out), "B$3");
  CellA1Text(2, 1, true, true, out);
  EXPECT_EQ(Utf8(out), "$B$3");
  EXPECT_EQ(CellR1C1Text(out, 4, 2, false, false, 0, 0), 4u);
  EXPECT_EQ(Utf8(out), "R5C3");
  CellR1C1Text(out, 4, 2, true, true, 4, 2);
  EXPECT_EQ(Utf8(out), "RC");
  CellR1C1Text(out, 2, 250, true, true, 4, 5);
  EXPECT_EQ(Utf8(out), "R[-2]C[245]");  // plain differences, no wrap
}

TEST_F(ReferenceTextTest, WritesRanges) {
  struct Case {
    uint32_t sheet;
    Range range;
    uint32_t options;
    const char* text;
  } cases[] = {
      {1, {0, 2, 0, 255}, RangeTextA1, "$1:$3"},
      {1, {4, 4, 0, 255}, RangeTextA1 | 15, "5:5"},
      {1, {0, 65535, 0, 255}, RangeTextA1, "$1:$65536"},
      {1, {0, 65535, 0, 2}, RangeTextA1 | 15, "A:C"},
      {1, {0, 65535, 1, 1}, RangeTextA1, "$B:$B"},
      {1, {2, 2, 1, 1}, RangeTextA1 | 15, "B3"},
      {1, {2, 2, 1, 1}, RangeTextA1 | 8 | 4, "B3:$B$3"},
      {1, {0, 2, 0, 1}, RangeTextA1 | 3, "$A$1:B3"},
      {1, {0, 2, 0, 255}, 0, "R1:R3"},
      {1, {1, 1, 0, 255}, 0, "R2"},
      {1, {0, 65535, 0, 2}, 0, "C1:C3"},
      {1, {0, 65535, 1, 1}, 0, "C2"},
      {1, {0, 1, 0, 1}, 0, "R1C1:R2C2"},
      {1, {4, 4, 3, 3}, 15, "R[-1]C"},
      {1, {0, 0, 0, 0}, RangeTextA1 | 15 | RangeTextEquals, "=A1"},
      {1, {0, 0, 0, 0}, RangeTextA1 | RangeTextQualify, "[Budget.xls]Feuil1!$A$1"},
      {4, {0, 0, 0, 0}, RangeTextQualify, "'[Budget.xls]Feuil 1'!R1C1"},
      {5,
       {0, 0, 0, 0},
       RangeTextA1 | RangeTextQualify | RangeTextEquals,
       "='[Budget.xls]O''Neil'!$A$1"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Utf8(RangeText(book, c.sheet, &c.range, c.options, 5, 3)), c.text) << c.text;

  const Range cell{0, 0, 0, 0};
  char16_t* shared = RangeText(book, 0, &cell, RangeTextA1, 0, 0);
  char16_t* copy = RangeText(book, 0, &cell, RangeTextA1 | RangeTextCopy, 0, 0);
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, shared);
  EXPECT_EQ(Utf8(copy), "$A$1");
  Release(copy);

  // A workbook path longer than any buffer is cut, not written past the shared buffer.
  const std::u16string longPath(3000, u'b');
  uint32_t big = 0;
  ASSERT_TRUE(CreateWorkbook(longPath.c_str(), 0, &big));
  EXPECT_LT(TextLength(RangeText(big, 0, &cell, RangeTextQualify, 0, 0)), 1024u);
}

// Whatever RangeText writes reads back as the same range, and the flags read back print the same.
TEST_F(ReferenceTextTest, WrittenRangesReadBack) {
  const Range ranges[] = {{0, 0, 0, 0},   {2, 9, 1, 4},        {0, 65535, 0, 255},
                          {0, 2, 0, 255}, {0, 65535, 3, 3},    {65535, 65535, 255, 255},
                          {5, 5, 0, 255}, {0, 65535, 255, 255}};
  for (const Range& range : ranges) {
    for (uint32_t style : {0u, uint32_t{RangeTextA1}}) {
      for (uint32_t f = 0; f < 16; f++) {
        const std::u16string text = RangeText(book, 0, &range, style | f, 7, 3);
        Range r{};
        uint8_t flags = 0;
        int32_t behind =
            ParseCellReference(text.c_str(), 0, Length(text.c_str()), style != 0, 7, 3, &r, &flags);
        ASSERT_EQ(behind, Length(text.c_str())) << Utf8(text);
        EXPECT_TRUE(EqualRanges(&r, &range)) << Utf8(text);
        EXPECT_EQ(Utf8(RangeText(book, 0, &r, style | flags, 7, 3)), Utf8(text));
      }
    }
  }
}

// Readers given garbled text cut at every length stay inside it (the sanitizer watches the
// exactly sized copies) and answer at most the end.
TEST_F(ReferenceTextTest, GarbledTextStaysInBounds) {
  const char16_t alphabet[] = u"ArRcC19$:![]'\\.() +-;_\x03";
  const int32_t letters = Length(alphabet);
  uint32_t seed = 12345;
  for (int round = 0; round < 3000; round++) {
    int32_t length = static_cast<int32_t>(seed % 24);
    std::vector<char16_t> exact(static_cast<size_t>(length));
    for (char16_t& c : exact) {
      seed = seed * 1103515245u + 12345u;
      c = alphabet[(seed >> 16) % static_cast<uint32_t>(letters)];
    }
    seed = seed * 1103515245u + 12345u;
    const char16_t* p = exact.data();
    Range r;
    uint8_t flags;
    SheetQualifier q;
    NameToken t;
    int32_t link = 0;
    for (int a1 = 0; a1 < 2; a1++) {
      EXPECT_LE(ParseCellReference(p, 0, length, a1, 0, 0, &r, &flags), length);
      EXPECT_LE(ParseReferenceText(p, 0, length, a1, 0, 0, book, &link, &r, &flags), length);
    }
    EXPECT_LE(ParseSheetPrefix(p, 0, length, book, &q), length);
    EXPECT_LE(ScanNameToken(p, 0, length, book, &t), length);
    LooksLikeCellName(p, static_cast<uint32_t>(length));
  }
}

}  // namespace
