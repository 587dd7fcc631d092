// The undo stack. A record is built whole before it goes on the stack, so a command whose push
// fails finds the stack as it was. Each record copies the fixed fields of its sheet; what else it
// keeps, and how it is put back, follows from the family of its kind (the table below): cells of
// a region, row and column records, a whole sheet, a defined name. Records are plain heap blocks
// that own their copies; popping moves those copies back into the model where it can, so undo
// itself rarely needs memory.
#include "model/undo.h"

#include <cstring>
#include <type_traits>

#include "base/alloc.h"
#include "base/text.h"
#include "formula/recalc.h"
#include "formula/rewrite.h"
#include "model/hooks.h"
#include "model/names.h"

namespace {

// What a family of kinds keeps and how it is undone.
enum UndoFamily : uint8_t {
  FamilyRegion,            // contents or formats of a region
  FamilyStructure,         // cells moved by an insertion, a deletion or a move
  FamilyDeleteSheet,       // a worksheet or macro sheet taken out
  FamilyDeleteChartSheet,  // a chart sheet taken out
  FamilyInsertSheet,       // a sheet of any kind put in
  FamilyAddName,
  FamilyChangeName,
  FamilyDeleteName,
  FamilyRowsColumns,  // row and column formats, sizes, hiding
  FamilyWindow,       // window fields and options of a sheet
  FamilyVisibility,   // a sheet hidden or shown
  FamilyCount,
};

}  // namespace

static const uint8_t KindFamily[] = {
    FamilyRegion,      FamilyRegion,      FamilyRegion,      FamilyRegion,            // 0-3
    FamilyStructure,   FamilyStructure,   FamilyDeleteSheet, FamilyDeleteChartSheet,  // 4-7
    FamilyStructure,   FamilyStructure,   FamilyStructure,                            // 8-10
    FamilyInsertSheet, FamilyInsertSheet,                                             // 11-12
    FamilyAddName,     FamilyChangeName,  FamilyDeleteName,                           // 13-15
    FamilyRowsColumns, FamilyRowsColumns, FamilyRowsColumns, FamilyRowsColumns,       // 16-19
    FamilyRowsColumns, FamilyRowsColumns, FamilyRowsColumns,                          // 20-22
    FamilyWindow,      FamilyWindow,      FamilyWindow,      FamilyWindow,            // 23-26
    FamilyWindow,      FamilyWindow,      FamilyWindow,      FamilyWindow,            // 27-30
    FamilyRegion,      FamilyDeleteSheet, FamilyInsertSheet, FamilyWindow,            // 31-34
    FamilyStructure,                                                                  // 35
    FamilyRegion,      FamilyRegion,      FamilyRegion,      FamilyRegion,            // 36-39
    FamilyRegion,      FamilyRegion,      FamilyRegion,      FamilyRegion,            // 40-43
    FamilyVisibility,  FamilyVisibility,                                              // 44-45
};
static_assert(sizeof KindFamily == UndoKindCount, "one family for each kind");

// Families whose records carry a copy of the sheet's row and column records.
static bool KeepsRowsAndColumns(uint8_t family) {
  return family == FamilyStructure || family == FamilyDeleteSheet || family == FamilyRowsColumns;
}

