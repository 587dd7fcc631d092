// Tests of recalculation: precedents built from tokens, marking of dependents across sheets and
// open workbooks (checked against a plain scan on random workbooks), and the calculation
// walk: chains, diamonds, cycles, blanks and display text.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/parser.h"
#include "formula/recalc.h"
#include "formula/token_builder.h"
#include "functions/table.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

using TB = TokenBuilder;

Cell* At(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col) {
  return CellAt(&GetSheet(book, sheet)->cells, row, col);
}

// Stores through the cell store, which calculates a formula and, with `recalculate`, marks the
// cell's readers.
Cell* StoreAt(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col, Value value,
              const TB* tokens = nullptr, int recalculate = 1) {
  Cell proto{};
  proto.row = row;
  proto.col = col;
  proto.value = value;
  if (tokens) proto.formula = tokens->Build();
  EXPECT_TRUE(StoreCell(book, sheet, &proto, recalculate, KeepRowHeight));
  return At(book, sheet, row, col);
}

Cell* PutNumber(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col, double n) {
  return StoreAt(book, sheet, row, col, NumberValue(n), nullptr, 0);
}

// A formula put in place without calculating it or marking anything, so that marking can be
// tested on its own.
Cell* PutFormula(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col, const TB& tokens,
                 uint8_t state = CellCalculated) {
  Cell* c = StoreAt(book, sheet, row, col, Value{}, nullptr, 0);
  c->formula = tokens.Build();
  EXPECT_TRUE(BuildPrecedents(book, sheet, c));
  c->state = state;
  return c;
}

uint16_t Link(uint32_t from, uint32_t to, int32_t first, int32_t last) {
  LinkRequest request{from, to, first, last};
  int32_t link = -1;
  EXPECT_TRUE(FindOrAddLink(&request, &link));
  return static_cast<uint16_t>(link);
}

TB Plus(const TB& a, const TB& b) {
  return TB().Append(a).Append(b).Op(ptgAdd);
}
TB OnePlus(uint16_t row, uint8_t col) {
  return TB().Ref(row, col).Int(1).Op(ptgAdd);
}

// Two open workbooks: the first, current, holds two worksheets and a macro sheet, the second
// three worksheets.
void OpenBooks() {
  CloseAllWorkbooks();
  uint32_t b = 0;
  for (int32_t third : {SheetMacro, SheetWorksheet})
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &b) &&
                InsertSheet(b, 1, nullptr, SheetWorksheet, 0, 0) &&
                InsertSheet(b, 2, nullptr, third, 0, 0));
  App.currentBook = 0;
  GetWorkbook(0)->currentSheet = 0;
}

// A stored cell with its place.
struct Placed {
  uint32_t book, sheet;
  Cell* cell;
};
using CellKey = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>;  // book, sheet, row, col
using Cells = std::set<CellKey>;

// Every stored cell of every open workbook, in scan order.
std::vector<Placed> AllCells() {
  std::vector<Placed> out;
  for (uint32_t b = 0; b < App.workbookCount; b++)
    for (uint32_t s = 0; s < GetWorkbook(b)->sheetCount; s++)
      for (uint32_t i = 0; i < GetSheet(b, s)->cells.count; i++)
        out.push_back({b, s, GetSheet(b, s)->cells.cells[i]});
  return out;
}

Cells DirtyCells() {
  Cells out;
  for (const Placed& p : AllCells())
    if (p.cell->state == CellDirty) out.insert({p.book, p.sheet, p.cell->row, p.cell->col});
  return out;
}

