// Formula tokens at the Pocket Excel border. The file's tokens have the BIFF5 shape: references
// keep their relative flags in the top two bits of a 14-bit row, names and 3-D references carry
// long heads, and 3-D references and external names can only point into the workbook itself;
// its strings are already the 8- or 16-bit strings of memory. Both directions rewrite token by
// token and then correct every IF, goto and CHOOSE jump for the sizes that changed on the way.
#include <cstring>

#include "base/alloc.h"
#include "base/byte_buffer.h"
#include "base/bytes.h"
#include "files/pocket.h"
#include "files/pocket_internal.h"
#include "model/names.h"
#include "model/workbook.h"

const uint16_t PocketFunctions[] = {
    24,  99,  63,  142, 69,  27,  98,  18,  97,  45,  195, 235, 44,  43,  42,  40,  199, 189, 41,
    47,  196, 100, 33,  77,  16,  65,  140, 144, 343, 116, 12,  193, 25,  64,  126, 3,   198, 2,
    190, 128, 127, 129, 36,  117, 21,  184, 35,  115, 71,  29,  67,  76,  22,  109, 23,  74,  113,
    7,   6,   112, 72,  39,  68,  5,   131, 10,  0,   346, 347, 32,  169, 114, 38,  58,  37,  19,
    183, 337, 20,  342, 101, 102, 119, 30,  73,  1,   15,  4,   345, 31,  120, 118, 143, 130, 17,
    60,  66,  141, 62,  197, 124, 261, 56,  11,  46,  194, 57,  59,  34,
};
static_assert(sizeof PocketFunctions / sizeof PocketFunctions[0] == PocketFunctionCount);

static bool PocketHasFunction(uint16_t id) {
  for (uint32_t i = 0; i < PocketFunctionCount; i++)
    if (PocketFunctions[i] == id) return true;
  return false;
}

static bool RowBeyond(uint16_t row) {
  return row > PocketLastRow;
}

int32_t PocketFormulaDrop(uint32_t book, const FormulaTokens* tokens) {
  const uint8_t* b = tokens->bytes;
  if (!b) return PocketKept;
  for (uint32_t p = 0; p < tokens->length; p = NextTokenPosition(b, p)) {
    uint8_t base = FoldOpcode(b[p]);
    switch (base) {
      case ptgExp:
      case ptgTbl:
      case ptgIsect:
      case ptgUnion:
      case ptgRange:
      case ptgExtended:
      case ptgArray:
      case ptgMemArea:
      case ptgMemErr:
      case ptgMemNoMem:
      case ptgMemFunc:
      case ptgRefN:
      case ptgAreaN:
        return PocketDropToken;
      case ptgAttr:
        if (b[p + 1] & (AttrBaxcel | AttrSpace)) return PocketDropSpace;
        break;
      case ptgFunc:
        if (!PocketHasFunction(ReadU16(b + p + 1))) return PocketDropFunction;
        break;
      case ptgFuncVar:
        if (!PocketHasFunction(ReadU16(b + p + 2))) return PocketDropFunction;
        break;
      case ptgRef:
        if (RowBeyond(ReadU16(b + p + 1))) return PocketDropRows;
        break;
      case ptgArea:
        if (RowBeyond(ReadU16(b + p + 1)) || RowBeyond(ReadU16(b + p + 3))) return PocketDropRows;
        break;
      case ptgNameX:
      case ptgRefErr3d:
      case ptgAreaErr3d:
        if (!IsSelfLink(book, ReadU16(b + p + 1))) return PocketDropLink;
        break;
      case ptgRef3d:
        if (!IsSelfLink(book, ReadU16(b + p + 1))) return PocketDropLink;
        if (RowBeyond(ReadU16(b + p + 3))) return PocketDropRows;
        break;
      case ptgArea3d:
        if (!IsSelfLink(book, ReadU16(b + p + 1))) return PocketDropLink;
        if (RowBeyond(ReadU16(b + p + 3)) || RowBeyond(ReadU16(b + p + 5))) return PocketDropRows;
        break;
      default:
        break;
    }
  }
  // Extra data only serves constant arrays and area lists, which the file cannot hold.
  return tokens->extraLength ? PocketDropToken : PocketKept;
}

// ---------------------------------------------------------------------------------------------
// The rewriting walk shared by both directions

// A jump operand at `at` in the output whose target is `target` in the source, counted from
// `base` in the source, which lies at `newBase` in the output.
struct PocketJump {
  uint32_t at;
  uint32_t target;
  uint32_t base;
  uint32_t newBase;
};

