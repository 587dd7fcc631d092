// The `functions` verb: the function table, main rows then add-in rows, one per line: name, BIFF
// number (-1 for add-in rows), category code, argument letters, help text, tab-separated.
#include <cstdio>

#include "base/text.h"
#include "cli/verbs.h"
#include "functions/table.h"

static void PrintRow(const FunctionEntry* e, long number, uint32_t category) {
  std::printf("%s\t%ld\t%u\t%s\t%s\n", TextToUtf8(e->name).c_str(), number, category, e->args,
              TextToUtf8(e->help).c_str());
}

int RunFunctions(int argc, char** argv) {
  CliOptions options;
  if (!ReadCliOptions(argc, argv, &options, "functions", CliLocaleOnly)) return 2;
  if (options.positionalCount != 0) {
    std::fputs("usage: tessarel-cli functions [--locale fr-FR|en-US]\n", stderr);
    return 2;
  }
  const FunctionTables* t = ActiveFunctionTables();
  for (uint32_t i = 0; i < t->mainCount; i++)
    PrintRow(&t->main[i], FunctionNumber(&t->main[i]), FunctionCategory(&t->main[i]));
  for (uint32_t i = 0; i < t->addInCount; i++) PrintRow(&t->addIn[i], -1, t->addIn[i].info & 0xFF);
  return 0;
}
