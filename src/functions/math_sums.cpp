// The sums and folds of the "Math & Trig" category: SOMME, PRODUIT, SOMME.CARRES, MULTINOMIALE,
// PGCD and PPCM over the shared argument walk; SOMMEPROD and the SOMME.X2MY2 family over arrays;
// SOMME.SERIES; SOMME.SI and NB.SI, which test each cell of a range against a criterion; and
// SOUS.TOTAL, which applies one of eleven aggregates to references while passing over the cells
// that hold subtotals themselves.
#include <cmath>

#include "base/alloc.h"
#include "functions/aggregate.h"
#include "functions/criteria.h"
#include "functions/handlers.h"
#include "functions/numeric.h"
#include "functions/table.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

constexpr uint16_t SousTotalNumber = 344;

// --- Folds over the argument walk ----------------------------------------------------------

int AddNumber(double number, void* state) {
  *static_cast<double*>(state) += number;
  return 1;
}

struct Product {
  double value;
  int seen;
};

int MultiplyNumber(double x, void* state) {
  Product* p = static_cast<Product*>(state);
  p->value *= x;
  p->seen = 1;
  return 1;
}

int AddSquare(double x, void* state) {
  *static_cast<double*>(state) += x * x;
  return 1;
}

// MULTINOMIALE: the sum of the whole parts and the product of their factorials. A part that is
// negative, or too large for its factorial to be a number, stops the walk.
struct Multinomial {
  double sum;
  double product;
  int invalid;
};

int AddMultinomialPart(double x, void* state) {
  Multinomial* m = static_cast<Multinomial*>(state);
  int32_t part = TruncateToInt32(x);
  m->sum += part;
  if (part < 0 || m->sum > 170) {
    m->invalid = 1;
    return 0;
  }
  m->product *= Factorial(part);
  return 1;
}

// PGCD and PPCM fold their arguments pairwise from the first one.
struct Divisors {
  double value;
  int seen;
  int negative;
  int lcm;
};

double GreatestDivisor(double a, double b) {
  while (b != 0) {
    double r = std::fmod(a, b);
    a = b;
    b = r;
  }
  return a;
}

int FoldDivisor(double x, void* state) {
  Divisors* d = static_cast<Divisors*>(state);
  if (x < 0) {
    d->negative = 1;
    return 0;
  }
  double whole = std::trunc(x);
  if (!d->seen) {
    d->value = whole;
    d->seen = 1;
  } else if (!d->lcm) {
    d->value = GreatestDivisor(d->value, whole);
  } else {
    d->value =
        d->value == 0 || whole == 0 ? 0 : d->value / GreatestDivisor(d->value, whole) * whole;
  }
  return 1;
}

void FoldDivisors(Value* args, Value* result, const EvalContext* ctx, int lcm) {
  Divisors d{0, 0, 0, lcm};
  Value error{};
  if (!WalkNumbers(args, ctx, FoldDivisor, &d, &error))
    *result = d.negative ? ErrorValue(ErrNum) : error;
  else
    *result = NumberValue(d.value);
}

// SOMME.SERIES: each coefficient times the next power of x.
struct Series {
  double x, n, m;
  double sum;
  uint32_t index;
};

int AddSeriesTerm(double coefficient, void* state) {
  Series* s = static_cast<Series*>(state);
  s->sum += coefficient * std::pow(s->x, s->n + s->index++ * s->m);
  return 1;
}

// --- Arrays --------------------------------------------------------------------------------

using PairTerm = double (*)(double, double);

