// The annuity, rate and depreciation functions of the "Financières" category. The annuities
// rest on one equation between rate, periods, payment, present and future value; a zero rate
// divides by zero there and gives no number, which the handlers pass on. The rates (TAUX, TRI,
// TRI.PAIEMENTS) are found by a secant step on a central difference whose width shrinks by a
// quarter each round, twenty rounds at most: a rate they cannot reach is #NUM!.
#include <cmath>

#include "format/calendar.h"
#include "functions/aggregate.h"
#include "functions/handlers.h"
#include "functions/numeric.h"
#include "functions/table.h"
#include "model/workbook.h"

namespace {

constexpr double OneTwelfth = 0.08333333333333333;
constexpr int RateRounds = 20;
constexpr double RateTolerance = 1e-7;

void Refuse(Value* result) {
  *result = ErrorValue(ErrNum);
}

double FutureValue(double r, double n, double pmt, double pv, double type) {
  double g = std::pow(1 + r, n);
  return -((1 + type * r) * (g - 1) / r * pmt + g * pv);
}

double Payment(double r, double n, double pv, double fv, double type) {
  double g = std::pow(1 + r, n);
  return -(g * pv + fv) / (((g - 1) / r) * (type * r + 1));
}

double PresentValue(double r, double n, double pmt, double fv, double type) {
  double g = std::pow(1 + r, n);
  return -(fv + (1 + type * r) * (g - 1) / r * pmt) / g;
}

// The interest part of the payment of period `per`: the balance after the periods before it,
// times the rate; paid at the start of a period, it is discounted by one period, and the first
// period has none.
double InterestPart(double r, double per, double n, double pv, double fv, double type) {
  if (type != 0 && per == 1) return 0;
  double pmt = Payment(r, n, pv, fv, type);
  double interest = FutureValue(r, per - 1, pmt, pv, type) * r;
  return type != 0 ? interest / (1 + r) : interest;
}

// A function of the rate whose root the secant search looks for.
using RateFunction = double (*)(double r, const void* state);

// From `guess`, a secant step on a central difference of width 2h, h shrinking by a quarter each
// round. Returns 0 when the side values are equal or the rounds run out.
int SolveRate(RateFunction f, const void* state, double guess, double* out) {
  double r = guess, h = 0.01;
  for (int round = 0; round < RateRounds; round++) {
    // Equal side values end the search even where the amount is already met: the function
    // does not depend on the rate there, and no rate is the answer.
    double e = f(r, state), f1 = f(r - h, state), f2 = f(r + h, state);
    if (f1 == f2) return 0;
    if (std::fabs(e) <= RateTolerance) {
      // The amount is met; a few more steps, each kept only while it brings the amount closer to
      // zero, settle the rate to the precision of the doubles instead of anywhere in the
      // tolerance (a flat function meets the tolerance while the rate is still off in its
      // eighth digit).
      for (int extra = 0; extra < 4 && e != 0; extra++) {
        f1 = f(r - h, state);
        f2 = f(r + h, state);
        if (f1 == f2) break;
        double next = r - 2 * e * h / (f2 - f1), closer = f(next, state);
        if (!(std::fabs(closer) < std::fabs(e))) break;
        r = next;
        e = closer;
        h *= 0.25;
      }
      *out = r;
      return 1;
    }
    r -= 2 * e * h / (f2 - f1);
    h *= 0.25;
  }
  return 0;
}

void GiveRate(Value* result, RateFunction f, const void* state, double guess) {
  double r;
  if (SolveRate(f, state, guess, &r))
    GiveNumber(result, r);
  else
    Refuse(result);
}

// TAUX: the future value of the annuity at rate r, less the one asked for.
struct Annuity {
  double n, pmt, pv, fv, type;
};

double AnnuityGap(double r, const void* state) {
  const Annuity* a = static_cast<const Annuity*>(state);
  // The gap is tested, like the future value, with the sign of the equation's other side.
  return FutureValue(r, a->n, a->pmt, a->pv, a->type) - a->fv;
}

// TRI: the values discounted from the first period.
double DiscountedSum(double r, const void* state) {
  const NumberList* v = static_cast<const NumberList*>(state);
  double sum = 0;
  for (uint32_t k = 0; k < v->count; k++) sum += v->items[k] / std::pow(1 + r, k + 1.0);
  return sum;
}

// The same sum valued one period later (the first value undiscounted): it has the same roots
// above -1 but another shape, on which the search from a guess far below the rate still reaches
// it where the first form runs off past -1.
double DiscountedSumFromStart(double r, const void* state) {
  const NumberList* v = static_cast<const NumberList*>(state);
  double sum = 0;
  for (uint32_t k = 0; k < v->count; k++)
    sum += v->items[k] / std::pow(1 + r, static_cast<double>(k));
  return sum;
}

// TRI.PAIEMENTS and VAN.PAIEMENTS: each value discounted by the days since the first date.
struct Schedule {
  NumberList values, dates;
};

double XirrSum(double r, const void* state) {
  const Schedule* s = static_cast<const Schedule*>(state);
  double sum = 0;
  for (uint32_t i = 0; i < s->values.count; i++)
    sum += s->values.items[i] / std::pow(1 + r, (s->dates.items[i] - s->dates.items[0]) / 365);
  return sum;
}

bool HasBothSigns(const NumberList* v) {
  bool positive = false, negative = false;
  for (uint32_t i = 0; i < v->count; i++) {
    positive = positive || v->items[i] > 0;
    negative = negative || v->items[i] < 0;
  }
  return positive && negative;
}

// The values and dates of a schedule: equal counts, whole days, no date before the first.
// Returns 0 with the error in `result`.
int GatherSchedule(Value* values, Value* dates, const EvalContext* ctx, Schedule* s,
                   Value* result) {
  if (!GatherArgumentNumbers(values, ctx, &s->values, result)) return 0;
  if (!GatherArgumentNumbers(dates, ctx, &s->dates, result)) return 0;
  if (s->values.count != s->dates.count || s->values.count == 0) {
    Refuse(result);
    return 0;
  }
  for (uint32_t i = 0; i < s->dates.count; i++) {
    s->dates.items[i] = Truncate32(s->dates.items[i]);
    if (s->dates.items[i] < s->dates.items[0]) {
      Refuse(result);
      return 0;
    }
  }
  return 1;
}

void FreeSchedule(Schedule* s) {
  FreeNumberList(&s->values);
  FreeNumberList(&s->dates);
}

// The depreciation of each period by the double-declining method, with the switch to straight
// line on the remaining value at the first period where that gives more (unless `noSwitch`).
// Periods count from 0.
double DecliningPeriod(double cost, double salvage, double life, double factor, bool noSwitch,
                       int32_t period, bool* switched, double* total) {
  double book = cost - *total;
  double amount = book * factor / life;
  if (amount > book - salvage) amount = book - salvage;
  if (!noSwitch) {
    double remaining = life - period;
    double straight = remaining > 0 ? (book - salvage) / remaining : 0;
    if (*switched || straight > amount) {
      *switched = true;
      amount = straight;
    }
  }
  if (amount < 0) amount = 0;
  *total += amount;
  return amount;
}

// A date argument as a serial of the 1900 system, whatever the workbook's own system.
int32_t SerialOf(double date, const EvalContext* ctx) {
  return TruncateToInt32(date) + (ContextDate1904(ctx) ? Date1904Offset : 0);
}

// The year fraction between two date arguments, in either order. Returns 0 for an unknown basis.
int FractionBetween(double a, double b, int32_t basis, const EvalContext* ctx, double* out) {
  int32_t start = SerialOf(a, ctx), end = SerialOf(b, ctx);
  return start <= end ? YearFraction(start, end, basis, out) : YearFraction(end, start, basis, out);
}

// 10 to the number of digits of the fraction's denominator, for PRIX.DEC and PRIX.FRAC.
double FractionScale(double fraction) {
  return std::pow(10.0, std::ceil(std::log10(fraction)));
}

}  // namespace

