// The formula parser: formula text to BIFF8 tokens, walking index ranges of the text itself. The
// scan only checks where a well-formed expression ends. The parse emits tokens for text that
// passed the scan and uses the scan again as look-ahead: the right operand of each operator is
// the text up to the next operator that binds no tighter, parsed recursively, so no token list
// or tree is ever built. This file holds the scan, operators and precedence, operands (strings,
// numbers, parentheses, references, names, booleans, errors) and the entry points; function
// calls and constant arrays are in parser_calls.cpp.
#include "formula/parser.h"

#include <cmath>
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/text.h"
#include "format/input.h"
#include "format/locale.h"
#include "formula/parser_internal.h"
#include "formula/reference_text.h"
#include "model/names.h"
#include "model/value.h"
#include "model/workbook.h"

const char CalleeArguments[] = "rrrrrrrrrrrrrrrrrrrrrrrrrrrrr";
static_assert(sizeof CalleeArguments == 30, "a callee takes up to 29 arguments");

int32_t SkipBlanks(const char16_t* text, int32_t p, int32_t end) {
  while (p < end && IsBlank(text[p])) p++;
  return p;
}

int32_t MatchErrorLiteral(const char16_t* text, int32_t p, int32_t end, uint32_t* code) {
  for (uint32_t c = 0; c < ErrorCodeCount; c++) {
    const char16_t* literal = ErrorText(c);
    int32_t n = 0;
    while (literal[n] && p + n < end && UpperCase(text[p + n]) == literal[n]) n++;
    if (!literal[n]) {
      *code = c;
      return n;
    }
  }
  return 0;
}

// What may begin an operand once strings, parentheses, arrays, signs and numbers have been
// tried. The comma is refused whatever the list separator is.
static bool IsOperandStart(char16_t c) {
  if (c == ListSeparator[0] || IsBlank(c)) return false;
  for (const char16_t* s = u"&*^):,=><-(%+/"; *s; s++)
    if (c == *s) return false;
  return true;
}

// The binary operators, the blank of intersection aside.
static bool IsInfixChar(char16_t c) {
  if (c == ListSeparator[0]) return true;
  for (const char16_t* s = u"&*^:=-+/><"; *s; s++)
    if (c == *s) return true;
  return false;
}

static bool IsSign(char16_t c) {
  return c == u'+' || c == u'-';
}

// ">=", "<=" and "<>" are one operator; so is any other single character.
static int32_t OperatorLength(const char16_t* text, int32_t p, int32_t end) {
  if (p + 1 < end) {
    char16_t a = text[p], b = text[p + 1];
    if ((a == u'>' && b == u'=') || (a == u'<' && (b == u'=' || b == u'>'))) return 2;
  }
  return 1;
}

// Unary signs bind tighter than "^", and every operator associates to the left.
static int OperatorPrecedence(char16_t c, int unary) {
  if (c == u':') return 9;
  if (c == ListSeparator[0]) return 8;
  if (IsBlank(c)) return 7;
  if (IsSign(c)) return unary ? 6 : 3;
  if (c == u'^') return 5;
  if (c == u'*' || c == u'/' || c == u'%') return 4;
  if (c == u'&') return 2;
  return 1;
}

// Where the operator behind an operand stands when blanks follow it: on the next operator when
// the blanks lead to one (or to ")"), at the end when nothing else remains, and otherwise on the
// first blank, which is then the intersection operator.
static int32_t OperatorAfterBlanks(const char16_t* text, int32_t p, int32_t end) {
  if (p >= end || !IsBlank(text[p])) return p;
  int32_t q = SkipBlanks(text, p, end);
  if (q >= end) return end;
  return IsOperatorChar(text[q]) || text[q] == u')' ? q : p;
}

// Index behind the string that opens at text[p]; an unterminated string runs to the end.
static int32_t ScanString(const char16_t* text, int32_t p, int32_t end) {
  for (int32_t i = p + 1; i < end; i++) {
    if (text[i] != u'"') continue;
    if (i + 1 < end && text[i + 1] == u'"') {
      i++;
      continue;
    }
    return i + 1;
  }
  return end;
}

// The ")" that matches the "(" at text[p]. Parentheses are counted alone, without regard to
// strings, in both passes alike.
static int32_t MatchParen(const char16_t* text, int32_t p, int32_t end) {
  int32_t depth = 0;
  for (int32_t i = p; i < end; i++) {
    if (text[i] == u'(') {
      depth++;
    } else if (text[i] == u')' && --depth == 0) {
      return i;
    }
  }
  return -1;
}