// The SOMME.X2MY2 family: the term summed over the pairs of numbers at the same place. Arrays
// without a single pair of numbers have no sum: #DIV/0!, as the programs these workbooks come
// from answer.
void SumPairs(Value* args, Value* result, const EvalContext* ctx, PairTerm term) {
  if (!ArrayArg(&args[0], result, ctx) || !ArrayArg(&args[1], result, ctx)) return;
  uint32_t count = ElementCount(&args[0]);
  if (count != ElementCount(&args[1])) {
    *result = ErrorValue(ErrNA);
    return;
  }
  double sum = 0;
  bool paired = false;
  for (uint32_t i = 0; i < count; i++) {
    const Value* x = &args[0].elements[i];
    const Value* y = &args[1].elements[i];
    if (x->tag == ValueError || y->tag == ValueError) {
      *result = x->tag == ValueError ? *x : *y;
      return;
    }
    if (x->tag == ValueNumber && y->tag == ValueNumber) {
      sum += term(x->number, y->number);
      paired = true;
    }
  }
  *result = paired ? NumberValue(sum) : ErrorValue(ErrDiv0);
}

// --- Ranges tested against a criterion -----------------------------------------------------

struct SheetArea {
  uint32_t book;
  uint32_t sheet;
  Range area;
};

constexpr uint32_t Located = UINT32_MAX;

// The one area on one sheet that SOMME.SI and NB.SI take. Returns Located or an error code.
uint32_t LocateArea(const Value* v, const EvalContext* ctx, SheetArea* out) {
  ReferenceTarget t;
  uint32_t error = LocateReference(v, ctx, &t);
  if (error != ReferenceFound) return error;
  if (t.areaCount != 1 || t.firstSheet != t.lastSheet) return ErrValue;
  *out = SheetArea{t.book, t.firstSheet, t.areas[0]};
  if (!SheetHasCells(GetSheet(out->book, out->sheet))) return ErrRef;
  if (out->area.lastRow < out->area.firstRow || out->area.lastCol < out->area.firstCol)
    return ErrValue;
  return Located;
}

using AreaVisitor = void (*)(const Value* value, uint32_t row, uint32_t col, void* state);

// Visits the cells of an area in row-major order with their offsets from its top-left corner.
// Positions without a stored cell are visited, as blanks, only with `withBlanks`: most criteria
// cannot meet a blank, and a whole column then costs only the cells it holds. Returns the count
// of stored cells visited.
uint64_t VisitArea(const SheetArea* a, bool withBlanks, AreaVisitor visit, void* state) {
  const Range* r = &a->area;
  uint64_t width = r->lastCol - r->firstCol + 1u;
  uint64_t total = (r->lastRow - r->firstRow + 1u) * width, next = 0, stored = 0;
  const Value blank{}, lostText = ErrorValue(ErrNA);
  CellRangeWalk walk;
  BeginRangeWalk(&walk, &GetSheet(a->book, a->sheet)->cells, r);
  while (Cell* cell = NextCellInRange(&walk)) {
    uint64_t position = (cell->row - r->firstRow) * width + (cell->col - r->firstCol);
    if (withBlanks)
      for (; next < position; next++)
        visit(&blank, static_cast<uint32_t>(next / width), static_cast<uint32_t>(next % width),
              state);
    next = position + 1;
    stored++;
    PrepareCellForRead(a->book, a->sheet, cell);
    const Value* v = cell->value.tag == ValueText && !cell->value.text ? &lostText : &cell->value;
    visit(v, cell->row - r->firstRow, cell->col - r->firstCol, state);
  }
  if (withBlanks)
    for (; next < total; next++)
      visit(&blank, static_cast<uint32_t>(next / width), static_cast<uint32_t>(next % width),
            state);
  return stored;
}

struct ConditionalSum {
  const Criterion* criterion;
  const SheetArea* sumArea;  // null: the matching cells themselves are added
  double sum;
};

