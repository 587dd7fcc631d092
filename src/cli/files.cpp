// The verbs that read files: `cells` lists what a file holds, `convert` opens one file and saves
// it under another name, in the type that name says.
#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "cli/verbs.h"
#include "files/biff_write.h"
#include "files/open.h"
#include "files/pocket.h"
#include "formula/recalc.h"
#include "model/workbook.h"

// Loads the file named on the command line; on failure says why on stderr (the reader's own
// message has gone there through the message hook) and returns 0.
static int LoadForVerb(const char* verb, const char* name, uint32_t* book) {
  char16_t* path = Utf8ToText(name);
  if (!path) return 0;
  LoadReport report;
  int ok = LoadWorkbookFile(path, nullptr, &report);
  Release(path);
  if (!ok && report.delimited.failure == DelimitedBadFormula)
    std::fprintf(stderr, "tessarel-cli %s: %s: row %u, column %u: %s\n", verb, name,
                 report.delimited.row + 1, report.delimited.col + 1, FormulaError);
  if (ok) *book = report.book;
  return ok;
}

// Without --recalc the listing shows what the file holds: formulas the file asks to be worked out
// again on opening, and volatile ones, keep the results the file stored for them.
static void KeepLoadedValues(uint32_t book) {
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    const Sheet* sheet = wb->sheets[s];
    for (uint32_t i = 0; i < sheet->cells.count; i++)
      if (sheet->cells.cells[i]->state == CellDirty) sheet->cells.cells[i]->state = CellCalculated;
  }
}

int RunCells(int argc, char** argv) {
  CliOptions options;
  if (!ReadCliOptions(argc, argv, &options, "cells", CliRecalcOption | CliSheetOption)) return 2;
  if (options.positionalCount != 1) {
    std::fputs("usage: tessarel-cli cells [--recalc] [--sheet N] [--locale fr-FR|en-US] FILE\n",
               stderr);
    return 2;
  }
  uint32_t book;
  if (!LoadForVerb("cells", options.positional[0], &book)) {
    CloseAllWorkbooks();
    return 1;
  }
  if (options.sheet >= 0 && static_cast<uint32_t>(options.sheet) >= GetWorkbook(book)->sheetCount) {
    std::fprintf(stderr, "tessarel-cli cells: %s has no sheet %d\n", options.positional[0],
                 options.sheet);
    CloseAllWorkbooks();
    return 1;
  }
  if (options.recalc) {
    App.currentBook = book;
    RecalculateWorkbook();
  } else {
    KeepLoadedValues(book);
  }
  PrintCells(stdout, book, options.sheet);
  CloseAllWorkbooks();
  return 0;
}

// What a Pocket Excel file cannot hold is left out of it: say how much, and why, on stderr.
static void ReportPocketDrops(uint32_t book, const char* target) {
  PocketDrops drops;
  CountPocketDrops(book, &drops);
  for (int32_t reason = PocketKept + 1; reason < PocketDropKinds; reason++)
    if (drops.count[reason])
      std::fprintf(stderr, "tessarel-cli convert: %s: %s: %u %s\n", target,
                   reason < PocketDropFormulaKinds ? "saved as values" : "left out",
                   drops.count[reason], PocketDropName(reason));
}

int RunConvert(int argc, char** argv) {
  CliOptions options;
  if (!ReadCliOptions(argc, argv, &options, "convert", CliBiff5Option)) return 2;
  // --biff5 may also follow the file names.
  if (options.positionalCount == 3 && !std::strcmp(options.positional[2], "--biff5")) {
    options.biff5 = 1;
    options.positionalCount = 2;
  }
  if (options.positionalCount != 2) {
    std::fputs("usage: tessarel-cli convert [--locale fr-FR|en-US] [--biff5] IN OUT\n", stderr);
    return 2;
  }
  const char* target = options.positional[1];
  uint32_t book;
  if (!LoadForVerb("convert", options.positional[0], &book)) {
    CloseAllWorkbooks();
    return 1;
  }
  char16_t* path = Utf8ToText(target);
  FileType type = FileTypeFromName(path);
  Workbook* wb = GetWorkbook(book);
  wb->biffVersion = options.biff5 ? 7 : 8;
  // Nobody is there to answer the question a one-sheet type asks: say what is written instead.
  if ((type == FileCsv || type == FileTxt) && wb->sheetCount > 1)
    std::fprintf(stderr,
                 "tessarel-cli convert: %s holds one sheet: writing the active sheet '%s'\n",
                 target, TextToUtf8(wb->sheets[wb->currentSheet]->name).c_str());
  if (type == FilePxl || type == FilePxt) ReportPocketDrops(book, target);
  int ok = path && SaveWorkbookFile(book, path, 0);
  Release(path);
  const BiffSaveReport* report = LastBiffSaveReport();
  if (ok && (type == FileXls || type == FileXlt)) {
    if (report->formulasAsValues)
      std::fprintf(stderr,
                   "tessarel-cli convert: %s: %u formulas reach past row 16384 and keep their "
                   "values\n",
                   target, report->formulasAsValues);
    if (report->textsShortened)
      std::fprintf(stderr, "tessarel-cli convert: %s: %u texts cut to 255 characters\n", target,
                   report->textsShortened);
    if (report->cellsDropped)
      std::fprintf(stderr, "tessarel-cli convert: %s: %u cells past row 16384 not kept\n", target,
                   report->cellsDropped);
    if (report->mergesDropped)
      std::fprintf(stderr, "tessarel-cli convert: %s: %u merged areas not kept\n", target,
                   report->mergesDropped);
  }
  CloseAllWorkbooks();
  return ok ? 0 : 1;
}
