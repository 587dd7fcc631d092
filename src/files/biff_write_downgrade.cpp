// Formula tokens for an Excel 95 save: the BIFF8 tokens of the model rewritten into BIFF5 form,
// the inverse of the reader's upgrade. References lose their column word (the row carries the
// relative bits again, in 14 bits), names gain their long heads, 3-D references and external
// names point into the EXTERNSHEET list built here for the file, strings go through the code
// page, and every jump is corrected for the sizes that changed before its target. A reference
// past row 16,384 has no BIFF5 form: the conversion says so and the caller keeps the value.
#include <cstring>

#include "base/alloc.h"
#include "base/byte_buffer.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/biff_internal.h"
#include "files/biff_write_internal.h"
#include "model/names.h"
#include "model/workbook.h"

constexpr uint32_t Biff5LastRow = 16383;

// ---------------------------------------------------------------------------------------------
// The EXTERNSHEET list

static int AddExtern(BiffWriter* w, uint8_t form, int32_t externalBook, int32_t sheet) {
  ExternEntry* added = AppendEntry(&w->externs, &w->externCount);
  if (!added) return -1;
  *added = ExternEntry{form, externalBook, sheet};
  return static_cast<int32_t>(w->externCount - 1);
}

static int32_t* Table(uint32_t count) {
  int32_t* table = static_cast<int32_t*>(Allocate((count + 1) * sizeof(int32_t)));
  if (table)
    for (uint32_t i = 0; i <= count; i++) table[i] = -1;
  return table;
}

int BuildExternList(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  w->bookEntries = Table(wb->externalBookCount);
  w->linkEntries = Table(wb->sheetLinkCount);
  w->sheetEntries = Table(wb->sheetCount);
  if (!w->bookEntries || !w->linkEntries || !w->sheetEntries) return 0;
  if (AddExtern(w, ExternOwnBook, -1, -1) < 0) return 0;
  for (uint32_t s = 0; s < wb->sheetCount; s++)
    if ((w->sheetEntries[s] = AddExtern(w, ExternOwnSheet, -1, static_cast<int32_t>(s))) < 0)
      return 0;
  for (uint32_t b = 0; b < wb->externalBookCount; b++) {
    if (wb->externalBooks[b].kind == ExternalSelf) {
      w->bookEntries[b] = 0;
      continue;
    }
    if ((w->bookEntries[b] = AddExtern(w, ExternBook, static_cast<int32_t>(b), -1)) < 0) return 0;
  }
  for (uint32_t l = 0; l < wb->sheetLinkCount; l++) {
    const SheetLink& link = wb->sheetLinks[l];
    if (link.bookIndex < 0 || static_cast<uint32_t>(link.bookIndex) >= wb->externalBookCount)
      continue;
    const ExternalBook& external = wb->externalBooks[link.bookIndex];
    if (external.kind != ExternalOtherFile || link.firstSheet < 0 ||
        static_cast<uint32_t>(link.firstSheet) >= external.sheetCount)
      continue;
    if ((w->linkEntries[l] = AddExtern(w, ExternBookSheet, link.bookIndex, link.firstSheet)) < 0)
      return 0;
  }
  return 1;
}

void FreeExternList(BiffWriter* w) {
  Release(w->externs);
  Release(w->bookEntries);
  Release(w->linkEntries);
  Release(w->sheetEntries);
  w->externs = nullptr;
  w->bookEntries = w->linkEntries = w->sheetEntries = nullptr;
  w->externCount = 0;
}

// An EXTERNSHEET body: the length byte, then a one-byte mark or the text in the code page.
static void WriteExternText(BiffWriter* w, const char16_t* text) {
  uint8_t body[1 + 255];
  uint32_t n = NarrowText(w, text, TextLength(text), body + 1, 255);
  // A sheet of the workbook is counted without its mark 3.
  body[0] = static_cast<uint8_t>(n && body[1] == 3 ? n - 1 : n);
  WriteRecord(w, 0x0017, body, 1 + n);
}

static void WriteExternMark(BiffWriter* w, uint8_t mark) {
  uint8_t body[2] = {1, mark};
  WriteRecord(w, 0x0017, body, 2);
}

