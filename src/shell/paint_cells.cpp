// One row strip of cells: background and pattern, comment mark, borders and gridlines as each
// cell's own bottom and right edges, text with overflow from empty neighbours, and the part of
// the selection frame that falls in the cell.
#include <algorithm>

#include "base/alloc.h"
#include "format/number_format.h"
#include "formula/formula_text.h"
#include "formula/recalc.h"
#include "model/hooks.h"
#include "shell/paint.h"
#include "shell/paint_internal.h"
#include "shell/resources.h"
#include "shell/view.h"

constexpr uint8_t GridlinePaletteIndex = 22;
enum BorderStyle : uint8_t {
  BorderNone = 0,
  BorderThin = 1,
  BorderDotted = 4,
  BorderThick = 5,
  BorderDouble = 6
};

const Range* FindMerge(const Sheet* s, uint32_t row, uint32_t col) {
  for (uint32_t i = 0; i < s->mergeCount; i++)
    if (RangeContains(&s->merges[i], row, col)) return &s->merges[i];
  return nullptr;
}

bool CellIsEmpty(const Cell* cell) {
  return !cell || (cell->value.tag == ValueEmpty && !cell->formula.bytes);
}

const Xf* PaintXf(const PaintState* ps, const Cell* cell, uint32_t row, uint32_t col) {
  uint32_t index = cell ? cell->xf : XfForCell(ps->book, ps->sheet, row, col);
  if (index >= ps->w->xfCount) index = ps->w->xfCount > DefaultCellXf ? DefaultCellXf : 0;
  return &ps->w->xfs[index];
}

// Which pixels of a border's pattern are on, by the pixel's position along the edge.
static bool DashOn(uint32_t style, int32_t p) {
  p = p < 0 ? -p : p;
  switch (style) {
    case 3:
      return p % 4 < 3;
    case 4:
      return p % 4 < 2;
    case 7:
      return p % 2 == 0;
    case 8:
      return p % 12 < 9;
    case 9:
    case 10:
      return p % 18 < 9 || p % 6 < 3;
    case 11:
    case 12:
      return p % 24 < 9 || p % 6 < 3;
    case 13:
      return p % 18 < 10 || p % 6 < 4;
    default:
      return true;
  }
}

// One line of an edge: pixels from start to end (exclusive) at `at`, runs of the pattern drawn as
// one-pixel-thick rectangles.
static void EdgeLine(DrawContext* dc, int vertical, uint32_t style, Colour colour, int32_t start,
                     int32_t end, int32_t at, int32_t shift) {
  int32_t p = start;
  while (p < end) {
    if (!DashOn(style, p + shift)) {
      p++;
      continue;
    }
    int32_t q = p + 1;
    while (q < end && DashOn(style, q + shift)) q++;
    if (vertical)
      DcFillRect(dc, PlatformRect{at, p, at + 1, q}, colour);
    else
      DcFillRect(dc, PlatformRect{p, at, q, at + 1}, colour);
    p = q;
  }
}

void PaintBorderEdge(DrawContext* dc, int vertical, uint32_t style, Colour colour, int32_t start,
                     int32_t end, int32_t last) {
  switch (style) {
    case BorderNone:
      return;
    case BorderDouble:
      EdgeLine(dc, vertical, style, colour, start, end, last - 1, 0);
      return;
    case 2:
    case BorderThick:
    case 8:
    case 10:
    case 12:
      EdgeLine(dc, vertical, style, colour, start, end, last - 1, 0);
      EdgeLine(dc, vertical, style, colour, start, end, last, 0);
      return;
    case 13:
      EdgeLine(dc, vertical, style, colour, start, end, last - 1, 2);
      EdgeLine(dc, vertical, style, colour, start, end, last, 0);
      return;
    default:
      EdgeLine(dc, vertical, style, colour, start, end, last, 0);
  }
}

struct Edge {
  uint8_t style;
  uint8_t colour;  // palette index; 64 and above black
};

enum Side { SideTop, SideLeft, SideBottom, SideRight };

