// The BIFF reader's walk over the stream: the substreams one after another (the globals, then
// one per sheet in BOUNDSHEET order), each record dispatched through the tables of the parts,
// substreams nested in a sheet (embedded charts) skipped whole, and the end of the load.
#include "files/biff_read.h"

#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/message.h"
#include "base/text.h"
#include "files/biff_internal.h"
#include "files/compound.h"
#include "model/load.h"
#include "model/workbook.h"

static bool IsBof(uint16_t id) {
  return id == 0x0009 || id == 0x0209 || id == 0x0409 || id == 0x0809;
}

enum SubstreamType : uint16_t {
  SubstreamGlobals = 0x0005,
  SubstreamModule = 0x0006,
  SubstreamWorksheet = 0x0010,
  SubstreamChart = 0x0020,
  SubstreamMacro = 0x0040,
};

static RecordHandler FindHandler(const RecordEntry* table, uint32_t count, uint16_t id) {
  for (uint32_t i = 0; i < count; i++)
    if (table[i].id == id) return table[i].handler;
  return nullptr;
}

// Skips records up to the EOF that closes the substream whose BOF was just read, nested ones
// included. Returns 0 when the stream ends first.
// The reason a substream ended without its EOF.
static int EndedEarly(BiffLoad* load) {
  return Fail(load, load->cursor.truncated ? "the last record runs past the end of the stream"
                                           : "the stream ends inside a substream");
}

static int SkipSubstream(BiffLoad* load) {
  uint32_t depth = 1;
  BiffRecord record;
  while (NextRecord(&load->cursor, &record)) {
    if (IsBof(record.id)) {
      depth++;
    } else if (record.id == BiffEof && --depth == 0) {
      return 1;
    }
  }
  return EndedEarly(load);
}

struct Dispatch {
  const RecordEntry* table;
  uint32_t count;
};

// Reads records up to the EOF of the substream, dispatching each through the tables. A BOF
// inside starts a nested substream, which is skipped whole.
static int RunSubstream(BiffLoad* load, const Dispatch* tables, uint32_t tableCount) {
  BiffRecord record;
  while (NextRecord(&load->cursor, &record)) {
    if (record.id == BiffEof) return 1;
    if (IsBof(record.id)) {
      if (!SkipSubstream(load)) return 0;
      continue;
    }
    RecordHandler handler = nullptr;
    for (uint32_t t = 0; t < tableCount && !handler; t++)
      handler = FindHandler(tables[t].table, tables[t].count, record.id);
    load->recordOffset = record.offset;
    if (handler && !handler(load, &record)) return 0;
  }
  return EndedEarly(load);
}

static int ReadGlobals(BiffLoad* load) {
  static const Dispatch tables[] = {{GlobalRecords, GlobalRecordCount},
                                    {StyleRecords, StyleRecordCount}};
  if (!RunSubstream(load, tables, 2)) return 0;
  if (load->version < 8) FixUpNameSheets(load);
  return 1;
}

static void ReleaseArrayTokens(Sheet* s) {
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++) FreeTokens(&s->arrayFormulas[i].formula);
}

static int ReadSheet(BiffLoad* load, uint32_t sheet, int32_t kind) {
  static const Dispatch tables[] = {{CellRecords, CellRecordCount},
                                    {SheetRecords, SheetRecordCount}};
  Sheet* s = GetSheet(load->book, sheet);
  s->kind = kind;
  load->sheet = static_cast<int32_t>(sheet);
  load->stringPending = false;
  int ok = kind == SheetChart ? SkipSubstream(load) : RunSubstream(load, tables, 2);
  // Each array cell holds its own copy of the formula, so the block's tokens go.
  ReleaseArrayTokens(GetSheet(load->book, sheet));
  FreeSharedFormulas(load);
  load->sheet = -1;
  return ok;
}

static int32_t KindOfSubstream(uint16_t type) {
  switch (type) {
    case SubstreamWorksheet:
      return SheetWorksheet;
    case SubstreamMacro:
      return SheetMacro;
    case SubstreamModule:
      return SheetModule;
    case SubstreamChart:
      return SheetChart;
    default:
      return 0;
  }
}

