// Function tests driven by formula text as a user types it (French separators), evaluated in U21
// of a workbook whose cells the functions read: a printed form of results (numbers to 15 digits
// with "." for the decimal point, arrays as {a,b;c,d}) and tables of calls per function.
#pragma once
#include <cstdio>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "formula/evaluator.h"
#include "formula/parser.h"
#include "functions/handler_fixture.h"

// Numbers as the sheet shows them, to 15 digits with "." for the decimal point, and arrays as
// {a,b;c,d}; anything else in the short form of the handler tests.
inline std::string Shown(const Value& v) {
  char number[40];
  if (v.tag == ValueNumber) {
    std::snprintf(number, sizeof number, "%.15g", v.number);
    return number;
  }
  if (v.tag != ValueArray) return Show(v);
  std::string s = "{";
  for (uint32_t i = 0; i < uint32_t{v.rows} * v.columns; i++) {
    s += i == 0 ? "" : i % v.columns ? "," : ";";  // piece by piece: GCC 12's -Wrestrict
    s += Shown(v.elements[i]);
  }
  s += '}';
  return s;
}

// A function and the calls made of it: the arguments as typed, and the result.
struct Calls {
  const char16_t* function;
  std::vector<std::pair<const char16_t*, const char*>> calls;
};

// "=NAME(arguments)".
inline std::u16string FormulaOf(const char16_t* function, const char16_t* arguments) {
  std::u16string formula = u"=";
  formula += function;
  formula += u"(";
  formula += arguments;
  formula += u")";
  return formula;
}

struct FormulaTest : HandlerTest {
  // Compiles and evaluates a formula in U21, or in array mode there.
  std::string Eval(const char16_t* formula, int32_t arrayMode = 0) {
    ParseContext pc{book, 0, A1Style, 20, 20, ReferencesAsWritten, SingleCellFormula};
    FormulaTokens tokens{};
    if (CompileFormula(&pc, formula, ClassCodeValue, &tokens) != CompileOk) return "not compiled";
    Value v{};
    EvalContext here = ctx;
    here.arrayMode = arrayMode;
    Evaluate(&tokens, &v, &here);
    // A reference left as the result reads as the cell would read it.
    if (v.tag == ValueRef || v.tag == ValueRefList) ImplicitIntersect(&v, &here);
    std::string s = Shown(v);
    FreeValue(&v);
    FreeTokens(&tokens);
    return s;
  }
  void ExpectCalls(std::span<const Calls> rows) {
    for (const Calls& row : rows)
      for (const auto& [arguments, expected] : row.calls) {
        std::u16string formula = FormulaOf(row.function, arguments);
        EXPECT_EQ(Eval(formula.c_str()), expected) << TextToUtf8(formula.c_str());
      }
  }
};
