// The "Recherche & Ref" functions. Unlike the scalar families they work on references and
// arrays: the table lookups read a table through a Grid, which reads the cells of a reference in
// place (so a lookup over whole columns costs what the column holds) and the elements of an
// array alike; INDEX, DECALER and INDIRECT give references, which the formula carries on as
// references; the others measure or build.
#include "base/alloc.h"
#include "base/text.h"
#include "formula/evaluator.h"
#include "formula/reference_text.h"
#include "functions/aggregate.h"
#include "functions/criteria.h"
#include "functions/handlers.h"
#include "functions/numeric.h"
#include "functions/table.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

// A table to look in: the cells of one area on one sheet, or an array.
struct Grid {
  const Value* array;  // null for cells
  uint32_t book, sheet;
  Range area;
  uint32_t rows, columns;
};

const Value emptyValue{};

// The element at (row, column), counted from 0 inside the grid. A cell still dirty is calculated
// first. The value stays owned by the grid's cell or array.
const Value* GridAt(const Grid* g, uint32_t row, uint32_t column) {
  static const Value lostText = ErrorValue(ErrNA);
  if (g->array) return &g->array->elements[row * g->columns + column];
  Cell* cell = CellAt(&GetSheet(g->book, g->sheet)->cells, g->area.firstRow + row,
                      g->area.firstCol + column);
  if (!cell) return &emptyValue;
  PrepareCellForRead(g->book, g->sheet, cell);
  // A text whose string was lost reads as #N/A, as it does in an array.
  return cell->value.tag == ValueText && !cell->value.text ? &lostText : &cell->value;
}

// The one area on one sheet a reference stands for. Returns 0 with the error in `result`: a list
// of several areas is #N/A, a broken link #REF!, a span of several sheets #VALUE!.
int ReferenceArea(const Value* v, Value* result, const EvalContext* ctx, uint32_t* book,
                  uint32_t* sheet, Range* area) {
  ReferenceTarget target;
  uint32_t code = LocateReference(v, ctx, &target);
  if (code == ReferenceFound) {
    if (target.areaCount != 1)
      code = ErrNA;
    else if (target.firstSheet != target.lastSheet)
      code = ErrValue;
    else if (!SheetHasCells(GetSheet(target.book, target.firstSheet)))
      code = ErrRef;
  }
  if (code != ReferenceFound) {
    *result = ErrorValue(code);
    return 0;
  }
  *book = target.book;
  *sheet = target.firstSheet;
  *area = target.areas[0];
  return 1;
}

// Makes a grid of a table argument, which may be changed in place (a plain value becomes a
// one-element array). Returns 0 with the error in `result`.
int MakeGrid(Value* a, Value* result, const EvalContext* ctx, Grid* g) {
  *g = Grid{};
  if (a->tag == ValueRef || a->tag == ValueRefList) {
    if (!ReferenceArea(a, result, ctx, &g->book, &g->sheet, &g->area)) return 0;
    g->rows = g->area.lastRow - g->area.firstRow + 1u;
    g->columns = g->area.lastCol - g->area.firstCol + 1u;
    return 1;
  }
  if (a->tag == ValueError || a->tag == ValueEmpty) {
    *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
    return 0;
  }
  CoerceValue(a, ValueArray, ctx);
  if (a->tag != ValueArray || !a->elements) {
    *result = a->tag == ValueError ? *a : ErrorValue(ErrNA);
    return 0;
  }
  g->array = a;
  g->rows = a->rows;
  g->columns = a->columns;
  return 1;
}

// The element at a position along the grid's line: the row when `across` is false, else the
// column.
const Value* LineAt(const Grid* g, bool across, uint32_t line, uint32_t position) {
  return across ? GridAt(g, line, position) : GridAt(g, position, line);
}

// The order of two values of the same type: numbers, texts ignoring case, booleans as 0 and 1.
int SameTypeOrder(const Value* a, const Value* b) {
  switch (a->tag) {
    case ValueNumber:
      return (a->number > b->number) - (a->number < b->number);
    case ValueText:
      return CompareTextNoCase(a->text, b->text);
    case ValueBoolean:
      return static_cast<int>(a->boolean != 0) - static_cast<int>(b->boolean != 0);
    default:
      return 0;
  }
}

