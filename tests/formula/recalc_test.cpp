// Tests of recalculation: precedents built from tokens, marking of dependents across sheets and
// open workbooks (checked against a plain restart scan on random workbooks), and the calculation
// walk: chains, diamonds, cycles, blanks and display text.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/recalc.h"
#include "formula/token_builder.h"
#include "functions/table.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

// A cell put in place without StoreCell, so that marking can be tested without calculating.
Cell* PutCell(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col) {
  CellArray* a = &GetSheet(book, sheet)->cells;
  uint32_t index;
  if (FindCell(a, row, col, &index)) {
    ClearCellContents(a->cells[index]);
    return a->cells[index];
  }
  if (!GrowArray(&a->cells, &a->capacity, a->count + 1, CellArrayStep)) return nullptr;
  std::memmove(&a->cells[index + 1], &a->cells[index], (a->count - index) * sizeof(Cell*));
  Cell* c = static_cast<Cell*>(Allocate(sizeof(Cell)));
  c->row = static_cast<uint16_t>(row);
  c->col = static_cast<uint8_t>(col);
  a->cells[index] = c;
  a->count++;
  return c;
}

Cell* PutFormula(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col,
                 const TokenBuilder& tokens, uint8_t state = CellCalculated) {
  Cell* c = PutCell(book, sheet, row, col);
  c->formula = tokens.Build();
  EXPECT_TRUE(BuildPrecedents(book, sheet, c));
  c->state = state;
  return c;
}

Cell* PutNumber(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col, double n) {
  Cell* c = PutCell(book, sheet, row, col);
  c->value = NumberValue(n);
  c->state = CellCalculated;
  return c;
}

Cell* At(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col) {
  return CellAt(&GetSheet(book, sheet)->cells, row, col);
}

int32_t Link(uint32_t from, uint32_t to, int32_t first, int32_t last) {
  LinkRequest request{from, to, first, last};
  int32_t link = -1;
  EXPECT_TRUE(FindOrAddLink(&request, &link));
  return link;
}

using CellKey = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>;  // book, sheet, row, col

// Every stored cell of every open workbook, in scan order, with its place.
std::vector<std::pair<CellKey, Cell*>> AllCells() {
  std::vector<std::pair<CellKey, Cell*>> out;
  for (uint32_t b = 0; b < App.workbookCount; b++)
    for (uint32_t s = 0; s < GetWorkbook(b)->sheetCount; s++) {
      const CellArray* a = &GetSheet(b, s)->cells;
      for (uint32_t i = 0; i < a->count; i++)
        out.push_back({{b, s, a->cells[i]->row, a->cells[i]->col}, a->cells[i]});
    }
  return out;
}

std::set<CellKey> DirtyCells() {
  std::set<CellKey> out;
  for (const auto& [key, cell] : AllCells())
    if (cell->state == CellDirty) out.insert(key);
  return out;
}

// The marking as first described: one frame per changed range, and after each mark the scan
// starts again from the first cell of the first workbook.
void ReferencePropagate(uint32_t book, uint32_t sheet, Range range) {
  struct Frame {
    uint32_t book, sheet;
    Range range;
  };
  std::vector<Frame> stack{{book, sheet, range}};
  while (!stack.empty()) {
    Frame top = stack.back();
    bool marked = false;
    for (uint32_t b = 0; b < App.workbookCount && !marked; b++)
      for (uint32_t s = 0; s < GetWorkbook(b)->sheetCount && !marked; s++) {
        if (GetSheet(b, s)->kind != SheetWorksheet) continue;
        const CellArray* a = &GetSheet(b, s)->cells;
        for (uint32_t i = 0; i < a->count && !marked; i++) {
          Cell* c = a->cells[i];
          if (!c->formula.bytes || c->state == CellDirty) continue;
          bool reads = c->isVolatile != 0;
          for (uint32_t p = 0; p < c->precedentCount && !reads; p++) {
            ResolvedLink link{b, b, static_cast<int32_t>(s), static_cast<int32_t>(s)};
            if (c->precedents[p].linkIndex >= 0 && !ResolveLink(c->precedents[p].linkIndex, &link))
              continue;
            Range overlap;
            reads = link.book == top.book && link.firstSheet <= static_cast<int32_t>(top.sheet) &&
                    static_cast<int32_t>(top.sheet) <= link.lastSheet &&
                    IntersectRanges(&c->precedents[p].range, &top.range, &overlap);
          }
          if (!reads) continue;
          c->state = CellDirty;
          stack.push_back({b, s, {c->row, c->row, c->col, c->col}});
          marked = true;
        }
      }
    if (!marked) stack.pop_back();
  }
}

std::vector<std::pair<uint32_t, Range>> invalidated;
void RecordInvalidation(uint32_t, uint32_t sheet, const Range* range) {
  invalidated.push_back({sheet, *range});
}

