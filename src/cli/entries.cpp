// The `entries` verb: each line of a text file is typed into a cell of column A of a new
// workbook, read under the regional settings as a formula, number, date, time, percent,
// currency, boolean, error or text, and the cells are listed.
#include <cstdio>
#include <string>

#include "base/alloc.h"
#include "base/text.h"
#include "cli/verbs.h"
#include "edit/entry.h"
#include "model/workbook.h"

// Types one line into column A as cell entry does; a formula that does not compile is refused
// with the entry message on stderr.
static int StoreLine(uint32_t book, uint32_t row, const std::string& line) {
  char16_t* text = Utf8ToText(line.c_str(), line.size());
  if (!text) return 0;
  uint16_t r = static_cast<uint16_t>(row);
  EntryTarget target{.book = book,
                     .sheet = 0,
                     .range = Range{r, r, 0, 0},
                     .anchorRow = r,
                     .anchorCol = 0,
                     .arrayEntry = 0,
                     .fillSelection = 0,
                     .loading = 0};
  EntryStatus status;
  // An empty line stores nothing: the listing shows stored cells only.
  int ok = !text[0] || StoreEntry(text, &target, &status);
  if (!ok && status == EntryBadFormula)
    std::fprintf(stderr, "tessarel-cli entries: line %u: %s\n", row + 1u, FormulaError);
  Release(text);
  return ok;
}

int RunEntries(int argc, char** argv) {
  CliOptions options;
  if (!ReadCliOptions(argc, argv, &options, "entries", CliLocaleOnly)) return 2;
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
  if (!CreateWorkbook(nullptr, NoViewUpdate, &book)) {
    std::fclose(file);
    return 1;
  }
  std::string line;
  uint32_t row = 0;
  int c;
  bool ok = true;
  auto storeLine = [&]() {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (row <= MaxRow && !StoreLine(book, row, line)) ok = false;
    row++;
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
