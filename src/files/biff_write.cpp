// The BIFF writer's frame: the growing stream and its record helpers, texts in both versions, the
// order of the substreams (globals, then one per sheet, each sheet's BOF patched into its
// BOUNDSHEET), the calculation of dirty formulas before anything is written, and the compound
// file around the finished stream.
#include "files/biff_write.h"

#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "files/biff_internal.h"
#include "files/biff_read.h"
#include "files/biff_write_internal.h"
#include "files/compound.h"
#include "formula/recalc.h"
#include "model/workbook.h"

uint8_t* Reserve(BiffWriter* w, uint32_t count) {
  if (w->failed) return nullptr;
  if (w->size + count > w->capacity) {
    uint32_t step = w->capacity > 65536 ? w->capacity : 65536;
    if (!GrowArray(&w->bytes, &w->capacity, w->size + count, step)) {
      w->failed = true;
      return nullptr;
    }
  }
  uint8_t* p = w->bytes + w->size;
  w->size += count;
  return p;
}

uint8_t* BeginRecord(BiffWriter* w, uint16_t id, uint32_t length) {
  uint8_t* p = Reserve(w, 4 + length);
  if (!p) return nullptr;
  WriteU16(p, id);
  WriteU16(p + 2, static_cast<uint16_t>(length));
  return p + 4;
}

void WriteRecord(BiffWriter* w, uint16_t id, const void* body, uint32_t length) {
  if (uint8_t* p = BeginRecord(w, id, length)) std::memcpy(p, body, length);
}

void WriteEmptyRecord(BiffWriter* w, uint16_t id) {
  BeginRecord(w, id, 0);
}

void WriteSmallRecord(BiffWriter* w, uint16_t id, uint16_t word) {
  if (uint8_t* p = BeginRecord(w, id, 2)) WriteU16(p, word);
}

void WriteWordsRecord(BiffWriter* w, uint16_t id, uint16_t first, uint16_t second) {
  if (uint8_t* p = BeginRecord(w, id, 4)) {
    WriteU16(p, first);
    WriteU16(p + 2, second);
  }
}

void WriteDoubleRecord(BiffWriter* w, uint16_t id, double value) {
  if (uint8_t* p = BeginRecord(w, id, 8)) WriteDouble(p, value);
}

void WriteLongRecord(BiffWriter* w, uint16_t id, const uint8_t* body, uint32_t length) {
  uint32_t limit = w->version >= 8 ? Biff8RecordLimit : Biff5RecordLimit;
  uint32_t piece = length < limit ? length : limit;
  WriteRecord(w, id, body, piece);
  for (uint32_t at = piece; at < length; at += piece) {
    piece = length - at < limit ? length - at : limit;
    WriteRecord(w, BiffContinue, body + at, piece);
  }
}

void WriteBof(BiffWriter* w, uint16_t type) {
  if (w->version >= 8) {
    if (uint8_t* p = BeginRecord(w, 0x0809, 16)) {
      WriteU16(p, 0x0600);
      WriteU16(p + 2, type);
      WriteU16(p + 4, 0x15F2);
      WriteU16(p + 6, 0x07CC);
      WriteU32(p + 8, 0x49);
      WriteU32(p + 12, 6);
    }
    return;
  }
  // Excel 95 marks its globals 0x0500 and every other substream 0x0600.
  if (uint8_t* p = BeginRecord(w, 0x0809, 8)) {
    WriteU16(p, type == 5 ? 0x0500 : 0x0600);
    WriteU16(p + 2, type);
    WriteU16(p + 4, 0x1AA2);
    WriteU16(p + 6, 0x07CC);
  }
}

bool TextIsNarrow(const char16_t* text, uint32_t length) {
  for (uint32_t i = 0; i < length; i++)
    if (text[i] > 0xFF) return false;
  return true;
}

uint32_t Biff8StringSize(const char16_t* text, uint32_t length) {
  return 1 + (TextIsNarrow(text, length) ? length : 2 * length);
}

void PutBiff8Chars(uint8_t* p, const char16_t* text, uint32_t length, bool wide) {
  if (wide)
    for (uint32_t i = 0; i < length; i++) WriteU16(p + 2 * i, text[i]);
  else
    for (uint32_t i = 0; i < length; i++) p[i] = static_cast<uint8_t>(text[i]);
}

uint32_t PutBiff8String(uint8_t* p, const char16_t* text, uint32_t length) {
  bool narrow = TextIsNarrow(text, length);
  p[0] = narrow ? 0 : 1;
  PutBiff8Chars(p + 1, text, length, !narrow);
  return 1 + (narrow ? length : 2 * length);
}

uint32_t NarrowText(BiffWriter* w, const char16_t* text, uint32_t length, uint8_t* out,
                    uint32_t limit) {
  uint32_t n = 0;
  for (uint32_t i = 0; i < length; i++) {
    uint8_t pair[2];
    uint32_t count = EncodeChar(&w->page, text[i], pair);
    if (n + count > limit) break;
    std::memcpy(out + n, pair, count);
    n += count;
  }
  return n;
}