// The marking done the plain way: each changed range, the first and then each marked cell, is
// checked against every formula not dirty yet, which is marked when it reads the range or is
// volatile.
void ReferencePropagate(uint32_t book, uint32_t sheet, Range range) {
  const std::vector<Placed> cells = AllCells();
  std::vector<std::tuple<uint32_t, int32_t, Range>> changed{{book, sheet, range}};
  for (size_t i = 0; i < changed.size(); i++) {
    auto [changedBook, changedSheet, area] = changed[i];
    for (const Placed& x : cells) {
      Cell* c = x.cell;
      if (!c->formula.bytes || c->state == CellDirty) continue;
      if (GetSheet(x.book, x.sheet)->kind != SheetWorksheet) continue;
      bool reads = c->isVolatile;
      for (uint32_t p = 0; p < c->precedentCount; p++) {
        ResolvedLink l{x.book, x.book, static_cast<int32_t>(x.sheet),
                       static_cast<int32_t>(x.sheet)};
        Range overlap;
        reads |= (c->precedents[p].linkIndex < 0 || ResolveLink(c->precedents[p].linkIndex, &l)) &&
                 l.book == changedBook && l.firstSheet <= changedSheet &&
                 changedSheet <= l.lastSheet &&
                 IntersectRanges(&c->precedents[p].range, &area, &overlap);
      }
      if (!reads) continue;
      c->state = CellDirty;
      changed.push_back({x.book, x.sheet, Range{c->row, c->row, c->col, c->col}});
    }
  }
}

// Each invalidation as {sheet, first row, last row, first column, last column}.
using Invalidations = std::set<std::array<uint32_t, 5>>;
Invalidations invalidated;
void RecordInvalidation(uint32_t, uint32_t sheet, const Range* r) {
  invalidated.insert({sheet, r->firstRow, r->lastRow, r->firstCol, r->lastCol});
}

// Test functions in place of the real table: a counter that tells how often a formula ran, and
// a stand-in for ALEA that gives a new number each time.
int evaluations = 0;
double nextRandom = 0;
void CountingIdentity(Value* args, Value* result, const EvalContext*) {
  evaluations++;
  *result = args[0];
  args[0] = Value{};
}
void FakeRandom(Value*, Value* result, const EvalContext*) {
  *result = NumberValue(++nextRandom);
}
constexpr uint16_t CountingId = 200, RandomId = 63;
const FunctionEntry testFunctions[] = {
    {u"ALEA", "", FakeRandom, RandomId, u"", FunctionVolatile},
    {u"COMPTER.ICI", "V", CountingIdentity, CountingId, u"", 0},
};
const FunctionTables testTables = {testFunctions, 2, nullptr, 0};

struct RecalcTest : testing::Test {
  const uint32_t book = 0, other = 1;
  uint16_t toSheet1 = 0, toSheet2 = 0;
  void SetUp() override {
    OpenBooks();
    toSheet1 = Link(book, book, 0, 0);
    toSheet2 = Link(book, book, 1, 1);
    SetFunctionTables(&testTables);
    invalidated.clear();
  }
  void TearDown() override {
    SetInvalidateRangeHook(nullptr);
    SetFunctionTables(nullptr);
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
  }
  Cell* Store(uint16_t row, uint8_t col, const TB& t) { return StoreAt(book, 0, row, col, {}, &t); }
  Cell* StoreValue(uint16_t row, uint8_t col, Value v) { return StoreAt(book, 0, row, col, v); }
  void AddTestName(const char16_t* text, const TB& tokens) {
    DefinedName name{};
    name.name = TextDuplicate(text);
    name.formula = tokens.Build();
    ASSERT_TRUE(AddName(book, &name, nullptr));
  }
};

