// The evaluator's operators. Arithmetic and concatenation share one table of operand kinds
// (scalar, error, array) and one broadcasting rule for two arrays; comparison has its own error
// rules and compares scalars by type order with a relative tolerance between numbers. The
// reference operators work on inline references (the context sheet) and on reference lists,
// whose link has to be resolved to know which workbook and sheets they stand on.
#include "formula/operators.h"

#include <cmath>
#include <cstring>
#include <initializer_list>

#include "base/alloc.h"
#include "base/text.h"
#include "formula/tokens.h"
#include "model/names.h"

namespace {

enum OperandKind { OperandScalar, OperandError, OperandArray };

}  // namespace

static OperandKind KindOf(const Value* v) {
  if (v->tag == ValueError) return OperandError;
  if (v->tag == ValueArray) return OperandArray;
  return OperandScalar;
}

static uint32_t ElementCount(const Value* array) {
  return array->elements ? static_cast<uint32_t>(array->rows) * array->columns : 0;
}

// The element of `array` that lines up with the result cell (r, c) under broadcasting: a single
// row or column repeats; null when the cell lies outside the operand.
static const Value* BroadcastElement(const Value* array, uint32_t r, uint32_t c) {
  uint32_t row = array->rows == 1 ? 0 : r, col = array->columns == 1 ? 0 : c;
  if (!array->elements || row >= array->rows || col >= array->columns) return nullptr;
  return &array->elements[row * array->columns + col];
}

static void FillWithError(Value* array, uint32_t code) {
  uint32_t n = ElementCount(array);
  for (uint32_t i = 0; i < n; i++) SetError(&array->elements[i], code);
}

// Elements that are neither of `type` nor errors are converted to `type`.
static void CoerceElements(Value* array, uint16_t type, const EvalContext* ctx) {
  uint32_t n = ElementCount(array);
  for (uint32_t i = 0; i < n; i++) {
    Value* e = &array->elements[i];
    if (e->tag != type && e->tag != ValueError) CoerceValue(e, type, ctx);
  }
}

// Writes the result of (a op b) for two elements that are not errors into `out`.
using ElementOp = void (*)(uint8_t ptg, const Value* a, const Value* b, Value* out);

// Two arrays element by element: the result is as large as the larger of each dimension; a cell
// outside either operand is #N/A, and an error element on the left, then on the right, wins.
static void BroadcastArrays(uint8_t ptg, Value* left, Value* right, ElementOp op) {
  uint32_t rows = left->rows > right->rows ? left->rows : right->rows;
  uint32_t columns = left->columns > right->columns ? left->columns : right->columns;
  Value out;
  if (!MakeArray(&out, rows, columns)) {
    FreeValue(left);
    FreeValue(right);
    *left = ErrorValue(ErrNA);
    return;
  }
  for (uint32_t r = 0; r < rows; r++) {
    for (uint32_t c = 0; c < columns; c++) {
      Value* o = &out.elements[r * columns + c];
      const Value* a = BroadcastElement(left, r, c);
      const Value* b = BroadcastElement(right, r, c);
      if (!a || !b)
        *o = ErrorValue(ErrNA);
      else if (a->tag == ValueError)
        *o = *a;
      else if (b->tag == ValueError)
        *o = *b;
      else
        op(ptg, a, b, o);
    }
  }
  FreeValue(left);
  FreeValue(right);
  *left = out;
}

static Value Power(double base, double exponent) {
  if (base == 0 && exponent == 0) return ErrorValue(ErrNum);
  if (base < 0 && exponent != std::trunc(exponent)) return ErrorValue(ErrNum);
  if (base == 0 && exponent < 0) return ErrorValue(ErrDiv0);
  return NumberValue(std::pow(base, exponent));
}

// Overflow to infinity is left for the evaluator's check after each token, which makes it #NUM!.
static void NumberOp(uint8_t ptg, const Value* a, const Value* b, Value* out) {
  double x = a->number, y = b->number;
  switch (ptg) {
    case ptgAdd:
      *out = NumberValue(x + y);
      break;
    case ptgSub:
      *out = NumberValue(x - y);
      break;
    case ptgMul:
      *out = NumberValue(x * y);
      break;
    case ptgDiv:
      *out = y == 0 ? ErrorValue(ErrDiv0) : NumberValue(x / y);
      break;
    default:
      *out = Power(x, y);
      break;
  }
}

