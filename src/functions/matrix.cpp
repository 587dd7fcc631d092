// The matrix functions DETERMAT, INVERSEMAT and PRODUITMAT, and the determinant they share. The
// formulas are the exact-arithmetic ones of the textbook: expansion by minors and the adjugate,
// with no pivoting and no tolerance, which suits the small matrices a sheet holds. Exhausted
// memory gives #N/A, as everywhere in this family.
#include "base/alloc.h"
#include "functions/handlers.h"
#include "functions/numeric.h"

namespace {

// Copies the n by n block `m` without row `skipRow` and column `skipCol` into `minor`.
void CopyMinor(const double* m, uint32_t n, uint32_t skipRow, uint32_t skipCol, double* minor) {
  for (uint32_t r = 0; r < n; r++) {
    if (r == skipRow) continue;
    for (uint32_t c = 0; c < n; c++)
      if (c != skipCol) *minor++ = m[r * n + c];
  }
}

// Expansion along the first column. Expanding always removes the first remaining column, so
// every minor met is the set of rows still present over the last columns: the minors repeat, and
// each is worked out once and kept by its row set. Each is computed by exactly the terms, in
// exactly the order, of the plain recursion, so the result is the same to the last bit; only the
// repeated work (factorial in n) is gone.
struct Expansion {
  const double* m;
  uint32_t n;
  double* known;  // by row set
  uint8_t* done;
};

double ExpandRows(Expansion* x, uint32_t rows, uint32_t column) {
  if (x->done[rows]) return x->known[rows];
  double det = 0;
  if (column == x->n - 1) {
    for (uint32_t r = 0; r < x->n; r++)
      if (rows & (1u << r)) det = x->m[r * x->n + column];
  } else {
    double sign = 1;
    for (uint32_t r = 0; r < x->n; r++) {
      if (!(rows & (1u << r))) continue;
      double element = x->m[r * x->n + column];
      // A zero term adds nothing, and skipping its minor saves a whole subtree of the expansion.
      if (element != 0) det += sign * element * ExpandRows(x, rows & ~(1u << r), column + 1);
      sign = -sign;
    }
  }
  x->known[rows] = det;
  x->done[rows] = 1;
  return det;
}

// An argument as a row-major block of numbers. Every element must be a number: the first that is
// not gives its error, or #VALUE!. Returns null with `result` set on failure.
double* NumbersOf(Value* a, Value* result, const EvalContext* ctx, uint32_t* rows,
                  uint32_t* columns) {
  CoerceValue(a, ValueArray, ctx);
  if (a->tag != ValueArray || !a->elements) {
    *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
    return nullptr;
  }
  uint32_t count = uint32_t{a->rows} * a->columns;
  for (uint32_t i = 0; i < count; i++) {
    const Value* e = &a->elements[i];
    if (e->tag != ValueNumber) {
      *result = e->tag == ValueError ? *e : ErrorValue(ErrValue);
      return nullptr;
    }
  }
  double* numbers = static_cast<double*>(Allocate(count * sizeof(double)));
  if (!numbers) {
    *result = ErrorValue(ErrNA);
    return nullptr;
  }
  for (uint32_t i = 0; i < count; i++) numbers[i] = a->elements[i].number;
  *rows = a->rows;
  *columns = a->columns;
  return numbers;
}

// A square matrix argument; returns null with `result` set when it is none.
double* SquareOf(Value* a, Value* result, const EvalContext* ctx, uint32_t* n) {
  uint32_t rows = 0, columns = 0;
  double* m = NumbersOf(a, result, ctx, &rows, &columns);
  if (m && rows != columns) {
    Release(m);
    *result = ErrorValue(ErrValue);
    return nullptr;
  }
  *n = rows;
  return m;
}

// Moves a block of numbers into a fresh array value.
void ArrayResult(const double* numbers, uint32_t rows, uint32_t columns, Value* result) {
  if (!MakeArray(result, rows, columns)) {
    *result = ErrorValue(ErrNA);
    return;
  }
  for (uint32_t i = 0; i < rows * columns; i++) result->elements[i] = NumberValue(numbers[i]);
}

}  // namespace

int Determinant(const double* m, uint32_t n, double* out) {
  if (n == 0 || n > MaxDeterminantOrder) return 0;
  Expansion x{m, n, nullptr, nullptr};
  uint32_t sets = 1u << n;
  x.known = static_cast<double*>(Allocate(sets * sizeof(double)));
  x.done = static_cast<uint8_t*>(Allocate(sets));
  int ok = x.known && x.done;
  if (ok) *out = ExpandRows(&x, sets - 1, 0);
  Release(x.known);
  Release(x.done);
  return ok;
}

void FnDeterMat(Value* args, Value* result, const EvalContext* ctx) {
  uint32_t n = 0;
  double* m = SquareOf(&args[0], result, ctx, &n);
  if (!m) return;
  if (n > MaxDeterminantOrder) {
    Release(m);
    *result = ErrorValue(ErrNum);
    return;
  }
  double det;
  *result = Determinant(m, n, &det) ? NumberValue(det) : ErrorValue(ErrNA);
  Release(m);
}

// The adjugate by cofactors, divided by the determinant.
void FnInverseMat(Value* args, Value* result, const EvalContext* ctx) {
  uint32_t n = 0;
  double* m = SquareOf(&args[0], result, ctx, &n);
  if (!m) return;
  if (n > MaxDeterminantOrder) {
    Release(m);
    *result = ErrorValue(ErrNum);
    return;
  }
  double* inverse = static_cast<double*>(Allocate(n * n * sizeof(double)));
  double* minor = static_cast<double*>(Allocate((n - 1) * (n - 1) * sizeof(double)));
  double det = 0;
  if (!inverse || !minor || !Determinant(m, n, &det)) {
    *result = ErrorValue(ErrNA);
  } else if (det == 0) {
    *result = ErrorValue(ErrNum);
  } else {
    bool complete = true;
    for (uint32_t r = 0; r < n && complete; r++) {
      for (uint32_t c = 0; c < n && complete; c++) {
        double cofactor = 1;
        if (n > 1) {
          CopyMinor(m, n, r, c, minor);
          complete = Determinant(minor, n - 1, &cofactor);
          if ((r + c) % 2) cofactor = -cofactor;
        }
        inverse[c * n + r] = cofactor * (1 / det);
      }
    }
    if (complete)
      ArrayResult(inverse, n, n, result);
    else
      *result = ErrorValue(ErrNA);
  }
  Release(minor);
  Release(inverse);
  Release(m);
}

void FnProduitMat(Value* args, Value* result, const EvalContext* ctx) {
  uint32_t rowsA = 0, columnsA = 0, rowsB = 0, columnsB = 0;
  double* a = NumbersOf(&args[0], result, ctx, &rowsA, &columnsA);
  double* b = a ? NumbersOf(&args[1], result, ctx, &rowsB, &columnsB) : nullptr;
  double* product = b && columnsA == rowsB
                        ? static_cast<double*>(Allocate(rowsA * columnsB * sizeof(double)))
                        : nullptr;
  if (product) {
    for (uint32_t r = 0; r < rowsA; r++)
      for (uint32_t c = 0; c < columnsB; c++) {
        double sum = 0;
        for (uint32_t k = 0; k < columnsA; k++) sum += a[r * columnsA + k] * b[k * columnsB + c];
        product[r * columnsB + c] = sum;
      }
    ArrayResult(product, rowsA, columnsB, result);
  } else if (b) {
    *result = ErrorValue(columnsA != rowsB ? ErrValue : ErrNA);
  }
  Release(product);
  Release(b);
  Release(a);
}