struct Rewrite {
  uint32_t book;
  const uint8_t* src;
  uint32_t length;
  ByteBuffer out;  // the rewritten tokens
  uint32_t* map;   // source position of each token -> its output position; ~0 inside a token
  PocketJump* jumps;
  uint32_t jumpCount;
  uint32_t jumpCapacity;
  bool noMemory;
  const char* bad;  // why the source is malformed
};

// Memory lost for the output or for the rewrite's own tables.
static bool Lost(const Rewrite* r) {
  return r->noMemory || r->out.failed;
}

static uint8_t* Room(Rewrite* r, uint32_t n) {
  if (r->bad) return nullptr;
  uint8_t* p = ByteRoom(&r->out, n);
  if (r->out.tooLong) r->bad = "a formula grows too long";
  return p;
}

static void PutBytes(Rewrite* r, const uint8_t* bytes, uint32_t n) {
  if (uint8_t* p = Room(r, n)) std::memcpy(p, bytes, n);
}

static void PutByte(Rewrite* r, uint8_t b) {
  if (uint8_t* p = Room(r, 1)) *p = b;
}

static void PutWord(Rewrite* r, uint16_t w) {
  if (uint8_t* p = Room(r, 2)) WriteU16(p, w);
}

static void AddJump(Rewrite* r, uint32_t at, uint32_t target, uint32_t base, uint32_t newBase) {
  if (!GrowArray(&r->jumps, &r->jumpCapacity, r->jumpCount + 1, 8)) {
    r->noMemory = true;
    return;
  }
  r->jumps[r->jumpCount++] = PocketJump{at, target, base, newBase};
}

static uint32_t Malformed(Rewrite* r, const char* why) {
  if (!r->bad) r->bad = why;
  return 0;
}

// ptgAttr is the same in the file and in memory: copied, with the operand of a one-argument sum
// zeroed and the jumps noted for correction.
static uint32_t CopyAttr(Rewrite* r, uint32_t p) {
  const uint8_t* a = r->src + p + 1;
  uint32_t left = r->length - p - 1;
  if (left < 3) return Malformed(r, "a formula ends inside a token");
  uint8_t kind = a[0];
  uint16_t operand = ReadU16(a + 1);
  uint32_t size = 4;
  if (kind == AttrChoose) size += (operand + 1u) * 2;
  if (left + 1 < size) return Malformed(r, "a formula ends inside a token");
  uint32_t start = r->out.count;
  PutBytes(r, r->src + p, size);
  if (kind == AttrSum && r->out.bytes && !Lost(r) && !r->bad) WriteU16(r->out.bytes + start + 2, 0);
  if (kind == AttrIf) AddJump(r, start + 2, p + 4 + operand, p + 4, start + 4);
  if (kind == AttrGoto) AddJump(r, start + 2, p + 4 + operand + 1, p + 5, start + 5);
  if (kind == AttrChoose)
    for (uint32_t i = 0; i <= operand; i++)
      AddJump(r, start + 4 + 2 * i, p + 4 + ReadU16(a + 3 + 2 * i), p + 4, start + 4);
  return size;
}

// Operand bytes of the tokens that are the same in both forms; 0xFF for the others.
static uint32_t SameLength(uint8_t base) {
  switch (base) {
    case ptgErr:
    case ptgBool:
      return 1;
    case ptgInt:
    case ptgFunc:
      return 2;
    case ptgFuncVar:
      return 3;
    case ptgNum:
      return 8;
    default:
      return IsBinaryOperator(base) || (base >= ptgUplus && base <= ptgMissArg) ? 0 : 0xFF;
  }
}

// Copies a token of the same shape in both forms, a string included; returns its size or 0.
static uint32_t CopySame(Rewrite* r, uint32_t p) {
  uint8_t base = FoldOpcode(r->src[p]);
  uint32_t left = r->length - p - 1;
  uint32_t size;
  if (base == ptgStr) {
    if (left < 2 || r->src[p + 2] > 1) return Malformed(r, "a formula holds a broken string");
    size = 3 + r->src[p + 1] * (r->src[p + 2] + 1u);
  } else {
    uint32_t operands = SameLength(base);
    if (operands == 0xFF) return Malformed(r, "a formula holds a token this format lacks");
    size = 1 + operands;
  }
  if (size > left + 1) return Malformed(r, "a formula ends inside a token");
  PutBytes(r, r->src + p, size);
  return size;
}

// Operand bytes of the tokens whose shape differs between the file and memory.
struct TokenShape {
  uint8_t base;
  uint8_t file;
  uint8_t memory;
};

