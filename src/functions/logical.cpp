// The logical functions: SI, ET, OU, NON, VRAI.
#include "functions/aggregate.h"
#include "functions/handlers.h"
#include "functions/table.h"

namespace {

// Reads `a` as a condition. An error, whether given or read from a cell, is passed on with its
// code; a text other than "VRAI" or "FAUX" is #VALUE!. Returns 0 with `result` set on failure.
int ConditionArg(Value* a, Value* result, const EvalContext* ctx) {
  ReduceToScalar(a, ctx);
  if (a->tag != ValueError) CoerceValue(a, ValueBoolean, ctx);
  if (a->tag == ValueBoolean) return 1;
  *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
  return 0;
}

struct LogicalFold {
  int seen;   // how many logical values were met
  int every;  // all of them true
  int some;   // at least one true
};

int FoldLogical(double number, void* state) {
  LogicalFold* fold = static_cast<LogicalFold*>(state);
  fold->seen++;
  if (number != 0)
    fold->some = 1;
  else
    fold->every = 0;
  return 1;
}

// ET and OU: numbers and booleans count wherever they stand; texts and empty cells inside
// references and arrays are passed over, a text given directly must read as a boolean, and the
// first error is the result even after a value that already settled the answer.
void FoldArguments(Value* args, Value* result, const EvalContext* ctx, bool wantEvery) {
  LogicalFold fold{0, 1, 0};
  for (int i = 0; i < FunctionFrameSize; i++) {
    Value* a = &args[i];
    switch (a->tag) {
      case ValueEmpty:
        continue;
      case ValueNumber:
        FoldLogical(a->number, &fold);
        continue;
      case ValueBoolean:
        FoldLogical(a->boolean, &fold);
        continue;
      case ValueText:
        CoerceValue(a, ValueBoolean, ctx);
        if (a->tag != ValueBoolean) break;
        FoldLogical(a->boolean, &fold);
        continue;
      case ValueError:
        *result = *a;
        return;
      case ValueRef:
      case ValueRefList:
        if (!WalkReferenceNumbers(a, ctx, WalkLogicalInRanges, FoldLogical, &fold, result)) return;
        continue;
      case ValueArray:
        if (!WalkArrayNumbers(a, WalkLogicalInRanges, FoldLogical, &fold, result)) return;
        continue;
      default:
        break;
    }
    *result = ErrorValue(ErrValue);
    return;
  }
  if (!fold.seen)
    *result = ErrorValue(ErrValue);
  else
    *result = BooleanValue(wantEvery ? fold.every != 0 : fold.some != 0);
}

}  // namespace

// Reached when SI was not compiled to jumps. A branch left empty gives what Excel gives for
// =SI(VRAI;) and =SI(FAUX;1): 0 for the true branch, FAUX for the false one. The chosen branch is
// moved out whatever it holds, references included, since SI may yield a reference.
void FnSi(Value* args, Value* result, const EvalContext* ctx) {
  if (!ConditionArg(&args[0], result, ctx)) return;
  bool condition = args[0].boolean != 0;
  Value* branch = &args[condition ? 1 : 2];
  if (branch->tag == ValueEmpty) {
    *result = condition ? NumberValue(0) : BooleanValue(false);
    return;
  }
  *result = *branch;
  *branch = Value{};
}

void FnEt(Value* args, Value* result, const EvalContext* ctx) {
  FoldArguments(args, result, ctx, true);
}

void FnOu(Value* args, Value* result, const EvalContext* ctx) {
  FoldArguments(args, result, ctx, false);
}

void FnNon(Value* args, Value* result, const EvalContext* ctx) {
  if (ConditionArg(&args[0], result, ctx)) *result = BooleanValue(args[0].boolean == 0);
}

void FnVrai(Value*, Value* result, const EvalContext*) {
  *result = BooleanValue(true);
}
