// The verbs of tessarel-cli, their shared options and the printing of cells.
#pragma once
#include <cstdint>
#include <cstdio>

struct CliVerb {
  const char* name;
  const char* summary;
  int (*run)(int argc, char** argv);  // arguments after the verb
};

extern const CliVerb CliVerbs[];  // ends with a row whose name is null

// Options that every verb takes, read from the front of the argument list.
struct CliOptions {
  int recalc;
  int biff5;      // convert: save .xls and .xlt as Excel 95
  int32_t sheet;  // -1 for all sheets
  int positionalCount;
  char** positional;
};
// The options beyond --locale that a verb accepts.
enum CliOptionMask : uint32_t {
  CliLocaleOnly = 0,
  CliRecalcOption = 1 << 0,
  CliSheetOption = 1 << 1,
  CliBiff5Option = 1 << 2,
};
// Reads the options and applies the locale; returns 0 after printing a usage error.
int ReadCliOptions(int argc, char** argv, CliOptions* options, const char* verb, uint32_t accepted);

// One line per stored cell of a workbook (or of one sheet), tab-separated: sheet index, A1
// address, type letter, value, formula text, displayed text.
void PrintCells(FILE* out, uint32_t book, int32_t sheet);

int RunEntries(int argc, char** argv);
// The message of a typed formula that does not compile.
extern const char* const FormulaError;

int RunCells(int argc, char** argv);
int RunConvert(int argc, char** argv);
int RunEval(int argc, char** argv);
int RunFunctions(int argc, char** argv);
