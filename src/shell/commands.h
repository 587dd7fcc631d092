// Commands: every menu item, toolbar button and shortcut ends as one number, which the command
// table turns into a handler. This holds the File menu, Undo, and the View toggles of the bands.
#pragma once
#include <cstdint>

enum CommandId : int32_t {
  CmdNew = 110,
  CmdOpen = 111,
  CmdClose = 112,
  CmdSave = 113,
  CmdSaveAs = 114,
  CmdRecentFirst = 118,  // 118 to 126: the recent files, newest first
  CmdRecentLast = 126,
  CmdQuit = 127,
  CmdUndo = 130,
  CmdStandardBar = 416,
  CmdFormatBar = 417,
  CmdFormulaBar = 418,
  CmdStatusBar = 419,
};

// Runs the command; returns nonzero when the id is known.
int DispatchCommand(int32_t id);
// Rebuilds the menu bar (the recent files live in it) and sets the state of every command.
void RefreshMenus();
// Fills the standard and format toolbars.
void SetToolbars();
