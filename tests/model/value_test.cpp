// Values: the coercion table, the text forms of numbers, booleans and errors, implicit
// intersection and array elements against a real workbook, deep copies and lost memory.
// Results are compared through a short printed form so that each table row reads as one line.
#include <gtest/gtest.h>

#include <charconv>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "model/names.h"
#include "model/value.h"
#include "model/workbook.h"

namespace {

Range Area(uint16_t r0, uint8_t c0, uint16_t r1, uint8_t c1) {
  return Range{r0, r1, c0, c1};
}

std::string AreaName(const Range& r) {
  auto name = [](uint32_t row, uint32_t col) {
    return std::string(1, static_cast<char>('A' + col)) + std::to_string(row + 1);
  };
  std::string s = name(r.firstRow, r.firstCol);
  if (r.lastRow != r.firstRow || r.lastCol != r.firstCol) s += ":" + name(r.lastRow, r.lastCol);
  return s;
}

// "-" empty, "n:2.5", "s:text", "b:1", the error's text, "a1x2{...}", "ref:B2", "list:B2;C3".
std::string Show(const Value& v) {
  switch (v.tag) {
    case ValueEmpty:
      return "-";
    case ValueNumber: {
      char buffer[32];
      return "n:" + std::string(buffer, std::to_chars(buffer, buffer + 32, v.number).ptr);
    }
    case ValueText:
      return "s:" + TextToUtf8(v.text);
    case ValueBoolean:
      return "b:" + std::to_string(v.boolean);
    case ValueError:
      return v.error < ErrorCodeCount ? TextToUtf8(ErrorText(v.error)) : "e?";
    case ValueArray: {
      std::string s = "a" + std::to_string(v.rows) + "x" + std::to_string(v.columns) + "{";
      for (uint32_t i = 0; i < uint32_t{v.rows} * v.columns; i++)
        s += (i ? "," : "") + Show(v.elements[i]);
      return s + "}";
    }
    case ValueRef:
      return "ref:" + AreaName(v.ref);
    case ValueRefList: {
      std::string s = "list:";
      for (uint32_t i = 0; i < v.refs->count; i++) s += (i ? ";" : "") + AreaName(v.refs->areas[i]);
      return s;
    }
    default:
      return "tag" + std::to_string(v.tag);
  }
}

Value Text(const char16_t* s) {
  return TextValue(TextDuplicate(s));
}

Value Control() {
  Value v{};
  v.tag = ValueControl;
  return v;
}

Value Array(uint32_t rows, uint32_t columns, std::vector<Value> elements) {
  Value v;
  EXPECT_TRUE(MakeArray(&v, rows, columns));
  for (size_t i = 0; i < elements.size(); i++) v.elements[i] = elements[i];
  return v;
}

// A list of areas built by hand, since MakeRefList makes only one.
Value RefList(std::vector<Range> areas, int32_t link) {
  RefBlock* block =
      static_cast<RefBlock*>(Allocate(sizeof(RefBlock) + areas.size() * sizeof(Range)));
  block->count = static_cast<uint16_t>(areas.size());
  for (size_t i = 0; i < areas.size(); i++) block->areas[i] = areas[i];
  Value v{};
  v.tag = ValueRefList;
  v.refs = block;
  v.linkIndex = link;
  return v;
}

// Converts a value it takes over and prints the result.
std::string Coerced(Value v, uint16_t target, const EvalContext* ctx) {
  CoerceValue(&v, target, ctx);
  std::string s = Show(v);
  FreeValue(&v);
  return s;
}

// A workbook of two sheets. Sheet 0 holds
//   A1 10, B1 20, C1 30          (one row across)
//   A2 "t", B2 #NUM!, C3 "vrai"  (with A1:C1, a 3x3 block with holes)
//   E5 1, E6 2, E7 3             (one column down)
// and sheet 1 is empty, so a reference read from it that finds values went through its link.
struct ValueTest : testing::Test {
  uint32_t book = 0;
  int32_t firstSheet = -1, bothSheets = -1;

