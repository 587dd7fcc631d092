// Values: the error and boolean texts, ownership (free, copy) and the conversions between types.
#include "model/value.h"

#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/check.h"
#include "base/text.h"
#include "format/input.h"
#include "format/locale.h"
#include "formula/reference_text.h"
#include "model/hooks.h"
#include "model/workbook.h"

static const char16_t* const errorTexts[ErrorCodeCount] = {
    u"#NULL!", u"#DIV/0!", u"#VALUE!", u"#REF!", u"#NAME?", u"#NUM!", u"#N/A"};
static const uint8_t errorBytes[ErrorCodeCount] = {0x00, 0x07, 0x0F, 0x17, 0x1D, 0x24, 0x2A};

const char16_t* ErrorText(uint32_t code) {
  return errorTexts[code < ErrorCodeCount ? code : ErrNA];
}

uint8_t ErrorToBiff(uint32_t code) {
  return errorBytes[code < ErrorCodeCount ? code : ErrNA];
}

uint32_t ErrorFromBiff(uint8_t byte) {
  for (uint32_t code = 0; code < ErrNA; code++)
    if (errorBytes[code] == byte) return code;
  return ErrNA;
}

const char16_t* BooleanText(bool value) {
  return value ? TrueText : FalseText;
}

// An array holds numbers, texts, booleans, errors and blanks: of these only a text owns a block.
[[maybe_unused]] static bool IsArrayElement(const Value& e) {
  return e.tag != ValueArray && e.tag != ValueRefList;
}

void FreeValue(Value* v) {
  switch (v->tag) {
    case ValueText:
      Release(v->text);
      break;
    case ValueRefList:
      Release(v->refs);
      break;
    case ValueArray:
      if (v->elements) {
        uint32_t n = static_cast<uint32_t>(v->rows) * v->columns;
        for (uint32_t i = 0; i < n; i++) {
          DEBUG_ASSERT(IsArrayElement(v->elements[i]));
          if (v->elements[i].tag == ValueText) Release(v->elements[i].text);
        }
        Release(v->elements);
      }
      break;
    default:
      break;
  }
}

void SetError(Value* v, uint32_t code) {
  FreeValue(v);
  *v = ErrorValue(code);
}

int DuplicateText(char16_t** target, const char16_t* source) {
  *target = nullptr;
  if (!source) return 1;
  *target = TextDuplicate(source);
  return *target != nullptr;
}

static size_t RefBlockSize(uint32_t count) {
  return sizeof(RefBlock) + count * sizeof(Range);
}

int MakeArray(Value* v, uint32_t rows, uint32_t columns) {
  *v = Value{};
  Value* elements = static_cast<Value*>(Allocate(sizeof(Value) * rows * columns));
  if (!elements) return 0;
  v->tag = ValueArray;
  v->elements = elements;
  v->rows = static_cast<uint16_t>(rows);
  v->columns = static_cast<uint16_t>(columns);
  return 1;
}

int MakeRefList(Value* v, const Range* area, int32_t linkIndex) {
  *v = Value{};
  RefBlock* block = static_cast<RefBlock*>(Allocate(RefBlockSize(1)));
  if (!block) return 0;
  block->count = 1;
  block->areas[0] = *area;
  v->tag = ValueRefList;
  v->refs = block;
  v->linkIndex = linkIndex;
  return 1;
}

int CopyValue(Value* target, const Value* source) {
  *target = *source;
  switch (source->tag) {
    case ValueText:
      if (DuplicateText(&target->text, source->text)) return 1;
      break;
    case ValueRefList: {
      if (!source->refs) return 1;
      size_t size = RefBlockSize(source->refs->count);
      target->refs = static_cast<RefBlock*>(Allocate(size));
      if (!target->refs) break;
      std::memcpy(target->refs, source->refs, size);
      return 1;
    }
    case ValueArray: {
      if (!source->elements) return 1;
      uint32_t n = static_cast<uint32_t>(source->rows) * source->columns;
      target->elements = static_cast<Value*>(Allocate(sizeof(Value) * n));
      if (!target->elements) break;
      for (uint32_t i = 0; i < n; i++) {
        DEBUG_ASSERT(IsArrayElement(source->elements[i]));
        target->elements[i] = source->elements[i];
        if (source->elements[i].tag == ValueText &&
            !DuplicateText(&target->elements[i].text, source->elements[i].text)) {
          for (uint32_t k = i; k < n; k++) target->elements[k] = Value{};
          FreeValue(target);
          *target = Value{};
          return 0;
        }
      }
      return 1;
    }
    default:
      return 1;
  }
  *target = Value{};
  return 0;
}

