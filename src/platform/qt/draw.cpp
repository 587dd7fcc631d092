// The drawing context over a QImage. Fills, lines, polygons, patterns and pixels are written into
// the image's memory here, so that the seam's rules (exclusive right and bottom edges, the last
// point of a line left out, XOR on every primitive, patterns anchored at the client origin) hold
// to the pixel whatever Qt's own rasteriser would do. Text goes through a QPainter kept open on
// the same image, with antialiasing and kerning off, clipped to the same region.
#include <QFontMetrics>
#include <QImage>
#include <QPainter>
#include <QRegion>
#include <QTextLayout>
#include <algorithm>
#include <vector>

#include "platform/qt/qt_internal.h"
#include "platform/qt/qt_platform.h"

namespace {

std::vector<QRect>* gTextBoxes = nullptr;

struct QtDc {
  DrawContext base;  // first, so that a DrawContext* is a QtDc*
  QImage* image;
  uchar* bits;
  qsizetype stride;
  QRegion clip;
  std::vector<QRegion> saved;
  RasterOp rop;
  QPainter painter;
  // What the painter was last given, so that runs of text in one font and colour set it once.
  const PlatformFont* painterFont;
  QRgb painterColour;
};

QtDc* Dc(DrawContext* dc) {
  return reinterpret_cast<QtDc*>(dc);
}

QRect ToQRect(const PlatformRect& r) {
  return QRect(r.left, r.top, r.right - r.left, r.bottom - r.top);
}

inline void Put(QtDc* d, int32_t x, int32_t y, QRgb rgb) {
  QRgb* p = reinterpret_cast<QRgb*>(d->bits + y * d->stride) + x;
  *p = d->rop == RopXor ? (*p ^ (rgb & 0xFFFFFF)) : rgb;
}

void PlotClipped(QtDc* d, int32_t x, int32_t y, QRgb rgb) {
  if (d->clip.contains(QPoint(x, y))) Put(d, x, y, rgb);
}

// Calls `span(y, x0, x1)` for every row piece of `r` inside the clip, x1 exclusive.
template <typename Span>
void ForEachSpan(QtDc* d, const QRect& r, Span span) {
  if (r.isEmpty()) return;
  if (d->clip.rectCount() == 1) {
    // The usual clip is one rectangle (a pane): no region arithmetic for it.
    const QRect piece = d->clip.boundingRect().intersected(r);
    for (int y = piece.top(); y <= piece.bottom(); y++) span(y, piece.left(), piece.right() + 1);
    return;
  }
  const QRegion visible = d->clip.intersected(r);
  for (const QRect& piece : visible) {
    for (int y = piece.top(); y <= piece.bottom(); y++) span(y, piece.left(), piece.right() + 1);
  }
}

void FillRect(DrawContext* dc, const PlatformRect* r, Colour colour) {
  QtDc* d = Dc(dc);
  const QRgb rgb = ToRgb(colour);
  ForEachSpan(d, ToQRect(*r), [&](int y, int x0, int x1) {
    for (int x = x0; x < x1; x++) Put(d, x, y, rgb);
  });
}

void FillPattern(DrawContext* dc, const PlatformRect* r, const uint8_t pattern[8], Colour fore,
                 Colour back) {
  QtDc* d = Dc(dc);
  const QRgb f = ToRgb(fore), b = ToRgb(back);
  ForEachSpan(d, ToQRect(*r), [&](int y, int x0, int x1) {
    const uint8_t row = pattern[y & 7];
    for (int x = x0; x < x1; x++) Put(d, x, y, (row >> (7 - (x & 7))) & 1 ? f : b);
  });
}

// One line from (x0, y0) towards (x1, y1), the end point left out.
void Line(QtDc* d, int32_t x0, int32_t y0, int32_t x1, int32_t y1, QRgb rgb) {
  if (y0 == y1 || x0 == x1) {
    // Straight lines are the common case (gridlines, borders): fill them as rectangles.
    QRect r;
    if (y0 == y1) {
      r = x0 < x1 ? QRect(x0, y0, x1 - x0, 1) : QRect(x1 + 1, y0, x0 - x1, 1);
    } else {
      r = y0 < y1 ? QRect(x0, y0, 1, y1 - y0) : QRect(x0, y1 + 1, 1, y0 - y1);
    }
    ForEachSpan(d, r, [&](int y, int a, int b) {
      for (int x = a; x < b; x++) Put(d, x, y, rgb);
    });
    return;
  }
  const int32_t dx = std::abs(x1 - x0), dy = -std::abs(y1 - y0);
  const int32_t sx = x0 < x1 ? 1 : -1, sy = y0 < y1 ? 1 : -1;
  int32_t err = dx + dy;
  while (x0 != x1 || y0 != y1) {
    PlotClipped(d, x0, y0, rgb);
    const int32_t e2 = 2 * err;
    if (e2 >= dy) {
      err += dy;
      x0 += sx;
    }
    if (e2 <= dx) {
      err += dx;
      y0 += sy;
    }
  }
}

void Polyline(DrawContext* dc, const PlatformPoint* points, int32_t count, Colour colour) {
  QtDc* d = Dc(dc);
  const QRgb rgb = ToRgb(colour);
  for (int32_t i = 0; i + 1 < count; i++) {
    Line(d, points[i].x, points[i].y, points[i + 1].x, points[i + 1].y, rgb);
  }
}

// Fills the pixels whose centres lie inside the polygon (even-odd rule), then outlines it.
void Polygon(DrawContext* dc, const PlatformPoint* points, int32_t count, Colour fill,
             Colour outline) {
  if (count < 2) return;
  QtDc* d = Dc(dc);
  int32_t top = points[0].y, bottom = points[0].y;
  for (int32_t i = 1; i < count; i++) {
    top = std::min(top, points[i].y);
    bottom = std::max(bottom, points[i].y);
  }
  const QRgb inside = ToRgb(fill);
  std::vector<double> crossings;
  for (int32_t y = top; y < bottom; y++) {
    const double cy = y + 0.5;
    crossings.clear();
    for (int32_t i = 0; i < count; i++) {
      const PlatformPoint& a = points[i];
      const PlatformPoint& b = points[(i + 1) % count];
      if ((a.y <= cy) == (b.y <= cy)) continue;
      crossings.push_back(a.x + (cy - a.y) * (b.x - a.x) / double(b.y - a.y));
    }
    std::sort(crossings.begin(), crossings.end());
    for (size_t i = 0; i + 1 < crossings.size(); i += 2) {
      // Pixel x is inside when its centre x + 0.5 lies strictly between the crossings.
      const int32_t x0 = static_cast<int32_t>(std::floor(crossings[i] + 0.5));
      const int32_t x1 = static_cast<int32_t>(std::ceil(crossings[i + 1] - 0.5));
      if (x1 > x0) {
        ForEachSpan(d, QRect(x0, y, x1 - x0, 1), [&](int yy, int a, int b) {
          for (int x = a; x < b; x++) Put(d, x, yy, inside);
        });
      }
    }
  }
  std::vector<PlatformPoint> closed(points, points + count);
  closed.push_back(points[0]);
  Polyline(dc, closed.data(), static_cast<int32_t>(closed.size()), outline);
}

void SetPixel(DrawContext* dc, int32_t x, int32_t y, Colour colour) {
  PlotClipped(Dc(dc), x, y, ToRgb(colour));
}

void SetRasterOp(DrawContext* dc, RasterOp op) {
  Dc(dc)->rop = op;
}

void ClipToRect(DrawContext* dc, const PlatformRect* r) {
  QtDc* d = Dc(dc);
  d->clip = d->clip.intersected(ToQRect(*r));
}

void ExcludeClipRect(DrawContext* dc, const PlatformRect* r) {
  QtDc* d = Dc(dc);
  d->clip = d->clip.subtracted(ToQRect(*r));
}

void SaveClip(DrawContext* dc) {
  Dc(dc)->saved.push_back(Dc(dc)->clip);
}

void RestoreClip(DrawContext* dc) {
  QtDc* d = Dc(dc);
  if (d->saved.empty()) return;
  d->clip = d->saved.back();
  d->saved.pop_back();
}

constexpr qsizetype kKeptWidths = 8192;

PlatformFont* Font(PlatformFont* font) {
  return font ? font : QtDefaultFont();
}

void DrawText(DrawContext* dc, PlatformFont* font, int32_t x, int32_t y, const PlatformRect* clip,
              const char16_t* text, int32_t length, Colour colour) {
  QtDc* d = Dc(dc);
  if (length <= 0) return;
  const QRegion region = d->clip.intersected(ToQRect(*clip));
  if (region.isEmpty()) return;
  PlatformFont* f = Font(font);
  if (region.rectCount() == 1)
    d->painter.setClipRect(region.boundingRect());
  else
    d->painter.setClipRegion(region);
  if (d->painterFont != f) {
    d->painter.setFont(f->font);
    d->painterFont = f;
  }
  if (d->painterColour != ToRgb(colour)) {
    d->painter.setPen(QColor(ToRgb(colour)));
    d->painterColour = ToRgb(colour);
  }
  const QString s = ToQString(text, length);
  auto laid = f->laidOut.find(s);
  if (laid == f->laidOut.end()) {
    if (f->laidOut.size() >= kKeptWidths) f->laidOut.clear();
    QStaticText prepared(s);
    prepared.setTextFormat(Qt::PlainText);
    prepared.setPerformanceHint(QStaticText::AggressiveCaching);
    prepared.prepare(QTransform(), f->font);
    laid = f->laidOut.insert(s, prepared);
  }
  d->painter.drawStaticText(QPoint(x, y), *laid);
  if (gTextBoxes) {
    const QRect box(x, y, QFontMetrics(f->font).horizontalAdvance(s), f->metrics.height);
    gTextBoxes->push_back(box.intersected(region.boundingRect()));
  }
}

int32_t MeasureText(DrawContext*, PlatformFont* font, const char16_t* text, int32_t length,
                    int32_t* height, int32_t* advances) {
  PlatformFont* f = Font(font);
  if (height) *height = f->metrics.height;
  if (length <= 0) return 0;
  const QString s = ToQString(text, length);
  if (!f->measure) f->measure.emplace(f->font);
  int32_t width;
  const auto known = f->widths.constFind(s);
  if (known != f->widths.constEnd()) {
    width = *known;
  } else {
    width = f->measure->horizontalAdvance(s);
    if (f->widths.size() >= kKeptWidths) f->widths.clear();
    f->widths.insert(s, width);
  }
  if (advances) {
    QTextLayout layout(s, f->font);
    layout.beginLayout();
    QTextLine line = layout.createLine();
    layout.endLayout();
    for (int32_t i = 0; i < length; i++) {
      advances[i] = static_cast<int32_t>(std::lround(line.cursorToX(i + 1)));
    }
    advances[length - 1] = width;
  }
  return width;
}

int32_t DpiX(DrawContext* dc) {
  return Dc(dc)->image->logicalDpiX();
}

int32_t DpiY(DrawContext* dc) {
  return Dc(dc)->image->logicalDpiY();
}

const DrawOps kOps = {
    FillRect,        FillPattern, Polyline,    Polygon,  SetPixel,    SetRasterOp, ClipToRect,
    ExcludeClipRect, SaveClip,    RestoreClip, DrawText, MeasureText, DpiX,        DpiY};

}  // namespace