  void SetUp() override {
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
    Put(0, 0, NumberValue(10));
    Put(0, 1, NumberValue(20));
    Put(0, 2, NumberValue(30));
    Put(1, 0, Text(u"t"));
    Put(1, 1, ErrorValue(ErrNum));
    Put(2, 2, Text(u"vrai"));
    for (uint16_t i = 0; i < 3; i++) Put(4 + i, 4, NumberValue(1 + i));
    firstSheet = Link(0, 0);
    bothSheets = Link(0, 1);
  }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
  }

  void Put(uint16_t row, uint8_t col, Value v) {
    Cell cell{};
    cell.row = row;
    cell.col = col;
    cell.xf = 15;
    cell.value = v;
    ASSERT_TRUE(StoreCell(book, 0, &cell, 0, 0));
  }
  int32_t Link(int32_t first, int32_t last) {
    LinkRequest request{book, book, first, last};
    int32_t index = -1;
    EXPECT_TRUE(FindOrAddLink(&request, &index));
    return index;
  }
  void AddArrayBlock(const Range& range) {
    Sheet* s = GetSheet(book, 0);
    uint32_t capacity = s->arrayFormulaCount;
    ASSERT_TRUE(GrowArray(&s->arrayFormulas, &capacity, s->arrayFormulaCount + 1, 1));
    s->arrayFormulas[s->arrayFormulaCount++] = ArrayFormula{range, {}};
  }
  EvalContext At(int32_t row, int32_t col, uint32_t sheet = 0, int32_t arrayMode = 0) {
    return EvalContext{book, sheet, row, col, arrayMode};
  }
};
struct ValueCoerceTest : ValueTest {};
struct ValueIntersectTest : ValueTest {};
struct ValueArrayTest : ValueTest {};
struct ValueOwnershipTest : ValueTest {};

constexpr uint16_t Targets[8] = {ValueEmpty,   ValueNumber, ValueText,  ValueBoolean,
                                 ValueRefList, ValueError,  ValueArray, ValueRef};

TEST_F(ValueCoerceTest, EverySourceToEveryTarget) {
  // Columns: Empty, Number, Text, Boolean, RefList, Error, Array, Ref. A null expectation marks
  // a conversion that is not there yet (text read as a reference). Each conversion works on a
  // deep copy of the source, so every kind is also copied and freed on the way.
  struct {
    Value source;
    const char* expected[8];
  } rows[] = {
      {Value{}, {"-", "n:0", "s:", "b:0", "#VALUE!", "#VALUE!", "#VALUE!", "#VALUE!"}},
      // A number or a boolean never becomes an error value: #VALUE! instead.
      {NumberValue(2.5),
       {"-", "n:2.5", "s:2,5", "b:1", "#VALUE!", "#VALUE!", "a1x1{n:2.5}", "#VALUE!"}},
      {NumberValue(0), {"-", "n:0", "s:0", "b:0", "#VALUE!", "#VALUE!", "a1x1{n:0}", "#VALUE!"}},
      // Text to Ref is #REF!, not #VALUE!.
      {Text(u"12,5"),
       {"-", "n:12.5", "s:12,5", "#VALUE!", nullptr, "#VALUE!", "a1x1{s:12,5}", "#REF!"}},
      {BooleanValue(true),
       {"-", "n:1", "s:VRAI", "b:1", "#VALUE!", "#VALUE!", "a1x1{b:1}", "#VALUE!"}},
      {BooleanValue(false),
       {"-", "n:0", "s:FAUX", "b:0", "#VALUE!", "#VALUE!", "a1x1{b:0}", "#VALUE!"}},
      // An error stays itself as a Number, becomes its own text as Text, and loses its code as a
      // Boolean.
      {ErrorValue(ErrDiv0),
       {"-", "#DIV/0!", "s:#DIV/0!", "#VALUE!", "#VALUE!", "#DIV/0!", "a1x1{#DIV/0!}", "#VALUE!"}},
      {Control(),
       {"-", "#VALUE!", "#VALUE!", "#VALUE!", "#VALUE!", "#VALUE!", "#VALUE!", "#VALUE!"}},
      // No array block covers A1, so an array gives its first element.
      {Array(1, 2, {Text(u"faux"), NumberValue(7)}),
       {"-", "#VALUE!", "s:faux", "b:0", "#VALUE!", "#VALUE!", "a1x2{s:faux,n:7}", "#VALUE!"}},
      {Array(1, 1, {ErrorValue(ErrName)}),
       {"-", "#NAME?", "s:#NAME?", "#VALUE!", "#VALUE!", "#NAME?", "a1x1{#NAME?}", "#VALUE!"}},
      {RefValue(Area(1, 1, 1, 1)),
       {"-", "#NUM!", "s:#NUM!", "#VALUE!", "list:B2", "#NUM!", "a1x1{#NUM!}", "ref:B2"}},
      {RefList({Area(2, 2, 2, 2)}, firstSheet),
       {"-", "#VALUE!", "s:vrai", "b:1", "list:C3", "#VALUE!", "a1x1{s:vrai}", "ref:C3"}},
  };
  EvalContext ctx = At(0, 0);
  for (auto& row : rows) {
    for (int t = 0; t < 8; t++) {
      if (!row.expected[t]) continue;
      Value v;
      ASSERT_TRUE(CopyValue(&v, &row.source));
      EXPECT_EQ(Coerced(v, Targets[t], &ctx), row.expected[t])
          << Show(row.source) << " to target " << Targets[t];
    }
    FreeValue(&row.source);
  }
}

