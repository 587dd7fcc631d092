// What the parts of the BIFF reader share: the record cursor over the stream, the bounded
// reader of one record's body, the load state, and the record handlers of each part.
#pragma once
#include <cstddef>
#include <cstdint>

#include "base/alloc.h"
#include "files/code_page.h"
#include "formula/tokens.h"
#include "model/names.h"
#include "model/value.h"

constexpr uint16_t BiffContinue = 0x003C;
constexpr uint16_t BiffEof = 0x000A;

struct BiffRecord {
  uint16_t id;
  uint16_t length;
  const uint8_t* body;
  size_t offset;  // of the record's header in the stream, for messages
};

// Walks the records of the stream. A record whose header or body runs past the end of the
// stream ends the walk and marks the stream as cut short.
struct BiffCursor {
  const uint8_t* data;
  size_t size;
  size_t position;
  bool truncated;
};
int NextRecord(BiffCursor* cursor, BiffRecord* record);
// The id of the record after the current one, or -1 at the end.
int32_t PeekRecordId(const BiffCursor* cursor);

// Reads the fields of one record body; reading past the end sets `overrun` and gives zeros, so
// a handler reads on and the caller refuses the record once. With a cursor, the body goes on
// into the CONTINUE records that follow (for the shared string table and long records).
struct BiffBody {
  const uint8_t* bytes;
  uint32_t length;
  uint32_t position;
  bool overrun;
  BiffCursor* continues;  // null: the body ends with its record
};
void BeginBody(BiffBody* body, const BiffRecord* record, BiffCursor* continues = nullptr);
// True when at least `count` bytes are left in this record (no CONTINUE is consulted).
inline bool HasBytes(const BiffBody* body, uint32_t count) {
  return body->position <= body->length && body->length - body->position >= count;
}
inline uint32_t BytesLeft(const BiffBody* body) {
  return body->position < body->length ? body->length - body->position : 0;
}
// Moves into the next CONTINUE record; returns 0 when there is none.
int NextContinue(BiffBody* body);
uint8_t ReadByte(BiffBody* body);
uint16_t ReadWord(BiffBody* body);
uint32_t ReadLong(BiffBody* body);
double ReadNumber(BiffBody* body);
// A pointer to `count` bytes inside this record, or null (and overrun) when they are not there.
const uint8_t* ReadBytes(BiffBody* body, uint32_t count);
void SkipBytes(BiffBody* body, uint32_t count);  // may cross into CONTINUE records

struct ExternSheetEntry {
  char16_t* name;  // owned, for an ordinary external sheet, with its encoding mark first
  int32_t kind;    // ExternalBookKind
  uint32_t nameCount;
  ExternalName* names;  // from EXTERNNAME, in file order; texts owned
};

struct SharedFormula {
  uint16_t row;
  uint8_t col;
  uint8_t version;  // the token form: 7 until upgraded per cell
  FormulaTokens tokens;
};

// The state of one load; made afresh for each, so loads never share anything.
struct BiffLoad {
  uint32_t book;
  uint8_t version;  // 7 or 8
  CodePage page;    // of the 8-bit texts of a BIFF5 file
  BiffCursor cursor;
  uint32_t sheetCount;  // BOUNDSHEETs seen
  int32_t sheet;        // the sheet whose substream is being read, -1 in the globals
  uint32_t activeTab;
  uint32_t sstCount;  // strings read
  uint32_t sstCapacity;
  char16_t** sst;
  uint32_t externSheetCount;  // BIFF5: the list of the substream being read
  ExternSheetEntry* externSheets;
  uint32_t globalExternSheetCount;  // BIFF5: the globals' list, for sheets that have none
  ExternSheetEntry* globalExternSheets;
  int32_t lastExternalBook;  // the link table entry EXTERNNAME appends to, -1 for none
  uint32_t sharedCount;
  uint32_t sharedCapacity;
  SharedFormula* shared;
  bool fontSeen;
  bool xfSeen;
  uint32_t fontCount;    // FONT records read
  uint16_t* nameSheets;  // per name read in a BIFF5 file: its EXTERNSHEET index, for the fix-up
  uint32_t nameSheetCount;
  // The formula cell a STRING record gives its text to.
  bool stringPending;
  uint16_t stringRow;
  uint8_t stringCol;
  size_t recordOffset;  // of the record being handled, for messages
  const char* failure;  // why the load failed, when it did
  bool failureAsIs;     // the reason is the whole message (password, missing workbook)
  bool failureTold;     // the message has been shown already (lost memory)
};