namespace {

// What lay on an area of a sheet. Objects, validations and conditional groups join it with their
// subsystems; until then nothing of theirs is kept.
struct RegionSnapshot {
  int32_t taken;
  Range range;
  int32_t wholeSheet;
  uint32_t cellCount;
  Cell* cells;  // one block; each cell owns copies of its formula, value, text and precedents
  uint32_t arrayFormulaCount;
  ArrayFormula* arrayFormulas;
  uint32_t mergeCount;
  Range* merges;
  uint32_t commentCount;
  CellComment* comments;
};

// The window fields of a sheet that every record keeps and every undo step puts back.
struct SheetPositions {
  uint16_t paneTopRow;
  uint8_t paneLeftCol;
  uint16_t frozenRow;
  uint8_t frozenCol;
  uint16_t topRow;
  uint8_t leftCol;
  uint16_t activeRow;
  uint8_t activeCol;
  Range selection;
};

struct UndoRecord {
  uint32_t book;
  int32_t kind;
  uint16_t sheet;
  char16_t sheetName[SheetNameCapacity];
  uint16_t zoom;
  uint32_t flags;  // the low eight bits of the sheet's
  uint16_t defaultColWidth;
  uint16_t defaultRowHeight;
  SheetPositions positions;
  uint16_t objectCounter;
  int32_t sheetKind;
  int32_t hidden;
  int32_t hasWindow;  // the sheet had cells, so the fields above behind the name are its own
  ColumnArray columnSnapshot;
  RowArray rowSnapshot;
  RegionSnapshot region;
  // Structural kinds: the block before the change and how far it moved.
  int32_t shifted;
  Range shiftSource;
  int32_t rowDelta;
  int32_t colDelta;
  // Name kinds.
  uint32_t nameIndex;
  int32_t hasName;
  DefinedName name;
  // Sheet deletion: what RenumberForDeletedSheet changes, to be put back as it was.
  uint32_t linkCount;
  SheetLink* links;
  uint32_t localCount;
  uint16_t* localSheets;
};

}  // namespace

static UndoRecord* undoStack[UndoDepth];
static uint32_t undoCount;

static const Range WholeSheet{0, static_cast<uint16_t>(MaxRow), 0, static_cast<uint8_t>(MaxCol)};

static bool RangeInside(const Range* inner, const Range* outer) {
  return inner->firstRow >= outer->firstRow && inner->lastRow <= outer->lastRow &&
         inner->firstCol >= outer->firstCol && inner->lastCol <= outer->lastCol;
}

// ---------------------------------------------------------------------------------------------
// Copies and releases

// A deep copy of a cell, or 0 with nothing owned by `to`.
static int CopyCell(Cell* to, const Cell* from) {
  *to = *from;
  to->formula = FormulaTokens{};
  to->value = Value{};
  to->text = nullptr;
  to->precedents = nullptr;
  to->precedentCount = to->precedentCapacity = 0;
  bool ok = CopyValue(&to->value, &from->value) && CopyTokens(&to->formula, &from->formula) &&
            DuplicateText(&to->text, from->text);
  if (ok && from->precedentCount) {
    size_t size = from->precedentCount * sizeof(Precedent);
    to->precedents = static_cast<Precedent*>(Allocate(size));
    if (to->precedents) {
      std::memcpy(to->precedents, from->precedents, size);
      to->precedentCount = to->precedentCapacity = from->precedentCount;
    }
    ok = to->precedents != nullptr;
  }
  if (!ok) ClearCellContents(to);
  return ok;
}

// Row and column arrays are copied record by record, so that undo can put the copy in place of
// the sheet's array without allocating.
template <typename Array>
static int CopyRecordArray(Array* to, const Array* from) {
  using Record = std::remove_pointer_t<std::remove_pointer_t<decltype(from->records)>>;
  *to = Array{};
  if (!from->count) return 1;
  to->records = static_cast<Record**>(Allocate(from->count * sizeof(Record*)));
  if (!to->records) return 0;
  to->capacity = from->count;
  for (uint32_t i = 0; i < from->count; i++) {
    Record* record = static_cast<Record*>(Allocate(sizeof(Record)));
    if (!record) return 0;  // the caller frees what was copied
    *record = *from->records[i];
    to->records[to->count++] = record;
  }
  return 1;
}

static void FreeRegion(RegionSnapshot* g) {
  for (uint32_t i = 0; i < g->cellCount; i++) ClearCellContents(&g->cells[i]);
  Release(g->cells);
  for (uint32_t i = 0; i < g->arrayFormulaCount; i++) FreeTokens(&g->arrayFormulas[i].formula);
  Release(g->arrayFormulas);
  Release(g->merges);
  for (uint32_t i = 0; i < g->commentCount; i++) Release(g->comments[i].text);
  Release(g->comments);
  *g = RegionSnapshot{};
}

