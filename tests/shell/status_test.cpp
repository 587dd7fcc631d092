// The status bar's panes on the memory platform: the aggregate of the selection under each
// function, its menu, the cell name, and the End mode mark.
#include "shell/status.h"
#include "shell/commands.h"
#include "shell/frame.h"
#include "shell/open_save.h"
#include "shell/select.h"
#include "shell_fixture.h"

class StatusTest : public ShellTest {
 protected:
  void SetUp() override {
    ShellTest::SetUp();
    Options.statusBarVisible = 1;
    // B2:B6 holds two numbers, a text, a formula and a blank; J10 lies outside every selection.
    PutNumber(1, 1, 1250.5);
    PutNumber(2, 1, 1410);
    PutText(3, 1, u"texte");
    SelectCell(4, 1, 1);
    Type(u"=B2*2");
    Enter();
    PutNumber(9, 9, -3);
  }
  void Choose(const Range& r) { SelectRange(&r, 1, r.firstRow, r.firstCol, 0); }
  std::u16string Pane(int32_t part) { return TestState.statusTexts[part]; }
  void Send(PlatformEventKind kind, int32_t key = 0) {
    PlatformEvent e{};
    e.kind = kind;
    e.target = TargetGrid;
    e.key = key;
    FrameHandleEvent(&e);
  }
};

TEST_F(StatusTest, AggregateOfTheSelection) {
  const Range column{1, 5, 1, 1};
  struct Case {
    int32_t function;
    Range selection;
    const char16_t* shown;
  };
  const Case cases[] = {
      {StatusSum, column, u"Somme=5161,5"},  // the formula's 2501 counts, the text does not
      {StatusMean, column, u"Moyenne=1720,5"},
      {StatusCount, column, u"Nombre=4"},  // text and formula count, the blank does not
      {StatusCountNumbers, column, u"Nombre val=3"},
      {StatusMax, column, u"Max=2501"},
      {StatusMin, column, u"Min=1250,5"},
      {StatusNone, column, u""},
      {StatusSum, Range{1, 1, 1, 1}, u""},  // one number is not an aggregate
      {StatusCount, Range{3, 10, 1, 1}, u"Nombre=2"},
      {StatusSum, Range{3, 3, 0, 255}, u""},                // only text
      {StatusSum, Range{0, 65535, 1, 1}, u"Somme=5161,5"},  // a whole column walks stored cells
      {StatusMin, Range{0, 20, 0, 20}, u"Min=-3"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "function " << c.function << " rows " << c.selection.firstRow
                                    << "-" << c.selection.lastRow);
    Options.statusFunction = c.function;
    Choose(c.selection);
    EXPECT_EQ(Pane(PaneAggregate), c.shown);
  }
  // A sum past the largest double shows nothing; the running mean of the same stays finite.
  PutNumber(20, 0, 1e308);
  PutNumber(21, 0, 1e308);
  Options.statusFunction = StatusSum;
  Choose(Range{20, 21, 0, 0});
  EXPECT_EQ(Pane(PaneAggregate), u"");
  Options.statusFunction = StatusMean;
  Choose(Range{20, 21, 0, 0});
  EXPECT_EQ(Pane(PaneAggregate).rfind(u"Moyenne=1", 0), 0u) << TextToUtf8(Pane(1).c_str());
}

TEST_F(StatusTest, AggregateFollowsEntriesAndItsMenu) {
  Options.statusFunction = StatusSum;
  Choose(Range{1, 5, 1, 1});
  SelectRange(&S()->selection, 1, 5, 1, 0);
  Type(u"100");
  Enter();
  EXPECT_EQ(Pane(PaneAggregate), u"Somme=5261,5") << "an entry in the selection counts at once";

  TestState.popupAnswers.push_back(4);  // "Max"
  Send(EventStatusBarPressed);
  ASSERT_EQ(TestState.popupTexts.size(), 7u);
  EXPECT_EQ(TestState.popupTexts[0], u"Aucun");
  EXPECT_EQ(TestState.popupTexts[6], u"Somme");
  EXPECT_EQ(TestState.popupChecked, 6);
  EXPECT_EQ(Options.statusFunction, StatusMax);
  EXPECT_EQ(Pane(PaneAggregate), u"Max=2501");
  TestState.popupAnswers.push_back(-1);  // dismissed: nothing changes
  Send(EventStatusBarPressed);
  EXPECT_EQ(Options.statusFunction, StatusMax);
}

TEST_F(StatusTest, CellNameAndEndMark) {
  SelectCell(4, 2, 1);
  EXPECT_EQ(Pane(PaneCellName), u"C5");
  Send(EventKeyDown, KeyEnd);
  EXPECT_EQ(Pane(PaneEnd), u"FIN");
  Send(EventKeyDown, KeyLeft);
  EXPECT_EQ(Pane(PaneEnd), u"") << "the End move is done";
  EXPECT_EQ(Pane(PaneCellName), u"B5");

  // Hidden, the bar is not written; shown again, every pane is.
  DispatchCommand(CmdStatusBar);
  EXPECT_EQ(Options.statusBarVisible, 0);
  TestState.statusTexts.clear();
  SelectCell(0, 0, 1);
  EXPECT_TRUE(TestState.statusTexts.empty());
  DispatchCommand(CmdStatusBar);
  EXPECT_EQ(Pane(PaneCellName), u"A1");
  EXPECT_EQ(TestState.statusTexts.count(PaneAggregate), 1u);
  EXPECT_EQ(Pane(PaneEnd), u"");

  // Closing a workbook ends End mode before its save question, even when the close is cancelled.
  Send(EventKeyDown, KeyEnd);
  EXPECT_EQ(Pane(PaneEnd), u"FIN");
  GetWorkbook(book)->dirty = 1;
  ExpectBox(u"?", IdCancel);
  EXPECT_FALSE(CloseCurrentWorkbook());
  EXPECT_EQ(Options.endMode, 0);
  EXPECT_EQ(Pane(PaneEnd), u"");
}
