// Tests of the BIFF reader on streams built by hand: every kind of cell record, the shared
// string table across CONTINUE records, shared and array formulas made real per cell, the BIFF5
// form (code page text, upgraded tokens, 3-D references and built-in names), styles, the window
// records, embedded and chart substreams, and damaged streams, which must be refused with a
// message and never read out of bounds.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "files/biff_builder.h"
#include "files/biff_read.h"
#include "model/workbook.h"

namespace {

using Fill = std::function<void(BiffBuilder&)>;

// A workbook of one worksheet "S": globals with `globals` in them, the sheet with `sheet`.
BiffBuilder OneSheet(const Fill& globals, const Fill& sheet, uint16_t version = 0x0600) {
  BiffBuilder b;
  b.version = version;
  b.Bof(0x0005);
  if (globals) globals(b);
  b.BoundSheet("S").Eof().Bof(0x0010);
  if (sheet) sheet(b);
  return b.Eof();
}

struct BiffReadTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override { Fresh(); }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
  }
  void Fresh() {
    CloseAllWorkbooks();
    ASSERT_TRUE(CreateWorkbook(u"t.xls", 0, &book));
    ClearLastMessage();
  }
  int Load(const BiffBuilder& b) { return ReadBiffWorkbook(book, b.bytes.data(), b.bytes.size()); }
  Cell* At(uint16_t row, uint8_t col, uint32_t sheet = 0) {
    return CellAt(&GetSheet(book, sheet)->cells, row, col);
  }
  std::string Message() { return LastMessage() ? TextToUtf8(LastMessage()) : ""; }
  std::vector<uint8_t> Tokens(const Cell* c) {
    return std::vector<uint8_t>(c->formula.bytes, c->formula.bytes + c->formula.length);
  }
};

// An SST of the given compressed strings.
void Sst(BiffBuilder& b, const std::vector<std::u16string>& strings) {
  Body body;
  body.L(static_cast<uint32_t>(strings.size())).L(static_cast<uint32_t>(strings.size()));
  for (const auto& s : strings) body.W(static_cast<uint16_t>(s.size())).Chars(s);
  b.Record(0x00FC, body);
}

Body Formula(uint16_t row, uint16_t col, const std::vector<uint8_t>& tokens, uint16_t options = 0,
             double result = 0) {
  Body f;
  f.Cell(row, col).D(result).W(options).L(0).W(static_cast<uint16_t>(tokens.size()));
  return f.Raw(tokens);
}

Body TypedResult(uint16_t row, uint16_t col, uint8_t type, uint8_t value,
                 const std::vector<uint8_t>& tokens) {
  Body f;
  f.Cell(row, col).B(type).B(0).B(value).B(0).B(0).B(0).W(0xFFFF).W(0).L(0);
  return f.W(static_cast<uint16_t>(tokens.size())).Raw(tokens);
}

const std::vector<uint8_t> int7 = {0x1E, 7, 0};

