// The `entries` verb: each line of a text file is typed into a cell of column A of a new
// workbook, read under the regional settings as a formula, number, date, time, percent,
// currency, boolean, error or text, and the cells are listed.
#include <cstdio>
#include <string>

#include "base/alloc.h"
#include "base/text.h"
#include "cli/verbs.h"
#include "format/input.h"
#include "formula/parser.h"
#include "model/styles.h"
#include "model/value.h"
#include "model/workbook.h"

// A typed number takes the built-in format its form asks for: a date shows as a date, "12%" as a
// percent, and so on.
static int ApplyHintFormat(uint32_t book, const InputResult* input, Cell* proto) {
  int32_t format = FindNumberFormatById(
      book, static_cast<uint32_t>(BuiltInFormatForHint(input->hint, input->hintDetail)));
  if (format < 0) return 1;
  Xf xf = GetWorkbook(book)->xfs[proto->xf];
  xf.numberFormat = static_cast<uint16_t>(format);
  return InternXf(book, &xf, &proto->xf);
}

// Reads a typed line into the cell prototype as cell entry does: a formula is compiled, a
// number, boolean or error is stored as such, anything else as text. Returns 0 for a formula
// that does not compile, with the entry message on stderr, and leaves the prototype empty.
static int ReadEntry(uint32_t book, const std::string& line, Cell* proto) {
  char16_t* text = Utf8ToText(line.c_str(), line.size());
  if (!text) return 0;
  ParseContext ctx{
      book, 0, A1Style, proto->row, proto->col, ReferencesAsWritten, SingleCellFormula};
  InputResult input{};
  int ok = 1;
  switch (ClassifyInput(&ctx, text, &input)) {
    case InputEmpty:
      break;
    case InputFormula:
      if (CompileFormula(&ctx, text, ClassCodeValue, &proto->formula) != CompileOk) {
        std::fprintf(stderr, "tessarel-cli entries: line %u: %s\n", proto->row + 1u, FormulaError);
        ok = 0;
      }
      break;
    case InputNumber:
      proto->value = NumberValue(input.number);
      ok = ApplyHintFormat(book, &input, proto);
      break;
    case InputBoolean:
      proto->value = BooleanValue(input.boolean != 0);
      break;
    case InputError:
      proto->value = ErrorValue(input.error);
      break;
    case InputText:
      // A text that starts like a formula but does not compile is refused, as at the keyboard;
      // a lone "=", "+" or "-" is text.
      if (line.size() > 1 && (text[0] == u'=' || text[0] == u'+' || text[0] == u'-')) {
        std::fprintf(stderr, "tessarel-cli entries: line %u: %s\n", proto->row + 1u, FormulaError);
        ok = 0;
        break;
      }
      proto->value = TextValue(text);
      text = nullptr;
      break;
  }
  Release(text);
  return ok;
}

int RunEntries(int argc, char** argv) {
  CliOptions options;
  if (!ReadCliOptions(argc, argv, &options, "entries", 0, 0)) return 2;
  if (options.positionalCount != 1) {
    std::fputs("usage: tessarel-cli entries [--locale fr-FR|en-US] FILE\n", stderr);
    return 2;
  }
  FILE* file = std::fopen(options.positional[0], "rb");
  if (!file) {
    std::fprintf(stderr, "tessarel-cli entries: cannot open '%s'\n", options.positional[0]);
    return 1;
  }
  uint32_t book;
  if (!CreateWorkbook(nullptr, 0, &book)) {
    std::fclose(file);
    return 1;
  }
  std::string line;
  uint32_t row = 0;
  int c;
  bool ok = true;
  auto storeLine = [&]() {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (row > MaxRow) return;
    Cell proto{};
    proto.row = static_cast<uint16_t>(row++);
    proto.xf = DefaultCellXf;
    if (!ReadEntry(book, line, &proto)) {
      ok = false;
    } else if ((proto.value.tag != ValueEmpty || proto.formula.bytes) &&
               !StoreCell(book, 0, &proto, StoreAndRecalc, KeepRowHeight)) {
      FreeValue(&proto.value);
      FreeTokens(&proto.formula);
      ok = false;
    }
    line.clear();
  };
  while ((c = std::fgetc(file)) != EOF) {
    if (c == '\n')
      storeLine();
    else
      line += static_cast<char>(c);
  }
  if (!line.empty()) storeLine();
  std::fclose(file);
  PrintCells(stdout, book, -1);
  CloseAllWorkbooks();
  return ok ? 0 : 1;
}
