// Fuzzes the number format engine with codes as files bring them: the first eight bytes are the
// value, the rest a format code in UTF-8. Every code must format every value, with and without a
// measure, and a text through its text section, into a terminated text that stays inside the
// output buffer.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "format/number_format.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < sizeof(double)) return 0;
  double value;
  std::memcpy(&value, data, sizeof value);
  char16_t* code =
      Utf8ToText(reinterpret_cast<const char*>(data + sizeof value), size - sizeof value);
  if (!code) return 0;
  FixedWidthMeasure measure = MakeFixedWidthMeasure(3);
  for (int pass = 0; pass < 3; pass++) {
    uint8_t color = 255;
    const char16_t* text =
        FormatNumber(value, code, pass == 1, pass == 2 ? &measure.base : nullptr, 300, &color);
    if (TextLength(text) >= FormatOutputCapacity) std::abort();
    if (color != 255 && color >= FormatColorCount) std::abort();
    FormatOutsideCalendar(value, code, pass == 1);
  }
  // The same code as the text section of a string value: the code itself stands in for the text.
  const char16_t* shown = FormatText(code, code, nullptr);
  if (shown && TextLength(shown) >= FormatOutputCapacity) std::abort();
  Release(code);
  return 0;
}
