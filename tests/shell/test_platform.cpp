// The memory platform: pixel rules of the window system, a fixed-width font, scripted boxes.
#include "shell/test_platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/alloc.h"
#include "base/text.h"

TestPlatformState TestState;

static TestCanvas* Canvas(DrawContext* dc) {
  return reinterpret_cast<TestCanvas*>(dc);
}

static bool Inside(const PlatformRect& r, int32_t x, int32_t y) {
  return x >= r.left && x < r.right && y >= r.top && y < r.bottom;
}

static PlatformRect Intersect(const PlatformRect& a, const PlatformRect& b) {
  PlatformRect r{std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                 std::min(a.bottom, b.bottom)};
  if (r.right < r.left) r.right = r.left;
  if (r.bottom < r.top) r.bottom = r.top;
  return r;
}

static bool Visible(const TestCanvas* c, int32_t x, int32_t y) {
  if (!Inside(c->clip.bounds, x, y)) return false;
  for (const PlatformRect& e : c->clip.excluded)
    if (Inside(e, x, y)) return false;
  return true;
}

static void Plot(TestCanvas* c, int32_t x, int32_t y, Colour colour) {
  if (!Visible(c, x, y)) return;
  Colour& p = c->pixels[static_cast<size_t>(y) * c->width + x];
  p = c->rop == RopXor ? (p ^ colour) & 0xFFFFFF : colour & 0xFFFFFF;
}

static void Record(TestCanvas* c, TestRecord r) {
  if (!c->recording) return;
  r.rop = c->rop;
  c->records.push_back(std::move(r));
}

static void FillRectOp(DrawContext* dc, const PlatformRect* r, Colour colour) {
  TestCanvas* c = Canvas(dc);
  Record(c, TestRecord{OpFill, *r, colour, 0, 0, {}, RopCopy});
  PlatformRect a = Intersect(*r, c->clip.bounds);
  if (c->clip.excluded.empty() && c->rop == RopCopy) {
    for (int32_t y = a.top; y < a.bottom; y++)
      std::fill_n(&c->pixels[static_cast<size_t>(y) * c->width + a.left], a.right - a.left,
                  colour & 0xFFFFFF);
    return;
  }
  for (int32_t y = a.top; y < a.bottom; y++)
    for (int32_t x = a.left; x < a.right; x++) Plot(c, x, y, colour);
}

static void FillPatternOp(DrawContext* dc, const PlatformRect* r, const uint8_t pattern[8],
                          Colour fore, Colour back) {
  TestCanvas* c = Canvas(dc);
  Record(c, TestRecord{OpPattern, *r, fore, static_cast<int32_t>(back), 0, {}, RopCopy});
  PlatformRect a = Intersect(*r, c->clip.bounds);
  for (int32_t y = a.top; y < a.bottom; y++)
    for (int32_t x = a.left; x < a.right; x++)
      Plot(c, x, y, (pattern[y & 7] >> (7 - (x & 7))) & 1 ? fore : back);
}

// Bresenham from p0 towards p1, p1 itself left out.
static void LineOp(TestCanvas* c, PlatformPoint p0, PlatformPoint p1, Colour colour) {
  int32_t dx = std::abs(p1.x - p0.x), sx = p0.x < p1.x ? 1 : -1;
  int32_t dy = -std::abs(p1.y - p0.y), sy = p0.y < p1.y ? 1 : -1;
  int32_t err = dx + dy, x = p0.x, y = p0.y;
  while (x != p1.x || y != p1.y) {
    Plot(c, x, y, colour);
    int32_t e2 = 2 * err;
    if (e2 >= dy) {
      err += dy;
      x += sx;
    }
    if (e2 <= dx) {
      err += dx;
      y += sy;
    }
  }
}

static void PolylineOp(DrawContext* dc, const PlatformPoint* points, int32_t count, Colour colour) {
  TestCanvas* c = Canvas(dc);
  for (int32_t i = 0; i + 1 < count; i++) {
    Record(c, TestRecord{OpLine,
                         {points[i].x, points[i].y, points[i + 1].x, points[i + 1].y},
                         colour,
                         0,
                         0,
                         {},
                         RopCopy});
    LineOp(c, points[i], points[i + 1], colour);
  }
}