// Test functions in place of the real table: a counter that tells how often a formula ran, and
// a stand-in for ALEA that gives a new number each time.
int evaluations = 0;
void CountingIdentity(Value* args, Value* result, const EvalContext*) {
  evaluations++;
  *result = args[0];
  args[0] = Value{};
}
double nextRandom = 0;
void FakeRandom(Value*, Value* result, const EvalContext*) {
  *result = NumberValue(++nextRandom);
}
constexpr uint16_t CountingId = 200;
constexpr uint16_t RandomId = 63;
const FunctionEntry testFunctions[] = {
    {u"ALEA", "", FakeRandom, RandomId, u""},
    {u"COMPTER.ICI", "V", CountingIdentity, CountingId, u""},
};
const FunctionTables testTables = {testFunctions, 2, nullptr, 0};

struct RecalcTest : testing::Test {
  uint32_t book = 0;
  void SetUp() override {
    CloseAllWorkbooks();
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    SetFunctionTables(&testTables);
    evaluations = 0;
    invalidated.clear();
  }
  void TearDown() override {
    SetInvalidateRangeHook(nullptr);
    SetFunctionTables(nullptr);
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
  }
  // Stores through the cell store, which calculates the cell and marks its readers.
  Cell* Store(uint32_t row, uint32_t col, const TokenBuilder& tokens, uint32_t sheet = 0) {
    Cell proto{};
    proto.row = static_cast<uint16_t>(row);
    proto.col = static_cast<uint8_t>(col);
    proto.formula = tokens.Build();
    EXPECT_TRUE(StoreCell(book, sheet, &proto, 1, 0));
    return At(book, sheet, row, col);
  }
  Cell* StoreValue(uint32_t row, uint32_t col, Value v, uint32_t sheet = 0) {
    Cell proto{};
    proto.row = static_cast<uint16_t>(row);
    proto.col = static_cast<uint8_t>(col);
    proto.value = v;
    EXPECT_TRUE(StoreCell(book, sheet, &proto, 1, 0));
    return At(book, sheet, row, col);
  }
};

struct RecalcPrecedentsTest : RecalcTest {};
struct RecalcMarkingTest : RecalcTest {};
struct RecalcCalculateTest : RecalcTest {};

TokenBuilder Plus(const TokenBuilder& a, const TokenBuilder& b) {
  TokenBuilder t;
  return t.Append(a).Append(b).Op(ptgAdd);
}

TEST_F(RecalcPrecedentsTest, TokensGivePrecedentsAndVolatility) {
  ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
  ASSERT_TRUE(InsertSheet(book, 2, nullptr, SheetMacro, 0, 0));
  int32_t link = Link(book, book, 1, 1);
  uint16_t toSheet2 = static_cast<uint16_t>(link);
  // Names 1 and 2: a worksheet cell and a macro sheet cell.
  for (auto [text, tokens] :
       {std::pair{u"Taux", TokenBuilder().Ref(0, 0)},
        std::pair{u"Boucle", TokenBuilder().Ref3d(static_cast<uint16_t>(Link(book, book, 2, 2)), 0,
                                                  0, ClassReference)}}) {
    DefinedName name{};
    name.name = TextDuplicate(text);
    name.formula = tokens.Build();
    ASSERT_TRUE(AddName(book, &name, nullptr));
  }
  // A sheet link to an add-in book entry of its own.
  Workbook* wb = GetWorkbook(book);
  uint16_t addIn = static_cast<uint16_t>(Link(book, book, 0, 0));
  uint32_t capacity = wb->externalBookCount;
  ASSERT_TRUE(GrowArray(&wb->externalBooks, &capacity, capacity + 1, 1));
  wb->externalBooks[wb->externalBookCount] = ExternalBook{};
  wb->externalBooks[wb->externalBookCount].kind = ExternalAddIn;
  wb->sheetLinks[addIn].bookIndex = static_cast<int16_t>(wb->externalBookCount++);

  const Range a1{0, 0, 0, 0}, c3{2, 2, 2, 2}, colA{0, 65535, 0, 0}, b2d4{1, 3, 1, 3};
  struct Case {
    const char* what;
    TokenBuilder tokens;
    int isVolatile;
    std::vector<Precedent> precedents;
  } cases[] = {
      {"cell", Plus(TokenBuilder().Ref(2, 2), TokenBuilder().Int(1)), 0, {{-1, c3}}},
      {"same cell twice, any class",
       Plus(TokenBuilder().Ref(0, 0, ClassValue), TokenBuilder().Ref(0, 0, ClassArray)),
       0,
       {{-1, a1}}},
      {"whole column", TokenBuilder().Area(0, 65535, 0, 0).Sum(), 0, {{-1, colA}}},
      {"area, then cell after a string",
       TokenBuilder().Area(1, 3, 1, 3).Str(u"abc").Op(ptgConcat).Ref(2, 2).Op(ptgAdd),
       0,
       {{-1, b2d4}, {-1, c3}}},
      {"3d cell and area",
       Plus(TokenBuilder().Ref3d(toSheet2, 0, 0), TokenBuilder().Area3d(toSheet2, 1, 3, 1, 3)),
       0,
       {{link, a1}, {link, b2d4}}},
      {"ALEA", TokenBuilder().Func(63), 1, {}},
      {"MAINTENANT", TokenBuilder().Func(74), 1, {}},
      {"AUJOURDHUI written variadic", TokenBuilder().FuncVar(221, 0), 1, {}},
      {"INFO", TokenBuilder().Str(u"x").Func(244), 1, {}},
      {"DECALER keeps its precedents",
       TokenBuilder().Ref(0, 0, ClassReference).Int(1).Int(1).FuncVar(78, 3),
       1,
       {{-1, a1}}},
      {"CELLULE", TokenBuilder().Str(u"x").FuncVar(125, 1), 1, {}},
      {"INDIRECT written fixed", TokenBuilder().Str(u"A1").Func(148), 1, {}},
      {"SOUS.TOTAL", TokenBuilder().Int(9).Area(1, 3, 1, 3).FuncVar(344, 2), 1, {{-1, b2d4}}},
      {"other function", TokenBuilder().Ref(2, 2).Func(15), 0, {{-1, c3}}},
      {"range operator",
       TokenBuilder().Ref(0, 0, ClassReference).Ref(2, 2, ClassReference).Op(ptgRange),
       1,
       {{-1, a1}, {-1, c3}}},
      {"volatile attribute alone", TokenBuilder().Attr(AttrVolatile).Int(1), 0, {}},
      {"defined name", TokenBuilder().Name(1), 1, {}},
      {"name of a macro sheet cell", TokenBuilder().Name(2), 0, {}},
      {"name index out of range", TokenBuilder().Name(9), 1, {}},
      {"name of another book", TokenBuilder().NameX(toSheet2, 1), 1, {}},
      {"add-in function", TokenBuilder().NameX(addIn, 1), 0, {}},
      {"deleted references", Plus(TokenBuilder().RefErr(), TokenBuilder().Int(2)), 0, {}},
  };
  for (const Case& c : cases) {
    Cell* cell = PutFormula(book, 0, 9, 9, c.tokens);
    EXPECT_EQ(cell->isVolatile, c.isVolatile) << c.what;
    ASSERT_EQ(cell->precedentCount, c.precedents.size()) << c.what;
    for (size_t i = 0; i < c.precedents.size(); i++) {
      int32_t got = cell->precedents[i].linkIndex, want = c.precedents[i].linkIndex;  // packed
      EXPECT_EQ(got, want) << c.what;
      EXPECT_TRUE(EqualRanges(&cell->precedents[i].range, &c.precedents[i].range)) << c.what;
    }
  }
  // Cells of a macro sheet take no part.
  Cell* macro = PutFormula(book, 2, 0, 0, Plus(TokenBuilder().Ref(1, 1), TokenBuilder().Func(63)));
  EXPECT_EQ(macro->precedentCount, 0u);
  EXPECT_EQ(macro->isVolatile, 0);
}

