// Tests of the frame and of open and save as the user meets them, on the memory platform: the
// command line, the first workbook giving way, the Save As names and questions, closing with
// questions, the hand-over, the recent files in the menu and the band toggles.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <deque>
#include <fstream>
#include <sstream>
#include <string>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "edit/entry.h"
#include "format/locale.h"
#include "model/undo.h"
#include "model/workbook.h"
#include "shell/commands.h"
#include "shell/frame.h"
#include "shell/open_save.h"
#include "shell/test_platform.h"
#include "shell/view.h"

namespace {

// What the file chooser answers: the path typed and the filter left selected; and what it was
// shown.
struct ChooserTurn {
  std::u16string path;
  int32_t filter;
};
std::deque<ChooserTurn> gChooser;
std::vector<std::u16string> gProposed;
std::vector<int32_t> gFilterShown;
int32_t gClaim = 1;
std::vector<std::u16string> gSent;

int32_t ScriptedChooser(FileChooser* c) {
  gProposed.push_back(c->path);
  gFilterShown.push_back(c->filterIndex);
  if (gChooser.empty()) return 0;
  const ChooserTurn turn = gChooser.front();
  gChooser.pop_front();
  TextCopy(c->path, size_t(c->pathCapacity), turn.path.c_str());
  c->filterIndex = turn.filter;
  return 1;
}
int32_t Claim(const char*) {
  return gClaim;
}
int32_t Send(const char*, const char16_t* text) {
  gSent.push_back(text);
  return 1;
}
int32_t Ask(const char16_t* text, const char16_t* caption, uint32_t flags) {
  return gPlatform->messageBox(text, caption, flags);
}

struct FrameTest : testing::Test {
  Platform platform{};
  std::string dir;

