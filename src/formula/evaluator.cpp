// The evaluator: one stack machine over the reverse Polish tokens. Constants, references, names
// and external names, the jumps of IF and CHOOSE and the one-argument sum live in the main loop;
// the operators are in operators.cpp; function calls leave through CallFunction, which also
// spreads a scalar function over array arguments. Evaluation nests through names, through
// references to dirty cells and through function handlers, so nothing here is static except the
// depth of names being evaluated.
//
// Token strings are checked by the validator before they enter the model, so lengths and jump
// targets are trusted; indices into the name, link and function tables, and reads of the extra
// data, are still checked, and what fails becomes an error value. An operator that finds fewer
// operands on the stack than it needs reads the missing ones as #VALUE!.
#include "formula/evaluator.h"

#include <cmath>
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/check.h"
#include "base/text.h"
#include "formula/operators.h"
#include "model/hooks.h"
#include "model/names.h"
#include "model/workbook.h"

// The macro control code with which a running macro asks every evaluation to unwind.
constexpr uint8_t ControlAbort = 129;
// The function number whose first argument names what to call: an add-in function or a macro.
constexpr uint32_t CallNamedNumber = 255;
// Bit 15 of a function number marks the command-equivalent form of a macro function.
constexpr uint32_t CommandEquivalentBit = 0x8000;
constexpr uint32_t StackStep = 8;
// ptgFuncVar of class V: the class bits replace bits 5 and 6 of the base opcode.
constexpr uint8_t FuncVarValueClass = (ptgFuncVar & 0x1F) | ClassValue;

// Depth of names being evaluated inside one another; see MaxNameNesting.
static int nameDepth;

namespace {

struct Machine {
  const uint8_t* bytes;
  uint32_t length;    // end of the tokens
  uint32_t extra;     // cursor into the extra data
  uint32_t extraEnd;  // end of the extra data
  const EvalContext* ctx;
  uint32_t count;
  uint32_t capacity;
  Value* slots;
  int lostMemory;  // a push failed: the evaluation ends with #N/A
  bool sound;      // the tokens pass ValidateTokens, so the stack never runs dry (debug builds)
  Value abortSignal;
};

}  // namespace

// Pushes `v`, which the stack then owns; when the stack cannot grow, `v` is released and the
// evaluation is marked to end.
static void Push(Machine* m, Value v) {
  if (m->count == m->capacity && !GrowArray(&m->slots, &m->capacity, m->count + 1, StackStep)) {
    FreeValue(&v);
    m->lostMemory = 1;
    return;
  }
  m->slots[m->count++] = v;
}

// The top value, handed over to the caller; a missing operand of an unsound string reads as
// #VALUE!.
static Value Pop(Machine* m) {
  DEBUG_ASSERT(m->count || !m->sound);
  if (m->count == 0) return ErrorValue(ErrValue);
  return m->slots[--m->count];
}

// The top slot, which stays on the stack; a #VALUE! is pushed first if the stack is empty.
static Value* Top(Machine* m) {
  DEBUG_ASSERT(m->count || !m->sound);
  if (m->count == 0) Push(m, ErrorValue(ErrValue));
  return m->count ? &m->slots[m->count - 1] : nullptr;
}

static void ReleaseStack(Machine* m) {
  for (uint32_t i = 0; i < m->count; i++) FreeValue(&m->slots[i]);
  Release(m->slots);
  m->slots = nullptr;
  m->count = m->capacity = 0;
}

// A number that overflowed, or a number element of an array, becomes #NUM!.
static void CheckFinite(Machine* m) {
  if (m->count == 0) return;
  Value* top = &m->slots[m->count - 1];
  if (top->tag == ValueNumber) {
    if (!std::isfinite(top->number)) *top = ErrorValue(ErrNum);
  } else if (top->tag == ValueArray && top->elements) {
    uint32_t n = static_cast<uint32_t>(top->rows) * top->columns;
    for (uint32_t i = 0; i < n; i++) {
      Value* e = &top->elements[i];
      if (e->tag == ValueNumber && !std::isfinite(e->number)) *e = ErrorValue(ErrNum);
    }
  }
}

// The evaluator steps over ptgMemNoMem by six operand bytes.
static uint32_t TokenEnd(const uint8_t* b, uint32_t p, uint32_t length) {
  return CheckedTokenEnd(b, p, length, MemNoMemAsEvaluated);
}

// --- Constants -----------------------------------------------------------------------------

static Value StringConstant(const uint8_t* b) {
  uint32_t n = b[0];
  bool wide = b[1] != 0;
  auto* text = static_cast<char16_t*>(Allocate((n + 1) * sizeof(char16_t)));
  if (!text) return ErrorValue(ErrNA);
  for (uint32_t i = 0; i < n; i++)
    text[i] = wide ? static_cast<char16_t>(ReadU16(b + 2 + 2 * i)) : b[2 + i];
  return TextValue(text);
}

// Reads one element of an array constant at the extra cursor into `out` (null to only step
// over it). Returns 0 when the element runs past the extra data. An element of a type that is
// not known is not consumed and stays blank.
static int ReadArrayElement(Machine* m, Value* out, int* lostMemory) {
  const uint8_t* b = m->bytes;
  uint32_t e = m->extra;
  if (e >= m->extraEnd) return 0;
  uint8_t type = b[e];
  if (type == ValueNumber || type == ValueBoolean || type == ValueError) {
    if (m->extraEnd - e < 9) return 0;
    if (out) {
      if (type == ValueNumber)
        *out = NumberValue(ReadDouble(b + e + 1));
      else if (type == ValueBoolean)
        *out = BooleanValue(b[e + 1] != 0);
      else
        *out = ErrorValue(ErrorFromBiff(b[e + 1]));
    }
    m->extra = e + 9;
    return 1;
  }
  if (type != ValueText) return 1;
  if (m->extraEnd - e < 4) return 0;
  uint32_t n = ReadU16(b + e + 1);
  bool wide = b[e + 3] != 0;
  uint32_t size = n * (wide ? 2 : 1);
  if (m->extraEnd - e - 4 < size) return 0;
  if (out) {
    auto* text = static_cast<char16_t*>(Allocate((n + 1) * sizeof(char16_t)));
    if (!text) {
      *lostMemory = 1;
    } else {
      for (uint32_t i = 0; i < n; i++)
        text[i] = wide ? static_cast<char16_t>(ReadU16(b + e + 4 + 2 * i)) : b[e + 4 + i];
      *out = TextValue(text);
    }
  }
  m->extra = e + 4 + size;
  return 1;
}

