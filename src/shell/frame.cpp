// The frame's start-up, event dispatch, layout and shut-down. Events go through one table from
// their kind to a handler; commands through the command table (commands.cpp).
#include "shell/frame.h"

#include <cstdlib>
#include <string>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "format/locale.h"
#include "model/undo.h"
#include "model/workbook.h"
#include "shell/commands.h"
#include "shell/entry.h"
#include "shell/events.h"
#include "shell/open_save.h"
#include "shell/paint.h"
#include "shell/resources.h"
#include "shell/status.h"
#include "shell/view.h"

BarLayout Bars;

namespace {

constexpr char kInstanceName[] = "Tessarel";

// The three bands the user may hide, with their flag and where their layout is kept.
struct MovableBand {
  PlatformBand band;
  BandSlot slot;
  int32_t AppOptions::*visible;
};
constexpr MovableBand kBands[] = {
    {BandStandardBar, BandStandard, &AppOptions::standardBarVisible},
    {BandFormulaBar, BandFormula, &AppOptions::formulaBarVisible},
    {BandFormatBar, BandFormat, &AppOptions::formatBarVisible},
};

void TellOutOfMemory() {
  gPlatform->messageBox(u"Mémoire insuffisante.", MessageCaption, MbOk | MbIconError);
}

bool CurrentSheetHasCells() {
  if (App.workbookCount == 0) return false;
  const Workbook* wb = GetWorkbook(App.currentBook);
  return SheetHasCells(wb->sheets[wb->currentSheet]);
}

void ApplyBarLayout() {
  for (const MovableBand& b : kBands) {
    int32_t& style = Bars.bands[b.slot].style;
    Options.*b.visible = (style & BandHidden) == 0;
    style &= ~BandHidden;
  }
  Options.statusBarVisible = Bars.statusBarVisible != 0;
  Options.statusFunction = Bars.statusFunction <= 6 ? Bars.statusFunction : 6;
}

void KeepBarLayout() {
  for (const MovableBand& b : kBands) {
    int32_t& style = Bars.bands[b.slot].style;
    style &= ~BandHidden;
    if (!(Options.*b.visible)) style |= BandHidden;
  }
  Bars.statusBarVisible = Options.statusBarVisible;
  Bars.statusFunction = Options.statusFunction;
}

void PlaceChild(PlatformChild child, int32_t left, int32_t top, int32_t right, int32_t bottom,
                bool visible) {
  const PlatformRect r{left, top, right, bottom};
  gPlatform->setChildGeometry(child, &r, visible);
}

// Event handlers -------------------------------------------------------------------------------

// Set when the window's size or the current sheet changed: the first tab shown is recomputed at
// the next paint, where there is a context to measure the tabs' names with.
bool gTabsToCheck = true;

int32_t OnPaint(const PlatformEvent* e) {
  if (gTabsToCheck && App.workbookCount) {
    RecheckFirstTab(e->dc);
    gTabsToCheck = false;
  }
  return ShellGridEvent(e);
}

int32_t OnSize(const PlatformEvent*) {
  LayoutView();
  gTabsToCheck = true;
  return 1;
}

int32_t OnCommand(const PlatformEvent* e) {
  DispatchCommand(e->command);
  return 1;
}

int32_t OnClose(const PlatformEvent*) {
  CloseAllAndQuit();
  return 1;
}

int32_t OnHandOver(const PlatformEvent* e) {
  if (e->text && e->text[0]) OpenFromCommandLine(e->text);
  return 1;
}

int32_t OnStatusBarPressed(const PlatformEvent*) {
  StatusBarPressed();
  return 1;
}

int32_t OnFocus(const PlatformEvent*) {
  if (Options.editMode) gPlatform->editFocus();
  return 1;
}

struct EventRow {
  PlatformEventKind kind;
  int32_t (*handler)(const PlatformEvent* event);
};

// The grid's own events (keys, characters, presses, scroll bars) go on to the grid's table.
constexpr EventRow kEventTable[] = {
    {EventPaint, OnPaint},
    {EventSize, OnSize},
    {EventCommand, OnCommand},
    {EventClose, OnClose},
    {EventHandOver, OnHandOver},
    {EventFocus, OnFocus},
    {EventStatusBarPressed, OnStatusBarPressed},
};

}  // namespace

int32_t FrameHandleEvent(const PlatformEvent* event) {
  // Keys, presses and commands end End mode in many places; its pane follows in this one.
  const int32_t endMode = Options.endMode;
  int32_t handled = 0;
  bool found = false;
  for (const EventRow& row : kEventTable) {
    if (row.kind == event->kind) {
      handled = row.handler(event);
      found = true;
      break;
    }
  }
  if (!found) handled = ShellGridEvent(event);
  if (Options.endMode != endMode) UpdateEndPane();
  return handled;
}

