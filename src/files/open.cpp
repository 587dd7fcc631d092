// Open and save dispatch. One table row per file type names its extension, its reader and its
// writer; a type whose reader or writer is not there yet is refused with a message.
#include "files/open.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "files/biff_read.h"
#include "files/biff_write.h"
#include "files/pocket.h"
#include "files/safe_save.h"
#include "format/locale.h"
#include "model/workbook.h"

// Reads the bytes of a file into workbook `book`; `separator` is for delimited text only.
using FileReader = int (*)(uint32_t book, const uint8_t* bytes, size_t size, char16_t separator,
                           LoadReport* report);

struct SaveJob {
  uint32_t book;
  FileType type;
};

static int ReadCsv(uint32_t book, const uint8_t* bytes, size_t size, char16_t separator,
                   LoadReport* report) {
  return ReadDelimited(book, bytes, size, separator ? separator : ListSeparator[0],
                       &report->delimited);
}

static int ReadTxt(uint32_t book, const uint8_t* bytes, size_t size, char16_t separator,
                   LoadReport* report) {
  return ReadDelimited(book, bytes, size, separator ? separator : u'\t', &report->delimited);
}

static int ReadXls(uint32_t book, const uint8_t* bytes, size_t size, char16_t, LoadReport*) {
  return ReadXlsFile(book, bytes, size);
}

static int ReadPxl(uint32_t book, const uint8_t* bytes, size_t size, char16_t, LoadReport*) {
  return ReadPocketWorkbook(book, bytes, size);
}

static int WritePxl(FILE* file, void* context) {
  return WritePocketWorkbook(static_cast<SaveJob*>(context)->book, file);
}

static int WriteCsv(FILE* file, void* context) {
  return WriteDelimited(static_cast<SaveJob*>(context)->book, file, DelimitedCsv);
}

static int WriteTxt(FILE* file, void* context) {
  return WriteDelimited(static_cast<SaveJob*>(context)->book, file, DelimitedTxt);
}

static int WriteXls(FILE* file, void* context) {
  return WriteXlsFile(file, static_cast<SaveJob*>(context)->book, nullptr);
}

struct FileTypeRow {
  char16_t extension[4];
  FileReader read;   // null: not readable yet (bmp never)
  SaveWriter write;  // null: not writable yet
};

static const FileTypeRow FileTypes[] = {
    {u"csv", ReadCsv, WriteCsv}, {u"pxl", ReadPxl, WritePxl}, {u"xls", ReadXls, WriteXls},
    {u"xlt", ReadXls, WriteXls}, {u"bmp", nullptr, nullptr},  {u"txt", ReadTxt, WriteTxt},
    {u"pxt", ReadPxl, WritePxl},
};
static_assert(sizeof FileTypes / sizeof FileTypes[0] == FileUnknown);

FileType FileTypeFromName(const char16_t* path) {
  uint32_t length = TextLength(path);
  if (length < 5 || path[length - 4] != u'.') return FileUnknown;
  for (int32_t type = 0; type < FileUnknown; type++)
    if (CompareTextNoCaseN(path + length - 3, FileTypes[type].extension, 3) == 0)
      return static_cast<FileType>(type);
  return FileUnknown;
}

static void ShowWithPath(const char16_t* text, const char16_t* path) {
  std::u16string message(text);
  if (path) {
    message += u'\n';
    message += path;
  }
  ShowMessage(message.c_str(), MessageError);
}

static void RefuseType(const char16_t* path) {
  ShowWithPath(u"Ce type de fichier n'est pas encore pris en charge", path);
}