TEST_F(RecalcTest, TokensGivePrecedentsAndVolatility) {
  SetFunctionTables(nullptr);            // volatility is a property of the real function table
  AddTestName(u"Taux", TB().Ref(0, 0));  // worksheet
  AddTestName(u"Boucle", TB().Ref3d(Link(book, book, 2, 2), 0, 0, ClassReference));  // macro
  // The link to the first sheet becomes a link to an add-in.
  Workbook* wb = GetWorkbook(book);
  uint32_t capacity = wb->externalBookCount;
  ASSERT_TRUE(GrowArray(&wb->externalBooks, &capacity, capacity + 1, 1));
  wb->externalBooks[wb->externalBookCount] = ExternalBook{};
  wb->externalBooks[wb->externalBookCount].kind = ExternalAddIn;
  wb->sheetLinks[toSheet1].bookIndex = static_cast<int16_t>(wb->externalBookCount++);

  const int32_t s2 = toSheet2;
  const uint8_t ref = ClassReference;
  const Range a1{0, 0, 0, 0}, c3{2, 2, 2, 2}, colA{0, 65535, 0, 0}, b2d4{1, 3, 1, 3};
  std::tuple<const char*, TB, int, std::vector<Precedent>> cases[] = {
      {"cell", OnePlus(2, 2), 0, {{-1, c3}}},
      {"same cell twice", Plus(TB().Ref(0, 0), TB().Ref(0, 0, ClassArray)), 0, {{-1, a1}}},
      {"whole column", TB().Area(0, 65535, 0, 0).Sum(), 0, {{-1, colA}}},
      {"cell after a string", TB().Str(u"abc").Ref(2, 2).Op(ptgConcat), 0, {{-1, c3}}},
      {"3d", Plus(TB().Ref3d(s2, 0, 0), TB().Area3d(s2, 1, 3, 1, 3)), 0, {{s2, a1}, {s2, b2d4}}},
      {"DECALER", TB().Ref(0, 0, ref).Int(1).Int(1).FuncVar(78, 3), 1, {{-1, a1}}},
      {"other function", TB().Ref(2, 2).Func(15), 0, {{-1, c3}}},
      {"range operator", TB().Ref(0, 0, ref).Ref(2, 2, ref).Op(ptgRange), 1, {{-1, a1}, {-1, c3}}},
      {"volatile attribute alone", TB().Attr(AttrVolatile).Int(1), 0, {}},
      {"defined name", TB().Name(1), 1, {}},
      {"name of a macro sheet cell", TB().Name(2), 0, {}},
      {"name index out of range", TB().Name(9), 1, {}},
      {"name of another book", TB().NameX(toSheet2, 1), 1, {}},
      {"add-in function", TB().NameX(toSheet1, 1), 0, {}},
      {"deleted references", Plus(TB().RefErr(), TB().Int(2)), 0, {}},
  };
  // One cell rebuilt for each case: a rebuild forgets what the formula before it read.
  Cell* cell = PutFormula(book, 0, 9, 9, TB().Int(0));
  auto rebuild = [&](const TB& tokens, int64_t failAfter = -1) {
    FreeTokens(&cell->formula);
    cell->formula = tokens.Build();
    SetAllocationFailureAfter(failAfter);
    int ok = BuildPrecedents(book, 0, cell);
    SetAllocationFailureAfter(-1);
    return ok;
  };
  EXPECT_EQ(rebuild(OnePlus(0, 0), 0), 0) << "lost memory is a zero return";
  for (const auto& [what, tokens, isVolatile, precedents] : cases) {
    EXPECT_TRUE(rebuild(tokens));
    EXPECT_EQ(cell->isVolatile, isVolatile) << what;
    ASSERT_EQ(cell->precedentCount, precedents.size()) << what;
    for (size_t i = 0; i < precedents.size(); i++) {
      int32_t got = cell->precedents[i].linkIndex, want = precedents[i].linkIndex;  // packed
      EXPECT_EQ(got, want) << what;
      EXPECT_TRUE(EqualRanges(&cell->precedents[i].range, &precedents[i].range)) << what;
    }
  }
  // Every function the table marks volatile or always recalculated, in either token form, and no
  // other: the list is pinned, with what compiling a call to each one writes in front.
  struct Pinned {
    const char16_t* formula;
    uint16_t id;
    bool marked;  // the compiled formula starts with the volatile attribute
  };
  const Pinned pinned[] = {
      {u"=ALEA()", 63, true},
      {u"=MAINTENANT()", 74, true},
      {u"=AUJOURDHUI()", 221, true},
      {u"=INFO(\"x\")", 244, true},
      {u"=DECALER(A1;1;1)", 78, true},
      {u"=CELLULE(\"x\")", 125, true},
      {u"=INDIRECT(\"A1\")", 148, true},
      {u"=SOUS.TOTAL(9;A1)", 344, false},
  };
  const FunctionTables* real = ActiveFunctionTables();
  std::set<uint32_t> flagged;
  for (uint32_t i = 0; i < real->mainCount; i++)
    if (real->main[i].flags & (FunctionVolatile | FunctionAlwaysRecalc))
      flagged.insert(FunctionNumber(&real->main[i]));
  EXPECT_EQ(flagged, (std::set<uint32_t>{63, 74, 221, 244, 78, 125, 148, 344}));
  const ParseContext parse{book, 0, A1Style, 0, 0, ReferencesAsWritten, SingleCellFormula};
  for (const Pinned& p : pinned) {
    for (const TB& tokens : {TB().Func(p.id), TB().Int(1).FuncVar(p.id, 1)})
      EXPECT_TRUE(rebuild(tokens) && cell->isVolatile) << p.id;
    FormulaTokens compiled{};
    ASSERT_EQ(CompileFormula(&parse, p.formula, ClassCodeValue, &compiled), CompileOk) << p.id;
    bool marked = compiled.bytes[0] == ptgAttr && compiled.bytes[1] == AttrVolatile;
    EXPECT_EQ(marked, p.marked) << p.id;
    FreeTokens(&cell->formula);
    cell->formula = compiled;
    EXPECT_TRUE(BuildPrecedents(book, 0, cell) && cell->isVolatile) << p.id;
  }
  // Cells of a macro sheet take no part.
  Cell* macro = PutFormula(book, 2, 0, 0, Plus(TB().Ref(1, 1), TB().Func(RandomId)));
  EXPECT_EQ(macro->precedentCount + macro->isVolatile, 0u);
}