// Fills the pixels whose centres lie inside the polygon (even-odd), then outlines it.
static void PolygonOp(DrawContext* dc, const PlatformPoint* p, int32_t count, Colour fill,
                      Colour outline) {
  TestCanvas* c = Canvas(dc);
  if (count < 2) return;
  int32_t top = p[0].y, bottom = p[0].y;
  for (int32_t i = 1; i < count; i++) {
    top = std::min(top, p[i].y);
    bottom = std::max(bottom, p[i].y);
  }
  Record(c, TestRecord{OpPolygon, {p[0].x, top, p[0].x, bottom}, fill, 0, 0, {}, RopCopy});
  for (int32_t y = top; y < bottom; y++) {
    double cy = y + 0.5;
    std::vector<double> xs;
    for (int32_t i = 0; i < count; i++) {
      PlatformPoint a = p[i], b = p[(i + 1) % count];
      if ((a.y <= cy) == (b.y <= cy)) continue;
      xs.push_back(a.x + (cy - a.y) * (b.x - a.x) / (b.y - a.y));
    }
    std::sort(xs.begin(), xs.end());
    for (size_t k = 0; k + 1 < xs.size(); k += 2)
      for (int32_t x = static_cast<int32_t>(xs[k] + 0.5); x + 0.5 < xs[k + 1]; x++)
        Plot(c, x, y, fill);
  }
  for (int32_t i = 0; i < count; i++) LineOp(c, p[i], p[(i + 1) % count], outline);
}

static void SetPixelOp(DrawContext* dc, int32_t x, int32_t y, Colour colour) {
  TestCanvas* c = Canvas(dc);
  Record(c, TestRecord{OpPixel, {x, y, x + 1, y + 1}, colour, x, y, {}, RopCopy});
  Plot(c, x, y, colour);
}

static void SetRasterOpOp(DrawContext* dc, RasterOp op) {
  Canvas(dc)->rop = op;
}

static void ClipToRectOp(DrawContext* dc, const PlatformRect* r) {
  TestCanvas* c = Canvas(dc);
  c->clip.bounds = Intersect(c->clip.bounds, *r);
}

static void ExcludeClipRectOp(DrawContext* dc, const PlatformRect* r) {
  Canvas(dc)->clip.excluded.push_back(*r);
}

static void SaveClipOp(DrawContext* dc) {
  Canvas(dc)->saved.push_back(Canvas(dc)->clip);
}

static void RestoreClipOp(DrawContext* dc) {
  TestCanvas* c = Canvas(dc);
  if (c->saved.empty()) return;
  c->clip = c->saved.back();
  c->saved.pop_back();
}

struct TestFont {
  int32_t height;
  int32_t weight;
};

static int32_t Advance(PlatformFont* font) {
  int32_t h = font ? reinterpret_cast<TestFont*>(font)->height : TestFontHeight;
  return (TestCharWidth * h + TestFontHeight / 2) / TestFontHeight;
}

static int32_t LineHeight(PlatformFont* font) {
  int32_t h = font ? reinterpret_cast<TestFont*>(font)->height : TestFontHeight;
  return (TestLineHeight * h + TestFontHeight / 2) / TestFontHeight;
}

// A character is a solid block inside its cell, one pixel in from each side and two from the top
// and bottom; a blank paints nothing.
static void DrawTextOp(DrawContext* dc, PlatformFont* font, int32_t x, int32_t y,
                       const PlatformRect* clip, const char16_t* text, int32_t length,
                       Colour colour) {
  TestCanvas* c = Canvas(dc);
  Record(c, TestRecord{OpText, *clip, colour, x, y, std::u16string(text, length), RopCopy});
  RasterOp rop = c->rop;
  c->rop = RopCopy;
  TestClip saved = c->clip;
  c->clip.bounds = Intersect(c->clip.bounds, *clip);
  int32_t advance = Advance(font), height = LineHeight(font);
  for (int32_t i = 0; i < length; i++, x += advance) {
    if (text[i] == u' ') continue;
    for (int32_t py = y + 2; py < y + height - 2; py++)
      for (int32_t px = x + 1; px < x + advance - 1; px++) Plot(c, px, py, colour);
  }
  c->clip = saved;
  c->rop = rop;
}

