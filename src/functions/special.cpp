// The numeric cores of the distributions. Each region of an algorithm is chosen where its series
// or continued fraction converges fast, so that every call ends after a bounded number of terms;
// the quantiles start from a closed-form estimate and polish it with Halley's method inside a
// bracket that bisection keeps honest.
#include "functions/special.h"

#include <cmath>
#include <limits>

namespace {

constexpr double Pi = 3.141592653589793;
constexpr double LogSqrtTwoPi = 0.9189385332046728;
constexpr double EulerGamma = 0.5772156649015329;
constexpr double Epsilon = 1e-15;
// The smallest magnitude the continued fractions let a denominator take, so that a zero never
// divides.
constexpr double Tiny = 1e-300;

// Values of the Riemann zeta function at the odd integers the series of LogGamma need.
constexpr double Zeta3 = 1.2020569031595942;
constexpr double Zeta5 = 1.0369277551433699;
constexpr double Zeta7 = 1.0083492773819228;
constexpr double Zeta9 = 1.0020083928260822;
constexpr double Zeta11 = 1.0004941886041195;

double Polynomial(const double* c, int degree, double x) {
  double sum = c[degree];
  for (int i = degree - 1; i >= 0; i--) sum = sum * x + c[i];
  return sum;
}

// log(Gamma(x)) less its Stirling approximation (x - 0.5) log(x) - x + log(sqrt(2 pi)): the tail
// of Stirling's series, small and exact to double precision from 10 up.
double StirlingRemainder(double x) {
  double r = 1 / x, r2 = r * r;
  return r * (1.0 / 12 - r2 * (1.0 / 360 -
                               r2 * (1.0 / 1260 -
                                     r2 * (1.0 / 1680 - r2 * (1.0 / 1188 - r2 * 691.0 / 360360)))));
}

// Stirling's series for log(Gamma(x)), exact to double precision for x above about 10.
double Stirling(double x) {
  return (x - 0.5) * std::log(x) - x + LogSqrtTwoPi + StirlingRemainder(x);
}

// Parameters from which the prefactors are taken about the distribution's centre: there the
// logarithms of the plain forms are large and nearly cancel, and would lose the digits.
constexpr double LargeParameter = 10;

// x^a (1 - x)^b / Beta(a, b), the factor in front of the expansions of the incomplete beta
// function, computed through logarithms so that it neither overflows nor underflows on the way.
double BetaFront(double x, double a, double b) {
  if (a < LargeParameter || b < LargeParameter)
    return std::exp(a * std::log(x) + b * std::log1p(-x) - LogBeta(a, b));
  // About the mean x0 = a / (a + b): x0^a y0^b / Beta(a, b) by Stirling's series, times the
  // ratios (x / x0)^a (y / y0)^b.
  double total = a + b, x0 = a / total, y0 = b / total;
  double deviation = a * std::log1p((x - x0) / x0) + b * std::log1p((x0 - x) / y0);
  double correction = StirlingRemainder(total) - StirlingRemainder(a) - StirlingRemainder(b);
  return std::sqrt(a * b / (2 * Pi * total)) * std::exp(deviation + correction);
}

// x^a e^-x / Gamma(a), the factor in front of the expansions of the incomplete gamma function,
// taken about x = a for large a in the same way.
double GammaFront(double x, double a) {
  if (a < LargeParameter) return std::exp(-x + a * std::log(x) - LogGamma(a));
  double t = (x - a) / a;
  return std::sqrt(a / (2 * Pi)) * std::exp(a * (std::log1p(t) - t) - StirlingRemainder(a));
}

// I_x(a, b) by the hypergeometric series in x: x^a / Beta(a, b) times the sum over n of
// ((1 - b)(2 - b)...(n - b) / n!) x^n / (a + n). Fast when x is small against 1 / (b + 1).
double BetaSeries(double x, double a, double b) {
  double term = 1, sum = 1 / a;
  for (int n = 1; n < 100000; n++) {
    term *= (n - b) * x / n;
    double add = term / (a + n);
    sum += add;
    if (std::fabs(add) <= std::fabs(sum) * Epsilon) break;
  }
  return std::exp(a * std::log(x) - LogBeta(a, b)) * sum;
}

// One term of a continued fraction 1 / (1 + aa / (1 + ...)) by the modified Lentz method: updates
// the running ratios c and d, and returns the factor by which the value changes.
double LentzStep(double aa, double* c, double* d) {
  *d = 1 + aa * *d;
  if (std::fabs(*d) < Tiny) *d = Tiny;
  *c = 1 + aa / *c;
  if (std::fabs(*c) < Tiny) *c = Tiny;
  *d = 1 / *d;
  return *d * *c;
}

// I_x(a, b) by its continued fraction, evaluated by the modified Lentz method; it converges fast
// for x below (a + 1) / (a + b + 2), the caller exchanging the parameters otherwise. The number
// of terms grows as the square root of the larger parameter.
double BetaFraction(double x, double a, double b) {
  double qab = a + b, qap = a + 1, qam = a - 1;
  double c = 1, d = 1 - qab * x / qap;
  if (std::fabs(d) < Tiny) d = Tiny;
  d = 1 / d;
  double h = d;
  for (int m = 1; m < 1000000; m++) {
    int m2 = 2 * m;
    h *= LentzStep(m * (b - m) * x / ((qam + m2) * (a + m2)), &c, &d);
    double step = LentzStep(-(a + m) * (qab + m) * x / ((a + m2) * (qap + m2)), &c, &d);
    h *= step;
    if (std::fabs(step - 1) <= Epsilon) break;
  }
  return BetaFront(x, a, b) * h / a;
}

// The general method: the continued fraction on whichever side of the mean it converges.
double BetaGeneral(double x, double a, double b) {
  if (x < (a + 1) / (a + b + 2)) return BetaFraction(x, a, b);
  return 1 - BetaFraction(1 - x, b, a);
}

// P(a, x) by the series e^-x x^a / Gamma(a + 1) times the sum of x^n / ((a + 1)...(a + n)), for x
// below a + 1.
double GammaSeries(double x, double a) {
  double term = 1 / a, sum = term, ap = a;
  for (int n = 1; n < 10000000; n++) {
    ap += 1;
    term *= x / ap;
    sum += term;
    if (term <= sum * Epsilon) break;
  }
  return sum * GammaFront(x, a);
}

// Q(a, x) by the continued fraction that starts from x - a + 1, for x from a + 1 up.
double GammaFraction(double x, double a) {
  double b = x + 1 - a, c = 1 / Tiny, d = 1 / b, h = d;
  for (int i = 1; i < 10000000; i++) {
    double an = -i * (i - a);
    b += 2;
    d = an * d + b;
    if (std::fabs(d) < Tiny) d = Tiny;
    c = b + an / c;
    if (std::fabs(c) < Tiny) c = Tiny;
    d = 1 / d;
    double step = d * c;
    h *= step;
    if (std::fabs(step - 1) <= Epsilon) break;
  }
  return GammaFront(x, a) * h;
}

// A first guess at the standard normal quantile, good to about three digits (Abramowitz and
// Stegun 26.2.22), for the starting points of the other quantiles.
double RoughNormalQuantile(double p) {
  double pp = p < 0.5 ? p : 1 - p;
  double t = std::sqrt(-2 * std::log(pp));
  double x = (2.30753 + t * 0.27061) / (1 + t * (0.99229 + t * 0.04481)) - t;
  return p < 0.5 ? x : -x;
}

}  // namespace