// One set of readers for every kind of marking: changes of single cells, as a cell's store
// makes them, and of whole sheets, as a file load does; volatile cells follow any change anywhere.
TEST_F(RecalcTest, MarkingReachesReadersAcrossSheetsAndWorkbooks) {
  SetInvalidateRangeHook(RecordInvalidation);
  PutFormula(book, 0, 0, 1, TB().Area(0, 65535, 0, 0).Sum());  // B1 = SUM(A:A)
  PutFormula(book, 0, 1, 1, TB().Area(10, 20, 2, 3).Sum());    // B2 = SUM(C11:D21)
  PutFormula(book, 0, 3, 3, TB().Func(RandomId));              // D4 = ALEA()
  PutFormula(book, 0, 4, 3, TB().Ref(3, 3));                   // D5 = D4
  PutFormula(book, 1, 0, 0, TB().Ref3d(toSheet1, 0, 1));       // Feuille2!A1 = B1
  PutFormula(book, 1, 1, 0, TB().Area3d(Link(book, book, 0, 1), 40000, 40000, 0, 0));
  PutFormula(book, 0, 5, 5, TB().Ref3d(toSheet2, 0, 0));  // F6 = Feuille2!A1
  PutFormula(other, 0, 0, 0, TB().Ref3d(Link(other, book, 0, 0), 0, 1));
  PutFormula(other, 0, 1, 0, TB().Ref(0, 0));
  // A macro sheet cell is never marked, even volatile or with a precedent that a change reaches.
  PutFormula(book, 2, 1, 1, TB().Func(RandomId))->isVolatile = 1;
  Cell* macro = PutFormula(book, 2, 0, 0, TB().Int(1));
  ASSERT_TRUE(GrowArray(&macro->precedents, &macro->precedentCapacity, 1, 2));
  macro->precedents[0] = Precedent{toSheet1, Range{59999, 59999, 0, 0}};
  macro->precedentCount = 1;

  // The cell that changes, and what is dirty after besides the volatile cell and its reader.
  const Cells volatiles{{0, 0, 3, 3}, {0, 0, 4, 3}};
  std::tuple<const char*, uint32_t, uint32_t, uint16_t, uint8_t, Cells> cases[] = {
      {"whole column, then on through both sheets and the other book", book, 0, 59999, 0,
       Cells{{0, 0, 0, 1}, {0, 1, 0, 0}, {0, 0, 5, 5}, {1, 0, 0, 0}, {1, 0, 1, 0}}},
      {"corner of an area", book, 0, 20, 3, Cells{{0, 0, 1, 1}}},
      {"just below the area", book, 0, 21, 3, Cells{}},
      {"3d span, second sheet", book, 1, 40000, 0, Cells{{0, 1, 1, 0}}},
      {"the macro sheet is read by nobody", book, 2, 0, 1, Cells{}},
      {"anywhere in the other book", other, 0, 100, 100, Cells{}},
  };
  for (auto& [what, b, sheet, row, col, dirty] : cases) {
    MarkDependents(b, sheet, PutNumber(b, sheet, row, col, 1), 0);
    dirty.insert(volatiles.begin(), volatiles.end());
    EXPECT_EQ(DirtyCells(), dirty) << what;
    for (const Placed& p : AllCells()) p.cell->state = CellCalculated;
  }
  // What is shown of the changed cells and their readers is repainted, on the sheet on show only.
  const Invalidations shown{{0, 59999, 59999, 0, 0}, {0, 20, 20, 3, 3}, {0, 21, 21, 3, 3},
                            {0, 0, 0, 1, 1},         {0, 1, 1, 1, 1},   {0, 3, 3, 3, 3},
                            {0, 4, 4, 3, 3},         {0, 5, 5, 5, 5}};
  EXPECT_EQ(invalidated, shown);

  // RefreshVolatiles marks the volatile cell and its reader, and nothing else; the reader brings
  // the volatile cell up first.
  RefreshVolatiles();
  EXPECT_EQ(DirtyCells(), volatiles);
  ASSERT_TRUE(CalculateCell(book, 0, At(book, 0, 4, 3)));
  EXPECT_EQ(At(book, 0, 3, 3)->value.number, nextRandom);
  EXPECT_EQ(At(book, 0, 4, 3)->value.number, nextRandom);

  // Every formula of a sheet at once, without following readers on other sheets, constants
  // untouched; nothing on a macro sheet. The sheet on show is repainted whole.
  DirtySheet(0);
  DirtySheet(2);
  Cells sheet0{{0, 0, 0, 1}, {0, 0, 1, 1}, {0, 0, 3, 3}, {0, 0, 4, 3}, {0, 0, 5, 5}};
  EXPECT_EQ(DirtyCells(), sheet0);
  invalidated.clear();
  RecalculateWorkbook();
  sheet0.insert({{0, 1, 0, 0}, {0, 1, 1, 0}});
  EXPECT_EQ(DirtyCells(), sheet0);
  EXPECT_EQ(invalidated, (Invalidations{{0, 0, MaxRow, 0, MaxCol}}));
}

