// Function calls and constant arrays for the formula parser. A call's argument list is checked
// against the function's argument letters, each argument is parsed with the class its letter
// asks for, SI and CHOISIR get their jump tokens as their arguments are laid down, and the
// function token gets its class from the class expected of the call. A constant array becomes a
// ptgArray token with its elements in the extra data.
#include <cstring>

#include "base/bytes.h"
#include "base/text.h"
#include "format/input.h"
#include "format/locale.h"
#include "formula/parser_internal.h"
#include "formula/reference_text.h"
#include "model/value.h"

static bool IsUpperLetter(char c) {
  return c >= 'A' && c <= 'Z';
}

static bool HasRequiredFrom(const char* args) {
  for (; *args; args++)
    if (IsUpperLetter(*args)) return true;
  return false;
}

int32_t ScanCallArguments(const ParseContext* ctx, ScanState* state, const char16_t* text,
                          int32_t p, int32_t end, const char* args, int32_t* formatHint) {
  p = SkipBlanks(text, p, end);
  for (int32_t i = 0; args[i]; i++) {
    if (i > 0) {
      if (p >= end) return -1;
      // Optional arguments may be left off at the end of the list.
      if (text[p] == u')' && !HasRequiredFrom(args + i)) return p + 1;
      if (text[p] != ListSeparator[0]) return -1;
      p = SkipBlanks(text, p + 1, end);
    }
    int32_t q = ScanExpressionAt(ctx, state, text, p, end, 0, formatHint);
    if (q < 0 || (q == p && IsUpperLetter(args[i]))) return -1;
    p = q;
  }
  return p < end && text[p] == u')' ? p + 1 : -1;
}

// The class an argument letter passes down, given the class `parent` expected of the call.
static char ArgumentClass(char letter, char parent, int arrayFormula, int isAddIn) {
  if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  bool cellOrReference = parent == ClassCodeCell || parent == ClassCodeReference;
  switch (letter) {
    case 'C':
    case 'R':
      return ClassCodeReference;
    case 'Q':
      return ClassCodeArray;
    case 'T':
      return ClassCodeCell;
    case 'U':
      return ClassCodeRefOrArray;
    case 'V':
      if (arrayFormula && parent != ClassCodeValue) return ClassCodeArray;
      if (!arrayFormula && cellOrReference) return ClassCodeCell;
      if (!arrayFormula && (parent == ClassCodeRefOrArray || parent == ClassCodeArray))
        return ClassCodeArray;
      return ClassCodeValue;
    case 'W':
      return cellOrReference && !isAddIn ? ClassCodeReference : ClassCodeRefOrValue;
    default:  // past the end of the letters
      return arrayFormula ? ClassCodeArray : ClassCodeValue;
  }
}

// Functions whose result may be a reference keep the reference class where one is welcome; a few
// give an array there instead.
static uint8_t FunctionClassBits(char cls, uint8_t flags, int arrayFormula) {
  bool listed = (flags & FunctionGivesReference) != 0;
  bool arrayListed = (flags & FunctionArrayForReference) != 0;
  uint8_t valueOrArray = arrayFormula ? ClassArray : ClassValue;
  switch (cls) {
    case ClassCodeReference:
      return listed ? ClassReference : arrayListed ? ClassArray : valueOrArray;
    case ClassCodeCell:
      return valueOrArray;
    case ClassCodeValue:
      return ClassValue;
    case ClassCodeArray:
      return ClassArray;
    case ClassCodeRefOrArray:
      return listed || arrayFormula ? ClassReference : ClassArray;
    case ClassCodeRefOrValue:
      return listed ? ClassReference : ClassValue;
    default:
      return ClassReference;
  }
}

namespace {

// Positions of the jump tokens of the call being parsed.
struct Jumps {
  uint32_t ifWord;     // SI: the offset word of tAttrIf
  uint32_t gotoWord;   // SI: the offset word of the goto behind the second argument
  uint32_t countWord;  // CHOISIR: the case count, which the jump table follows
  uint32_t slots;      // CHOISIR: slots in the table so far
};

}  // namespace

// A ptgAttr of `kind` with an offset to be filled in; *word gets the offset's position.
static bool EmitAttr(Emitter* e, uint8_t kind, uint32_t* word) {
  *word = e->length + 2;
  const uint8_t b[4] = {ptgAttr, kind, 0, 0};
  return EmitBytes(e, b, 4);
}

static void PatchWord(Emitter* e, uint32_t word, uint32_t value) {
  WriteU16(e->tokens + word, static_cast<uint16_t>(value));
}

// SI: tAttrIf behind the condition jumps over the true branch and its goto; the goto behind the
// true branch jumps over the false branch to the function token.
static bool AfterIfArgument(Emitter* e, Jumps* j, uint32_t argc, bool last) {
  if (argc == 1) return EmitAttr(e, AttrIf, &j->ifWord);
  if (argc != 2 || last) return true;
  PatchWord(e, j->ifWord, e->length - j->ifWord + 2);
  return EmitAttr(e, AttrGoto, &j->gotoWord);
}

