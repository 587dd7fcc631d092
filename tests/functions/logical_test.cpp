// SOMME and the argument walk it shares with the other aggregates, and the logical functions SI,
// ET, OU, NON and VRAI, called directly on a 30-slot frame against a real workbook.
#include <gtest/gtest.h>

#include <charconv>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "functions/aggregate.h"
#include "functions/handlers.h"
#include "functions/table.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

// "-" empty, "n:2.5", "s:text", "b:1", an error's text, "ref".
std::string Show(const Value& v) {
  char buffer[32];
  switch (v.tag) {
    case ValueEmpty:
      return "-";
    case ValueNumber:
      return "n:" + std::string(buffer, std::to_chars(buffer, buffer + 32, v.number).ptr);
    case ValueText:
      return "s:" + TextToUtf8(v.text);
    case ValueBoolean:
      return "b:" + std::to_string(v.boolean);
    case ValueError:
      return TextToUtf8(ErrorText(v.error));
    case ValueRef:
      return "ref";
    default:
      return "tag" + std::to_string(v.tag);
  }
}

Value Text(const char16_t* s) {
  return TextValue(TextDuplicate(s));
}

Value Array(uint16_t columns, std::vector<Value> elements) {
  Value v;
  EXPECT_TRUE(MakeArray(&v, 1, columns));
  for (size_t i = 0; i < elements.size(); i++) v.elements[i] = elements[i];
  return v;
}

Value Control() {
  Value v{};
  v.tag = ValueControl;
  return v;
}

Value Ref(uint16_t r0, uint8_t c0, uint16_t r1, uint8_t c1) {
  return RefValue(Range{r0, r1, c0, c1});
}

// The workbook, sheet 0:
//   A1 1, A2 "2", A3 VRAI, A4 3, A6 4        (sum 8: the text and the boolean do not count)
//   B1 #DIV/0!, B2 5
//   C1 1, C65536 2                           (the two ends of a whole column)
//   D1 "x", D2 "y"                           (no logical value at all)
// and sheet 1: A1 10, A2 20; sheet 2 is a chart, inside the span of the 3-D links.
struct LogicalTest : testing::Test {
  uint32_t book = 0;
  EvalContext ctx{};
  int32_t allSheets = -1;

  void SetUp() override {
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 2, nullptr, SheetChart, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 3, nullptr, SheetWorksheet, 0, 0));
    ctx = EvalContext{book, 0, 20, 20, 0};
    Put(0, 0, 0, NumberValue(1));
    Put(0, 1, 0, Text(u"2"));
    Put(0, 2, 0, BooleanValue(true));
    Put(0, 3, 0, NumberValue(3));
    Put(0, 5, 0, NumberValue(4));
    Put(0, 0, 1, ErrorValue(ErrDiv0));
    Put(0, 1, 1, NumberValue(5));
    Put(0, 0, 2, NumberValue(1));
    Put(0, 65535, 2, NumberValue(2));
    Put(0, 0, 3, Text(u"x"));
    Put(0, 1, 3, Text(u"y"));
    Put(1, 0, 0, NumberValue(10));
    Put(1, 1, 0, NumberValue(20));
    Put(3, 0, 0, NumberValue(100));
    LinkRequest request{book, book, 0, 3};
    ASSERT_TRUE(FindOrAddLink(&request, &allSheets));
  }
  void TearDown() override { CloseAllWorkbooks(); }

  void Put(uint32_t sheet, uint16_t row, uint8_t col, Value v) {
    Cell cell{};
    cell.row = row;
    cell.col = col;
    cell.value = v;
    ASSERT_TRUE(StoreCell(book, sheet, &cell, 0, 0));
  }
  // A reference list of the given areas on the sheets of `link`.
  Value List(std::vector<Range> areas, int32_t link) {
    Value v{};
    v.tag = ValueRefList;
    v.linkIndex = link;
    v.refs = static_cast<RefBlock*>(Allocate(sizeof(RefBlock) + areas.size() * sizeof(Range)));
    v.refs->count = static_cast<uint16_t>(areas.size());
    for (size_t i = 0; i < areas.size(); i++) v.refs->areas[i] = areas[i];
    return v;
  }
  // Calls `handler` as the evaluator does: the arguments, then empty slots up to 30; whatever the
  // handler leaves in the frame is released afterwards.
  std::string Call(FunctionHandler handler, std::vector<Value> arguments) {
    Value frame[FunctionFrameSize] = {};
    for (size_t i = 0; i < arguments.size(); i++) frame[i] = arguments[i];
    Value result{};
    handler(frame, &result, &ctx);
    for (Value& v : frame) FreeValue(&v);
    std::string shown = Show(result);
    FreeValue(&result);
    return shown;
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
      {"text and booleans in a reference", {Ref(0, 0, 5, 0)}, "n:8"},
      {"an error cell in a reference", {Ref(0, 0, 1, 1)}, "#DIV/0!"},
      {"the error after a number in reading order", {NumberValue(1), Ref(1, 1, 1, 1)}, "n:6"},
      {"a whole column", {Ref(0, 2, 65535, 2)}, "n:3"},
      {"a 3-D list over all sheets, chart skipped", {List({{0, 1, 0, 0}}, allSheets)}, "n:131"},
      {"two areas over all sheets", {List({{0, 0, 0, 0}, {3, 3, 0, 0}}, allSheets)}, "n:114"},
      {"a link that does not resolve", {List({{0, 0, 0, 0}}, 999)}, "#REF!"},
      {"array texts, booleans, empties ignored",
       {Array(4, {NumberValue(1), Text(u"2"), BooleanValue(true), NumberValue(3)})},
       "n:4"},
      {"array with an error element",
       {Array(3, {NumberValue(1), ErrorValue(ErrNum), ErrorValue(ErrNA)})},
       "#NUM!"},
      {"missing arguments between others", {NumberValue(1), Value{}, NumberValue(2)}, "n:3"},
      {"nothing at all", {}, "n:0"},
  };
  for (const Case& c : cases) EXPECT_EQ(Call(FnSomme, c.arguments), c.expected) << c.name;

  EXPECT_EQ(Call(FnSomme, {Control()}), "#VALUE!");
}

