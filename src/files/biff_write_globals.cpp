// The global substream of a BIFF save, in the record order of each version: the workbook's
// window and protection settings, fonts, number formats, cell formats (Xf, the inverse of the
// reader's layouts), styles, palette, one BOUNDSHEET per sheet (its stream offset patched when
// the sheet's BOF is written), the link tables, defined names and, in BIFF8, the string table.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/biff_internal.h"
#include "files/biff_write_internal.h"
#include "model/names.h"
#include "model/workbook.h"

// A string with an 8-bit character count (BIFF8: then the option byte; BIFF5: code page bytes)
// into `p`, which has room for 1 + 2 * 255 + 1 bytes. Returns the bytes written.
static uint32_t PutShortString(BiffWriter* w, uint8_t* p, const char16_t* text) {
  uint32_t length = TextLength(text);
  if (length > 255) length = 255;
  if (w->version >= 8) {
    p[0] = static_cast<uint8_t>(length);
    return 1 + PutBiff8String(p + 1, text, length);
  }
  uint32_t n = NarrowText(w, text, length, p + 1, 255);
  p[0] = static_cast<uint8_t>(n);
  return 1 + n;
}

static void WriteWriteAccess(BiffWriter* w) {
  // No user name is kept: the field is blank.
  if (w->version >= 8) {
    if (uint8_t* p = BeginRecord(w, 0x005C, 0x70)) {
      WriteU16(p, 0);
      p[2] = 0;
      std::memset(p + 3, ' ', 0x6D);
    }
  } else if (uint8_t* p = BeginRecord(w, 0x005C, 0x20)) {
    p[0] = 0;
    std::memset(p + 1, ' ', 0x1F);
  }
}

static void WriteWindow1(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  uint16_t flags =
      static_cast<uint16_t>((wb->showHorizontalScrollBar ? 8 : 0) |
                            (wb->showVerticalScrollBar ? 16 : 0) | (wb->showSheetTabs ? 32 : 0));
  if (uint8_t* p = BeginRecord(w, 0x003D, 18)) {
    static const uint16_t words[9] = {0, 0, 15296, 8960, 0, 0, 0, 1, 600};
    for (uint32_t i = 0; i < 9; i++) WriteU16(p + 2 * i, words[i]);
    WriteU16(p + 8, flags);
    WriteU16(p + 10, static_cast<uint16_t>(wb->currentSheet));
  }
}

// The Windows character set of a code page: an Excel 95 file's texts are in its code page, and
// readers that go by a font's character set must find the same one there.
static uint8_t CharsetOfCodePage(uint32_t codePage) {
  static const uint16_t table[][2] = {{1252, 0},   {1250, 238}, {1251, 204}, {1253, 161},
                                      {1254, 162}, {1255, 177}, {1256, 178}, {1257, 186},
                                      {932, 128},  {936, 134},  {949, 129},  {950, 136}};
  for (const auto& row : table)
    if (row[0] == codePage) return static_cast<uint8_t>(row[1]);
  return 0;
}

static void WriteFonts(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  for (uint32_t i = 0; i < wb->fontCount; i++) {
    const FontRecord& f = wb->fonts[i];
    uint8_t body[14 + 1 + 1 + 2 * 32 + 64];
    WriteU16(body, f.height);
    WriteU16(body + 2, f.attributes & ~FontUnderline);
    WriteU16(body + 4, f.color);
    WriteU16(body + 6, f.weight);
    WriteU16(body + 8, 0);
    body[10] = (f.attributes & FontUnderline) ? 1 : 0;
    body[11] = f.pitchAndFamily;
    body[12] = w->version >= 8 || f.charset == 2 ? f.charset : CharsetOfCodePage(w->codePage);
    body[13] = 0;
    uint32_t length = PutShortString(w, body + 14, f.faceName);
    WriteRecord(w, 0x0031, body, 14 + length);
  }
}

static void WriteFormats(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  for (uint32_t i = 0; i < wb->numberFormatCount; i++) {
    const NumberFormat& f = wb->numberFormats[i];
    if (f.flags & NumberFormatBuiltIn) continue;  // every reader knows these by their id
    uint32_t length = TextLength(f.code);
    if (length > 255) length = 255;
    uint8_t body[4 + 1 + 2 * 255 + 1];
    WriteU16(body, f.id);
    uint32_t n;
    if (w->version >= 8) {
      WriteU16(body + 2, static_cast<uint16_t>(length));
      n = 4 + PutBiff8String(body + 4, f.code, length);
    } else {
      uint32_t bytes = NarrowText(w, f.code, length, body + 3, 255);
      body[2] = static_cast<uint8_t>(bytes);
      n = 3 + bytes;
    }
    WriteRecord(w, 0x041E, body, n);
  }
}

