// The "Math & Trig" functions, run from formula text as a user types it (French separators) in a
// workbook whose cells the range functions read: rounding and its sign rules, the 32-bit
// truncations, domains of powers, logarithms and trigonometry, combinatorics, ROMAIN, random
// numbers, the array sums, the matrices, SOMME.SI, NB.SI and SOUS.TOTAL.
#include <cmath>
#include <cstdio>
#include <set>
#include <vector>

#include "formula/evaluator.h"
#include "formula/parser.h"
#include "functions/handler_fixture.h"
#include "functions/handlers.h"
#include "functions/numeric.h"

namespace {

// One line per result: numbers as the sheet shows them to 15 digits (with "." for the decimal
// point), texts quoted, booleans by name, arrays as {a,b;c,d}.
std::string Shown(const Value& v) {
  char number[40];
  switch (v.tag) {
    case ValueNumber:
      std::snprintf(number, sizeof number, "%.15g", v.number);
      return number;
    case ValueText:
      return "\"" + TextToUtf8(v.text) + "\"";
    case ValueBoolean:
      return v.boolean ? "VRAI" : "FAUX";
    case ValueError:
      return TextToUtf8(ErrorText(v.error));
    case ValueArray: {
      std::string s;
      for (uint32_t i = 0; i < uint32_t{v.rows} * v.columns; i++)
        s += (i == 0 ? "" : i % v.columns ? "," : ";") + Shown(v.elements[i]);
      return "{" + s + "}";
    }
    default:
      return "tag " + std::to_string(v.tag);
  }
}

struct Case {
  const char16_t* formula;
  const char* expected;
};

struct MathTest : HandlerTest {
  void SetUp() override { Open({}); }