static void JoinOp(uint8_t, const Value* a, const Value* b, Value* out) {
  uint32_t la = TextLength(a->text), lb = TextLength(b->text);
  auto* joined = static_cast<char16_t*>(Allocate((la + lb + 1) * sizeof(char16_t)));
  if (!joined) {
    *out = ErrorValue(ErrNA);
    return;
  }
  if (la) std::memcpy(joined, a->text, la * sizeof(char16_t));
  if (lb) std::memcpy(joined + la, b->text, lb * sizeof(char16_t));
  *out = TextValue(joined);
}

// The common path of concatenation: the left block grows to take the right text.
static void JoinInPlace(Value* left, Value* right) {
  uint32_t la = TextLength(left->text), lb = TextLength(right->text);
  auto* joined = static_cast<char16_t*>(
      Reallocate(left->text, (la + 1) * sizeof(char16_t), (la + lb + 1) * sizeof(char16_t)));
  if (!joined) {
    SetError(left, ErrNA);
  } else {
    if (lb) std::memcpy(joined + la, right->text, lb * sizeof(char16_t));
    joined[la + lb] = 0;
    left->text = joined;
  }
  FreeValue(right);
}

// Arithmetic and concatenation: `type` is the scalar type both operands are brought to.
static void ApplyOperandTable(uint8_t ptg, Value* left, Value* right, uint16_t type, ElementOp op,
                              const EvalContext* ctx) {
  for (Value* v : {left, right}) {
    if (v->tag == type || v->tag == ValueError || v->tag == ValueArray) continue;
    CoerceValue(v, IsReference(v) ? static_cast<uint16_t>(ValueArray) : type, ctx);
  }
  OperandKind lk = KindOf(left), rk = KindOf(right);
  if (lk == OperandError) {
    // An error on the left overwrites every element of an array on the right, texts included.
    if (rk == OperandArray) {
      FillWithError(right, left->error);
      *left = *right;
    } else {
      FreeValue(right);
    }
    return;
  }
  if (rk == OperandError) {
    // An error on the right only replaces the elements that took the operand type, so elements
    // that were errors already keep their own.
    if (lk == OperandArray) {
      CoerceElements(left, type, ctx);
      uint32_t n = ElementCount(left);
      for (uint32_t i = 0; i < n; i++)
        if (left->elements[i].tag == type) SetError(&left->elements[i], right->error);
    } else {
      FreeValue(left);
      *left = *right;
    }
    return;
  }
  if (lk == OperandArray && rk == OperandArray) {
    CoerceElements(left, type, ctx);
    CoerceElements(right, type, ctx);
    BroadcastArrays(ptg, left, right, op);
    return;
  }
  if (lk == OperandArray || rk == OperandArray) {
    Value* array = lk == OperandArray ? left : right;
    const Value* scalar = lk == OperandArray ? right : left;
    CoerceElements(array, type, ctx);
    uint32_t n = ElementCount(array);
    for (uint32_t i = 0; i < n; i++) {
      Value* e = &array->elements[i];
      if (e->tag == ValueError) continue;
      Value out;
      if (array == left)
        op(ptg, e, scalar, &out);
      else
        op(ptg, scalar, e, &out);
      FreeValue(e);
      *e = out;
    }
    Value result = *array;
    FreeValue(array == left ? right : left);
    *left = result;
    return;
  }
  if (type == ValueText) {
    JoinInPlace(left, right);
    return;
  }
  Value out;
  op(ptg, left, right, &out);
  *left = out;
}

void ArithmeticOperator(uint8_t ptg, Value* left, Value* right, const EvalContext* ctx) {
  ApplyOperandTable(ptg, left, right, ValueNumber, NumberOp, ctx);
}

void ConcatOperator(Value* left, Value* right, const EvalContext* ctx) {
  ApplyOperandTable(ptgConcat, left, right, ValueText, JoinOp, ctx);
}

// Rank of a scalar type in comparisons: numbers, then texts, then booleans.
static int TypeRank(uint16_t tag) {
  switch (tag) {
    case ValueNumber:
      return 0;
    case ValueText:
      return 1;
    case ValueBoolean:
      return 2;
    default:
      return -1;
  }
}

static bool ThreeWay(uint8_t ptg, int order) {
  switch (ptg) {
    case ptgLT:
      return order < 0;
    case ptgLE:
      return order <= 0;
    case ptgEQ:
      return order == 0;
    case ptgGE:
      return order >= 0;
    case ptgGT:
      return order > 0;
    default:
      return order != 0;
  }
}

