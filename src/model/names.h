// Defined names and the two-level link table of a workbook (external books, and over them the
// sheet links that tokens address by index).
#pragma once
#include <cstdint>

#include "formula/tokens.h"
#include "model/range.h"

struct EvalContext;

struct DefinedName {
  uint16_t options;     // bit 0 hidden, bit 1 function, bit 3 macro command
  uint8_t keyCode;      // shortcut key of a macro command, read once macros run from the keyboard
  uint16_t localSheet;  // 0 global, else 1-based sheet index
  char16_t* name;       // owned
  FormulaTokens formula;
};

constexpr uint16_t NameHidden = 1;
constexpr uint16_t NameFunction = 2;
constexpr uint16_t NameCommand = 8;
constexpr uint32_t BuiltInNameCount = 14;
// The localSheet of a name whose sheet was deleted: beyond any sheet, so it matches none.
constexpr uint16_t NameOfDeletedSheet = 0xFFFF;
extern const char16_t* const BuiltInNames[BuiltInNameCount];

struct ExternalName {
  char16_t* text;  // owned
  uint16_t field;
};

enum ExternalBookKind : int32_t {
  ExternalOtherFile = 0,
  ExternalSelf = 1,
  ExternalAddIn = 2,
  ExternalUnused = 3,  // "!name": the current workbook, whichever it is
};

struct ExternalBook {
  char16_t* path;  // encoded: a backslash is stored as character 3
  uint32_t sheetCount;
  char16_t** sheetNames;
  int32_t kind;
  uint32_t nameCount;
  ExternalName* names;
};

constexpr int16_t NoSheet = -2;  // the workbook itself, with no sheet
constexpr int16_t DeletedSheet = -1;

struct SheetLink {
  int16_t bookIndex;
  int16_t firstSheet;
  int16_t lastSheet;
};

struct LinkRequest {
  uint32_t fromBook;
  uint32_t targetBook;
  int32_t firstSheet;
  int32_t lastSheet;
};

struct ResolvedLink {
  uint32_t fromBook;
  uint32_t book;
  int32_t firstSheet;
  int32_t lastSheet;
};

// Index of the name matching `text` (ignoring case) that applies on `sheet` (0-based): a name
// local to that sheet wins over a global one. -1 when there is none.
int32_t FindName(uint32_t book, uint32_t sheet, const char16_t* text);
// Appends a name (ownership of `name->name` and its formula passes on success); 0 on lost memory.
// `index`, when not null, receives its 0-based position.
int AddName(uint32_t book, const DefinedName* name, uint32_t* index);
// Frees the name's formula and, with removeEntry, takes the entry out. Token indices are 1-based
// into the array, so a caller keeps the entry while tokens may still refer to it.
void DeleteName(uint32_t book, uint32_t index, int removeEntry);
void FreeNames(uint32_t book);

int FindOrAddLink(const LinkRequest* req, int32_t* linkIndex);
// The link of the context's own sheet in the context's workbook, found or added: what a reference
// written without a sheet becomes when it must carry a link. 0 on lost memory.
int ContextSheetLink(const EvalContext* ctx, int32_t* linkIndex);
// The link table as formula text names it. Each finds an entry or appends one, and returns 0
// only on lost memory (the tables are then as they were).
// A book entry of `kind`; for ExternalOtherFile the one whose encoded path (character 1, the path
// with character 3 for each backslash, then the file name) equals `encodedPath` ignoring case.
// The path is copied.
int FindOrAddExternalBook(uint32_t book, int32_t kind, const char16_t* encodedPath,
                          uint32_t* index);
// A sheet name in an external book's own list (ignoring case); *nameIndex is its position.
int FindOrAddExternalSheet(uint32_t book, uint32_t externalBook, const char16_t* sheetName,
                           int16_t* nameIndex);
// The sheet link (externalBook, firstSheet, lastSheet); *linkIndex is its position.
int FindOrAddSheetLink(uint32_t book, int16_t externalBook, int16_t firstSheet, int16_t lastSheet,
                       int32_t* linkIndex);
// An external name of a book entry, matched ignoring case with the same `field` (the 1-based
// sheet of the other book it belongs to, 0 for a book-level name); *index is 0-based.
int FindOrAddExternalName(uint32_t book, uint32_t externalBook, const char16_t* name,
                          uint16_t field, uint32_t* index);
int ResolveLink(int32_t linkIndex, ResolvedLink* inOut);
// True when sheet link `link` of `book` exists and points into the workbook itself.
bool IsSelfLink(uint32_t book, uint32_t link);
// Finds the open workbook with the same leaf file name as `external`, or loads it hidden.
int OpenLinkedBook(uint32_t fromBook, const ExternalBook* external, uint32_t* book);
void FreeLinks(uint32_t book);
// After a sheet was inserted at `position`: local names and self links behind it move up.
void RenumberForInsertedSheet(uint32_t book, uint32_t position, int32_t kind);
// After the sheet at `position` was taken out: local names and self links behind it move down.
// Names local to that sheet get NameOfDeletedSheet, so no lookup finds them while their entries
// stay for the tokens that count on them. A self link wholly on that sheet becomes DeletedSheet,
// which ResolveLink refuses; a span that ends on it shrinks to the sheets that remain.
void RenumberForDeletedSheet(uint32_t book, uint32_t position, int32_t kind);
// Leaf of a path: what follows the last backslash, slash or character 3.
const char16_t* LeafName(const char16_t* path);
