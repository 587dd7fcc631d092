// The information functions called directly on a 30-slot frame: the ESTxxx tests, TYPE, N and
// TYPE.ERREUR over one table of values given directly and through references, then ESTREF,
// EST.PAIR, EST.IMPAIR, NB.VIDE, NA and the stand-in handler of unwritten rows.
#include <gtest/gtest.h>

#include <charconv>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "functions/handlers.h"
#include "functions/table.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

// "-" empty, "n:2.5", "s:text", "b:1", an error's text.
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
    default:
      return "tag" + std::to_string(v.tag);
  }
}

Value Text(const char16_t* s) {
  return TextValue(TextDuplicate(s));
}

Value Ref(uint16_t r0, uint8_t c0, uint16_t r1, uint8_t c1) {
  return RefValue(Range{r0, r1, c0, c1});
}

// Sheet 0: A1 3.5, A2 "", A3 a stored cell with no value, A4 "a", A5 #N/A, B1 VRAI, B5 5.
// Sheet 1: A1 "t".
struct InformationTest : testing::Test {
  uint32_t book = 0;
  EvalContext ctx{};
  int32_t firstSheet = -1, bothSheets = -1;

  void SetUp() override {
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
    ctx = EvalContext{book, 0, 20, 20, 0};
    Put(0, 0, 0, NumberValue(3.5));
    Put(0, 1, 0, Text(u""));
    Put(0, 2, 0, Value{});
    Put(0, 3, 0, Text(u"a"));
    Put(0, 4, 0, ErrorValue(ErrNA));
    Put(0, 0, 1, BooleanValue(true));
    Put(0, 4, 1, NumberValue(5));
    Put(1, 0, 0, Text(u"t"));
    firstSheet = Link(0, 0);
    bothSheets = Link(0, 1);
  }
  void TearDown() override { CloseAllWorkbooks(); }

  void Put(uint32_t sheet, uint16_t row, uint8_t col, Value v) {
    Cell cell{};
    cell.row = row;
    cell.col = col;
    cell.xf = 15;
    cell.value = v;
    ASSERT_TRUE(StoreCell(book, sheet, &cell, 0, 0));
  }
  int32_t Link(int32_t first, int32_t last) {
    LinkRequest request{book, book, first, last};
    int32_t index = -1;
    EXPECT_TRUE(FindOrAddLink(&request, &index));
    return index;
  }
  Value List(std::vector<Range> areas, int32_t link) {
    Value v{};
    v.tag = ValueRefList;
    v.linkIndex = link;
    v.refs = static_cast<RefBlock*>(Allocate(sizeof(RefBlock) + areas.size() * sizeof(Range)));
    v.refs->count = static_cast<uint16_t>(areas.size());
    for (size_t i = 0; i < areas.size(); i++) v.refs->areas[i] = areas[i];
    return v;
  }
  // Calls `handler` on a copy of `argument` in the first slot of an otherwise empty frame, and
  // releases the frame afterwards as the evaluator does.
  std::string Call(FunctionHandler handler, const Value& argument) {
    Value frame[FunctionFrameSize] = {};
    EXPECT_TRUE(CopyValue(&frame[0], &argument));
    Value result{};
    handler(frame, &result, &ctx);
    for (Value& v : frame) FreeValue(&v);
    std::string shown = Show(result);
    FreeValue(&result);
    return shown;
  }
};

TEST_F(InformationTest, TestsTypeNAndTypeErreurOverValuesAndReferences) {
  // The tests in the order ESTERR, ESTERREUR, ESTLOGIQUE, ESTNA, ESTNONTEXTE, ESTNUM, ESTTEXTE,
  // ESTVIDE, one digit each.
  const FunctionHandler tests[] = {FnEstErr,      FnEstErreur, FnEstLogique, FnEstNa,
                                   FnEstNonTexte, FnEstNum,    FnEstTexte,   FnEstVide};
  Value array;
  ASSERT_TRUE(MakeArray(&array, 1, 2));
  array.elements[0] = NumberValue(1);
  array.elements[1] = Text(u"x");
  struct {
    const char* name;
    Value argument;
    const char* tests;
    const char* type;
    const char* n;
    const char* typeErreur;
  } cases[] = {
      {"empty", Value{}, "00001001", "n:1", "n:0", "#N/A"},
      {"number", NumberValue(3.5), "00001100", "n:1", "n:3.5", "#N/A"},
      {"text", Text(u"a"), "00000010", "n:2", "n:0", "#N/A"},
      {"empty text", Text(u""), "00000010", "n:2", "n:0", "#N/A"},
      {"boolean", BooleanValue(true), "00101000", "n:4", "n:1", "#N/A"},
      {"#N/A", ErrorValue(ErrNA), "01011000", "n:16", "#N/A", "n:7"},
      {"#DIV/0!", ErrorValue(ErrDiv0), "11001000", "n:16", "#DIV/0!", "n:2"},
      {"#NULL!", ErrorValue(ErrNull), "11001000", "n:16", "#NULL!", "n:1"},
      {"array", array, "00001100", "n:64", "n:1", "#N/A"},
      {"number cell", Ref(0, 0, 0, 0), "00001100", "n:1", "n:3.5", "#N/A"},
      {"empty text cell", Ref(1, 0, 1, 0), "00000010", "n:2", "n:0", "#N/A"},
      {"stored cell without value", Ref(2, 0, 2, 0), "00001001", "n:1", "n:0", "#N/A"},
      {"cell not stored", Ref(8, 0, 8, 0), "00001001", "n:1", "n:0", "#N/A"},
      {"#N/A cell", Ref(4, 0, 4, 0), "01011000", "n:16", "#N/A", "n:7"},
      {"boolean cell", Ref(0, 1, 0, 1), "00101000", "n:4", "n:1", "#N/A"},
      {"list on one sheet", List({{3, 3, 0, 0}}, firstSheet), "00000010", "n:2", "n:0", "#N/A"},
      // No cell lines up with the formula's: #VALUE!, but N takes the first cell all the same.
      {"range beside the cell", Ref(0, 0, 4, 0), "11001000", "n:16", "n:3.5", "n:3"},
      {"list over two sheets", List({{0, 0, 0, 0}}, bothSheets), "11001000", "n:16", "n:3.5",
       "n:4"},
      {"list of a lost link", List({{0, 0, 0, 0}}, 999), "11001000", "n:16", "#REF!", "n:4"},
  };
  for (auto& c : cases) {
    std::string answers;
    for (FunctionHandler test : tests) {
      std::string shown = Call(test, c.argument);
      answers += shown == "b:1" ? "1" : shown == "b:0" ? "0" : shown;
    }
    EXPECT_EQ(answers, c.tests) << c.name;
    EXPECT_EQ(Call(FnType, c.argument), c.type) << c.name;
    EXPECT_EQ(Call(FnN, c.argument), c.n) << c.name;
    EXPECT_EQ(Call(FnTypeErreur, c.argument), c.typeErreur) << c.name;
    FreeValue(&c.argument);
  }
}

