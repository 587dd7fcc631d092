// Painting a full 1280 by 800 window on the memory drawing context: about 30 rows by 12 columns
// of formatted numbers, dates and text with borders, the whole client area each time.
#include <benchmark/benchmark.h>

#include "paint_sheet.h"
#include "shell/paint.h"
#include "shell/test_platform.h"

static void BM_PaintWindow(benchmark::State& state) {
  InstallTestPlatform();
  const uint32_t book = BuildPaintSheet();
  TestCanvas canvas;
  InitCanvas(&canvas, 1280, 800);
  canvas.recording = false;
  PlatformRect all{0, 0, 1280, 800};
  for (auto _ : state) {
    PaintSheet(&canvas.base, &all);
    benchmark::DoNotOptimize(canvas.pixels.data());
  }
  FinishPaintSheet(state, book);
}
BENCHMARK(BM_PaintWindow)->Unit(benchmark::kMillisecond);