// VPM, VC and VA: read the five numbers and hand them to one annuity solver, the type cut to a
// whole number.
static void AnnuityResult(Value* args, Value* result, const EvalContext* ctx,
                          double (*solve)(double, double, double, double, double)) {
  double v[5] = {};
  if (!ReadNumbers(args, 5, v, result, ctx)) return;
  *result = NumberValue(solve(v[0], v[1], v[2], v[3], Truncate32(v[4])));
}

void FnVpm(Value* args, Value* result, const EvalContext* ctx) {
  AnnuityResult(args, result, ctx, Payment);
}

void FnVc(Value* args, Value* result, const EvalContext* ctx) {
  AnnuityResult(args, result, ctx, FutureValue);
}

void FnVa(Value* args, Value* result, const EvalContext* ctx) {
  AnnuityResult(args, result, ctx, PresentValue);
}

void FnNpm(Value* args, Value* result, const EvalContext* ctx) {
  double v[5] = {};
  if (!ReadNumbers(args, 5, v, result, ctx)) return;
  double r = v[0], pmt = v[1], pv = v[2], fv = v[3], type = Truncate32(v[4]);
  if (r == 0) return GiveNumber(result, -(pv + fv) / pmt);
  double q = (type * r + 1) * pmt;
  GiveNumber(result, std::log((q - fv * r) / (pv * r + q)) / std::log(r + 1));
}

