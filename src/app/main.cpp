// The desktop program. `tessarel [FILE]` opens FILE in the running instance if there is one, else
// starts the window with it. `tessarel --render-png OUT.png [--sheet N] [--size WxH] FILE` paints
// the window for FILE without a display and writes the picture, for thumbnails and tests.
#include <QApplication>
#include <QFileInfo>
#include <QImage>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "model/workbook.h"
#include "platform/qt/qt_platform.h"
#include "shell/entry.h"
#include "shell/frame.h"

namespace {

struct Arguments {
  const char* renderTo = nullptr;
  long sheet = -1;
  int width = 1024;
  int height = 640;
  const char* file = nullptr;
};

int Usage() {
  std::fprintf(stderr,
               "usage: tessarel [FILE]\n"
               "       tessarel --render-png OUT.png [--sheet N] [--size WxH] FILE\n");
  return 2;
}

// Returns 0 on a usage error.
int ParseArguments(int argc, char** argv, Arguments* out) {
  for (int i = 1; i < argc; i++) {
    const char* a = argv[i];
    const bool hasValue = i + 1 < argc;
    if (std::strcmp(a, "--render-png") == 0 && hasValue) {
      out->renderTo = argv[++i];
    } else if (std::strcmp(a, "--sheet") == 0 && hasValue) {
      char* end;
      out->sheet = std::strtol(argv[++i], &end, 10);
      if (*end || out->sheet < 0) return 0;
    } else if (std::strcmp(a, "--size") == 0 && hasValue) {
      if (std::sscanf(argv[++i], "%dx%d", &out->width, &out->height) != 2 || out->width < 64 ||
          out->height < 64 || out->width > 8192 || out->height > 8192) {
        return 0;
      }
    } else if (a[0] == '-' && a[1] == '-') {
      return 0;
    } else if (!out->file) {
      out->file = a;
    } else {
      return 0;
    }
  }
  return !out->renderTo || out->file;
}

std::u16string AbsolutePath(const char* file) {
  // A hand-over reaches a process with another working folder: pass the full path.
  const QString path = QFileInfo(QString::fromLocal8Bit(file)).absoluteFilePath();
  return path.toStdU16String();
}

int Render(const Arguments& args) {
  QtSetHeadless(1);
  QtSetHandler(FrameHandleEvent);
  const std::u16string path = AbsolutePath(args.file);
  if (!FrameStart(nullptr) || !OpenFromCommandLine(path.c_str())) {
    std::fprintf(stderr, "tessarel: cannot open %s\n", args.file);
    FrameStop(0);
    return 1;
  }
  Workbook* wb = GetWorkbook(App.currentBook);
  if (args.sheet >= 0) {
    if (uint32_t(args.sheet) >= wb->sheetCount) {
      std::fprintf(stderr, "tessarel: no sheet %ld in %s\n", args.sheet, args.file);
      FrameStop(0);
      return 1;
    }
    wb->currentSheet = uint32_t(args.sheet);
  }
  LayoutView();
  // The formula bar and the status bar show the active cell of the sheet painted.
  RefreshFormulaBar();
  QImage picture;
  const int ok = QtRenderWindow(args.width, args.height, &picture) && picture.save(args.renderTo);
  FrameStop(0);
  if (!ok) {
    std::fprintf(stderr, "tessarel: cannot write %s\n", args.renderTo);
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments args;
  if (!ParseArguments(argc, argv, &args)) return Usage();
  if (args.renderTo) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  QtPrepareApplication();
  SetPlatform(QtPlatform());
  if (args.renderTo) return Render(args);
  const std::u16string path = args.file ? AbsolutePath(args.file) : std::u16string();
  return FrameMain(path.c_str());
}
