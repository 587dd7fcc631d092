// Opening and saving workbooks: the file's type from its name, and dispatch to the reader or
// writer of that type through one table. This is the one door between the workbook list and the
// file system; it knows nothing of the formats themselves. The dialogs, the recent list and the
// caption belong to the shell, which calls these.
#pragma once
#include <cstdint>

#include "files/text.h"

// The type of a file by its extension, in the order of the extension table.
enum FileType : int32_t {
  FileCsv = 0,
  FilePxl = 1,
  FileXls = 2,
  FileXlt = 3,
  FileBmp = 4,
  FileTxt = 5,
  FilePxt = 6,
  FileUnknown = 7,
};

// The last three characters of the whole path, compared ignoring case; FileUnknown for a name
// shorter than five characters or whose fourth character from the end is not ".".
FileType FileTypeFromName(const char16_t* path);

// What a load tells its caller beyond success.
struct LoadReport {
  uint32_t book;            // the new workbook, also after a failed read (it stays open, partial)
  int32_t bookCreated;      // non-zero when `book` is valid; read by the shell after a failed load
  DelimitedStop delimited;  // where a delimited read stopped
};

// Reads `path` into a new workbook, which becomes current. `delimiter`, when not null, reads the
// file as delimited text with that separator whatever its name. The new workbook is named by the
// path and is not dirty. Returns 0 after showing the reason (an unknown type, a file that cannot be
// opened, a type whose reader is not there); a reader's own failure shows its own message.
int LoadWorkbookFile(const char16_t* path, const char16_t* delimiter, LoadReport* report);

// Writes workbook `book` into `path` in the type its name says, through a temporary file that
// replaces the target only when complete. csv and txt hold one sheet: with `askActiveSheet` and
// more than one sheet the user is asked first (Cancel returns 0); without it the active sheet is
// written silently. Clears `dirty` on success. Returns 0 after showing the reason.
int SaveWorkbookFile(uint32_t book, const char16_t* path, int askActiveSheet);
