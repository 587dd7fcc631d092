// The descriptive statistics of the "Statistiques" category. The aggregates walk their 30
// argument slots as SOMME does; the A variants also count texts as 0 and booleans as 1 or 0
// inside references. Mean and variance are updated one value at a time (Welford), and the
// functions that need order or a second pass gather a list first. The pair functions (PENTE,
// COEFFICIENT.CORRELATION, ...) take the pairs in which both members are numbers, and the tests
// (TEST.Z, TEST.STUDENT, TEST.F, TEST.KHIDEUX) compute their statistic by its textbook definition
// and take the probability from the distribution cores.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "base/alloc.h"
#include "functions/aggregate.h"
#include "functions/handlers.h"
#include "functions/numeric.h"
#include "functions/special.h"
#include "functions/table.h"

namespace {

constexpr uint32_t WalkA = WalkLogicalInRanges | WalkTextInRanges;

int CompareDoubles(const void* a, const void* b) {
  double x = *static_cast<const double*>(a), y = *static_cast<const double*>(b);
  return x < y ? -1 : x > y ? 1 : 0;
}

int GatherSorted(Value* arg, const EvalContext* ctx, NumberList* list, Value* result) {
  if (!GatherArgumentNumbers(arg, ctx, list, result)) return 0;
  if (list->count) std::qsort(list->items, list->count, sizeof(double), CompareDoubles);
  return 1;
}

int AddMoment(double x, void* state) {
  AddToMoments(static_cast<Moments*>(state), x);
  return 1;
}

// The mean and the sum of squared deviations of the frame, in one pass.
int WalkMoments(Value* args, const EvalContext* ctx, uint32_t flags, Moments* m, Value* result) {
  Value error{};
  if (WalkNumbersWith(args, ctx, flags, AddMoment, m, &error)) return 1;
  *result = error;
  return 0;
}

void Variance(Value* args, Value* result, const EvalContext* ctx, uint32_t flags, int sample,
              int root) {
  Moments m{};
  double out;
  if (!WalkMoments(args, ctx, flags, &m, result)) return;
  *result = MomentsVariance(&m, sample, root, &out) ? NumberValue(out) : ErrorValue(ErrDiv0);
}

void Mean(Value* args, Value* result, const EvalContext* ctx, uint32_t flags) {
  Moments m{};
  if (!WalkMoments(args, ctx, flags, &m, result)) return;
  *result = m.count ? NumberValue(m.mean) : ErrorValue(ErrDiv0);
}

struct Extreme {
  double value;
  int seen;
  int max;
};

int KeepExtreme(double x, void* state) {
  Extreme* e = static_cast<Extreme*>(state);
  if (!e->seen || (e->max ? x > e->value : x < e->value)) e->value = x;
  e->seen = 1;
  return 1;
}

void Extremum(Value* args, Value* result, const EvalContext* ctx, uint32_t flags, int max) {
  Extreme e{0, 0, max};
  Value error{};
  *result =
      WalkNumbersWith(args, ctx, flags, KeepExtreme, &e, &error) ? NumberValue(e.value) : error;
}

int CountVisited(double, void* state) {
  *static_cast<double*>(state) += 1;
  return 1;
}

// The sum over the list of ((x - mean) / s)^power, with s the sample standard deviation; 0 when
// there are fewer than `least` values or they do not vary.
int StandardMoment(const NumberList* list, uint32_t least, int power, double* out) {
  double mean, s;
  if (list->count < least || !ListMean(list->items, list->count, &mean) ||
      !ListVariance(list->items, list->count, 1, 1, &s) || s == 0)
    return 0;
  double sum = 0;
  for (uint32_t i = 0; i < list->count; i++) {
    double z = (list->items[i] - mean) / s;
    sum += power == 3 ? z * z * z : z * z * z * z;
  }
  *out = sum;
  return 1;
}

// The value at fraction k of the sorted list, interpolated between its neighbours.
double Percentile(const NumberList* list, double k) {
  double position = (list->count - 1) * k;
  uint32_t i = static_cast<uint32_t>(position);
  double f = position - i;
  if (i + 1 >= list->count) return list->items[i];
  return list->items[i] + f * (list->items[i + 1] - list->items[i]);
}

void PercentileOf(Value* args, Value* result, const EvalContext* ctx, double scale) {
  double k;
  NumberList list{};
  if (!NumberFromArg(&args[1], result, ctx, &k) || !GatherSorted(&args[0], ctx, &list, result))
    return;
  if (scale != 1) k = Truncate32(k);
  k /= scale;
  if (list.count == 0 || k < 0 || k > 1)
    *result = ErrorValue(ErrNum);
  else
    GiveNumber(result, Percentile(&list, k));
  FreeNumberList(&list);
}

void KthValue(Value* args, Value* result, const EvalContext* ctx, int largest) {
  double k;
  NumberList list{};
  if (!GatherSorted(&args[0], ctx, &list, result)) return;
  if (NumberFromArg(&args[1], result, ctx, &k)) {
    // A fractional k counts up to the next whole place.
    double place = std::ceil(k);
    if (list.count == 0 || place < 1 || place > list.count)
      *result = ErrorValue(ErrNum);
    else
      *result = NumberValue(list.items[largest ? list.count - static_cast<uint32_t>(place)
                                               : static_cast<uint32_t>(place) - 1]);
  }
  FreeNumberList(&list);
}

// --- Pairs of arrays -----------------------------------------------------------------------

// The numbers of two arrays of the same size taken pairwise, the pairs in which either member is
// not a number left out.
struct Pairs {
  NumberList x, y;
};

// Returns 0 with the error in `result`: an error element, arrays of different sizes (#N/A), or
// exhausted memory (#N/A).
int GatherPairs(Value* xs, Value* ys, const EvalContext* ctx, Pairs* p, Value* result) {
  if (!ArrayArg(xs, result, ctx) || !ArrayArg(ys, result, ctx)) return 0;
  uint32_t n = ElementCount(xs);
  if (n != ElementCount(ys)) {
    *result = ErrorValue(ErrNA);
    return 0;
  }
  for (uint32_t i = 0; i < n; i++) {
    const Value* a = &xs->elements[i];
    const Value* b = &ys->elements[i];
    if (a->tag == ValueError || b->tag == ValueError) {
      *result = a->tag == ValueError ? *a : *b;
      return 0;
    }
    if (a->tag != ValueNumber || b->tag != ValueNumber) continue;
    if (!AppendNumber(&p->x, a->number) || !AppendNumber(&p->y, b->number)) {
      *result = ErrorValue(ErrNA);
      return 0;
    }
  }
  return 1;
}

void FreePairs(Pairs* p) {
  FreeNumberList(&p->x);
  FreeNumberList(&p->y);
}

// The sums of the least-squares line, about the means.
struct LineSums {
  double n, meanX, meanY, sxx, syy, sxy;
};

LineSums SumsOf(const Pairs* p) {
  LineSums s{static_cast<double>(p->x.count), 0, 0, 0, 0, 0};
  ListMean(p->x.items, p->x.count, &s.meanX);
  ListMean(p->y.items, p->y.count, &s.meanY);
  for (uint32_t i = 0; i < p->x.count; i++) {
    double dx = p->x.items[i] - s.meanX, dy = p->y.items[i] - s.meanY;
    s.sxx += dx * dx;
    s.syy += dy * dy;
    s.sxy += dx * dy;
  }
  return s;
}

enum PairStatistic {
  PairSlope,
  PairIntercept,
  PairCorrelation,
  PairSquare,
  PairCovariance,
  PairStandardError
};

// Computes the statistic from the sums; returns 0 when it divides by zero.
int PairValue(const LineSums* s, int which, double* out) {
  switch (which) {
    case PairSlope:
    case PairIntercept:
      if (s->sxx == 0) return 0;
      *out = which == PairSlope ? s->sxy / s->sxx : s->meanY - s->sxy / s->sxx * s->meanX;
      return 1;
    case PairCorrelation:
    case PairSquare: {
      if (s->sxx == 0 || s->syy == 0) return 0;
      double r = s->sxy / std::sqrt(s->sxx * s->syy);
      *out = which == PairSquare ? r * r : r;
      return 1;
    }
    case PairCovariance:
      if (s->n == 0) return 0;
      *out = s->sxy / s->n;
      return 1;
    default:
      if (s->n < 3 || s->sxx == 0) return 0;
      *out = std::sqrt((s->syy - s->sxy * s->sxy / s->sxx) / (s->n - 2));
      return 1;
  }
}

// The pair functions take (known y; known x), COVARIANCE and the correlations (array1; array2):
// the order matters only for the line.
void PairFunction(Value* ys, Value* xs, Value* result, const EvalContext* ctx, int which) {
  Pairs p{};
  if (GatherPairs(xs, ys, ctx, &p, result)) {
    LineSums s = SumsOf(&p);
    double out;
    if (p.x.count == 0 || !PairValue(&s, which, &out))
      *result = ErrorValue(ErrDiv0);
    else
      GiveNumber(result, out);
  }
  FreePairs(&p);
}

// --- Percent rank ---------------------------------------------------------------------------

// The rank of x among the values: the share of the other places that hold smaller values.
double RankOfValue(const NumberList* list, double x) {
  double less = 0;
  for (uint32_t i = 0; i < list->count; i++)
    if (list->items[i] < x) less++;
  return list->count == 1 ? 1 : less / (list->count - 1);
}

}  // namespace

