// Fuzzes the whole road of an .xls file: the compound container, its workbook stream and the
// BIFF records, as the load dispatch runs them. Whatever the bytes, the load ends with success or
// a message, and what it left can be listed and closed.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "base/message.h"
#include "files/biff_read.h"
#include "formula/recalc.h"
#include "model/workbook.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (4u << 20)) return 0;
  ClearLastMessage();
  uint32_t book;
  if (CreateWorkbook(u"fuzz.xls", 0, &book)) {
    if (!ReadXlsFile(book, data, size) && !LastMessage()) std::abort();
    const Workbook* wb = GetWorkbook(book);
    for (uint32_t s = 0; s < wb->sheetCount; s++) {
      Sheet* sheet = GetSheet(book, s);
      for (uint32_t i = 0; i < sheet->cells.count && i < 256; i++)
        EnsureCellText(book, s, sheet->cells.cells[i]);
    }
  }
  CloseAllWorkbooks();
  ClearLastMessage();
  return 0;
}