TEST_F(BiffReadTest, EveryKindOfCellRecordGivesItsValue) {
  struct Case {
    const char* what;
    uint16_t id;
    Body body;
    uint16_t tag;
    double number = 0;
    std::u16string text = u"";
  };
  const Case cases[] = {
      {"NUMBER", 0x0203, Body().Cell(0, 0).D(2.5), ValueNumber, 2.5},
      {"RK integer", 0x027E, Body().Cell(0, 0).L(10), ValueNumber, 2},
      {"RK integer / 100", 0x027E, Body().Cell(0, 0).L(123 << 2 | 3), ValueNumber, 1.23},
      {"RK double", 0x027E, Body().Cell(0, 0).L(0x3FF00000), ValueNumber, 1},
      {"MULRK of one cell", 0x00BD,
       Body().W(0).W(0).W(15).L(static_cast<uint32_t>(-5 << 2 | 2)).W(0), ValueNumber, -5},
      {"BLANK", 0x0201, Body().Cell(0, 0), ValueEmpty},
      {"MULBLANK", 0x00BE, Body().W(0).W(0).W(15).W(15).W(1), ValueEmpty},
      {"LABEL", 0x0204, Body().Cell(0, 0).W(2).Chars(u"\u20ACx", true), ValueText, 0, u"\u20ACx"},
      {"RSTRING", 0x00D6, Body().Cell(0, 0).W(2).Chars(u"ab").B(0), ValueText, 0, u"ab"},
      {"LABELSST", 0x00FD, Body().Cell(0, 0).L(1), ValueText, 0, u"one"},
      {"BOOLERR true", 0x0205, Body().Cell(0, 0).B(1).B(0), ValueBoolean, 1},
      {"BOOLERR #DIV/0!", 0x0205, Body().Cell(0, 0).B(0x07).B(1), ValueError, ErrDiv0},
      {"BOOLERR unknown error", 0x0205, Body().Cell(0, 0).B(0x2A).B(1), ValueError, ErrNA},
      {"FORMULA number", 0x0006, Formula(0, 0, int7, 0, 7), ValueNumber, 7},
      {"FORMULA boolean", 0x0006, TypedResult(0, 0, 1, 1, int7), ValueBoolean, 1},
      {"FORMULA error", 0x0006, TypedResult(0, 0, 2, 0x24, int7), ValueError, ErrNum},
      {"FORMULA empty text", 0x0006, TypedResult(0, 0, 3, 0, int7), ValueEmpty},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Fresh();
    ASSERT_TRUE(Load(OneSheet(
        [](BiffBuilder& b) {
          Sst(b, {u"zero", u"one"});
        },
        [&](BiffBuilder& b) { b.Record(c.id, c.body); })))
        << Message();
    Cell* cell = At(0, 0);
    ASSERT_NE(cell, nullptr);
    ASSERT_EQ(cell->value.tag, c.tag);
    double got = c.tag == ValueNumber    ? cell->value.number
                 : c.tag == ValueBoolean ? cell->value.boolean
                 : c.tag == ValueError   ? cell->value.error
                                         : 0;
    EXPECT_EQ(got, c.number);
    EXPECT_EQ(std::u16string(c.tag == ValueText ? cell->value.text : u""), c.text);
    EXPECT_EQ(cell->formula.bytes != nullptr, c.id == 0x0006);
  }
}

TEST_F(BiffReadTest, RkNumbersAndErrorBytes) {
  EXPECT_EQ(DecodeRk(static_cast<uint32_t>(-1 << 2 | 2)), -1);
  EXPECT_EQ(DecodeRk(0x3FF00000 | 1), 0.01);
  EXPECT_EQ(DecodeRk(12345 << 2 | 3), 123.45);
  const uint8_t bytes[] = {0x00, 0x07, 0x0F, 0x17, 0x1D, 0x24, 0x2A, 0x99};
  const uint32_t codes[] = {ErrNull, ErrDiv0, ErrValue, ErrRef, ErrName, ErrNum, ErrNA, ErrNA};
  for (int i = 0; i < 8; i++) EXPECT_EQ(MapBiffError(bytes[i]), codes[i]) << i;
}

TEST_F(BiffReadTest, FormulaTextResultAndSplitStringsJoin) {
  // The second string starts in the SST and goes on in a CONTINUE with 16-bit characters.
  auto globals = [](BiffBuilder& b) {
    b.Record(0x00FC, Body().L(2).L(2).W(3).Chars(u"abc").W(4).Chars(u"xy"));
    b.Record(0x003C, Body().B(1).W(0x20AC).W('z'));
  };
  auto sheet = [](BiffBuilder& b) {
    b.Record(0x00FD, Body().Cell(0, 0).L(0)).Record(0x00FD, Body().Cell(0, 1).L(1));
    b.Record(0x0006, TypedResult(1, 0, 0, 0, {0x17, 2, 0, 'h', 'i'}));
    b.Record(0x0207, Body().W(2).Chars(u"hi"));
  };
  ASSERT_TRUE(Load(OneSheet(globals, sheet))) << Message();
  EXPECT_EQ(std::u16string(At(0, 0)->value.text), u"abc");
  EXPECT_EQ(std::u16string(At(0, 1)->value.text), u"xy\u20ACz");
  EXPECT_EQ(std::u16string(At(1, 0)->value.text), u"hi");
}

