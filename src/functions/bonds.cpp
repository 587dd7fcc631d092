// The coupon bond functions: the coupon dates and day counts around a settlement date (the
// DATE.COUPON, NB.COUPONS and NB.JOURS.COUPON rows), the price, yield and duration of a bond with
// regular coupons, and of one whose first or last period is odd, and the interest accrued since
// issue. Coupons fall every 12 / frequency months counted back from maturity, keeping maturity's
// day of the month (the month's last day when maturity is a month's end). Days are counted by the
// basis: 0 US 30/360, 1 actual/actual, 2 actual/360, 3 actual/365, 4 European 30/360.
#include <cmath>

#include "format/calendar.h"
#include "functions/bonds.h"
#include "functions/handlers.h"
#include "functions/numeric.h"

namespace {

// The schedule of the coupon period that holds a settlement date.
struct CouponPeriod {
  int32_t previous;  // the coupon date on or before settlement
  int32_t next;      // the first coupon date after it
  int32_t count;     // coupons from next to maturity, both counted
  double accrued;    // days from previous to settlement
  double length;     // days of the period
  double remaining;  // days from settlement to next
};

// The date `months` months away from `anchor` (back when negative),
// with the anchor's day of the month kept where the month has it.
int32_t ShiftCouponDate(int32_t anchor, int32_t months) {
  int32_t y, m, d;
  SerialToDate(anchor, &y, &m, &d);
  bool monthEnd = d == DaysInMonth(y, m);
  int64_t index = int64_t{y} * 12 + (m - 1) + months;
  int64_t ny = index >= 0 ? index / 12 : (index - 11) / 12;
  auto year = static_cast<int32_t>(ny);
  auto month = static_cast<int32_t>(index - ny * 12) + 1;
  int32_t last = DaysInMonth(year, month);
  return DateToSerial(year, month, monthEnd || d > last ? last : d);
}

// The days from start to end by the basis: 30/360 for 0 and 4, actual otherwise.
double CouponDays(int32_t start, int32_t end, int32_t basis) {
  if (basis == 0) return Days360(start, end, false);
  if (basis == 4) return Days360(start, end, true);
  return static_cast<double>(end) - start;
}

// The length in days of the coupon period from start to end: actual for basis 1, otherwise a
// year of 360 or 365 days over the frequency.
double CouponPeriodLength(int32_t start, int32_t end, int32_t frequency, int32_t basis) {
  if (basis == 1) return static_cast<double>(end) - start;
  return (basis == 3 ? 365.0 : 360.0) / frequency;
}

// The index k of the coupon date on or before `date` on the grid through `anchor`, the grid's
// dates being ShiftCouponDate(anchor, -k * months); k is negative for dates after the anchor.
int32_t GridIndexBefore(int32_t date, int32_t anchor, int32_t months) {
  int32_t ya, ma, da, yd, md, dd;
  SerialToDate(anchor, &ya, &ma, &da);
  SerialToDate(date, &yd, &md, &dd);
  // A first guess from the months between the two, then steps either way to settle it.
  int32_t k = ((ya - yd) * 12 + (ma - md)) / months;
  while (ShiftCouponDate(anchor, -k * months) > date) k++;
  while (ShiftCouponDate(anchor, -(k - 1) * months) <= date) k--;
  return k;
}

CouponPeriod CouponPeriodOf(int32_t settlement, int32_t maturity, int32_t frequency,
                            int32_t basis) {
  CouponPeriod p{};
  int32_t months = 12 / frequency;
  p.count = GridIndexBefore(settlement, maturity, months);
  p.previous = ShiftCouponDate(maturity, -p.count * months);
  p.next = ShiftCouponDate(maturity, -(p.count - 1) * months);
  p.accrued = CouponDays(p.previous, settlement, basis);
  p.length = CouponPeriodLength(p.previous, p.next, frequency, basis);
  p.remaining =
      basis == 0 || basis == 4 ? p.length - p.accrued : static_cast<double>(p.next) - settlement;
  return p;
}

// The arguments the regular-coupon rows share: settlement, maturity, `count` numbers (at most
// three), frequency and basis. Settlement must come before maturity, the frequency be 1, 2 or 4
// and the basis 0 to 4, and none of the numbers be negative, or #NUM!.
struct BondTerms {
  int32_t settlement, maturity, frequency, basis;
  double number[3];
};

int ReadBondTerms(Value* args, int count, Value* result, const EvalContext* ctx, BondTerms* t) {
  t->number[0] = t->number[1] = t->number[2] = 0;
  if (!BondDateArg(&args[0], result, ctx, &t->settlement) ||
      !BondDateArg(&args[1], result, ctx, &t->maturity) ||
      !ReadNumbers(args + 2, count, t->number, result, ctx) ||
      !IntegerFromArg(&args[2 + count], result, ctx, 0, &t->frequency) ||
      !IntegerFromArg(&args[3 + count], result, ctx, 0, &t->basis))
    return 0;
  bool negative = t->number[0] < 0 || t->number[1] < 0 || t->number[2] < 0;
  if (t->settlement >= t->maturity || !ValidFrequency(t->frequency) || !ValidBasis(t->basis) ||
      negative) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  return 1;
}

// The rows of four arguments: settlement, maturity, frequency, basis.
void CouponFunction(Value* args, Value* result, const EvalContext* ctx,
                    double (*pick)(const CouponPeriod&, const EvalContext*)) {
  BondTerms t;
  if (ReadBondTerms(args, 0, result, ctx, &t))
    GiveNumber(result, pick(CouponPeriodOf(t.settlement, t.maturity, t.frequency, t.basis), ctx));
}

// A bond with regular coupons: the coupon per 100 of face value and the period's schedule.
struct RegularBond {
  CouponPeriod period;
  double coupon;      // 100 * rate / frequency
  double redemption;  // per 100 of face value
  int32_t frequency;
};

// The price (clean, per 100) at the yield y, from the cash flows discounted over the periods
// that remain, the first one partial; with one coupon left, by simple interest over it.
double RegularPrice(const RegularBond* b, double y) {
  const CouponPeriod& p = b->period;
  double rate = y / b->frequency, part = p.remaining / p.length;
  double accrued = b->coupon * p.accrued / p.length;
  if (p.count == 1) return (b->redemption + b->coupon) / (1 + part * rate) - accrued;
  double price = b->redemption / std::pow(1 + rate, p.count - 1 + part);
  for (int32_t k = 1; k <= p.count; k++) price += b->coupon / std::pow(1 + rate, k - 1 + part);
  return price - accrued;
}

double RegularPriceAt(double y, const void* state) {
  return RegularPrice(static_cast<const RegularBond*>(state), y);
}

// Reads settlement, maturity, rate, the yield or price, redemption, frequency and basis of
// PRIX.TITRE and RENDEMENT.TITRE. The rate and the fourth value must not be negative, the
// redemption must be above 0.
int RegularBondArgs(Value* args, Value* result, const EvalContext* ctx, RegularBond* b,
                    double* fourth) {
  BondTerms t;
  if (!ReadBondTerms(args, 3, result, ctx, &t)) return 0;
  if (t.number[2] <= 0) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  b->frequency = t.frequency;
  b->period = CouponPeriodOf(t.settlement, t.maturity, t.frequency, t.basis);
  b->coupon = 100 * t.number[0] / t.frequency;
  b->redemption = t.number[2];
  *fourth = t.number[1];
  return 1;
}

// DUREE and DUREE.MODIFIEE: the mean time to the cash flows of a bond of face value 100, in
// years, weighted by their present values at the yield.
int Duration(Value* args, Value* result, const EvalContext* ctx, double* out, double* perPeriod) {
  BondTerms t;
  if (!ReadBondTerms(args, 2, result, ctx, &t)) return 0;
  int32_t frequency = t.frequency;
  CouponPeriod p = CouponPeriodOf(t.settlement, t.maturity, frequency, t.basis);
  double coupon = 100 * t.number[0] / frequency, rate = t.number[1] / frequency;
  double part = p.remaining / p.length;
  double weighted = 0, total = 0;
  for (int32_t k = 1; k <= p.count; k++) {
    double t = k - 1 + part;
    double flow = (coupon + (k == p.count ? 100 : 0)) / std::pow(1 + rate, t);
    weighted += t * flow;
    total += flow;
  }
  if (total == 0) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  *out = weighted / total / frequency;
  *perPeriod = rate;
  return 1;
}

// The odd periods of PRIX.DCOUPON.IRREG and its kin are cut into the regular periods (quasi
// coupon periods) that would have been there. For each, the days of the odd period it holds, the
// days of it before settlement and after it, all over its regular length.
struct OddSums {
  double held;         // sum of held days / length
  double accrued;      // sum of days before settlement / length
  double remaining;    // sum of days after settlement / length
  int32_t wholeAfter;  // quasi periods that start after settlement's own
  double lastPart;     // settlement's own quasi period: days after settlement / its length
};

// Walks the quasi periods from `start` to `end`, anchored on `anchor` (a date on the grid of
// coupon dates), with settlement somewhere in [start, end].
OddSums SumOddPeriods(int32_t start, int32_t end, int32_t settlement, int32_t anchor,
                      int32_t frequency, int32_t basis) {
  OddSums s{};
  int32_t months = 12 / frequency;
  for (int32_t i = GridIndexBefore(start, anchor, months);; i--) {
    int32_t q0 = ShiftCouponDate(anchor, -i * months);
    int32_t q1 = ShiftCouponDate(anchor, -(i - 1) * months);
    if (q0 >= end) break;
    double length = CouponPeriodLength(q0, q1, frequency, basis);
    int32_t from = start > q0 ? start : q0, to = end < q1 ? end : q1;
    s.held += CouponDays(from, to, basis) / length;
    if (settlement > from)
      s.accrued += CouponDays(from, settlement < to ? settlement : to, basis) / length;
    if (settlement < to) {
      double after = CouponDays(settlement > from ? settlement : from, to, basis) / length;
      s.remaining += after;
      if (settlement >= q0)
        s.lastPart = after;
      else
        s.wholeAfter++;
    }
  }
  return s;
}

// The arguments of the odd-period rows: dates first, then rate, the yield or price, redemption,
// frequency and basis. `dates` is 3 (odd last) or 4 (odd first).
struct OddBond {
  int32_t date[4];
  double rate, fourth, redemption;
  int32_t frequency, basis;
};

int OddBondArgs(Value* args, int dates, Value* result, const EvalContext* ctx, OddBond* b) {
  for (int i = 0; i < dates; i++)
    if (!BondDateArg(&args[i], result, ctx, &b->date[i])) return 0;
  double v[3] = {};
  if (!ReadNumbers(args + dates, 3, v, result, ctx) ||
      !IntegerFromArg(&args[dates + 3], result, ctx, 0, &b->frequency) ||
      !IntegerFromArg(&args[dates + 4], result, ctx, 0, &b->basis))
    return 0;
  b->rate = v[0];
  b->fourth = v[1];
  b->redemption = v[2];
  if (!ValidFrequency(b->frequency) || !ValidBasis(b->basis) || b->rate < 0 || b->fourth < 0 ||
      b->redemption <= 0) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  return 1;
}

// An odd first period: issue to the first coupon, then regular coupons to maturity.
struct OddFirst {
  OddSums odd;
  int32_t regular;  // coupons after the first one
  double coupon, redemption;
  int32_t frequency;
};

double OddFirstPrice(double y, const void* state) {
  const auto* b = static_cast<const OddFirst*>(state);
  double base = 1 + y / b->frequency;
  double t = b->odd.wholeAfter + b->odd.lastPart;
  double price = b->coupon * b->odd.held / std::pow(base, t);
  for (int32_t k = 1; k <= b->regular; k++) price += b->coupon / std::pow(base, t + k);
  price += b->redemption / std::pow(base, t + b->regular);
  return price - b->coupon * b->odd.accrued;
}

// Reads the odd-first arguments; issue < settlement < first coupon <= maturity, or #NUM!.
int OddFirstArgs(Value* args, Value* result, const EvalContext* ctx, OddFirst* f, double* fourth) {
  OddBond b;
  if (!OddBondArgs(args, 4, result, ctx, &b)) return 0;
  int32_t settlement = b.date[0], maturity = b.date[1], issue = b.date[2], first = b.date[3];
  if (!(issue < settlement && settlement < first && first <= maturity)) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  f->odd = SumOddPeriods(issue, first, settlement, first, b.frequency, b.basis);
  f->regular = GridIndexBefore(first, maturity, 12 / b.frequency);
  f->coupon = 100 * b.rate / b.frequency;
  f->redemption = b.redemption;
  f->frequency = b.frequency;
  *fourth = b.fourth;
  return 1;
}

// An odd last period: the last coupon date to maturity. Reads its arguments; last coupon <
// settlement < maturity, or #NUM!.
int OddLastArgs(Value* args, Value* result, const EvalContext* ctx, OddSums* s, OddBond* b) {
  if (!OddBondArgs(args, 3, result, ctx, b)) return 0;
  int32_t settlement = b->date[0], maturity = b->date[1], last = b->date[2];
  if (!(last < settlement && settlement < maturity)) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  *s = SumOddPeriods(last, maturity, settlement, last, b->frequency, b->basis);
  return 1;
}

}  // namespace

