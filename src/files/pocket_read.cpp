// The Pocket Excel reader. The file has no lengths: each id byte fixes the size of the body that
// follows, or the body's own count fields do, so an id the reader does not know is read as
// nothing and the next byte is taken as the next id. Every body is read through one bounded
// cursor: a record cut short by the end of the file ends the load with a message, and no count
// is trusted beyond the bytes that are there.
#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/message.h"
#include "base/text.h"
#include "files/biff_read.h"
#include "files/pocket.h"
#include "files/pocket_internal.h"
#include "model/load.h"
#include "model/styles.h"
#include "model/workbook.h"

struct PocketLoad {
  uint32_t book;
  const uint8_t* data;
  size_t size;
  size_t position;
  size_t recordOffset;  // of the id byte of the record being read, for messages
  int32_t sheet;        // the sheet cell records go to; -1 before the first sheet or past the last
  uint32_t sheetsBegun;
  uint32_t boundSheets;
  bool fontSeen;
  bool xfSeen;
  uint32_t customCount;  // FORMAT records read: their indices in the workbook's format table
  uint32_t customCapacity;
  uint16_t* customFormats;
  uint32_t nextFormatId;                   // for formats added to the table; 0 until needed
  int32_t tableFormats[PocketFormatRows];  // by table row given by text: its index + 1, or 0
  uint32_t fileZoom;
  uint32_t activeTab;
  bool stringPending;  // the FORMULA just read waits for its text in a STRING record
  uint16_t stringRow;
  uint8_t stringCol;
  const char* failure;
  bool failureAsIs;  // the reason is the whole message (the password refusal)
  bool failureTold;  // the allocator or the sheet table has told the user already
};

static int Fail(PocketLoad* load, const char* reason) {
  if (!load->failure) load->failure = reason;
  return 0;
}

static int FailTold(PocketLoad* load) {
  load->failureTold = true;
  return Fail(load, "out of memory");
}

// The next `count` bytes of the body, or null when the file ends first.
static const uint8_t* Take(PocketLoad* load, size_t count) {
  if (load->size - load->position < count) {
    Fail(load, "a record is cut short by the end of the file");
    return nullptr;
  }
  const uint8_t* p = load->data + load->position;
  load->position += count;
  return p;
}

// `count` 16-bit characters as a new NUL-terminated string; null when cut short or lost memory.
static char16_t* TakeText(PocketLoad* load, uint32_t count) {
  const uint8_t* bytes = Take(load, count * 2u);
  if (!bytes) return nullptr;
  char16_t* text = static_cast<char16_t*>(Allocate((count + 1u) * sizeof(char16_t)));
  if (!text) return FailTold(load), nullptr;
  for (uint32_t i = 0; i < count; i++) text[i] = ReadU16(bytes + 2 * i);
  text[count] = 0;
  return text;
}

static Sheet* TargetSheet(const PocketLoad* load) {
  return load->sheet < 0 ? nullptr : GetSheet(load->book, static_cast<uint32_t>(load->sheet));
}

// ---------------------------------------------------------------------------------------------
// Cells

struct PocketCellHead {
  uint16_t row;
  uint8_t col;
  uint16_t xf;
};

static PocketCellHead CellHead(const uint8_t* b) {
  return PocketCellHead{ReadU16(b), b[2], XfFromPocket(ReadU16(b + 3))};
}

// Hands a cell to the load road; cells outside any sheet are read and left.
static int AddCell(PocketLoad* load, const PocketCellHead& head, Value* value,
                   FormulaTokens* tokens = nullptr) {
  if (load->sheet < 0) {
    FreeValue(value);
    if (tokens) FreeTokens(tokens);
    return 1;
  }
  if (!LoadCell(load->book, static_cast<uint32_t>(load->sheet), head.row, head.col, head.xf, value,
                tokens, 0))
    return FailTold(load);
  return 1;
}

static int ReadBlank(PocketLoad* load) {
  const uint8_t* b = Take(load, 5);
  if (!b) return 0;
  Value v{};
  return AddCell(load, CellHead(b), &v);
}

static int ReadNumber(PocketLoad* load) {
  const uint8_t* b = Take(load, 13);
  if (!b) return 0;
  Value v = NumberValue(ReadDouble(b + 5));
  return AddCell(load, CellHead(b), &v);
}