bool Comparable(const Value* v) {
  return v->tag == ValueNumber || v->tag == ValueText || v->tag == ValueBoolean;
}

bool SameType(const Value* a, const Value* b) {
  return a->tag == b->tag && Comparable(a);
}

constexpr uint32_t NotFound = UINT32_MAX;

// The position of `key` along a line of `count` elements read by `at`, as EQUIV finds it: type 0
// the first equal element (a text key may hold wildcards); type 1 the last element of the key's
// type not above it, the walk ending at the first one above; type -1 the same the other way.
template <typename At>
uint32_t FindPosition(const Value* key, uint32_t count, int type, At at) {
  uint32_t best = NotFound;
  for (uint32_t i = 0; i < count; i++) {
    const Value* e = at(i);
    if (!SameType(key, e)) continue;
    if (type == 0) {
      bool equal = key->tag == ValueText ? MatchWildcard(key->text, e->text, false)
                                         : SameTypeOrder(e, key) == 0;
      if (equal) return i;
      continue;
    }
    int order = SameTypeOrder(e, key);
    if (order == 0) return i;
    if ((type > 0 && order > 0) || (type < 0 && order < 0)) break;
    best = i;
  }
  return best;
}

// A copy of `v` as the result, an empty cell or element giving 0; #N/A when memory runs out.
void CopyResult(const Value* v, Value* result) {
  if (v->tag == ValueEmpty)
    *result = NumberValue(0);
  else if (!CopyValue(result, v))
    *result = ErrorValue(ErrNA);
}

// The lookup value of RECHERCHEV, RECHERCHEH, RECHERCHE and EQUIV, reduced to one value.
int KeyArg(Value* a, Value* result, const EvalContext* ctx) {
  ReduceToScalar(a, ctx);
  if (a->tag != ValueError) return 1;
  *result = *a;
  return 0;
}

// RECHERCHEV walks rows with the key in the first column; RECHERCHEH the same across.
void TableLookup(Value* args, Value* result, const EvalContext* ctx, bool across) {
  Grid g;
  double index;
  if (!KeyArg(&args[0], result, ctx) || !MakeGrid(&args[1], result, ctx, &g) ||
      !NumberFromArg(&args[2], result, ctx, &index))
    return;
  bool approximate;
  if (!BooleanFromArg(&args[3], result, ctx, true, &approximate)) return;
  int32_t offset = TruncateToInt32(index);
  uint32_t lines = across ? g.columns : g.rows, width = across ? g.rows : g.columns;
  if (offset < 1) {
    *result = ErrorValue(ErrValue);
    return;
  }
  if (static_cast<uint32_t>(offset) > width) {
    *result = ErrorValue(ErrRef);
    return;
  }
  const Value* key = &args[0];
  uint32_t match = NotFound;
  if (approximate) {
    // From the last line up: the first key of the same type not above the value. The walk needs
    // no sorted table to finish; on an unsorted one it finds the last line that fits.
    for (uint32_t i = lines; i-- > 0 && match == NotFound;) {
      const Value* e = LineAt(&g, across, 0, i);
      if (!SameType(key, e)) continue;
      int order = SameTypeOrder(e, key);
      if (key->tag == ValueBoolean ? order == 0 : order <= 0) match = i;
    }
  } else {
    for (uint32_t i = 0; i < lines && match == NotFound; i++) {
      const Value* e = LineAt(&g, across, 0, i);
      if (SameType(key, e) && SameTypeOrder(e, key) == 0) match = i;
    }
  }
  if (match == NotFound) {
    *result = ErrorValue(ErrNA);
    return;
  }
  CopyResult(LineAt(&g, across, static_cast<uint32_t>(offset) - 1, match), result);
}