void FnMoyenne(Value* args, Value* result, const EvalContext* ctx) {
  Mean(args, result, ctx, WalkPlain);
}

void FnMoyenneA(Value* args, Value* result, const EvalContext* ctx) {
  Mean(args, result, ctx, WalkA);
}

void FnVar(Value* args, Value* result, const EvalContext* ctx) {
  Variance(args, result, ctx, WalkPlain, 1, 0);
}

void FnVarP(Value* args, Value* result, const EvalContext* ctx) {
  Variance(args, result, ctx, WalkPlain, 0, 0);
}

void FnVarA(Value* args, Value* result, const EvalContext* ctx) {
  Variance(args, result, ctx, WalkA, 1, 0);
}

void FnVarPA(Value* args, Value* result, const EvalContext* ctx) {
  Variance(args, result, ctx, WalkA, 0, 0);
}

void FnEcartType(Value* args, Value* result, const EvalContext* ctx) {
  Variance(args, result, ctx, WalkPlain, 1, 1);
}

void FnEcartTypeP(Value* args, Value* result, const EvalContext* ctx) {
  Variance(args, result, ctx, WalkPlain, 0, 1);
}

void FnStDevA(Value* args, Value* result, const EvalContext* ctx) {
  Variance(args, result, ctx, WalkA, 1, 1);
}