static Edge XfEdge(const Xf* xf, Side side) {
  switch (side) {
    case SideTop:
      return Edge{xf->topStyle, xf->topColor};
    case SideLeft:
      return Edge{xf->leftStyle, xf->leftColor};
    case SideBottom:
      return Edge{xf->bottomStyle, xf->bottomColor};
    default:
      return Edge{xf->rightStyle, xf->rightColor};
  }
}

// The border between a cell and its neighbour on `side`: the cell's own Xf first, then the
// neighbour's facing side.
static Edge SharedEdge(const PaintState* ps, const Xf* own, uint32_t row, uint32_t col, Side side) {
  Edge e = XfEdge(own, side);
  if (e.style) return e;
  int32_t nr = static_cast<int32_t>(row) + (side == SideBottom) - (side == SideTop);
  int32_t nc = static_cast<int32_t>(col) + (side == SideRight) - (side == SideLeft);
  if (nr < 0 || nc < 0 || nr > static_cast<int32_t>(MaxRow) || nc > static_cast<int32_t>(MaxCol))
    return e;
  const Cell* neighbour = CellAt(&ps->s->cells, nr, nc);
  const Range* m = FindMerge(ps->s, nr, nc);
  if (m) neighbour = CellAt(&ps->s->cells, m->firstRow, m->firstCol);
  const Xf* other =
      m ? PaintXf(ps, neighbour, m->firstRow, m->firstCol) : PaintXf(ps, neighbour, nr, nc);
  static const Side facing[] = {SideBottom, SideRight, SideTop, SideLeft};
  return XfEdge(other, facing[side]);
}

static Colour EdgeColour(const PaintState* ps, Edge e) {
  return PaletteColour(ps->book, e.colour, Black);
}

// Where in a cell the selection frame runs: the first pixel row and column of the cells just
// inside or just after the selection's top or left, the last two of the cells just inside or
// before its bottom or right.
static void PaintSelectionFrame(DrawContext* dc, const Range& sel, uint32_t row, uint32_t col,
                                const PlatformRect& r) {
  int32_t rows[3], cols[3];
  int rowCount = 0, colCount = 0;
  bool inCols = col >= sel.firstCol && col <= sel.lastCol;
  bool inRows = row >= sel.firstRow && row <= sel.lastRow;
  if (inCols) {
    if (row == sel.firstRow || row == sel.lastRow + 1u) rows[rowCount++] = r.top;
    if (row == sel.lastRow || row + 1u == sel.firstRow) {
      rows[rowCount++] = r.bottom - 2;
      rows[rowCount++] = r.bottom - 1;
    }
  }
  if (inRows) {
    if (col == sel.firstCol || col == sel.lastCol + 1u) cols[colCount++] = r.left;
    if (col == sel.lastCol || col + 1u == sel.firstCol) {
      cols[colCount++] = r.right - 2;
      cols[colCount++] = r.right - 1;
    }
  }
  if (!rowCount && !colCount) return;
  DcSetRasterOp(dc, RopXor);
  for (int i = 0; i < rowCount; i++)
    if (rows[i] >= r.top && rows[i] < r.bottom)
      DcFillRect(dc, {r.left, rows[i], r.right, rows[i] + 1}, White);
  // Vertical strokes leave out the pixels the horizontal ones already inverted.
  for (int j = 0; j < colCount; j++) {
    if (cols[j] < r.left || cols[j] >= r.right) continue;
    int32_t y = r.top;
    while (y < r.bottom) {
      bool taken = false;
      for (int i = 0; i < rowCount; i++) taken |= rows[i] == y;
      if (taken) {
        y++;
        continue;
      }
      int32_t end = y + 1;
      for (;; end++) {
        bool stop = end >= r.bottom;
        for (int i = 0; i < rowCount && !stop; i++) stop = rows[i] == end;
        if (stop) break;
      }
      DcFillRect(dc, {cols[j], y, cols[j] + 1, end}, White);
      y = end;
    }
  }
  DcSetRasterOp(dc, RopCopy);
}

