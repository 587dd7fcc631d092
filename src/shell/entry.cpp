// Cell entry: starting an entry from the grid, the keys of the edit line, pointing at references
// with the pen while a formula is typed, the commit through StoreEntry with its undo record, the
// Enter and Tab moves, and the guards that refuse an entry before it starts.
#include "shell/entry.h"

#include <algorithm>
#include <cmath>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "edit/entry.h"
#include "format/calendar.h"
#include "format/input.h"
#include "format/locale.h"
#include "formula/formula_text.h"
#include "formula/recalc.h"
#include "formula/reference_text.h"
#include "model/undo.h"
#include "model/workbook.h"
#include "shell/paint.h"
#include "shell/select.h"
#include "shell/status.h"
#include "shell/view.h"

const char16_t FormulaErrorMessage[] = u"Erreur rencontrée dans la formula";
const char16_t ProtectedMessage[] = u"Cell is protected.\nUnprotect sheet first.";
const char16_t ArrayPartMessage[] = u"Vous ne pouvez pas modifier partie d'une matrice";
const char16_t ArrayMergedMessage[] = u"Matrices ne sont pas valides dans les cellules fusionnées";
const char16_t MergedPartMessage[] = u"Vous ne pouvez pas modifier partie d'une cellule fusionnée";

static int32_t PlatformMessage(const char16_t* text, const char16_t* caption, uint32_t flags) {
  return gPlatform->messageBox(text, caption, flags);
}

void InstallShellHooks() {
  SetMessageHook(PlatformMessage);
  SetInvalidateRangeHook(InvalidateChangedCells);
}

// The active cell, or the top-left cell of the merged range that holds it.
static void ActiveCell(uint32_t* row, uint32_t* col) {
  const Sheet* s = CurrentSheet();
  *row = s->activeRow;
  *col = s->activeCol;
  if (const Range* m = MergeAt(*row, *col)) {
    *row = m->firstRow;
    *col = m->firstCol;
  }
}

static const Xf* XfAt(uint32_t row, uint32_t col) {
  const Workbook* w = GetWorkbook(CurrentBook());
  uint32_t index = XfForCell(CurrentBook(), CurrentSheetIndex(), row, col);
  return index < w->xfCount ? &w->xfs[index] : nullptr;
}

static uint16_t FormatIdAt(uint32_t row, uint32_t col) {
  const Workbook* w = GetWorkbook(CurrentBook());
  const Xf* xf = XfAt(row, col);
  return xf && xf->numberFormat < w->numberFormatCount ? w->numberFormats[xf->numberFormat].id : 0;
}

static const ArrayFormula* ArrayAt(uint32_t row, uint32_t col) {
  const Sheet* s = CurrentSheet();
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++)
    if (RangeContains(&s->arrayFormulas[i].range, row, col)) return &s->arrayFormulas[i];
  return nullptr;
}

// A number as the user would type it again: dates and times by the locale, percents with "%".
static uint32_t NumberEditText(double v, uint16_t formatId, char16_t* out) {
  int date1904 = GetWorkbook(CurrentBook())->date1904;
  if ((formatId >= 14 && formatId <= 17) || formatId == 22) {
    uint32_t n = DateText(v, date1904, out);
    if (formatId == 22) {
      out[n++] = u' ';
      n += TimeText(v, out + n);
    }
    return n;
  }
  if (formatId >= 18 && formatId <= 21) return TimeText(v, out);
  if (formatId == 9 || formatId == 10) {
    uint32_t n = ValueNumberText(v * 100, 15, out);
    out[n++] = u'%';
    out[n] = 0;
    return n;
  }
  return ValueNumberText(v, 15, out);
}

static void SetEdit(const char16_t* text) {
  gPlatform->editSetText(text, static_cast<int32_t>(TextLength(text)));
}

