// The paint handler: the column header strip, the rows of the frozen and scrolled panes, the
// scroll bar ranges and the sheet tabs. It also maps cells to screen rectangles for partial
// repaints.
#include "shell/paint.h"

#include <algorithm>

#include "base/muldiv.h"
#include "model/workbook.h"
#include "shell/paint_internal.h"
#include "shell/resources.h"
#include "shell/view.h"

uint32_t FirstShownTab;

static bool Meets(const PlatformRect& a, const PlatformRect& b) {
  return a.left < b.right && b.left < a.right && a.top < b.bottom && b.top < a.bottom;
}

void FormatHeaderColumn(uint32_t col, char16_t out[3]) {
  if (col < 26) {
    out[0] = static_cast<char16_t>(u'A' + col);
    out[1] = 0;
  } else {
    out[0] = static_cast<char16_t>(u'A' + col / 26 - 1);
    out[1] = static_cast<char16_t>(u'A' + col % 26);
    out[2] = 0;
  }
}

void HeaderBox(DrawContext* dc, int32_t x0, int32_t y0, int32_t x1, int32_t y1, int active) {
  Colour shadow = active ? Black : Grey;
  DcLine(dc, x0, y1 - 1, x0, y0, White);
  DcLine(dc, x0, y0, x1, y0, White);
  DcLine(dc, x1 - 1, y0, x1 - 1, y1, shadow);
  DcLine(dc, x0, y1 - 1, x1 - 1, y1 - 1, shadow);
  DcFillRect(dc, PlatformRect{x0 + 1, y0 + 1, x1 - 1, y1 - 1}, LightGrey);
}

static void HeaderText(DrawContext* dc, PlatformFont* font, const PlatformRect& box,
                       const char16_t* text, int32_t length, int32_t y) {
  int32_t w = DcMeasureText(dc, font, text, length);
  DcDrawText(dc, font, box.left + (box.right - box.left - w) / 2, y, box, text, length, Black);
}

struct HeaderFonts {
  PlatformFont* normal;
  PlatformFont* bold;
};

// Column headers of one pane, from `first` at x until `right`; returns the x after the last.
static int32_t PaintColumnHeaders(PaintState* ps, const HeaderFonts& fonts, int32_t x,
                                  uint32_t first, uint32_t last, int32_t right) {
  for (uint32_t col = first; col <= last && x < right; col++) {
    int32_t w = ColumnPixels(ps->book, ps->sheet, col);
    if (!w) continue;
    bool active = col == ps->s->activeCol;
    PlatformRect box{x, View.gridTop, std::min(x + w, right), View.cellsTop};
    HeaderBox(ps->dc, x, View.gridTop, x + w, View.cellsTop, active);
    char16_t name[3];
    FormatHeaderColumn(col, name);
    HeaderText(ps->dc, active ? fonts.bold : fonts.normal, box, name, name[1] ? 2 : 1,
               View.gridTop);
    x += w;
  }
  return x;
}

static void PaintRow(PaintState* ps, const HeaderFonts& fonts, const PaneGeometry& panes,
                     uint32_t row, int32_t top, int32_t bottom) {
  DrawContext* dc = ps->dc;
  Sheet* s = ps->s;
  if (s->flags & SheetHeaders) {
    bool active = row == s->activeRow;
    HeaderBox(dc, View.gridLeft, top, View.cellsLeft, bottom, active);
    char16_t number[8];
    int32_t n = 0;
    char16_t digits[8];
    for (uint32_t v = row + 1; v; v /= 10) digits[n++] = static_cast<char16_t>(u'0' + v % 10);
    for (int32_t i = 0; i < n; i++) number[i] = digits[n - 1 - i];
    PlatformFont* font = active ? fonts.bold : fonts.normal;
    int32_t h = 0;
    DcMeasureText(dc, font, number, n, &h);
    HeaderText(dc, font, PlatformRect{View.gridLeft, top, View.cellsLeft, bottom}, number, n,
               top + (bottom - top - h) / 2);
  }
  int32_t x = View.cellsLeft;
  dc->ops->saveClip(dc);
  PlatformRect pane{View.cellsLeft, top, panes.splitX, bottom};
  if (s->frozenCol) {
    dc->ops->clipToRect(dc, &pane);
    x = PaintCells(ps, x, top, bottom, s->paneLeftCol, s->frozenCol - 1u, row, panes.splitX);
    dc->ops->restoreClip(dc);
    dc->ops->saveClip(dc);
  }
  pane = PlatformRect{panes.splitX, top, View.cellsRight, bottom};
  dc->ops->clipToRect(dc, &pane);
  x = PaintCells(ps, std::max(x, panes.splitX), top, bottom, s->leftCol, MaxCol, row,
                 View.cellsRight);
  dc->ops->restoreClip(dc);
  if (x < View.cellsRight) DcFillRect(dc, PlatformRect{x, top, View.cellsRight, bottom}, LightGrey);
}