TEST_F(RecalcPrecedentsTest, ArrayGrowsByTwoAndIsKeptOnRebuild) {
  Cell* cell = PutFormula(
      book, 0, 9, 0,
      Plus(Plus(TokenBuilder().Ref(0, 0), TokenBuilder().Ref(1, 0)), TokenBuilder().Ref(2, 0)));
  EXPECT_EQ(cell->precedentCount, 3u);
  EXPECT_EQ(cell->precedentCapacity, 4u);
  Precedent* kept = cell->precedents;
  FreeTokens(&cell->formula);
  cell->formula = TokenBuilder().Ref(5, 5).Build();
  ASSERT_TRUE(BuildPrecedents(book, 0, cell));
  EXPECT_EQ(cell->precedentCount, 1u);
  EXPECT_EQ(cell->precedents, kept);
  EXPECT_EQ(cell->precedents[0].range.firstRow, 5);

  // Lost memory is a zero return: five precedents do not fit the four entries.
  TokenBuilder five = TokenBuilder().Ref(0, 0);
  for (uint16_t row = 1; row < 5; row++) five = Plus(five, TokenBuilder().Ref(row, 0));
  FreeTokens(&cell->formula);
  cell->formula = five.Build();
  SetAllocationFailureAfter(0);
  EXPECT_EQ(BuildPrecedents(book, 0, cell), 0);
  SetAllocationFailureAfter(-1);
}

TEST_F(RecalcMarkingTest, ChainStopsAtAnAlreadyDirtyCell) {
  PutNumber(book, 0, 0, 0, 1);
  for (uint32_t row = 1; row < 6; row++)
    PutFormula(book, 0, row, 0, TokenBuilder().Ref(row - 1, 0));
  MarkDependents(book, 0, At(book, 0, 0, 0), 0);
  EXPECT_EQ(
      DirtyCells(),
      (std::set<CellKey>{{0, 0, 1, 0}, {0, 0, 2, 0}, {0, 0, 3, 0}, {0, 0, 4, 0}, {0, 0, 5, 0}}));

  // A cell that is already dirty is not followed: its readers were marked with it.
  for (uint32_t row = 1; row < 6; row++) At(book, 0, row, 0)->state = CellCalculated;
  At(book, 0, 3, 0)->state = CellDirty;
  MarkDependents(book, 0, At(book, 0, 0, 0), 1);
  EXPECT_EQ(DirtyCells(),
            (std::set<CellKey>{{0, 0, 0, 0}, {0, 0, 1, 0}, {0, 0, 2, 0}, {0, 0, 3, 0}}));
}

