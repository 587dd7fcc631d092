// What the parts of the BIFF writer share: the stream under construction (one growing block, so
// that record positions are plain offsets and the few fields written late are patched in place),
// the record helpers, the shared string table and the Excel 95 list of external sheets.
#pragma once
#include <cstdint>

#include "files/biff_write.h"
#include "files/code_page.h"
#include "formula/tokens.h"

// BIFF8 bodies hold at most 8224 bytes; BIFF5 bodies 2080. Longer data goes on in CONTINUE.
constexpr uint32_t Biff8RecordLimit = 8224;
constexpr uint32_t Biff5RecordLimit = 2080;
// Cell texts and formula results of an Excel 95 file hold at most this many characters.
constexpr uint32_t Biff5TextLimit = 255;

// The shared string table: each distinct cell text once, in the order first met. Texts are
// borrowed from the cells, which do not change while a save runs.
struct SstTable {
  const char16_t** texts;
  uint32_t count;
  uint32_t capacity;
  uint32_t total;   // LABELSST cells, counted for the SST header
  uint32_t* slots;  // open addressing over texts: index + 1, 0 for an empty slot
  uint32_t slotCount;
};

// One entry of an Excel 95 EXTERNSHEET list.
enum ExternForm : uint8_t {
  ExternOwnBook,    // the workbook itself: 3-D references name their sheets in the token
  ExternOwnSheet,   // "\3name": a sheet of the workbook, for the names local to it
  ExternBook,       // another book, an add-in or "!name", followed by the names used in it
  ExternBookSheet,  // one sheet of another book
};
struct ExternEntry {
  uint8_t form;          // ExternForm
  int32_t externalBook;  // the workbook's link table entry of the book, -1 for the own one
  int32_t sheet;         // the own sheet or the sheet of the other book, -1 for none
};

struct BiffWriter {
  uint32_t book;
  uint8_t version;  // 8 or 7
  uint8_t* bytes;
  uint32_t size;
  uint32_t capacity;
  bool failed;                     // memory ran out: the stream is abandoned
  CodePage page;                   // of the 8-bit texts of an Excel 95 file
  uint16_t codePage;               // the CODEPAGE word written
  uint32_t* sheetOffsetPositions;  // where each BOUNDSHEET's stream offset is patched
  SstTable sst;
  // Excel 95: the EXTERNSHEET list; the first entry is the workbook itself.
  ExternEntry* externs;
  uint32_t externCount;
  int32_t* bookEntries;   // per external book: its entry (with the book's names), -1 for none
  int32_t* linkEntries;   // per sheet link of another file: its entry, -1 for none
  int32_t* sheetEntries;  // per own sheet: the entry "\3name" naming it
  // The sheet being written: its cells and row records that the version holds (Excel 95 ends
  // at row 16,384), which are the first ones of the sorted arrays.
  uint32_t cellCount;
  uint32_t rowCount;
  BiffSaveReport report;
};

// Room for `count` more bytes at the end of the stream; null (and `failed`) on lost memory.
uint8_t* Reserve(BiffWriter* w, uint32_t count);
// The header of a record whose body is `length` bytes, and the room for that body.
uint8_t* BeginRecord(BiffWriter* w, uint16_t id, uint32_t length);
void WriteRecord(BiffWriter* w, uint16_t id, const void* body, uint32_t length);
void WriteEmptyRecord(BiffWriter* w, uint16_t id);
void WriteSmallRecord(BiffWriter* w, uint16_t id, uint16_t word);
void WriteWordsRecord(BiffWriter* w, uint16_t id, uint16_t first, uint16_t second);
void WriteDoubleRecord(BiffWriter* w, uint16_t id, double value);
// A record whose body may pass the version's limit: the rest goes on in CONTINUE records.
void WriteLongRecord(BiffWriter* w, uint16_t id, const uint8_t* body, uint32_t length);
// The BOF of a substream of `type` (5 globals, 0x10 worksheet, 0x20 chart, 0x40 macro sheet).
void WriteBof(BiffWriter* w, uint16_t type);

// Texts. Wide characters all below 256 go out one byte each (option byte 0), others 16-bit
// (option byte 1). Returns the bytes a BIFF8 string body of `text` takes, option byte included.
bool TextIsNarrow(const char16_t* text, uint32_t length);
uint32_t Biff8StringSize(const char16_t* text, uint32_t length);
// Writes `length` characters at `p`, two bytes each when `wide`, else one.
void PutBiff8Chars(uint8_t* p, const char16_t* text, uint32_t length, bool wide);
// Writes the option byte and characters at `p`; returns the bytes written.
uint32_t PutBiff8String(uint8_t* p, const char16_t* text, uint32_t length);
// The text in the Excel 95 code page, at most `limit` bytes, into `out`; returns the byte count.
uint32_t NarrowText(BiffWriter* w, const char16_t* text, uint32_t length, uint8_t* out,
                    uint32_t limit);

// A string record body (STRING, or a long one) whose characters may go on in CONTINUE records,
// each repeating the option byte: `head` bytes before the string, then the string's u16 length.
void WriteStringRecord(BiffWriter* w, uint16_t id, const uint8_t* head, uint32_t headLength,
                       const char16_t* text, uint32_t length);

// The shared string table (biff_write_sst.cpp).
int AddSstText(BiffWriter* w, const char16_t* text, uint32_t* index);
int FindSstText(const BiffWriter* w, const char16_t* text, uint32_t* index);
void WriteSst(BiffWriter* w);
void FreeSst(SstTable* sst);

// The parts of the stream (biff_write_globals.cpp, biff_write_sheet.cpp, biff_write_cells.cpp).
void WriteGlobals(BiffWriter* w);
void WriteSheetSubstream(BiffWriter* w, uint32_t sheet);
void WriteSheetCells(BiffWriter* w, uint32_t sheet, uint32_t* blockPositions);
// Excel 95: the EXTERNSHEET list and its EXTERNNAME records, written from the tables built by
// BuildExternList (biff_write_downgrade.cpp).
int BuildExternList(BiffWriter* w);
void WriteExternList(BiffWriter* w);
void FreeExternList(BiffWriter* w);

// BIFF8 tokens to BIFF5 tokens in a fresh block the caller frees. Returns 1 on success, 0 on lost
// memory, and -1 when the formula reaches what BIFF5 cannot say (rows past 16,383, a link that
// leads nowhere): the caller then keeps the cell's value.
int DowngradeTokens(BiffWriter* w, const FormulaTokens* in, FormulaTokens* out);
