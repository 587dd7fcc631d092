// The text of one cell: alignment, wrapping, distributed and fill layouts, the "#" shown for a
// number that does not fit, and the erased gridline under text that overflows.
#include <algorithm>

#include "model/value.h"
#include "shell/paint_internal.h"
#include "shell/resources.h"

enum HorizontalAlign : uint8_t {
  AlignGeneral = 0,
  AlignLeft = 1,
  AlignCentre = 2,
  AlignRight = 3,
  AlignFill = 4,
  AlignJustify = 5,
  AlignAcross = 6,
  AlignDistributed = 7,
};

static bool IsBlank(char16_t c) {
  return c == u' ';
}
static bool IsWideCharacter(char16_t c) {
  return c >= 12288 && c <= 40959;
}

static int32_t Centred(int32_t left, int32_t right, int32_t w) {
  return left + (right - w - left - 1) / 2;
}

// Horizontal start of a text of width w in [left, right) by its value type and alignment.
static int32_t TextX(uint16_t tag, uint8_t align, int32_t left, int32_t right, int32_t w) {
  if (tag == ValueNumber) {
    if (align == AlignGeneral || align == AlignRight) return right - w - 2;
    if (align == AlignCentre || align == AlignAcross) return Centred(left, right, w);
    return left + 1;
  }
  if (tag == ValueText) {
    if (align == AlignCentre || align == AlignAcross) return Centred(left, right, w);
    if (align == AlignRight) return right - w - 2;
    return left + 1;
  }
  if (align == AlignGeneral || align == AlignCentre || align == AlignAcross)
    return Centred(left, right, w);
  if (align == AlignRight) return right - w - 2;
  return left + 1;
}

static int32_t TextY(uint8_t verticalAlign, int32_t top, int32_t bottom, int32_t h) {
  if (verticalAlign == 1) return top + (bottom - h - top - 1) / 2;
  if (verticalAlign == 2) return bottom - h - 1;
  return top;
}

// Distributed text: the free width is shared among the gaps between words (and around every
// wide character); blanks are dropped. With no gap the text is centred.
static void DrawDistributed(DrawContext* dc, PlatformFont* font, const PlatformRect& clip,
                            const PlatformRect& e, int32_t y, const char16_t* text, int32_t length,
                            int32_t w, Colour colour) {
  int32_t gaps = 0;
  for (int32_t i = 1; i < length; i++) {
    bool wide = IsWideCharacter(text[i]) || IsWideCharacter(text[i - 1]);
    bool afterBlank = IsBlank(text[i - 1]) && !IsBlank(text[i]);
    if ((wide && !IsBlank(text[i]) && !IsBlank(text[i - 1])) || afterBlank) {
      // A gap after blanks counts only when a non-blank came before them.
      bool before = false;
      for (int32_t k = i - 1; k >= 0 && !before; k--) before = !IsBlank(text[k]);
      if (before) gaps++;
    }
  }
  if (gaps == 0) {
    DcDrawText(dc, font, Centred(e.left, e.right, w), y, clip, text, length, colour);
    return;
  }
  int32_t blanks = 0;
  for (int32_t i = 0; i < length; i++) blanks += IsBlank(text[i]);
  int32_t blankWidth = blanks ? DcMeasureText(dc, font, u" ", 1) : 0;
  int32_t free = e.right - e.left - 1 - (w - blanks * blankWidth);
  int32_t x = e.left + 1, gapsLeft = gaps;
  for (int32_t i = 0; i < length;) {
    if (IsBlank(text[i])) {
      i++;
      continue;
    }
    int32_t end = i + 1;
    while (end < length && !IsBlank(text[end]) && !IsWideCharacter(text[end]) &&
           !IsWideCharacter(text[end - 1]))
      end++;
    DcDrawText(dc, font, x, y, clip, text + i, end - i, colour);
    x += DcMeasureText(dc, font, text + i, end - i);
    i = end;
    int32_t next = i;
    while (next < length && IsBlank(text[next])) next++;
    if (next < length && gapsLeft > 0) {
      int32_t share = free / gapsLeft;
      x += share;
      free -= share;
      gapsLeft--;
    }
  }
}

struct WrappedLine {
  int32_t start, length, width, blanks;
  bool last;
};

constexpr int32_t MaxWrappedLines = 256;

// Breaks text into lines that fit `width`: at line feeds and carriage returns, else at the last
// blank before the longest prefix that fits (at least one character). Returns the line count.
static int32_t BreakLines(DrawContext* dc, PlatformFont* font, const char16_t* text, int32_t length,
                          int32_t width, WrappedLine* lines) {
  int32_t count = 0, p = 0;
  while (p < length && count < MaxWrappedLines) {
    int32_t end = p;
    while (end < length && text[end] != u'\n' && text[end] != u'\r') end++;
    int32_t n = end - p;
    if (n > 0 && DcMeasureText(dc, font, text + p, n) > width) {
      int32_t lo = 1, hi = n;
      while (lo < hi) {
        int32_t mid = (lo + hi + 1) / 2;
        if (DcMeasureText(dc, font, text + p, mid) <= width)
          lo = mid;
        else
          hi = mid - 1;
      }
      n = lo;
      if (p + n < end && !IsBlank(text[p + n])) {
        int32_t k = n;
        while (k > 0 && !IsBlank(text[p + k - 1])) k--;
        if (k > 0) n = k;
      }
    }
    int32_t trimmed = n;
    while (trimmed > 0 && IsBlank(text[p + trimmed - 1])) trimmed--;
    WrappedLine& line = lines[count++];
    line.start = p;
    line.length = trimmed;
    line.width = trimmed ? DcMeasureText(dc, font, text + p, trimmed) : 0;
    line.blanks = 0;
    for (int32_t i = 0; i < trimmed; i++) line.blanks += IsBlank(text[p + i]);
    p += n;
    while (p < length && IsBlank(text[p])) p++;
    if (p < length && text[p] == u'\r') p++;
    if (p < length && text[p] == u'\n') p++;
  }
  for (int32_t i = 0; i < count; i++) lines[i].last = i == count - 1;
  return count;
}