TEST_F(RecalcMarkingTest, AreasWholeColumnsSheetsAndWorkbooks) {
  ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
  ASSERT_TRUE(InsertSheet(book, 2, nullptr, SheetMacro, 0, 0));
  uint32_t other = 0;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &other));
  uint16_t toSheet1 = static_cast<uint16_t>(Link(book, book, 0, 0));
  uint16_t toSheet2 = static_cast<uint16_t>(Link(book, book, 1, 1));
  uint16_t bothSheets = static_cast<uint16_t>(Link(book, book, 0, 1));
  uint16_t toFirstBook = static_cast<uint16_t>(Link(other, book, 0, 0));

  PutFormula(book, 0, 0, 1, TokenBuilder().Area(0, 65535, 0, 0).Sum());  // B1 = SUM(A:A)
  PutFormula(book, 0, 1, 1, TokenBuilder().Area(10, 20, 2, 3).Sum());    // B2 = SUM(C11:D21)
  PutFormula(book, 1, 0, 0, TokenBuilder().Ref3d(toSheet1, 0, 1));       // Feuille2!A1 = B1
  PutFormula(book, 1, 1, 0, TokenBuilder().Area3d(bothSheets, 40000, 40000, 0, 0).Sum());
  PutFormula(book, 0, 5, 5, TokenBuilder().Ref3d(toSheet2, 0, 0));  // F6 = Feuille2!A1
  PutFormula(other, 0, 0, 0, TokenBuilder().Ref3d(toFirstBook, 0, 1));
  PutFormula(other, 0, 1, 0, TokenBuilder().Ref(0, 0));
  // A macro sheet cell is never marked, even with a precedent that a change reaches.
  Cell* macro = PutFormula(book, 2, 0, 0, TokenBuilder().Int(1));
  ASSERT_TRUE(GrowArray(&macro->precedents, &macro->precedentCapacity, 1, 2));
  macro->precedents[0] = Precedent{toSheet1, Range{59999, 59999, 0, 0}};
  macro->precedentCount = 1;

  struct {
    const char* what;
    uint32_t sheet, row, col;
    std::set<CellKey> dirty;
  } cases[] = {
      {"whole column, then on through both sheets and the other book",
       0,
       59999,
       0,
       {{0, 0, 0, 1}, {0, 1, 0, 0}, {0, 0, 5, 5}, {1, 0, 0, 0}, {1, 0, 1, 0}}},
      {"corner of an area", 0, 20, 3, {{0, 0, 1, 1}}},
      {"just below the area", 0, 21, 3, {}},
      {"3d span, second sheet", 1, 40000, 0, {{0, 1, 1, 0}}},
      {"the macro sheet is read by nobody", 2, 0, 1, {}},
  };
  for (const auto& c : cases) {
    MarkDependents(book, c.sheet, PutNumber(book, c.sheet, c.row, c.col, 1), 0);
    EXPECT_EQ(DirtyCells(), c.dirty) << c.what;
    for (CellKey k : DirtyCells())
      At(std::get<0>(k), std::get<1>(k), std::get<2>(k), std::get<3>(k))->state = CellCalculated;
  }
  EXPECT_EQ(macro->state, CellCalculated);
}

TEST_F(RecalcMarkingTest, VolatileCellsFollowAnyChangeAnywhere) {
  uint32_t other = 0;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &other));
  ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetMacro, 0, 0));
  Cell* random = PutFormula(book, 0, 3, 3, TokenBuilder().Func(RandomId));
  Cell* reader = PutFormula(book, 0, 4, 3, TokenBuilder().Ref(3, 3));
  Cell* macroRandom = PutFormula(book, 1, 0, 0, TokenBuilder().Func(RandomId));
  macroRandom->isVolatile = 1;
  Cell* unrelated = PutNumber(other, 0, 100, 100, 5);
  MarkDependents(other, 0, unrelated, 0);
  EXPECT_EQ(random->state, CellDirty);
  EXPECT_EQ(reader->state, CellDirty);
  EXPECT_EQ(macroRandom->state, CellCalculated);

  // RefreshVolatiles marks them again, and what reads them, and nothing else.
  random->state = reader->state = CellCalculated;
  Cell* plain = PutFormula(book, 0, 5, 5, TokenBuilder().Ref(0, 0));
  App.currentBook = book;
  RefreshVolatiles();
  EXPECT_EQ(random->state, CellDirty);
  EXPECT_EQ(reader->state, CellDirty);
  EXPECT_EQ(plain->state, CellCalculated);
}

TEST_F(RecalcMarkingTest, DeletingACellMarksItsReaders) {
  PutNumber(book, 0, 0, 0, 1);
  Cell* reader = PutFormula(book, 0, 0, 1, TokenBuilder().Ref(0, 0));
  Range a1{0, 0, 0, 0};
  ClearCellsInRange(book, 0, &a1);
  EXPECT_EQ(reader->state, CellDirty);
  EXPECT_EQ(At(book, 0, 0, 0), nullptr);
}