double NormalDensity(double x) {
  return std::exp(x * x * -0.5 - LogSqrtTwoPi);
}

double NormalCdf(double x, double* density) {
  double x2 = x * x;
  double phi = 0, result;
  if (std::fabs(x) < 2) {
    // The Taylor series of the integral from 0.
    double term = 1, sum = 0, k = 3;
    do {
      k += 2;
      term = term / k * x2;
      sum += term;
    } while (term > sum * 5e-16);
    phi = NormalDensity(x);
    result = ((sum + 1) * x2 * 0.3333333333333333 + 1) * phi * x + 0.5;
  } else if (std::fabs(x) > 40) {
    result = x > 0 ? 1 : 0;
  } else {
    // The continued fraction of the tail, x / (x2 + 1 - 2 / (x2 + 5 - 12 / (x2 + 9 - ...))), run
    // by the forward recurrence on two successive convergents a/b and p/q.
    double a = 2, b = x2 + 5, c = x2 + 9;
    double p = 2 * c, q = c * b - 12, k = 5, s = c + 4;
    while (std::fabs(p * b - q * a) > p * b * 1e-15) {
      double f = (k + 1) * k;
      double a1 = p * s - f * a, b1 = q * s - f * b;
      double k2 = k + 2, s2 = s + 4;
      double g = (k2 + 1) * k2;
      double p1 = s2 * a1 - g * p, q1 = s2 * b1 - g * q;
      k = k2 + 2;
      s = s2 + 4;
      if (q1 > 1.157920892373162e77) {
        // Rescaled together, the convergents keep their ratios and stay in range.
        a1 *= 8.636168555094445e-78;
        b1 *= 8.636168555094445e-78;
        p1 *= 8.636168555094445e-78;
        q1 *= 8.636168555094445e-78;
      }
      a = a1;
      b = b1;
      p = p1;
      q = q1;
    }
    phi = NormalDensity(x);
    double tail = phi * x / (x2 + 1 - p / q);
    result = x > 0 ? 1 - tail : -tail;
  }
  if (density) *density = phi;
  return result;
}