// Digits directly followed by ":" are a row range such as 1:3, not a number.
static bool IsRowRange(const char16_t* text, int32_t p, int32_t end) {
  while (p < end && IsDigit(text[p])) p++;
  return p < end && text[p] == u':';
}

static bool StartsNumber(const char16_t* text, int32_t p, int32_t end) {
  char16_t c = text[p];
  return (IsDigit(c) && !IsRowRange(text, p, end)) || c == DecimalSeparator[0];
}

// Index behind the number at text[p], or -1. Blanks may stand around the "E" of the exponent.
// The value must be one that ParseNumberText accepts: finite, and no underflow of significant
// digits to zero.
static int32_t ScanNumber(const char16_t* text, int32_t p, int32_t end) {
  int32_t i = p;
  while (i < end && IsDigit(text[i])) i++;
  if (i < end && text[i] == DecimalSeparator[0]) {
    int32_t fraction = ++i;
    while (i < end && IsDigit(text[i])) i++;
    if (i == fraction) return -1;
  }
  int32_t x = SkipBlanks(text, i, end);
  if (x < end && (text[x] == u'E' || text[x] == u'e')) {
    x = SkipBlanks(text, x + 1, end);
    if (x < end && IsSign(text[x])) x = SkipBlanks(text, x + 1, end);
    int32_t digits = x;
    while (x < end && IsDigit(text[x])) x++;
    if (x == digits) return -1;
    i = x;
  }
  double value;
  if (!ParseNumberText(text, static_cast<uint32_t>(p), static_cast<uint32_t>(i), &value,
                       GroupingNone))
    return -1;
  return i;
}

static bool IsWord(const char16_t* text, int32_t length, const char16_t* word) {
  return static_cast<uint32_t>(length) == TextLength(word) &&
         CompareTextNoCaseN(text, word, static_cast<uint32_t>(length)) == 0;
}

bool MatchBooleanLiteral(const char16_t* text, int32_t length, bool* value) {
  if (IsWord(text, length, TrueText)) {
    *value = true;
    return true;
  }
  if (IsWord(text, length, FalseText)) {
    *value = false;
    return true;
  }
  return false;
}

// ----------------------------------------------------------------------------------------------
// The scan

namespace {

struct Identifier {
  int32_t stop;  // index behind it, -1 when the text holds none
  int32_t qualified;
  int32_t nameStart;
  int32_t nameLength;
};

}  // namespace

// Out of line so that the qualifier buffers of a NameToken (about a kilobyte) never sit in the
// frames of the recursive scan.
[[gnu::noinline]] static void ReadIdentifier(const ParseContext* ctx, const char16_t* text,
                                             int32_t p, int32_t end, Identifier* out) {
  NameToken token{};
  out->stop = ScanNameToken(text, p, end, ctx->book, &token);
  out->qualified = token.qualified;
  out->nameStart = token.nameStart;
  out->nameLength = token.nameLength;
}

// Macro control and macro command functions belong on macro sheets.
static bool IsMacroFunction(const FunctionEntry* entry, int isAddIn) {
  uint32_t category = isAddIn ? entry->info & 0xFF : FunctionCategory(entry);
  return static_cast<int8_t>(category) >= static_cast<int8_t>(CategoryMacroControl);
}

// One operand at text[p], which is no sign. Returns the index behind it, p when nothing there can
// begin an operand, or -1 when what is there is malformed.
static int32_t ScanOperand(const ParseContext* ctx, ScanState* state, const char16_t* text,
                           int32_t p, int32_t end, int32_t* formatHint) {
  char16_t c = text[p];
  if (c == u'"') return ScanString(text, p, end);
  if (c == u'(') {
    int32_t close = MatchParen(text, p, end);
    if (close < 0) return -1;
    if (state->lookAhead) return close + 1;
    return ScanExpressionAt(ctx, state, text, p + 1, close, 1, formatHint) == close ? close + 1
                                                                                    : -1;
  }
  if (c == u'{') return ScanArray(ctx, state, text, p, end);
  if (StartsNumber(text, p, end)) return ScanNumber(text, p, end);
  if (!IsOperandStart(c)) return p;

  Range range;
  uint8_t flags;
  int32_t q = ParseReferenceText(text, p, end, ctx->a1Style, ctx->baseRow, ctx->baseColumn,
                                 ctx->book, nullptr, &range, &flags);
  if (q >= 0) {
    if (q >= end || text[q] != u'(') return q;
    if (formatHint && *formatHint == -1) *formatHint = 0;
    return ScanCallArguments(ctx, state, text, q + 1, end, CalleeArguments, formatHint);
  }

  Identifier id;
  ReadIdentifier(ctx, text, p, end, &id);
  if (id.stop >= 0) {
    if (id.stop >= end || text[id.stop] != u'(') return id.stop;
    const FunctionEntry* entry = nullptr;
    int isAddIn = 0;
    if (!id.qualified)
      entry =
          FindFunctionByName(text + id.nameStart, static_cast<uint32_t>(id.nameLength), &isAddIn);
    const char* args = CalleeArguments;
    int32_t hint = 0;
    if (entry) {
      if (IsMacroFunction(entry, isAddIn) &&
          GetSheet(ctx->book, ctx->sheet)->kind == SheetWorksheet)
        return -1;
      args = entry->args;
      if (!isAddIn) hint = FunctionFormatHint(entry);
    }
    // The outer function is met first; SOMME's hint of -1 leaves the choice to the next one.
    if (formatHint && *formatHint == -1) *formatHint = hint;
    return ScanCallArguments(ctx, state, text, id.stop + 1, end, args, formatHint);
  }

  uint32_t code;
  int32_t n = MatchErrorLiteral(text, p, end, &code);
  return n ? SkipBlanks(text, p + n, end) : p;
}