static int ReadLabel(PocketLoad* load) {
  const uint8_t* b = Take(load, 7);
  if (!b) return 0;
  char16_t* text = TakeText(load, ReadU16(b + 5));
  if (!text) return 0;
  Value v = TextValue(text);
  return AddCell(load, CellHead(b), &v);
}

static int ReadBoolErr(PocketLoad* load) {
  const uint8_t* b = Take(load, 7);
  if (!b) return 0;
  Value v = b[6] == 0 ? BooleanValue(b[5] != 0) : ErrorValue(MapBiffError(b[5]));
  return AddCell(load, CellHead(b), &v);
}

// The cached result: a number unless bytes 6 and 7 are both 0xFF; then byte 0 gives the type.
static Value FormulaResult(const uint8_t* r, bool* text, bool* lostMemory) {
  *text = false;
  *lostMemory = false;
  if (r[6] != 0xFF || r[7] != 0xFF) return NumberValue(ReadDouble(r));
  switch (r[0]) {
    case 0: {
      char16_t* empty = TextDuplicate(u"");
      if (!empty) return *lostMemory = true, Value{};
      *text = true;
      return TextValue(empty);
    }
    case 1:
      return BooleanValue(r[2] != 0);
    case 2:
      return ErrorValue(MapBiffError(r[2]));
    default:
      return Value{};
  }
}

// Converts and checks the file's tokens for a cell or a name; 0 ends the load.
static int TakeTokens(PocketLoad* load, uint32_t length, int32_t context, FormulaTokens* out) {
  *out = FormulaTokens{};
  const uint8_t* bytes = Take(load, length);
  if (!bytes) return 0;
  const char* why = nullptr;
  if (!PocketToTokens(load->book, bytes, length, out, &why))
    return why ? Fail(load, why) : FailTold(load);
  if (!ValidateTokens(out, context, &why)) {
    FreeTokens(out);
    return Fail(load, why ? why : "a formula is malformed");
  }
  return 1;
}

static int ReadFormula(PocketLoad* load) {
  const uint8_t* b = Take(load, 16);
  if (!b) return 0;
  PocketCellHead head = CellHead(b);
  FormulaTokens tokens;
  if (!TakeTokens(load, ReadU16(b + 14), TokensForCell, &tokens)) return 0;
  bool text, lostMemory;
  Value value = FormulaResult(b + 5, &text, &lostMemory);
  if (lostMemory) {
    FreeTokens(&tokens);
    return FailTold(load);
  }
  if (!AddCell(load, head, &value, &tokens)) return 0;
  load->stringPending = text && load->sheet >= 0;
  load->stringRow = head.row;
  load->stringCol = head.col;
  return 1;
}

static int ReadString(PocketLoad* load) {
  const uint8_t* b = Take(load, 2);
  if (!b) return 0;
  char16_t* text = TakeText(load, ReadU16(b));
  if (!text) return 0;
  Cell* cell = load->stringPending
                   ? CellAt(&TargetSheet(load)->cells, load->stringRow, load->stringCol)
                   : nullptr;
  if (!cell) {
    Release(text);
    return 1;
  }
  FreeValue(&cell->value);
  cell->value = TextValue(text);
  cell->state = CellCalculated;
  return 1;
}

// ---------------------------------------------------------------------------------------------
// Sheets, rows and columns

static int ReadBof(PocketLoad* load) {
  const uint8_t* b = Take(load, 4);
  if (!b) return 0;
  uint16_t type = ReadU16(b + 2);
  if (type == PocketGlobalsType) {
    GetWorkbook(load->book)->biffVersion = 8;
  } else if (type == PocketSheetType) {
    uint32_t index = load->sheetsBegun++;
    load->sheet = index < GetWorkbook(load->book)->sheetCount ? static_cast<int32_t>(index) : -1;
    if (Sheet* s = TargetSheet(load)) s->kind = SheetWorksheet;
  }
  return 1;
}

static int ReadEof(PocketLoad*) {
  return 1;
}

