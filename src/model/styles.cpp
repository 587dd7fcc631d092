// The style tables of a workbook: the built-in palette and number formats, the default cell
// formats, styles and fonts that a new workbook starts with, and the interning of Xfs and fonts
// so that equal combinations share one index. Tables only grow while a workbook is open; they are
// released together when it closes.
#include "model/styles.h"

#include <cstddef>
#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "format/number_format.h"
#include "model/cells.h"
#include "model/workbook.h"

char16_t DefaultFontFace[32] = u"Tahoma";
uint16_t DefaultFontHeight = 200;
uint16_t AnsiCodePage = 1252;

static constexpr uint32_t Rgb(uint32_t r, uint32_t g, uint32_t b) {
  return r | g << 8 | b << 16;
}

// Indices 0 to 7 are the fixed colours older files name directly; 8 to 63 are the editable
// entries, whose first eight repeat them.
const uint32_t DefaultPalette[PaletteSize] = {
    Rgb(0x00, 0x00, 0x00), Rgb(0xFF, 0xFF, 0xFF), Rgb(0xFF, 0x00, 0x00), Rgb(0x00, 0xFF, 0x00),
    Rgb(0x00, 0x00, 0xFF), Rgb(0xFF, 0xFF, 0x00), Rgb(0xFF, 0x00, 0xFF), Rgb(0x00, 0xFF, 0xFF),
    Rgb(0x00, 0x00, 0x00), Rgb(0xFF, 0xFF, 0xFF), Rgb(0xFF, 0x00, 0x00), Rgb(0x00, 0xFF, 0x00),
    Rgb(0x00, 0x00, 0xFF), Rgb(0xFF, 0xFF, 0x00), Rgb(0xFF, 0x00, 0xFF), Rgb(0x00, 0xFF, 0xFF),
    Rgb(0x80, 0x00, 0x00), Rgb(0x00, 0x80, 0x00), Rgb(0x00, 0x00, 0x80), Rgb(0x80, 0x80, 0x00),
    Rgb(0x80, 0x00, 0x80), Rgb(0x00, 0x80, 0x80), Rgb(0xC0, 0xC0, 0xC0), Rgb(0x80, 0x80, 0x80),
    Rgb(0x99, 0x99, 0xFF), Rgb(0x99, 0x33, 0x66), Rgb(0xFF, 0xFF, 0xCC), Rgb(0xCC, 0xFF, 0xFF),
    Rgb(0x66, 0x00, 0x66), Rgb(0xFF, 0x80, 0x80), Rgb(0x00, 0x66, 0xCC), Rgb(0xCC, 0xCC, 0xFF),
    Rgb(0x00, 0x00, 0x80), Rgb(0xFF, 0x00, 0xFF), Rgb(0xFF, 0xFF, 0x00), Rgb(0x00, 0xFF, 0xFF),
    Rgb(0x80, 0x00, 0x80), Rgb(0x80, 0x00, 0x00), Rgb(0x00, 0x80, 0x80), Rgb(0x00, 0x00, 0xFF),
    Rgb(0x00, 0xCC, 0xFF), Rgb(0xCC, 0xFF, 0xFF), Rgb(0xCC, 0xFF, 0xCC), Rgb(0xFF, 0xFF, 0x99),
    Rgb(0x99, 0xCC, 0xFF), Rgb(0xFF, 0x99, 0xCC), Rgb(0xCC, 0x99, 0xFF), Rgb(0xFF, 0xCC, 0x99),
    Rgb(0x33, 0x66, 0xFF), Rgb(0x33, 0xCC, 0xCC), Rgb(0x99, 0xCC, 0x00), Rgb(0xFF, 0xCC, 0x00),
    Rgb(0xFF, 0x99, 0x00), Rgb(0xFF, 0x66, 0x00), Rgb(0x66, 0x66, 0x99), Rgb(0x96, 0x96, 0x96),
    Rgb(0x00, 0x33, 0x66), Rgb(0x33, 0x99, 0x66), Rgb(0x00, 0x33, 0x00), Rgb(0x33, 0x33, 0x00),
    Rgb(0x99, 0x33, 0x00), Rgb(0x99, 0x33, 0x66), Rgb(0x33, 0x33, 0x99), Rgb(0x33, 0x33, 0x33),
};

const uint16_t BuiltInFormatIds[BuiltInFormatCount] = {
    0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16, 17,
    18, 19, 20, 21, 22, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49,
};

