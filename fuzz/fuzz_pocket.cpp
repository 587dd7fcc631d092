// Fuzzes the Pocket Excel reader on raw streams: whatever the bytes, the load ends with success
// or a message, and what it left can be listed, calculated, saved again and read back.
#include <cstddef>
#include <cstdint>

#include "base/alloc.h"
#include "base/message.h"
#include "files/pocket.h"
#include "fuzz_workbook.h"
#include "model/workbook.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  uint32_t book;
  if (CreateWorkbook(u"fuzz.pxl", 0, &book)) {
    ReadPocketWorkbook(book, data, size);
    ShowFirstCells(book);
    // What was read can always be written, and the writer's stream reads back.
    uint8_t* bytes = nullptr;
    size_t written = 0;
    uint32_t again;
    if (WritePocketBytes(book, &bytes, &written, nullptr) &&
        CreateWorkbook(u"again.pxl", 0, &again) && !ReadPocketWorkbook(again, bytes, written))
      __builtin_trap();
    Release(bytes);
  }
  CloseAllWorkbooks();
  ClearLastMessage();
  return 0;
}
