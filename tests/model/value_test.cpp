// Values: the coercion table, the text forms of numbers, booleans and errors, implicit
// intersection and array elements against a real workbook, deep copies and lost memory.
// Results are compared through the short printed form of the handler tests, one table row a line.
#include "model/value.h"
#include "functions/handler_fixture.h"

namespace {

// An array holding 1, 2, 3... in reading order.
Value Numbered(uint32_t rows, uint32_t columns) {
  Value v;
  EXPECT_TRUE(MakeArray(&v, rows, columns));
  for (uint32_t i = 0; i < rows * columns; i++) v.elements[i] = NumberValue(i + 1);
  return v;
}

// Converts a value it takes over and prints the result.
std::string Coerced(Value v, uint16_t target, const EvalContext* ctx) {
  CoerceValue(&v, target, ctx);
  std::string s = Show(v);
  FreeValue(&v);
  return s;
}

// Sheet 0 holds a row across (A1:C1), a 3x3 block with holes (A1:C3), a column down (E5:E7), a
// text cell that lost its string (G1) and the array formula blocks B10:D12 (3x3), B14:E16 (3x4)
// and A20:C20. Sheet 1 is empty, so a reference read from it that finds values went through its
// link.
struct ValueTest : HandlerTest {
  int32_t firstSheet = -1, bothSheets = -1;

  void SetUp() override {
    Open({SheetWorksheet});
    const std::pair<const char*, Value> cells[] = {
        {"A1", NumberValue(10)},   {"B1", NumberValue(20)},    {"C1", NumberValue(30)},
        {"A2", Text(u"t")},        {"B2", ErrorValue(ErrNum)}, {"C3", Text(u"vrai")},
        {"E5", NumberValue(1)},    {"E6", NumberValue(2)},     {"E7", NumberValue(3)},
        {"G1", TextValue(nullptr)}};
    for (const auto& [at, value] : cells) Put(0, at, value);
    Sheet* s = GetSheet(book, 0);
    uint32_t capacity = 0;
    ASSERT_TRUE(GrowArray(&s->arrayFormulas, &capacity, 3, 1));
    for (const char* block : {"B10:D12", "B14:E16", "A20:C20"})
      s->arrayFormulas[s->arrayFormulaCount++] = ArrayFormula{Area(block), {}};
    firstSheet = Link(0, 0);
    bothSheets = Link(0, 1);
  }
  // A list on sheet 0 unless another link is named.
  Value List(const char* names, int32_t link = -1) {
    return HandlerTest::List(names, link < 0 ? firstSheet : link);
  }
  EvalContext At(int32_t row, int32_t col, uint32_t sheet = 0, int32_t arrayMode = 0) {
    return EvalContext{book, sheet, row, col, arrayMode};
  }
  // Prints and frees a value; a list also names the first and last sheets its link resolves to.
  std::string Listed(Value v) {
    ResolvedLink link{book, 99, 99, 99};
    std::string s = Show(v);
    if (v.tag == ValueRefList && ResolveLink(v.linkIndex, &link))
      s += (link.book == book ? " on " : " elsewhere on ") + std::to_string(link.firstSheet) + ":" +
           std::to_string(link.lastSheet);
    FreeValue(&v);
    return s;
  }
};

TEST_F(ValueTest, CoercionTableFromEverySourceToEveryTarget) {
  // Each row gives the source converted to Empty, Number, Text, Boolean, RefList, Error, Array
  // and Ref. Each conversion works on a deep copy of the source, so every kind is also copied
  // and freed.
  const uint16_t targets[8] = {ValueEmpty,   ValueNumber, ValueText,  ValueBoolean,
                               ValueRefList, ValueError,  ValueArray, ValueRef};
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
      {Control(), "- #VALUE! #VALUE! #VALUE! #VALUE! #VALUE! #VALUE! #VALUE!"},
      // No array block covers A1, so an array gives its first element.
      {Array(2, {Text(u"faux"), NumberValue(7)}),
       "- #VALUE! s:faux b:0 #VALUE! #VALUE! a1x2{s:faux,n:7} #VALUE!"},
      {Array(1, {ErrorValue(ErrName)}),
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
      if (!results.empty()) results += ' ';
      results += Coerced(v, target, &ctx);
    }
    EXPECT_EQ(results, row.expected) << Show(row.source);
    FreeValue(&row.source);
  }
}

TEST_F(ValueTest, NumberToTextHasFifteenDigitsAndTheLocaleSeparator) {
  const std::pair<double, const char*> cases[] = {
      {1.50, "1,5"},         {1E+20, "1E+20"},
      {0.1 + 0.2, "0,3"},    {100, "100"},
      {-0.0, "0"},           {1.0 / 3, "0,333333333333333"},
      {-2.5E-7, "-2,5E-07"}, {123456789012345678.0, "1,23456789012346E+17"},
      {1E+15, "1E+15"},      {123456789012345.0, "123456789012345"},
      {0.0001, "0,0001"},    {-1234.5, "-1234,5"},
  };
  for (const auto& [number, text] : cases)
    EXPECT_EQ(Coerced(NumberValue(number), ValueText, nullptr), std::string("s:") + text) << number;
}