// Random contents for the fixture's books: formulas read the cell above, random cells, areas and
// whole columns of their own sheet, of another sheet, of the macro sheet's place, of all sheets
// at once and of the other book; some are volatile.
std::mt19937 rng;
constexpr uint32_t Rows = 24, Cols = 6;
uint32_t Below(uint32_t n) {
  return std::uniform_int_distribution<uint32_t>(0, n - 1)(rng);
}

TB Operand(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col) {
  uint16_t r = static_cast<uint16_t>(Below(Rows)), r2 = static_cast<uint16_t>(r + Below(6));
  uint8_t c = static_cast<uint8_t>(Below(Cols)), c2 = static_cast<uint8_t>(c + Below(2));
  uint32_t kind = Below(20);
  if (kind < 7 && row > 0) return TB().Ref(row - 1, col);
  if (kind < 11) return TB().Ref(r, c);
  if (kind < 13) return TB().Area(r, r + Below(4), c, c2);
  if (kind == 13) return TB().Area(0, 65535, c, c);
  if (kind == 14) return TB().Func(RandomId);
  int32_t next = sheet == 0 ? 1 : 0;  // another sheet, the macro sheet's place, all, another book
  uint16_t link = kind < 16    ? Link(book, book, next, next)
                  : kind == 16 ? Link(book, book, 2, 2)
                  : kind < 19  ? Link(book, book, 0, 2)
                               : Link(book, 1 - book, 0, 0);
  return Below(2) ? TB().Ref3d(link, r, c) : TB().Area3d(link, r, r2, c, c);
}