static int32_t ScanBody(const ParseContext* ctx, ScanState* state, const char16_t* text, int32_t p,
                        int32_t end, int unionAllowed, int32_t* formatHint) {
  if (p == 0 && end > 1 && text[0] == u'=') p = SkipBlanks(text, 1, end);
  // Behind a sign or an operator an operand must follow. Where none has been asked for, a stop
  // is the caller's to judge: an empty argument, or the end of an array element.
  bool operandDue = false;
  for (;;) {
    if (p >= end) return -1;
    while (p < end && IsSign(text[p])) {
      p++;
      unionAllowed = 0;
      operandDue = true;
    }
    if (p >= end) return -1;
    int32_t q = ScanOperand(ctx, state, text, p, end, formatHint);
    if (q < 0) return -1;
    if (q == p) return operandDue ? -1 : p;

    for (p = OperatorAfterBlanks(text, q, end);; p = OperatorAfterBlanks(text, p + 1, end)) {
      if (p >= end) return end;
      if ((!unionAllowed && text[p] == ListSeparator[0]) || text[p] == u')') return p;
      if (text[p] != u'%') break;
    }
    if (!IsInfixChar(text[p]) && !IsBlank(text[p])) return p;
    p = SkipBlanks(text, p + OperatorLength(text, p, end), end);
    operandDue = true;
  }
}

int32_t ScanExpressionAt(const ParseContext* ctx, ScanState* state, const char16_t* text,
                         int32_t start, int32_t end, int unionAllowed, int32_t* formatHint) {
  if (state->depth >= MaxNesting) {
    state->tooDeep = 1;
    return -1;
  }
  state->depth++;
  int32_t stop = ScanBody(ctx, state, text, start, end, unionAllowed, formatHint);
  state->depth--;
  return stop;
}

int32_t ScanExpression(const ParseContext* ctx, const char16_t* text, int32_t start, int32_t end,
                       int unionAllowed, int32_t* formatHint) {
  ScanState state{};
  return ScanExpressionAt(ctx, &state, text, start, end, unionAllowed, formatHint);
}

bool IsFormulaText(const ParseContext* ctx, const char16_t* text) {
  int32_t length = static_cast<int32_t>(TextLength(text));
  return ScanExpression(ctx, text, 0, length, 0, nullptr) == length;
}

// Index behind the operand that starts at text[p] (after blanks and signs) and behind any blanks
// that lead to an operator: where the parse finds the operator that follows an operand.
static int32_t SkipOperand(const ParseContext* ctx, const char16_t* text, int32_t p, int32_t end) {
  p = SkipBlanks(text, p, end);
  while (p < end && IsSign(text[p])) p++;
  if (p >= end) return end;
  ScanState state{.depth = 0, .tooDeep = 0, .lookAhead = 1};
  int32_t q = ScanOperand(ctx, &state, text, p, end, nullptr);
  if (q <= p) return -1;
  return OperatorAfterBlanks(text, q, end);
}

// ----------------------------------------------------------------------------------------------
// Emitting

bool Fail(Emitter* e, CompileStatus status) {
  if (e->status == CompileOk) e->status = status;
  return false;
}

bool EmitBytes(Emitter* e, const uint8_t* bytes, uint32_t count) {
  if (count > MaxTokenBytes - e->length) return Fail(e, CompileTooLong);
  std::memcpy(e->tokens + e->length, bytes, count);
  e->length += count;
  return true;
}