static void FreeRecord(UndoRecord* r) {
  if (!r) return;
  FreeColumnArray(&r->columnSnapshot);
  FreeRowArray(&r->rowSnapshot);
  FreeRegion(&r->region);
  Release(r->name.name);
  FreeTokens(&r->name.formula);
  Release(r->links);
  Release(r->localSheets);
  Release(r);
}

// Counts the cells of the range by one walk, takes one block for them and copies them; then the
// array formulas and merges that lie wholly inside, and the comments of its cells.
static int TakeRegion(RegionSnapshot* g, const Sheet* s, const Range* range) {
  g->taken = 1;
  g->range = *range;
  g->wholeSheet = EqualRanges(range, &WholeSheet);
  CellRangeWalk walk;
  uint32_t count = 0;
  BeginRangeWalk(&walk, &s->cells, range);
  while (NextCellInRange(&walk)) count++;
  if (count) {
    g->cells = static_cast<Cell*>(Allocate(count * sizeof(Cell)));
    if (!g->cells) return 0;
    BeginRangeWalk(&walk, &s->cells, range);
    while (const Cell* c = NextCellInRange(&walk)) {
      if (!CopyCell(&g->cells[g->cellCount], c)) return 0;
      g->cellCount++;
    }
  }

  count = 0;
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++)
    if (RangeInside(&s->arrayFormulas[i].range, range)) count++;
  if (count) {
    g->arrayFormulas = static_cast<ArrayFormula*>(Allocate(count * sizeof(ArrayFormula)));
    if (!g->arrayFormulas) return 0;
    for (uint32_t i = 0; i < s->arrayFormulaCount; i++) {
      const ArrayFormula* a = &s->arrayFormulas[i];
      if (!RangeInside(&a->range, range)) continue;
      ArrayFormula* copy = &g->arrayFormulas[g->arrayFormulaCount];
      copy->range = a->range;
      if (!CopyTokens(&copy->formula, &a->formula)) return 0;
      g->arrayFormulaCount++;
    }
  }

  count = 0;
  for (uint32_t i = 0; i < s->mergeCount; i++)
    if (RangeInside(&s->merges[i], range)) count++;
  if (count) {
    g->merges = static_cast<Range*>(Allocate(count * sizeof(Range)));
    if (!g->merges) return 0;
    for (uint32_t i = 0; i < s->mergeCount; i++)
      if (RangeInside(&s->merges[i], range)) g->merges[g->mergeCount++] = s->merges[i];
  }

  count = 0;
  for (uint32_t i = 0; i < s->commentCount; i++)
    if (RangeContains(range, s->comments[i].row, s->comments[i].col)) count++;
  if (count) {
    g->comments = static_cast<CellComment*>(Allocate(count * sizeof(CellComment)));
    if (!g->comments) return 0;
    for (uint32_t i = 0; i < s->commentCount; i++) {
      const CellComment* c = &s->comments[i];
      if (!RangeContains(range, c->row, c->col)) continue;
      CellComment* copy = &g->comments[g->commentCount];
      *copy = CellComment{c->row, c->col, nullptr};
      if (!DuplicateText(&copy->text, c->text)) return 0;
      g->commentCount++;
    }
  }
  // Drawing objects, validations and conditional groups of the range are copied here by their
  // subsystems as they arrive.
  return 1;
}

// ---------------------------------------------------------------------------------------------
// Building records and the stack

