// Tests of the BIFF writer: the RK forms, the record frame of each version, the cell forms of
// arrays and long texts, the string table across CONTINUE records, the Excel 95 token
// conversion (read back through the reader's upgrade), and whole workbooks written in both
// versions and read back through the reader.
#include "files/biff_write.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/message.h"
#include "base/text.h"
#include "edit/entry.h"
#include "files/biff_read.h"
#include "files/open.h"
#include "files/workbook_compare.h"
#include "format/locale.h"
#include "formula/parser.h"
#include "model/workbook.h"

namespace {

TEST(BiffRk, FormsOfTheDocumentedValues) {
  struct Case {
    double x;
    int mode;
  } cases[] = {{1.5, 0},       {100, 2},  {0.01, 3},    {0, 0},      {-7, 2},      {536870911, 2},
               {536870912, 0}, {-0.5, 0}, {1234.56, 3}, {1e300, -1}, {1.0 / 3, -1}};
  for (const Case& c : cases) {
    uint32_t rk = 0;
    EXPECT_EQ(EncodeRk(c.x, &rk), c.mode) << c.x;
    if (c.mode >= 0) {
      EXPECT_EQ(DecodeRk(rk), c.x) << c.x;
    }
  }
  // 1.1 has no exact form either way: whatever is chosen must read back as 1.1.
  uint32_t rk;
  if (EncodeRk(1.1, &rk) >= 0) {
    EXPECT_EQ(DecodeRk(rk), 1.1);
  }
}

TEST(BiffRk, EveryFormReadsBackToTheSameDouble) {
  std::mt19937_64 random(7);
  int found = 0;
  for (int i = 0; i < 200000; i++) {
    double x;
    switch (i % 4) {
      case 0:
        x = static_cast<double>(static_cast<int64_t>(random() % 2000000000) - 1000000000);
        break;
      case 1:
        x = static_cast<double>(static_cast<int64_t>(random() % 200000) - 100000) / 100;
        break;
      case 2: {
        uint64_t bits = random() & ~0x3FFFFFFFFull;
        std::memcpy(&x, &bits, 8);
        break;
      }
      default: {
        uint64_t bits = random();
        std::memcpy(&x, &bits, 8);
      }
    }
    uint32_t rk;
    if (EncodeRk(x, &rk) < 0) continue;
    found++;
    double back = DecodeRk(rk);
    ASSERT_EQ(std::memcmp(&back, &x, 8), 0) << x;
  }
  EXPECT_GT(found, 100000);
}

struct Record {
  uint16_t id;
  std::vector<uint8_t> body;
};

std::vector<Record> Records(const uint8_t* bytes, uint32_t size) {
  std::vector<Record> out;
  for (uint32_t p = 0; p + 4 <= size;) {
    uint16_t id = ReadU16(bytes + p), length = ReadU16(bytes + p + 2);
    out.push_back({id, std::vector<uint8_t>(bytes + p + 4, bytes + p + 4 + length)});
    p += 4 + length;
  }
  return out;
}

struct BiffWriteTest : testing::Test {
  uint32_t book = 0;
  uint8_t* bytes = nullptr;
  uint32_t size = 0;
  BiffSaveReport report{};