static bool HasComment(const Sheet* s, uint32_t row, uint32_t col) {
  for (uint32_t i = 0; i < s->commentCount; i++)
    if (s->comments[i].row == row && s->comments[i].col == col) return true;
  return false;
}

struct PaintMeasure {
  TextMeasure base;
  DrawContext* dc;
  PlatformFont* font;
};

static int32_t MeasureWithFont(const TextMeasure* self, const char16_t* text, uint32_t length) {
  const PaintMeasure* m = reinterpret_cast<const PaintMeasure*>(self);
  return DcMeasureText(m->dc, m->font, text, static_cast<int32_t>(length));
}

// The display text of a stored cell for painting; `owned` receives a block the caller frees.
static const char16_t* CellShownText(PaintState* ps, Cell* cell, int32_t width, uint16_t* tag,
                                     char16_t** owned) {
  *owned = nullptr;
  if (ps->showFormulas && cell->formula.bytes) {
    *owned = FormulaText(ps->book, &cell->formula, cell->row, cell->col, 1, cell->row, cell->col);
    *tag = ValueText;
    return *owned;
  }
  // Numbers are formatted for the room they have, so that General can shrink to it.
  PaintMeasure measure{
      {MeasureWithFont}, ps->dc, CellFont(ps->book, PaintXf(ps, cell, cell->row, cell->col)->font)};
  const TextMeasure* m = cell->value.tag == ValueNumber ? &measure.base : nullptr;
  if (!EnsureCellText(ps->book, ps->sheet, cell, m, width)) return nullptr;
  *tag = cell->value.tag;
  return cell->text;
}

static int32_t TextLength16(const char16_t* t) {
  int32_t n = 0;
  while (t && t[n]) n++;
  return n;
}

// Left and right pixel edges of column `to` measured from column `from` whose left edge is x.
static int32_t ColumnsBetween(const PaintState* ps, uint32_t from, uint32_t to) {
  return ColumnOffset(ps->book, ps->sheet, to) - ColumnOffset(ps->book, ps->sheet, from);
}

// Text from the nearest non-empty cell to the left or right that spills into this empty cell.
static void PaintOverflow(PaintState* ps, const PlatformRect& r, uint32_t row, uint32_t col,
                          const Xf* own, bool inverted, bool gridlineRight) {
  const CellArray* cells = &ps->s->cells;
  uint32_t index;
  bool found = FindCell(cells, row, col, &index);
  int erased = 0;
  for (int pass = 0; pass < 2; pass++) {
    Cell* source = nullptr;
    if (pass == 0) {
      for (uint32_t i = index; i-- > 0 && cells->cells[i]->row == row;) {
        Cell* c = cells->cells[i];
        if (CellIsEmpty(c) || ColumnPixels(ps->book, ps->sheet, c->col) == 0) continue;
        source = c;
        break;
      }
    } else {
      for (uint32_t i = index + found; i < cells->count && cells->cells[i]->row == row; i++) {
        Cell* c = cells->cells[i];
        if (CellIsEmpty(c) || ColumnPixels(ps->book, ps->sheet, c->col) == 0) continue;
        source = c;
        break;
      }
    }
    if (!source || FindMerge(ps->s, row, source->col)) continue;
    const Xf* xf = PaintXf(ps, source, row, source->col);
    uint8_t align = xf->horizontalAlign;
    if (source->state < CellShown && !EnsureCellText(ps->book, ps->sheet, source)) continue;
    bool text = source->value.tag == ValueText;
    // Wrapped text keeps to its own cell.
    bool accepts = align == 6 || (text && !(xf->flags & XfWrap) &&
                                  (pass == 0 ? align <= 2 : (align == 3 || align == 2)));
    if (!accepts || !source->text) continue;
    CellText t{};
    t.text = source->text;
    t.length = TextLength16(source->text);
    t.tag = source->value.tag;
    t.xf = xf;
    t.textColor = source->textColor;
    int32_t left = pass == 0 ? r.left - ColumnsBetween(ps, source->col, col)
                             : r.left + ColumnsBetween(ps, col, source->col);
    t.extent =
        PlatformRect{left, r.top, left + ColumnPixels(ps->book, ps->sheet, source->col), r.bottom};
    t.overflow = !erased;
    t.inverted = inverted;
    t.gridlineRight = gridlineRight;
    t.nextEmpty = col < MaxCol && CellIsEmpty(CellAt(cells, row, col + 1));
    t.nextMerged = col < MaxCol && FindMerge(ps->s, row, col + 1);
    t.patterned = own->pattern != 0;
    t.col = col;
    t.sourceCol = source->col;
    erased |= PaintCellText(ps, r, &t);
  }
}

