// Function tests driven by formula text as a user types it (French separators), evaluated in U21
// of a workbook whose cells the functions read: a printed form of results (numbers to 15 digits
// with "." for the decimal point, arrays as {a,b;c,d}) and tables of calls per function; and
// tables of formulas whose numbers are compared to a relative tolerance.
#pragma once
#include <cmath>
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

// A formula and what it must give: a number, or the error named by `error`.
struct Expected {
  const char16_t* formula;
  double number;
  const char* error = nullptr;
};

struct FormulaTest : HandlerTest {
  void SetUp() override { Open({}); }

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

  // The value of `formula`, or #NAME? when it does not compile; the caller releases it. An
  // array formula keeps the whole array that it gives.
  Value Evaluated(const char16_t* formula, int arrayFormula = 0) {
    ParseContext pc{book, 0, A1Style, 20, 20, ReferencesAsWritten, arrayFormula};
    FormulaTokens tokens{};
    Value v = ErrorValue(ErrName);
    EvalContext at = ctx;
    at.arrayMode = arrayFormula;
    if (CompileFormula(&pc, formula, arrayFormula ? ClassCodeArray : ClassCodeValue, &tokens) ==
        CompileOk) {
      v = Value{};
      Evaluate(&tokens, &v, &at);
    }
    FreeTokens(&tokens);
    return v;
  }

  void Column(const char* first, std::initializer_list<double> numbers) {
    Range at = Area(first);
    for (double x : numbers) {
      std::string name(1, static_cast<char>('A' + at.firstCol));
      name += std::to_string(at.firstRow++ + 1);
      Put(0, name.c_str(), NumberValue(x));
    }
  }

  void ExpectResults(std::span<const Expected> rows, double tolerance) {
    for (const Expected& row : rows) {
      Value v = Evaluated(row.formula);
      std::string shown = Show(v);
      if (row.error) {
        EXPECT_EQ(shown, row.error) << TextToUtf8(row.formula);
      } else if (v.tag != ValueNumber) {
        ADD_FAILURE() << TextToUtf8(row.formula) << " gave " << shown;
      } else {
        double scale = std::fabs(row.number) > 1e-300 ? std::fabs(row.number) : 1;
        EXPECT_LE(std::fabs(v.number - row.number) / scale, tolerance)
            << TextToUtf8(row.formula) << " gave " << shown << " for " << row.number;
      }
      FreeValue(&v);
    }
  }
};
