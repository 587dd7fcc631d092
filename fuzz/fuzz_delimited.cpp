// Fuzzes the delimited text reader: arbitrary bytes are read as a csv file into a new workbook,
// with the first byte choosing the separator and the code page; what loads is written out again,
// and the written text must load once more without a refusal for malformed data.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "base/message.h"
#include "files/text.h"
#include "format/locale.h"
#include "model/workbook.h"

static int32_t Silent(const char16_t*, const char16_t*, uint32_t) {
  return AnswerOk;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  SetMessageHook(Silent);
  static const char16_t separators[] = {u';', u',', u'\t', u'|'};
  static const uint16_t codePages[] = {1252, 1252, 932, 1250};
  char16_t separator = separators[data[0] & 3];
  uint32_t book;
  if (!CreateWorkbook(nullptr, 0, &book)) return 0;
  GetWorkbook(book)->codePage = codePages[(data[0] >> 2) & 3];
  DelimitedStop stop;
  ReadDelimited(book, data + 1, size - 1, separator, &stop);
  if (stop.failure != DelimitedInvalid) {
    FILE* file = std::tmpfile();
    DelimitedFlavour flavour = separator == u'\t' ? DelimitedTxt : DelimitedCsv;
    char16_t written = flavour == DelimitedTxt ? u'\t' : ListSeparator[0];
    if (file && WriteDelimited(book, file, flavour)) {
      // What we write must read back as well-formed text.
      long length = std::ftell(file);
      std::rewind(file);
      auto* bytes = static_cast<uint8_t*>(std::malloc(length > 0 ? length : 1));
      size_t got = bytes ? std::fread(bytes, 1, length, file) : 0;
      uint32_t again;
      if (bytes && CreateWorkbook(nullptr, 0, &again)) {
        GetWorkbook(again)->codePage = GetWorkbook(book)->codePage;
        DelimitedStop second;
        ReadDelimited(again, bytes, got, written, &second);
        if (second.failure == DelimitedInvalid) std::abort();
      }
      std::free(bytes);
    }
    if (file) std::fclose(file);
  }
  CloseAllWorkbooks();
  return 0;
}
