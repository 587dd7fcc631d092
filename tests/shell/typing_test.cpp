// Typing into cells through the edit line, and moving about the grid with keys and presses.
#include "format/calendar.h"
#include "format/number_format.h"
#include "shell/events.h"
#include "shell/select.h"
#include "shell_fixture.h"

class TypingTest : public ShellTest {
 protected:
  void SetUp() override {
    ShellTest::SetUp();
    Select(0, 0, 0, 0);
  }
  Cell* At(uint32_t row, uint32_t col) { return CellAt(&S()->cells, row, col); }
  uint16_t FormatXf(uint16_t id) {
    return MakeXf(
        [&](Xf& x) { x.numberFormat = static_cast<uint16_t>(FindNumberFormatById(book, id)); });
  }
};

TEST_F(TypingTest, TypedEntriesAreStoredAndShownBack) {
  struct Case {
    const char16_t* typed;
    uint16_t formatId;  // of the cell before typing; 0 leaves the default
    uint16_t tag;
    double number;
    const char16_t* text;      // the stored text, for text values
    const char16_t* editLine;  // what the formula bar shows afterwards
  };
  const double date = DateToSerial(2026, 11, 24);
  const Case cases[] = {
      {u"12,5", 0, ValueNumber, 12.5, nullptr, u"12,5"},
      {u"24/11/2026", 0, ValueNumber, date, nullptr, u"24/11/26"},
      {u"15%", 0, ValueNumber, 0.15, nullptr, u"15%"},
      {u"5", 9, ValueNumber, 0.05, nullptr, u"5%"},  // a percent cell types percents
      {u"'123", 0, ValueText, 0, u"123", u"'123"},
      {u"-", 0, ValueText, 0, u"-", u"-"},
      {u"=2*3+1", 0, ValueNumber, 7, nullptr, u"=2*3+1"},
      {u"bonjour", 0, ValueText, 0, u"bonjour", u"bonjour"},
  };
  uint32_t row = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(TextToUtf8(c.typed));
    if (c.formatId) {
      Cell proto{};
      proto.row = static_cast<uint16_t>(row);
      proto.xf = FormatXf(c.formatId);
      ASSERT_TRUE(StoreCell(book, 0, &proto, 1, 0));
    }
    SelectCell(row, 0, 1);
    Type(c.typed);
    EXPECT_EQ(Options.editMode, 1);
    Enter();
    EXPECT_EQ(Options.editMode, 0);
    EXPECT_EQ(S()->activeRow, row + 1) << "Enter moves down";
    Cell* cell = At(row, 0);
    ASSERT_NE(cell, nullptr);
    ASSERT_TRUE(EnsureCellText(book, 0, cell));
    EXPECT_EQ(cell->value.tag, c.tag);
    if (c.tag == ValueNumber) {
      EXPECT_DOUBLE_EQ(cell->value.number, c.number);
    }
    if (c.text) {
      EXPECT_EQ(std::u16string(cell->value.text), c.text);
    }
    SelectCell(row, 0, 1);
    EXPECT_EQ(TestState.edit, c.editLine);
    row++;
  }
  EXPECT_TRUE(GetWorkbook(book)->dirty);
}

TEST_F(TypingTest, PercentCellPutsTheSignAfterTheCaret) {
  Cell proto{};
  proto.xf = FormatXf(9);
  ASSERT_TRUE(StoreCell(book, 0, &proto, 1, 0));
  Type(u"5");
  EXPECT_EQ(TestState.edit, u"5%");
  EXPECT_EQ(TestState.editStart, 1);
}

