// Defined names and the link table of a workbook. Names live in one array that tokens address
// by 1-based index, so entries are only taken out when no token can still point behind them.
// Links are two-level, as BIFF8 keeps them: external books (this workbook, another file, add-ins)
// and over them the sheet links, each naming a book entry and a first and last sheet. A link to
// another file keeps that file's sheet names rather than indices, so it survives the other
// workbook being closed and reopened with its sheets in a different order.
#include "model/names.h"

#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "model/hooks.h"
#include "model/value.h"
#include "model/workbook.h"

const char16_t* const BuiltInNames[BuiltInNameCount] = {
    u"Consolidate_Area", u"Auto_Open",       u"Auto_Close",   u"Extract",        u"Database",
    u"Criteria",         u"Print_Area",      u"Print_Titles", u"Recorder",       u"Data_Form",
    u"Auto_Activate",    u"Auto_Deactivate", u"Sheet_Title",  u"_FilterDatabase"};

// In an encoded path character 3 stands for a backslash, as in the file's own path encoding.
constexpr char16_t EncodedSeparator = 3;

// The tables grow one entry at a time: they are short, and the block size then always equals
// the count, which keeps the record free of a separate capacity field.
template <typename T>
static int GrowByOne(T** items, uint32_t count) {
  void* grown = Reallocate(*items, count * sizeof(T), (count + 1) * sizeof(T));
  if (!grown) return 0;
  *items = static_cast<T*>(grown);
  return 1;
}

int32_t FindName(uint32_t book, uint32_t sheet, const char16_t* text) {
  const Workbook* wb = GetWorkbook(book);
  int32_t global = -1;
  for (uint32_t i = 0; i < wb->nameCount; i++) {
    const DefinedName* name = &wb->names[i];
    if (!name->name || !EqualTextNoCase(name->name, text)) continue;
    if (name->localSheet == sheet + 1) return static_cast<int32_t>(i);
    if (name->localSheet == 0 && global < 0) global = static_cast<int32_t>(i);
  }
  return global;
}

int AddName(uint32_t book, const DefinedName* name, uint32_t* index) {
  Workbook* wb = GetWorkbook(book);
  if (!GrowByOne(&wb->names, wb->nameCount)) return 0;
  wb->names[wb->nameCount] = *name;
  if (index) *index = wb->nameCount;
  wb->nameCount++;
  return 1;
}

void DeleteName(uint32_t book, uint32_t index, int removeEntry) {
  if (index >= GetWorkbook(book)->nameCount) return;
  RenewNameUsers(book, index);
  Workbook* wb = GetWorkbook(book);
  DefinedName* name = &wb->names[index];
  FreeTokens(&name->formula);
  if (!removeEntry) return;
  Release(name->name);
  std::memmove(name, name + 1, (wb->nameCount - index - 1) * sizeof(DefinedName));
  wb->nameCount--;
}

void FreeNames(uint32_t book) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->nameCount; i++) {
    Release(wb->names[i].name);
    FreeTokens(&wb->names[i].formula);
  }
  Release(wb->names);
  wb->names = nullptr;
  wb->nameCount = 0;
}

static void FreeExternalBook(ExternalBook* external) {
  Release(external->path);
  for (uint32_t i = 0; i < external->sheetCount; i++) Release(external->sheetNames[i]);
  Release(external->sheetNames);
  for (uint32_t i = 0; i < external->nameCount; i++) Release(external->names[i].text);
  Release(external->names);
  *external = ExternalBook{};
}

void FreeLinks(uint32_t book) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->externalBookCount; i++) FreeExternalBook(&wb->externalBooks[i]);
  Release(wb->externalBooks);
  wb->externalBooks = nullptr;
  wb->externalBookCount = 0;
  Release(wb->sheetLinks);
  wb->sheetLinks = nullptr;
  wb->sheetLinkCount = 0;
}

static bool IsSeparator(char16_t c) {
  return c == u'\\' || c == u'/' || c == EncodedSeparator;
}

const char16_t* LeafName(const char16_t* path) {
  if (!path) return u"";
  const char16_t* leaf = path;
  for (const char16_t* p = path; *p; p++) {
    if (IsSeparator(*p)) leaf = p + 1;
  }
  return leaf;
}

// Appends an empty book entry of `kind`, taking ownership of `path` on success.
static int AddExternalBook(Workbook* wb, int32_t kind, char16_t* path, uint32_t* index) {
  if (!GrowByOne(&wb->externalBooks, wb->externalBookCount)) return 0;
  ExternalBook* external = &wb->externalBooks[wb->externalBookCount];
  *external = ExternalBook{};
  external->path = path;
  external->kind = kind;
  *index = wb->externalBookCount++;
  return 1;
}

