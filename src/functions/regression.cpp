// Least-squares regression: DROITEREG and LOGREG, which give the coefficients and, on request,
// their statistics, and TENDANCE and CROISSANCE, which give the fitted values at new points. The
// exponential rows fit the logarithm of y. The fit adds the observations one at a time into a
// triangular factor by planar rotations without square roots (Miller's algorithm AS 274): the
// factor is held as a diagonal, a row-packed unit upper triangle and the rotated right-hand side.
// A column whose diagonal falls below its tolerance is collinear with those before it; its row
// is taken out and folded into the later ones, and its coefficient is 0.
#include <cmath>

#include "base/alloc.h"
#include "functions/handlers.h"
#include "functions/numeric.h"

namespace {

// The triangular factor of the fit, for `p` parameters.
struct Factor {
  uint32_t p;
  double* d;       // the diagonal, p values
  double* rbar;    // the upper triangle without its unit diagonal, row by row
  double* thetab;  // the rotated right-hand side, p values
  double* tol;     // the tolerance of each column
  double sserr;    // the residual sum of squares
};

uint32_t RowStart(uint32_t p, uint32_t i) {
  return i * (2 * p - i - 1) / 2;
}

// Rotates one observation (`x`, p values, destroyed; `y`) of weight `w` into the factor,
// starting at column `first`.
void Include(Factor* f, double w, double* x, double y, uint32_t first) {
  uint32_t p = f->p;
  for (uint32_t i = first; i < p; i++) {
    if (w == 0) return;
    double xi = x[i];
    if (xi == 0) continue;
    double di = f->d[i], dpi = di + w * xi * xi;
    double cbar = di / dpi, sbar = w * xi / dpi;
    w *= cbar;
    f->d[i] = dpi;
    uint32_t next = RowStart(p, i);
    for (uint32_t k = i + 1; k < p; k++, next++) {
      double xk = x[k];
      x[k] = xk - xi * f->rbar[next];
      f->rbar[next] = cbar * f->rbar[next] + sbar * xk;
    }
    double yk = y;
    y = yk - xi * f->thetab[i];
    f->thetab[i] = cbar * f->thetab[i] + sbar * yk;
  }
  f->sserr += w * y * y;
}

// Takes out the rows of the columns that are collinear with the columns before them; each such
// row is folded into the later rows. Marks them in `singular`.
void RemoveSingular(Factor* f, double* work, bool* singular) {
  uint32_t p = f->p;
  for (uint32_t col = 0; col < p; col++) {
    singular[col] = std::sqrt(f->d[col]) < f->tol[col];
    if (!singular[col]) continue;
    uint32_t start = RowStart(p, col);
    for (uint32_t k = 0; k < p; k++) work[k] = k > col ? f->rbar[start + k - col - 1] : 0;
    for (uint32_t k = col + 1; k < p; k++) f->rbar[start + k - col - 1] = 0;
    double weight = f->d[col], y = f->thetab[col];
    f->d[col] = 0;
    f->thetab[col] = 0;
    if (col + 1 < p)
      Include(f, weight, work, y, col + 1);
    else
      f->sserr += weight * y * y;
  }
}

// What the handlers need of a fit.
struct Fit {
  uint32_t n, k;  // observations and x variables
  bool constant;  // whether the line has an intercept
  double* beta;   // p coefficients: the intercept first when there is one
  double* se;     // their standard errors
  uint32_t rank;  // parameters that are not collinear
  double ssresid, sstotal;
};

void FreeFit(Fit* fit) {
  Release(fit->beta);
  Release(fit->se);
  fit->beta = fit->se = nullptr;
}

// Fits y (n values) on the k x variables of x, x[i * k + j] being variable j at observation i.
// Returns 0 when memory runs out.
int FitLeastSquares(const double* x, const double* y, uint32_t n, uint32_t k, bool constant,
                    Fit* fit) {
  uint32_t p = k + (constant ? 1 : 0);
  *fit = Fit{n, k, constant, nullptr, nullptr, 0, 0, 0};
  size_t triangle = p * (p - 1) / 2 + 1;
  double* block = static_cast<double*>(Allocate((6 * p + triangle + p * p) * sizeof(double)));
  bool* singular = static_cast<bool*>(Allocate(p));
  fit->beta = static_cast<double*>(Allocate(p * sizeof(double)));
  fit->se = static_cast<double*>(Allocate(p * sizeof(double)));
  if (!block || !singular || !fit->beta || !fit->se) {
    Release(block);
    Release(singular);
    FreeFit(fit);
    return 0;
  }
  for (size_t i = 0; i < 6 * p + triangle + p * p; i++) block[i] = 0;
  Factor f{p, block, block + p, block + p + triangle, block + 2 * p + triangle, 0};
  double* row = block + 3 * p + triangle;
  double* work = row + p;
  double* squares = work + p;
  double* inverse = squares + p;  // p x p
  for (uint32_t i = 0; i < n; i++) {
    for (uint32_t j = 0; j < p; j++) {
      row[j] = constant ? (j == 0 ? 1 : x[i * k + j - 1]) : x[i * k + j];
      squares[j] += row[j] * row[j];
    }
    Include(&f, 1.0, row, y[i], 0);
  }
  for (uint32_t j = 0; j < p; j++) f.tol[j] = std::sqrt(squares[j]) * 1e-15;
  RemoveSingular(&f, work, singular);
  // Back-substitution through the unit upper triangle.
  for (uint32_t i = p; i-- > 0;) {
    double b = singular[i] ? 0 : f.thetab[i];
    if (!singular[i])
      for (uint32_t j = i + 1; j < p; j++) b -= f.rbar[RowStart(p, i) + j - i - 1] * fit->beta[j];
    fit->beta[i] = b;
    if (!singular[i]) fit->rank++;
  }
  fit->ssresid = f.sserr;
  // The covariance of the coefficients: the inverse of the unit triangle, scaled by the diagonal
  // and by the residual variance.
  for (uint32_t i = p; i-- > 0;) {
    inverse[i * p + i] = 1;
    for (uint32_t j = i + 1; j < p; j++) {
      double sum = 0;
      for (uint32_t m = i + 1; m <= j; m++)
        sum += f.rbar[RowStart(p, i) + m - i - 1] * inverse[m * p + j];
      inverse[i * p + j] = -sum;
    }
  }
  double df = static_cast<double>(n) - fit->rank;
  double scale = df > 0 ? f.sserr / df : 0;
  for (uint32_t i = 0; i < p; i++) {
    double variance = 0;
    if (!singular[i])
      for (uint32_t m = i; m < p; m++)
        if (f.d[m] > 0) variance += inverse[i * p + m] * inverse[i * p + m] / f.d[m];
    fit->se[i] = std::sqrt(variance * scale);
  }
  double mean = 0, total = 0;
  for (uint32_t i = 0; i < n; i++) mean += y[i];
  mean = constant && n ? mean / n : 0;
  for (uint32_t i = 0; i < n; i++) total += (y[i] - mean) * (y[i] - mean);
  fit->sstotal = total;
  Release(block);
  Release(singular);
  return 1;
}

// The data of a call: the known y and x as blocks of doubles, and the orientation that decides
// how several x variables are laid out.
struct Data {
  double* y;
  double* x;  // n rows of k values
  uint32_t n, k;
  bool yInRow;  // y given as a row: the variables of x are its rows
};

void FreeData(Data* d) {
  Release(d->y);
  Release(d->x);
  d->y = d->x = nullptr;
}

// Makes `a` an array of numbers only. Returns 0 with the error in `result`.
int NumberArray(Value* a, Value* result, const EvalContext* ctx) {
  if (!ArrayArg(a, result, ctx)) return 0;
  for (uint32_t i = 0; i < ElementCount(a); i++) {
    if (a->elements[i].tag == ValueNumber) continue;
    *result = a->elements[i].tag == ValueError ? a->elements[i] : ErrorValue(ErrValue);
    return 0;
  }
  return 1;
}

// The x values of observation `i`, variable `j`, from an array laid out for y.
double XAt(const Value* x, bool inRow, uint32_t i, uint32_t j, uint32_t k) {
  if (k == 1) return x->elements[i].number;
  return inRow ? x->elements[j * x->columns + i].number : x->elements[i * x->columns + j].number;
}

// The number of x variables in `x` laid out for `n` observations, or 0 when its shape does not
// fit them.
uint32_t VariableCount(const Value* x, uint32_t n, bool yInRow) {
  uint32_t count = uint32_t{x->rows} * x->columns;
  if (count == n && (x->rows == 1 || x->columns == 1)) return 1;
  if (yInRow) return x->columns == n ? x->rows : 0;
  return x->rows == n ? x->columns : 0;
}

// Reads the known y and x; with `logarithm`, y is replaced by its logarithm and must be above 0.
int ReadData(Value* args, Value* result, const EvalContext* ctx, bool logarithm, Data* d) {
  *d = Data{};
  Value* ys = &args[0];
  if (!NumberArray(ys, result, ctx)) return 0;
  if (ys->rows != 1 && ys->columns != 1) {
    *result = ErrorValue(ErrRef);
    return 0;
  }
  d->n = uint32_t{ys->rows} * ys->columns;
  d->yInRow = ys->rows == 1 && ys->columns > 1;
  Value* xs = &args[1];
  bool given = xs->tag != ValueEmpty;
  if (given && !NumberArray(xs, result, ctx)) return 0;
  d->k = given ? VariableCount(xs, d->n, d->yInRow) : 1;
  if (d->k == 0) {
    *result = ErrorValue(ErrRef);
    return 0;
  }
  d->y = static_cast<double*>(Allocate(d->n * sizeof(double)));
  d->x = static_cast<double*>(Allocate(size_t{d->n} * d->k * sizeof(double)));
  if (!d->y || !d->x) {
    FreeData(d);
    *result = ErrorValue(ErrNA);
    return 0;
  }
  for (uint32_t i = 0; i < d->n; i++) {
    double y = ys->elements[i].number;
    if (logarithm && y <= 0) {
      FreeData(d);
      *result = ErrorValue(ErrNum);
      return 0;
    }
    d->y[i] = logarithm ? std::log(y) : y;
    for (uint32_t j = 0; j < d->k; j++)
      d->x[i * d->k + j] = given ? XAt(xs, d->yInRow, i, j, d->k) : i + 1.0;
  }
  return 1;
}

// Reads the optional flag of slot `i`, `fallback` when left out.
int FlagArg(Value* args, int i, bool fallback, Value* result, const EvalContext* ctx, bool* out) {
  double v = fallback ? 1 : 0;
  if (!ReadNumbers(args + i, 1, &v, result, ctx)) return 0;
  *out = v != 0;
  return 1;
}

void SetNumber(Value* array, uint32_t row, uint32_t col, double x) {
  array->elements[row * array->columns + col] =
      std::isfinite(x) ? NumberValue(x) : ErrorValue(ErrNum);
}

// DROITEREG and LOGREG: one row of coefficients, the last variable first and the intercept last;
// with the statistics, four more rows: the standard errors, then r squared and the standard error
// of y, then F and the degrees of freedom, then the regression and residual sums of squares. The
// cells with nothing to show hold #N/A.
void Estimate(Value* args, Value* result, const EvalContext* ctx, bool exponential) {
  Data d;
  bool constant, stats;
  if (!FlagArg(args, 2, true, result, ctx, &constant) ||
      !FlagArg(args, 3, false, result, ctx, &stats))
    return;
  if (!ReadData(args, result, ctx, exponential, &d)) return;
  Fit fit;
  if (!FitLeastSquares(d.x, d.y, d.n, d.k, constant, &fit)) {
    FreeData(&d);
    *result = ErrorValue(ErrNA);
    return;
  }
  uint32_t columns = d.k + 1;
  if (!MakeArray(result, stats ? 5 : 1, columns)) {
    *result = ErrorValue(ErrNA);
  } else {
    for (uint32_t i = 0; i < uint32_t{result->rows} * columns; i++)
      result->elements[i] = ErrorValue(ErrNA);
    uint32_t shift = constant ? 1 : 0;
    for (uint32_t j = 0; j < d.k; j++) {
      double b = fit.beta[shift + j];
      SetNumber(result, 0, d.k - 1 - j, exponential ? std::exp(b) : b);
      if (stats) SetNumber(result, 1, d.k - 1 - j, fit.se[shift + j]);
    }
    double intercept = constant ? fit.beta[0] : 0;
    SetNumber(result, 0, d.k, exponential ? std::exp(intercept) : intercept);
    if (stats) {
      if (constant) SetNumber(result, 1, d.k, fit.se[0]);
      double df = static_cast<double>(d.n) - fit.rank;
      double ssreg = fit.sstotal - fit.ssresid;
      double variables = fit.rank - (constant ? 1.0 : 0.0);
      SetNumber(result, 2, 0, fit.sstotal > 0 ? ssreg / fit.sstotal : NAN);
      SetNumber(result, 2, 1, df > 0 ? std::sqrt(fit.ssresid / df) : NAN);
      SetNumber(result, 3, 0, df > 0 ? ssreg / variables / (fit.ssresid / df) : NAN);
      SetNumber(result, 3, 1, df);
      SetNumber(result, 4, 0, ssreg);
      SetNumber(result, 4, 1, fit.ssresid);
    }
  }
  FreeFit(&fit);
  FreeData(&d);
}

// TENDANCE and CROISSANCE: the fitted values at the new x, which default to the known x. One
// variable keeps the shape of the new x; several give one value per observation laid out as y.
void Predict(Value* args, Value* result, const EvalContext* ctx, bool exponential) {
  Data d;
  bool constant;
  if (!FlagArg(args, 3, true, result, ctx, &constant)) return;
  if (!ReadData(args, result, ctx, exponential, &d)) return;
  Value* fresh = &args[2];
  bool given = fresh->tag != ValueEmpty;
  if (given && !NumberArray(fresh, result, ctx)) {
    FreeData(&d);
    return;
  }
  uint32_t rows, columns, points;
  if (!given) {
    Value* known = &args[1];
    bool knownGiven = known->tag == ValueArray;
    rows = knownGiven && d.k == 1 ? known->rows : d.yInRow ? 1 : d.n;
    columns = knownGiven && d.k == 1 ? known->columns : d.yInRow ? d.n : 1;
    points = d.n;
  } else if (d.k == 1) {
    rows = fresh->rows;
    columns = fresh->columns;
    points = rows * columns;
  } else {
    uint32_t width = d.yInRow ? fresh->rows : fresh->columns;
    points = d.yInRow ? fresh->columns : fresh->rows;
    rows = d.yInRow ? 1 : points;
    columns = d.yInRow ? points : 1;
    if (width != d.k) {
      FreeData(&d);
      *result = ErrorValue(ErrRef);
      return;
    }
  }
  Fit fit;
  if (!FitLeastSquares(d.x, d.y, d.n, d.k, constant, &fit)) {
    FreeData(&d);
    *result = ErrorValue(ErrNA);
    return;
  }
  if (rows > 0xFFFF || columns > 0xFFFF || !MakeArray(result, rows, columns)) {
    *result = ErrorValue(ErrNA);
  } else {
    uint32_t shift = constant ? 1 : 0;
    for (uint32_t i = 0; i < points; i++) {
      double value = constant ? fit.beta[0] : 0;
      for (uint32_t j = 0; j < d.k; j++) {
        double x = !given ? d.x[i * d.k + j] : XAt(fresh, d.yInRow, i, j, d.k);
        value += fit.beta[shift + j] * x;
      }
      result->elements[i] = NumberValue(exponential ? std::exp(value) : value);
      if (!std::isfinite(result->elements[i].number)) result->elements[i] = ErrorValue(ErrNum);
    }
  }
  FreeFit(&fit);
  FreeData(&d);
}

}  // namespace

void FnDroiteReg(Value* args, Value* result, const EvalContext* ctx) {
  Estimate(args, result, ctx, false);
}

void FnLogReg(Value* args, Value* result, const EvalContext* ctx) {
  Estimate(args, result, ctx, true);
}

void FnTendance(Value* args, Value* result, const EvalContext* ctx) {
  Predict(args, result, ctx, false);
}

void FnCroissance(Value* args, Value* result, const EvalContext* ctx) {
  Predict(args, result, ctx, true);
}
