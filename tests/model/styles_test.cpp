// Tests of the style tables: what a new workbook starts with, interning of Xfs and fonts, and
// which Xf a cell position resolves to.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "base/alloc.h"
#include "base/text.h"
#include "model/cells.h"
#include "model/styles.h"
#include "model/workbook.h"

namespace {

struct StylesTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override { ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book)); }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
  }
};

TEST_F(StylesTest, NewWorkbookTables) {
  const Workbook* wb = GetWorkbook(book);
  ASSERT_EQ(wb->numberFormatCount, 36u);
  for (uint32_t i = 0; i < wb->numberFormatCount; i++) {
    EXPECT_EQ(wb->numberFormats[i].id, i < 23 ? i : i - 23 + 37) << i;
    EXPECT_EQ(wb->numberFormats[i].flags, NumberFormatBuiltIn);
  }
  auto code = [&](uint32_t id) {
    int32_t at = FindNumberFormatById(book, id);
    return at < 0 ? std::string("none") : TextToUtf8(wb->numberFormats[at].code);
  };
  EXPECT_EQ(code(0), "General");
  EXPECT_EQ(code(22), "m/d/yy h:mm");
  EXPECT_EQ(code(37), "#,##0_);(#,##0)");
  EXPECT_EQ(code(44), "_($* #,##0.00_);_($* (#,##0.00);_($* \"-\"??_);_(@_)");
  EXPECT_EQ(code(49), "@");
  EXPECT_EQ(code(23), "none");

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

  // Xfs 0 to 14 are styles, 15 the default cell format, 16 to 20 the comma, currency and
  // percent styles with their number formats.
  ASSERT_EQ(wb->xfCount, 21u);
  const uint16_t styleFormatIds[] = {43, 41, 44, 42, 9};
  // Bottom aligned, pattern colours 64 and 65, no border, pattern or rotation.
  Xf want = {0, 0, 0, 0, 2, 0, 64, 65, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  for (uint32_t i = 0; i < wb->xfCount; i++) {
    want.font = (i == 1 || i == 2 || i >= 16) ? 1 : (i == 3 || i == 4) ? 2 : 0;
    want.numberFormat = i >= 16 ? FindNumberFormatById(book, styleFormatIds[i - 16]) : 0;
    want.flags = i == 15 ? XfLocked : XfLocked | XfStyle;
    EXPECT_EQ(std::memcmp(&wb->xfs[i], &want, sizeof(Xf)), 0) << i;
  }

  ASSERT_EQ(wb->styleCount, 6u);
  const StyleRecord styles[] = {{0x8010, 3, 255}, {0x8011, 6, 255}, {0x8012, 4, 255},
                                {0x8013, 7, 255}, {0x8000, 0, 255}, {0x8014, 5, 255}};
  EXPECT_EQ(std::memcmp(wb->styles, styles, sizeof(styles)), 0);

  ASSERT_EQ(wb->fontCount, 4u);
  FontRecord font = {200, 0, AutomaticFontColor, 400, 0, 0, 0, 0, u"Tahoma", nullptr, nullptr, 0};
  const size_t identity = offsetof(FontRecord, faceName) + sizeof font.faceName;
  for (uint32_t i = 0; i < wb->fontCount; i++)
    EXPECT_EQ(std::memcmp(&wb->fonts[i], &font, identity), 0) << i;
}

TEST_F(StylesTest, BuildReleasesEverythingWhenMemoryRunsOut) {
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
}

TEST_F(StylesTest, InternFindsOrAppends) {
  uint16_t index = 0;
  auto xfAt = [&](const Xf& x) { return InternXf(book, &x, &(index = 99)) ? index : -1; };
  auto fontAt = [&](const FontRecord& f) {
    return InternFont(book, &f, &(index = 99)) ? index : -1;
  };
  Xf xf = GetWorkbook(book)->xfs[DefaultCellXf];
  EXPECT_EQ(xfAt(xf), DefaultCellXf);
  xf.horizontalAlign = 3;
  EXPECT_EQ(xfAt(xf), 21);
  EXPECT_EQ(xfAt(xf), 21);
  // A lost allocation leaves the table as it was.
  xf.rotation = 90;
  SetAllocationFailureAfter(0);
  EXPECT_EQ(xfAt(xf), -1);
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(GetWorkbook(book)->xfCount, 22u);
  EXPECT_EQ(GetWorkbook(book)->xfs[21].horizontalAlign, 3);

  // Fonts match on everything but the handles and metric the platform realises, and only the
  // face's text counts, not what follows its terminator.
  FontRecord font = GetWorkbook(book)->fonts[0];
  font.screenHandle = &font;
  font.printHandle = &xf;
  font.cachedMetric = 17;
  EXPECT_EQ(fontAt(font), 0);
  font.weight = 700;
  EXPECT_EQ(fontAt(font), 4);
  EXPECT_EQ(GetWorkbook(book)->fonts[4].screenHandle, nullptr);
  EXPECT_EQ(GetWorkbook(book)->fonts[4].printHandle, nullptr);
  font.faceName[TextLength(font.faceName) + 1] = u'x';
  EXPECT_EQ(fontAt(font), 4);
  TextCopy(font.faceName, 32, u"Arial");
  EXPECT_EQ(fontAt(font), 5);
}

TEST_F(StylesTest, XfForCellTakesCellThenRowThenColumnThenDefault) {
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
      {4, 2, 23}, {4, 3, 21}, {5, 2, 22}, {5, 3, DefaultCellXf}, {65535, 255, DefaultCellXf}};
  for (const auto& c : cases)
    EXPECT_EQ(XfForCell(book, 0, c.row, c.col), c.xf) << c.row << " " << c.col;
}

}  // namespace