static const TokenShape ReshapedTokens[] = {
    {ptgName, 14, 4},    {ptgRef, 3, 4},         {ptgRefErr, 3, 4}, {ptgArea, 6, 8},
    {ptgAreaErr, 6, 8},  {ptgNameX, 24, 6},      {ptgRef3d, 17, 6}, {ptgRefErr3d, 17, 6},
    {ptgArea3d, 20, 10}, {ptgAreaErr3d, 20, 10},
};

static const TokenShape* ReshapedToken(uint8_t base) {
  for (const TokenShape& shape : ReshapedTokens)
    if (shape.base == base) return &shape;
  return nullptr;
}

using TokenStep = uint32_t (*)(Rewrite* r, uint32_t p);

// Walks the source token by token through `step`, corrects the jumps and hands the result over
// in a new block. Returns 0 on a malformed source (r->bad) or lost memory (r->noMemory).
static int RunRewrite(Rewrite* r, TokenStep step, FormulaTokens* out) {
  *out = FormulaTokens{};
  r->out.limit = 0xFFFF;
  r->map = static_cast<uint32_t*>(Allocate((r->length + 1u) * sizeof(uint32_t)));
  if (!r->map) {
    r->noMemory = true;
    return 0;
  }
  std::memset(r->map, 0xFF, (r->length + 1u) * sizeof(uint32_t));
  for (uint32_t p = 0; p < r->length && !r->bad && !Lost(r);) {
    r->map[p] = r->out.count;
    uint32_t size = step(r, p);
    if (size == 0) Malformed(r, "a formula is malformed");
    p += size;
  }
  r->map[r->length] = r->out.count;
  for (uint32_t i = 0; i < r->jumpCount && !r->bad && !Lost(r); i++) {
    const PocketJump& j = r->jumps[i];
    if (j.target > r->length || r->map[j.target] == 0xFFFFFFFF || r->map[j.target] < j.newBase) {
      Malformed(r, "a formula jumps into the middle of a token");
      break;
    }
    WriteU16(r->out.bytes + j.at, static_cast<uint16_t>(r->map[j.target] - j.newBase));
  }
  Release(r->map);
  Release(r->jumps);
  r->map = nullptr;
  r->jumps = nullptr;
  if (r->bad || Lost(r)) {
    Release(r->out.bytes);
    r->out.bytes = nullptr;
    return 0;
  }
  if (r->out.count == 0) {
    // An empty formula still owns a block, so that it counts as a formula.
    r->out.bytes = static_cast<uint8_t*>(Allocate(1));
    if (!r->out.bytes) return r->noMemory = true, 0;
  }
  *out = FormulaTokens{static_cast<uint16_t>(r->out.count), 0, r->out.bytes};
  r->out.bytes = nullptr;
  return 1;
}

// ---------------------------------------------------------------------------------------------
// From the file

// The link of this workbook's own sheets first..last (negative: a deleted sheet), or of the
// workbook itself for a name.
static int SelfLink(Rewrite* r, int16_t first, int16_t last, uint16_t* link) {
  uint32_t self = 0;
  int32_t index = 0;
  if (!FindOrAddExternalBook(r->book, ExternalSelf, nullptr, &self) ||
      !FindOrAddSheetLink(r->book, static_cast<int16_t>(self), first, last, &index)) {
    r->noMemory = true;
    return 0;
  }
  *link = static_cast<uint16_t>(index);
  return 1;
}

// A 14-bit row with the relative flags on top, and a column byte, as memory's row word, column
// byte and flag byte.
static void PutCornerFromFile(Rewrite* r, uint16_t row, uint8_t col) {
  PutWord(r, row & 0x3FFF);
  PutByte(r, col);
  PutByte(r, static_cast<uint8_t>((row >> 8) & 0xC0));
}

static void PutAreaFromFile(Rewrite* r, const uint8_t* a) {
  uint16_t r1 = ReadU16(a), r2 = ReadU16(a + 2);
  PutWord(r, r1 & 0x3FFF);
  PutWord(r, r2 & 0x3FFF);
  PutByte(r, a[4]);
  PutByte(r, static_cast<uint8_t>((r1 >> 8) & 0xC0));
  PutByte(r, a[5]);
  PutByte(r, static_cast<uint8_t>((r2 >> 8) & 0xC0));
}

static int16_t SheetFromFile(const uint8_t* p) {
  int16_t sheet = ReadI16(p);
  return sheet < 0 ? DeletedSheet : sheet;
}

