// Token strings: ownership (copy, release, compare), the walkers' length table and stepping,
// the search for function calls, the shifting of relative references, and the validator that
// every token string from outside passes before it enters the model.
#include "formula/tokens.h"

#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "functions/table.h"
#include "model/range.h"

// Operand bytes by base opcode; 255 marks the variable forms.
const uint8_t TokenLength[64] = {
    0, 4, 4, 0, 0, 0, 0, 0,   0,   0,   0, 0,  0, 0,  0, 0,  // 0x00-0x0F
    0, 0, 0, 0, 0, 0, 0, 255, 255, 255, 0, 0,  1, 1,  2, 8,  // 0x10-0x1F
    7, 2, 3, 4, 4, 8, 6, 6,   2,   2,   4, 8,  4, 8,  0, 0,  // 0x20-0x2F
    0, 0, 0, 0, 0, 0, 0, 0,   0,   6,   6, 10, 6, 10, 0, 0,  // 0x30-0x3F
};

int CopyTokens(FormulaTokens* target, const FormulaTokens* source) {
  *target = FormulaTokens{};
  if (!source->bytes) return 1;
  size_t size = static_cast<size_t>(source->length) + source->extraLength;
  uint8_t* bytes = static_cast<uint8_t*>(Allocate(size));
  if (!bytes) return 0;
  std::memcpy(bytes, source->bytes, size);
  *target = FormulaTokens{source->length, source->extraLength, bytes};
  return 1;
}

void FreeTokens(FormulaTokens* tokens) {
  Release(tokens->bytes);
  *tokens = FormulaTokens{};
}

bool EqualTokens(const FormulaTokens* a, const FormulaTokens* b) {
  if (a->length != b->length || a->extraLength != b->extraLength) return false;
  size_t size = static_cast<size_t>(a->length) + a->extraLength;
  if (size == 0) return true;
  if (!a->bytes || !b->bytes) return a->bytes == b->bytes;
  return std::memcmp(a->bytes, b->bytes, size) == 0;
}

// Bytes after the sub-type byte of the extended token: four for every kind the format defines
// (files hold, for instance, a radical token of kind 10 followed at once by the next token after
// four bytes), none for the others.
static uint32_t ExtendedOperandLength(uint8_t subType) {
  switch (subType) {
    case 1:
    case 2:
    case 3:
    case 6:
    case 7:
    case 10:
    case 11:
    case 12:
    case 13:
    case 14:
    case 15:
    case 16:
    case 29:
      return 4;
    default:
      return 0;
  }
}

uint32_t SkipVariableToken(const uint8_t* bytes, uint32_t position) {
  switch (FoldOpcode(bytes[position])) {
    case ptgStr: {
      uint32_t length = bytes[position + 1], wide = bytes[position + 2];
      return position + (wide + 1) * length + 2;
    }
    case ptgExtended:
      return position + 1 + ExtendedOperandLength(bytes[position + 1]);
    default:  // ptgAttr
      if (bytes[position + 1] == AttrChoose)
        return position + 3 + (ReadU16(bytes + position + 2) + 1u) * 2;
      return position + 3;
  }
}

uint32_t NextTokenPosition(const uint8_t* bytes, uint32_t position) {
  uint8_t size = TokenLength[FoldOpcode(bytes[position])];
  if (size == 255) return SkipVariableToken(bytes, position) + 1;
  return position + 1 + size;
}

uint32_t CheckedTokenEnd(const uint8_t* b, uint32_t p, uint32_t length, MemNoMemReading reading) {
  uint8_t base = FoldOpcode(b[p]);
  uint32_t end;
  if (base == ptgMemNoMem && reading == MemNoMemAsEvaluated) {
    end = p + 7;
  } else if (TokenLength[base] != 255) {
    end = p + 1 + TokenLength[base];
  } else {
    // The variable forms need their header to know their size.
    uint32_t header = base == ptgStr ? 3 : base == ptgAttr ? 4 : 2;
    if (p + header > length) return 0;
    if (base == ptgStr && b[p + 2] > 1) return 0;
    end = SkipVariableToken(b, p) + 1;
  }
  return end <= length ? end : 0;
}

// Steps *p to the next function call at or after it; false when none is left.
static bool NextFunctionCall(const FormulaTokens* tokens, uint32_t* p, uint16_t* id) {
  for (; tokens->bytes && *p < tokens->length; *p = NextTokenPosition(tokens->bytes, *p)) {
    uint8_t base = FoldOpcode(tokens->bytes[*p]);
    if (base != ptgFunc && base != ptgFuncVar) continue;
    *id = ReadU16(tokens->bytes + *p + (base == ptgFunc ? 1 : 2));
    *p = NextTokenPosition(tokens->bytes, *p);
    return true;
  }
  return false;
}