  void SetUp() override {
    InstallTestPlatform();
    platform = *gPlatform;
    platform.chooseFile = ScriptedChooser;
    platform.instanceClaim = Claim;
    platform.instanceSend = Send;
    SetPlatform(&platform);
    SetMessageHook(Ask);
    ApplyLocale(LocaleFrench);
    CloseAllWorkbooks();
    Options = AppOptions{};
    gChooser.clear();
    gProposed.clear();
    gFilterShown.clear();
    gSent.clear();
    gClaim = 1;
    char pattern[] = "/tmp/tessarel-frame-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
  }
  void TearDown() override {
    FrameStop(0);
    SetMessageHook(nullptr);
    CheckBoxesShown();
    EXPECT_TRUE(gChooser.empty()) << "a chooser answer was not used";
    std::system(("rm -rf " + dir).c_str());
  }
  std::u16string Path(const char* name) { return Utf8ToU16(dir + "/" + name); }
  void Put(const char* name, const std::string& bytes) {
    std::ofstream(dir + "/" + name, std::ios::binary) << bytes;
  }
  std::string Bytes(const char* name) {
    std::ifstream in(dir + "/" + name, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  bool Exists(const char* name) { return access((dir + "/" + name).c_str(), F_OK) == 0; }
  std::string Caption() { return TextToUtf8(TestState.caption.c_str()); }
  void Start() { ASSERT_TRUE(FrameStart(nullptr)); }
  // Types 5 into A1 of the current workbook, which marks it changed.
  void PutEntry() {
    EntryTarget target{App.currentBook, 0, Range{0, 0, 0, 0}, 0, 0, 0, 0, 0};
    EntryStatus status;
    ASSERT_TRUE(StoreEntry(u"5", &target, &status));
  }
};

TEST_F(FrameTest, CommandLineOpensTheFileItNames) {
  Put("a.csv", "1;2\r\n");
  struct Case {
    std::string line;
    bool opens;
  } cases[] = {
      {dir + "/a.csv", true},
      {"\"" + dir + "/a.csv\"", true},
      {dir + "/a.csv trailing words", true},  // the extension is cut to three letters
      {dir + "/missing.csv", false},
  };
  for (const Case& c : cases) {
    CloseAllWorkbooks();
    ASSERT_TRUE(NewDefaultWorkbook());
    EXPECT_EQ(OpenFromCommandLine(Utf8ToU16(c.line).c_str()), c.opens ? 1 : 0) << c.line;
    EXPECT_EQ(Caption(), c.opens ? "Tessarel - a.csv" : "Tessarel - Classeur1") << c.line;
  }
}

TEST_F(FrameTest, AnUntouchedFirstWorkbookGivesWay) {
  Put("a.csv", "1\r\n");
  struct Case {
    const char16_t* name;
    bool dirty;
    uint32_t books;
  } cases[] = {
      {u"Classeur1", false, 1},
      {u"Classeur1", true, 2},
      {u"classeur1", false, 2},  // the name must match exactly
      {u"Classeur2", false, 2},
  };
  for (const Case& c : cases) {
    CloseAllWorkbooks();
    uint32_t book;
    ASSERT_TRUE(CreateWorkbook(c.name, 0, &book));
    GetWorkbook(book)->dirty = c.dirty;
    ASSERT_TRUE(OpenFile(Path("a.csv").c_str(), 1));
    EXPECT_EQ(App.workbookCount, c.books) << TextToUtf8(c.name);
  }
  // The same leaf name in another folder is the open workbook: made current, not read again.
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, nullptr));
  const uint32_t before = App.workbookCount;
  EXPECT_TRUE(OpenFile(u"/elsewhere/A.CSV", 1));
  EXPECT_EQ(App.workbookCount, before);
  EXPECT_EQ(Caption(), "Tessarel - a.csv");
}

TEST_F(FrameTest, SaveAsTakesTheTypeFromTheFilter) {
  struct Case {
    const char* typed;
    int32_t filter;
    const char* written;
  } cases[] = {
      {"report.dat", 4, "report.csv"},
      {"notes.csv...", 5, "notes.txt"},
      {"plain", 4, "plain.csv"},
  };
  Start();
  for (const Case& c : cases) {
    gChooser.push_back({Path(c.typed), c.filter});
    ASSERT_TRUE(DispatchCommand(CmdSaveAs));
    EXPECT_TRUE(Exists(c.written)) << c.typed;
    EXPECT_EQ(Caption(), std::string("Tessarel - ") + c.written);
  }
  // The dialog proposes the current name with the extension of its type's filter.
  EXPECT_EQ(TextToUtf8(gProposed[0].c_str()), "Classeur1.xls");
  EXPECT_EQ(gFilterShown[0], 1);
  EXPECT_EQ(TextToUtf8(gProposed[2].c_str()), dir + "/notes.txt");
  EXPECT_EQ(gFilterShown[2], 5);
  // Every name saved is in the recent files, newest first.
  ASSERT_GE(TestState.menuTexts.size(), 7u);
  EXPECT_EQ(TextToUtf8(TestState.menuTexts[4].c_str()), "&1 " + dir + "/plain.csv");
}

TEST_F(FrameTest, SaveAsAsksBeforeReplacingAndRefusesANameInUse) {
  Put("kept.csv", "old\r\n");
  Start();
  PutEntry();
  // No to the replace question shows the dialog again; the second name is new.
  gChooser.push_back({Path("kept.csv"), 4});
  gChooser.push_back({Path("new.csv"), 4});
  ExpectBox(u"Fichier existe déjà", IdNo);
  ASSERT_TRUE(DispatchCommand(CmdSaveAs));
  EXPECT_EQ(Bytes("kept.csv"), "old\r\n");
  EXPECT_EQ(Bytes("new.csv"), "5\r\n");
  EXPECT_FALSE(GetWorkbook(App.currentBook)->dirty);

  // Another open workbook holds that leaf name.
  ASSERT_TRUE(NewDefaultWorkbook());
  gChooser.push_back({u"/other/folder/NEW.csv", 4});
  ExpectBox(u"Impossible d'enregistrer le fichier", IdOk);
  ASSERT_TRUE(DispatchCommand(CmdSaveAs));
  EXPECT_EQ(Caption(), "Tessarel - Classeur2");
}

TEST_F(FrameTest, ClosingAsksForEachChangedWorkbookAndStopsAtCancel) {
  Start();
  PutEntry();
  ASSERT_TRUE(NewDefaultWorkbook());
  PutEntry();
  ExpectBox(u"sous le nom de Classeur2?", IdNo);
  ExpectBox(u"sous le nom de Classeur1?", IdCancel);
  PlatformEvent close{};
  close.kind = EventClose;
  FrameHandleEvent(&close);
  EXPECT_EQ(App.workbookCount, 1u);
  EXPECT_EQ(Caption(), "Tessarel - Classeur1");
  EXPECT_EQ(TestState.quitCode, 0);

  // Yes to a never-saved workbook goes through Save As; a cancelled dialog keeps it open.
  ExpectBox(u"sous le nom de Classeur1?", IdYes);
  DispatchCommand(CmdClose);
  EXPECT_EQ(App.workbookCount, 1u);
  EXPECT_EQ(gProposed.size(), 1u);

  ExpectBox(u"sous le nom de Classeur1?", IdNo);
  TestState.quitCode = -1;
  DispatchCommand(CmdQuit);
  EXPECT_EQ(App.workbookCount, 0u);
  EXPECT_EQ(TestState.quitCode, 0);
  EXPECT_EQ(Caption(), "Tessarel");
}

TEST_F(FrameTest, TemplatesAreNeverOverwrittenByAPlainSave) {
  Put("model.xlt", "");
  Start();
  Workbook* wb = GetWorkbook(App.currentBook);
  Release(wb->path);
  wb->path = TextDuplicate(Path("model.xlt").c_str());
  gChooser.push_back({Path("copy.csv"), 4});
  DispatchCommand(CmdSave);
  EXPECT_EQ(gFilterShown.size(), 1u);
  EXPECT_TRUE(Exists("copy.csv"));
}

TEST_F(FrameTest, ASecondStartHandsItsFileOverAndTheFirstOpensIt) {
  gClaim = 0;
  EXPECT_EQ(FrameMain(u"/some/book.csv"), 0);
  EXPECT_EQ(App.workbookCount, 0u);
  ASSERT_EQ(gSent.size(), 1u);
  EXPECT_EQ(TextToUtf8(gSent[0].c_str()), "/some/book.csv");

  Put("b.csv", "7\r\n");
  Start();
  const std::u16string path = Path("b.csv");
  PlatformEvent handOver{};
  handOver.kind = EventHandOver;
  handOver.text = path.c_str();
  FrameHandleEvent(&handOver);
  EXPECT_EQ(Caption(), "Tessarel - b.csv");
  EXPECT_EQ(App.workbookCount, 1u);
}

TEST_F(FrameTest, BandTogglesShowAndHideTheirBands) {
  Start();
  struct Case {
    int32_t command;
    PlatformBand band;
  } cases[] = {
      {CmdStandardBar, BandStandardBar},
      {CmdFormatBar, BandFormatBar},
      {CmdFormulaBar, BandFormulaBar},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TestState.bandsShown[c.band], 1) << c.command;
    DispatchCommand(c.command);
    EXPECT_EQ(TestState.bandsShown[c.band], 0) << c.command;
  }
  const int32_t cellsBottom = View.cellsBottom;
  DispatchCommand(CmdStatusBar);
  EXPECT_EQ(View.cellsBottom, cellsBottom + 20);  // the status bar's height goes to the cells
  FrameStop(1);
  // Hidden bands are kept with bit 8 of their style.
  EXPECT_EQ(TextToUtf8(TestState.settings[u"Options/FmlStyle"].c_str()), "389");
  EXPECT_EQ(TextToUtf8(TestState.settings[u"Options/StsBarShow"].c_str()), "0");
}

}  // namespace
