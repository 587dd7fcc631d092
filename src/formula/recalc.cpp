// Recalculation. A formula cell on a worksheet records only what it reads (its precedents, built
// from the tokens); there is no dependents graph and no calculation chain. A change marks dirty
// every cell that reads it, transitively, and asks for a repaint; a dirty cell is calculated when
// somebody wants its value, by a depth-first walk over its precedents on a heap stack, so that a
// chain of 65,536 formulas costs heap, not machine stack.
#include "formula/recalc.h"

#include <algorithm>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/check.h"
#include "base/text.h"
#include "format/number_format.h"
#include "formula/evaluator.h"
#include "functions/table.h"
#include "model/workbook.h"

static InvalidateRangeHook invalidateRangeHook;

void SetInvalidateRangeHook(InvalidateRangeHook hook) {
  invalidateRangeHook = hook;
}

// Only the sheet on show has a screen area to invalidate.
static void InvalidateIfShown(uint32_t book, uint32_t sheet, const Range* range) {
  if (!invalidateRangeHook || App.currentBook >= App.workbookCount) return;
  if (book != App.currentBook || sheet != GetWorkbook(book)->currentSheet) return;
  invalidateRangeHook(book, sheet, range);
}

static bool IsWorksheet(uint32_t book, uint32_t sheet) {
  return book < App.workbookCount && sheet < GetWorkbook(book)->sheetCount &&
         GetSheet(book, sheet)->kind == SheetWorksheet;
}

// ---------------------------------------------------------------------------------------------
// Precedents

// Functions whose result can change without any cell they name changing, whichever token form
// a file wrote for them.
static bool IsVolatileFunction(uint16_t id) {
  return (FunctionFlagsByNumber(id) & (FunctionVolatile | FunctionAlwaysRecalc)) != 0;
}

static int AddPrecedent(Cell* cell, int32_t linkIndex, const Range& range) {
  for (uint32_t i = 0; i < cell->precedentCount; i++) {
    const Precedent& p = cell->precedents[i];
    if (p.linkIndex == linkIndex && EqualRanges(&p.range, &range)) return 1;
  }
  if (!GrowArray(&cell->precedents, &cell->precedentCapacity, cell->precedentCount + 1, 2))
    return 0;
  Precedent& added = cell->precedents[cell->precedentCount++];
  added.linkIndex = linkIndex;
  added.range = range;
  return 1;
}

// A name that stands for cells of a macro sheet is run by the macro interpreter and changes
// nothing here; any other name may point anywhere, so the cell must be recalculated each time.
static bool NameMakesVolatile(uint32_t book, uint32_t sheet, uint16_t index) {
  const Workbook* wb = GetWorkbook(book);
  if (index == 0 || index > wb->nameCount) return true;
  FormulaTokens tokens = wb->names[index - 1].formula;
  uint32_t outBook = 0, outSheet = 0;
  Range out{};
  return !NameIsMacroCell(book, sheet, &tokens, &outBook, &outSheet, &out);
}

// Functions of an add-in are as stable as built-in ones; other external names are not.
static bool ExternalNameMakesVolatile(uint32_t book, uint16_t linkIndex) {
  const Workbook* wb = GetWorkbook(book);
  if (linkIndex >= wb->sheetLinkCount) return true;
  int16_t bookIndex = wb->sheetLinks[linkIndex].bookIndex;
  if (bookIndex < 0 || static_cast<uint32_t>(bookIndex) >= wb->externalBookCount) return true;
  return wb->externalBooks[bookIndex].kind != ExternalAddIn;
}

static Range AreaAt(const uint8_t* p) {
  Range r;
  r.firstRow = ReadU16(p);
  r.lastRow = ReadU16(p + 2);
  r.firstCol = p[4];
  r.lastCol = p[6];
  return r;
}

static Range CellAtToken(const uint8_t* p) {
  Range r;
  r.firstRow = r.lastRow = ReadU16(p);
  r.firstCol = r.lastCol = p[2];
  return r;
}

