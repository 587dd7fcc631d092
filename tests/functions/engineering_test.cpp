// The engineering functions: DELTA and SUP.SEUIL, FACTDOUBLE, the base conversions with their
// ten-digit two's complement, their padding and their limits, the Bessel functions over small,
// middling and large arguments and orders, and CONVERT.
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

// Reference values from the power and Neumann series summed in 160-digit decimals. J and I are
// exact to rounding over small arguments, arguments well past the order, high orders and tiny
// values; Y and K follow the approximations that stored workbook results come from, within a
// few parts in 1e7 of the exact values on both sides of their switch points (2 for K, 8 for Y).
TEST_F(EngineeringTest, BesselAcrossTheRange) {
  const Expected exact[] = {
      {u"=BESSELJ(0,5;0)", 0.93846980724081286},
      {u"=BESSELJ(1,9;2)", 0.32992572769238721},
      {u"=BESSELJ(5;1)", -0.32757913759146523},
      {u"=BESSELJ(15;3)", -0.19401825782012264},
      {u"=BESSELJ(50;0)", 0.055812327669251816},
      {u"=BESSELJ(100;2,9)", -0.021528757344505364},
      {u"=BESSELJ(1;20)", 3.8735030085246576e-25},
      {u"=BESSELJ(-2,5;3)", -0.21660039103911352},
      {u"=BESSELI(1,5;1)", 0.98166642857790753},
      {u"=BESSELI(0,1;0)", 1.0025015629340956},
      {u"=BESSELI(10;5)", 777.18828640326001},
      {u"=BESSELI(25;0)", 5774560606.4663105},
      {u"=BESSELI(-3;1)", -3.9533702174026093},
      {u"=BESSELJ(1;-1)", 0, "#NUM!"},
      {u"=BESSELY(0;1)", 0, "#NUM!"},
      {u"=BESSELK(-1;1)", 0, "#NUM!"},
      {u"=BESSELI(1000;1)", 0, "#NUM!"},
      {u"=BESSELJ(\"x\";1)", 0, "#VALUE!"},
  };
  ExpectResults(exact, 1e-12);
  const Expected approximated[] = {
      {u"=BESSELK(1,5;1)", 0.2773878004568438},   {u"=BESSELK(0,01;0)", 4.7212447301610947},
      {u"=BESSELK(2;0)", 0.11389387274953344},    {u"=BESSELK(2,001;1)", 0.13968218830176754},
      {u"=BESSELK(10;2)", 2.150981700693277e-05}, {u"=BESSELK(40;3)", 9.3789037246453009e-19},
      {u"=BESSELY(2,5;1)", 0.14591813796678579},  {u"=BESSELY(0,3;0)", -0.80727357780451947},
      {u"=BESSELY(1;0)", 0.088256964215676956},   {u"=BESSELY(7,999;1)", -0.15830367814612772},
      {u"=BESSELY(12;4)", -0.1512177044175062},   {u"=BESSELY(60;1)", 0.091869609369866892},
  };
  ExpectResults(approximated, 2e-7);
  // Results as workbooks store them.
  const Expected stored[] = {
      {u"=BESSELK(2;3)", 0.6473854},
      {u"=BESSELY(2;3)", -1.1277837651220644},
  };
  ExpectResults(stored, 1e-14);
}

TEST_F(EngineeringTest, ConvertUnits) {
  const Expected rows[] = {
      {u"=CONVERT(1;\"lbm\";\"kg\")", 0.45359237},
      {u"=CONVERT(68;\"F\";\"C\")", 20},
      {u"=CONVERT(-40;\"cel\";\"fah\")", -40},
      {u"=CONVERT(0;\"C\";\"mK\")", 273150},
      {u"=CONVERT(6;\"tsp\";\"tbs\")", 2},
      {u"=CONVERT(1;\"gal\";\"l\")", 3.785411784},
      {u"=CONVERT(1;\"mi\";\"km\")", 1.609344},
      {u"=CONVERT(1;\"Nmi\";\"m\")", 1852},
      {u"=CONVERT(1;\"in\";\"Pica\")", 72},
      {u"=CONVERT(1;\"yr\";\"day\")", 365.25},
      {u"=CONVERT(1;\"atm\";\"mmHg\")", 760},
      {u"=CONVERT(1;\"kPa\";\"Pa\")", 1000},
      {u"=CONVERT(1;\"HP\";\"W\")", 745.69987158227022},
      {u"=CONVERT(1;\"lbf\";\"N\")", 4.4482216152605},
      {u"=CONVERT(1;\"J\";\"e\")", 1e7},
      {u"=CONVERT(1;\"ga\";\"mT\")", 0.1},
      {u"=CONVERT(1;\"ft\";\"sec\")", 0, "#N/A"},
      {u"=CONVERT(1;\"xx\";\"m\")", 0, "#N/A"},
      {u"=CONVERT(1;\"kft\";\"m\")", 0, "#N/A"},
      {u"=CONVERT(1;\"LBM\";\"g\")", 0, "#N/A"},
  };
  ExpectResults(rows, 1e-14);
}

}  // namespace
