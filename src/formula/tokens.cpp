// Ownership of token strings: copy, release and compare.
#include "formula/tokens.h"

#include <cstring>

#include "base/alloc.h"

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