  void SetUp() override {
    CloseAllWorkbooks();
    ApplyLocale(LocaleFrench);
    ClearLastMessage();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    GetWorkbook(book)->codePage = 1252;
  }
  void TearDown() override {
    Release(bytes);
    CloseAllWorkbooks();
  }
  void Type(const char16_t* text, uint16_t row, uint8_t col, uint32_t sheet = 0) {
    EntryTarget target{book, sheet, Range{row, row, col, col}, row, col, 0, 0, 0};
    EntryStatus status;
    ASSERT_TRUE(StoreEntry(text, &target, &status)) << TextToUtf8(text);
  }
  void TypeArray(const char16_t* text, Range range) {
    EntryTarget target{book, 0, range, range.firstRow, range.firstCol, 1, 0, 0};
    EntryStatus status;
    ASSERT_TRUE(StoreEntry(text, &target, &status));
  }
  void AddSheet(const char16_t* name) {
    ASSERT_TRUE(InsertSheet(book, GetWorkbook(book)->sheetCount, name, SheetWorksheet, 0, 0));
  }
  void Name(const char16_t* name, const char16_t* formula, uint16_t localSheet = 0) {
    ParseContext ctx{book, 0, 1, 0, 0, 1, 0};
    DefinedName n{};
    n.name = TextDuplicate(name);
    n.localSheet = localSheet;
    ASSERT_EQ(CompileFormula(&ctx, formula, ClassCodeReference, &n.formula), CompileOk);
    ASSERT_TRUE(AddName(book, &n, nullptr));
  }
  void Build(uint8_t version) {
    Release(bytes);
    ASSERT_TRUE(BuildBiffStream(book, version, &bytes, &size, &report));
  }
  // The stream read back into a new workbook.
  uint32_t Reload(uint8_t version) {
    Build(version);
    uint32_t copy;
    EXPECT_TRUE(CreateWorkbook(nullptr, 0, &copy));
    EXPECT_TRUE(ReadBiffWorkbook(copy, bytes, size)) << TextToUtf8(LastMessage());
    return copy;
  }
  void ExpectSameAfterReload(uint8_t version, std::map<std::string, int> expected = {}) {
    uint32_t copy = Reload(version);
    WorkbookDifferences d;
    CompareWorkbooks(book, copy, version == 7, &d);
    for (const std::string& item : d.items) ADD_FAILURE() << item;
    EXPECT_EQ(d.differences, 0);
    EXPECT_EQ(d.expected, expected);
    EXPECT_GT(d.cells, 0);
  }
};

TEST_F(BiffWriteTest, SubstreamsBeginWithTheVersionWords) {
  AddSheet(u"Deux");
  Type(u"1", 0, 0);
  for (uint8_t version : {7, 8}) {
    Build(version);
    std::vector<uint16_t> words;
    for (const Record& r : Records(bytes, size)) {
      EXPECT_NE(r.id, 0x00EB) << "no drawing group without pictures";
      if (r.id == 0x0809) {
        words.push_back(ReadU16(r.body.data()));
        EXPECT_EQ(r.body.size(), version == 8 ? 16u : 8u);
      }
    }
    if (version == 7)
      EXPECT_EQ(words, (std::vector<uint16_t>{0x0500, 0x0600, 0x0600}));
    else
      EXPECT_EQ(words, (std::vector<uint16_t>{0x0600, 0x0600, 0x0600}));
  }
}

TEST_F(BiffWriteTest, BoundSheetOffsetsPointAtTheirBof) {
  AddSheet(u"Deux");
  AddSheet(u"Trois");
  Type(u"x", 3, 3, 2);
  for (uint8_t version : {7, 8}) {
    Build(version);
    int sheets = 0;
    for (const Record& r : Records(bytes, size))
      if (r.id == 0x0085) {
        uint32_t offset = ReadU32(r.body.data());
        ASSERT_LT(offset + 6, size);
        EXPECT_EQ(ReadU16(bytes + offset), 0x0809);
        EXPECT_EQ(ReadU16(bytes + offset + 6), 0x0010);
        sheets++;
      }
    EXPECT_EQ(sheets, 3);
  }
}

TEST_F(BiffWriteTest, ArrayCellsPointAtTheirAnchorAndReadBack) {
  Type(u"1", 0, 0);
  Type(u"2", 1, 0);
  TypeArray(u"=A1:A2*10", Range{0, 1, 1, 2});
  for (uint8_t version : {7, 8}) {
    Build(version);
    int formulas = 0, arrays = 0;
    for (const Record& r : Records(bytes, size)) {
      if (r.id == 0x0006) {
        formulas++;
        ASSERT_EQ(ReadU16(r.body.data() + 20), 5);
        EXPECT_EQ(r.body[22], 0x01);  // ptgExp
        EXPECT_EQ(ReadU16(r.body.data() + 23), 0);
        EXPECT_EQ(ReadU16(r.body.data() + 25), 1);
      }
      if (r.id == 0x0221) arrays++;
    }
    EXPECT_EQ(formulas, 4);
    EXPECT_EQ(arrays, 1);
    ExpectSameAfterReload(version);
  }
}

TEST_F(BiffWriteTest, LongTextsCrossContinueRecords) {
  std::u16string narrow, wide;
  for (int i = 0; i < 10000; i++) narrow += static_cast<char16_t>(u'a' + i % 26);
  for (int i = 0; i < 9000; i++) wide += static_cast<char16_t>(i % 3 ? u'é' : u'Ж');
  Type(narrow.c_str(), 0, 0);
  Type(wide.c_str(), 1, 0);
  Type(u"court", 2, 0);
  Type(u"court", 2, 1);
  Type(u"=A1", 3, 0);  // a long text result: STRING goes on in CONTINUE
  Build(8);
  int continues = 0;
  for (const Record& r : Records(bytes, size)) {
    EXPECT_LE(r.body.size(), 8224u);
    continues += r.id == 0x003C;
  }
  EXPECT_GE(continues, 4);
  ExpectSameAfterReload(8);
  // Excel 95 holds 255 characters a cell; the wide text's Cyrillic letters are not in 1252.
  ExpectSameAfterReload(7, {{"text narrowed or cut to 255 characters", 3}});
  EXPECT_EQ(report.textsShortened, 3u);
}

TEST_F(BiffWriteTest, SharedStringsAreCountedOnce) {
  for (uint16_t r = 0; r < 100; r++) Type(r % 2 ? u"pair" : u"impair", r, 0);
  Build(8);
  for (const Record& r : Records(bytes, size))
    if (r.id == 0x00FC) {
      EXPECT_EQ(ReadU32(r.body.data()), 100u);
      EXPECT_EQ(ReadU32(r.body.data() + 4), 2u);
    }
}

TEST_F(BiffWriteTest, EveryCellKindNamesAndLinksSurviveBothVersions) {
  AddSheet(u"Données");
  AddSheet(u"Fin");
  Type(u"1,5", 0, 0);
  Type(u"100", 0, 1);
  Type(u"0,01", 0, 2);
  Type(u"1,1", 0, 3);
  Type(u"-123456789012", 0, 4);
  Type(u"VRAI", 1, 0);
  Type(u"=1/0", 1, 1);
  Type(u"=SI(A1>1;\"grand\";\"petit\")", 1, 2);
  Type(u"=CHOISIR(2;A1;B1;C1)", 1, 3);
  Type(u"=SOMME(Données:Fin!A1:B2)+Données!C3", 1, 4);
  Type(u"=SOMME({1\\2;3\\4})", 1, 5);
  Type(u"=Taux*2", 1, 6);
  Type(u"=NBVAL(A:A)", 1, 7);
  Type(u"texte", 2, 0);
  Type(u"=\"\"", 2, 1);
  Type(u"=ESTVIDE(Z99)", 2, 2);
  Type(u"12/03/2024", 3, 0);
  Type(u"45 %", 3, 1);
  Type(u"=A1", 70, 0);  // past the first block of 32 rows
  Type(u"7", 40000, 3);
  Type(u"=D40001+Fin!B2", 5, 5);
  Type(u"2", 1, 1, 2);
  Name(u"Taux", u"=Données!$A$1");
  Name(u"Zone", u"=Fin!$A$1:$B$4", 2);
  Sheet* s = GetSheet(book, 0);
  RowColInfo tall{RowHeightByHand, 600, DefaultCellXf};
  ASSERT_TRUE(SetRowRecord(&s->rows, 5, &tall));
  RowColInfo wide{0, 5000, DefaultCellXf};
  ASSERT_TRUE(SetColumnRecord(&s->columns, 2, &wide));
  ASSERT_TRUE(SetColumnRecord(&s->columns, 3, &wide));
  s->merges = static_cast<Range*>(Allocate(sizeof(Range)));
  s->merges[0] = Range{10, 11, 0, 3};
  s->mergeCount = 1;
  s->flags |= SheetPanesFrozen;
  s->frozenRow = 2;
  s->frozenCol = 1;
  ExpectSameAfterReload(8);
  EXPECT_EQ(GetSheet(App.workbookCount - 1, 0)->frozenRow, 2);
  EXPECT_EQ(GetSheet(App.workbookCount - 1, 0)->frozenCol, 1);
  ExpectSameAfterReload(7, {{"merged areas", 1},
                            {"cell past row 16384", 1},
                            {"formula reaching past row 16384 kept as its value", 1},
                            {"whole column ends at row 16384", 1}});
  EXPECT_EQ(report.formulasAsValues, 1u);
  EXPECT_EQ(report.mergesDropped, 1u);
  EXPECT_EQ(report.cellsDropped, 1u);
}

TEST_F(BiffWriteTest, XlsSavesThroughTheFileTable) {
  Type(u"42", 0, 0);
  Type(u"=A1*2", 0, 1);
  std::string path = testing::TempDir() + "biff_write_test.xls";
  std::u16string path16 = Utf8ToU16(path);
  for (uint8_t version : {7, 8}) {
    GetWorkbook(book)->biffVersion = version;
    ASSERT_TRUE(SaveWorkbookFile(book, path16.c_str(), 0));
    LoadReport loaded;
    ASSERT_TRUE(LoadWorkbookFile(path16.c_str(), nullptr, &loaded));
    EXPECT_EQ(GetWorkbook(loaded.book)->biffVersion, version);
    WorkbookDifferences d;
    CompareWorkbooks(book, loaded.book, version == 7, &d);
    EXPECT_EQ(d.differences, 0);
    CloseWorkbook(loaded.book);
  }
  std::remove(path.c_str());
}

TEST_F(BiffWriteTest, AFailedSaveLeavesTheOldFile) {
  Type(u"1", 0, 0);
  std::string folder = testing::TempDir() + "no-such-folder/x.xls";
  EXPECT_FALSE(SaveWorkbookFile(book, Utf8ToU16(folder).c_str(), 0));
  ASSERT_NE(LastMessage(), nullptr);
}

}  // namespace
