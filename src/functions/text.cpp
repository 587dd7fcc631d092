// The text functions of the "Texte" category that work on the characters themselves: searching,
// cutting and building, case and cleaning, codes and comparison, and the byte-counting and
// width-converting rows kept for workbooks from double-byte versions. Texts are read through
// CoerceValue, counts as numbers cut to 32-bit integers; the first failing argument decides the
// error, and a lost allocation gives #N/A. Positions count 16-bit units from 1.
//
// There is no code page in memory, so a byte of the double-byte rows is a character here: the
// "B" functions (FINDB, LEFTB, ...) share the handlers of their character forms.
#include "base/text.h"
#include "base/alloc.h"
#include "format/input.h"
#include "functions/aggregate.h"
#include "functions/criteria.h"
#include "functions/handlers.h"
#include "functions/numeric.h"
#include "functions/table.h"
#include "model/workbook.h"

namespace {

// Takes over a heap text as the result; a null text means memory ran out.
void OwnedResult(char16_t* text, Value* result) {
  *result = text ? TextValue(text) : ErrorValue(ErrNA);
}

void PieceResult(const char16_t* text, uint32_t length, Value* result) {
  OwnedResult(TextDuplicateN(text, length), result);
}

// A new text of `left` characters of `a`, then `b`, then what follows `a` after `skip` more
// characters: the splice REMPLACER and SUBSTITUE make.
char16_t* Splice(const char16_t* a, uint32_t left, uint32_t skip, const char16_t* b) {
  uint32_t aLength = TextLength(a), bLength = TextLength(b);
  uint32_t rest = aLength - left - skip;
  auto* out =
      static_cast<char16_t*>(Allocate((uint64_t{left} + bLength + rest + 1) * sizeof(char16_t)));
  if (!out) return nullptr;
  for (uint32_t i = 0; i < left; i++) out[i] = a[i];
  for (uint32_t i = 0; i < bLength; i++) out[left + i] = b[i];
  for (uint32_t i = 0; i < rest; i++) out[left + bLength + i] = a[left + skip + i];
  out[left + bLength + rest] = 0;
  return out;
}

// Whether `find` stands at `text` + at, character for character.
bool ExactAt(const char16_t* text, uint32_t at, const char16_t* find, uint32_t findLength) {
  for (uint32_t k = 0; k < findLength; k++)
    if (text[at + k] != find[k]) return false;
  return true;
}

// The arguments of TROUVE and CHERCHE, checked: the start must lie inside the text.
int SearchArgs(Value* args, Value* result, const EvalContext* ctx, const char16_t** find,
               const char16_t** text, uint32_t* start) {
  int32_t from;
  if (!TextFromArg(&args[0], result, ctx, find) || !TextFromArg(&args[1], result, ctx, text) ||
      !IntegerFromArg(&args[2], result, ctx, 1, &from))
    return 0;
  if (from < 1 || static_cast<uint32_t>(from) > TextLength(*text)) {
    *result = ErrorValue(ErrValue);
    return 0;
  }
  *start = static_cast<uint32_t>(from) - 1;
  return 1;
}

// GAUCHE and DROITE: the count, 1 when left out, taken from the start or the end.
void TextEnd(Value* args, Value* result, const EvalContext* ctx, bool fromEnd) {
  const char16_t* text;
  int32_t count;
  if (!TextFromArg(&args[0], result, ctx, &text) ||
      !IntegerFromArg(&args[1], result, ctx, 1, &count))
    return;
  if (count < 0) {
    *result = ErrorValue(ErrValue);
    return;
  }
  uint32_t length = TextLength(text);
  uint32_t take = static_cast<uint32_t>(count) < length ? count : length;
  PieceResult(fromEnd ? text + length - take : text, take, result);
}

// A character with an upper and a lower form counts as a letter for NOMPROPRE.
bool IsCasedLetter(char16_t c) {
  return UpperCase(c) != FoldCase(c);
}

bool IsControl(char16_t c) {
  return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
}

// Rewrites a copy of the text argument in place, never lengthening it, as the result.
template <typename Rewrite>
void RewriteCopy(Value* args, Value* result, const EvalContext* ctx, Rewrite rewrite) {
  const char16_t* text;
  if (!TextFromArg(&args[0], result, ctx, &text)) return;
  char16_t* out = TextDuplicate(text);
  if (out) rewrite(out);
  OwnedResult(out, result);
}

// Maps each character of the text through `map` into a new text.
void MapCharacters(Value* args, Value* result, const EvalContext* ctx, char16_t (*map)(char16_t)) {
  RewriteCopy(args, result, ctx, [map](char16_t* text) {
    for (; *text; text++) *text = map(*text);
  });
}

// A letter after a non-letter is upper-cased, the other letters lower-cased.
void ProperCase(char16_t* text) {
  bool afterLetter = false;
  for (; *text; text++) {
    bool letter = IsCasedLetter(*text);
    if (letter) *text = afterLetter ? FoldCase(*text) : UpperCase(*text);
    afterLetter = letter;
  }
}

// Blanks at either end go and runs of blanks inside become one; only the space counts.
void TrimBlanks(char16_t* text) {
  uint32_t written = 0;
  bool pendingBlank = false;
  for (const char16_t* p = text; *p; p++) {
    if (*p == u' ') {
      pendingBlank = written > 0;
      continue;
    }
    if (pendingBlank) text[written++] = u' ';
    pendingBlank = false;
    text[written++] = *p;
  }
  text[written] = 0;
}

void DropControls(char16_t* text) {
  uint32_t written = 0;
  for (const char16_t* p = text; *p; p++)
    if (!IsControl(*p)) text[written++] = *p;
  text[written] = 0;
}

char16_t Lower(char16_t c) {
  return FoldCase(c);
}

// The full-width forms of the ASCII characters, and the ideographic space.
constexpr char16_t FullWidthFirst = 0xFF01, FullWidthLast = 0xFF5E, IdeographicSpace = 0x3000;

char16_t ToHalfWidth(char16_t c) {
  if (c >= FullWidthFirst && c <= FullWidthLast) return static_cast<char16_t>(c - 0xFEE0);
  return c == IdeographicSpace ? u' ' : c;
}

char16_t ToFullWidth(char16_t c) {
  if (c > u' ' && c <= u'~') return static_cast<char16_t>(c + 0xFEE0);
  return c == u' ' ? IdeographicSpace : c;
}

// The longest text REPT builds, as a cell can hold.
constexpr uint64_t MaxRepeatedLength = 32767;

}  // namespace

