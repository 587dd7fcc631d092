// Settings files: ini-style text of sections in brackets, key=value lines and ";" comments, read
// and rewritten one key at a time. The desktop program keeps its options and recent files in one
// such file in the user's configuration folder. Section and key names compare ignoring case; a
// blank after "=" belongs to the value; a ";" ends a value and starts a comment.
#pragma once
#include <cstdint>

// Reads `key` of `section` into `out` (at most `size` - 1 characters, always terminated) and
// returns its length, or -1 when the file does not open or has no such key. With a null key the
// section's key names are copied instead, each ended by a zero, and their total length returned.
int32_t ReadProfileValue(const char16_t* section, const char16_t* key, char16_t* out, uint32_t size,
                         const char16_t* path);
// The same, with `fallback` copied when the key is absent; returns the length copied.
uint32_t ReadProfileString(const char16_t* section, const char16_t* key, const char16_t* fallback,
                           char16_t* out, uint32_t size, const char16_t* path);
// Sets `key` of `section` to `value`, rewriting the file through a temporary file beside it: a new
// section goes at the end, a new key at the end of its section, an existing value is replaced in
// place. The file must exist (it may be empty). Returns nonzero when written.
int WriteProfileString(const char16_t* section, const char16_t* key, const char16_t* value,
                       const char16_t* path);
// Removes a section with all its keys, up to the next section. Returns nonzero when the file was
// rewritten or had no such section.
int RemoveProfileSection(const char16_t* section, const char16_t* path);