static void SetBits(uint8_t* body, const uint8_t field[2], uint32_t value) {
  for (uint32_t i = 0; i < field[1]; i++) {
    uint32_t bit = field[0] + i;
    if ((value >> i) & 1) body[bit / 8] |= static_cast<uint8_t>(1u << (bit % 8));
  }
}

static void WriteXfs(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  const XfLayout& layout = BiffXfLayouts[w->version >= 8 ? 1 : 0];
  for (uint32_t i = 0; i < wb->xfCount; i++) {
    const Xf& xf = wb->xfs[i];
    uint8_t body[20] = {};
    WriteU16(body, static_cast<uint16_t>(xf.font >= 4 ? xf.font + 1 : xf.font));  // no font 4
    uint32_t format = xf.numberFormat < wb->numberFormatCount ? xf.numberFormat : 0;
    WriteU16(body + 2, wb->numberFormatCount ? wb->numberFormats[format].id : 0);
    bool style = (xf.flags & XfStyle) != 0;
    // A style's parent field is all ones; a cell format's parent is the Normal style.
    WriteU16(body + 4, static_cast<uint16_t>((xf.flags & 0x0F) | (style ? 0xFFF0 : 0)));
    body[6] = static_cast<uint8_t>((xf.horizontalAlign & 7) | ((xf.flags & XfWrap) ? 8 : 0) |
                                   (xf.verticalAlign & 7) << 4);
    // Which attribute groups the format sets itself: all of them for a cell format.
    uint8_t used = style ? 0 : 0xFC;
    if (w->version >= 8) {
      body[7] = xf.rotation;
      body[9] = used;
    } else {
      body[7] = used;
    }
    uint8_t foreground = xf.foreground, background = xf.background;
    if (xf.pattern == 1) {  // the model keeps a solid fill's colour as the background
      foreground = xf.background;
      background = xf.foreground;
    }
    SetBits(body, layout.pattern, xf.pattern);
    SetBits(body, layout.foreground, foreground);
    SetBits(body, layout.background, background);
    SetBits(body, layout.topStyle, xf.topStyle);
    SetBits(body, layout.topColor, xf.topColor);
    SetBits(body, layout.leftStyle, xf.leftStyle);
    SetBits(body, layout.leftColor, xf.leftColor);
    SetBits(body, layout.bottomStyle, xf.bottomStyle);
    SetBits(body, layout.bottomColor, xf.bottomColor);
    SetBits(body, layout.rightStyle, xf.rightStyle);
    SetBits(body, layout.rightColor, xf.rightColor);
    WriteRecord(w, 0x00E0, body, layout.size);
  }
}

static void WriteStyles(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  for (uint32_t i = 0; i < wb->styleCount; i++) {
    const StyleRecord& s = wb->styles[i];
    if (uint8_t* p = BeginRecord(w, 0x0293, 4)) {
      WriteU16(p, s.xf | 0x8000);
      p[2] = s.builtinId;
      p[3] = s.level;
    }
  }
}

static void WritePalette(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  if (uint8_t* p = BeginRecord(w, 0x0092, 2 + 56 * 4)) {
    WriteU16(p, 56);
    for (uint32_t i = 0; i < 56; i++) WriteU32(p + 2 + 4 * i, wb->palette[8 + i] & 0xFFFFFF);
  }
}

static void WriteBoundSheets(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    const Sheet* sheet = wb->sheets[s];
    uint8_t body[6 + 1 + 1 + 2 * 32];
    WriteU32(body, 0);
    body[4] = static_cast<uint8_t>(sheet->hidden & 3);
    body[5] = sheet->kind == SheetMacro    ? 1
              : sheet->kind == SheetChart  ? 2
              : sheet->kind == SheetModule ? 6
                                           : 0;
    uint32_t n = 6 + PutShortString(w, body + 6, sheet->name);
    w->sheetOffsetPositions[s] = w->size + 4;
    WriteRecord(w, 0x0085, body, n);
  }
}

// A BIFF8 string with a 16-bit character count, appended to a growing body.
static void AppendBiff8String(BiffWriter* w, const char16_t* text) {
  uint32_t length = TextLength(text);
  if (length > 0xFFFF) length = 0xFFFF;
  uint8_t* p = Reserve(w, 2 + Biff8StringSize(text, length));
  if (!p) return;
  WriteU16(p, static_cast<uint16_t>(length));
  PutBiff8String(p + 2, text, length);
}

