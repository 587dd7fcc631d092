// Typing into cells: the edit line of the formula bar holds the text from the first key until
// Enter, Tab, an arrow in typed entry or a press elsewhere commits it through StoreEntry, or Esc
// drops it. Guards refuse entries into locked cells and parts of array formulas with a message.
#pragma once
#include <cstdint>

#include "model/range.h"

struct HitResult;

// The words the user is shown.
extern const char16_t FormulaErrorMessage[];
extern const char16_t ProtectedMessage[];
extern const char16_t ArrayPartMessage[];
extern const char16_t ArrayMergedMessage[];
extern const char16_t MergedPartMessage[];

// Routes the core's messages to the platform's message box and repaints of changed cells to the
// screen. Called once at start, after the platform is installed.
void InstallShellHooks();

// Shows the active cell's text in the edit line (caret at 0) and its address in the status bar.
void RefreshFormulaBar();
// Leaves editing without storing: mode 0, focus to the grid, the edit line shows the cell again.
void CancelEntry();
// F2: edits the active cell's text with the caret at the end.
void BeginInCellEdit();

// Guards: each shows its message and returns non-zero when it refuses.
int GuardProtected(const Range* range);
int GuardArrayPart(const Range* range);
int GuardActiveArray();
int GuardCommitArray();
int GuardMerged(const Range* range, int report);

// A character typed on the grid; returns 1 when it was taken.
int GridChar(char16_t ch, uint32_t modifiers);
// A character typed in the edit line; returns 0 when the edit control should take it itself.
int EditLineChar(char16_t ch, uint32_t modifiers);
// A key pressed in the edit line; returns 0 when the edit control should take it itself.
int EditLineKeyDown(int32_t key, uint32_t modifiers);
// A press on the edit line: editing becomes in-cell editing. Returns 0 when a guard refused.
int EditLinePressed();

// Ctrl with ";" or ":" on the grid: today's date or the time now as a new typed entry.
void GridDateTimeShortcut(int time);

// Stores the edit line's text in the active cell, or with either flag in the whole selection.
// Returns non-zero when the entry was accepted.
int CommitEntry(int arrayEntry, int fillSelection);

// A press on the grid while editing: points at a reference when a formula is being typed where
// one may go, else commits. Returns non-zero when the press should go on to select as usual.
int PressWhileEditing(const HitResult* hit);

// The Enter and Tab moves after an entry: down (up with Shift) or right (left with Shift), inside
// the selection when it holds more than one cell.
void EnterMove(int backwards);
void TabMove(int backwards);

// The Undo command: while editing it belongs to the edit line; otherwise the last change to the
// model is undone. Returns non-zero when something was undone.
int UndoCommand();