// A ptgArray: columns minus one (u8) and rows minus one (u16), then the elements row by row. A
// constant that runs past the extra data gives #N/A and leaves the cursor at its end.
static Value ArrayConstant(Machine* m) {
  const uint8_t* b = m->bytes;
  if (m->extraEnd - m->extra < 3) {
    m->extra = m->extraEnd;
    return ErrorValue(ErrNA);
  }
  uint32_t columns = b[m->extra] + 1u, rows = ReadU16(b + m->extra + 1) + 1u;
  m->extra += 3;
  uint32_t n = rows * columns;
  // Every element holds at least its type byte, so a count beyond the bytes left is a constant
  // that does not fit; refusing it also bounds the block allocated below.
  if (rows > 0xFFFF || n > m->extraEnd - m->extra) {
    m->extra = m->extraEnd;
    return ErrorValue(ErrNA);
  }
  Value array;
  bool haveArray = MakeArray(&array, rows, columns);
  int lostMemory = !haveArray;
  bool readAll = true;
  for (uint32_t i = 0; i < n && readAll; i++)
    readAll = ReadArrayElement(m, lostMemory ? nullptr : &array.elements[i], &lostMemory);
  if (!readAll) m->extra = m->extraEnd;
  if (!readAll || lostMemory) {
    if (haveArray) FreeValue(&array);
    return ErrorValue(ErrNA);
  }
  return array;
}

// The extra data is laid out in the order of the tokens that use it, so tokens that a jump
// passes over give up their share too: the cursor moves over their array constants and area
// lists as if they had run. A skipped branch rarely holds a constant, so building and dropping
// it costs nothing worth a second reader.
static void SkipExtraBetween(Machine* m, uint32_t from, uint32_t to) {
  const uint8_t* b = m->bytes;
  for (uint32_t q = from; q < to && q < m->length;) {
    uint32_t end = TokenEnd(b, q, m->length);
    if (!end) return;
    uint8_t base = FoldOpcode(b[q]);
    if (base == ptgArray) {
      Value skipped = ArrayConstant(m);
      FreeValue(&skipped);
    } else if (base == ptgMemArea) {
      uint32_t count = m->extraEnd - m->extra < 2 ? 0 : ReadU16(b + m->extra);
      uint32_t size = 2 + 8 * count;
      m->extra = m->extraEnd - m->extra < size ? m->extraEnd : m->extra + size;
    }
    q = end;
  }
}

// --- References ----------------------------------------------------------------------------

// What the class of an operand token does to a reference: class V reduces it to the value that
// lines up with the cell (an array in array mode), class A turns it into an array, class R keeps
// it. A ptgRef of class A is further replaced by the first element of its array.
static void ApplyReferenceClass(Value* v, uint8_t cls, bool firstElement, const EvalContext* ctx) {
  if (!IsReference(v)) return;
  if (cls == ClassValue) {
    ImplicitIntersect(v, ctx);
  } else if (cls == ClassArray) {
    CoerceValue(v, ValueArray, ctx);
    if (firstElement && v->tag == ValueArray && v->elements && v->rows && v->columns) {
      Value first = v->elements[0];
      v->elements[0] = Value{};
      FreeValue(v);
      *v = first;
    }
  }
}

static bool LinkInRange(uint32_t link, const EvalContext* ctx) {
  return ctx->book < App.workbookCount && link < GetWorkbook(ctx->book)->sheetLinkCount;
}

static Value ListOfOneArea(const Range* area, int32_t link) {
  Value v;
  if (!MakeRefList(&v, area, link)) return ErrorValue(ErrNA);
  return v;
}

// An area token's eight bytes; in offset form the coordinates flagged relative move with the
// cell of use, rows wrapping at 16 bits and columns at 8.
static Range ReadArea(const uint8_t* a, bool offsets, const EvalContext* ctx) {
  Range r{ReadU16(a), ReadU16(a + 2), a[4], a[6]};
  if (offsets) {
    uint8_t firstFlags = a[5], lastFlags = a[7];
    if (firstFlags & RefRowRelative) r.firstRow = static_cast<uint16_t>(r.firstRow + ctx->row);
    if (firstFlags & RefColRelative) r.firstCol = static_cast<uint8_t>(r.firstCol + ctx->col);
    if (lastFlags & RefRowRelative) r.lastRow = static_cast<uint16_t>(r.lastRow + ctx->row);
    if (lastFlags & RefColRelative) r.lastCol = static_cast<uint8_t>(r.lastCol + ctx->col);
  }
  return r;
}

static Range ReadCell(const uint8_t* a, bool offsets, const EvalContext* ctx) {
  uint16_t row = ReadU16(a);
  uint8_t col = a[2], flags = a[3];
  if (offsets && (flags & RefRowRelative)) row = static_cast<uint16_t>(row + ctx->row);
  if (offsets && (flags & RefColRelative)) col = static_cast<uint8_t>(col + ctx->col);
  return Range{row, row, col, col};
}

