// Workbooks and sheets: the application record, creating and closing workbooks, inserting,
// deleting and finding sheets.
#include "model/workbook.h"

#include <bit>
#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "model/hooks.h"
#include "model/undo.h"

Application App;

static const char16_t* DefaultSheetPattern(int32_t kind) {
  switch (kind) {
    case SheetWorksheet:
      return u"Feuille";
    case SheetChart:
      return u"Graphique";
    default:
      return u"Macro";
  }
}

// "<prefix><number>" into a fixed buffer.
static void NumberedName(char16_t* out, size_t capacity, const char16_t* prefix, uint32_t number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%u", number);
  TextCopy(out, capacity, prefix);
  size_t n = TextLength(out);
  for (size_t i = 0; digits[i] && n + 1 < capacity; i++)
    out[n++] = static_cast<char16_t>(digits[i]);
  out[n] = 0;
}

int32_t FindSheetByName(uint32_t book, const char16_t* name) {
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->sheetCount; i++)
    if (EqualTextNoCase(wb->sheets[i]->name, name)) return static_cast<int32_t>(i);
  return -1;
}

static void FreeSheet(Sheet* s) {
  if (SheetHasCells(s) || s->kind == SheetModule) {
    FreeCellArray(&s->cells);
    FreeColumnArray(&s->columns);
    FreeRowArray(&s->rows);
    for (uint32_t i = 0; i < s->arrayFormulaCount; i++) FreeTokens(&s->arrayFormulas[i].formula);
    Release(s->arrayFormulas);
    Release(s->merges);
    for (uint32_t i = 0; i < s->commentCount; i++) Release(s->comments[i].text);
    Release(s->comments);
  }
  // Autofilter state, objects, validations, conditional groups, the page setup and a chart
  // sheet's chart are released here by their subsystems as they arrive.
  Release(s);
}

int InsertSheet(uint32_t book, uint32_t position, const char16_t* name, int32_t kind, int undoable,
                int updateView) {
  Workbook* wb = GetWorkbook(book);
  if (wb->sheetCount >= MaxSheets) {
    ShowMessage(u"No room to insert sheet", MessageOk | MessageError);
    return 0;
  }
  if (position > wb->sheetCount) position = wb->sheetCount;
  uint32_t previousCurrent = wb->currentSheet;
  // The pointer array doubles: its capacity is the power of two at or above the count.
  uint32_t capacity = wb->sheetCount ? std::bit_ceil(wb->sheetCount) : 0;
  if (!GrowArray(&wb->sheets, &capacity, wb->sheetCount + 1, capacity ? capacity : 1)) return 0;
  Sheet* s = static_cast<Sheet*>(Allocate(sizeof(Sheet)));
  if (!s) return 0;
  std::memmove(&wb->sheets[position + 1], &wb->sheets[position],
               (wb->sheetCount - position) * sizeof(Sheet*));
  wb->sheets[position] = s;
  wb->sheetCount++;
  wb->currentSheet = position;

  s->zoom = 100;
  s->kind = kind;
  s->flags = SheetStandardWidth | SheetStandardHeight | SheetGridLines | SheetHeaders;
  if (kind == SheetMacro) s->flags |= SheetShowFormulas;
  s->selectedObject = -1;

  if (name && name[0]) {
    TextCopy(s->name, SheetNameCapacity, name);
  } else {
    char16_t candidate[SheetNameCapacity];
    for (uint32_t n = 1;; n++) {
      NumberedName(candidate, SheetNameCapacity, DefaultSheetPattern(kind), n);
      if (FindSheetByName(book, candidate) < 0) break;
    }
    TextCopy(s->name, SheetNameCapacity, candidate);
  }

  RenumberForInsertedSheet(book, position, kind);
  (void)updateView;  // read once the desktop shell has a window to refresh
  if (undoable) {
    int32_t undoKind = kind == SheetWorksheet ? UndoInsertWorksheet
                       : kind == SheetChart   ? UndoInsertChartSheet
                       : kind == SheetMacro   ? UndoInsertMacroSheet
                                              : -1;
    // Without its record the insertion could not be taken back, so it does not happen.
    if (undoKind >= 0 && !PushUndo(book, position, undoKind)) {
      DeleteSheet(book, position);
      GetWorkbook(book)->currentSheet = previousCurrent;
      return 0;
    }
    GetWorkbook(book)->dirty = 1;
  }
  return 1;
}

