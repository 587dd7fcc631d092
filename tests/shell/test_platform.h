// A platform that lives in memory, for tests of the shell: a drawing context that paints into a
// pixel buffer with the window system's rules (exclusive edges, last point of a line left out,
// XOR, patterns anchored at the origin) and a fixed-width font, and records every operation;
// scripted answers for message boxes, where a box nobody expected fails the test; settings,
// clipboard and the edit line in memory; a clock that moves only when told.
#pragma once
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "platform/platform.h"

// The memory font: every character of the default font is 7 pixels wide and 13 high; a font
// asked for at another height scales both from the default height of 13.
constexpr int32_t TestCharWidth = 7;
constexpr int32_t TestLineHeight = 13;
constexpr int32_t TestFontHeight = 13;

enum TestOp : int32_t {
  OpFill,
  OpPattern,
  OpLine,
  OpPolygon,
  OpPixel,
  OpText,
};

struct TestRecord {
  TestOp op;
  PlatformRect rect;  // fill and pattern: the rectangle; line: the two ends; text: the clip
  Colour colour;
  int32_t x, y;         // text origin, pixel
  std::u16string text;  // text
  RasterOp rop;
};

struct TestClip {
  PlatformRect bounds;
  std::vector<PlatformRect> excluded;
};

struct TestCanvas {
  DrawContext base;
  int32_t width, height;
  std::vector<Colour> pixels;
  RasterOp rop;
  TestClip clip;
  std::vector<TestClip> saved;
  bool recording;
  std::vector<TestRecord> records;
};

// A canvas of the given size, cleared to `background`.
void InitCanvas(TestCanvas* canvas, int32_t width, int32_t height, Colour background = 0x123456);
// Clears pixels and records, and resets the clip to the whole surface.
void ResetCanvas(TestCanvas* canvas, Colour background = 0x123456);
inline Colour PixelAt(const TestCanvas& c, int32_t x, int32_t y) {
  return c.pixels[static_cast<size_t>(y) * c.width + x];
}
// The texts drawn, in order.
std::vector<std::u16string> DrawnTexts(const TestCanvas& canvas);
// How many text draws showed exactly `text`, and where the first one began (x, y).
int CountText(const TestCanvas& canvas, const std::u16string& text, int32_t* x = nullptr,
              int32_t* y = nullptr);

// One expected message box: the text it must show (or a part of it) and the answer to give.
struct ScriptedBox {
  std::u16string textPart;
  int32_t answer;
};

struct TestPlatformState {
  int32_t clientWidth, clientHeight;
  std::deque<ScriptedBox> boxes;
  std::vector<std::u16string> shownBoxes;
  std::map<std::u16string, std::u16string> settings;  // "section/key" to value
  std::u16string clipboardText;
  std::vector<uint8_t> clipboardPrivate;
  std::u16string edit;
  int32_t editStart, editEnd;
  int32_t editFocused;
  int32_t gridFocused;
  std::vector<PlatformRect> invalidated;
  std::map<int32_t, int32_t> timers;
  int32_t captured;
  std::map<int32_t, int32_t> keysDown;
  int64_t now;
  PlatformTime localTime;
  std::map<int32_t, std::u16string> statusTexts;
  std::u16string caption;
  int32_t quitCode;
  std::vector<std::u16string> menuTexts;   // the menu bar as last set, "-" for separators
  std::map<int32_t, int32_t> bandsShown;   // by PlatformBand
  std::deque<int32_t> popupAnswers;        // row to choose in each popup menu, -1 dismisses
  std::vector<std::u16string> popupTexts;  // the last popup menu's rows
  int32_t popupChecked;                    // its checked row
};

extern TestPlatformState TestState;

// Installs the memory platform with a 1280 by 800 client area and fresh state.
void InstallTestPlatform();
// Queues the answer for the next message box, which must contain textPart.
void ExpectBox(const std::u16string& textPart, int32_t answer);
// Fails the running test if a scripted box was never shown.
void CheckBoxesShown();