// Picks a row, a column, a cell or everything of a block of `rows` by `columns`: the chosen rows
// and columns, counted from 0, come back as [first, last]. Returns 0 for an index out of range.
// A single index on a block of one row counts along the row.
int PickLines(uint32_t rows, uint32_t columns, int32_t row, int32_t column, bool columnGiven,
              uint32_t* firstRow, uint32_t* lastRow, uint32_t* firstCol, uint32_t* lastCol) {
  if (rows == 1 && !columnGiven) {
    column = row;
    row = 0;
  }
  if (row < 0 || column < 0 || static_cast<uint32_t>(row) > rows ||
      static_cast<uint32_t>(column) > columns)
    return 0;
  *firstRow = row ? row - 1 : 0;
  *lastRow = row ? row - 1 : rows - 1;
  *firstCol = column ? column - 1 : 0;
  *lastCol = column ? column - 1 : columns - 1;
  return 1;
}

// A reference of the same kind as `source` (inline or list, on the same link) to `area`.
void ReferenceLike(const Value* source, const Range* area, Value* result) {
  if (source->tag == ValueRef) {
    *result = RefValue(*area);
    return;
  }
  if (!MakeRefList(result, area, source->linkIndex)) *result = ErrorValue(ErrNA);
}

// A "row" or "column" measure of a reference or an array argument.
int Extent(Value* a, Value* result, const EvalContext* ctx, uint32_t* rows, uint32_t* columns) {
  if (a->tag == ValueRef || a->tag == ValueRefList) {
    if (a->tag == ValueRefList && (!a->refs || a->refs->count != 1)) {
      *result = ErrorValue(ErrRef);
      return 0;
    }
    const Range* r = a->tag == ValueRef ? &a->ref : &a->refs->areas[0];
    *rows = r->lastRow - r->firstRow + 1u;
    *columns = r->lastCol - r->firstCol + 1u;
    return 1;
  }
  if (a->tag == ValueError) {
    *result = *a;
    return 0;
  }
  if (a->tag == ValueArray) {
    *rows = a->rows;
    *columns = a->columns;
    return 1;
  }
  if (a->tag == ValueEmpty) {
    *result = ErrorValue(ErrValue);
    return 0;
  }
  (void)ctx;
  *rows = *columns = 1;
  return 1;
}

// LIGNE and COLONNE: the context cell without an argument; the first row or column of a
// reference, or in an array formula each of them.
void Position(Value* args, Value* result, const EvalContext* ctx, bool column) {
  Value* a = &args[0];
  if (a->tag == ValueEmpty) {
    *result = NumberValue((column ? ctx->col : ctx->row) + 1.0);
    return;
  }
  if (a->tag == ValueError) {
    *result = *a;
    return;
  }
  if (a->tag != ValueRef && (a->tag != ValueRefList || !a->refs || a->refs->count == 0)) {
    *result = ErrorValue(ErrValue);
    return;
  }
  const Range* r = a->tag == ValueRef ? &a->ref : &a->refs->areas[0];
  uint32_t first = column ? r->firstCol : r->firstRow;
  uint32_t count = column ? r->lastCol - r->firstCol + 1u : r->lastRow - r->firstRow + 1u;
  if (!ctx->arrayMode || count == 1) {
    *result = NumberValue(first + 1.0);
    return;
  }
  if (!MakeArray(result, column ? 1 : count, column ? count : 1)) {
    *result = ErrorValue(ErrNA);
    return;
  }
  for (uint32_t i = 0; i < count; i++) result->elements[i] = NumberValue(first + i + 1.0);
}

// "R3" or "R[3]" (and "C"): the part of an address in R1C1 style.
uint32_t R1C1Part(char16_t letter, uint32_t number, bool relative, char16_t* out) {
  char16_t digits[12];
  uint32_t count = 0, n = 0;
  for (uint32_t v = number; v || !count; v /= 10)
    digits[count++] = static_cast<char16_t>(u'0' + v % 10);
  out[n++] = letter;
  if (relative) out[n++] = u'[';
  while (count) out[n++] = digits[--count];
  if (relative) out[n++] = u']';
  return n;
}

}  // namespace

