// The "Math & Trig" functions, run from formula text as a user types it (French separators) in a
// workbook whose cells the range functions read: rounding and its sign rules, the 32-bit
// truncations, domains of powers, logarithms and trigonometry, combinatorics, ROMAIN, random
// numbers, the array sums, the matrices, SOMME.SI, NB.SI and SOUS.TOTAL.
#include <cmath>
#include <cstdio>
#include <set>
#include <span>
#include <vector>

#include "functions/formula_fixture.h"
#include "functions/handlers.h"
#include "functions/numeric.h"

namespace {

// Column A holds one value of each kind with a gap in A9, column B the amounts beside them (10,
// 20... 110), for SOMME.SI and NB.SI. G1:H3 hold numbers and a text, I1:I2 texts only; D1:D5 a
// column with a subtotal in D3 and a text, E1 an error.
struct MathTest : FormulaTest {
  void SetUp() override {
    Open({});
    const std::pair<const char*, Value> cells[] = {
        {"A1", NumberValue(1)},     {"A2", NumberValue(5)},      {"A3", NumberValue(7)},
        {"A4", Text(u"a")},         {"A5", Text(u"abc")},        {"A6", Text(u"b")},
        {"A7", BooleanValue(true)}, {"A8", ErrorValue(ErrDiv0)}, {"A10", Text(u"5")},
        {"A11", NumberValue(0)},    {"G1", NumberValue(1)},      {"G2", NumberValue(2)},
        {"G3", Text(u"x")},         {"H1", NumberValue(3)},      {"H2", NumberValue(4)},
        {"H3", NumberValue(5)},     {"I1", Text(u"a")},          {"I2", Text(u"b")},
        {"D1", NumberValue(1)},     {"D2", NumberValue(2)},      {"D4", NumberValue(3)},
        {"D5", Text(u"x")},         {"E1", ErrorValue(ErrNA)}};
    for (const auto& [at, value] : cells) Put(0, at, value);
    for (int i = 1; i <= 11; i++) {
      std::string cell = "B";
      cell += std::to_string(i);
      Put(0, cell.c_str(), NumberValue(i * 10));
    }
    // A subtotal cell, left dirty so that the first read calculates it.
    ParseContext pc{book, 0, A1Style, 2, 3, ReferencesAsWritten, SingleCellFormula};
    Cell cell{};
    cell.row = 2;
    cell.col = 3;
    ASSERT_EQ(CompileFormula(&pc, u"=SOUS.TOTAL(9;D1:D2)", ClassCodeValue, &cell.formula),
              CompileOk);
    ASSERT_TRUE(StoreCell(book, 0, &cell, StoreOnly, KeepRowHeight));
    CellAt(&GetSheet(book, 0)->cells, 2, 3)->state = CellDirty;
  }
};

// ARRONDI(1,005;2) is 100.49999999999999 after scaling and must be nudged up; digits are
// truncated, and left out count as 0. Values and steps of opposite signs cannot meet. The
// truncations go through 32 bits. The first argument that fails decides the error.
TEST_F(MathTest, RoundingFollowsItsSignRules) {
  const Calls rows[] = {
      {u"ARRONDI", {{u"2,5;0", "3"}, {u"-2,5;0", "-3"}, {u"1,005;2", "1.01"}}},
      {u"ARRONDI", {{u"-1,005;2", "-1.01"}, {u"1234,5;-2", "1200"}, {u"2,567;1,9", "2.6"}}},
      {u"ARRONDI", {{u"\"a\";1/0", "#VALUE!"}}},
      {u"ARRONDI.INF", {{u"1234,567;-2", "1200"}, {u"-1,9;0", "-1"}, {u"1,99;1", "1.9"}}},
      {u"ARRONDI.INF", {{u"3000000000;0", "-2147483648"}}},
      {u"ARRONDI.SUP", {{u"1,2;0", "2"}, {u"-1,2;0", "-2"}, {u"1234;-2", "1300"}, {u"2;0", "2"}}},
      {u"ARRONDI.SUP", {{u"-3000000000,5;0", "-2147483649"}}},
      {u"TRONQUE", {{u"-8,9", "-8"}, {u"3,14159;2", "3.14"}, {u"2147483647,5", "2147483647"}}},
      {u"ENT", {{u"-8,9", "-9"}}},
      {u"PLAFOND", {{u"2,5;1", "3"}, {u"-2,5;-1", "-3"}, {u"-2,5;1", "#NUM!"}, {u"5;0", "0"}}},
      {u"PLANCHER", {{u"2,5;1", "2"}, {u"-2,5;-1", "-2"}, {u"2,5;-1", "#NUM!"}}},
      {u"PLANCHER", {{u"5;0", "#DIV/0!"}}},
      {u"ARRONDI.AU.MULTIPLE", {{u"10;3", "9"}, {u"7,5;5", "10"}, {u"-10;-3", "-9"}}},
      {u"ARRONDI.AU.MULTIPLE", {{u"10;-3", "#NUM!"}, {u"5;0", "0"}}},
      {u"PAIR", {{u"1,5", "2"}, {u"3", "4"}, {u"-1", "-2"}, {u"0", "0"}}},
      {u"IMPAIR", {{u"1,5", "3"}, {u"2", "3"}, {u"-2", "-3"}, {u"0", "1"}}},
      {u"MOD", {{u"-3;2", "1"}, {u"3;-2", "-1"}, {u"3;0", "#DIV/0!"}, {u"5,5;2", "1.5"}}},
      {u"MOD", {{u"1/0;\"a\"", "#DIV/0!"}}},
      {u"QUOTIENT", {{u"-7;2", "-3"}, {u"7;0", "#DIV/0!"}, {u"5000000000;1", "-2147483648"}}},
  };
  ExpectCalls(rows);
  EXPECT_EQ(Call(FnArrondiInf, {NumberValue(-1.9)}), "n:-1");
  EXPECT_EQ(Call(FnArrondiSup, {NumberValue(1.2)}), "n:2");
  EXPECT_EQ(TruncateToInt32(NAN), INT32_MIN);
  EXPECT_EQ(TruncateToInt32(-2147483648.9), INT32_MIN);
  EXPECT_EQ(TruncateToInt32(-2147483649.0), INT32_MIN);
}

TEST_F(MathTest, PowersLogarithmsTrigonometryAndCombinatoricsKeepTheirDomains) {
  const Calls rows[] = {
      {u"PUISSANCE", {{u"0;0", "#NUM!"}, {u"0;-1", "#DIV/0!"}, {u"0;2", "0"}}},
      {u"PUISSANCE", {{u"-8;1/3", "#NUM!"}, {u"-2;3", "-8"}, {u"5;0", "1"}}},
      {u"LOG", {{u"8;2", "3"}, {u"100", "2"}, {u"0", "#NUM!"}, {u"5;1", "#DIV/0!"}}},
      {u"LOG", {{u"8;-2", "#NUM!"}}},
      {u"LN", {{u"0", "#NUM!"}}},
      {u"LOG10", {{u"-1", "#NUM!"}}},
      {u"RACINE", {{u"-1", "#NUM!"}, {u"16", "4"}}},
      {u"RACINE.PI", {{u"-1", "#NUM!"}, {u"1", "1.77245385090552"}}},
      {u"ASIN", {{u"2", "#NUM!"}}},
      {u"ACOS", {{u"-1,5", "#NUM!"}, {u"-1", "3.14159265358979"}}},
      {u"ACOSH", {{u"0,5", "#NUM!"}, {u"1", "0"}}},
      {u"ATANH", {{u"1", "#NUM!"}, {u"0,5", "0.549306144334055"}}},
      {u"ASINH", {{u"-1", "-0.881373587019543"}}},
      // x first, then y
      {u"ATAN2", {{u"0;0", "#DIV/0!"}, {u"0;1", "1.5707963267949"}, {u"-1;0", "3.14159265358979"}}},
      {u"DEGRES", {{u"PI()", "180"}}},
      {u"RADIANS", {{u"90", "1.5707963267949"}}},
      {u"SIGNE", {{u"-0,1", "-1"}, {u"0", "0"}}},
      {u"ABS", {{u"-2", "2"}}},
      {u"EXP", {{u"1", "2.71828182845905"}}},
      {u"SOMME", {{u"SIN(PI()/2);COS(0);TAN(0)", "2"}}},
      {u"FACT", {{u"170", "7.257415615308e+306"}, {u"171", "#NUM!"}, {u"-1", "#NUM!"}}},
      {u"FACT", {{u"5,9", "120"}, {u"0", "1"}}},
      {u"COMBIN", {{u"10;3", "120"}, {u"10,9;3,9", "120"}, {u"5;0", "1"}, {u"3;5", "#NUM!"}}},
      {u"COMBIN", {{u"5;-1", "#NUM!"}, {u"5000000000;1", "#NUM!"}}},
      {u"MULTINOMIALE", {{u"2;3;4", "1260"}, {u"-1;2", "#NUM!"}, {u"100;100", "#NUM!"}}},
      {u"PGCD", {{u"12;18;24", "6"}, {u"12,7;18", "6"}, {u"5;0", "5"}, {u"-1;2", "#NUM!"}}},
      {u"PPCM", {{u"4;6", "12"}, {u"2;3;4", "12"}, {u"4;0", "0"}}},
  };
  ExpectCalls(rows);
}

TEST_F(MathTest, RomanNumeralsInEachForm) {
  const Calls rows[] = {
      {u"ROMAIN", {{u"499", "s:CDXCIX"}, {u"499;1", "s:LDVLIV"}, {u"499;2", "s:XDIX"}}},
      {u"ROMAIN", {{u"499;3", "s:VDIV"}, {u"499;4", "s:ID"}, {u"499;VRAI", "s:CDXCIX"}}},
      {u"ROMAIN", {{u"499;FAUX", "s:ID"}, {u"99;1", "s:VCIV"}, {u"99;2", "s:IC"}}},
      {u"ROMAIN", {{u"1999", "s:MCMXCIX"}, {u"3888", "s:MMMDCCCLXXXVIII"}}},
      {u"ROMAIN", {{u"3999,9", "s:MMMCMXCIX"}, {u"0", "s:"}, {u"4000", "#VALUE!"}}},
      {u"ROMAIN", {{u"-1", "#VALUE!"}, {u"10;5", "#VALUE!"}}},
  };
  ExpectCalls(rows);
}

TEST_F(MathTest, RandomNumbersStayInTheirRange) {
  std::set<std::string> seen;
  for (int i = 0; i < 200; i++) {
    double alea = std::stod(Eval(u"=ALEA()"));
    EXPECT_TRUE(alea >= 0 && alea <= 1) << alea;
    // The top draw gives one above the upper bound, as designed.
    std::string between = Eval(u"=ALEA.ENTRE.BORNES(1;3)");
    EXPECT_TRUE(between >= "1" && between <= "4" && between.size() == 1) << between;
    seen.insert(between);
  }
  EXPECT_GE(seen.size(), 2u);
  EXPECT_EQ(Eval(u"=ALEA.ENTRE.BORNES(5;5,9)"), "5");
  EXPECT_EQ(Eval(u"=ALEA.ENTRE.BORNES(3;2)"), "#NUM!");
}

TEST_F(MathTest, SumsOverArraysAndArguments) {
  const Calls rows[] = {
      {u"SOMME", {{u"I1:I3", "0"}, {u"\"a\"", "#VALUE!"}}},
      {u"PRODUIT", {{u"2;3;G1:H2", "144"}, {u"I1:I3", "0"}, {u"\"a\"", "#VALUE!"}}},
      {u"SOMME.CARRES", {{u"3;4", "25"}}},
      // The text multiplies as 0.
      {u"SOMMEPROD", {{u"{1\\2};{3\\4}", "11"}, {u"G1:G3;H1:H3", "11"}, {u"5", "5"}}},
      {u"SOMMEPROD", {{u"{1\\2};{3;4}", "#VALUE!"}, {u"{1\\2};{3\\#N/A}", "#N/A"}}},
      {u"SOMME.X2MY2", {{u"{2\\3};{1\\1}", "11"}, {u"{1\\2};{1}", "#N/A"}}},
      {u"SOMME.X2PY2", {{u"{2\\3};{1\\1}", "15"}, {u"{1\\#DIV/0!};{1\\2}", "#DIV/0!"}}},
      // The pair with a text is skipped; arrays without a pair of numbers have no sum.
      {u"SOMME.XMY2",
       {{u"{2\\3};{1\\1}", "5"},
        {u"{2\\\"a\"\\5};{1\\1\\1}", "17"},
        {u"{\"a\"\\VRAI};{1\\2}", "#DIV/0!"}}},
      {u"SOMME.SERIES", {{u"2;1;1;{1\\2\\3}", "34"}, {u"2;0;2;H1:H2", "19"}}},
  };
  ExpectCalls(rows);
}

// Every element must be a number: a text or a blank cell gives #VALUE!, an error element itself.
// Exhausted memory gives #N/A.
TEST_F(MathTest, Matrices) {
  const Calls rows[] = {
      {u"DETERMAT", {{u"{1\\2;3\\4}", "-2"}, {u"{1\\2\\3;4\\5\\6;7\\8\\10}", "-3"}}},
      {u"DETERMAT", {{u"{0\\1;1\\0}", "-1"}, {u"{1\\2}", "#VALUE!"}, {u"H3:I4", "#VALUE!"}}},
      {u"DETERMAT", {{u"{1\\\"a\";3\\4}", "#VALUE!"}, {u"{1\\#N/A;3\\4}", "#N/A"}}},
      {u"INVERSEMAT", {{u"{1\\2;3\\4}", "{-2,1;1.5,-0.5}"}, {u"{4}", "{0.25}"}}},
      {u"INVERSEMAT", {{u"{1\\2;2\\4}", "#NUM!"}}},
      {u"PRODUITMAT", {{u"{1\\2;3\\4};{5;6}", "{17;39}"}, {u"{1\\2};{3\\4}", "#VALUE!"}}},
      {u"PRODUITMAT", {{u"G1:H1;{1;1}", "{4}"}}},
  };
  ExpectCalls(rows);
  Value m = Array(1, {NumberValue(2)});
  SetAllocationFailureAfter(0);
  std::string shown = Call(FnDeterMat, {m});
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(shown, "#N/A");
}

// What a criterion meets is tested on single values with the criteria; here, what the range
// functions make of the cells met: blanks, errors that count but never add, texts and booleans
// that are never added. Only the corner of the sum range counts. Whole columns cost what they
// hold, blanks included by count.
TEST_F(MathTest, SommeSiAndNbSiTestEachCell) {
  struct {
    const char16_t* criterion;
    const char* count;      // NB.SI(A1:A11; criterion)
    const char* sumBeside;  // SOMME.SI(A1:A11; criterion; B1)
    const char* sumSelf;    // SOMME.SI(A1:A11; criterion)
  } cases[] = {
      {u"\">=5\"", "2", "50", "12"},
      {u"\"<>a\"", "5", "300", "0"},  // texts other than "a", the error and the blank A9
      {u"\"=\"", "1", "90", "0"},
      {u"5", "2", "120", "5"},          // the text "5" reads as the number
      {u"\"#DIV/0!\"", "1", "0", "0"},  // errors count but never add
      {u"\"<b\"", "3", "190", "0"},     // "5", "a", "abc", not "b" itself
      {u"\">=FAUX\"", "1", "70", "0"},
      {u"C1", "1", "110", "0"},  // a blank criterion meets the number 0 only
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(TextToUtf8(c.criterion));
    std::u16string criterion = c.criterion;
    EXPECT_EQ(Eval((u"=NB.SI(A1:A11;" + criterion + u")").c_str()), c.count);
    EXPECT_EQ(Eval((u"=SOMME.SI(A1:A11;" + criterion + u";B1)").c_str()), c.sumBeside);
    EXPECT_EQ(Eval((u"=SOMME.SI(A1:A11;" + criterion + u")").c_str()), c.sumSelf);
  }
  const Calls forms[] = {
      {u"SOMME.SI", {{u"A1:A3;\">=5\";B2", "70"}, {u"A1:A3;\">=5\";B2:C9", "70"}}},
      {u"SOMME.SI", {{u"A1:A3;\">=5\";Feuille1!B2", "70"}, {u"(A1;A2);5", "#VALUE!"}}},
      {u"NB.SI", {{u"(A1;A2);5", "#VALUE!"}, {u"A1:A11;A5", "1"}, {u"A:A;\"a*\"", "2"}}},
      {u"NB.SI", {{u"A:A;\"=\"", "65526"}, {u"{1;2;3;\"a\"};\">=2\"", "2"}}},
  };
  ExpectCalls(forms);
}

// The subtotal in D3 is passed over; other functions see it, calculated first.
TEST_F(MathTest, SousTotalSkipsNestedSubtotals) {
  const Calls rows[] = {
      {u"SOUS.TOTAL", {{u"1;D1:D5", "2"}, {u"2;D1:D5", "3"}, {u"3;D1:D5", "4"}, {u"4;D1:D5", "3"}}},
      {u"SOUS.TOTAL", {{u"5;D1:D5", "1"}, {u"6;D1:D5", "6"}, {u"7;D1:D5", "1"}}},
      {u"SOUS.TOTAL", {{u"8;D1:D5", "0.816496580927726"}, {u"9;D1:D5", "6"}, {u"10;D1:D5", "1"}}},
      {u"SOUS.TOTAL", {{u"11;D1:D5", "0.666666666666667"}, {u"9,7;D1:D5", "6"}, {u"9;D1;D4", "4"}}},
      {u"SOUS.TOTAL", {{u"0;D1:D5", "#VALUE!"}, {u"12;D1:D5", "#VALUE!"}, {u"9;1", "#VALUE!"}}},
      {u"SOUS.TOTAL", {{u"9;D1:E1", "#N/A"}, {u"2;D1:E1", "1"}, {u"3;D1:E1", "2"}}},
      {u"SOUS.TOTAL", {{u"1;F1:F2", "#DIV/0!"}, {u"7;D1", "#DIV/0!"}, {u"4;F1:F2", "0"}}},
      {u"SOMME", {{u"D1:D4", "9"}}},  // calculates the subtotal, still dirty, before reading it
  };
  ExpectCalls(rows);
}

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

}  // namespace
