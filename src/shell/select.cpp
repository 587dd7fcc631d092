// Navigation and selection on the current sheet. The rules work on the sheet's view fields and
// the pixel metrics of the view; the only platform calls are invalidation and focus.
#include "shell/select.h"

#include <algorithm>

#include "base/message.h"
#include "model/cells.h"
#include "model/undo.h"
#include "model/workbook.h"
#include "shell/entry.h"
#include "shell/paint.h"
#include "shell/paint_internal.h"
#include "shell/resources.h"
#include "shell/status.h"
#include "shell/view.h"

const Range* MergeAt(uint32_t row, uint32_t col) {
  return FindMerge(CurrentSheet(), row, col);
}

void GrowOverMerges(Range* range) {
  const Sheet* s = CurrentSheet();
  for (bool changed = true; changed;) {
    changed = false;
    for (uint32_t i = 0; i < s->mergeCount; i++) {
      Range overlap;
      const Range& m = s->merges[i];
      if (!IntersectRanges(range, &m, &overlap) || EqualRanges(&overlap, &m)) continue;
      range->firstRow = std::min(range->firstRow, m.firstRow);
      range->lastRow = std::max(range->lastRow, m.lastRow);
      range->firstCol = std::min(range->firstCol, m.firstCol);
      range->lastCol = std::max(range->lastCol, m.lastCol);
      changed = true;
    }
  }
}

static bool RowVisible(uint32_t row) {
  return RowPixels(CurrentBook(), CurrentSheetIndex(), row) > 0;
}
static bool ColumnVisible(uint32_t col) {
  return ColumnPixels(CurrentBook(), CurrentSheetIndex(), col) > 0;
}

// Walks rows (or columns) of the frozen pane and then the scrolled one from `start` to find the
// one covering `position`; returns 0 past the last one.
static int FindInPanes(bool rows, int32_t position, int32_t start, int32_t split, uint32_t* out) {
  const Sheet* s = CurrentSheet();
  uint32_t frozenFirst = rows ? s->paneTopRow : s->paneLeftCol;
  uint32_t frozenEnd = rows ? s->frozenRow : s->frozenCol;
  uint32_t first = rows ? s->topRow : s->leftCol;
  uint32_t limit = rows ? MaxRow : MaxCol;
  auto size = [&](uint32_t i) {
    return rows ? RowPixels(CurrentBook(), CurrentSheetIndex(), i)
                : ColumnPixels(CurrentBook(), CurrentSheetIndex(), i);
  };
  int32_t edge = start;
  if (frozenEnd && position < split) {
    for (uint32_t i = frozenFirst; i < frozenEnd; i++) {
      edge += size(i);
      if (position < edge) return *out = i, 1;
    }
    return 0;
  }
  edge = split;
  for (uint32_t i = first; i <= limit; i++) {
    edge += size(i);
    if (position < edge) return *out = i, 1;
  }
  return 0;
}

// The tab under x, walking the tabs as the painter lays them out.
static int TabAt(int32_t x, uint32_t* sheet) {
  const Workbook* w = GetWorkbook(CurrentBook());
  int32_t slant = (View.stripBottom - View.cellsBottom) / 2;
  int32_t left = View.tabsLeft;
  for (uint32_t i = FirstShownTab; i-- > 0;)
    if (!w->sheets[i]->hidden) {
      left += slant;
      break;
    }
  for (uint32_t i = FirstShownTab; i < w->sheetCount; i++) {
    const Sheet* s = w->sheets[i];
    if (s->hidden) continue;
    int32_t n = 0;
    while (n < static_cast<int32_t>(SheetNameCapacity) && s->name[n]) n++;
    FontMetrics m{};
    gPlatform->fontMetrics(Resources.headerFont, &m);
    int32_t tw = n * m.averageWidth;
    if (left + 2 * slant + tw > View.tabsRight) break;
    if (x >= left && x < left + slant + tw) return *sheet = i, 1;
    left += slant + tw;
  }
  return 0;
}