int BuildPrecedents(uint32_t book, uint32_t sheet, Cell* cell) {
  const FormulaTokens& f = cell->formula;
  if (!f.bytes || f.length == 0) return 1;
  cell->precedentCount = 0;
  cell->isVolatile = 0;
  if (!IsWorksheet(book, sheet)) return 1;
  for (uint32_t pos = 0; pos < f.length; pos = NextTokenPosition(f.bytes, pos)) {
    const uint8_t* t = f.bytes + pos;
    int ok = 1;
    switch (FoldOpcode(*t)) {
      case ptgRange:
        cell->isVolatile = 1;
        break;
      case ptgFunc:
        if (IsVolatileFunction(ReadU16(t + 1))) cell->isVolatile = 1;
        break;
      case ptgFuncVar:
        if (IsVolatileFunction(ReadU16(t + 2))) cell->isVolatile = 1;
        break;
      case ptgName:
        if (NameMakesVolatile(book, sheet, ReadU16(t + 1))) cell->isVolatile = 1;
        break;
      case ptgNameX:
        if (ExternalNameMakesVolatile(book, ReadU16(t + 1))) cell->isVolatile = 1;
        break;
      case ptgRef:
        ok = AddPrecedent(cell, -1, CellAtToken(t + 1));
        break;
      case ptgArea:
        ok = AddPrecedent(cell, -1, AreaAt(t + 1));
        break;
      case ptgRef3d:
        ok = AddPrecedent(cell, ReadU16(t + 1), CellAtToken(t + 3));
        break;
      case ptgArea3d:
        ok = AddPrecedent(cell, ReadU16(t + 1), AreaAt(t + 3));
        break;
      default:
        break;
    }
    if (!ok) return 0;
  }
  return 1;
}

// Where a precedent lies: its book and span of sheets. Fails for a link that does not resolve
// or names no real sheet.
static bool ResolvePrecedent(uint32_t book, uint32_t sheet, int32_t linkIndex, uint32_t* targetBook,
                             int32_t* firstSheet, int32_t* lastSheet) {
  if (linkIndex < 0) {
    *targetBook = book;
    *firstSheet = *lastSheet = static_cast<int32_t>(sheet);
    return true;
  }
  ResolvedLink link{};
  link.fromBook = book;
  if (!ResolveLink(linkIndex, &link) || link.firstSheet < 0 || link.lastSheet < 0) return false;
  *targetBook = link.book;
  *firstSheet = link.firstSheet;
  *lastSheet = link.lastSheet;
  return true;
}

// ---------------------------------------------------------------------------------------------
// Calculation

namespace {

// One cell on the calculation stack, with the precedent whose cells are being walked. The walk
// position is an index into the walked sheet's cell array, so that the walk can resume after a
// child cell has been calculated.
struct CalcFrame {
  Cell* cell;
  uint32_t book;
  uint32_t sheet;
  uint32_t precedent;  // index of the precedent under examination
  uint32_t targetBook;
  int32_t firstSheet;
  int32_t lastSheet;
  Range range;
  int32_t walkSheet;  // sheet now being walked; -1 while no precedent is open
  uint32_t position;  // next index in that sheet's cell array; NoPosition before the first
};

}  // namespace
static_assert(sizeof(CalcFrame) == 48, "calculation frames are 48 bytes");

namespace {

// A range whose cells are known to be clean for the rest of one CalculateCell call.
struct VisitedRange {
  uint32_t book;
  int32_t firstSheet;
  int32_t lastSheet;
  Range range;
};

}  // namespace
static_assert(sizeof(VisitedRange) == 20, "visited entries are 20 bytes");

constexpr uint32_t NoPosition = UINT32_MAX;

namespace {

struct CalcWalk {
  CalcFrame* frames;
  uint32_t frameCount;
  uint32_t frameCapacity;
  VisitedRange* visited;
  uint32_t visitedCount;
  uint32_t visitedCapacity;
};

}  // namespace

static void FreeCalcWalk(CalcWalk* walk) {
  Release(walk->frames);
  Release(walk->visited);
}

// The stack doubles rather than growing a frame at a time: a chain of 65,536 cells would
// otherwise copy the whole stack on every push.
static int PushCalcFrame(CalcWalk* walk, uint32_t book, uint32_t sheet, Cell* cell) {
  DEBUG_ASSERT(cell && cell->formula.bytes);
  if (!GrowArrayByDoubling(&walk->frames, &walk->frameCapacity, walk->frameCount + 1, 16)) return 0;
  CalcFrame* f = &walk->frames[walk->frameCount++];
  *f = CalcFrame{};
  f->cell = cell;
  f->book = book;
  f->sheet = sheet;
  f->walkSheet = -1;
  f->position = NoPosition;
  cell->state = CellCalculating;
  return 1;
}