void FnTrouve(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t *find, *text;
  uint32_t start;
  if (!SearchArgs(args, result, ctx, &find, &text, &start)) return;
  uint32_t findLength = TextLength(find), length = TextLength(text);
  if (findLength == 0) {
    *result = NumberValue(1);
    return;
  }
  for (uint32_t at = start; at + findLength <= length; at++)
    if (ExactAt(text, at, find, findLength)) {
      *result = NumberValue(at + 1.0);
      return;
    }
  *result = ErrorValue(ErrValue);
}

void FnCherche(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t *find, *text;
  uint32_t start;
  if (!SearchArgs(args, result, ctx, &find, &text, &start)) return;
  uint32_t findLength = TextLength(find), length = TextLength(text);
  if (findLength == 0) {
    *result = NumberValue(1);
    return;
  }
  // The pattern is matched against the rest of the text at each position: a "*" behind it lets
  // the match stop anywhere.
  auto* pattern = static_cast<char16_t*>(Allocate((findLength + 2) * sizeof(char16_t)));
  if (!pattern) {
    *result = ErrorValue(ErrNA);
    return;
  }
  TextCopy(pattern, findLength + 1, find);
  pattern[findLength] = u'*';
  pattern[findLength + 1] = 0;
  *result = ErrorValue(ErrValue);
  for (uint32_t at = start; at < length; at++)
    if (MatchWildcard(pattern, text + at, false)) {
      *result = NumberValue(at + 1.0);
      break;
    }
  Release(pattern);
}

void FnStxt(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t* text;
  int32_t start, count;
  if (!TextFromArg(&args[0], result, ctx, &text) ||
      !IntegerFromArg(&args[1], result, ctx, 0, &start) ||
      !IntegerFromArg(&args[2], result, ctx, 0, &count))
    return;
  if (start < 1 || count < 0) {
    *result = ErrorValue(ErrValue);
    return;
  }
  uint32_t length = TextLength(text), from = static_cast<uint32_t>(start) - 1;
  if (from >= length) {
    PieceResult(u"", 0, result);
    return;
  }
  uint32_t take = length - from < static_cast<uint32_t>(count) ? length - from : count;
  PieceResult(text + from, take, result);
}

