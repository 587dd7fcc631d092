// What the files of the Qt layer share among themselves: the font record behind PlatformFont,
// conversions between the seam's and Qt's colours and text, and the main window's hooks.
#pragma once
#include <QColor>
#include <QFont>
#include <QFontMetrics>
#include <QHash>
#include <QRect>
#include <QStaticText>
#include <QString>
#include <optional>
#include <vector>

#include "platform/platform.h"

struct PlatformFont {
  QFont font;
  FontMetrics metrics;
  // Measuring and drawing shape the text each time; a sheet shows the same few texts on every
  // paint, so widths and laid-out texts are kept, up to a bound, by text.
  std::optional<QFontMetrics> measure;
  QHash<QString, int32_t> widths;
  QHash<QString, QStaticText> laidOut;
};

inline QRgb ToRgb(Colour c) {
  return qRgb(c & 0xFF, (c >> 8) & 0xFF, (c >> 16) & 0xFF);
}
inline QString ToQString(const char16_t* text, int32_t length) {
  return QString::fromUtf16(text, length);
}
inline QString ToQString(const char16_t* text) {
  return text ? QString::fromUtf16(text) : QString();
}

// Fonts (draw.cpp).
PlatformFont* QtCreateFont(const FontSpec* spec);
void QtDeleteFont(PlatformFont* font);
void QtFontMetrics(PlatformFont* font, FontMetrics* out);
PlatformFont* QtDefaultFont();
// The face that stands for `face` on every machine.
QString QtPinnedFace(const QString& face);

// The window's part of the platform table (window.cpp).
struct Platform;
void QtFillWindowTable(Platform* platform);
// Hands an event to the shell's handler; returns what the handler returned (0 without one).
int32_t QtDeliver(PlatformEvent& event);
// While set, every text drawn adds its box (clipped, in context pixels) to `boxes`.
void QtRecordTextBoxes(std::vector<QRect>* boxes);