bool EmitByte(Emitter* e, uint8_t b) {
  return EmitBytes(e, &b, 1);
}

bool EmitWord(Emitter* e, uint16_t w) {
  uint8_t b[2];
  WriteU16(b, w);
  return EmitBytes(e, b, 2);
}

bool EmitExtra(Emitter* e, const uint8_t* bytes, uint32_t count) {
  if (count > MaxExtraBytes - e->extraLength) return Fail(e, CompileTooLong);
  std::memcpy(e->extra + e->extraLength, bytes, count);
  e->extraLength += count;
  return true;
}

static uint8_t WithClass(uint8_t ptg, uint8_t classBits) {
  return static_cast<uint8_t>((ptg & 0x1F) | classBits);
}

// The class the operand of a value operator takes from the class expected of the whole.
static char ValueOperandClass(char cls, int arrayFormula) {
  if (cls == ClassCodeRefOrArray) return ClassCodeArray;
  if (cls == ClassCodeRefOrValue) return ClassCodeValue;
  if (cls == ClassCodeReference) return arrayFormula ? ClassCodeArray : ClassCodeValue;
  return cls;
}

static uint8_t OperandClassBits(char cls, int arrayFormula) {
  if (cls == ClassCodeArray) return ClassArray;
  if (cls == ClassCodeValue) return ClassValue;
  if (cls == ClassCodeCell) return arrayFormula ? ClassArray : ClassValue;
  return ClassReference;
}

static bool IsReferenceOperatorChar(char16_t c) {
  return c == u':' || c == ListSeparator[0] || c == u'(';
}

// The class of a reference or a name refined by what follows it. Directly before ":", the union,
// a call, or a blank that is the intersection, it becomes a reference. Where a reference was
// welcome and a value operator follows, it becomes a value (an array in an array formula, or
// where an array was welcome too). At the end of the range the class stands as it is.
static char RefineClass(char cls, const char16_t* text, int32_t p, int32_t end, int arrayFormula) {
  if (p >= end) return cls;
  int32_t q = SkipBlanks(text, p, end);
  bool intersection = q > p && q < end && !IsOperatorChar(text[q]);
  bool welcome =
      cls == ClassCodeReference || cls == ClassCodeRefOrArray || cls == ClassCodeRefOrValue;
  if (!welcome)
    return IsReferenceOperatorChar(text[p]) || intersection ? static_cast<char>(ClassCodeReference)
                                                            : cls;
  bool valueOperator = q < end && !intersection && !IsReferenceOperatorChar(text[q]);
  return valueOperator ? ValueOperandClass(cls, arrayFormula) : cls;
}

// ----------------------------------------------------------------------------------------------
// Operands

static int32_t ParseString(Emitter* e, int32_t p, int32_t end) {
  const char16_t* text = e->text;
  int32_t close = -1;
  for (int32_t i = p + 1; i < end && close < 0; i++) {
    if (text[i] != u'"') continue;
    if (i + 1 < end && text[i + 1] == u'"') {
      i++;
    } else {
      close = i;
    }
  }
  // An unterminated string loses its last character, as it always has.
  int32_t last = close >= 0 ? close : end - 1;
  uint32_t count = 0;
  bool wide = false;
  for (int32_t i = p + 1; i < last; i++, count++) {
    wide = wide || text[i] > 255;
    if (text[i] == u'"' && i + 1 < last && text[i + 1] == u'"') i++;
  }
  if (count > 255) return Refuse(e, CompileTooLong);
  uint8_t head[3] = {ptgStr, static_cast<uint8_t>(count), static_cast<uint8_t>(wide)};
  if (!EmitBytes(e, head, 3)) return -1;
  for (int32_t i = p + 1; i < last; i++) {
    bool ok = wide ? EmitWord(e, text[i]) : EmitByte(e, static_cast<uint8_t>(text[i]));
    if (!ok) return -1;
    if (text[i] == u'"' && i + 1 < last && text[i + 1] == u'"') i++;
  }
  return close >= 0 ? close + 1 : end;
}

// A number at text[p], which may be a sign that belongs to the literal.
static int32_t ParseNumber(Emitter* e, int32_t p, int32_t end) {
  int32_t q = ScanNumber(e->text, IsSign(e->text[p]) ? p + 1 : p, end);
  double value;
  if (q < 0 || !ParseNumberText(e->text, static_cast<uint32_t>(p), static_cast<uint32_t>(q), &value,
                                GroupingNone))
    return Refuse(e, CompileSyntaxError);
  if (value >= 0 && value <= 65535 && value == std::floor(value)) {
    uint8_t b[3] = {ptgInt};
    WriteU16(b + 1, static_cast<uint16_t>(value));
    return EmitBytes(e, b, 3) ? q : -1;
  }
  uint8_t b[9] = {ptgNum};
  WriteDouble(b + 1, value);
  return EmitBytes(e, b, 9) ? q : -1;
}

