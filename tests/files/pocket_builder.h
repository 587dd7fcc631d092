// Pocket Excel streams built by hand for the tests: records from their fields, and a splitter
// that cuts a written stream into its records by the sizes the format gives each id, so that a
// test can pick one record and compare it byte for byte.
#pragma once
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

// One record or a run of bytes, field by field, little-endian.
struct Rec {
  Bytes bytes;
  Rec() = default;
  explicit Rec(uint8_t id) { bytes.push_back(id); }
  Rec& U8(uint32_t v) {
    bytes.push_back(static_cast<uint8_t>(v));
    return *this;
  }
  Rec& U16(uint32_t v) { return U8(v & 0xFF).U8(v >> 8); }
  Rec& Num(double d) {
    uint8_t b[8];
    std::memcpy(b, &d, 8);
    bytes.insert(bytes.end(), b, b + 8);
    return *this;
  }
  Rec& Chars(const std::u16string& text) {
    for (char16_t c : text) U16(c);
    return *this;
  }
  Rec& Raw(const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return *this;
  }
  Rec& Zeros(uint32_t n) {
    bytes.insert(bytes.end(), n, 0);
    return *this;
  }
  // The five bytes every cell record starts with.
  Rec& Head(uint32_t row, uint32_t col, uint32_t xf) { return U16(row).U8(col).U16(xf); }
};

// A stream of records one after another.
inline Bytes Stream(std::initializer_list<Rec> records) {
  Bytes out;
  for (const Rec& r : records) out.insert(out.end(), r.bytes.begin(), r.bytes.end());
  return out;
}

// The size of the body behind the id byte at `at`, by the format's own rules; 0 for an unknown id
// and -1 when the stream ends inside the record.
inline int64_t PocketBodySize(const Bytes& s, size_t at) {
  auto u16 = [&](size_t p) -> int64_t {
    return p + 1 < s.size() ? s[p] | s[p + 1] << 8 : -1000000;
  };
  auto u8 = [&](size_t p) -> int64_t { return p < s.size() ? s[p] : -1000000; };
  size_t b = at + 1;
  int64_t size;
  switch (s[at]) {
    case 1:
      size = 5;
      break;
    case 3:
      size = 13;
      break;
    case 4:
      size = 7 + 2 * u16(b + 5);
      break;
    case 5:
      size = 7;
      break;
    case 6:
      size = 16 + u16(b + 14);
      break;
    case 7:
      size = 2 + 2 * u16(b);
      break;
    case 8:
      size = 8;
      break;
    case 9:
      size = 4;
      break;
    case 10:
      size = 0;
      break;
    case 24:
      size = 7 + 2 * u8(b + 2) + u16(b + 3);
      break;
    case 29:
      size = 9;
      break;
    case 30:
      size = 1 + 2 * u8(b);
      break;
    case 37:
      size = 4;
      break;
    case 49:
      size = 15 + 2 * u8(b + 14);
      break;
    case 61:
      size = 4;
      break;
    case 62:
      size = 5;
      break;
    case 65:
      size = 9;
      break;
    case 66:
      size = 2;
      break;
    case 85:
      size = 6;
      break;
    case 125:
      size = 9;
      break;
    case 133:
      size = 2 + 2 * u8(b + 1);
      break;
    case 140:
      size = 4;
      break;
    case 160:
      size = 4;
      break;
    case 224:
      size = 22;
      break;
    default:
      return 0;
  }
  return size < 0 || b + static_cast<size_t>(size) > s.size() ? -1 : size;
}

// The records of a stream, each with its id byte first; a stream cut inside a record gives an
// empty record last.
inline std::vector<Bytes> SplitRecords(const Bytes& s) {
  std::vector<Bytes> out;
  for (size_t at = 0; at < s.size();) {
    int64_t size = PocketBodySize(s, at);
    if (size < 0) {
      out.push_back({});
      break;
    }
    out.emplace_back(s.begin() + static_cast<std::ptrdiff_t>(at),
                     s.begin() + static_cast<std::ptrdiff_t>(at + 1 + static_cast<size_t>(size)));
    at += 1 + static_cast<size_t>(size);
  }
  return out;
}