void AddIfMatching(const Value* value, uint32_t row, uint32_t col, void* state) {
  ConditionalSum* s = static_cast<ConditionalSum*>(state);
  if (value->tag == ValueError || !CriterionMatches(s->criterion, value)) return;
  if (!s->sumArea) {
    if (value->tag == ValueNumber) s->sum += value->number;
    return;
  }
  // Only the corner of the sum range counts: the cell at the same offset is read, whether or not
  // it lies inside the range as given.
  uint32_t sumRow = s->sumArea->area.firstRow + row, sumCol = s->sumArea->area.firstCol + col;
  if (sumRow > MaxRow || sumCol > MaxCol) return;
  const SheetArea* a = s->sumArea;
  Cell* cell = CellAt(&GetSheet(a->book, a->sheet)->cells, sumRow, sumCol);
  if (!cell) return;
  PrepareCellForRead(a->book, a->sheet, cell);
  if (cell->value.tag == ValueNumber) s->sum += cell->value.number;
}

struct MatchCount {
  const Criterion* criterion;
  double count;
};

void CountIfMatching(const Value* value, uint32_t, uint32_t, void* state) {
  MatchCount* m = static_cast<MatchCount*>(state);
  if (CriterionMatches(m->criterion, value)) m->count++;
}

// --- SOUS.TOTAL ----------------------------------------------------------------------------

// What SOUS.TOTAL gathers from its references.
struct Gathered {
  uint32_t function;
  NumberList numbers;
  double nonEmpty;  // NBVAL counts texts, booleans and errors as well
  uint32_t error;   // the first error met, for the functions it ends
  int outOfMemory;
};

bool CountsErrors(uint32_t function) {
  return function == 2 || function == 3;
}

// Gathers the cells of one area; returns 0 when the walk must end.
int GatherArea(Gathered* g, uint32_t book, uint32_t sheet, const Range* area) {
  CellRangeWalk walk;
  BeginRangeWalk(&walk, &GetSheet(book, sheet)->cells, area);
  while (Cell* cell = NextCellInRange(&walk)) {
    // Subtotals inside the range are left out, so that a grand total over detail rows and their
    // subtotals counts each value once.
    if (cell->formula.bytes && TokensCallFunction(&cell->formula, &SousTotalNumber, 1)) continue;
    PrepareCellForRead(book, sheet, cell);
    const Value* v = &cell->value;
    if (v->tag == ValueEmpty) continue;
    g->nonEmpty++;
    uint32_t error = v->tag == ValueError ? v->error : ErrorCodeCount;
    if (v->tag == ValueText && !v->text) error = ErrNA;
    if (error != ErrorCodeCount && !CountsErrors(g->function)) {
      g->error = error;
      return 0;
    }
    if (v->tag == ValueNumber && !AppendNumber(&g->numbers, v->number)) {
      g->outOfMemory = 1;
      return 0;
    }
  }
  return 1;
}

// Gathers a reference of any number of areas and sheets; returns 0 when the walk must end, with
// the error set.
int GatherVisit(uint32_t book, uint32_t sheet, const Range* area, void* state) {
  return GatherArea(static_cast<Gathered*>(state), book, sheet, area);
}

int GatherReference(Gathered* g, const Value* v, const EvalContext* ctx) {
  if (v->tag == ValueError) {
    g->error = v->error;
    return 0;
  }
  ReferenceTarget t;
  uint32_t error = LocateReference(v, ctx, &t);
  if (error != ReferenceFound) {
    g->error = error;
    return 0;
  }
  return WalkReferenceTarget(&t, GatherVisit, g);
}

}  // namespace

Value Subtotal(uint32_t function, const NumberList* list, double nonEmpty) {
  const double* x = list->items;
  uint32_t n = list->count;
  double out = 0;
  switch (function) {
    case 1:
      return ListMean(x, n, &out) ? NumberValue(out) : ErrorValue(ErrDiv0);
    case 2:
      return NumberValue(n);
    case 3:
      return NumberValue(nonEmpty);
    case 4:
    case 5:
      for (uint32_t i = 0; i < n; i++)
        if (i == 0 || (function == 4 ? x[i] > out : x[i] < out)) out = x[i];
      return NumberValue(out);
    case 6:
      if (n) out = 1;
      for (uint32_t i = 0; i < n; i++) out *= x[i];
      return NumberValue(out);
    case 7:
    case 8:
    case 10:
    case 11: {
      int sample = function == 7 || function == 10, root = function <= 8;
      return ListVariance(x, n, sample, root, &out) ? NumberValue(out) : ErrorValue(ErrDiv0);
    }
    default:
      for (uint32_t i = 0; i < n; i++) out += x[i];
      return NumberValue(out);
  }
}