TEST_F(LogicalTest, SommeReadsACellUnderCalculationAndNotesTheCircle) {
  CellAt(&GetSheet(book, 0)->cells, 3, 0)->state = CellCalculating;
  EXPECT_EQ(Call(FnSomme, {Ref(0, 0, 5, 0)}), "n:8");
  EXPECT_EQ(GetWorkbook(book)->circularHit, 1);
}

TEST_F(LogicalTest, SommeCalculatesADirtyFormulaCellBeforeReadingIt) {
  Cell cell{};
  cell.row = 0;
  cell.col = 4;
  cell.formula.length = 3;
  cell.formula.bytes = static_cast<uint8_t*>(Allocate(3));
  cell.formula.bytes[0] = ptgInt;
  cell.formula.bytes[1] = 7;
  ASSERT_TRUE(StoreCell(book, 0, &cell, 0, 0));
  Cell* stored = CellAt(&GetSheet(book, 0)->cells, 0, 4);
  stored->state = CellDirty;
  stored->value = NumberValue(-1);  // stale
  EXPECT_EQ(Call(FnSomme, {Ref(0, 0, 0, 0), Ref(0, 4, 0, 4)}), "n:8");
  EXPECT_EQ(GetWorkbook(book)->circularHit, 0);
}

// The walk's options, which the other aggregates use: what each sees of A1:B2 and D1:D2.
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
    int stopAfter;
    int finished;
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
    Value frame[FunctionFrameSize] = {};
    frame[0] = Ref(0, 0, 1, 1);
    frame[1] = Ref(0, 3, 1, 3);
    frame[2] = Text(u"no number");
    frame[3] = BooleanValue(true);
    Tally tally{0, 0, c.stopAfter};
    Value error{};
    EXPECT_EQ(WalkNumbersWith(frame, &ctx, c.flags, Count, &tally, &error), c.finished);
    EXPECT_EQ(Show(error), c.error) << c.flags;
    EXPECT_EQ(tally.count, c.count) << c.flags;
    EXPECT_EQ(tally.sum, c.sum) << c.flags;
    for (Value& v : frame) FreeValue(&v);
  }
}

TEST_F(LogicalTest, SiChoosesABranchAndPassesErrors) {
  const Case cases[] = {
      {"true", {BooleanValue(true), NumberValue(1), NumberValue(2)}, "n:1"},
      {"false", {BooleanValue(false), NumberValue(1), NumberValue(2)}, "n:2"},
      {"a number as condition", {NumberValue(0), NumberValue(1), NumberValue(2)}, "n:2"},
      {"an empty condition is false", {Value{}, NumberValue(1), NumberValue(2)}, "n:2"},
      {"a boolean text", {Text(u"vrai"), NumberValue(1), NumberValue(2)}, "n:1"},
      {"another text", {Text(u"1"), NumberValue(1), NumberValue(2)}, "#VALUE!"},
      {"an error condition", {ErrorValue(ErrDiv0), NumberValue(1)}, "#DIV/0!"},
      {"an error cell as condition", {Ref(0, 1, 0, 1), NumberValue(1)}, "#DIV/0!"},
      {"a boolean cell as condition", {Ref(2, 0, 2, 0), NumberValue(1)}, "n:1"},
      {"empty true branch", {BooleanValue(true), Value{}}, "n:0"},
      {"missing false branch", {BooleanValue(false), NumberValue(1)}, "b:0"},
      {"a reference comes back as such", {BooleanValue(true), Ref(0, 0, 5, 0)}, "ref"},
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
      {"a reference: texts ignored", {Ref(0, 0, 5, 0)}, "b:1", "b:1"},
      {"a reference with only texts", {Ref(0, 3, 1, 3)}, "#VALUE!", "#VALUE!"},
      {"a reference with an error", {Ref(0, 0, 1, 1)}, "#DIV/0!", "#DIV/0!"},
      {"a 3-D list", {BooleanValue(false), List({{0, 1, 0, 0}}, allSheets)}, "b:0", "b:1"},
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
    std::vector<Value> copies(c.arguments.size());
    for (size_t i = 0; i < copies.size(); i++) ASSERT_TRUE(CopyValue(&copies[i], &c.arguments[i]));
    EXPECT_EQ(Call(FnEt, c.arguments), c.et) << c.name;
    EXPECT_EQ(Call(FnOu, copies), c.ou) << c.name;
  }
}

TEST_F(LogicalTest, NonAndVrai) {
  const Case cases[] = {
      {"true", {BooleanValue(true)}, "b:0"},
      {"zero", {NumberValue(0)}, "b:1"},
      {"empty", {}, "b:1"},
      {"a boolean text", {Text(u"Faux")}, "b:1"},
      {"another text", {Text(u"x")}, "#VALUE!"},
      {"an error", {ErrorValue(ErrNA)}, "#N/A"},
      {"an error cell", {Ref(0, 1, 0, 1)}, "#DIV/0!"},
  };
  for (const Case& c : cases) EXPECT_EQ(Call(FnNon, c.arguments), c.expected) << c.name;
  EXPECT_EQ(Call(FnVrai, {}), "b:1");
}

}  // namespace