char16_t* NumberToText(double number, int digits) {
  char16_t buffer[NumberTextCapacity];
  return TextDuplicateN(buffer, ValueNumberText(number, digits, buffer));
}

static bool EqualsBooleanOrErrorText(const char16_t* text) {
  if (EqualTextNoCase(text, FalseText) || EqualTextNoCase(text, TrueText)) return true;
  for (uint32_t code = 0; code < ErrorCodeCount; code++)
    if (EqualTextNoCase(text, errorTexts[code])) return true;
  return false;
}

// Reads the number over text[0, end), then without a final "%" as a hundredth.
static int ReadNumberOrPercent(const char16_t* text, uint32_t length, int32_t grouping,
                               double* out) {
  if (ParseNumberText(text, 0, length, out, grouping)) return 1;
  if (length > 1 && text[length - 1] == u'%' &&
      ParseNumberText(text, 0, length - 1, out, grouping)) {
    *out *= 0.01;
    return 1;
  }
  return 0;
}

// The first reading that succeeds wins. Text that starts like a number is read plain, then
// grouped, then (unless it starts with a sign) as a date and as a time; other text is refused
// outright when it spells a boolean or an error, and is otherwise read as a currency amount when
// it starts with the currency symbol, as a negative number when it stands in parentheses, else
// as a date (month names).
int TextToNumber(const char16_t* text, double* out) {
  uint32_t length = TextLength(text);
  if (length == 0 || text[0] == u'=') return 0;
  char16_t first = text[0];
  if (first == u'+' || first == u'-' || (first >= u'0' && first <= u'9') ||
      first == DecimalSeparator[0]) {
    if (ReadNumberOrPercent(text, length, GroupingNone, out)) return 1;
    if (ReadNumberOrPercent(text, length, GroupingLoose, out)) return 1;
    if (first == u'+' || first == u'-') return 0;
    return ParseDateText(text, 0, out) || ParseTimeText(text, out, nullptr);
  }
  if (EqualsBooleanOrErrorText(text)) return 0;
  uint32_t symbolLength = TextLength(CurrencySymbol);
  if (symbolLength && CompareTextNoCaseN(text, CurrencySymbol, symbolLength) == 0) {
    int32_t digits;
    return ParseCurrencyText(text, 0, length, out, &digits);
  }
  if (first == u'(' && length > 2 && text[length - 1] == u')') {
    double inside;
    if (!ParseNumberText(text, 1, length - 1, &inside, GroupingLoose)) return 0;
    *out = -inside;
    return 1;
  }
  return ParseDateText(text, 0, out);
}

void TextToRefList(Value* v, char16_t* text, const EvalContext* ctx) {
  TextToRefListInStyle(v, text, ctx, 1);
}

void TextToRefListInStyle(Value* v, char16_t* text, const EvalContext* ctx, int a1Style) {
  *v = ErrorValue(ErrValue);
  int32_t length = static_cast<int32_t>(TextLength(text));
  // Every piece must stand on one sheet link; an unqualified piece stands on the context sheet.
  int32_t hereLink = -2;
  int32_t link = -2;
  RefBlock* block = nullptr;
  uint32_t count = 0;
  bool ok = length > 0 && ctx && ctx->book < App.workbookCount;
  for (int32_t i = 0; ok && i < length;) {
    int32_t pieceEnd = i;
    while (pieceEnd < length && text[pieceEnd] != ListSeparator[0]) pieceEnd++;
    int32_t pieceLink = -1;
    Range area;
    uint8_t flags;
    int32_t stop =
        ParseReferenceText(text, i, pieceEnd, a1Style, static_cast<uint16_t>(ctx->row),
                           static_cast<uint8_t>(ctx->col), ctx->book, &pieceLink, &area, &flags);
    if (stop != pieceEnd) {
      ok = false;
      break;
    }
    if (pieceLink < 0) {
      if (hereLink == -2) {
        if (!ContextSheetLink(ctx, &hereLink)) hereLink = -1;
      }
      pieceLink = hereLink;
    }
    if (pieceLink < 0 || (link != -2 && pieceLink != link) || count >= UINT16_MAX) {
      ok = false;
      break;
    }
    link = pieceLink;
    auto* grown = static_cast<RefBlock*>(
        Reallocate(block, count ? RefBlockSize(count) : 0, RefBlockSize(count + 1)));
    if (!grown) {
      ok = false;
      break;
    }
    block = grown;
    block->areas[count++] = area;
    block->count = static_cast<uint16_t>(count);
    // Blanks after a separator are skipped; a separator at the very end leaves nothing to read.
    i = pieceEnd;
    if (i < length) {
      i++;
      while (i < length && text[i] == u' ') i++;
      if (i == length) ok = false;
    }
  }
  Release(text);
  if (!ok || !block) {
    Release(block);
    return;
  }
  v->tag = ValueRefList;
  v->refs = block;
  v->linkIndex = link;
}