// ptgMemArea: the rectangles of the extra data, on the context sheet's link. A list that runs
// past the extra data gives #REF!.
static Value MemAreaList(Machine* m) {
  const uint8_t* b = m->bytes;
  if (m->extraEnd - m->extra < 2) {
    m->extra = m->extraEnd;
    return ErrorValue(ErrRef);
  }
  uint32_t count = ReadU16(b + m->extra);
  uint32_t at = m->extra + 2;
  if ((m->extraEnd - at) / 8 < count) {
    m->extra = m->extraEnd;
    return ErrorValue(ErrRef);
  }
  m->extra = at + 8 * count;
  const EvalContext* ctx = m->ctx;
  int32_t link;
  if (!ContextSheetLink(ctx, &link)) return ErrorValue(ErrNA);
  auto* block = static_cast<RefBlock*>(Allocate(sizeof(RefBlock) + count * sizeof(Range)));
  if (!block) return ErrorValue(ErrNA);
  block->count = static_cast<uint16_t>(count);
  for (uint32_t i = 0; i < count; i++) {
    const uint8_t* r = b + at + 8 * i;
    block->areas[i] = Range{ReadU16(r), ReadU16(r + 2), r[4], r[6]};
  }
  Value v{};
  v.tag = ValueRefList;
  v.refs = block;
  v.linkIndex = link;
  return v;
}

// --- Names ---------------------------------------------------------------------------------

static bool HasFormula(const DefinedName* name) {
  return name->formula.bytes && name->formula.length;
}

// The entry that a use of name `index` (0-based) on `sheet` means: a local name without a
// formula gives way to a global one of the same text that has one, and a global name gives way
// to one of the same text local to the sheet of use that has a formula.
static uint32_t ChooseName(const Workbook* wb, uint32_t index, uint32_t sheet) {
  const DefinedName* name = &wb->names[index];
  if (!name->name) return index;
  bool local = name->localSheet != 0;
  if (local && HasFormula(name)) return index;
  for (uint32_t i = 0; i < wb->nameCount; i++) {
    const DefinedName* other = &wb->names[i];
    if (i == index || !other->name || !HasFormula(other)) continue;
    bool wanted = local ? other->localSheet == 0 : other->localSheet == sheet + 1;
    if (wanted && EqualTextNoCase(other->name, name->name)) return i;
  }
  return index;
}

// A name used in another workbook, by text: the one local to `sheet` with a formula, else a
// global one with a formula; -1 when there is none.
static int32_t FindNameWithFormula(uint32_t book, int32_t sheet, const char16_t* text) {
  const Workbook* wb = GetWorkbook(book);
  int32_t global = -1;
  for (uint32_t i = 0; i < wb->nameCount; i++) {
    const DefinedName* name = &wb->names[i];
    if (!name->name || !HasFormula(name) || !EqualTextNoCase(name->name, text)) continue;
    if (sheet >= 0 && name->localSheet == static_cast<uint32_t>(sheet) + 1)
      return static_cast<int32_t>(i);
    if (name->localSheet == 0 && global < 0) global = static_cast<int32_t>(i);
  }
  return global;
}

// After ShiftRelativeRefs the offset forms of a name's copy hold cell coordinates; turning them
// into the plain forms keeps the evaluation from adding the cell of use a second time. Both
// ptgRefN and ptgAreaN lie eight above their plain forms in every class.
static void MakeOffsetsAbsolute(FormulaTokens* tokens) {
  uint8_t* b = tokens->bytes;
  for (uint32_t p = 0; p < tokens->length;) {
    uint8_t base = FoldOpcode(b[p]);
    uint32_t end = TokenEnd(b, p, tokens->length);
    if (!end) return;
    if (base == ptgRefN || base == ptgAreaN) b[p] = static_cast<uint8_t>(b[p] - 8);
    p = end;
  }
}

// Runs a name's formula into `out` with `ctx`. `shift` moves the relative references of the copy
// to the cell of use, once. Returns 0 only when a running macro aborted.
static int RunNameFormula(const FormulaTokens* formula, bool shift, const EvalContext* ctx,
                          Value* out) {
  if (nameDepth >= MaxNameNesting) {
    *out = ErrorValue(ErrName);
    return 1;
  }
  FormulaTokens copy;
  if (!CopyTokens(&copy, formula)) {
    *out = ErrorValue(ErrNA);
    return 1;
  }
  if (shift) {
    ShiftRelativeRefs(&copy, ctx->row, ctx->col);
    MakeOffsetsAbsolute(&copy);
  }
  nameDepth++;
  int status = Evaluate(&copy, out, ctx);
  nameDepth--;
  FreeTokens(&copy);
  return status;
}

// Pushes the value of a name-like token, applying its class; returns 0 on abort.
static int PushNameResult(Machine* m, int status, Value v, uint8_t cls) {
  if (!status) {
    m->abortSignal = v;
    return 0;
  }
  if (cls == ClassValue && IsReference(&v))
    ImplicitIntersect(&v, m->ctx);
  else if (cls == ClassArray && IsReference(&v))
    CoerceValue(&v, ValueArray, m->ctx);
  Push(m, v);
  return 1;
}

static int NameToken(Machine* m, uint32_t index, uint8_t cls) {
  const EvalContext* ctx = m->ctx;
  const Workbook* wb = GetWorkbook(ctx->book);
  if (index == 0 || index > wb->nameCount) {
    Push(m, ErrorValue(ErrName));
    return 1;
  }
  const DefinedName* name = &wb->names[ChooseName(wb, index - 1, ctx->sheet)];
  if (!HasFormula(name)) {
    Push(m, ErrorValue(ErrName));
    return 1;
  }
  Value v{};
  int status = RunNameFormula(&name->formula, true, ctx, &v);
  return PushNameResult(m, status, v, cls);
}

