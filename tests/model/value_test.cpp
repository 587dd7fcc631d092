// Values: the coercion table, the text forms of numbers, booleans and errors, implicit
// intersection and array elements against a real workbook, deep copies and lost memory.
// Results are compared through a short printed form so that each table row reads as one line.
#include <gtest/gtest.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "model/names.h"
#include "model/value.h"
#include "model/workbook.h"

namespace {

// "B2" or "A1:C3"; one-letter columns are enough here.
Range Area(const char* name) {
  char c0 = 'A', c1 = 0;
  unsigned r0 = 1, r1 = 0;
  if (std::sscanf(name, "%c%u:%c%u", &c0, &r0, &c1, &r1) < 4) {
    c1 = c0;
    r1 = r0;
  }
  return Range{static_cast<uint16_t>(r0 - 1), static_cast<uint16_t>(r1 - 1),
               static_cast<uint8_t>(c0 - 'A'), static_cast<uint8_t>(c1 - 'A')};
}

std::string AreaName(const Range& r) {
  std::string s = static_cast<char>('A' + r.firstCol) + std::to_string(r.firstRow + 1);
  if (r.lastRow == r.firstRow && r.lastCol == r.firstCol) return s;
  return s + ":" + static_cast<char>('A' + r.lastCol) + std::to_string(r.lastRow + 1);
}

// "-" empty, "n:2.5", "s:text", "b:1", the error's text, "a1x2{...}", "ref:B2", "list:B2;C3".
std::string Show(const Value& v) {
  char buffer[32];
  std::string s;
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
    case ValueArray:
      for (uint32_t i = 0; v.elements && i < uint32_t{v.rows} * v.columns; i++)
        s += (i ? "," : "") + Show(v.elements[i]);
      return "a" + std::to_string(v.rows) + "x" + std::to_string(v.columns) + "{" + s + "}";
    case ValueRef:
      return "ref:" + AreaName(v.ref);
    case ValueRefList:
      for (uint32_t i = 0; i < v.refs->count; i++) s += (i ? ";" : "") + AreaName(v.refs->areas[i]);
      return "list:" + s;
    default:
      return "tag" + std::to_string(v.tag);
  }
}

Value Text(const char16_t* s) {
  return TextValue(TextDuplicate(s));
}

Value Ref(const char* area) {
  return RefValue(Area(area));
}

// An array taking over `elements`; without them it holds 1, 2, 3... in reading order.
Value Array(uint32_t rows, uint32_t columns, std::vector<Value> elements = {}) {
  Value v;
  EXPECT_TRUE(MakeArray(&v, rows, columns));
  for (uint32_t i = 0; i < rows * columns; i++)
    v.elements[i] = elements.empty() ? NumberValue(i + 1) : elements[i];
  return v;
}

// Converts a value it takes over and prints the result.
std::string Coerced(Value v, uint16_t target, const EvalContext* ctx) {
  CoerceValue(&v, target, ctx);
  std::string s = Show(v);
  FreeValue(&v);
  return s;
}

// A workbook of two sheets. Sheet 0 holds a row across (A1:C1), a 3x3 block with holes (A1:C3),
// a column down (E5:E7), a text cell that lost its string (G1) and the array formula blocks
// B10:D12 (3x3), B14:E16 (3x4) and A20:C20. Sheet 1 is empty, so a reference read from it that
// finds values went through its link.
struct ValueTest : testing::Test {
  uint32_t book = 0;
  int32_t firstSheet = -1, bothSheets = -1;

