// Sheet painting on the memory platform. At zoom 100 and 96 dpi a default column is 56 pixels
// wide and a default row 17 high; the row headers are 24 pixels wide and the column header strip
// 14 high, so A1 covers x 24..79 and y 14..30.
#include <vector>

#include "format/number_format.h"
#include "shell/select.h"
#include "shell_fixture.h"

constexpr Colour Red = 0x0000FF;  // palette 10
constexpr Colour GridGrey = 0xC0C0C0;

using PaintTest = ShellTest;

TEST_F(PaintTest, CellGeometryAtZoom100) {
  PlatformRect a1 = CellRect(0, 0);
  EXPECT_EQ(a1.left, 24);
  EXPECT_EQ(a1.top, 14);
  EXPECT_EQ(a1.right, 80);
  EXPECT_EQ(a1.bottom, 31);
}

// Gridlines are each cell's own last pixel row and column, and a filled cell has none.
TEST_F(PaintTest, GridlinesLieUnderFills) {
  struct Case {
    uint8_t pattern;
    bool gridlinesOn;
    Colour inside, rightEdge, bottomEdge;
  };
  const Case cases[] = {
      {0, true, White, GridGrey, GridGrey},
      {1, true, Red, Red, Red},
      {0, false, White, White, White},
      {2, true, Red, Black, Red},  // 50% pattern: the foreground black where the bit is set
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "pattern " << int(c.pattern) << " grid " << c.gridlinesOn);
    if (c.gridlinesOn)
      S()->flags |= SheetGridLines;
    else
      S()->flags &= ~SheetGridLines;
    uint16_t xf = MakeXf([&](Xf& x) {
      x.pattern = c.pattern;
      x.foreground = 8;
      x.background = 10;
    });
    PutText(1, 1, u" ", xf);
    Paint();
    PlatformRect b2 = CellRect(1, 1);
    EXPECT_EQ(Pixel(b2.left + 2, b2.top + 2), c.inside);
    // Pattern rows alternate 0xAA and 0x55 from the client origin; set bits are black.
    int32_t y = b2.top + 3, x = b2.right - 1;
    Colour expectRight = c.rightEdge;
    if (c.pattern == 2) {
      expectRight = ((((y & 1) ? 0x55 : 0xAA) >> (7 - (x & 7))) & 1) ? Black : Red;
    } else {
      EXPECT_EQ(Pixel(b2.left + 3, b2.bottom - 1), c.bottomEdge);
    }
    EXPECT_EQ(Pixel(x, y), expectRight);
    // The unfilled neighbour keeps its own gridline.
    PlatformRect c2 = CellRect(1, 2);
    EXPECT_EQ(Pixel(c2.right - 1, c2.top + 3), c.gridlinesOn ? GridGrey : White);
  }
}

// Each border style's pixels along the bottom edge of A2 for x = 24..47, on the cell's last row
// (dy 0), the row above it (dy -1) and the first row of A3 (dy 1). '#' is black, '.' white.
TEST_F(PaintTest, BorderStylesPaintTheirRuns) {
  struct Line {
    int dy;
    const char* pixels;
  };
  struct Case {
    uint8_t style;
    std::vector<Line> lines;
  };
  const char* solid = "########################";
  const char* blank = "........................";
  const Case cases[] = {
      {1, {{-1, blank}, {0, solid}, {1, blank}}},
      {2, {{-1, solid}, {0, solid}, {1, blank}}},
      {3, {{-1, blank}, {0, "###.###.###.###.###.###."}}},
      {4, {{-1, blank}, {0, "##..##..##..##..##..##.."}}},
      {5, {{-2, blank}, {-1, solid}, {0, solid}, {1, solid}}},
      {6, {{-2, blank}, {-1, solid}, {0, blank}, {1, solid}}},
      {7, {{-1, blank}, {0, "#.#.#.#.#.#.#.#.#.#.#.#."}}},
      {8, {{-1, "#########...#########..."}, {0, "#########...#########..."}}},
      {9, {{-1, blank}, {0, "###...###...#########..."}}},
      {10, {{-1, "###...###...#########..."}, {0, "###...###...#########..."}}},
      {11, {{-1, blank}, {0, "#########...###...###..."}}},
      {12, {{-1, "#########...###...###..."}, {0, "#########...###...###..."}}},
      {13, {{-1, "##..####..##########..##"}, {0, "####..####..##########.."}}},
  };
  S()->flags &= ~SheetGridLines;
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "style " << int(c.style));
    uint16_t xf = MakeXf([&](Xf& x) {
      x.bottomStyle = c.style;
      x.bottomColor = 8;
    });
    PutText(1, 0, u" ", xf);
    Paint();
    PlatformRect a2 = CellRect(1, 0);
    for (const Line& line : c.lines) {
      std::string got;
      for (int32_t x = 24; x < 48; x++)
        got += Pixel(x, a2.bottom - 1 + line.dy) == Black ? '#' : '.';
      EXPECT_EQ(got, line.pixels) << "dy " << line.dy;
    }
  }
}

