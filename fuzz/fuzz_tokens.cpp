// Fuzzes token strings from outside: the first two bytes give the length of the tokens, the rest
// are tokens then extra data. Whatever the validator accepts must walk, shift, validate again and
// evaluate without a fault, in a workbook with cells, a second sheet and names to reach.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "formula/evaluator.h"
#include "formula/tokens.h"
#include "model/names.h"
#include "model/workbook.h"

static void StoreNumber(uint32_t book, uint32_t sheet, uint16_t row, uint8_t col, double d) {
  Cell proto{};
  proto.row = row;
  proto.col = col;
  proto.xf = DefaultCellXf;
  proto.value = NumberValue(d);
  StoreCell(book, sheet, &proto, 0, 0);
}

static void AddNamedFormula(uint32_t book, const char16_t* text, const FormulaTokens* tokens) {
  DefinedName name{};
  name.name = TextDuplicate(text);
  if (!CopyTokens(&name.formula, tokens) || !AddName(book, &name, nullptr)) {
    Release(name.name);
    FreeTokens(&name.formula);
  }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3 || size > 4096) return 0;
  uint16_t length = static_cast<uint16_t>(data[0] | (data[1] << 8));
  if (length == 0 || length > size - 2) return 0;
  FormulaTokens tokens{};
  tokens.length = length;
  tokens.extraLength = static_cast<uint16_t>(size - 2 - length);
  tokens.bytes = static_cast<uint8_t*>(Allocate(size - 2));
  std::memcpy(tokens.bytes, data + 2, size - 2);
  if (!ValidateTokens(&tokens, TokensForName, nullptr)) {
    FreeTokens(&tokens);
    return 0;
  }
  uint32_t book;
  if (CreateWorkbook(nullptr, 0, &book)) {
    InsertSheet(book, 1, nullptr, SheetWorksheet, 0, 0);
    for (uint8_t i = 0; i < 4; i++) StoreNumber(book, 0, i, i, i + 0.5);
    // The formula is reachable as a name too, so that names nest and refer to themselves.
    AddNamedFormula(book, u"Fuzz", &tokens);
    AddNamedFormula(book, u"Again", &tokens);
    LinkRequest request{book, book, 0, 1};
    int32_t link;
    FindOrAddLink(&request, &link);

    FormulaTokens shifted;
    if (CopyTokens(&shifted, &tokens)) {
      ShiftRelativeRefs(&shifted, 3, -2);
      ValidateTokens(&shifted, TokensForName, nullptr);
      FreeTokens(&shifted);
    }
    for (int32_t arrayMode = 0; arrayMode < 2; arrayMode++) {
      EvalContext ctx{book, 0, 5, 2, arrayMode};
      Value result{};
      Evaluate(&tokens, &result, &ctx);
      FreeValue(&result);
    }
  }
  CloseAllWorkbooks();
  FreeTokens(&tokens);
  return 0;
}
