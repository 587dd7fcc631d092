// Writes BIFF streams by hand for the reader's tests: record bodies field by field, records with
// their headers, and the frame of a workbook (globals with one BOUNDSHEET per sheet, then the
// sheet substreams).
#pragma once
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

struct Body {
  std::vector<uint8_t> b;
  Body& B(uint8_t v) {
    b.push_back(v);
    return *this;
  }
  Body& W(uint16_t v) { return B(static_cast<uint8_t>(v)).B(static_cast<uint8_t>(v >> 8)); }
  Body& L(uint32_t v) { return W(static_cast<uint16_t>(v)).W(static_cast<uint16_t>(v >> 16)); }
  Body& D(double d) {
    uint8_t raw[8];
    std::memcpy(raw, &d, 8);
    b.insert(b.end(), raw, raw + 8);
    return *this;
  }
  Body& Raw(const std::vector<uint8_t>& bytes) {
    b.insert(b.end(), bytes.begin(), bytes.end());
    return *this;
  }
  // Characters as they stand, one byte each (BIFF5 text, or the body of a compressed string).
  Body& Bytes(const std::string& s) {
    b.insert(b.end(), s.begin(), s.end());
    return *this;
  }
  // A BIFF8 string body without its length: the option byte, then 8- or 16-bit characters.
  Body& Chars(const std::u16string& s, bool wide = false) {
    B(wide ? 1 : 0);
    for (char16_t c : s) wide ? W(c) : B(static_cast<uint8_t>(c));
    return *this;
  }
  Body& Cell(uint16_t row, uint16_t col, uint16_t xf = 15) { return W(row).W(col).W(xf); }
};

struct BiffBuilder {
  std::vector<uint8_t> bytes;
  uint16_t version = 0x0600;  // the BOF version word; 0x0500 for BIFF5

  BiffBuilder& Record(uint16_t id, const Body& body) {
    Body head;
    head.W(id).W(static_cast<uint16_t>(body.b.size()));
    bytes.insert(bytes.end(), head.b.begin(), head.b.end());
    bytes.insert(bytes.end(), body.b.begin(), body.b.end());
    return *this;
  }
  BiffBuilder& Bof(uint16_t type, uint16_t id = 0x0809) {
    return Record(id, Body().W(version).W(type).W(0).W(0).L(0).L(0));
  }
  BiffBuilder& Eof() { return Record(0x000A, Body()); }
  BiffBuilder& BoundSheet(const std::string& name, uint8_t type = 0) {
    Body b;
    b.L(0).B(0).B(type).B(static_cast<uint8_t>(name.size()));
    if (version >= 0x0600) b.B(0);
    return Record(0x0085, b.Bytes(name));
  }
};
