// Fuzzes formula text: arbitrary bytes taken as UTF-8 are classified as typed input, compiled
// in A1 and R1C1 style against a workbook with sheets and names, checked by the token validator
// (whatever the parser writes, a file reader would have to accept), printed back, compiled again
// and evaluated.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/alloc.h"
#include "base/text.h"
#include "format/input.h"
#include "formula/evaluator.h"
#include "formula/formula_text.h"
#include "formula/parser.h"
#include "model/workbook.h"

static uint32_t TheBook() {
  static uint32_t book = UINT32_MAX;
  if (book == UINT32_MAX) {
    if (!CreateWorkbook(u"C:\\d\\Fuzz.xls", 0, &book) ||
        !InsertSheet(book, 1, u"Feuil 2", SheetWorksheet, 0, 0))
      std::abort();
  }
  return book;
}

// Compiles and prints; null when the text does not compile.
static char16_t* Reprint(const ParseContext* ctx, const char16_t* text, FormulaTokens* keep) {
  FormulaTokens tokens{};
  if (CompileFormula(ctx, text, ClassCodeValue, &tokens) != CompileOk) return nullptr;
  const char* reason = nullptr;
  if (!ValidateTokens(&tokens, TokensForCell, &reason)) std::abort();
  char16_t* printed = FormulaText(ctx->book, &tokens, ctx->baseRow, ctx->baseColumn, ctx->a1Style,
                                  ctx->baseRow, ctx->baseColumn);
  if (keep)
    *keep = tokens;
  else
    FreeTokens(&tokens);
  return printed;
}

static void CompileAndRun(const ParseContext* ctx, const char16_t* text) {
  FormulaTokens tokens{};
  // The printed text need not read back the same: printing normalises ("230 :2" prints "230:2",
  // which reads as the rows 2:230; "++3" prints "+3", which reads as the number 3). The round-trip
  // tests hold the texts that must; here the printed text only has to compile safely.
  char16_t* first = Reprint(ctx, text, &tokens);
  char16_t* second = first ? Reprint(ctx, first, nullptr) : nullptr;
  Release(first);
  Release(second);
  if (!tokens.bytes) return;
  Value result{};
  EvalContext ectx{ctx->book, 0, 0, 0, 0};
  Evaluate(&tokens, &result, &ectx);
  FreeValue(&result);
  FreeTokens(&tokens);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;
  char16_t* text = Utf8ToText(reinterpret_cast<const char*>(data), size);
  if (!text) return 0;
  uint32_t book = TheBook();
  // Names and links made by one input stay for the next, as in a long editing session; start
  // over now and then so the tables stay small.
  static uint32_t runs = 0;
  if (++runs % 512 == 0) {
    FreeNames(book);
    FreeLinks(book);
  }
  for (int a1Style = 1; a1Style >= 0; a1Style--) {
    ParseContext ctx{book, 0, a1Style, 3, 2, 0, 0};
    InputResult input{};
    ClassifyInput(&ctx, text, &input);
    CompileAndRun(&ctx, text);
  }
  Release(text);
  return 0;
}