HitCode HitTest(int32_t x, int32_t y, HitResult* out) {
  *out = HitResult{};
  if (App.workbookCount == 0 || y < View.gridTop || x < View.gridLeft)
    return out->code = HitNothing;
  if (y >= View.cellsBottom) {
    if (x >= View.cellsRight) return out->code = HitBottomRight;
    if (x >= View.tabsLeft && x < View.tabsRight && TabAt(x, &out->sheet))
      return out->code = HitTab;
    return out->code = HitStrip;
  }
  if (x >= View.cellsRight) return out->code = HitRightOfCells;
  PaneGeometry panes;
  MeasurePanes(CurrentBook(), CurrentSheetIndex(), &panes);
  bool inHeaderRow = y < View.cellsTop, inHeaderCol = x < View.cellsLeft;
  if (inHeaderRow && inHeaderCol) return out->code = HitCorner;
  if (!inHeaderCol && !FindInPanes(false, x, View.cellsLeft, panes.splitX, &out->col))
    return out->code = HitNothing;
  if (!inHeaderRow && !FindInPanes(true, y, View.cellsTop, panes.splitY, &out->row))
    return out->code = HitNothing;
  if (inHeaderRow) return out->code = HitColumnHeader;
  if (inHeaderCol) return out->code = HitRowHeader;
  return out->code = HitCell;
}

// The header strips of a row and a column, for repaint when the active cell leaves or enters.
static void InvalidateHeaders(uint32_t row, uint32_t col) {
  PlatformRect r;
  if (!CellScreenRect(CurrentBook(), CurrentSheetIndex(), row, col, &r)) return;
  PlatformRect rowHeader{View.gridLeft, r.top, View.cellsLeft, r.bottom};
  PlatformRect colHeader{r.left, View.gridTop, r.right, View.cellsTop};
  gPlatform->invalidate(&rowHeader);
  gPlatform->invalidate(&colHeader);
}

// The scroll position that shows `index` wholly in a pane of `room` pixels: the index itself
// when it is above the first shown or taller than the pane, else the top-most that still shows
// it whole.
static uint32_t FirstToShow(bool rows, uint32_t index, uint32_t first, int32_t room) {
  auto size = [&](uint32_t i) {
    return rows ? RowPixels(CurrentBook(), CurrentSheetIndex(), i)
                : ColumnPixels(CurrentBook(), CurrentSheetIndex(), i);
  };
  if (index < first || size(index) >= room) return index;
  int32_t used = size(index);
  uint32_t top = index;
  while (top > first) {
    int32_t h = size(top - 1);
    if (used + h > room) break;
    used += h;
    top--;
  }
  return std::max(top, first);
}

void ScrollIntoView(uint32_t row, uint32_t col) {
  Sheet* s = CurrentSheet();
  PaneGeometry panes;
  MeasurePanes(CurrentBook(), CurrentSheetIndex(), &panes);
  bool moved = false;
  bool frozenRow = s->frozenRow && row >= s->paneTopRow && row < s->frozenRow;
  if (!frozenRow) {
    if (row < s->frozenRow) row = s->frozenRow;
    PlatformRect r;
    bool inView = row >= s->topRow &&
                  CellScreenRect(CurrentBook(), CurrentSheetIndex(), row, s->leftCol, &r) &&
                  r.bottom <= View.cellsBottom;
    if (!inView) {
      uint32_t first = row < s->topRow
                           ? row
                           : FirstToShow(true, row, s->topRow, View.cellsBottom - panes.splitY);
      if (first != s->topRow) {
        s->topRow = static_cast<uint16_t>(std::max<uint32_t>(first, s->frozenRow));
        moved = true;
      }
    }
  }
  bool frozenCol = s->frozenCol && col >= s->paneLeftCol && col < s->frozenCol;
  if (!frozenCol) {
    if (col < s->frozenCol) col = s->frozenCol;
    PlatformRect r;
    bool inView = col >= s->leftCol &&
                  CellScreenRect(CurrentBook(), CurrentSheetIndex(), s->topRow, col, &r) &&
                  r.right <= View.cellsRight;
    if (!inView) {
      uint32_t first = col < s->leftCol
                           ? col
                           : FirstToShow(false, col, s->leftCol, View.cellsRight - panes.splitX);
      if (first != s->leftCol) {
        s->leftCol = static_cast<uint8_t>(std::max<uint32_t>(first, s->frozenCol));
        moved = true;
      }
    }
  }
  if (moved) RemeasureView();
}

