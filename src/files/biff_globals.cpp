// The workbook globals of a BIFF stream that are not styles: sheets (BOUNDSHEET), the shared
// string table, defined names, the link tables (SUPBOOK, EXTERNSHEET, EXTERNNAME), the date
// system, window options, the code page and the refusal of encrypted files.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/biff_internal.h"
#include "files/code_page.h"
#include "model/names.h"
#include "model/workbook.h"

static int ReadBoundSheet(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  SkipBytes(&body, 4);  // the offset: substreams are taken in the order they come
  uint8_t hidden = ReadByte(&body) & 3;
  uint8_t type = ReadByte(&body);
  uint8_t count = ReadByte(&body);
  char16_t* name = ReadBiffString(load, &body, count);
  if (!name) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
  int32_t kind = type == 0   ? SheetWorksheet
                 : type == 1 ? SheetMacro
                 : type == 2 ? SheetChart
                             : SheetModule;
  uint32_t book = load->book;
  // The first sheet is the one the new workbook already has.
  if (load->sheetCount > 0 && !InsertSheet(book, load->sheetCount, name, kind, 0, 0)) {
    Release(name);
    return FailOutOfMemory(load);
  }
  Sheet* s = GetSheet(book, load->sheetCount);
  if (name[0]) TextCopy(s->name, SheetNameCapacity, name);
  Release(name);
  s->kind = kind;
  s->hidden = hidden;
  if (kind == SheetMacro) s->flags |= SheetShowFormulas;
  load->sheetCount++;
  return 1;
}

static int ReadSst(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record, &load->cursor);
  ReadLong(&body);
  uint32_t unique = ReadLong(&body);
  if (body.overrun) return EndRecord(load, &body);
  // Strings are counted as they are read, never trusted from the header: a damaged count cannot
  // make the table larger than the stream.
  while (load->sstCount < unique) {
    if (BytesLeft(&body) == 0 && !NextContinue(&body)) break;
    uint16_t count = ReadWord(&body);
    char16_t* text = ReadBiffString(load, &body, count);
    if (!text) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
    if (load->sstCount == load->sstCapacity) {
      uint32_t step = load->sstCapacity ? load->sstCapacity : 64;
      if (!GrowArray(&load->sst, &load->sstCapacity, load->sstCount + 1, step)) {
        Release(text);
        return FailOutOfMemory(load);
      }
    }
    load->sst[load->sstCount++] = text;
  }
  return 1;
}

static int ReadDateSystem(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  GetWorkbook(load->book)->date1904 = ReadWord(&body) != 0;
  return EndRecord(load, &body);
}

static int ReadWindow1(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  SkipBytes(&body, 8);
  uint16_t flags = ReadWord(&body);
  load->activeTab = ReadWord(&body);
  Workbook* wb = GetWorkbook(load->book);
  wb->showSheetTabs = (flags >> 5) & 1;
  wb->showVerticalScrollBar = (flags >> 4) & 1;
  wb->showHorizontalScrollBar = (flags >> 3) & 1;
  return EndRecord(load, &body);
}

static int ReadCodePage(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t codePage = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  Workbook* wb = GetWorkbook(load->book);
  wb->codePage = wb->fileCodePage = codePage;
  // Older files name windows-1252 and Mac Roman by numbers of their own.
  uint32_t number = codePage == 32769 ? 1252 : codePage == 32768 ? 10000 : codePage;
  CodePage page;
  if (!OpenCodePage(number, &page)) return FailOutOfMemory(load);
  CloseCodePage(&load->page);
  load->page = page;
  return 1;
}

static int RefuseEncrypted(BiffLoad* load, const BiffRecord*) {
  load->failureAsIs = true;
  return Fail(load, "Le fichier est protégé par un mot de passe");
}