// A reference that a name of another workbook gave, made to mean the same cells from this one:
// its link is resolved there and found or added here. An inline reference meant the context
// sheet of that workbook.
static void TranslateToThisBook(Value* v, uint32_t otherBook, const EvalContext* ctx) {
  if (!IsReference(v)) return;
  ResolvedLink there{};
  there.fromBook = otherBook;
  if (v->tag == ValueRef) {
    there.book = otherBook;
    there.firstSheet = there.lastSheet = static_cast<int32_t>(ctx->sheet);
  } else if (!ResolveLink(v->linkIndex, &there)) {
    SetError(v, ErrRef);
    return;
  }
  LinkRequest request{ctx->book, there.book, there.firstSheet, there.lastSheet};
  int32_t link;
  if (!FindOrAddLink(&request, &link)) {
    SetError(v, ErrRef);
    return;
  }
  if (v->tag == ValueRef) {
    Range area = v->ref;
    *v = ListOfOneArea(&area, link);
  } else {
    v->linkIndex = link;
  }
}

// An add-in function named by a ptgNameX travels to its call as a one-area reference list on the
// add-in's own link whose first row holds the index of the function in the add-in table; no
// reference ever stands on an add-in link, so the marker cannot be mistaken for cells.
static Value AddInMarker(uint32_t tableIndex, int32_t link) {
  Range area{static_cast<uint16_t>(tableIndex), static_cast<uint16_t>(tableIndex), 0, 0};
  return ListOfOneArea(&area, link);
}

static int NameXToken(Machine* m, uint32_t link, uint32_t index, uint8_t cls) {
  const EvalContext* ctx = m->ctx;
  if (!LinkInRange(link, ctx)) {
    Push(m, ErrorValue(ErrRef));
    return 1;
  }
  const Workbook* wb = GetWorkbook(ctx->book);
  int32_t bookIndex = wb->sheetLinks[link].bookIndex;
  if (bookIndex < 0 || static_cast<uint32_t>(bookIndex) >= wb->externalBookCount) {
    Push(m, ErrorValue(ErrRef));
    return 1;
  }
  const ExternalBook* external = &wb->externalBooks[bookIndex];
  switch (external->kind) {
    case ExternalSelf: {
      // A name of this workbook: the index is the name's own, and its references stay as
      // written.
      if (index == 0 || index > wb->nameCount) break;
      const DefinedName* name = &wb->names[ChooseName(wb, index - 1, ctx->sheet)];
      if (!HasFormula(name)) break;
      Value v{};
      int status = RunNameFormula(&name->formula, false, ctx, &v);
      return PushNameResult(m, status, v, cls);
    }
    case ExternalAddIn: {
      if (index == 0 || index > external->nameCount) break;
      int32_t tableIndex = FindAddInByFileName(external->names[index - 1].text);
      if (tableIndex < 0) break;
      Push(m, AddInMarker(static_cast<uint32_t>(tableIndex), static_cast<int32_t>(link)));
      return 1;
    }
    case ExternalOtherFile: {
      if (index == 0 || index > external->nameCount) break;
      ResolvedLink there{};
      there.fromBook = ctx->book;
      if (!ResolveLink(static_cast<int32_t>(link), &there)) {
        Push(m, ErrorValue(ErrRef));
        return 1;
      }
      // Resolving may have loaded a workbook and moved the workbook array: reach both afresh.
      const ExternalBook* again = &GetWorkbook(ctx->book)->externalBooks[bookIndex];
      int32_t found =
          FindNameWithFormula(there.book, there.firstSheet, again->names[index - 1].text);
      if (found < 0) break;
      EvalContext otherCtx = *ctx;
      otherCtx.book = there.book;
      Value v{};
      int status =
          RunNameFormula(&GetWorkbook(there.book)->names[found].formula, true, &otherCtx, &v);
      if (status) TranslateToThisBook(&v, there.book, ctx);
      return PushNameResult(m, status, v, cls);
    }
    default:
      break;
  }
  Push(m, ErrorValue(ErrName));
  return 1;
}

// --- Jumps and the one-argument sum --------------------------------------------------------

// True when the four bytes in front of `target` are a goto of 3, the end of an IF without a
// false branch.
static bool GotoOfThreeBefore(const uint8_t* b, uint32_t target) {
  return target >= 4 && FoldOpcode(b[target - 4]) == ptgAttr && b[target - 3] == AttrGoto &&
         ReadU16(b + target - 2) == 3;
}

static uint32_t IfJump(Machine* m, uint32_t p, uint32_t end) {
  const uint8_t* b = m->bytes;
  uint32_t target = end + ReadU16(b + p + 2);
  Value* cond = Top(m);
  if (!cond) return m->length;
  if (cond->tag != ValueError) CoerceValue(cond, ValueBoolean, m->ctx);
  if (cond->tag == ValueError) {
    // The error stays as the result; skip the false branch by the goto that ends the true one.
    if (target < 4 || target > m->length) return m->length;
    return target + ReadU16(b + target - 2) + 1;
  }
  bool isTrue = cond->boolean != 0;
  m->count--;
  if (isTrue) return end;
  if (target < m->length && GotoOfThreeBefore(b, target)) {
    // No false branch: the result is the condition's FALSE, and the function token is stepped
    // over.
    Push(m, BooleanValue(false));
    uint32_t after = TokenEnd(b, target, m->length);
    return after ? after : m->length;
  }
  return target;
}

// CHOOSE: the jump table counts from its first slot; the last slot points at the function token,
// which is stepped over so that no handler runs when the index is an error or out of range.
static uint32_t ChooseJump(Machine* m, uint32_t p) {
  const uint8_t* b = m->bytes;
  uint32_t count = ReadU16(b + p + 2);
  uint32_t table = p + 4;
  uint32_t past = table + ReadU16(b + table + 2 * count);
  if (past < m->length && FoldOpcode(b[past]) == ptgFuncVar) past += 4;
  Value* index = Top(m);
  if (!index) return m->length;
  if (index->tag != ValueError) CoerceValue(index, ValueNumber, m->ctx);
  if (index->tag == ValueError) return past;
  double i = std::trunc(index->number);
  m->count--;
  if (i >= 1 && i <= count) return table + ReadU16(b + table + 2 * (static_cast<uint32_t>(i) - 1));
  Push(m, ErrorValue(ErrValue));
  return past;
}