static uint32_t TokenFromFile(Rewrite* r, uint32_t p) {
  const uint8_t* a = r->src + p + 1;
  uint8_t op = r->src[p], base = FoldOpcode(op);
  const TokenShape* shape = ReshapedToken(base);
  if (!shape) return base == ptgAttr ? CopyAttr(r, p) : CopySame(r, p);
  uint32_t need = shape->file;
  if (r->length - p - 1 < need) return Malformed(r, "a formula ends inside a token");
  PutByte(r, op);
  switch (base) {
    case ptgName:
      PutWord(r, ReadU16(a));
      PutWord(r, 0);
      break;
    case ptgRef:
    case ptgRefErr:
      PutCornerFromFile(r, ReadU16(a), a[2]);
      break;
    case ptgArea:
    case ptgAreaErr:
      PutAreaFromFile(r, a);
      break;
    case ptgNameX: {
      uint16_t link = 0;
      if (!SelfLink(r, NoSheet, NoSheet, &link)) return 0;
      PutWord(r, link);
      PutWord(r, ReadU16(a + 10));
      PutWord(r, 0);
      break;
    }
    default: {  // the 3-D references
      uint16_t link = 0;
      if (!SelfLink(r, SheetFromFile(a + 10), SheetFromFile(a + 12), &link)) return 0;
      PutWord(r, link);
      if (need == 17)
        PutCornerFromFile(r, ReadU16(a + 14), a[16]);
      else
        PutAreaFromFile(r, a + 14);
      break;
    }
  }
  return need + 1;
}

int PocketToTokens(uint32_t book, const uint8_t* bytes, uint32_t length, FormulaTokens* out,
                   const char** reason) {
  Rewrite r{};
  r.book = book;
  r.src = bytes;
  r.length = length;
  int ok = RunRewrite(&r, TokenFromFile, out);
  if (reason) *reason = ok || Lost(&r) ? nullptr : r.bad;
  return ok;
}

// ---------------------------------------------------------------------------------------------
// Into the file

// Memory's row word, column byte and flag byte as a 14-bit row with the flags on top and a
// column byte. A deleted reference keeps meaningless coordinates, so they are cut to fit.
static void PutCornerToFile(Rewrite* r, const uint8_t* a) {
  PutWord(r, static_cast<uint16_t>((ReadU16(a) & 0x3FFF) | ((a[3] & 0xC0) << 8)));
  PutByte(r, a[2]);
}

static void PutAreaToFile(Rewrite* r, const uint8_t* a) {
  PutWord(r, static_cast<uint16_t>((ReadU16(a) & 0x3FFF) | ((a[5] & 0xC0) << 8)));
  PutWord(r, static_cast<uint16_t>((ReadU16(a + 2) & 0x3FFF) | ((a[7] & 0xC0) << 8)));
  PutByte(r, a[4]);
  PutByte(r, a[6]);
}

static uint32_t TokenToFile(Rewrite* r, uint32_t p) {
  const uint8_t* a = r->src + p + 1;
  uint8_t op = r->src[p], base = FoldOpcode(op);
  const TokenShape* shape = ReshapedToken(base);
  if (!shape) return base == ptgAttr ? CopyAttr(r, p) : CopySame(r, p);
  uint32_t need = shape->memory;
  if (r->length - p - 1 < need) return Malformed(r, "a formula ends inside a token");
  PutByte(r, op);
  switch (base) {
    case ptgName:
      PutWord(r, ReadU16(a));
      Room(r, 12);
      break;
    case ptgRef:
    case ptgRefErr:
      PutCornerToFile(r, a);
      break;
    case ptgArea:
    case ptgAreaErr:
      PutAreaToFile(r, a);
      break;
    case ptgNameX:
      Room(r, 10);
      PutWord(r, ReadU16(a + 2));
      Room(r, 12);
      break;
    default: {  // the 3-D references: the sheet span of the link, then the reference
      uint16_t link = ReadU16(a);
      if (!IsSelfLink(r->book, link)) return Malformed(r, "a formula points into another book");
      const SheetLink& span = GetWorkbook(r->book)->sheetLinks[link];
      Room(r, 10);
      PutWord(r, static_cast<uint16_t>(span.firstSheet));
      PutWord(r, static_cast<uint16_t>(span.lastSheet));
      if (need == 6)
        PutCornerToFile(r, a + 2);
      else
        PutAreaToFile(r, a + 2);
      break;
    }
  }
  return need + 1;
}

int TokensToPocket(uint32_t book, const FormulaTokens* tokens, FormulaTokens* out) {
  *out = FormulaTokens{};
  if (!tokens->bytes || !PocketCanHold(book, tokens)) return 0;
  Rewrite r{};
  r.book = book;
  r.src = tokens->bytes;
  r.length = tokens->length;
  return RunRewrite(&r, TokenToFile, out);
}
