// Calls from the model into subsystems that sit above it: calculation and dependency marking,
// form controls, row fitting, the undo stack and the clipboard. Each is one named function; the
// subsystem that owns the work provides its body, so the model's call sites never change.
#pragma once
#include <cstdint>

#include "model/cells.h"
#include "model/names.h"

// Recalculation (formula/recalc.cpp).
int BuildPrecedents(uint32_t book, uint32_t sheet, Cell* cell);
int CalculateCell(uint32_t book, uint32_t sheet, Cell* cell);
void MarkDependents(uint32_t book, uint32_t sheet, Cell* cell, int markSelf);
// After a defined name changed or went: every formula of the workbook that uses the name (by its
// 0-based index) gets its precedents again and, unless dirty already, is marked with its readers.
void RenewNameUsers(uint32_t book, uint32_t nameIndex);

// Form controls linked to a cell are brought up to date after it changes (objects/).
void UpdateLinkedControls(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col);

// Row fitting needs text measurement, which only the shell has; it installs this hook.
using FitRowHook = void (*)(uint32_t book, uint32_t sheet, uint32_t row);
void SetFitRowHook(FitRowHook hook);
void FitRowToContents(uint32_t book, uint32_t sheet, uint32_t row);

// Closing a workbook drops or renumbers what the undo stack and the clipboard hold of it.
void ForgetWorkbookInUndo(uint32_t book);
void ForgetWorkbookInClipboard(uint32_t book);

// Loading a closed workbook quietly to serve a link (files/open).
int LoadWorkbookForLinks(const char16_t* path, uint32_t* book);

// A name's formula evaluated to a reference on a macro sheet (formula/evaluator.cpp).
int NameIsMacroCell(uint32_t book, uint32_t sheet, const FormulaTokens* tokens, uint32_t* outBook,
                    uint32_t* outSheet, Range* out);

// A block of cells moved by (rowDelta, colDelta): what later subsystems anchor to cells follows.
// Validation and conditional-format areas move, and an area cut by the block's edge is split.
void ShiftValidationAndConditionalAreas(uint32_t book, uint32_t sheet, const Range* source,
                                        int32_t rowDelta, int32_t colDelta);
// Drawing objects anchored in the block move; those right of or below it are pushed or stretched.
void ShiftSheetObjects(uint32_t book, uint32_t sheet, const Range* source, int32_t rowDelta,
                       int32_t colDelta);
// The token strings of validation and conditional rules, chart series and object links.
void RewriteRuleAndChartTokens(uint32_t book, uint32_t sheet, const Range* source, int32_t rowDelta,
                               int32_t colDelta);
// The autofilter area and the print areas of the sheet.
void ShiftFilterAndPrintAreas(uint32_t book, uint32_t sheet, const Range* source, int32_t rowDelta,
                              int32_t colDelta);