// A formula that does not compile is refused with a message; the text stays for correction.
TEST_F(TypingTest, BadFormulasAreRefusedAndKept) {
  PutNumber(0, 0, 4);
  const char16_t* cases[] = {u"=1+", u"=SOMME(", u"+)", u"=A1+*2"};
  for (const char16_t* typed : cases) {
    SCOPED_TRACE(TextToUtf8(typed));
    GetWorkbook(book)->dirty = 0;
    uint32_t undoBefore = UndoCount();
    SelectCell(0, 0, 1);
    Type(typed);
    ExpectBox(FormulaErrorMessage, IdOk);
    Enter();
    CheckBoxesShown();
    EXPECT_EQ(Options.editMode, 2);
    EXPECT_EQ(TestState.edit, typed);
    EXPECT_EQ(S()->activeRow, 0u);
    EXPECT_EQ(At(0, 0)->value.number, 4);
    EXPECT_EQ(UndoCount(), undoBefore);
    EXPECT_FALSE(GetWorkbook(book)->dirty);
    EditLineChar(27, 0);
  }
}

TEST_F(TypingTest, EscapeDropsTheTyping) {
  PutText(0, 0, u"avant");
  Type(u"après");
  EXPECT_EQ(TestState.edit, u"après");
  EditLineChar(27, 0);
  EXPECT_EQ(Options.editMode, 0);
  EXPECT_TRUE(TestState.gridFocused);
  EXPECT_EQ(TestState.edit, u"avant");
  EXPECT_EQ(std::u16string(At(0, 0)->value.text), u"avant");
}

TEST_F(TypingTest, UndoTakesEntriesBackOneByOne) {
  Type(u"7");
  Enter();
  SelectCell(0, 0, 1);
  Type(u"=A1*2");  // a formula into the cell it names: a circular entry is still stored
  EditLineChar(27, 0);
  Type(u"8");
  Enter();
  EXPECT_EQ(At(0, 0)->value.number, 8);
  // While editing, undo belongs to the edit line.
  SelectCell(0, 0, 1);
  Type(u"9");
  EXPECT_FALSE(UndoCommand());
  EditLineChar(27, 0);
  ASSERT_TRUE(UndoCommand());
  EXPECT_EQ(At(0, 0)->value.number, 7);
  EXPECT_EQ(TestState.edit, u"7");
  ASSERT_TRUE(UndoCommand());
  EXPECT_TRUE(At(0, 0) == nullptr || At(0, 0)->value.tag == ValueEmpty);
  EXPECT_FALSE(UndoCommand());
}

// Keys of the edit line by mode: arrows commit a typed entry and move, but move the caret
// while editing in the cell (F2).
TEST_F(TypingTest, ArrowsCommitTypedEntriesOnly) {
  Type(u"1");
  EXPECT_EQ(EditLineKeyDown(KeyRight, 0), 1);
  EXPECT_EQ(At(0, 0)->value.number, 1);
  EXPECT_EQ(S()->activeCol, 1);
  Type(u"2");
  EditLineKeyDown(KeyF2, 0);
  EXPECT_EQ(Options.editMode, 2);
  EXPECT_EQ(EditLineKeyDown(KeyRight, 0), 0) << "the control moves its caret";
  EXPECT_EQ(At(0, 1), nullptr);
  EditLineChar(u'\t', 0);
  EXPECT_EQ(At(0, 1)->value.number, 2);
  EXPECT_EQ(S()->activeCol, 2) << "Tab moves right";
}

TEST_F(TypingTest, EnterWalksTheSelection) {
  Select(0, 1, 0, 1);  // A1:B2, active A1
  const uint32_t expected[][2] = {{1, 0}, {0, 1}, {1, 1}, {0, 0}};
  for (const auto& e : expected) {
    Type(u"1");
    Enter();
    EXPECT_EQ(S()->activeRow, e[0]);
    EXPECT_EQ(S()->activeCol, e[1]);
    EXPECT_EQ(int{S()->selection.lastRow}, 1) << "the selection stays";
  }
}

TEST_F(TypingTest, LockedCellsRefuseEntry) {
  S()->flags |= SheetProtected;
  ExpectBox(ProtectedMessage, IdOk);
  Type(u"5");
  EXPECT_EQ(Options.editMode, 0);
  EXPECT_EQ(At(0, 0), nullptr);
}

