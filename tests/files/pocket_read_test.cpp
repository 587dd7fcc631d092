// The Pocket Excel reader on streams built by hand: cell formats mapped from the file's numbers,
// formula results of every type, fonts, number formats and sheets; and malformed streams (cut
// records, counts past the end, bad tokens, a password) that end the load with a message.
#include <algorithm>

#include "files/pocket_fixture.h"
#include "model/styles.h"

namespace {

Rec Bof(uint32_t type) {
  return Rec(9).U16(270).U16(type);
}

Rec Xf22(uint32_t font, uint32_t format) {
  return Rec(224)
      .U16(font)
      .U16(format)
      .U16(0xFFFF)
      .U16(0xFFFF)
      .U16(2)
      .U8(0x30)
      .U8(0)
      .U16(255)
      .U16(255)
      .Zeros(4)
      .U8(0)
      .U8(0);
}

struct ReadTest : PocketTest {
  uint32_t back = 0;
  void Load(const Bytes& stream) { ASSERT_EQ(Read(stream, &back), 1) << Message(); }
  Cell* Cell0(uint32_t row, uint32_t col) { return At(back, 0, row, col); }
};

TEST_F(ReadTest, CellFormatsMapToTheWorkbooksNumbers) {
  Load(Stream({Bof(5), Xf22(0, 0), Xf22(0, 10), Xf22(0, 0), Rec(133).U8(0).U8(1).Chars(u"S"),
               Rec(10), Bof(16), Rec(3).Head(0, 0, 0).Num(1), Rec(3).Head(0, 1, 2).Num(2),
               Rec(1).Head(1, 0, 1), Rec(1).Head(1, 1, 40), Rec(10)}));
  const Workbook* wb = GetWorkbook(back);
  EXPECT_EQ(wb->xfCount, DefaultXfCount + 2);  // the first XF took the place of 15
  EXPECT_EQ(Cell0(0, 0)->xf, DefaultCellXf);
  EXPECT_EQ(Cell0(0, 1)->xf, 22);
  EXPECT_EQ(Cell0(1, 0)->xf, 21);
  EXPECT_EQ(Cell0(1, 1)->xf, DefaultCellXf);  // a number past the table falls back
  EXPECT_EQ(wb->numberFormats[wb->xfs[21].numberFormat].id, 7u);
  EXPECT_EQ(TextToUtf8(GetSheet(back, 0)->name), "S");
}

TEST_F(ReadTest, NumberFormatsComeFromTheTableAndTheCustomList) {
  Load(Stream({Bof(5), Rec(30).U8(5).Chars(u"0.000"), Xf22(0, 0), Xf22(0, 14), Xf22(0, 2),
               Xf22(0, 100), Xf22(0, 233), Xf22(0, 234), Rec(10)}));
  const Workbook* wb = GetWorkbook(back);
  auto code = [&](uint32_t xf) {
    return TextToUtf8(wb->numberFormats[wb->xfs[xf].numberFormat].code);
  };
  EXPECT_EQ(wb->numberFormats[wb->xfs[21].numberFormat].id, 43u);  // row 14: BIFF format 43
  EXPECT_EQ(code(22), "0.00_);(0.00)");                            // row 2: by its text
  EXPECT_EQ(wb->xfs[23].numberFormat, 0);                          // 72 to 232: General
  EXPECT_EQ(code(24), "0.000");                                    // the first custom one
  EXPECT_EQ(wb->xfs[25].numberFormat, 0);                          // no second custom one
}

TEST_F(ReadTest, CellFormatFieldsAndFontsDecode) {
  Rec xf = Rec(224)
               .U16(1)
               .U16(0)
               .U16(0xFFFF)
               .U16(0xFFFF)
               .U16(0x0C)
               .U8(0x1A)
               .U8(0x0F)
               .U16(4)
               .U16(255)
               .U8(2)
               .U8(0xF8)
               .U8(56)
               .U8(200)
               .U8(1)
               .U8(45);
  Load(Stream({Bof(5),
               Rec(49).U16(200).U16(2).U16(255).U16(400).U16(0).U8(1).U8(2).U8(0).U8(0).U8(5).Chars(
                   u"Arial"),
               Rec(49).U16(240).U16(0).U16(2).U16(700).U16(0).U8(0).U8(0).U8(0).U8(0).U8(6).Chars(
                   u"Tahoma"),
               xf, Rec(10)}));
  const Workbook* wb = GetWorkbook(back);
  ASSERT_EQ(wb->fontCount, 2u);  // the defaults went with the first FONT
  EXPECT_EQ(wb->fonts[0].color, AutomaticFontColor);
  EXPECT_EQ(wb->fonts[0].attributes, 2 | FontUnderline);
  EXPECT_EQ(wb->fonts[1].color, 10);
  EXPECT_EQ(TextToUtf8(wb->fonts[1].faceName), "Tahoma");
  const Xf& x = wb->xfs[DefaultCellXf];
  EXPECT_EQ(x.font, 1);
  uint32_t flags = x.flags;  // copied: the packed record leaves it unaligned
  EXPECT_EQ(flags, XfFormulaHidden | XfQuotePrefix | XfWrap);
  EXPECT_EQ(x.horizontalAlign, 2);
  EXPECT_EQ(x.verticalAlign, 0);
  EXPECT_EQ(x.topStyle + x.leftStyle + x.bottomStyle + x.rightStyle, 4);  // all thin
  EXPECT_EQ(x.foreground, 12);
  EXPECT_EQ(x.background, 65);
  EXPECT_EQ(x.topColor, 10);
  EXPECT_EQ(x.leftColor, 0);
  EXPECT_EQ(x.bottomColor, 64);
  EXPECT_EQ(x.rightColor, 64);  // 208 names no colour
  EXPECT_EQ(x.pattern, 1);
  EXPECT_EQ(x.rotation, 45);
}

TEST_F(ReadTest, FormulaResultsOfEveryType) {
  Rec one = Rec().U8(0x1E).U16(1);  // the tokens: the constant 1
  auto formula = [&](uint32_t row, Rec result) {
    return Rec(6).Head(row, 0, 0).Raw(result.bytes).U8(0).U16(3).Raw(one.bytes);
  };
  Load(Stream({Bof(5), Rec(10), Bof(16), formula(0, Rec().Num(2.5)),
               formula(1, Rec().U8(1).U8(0).U8(1).Zeros(3).U8(0xFF).U8(0xFF)),
               formula(2, Rec().U8(2).U8(0).U8(0x2A).Zeros(3).U8(0xFF).U8(0xFF)),
               formula(3, Rec().U8(0).Zeros(5).U8(0xFF).U8(0xFF)), Rec(7).U16(2).Chars(u"ok"),
               formula(4, Rec().U8(0).Zeros(5).U8(0xFF).U8(0xFF)), Rec(3).Head(9, 9, 0).Num(0),
               Rec(7).U16(1).Chars(u"x"), formula(5, Rec().Zeros(8)), Rec(10)}));
  EXPECT_EQ(Cell0(0, 0)->value.number, 2.5);
  EXPECT_EQ(Cell0(1, 0)->value.tag, ValueBoolean);
  EXPECT_EQ(Cell0(1, 0)->value.boolean, 1u);
  EXPECT_EQ(Cell0(2, 0)->value.tag, ValueError);
  EXPECT_EQ(Cell0(2, 0)->value.error, ErrNA);
  EXPECT_EQ(TextToUtf8(Cell0(3, 0)->value.text), "ok");
  EXPECT_EQ(Cell0(3, 0)->state, CellCalculated);
  // A STRING that does not follow its formula gives nothing: the text stays empty.
  EXPECT_EQ(TextToUtf8(Cell0(4, 0)->value.text), "");
  EXPECT_EQ(Cell0(5, 0)->value.tag, ValueNumber);
  EXPECT_EQ(Cell0(5, 0)->value.number, 0);
  for (uint32_t row = 0; row < 6; row++) EXPECT_NE(Cell0(row, 0)->formula.bytes, nullptr);
}

TEST_F(ReadTest, SheetsWindowsAndNames) {
  Load(Stream({Bof(5),
               Rec(160).U16(3).U16(4),
               Rec(61).U16(31).U16(1),
               Rec(133).U8(0).U8(1).Chars(u"A"),
               Rec(133).U8(0).U8(1).Chars(u"B"),
               Rec(24).U16(0).U8(1).U16(0).U16(1).Chars(u"L"),
               Rec(24)
                   .U16(0)
                   .U8(1)
                   .U16(18)
                   .U16(0xFFFF)
                   .Chars(u"G")
                   .U8(0x3A)
                   .Zeros(10)
                   .U16(1)
                   .U16(1)
                   .U16(0)
                   .U8(0),
               Rec(10),
               Bof(16),
               Rec(37).U16(0).U16(300),
               Rec(85).U16(0).U16(3000).U16(0),
               Rec(125).U16(2).U16(3).U16(4000).U16(0).U8(3),
               Rec(8).U16(0).U16(300).U16(0).U16(0),
               Rec(8).U16(1).U16(600).U16(2).U16(0),
               Rec(62).U16(5).U8(1).U8(0x0F).U8(1),
               Rec(65).U16(1).U16(2).U16(5).U16(1).U8(0),
               Rec(29).U16(4).U8(1).U16(6).U8(2).U16(5).U8(1),
               Rec(10),
               Bof(16),
               Rec(10)}));
  const Workbook* wb = GetWorkbook(back);
  ASSERT_EQ(wb->sheetCount, 2u);
  EXPECT_EQ(wb->currentSheet, 1u);
  EXPECT_EQ(GetSheet(back, 1)->zoom, 75);  // the file's zoom goes to every sheet
  ASSERT_EQ(wb->nameCount, 2u);
  EXPECT_EQ(wb->names[0].localSheet, 2);
  EXPECT_EQ(wb->names[0].formula.bytes, nullptr);
  EXPECT_EQ(wb->names[1].localSheet, 0);
  char16_t* text = FormulaText(back, &wb->names[1].formula, 0, 0, 1, 0, 0);
  EXPECT_EQ(TextToUtf8(text), "=B!$A$1");
  Release(text);
  const Sheet* s = GetSheet(back, 0);
  EXPECT_EQ(s->defaultRowHeight, 300);
  EXPECT_FALSE(s->flags & SheetStandardHeight);
  EXPECT_EQ(ColumnWidthUnits(back, 0, 2), 0u);  // hidden
  EXPECT_EQ(ColumnWidthUnits(back, 0, 4), 3000u);
  EXPECT_EQ(s->rows.count, 1u);  // the row of default height has no record
  EXPECT_EQ(RowHeightTwips(back, 0, 1), 600u);
  EXPECT_TRUE(s->flags & SheetShowFormulas);
  EXPECT_FALSE(s->flags & SheetGridLines);
  EXPECT_FALSE(s->flags & SheetHeaders);
  EXPECT_TRUE(s->flags & SheetPanesFrozen);
  EXPECT_EQ(s->frozenCol, 1);
  EXPECT_EQ(s->frozenRow, 2);
  EXPECT_EQ(s->topRow, 5);
  uint16_t lastRow = s->selection.lastRow;  // copied: the packed record leaves it unaligned
  EXPECT_EQ(lastRow, 6);
  EXPECT_EQ(s->activeRow, 5);
}

TEST_F(ReadTest, UnknownIdsAndStrayCellsAreReadAsNothing) {
  Load(Stream({Rec(3).Head(0, 0, 0).Num(9), Rec(0xFF), Rec(0), Bof(5), Rec(10), Bof(16), Rec(200),
               Rec(3).Head(2, 0, 0).Num(1), Rec(10), Bof(16), Rec(3).Head(0, 0, 0).Num(7),
               Rec(10)}));
  const Sheet* s = GetSheet(back, 0);
  ASSERT_EQ(s->cells.count, 1u);  // the cell before any sheet and the one past the last are gone
  EXPECT_EQ(Cell0(2, 0)->value.number, 1);
}

TEST_F(ReadTest, DamagedStreamsEndWithAMessage) {
  const struct {
    const char* what;
    Bytes stream;
    const char* message;
  } cases[] = {
      {"password", Stream({Bof(5), Rec(47), Rec(10)}),
       "Le fichier est protégé par un mot de passe"},
      {"text longer than the file",
       Stream({Bof(5), Rec(10), Bof(16), Rec(4).Head(0, 0, 0).U16(500).Chars(u"ab")}),
       "The file is damaged: a record is cut short by the end of the file (record at byte 11)."},
      {"tokens past the end", Stream({Bof(16), Rec(6).Head(0, 0, 0).Zeros(9).U16(40).U8(0x1E)}),
       "The file is damaged: a record is cut short"},
      {"tokens of no known form",
       Stream({Bof(16), Rec(6).Head(0, 0, 0).Zeros(9).U16(5).U8(1).Zeros(4)}),
       "The file is damaged: a formula holds a token this format lacks"},
      {"tokens that leave no value",
       Stream({Bof(16), Rec(6).Head(0, 0, 0).Zeros(9).U16(1).U8(0x03)}), "The file is damaged: "},
      {"a name cut short", Stream({Bof(5), Rec(24).U16(0).U8(9).U16(0).U16(0).Chars(u"ab")}),
       "The file is damaged: a record is cut short"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ClearLastMessage();
    uint32_t into = 0;
    EXPECT_EQ(Read(c.stream, &into), 0);
    EXPECT_EQ(Message().rfind(c.message, 0), 0u) << Message();
  }
}

TEST_F(ReadTest, EveryCutOfAStreamLoadsOrSaysWhy) {
  TextCopy(GetSheet(book, 0)->name, SheetNameCapacity, u"Un");
  Enter(0, 0, u"Texte");
  Enter(1, 1, u"=SI(A1=\"x\";1;SOMME(B1:B3))");
  Enter(2, 2, u"=\"a\"&A1");
  AddSheet(u"Deux");
  Enter(1, 0, 0, u"=Un!A1");
  Bytes stream = Write(book);
  std::vector<Bytes> records = SplitRecords(stream);
  std::vector<size_t> ends;  // where each record ends
  size_t at = 0;
  for (const Bytes& r : records) ends.push_back(at += r.size());
  for (size_t cut = 0; cut <= stream.size(); cut++) {
    ClearLastMessage();
    Bytes part(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(cut));
    uint32_t into = 0;
    int ok = Read(part, &into);
    bool boundary = cut == 0 || std::find(ends.begin(), ends.end(), cut) != ends.end();
    EXPECT_EQ(ok, boundary ? 1 : 0) << "cut at " << cut;
    if (!ok) {
      EXPECT_EQ(Message().rfind("The file is damaged", 0), 0u) << Message();
    }
    CloseWorkbook(into);
  }
}

}  // namespace
