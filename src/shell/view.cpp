// The shell's view blocks and the arithmetic that maps rows and columns to pixels.
#include "shell/view.h"

#include "base/muldiv.h"
#include "model/workbook.h"

AppOptions Options;
ViewMetrics View;
PointModeState PointMode;
int ScrollBarsStale;

uint32_t CurrentBook() {
  return App.currentBook;
}
uint32_t CurrentSheetIndex() {
  return GetWorkbook(App.currentBook)->currentSheet;
}
Sheet* CurrentSheet() {
  return GetSheet(CurrentBook(), CurrentSheetIndex());
}

static ZoomMetrics Zoomed() {
  return ZoomMetrics{View.dpiY, View.digitWidth};
}

int32_t ColumnPixels(uint32_t book, uint32_t sheet, uint32_t col) {
  return MulDivRound(View.digitWidth, static_cast<int32_t>(ColumnWidthUnits(book, sheet, col)),
                     256);
}

int32_t RowPixels(uint32_t book, uint32_t sheet, uint32_t row) {
  return MulDivRound(static_cast<int32_t>(RowHeightTwips(book, sheet, row)), View.dpiY, 1440);
}

int32_t ColumnOffset(uint32_t book, uint32_t sheet, uint32_t col, uint32_t fraction) {
  ZoomMetrics m = Zoomed();
  return ColumnLeft(book, sheet, col, fraction, &m);
}

int32_t RowOffset(uint32_t book, uint32_t sheet, uint32_t row, uint32_t fraction) {
  ZoomMetrics m = Zoomed();
  return RowTop(book, sheet, row, fraction, &m);
}

void MeasurePanes(uint32_t book, uint32_t sheet, PaneGeometry* out) {
  const Sheet* s = GetSheet(book, sheet);
  out->splitX = View.cellsLeft;
  out->splitY = View.cellsTop;
  if (s->frozenCol)
    out->splitX +=
        ColumnOffset(book, sheet, s->frozenCol) - ColumnOffset(book, sheet, s->paneLeftCol);
  if (s->frozenRow)
    out->splitY += RowOffset(book, sheet, s->frozenRow) - RowOffset(book, sheet, s->paneTopRow);
}

int StripShown() {
  if (App.workbookCount == 0) return 0;
  const Workbook* w = GetWorkbook(App.currentBook);
  const Sheet* s = w->sheets[w->currentSheet];
  return (w->showHorizontalScrollBar && SheetHasCells(s)) || w->showSheetTabs;
}

// Walks rows (or columns) from the frozen pane's first to the split, then from the scrolled
// pane's first, until the edge is reached; returns the last one reached.
static uint32_t LastInView(uint32_t book, uint32_t sheet, int32_t start, int32_t edge,
                           uint32_t frozenFirst, uint32_t frozenEnd, uint32_t scrolledFirst,
                           uint32_t limit, bool rows) {
  int32_t position = start;
  uint32_t last = scrolledFirst;
  auto walk = [&](uint32_t from, uint32_t to) {
    for (uint32_t i = from; i <= to && i <= limit; i++) {
      if (position >= edge) return false;
      last = i;
      position += rows ? RowPixels(book, sheet, i) : ColumnPixels(book, sheet, i);
    }
    return true;
  };
  if (frozenEnd && !walk(frozenFirst, frozenEnd - 1)) return last;
  walk(scrolledFirst, limit);
  return last;
}

static FrameSizes LastFrame;

void RemeasureView() {
  MeasureView(&LastFrame);
  gPlatform->invalidate(nullptr);
}

void MeasureView(const FrameSizes* frame) {
  LastFrame = *frame;
  View.barsBottom = View.gridTop = frame->barsHeight;
  View.gridLeft = 0;
  View.clientRight = frame->clientWidth;
  View.clientBottom = frame->clientHeight;
  if (App.workbookCount == 0) {
    View.cellsTop = View.cellsBottom = View.stripBottom = 0;
    View.cellsLeft = View.cellsRight = View.tabsLeft = View.tabsRight = 0;
    View.headerHeight = View.digitWidth = View.dpiX = View.dpiY = 0;
    View.cellsRect = PlatformRect{0, 0, 0, 0};
    return;
  }
  uint32_t book = App.currentBook;
  Workbook* w = GetWorkbook(book);
  uint32_t sheet = w->currentSheet;
  Sheet* s = w->sheets[sheet];
  int32_t zoom = s->zoom ? s->zoom : 100;
  FontMetrics font{};
  gPlatform->fontMetrics(gPlatform->defaultFont(), &font);
  View.digitWidth = MulDiv(font.digitWidth, zoom, 100);
  View.dpiX = MulDiv(gPlatform->screenDpiX(), zoom, 100);
  View.dpiY = MulDiv(gPlatform->screenDpiY(), zoom, 100);
  View.headerHeight = MulDiv(font.height, zoom, 100) + 1;
  bool grid = SheetHasCells(s);
  View.cellsTop = View.gridTop + ((grid && (s->flags & SheetHeaders)) ? View.headerHeight : 0);
  View.stripBottom = frame->clientHeight;
  if (Options.statusBarVisible) View.stripBottom -= frame->statusHeight;
  View.cellsBottom = View.stripBottom - (StripShown() ? frame->scrollBarSize : 0);
  View.tabsLeft = 2 * frame->scrollArrowSize;
  if (grid) {
    s->bottomRow =
        static_cast<uint16_t>(LastInView(book, sheet, View.cellsTop, View.cellsBottom,
                                         s->paneTopRow, s->frozenRow, s->topRow, MaxRow, true));
    int32_t digits = s->bottomRow < 999 ? 3 : s->bottomRow < 9999 ? 4 : 5;
    View.cellsLeft = View.gridLeft + ((s->flags & SheetHeaders) ? 3 + View.digitWidth * digits : 0);
    if (s->flags & SheetShowFormulas) View.digitWidth *= 2;
    if (!w->showSheetTabs)
      View.tabsRight = View.gridLeft;
    else if (w->showHorizontalScrollBar)
      View.tabsRight = (frame->clientWidth - View.gridLeft) / 2;
    else
      View.tabsRight = frame->clientWidth;
    View.cellsRight = frame->clientWidth - (w->showVerticalScrollBar ? frame->scrollBarSize : 0);
    s->rightCol =
        static_cast<uint8_t>(LastInView(book, sheet, View.cellsLeft, View.cellsRight,
                                        s->paneLeftCol, s->frozenCol, s->leftCol, MaxCol, false));
  } else {
    View.cellsLeft = View.gridLeft;
    View.tabsRight = View.cellsRight = frame->clientWidth;
  }
  View.cellsRect = PlatformRect{View.cellsLeft, View.cellsTop, View.cellsRight, View.cellsBottom};
  ScrollBarsStale = 1;
}
