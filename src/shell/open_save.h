// The interactive side of opening and saving: the open and save dialogs, the questions (save the
// changes? replace the file?), the refusals, the adoption of a new name, the caption and the
// recent list. The reading and writing themselves go through files/open.h.
#pragma once
#include <cstdint>

// The open workbook whose leaf name is the same as that of `path` (ignoring case), or -1.
int32_t FindOpenWorkbook(const char16_t* path);

// Opens `path` as the current workbook. A workbook of the same leaf name already open becomes
// current and nothing is read; an untouched "Classeur1", the only workbook, gives way to the file.
// Returns nonzero when a workbook was opened or found.
int OpenFile(const char16_t* path, int addToRecent);
// Writes workbook `book` to `path`; a name of unknown type, or a template on a plain save
// (`fromDialog` 0), goes through SaveFileAs instead. Returns nonzero when written.
int SaveFile(uint32_t book, const char16_t* path, int fromDialog);
// Asks for a name and type, then saves and adopts the new name. Returns nonzero when saved.
int SaveFileAs(uint32_t book, const char16_t* path);
// "Voulez-vous enregistrer les changements sous le nom de ...?": returns 1 when the caller must
// stop (Cancel, or a save that did not happen), 0 when it may go on closing.
int PromptSaveChanges(uint32_t book);
// Closes the current workbook, asking first when it holds changes. Returns 0 when the user
// cancelled.
int CloseCurrentWorkbook();

// The Open dialog (command 111) and the Save As of the current workbook (command 114).
void OpenFileDialog();

// "Tessarel - <leaf name of the current workbook>", or "Tessarel" with none open.
void UpdateCaption();
