// Fuzzes the workbook stream reader on raw BIFF streams: whatever the bytes, the load ends with
// success or a message, and what it left in the workbook can be listed, calculated and closed.
#include <cstddef>
#include <cstdint>

#include "base/message.h"
#include "files/biff_read.h"
#include "fuzz_workbook.h"
#include "model/workbook.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  uint32_t book;
  if (CreateWorkbook(u"fuzz.xls", 0, &book)) {
    ReadBiffWorkbook(book, data, size);
    ShowFirstCells(book);
  }
  CloseAllWorkbooks();
  ClearLastMessage();
  return 0;
}