void RefreshFormulaBar() {
  if (App.workbookCount == 0) return;
  const Sheet* s = CurrentSheet();
  uint32_t row, col;
  ActiveCell(&row, &col);
  UpdateCellName();
  UpdateAggregate();
  if (!SheetHasCells(s)) return;
  const Xf* xf = XfAt(row, col);
  Cell* cell = CellAt(&s->cells, row, col);
  if (!cell || ((s->flags & SheetProtected) && xf && (xf->flags & XfFormulaHidden))) {
    SetEdit(u"");
    return;
  }
  char16_t* owned = nullptr;
  char16_t buffer[2 * NumberTextCapacity + 4];
  const char16_t* text = u"";
  if (cell->formula.bytes) {
    owned =
        FormulaText(CurrentBook(), &cell->formula, cell->row, cell->col, 1, cell->row, cell->col);
    text = owned ? owned : u"";
  } else if (cell->value.tag == ValueNumber) {
    NumberEditText(cell->value.number, FormatIdAt(row, col), buffer);
    text = buffer;
  } else if (cell->value.tag == ValueText) {
    text = cell->value.text;
  } else if (cell->value.tag == ValueBoolean) {
    text = BooleanText(cell->value.boolean != 0);
  } else if (cell->value.tag == ValueError) {
    text = ErrorText(cell->value.error);
  }
  std::u16string shown;
  if (cell->formula.bytes && ArrayAt(row, col) && Options.editMode != 2)
    shown = u"{" + std::u16string(text) + u"}";
  else if (!cell->formula.bytes && cell->value.tag == ValueText && xf &&
           (xf->flags & XfQuotePrefix))
    shown = u"'" + std::u16string(text);
  else
    shown = text;
  Release(owned);
  gPlatform->editSetText(shown.data(), static_cast<int32_t>(shown.size()));
  gPlatform->editSetSelection(0, 0);
}

static void CancelPointMode() {
  if (!PointMode.active) return;
  Range old = PointMode.range;
  PointMode = PointModeState{};
  InvalidateRange(CurrentBook(), CurrentSheetIndex(), &old, 1);
}

void CancelEntry() {
  CancelPointMode();
  Options.editMode = 0;
  gPlatform->setFocusGrid();
  RefreshFormulaBar();
}

int GuardProtected(const Range* range) {
  const Sheet* s = CurrentSheet();
  if (!(s->flags & SheetProtected)) return 0;
  for (uint32_t r = range->firstRow; r <= range->lastRow; r++)
    for (uint32_t c = range->firstCol; c <= range->lastCol; c++) {
      const Xf* xf = XfAt(r, c);
      if (xf && (xf->flags & XfLocked)) {
        ShowMessage(ProtectedMessage, MessageOk | MessageError);
        return 1;
      }
    }
  return 0;
}

int GuardArrayPart(const Range* range) {
  const Sheet* s = CurrentSheet();
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++) {
    Range overlap;
    const Range& a = s->arrayFormulas[i].range;
    if (IntersectRanges(&a, range, &overlap) && !EqualRanges(&overlap, &a)) {
      ShowMessage(ArrayPartMessage, MessageOk | MessageError);
      return 1;
    }
  }
  return 0;
}

int GuardActiveArray() {
  const Sheet* s = CurrentSheet();
  const ArrayFormula* a = ArrayAt(s->activeRow, s->activeCol);
  if (!a || EqualRanges(&a->range, &s->selection)) return 0;
  ShowMessage(ArrayPartMessage, MessageOk | MessageError);
  return 1;
}

int GuardCommitArray() {
  const Sheet* s = CurrentSheet();
  const ArrayFormula* a = ArrayAt(s->activeRow, s->activeCol);
  if (!a || (a->range.firstRow == a->range.lastRow && a->range.firstCol == a->range.lastCol))
    return 0;
  ShowMessage(ArrayPartMessage, MessageOk | MessageError);
  return 1;
}

int GuardMerged(const Range* range, int report) {
  const Sheet* s = CurrentSheet();
  for (uint32_t i = 0; i < s->mergeCount; i++) {
    Range overlap;
    if (!IntersectRanges(&s->merges[i], range, &overlap)) continue;
    if (report) ShowMessage(MergedPartMessage, MessageOk | MessageError);
    return 1;
  }
  return 0;
}

void BeginInCellEdit() {
  Sheet* s = CurrentSheet();
  if (GuardProtected(&s->selection) || GuardActiveArray()) return;
  Options.editMode = 2;
  RefreshFormulaBar();
  gPlatform->editFocus();
  gPlatform->editSetSelection(-1, -1);
}

int EditLinePressed() {
  Sheet* s = CurrentSheet();
  if (GuardProtected(&s->selection) || GuardActiveArray()) return 0;
  Options.endMode = 0;
  if (Options.editMode == 0) RefreshFormulaBar();
  Options.editMode = 2;
  CancelPointMode();
  return 1;
}

