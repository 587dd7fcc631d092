// Painting the same full 1280 by 800 window as paint_bench, through the Qt drawing context into
// an image, on Qt's offscreen platform: what the program pays for a whole repaint of the grid.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QImage>

#include "paint_sheet.h"
#include "platform/qt/qt_platform.h"
#include "shell/paint.h"

// The application lives as long as the program; the offscreen platform needs no display.
static void StartQt() {
  if (QApplication::instance()) return;
  static int argc = 1;
  static char name[] = "paint_qt_bench";
  static char* argv[] = {name, nullptr};
  qputenv("QT_QPA_PLATFORM", "offscreen");
  new QApplication(argc, argv);
  QtPrepareApplication();
  SetPlatform(QtPlatform());
}

static void BM_PaintWindowQt(benchmark::State& state) {
  StartQt();
  const uint32_t book = BuildPaintSheet();
  QImage image(1280, 800, QImage::Format_RGB32);
  PlatformRect all{0, 0, 1280, 800};
  for (auto _ : state) {
    DrawContext* dc = QtCreateImageContext(&image);
    PaintSheet(dc, &all);
    QtDeleteImageContext(dc);
    benchmark::DoNotOptimize(image.constBits());
  }
  FinishPaintSheet(state, book);
}
BENCHMARK(BM_PaintWindowQt)->Unit(benchmark::kMillisecond);
