// The seam between the shell and the operating system. The shell (src/shell/) never includes a
// toolkit header: it paints through a DrawContext, and it reaches windows, timers, dialogs, the
// clipboard, settings and the clock through one table of functions, the Platform, installed once
// at start. The desktop program installs the Qt implementation (platform/qt/); tests install a
// recording implementation that paints into memory. Nothing here holds spreadsheet logic.
//
// Conventions every implementation keeps, because the shell's pixel arithmetic relies on them:
// - Coordinates are device pixels of the main window's client area, y growing downwards.
// - A rectangle covers left <= x < right and top <= y < bottom: right and bottom are exclusive.
// - A line from p0 to p1 paints p0 and every pixel on the way but leaves p1 out, so that a
//   polyline's joints are painted once. Lines are one pixel wide; the shell draws wider strokes
//   as several lines or a filled rectangle.
// - Colours are 0x00BBGGRR: 255 is pure red, 0xFF0000 pure blue.
// - Text is UTF-16, passed with an explicit length; no terminator is read.
// - Text is drawn with a transparent background and without antialiasing or kerning; the width
//   MeasureText reports is exactly the width DrawText covers with the same font.
// - In RopXor mode every primitive (fill, line, pixel, pattern) stores destination ^ colour, so
//   painting the same thing twice restores the pixels. Text is always drawn in RopCopy.
// - Pattern fills use an 8 by 8 bitmap anchored at the client origin: pixel (x, y) takes bit
//   (7 - x % 8) of row y % 8; a set bit paints the foreground colour, a clear one the background.
// - Every drawing call is clipped to the current clip, which starts as the update rectangle of
//   the paint (or the whole surface) and only ever shrinks by ClipToRect and ExcludeClipRect.
#pragma once
#include <cstdint>

struct PlatformRect {
  int32_t left;
  int32_t top;
  int32_t right;   // exclusive
  int32_t bottom;  // exclusive
};

struct PlatformPoint {
  int32_t x;
  int32_t y;
};

typedef uint32_t Colour;  // 0x00BBGGRR

enum RasterOp : int32_t {
  RopCopy = 0,
  RopXor = 1,
};

// A font as the shell asks for it. The platform pins faces by substitution so that a sheet
// measures the same everywhere.
struct FontSpec {
  const char16_t* face;  // NUL-terminated; null or empty takes the default face
  int32_t height;        // character height in pixels, without internal leading; 0 the default
  int32_t weight;        // 400 normal, 700 bold
  uint8_t italic;
  uint8_t underline;
  uint8_t strikeOut;
  uint8_t reserved;
};

struct PlatformFont;  // opaque, made by Platform::createFont

struct FontMetrics {
  int32_t height;        // line height in pixels, what MeasureText reports as the text height
  int32_t ascent;        // baseline below the top of a text line
  int32_t digitWidth;    // advance of "0"
  int32_t averageWidth;  // average character advance
};

// A drawing surface: a window being painted, an image, a printer page. Implementations put a
// DrawContext first in their own record and point ops at their table, so that two kinds of
// context can live in one program (a test compares the Qt context with the memory one).
struct DrawContext;

struct DrawOps {
  // Fills r with a solid colour.
  void (*fillRect)(DrawContext* dc, const PlatformRect* r, Colour colour);
  // Fills r with an 8 by 8 pattern, anchored at the client origin (see the conventions).
  void (*fillPattern)(DrawContext* dc, const PlatformRect* r, const uint8_t pattern[8],
                      Colour foreground, Colour background);
  // One-pixel lines through count points, the last point left out.
  void (*polyline)(DrawContext* dc, const PlatformPoint* points, int32_t count, Colour colour);
  // A closed polygon filled with fill and outlined with a one-pixel line in outline.
  void (*polygon)(DrawContext* dc, const PlatformPoint* points, int32_t count, Colour fill,
                  Colour outline);
  void (*setPixel)(DrawContext* dc, int32_t x, int32_t y, Colour colour);
  void (*setRasterOp)(DrawContext* dc, RasterOp op);
  // Narrows the clip to its intersection with r.
  void (*clipToRect)(DrawContext* dc, const PlatformRect* r);
  // Removes r from the clip.
  void (*excludeClipRect)(DrawContext* dc, const PlatformRect* r);
  // Saves and restores the clip (nested at least 8 deep).
  void (*saveClip)(DrawContext* dc);
  void (*restoreClip)(DrawContext* dc);
  // Draws length characters with the top of the text line at (x, y), in colour, clipped to clip
  // as well as to the current clip. A null font draws with the default font.
  void (*drawText)(DrawContext* dc, PlatformFont* font, int32_t x, int32_t y,
                   const PlatformRect* clip, const char16_t* text, int32_t length, Colour colour);
  // Measures length characters: returns the width and stores the line height in *height (when
  // not null); when advances is not null it receives length cumulative widths, advances[i] being
  // the width of the first i + 1 characters.
  int32_t (*measureText)(DrawContext* dc, PlatformFont* font, const char16_t* text, int32_t length,
                         int32_t* height, int32_t* advances);
  // Device resolution in dots per inch, before zoom.
  int32_t (*dpiX)(DrawContext* dc);
  int32_t (*dpiY)(DrawContext* dc);
};

