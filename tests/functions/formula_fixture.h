// Formulas typed as a user types them (French names and separators), evaluated in U21 of a
// workbook whose cells the tests fill, and compared with a number to a relative tolerance or
// with an error's text.
#pragma once
#include <cmath>
#include <span>
#include <string>

#include "formula/evaluator.h"
#include "formula/parser.h"
#include "functions/handler_fixture.h"

// A formula and what it must give: a number, or the error named by `error`.
struct Expected {
  const char16_t* formula;
  double number;
  const char* error = nullptr;
};

struct FormulaTest : HandlerTest {
  void SetUp() override { Open({}); }

  // The value of `formula`, or #NAME? when it does not compile; the caller releases it. An
  // array formula keeps the whole array that it gives.
  Value Evaluated(const char16_t* formula, int arrayFormula = 0) {
    ParseContext pc{book, 0, 1, 20, 20, 0, arrayFormula};
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