// Pressing a cell while a formula waits for an operand writes the cell's reference.
TEST_F(TypingTest, PointingWritesTheReference) {
  Layout();
  Type(u"=1+");
  PlatformRect c3 = CellRect(2, 2);
  GridButtonDown(c3.left + 3, c3.top + 3, 0);
  EXPECT_EQ(TestState.edit, u"=1+C3");
  PlatformRect d4 = CellRect(3, 3);
  GridButtonDown(d4.left + 3, d4.top + 3, 0);
  EXPECT_EQ(TestState.edit, u"=1+D4") << "a second press replaces the reference";
  Enter();
  EXPECT_EQ(Options.editMode, 0);
  EXPECT_NE(At(0, 0)->formula.bytes, nullptr);
  // Where no operand may go, a press commits and selects.
  Type(u"texte");
  GridButtonDown(c3.left + 3, c3.top + 3, 0);
  EXPECT_EQ(std::u16string(At(1, 0)->value.text), u"texte");
  EXPECT_EQ(S()->activeRow, 2);
  EXPECT_EQ(S()->activeCol, 2);
}

using MoveTest = TypingTest;

TEST_F(MoveTest, ControlArrowsJumpToTheEdgesOfData) {
  PutNumber(2, 0, 1);
  PutNumber(3, 0, 2);
  PutNumber(4, 0, 3);
  const uint32_t down[] = {2, 4, MaxRow};
  for (uint32_t row : down) {
    GridKeyDown(KeyDown, ModControl);
    EXPECT_EQ(S()->activeRow, row);
  }
  const uint32_t up[] = {4, 2, 0};
  for (uint32_t row : up) {
    GridKeyDown(KeyUp, ModControl);
    EXPECT_EQ(S()->activeRow, row);
  }
  // End then an arrow is the same jump.
  GridKeyDown(KeyEnd, 0);
  EXPECT_EQ(Options.endMode, 1);
  GridKeyDown(KeyDown, 0);
  EXPECT_EQ(S()->activeRow, 2u);
  EXPECT_EQ(Options.endMode, 0);
}

TEST_F(MoveTest, ShiftArrowsGrowAndShrinkFromTheActiveCell) {
  Select(2, 2, 2, 2);  // C3
  struct Step {
    int32_t key;
    Range expect;
  };
  const Step steps[] = {
      {KeyDown, {2, 3, 2, 2}}, {KeyDown, {2, 4, 2, 2}}, {KeyUp, {2, 3, 2, 2}},
      {KeyUp, {2, 2, 2, 2}},   {KeyUp, {1, 2, 2, 2}},   {KeyRight, {1, 2, 2, 3}},
      {KeyLeft, {1, 2, 2, 2}}, {KeyLeft, {1, 2, 1, 2}},
  };
  for (const Step& s : steps) {
    GridKeyDown(s.key, ModShift);
    EXPECT_TRUE(EqualRanges(&S()->selection, &s.expect))
        << S()->selection.firstRow << "-" << S()->selection.lastRow << " "
        << int(S()->selection.firstCol) << "-" << int(S()->selection.lastCol);
    EXPECT_EQ(S()->activeRow, 2);
    EXPECT_EQ(S()->activeCol, 2);
  }
}

TEST_F(MoveTest, StepsSkipHiddenRowsAndLandOnMergedRanges) {
  SetRow(1, 255, RowColHidden);
  Sheet* s = S();
  s->merges = static_cast<Range*>(std::calloc(1, sizeof(Range)));
  s->merges[0] = Range{3, 4, 0, 1};  // A4:B5
  s->mergeCount = 1;
  Layout();
  GridKeyDown(KeyDown, 0);
  EXPECT_EQ(S()->activeRow, 2) << "row 2 is hidden";
  GridKeyDown(KeyDown, 0);
  EXPECT_EQ(S()->activeRow, 3);
  Range merged{3, 4, 0, 1};
  EXPECT_TRUE(EqualRanges(&S()->selection, &merged));
  GridKeyDown(KeyDown, 0);
  EXPECT_EQ(S()->activeRow, 5) << "the step leaves from the range's last row";
}