void QtRecordTextBoxes(std::vector<QRect>* boxes) {
  gTextBoxes = boxes;
}

DrawContext* QtCreateImageContext(QImage* image) {
  QtDc* d = new QtDc;
  d->base.ops = &kOps;
  d->image = image;
  d->bits = image->bits();  // before the painter opens, so that the image is not copied later
  d->stride = image->bytesPerLine();
  d->clip = QRegion(image->rect());
  d->rop = RopCopy;
  d->painterFont = nullptr;
  d->painterColour = 0;
  d->painter.begin(image);
  d->painter.setRenderHint(QPainter::Antialiasing, false);
  d->painter.setRenderHint(QPainter::TextAntialiasing, false);
  return &d->base;
}

void QtDeleteImageContext(DrawContext* dc) {
  QtDc* d = Dc(dc);
  d->painter.end();
  delete d;
}

// Fonts ------------------------------------------------------------------------------------------

// The window's default font is the pinned sans face at this character height.
constexpr int32_t kDefaultPixelSize = 13;

QString QtPinnedFace(const QString& face) {
  static const char* const kKept[] = {"Liberation Sans", "Liberation Serif", "Liberation Mono",
                                      "DejaVu Sans",     "DejaVu Serif",     "DejaVu Sans Mono"};
  for (const char* kept : kKept) {
    if (face.compare(QLatin1String(kept), Qt::CaseInsensitive) == 0) return QLatin1String(kept);
  }
  static const char* const kSerif[] = {"Times New Roman", "Times", "Georgia", "Garamond"};
  for (const char* serif : kSerif) {
    if (face.compare(QLatin1String(serif), Qt::CaseInsensitive) == 0) {
      return QStringLiteral("Liberation Serif");
    }
  }
  static const char* const kMono[] = {"Courier New", "Courier", "Consolas", "Lucida Console"};
  for (const char* mono : kMono) {
    if (face.compare(QLatin1String(mono), Qt::CaseInsensitive) == 0) {
      return QStringLiteral("Liberation Mono");
    }
  }
  return QStringLiteral("Liberation Sans");
}