TEST_F(BiffReadTest, SharedAndArrayFormulasAreMadeRealPerCell) {
  const std::vector<uint8_t> expB1 = {0x01, 0, 0, 1, 0}, expA3 = {0x01, 2, 0, 0, 0};
  auto sheet = [&](BiffBuilder& b) {
    // B1:B2 share "the cell to the left" (relative offsets 0 rows, -1 column).
    b.Record(0x0006, Formula(0, 1, expB1, 8));
    b.Record(0x04BC, Body().W(0).W(1).B(1).B(1).B(0).B(2).W(5).Raw({0x4C, 0, 0, 0xFF, 0xC0}));
    b.Record(0x0006, Formula(1, 1, expB1, 8));
    // A3:B3 is one array formula: its ARRAY record follows only the first cell.
    b.Record(0x0006, Formula(2, 0, expA3));
    b.Record(0x0221, Body().W(2).W(2).B(0).B(1).W(0).L(0).W(3).Raw(int7));
    b.Record(0x0006, Formula(2, 1, expA3));
  };
  ASSERT_TRUE(Load(OneSheet(nullptr, sheet))) << Message();
  EXPECT_EQ(Tokens(At(0, 1)), (std::vector<uint8_t>{0x44, 0, 0, 0, 0xC0}));
  EXPECT_EQ(Tokens(At(1, 1)), (std::vector<uint8_t>{0x44, 1, 0, 0, 0xC0}));
  EXPECT_EQ(Tokens(At(2, 0)), int7);
  EXPECT_EQ(Tokens(At(2, 1)), int7);
  const Sheet* s = GetSheet(book, 0);
  ASSERT_EQ(s->arrayFormulaCount, 1u);
  EXPECT_EQ(s->arrayFormulas[0].range.lastCol, 1);
  EXPECT_EQ(s->arrayFormulas[0].formula.bytes, nullptr);  // each cell holds its own copy
  EXPECT_EQ(At(1, 1)->precedentCount, 1u);
}

TEST_F(BiffReadTest, TheGlobalsBofDecidesTheVersion) {
  struct Case {
    uint16_t id, word;
    uint8_t version;
  };
  const Case cases[] = {{0x0809, 0x0600, 8}, {0x0809, 0x0500, 7}, {0x0409, 0x0600, 7}};
  for (const Case& c : cases) {
    Fresh();
    BiffBuilder b;
    b.version = c.word;
    b.Bof(0x0005, c.id).Eof();
    ASSERT_TRUE(Load(b));
    EXPECT_EQ(GetWorkbook(book)->biffVersion, c.version) << std::hex << c.id << " " << c.word;
  }
}