TEST_F(RecalcMarkingTest, InvalidatesOnlyTheSheetOnShow) {
  ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
  int32_t toSheet1 = Link(book, book, 0, 0);
  GetWorkbook(book)->currentSheet = 0;
  SetInvalidateRangeHook(RecordInvalidation);
  PutFormula(book, 0, 0, 1, TokenBuilder().Ref(0, 0));
  PutFormula(book, 1, 0, 0, TokenBuilder().Ref3d(static_cast<uint16_t>(toSheet1), 0, 1));
  PutFormula(book, 0, 2, 2,
             TokenBuilder().Ref3d(static_cast<uint16_t>(Link(book, book, 1, 1)), 0, 0));
  MarkDependents(book, 0, PutNumber(book, 0, 0, 0, 1), 0);
  // A1 itself, B1 and C3 on the sheet on show; Feuille2!A1 lies elsewhere.
  ASSERT_EQ(invalidated.size(), 3u);
  std::set<std::pair<uint32_t, uint32_t>> cells;
  for (const auto& [sheet, r] : invalidated) {
    EXPECT_EQ(sheet, 0u);
    cells.insert({r.firstRow, r.firstCol});
  }
  EXPECT_EQ(cells, (std::set<std::pair<uint32_t, uint32_t>>{{0, 0}, {0, 1}, {2, 2}}));

  invalidated.clear();
  RecalculateWorkbook();
  ASSERT_EQ(invalidated.size(), 1u);
  EXPECT_EQ(invalidated[0].second.lastRow, MaxRow);
  EXPECT_EQ(invalidated[0].second.lastCol, MaxCol);
}

TEST_F(RecalcMarkingTest, BulkDirtyingOfASheetDoesNotScan) {
  // As a file load does: every formula of the sheet at once, nothing on other sheets, constants
  // untouched; RecalculateWorkbook does it for every worksheet and no macro sheet.
  ASSERT_TRUE(InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0));
  ASSERT_TRUE(InsertSheet(book, 2, nullptr, SheetMacro, 0, 0));
  int32_t toSheet1 = Link(book, book, 0, 0);
  Cell* constant = PutNumber(book, 0, 0, 0, 1);
  for (uint32_t row = 1; row < 50; row++)
    PutFormula(book, 0, row, 0, TokenBuilder().Ref(row - 1, 0));
  Cell* elsewhere =
      PutFormula(book, 1, 0, 0, TokenBuilder().Ref3d(static_cast<uint16_t>(toSheet1), 5, 0));
  Cell* macro = PutFormula(book, 2, 0, 0, TokenBuilder().Int(1));
  App.currentBook = book;
  DirtySheet(0);
  EXPECT_EQ(DirtyCells().size(), 49u);
  EXPECT_EQ(constant->state, CellCalculated);
  EXPECT_EQ(elsewhere->state, CellCalculated);
  DirtySheet(2);
  EXPECT_EQ(macro->state, CellCalculated);
  RecalculateWorkbook();
  EXPECT_EQ(DirtyCells().size(), 50u);
  EXPECT_EQ(macro->state, CellCalculated);
}

// Random workbooks: two open books of three sheets, the middle one of the first a macro sheet.
// Formulas read the cell above, random cells, areas and whole columns of their own sheet, of
// another sheet, of all sheets at once and of the other book; some are volatile, some cells
// start dirty. Every change must mark exactly what the restart scan marks.
struct RandomWorld {
  std::mt19937 random{20260611};
  uint32_t Below(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(random); }
  static constexpr uint32_t Rows = 24, Cols = 6;

  TokenBuilder Operand(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col) {
    TokenBuilder t;
    uint32_t r = Below(Rows), c = Below(Cols), kind = Below(20);
    if (kind < 7 && row > 0)
      return t.Ref(static_cast<uint16_t>(row - 1), static_cast<uint8_t>(col));
    if (kind < 11) return t.Ref(static_cast<uint16_t>(r), static_cast<uint8_t>(c));
    if (kind < 13)
      return t.Area(static_cast<uint16_t>(r), static_cast<uint16_t>(r + Below(4)),
                    static_cast<uint8_t>(c), static_cast<uint8_t>(c + Below(2)));
    if (kind == 13) return t.Area(0, 65535, static_cast<uint8_t>(c), static_cast<uint8_t>(c));
    if (kind == 14) return t.Func(RandomId);
    uint32_t otherBook = 1 - book;
    int32_t link;
    if (kind < 16)
      link = Link(book, book, sheet == 0 ? 2 : 0, sheet == 0 ? 2 : 0);
    else if (kind == 16)
      link = Link(book, book, 1, 1);
    else if (kind < 19)
      link = Link(book, book, 0, static_cast<int32_t>(GetWorkbook(book)->sheetCount) - 1);
    else
      link = Link(book, otherBook, 0, 0);
    if (Below(2))
      return t.Ref3d(static_cast<uint16_t>(link), static_cast<uint16_t>(r),
                     static_cast<uint8_t>(c));
    return t.Area3d(static_cast<uint16_t>(link), static_cast<uint16_t>(r),
                    static_cast<uint16_t>(r + Below(6)), static_cast<uint8_t>(c),
                    static_cast<uint8_t>(c));
  }