static int ReadBoundSheet(PocketLoad* load) {
  const uint8_t* b = Take(load, 2);
  if (!b) return 0;
  char16_t* name = TakeText(load, b[1]);
  if (!name) return 0;
  uint32_t book = load->book;
  // The first sheet is the one the new workbook already has.
  if (load->boundSheets > 0 &&
      !InsertSheet(book, load->boundSheets, name, SheetWorksheet, NotUndoable, NoViewUpdate)) {
    Release(name);
    return FailTold(load);
  }
  Sheet* s = GetSheet(book, load->boundSheets++);
  if (name[0]) TextCopy(s->name, SheetNameCapacity, name);
  s->kind = SheetWorksheet;
  Release(name);
  return 1;
}

static int ReadRow(PocketLoad* load) {
  const uint8_t* b = Take(load, 8);
  if (!b) return 0;
  Sheet* s = TargetSheet(load);
  if (!s) return 1;
  uint16_t row = ReadU16(b), height = ReadU16(b + 2), flags = ReadU16(b + 4);
  uint16_t standard = (s->flags & SheetStandardHeight) ? StandardRowHeight : s->defaultRowHeight;
  // Every row of the used range has its record; only those that differ are kept.
  if (!(flags & 3) && height == standard) return 1;
  RowColInfo info{};
  if (flags & 1) info.flags |= RowColHidden;
  if (flags & 2) info.flags |= RowHeightByHand;
  info.size = height;
  info.xf = DefaultCellXf;
  return SetRowRecord(&s->rows, row, &info) ? 1 : FailTold(load);
}

static int ReadColumnInfo(PocketLoad* load) {
  const uint8_t* b = Take(load, 9);
  if (!b) return 0;
  Sheet* s = TargetSheet(load);
  uint16_t first = ReadU16(b), last = ReadU16(b + 2);
  if (!s || first > last || last > MaxCol) return 1;
  RowColInfo info{};
  info.size = ReadU16(b + 4);
  info.xf = XfFromPocket(ReadU16(b + 6));
  if (b[8] & 1) info.flags |= RowColHidden;
  if (!(b[8] & 2)) info.flags |= RowColDefault;
  for (uint32_t col = first; col <= last; col++)
    if (!SetColumnRecord(&s->columns, col, &info)) return FailTold(load);
  return 1;
}

static int ReadDefaultRowHeight(PocketLoad* load) {
  const uint8_t* b = Take(load, 4);
  if (!b) return 0;
  if (Sheet* s = TargetSheet(load)) {
    s->flags &= ~SheetStandardHeight;
    s->defaultRowHeight = ReadU16(b + 2);
  }
  return 1;
}

static int ReadDefaultColumnWidth(PocketLoad* load) {
  const uint8_t* b = Take(load, 6);
  if (!b) return 0;
  if (Sheet* s = TargetSheet(load)) {
    uint16_t width = ReadU16(b + 2);
    // The standard width is what a sheet without its own default is written with.
    if (width == StandardColumnWidth)
      s->flags |= SheetStandardWidth;
    else
      s->flags &= ~SheetStandardWidth;
    s->defaultColWidth = width;
  }
  return 1;
}

static int ReadWindow2(PocketLoad* load) {
  const uint8_t* b = Take(load, 5);
  if (!b) return 0;
  Sheet* s = TargetSheet(load);
  if (!s) return 1;
  s->topRow = ReadU16(b);
  s->leftCol = b[2];
  static const uint32_t shown[] = {SheetShowFormulas, SheetGridLines, SheetHeaders,
                                   SheetPanesFrozen};
  s->flags &= ~(SheetShowFormulas | SheetGridLines | SheetHeaders | SheetPanesFrozen);
  uint8_t options = b[3];
  // Grid and headings are stored as "hidden" bits.
  options ^= 6;
  if (b[4]) options |= 8;
  for (uint32_t i = 0; i < 4; i++)
    if (options & (1u << i)) s->flags |= shown[i];
  return 1;
}