  ParseContext At(uint32_t row, uint32_t col) const {
    return ParseContext{book, 0, 1, static_cast<uint16_t>(row), static_cast<uint8_t>(col), 0, 0};
  }
  // Compiles and evaluates a formula in U21.
  std::string Eval(const char16_t* formula) {
    ParseContext pc = At(ctx.row, ctx.col);
    FormulaTokens tokens{};
    if (CompileFormula(&pc, formula, ClassCodeValue, &tokens) != CompileOk) return "not compiled";
    Value v{};
    Evaluate(&tokens, &v, &ctx);
    std::string s = Shown(v);
    FreeValue(&v);
    FreeTokens(&tokens);
    return s;
  }
  void Expect(const std::vector<Case>& cases) {
    for (const Case& c : cases) EXPECT_EQ(Eval(c.formula), c.expected) << TextToUtf8(c.formula);
  }
  // Stores a formula cell, left dirty so that the first read calculates it.
  void PutFormula(const char* at, const char16_t* formula) {
    Range where = Area(at);
    ParseContext pc = At(where.firstRow, where.firstCol);
    Cell cell{};
    cell.row = where.firstRow;
    cell.col = where.firstCol;
    cell.xf = 15;
    ASSERT_EQ(CompileFormula(&pc, formula, ClassCodeValue, &cell.formula), CompileOk);
    ASSERT_TRUE(StoreCell(book, 0, &cell, 0, 0));
    CellAt(&GetSheet(book, 0)->cells, where.firstRow, where.firstCol)->state = CellDirty;
  }
};

TEST_F(MathTest, RoundingFollowsItsSignRules) {
  Expect({
      {u"=ARRONDI(2,5;0)", "3"},
      {u"=ARRONDI(-2,5;0)", "-3"},
      {u"=ARRONDI(1,005;2)", "1.01"},  // 100.49999999999999 after scaling, nudged up
      {u"=ARRONDI(-1,005;2)", "-1.01"},
      {u"=ARRONDI(1234,5;-2)", "1200"},
      {u"=ARRONDI(2,567;1,9)", "2.6"},  // the digits are truncated
      {u"=ARRONDI.INF(1234,567;-2)", "1200"},
      {u"=ARRONDI.INF(-1,9;0)", "-1"},
      {u"=ARRONDI.INF(1,99;1)", "1.9"},
      {u"=ARRONDI.SUP(1,2;0)", "2"},
      {u"=ARRONDI.SUP(-1,2;0)", "-2"},
      {u"=ARRONDI.SUP(1234;-2)", "1300"},
      {u"=ARRONDI.SUP(2;0)", "2"},
      {u"=TRONQUE(-8,9)", "-8"},
      {u"=TRONQUE(3,14159;2)", "3.14"},
      {u"=ENT(-8,9)", "-9"},
      {u"=PLAFOND(2,5;1)", "3"},
      {u"=PLAFOND(-2,5;-1)", "-3"},
      {u"=PLAFOND(-2,5;1)", "#NUM!"},
      {u"=PLAFOND(5;0)", "0"},
      {u"=PLANCHER(2,5;1)", "2"},
      {u"=PLANCHER(-2,5;-1)", "-2"},
      {u"=PLANCHER(2,5;-1)", "#NUM!"},
      {u"=PLANCHER(5;0)", "#DIV/0!"},
      {u"=ARRONDI.AU.MULTIPLE(10;3)", "9"},
      {u"=ARRONDI.AU.MULTIPLE(7,5;5)", "10"},
      {u"=ARRONDI.AU.MULTIPLE(-10;-3)", "-9"},
      {u"=ARRONDI.AU.MULTIPLE(10;-3)", "#NUM!"},
      {u"=ARRONDI.AU.MULTIPLE(5;0)", "0"},
      {u"=PAIR(1,5)", "2"},
      {u"=PAIR(3)", "4"},
      {u"=PAIR(-1)", "-2"},
      {u"=PAIR(0)", "0"},
      {u"=IMPAIR(1,5)", "3"},
      {u"=IMPAIR(2)", "3"},
      {u"=IMPAIR(-2)", "-3"},
      {u"=IMPAIR(0)", "1"},
      {u"=MOD(-3;2)", "1"},
      {u"=MOD(3;-2)", "-1"},
      {u"=MOD(3;0)", "#DIV/0!"},
      {u"=MOD(5,5;2)", "1.5"},
      {u"=QUOTIENT(-7;2)", "-3"},
      {u"=QUOTIENT(7;0)", "#DIV/0!"},
      // The first argument that fails decides the error.
      {u"=ARRONDI(\"a\";1/0)", "#VALUE!"},
      {u"=MOD(1/0;\"a\")", "#DIV/0!"},
  });
  // Digits left out count as 0.
  EXPECT_EQ(Call(FnArrondiInf, {NumberValue(-1.9)}), "n:-1");
  EXPECT_EQ(Call(FnArrondiSup, {NumberValue(1.2)}), "n:2");
}

TEST_F(MathTest, TruncationsGoThroughThirtyTwoBits) {
  Expect({
      {u"=TRONQUE(2147483647,5)", "2147483647"},
      {u"=ARRONDI.INF(3000000000;0)", "-2147483648"},
      {u"=ARRONDI.SUP(-3000000000,5;0)", "-2147483649"},
      {u"=QUOTIENT(5000000000;1)", "-2147483648"},
      {u"=COMBIN(5000000000;1)", "#NUM!"},
  });
  EXPECT_EQ(TruncateToInt32(NAN), INT32_MIN);
  EXPECT_EQ(TruncateToInt32(-2147483648.9), INT32_MIN);
  EXPECT_EQ(TruncateToInt32(-2147483649.0), INT32_MIN);
}

TEST_F(MathTest, PowersLogarithmsAndTrigonometryKeepTheirDomains) {
  Expect({
      {u"=PUISSANCE(0;0)", "#NUM!"},
      {u"=PUISSANCE(0;-1)", "#DIV/0!"},
      {u"=PUISSANCE(0;2)", "0"},
      {u"=PUISSANCE(-8;1/3)", "#NUM!"},
      {u"=PUISSANCE(-2;3)", "-8"},
      {u"=PUISSANCE(5;0)", "1"},
      {u"=LOG(8;2)", "3"},
      {u"=LOG(100)", "2"},
      {u"=LOG(0)", "#NUM!"},
      {u"=LOG(5;1)", "#DIV/0!"},
      {u"=LOG(8;-2)", "#NUM!"},
      {u"=LN(0)", "#NUM!"},
      {u"=LOG10(-1)", "#NUM!"},
      {u"=RACINE(-1)", "#NUM!"},
      {u"=RACINE(16)", "4"},
      {u"=RACINE.PI(-1)", "#NUM!"},
      {u"=RACINE.PI(1)", "1.77245385090552"},
      {u"=ASIN(2)", "#NUM!"},
      {u"=ACOS(-1,5)", "#NUM!"},
      {u"=ACOS(-1)", "3.14159265358979"},
      {u"=ACOSH(0,5)", "#NUM!"},
      {u"=ACOSH(1)", "0"},
      {u"=ATANH(1)", "#NUM!"},
      {u"=ATANH(0,5)", "0.549306144334055"},
      {u"=ASINH(-1)", "-0.881373587019543"},
      {u"=ATAN2(0;0)", "#DIV/0!"},
      {u"=ATAN2(0;1)", "1.5707963267949"},  // x first, then y
      {u"=ATAN2(-1;0)", "3.14159265358979"},
      {u"=DEGRES(PI())", "180"},
      {u"=RADIANS(90)", "1.5707963267949"},
      {u"=SIGNE(-0,1)", "-1"},
      {u"=SIGNE(0)", "0"},
      {u"=ABS(-2)", "2"},
      {u"=EXP(1)", "2.71828182845905"},
      {u"=SIN(PI()/2)+COS(0)+TAN(0)", "2"},
  });
}

TEST_F(MathTest, Combinatorics) {
  Expect({
      {u"=FACT(170)", "7.257415615308e+306"},
      {u"=FACT(171)", "#NUM!"},
      {u"=FACT(-1)", "#NUM!"},
      {u"=FACT(5,9)", "120"},
      {u"=FACT(0)", "1"},
      {u"=COMBIN(10;3)", "120"},
      {u"=COMBIN(10,9;3,9)", "120"},
      {u"=COMBIN(5;0)", "1"},
      {u"=COMBIN(3;5)", "#NUM!"},
      {u"=COMBIN(5;-1)", "#NUM!"},
      {u"=MULTINOMIALE(2;3;4)", "1260"},
      {u"=MULTINOMIALE(-1;2)", "#NUM!"},
      {u"=MULTINOMIALE(100;100)", "#NUM!"},
      {u"=PGCD(12;18;24)", "6"},
      {u"=PGCD(12,7;18)", "6"},
      {u"=PGCD(5;0)", "5"},
      {u"=PGCD(-1;2)", "#NUM!"},
      {u"=PPCM(4;6)", "12"},
      {u"=PPCM(2;3;4)", "12"},
      {u"=PPCM(4;0)", "0"},
  });
}

TEST_F(MathTest, RomanNumeralsInEachForm) {
  Expect({
      {u"=ROMAIN(499)", "\"CDXCIX\""},
      {u"=ROMAIN(499;1)", "\"LDVLIV\""},
      {u"=ROMAIN(499;2)", "\"XDIX\""},
      {u"=ROMAIN(499;3)", "\"VDIV\""},
      {u"=ROMAIN(499;4)", "\"ID\""},
      {u"=ROMAIN(499;VRAI)", "\"CDXCIX\""},
      {u"=ROMAIN(499;FAUX)", "\"ID\""},
      {u"=ROMAIN(99;1)", "\"VCIV\""},
      {u"=ROMAIN(99;2)", "\"IC\""},
      {u"=ROMAIN(1999)", "\"MCMXCIX\""},
      {u"=ROMAIN(3888)", "\"MMMDCCCLXXXVIII\""},
      {u"=ROMAIN(3999,9)", "\"MMMCMXCIX\""},
      {u"=ROMAIN(0)", "\"\""},
      {u"=ROMAIN(4000)", "#VALUE!"},
      {u"=ROMAIN(-1)", "#VALUE!"},
      {u"=ROMAIN(10;5)", "#VALUE!"},
  });
}

TEST_F(MathTest, RandomNumbersStayInTheirRange) {
  std::set<std::string> seen;
  for (int i = 0; i < 200; i++) {
    double alea = std::stod(Eval(u"=ALEA()"));
    EXPECT_GE(alea, 0.0);
    EXPECT_LE(alea, 1.0);
    // The top draw gives one above the upper bound, as designed.
    std::string between = Eval(u"=ALEA.ENTRE.BORNES(1;3)");
    EXPECT_TRUE(between == "1" || between == "2" || between == "3" || between == "4") << between;
    seen.insert(between);
  }
  EXPECT_GE(seen.size(), 2u);
  Expect({{u"=ALEA.ENTRE.BORNES(5;5,9)", "5"}, {u"=ALEA.ENTRE.BORNES(3;2)", "#NUM!"}});
}

TEST_F(MathTest, SumsOverArraysAndArguments) {
  Put(0, "A1", NumberValue(1));
  Put(0, "A2", NumberValue(2));
  Put(0, "A3", Text(u"x"));
  Put(0, "B1", NumberValue(3));
  Put(0, "B2", NumberValue(4));
  Put(0, "B3", NumberValue(5));
  Put(0, "G1", Text(u"a"));
  Put(0, "G2", Text(u"b"));
  Expect({
      {u"=SOMME(G1:G3)", "0"},
      {u"=SOMME(\"a\")", "#VALUE!"},
      {u"=PRODUIT(2;3;A1:B2)", "144"},
      {u"=PRODUIT(G1:G3)", "0"},
      {u"=PRODUIT(\"a\")", "#VALUE!"},
      {u"=SOMME.CARRES(3;4)", "25"},
      {u"=SOMMEPROD({1\\2};{3\\4})", "11"},
      {u"=SOMMEPROD(A1:A3;B1:B3)", "11"},  // the text multiplies as 0
      {u"=SOMMEPROD({1\\2};{3;4})", "#VALUE!"},
      {u"=SOMMEPROD({1\\2};{3\\#N/A})", "#N/A"},
      {u"=SOMMEPROD(5)", "5"},
      {u"=SOMME.X2MY2({2\\3};{1\\1})", "11"},
      {u"=SOMME.X2PY2({2\\3};{1\\1})", "15"},
      {u"=SOMME.XMY2({2\\3};{1\\1})", "5"},
      {u"=SOMME.XMY2({2\\\"a\"\\5};{1\\1\\1})", "17"},  // the pair with a text is skipped
      {u"=SOMME.X2MY2({1\\2};{1})", "#N/A"},
      {u"=SOMME.X2PY2({1\\#DIV/0!};{1\\2})", "#DIV/0!"},
      {u"=SOMME.SERIES(2;1;1;{1\\2\\3})", "34"},
      {u"=SOMME.SERIES(2;0;2;B1:B2)", "19"},
  });
}

TEST_F(MathTest, Matrices) {
  Put(0, "A1", NumberValue(1));
  Put(0, "B1", NumberValue(2));
  Put(0, "A2", NumberValue(3));
  Expect({
      {u"=DETERMAT({1\\2;3\\4})", "-2"},
      {u"=DETERMAT({1\\2\\3;4\\5\\6;7\\8\\10})", "-3"},
      {u"=DETERMAT({0\\1;1\\0})", "-1"},
      {u"=DETERMAT({1\\2})", "#VALUE!"},
      {u"=DETERMAT({1\\\"a\";3\\4})", "#VALUE!"},
      {u"=DETERMAT({1\\#N/A;3\\4})", "#N/A"},
      {u"=DETERMAT(A1:B2)", "#VALUE!"},  // a blank cell is no number
      {u"=INVERSEMAT({1\\2;3\\4})", "{-2,1;1.5,-0.5}"},
      {u"=INVERSEMAT({4})", "{0.25}"},
      {u"=INVERSEMAT({1\\2;2\\4})", "#NUM!"},
      {u"=PRODUITMAT({1\\2;3\\4};{5;6})", "{17;39}"},
      {u"=PRODUITMAT({1\\2};{3\\4})", "#VALUE!"},
      {u"=PRODUITMAT(A1:B1;{1;1})", "{3}"},
  });
  // Exhausted memory gives #N/A.
  Value m;
  ASSERT_TRUE(MakeArray(&m, 1, 1));
  m.elements[0] = NumberValue(2);
  SetAllocationFailureAfter(0);
  std::string shown = Call(FnDeterMat, {m});
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(shown, "#N/A");
}

// Column A holds one value of each kind with a gap in A9; column B the amounts beside them.
struct CriteriaRangeTest : MathTest {
  void SetUp() override {
    MathTest::SetUp();
    Put(0, "A1", NumberValue(1));
    Put(0, "A2", NumberValue(5));
    Put(0, "A3", NumberValue(7));
    Put(0, "A4", Text(u"a"));
    Put(0, "A5", Text(u"abc"));
    Put(0, "A6", Text(u"b"));
    Put(0, "A7", BooleanValue(true));
    Put(0, "A8", ErrorValue(ErrDiv0));
    Put(0, "A10", Text(u"5"));
    Put(0, "A11", NumberValue(0));
    for (int i = 1; i <= 11; i++) Put(0, ("B" + std::to_string(i)).c_str(), NumberValue(i * 10));
  }
};

TEST_F(CriteriaRangeTest, SommeSiAndNbSiTestEachCell) {
  struct {
    const char16_t* criterion;
    const char* count;      // NB.SI(A1:A11; criterion)
    const char* sumBeside;  // SOMME.SI(A1:A11; criterion; B1)
    const char* sumSelf;    // SOMME.SI(A1:A11; criterion)
  } cases[] = {
      {u"\">=5\"", "2", "50", "12"},
      {u"\"<>a\"", "5", "300", "0"},  // texts other than "a", the error and the blank A9
      {u"\"a*\"", "2", "90", "0"},
      {u"\"=\"", "1", "90", "0"},
      {u"5", "2", "120", "5"},  // the text "5" reads as the number
      {u"\"5\"", "2", "120", "5"},
      {u"\"vrai\"", "1", "70", "0"},
      {u"\"#DIV/0!\"", "1", "0", "0"},  // errors count but never add
      {u"\"<b\"", "3", "190", "0"},     // "5", "a", "abc"
      {u"\">=FAUX\"", "1", "70", "0"},
      {u"C1", "1", "110", "0"},  // a blank criterion meets the number 0 only
  };
  for (const auto& c : cases) {
    std::u16string criterion = c.criterion;
    EXPECT_EQ(Eval((u"=NB.SI(A1:A11;" + criterion + u")").c_str()), c.count)
        << TextToUtf8(c.criterion);
    EXPECT_EQ(Eval((u"=SOMME.SI(A1:A11;" + criterion + u";B1)").c_str()), c.sumBeside)
        << TextToUtf8(c.criterion);
    EXPECT_EQ(Eval((u"=SOMME.SI(A1:A11;" + criterion + u")").c_str()), c.sumSelf)
        << TextToUtf8(c.criterion);
  }
}

TEST_F(CriteriaRangeTest, RangeForms) {
  Expect({
      // Only the corner of the sum range counts.
      {u"=SOMME.SI(A1:A3;\">=5\";B2)", "70"},
      {u"=SOMME.SI(A1:A3;\">=5\";B2:C9)", "70"},
      {u"=SOMME.SI(A1:A3;\">=5\";Feuille1!B2)", "70"},
      {u"=SOMME.SI((A1;A2);5)", "#VALUE!"},
      {u"=NB.SI((A1;A2);5)", "#VALUE!"},
      {u"=NB.SI(A1:A11;A5)", "1"},
      // Whole columns cost what they hold, blanks included by count.
      {u"=NB.SI(A:A;\"a*\")", "2"},
      {u"=NB.SI(A:A;\"=\")", "65526"},
      {u"=NB.SI({1;2;3;\"a\"};\">=2\")", "2"},
  });
}

TEST_F(MathTest, SousTotalSkipsNestedSubtotals) {
  Put(0, "D1", NumberValue(1));
  Put(0, "D2", NumberValue(2));
  PutFormula("D3", u"=SOUS.TOTAL(9;D1:D2)");
  Put(0, "D4", NumberValue(3));
  Put(0, "D5", Text(u"x"));
  Put(0, "E1", ErrorValue(ErrNA));
  Expect({
      {u"=SOUS.TOTAL(1;D1:D5)", "2"},
      {u"=SOUS.TOTAL(2;D1:D5)", "3"},
      {u"=SOUS.TOTAL(3;D1:D5)", "4"},
      {u"=SOUS.TOTAL(4;D1:D5)", "3"},
      {u"=SOUS.TOTAL(5;D1:D5)", "1"},
      {u"=SOUS.TOTAL(6;D1:D5)", "6"},
      {u"=SOUS.TOTAL(7;D1:D5)", "1"},
      {u"=SOUS.TOTAL(8;D1:D5)", "0.816496580927726"},
      {u"=SOUS.TOTAL(9;D1:D5)", "6"},
      {u"=SOUS.TOTAL(10;D1:D5)", "1"},
      {u"=SOUS.TOTAL(11;D1:D5)", "0.666666666666667"},
      {u"=SOUS.TOTAL(9,7;D1:D5)", "6"},
      {u"=SOUS.TOTAL(9;D1;D4)", "4"},
      {u"=SOMME(D1:D4)", "9"},  // other functions see the subtotal
      {u"=SOUS.TOTAL(0;D1:D5)", "#VALUE!"},
      {u"=SOUS.TOTAL(12;D1:D5)", "#VALUE!"},
      {u"=SOUS.TOTAL(9;1)", "#VALUE!"},
      {u"=SOUS.TOTAL(9;D1:E1)", "#N/A"},
      {u"=SOUS.TOTAL(2;D1:E1)", "1"},
      {u"=SOUS.TOTAL(3;D1:E1)", "2"},
      {u"=SOUS.TOTAL(1;F1:F2)", "#DIV/0!"},
      {u"=SOUS.TOTAL(7;D1)", "#DIV/0!"},
      {u"=SOUS.TOTAL(4;F1:F2)", "0"},
  });
}

}  // namespace