// Adds the numbers of one area of a sheet; texts, booleans and blanks count for nothing and the
// first error ends the sum. The cells are read as a coercion to an array would read them, without
// building the array (so whole columns fit too).
static uint32_t SumArea(uint32_t book, uint32_t sheet, const Range* area, double* sum) {
  if (area->lastRow < area->firstRow || area->lastCol < area->firstCol) return ErrValue;
  CellRangeWalk walk;
  BeginRangeWalk(&walk, &GetSheet(book, sheet)->cells, area);
  while (Cell* cell = NextCellInRange(&walk)) {
    PrepareCellForRead(book, sheet, cell);
    const Value* v = &cell->value;
    if (v->tag == ValueNumber)
      *sum += v->number;
    else if (v->tag == ValueError)
      return v->error;
    else if (v->tag == ValueText && !v->text)
      return ErrNA;
  }
  return UINT32_MAX;
}

namespace {

struct ListSum {
  double sum;
  uint32_t error;
};

}  // namespace

static int SumAreaVisit(uint32_t book, uint32_t sheet, const Range* area, void* state) {
  auto* s = static_cast<ListSum*>(state);
  s->error = SumArea(book, sheet, area, &s->sum);
  return s->error == UINT32_MAX;
}

void SumRefList(const Value* list, Value* result, const EvalContext* ctx) {
  ReferenceTarget target;
  uint32_t error = LocateReference(list, ctx, &target);
  ListSum s{0, UINT32_MAX};
  if (error == ReferenceFound && !WalkReferenceTarget(&target, SumAreaVisit, &s)) error = s.error;
  *result = error == ReferenceFound ? NumberValue(s.sum) : ErrorValue(error);
}

static void OneArgumentSum(Machine* m) {
  Value* top = Top(m);
  if (!top) return;
  const EvalContext* ctx = m->ctx;
  switch (top->tag) {
    case ValueRef: {
      double sum = 0;
      uint32_t error = ErrRef;
      if (ctx->book < App.workbookCount && ctx->sheet < GetWorkbook(ctx->book)->sheetCount &&
          SheetHasCells(GetSheet(ctx->book, ctx->sheet)))
        error = SumArea(ctx->book, ctx->sheet, &top->ref, &sum);
      *top = error == UINT32_MAX ? NumberValue(sum) : ErrorValue(error);
      return;
    }
    case ValueRefList: {
      Value sum;
      SumRefList(top, &sum, ctx);
      FreeValue(top);
      *top = sum;
      return;
    }
    case ValueArray: {
      double sum = 0;
      Value result = NumberValue(0);
      uint32_t n = top->elements ? static_cast<uint32_t>(top->rows) * top->columns : 0;
      for (uint32_t i = 0; i < n && result.tag == ValueNumber; i++) {
        const Value* e = &top->elements[i];
        if (e->tag == ValueNumber) sum += e->number;
        if (e->tag == ValueError) result = *e;
      }
      if (result.tag == ValueNumber) result.number = sum;
      FreeValue(top);
      *top = result;
      return;
    }
    case ValueText:
    case ValueBoolean:
      CoerceValue(top, ValueNumber, ctx);
      return;
    case ValueNumber:
    case ValueError:
    case ValueEmpty:
      return;
    default:
      SetError(top, ErrValue);
      return;
  }
}

// --- Function calls ------------------------------------------------------------------------

static char ArgumentClass(const char* classes, uint32_t length, uint32_t i) {
  return i < length ? classes[i] : 0;
}

static void ReleaseFrame(Value* frame, uint32_t size) {
  for (uint32_t i = 0; i < size; i++) {
    FreeValue(&frame[i]);
    frame[i] = Value{};
  }
}

// References passed where a function wants values are reduced to the value of the cell that
// lines up with the cell of use, or to an array in array mode.
static void ReduceValueArguments(Value* frame, uint32_t argCount, const char* classes,
                                 const EvalContext* ctx) {
  uint32_t length = classes ? static_cast<uint32_t>(std::strlen(classes)) : 0;
  for (uint32_t i = 0; i < argCount; i++) {
    char c = ArgumentClass(classes, length, i);
    if ((c == 'v' || c == 'V') && IsReference(&frame[i])) ImplicitIntersect(&frame[i], ctx);
  }
}

// Whether the macro being run was called as a function. There is no macro interpreter yet, so
// no macro is ever running.
static bool MacroCalledAsFunction() {
  return false;
}

int IsRunningCell(const EvalContext*) {
  return 0;
}

// Macro commands only run from the cell a running macro is at. The category is read as a signed
// byte, as the parser reads it, so the rows of category 255 are not commands.
static bool IsGatedCommand(const FunctionEntry* entry, uint32_t id, const EvalContext* ctx) {
  auto category = static_cast<int8_t>(FunctionCategory(entry));
  if (category >= static_cast<int8_t>(CategoryMacroControl) && !IsRunningCell(ctx)) return true;
  return (id & CommandEquivalentBit) && MacroCalledAsFunction();
}

static bool ContextOnMacroSheet(const EvalContext* ctx) {
  return ctx->book < App.workbookCount && ctx->sheet < GetWorkbook(ctx->book)->sheetCount &&
         GetSheet(ctx->book, ctx->sheet)->kind == SheetMacro;
}

