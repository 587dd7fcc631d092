// What the value and function handler tests share: a French workbook to store cells in, values
// and references built in one call, a short printed form of a value ("-" empty, "n:2.5",
// "s:text", "b:1", an error's text, "a1x2{n:1,s:x}", "ref:B2", "list:A1;C3"), and a handler call
// on a 30-slot frame as the evaluator makes it.
#pragma once
#include <gtest/gtest.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "functions/table.h"
#include "model/names.h"
#include "model/workbook.h"

// "B2" or "A1:C3"; one-letter columns are enough here.
inline Range Area(const char* name) {
  char c0 = 'A', c1 = 0;
  unsigned r0 = 1, r1 = 0;
  if (std::sscanf(name, "%c%u:%c%u", &c0, &r0, &c1, &r1) < 4) {
    c1 = c0;
    r1 = r0;
  }
  return Range{static_cast<uint16_t>(r0 - 1), static_cast<uint16_t>(r1 - 1),
               static_cast<uint8_t>(c0 - 'A'), static_cast<uint8_t>(c1 - 'A')};
}

inline std::string AreaName(const Range& r) {
  std::string s = static_cast<char>('A' + r.firstCol) + std::to_string(r.firstRow + 1);
  if (r.lastRow == r.firstRow && r.lastCol == r.firstCol) return s;
  return s + ":" + static_cast<char>('A' + r.lastCol) + std::to_string(r.lastRow + 1);
}

inline std::string Show(const Value& v) {
  char buffer[32];
  std::string s;
  if (v.tag == ValueEmpty) return "-";
  if (v.tag == ValueNumber)
    return "n:" + std::string(buffer, std::to_chars(buffer, buffer + 32, v.number).ptr);
  if (v.tag == ValueText) return "s:" + TextToUtf8(v.text);
  if (v.tag == ValueBoolean) return "b:" + std::to_string(v.boolean);
  if (v.tag == ValueError) return TextToUtf8(ErrorText(v.error));
  if (v.tag == ValueRef) return "ref:" + AreaName(v.ref);
  if (v.tag == ValueArray) {
    // Texts are appended piece by piece: a literal in front of a temporary string makes GCC 12
    // warn (-Wrestrict) about the insertion it inlines.
    for (uint32_t i = 0; v.elements && i < uint32_t{v.rows} * v.columns; i++) {
      if (i) s += ',';
      s += Show(v.elements[i]);
    }
    std::string out = "a";
    out += std::to_string(v.rows);
    out += 'x';
    out += std::to_string(v.columns);
    out += '{';
    out += s;
    out += '}';
    return out;
  }
  if (v.tag != ValueRefList) return "tag" + std::to_string(v.tag);
  for (uint32_t i = 0; i < v.refs->count; i++) {
    if (i) s += ';';
    s += AreaName(v.refs->areas[i]);
  }
  return "list:" + s;
}

inline Value Text(const char16_t* s) {
  return TextValue(TextDuplicate(s));
}

inline Value Ref(const char* area) {
  return RefValue(Area(area));
}

// A macro control signal, which no function accepts as an argument.
inline Value Control() {
  Value v{};
  v.tag = ValueControl;
  return v;
}

// A one-row array that takes over `elements`.
inline Value Array(uint16_t columns, std::vector<Value> elements) {
  Value v;
  EXPECT_TRUE(MakeArray(&v, 1, columns));
  for (size_t i = 0; i < elements.size(); i++) v.elements[i] = elements[i];
  return v;
}

// Deep copies, for handing the same arguments to several handlers.
inline std::vector<Value> Copies(const std::vector<Value>& values) {
  std::vector<Value> copies(values.size());
  for (size_t i = 0; i < values.size(); i++) EXPECT_TRUE(CopyValue(&copies[i], &values[i]));
  return copies;
}

struct HandlerTest : testing::Test {
  uint32_t book = 0;
  EvalContext ctx{};

  // A workbook of one worksheet followed by sheets of the given kinds; formulas stand in U21 of
  // the first sheet.
  void Open(std::vector<int32_t> moreSheets) {
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    for (uint32_t i = 0; i < moreSheets.size(); i++)
      ASSERT_TRUE(InsertSheet(book, i + 1, nullptr, moreSheets[i], 0, 0));
    ctx = EvalContext{book, 0, 20, 20, 0};
  }
  void TearDown() override { CloseAllWorkbooks(); }

  void Put(uint32_t sheet, const char* at, Value v) {
    Cell cell{};
    cell.row = Area(at).firstRow;
    cell.col = Area(at).firstCol;
    cell.xf = 15;
    cell.value = v;
    ASSERT_TRUE(StoreCell(book, sheet, &cell, StoreOnly, KeepRowHeight));
  }
  int32_t Link(int32_t first, int32_t last) {
    LinkRequest request{book, book, first, last};
    int32_t index = -1;
    EXPECT_TRUE(FindOrAddLink(&request, &index));
    return index;
  }
  // A reference list of the areas named in `names` ("A1:B2;D4") on the sheets of `link`, built by
  // hand since MakeRefList makes only one.
  Value List(const char* names, int32_t link) {
    std::vector<Range> areas{Area(names)};
    for (const char* p = std::strchr(names, ';'); p; p = std::strchr(p + 1, ';'))
      areas.push_back(Area(p + 1));
    Value v{};
    v.tag = ValueRefList;
    v.linkIndex = link;
    v.refs = static_cast<RefBlock*>(Allocate(sizeof(RefBlock) + areas.size() * sizeof(Range)));
    v.refs->count = static_cast<uint16_t>(areas.size());
    for (size_t i = 0; i < areas.size(); i++) v.refs->areas[i] = areas[i];
    return v;
  }
  // Takes over `arguments`, puts them in a frame padded with empty slots, calls `handler` and
  // releases whatever it leaves in the frame, as the evaluator does.
  std::string Call(FunctionHandler handler, std::vector<Value> arguments) {
    Value frame[FunctionFrameSize] = {};
    for (size_t i = 0; i < arguments.size(); i++) frame[i] = arguments[i];
    Value result{};
    handler(frame, &result, &ctx);
    for (Value& v : frame) FreeValue(&v);
    std::string shown = Show(result);
    FreeValue(&result);
    return shown;
  }
};