void FnIntPer(Value* args, Value* result, const EvalContext* ctx) {
  double v[6] = {};
  if (!ReadNumbers(args, 6, v, result, ctx)) return;
  if (v[1] < 1 || v[1] > v[2]) return Refuse(result);
  *result = NumberValue(InterestPart(v[0], v[1], v[2], v[3], v[4], Truncate32(v[5])));
}

void FnPrincPer(Value* args, Value* result, const EvalContext* ctx) {
  double v[6] = {};
  if (!ReadNumbers(args, 6, v, result, ctx)) return;
  if (v[1] < 1 || v[1] > v[2]) return Refuse(result);
  double type = Truncate32(v[5]);
  *result = NumberValue(Payment(v[0], v[2], v[3], v[4], type) -
                        InterestPart(v[0], v[1], v[2], v[3], v[4], type));
}

void FnIspmt(Value* args, Value* result, const EvalContext* ctx) {
  double v[4] = {};
  if (!ReadNumbers(args, 4, v, result, ctx)) return;
  GiveNumber(result, v[3] * v[0] * (v[1] / v[2] - 1));
}

// CUMUL.INTER and CUMUL.PRINCPER: the interest or principal parts summed over a span of periods.
void CumulativeParts(Value* args, Value* result, const EvalContext* ctx, bool principal) {
  double v[6] = {};
  if (!ReadNumbers(args, 6, v, result, ctx)) return;
  double r = v[0], n = Truncate32(v[1]), pv = v[2];
  double first = Truncate32(v[3]), last = Truncate32(v[4]), type = Truncate32(v[5]);
  if (r <= 0 || n <= 0 || pv <= 0 || first < 1 || first > last || last > n ||
      (type != 0 && type != 1))
    return Refuse(result);
  double pmt = Payment(r, n, pv, 0, type), sum = 0;
  for (double per = first; per <= last; per++) {
    double interest = InterestPart(r, per, n, pv, 0, type);
    sum += principal ? pmt - interest : interest;
  }
  GiveNumber(result, sum);
}

void FnCumulInter(Value* args, Value* result, const EvalContext* ctx) {
  CumulativeParts(args, result, ctx, false);
}

void FnCumulPrincPer(Value* args, Value* result, const EvalContext* ctx) {
  CumulativeParts(args, result, ctx, true);
}

struct PresentSum {
  double rate;
  double sum;
  double period;
};