// Numbers compare with a tolerance relative to the smaller magnitude, so a value compared with
// exactly 0 gets none, and two close numbers are equal while neither is less than the other.
static bool CompareNumbers(uint8_t ptg, double a, double b) {
  double t = std::fmin(std::fabs(a), std::fabs(b)) * 1e-15;
  switch (ptg) {
    case ptgLT:
      return b - a > t;
    case ptgLE:
      return a - b <= t;
    case ptgEQ:
      return std::fabs(a - b) <= t;
    case ptgGE:
      return b - a <= t;
    case ptgGT:
      return a - b > t;
    default:
      return std::fabs(a - b) > t;
  }
}

Value CompareScalars(uint8_t ptg, const Value* a, const Value* b) {
  Value x = *a, y = *b;
  if (x.tag == ValueEmpty && y.tag == ValueEmpty) return BooleanValue(ThreeWay(ptg, 0));
  // A blank takes the type of the other side: 0, the empty text or false.
  for (Value* blank : {&x, &y}) {
    if (blank->tag != ValueEmpty) continue;
    const Value* other = blank == &x ? &y : &x;
    if (other->tag == ValueNumber)
      *blank = NumberValue(0);
    else if (other->tag == ValueText)
      *blank = TextValue(const_cast<char16_t*>(u""));
    else if (other->tag == ValueBoolean)
      *blank = BooleanValue(false);
  }
  int rx = TypeRank(x.tag), ry = TypeRank(y.tag);
  if (rx < 0 || ry < 0) return ErrorValue(ErrValue);
  if (rx != ry) return BooleanValue(ThreeWay(ptg, rx < ry ? -1 : 1));
  switch (x.tag) {
    case ValueNumber:
      return BooleanValue(CompareNumbers(ptg, x.number, y.number));
    case ValueText:
      return BooleanValue(ThreeWay(ptg, CompareTextNoCase(x.text, y.text)));
    default:
      return BooleanValue(
          ThreeWay(ptg, static_cast<int>(x.boolean != 0) - static_cast<int>(y.boolean != 0)));
  }
}

static void CompareOp(uint8_t ptg, const Value* a, const Value* b, Value* out) {
  *out = CompareScalars(ptg, a, b);
}

void ComparisonOperator(uint8_t ptg, Value* left, Value* right, const EvalContext* ctx) {
  for (Value* v : {left, right})
    if (IsReference(v)) CoerceValue(v, ValueArray, ctx);
  // An error on the left wins over everything, then one on the right; an array on the other side
  // becomes that error throughout.
  Value* error = left->tag == ValueError ? left : right->tag == ValueError ? right : nullptr;
  if (error) {
    Value* other = error == left ? right : left;
    uint32_t code = error->error;
    if (other->tag == ValueArray) {
      FillWithError(other, code);
      *left = *other;
    } else {
      FreeValue(other);
      *left = ErrorValue(code);
    }
    return;
  }
  if (left->tag == ValueArray && right->tag == ValueArray) {
    BroadcastArrays(ptg, left, right, CompareOp);
    return;
  }
  if (left->tag == ValueArray || right->tag == ValueArray) {
    Value* array = left->tag == ValueArray ? left : right;
    const Value* scalar = array == left ? right : left;
    uint32_t n = ElementCount(array);
    for (uint32_t i = 0; i < n; i++) {
      Value* e = &array->elements[i];
      if (e->tag == ValueError) continue;
      Value out = array == left ? CompareScalars(ptg, e, scalar) : CompareScalars(ptg, scalar, e);
      FreeValue(e);
      *e = out;
    }
    Value result = *array;
    FreeValue(array == left ? right : left);
    *left = result;
    return;
  }
  Value out = CompareScalars(ptg, left, right);
  FreeValue(left);
  FreeValue(right);
  *left = out;
}

// Unary minus turns a boolean to 0 or -1 by its own rule; percent counts it as 1 or 0.
static void UnaryElement(Value* v, bool negate, const EvalContext* ctx) {
  switch (v->tag) {
    case ValueEmpty:
      *v = NumberValue(0);
      return;
    case ValueBoolean:
      *v = NumberValue(v->boolean ? (negate ? -1.0 : 0.01) : 0.0);
      return;
    case ValueText:
      CoerceValue(v, ValueNumber, ctx);
      if (v->tag != ValueNumber) return;
      [[fallthrough]];
    case ValueNumber:
      v->number = negate ? -v->number : v->number * 0.01;
      return;
    case ValueError:
      return;
    default:
      SetError(v, ErrValue);
      return;
  }
}