static bool CloseIf(Emitter* e, const Jumps* j, uint32_t argc) {
  if (argc == 2) PatchWord(e, j->ifWord, e->length - j->ifWord + 2);
  if (argc == 3) PatchWord(e, j->gotoWord, e->length - j->gotoWord + 5);
  uint32_t word;
  if (!EmitAttr(e, AttrGoto, &word)) return false;
  PatchWord(e, word, 3);
  return true;
}

// CHOISIR: tAttrChoose behind the index with a table of offsets, counted from the table's start,
// to each choice and finally to the function token. Each choice ends with a goto to the function
// token. The table grows by one slot behind each choice, which moves the choices up.
static bool AfterChooseArgument(Emitter* e, Jumps* j, uint32_t argc) {
  if (argc == 1) {
    j->countWord = e->length + 2;
    j->slots = 1;
    const uint8_t b[6] = {ptgAttr, AttrChoose, 0, 0, 2, 0};
    return EmitBytes(e, b, 6);
  }
  uint32_t word;
  if (!EmitAttr(e, AttrGoto, &word)) return false;
  if (e->length + 2 > MaxTokenBytes) return Fail(e, CompileTooLong);
  uint32_t table = j->countWord + 2, slot = table + 2 * j->slots;
  std::memmove(e->tokens + slot + 2, e->tokens + slot, e->length - slot);
  e->length += 2;
  for (uint32_t i = 0; i < j->slots; i++)
    PatchWord(e, table + 2 * i, ReadU16(e->tokens + table + 2 * i) + 2u);
  PatchWord(e, slot, e->length - table);
  j->slots++;
  PatchWord(e, j->countWord, argc - 1);
  return true;
}

// Each slot but the first points just behind the goto that closes the choice before it.
static void CloseChoose(Emitter* e, const Jumps* j) {
  uint32_t table = j->countWord + 2;
  for (uint32_t i = 1; i < j->slots; i++) {
    uint32_t word = table + ReadU16(e->tokens + table + 2 * i) - 2;
    PatchWord(e, word, e->length - word + 1);
  }
}

static bool AllRequired(const char* args) {
  for (; *args; args++)
    if (!IsUpperLetter(*args)) return false;
  return true;
}

static bool EmitCallToken(Emitter* e, const FunctionEntry* entry, int isAddIn, uint32_t argc,
                          char cls) {
  if (!entry || isAddIn) {
    // A call by name: the name token stands before the arguments and counts as one.
    const uint8_t b[4] = {static_cast<uint8_t>((ptgFuncVar & 0x1F) | ClassValue),
                          static_cast<uint8_t>(argc + 1), 255, 0};
    return EmitBytes(e, b, 4);
  }
  uint32_t number = FunctionNumber(entry);
  if (number == 4 && argc == 1) {  // SOMME of one argument
    uint32_t word;
    return EmitAttr(e, AttrSum, &word);
  }
  bool fixed = number < 0x8000 && AllRequired(entry->args);
  uint8_t opcode = static_cast<uint8_t>(((fixed ? ptgFunc : ptgFuncVar) & 0x1F) |
                                        FunctionClassBits(cls, entry->flags, e->ctx->arrayFormula));
  uint8_t b[4] = {opcode};
  uint32_t n = 1;
  if (!fixed) b[n++] = static_cast<uint8_t>(argc);
  WriteU16(b + n, static_cast<uint16_t>(number));
  return EmitBytes(e, b, n + 2);
}

int32_t ParseCall(Emitter* e, const FunctionEntry* entry, int isAddIn, int32_t p, int32_t end,
                  char cls) {
  const ParseContext* ctx = e->ctx;
  const char16_t* text = e->text;
  const char* args = entry ? entry->args : CalleeArguments;
  uint32_t letters = static_cast<uint32_t>(std::strlen(args));
  uint32_t number = entry && !isAddIn ? FunctionNumber(entry) : 0;
  bool isIf = number == 1, isChoose = number == 100;
  Jumps jumps{};
  uint32_t argc = 0;
  p = SkipBlanks(text, p, end);
  if (!letters) {
    if (p >= end || text[p] != u')') return Refuse(e, CompileSyntaxError);
    p++;
  } else {
    for (;;) {
      ScanState state{.depth = 0, .tooDeep = 0, .lookAhead = 1};
      int32_t q = ScanExpressionAt(ctx, &state, text, p, end, 0, nullptr);
      if (q < 0 || q >= end) return Refuse(e, CompileSyntaxError);
      char letter = argc < letters ? args[argc] : 0;
      char argClass = entry ? ArgumentClass(letter, cls, ctx->arrayFormula, isAddIn)
                            : static_cast<char>(ClassCodeReference);
      if (q == p) {
        if (!EmitByte(e, ptgMissArg)) return -1;
      } else if (ParseExpression(e, p, q, argClass) < 0) {
        return -1;
      }
      argc++;
      bool last = text[q] == u')';
      if (isIf && !AfterIfArgument(e, &jumps, argc, last)) return -1;
      if (isChoose && !AfterChooseArgument(e, &jumps, argc)) return -1;
      if (last) {
        p = q + 1;
        break;
      }
      p = SkipBlanks(text, q + 1, end);
    }
  }
  if (isIf && !CloseIf(e, &jumps, argc)) return -1;
  if (isChoose) CloseChoose(e, &jumps);
  return EmitCallToken(e, entry, isAddIn, argc, cls) ? p : -1;
}

