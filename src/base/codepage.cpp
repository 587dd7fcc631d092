// Code page conversion through iconv, with one converter kept open for the last code page used,
// since a file's strings all come in one code page.
#include "base/codepage.h"

#include <iconv.h>

#include <cstdio>
#include <cstring>

#include "base/alloc.h"

// The iconv name of a Windows code page number.
static void CodePageName(uint16_t codePage, char* out, size_t size) {
  switch (codePage) {
    case 367:
      std::snprintf(out, size, "ASCII");
      break;
    case 1200:
      std::snprintf(out, size, "UTF-16LE");
      break;
    case 10000:
      std::snprintf(out, size, "MACINTOSH");
      break;
    case 32768:  // the Macintosh Roman of older files
      std::snprintf(out, size, "MACINTOSH");
      break;
    case 32769:  // Windows Latin-1 as older files name it
      std::snprintf(out, size, "CP1252");
      break;
    default:
      std::snprintf(out, size, "CP%u", codePage);
      break;
  }
}

static iconv_t openConverter = reinterpret_cast<iconv_t>(-1);
static uint16_t openCodePage;

static iconv_t ConverterFor(uint16_t codePage) {
  if (openConverter != reinterpret_cast<iconv_t>(-1) && openCodePage == codePage)
    return openConverter;
  if (openConverter != reinterpret_cast<iconv_t>(-1)) iconv_close(openConverter);
  char name[24];
  CodePageName(codePage, name, sizeof name);
  openConverter = iconv_open("UTF-16LE", name);
  openCodePage = codePage;
  return openConverter;
}

bool IsValidCodePage(uint16_t codePage) {
  return ConverterFor(codePage) != reinterpret_cast<iconv_t>(-1);
}

char16_t* CodePageToText(uint16_t codePage, const uint8_t* bytes, uint32_t length) {
  // A single-byte code page gives at most one character per byte; UTF-16 input gives fewer.
  char16_t* text = static_cast<char16_t*>(Allocate((length + 1u) * sizeof(char16_t)));
  if (!text) return nullptr;
  bool ascii = true;
  for (uint32_t i = 0; i < length && ascii; i++) ascii = bytes[i] < 0x80;
  iconv_t cd = ascii ? reinterpret_cast<iconv_t>(-1) : ConverterFor(codePage);
  if (cd == reinterpret_cast<iconv_t>(-1)) {
    for (uint32_t i = 0; i < length; i++) text[i] = bytes[i];
    text[length] = 0;
    return text;
  }
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  char* in = const_cast<char*>(reinterpret_cast<const char*>(bytes));
  size_t inLeft = length;
  char* out = reinterpret_cast<char*>(text);
  size_t outLeft = length * sizeof(char16_t);
  while (inLeft && outLeft >= sizeof(char16_t)) {
    if (iconv(cd, &in, &inLeft, &out, &outLeft) != static_cast<size_t>(-1)) break;
    // An invalid or cut sequence: one byte becomes the replacement character.
    const char16_t replacement = 0xFFFD;
    std::memcpy(out, &replacement, sizeof replacement);
    out += sizeof replacement;
    outLeft -= sizeof replacement;
    in++;
    inLeft--;
  }
  size_t produced = (length * sizeof(char16_t) - outLeft) / sizeof(char16_t);
  text[produced] = 0;
  return text;
}