namespace {
// The expansion by minors as written: n! terms, no stored minors.
double PlainExpansion(const std::vector<double>& m, uint32_t n) {
  if (n == 1) return m[0];
  double det = 0, sign = 1;
  for (uint32_t r = 0; r < n; r++, sign = -sign) {
    if (m[r * n] == 0) continue;
    std::vector<double> minor;
    for (uint32_t i = 0; i < n; i++)
      for (uint32_t j = 1; j < n && i != r; j++) minor.push_back(m[i * n + j]);
    det += sign * m[r * n] * PlainExpansion(minor, n - 1);
  }
  return det;
}
}  // namespace

// Keeping the minors by row set gives the plain expansion's result to the last bit, and makes
// the larger orders finish; above the limit the result is #NUM!.
TEST(MathDeterminant, StoredMinorsGiveThePlainExpansionExactly) {
  unsigned seed = 7;
  for (uint32_t n = 1; n <= 7; n++) {
    std::vector<double> m(n * n);
    for (double& x : m)
      x = static_cast<double>((seed = seed * 1103515245u + 12345u) % 2001) / 7 - 140;
    m[n * n / 2] = 0;
    double det = 0;
    ASSERT_TRUE(Determinant(m.data(), n, &det));
    EXPECT_EQ(det, PlainExpansion(m, n)) << n;
  }
  std::vector<double> identity(MaxDeterminantOrder * MaxDeterminantOrder, 0);
  for (uint32_t i = 0; i < MaxDeterminantOrder; i++) identity[i * MaxDeterminantOrder + i] = 2;
  double det = 0;
  ASSERT_TRUE(Determinant(identity.data(), MaxDeterminantOrder, &det));
  EXPECT_EQ(det, std::ldexp(1.0, MaxDeterminantOrder));
  EXPECT_FALSE(Determinant(identity.data(), MaxDeterminantOrder + 1, &det));
}