void FnRechercheV(Value* args, Value* result, const EvalContext* ctx) {
  TableLookup(args, result, ctx, false);
}

void FnRechercheH(Value* args, Value* result, const EvalContext* ctx) {
  TableLookup(args, result, ctx, true);
}

void FnEquiv(Value* args, Value* result, const EvalContext* ctx) {
  Grid g;
  if (!KeyArg(&args[0], result, ctx) || !MakeGrid(&args[1], result, ctx, &g)) return;
  int type = 1;
  if (args[2].tag != ValueEmpty) {
    ReduceToScalar(&args[2], ctx);
    double d;
    if (!NumberFromArg(&args[2], result, ctx, &d)) return;
    type = d > 0 ? 1 : d < 0 ? -1 : 0;
  }
  if (g.rows != 1 && g.columns != 1) {
    *result = ErrorValue(ErrNA);
    return;
  }
  bool across = g.rows == 1;
  uint32_t count = across ? g.columns : g.rows;
  uint32_t at =
      FindPosition(&args[0], count, type, [&](uint32_t i) { return LineAt(&g, across, 0, i); });
  *result = at == NotFound ? ErrorValue(ErrNA) : NumberValue(at + 1.0);
}

void FnRecherche(Value* args, Value* result, const EvalContext* ctx) {
  Grid keys, values;
  if (!KeyArg(&args[0], result, ctx) || !MakeGrid(&args[1], result, ctx, &keys)) return;
  bool vectorForm = args[2].tag != ValueEmpty;
  if (vectorForm && !MakeGrid(&args[2], result, ctx, &values)) return;
  // The key line: the first column of a table at least as tall as it is wide, else its first
  // row. The array form takes its result from the last column or row, the vector form from the
  // result vector along its length.
  bool across = keys.rows < keys.columns;
  uint32_t count = across ? keys.columns : keys.rows;
  uint32_t at =
      FindPosition(&args[0], count, 1, [&](uint32_t i) { return LineAt(&keys, across, 0, i); });
  if (at == NotFound) {
    *result = ErrorValue(ErrNA);
    return;
  }
  if (!vectorForm) {
    CopyResult(LineAt(&keys, across, across ? keys.rows - 1 : keys.columns - 1, at), result);
    return;
  }
  bool valuesAcross = values.rows < values.columns;
  if (at >= (valuesAcross ? values.columns : values.rows)) {
    *result = ErrorValue(ErrNA);
    return;
  }
  CopyResult(LineAt(&values, valuesAcross, 0, at), result);
}