int FindOrAddExternalBook(uint32_t book, int32_t kind, const char16_t* encodedPath,
                          uint32_t* index) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->externalBookCount; i++) {
    const ExternalBook* external = &wb->externalBooks[i];
    if (external->kind != kind) continue;
    if (kind == ExternalOtherFile &&
        !EqualTextNoCase(external->path ? external->path : u"", encodedPath ? encodedPath : u""))
      continue;
    *index = i;
    return 1;
  }
  char16_t* path = nullptr;
  if (kind == ExternalOtherFile && !(path = TextDuplicate(encodedPath ? encodedPath : u"")))
    return 0;
  if (AddExternalBook(wb, kind, path, index)) return 1;
  Release(path);
  return 0;
}

int FindOrAddExternalSheet(uint32_t book, uint32_t externalBook, const char16_t* sheetName,
                           int16_t* nameIndex) {
  ExternalBook* external = &GetWorkbook(book)->externalBooks[externalBook];
  for (uint32_t i = 0; i < external->sheetCount; i++) {
    if (EqualTextNoCase(external->sheetNames[i], sheetName)) {
      *nameIndex = static_cast<int16_t>(i);
      return 1;
    }
  }
  if (external->sheetCount >= MaxSheets) return 0;
  char16_t* copy = TextDuplicate(sheetName);
  if (!copy) return 0;
  if (!GrowByOne(&external->sheetNames, external->sheetCount)) {
    Release(copy);
    return 0;
  }
  external->sheetNames[external->sheetCount] = copy;
  *nameIndex = static_cast<int16_t>(external->sheetCount++);
  return 1;
}

int FindOrAddExternalName(uint32_t book, uint32_t externalBook, const char16_t* name,
                          uint16_t field, uint32_t* index) {
  ExternalBook* external = &GetWorkbook(book)->externalBooks[externalBook];
  for (uint32_t i = 0; i < external->nameCount; i++) {
    const ExternalName* have = &external->names[i];
    if (have->field == field && have->text && EqualTextNoCase(have->text, name)) {
      *index = i;
      return 1;
    }
  }
  char16_t* copy = TextDuplicate(name);
  if (!copy) return 0;
  if (!GrowByOne(&external->names, external->nameCount)) {
    Release(copy);
    return 0;
  }
  external->names[external->nameCount] = ExternalName{copy, field};
  *index = external->nameCount++;
  return 1;
}

static int FindOrAddOtherBook(Workbook* wb, const char16_t* targetPath, uint32_t* index) {
  const char16_t* leaf = LeafName(targetPath);
  for (uint32_t i = 0; i < wb->externalBookCount; i++) {
    const ExternalBook* external = &wb->externalBooks[i];
    if (external->kind == ExternalOtherFile && EqualTextNoCase(LeafName(external->path), leaf)) {
      *index = i;
      return 1;
    }
  }
  char16_t* encoded = TextDuplicate(targetPath ? targetPath : u"");
  if (!encoded) return 0;
  for (char16_t* p = encoded; *p; p++) {
    if (*p == u'\\') *p = EncodedSeparator;
  }
  if (AddExternalBook(wb, ExternalOtherFile, encoded, index)) return 1;
  Release(encoded);
  return 0;
}

// Turns a sheet of the target workbook into an index of the book entry's sheet-name list, adding
// the name when the list lacks it. NoSheet passes through unchanged.
static int FindOrAddSheetName(uint32_t fromBook, uint32_t externalBook, uint32_t targetBook,
                              int32_t sheet, int16_t* nameIndex) {
  if (sheet == NoSheet) {
    *nameIndex = NoSheet;
    return 1;
  }
  const Workbook* target = GetWorkbook(targetBook);
  if (sheet < 0 || static_cast<uint32_t>(sheet) >= target->sheetCount) return 0;
  return FindOrAddExternalSheet(fromBook, externalBook, target->sheets[sheet]->name, nameIndex);
}

int FindOrAddSheetLink(uint32_t book, int16_t externalBook, int16_t firstSheet, int16_t lastSheet,
                       int32_t* linkIndex) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->sheetLinkCount; i++) {
    const SheetLink* have = &wb->sheetLinks[i];
    if (have->bookIndex == externalBook && have->firstSheet == firstSheet &&
        have->lastSheet == lastSheet) {
      *linkIndex = static_cast<int32_t>(i);
      return 1;
    }
  }
  if (!GrowByOne(&wb->sheetLinks, wb->sheetLinkCount)) return 0;
  wb->sheetLinks[wb->sheetLinkCount] = SheetLink{externalBook, firstSheet, lastSheet};
  *linkIndex = static_cast<int32_t>(wb->sheetLinkCount++);
  return 1;
}