// Frozen panes start at the first row and column: x and y are the frozen counts (x is the left
// column when no column is frozen, which reads the same as that many frozen columns).
static int ReadPane(PocketLoad* load) {
  const uint8_t* b = Take(load, 9);
  if (!b) return 0;
  Sheet* s = TargetSheet(load);
  if (!s || !(s->flags & SheetPanesFrozen)) return 1;
  uint16_t x = ReadU16(b), y = ReadU16(b + 2), top = ReadU16(b + 4), left = ReadU16(b + 6);
  s->paneTopRow = 0;
  s->paneLeftCol = 0;
  s->frozenCol = static_cast<uint8_t>(x > MaxCol ? MaxCol : x);
  s->frozenRow = y;
  s->topRow = top;
  s->leftCol = static_cast<uint8_t>(left > MaxCol ? MaxCol : left);
  return 1;
}

static int ReadSelection(PocketLoad* load) {
  const uint8_t* b = Take(load, 9);
  if (!b) return 0;
  Sheet* s = TargetSheet(load);
  if (!s) return 1;
  Range r{ReadU16(b), ReadU16(b + 3), b[2], b[5]};
  s->activeRow = ReadU16(b + 6);
  s->activeCol = b[8];
  if (r.firstRow > r.lastRow || r.firstCol > r.lastCol)
    r = Range{s->activeRow, s->activeRow, s->activeCol, s->activeCol};
  s->selection = r;
  return 1;
}

static uint32_t ZoomOf(uint32_t numerator, uint32_t denominator) {
  uint32_t zoom = denominator == 0 ? 100 : numerator == 0 ? 10 : 100 * numerator / denominator;
  return zoom < 10 ? 10 : zoom > 400 ? 400 : zoom;
}

static int ReadZoom(PocketLoad* load) {
  const uint8_t* b = Take(load, 4);
  if (!b) return 0;
  uint32_t zoom = ZoomOf(ReadU16(b), ReadU16(b + 2));
  if (load->sheetsBegun == 0)
    load->fileZoom = zoom;
  else if (Sheet* s = TargetSheet(load))
    s->zoom = static_cast<uint16_t>(zoom);
  return 1;
}

// ---------------------------------------------------------------------------------------------
// Workbook globals and styles

static int ReadWindow1(PocketLoad* load) {
  const uint8_t* b = Take(load, 4);
  if (!b) return 0;
  load->activeTab = ReadU16(b + 2);
  return 1;
}

static int ReadCodePage(PocketLoad* load) {
  const uint8_t* b = Take(load, 2);
  if (!b) return 0;
  Workbook* wb = GetWorkbook(load->book);
  wb->codePage = wb->fileCodePage = ReadU16(b);
  return 1;
}

// The two country words have no place in the model.
static int ReadCountry(PocketLoad* load) {
  return Take(load, 4) ? 1 : 0;
}

static int RefuseEncrypted(PocketLoad* load) {
  load->failureAsIs = true;
  return Fail(load, "Le fichier est protégé par un mot de passe");
}

static int ReadFont(PocketLoad* load) {
  const uint8_t* b = Take(load, 15);
  if (!b) return 0;
  char16_t* face = TakeText(load, b[14]);
  if (!face) return 0;
  FontRecord font{};
  font.height = ReadU16(b);
  font.attributes = static_cast<uint16_t>(ReadU16(b + 2) & ~FontUnderline);
  if (b[10]) font.attributes |= FontUnderline;
  font.color = FontColorFromPocket(ReadU16(b + 4));
  font.weight = ReadU16(b + 6);
  font.pitchAndFamily = b[11];
  font.charset = b[12];
  TextCopy(font.faceName, sizeof font.faceName / sizeof font.faceName[0], face);
  Release(face);
  if (!AddFileFont(load->book, &font, &load->fontSeen)) return FailTold(load);
  return 1;
}