void SelectRange(const Range* range, int moveActive, uint32_t row, uint32_t col, int scroll) {
  Sheet* s = CurrentSheet();
  Range old = s->selection;
  Range next = *range;
  GrowOverMerges(&next);
  s->selection = next;
  InvalidateRange(CurrentBook(), CurrentSheetIndex(), &old, 1);
  InvalidateRange(CurrentBook(), CurrentSheetIndex(), &next, 1);
  UpdateAggregate();
  if (!moveActive) return;
  Options.endMode = 0;
  uint32_t oldRow = s->activeRow, oldCol = s->activeCol;
  if (scroll) ScrollIntoView(row, col);
  s->activeRow = static_cast<uint16_t>(row);
  s->activeCol = static_cast<uint8_t>(col);
  if (oldRow != row || oldCol != col) {
    InvalidateHeaders(oldRow, oldCol);
    InvalidateHeaders(row, col);
  }
  CancelEntry();
}

void SelectCell(uint32_t row, uint32_t col, int scroll) {
  const Range* m = MergeAt(row, col);
  if (m) {
    row = m->firstRow;
    col = m->firstCol;
  }
  Range one{static_cast<uint16_t>(row), static_cast<uint16_t>(row), static_cast<uint8_t>(col),
            static_cast<uint8_t>(col)};
  SelectRange(&one, 1, row, col, scroll);
}

void SetActiveSheet(uint32_t sheet) {
  Workbook* w = GetWorkbook(CurrentBook());
  Options.endMode = 0;
  if (sheet >= w->sheetCount || sheet == w->currentSheet) return;
  CancelEntry();
  w->currentSheet = sheet;
  RemeasureView();
  RefreshFormulaBar();
}

int StepCell(int32_t dRow, int32_t dCol, uint32_t* row, uint32_t* col) {
  int32_t r = static_cast<int32_t>(*row), c = static_cast<int32_t>(*col);
  const Range* m = MergeAt(*row, *col);
  if (m) {
    if (dRow > 0) r = m->lastRow;
    if (dRow < 0) r = m->firstRow;
    if (dCol > 0) c = m->lastCol;
    if (dCol < 0) c = m->firstCol;
  }
  do {
    r += dRow;
    c += dCol;
  } while (r >= 0 && c >= 0 && r <= static_cast<int32_t>(MaxRow) &&
           c <= static_cast<int32_t>(MaxCol) && (dRow ? !RowVisible(r) : !ColumnVisible(c)));
  if (r < 0 || c < 0 || r > static_cast<int32_t>(MaxRow) || c > static_cast<int32_t>(MaxCol))
    return 0;
  *row = static_cast<uint32_t>(r);
  *col = static_cast<uint32_t>(c);
  return 1;
}

static bool EmptyAt(uint32_t row, uint32_t col) {
  return CellIsEmpty(CellAt(&CurrentSheet()->cells, row, col));
}

// The edge of the data from `start` in a direction: the first non-empty cell when the start or
// its neighbour is empty, else the last non-empty one before a gap.
static uint32_t EdgeJump(bool rows, uint32_t fixed, uint32_t start, int32_t d) {
  int32_t limit = rows ? MaxRow : MaxCol;
  auto visible = [&](int32_t i) { return rows ? RowVisible(i) : ColumnVisible(i); };
  auto empty = [&](int32_t i) { return rows ? EmptyAt(i, fixed) : EmptyAt(fixed, i); };
  auto nextVisible = [&](int32_t i) {
    do i += d;
    while (i >= 0 && i <= limit && !visible(i));
    return i;
  };
  int32_t next = nextVisible(start);
  if (next < 0 || next > limit) return start;
  bool seekFilled = empty(start) || empty(next);
  int32_t at = next;
  for (;;) {
    if (seekFilled && !empty(at)) return at;
    int32_t after = nextVisible(at);
    if (after < 0 || after > limit) return at;
    if (!seekFilled && empty(after)) return at;
    at = after;
  }
}