int FindOrAddLink(const LinkRequest* req, int32_t* linkIndex) {
  if (req->fromBook >= App.workbookCount || req->targetBook >= App.workbookCount) return 0;
  Workbook* wb = GetWorkbook(req->fromBook);
  uint32_t bookIndex = 0;
  SheetLink link{};
  if (req->fromBook == req->targetBook) {
    if (!FindOrAddExternalBook(req->fromBook, ExternalSelf, nullptr, &bookIndex)) return 0;
    link.firstSheet = static_cast<int16_t>(req->firstSheet);
    link.lastSheet = static_cast<int16_t>(req->lastSheet);
  } else {
    if (!FindOrAddOtherBook(wb, GetWorkbook(req->targetBook)->path, &bookIndex)) return 0;
    if (!FindOrAddSheetName(req->fromBook, bookIndex, req->targetBook, req->firstSheet,
                            &link.firstSheet) ||
        !FindOrAddSheetName(req->fromBook, bookIndex, req->targetBook, req->lastSheet,
                            &link.lastSheet)) {
      return 0;
    }
  }
  link.bookIndex = static_cast<int16_t>(bookIndex);
  return FindOrAddSheetLink(req->fromBook, link.bookIndex, link.firstSheet, link.lastSheet,
                            linkIndex);
}

int ContextSheetLink(const EvalContext* ctx, int32_t* linkIndex) {
  LinkRequest request{ctx->book, ctx->book, static_cast<int32_t>(ctx->sheet),
                      static_cast<int32_t>(ctx->sheet)};
  return FindOrAddLink(&request, linkIndex);
}

static int SelfSheetIsValid(const Workbook* wb, int16_t sheet) {
  if (sheet == NoSheet) return 1;
  return sheet >= 0 && static_cast<uint32_t>(sheet) < wb->sheetCount;
}

// Looks a sheet of the external book up by name in the workbook that now serves it.
static int SheetOfLinkedBook(const ExternalBook* external, uint32_t book, int16_t nameIndex,
                             int32_t* sheet) {
  if (nameIndex == NoSheet) {
    *sheet = NoSheet;
    return 1;
  }
  if (nameIndex < 0 || static_cast<uint32_t>(nameIndex) >= external->sheetCount) return 0;
  *sheet = FindSheetByName(book, external->sheetNames[nameIndex]);
  return *sheet >= 0;
}

bool IsSelfLink(uint32_t book, uint32_t link) {
  const Workbook* wb = GetWorkbook(book);
  if (link >= wb->sheetLinkCount) return false;
  int16_t external = wb->sheetLinks[link].bookIndex;
  return external >= 0 && static_cast<uint32_t>(external) < wb->externalBookCount &&
         wb->externalBooks[external].kind == ExternalSelf;
}

int ResolveLink(int32_t linkIndex, ResolvedLink* inOut) {
  if (inOut->fromBook >= App.workbookCount) return 0;
  const Workbook* wb = GetWorkbook(inOut->fromBook);
  if (linkIndex < 0 || static_cast<uint32_t>(linkIndex) >= wb->sheetLinkCount) return 0;
  SheetLink link = wb->sheetLinks[linkIndex];
  if (link.bookIndex < 0 || static_cast<uint32_t>(link.bookIndex) >= wb->externalBookCount) {
    return 0;
  }
  switch (wb->externalBooks[link.bookIndex].kind) {
    case ExternalSelf:
      if (!SelfSheetIsValid(wb, link.firstSheet) || !SelfSheetIsValid(wb, link.lastSheet)) {
        return 0;
      }
      inOut->book = inOut->fromBook;
      inOut->firstSheet = link.firstSheet;
      inOut->lastSheet = link.lastSheet;
      return 1;
    case ExternalUnused:
      if (App.currentBook >= App.workbookCount) return 0;
      inOut->book = App.currentBook;
      inOut->firstSheet = inOut->lastSheet =
          static_cast<int32_t>(GetWorkbook(App.currentBook)->currentSheet);
      return 1;
    case ExternalOtherFile: {
      uint32_t book = 0;
      if (!OpenLinkedBook(inOut->fromBook, &wb->externalBooks[link.bookIndex], &book)) return 0;
      // Loading may have moved the workbook array; the external book table itself stays put,
      // but reach it afresh all the same.
      const ExternalBook* external = &GetWorkbook(inOut->fromBook)->externalBooks[link.bookIndex];
      int32_t first = 0;
      int32_t last = 0;
      if (!SheetOfLinkedBook(external, book, link.firstSheet, &first) ||
          !SheetOfLinkedBook(external, book, link.lastSheet, &last)) {
        return 0;
      }
      inOut->book = book;
      inOut->firstSheet = first;
      inOut->lastSheet = last;
      return 1;
    }
    default:  // add-in functions have no book behind them
      return 0;
  }
}