void PrepareCellForRead(uint32_t book, uint32_t sheet, Cell* cell) {
  if (cell->state == CellCalculating)
    GetWorkbook(book)->circularHit = 1;
  else if (cell->state == CellDirty && cell->formula.bytes)
    CalculateCell(book, sheet, cell);
}

static bool ValidSheet(uint32_t book, uint32_t sheet) {
  return book < App.workbookCount && sheet < App.workbooks[book].sheetCount &&
         SheetHasCells(App.workbooks[book].sheets[sheet]);
}

int ReadCellValue(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col, Value* out) {
  *out = Value{};
  if (!ValidSheet(book, sheet)) {
    *out = ErrorValue(ErrRef);
    return 1;
  }
  Cell* cell = CellAt(&GetSheet(book, sheet)->cells, row, col);
  if (!cell) return 1;
  PrepareCellForRead(book, sheet, cell);
  if (!CopyValue(out, &cell->value)) {
    *out = ErrorValue(ErrNA);
    return 0;
  }
  return 1;
}

uint32_t LocateReference(const Value* v, const EvalContext* ctx, ReferenceTarget* out) {
  *out = ReferenceTarget{};
  if (v->tag == ValueRef) {
    *out = ReferenceTarget{ctx->book, ctx->sheet, ctx->sheet, &v->ref, 1};
  } else {
    if (v->tag != ValueRefList || !v->refs || v->refs->count == 0) return ErrValue;
    ResolvedLink link{};
    link.fromBook = ctx->book;
    if (!ResolveLink(v->linkIndex, &link) || link.firstSheet < 0 || link.lastSheet < 0)
      return ErrRef;
    uint32_t a = static_cast<uint32_t>(link.firstSheet), b = static_cast<uint32_t>(link.lastSheet);
    *out = ReferenceTarget{link.book, a < b ? a : b, a < b ? b : a, v->refs->areas, v->refs->count};
  }
  if (out->book >= App.workbookCount || out->lastSheet >= GetWorkbook(out->book)->sheetCount)
    return ErrRef;
  return ReferenceFound;
}

int WalkReferenceTarget(const ReferenceTarget* target, SheetAreaVisitor visit, void* state) {
  DEBUG_ASSERT(target->firstSheet <= target->lastSheet && target->areas);
  for (uint32_t sheet = target->firstSheet; sheet <= target->lastSheet; sheet++) {
    if (!SheetHasCells(GetSheet(target->book, sheet))) continue;
    for (uint32_t i = 0; i < target->areaCount; i++)
      if (!visit(target->book, sheet, &target->areas[i], state)) return 0;
  }
  return 1;
}

// The one area on one sheet holding cells that a reference must point to where a single cell is
// read from it; returns ReferenceFound or an error code.
static uint32_t LocateSingleArea(const Value* v, const EvalContext* ctx, uint32_t* book,
                                 uint32_t* sheet, Range* area) {
  ReferenceTarget t;
  uint32_t error = LocateReference(v, ctx, &t);
  if (error != ReferenceFound) return error;
  if (t.areaCount != 1) return ErrValue;
  if (t.firstSheet != t.lastSheet || !ValidSheet(t.book, t.firstSheet)) return ErrRef;
  *book = t.book;
  *sheet = t.firstSheet;
  *area = t.areas[0];
  return ReferenceFound;
}

// Locates the single area and releases the reference; on failure `v` becomes the error.
static bool TakeSingleArea(Value* v, const EvalContext* ctx, uint32_t* book, uint32_t* sheet,
                           Range* area) {
  uint32_t error = LocateSingleArea(v, ctx, book, sheet, area);
  FreeValue(v);
  *v = error == ReferenceFound ? Value{} : ErrorValue(error);
  return error == ReferenceFound;
}

