// Drawing resources the painter shares: the header fonts made once at start, the cell fonts
// realised on demand for the current zoom, the fill patterns and the fixed colours.
#pragma once
#include <cstdint>

#include "platform/platform.h"

constexpr Colour Black = 0x000000;
constexpr Colour White = 0xFFFFFF;
constexpr Colour LightGrey = 0xC0C0C0;  // the stock light grey brush, and the grid pen
constexpr Colour Grey = 0x808080;       // the stock grey brush, and the shadow pen
constexpr Colour MarkRed = 0x0000FF;    // comment marks
constexpr Colour FilterBlue = 0xFF0000;

// The fill patterns 2 to 18 of a cell or object, 8 rows of 8 pixels, most significant bit left.
constexpr uint32_t FillPatternCount = 17;
extern const uint8_t FillPatterns[FillPatternCount][8];

struct DrawResources {
  PlatformFont* headerFont;
  PlatformFont* boldHeaderFont;
};

extern DrawResources Resources;

// Makes the header fonts; returns 0 when the platform could make none.
int CreateDrawResources();
// Releases the header fonts and every cell font realised so far.
void FreeDrawResources();

// The font for a font record of the workbook at the current zoom, made once and kept;
// null (the default font) when it cannot be made.
PlatformFont* CellFont(uint32_t book, uint32_t fontIndex);
// A font for the header strips at a zoom, bold or not: the start-up fonts at 100, else made once
// per zoom and kept.
PlatformFont* HeaderFont(int32_t zoom, int bold);

// A palette colour of the workbook; indices past the palette give `fallback`.
Colour PaletteColour(uint32_t book, uint32_t index, Colour fallback);