struct DrawContext {
  const DrawOps* ops;
};

// Short forms for the painting code.
inline void DcFillRect(DrawContext* dc, const PlatformRect& r, Colour c) {
  dc->ops->fillRect(dc, &r, c);
}
inline void DcFillPattern(DrawContext* dc, const PlatformRect& r, const uint8_t pattern[8],
                          Colour fore, Colour back) {
  dc->ops->fillPattern(dc, &r, pattern, fore, back);
}
inline void DcLine(DrawContext* dc, int32_t x0, int32_t y0, int32_t x1, int32_t y1, Colour c) {
  PlatformPoint p[2] = {{x0, y0}, {x1, y1}};
  dc->ops->polyline(dc, p, 2, c);
}
inline void DcSetPixel(DrawContext* dc, int32_t x, int32_t y, Colour c) {
  dc->ops->setPixel(dc, x, y, c);
}
inline void DcSetRasterOp(DrawContext* dc, RasterOp op) {
  dc->ops->setRasterOp(dc, op);
}
inline void DcDrawText(DrawContext* dc, PlatformFont* font, int32_t x, int32_t y,
                       const PlatformRect& clip, const char16_t* text, int32_t length, Colour c) {
  dc->ops->drawText(dc, font, x, y, &clip, text, length, c);
}
inline int32_t DcMeasureText(DrawContext* dc, PlatformFont* font, const char16_t* text,
                             int32_t length, int32_t* height = nullptr,
                             int32_t* advances = nullptr) {
  return dc->ops->measureText(dc, font, text, length, height, advances);
}

// ---------------------------------------------------------------------------------------------
// Events: everything the window system tells the shell arrives as one PlatformEvent, handed to
// the function the shell registered with Platform::run.

enum PlatformEventKind : int32_t {
  EventPaint = 1,         // dc and rect (the update rectangle)
  EventSize,              // width, height of the client area
  EventKeyDown,           // key, modifiers; target says grid or edit line
  EventChar,              // ch, modifiers; target
  EventButtonDown,        // x, y, modifiers
  EventButtonUp,          // x, y, modifiers
  EventDoubleClick,       // x, y, modifiers
  EventMouseMove,         // x, y, modifiers (ModButton while the left button is down)
  EventTimer,             // timerId
  EventScroll,            // bar (0 vertical, 1 horizontal, 2 tab scroller), code, position
  EventCommand,           // command: a menu item or toolbar button
  EventClose,             // the user asks to close the window
  EventHandOver,          // text: the command line a second instance passed on
  EventFocus,             // the main window gained focus
  EventEditChanged,       // the edit line's text changed under the user's hand
  EventStatusBarPressed,  // a press or double press on the status bar
};

enum PlatformModifier : uint32_t {
  ModShift = 1,
  ModControl = 2,
  ModAlt = 4,
  ModButton = 8,  // left button held
};

enum PlatformTarget : int32_t {
  TargetGrid = 0,      // the main window's client area
  TargetEditLine = 1,  // the formula bar's edit line
};

// Key codes, the classic virtual-key numbering so that tables can be written with them.
enum PlatformKey : int32_t {
  KeyBack = 0x08,
  KeyTab = 0x09,
  KeyReturn = 0x0D,
  KeyShift = 0x10,
  KeyControl = 0x11,
  KeyEscape = 0x1B,
  KeyPageUp = 0x21,
  KeyPageDown = 0x22,
  KeyEnd = 0x23,
  KeyHome = 0x24,
  KeyLeft = 0x25,
  KeyUp = 0x26,
  KeyRight = 0x27,
  KeyDown = 0x28,
  KeyDelete = 0x2E,
  KeyF2 = 0x71,
  KeyF9 = 0x78,
  // Letters and digits are their upper-case ASCII codes.
};