TEST_F(MoveTest, MovingPastTheWindowScrolls) {
  uint32_t lastInView = S()->bottomRow;
  SelectCell(lastInView - 1, 0, 1);
  EXPECT_EQ(S()->topRow, 0);
  for (int i = 0; i < 3; i++) GridKeyDown(KeyDown, 0);
  EXPECT_GT(S()->topRow, 0);
  PlatformRect r = CellRect(S()->activeRow, 0);
  EXPECT_LE(r.bottom, View.cellsBottom);
  GridKeyDown(KeyHome, ModControl);
  EXPECT_EQ(S()->topRow, 0);
  EXPECT_EQ(S()->activeRow, 0);
}

TEST_F(MoveTest, PressesSelectCellsHeadersAndSheets) {
  ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
  GetWorkbook(book)->currentSheet = 0;
  Layout();
  PlatformRect b3 = CellRect(2, 1);
  struct Case {
    int32_t x, y;
    uint32_t modifiers;
    Range selection;
  };
  const Case cases[] = {
      {b3.left + 5, b3.top + 5, 0, {2, 2, 1, 1}},
      {b3.left + 60, b3.top + 20, ModShift, {2, 3, 1, 2}},    // C4, extending from B3
      {b3.left + 5, View.gridTop + 3, 0, {0, MaxRow, 1, 1}},  // column B
      {5, b3.top + 5, 0, {2, 2, 0, MaxCol}},                  // row 3
      {5, View.gridTop + 3, 0, {0, MaxRow, 0, MaxCol}},       // the corner
  };
  for (const Case& c : cases) {
    GridButtonDown(c.x, c.y, c.modifiers);
    EXPECT_TRUE(EqualRanges(&S()->selection, &c.selection)) << c.x << "," << c.y;
  }
  // The second tab sits after the first: half the strip height of slant and the first's name.
  int32_t slant = (View.stripBottom - View.cellsBottom) / 2;
  int32_t firstName = static_cast<int32_t>(TextLength(S()->name)) * TestCharWidth;
  int32_t secondTab = View.tabsLeft + slant + firstName + slant + 3;
  GridButtonDown(secondTab, View.cellsBottom + 5, 0);
  EXPECT_EQ(GetWorkbook(book)->currentSheet, 1u);
}

// The same road through the event dispatcher, as the window system delivers it.
TEST_F(MoveTest, EventsReachTheGridAndTheEditLine) {
  auto send = [](PlatformEventKind kind, PlatformTarget target, int32_t key, char16_t ch) {
    PlatformEvent e{};
    e.kind = kind;
    e.target = target;
    e.key = key;
    e.ch = ch;
    return ShellGridEvent(&e);
  };
  EXPECT_EQ(send(EventChar, TargetGrid, 0, u'4'), 1);
  EXPECT_EQ(send(EventChar, TargetEditLine, 0, u'2'), 0) << "the edit control inserts it";
  gPlatform->editReplaceSelection(u"2", 1);
  EXPECT_EQ(send(EventChar, TargetEditLine, 0, u'\r'), 1);
  EXPECT_EQ(At(0, 0)->value.number, 42);
  EXPECT_EQ(send(EventKeyDown, TargetGrid, KeyUp, 0), 1);
  EXPECT_EQ(S()->activeRow, 0);
  PlatformEvent scroll{};
  scroll.kind = EventScroll;
  scroll.code = 1;  // one line down on the vertical bar
  ShellGridEvent(&scroll);
  EXPECT_EQ(S()->topRow, 1);
  PlatformEvent paint{};
  paint.kind = EventPaint;
  paint.dc = &canvas.base;
  paint.rect = PlatformRect{0, 0, 1280, 800};
  EXPECT_EQ(ShellGridEvent(&paint), 1);
  // Row 1 has scrolled away with A1: "42" shows only as a row number.
  EXPECT_EQ(CountText(canvas, u"1"), 0);
  EXPECT_EQ(CountText(canvas, u"42"), 1);
}
