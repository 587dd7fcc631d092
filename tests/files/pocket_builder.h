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

// The size of the body behind the id byte at `at`, by the format's own rules: fixed bytes, plus up
// to two counts read from the body times their unit; 0 for an unknown id, -1 when the stream ends
// inside the record.
inline int64_t PocketBodySize(const Bytes& s, size_t at) {
  struct Rule {
    uint8_t id, fixed, at1, width1, unit1, at2, width2, unit2;
  };
  static const Rule rules[] = {
      {1, 5, 0, 0, 0, 0, 0, 0},    {3, 13, 0, 0, 0, 0, 0, 0},  {4, 7, 5, 2, 2, 0, 0, 0},
      {5, 7, 0, 0, 0, 0, 0, 0},    {6, 16, 14, 2, 1, 0, 0, 0}, {7, 2, 0, 2, 2, 0, 0, 0},
      {8, 8, 0, 0, 0, 0, 0, 0},    {9, 4, 0, 0, 0, 0, 0, 0},   {10, 0, 0, 0, 0, 0, 0, 0},
      {29, 9, 0, 0, 0, 0, 0, 0},   {30, 1, 0, 1, 2, 0, 0, 0},  {37, 4, 0, 0, 0, 0, 0, 0},
      {61, 4, 0, 0, 0, 0, 0, 0},   {62, 5, 0, 0, 0, 0, 0, 0},  {65, 9, 0, 0, 0, 0, 0, 0},
      {66, 2, 0, 0, 0, 0, 0, 0},   {85, 6, 0, 0, 0, 0, 0, 0},  {125, 9, 0, 0, 0, 0, 0, 0},
      {140, 4, 0, 0, 0, 0, 0, 0},  {160, 4, 0, 0, 0, 0, 0, 0}, {224, 22, 0, 0, 0, 0, 0, 0},
      {49, 15, 14, 1, 2, 0, 0, 0}, {133, 2, 1, 1, 2, 0, 0, 0}, {24, 7, 2, 1, 2, 3, 2, 1},
  };

  size_t b = at + 1;
  auto count = [&](uint8_t offset, uint8_t width) -> int64_t {
    if (!width) return 0;
    if (b + offset + width > s.size()) return -1000000;
    return width == 1 ? s[b + offset] : s[b + offset] | s[b + offset + 1] << 8;
  };
  for (const Rule& r : rules) {
    if (r.id != s[at]) continue;
    int64_t size = r.fixed + count(r.at1, r.width1) * r.unit1 + count(r.at2, r.width2) * r.unit2;
    return size < 0 || b + static_cast<size_t>(size) > s.size() ? -1 : size;
  }
  return 0;
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