struct PlatformEvent {
  PlatformEventKind kind;
  PlatformTarget target;
  uint32_t modifiers;           // PlatformModifier bits
  int32_t x, y;                 // client pixels
  int32_t key;                  // PlatformKey or ASCII upper case letter/digit
  char16_t ch;                  // EventChar: the typed character
  int32_t timerId;              // EventTimer
  int32_t bar, code, position;  // EventScroll: codes 0 line up, 1 line down, 2 page up,
                                // 3 page down, 4 thumb released, 5 thumb moved
  int32_t command;              // EventCommand
  int32_t width, height;        // EventSize
  DrawContext* dc;              // EventPaint
  PlatformRect rect;            // EventPaint: the update rectangle
  const char16_t* text;         // EventHandOver: NUL-terminated, valid during the call
};

// The shell's entry for events; returns non-zero when it handled the event.
typedef int32_t (*PlatformEventHandler)(const PlatformEvent* event);

// ---------------------------------------------------------------------------------------------
// Message boxes, file choosers and dialogs.

enum MessageBoxFlags : uint32_t {
  MbOk = 0,
  MbOkCancel = 1,
  MbYesNoCancel = 3,
  MbYesNo = 4,
  MbRetryCancel = 5,
  MbIconError = 0x10,
  MbIconQuestion = 0x20,
  MbIconWarning = 0x30,
  MbIconInformation = 0x40,
  MbDefaultButton2 = 0x100,
};

enum MessageBoxResult : int32_t {
  IdOk = 1,
  IdCancel = 2,
  IdRetry = 4,
  IdYes = 6,
  IdNo = 7,
};

struct FileChooser {
  int32_t save;             // 0 open, 1 save
  const char16_t* title;    // NUL-terminated
  const char16_t* filters;  // pairs "label\0pattern;pattern\0", ended by an empty label
  int32_t filterIndex;      // in: filter shown first, from 1; out: the one chosen
  const char16_t* folder;   // starting folder, or null
  char16_t* path;           // in: proposed name; out: the chosen path, NUL-terminated
  int32_t pathCapacity;     // characters available in path, terminator included
};

// A modal dialog as a list of plain fields; the platform lays them out top to bottom and fills
// the values back in when the user confirms.
enum DialogFieldKind : int32_t {
  FieldLabel = 0,   // static text
  FieldText = 1,    // single-line edit: text, capacity
  FieldNumber = 2,  // spin box: number, minimum, maximum
  FieldCheck = 3,   // check box: number 0 or 1
  FieldChoice = 4,  // drop-down: number is the chosen index into choices
  FieldList = 5,    // list box: the same
};

struct DialogField {
  DialogFieldKind kind;
  const char16_t* label;
  char16_t* text;                  // FieldText
  int32_t capacity;                // FieldText, terminator included
  int32_t number;                  // FieldNumber, FieldCheck, FieldChoice, FieldList
  int32_t minimum, maximum;        // FieldNumber
  const char16_t* const* choices;  // FieldChoice, FieldList
  int32_t choiceCount;
};

struct DialogSpec {
  const char16_t* title;
  DialogField* fields;
  int32_t fieldCount;
};

// ---------------------------------------------------------------------------------------------
// Local time, as the clock gives it.
struct PlatformTime {
  int32_t year, month, day;  // month 1 to 12
  int32_t hour, minute, second, millisecond;
};

// Windows the frame positions; the grid itself is the main window's client area.
enum PlatformChild : int32_t {
  ChildEditLine = 2,
  ChildVerticalBar = 3,
  ChildHorizontalBar = 4,
  ChildCorner = 5,
  ChildTabScroller = 6,
  ChildStatusBar = 11,
};

// A menu bar or a toolbar as a flat list, in order. A menu of the bar has depth 0, its items depth
// 1, the items of a submenu depth 2. A popup has command 0; a separator has a null text. Texts
// mark the access key with "&" and may end with "\t" and the shortcut ("Ctrl+N"), which the
// platform binds to the command.
struct MenuEntry {
  int32_t depth;
  int32_t command;
  const char16_t* text;
};

// The bands above the grid.
enum PlatformBand : int32_t {
  BandStandardBar = 7,
  BandFormulaBar = 9,
  BandFormatBar = 12,
};

// ---------------------------------------------------------------------------------------------
// The platform: one table, installed once before the shell starts.
struct Platform {
  // Fonts. Handles live until deleteFont; null on failure (the shell then draws with the
  // default font).
  PlatformFont* (*createFont)(const FontSpec* spec);
  void (*deleteFont)(PlatformFont* font);
  void (*fontMetrics)(PlatformFont* font, FontMetrics* out);
  // The main window's default font and the screen's resolution, before zoom.
  PlatformFont* (*defaultFont)();
  int32_t (*screenDpiX)();
  int32_t (*screenDpiY)();