double NormalQuantile(double p) {
  static const double a[] = {3.3871328727963666080e0, 1.3314166789178437745e2,
                             1.9715909503065514427e3, 1.3731693765509461125e4,
                             4.5921953931549871457e4, 6.7265770927008700853e4,
                             3.3430575583588128105e4, 2.5090809287301226727e3};
  static const double b[] = {1.0,
                             4.2313330701600911252e1,
                             6.8718700749205790830e2,
                             5.3941960214247511077e3,
                             2.1213794301586595867e4,
                             3.9307895800092710610e4,
                             2.8729085735721942674e4,
                             5.2264952788528545610e3};
  static const double c[] = {1.42343711074968357734e0,  4.63033784615654529590e0,
                             5.76949722146069140550e0,  3.64784832476320460504e0,
                             1.27045825245236838258e0,  2.41780725177450611770e-1,
                             2.27238449892691845833e-2, 7.74545014278341407640e-4};
  static const double d[] = {1.0,
                             2.05319162663775882187e0,
                             1.67638483018380384940e0,
                             6.89767334985100004550e-1,
                             1.48103976427480074590e-1,
                             1.51986665636164571966e-2,
                             5.47593808499534494600e-4,
                             1.05075007164441684324e-9};
  static const double e[] = {6.65790464350110377720e0,  5.46378491116411436990e0,
                             1.78482653991729133580e0,  2.96560571828504891230e-1,
                             2.65321895265761230930e-2, 1.24266094738807843860e-3,
                             2.71155556874348757815e-5, 2.01033439929228813265e-7};
  static const double f[] = {1.0,
                             5.99832206555887937690e-1,
                             1.36929880922735805310e-1,
                             1.48753612908506148525e-2,
                             7.86869131145613259100e-4,
                             1.84631831751005468180e-5,
                             1.42151175831644588870e-7,
                             2.04426310338993978564e-15};
  double q = p - 0.5;
  if (std::fabs(q) <= 0.425) {
    double r = 0.180625 - q * q;
    return q * Polynomial(a, 7, r) / Polynomial(b, 7, r);
  }
  double r = std::sqrt(-std::log(q < 0 ? p : 1 - p));
  double x;
  if (r <= 5) {
    r -= 1.6;
    x = Polynomial(c, 7, r) / Polynomial(d, 7, r);
  } else {
    r -= 5;
    x = Polynomial(e, 7, r) / Polynomial(f, 7, r);
  }
  return q < 0 ? -x : x;
}