void LayoutView() {
  const bool grid = CurrentSheetHasCells();
  gPlatform->showBand(BandStandardBar, Options.standardBarVisible);
  gPlatform->showBand(BandFormatBar, Options.formatBarVisible);
  gPlatform->showBand(BandFormulaBar, Options.formulaBarVisible && grid);
  FrameSizes sizes{};
  gPlatform->clientSize(&sizes.clientWidth, &sizes.clientHeight);
  sizes.barsHeight = gPlatform->barsHeight();
  sizes.statusHeight = gPlatform->statusBarHeight();
  sizes.scrollBarSize = gPlatform->scrollBarSize();
  sizes.scrollArrowSize = sizes.scrollBarSize;
  MeasureView(&sizes);
  if (App.workbookCount == 0) {
    for (PlatformChild child :
         {ChildVerticalBar, ChildHorizontalBar, ChildCorner, ChildTabScroller, ChildStatusBar}) {
      PlaceChild(child, 0, 0, 0, 0, false);
    }
  } else {
    const Workbook* wb = GetWorkbook(App.currentBook);
    const bool vertical = grid && wb->showVerticalScrollBar;
    const bool horizontal = grid && wb->showHorizontalScrollBar;
    const bool tabs = wb->showSheetTabs != 0;
    const ViewMetrics& v = View;
    PlaceChild(ChildVerticalBar, v.cellsRight, v.barsBottom, v.clientRight, v.cellsBottom,
               vertical);
    PlaceChild(ChildHorizontalBar, v.tabsRight, v.cellsBottom, v.cellsRight, v.stripBottom,
               horizontal);
    PlaceChild(ChildCorner, v.cellsRight, v.cellsBottom, v.clientRight, v.stripBottom,
               vertical && horizontal);
    PlaceChild(ChildTabScroller, v.gridLeft, v.cellsBottom, v.tabsLeft, v.stripBottom, tabs);
    PlaceChild(ChildStatusBar, v.gridLeft, v.stripBottom, v.clientRight, v.clientBottom,
               Options.statusBarVisible);
  }
  gTabsToCheck = true;
  gPlatform->invalidate(nullptr);
}

int OpenFromCommandLine(const char16_t* text) {
  std::u16string path = text;
  if (path.size() >= 2 && path.front() == u'"' && path.back() == u'"') {
    path = path.substr(1, path.size() - 2);
  }
  // A shell may pass trailing arguments after the extension: keep three letters of it.
  const size_t dot = path.rfind(u'.');
  const size_t slash = path.find_last_of(u"/\\");
  if (dot != std::u16string::npos && (slash == std::u16string::npos || dot > slash) &&
      path.size() - dot - 1 > 3) {
    path.resize(dot + 4);
  }
  FILE* f = std::fopen(TextToUtf8(path.c_str()).c_str(), "rb");
  if (!f) return 0;
  std::fclose(f);
  return OpenFile(path.c_str(), 1);
}

int NewDefaultWorkbook() {
  // There is no template folder on this platform: a new workbook is an empty one.
  uint32_t book;
  if (!CreateWorkbook(nullptr, 1, &book)) return 0;
  UpdateCaption();
  RefreshMenus();
  LayoutView();
  RefreshFormulaBar();
  return 1;
}

void CloseAllAndQuit() {
  while (App.workbookCount) {
    if (!CloseCurrentWorkbook()) return;
  }
  gPlatform->requestQuit(0);
}

int FrameStart(const char16_t* commandLine) {
  InstallShellHooks();
  SetOutOfMemoryHook(TellOutOfMemory);
  LocaleId locale = LocaleFrench;
  const char* tag = gPlatform->localeTag();
  if (!tag || !LocaleFromTag(tag, &locale)) locale = LocaleFromEnvironment();
  ApplyLocale(locale);
  if (!CreateDrawResources()) return 0;
  PlatformTime now;
  gPlatform->localTime(&now);
  std::srand(unsigned(gPlatform->milliseconds() ^ (now.second * 1000 + now.millisecond)));
  int32_t width = 0, height = 0;
  gPlatform->clientSize(&width, &height);
  ReadBarLayout(&Bars, width);
  ApplyBarLayout();
  SetToolbars();
  ReadRecentFiles();
  if (!(commandLine && commandLine[0] && OpenFromCommandLine(commandLine))) NewDefaultWorkbook();
  UpdateCaption();
  RefreshMenus();
  LayoutView();
  return 1;
}

void FrameStop(int writeSettings) {
  if (writeSettings) {
    WriteRecentFiles();
    KeepBarLayout();
    WriteBarLayout(&Bars);
  }
  FreeRecentFiles();
  ClearUndo();
  CloseAllWorkbooks();
  FreeDrawResources();
  SetMessageHook(nullptr);
  SetOutOfMemoryHook(nullptr);
}

int32_t FrameMain(const char16_t* commandLine) {
  if (!gPlatform->instanceClaim(kInstanceName)) {
    if (commandLine && commandLine[0]) gPlatform->instanceSend(kInstanceName, commandLine);
    return 0;
  }
  if (!FrameStart(commandLine)) return 16;
  const int32_t code = gPlatform->run(FrameHandleEvent);
  FrameStop(1);
  return code;
}