static int32_t MeasureTextOp(DrawContext*, PlatformFont* font, const char16_t*, int32_t length,
                             int32_t* height, int32_t* advances) {
  int32_t advance = Advance(font);
  if (height) *height = LineHeight(font);
  if (advances)
    for (int32_t i = 0; i < length; i++) advances[i] = (i + 1) * advance;
  return length * advance;
}

static int32_t Dpi(DrawContext*) {
  return 96;
}

static const DrawOps TestDrawOps = {
    FillRectOp, FillPatternOp, PolylineOp,   PolygonOp,
    SetPixelOp, SetRasterOpOp, ClipToRectOp, ExcludeClipRectOp,
    SaveClipOp, RestoreClipOp, DrawTextOp,   MeasureTextOp,
    Dpi,        Dpi,
};

void InitCanvas(TestCanvas* canvas, int32_t width, int32_t height, Colour background) {
  canvas->base.ops = &TestDrawOps;
  canvas->width = width;
  canvas->height = height;
  canvas->recording = true;
  ResetCanvas(canvas, background);
}

void ResetCanvas(TestCanvas* canvas, Colour background) {
  canvas->pixels.assign(static_cast<size_t>(canvas->width) * canvas->height, background);
  canvas->rop = RopCopy;
  canvas->clip = TestClip{{0, 0, canvas->width, canvas->height}, {}};
  canvas->saved.clear();
  canvas->records.clear();
}

std::vector<std::u16string> DrawnTexts(const TestCanvas& canvas) {
  std::vector<std::u16string> out;
  for (const TestRecord& r : canvas.records)
    if (r.op == OpText) out.push_back(r.text);
  return out;
}

int CountText(const TestCanvas& canvas, const std::u16string& text, int32_t* x, int32_t* y) {
  int count = 0;
  for (const TestRecord& r : canvas.records) {
    if (r.op != OpText || r.text != text) continue;
    if (count++ == 0) {
      if (x) *x = r.x;
      if (y) *y = r.y;
    }
  }
  return count;
}

// The platform table.

static TestFont DefaultTestFont{TestFontHeight, 400};

static PlatformFont* CreateFontOp(const FontSpec* spec) {
  TestFont* f = new TestFont{spec->height > 0 ? spec->height : TestFontHeight, spec->weight};
  return reinterpret_cast<PlatformFont*>(f);
}
static void DeleteFontOp(PlatformFont* font) {
  delete reinterpret_cast<TestFont*>(font);
}
static void FontMetricsOp(PlatformFont* font, FontMetrics* out) {
  out->height = LineHeight(font);
  out->ascent = out->height - 3;
  out->digitWidth = out->averageWidth = Advance(font);
}
static PlatformFont* DefaultFontOp() {
  return reinterpret_cast<PlatformFont*>(&DefaultTestFont);
}
static int32_t ScreenDpi() {
  return 96;
}

static void InvalidateOp(const PlatformRect* r) {
  TestState.invalidated.push_back(
      r ? *r : PlatformRect{0, 0, TestState.clientWidth, TestState.clientHeight});
}
static void UpdateOp() {}
static void ClientSizeOp(int32_t* w, int32_t* h) {
  *w = TestState.clientWidth;
  *h = TestState.clientHeight;
}
static void SetCaptionOp(const char16_t* text) {
  TestState.caption = text;
}
static int32_t BarsHeightOp() {
  return 0;
}
static void SetChildGeometryOp(PlatformChild, const PlatformRect*, int32_t) {}
static int32_t ScrollBarSizeOp() {
  return 16;
}
static void SetScrollInfoOp(int32_t, int32_t, int32_t, int32_t, int32_t) {}
static void SetStatusTextOp(int32_t part, const char16_t* text) {
  TestState.statusTexts[part] = text ? text : u"";
}
static int32_t PopupMenuOp(const MenuEntry* entries, int32_t count, int32_t checked) {
  TestState.popupTexts.clear();
  for (int32_t i = 0; i < count; i++) {
    TestState.popupTexts.push_back(entries[i].text);
    if (entries[i].command == checked) TestState.popupChecked = i;
  }
  if (TestState.popupAnswers.empty()) {
    ADD_FAILURE() << "a popup menu nobody expected";
    return 0;
  }
  int32_t row = TestState.popupAnswers.front();
  TestState.popupAnswers.pop_front();
  return row >= 0 && row < count ? entries[row].command : 0;
}