// Shift with an arrow: the far edge from the active cell grows or the near one shrinks.
static void SelectionStep(int32_t dRow, int32_t dCol) {
  Sheet* s = CurrentSheet();
  Range r = s->selection;
  if (dRow) {
    bool shrink = dRow > 0 ? s->activeRow > r.firstRow : s->activeRow < r.lastRow;
    uint32_t edge =
        shrink ? (dRow > 0 ? r.firstRow : r.lastRow) : (dRow > 0 ? r.lastRow : r.firstRow);
    uint32_t col = s->activeCol;
    if (!StepCell(dRow, 0, &edge, &col)) return;
    if (shrink && (dRow > 0 ? edge > s->activeRow : edge < s->activeRow)) edge = s->activeRow;
    (dRow > 0) == shrink ? r.firstRow = static_cast<uint16_t>(edge)
                         : r.lastRow = static_cast<uint16_t>(edge);
    ScrollIntoView(edge, s->activeCol);
  } else {
    bool shrink = dCol > 0 ? s->activeCol > r.firstCol : s->activeCol < r.lastCol;
    uint32_t edge =
        shrink ? (dCol > 0 ? r.firstCol : r.lastCol) : (dCol > 0 ? r.lastCol : r.firstCol);
    uint32_t row = s->activeRow;
    if (!StepCell(0, dCol, &row, &edge)) return;
    if (shrink && (dCol > 0 ? edge > s->activeCol : edge < s->activeCol)) edge = s->activeCol;
    (dCol > 0) == shrink ? r.firstCol = static_cast<uint8_t>(edge)
                         : r.lastCol = static_cast<uint8_t>(edge);
    ScrollIntoView(s->activeRow, edge);
  }
  SelectRange(&r, 0, 0, 0, 0);
}

// Extends the selection from the active cell to (row, col).
static void ExtendTo(uint32_t row, uint32_t col) {
  const Sheet* s = CurrentSheet();
  Range r{static_cast<uint16_t>(std::min<uint32_t>(row, s->activeRow)),
          static_cast<uint16_t>(std::max<uint32_t>(row, s->activeRow)),
          static_cast<uint8_t>(std::min<uint32_t>(col, s->activeCol)),
          static_cast<uint8_t>(std::max<uint32_t>(col, s->activeCol))};
  ScrollIntoView(row, col);
  SelectRange(&r, 0, 0, 0, 0);
}

void ArrowMove(int32_t key, uint32_t modifiers) {
  Sheet* s = CurrentSheet();
  int32_t dRow = key == KeyDown ? 1 : key == KeyUp ? -1 : 0;
  int32_t dCol = key == KeyRight ? 1 : key == KeyLeft ? -1 : 0;
  bool shift = modifiers & ModShift;
  if ((modifiers & ModControl) || Options.endMode) {
    Options.endMode = 0;
    const Range& sel = s->selection;
    if (dRow) {
      uint32_t from = shift ? (dRow < 0 ? sel.firstRow : sel.lastRow) : s->activeRow;
      uint32_t to = EdgeJump(true, s->activeCol, from, dRow);
      if (shift) {
        Range r = sel;
        (dRow < 0 ? r.firstRow : r.lastRow) = static_cast<uint16_t>(to);
        ScrollIntoView(to, s->activeCol);
        SelectRange(&r, 0, 0, 0, 0);
      } else {
        SelectCell(to, s->activeCol, 1);
      }
    } else {
      uint32_t from = shift ? (dCol < 0 ? sel.firstCol : sel.lastCol) : s->activeCol;
      uint32_t to = EdgeJump(false, s->activeRow, from, dCol);
      if (shift) {
        Range r = sel;
        (dCol < 0 ? r.firstCol : r.lastCol) = static_cast<uint8_t>(to);
        ScrollIntoView(s->activeRow, to);
        SelectRange(&r, 0, 0, 0, 0);
      } else {
        SelectCell(s->activeRow, to, 1);
      }
    }
    return;
  }
  if (shift) {
    SelectionStep(dRow, dCol);
    return;
  }
  uint32_t row = s->activeRow, col = s->activeCol;
  if (StepCell(dRow, dCol, &row, &col)) SelectCell(row, col, 1);
}

