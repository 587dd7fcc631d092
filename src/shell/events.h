// The grid's share of the main window's events: painting, keys and characters on the grid and in
// the edit line, presses, and the scroll bars. The frame's own table handles the rest (size,
// close, hand-over, commands) and passes these on.
#pragma once
#include <cstdint>

#include "platform/platform.h"

// Handles one event; returns 1 when it was taken, 0 when the frame or the edit control should
// handle it (for an edit-line character: insert it).
int32_t ShellGridEvent(const PlatformEvent* event);