  void Fill(uint32_t book, uint32_t sheet) {
    for (uint32_t row = 0; row < Rows; row++)
      for (uint32_t col = 0; col < Cols; col++) {
        uint32_t what = Below(10);
        if (what < 2) continue;
        if (what < 4) {
          PutNumber(book, sheet, row, col, row);
          continue;
        }
        TokenBuilder t = Operand(book, sheet, row, col);
        for (uint32_t n = Below(3); n > 0; n--) t = Plus(t, Operand(book, sheet, row, col));
        PutFormula(book, sheet, row, col, t);
      }
  }

  void Scramble() {
    for (const auto& [key, c] : AllCells()) {
      uint32_t roll = Below(10);
      c->state = !c->formula.bytes ? CellCalculated
                 : roll < 2        ? CellDirty
                 : roll < 3        ? CellShown
                                   : CellCalculated;
    }
  }
};

TEST_F(RecalcMarkingTest, SameCellsAsTheRestartScanOnRandomWorkbooks) {
  RandomWorld world;
  uint32_t longChanges = 0, changes = 0;
  for (int round = 0; round < 8; round++) {
    CloseAllWorkbooks();
    uint32_t b0 = 0, b1 = 0;
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &b0));
    ASSERT_TRUE(InsertSheet(b0, 1, nullptr, SheetMacro, 0, 0));
    ASSERT_TRUE(InsertSheet(b0, 2, nullptr, SheetWorksheet, 0, 0));
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &b1));
    ASSERT_TRUE(InsertSheet(b1, 1, nullptr, SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(b1, 2, nullptr, SheetWorksheet, 0, 0));
    for (uint32_t b : {b0, b1})
      for (uint32_t s = 0; s < 3; s++) world.Fill(b, s);

    for (int change = 0; change < 30; change++) {
      world.Scramble();
      uint32_t b = world.Below(2), s = world.Below(3);
      const CellArray* cells = &GetSheet(b, s)->cells;
      Cell* cell = cells->count ? cells->cells[world.Below(cells->count)] : nullptr;
      int markSelf = static_cast<int>(world.Below(2));
      Range range{};
      if (!cell || world.Below(3) == 0) {
        uint16_t r = static_cast<uint16_t>(world.Below(RandomWorld::Rows));
        uint8_t c = static_cast<uint8_t>(world.Below(RandomWorld::Cols));
        range = Range{r, static_cast<uint16_t>(r + world.Below(3)), c, c};
        if (world.Below(4) == 0) range = Range{0, 65535, c, c};
        cell = nullptr;
      }

      std::vector<uint8_t> before;
      for (const auto& [key, c] : AllCells()) before.push_back(c->state);
      size_t initiallyDirty = DirtyCells().size();

      if (cell) {
        if (markSelf && GetSheet(b, s)->kind == SheetWorksheet) cell->state = CellDirty;
        ReferencePropagate(b, s, Range{cell->row, cell->row, cell->col, cell->col});
      } else {
        ReferencePropagate(b, s, range);
      }
      std::set<CellKey> expected = DirtyCells();

      size_t k = 0;
      for (const auto& [key, c] : AllCells()) c->state = before[k++];

      if (cell)
        MarkDependents(b, s, cell, markSelf);
      else
        PropagateDirty(b, s, &range);
      ASSERT_EQ(DirtyCells(), expected) << "round " << round << " change " << change;
      changes++;
      if (expected.size() > initiallyDirty + 40) longChanges++;
    }
  }
  // Both the plain scans and the index behind them must have had work to do.
  EXPECT_GT(longChanges, changes / 4);
}

// Calculation. These run the evaluator on hand-written tokens.

TEST_F(RecalcCalculateTest, ChainAndDiamond) {
  StoreValue(0, 0, NumberValue(1));
  for (uint32_t row = 1; row < 100; row++)
    Store(row, 0, Plus(TokenBuilder().Ref(row - 1, 0), TokenBuilder().Int(1)));
  EXPECT_EQ(At(book, 0, 99, 0)->value.number, 100);

  // A1 -> B1, C1 -> D1: after a change D1 brings up both branches and each cell runs once.
  StoreValue(0, 0, NumberValue(2));
  Store(0, 1, TokenBuilder().Ref(0, 0).Func(CountingId));
  Store(0, 2, TokenBuilder().Ref(0, 0).Func(CountingId));
  Store(0, 3, Plus(TokenBuilder().Ref(0, 1), TokenBuilder().Ref(0, 2)).Func(CountingId));
  EXPECT_EQ(At(book, 0, 0, 3)->value.number, 4);
  StoreValue(0, 0, NumberValue(5));
  for (uint32_t col = 1; col <= 3; col++) EXPECT_EQ(At(book, 0, 0, col)->state, CellDirty);
  evaluations = 0;
  ASSERT_TRUE(CalculateCell(book, 0, At(book, 0, 0, 3)));
  EXPECT_EQ(evaluations, 3);
  EXPECT_EQ(At(book, 0, 0, 3)->value.number, 10);
  for (uint32_t col = 1; col <= 3; col++) EXPECT_EQ(At(book, 0, 0, col)->state, CellCalculated);
  // The chain in column A was marked by the change of A1 and comes up on demand.
  EXPECT_EQ(At(book, 0, 50, 0)->state, CellDirty);
  ASSERT_TRUE(CalculateCell(book, 0, At(book, 0, 99, 0)));
  EXPECT_EQ(At(book, 0, 99, 0)->value.number, 104);
}

