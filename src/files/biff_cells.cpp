// The cell records of a BIFF sheet substream: blanks, numbers, RK and MULRK, texts (LABEL,
// RSTRING, LABELSST), booleans and errors, and formulas with their STRING results. Shared and
// array formulas are made real per cell: each cell of the block gets its own copy of the tokens,
// with the relative references of a shared formula turned into plain ones for that cell.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "files/biff_internal.h"
#include "files/biff_read.h"
#include "model/load.h"
#include "model/workbook.h"

struct CellHead {
  uint16_t row;
  uint16_t col;
  uint16_t xf;
};

static CellHead ReadCellHead(BiffBody* body) {
  CellHead head;
  head.row = ReadWord(body);
  head.col = ReadWord(body);
  head.xf = ReadWord(body);
  return head;
}

// Hands a value to the load road; a column past IV or a short record refuses the file.
static int AddCell(BiffLoad* load, const BiffBody* body, const CellHead& head, Value* value,
                   FormulaTokens* tokens = nullptr, int calculateOnLoad = 0) {
  const char* why = body->overrun       ? "a record is shorter than what it holds"
                    : head.col > MaxCol ? "a cell lies beyond the last column"
                                        : nullptr;
  if (why) {
    FreeValue(value);
    if (tokens) FreeTokens(tokens);
    return Fail(load, why);
  }
  if (!LoadCell(load->book, static_cast<uint32_t>(load->sheet), head.row, head.col, head.xf, value,
                tokens, calculateOnLoad))
    return FailOutOfMemory(load);
  return 1;
}

static int ReadBlank(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  CellHead head = ReadCellHead(&body);
  Value v{};
  return AddCell(load, &body, head, &v);
}

static int ReadNumberCell(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  CellHead head = ReadCellHead(&body);
  Value v = NumberValue(ReadNumber(&body));
  return AddCell(load, &body, head, &v);
}

static int ReadRk(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  CellHead head = ReadCellHead(&body);
  Value v = NumberValue(DecodeRk(ReadLong(&body)));
  return AddCell(load, &body, head, &v);
}

static int ReadBoolErr(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  CellHead head = ReadCellHead(&body);
  uint8_t value = ReadByte(&body);
  uint8_t isError = ReadByte(&body);
  Value v = isError == 1 ? ErrorValue(MapBiffError(value)) : BooleanValue(value != 0);
  return AddCell(load, &body, head, &v);
}

// LABEL and RSTRING: the text with a 16-bit length; RSTRING's runs behind it are not kept.
static int ReadLabel(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  CellHead head = ReadCellHead(&body);
  uint16_t length = ReadWord(&body);
  char16_t* text = ReadBiffString(load, &body, length);
  if (!text) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
  Value v = TextValue(text);
  return AddCell(load, &body, head, &v);
}

static int ReadLabelSst(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  CellHead head = ReadCellHead(&body);
  uint32_t index = ReadLong(&body);
  if (body.overrun) return EndRecord(load, &body);
  if (index >= load->sstCount) return Fail(load, "a cell names a string the table does not hold");
  char16_t* text = nullptr;
  if (!DuplicateText(&text, load->sst[index])) return FailOutOfMemory(load);
  Value v = TextValue(text);
  return AddCell(load, &body, head, &v);
}

// MULRK and MULBLANK: a row of cells from the first column on, the last column in the last word.
static int ReadMultiple(BiffLoad* load, const BiffRecord* record, bool numbers) {
  uint32_t size = numbers ? 6 : 2;
  if (record->length < 6 || (record->length - 6) % size != 0)
    return Fail(load, "a row of cells has a broken length");
  const uint8_t* b = record->body;
  uint16_t row = ReadU16(b), firstCol = ReadU16(b + 2);
  uint32_t count = (record->length - 6u) / size;
  uint16_t lastCol = ReadU16(b + record->length - 2);
  if (lastCol < firstCol || lastCol - firstCol + 1u != count)
    return Fail(load, "a row of cells does not match its columns");
  BiffBody body;
  BeginBody(&body, record);
  for (uint32_t i = 0; i < count; i++) {
    const uint8_t* p = b + 4 + i * size;
    CellHead head{row, static_cast<uint16_t>(firstCol + i), ReadU16(p)};
    Value v = numbers ? NumberValue(DecodeRk(ReadU32(p + 2))) : Value{};
    if (!AddCell(load, &body, head, &v)) return 0;
  }
  return 1;
}

static int ReadMulRk(BiffLoad* load, const BiffRecord* record) {
  return ReadMultiple(load, record, true);
}

static int ReadMulBlank(BiffLoad* load, const BiffRecord* record) {
  return ReadMultiple(load, record, false);
}

