// The function tables in force and lookup by number. The rows themselves live in the table files
// of this folder.
#include "functions/table.h"

static const FunctionTables builtInTables = {nullptr, 0, nullptr, 0};
static const FunctionTables* activeTables = &builtInTables;

const FunctionTables* ActiveFunctionTables() {
  return activeTables;
}

void SetFunctionTables(const FunctionTables* tables) {
  activeTables = tables ? tables : &builtInTables;
}

const FunctionEntry* FindFunctionByNumber(uint32_t number) {
  const FunctionTables* t = activeTables;
  for (uint32_t i = 0; i < t->mainCount; i++)
    if (FunctionNumber(&t->main[i]) == number) return &t->main[i];
  return nullptr;
}

void NotImplementedFunction(Value*, Value* result, const EvalContext*) {
  *result = BooleanValue(false);
}
