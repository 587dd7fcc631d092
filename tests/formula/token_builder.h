// Writes BIFF8 token strings by hand for tests: operands, operators, functions, the jump patterns
// of IF and CHOOSE, and array constants in the extra data.
#pragma once
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "formula/tokens.h"
#include "model/value.h"

struct TokenBuilder {
  std::vector<uint8_t> bytes;
  std::vector<uint8_t> extra;

  TokenBuilder& Byte(uint8_t b) {
    bytes.push_back(b);
    return *this;
  }
  TokenBuilder& Word(uint16_t w) {
    bytes.push_back(static_cast<uint8_t>(w));
    bytes.push_back(static_cast<uint8_t>(w >> 8));
    return *this;
  }
  TokenBuilder& Op(uint8_t ptg) { return Byte(ptg); }
  // An operand opcode of the given class: the base's class bits are replaced by `cls`.
  TokenBuilder& Operand(uint8_t ptg, uint8_t cls) {
    return Byte(static_cast<uint8_t>((ptg & 0x1F) | cls));
  }
  TokenBuilder& Int(uint16_t n) { return Byte(ptgInt).Word(n); }
  TokenBuilder& Num(double d) {
    Byte(ptgNum);
    uint8_t raw[8];
    std::memcpy(raw, &d, 8);
    bytes.insert(bytes.end(), raw, raw + 8);
    return *this;
  }
  TokenBuilder& Bool(bool b) { return Byte(ptgBool).Byte(b ? 1 : 0); }
  TokenBuilder& Err(uint32_t code) { return Byte(ptgErr).Byte(ErrorToBiff(code)); }
  TokenBuilder& Missing() { return Byte(ptgMissArg); }
  // A string constant; wide when any character is above 255.
  TokenBuilder& Str(const std::u16string& s) {
    bool wide = false;
    for (char16_t c : s) wide = wide || c > 255;
    Byte(ptgStr).Byte(static_cast<uint8_t>(s.size())).Byte(wide ? 1 : 0);
    for (char16_t c : s) wide ? Word(c) : Byte(static_cast<uint8_t>(c));
    return *this;
  }
  static uint8_t ColFlags(uint8_t col, bool rowRelative, bool colRelative) {
    return static_cast<uint8_t>(col | (rowRelative ? RefRowRelative : 0) |
                                (colRelative ? RefColRelative : 0));
  }
  TokenBuilder& Ref(uint16_t row, uint8_t col, uint8_t cls = ClassValue, bool rowRel = true,
                    bool colRel = true) {
    return Operand(ptgRef, cls)
        .Word(row)
        .Byte(col)
        .Byte(static_cast<uint8_t>((rowRel ? RefRowRelative : 0) | (colRel ? RefColRelative : 0)));
  }
  // BIFF8 keeps the column in the low byte of a 16-bit word and the flags in its high byte.
  TokenBuilder& Area(uint16_t r1, uint16_t r2, uint8_t c1, uint8_t c2, uint8_t cls = ClassReference,
                     bool rel = true) {
    uint8_t flags = rel ? RefRowRelative | RefColRelative : 0;
    return Operand(ptgArea, cls).Word(r1).Word(r2).Byte(c1).Byte(flags).Byte(c2).Byte(flags);
  }
  TokenBuilder& RefN(int16_t row, int8_t col, uint8_t cls = ClassValue) {
    return Operand(ptgRefN, cls)
        .Word(static_cast<uint16_t>(row))
        .Byte(static_cast<uint8_t>(col))
        .Byte(RefRowRelative | RefColRelative);
  }
  TokenBuilder& Ref3d(uint16_t link, uint16_t row, uint8_t col, uint8_t cls = ClassValue) {
    return Operand(ptgRef3d, cls).Word(link).Word(row).Byte(col).Byte(0);
  }
  TokenBuilder& Area3d(uint16_t link, uint16_t r1, uint16_t r2, uint8_t c1, uint8_t c2,
                       uint8_t cls = ClassReference) {
    return Operand(ptgArea3d, cls).Word(link).Word(r1).Word(r2).Byte(c1).Byte(0).Byte(c2).Byte(0);
  }
  TokenBuilder& RefErr(uint8_t cls = ClassValue) { return Operand(ptgRefErr, cls).Word(0).Word(0); }
  TokenBuilder& Name(uint16_t index, uint8_t cls = ClassValue) {
    return Operand(ptgName, cls).Word(index).Word(0);
  }
  TokenBuilder& NameX(uint16_t link, uint16_t index, uint8_t cls = ClassValue) {
    return Operand(ptgNameX, cls).Word(link).Word(index).Word(0);
  }
  TokenBuilder& Func(uint16_t id, uint8_t cls = ClassValue) {
    return Operand(ptgFunc, cls).Word(id);
  }
  TokenBuilder& FuncVar(uint16_t id, uint8_t argc, uint8_t cls = ClassValue) {
    return Operand(ptgFuncVar, cls).Byte(argc).Word(id);
  }
  TokenBuilder& Attr(uint8_t kind, uint16_t operand = 0) {
    return Byte(ptgAttr).Byte(kind).Word(operand);
  }
  TokenBuilder& Sum() { return Attr(AttrSum); }
  TokenBuilder& Append(const TokenBuilder& other) {
    bytes.insert(bytes.end(), other.bytes.begin(), other.bytes.end());
    extra.insert(extra.end(), other.extra.begin(), other.extra.end());
    return *this;
  }

