// The verb table of tessarel-cli and the options every verb shares.
#include "cli/verbs.h"

#include <cstdlib>
#include <cstring>

#include "format/locale.h"

const CliVerb CliVerbs[] = {
    {"cells", "cells [--recalc] [--sheet N] FILE: one line per stored cell of FILE", RunCells},
    {"convert", "convert IN OUT: open IN and save it as OUT, the type by OUT's extension",
     RunConvert},
    {"entries", "entries FILE: store each line of FILE as a typed entry in column A, list cells",
     RunEntries},
    {"eval", "eval 'FORMULA': calculate one formula and print the text its cell shows", RunEval},
    {"functions", "functions: the function table, one row per function", RunFunctions},
    {nullptr, nullptr, nullptr},
};

int ReadCliOptions(int argc, char** argv, CliOptions* options, const char* verb,
                   uint32_t accepted) {
  *options =
      CliOptions{.recalc = 0, .biff5 = 0, .sheet = -1, .positionalCount = 0, .positional = nullptr};
  LocaleId locale = LocaleFromEnvironment();
  int i = 0;
  for (; i < argc && argv[i][0] == '-' && argv[i][1] == '-'; i++) {
    const char* option = argv[i];
    if (!std::strcmp(option, "--locale") && i + 1 < argc) {
      if (!LocaleFromTag(argv[++i], &locale)) {
        std::fprintf(stderr, "tessarel-cli %s: unknown locale '%s' (fr-FR or en-US)\n", verb,
                     argv[i]);
        return 0;
      }
    } else if ((accepted & CliRecalcOption) && !std::strcmp(option, "--recalc")) {
      options->recalc = 1;
    } else if ((accepted & CliBiff5Option) && !std::strcmp(option, "--biff5")) {
      options->biff5 = 1;
    } else if ((accepted & CliSheetOption) && !std::strcmp(option, "--sheet") && i + 1 < argc) {
      char* end;
      long n = std::strtol(argv[++i], &end, 10);
      if (*end || n < 0 || n > 32766) {
        std::fprintf(stderr, "tessarel-cli %s: --sheet takes a sheet index from 0\n", verb);
        return 0;
      }
      options->sheet = static_cast<int32_t>(n);
    } else {
      std::fprintf(stderr, "tessarel-cli %s: unknown option '%s'\n", verb, option);
      return 0;
    }
  }
  ApplyLocale(locale);
  options->positionalCount = argc - i;
  options->positional = argv + i;
  return 1;
}
