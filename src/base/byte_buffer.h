// A growing block of bytes that the file writers and token rewriters append to. Every append
// checks its room first; once memory runs out, or an append would pass `limit`, the buffer is
// marked and later appends do nothing, so that a writer tests the marks once at the end.
#pragma once
#include <cstdint>

struct ByteBuffer {
  uint8_t* bytes;  // from the allocation wrapper; the owner releases it
  uint32_t count;
  uint32_t capacity;
  uint32_t limit;  // the most bytes the buffer may hold; 0 for no limit
  bool failed;     // memory ran out
  bool tooLong;    // an append would have passed `limit`
};

// `count` more bytes at the end, zero-filled; null when the buffer is marked or becomes so.
uint8_t* ByteRoom(ByteBuffer* buffer, uint32_t count);
void PutBytes(ByteBuffer* buffer, const void* bytes, uint32_t count);
void PutU8(ByteBuffer* buffer, uint8_t value);
void PutU16(ByteBuffer* buffer, uint16_t value);
void PutU32(ByteBuffer* buffer, uint32_t value);
void PutDouble(ByteBuffer* buffer, double value);