  void SetUp() override {
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
    struct {
      const char* at;
      Value value;
    } cells[] = {{"A1", NumberValue(10)},   {"B1", NumberValue(20)},    {"C1", NumberValue(30)},
                 {"A2", Text(u"t")},        {"B2", ErrorValue(ErrNum)}, {"C3", Text(u"vrai")},
                 {"E5", NumberValue(1)},    {"E6", NumberValue(2)},     {"E7", NumberValue(3)},
                 {"G1", TextValue(nullptr)}};
    for (auto& c : cells) {
      Cell cell{};
      cell.row = Area(c.at).firstRow;
      cell.col = Area(c.at).firstCol;
      cell.value = c.value;
      ASSERT_TRUE(StoreCell(book, 0, &cell, 0, 0));
    }
    Sheet* s = GetSheet(book, 0);
    uint32_t capacity = 0;
    ASSERT_TRUE(GrowArray(&s->arrayFormulas, &capacity, 3, 1));
    for (const char* block : {"B10:D12", "B14:E16", "A20:C20"})
      s->arrayFormulas[s->arrayFormulaCount++] = ArrayFormula{Area(block), {}};
    LinkRequest first{book, book, 0, 0}, both{book, book, 0, 1};
    ASSERT_TRUE(FindOrAddLink(&first, &firstSheet) && FindOrAddLink(&both, &bothSheets));
  }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
  }

  // A list of areas built by hand ("A1:B2;D4"), since MakeRefList makes only one; by default
  // on sheet 0.
  Value List(const char* names, int32_t link = -1) {
    std::vector<Range> areas{Area(names)};
    for (const char* p = std::strchr(names, ';'); p; p = std::strchr(p + 1, ';'))
      areas.push_back(Area(p + 1));
    Value v{};
    v.tag = ValueRefList;
    v.linkIndex = link < 0 ? firstSheet : link;
    v.refs = static_cast<RefBlock*>(Allocate(sizeof(RefBlock) + areas.size() * sizeof(Range)));
    v.refs->count = static_cast<uint16_t>(areas.size());
    for (size_t i = 0; i < areas.size(); i++) v.refs->areas[i] = areas[i];
    return v;
  }
  EvalContext At(int32_t row, int32_t col, uint32_t sheet = 0, int32_t arrayMode = 0) {
    return EvalContext{book, sheet, row, col, arrayMode};
  }
};

TEST_F(ValueTest, CoercionTableFromEverySourceToEveryTarget) {
  // Each row gives the source converted to Empty, Number, Text, Boolean, RefList, Error, Array
  // and Ref. Each conversion works on a deep copy of the source, so every kind is also copied
  // and freed.
  const uint16_t targets[8] = {ValueEmpty,   ValueNumber, ValueText,  ValueBoolean,
                               ValueRefList, ValueError,  ValueArray, ValueRef};
  Value control{};
  control.tag = ValueControl;
  struct {
    Value source;
    const char* expected;
  } rows[] = {
      {Value{}, "- n:0 s: b:0 #VALUE! #VALUE! #VALUE! #VALUE!"},
      // A number or a boolean never becomes an error value: #VALUE! instead.
      {NumberValue(2.5), "- n:2.5 s:2,5 b:1 #VALUE! #VALUE! a1x1{n:2.5} #VALUE!"},
      {NumberValue(0), "- n:0 s:0 b:0 #VALUE! #VALUE! a1x1{n:0} #VALUE!"},
      {BooleanValue(true), "- n:1 s:VRAI b:1 #VALUE! #VALUE! a1x1{b:1} #VALUE!"},
      {BooleanValue(false), "- n:0 s:FAUX b:0 #VALUE! #VALUE! a1x1{b:0} #VALUE!"},
      // Text to Ref is #REF!, not #VALUE!.
      {Text(u"12,5"), "- n:12.5 s:12,5 #VALUE! #VALUE! #VALUE! a1x1{s:12,5} #REF!"},
      {Text(u"B2:C3"), "- #VALUE! s:B2:C3 #VALUE! list:B2:C3 #VALUE! a1x1{s:B2:C3} #REF!"},
      // An error stays itself as a Number, becomes its own text as Text, and loses its code as a
      // Boolean.
      {ErrorValue(ErrDiv0), "- #DIV/0! s:#DIV/0! #VALUE! #VALUE! #DIV/0! a1x1{#DIV/0!} #VALUE!"},
      {control, "- #VALUE! #VALUE! #VALUE! #VALUE! #VALUE! #VALUE! #VALUE!"},
      // No array block covers A1, so an array gives its first element.
      {Array(1, 2, {Text(u"faux"), NumberValue(7)}),
       "- #VALUE! s:faux b:0 #VALUE! #VALUE! a1x2{s:faux,n:7} #VALUE!"},
      {Array(1, 1, {ErrorValue(ErrName)}),
       "- #NAME? s:#NAME? #VALUE! #VALUE! #NAME? a1x1{#NAME?} #VALUE!"},
      {Ref("B2"), "- #NUM! s:#NUM! #VALUE! list:B2 #NUM! a1x1{#NUM!} ref:B2"},
      {List("C3"), "- #VALUE! s:vrai b:1 list:C3 #VALUE! a1x1{s:vrai} ref:C3"},
  };
  EvalContext ctx = At(0, 0);
  for (auto& row : rows) {
    std::string results;
    for (uint16_t target : targets) {
      Value v;
      ASSERT_TRUE(CopyValue(&v, &row.source));
      results += (results.empty() ? "" : " ") + Coerced(v, target, &ctx);
    }
    EXPECT_EQ(results, row.expected) << Show(row.source);
    FreeValue(&row.source);
  }
}

