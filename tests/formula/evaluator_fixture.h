// Shared set-up of the evaluator tests: a workbook with two worksheets and a macro sheet, a small
// function table of test handlers, shorthands for array constants, and a printer that turns a
// result into one comparable line so that cases can be tables.
#pragma once
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/evaluator.h"
#include "model/cells.h"
#include "model/names.h"
#include "model/workbook.h"
#include "token_builder.h"

namespace evaltest {

constexpr uint8_t R = ClassReference, V = ClassValue, A = ClassArray;

inline std::string CellName(uint32_t row, uint32_t col) {
  std::string s;
  if (col >= 26) s += static_cast<char>('A' + col / 26 - 1);
  s += static_cast<char>('A' + col % 26);
  return s + std::to_string(row + 1);
}
inline std::string AreaName(const Range& r) {
  std::string s = CellName(r.firstRow, r.firstCol);
  // Appended piece by piece: a literal in front of a temporary string makes GCC 12 warn
  // (-Wrestrict) about the insertion it inlines.
  if (r.firstRow != r.lastRow || r.firstCol != r.lastCol) {
    s += ':';
    s += CellName(r.lastRow, r.lastCol);
  }
  return s;
}

// One line per value: numbers in %.15g, texts quoted, arrays as {a,b;c,d}, references in A1 form;
// a list names the book (when not `book`) and the sheets its link resolves to.
inline std::string Show(const Value& v, uint32_t book = 0) {
  char number[40];
  std::snprintf(number, sizeof number, "%.15g", v.tag == ValueNumber ? v.number : 0.0);
  if (v.tag == ValueEmpty) return "blank";
  if (v.tag == ValueNumber) return number;
  if (v.tag == ValueText) return "\"" + TextToUtf8(v.text) + "\"";
  if (v.tag == ValueBoolean) return v.boolean ? "TRUE" : "FALSE";
  if (v.tag == ValueError) return TextToUtf8(ErrorText(v.error));
  if (v.tag == ValueControl) return "control " + std::to_string(v.control.code);
  if (v.tag == ValueRef) return "ref " + AreaName(v.ref);
  std::string s;
  if (v.tag == ValueArray) {
    for (uint32_t i = 0; i < static_cast<uint32_t>(v.rows) * v.columns; i++) {
      s += i == 0 ? "" : i % v.columns ? "," : ";";
      s += Show(v.elements[i], book);
    }
    return "{" + s + "}";
  }
  if (v.tag != ValueRefList) return "tag " + std::to_string(v.tag);
  ResolvedLink link{};
  link.fromBook = book;
  if (!ResolveLink(v.linkIndex, &link)) return "list ?";
  if (link.book != book) s = "B" + std::to_string(link.book);
  s += "S" + std::to_string(link.firstSheet);
  if (link.lastSheet != link.firstSheet) s += "-" + std::to_string(link.lastSheet);
  for (uint32_t i = 0; v.refs && i < v.refs->count; i++) {
    s += i ? ',' : ' ';
    s += AreaName(v.refs->areas[i]);
  }
  return "list " + s;
}

// Handlers of the test table. IF, CHOOSE and a gated command must never reach theirs.
inline int forbiddenCalls;

inline void ForbiddenHandler(Value*, Value* result, const EvalContext*) {
  forbiddenCalls++;
  *result = NumberValue(-1);
}
// a * 10 + b, with the usual prologue: the first argument that is an error decides.
inline void PairHandler(Value* args, Value* result, const EvalContext* ctx) {
  for (int i = 0; i < 2; i++) CoerceValue(&args[i], ValueNumber, ctx);
  *result = args[0].tag == ValueError   ? args[0]
            : args[1].tag == ValueError ? args[1]
                                        : NumberValue(args[0].number * 10 + args[1].number);
}
// Describes its arguments up to the first empty slot, and checks that every slot after them is
// empty.
inline void DescribeHandler(Value* args, Value* result, const EvalContext*) {
  std::string s;
  int n = 0;
  for (; n < FunctionFrameSize && args[n].tag != ValueEmpty; n++) {
    if (n) s += '|';
    s += Show(args[n]);
  }
  for (int i = n; i < FunctionFrameSize; i++)
    if (args[i].tag != ValueEmpty) s += " [slot " + std::to_string(i) + " not empty]";
  *result = TextValue(Utf8ToText(s.c_str()));
}
inline void SquareArrayHandler(Value*, Value* result, const EvalContext*) {
  MakeArray(result, 2, 2);
  for (int i = 0; i < 4; i++) result->elements[i] = NumberValue(i + 1);
}
inline void AbortHandler(Value*, Value* result, const EvalContext*) {
  *result = Value{};
  result->tag = ValueControl;
  result->control.code = 129;
}

constexpr uint32_t Info(uint32_t number, uint32_t category) {
  return number | category << 16;
}

// IF and CHOOSE have the numbers the token builder writes.
enum : uint16_t { FnPair = 50, FnCommand, FnAny, FnSquare, FnAbort, FnDescribeR, FnDescribeV };

inline const FunctionEntry testMain[] = {
    {u"IF", "VRR", ForbiddenHandler, Info(1, 1), u"", FunctionGivesReference},
    {u"PAIR", "VV", PairHandler, Info(FnPair, 1), u"", 0},
    {u"COMMAND", "V", ForbiddenHandler, Info(FnCommand, CategoryMacroCommand), u"", 0},
    {u"ANYWHERE", "V", DescribeHandler, Info(FnAny, 255), u"", 0},
    {u"SQUARE", "V", SquareArrayHandler, Info(FnSquare, 1), u"", 0},
    {u"ABORT", "", AbortHandler, Info(FnAbort, 1), u"", 0},
    {u"DESCRIBER", "RRRRRRRRRRRRRRRRRRRRRRRRRRRRRR", DescribeHandler, Info(FnDescribeR, 1), u"", 0},
    {u"DESCRIBEV", "VVVVVVVVVVVVVVVVVVVVVVVVVVVVVV", DescribeHandler, Info(FnDescribeV, 1), u"", 0},
    {u"CHOOSE", "VRRRRRRRRRRRRRRRRRRRRRRRRRRRRR", ForbiddenHandler, Info(100, 1), u"",
     FunctionGivesReference},
};
inline const FunctionEntry testAddIns[] = {{u"ADDPAIR", "VV", PairHandler, 5, u"", 0}};
inline const FunctionTables testTables = {testMain, sizeof testMain / sizeof testMain[0],
                                          testAddIns, 1};

// A case runs at the row and column its table gives, on its own sheet and in its own mode.
struct Case {
  const char* what;
  TokenBuilder tokens;
  std::string expected;
  uint32_t sheet = 0;
  int32_t arrayMode = 0;
};

struct EvaluatorTest : testing::Test {
  uint32_t book = 0;

