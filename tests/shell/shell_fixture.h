// A workbook on the memory platform, laid out in a 1280 by 800 window without bands or status
// bar, and helpers to fill cells and formats and to read the painted pixels.
#pragma once
#include <gtest/gtest.h>

#include <string>

#include "base/message.h"
#include "base/text.h"
#include "formula/recalc.h"
#include "model/cells.h"
#include "model/styles.h"
#include "model/undo.h"
#include "model/workbook.h"
#include "shell/entry.h"
#include "shell/paint.h"
#include "shell/resources.h"
#include "shell/test_platform.h"
#include "shell/view.h"

class ShellTest : public ::testing::Test {
 protected:
  uint32_t book = 0;
  TestCanvas canvas;

  void SetUp() override {
    InstallTestPlatform();
    Options = AppOptions{};
    PointMode = PointModeState{};
    FirstShownTab = 0;
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    ASSERT_TRUE(CreateDrawResources());
    InstallShellHooks();
    // The selection starts out of view, so that its frame only shows where a test puts it.
    Select(300, 300, 200, 200);
    Layout();
    InitCanvas(&canvas, 1280, 800);
  }
  void TearDown() override {
    ClearUndo();
    CloseAllWorkbooks();
    FreeDrawResources();
    SetMessageHook(nullptr);
    SetInvalidateRangeHook(nullptr);
    CheckBoxesShown();
  }

  Sheet* S() { return GetSheet(book, 0); }
  void Layout() {
    FrameSizes frame{1280, 800, 0, 0, 16, 16};
    MeasureView(&frame);
  }
  void Paint() {
    ResetCanvas(&canvas);
    PlatformRect all{0, 0, 1280, 800};
    PaintSheet(&canvas.base, &all);
  }
  // Paints only what was invalidated since the last paint, each area clipped to itself, the way
  // the window system asks for it; the rest of the canvas keeps what it showed.
  void PaintInvalidated() {
    for (const PlatformRect& r : TestState.invalidated) {
      canvas.base.ops->saveClip(&canvas.base);
      canvas.base.ops->clipToRect(&canvas.base, &r);
      PaintSheet(&canvas.base, &r);
      canvas.base.ops->restoreClip(&canvas.base);
    }
    TestState.invalidated.clear();
  }
  // Types characters the way they arrive: on the grid until an entry starts, then in the edit
  // line, where the control keeps what the shell does not take.
  void Type(const std::u16string& text) {
    for (char16_t ch : text) {
      if (Options.editMode == 0) {
        GridChar(ch, 0);
      } else if (!EditLineChar(ch, 0)) {
        gPlatform->editReplaceSelection(&ch, 1);
      }
    }
  }
  void Enter() { EditLineChar(u'\r', 0); }
  Colour Pixel(int32_t x, int32_t y) { return PixelAt(canvas, x, y); }
  PlatformRect CellRect(uint32_t row, uint32_t col) {
    PlatformRect r{};
    EXPECT_TRUE(CellScreenRect(book, 0, row, col, &r)) << "cell not on screen";
    return r;
  }
  // A copy of the default cell format changed by `edit`, interned; returns its index.
  template <typename Edit>
  uint16_t MakeXf(Edit edit) {
    Xf xf = GetWorkbook(book)->xfs[DefaultCellXf];
    edit(xf);
    uint16_t index = 0;
    EXPECT_TRUE(InternXf(book, &xf, &index));
    return index;
  }
  void PutText(uint32_t row, uint32_t col, const char16_t* text, uint16_t xf = DefaultCellXf) {
    Cell proto{};
    proto.row = static_cast<uint16_t>(row);
    proto.col = static_cast<uint8_t>(col);
    proto.xf = xf;
    proto.value = TextValue(TextDuplicate(text));
    ASSERT_TRUE(StoreCell(book, 0, &proto, 1, 0));
  }
  void PutNumber(uint32_t row, uint32_t col, double number, uint16_t xf = DefaultCellXf) {
    Cell proto{};
    proto.row = static_cast<uint16_t>(row);
    proto.col = static_cast<uint8_t>(col);
    proto.xf = xf;
    proto.value = NumberValue(number);
    ASSERT_TRUE(StoreCell(book, 0, &proto, 1, 0));
  }
  void SetColumn(uint32_t col, uint16_t width, uint32_t flags = 0) {
    RowColInfo info{flags, width, DefaultCellXf};
    ASSERT_TRUE(SetColumnRecord(&S()->columns, col, &info));
  }
  void SetRow(uint32_t row, uint16_t height, uint32_t flags = 0) {
    RowColInfo info{flags, height, DefaultCellXf};
    ASSERT_TRUE(SetRowRecord(&S()->rows, row, &info));
  }
  void Select(uint16_t firstRow, uint16_t lastRow, uint8_t firstCol, uint8_t lastCol) {
    S()->selection = Range{firstRow, lastRow, firstCol, lastCol};
    S()->activeRow = firstRow;
    S()->activeCol = firstCol;
  }
  // Number of pixels of `colour` in r.
  int CountPixels(const PlatformRect& r, Colour colour) {
    int n = 0;
    for (int32_t y = r.top; y < r.bottom; y++)
      for (int32_t x = r.left; x < r.right; x++) n += Pixel(x, y) == colour;
    return n;
  }
};
