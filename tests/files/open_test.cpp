// Tests of the open and save dispatch: file types by name, the refusals and their messages, the
// sheet named after the file, and a save that replaces the file.
#include "files/open.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "base/message.h"
#include "base/text.h"
#include "format/locale.h"
#include "model/workbook.h"

namespace {

TEST(FileTypeTest, TypeFromTheLastThreeLetters) {
  struct Case {
    const char16_t* name;
    FileType type;
  } cases[] = {
      {u"FOO.XLS", FileXls},    {u"foo.XLT", FileXlt},    {u"/a/b.c/d.csv", FileCsv},
      {u"a.txt", FileTxt},      {u"b.pxt", FilePxt},      {u"c.pxl", FilePxl},
      {u"d.bmp", FileBmp},      {u"a.xl", FileUnknown},   {u".xls", FileUnknown},
      {u"a.xlsx", FileUnknown}, {u"readme", FileUnknown}, {u"a.doc", FileUnknown},
  };
  for (const Case& c : cases) EXPECT_EQ(FileTypeFromName(c.name), c.type) << TextToUtf8(c.name);
}

struct OpenTest : testing::Test {
  std::string folder;
  void SetUp() override {
    CloseAllWorkbooks();
    ApplyLocale(LocaleFrench);
    ClearLastMessage();
    char pattern[] = "/tmp/tessarel-open-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    folder = pattern;
  }
  void TearDown() override {
    CloseAllWorkbooks();
    std::string command = "rm -rf '" + folder + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
  }
  std::u16string PathOf(const std::string& leaf, const std::string& bytes = "", bool make = false) {
    std::string path = folder + "/" + leaf;
    if (make) {
      FILE* file = std::fopen(path.c_str(), "wb");
      std::fwrite(bytes.data(), 1, bytes.size(), file);
      std::fclose(file);
    }
    return Utf8ToU16(path);
  }
  std::string Contents(const std::u16string& path) {
    FILE* file = std::fopen(TextToUtf8(path.c_str()).c_str(), "rb");
    std::string out;
    for (int c; file && (c = std::fgetc(file)) != EOF;) out += static_cast<char>(c);
    if (file) std::fclose(file);
    return out;
  }
};

TEST_F(OpenTest, RefusalsSayWhy) {
  struct Case {
    std::u16string path;
    const char* message;  // null: refused without a word
  } cases[] = {
      {PathOf("a.doc", "x", true), "Le type du fichier n'est pas reconnu"},
      {PathOf("absent.csv"), "Unable to open input file\n"},
      {PathOf("book.xls", "x", true), "Workbook not found in file"},
      {PathOf("book.xlt", "not a compound file", true), "Workbook not found in file"},
      {PathOf("book.pxt", "/", true), "Le fichier est protégé par un mot de passe"},
      {PathOf("image.bmp", "x", true), nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(TextToUtf8(c.path.c_str()));
    ClearLastMessage();
    LoadReport report;
    EXPECT_FALSE(LoadWorkbookFile(c.path.c_str(), nullptr, &report));
    if (!c.message) {
      EXPECT_EQ(LastMessage(), nullptr);
      continue;
    }
    ASSERT_NE(LastMessage(), nullptr);
    EXPECT_EQ(TextToUtf8(LastMessage()).rfind(c.message, 0), 0u) << TextToUtf8(LastMessage());
  }
}

TEST_F(OpenTest, TheSheetIsNamedAfterTheFile) {
  struct Case {
    const char* leaf;
    const char* sheet;
  } cases[] = {
      {"ventes.2024.csv", "ventes.2024"},
      {"un nom de fichier bien trop long pour une feuille.txt", "un nom de fichier bien trop lon"},
      {"a.b.un nom de fichier bien trop long.csv", "a.b"},
  };
  for (const Case& c : cases) {
    std::u16string path = PathOf(c.leaf, "1;2\r\n", true);
    LoadReport report;
    ASSERT_TRUE(LoadWorkbookFile(path.c_str(), nullptr, &report)) << c.leaf;
    const Workbook* wb = GetWorkbook(report.book);
    EXPECT_EQ(TextToUtf8(wb->sheets[0]->name), c.sheet);
    EXPECT_EQ(TextToUtf8(wb->path), TextToUtf8(path.c_str()));
    EXPECT_EQ(wb->dirty, 0);
    EXPECT_EQ(App.currentBook, report.book);
  }
}

TEST_F(OpenTest, AFreshLoadIsChangedOnlyByVolatileFormulas) {
  struct Case {
    const char* bytes;
    int dirty;
  } cases[] = {
      {"1;=A1*2\r\n", 0},
      {"1;=ALEA()\r\n", 1},
      {"1;=A1+ALEA()*0\r\n", 1},
  };
  for (const Case& c : cases) {
    std::u16string path = PathOf("vol.csv", c.bytes, true);
    LoadReport report;
    ASSERT_TRUE(LoadWorkbookFile(path.c_str(), nullptr, &report)) << c.bytes;
    EXPECT_EQ(GetWorkbook(report.book)->dirty, c.dirty) << c.bytes;
  }
}

TEST_F(OpenTest, SaveReplacesTheFileAndAsksAboutOtherSheets) {
  std::u16string source = PathOf("in.txt", "a\tb\r\n\r\n1,5\r\n", true);
  LoadReport report;
  ASSERT_TRUE(LoadWorkbookFile(source.c_str(), nullptr, &report));
  std::u16string target = PathOf("out.csv", "old contents", true);
  GetWorkbook(report.book)->dirty = 1;
  ASSERT_TRUE(SaveWorkbookFile(report.book, target.c_str(), 1));
  EXPECT_EQ(Contents(target), "a;b\r\n;\r\n1,5;\r\n");
  EXPECT_EQ(GetWorkbook(report.book)->dirty, 0);
  EXPECT_EQ(LastMessage(), nullptr);

  // With a second sheet, a csv save asks first; the answer Cancel leaves the file alone.
  ASSERT_TRUE(InsertSheet(report.book, 1, nullptr, SheetWorksheet, 0, 0));
  GetWorkbook(report.book)->currentSheet = 0;
  SetMessageHook([](const char16_t*, const char16_t*, uint32_t) { return int32_t{AnswerCancel}; });
  EXPECT_FALSE(SaveWorkbookFile(report.book, PathOf("other.txt").c_str(), 1));
  SetMessageHook(nullptr);
  EXPECT_EQ(Contents(PathOf("other.txt")), "");
  EXPECT_TRUE(SaveWorkbookFile(report.book, PathOf("other.txt").c_str(), 0));
  EXPECT_EQ(Contents(PathOf("other.txt")), "a\tb\r\n\r\n1,5\r\n");
}

}  // namespace
