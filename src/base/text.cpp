// 16-bit string helpers, the program's case-folding rule and UTF-8 conversion at the borders.
#include "base/text.h"

#include <cstring>

#include "base/alloc.h"

uint32_t TextLength(const char16_t* text) {
  if (!text) return 0;
  uint32_t n = 0;
  while (text[n]) n++;
  return n;
}

void TextCopy(char16_t* target, size_t capacity, const char16_t* source) {
  size_t n = 0;
  if (source)
    for (; n + 1 < capacity && source[n]; n++) target[n] = source[n];
  target[n] = 0;
}

char16_t* TextDuplicateN(const char16_t* source, uint32_t length) {
  char16_t* copy = static_cast<char16_t*>(Allocate((static_cast<size_t>(length) + 1) * 2));
  if (!copy) return nullptr;
  if (length) std::memcpy(copy, source, static_cast<size_t>(length) * 2);
  copy[length] = 0;
  return copy;
}

char16_t* TextDuplicate(const char16_t* source) {
  if (!source) return nullptr;
  return TextDuplicateN(source, TextLength(source));
}

// Pairs laid out as upper case at an even code point and lower case right after it.
static bool InEvenPairRange(char16_t c) {
  return (c >= 0x0100 && c <= 0x012F) || (c >= 0x0132 && c <= 0x0137) ||
         (c >= 0x014A && c <= 0x0177) || (c >= 0x03D8 && c <= 0x03EF) ||
         (c >= 0x0460 && c <= 0x0481) || (c >= 0x048A && c <= 0x04BF) ||
         (c >= 0x04D0 && c <= 0x052F);
}

// Pairs laid out as upper case at an odd code point and lower case right after it.
static bool InOddPairRange(char16_t c) {
  return (c >= 0x0139 && c <= 0x0148) || (c >= 0x0179 && c <= 0x017E) ||
         (c >= 0x04C1 && c <= 0x04CE);
}

char16_t FoldCase(char16_t c) {
  if (c < 0x80) return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
  if (c >= 0x00C0 && c <= 0x00DE && c != 0x00D7) return static_cast<char16_t>(c + 32);
  if (c == 0x00B5) return 0x03BC;  // micro sign folds to Greek mu
  if (c == 0x0178) return 0x00FF;
  if (c == 0x017F) return u's';
  if (InEvenPairRange(c)) return static_cast<char16_t>(c | 1);
  if (InOddPairRange(c)) return (c & 1) ? static_cast<char16_t>(c + 1) : c;
  if (c >= 0x0391 && c <= 0x03AB && c != 0x03A2) return static_cast<char16_t>(c + 32);
  if (c == 0x0386) return 0x03AC;
  if (c >= 0x0388 && c <= 0x038A) return static_cast<char16_t>(c + 37);
  if (c == 0x038C) return 0x03CC;
  if (c == 0x038E || c == 0x038F) return static_cast<char16_t>(c + 63);
  if (c == 0x03C2) return 0x03C3;  // final sigma compares as sigma
  if (c >= 0x0410 && c <= 0x042F) return static_cast<char16_t>(c + 32);
  if (c >= 0x0400 && c <= 0x040F) return static_cast<char16_t>(c + 80);
  if (c == 0x04C0) return 0x04CF;
  return c;
}

char16_t UpperCase(char16_t c) {
  if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
  if (c >= 0x00E0 && c <= 0x00FE && c != 0x00F7) return static_cast<char16_t>(c - 32);
  if (c == 0x00FF) return 0x0178;
  if (InEvenPairRange(static_cast<char16_t>(c & ~1)) && (c & 1))
    return static_cast<char16_t>(c - 1);
  if (c > 0x0100 && InOddPairRange(static_cast<char16_t>(c - 1)) && !(c & 1))
    return static_cast<char16_t>(c - 1);
  if (c >= 0x03B1 && c <= 0x03CB && c != 0x03C2) return static_cast<char16_t>(c - 32);
  if (c == 0x03C2) return 0x03A3;
  if (c == 0x03AC) return 0x0386;
  if (c >= 0x03AD && c <= 0x03AF) return static_cast<char16_t>(c - 37);
  if (c == 0x03CC) return 0x038C;
  if (c == 0x03CD || c == 0x03CE) return static_cast<char16_t>(c - 63);
  if (c >= 0x0430 && c <= 0x044F) return static_cast<char16_t>(c - 32);
  if (c >= 0x0450 && c <= 0x045F) return static_cast<char16_t>(c - 80);
  if (c == 0x04CF) return 0x04C0;
  return c;
}