void FnIndex(Value* args, Value* result, const EvalContext* ctx) {
  Value* source = &args[0];
  if (source->tag == ValueError) {
    *result = *source;
    return;
  }
  int32_t row, column, zone;
  if (!IntegerFromArg(&args[1], result, ctx, 0, &row) ||
      !IntegerFromArg(&args[2], result, ctx, 0, &column) ||
      !IntegerFromArg(&args[3], result, ctx, 0, &zone))
    return;
  bool columnGiven = args[2].tag != ValueEmpty;
  uint32_t firstRow, lastRow, firstCol, lastCol;
  if (source->tag == ValueRef || source->tag == ValueRefList) {
    uint32_t areas = source->tag == ValueRef ? 1 : source->refs ? source->refs->count : 0;
    if (args[3].tag == ValueEmpty) zone = 1;
    if (zone < 1 || static_cast<uint32_t>(zone) > areas) {
      *result = ErrorValue(ErrRef);
      return;
    }
    Range area = source->tag == ValueRef ? source->ref : source->refs->areas[zone - 1];
    if (!PickLines(area.lastRow - area.firstRow + 1u, area.lastCol - area.firstCol + 1u, row,
                   column, columnGiven, &firstRow, &lastRow, &firstCol, &lastCol)) {
      *result = ErrorValue(ErrRef);
      return;
    }
    Range picked{static_cast<uint16_t>(area.firstRow + firstRow),
                 static_cast<uint16_t>(area.firstRow + lastRow),
                 static_cast<uint8_t>(area.firstCol + firstCol),
                 static_cast<uint8_t>(area.firstCol + lastCol)};
    ReferenceLike(source, &picked, result);
    return;
  }
  if (source->tag == ValueEmpty) {
    *result = ErrorValue(ErrValue);
    return;
  }
  CoerceValue(source, ValueArray, ctx);
  if (source->tag != ValueArray || !source->elements) {
    *result = source->tag == ValueError ? *source : ErrorValue(ErrNA);
    return;
  }
  if ((args[3].tag != ValueEmpty && zone != 1) ||
      !PickLines(source->rows, source->columns, row, column, columnGiven, &firstRow, &lastRow,
                 &firstCol, &lastCol)) {
    *result = ErrorValue(ErrRef);
    return;
  }
  uint32_t rows = lastRow - firstRow + 1, columns = lastCol - firstCol + 1;
  if (rows == 1 && columns == 1) {
    CopyResult(&source->elements[firstRow * source->columns + firstCol], result);
    return;
  }
  if (!MakeArray(result, rows, columns)) {
    *result = ErrorValue(ErrNA);
    return;
  }
  for (uint32_t r = 0; r < rows; r++)
    for (uint32_t c = 0; c < columns; c++)
      if (!CopyValue(&result->elements[r * columns + c],
                     &source->elements[(firstRow + r) * source->columns + firstCol + c])) {
        SetError(result, ErrNA);
        return;
      }
}

void FnDecaler(Value* args, Value* result, const EvalContext* ctx) {
  Value* source = &args[0];
  if (source->tag == ValueError) {
    *result = *source;
    return;
  }
  if (source->tag != ValueRef &&
      (source->tag != ValueRefList || !source->refs || source->refs->count != 1)) {
    *result = ErrorValue(ErrValue);
    return;
  }
  Range area = source->tag == ValueRef ? source->ref : source->refs->areas[0];
  double rows, columns, height = area.lastRow - area.firstRow + 1.0,
                        width = area.lastCol - area.firstCol + 1.0;
  if (!NumberFromArg(&args[1], result, ctx, &rows) ||
      !NumberFromArg(&args[2], result, ctx, &columns) ||
      (args[3].tag != ValueEmpty && !NumberFromArg(&args[3], result, ctx, &height)) ||
      (args[4].tag != ValueEmpty && !NumberFromArg(&args[4], result, ctx, &width)))
    return;
  int64_t top = int64_t{area.firstRow} + TruncateToInt32(rows);
  int64_t left = int64_t{area.firstCol} + TruncateToInt32(columns);
  int64_t tall = TruncateToInt32(height), wide = TruncateToInt32(width);
  if (tall == 0 || wide == 0) {
    *result = ErrorValue(ErrRef);
    return;
  }
  // A negative size reaches up or left from the new corner.
  int64_t bottom = tall > 0 ? top + tall - 1 : top;
  int64_t right = wide > 0 ? left + wide - 1 : left;
  if (tall < 0) top += tall + 1;
  if (wide < 0) left += wide + 1;
  if (top < 0 || left < 0 || bottom > MaxRow || right > MaxCol) {
    *result = ErrorValue(ErrRef);
    return;
  }
  Range moved{static_cast<uint16_t>(top), static_cast<uint16_t>(bottom), static_cast<uint8_t>(left),
              static_cast<uint8_t>(right)};
  ReferenceLike(source, &moved, result);
}

