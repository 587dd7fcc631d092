// Tests of delimited text: the reader's quoting and line ends, its row and column limits and its
// refusals, the two flavours of the writer, the windows-1252 border, and a round trip.
#include "files/text.h"

#include <gtest/gtest.h>

#include <string>

#include "base/message.h"
#include "base/text.h"
#include "edit/entry.h"
#include "format/locale.h"
#include "formula/reference_text.h"
#include "model/styles.h"
#include "model/workbook.h"

namespace {

struct TextFileTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override {
    CloseAllWorkbooks();
    ApplyLocale(LocaleFrench);
    ClearLastMessage();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    GetWorkbook(book)->codePage = 1252;
  }
  void TearDown() override { CloseAllWorkbooks(); }

  int Read(const std::string& bytes, char16_t separator = u';', DelimitedStop* stop = nullptr) {
    return ReadDelimited(book, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(),
                         separator, stop);
  }
  // The stored cells as "A1=s:text B1=n:12", texts with their quote prefix shown as "'".
  std::string Listing() {
    std::string out;
    const CellArray* cells = &GetSheet(book, 0)->cells;
    for (uint32_t i = 0; i < cells->count; i++) {
      const Cell* cell = cells->cells[i];
      char16_t address[16];
      CellA1Text(cell->row, cell->col, false, false, address);
      if (!out.empty()) out += ' ';
      out += TextToUtf8(address) + '=';
      if (cell->formula.bytes) {
        out += 'f';
      } else if (cell->value.tag == ValueText) {
        bool prefix = GetWorkbook(book)->xfs[cell->xf].flags & XfQuotePrefix;
        out += prefix ? "s:'" : "s:";
        out += TextToUtf8(cell->value.text);
      } else if (cell->value.tag == ValueNumber) {
        char number[32];
        std::snprintf(number, sizeof number, "n:%g", cell->value.number);
        out += number;
      } else {
        out += '?';
      }
    }
    return out;
  }
  std::string Write(DelimitedFlavour flavour) {
    FILE* file = std::tmpfile();
    EXPECT_TRUE(WriteDelimited(book, file, flavour));
    std::string out;
    std::rewind(file);
    for (int c; (c = std::fgetc(file)) != EOF;) out += static_cast<char>(c);
    std::fclose(file);
    return out;
  }
  void Type(const char16_t* text, uint16_t row, uint8_t col) {
    EntryTarget target{book, 0, Range{row, row, col, col}, row, col, 0, 0, 0};
    EntryStatus status;
    ASSERT_TRUE(StoreEntry(text, &target, &status));
  }
};

