// The numeric cores of the distributions against reference values computed to 30 digits, at the
// boundaries of each region of their algorithms (series and continued fractions, tails, small
// and large parameters), and by identities: symmetry, complements, quantile of the distribution.
#include "functions/special.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

struct Known {
  double x, a, b;
  double expected;
};

void ExpectClose(double got, double expected, double tolerance, const char* what, double x) {
  double error = expected == 0 ? std::fabs(got) : std::fabs(got - expected) / std::fabs(expected);
  EXPECT_LE(error, tolerance) << what << " at " << x << ": " << got << " against " << expected;
}

// Either side of the switch at |x| = 2 from the series to the continued fraction, deep in the
// tails, and past 40 where the result is exactly 0 or 1.
TEST(SpecialTest, NormalDistributionAcrossItsRegions) {
  const Known cases[] = {{-20, 0, 0, 2.7536241186062337e-89},
                         {-10, 0, 0, 7.6198530241605255e-24},
                         {-5, 0, 0, 2.8665157187919391e-07},
                         {-2.0000001, 0, 0, 0.022750126549083104},
                         {-2, 0, 0, 0.022750131948179209},
                         {-1.9999999, 0, 0, 0.022750137347276402},
                         {-0.3, 0, 0, 0.38208857781104738},
                         {1.99, 0, 0, 0.97670453224978815},
                         {2.5, 0, 0, 0.99379033467422384},
                         {8, 0, 0, 0.99999999999999933},
                         {0, 0, 0, 0.5},
                         {41, 0, 0, 1},
                         {-41, 0, 0, 0}};
  for (const Known& c : cases) ExpectClose(NormalCdf(c.x), c.expected, 1e-14, "NormalCdf", c.x);
  double density = -1;
  EXPECT_EQ(NormalCdf(0, &density), 0.5);
  EXPECT_NEAR(density, 0.3989422804014327, 1e-16);
  NormalCdf(50, &density);
  EXPECT_EQ(density, 0);
}

// Both sides of the central region |p - 0.5| <= 0.425 and of the tail split at r = 5; the
// distribution function undoes the quantile.
TEST(SpecialTest, NormalQuantileIsTheInverse) {
  const Known cases[] = {{1e-10, 0, 0, -6.3613409024040566},  {1e-5, 0, 0, -4.2648907939228247},
                         {0.0749, 0, 0, -1.4402382675279637}, {0.075, 0, 0, -1.4395314709384559},
                         {0.3, 0, 0, -0.52440051270804078},   {0.99, 0, 0, 2.3263478740408408}};
  for (const Known& c : cases)
    ExpectClose(NormalQuantile(c.x), c.expected, 1e-15, "NormalQuantile", c.x);
  EXPECT_EQ(NormalQuantile(0.5), 0);
  for (double p : {1e-300, 1e-20, 0.02, 0.4, 0.6, 0.97, 1 - 1e-12})
    ExpectClose(NormalCdf(NormalQuantile(p)), p, 1e-12, "round trip", p);
  for (double p : {1e-9, 0.1, 0.3})
    EXPECT_NEAR(NormalQuantile(p), -NormalQuantile(1 - p), 1e-6 * std::fabs(NormalQuantile(p)));
  EXPECT_FALSE(std::isfinite(NormalQuantile(0)));
  EXPECT_FALSE(std::isfinite(NormalQuantile(1)));
}

// The series about 1 and 2 on both sides of their windows, the direct form, and Stirling's
// series either side of 171.
TEST(SpecialTest, LogGammaAcrossItsRegions) {
  const Known cases[] = {
      {1e-10, 0, 0, 23.025850929882736},        {0.5, 0, 0, 0.57236494292470008},
      {0.99999, 0, 0, 5.772238896093089e-06},   {1.000001, 0, 0, -5.7721484238741467e-07},
      {1.00001, 0, 0, -5.7720744027504825e-06}, {1.99999, 0, 0, -4.2278111042416738e-06},
      {2.000007, 0, 0, 2.9595061465889698e-06}, {3, 0, 0, 0.69314718055994529},
      {170.9, 0, 0, 706.05921790394893},        {171.1, 0, 0, 707.08696523848744},
      {1e10, 0, 0, 220258509288.81058}};
  for (const Known& c : cases) ExpectClose(LogGamma(c.x), c.expected, 1e-15, "LogGamma", c.x);
  EXPECT_EQ(LogGamma(1), 0);
  EXPECT_EQ(LogGamma(2), 0);
}