TEST_F(ValueCoerceTest, NumberToTextHasFifteenDigitsAndTheLocaleSeparator) {
  struct {
    double number;
    const char* text;
  } cases[] = {
      {1.50, "1,5"},         {1E+20, "1E+20"},
      {0.1 + 0.2, "0,3"},    {100, "100"},
      {-0.0, "0"},           {1.0 / 3, "0,333333333333333"},
      {-2.5E-7, "-2,5E-07"}, {123456789012345678.0, "1,23456789012346E+17"},
      {1E+15, "1E+15"},      {123456789012345.0, "123456789012345"},
      {0.0001, "0,0001"},    {-1234.5, "-1234,5"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Coerced(NumberValue(c.number), ValueText, nullptr), std::string("s:") + c.text)
        << c.number;
}

TEST_F(ValueCoerceTest, TextToNumberReadsPlainNumbersPercentAndGrouping) {
  struct {
    const char16_t* text;
    const char* expected;
  } cases[] = {
      {u"12", "n:12"},       {u"-3,5", "n:-3.5"},
      {u"+4", "n:4"},        {u",5", "n:0.5"},
      {u"50%", "n:0.5"},     {u"1E3", "n:1000"},
      {u"1 234", "n:1234"},  {u"1\u00A0234,5", "n:1234.5"},
      {u"", "#VALUE!"},      {u"=1", "#VALUE!"},
      {u"abc", "#VALUE!"},   {u"VRAI", "#VALUE!"},
      {u"#N/A", "#VALUE!"},  {u"5%%", "#VALUE!"},
      {u"1,2,3", "#VALUE!"}, {u"-", "#VALUE!"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Coerced(Text(c.text), ValueNumber, nullptr), c.expected) << TextToUtf8(c.text);
}

TEST_F(ValueCoerceTest, TextToBooleanAndErrorMatchWholeTextsInAnyCase) {
  struct {
    const char16_t* text;
    uint16_t target;
    const char* expected;
  } cases[] = {
      {u"vrai", ValueBoolean, "b:1"},      {u"Faux", ValueBoolean, "b:0"},
      {u"1", ValueBoolean, "#VALUE!"},     {u"TRUE", ValueBoolean, "#VALUE!"},
      {u"vraie", ValueBoolean, "#VALUE!"}, {u"", ValueBoolean, "#VALUE!"},
      {u"#ref!", ValueError, "#REF!"},     {u"#ref", ValueError, "#VALUE!"},
      {u"#null!", ValueError, "#NULL!"},   {u"#n/a", ValueError, "#N/A"},
      {u"#DIV/0!", ValueError, "#DIV/0!"}, {u"FAUX", ValueError, "#VALUE!"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Coerced(Text(c.text), c.target, nullptr), c.expected) << TextToUtf8(c.text);
}

TEST(ValueErrorCodes, BiffBytesMapBothWaysAndUnknownsAreNA) {
  const uint8_t bytes[ErrorCodeCount] = {0x00, 0x07, 0x0F, 0x17, 0x1D, 0x24, 0x2A};
  for (uint32_t code = 0; code < ErrorCodeCount; code++) EXPECT_EQ(ErrorToBiff(code), bytes[code]);
  for (uint32_t code = 0; code < ErrNA; code++) EXPECT_EQ(ErrorFromBiff(bytes[code]), code);
  for (uint8_t byte : {0x2A, 0x01, 0x10, 0xFF}) EXPECT_EQ(ErrorFromBiff(byte), ErrNA) << int{byte};
  EXPECT_EQ(ErrorToBiff(99), 0x2A);
  EXPECT_EQ(TextToUtf8(ErrorText(99)), "#N/A");
}

TEST_F(ValueIntersectTest, AreaLinesUpWithTheCellOfTheContext) {
  struct {
    Range area;
    int32_t row, col;
    const char* expected;
  } cases[] = {
      {Area(0, 0, 0, 0), 40, 40, "n:10"},  {Area(8, 7, 8, 7), 0, 0, "-"},
      {Area(0, 0, 0, 2), 9, 1, "n:20"},    {Area(0, 0, 0, 2), 9, 2, "n:30"},
      {Area(0, 0, 0, 2), 0, 3, "#VALUE!"}, {Area(4, 4, 6, 4), 5, 0, "n:2"},
      {Area(4, 4, 6, 4), 3, 4, "#VALUE!"}, {Area(4, 4, 6, 4), 7, 4, "#VALUE!"},
      {Area(0, 0, 1, 1), 0, 0, "#VALUE!"},
  };
  for (const auto& c : cases) {
    // Inline on the context's sheet, then as a list whose link names sheet 0 from sheet 1.
    Value ref = RefValue(c.area), list = RefList({c.area}, firstSheet);
    EvalContext onFirst = At(c.row, c.col, 0), onSecond = At(c.row, c.col, 1);
    ImplicitIntersect(&ref, &onFirst);
    ImplicitIntersect(&list, &onSecond);
    EXPECT_EQ(Show(ref), c.expected) << AreaName(c.area) << " at " << c.row << "," << c.col;
    EXPECT_EQ(Show(list), c.expected) << AreaName(c.area) << " at " << c.row << "," << c.col;
    FreeValue(&ref);
    FreeValue(&list);
  }
}

TEST_F(ValueIntersectTest, ListsThatAreNotOneAreaOnOneSheetFail) {
  EvalContext ctx = At(0, 0);
  Value twoAreas = RefList({Area(0, 0, 0, 0), Area(0, 2, 0, 2)}, firstSheet);
  ImplicitIntersect(&twoAreas, &ctx);
  EXPECT_EQ(Show(twoAreas), "#VALUE!");
  // Even though its first area is a single cell.
  EXPECT_EQ(Coerced(RefList({Area(0, 0, 0, 0), Area(0, 2, 0, 2)}, firstSheet), ValueNumber, &ctx),
            "#VALUE!");
  EXPECT_EQ(Coerced(RefList({Area(0, 0, 0, 0)}, bothSheets), ValueNumber, &ctx), "#REF!");
  EXPECT_EQ(Coerced(RefList({Area(0, 0, 0, 0)}, 99), ValueNumber, &ctx), "#REF!");
  EXPECT_EQ(Coerced(RefList({Area(0, 0, 0, 0), Area(0, 2, 0, 2)}, firstSheet), ValueArray, &ctx),
            "#VALUE!");
}

TEST_F(ValueIntersectTest, ArrayModeGivesTheWholeArea) {
  EvalContext ctx = At(5, 1, 0, 1);
  Value v = RefValue(Area(0, 0, 0, 2));
  ImplicitIntersect(&v, &ctx);
  EXPECT_EQ(Show(v), "a1x3{n:10,n:20,n:30}");
  FreeValue(&v);
}

TEST_F(ValueIntersectTest, RefBecomesAListOnTheContextSheet) {
  EvalContext ctx = At(0, 0, 1);
  Value v = RefValue(Area(0, 0, 0, 0));
  CoerceValue(&v, ValueRefList, &ctx);
  ASSERT_EQ(Show(v), "list:A1");
  ResolvedLink link{book, 99, 99, 99};
  ASSERT_TRUE(ResolveLink(v.linkIndex, &link));
  EXPECT_EQ(link.book, book);
  EXPECT_EQ(link.firstSheet, 1);
  EXPECT_EQ(link.lastSheet, 1);
  FreeValue(&v);
}

TEST_F(ValueArrayTest, ReferenceBecomesABlockOfCopiedCells) {
  Put(0, 6, TextValue(nullptr));  // a text cell without its string reads as #N/A
  EvalContext ctx = At(0, 0, 1);
  Value v = RefList({Area(0, 0, 2, 2)}, firstSheet);
  CoerceValue(&v, ValueArray, &ctx);
  EXPECT_EQ(Show(v), "a3x3{n:10,n:20,n:30,s:t,#NUM!,-,-,-,s:vrai}");
  v.elements[3].text[0] = u'X';  // the cell keeps its own string
  EXPECT_EQ(TextToUtf8(CellAt(&GetSheet(book, 0)->cells, 1, 0)->value.text), "t");
  FreeValue(&v);
  EvalContext onFirst = At(0, 0);
  EXPECT_EQ(Coerced(RefValue(Area(0, 6, 0, 6)), ValueArray, &onFirst), "a1x1{#N/A}");
  EXPECT_EQ(Coerced(RefList({Area(0, 0, 0, 0)}, bothSheets), ValueArray, &ctx), "#REF!");
}

TEST_F(ValueArrayTest, ReadingACellBeingCalculatedFlagsACircle) {
  CellAt(&GetSheet(book, 0)->cells, 0, 0)->state = CellCalculating;
  EvalContext ctx = At(0, 0);
  EXPECT_EQ(Coerced(RefValue(Area(0, 0, 0, 1)), ValueArray, &ctx), "a1x2{n:10,n:20}");
  EXPECT_EQ(GetWorkbook(book)->circularHit, 1);
}

TEST_F(ValueArrayTest, ElementFollowsTheCellsPlaceInItsArrayBlock) {
  AddArrayBlock(Area(9, 1, 11, 3));   // B10:D12, three by three
  AddArrayBlock(Area(13, 1, 15, 4));  // B14:E16, three by four
  struct {
    uint16_t rows, columns;
    int32_t row, col;
    const char* expected;
  } cases[] = {
      {1, 3, 9, 1, "n:1"},   {1, 3, 10, 2, "n:2"},  {1, 3, 11, 3, "n:3"},  // repeats down
      {1, 3, 13, 4, "#N/A"}, {1, 3, 15, 3, "n:3"},                         // fourth column
      {3, 1, 14, 4, "n:2"},                                                // repeats across
      {2, 2, 10, 2, "n:4"},  {2, 2, 11, 1, "#N/A"},                        // third row
      {3, 3, 0, 0, "n:1"},                                                 // in no block
  };
  for (const auto& c : cases) {
    std::vector<Value> elements;
    for (int i = 1; i <= c.rows * c.columns; i++) elements.push_back(NumberValue(i));
    Value v = Array(c.rows, c.columns, elements);
    EvalContext ctx = At(c.row, c.col);
    ArrayElementForCell(&v, &ctx);
    EXPECT_EQ(Show(v), c.expected) << c.rows << "x" << c.columns << " at " << c.row << "," << c.col;
    FreeValue(&v);
  }
}

TEST_F(ValueArrayTest, EmptyArraysAreNAAndTextIsMovedOut) {
  EvalContext ctx = At(0, 0);
  Value empty;
  ASSERT_TRUE(MakeArray(&empty, 0, 3));
  ArrayElementForCell(&empty, &ctx);
  EXPECT_EQ(Show(empty), "#N/A");
  Value noBlock{};
  noBlock.tag = ValueArray;
  noBlock.rows = noBlock.columns = 1;
  ArrayElementForCell(&noBlock, &ctx);
  EXPECT_EQ(Show(noBlock), "#N/A");

  Value v = Array(1, 2, {Text(u"a"), Text(u"b")});
  char16_t* first = v.elements[0].text;
  ArrayElementForCell(&v, &ctx);
  EXPECT_EQ(v.text, first);
  FreeValue(&v);
}

TEST_F(ValueArrayTest, SettledResultIsOneValueForItsCell) {
  AddArrayBlock(Area(19, 0, 19, 2));  // A20:C20
  struct {
    const char* what;
    Value value;
    EvalContext ctx;
    const char* expected;
  } cases[] = {
      {"row ref", RefValue(Area(0, 0, 0, 2)), At(7, 2), "n:30"},
      {"column list", RefList({Area(4, 4, 6, 4)}, firstSheet), At(6, 0, 1), "n:3"},
      {"array", Array(1, 3, {NumberValue(1), NumberValue(2), NumberValue(3)}), At(19, 2), "n:3"},
      {"array formula", RefValue(Area(0, 0, 0, 2)), At(19, 1, 0, 1), "n:20"},
      {"number", NumberValue(4), At(0, 0), "n:4"},
      {"text", Text(u"x"), At(0, 0), "s:x"},
  };
  for (auto& c : cases) {
    SettleCellResult(&c.value, &c.ctx);
    EXPECT_EQ(Show(c.value), c.expected) << c.what;
    FreeValue(&c.value);
  }
}

TEST_F(ValueOwnershipTest, CopiesAreDeep) {
  Value text = Text(u"abc"), textCopy;
  ASSERT_TRUE(CopyValue(&textCopy, &text));
  textCopy.text[0] = u'X';
  EXPECT_EQ(Show(text), "s:abc");

  Value array = Array(1, 2, {NumberValue(1), Text(u"x")}), arrayCopy;
  ASSERT_TRUE(CopyValue(&arrayCopy, &array));
  arrayCopy.elements[0] = NumberValue(5);
  arrayCopy.elements[1].text[0] = u'Y';
  EXPECT_EQ(Show(array), "a1x2{n:1,s:x}");

  Value list = RefList({Area(0, 0, 1, 1), Area(3, 3, 3, 3)}, firstSheet), listCopy;
  ASSERT_TRUE(CopyValue(&listCopy, &list));
  EXPECT_EQ(listCopy.linkIndex, firstSheet);
  listCopy.refs->areas[1].firstRow = 0;
  EXPECT_EQ(Show(list), "list:A1:B2;D4");

  Value nullText = TextValue(nullptr), nullCopy;
  EXPECT_TRUE(CopyValue(&nullCopy, &nullText));
  EXPECT_EQ(nullCopy.text, nullptr);

  for (Value* v : {&text, &textCopy, &array, &arrayCopy, &list, &listCopy}) FreeValue(v);
}

TEST_F(ValueOwnershipTest, LostMemoryGivesNAOrAFailedCopy) {
  EvalContext ctx = At(0, 0);
  struct {
    const char* what;
    Value source;
    uint16_t target;
  } cases[] = {
      {"number to text", NumberValue(1.5), ValueText},
      {"empty to text", Value{}, ValueText},
      {"boolean to text", BooleanValue(true), ValueText},
      {"error to text", ErrorValue(ErrRef), ValueText},
      {"number to array", NumberValue(1), ValueArray},
      {"text to array", Text(u"t"), ValueArray},
      {"ref to array", RefValue(Area(0, 0, 2, 2)), ValueArray},
      {"ref to list", RefValue(Area(0, 0, 0, 0)), ValueRefList},
      {"ref to text", RefValue(Area(1, 0, 1, 0)), ValueText},
  };
  for (auto& c : cases) {
    SetAllocationFailureAfter(0);
    CoerceValue(&c.source, c.target, &ctx);
    SetAllocationFailureAfter(-1);
    EXPECT_EQ(Show(c.source), "#N/A") << c.what;
    FreeValue(&c.source);
  }

  Value text = Text(u"t"), copy;
  Value array = Array(1, 3, {Text(u"a"), NumberValue(2), Text(u"c")});
  Value list = RefList({Area(0, 0, 0, 0)}, firstSheet);
  SetAllocationFailureAfter(0);
  EXPECT_FALSE(CopyValue(&copy, &text));
  EXPECT_EQ(copy.tag, ValueEmpty);
  EXPECT_FALSE(CopyValue(&copy, &list));
  EXPECT_EQ(copy.tag, ValueEmpty);
  SetAllocationFailureAfter(2);  // the block and the first text, then the last text fails
  EXPECT_FALSE(CopyValue(&copy, &array));
  EXPECT_EQ(copy.tag, ValueEmpty);
  SetAllocationFailureAfter(-1);
  for (Value* v : {&text, &array, &list}) FreeValue(v);
}

}  // namespace