// Adds a format to the workbook's table under the next number of its own; returns its index, or
// General (0) when the numbers have run out, or -1 on lost memory.
static int32_t AddFormat(PocketLoad* load, const char16_t* code) {
  Workbook* wb = GetWorkbook(load->book);
  if (load->nextFormatId == 0) {
    load->nextFormatId = 164;
    for (uint32_t i = 0; i < wb->numberFormatCount; i++)
      if (wb->numberFormats[i].id >= load->nextFormatId)
        load->nextFormatId = wb->numberFormats[i].id + 1u;
  }
  if (load->nextFormatId > 0xFFFF) return 0;
  char16_t* copy = TextDuplicate(code);
  if (!copy) return -1;
  void* grown = Reallocate(wb->numberFormats, wb->numberFormatCount * sizeof(NumberFormat),
                           (wb->numberFormatCount + 1) * sizeof(NumberFormat));
  if (!grown) {
    Release(copy);
    return -1;
  }
  wb->numberFormats = static_cast<NumberFormat*>(grown);
  wb->numberFormats[wb->numberFormatCount] =
      NumberFormat{static_cast<uint16_t>(load->nextFormatId++), 0, copy, nullptr};
  return static_cast<int32_t>(wb->numberFormatCount++);
}

// A row of the built-in table that is given by its text: the format of the workbook with that
// text, or a new one, found once per load.
static int32_t FormatOfTableText(PocketLoad* load, uint32_t row) {
  if (load->tableFormats[row]) return load->tableFormats[row] - 1;
  const Workbook* wb = GetWorkbook(load->book);
  int32_t index = -2;
  for (uint32_t i = 0; i < wb->numberFormatCount && index < 0; i++)
    if (CompareText(wb->numberFormats[i].code, PocketFormatTable[row].text) == 0)
      index = static_cast<int32_t>(i);
  if (index < 0) index = AddFormat(load, PocketFormatTable[row].text);
  if (index >= 0) load->tableFormats[row] = index + 1;
  return index;
}

static int ReadFormat(PocketLoad* load) {
  const uint8_t* b = Take(load, 1);
  if (!b) return 0;
  char16_t* code = TakeText(load, b[0]);
  if (!code) return 0;
  // A custom format is a new entry even when its text is that of another, so that it saves back
  // as it came.
  int32_t index = AddFormat(load, code);
  Release(code);
  if (index < 0 ||
      !GrowArray(&load->customFormats, &load->customCapacity, load->customCount + 1, 8))
    return FailTold(load);
  load->customFormats[load->customCount++] = static_cast<uint16_t>(index);
  return 1;
}

// The workbook's format table index for the format number of an XF.
static int32_t FormatFromPocket(PocketLoad* load, uint16_t number) {
  if (number < PocketFormatRows) {
    const PocketFormatRow& row = PocketFormatTable[number];
    if (row.biffId < 0) return FormatOfTableText(load, number);
    int32_t index = FindNumberFormatById(load->book, static_cast<uint32_t>(row.biffId));
    return index < 0 ? 0 : index;
  }
  if (number < PocketCustomFormatBase) return 0;
  uint32_t custom = number - PocketCustomFormatBase;
  return custom < load->customCount ? load->customFormats[custom] : 0;
}

static int ReadXf(PocketLoad* load) {
  const uint8_t* b = Take(load, PocketXfSize);
  if (!b) return 0;
  Xf xf;
  DecodePocketXf(b, &xf);
  int32_t format = FormatFromPocket(load, ReadU16(b + 2));
  if (format < 0) return FailTold(load);
  xf.numberFormat = static_cast<uint16_t>(format);
  Workbook* wb = GetWorkbook(load->book);
  // The first one is the default cell format; the others follow the built-in ones.
  if (!load->xfSeen) {
    load->xfSeen = true;
    wb->xfs[DefaultCellXf] = xf;
    return 1;
  }
  if (wb->xfCount >= 0xFFFF) return 1;
  void* grown = Reallocate(wb->xfs, wb->xfCount * sizeof(Xf), (wb->xfCount + 1) * sizeof(Xf));
  if (!grown) return FailTold(load);
  wb->xfs = static_cast<Xf*>(grown);
  wb->xfs[wb->xfCount++] = xf;
  return 1;
}

// NAME: options, name length, token length, the sheet (stored one below the name's own number),
// the name, then the tokens.
static int ReadName(PocketLoad* load) {
  const uint8_t* b = Take(load, 7);
  if (!b) return 0;
  char16_t* text = TakeText(load, b[2]);
  if (!text) return 0;
  DefinedName name{};
  name.options = ReadU16(b) & (NameHidden | NameFunction | NameCommand);
  name.localSheet = static_cast<uint16_t>(ReadU16(b + 5) + 1);
  name.name = text;
  uint16_t tokenLength = ReadU16(b + 3);
  if (tokenLength && !TakeTokens(load, tokenLength, TokensForName, &name.formula)) {
    Release(text);
    return 0;
  }
  if (!AddName(load->book, &name, nullptr)) {
    FreeTokens(&name.formula);
    Release(text);
    return FailTold(load);
  }
  return 1;
}

