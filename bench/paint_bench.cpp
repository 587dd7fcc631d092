// Painting a full 1280 by 800 window on the memory drawing context: about 30 rows by 12 columns
// of formatted numbers, dates and text with borders, the whole client area each time.
#include <benchmark/benchmark.h>

#include "base/text.h"
#include "edit/entry.h"
#include "model/styles.h"
#include "model/undo.h"
#include "model/workbook.h"
#include "shell/paint.h"
#include "shell/resources.h"
#include "shell/test_platform.h"
#include "shell/view.h"

static void Store(uint32_t book, uint32_t row, uint32_t col, const std::u16string& text) {
  EntryTarget target{};
  target.book = book;
  target.range = Range{static_cast<uint16_t>(row), static_cast<uint16_t>(row),
                       static_cast<uint8_t>(col), static_cast<uint8_t>(col)};
  EntryStatus status;
  StoreEntry(text.c_str(), &target, &status);
}

static void BM_PaintWindow(benchmark::State& state) {
  InstallTestPlatform();
  uint32_t book;
  CreateWorkbook(nullptr, 0, &book);
  CreateDrawResources();
  Workbook* w = GetWorkbook(book);
  // A boxed format: thin borders all round, and a second with a medium bottom and a fill.
  Xf boxed = w->xfs[DefaultCellXf];
  boxed.topStyle = boxed.leftStyle = boxed.bottomStyle = boxed.rightStyle = 1;
  boxed.topColor = boxed.leftColor = boxed.bottomColor = boxed.rightColor = 8;
  uint16_t boxedIndex = 0;
  InternXf(book, &boxed, &boxedIndex);
  for (uint32_t row = 0; row < 45; row++)
    for (uint32_t col = 0; col < 22; col++) {
      std::u16string text;
      switch (col % 4) {
        case 0:
          text = Utf8ToU16(std::to_string(row * 1000 + col * 7.25));
          break;
        case 1:
          text = Utf8ToU16(std::to_string(1 + row % 28) + "/" + std::to_string(1 + col % 12) +
                           "/2026");
          break;
        case 2:
          text = Utf8ToU16(std::to_string(row % 100) + "%");
          break;
        default:
          text = u"Texte " + Utf8ToU16(std::to_string(row));
          break;
      }
      for (char16_t& c : text)
        if (c == u'.') c = u',';
      Store(book, row, col, text);
      Cell* cell = CellAt(&GetSheet(book, 0)->cells, row, col);
      if (cell && row % 3 == 0) {
        Xf xf = GetWorkbook(book)->xfs[cell->xf];
        xf.topStyle = xf.leftStyle = xf.bottomStyle = xf.rightStyle = 1;
        xf.bottomColor = xf.rightColor = xf.topColor = xf.leftColor = 8;
        uint16_t index;
        if (InternXf(book, &xf, &index)) cell->xf = index;
      }
    }
  GetSheet(book, 0)->selection = Range{2, 4, 1, 3};
  FrameSizes frame{1280, 800, 0, 20, 16, 16};
  MeasureView(&frame);
  TestCanvas canvas;
  InitCanvas(&canvas, 1280, 800);
  canvas.recording = false;
  PlatformRect all{0, 0, 1280, 800};
  for (auto _ : state) {
    PaintSheet(&canvas.base, &all);
    benchmark::DoNotOptimize(canvas.pixels.data());
  }
  state.counters["rows"] = GetSheet(book, 0)->bottomRow + 1;
  state.counters["columns"] = GetSheet(book, 0)->rightCol + 1;
  FreeDrawResources();
  ClearUndo();
  CloseAllWorkbooks();
}
BENCHMARK(BM_PaintWindow)->Unit(benchmark::kMillisecond);