int ValidFrequency(int32_t frequency) {
  return frequency == 1 || frequency == 2 || frequency == 4;
}

int ValidBasis(int32_t basis) {
  return basis >= 0 && basis <= 4;
}

int BondDateArg(Value* a, Value* result, const EvalContext* ctx, int32_t* out) {
  double d;
  if (!NumberFromArg(a, result, ctx, &d)) return 0;
  int32_t offset = ContextDate1904(ctx) ? Date1904Offset : 0;
  if (!(d >= 0 && d < LastDateSerial + 1.0 - offset)) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  *out = TruncateToInt32(d) + offset;
  return 1;
}

int SolveDecreasing(double (*f)(double, const void*), const void* state, double target, double low,
                    double* out) {
  // Bracket the root: f falls as its argument grows, from `low` up.
  double high = 1;
  int guard = 0;
  while (f(high, state) > target && guard++ < 60) high *= 2;
  if (!(f(high, state) <= target) || !(f(low, state) >= target)) return 0;
  for (int i = 0; i < 200 && high - low > 1e-16 * (1 + std::fabs(high)); i++) {
    double mid = 0.5 * (low + high);
    if (f(mid, state) > target)
      low = mid;
    else
      high = mid;
  }
  *out = 0.5 * (low + high);
  return 1;
}

