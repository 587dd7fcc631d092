// Pictures of the window: `tessarel --render-png` of a small workbook against a picture a person
// has looked at, checked in beside this file. Pixels outside text must be the same; inside the
// boxes where text stands, glyph rendering may differ a little between FreeType builds. Set
// TESSAREL_UPDATE_SCREENSHOTS=1 to write the pictures anew (then look at them before committing).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <string>
#include <vector>

#include "base/text.h"
#include "model/workbook.h"
#include "platform/qt/qt_platform.h"
#include "shell/frame.h"

namespace {

const QString kData = QStringLiteral(TESSAREL_SOURCE_DIR "/tests/qt/data/");

struct Shot {
  const char* file;
  const char* picture;
  int32_t width, height;
};

const Shot kShots[] = {
    {"sheet.csv", "sheet.png", 640, 300},
};

// Paints the window for `file` in this process, for the text boxes.
QImage RenderHere(const QString& file, int32_t width, int32_t height, std::vector<QRect>* boxes) {
  SetPlatform(QtPlatform());
  QtSetHeadless(1);
  QtSetHandler(FrameHandleEvent);
  QImage picture;
  const std::u16string path = file.toStdU16String();
  if (FrameStart(nullptr) && OpenFromCommandLine(path.c_str())) {
    LayoutView();
    QtRenderWindow(width, height, &picture, boxes);
  }
  FrameStop(0);
  return picture;
}

TEST(ScreenshotTest, RenderedWindowsMatchTheirPictures) {
  const char* app = TESSAREL_APP;
  QTemporaryDir temp;
  ASSERT_TRUE(temp.isValid());
  // Settings of the person running the tests must not change the picture.
  qputenv("XDG_CONFIG_HOME", temp.path().toUtf8());
  const bool update = std::getenv("TESSAREL_UPDATE_SCREENSHOTS") != nullptr;
  for (const Shot& shot : kShots) {
    const QString out = temp.path() + "/" + shot.picture;
    QProcess run;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_CONFIG_HOME", temp.path());
    env.insert("LC_ALL", "fr_FR.UTF-8");
    env.insert("ASAN_OPTIONS", "detect_leaks=0");
    run.setProcessEnvironment(env);
    run.start(
        QString::fromUtf8(app),
        {"--render-png", out, "--size",
         QString::number(shot.width) + "x" + QString::number(shot.height), kData + shot.file});
    ASSERT_TRUE(run.waitForFinished(60000));
    ASSERT_EQ(run.exitCode(), 0) << run.readAllStandardError().toStdString();
    QImage rendered(out);
    ASSERT_FALSE(rendered.isNull()) << shot.picture;
    rendered = rendered.convertToFormat(QImage::Format_RGB32);
    ASSERT_EQ(rendered.size(), QSize(shot.width, shot.height));

    std::vector<QRect> boxes;
    const QImage here = RenderHere(kData + shot.file, shot.width, shot.height, &boxes);
    EXPECT_EQ(here, rendered) << "the program and the library paint differently";
    EXPECT_GT(boxes.size(), 20u);

    const QString reference = kData + shot.picture;
    if (update) {
      rendered.save(reference);
      continue;
    }
    QImage expected(reference);
    ASSERT_FALSE(expected.isNull()) << "no picture " << reference.toStdString();
    expected = expected.convertToFormat(QImage::Format_RGB32);
    ASSERT_EQ(expected.size(), rendered.size());
    QImage inText(rendered.size(), QImage::Format_Mono);
    inText.fill(0);
    int64_t textPixels = 0;
    for (const QRect& box : boxes) {
      const QRect r = box.intersected(rendered.rect());
      for (int y = r.top(); y <= r.bottom(); y++) {
        for (int x = r.left(); x <= r.right(); x++) {
          if (!inText.pixelIndex(x, y)) textPixels++;
          inText.setPixel(x, y, 1);
        }
      }
    }
    int64_t outside = 0, inside = 0;
    QPoint firstOutside;
    for (int y = 0; y < rendered.height(); y++) {
      for (int x = 0; x < rendered.width(); x++) {
        if (rendered.pixel(x, y) == expected.pixel(x, y)) continue;
        if (inText.pixelIndex(x, y)) {
          inside++;
        } else if (outside++ == 0) {
          firstOutside = QPoint(x, y);
        }
      }
    }
    EXPECT_EQ(outside, 0) << shot.picture << ": first difference outside text at "
                          << firstOutside.x() << "," << firstOutside.y();
    EXPECT_LE(inside * 10, textPixels)
        << shot.picture << ": text differs in " << inside << " of " << textPixels << " pixels";
  }
}

}  // namespace