int CompareText(const char16_t* a, const char16_t* b) {
  static const char16_t empty[1] = {0};
  if (!a) a = empty;
  if (!b) b = empty;
  while (*a && *a == *b) a++, b++;
  return (*a > *b) - (*a < *b);
}

int CompareTextNoCaseN(const char16_t* a, const char16_t* b, uint32_t count) {
  static const char16_t empty[1] = {0};
  if (!a) a = empty;
  if (!b) b = empty;
  for (uint32_t i = 0; i < count; i++) {
    char16_t x = FoldCase(a[i]), y = FoldCase(b[i]);
    if (x != y) return (x > y) - (x < y);
    if (!x) return 0;
  }
  return 0;
}

int CompareTextNoCase(const char16_t* a, const char16_t* b) {
  return CompareTextNoCaseN(a, b, UINT32_MAX);
}

// Decodes one UTF-8 sequence at `s` (with `n` bytes left); returns the code point, or U+FFFD
// for a malformed sequence, and the bytes used in `used`.
static uint32_t DecodeUtf8(const unsigned char* s, size_t n, size_t* used) {
  unsigned char b = s[0];
  *used = 1;
  if (b < 0x80) return b;
  int extra = b >= 0xF0 && b <= 0xF4 ? 3 : b >= 0xE0 ? 2 : b >= 0xC2 && b < 0xE0 ? 1 : -1;
  if (b >= 0xF5 || extra < 0 || static_cast<size_t>(extra) >= n) return 0xFFFD;
  uint32_t cp = b & (0x3F >> extra);
  for (int i = 1; i <= extra; i++) {
    if ((s[i] & 0xC0) != 0x80) return 0xFFFD;
    cp = (cp << 6) | (s[i] & 0x3F);
  }
  static const uint32_t minimum[4] = {0, 0x80, 0x800, 0x10000};
  if (cp < minimum[extra] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0xFFFD;
  *used = static_cast<size_t>(extra) + 1;
  return cp;
}

char16_t* Utf8ToText(const char* utf8, size_t length) {
  // Every byte gives at most one UTF-16 unit (four bytes give a surrogate pair).
  char16_t* out = static_cast<char16_t*>(Allocate((length + 1) * 2));
  if (!out) return nullptr;
  const unsigned char* s = reinterpret_cast<const unsigned char*>(utf8);
  size_t i = 0, o = 0;
  while (i < length) {
    size_t used;
    uint32_t cp = DecodeUtf8(s + i, length - i, &used);
    i += used;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out[o++] = static_cast<char16_t>(0xD800 + (cp >> 10));
      out[o++] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    } else {
      out[o++] = static_cast<char16_t>(cp);
    }
  }
  out[o] = 0;
  return out;
}

char16_t* Utf8ToText(const char* utf8) {
  return Utf8ToText(utf8, utf8 ? std::strlen(utf8) : 0);
}

std::string TextToUtf8(const char16_t* text) {
  std::string out;
  if (!text) return out;
  for (size_t i = 0; text[i]; i++) {
    uint32_t cp = text[i];
    if (cp >= 0xD800 && cp <= 0xDBFF && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      i++;
    } else if (cp >= 0xD800 && cp <= 0xDFFF) {
      cp = 0xFFFD;  // a lone surrogate cannot be written as UTF-8
    }
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  return out;
}

std::u16string Utf8ToU16(const std::string& utf8) {
  char16_t* text = Utf8ToText(utf8.data(), utf8.size());
  std::u16string out = text ? std::u16string(text) : std::u16string();
  Release(text);
  return out;
}
