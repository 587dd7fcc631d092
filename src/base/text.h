// 16-bit text: the only form text takes in memory. Strings are NUL-terminated arrays of char16_t
// holding UTF-16. Comparison "ignoring case" is one rule for the whole program and never depends
// on the C library's locale: simple case folding over Basic Latin, Latin-1, Latin Extended-A,
// Greek and Cyrillic. Function names, sheet and defined names, booleans and text comparison in
// formulas all go through it.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

uint32_t TextLength(const char16_t* text);  // null counts as empty
// Copies at most `capacity - 1` characters and always terminates (capacity > 0).
void TextCopy(char16_t* target, size_t capacity, const char16_t* source);
// A heap copy from the allocation wrapper; null for a null source or exhausted memory.
char16_t* TextDuplicate(const char16_t* source);
// A heap string of `length` characters copied from `source` (which need not be terminated).
char16_t* TextDuplicateN(const char16_t* source, uint32_t length);

char16_t FoldCase(char16_t c);
// Upper-case counterpart of FoldCase over the same ranges (for MAJUSCULE, headers, names).
char16_t UpperCase(char16_t c);
// Three-way comparisons; null sorts as empty.
int CompareText(const char16_t* a, const char16_t* b);
int CompareTextNoCase(const char16_t* a, const char16_t* b);
int CompareTextNoCaseN(const char16_t* a, const char16_t* b, uint32_t count);
inline bool EqualTextNoCase(const char16_t* a, const char16_t* b) {
  return CompareTextNoCase(a, b) == 0;
}

// Conversions at the borders of the program (command line, platform, test expectations).
// Malformed UTF-8 sequences become U+FFFD. Return null only when memory runs out.
char16_t* Utf8ToText(const char* utf8, size_t length);
char16_t* Utf8ToText(const char* utf8);
std::string TextToUtf8(const char16_t* text);
std::u16string Utf8ToU16(const std::string& utf8);  // for tests and the command line
