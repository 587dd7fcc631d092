// Fuzzes the reading of typed text: arbitrary bytes are taken as UTF-8, read as a number, a
// boolean and an error, and the number printed back must read again as the same number.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/alloc.h"
#include "base/text.h"
#include "format/input.h"
#include "model/value.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  char16_t* text = Utf8ToText(reinterpret_cast<const char*>(data), size);
  if (!text) return 0;
  EvalContext ctx{};
  static const uint16_t targets[] = {ValueNumber, ValueBoolean, ValueError, ValueText, ValueArray};
  for (uint16_t target : targets) {
    Value v = TextValue(TextDuplicate(text));
    CoerceValue(&v, target, &ctx);
    if (v.tag == ValueNumber) {
      char16_t* printed = NumberToText(v.number, 17);
      double again = 0;
      if (printed && !ParseNumberText(printed, 0, TextLength(printed), &again, GroupingNone))
        std::abort();
      Release(printed);
    }
    FreeValue(&v);
  }
  Release(text);
  return 0;
}