static char16_t* EditText() {
  int32_t length = gPlatform->editGetText(nullptr, 0);
  char16_t* text = static_cast<char16_t*>(Allocate((length + 1) * sizeof(char16_t)));
  if (text) gPlatform->editGetText(text, length + 1);
  return text;
}

int CommitEntry(int arrayEntry, int fillSelection) {
  char16_t* text = EditText();
  if (!text) return 0;
  Sheet* s = CurrentSheet();
  EntryTarget target{};
  target.book = CurrentBook();
  target.sheet = CurrentSheetIndex();
  target.anchorRow = s->activeRow;
  target.anchorCol = s->activeCol;
  target.arrayEntry = arrayEntry;
  target.fillSelection = fillSelection;
  if (arrayEntry || fillSelection) {
    target.range = s->selection;
  } else {
    uint32_t row, col;
    ActiveCell(&row, &col);
    target.range = Range{static_cast<uint16_t>(row), static_cast<uint16_t>(row),
                         static_cast<uint8_t>(col), static_cast<uint8_t>(col)};
  }
  Options.editMode = 1;
  Workbook* w = GetWorkbook(CurrentBook());
  int wasDirty = w->dirty;
  int ok = 0;
  EntryStatus status = EntryStored;
  if (PushRegionUndo(UndoCellContents, target.book, target.sheet, &target.range)) {
    ok = StoreEntry(text, &target, &status);
    // A refused entry changed nothing: its undo record goes, and with it nothing else.
    if (!ok) {
      PopUndo();
      GetWorkbook(target.book)->dirty = wasDirty;
    }
  }
  Release(text);
  if (ok) {
    Options.editMode = 0;
    gPlatform->setFocusGrid();
    InvalidateRange(target.book, target.sheet, &target.range, 1);
    InvalidateChangedCells(target.book, target.sheet, &target.range);
    RefreshFormulaBar();
    return 1;
  }
  if (status == EntryBadFormula) {
    ShowMessage(FormulaErrorMessage, MessageOk | MessageError);
    Options.editMode = 2;
    gPlatform->editFocus();
  }
  return 0;
}

// Steps the active cell through the selection: along columns for Enter, along rows for Tab,
// wrapping to the next column or row and from the end back to the start.
static void MoveInSelection(bool byRows, bool backwards) {
  Sheet* s = CurrentSheet();
  const Range sel = s->selection;
  uint32_t row = s->activeRow, col = s->activeCol;
  const uint32_t startRow = row, startCol = col;
  for (;;) {
    if (const Range* m = MergeAt(row, col)) {
      if (byRows)
        col = backwards ? m->firstCol : m->lastCol;
      else
        row = backwards ? m->firstRow : m->lastRow;
    }
    uint32_t& inner = byRows ? col : row;
    uint32_t& outer = byRows ? row : col;
    uint32_t innerFirst = byRows ? sel.firstCol : sel.firstRow;
    uint32_t innerLast = byRows ? sel.lastCol : sel.lastRow;
    uint32_t outerFirst = byRows ? sel.firstRow : sel.firstCol;
    uint32_t outerLast = byRows ? sel.lastRow : sel.lastCol;
    if (!backwards) {
      if (inner < innerLast) {
        inner++;
      } else {
        inner = innerFirst;
        outer = outer < outerLast ? outer + 1 : outerFirst;
      }
    } else {
      if (inner > innerFirst) {
        inner--;
      } else {
        inner = innerLast;
        outer = outer > outerFirst ? outer - 1 : outerLast;
      }
    }
    if (row == startRow && col == startCol) return;
    const Range* m = MergeAt(row, col);
    bool hidden = RowPixels(CurrentBook(), CurrentSheetIndex(), row) == 0 ||
                  ColumnPixels(CurrentBook(), CurrentSheetIndex(), col) == 0;
    if (!hidden && (!m || (m->firstRow == row && m->firstCol == col))) break;
  }
  uint32_t oldRow = s->activeRow, oldCol = s->activeCol;
  ScrollIntoView(row, col);
  s->activeRow = static_cast<uint16_t>(row);
  s->activeCol = static_cast<uint8_t>(col);
  Range old{static_cast<uint16_t>(oldRow), static_cast<uint16_t>(oldRow),
            static_cast<uint8_t>(oldCol), static_cast<uint8_t>(oldCol)};
  InvalidateRange(CurrentBook(), CurrentSheetIndex(), &old, 1);
  InvalidateRange(CurrentBook(), CurrentSheetIndex(), &sel, 1);
  RefreshFormulaBar();
}