static bool IsAbsolutePath(const char16_t* path) {
  return path[0] == u'\\' || path[0] == u'/' || (path[0] && path[1] == u':');
}

// Joins a relative path onto the directory of `base`, writing the relative part with the
// separator the base path uses, so the result reads as one path on either kind of system.
static char16_t* JoinToDirectoryOf(const char16_t* base, const char16_t* relative) {
  const char16_t* leaf = LeafName(base);
  uint32_t directoryLength = static_cast<uint32_t>(leaf - base);
  if (directoryLength == 0) return TextDuplicate(relative);
  char16_t separator = base[directoryLength - 1] == u'/' ? u'/' : u'\\';
  uint32_t relativeLength = TextLength(relative);
  auto* joined =
      static_cast<char16_t*>(Allocate((directoryLength + relativeLength + 1) * sizeof(char16_t)));
  if (!joined) return nullptr;
  std::memcpy(joined, base, directoryLength * sizeof(char16_t));
  for (uint32_t i = 0; i < relativeLength; i++) {
    char16_t c = relative[i];
    joined[directoryLength + i] = (c == u'\\' || c == u'/') ? separator : c;
  }
  return joined;
}

int OpenLinkedBook(uint32_t fromBook, const ExternalBook* external, uint32_t* book) {
  if (!external->path || !external->path[0]) return 0;
  char16_t* path = TextDuplicate(external->path);
  if (!path) return 0;
  for (char16_t* p = path; *p; p++) {
    if (*p == EncodedSeparator) *p = u'\\';
  }
  const char16_t* leaf = LeafName(path);
  for (uint32_t b = 0; b < App.workbookCount; b++) {
    if (EqualTextNoCase(LeafName(GetWorkbook(b)->path), leaf)) {
      Release(path);
      *book = b;
      return 1;
    }
  }
  if (!IsAbsolutePath(path) && fromBook < App.workbookCount) {
    char16_t* absolute = JoinToDirectoryOf(GetWorkbook(fromBook)->path, path);
    Release(path);
    if (!absolute) return 0;
    path = absolute;
  }
  int loaded = LoadWorkbookForLinks(path, book);
  Release(path);
  return loaded;
}

static void RaiseIfBehind(int16_t* sheet, uint32_t position) {
  if (*sheet >= 0 && static_cast<uint32_t>(*sheet) >= position) (*sheet)++;
}

void RenumberForInsertedSheet(uint32_t book, uint32_t position, int32_t kind) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->nameCount; i++) {
    uint16_t local = wb->names[i].localSheet;
    if (local != NameOfDeletedSheet && local > position) wb->names[i].localSheet++;
  }
  if (!(kind & SheetWithCells)) return;
  for (uint32_t i = 0; i < wb->sheetLinkCount; i++) {
    if (!IsSelfLink(book, i)) continue;
    SheetLink* link = &wb->sheetLinks[i];
    RaiseIfBehind(&link->firstSheet, position);
    RaiseIfBehind(&link->lastSheet, position);
  }
}

// A self link's end on the deleted sheet: the first end keeps its index, which now names the
// sheet that followed; the last end steps back to the one before. The caller handles a link
// wholly on the sheet.
static void LowerForDeleted(int16_t* sheet, uint32_t position, bool lastEnd) {
  if (*sheet < 0) return;
  uint32_t at = static_cast<uint32_t>(*sheet);
  if (at > position || (at == position && lastEnd)) (*sheet)--;
}

void RenumberForDeletedSheet(uint32_t book, uint32_t position, int32_t kind) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->nameCount; i++) {
    uint16_t* local = &wb->names[i].localSheet;
    if (*local == NameOfDeletedSheet || *local == 0) continue;
    if (*local == position + 1)
      *local = NameOfDeletedSheet;
    else if (*local > position + 1)
      (*local)--;
  }
  if (!(kind & SheetWithCells)) return;
  for (uint32_t i = 0; i < wb->sheetLinkCount; i++) {
    if (!IsSelfLink(book, i)) continue;
    SheetLink* link = &wb->sheetLinks[i];
    if (link->firstSheet == static_cast<int16_t>(position) &&
        link->lastSheet == static_cast<int16_t>(position)) {
      link->firstSheet = link->lastSheet = DeletedSheet;
      continue;
    }
    LowerForDeleted(&link->firstSheet, position, false);
    LowerForDeleted(&link->lastSheet, position, true);
  }
}