void FnGauche(Value* args, Value* result, const EvalContext* ctx) {
  TextEnd(args, result, ctx, false);
}

void FnDroite(Value* args, Value* result, const EvalContext* ctx) {
  TextEnd(args, result, ctx, true);
}

void FnNbCar(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t* text;
  if (TextFromArg(&args[0], result, ctx, &text)) *result = NumberValue(TextLength(text));
}

void FnRemplacer(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t *text, *with;
  int32_t start, count;
  if (!TextFromArg(&args[0], result, ctx, &text) ||
      !IntegerFromArg(&args[1], result, ctx, 0, &start) ||
      !IntegerFromArg(&args[2], result, ctx, 0, &count) ||
      !TextFromArg(&args[3], result, ctx, &with))
    return;
  if (start < 1 || count < 0) {
    *result = ErrorValue(ErrValue);
    return;
  }
  uint32_t length = TextLength(text);
  uint32_t left = static_cast<uint32_t>(start) - 1 < length ? start - 1 : length;
  uint32_t skip = length - left < static_cast<uint32_t>(count) ? length - left : count;
  OwnedResult(Splice(text, left, skip, with), result);
}

void FnSubstitue(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t *text, *old, *with;
  int32_t instance;
  if (!TextFromArg(&args[0], result, ctx, &text) || !TextFromArg(&args[1], result, ctx, &old) ||
      !TextFromArg(&args[2], result, ctx, &with) ||
      !IntegerFromArg(&args[3], result, ctx, 0, &instance))
    return;
  uint32_t length = TextLength(text), oldLength = TextLength(old), withLength = TextLength(with);
  if (oldLength == 0) {
    PieceResult(text, length, result);
    return;
  }
  // Matches are counted from the left without overlapping; the room for the result is bounded
  // by the count of matches before anything is copied.
  uint32_t matches = 0;
  for (uint32_t at = 0; at + oldLength <= length;)
    if (ExactAt(text, at, old, oldLength)) {
      matches++;
      at += oldLength;
    } else {
      at++;
    }
  if (instance > 0) matches = static_cast<uint32_t>(instance) <= matches ? 1 : 0;
  uint64_t room = length + uint64_t{matches} * withLength + 1;
  auto* out = static_cast<char16_t*>(Allocate(room * sizeof(char16_t)));
  if (!out) {
    *result = ErrorValue(ErrNA);
    return;
  }
  uint32_t written = 0, seen = 0;
  for (uint32_t at = 0; at < length;) {
    if (at + oldLength <= length && ExactAt(text, at, old, oldLength)) {
      seen++;
      if (instance <= 0 || seen == static_cast<uint32_t>(instance)) {
        for (uint32_t k = 0; k < withLength; k++) out[written++] = with[k];
      } else {
        for (uint32_t k = 0; k < oldLength; k++) out[written++] = old[k];
      }
      at += oldLength;
    } else {
      out[written++] = text[at++];
    }
  }
  out[written] = 0;
  *result = TextValue(out);
}

void FnConcatener(Value* args, Value* result, const EvalContext* ctx) {
  uint64_t total = 0;
  for (int i = 0; i < FunctionFrameSize; i++) {
    if (args[i].tag == ValueEmpty) continue;
    const char16_t* text;
    if (!TextFromArg(&args[i], result, ctx, &text)) return;
    total += TextLength(text);
  }
  auto* out = static_cast<char16_t*>(Allocate((total + 1) * sizeof(char16_t)));
  if (!out) {
    *result = ErrorValue(ErrNA);
    return;
  }
  uint32_t written = 0;
  for (int i = 0; i < FunctionFrameSize; i++)
    if (args[i].tag == ValueText && args[i].text)
      for (const char16_t* p = args[i].text; *p; p++) out[written++] = *p;
  out[written] = 0;
  *result = TextValue(out);
}