int AddDiscounted(double x, void* state) {
  PresentSum* s = static_cast<PresentSum*>(state);
  s->period++;
  s->sum += x / std::pow(1 + s->rate, s->period);
  return 1;
}

void FnVan(Value* args, Value* result, const EvalContext* ctx) {
  PresentSum s{};
  if (!NumberFromArg(&args[0], result, ctx, &s.rate)) return;
  // The values are walked as an aggregate's arguments, each number one period further.
  Value frame[FunctionFrameSize] = {};
  for (int i = 1; i < FunctionFrameSize; i++) {
    frame[i - 1] = args[i];
    args[i] = Value{};
  }
  Value error{};
  if (WalkNumbers(frame, ctx, AddDiscounted, &s, &error))
    GiveNumber(result, s.sum);
  else
    *result = error;
  for (Value& v : frame) FreeValue(&v);
}

void FnTaux(Value* args, Value* result, const EvalContext* ctx) {
  double v[6] = {0, 0, 0, 0, 0, 0.1};
  if (!ReadNumbers(args, 6, v, result, ctx)) return;
  Annuity a{v[0], v[1], v[2], v[3], Truncate32(v[4])};
  GiveRate(result, AnnuityGap, &a, v[5]);
}

void FnTri(Value* args, Value* result, const EvalContext* ctx) {
  double guess = 0.1;
  if (args[0].tag == ValueNumber) return Refuse(result);
  NumberList values{};
  if (!GatherArgumentNumbers(&args[0], ctx, &values, result)) return;
  if (args[1].tag != ValueEmpty && !NumberFromArg(&args[1], result, ctx, &guess)) {
    FreeNumberList(&values);
    return;
  }
  double rate;
  if (HasBothSigns(&values) && (SolveRate(DiscountedSum, &values, guess, &rate) ||
                                SolveRate(DiscountedSumFromStart, &values, guess, &rate)))
    GiveNumber(result, rate);
  else
    Refuse(result);
  FreeNumberList(&values);
}

void FnTriPaiements(Value* args, Value* result, const EvalContext* ctx) {
  Schedule s{};
  double guess = 0.1;
  if (GatherSchedule(&args[0], &args[1], ctx, &s, result) &&
      (args[2].tag == ValueEmpty || NumberFromArg(&args[2], result, ctx, &guess))) {
    if (!HasBothSigns(&s.values))
      Refuse(result);
    else
      GiveRate(result, XirrSum, &s, guess);
  }
  FreeSchedule(&s);
}

void FnVanPaiements(Value* args, Value* result, const EvalContext* ctx) {
  double rate;
  if (!NumberFromArg(&args[0], result, ctx, &rate)) return;
  Schedule s{};
  if (GatherSchedule(&args[1], &args[2], ctx, &s, result)) {
    if (rate <= 0)
      Refuse(result);
    else
      GiveNumber(result, XirrSum(rate, &s));
  }
  FreeSchedule(&s);
}

void FnTrim(Value* args, Value* result, const EvalContext* ctx) {
  double finance, reinvest;
  NumberList values{};
  if (!GatherArgumentNumbers(&args[0], ctx, &values, result)) return;
  if (NumberFromArg(&args[1], result, ctx, &finance) &&
      NumberFromArg(&args[2], result, ctx, &reinvest)) {
    // Positive values carried to the end at the reinvestment rate, negative ones brought back to
    // the start at the finance rate.
    double positive = 0, negative = 0;
    for (uint32_t k = 0; k < values.count; k++) {
      double x = values.items[k];
      if (x > 0) positive += x / std::pow(1 + reinvest, k);
      if (x < 0) negative += x / std::pow(1 + finance, k);
    }
    double m = values.count - 1.0;
    if (positive == 0 || negative == 0)
      *result = ErrorValue(ErrDiv0);
    else
      GiveNumber(result, std::pow(-positive * std::pow(1 + reinvest, m) / negative, 1 / m) - 1);
  }
  FreeNumberList(&values);
}