bool TokensCallFunction(const FormulaTokens* tokens, const uint16_t* ids, uint32_t idCount) {
  uint16_t id;
  for (uint32_t p = 0; NextFunctionCall(tokens, &p, &id);)
    for (uint32_t i = 0; i < idCount; i++)
      if (ids[i] == id) return true;
  return false;
}

bool TokensCallFunctionWith(const FormulaTokens* tokens, uint8_t flags) {
  uint16_t id;
  for (uint32_t p = 0; NextFunctionCall(tokens, &p, &id);)
    if (FunctionFlagsByNumber(id) & flags) return true;
  return false;
}

// Moves the coordinates named in `mask` (8 first row, 4 first column, 2 last row, 1 last
// column), leaving whole rows and whole columns whole.
static void ShiftRange(Range* r, unsigned mask, int32_t rowDelta, int32_t colDelta) {
  bool wholeColumns = r->firstRow == 0 && r->lastRow == MaxRow;
  bool wholeRows = r->firstCol == 0 && r->lastCol == MaxCol;
  if (!wholeColumns) {
    if (mask & 8) r->firstRow = static_cast<uint16_t>(r->firstRow + rowDelta);
    if (mask & 2) r->lastRow = static_cast<uint16_t>(r->lastRow + rowDelta);
  }
  if (!wholeRows) {
    if (mask & 4) r->firstCol = static_cast<uint8_t>(r->firstCol + colDelta);
    if (mask & 1) r->lastCol = static_cast<uint8_t>(r->lastCol + colDelta);
  }
}

void ShiftRelativeRefs(FormulaTokens* tokens, int32_t rowDelta, int32_t colDelta) {
  if (!tokens->bytes) return;
  uint8_t* b = tokens->bytes;
  for (uint32_t p = 0; p < tokens->length; p = NextTokenPosition(b, p)) {
    uint8_t base = FoldOpcode(b[p]);
    uint32_t at = p + 1 + ((base == ptgRef3d || base == ptgArea3d) ? 2 : 0);
    if (base == ptgRef || base == ptgRefN || base == ptgRef3d) {
      uint8_t flags = b[at + 3];
      Range r{ReadU16(b + at), ReadU16(b + at), b[at + 2], b[at + 2]};
      // Row-relative (0x80) moves both row ends, column-relative (0x40) both column ends.
      unsigned mask = ((flags >> 4) | (flags >> 6)) & 0xF;
      ShiftRange(&r, mask, rowDelta, colDelta);
      WriteU16(b + at, r.firstRow);
      b[at + 2] = r.firstCol;
    } else if (base == ptgArea || base == ptgAreaN || base == ptgArea3d) {
      uint8_t firstFlags = b[at + 5], lastFlags = b[at + 7];
      Range r{ReadU16(b + at), ReadU16(b + at + 2), b[at + 4], b[at + 6]};
      unsigned mask = ((firstFlags | (lastFlags >> 2)) >> 4) & 0xF;
      ShiftRange(&r, mask, rowDelta, colDelta);
      WriteU16(b + at, r.firstRow);
      WriteU16(b + at + 2, r.lastRow);
      b[at + 4] = r.firstCol;
      b[at + 6] = r.lastCol;
    }
  }
}

// --- Validation of token strings from outside ---------------------------------------------

static bool KnownOpcode(uint8_t base) {
  if (base >= ptgExp && base <= ptgAttr) return true;
  if (base >= ptgErr && base <= ptgAreaN) return true;
  return base >= ptgNameX && base <= ptgAreaErr3d;
}

// Bytes an array constant takes from the extra data at `at`, or 0 when it runs past `end`.
static uint32_t ArrayConstantSize(const uint8_t* b, uint32_t at, uint32_t end) {
  if (at + 3 > end) return 0;
  uint32_t columns = b[at] + 1u, rows = ReadU16(b + at + 1) + 1u;
  uint32_t p = at + 3;
  for (uint32_t i = 0; i < rows * columns; i++) {
    if (p >= end) return 0;
    switch (b[p]) {
      case 1:
      case 4:
      case 16:
        if (p + 9 > end) return 0;
        p += 9;
        break;
      case 2: {
        if (p + 4 > end || b[p + 3] > 1) return 0;
        uint32_t size = 4 + ReadU16(b + p + 1) * (b[p + 3] + 1u);
        if (p + size > end) return 0;
        p += size;
        break;
      }
      default:  // not consumed: the element and all after it stay blank
        return p - at;
    }
  }
  return p - at;
}

static int Refuse(const char** reason, const char* why) {
  if (reason) *reason = why;
  return 0;
}