static bool AlreadyVisited(const CalcWalk* walk, const CalcFrame* f) {
  for (uint32_t i = 0; i < walk->visitedCount; i++) {
    const VisitedRange& v = walk->visited[i];
    if (v.book == f->targetBook && v.firstSheet <= f->firstSheet && v.lastSheet >= f->lastSheet &&
        v.range.firstRow <= f->range.firstRow && v.range.lastRow >= f->range.lastRow &&
        v.range.firstCol <= f->range.firstCol && v.range.lastCol >= f->range.lastCol)
      return true;
  }
  return false;
}

// A range that cannot be recorded is only walked again, so lost memory is not an error here.
static void RecordVisited(CalcWalk* walk, const CalcFrame* f) {
  if (!GrowArrayByDoubling(&walk->visited, &walk->visitedCapacity, walk->visitedCount + 1, 16))
    return;
  walk->visited[walk->visitedCount++] =
      VisitedRange{f->targetBook, f->firstSheet, f->lastSheet, f->range};
}

// Opens the frame's next precedent that is not known to be clean; false when none is left.
static bool OpenNextPrecedent(CalcWalk* walk, CalcFrame* f) {
  for (; f->precedent < f->cell->precedentCount; f->precedent++) {
    const Precedent& p = f->cell->precedents[f->precedent];
    if (!ResolvePrecedent(f->book, f->sheet, p.linkIndex, &f->targetBook, &f->firstSheet,
                          &f->lastSheet))
      continue;
    f->range = p.range;
    if (AlreadyVisited(walk, f)) continue;
    f->walkSheet = f->firstSheet;
    f->position = NoPosition;
    return true;
  }
  return false;
}

// Walks the frame's precedents from where it stopped to the next dirty formula cell, which it
// returns with its book and sheet; null when every precedent has been walked.
static Cell* NextDirtyPrecedent(CalcWalk* walk, CalcFrame* f, uint32_t* book, uint32_t* sheet) {
  for (;;) {
    if (f->walkSheet < 0 && !OpenNextPrecedent(walk, f)) return nullptr;
    for (; f->walkSheet <= f->lastSheet; f->walkSheet++, f->position = NoPosition) {
      uint32_t s = static_cast<uint32_t>(f->walkSheet);
      if (!IsWorksheet(f->targetBook, s)) continue;
      const CellArray* array = &GetSheet(f->targetBook, s)->cells;
      CellRangeWalk cells{array, f->range, f->position};
      if (f->position == NoPosition) BeginRangeWalk(&cells, array, &f->range);
      while (Cell* c = NextCellInRange(&cells)) {
        if (c->formula.bytes && c->state == CellDirty) {
          f->position = cells.index;
          *book = f->targetBook;
          *sheet = s;
          return c;
        }
      }
    }
    RecordVisited(walk, f);
    f->walkSheet = -1;
    f->precedent++;
  }
}

static int32_t InArrayFormula(uint32_t book, uint32_t sheet, const Cell* cell) {
  const Sheet* s = GetSheet(book, sheet);
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++)
    if (RangeContains(&s->arrayFormulas[i].range, cell->row, cell->col)) return 1;
  return 0;
}

// Works out one cell whose precedents are clean. The old value is released first, so that a
// circular read during evaluation sees an empty cell, never a freed block. The result is settled
// before it is stored, for the same reason. Returns 0 when a running macro was aborted.
static int EvaluateFrameCell(const CalcFrame* f) {
  Cell* cell = f->cell;
  FreeValue(&cell->value);
  cell->value = Value{};
  EvalContext ctx{f->book, f->sheet, cell->row, cell->col, InArrayFormula(f->book, f->sheet, cell)};
  Value result{};
  if (!Evaluate(&cell->formula, &result, &ctx)) {
    FreeValue(&cell->value);
    cell->value = result;
    return 0;
  }
  SettleCellResult(&result, &ctx);
  if (result.tag == ValueEmpty) result = NumberValue(0);
  FreeValue(&cell->value);
  cell->value = result;
  cell->state = CellCalculated;
  return 1;
}

// Calculations nest when a formula reaches a dirty cell that its precedents do not show, through
// a name, INDIRECT or DECALER. Each nesting takes machine stack, so past this depth the dirty
// cell is read as it stands, as a cell on the calculation stack is, and stays dirty.
constexpr int MaxNestedCalculations = 500;
static int nestedCalculations;