static void LastUsedCell(uint32_t* row, uint32_t* col) {
  const Sheet* s = CurrentSheet();
  *row = 0;
  *col = 0;
  for (uint32_t i = 0; i < s->cells.count; i++) {
    const Cell* c = s->cells.cells[i];
    if (CellIsEmpty(c)) continue;
    *row = std::max<uint32_t>(*row, c->row);
    *col = std::max<uint32_t>(*col, c->col);
  }
}

static void PageDown() {
  Sheet* s = CurrentSheet();
  if (s->topRow >= MaxRow) return;
  s->topRow = static_cast<uint16_t>(s->bottomRow == s->topRow ? s->bottomRow + 1u : s->bottomRow);
  RemeasureView();
}

static void PageUp() {
  Sheet* s = CurrentSheet();
  if (s->topRow <= s->frozenRow) return;
  PaneGeometry panes;
  MeasurePanes(CurrentBook(), CurrentSheetIndex(), &panes);
  int32_t used = panes.splitY;
  uint32_t top = s->topRow;
  while (top > s->frozenRow) {
    int32_t h = RowPixels(CurrentBook(), CurrentSheetIndex(), top - 1);
    if (used + h > View.cellsBottom) break;
    used += h;
    top--;
  }
  if (top == s->topRow) top--;
  s->topRow = static_cast<uint16_t>(top);
  RemeasureView();
}

void ScrollView(int vertical, int32_t code, int32_t position) {
  Sheet* s = CurrentSheet();
  if (vertical) {
    if (code == 0 && s->topRow > s->frozenRow) s->topRow--;
    if (code == 1 && s->topRow < MaxRow) s->topRow++;
    if (code == 2) return PageUp();
    if (code == 3) return PageDown();
    if (code >= 4)
      s->topRow = static_cast<uint16_t>(std::clamp<int32_t>(position, s->frozenRow, MaxRow));
  } else {
    if (code == 0 && s->leftCol > s->frozenCol) s->leftCol--;
    if (code == 1 && s->leftCol < MaxCol) s->leftCol++;
    if (code == 2 && s->leftCol > s->frozenCol)
      s->leftCol = static_cast<uint8_t>(
          std::max<int32_t>(s->frozenCol, s->leftCol - (s->rightCol - s->leftCol)));
    if (code == 3 && s->leftCol < MaxCol)
      s->leftCol = static_cast<uint8_t>(s->rightCol == s->leftCol ? s->rightCol + 1u : s->rightCol);
    if (code >= 4)
      s->leftCol = static_cast<uint8_t>(std::clamp<int32_t>(position, s->frozenCol, MaxCol));
  }
  RemeasureView();
}

static void NextVisibleSheet(int32_t d) {
  const Workbook* w = GetWorkbook(CurrentBook());
  for (int32_t i = static_cast<int32_t>(w->currentSheet) + d;
       i >= 0 && i < static_cast<int32_t>(w->sheetCount); i += d)
    if (!w->sheets[i]->hidden) return SetActiveSheet(i);
}

static void ClearSelectionContents() {
  Sheet* s = CurrentSheet();
  if (GuardProtected(&s->selection) || GuardArrayPart(&s->selection)) return;
  if (!PushRegionUndo(UndoCellContents, CurrentBook(), CurrentSheetIndex(), &s->selection)) return;
  ClearCellsInRange(CurrentBook(), CurrentSheetIndex(), &s->selection);
  GetWorkbook(CurrentBook())->dirty = 1;
  InvalidateRange(CurrentBook(), CurrentSheetIndex(), &s->selection, 1);
  RefreshFormulaBar();
}