int ValidateTokens(const FormulaTokens* tokens, int32_t context, const char** reason) {
  const uint8_t* b = tokens->bytes;
  uint32_t length = tokens->length, total = length + static_cast<uint32_t>(tokens->extraLength);
  if (!b || length == 0) return Refuse(reason, "empty formula");

  // Both ways of stepping must stay inside the string; the evaluator's way also marks where
  // tokens start, for the jump checks.
  uint8_t* starts = static_cast<uint8_t*>(Allocate(length + 1u));
  if (!starts) return Refuse(reason, "out of memory");
  int ok = 1;
  const char* why = nullptr;
  for (int view = 0; view < 2 && ok; view++) {
    for (uint32_t p = 0; p < length;) {
      if (!KnownOpcode(FoldOpcode(b[p]))) {
        ok = 0, why = "unknown token";
        break;
      }
      uint32_t end =
          CheckedTokenEnd(b, p, length, view == 0 ? MemNoMemAsEvaluated : MemNoMemAsTable);
      if (!end) {
        ok = 0, why = "token runs past the end of the formula";
        break;
      }
      if (view == 0) starts[p] = 1;
      p = end;
    }
  }
  starts[length] = 1;

  uint32_t extra = length, depth = 0;
  for (uint32_t p = 0; ok && p < length;) {
    uint8_t op = b[p], base = FoldOpcode(op);
    uint32_t next = CheckedTokenEnd(b, p, length, MemNoMemAsEvaluated);
    uint32_t need = 0, push = 0;
    switch (IsBinaryOperator(base) ? uint8_t{ptgRange} : base) {
      case ptgRange:  // every binary operator
        need = 2, push = 1;
        break;
      case ptgUplus:
      case ptgUminus:
      case ptgPercent:
      case ptgParen:
        need = 1, push = 1;
        break;
      case ptgRefN:
      case ptgAreaN:
        if (context == TokensForCell) ok = 0, why = "relative reference in a cell formula";
        push = 1;
        break;
      case ptgArray: {
        uint32_t used = ArrayConstantSize(b, extra, total);
        if (!used) ok = 0, why = "array constant runs past its data";
        extra += used;
        push = 1;
        break;
      }
      case ptgMemArea:
      case ptgMemErr:
      case ptgMemNoMem: {
        if (base == ptgMemArea) {
          if (extra + 2 > total || extra + 2 + ReadU16(b + extra) * 8u > total)
            ok = 0, why = "area list runs past its data";
          else
            extra += 2 + ReadU16(b + extra) * 8u;
        }
        // The sub-expression that computes the same thing is skipped.
        uint32_t skip = ReadU16(b + p + 5);
        if (next + skip > length || !starts[next + skip])
          ok = 0, why = "jump target inside a token";
        next += skip;
        push = 1;
        break;
      }
      case ptgAttr: {
        uint8_t kind = b[p + 1];
        uint32_t operand = ReadU16(b + p + 2);
        if (kind == AttrIf) {
          uint32_t target = p + 4 + operand;
          // The false branch starts right behind the goto that closes the true branch.
          if (target > length || !starts[target] || target < 4 || !starts[target - 4] ||
              b[target - 4] != ptgAttr || b[target - 3] != AttrGoto)
            ok = 0, why = "IF jump does not land behind a goto";
          need = 1;
        } else if (kind == AttrGoto) {
          uint32_t target = p + 4 + operand + 1;
          if (target > length || !starts[target]) ok = 0, why = "jump target inside a token";
        } else if (kind == AttrChoose) {
          uint32_t table = p + 4;
          for (uint32_t i = 0; i <= operand && ok; i++) {
            uint32_t target = table + ReadU16(b + table + 2 * i);
            if (target > length || !starts[target]) ok = 0, why = "jump target inside a token";
          }
          need = 1;
        } else if (kind == AttrSum) {
          need = 1;
        }
        push = need;
        break;
      }
      case ptgFunc:
      case ptgFuncVar: {
        uint32_t count;
        if (base == ptgFunc) {
          const FunctionEntry* entry = FindFunctionByNumber(ReadU16(b + p + 1));
          if (!entry) {
            ok = 0, why = "unknown function";
            break;
          }
          count = static_cast<uint32_t>(std::strlen(entry->args));
        } else {
          count = b[p + 1] & 0x7Fu;  // the eighth bit asks a command to show its dialog
        }
        if (count > FunctionFrameSize) ok = 0, why = "too many arguments";
        need = count, push = 1;
        break;
      }
      case ptgExp:
      case ptgTbl:
      case ptgExtended:
      case ptgMemFunc:  // marks the sub-expression behind it, which pushes the value
        break;
      default:  // every other token is an operand
        push = 1;
        break;
    }
    if (ok && depth < need) ok = 0, why = "not enough operands";
    depth = depth - need + push;
    p = next;
  }
  if (ok && depth != 1) ok = 0, why = "formula does not leave exactly one value";
  Release(starts);
  return ok ? 1 : Refuse(reason, why);
}