static uint8_t RelativeBits(uint8_t flags, uint8_t rowBit, uint8_t colBit) {
  return static_cast<uint8_t>(((flags & rowBit) ? RefRowRelative : 0) |
                              ((flags & colBit) ? RefColRelative : 0));
}

// ptgRef or ptgArea, their relative-offset forms in relativeMode, or the 3-D forms behind a sheet
// link.
static bool EmitReference(Emitter* e, Range r, uint8_t flags, int32_t link, uint8_t classBits) {
  uint8_t firstBits = RelativeBits(flags, RefFirstRowRelative, RefFirstColRelative);
  uint8_t lastBits = RelativeBits(flags, RefLastRowRelative, RefLastColRelative);
  bool single = r.firstRow == r.lastRow && r.firstCol == r.lastCol && firstBits == lastBits;
  uint8_t ptg = single ? ptgRef : ptgArea;
  if (link >= 0) {
    ptg = single ? ptgRef3d : ptgArea3d;
  } else if (e->ctx->relativeMode && flags) {
    // Relative parts become offsets from the active cell, wrapping in their widths.
    ptg = single ? ptgRefN : ptgAreaN;
    const Sheet* sheet = GetSheet(e->ctx->book, e->ctx->sheet);
    if (flags & RefFirstRowRelative)
      r.firstRow = static_cast<uint16_t>(r.firstRow - sheet->activeRow);
    if (flags & RefLastRowRelative) r.lastRow = static_cast<uint16_t>(r.lastRow - sheet->activeRow);
    if (flags & RefFirstColRelative)
      r.firstCol = static_cast<uint8_t>(r.firstCol - sheet->activeCol);
    if (flags & RefLastColRelative) r.lastCol = static_cast<uint8_t>(r.lastCol - sheet->activeCol);
  }
  uint8_t b[11];
  uint32_t n = 0;
  b[n++] = WithClass(ptg, classBits);
  if (link >= 0) {
    WriteU16(b + n, static_cast<uint16_t>(link));
    n += 2;
  }
  WriteU16(b + n, r.firstRow);
  n += 2;
  if (!single) {
    WriteU16(b + n, r.lastRow);
    n += 2;
  }
  b[n++] = r.firstCol;
  b[n++] = firstBits;
  if (!single) {
    b[n++] = r.lastCol;
    b[n++] = lastBits;
  }
  return EmitBytes(e, b, n);
}

static int32_t ParseReferenceOperand(Emitter* e, int32_t p, int32_t end, char cls) {
  const ParseContext* ctx = e->ctx;
  Range range{};
  uint8_t flags = 0;
  int32_t link = -1;
  int32_t q = ParseReferenceText(e->text, p, end, ctx->a1Style, ctx->baseRow, ctx->baseColumn,
                                 ctx->book, &link, &range, &flags);
  // The scan has read this reference already, so only a link table that could not grow fails.
  if (q < 0) return Refuse(e, CompileNoMemory);
  char refined = RefineClass(cls, e->text, q, end, ctx->arrayFormula);
  if (!EmitReference(e, range, flags, link, OperandClassBits(refined, ctx->arrayFormula)))
    return -1;
  if (q < end && e->text[q] == u'(') return ParseCall(e, nullptr, 0, q + 1, end, cls);
  return q;
}

static bool EmitNameX(Emitter* e, uint8_t classBits, int32_t link, uint32_t index) {
  uint8_t b[7] = {WithClass(ptgNameX, classBits)};
  WriteU16(b + 1, static_cast<uint16_t>(link));
  WriteU16(b + 3, static_cast<uint16_t>(index + 1));
  return EmitBytes(e, b, 7);
}

// The sheet link (externalBook, -2, -2) through which name tokens reach a book-level name.
static bool BookLink(Emitter* e, uint32_t externalBook, int32_t* link) {
  return FindOrAddSheetLink(e->ctx->book, static_cast<int16_t>(externalBook), NoSheet, NoSheet,
                            link) ||
         Fail(e, CompileNoMemory);
}