// A coupon date before the calendar's first day is #NUM!.
void FnDateCouponPrec(Value* args, Value* result, const EvalContext* ctx) {
  CouponFunction(args, result, ctx, [](const CouponPeriod& p, const EvalContext* c) {
    int32_t serial = p.previous - (ContextDate1904(c) ? Date1904Offset : 0);
    return serial < 0 ? NAN : static_cast<double>(serial);
  });
}

void FnDateCouponSuiv(Value* args, Value* result, const EvalContext* ctx) {
  CouponFunction(args, result, ctx, [](const CouponPeriod& p, const EvalContext* c) {
    return static_cast<double>(p.next - (ContextDate1904(c) ? Date1904Offset : 0));
  });
}

void FnNbCoupons(Value* args, Value* result, const EvalContext* ctx) {
  CouponFunction(args, result, ctx,
                 [](const CouponPeriod& p, const EvalContext*) { return double(p.count); });
}

void FnNbJoursCouponPrec(Value* args, Value* result, const EvalContext* ctx) {
  CouponFunction(args, result, ctx,
                 [](const CouponPeriod& p, const EvalContext*) { return p.accrued; });
}

void FnNbJoursCouponSuiv(Value* args, Value* result, const EvalContext* ctx) {
  CouponFunction(args, result, ctx,
                 [](const CouponPeriod& p, const EvalContext*) { return p.remaining; });
}

