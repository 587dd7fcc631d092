// The Qt drawing context against the memory one: the same operations must give the same pixels,
// so that what the shell's painting tests see is what the window shows. Text is left out: the
// two contexts have different fonts by design.
#include <gtest/gtest.h>

#include <QImage>
#include <functional>
#include <string>

#include "platform/qt/qt_platform.h"
#include "shell/test_platform.h"

namespace {

constexpr int32_t kWidth = 96, kHeight = 64;
constexpr Colour kBackground = 0x123456;

using Drawing = std::function<void(DrawContext*)>;

const uint8_t kChecker[8] = {0xAA, 0x55, 0xAA, 0x55, 0xAA, 0x55, 0xAA, 0x55};
const uint8_t kDiagonal[8] = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};

void Lines(DrawContext* dc, std::initializer_list<PlatformPoint> points, Colour c) {
  dc->ops->polyline(dc, points.begin(), int32_t(points.size()), c);
}

struct Case {
  const char* name;
  Drawing draw;
};

const Case kCases[] = {
    {"fills and exclusive edges",
     [](DrawContext* dc) {
       DcFillRect(dc, {2, 3, 40, 20}, 0xFF0000);
       DcFillRect(dc, {30, 10, 31, 60}, 0x00FF00);
       DcFillRect(dc, {50, 50, 40, 40}, 0xFFFFFF);  // inverted: nothing
       DcFillRect(dc, {-10, -10, 5, 5}, 0x0000FF);  // off the surface
     }},
    {"patterns anchored at the origin",
     [](DrawContext* dc) {
       DcFillPattern(dc, {3, 5, 30, 27}, kChecker, 0x000000, 0xFFFFFF);
       DcFillPattern(dc, {41, 1, 90, 50}, kDiagonal, 0x0000FF, 0xC0C0C0);
     }},
    {"lines leave their last point out",
     [](DrawContext* dc) {
       DcLine(dc, 0, 0, 95, 0, 0xFFFFFF);
       DcLine(dc, 95, 63, 0, 63, 0xFFFFFF);
       DcLine(dc, 10, 5, 10, 50, 0x00FFFF);
       DcLine(dc, 12, 50, 12, 5, 0x00FFFF);
       Lines(dc, {{20, 10}, {60, 25}, {25, 60}, {90, 2}, {80, 40}}, 0xFF00FF);
       DcLine(dc, 5, 5, 5, 5, 0);  // empty
     }},
    {"polygons like sheet tabs",
     [](DrawContext* dc) {
       const PlatformPoint tab[] = {{4, 10}, {12, 30}, {50, 30}, {58, 10}};
       dc->ops->polygon(dc, tab, 4, 0xFFFFFF, 0x000000);
       const PlatformPoint star[] = {{70, 5}, {90, 55}, {60, 20}, {93, 20}, {62, 55}};
       dc->ops->polygon(dc, star, 5, 0x00C0C0, 0x800000);
       const PlatformPoint arrow[] = {{20, 40}, {30, 40}, {25, 45}};
       dc->ops->polygon(dc, arrow, 3, 0xFF0000, 0xFF0000);
     }},
    {"xor undoes itself and crosses what is under it",
     [](DrawContext* dc) {
       DcFillRect(dc, {0, 0, 48, 64}, 0xFFFFFF);
       DcSetRasterOp(dc, RopXor);
       DcFillRect(dc, {10, 10, 80, 20}, 0xFFFFFF);
       DcLine(dc, 10, 30, 80, 30, 0xFFFFFF);
       DcLine(dc, 10, 30, 80, 30, 0xFFFFFF);
       DcLine(dc, 20, 5, 20, 60, 0x00FF00);
       DcSetPixel(dc, 40, 40, 0xFFFFFF);
       DcFillPattern(dc, {50, 40, 90, 60}, kChecker, 0xFFFFFF, 0x000000);
       DcSetRasterOp(dc, RopCopy);
       DcSetPixel(dc, 41, 40, 0x0000FF);
     }},
    {"clip narrows, excludes and restores",
     [](DrawContext* dc) {
       const PlatformRect inner{10, 10, 80, 50};
       const PlatformRect hole{30, 20, 50, 40};
       dc->ops->saveClip(dc);
       dc->ops->clipToRect(dc, &inner);
       dc->ops->excludeClipRect(dc, &hole);
       DcFillRect(dc, {0, 0, 96, 64}, 0xFFFFFF);
       DcLine(dc, 0, 30, 96, 30, 0x0000FF);
       DcLine(dc, 5, 5, 90, 55, 0x00FF00);
       DcFillPattern(dc, {0, 0, 96, 64}, kDiagonal, 0x000000, 0xFFFFFF);
       dc->ops->restoreClip(dc);
       DcSetPixel(dc, 2, 2, 0xFF0000);
       DcLine(dc, 0, 60, 96, 60, 0xFF0000);
     }},
};

TEST(QtDrawTest, SamePixelsAsTheMemoryContext) {
  for (const Case& c : kCases) {
    TestCanvas canvas;
    InitCanvas(&canvas, kWidth, kHeight, kBackground);
    c.draw(&canvas.base);

    QImage image(kWidth, kHeight, QImage::Format_RGB32);
    image.fill(QColor(0x56, 0x34, 0x12));
    DrawContext* dc = QtCreateImageContext(&image);
    c.draw(dc);
    QtDeleteImageContext(dc);

    int differences = 0;
    std::string first;
    for (int32_t y = 0; y < kHeight; y++) {
      for (int32_t x = 0; x < kWidth; x++) {
        const QRgb q = image.pixel(x, y);
        const Colour qt = qRed(q) | (qGreen(q) << 8) | (qBlue(q) << 16);
        if (qt != PixelAt(canvas, x, y) && differences++ == 0) {
          first = std::to_string(x) + "," + std::to_string(y);
        }
      }
    }
    EXPECT_EQ(differences, 0) << c.name << ": first at " << first;
  }
}

// Text measures as it draws: the width reported is the width of the ink's advance, and the
// cumulative advances end at that width.
TEST(QtDrawTest, TextMeasuresWhatItDraws) {
  const Platform* p = QtPlatform();
  FontSpec spec{u"Arial", 13, 400, 0, 0, 0, 0};
  PlatformFont* font = p->createFont(&spec);
  QImage image(200, 20, QImage::Format_RGB32);
  DrawContext* dc = QtCreateImageContext(&image);
  const std::u16string texts[] = {u"Ventes 2024", u"WAVE fi", u"1 234,56 €"};
  for (const std::u16string& text : texts) {
    image.fill(Qt::white);
    int32_t height = 0;
    int32_t advances[32];
    const int32_t n = int32_t(text.size());
    const int32_t width = DcMeasureText(dc, font, text.data(), n, &height, advances);
    EXPECT_EQ(advances[n - 1], width);
    for (int32_t i = 1; i < n; i++) EXPECT_LE(advances[i - 1], advances[i]);
    DcDrawText(dc, font, 0, 0, PlatformRect{0, 0, 200, 20}, text.data(), n, 0);
    int32_t right = -1;
    for (int32_t y = 0; y < 20; y++) {
      for (int32_t x = 0; x < 200; x++) {
        if (image.pixel(x, y) != qRgb(255, 255, 255) && x > right) right = x;
      }
    }
    EXPECT_GT(right, width - 4);
    EXPECT_LT(right, width + 1);
    EXPECT_GE(height, 13);
  }
  QtDeleteImageContext(dc);
  p->deleteFont(font);
}

}  // namespace