void FnStDevPA(Value* args, Value* result, const EvalContext* ctx) {
  Variance(args, result, ctx, WalkA, 0, 1);
}

void FnSommeCarresEcarts(Value* args, Value* result, const EvalContext* ctx) {
  Moments m{};
  if (!WalkMoments(args, ctx, WalkPlain, &m, result)) return;
  *result = m.count ? NumberValue(m.m2) : ErrorValue(ErrNum);
}

void FnEcartMoyen(Value* args, Value* result, const EvalContext* ctx) {
  NumberList list{};
  if (!GatherNumbers(args, ctx, WalkPlain, &list, result)) return;
  double mean, sum = 0;
  if (!ListMean(list.items, list.count, &mean)) {
    *result = ErrorValue(ErrNum);
  } else {
    for (uint32_t i = 0; i < list.count; i++) sum += std::fabs(list.items[i] - mean);
    *result = NumberValue(sum / list.count);
  }
  FreeNumberList(&list);
}

void FnMoyenneGeometrique(Value* args, Value* result, const EvalContext* ctx) {
  NumberList list{};
  if (!GatherNumbers(args, ctx, WalkPlain, &list, result)) return;
  Moments logs{};
  for (uint32_t i = 0; i < list.count && logs.count == i; i++)
    if (list.items[i] > 0) AddToMoments(&logs, std::log(list.items[i]));
  if (list.count == 0 || logs.count != list.count)
    *result = ErrorValue(ErrNum);
  else
    GiveNumber(result, std::exp(logs.mean));
  FreeNumberList(&list);
}

void FnMoyenneHarmonique(Value* args, Value* result, const EvalContext* ctx) {
  NumberList list{};
  if (!GatherNumbers(args, ctx, WalkPlain, &list, result)) return;
  double sum = 0;
  uint32_t i = 0;
  for (; i < list.count && list.items[i] > 0; i++) sum += 1 / list.items[i];
  if (list.count == 0 || i < list.count)
    *result = ErrorValue(ErrNum);
  else
    GiveNumber(result, list.count / sum);
  FreeNumberList(&list);
}

