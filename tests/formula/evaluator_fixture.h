// Shared set-up of the evaluator tests: a workbook with two worksheets and a macro sheet, a small
// function table of test handlers, class-correct operand tokens, and a printer that turns a
// result into one comparable line.
#pragma once
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/evaluator.h"
#include "model/cells.h"
#include "model/names.h"
#include "model/workbook.h"
#include "token_builder.h"

namespace evaltest {

constexpr uint8_t R = ClassReference;
constexpr uint8_t V = ClassValue;
constexpr uint8_t A = ClassArray;

// The helpers below append class-correct operand tokens to a builder, a temporary one included
// (it lives to the end of the full expression that copies it).
// An operand opcode of a class: the class bits take the place of bits 5 and 6 of the base.
inline uint8_t Opcode(uint8_t ptg, uint8_t cls) {
  return static_cast<uint8_t>((ptg & 0x1F) | cls);
}
template <typename B>
TokenBuilder& RefT(B&& t, uint16_t row, uint8_t col, uint8_t cls) {
  return t.Byte(Opcode(ptgRef, cls)).Word(row).Byte(col).Byte(0);
}
template <typename B>
TokenBuilder& AreaT(B&& t, uint16_t r1, uint16_t r2, uint8_t c1, uint8_t c2, uint8_t cls) {
  return t.Byte(Opcode(ptgArea, cls)).Word(r1).Word(r2).Byte(c1).Byte(0).Byte(c2).Byte(0);
}
template <typename B>
TokenBuilder& RefNT(B&& t, int16_t row, int8_t col, uint8_t cls) {
  return t.Byte(Opcode(ptgRefN, cls))
      .Word(static_cast<uint16_t>(row))
      .Byte(static_cast<uint8_t>(col))
      .Byte(RefRowRelative | RefColRelative);
}
template <typename B>
TokenBuilder& Ref3dT(B&& t, uint16_t link, uint16_t row, uint8_t col, uint8_t cls) {
  return t.Byte(Opcode(ptgRef3d, cls)).Word(link).Word(row).Byte(col).Byte(0);
}
template <typename B>
TokenBuilder& Area3dT(B&& t, uint16_t link, uint16_t r1, uint16_t r2, uint8_t c1, uint8_t c2,
                      uint8_t cls) {
  return t.Byte(Opcode(ptgArea3d, cls))
      .Word(link)
      .Word(r1)
      .Word(r2)
      .Byte(c1)
      .Byte(0)
      .Byte(c2)
      .Byte(0);
}
template <typename B>
TokenBuilder& NameT(B&& t, uint16_t index, uint8_t cls) {
  return t.Byte(Opcode(ptgName, cls)).Word(index).Word(0);
}
template <typename B>
TokenBuilder& NameXT(B&& t, uint16_t link, uint16_t index, uint8_t cls) {
  return t.Byte(Opcode(ptgNameX, cls)).Word(link).Word(index).Word(0);
}
template <typename B>
TokenBuilder& FuncT(B&& t, uint16_t id, uint8_t cls = V) {
  return t.Byte(Opcode(ptgFunc, cls)).Word(id);
}
template <typename B>
TokenBuilder& FuncVarT(B&& t, uint16_t id, uint8_t argc, uint8_t cls = V) {
  return t.Byte(Opcode(ptgFuncVar, cls)).Byte(argc).Word(id);
}
inline TokenBuilder T() {
  return TokenBuilder{};
}
// A text for the builder's array constants, which only read it.
inline Value Txt(const char16_t* s) {
  return TextValue(const_cast<char16_t*>(s));
}

inline std::string CellName(uint32_t row, uint32_t col) {
  std::string s;
  if (col >= 26) s += static_cast<char>('A' + col / 26 - 1);
  s += static_cast<char>('A' + col % 26);
  return s + std::to_string(row + 1);
}
inline std::string AreaName(const Range& r) {
  std::string s = CellName(r.firstRow, r.firstCol);
  if (r.firstRow != r.lastRow || r.firstCol != r.lastCol) s += ":" + CellName(r.lastRow, r.lastCol);
  return s;
}

// One line per value: numbers in %.15g, texts quoted, arrays as {a,b;c,d}, references in A1 form;
// a list names the book and sheets its link resolves to from `book`.
inline std::string Show(const Value& v, uint32_t book = 0) {
  char buffer[40];
  switch (v.tag) {
    case ValueEmpty:
      return "blank";
    case ValueNumber:
      std::snprintf(buffer, sizeof buffer, "%.15g", v.number);
      return buffer;
    case ValueText:
      return "\"" + TextToUtf8(v.text) + "\"";
    case ValueBoolean:
      return v.boolean ? "TRUE" : "FALSE";
    case ValueError:
      return TextToUtf8(ErrorText(v.error));
    case ValueControl:
      return "control " + std::to_string(v.control.code);
    case ValueRef:
      return "ref " + AreaName(v.ref);
    case ValueRefList: {
      ResolvedLink link{};
      link.fromBook = book;
      std::string s = "list ";
      if (ResolveLink(v.linkIndex, &link)) {
        if (link.book != book) s += "B" + std::to_string(link.book);
        s += "S" + std::to_string(link.firstSheet);
        if (link.lastSheet != link.firstSheet) s += "-" + std::to_string(link.lastSheet);
      } else {
        s += "?";
      }
      for (uint32_t i = 0; v.refs && i < v.refs->count; i++)
        s += (i ? "," : " ") + AreaName(v.refs->areas[i]);
      return s;
    }
    case ValueArray: {
      std::string s = "{";
      for (uint32_t r = 0; r < v.rows; r++) {
        for (uint32_t c = 0; c < v.columns; c++) {
          if (c) s += ",";
          s += Show(v.elements[r * v.columns + c], book);
        }
        if (r + 1 < v.rows) s += ";";
      }
      return s + "}";
    }
    default:
      return "tag " + std::to_string(v.tag);
  }
}

// Handlers of the test table. Calls of the ones that must never run are counted.
inline int ifCalls, chooseCalls, commandCalls;

inline double SumArray(const Value& a, Value* error) {
  double sum = 0;
  for (uint32_t i = 0; i < static_cast<uint32_t>(a.rows) * a.columns; i++) {
    if (a.elements[i].tag == ValueNumber) sum += a.elements[i].number;
    if (a.elements[i].tag == ValueError && error->tag != ValueError) *error = a.elements[i];
  }
  return sum;
}

// A variadic sum in the manner of the aggregates: every slot up to the end of the frame.
inline void SumHandler(Value* args, Value* result, const EvalContext* ctx) {
  double sum = 0;
  for (int i = 0; i < FunctionFrameSize; i++) {
    Value* a = &args[i];
    Value error{};
    if (a->tag == ValueRef) CoerceValue(a, ValueArray, ctx);
    if (a->tag == ValueText || a->tag == ValueBoolean) CoerceValue(a, ValueNumber, ctx);
    if (a->tag == ValueNumber) {
      sum += a->number;
    } else if (a->tag == ValueError) {
      error = *a;
    } else if (a->tag == ValueArray) {
      sum += SumArray(*a, &error);
    } else if (a->tag == ValueRefList) {
      Value part;
      SumRefList(a, &part, ctx);
      if (part.tag == ValueError)
        error = part;
      else
        sum += part.number;
    }
    if (error.tag == ValueError) {
      *result = error;
      return;
    }
  }
  *result = NumberValue(sum);
}

// a * 10 + b, with the usual prologue: the first argument that is an error decides.
inline void PairHandler(Value* args, Value* result, const EvalContext* ctx) {
  for (int i = 0; i < 2; i++) {
    CoerceValue(&args[i], ValueNumber, ctx);
    if (args[i].tag == ValueError) {
      *result = args[i];
      return;
    }
  }
  *result = NumberValue(args[0].number * 10 + args[1].number);
}

// Describes its arguments up to the first empty slot, and checks that every slot after them is
// empty.
inline void DescribeHandler(Value* args, Value* result, const EvalContext*) {
  std::string s;
  int n = 0;
  while (n < FunctionFrameSize && args[n].tag != ValueEmpty)
    s += (n ? "|" : "") + Show(args[n]), n++;
  for (int i = n; i < FunctionFrameSize; i++)
    if (args[i].tag != ValueEmpty) s += " [slot " + std::to_string(i) + " not empty]";
  *result = TextValue(Utf8ToText(s.c_str()));
}

inline void IfHandler(Value*, Value* result, const EvalContext*) {
  ifCalls++;
  *result = NumberValue(-1);
}
inline void ChooseHandler(Value*, Value* result, const EvalContext*) {
  chooseCalls++;
  *result = NumberValue(-1);
}
inline void CommandHandler(Value*, Value* result, const EvalContext*) {
  commandCalls++;
  *result = NumberValue(1);
}
inline void NinetyNineHandler(Value*, Value* result, const EvalContext*) {
  *result = NumberValue(99);
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
inline void AddHandler(Value* args, Value* result, const EvalContext* ctx) {
  CoerceValue(&args[0], ValueNumber, ctx);
  CoerceValue(&args[1], ValueNumber, ctx);
  *result = NumberValue(args[0].number + args[1].number);
}

constexpr uint32_t Info(uint32_t number, uint32_t category) {
  return number | category << 16;
}
constexpr const char* ThirtyR = "RRRRRRRRRRRRRRRRRRRRRRRRRRRRRR";

enum TestFunction : uint16_t {
  FnIf = 1,
  FnSum = 4,
  FnPair = 50,
  FnCommand = 60,
  FnAnyCategory = 61,
  FnSquare = 62,
  FnAbort = 63,
  FnDescribeR = 70,
  FnDescribeV = 71,
  FnDescribeThree = 72,
  FnChoose = 100,
};

inline const FunctionEntry testMain[] = {
    {u"IF", "VRR", IfHandler, Info(FnIf, 1), u""},
    {u"SUM", ThirtyR, SumHandler, Info(FnSum, 1), u""},
    {u"PAIR", "VV", PairHandler, Info(FnPair, 1), u""},
    {u"COMMAND", "V", CommandHandler, Info(FnCommand, CategoryMacroCommand), u""},
    {u"ANYWHERE", "V", NinetyNineHandler, Info(FnAnyCategory, 255), u""},
    {u"SQUARE", "V", SquareArrayHandler, Info(FnSquare, 1), u""},
    {u"ABORT", "", AbortHandler, Info(FnAbort, 1), u""},
    {u"DESCRIBER", ThirtyR, DescribeHandler, Info(FnDescribeR, 1), u""},
    {u"DESCRIBEV", "VVVVVVVVVVVVVVVVVVVVVVVVVVVVVV", DescribeHandler, Info(FnDescribeV, 1), u""},
    {u"DESCRIBE3", "VVV", DescribeHandler, Info(FnDescribeThree, 1), u""},
    {u"CHOOSE", "VRRRRRRRRRRRRRRRRRRRRRRRRRRRRR", ChooseHandler, Info(FnChoose, 1), u""},
};
inline const FunctionEntry testAddIns[] = {
    {u"ADDTWO", "VV", AddHandler, 5, u""},
};
inline const FunctionTables testTables = {testMain, sizeof testMain / sizeof testMain[0],
                                          testAddIns, 1};

struct EvaluatorTest : testing::Test {
  uint32_t book = 0;
  int32_t lastStatus = 1;

  void SetUp() override {
    ApplyLocale(LocaleFrench);
    SetFunctionTables(&testTables);
    ifCalls = chooseCalls = commandCalls = 0;
    ASSERT_TRUE(CreateWorkbook(u"Book.xls", 0, &book));
    ASSERT_TRUE(InsertSheet(book, 1, u"Second", SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 2, u"Macro", SheetMacro, 0, 0));
  }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    SetFunctionTables(nullptr);
    CloseAllWorkbooks();
  }

  EvalContext At(uint32_t sheet = 0, int32_t row = 0, int32_t col = 0, int32_t arrayMode = 0) {
    return EvalContext{book, sheet, row, col, arrayMode};
  }
  void Put(uint32_t sheet, uint16_t row, uint8_t col, Value v, uint32_t inBook = UINT32_MAX) {
    Cell proto{};
    proto.row = row;
    proto.col = col;
    proto.value = v;
    ASSERT_TRUE(StoreCell(inBook == UINT32_MAX ? book : inBook, sheet, &proto, 0, 0));
  }
  void PutText(uint32_t sheet, uint16_t row, uint8_t col, const char16_t* text) {
    Put(sheet, row, col, TextValue(TextDuplicate(text)));
  }
  int32_t Link(uint32_t first, uint32_t last, uint32_t target = UINT32_MAX) {
    LinkRequest request{book, target == UINT32_MAX ? book : target, static_cast<int32_t>(first),
                        static_cast<int32_t>(last)};
    int32_t link = -1;
    EXPECT_TRUE(FindOrAddLink(&request, &link));
    return link;
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

  std::string Run(const TokenBuilder& t, EvalContext ctx) {
    FormulaTokens f = t.Build();
    Value v;
    lastStatus = Evaluate(&f, &v, &ctx);
    FreeTokens(&f);
    std::string s = Show(v, ctx.book);
    FreeValue(&v);
    return s;
  }
  std::string Run(const TokenBuilder& t) { return Run(t, At()); }
};

struct Case {
  const char* what;
  TokenBuilder tokens;
  std::string expected;
};

}  // namespace evaltest