static UndoRecord* NewRecord(uint32_t book, uint32_t sheet, int32_t kind) {
  if (kind < 0 || kind >= UndoKindCount || book >= App.workbookCount ||
      sheet >= GetWorkbook(book)->sheetCount) {
    return nullptr;
  }
  UndoRecord* r = static_cast<UndoRecord*>(Allocate(sizeof(UndoRecord)));
  if (!r) return nullptr;
  const Workbook* wb = GetWorkbook(book);
  const Sheet* s = wb->sheets[sheet];
  r->book = book;
  r->kind = kind;
  r->sheet = static_cast<uint16_t>(sheet);
  TextCopy(r->sheetName, SheetNameCapacity, s->name);
  r->zoom = s->zoom;
  r->sheetKind = s->kind;
  r->hidden = s->hidden;
  if (!SheetHasCells(s)) return r;  // a chart sheet keeps its chart where these fields would be

  r->hasWindow = 1;
  r->flags = s->flags & 0xFF;
  r->defaultColWidth = s->defaultColWidth;
  r->defaultRowHeight = s->defaultRowHeight;
  r->positions =
      SheetPositions{s->paneTopRow, s->paneLeftCol, s->frozenRow, s->frozenCol, s->topRow,
                     s->leftCol,    s->activeRow,   s->activeCol, s->selection};
  r->objectCounter = s->nextObjectId;

  uint8_t family = KindFamily[kind];
  bool ok = true;
  if (KeepsRowsAndColumns(family)) {
    ok = CopyRecordArray(&r->columnSnapshot, &s->columns) &&
         CopyRecordArray(&r->rowSnapshot, &s->rows);
  }
  if (ok && family == FamilyDeleteSheet) {
    ok = TakeRegion(&r->region, s, &WholeSheet);
    if (ok && wb->sheetLinkCount) {
      r->links = static_cast<SheetLink*>(Allocate(wb->sheetLinkCount * sizeof(SheetLink)));
      ok = r->links != nullptr;
      if (ok) {
        std::memcpy(r->links, wb->sheetLinks, wb->sheetLinkCount * sizeof(SheetLink));
        r->linkCount = wb->sheetLinkCount;
      }
    }
    if (ok && wb->nameCount) {
      r->localSheets = static_cast<uint16_t*>(Allocate(wb->nameCount * sizeof(uint16_t)));
      ok = r->localSheets != nullptr;
      if (ok) {
        for (uint32_t i = 0; i < wb->nameCount; i++) r->localSheets[i] = wb->names[i].localSheet;
        r->localCount = wb->nameCount;
      }
    }
  }
  if (!ok) {
    FreeRecord(r);
    return nullptr;
  }
  return r;
}

// Puts a finished record on top, dropping the oldest when the stack is full.
static void PlaceRecord(UndoRecord* r) {
  if (undoCount == UndoDepth) {
    FreeRecord(undoStack[0]);
    std::memmove(&undoStack[0], &undoStack[1], (UndoDepth - 1) * sizeof(UndoRecord*));
    undoCount--;
  }
  undoStack[undoCount++] = r;
}

int PushUndo(uint32_t book, uint32_t sheet, int32_t kind) {
  UndoRecord* r = NewRecord(book, sheet, kind);
  if (!r) return 0;
  PlaceRecord(r);
  return 1;
}

int PushRegionUndo(int32_t kind, uint32_t book, uint32_t sheet, const Range* range) {
  UndoRecord* r = NewRecord(book, sheet, kind);
  if (!r) return 0;
  if (!r->region.taken && SheetHasCells(GetSheet(book, sheet)) &&
      !TakeRegion(&r->region, GetSheet(book, sheet), range)) {
    FreeRecord(r);
    return 0;
  }
  PlaceRecord(r);
  return 1;
}

int PushNameUndo(int32_t kind, uint32_t book, uint32_t nameIndex) {
  if (book >= App.workbookCount) return 0;
  UndoRecord* r = NewRecord(book, GetWorkbook(book)->currentSheet, kind);
  if (!r) return 0;
  r->nameIndex = nameIndex;
  const Workbook* wb = GetWorkbook(book);
  if (nameIndex < wb->nameCount) {
    const DefinedName* name = &wb->names[nameIndex];
    r->name = *name;
    r->name.name = nullptr;
    r->name.formula = FormulaTokens{};
    if (!DuplicateText(&r->name.name, name->name) ||
        !CopyTokens(&r->name.formula, &name->formula)) {
      FreeRecord(r);
      return 0;
    }
    r->hasName = 1;
  }
  PlaceRecord(r);
  return 1;
}

void SetUndoShift(const Range* source, int32_t rowDelta, int32_t colDelta) {
  if (!undoCount) return;
  UndoRecord* r = undoStack[undoCount - 1];
  r->shifted = 1;
  r->shiftSource = *source;
  r->rowDelta = rowDelta;
  r->colDelta = colDelta;
}

uint32_t UndoCount() {
  return undoCount;
}