// NAME: option word, key byte, name length, token length, the sheet words, four lengths of
// texts for menus and help; then the name and the tokens, whose extra data runs to the end.
static int ReadName(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t options = ReadWord(&body);
  uint8_t key = ReadByte(&body);
  uint8_t nameLength = ReadByte(&body);
  uint16_t tokenLength = ReadWord(&body);
  uint16_t externSheet = ReadWord(&body);
  uint16_t localSheet = ReadWord(&body);
  SkipBytes(&body, 4);
  char16_t* text = ReadBiffString(load, &body, nameLength);
  if (!text) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
  if ((options & 0x20) && text[0] < BuiltInNameCount) {
    char16_t* builtIn = TextDuplicate(BuiltInNames[text[0]]);
    Release(text);
    if (!builtIn) return FailOutOfMemory(load);
    text = builtIn;
  }
  DefinedName name{};
  name.options = options & ~0x20u;
  name.keyCode = key;
  name.localSheet = localSheet;
  name.name = text;
  uint32_t rest = BytesLeft(&body);
  if (tokenLength > 0) {
    if (rest < tokenLength) {
      Release(text);
      return Fail(load, "a name's formula runs past its record");
    }
    const uint8_t* bytes = ReadBytes(&body, rest);
    name.formula.bytes = static_cast<uint8_t*>(Allocate(rest));
    if (!name.formula.bytes) {
      Release(text);
      return FailOutOfMemory(load);
    }
    std::memcpy(name.formula.bytes, bytes, rest);
    name.formula.length = tokenLength;
    name.formula.extraLength = static_cast<uint16_t>(rest - tokenLength);
    const char* why = nullptr;
    if ((load->version < 8 && !UpgradeTokens(load, &name.formula)) ||
        !ValidateTokens(&name.formula, TokensForName, &why)) {
      FreeTokens(&name.formula);
      Release(text);
      return load->failure ? 0 : Fail(load, why ? why : "a name's formula is malformed");
    }
  }
  if (!AddName(load->book, &name, nullptr)) {
    FreeTokens(&name.formula);
    Release(text);
    return FailOutOfMemory(load);
  }
  if (load->version < 8) {
    uint16_t* sheet = AppendEntry(&load->nameSheets, &load->nameSheetCount);
    if (!sheet) return FailOutOfMemory(load);
    *sheet = externSheet;
  }
  return 1;
}

void FixUpNameSheets(BiffLoad* load) {
  Workbook* wb = GetWorkbook(load->book);
  for (uint32_t i = 0; i < load->nameSheetCount && i < wb->nameCount; i++) {
    uint16_t entry = load->nameSheets[i];
    if (entry == 0 || entry > load->externSheetCount) continue;
    const char16_t* sheetName = load->externSheets[entry - 1].name;
    if (!sheetName) continue;
    if (sheetName[0] && sheetName[0] < 0x20) sheetName++;  // the encoding mark
    int32_t sheet = FindSheetByName(load->book, sheetName);
    if (sheet >= 0) GetWorkbook(load->book)->names[i].localSheet = static_cast<uint16_t>(sheet + 1);
  }
}

// EXTERNSHEET of a BIFF8 file: the XTI table over the SUPBOOK entries.
static int ReadSheetLinks(BiffLoad* load, BiffBody* body) {
  Workbook* wb = GetWorkbook(load->book);
  uint16_t count = ReadWord(body);
  for (uint32_t i = 0; i < count && !body->overrun; i++) {
    SheetLink link;
    link.bookIndex = static_cast<int16_t>(ReadWord(body));
    link.firstSheet = static_cast<int16_t>(ReadWord(body));
    link.lastSheet = static_cast<int16_t>(ReadWord(body));
    if (body->overrun) break;
    SheetLink* added = AppendEntry(&wb->sheetLinks, &wb->sheetLinkCount);
    if (!added) return FailOutOfMemory(load);
    *added = link;
  }
  return EndRecord(load, body);
}

// EXTERNSHEET of a BIFF5 file: one entry of the list the tokens count in.
static int ReadExternSheetEntry(BiffLoad* load, BiffBody* body) {
  uint32_t length = ReadByte(body);
  const uint8_t* first = body->bytes + body->position;
  if (BytesLeft(body) && first[0] == 3) length++;
  if (length > BytesLeft(body)) length = BytesLeft(body);
  ExternSheetEntry entry{};
  if (length == 1) {
    uint8_t mark = first[0];
    entry.kind = mark == 0      ? ExternalUnused
                 : mark == 4    ? ExternalSelf
                 : mark == 0x3A ? ExternalAddIn
                                : ExternalOtherFile;
  }
  if (entry.kind == ExternalOtherFile) {
    entry.name = DecodeBytes(&load->page, first, length);
    if (!entry.name) return FailOutOfMemory(load);
  }
  ExternSheetEntry* added = AppendEntry(&load->externSheets, &load->externSheetCount);
  if (!added) {
    Release(entry.name);
    return FailOutOfMemory(load);
  }
  *added = entry;
  return 1;
}

int ReadExternSheet(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record, &load->cursor);
  if (load->version >= 8) return load->sheet < 0 ? ReadSheetLinks(load, &body) : 1;
  return ReadExternSheetEntry(load, &body);
}