  // The main window. Invalidation queues a paint of r (null: the whole client area); update
  // paints what is queued before returning.
  void (*invalidate)(const PlatformRect* r);
  void (*update)();
  void (*clientSize)(int32_t* width, int32_t* height);
  void (*setCaption)(const char16_t* text);
  // Band height above the grid: the menu, toolbars and formula bar as the platform lays them out.
  int32_t (*barsHeight)();
  void (*setChildGeometry)(PlatformChild child, const PlatformRect* r, int32_t visible);
  int32_t (*scrollBarSize)();  // width of a vertical bar, height of a horizontal one
  void (*setScrollInfo)(int32_t bar, int32_t minimum, int32_t maximum, int32_t page,
                        int32_t position);
  void (*setStatusText)(int32_t part, const char16_t* text);
  void (*enableCommand)(int32_t command, int32_t enabled);
  void (*checkCommand)(int32_t command, int32_t checked);
  void (*setFocusGrid)();
  void (*requestQuit)(int32_t code);

  // Timers post EventTimer with the id every period until killed; setting an id again restarts
  // it with the new period.
  void (*setTimer)(int32_t id, int32_t milliseconds);
  void (*killTimer)(int32_t id);
  // Pointer capture: moves and releases go to the main window while captured.
  void (*setCapture)();
  void (*releaseCapture)();
  // Non-zero while the key is held (KeyShift, KeyControl, or any PlatformKey).
  int32_t (*keyState)(int32_t key);

  // The formula bar's edit line. Positions count UTF-16 units; a selection from start to end
  // (exclusive), start == end being the caret.
  void (*editSetText)(const char16_t* text, int32_t length);
  int32_t (*editGetText)(char16_t* buffer, int32_t capacity);  // returns the full length
  void (*editSetSelection)(int32_t start, int32_t end);
  void (*editGetSelection)(int32_t* start, int32_t* end);
  void (*editReplaceSelection)(const char16_t* text, int32_t length);
  void (*editFocus)();

  // Modal interaction; each pumps events while it waits. Caption "Tessarel" is the shell's to
  // pass.
  int32_t (*messageBox)(const char16_t* text, const char16_t* caption, uint32_t flags);
  // Returns non-zero when the user chose a file.
  int32_t (*chooseFile)(FileChooser* chooser);
  // Returns non-zero when the user confirmed.
  int32_t (*runDialog)(DialogSpec* dialog);

  // Clipboard: plain text, and the program's private block of bytes.
  void (*clipboardSetText)(const char16_t* text, int32_t length);
  // Returns a copy made with the core's allocation wrapper (caller frees), or null.
  char16_t* (*clipboardGetText)();
  void (*clipboardSetPrivate)(const uint8_t* bytes, int32_t length);
  // Returns the length and a copy in *bytes (caller frees), or 0 when there is none.
  int32_t (*clipboardGetPrivate)(uint8_t** bytes);

  // Settings: an ini-style store of sections and keys in the user's configuration folder.
  // read returns the value's length and copies it into buffer (NUL-terminated, cut to capacity),
  // or -1 when the key is absent.
  int32_t (*settingsRead)(const char16_t* section, const char16_t* key, char16_t* buffer,
                          int32_t capacity);
  void (*settingsWrite)(const char16_t* section, const char16_t* key, const char16_t* value);
  void (*settingsRemoveSection)(const char16_t* section);
  void (*settingsFlush)();

  // The locale tag the user's environment asks for ("fr-FR", "en_US.UTF-8"), or null.
  const char* (*localeTag)();

  // One running instance per user: claim returns 1 when this process is the first (and from
  // then on receives EventHandOver), 0 when another instance holds the name. send passes text
  // to that instance and returns non-zero when it was delivered.
  int32_t (*instanceClaim)(const char* name);
  int32_t (*instanceSend)(const char* name, const char16_t* text);

  // Clock.
  void (*localTime)(PlatformTime* out);
  int64_t (*milliseconds)();  // monotonic

  // Runs the event loop, handing every event to handler, until requestQuit; returns its code.
  int32_t (*run)(PlatformEventHandler handler);

  // The menu bar and the toolbars, replaced whole (the recent files change the File menu).
  void (*setMenus)(const MenuEntry* entries, int32_t count);
  void (*setToolbar)(PlatformBand band, const MenuEntry* entries, int32_t count);
  void (*showBand)(PlatformBand band, int32_t visible);
  int32_t (*statusBarHeight)();
  // A popup menu of depth-0 entries at the pointer, the entry whose command is `checked` marked;
  // returns the command chosen, or 0 when the menu was dismissed.
  int32_t (*popupMenu)(const MenuEntry* entries, int32_t count, int32_t checked);
};

// The installed platform; the shell reads it, the program's start-up or a test sets it.
inline const Platform* gPlatform = nullptr;
inline void SetPlatform(const Platform* platform) {
  gPlatform = platform;
}