static void EnableCommandOp(int32_t, int32_t) {}
static void CheckCommandOp(int32_t, int32_t) {}
static void SetFocusGridOp() {
  TestState.gridFocused = 1;
  TestState.editFocused = 0;
}
static void RequestQuitOp(int32_t code) {
  TestState.quitCode = code;
}
static void SetTimerOp(int32_t id, int32_t ms) {
  TestState.timers[id] = ms;
}
static void KillTimerOp(int32_t id) {
  TestState.timers.erase(id);
}
static void SetCaptureOp() {
  TestState.captured = 1;
}
static void ReleaseCaptureOp() {
  TestState.captured = 0;
}
static int32_t KeyStateOp(int32_t key) {
  return TestState.keysDown.count(key) ? 1 : 0;
}

static void EditSetTextOp(const char16_t* text, int32_t length) {
  TestState.edit.assign(text, length);
  TestState.editStart = TestState.editEnd = 0;
}
static int32_t EditGetTextOp(char16_t* buffer, int32_t capacity) {
  int32_t length = static_cast<int32_t>(TestState.edit.size());
  if (capacity > 0) {
    int32_t n = std::min(length, capacity - 1);
    std::memcpy(buffer, TestState.edit.data(), n * sizeof(char16_t));
    buffer[n] = 0;
  }
  return length;
}
static void EditSetSelectionOp(int32_t start, int32_t end) {
  int32_t length = static_cast<int32_t>(TestState.edit.size());
  if (end < 0 || end > length) end = length;
  if (start < 0 || start > end) start = end;
  TestState.editStart = start;
  TestState.editEnd = end;
}
static void EditGetSelectionOp(int32_t* start, int32_t* end) {
  *start = TestState.editStart;
  *end = TestState.editEnd;
}
static void EditReplaceSelectionOp(const char16_t* text, int32_t length) {
  TestState.edit.replace(TestState.editStart, TestState.editEnd - TestState.editStart, text,
                         length);
  TestState.editStart = TestState.editEnd = TestState.editStart + length;
}
static void EditFocusOp() {
  TestState.editFocused = 1;
  TestState.gridFocused = 0;
}

static int32_t MessageBoxOp(const char16_t* text, const char16_t*, uint32_t) {
  std::u16string shown = text ? text : u"";
  TestState.shownBoxes.push_back(shown);
  if (TestState.boxes.empty()) {
    ADD_FAILURE() << "unexpected message box: " << TextToUtf8(shown.c_str());
    return IdCancel;
  }
  ScriptedBox box = TestState.boxes.front();
  TestState.boxes.pop_front();
  EXPECT_NE(shown.find(box.textPart), std::u16string::npos)
      << "message box shows: " << TextToUtf8(shown.c_str());
  return box.answer;
}
static int32_t ChooseFileOp(FileChooser*) {
  ADD_FAILURE() << "unexpected file chooser";
  return 0;
}
static int32_t RunDialogOp(DialogSpec*) {
  ADD_FAILURE() << "unexpected dialog";
  return 0;
}

static void ClipboardSetTextOp(const char16_t* text, int32_t length) {
  TestState.clipboardText.assign(text, length);
}
static char16_t* ClipboardGetTextOp() {
  return TextDuplicateN(TestState.clipboardText.data(),
                        static_cast<uint32_t>(TestState.clipboardText.size()));
}
static void ClipboardSetPrivateOp(const uint8_t* bytes, int32_t length) {
  TestState.clipboardPrivate.assign(bytes, bytes + length);
}
static int32_t ClipboardGetPrivateOp(uint8_t** bytes) {
  if (TestState.clipboardPrivate.empty()) return 0;
  *bytes = static_cast<uint8_t*>(Allocate(TestState.clipboardPrivate.size()));
  if (!*bytes) return 0;
  std::memcpy(*bytes, TestState.clipboardPrivate.data(), TestState.clipboardPrivate.size());
  return static_cast<int32_t>(TestState.clipboardPrivate.size());
}