void Fill(uint32_t book, uint32_t sheet) {
  for (uint16_t row = 0; row < Rows; row++)
    for (uint8_t col = 0; col < Cols; col++) {
      uint32_t what = Below(10);
      if (what >= 2 && what < 4) PutNumber(book, sheet, row, col, row);
      if (what < 4) continue;
      TB t = Operand(book, sheet, row, col);
      for (uint32_t n = Below(3); n > 0; n--) t = Plus(t, Operand(book, sheet, row, col));
      PutFormula(book, sheet, row, col, t);
    }
}

// Random states for the formulas, the same for the same seed; some start dirty.
void Scramble(uint32_t seed) {
  std::mt19937 roll(seed);
  for (const Placed& p : AllCells()) {
    uint32_t r = roll() % 10;
    p.cell->state = !p.cell->formula.bytes || r > 2 ? CellCalculated
                    : r < 2                         ? CellDirty
                                                    : CellShown;
  }
}

TEST_F(RecalcTest, MarksTheSameCellsAsAPlainScanOnRandomWorkbooks) {
  rng.seed(20260611);
  uint32_t longChanges = 0, changes = 0;
  for (int round = 0; round < 8; round++) {
    OpenBooks();
    for (uint32_t b = 0; b < 2; b++)
      for (uint32_t s = 0; s < 3; s++) Fill(b, s);
    for (int change = 0; change < 30; change++, changes++) {
      uint32_t seed = Below(1u << 30), b = Below(2), s = Below(3), markSelf = Below(2);
      const CellArray* cells = &GetSheet(b, s)->cells;
      Cell* cell = cells->count && Below(3) ? cells->cells[Below(cells->count)] : nullptr;
      uint16_t r = static_cast<uint16_t>(Below(Rows));
      uint8_t c = static_cast<uint8_t>(Below(Cols));
      Range range =
          Below(4) ? Range{r, static_cast<uint16_t>(r + Below(3)), c, c} : Range{0, 65535, c, c};
      if (cell) range = Range{cell->row, cell->row, cell->col, cell->col};

      Scramble(seed);
      size_t dirtyBefore = DirtyCells().size();
      if (cell && markSelf && GetSheet(b, s)->kind == SheetWorksheet) cell->state = CellDirty;
      ReferencePropagate(b, s, range);
      Cells expected = DirtyCells();
      Scramble(seed);
      cell ? MarkDependents(b, s, cell, markSelf) : PropagateDirty(b, s, &range);
      ASSERT_EQ(DirtyCells(), expected) << "round " << round << " change " << change;
      longChanges += expected.size() > dirtyBefore + 40;
    }
  }
  // Both the plain scans and the index behind them must have had work to do.
  EXPECT_GT(longChanges, changes / 4);
}

// Calculation. These run the evaluator on hand-written tokens.