TEST_F(RecalcCalculateTest, LongChainIsMarkedAndCalculatedOnTheHeap) {
  // A1 to A65536, each reading the cell above: a change of A1 marks all the rest, and the last
  // one brings all of them up without deep recursion.
  PutNumber(book, 0, 0, 0, 1);
  for (uint32_t row = 1; row <= MaxRow; row++)
    PutFormula(book, 0, row, 0, Plus(TokenBuilder().Ref(row - 1, 0), TokenBuilder().Int(1)));
  MarkDependents(book, 0, At(book, 0, 0, 0), 0);
  EXPECT_EQ(DirtyCells().size(), 65535u);
  Cell* last = At(book, 0, MaxRow, 0);
  ASSERT_TRUE(CalculateCell(book, 0, last));
  EXPECT_EQ(last->value.number, 65536);
  EXPECT_TRUE(DirtyCells().empty());
  EXPECT_EQ(GetWorkbook(book)->circularHit, 0);
}

TEST_F(RecalcCalculateTest, LostMemoryStopsTheWalkCleanly) {
  // The stack holds sixteen frames before it first grows; when it cannot, the walk stops with
  // the cells on the stack left calculating, and a later mark and calculation put them right.
  PutNumber(book, 0, 0, 0, 1);
  for (uint32_t row = 1; row < 40; row++)
    PutFormula(book, 0, row, 0, Plus(TokenBuilder().Ref(row - 1, 0), TokenBuilder().Int(1)),
               CellDirty);
  Cell* last = At(book, 0, 39, 0);
  SetAllocationFailureAfter(1);
  EXPECT_EQ(CalculateCell(book, 0, last), 1);
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(last->state, CellCalculating);
  EXPECT_EQ(At(book, 0, 24, 0)->state, CellCalculating);
  EXPECT_EQ(At(book, 0, 23, 0)->state, CellDirty);

  // Marking without memory for its stack still marks the direct readers.
  App.currentBook = book;
  DirtySheet(0);
  ASSERT_TRUE(CalculateCell(book, 0, last));
  EXPECT_EQ(last->value.number, 40);
  SetAllocationFailureAfter(0);
  MarkDependents(book, 0, At(book, 0, 0, 0), 0);
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(At(book, 0, 1, 0)->state, CellDirty);
  ASSERT_TRUE(CalculateCell(book, 0, last));
}

TEST_F(RecalcCalculateTest, CyclesSettleInOnePass) {
  // A1 = A1: storing it calculates it, and its own change then marks it again, since it reads
  // the cell that changed.
  Cell* self = Store(0, 0, TokenBuilder().Ref(0, 0));
  EXPECT_EQ(self->state, CellDirty);
  EXPECT_EQ(GetWorkbook(book)->circularHit, 1);
  GetWorkbook(book)->circularHit = 0;
  ASSERT_TRUE(CalculateCell(book, 0, self));
  EXPECT_EQ(self->state, CellCalculated);
  EXPECT_EQ(self->value.tag, ValueNumber);
  EXPECT_EQ(self->value.number, 0);
  EXPECT_EQ(GetWorkbook(book)->circularHit, 1);

  // B1 = C1 + 1, C1 = B1 + 1: calculating B1 cuts the loop at B1, whose value C1 reads as it
  // stands, since B1 is released only when its own turn comes.
  GetWorkbook(book)->circularHit = 0;
  Cell* b1 =
      PutFormula(book, 0, 0, 1, Plus(TokenBuilder().Ref(0, 2), TokenBuilder().Int(1)), CellDirty);
  Cell* c1 =
      PutFormula(book, 0, 0, 2, Plus(TokenBuilder().Ref(0, 1), TokenBuilder().Int(1)), CellDirty);
  b1->value = NumberValue(40);
  ASSERT_TRUE(CalculateCell(book, 0, b1));
  EXPECT_EQ(c1->value.number, 41);
  EXPECT_EQ(b1->value.number, 42);
  EXPECT_EQ(b1->state, CellCalculated);
  EXPECT_EQ(c1->state, CellCalculated);
  EXPECT_EQ(GetWorkbook(book)->circularHit, 1);
}