// Paints one cell in r and returns nothing; the caller walks the columns.
static void PaintCell(PaintState* ps, uint32_t row, uint32_t col, const PlatformRect& r) {
  DrawContext* dc = ps->dc;
  Sheet* s = ps->s;
  Cell* cell = CellAt(&s->cells, row, col);
  const Range* m = FindMerge(s, row, col);
  uint32_t sourceRow = m ? m->firstRow : row, sourceCol = m ? m->firstCol : col;
  Cell* source = m ? CellAt(&s->cells, sourceRow, sourceCol) : cell;
  if (source && source->state < CellCalculated) CalculateCell(ps->book, ps->sheet, source);
  bool inverted = s->selectedObject < 0 && RangeContains(&s->selection, row, col) &&
                  !(row == s->activeRow && col == s->activeCol) &&
                  !(m && RangeContains(m, s->activeRow, s->activeCol));
  const Xf* xf = PaintXf(ps, source, sourceRow, sourceCol);

  // Background.
  Colour fore = xf->foreground > 63 ? Black : PaletteColour(ps->book, xf->foreground, Black);
  Colour back = (!xf->pattern || xf->background >= 64)
                    ? White
                    : PaletteColour(ps->book, xf->background, White);
  if (inverted) {
    fore ^= White;
    back ^= White;
  }
  if (xf->pattern < 2)
    DcFillRect(dc, r, back);
  else
    DcFillPattern(dc, r, FillPatterns[std::min<uint32_t>(xf->pattern - 2, FillPatternCount - 1)],
                  fore, back);

  // Comment mark in the top right corner.
  bool commentHere =
      m ? (col == m->lastCol && row == m->firstRow && HasComment(s, m->firstRow, m->firstCol))
        : HasComment(s, row, col);
  if (commentHere)
    for (int32_t i = 0; i < 5; i++)
      DcLine(dc, r.right - 5 + i, r.top + i, r.right, r.top + i, MarkRed);

  // Thick and double borders of the cells above and to the left reach one line into this one.
  if (!m || row == m->firstRow) {
    Edge e = SharedEdge(ps, xf, sourceRow, sourceCol, SideTop);
    if (e.style == BorderThick || e.style == BorderDouble)
      DcLine(dc, r.left, r.top, r.right + 1, r.top, EdgeColour(ps, e));
  }
  if (!m || col == m->firstCol) {
    Edge e = SharedEdge(ps, xf, sourceRow, sourceCol, SideLeft);
    if (e.style == BorderThick || e.style == BorderDouble)
      DcLine(dc, r.left, r.top, r.left, r.bottom + 1, EdgeColour(ps, e));
  }

  bool gridline = ps->gridlines && !xf->pattern;
  bool pointed = PointMode.active != 0;
  const Range& pr = PointMode.range;
  // Bottom edge.
  if (!m || row == m->lastRow) {
    Edge e{};
    if (pointed && col >= pr.firstCol && col <= pr.lastCol &&
        (row == pr.lastRow || row + 1u == pr.firstRow))
      e = Edge{BorderDotted, 64};
    else if (s->frozenRow && row + 1u == s->frozenRow)
      e = Edge{BorderThin, 64};
    else
      e = SharedEdge(ps, xf, m ? m->lastRow : row, sourceCol, SideBottom);
    if (!e.style && gridline) e = Edge{BorderThin, GridlinePaletteIndex};
    PaintBorderEdge(dc, 0, e.style, EdgeColour(ps, e), r.left, r.right, r.bottom - 1);
  }
  // Right edge.
  bool gridlineRight = false;
  if (!m || col == m->lastCol) {
    Edge e{};
    bool across =
        xf->horizontalAlign == 6 && col < MaxCol && CellIsEmpty(CellAt(&s->cells, row, col + 1)) &&
        PaintXf(ps, nullptr, row, col + 1)->horizontalAlign == 6 && !FindMerge(s, row, col + 1);
    if (pointed && row >= pr.firstRow && row <= pr.lastRow &&
        (col == pr.lastCol || col + 1u == pr.firstCol))
      e = Edge{BorderDotted, 64};
    else if (s->frozenCol && col + 1u == s->frozenCol)
      e = Edge{BorderThin, 64};
    else if (!across)
      e = SharedEdge(ps, xf, sourceRow, m ? m->lastCol : col, SideRight);
    if (!across && !e.style && gridline) {
      e = Edge{BorderThin, GridlinePaletteIndex};
      gridlineRight = true;
    }
    PaintBorderEdge(dc, 1, e.style, EdgeColour(ps, e), r.top, r.bottom, r.right - 1);
  }

  // Text.
  bool painted = false;
  if (source) {
    uint16_t tag = ValueEmpty;
    char16_t* owned = nullptr;
    int32_t width = r.right - r.left;
    const char16_t* text = CellShownText(ps, source, width, &tag, &owned);
    if (text && text[0]) {
      CellText t{};
      t.text = text;
      t.length = TextLength16(text);
      t.tag = tag;
      t.xf = xf;
      t.textColor = source->textColor;
      t.extent = r;
      if (m) {
        t.extent.left = r.left - ColumnsBetween(ps, m->firstCol, col);
        t.extent.right = t.extent.left + ColumnsBetween(ps, m->firstCol, m->lastCol + 1u);
        t.extent.top = r.top - (RowOffset(ps->book, ps->sheet, row) -
                                RowOffset(ps->book, ps->sheet, m->firstRow));
        t.extent.bottom = t.extent.top + RowOffset(ps->book, ps->sheet, m->lastRow + 1u) -
                          RowOffset(ps->book, ps->sheet, m->firstRow);
        t.merged = true;
      } else if (xf->horizontalAlign == 6) {
        for (uint32_t c = col + 1; c <= MaxCol; c++) {
          if (!CellIsEmpty(CellAt(&s->cells, row, c)) || FindMerge(s, row, c) ||
              PaintXf(ps, nullptr, row, c)->horizontalAlign != 6)
            break;
          t.extent.right += ColumnPixels(ps->book, ps->sheet, c);
        }
      }
      t.overflow = !ps->showFormulas;
      t.inverted = inverted;
      t.gridlineRight = gridlineRight;
      t.nextEmpty = col < MaxCol && CellIsEmpty(CellAt(&s->cells, row, col + 1));
      t.nextMerged = col < MaxCol && FindMerge(s, row, col + 1);
      t.patterned = xf->pattern != 0;
      t.col = col;
      t.sourceCol = col;
      PaintCellText(ps, r, &t);
      painted = true;
    }
    Release(owned);
  }
  if (!painted && !m && CellIsEmpty(cell) && !ps->showFormulas)
    PaintOverflow(ps, r, row, col, xf, inverted, gridlineRight);

  if (s->selectedObject < 0) PaintSelectionFrame(dc, s->selection, row, col, r);
}

int32_t PaintCells(PaintState* ps, int32_t x, int32_t top, int32_t bottom, uint32_t firstCol,
                   uint32_t lastCol, uint32_t row, int32_t clipRight) {
  for (uint32_t col = firstCol; col <= lastCol && x < clipRight; col++) {
    int32_t w = ColumnPixels(ps->book, ps->sheet, col);
    if (w == 0) continue;
    PlatformRect r{x, top, x + w, bottom};
    if (r.right > ps->update.left && r.left < ps->update.right) PaintCell(ps, row, col, r);
    x += w;
  }
  return x;
}