// SOMME, the plain form of the shared argument walk, which the other aggregates vary.
void FnSomme(Value* args, Value* result, const EvalContext* ctx) {
  double sum = 0;
  Value error{};
  *result = WalkNumbers(args, ctx, AddNumber, &sum, &error) ? NumberValue(sum) : error;
}

void FnProduit(Value* args, Value* result, const EvalContext* ctx) {
  Product p{1, 0};
  Value error{};
  *result = WalkNumbers(args, ctx, MultiplyNumber, &p, &error) ? NumberValue(p.seen ? p.value : 0)
                                                               : error;
}

void FnSommeCarres(Value* args, Value* result, const EvalContext* ctx) {
  double sum = 0;
  Value error{};
  *result = WalkNumbers(args, ctx, AddSquare, &sum, &error) ? NumberValue(sum) : error;
}

void FnMultinomiale(Value* args, Value* result, const EvalContext* ctx) {
  Multinomial m{0, 1, 0};
  Value error{};
  if (!WalkNumbers(args, ctx, AddMultinomialPart, &m, &error))
    *result = m.invalid ? ErrorValue(ErrNum) : error;
  else
    *result = NumberValue(Factorial(static_cast<int32_t>(m.sum)) / m.product);
}

void FnPgcd(Value* args, Value* result, const EvalContext* ctx) {
  FoldDivisors(args, result, ctx, 0);
}

void FnPpcm(Value* args, Value* result, const EvalContext* ctx) {
  FoldDivisors(args, result, ctx, 1);
}

void FnSommeSeries(Value* args, Value* result, const EvalContext* ctx) {
  Series s{};
  if (!NumberFromArg(&args[0], result, ctx, &s.x) || !NumberFromArg(&args[1], result, ctx, &s.n) ||
      !NumberFromArg(&args[2], result, ctx, &s.m))
    return;
  // The coefficients are walked as an aggregate's arguments are.
  Value frame[FunctionFrameSize] = {args[3]};
  args[3] = Value{};
  Value error{};
  *result = WalkNumbers(frame, ctx, AddSeriesTerm, &s, &error) ? NumberValue(s.sum) : error;
  FreeValue(&frame[0]);
}

void FnSommeProd(Value* args, Value* result, const EvalContext* ctx) {
  double* products = nullptr;
  uint32_t rows = 0, columns = 0, count = 0;
  Value outcome{};
  for (int i = 0; i < FunctionFrameSize && args[i].tag != ValueEmpty; i++) {
    Value* a = &args[i];
    if (!ArrayArg(a, &outcome, ctx)) break;
    if (!products) {
      rows = a->rows;
      columns = a->columns;
      count = ElementCount(a);
      products = static_cast<double*>(Allocate(count * sizeof(double)));
      if (!products) {
        outcome = ErrorValue(ErrNA);
        break;
      }
      for (uint32_t j = 0; j < count; j++) products[j] = 1;
    } else if (a->rows != rows || a->columns != columns) {
      outcome = ErrorValue(ErrValue);
      break;
    }
    // A non-number counts as 0; an error ends the sum.
    uint32_t j = 0;
    for (; j < count && a->elements[j].tag != ValueError; j++)
      products[j] *= a->elements[j].tag == ValueNumber ? a->elements[j].number : 0;
    if (j < count) {
      outcome = a->elements[j];
      break;
    }
  }
  if (outcome.tag == ValueEmpty) {  // no error met
    double sum = 0;
    for (uint32_t j = 0; j < count; j++) sum += products[j];
    outcome = NumberValue(sum);
  }
  *result = outcome;
  Release(products);
}

