// Little-endian byte readers and writers for file records and token strings. Tokens are not
// aligned, so every multi-byte number is assembled a byte at a time.
#pragma once
#include <cstdint>
#include <cstring>

inline uint16_t ReadU16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
inline int16_t ReadI16(const uint8_t* p) {
  return static_cast<int16_t>(ReadU16(p));
}
inline uint32_t ReadU32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}
inline int32_t ReadI32(const uint8_t* p) {
  return static_cast<int32_t>(ReadU32(p));
}
inline uint64_t ReadU64(const uint8_t* p) {
  return static_cast<uint64_t>(ReadU32(p)) | (static_cast<uint64_t>(ReadU32(p + 4)) << 32);
}
inline double ReadDouble(const uint8_t* p) {
  uint64_t bits = ReadU64(p);
  double d;
  std::memcpy(&d, &bits, sizeof d);
  return d;
}

inline void WriteU16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}
inline void WriteU32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; i++) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void WriteU64(uint8_t* p, uint64_t v) {
  for (int i = 0; i < 8; i++) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
inline void WriteDouble(uint8_t* p, double d) {
  uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  WriteU64(p, bits);
}
