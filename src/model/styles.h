// The style tables of a workbook: cell formats (Xf), fonts, number formats and cell styles, with
// the defaults of a new workbook and the interning that lets equal combinations share an index.
#pragma once
#include <cstdint>

#pragma pack(push, 1)
// Compared byte by byte: no gaps, and always zeroed before it is filled.
struct Xf {
  uint16_t font;
  uint16_t numberFormat;  // index into the number format table, not the file's id
  uint32_t flags;
  uint8_t horizontalAlign;
  uint8_t verticalAlign;
  uint8_t pattern;
  uint8_t foreground;
  uint8_t background;
  // Borders: kept from files and compared for interning; drawn once the shell draws borders.
  uint8_t topStyle, topColor;
  uint8_t leftStyle, leftColor;
  uint8_t bottomStyle, bottomColor;
  uint8_t rightStyle, rightColor;
  uint8_t rotation;
};
#pragma pack(pop)
static_assert(sizeof(Xf) == 22, "Xf has no padding");

constexpr uint32_t XfLocked = 1;
constexpr uint32_t XfFormulaHidden = 2;
constexpr uint32_t XfStyle = 4;
constexpr uint32_t XfJustifyLast = 8;
constexpr uint32_t XfWrap = 16;
constexpr uint32_t XfQuotePrefix = 32;  // text typed behind an apostrophe: shown and saved with it
constexpr uint16_t DefaultCellXf = 15;

struct FontRecord {
  uint16_t height;  // twips
  uint16_t attributes;
  uint16_t color;  // palette index; 32767 automatic
  uint16_t weight;
  // Kept as files give them, for writing back and for the shell's font realisation.
  uint8_t escapement;
  uint8_t pitchAndFamily;
  uint8_t charset;
  uint8_t reserved;
  char16_t faceName[32];
  // Realised on demand by the platform; not part of a font's identity.
  void* screenHandle;
  void* printHandle;
  int32_t cachedMetric;
};

constexpr uint16_t AutomaticFontColor = 32767;
constexpr uint16_t FontUnderline = 4;  // in `attributes`

struct NumberFormat {
  uint16_t id;  // the file's format number
  uint32_t flags;
  const char16_t* code;  // owned unless built in
  char16_t* compiled;    // the code rewritten for the locale; owned
};

constexpr uint32_t NumberFormatBuiltIn = 1;

struct StyleRecord {
  uint16_t xf;  // bit 15 set for a built-in style
  // Which built-in style and outline level; kept from files for writing back.
  uint8_t builtinId;
  uint8_t level;  // 255 when unused
};

// Defaults that the platform may override at start-up, so that results never depend on the
// machine unless it asks for it.
extern char16_t DefaultFontFace[32];
extern uint16_t DefaultFontHeight;  // twips
extern uint16_t AnsiCodePage;

constexpr uint32_t BuiltInFormatCount = 36;
constexpr uint32_t DefaultXfCount = 21;
constexpr uint32_t DefaultStyleCount = 6;
constexpr uint32_t DefaultFontCount = 4;
constexpr uint32_t PaletteSize = 64;

extern const uint32_t DefaultPalette[PaletteSize];  // 0x00BBGGRR
extern const uint16_t BuiltInFormatIds[BuiltInFormatCount];
extern const char16_t* const BuiltInFormatCodes[BuiltInFormatCount];

// Index in the number format table of the entry with file id `id`, or -1.
int32_t FindNumberFormatById(uint32_t book, uint32_t id);
// Fills a new workbook's number formats, Xfs, styles, fonts and palette. Returns 0 on lost memory.
int BuildDefaultStyles(uint32_t book);
void FreeStyles(uint32_t book);

// Finds an equal Xf in the workbook or appends a copy; returns 0 when memory runs out.
int InternXf(uint32_t book, const Xf* xf, uint16_t* index);
// Finds or adds a font; handles and cached metrics are not compared.
int InternFont(uint32_t book, const FontRecord* font, uint16_t* index);
// Appends a font read from a file. The file's first font (`*fileFontSeen` still false) first
// clears the default fonts of the new workbook, since the file's own table replaces them.
// Returns 0 when memory runs out.
int AddFileFont(uint32_t book, const FontRecord* font, bool* fileFontSeen);
// The Xf of the cell, else of its row record, else of its column record, else 15.
uint16_t XfForCell(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col);