// ---------------------------------------------------------------------------------------------
// Formulas

static bool IsSharedFormulaRecord(int32_t id) {
  return id == 0x04BC || id == 0x00BC;
}

static bool IsArrayRecord(int32_t id) {
  return id == 0x0221 || id == 0x0021;
}

// A token block of `length` tokens followed by the rest of the body as extra data.
static int TakeTokens(BiffLoad* load, BiffBody* body, uint32_t length, FormulaTokens* out) {
  *out = FormulaTokens{};
  uint32_t rest = BytesLeft(body);
  if (body->overrun || length > rest || rest - length > 0xFFFF)
    return Fail(load, "a formula runs past its record");
  const uint8_t* bytes = ReadBytes(body, rest);
  out->bytes = static_cast<uint8_t*>(Allocate(rest));
  if (!out->bytes) return FailOutOfMemory(load);
  std::memcpy(out->bytes, bytes, rest);
  out->length = static_cast<uint16_t>(length);
  out->extraLength = static_cast<uint16_t>(rest - length);
  return 1;
}

void FreeSharedFormulas(BiffLoad* load) {
  for (uint32_t i = 0; i < load->sharedCount; i++) FreeTokens(&load->shared[i].tokens);
  Release(load->shared);
  load->shared = nullptr;
  load->sharedCount = load->sharedCapacity = 0;
}

// The shared formula anchored at (row, col): from the list, or from the SHRFMLA record that
// must come next. Null when neither has it (the cell then keeps only its value).
static const FormulaTokens* SharedTokens(BiffLoad* load, uint16_t row, uint8_t col, bool* failed) {
  for (uint32_t i = 0; i < load->sharedCount; i++)
    if (load->shared[i].row == row && load->shared[i].col == col) return &load->shared[i].tokens;
  if (!IsSharedFormulaRecord(PeekRecordId(&load->cursor))) return nullptr;
  BiffRecord record;
  NextRecord(&load->cursor, &record);
  BiffBody body;
  BeginBody(&body, &record);
  SkipBytes(&body, 8);
  uint16_t length = ReadWord(&body);
  FormulaTokens tokens;
  if (!TakeTokens(load, &body, length, &tokens) ||
      !GrowArray(&load->shared, &load->sharedCapacity, load->sharedCount + 1, 8)) {
    FreeTokens(&tokens);
    *failed = true;
    return load->failure ? nullptr : (FailOutOfMemory(load), nullptr);
  }
  SharedFormula* added = &load->shared[load->sharedCount++];
  *added = SharedFormula{row, col, load->version, tokens};
  return &added->tokens;
}

// The array formula anchored at (row, col): from the sheet's list, or from the ARRAY record that
// must come next, which adds the block to the list.
static const FormulaTokens* ArrayTokens(BiffLoad* load, uint16_t row, uint8_t col, bool* failed) {
  Sheet* s = GetSheet(load->book, static_cast<uint32_t>(load->sheet));
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++) {
    const ArrayFormula& a = s->arrayFormulas[i];
    if (a.range.firstRow == row && a.range.firstCol == col && a.formula.bytes) return &a.formula;
  }
  if (!IsArrayRecord(PeekRecordId(&load->cursor))) return nullptr;
  BiffRecord record;
  NextRecord(&load->cursor, &record);
  BiffBody body;
  BeginBody(&body, &record);
  Range range;
  range.firstRow = ReadWord(&body);
  range.lastRow = ReadWord(&body);
  range.firstCol = ReadByte(&body);
  range.lastCol = ReadByte(&body);
  SkipBytes(&body, 6);
  uint16_t length = ReadWord(&body);
  FormulaTokens tokens;
  if (!TakeTokens(load, &body, length, &tokens)) {
    *failed = true;
    return nullptr;
  }
  if (range.firstRow != row || range.firstCol != col || range.lastRow < range.firstRow ||
      range.lastCol < range.firstCol) {
    FreeTokens(&tokens);
    *failed = true;
    return Fail(load, "an array formula does not start at its cell"), nullptr;
  }
  uint32_t capacity = s->arrayFormulaCount;
  if (!GrowArray(&s->arrayFormulas, &capacity, s->arrayFormulaCount + 1, 1)) {
    FreeTokens(&tokens);
    *failed = true;
    return FailOutOfMemory(load), nullptr;
  }
  s->arrayFormulas[s->arrayFormulaCount] = ArrayFormula{range, tokens};
  return &s->arrayFormulas[s->arrayFormulaCount++].formula;
}

