// The tagged value that the whole program passes around: cached cell results, evaluator stack
// slots, function arguments and results, array elements. Sixteen bytes, copied by assignment;
// whoever holds a value of a heap-backed type (text, reference list, array) owns its block.
// CoerceValue is the conversion through which nearly every function reads its arguments.
#pragma once
#include <cstdint>

#include "model/range.h"

enum ValueType : uint16_t {
  ValueEmpty = 0,
  ValueNumber = 1,
  ValueText = 2,
  ValueBoolean = 4,
  ValueRefList = 8,
  ValueError = 16,
  ValueControl = 32,
  ValueArray = 64,
  ValueRef = 1024,
};

// The program's own error numbering; an index into the text table, not the file's byte.
enum ErrorCode : uint32_t {
  ErrNull = 0,
  ErrDiv0 = 1,
  ErrValue = 2,
  ErrRef = 3,
  ErrName = 4,
  ErrNum = 5,
  ErrNA = 6,
};
constexpr uint32_t ErrorCodeCount = 7;

// A heap block of `count` areas, all on the sheets named by the owning value's link.
struct RefBlock {
  uint16_t count;
  Range areas[];
};

struct Value {
  union {
    double number;
    char16_t* text;
    uint32_t boolean;
    uint32_t error;
    RefBlock* refs;
    Value* elements;
    Range ref;
    struct {
      uint32_t argument;
      uint8_t unused[3];
      uint8_t code;
    } control;
  };
  uint16_t tag;
  uint16_t spare;
  union {
    int32_t linkIndex;  // ValueRefList: entry of the workbook's sheet-link table
    struct {
      uint16_t rows;  // ValueArray
      uint16_t columns;
    };
  };
};
static_assert(sizeof(Value) == 16, "a Value is sixteen bytes");

struct EvalContext {
  uint32_t book;
  uint32_t sheet;
  int32_t row;
  int32_t col;
  int32_t arrayMode;
};

const char16_t* ErrorText(uint32_t code);  // "#N/A" for codes outside the table
uint8_t ErrorToBiff(uint32_t code);
uint32_t ErrorFromBiff(uint8_t byte);  // unknown bytes, 0x2A included, give #N/A
const char16_t* BooleanText(bool value);

inline Value NumberValue(double d) {
  Value v{};
  v.tag = ValueNumber;
  v.number = d;
  return v;
}
inline Value BooleanValue(bool b) {
  Value v{};
  v.tag = ValueBoolean;
  v.boolean = b ? 1 : 0;
  return v;
}
inline Value ErrorValue(uint32_t code) {
  Value v{};
  v.tag = ValueError;
  v.error = code;
  return v;
}
// Takes ownership of `text`.
inline Value TextValue(char16_t* text) {
  Value v{};
  v.tag = ValueText;
  v.text = text;
  return v;
}
inline Value RefValue(const Range& r) {
  Value v{};
  v.tag = ValueRef;
  v.ref = r;
  return v;
}
// Releases what `v` owns and makes it the error.
void SetError(Value* v, uint32_t code);

// Releases the block a text, reference list or array owns (and the texts of an array's
// elements). The tag is left as it is: the caller overwrites the record.
void FreeValue(Value* v);
// Deep copy; returns 0 when memory runs out (target is then empty).
int CopyValue(Value* target, const Value* source);
// Heap copy of a string; a null source gives a null copy and success. Returns 0 on lost memory.
int DuplicateText(char16_t** target, const char16_t* source);
// An array value of rows x columns empty elements; returns 0 on lost memory.
int MakeArray(Value* v, uint32_t rows, uint32_t columns);
// An owned reference-list block of one area on the given link; returns 0 on lost memory.
int MakeRefList(Value* v, const Range* area, int32_t linkIndex);

// Where a reference value points: its workbook, the sheets of its span and its areas. A span
// written from its last sheet to its first covers the same sheets, so firstSheet <= lastSheet.
struct ReferenceTarget {
  uint32_t book;
  uint32_t firstSheet;
  uint32_t lastSheet;
  const Range* areas;  // borrowed from the value
  uint32_t areaCount;
};
constexpr uint32_t ReferenceFound = UINT32_MAX;
// Finds where `v` points as seen from ctx: a ValueRef stands on the context sheet, a reference
// list on its link. Returns ReferenceFound; ErrValue for anything but a reference with at least
// one area; ErrRef when the link leads nowhere or a sheet of the span does not exist.
uint32_t LocateReference(const Value* v, const EvalContext* ctx, ReferenceTarget* out);
// Visits one area of one sheet; returns 0 to stop the walk.
using SheetAreaVisitor = int (*)(uint32_t book, uint32_t sheet, const Range* area, void* state);
// Visits every area on every sheet of the span, sheet by sheet; sheets without cells (charts,
// modules) inside the span are passed over. Returns 0 when a visit stopped the walk.
int WalkReferenceTarget(const ReferenceTarget* target, SheetAreaVisitor visit, void* state);

// Converts in place, releasing what it replaces; failure leaves an error value.
void CoerceValue(Value* v, uint16_t target, const EvalContext* ctx);
void ImplicitIntersect(Value* v, const EvalContext* ctx);
void ArrayElementForCell(Value* v, const EvalContext* ctx);
// What a finished formula's result goes through before it is stored in its cell.
void SettleCellResult(Value* v, const EvalContext* ctx);
// Brings a stored cell up to date before its value is read: a dirty formula is calculated, and
// a cell on the calculation stack is read as it stands, which records the circular reference.
struct Cell;
void PrepareCellForRead(uint32_t book, uint32_t sheet, Cell* cell);
// Deep copy of a cell's value, calculating the cell first if it is dirty; a cell that is not
// stored gives an empty value. Returns 0 when memory runs out (the value is then #N/A).
int ReadCellValue(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col, Value* out);

// The conversions of text used by CoerceValue.
int TextToNumber(const char16_t* text, double* out);
// Heap text of the number in `digits` significant digits with the locale's decimal separator.
char16_t* NumberToText(double number, int digits);
// Reads a list of references from text against ctx; the value becomes a reference list or
// #VALUE!. Takes ownership of `text`.
void TextToRefList(Value* v, char16_t* text, const EvalContext* ctx);
// The same with R1C1 text when `a1Style` is zero (INDIRECT's second argument); relative parts
// count from the context cell.
void TextToRefListInStyle(Value* v, char16_t* text, const EvalContext* ctx, int a1Style);