// The codes as the file format defines them for the ids above; they are rewritten for the
// locale on use, never here.
const char16_t* const BuiltInFormatCodes[BuiltInFormatCount] = {
    u"General",
    u"0",
    u"0.00",
    u"#,##0",
    u"#,##0.00",
    u"$#,##0_);($#,##0)",
    u"$#,##0_);[Red]($#,##0)",
    u"$#,##0.00_);($#,##0.00)",
    u"$#,##0.00_);[Red]($#,##0.00)",
    u"0%",
    u"0.00%",
    u"0.00E+00",
    u"# ?/?",
    u"# ?\?/??",  // escaped so that no compiler reads a trigraph
    u"m/d/yy",
    u"dd-mmm-yy",
    u"dd-mmm",
    u"mmm-yy",
    u"h:mm AM/PM",
    u"h:mm:ss AM/PM",
    u"h:mm",
    u"h:mm:ss",
    u"m/d/yy h:mm",
    u"#,##0_);(#,##0)",
    u"#,##0_);[Red](#,##0)",
    u"#,##0.00_);(#,##0.00)",
    u"#,##0.00_);[Red](#,##0.00)",
    u"_(* #,##0_);_(* (#,##0);_(* \"-\"_);_(@_)",
    u"_($* #,##0_);_($* (#,##0);($* \"-\"_);_(@_)",
    u"_(* #,##0.00_);_(* (#,##0.00);_(* \"-\"??_);_(@_)",
    u"_($* #,##0.00_);_($* (#,##0.00);_($* \"-\"??_);_(@_)",
    u"mm:ss",
    u"[h]:mm:ss",
    u"mm:ss.0",
    u"##0.0E+0",
    u"@",
};

// File ids of the number formats of default Xfs 16 to 20: the comma, currency and percent styles.
static const uint16_t StyleXfFormatIds[DefaultXfCount - 16] = {43, 41, 44, 42, 9};

static constexpr uint16_t BuiltInStyle = 0x8000;

// Comma, comma [0], currency, currency [0], normal and percent, by their built-in style numbers.
static const StyleRecord DefaultStyles[DefaultStyleCount] = {
    {BuiltInStyle | 16, 3, 255}, {BuiltInStyle | 17, 6, 255}, {BuiltInStyle | 18, 4, 255},
    {BuiltInStyle | 19, 7, 255}, {BuiltInStyle | 0, 0, 255},  {BuiltInStyle | 20, 5, 255},
};

int32_t FindNumberFormatById(uint32_t book, uint32_t id) {
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->numberFormatCount; i++) {
    if (wb->numberFormats[i].id == id) return static_cast<int32_t>(i);
  }
  return -1;
}

static int BuildNumberFormats(uint32_t book, Workbook* wb) {
  NumberFormat* formats =
      static_cast<NumberFormat*>(Allocate(BuiltInFormatCount * sizeof(NumberFormat)));
  if (!formats) return 0;
  for (uint32_t i = 0; i < BuiltInFormatCount; i++) {
    formats[i].id = BuiltInFormatIds[i];
    formats[i].flags = NumberFormatBuiltIn;
    formats[i].code = BuiltInFormatCodes[i];
  }
  wb->numberFormats = formats;
  wb->numberFormatCount = BuiltInFormatCount;
  // Each built-in format gets the locale's form as it is entered.
  for (uint32_t i = 0; i < BuiltInFormatCount; i++)
    if (!LocalizeFormatCode(book, i)) return 0;
  return 1;
}

static uint16_t DefaultXfFont(uint32_t index) {
  if (index == 1 || index == 2 || index >= 16) return 1;
  if (index == 3 || index == 4) return 2;
  return 0;
}

static int BuildXfs(uint32_t book, Workbook* wb) {
  Xf* xfs = static_cast<Xf*>(Allocate(DefaultXfCount * sizeof(Xf)));
  if (!xfs) return 0;
  for (uint32_t i = 0; i < DefaultXfCount; i++) {
    Xf* xf = &xfs[i];
    xf->font = DefaultXfFont(i);
    xf->flags = i == DefaultCellXf ? XfLocked : XfLocked | XfStyle;
    xf->verticalAlign = 2;
    xf->foreground = 64;
    xf->background = 65;
    if (i >= 16) {
      // An Xf names a table position, so the file id has to be looked up in the table just built.
      int32_t format = FindNumberFormatById(book, StyleXfFormatIds[i - 16]);
      xf->numberFormat = static_cast<uint16_t>(format < 0 ? 0 : format);
    }
  }
  wb->xfs = xfs;
  wb->xfCount = DefaultXfCount;
  return 1;
}

static int BuildStyleRecords(Workbook* wb) {
  StyleRecord* styles =
      static_cast<StyleRecord*>(Allocate(DefaultStyleCount * sizeof(StyleRecord)));
  if (!styles) return 0;
  std::memcpy(styles, DefaultStyles, sizeof(DefaultStyles));
  wb->styles = styles;
  wb->styleCount = DefaultStyleCount;
  return 1;
}

// The default fonts are four equal records because files refer to fonts 0 to 3 by position
// before any of their own font records are counted.
static int BuildFonts(Workbook* wb) {
  FontRecord* fonts = static_cast<FontRecord*>(Allocate(DefaultFontCount * sizeof(FontRecord)));
  if (!fonts) return 0;
  for (uint32_t i = 0; i < DefaultFontCount; i++) {
    FontRecord* font = &fonts[i];
    font->height = DefaultFontHeight;
    font->color = AutomaticFontColor;
    font->weight = 400;
    TextCopy(font->faceName, sizeof(font->faceName) / sizeof(font->faceName[0]), DefaultFontFace);
  }
  wb->fonts = fonts;
  wb->fontCount = DefaultFontCount;
  return 1;
}