// Appends one zeroed entry to a model table that grows one at a time (its block size always
// equals its count); null on lost memory, the table then as it was.
template <typename T>
T* AppendEntry(T** items, uint32_t* count) {
  void* grown = Reallocate(*items, *count * sizeof(T), (*count + 1) * sizeof(T));
  if (!grown) return nullptr;
  *items = static_cast<T*>(grown);
  return &(*items)[(*count)++];
}

// Refuses the load: keeps the first reason and returns 0, so handlers `return Fail(...)`. The
// reason is shown as damage to the file at the record being read.
int Fail(BiffLoad* load, const char* reason);
// The allocator has told the user already: the load ends without a second message.
int FailOutOfMemory(BiffLoad* load);
// A record that ran short ends the load; otherwise 1.
int EndRecord(BiffLoad* load, const BiffBody* body);

// A string of `count` characters: in version 8 an option byte first (bit 0: 16-bit characters;
// bit 3 and bit 2: rich-text runs and an extension, whose sizes come before the characters and
// whose bytes after them are skipped), in version 7 bytes in the workbook's code page. Within a
// body that continues, characters may go on in the next CONTINUE record after a new option byte.
// Returns a heap string, or null on a short body (overrun set) or lost memory.
char16_t* ReadBiffString(BiffLoad* load, BiffBody* body, uint32_t count, bool richHeader = false);

// Where the fields of an XF record that differ between BIFF5 (entry 0) and BIFF8 (entry 1) lie:
// the bit position and width of each, shared by the reader and the writer.
struct XfLayout {
  uint32_t size;
  uint8_t pattern[2], foreground[2], background[2];
  uint8_t topStyle[2], topColor[2], leftStyle[2], leftColor[2];
  uint8_t bottomStyle[2], bottomColor[2], rightStyle[2], rightColor[2];
};
extern const XfLayout BiffXfLayouts[2];

// One handler per record id; each returns 0 to end the load.
using RecordHandler = int (*)(BiffLoad* load, const BiffRecord* record);
struct RecordEntry {
  uint16_t id;
  RecordHandler handler;
};
// The tables of the globals and of a worksheet's substream (biff_globals.cpp, biff_styles.cpp,
// biff_cells.cpp, biff_sheet.cpp); the dispatcher looks a record up in them in turn.
extern const RecordEntry GlobalRecords[];
extern const uint32_t GlobalRecordCount;
extern const RecordEntry StyleRecords[];
extern const uint32_t StyleRecordCount;
extern const RecordEntry CellRecords[];
extern const uint32_t CellRecordCount;
extern const RecordEntry SheetRecords[];
extern const uint32_t SheetRecordCount;

// After the globals of a BIFF5 file: names local to a sheet get their sheet by the EXTERNSHEET
// entry they point at.
void FixUpNameSheets(BiffLoad* load);
// Releases what the load state owns.
void FreeBiffLoad(BiffLoad* load);
void FreeSharedFormulas(BiffLoad* load);
void FreeExternSheets(BiffLoad* load);
// The BIFF5 list that tokens of the substream being read count in.
void CurrentExternSheets(const BiffLoad* load, const ExternSheetEntry** list, uint32_t* count);
// EXTERNSHEET and EXTERNNAME, which BIFF5 sheets repeat for their own formulas.
int ReadExternSheet(BiffLoad* load, const BiffRecord* record);
int ReadExternName(BiffLoad* load, const BiffRecord* record);

// Token conversion at the border (biff_tokens.cpp). UpgradeTokens rewrites a BIFF5 token string
// and its extra data into BIFF8 form in a new block; ExpandRelativeTokens turns the relative
// tokens of a shared formula into plain references for the cell at (row, col). Both return 0
// when the string is malformed or memory runs out.
int UpgradeTokens(BiffLoad* load, FormulaTokens* tokens);
void ExpandRelativeTokens(FormulaTokens* tokens, uint32_t row, uint32_t col);