void ImplicitIntersect(Value* v, const EvalContext* ctx) {
  if (ctx->arrayMode) {
    CoerceValue(v, ValueArray, ctx);
    return;
  }
  uint32_t book = 0, sheet = 0;
  Range area{};
  if (!TakeSingleArea(v, ctx, &book, &sheet, &area)) return;
  int64_t row, col;
  if (area.firstRow == area.lastRow && area.firstCol == area.lastCol) {
    row = area.firstRow;
    col = area.firstCol;
  } else if (area.firstRow == area.lastRow && ctx->col >= area.firstCol &&
             ctx->col <= area.lastCol) {
    row = area.firstRow;
    col = ctx->col;
  } else if (area.firstCol == area.lastCol && ctx->row >= area.firstRow &&
             ctx->row <= area.lastRow) {
    row = ctx->row;
    col = area.firstCol;
  } else {
    *v = ErrorValue(ErrValue);
    return;
  }
  ReadCellValue(book, sheet, static_cast<uint32_t>(row), static_cast<uint32_t>(col), v);
}

// Builds the array of the cells of a reference (one area on one sheet).
static void ReferenceToArray(Value* v, const EvalContext* ctx) {
  uint32_t book = 0, sheet = 0;
  Range area{};
  if (!TakeSingleArea(v, ctx, &book, &sheet, &area)) return;
  uint32_t rows = area.lastRow - area.firstRow + 1u, columns = area.lastCol - area.firstCol + 1u;
  if (area.lastRow < area.firstRow || area.lastCol < area.firstCol || rows > 65535) {
    // An array counts its rows in 16 bits: a whole column cannot be one.
    *v = ErrorValue(ErrValue);
    return;
  }
  if (!MakeArray(v, rows, columns)) {
    *v = ErrorValue(ErrNA);
    return;
  }
  CellRangeWalk walk;
  BeginRangeWalk(&walk, &GetSheet(book, sheet)->cells, &area);
  while (Cell* cell = NextCellInRange(&walk)) {
    PrepareCellForRead(book, sheet, cell);
    Value* element =
        &v->elements[(cell->row - area.firstRow) * columns + (cell->col - area.firstCol)];
    if (cell->value.tag == ValueText && !cell->value.text) {
      *element = ErrorValue(ErrNA);
    } else if (!CopyValue(element, &cell->value)) {
      SetError(v, ErrNA);
      return;
    }
  }
}

void ArrayElementForCell(Value* v, const EvalContext* ctx) {
  if (v->rows == 0 || v->columns == 0 || !v->elements) {
    SetError(v, ErrNA);
    return;
  }
  uint32_t rowOffset = 0, colOffset = 0;
  if (ctx && ValidSheet(ctx->book, ctx->sheet)) {
    const Sheet* s = GetSheet(ctx->book, ctx->sheet);
    for (uint32_t i = 0; i < s->arrayFormulaCount; i++) {
      const Range* block = &s->arrayFormulas[i].range;
      if (ctx->row < 0 || ctx->col < 0 || !RangeContains(block, ctx->row, ctx->col)) continue;
      rowOffset = v->rows == 1 ? 0 : ctx->row - block->firstRow;
      colOffset = v->columns == 1 ? 0 : ctx->col - block->firstCol;
      break;
    }
  }
  if (rowOffset >= v->rows || colOffset >= v->columns) {
    SetError(v, ErrNA);
    return;
  }
  uint32_t index = rowOffset * v->columns + colOffset;
  Value element = v->elements[index];
  v->elements[index] = Value{};  // moved out, not copied
  FreeValue(v);
  *v = element;
}

void SettleCellResult(Value* v, const EvalContext* ctx) {
  if (v->tag == ValueRefList || v->tag == ValueRef) ImplicitIntersect(v, ctx);
  if (v->tag == ValueArray) ArrayElementForCell(v, ctx);
}

// A one-by-one array holding the value.
static void WrapInArray(Value* v) {
  Value element = *v;
  if (!MakeArray(v, 1, 1)) {
    FreeValue(&element);
    *v = ErrorValue(ErrNA);
    return;
  }
  v->elements[0] = element;
}