PlatformFont* QtCreateFont(const FontSpec* spec) {
  PlatformFont* f = new PlatformFont;
  const QString face = spec->face && spec->face[0] ? ToQString(spec->face) : QString();
  f->font.setFamilies({QtPinnedFace(face), QStringLiteral("DejaVu Sans")});
  f->font.setPixelSize(spec->height > 0 ? spec->height : kDefaultPixelSize);
  f->font.setWeight(spec->weight >= 600 ? QFont::Bold : QFont::Normal);
  f->font.setItalic(spec->italic);
  f->font.setUnderline(spec->underline);
  f->font.setStrikeOut(spec->strikeOut);
  f->font.setKerning(false);
  f->font.setStyleStrategy(QFont::StyleStrategy(QFont::NoAntialias | QFont::NoSubpixelAntialias));
  f->font.setHintingPreference(QFont::PreferFullHinting);
  const QFontMetrics fm(f->font);
  f->metrics.height = fm.height();
  f->metrics.ascent = fm.ascent();
  f->metrics.digitWidth = fm.horizontalAdvance(QLatin1Char('0'));
  f->metrics.averageWidth = fm.averageCharWidth();
  return f;
}

void QtDeleteFont(PlatformFont* font) {
  delete font;
}

void QtFontMetrics(PlatformFont* font, FontMetrics* out) {
  *out = Font(font)->metrics;
}

PlatformFont* QtDefaultFont() {
  static PlatformFont* font = [] {
    FontSpec spec{u"Liberation Sans", kDefaultPixelSize, 400, 0, 0, 0, 0};
    return QtCreateFont(&spec);
  }();
  return font;
}