int GridKeyDown(int32_t key, uint32_t modifiers) {
  if (App.workbookCount == 0 || !SheetHasCells(CurrentSheet())) return 0;
  Sheet* s = CurrentSheet();
  bool ctrl = modifiers & ModControl, shift = modifiers & ModShift;
  switch (key) {
    case KeyUp:
    case KeyDown:
    case KeyLeft:
    case KeyRight:
      ArrowMove(key, modifiers);
      return 1;
    case KeyPageUp:
    case KeyPageDown:
      Options.endMode = 0;
      if (ctrl) {
        NextVisibleSheet(key == KeyPageDown ? 1 : -1);
      } else if (key == KeyPageDown && s->topRow < MaxRow) {
        PageDown();
        SelectCell(s->topRow, s->activeCol, 0);
      } else if (key == KeyPageUp && s->topRow > s->frozenRow) {
        uint32_t row = s->topRow - 1u;
        PageUp();
        SelectCell(row, s->activeCol, 0);
      }
      return 1;
    case KeyEnd:
      if (!ctrl) {
        Options.endMode = !Options.endMode;
        UpdateEndPane();
        return 1;
      }
      [[fallthrough]];
    case KeyHome: {
      uint32_t row, col;
      if (key == KeyEnd || Options.endMode) {
        LastUsedCell(&row, &col);
      } else {
        row = ctrl ? s->frozenRow : s->activeRow;
        col = s->frozenCol;
      }
      Options.endMode = 0;
      if (shift)
        ExtendTo(row, col);
      else
        SelectCell(row, col, 1);
      return 1;
    }
    case KeyF2:
      Options.endMode = 0;
      BeginInCellEdit();
      return 1;
    case KeyDelete:
      Options.endMode = 0;
      ClearSelectionContents();
      return 1;
    case 186:
    case 190:
      Options.endMode = 0;
      if (!ctrl) return 0;
      GridDateTimeShortcut(key == 190);
      return 1;
    default:
      Options.endMode = 0;
      return 0;
  }
}

int GridButtonDown(int32_t x, int32_t y, uint32_t modifiers) {
  if (App.workbookCount == 0) return 0;
  HitResult hit;
  HitTest(x, y, &hit);
  Sheet* s = CurrentSheet();
  if (hit.code == HitTab) {
    SetActiveSheet(hit.sheet);
    return 1;
  }
  if (!SheetHasCells(s) || hit.code < HitCorner || hit.code > HitCell) return 0;
  if (Options.editMode && !PressWhileEditing(&hit)) return 1;
  s = CurrentSheet();
  bool shift = modifiers & ModShift;
  Range r{};
  switch (hit.code) {
    case HitCorner:
      r = Range{0, static_cast<uint16_t>(MaxRow), 0, static_cast<uint8_t>(MaxCol)};
      if (shift)
        SelectRange(&r, 0, 0, 0, 0);
      else
        SelectRange(&r, 1, s->frozenRow ? s->paneTopRow : s->topRow,
                    s->frozenCol ? s->paneLeftCol : s->leftCol, 0);
      return 1;
    case HitColumnHeader:
      if (shift) {
        r = Range{0, static_cast<uint16_t>(MaxRow),
                  static_cast<uint8_t>(std::min<uint32_t>(hit.col, s->activeCol)),
                  static_cast<uint8_t>(std::max<uint32_t>(hit.col, s->activeCol))};
        SelectRange(&r, 0, 0, 0, 0);
      } else {
        r = Range{0, static_cast<uint16_t>(MaxRow), static_cast<uint8_t>(hit.col),
                  static_cast<uint8_t>(hit.col)};
        SelectRange(&r, 1, s->topRow, hit.col, 0);
      }
      return 1;
    case HitRowHeader:
      if (shift) {
        r = Range{static_cast<uint16_t>(std::min<uint32_t>(hit.row, s->activeRow)),
                  static_cast<uint16_t>(std::max<uint32_t>(hit.row, s->activeRow)), 0,
                  static_cast<uint8_t>(MaxCol)};
        SelectRange(&r, 0, 0, 0, 0);
      } else {
        r = Range{static_cast<uint16_t>(hit.row), static_cast<uint16_t>(hit.row), 0,
                  static_cast<uint8_t>(MaxCol)};
        SelectRange(&r, 1, hit.row, s->leftCol, 0);
      }
      return 1;
    default:
      if (shift)
        ExtendTo(hit.row, hit.col);
      else
        SelectCell(hit.row, hit.col, 0);
      gPlatform->setFocusGrid();
      return 1;
  }
}