void FnNbJoursCoupons(Value* args, Value* result, const EvalContext* ctx) {
  CouponFunction(args, result, ctx,
                 [](const CouponPeriod& p, const EvalContext*) { return p.length; });
}

void FnPrixTitre(Value* args, Value* result, const EvalContext* ctx) {
  RegularBond b;
  double yield;
  if (RegularBondArgs(args, result, ctx, &b, &yield)) GiveNumber(result, RegularPrice(&b, yield));
}

// With one coupon left the yield comes straight from simple interest; otherwise the price
// equation is solved for it.
void FnRendementTitre(Value* args, Value* result, const EvalContext* ctx) {
  RegularBond b;
  double price, yield;
  if (!RegularBondArgs(args, result, ctx, &b, &price)) return;
  if (price <= 0) {
    *result = ErrorValue(ErrNum);
    return;
  }
  const CouponPeriod& p = b.period;
  if (p.count == 1) {
    double paid = price + b.coupon * p.accrued / p.length;
    GiveNumber(result,
               (b.redemption + b.coupon - paid) / paid * b.frequency * p.length / p.remaining);
    return;
  }
  if (SolveDecreasing(RegularPriceAt, &b, price, -b.frequency * 0.999999, &yield))
    GiveNumber(result, yield);
  else
    *result = ErrorValue(ErrNum);
}

