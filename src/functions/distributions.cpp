// The probability functions of the "Statistiques" category, and ERF and ERFC: each handler reads
// its numbers, checks its domain (#NUM! outside it) and hands the work to a core of special.h.
// Counts such as degrees of freedom and numbers of trials are truncated through 32 bits first.
// The F, Student and gamma inverses iterate on the distribution function with a secant step whose
// tolerance is 3e-7 on the probability; an iteration that does not settle gives #N/A.
#include <cmath>

#include "functions/handlers.h"
#include "functions/numeric.h"
#include "functions/special.h"

namespace {

// The tolerance on the probability at which the inverses stop: the results carry about that
// accuracy, and the iteration is not asked for more.
constexpr double InverseTolerance = 3e-7;

void Refuse(Value* result) {
  *result = ErrorValue(ErrNum);
}

double Whole(double x) {
  return Truncate32(x);
}

// The scheme shared by the F, Student and gamma inverses: from x, a secant step on a central
// difference of width 2h, h halving each round. A step that would leave the positive half-line,
// where these distributions live, halves x instead.
using Distribution = double (*)(double x, const double* parameters);

int SolveDistribution(Distribution f, const double* parameters, double p, double x, double* out) {
  double h = 0.1;
  for (int round = 0; round < 100; round++) {
    double e = f(x, parameters) - p;
    if (std::fabs(e) < InverseTolerance) {
      *out = x;
      return 1;
    }
    double f1 = f(x - h, parameters) - p, f2 = f(x + h, parameters) - p;
    if (f1 == f2) return 0;
    double next = x - 2 * e * h / (f2 - f1);
    x = next > 0 ? next : x * 0.5;
    h *= 0.5;
  }
  return 0;
}

double FisherTailOf(double x, const double* df) {
  return FisherTail(x, df[0], df[1]);
}

double StudentTwoTails(double x, const double* df) {
  return 2 * StudentTail(std::fabs(x), df[0]);
}

double ScaledGamma(double x, const double* shape) {
  return IncompleteGamma(x / shape[1], shape[0]);
}

void GiveSolved(Value* result, Distribution f, const double* parameters, double p, double start) {
  double x;
  if (SolveDistribution(f, parameters, p, start, &x))
    GiveNumber(result, x);
  else
    *result = ErrorValue(ErrNA);
}

// A term of the binomial distribution, with pow at each step as the sum over terms requires.
double BinomialTerm(int32_t n, int32_t k, double p) {
  return Combinations(n, k) * std::pow(p, k) * std::pow(1 - p, n - k);
}

double PoissonTerm(int32_t x, double m) {
  return std::exp(-m) * std::pow(m, x) / Factorial(x);
}

}  // namespace

void FnLnGamma(Value* args, Value* result, const EvalContext* ctx) {
  double x = 0;
  if (!ReadNumbers(args, 1, &x, result, ctx)) return;
  if (x <= 0) return Refuse(result);
  GiveNumber(result, LogGamma(x));
}

void FnLoiBeta(Value* args, Value* result, const EvalContext* ctx) {
  double v[5] = {0, 0, 0, 0, 1};
  if (!ReadNumbers(args, 5, v, result, ctx)) return;
  if (v[1] <= 0 || v[2] <= 0 || v[0] < v[3] || v[0] > v[4]) return Refuse(result);
  GiveNumber(result, IncompleteBeta((v[0] - v[3]) / (v[4] - v[3]), v[1], v[2]));
}

void FnBetaInverse(Value* args, Value* result, const EvalContext* ctx) {
  double v[5] = {0, 0, 0, 0, 1};
  if (!ReadNumbers(args, 5, v, result, ctx)) return;
  if (v[0] <= 0 || v[0] > 1 || v[1] <= 0 || v[2] <= 0) return Refuse(result);
  GiveNumber(result, v[3] + (v[4] - v[3]) * BetaQuantile(v[0], v[1], v[2]));
}

void FnLoiGamma(Value* args, Value* result, const EvalContext* ctx) {
  double v[4] = {};
  if (!ReadNumbers(args, 4, v, result, ctx)) return;
  double x = v[0], alpha = v[1], beta = v[2];
  if (x < 0 || alpha <= 0 || beta <= 0) return Refuse(result);
  if (v[3] != 0) return GiveNumber(result, x == 0 ? 0 : IncompleteGamma(x / beta, alpha));
  if (alpha > 171) return Refuse(result);
  GiveNumber(result, std::pow(x, alpha - 1) * std::exp(-x / beta) /
                         (std::tgamma(alpha) * std::pow(beta, alpha)));
}

void FnLoiGammaInverse(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  if (v[0] < 0 || v[0] > 1 || v[1] <= 0 || v[2] <= 0) return Refuse(result);
  if (v[0] == 0) return GiveNumber(result, 0);
  // The search starts from the mean of the distribution.
  double shape[2] = {v[1], v[2]};
  GiveSolved(result, ScaledGamma, shape, v[0], v[1] * v[2]);
}