// The defined name of this scope and text, ignoring case; one is created undefined when there is
// none, since naming a name is how it comes to exist.
static bool FindOrAddDefinedName(uint32_t book, uint16_t scope, const char16_t* name,
                                 uint32_t* index) {
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->nameCount; i++) {
    if (wb->names[i].localSheet == scope && wb->names[i].name &&
        EqualTextNoCase(wb->names[i].name, name)) {
      *index = i;
      return true;
    }
  }
  DefinedName entry{};
  entry.localSheet = scope;
  entry.name = TextDuplicate(name);
  if (entry.name && AddName(book, &entry, index)) return true;
  Release(entry.name);
  return false;
}

// Character 1, the path with character 3 for each backslash and one behind it, the file name.
static void EncodeBookPath(const SheetQualifier* q, char16_t* out) {
  uint32_t n = 0;
  out[n++] = 1;
  for (const char16_t* s = q->path; *s; s++) out[n++] = *s == u'\\' ? 3 : *s;
  if (q->path[0]) out[n++] = 3;
  for (const char16_t* s = q->book; *s; s++) out[n++] = *s;
  out[n] = 0;
}

static bool EmitName(Emitter* e, const NameToken* token, uint8_t classBits) {
  uint32_t book = e->ctx->book;
  const SheetQualifier* q = &token->qualifier;
  char16_t name[MaxIdentifierLength + 1];
  uint32_t length = static_cast<uint32_t>(token->nameLength);
  if (length > MaxIdentifierLength) length = MaxIdentifierLength;
  std::memcpy(name, e->text + token->nameStart, length * sizeof(char16_t));
  name[length] = 0;

  uint32_t external = 0, index = 0;
  int32_t link = -1;
  if (q->bareBang) {
    // "!name": a name of whichever workbook is current when the formula runs.
    if (!FindOrAddExternalBook(book, ExternalUnused, nullptr, &external) ||
        !BookLink(e, external, &link) || !FindOrAddExternalName(book, external, name, 0, &index))
      return Fail(e, CompileNoMemory);
    return EmitNameX(e, classBits, link, index);
  }
  if (q->book[0] || q->path[0]) {
    char16_t encoded[2 * QualifierPathCapacity + 2];
    EncodeBookPath(q, encoded);
    int16_t sheet = -1;
    if (!FindOrAddExternalBook(book, ExternalOtherFile, encoded, &external) ||
        (q->sheetFirst[0] && !FindOrAddExternalSheet(book, external, q->sheetFirst, &sheet)) ||
        !FindOrAddExternalName(book, external, name, static_cast<uint16_t>(sheet + 1), &index) ||
        !BookLink(e, external, &link))
      return Fail(e, CompileNoMemory);
    return EmitNameX(e, classBits, link, index);
  }
  uint16_t scope = 0;
  if (q->sheetFirst[0]) {
    int32_t sheet = FindSheetByName(book, q->sheetFirst);
    scope = static_cast<uint16_t>(sheet >= 0 ? sheet + 1 : GetWorkbook(book)->sheetCount + 1);
  }
  if (!FindOrAddDefinedName(book, scope, name, &index)) return Fail(e, CompileNoMemory);
  if (!q->sheetFirst[0]) {
    uint8_t b[5] = {WithClass(ptgName, classBits)};
    WriteU16(b + 1, static_cast<uint16_t>(index + 1));
    return EmitBytes(e, b, 5);
  }
  if (!FindOrAddExternalBook(book, ExternalSelf, nullptr, &external) ||
      !BookLink(e, external, &link))
    return Fail(e, CompileNoMemory);
  return EmitNameX(e, classBits, link, index);
}

// An add-in function is called by name through the add-in book.
static bool EmitAddInName(Emitter* e, const FunctionEntry* entry) {
  uint32_t book = e->ctx->book, external = 0, index = 0;
  int32_t link = -1;
  if (!FindOrAddExternalBook(book, ExternalAddIn, nullptr, &external) ||
      !BookLink(e, external, &link) ||
      !FindOrAddExternalName(book, external, entry->name, 0, &index))
    return Fail(e, CompileNoMemory);
  return EmitNameX(e, ClassReference, link, index);
}

namespace {

struct CallHead {
  int32_t stop;  // behind the identifier; -1 when there is none
  int call;      // "(" follows
  const FunctionEntry* entry;
  int isAddIn;
};

}  // namespace