void FnAmorLin(Value* args, Value* result, const EvalContext* ctx) {
  double v[3] = {};
  if (!ReadNumbers(args, 3, v, result, ctx)) return;
  *result = v[2] == 0 ? ErrorValue(ErrDiv0) : NumberValue((v[0] - v[1]) / v[2]);
}

void FnSyd(Value* args, Value* result, const EvalContext* ctx) {
  double v[4] = {};
  if (!ReadNumbers(args, 4, v, result, ctx)) return;
  double cost = v[0], salvage = v[1], life = v[2], per = v[3];
  if (life <= 0 || per < 1 || per > life) return Refuse(result);
  GiveNumber(result, (cost - salvage) * (life - per + 1) * 2 / (life * (life + 1)));
}

void FnDb(Value* args, Value* result, const EvalContext* ctx) {
  double v[5] = {0, 0, 0, 0, 12};
  if (!ReadNumbers(args, 5, v, result, ctx)) return;
  double cost = v[0], salvage = v[1], life = Truncate32(v[2]), period = Truncate32(v[3]);
  double months = Truncate32(v[4]);
  if (life <= 0 || cost < 0 || salvage < 0 || period < 1 || months < 1 || months > 12 ||
      period > life + (months < 12 ? 1 : 0))
    return Refuse(result);
  double rate =
      cost == 0 ? 0 : RoundHalfAway((1 - std::pow(salvage / cost, 1 / life)) * 1000) * 0.001;
  double total = months * rate * cost * OneTwelfth, amount = total;
  for (double p = 2; p <= period; p++) {
    // A life that starts in the course of a year ends with a partial period past it.
    amount = p > life ? (cost - total) * (12 - months) * rate * OneTwelfth : (cost - total) * rate;
    total += amount;
  }
  GiveNumber(result, amount);
}

void FnDdb(Value* args, Value* result, const EvalContext* ctx) {
  double v[5] = {0, 0, 0, 0, 2};
  if (!ReadNumbers(args, 5, v, result, ctx)) return;
  double cost = v[0], salvage = v[1], life = Truncate32(v[2]), period = Truncate32(v[3]);
  if (life <= 0 || cost < 0 || salvage < 0 || period < 1 || period > life || v[4] <= 0)
    return Refuse(result);
  double total = 0, amount = 0;
  bool never = false;
  for (int32_t p = 0; p < period; p++)
    amount = DecliningPeriod(cost, salvage, life, v[4], true, p, &never, &total);
  GiveNumber(result, amount);
}

void FnVdb(Value* args, Value* result, const EvalContext* ctx) {
  double v[7] = {0, 0, 0, 0, 0, 2, 0};
  if (!ReadNumbers(args, 7, v, result, ctx)) return;
  double cost = v[0], salvage = v[1], life = v[2], start = v[3], end = v[4], factor = v[5];
  if (cost < 0 || salvage < 0 || life <= 0 || start < 0 || end < start || end > life || factor <= 0)
    return Refuse(result);
  // Whole periods are depreciated in turn; a period cut by the start or the end counts in
  // proportion to the part of it inside the span.
  double total = 0, sum = 0;
  bool switched = false;
  for (int32_t p = 0; p < end; p++) {
    double amount = DecliningPeriod(cost, salvage, life, factor, v[6] != 0, p, &switched, &total);
    double from = start > p ? start : p, to = end < p + 1 ? end : p + 1;
    if (to > from) sum += amount * (to - from);
  }
  GiveNumber(result, sum);
}