// A text that is no reference may name one, which it then stands for; a name that leads back to
// INDIRECT is followed only a few levels deep, so that one naming itself ends. A text that names
// nothing is #REF!, the error of a reference that cannot be made, whatever the conversion said.
static void FollowNameOrRefuse(const char16_t* text, Value* result, const EvalContext* ctx) {
  static int nameDepth = 0;
  int32_t index = ctx->book < App.workbookCount && nameDepth < 8 && text
                      ? FindName(ctx->book, ctx->sheet, text)
                      : -1;
  const Workbook* wb = index >= 0 ? GetWorkbook(ctx->book) : nullptr;
  if (wb && static_cast<uint32_t>(index) < wb->nameCount && wb->names[index].formula.bytes) {
    Value named{};
    FormulaTokens formula = wb->names[index].formula;
    nameDepth++;
    Evaluate(&formula, &named, ctx);
    nameDepth--;
    if (named.tag == ValueRef || named.tag == ValueRefList) {
      *result = named;
      return;
    }
    FreeValue(&named);
  }
  if (result->error == ErrValue) *result = ErrorValue(ErrRef);
}

void FnIndirect(Value* args, Value* result, const EvalContext* ctx) {
  ReduceToScalar(&args[0], ctx);
  const char16_t* unused;
  bool a1Style;
  if (!TextFromArg(&args[0], result, ctx, &unused) ||
      !BooleanFromArg(&args[1], result, ctx, true, &a1Style))
    return;
  // The conversion takes over its own copy of the text, which stays in the frame for a name.
  char16_t* copy = TextDuplicate(args[0].text ? args[0].text : u"");
  if (!copy) {
    *result = ErrorValue(ErrNA);
    return;
  }
  TextToRefListInStyle(result, copy, ctx, a1Style);
  if (result->tag == ValueError) FollowNameOrRefuse(args[0].text, result, ctx);
}

// Whether ADRESSE's sheet text goes in quotes. A text that starts with a book in brackets
// ("[Livre1]Feuil1") is a sheet of that book: the quotes, around the whole, are needed only when
// the sheet's name needs them or the book's name holds a blank or a quote.
static bool SheetTextNeedsQuotes(const char16_t* sheet) {
  if (sheet[0] != u'[') return QuoteNeeded(sheet);
  const char16_t* close = sheet + 1;
  while (*close && *close != u']') close++;
  if (!*close || !close[1]) return QuoteNeeded(sheet);
  for (const char16_t* p = sheet + 1; p < close; p++)
    if (*p == u' ' || *p == u'\'') return true;
  return QuoteNeeded(close + 1);
}

void FnAdresse(Value* args, Value* result, const EvalContext* ctx) {
  double rowArg, colArg, kindArg = 1;
  if (!NumberFromArg(&args[0], result, ctx, &rowArg) ||
      !NumberFromArg(&args[1], result, ctx, &colArg) ||
      (args[2].tag != ValueEmpty && !NumberFromArg(&args[2], result, ctx, &kindArg)))
    return;
  bool a1;
  const char16_t* sheet = nullptr;
  if (!BooleanFromArg(&args[3], result, ctx, true, &a1) ||
      (args[4].tag != ValueEmpty && !TextFromArg(&args[4], result, ctx, &sheet)))
    return;
  int32_t row = TruncateToInt32(rowArg), column = TruncateToInt32(colArg);
  int32_t kind = TruncateToInt32(kindArg);
  if (row < 1 || row > static_cast<int32_t>(MaxRow) + 1 || column < 1 ||
      column > static_cast<int32_t>(MaxCol) + 1 || kind < 1 || kind > 4) {
    *result = ErrorValue(ErrValue);
    return;
  }
  bool rowAbsolute = kind == 1 || kind == 2, columnAbsolute = kind == 1 || kind == 3;
  char16_t cell[32];
  uint32_t cellLength;
  if (a1) {
    cellLength = CellA1Text(static_cast<uint16_t>(row - 1), static_cast<uint8_t>(column - 1),
                            rowAbsolute, columnAbsolute, cell);
  } else {
    cellLength = R1C1Part(u'R', row, !rowAbsolute, cell);
    cellLength += R1C1Part(u'C', column, !columnAbsolute, cell + cellLength);
  }
  uint32_t sheetLength = TextLength(sheet);
  bool quote = sheet && SheetTextNeedsQuotes(sheet);
  uint32_t total = cellLength + (sheet ? sheetLength + 1 + (quote ? 2 : 0) : 0);
  auto* out = static_cast<char16_t*>(Allocate((total + 1) * sizeof(char16_t)));
  if (!out) {
    *result = ErrorValue(ErrNA);
    return;
  }
  uint32_t n = 0;
  if (sheet) {
    if (quote) out[n++] = u'\'';
    for (uint32_t i = 0; i < sheetLength; i++) out[n++] = sheet[i];
    if (quote) out[n++] = u'\'';
    out[n++] = u'!';
  }
  for (uint32_t i = 0; i < cellLength; i++) out[n++] = cell[i];
  out[n] = 0;
  *result = TextValue(out);
}