void ClearUndo() {
  for (uint32_t i = 0; i < undoCount; i++) FreeRecord(undoStack[i]);
  undoCount = 0;
}

void ForgetWorkbookInUndo(uint32_t book) {
  uint32_t kept = 0;
  for (uint32_t i = 0; i < undoCount; i++) {
    UndoRecord* r = undoStack[i];
    if (r->book == book) {
      FreeRecord(r);
      continue;
    }
    if (r->book > book) r->book--;
    undoStack[kept++] = r;
  }
  undoCount = kept;
}

// ---------------------------------------------------------------------------------------------
// Putting things back

// Appends `count` items to a sheet list that is kept exactly as long as its count.
template <typename T>
static int AppendItems(T** items, uint32_t* count, const T* add, uint32_t addCount) {
  if (!addCount) return 1;
  void* grown = Reallocate(*items, *count * sizeof(T), (*count + addCount) * sizeof(T));
  if (!grown) return 0;
  *items = static_cast<T*>(grown);
  std::memcpy(*items + *count, add, addCount * sizeof(T));
  *count += addCount;
  return 1;
}

// Takes out of the sheet's lists what lies over `range`: array formulas and merges wholly
// inside, comments on its cells.
static void ClearSheetLists(Sheet* s, const Range* range) {
  uint32_t kept = 0;
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++) {
    if (RangeInside(&s->arrayFormulas[i].range, range))
      FreeTokens(&s->arrayFormulas[i].formula);
    else
      s->arrayFormulas[kept++] = s->arrayFormulas[i];
  }
  s->arrayFormulaCount = kept;
  kept = 0;
  for (uint32_t i = 0; i < s->mergeCount; i++)
    if (!RangeInside(&s->merges[i], range)) s->merges[kept++] = s->merges[i];
  s->mergeCount = kept;
  kept = 0;
  for (uint32_t i = 0; i < s->commentCount; i++) {
    if (RangeContains(range, s->comments[i].row, s->comments[i].col))
      Release(s->comments[i].text);
    else
      s->comments[kept++] = s->comments[i];
  }
  s->commentCount = kept;
}

static void ClearArea(uint32_t book, uint32_t sheet, const Range* range) {
  ClearCellsInRange(book, sheet, range);
  ClearSheetLists(GetSheet(book, sheet), range);
}

// Clears the region and puts each saved cell back, then its lists; comments come last, since
// storing a cell removes the comment on it. What reaches the sheet leaves the snapshot.
static void RestoreRegion(uint32_t book, uint32_t sheet, RegionSnapshot* g) {
  if (!g->taken) return;
  ClearArea(book, sheet, &g->range);
  for (uint32_t i = 0; i < g->cellCount; i++) {
    if (StoreCell(book, sheet, &g->cells[i], StoreOnly, KeepRowHeight)) g->cells[i] = Cell{};
  }
  Sheet* s = GetSheet(book, sheet);
  if (AppendItems(&s->arrayFormulas, &s->arrayFormulaCount, g->arrayFormulas,
                  g->arrayFormulaCount)) {
    g->arrayFormulaCount = 0;
  }
  if (AppendItems(&s->merges, &s->mergeCount, g->merges, g->mergeCount)) g->mergeCount = 0;
  if (AppendItems(&s->comments, &s->commentCount, g->comments, g->commentCount))
    g->commentCount = 0;
  // Drawing objects, validations and conditional groups are put back here by their subsystems.
  if (s->kind == SheetWorksheet) PropagateDirty(book, sheet, &g->range);
}

static void RestoreRowsAndColumns(uint32_t book, uint32_t sheet, UndoRecord* r) {
  Sheet* s = GetSheet(book, sheet);
  FreeRowArray(&s->rows);
  s->rows = r->rowSnapshot;
  r->rowSnapshot = RowArray{};
  FreeColumnArray(&s->columns);
  s->columns = r->columnSnapshot;
  r->columnSnapshot = ColumnArray{};
}