static void WriteBookNames(BiffWriter* w, const ExternalBook* external) {
  for (uint32_t n = 0; n < external->nameCount; n++) {
    const ExternalName& name = external->names[n];
    uint8_t body[7 + 255 + 4];
    WriteU16(body, 0);
    WriteU16(body + 2, name.field);
    WriteU16(body + 4, 0);
    uint32_t length = NarrowText(w, name.text, TextLength(name.text), body + 7, 255);
    body[6] = static_cast<uint8_t>(length);
    WriteU16(body + 7 + length, 2);
    body[9 + length] = 0x1C;  // ptgErr #REF!: the formula is not kept
    body[10 + length] = 0x17;
    WriteRecord(w, 0x0023, body, 11 + length);
  }
}

void WriteExternList(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  if (!wb->externalBookCount && !wb->sheetLinkCount && !wb->nameCount) return;
  for (uint32_t i = 0; i < w->externCount && !w->failed; i++) {
    const ExternEntry& e = w->externs[i];
    const ExternalBook* external =
        e.externalBook >= 0 ? &wb->externalBooks[e.externalBook] : nullptr;
    switch (e.form) {
      case ExternOwnBook:
        WriteExternMark(w, 4);
        break;
      case ExternOwnSheet: {
        char16_t text[SheetNameCapacity + 1];
        text[0] = 3;
        TextCopy(text + 1, SheetNameCapacity, wb->sheets[e.sheet]->name);
        WriteExternText(w, text);
        break;
      }
      case ExternBook:
        if (external->kind == ExternalAddIn)
          WriteExternMark(w, 0x3A);
        else if (external->kind == ExternalUnused)
          WriteExternMark(w, 0);
        else
          WriteExternText(w, external->path ? external->path : u"\x01");
        WriteBookNames(w, external);
        break;
      case ExternBookSheet: {
        // "\1", the folder, the file name in brackets, then the sheet.
        const char16_t* path = external->path ? external->path : u"\x01";
        const char16_t* leaf = LeafName(path);
        if (leaf == path && path[0] == 1) leaf++;
        uint32_t folder = static_cast<uint32_t>(leaf - path);
        const char16_t* sheet = external->sheetNames[e.sheet];
        uint32_t length = TextLength(path) + TextLength(sheet) + 3;
        char16_t* text = static_cast<char16_t*>(Allocate((length + 1) * sizeof(char16_t)));
        if (!text) {
          w->failed = true;
          return;
        }
        uint32_t n = 0;
        if (path[0] != 1) text[n++] = 1;
        for (uint32_t k = 0; k < folder; k++) text[n++] = path[k];
        text[n++] = u'[';
        for (const char16_t* c = leaf; *c; c++) text[n++] = *c;
        text[n++] = u']';
        for (const char16_t* c = sheet; *c; c++) text[n++] = *c;
        text[n] = 0;
        WriteExternText(w, text);
        Release(text);
        break;
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Tokens

namespace {

struct Jump {
  uint32_t at;       // the operand in the output
  uint32_t target;   // in the source
  uint32_t newBase;  // what the output operand counts from
};

struct Downgrade {
  BiffWriter* w;
  const uint8_t* src;
  uint32_t length;
  uint32_t total;
  uint32_t extra;  // read position in the source's extra data
  ByteBuffer out;
  ByteBuffer extraOut;
  uint32_t* map;  // source token position -> output position
  Jump* jumps;
  uint32_t jumpCount, jumpCapacity;
  bool unsayable;  // past what BIFF5 can say
  bool bad;        // malformed
};

}  // namespace

static void AddJump(Downgrade* d, uint32_t at, uint32_t target, uint32_t newBase) {
  if (!GrowArray(&d->jumps, &d->jumpCapacity, d->jumpCount + 1, 8)) {
    d->out.failed = true;
    return;
  }
  d->jumps[d->jumpCount++] = Jump{at, target, newBase};
}

// A BIFF5 row word: 14 bits of row under the two relative bits of the BIFF8 column word.
static uint16_t RowWord(Downgrade* d, uint16_t row, uint8_t flags, bool offsetForm) {
  if (offsetForm && (flags & RefRowRelative)) {
    int32_t offset = static_cast<int16_t>(row);
    if (offset < -8192 || offset > 8191) d->unsayable = true;
    return static_cast<uint16_t>((offset & 0x3FFF) | (flags & 0xC0) << 8);
  }
  if (row > Biff5LastRow) d->unsayable = true;
  return static_cast<uint16_t>((row & 0x3FFF) | (flags & 0xC0) << 8);
}

// A BIFF8 area (rows, then column words) as BIFF5 (rows with flags, then column bytes). An area
// down to the last row stops at BIFF5's last row: the whole column either way.
static void PutArea(Downgrade* d, uint8_t* p, const uint8_t* a, bool offsetForm) {
  uint16_t r1 = ReadU16(a), r2 = ReadU16(a + 2);
  if (!offsetForm && r1 == 0 && r2 == MaxRow) r2 = Biff5LastRow;
  WriteU16(p, RowWord(d, r1, a[5], offsetForm));
  WriteU16(p + 2, RowWord(d, r2, a[7], offsetForm));
  p[4] = a[4];
  p[5] = a[6];
}

// The EXTERNSHEET entry and sheets of a 3-D reference's link; false when BIFF5 cannot say it.
static bool Link3d(Downgrade* d, uint16_t linkIndex, int16_t* entry, int16_t* first,
                   int16_t* last) {
  const Workbook* wb = GetWorkbook(d->w->book);
  if (linkIndex >= wb->sheetLinkCount) return false;
  const SheetLink& link = wb->sheetLinks[linkIndex];
  if (link.bookIndex < 0 || static_cast<uint32_t>(link.bookIndex) >= wb->externalBookCount)
    return false;
  if (wb->externalBooks[link.bookIndex].kind == ExternalSelf) {
    // Negative: this workbook, with the sheets in the token; the entry named is that of the
    // first sheet ("\3name"), or the workbook's own for a deleted sheet.
    bool named = link.firstSheet >= 0 && static_cast<uint32_t>(link.firstSheet) < wb->sheetCount;
    *entry = static_cast<int16_t>(-(named ? d->w->sheetEntries[link.firstSheet] + 1 : 1));
    *first = link.firstSheet;
    *last = link.lastSheet;
    return link.firstSheet != NoSheet;
  }
  if (d->w->linkEntries[linkIndex] < 0) return false;
  *entry = static_cast<int16_t>(d->w->linkEntries[linkIndex] + 1);
  *first = *last = 0;
  return true;
}

// Array constant: BIFF5 counts columns (0 for 256) and rows, and strings are 8-bit.
static void DowngradeArrayConstant(Downgrade* d) {
  const uint8_t* s = d->src;
  if (d->extra + 3 > d->total) return void(d->bad = true);
  uint32_t columns = s[d->extra] + 1u, rows = ReadU16(s + d->extra + 1) + 1u;
  d->extra += 3;
  if (uint8_t* p = ByteRoom(&d->extraOut, 3)) {
    p[0] = static_cast<uint8_t>(columns == 256 ? 0 : columns);
    WriteU16(p + 1, static_cast<uint16_t>(rows));
  }
  for (uint32_t i = 0; i < rows * columns && !d->bad; i++) {
    if (d->extra >= d->total) return void(d->bad = true);
    uint8_t type = s[d->extra];
    if (type == 2) {
      if (d->extra + 4 > d->total) return void(d->bad = true);
      uint32_t chars = ReadU16(s + d->extra + 1);
      bool wide = s[d->extra + 3] & 1;
      uint32_t size = chars * (wide ? 2 : 1);
      if (d->extra + 4 + size > d->total) return void(d->bad = true);
      char16_t* text = static_cast<char16_t*>(Allocate((chars + 1) * sizeof(char16_t)));
      if (!text) return void(d->extraOut.failed = true);
      for (uint32_t c = 0; c < chars; c++)
        text[c] = wide ? ReadU16(s + d->extra + 4 + 2 * c) : s[d->extra + 4 + c];
      uint8_t narrow[255];
      uint32_t n = NarrowText(d->w, text, chars, narrow, 255);
      Release(text);
      if (uint8_t* p = ByteRoom(&d->extraOut, 2 + n)) {
        p[0] = 2;
        p[1] = static_cast<uint8_t>(n);
        std::memcpy(p + 2, narrow, n);
      }
      d->extra += 4 + size;
    } else if (type == 0 || type == 1 || type == 4 || type == 16) {
      if (d->extra + 9 > d->total) return void(d->bad = true);
      if (uint8_t* p = ByteRoom(&d->extraOut, 9)) std::memcpy(p, s + d->extra, 9);
      d->extra += 9;
    } else {
      return void(d->bad = true);
    }
  }
}

// The area list of a ptgMemArea: 8-byte areas become 6-byte ones.
static void DowngradeAreaList(Downgrade* d) {
  if (d->extra + 2 > d->total) return void(d->bad = true);
  uint32_t count = ReadU16(d->src + d->extra);
  if (d->extra + 2 + count * 8 > d->total) return void(d->bad = true);
  uint8_t* p = ByteRoom(&d->extraOut, 2 + count * 6);
  if (!p) return;
  WriteU16(p, static_cast<uint16_t>(count));
  for (uint32_t i = 0; i < count; i++) {
    const uint8_t* a = d->src + d->extra + 2 + i * 8;
    uint16_t r1 = ReadU16(a), r2 = ReadU16(a + 2);
    if (r1 == 0 && r2 == MaxRow) r2 = Biff5LastRow;
    if (r1 > Biff5LastRow || r2 > Biff5LastRow) d->unsayable = true;
    WriteU16(p + 2 + 6 * i, r1);
    WriteU16(p + 4 + 6 * i, r2);
    p[6 + 6 * i] = a[4];
    p[7 + 6 * i] = a[6];
  }
  d->extra += 2 + count * 8;
}

// Converts the token at `p`, which ends at `next`.
static void DowngradeToken(Downgrade* d, uint32_t p, uint32_t next) {
  const uint8_t* a = d->src + p + 1;
  uint8_t op = d->src[p], base = FoldOpcode(op);
  uint32_t start = d->out.count;
  uint8_t* o;
  switch (base) {
    case ptgStr: {
      uint32_t chars = a[0];
      bool wide = a[1] & 1;
      char16_t text[256];
      for (uint32_t c = 0; c < chars; c++) text[c] = wide ? ReadU16(a + 2 + 2 * c) : a[2 + c];
      uint8_t narrow[255];
      uint32_t n = NarrowText(d->w, text, chars, narrow, 255);
      if ((o = ByteRoom(&d->out, 2 + n))) {
        o[0] = op;
        o[1] = static_cast<uint8_t>(n);
        std::memcpy(o + 2, narrow, n);
      }
      return;
    }
    case ptgAttr: {
      uint32_t size = next - p;
      if ((o = ByteRoom(&d->out, size))) std::memcpy(o, d->src + p, size);
      uint8_t kind = a[0];
      uint16_t operand = ReadU16(a + 1);
      if (kind & AttrIf) AddJump(d, start + 2, p + 4 + operand, start + 4);
      if (kind & AttrGoto) AddJump(d, start + 2, p + 4 + operand + 1, start + 4 + 1);
      if (kind & AttrChoose)
        for (uint32_t i = 0; i <= operand; i++)
          AddJump(d, start + 4 + 2 * i, p + 4 + ReadU16(a + 3 + 2 * i), start + 4);
      return;
    }
    case ptgName:
      if ((o = ByteRoom(&d->out, 15))) {
        o[0] = op;
        WriteU16(o + 1, ReadU16(a));
      }
      return;
    case ptgRef:
    case ptgRefErr:
    case ptgRefN:
      if ((o = ByteRoom(&d->out, 4))) {
        o[0] = op;
        WriteU16(o + 1, RowWord(d, ReadU16(a), a[3], base == ptgRefN));
        o[3] = a[2];
      }
      return;
    case ptgArea:
    case ptgAreaErr:
    case ptgAreaN:
      if ((o = ByteRoom(&d->out, 7))) {
        o[0] = op;
        PutArea(d, o + 1, a, base == ptgAreaN);
      }
      return;
    case ptgNameX: {
      const Workbook* wb = GetWorkbook(d->w->book);
      uint16_t linkIndex = ReadU16(a);
      int32_t entry = -1;
      if (linkIndex < wb->sheetLinkCount) {
        int16_t book = wb->sheetLinks[linkIndex].bookIndex;
        if (book >= 0 && static_cast<uint32_t>(book) < wb->externalBookCount)
          entry = d->w->bookEntries[book];
      }
      if (entry < 0) return void(d->unsayable = true);
      if ((o = ByteRoom(&d->out, 25))) {
        o[0] = op;
        WriteU16(o + 1, static_cast<uint16_t>(entry + 1));
        WriteU16(o + 11, ReadU16(a + 2));
      }
      return;
    }
    case ptgRef3d:
    case ptgRefErr3d:
    case ptgArea3d:
    case ptgAreaErr3d: {
      bool area = base == ptgArea3d || base == ptgAreaErr3d;
      int16_t entry, first, last;
      if (!Link3d(d, ReadU16(a), &entry, &first, &last)) return void(d->unsayable = true);
      if ((o = ByteRoom(&d->out, area ? 21 : 18))) {
        o[0] = op;
        WriteU16(o + 1, static_cast<uint16_t>(entry));
        WriteU16(o + 11, static_cast<uint16_t>(first));
        WriteU16(o + 13, static_cast<uint16_t>(last));
        if (area) {
          PutArea(d, o + 15, a + 2, false);
        } else {
          WriteU16(o + 15, RowWord(d, ReadU16(a + 2), a[5], false));
          o[17] = a[4];
        }
      }
      return;
    }
    default: {
      uint32_t size = next - p;
      if ((o = ByteRoom(&d->out, size))) std::memcpy(o, d->src + p, size);
      if (base == ptgArray) DowngradeArrayConstant(d);
      if (base == ptgMemArea) DowngradeAreaList(d);
      if (base >= ptgMemArea && base <= ptgMemFunc && size >= 3) {
        uint32_t field = size - 2;  // the sub-expression's length is the last word
        AddJump(d, start + field, next + ReadU16(d->src + p + field), start + size);
      }
      return;
    }
  }
}

int DowngradeTokens(BiffWriter* w, const FormulaTokens* in, FormulaTokens* out) {
  *out = FormulaTokens{};
  Downgrade d{};
  d.w = w;
  d.src = in->bytes;
  d.length = in->length;
  d.total = in->length + static_cast<uint32_t>(in->extraLength);
  d.extra = d.length;
  d.map = static_cast<uint32_t*>(Allocate((d.length + 1u) * sizeof(uint32_t)));
  if (!d.map) return 0;
  std::memset(d.map, 0xFF, (d.length + 1u) * sizeof(uint32_t));
  for (uint32_t p = 0; p < d.length && !d.bad && !d.unsayable && !d.out.failed;) {
    uint32_t next = CheckedTokenEnd(d.src, p, d.length, MemNoMemAsTable);
    if (next == 0) {
      d.bad = true;
      break;
    }
    d.map[p] = d.out.count;
    DowngradeToken(&d, p, next);
    p = next;
  }
  d.map[d.length] = d.out.count;
  for (uint32_t i = 0; i < d.jumpCount && !d.bad; i++) {
    const Jump& j = d.jumps[i];
    if (j.target > d.length || d.map[j.target] == 0xFFFFFFFF || d.map[j.target] < j.newBase) {
      d.bad = true;
      break;
    }
    WriteU16(d.out.bytes + j.at, static_cast<uint16_t>(d.map[j.target] - j.newBase));
  }
  if (!d.bad && !d.unsayable && d.extra < d.total) {
    if (uint8_t* p = ByteRoom(&d.extraOut, d.total - d.extra))
      std::memcpy(p, d.src + d.extra, d.total - d.extra);
  }
  bool failed = d.out.failed || d.extraOut.failed;
  int result = failed                                                                        ? 0
               : (d.bad || d.unsayable || d.out.count > 0xFFFF || d.extraOut.count > 0xFFFF) ? -1
                                                                                             : 1;
  if (result == 1) {
    out->bytes = static_cast<uint8_t*>(Allocate(d.out.count + d.extraOut.count + 1));
    if (!out->bytes) {
      result = 0;
    } else {
      if (d.out.count) std::memcpy(out->bytes, d.out.bytes, d.out.count);
      if (d.extraOut.count)
        std::memcpy(out->bytes + d.out.count, d.extraOut.bytes, d.extraOut.count);
      out->length = static_cast<uint16_t>(d.out.count);
      out->extraLength = static_cast<uint16_t>(d.extraOut.count);
    }
  }
  Release(d.map);
  Release(d.jumps);
  Release(d.out.bytes);
  Release(d.extraOut.bytes);
  return result;
}