void WriteStringRecord(BiffWriter* w, uint16_t id, const uint8_t* head, uint32_t headLength,
                       const char16_t* text, uint32_t length) {
  if (w->version < 8) {
    uint8_t body[16 + Biff5TextLimit * 2];
    if (headLength) std::memcpy(body, head, headLength);
    uint32_t kept = length > Biff5TextLimit ? Biff5TextLimit : length;
    if (kept < length) w->report.textsShortened++;
    uint32_t n = NarrowText(w, text, kept, body + headLength + 2, Biff5TextLimit);
    WriteU16(body + headLength, static_cast<uint16_t>(n));
    WriteRecord(w, id, body, headLength + 2 + n);
    return;
  }
  bool narrow = TextIsNarrow(text, length);
  uint32_t width = narrow ? 1 : 2;
  // The first record: the head, the length, the option byte and as many characters as fit.
  uint32_t room = (Biff8RecordLimit - headLength - 3) / width;
  uint32_t chars = length < room ? length : room;
  uint8_t* p = BeginRecord(w, id, headLength + 3 + chars * width);
  if (!p) return;
  if (headLength) std::memcpy(p, head, headLength);
  WriteU16(p + headLength, static_cast<uint16_t>(length));
  p[headLength + 2] = narrow ? 0 : 1;
  PutBiff8Chars(p + headLength + 3, text, chars, !narrow);
  for (uint32_t at = chars; at < length; at += chars) {
    room = (Biff8RecordLimit - 1) / width;
    chars = length - at < room ? length - at : room;
    p = BeginRecord(w, BiffContinue, 1 + chars * width);
    if (!p) return;
    p[0] = narrow ? 0 : 1;
    PutBiff8Chars(p + 1, text + at, chars, !narrow);
  }
}

int EncodeRk(double x, uint32_t* rk) {
  uint64_t bits;
  std::memcpy(&bits, &x, 8);
  uint32_t candidates[4];
  int modes[4];
  int n = 0;
  auto integer = [](double v, uint32_t* out) {
    if (!(v >= -536870912.0 && v < 536870912.0)) return false;
    int32_t i = static_cast<int32_t>(v);
    if (static_cast<double>(i) != v) return false;
    *out = static_cast<uint32_t>(i) << 2 | 2;
    return true;
  };
  auto highOnly = [](double v, uint32_t* out) {
    uint64_t b;
    std::memcpy(&b, &v, 8);
    if ((b & 0x3FFFFFFFFull) != 0) return false;  // low word and two low bits of the high word
    *out = static_cast<uint32_t>(b >> 32);
    return true;
  };
  if (bits == 0) {
    *rk = 0;
    return 0;
  }
  uint32_t c;
  if (integer(x, &c)) candidates[n] = c, modes[n++] = 2;
  if (highOnly(x, &c)) candidates[n] = c, modes[n++] = 0;
  double hundred = x * 100;
  if (integer(hundred, &c)) candidates[n] = c | 1, modes[n++] = 3;
  if (highOnly(hundred, &c)) candidates[n] = c | 1, modes[n++] = 1;
  // Only a form that reads back to the very same double is taken.
  for (int i = 0; i < n; i++) {
    double back = DecodeRk(candidates[i]);
    if (std::memcmp(&back, &x, 8) == 0) {
      *rk = candidates[i];
      return modes[i];
    }
  }
  return -1;
}

// Formulas whose values are out of date are worked out before their values are written.
static void CalculateDirtyCells(uint32_t book) {
  for (uint32_t s = 0; s < GetWorkbook(book)->sheetCount; s++) {
    Sheet* sheet = GetSheet(book, s);
    if (sheet->kind != SheetWorksheet) continue;
    for (uint32_t i = 0; i < sheet->cells.count; i++) {
      Cell* cell = sheet->cells.cells[i];
      if (cell->formula.bytes && cell->state == CellDirty) CalculateCell(book, s, cell);
    }
  }
}

// True when every character of `text` has a form in the code page.
static bool PageHolds(CodePage* page, const char16_t* text) {
  for (; text && *text; text++) {
    uint8_t bytes[2];
    if (EncodeChar(page, *text, bytes) == 1 && bytes[0] == '?' && *text != u'?') return false;
  }
  return true;
}

