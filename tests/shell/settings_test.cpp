// Tests of the kept settings: the recent file list's order, and the band layout read back from a
// settings file with the defaults where a value is missing, empty or negative.
#include "shell/settings.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "base/text.h"
#include "files/profile.h"
#include "platform/platform.h"

namespace {

std::u16string gFile;

int32_t FileRead(const char16_t* section, const char16_t* key, char16_t* out, int32_t capacity) {
  return ReadProfileValue(section, key, out, static_cast<uint32_t>(capacity), gFile.c_str());
}
void FileWrite(const char16_t* section, const char16_t* key, const char16_t* value) {
  WriteProfileString(section, key, value, gFile.c_str());
}
void FileFlush() {}

struct SettingsTest : testing::Test {
  Platform platform{};
  const Platform* saved = gPlatform;
  std::string file;
  void SetUp() override {
    char pattern[] = "/tmp/tessarel-settings-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    file = std::string(pattern) + "/Tessarel.ini";
    gFile = Utf8ToU16(file);
    std::ofstream(file, std::ios::binary) << "";
    platform.settingsRead = FileRead;
    platform.settingsWrite = FileWrite;
    platform.settingsFlush = FileFlush;
    SetPlatform(&platform);
    FreeRecentFiles();
  }
  void TearDown() override {
    FreeRecentFiles();
    SetPlatform(saved);
    std::remove(file.c_str());
    rmdir(file.substr(0, file.rfind('/')).c_str());
  }
  static std::vector<std::string> List() {
    std::vector<std::string> names;
    for (const char16_t* name : Recent.names) names.push_back(name ? TextToUtf8(name) : "-");
    return names;
  }
};

TEST_F(SettingsTest, RecentFilesKeepNewestFirst) {
  for (const char16_t* name : {u"a", u"b", u"c"}) NoteRecentFile(name);
  EXPECT_EQ(List(), (std::vector<std::string>{"c", "b", "a", "-", "-", "-", "-", "-", "-"}));
  NoteRecentFile(u"A");  // the third comes first, case ignored; the name keeps its first spelling
  EXPECT_EQ(List(), (std::vector<std::string>{"a", "c", "b", "-", "-", "-", "-", "-", "-"}));
  NoteRecentFile(u"a");
  EXPECT_EQ(List()[0], "a");
  for (const char16_t* name : {u"4", u"5", u"6", u"7", u"8", u"9", u"10"}) NoteRecentFile(name);
  EXPECT_EQ(List(), (std::vector<std::string>{"10", "9", "8", "7", "6", "5", "4", "a", "c"}));
  RemoveRecentFile(1);
  RemoveRecentFile(8);  // an empty slot: nothing happens
  EXPECT_EQ(List(), (std::vector<std::string>{"10", "8", "7", "6", "5", "4", "a", "c", "-"}));

  WriteRecentFiles();
  FreeRecentFiles();
  ReadRecentFiles();
  EXPECT_EQ(List(), (std::vector<std::string>{"10", "8", "7", "6", "5", "4", "a", "c", "-"}));
}

TEST_F(SettingsTest, BarLayoutTakesDefaultsForMissingEmptyOrNegativeValues) {
  std::ofstream(file, std::ios::binary)
      << "[Options]\r\nStdIndex=-1\r\nFmlIndex=\r\nFmtIndex=1\r\nFmtStyle=393\r\nStdCx=300\r\n"
         "StsBarFunc=2\r\n";
  BarLayout layout;
  ReadBarLayout(&layout, 640);
  const int32_t expected[4][3] = {{0, 256, 640}, {1, 129, 300}, {2, 133, 640}, {1, 393, 640}};
  for (int band = 0; band < 4; band++) {
    EXPECT_EQ(layout.bands[band].index, expected[band][0]) << band;
    EXPECT_EQ(layout.bands[band].style, expected[band][1]) << band;
    EXPECT_EQ(layout.bands[band].cx, expected[band][2]) << band;
  }
  EXPECT_EQ(layout.statusBarVisible, 1);
  EXPECT_EQ(layout.statusFunction, 2);

  layout.bands[BandFormula].style |= BandHidden;
  layout.statusBarVisible = 0;
  WriteBarLayout(&layout);
  BarLayout again;
  ReadBarLayout(&again, 10);
  EXPECT_EQ(again.bands[BandFormula].style, 133 | BandHidden);
  EXPECT_EQ(again.bands[BandMenu].cx, 640);
  EXPECT_EQ(again.statusBarVisible, 0);
}

}  // namespace
