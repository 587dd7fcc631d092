// Storing a typed text in cells: the one routine behind cell entry, the text import and the macro
// command that writes a formula. It decides what the text is, compiles a formula, picks the cell
// format the entry asks for and puts the cells in the store. It asks nothing and records no undo:
// the interactive caller guards, records and validates around it.
#pragma once
#include <cstdint>

#include "model/range.h"

// Why StoreEntry stored nothing; EntryStored when it did (or met lost memory, already reported).
enum EntryStatus : int32_t {
  EntryStored = 0,
  EntryBadFormula = 1,  // a text of two or more characters that begins like a formula and does
                        // not compile (also one that compiles past the token budget)
};

struct EntryTarget {
  uint32_t book;
  uint32_t sheet;
  Range range;         // every cell of it receives the entry
  uint16_t anchorRow;  // the active cell, which relative references of a filled formula count from
  uint8_t anchorCol;
  int arrayEntry;     // a formula entered as one array over the range
  int fillSelection;  // a formula filled over the range, its references moved cell by cell
  int loading;  // a file load: dependents are not marked and rows not fitted; the reader settles
                // both once at the end
};

// The Xf index whose cells take every entry as text, unread.
constexpr uint16_t TextOnlyXf = 49;

// Stores `text` into the target's cells. Returns 1 when stored; 0 with *status EntryBadFormula for
// a formula that does not compile (nothing changes), or 0 with EntryStored on a sheet without
// cells or on lost memory. Marks the workbook dirty unless loading.
int StoreEntry(const char16_t* text, const EntryTarget* target, EntryStatus* status);