static bool PageHoldsWorkbook(CodePage* page, uint32_t book) {
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->fontCount; i++)
    if (!PageHolds(page, wb->fonts[i].faceName)) return false;
  for (uint32_t i = 0; i < wb->numberFormatCount; i++)
    if (!PageHolds(page, wb->numberFormats[i].code)) return false;
  for (uint32_t i = 0; i < wb->nameCount; i++)
    if (!PageHolds(page, wb->names[i].name)) return false;
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    const Sheet* sheet = wb->sheets[s];
    if (!PageHolds(page, sheet->name)) return false;
    for (uint32_t i = 0; i < sheet->cells.count; i++) {
      const Cell* c = sheet->cells.cells[i];
      if (c->value.tag == ValueText && !PageHolds(page, c->value.text)) return false;
    }
  }
  return true;
}

// The code page of an Excel 95 save: the workbook's own when it holds every text of the
// workbook, else the first of the common Windows code pages that does, else the workbook's (or
// the system's, for a workbook read from Unicode) with what it cannot hold written as "?".
static int OpenSaveCodePage(uint32_t book, CodePage* page) {
  uint32_t own = GetWorkbook(book)->codePage;
  if (own == 1200 || own == 0) own = AnsiCodePage;
  static const uint16_t common[] = {1252, 1250, 1251, 1253, 1254, 1255,
                                    1256, 1257, 932,  936,  949,  950};
  uint32_t candidates[1 + sizeof common / sizeof common[0]];
  uint32_t count = 0;
  candidates[count++] = own;
  for (uint16_t number : common)
    if (number != own) candidates[count++] = number;
  for (uint32_t i = 0; i < count; i++) {
    if (!OpenCodePage(candidates[i], page)) return 0;
    if (page->number == candidates[i] && PageHoldsWorkbook(page, book)) return 1;
    CloseCodePage(page);
  }
  return OpenCodePage(own, page);
}

static void WriteChartSubstream(BiffWriter* w) {
  // The chart model holds nothing to write yet: the substream keeps the sheet in its place.
  WriteBof(w, 0x20);
}

int BuildBiffStream(uint32_t book, uint8_t version, uint8_t** bytes, uint32_t* size,
                    BiffSaveReport* report) {
  *bytes = nullptr;
  *size = 0;
  CalculateDirtyCells(book);
  BiffWriter w{};
  w.book = book;
  w.version = version >= 8 ? 8 : 7;
  const Workbook* wb = GetWorkbook(book);
  if (w.version >= 8 ? !OpenCodePage(AnsiCodePage, &w.page) : !OpenSaveCodePage(book, &w.page))
    return 0;
  w.codePage = static_cast<uint16_t>(w.version >= 8 && wb->codePage ? wb->codePage : w.page.number);
  uint32_t sheetCount = wb->sheetCount;
  w.sheetOffsetPositions = static_cast<uint32_t*>(Allocate(sheetCount * sizeof(uint32_t)));
  w.failed = !w.sheetOffsetPositions || (w.version < 8 && !BuildExternList(&w));
  if (!w.failed) WriteGlobals(&w);
  for (uint32_t s = 0; s < sheetCount && !w.failed; s++) {
    WriteU32(w.bytes + w.sheetOffsetPositions[s], w.size);
    const Sheet* sheet = GetSheet(book, s);
    if (SheetHasCells(sheet)) {
      WriteSheetSubstream(&w, s);
    } else if (sheet->kind == SheetChart) {
      WriteChartSubstream(&w);
    } else {
      WriteBof(&w, sheet->kind == SheetModule ? 0x06 : 0x10);
    }
    WriteEmptyRecord(&w, BiffEof);
  }
  FreeSst(&w.sst);
  FreeExternList(&w);
  Release(w.sheetOffsetPositions);
  CloseCodePage(&w.page);
  if (report) *report = w.report;
  if (w.failed) {
    Release(w.bytes);
    return 0;
  }
  *bytes = w.bytes;
  *size = w.size;
  return 1;
}

static BiffSaveReport lastReport;

const BiffSaveReport* LastBiffSaveReport() {
  return &lastReport;
}

int WriteXlsFile(FILE* file, uint32_t book, BiffSaveReport* report) {
  uint8_t version = GetWorkbook(book)->biffVersion == 7 ? 7 : 8;
  uint8_t* bytes;
  uint32_t size;
  lastReport = BiffSaveReport{};
  if (!BuildBiffStream(book, version, &bytes, &size, &lastReport)) return 0;
  if (report) *report = lastReport;
  static const char16_t* const names[] = {nullptr, u"\x05SummaryInformation",
                                          u"\x05DocumentSummaryInformation"};
  const char16_t* streams[3] = {version >= 8 ? u"Workbook" : u"Book", names[1], names[2]};
  CompoundWriter* writer = static_cast<CompoundWriter*>(Allocate(sizeof(CompoundWriter)));
  int begun = writer && BeginCompoundFile(writer, file, streams, 3);
  int ok = begun && BeginCompoundStream(writer, 0);
  if (ok) {
    CompoundWrite(writer, bytes, size);
    EndCompoundStream(writer);
  }
  if (begun) ok = EndCompoundFile(writer) && ok;
  Release(writer);
  Release(bytes);
  return ok;
}