// The whole file in one large block (release it with ReleaseLarge and *room); null when it cannot
// be read. A regular file tells its size first and is read into a block of that size at once.
static uint8_t* ReadWholeFile(const char16_t* path, size_t* size, size_t* room) {
  std::string name = TextToUtf8(path);
  FILE* file = std::fopen(name.c_str(), "rb");
  if (!file) return nullptr;
  size_t expected = 0;
  if (fseeko(file, 0, SEEK_END) == 0) {
    off_t end = ftello(file);
    if (end > 0) expected = static_cast<size_t>(end);
  }
  std::rewind(file);
  uint8_t* bytes = nullptr;
  size_t used = 0, capacity = 0;
  for (;;) {
    if (used == capacity) {
      // One byte more than expected, so that the end is seen without growing.
      size_t grown = capacity ? capacity * 2 : expected + 1;
      auto* bigger = static_cast<uint8_t*>(AllocateLarge(grown));
      if (!bigger) {
        ReleaseLarge(bytes, capacity);
        std::fclose(file);
        return nullptr;
      }
      if (used) std::memcpy(bigger, bytes, used);
      ReleaseLarge(bytes, capacity);
      bytes = bigger;
      capacity = grown;
    }
    size_t n = std::fread(bytes + used, 1, capacity - used, file);
    used += n;
    if (n == 0) break;
  }
  bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) {
    ReleaseLarge(bytes, capacity);
    return nullptr;
  }
  *size = used;
  *room = capacity;
  return bytes;
}

// The first sheet takes the file's leaf name, at most 31 characters, cut at its last ".".
static void NameSheetAfterFile(uint32_t book, const char16_t* path) {
  const char16_t* leaf = path;
  for (const char16_t* p = path; *p; p++)
    if (*p == u'/' || *p == u'\\') leaf = p + 1;
  char16_t name[SheetNameCapacity];
  TextCopy(name, SheetNameCapacity, leaf);
  char16_t* dot = nullptr;
  for (char16_t* p = name; *p; p++)
    if (*p == u'.') dot = p;
  if (dot) *dot = 0;
  if (name[0]) TextCopy(GetSheet(book, 0)->name, SheetNameCapacity, name);
}

int LoadWorkbookFile(const char16_t* path, const char16_t* delimiter, LoadReport* report) {
  *report = LoadReport{};
  FileType type = delimiter ? FileCsv : FileTypeFromName(path);
  if (type == FileUnknown) {
    ShowMessage(u"Le type du fichier n'est pas reconnu", MessageError);
    return 0;
  }
  if (type == FileBmp) return 0;
  const FileTypeRow* row = &FileTypes[type];
  if (!row->read) {
    RefuseType(path);
    return 0;
  }
  size_t size = 0, room = 0;
  uint8_t* bytes = ReadWholeFile(path, &size, &room);
  if (!bytes) {
    ShowWithPath(u"Unable to open input file", path);
    return 0;
  }
  uint32_t book;
  if (!CreateWorkbook(path, NoViewUpdate, &book)) {
    ReleaseLarge(bytes, room);
    return 0;
  }
  report->book = book;
  report->bookCreated = 1;
  if (type == FileCsv || type == FileTxt) NameSheetAfterFile(book, path);
  int ok = row->read(book, bytes, size, delimiter ? delimiter[0] : 0, report);
  ReleaseLarge(bytes, room);
  return ok;
}

int SaveWorkbookFile(uint32_t book, const char16_t* path, int askActiveSheet) {
  FileType type = FileTypeFromName(path);
  if (type == FileUnknown) {
    ShowMessage(u"Le type du fichier n'est pas reconnu", MessageError);
    return 0;
  }
  const FileTypeRow* row = &FileTypes[type];
  if (!row->write) {
    RefuseType(path);
    return 0;
  }
  if ((type == FileCsv || type == FileTxt) && askActiveSheet && GetWorkbook(book)->sheetCount > 1 &&
      ShowMessage(u"Le type du fichier sélectionné ne prend pas en charge classeurs contenant "
                  u"plusieurs pages.\nPour enregistrer la feuille active seulement, cliquez sur "
                  u"OK.",
                  MessageOkCancel | MessageWarning) == AnswerCancel)
    return 0;
  SaveJob job{book, type};
  if (!SaveFileSafely(path, row->write, &job)) return 0;
  GetWorkbook(book)->dirty = 0;
  return 1;
}
