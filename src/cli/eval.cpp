// The `eval` verb: compiles one formula into cell A1 of a new workbook, calculates it and prints
// the text the cell shows. A formula that does not compile is refused with the message a user
// typing it would see.
#include <cstdio>

#include "base/alloc.h"
#include "base/check.h"
#include "base/text.h"
#include "cli/verbs.h"
#include "formula/parser.h"
#include "formula/recalc.h"
#include "model/workbook.h"

// The formula text with a leading "=" added when the user left it out.
static char16_t* FormulaArgument(const char* argument) {
  char16_t* text = Utf8ToText(argument);
  if (!text || text[0] == u'=') return text;
  uint32_t n = TextLength(text);
  auto* withEquals = static_cast<char16_t*>(Allocate((n + 2) * sizeof(char16_t)));
  if (withEquals) {
    withEquals[0] = u'=';
    TextCopy(withEquals + 1, n + 1, text);
  }
  Release(text);
  return withEquals;
}

const char* const FormulaError =
    "Erreur rencontr\xC3\xA9"
    "e dans la formula";

static int Refuse(const char* message) {
  std::fprintf(stderr, "tessarel-cli eval: %s\n", message);
  CloseAllWorkbooks();
  return 1;
}

int RunEval(int argc, char** argv) {
  CliOptions options;
  if (!ReadCliOptions(argc, argv, &options, "eval", CliLocaleOnly)) return 2;
  if (options.positionalCount != 1) {
    std::fputs("usage: tessarel-cli eval [--locale fr-FR|en-US] 'FORMULA'\n", stderr);
    return 2;
  }
  uint32_t book;
  if (!CreateWorkbook(nullptr, NoViewUpdate, &book)) return Refuse("out of memory");
  char16_t* text = FormulaArgument(options.positional[0]);
  if (!text) return Refuse("out of memory");
  ParseContext ctx{book, 0, A1Style, 0, 0, ReferencesAsWritten, SingleCellFormula};
  Cell proto{};
  proto.xf = DefaultCellXf;
  CompileStatus status = CompileFormula(&ctx, text, ClassCodeValue, &proto.formula);
  Release(text);
  switch (status) {
    case CompileOk:
      break;
    case CompileSyntaxError:
      return Refuse(FormulaError);
    case CompileTooLong:
      return Refuse("formula too long");
    default:
      return Refuse("out of memory");
  }
  if (!StoreCell(book, 0, &proto, StoreAndRecalc, KeepRowHeight)) {
    FreeTokens(&proto.formula);
    return Refuse("out of memory");
  }
  uint32_t index;
  CellArray* cells = &GetSheet(book, 0)->cells;
  bool stored = FindCell(cells, 0, 0, &index);
  DEBUG_ASSERT(stored);
  if (!stored || !EnsureCellText(book, 0, cells->cells[index])) return Refuse("out of memory");
  const char16_t* shown = cells->cells[index]->text;
  std::printf("%s\n", TextToUtf8(shown ? shown : u"").c_str());
  CloseAllWorkbooks();
  return 0;
}
