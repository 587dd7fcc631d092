// The function tables in force and the lookups by number and by name. The rows themselves are
// generated into table_rows.cpp from the data files of data/.
#include "functions/table.h"

#include "base/text.h"

extern const FunctionEntry MainFunctionRows[];
extern const FunctionEntry AddInFunctionRows[];
extern const uint16_t MainFunctionsByNumber[];
extern const uint32_t MainFunctionRowCount;
extern const uint32_t AddInFunctionRowCount;
extern const char16_t* const AddInEnglishNames[];

static FunctionTables builtInTables;
static const FunctionTables* activeTables;

const FunctionTables* ActiveFunctionTables() {
  if (!activeTables) {
    builtInTables = FunctionTables{MainFunctionRows, MainFunctionRowCount, AddInFunctionRows,
                                   AddInFunctionRowCount};
    activeTables = &builtInTables;
  }
  return activeTables;
}

void SetFunctionTables(const FunctionTables* tables) {
  activeTables = tables;
}

uint8_t FunctionFlagsByNumber(uint32_t number) {
  const FunctionEntry* entry = FindFunctionByNumber(number);
  return entry ? entry->flags : 0;
}

const FunctionEntry* FindFunctionByNumber(uint32_t number) {
  const FunctionTables* t = ActiveFunctionTables();
  // The built-in table has an index by number (a working row before a not-implemented one of the
  // same number); a table put in place by a test is scanned.
  const uint16_t* byNumber = t == &builtInTables ? MainFunctionsByNumber : nullptr;
  if (!byNumber) {
    for (uint32_t i = 0; i < t->mainCount; i++)
      if (FunctionNumber(&t->main[i]) == number) return &t->main[i];
    return nullptr;
  }
  // Lower bound on the number: the first row of that number is the preferred one.
  uint32_t low = 0, high = t->mainCount;
  while (low < high) {
    uint32_t mid = (low + high) / 2;
    if (FunctionNumber(&t->main[byNumber[mid]]) < number)
      low = mid + 1;
    else
      high = mid;
  }
  if (low < t->mainCount && FunctionNumber(&t->main[byNumber[low]]) == number)
    return &t->main[byNumber[low]];
  return nullptr;
}

const char16_t* FunctionNameByNumber(uint32_t number) {
  const FunctionEntry* e = FindFunctionByNumber(number);
  return e ? e->name : nullptr;
}

// Compares the `length` characters at `name` with a NUL-terminated row name, ignoring case.
static int CompareName(const char16_t* name, uint32_t length, const char16_t* rowName) {
  for (uint32_t i = 0;; i++) {
    char16_t a = i < length ? FoldCase(name[i]) : 0, b = FoldCase(rowName[i]);
    if (a != b) return (a > b) - (a < b);
    if (!a) return 0;
  }
}

static const FunctionEntry* SearchTable(const FunctionEntry* rows, uint32_t count,
                                        const char16_t* name, uint32_t length) {
  int64_t low = 0, high = static_cast<int64_t>(count) - 1;
  while (low <= high) {
    int64_t mid = (low + high) / 2;
    int order = CompareName(name, length, rows[mid].name);
    if (order == 0) return &rows[mid];
    if (order < 0)
      high = mid - 1;
    else
      low = mid + 1;
  }
  return nullptr;
}

const FunctionEntry* FindFunctionByName(const char16_t* name, uint32_t length, int* isAddIn) {
  const FunctionTables* t = ActiveFunctionTables();
  const FunctionEntry* e = SearchTable(t->main, t->mainCount, name, length);
  if (isAddIn) *isAddIn = 0;
  if (e) return e;
  e = SearchTable(t->addIn, t->addInCount, name, length);
  if (e && isAddIn) *isAddIn = 1;
  return e;
}

int32_t FindAddInByFileName(const char16_t* text) {
  const FunctionTables* t = ActiveFunctionTables();
  for (uint32_t i = 0; i < t->addInCount; i++)
    if (t->addIn[i].name && EqualTextNoCase(t->addIn[i].name, text)) return static_cast<int32_t>(i);
  if (t != &builtInTables) return -1;
  for (uint32_t i = 0; i < t->addInCount; i++)
    if (AddInEnglishNames[i] && EqualTextNoCase(AddInEnglishNames[i], text))
      return static_cast<int32_t>(i);
  return -1;
}

void NotImplementedFunction(Value*, Value* result, const EvalContext*) {
  *result = BooleanValue(false);
}
