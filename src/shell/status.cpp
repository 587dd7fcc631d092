// The status bar's panes. The aggregate walks only the stored cells of the selection, so that a
// whole-column selection costs what the column holds.
#include "shell/status.h"

#include <cmath>

#include "format/input.h"
#include "formula/recalc.h"
#include "formula/reference_text.h"
#include "model/cells.h"
#include "model/workbook.h"
#include "platform/platform.h"
#include "shell/view.h"

static const char16_t* const FunctionLabels[StatusFunctionCount] = {
    u"Aucun", u"Moyenne", u"Nombre", u"Nombre val", u"Max", u"Min", u"Somme",
};

// The status menu's rows carry these commands; they never reach the command table.
constexpr int32_t StatusMenuFirstCommand = 1;

static bool HoldsSomething(const Cell* c) {
  return c->formula.bytes || c->value.tag != ValueEmpty;
}

static void Write(StatusPane pane, const char16_t* text) {
  if (Options.statusBarVisible) gPlatform->setStatusText(pane, text);
}

void AggregateText(char16_t* out, int32_t capacity) {
  out[0] = 0;
  const int32_t function = Options.statusFunction;
  if (function <= StatusNone || function >= StatusFunctionCount || !App.workbookCount) return;
  const uint32_t book = App.currentBook;
  const uint32_t sheet = GetWorkbook(book)->currentSheet;
  Sheet* s = GetSheet(book, sheet);
  if (!SheetHasCells(s) || s->cells.count <= 1) return;
  CellRangeWalk walk;
  BeginRangeWalk(&walk, &s->cells, &s->selection);
  uint32_t count = 0;
  double result = 0;
  while (Cell* c = NextCellInRange(&walk)) {
    if (function == StatusCount) {
      count += HoldsSomething(c);
      continue;
    }
    if (c->formula.bytes && c->state < CellCalculated) CalculateCell(book, sheet, c);
    if (c->value.tag != ValueNumber) continue;
    const double x = c->value.number;
    count++;
    switch (function) {
      case StatusMean:
        result += (x - result) / count;  // a running mean cannot overflow where a sum would
        break;
      case StatusMax:
        if (count == 1 || x > result) result = x;
        break;
      case StatusMin:
        if (count == 1 || x < result) result = x;
        break;
      case StatusSum:
        result += x;
        break;
      default:
        break;
    }
  }
  if (count < 2) return;
  if (function == StatusCount || function == StatusCountNumbers) result = count;
  if (!std::isfinite(result)) return;
  char16_t number[64];
  ValueNumberText(result, 15, number);
  int32_t n = 0;
  for (const char16_t* p = FunctionLabels[function]; *p && n + 1 < capacity; p++) out[n++] = *p;
  if (n + 1 < capacity) out[n++] = u'=';
  for (const char16_t* p = number; *p && n + 1 < capacity; p++) out[n++] = *p;
  out[n] = 0;
}

void UpdateCellName() {
  char16_t name[16] = {0};
  if (App.workbookCount) {
    const Sheet* s = GetSheet(App.currentBook, GetWorkbook(App.currentBook)->currentSheet);
    if (SheetHasCells(s)) CellA1Text(s->activeRow, s->activeCol, false, false, name);
  }
  Write(PaneCellName, name);
}

void UpdateAggregate() {
  if (!Options.statusBarVisible) return;
  char16_t text[96];
  AggregateText(text, 96);
  Write(PaneAggregate, text);
}

void UpdateEndPane() {
  Write(PaneEnd, Options.endMode ? u"FIN" : u"");
}

void UpdateStatusPanes() {
  UpdateCellName();
  UpdateAggregate();
  UpdateEndPane();
}

void StatusBarPressed() {
  MenuEntry rows[StatusFunctionCount];
  for (int32_t i = 0; i < StatusFunctionCount; i++)
    rows[i] = MenuEntry{0, StatusMenuFirstCommand + i, FunctionLabels[i]};
  const int32_t chosen = gPlatform->popupMenu(rows, StatusFunctionCount,
                                              StatusMenuFirstCommand + Options.statusFunction);
  if (chosen < StatusMenuFirstCommand || chosen >= StatusMenuFirstCommand + StatusFunctionCount)
    return;
  Options.statusFunction = chosen - StatusMenuFirstCommand;
  UpdateAggregate();
}