static void UnaryOperator(Value* v, bool negate, const EvalContext* ctx) {
  if (IsReference(v)) CoerceValue(v, ValueArray, ctx);
  if (v->tag != ValueArray) {
    UnaryElement(v, negate, ctx);
    return;
  }
  uint32_t n = ElementCount(v);
  for (uint32_t i = 0; i < n; i++) UnaryElement(&v->elements[i], negate, ctx);
}

void NegateOperator(Value* v, const EvalContext* ctx) {
  UnaryOperator(v, true, ctx);
}

void PercentOperator(Value* v, const EvalContext* ctx) {
  UnaryOperator(v, false, ctx);
}

namespace {

// Where a reference list stands: its workbook and span of sheets. 0 when the link does not
// resolve to real sheets.
struct ListSite {
  uint32_t book;
  int32_t firstSheet;
  int32_t lastSheet;
};

}  // namespace

static int ResolveListSite(const Value* list, const EvalContext* ctx, ListSite* site) {
  ResolvedLink link{};
  link.fromBook = ctx->book;
  if (!ResolveLink(list->linkIndex, &link) || link.firstSheet < 0 ||
      link.lastSheet < link.firstSheet)
    return 0;
  *site = ListSite{link.book, link.firstSheet, link.lastSheet};
  return 1;
}

static bool OnContextSheet(const ListSite* site, const EvalContext* ctx) {
  return site->book == ctx->book && site->firstSheet == site->lastSheet &&
         site->firstSheet == static_cast<int32_t>(ctx->sheet);
}

static uint32_t AreaCount(const Value* list) {
  return list->refs ? list->refs->count : 0;
}

// The one area of an inline reference or of a one-area list.
static Range* SingleArea(Value* v) {
  return v->tag == ValueRef ? &v->ref : &v->refs->areas[0];
}

static void FinishWithError(Value* left, Value* right, uint32_t code) {
  FreeValue(left);
  FreeValue(right);
  *left = ErrorValue(code);
}

// Checks that both operands are references of one area each with links that resolve; fills the
// sites of the lists. Returns UINT32_MAX, or the error code.
static uint32_t CheckSingleAreas(const Value* left, const Value* right, const EvalContext* ctx,
                                 ListSite* leftSite, ListSite* rightSite) {
  if (!IsReference(left) || !IsReference(right)) return ErrRef;
  const Value* operands[2] = {left, right};
  ListSite* sites[2] = {leftSite, rightSite};
  for (int i = 0; i < 2; i++) {
    if (operands[i]->tag != ValueRefList) continue;
    if (AreaCount(operands[i]) != 1 || !ResolveListSite(operands[i], ctx, sites[i])) return ErrRef;
  }
  return UINT32_MAX;
}

void IntersectionOperator(Value* left, Value* right, const EvalContext* ctx) {
  // An operand that is already an error passes it on, the left first: "=ABS (1)" reads the
  // blank as an intersection with the undefined name ABS, and the user must see #NAME?.
  for (const Value* operand : {left, right}) {
    if (operand->tag == ValueError) {
      FinishWithError(left, right, operand->error);
      return;
    }
  }
  ListSite ls{}, rs{};
  uint32_t error = CheckSingleAreas(left, right, ctx, &ls, &rs);
  if (error != UINT32_MAX) {
    FinishWithError(left, right, error);
    return;
  }
  Range overlap;
  if (left->tag == ValueRef && right->tag == ValueRef) {
    if (!IntersectRanges(&left->ref, &right->ref, &overlap)) {
      *left = ErrorValue(ErrNull);
      return;
    }
    left->ref = overlap;
    return;
  }
  if (left->tag == ValueRefList && right->tag == ValueRefList) {
    if (ls.book != rs.book) {
      FinishWithError(left, right, ErrRef);
      return;
    }
    int32_t first = ls.firstSheet > rs.firstSheet ? ls.firstSheet : rs.firstSheet;
    int32_t last = ls.lastSheet < rs.lastSheet ? ls.lastSheet : rs.lastSheet;
    if (first > last || !IntersectRanges(SingleArea(left), SingleArea(right), &overlap)) {
      FinishWithError(left, right, ErrNull);
      return;
    }
    LinkRequest request{ctx->book, ls.book, first, last};
    int32_t link;
    if (!FindOrAddLink(&request, &link)) {
      FinishWithError(left, right, ErrNA);
      return;
    }
    left->refs->areas[0] = overlap;
    left->linkIndex = link;
    FreeValue(right);
    return;
  }
  // A list with an inline reference: the list has to stand on the context sheet.
  Value* list = left->tag == ValueRefList ? left : right;
  const ListSite* site = list == left ? &ls : &rs;
  if (!OnContextSheet(site, ctx)) {
    FinishWithError(left, right, ErrRef);
    return;
  }
  if (!IntersectRanges(SingleArea(left), SingleArea(right), &overlap)) {
    FinishWithError(left, right, ErrNull);
    return;
  }
  list->refs->areas[0] = overlap;
  Value result = *list;
  FreeValue(list == left ? right : left);
  *left = result;
}