TEST_F(PaintTest, VerticalBordersAreTheHorizontalOnesTurned) {
  S()->flags &= ~SheetGridLines;
  uint16_t xf = MakeXf([](Xf& x) {
    x.rightStyle = 3;
    x.rightColor = 8;
  });
  PutText(1, 0, u" ", xf);
  Paint();
  PlatformRect a2 = CellRect(1, 0);
  std::string got;
  for (int32_t y = 32; y < 44; y++) got += Pixel(a2.right - 1, y) == Black ? '#' : '.';
  EXPECT_EQ(got, "###.###.###.");  // y mod 4 below 3, from y = 32
}

// Text runs right over empty neighbours, erasing the gridlines it crosses, and stops at the
// first neighbour with content.
TEST_F(PaintTest, OverflowStopsAtANonEmptyNeighbour) {
  struct Case {
    const char16_t* c1;
    Colour at160;       // a pixel inside C1 where the long text would fall
    Colour gridlineB1;  // B1's right gridline at mid-height
  };
  const Case cases[] = {
      {nullptr, Black, White},
      {u"x", White, GridGrey},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.c1 ? "C1 filled" : "C1 empty");
    CloseAllWorkbooks();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    Select(300, 300, 200, 200);
    Layout();
    PutText(0, 0, u"Bonjour tout le monde");  // 21 characters, 147 pixels from x 25
    if (c.c1) PutText(0, 2, c.c1);
    Paint();
    PlatformRect a1 = CellRect(0, 0), b1 = CellRect(0, 1);
    int32_t glyphRow = a1.bottom - TestLineHeight - 1 + 5;
    EXPECT_EQ(Pixel(a1.right - 1, glyphRow - 4), White) << "A1's gridline is erased";
    EXPECT_EQ(Pixel(b1.right - 1, glyphRow - 4), c.gridlineB1);
    EXPECT_EQ(Pixel(160, glyphRow), c.at160);
    EXPECT_EQ(Pixel(a1.left + 3, a1.bottom - 1), GridGrey) << "the bottom gridline stays";
  }
}

TEST_F(PaintTest, ZeroWidthColumnIsNoBarrierToOverflow) {
  SetColumn(1, 0, RowColHidden);
  Layout();
  PutText(0, 0, u"Bonjour tout le monde");
  Paint();
  // A1, then C1 and D1 up to x 172; B1 is hidden.
  EXPECT_EQ(CountText(canvas, u"Bonjour tout le monde"), 3);
  EXPECT_EQ(CellRect(0, 2).left, 80);
}

// What a typed entry changes on screen, repainted only where the entry invalidated, must match a
// whole paint: text that starts or stops overflowing reaches cells other than the one typed.
TEST_F(PaintTest, TypedEntriesRepaintWhatTheirOverflowTouches) {
  struct Step {
    uint32_t row, col;
    const char16_t* typed;
  };
  const Step steps[] = {
      {6, 0, u"Les ventes du premier trimestre"},  // overflows right over B7 to E7
      {1, 0, u"Un texte assez long"},
      {1, 1, u"12"},                        // stops A2's overflow and brings its gridline back
      {6, 0, u"x"},                         // the overflow of row 7 goes
      {9, 3, u"=A13"},                      // a formula showing text typed later
      {12, 0, u"Un résultat qui déborde"},  // D10 now overflows too
  };
  S()->flags |= SheetGridLines;
  Select(0, 0, 0, 0);
  Paint();
  TestState.invalidated.clear();
  for (const Step& step : steps) {
    SCOPED_TRACE(TextToUtf8(step.typed));
    SelectCell(step.row, step.col, 1);
    Type(step.typed);
    Enter();
    PaintInvalidated();
    std::vector<Colour> partial = canvas.pixels;
    Paint();
    int wrong = 0, firstX = -1, firstY = -1;
    for (int32_t y = 0; y < canvas.height; y++)
      for (int32_t x = 0; x < canvas.width; x++)
        if (partial[size_t(y) * canvas.width + x] != Pixel(x, y) && wrong++ == 0) {
          firstX = x;
          firstY = y;
        }
    EXPECT_EQ(wrong, 0) << "first stale pixel at " << firstX << "," << firstY;
    TestState.invalidated.clear();
  }
}