void FnDuree(Value* args, Value* result, const EvalContext* ctx) {
  double duration, rate;
  if (Duration(args, result, ctx, &duration, &rate)) GiveNumber(result, duration);
}

void FnDureeModifiee(Value* args, Value* result, const EvalContext* ctx) {
  double duration, rate;
  if (Duration(args, result, ctx, &duration, &rate)) GiveNumber(result, duration / (1 + rate));
}

// INTERET.ACC: the interest of the regular periods laid on the first interest date, summed from
// issue to settlement, each period's share by the basis.
void FnInteretAcc(Value* args, Value* result, const EvalContext* ctx) {
  int32_t issue, first, settlement, frequency, basis;
  double v[2] = {};
  if (!BondDateArg(&args[0], result, ctx, &issue) || !BondDateArg(&args[1], result, ctx, &first) ||
      !BondDateArg(&args[2], result, ctx, &settlement) ||
      !ReadNumbers(args + 3, 2, v, result, ctx) ||
      !IntegerFromArg(&args[5], result, ctx, 0, &frequency) ||
      !IntegerFromArg(&args[6], result, ctx, 0, &basis))
    return;
  if (issue >= settlement || !ValidFrequency(frequency) || !ValidBasis(basis) || v[0] <= 0 ||
      v[1] <= 0) {
    *result = ErrorValue(ErrNum);
    return;
  }
  OddSums s = SumOddPeriods(issue, settlement, settlement, first, frequency, basis);
  GiveNumber(result, v[1] * v[0] / frequency * s.held);
}

void FnPrixPCouponIrreg(Value* args, Value* result, const EvalContext* ctx) {
  OddFirst f;
  double yield;
  if (OddFirstArgs(args, result, ctx, &f, &yield)) GiveNumber(result, OddFirstPrice(yield, &f));
}

void FnRendPCouponIrreg(Value* args, Value* result, const EvalContext* ctx) {
  OddFirst f;
  double price, yield;
  if (!OddFirstArgs(args, result, ctx, &f, &price)) return;
  if (price <= 0 || !SolveDecreasing(OddFirstPrice, &f, price, -f.frequency * 0.999999, &yield)) {
    *result = ErrorValue(ErrNum);
    return;
  }
  GiveNumber(result, yield);
}

// The odd last period is paid at maturity with its coupon in proportion to its length, and
// discounted by simple interest over the days left.
void FnPrixDCouponIrreg(Value* args, Value* result, const EvalContext* ctx) {
  OddSums s;
  OddBond b;
  if (!OddLastArgs(args, result, ctx, &s, &b)) return;
  double coupon = 100 * b.rate / b.frequency;
  GiveNumber(result, (b.redemption + s.held * coupon) / (1 + s.remaining * b.fourth / b.frequency) -
                         s.accrued * coupon);
}

void FnRendDCouponIrreg(Value* args, Value* result, const EvalContext* ctx) {
  OddSums s;
  OddBond b;
  if (!OddLastArgs(args, result, ctx, &s, &b)) return;
  if (b.fourth <= 0) {
    *result = ErrorValue(ErrNum);
    return;
  }
  double coupon = 100 * b.rate / b.frequency;
  double paid = b.fourth + s.accrued * coupon;
  GiveNumber(result, (b.redemption + s.held * coupon - paid) / paid * b.frequency / s.remaining);
}
