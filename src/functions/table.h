// The function table: every built-in function, worksheet and macro alike, is a row of one of two
// constant tables sorted by name (case ignored). The evaluator dispatches through it by BIFF
// number, the parser finds names in it, the formula printer turns numbers back into names.
#pragma once
#include <cstdint>

#include "model/value.h"

// A handler receives the 30-slot frame: the arguments in order, empty slots after them. It may
// change its arguments in place (the caller releases what remains) and writes `result`.
using FunctionHandler = void (*)(Value* args, Value* result, const EvalContext* ctx);

constexpr int FunctionFrameSize = 30;

// Properties of a function that the parser, recalculation and reference rewriting act on.
enum FunctionFlag : uint8_t {
  // The result may change with no change to the arguments: a formula that calls the function is
  // marked volatile when compiled, and its cell is recalculated at every recalculation.
  FunctionVolatile = 1,
  // The cell is recalculated at every recalculation, as the function reads which rows are hidden,
  // but the compiled formula carries no volatile mark.
  FunctionAlwaysRecalc = 2,
  // The result may be a reference: the call keeps the reference class where one is welcome.
  FunctionGivesReference = 4,
  // Where the reference class is asked, the result is an array.
  FunctionArrayForReference = 8,
  // The result depends on where the calling cell stands.
  FunctionPositional = 16,
};

struct FunctionEntry {
  const char16_t* name;  // upper case
  const char* args;      // one class letter per parameter; upper case required
  FunctionHandler handler;
  uint32_t info;  // main table: number in bits 0-15, category 16-23, format hint 24-31
  const char16_t* help;
  uint8_t flags;  // FunctionFlag bits
};

inline uint32_t FunctionNumber(const FunctionEntry* e) {
  return e->info & 0xFFFF;
}
inline uint32_t FunctionCategory(const FunctionEntry* e) {
  return (e->info >> 16) & 0xFF;
}
inline int8_t FunctionFormatHint(const FunctionEntry* e) {
  return static_cast<int8_t>(e->info >> 24);
}

constexpr uint32_t CategoryMacroControl = 11;
constexpr uint32_t CategoryMacroCommand = 12;

struct FunctionTables {
  const FunctionEntry* main;
  uint32_t mainCount;
  const FunctionEntry* addIn;  // info holds only the category
  uint32_t addInCount;
};

// The tables in force: the built-in ones, unless a test has put its own in place.
const FunctionTables* ActiveFunctionTables();
// Replaces the tables in force (tests); null restores the built-in ones.
void SetFunctionTables(const FunctionTables* tables);

// The FunctionFlag bits of the main-table row with that number; 0 for an unknown number.
uint8_t FunctionFlagsByNumber(uint32_t number);
// The main-table row with that BIFF number, or null. Where an old name shares its number with
// the new one, the row that works is found.
const FunctionEntry* FindFunctionByNumber(uint32_t number);
// The name of the main-table row with that number, or null.
const char16_t* FunctionNameByNumber(uint32_t number);
// Binary search of the main table, then of the add-in table, ignoring case, for the `length`
// characters at `name`; `isAddIn` (when not null) tells which table answered.
const FunctionEntry* FindFunctionByName(const char16_t* name, uint32_t length, int* isAddIn);
// The index in the add-in table of the function a workbook calls by `text`: the row's own name,
// or, in the built-in table, its English name, which workbooks written by English programs hold.
// -1 when neither matches.
int32_t FindAddInByFileName(const char16_t* text);

// The handler of the rows that have no implementation: they parse, compile, save and give FALSE.
void NotImplementedFunction(Value* args, Value* result, const EvalContext* ctx);