// Names of an external book: a name and the formula #REF!, which is all that is kept of them.
static void WriteExternNames(BiffWriter* w, const ExternalBook* external) {
  for (uint32_t n = 0; n < external->nameCount; n++) {
    const ExternalName& name = external->names[n];
    uint8_t body[7 + 1 + 2 * 255 + 4];
    WriteU16(body, 0);
    WriteU16(body + 2, name.field);
    WriteU16(body + 4, 0);
    uint32_t length = 6 + PutShortString(w, body + 6, name.text);
    WriteU16(body + length, 2);
    body[length + 2] = 0x1C;  // ptgErr #REF!
    body[length + 3] = 0x17;
    WriteRecord(w, 0x0023, body, length + 4);
  }
}

// BIFF8: one SUPBOOK per external book, then the EXTERNSHEET table of sheet links over them.
static void WriteSupBooks(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  if (!wb->externalBookCount && !wb->sheetLinkCount) return;
  for (uint32_t b = 0; b < wb->externalBookCount; b++) {
    const ExternalBook* external = &wb->externalBooks[b];
    uint32_t start = w->size;
    uint8_t* head = Reserve(w, 8);
    if (!head) return;
    WriteU16(head, 0x01AE);
    switch (external->kind) {
      case ExternalSelf:
        WriteU16(head + 4, static_cast<uint16_t>(wb->sheetCount));
        WriteU16(head + 6, 0x0401);
        break;
      case ExternalAddIn:
        WriteU16(head + 4, 1);
        WriteU16(head + 6, 0x3A01);
        break;
      case ExternalOtherFile: {
        WriteU16(head + 4, static_cast<uint16_t>(external->sheetCount));
        w->size -= 2;  // the path's own length word stands where the marker would
        AppendBiff8String(w, external->path ? external->path : u"");
        for (uint32_t s = 0; s < external->sheetCount; s++)
          AppendBiff8String(w, external->sheetNames[s]);
        break;
      }
      default:  // the unnamed book of "!name": no sheets and an empty name
        WriteU16(head + 4, 0);
        WriteU16(head + 6, 1);
        if (uint8_t* p = Reserve(w, 2)) WriteU16(p, 0);
        break;
    }
    if (w->failed) return;
    WriteU16(w->bytes + start + 2, static_cast<uint16_t>(w->size - start - 4));
    if (external->kind != ExternalSelf) WriteExternNames(w, external);
  }
  uint32_t count = wb->sheetLinkCount;
  uint8_t* body = static_cast<uint8_t*>(Allocate(2 + 6 * count));
  if (!body) {
    w->failed = true;
    return;
  }
  WriteU16(body, static_cast<uint16_t>(count));
  for (uint32_t i = 0; i < count; i++) {
    const SheetLink& link = wb->sheetLinks[i];
    WriteU16(body + 2 + 6 * i, static_cast<uint16_t>(link.bookIndex));
    WriteU16(body + 4 + 6 * i, static_cast<uint16_t>(link.firstSheet));
    WriteU16(body + 6 + 6 * i, static_cast<uint16_t>(link.lastSheet));
  }
  WriteLongRecord(w, 0x0017, body, 2 + 6 * count);
  Release(body);
}

static int32_t BuiltInNameIndex(const char16_t* text) {
  for (uint32_t i = 0; i < BuiltInNameCount; i++)
    if (EqualTextNoCase(text, BuiltInNames[i])) return static_cast<int32_t>(i);
  return -1;
}

static void WriteNames(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  for (uint32_t i = 0; i < wb->nameCount && !w->failed; i++) {
    const DefinedName& name = wb->names[i];
    FormulaTokens tokens = name.formula;
    FormulaTokens narrowed{};
    if (w->version < 8 && tokens.bytes) {
      int converted = DowngradeTokens(w, &tokens, &narrowed);
      if (converted == 0) {
        w->failed = true;
        return;
      }
      tokens = converted > 0 ? narrowed : FormulaTokens{};
      if (converted < 0) w->report.formulasAsValues++;
    }
    uint32_t tokenBytes =
        tokens.bytes ? tokens.length + static_cast<uint32_t>(tokens.extraLength) : 0;
    int32_t builtIn = BuiltInNameIndex(name.name);
    uint32_t length = TextLength(name.name);
    if (length > 255) length = 255;
    uint8_t* body = static_cast<uint8_t*>(Allocate(14 + 1 + 2 * 255 + tokenBytes));
    if (!body) {
      FreeTokens(&narrowed);
      w->failed = true;
      return;
    }
    std::memset(body, 0, 14);
    WriteU16(body, static_cast<uint16_t>(name.options | (builtIn >= 0 ? 0x20 : 0)));
    body[2] = name.keyCode;
    WriteU16(body + 4, tokens.bytes ? tokens.length : 0);
    uint16_t local = name.localSheet;
    if (w->version < 8 && local && local <= wb->sheetCount)
      WriteU16(body + 6, static_cast<uint16_t>(w->sheetEntries[local - 1] + 1));
    WriteU16(body + 8, local);
    uint32_t n = 14;
    if (builtIn >= 0) {
      body[3] = 1;
      if (w->version >= 8) body[n++] = 0;
      body[n++] = static_cast<uint8_t>(builtIn);
    } else if (w->version >= 8) {
      body[3] = static_cast<uint8_t>(length);
      n += PutBiff8String(body + n, name.name, length);
    } else {
      uint32_t bytes = NarrowText(w, name.name, length, body + n, 255);
      body[3] = static_cast<uint8_t>(bytes);
      n += bytes;
    }
    if (tokenBytes) std::memcpy(body + n, tokens.bytes, tokenBytes);
    WriteLongRecord(w, 0x0018, body, n + tokenBytes);
    Release(body);
    FreeTokens(&narrowed);
  }
}