void FnLoiKhiDeux(Value* args, Value* result, const EvalContext* ctx) {
  double v[2] = {};
  if (!ReadNumbers(args, 2, v, result, ctx)) return;
  double df = Whole(v[1]);
  if (v[0] < 0 || df < 1) return Refuse(result);
  GiveNumber(result, v[0] == 0 ? 1 : ChiSquareTail(v[0], df));
}

void FnKhiDeuxInverse(Value* args, Value* result, const EvalContext* ctx) {
  double v[2] = {};
  if (!ReadNumbers(args, 2, v, result, ctx)) return;
  double df = Whole(v[1]);
  if (v[0] < 0 || v[0] > 1 || df < 1) return Refuse(result);
  GiveNumber(result, v[0] == 1 ? 0 : 2 * GammaQuantile(df * 0.5, v[0], true));
}

void FnLoiStudent(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  double df = Whole(v[1]), tails = Whole(v[2]);
  if (df < 1 || (tails != 1 && tails != 2) || v[0] < 0) return Refuse(result);
  GiveNumber(result, tails * StudentTail(v[0], df));
}

void FnLoiStudentInverse(Value* args, Value* result, const EvalContext* ctx) {
  double v[2] = {};
  if (!ReadNumbers(args, 2, v, result, ctx)) return;
  double df = Whole(v[1]);
  if (v[0] < 0 || v[0] > 1 || df < 1) return Refuse(result);
  GiveSolved(result, StudentTwoTails, &df, v[0], 1.0);
}

void FnLoiF(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  double df1 = Whole(v[1]), df2 = Whole(v[2]);
  if (v[0] < 0 || df1 < 1 || df2 < 1) return Refuse(result);
  GiveNumber(result, FisherTail(v[0], df1, df2));
}

void FnInverseLoiF(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  double df[2] = {Whole(v[1]), Whole(v[2])};
  if (v[0] < 0 || v[0] > 1 || df[0] < 1 || df[1] < 1) return Refuse(result);
  GiveSolved(result, FisherTailOf, df, v[0], 1.0);
}

void FnLoiNormaleStandard(Value* args, Value* result, const EvalContext* ctx) {
  double z = 0;
  if (ReadNumbers(args, 1, &z, result, ctx)) GiveNumber(result, NormalCdf(z));
}

void FnLoiNormale(Value* args, Value* result, const EvalContext* ctx) {
  double v[4] = {};
  if (!ReadNumbers(args, 4, v, result, ctx)) return;
  if (v[2] <= 0) return Refuse(result);
  double z = (v[0] - v[1]) / v[2];
  GiveNumber(result, v[3] != 0 ? NormalCdf(z) : NormalDensity(z) / v[2]);
}

void FnLoiLogNormale(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  if (v[0] <= 0 || v[2] <= 0) return Refuse(result);
  GiveNumber(result, NormalCdf((std::log(v[0]) - v[1]) / v[2]));
}

void FnLoiNormaleStandardInverse(Value* args, Value* result, const EvalContext* ctx) {
  double p = 0;
  if (!ReadNumbers(args, 1, &p, result, ctx)) return;
  if (p < 0 || p > 1) return Refuse(result);
  GiveNumber(result, NormalQuantile(p));
}

void FnLoiNormaleInverse(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  if (v[0] < 0 || v[0] > 1 || v[2] <= 0) return Refuse(result);
  GiveNumber(result, v[1] + v[2] * NormalQuantile(v[0]));
}

void FnLoiLogNormaleInverse(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  if (v[0] < 0 || v[0] > 1 || v[2] <= 0) return Refuse(result);
  GiveNumber(result, std::exp(v[1] + v[2] * NormalQuantile(v[0])));
}

void FnCentreeReduite(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  if (v[2] <= 0) return Refuse(result);
  GiveNumber(result, (v[0] - v[1]) / v[2]);
}

void FnFisher(Value* args, Value* result, const EvalContext* ctx) {
  double x = 0;
  if (!ReadNumbers(args, 1, &x, result, ctx)) return;
  if (std::fabs(x) >= 1) return Refuse(result);
  GiveNumber(result, 0.5 * std::log((1 + x) / (1 - x)));
}

void FnFisherInverse(Value* args, Value* result, const EvalContext* ctx) {
  double y = 0;
  if (!ReadNumbers(args, 1, &y, result, ctx)) return;
  double e = std::exp(2 * y);
  GiveNumber(result, std::isinf(e) ? 1 : (e - 1) / (e + 1));
}

void FnLoiExponentielle(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  double x = v[0], lambda = v[1];
  if (x < 0 || lambda <= 0) return Refuse(result);
  GiveNumber(result, v[2] != 0 ? 1 - std::exp(-lambda * x) : lambda * std::exp(-lambda * x));
}