// Rows of one pane from `first` at y; returns the y after the last row painted.
static int32_t PaintRows(PaintState* ps, const HeaderFonts& fonts, const PaneGeometry& panes,
                         int32_t y, uint32_t first, uint32_t last, int32_t bottom) {
  for (uint32_t row = first; row <= last && y < bottom; row++) {
    int32_t h = RowPixels(ps->book, ps->sheet, row);
    if (!h) continue;
    if (y + h > ps->update.top && y < ps->update.bottom)
      PaintRow(ps, fonts, panes, row, y, std::min(y + h, bottom));
    y += h;
  }
  return y;
}

static uint32_t LastUsedRow(const Sheet* s) {
  return s->cells.count ? s->cells.cells[s->cells.count - 1]->row : 0;
}

static uint32_t LastUsedColumn(const Sheet* s) {
  uint32_t last = 0;
  for (uint32_t i = 0; i < s->cells.count; i++) {
    const Cell* c = s->cells.cells[i];
    if (!CellIsEmpty(c)) last = std::max<uint32_t>(last, c->col);
  }
  return last;
}

static void SendScrollRanges(const Sheet* s) {
  int32_t page = std::max<int32_t>(s->bottomRow - s->topRow, 0) + 1;
  int32_t maximum = std::min<int32_t>(
      std::max<int32_t>(s->bottomRow, static_cast<int32_t>(LastUsedRow(s))) + page, MaxRow);
  gPlatform->setScrollInfo(0, s->frozenRow, maximum, page, s->topRow);
  page = std::max<int32_t>(s->rightCol - s->leftCol, 0) + 1;
  maximum = std::min<int32_t>(
      std::max<int32_t>(s->rightCol, static_cast<int32_t>(LastUsedColumn(s))) + page, MaxCol);
  gPlatform->setScrollInfo(1, s->frozenCol, maximum, page, s->leftCol);
}

// Tab width for deciding which tabs fit: the text and half the strip height.
static int32_t TabWidth(DrawContext* dc, const Sheet* s, int32_t half) {
  int32_t n = 0;
  while (n < static_cast<int32_t>(SheetNameCapacity) && s->name[n]) n++;
  return DcMeasureText(dc, Resources.headerFont, s->name, n) + half;
}

void RecheckFirstTab(DrawContext* dc) {
  if (App.workbookCount == 0) return;
  const Workbook* w = GetWorkbook(App.currentBook);
  uint32_t current = w->currentSheet;
  if (FirstShownTab >= w->sheetCount || current < FirstShownTab) {
    FirstShownTab = current;
    return;
  }
  int32_t half = (View.stripBottom - View.cellsBottom) / 2;
  int32_t room = View.tabsRight - View.tabsLeft;
  for (;;) {
    int32_t used = half;
    for (uint32_t i = FirstShownTab; i <= current; i++)
      if (!w->sheets[i]->hidden) used += TabWidth(dc, w->sheets[i], half);
    if (used <= room || FirstShownTab == current) return;
    do FirstShownTab++;
    while (FirstShownTab < current && w->sheets[FirstShownTab]->hidden);
  }
}

static void PaintTab(PaintState* ps, const Sheet* sheet, int32_t x, int32_t slant, int32_t tw,
                     bool active) {
  int32_t top = View.cellsBottom, bottom = View.stripBottom - 1;
  PlatformPoint p[4] = {
      {x, top}, {x + slant, bottom}, {x + slant + tw, bottom}, {x + 2 * slant + tw, top}};
  Colour fill = active ? White : LightGrey;
  ps->dc->ops->polygon(ps->dc, p, 4, fill, Black);
  // The active tab stays open towards the sheet above it.
  if (active) DcLine(ps->dc, x + 1, top, x + 2 * slant + tw, top, White);
  int32_t n = 0;
  while (n < static_cast<int32_t>(SheetNameCapacity) && sheet->name[n]) n++;
  int32_t h = 0;
  DcMeasureText(ps->dc, Resources.headerFont, sheet->name, n, &h);
  PlatformRect clip{x, top, x + 2 * slant + tw, bottom + 1};
  Colour ink = (fill & 0xFF) + ((fill >> 8) & 0xFF) + ((fill >> 16) & 0xFF) < 382 ? White : Black;
  DcDrawText(ps->dc, Resources.headerFont, x + slant, top + (bottom - top - h) / 2, clip,
             sheet->name, n, ink);
}