void FnAmorLinc(Value* args, Value* result, const EvalContext* ctx) {
  double v[7] = {};
  if (!ReadNumbers(args, 7, v, result, ctx)) return;
  double cost = v[0], salvage = v[3], period = Truncate32(v[4]), rate = v[5], fraction;
  if (cost < 0 || salvage < 0 || salvage > cost || period < 0 || rate <= 0 ||
      !FractionBetween(v[1], v[2], TruncateToInt32(v[6]), ctx, &fraction))
    return Refuse(result);
  double left = cost - salvage, amount = cost * rate * fraction;
  for (double p = 0; p <= period; p++) {
    if (p > 0) amount = cost * rate;
    if (amount > left) amount = left;
    left -= amount;
  }
  GiveNumber(result, amount);
}

void FnAmorDegrc(Value* args, Value* result, const EvalContext* ctx) {
  double v[7] = {};
  if (!ReadNumbers(args, 7, v, result, ctx)) return;
  double cost = v[0], salvage = v[3], period = Truncate32(v[4]), rate = v[5], fraction;
  int32_t basis = TruncateToInt32(v[6]);
  if (cost == 0 || rate == 0 || basis == 2 || !FractionBetween(v[1], v[2], basis, ctx, &fraction))
    return Refuse(result);
  double life = 1 / rate;
  double coefficient = life <= 4 ? 1.5 : life <= 6 ? 2 : 2.5;
  rate *= coefficient;
  // Amounts are whole units. The first period runs from the purchase to the end of the first
  // period; then the declining rate applies to what remains, and the last two periods share the
  // remainder in halves.
  double amount = RoundHalfAway(fraction * rate * cost);
  cost -= amount;
  double rest = cost - salvage;
  for (double p = 1; p <= period; p++) {
    amount = RoundHalfAway(rate * cost);
    rest -= amount;
    if (rest < 0) {
      double left = period - p;
      amount = left == 0 || left == 1 ? RoundHalfAway(cost * 0.5) : 0;
      break;
    }
    cost -= amount;
  }
  GiveNumber(result, amount);
}

void FnTauxEffectif(Value* args, Value* result, const EvalContext* ctx) {
  double v[2] = {};
  if (!ReadNumbers(args, 2, v, result, ctx)) return;
  double n = Truncate32(v[1]);
  if (v[0] <= 0 || n < 1) return Refuse(result);
  GiveNumber(result, std::pow(1 + v[0] / n, n) - 1);
}

void FnTauxNominal(Value* args, Value* result, const EvalContext* ctx) {
  double v[2] = {};
  if (!ReadNumbers(args, 2, v, result, ctx)) return;
  double n = Truncate32(v[1]);
  if (v[0] <= 0 || n < 1) return Refuse(result);
  GiveNumber(result, n * (std::pow(1 + v[0], 1 / n) - 1));
}

void FnPrixDec(Value* args, Value* result, const EvalContext* ctx) {
  double v[2] = {};
  if (!ReadNumbers(args, 2, v, result, ctx)) return;
  double fraction = Truncate32(v[1]), whole = std::trunc(v[0]);
  if (fraction < 0) return Refuse(result);
  if (fraction == 0) {
    *result = ErrorValue(ErrDiv0);
    return;
  }
  GiveNumber(result, whole + (v[0] - whole) * FractionScale(fraction) / fraction);
}

void FnPrixFrac(Value* args, Value* result, const EvalContext* ctx) {
  double v[2] = {};
  if (!ReadNumbers(args, 2, v, result, ctx)) return;
  double fraction = Truncate32(v[1]), whole = std::trunc(v[0]);
  if (fraction < 0) return Refuse(result);
  if (fraction == 0) {
    *result = ErrorValue(ErrDiv0);
    return;
  }
  GiveNumber(result, whole + (v[0] - whole) * fraction / FractionScale(fraction));
}

void FnVcPaiements(Value* args, Value* result, const EvalContext* ctx) {
  double principal;
  NumberList rates{};
  if (!NumberFromArg(&args[0], result, ctx, &principal) ||
      !GatherArgumentNumbers(&args[1], ctx, &rates, result))
    return;
  for (uint32_t i = 0; i < rates.count; i++) principal *= 1 + rates.items[i];
  GiveNumber(result, principal);
  FreeNumberList(&rates);
}