void FnRept(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t* text;
  int32_t count;
  if (!TextFromArg(&args[0], result, ctx, &text) ||
      !IntegerFromArg(&args[1], result, ctx, 0, &count))
    return;
  uint32_t length = TextLength(text);
  if (count < 0 || uint64_t{length} * static_cast<uint32_t>(count) > MaxRepeatedLength) {
    *result = ErrorValue(ErrValue);
    return;
  }
  uint32_t total = length * static_cast<uint32_t>(count);
  auto* out = static_cast<char16_t*>(Allocate((total + 1) * sizeof(char16_t)));
  if (!out) {
    *result = ErrorValue(ErrNA);
    return;
  }
  for (uint32_t i = 0; i < total; i++) out[i] = text[i % length];
  out[total] = 0;
  *result = TextValue(out);
}

void FnMajuscule(Value* args, Value* result, const EvalContext* ctx) {
  MapCharacters(args, result, ctx, UpperCase);
}

void FnMinuscule(Value* args, Value* result, const EvalContext* ctx) {
  MapCharacters(args, result, ctx, Lower);
}

void FnNomPropre(Value* args, Value* result, const EvalContext* ctx) {
  RewriteCopy(args, result, ctx, ProperCase);
}

void FnSuppreSpace(Value* args, Value* result, const EvalContext* ctx) {
  RewriteCopy(args, result, ctx, TrimBlanks);
}

void FnEpurage(Value* args, Value* result, const EvalContext* ctx) {
  RewriteCopy(args, result, ctx, DropControls);
}

void FnCode(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t* text;
  if (!TextFromArg(&args[0], result, ctx, &text)) return;
  *result = text[0] ? NumberValue(text[0]) : ErrorValue(ErrValue);
}

void FnCar(Value* args, Value* result, const EvalContext* ctx) {
  int32_t code;
  if (!IntegerFromArg(&args[0], result, ctx, 0, &code)) return;
  if (code < 1 || code > 255) {
    *result = ErrorValue(ErrValue);
    return;
  }
  const char16_t one[1] = {static_cast<char16_t>(code)};
  PieceResult(one, 1, result);
}

void FnExact(Value* args, Value* result, const EvalContext* ctx) {
  const char16_t *a, *b;
  if (TextFromArg(&args[0], result, ctx, &a) && TextFromArg(&args[1], result, ctx, &b))
    *result = BooleanValue(CompareText(a, b) == 0);
}

// T, like N, reads a reference by its first cell, whatever its size.
void FnT(Value* args, Value* result, const EvalContext* ctx) {
  ReduceToFirstCell(&args[0], ctx);
  if (args[0].tag == ValueError) {
    *result = args[0];
    return;
  }
  const char16_t* text = args[0].tag == ValueText && args[0].text ? args[0].text : u"";
  PieceResult(text, TextLength(text), result);
}

void FnCnum(Value* args, Value* result, const EvalContext* ctx) {
  ReduceToScalar(&args[0], ctx);
  if (args[0].tag == ValueNumber) {
    *result = args[0];
    return;
  }
  const char16_t* text;
  if (!TextFromArg(&args[0], result, ctx, &text)) return;
  TextToValue(&args[0], ContextDate1904(ctx));
  *result = args[0].tag == ValueNumber ? args[0] : ErrorValue(ErrValue);
}

void FnAsc(Value* args, Value* result, const EvalContext* ctx) {
  MapCharacters(args, result, ctx, ToHalfWidth);
}

void FnDbcs(Value* args, Value* result, const EvalContext* ctx) {
  MapCharacters(args, result, ctx, ToFullWidth);
}

void FnPhonetique(Value* args, Value* result, const EvalContext* ctx) {
  // No reading guide is kept with the cells, so the text of the range's first cell is its own
  // reading; a value that is not a text has none.
  Value* a = &args[0];
  if (a->tag == ValueRef) {
    a->ref.lastRow = a->ref.firstRow;
    a->ref.lastCol = a->ref.firstCol;
  } else if (a->tag == ValueRefList && a->refs && a->refs->count > 0) {
    a->refs->count = 1;
    Range* first = &a->refs->areas[0];
    first->lastRow = first->firstRow;
    first->lastCol = first->firstCol;
  }
  FnT(args, result, ctx);
}