void FnCoefficientAsymetrie(Value* args, Value* result, const EvalContext* ctx) {
  NumberList list{};
  if (!GatherNumbers(args, ctx, WalkPlain, &list, result)) return;
  double n = list.count, sum;
  if (!StandardMoment(&list, 3, 3, &sum))
    *result = ErrorValue(ErrDiv0);
  else
    GiveNumber(result, n / ((n - 1) * (n - 2)) * sum);
  FreeNumberList(&list);
}

void FnKurtosis(Value* args, Value* result, const EvalContext* ctx) {
  NumberList list{};
  if (!GatherNumbers(args, ctx, WalkPlain, &list, result)) return;
  double n = list.count, sum;
  if (!StandardMoment(&list, 4, 4, &sum))
    *result = ErrorValue(ErrDiv0);
  else
    GiveNumber(result, n * (n + 1) / ((n - 1) * (n - 2) * (n - 3)) * sum -
                           3 * (n - 1) * (n - 1) / ((n - 2) * (n - 3)));
  FreeNumberList(&list);
}

void FnMax(Value* args, Value* result, const EvalContext* ctx) {
  Extremum(args, result, ctx, WalkPlain, 1);
}

void FnMin(Value* args, Value* result, const EvalContext* ctx) {
  Extremum(args, result, ctx, WalkPlain, 0);
}

void FnMaxA(Value* args, Value* result, const EvalContext* ctx) {
  Extremum(args, result, ctx, WalkA, 1);
}

void FnMinA(Value* args, Value* result, const EvalContext* ctx) {
  Extremum(args, result, ctx, WalkA, 0);
}

void FnNb(Value* args, Value* result, const EvalContext* ctx) {
  double count = 0;
  Value error{};
  WalkNumbersWith(args, ctx, WalkSkipErrors, CountVisited, &count, &error);
  *result = NumberValue(count);
}

void FnNbVal(Value* args, Value* result, const EvalContext* ctx) {
  double count = 0;
  Value error{};
  const uint32_t all = WalkA | WalkErrorsInRanges;
  for (int i = 0; i < FunctionFrameSize; i++) {
    Value* a = &args[i];
    if (a->tag == ValueRef || a->tag == ValueRefList)
      WalkReferenceNumbers(a, ctx, all | WalkSkipErrors, CountVisited, &count, &error);
    else if (a->tag == ValueArray)
      WalkArrayNumbers(a, all, CountVisited, &count, &error);
    else if (a->tag != ValueEmpty)
      count++;
  }
  *result = NumberValue(count);
}

void FnMediane(Value* args, Value* result, const EvalContext* ctx) {
  NumberList list{};
  if (!GatherNumbers(args, ctx, WalkPlain, &list, result)) return;
  if (list.count == 0) {
    *result = ErrorValue(ErrNum);
  } else {
    std::qsort(list.items, list.count, sizeof(double), CompareDoubles);
    *result = NumberValue(Percentile(&list, 0.5));
  }
  FreeNumberList(&list);
}

// MODE takes its arguments as arrays: a text typed as an argument is an element that is no
// number, passed over like a text in a range. Of several values that come equally often, the one
// met first in the arguments is the mode.
void FnMode(Value* args, Value* result, const EvalContext* ctx) {
  for (int i = 0; i < FunctionFrameSize; i++)
    if (args[i].tag == ValueText) {
      FreeValue(&args[i]);
      args[i] = Value{};
    }
  NumberList list{};
  if (!GatherNumbers(args, ctx, WalkPlain, &list, result)) return;
  double* sorted = static_cast<double*>(Allocate(list.count * sizeof(double) + 1));
  if (!sorted) {
    FreeNumberList(&list);
    *result = ErrorValue(ErrNA);
    return;
  }
  std::memcpy(sorted, list.items, list.count * sizeof(double));
  std::qsort(sorted, list.count, sizeof(double), CompareDoubles);
  uint32_t bestRun = 1, run = 1;
  for (uint32_t i = 1; i < list.count; i++) {
    run = sorted[i] == sorted[i - 1] ? run + 1 : 1;
    bestRun = run > bestRun ? run : bestRun;
  }
  // No value that comes twice: there is no mode.
  *result = ErrorValue(ErrNA);
  for (uint32_t i = 0; bestRun > 1 && i < list.count; i++) {
    auto [first, last] = std::equal_range(sorted, sorted + list.count, list.items[i]);
    if (static_cast<uint32_t>(last - first) == bestRun) {
      *result = NumberValue(list.items[i]);
      break;
    }
  }
  Release(sorted);
  FreeNumberList(&list);
}