static int CalculateOutermost(uint32_t book, uint32_t sheet, Cell* cell);

int CalculateCell(uint32_t book, uint32_t sheet, Cell* cell) {
  if (!cell->formula.bytes) {
    if (cell->state < CellCalculated) cell->state = CellCalculated;
    return 1;
  }
  if (nestedCalculations >= MaxNestedCalculations) {
    GetWorkbook(book)->circularHit = 1;
    return 1;
  }
  nestedCalculations++;
  int result = CalculateOutermost(book, sheet, cell);
  nestedCalculations--;
  return result;
}

static int CalculateOutermost(uint32_t book, uint32_t sheet, Cell* cell) {
  CalcWalk walk{};
  if (!PushCalcFrame(&walk, book, sheet, cell)) return 1;
  while (walk.frameCount) {
    CalcFrame* top = &walk.frames[walk.frameCount - 1];
    uint32_t childBook = 0, childSheet = 0;
    if (Cell* child = NextDirtyPrecedent(&walk, top, &childBook, &childSheet)) {
      // Out of memory: stop where we are, leaving the cells on the stack as they are.
      if (!PushCalcFrame(&walk, childBook, childSheet, child)) break;
      continue;
    }
    if (!EvaluateFrameCell(top)) {
      FreeCalcWalk(&walk);
      return 0;
    }
    walk.frameCount--;
  }
  FreeCalcWalk(&walk);
  return 1;
}

// ---------------------------------------------------------------------------------------------
// Marking

// Marking finds the cells that read a changed range and marks them, then treats each as a
// changed range in turn. A cell already dirty is neither marked nor followed: its own readers
// were marked when it was, or will be when it is calculated and changed again. Which cells end
// up dirty does not depend on the order in which changed ranges are handled.
//
// Finding the readers of a range means looking at every formula of every worksheet of every
// open workbook. A scan therefore checks each formula against a batch of changed ranges at once,
// and a cell marked during the scan joins the batch, so that a row of formulas reading one
// another to the left is marked by one pass. Changes that reach further than a few scans get a
// reverse index of all precedents, built once for the call, after which each changed range is a
// handful of binary searches.

namespace {

struct DirtyFrame {
  uint32_t book;
  uint32_t sheet;
  Range range;
};

}  // namespace
static_assert(sizeof(DirtyFrame) == 16, "marking frames are 16 bytes");

namespace {

// One precedent of a formula cell, on one sheet of its span, filed under a key that sorts by
// book, sheet, height class (the power of two below the height), column block of 16 columns,
// then first row. A range only overlaps entries of a height class whose first rows lie in a
// window of about twice the class height above it, so a query is a few binary searches.
struct ReaderEntry {
  uint64_t key;
  Cell* cell;
  uint32_t book;  // of the reading cell
  uint16_t sheet;
  Range range;
};

}  // namespace

constexpr uint32_t HeightClasses = 17;
constexpr uint32_t ColumnBlockShift = 4;
// Changed ranges that one scan checks each formula against.
constexpr uint32_t ScanBatch = 32;
// Scans made before the index is built.
constexpr uint32_t PlainScanLimit = 4;

namespace {

struct CachedLink {
  uint8_t known;
  uint8_t resolved;
  uint32_t book;
  int32_t firstSheet;
  int32_t lastSheet;
};

// The links of one reading workbook, resolved on first use: resolution may search the open
// workbooks by file name, and a change would otherwise repeat that for every formula.
struct LinkCache {
  uint32_t count;
  CachedLink* links;
};

struct Marking {
  DirtyFrame* frames;  // changed ranges whose readers are still to be found
  uint32_t frameCount;
  uint32_t frameCapacity;
  DirtyFrame batch[ScanBatch];  // what the scan under way checks against
  uint32_t batchCount;
  Range batchBox;  // the smallest range holding every range of the batch, whatever the sheet
  bool scanning;
  uint32_t scans;
  ReaderEntry* entries;
  uint32_t entryCount;
  uint32_t entryCapacity;
  uint32_t heightClassMask;  // bit k set when the index holds entries of height class k
  int indexState;            // 0 not built, 1 built, -1 could not be built
  LinkCache* caches;
  uint32_t cacheBooks;
};

}  // namespace

static void FreeReaderIndex(Marking* m) {
  Release(m->entries);
  m->entries = nullptr;
  m->entryCount = m->entryCapacity = 0;
}

