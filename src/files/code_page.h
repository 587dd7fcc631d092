// 8-bit text of files in a Windows code page, to and from the 16-bit text of memory, through the
// system's iconv. Windows keeps every byte of a single-byte code page: the bytes the code page
// leaves undefined (0x81, 0x8D, 0x8F, 0x90, 0x9D in windows-1252) stand for the code points of
// the same number, and those code points write back as the same bytes. A character the code page
// cannot hold is written as "?".
#pragma once
#include <cstdint>

struct CodePage {
  uint32_t number;
  void* toWide;          // iconv descriptor, or null when the system knows no such code page
  void* fromWide;        // the same the other way
  char16_t single[256];  // each byte alone; lead bytes of double-byte characters map to 0
  uint8_t lead[256];     // non-zero for a byte that begins a double-byte character
};

// Opens the converters for `number` (1252, 932, ...). A code page the system cannot convert falls
// back to windows-1252, and without that to Latin-1. Returns 0 only on lost memory.
int OpenCodePage(uint32_t number, CodePage* page);
void CloseCodePage(CodePage* page);

// The character of a double-byte pair; 0 when the pair means nothing.
char16_t DecodePair(CodePage* page, uint8_t lead, uint8_t trail);
// The text of `length` bytes as a heap string; a pair that means nothing, or a lead byte at the
// end, gives U+FFFD. Null only on lost memory.
char16_t* DecodeBytes(CodePage* page, const uint8_t* bytes, uint32_t length);
// Writes the bytes of `c` into `out` (room for 2) and returns their count, 1 or 2.
uint32_t EncodeChar(CodePage* page, char16_t c, uint8_t* out);