static bool IsAddInMarker(const Value* v, const EvalContext* ctx) {
  if (v->tag != ValueRefList || !v->refs || v->refs->count < 1 || v->linkIndex < 0 ||
      !LinkInRange(static_cast<uint32_t>(v->linkIndex), ctx))
    return false;
  const Workbook* wb = GetWorkbook(ctx->book);
  int32_t bookIndex = wb->sheetLinks[v->linkIndex].bookIndex;
  return bookIndex >= 0 && static_cast<uint32_t>(bookIndex) < wb->externalBookCount &&
         wb->externalBooks[bookIndex].kind == ExternalAddIn;
}

// What a call of a macro cell gives while no macro can run: FALSE from a macro sheet that is not
// at its running cell, the error of an error argument, #REF! for anything that is not a cell of
// a macro sheet, and FALSE for a macro cell, whose macro cannot be run.
static Value CallMacroCell(const Value* target, const EvalContext* ctx) {
  if (ContextOnMacroSheet(ctx) && !IsRunningCell(ctx)) return BooleanValue(false);
  if (target->tag == ValueError) return *target;
  bool onMacroSheet = false;
  if (target->tag == ValueRefList && target->refs && target->refs->count >= 1) {
    ResolvedLink link{};
    link.fromBook = ctx->book;
    onMacroSheet = ResolveLink(target->linkIndex, &link) && link.firstSheet >= 0 &&
                   static_cast<uint32_t>(link.firstSheet) < GetWorkbook(link.book)->sheetCount &&
                   GetSheet(link.book, link.firstSheet)->kind == SheetMacro;
  } else if (target->tag == ValueRef) {
    onMacroSheet = ContextOnMacroSheet(ctx);
  }
  return onMacroSheet ? BooleanValue(false) : ErrorValue(ErrRef);
}

// Function 255: the first argument is an add-in marker or a macro cell.
static void CallNamed(Value* frame, uint32_t argCount, Value* result, const EvalContext* ctx) {
  if (argCount && IsAddInMarker(&frame[0], ctx)) {
    uint32_t index = frame[0].refs->areas[0].firstRow;
    FreeValue(&frame[0]);
    std::memmove(frame, frame + 1, (argCount - 1) * sizeof(Value));
    frame[argCount - 1] = Value{};
    argCount--;
    const FunctionTables* t = ActiveFunctionTables();
    if (index >= t->addInCount) {
      ReleaseFrame(frame, argCount);
      *result = ErrorValue(ErrName);
      return;
    }
    const FunctionEntry* entry = &t->addIn[index];
    ReduceValueArguments(frame, argCount, entry->args, ctx);
    CallFunction(frame, static_cast<int>(argCount), result,
                 entry->handler ? entry->handler : NotImplementedFunction, entry->args, ctx,
                 FunctionFrameSize);
    return;
  }
  Value none{};
  *result = CallMacroCell(argCount ? &frame[0] : &none, ctx);
  ReleaseFrame(frame, argCount);
}

// ptgFunc and ptgFuncVar. `entry` is the row found for the number, or null. Returns 0 when the
// function asked a running macro to abort.
static int FunctionToken(Machine* m, uint8_t opcode, bool variable, uint32_t id, uint32_t argCount,
                         const FunctionEntry* entry) {
  const EvalContext* ctx = m->ctx;
  if (argCount > static_cast<uint32_t>(FunctionFrameSize)) {
    for (uint32_t i = 0; i < argCount && m->count; i++) {
      Value v = Pop(m);
      FreeValue(&v);
    }
    Push(m, ErrorValue(ErrValue));
    return 1;
  }
  Value frame[FunctionFrameSize] = {};
  uint32_t present = argCount < m->count ? argCount : m->count;
  for (uint32_t i = 0; i < argCount; i++) {
    uint32_t fromTop = argCount - i;
    frame[i] = fromTop <= present ? m->slots[m->count - fromTop] : ErrorValue(ErrValue);
  }
  m->count -= present;

  Value result{};
  if (variable && id == CallNamedNumber) {
    CallNamed(frame, argCount, &result, ctx);
  } else if (!entry) {
    ReleaseFrame(frame, argCount);
    result = ErrorValue(ErrName);
  } else {
    ReduceValueArguments(frame, argCount, entry->args, ctx);
    if (IsGatedCommand(entry, id, ctx)) {
      ReleaseFrame(frame, argCount);
      result = BooleanValue(false);
    } else {
      CallFunction(frame, static_cast<int>(argCount), &result,
                   entry->handler ? entry->handler : NotImplementedFunction, entry->args, ctx,
                   FunctionFrameSize);
    }
  }
  if (variable) {
    if (result.tag == ValueControl && result.control.code == ControlAbort) {
      m->abortSignal = result;
      return 0;
    }
    if (opcode == FuncVarValueClass && result.tag == ValueArray && !ctx->arrayMode)
      ArrayElementForCell(&result, ctx);
  }
  Push(m, result);
  return 1;
}

// An array element holds only blanks, numbers, texts, booleans and errors: a handler that wrote
// anything else into an element of a spread call has it reduced to one of those.
static void SettleElement(Value* v, const EvalContext* ctx) {
  EvalContext cellCtx = *ctx;
  cellCtx.arrayMode = 0;
  if (IsReference(v)) ImplicitIntersect(v, &cellCtx);
  if (v->tag == ValueArray) ArrayElementForCell(v, &cellCtx);
  if (v->tag != ValueEmpty && v->tag != ValueNumber && v->tag != ValueText &&
      v->tag != ValueBoolean && v->tag != ValueError)
    SetError(v, ErrValue);
}

static bool SpreadsOver(char c) {
  return c == 'V' || c == 'v' || c == 'W' || c == 'w';
}

