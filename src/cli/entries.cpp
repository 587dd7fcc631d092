// The `entries` verb: each line of a text file becomes a cell of column A in a new workbook, read
// as a number, a boolean, an error or else a text, and the cells are listed.
#include <cstdio>
#include <string>

#include "base/alloc.h"
#include "base/text.h"
#include "cli/verbs.h"
#include "model/value.h"
#include "model/workbook.h"

// The value a typed line stands for: a number, a boolean or an error text; otherwise the text.
static Value EntryValue(const std::string& line) {
  char16_t* text = Utf8ToText(line.c_str(), line.size());
  if (!text) return ErrorValue(ErrNA);
  EvalContext ctx{};
  static const uint16_t readings[] = {ValueNumber, ValueBoolean, ValueError};
  for (uint16_t target : readings) {
    Value v = TextValue(TextDuplicate(text));
    CoerceValue(&v, target, &ctx);
    // A failed reading also ends as #VALUE!, which only the text "#VALUE!" itself means.
    bool read = v.tag == target && !(v.tag == ValueError && v.error == ErrValue &&
                                     !EqualTextNoCase(text, ErrorText(ErrValue)));
    if (read) {
      Release(text);
      return v;
    }
    FreeValue(&v);
  }
  return text[0] ? TextValue(text) : (Release(text), Value{});
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
    proto.value = EntryValue(line);
    if (proto.value.tag != ValueEmpty && !StoreCell(book, 0, &proto, 1, 0)) {
      FreeValue(&proto.value);
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
  if (ok) PrintCells(stdout, book, -1);
  CloseAllWorkbooks();
  return ok ? 0 : 1;
}