static void FreeMarking(Marking* m) {
  Release(m->frames);
  FreeReaderIndex(m);
  for (uint32_t b = 0; b < m->cacheBooks; b++) Release(m->caches[b].links);
  Release(m->caches);
}

static bool ResolveCached(Marking* m, uint32_t book, uint32_t sheet, int32_t linkIndex,
                          uint32_t* targetBook, int32_t* firstSheet, int32_t* lastSheet) {
  if (linkIndex < 0 || book >= m->cacheBooks)
    return ResolvePrecedent(book, sheet, linkIndex, targetBook, firstSheet, lastSheet);
  LinkCache* cache = &m->caches[book];
  if (!cache->links) {
    uint32_t count = GetWorkbook(book)->sheetLinkCount;
    cache->links = static_cast<CachedLink*>(Allocate(count * sizeof(CachedLink)));
    if (cache->links) cache->count = count;
  }
  if (static_cast<uint32_t>(linkIndex) >= cache->count)
    return ResolvePrecedent(book, sheet, linkIndex, targetBook, firstSheet, lastSheet);
  CachedLink* c = &cache->links[linkIndex];
  if (!c->known) {
    c->known = 1;
    c->resolved = ResolvePrecedent(book, sheet, linkIndex, &c->book, &c->firstSheet, &c->lastSheet);
  }
  *targetBook = c->book;
  *firstSheet = c->firstSheet;
  *lastSheet = c->lastSheet;
  return c->resolved != 0;
}

// The same test as IntersectRanges, so that a reversed range overlaps nothing.
static inline bool Overlaps(const Range& a, const Range& b) {
  return std::max(a.firstRow, b.firstRow) <= std::min(a.lastRow, b.lastRow) &&
         std::max(a.firstCol, b.firstCol) <= std::min(a.lastCol, b.lastCol);
}

static void AddToBatch(Marking* m, const DirtyFrame& f) {
  Range& box = m->batchBox;
  if (m->batchCount == 0) {
    box = f.range;
  } else {
    box.firstRow = std::min(box.firstRow, f.range.firstRow);
    box.lastRow = std::max(box.lastRow, f.range.lastRow);
    box.firstCol = std::min(box.firstCol, f.range.firstCol);
    box.lastCol = std::max(box.lastCol, f.range.lastCol);
  }
  m->batch[m->batchCount++] = f;
}

// Marks the cell dirty and queues it as a changed range of its own; during a scan it also joins
// the batch, for the cells the scan has still to look at. A cell that cannot be queued stays
// marked; only the readers beyond it are missed, and the allocator has told the user.
static void MarkAndQueue(Marking* m, uint32_t book, uint32_t sheet, Cell* cell) {
  cell->state = CellDirty;
  DirtyFrame f{book, sheet, Range{cell->row, cell->row, cell->col, cell->col}};
  InvalidateIfShown(book, sheet, &f.range);
  if (m->scanning && m->batchCount < ScanBatch) AddToBatch(m, f);
  if (!GrowArrayByDoubling(&m->frames, &m->frameCapacity, m->frameCount + 1, 16)) return;
  m->frames[m->frameCount++] = f;
}

// Does any precedent of `cell`, which lies on (book, sheet), overlap a range of the batch?
static bool ReadsBatch(Marking* m, uint32_t book, uint32_t sheet, const Cell* cell) {
  for (uint32_t i = 0; i < cell->precedentCount; i++) {
    const Precedent& p = cell->precedents[i];
    Range range = p.range;
    if (!Overlaps(range, m->batchBox)) continue;
    uint32_t targetBook;
    int32_t first, last;
    if (!ResolveCached(m, book, sheet, p.linkIndex, &targetBook, &first, &last)) continue;
    for (uint32_t f = 0; f < m->batchCount; f++) {
      const DirtyFrame& frame = m->batch[f];
      if (frame.book == targetBook && first <= static_cast<int32_t>(frame.sheet) &&
          static_cast<int32_t>(frame.sheet) <= last && Overlaps(range, frame.range))
        return true;
    }
  }
  return false;
}

