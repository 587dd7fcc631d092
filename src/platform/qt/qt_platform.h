// The Qt 6 implementation of the platform seam, as the desktop program and its tests reach it:
// the platform table, a drawing context over an image, and the main window's life. Everything
// here expects a QApplication to exist.
#pragma once
#include <QRect>
#include <vector>

#include "platform/platform.h"

class QImage;

// Pins font faces to the bundled Liberation and DejaVu families and sets the widgets' style and
// font, so that the program looks the same on every machine. Call once after QApplication.
void QtPrepareApplication();

// The platform table. The main window is made hidden on first need and shown by run().
const Platform* QtPlatform();

// A drawing context painting into `image` (Format_RGB32, device pixels, kept alive by the
// caller), its clip the whole image. Delete it before using the image elsewhere.
DrawContext* QtCreateImageContext(QImage* image);
void QtDeleteImageContext(DrawContext* dc);

// The shell's handler, for rendering without running the event loop.
void QtSetHandler(PlatformEventHandler handler);
// Without a person in front of the screen: message boxes print their text on stderr and answer
// as if dismissed, file choosers and dialogs are cancelled, the pointer is never grabbed.
void QtSetHeadless(int headless);

// Sizes the main window (frame excluded) in device pixels, lays out and paints it, and returns a
// picture of it (menus, bands, grid and status bar), without showing it on a screen. With
// `textBoxes`, also where text stands in the picture: every text the shell drew, and the widgets
// that hold text (menu bar, toolbars, edit line, status parts).
int QtRenderWindow(int32_t width, int32_t height, QImage* out,
                   std::vector<QRect>* textBoxes = nullptr);