// Each region: both parameters below 1, one below 1 with the series in x or in 1 - x, the
// continued fraction on both sides of the mean, and parameters near and above 50.
TEST(SpecialTest, IncompleteBetaAcrossItsRegions) {
  const Known cases[] = {{0.3, 0.5, 0.5, 0.36901011956554536},
                         {0.9, 0.5, 0.5, 0.79516723530086653},
                         {0.1, 0.5, 3, 0.5545844446520295},
                         {0.9, 3, 0.5, 0.4454155553479705},
                         {0.3, 0.2, 40, 0.99999998182892746},
                         {0.95, 40, 0.2, 0.0124671828178566},
                         {0.5, 2, 3, 0.6875},
                         {0.2, 10, 20, 0.049263517304212516},
                         {0.01, 5, 1.5, 2.6957276768685271e-10},
                         {0.7, 50, 55, 0.99999905545523682},
                         {0.5, 200, 210, 0.6894852134274162}};
  for (const Known& c : cases)
    ExpectClose(IncompleteBeta(c.x, c.a, c.b), c.expected, 1e-12, "IncompleteBeta", c.x);
  EXPECT_EQ(IncompleteBeta(0, 2, 3), 0);
  EXPECT_EQ(IncompleteBeta(1, 2, 3), 1);
  EXPECT_EQ(IncompleteBeta(0.5, 0, 3), 1);
  EXPECT_TRUE(std::isnan(IncompleteBeta(0.5, 0, 0)));
  for (double x : {0.05, 0.4, 0.8})
    EXPECT_NEAR(IncompleteBeta(x, 2.5, 7) + IncompleteBeta(1 - x, 7, 2.5), 1, 1e-15);
}

// The series below a + 1 and the continued fraction above, for small and large orders; the
// complement keeps its digits where 1 - P would lose them.
TEST(SpecialTest, IncompleteGammaAndItsComplement) {
  const Known cases[] = {{0.5, 0.5, 0, 0.68268949213708585},   {3, 0.5, 0, 0.98569412156457037},
                         {0.1, 2, 0, 0.0046788401604444703},   {5, 2, 0, 0.95957231800548715},
                         {1, 1, 0, 0.63212055882855767},       {40, 50, 0, 0.070335066659394957},
                         {0.001, 0.01, 0, 0.93857065252612903}};
  for (const Known& c : cases) {
    ExpectClose(IncompleteGamma(c.x, c.a), c.expected, 1e-13, "IncompleteGamma", c.x);
    EXPECT_NEAR(IncompleteGamma(c.x, c.a) + IncompleteGammaComplement(c.x, c.a), 1, 1e-15);
  }
  ExpectClose(IncompleteGammaComplement(100, 50), 1.1784500720979422e-08, 1e-13, "Q", 100);
  ExpectClose(ErrorFunctionComplement(10), 2.0884875837625449e-45, 1e-13, "erfc", 10);
  ExpectClose(ErrorFunction(1), 0.8427007929497149, 1e-15, "erf", 1);
  EXPECT_EQ(IncompleteGamma(3, 0), 1);
  EXPECT_EQ(IncompleteGamma(0, 3), 0);
  ExpectClose(StudentTail(2.5, 10), 0.015723422118304405, 1e-14, "StudentTail", 2.5);
  EXPECT_NEAR(StudentTail(-1, 5) + StudentTail(1, 5), 1, 1e-15);
  ExpectClose(ChiSquareTail(3, 3), 0.39162517627108895, 1e-13, "ChiSquareTail", 3);
  ExpectClose(FisherTail(2, 3, 7), 0.20269364248665089, 1e-12, "FisherTail", 2);
}

// The quantiles land back on their probability from either starting estimate, at small and
// large parameters and deep in the tails.
TEST(SpecialTest, QuantilesInvertTheirDistributions) {
  const Known beta[] = {{0.5, 2, 3, 0},   {0.01, 0.5, 0.5, 0}, {0.99, 0.5, 0.5, 0},
                        {1e-8, 2, 5, 0},  {0.9, 200, 100, 0},  {0.5, 0.1, 5, 0},
                        {0.2, 5, 0.1, 0}, {0.7, 1.5, 0.7, 0}};
  for (const Known& c : beta)
    ExpectClose(IncompleteBeta(BetaQuantile(c.x, c.a, c.b), c.a, c.b), c.x, 1e-12, "beta", c.x);
  ExpectClose(BetaQuantile(0.5, 2, 3), 0.3857275681323896, 1e-13, "BetaQuantile", 0.5);
  EXPECT_EQ(BetaQuantile(0, 2, 3), 0);
  EXPECT_EQ(BetaQuantile(1, 2, 3), 1);
  const Known gamma[] = {{0.5, 2, 0, 0}, {0.3, 50, 0, 0}, {0.9, 0.1, 0, 0}, {0.999, 1.5, 0, 0}};
  for (const Known& c : gamma)
    ExpectClose(IncompleteGamma(GammaQuantile(c.a, c.x, false), c.a), c.x, 1e-12, "gamma", c.x);
  const Known upper[] = {{0.05, 0.5, 0, 0}, {1e-10, 5, 0, 0}, {0.001, 10, 0, 0}};
  for (const Known& c : upper)
    ExpectClose(IncompleteGammaComplement(GammaQuantile(c.a, c.x, true), c.a), c.x, 1e-12,
                "upper gamma", c.x);
  ExpectClose(GammaQuantile(2, 0.5, false), 1.678346990016661, 1e-13, "GammaQuantile", 0.5);
}

}  // namespace
