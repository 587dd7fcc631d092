// Tests of the settings file scanner: what a read finds in hand-written files, and how a series
// of writes grows and rewrites a file.
#include "files/profile.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "base/text.h"

namespace {

struct ProfileTest : testing::Test {
  std::string file;
  std::u16string path;
  void SetUp() override {
    char pattern[] = "/tmp/tessarel-profile-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    file = std::string(pattern) + "/Tessarel.ini";
    path = Utf8ToU16(file);
  }
  void TearDown() override {
    std::remove(file.c_str());
    rmdir(file.substr(0, file.rfind('/')).c_str());
  }
  void Put(const std::string& bytes) { std::ofstream(file, std::ios::binary) << bytes; }
  std::string Bytes() {
    std::ifstream in(file, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  std::string Read(const char16_t* section, const char16_t* key) {
    char16_t out[64];
    const int32_t n = ReadProfileValue(section, key, out, 64, path.c_str());
    return n < 0 ? "<absent>" : TextToUtf8(out);
  }
};

TEST_F(ProfileTest, ReadsWhatHandWrittenFilesSay) {
  struct Case {
    const char* file;
    const char16_t* section;
    const char16_t* key;
    const char* value;
  } cases[] = {
      {"[Options]\r\nStdIndex=2\r\n", u"Options", u"StdIndex", "2"},
      {"[options]\nstdindex=2\n", u"Options", u"StdIndex", "2"},  // case and lone LF
      {"[Options]\r\nA=1\r\n[Other]\r\nB=2\r\n", u"Options", u"B", "<absent>"},
      {"[Other]\r\nA=1\r\n[Options]\r\nA=3", u"Options", u"A", "3"},  // no final line end
      {"; [Options]\r\nA=1\r\n", u"Options", u"A", "<absent>"},       // a comment line
      {"[Options]\r\n;A=1\r\nA=2\r\n", u"Options", u"A", "2"},
      {"[Options]\r\nA=;comment\r\n", u"Options", u"A", ""},
      {"[Options]\r\nA= x y;z\r\n", u"Options", u"A", " x y"},  // a leading blank is kept
      {"[Options]\r\n  A=5\r\n", u"Options", u"A", "5"},        // blanks before a key
      {"[Recent files]\r\nFile1=/a/b c.xls\r\n", u"Recent files", u"File1", "/a/b c.xls"},
      {"[Options]\r\nA=1\r\n", u"Options", u"AB", "<absent>"},
      {"", u"Options", u"A", "<absent>"},
  };
  for (const Case& c : cases) {
    Put(c.file);
    EXPECT_EQ(Read(c.section, c.key), c.value) << c.file;
  }
  std::remove(file.c_str());
  EXPECT_EQ(Read(u"Options", u"A"), "<absent>");
}

TEST_F(ProfileTest, ListsTheKeysOfASection) {
  Put("[A]\r\nx=1\r\n[B]\r\nFirst=1\r\nSecond = 2\r\n[C]\r\ny=3\r\n");
  char16_t out[64];
  const int32_t n = ReadProfileValue(u"b", nullptr, out, 64, path.c_str());
  EXPECT_EQ(std::u16string(out, n), std::u16string(u"First\0Second \0", 14));
}

TEST_F(ProfileTest, WritesGrowAndRewriteTheFile) {
  struct Step {
    const char16_t* section;
    const char16_t* key;
    const char16_t* value;
    const char* after;
  } steps[] = {
      {u"Options", u"StdIndex", u"1", "[Options]\r\nStdIndex=1\r\n"},
      {u"Options", u"FmlIndex", u"2", "[Options]\r\nStdIndex=1\r\nFmlIndex=2\r\n"},
      {u"Recent files", u"File1", u"/t/a.xls",
       "[Options]\r\nStdIndex=1\r\nFmlIndex=2\r\n[Recent files]\r\nFile1=/t/a.xls\r\n"},
      {u"options", u"stdindex", u"12",
       "[Options]\r\nStdIndex=12\r\nFmlIndex=2\r\n[Recent files]\r\nFile1=/t/a.xls\r\n"},
      {u"Options", u"StsBarShow", u"0",
       "[Options]\r\nStdIndex=12\r\nFmlIndex=2\r\nStsBarShow=0\r\n[Recent files]\r\n"
       "File1=/t/a.xls\r\n"},
      {u"Recent files", u"File1", u"",
       "[Options]\r\nStdIndex=12\r\nFmlIndex=2\r\nStsBarShow=0\r\n"
       "[Recent files]\r\nFile1=\r\n"},
  };
  Put("");
  for (const Step& s : steps) {
    ASSERT_TRUE(WriteProfileString(s.section, s.key, s.value, path.c_str()));
    EXPECT_EQ(Bytes(), s.after) << TextToUtf8(s.key);
  }
  ASSERT_TRUE(RemoveProfileSection(u"Options", path.c_str()));
  EXPECT_EQ(Bytes(), "[Recent files]\r\nFile1=\r\n");
}

TEST_F(ProfileTest, KeepsCommentsAndAddsToAFileWithoutAFinalLineEnd) {
  Put("; kept\n[Options]\nA=1 ; note");
  ASSERT_TRUE(WriteProfileString(u"Options", u"A", u"7", path.c_str()));
  ASSERT_TRUE(WriteProfileString(u"Options", u"B", u"8", path.c_str()));
  EXPECT_EQ(Bytes(), "; kept\r\n[Options]\r\nA=7; note\r\nB=8\r\n");
  std::remove(file.c_str());
  EXPECT_FALSE(WriteProfileString(u"Options", u"A", u"1", path.c_str()));
}

}  // namespace