// Reads an identifier and emits what stands for it before any argument: a boolean, a name, the
// add-in's name, or nothing for a built-in function. Out of line for the same reason as
// ReadIdentifier.
[[gnu::noinline]] static bool EmitIdentifier(Emitter* e, int32_t p, int32_t end, char cls,
                                             CallHead* head) {
  const char16_t* text = e->text;
  int af = e->ctx->arrayFormula;
  NameToken token{};
  *head = CallHead{ScanNameToken(text, p, end, e->ctx->book, &token), 0, nullptr, 0};
  if (head->stop < 0) return true;
  head->call = head->stop < end && text[head->stop] == u'(';
  const char16_t* name = text + token.nameStart;
  if (head->call && !token.qualified)
    head->entry = FindFunctionByName(name, static_cast<uint32_t>(token.nameLength), &head->isAddIn);
  if (head->entry) return !head->isAddIn || EmitAddInName(e, head->entry);
  if (!head->call && !token.qualified) {
    bool value;
    if (MatchBooleanLiteral(name, token.nameLength, &value)) {
      uint8_t b[2] = {ptgBool, static_cast<uint8_t>(value)};
      return EmitBytes(e, b, 2);
    }
  }
  char refined = RefineClass(cls, text, head->stop, end, af);
  return EmitName(e, &token, OperandClassBits(refined, af));
}

static int32_t ParseIdentifierOperand(Emitter* e, int32_t p, int32_t end, char cls) {
  CallHead head;
  if (!EmitIdentifier(e, p, end, cls, &head)) return -1;
  if (head.stop < 0) return p;
  if (!head.call) return head.stop;
  return ParseCall(e, head.entry, head.isAddIn, head.stop + 1, end, cls);
}

// One operand at text[p]; a sign there belongs to a number literal.
static int32_t ParseOperand(Emitter* e, int32_t p, int32_t end, char cls) {
  const ParseContext* ctx = e->ctx;
  const char16_t* text = e->text;
  char16_t c = text[p];
  if (c == u'"') return ParseString(e, p, end);
  if (c == u'(') {
    int32_t close = MatchParen(text, p, end);
    if (close < 0) return Refuse(e, CompileSyntaxError);
    if (ParseExpression(e, p + 1, close, cls) < 0 || !EmitByte(e, ptgParen)) return -1;
    return close + 1;
  }
  if (c == u'{') return ParseArray(e, p, end, cls);
  if (IsSign(c) || StartsNumber(text, p, end)) return ParseNumber(e, p, end);
  if (IsOperandStart(c)) {
    Range range;
    uint8_t flags;
    if (ParseReferenceText(text, p, end, ctx->a1Style, ctx->baseRow, ctx->baseColumn, ctx->book,
                           nullptr, &range, &flags) >= 0)
      return ParseReferenceOperand(e, p, end, cls);
    int32_t q = ParseIdentifierOperand(e, p, end, cls);
    if (q != p) return q;
    uint32_t code;
    int32_t n = MatchErrorLiteral(text, p, end, &code);
    if (n) {
      uint8_t b[2] = {ptgErr, ErrorToBiff(code)};
      return EmitBytes(e, b, 2) ? SkipBlanks(text, p + n, end) : -1;
    }
  }
  return Refuse(e, CompileSyntaxError);
}

// ----------------------------------------------------------------------------------------------
// Operators

static uint8_t OperatorToken(const char16_t* text, int32_t p, int32_t length, int unary) {
  char16_t c = text[p];
  if (c == ListSeparator[0]) return ptgUnion;
  switch (c) {
    case u':':
      return ptgRange;
    case u' ':
      return ptgIsect;
    case u'^':
      return ptgPower;
    case u'*':
      return ptgMul;
    case u'/':
      return ptgDiv;
    case u'+':
      return unary ? ptgUplus : ptgAdd;
    case u'-':
      return unary ? ptgUminus : ptgSub;
    case u'&':
      return ptgConcat;
    case u'=':
      return ptgEQ;
    case u'>':
      return length == 2 ? ptgGE : ptgGT;
    case u'<':
      return length == 2 ? (text[p + 1] == u'=' ? ptgLE : ptgNE) : ptgLT;
    default:
      return 0;
  }
}

// Parses the right operand of the operator at text[p], up to `stop`, then appends the operator.
static bool EmitOperator(Emitter* e, int32_t p, int32_t length, int32_t stop, char cls, int unary) {
  char16_t c = e->text[p];
  bool referenceOperator = c == u':' || c == ListSeparator[0] || IsBlank(c);
  char right = referenceOperator ? static_cast<char>(ClassCodeReference)
                                 : ValueOperandClass(cls, e->ctx->arrayFormula);
  if (ParseExpression(e, p + length, stop, right) < 0) return false;
  uint8_t token = OperatorToken(e->text, p, length, unary);
  return token ? EmitByte(e, token) : Fail(e, CompileSyntaxError);
}