TEST_F(InformationTest, TypeOfAReferenceInAnArrayFormulaIsArray) {
  ctx.arrayMode = 1;
  EXPECT_EQ(Call(FnType, Ref(0, 0, 4, 0)), "n:64");
}

TEST_F(InformationTest, EstRefAsksOnlyWhetherTheArgumentIsAReference) {
  Value list = List({{0, 0, 0, 0}}, 999);
  EXPECT_EQ(Call(FnEstRef, Ref(8, 8, 8, 8)), "b:1");
  EXPECT_EQ(Call(FnEstRef, list), "b:1");
  EXPECT_EQ(Call(FnEstRef, NumberValue(1)), "b:0");
  EXPECT_EQ(Call(FnEstRef, ErrorValue(ErrRef)), "b:0");
  FreeValue(&list);
}

TEST_F(InformationTest, ParityTruncatesAndRefusesWhatIsNoNumber) {
  struct {
    Value argument;
    const char* even;
    const char* odd;
  } cases[] = {
      {NumberValue(2), "b:1", "b:0"},
      {NumberValue(2.9), "b:1", "b:0"},
      {NumberValue(-3.7), "b:0", "b:1"},
      {NumberValue(0), "b:1", "b:0"},
      {Value{}, "b:1", "b:0"},
      {Text(u"4"), "b:1", "b:0"},
      {Text(u"x"), "#VALUE!", "#VALUE!"},
      {BooleanValue(true), "#VALUE!", "#VALUE!"},
      {ErrorValue(ErrNA), "#N/A", "#N/A"},
      {Ref(4, 1, 4, 1), "b:0", "b:1"},
      {Ref(4, 0, 4, 0), "#N/A", "#N/A"},
  };
  for (auto& c : cases) {
    EXPECT_EQ(Call(FnEstPair, c.argument), c.even) << Show(c.argument);
    EXPECT_EQ(Call(FnEstImpair, c.argument), c.odd) << Show(c.argument);
    FreeValue(&c.argument);
  }
}

TEST_F(InformationTest, NbVideCountsCellsShowingNothing) {
  struct {
    const char* name;
    Value argument;
    const char* expected;
  } cases[] = {
      {"a column with gaps, an empty text and a blank record", Ref(0, 0, 8, 0), "n:6"},
      {"two columns", Ref(0, 0, 4, 1), "n:5"},
      {"a whole column", Ref(0, 0, 65535, 0), "n:65533"},
      {"a list on one sheet", List({{0, 4, 0, 0}}, firstSheet), "n:2"},
      {"a list over two sheets", List({{0, 4, 0, 0}}, bothSheets), "#REF!"},
      {"two areas", List({{0, 0, 0, 0}, {1, 1, 0, 0}}, firstSheet), "#VALUE!"},
      {"a lost link", List({{0, 0, 0, 0}}, 999), "#REF!"},
      {"a number", NumberValue(1), "#VALUE!"},
      {"an error", ErrorValue(ErrDiv0), "#DIV/0!"},
  };
  for (auto& c : cases) {
    EXPECT_EQ(Call(FnNbVide, c.argument), c.expected) << c.name;
    FreeValue(&c.argument);
  }
}

TEST_F(InformationTest, NaAndPendingRowsGiveNotAvailable) {
  EXPECT_EQ(Call(FnNa, Value{}), "#N/A");
  EXPECT_EQ(Call(PendingFunction, NumberValue(1)), "#N/A");
}

}  // namespace