TEST_F(TextFileTest, FieldsQuotesAndLineEnds) {
  struct Case {
    const char* bytes;
    const char* cells;
  } cases[] = {
      {"a;\"b;c\";d", "A1=s:a B1=s:b;c C1=s:d"},
      {"\"12\";12;\"1,5\";\"x\"", "A1=s:'12 B1=n:12 C1=s:'1,5 D1=s:x"},
      {"\"a\"b;c", "A1=s:ab B1=s:c"},
      {"\"12\"3", "A1=n:123"},
      {"\"il dit \"\"oui\"\"\"", "A1=s:il dit \"oui\""},
      {"a\r\nb\rc\nd", "A1=s:a A2=s:b A3=s:c A4=s:d"},
      {"a\r\n", "A1=s:a"},
      {"\"x\ny\";\"x\r\ny\"", "A1=s:x\ny B1=s:x\ry"},
      {";;c\r\n\r\n;b;", "C1=s:c B3=s:b"},
      {"1;=A1*2", "A1=n:1 B1=f"},
      {"vrai;\"\"", "A1=?"},
      {"", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    CloseAllWorkbooks();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    GetWorkbook(book)->dirty = 1;
    EXPECT_TRUE(Read(c.bytes));
    EXPECT_EQ(Listing(), c.cells);
    EXPECT_EQ(GetWorkbook(book)->dirty, 0);
  }
}

TEST_F(TextFileTest, MalformedFilesAreRefusedKeepingWhatWasRead) {
  struct Case {
    const char* bytes;
    DelimitedFailure failure;
    uint32_t row, col;
    const char* cells;
  } cases[] = {
      {"a\r\nb\"c", DelimitedInvalid, 1, 0, "A1=s:a"},
      {"a;\"bc", DelimitedInvalid, 0, 1, "A1=s:a"},
      {"\"a\"b\"c", DelimitedInvalid, 0, 0, ""},
      {"1;2\r\n3;=1+;4", DelimitedBadFormula, 1, 1, "A1=n:1 B1=n:2 A2=n:3"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    CloseAllWorkbooks();
    ClearLastMessage();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    DelimitedStop stop;
    EXPECT_FALSE(Read(c.bytes, u';', &stop));
    EXPECT_EQ(stop.failure, c.failure);
    EXPECT_EQ(stop.row, c.row);
    EXPECT_EQ(stop.col, c.col);
    EXPECT_EQ(Listing(), c.cells);
    // Only a malformed file tells the user; a failed formula is the caller's to report.
    if (c.failure == DelimitedInvalid)
      EXPECT_EQ(TextToUtf8(LastMessage()), "Invalid data in input file");
    else
      EXPECT_EQ(LastMessage(), nullptr);
  }
}

// What we save must load again: the full width and height load, one more row or column does not.
TEST_F(TextFileTest, RowAndColumnLimits) {
  std::string wide;
  for (int i = 0; i < 256; i++) {
    if (i) wide += ';';
    wide += std::to_string(i);
  }
  std::string tall(65535, '\n');
  struct Case {
    std::string bytes;
    bool loads;
    const char* lastCell;
  } cases[] = {
      {wide + "\r\n", true, "IV1"},     {wide + ";256", false, "IV1"},
      {wide + ";", false, "IV1"},       {tall + "x", true, "A65536"},
      {tall + "x\r\n", true, "A65536"}, {tall + "x\n\n", false, "A65536"},
      {tall + "x\ny", false, "A65536"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes.size());
    CloseAllWorkbooks();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    EXPECT_EQ(Read(c.bytes) != 0, c.loads);
    const CellArray* cells = &GetSheet(book, 0)->cells;
    ASSERT_GT(cells->count, 0u);
    const Cell* last = cells->cells[cells->count - 1];
    char16_t address[16];
    CellA1Text(last->row, last->col, false, false, address);
    EXPECT_EQ(TextToUtf8(address), c.lastCell);
  }
}

TEST_F(TextFileTest, CsvRowsSpanTheSheetAndTxtRowsStopAtTheirLastCell) {
  Type(u"a", 0, 0);
  Type(u"c", 0, 2);
  Type(u"b", 2, 1);
  EXPECT_EQ(Write(DelimitedCsv), "a;;c\r\n;;\r\n;b;\r\n");
  EXPECT_EQ(Write(DelimitedTxt), "a\t\tc\r\n\r\n\tb\r\n");
}

TEST_F(TextFileTest, FieldsAreQuotedWhenTheyMustBe) {
  struct Case {
    const char16_t* typed;
    const char* csv;
    const char* txt;
  } cases[] = {
      {u"plain", "plain\r\n", "plain\r\n"},
      {u"a;b", "\"a;b\"\r\n", "\"a;b\"\r\n"},
      {u"a\tb", "a\tb\r\n", "\"a\tb\"\r\n"},
      {u"il dit \"oui\"", "\"il dit \"\"oui\"\"\"\r\n", "\"il dit \"\"oui\"\"\"\r\n"},
      {u"deux\nlignes", "\"deux\nlignes\"\r\n", "\"deux\nlignes\"\r\n"},
      {u"'12", "\"12\"\r\n", "\"12\"\r\n"},
      {u"1,5", "1,5\r\n", "1,5\r\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(TextToUtf8(c.typed));
    Type(c.typed, 0, 0);
    EXPECT_EQ(Write(DelimitedCsv), c.csv);
    EXPECT_EQ(Write(DelimitedTxt), c.txt);
  }
}

// windows-1252 keeps the five bytes iconv leaves undefined, and writes "?" for what it lacks.
TEST_F(TextFileTest, Windows1252AtTheBorder) {
  ASSERT_TRUE(Read("\xE9t\xE9;\x80\x81\x8D\x8F\x90\x9D;\x9C"));
  EXPECT_EQ(TextToUtf8(CellAt(&GetSheet(book, 0)->cells, 0, 0)->value.text), "été");
  EXPECT_EQ(Utf8ToU16(TextToUtf8(CellAt(&GetSheet(book, 0)->cells, 0, 1)->value.text)),
            u"\u20AC\u0081\u008D\u008F\u0090\u009D");
  EXPECT_EQ(TextToUtf8(CellAt(&GetSheet(book, 0)->cells, 0, 2)->value.text), "œ");
  Type(u"Жé", 1, 0);
  EXPECT_EQ(Write(DelimitedCsv), "\xE9t\xE9;\x80\x81\x8D\x8F\x90\x9D;\x9C\r\n?\xE9;;\r\n");
}

TEST_F(TextFileTest, RoundTripKeepsTheBytes) {
  const std::string original =
      "1,5;texte;\"12\";\"a;b\"\r\n"
      "VRAI;;\"x\"\"y\";15/03/2024\r\n"
      ";;;\r\n"
      "\"d\xE9"
      "but\nfin\";-3;0,25;\r\n";
  ASSERT_TRUE(Read(original));
  EXPECT_EQ(Write(DelimitedCsv), original);
}

}  // namespace