static void LayoutWrappedText(DrawContext* dc, PlatformFont* font, const PlatformRect& clip,
                              const PlatformRect& e, const char16_t* text, int32_t length,
                              uint8_t align, uint8_t verticalAlign, Colour colour) {
  WrappedLine lines[MaxWrappedLines];
  int32_t count = BreakLines(dc, font, text, length, e.right - e.left, lines);
  int32_t lineHeight = 0;
  DcMeasureText(dc, font, u"A", 1, &lineHeight);
  int32_t total = count * lineHeight;
  int32_t y = e.top, spacing = 0, freeHeight = std::max(0, e.bottom - e.top - total);
  if (verticalAlign == 1)
    y = e.top + freeHeight / 2;
  else if (verticalAlign == 2)
    y = e.bottom - total;
  int32_t gapsLeft = count - 1;
  for (int32_t i = 0; i < count; i++) {
    const WrappedLine& line = lines[i];
    const char16_t* t = text + line.start;
    int32_t x = e.left + 1;
    if (align == AlignCentre || align == AlignAcross)
      x = Centred(e.left, e.right, line.width);
    else if (align == AlignRight)
      x = e.right - line.width - 2;
    bool justify =
        (align == AlignJustify || align == AlignDistributed) && !line.last && line.blanks > 0;
    if (!justify) {
      DcDrawText(dc, font, x, y, clip, t, line.length, colour);
    } else {
      int32_t free = e.right - e.left - 1 - line.width, blanksLeft = line.blanks;
      int32_t start = 0;
      for (int32_t k = 0; k <= line.length; k++) {
        if (k < line.length && !IsBlank(t[k])) continue;
        if (k > start) DcDrawText(dc, font, x, y, clip, t + start, k - start, colour);
        x += DcMeasureText(dc, font, t + start, k - start + (k < line.length));
        if (k < line.length) {
          int32_t share = free / blanksLeft--;
          x += share;
          free -= share;
        }
        start = k + 1;
      }
    }
    y += lineHeight;
    if (verticalAlign >= 3 && gapsLeft > 0) {
      spacing = freeHeight / gapsLeft--;
      freeHeight -= spacing;
      y += spacing;
    }
  }
}

int PaintCellText(PaintState* ps, const PlatformRect& r, const CellText* t) {
  DrawContext* dc = ps->dc;
  PlatformFont* font = CellFont(ps->book, t->xf->font);
  Colour colour =
      t->textColor == AutomaticFontColor ? Black : PaletteColour(ps->book, t->textColor, Black);
  if (t->inverted) colour ^= White;
  const PlatformRect& e = t->extent;
  uint8_t align = t->xf->horizontalAlign;
  if (t->tag == ValueText && (t->xf->flags & XfWrap) && align != AlignFill) {
    PlatformRect inner{e.left, e.top, e.right - 3, e.bottom};
    LayoutWrappedText(dc, font, r, inner, t->text, t->length, align, t->xf->verticalAlign, colour);
    return 0;
  }
  const char16_t* text = t->text;
  int32_t length = t->length, h = 0;
  int32_t w = DcMeasureText(dc, font, text, length, &h);
  if (t->tag != ValueText && w > e.right - e.left - 1) {
    text = u"#";
    length = 1;
    align = AlignFill;
    w = DcMeasureText(dc, font, text, length, &h);
  }
  int32_t x = TextX(t->tag, align, e.left, e.right, w);
  if (align == AlignDistributed && t->tag == ValueText && w < e.right - e.left - 1) x = e.left;
  if (x >= r.right || x + w <= r.left) return 0;
  int erased = 0;
  if (t->overflow && !t->merged && ps->gridlines && !ps->showFormulas && t->col < 255 &&
      align != AlignFill && align != AlignJustify && align != AlignDistributed && x + w > r.right &&
      !t->patterned && !t->nextMerged && t->gridlineRight &&
      (t->sourceCol > t->col || t->nextEmpty)) {
    DcLine(dc, r.right - 1, r.top, r.right - 1, r.bottom - 1, t->inverted ? Black : White);
    erased = 1;
  }
  int32_t y = TextY(t->xf->verticalAlign, e.top, e.bottom, h);
  if (align == AlignDistributed && t->tag == ValueText && w < e.right - e.left - 1) {
    DrawDistributed(dc, font, r, e, y, text, length, w, colour);
  } else if (align == AlignFill) {
    int32_t repeats = w > 0 ? std::max(1, (e.right - e.left - 3) / w) : 1;
    for (int32_t i = 0; i < repeats; i++, x += w)
      DcDrawText(dc, font, x, y, r, text, length, colour);
  } else {
    DcDrawText(dc, font, x, y, r, text, length, colour);
  }
  return erased;
}
