// Code page conversion through iconv. Single bytes are decoded once into a table when the code
// page opens; double-byte characters and the writing of characters above 0x7F ask iconv one
// character at a time.
#include "files/code_page.h"

#include <iconv.h>

#include <cerrno>
#include <cstdio>

#include "base/alloc.h"

static const iconv_t NoConverter = reinterpret_cast<iconv_t>(-1);

static iconv_t Descriptor(void* handle) {
  return handle ? static_cast<iconv_t>(handle) : NoConverter;
}

// One conversion of a short input; returns the bytes written, or -1 with errno from iconv.
static long Convert(void* handle, const char* in, size_t inSize, char* out, size_t outSize) {
  iconv_t cd = Descriptor(handle);
  if (cd == NoConverter) return -1;
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  char* source = const_cast<char*>(in);
  char* target = out;
  size_t left = inSize, room = outSize;
  if (iconv(cd, &source, &left, &target, &room) == static_cast<size_t>(-1)) return -1;
  if (left) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<long>(target - out);
}

static char16_t WideFromBytes(const char* bytes) {
  return static_cast<char16_t>(static_cast<uint8_t>(bytes[0]) |
                               (static_cast<uint8_t>(bytes[1]) << 8));
}

int OpenCodePage(uint32_t number, CodePage* page) {
  *page = CodePage{};
  char name[16];
  const uint32_t tries[] = {number, 1252};
  for (uint32_t n : tries) {
    std::snprintf(name, sizeof name, "CP%u", n);
    iconv_t to = iconv_open("UTF-16LE", name);
    if (to == NoConverter) continue;
    iconv_t from = iconv_open(name, "UTF-16LE");
    if (from == NoConverter) {
      iconv_close(to);
      continue;
    }
    page->number = n;
    page->toWide = to;
    page->fromWide = from;
    break;
  }
  for (uint32_t b = 0; b < 256; b++) {
    char in = static_cast<char>(b);
    char out[4];
    page->single[b] = static_cast<char16_t>(b);
    if (!page->toWide) continue;
    if (Convert(page->toWide, &in, 1, out, sizeof out) == 2) {
      page->single[b] = WideFromBytes(out);
    } else if (errno == EINVAL) {
      // The byte needs another behind it.
      page->lead[b] = 1;
      page->single[b] = 0;
    }
  }
  return 1;
}

void CloseCodePage(CodePage* page) {
  if (page->toWide) iconv_close(Descriptor(page->toWide));
  if (page->fromWide) iconv_close(Descriptor(page->fromWide));
  *page = CodePage{};
}

char16_t DecodePair(CodePage* page, uint8_t lead, uint8_t trail) {
  const char in[2] = {static_cast<char>(lead), static_cast<char>(trail)};
  char out[8];
  if (Convert(page->toWide, in, 2, out, sizeof out) != 2) return 0;
  return WideFromBytes(out);
}

char16_t* DecodeBytes(CodePage* page, const uint8_t* bytes, uint32_t length) {
  char16_t* text = static_cast<char16_t*>(Allocate((length + 1u) * sizeof(char16_t)));
  if (!text) return nullptr;
  uint32_t n = 0;
  for (uint32_t i = 0; i < length; i++) {
    uint8_t b = bytes[i];
    if (!page->lead[b]) {
      text[n++] = page->single[b];
      continue;
    }
    char16_t pair = i + 1 < length ? DecodePair(page, b, bytes[i + 1]) : 0;
    text[n++] = pair ? pair : 0xFFFD;
    if (pair) i++;
  }
  text[n] = 0;
  return text;
}

uint32_t EncodeChar(CodePage* page, char16_t c, uint8_t* out) {
  if (c < 0x80) {
    out[0] = static_cast<uint8_t>(c);
    return 1;
  }
  const char in[2] = {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  char bytes[8];
  long n = Convert(page->fromWide, in, 2, bytes, sizeof bytes);
  if (n == 1 || n == 2) {
    out[0] = static_cast<uint8_t>(bytes[0]);
    if (n == 2) out[1] = static_cast<uint8_t>(bytes[1]);
    return static_cast<uint32_t>(n);
  }
  // A byte that iconv leaves undefined still stands for its own code point, both ways.
  if (c < 256 && page->single[c] == c && !page->lead[c]) {
    out[0] = static_cast<uint8_t>(c);
    return 1;
  }
  out[0] = '?';
  return 1;
}
