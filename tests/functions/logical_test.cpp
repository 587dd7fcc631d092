// SOMME and the argument walk it shares with the other aggregates, and the logical functions SI,
// ET, OU, NON and VRAI, called directly on a 30-slot frame against a real workbook.
#include "functions/aggregate.h"
#include "functions/handler_fixture.h"
#include "functions/handlers.h"

namespace {

// Sheet 0 holds numbers with a text and a boolean among them (A1:A6, whose sum is 8), an error
// (B1), both ends of a whole column (C) and texts only (D1:D2). Sheet 2 is a chart inside the
// span of the 3-D link over all four sheets.
struct LogicalTest : HandlerTest {
  int32_t allSheets = -1;

  void SetUp() override {
    Open({SheetWorksheet, SheetChart, SheetWorksheet});
    Put(0, "A1", NumberValue(1));
    Put(0, "A2", Text(u"2"));
    Put(0, "A3", BooleanValue(true));
    Put(0, "A4", NumberValue(3));
    Put(0, "A6", NumberValue(4));
    Put(0, "B1", ErrorValue(ErrDiv0));
    Put(0, "B2", NumberValue(5));
    Put(0, "C1", NumberValue(1));
    Put(0, "C65536", NumberValue(2));
    Put(0, "D1", Text(u"x"));
    Put(0, "D2", Text(u"y"));
    Put(1, "A1", NumberValue(10));
    Put(1, "A2", NumberValue(20));
    Put(3, "A1", NumberValue(100));
    allSheets = Link(0, 3);
  }
};

struct Case {
  const char* name;
  std::vector<Value> arguments;
  const char* expected;
};

TEST_F(LogicalTest, SommeWalksEachKindOfArgument) {
  const Case cases[] = {
      {"direct text and boolean are converted", {Text(u"3"), BooleanValue(true)}, "n:4"},
      {"direct text that is no number", {Text(u"x")}, "#VALUE!"},
      {"the first bad argument decides", {NumberValue(1), ErrorValue(ErrNA), Text(u"x")}, "#N/A"},
      {"a failed text before an error", {Text(u"x"), ErrorValue(ErrNA)}, "#VALUE!"},
      {"text and booleans in a reference", {Ref("A1:A6")}, "n:8"},
      {"an error cell in a reference", {Ref("A1:B2")}, "#DIV/0!"},
      {"the error after a number in reading order", {NumberValue(1), Ref("B2")}, "n:6"},
      {"a whole column", {Ref("C1:C65536")}, "n:3"},
      {"a 3-D list over all sheets, chart skipped", {List("A1:A2", allSheets)}, "n:131"},
      {"two areas over all sheets", {List("A1;A4", allSheets)}, "n:114"},
      {"a link that does not resolve", {List("A1", 999)}, "#REF!"},
      {"array texts, booleans, empties ignored",
       {Array(4, {NumberValue(1), Text(u"2"), BooleanValue(true), NumberValue(3)})},
       "n:4"},
      {"array with an error element",
       {Array(3, {NumberValue(1), ErrorValue(ErrNum), ErrorValue(ErrNA)})},
       "#NUM!"},
      {"missing arguments between others", {NumberValue(1), Value{}, NumberValue(2)}, "n:3"},
      {"nothing at all", {}, "n:0"},
      {"a control signal", {Control()}, "#VALUE!"},
  };
  for (const Case& c : cases) EXPECT_EQ(Call(FnSomme, c.arguments), c.expected) << c.name;
}

TEST_F(LogicalTest, SommeBringsCellsUpToDateBeforeReadingThem) {
  // A dirty formula cell (=7 over a stale -1) is calculated first.
  Cell cell{};
  cell.col = 4;
  cell.formula.length = 3;
  cell.formula.bytes = static_cast<uint8_t*>(Allocate(3));
  cell.formula.bytes[0] = ptgInt;
  cell.formula.bytes[1] = 7;
  ASSERT_TRUE(StoreCell(book, 0, &cell, 0, 0));
  Cell* stored = CellAt(&GetSheet(book, 0)->cells, 0, 4);
  stored->state = CellDirty;
  stored->value = NumberValue(-1);
  EXPECT_EQ(Call(FnSomme, {Ref("A1"), Ref("E1")}), "n:8");
  EXPECT_EQ(GetWorkbook(book)->circularHit, 0);
  // A cell under calculation is read as it stands, and the circle is noted.
  CellAt(&GetSheet(book, 0)->cells, 3, 0)->state = CellCalculating;
  EXPECT_EQ(Call(FnSomme, {Ref("A1:A6")}), "n:8");
  EXPECT_EQ(GetWorkbook(book)->circularHit, 1);
}

// The walk's options, which the other aggregates use: what each sees of A1:B2, D1:D2, a text
// that is no number and VRAI.
struct Tally {
  int count;
  double sum;
  int stopAfter;  // the visitor asks to stop after this many numbers; 0 never
};

int Count(double number, void* state) {
  Tally* t = static_cast<Tally*>(state);
  t->count++;
  t->sum += number;
  return t->stopAfter == 0 || t->count < t->stopAfter;
}

TEST_F(LogicalTest, WalkOptionsWidenWhatIsCounted) {
  struct {
    uint32_t flags;
    int stopAfter, finished;
    const char* error;
    int count;
    double sum;
  } cases[] = {
      {WalkPlain, 0, 0, "#DIV/0!", 1, 1},  // A1, then the error in B1
      {WalkSkipErrors, 0, 1, "-", 3, 7},   // A1, A2 skipped, B2; D1:D2 skipped; 1 direct
      {WalkSkipErrors | WalkTextInRanges | WalkLogicalInRanges, 0, 1, "-", 6, 7},
      {WalkSkipErrors, 2, 0, "-", 2, 6},  // the visitor's stop leaves no error
  };
  for (const auto& c : cases) {
    Value frame[FunctionFrameSize] = {Ref("A1:B2"), Ref("D1:D2"), Text(u"no number"),
                                      BooleanValue(true)};
    Tally tally{0, 0, c.stopAfter};
    Value error{};
    EXPECT_EQ(WalkNumbersWith(frame, &ctx, c.flags, Count, &tally, &error), c.finished);
    EXPECT_EQ(Show(error), c.error) << c.flags;
    EXPECT_EQ(tally.count, c.count) << c.flags;
    EXPECT_EQ(tally.sum, c.sum) << c.flags;
    for (Value& v : frame) FreeValue(&v);
  }
}

TEST_F(LogicalTest, SiAndNonReadTheirConditionAlike) {
  struct {
    const char* name;
    Value condition;
    const char* si;  // SI(condition; 1; 2)
    const char* non;
  } cases[] = {
      {"true", BooleanValue(true), "n:1", "b:0"},
      {"false", BooleanValue(false), "n:2", "b:1"},
      {"a zero", NumberValue(0), "n:2", "b:1"},
      {"empty", Value{}, "n:2", "b:1"},
      {"a boolean text", Text(u"vrai"), "n:1", "b:0"},
      {"a boolean text in another case", Text(u"Faux"), "n:2", "b:1"},
      {"another text", Text(u"1"), "#VALUE!", "#VALUE!"},
      {"an error", ErrorValue(ErrNA), "#N/A", "#N/A"},
      {"an error cell", Ref("B1"), "#DIV/0!", "#DIV/0!"},
      {"a boolean cell", Ref("A3"), "n:1", "b:0"},
  };
  for (auto& c : cases) {
    EXPECT_EQ(Call(FnNon, Copies({c.condition})), c.non) << c.name;
    EXPECT_EQ(Call(FnSi, {c.condition, NumberValue(1), NumberValue(2)}), c.si) << c.name;
  }
  EXPECT_EQ(Call(FnVrai, {}), "b:1");
}

TEST_F(LogicalTest, SiGivesTheChosenBranchAsItIs) {
  const Case cases[] = {
      {"empty true branch", {BooleanValue(true), Value{}}, "n:0"},
      {"missing false branch", {BooleanValue(false), NumberValue(1)}, "b:0"},
      {"a reference comes back as such", {BooleanValue(true), Ref("A1:A6")}, "ref"},
      {"the branch not taken is not looked at", {BooleanValue(true), Text(u"a"), Control()}, "s:a"},
  };
  for (const Case& c : cases) EXPECT_EQ(Call(FnSi, c.arguments), c.expected) << c.name;
}

TEST_F(LogicalTest, EtAndOuFoldLogicalValues) {
  struct {
    const char* name;
    std::vector<Value> arguments;
    const char* et;
    const char* ou;
  } cases[] = {
      {"booleans", {BooleanValue(true), BooleanValue(false)}, "b:0", "b:1"},
      {"numbers", {NumberValue(2), NumberValue(-1)}, "b:1", "b:1"},
      {"a zero", {NumberValue(0)}, "b:0", "b:0"},
      {"boolean texts given directly", {Text(u"VRAI"), Text(u"faux")}, "b:0", "b:1"},
      {"another text given directly", {BooleanValue(true), Text(u"x")}, "#VALUE!", "#VALUE!"},
      {"no argument", {}, "#VALUE!", "#VALUE!"},
      {"an error wins", {BooleanValue(false), ErrorValue(ErrNA)}, "#N/A", "#N/A"},
      {"a reference: texts ignored", {Ref("A1:A6")}, "b:1", "b:1"},
      {"a reference with only texts", {Ref("D1:D2")}, "#VALUE!", "#VALUE!"},
      {"a reference with an error", {Ref("A1:B2")}, "#DIV/0!", "#DIV/0!"},
      {"a 3-D list", {BooleanValue(false), List("A1:A2", allSheets)}, "b:0", "b:1"},
      {"an array: texts and empties ignored",
       {Array(3, {Text(u"x"), NumberValue(0), Value{}})},
       "b:0",
       "b:0"},
      {"an array with an error",
       {Array(2, {NumberValue(1), ErrorValue(ErrNum)})},
       "#NUM!",
       "#NUM!"},
  };
  for (auto& c : cases) {
    EXPECT_EQ(Call(FnEt, Copies(c.arguments)), c.et) << c.name;
    EXPECT_EQ(Call(FnOu, c.arguments), c.ou) << c.name;
  }
}

}  // namespace
