// The handlers of the built-in functions, one declaration each, grouped by the file that defines
// them. The function table refers to them by these names.
#pragma once

#include "model/value.h"

// Rows whose family is not written yet: they give #N/A until their handler arrives.
void PendingFunction(Value* args, Value* result, const EvalContext* ctx);

// logical.cpp
void FnSomme(Value* args, Value* result, const EvalContext* ctx);
void FnSi(Value* args, Value* result, const EvalContext* ctx);
void FnEt(Value* args, Value* result, const EvalContext* ctx);
void FnOu(Value* args, Value* result, const EvalContext* ctx);
void FnNon(Value* args, Value* result, const EvalContext* ctx);
void FnVrai(Value* args, Value* result, const EvalContext* ctx);

// information.cpp
void FnEstErr(Value* args, Value* result, const EvalContext* ctx);
void FnEstErreur(Value* args, Value* result, const EvalContext* ctx);
void FnEstLogique(Value* args, Value* result, const EvalContext* ctx);
void FnEstNa(Value* args, Value* result, const EvalContext* ctx);
void FnEstNonTexte(Value* args, Value* result, const EvalContext* ctx);
void FnEstNum(Value* args, Value* result, const EvalContext* ctx);
void FnEstRef(Value* args, Value* result, const EvalContext* ctx);
void FnEstTexte(Value* args, Value* result, const EvalContext* ctx);
void FnEstVide(Value* args, Value* result, const EvalContext* ctx);
void FnEstPair(Value* args, Value* result, const EvalContext* ctx);
void FnEstImpair(Value* args, Value* result, const EvalContext* ctx);
void FnN(Value* args, Value* result, const EvalContext* ctx);
void FnNa(Value* args, Value* result, const EvalContext* ctx);
void FnNbVide(Value* args, Value* result, const EvalContext* ctx);
void FnType(Value* args, Value* result, const EvalContext* ctx);
void FnTypeErreur(Value* args, Value* result, const EvalContext* ctx);
