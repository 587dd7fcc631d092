// The built-in formats in the locale's form, and a cell's display text through its format: the
// text, the colour a section asks for over the font's, and the workbook's date system.
#include <gtest/gtest.h>

#include <string>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "format/number_format.h"
#include "formula/recalc.h"
#include "model/cells.h"
#include "model/styles.h"
#include "model/workbook.h"

namespace {

struct BuiltIn {
  uint16_t id;
  double value;
  const char* french;
  const char* english;
};

// What the built-in formats show for one value in each locale.
const BuiltIn builtIns[] = {
    {5, -1234.5, "-1 235 €", "($1,235)"},
    {6, 1234.5, "1 235 €", "$1,235 "},
    {7, -1234.5, "-1 234,50 €", "($1,234.50)"},
    {14, 45000, "15/03/2023", "3/15/2023"},
    {20, 0.375, "09:00", "9:00"},
    {21, 0.375, "09:00:00", "9:00:00"},
    {22, 45000.375, "15/03/2023 09:00", "3/15/2023 9:00"},
    {41, -1234, "-1 234   ", " (1,234)"},
    {42, 1234, " 1 234 \u20AC ", " $1,234 "},
    {43, 0, " -     ", " -   "},
    {44, 1234.5, " 1 234,50 \u20AC ", " $1,234.50 "},
    {16, 45000, "15-mars", "15-Mar"},
};

std::string ShownByFormat(uint32_t book, uint16_t id, double value) {
  int32_t index = FindNumberFormatById(book, id);
  EXPECT_GE(index, 0);
  return TextToUtf8(FormatNumber(value, FormatCodeAt(book, static_cast<uint32_t>(index)),
                                 GetWorkbook(book)->date1904, nullptr, 0, nullptr));
}

TEST(LocalizeFormat, BuiltInFormatsFollowTheLocale) {
  for (LocaleId locale : {LocaleFrench, LocaleEnglishUS}) {
    ApplyLocale(locale);
    CloseAllWorkbooks();
    uint32_t book = 0;
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    for (const BuiltIn& b : builtIns)
      EXPECT_EQ(ShownByFormat(book, b.id, b.value), locale == LocaleFrench ? b.french : b.english)
          << "format " << b.id;
  }
  ApplyLocale(LocaleFrench);
  CloseAllWorkbooks();
}

Cell* StoreNumber(uint32_t book, uint16_t row, double number, uint16_t formatId) {
  Xf xf = GetWorkbook(book)->xfs[DefaultCellXf];
  xf.numberFormat = static_cast<uint16_t>(FindNumberFormatById(book, formatId));
  Cell proto{};
  proto.row = row;
  proto.value = NumberValue(number);
  EXPECT_TRUE(InternXf(book, &xf, &proto.xf));
  EXPECT_TRUE(StoreCell(book, 0, &proto, StoreOnly, KeepRowHeight));
  Cell* cell = CellAt(&GetSheet(book, 0)->cells, row, 0);
  EXPECT_TRUE(cell && EnsureCellText(book, 0, cell));
  return cell;
}

TEST(LocalizeFormat, CellTextComesThroughItsFormat) {
  CloseAllWorkbooks();
  uint32_t book = 0;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
  Cell* red = StoreNumber(book, 0, -1234, 6);
  EXPECT_EQ(TextToUtf8(red->text), "-1 234 \u20AC");
  EXPECT_EQ(red->textColor, 2);  // the [Red] of the negative section
  Cell* plain = StoreNumber(book, 1, 1234, 6);
  EXPECT_EQ(plain->textColor, AutomaticFontColor);
  EXPECT_EQ(TextToUtf8(StoreNumber(book, 2, 60, 14)->text), "29/02/1900");
  EXPECT_EQ(TextToUtf8(StoreNumber(book, 3, 0.1 + 0.2, 0)->text), "0,3");

  // A date outside the calendar has no text: "#" across the cell, one "#" without a width.
  EXPECT_EQ(TextToUtf8(StoreNumber(book, 6, -1, 14)->text), "#");
  Cell* late = StoreNumber(book, 7, 2958466, 14);
  FixedWidthMeasure measure = MakeFixedWidthMeasure(7);
  ASSERT_TRUE(EnsureCellText(book, 0, late, &measure.base, 30));
  EXPECT_EQ(TextToUtf8(late->text), "####");

  GetWorkbook(book)->date1904 = 1;
  EXPECT_EQ(TextToUtf8(StoreNumber(book, 4, 0, 14)->text), "01/01/1904");
  EXPECT_EQ(TextToUtf8(StoreNumber(book, 5, 366, 15)->text), "01-janv.-05");
  EXPECT_EQ(TextToUtf8(StoreNumber(book, 8, 2958465 - 1462, 14)->text), "31/12/9999");
  EXPECT_EQ(TextToUtf8(StoreNumber(book, 9, 2958466 - 1462, 14)->text), "#");
  CloseAllWorkbooks();
}

// Formatting takes nothing from the heap: it works with every allocation refused.
TEST(LocalizeFormat, FormattingNeedsNoMemory) {
  SetAllocationFailureAfter(0);
  std::string shown = TextToUtf8(
      FormatNumber(-45000.5, u"[Red]dddd d mmmm yyyy h:mm;#,##0.00", 0, nullptr, 0, nullptr));
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(shown, "45 000,50");
}

}  // namespace
