// The numeric cores of the distribution functions: the normal distribution and its quantile, the
// logarithm of the gamma function, the regularised incomplete beta and gamma functions, and the
// quantiles found from them. They take and give plain doubles and know nothing of values, so that
// a handler is only argument work and the cores can be tested on their own. None reports an
// error: arguments outside a core's domain give a NaN or a limit, and the handlers' domain checks
// keep them away.
#pragma once

// The standard normal distribution function. With `density`, the standard normal density at x
// is left there as well, for callers that want both.
double NormalCdf(double x, double* density = nullptr);
double NormalDensity(double x);
// The inverse of NormalCdf (Wichura's algorithm AS 241, the sixteen-digit version). 0 and 1 go on
// to the logarithm of 0 and give no finite result.
double NormalQuantile(double p);

// log(Gamma(x)) for x above 0, with series about 1 and 2 where the direct form loses digits and
// Stirling's series beyond 171, where Gamma overflows.
double LogGamma(double x);
// log(Beta(a, b)).
double LogBeta(double a, double b);

// The regularised incomplete beta function I_x(a, b): the beta distribution function. 0 for x not
// above 0, 1 for x from 1 up; a = 0 gives 1 and a = b = 0 a NaN.
double IncompleteBeta(double x, double a, double b);
// The regularised lower incomplete gamma function P(a, x) and its complement Q(a, x) = 1 - P,
// computed directly so that a small upper tail keeps its digits. a = 0 gives P = 1.
double IncompleteGamma(double x, double a);
double IncompleteGammaComplement(double x, double a);

// The upper tail of Student's t distribution with `df` degrees of freedom: P(T > x).
double StudentTail(double x, double df);
// The upper tail of the F distribution: P(F > x).
double FisherTail(double x, double df1, double df2);
// The upper tail of the chi-squared distribution: P(X > x).
double ChiSquareTail(double x, double df);

// The x whose IncompleteBeta(x, a, b) is p, for p in [0, 1] and a, b above 0.
double BetaQuantile(double p, double a, double b);
// The x whose IncompleteGamma(x, a) is p, or, with `upper`, whose complement is p.
double GammaQuantile(double a, double p, bool upper);

// The error function and its complement, through the incomplete gamma function of order 1/2.
double ErrorFunction(double x);
double ErrorFunctionComplement(double x);
