// The status bar's three panes: the active cell's name, the aggregate of the selection's values
// (sum, mean, count and the rest, chosen from the bar's own menu), and the End mode mark "FIN".
// Each pane is written only while the bar shows; toggling the bar on rewrites all three.
#pragma once
#include <cstdint>

enum StatusPane : int32_t { PaneCellName = 0, PaneAggregate = 1, PaneEnd = 2 };

// The aggregates the bar can show, by AppOptions::statusFunction.
enum StatusFunction : int32_t {
  StatusNone = 0,
  StatusMean = 1,
  StatusCount = 2,         // cells holding a value or a formula
  StatusCountNumbers = 3,  // cells holding a number
  StatusMax = 4,
  StatusMin = 5,
  StatusSum = 6,
  StatusFunctionCount = 7,
};

// The text pane 1 shows for the current selection, written into out (64 characters or more);
// empty when the function is none, the sheet holds at most one cell, fewer than two values
// count, or the result is not finite.
void AggregateText(char16_t* out, int32_t capacity);
void UpdateCellName();
void UpdateAggregate();
void UpdateEndPane();
// All three panes, when the bar comes on or the sheet on show changes.
void UpdateStatusPanes();
// A press on the status bar: the menu of aggregates at the pointer, the current one checked; a
// choice is kept and shown.
void StatusBarPressed();