TEST_F(RecalcCalculateTest, BlankResultIsZeroAndVolatilesRecalculate) {
  Cell* blank = Store(0, 1, TokenBuilder().Ref(0, 0));
  EXPECT_EQ(blank->value.tag, ValueNumber);
  ASSERT_TRUE(EnsureCellText(book, 0, blank));
  EXPECT_EQ(TextToUtf8(blank->text), "0");
  EXPECT_EQ(blank->state, CellShown);

  Cell* random = Store(5, 5, TokenBuilder().Func(RandomId));
  double first = random->value.number;
  StoreValue(40, 40, NumberValue(1));
  EXPECT_EQ(random->state, CellDirty);
  ASSERT_TRUE(EnsureCellText(book, 0, random));
  EXPECT_NE(random->value.number, first);
}

TEST_F(RecalcCalculateTest, ArrayBlockCellsEvaluateAsArrays) {
  // The same formula =A1:C1*2 in an array block D5:F5 takes its own element; outside a block it
  // intersects with the cell's row or column, which a cell off to the side cannot.
  for (uint32_t col = 0; col < 3; col++) PutNumber(book, 0, 0, col, col + 1.0);
  TokenBuilder times2 = TokenBuilder().Area(0, 0, 0, 2, ClassValue).Int(2).Op(ptgMul);
  Sheet* s = GetSheet(book, 0);
  s->arrayFormulas = static_cast<ArrayFormula*>(Allocate(sizeof(ArrayFormula)));
  s->arrayFormulas[0].range = Range{4, 4, 3, 5};
  s->arrayFormulaCount = 1;
  for (uint32_t col = 3; col < 6; col++) PutFormula(book, 0, 4, col, times2, CellDirty);
  Cell* outside = PutFormula(book, 0, 6, 5, times2, CellDirty);
  for (uint32_t col = 3; col < 6; col++) {
    ASSERT_TRUE(CalculateCell(book, 0, At(book, 0, 4, col)));
    EXPECT_EQ(At(book, 0, 4, col)->value.number, 2.0 * (col - 2));
  }
  ASSERT_TRUE(CalculateCell(book, 0, outside));
  EXPECT_EQ(outside->value.tag, ValueError);
}

TEST_F(RecalcCalculateTest, DisplayTextOfEachKind) {
  std::u16string half = u"0";
  half += DecimalSeparator[0];
  half += u"5";
  struct {
    Value value;
    std::u16string text;
  } cases[] = {
      {BooleanValue(true), u"VRAI"},
      {BooleanValue(false), u"FAUX"},
      {ErrorValue(ErrDiv0), u"#DIV/0!"},
      {NumberValue(0.5), half},
      {NumberValue(1.0 / 3), u"0" + std::u16string(1, DecimalSeparator[0]) + u"333333333333333"},
      {NumberValue(-12), u"-12"},
  };
  for (const auto& c : cases) {
    Cell* cell = PutCell(book, 0, 0, 0);
    cell->value = c.value;
    cell->state = CellCalculated;
    ASSERT_TRUE(EnsureCellText(book, 0, cell));
    EXPECT_EQ(cell->state, CellShown);
    EXPECT_EQ(std::u16string(cell->text), c.text);
  }
  // A dirty formula is calculated first.
  Cell* f = PutFormula(book, 0, 1, 0, TokenBuilder().Bool(true), CellDirty);
  ASSERT_TRUE(EnsureCellText(book, 0, f));
  EXPECT_EQ(std::u16string(f->text), u"VRAI");
}

}  // namespace

namespace {

// Deleting a defined name renews the formulas that use it: they are marked dirty, and so are the
// cells that read them; formulas that do not use it are left alone.
TEST(RecalcNames, DeletingANameMarksItsUsers) {
  uint32_t book;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
  DefinedName name{};
  name.name = TextDuplicate(u"Taux");
  name.formula = TokenBuilder().Int(5).Build();
  ASSERT_TRUE(AddName(book, &name, nullptr));
  auto store = [&](uint16_t row, const TokenBuilder& tokens) {
    Cell proto{};
    proto.row = row;
    proto.xf = DefaultCellXf;
    proto.formula = tokens.Build();
    EXPECT_TRUE(StoreCell(book, 0, &proto, 1, 0));
    return CellAt(&GetSheet(book, 0)->cells, row, 0);
  };
  Cell* user = store(0, TokenBuilder().Name(1));
  Cell* reader = store(1, TokenBuilder().Ref(0, 0));
  Cell* other = store(2, TokenBuilder().Int(7));
  CalculateCell(book, 0, reader);
  CalculateCell(book, 0, other);
  ASSERT_EQ(user->value.number, 5);
  ASSERT_EQ(reader->state, CellCalculated);

  DeleteName(book, 0, 0);
  EXPECT_EQ(user->state, CellDirty);
  EXPECT_EQ(reader->state, CellDirty);
  EXPECT_EQ(other->state, CellCalculated);
  CalculateCell(book, 0, reader);
  EXPECT_EQ(reader->value.tag, ValueError);
  EXPECT_EQ(reader->value.error, ErrName);
  CloseAllWorkbooks();
}

}  // namespace