double LogGamma(double x) {
  if (x >= 0.99999 && x <= 1.00001 && x != 1) {
    double d = x - 1, b = d * Pi;
    double b2 = b * b, d2 = d * d;
    return b2 / 12 - EulerGamma * d - Zeta3 * d * d2 / 3 + b2 * b2 / 360 - Zeta5 * d * d2 * d2 / 5 +
           b2 * b2 * b2 / 5670 - Zeta7 * d * d2 * d2 * d2 / 7 + b2 * b2 * b2 * b2 / 75600 -
           Zeta9 * d * d2 * d2 * d2 * d2 / 9 + b2 * b2 * b2 * b2 * b2 / 935550 -
           Zeta11 * d * d2 * d2 * d2 * d2 * d2 / 11;
  }
  if (x >= 1.99999 && x <= 2.00001 && x != 2) {
    double d = x - 2, pi2 = Pi * Pi;
    double pi4 = pi2 * pi2, pi6 = pi4 * pi2, pi8 = pi4 * pi4, pi10 = pi8 * pi2;
    const double c[] = {0,
                        0.42278433509846713,
                        (pi2 - 6) / 12,
                        (1 - Zeta3) / 3,
                        (pi4 - 90) / 360,
                        (1 - Zeta5) / 5,
                        (pi6 - 945) / 5670,
                        (1 - Zeta7) / 7,
                        (pi8 - 9450) / 75600,
                        (1 - Zeta9) / 9,
                        (pi10 - 93555) / 935550,
                        (1 - Zeta11) / 11};
    return Polynomial(c, 11, d);
  }
  if (x > 171) return Stirling(x);
  double g = std::tgamma(x);
  // Gamma overflows only next to 0, where its logarithm is that of 1 / x.
  return std::isinf(g) ? -std::log(x) : std::log(g);
}

double LogBeta(double a, double b) {
  return LogGamma(a) + LogGamma(b) - LogGamma(a + b);
}

double IncompleteBeta(double x, double a, double b) {
  if (a == 0 && b == 0) return std::fmod(1.0, 0.0);
  if (a == 0) return 1;
  if (x <= 0) return 0;
  if (x >= 1 || b == 0) return 1;
  // Small parameters: the power series where it converges fast, in x or in 1 - x.
  if (a < 1 && b < 1) return x <= 0.5 ? BetaSeries(x, a, b) : 1 - BetaSeries(1 - x, b, a);
  if (a < 1 && (b + 1) * x <= 1) return BetaSeries(x, a, b);
  if (b < 1 && a <= (a + 1) * x) return 1 - BetaSeries(1 - x, b, a);
  return BetaGeneral(x, a, b);
}

double IncompleteGamma(double x, double a) {
  if (a == 0) return 1;
  if (x <= 0) return 0;
  if (x < a + 1) return GammaSeries(x, a);
  return 1 - GammaFraction(x, a);
}

double IncompleteGammaComplement(double x, double a) {
  if (a == 0) return 0;
  if (x <= 0) return 1;
  if (x < a + 1) return 1 - GammaSeries(x, a);
  return GammaFraction(x, a);
}

double StudentTail(double x, double df) {
  if (x < 0) return 1 - StudentTail(-x, df);
  return 0.5 * IncompleteBeta(df / (df + x * x), df * 0.5, 0.5);
}

double FisherTail(double x, double df1, double df2) {
  if (x <= 0) return 1;
  return IncompleteBeta(df2 / (df2 + df1 * x), df2 * 0.5, df1 * 0.5);
}

double ChiSquareTail(double x, double df) {
  return IncompleteGammaComplement(x * 0.5, df * 0.5);
}