// Steps over the operator at text[p] and the operand behind it ("%" has none).
static int32_t StepOver(const ParseContext* ctx, const char16_t* text, int32_t p, int32_t end) {
  if (text[p] == u'%') return OperatorAfterBlanks(text, p + 1, end);
  int32_t q = SkipOperand(ctx, text, p + OperatorLength(text, p, end), end);
  return q > p ? q : end;
}

// The operators from text[p] on, where p stands on an operator (or on a unary sign, with nothing
// on its left). The right operand of each runs to the next operator that binds no tighter.
static int32_t ParseOperators(Emitter* e, int32_t p, int32_t end, char cls, int unary) {
  const char16_t* text = e->text;
  for (;;) {
    if (p >= end || text[p] == u')') return p;
    if (text[p] == u'%') {
      if (!EmitByte(e, ptgPercent)) return -1;
      p = OperatorAfterBlanks(text, p + 1, end);
      continue;
    }
    int32_t length = OperatorLength(text, p, end);
    int32_t next = SkipOperand(e->ctx, text, p + length, end);
    if (next < 0) return Refuse(e, CompileSyntaxError);
    int precedence = OperatorPrecedence(text[p], unary);
    int32_t stop = next;
    if (next < end && precedence < OperatorPrecedence(text[next], 0)) {
      while (stop < end &&
             !(IsOperatorChar(text[stop]) && OperatorPrecedence(text[stop], 0) <= precedence))
        stop = StepOver(e->ctx, text, stop, end);
    }
    if (!EmitOperator(e, p, length, stop, cls, unary)) return -1;
    unary = 0;
    p = stop;
  }
}

static int32_t ParseExpressionBody(Emitter* e, int32_t start, int32_t end, char cls) {
  const char16_t* text = e->text;
  int32_t p = SkipBlanks(text, start, end);
  if (p >= end) return end;
  // A sign before a number is part of the literal; any other sign is a unary operator.
  bool unary = IsSign(text[p]) && !(p + 1 < end && StartsNumber(text, p + 1, end));
  if (!unary) {
    int32_t q = ParseOperand(e, p, end, cls);
    if (q < 0) return -1;
    p = OperatorAfterBlanks(text, q, end);
  }
  return ParseOperators(e, p, end, cls, unary);
}

int32_t ParseExpression(Emitter* e, int32_t start, int32_t end, char cls) {
  if (e->depth >= MaxNesting) return Refuse(e, CompileTooLong);
  e->depth++;
  int32_t stop = ParseExpressionBody(e, start, end, cls);
  e->depth--;
  return stop;
}

// ----------------------------------------------------------------------------------------------
// Entry point

CompileStatus CompileFormula(const ParseContext* ctx, const char16_t* text, ClassCode rootClass,
                             FormulaTokens* out) {
  *out = FormulaTokens{};
  int32_t length = static_cast<int32_t>(TextLength(text));
  ScanState state{};
  if (ScanExpressionAt(ctx, &state, text, 0, length, 0, nullptr) != length)
    return state.tooDeep ? CompileTooLong : CompileSyntaxError;

  Emitter* e = static_cast<Emitter*>(Allocate(sizeof(Emitter)));
  if (!e) return CompileNoMemory;
  e->ctx = ctx;
  e->text = text;
  e->status = CompileOk;
  int32_t start = length > 1 && text[0] == u'=' ? SkipBlanks(text, 1, length) : 0;
  if (ParseExpression(e, start, length, rootClass) >= 0 && e->status == CompileOk) {
    FormulaTokens view{static_cast<uint16_t>(e->length), 0, e->tokens};
    // A formula that calls a volatile function carries the mark in front, so that a reader of
    // the saved file recalculates it.
    if (TokensCallFunctionWith(&view, FunctionVolatile)) {
      if (e->length + 4 > MaxTokenBytes) {
        Fail(e, CompileTooLong);
      } else {
        std::memmove(e->tokens + 4, e->tokens, e->length);
        const uint8_t prefix[4] = {ptgAttr, AttrVolatile, 0, 0};
        std::memcpy(e->tokens, prefix, 4);
        e->length += 4;
      }
    }
  } else if (e->status == CompileOk) {
    e->status = CompileSyntaxError;
  }
  if (e->status == CompileOk) {
    uint8_t* bytes = static_cast<uint8_t*>(Allocate(e->length + e->extraLength));
    if (bytes) {
      std::memcpy(bytes, e->tokens, e->length);
      std::memcpy(bytes + e->length, e->extra, e->extraLength);
      *out = FormulaTokens{static_cast<uint16_t>(e->length), static_cast<uint16_t>(e->extraLength),
                           bytes};
    } else {
      e->status = CompileNoMemory;
    }
  }
  CompileStatus status = e->status;
  Release(e);
  return status;
}