static int ReadSubstreams(BiffLoad* load) {
  bool globals = false;
  uint32_t sheetsRead = 0;
  BiffRecord record;
  while (NextRecord(&load->cursor, &record)) {
    if (!IsBof(record.id)) continue;
    if (record.length < 4) return Fail(load, "a BOF record is too short");
    uint16_t version = ReadU16(record.body), type = ReadU16(record.body + 2);
    if (!globals) {
      // Older streams hold one sheet and no globals: this program reads none of them.
      if (type != SubstreamGlobals) {
        load->failureAsIs = true;
        return Fail(load, "Workbook not found in file");
      }
      load->version = record.id != 0x0809 || (version >> 8) == 5 ? 7 : 8;
      GetWorkbook(load->book)->biffVersion = load->version;
      if (!ReadGlobals(load)) return 0;
      load->globalExternSheets = load->externSheets;
      load->globalExternSheetCount = load->externSheetCount;
      load->externSheets = nullptr;
      load->externSheetCount = 0;
      globals = true;
    } else if (int32_t kind = KindOfSubstream(type)) {
      if (sheetsRead >= load->sheetCount) return 1;
      if (!ReadSheet(load, sheetsRead++, kind)) return 0;
      FreeExternSheets(load);
    } else if (!SkipSubstream(load)) {
      return 0;
    }
    if (sheetsRead == load->sheetCount) return 1;
  }
  if (load->cursor.truncated) return Fail(load, "the last record runs past the end of the stream");
  return 1;
}

static void TellFailure(const BiffLoad* load) {
  if (load->failureTold) return;
  if (load->failureAsIs) {
    char16_t* text = Utf8ToText(load->failure);
    if (text) ShowMessage(text, MessageOk | MessageError);
    Release(text);
    return;
  }
  char message[256];
  std::snprintf(message, sizeof message, "The file is damaged: %s (record at byte %zu).",
                load->failure, load->recordOffset);
  char16_t* text = Utf8ToText(message);
  if (text) ShowMessage(text, MessageOk | MessageError);
  Release(text);
}

int ReadBiffWorkbook(uint32_t book, const uint8_t* stream, size_t size) {
  BiffLoad load{};
  load.book = book;
  load.version = 8;
  if (!OpenCodePage(GetWorkbook(book)->codePage, &load.page)) return 0;
  load.cursor = BiffCursor{stream, size, 0, false};
  load.sheet = -1;
  load.lastExternalBook = -1;
  int ok = ReadSubstreams(&load);
  FreeBiffLoad(&load);
  if (!FinishLoad(book)) ok = ok ? FailOutOfMemory(&load) : 0;
  Workbook* wb = GetWorkbook(book);
  if (ok && load.activeTab < wb->sheetCount) wb->currentSheet = load.activeTab;
  if (!ok) TellFailure(&load);
  return ok;
}

int ReadXlsFile(uint32_t book, const uint8_t* bytes, size_t size) {
  static const uint8_t signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
  if (size < sizeof signature || std::memcmp(bytes, signature, sizeof signature) != 0) {
    ShowMessage(u"Workbook not found in file", MessageOk | MessageError);
    return 0;
  }
  CompoundFile compound;
  if (!OpenCompoundBytes(&compound, bytes, size)) return 0;
  // The workbook stream is read where it lies in the file's bytes when it is one run of sectors,
  // which saves a copy of a stream that may be tens of megabytes; else a copy is read out.
  int32_t entry = FindCompoundStream(&compound, u"Workbook");
  if (entry < 0) entry = FindCompoundStream(&compound, u"Book");
  uint32_t streamSize = 0;
  const uint8_t* data = entry >= 0 ? CompoundStreamInPlace(&compound, entry, &streamSize) : nullptr;
  CompoundStream stream{};
  int ok = 1;
  if (!data) {
    ok = ReadWorkbookStream(&compound, &stream) != 0;
    data = stream.data;
    streamSize = stream.size;
  }
  CloseCompound(&compound);
  if (ok) ok = ReadBiffWorkbook(book, data, streamSize);
  ReleaseCompoundStream(&stream);
  return ok;
}