static void PaintTabs(PaintState* ps) {
  DrawContext* dc = ps->dc;
  const Workbook* w = ps->w;
  PlatformRect strip{View.tabsLeft, View.cellsBottom, View.tabsRight, View.stripBottom};
  DcFillRect(dc, strip, LightGrey);
  dc->ops->saveClip(dc);
  dc->ops->clipToRect(dc, &strip);
  int32_t slant = (View.stripBottom - View.cellsBottom) / 2;
  int32_t x = View.tabsLeft;
  // A stub of the tab before the first one shown says there are more to the left.
  for (uint32_t i = FirstShownTab; i-- > 0;) {
    if (w->sheets[i]->hidden) continue;
    PlatformPoint p[3] = {
        {x, View.cellsBottom}, {x + slant, View.stripBottom - 1}, {x + slant, View.cellsBottom}};
    dc->ops->polygon(dc, p, 3, LightGrey, Black);
    x += slant;
    break;
  }
  int32_t activeLeft = -1, activeWidth = 0;
  DcLine(dc, View.tabsLeft, View.cellsBottom, View.tabsRight, View.cellsBottom, Black);
  for (uint32_t i = FirstShownTab; i < w->sheetCount; i++) {
    const Sheet* sheet = w->sheets[i];
    if (sheet->hidden) continue;
    int32_t n = 0;
    while (n < static_cast<int32_t>(SheetNameCapacity) && sheet->name[n]) n++;
    int32_t tw = DcMeasureText(dc, Resources.headerFont, sheet->name, n);
    if (x + 2 * slant + tw > View.tabsRight) break;
    if (i == w->currentSheet) {
      activeLeft = x;
      activeWidth = tw;
    } else {
      PaintTab(ps, sheet, x, slant, tw, false);
    }
    x += slant + tw;
  }
  if (activeLeft >= 0)
    PaintTab(ps, w->sheets[w->currentSheet], activeLeft, slant, activeWidth, true);
  dc->ops->restoreClip(dc);
}

void PaintSheet(DrawContext* dc, const PlatformRect* update) {
  if (App.workbookCount == 0) {
    DcFillRect(dc, PlatformRect{0, View.barsBottom, View.clientRight, View.clientBottom}, Grey);
    return;
  }
  PaintState ps{};
  ps.dc = dc;
  ps.book = App.currentBook;
  ps.w = GetWorkbook(ps.book);
  ps.sheet = ps.w->currentSheet;
  ps.s = ps.w->sheets[ps.sheet];
  ps.update = *update;
  Sheet* s = ps.s;
  if (SheetHasCells(s)) {
    ps.gridlines = (s->flags & SheetGridLines) != 0;
    ps.showFormulas = (s->flags & SheetShowFormulas) != 0;
    ps.w->circularHit = 0;
    HeaderFonts fonts{HeaderFont(s->zoom, 0), HeaderFont(s->zoom, 1)};
    PaneGeometry panes;
    MeasurePanes(ps.book, ps.sheet, &panes);
    PlatformRect strip{View.gridLeft, View.gridTop, View.cellsRight, View.cellsTop};
    if ((s->flags & SheetHeaders) && Meets(strip, *update)) {
      HeaderBox(dc, View.gridLeft, View.gridTop, View.cellsLeft, View.cellsTop, 0);
      int32_t x = View.cellsLeft;
      dc->ops->saveClip(dc);
      dc->ops->clipToRect(dc, &strip);
      if (s->frozenCol)
        x = PaintColumnHeaders(&ps, fonts, x, s->paneLeftCol, s->frozenCol - 1u, panes.splitX);
      x = PaintColumnHeaders(&ps, fonts, std::max(x, panes.splitX), s->leftCol, MaxCol,
                             View.cellsRight);
      dc->ops->restoreClip(dc);
      if (x < View.cellsRight)
        DcFillRect(dc, PlatformRect{x, View.gridTop, View.cellsRight, View.cellsTop}, LightGrey);
    }
    PlatformRect area{View.gridLeft, View.cellsTop, View.cellsRight, View.cellsBottom};
    if (Meets(area, *update)) {
      dc->ops->saveClip(dc);
      dc->ops->clipToRect(dc, &area);
      int32_t y = View.cellsTop;
      if (s->frozenRow)
        y = PaintRows(&ps, fonts, panes, y, s->paneTopRow, s->frozenRow - 1u, panes.splitY);
      y = PaintRows(&ps, fonts, panes, std::max(y, panes.splitY), s->topRow, MaxRow,
                    View.cellsBottom);
      if (y < View.cellsBottom)
        DcFillRect(dc, PlatformRect{View.gridLeft, y, View.cellsRight, View.cellsBottom},
                   LightGrey);
      dc->ops->restoreClip(dc);
    }
    if ((s->flags & SheetHeaders) && ps.w->circularHit) {
      PlatformRect corner{View.gridLeft, View.gridTop, View.cellsLeft, View.cellsTop};
      HeaderText(dc, fonts.normal, corner, u"CIR", 3, View.gridTop);
    }
    if (ScrollBarsStale) {
      ScrollBarsStale = 0;
      SendScrollRanges(s);
    }
  } else {
    DcFillRect(dc, PlatformRect{View.gridLeft, View.gridTop, View.clientRight, View.cellsBottom},
               White);
  }
  PlatformRect tabs{View.tabsLeft, View.cellsBottom, View.tabsRight, View.stripBottom};
  if (ps.w->showSheetTabs && tabs.right > tabs.left && Meets(tabs, *update)) PaintTabs(&ps);
}

