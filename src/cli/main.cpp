// tessarel-cli: the batch program. Reads options and a verb, runs the verb on the core library,
// prints results on stdout and messages on stderr. Exit status: 0 success, 1 the file or formula
// was refused, 2 a usage error.
#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "cli/verbs.h"

#ifndef TESSAREL_VERSION
#define TESSAREL_VERSION "0"
#endif

static void PrintOutOfMemory() {
  std::fputs("tessarel-cli: out of memory\n", stderr);
}

static int32_t PrintMessage(const char16_t* text, const char16_t*, uint32_t flags) {
  std::fprintf(stderr, "%s\n", TextToUtf8(text).c_str());
  return (flags & 0xF) == MessageYesNo || (flags & 0xF) == MessageYesNoCancel ? AnswerYes
                                                                              : AnswerOk;
}

static void PrintUsage(FILE* out) {
  std::fputs(
      "usage: tessarel-cli [--help] [--version] VERB [OPTIONS] [ARGUMENTS]\n"
      "\n"
      "Verbs:\n",
      out);
  for (const CliVerb* verb = CliVerbs; verb->name; verb++)
    std::fprintf(out, "  %-10s %s\n", verb->name, verb->summary);
  std::fputs(
      "\n"
      "Options of every verb:\n"
      "  --locale fr-FR|en-US   regional settings (default: from LC_ALL, LC_NUMERIC, LANG;\n"
      "                         fr-FR when none is set or it is C/POSIX)\n",
      out);
}

int main(int argc, char** argv) {
  SetOutOfMemoryHook(PrintOutOfMemory);
  SetMessageHook(PrintMessage);
  if (argc < 2) {
    PrintUsage(stderr);
    return 2;
  }
  if (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h")) {
    PrintUsage(stdout);
    return 0;
  }
  if (!std::strcmp(argv[1], "--version")) {
    std::printf("tessarel-cli %s\n", TESSAREL_VERSION);
    return 0;
  }
  for (const CliVerb* verb = CliVerbs; verb->name; verb++)
    if (!std::strcmp(argv[1], verb->name)) return verb->run(argc - 2, argv + 2);
  std::fprintf(stderr, "tessarel-cli: unknown verb '%s'\n", argv[1]);
  PrintUsage(stderr);
  return 2;
}