// The cached result: a number, or with 0xFFFF in the top word a typed one.
static Value FormulaResult(const uint8_t* result, bool* textFollows) {
  *textFollows = false;
  if (result[6] != 0xFF || result[7] != 0xFF) return NumberValue(ReadDouble(result));
  switch (result[0]) {
    case 0:
      *textFollows = true;
      return Value{};
    case 1:
      return BooleanValue(result[2] != 0);
    case 2:
      return ErrorValue(MapBiffError(result[2]));
    default:
      return Value{};
  }
}

static int ReadFormula(BiffLoad* load, const BiffRecord* record) {
  BiffBody body;
  BeginBody(&body, record);
  CellHead head = ReadCellHead(&body);
  const uint8_t* result = ReadBytes(&body, 8);
  uint16_t options = ReadWord(&body);
  SkipBytes(&body, 4);
  uint16_t length = ReadWord(&body);
  if (body.overrun) return EndRecord(load, &body);
  if (head.col > MaxCol) return Fail(load, "a cell lies beyond the last column");
  bool textFollows;
  Value value = FormulaResult(result, &textFollows);
  FormulaTokens tokens;
  if (!TakeTokens(load, &body, length, &tokens)) return 0;

  // A lone ptgExp points at the anchor of a shared or an array formula.
  bool upgraded = load->version >= 8;
  if (length == 5 && tokens.bytes[0] == ptgExp) {
    uint16_t anchorRow = ReadU16(tokens.bytes + 1);
    uint8_t anchorCol = tokens.bytes[3];
    FreeTokens(&tokens);
    bool failed = false;
    const FormulaTokens* block = (options & 8) ? SharedTokens(load, anchorRow, anchorCol, &failed)
                                               : ArrayTokens(load, anchorRow, anchorCol, &failed);
    if (failed) return 0;
    if (!block) {
      // The block's record is missing: the cell keeps its cached value without a formula.
      if (textFollows) value = Value{};
      return AddCell(load, &body, head, &value);
    }
    if (!CopyTokens(&tokens, block)) return FailOutOfMemory(load);
  }
  // A cell of a data table has no formula of its own to evaluate: it keeps its cached value.
  if (tokens.length > 0 && tokens.bytes[0] == ptgTbl) {
    FreeTokens(&tokens);
    if (textFollows) value = Value{};
    return AddCell(load, &body, head, &value);
  }
  if (!upgraded && !UpgradeTokens(load, &tokens)) {
    FreeTokens(&tokens);
    return load->failure ? 0 : Fail(load, "a formula is malformed");
  }
  // Checked in the form that still allows the relative tokens, which then become plain ones.
  const char* why = nullptr;
  if (!ValidateTokens(&tokens, TokensForName, &why)) {
    FreeTokens(&tokens);
    return Fail(load, why ? why : "a formula is malformed");
  }
  ExpandRelativeTokens(&tokens, head.row, head.col);
  if (!AddCell(load, &body, head, &value, &tokens, (options & 2) != 0)) return 0;
  load->stringPending = textFollows;
  load->stringRow = head.row;
  load->stringCol = static_cast<uint8_t>(head.col);
  return 1;
}

// STRING: the text result of the formula cell just read.
static int ReadStringResult(BiffLoad* load, const BiffRecord* record) {
  if (!load->stringPending) return 1;
  load->stringPending = false;
  BiffBody body;
  BeginBody(&body, record, &load->cursor);
  uint16_t length = ReadWord(&body);
  char16_t* text = ReadBiffString(load, &body, length);
  if (!text) return body.overrun ? EndRecord(load, &body) : FailOutOfMemory(load);
  Cell* cell = CellAt(&GetSheet(load->book, static_cast<uint32_t>(load->sheet))->cells,
                      load->stringRow, load->stringCol);
  if (!cell) {
    Release(text);
    return 1;
  }
  FreeValue(&cell->value);
  cell->value = TextValue(text);
  return 1;
}

static int ReadStray(BiffLoad*, const BiffRecord*) {
  return 1;  // a SHRFMLA or ARRAY record that no formula asked for
}

const RecordEntry CellRecords[] = {
    {0x0201, ReadBlank},        {0x0203, ReadNumberCell}, {0x027E, ReadRk},
    {0x0205, ReadBoolErr},      {0x0204, ReadLabel},      {0x00D6, ReadLabel},
    {0x00FD, ReadLabelSst},     {0x00BD, ReadMulRk},      {0x00BE, ReadMulBlank},
    {0x0006, ReadFormula},      {0x0206, ReadFormula},    {0x0406, ReadFormula},
    {0x0207, ReadStringResult}, {0x04BC, ReadStray},      {0x00BC, ReadStray},
    {0x0221, ReadStray},        {0x0021, ReadStray},
};
const uint32_t CellRecordCount = sizeof CellRecords / sizeof CellRecords[0];