static bool SingleCellSelected() {
  const Sheet* s = CurrentSheet();
  const Range& sel = s->selection;
  if (sel.firstRow == sel.lastRow && sel.firstCol == sel.lastCol) return true;
  const Range* m = MergeAt(sel.firstRow, sel.firstCol);
  return m && EqualRanges(m, &sel);
}

void EnterMove(int backwards) {
  if (!SingleCellSelected()) return MoveInSelection(false, backwards);
  ArrowMove(backwards ? KeyUp : KeyDown, 0);
}

void TabMove(int backwards) {
  if (!SingleCellSelected()) return MoveInSelection(true, backwards);
  ArrowMove(backwards ? KeyLeft : KeyRight, 0);
}

// Today's date or the time now, as text that reads back as the same serial.
static void ShortcutText(bool time, char16_t* out) {
  PlatformTime now{};
  gPlatform->localTime(&now);
  if (time) {
    double serial = (now.hour * 3600 + now.minute * 60 + now.second) / 86400.0;
    TimeText(serial, out);
  } else {
    int date1904 = GetWorkbook(CurrentBook())->date1904;
    double serial = DateToSerial(now.year, now.month, now.day) - (date1904 ? 1462 : 0);
    DateText(serial, date1904, out);
  }
}

constexpr int32_t KeySemicolon = 186;
constexpr int32_t KeyPeriod = 190;

static void InsertShortcut(bool time, bool fromGrid) {
  char16_t text[NumberTextCapacity];
  ShortcutText(time, text);
  if (fromGrid) {
    Options.editMode = 1;
    SetEdit(text);
    gPlatform->editFocus();
    gPlatform->editSetSelection(-1, -1);
  } else {
    gPlatform->editReplaceSelection(text, static_cast<int32_t>(TextLength(text)));
  }
}

void GridDateTimeShortcut(int time) {
  Sheet* s = CurrentSheet();
  if (GuardProtected(&s->selection) || GuardArrayPart(&s->selection)) return;
  InsertShortcut(time != 0, true);
}

int GridChar(char16_t ch, uint32_t modifiers) {
  if (App.workbookCount == 0 || !SheetHasCells(CurrentSheet()) || (modifiers & ModControl))
    return 0;
  Sheet* s = CurrentSheet();
  bool shift = modifiers & ModShift;
  if (ch == u'\t') {
    TabMove(shift);
    return 1;
  }
  if (ch == u'\r') {
    if (Options.endMode) {
      Options.endMode = 0;
      uint32_t last = s->activeCol;
      for (uint32_t i = 0; i < s->cells.count; i++)
        if (s->cells.cells[i]->row == s->activeRow)
          last = std::max<uint32_t>(last, s->cells.cells[i]->col);
      SelectCell(s->activeRow, last, 1);
    } else {
      EnterMove(shift);
    }
    return 1;
  }
  if (ch == 27) return 1;
  if (GuardProtected(&s->selection) || GuardArrayPart(&s->selection)) return 1;
  if (ch < 32 && ch != u'\b') return 1;
  if (Options.editMode == 0) {
    SetEdit(u"");
    Options.editMode = 1;
    gPlatform->editFocus();
    uint32_t row, col;
    ActiveCell(&row, &col);
    uint16_t id = FormatIdAt(row, col);
    if (ch >= u'0' && ch <= u'9' && (id == 9 || id == 10)) {
      SetEdit(u"%");
      gPlatform->editSetSelection(0, 0);
    }
    if (ch == u'\b') return 1;
  }
  gPlatform->editReplaceSelection(&ch, 1);
  return 1;
}

int EditLineChar(char16_t ch, uint32_t modifiers) {
  CancelPointMode();
  bool shift = modifiers & ModShift;
  if (ch == u'\t' || ch == u'\r') {
    if (GuardCommitArray() || !CommitEntry(0, 0)) return 1;
    if (ch == u'\t')
      TabMove(shift);
    else
      EnterMove(shift);
    return 1;
  }
  if (ch == 27) {
    CancelEntry();
    return 1;
  }
  return 0;
}

