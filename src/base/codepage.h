// 8-bit text of files in a Windows code page, turned into 16-bit text at the border. The system's
// iconv does the work; bytes below 0x80 widen directly, which is all most files hold.
#pragma once
#include <cstdint>

// True when the code page is one this machine can convert.
bool IsValidCodePage(uint16_t codePage);
// Converts `length` bytes into a heap string; bytes that do not convert become U+FFFD, and an
// unknown code page reads as Latin-1. Null only when memory runs out.
char16_t* CodePageToText(uint16_t codePage, const uint8_t* bytes, uint32_t length);