double BetaQuantile(double p, double a, double b) {
  if (p <= 0) return 0;
  if (p >= 1) return 1;
  // Work with the smaller parameter first; the answer for the exchanged pair is 1 - x.
  bool swapped = a > b;
  if (swapped) {
    double t = a;
    a = b;
    b = t;
    p = 1 - p;
  }
  double logBeta = LogBeta(a, b);
  double x;
  if (a >= 1 && b >= 1) {
    // The normal approximation of Abramowitz and Stegun 26.5.22.
    double z = -RoughNormalQuantile(p);
    double l = (z * z - 3) / 6;
    double h = 2 / (1 / (2 * a - 1) + 1 / (2 * b - 1));
    double w = z * std::sqrt(l + h) / h -
               (1 / (2 * b - 1) - 1 / (2 * a - 1)) * (l + 5.0 / 6 - 2 / (3 * h));
    x = a / (a + b * std::exp(2 * w));
  } else {
    // The leading terms of the expansions at either end.
    double t = std::exp(a * std::log(a / (a + b))) / a;
    double u = std::exp(b * std::log(b / (a + b))) / b;
    double w = t + u;
    x = p < t / w ? std::pow(a * w * p, 1 / a) : 1 - std::pow(b * w * (1 - p), 1 / b);
  }
  // A probability so small that the quantile underflows.
  if (std::log(p) < -711 * a) return swapped ? 1 : 0;
  double lo = 0, hi = 1;
  if (!(x > 0 && x < 1)) x = 0.5;
  for (int i = 0; i < 100; i++) {
    double err = IncompleteBeta(x, a, b) - p;
    if (err == 0) break;
    if (err < 0)
      lo = x;
    else
      hi = x;
    double density = std::exp((a - 1) * std::log(x) + (b - 1) * std::log1p(-x) - logBeta);
    double u = err / density;
    double step = u / (1 - 0.5 * std::fmin(1, u * ((a - 1) / x - (b - 1) / (1 - x))));
    double next = x - step;
    if (!(next > lo && next < hi) || !std::isfinite(next)) next = 0.5 * (lo + hi);
    double moved = std::fabs(next - x);
    x = next;
    if (moved < 1e-12 * x || hi - lo < 1e-10 * x || x < 1.1125369292536007e-308) break;
  }
  return swapped ? 1 - x : x;
}

double GammaQuantile(double a, double p, bool upper) {
  double lower = upper ? 1 - p : p;
  if (upper ? p >= 1 : p <= 0) return 0;
  if (upper ? p <= 0 : p >= 1) return std::numeric_limits<double>::infinity();
  double logGamma = LogGamma(a);
  double tail = upper ? p : 1 - p;
  double x;
  if (a > 1) {
    // Wilson and Hilferty's cube-root approximation.
    double z = upper ? -RoughNormalQuantile(p) : RoughNormalQuantile(p);
    double c = 1 - 1 / (9 * a) + z / (3 * std::sqrt(a));
    x = std::fmax(1e-3, a * c * c * c);
  } else {
    double t = 1 - a * (0.253 + a * 0.12);
    x = lower < t ? std::pow(lower / t, 1 / a) : 1 - std::log(tail / (1 - t));
  }
  for (int i = 0; i < 100; i++) {
    if (x <= 0) return 0;
    double err = upper ? p - IncompleteGammaComplement(x, a) : IncompleteGamma(x, a) - p;
    double density = std::exp((a - 1) * std::log(x) - x - logGamma);
    if (density == 0) break;
    double u = err / density;
    double step = u / (1 - 0.5 * std::fmin(1, u * ((a - 1) / x - 1)));
    double next = x - step;
    if (next <= 0) next = 0.5 * x;
    double moved = std::fabs(next - x);
    x = next;
    if (moved < 1e-13 * x) break;
  }
  return x;
}

double ErrorFunction(double x) {
  double e = IncompleteGamma(x * x, 0.5);
  return x < 0 ? -e : e;
}

double ErrorFunctionComplement(double x) {
  if (x < 0) return 2 - ErrorFunctionComplement(-x);
  return IncompleteGammaComplement(x * x, 0.5);
}