void FnLoiWeibull(Value* args, Value* result, const EvalContext* ctx) {
  double v[4] = {};
  if (!ReadNumbers(args, 4, v, result, ctx)) return;
  double x = v[0], alpha = v[1], beta = v[2];
  if (x < 0 || alpha <= 0 || beta <= 0) return Refuse(result);
  double power = std::pow(x / beta, alpha);
  GiveNumber(result,
             v[3] != 0 ? 1 - std::exp(-power)
                       : alpha / std::pow(beta, alpha) * std::pow(x, alpha - 1) * std::exp(-power));
}

void FnLoiBinomiale(Value* args, Value* result, const EvalContext* ctx) {
  double v[4] = {};
  if (!ReadNumbers(args, 4, v, result, ctx)) return;
  int32_t s = TruncateToInt32(v[0]), n = TruncateToInt32(v[1]);
  double p = v[2];
  if (s < 0 || s > n || p < 0 || p > 1) return Refuse(result);
  if (v[3] == 0) return GiveNumber(result, BinomialTerm(n, s, p));
  double sum = 0;
  for (int32_t k = 0; k <= s; k++) sum += BinomialTerm(n, k, p);
  GiveNumber(result, sum);
}

void FnCritereLoiBinomiale(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  int32_t n = TruncateToInt32(v[0]);
  double p = v[1], alpha = v[2];
  if (n < 0 || p < 0 || p > 1 || alpha < 0 || alpha > 1) return Refuse(result);
  int32_t k = 0;
  // Rounding can keep the sum a hair below 1: the number of trials is the last index there is.
  for (double sum = BinomialTerm(n, 0, p); sum < alpha && k < n;) sum += BinomialTerm(n, ++k, p);
  GiveNumber(result, k);
}

void FnLoiBinomialeNeg(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  int32_t f = TruncateToInt32(v[0]), s = TruncateToInt32(v[1]);
  double p = v[2];
  if (f < 0 || s < 1 || p < 0 || p > 1) return Refuse(result);
  GiveNumber(result, Combinations(f + s - 1, s - 1) * std::pow(p, s) * std::pow(1 - p, f));
}

void FnLoiHypergeometrique(Value* args, Value* result, const EvalContext* ctx) {
  double v[4] = {};
  if (!ReadNumbers(args, 4, v, result, ctx)) return;
  int32_t x = TruncateToInt32(v[0]), n = TruncateToInt32(v[1]);
  int32_t m = TruncateToInt32(v[2]), total = TruncateToInt32(v[3]);
  if (x < 0 || n < 1 || m < 1 || total < 1 || x > n || x > m || n > total || m > total ||
      n - x > total - m)
    return Refuse(result);
  GiveNumber(result, Combinations(m, x) * Combinations(total - m, n - x) / Combinations(total, n));
}

void FnLoiPoisson(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  int32_t x = TruncateToInt32(v[0]);
  double m = v[1];
  bool cumulative = v[2] != 0;
  if (x < 0 || m < 0) return Refuse(result);
  if (m == 0) return GiveNumber(result, cumulative || x == 0 ? 1 : 0);
  if (!cumulative) return GiveNumber(result, PoissonTerm(x, m));
  double sum = 0;
  for (int32_t k = 0; k <= x; k++) sum += PoissonTerm(k, m);
  GiveNumber(result, sum);
}

void FnPermutation(Value* args, Value* result, const EvalContext* ctx) {
  double v[2] = {};
  if (!ReadNumbers(args, 2, v, result, ctx)) return;
  int32_t n = TruncateToInt32(v[0]), k = TruncateToInt32(v[1]);
  if (n < 0 || k < 0 || n < k) return Refuse(result);
  double product = 1;
  for (int32_t i = 0; i < k && std::isfinite(product); i++) product *= n - i;
  GiveNumber(result, product);
}

void FnIntervalleConfiance(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  double alpha = v[0], s = v[1], n = Whole(v[2]);
  if (alpha <= 0 || alpha >= 1 || s <= 0 || n < 1) return Refuse(result);
  GiveNumber(result, -NormalQuantile(alpha / 2) * s / std::sqrt(n));
}

void FnErf(Value* args, Value* result, const EvalContext* ctx) {
  double v[2] = {};
  if (!ReadNumbers(args, 2, v, result, ctx)) return;
  if (v[0] < 0 || v[1] < 0) return Refuse(result);
  double lower = ErrorFunction(v[0]);
  GiveNumber(result, args[1].tag == ValueEmpty ? lower : ErrorFunction(v[1]) - lower);
}

void FnErfc(Value* args, Value* result, const EvalContext* ctx) {
  double x = 0;
  if (!ReadNumbers(args, 1, &x, result, ctx)) return;
  if (x < 0) return Refuse(result);
  GiveNumber(result, ErrorFunctionComplement(x));
}
