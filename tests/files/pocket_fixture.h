// The fixture of the Pocket Excel tests: a French workbook filled by typed entries, written to a
// stream in memory, and streams read back into a fresh workbook.
#pragma once
#include <gtest/gtest.h>

#include <string>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "edit/entry.h"
#include "files/pocket.h"
#include "files/pocket_builder.h"
#include "format/locale.h"
#include "formula/formula_text.h"
#include "model/workbook.h"

struct PocketTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override {
    CloseAllWorkbooks();
    ClearLastMessage();
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(u"test.pxl", 0, &book));
  }
  void TearDown() override { CloseAllWorkbooks(); }

  void Enter(uint32_t sheet, uint16_t row, uint8_t col, const char16_t* text, int array = 0,
             uint16_t lastRow = 0, uint8_t lastCol = 0) {
    Range range{row, array ? lastRow : row, col, array ? lastCol : col};
    EntryTarget target{book, sheet, range, row, col, array, 0, 0};
    EntryStatus status;
    ASSERT_TRUE(StoreEntry(text, &target, &status)) << TextToUtf8(text);
  }
  void Enter(uint16_t row, uint8_t col, const char16_t* text) { Enter(0, row, col, text); }
  void AddSheet(const char16_t* name) {
    ASSERT_TRUE(InsertSheet(book, GetWorkbook(book)->sheetCount, name, SheetWorksheet, 0, 0));
  }

  Bytes Write(uint32_t from, PocketDrops* drops = nullptr) {
    uint8_t* bytes = nullptr;
    size_t size = 0;
    EXPECT_TRUE(WritePocketBytes(from, &bytes, &size, drops));
    Bytes out(bytes, bytes + size);
    Release(bytes);
    return out;
  }
  // Reads a stream into a new workbook; returns the read's result.
  int Read(const Bytes& stream, uint32_t* into) {
    if (!CreateWorkbook(u"read.pxl", 0, into)) return -1;
    return ReadPocketWorkbook(*into, stream.data(), stream.size());
  }
  uint32_t Reload(uint32_t from) {
    uint32_t into = 0;
    EXPECT_EQ(Read(Write(from), &into), 1) << Message();
    return into;
  }

  static Cell* At(uint32_t b, uint32_t sheet, uint32_t row, uint32_t col) {
    return CellAt(&GetSheet(b, sheet)->cells, row, col);
  }
  static std::string Formula(uint32_t b, const Cell* cell) {
    if (!cell || !cell->formula.bytes) return "";
    char16_t* text = FormulaText(b, &cell->formula, cell->row, cell->col, 1, cell->row, cell->col);
    std::string out = TextToUtf8(text);
    Release(text);
    return out;
  }
  static std::string Message() { return LastMessage() ? TextToUtf8(LastMessage()) : ""; }
};