int BuildDefaultStyles(uint32_t book) {
  Workbook* wb = GetWorkbook(book);
  std::memcpy(wb->palette, DefaultPalette, sizeof(DefaultPalette));
  if (!BuildNumberFormats(book, wb) || !BuildXfs(book, wb) || !BuildStyleRecords(wb) ||
      !BuildFonts(wb)) {
    FreeStyles(book);
    return 0;
  }
  return 1;
}

void FreeStyles(uint32_t book) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->numberFormatCount; i++) {
    NumberFormat* format = &wb->numberFormats[i];
    if (!(format->flags & NumberFormatBuiltIn)) Release(const_cast<char16_t*>(format->code));
    Release(format->compiled);
  }
  Release(wb->numberFormats);
  wb->numberFormats = nullptr;
  wb->numberFormatCount = 0;

  Release(wb->xfs);
  wb->xfs = nullptr;
  wb->xfCount = 0;

  Release(wb->styles);
  wb->styles = nullptr;
  wb->styleCount = 0;

  // The realised handles belong to the platform, which drops them itself.
  for (uint32_t i = 0; i < wb->fontCount; i++) {
    wb->fonts[i].screenHandle = nullptr;
    wb->fonts[i].printHandle = nullptr;
  }
  Release(wb->fonts);
  wb->fonts = nullptr;
  wb->fontCount = 0;
}

// Appends one zeroed element to a table that has no spare capacity; the table is untouched on
// failure. Indices are 16-bit, so a table never passes 65536 entries.
static void* AppendOne(void* items, uint32_t count, size_t elementSize) {
  if (count > UINT16_MAX) return nullptr;
  return Reallocate(items, count * elementSize, (count + 1) * elementSize);
}

int InternXf(uint32_t book, const Xf* xf, uint16_t* index) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->xfCount; i++) {
    if (std::memcmp(&wb->xfs[i], xf, sizeof(Xf)) == 0) {
      *index = static_cast<uint16_t>(i);
      return 1;
    }
  }
  Xf* grown = static_cast<Xf*>(AppendOne(wb->xfs, wb->xfCount, sizeof(Xf)));
  if (!grown) return 0;
  wb->xfs = grown;
  grown[wb->xfCount] = *xf;
  *index = static_cast<uint16_t>(wb->xfCount);
  wb->xfCount++;
  return 1;
}

static constexpr uint32_t FaceNameCapacity = sizeof(FontRecord::faceName) / sizeof(char16_t);

// Compares the fields before the face as bytes and the face as text, so that whatever lies after
// a face's terminator does not matter.
static bool SameFont(const FontRecord* a, const FontRecord* b) {
  if (std::memcmp(a, b, offsetof(FontRecord, faceName)) != 0) return false;
  for (uint32_t i = 0; i < FaceNameCapacity; i++) {
    if (a->faceName[i] != b->faceName[i]) return false;
    if (a->faceName[i] == 0) break;
  }
  return true;
}

int InternFont(uint32_t book, const FontRecord* font, uint16_t* index) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->fontCount; i++) {
    if (SameFont(&wb->fonts[i], font)) {
      *index = static_cast<uint16_t>(i);
      return 1;
    }
  }
  FontRecord* grown =
      static_cast<FontRecord*>(AppendOne(wb->fonts, wb->fontCount, sizeof(FontRecord)));
  if (!grown) return 0;
  wb->fonts = grown;
  FontRecord* added = &grown[wb->fontCount];
  std::memcpy(added, font, offsetof(FontRecord, faceName));
  TextCopy(added->faceName, FaceNameCapacity, font->faceName);
  *index = static_cast<uint16_t>(wb->fontCount);
  wb->fontCount++;
  return 1;
}

int AddFileFont(uint32_t book, const FontRecord* font, bool* fileFontSeen) {
  Workbook* wb = GetWorkbook(book);
  if (!*fileFontSeen) {
    *fileFontSeen = true;
    Release(wb->fonts);
    wb->fonts = nullptr;
    wb->fontCount = 0;
  }
  FontRecord* grown =
      static_cast<FontRecord*>(AppendOne(wb->fonts, wb->fontCount, sizeof(FontRecord)));
  if (!grown) return 0;
  wb->fonts = grown;
  grown[wb->fontCount++] = *font;
  return 1;
}

uint16_t XfForCell(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col) {
  const Sheet* s = GetSheet(book, sheet);
  // A chart sheet keeps its chart where the cell store would be.
  if (!SheetHasCells(s)) return DefaultCellXf;
  uint32_t index;
  if (FindCell(&s->cells, row, col, &index)) return s->cells.cells[index]->xf;
  if (FindRowRecord(&s->rows, row, &index)) return s->rows.records[index]->info.xf;
  if (FindColumnRecord(&s->columns, col, &index)) return s->columns.records[index]->info.xf;
  return DefaultCellXf;
}
