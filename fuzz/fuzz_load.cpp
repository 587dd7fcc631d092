// Fuzzes the whole road of an .xls file: the compound container, its workbook stream and the
// BIFF records, as the load dispatch runs them. Whatever the bytes, the load ends with success or
// a message, and what it left can be listed and closed.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/message.h"
#include "files/biff_read.h"
#include "fuzz_workbook.h"
#include "model/workbook.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (4u << 20)) return 0;
  ClearLastMessage();
  uint32_t book;
  if (CreateWorkbook(u"fuzz.xls", 0, &book)) {
    if (!ReadXlsFile(book, data, size) && !LastMessage()) std::abort();
    ShowFirstCells(book);
  }
  CloseAllWorkbooks();
  ClearLastMessage();
  return 0;
}