// SUPBOOK: one external book entry, in file order, since the XTI entries count them.
static int ReadSupBook(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record, &load->cursor);
  uint16_t sheetCount = ReadWord(&body);
  uint16_t marker = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  Workbook* wb = GetWorkbook(load->book);
  ExternalBook* external = AppendEntry(&wb->externalBooks, &wb->externalBookCount);
  if (!external) return FailOutOfMemory(load);
  *external = ExternalBook{};
  load->lastExternalBook = static_cast<int32_t>(wb->externalBookCount - 1);
  if (marker == 0x0401) {
    external->kind = ExternalSelf;
    return 1;
  }
  if (marker == 0x3A01) {
    external->kind = ExternalAddIn;
    return 1;
  }
  if (marker == 1 && sheetCount == 0) {
    external->kind = ExternalUnused;
    return 1;
  }
  external->kind = ExternalOtherFile;
  external->path = ReadBiffString(load, &body, marker);
  if (!external->path) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
  for (uint32_t i = 0; i < sheetCount; i++) {
    uint16_t length = ReadWord(&body);
    char16_t* sheetName = ReadBiffString(load, &body, length);
    if (!sheetName) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
    external = &GetWorkbook(load->book)->externalBooks[load->lastExternalBook];
    char16_t** slot = AppendEntry(&external->sheetNames, &external->sheetCount);
    if (!slot) {
      Release(sheetName);
      return FailOutOfMemory(load);
    }
    *slot = sheetName;
  }
  return EndRecord(load, &body);
}

// EXTERNNAME: a name of the last external book (BIFF8) or EXTERNSHEET entry (BIFF5). What
// follows the name (a formula or DDE values) is not kept.
int ReadExternName(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  ReadWord(&body);  // options
  uint16_t field = ReadWord(&body);
  SkipBytes(&body, 2);
  uint8_t length = ReadByte(&body);
  char16_t* text = ReadBiffString(load, &body, length);
  if (!text) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
  ExternalName* added = nullptr;
  if (load->version >= 8) {
    Workbook* wb = GetWorkbook(load->book);
    if (load->lastExternalBook >= 0 &&
        static_cast<uint32_t>(load->lastExternalBook) < wb->externalBookCount) {
      ExternalBook* external = &wb->externalBooks[load->lastExternalBook];
      added = AppendEntry(&external->names, &external->nameCount);
      if (!added) {
        Release(text);
        return FailOutOfMemory(load);
      }
    }
  } else if (load->externSheetCount) {
    ExternSheetEntry* entry = &load->externSheets[load->externSheetCount - 1];
    added = AppendEntry(&entry->names, &entry->nameCount);
    if (!added) {
      Release(text);
      return FailOutOfMemory(load);
    }
  }
  if (!added) {
    Release(text);
    return 1;
  }
  *added = ExternalName{text, field};
  return 1;
}

static void FreeExternSheetList(ExternSheetEntry** list, uint32_t* count) {
  for (uint32_t i = 0; i < *count; i++) {
    ExternSheetEntry* e = &(*list)[i];
    Release(e->name);
    for (uint32_t n = 0; n < e->nameCount; n++) Release(e->names[n].text);
    Release(e->names);
  }
  Release(*list);
  *list = nullptr;
  *count = 0;
}

void FreeExternSheets(BiffLoad* load) {
  FreeExternSheetList(&load->externSheets, &load->externSheetCount);
}

void CurrentExternSheets(const BiffLoad* load, const ExternSheetEntry** list, uint32_t* count) {
  if (load->externSheetCount || load->sheet < 0) {
    *list = load->externSheets;
    *count = load->externSheetCount;
  } else {
    *list = load->globalExternSheets;
    *count = load->globalExternSheetCount;
  }
}

void FreeBiffLoad(BiffLoad* load) {
  for (uint32_t i = 0; i < load->sstCount; i++) Release(load->sst[i]);
  Release(load->sst);
  load->sst = nullptr;
  load->sstCount = load->sstCapacity = 0;
  FreeExternSheets(load);
  FreeExternSheetList(&load->globalExternSheets, &load->globalExternSheetCount);
  FreeSharedFormulas(load);
  Release(load->nameSheets);
  load->nameSheets = nullptr;
  load->nameSheetCount = 0;
  CloseCodePage(&load->page);
}

const RecordEntry GlobalRecords[] = {
    {0x0017, ReadExternSheet}, {0x0018, ReadName},       {0x0218, ReadName},
    {0x0022, ReadDateSystem},  {0x0023, ReadExternName}, {0x0223, ReadExternName},
    {0x002F, RefuseEncrypted}, {0x003D, ReadWindow1},    {0x0042, ReadCodePage},
    {0x0085, ReadBoundSheet},  {0x00FC, ReadSst},        {0x01AE, ReadSupBook},
};
const uint32_t GlobalRecordCount = sizeof GlobalRecords / sizeof GlobalRecords[0];