// A fresh block holding the areas of `first` followed by those of `second`; null when memory
// runs out or the count would not fit.
static RefBlock* JoinAreas(const Range* first, uint32_t firstCount, const Range* second,
                           uint32_t secondCount) {
  uint32_t count = firstCount + secondCount;
  if (count > 0xFFFF) return nullptr;
  auto* block = static_cast<RefBlock*>(Allocate(sizeof(RefBlock) + count * sizeof(Range)));
  if (!block) return nullptr;
  block->count = static_cast<uint16_t>(count);
  if (firstCount) std::memcpy(block->areas, first, firstCount * sizeof(Range));
  if (secondCount) std::memcpy(block->areas + firstCount, second, secondCount * sizeof(Range));
  return block;
}

void UnionOperator(Value* left, Value* right, const EvalContext* ctx) {
  bool leftIsRef = IsReference(left);
  if (!leftIsRef || !IsReference(right)) {
    // A left operand that is not a reference gives #VALUE!, an error's own code included.
    FinishWithError(left, right, leftIsRef ? ErrRef : ErrValue);
    return;
  }
  if (left->tag == ValueRef && right->tag == ValueRef) {
    int32_t link;
    RefBlock* block = nullptr;
    if (ContextSheetLink(ctx, &link)) block = JoinAreas(&left->ref, 1, &right->ref, 1);
    if (!block) {
      *left = ErrorValue(ErrNA);
      return;
    }
    *left = Value{};
    left->tag = ValueRefList;
    left->refs = block;
    left->linkIndex = link;
    return;
  }
  ListSite ls{}, rs{};
  if ((left->tag == ValueRefList && !ResolveListSite(left, ctx, &ls)) ||
      (right->tag == ValueRefList && !ResolveListSite(right, ctx, &rs))) {
    FinishWithError(left, right, ErrRef);
    return;
  }
  // The list comes first in the result whichever side it stood on.
  Value* list = left->tag == ValueRefList ? left : right;
  Value* other = list == left ? right : left;
  if (other->tag == ValueRef) {
    if (!OnContextSheet(list == left ? &ls : &rs, ctx)) {
      FinishWithError(left, right, ErrValue);
      return;
    }
  } else if (left->linkIndex != right->linkIndex) {
    FinishWithError(left, right, ErrValue);
    return;
  }
  const Range* extra = other->tag == ValueRef ? &other->ref
                       : other->refs          ? other->refs->areas
                                              : nullptr;
  uint32_t extraCount = other->tag == ValueRef ? 1 : AreaCount(other);
  RefBlock* block =
      JoinAreas(list->refs ? list->refs->areas : nullptr, AreaCount(list), extra, extraCount);
  if (!block) {
    FinishWithError(left, right, ErrNA);
    return;
  }
  int32_t link = list->linkIndex;
  FreeValue(left);
  FreeValue(right);
  *left = Value{};
  left->tag = ValueRefList;
  left->refs = block;
  left->linkIndex = link;
}

void RangeOperator(Value* left, Value* right, const EvalContext* ctx) {
  ListSite ls{}, rs{};
  uint32_t error = CheckSingleAreas(left, right, ctx, &ls, &rs);
  if (error == UINT32_MAX) {
    bool leftList = left->tag == ValueRefList, rightList = right->tag == ValueRefList;
    if (leftList && rightList) {
      if (ls.book != rs.book || ls.firstSheet != rs.firstSheet || ls.lastSheet != rs.lastSheet)
        error = ErrRef;
    } else if (leftList || rightList) {
      if (!OnContextSheet(leftList ? &ls : &rs, ctx)) error = ErrRef;
    }
  }
  if (error != UINT32_MAX) {
    FinishWithError(left, right, error);
    return;
  }
  Range* a = SingleArea(left);
  const Range* b = SingleArea(right);
  if (b->firstRow < a->firstRow) a->firstRow = b->firstRow;
  if (b->firstCol < a->firstCol) a->firstCol = b->firstCol;
  if (b->lastRow > a->lastRow) a->lastRow = b->lastRow;
  if (b->lastCol > a->lastCol) a->lastCol = b->lastCol;
  FreeValue(right);
}
