// Settings that outlive the process: the layout of the command bands with the status bar options,
// and the nine most recent file names. They go through the platform's settings store (an ini-style
// file in the user's configuration folder) under the sections "Options" and "Recent files". Every
// failure is silent: an unreadable value is a default, a failed write is ignored.
#pragma once
#include <cstdint>

// One command band: its position among the bands, its style (bit 8 hidden) and its width.
struct BandLayout {
  int32_t index;
  int32_t style;
  int32_t cx;
};

enum BandSlot : int32_t { BandMenu = 0, BandStandard = 1, BandFormula = 2, BandFormat = 3 };
constexpr int32_t BandHidden = 1 << 8;

struct BarLayout {
  BandLayout bands[4];  // menu, standard, formula, format
  int32_t statusBarVisible;
  int32_t statusFunction;
};

constexpr uint32_t RecentFileCount = 9;

// Newest first; null marks an empty slot, and null slots only follow the used ones.
struct RecentFiles {
  char16_t* names[RecentFileCount];
};

extern RecentFiles Recent;

// Fills `layout` from the store; a missing, empty or negative value takes its default (the band
// widths default to `clientWidth`).
void ReadBarLayout(BarLayout* layout, int32_t clientWidth);
void WriteBarLayout(const BarLayout* layout);

void ReadRecentFiles();
void WriteRecentFiles();
void FreeRecentFiles();
// After a file opens or saves: the name moves to (or enters at) the front, compared ignoring case.
void NoteRecentFile(const char16_t* name);
// A recent file that failed to open: its slot is freed and the later ones move up.
void RemoveRecentFile(uint32_t slot);