  static TokenBuilder T() { return TokenBuilder{}; }
  static Value N(double d) { return NumberValue(d); }
  static Value Bv(bool b) { return BooleanValue(b); }
  static Value Er(uint32_t code) { return ErrorValue(code); }
  // A text for the builder's array constants, which only read it.
  static Value Txt(const char16_t* s) { return TextValue(const_cast<char16_t*>(s)); }
  static TokenBuilder Row(std::initializer_list<Value> v) {
    return T().Array(1, static_cast<uint8_t>(v.size()), v);
  }
  static TokenBuilder Col(std::initializer_list<Value> v) {
    return T().Array(static_cast<uint8_t>(v.size()), 1, v);
  }
  // Tokens whose extra data is written by hand, for constants the builder would not write.
  static TokenBuilder WithExtra(TokenBuilder t, std::vector<uint8_t> extra) {
    t.extra = std::move(extra);
    return t;
  }

  void SetUp() override {
    ApplyLocale(LocaleFrench);
    SetFunctionTables(&testTables);
    forbiddenCalls = 0;
    ASSERT_TRUE(CreateWorkbook(u"Book.xls", 0, &book));
    ASSERT_TRUE(InsertSheet(book, 1, u"Second", SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 2, u"Macro", SheetMacro, 0, 0));
  }
  void TearDown() override {
    EXPECT_EQ(forbiddenCalls, 0) << "an IF, CHOOSE or gated command handler ran";
    SetAllocationFailureAfter(-1);
    SetFunctionTables(nullptr);
    CloseAllWorkbooks();
  }

  EvalContext At(uint32_t sheet = 0, int32_t row = 0, int32_t col = 0, int32_t arrayMode = 0) {
    return EvalContext{book, sheet, row, col, arrayMode};
  }
  void Put(uint32_t sheet, uint16_t row, uint8_t col, Value v, uint32_t inBook = UINT32_MAX) {
    Cell proto{};
    proto.row = row, proto.col = col, proto.value = v;
    ASSERT_TRUE(
        StoreCell(inBook == UINT32_MAX ? book : inBook, sheet, &proto, StoreOnly, KeepRowHeight));
  }
  uint16_t Link(uint32_t first, uint32_t last, uint32_t target = UINT32_MAX) {
    LinkRequest request{book, target == UINT32_MAX ? book : target, static_cast<int32_t>(first),
                        static_cast<int32_t>(last)};
    int32_t link = -1;
    EXPECT_TRUE(FindOrAddLink(&request, &link));
    return static_cast<uint16_t>(link);
  }
  // Adds a name and gives its 1-based token index.
  uint16_t AddNamed(const char16_t* text, uint16_t localSheet, const TokenBuilder* formula,
                    uint32_t inBook = UINT32_MAX) {
    DefinedName name{};
    name.localSheet = localSheet;
    name.name = TextDuplicate(text);
    if (formula) name.formula = formula->Build();
    uint32_t index = 0;
    EXPECT_TRUE(AddName(inBook == UINT32_MAX ? book : inBook, &name, &index));
    return static_cast<uint16_t>(index + 1);
  }

  // The result as Show prints it, marked when the evaluation reports a running macro aborted;
  // the evaluation may allocate `budget` blocks when that is not negative.
  std::string Run(const TokenBuilder& t, EvalContext ctx, int64_t budget = -1) {
    FormulaTokens f = t.Build();
    Value v;
    SetAllocationFailureAfter(budget);
    int status = Evaluate(&f, &v, &ctx);
    SetAllocationFailureAfter(-1);
    FreeTokens(&f);
    std::string s = Show(v, ctx.book) + (status ? "" : " (aborted)");
    FreeValue(&v);
    return s;
  }
  void Expect(const std::vector<Case>& cases, int32_t row = 0, int32_t col = 0) {
    for (const Case& c : cases)
      EXPECT_EQ(Run(c.tokens, At(c.sheet, row, col, c.arrayMode)), c.expected) << c.what;
  }
};

}  // namespace evaltest