// ----------------------------------------------------------------------------------------------
// Constant arrays

// Where the element that starts at text[p] ends: at a column separator, ";" or "}" outside
// quotes; -1 when the array is not closed.
static int32_t ElementEnd(const char16_t* text, int32_t p, int32_t end) {
  char16_t column = ArrayColumnSeparator();
  for (int32_t i = p; i < end; i++) {
    char16_t c = text[i];
    if (c == u'"') {
      for (i++; i < end; i++) {
        if (text[i] != u'"') continue;
        if (i + 1 < end && text[i + 1] == u'"') {
          i++;
        } else {
          break;
        }
      }
    } else if (c == column || c == u';' || c == u'}') {
      return i;
    }
  }
  return -1;
}

// ";" closes a row whatever the list separator is; every row must be as long as the first. An
// element is any text that scans as an expression; blanks around it are not part of it.
int32_t ScanArray(const ParseContext* ctx, ScanState* state, const char16_t* text, int32_t p,
                  int32_t end) {
  char16_t separator = ArrayColumnSeparator();
  int32_t columns = -1, column = 0;
  for (int32_t i = p + 1;;) {
    int32_t s = SkipBlanks(text, i, end);
    int32_t t = ElementEnd(text, s, end);
    if (t <= s || ScanExpressionAt(ctx, state, text, s, t, 0, nullptr) != t) return -1;
    column++;
    i = t + 1;
    if (text[t] == separator) continue;
    if (columns < 0) columns = column;
    if (column != columns) return -1;
    column = 0;
    if (text[t] == u'}') return i;
  }
}

// One element of text[s, t): a boolean, an error, a number, or else a string.
static bool EmitElement(Emitter* e, int32_t s, int32_t t) {
  const char16_t* text = e->text;
  while (t > s && IsBlank(text[t - 1])) t--;
  int32_t n = t - s;
  uint8_t b[9] = {0};
  bool value;
  if (MatchBooleanLiteral(text + s, n, &value)) {
    b[0] = ValueBoolean;
    b[1] = value;
    return EmitExtra(e, b, 9);
  }
  uint32_t code;
  if (n > 0 && MatchErrorLiteral(text, s, t, &code) == n) {
    b[0] = ValueError;
    b[1] = ErrorToBiff(code);
    return EmitExtra(e, b, 9);
  }
  double number;
  if (ParseNumberText(text, static_cast<uint32_t>(s), static_cast<uint32_t>(t), &number,
                      GroupingNone)) {
    b[0] = ValueNumber;
    WriteDouble(b + 1, number);
    return EmitExtra(e, b, 9);
  }
  // One pair of enclosing quotes goes; doubled quotes inside stay as typed.
  if (n >= 2 && text[s] == u'"' && text[t - 1] == u'"') {
    s++;
    t--;
  }
  bool wide = false;
  for (int32_t i = s; i < t; i++) wide = wide || text[i] > 255;
  b[0] = ValueText;
  WriteU16(b + 1, static_cast<uint16_t>(t - s));
  b[3] = wide;
  if (!EmitExtra(e, b, 4)) return false;
  for (int32_t i = s; i < t; i++) {
    uint8_t c[2];
    WriteU16(c, text[i]);
    if (!EmitExtra(e, c, wide ? 2 : 1)) return false;
  }
  return true;
}

int32_t ParseArray(Emitter* e, int32_t p, int32_t end, char cls) {
  const char16_t* text = e->text;
  char16_t separator = ArrayColumnSeparator();
  // The shape first: the extra data starts with it.
  uint32_t columns = 0, rows = 0, column = 0;
  int32_t close = -1;
  for (int32_t i = p + 1; close < 0;) {
    int32_t t = ElementEnd(text, SkipBlanks(text, i, end), end);
    if (t < 0) return Refuse(e, CompileSyntaxError);
    column++;
    i = t + 1;
    if (text[t] == separator) continue;
    if (rows++ == 0) columns = column;
    column = 0;
    if (text[t] == u'}') close = t;
  }
  // The column count is stored less one in a byte.
  if (columns > 256) return Refuse(e, CompileTooLong);
  bool value = cls == ClassCodeValue || cls == ClassCodeRefOrValue;
  const uint8_t token[8] = {
      static_cast<uint8_t>((ptgArray & 0x1F) | (value ? ClassValue : ClassArray))};
  const uint8_t shape[3] = {static_cast<uint8_t>(columns - 1), static_cast<uint8_t>(rows - 1),
                            static_cast<uint8_t>((rows - 1) >> 8)};
  if (!EmitBytes(e, token, 8) || !EmitExtra(e, shape, 3)) return -1;
  for (int32_t i = p + 1; i < close;) {
    int32_t s = SkipBlanks(text, i, end);
    int32_t t = ElementEnd(text, s, end);
    if (!EmitElement(e, s, t)) return -1;
    i = t + 1;
  }
  return close + 1;
}