TEST_F(RecalcTest, DiamondCalculatesEachCellOnce) {
  // A1 -> B1, C1 -> D1: after a change of A1, D1 brings up both branches and each cell runs once.
  StoreValue(0, 0, NumberValue(1));
  Store(0, 1, TB().Ref(0, 0).Func(CountingId));
  Store(0, 2, TB().Ref(0, 0).Func(CountingId));
  Store(0, 3, Plus(TB().Ref(0, 1), TB().Ref(0, 2)).Func(CountingId));
  EXPECT_EQ(At(book, 0, 0, 3)->value.number, 2);
  StoreValue(0, 0, NumberValue(5));
  EXPECT_EQ(DirtyCells(), (Cells{{0, 0, 0, 1}, {0, 0, 0, 2}, {0, 0, 0, 3}}));
  evaluations = 0;
  ASSERT_TRUE(CalculateCell(book, 0, At(book, 0, 0, 3)));
  EXPECT_EQ(evaluations, 3);
  EXPECT_EQ(At(book, 0, 0, 3)->value.number, 10);
  for (uint8_t col = 1; col <= 3; col++) EXPECT_EQ(At(book, 0, 0, col)->state, CellCalculated);
}

TEST_F(RecalcTest, LongChainIsCalculatedOnTheHeapAndSurvivesLostMemory) {
  // A1 to A65536, each reading the cell above: a change of A1 marks all the rest, and the last
  // one brings all of them up without deep recursion.
  PutNumber(book, 0, 0, 0, 1);
  for (uint32_t row = 1; row <= MaxRow; row++) PutFormula(book, 0, row, 0, OnePlus(row - 1, 0));
  Cell* last = At(book, 0, MaxRow, 0);
  MarkDependents(book, 0, At(book, 0, 0, 0), 0);
  EXPECT_EQ(DirtyCells().size(), 65535u);
  // When the stack cannot grow, the walk stops with the cells on it left calculating, and a later
  // mark and calculation put them right.
  SetAllocationFailureAfter(1);
  EXPECT_EQ(CalculateCell(book, 0, last), 1);
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(last->state, CellCalculating);
  DirtySheet(0);
  ASSERT_TRUE(CalculateCell(book, 0, last));
  EXPECT_EQ(last->value.number, 65536);
  EXPECT_TRUE(DirtyCells().empty());
  EXPECT_EQ(GetWorkbook(book)->circularHit, 0);
  // Marking without memory for its stack still marks the direct readers.
  SetAllocationFailureAfter(0);
  MarkDependents(book, 0, At(book, 0, 0, 0), 0);
  SetAllocationFailureAfter(-1);
  EXPECT_EQ(At(book, 0, 1, 0)->state, CellDirty);
  ASSERT_TRUE(CalculateCell(book, 0, last));
}

TEST_F(RecalcTest, CyclesSettleInOnePass) {
  // A1 = A1: storing it calculates it, and its own change then marks it again, since it reads
  // the cell that changed.
  Workbook* wb = GetWorkbook(book);
  Cell* self = Store(0, 0, TB().Ref(0, 0));
  EXPECT_EQ(self->state, CellDirty);
  EXPECT_EQ(wb->circularHit, 1);
  wb->circularHit = 0;
  ASSERT_TRUE(CalculateCell(book, 0, self));
  EXPECT_EQ(self->state, CellCalculated);
  EXPECT_EQ(self->value.tag, ValueNumber);
  EXPECT_EQ(self->value.number, 0);
  EXPECT_EQ(wb->circularHit, 1);
  // B1 = C1 + 1, C1 = B1 + 1: calculating B1 cuts the loop at B1, whose value C1 reads as it
  // stands, since B1 is released only when its own turn comes.
  wb->circularHit = 0;
  Cell* b1 = PutFormula(book, 0, 0, 1, OnePlus(0, 2), CellDirty);
  Cell* c1 = PutFormula(book, 0, 0, 2, OnePlus(0, 1), CellDirty);
  b1->value = NumberValue(40);
  ASSERT_TRUE(CalculateCell(book, 0, b1));
  EXPECT_EQ(c1->value.number, 41);
  EXPECT_EQ(b1->value.number, 42);
  EXPECT_TRUE(b1->state == CellCalculated && c1->state == CellCalculated);
  EXPECT_EQ(wb->circularHit, 1);
}

