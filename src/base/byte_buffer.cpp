// The growing byte block: room doubles as it fills, so appending n bytes costs O(n) overall.
#include "base/byte_buffer.h"

#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"

uint8_t* ByteRoom(ByteBuffer* buffer, uint32_t count) {
  if (buffer->failed || buffer->tooLong) return nullptr;
  uint64_t needed = static_cast<uint64_t>(buffer->count) + count;
  if ((buffer->limit && needed > buffer->limit) || needed > UINT32_MAX) {
    buffer->tooLong = true;
    return nullptr;
  }
  uint32_t step = buffer->capacity > 64 ? buffer->capacity : 64;
  if (!GrowArray(&buffer->bytes, &buffer->capacity, static_cast<uint32_t>(needed), step)) {
    buffer->failed = true;
    return nullptr;
  }
  uint8_t* p = buffer->bytes + buffer->count;
  std::memset(p, 0, count);
  buffer->count = static_cast<uint32_t>(needed);
  return p;
}

void PutBytes(ByteBuffer* buffer, const void* bytes, uint32_t count) {
  if (uint8_t* p = ByteRoom(buffer, count)) std::memcpy(p, bytes, count);
}

void PutU8(ByteBuffer* buffer, uint8_t value) {
  if (uint8_t* p = ByteRoom(buffer, 1)) *p = value;
}

void PutU16(ByteBuffer* buffer, uint16_t value) {
  if (uint8_t* p = ByteRoom(buffer, 2)) WriteU16(p, value);
}

void PutU32(ByteBuffer* buffer, uint32_t value) {
  if (uint8_t* p = ByteRoom(buffer, 4)) WriteU32(p, value);
}

void PutDouble(ByteBuffer* buffer, double value) {
  if (uint8_t* p = ByteRoom(buffer, 8)) WriteDouble(p, value);
}
