// The argument walks of the aggregates. A direct argument is taken at its word: text and booleans
// are converted, and a failed conversion ends the walk. Inside a reference or an array only the
// numbers count unless the caller widens the walk, and an error ends it. References are read cell
// by cell from the sheet's store, never copied into an array, so that a reference to whole columns
// costs only the cells that exist.
#include "functions/aggregate.h"

#include "functions/table.h"
#include "model/hooks.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

// One walk in progress: what it hands numbers to, and where a stop is reported.
struct Walk {
  uint32_t flags;
  NumberVisitor visit;
  void* state;
  Value* error;
};

int Visit(const Walk* w, double number) {
  if (w->visit(number, w->state)) return 1;
  *w->error = Value{};
  return 0;
}

// An error found on the way: it ends the walk unless the caller asked to pass errors over.
int Fail(const Walk* w, uint32_t code) {
  if (w->flags & WalkSkipErrors) return 1;
  *w->error = ErrorValue(code);
  return 0;
}

// A value met inside a reference or an array, where text and booleans do not count by default.
int VisitRangeValue(const Walk* w, const Value* v) {
  switch (v->tag) {
    case ValueNumber:
      return Visit(w, v->number);
    case ValueBoolean:
      return (w->flags & WalkLogicalInRanges) ? Visit(w, v->boolean ? 1.0 : 0.0) : 1;
    case ValueText:
      // A text cell whose string was lost reads as #N/A, as it does when the cells become an
      // array.
      if (!v->text) return Fail(w, ErrNA);
      return (w->flags & WalkTextInRanges) ? Visit(w, 0.0) : 1;
    case ValueError:
      return (w->flags & WalkErrorsInRanges) ? Visit(w, 0.0) : Fail(w, v->error);
    default:
      return 1;
  }
}

int WalkArea(const Walk* w, uint32_t book, uint32_t sheet, const Range* area) {
  CellRangeWalk cells;
  BeginRangeWalk(&cells, &GetSheet(book, sheet)->cells, area);
  while (Cell* cell = NextCellInRange(&cells)) {
    // A cell still on the calculation stack is a circular reference: it is noted, and the value
    // it holds for now is what the walk sees.
    PrepareCellForRead(book, sheet, cell);
    if (!VisitRangeValue(w, &cell->value)) return 0;
  }
  return 1;
}

int WalkVisit(uint32_t book, uint32_t sheet, const Range* area, void* state) {
  return WalkArea(static_cast<const Walk*>(state), book, sheet, area);
}

int WalkReference(const Walk* w, const Value* reference, const EvalContext* ctx) {
  ReferenceTarget t;
  uint32_t error = LocateReference(reference, ctx, &t);
  if (error != ReferenceFound) return Fail(w, error);
  return WalkReferenceTarget(&t, WalkVisit, const_cast<Walk*>(w));
}

int WalkArray(const Walk* w, const Value* array) {
  if (array->tag != ValueArray) return Fail(w, ErrValue);
  if (!array->elements) return 1;
  uint32_t count = uint32_t{array->rows} * array->columns;
  for (uint32_t i = 0; i < count; i++)
    if (!VisitRangeValue(w, &array->elements[i])) return 0;
  return 1;
}

}  // namespace

int WalkNumbersWith(Value* args, const EvalContext* ctx, uint32_t flags, NumberVisitor visit,
                    void* state, Value* error) {
  Walk w{flags, visit, state, error};
  for (int i = 0; i < FunctionFrameSize; i++) {
    Value* a = &args[i];
    int goOn = 1;
    switch (a->tag) {
      case ValueEmpty:
        break;
      case ValueNumber:
        goOn = Visit(&w, a->number);
        break;
      case ValueText:
      case ValueBoolean:
        CoerceValue(a, ValueNumber, ctx);
        goOn = a->tag == ValueNumber ? Visit(&w, a->number)
                                     : Fail(&w, a->tag == ValueError ? a->error : ErrValue);
        break;
      case ValueError:
        goOn = Fail(&w, a->error);
        break;
      case ValueRef:
      case ValueRefList:
        goOn = WalkReference(&w, a, ctx);
        break;
      case ValueArray:
        goOn = WalkArray(&w, a);
        break;
      default:
        goOn = Fail(&w, ErrValue);
        break;
    }
    if (!goOn) return 0;
  }
  return 1;
}

int WalkNumbers(Value* args, const EvalContext* ctx, NumberVisitor visit, void* state,
                Value* error) {
  return WalkNumbersWith(args, ctx, WalkPlain, visit, state, error);
}

int WalkReferenceNumbers(const Value* reference, const EvalContext* ctx, uint32_t flags,
                         NumberVisitor visit, void* state, Value* error) {
  Walk w{flags, visit, state, error};
  return WalkReference(&w, reference, ctx);
}

int WalkArrayNumbers(const Value* array, uint32_t flags, NumberVisitor visit, void* state,
                     Value* error) {
  Walk w{flags, visit, state, error};
  return WalkArray(&w, array);
}

static int AppendVisited(double x, void* state) {
  return AppendNumber(static_cast<NumberList*>(state), x);
}

int GatherNumbers(Value* args, const EvalContext* ctx, uint32_t flags, NumberList* list,
                  Value* result) {
  Value error{};
  if (WalkNumbersWith(args, ctx, flags, AppendVisited, list, &error)) return 1;
  *result = error.tag == ValueEmpty ? ErrorValue(ErrNA) : error;
  FreeNumberList(list);
  return 0;
}

int GatherArgumentNumbers(Value* arg, const EvalContext* ctx, NumberList* list, Value* result) {
  Value frame[FunctionFrameSize] = {*arg};
  *arg = Value{};
  int ok = GatherNumbers(frame, ctx, WalkPlain, list, result);
  FreeValue(&frame[0]);
  return ok;
}

void ReduceToScalar(Value* v, const EvalContext* ctx) {
  if (v->tag == ValueRef || v->tag == ValueRefList) ImplicitIntersect(v, ctx);
  if (v->tag == ValueArray) ArrayElementForCell(v, ctx);
}

void ReduceToFirstCell(Value* v, const EvalContext* ctx) {
  if (v->tag == ValueRef || v->tag == ValueRefList) {
    ReferenceTarget t;
    uint32_t error = LocateReference(v, ctx, &t);
    if (error == ReferenceFound && !SheetHasCells(GetSheet(t.book, t.firstSheet))) error = ErrRef;
    Range area = error == ReferenceFound ? t.areas[0] : Range{};
    FreeValue(v);
    *v = Value{};
    if (error != ReferenceFound)
      *v = ErrorValue(error);
    else
      ReadCellValue(t.book, t.firstSheet, area.firstRow, area.firstCol, v);
  }
  if (v->tag == ValueArray) ArrayElementForCell(v, ctx);
}