TEST_F(BiffReadTest, DamagedStreamsAreRefusedWithAMessage) {
  struct Case {
    const char* what;
    BiffBuilder stream;
    const char* message;
  };
  auto sheetWith = [](uint16_t id, Body body) {
    return OneSheet(nullptr, [=](BiffBuilder& b) { b.Record(id, body); });
  };
  BiffBuilder cut = sheetWith(0x0203, Body().Cell(0, 0).D(1));
  cut.bytes.resize(cut.bytes.size() - 6);  // the EOF and two bytes of the number go
  BiffBuilder unended = OneSheet(nullptr, nullptr);
  unended.bytes.resize(unended.bytes.size() - 4);
  BiffBuilder sheetFirst;
  sheetFirst.Bof(0x0010).Eof();
  const Case cases[] = {
      {"record cut by the end", cut, "runs past the end of the stream"},
      {"sheet without EOF", unended, "ends inside a substream"},
      {"short NUMBER", sheetWith(0x0203, Body().Cell(0, 0).W(1)), "shorter than what it holds"},
      {"LABELSST past the table", sheetWith(0x00FD, Body().Cell(0, 0).L(5)),
       "string the table does not hold"},
      {"MULRK against its columns", sheetWith(0x00BD, Body().W(0).W(0).W(15).L(10).W(3)),
       "does not match its columns"},
      {"column past IV", sheetWith(0x0203, Body().Cell(0, 300).D(1)), "beyond the last column"},
      {"token cut by the token length",
       sheetWith(0x0006, Body().Cell(0, 0).D(0).W(0).L(0).W(2).Raw(int7)),
       "token runs past the end of the formula"},
      {"formula longer than its record",
       sheetWith(0x0006, Body().Cell(0, 0).D(0).W(0).L(0).W(40).Raw(int7)), "runs past its record"},
      {"operator without operands", sheetWith(0x0006, Formula(0, 0, {0x03})),
       "not enough operands"},
      {"unknown function", sheetWith(0x0006, Formula(0, 0, {0x41, 0xE7, 0x03})),
       "unknown function"},
      {"password", OneSheet([](BiffBuilder& b) { b.Record(0x002F, Body().W(0)); }, nullptr),
       "Le fichier est protégé par un mot de passe"},
      {"no globals", sheetFirst, "Workbook not found in file"},
      {"name with a broken formula",
       OneSheet(
           [](BiffBuilder& b) {
             b.Record(0x0018, Body().W(0).B(0).B(1).W(1).W(0).W(0).L(0).Chars(u"n").B(0x03));
           },
           nullptr),
       "not enough operands"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Fresh();
    EXPECT_EQ(Load(c.stream), 0);
    EXPECT_NE(Message().find(c.message), std::string::npos) << Message();
  }
}

TEST_F(BiffReadTest, NestedSubstreamsAreSkippedAndChartSheetsKept) {
  BiffBuilder b;
  b.Bof(0x0005).BoundSheet("A").BoundSheet("C", 2).BoundSheet("M", 1).Eof();
  b.Bof(0x0010).Record(0x0203, Body().Cell(0, 0).D(1));
  b.Bof(0x0020).Record(0x0203, Body().Cell(5, 5).D(9)).Bof(0x0020).Eof().Eof();  // embedded
  b.Record(0x00E5, Body().W(1).W(0).W(1).W(0).W(1)).Record(0x023E, Body().W(0x06).W(3).W(2));
  b.Eof();
  b.Bof(0x0020).Record(0x0203, Body().Cell(0, 0).D(2)).Eof();
  b.Bof(0x0040).Record(0x0203, Body().Cell(1, 1).D(3)).Eof();
  ASSERT_TRUE(Load(b)) << Message();
  const Workbook* wb = GetWorkbook(book);
  ASSERT_EQ(wb->sheetCount, 3u);
  const Sheet* a = GetSheet(book, 0);
  EXPECT_EQ(a->cells.count, 1u);
  ASSERT_EQ(a->mergeCount, 1u);
  EXPECT_EQ(a->merges[0].lastRow, 1);
  EXPECT_EQ(a->topRow, 3);
  EXPECT_EQ(a->leftCol, 2);
  EXPECT_FALSE(a->flags & SheetShowFormulas);
  EXPECT_EQ(GetSheet(book, 1)->kind, SheetChart);
  EXPECT_EQ(GetSheet(book, 1)->cells.count, 0u);
  EXPECT_EQ(std::u16string(GetSheet(book, 1)->name), u"C");
  EXPECT_EQ(GetSheet(book, 2)->kind, SheetMacro);
  EXPECT_EQ(At(1, 1, 2)->value.number, 3);
}

TEST_F(BiffReadTest, Biff5TextTokensNamesAndLinksAreUpgraded) {
  auto globals = [](BiffBuilder& b) {
    b.Record(0x0042, Body().W(1252));
    // Print_Area of the first sheet: a BIFF5 3-D area on this workbook's sheet 0.
    Body name;
    name.W(0x20).B(0).B(1).W(21).W(0).W(1).L(0).B(6);
    name.B(0x3B).W(0xFFFF).L(0).L(0).W(0).W(0).W(0).W(1).B(0).B(1);
    b.Record(0x0018, name);
  };
  auto sheet = [](BiffBuilder& b) {
    b.Record(0x0204, Body().Cell(0, 0).W(4).Bytes("caf\xE9"));
    // B1 & "\xE9" in BIFF5 form: a relative reference with its flags in the row word.
    b.Record(0x0006, Formula(1, 0, {0x44, 0x00, 0xC0, 0x01, 0x17, 0x01, 0xE9, 0x08}));
  };
  ASSERT_TRUE(Load(OneSheet(globals, sheet, 0x0500))) << Message();
  EXPECT_EQ(std::u16string(At(0, 0)->value.text), u"caf\u00E9");
  EXPECT_EQ(Tokens(At(1, 0)), (std::vector<uint8_t>{0x44, 0, 0, 1, 0xC0, 0x17, 1, 0, 0xE9, 0x08}));
  const Workbook* wb = GetWorkbook(book);
  ASSERT_EQ(wb->nameCount, 1u);
  EXPECT_EQ(std::u16string(wb->names[0].name), u"Print_Area");
  EXPECT_EQ(wb->names[0].localSheet, 1);
  const FormulaTokens& f = wb->names[0].formula;
  ASSERT_EQ(f.length, 11);
  uint16_t link = static_cast<uint16_t>(f.bytes[1] | f.bytes[2] << 8);
  ASSERT_LT(link, wb->sheetLinkCount);
  EXPECT_EQ(wb->externalBooks[wb->sheetLinks[link].bookIndex].kind, ExternalSelf);
  EXPECT_EQ(wb->sheetLinks[link].firstSheet, 0);
}

TEST_F(BiffReadTest, StylesOfBothLayouts) {
  // Font 5 (the fifth record, since there is no font 4), format 164, locked, wrapped, solid fill
  // in colours 10 (pattern) and 11 (back), top line style 2 in colour 12.
  Body xf8;
  xf8.W(5).W(164).W(0x0001).B(0x08).B(0);
  xf8.b.resize(20);
  auto setBits = [&](uint32_t at, uint32_t count, uint32_t value) {
    for (uint32_t i = 0; i < count; i++)
      if (value >> i & 1) xf8.b[(at + i) / 8] |= static_cast<uint8_t>(1 << ((at + i) % 8));
  };
  setBits(88, 4, 2);
  setBits(112, 7, 12);
  setBits(138, 6, 1);
  setBits(144, 7, 10);
  setBits(151, 7, 11);
  auto globals = [&](BiffBuilder& b) {
    b.Record(0x0031, Body().W(240).W(2).W(10).W(700).W(0).B(1).B(2).B(0).B(0).B(5).Chars(u"Arial"));
    b.Record(0x041E, Body().W(164).W(5).Chars(u"0.000"));
    b.Record(0x0092, Body().W(2).L(0x00332211).L(0x00665544));
    for (int i = 0; i < 16; i++) b.Record(0x00E0, xf8);
  };
  ASSERT_TRUE(Load(OneSheet(globals, nullptr))) << Message();
  const Workbook* wb = GetWorkbook(book);
  ASSERT_EQ(wb->fontCount, 1u);
  EXPECT_EQ(std::u16string(wb->fonts[0].faceName), u"Arial");
  EXPECT_EQ(wb->fonts[0].weight, 700);
  EXPECT_EQ(wb->palette[8], 0x00332211u);
  EXPECT_EQ(wb->palette[9], 0x00665544u);
  ASSERT_EQ(wb->xfCount, 16u);
  const Xf& x = wb->xfs[3];
  EXPECT_EQ(x.font, 4);
  EXPECT_EQ(std::u16string(wb->numberFormats[x.numberFormat].code), u"0.000");
  uint32_t flags = x.flags;  // the record is packed
  EXPECT_EQ(flags, XfLocked | XfWrap);
  EXPECT_EQ(x.pattern, 1);
  EXPECT_EQ(x.background, 10);  // the solid colour
  EXPECT_EQ(x.foreground, 11);
  EXPECT_EQ(x.topStyle, 2);
  EXPECT_EQ(x.topColor, 12);
}

TEST_F(BiffReadTest, WindowRecordsSetPanesAndZoom) {
  struct Case {
    uint16_t numerator, denominator, zoom;
  };
  const Case zooms[] = {{1, 1, 100}, {5, 1, 400}, {1, 20, 10}, {3, 4, 75}, {1, 0, 100}, {0, 3, 10}};
  for (const Case& z : zooms) {
    Fresh();
    auto sheet = [&](BiffBuilder& b) {
      b.Record(0x023E, Body().W(0x0E).W(4).W(1));  // frozen, grid, headings
      b.Record(0x0041, Body().W(2).W(3).W(20).W(9).B(0));
      b.Record(0x00A0, Body().W(z.numerator).W(z.denominator));
    };
    ASSERT_TRUE(Load(OneSheet(nullptr, sheet))) << Message();
    const Sheet* s = GetSheet(book, 0);
    EXPECT_EQ(s->zoom, z.zoom) << z.numerator << "/" << z.denominator;
    EXPECT_TRUE(s->flags & SheetPanesFrozen);
    EXPECT_EQ(s->frozenRow, 7);
    EXPECT_EQ(s->frozenCol, 3);
    EXPECT_EQ(s->topRow, 20);
    EXPECT_EQ(s->leftCol, 9);
  }
}

TEST_F(BiffReadTest, LostMemoryAnywhereEndsTheLoadCleanly) {
  auto globals = [](BiffBuilder& b) { Sst(b, {u"a", u"b"}); };
  auto sheet = [](BiffBuilder& b) {
    b.Record(0x00FD, Body().Cell(0, 0).L(1)).Record(0x0006, Formula(0, 1, int7, 0, 7));
    b.Record(0x00E5, Body().W(1).W(0).W(1).W(0).W(1))
        .Record(0x0208, Body().W(0).L(0).W(300).L(0).W(0x40));
  };
  BiffBuilder b = OneSheet(globals, sheet);
  bool loaded = false;
  for (int64_t after = 0; after < 60 && !loaded; after++) {
    Fresh();
    SetAllocationFailureAfter(after);
    loaded = Load(b);
    SetAllocationFailureAfter(-1);
  }
  ASSERT_TRUE(loaded);
  EXPECT_EQ(std::u16string(At(0, 0)->value.text), u"b");
}

}  // namespace