static void RestoreWindow(const UndoRecord* r) {
  Workbook* wb = GetWorkbook(r->book);
  if (!r->hasWindow || r->sheet >= wb->sheetCount || !SheetHasCells(wb->sheets[r->sheet])) return;
  Sheet* s = wb->sheets[r->sheet];
  const SheetPositions& p = r->positions;
  s->zoom = r->zoom;
  s->flags = (s->flags & ~0xFFu) | r->flags;
  s->defaultColWidth = r->defaultColWidth;
  s->defaultRowHeight = r->defaultRowHeight;
  s->paneTopRow = p.paneTopRow;
  s->paneLeftCol = p.paneLeftCol;
  s->frozenRow = p.frozenRow;
  s->frozenCol = p.frozenCol;
  s->topRow = p.topRow;
  s->leftCol = p.leftCol;
  s->activeRow = p.activeRow;
  s->activeCol = p.activeCol;
  s->selection = p.selection;
  s->nextObjectId = r->objectCounter;
}

static bool SheetExists(const UndoRecord* r) {
  return r->sheet < GetWorkbook(r->book)->sheetCount;
}

static void ReverseRegion(UndoRecord* r) {
  if (SheetExists(r) && SheetHasCells(GetSheet(r->book, r->sheet)))
    RestoreRegion(r->book, r->sheet, &r->region);
}

// Moves the block back where it was. The area it lands on, outside the block itself, was emptied
// by the change; it is cleared all the same so that the move finds it free.
static void ShiftBack(const UndoRecord* r) {
  Range moved = r->shiftSource;
  MoveRange(&moved, r->rowDelta, r->colDelta);
  RangeList landing{};
  Range overlap;
  if (AppendRange(&landing, &r->shiftSource)) {
    uint32_t first = 0;
    if (IntersectRanges(&r->shiftSource, &moved, &overlap)) {
      first = SplitRange(&landing, 0, &moved) ? 1 : landing.count;
    }
    for (uint32_t i = first; i < landing.count; i++)
      ClearArea(r->book, r->sheet, &landing.ranges[i]);
  }
  FreeRangeList(&landing);
  ShiftRange(r->book, r->sheet, &moved, -r->rowDelta, -r->colDelta);
}

static void ReverseStructure(UndoRecord* r) {
  if (!SheetExists(r) || !SheetHasCells(GetSheet(r->book, r->sheet))) return;
  if (r->shifted) ShiftBack(r);
  RestoreRegion(r->book, r->sheet, &r->region);
  RestoreRowsAndColumns(r->book, r->sheet, r);
}

static void ReverseRowsColumns(UndoRecord* r) {
  if (!SheetExists(r) || !SheetHasCells(GetSheet(r->book, r->sheet))) return;
  RestoreRegion(r->book, r->sheet, &r->region);
  RestoreRowsAndColumns(r->book, r->sheet, r);
}

// The sheet comes back at its place under its name; the names and self links that its deletion
// renumbered get their old values, and then its contents return.
static void ReverseDeleteSheet(UndoRecord* r) {
  Workbook* wb = GetWorkbook(r->book);
  if (r->sheet > wb->sheetCount) return;
  if (!InsertSheet(r->book, r->sheet, r->sheetName, r->sheetKind, NotUndoable, NoViewUpdate))
    return;
  wb = GetWorkbook(r->book);
  wb->sheets[r->sheet]->hidden = r->hidden;
  for (uint32_t i = 0; i < r->linkCount && i < wb->sheetLinkCount; i++) {
    if (IsSelfLink(r->book, i)) wb->sheetLinks[i] = r->links[i];
  }
  for (uint32_t i = 0; i < r->localCount && i < wb->nameCount; i++)
    wb->names[i].localSheet = r->localSheets[i];
  RestoreRowsAndColumns(r->book, r->sheet, r);
  RestoreRegion(r->book, r->sheet, &r->region);
  // Formulas elsewhere read this sheet again through the links put back.
  if (r->sheetKind == SheetWorksheet) PropagateDirty(r->book, r->sheet, &WholeSheet);
}