// The first and last row (column) of a range that lie in a pane's span, and the pixel edges.
static bool SpanInPane(uint32_t book, uint32_t sheet, bool rows, uint32_t first, uint32_t last,
                       uint32_t paneFirst, uint32_t paneLast, int32_t origin, int32_t* start,
                       int32_t* end) {
  uint32_t a = std::max(first, paneFirst), b = std::min(last, paneLast);
  if (a > b) return false;
  auto offset = [&](uint32_t i) {
    return rows ? RowOffset(book, sheet, i) : ColumnOffset(book, sheet, i);
  };
  int32_t base = offset(paneFirst);
  *start = origin + offset(a) - base;
  *end = origin + offset(b + 1) - base;
  return true;
}

// Calls `visit` with the screen rectangle of the range in each pane that shows it.
template <typename Visit>
static void ForEachPane(uint32_t book, uint32_t sheet, const Range* range, Visit visit) {
  const Sheet* s = GetSheet(book, sheet);
  PaneGeometry panes;
  MeasurePanes(book, sheet, &panes);
  struct Span {
    uint32_t first, last;
    int32_t origin, clipStart, clipEnd;
  };
  Span rows[2] = {{s->paneTopRow, s->frozenRow ? s->frozenRow - 1u : 0, View.cellsTop,
                   View.cellsTop, panes.splitY},
                  {s->topRow, MaxRow, panes.splitY, panes.splitY, View.cellsBottom}};
  Span cols[2] = {{s->paneLeftCol, s->frozenCol ? s->frozenCol - 1u : 0, View.cellsLeft,
                   View.cellsLeft, panes.splitX},
                  {s->leftCol, MaxCol, panes.splitX, panes.splitX, View.cellsRight}};
  for (int i = s->frozenRow ? 0 : 1; i < 2; i++)
    for (int j = s->frozenCol ? 0 : 1; j < 2; j++) {
      PlatformRect r;
      if (!SpanInPane(book, sheet, true, range->firstRow, range->lastRow, rows[i].first,
                      rows[i].last, rows[i].origin, &r.top, &r.bottom) ||
          !SpanInPane(book, sheet, false, range->firstCol, range->lastCol, cols[j].first,
                      cols[j].last, cols[j].origin, &r.left, &r.right))
        continue;
      PlatformRect pane{cols[j].clipStart, rows[i].clipStart, cols[j].clipEnd, rows[i].clipEnd};
      visit(r, pane);
    }
}

void InvalidateRange(uint32_t book, uint32_t sheet, const Range* range, int outset) {
  ForEachPane(book, sheet, range, [&](PlatformRect r, const PlatformRect& pane) {
    if (outset) {
      r.left -= 2;
      r.top -= 2;
      r.right += 1;
      r.bottom += 1;
    }
    r.left = std::max(r.left, pane.left - (outset ? 2 : 0));
    r.top = std::max(r.top, pane.top - (outset ? 2 : 0));
    r.right = std::min(r.right, pane.right);
    r.bottom = std::min(r.bottom, pane.bottom);
    if (r.right > r.left && r.bottom > r.top) gPlatform->invalidate(&r);
  });
}

void InvalidateChangedCells(uint32_t book, uint32_t sheet, const Range* range) {
  // Text reaches past its own cell into empty neighbours on either side and erases the gridlines
  // it crosses, so a change can show anywhere along the row: the whole width of its rows goes.
  Range rows{range->firstRow, range->lastRow, 0, static_cast<uint8_t>(MaxCol)};
  InvalidateRange(book, sheet, &rows, 0);
}

int CellScreenRect(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col, PlatformRect* out) {
  Range one{static_cast<uint16_t>(row), static_cast<uint16_t>(row), static_cast<uint8_t>(col),
            static_cast<uint8_t>(col)};
  int found = 0;
  ForEachPane(book, sheet, &one, [&](const PlatformRect& r, const PlatformRect&) {
    *out = r;
    found = 1;
  });
  return found;
}