void FnSommeX2My2(Value* args, Value* result, const EvalContext* ctx) {
  SumPairs(args, result, ctx, [](double x, double y) { return x * x - y * y; });
}

void FnSommeX2Py2(Value* args, Value* result, const EvalContext* ctx) {
  SumPairs(args, result, ctx, [](double x, double y) { return x * x + y * y; });
}

void FnSommeXMy2(Value* args, Value* result, const EvalContext* ctx) {
  SumPairs(args, result, ctx, [](double x, double y) { return (x - y) * (x - y); });
}

void FnSommeSi(Value* args, Value* result, const EvalContext* ctx) {
  SheetArea range, sumArea;
  uint32_t error = LocateArea(&args[0], ctx, &range);
  if (error == Located && args[2].tag != ValueEmpty) error = LocateArea(&args[2], ctx, &sumArea);
  if (error != Located) {
    *result = ErrorValue(error);
    return;
  }
  ReduceToScalar(&args[1], ctx);
  Criterion criterion;
  PrepareCriterion(&criterion, &args[1], ContextDate1904(ctx));
  ConditionalSum s{&criterion, args[2].tag != ValueEmpty ? &sumArea : nullptr, 0};
  // A blank that matches adds nothing of its own, but may add the cell beside it.
  const Value blank{};
  bool withBlanks = s.sumArea && CriterionMatches(&criterion, &blank);
  VisitArea(&range, withBlanks, AddIfMatching, &s);
  *result = NumberValue(s.sum);
}

void FnNbSi(Value* args, Value* result, const EvalContext* ctx) {
  Value* range = &args[0];
  if (range->tag == ValueError) {
    *result = *range;
    return;
  }
  ReduceToScalar(&args[1], ctx);
  Criterion criterion;
  PrepareCriterion(&criterion, &args[1], ContextDate1904(ctx));
  MatchCount m{&criterion, 0};
  if (range->tag == ValueRef || range->tag == ValueRefList) {
    SheetArea area;
    uint32_t error = LocateArea(range, ctx, &area);
    if (error != Located) {
      *result = ErrorValue(error);
      return;
    }
    // Blanks are counted, not visited.
    uint64_t stored = VisitArea(&area, false, CountIfMatching, &m);
    const Value blank{};
    if (CriterionMatches(&criterion, &blank)) {
      const Range* r = &area.area;
      uint64_t cells = (r->lastRow - r->firstRow + 1u) * uint64_t{r->lastCol - r->firstCol + 1u};
      m.count += static_cast<double>(cells - stored);
    }
  } else {
    if (!ArrayArg(range, result, ctx)) return;
    for (uint32_t i = 0; i < ElementCount(range); i++)
      CountIfMatching(&range->elements[i], 0, 0, &m);
  }
  *result = NumberValue(m.count);
}

void FnSousTotal(Value* args, Value* result, const EvalContext* ctx) {
  double number;
  if (!NumberFromArg(&args[0], result, ctx, &number)) return;
  int32_t function = TruncateToInt32(number);
  if (function < 1 || function > 11) {
    *result = ErrorValue(ErrValue);
    return;
  }
  Gathered g{static_cast<uint32_t>(function), {}, 0, ErrorCodeCount, 0};
  bool complete = true;
  for (int i = 1; i < FunctionFrameSize && complete; i++)
    if (args[i].tag != ValueEmpty) complete = GatherReference(&g, &args[i], ctx);
  if (g.outOfMemory)
    *result = ErrorValue(ErrNA);
  else if (!complete)
    *result = ErrorValue(g.error);
  else
    *result = Subtotal(g.function, &g.numbers, g.nonEmpty);
  FreeNumberList(&g.numbers);
}