void FnCentile(Value* args, Value* result, const EvalContext* ctx) {
  PercentileOf(args, result, ctx, 1);
}

void FnQuartile(Value* args, Value* result, const EvalContext* ctx) {
  PercentileOf(args, result, ctx, 4);
}

void FnGrandeValeur(Value* args, Value* result, const EvalContext* ctx) {
  KthValue(args, result, ctx, 1);
}

void FnPetiteValeur(Value* args, Value* result, const EvalContext* ctx) {
  KthValue(args, result, ctx, 0);
}

void FnMoyenneReduite(Value* args, Value* result, const EvalContext* ctx) {
  NumberList list{};
  if (!GatherSorted(&args[0], ctx, &list, result)) return;
  double percent;
  if (NumberFromArg(&args[1], result, ctx, &percent)) {
    if (percent < 0 || percent >= 1 || list.count == 0) {
      *result = ErrorValue(ErrNum);
    } else {
      uint32_t cut = static_cast<uint32_t>(Truncate32(list.count * percent * 0.5));
      double mean = 0;
      uint32_t k = 0;
      for (uint32_t i = cut; i + cut < list.count; i++, k++)
        mean += (list.items[i] - mean) / (k + 1);
      *result = NumberValue(mean);
    }
  }
  FreeNumberList(&list);
}

void FnRang(Value* args, Value* result, const EvalContext* ctx) {
  double x, order = 0;
  if (!NumberFromArg(&args[0], result, ctx, &x)) return;
  if (args[2].tag != ValueEmpty && !NumberFromArg(&args[2], result, ctx, &order)) return;
  NumberList list{};
  if (!GatherArgumentNumbers(&args[1], ctx, &list, result)) return;
  double before = 0;
  bool found = false;
  for (uint32_t i = 0; i < list.count; i++) {
    double v = list.items[i];
    if (v == x) found = true;
    if (order != 0 ? v < x : v > x) before++;
  }
  *result = found ? NumberValue(before + 1) : ErrorValue(ErrNA);
  FreeNumberList(&list);
}

void FnRangPourcentage(Value* args, Value* result, const EvalContext* ctx) {
  double x, digits = 3;
  NumberList list{};
  if (!GatherSorted(&args[0], ctx, &list, result)) return;
  if (NumberFromArg(&args[1], result, ctx, &x) &&
      (args[2].tag == ValueEmpty || NumberFromArg(&args[2], result, ctx, &digits))) {
    digits = Truncate32(digits);
    const double* v = list.items;
    uint32_t n = list.count;
    if (digits < 1 || n == 0) {
      *result = ErrorValue(ErrNum);
    } else if (x < v[0] || x > v[n - 1]) {
      *result = ErrorValue(ErrNA);
    } else {
      uint32_t i = 0;
      while (i < n && v[i] < x) i++;
      double rank = RankOfValue(&list, x);
      if (v[i] != x) {
        // Between two values: their ranks interpolated.
        double low = RankOfValue(&list, v[i - 1]), high = RankOfValue(&list, v[i]);
        rank = low + (high - low) * (x - v[i - 1]) / (v[i] - v[i - 1]);
      }
      double scale = std::pow(10.0, digits);
      // The rank is cut, not rounded, to the digits asked for; the nudge keeps a product such as
      // 0.29 * 100 = 28.999999999999996 from losing a unit.
      *result = NumberValue(std::floor(rank * scale * (1 + 1e-12)) / scale);
    }
  }
  FreeNumberList(&list);
}

void FnPente(Value* args, Value* result, const EvalContext* ctx) {
  PairFunction(&args[0], &args[1], result, ctx, PairSlope);
}

void FnOrdonneeOrigine(Value* args, Value* result, const EvalContext* ctx) {
  PairFunction(&args[0], &args[1], result, ctx, PairIntercept);
}

void FnCoefficientCorrelation(Value* args, Value* result, const EvalContext* ctx) {
  PairFunction(&args[0], &args[1], result, ctx, PairCorrelation);
}

void FnCoefficientDetermination(Value* args, Value* result, const EvalContext* ctx) {
  PairFunction(&args[0], &args[1], result, ctx, PairSquare);
}

void FnCovariance(Value* args, Value* result, const EvalContext* ctx) {
  PairFunction(&args[0], &args[1], result, ctx, PairCovariance);
}

