// The engineering functions: DELTA and SUP.SEUIL, FACTDOUBLE, and the base conversions with their
// ten-digit two's complement, their padding and their limits.
#include "functions/formula_fixture.h"

namespace {

struct EngineeringTest : FormulaTest {};

TEST_F(EngineeringTest, ComparisonsAndDoubleFactorial) {
  const Expected rows[] = {
      {u"=DELTA(5;4)", 0},
      {u"=DELTA(5;5)", 1},
      {u"=DELTA(0)", 1},
      {u"=DELTA(\"x\";1)", 0, "#VALUE!"},
      {u"=SUP.SEUIL(5;4)", 1},
      {u"=SUP.SEUIL(-4;-3)", 0},
      {u"=SUP.SEUIL(0)", 1},
      {u"=FACTDOUBLE(6)", 48},
      {u"=FACTDOUBLE(7)", 105},
      {u"=FACTDOUBLE(7,9)", 105},
      {u"=FACTDOUBLE(0)", 1},
      {u"=FACTDOUBLE(-1)", 1},
      {u"=FACTDOUBLE(-2)", 0, "#NUM!"},
  };
  ExpectResults(rows, 1e-15);
}

TEST_F(EngineeringTest, BaseConversions) {
  Put(0, "A1", Text(u"ff"));
  const std::pair<const char16_t*, const char*> rows[] = {
      {u"=BINDEC(1100100)", "100"},
      {u"=BINDEC(\"1111111111\")", "-1"},
      {u"=BINDEC(\"11111111111\")", "#NUM!"},
      {u"=BINDEC(\"102\")", "#NUM!"},
      {u"=BINHEX(11111011;4)", "s:00FB"},
      {u"=BINHEX(\"1110000000\")", "s:FFFFFFFF80"},
      {u"=BINOCT(1001;3)", "s:011"},
      {u"=DECBIN(9;4)", "s:1001"},
      {u"=DECBIN(-100)", "s:1110011100"},
      {u"=DECBIN(512)", "#NUM!"},
      {u"=DECBIN(-512)", "s:1000000000"},
      {u"=DECBIN(9;3)", "#NUM!"},
      {u"=DECBIN(9;0)", "#NUM!"},
      {u"=DECHEX(100;4)", "s:0064"},
      {u"=DECHEX(-54)", "s:FFFFFFFFCA"},
      {u"=DECHEX(549755813888)", "#NUM!"},
      {u"=DECOCT(58;3)", "s:072"},
      {u"=DECOCT(-100)", "s:7777777634"},
      {u"=HEXBIN(\"F\";8)", "s:00001111"},
      {u"=HEXBIN(\"FFFFFFFE00\")", "s:1000000000"},
      {u"=HEXBIN(\"200\")", "#NUM!"},
      {u"=HEXDEC(\"A5\")", "165"},
      {u"=HEXDEC(A1)", "255"},
      {u"=HEXDEC(\"FFFFFFFF5B\")", "-165"},
      {u"=HEXDEC(\"G\")", "#NUM!"},
      {u"=HEXOCT(\"3B4E\")", "s:35516"},
      {u"=OCTBIN(3;3)", "s:011"},
      {u"=OCTDEC(\"7777777533\")", "-165"},
      {u"=OCTHEX(-1)", "#NUM!"},
      {u"=OCTHEX(\"7777777533\")", "s:FFFFFFFF5B"},
      {u"=DECBIN(\"x\")", "#VALUE!"},
  };
  for (const auto& [formula, expected] : rows)
    EXPECT_EQ(Eval(formula), expected) << TextToUtf8(formula);
}

}  // namespace
