// The Pocket Excel writer, byte by byte: each record as a workbook gives rise to it against the
// bytes the format prescribes, the order of the records of a workbook and a sheet, and what a
// save leaves out and counts.
#include <functional>

#include "files/pocket_fixture.h"
#include "model/styles.h"

namespace {

using Setup = std::function<void(PocketTest*)>;

struct RecordCase {
  const char* what;
  Setup setup;
  uint8_t id;
  int nth;  // which record of that id
  Rec expected;
};

// Appends a custom number format to the workbook's table and returns its index.
uint16_t AddFormat(uint32_t book, const char16_t* code) {
  Workbook* wb = GetWorkbook(book);
  void* grown = Reallocate(wb->numberFormats, wb->numberFormatCount * sizeof(NumberFormat),
                           (wb->numberFormatCount + 1) * sizeof(NumberFormat));
  wb->numberFormats = static_cast<NumberFormat*>(grown);
  wb->numberFormats[wb->numberFormatCount] = NumberFormat{164, 0, TextDuplicate(code), nullptr};
  return static_cast<uint16_t>(wb->numberFormatCount++);
}

// Gives cell (row, col) of sheet 0 a blank with this cell format.
void StoreBlank(uint32_t book, uint16_t row, uint8_t col, const Xf& xf) {
  Cell proto{};
  proto.row = row;
  proto.col = col;
  ASSERT_TRUE(InternXf(book, &xf, &proto.xf));
  ASSERT_TRUE(StoreCell(book, 0, &proto, 0, 0));
}

Rec DefaultFont() {
  Rec r(49);
  r.U16(DefaultFontHeight).U16(0).U16(255).U16(400).U16(0).U8(0).U8(0).U8(0).U8(0);
  std::u16string face(DefaultFontFace);
  return r.U8(static_cast<uint32_t>(face.size())).Chars(face);
}

TEST_F(PocketTest, EachRecordHasTheBytesOfTheFormat) {
  const RecordCase cases[] = {
      {"globals open the stream", nullptr, 9, 0, Rec(9).U16(270).U16(5)},
      {"a sheet opens its part", nullptr, 9, 1, Rec(9).U16(270).U16(16)},
      {"code page", [](PocketTest* t) { GetWorkbook(t->book)->codePage = 1252; }, 66, 0,
       Rec(66).U16(1252)},
      {"zoom of the first sheet, reduced", [](PocketTest* t) { GetSheet(t->book, 0)->zoom = 75; },
       160, 0, Rec(160).U16(3).U16(4)},
      {"window with the current sheet",
       [](PocketTest* t) {
         t->AddSheet(u"B");
         GetWorkbook(t->book)->currentSheet = 1;
       },
       61, 0, Rec(61).U16(31).U16(1)},
      {"default font", nullptr, 49, 0, DefaultFont()},
      {"default cell format", nullptr, 224, 0,
       Rec(224)
           .U16(0)
           .U16(0)
           .U16(0xFFFF)
           .U16(0xFFFF)
           .U16(2)
           .U8(0x30)
           .U8(0)
           .U16(255)
           .U16(255)
           .U8(0xF8)
           .U8(0xF8)
           .U8(0xF8)
           .U8(0xF8)
           .U8(0)
           .U8(0)},
      {"cell format with a custom number format, lines and a pattern",
       [](PocketTest* t) {
         Xf xf = GetWorkbook(t->book)->xfs[DefaultCellXf];
         xf.numberFormat = AddFormat(t->book, u"0.000");
         xf.flags = XfLocked | XfFormulaHidden | XfWrap | XfQuotePrefix;
         xf.horizontalAlign = 2;
         xf.verticalAlign = 0;
         xf.topStyle = 2;
         xf.topColor = 10;
         xf.rightStyle = 1;
         xf.rightColor = 64;
         xf.pattern = 1;
         xf.foreground = 12;
         xf.background = 70;
         xf.rotation = 90;
         StoreBlank(t->book, 0, 0, xf);
       },
       224, 1,
       Rec(224)
           .U16(0)
           .U16(233)
           .U16(0xFFFF)
           .U16(0xFFFF)
           .U16(14)
           .U8(0x1A)
           .U8(9)
           .U16(4)
           .U16(255)
           .U8(2)
           .U8(0xF8)
           .U8(0xF8)
           .U8(56)
           .U8(1)
           .U8(90)},
      {"custom number format",
       [](PocketTest* t) {
         Xf xf = GetWorkbook(t->book)->xfs[DefaultCellXf];
         xf.numberFormat = AddFormat(t->book, u"0.000");
         StoreBlank(t->book, 0, 0, xf);
       },
       30, 0, Rec(30).U8(5).Chars(u"0.000")},
      {"sheet name", [](PocketTest* t) { TextCopy(GetSheet(t->book, 0)->name, 32, u"Ventes"); },
       133, 0, Rec(133).U8(0).U8(6).Chars(u"Ventes")},
      {"local name with a formula",
       [](PocketTest* t) {
         t->AddSheet(u"B");
         DefinedName name{};
         name.localSheet = 2;
         name.name = TextDuplicate(u"Taux");
         uint8_t ref[] = {0x24, 4, 0, 1, 0};  // $B$5
         name.formula.length = sizeof ref;
         name.formula.bytes = static_cast<uint8_t*>(Allocate(sizeof ref));
         std::memcpy(name.formula.bytes, ref, sizeof ref);
         ASSERT_TRUE(AddName(t->book, &name, nullptr));
       },
       24, 0, Rec(24).U16(0).U8(4).U16(4).U16(1).Chars(u"Taux").U8(0x24).U16(4).U8(1)},
      {"number", [](PocketTest* t) { t->Enter(2, 1, u"1,5"); }, 3, 0,
       Rec(3).Head(2, 1, 0).Num(1.5)},
      {"text", [](PocketTest* t) { t->Enter(0, 2, u"Été"); }, 4, 0,
       Rec(4).Head(0, 2, 0).U16(3).Chars(u"Été")},
      {"boolean", [](PocketTest* t) { t->Enter(1, 0, u"VRAI"); }, 5, 0,
       Rec(5).Head(1, 0, 0).U8(1).U8(0)},
      {"error", [](PocketTest* t) { t->Enter(1, 0, u"#DIV/0!"); }, 5, 0,
       Rec(5).Head(1, 0, 0).U8(7).U8(1)},
      {"formula with a number result",
       [](PocketTest* t) {
         t->Enter(0, 0, u"2");
         t->Enter(0, 1, u"=A1*3");
       },
       6, 0,
       Rec(6).Head(0, 1, 0).Num(6).U8(0).U16(8).U8(0x44).U16(0xC000).U8(0).U8(0x1E).U16(3).U8(5)},
      {"formula with a text result", [](PocketTest* t) { t->Enter(0, 0, u"=\"ab\"&\"c\""); }, 6, 0,
       Rec(6)
           .Head(0, 0, 0)
           .U8(0)
           .Zeros(5)
           .U8(0xFF)
           .U8(0xFF)
           .U8(0)
           .U16(10)
           .U8(0x17)
           .U8(2)
           .U8(0)
           .U8('a')
           .U8('b')
           .U8(0x17)
           .U8(1)
           .U8(0)
           .U8('c')
           .U8(8)},
      {"the text of a formula's result", [](PocketTest* t) { t->Enter(0, 0, u"=\"ab\"&\"c\""); }, 7,
       0, Rec(7).U16(3).Chars(u"abc")},
      {"formula with an error result, saved as its value outside the function list",
       [](PocketTest* t) { t->Enter(0, 0, u"=CONCATENER(1/0)"); }, 5, 0,
       Rec(5).Head(0, 0, 0).U8(7).U8(1)},
      {"blank with a format of its own",
       [](PocketTest* t) {
         Xf xf = GetWorkbook(t->book)->xfs[DefaultCellXf];
         xf.horizontalAlign = 3;
         StoreBlank(t->book, 3, 3, xf);
       },
       1, 0, Rec(1).Head(3, 3, 1)},
      {"default row height of its own",
       [](PocketTest* t) {
         Sheet* s = GetSheet(t->book, 0);
         s->flags &= ~SheetStandardHeight;
         s->defaultRowHeight = 300;
       },
       37, 0, Rec(37).U16(0).U16(300)},
      {"standard column width", nullptr, 85, 0, Rec(85).U16(0).U16(2048).U16(0)},
      {"columns joined into runs",
       [](PocketTest* t) {
         RowColInfo wide{0, 3000, DefaultCellXf};
         RowColInfo hidden{RowColHidden | RowColDefault, 0, DefaultCellXf};
         ColumnArray* c = &GetSheet(t->book, 0)->columns;
         for (uint32_t col = 1; col <= 3; col++) ASSERT_TRUE(SetColumnRecord(c, col, &wide));
         ASSERT_TRUE(SetColumnRecord(c, 5, &hidden));
       },
       125, 0, Rec(125).U16(1).U16(3).U16(3000).U16(0).U8(2)},
      {"row without a record", [](PocketTest* t) { t->Enter(0, 0, u"1"); }, 8, 0,
       Rec(8).U16(0).U16(255).U16(0).U16(0)},
      {"row sized by hand and hidden",
       [](PocketTest* t) {
         RowColInfo info{RowHeightByHand | RowColHidden, 500, DefaultCellXf};
         ASSERT_TRUE(SetRowRecord(&GetSheet(t->book, 0)->rows, 1, &info));
       },
       8, 1, Rec(8).U16(1).U16(500).U16(3).U16(0)},
      {"window of a frozen sheet",
       [](PocketTest* t) {
         Sheet* s = GetSheet(t->book, 0);
         s->flags |= SheetPanesFrozen | SheetShowFormulas;
         s->frozenRow = 1;
         s->topRow = 4;
         s->leftCol = 3;
       },
       62, 0, Rec(62).U16(4).U8(3).U8(9).U8(1)},
      {"pane: the frozen rows, and the left column where no column is frozen",
       [](PocketTest* t) {
         Sheet* s = GetSheet(t->book, 0);
         s->flags |= SheetPanesFrozen;
         s->frozenRow = 1;
         s->topRow = 4;
         s->leftCol = 3;
       },
       65, 0, Rec(65).U16(3).U16(1).U16(4).U16(3).U8(0)},
      {"selection",
       [](PocketTest* t) {
         Sheet* s = GetSheet(t->book, 0);
         s->selection = Range{2, 9, 1, 4};
         s->activeRow = 3;
         s->activeCol = 2;
       },
       29, 0, Rec(29).U16(2).U8(1).U16(9).U8(4).U16(3).U8(2)},
      {"end of a sheet", nullptr, 10, 1, Rec(10)},
  };
  for (const RecordCase& c : cases) {
    SCOPED_TRACE(c.what);
    SetUp();
    if (c.setup) c.setup(this);
    std::vector<Bytes> records = SplitRecords(Write(book));
    int seen = 0;
    const Bytes* found = nullptr;
    for (const Bytes& r : records)
      if (!r.empty() && r[0] == c.id && seen++ == c.nth) {
        found = &r;
        break;
      }
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(*found, c.expected.bytes);
  }
}

std::vector<uint8_t> Ids(const Bytes& stream) {
  std::vector<uint8_t> ids;
  for (const Bytes& r : SplitRecords(stream)) ids.push_back(r.empty() ? 0 : r[0]);
  return ids;
}

TEST_F(PocketTest, RecordsComeInTheOrderOfTheFormat) {
  TextCopy(GetSheet(book, 0)->name, 32, u"A");
  Enter(0, 0, u"1");
  Enter(40, 1, u"x");
  AddSheet(u"Graphique");
  GetSheet(book, 1)->kind = SheetChart;
  std::vector<uint8_t> ids = Ids(Write(book));
  std::vector<uint8_t> expected = {9, 66, 61};
  for (uint32_t i = 0; i < GetWorkbook(book)->fontCount; i++) expected.push_back(49);
  expected.insert(expected.end(), {224, 133, 133, 10, 9, 85});
  // Rows in blocks of 32: the ROW records of a block, then its cells.
  expected.insert(expected.end(), 32, 8);
  expected.push_back(3);
  expected.insert(expected.end(), 9, 8);
  expected.insert(expected.end(), {4, 62, 29, 10});
  expected.push_back(9);  // the chart sheet: an empty worksheet
  EXPECT_EQ(ids, expected);
}

TEST_F(PocketTest, WhatTheFormatCannotHoldIsCountedAndSavedAsValues) {
  AddSheet(u"B");
  Enter(0, 0, u"4");
  Enter(0, 1, u"=RACINE(A1)");           // in the list: kept
  Enter(1, 1, u"=CONCATENER(\"a\";1)");  // outside the list
  Enter(2, 1, u"=SOMME(A1:A65536)");     // past row 16384
  Enter(3, 1, u"=A1:A2 A1");             // intersection
  // A formula from a file that kept its typed space: =  1
  Cell spaced{};
  spaced.row = 4;
  spaced.col = 1;
  spaced.value = NumberValue(1);
  const uint8_t tokens[] = {0x19, 0x40, 0x00, 0x01, 0x1E, 0x01, 0x00};
  spaced.formula.length = sizeof tokens;
  spaced.formula.bytes = static_cast<uint8_t*>(Allocate(sizeof tokens));
  std::memcpy(spaced.formula.bytes, tokens, sizeof tokens);
  ASSERT_TRUE(StoreCell(book, 0, &spaced, 0, 0));
  Enter(5, 1, u"=B!A1+1");                // another sheet of this workbook: kept
  Enter(0, 0, 6, u"=A1*{1;2}", 1, 1, 6);  // an array formula over G1:G2
  Enter(20000, 0, u"gone");
  PocketDrops drops;
  Bytes stream = Write(book, &drops);
  PocketDrops counted;
  CountPocketDrops(book, &counted);
  EXPECT_EQ(std::memcmp(&drops, &counted, sizeof drops), 0);
  EXPECT_EQ(drops.count[PocketDropFunction], 1u);
  EXPECT_EQ(drops.count[PocketDropRows], 1u);
  EXPECT_EQ(drops.count[PocketDropToken], 1u);
  EXPECT_EQ(drops.count[PocketDropSpace], 1u);
  EXPECT_EQ(drops.count[PocketDropArray], 2u);
  EXPECT_EQ(drops.count[PocketDropCellRow], 1u);
  uint32_t back = 0;
  ASSERT_EQ(Read(stream, &back), 1) << Message();
  EXPECT_EQ(Formula(back, At(back, 0, 0, 1)), "=RACINE(A1)");
  EXPECT_EQ(Formula(back, At(back, 0, 5, 1)), "=B!A1+1");
  for (uint16_t row : {1, 2, 3, 4}) {
    SCOPED_TRACE(row);
    Cell* was = At(book, 0, row, 1);
    Cell* cell = At(back, 0, row, 1);
    ASSERT_NE(cell, nullptr);
    EXPECT_EQ(cell->formula.bytes, nullptr);
    EXPECT_EQ(cell->value.tag, was->value.tag);
  }
  EXPECT_EQ(At(back, 0, 1, 1)->value.tag, ValueText);
  EXPECT_EQ(At(back, 0, 1, 6)->value.number, 8);
  EXPECT_EQ(At(back, 0, 20000, 0), nullptr);
}

}  // namespace