void FnErreurTypeXY(Value* args, Value* result, const EvalContext* ctx) {
  PairFunction(&args[0], &args[1], result, ctx, PairStandardError);
}

void FnPrevision(Value* args, Value* result, const EvalContext* ctx) {
  double x;
  if (!NumberFromArg(&args[0], result, ctx, &x)) return;
  Pairs p{};
  if (GatherPairs(&args[2], &args[1], ctx, &p, result)) {
    LineSums s = SumsOf(&p);
    double a, b;
    if (p.x.count == 0 || !PairValue(&s, PairSlope, &b) || !PairValue(&s, PairIntercept, &a))
      *result = ErrorValue(ErrDiv0);
    else
      GiveNumber(result, a + b * x);
  }
  FreePairs(&p);
}

void FnFrequence(Value* args, Value* result, const EvalContext* ctx) {
  NumberList data{}, bins{};
  if (!GatherArgumentNumbers(&args[0], ctx, &data, result) ||
      !GatherArgumentNumbers(&args[1], ctx, &bins, result)) {
    FreeNumberList(&data);
    return;
  }
  // One count per bin, in the bins' own order, and one more for the values above them all.
  uint32_t n = bins.count;
  if (n + 1 > 0xFFFF || !MakeArray(result, n + 1, 1)) {
    *result = ErrorValue(ErrNA);
  } else {
    for (uint32_t j = 0; j <= n; j++) result->elements[j] = NumberValue(0);
    for (uint32_t i = 0; i < data.count; i++) {
      uint32_t slot = n;
      for (uint32_t j = 0; j < n; j++)
        if (data.items[i] <= bins.items[j] && (slot == n || bins.items[j] < bins.items[slot]))
          slot = j;
      result->elements[slot].number += 1;
    }
  }
  FreeNumberList(&data);
  FreeNumberList(&bins);
}

void FnProbabilite(Value* args, Value* result, const EvalContext* ctx) {
  Pairs p{};
  double lower, upper;
  if (GatherPairs(&args[0], &args[1], ctx, &p, result) &&
      NumberFromArg(&args[2], result, ctx, &lower)) {
    upper = lower;
    if (args[3].tag == ValueEmpty || NumberFromArg(&args[3], result, ctx, &upper)) {
      double total = 0, sum = 0;
      bool valid = true;
      for (uint32_t i = 0; i < p.x.count; i++) {
        double x = p.x.items[i], probability = p.y.items[i];
        valid = valid && probability >= 0 && probability <= 1;
        total += probability;
        if (x >= lower && x <= upper) sum += probability;
      }
      *result = valid && std::fabs(total - 1) <= 1e-9 ? NumberValue(sum) : ErrorValue(ErrNum);
    }
  }
  FreePairs(&p);
}

void FnTestZ(Value* args, Value* result, const EvalContext* ctx) {
  NumberList list{};
  double x, sigma;
  if (!GatherArgumentNumbers(&args[0], ctx, &list, result)) return;
  if (NumberFromArg(&args[1], result, ctx, &x) &&
      (args[2].tag == ValueEmpty || NumberFromArg(&args[2], result, ctx, &sigma))) {
    double mean;
    if (!ListMean(list.items, list.count, &mean))
      *result = ErrorValue(ErrNA);
    else if (args[2].tag == ValueEmpty && !ListVariance(list.items, list.count, 1, 1, &sigma))
      *result = ErrorValue(ErrDiv0);
    else if (sigma <= 0)
      *result = ErrorValue(sigma == 0 ? ErrDiv0 : ErrNum);
    else
      GiveNumber(result, 1 - NormalCdf((mean - x) / (sigma / std::sqrt(list.count))));
  }
  FreeNumberList(&list);
}