// ---------------------------------------------------------------------------------------------
// The walk

using PocketHandler = int (*)(PocketLoad* load);

struct PocketEntry {
  uint8_t id;
  PocketHandler read;
};

static const PocketEntry PocketRecords[] = {
    {PocketBlank, ReadBlank},
    {PocketNumber, ReadNumber},
    {PocketLabel, ReadLabel},
    {PocketBoolErr, ReadBoolErr},
    {PocketFormula, ReadFormula},
    {PocketString, ReadString},
    {PocketRow, ReadRow},
    {PocketBof, ReadBof},
    {PocketEof, ReadEof},
    {PocketName, ReadName},
    {PocketSelection, ReadSelection},
    {PocketFormat, ReadFormat},
    {PocketDefaultRowHeight, ReadDefaultRowHeight},
    {PocketFilePass, RefuseEncrypted},
    {PocketFont, ReadFont},
    {PocketWindow1, ReadWindow1},
    {PocketWindow2, ReadWindow2},
    {PocketPane, ReadPane},
    {PocketCodePage, ReadCodePage},
    {PocketDefColWidth, ReadDefaultColumnWidth},
    {PocketColInfo, ReadColumnInfo},
    {PocketBoundSheet, ReadBoundSheet},
    {PocketCountry, ReadCountry},
    {PocketScl, ReadZoom},
    {PocketXf, ReadXf},
};

static PocketHandler FindHandler(uint8_t id) {
  for (const PocketEntry& e : PocketRecords)
    if (e.id == id) return e.read;
  return nullptr;
}

static int ReadRecords(PocketLoad* load) {
  while (load->position < load->size) {
    load->recordOffset = load->position;
    uint8_t id = load->data[load->position++];
    PocketHandler read = FindHandler(id);
    bool pending = load->stringPending;
    load->stringPending = false;
    if (!read) continue;  // read as nothing: the next byte is the next id
    if (id == PocketString) load->stringPending = pending;
    if (!read(load)) return 0;
  }
  return 1;
}

// What the records may have left pointing nowhere: fonts and columns are checked here, cells by
// the load road.
static void MendIndices(uint32_t book) {
  Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->xfCount; i++)
    if (wb->xfs[i].font >= wb->fontCount) wb->xfs[i].font = 0;
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    ColumnArray* columns = &GetSheet(book, s)->columns;
    for (uint32_t i = 0; i < columns->count; i++)
      if (columns->records[i]->info.xf >= wb->xfCount) columns->records[i]->info.xf = DefaultCellXf;
  }
}

static void TellFailure(const PocketLoad* load) {
  if (load->failureTold) return;
  char message[256];
  if (load->failureAsIs)
    std::snprintf(message, sizeof message, "%s", load->failure);
  else
    std::snprintf(message, sizeof message, "The file is damaged: %s (record at byte %zu).",
                  load->failure, load->recordOffset);
  char16_t* text = Utf8ToText(message);
  if (text) ShowMessage(text, MessageOk | MessageError);
  Release(text);
}

int ReadPocketWorkbook(uint32_t book, const uint8_t* bytes, size_t size) {
  PocketLoad load{};
  load.book = book;
  load.data = bytes;
  load.size = size;
  load.sheet = -1;
  load.fileZoom = 100;
  int ok = ReadRecords(&load);
  Release(load.customFormats);
  MendIndices(book);
  if (!FinishLoad(book) && ok) ok = FailTold(&load);
  Workbook* wb = GetWorkbook(book);
  if (load.activeTab < wb->sheetCount) wb->currentSheet = load.activeTab;
  if (load.fileZoom != 100)
    for (uint32_t s = 0; s < wb->sheetCount; s++)
      GetSheet(book, s)->zoom = static_cast<uint16_t>(load.fileZoom);
  if (!ok) TellFailure(&load);
  return ok;
}