// Calls visit(book, sheet, cell) on every formula cell not dirty yet, on every worksheet of every
// open workbook, until it returns false. Marking changes only states, so each sheet's cell array
// holds still while it is walked. Returns false when the visit stopped the walk.
template <typename Visit>
static bool ForEachCleanFormula(Visit visit) {
  for (uint32_t b = 0; b < App.workbookCount; b++) {
    for (uint32_t s = 0; s < GetWorkbook(b)->sheetCount; s++) {
      const Sheet* sh = GetSheet(b, s);
      if (sh->kind != SheetWorksheet) continue;
      Cell* const* cells = sh->cells.cells;
      uint32_t count = sh->cells.count;
      for (uint32_t i = 0; i < count; i++) {
        Cell* c = cells[i];
        if (c->formula.bytes && c->state != CellDirty && !visit(b, s, c)) return false;
      }
    }
  }
  return true;
}

// Looks at every formula of every open workbook for readers of the batch.
static void ScanForReaders(Marking* m) {
  m->scanning = true;
  ForEachCleanFormula([m](uint32_t b, uint32_t s, Cell* c) {
    if (c->isVolatile || ReadsBatch(m, b, s, c)) MarkAndQueue(m, b, s, c);
    return true;
  });
  m->scanning = false;
  m->scans++;
}

static uint32_t HeightClass(const Range& r) {
  uint32_t height = static_cast<uint32_t>(r.lastRow) - r.firstRow + 1;
  uint32_t k = 0;
  while (height >>= 1) k++;
  return k;
}

static uint64_t ReaderKey(uint32_t book, uint32_t sheet, uint32_t heightClass, uint32_t block,
                          uint32_t firstRow) {
  return static_cast<uint64_t>(book) << 48 | static_cast<uint64_t>(sheet) << 32 |
         static_cast<uint64_t>(heightClass) << 24 | static_cast<uint64_t>(block) << 16 | firstRow;
}

static int AddReaderEntry(Marking* m, const ReaderEntry& e) {
  if (!GrowArrayByDoubling(&m->entries, &m->entryCapacity, m->entryCount + 1, 1024)) return 0;
  m->entries[m->entryCount++] = e;
  return 1;
}

// Files every precedent of every formula cell that is not dirty yet (cells marked from now on
// are never looked at again, and dirty ones never marked) under each sheet of its span and each
// column block it covers. Returns 0 when memory runs out or the keys cannot hold the workbooks.
static int BuildReaderIndex(Marking* m) {
  if (App.workbookCount > 0xFFFF) return 0;
  bool complete = ForEachCleanFormula([m](uint32_t b, uint32_t s, Cell* c) {
    for (uint32_t p = 0; p < c->precedentCount; p++) {
      Range r = c->precedents[p].range;
      uint32_t targetBook;
      int32_t first, last;
      if (r.firstRow > r.lastRow || r.firstCol > r.lastCol) continue;
      if (!ResolveCached(m, b, s, c->precedents[p].linkIndex, &targetBook, &first, &last)) continue;
      if (targetBook > 0xFFFF) continue;
      last = std::min<int32_t>(last, static_cast<int32_t>(MaxSheets) - 1);
      uint32_t k = HeightClass(r);
      m->heightClassMask |= 1u << k;
      for (int32_t t = first; t <= last; t++) {
        for (uint32_t j = r.firstCol >> ColumnBlockShift; j <= r.lastCol >> ColumnBlockShift; j++) {
          ReaderEntry e{ReaderKey(targetBook, static_cast<uint32_t>(t), k, j, r.firstRow), c, b,
                        static_cast<uint16_t>(s), r};
          if (!AddReaderEntry(m, e)) return false;
        }
      }
    }
    return true;
  });
  if (!complete) return 0;
  std::sort(m->entries, m->entries + m->entryCount,
            [](const ReaderEntry& a, const ReaderEntry& b) { return a.key < b.key; });
  return 1;
}

static void QueryReaderIndex(Marking* m, const DirtyFrame& frame) {
  if (frame.book > 0xFFFF || frame.sheet > 0xFFFF) return;
  const Range& r = frame.range;
  for (uint32_t k = 0; k < HeightClasses; k++) {
    if (!(m->heightClassMask & (1u << k))) continue;
    // An entry of this class is at most 2^(k+1) - 1 rows high.
    int64_t lowest = static_cast<int64_t>(r.firstRow) - (int64_t{2} << k) + 2;
    uint32_t fromRow = static_cast<uint32_t>(std::max<int64_t>(lowest, 0));
    for (uint32_t j = r.firstCol >> ColumnBlockShift; j <= r.lastCol >> ColumnBlockShift; j++) {
      uint64_t from = ReaderKey(frame.book, frame.sheet, k, j, fromRow);
      uint64_t to = ReaderKey(frame.book, frame.sheet, k, j, r.lastRow);
      const ReaderEntry* e =
          std::lower_bound(m->entries, m->entries + m->entryCount, from,
                           [](const ReaderEntry& a, uint64_t key) { return a.key < key; });
      for (; e < m->entries + m->entryCount && e->key <= to; e++) {
        if (e->cell->state == CellDirty || !Overlaps(e->range, r)) continue;
        MarkAndQueue(m, e->book, e->sheet, e->cell);
      }
    }
  }
}