static void TextToBoolean(Value* v) {
  bool isFalse = EqualTextNoCase(v->text, FalseText), isTrue = EqualTextNoCase(v->text, TrueText);
  Release(v->text);
  *v = isFalse || isTrue ? BooleanValue(isTrue) : ErrorValue(ErrValue);
}

static void TextToError(Value* v) {
  uint32_t code = ErrorCodeCount;
  for (uint32_t c = 0; c < ErrorCodeCount && code == ErrorCodeCount; c++)
    if (EqualTextNoCase(v->text, errorTexts[c])) code = c;
  Release(v->text);
  *v = ErrorValue(code < ErrorCodeCount ? code : ErrValue);
}

static void ToText(Value* v, const char16_t* text) {
  char16_t* copy = TextDuplicate(text);
  *v = copy ? TextValue(copy) : ErrorValue(ErrNA);
}

static void RefToRefList(Value* v, const EvalContext* ctx) {
  int32_t link;
  Range area = v->ref;
  if (!ContextSheetLink(ctx, &link) || !MakeRefList(v, &area, link)) *v = ErrorValue(ErrNA);
}

void CoerceValue(Value* v, uint16_t target, const EvalContext* ctx) {
  // Each pass either finishes or reduces a reference or an array to something simpler, so the
  // loop ends after at most three passes.
  for (;;) {
    uint16_t source = v->tag;
    if (source == target) return;
    if (target == ValueEmpty) {
      FreeValue(v);
      *v = Value{};
      return;
    }
    switch (source) {
      case ValueEmpty:
        if (target == ValueNumber)
          *v = NumberValue(0.0);
        else if (target == ValueText)
          ToText(v, u"");
        else if (target == ValueBoolean)
          *v = BooleanValue(false);
        else
          *v = ErrorValue(ErrValue);
        return;
      case ValueNumber:
        if (target == ValueText) {
          char16_t* text = NumberToText(v->number, 15);
          *v = text ? TextValue(text) : ErrorValue(ErrNA);
        } else if (target == ValueBoolean) {
          *v = BooleanValue(v->number != 0);
        } else if (target == ValueArray) {
          WrapInArray(v);
        } else {
          *v = ErrorValue(ErrValue);
        }
        return;
      case ValueText:
        if (target == ValueNumber) {
          double d;
          bool ok = TextToNumber(v->text, &d);
          Release(v->text);
          *v = ok ? NumberValue(d) : ErrorValue(ErrValue);
        } else if (target == ValueBoolean) {
          TextToBoolean(v);
        } else if (target == ValueRefList) {
          char16_t* text = v->text;
          *v = Value{};
          TextToRefList(v, text, ctx);
        } else if (target == ValueError) {
          TextToError(v);
        } else if (target == ValueArray) {
          WrapInArray(v);
        } else {
          SetError(v, target == ValueRef ? ErrRef : ErrValue);
        }
        return;
      case ValueBoolean:
        if (target == ValueNumber)
          *v = NumberValue(v->boolean ? 1.0 : 0.0);
        else if (target == ValueText)
          ToText(v, BooleanText(v->boolean != 0));
        else if (target == ValueArray)
          WrapInArray(v);
        else
          *v = ErrorValue(ErrValue);
        return;
      case ValueError:
        if (target == ValueNumber) return;
        if (target == ValueText)
          ToText(v, ErrorText(v->error));
        else if (target == ValueArray)
          WrapInArray(v);
        else
          *v = ErrorValue(ErrValue);
        return;
      case ValueRefList:
      case ValueRef:
        if (target == ValueArray) {
          ReferenceToArray(v, ctx);
          return;
        }
        if (target == ValueRef) {  // source is a list
          if (!v->refs || v->refs->count != 1) {
            SetError(v, ErrValue);
          } else {
            Range area = v->refs->areas[0];
            FreeValue(v);
            *v = RefValue(area);
          }
          return;
        }
        if (target == ValueRefList) {  // source is inline
          RefToRefList(v, ctx);
          return;
        }
        if (source == ValueRefList && (!v->refs || v->refs->count != 1)) {
          SetError(v, ErrValue);
          return;
        }
        ImplicitIntersect(v, ctx);
        continue;
      case ValueArray:
        if (target == ValueRefList || target == ValueRef) {
          SetError(v, ErrValue);
          return;
        }
        ArrayElementForCell(v, ctx);
        continue;
      default:  // a macro control signal, or a tag that means nothing
        *v = ErrorValue(ErrValue);
        return;
    }
  }
}
