// Bodies of the model's calls into the subsystems above it, for as long as those subsystems do
// not provide their own. Each one does the least that keeps the model consistent: no form control
// is linked, the undo stack and the clipboard hold no workbook, and no closed workbook can be
// loaded for a link.
#include "model/hooks.h"

static FitRowHook fitRowHook;

void UpdateLinkedControls(uint32_t, uint32_t, uint32_t, uint32_t) {}

void SetFitRowHook(FitRowHook hook) {
  fitRowHook = hook;
}

void FitRowToContents(uint32_t book, uint32_t sheet, uint32_t row) {
  if (fitRowHook) fitRowHook(book, sheet, row);
}

void ForgetWorkbookInUndo(uint32_t) {}

void ForgetWorkbookInClipboard(uint32_t) {}

int LoadWorkbookForLinks(const char16_t*, uint32_t*) {
  return 0;
}