static std::u16string SettingsKey(const char16_t* section, const char16_t* key) {
  return std::u16string(section) + u"/" + key;
}
static int32_t SettingsReadOp(const char16_t* section, const char16_t* key, char16_t* buffer,
                              int32_t capacity) {
  auto it = TestState.settings.find(SettingsKey(section, key));
  if (it == TestState.settings.end()) return -1;
  int32_t length = static_cast<int32_t>(it->second.size());
  if (capacity > 0) {
    int32_t n = std::min(length, capacity - 1);
    std::memcpy(buffer, it->second.data(), n * sizeof(char16_t));
    buffer[n] = 0;
  }
  return length;
}
static void SettingsWriteOp(const char16_t* section, const char16_t* key, const char16_t* value) {
  TestState.settings[SettingsKey(section, key)] = value;
}
static void SettingsRemoveSectionOp(const char16_t* section) {
  std::u16string prefix = std::u16string(section) + u"/";
  for (auto it = TestState.settings.begin(); it != TestState.settings.end();)
    it = it->first.compare(0, prefix.size(), prefix) == 0 ? TestState.settings.erase(it) : ++it;
}
static void SettingsFlushOp() {}
static const char* LocaleTagOp() {
  return "fr-FR";
}
static int32_t InstanceClaimOp(const char*) {
  return 1;
}
static int32_t InstanceSendOp(const char*, const char16_t*) {
  return 0;
}
static void LocalTimeOp(PlatformTime* out) {
  *out = TestState.localTime;
}
static int64_t MillisecondsOp() {
  return TestState.now;
}
static int32_t RunOp(PlatformEventHandler) {
  return TestState.quitCode;
}

static void SetMenusOp(const MenuEntry* entries, int32_t count) {
  TestState.menuTexts.clear();
  for (int32_t i = 0; i < count; i++) {
    TestState.menuTexts.push_back(entries[i].text ? entries[i].text : u"-");
  }
}
static void SetToolbarOp(PlatformBand, const MenuEntry*, int32_t) {}
static void ShowBandOp(PlatformBand band, int32_t visible) {
  TestState.bandsShown[band] = visible;
}
static int32_t StatusBarHeightOp() {
  return 20;
}

static const Platform TestPlatformTable = {
    CreateFontOp,
    DeleteFontOp,
    FontMetricsOp,
    DefaultFontOp,
    ScreenDpi,
    ScreenDpi,
    InvalidateOp,
    UpdateOp,
    ClientSizeOp,
    SetCaptionOp,
    BarsHeightOp,
    SetChildGeometryOp,
    ScrollBarSizeOp,
    SetScrollInfoOp,
    SetStatusTextOp,
    EnableCommandOp,
    CheckCommandOp,
    SetFocusGridOp,
    RequestQuitOp,
    SetTimerOp,
    KillTimerOp,
    SetCaptureOp,
    ReleaseCaptureOp,
    KeyStateOp,
    EditSetTextOp,
    EditGetTextOp,
    EditSetSelectionOp,
    EditGetSelectionOp,
    EditReplaceSelectionOp,
    EditFocusOp,
    MessageBoxOp,
    ChooseFileOp,
    RunDialogOp,
    ClipboardSetTextOp,
    ClipboardGetTextOp,
    ClipboardSetPrivateOp,
    ClipboardGetPrivateOp,
    SettingsReadOp,
    SettingsWriteOp,
    SettingsRemoveSectionOp,
    SettingsFlushOp,
    LocaleTagOp,
    InstanceClaimOp,
    InstanceSendOp,
    LocalTimeOp,
    MillisecondsOp,
    RunOp,
    SetMenusOp,
    SetToolbarOp,
    ShowBandOp,
    StatusBarHeightOp,
    PopupMenuOp,
};

void InstallTestPlatform() {
  TestState = TestPlatformState{};
  TestState.clientWidth = 1280;
  TestState.clientHeight = 800;
  TestState.localTime = PlatformTime{2026, 11, 24, 9, 30, 0, 0};
  SetPlatform(&TestPlatformTable);
}

void ExpectBox(const std::u16string& textPart, int32_t answer) {
  TestState.boxes.push_back(ScriptedBox{textPart, answer});
}

void CheckBoxesShown() {
  EXPECT_TRUE(TestState.boxes.empty()) << TestState.boxes.size() << " expected box(es) not shown";
  TestState.boxes.clear();
}
