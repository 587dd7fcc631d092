// The formula token string: reverse Polish BIFF8 tokens followed by their extra data (array
// constants, area lists), in one owned block. Operand tokens carry their class in bits 5 and 6
// of the opcode; every walker folds the class away to find the base opcode, then steps by the
// length table or, for the variable forms, by SkipVariableToken.
#pragma once
#include <cstdint>

struct FormulaTokens {
  uint16_t length;       // bytes of tokens
  uint16_t extraLength;  // bytes of extra data behind the tokens
  uint8_t* bytes;        // length + extraLength bytes, owned; null without a formula
};

// Base opcodes.
enum Ptg : uint8_t {
  ptgExp = 0x01,
  ptgTbl = 0x02,
  ptgAdd = 0x03,
  ptgSub = 0x04,
  ptgMul = 0x05,
  ptgDiv = 0x06,
  ptgPower = 0x07,
  ptgConcat = 0x08,
  ptgLT = 0x09,
  ptgLE = 0x0A,
  ptgEQ = 0x0B,
  ptgGE = 0x0C,
  ptgGT = 0x0D,
  ptgNE = 0x0E,
  ptgIsect = 0x0F,
  ptgUnion = 0x10,
  ptgRange = 0x11,
  ptgUplus = 0x12,
  ptgUminus = 0x13,
  ptgPercent = 0x14,
  ptgParen = 0x15,
  ptgMissArg = 0x16,
  ptgStr = 0x17,
  ptgExtended = 0x18,
  ptgAttr = 0x19,
  ptgErr = 0x1C,
  ptgBool = 0x1D,
  ptgInt = 0x1E,
  ptgNum = 0x1F,
  ptgArray = 0x20,
  ptgFunc = 0x21,
  ptgFuncVar = 0x22,
  ptgName = 0x23,
  ptgRef = 0x24,
  ptgArea = 0x25,
  ptgMemArea = 0x26,
  ptgMemErr = 0x27,
  ptgMemNoMem = 0x28,
  ptgMemFunc = 0x29,
  ptgRefErr = 0x2A,
  ptgAreaErr = 0x2B,
  ptgRefN = 0x2C,
  ptgAreaN = 0x2D,
  ptgNameX = 0x39,
  ptgRef3d = 0x3A,
  ptgArea3d = 0x3B,
  ptgRefErr3d = 0x3C,
  ptgAreaErr3d = 0x3D,
};

// The binary operators, arithmetic to range, are one run of base opcodes.
inline bool IsBinaryOperator(uint8_t base) {
  return base >= ptgAdd && base <= ptgRange;
}

// Token classes in bits 5 and 6 of an operand opcode.
constexpr uint8_t ClassReference = 0x20;
constexpr uint8_t ClassValue = 0x40;
constexpr uint8_t ClassArray = 0x60;

// ptgAttr kinds.
enum AttrKind : uint8_t {
  AttrVolatile = 1,
  AttrIf = 2,
  AttrChoose = 4,
  AttrGoto = 8,
  AttrSum = 16,
  AttrBaxcel = 32,
  AttrSpace = 64,
};

// Flag bits of a reference's column byte.
constexpr uint8_t RefRowRelative = 0x80;
constexpr uint8_t RefColRelative = 0x40;

// The base opcode of any opcode byte: every class of an operand folds to the 0x20 form.
inline uint8_t FoldOpcode(uint8_t b) {
  return static_cast<uint8_t>(((b & 0x40) ? (b | 0x20) : b) & 0x3F);
}
// The class bits of an operand opcode (0 for operators).
inline uint8_t TokenClass(uint8_t b) {
  return b < 0x20 ? 0 : static_cast<uint8_t>(b & 0x60);
}

// Operand bytes after the opcode, by base opcode; 255 for the variable forms (0x17 to 0x19),
// which step by SkipVariableToken.
extern const uint8_t TokenLength[64];

// How ptgMemNoMem is stepped over. The length table gives it two operand bytes, and the walkers
// that rewrite, print and scan tokens read it so; the evaluator reads six, as files written by
// the older program expect. A string from outside must be sound under both readings.
enum MemNoMemReading : uint8_t {
  MemNoMemAsTable = 0,
  MemNoMemAsEvaluated = 1,
};

// Position of the last byte of the variable token at `position`.
uint32_t SkipVariableToken(const uint8_t* bytes, uint32_t position);
// Position of the token after the one at `position`, in a string already known to be sound.
uint32_t NextTokenPosition(const uint8_t* bytes, uint32_t position);
// Position behind the token at `position` of a string of `length` token bytes, or 0 when the
// token does not fit in them (or is a string token with a bad width byte).
uint32_t CheckedTokenEnd(const uint8_t* bytes, uint32_t position, uint32_t length,
                         MemNoMemReading reading);

// Fresh block of both parts; returns 0 on lost memory (target is then empty).
int CopyTokens(FormulaTokens* target, const FormulaTokens* source);
void FreeTokens(FormulaTokens* tokens);
bool EqualTokens(const FormulaTokens* a, const FormulaTokens* b);
// True when a ptgFunc or ptgFuncVar calls one of the function numbers.
bool TokensCallFunction(const FormulaTokens* tokens, const uint16_t* ids, uint32_t idCount);
// True when a ptgFunc or ptgFuncVar calls a function with any of the FunctionFlag bits `flags`.
bool TokensCallFunctionWith(const FormulaTokens* tokens, uint8_t flags);
// Moves the relative coordinates of every reference in place, wrapping; whole rows and whole
// columns stay whole.
void ShiftRelativeRefs(FormulaTokens* tokens, int32_t rowDelta, int32_t colDelta);

// Where a token string may come from. Cell formulas hold no relative-offset tokens; names,
// validation and conditional rules may.
enum TokenContext : int32_t {
  TokensForCell = 0,
  TokensForName = 1,
};
// Checks a token string from outside before it enters the model: every token's operand bytes lie
// inside the string, every jump of IF, CHOOSE and goto lands on a token boundary inside it, the
// extra data holds what the array and area-list tokens take, the stack never runs dry and ends
// with one value, and every fixed-count function is known. Returns 1 when the string is sound;
// otherwise 0, with a short reason in `reason` when it is not null.
int ValidateTokens(const FormulaTokens* tokens, int32_t context, const char** reason);