TEST_F(ValueTest, NumberToTextHasFifteenDigitsAndTheLocaleSeparator) {
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

// Plain numbers, percent and grouping are numbers, boolean and error texts are not; booleans and
// errors match their whole text in any case.
TEST_F(ValueTest, TextIsReadAsANumberBooleanOrErrorOnlyWhenItIsOneWhole) {
  struct {
    const char16_t* text;
    uint16_t target;
    const char* expected;
  } cases[] = {
      {u"12", ValueNumber, "n:12"},
      {u"-3,5", ValueNumber, "n:-3.5"},
      {u"+4", ValueNumber, "n:4"},
      {u",5", ValueNumber, "n:0.5"},
      {u"50%", ValueNumber, "n:0.5"},
      {u"1E3", ValueNumber, "n:1000"},
      {u"1 234", ValueNumber, "n:1234"},
      {u"1\u00A0234,5", ValueNumber, "n:1234.5"},
      {u"", ValueNumber, "#VALUE!"},
      {u"=1", ValueNumber, "#VALUE!"},
      {u"abc", ValueNumber, "#VALUE!"},
      {u"VRAI", ValueNumber, "#VALUE!"},
      {u"#N/A", ValueNumber, "#VALUE!"},
      {u"5%%", ValueNumber, "#VALUE!"},
      {u"1,2,3", ValueNumber, "#VALUE!"},
      {u"-", ValueNumber, "#VALUE!"},
      {u"vrai", ValueBoolean, "b:1"},
      {u"Faux", ValueBoolean, "b:0"},
      {u"1", ValueBoolean, "#VALUE!"},
      {u"TRUE", ValueBoolean, "#VALUE!"},
      {u"vraie", ValueBoolean, "#VALUE!"},
      {u"", ValueBoolean, "#VALUE!"},
      {u"#ref!", ValueError, "#REF!"},
      {u"#ref", ValueError, "#VALUE!"},
      {u"#null!", ValueError, "#NULL!"},
      {u"#n/a", ValueError, "#N/A"},
      {u"#DIV/0!", ValueError, "#DIV/0!"},
      {u"FAUX", ValueError, "#VALUE!"},
      // Dates and times, unless signed; currency after a leading symbol; parentheses negate.
      {u"1/2/2024", ValueNumber, "n:45323"},
      {u"14:30", ValueNumber, "n:0.6041666666666666"},
      {u"-1/2/2024", ValueNumber, "#VALUE!"},
      {u"janv. 2024", ValueNumber, "n:45292"},
      {u"\u20AC12,5", ValueNumber, "n:12.5"},
      {u"(12)", ValueNumber, "n:-12"},
      {u"(VRAI)", ValueNumber, "#VALUE!"},
      {u"12 \u20AC", ValueNumber, "#VALUE!"},
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

// Settling a result, or reading a reference or an array as one value, in order: a single cell
// is read from anywhere; a row or a column only where it lines up with the formula's cell, also
// through a link from another sheet; a block never, nor a list of two areas or over two sheets.
// In an array block an array's element follows the cell's place and a single row or column
// repeats; past the array's size, or with no elements, it is #N/A. In an array formula a
// reference first becomes the whole area.
TEST_F(ValueTest, SettledResultsGiveTheValueOfTheirCell) {
  Value noElements{};
  noElements.tag = ValueArray;
  noElements.rows = noElements.columns = 1;
  struct {
    Value value;
    EvalContext ctx;
    const char* expected;
  } cases[] = {
      {Ref("A1"), At(40, 40), "n:10"},      {Ref("H9"), At(0, 0), "-"},
      {Ref("A1:C1"), At(9, 2), "n:30"},     {Ref("A1:C1"), At(0, 3), "#VALUE!"},
      {Ref("E5:E7"), At(5, 0), "n:2"},      {Ref("E5:E7"), At(3, 4), "#VALUE!"},
      {Ref("E5:E7"), At(7, 4), "#VALUE!"},  {Ref("A1:B2"), At(0, 0), "#VALUE!"},
      {List("A1:C1"), At(9, 1, 1), "n:20"}, {List("E5:E7"), At(7, 4, 1), "#VALUE!"},
      {List("A1;C1"), At(0, 0), "#VALUE!"}, {List("A1", bothSheets), At(0, 0), "#REF!"},
      {List("A1", 99), At(0, 0), "#REF!"},  {Array(1, 3), At(9, 1), "n:1"},
      {Array(1, 3), At(10, 2), "n:2"},      {Array(1, 3), At(11, 3), "n:3"},
      {Array(1, 3), At(13, 4), "#N/A"},     {Array(1, 3), At(15, 3), "n:3"},
      {Array(3, 1), At(14, 4), "n:2"},      {Array(2, 2), At(10, 2), "n:4"},
      {Array(2, 2), At(11, 1), "#N/A"},     {Array(3, 3), At(0, 0), "n:1"},
      {Array(1, 3), At(19, 2), "n:3"},      {Array(0, 3), At(0, 0), "#N/A"},
      {noElements, At(0, 0), "#N/A"},       {Ref("E5:E7"), At(19, 1, 0, 1), "n:1"},
      {Text(u"x"), At(0, 0), "s:x"},
  };
  for (auto& c : cases) {
    std::string before = Show(c.value);
    SettleCellResult(&c.value, &c.ctx);
    EXPECT_EQ(Show(c.value), c.expected) << before << " at " << c.ctx.row << "," << c.ctx.col;
    FreeValue(&c.value);
  }
}

// Every cell of the block is copied, the one on the calculation stack as it stands, and a text
// cell without its string as #N/A. A list of two areas is refused, even when its first area is a
// single cell. An inline reference becomes a list on the sheet of the context.
TEST_F(ValueTest, ReferencesBecomeArraysAndLists) {
  CellAt(&GetSheet(book, 0)->cells, 0, 0)->state = CellCalculating;
  EvalContext ctx = At(0, 0, 1);
  EXPECT_EQ(Coerced(List("A1:C3"), ValueArray, &ctx),
            "a3x3{n:10,n:20,n:30,s:t,#NUM!,-,-,-,s:vrai}");
  EXPECT_EQ(GetWorkbook(book)->circularHit, 1);
  EXPECT_EQ(Coerced(List("G1"), ValueArray, &ctx), "a1x1{#N/A}");
  EXPECT_EQ(Coerced(List("A1;C1"), ValueArray, &ctx), "#VALUE!");
  EXPECT_EQ(Coerced(List("A1;C1"), ValueNumber, &ctx), "#VALUE!");

  Value v = Ref("A1");
  CoerceValue(&v, ValueRefList, &ctx);
  ResolvedLink link{book, 99, 99, 99};
  EXPECT_TRUE(ResolveLink(v.linkIndex, &link));
  EXPECT_EQ(Show(v), "list:A1");
  EXPECT_TRUE(link.book == book && link.firstSheet == 1 && link.lastSheet == 1);
  FreeValue(&v);
}

TEST_F(ValueTest, CopiesAreDeepAndElementsAreMovedOut) {
  // A copy outlives its source (under the address sanitizer a shared block would be caught).
  for (Value source : {Text(u"abc"), Array(1, 2, {NumberValue(1), Text(u"x")}), List("A1:B2;D4"),
                       TextValue(nullptr)}) {
    std::string shown = Show(source);
    Value copy;
    ASSERT_TRUE(CopyValue(&copy, &source));
    FreeValue(&source);
    EXPECT_EQ(Show(copy), shown);
    EXPECT_EQ(copy.linkIndex, source.linkIndex) << shown;  // a list's link, an array's size
    FreeValue(&copy);
  }
  // The cells of a reference are copied into its array; an array's element is moved out of it.
  EvalContext ctx = At(0, 0);
  Value cells = Ref("A2"), moved = Array(1, 2, {Text(u"a"), Text(u"b")});
  CoerceValue(&cells, ValueArray, &ctx);
  cells.elements[0].text[0] = u'X';
  EXPECT_EQ(TextToUtf8(CellAt(&GetSheet(book, 0)->cells, 1, 0)->value.text), "t");
  char16_t* first = moved.elements[0].text;
  ArrayElementForCell(&moved, &ctx);
  EXPECT_EQ(moved.text, first);
  FreeValue(&cells);
  FreeValue(&moved);
}

TEST_F(ValueTest, LostMemoryGivesNAOrAFailedCopy) {
  EvalContext ctx = At(0, 0);
  struct {
    Value source;
    uint16_t target;
  } cases[] = {
      {NumberValue(1.5), ValueText},   {Value{}, ValueText},
      {BooleanValue(true), ValueText}, {ErrorValue(ErrRef), ValueText},
      {NumberValue(1), ValueArray},    {Text(u"t"), ValueArray},
      {Ref("A1:C3"), ValueArray},      {Ref("A1"), ValueRefList},
      {Ref("A2"), ValueText},
  };
  for (auto& c : cases) {
    std::string before = Show(c.source);
    SetAllocationFailureAfter(0);
    CoerceValue(&c.source, c.target, &ctx);
    SetAllocationFailureAfter(-1);
    EXPECT_EQ(Show(c.source), "#N/A") << before << " to target " << c.target;
    FreeValue(&c.source);
  }

  // A failed copy leaves nothing behind; the array's fails at its last text, after the block and
  // the first text.
  struct {
    Value source;
    int64_t failAfter;
  } copies[] = {
      {Text(u"t"), 0}, {List("A1"), 0}, {Array(1, 3, {Text(u"a"), NumberValue(2), Text(u"c")}), 2}};
  for (auto& c : copies) {
    Value copy;
    SetAllocationFailureAfter(c.failAfter);
    EXPECT_FALSE(CopyValue(&copy, &c.source));
    SetAllocationFailureAfter(-1);
    EXPECT_EQ(copy.tag, ValueEmpty) << Show(c.source);
    FreeValue(&c.source);
  }
}

}  // namespace

// Reference text becomes a list on one sheet link: pieces split at the list separator, blanks
// after it skipped; pieces on different sheets, or anything that is no reference, are #VALUE!.
TEST_F(ValueTest, TextBecomesAReferenceList) {
  EvalContext ctx = At(2, 3, 1);
  std::u16string other = std::u16string(GetSheet(book, 0)->name) + u"!";
  struct {
    std::u16string text;
    int a1Style;
    const char* expected;
    int32_t sheet;  // the sheet the list stands on, -1 when refused
  } cases[] = {
      {u"A1; B2:C3", 1, "list:A1;B2:C3", 1},
      {other + u"A1;" + other + u"$D$4", 1, "list:A1;D4", 0},
      {u"A1;" + other + u"B1", 1, "#VALUE!", -1},
      {u"A1;", 1, "#VALUE!", -1},
      {u"A1 ", 1, "#VALUE!", -1},
      {u"nom", 1, "#VALUE!", -1},
      {u"R1C1:R[1]C[1]", 0, "list:A1:E4", 1},
  };
  for (auto& c : cases) {
    Value v{};
    TextToRefListInStyle(&v, TextDuplicate(c.text.c_str()), &ctx, c.a1Style);
    EXPECT_EQ(Show(v), c.expected) << TextToUtf8(c.text.c_str());
    if (c.sheet >= 0 && v.tag == ValueRefList) {
      ResolvedLink link{book, 99, 99, 99};
      EXPECT_TRUE(ResolveLink(v.linkIndex, &link));
      EXPECT_EQ(link.firstSheet, c.sheet) << TextToUtf8(c.text.c_str());
    }
    FreeValue(&v);
  }
}
