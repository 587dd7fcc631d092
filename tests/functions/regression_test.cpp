// The regression family: DROITEREG with and without its statistics, with one and two x
// variables, without an intercept, and with collinear columns; LOGREG on exponential growth;
// TENDANCE and CROISSANCE at new points. References are solutions of the normal equations to 30
// digits.
#include <cmath>
#include <vector>

#include "functions/formula_fixture.h"

namespace {

constexpr double NA = NAN;  // a cell that must hold #N/A

// A1:A4 and B1:B4: x and y of a line; C1:D6 two x variables and E1:E6 their y; F1:F5 a growth;
// H1:I6 two collinear columns.
struct RegressionTest : FormulaTest {
  void SetUp() override {
    FormulaTest::SetUp();
    Column("A1", {0, 4, 2, 3});
    Column("B1", {1, 9, 5, 8});
    Column("C1", {1, 2, 3, 4, 5, 6});
    Column("D1", {2, 1, 5, 3, 6, 4});
    Column("E1", {3, 4, 8, 7, 11, 10});
    Column("F1", {3, 7, 16, 35, 80});
    Column("H1", {1, 2, 3, 4, 5, 6});
    Column("I1", {2, 4, 6, 8, 10, 12});
  }
  void ExpectArray(const char16_t* formula, uint16_t rows, uint16_t columns,
                   std::vector<double> expected, double tolerance = 1e-12) {
    Value v = Evaluated(formula, 1);
    ASSERT_EQ(v.tag, ValueArray) << TextToUtf8(formula) << " gave " << Show(v);
    ASSERT_EQ(v.rows, rows);
    ASSERT_EQ(v.columns, columns);
    for (uint32_t i = 0; i < expected.size(); i++) {
      const Value& e = v.elements[i];
      if (std::isnan(expected[i])) {
        EXPECT_EQ(Show(e), "#N/A") << TextToUtf8(formula) << " element " << i;
      } else {
        ASSERT_EQ(e.tag, ValueNumber) << TextToUtf8(formula) << " element " << i;
        double scale = std::fabs(expected[i]) > 1e-300 ? std::fabs(expected[i]) : 1;
        EXPECT_LE(std::fabs(e.number - expected[i]) / scale, tolerance)
            << TextToUtf8(formula) << " element " << i << ": " << e.number;
      }
    }
    FreeValue(&v);
  }
};

TEST_F(RegressionTest, DroiteRegGivesCoefficientsAndStatistics) {
  ExpectArray(u"=DROITEREG(B1:B4;A1:A4)", 1, 2, {2.0857142857142857, 1.0571428571428571});
  ExpectArray(u"=DROITEREG(B1:B4;A1:A4;VRAI;VRAI)", 5, 2,
              {2.0857142857142857, 1.0571428571428571, 0.1979486637221574, 0.53299308874793229,
               0.98230414746543779, 0.58554004376911991, 111.02083333333333, 2, 38.064285714285714,
               0.68571428571428571});
  ExpectArray(u"=DROITEREG(E1:E6;C1:D6;1;1)", 5, 3,
              {0.84770114942528736, 1.014367816091954, 0.64942528735632184, 0.12607707453149601,
               0.12607707453149601, 0.39982820990634681, 0.99067269643866591, 0.39754996794301751,
               NA, 159.31818181818183, 3, NA, 50.359195402298853, 0.47413793103448276, NA});
  // Without an intercept the line passes through 0, and its intercept has no standard error.
  ExpectArray(u"=DROITEREG({2;4;5;9};;FAUX;VRAI)", 5, 2,
              {2.0333333333333333, 0, 0.14782371884055634, NA, 0.98439153439153439,
               0.80966385343274128, 189.20338983050847, 3, 124.03333333333333, 1.9666666666666667});
  // I is twice H: the collinear column gets the coefficient 0 and the fit is that on H alone.
  ExpectArray(u"=DROITEREG(E1:E6;C1:C6)", 1, 2, {1.5714285714285714, 1.666666666666667});
  ExpectArray(u"=DROITEREG(E1:E6;H1:I6)", 1, 3, {0, 1.5714285714285714, 1.666666666666667});
  Value v = Evaluated(u"=DROITEREG(E1:E6;A1:A4)");
  EXPECT_EQ(Show(v), "#REF!");
  FreeValue(&v);
}

TEST_F(RegressionTest, ExponentialFitsAndPredictions) {
  ExpectArray(u"=LOGREG(F1:F5)", 1, 2, {2.265117559969913, 1.3471849456437035});
  ExpectArray(u"=CROISSANCE(F1:F5;;{6;7})", 2, 1, {181.95822951182783, 412.1567808482771});
  ExpectArray(u"=TENDANCE(B1:B4;A1:A4;{5\\6})", 1, 2, {11.485714285714286, 13.571428571428571});
  ExpectArray(u"=TENDANCE(E1:E6;C1:D6;{7\\5})", 1, 1, {11.988505747126437});
  ExpectArray(u"=TENDANCE(B1:B4)", 4, 1, {3.2, 4.9, 6.6, 8.3}, 1e-14);
  Value v = Evaluated(u"=LOGREG({1;-2})");
  EXPECT_EQ(Show(v), "#NUM!");
  FreeValue(&v);
}

}  // namespace
