// Tests of the style tables: what a new workbook starts with, interning of Xfs and fonts, and
// which Xf a cell position resolves to.
#include <gtest/gtest.h>

#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "model/cells.h"
#include "model/styles.h"
#include "model/workbook.h"

namespace {

uint32_t NewBook() {
  uint32_t book = 0;
  EXPECT_TRUE(CreateWorkbook(nullptr, 0, &book));
  return book;
}

TEST(StylesDefaults, NumberFormatsAndPalette) {
  uint32_t book = NewBook();
  const Workbook* wb = GetWorkbook(book);
  ASSERT_EQ(wb->numberFormatCount, 36u);
  for (uint32_t i = 0; i < wb->numberFormatCount; i++) {
    EXPECT_EQ(wb->numberFormats[i].id, i < 23 ? i : i - 23 + 37) << i;
    EXPECT_EQ(wb->numberFormats[i].flags, NumberFormatBuiltIn);
  }
  struct {
    uint32_t id;
    const char16_t* code;
  } codes[] = {{0, u"General"},
               {22, u"m/d/yy h:mm"},
               {37, u"#,##0_);(#,##0)"},
               {44, u"_($* #,##0.00_);_($* (#,##0.00);_($* \"-\"??_);_(@_)"},
               {49, u"@"}};
  for (const auto& c : codes) {
    int32_t at = FindNumberFormatById(book, c.id);
    ASSERT_GE(at, 0) << c.id;
    EXPECT_EQ(CompareText(wb->numberFormats[at].code, c.code), 0) << c.id;
  }
  EXPECT_EQ(FindNumberFormatById(book, 23), -1);

  // 0x00BBGGRR: the fixed eight, their editable copies, then the standard colours.
  struct {
    uint32_t index;
    uint32_t bgr;
  } colours[] = {
      {0, 0x000000},  {2, 0x0000FF},  {4, 0xFF0000},  {7, 0xFFFF00},  {8, 0x000000},
      {10, 0x0000FF}, {13, 0x00FFFF}, {15, 0xFFFF00}, {16, 0x000080}, {18, 0x800000},
      {22, 0xC0C0C0}, {24, 0xFF9999}, {30, 0xCC6600}, {43, 0x99FFFF}, {53, 0x0066FF},
      {55, 0x969696}, {63, 0x333333},
  };
  for (const auto& c : colours) EXPECT_EQ(wb->palette[c.index], c.bgr) << c.index;
  CloseAllWorkbooks();
}

TEST(StylesDefaults, XfsStylesAndFonts) {
  uint32_t book = NewBook();
  const Workbook* wb = GetWorkbook(book);
  ASSERT_EQ(wb->xfCount, 21u);
  const uint16_t styleFormatIds[] = {43, 41, 44, 42, 9};  // of Xfs 16 to 20
  for (uint32_t i = 0; i < wb->xfCount; i++) {
    const Xf& xf = wb->xfs[i];
    // Xf is packed: read its wider fields by value, never through a reference.
    uint32_t font = xf.font, format = xf.numberFormat, flags = xf.flags;
    EXPECT_EQ(font, (i == 1 || i == 2 || i >= 16) ? 1u : (i == 3 || i == 4) ? 2u : 0u) << i;
    ASSERT_LT(format, wb->numberFormatCount) << i;
    EXPECT_EQ(wb->numberFormats[format].id, i >= 16 ? styleFormatIds[i - 16] : 0) << i;
    EXPECT_EQ(flags, i == 15 ? XfLocked : XfLocked | XfStyle) << i;
    EXPECT_EQ(xf.verticalAlign, 2);
    EXPECT_EQ(xf.foreground, 64);
    EXPECT_EQ(xf.background, 65);
    EXPECT_EQ(xf.topStyle | xf.leftStyle | xf.bottomStyle | xf.rightStyle | xf.pattern, 0);
  }

  ASSERT_EQ(wb->styleCount, 6u);
  const StyleRecord expected[] = {{0x8010, 3, 255}, {0x8011, 6, 255}, {0x8012, 4, 255},
                                  {0x8013, 7, 255}, {0x8000, 0, 255}, {0x8014, 5, 255}};
  EXPECT_EQ(std::memcmp(wb->styles, expected, sizeof(expected)), 0);

  ASSERT_EQ(wb->fontCount, 4u);
  for (uint32_t i = 0; i < wb->fontCount; i++) {
    const FontRecord& f = wb->fonts[i];
    EXPECT_EQ(f.height, 200);
    EXPECT_EQ(f.color, AutomaticFontColor);
    EXPECT_EQ(f.weight, 400);
    EXPECT_EQ(f.attributes, 0);
    EXPECT_EQ(CompareText(f.faceName, u"Tahoma"), 0);
  }
  CloseAllWorkbooks();
}

TEST(StylesDefaults, BuildReleasesEverythingWhenMemoryRunsOut) {
  uint32_t book = NewBook();
  FreeStyles(book);
  int built = 0;
  for (int64_t allowed = 0; !built && allowed < 64; allowed++) {
    SetAllocationFailureAfter(allowed);
    built = BuildDefaultStyles(book);
    SetAllocationFailureAfter(-1);
    const Workbook* wb = GetWorkbook(book);
    if (!built) {
      EXPECT_EQ(wb->numberFormatCount + wb->xfCount + wb->styleCount + wb->fontCount, 0u);
      EXPECT_EQ(wb->xfs, nullptr);
    }
  }
  EXPECT_TRUE(built);
  EXPECT_EQ(GetWorkbook(book)->xfCount, 21u);
  CloseAllWorkbooks();
}

TEST(StylesIntern, XfFoundOrAppended) {
  uint32_t book = NewBook();
  uint16_t index = 0;
  Xf xf = GetWorkbook(book)->xfs[DefaultCellXf];
  ASSERT_TRUE(InternXf(book, &xf, &index));
  EXPECT_EQ(index, DefaultCellXf);
  EXPECT_EQ(GetWorkbook(book)->xfCount, 21u);

  xf.horizontalAlign = 3;
  ASSERT_TRUE(InternXf(book, &xf, &index));
  EXPECT_EQ(index, 21);
  ASSERT_TRUE(InternXf(book, &xf, &index));
  EXPECT_EQ(index, 21);
  EXPECT_EQ(GetWorkbook(book)->xfCount, 22u);

  // A lost allocation leaves the table as it was.
  xf.rotation = 90;
  SetAllocationFailureAfter(0);
  EXPECT_FALSE(InternXf(book, &xf, &index));
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(GetWorkbook(book)->xfCount, 22u);
  EXPECT_EQ(GetWorkbook(book)->xfs[21].horizontalAlign, 3);
  CloseAllWorkbooks();
}

TEST(StylesIntern, FontIgnoresHandlesAndMetric) {
  uint32_t book = NewBook();
  uint16_t index = 0;
  FontRecord font = GetWorkbook(book)->fonts[0];
  font.screenHandle = &font;
  font.printHandle = &index;
  font.cachedMetric = 17;
  ASSERT_TRUE(InternFont(book, &font, &index));
  EXPECT_EQ(index, 0);
  EXPECT_EQ(GetWorkbook(book)->fontCount, 4u);

  font.weight = 700;
  ASSERT_TRUE(InternFont(book, &font, &index));
  EXPECT_EQ(index, 4);
  const FontRecord& added = GetWorkbook(book)->fonts[4];
  EXPECT_EQ(added.weight, 700);
  EXPECT_EQ(added.screenHandle, nullptr);
  EXPECT_EQ(added.printHandle, nullptr);

  // Only the face's text counts, not what follows its terminator.
  FontRecord other = font;
  other.faceName[TextLength(other.faceName) + 1] = u'x';
  ASSERT_TRUE(InternFont(book, &other, &index));
  EXPECT_EQ(index, 4);
  TextCopy(other.faceName, 32, u"Arial");
  ASSERT_TRUE(InternFont(book, &other, &index));
  EXPECT_EQ(index, 5);
  CloseAllWorkbooks();
}

TEST(StylesXfForCell, CellThenRowThenColumnThenDefault) {
  uint32_t book = NewBook();
  Sheet* sheet = GetSheet(book, 0);
  RowColInfo row = {0, StandardRowHeight, 21};
  RowColInfo column = {0, StandardColumnWidth, 22};
  ASSERT_TRUE(SetRowRecord(&sheet->rows, 4, &row));
  ASSERT_TRUE(SetColumnRecord(&sheet->columns, 2, &column));
  Cell* cell = AppendCell(&sheet->cells, 4, 2);
  ASSERT_NE(cell, nullptr);
  cell->xf = 23;

  struct {
    uint32_t row, col;
    uint16_t xf;
  } cases[] = {
      {4, 2, 23},                   // the cell wins over its row and column
      {4, 3, 21},                   // no cell: the row
      {5, 2, 22},                   // no cell or row record: the column
      {5, 3, DefaultCellXf},        // nothing at all
      {65535, 255, DefaultCellXf},  // the far corner
  };
  for (const auto& c : cases) EXPECT_EQ(XfForCell(book, 0, c.row, c.col), c.xf) << c.row;
  CloseAllWorkbooks();
}

}  // namespace
