// Dispatch of grid and edit-line events by a table of event kinds.
#include "shell/events.h"

#include "model/workbook.h"
#include "shell/entry.h"
#include "shell/paint.h"
#include "shell/select.h"

static int32_t OnPaint(const PlatformEvent* e) {
  PaintSheet(e->dc, &e->rect);
  return 1;
}

static int32_t OnKeyDown(const PlatformEvent* e) {
  if (e->target == TargetEditLine) return EditLineKeyDown(e->key, e->modifiers);
  return GridKeyDown(e->key, e->modifiers);
}

static int32_t OnChar(const PlatformEvent* e) {
  if (e->target == TargetEditLine) return EditLineChar(e->ch, e->modifiers);
  return GridChar(e->ch, e->modifiers);
}

static int32_t OnButtonDown(const PlatformEvent* e) {
  if (e->target == TargetEditLine) return EditLinePressed() ? 0 : 1;
  return GridButtonDown(e->x, e->y, e->modifiers);
}

static int32_t OnScroll(const PlatformEvent* e) {
  if (App.workbookCount == 0) return 0;
  if (e->bar == 2) {
    // The tab scroller: above its middle position goes to the next visible sheet.
    const Workbook* w = GetWorkbook(App.currentBook);
    int32_t step = e->position > 1 ? 1 : -1;
    for (int32_t i = static_cast<int32_t>(w->currentSheet) + step;
         i >= 0 && i < static_cast<int32_t>(w->sheetCount); i += step)
      if (!w->sheets[i]->hidden) {
        SetActiveSheet(static_cast<uint32_t>(i));
        break;
      }
    return 1;
  }
  ScrollView(e->bar == 0, e->code, e->position);
  return 1;
}

struct EventRow {
  PlatformEventKind kind;
  int32_t (*handler)(const PlatformEvent* e);
};

static const EventRow EventTable[] = {
    {EventPaint, OnPaint},           {EventKeyDown, OnKeyDown}, {EventChar, OnChar},
    {EventButtonDown, OnButtonDown}, {EventScroll, OnScroll},
};

int32_t ShellGridEvent(const PlatformEvent* event) {
  for (const EventRow& row : EventTable)
    if (row.kind == event->kind) return row.handler(event);
  return 0;
}