static void BeginMarking(Marking* m) {
  *m = Marking{};
  m->caches = static_cast<LinkCache*>(Allocate(App.workbookCount * sizeof(LinkCache)));
  if (m->caches) m->cacheBooks = App.workbookCount;
}

// Finds the readers of every queued range until none is left, then releases the marking.
static void FinishMarking(Marking* m) {
  while (m->frameCount) {
    if (m->indexState == 0 && m->scans >= PlainScanLimit) {
      m->indexState = BuildReaderIndex(m) ? 1 : -1;
      if (m->indexState < 0) FreeReaderIndex(m);
    }
    if (m->indexState == 1) {
      DirtyFrame frame = m->frames[--m->frameCount];
      QueryReaderIndex(m, frame);
      continue;
    }
    m->batchCount = 0;
    while (m->frameCount && m->batchCount < ScanBatch) AddToBatch(m, m->frames[--m->frameCount]);
    ScanForReaders(m);
  }
  FreeMarking(m);
}

void PropagateDirty(uint32_t book, uint32_t sheet, const Range* range) {
  Marking m;
  BeginMarking(&m);
  InvalidateIfShown(book, sheet, range);
  // The first range is always scanned, which marks every volatile cell, so the index never has
  // to know about them.
  AddToBatch(&m, DirtyFrame{book, sheet, *range});
  ScanForReaders(&m);
  FinishMarking(&m);
}

void MarkReadersOfDirtyFormulas(uint32_t book) {
  Marking m;
  BeginMarking(&m);
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    const Sheet* sh = GetSheet(book, s);
    if (sh->kind != SheetWorksheet) continue;
    for (uint32_t i = 0; i < sh->cells.count; i++) {
      const Cell* c = sh->cells.cells[i];
      if (!c->formula.bytes || c->state != CellDirty) continue;
      uint32_t step = m.frameCapacity ? m.frameCapacity : 16;
      if (!GrowArray(&m.frames, &m.frameCapacity, m.frameCount + 1, step)) break;
      m.frames[m.frameCount++] = DirtyFrame{book, s, Range{c->row, c->row, c->col, c->col}};
    }
  }
  FinishMarking(&m);
}

void MarkDependents(uint32_t book, uint32_t sheet, Cell* cell, int markSelf) {
  if (markSelf && IsWorksheet(book, sheet)) cell->state = CellDirty;
  Range r{cell->row, cell->row, cell->col, cell->col};
  PropagateDirty(book, sheet, &r);
}

void RefreshVolatiles() {
  if (App.currentBook >= App.workbookCount) return;
  uint32_t book = App.currentBook;
  for (uint32_t s = 0; s < GetWorkbook(book)->sheetCount; s++) {
    if (GetSheet(book, s)->kind != SheetWorksheet) continue;
    for (uint32_t i = 0; i < GetSheet(book, s)->cells.count; i++) {
      Cell* c = GetSheet(book, s)->cells.cells[i];
      if (c->formula.bytes && c->isVolatile && c->state != CellDirty) MarkDependents(book, s, c, 1);
    }
  }
}

void DirtySheet(uint32_t sheet) {
  if (App.currentBook >= App.workbookCount || !IsWorksheet(App.currentBook, sheet)) return;
  CellArray* cells = &GetSheet(App.currentBook, sheet)->cells;
  for (uint32_t i = 0; i < cells->count; i++)
    if (cells->cells[i]->formula.bytes) cells->cells[i]->state = CellDirty;
}

void RecalculateWorkbook() {
  if (App.currentBook >= App.workbookCount) return;
  uint32_t book = App.currentBook;
  for (uint32_t s = 0; s < GetWorkbook(book)->sheetCount; s++) DirtySheet(s);
  Range whole{0, static_cast<uint16_t>(MaxRow), 0, static_cast<uint8_t>(MaxCol)};
  InvalidateIfShown(book, GetWorkbook(book)->currentSheet, &whole);
}

