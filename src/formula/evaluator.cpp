// The evaluator. Until it runs token strings, no name is a reference to a macro sheet.
#include "formula/evaluator.h"

#include "model/hooks.h"

int NameIsMacroCell(uint32_t, uint32_t, const FormulaTokens*, uint32_t*, uint32_t*, Range*) {
  return 0;
}