// Numbers, booleans and errors that do not fit show a row of "#" across the cell; text never.
TEST_F(PaintTest, NumbersThatDoNotFitShowHashes) {
  int32_t twoDecimals = FindNumberFormatById(book, 2);  // "0.00"
  ASSERT_GE(twoDecimals, 0);
  uint16_t xf = MakeXf([&](Xf& x) { x.numberFormat = static_cast<uint16_t>(twoDecimals); });
  struct Case {
    uint16_t width;  // 1/256 of a digit
    double value;
    int hashes;  // "#" drawn in the cell, or 0 when the number shows
  };
  const Case cases[] = {
      {2048, 123456789, 7},  // "123456789,00" needs 84 of 56 pixels: (56 - 3) / 7 copies
      {2048, 12.5, 0},
      {768, 12.5, 2},  // a 21 pixel column
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value);
    SetColumn(0, c.width);
    Layout();
    PutNumber(0, 0, c.value, xf);
    Paint();
    int32_t x = 0;
    EXPECT_EQ(CountText(canvas, u"#", &x), c.hashes);
    if (c.hashes) {
      EXPECT_EQ(x, 25);
    }
  }
  PutText(0, 0, u"123456789,00 et plus");
  SetColumn(0, 768);
  Layout();
  Paint();
  EXPECT_EQ(CountText(canvas, u"#"), 0);
}

// A merged range paints its text once, centred over the whole range, with no inner gridlines.
TEST_F(PaintTest, MergedCellIsPaintedOnce) {
  Sheet* s = S();
  s->merges = static_cast<Range*>(std::calloc(1, sizeof(Range)));
  s->merges[0] = Range{0, 1, 0, 2};  // A1:C2
  s->mergeCount = 1;
  uint16_t centred = MakeXf([](Xf& x) { x.horizontalAlign = 2; });
  PutText(0, 0, u"Titre", centred);
  Paint();
  int32_t x0 = -1, y0 = -1;
  ASSERT_GE(CountText(canvas, u"Titre", &x0, &y0), 1);
  for (const TestRecord& r : canvas.records)
    if (r.op == OpText && r.text == u"Titre") {
      EXPECT_EQ(r.x, x0);
      EXPECT_EQ(r.y, y0);
    }
  EXPECT_EQ(x0, 24 + (192 - 35 - 24 - 1) / 2);
  PlatformRect area{24, 14, 192, 48};
  EXPECT_EQ(CountPixels(area, Black), 5 * 5 * 9);  // five glyphs of 5 by 9 pixels
  EXPECT_EQ(Pixel(79, 20), White);
  EXPECT_EQ(Pixel(40, 30), White);
  EXPECT_EQ(Pixel(191, 20), GridGrey);
  EXPECT_EQ(Pixel(40, 47), GridGrey);
}

