// Fonts, patterns and colours for painting. Cell fonts are kept in one small cache keyed by
// what makes them differ, so a paint creates a font only the first time a face, size and style
// appear at a zoom.
#include "shell/resources.h"

#include <cstring>

#include "base/muldiv.h"
#include "model/workbook.h"
#include "shell/view.h"

DrawResources Resources;

// Patterns 2 to 18: 50%, 75% and 25% grey, thick horizontal and vertical stripes, thick
// diagonals both ways, diagonal crosshatch, thick crosshatch, thin horizontal and vertical
// stripes, thin diagonals both ways, thin horizontal and diagonal crosshatch, 12.5% and 6.25%.
const uint8_t FillPatterns[FillPatternCount][8] = {
    {0xAA, 0x55, 0xAA, 0x55, 0xAA, 0x55, 0xAA, 0x55},
    {0xEE, 0xBB, 0xEE, 0xBB, 0xEE, 0xBB, 0xEE, 0xBB},
    {0x88, 0x22, 0x88, 0x22, 0x88, 0x22, 0x88, 0x22},
    {0xFF, 0xFF, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00},
    {0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC},
    {0xCC, 0x66, 0x33, 0x99, 0xCC, 0x66, 0x33, 0x99},
    {0x33, 0x66, 0xCC, 0x99, 0x33, 0x66, 0xCC, 0x99},
    {0xCC, 0xCC, 0x33, 0x33, 0xCC, 0xCC, 0x33, 0x33},
    {0xFF, 0x99, 0xFF, 0x99, 0xFF, 0x99, 0xFF, 0x99},
    {0xFF, 0x00, 0x00, 0x00, 0xFF, 0x00, 0x00, 0x00},
    {0x88, 0x88, 0x88, 0x88, 0x88, 0x88, 0x88, 0x88},
    {0x88, 0x44, 0x22, 0x11, 0x88, 0x44, 0x22, 0x11},
    {0x11, 0x22, 0x44, 0x88, 0x11, 0x22, 0x44, 0x88},
    {0xFF, 0x88, 0x88, 0x88, 0xFF, 0x88, 0x88, 0x88},
    {0x99, 0x66, 0x66, 0x99, 0x99, 0x66, 0x66, 0x99},
    {0x80, 0x00, 0x08, 0x00, 0x80, 0x00, 0x08, 0x00},
    {0x80, 0x00, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00},
};

struct CachedFont {
  char16_t face[32];
  int32_t height;
  int32_t weight;
  uint8_t italic, underline, strikeOut;
  PlatformFont* font;
};

constexpr uint32_t FontCacheSize = 64;
static CachedFont FontCache[FontCacheSize];
static uint32_t FontCacheCount;

static PlatformFont* CachedFontFor(const FontSpec* spec) {
  for (uint32_t i = 0; i < FontCacheCount; i++) {
    const CachedFont& f = FontCache[i];
    if (f.height == spec->height && f.weight == spec->weight && f.italic == spec->italic &&
        f.underline == spec->underline && f.strikeOut == spec->strikeOut &&
        std::memcmp(f.face, spec->face, sizeof f.face) == 0)
      return f.font;
  }
  PlatformFont* font = gPlatform->createFont(spec);
  if (!font) return nullptr;
  // A full cache drops its oldest half; fonts in use by the paint in progress are all newer.
  if (FontCacheCount == FontCacheSize) {
    for (uint32_t i = 0; i < FontCacheSize / 2; i++) gPlatform->deleteFont(FontCache[i].font);
    std::memmove(FontCache, FontCache + FontCacheSize / 2, sizeof(CachedFont) * FontCacheSize / 2);
    FontCacheCount = FontCacheSize / 2;
  }
  CachedFont& f = FontCache[FontCacheCount++];
  std::memcpy(f.face, spec->face, sizeof f.face);
  f.height = spec->height;
  f.weight = spec->weight;
  f.italic = spec->italic;
  f.underline = spec->underline;
  f.strikeOut = spec->strikeOut;
  f.font = font;
  return font;
}

static const char16_t HeaderFace[32] = u"Helvetica";

static PlatformFont* MakeHeaderFont(int32_t height, int32_t weight) {
  FontSpec spec{HeaderFace, height, weight, 0, 0, 0, 0};
  return CachedFontFor(&spec);
}

int CreateDrawResources() {
  Resources.headerFont = MakeHeaderFont(0, 400);
  Resources.boldHeaderFont = MakeHeaderFont(0, 700);
  return Resources.headerFont != nullptr;
}

void FreeDrawResources() {
  for (uint32_t i = 0; i < FontCacheCount; i++) gPlatform->deleteFont(FontCache[i].font);
  FontCacheCount = 0;
  Resources = DrawResources{};
}

PlatformFont* HeaderFont(int32_t zoom, int bold) {
  if (zoom == 100 || zoom == 0) return bold ? Resources.boldHeaderFont : Resources.headerFont;
  FontMetrics m{};
  gPlatform->fontMetrics(gPlatform->defaultFont(), &m);
  return MakeHeaderFont(MulDiv(m.height, zoom, 100), bold ? 700 : 400);
}

PlatformFont* CellFont(uint32_t book, uint32_t fontIndex) {
  const Workbook* w = GetWorkbook(book);
  if (fontIndex >= w->fontCount) return nullptr;
  const FontRecord& r = w->fonts[fontIndex];
  FontSpec spec{};
  char16_t face[32] = {};
  std::memcpy(face, r.faceName, sizeof face - sizeof(char16_t));
  spec.face = face;
  spec.height = MulDivRound(r.height, View.dpiY, 1440);
  spec.weight = r.weight ? r.weight : 400;
  spec.italic = (r.attributes & 2) != 0;
  spec.underline = (r.attributes & 4) != 0;
  spec.strikeOut = (r.attributes & 8) != 0;
  return CachedFontFor(&spec);
}

Colour PaletteColour(uint32_t book, uint32_t index, Colour fallback) {
  return index < PaletteSize ? GetWorkbook(book)->palette[index] : fallback;
}