// Plain numbers, percent and grouping are numbers, as are dates and times unless signed, amounts
// after a leading currency symbol, and numbers in parentheses (negated); boolean and error texts
// are not. Booleans and errors match their whole text in any case.
TEST_F(ValueTest, TextIsReadAsANumberBooleanOrErrorOnlyWhenItIsOneWhole) {
  const struct {
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
      {u"1/2/2024", ValueNumber, "n:45323"},
      {u"14:30", ValueNumber, "n:0.6041666666666666"},
      {u"janv. 2024", ValueNumber, "n:45292"},
      {u"\u20AC12,5", ValueNumber, "n:12.5"},
      {u"(12)", ValueNumber, "n:-12"},
      {u"vrai", ValueBoolean, "b:1"},
      {u"Faux", ValueBoolean, "b:0"},
      {u"#ref!", ValueError, "#REF!"},
      {u"#null!", ValueError, "#NULL!"},
      {u"#n/a", ValueError, "#N/A"},
      {u"#DIV/0!", ValueError, "#DIV/0!"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Coerced(Text(c.text), c.target, nullptr), c.expected) << TextToUtf8(c.text);
  const std::pair<uint16_t, std::vector<const char16_t*>> refused[] = {
      {ValueNumber,
       {u"", u"=1", u"abc", u"VRAI", u"#N/A", u"5%%", u"1,2,3", u"-", u"-1/2/2024", u"(VRAI)",
        u"12 \u20AC"}},
      {ValueBoolean, {u"1", u"TRUE", u"vraie", u""}},
      {ValueError, {u"#ref", u"FAUX"}},
  };
  for (const auto& [target, texts] : refused)
    for (const char16_t* text : texts)
      EXPECT_EQ(Coerced(Text(text), target, nullptr), "#VALUE!") << TextToUtf8(text);
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
      {List("A1", 99), At(0, 0), "#REF!"},  {Numbered(1, 3), At(9, 1), "n:1"},
      {Numbered(1, 3), At(10, 2), "n:2"},   {Numbered(1, 3), At(11, 3), "n:3"},
      {Numbered(1, 3), At(13, 4), "#N/A"},  {Numbered(1, 3), At(15, 3), "n:3"},
      {Numbered(3, 1), At(14, 4), "n:2"},   {Numbered(2, 2), At(10, 2), "n:4"},
      {Numbered(2, 2), At(11, 1), "#N/A"},  {Numbered(3, 3), At(0, 0), "n:1"},
      {Numbered(1, 3), At(19, 2), "n:3"},   {Numbered(0, 3), At(0, 0), "#N/A"},
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
  EXPECT_EQ(Listed(v), "list:A1 on 1:1");
}

TEST_F(ValueTest, CopiesAreDeepAndElementsAreMovedOut) {
  // A copy outlives its source (under the address sanitizer a shared block would be caught).
  for (Value source : {Text(u"abc"), Array(2, {NumberValue(1), Text(u"x")}), List("A1:B2;D4"),
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
  Value cells = Ref("A2"), moved = Array(2, {Text(u"a"), Text(u"b")});
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
  const std::pair<Value, int64_t> copies[] = {
      {Text(u"t"), 0}, {List("A1"), 0}, {Array(3, {Text(u"a"), NumberValue(2), Text(u"c")}), 2}};
  for (auto [source, failAfter] : copies) {
    Value copy;
    SetAllocationFailureAfter(failAfter);
    EXPECT_FALSE(CopyValue(&copy, &source));
    SetAllocationFailureAfter(-1);
    EXPECT_EQ(copy.tag, ValueEmpty) << Show(source);
    FreeValue(&source);
  }
}

// Reference text becomes a list on one sheet link: pieces split at the list separator, blanks
// after it skipped; pieces on different sheets, or anything that is no reference, are #VALUE!.
TEST_F(ValueTest, TextBecomesAReferenceList) {
  EvalContext ctx = At(2, 3, 1);
  std::u16string other = std::u16string(GetSheet(book, 0)->name) + u"!";
  const std::tuple<std::u16string, int, const char*> cases[] = {
      {u"A1; B2:C3", 1, "list:A1;B2:C3 on 1:1"},
      {other + u"A1;" + other + u"$D$4", 1, "list:A1;D4 on 0:0"},
      {u"R1C1:R[1]C[1]", 0, "list:A1:E4 on 1:1"},
      {u"A1;" + other + u"B1", 1, "#VALUE!"},
      {u"A1;", 1, "#VALUE!"},
      {u"A1 ", 1, "#VALUE!"},
      {u"nom", 1, "#VALUE!"},
  };
  for (const auto& [text, a1Style, expected] : cases) {
    Value v{};
    TextToRefListInStyle(&v, TextDuplicate(text.c_str()), &ctx, a1Style);
    EXPECT_EQ(Listed(v), expected) << TextToUtf8(text.c_str());
  }
}

}  // namespace
