// The formula token string: reverse Polish BIFF8 tokens followed by their extra data (array
// constants, area lists), in one owned block.
#pragma once
#include <cstdint>

struct FormulaTokens {
  uint16_t length;       // bytes of tokens
  uint16_t extraLength;  // bytes of extra data behind the tokens
  uint8_t* bytes;        // length + extraLength bytes, owned; null without a formula
};

// Fresh block of both parts; returns 0 on lost memory (target is then empty).
int CopyTokens(FormulaTokens* target, const FormulaTokens* source);
void FreeTokens(FormulaTokens* tokens);
bool EqualTokens(const FormulaTokens* a, const FormulaTokens* b);