// Frozen rows and columns keep their place while the rest scrolls; black lines mark the split.
TEST_F(PaintTest, FrozenPanes) {
  Sheet* s = S();
  s->frozenRow = 2;
  s->frozenCol = 1;
  s->topRow = 10;
  s->leftCol = 5;
  s->flags |= SheetPanesFrozen;
  Layout();
  PutText(0, 0, u"coin");
  PutText(10, 5, u"F11");
  PutText(0, 5, u"F1");
  PutText(10, 0, u"A11");
  PutText(5, 2, u"cache");  // in neither pane
  Paint();
  struct Case {
    const char16_t* text;
    int32_t x, y;  // cell's top left
  };
  const Case cases[] = {{u"coin", 24, 14}, {u"F1", 80, 14}, {u"A11", 24, 48}, {u"F11", 80, 48}};
  for (const Case& c : cases) {
    int32_t x = 0, y = 0;
    EXPECT_EQ(CountText(canvas, c.text, &x, &y), 1) << TextToUtf8(c.text);
    EXPECT_EQ(x, c.x + 1);
    EXPECT_EQ(y, c.y + 17 - 13 - 1);
  }
  EXPECT_EQ(CountText(canvas, u"cache"), 0);
  EXPECT_EQ(Pixel(100, 47), Black) << "freeze line under row 2";
  EXPECT_EQ(Pixel(79, 100), Black) << "freeze line right of column A";
  char16_t name[3];
  FormatHeaderColumn(5, name);
  EXPECT_EQ(CountText(canvas, name), 1);
}

TEST_F(PaintTest, ZoomScalesCellsHeadersAndText) {
  struct Case {
    uint16_t zoom;
    PlatformRect a1;
    int32_t textX;
  };
  const Case cases[] = {
      // digit 4, header 7 + 1, row 9, characters 4 wide
      {50, {15, 8, 47, 17}, 47 - 2 - 4 * 4},
      {100, {24, 14, 80, 31}, 80 - 2 - 7 * 4},
      // digit 14, header 26 + 1, row 34, characters 15 wide
      {200, {45, 27, 157, 61}, 157 - 2 - 15 * 4},
  };
  PutNumber(0, 0, 7777);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.zoom);
    S()->zoom = c.zoom;
    Layout();
    PlatformRect a1 = CellRect(0, 0);
    EXPECT_EQ(a1.left, c.a1.left);
    EXPECT_EQ(a1.top, c.a1.top);
    EXPECT_EQ(a1.right, c.a1.right);
    EXPECT_EQ(a1.bottom, c.a1.bottom);
    Paint();
    int32_t x = 0;
    EXPECT_EQ(CountText(canvas, u"7777", &x), 1);
    EXPECT_EQ(x, c.textX);
  }
}

TEST_F(PaintTest, HiddenRowsAndColumnsTakeNoRoom) {
  SetRow(1, 255, RowColHidden);
  SetColumn(1, 2048, RowColHidden);
  Layout();
  PutText(1, 0, u"ligne");
  PutText(0, 1, u"colonne");
  PutText(2, 2, u"C3");
  Paint();
  EXPECT_EQ(CountText(canvas, u"ligne"), 0);
  EXPECT_EQ(CountText(canvas, u"colonne"), 0);
  int32_t x = 0, y = 0;
  EXPECT_EQ(CountText(canvas, u"C3", &x, &y), 1);
  EXPECT_EQ(x, 81);
  EXPECT_EQ(y, 31 + 3);
  EXPECT_EQ(CountText(canvas, u"B"), 0);
  EXPECT_EQ(CountText(canvas, u"2"), 0);
}

// The frame is drawn in XOR: three pixels thick across each boundary, each pixel inverted once;
// the cells of the selection other than the active one are inverted, so the frame shows white
// on them.
TEST_F(PaintTest, SelectionFrameIsXorAndContinuous) {
  S()->flags &= ~SheetGridLines;
  Select(1, 2, 1, 2);  // B2:C3, active B2
  Paint();
  PlatformRect b2 = CellRect(1, 1), c3 = CellRect(2, 2);
  struct Case {
    int32_t x, y;
    Colour colour;
  };
  const Case cases[] = {
      {b2.left + 10, b2.top - 2, Black},  // last two rows of B1
      {b2.left + 10, b2.top - 1, Black},
      {b2.left + 10, b2.top, Black},  // first row of B2
      {b2.left + 10, b2.top + 1, White},
      {b2.left, b2.top, Black},  // corners are inverted once, not twice
      {b2.left, b2.top + 5, Black},
      {b2.left - 1, b2.top + 5, Black},
      {c3.right - 1, c3.bottom - 1, White},
      {c3.right - 2, c3.bottom - 2, White},
      {c3.right, c3.bottom - 1, Black},   // first column of D3
      {c3.right - 1, c3.bottom, Black},   // first row of C4
      {c3.right, c3.bottom, White},       // outside both bands
      {b2.left + 10, b2.top + 8, White},  // the active cell is not inverted
      {c3.left + 10, c3.top + 8, Black},  // the others are
  };
  for (const Case& c : cases) EXPECT_EQ(Pixel(c.x, c.y), c.colour) << c.x << "," << c.y;
  // Painting the frame again over itself restores the white.
  for (const TestRecord& r : canvas.records)
    EXPECT_TRUE(r.op != OpFill || r.rop == RopCopy || r.colour == White);
}