// The texts of the cells go into the string table before the globals end, since LABELSST
// records name them by index.
static void CollectStrings(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    const Sheet* sheet = wb->sheets[s];
    if (!SheetHasCells(sheet)) continue;
    for (uint32_t i = 0; i < sheet->cells.count; i++) {
      const Cell* cell = sheet->cells.cells[i];
      uint32_t index;
      if (!cell->formula.bytes && cell->value.tag == ValueText &&
          !AddSstText(w, cell->value.text ? cell->value.text : u"", &index)) {
        w->failed = true;
        return;
      }
    }
  }
}

// From WINDOW1 to PALETTE, the same in both versions but for REFRESHALL.
static void WriteWindowAndStyles(BiffWriter* w) {
  WriteWindow1(w);
  WriteSmallRecord(w, 0x0040, 0);
  WriteSmallRecord(w, 0x008D, 0);
  WriteSmallRecord(w, 0x0022, GetWorkbook(w->book)->date1904 ? 1 : 0);
  WriteSmallRecord(w, 0x000E, 1);
  if (w->version >= 8) WriteSmallRecord(w, 0x01B7, 0);
  WriteSmallRecord(w, 0x00DA, 0);
  WriteFonts(w);
  WriteFormats(w);
  WriteXfs(w);
  WriteStyles(w);
  WritePalette(w);
}

static void WriteGlobals8(BiffWriter* w) {
  const Workbook* wb = GetWorkbook(w->book);
  CollectStrings(w);
  WriteBof(w, 5);
  WriteEmptyRecord(w, 0x00E1);
  WriteSmallRecord(w, 0x00C1, 0);
  WriteEmptyRecord(w, 0x00E2);
  WriteWriteAccess(w);
  WriteSmallRecord(w, 0x0042, w->codePage);
  WriteSmallRecord(w, 0x0161, 0);
  if (uint8_t* p = BeginRecord(w, 0x013D, 2 * wb->sheetCount))
    for (uint32_t s = 0; s < wb->sheetCount; s++) WriteU16(p + 2 * s, static_cast<uint16_t>(s + 1));
  WriteSmallRecord(w, 0x009C, 14);
  static const uint16_t protection[] = {0x0019, 0x0012, 0x0013, 0x01AF, 0x01BC};
  for (uint16_t id : protection) WriteSmallRecord(w, id, 0);
  WriteWindowAndStyles(w);
  WriteSmallRecord(w, 0x0160, 1);
  WriteWordsRecord(w, 0x008C, 1, 33);
  WriteBoundSheets(w);
  WriteSupBooks(w);
  WriteNames(w);
  WriteSst(w);
  WriteEmptyRecord(w, BiffEof);
}

static void WriteGlobals7(BiffWriter* w) {
  WriteBof(w, 5);
  WriteEmptyRecord(w, 0x00E1);
  WriteSmallRecord(w, 0x00C1, 0);
  WriteEmptyRecord(w, 0x00BF);
  WriteEmptyRecord(w, 0x00C0);
  WriteEmptyRecord(w, 0x00E2);
  WriteWriteAccess(w);
  WriteSmallRecord(w, 0x0042, w->codePage);
  WriteSmallRecord(w, 0x009C, 14);
  static const uint16_t protection[] = {0x0019, 0x0012, 0x0013};
  for (uint16_t id : protection) WriteSmallRecord(w, id, 0);
  WriteWindowAndStyles(w);
  WriteBoundSheets(w);
  WriteWordsRecord(w, 0x008C, 1, 33);
  // The links and names come after the sheets, as Excel 95 writes them: a name's 3-D reference
  // counts sheets that the reader has then made.
  WriteExternList(w);
  WriteNames(w);
  WriteEmptyRecord(w, BiffEof);
}

void WriteGlobals(BiffWriter* w) {
  if (w->version >= 8)
    WriteGlobals8(w);
  else
    WriteGlobals7(w);
}