void FnTestStudent(Value* args, Value* result, const EvalContext* ctx) {
  double v[4] = {};
  if (!NumberFromArg(&args[2], result, ctx, &v[2]) || !NumberFromArg(&args[3], result, ctx, &v[3]))
    return;
  double tails = Truncate32(v[2]), type = Truncate32(v[3]);
  if ((tails != 1 && tails != 2) || type < 1 || type > 3) {
    *result = ErrorValue(ErrNum);
    return;
  }
  Pairs p{};
  NumberList a{}, b{};
  double t = 0, df = 0;
  bool computed = false;
  if (type == 1) {
    if (GatherPairs(&args[0], &args[1], ctx, &p, result)) {
      Moments d{};
      for (uint32_t i = 0; i < p.x.count; i++) AddToMoments(&d, p.x.items[i] - p.y.items[i]);
      double s;
      computed = true;
      if (!MomentsVariance(&d, 1, 1, &s) || s == 0) {
        *result = ErrorValue(ErrDiv0);
        computed = false;
      } else {
        t = d.mean / (s / std::sqrt(d.count));
        df = d.count - 1.0;
      }
    }
  } else if (GatherArgumentNumbers(&args[0], ctx, &a, result) &&
             GatherArgumentNumbers(&args[1], ctx, &b, result)) {
    double m1, m2, v1, v2, n1 = a.count, n2 = b.count;
    if (!ListMean(a.items, a.count, &m1) || !ListMean(b.items, b.count, &m2) ||
        !ListVariance(a.items, a.count, 1, 0, &v1) || !ListVariance(b.items, b.count, 1, 0, &v2)) {
      *result = ErrorValue(ErrDiv0);
    } else if (type == 2) {
      double pooled = ((n1 - 1) * v1 + (n2 - 1) * v2) / (n1 + n2 - 2);
      t = (m1 - m2) / std::sqrt(pooled * (1 / n1 + 1 / n2));
      df = n1 + n2 - 2;
      computed = true;
    } else {
      double e1 = v1 / n1, e2 = v2 / n2;
      t = (m1 - m2) / std::sqrt(e1 + e2);
      df = (e1 + e2) * (e1 + e2) / (e1 * e1 / (n1 - 1) + e2 * e2 / (n2 - 1));
      computed = true;
    }
  }
  if (computed) {
    if (!std::isfinite(t))
      *result = ErrorValue(ErrDiv0);
    else
      GiveNumber(result, tails * StudentTail(std::fabs(t), df));
  }
  FreePairs(&p);
  FreeNumberList(&a);
  FreeNumberList(&b);
}

void FnTestF(Value* args, Value* result, const EvalContext* ctx) {
  NumberList a{}, b{};
  double v1, v2;
  if (GatherArgumentNumbers(&args[0], ctx, &a, result) &&
      GatherArgumentNumbers(&args[1], ctx, &b, result)) {
    if (!ListVariance(a.items, a.count, 1, 0, &v1) || !ListVariance(b.items, b.count, 1, 0, &v2) ||
        v1 == 0 || v2 == 0) {
      *result = ErrorValue(ErrDiv0);
    } else {
      // Two-tailed: twice the smaller tail of the ratio of the variances.
      double upper = FisherTail(v1 / v2, a.count - 1.0, b.count - 1.0);
      GiveNumber(result, 2 * (upper < 0.5 ? upper : 1 - upper));
    }
  }
  FreeNumberList(&a);
  FreeNumberList(&b);
}

void FnTestKhiDeux(Value* args, Value* result, const EvalContext* ctx) {
  Value* actual = &args[0];
  Value* expected = &args[1];
  if (!ArrayArg(actual, result, ctx) || !ArrayArg(expected, result, ctx)) return;
  if (actual->rows != expected->rows || actual->columns != expected->columns) {
    *result = ErrorValue(ErrNA);
    return;
  }
  double chi = 0;
  for (uint32_t i = 0; i < ElementCount(actual); i++) {
    const Value* a = &actual->elements[i];
    const Value* e = &expected->elements[i];
    if (a->tag == ValueError || e->tag == ValueError) {
      *result = a->tag == ValueError ? *a : *e;
      return;
    }
    if (a->tag != ValueNumber || e->tag != ValueNumber) continue;
    if (e->number == 0) {
      *result = ErrorValue(ErrDiv0);
      return;
    }
    chi += (a->number - e->number) * (a->number - e->number) / e->number;
  }
  uint32_t rows = actual->rows, columns = actual->columns;
  double df =
      rows > 1 && columns > 1 ? (rows - 1.0) * (columns - 1.0) : (rows > 1 ? rows : columns) - 1.0;
  if (df < 1)
    *result = ErrorValue(ErrNA);
  else
    GiveNumber(result, ChiSquareTail(chi, df));
}

void FnPearson(Value* args, Value* result, const EvalContext* ctx) {
  PairFunction(&args[0], &args[1], result, ctx, PairCorrelation);
}