// ---------------------------------------------------------------------------------------------
// Display text

// A number with no text under its format (a date outside the calendar) shows as "#" across the
// cell's width, or as one "#" where no width is known.
static char16_t* HashFill(const TextMeasure* measure, int32_t availableWidth) {
  int32_t each = measure ? measure->width(measure, u"#", 1) : 0;
  uint32_t count =
      each > 0 && availableWidth > each ? static_cast<uint32_t>(availableWidth / each) : 1;
  if (count > FormatOutputCapacity - 1) count = FormatOutputCapacity - 1;
  auto* text = static_cast<char16_t*>(Allocate((count + 1) * sizeof(char16_t)));
  if (!text) return nullptr;
  for (uint32_t i = 0; i < count; i++) text[i] = u'#';
  text[count] = 0;
  return text;
}

const char16_t* CellNumberText(uint32_t book, const Cell* cell, const TextMeasure* measure,
                               int32_t availableWidth, uint8_t* color) {
  const Workbook* wb = GetWorkbook(book);
  const Xf* xf = cell->xf < wb->xfCount ? &wb->xfs[cell->xf] : nullptr;
  const char16_t* code = FormatCodeAt(book, xf ? xf->numberFormat : 0);
  if (FormatOutsideCalendar(cell->value.number, code, wb->date1904)) return nullptr;
  return FormatNumber(cell->value.number, code, wb->date1904, measure, availableWidth, color);
}

// The text a cell shows. Texts show as they are, booleans and errors by their names, and numbers
// through the cell's number format.
static char16_t* DisplayText(uint32_t book, uint32_t sheet, Cell* cell, const TextMeasure* measure,
                             int32_t availableWidth) {
  const Workbook* wb = GetWorkbook(book);
  const Xf* xf = cell->xf < wb->xfCount ? &wb->xfs[cell->xf] : nullptr;
  cell->textColor = xf && xf->font < wb->fontCount ? wb->fonts[xf->font].color : AutomaticFontColor;
  if (cell->value.tag == ValueNumber) {
    uint8_t color = FormatNoColor;
    const char16_t* text = CellNumberText(book, cell, measure, availableWidth, &color);
    if (!text) return HashFill(measure, availableWidth);
    if (color != FormatNoColor) cell->textColor = color;
    return TextDuplicate(text);
  }
  Value copy{};
  if (!CopyValue(&copy, &cell->value)) return nullptr;
  EvalContext ctx{book, sheet, cell->row, cell->col, 0};
  CoerceValue(&copy, ValueText, &ctx);
  if (copy.tag == ValueText) return copy.text;
  FreeValue(&copy);
  return nullptr;
}

int EnsureCellText(uint32_t book, uint32_t sheet, Cell* cell, const TextMeasure* measure,
                   int32_t availableWidth) {
  if (cell->state == CellShown && !measure) return 1;
  if (cell->state < CellCalculated && !CalculateCell(book, sheet, cell)) return 0;
  Release(cell->text);
  cell->text = DisplayText(book, sheet, cell, measure, availableWidth);
  cell->state = CellShown;
  return 1;
}

static bool UsesName(const FormulaTokens* tokens, uint32_t nameIndex) {
  for (uint32_t p = 0; p < tokens->length; p = NextTokenPosition(tokens->bytes, p))
    if (FoldOpcode(tokens->bytes[p]) == ptgName && ReadU16(tokens->bytes + p + 1) == nameIndex + 1)
      return true;
  return false;
}

void RenewNameUsers(uint32_t book, uint32_t nameIndex) {
  for (uint32_t sheet = 0; sheet < GetWorkbook(book)->sheetCount; sheet++) {
    if (!IsWorksheet(book, sheet)) continue;
    // Marking neither adds nor removes cells, so the array stays put while it is walked.
    const CellArray* cells = &GetSheet(book, sheet)->cells;
    for (uint32_t i = 0; i < cells->count; i++) {
      Cell* cell = cells->cells[i];
      if (!cell->formula.bytes || !UsesName(&cell->formula, nameIndex)) continue;
      BuildPrecedents(book, sheet, cell);
      if (cell->state != CellDirty) MarkDependents(book, sheet, cell, 1);
    }
  }
}
