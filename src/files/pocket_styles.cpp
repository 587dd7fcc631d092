// Cell formats, fonts and number formats as the Pocket Excel file holds them. The file keeps a
// fixed table of 72 built-in number formats, most of them standing for a BIFF format number and
// the rest (dates and currencies of the handheld's own) given by their text. Colours in the file
// count from the first palette entry, eight places after the fixed colours of memory.
#include <cstring>

#include "base/bytes.h"
#include "files/pocket_internal.h"

const PocketFormatRow PocketFormatTable[PocketFormatRows] = {
    {0, nullptr},
    {2, nullptr},
    {-1, u"0.00_);(0.00)"},
    {4, nullptr},
    {39, nullptr},
    {3, nullptr},
    {37, nullptr},
    {1, nullptr},
    {-1, u"0_);(0)"},
    {-1, u"\"$\"#,##0.00"},
    {7, nullptr},
    {-1, u"\"$\"#,##0"},
    {5, nullptr},
    {44, nullptr},
    {43, nullptr},
    {42, nullptr},
    {41, nullptr},
    {-1, u"m/d"},
    {14, nullptr},
    {-1, u"mm/dd/yy"},
    {16, nullptr},
    {15, nullptr},
    {-1, u"dd\\-mmm\\-yy"},
    {17, nullptr},
    {-1, u"mmmm\\-yy"},
    {-1, u"mmmm\\ d\\,\\ yyyy"},
    {-1, u"m/d/yy\\ h:mm\\ AM/PM"},
    {22, nullptr},
    {18, nullptr},
    {20, nullptr},
    {19, nullptr},
    {21, nullptr},
    {10, nullptr},
    {9, nullptr},
    {12, nullptr},
    {13, nullptr},
    {-1, u"#\\ ?\?\?/?\?\?"},
    {11, nullptr},
    {-1, u"0.E+00"},
    {49, nullptr},
    {47, nullptr},
    {46, nullptr},
    {0, nullptr},
    {0, nullptr},
    {0, nullptr},
    {0, nullptr},
    {0, nullptr},
    {14, nullptr},
    {-1, u"yyyy/m/d h:mm AM/PM"},
    {22, nullptr},
    {0, nullptr},
    {0, nullptr},
    {-1, u"yy-mm-dd"},
    {-1, u"d\\.m"},
    {-1, u"d\\.m\\.yy"},
    {14, nullptr},
    {-1, u"d\\. mmm"},
    {-1, u"d\\. mmm yy"},
    {15, nullptr},
    {17, nullptr},
    {-1, u"mmmm yy"},
    {-1, u"d\\. mmmm yyyy"},
    {-1, u"d\\.m\\.yy h:mm AM/PM"},
    {-1, u"d\\.m\\.yy h:mm"},
    {-1, u"dd mm yy"},
    {-1, u"d/m"},
    {-1, u"d/m/yy"},
    {14, nullptr},
    {-1, u"d mmmm yyyy"},
    {-1, u"d/m/yy h:mm AM/PM"},
    {-1, u"d/m/yy h:mm"},
    {-1, u"d \\d\\e mmmm \\d\\e yyyy"},
};

// Memory keeps colours 0 to 127; the file stores index - 8 in a byte or a word, and the fixed
// colours below 8 wrap around and come back.
static uint8_t LineColorToPocket(uint8_t color) {
  return static_cast<uint8_t>(color - 8);
}

static uint8_t LineColorFromPocket(uint8_t color) {
  uint8_t index = static_cast<uint8_t>(color + 8);
  return index < 128 ? index : 64;
}

// A pattern colour of 64 or more (the window colours) is 255 in the file, which reads back as
// `automatic` (64 for the foreground, 65 for the background).
static uint16_t PatternColorToPocket(uint8_t color) {
  return color >= 64 ? 255 : static_cast<uint16_t>(color - 8);
}

static uint8_t PatternColorFromPocket(uint16_t color, uint8_t automatic) {
  if (color == 255) return automatic;
  uint16_t index = static_cast<uint16_t>(color + 8);
  return index < 64 ? static_cast<uint8_t>(index) : automatic;
}

constexpr uint8_t PocketLocked = 2, PocketHidden = 4, PocketPrefix = 8;

void EncodePocketXf(const Xf* xf, uint16_t fileFormat, uint8_t out[PocketXfSize]) {
  std::memset(out, 0, PocketXfSize);
  WriteU16(out, xf->font);
  WriteU16(out + 2, fileFormat);
  WriteU16(out + 4, 0xFFFF);
  WriteU16(out + 6, 0xFFFF);
  uint16_t protection = 0;
  if (xf->flags & XfLocked) protection |= PocketLocked;
  if (xf->flags & XfFormulaHidden) protection |= PocketHidden;
  if (xf->flags & XfQuotePrefix) protection |= PocketPrefix;
  WriteU16(out + 8, protection);
  out[10] = static_cast<uint8_t>((xf->horizontalAlign & 7) | ((xf->flags & XfWrap) ? 8 : 0) |
                                 (((xf->verticalAlign + 1) & 7) << 4));
  out[11] = static_cast<uint8_t>((xf->topStyle ? 1 : 0) | (xf->leftStyle ? 2 : 0) |
                                 (xf->bottomStyle ? 4 : 0) | (xf->rightStyle ? 8 : 0));
  WriteU16(out + 12, PatternColorToPocket(xf->foreground));
  WriteU16(out + 14, PatternColorToPocket(xf->background));
  out[16] = LineColorToPocket(xf->topColor);
  out[17] = LineColorToPocket(xf->leftColor);
  out[18] = LineColorToPocket(xf->bottomColor);
  out[19] = LineColorToPocket(xf->rightColor);
  out[20] = xf->pattern;
  out[21] = xf->rotation;
}

void DecodePocketXf(const uint8_t in[PocketXfSize], Xf* xf) {
  std::memset(xf, 0, sizeof *xf);
  xf->font = ReadU16(in);
  uint16_t protection = ReadU16(in + 8);
  if (protection & PocketLocked) xf->flags |= XfLocked;
  if (protection & PocketHidden) xf->flags |= XfFormulaHidden;
  if (protection & PocketPrefix) xf->flags |= XfQuotePrefix;
  xf->horizontalAlign = in[10] & 7;
  if (in[10] & 8) xf->flags |= XfWrap;
  uint8_t vertical = (in[10] >> 4) & 7;
  xf->verticalAlign = vertical ? static_cast<uint8_t>(vertical - 1) : 2;  // 0: bottom, as a new Xf
  // One bit per line: whatever style it had, it comes back thin.
  xf->topStyle = in[11] & 1;
  xf->leftStyle = (in[11] >> 1) & 1;
  xf->bottomStyle = (in[11] >> 2) & 1;
  xf->rightStyle = (in[11] >> 3) & 1;
  xf->foreground = PatternColorFromPocket(ReadU16(in + 12), 64);
  xf->background = PatternColorFromPocket(ReadU16(in + 14), 65);
  xf->topColor = LineColorFromPocket(in[16]);
  xf->leftColor = LineColorFromPocket(in[17]);
  xf->bottomColor = LineColorFromPocket(in[18]);
  xf->rightColor = LineColorFromPocket(in[19]);
  xf->pattern = in[20];
  xf->rotation = in[21];
}

uint16_t FontColorToPocket(uint16_t color) {
  return color == AutomaticFontColor ? PocketAutomaticColor : static_cast<uint16_t>(color - 8);
}

uint16_t FontColorFromPocket(uint16_t color) {
  return color == PocketAutomaticColor ? AutomaticFontColor : static_cast<uint16_t>(color + 8);
}