TEST_F(RecalcTest, ArrayBlockCellsEvaluateAsArrays) {
  // The same formula =A1:C1*2 in an array block D5:F5 takes its own element; outside a block it
  // intersects with the cell's row or column, which a cell off to the side cannot.
  for (uint8_t col = 0; col < 3; col++) PutNumber(book, 0, 0, col, col + 1.0);
  TB times2 = TB().Area(0, 0, 0, 2, ClassValue).Int(2).Op(ptgMul);
  Sheet* s = GetSheet(book, 0);
  s->arrayFormulas = static_cast<ArrayFormula*>(Allocate(sizeof(ArrayFormula)));
  s->arrayFormulas[0].range = Range{4, 4, 3, 5};
  s->arrayFormulaCount = 1;
  for (uint8_t col = 3; col < 6; col++) {
    Cell* cell = PutFormula(book, 0, 4, col, times2, CellDirty);
    ASSERT_TRUE(CalculateCell(book, 0, cell));
    EXPECT_EQ(cell->value.number, 2.0 * (col - 2));
  }
  Cell* outside = PutFormula(book, 0, 6, 5, times2, CellDirty);
  ASSERT_TRUE(CalculateCell(book, 0, outside));
  EXPECT_EQ(outside->value.tag, ValueError);
}

// Each kind of value shows in A1 and, calculated first since the change of A1 marked it, in its
// reader B1. Once A1 is deleted, B1 reads a blank, which shows as 0.
TEST_F(RecalcTest, DisplayTextOfEachKind) {
  Cell* reader = Store(0, 1, TB().Ref(0, 0));
  const std::u16string point(1, DecimalSeparator[0]);
  std::pair<Value, std::u16string> cases[] = {
      {BooleanValue(true), u"VRAI"},
      {BooleanValue(false), u"FAUX"},
      {ErrorValue(ErrDiv0), u"#DIV/0!"},
      {NumberValue(0.5), u"0" + point + u"5"},
      {NumberValue(1.0 / 3), u"0" + point + u"333333333333333"},
      {NumberValue(-12), u"-12"},
  };
  for (const auto& [value, text] : cases) {
    Cell* cell = StoreValue(0, 0, value);
    EXPECT_EQ(reader->state, CellDirty);
    for (Cell* c : {cell, reader}) {
      ASSERT_TRUE(EnsureCellText(book, 0, c));
      EXPECT_EQ(c->state, CellShown);
      EXPECT_EQ(std::u16string(c->text), text);
    }
  }
  Range a1{0, 0, 0, 0};
  ClearCellsInRange(book, 0, &a1);
  EXPECT_EQ(At(book, 0, 0, 0), nullptr);
  EXPECT_EQ(reader->state, CellDirty);
  ASSERT_TRUE(EnsureCellText(book, 0, reader));
  EXPECT_EQ(reader->value.tag, ValueNumber);
  EXPECT_EQ(TextToUtf8(reader->text), "0");
}

// Deleting a defined name renews the formulas that use it: they are marked dirty, and so are the
// cells that read them; formulas that do not use it are left alone.
using RecalcNames = RecalcTest;
TEST_F(RecalcNames, DeletingANameMarksItsUsers) {
  AddTestName(u"Taux", TB().Int(5));
  Cell* user = Store(0, 0, TB().Name(1));
  Cell* reader = Store(1, 0, TB().Ref(0, 0));
  Store(2, 0, TB().Int(7));
  ASSERT_TRUE(CalculateCell(book, 0, reader));
  ASSERT_EQ(user->value.number, 5);
  ASSERT_TRUE(DirtyCells().empty());
  DeleteName(book, 0, 0);
  EXPECT_EQ(DirtyCells(), (Cells{{0, 0, 0, 0}, {0, 0, 1, 0}}));
  ASSERT_TRUE(CalculateCell(book, 0, reader));
  EXPECT_EQ(reader->value.tag, ValueError);
  EXPECT_EQ(reader->value.error, ErrName);
}

}  // namespace