void CallFunction(Value* args, int argCount, Value* result, FunctionHandler handler,
                  const char* argClasses, const EvalContext* ctx, int frameSize) {
  uint32_t size = frameSize < 0 ? 0 : static_cast<uint32_t>(frameSize);
  if (size > static_cast<uint32_t>(FunctionFrameSize)) size = FunctionFrameSize;
  uint32_t count = argCount < 0 ? 0 : static_cast<uint32_t>(argCount);
  if (count > size) count = size;
  uint32_t classLength = argClasses ? static_cast<uint32_t>(std::strlen(argClasses)) : 0;

  // The spread is as large as the smallest array dimension above 1 among the value arguments.
  uint32_t rows = 1, columns = 1;
  bool spread[FunctionFrameSize] = {};
  for (uint32_t i = 0; i < count; i++) {
    if (args[i].tag != ValueArray || !SpreadsOver(ArgumentClass(argClasses, classLength, i)))
      continue;
    spread[i] = true;
    if (args[i].rows > 1 && (rows == 1 || args[i].rows < rows)) rows = args[i].rows;
    if (args[i].columns > 1 && (columns == 1 || args[i].columns < columns))
      columns = args[i].columns;
  }
  *result = Value{};
  if (rows == 1 && columns == 1) {
    for (uint32_t i = count; i < size; i++) args[i] = Value{};
    handler(args, result, ctx);
    ReleaseFrame(args, size);
    return;
  }
  if (!MakeArray(result, rows, columns)) {
    *result = ErrorValue(ErrNA);
    ReleaseFrame(args, size);
    return;
  }
  for (uint32_t r = 0; r < rows; r++) {
    for (uint32_t c = 0; c < columns; c++) {
      Value* out = &result->elements[r * columns + c];
      Value frame[FunctionFrameSize] = {};
      bool copied = true;
      for (uint32_t i = 0; i < count && copied; i++) {
        if (!spread[i]) {
          copied = CopyValue(&frame[i], &args[i]);
          continue;
        }
        // A spread argument is read with the result's column count as its stride, so one wider
        // than the result reads along the narrower rows. A one-column argument is read down its
        // own column, and an element that would fall outside the argument is #N/A.
        const Value* a = &args[i];
        uint32_t row = a->rows == 1 ? 0 : r, col = a->columns == 1 ? 0 : c;
        uint32_t index = a->columns == 1 ? row : row * columns + col;
        if (!a->elements || index >= static_cast<uint32_t>(a->rows) * a->columns)
          frame[i] = ErrorValue(ErrNA);
        else
          copied = CopyValue(&frame[i], &a->elements[index]);
      }
      if (copied) {
        handler(frame, out, ctx);
        SettleElement(out, ctx);
      } else {
        *out = ErrorValue(ErrNA);
      }
      ReleaseFrame(frame, size);
    }
  }
  ReleaseFrame(args, size);
}

// --- The main loop -------------------------------------------------------------------------

// Runs the token at `p` whose end is `end`; writes the position of the next token to run.
// Returns 0 when a running macro aborted.
static int Step(Machine* m, uint32_t p, uint32_t end, uint32_t* next) {
  const uint8_t* b = m->bytes;
  const EvalContext* ctx = m->ctx;
  uint8_t opcode = b[p];
  uint8_t base = FoldOpcode(opcode);
  uint8_t cls = TokenClass(opcode);
  *next = end;
  // The binary operators share one case, which tells them apart by `base`.
  switch (IsBinaryOperator(base) ? uint8_t{ptgRange} : base) {
    case ptgRange: {
      Value right = Pop(m);
      Value left = Pop(m);
      if (base <= ptgPower)
        ArithmeticOperator(base, &left, &right, ctx);
      else if (base == ptgConcat)
        ConcatOperator(&left, &right, ctx);
      else if (base <= ptgNE)
        ComparisonOperator(base, &left, &right, ctx);
      else if (base == ptgIsect)
        IntersectionOperator(&left, &right, ctx);
      else if (base == ptgUnion)
        UnionOperator(&left, &right, ctx);
      else
        RangeOperator(&left, &right, ctx);
      Push(m, left);
      return 1;
    }
    case ptgUminus:
    case ptgPercent: {
      Value v = Pop(m);
      if (base == ptgUminus)
        NegateOperator(&v, ctx);
      else
        PercentOperator(&v, ctx);
      Push(m, v);
      return 1;
    }
    case ptgMissArg:
      Push(m, Value{});
      return 1;
    case ptgStr:
      Push(m, StringConstant(b + p + 1));
      return 1;
    case ptgAttr: {
      uint8_t kind = b[p + 1];
      if (kind == AttrIf)
        *next = IfJump(m, p, end);
      else if (kind == AttrChoose)
        *next = ChooseJump(m, p);
      else if (kind == AttrGoto)
        *next = end + ReadU16(b + p + 2) + 1;
      else if (kind == AttrSum)
        OneArgumentSum(m);
      return 1;
    }
    case ptgErr:
      Push(m, ErrorValue(ErrorFromBiff(b[p + 1])));
      return 1;
    case ptgBool:
      Push(m, BooleanValue(b[p + 1] != 0));
      return 1;
    case ptgInt:
      Push(m, NumberValue(ReadU16(b + p + 1)));
      return 1;
    case ptgNum:
      Push(m, NumberValue(ReadDouble(b + p + 1)));
      return 1;
    case ptgArray:
      Push(m, ArrayConstant(m));
      return 1;
    case ptgFunc: {
      uint32_t id = ReadU16(b + p + 1);
      const FunctionEntry* entry = FindFunctionByNumber(id);
      uint32_t argCount =
          entry && entry->args ? static_cast<uint32_t>(std::strlen(entry->args)) : 0;
      return FunctionToken(m, opcode, false, id, argCount, entry);
    }
    case ptgFuncVar: {
      uint32_t id = ReadU16(b + p + 2);
      const FunctionEntry* entry = FindFunctionByNumber(id);
      // The count has seven bits; the eighth asks a command to show its dialog.
      return FunctionToken(m, opcode, true, id, b[p + 1] & 0x7F, entry);
    }
    case ptgName:
      return NameToken(m, ReadU16(b + p + 1), cls);
    case ptgNameX:
      return NameXToken(m, ReadU16(b + p + 1), ReadU16(b + p + 3), cls);
    case ptgRef:
    case ptgRefN: {
      Value v = RefValue(ReadCell(b + p + 1, base == ptgRefN, ctx));
      ApplyReferenceClass(&v, cls, base == ptgRef, ctx);
      Push(m, v);
      return 1;
    }
    case ptgArea:
    case ptgAreaN: {
      Value v = RefValue(ReadArea(b + p + 1, base == ptgAreaN, ctx));
      ApplyReferenceClass(&v, cls, false, ctx);
      Push(m, v);
      return 1;
    }
    case ptgRef3d:
    case ptgArea3d: {
      uint32_t link = ReadU16(b + p + 1);
      Value v;
      if (!LinkInRange(link, ctx)) {
        v = ErrorValue(ErrRef);
      } else {
        Range area =
            base == ptgRef3d ? ReadCell(b + p + 3, false, ctx) : ReadArea(b + p + 3, false, ctx);
        v = ListOfOneArea(&area, static_cast<int32_t>(link));
        ApplyReferenceClass(&v, cls, false, ctx);
      }
      Push(m, v);
      return 1;
    }
    case ptgMemArea:
    case ptgMemErr:
    case ptgMemNoMem: {
      Value v;
      if (base == ptgMemArea) {
        v = MemAreaList(m);
        ApplyReferenceClass(&v, cls, false, ctx);
      } else {
        v = ErrorValue(base == ptgMemErr ? ErrorFromBiff(b[p + 1]) : ErrNA);
      }
      Push(m, v);
      // The tokens that would work out the same thing are skipped.
      *next = end + ReadU16(b + p + 5);
      return 1;
    }
    case ptgRefErr:
    case ptgAreaErr:
    case ptgRefErr3d:
    case ptgAreaErr3d:
      Push(m, ErrorValue(ErrRef));
      return 1;
    default:
      // ptgExp, ptgTbl, ptgUplus, ptgParen, ptgMemFunc, the extended token and opcodes that are
      // not produced change nothing.
      return 1;
  }
}