int DeleteSheet(uint32_t book, uint32_t sheet) {
  Workbook* wb = GetWorkbook(book);
  if (sheet >= wb->sheetCount || wb->sheetCount < 2) return 0;
  Sheet* s = wb->sheets[sheet];
  int32_t kind = s->kind;
  FreeSheet(s);
  std::memmove(&wb->sheets[sheet], &wb->sheets[sheet + 1],
               (wb->sheetCount - sheet - 1) * sizeof(Sheet*));
  wb->sheetCount--;
  if (wb->currentSheet > sheet || wb->currentSheet >= wb->sheetCount) wb->currentSheet--;
  RenumberForDeletedSheet(book, sheet, kind);
  return 1;
}

static void FreeWorkbookContents(Workbook* wb, uint32_t book) {
  Release(wb->path);
  wb->path = nullptr;
  FreeStyles(book);
  for (uint32_t i = 0; i < wb->sheetCount; i++) FreeSheet(wb->sheets[i]);
  Release(wb->sheets);
  wb->sheets = nullptr;
  wb->sheetCount = 0;
  FreeNames(book);
  FreeLinks(book);
}

int CreateWorkbook(const char16_t* path, int updateView, uint32_t* book) {
  uint32_t capacity = App.workbookCount;
  if (!GrowArray(&App.workbooks, &capacity, App.workbookCount + 1, 1)) return 0;
  uint32_t index = App.workbookCount;
  uint32_t previousCurrent = App.currentBook;
  App.workbookCount++;
  App.currentBook = index;
  Workbook* wb = GetWorkbook(index);
  *wb = Workbook{};

  bool ok = true;
  if (path) {
    wb->path = TextDuplicate(path);
    ok = wb->path != nullptr;
  } else {
    char16_t name[32];
    NumberedName(name, 32, u"Classeur", ++App.newWorkbookCounter);
    wb->path = TextDuplicate(name);
    ok = wb->path != nullptr;
  }
  wb->biffVersion = 8;
  wb->codePage = AnsiCodePage;
  wb->fileCodePage = AnsiCodePage;
  wb->showHorizontalScrollBar = 1;
  wb->showVerticalScrollBar = 1;
  wb->showSheetTabs = 1;
  ok = ok && BuildDefaultStyles(index);
  ok = ok && InsertSheet(index, 0, nullptr, SheetWorksheet, NotUndoable, updateView);
  if (!ok) {
    FreeWorkbookContents(GetWorkbook(index), index);
    App.workbookCount--;
    App.currentBook = App.workbookCount ? previousCurrent : 0;
    return 0;
  }
  // The current sheet of a new workbook is its first.
  wb = GetWorkbook(index);
  wb->currentSheet = 0;
  if (book) *book = index;
  return 1;
}

void CloseWorkbook(uint32_t book) {
  if (book >= App.workbookCount) return;
  FreeWorkbookContents(GetWorkbook(book), book);
  ForgetWorkbookInUndo(book);
  ForgetWorkbookInClipboard(book);
  std::memmove(&App.workbooks[book], &App.workbooks[book + 1],
               (App.workbookCount - book - 1) * sizeof(Workbook));
  App.workbookCount--;
  if (App.workbookCount == 0) {
    Release(App.workbooks);
    App.workbooks = nullptr;
    App.currentBook = 0;
  } else if (App.currentBook > book || App.currentBook >= App.workbookCount) {
    App.currentBook--;
  }
}

void CloseAllWorkbooks() {
  while (App.workbookCount) CloseWorkbook(App.workbookCount - 1);
  Release(App.workbooks);  // a failed creation may leave an empty array behind
  App = Application{};
}
