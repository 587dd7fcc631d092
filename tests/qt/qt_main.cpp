// The Qt tests run inside one QApplication on the offscreen platform, with the fonts pinned as the
// program pins them.
#include <gtest/gtest.h>

#include <QApplication>

#include "platform/qt/qt_platform.h"

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  QtPrepareApplication();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
