// The information functions: the ESTxxx tests of what a value is, N, NA, NB.VIDE, TYPE and
// TYPE.ERREUR. The tests never fail: whatever their argument holds, errors included, they answer
// VRAI or FAUX. Most arguments arrive already reduced to a value; a reference or an array that
// still comes is reduced here to the value that stands for the formula's cell.
#include <cmath>
#include <cstdlib>

#include "base/text.h"
#include "functions/aggregate.h"
#include "functions/handlers.h"
#include "model/hooks.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

const Value* ScalarArg(Value* args, const EvalContext* ctx) {
  ReduceToScalar(&args[0], ctx);
  return &args[0];
}

// Where a reference starts, on a first sheet that holds cells; ReferenceFound or an error code.
uint32_t LocateStart(const Value* v, const EvalContext* ctx, ReferenceTarget* t) {
  uint32_t error = LocateReference(v, ctx, t);
  if (error == ReferenceFound && !SheetHasCells(GetSheet(t->book, t->firstSheet))) return ErrRef;
  return error;
}

// EST.PAIR and EST.IMPAIR: the argument read as a whole number. Booleans are refused, as the
// Analysis ToolPak refuses them; an empty value is 0.
int WholeArg(Value* args, Value* result, const EvalContext* ctx, double* out) {
  Value* a = &args[0];
  ReduceToScalar(a, ctx);
  if (a->tag == ValueBoolean) {
    *result = ErrorValue(ErrValue);
    return 0;
  }
  CoerceValue(a, ValueNumber, ctx);
  if (a->tag != ValueNumber) {
    *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
    return 0;
  }
  *out = std::trunc(a->number);
  return 1;
}

}  // namespace

void FnEstErr(Value* args, Value* result, const EvalContext* ctx) {
  const Value* a = ScalarArg(args, ctx);
  *result = BooleanValue(a->tag == ValueError && a->error != ErrNA);
}

void FnEstErreur(Value* args, Value* result, const EvalContext* ctx) {
  *result = BooleanValue(ScalarArg(args, ctx)->tag == ValueError);
}

void FnEstLogique(Value* args, Value* result, const EvalContext* ctx) {
  *result = BooleanValue(ScalarArg(args, ctx)->tag == ValueBoolean);
}

void FnEstNa(Value* args, Value* result, const EvalContext* ctx) {
  const Value* a = ScalarArg(args, ctx);
  *result = BooleanValue(a->tag == ValueError && a->error == ErrNA);
}

void FnEstNonTexte(Value* args, Value* result, const EvalContext* ctx) {
  *result = BooleanValue(ScalarArg(args, ctx)->tag != ValueText);
}

void FnEstNum(Value* args, Value* result, const EvalContext* ctx) {
  *result = BooleanValue(ScalarArg(args, ctx)->tag == ValueNumber);
}

// The argument is passed as a reference, so it arrives as one if it is one.
void FnEstRef(Value* args, Value* result, const EvalContext*) {
  *result = BooleanValue(args[0].tag == ValueRef || args[0].tag == ValueRefList);
}

void FnEstTexte(Value* args, Value* result, const EvalContext* ctx) {
  *result = BooleanValue(ScalarArg(args, ctx)->tag == ValueText);
}

// A cell holding an empty text is not empty here, unlike for NB.VIDE.
void FnEstVide(Value* args, Value* result, const EvalContext* ctx) {
  *result = BooleanValue(ScalarArg(args, ctx)->tag == ValueEmpty);
}

void FnEstPair(Value* args, Value* result, const EvalContext* ctx) {
  double whole;
  if (WholeArg(args, result, ctx, &whole)) *result = BooleanValue(std::fmod(whole, 2.0) == 0);
}

void FnEstImpair(Value* args, Value* result, const EvalContext* ctx) {
  double whole;
  if (WholeArg(args, result, ctx, &whole)) *result = BooleanValue(std::fmod(whole, 2.0) != 0);
}

// A reference gives the value of its first cell, whatever its size; that value, or a value given
// directly, becomes a number only if it is one or a boolean.
void FnN(Value* args, Value* result, const EvalContext* ctx) {
  Value* a = &args[0];
  ReduceToFirstCell(a, ctx);
  switch (a->tag) {
    case ValueNumber:
    case ValueError:
      *result = *a;
      return;
    case ValueBoolean:
      *result = NumberValue(a->boolean ? 1 : 0);
      return;
    case ValueEmpty:
    case ValueText:
      *result = NumberValue(0);
      return;
    default:
      *result = ErrorValue(ErrValue);
      return;
  }
}

void FnNa(Value*, Value* result, const EvalContext*) {
  *result = ErrorValue(ErrNA);
}

// Counts the cells of one area that show nothing: cells not stored, stored without a value, or
// holding an empty text (a formula giving "" included). Only the stored cells are looked at, so
// a whole column costs what it holds.
void FnNbVide(Value* args, Value* result, const EvalContext* ctx) {
  Value* a = &args[0];
  if (a->tag == ValueError) {
    *result = *a;
    return;
  }
  ReferenceTarget t;
  uint32_t error = LocateStart(a, ctx, &t);
  if (error == ReferenceFound && t.lastSheet > t.firstSheet) error = ErrRef;
  if (error == ReferenceFound && t.areaCount > 1) error = ErrValue;
  if (error != ReferenceFound) {
    *result = ErrorValue(error);
    return;
  }
  uint32_t book = t.book, sheet = t.firstSheet;
  Range area = t.areas[0];
  double blank =
      (double(area.lastRow) - area.firstRow + 1) * (double(area.lastCol) - area.firstCol + 1);
  CellRangeWalk walk;
  BeginRangeWalk(&walk, &GetSheet(book, sheet)->cells, &area);
  while (Cell* cell = NextCellInRange(&walk)) {
    PrepareCellForRead(book, sheet, cell);
    const Value* v = &cell->value;
    if (v->tag != ValueEmpty && !(v->tag == ValueText && TextLength(v->text) == 0)) blank--;
  }
  *result = NumberValue(blank);
}

// A reference is intersected with the formula's cell (in an array formula it becomes an array);
// an array given as such is a type of its own.
void FnType(Value* args, Value* result, const EvalContext* ctx) {
  Value* a = &args[0];
  if (a->tag == ValueRef || a->tag == ValueRefList) ImplicitIntersect(a, ctx);
  switch (a->tag) {
    case ValueEmpty:
    case ValueNumber:
      *result = NumberValue(1);
      return;
    case ValueText:
      *result = NumberValue(2);
      return;
    case ValueBoolean:
      *result = NumberValue(4);
      return;
    case ValueError:
      *result = NumberValue(16);
      return;
    case ValueArray:
      *result = NumberValue(64);
      return;
    default:
      *result = ErrorValue(ErrValue);
      return;
  }
}

void FnTypeErreur(Value* args, Value* result, const EvalContext* ctx) {
  const Value* a = ScalarArg(args, ctx);
  *result = a->tag == ValueError && a->error < ErrorCodeCount ? NumberValue(a->error + 1.0)
                                                              : ErrorValue(ErrNA);
}