int EditLineKeyDown(int32_t key, uint32_t modifiers) {
  CancelPointMode();
  bool ctrl = modifiers & ModControl;
  if (key == KeyF2) {
    Options.editMode = 3 - Options.editMode;
    return 1;
  }
  if (ctrl && (key == KeySemicolon || key == KeyPeriod)) {
    InsertShortcut(key == KeyPeriod, false);
    return 1;
  }
  if (key == KeyReturn) {
    if (!ctrl) return 1;  // the character that follows does the work
    Sheet* s = CurrentSheet();
    if (GuardMerged(&s->selection, 0)) {
      ShowMessage(ArrayMergedMessage, MessageOk | MessageError);
      return 1;
    }
    CommitEntry(1, 0);
    return 1;
  }
  bool arrow = key == KeyUp || key == KeyDown || key == KeyLeft || key == KeyRight;
  if (arrow && Options.editMode == 1) {
    if (!GuardCommitArray() && CommitEntry(0, 0)) ArrowMove(key, modifiers & ModShift);
    return 1;
  }
  return 0;
}

// Whether the caret of the edit line sits where a reference may be typed in a formula.
static bool MayPoint(const char16_t* text, int32_t caret) {
  if (!text[0] || (text[0] != u'=' && text[0] != u'+' && text[0] != u'-') || caret <= 0)
    return false;
  char16_t before = text[caret - 1];
  static const char16_t operators[] = u"&*^:=><-%+/ (";
  for (const char16_t* p = operators; *p; p++)
    if (before == *p) return true;
  return before == ListSeparator[0];
}

static void WritePointedReference() {
  char16_t text[40];
  const Range& r = PointMode.range;
  uint32_t n = CellA1Text(r.firstRow, r.firstCol, false, false, text);
  if (r.firstRow != r.lastRow || r.firstCol != r.lastCol) {
    text[n++] = u':';
    n += CellA1Text(r.lastRow, r.lastCol, false, false, text + n);
  }
  gPlatform->editSetSelection(PointMode.selStart, PointMode.selEnd);
  gPlatform->editReplaceSelection(text, static_cast<int32_t>(n));
  PointMode.selEnd = PointMode.selStart + static_cast<int32_t>(n);
  InvalidateRange(CurrentBook(), CurrentSheetIndex(), &PointMode.range, 1);
}

int PressWhileEditing(const HitResult* hit) {
  Sheet* s = CurrentSheet();
  if (hit->code == HitCell && hit->row == s->activeRow && hit->col == s->activeCol) {
    CancelPointMode();
    return 1;  // selecting the cell again drops the typed text
  }
  if (!PointMode.active) {
    char16_t* text = EditText();
    int32_t start = 0, end = 0;
    gPlatform->editGetSelection(&start, &end);
    bool may = text && MayPoint(text, end);
    Release(text);
    if (may) {
      PointMode.active = 1;
      PointMode.selStart = PointMode.selEnd = end;
    }
  }
  if (PointMode.active) {
    Range old = PointMode.range;
    Range r{};
    switch (hit->code) {
      case HitCorner:
        r = Range{0, static_cast<uint16_t>(MaxRow), 0, static_cast<uint8_t>(MaxCol)};
        break;
      case HitColumnHeader:
        r = Range{0, static_cast<uint16_t>(MaxRow), static_cast<uint8_t>(hit->col),
                  static_cast<uint8_t>(hit->col)};
        break;
      case HitRowHeader:
        r = Range{static_cast<uint16_t>(hit->row), static_cast<uint16_t>(hit->row), 0,
                  static_cast<uint8_t>(MaxCol)};
        break;
      default:
        r = Range{static_cast<uint16_t>(hit->row), static_cast<uint16_t>(hit->row),
                  static_cast<uint8_t>(hit->col), static_cast<uint8_t>(hit->col)};
    }
    GrowOverMerges(&r);
    InvalidateRange(CurrentBook(), CurrentSheetIndex(), &old, 1);
    PointMode.range = r;
    PointMode.anchorRow = static_cast<uint16_t>(hit->row);
    PointMode.anchorCol = static_cast<uint8_t>(hit->col);
    WritePointedReference();
    return 0;
  }
  return !GuardCommitArray() && CommitEntry(0, 0);
}

int UndoCommand() {
  if (Options.editMode) return 0;  // the edit line undoes its own typing
  if (!PopUndo()) return 0;
  RemeasureView();
  RefreshFormulaBar();
  return 1;
}
