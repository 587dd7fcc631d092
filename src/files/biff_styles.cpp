// The style records of the BIFF globals: fonts, number formats, cell formats (Xf, in the BIFF5
// and BIFF8 layouts), the palette and the built-in cell styles. The first font and the first Xf
// of a file replace the defaults of the new workbook, since cells name them by position.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/biff_internal.h"
#include "format/number_format.h"
#include "model/styles.h"
#include "model/workbook.h"

static int ReadFont(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  FontRecord font{};
  font.height = ReadWord(&body);
  font.attributes = ReadWord(&body);
  font.color = ReadWord(&body);
  font.weight = ReadWord(&body);
  ReadWord(&body);  // escapement: not kept
  // The model has no underline field; the old BIFF underline bit of the attributes carries it.
  if (ReadByte(&body)) font.attributes |= 4;
  font.pitchAndFamily = ReadByte(&body);
  font.charset = ReadByte(&body);
  ReadByte(&body);
  uint8_t length = ReadByte(&body);
  char16_t* face = ReadBiffString(load, &body, length);
  if (!face) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
  TextCopy(font.faceName, sizeof font.faceName / sizeof font.faceName[0], face);
  Release(face);
  if (!AddFileFont(load->book, &font, &load->fontSeen)) return FailOutOfMemory(load);
  return 1;
}

static int ReadFormat(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t id = ReadWord(&body);
  uint32_t length = load->version >= 8 ? ReadWord(&body) : ReadByte(&body);
  char16_t* code = ReadBiffString(load, &body, length);
  if (!code) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
  if (EqualTextNoCase(code, u"General")) {
    Release(code);
    code = TextDuplicate(u"General");
    if (!code) return FailOutOfMemory(load);
  }
  Workbook* wb = GetWorkbook(load->book);
  int32_t index = FindNumberFormatById(load->book, id);
  NumberFormat* format;
  if (index >= 0) {
    format = &wb->numberFormats[index];
    if (!(format->flags & NumberFormatBuiltIn)) Release(const_cast<char16_t*>(format->code));
    Release(format->compiled);
  } else {
    format = AppendEntry(&wb->numberFormats, &wb->numberFormatCount);
    if (!format) {
      Release(code);
      return FailOutOfMemory(load);
    }
  }
  // The file's own text stands for its id, a built-in id included.
  *format = NumberFormat{id, 0, code, nullptr};
  return 1;
}

// `count` bits from bit `at` of the body, counted from its first byte.
static uint32_t Bits(const uint8_t* body, uint32_t at, uint32_t count) {
  uint32_t value = 0;
  for (uint32_t i = 0; i < count; i++) {
    uint32_t bit = at + i;
    value |= ((body[bit / 8] >> (bit % 8)) & 1u) << i;
  }
  return value;
}

const XfLayout BiffXfLayouts[2] = {
    // BIFF5
    {16,
     {80, 6},
     {64, 7},
     {71, 7},
     {96, 3},
     {105, 7},
     {99, 3},
     {112, 7},
     {86, 3},
     {89, 7},
     {102, 3},
     {119, 7}},
    // BIFF8
    {20,
     {138, 6},
     {144, 7},
     {151, 7},
     {88, 4},
     {112, 7},
     {80, 4},
     {96, 7},
     {92, 4},
     {119, 7},
     {84, 4},
     {103, 7}},
};

static uint8_t Field(const uint8_t* body, const uint8_t field[2]) {
  return static_cast<uint8_t>(Bits(body, field[0], field[1]));
}

static int ReadXf(BiffLoad* load, const BiffRecord* record) {
  const XfLayout& layout = BiffXfLayouts[load->version >= 8 ? 1 : 0];
  if (record->length < layout.size) return Fail(load, "an XF record is too short");
  const uint8_t* b = record->body;
  Xf xf;
  std::memset(&xf, 0, sizeof xf);
  uint16_t font = ReadU16(b);
  xf.font = font > 4 ? font - 1 : font;  // there is no font 4
  int32_t format = FindNumberFormatById(load->book, ReadU16(b + 2));
  xf.numberFormat = static_cast<uint16_t>(format < 0 ? 0 : format);
  xf.flags = b[4] & 0x0F;
  xf.horizontalAlign = b[6] & 7;
  if (b[6] & 8) xf.flags |= XfWrap;
  xf.verticalAlign = (b[6] >> 4) & 7;
  xf.pattern = Field(b, layout.pattern);
  xf.foreground = Field(b, layout.foreground);
  xf.background = Field(b, layout.background);
  // The model's background is always the colour of a solid fill.
  if (xf.pattern == 1) {
    uint8_t t = xf.foreground;
    xf.foreground = xf.background;
    xf.background = t;
  }
  xf.topStyle = Field(b, layout.topStyle);
  xf.topColor = Field(b, layout.topColor);
  xf.leftStyle = Field(b, layout.leftStyle);
  xf.leftColor = Field(b, layout.leftColor);
  xf.bottomStyle = Field(b, layout.bottomStyle);
  xf.bottomColor = Field(b, layout.bottomColor);
  xf.rightStyle = Field(b, layout.rightStyle);
  xf.rightColor = Field(b, layout.rightColor);
  Workbook* wb = GetWorkbook(load->book);
  if (!load->xfSeen) {
    load->xfSeen = true;
    Release(wb->xfs);
    wb->xfs = nullptr;
    wb->xfCount = 0;
    Release(wb->styles);
    wb->styles = nullptr;
    wb->styleCount = 0;
  }
  if (wb->xfCount > 0xFFFF) return Fail(load, "too many XF records");
  Xf* added = AppendEntry(&wb->xfs, &wb->xfCount);
  if (!added) return FailOutOfMemory(load);
  *added = xf;
  return 1;
}

static int ReadPalette(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t count = ReadWord(&body);
  Workbook* wb = GetWorkbook(load->book);
  for (uint32_t i = 0; i < count && 8 + i < PaletteSize; i++) {
    const uint8_t* rgb = ReadBytes(&body, 4);
    if (!rgb) break;
    wb->palette[8 + i] = rgb[0] | rgb[1] << 8 | rgb[2] << 16;
  }
  return EndRecord(load, &body);
}

static int ReadStyle(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  uint16_t xf = ReadWord(&body);
  if (!(xf & 0x8000)) return EndRecord(load, &body);  // user styles are not kept
  StyleRecord style;
  style.xf = xf;
  style.builtinId = ReadByte(&body);
  style.level = ReadByte(&body);
  if (body.overrun) return EndRecord(load, &body);
  Workbook* wb = GetWorkbook(load->book);
  StyleRecord* added = AppendEntry(&wb->styles, &wb->styleCount);
  if (!added) return FailOutOfMemory(load);
  *added = style;
  return 1;
}

const RecordEntry StyleRecords[] = {
    {0x0031, ReadFont}, {0x0231, ReadFont},    {0x041E, ReadFormat},
    {0x00E0, ReadXf},   {0x0092, ReadPalette}, {0x0293, ReadStyle},
};
const uint32_t StyleRecordCount = sizeof StyleRecords / sizeof StyleRecords[0];