static void ReverseDeleteChartSheet(UndoRecord* r) {
  // The chart itself is copied back here once charts exist; until then the sheet returns empty.
  if (r->sheet > GetWorkbook(r->book)->sheetCount) return;
  if (InsertSheet(r->book, r->sheet, r->sheetName, SheetChart, NotUndoable, NoViewUpdate))
    GetSheet(r->book, r->sheet)->hidden = r->hidden;
}

static void ReverseInsertSheet(UndoRecord* r) {
  if (!SheetExists(r)) return;
  if (GetSheet(r->book, r->sheet)->kind == SheetWorksheet)
    PropagateDirty(r->book, r->sheet, &WholeSheet);
  DeleteSheet(r->book, r->sheet);
}

// A name that was added goes. The entry itself is taken out only when it is the last, since
// tokens address names by position; otherwise it stays without a formula, as an unknown name.
static void ReverseAddName(UndoRecord* r) {
  uint32_t count = GetWorkbook(r->book)->nameCount;
  if (r->nameIndex < count) DeleteName(r->book, r->nameIndex, r->nameIndex + 1 == count);
}

static void ReverseChangeName(UndoRecord* r) {
  Workbook* wb = GetWorkbook(r->book);
  if (!r->hasName || r->nameIndex >= wb->nameCount) return;
  DefinedName* name = &wb->names[r->nameIndex];
  Release(name->name);
  FreeTokens(&name->formula);
  *name = r->name;
  r->name = DefinedName{};
  RenewNameUsers(r->book, r->nameIndex);
}

// A deletion either emptied the entry (it still holds the name's text) or took it out; the name
// goes back into the same place.
static void ReverseDeleteName(UndoRecord* r) {
  Workbook* wb = GetWorkbook(r->book);
  if (!r->hasName || r->nameIndex > wb->nameCount) return;
  if (r->nameIndex < wb->nameCount) {
    DefinedName* kept = &wb->names[r->nameIndex];
    if (kept->name && !kept->formula.bytes && kept->localSheet == r->name.localSheet &&
        EqualTextNoCase(kept->name, r->name.name)) {
      Release(kept->name);
      *kept = r->name;
      r->name = DefinedName{};
      RenewNameUsers(r->book, r->nameIndex);
      return;
    }
  }
  uint32_t last = 0;
  if (!AddName(r->book, &r->name, &last)) return;
  r->name = DefinedName{};
  wb = GetWorkbook(r->book);
  DefinedName moved = wb->names[last];
  std::memmove(&wb->names[r->nameIndex + 1], &wb->names[r->nameIndex],
               (last - r->nameIndex) * sizeof(DefinedName));
  wb->names[r->nameIndex] = moved;
  RenewNameUsers(r->book, r->nameIndex);
}

static void ReverseVisibility(UndoRecord* r) {
  if (SheetExists(r)) GetSheet(r->book, r->sheet)->hidden = r->hidden;
}

// The window fields, put back for every family, are all a window record needs.
static void ReverseWindow(UndoRecord*) {}

using UndoApply = void (*)(UndoRecord* r);
static const UndoApply ApplyFamily[] = {
    ReverseRegion,      ReverseStructure, ReverseDeleteSheet, ReverseDeleteChartSheet,
    ReverseInsertSheet, ReverseAddName,   ReverseChangeName,  ReverseDeleteName,
    ReverseRowsColumns, ReverseWindow,    ReverseVisibility,
};
static_assert(sizeof ApplyFamily / sizeof ApplyFamily[0] == FamilyCount, "one way back per family");

int PopUndo() {
  if (!undoCount) return 0;
  UndoRecord* r = undoStack[--undoCount];
  undoStack[undoCount] = nullptr;
  if (r->book < App.workbookCount) {
    App.currentBook = r->book;
    Workbook* wb = GetWorkbook(r->book);
    if (r->sheet < wb->sheetCount) wb->currentSheet = r->sheet;
    uint8_t family = KindFamily[r->kind];
    ApplyFamily[family](r);
    if (family != FamilyInsertSheet) RestoreWindow(r);
    wb = GetWorkbook(r->book);
    if (r->sheet < wb->sheetCount && family != FamilyInsertSheet) wb->currentSheet = r->sheet;
    wb->dirty = 1;
  }
  FreeRecord(r);
  return 1;
}