void FnChoisir(Value* args, Value* result, const EvalContext* ctx) {
  ReduceToScalar(&args[0], ctx);
  double d;
  if (!NumberFromArg(&args[0], result, ctx, &d)) return;
  int32_t count = 0;
  for (int32_t i = 1; i < FunctionFrameSize; i++)
    if (args[i].tag != ValueEmpty) count = i;
  int32_t index = TruncateToInt32(d);
  if (index < 1 || index > count) {
    *result = ErrorValue(ErrValue);
    return;
  }
  // The chosen value is moved out: a reference stays a reference.
  *result = args[index];
  args[index] = Value{};
}

void FnLigne(Value* args, Value* result, const EvalContext* ctx) {
  Position(args, result, ctx, false);
}

void FnColonne(Value* args, Value* result, const EvalContext* ctx) {
  Position(args, result, ctx, true);
}

void FnLignes(Value* args, Value* result, const EvalContext* ctx) {
  uint32_t rows, columns;
  if (Extent(&args[0], result, ctx, &rows, &columns)) *result = NumberValue(rows);
}

void FnColonnes(Value* args, Value* result, const EvalContext* ctx) {
  uint32_t rows, columns;
  if (Extent(&args[0], result, ctx, &rows, &columns)) *result = NumberValue(columns);
}

void FnZones(Value* args, Value* result, const EvalContext*) {
  const Value* a = &args[0];
  if (a->tag == ValueRef)
    *result = NumberValue(1);
  else if (a->tag == ValueRefList && a->refs)
    *result = NumberValue(a->refs->count);
  else
    *result = a->tag == ValueError ? *a : ErrorValue(ErrValue);
}

void FnTranspose(Value* args, Value* result, const EvalContext* ctx) {
  Value* a = &args[0];
  if (a->tag == ValueEmpty) {
    *result = ErrorValue(ErrValue);
    return;
  }
  CoerceValue(a, ValueArray, ctx);
  if (a->tag != ValueArray || !a->elements) {
    *result = a->tag == ValueError ? *a : ErrorValue(ErrNA);
    return;
  }
  if (!MakeArray(result, a->columns, a->rows)) {
    *result = ErrorValue(ErrNA);
    return;
  }
  for (uint32_t r = 0; r < a->rows; r++)
    for (uint32_t c = 0; c < a->columns; c++)
      if (!CopyValue(&result->elements[c * a->rows + r], &a->elements[r * a->columns + c])) {
        SetError(result, ErrNA);
        return;
      }
}

void FnLienHypertexte(Value* args, Value* result, const EvalContext* ctx) {
  // Following the link is the sheet's business when the cell is clicked; the formula shows the
  // friendly name when there is one, the link's text otherwise.
  ReduceToScalar(&args[0], ctx);
  const char16_t* link;
  if (!TextFromArg(&args[0], result, ctx, &link)) return;
  Value* shown = &args[0];
  if (args[1].tag != ValueEmpty) {
    ReduceToScalar(&args[1], ctx);
    shown = &args[1];
  }
  CopyResult(shown, result);
}

void FnGetPivotData(Value* args, Value* result, const EvalContext*) {
  // Workbooks here hold no pivot tables, so no reference names one: after the arguments' own
  // errors, the answer is #REF!.
  for (int i = 0; i < FunctionFrameSize; i++) {
    if (args[i].tag == ValueError) {
      *result = args[i];
      return;
    }
  }
  *result = ErrorValue(ErrRef);
}