// The active cell's row and column headers have black shadow lines and a bold name.
TEST_F(PaintTest, HeadersHighlightTheActiveCell) {
  Select(4, 4, 2, 2);  // C5
  Paint();
  PlatformRect c5 = CellRect(4, 2);
  struct Case {
    int32_t x, y;
    Colour colour;
  };
  const Case cases[] = {
      {c5.right - 1, 5, Black},    // column C header, right line
      {c5.left - 1, 5, Grey},      // column B header, right line
      {10, c5.bottom - 1, Black},  // row 5 header, bottom line
      {10, c5.top - 1, Grey},      // row 4 header, bottom line
      {c5.left, 0, White},         // boxes are lit on the left and top
  };
  for (const Case& c : cases) EXPECT_EQ(Pixel(c.x, c.y), c.colour) << c.x << "," << c.y;
}

TEST_F(PaintTest, CommentMarkAndTabs) {
  Sheet* s = S();
  s->comments = static_cast<CellComment*>(std::calloc(1, sizeof(CellComment)));
  s->comments[0] = CellComment{0, 1, nullptr};
  s->commentCount = 1;
  ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
  GetWorkbook(book)->currentSheet = 0;
  Paint();
  // Five lines, each one pixel shorter, against the top right corner; the gridline keeps the
  // cell's last column.
  PlatformRect b1 = CellRect(0, 1);
  for (int32_t i = 0; i < 5; i++) {
    EXPECT_EQ(Pixel(b1.right - 6 + i, b1.top + i), White);
    EXPECT_EQ(Pixel(b1.right - 5 + i, b1.top + i), i < 4 ? MarkRed : GridGrey);
    EXPECT_EQ(Pixel(b1.right - 1, b1.top + i), GridGrey);
  }
  EXPECT_EQ(CountText(canvas, S()->name), 1);
  EXPECT_EQ(CountText(canvas, GetSheet(book, 1)->name), 1);
}

// Where a value starts in B2 (x 80..135) by its type and horizontal alignment, and which line a
// wrapped text breaks at.
TEST_F(PaintTest, TextIsPlacedByTypeAndAlignment) {
  struct Case {
    bool number;
    uint8_t align;
    int32_t x;
  };
  // "1234" and "abcd" are 28 pixels wide.
  const Case cases[] = {
      {true, 0, 136 - 28 - 2},  {true, 1, 81},  {true, 2, 80 + (136 - 28 - 80 - 1) / 2},
      {true, 3, 136 - 28 - 2},  {false, 0, 81}, {false, 2, 80 + (136 - 28 - 80 - 1) / 2},
      {false, 3, 136 - 28 - 2}, {false, 1, 81},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << (c.number ? "number" : "text") << " align " << int(c.align));
    uint16_t xf = MakeXf([&](Xf& x) { x.horizontalAlign = c.align; });
    if (c.number)
      PutNumber(1, 1, 1234, xf);
    else
      PutText(1, 1, u"abcd", xf);
    Paint();
    int32_t x = 0;
    EXPECT_EQ(CountText(canvas, c.number ? u"1234" : u"abcd", &x), 1);
    EXPECT_EQ(x, c.x);
  }
  uint16_t wrapped = MakeXf([](Xf& x) { x.flags |= XfWrap; });
  SetRow(1, 1020);  // 68 pixels: room for several lines
  Layout();
  PutText(1, 1, u"un deux trois", wrapped);  // 53 pixels of room: "un deux" fits, not more
  Paint();
  int32_t x = 0, y1 = 0, y2 = 0;
  EXPECT_EQ(CountText(canvas, u"un deux", &x, &y1), 1);
  EXPECT_EQ(CountText(canvas, u"trois", &x, &y2), 1);
  EXPECT_EQ(y2 - y1, TestLineHeight);
  EXPECT_EQ(x, 81);
}
