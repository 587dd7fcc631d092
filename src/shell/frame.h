// The frame: the life of the process. It decides whether this instance runs at all (a second
// start hands its command line to the first and leaves), reads the locale and the settings, opens
// the first workbook, lays out the window, runs the event loop, and on the way out closes every
// workbook with its save question and writes the settings back.
#pragma once
#include <cstdint>

#include "platform/platform.h"
#include "shell/settings.h"

extern BarLayout Bars;

// The whole process on the installed platform; returns the exit code (0 after a hand-over).
int32_t FrameMain(const char16_t* commandLine);
// Start-up without the instance decision and the loop: settings, drawing resources, menus, the
// first workbook (from `commandLine` when it opens), the layout. Returns 0 when the drawing
// resources could not be made.
int FrameStart(const char16_t* commandLine);
// After the loop: the settings written back (when `writeSettings`), resources and workbooks
// released.
void FrameStop(int writeSettings);
// The handler of every platform event.
int32_t FrameHandleEvent(const PlatformEvent* event);

// Recomputes the view's edges, places the scroll bars, corner, tab scroller and status bar, shows
// the bands by their flags and repaints the whole client area.
void LayoutView();
// Opens the file named by a command line (quotes stripped, an extension cut to three letters).
// Returns nonzero when a workbook was opened.
int OpenFromCommandLine(const char16_t* text);
// A new empty workbook named "Classeur<n>", made current.
int NewDefaultWorkbook();
// Closes every workbook with its question, then ends the loop; stops at the first Cancel.
void CloseAllAndQuit();