  // IF(cond; whenTrue[; whenFalse]) as the program writes it: the condition, tAttrIf over the
  // true branch, a goto past the whole call, the false branch, a goto of 3 over the function.
  TokenBuilder& If(const TokenBuilder& cond, const TokenBuilder& whenTrue,
                   const TokenBuilder* whenFalse = nullptr) {
    Append(cond);
    Attr(AttrIf, static_cast<uint16_t>(whenTrue.bytes.size() + 4));
    Append(whenTrue);
    if (whenFalse) {
      Attr(AttrGoto, static_cast<uint16_t>(whenFalse->bytes.size() + 4 + 4 - 1));
      Append(*whenFalse);
    }
    Attr(AttrGoto, 3);
    return FuncVar(1, whenFalse ? 3 : 2);
  }

  // CHOOSE(index; choices...): the jump table counts from its own first slot; each choice ends
  // with a goto past the function token, and the last slot points at the function token.
  TokenBuilder& Choose(const TokenBuilder& index, std::initializer_list<TokenBuilder> choices) {
    Append(index);
    uint16_t count = static_cast<uint16_t>(choices.size());
    size_t tableStart = bytes.size() + 4;
    Byte(ptgAttr).Byte(AttrChoose).Word(count);
    for (uint16_t i = 0; i <= count; i++) Word(0);
    size_t total = 0;
    for (const TokenBuilder& c : choices) total += c.bytes.size() + 4;
    size_t functionAt = bytes.size() + total;
    uint16_t slot = 0;
    for (const TokenBuilder& c : choices) {
      size_t start = bytes.size();
      uint16_t relative = static_cast<uint16_t>(start - tableStart);
      bytes[tableStart + 2 * slot] = static_cast<uint8_t>(relative);
      bytes[tableStart + 2 * slot + 1] = static_cast<uint8_t>(relative >> 8);
      slot++;
      Append(c);
      size_t after = bytes.size() + 4;
      Attr(AttrGoto, static_cast<uint16_t>(functionAt + 4 - after - 1));
    }
    uint16_t last = static_cast<uint16_t>(functionAt - tableStart);
    bytes[tableStart + 2 * count] = static_cast<uint8_t>(last);
    bytes[tableStart + 2 * count + 1] = static_cast<uint8_t>(last >> 8);
    return FuncVar(100, static_cast<uint8_t>(count + 1));
  }

  // An array constant of numbers, texts, booleans and errors, row-major.
  TokenBuilder& Array(uint8_t rows, uint8_t columns, std::initializer_list<Value> elements,
                      uint8_t cls = ClassArray) {
    Operand(ptgArray, cls);
    for (int i = 0; i < 7; i++) Byte(0);
    extra.push_back(static_cast<uint8_t>(columns - 1));
    extra.push_back(static_cast<uint8_t>(rows - 1));
    extra.push_back(0);
    for (const Value& v : elements) {
      extra.push_back(static_cast<uint8_t>(v.tag));
      uint8_t raw[8] = {0};
      if (v.tag == ValueNumber) {
        std::memcpy(raw, &v.number, 8);
      } else if (v.tag == ValueBoolean) {
        raw[0] = static_cast<uint8_t>(v.boolean);
      } else if (v.tag == ValueError) {
        raw[0] = ErrorToBiff(v.error);
      } else if (v.tag == ValueText) {
        size_t n = 0;
        while (v.text[n]) n++;
        extra.push_back(static_cast<uint8_t>(n));
        extra.push_back(static_cast<uint8_t>(n >> 8));
        extra.push_back(1);
        for (size_t i = 0; i < n; i++) {
          extra.push_back(static_cast<uint8_t>(v.text[i]));
          extra.push_back(static_cast<uint8_t>(v.text[i] >> 8));
        }
        continue;
      }
      extra.insert(extra.end(), raw, raw + 8);
    }
    return *this;
  }

  // An owned token string from the allocation wrapper; free with FreeTokens.
  FormulaTokens Build() const {
    FormulaTokens t{};
    t.length = static_cast<uint16_t>(bytes.size());
    t.extraLength = static_cast<uint16_t>(extra.size());
    t.bytes = static_cast<uint8_t*>(Allocate(bytes.size() + extra.size()));
    if (!bytes.empty()) std::memcpy(t.bytes, bytes.data(), bytes.size());
    if (!extra.empty()) std::memcpy(t.bytes + bytes.size(), extra.data(), extra.size());
    return t;
  }
};