int Evaluate(const FormulaTokens* tokens, Value* result, const EvalContext* ctx) {
  *result = Value{};
  if (!tokens || !tokens->bytes) {
    *result = ErrorValue(ErrValue);
    return 1;
  }
  Machine m{};
  m.bytes = tokens->bytes;
  m.length = tokens->length;
  m.extra = tokens->length;
  m.extraEnd = static_cast<uint32_t>(tokens->length) + tokens->extraLength;
  m.ctx = ctx;
#ifndef NDEBUG
  // Strings from the parser and from checked files are sound; tests also run broken ones.
  m.sound = ValidateTokens(tokens, TokensForCell, nullptr) != 0;
#endif
  uint32_t position = 0;
  while (position < m.length && !m.lostMemory) {
    uint32_t end = TokenEnd(m.bytes, position, m.length);
    if (!end) {
      // A token cut short by the end of the string: the formula is not sound.
      ReleaseStack(&m);
      *result = ErrorValue(ErrValue);
      return 1;
    }
    uint32_t next;
    if (!Step(&m, position, end, &next)) {
      ReleaseStack(&m);
      *result = m.abortSignal;
      return 0;
    }
    CheckFinite(&m);
    if (next > end) SkipExtraBetween(&m, end, next);
    position = next;
  }
  DEBUG_ASSERT(m.lostMemory || m.count == 1 || !m.sound);
  if (m.lostMemory)
    *result = ErrorValue(ErrNA);
  else if (m.count)
    *result = m.slots[--m.count];
  else
    *result = ErrorValue(ErrValue);
  ReleaseStack(&m);
  return 1;
}

// --- Entry points for other subsystems -----------------------------------------------------

// The book, sheet and first area a reference result stands on; 0 for anything else.
static int LocateResult(const Value* v, const EvalContext* ctx, uint32_t* book, uint32_t* sheet,
                        Range* area) {
  ReferenceTarget t;
  if (LocateReference(v, ctx, &t) != ReferenceFound) return 0;
  *book = t.book;
  *sheet = t.firstSheet;
  *area = t.areas[0];
  return 1;
}

int EvaluateToReference(uint32_t book, uint32_t sheet, const FormulaTokens* tokens,
                        uint32_t* sheetOut, Range* rangeOut, int32_t row, int32_t col) {
  EvalContext ctx{book, sheet, row, col, 0};
  Value v;
  Evaluate(tokens, &v, &ctx);
  uint32_t whereBook = 0, whereSheet = 0;
  Range area{};
  // A sheet number only means something in the workbook asked about.
  int found = LocateResult(&v, &ctx, &whereBook, &whereSheet, &area) && whereBook == book;
  FreeValue(&v);
  if (!found) return 0;
  if (sheetOut) *sheetOut = whereSheet;
  if (rangeOut) *rangeOut = area;
  return 1;
}

int NameIsMacroCell(uint32_t book, uint32_t sheet, const FormulaTokens* tokens, uint32_t* outBook,
                    uint32_t* outSheet, Range* out) {
  EvalContext ctx{book, sheet, 0, 0, 0};
  Value v;
  Evaluate(tokens, &v, &ctx);
  uint32_t whereBook = 0, whereSheet = 0;
  Range area{};
  int found = LocateResult(&v, &ctx, &whereBook, &whereSheet, &area) &&
              whereBook < App.workbookCount && whereSheet < GetWorkbook(whereBook)->sheetCount &&
              GetSheet(whereBook, whereSheet)->kind == SheetMacro;
  FreeValue(&v);
  if (!found) return 0;
  if (outBook) *outBook = whereBook;
  if (outSheet) *outSheet = whereSheet;
  if (out) *out = area;
  return 1;
}
