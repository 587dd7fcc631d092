// What the Pocket Excel reader and writer share: the record ids, the limits of the format, the
// table of the format's built-in number formats, and the encoding of cell formats and fonts.
#pragma once
#include <cstdint>

#include "model/styles.h"

enum PocketRecord : uint8_t {
  PocketBlank = 1,
  PocketNumber = 3,
  PocketLabel = 4,
  PocketBoolErr = 5,
  PocketFormula = 6,
  PocketString = 7,
  PocketRow = 8,
  PocketBof = 9,
  PocketEof = 10,
  PocketName = 24,
  PocketSelection = 29,
  PocketFormat = 30,
  PocketDefaultRowHeight = 37,
  PocketFilePass = 47,
  PocketFont = 49,
  PocketWindow1 = 61,
  PocketWindow2 = 62,
  PocketPane = 65,
  PocketCodePage = 66,
  PocketDefColWidth = 85,
  PocketColInfo = 125,
  PocketBoundSheet = 133,
  PocketCountry = 140,
  PocketScl = 160,
  PocketXf = 224,
};

constexpr uint16_t PocketVersion = 270;
constexpr uint16_t PocketGlobalsType = 5;
constexpr uint16_t PocketSheetType = 16;
constexpr uint32_t PocketLastRow = 16383;  // references hold 14 bits of row
constexpr uint32_t PocketXfSize = 22;
constexpr uint16_t PocketAutomaticColor = 255;  // a font's automatic colour in the file

// Cell format numbers: the file's 0 is the workbook's default cell format, n is n + 20.
constexpr uint16_t PocketXfOffset = 20;
inline uint16_t XfFromPocket(uint16_t fileXf) {
  return fileXf == 0 ? DefaultCellXf : static_cast<uint16_t>(fileXf + PocketXfOffset);
}

// Number formats in an XF: below 72 a row of the built-in table, 72 to 232 General, from 233 on
// the custom formats of the file in the order of their FORMAT records.
constexpr uint32_t PocketFormatRows = 72;
constexpr uint16_t PocketCustomFormatBase = 233;
// Each row holds the BIFF format number it stands for, or -1 and the text of the format.
struct PocketFormatRow {
  int16_t biffId;
  const char16_t* text;
};
extern const PocketFormatRow PocketFormatTable[PocketFormatRows];

// The 22 bytes of an XF from a cell format whose number format the file calls `fileFormat`, and
// back (the number format is left to the caller, which knows the file's custom formats).
void EncodePocketXf(const Xf* xf, uint16_t fileFormat, uint8_t out[PocketXfSize]);
void DecodePocketXf(const uint8_t in[PocketXfSize], Xf* xf);

// A font's colour: the automatic colour is 255, a palette index n is n - 8.
uint16_t FontColorToPocket(uint16_t color);
uint16_t FontColorFromPocket(uint16_t color);
