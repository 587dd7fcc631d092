// A chain that only a name reveals: each cell reads the one above through a relative name, so the
// precedents show nothing and every read of a dirty cell calculates it on the spot. A long chain
// must end in values or a cut, never in an exhausted machine stack.
#include <gtest/gtest.h>

#include "base/text.h"
#include "formula/recalc.h"
#include "formula/token_builder.h"
#include "model/workbook.h"

namespace {

TEST(RecalcDepth, LongChainThroughANameDoesNotExhaustTheStack) {
  uint32_t book;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
  // Above: the cell one row up, relative to the cell of use.
  DefinedName above{};
  above.name = TextDuplicate(u"Dessus");
  above.formula = TokenBuilder().RefN(-1, 0, ClassReference).Build();
  ASSERT_TRUE(AddName(book, &above, nullptr));
  const uint16_t rows = 20000;
  Cell first{};
  first.xf = DefaultCellXf;
  first.value = NumberValue(1);
  ASSERT_TRUE(StoreCell(book, 0, &first, StoreOnly, KeepRowHeight));
  for (uint16_t row = 1; row < rows; row++) {
    Cell* c = AppendCell(&GetSheet(book, 0)->cells, row, 0);
    ASSERT_NE(c, nullptr);
    c->xf = DefaultCellXf;
    c->formula = TokenBuilder().Name(1).Int(1).Op(ptgAdd).Build();
    c->state = CellDirty;
  }
  Cell* last = CellAt(&GetSheet(book, 0)->cells, rows - 1, 0);
  ASSERT_TRUE(CalculateCell(book, 0, last));
  EXPECT_EQ(last->state, CellCalculated);
  EXPECT_EQ(last->value.tag, ValueNumber);
  // The cut leaves the far end dirty; asking again from there finishes the chain in steps.
  for (uint16_t row = 1; row < rows; row++) {
    Cell* c = CellAt(&GetSheet(book, 0)->cells, row, 0);
    if (c->state == CellDirty) CalculateCell(book, 0, c);
  }
  CalculateCell(book, 0, last);
  EXPECT_EQ(CellAt(&GetSheet(book, 0)->cells, 1, 0)->value.number, 2);
  CloseAllWorkbooks();
}

}  // namespace
