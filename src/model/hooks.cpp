// Bodies of the model's calls into the subsystems above it, for as long as those subsystems do
// not provide their own. Each one does the least that keeps the model consistent: no form control
// is linked, the clipboard holds no workbook, no closed workbook can be loaded for a link, and
// moving a block leaves validations, objects, charts, filters and print areas as they are.
#include "model/hooks.h"

static FitRowHook fitRowHook;

void UpdateLinkedControls(uint32_t, uint32_t, uint32_t, uint32_t) {}

void SetFitRowHook(FitRowHook hook) {
  fitRowHook = hook;
}

void FitRowToContents(uint32_t book, uint32_t sheet, uint32_t row) {
  if (fitRowHook) fitRowHook(book, sheet, row);
}

void ForgetWorkbookInClipboard(uint32_t) {}

int LoadWorkbookForLinks(const char16_t*, uint32_t*) {
  return 0;
}

// Nothing on a sheet holds validation, conditional, object, chart, filter or print records yet.
void ShiftValidationAndConditionalAreas(uint32_t, uint32_t, const Range*, int32_t, int32_t) {}

void ShiftSheetObjects(uint32_t, uint32_t, const Range*, int32_t, int32_t) {}

void RewriteRuleAndChartTokens(uint32_t, uint32_t, const Range*, int32_t, int32_t) {}

void ShiftFilterAndPrintAreas(uint32_t, uint32_t, const Range*, int32_t, int32_t) {}
