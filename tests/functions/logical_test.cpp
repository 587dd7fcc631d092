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
    const std::tuple<uint32_t, const char*, Value> cells[] = {
        {0, "A1", NumberValue(1)},  {0, "A2", Text(u"2")},      {0, "A3", BooleanValue(true)},
        {0, "A4", NumberValue(3)},  {0, "A6", NumberValue(4)},  {0, "B1", ErrorValue(ErrDiv0)},
        {0, "B2", NumberValue(5)},  {0, "C1", NumberValue(1)},  {0, "C65536", NumberValue(2)},
        {0, "D1", Text(u"x")},      {0, "D2", Text(u"y")},      {1, "A1", NumberValue(10)},
        {1, "A2", NumberValue(20)}, {3, "A1", NumberValue(100)}};
    for (const auto& [sheet, at, value] : cells) Put(sheet, at, value);
    allSheets = Link(0, 3);
  }
};

struct Case {
  FunctionHandler handler;
  std::vector<Value> arguments;
  const char* expected;
};

// SOMME converts what is given directly and skips texts and booleans in references and arrays;
// the first bad argument in reading order decides, a failed text before an error included. A
// 3-D list passes over the chart inside its span. SI gives its chosen branch as it is, a
// reference included, without looking at the other; an empty branch is 0 when true, FAUX when
// false.
TEST_F(LogicalTest, SommeAndSiTakeEachKindOfArgument) {
  const Case cases[] = {
      {FnSomme, {Text(u"3"), BooleanValue(true)}, "n:4"},
      {FnSomme, {Text(u"x")}, "#VALUE!"},
      {FnSomme, {NumberValue(1), ErrorValue(ErrNA), Text(u"x")}, "#N/A"},
      {FnSomme, {Text(u"x"), ErrorValue(ErrNA)}, "#VALUE!"},
      {FnSomme, {Ref("A1:A6")}, "n:8"},
      {FnSomme, {Ref("A1:B2")}, "#DIV/0!"},
      {FnSomme, {NumberValue(1), Ref("B2")}, "n:6"},
      {FnSomme, {Ref("C1:C65536")}, "n:3"},
      {FnSomme, {List("A1:A2", allSheets)}, "n:131"},
      {FnSomme, {List("A1;A4", allSheets)}, "n:114"},
      {FnSomme, {List("A1", 999)}, "#REF!"},  // a link that does not resolve
      {FnSomme, {Array(4, {NumberValue(1), Text(u"2"), BooleanValue(1), NumberValue(3)})}, "n:4"},
      {FnSomme, {Array(3, {NumberValue(1), ErrorValue(ErrNum), ErrorValue(ErrNA)})}, "#NUM!"},
      {FnSomme, {NumberValue(1), Value{}, NumberValue(2)}, "n:3"},  // missing arguments
      {FnSomme, {}, "n:0"},
      {FnSomme, {Control()}, "#VALUE!"},
      {FnSi, {BooleanValue(true), Value{}}, "n:0"},
      {FnSi, {BooleanValue(false), NumberValue(1)}, "b:0"},
      {FnSi, {BooleanValue(true), Ref("A1:A6")}, "ref:A1:A6"},
      {FnSi, {BooleanValue(true), Text(u"a"), Control()}, "s:a"},
      {FnVrai, {}, "b:1"},
  };
  for (int i = 0; const Case& c : cases) {
    SCOPED_TRACE(i++);
    EXPECT_EQ(Call(c.handler, c.arguments), c.expected);
  }
}

// The walk's options, which the other aggregates use: what each sees of A1:B2, D1:D2, a text
// that is no number and VRAI. The visitor counts and sums, and asks to stop after `stopAfter`
// numbers (0 never).
struct Tally {
  int count;
  double sum;
  int stopAfter;
};

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
  auto count = [](double number, void* state) -> int {
    Tally* t = static_cast<Tally*>(state);
    t->sum += number;
    return ++t->count != t->stopAfter;
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.flags);
    Value frame[FunctionFrameSize] = {Ref("A1:B2"), Ref("D1:D2"), Text(u"no number"),
                                      BooleanValue(true)};
    Tally tally{0, 0, c.stopAfter};
    Value error{};
    EXPECT_EQ(WalkNumbersWith(frame, &ctx, c.flags, count, &tally, &error), c.finished);
    EXPECT_EQ(Show(error), c.error);
    EXPECT_EQ(tally.count, c.count);
    EXPECT_EQ(tally.sum, c.sum);
    for (Value& v : frame) FreeValue(&v);
  }
}

// SI(condition; 1; 2) and NON read their condition alike: booleans, numbers, empty, and texts
// only when they spell a boolean; errors pass through with their code.
TEST_F(LogicalTest, SiAndNonReadTheirConditionAlike) {
  const std::tuple<Value, const char*, const char*> cases[] = {
      {BooleanValue(true), "n:1", "b:0"}, {BooleanValue(false), "n:2", "b:1"},
      {NumberValue(0), "n:2", "b:1"},     {Value{}, "n:2", "b:1"},
      {Text(u"vrai"), "n:1", "b:0"},      {Text(u"Faux"), "n:2", "b:1"},
      {Text(u"1"), "#VALUE!", "#VALUE!"}, {ErrorValue(ErrNA), "#N/A", "#N/A"},
      {Ref("B1"), "#DIV/0!", "#DIV/0!"},  {Ref("A3"), "n:1", "b:0"},
  };
  for (const auto& [condition, si, non] : cases) {
    SCOPED_TRACE(Show(condition));
    EXPECT_EQ(Call(FnNon, Copies({condition})), non);
    EXPECT_EQ(Call(FnSi, {condition, NumberValue(1), NumberValue(2)}), si);
  }
}

// Numbers and booleans count wherever they stand; texts and empties inside references and
// arrays are passed over, a text given directly must spell a boolean, and an error wins even
// after a value that settled the answer.
TEST_F(LogicalTest, EtAndOuFoldLogicalValues) {
  const std::tuple<std::vector<Value>, const char*, const char*> cases[] = {
      {{BooleanValue(true), BooleanValue(false)}, "b:0", "b:1"},
      {{NumberValue(2), NumberValue(-1)}, "b:1", "b:1"},
      {{NumberValue(0)}, "b:0", "b:0"},
      {{Text(u"VRAI"), Text(u"faux")}, "b:0", "b:1"},
      {{BooleanValue(true), Text(u"x")}, "#VALUE!", "#VALUE!"},
      {{}, "#VALUE!", "#VALUE!"},
      {{BooleanValue(false), ErrorValue(ErrNA)}, "#N/A", "#N/A"},
      {{Ref("A1:A6")}, "b:1", "b:1"},
      {{Ref("D1:D2")}, "#VALUE!", "#VALUE!"},
      {{Ref("A1:B2")}, "#DIV/0!", "#DIV/0!"},
      {{BooleanValue(false), List("A1:A2", allSheets)}, "b:0", "b:1"},
      {{Array(3, {Text(u"x"), NumberValue(0), Value{}})}, "b:0", "b:0"},
      {{Array(2, {NumberValue(1), ErrorValue(ErrNum)})}, "#NUM!", "#NUM!"},
  };
  for (int i = 0; const auto& [arguments, et, ou] : cases) {
    SCOPED_TRACE(i++);
    EXPECT_EQ(Call(FnEt, Copies(arguments)), et);
    EXPECT_EQ(Call(FnOu, arguments), ou);
  }
}

}  // namespace
