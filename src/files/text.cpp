// The delimited text reader and writer. The reader is a state machine over single characters:
// each field starts plain or quoted, ends on the separator, a line end or the end of the file, and
// goes through cell entry at its row and column. The writer prints each cell's shown text.
#include "files/text.h"

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "edit/entry.h"
#include "files/code_page.h"
#include "format/input.h"
#include "format/locale.h"
#include "formula/formula_text.h"
#include "formula/parser.h"
#include "formula/recalc.h"
#include "model/cells.h"
#include "model/load.h"
#include "model/styles.h"
#include "model/workbook.h"

static const char16_t InvalidDataMessage[] = u"Invalid data in input file";
static constexpr char16_t Replacement = 0xFFFD;

struct TextReader {
  const uint8_t* bytes;
  size_t size;
  size_t position;
  CodePage page;
};

// One character of the file, or 0 at its end. A record ends on CR, LF or CR LF, all delivered as
// CR, except that inside quotes a lone LF stays a line feed. NUL bytes are skipped: text in memory
// cannot hold them.
static int ReadTextChar(TextReader* r, bool inQuotes, char16_t* out) {
  for (;;) {
    if (r->position >= r->size) return 0;
    uint8_t b = r->bytes[r->position++];
    if (b == 0) continue;
    if (b == '\r') {
      if (r->position < r->size && r->bytes[r->position] == '\n') r->position++;
      *out = u'\r';
    } else if (b == '\n') {
      *out = inQuotes ? u'\n' : u'\r';
    } else if (r->page.lead[b]) {
      char16_t c = 0;
      if (r->position < r->size) c = DecodePair(&r->page, b, r->bytes[r->position++]);
      *out = c ? c : Replacement;
    } else {
      *out = r->page.single[b];
    }
    return 1;
  }
}

// The text of one field; characters past MaxFieldLength are dropped. One slot in front is kept
// free for the apostrophe that keeps a quoted number text.
struct Field {
  char16_t* text;  // MaxFieldLength + 2 characters, the field's own from text + 1
  uint32_t length;
  bool apostrophe;  // text[0] holds an apostrophe that belongs in front
};

static void Append(Field* f, char16_t c) {
  if (f->length < MaxFieldLength) f->text[1 + f->length++] = c;
}

static const char16_t* FieldText(Field* f) {
  f->text[1 + f->length] = 0;
  return f->apostrophe ? f->text : f->text + 1;
}

// The rest of a field outside quotes, up to a separator, a line end or the end of the file, which
// goes to *end (0 for the end of the file). A quote refuses the file.
static int ReadPlain(TextReader* r, char16_t separator, Field* f, char16_t* end) {
  char16_t c;
  for (;;) {
    if (!ReadTextChar(r, false, &c)) {
      *end = 0;
      return 1;
    }
    if (c == u'\r' || c == separator) {
      *end = c;
      return 1;
    }
    if (c == u'"') return 0;
    Append(f, c);
  }
}

// A quoted field behind its opening quote. Two quotes stand for one. Behind the closing quote the
// field ends, or goes on outside quotes when another character follows. *keepText is set when the
// field ended at its closing quote, so that a number in it stays text.
static int ReadQuoted(TextReader* r, char16_t separator, Field* f, char16_t* end, bool* keepText,
                      bool* sawLineFeed) {
  char16_t c;
  for (;;) {
    if (!ReadTextChar(r, true, &c)) return 0;
    if (c != u'"') {
      if (c == u'\n') *sawLineFeed = true;
      Append(f, c);
      continue;
    }
    if (!ReadTextChar(r, false, &c)) {
      *end = 0;
      *keepText = true;
      return 1;
    }
    if (c == u'"') {
      Append(f, u'"');
      continue;
    }
    if (c == u'\r' || c == separator) {
      *end = c;
      *keepText = true;
      return 1;
    }
    Append(f, c);
    return ReadPlain(r, separator, f, end);
  }
}

// Puts an apostrophe in front of a field that would read as a number, so that it stays text.
static void KeepAsText(uint32_t book, Field* f) {
  ParseContext ctx{book, 0, A1Style, 0, 0, ReferencesAsWritten, SingleCellFormula};
  InputResult input;
  if (f->length && ClassifyInput(&ctx, FieldText(f), &input) == InputNumber) {
    f->text[0] = u'\'';
    f->apostrophe = true;
  }
}

int ReadDelimited(uint32_t book, const uint8_t* bytes, size_t size, char16_t separator,
                  DelimitedStop* stop) {
  DelimitedStop local;
  if (!stop) stop = &local;
  *stop = DelimitedStop{DelimitedOk, 0, 0};
  TextReader r{bytes, size, 0, {}};
  char16_t* buffer = static_cast<char16_t*>(Allocate((MaxFieldLength + 2) * sizeof(char16_t)));
  if (!buffer || !OpenCodePage(GetWorkbook(book)->codePage, &r.page)) {
    Release(buffer);
    stop->failure = DelimitedNoMemory;
    return 0;
  }
  uint32_t row = 0, col = 0;
  bool rowsFull = false, sawLineFeed = false;
  DelimitedFailure failure = DelimitedOk;
  char16_t c;
  while (failure == DelimitedOk && ReadTextChar(&r, false, &c)) {
    // A line end on the last row is fine as long as nothing follows it.
    if (rowsFull) {
      failure = DelimitedInvalid;
      break;
    }
    Field f{buffer, 0, false};
    char16_t end = c;
    bool keepText = false;
    if (c == u'"') {
      if (!ReadQuoted(&r, separator, &f, &end, &keepText, &sawLineFeed)) failure = DelimitedInvalid;
    } else if (c != u'\r' && c != separator) {
      Append(&f, c);
      if (!ReadPlain(&r, separator, &f, &end)) failure = DelimitedInvalid;
    }
    if (failure != DelimitedOk) break;
    if (keepText) KeepAsText(book, &f);
    if (f.length) {
      Value value;
      FormulaTokens tokens;
      uint16_t xf = 0;
      EntryStatus status;
      if (!ReadEntryForLoad(FieldText(&f), book, 0, row, col, &value, &tokens, &xf, &status) ||
          !LoadCell(book, 0, row, col, xf, &value, &tokens, 1)) {
        failure = status == EntryBadFormula ? DelimitedBadFormula : DelimitedNoMemory;
        break;
      }
    }
    if (end == 0) break;
    if (end == u'\r') {
      if (row == MaxRow)
        rowsFull = true;
      else
        row++;
      col = 0;
    } else if (col == MaxCol) {
      failure = DelimitedInvalid;
    } else {
      col++;
    }
  }
  Release(buffer);
  CloseCodePage(&r.page);
  GetWorkbook(book)->currentSheet = 0;
  if (!FinishLoad(book) && failure == DelimitedOk) failure = DelimitedNoMemory;
  // A text file holds no results: each formula is worked out now, once its precedents are known.
  CellArray* cells = &GetSheet(book, 0)->cells;
  for (uint32_t i = 0; i < cells->count; i++)
    if (cells->cells[i]->formula.bytes) CalculateCell(book, 0, cells->cells[i]);
  if (sawLineFeed)
    for (uint32_t fit = 0; fit <= row; fit++) FitRowToContents(book, 0, fit);
  *stop = DelimitedStop{failure, row, col};
  if (failure == DelimitedInvalid) ShowMessage(InvalidDataMessage, MessageError);
  return failure == DelimitedOk;
}

// ---------------------------------------------------------------------------------------------
// Writing

// Bytes gather in a block that goes to the file whole: a big sheet is millions of characters.
constexpr uint32_t WriterBlock = 65536;

struct TextWriter {
  FILE* file;
  CodePage page;
  uint32_t used;
  uint8_t block[WriterBlock];
};

static void Flush(TextWriter* w) {
  if (w->used) std::fwrite(w->block, 1, w->used, w->file);
  w->used = 0;
}

static void PutByte(TextWriter* w, uint8_t b) {
  if (w->used == WriterBlock) Flush(w);
  w->block[w->used++] = b;
}

static void PutChar(TextWriter* w, char16_t c) {
  if (c < 0x80) {
    PutByte(w, static_cast<uint8_t>(c));
    return;
  }
  uint8_t bytes[2];
  uint32_t n = EncodeChar(&w->page, c, bytes);
  for (uint32_t i = 0; i < n; i++) PutByte(w, bytes[i]);
}

// Whether the text must go between quotes; `ascii` is cleared when any character is not ASCII.
static bool NeedsQuotes(const char16_t* text, char16_t separator, uint32_t xfFlags, bool* ascii) {
  bool quotes = xfFlags & XfQuotePrefix;
  *ascii = true;
  for (const char16_t* p = text; *p; p++) {
    char16_t c = *p;
    if (c == ListSeparator[0] || c == separator || c == u'"' || c == u'\n' || c == u'\r')
      quotes = true;
    if (c >= 0x80) *ascii = false;
  }
  return quotes;
}

// An ASCII text that needs no quotes, which is what nearly every cell gives: its bytes are its
// characters, copied at once.
static void PutAscii(TextWriter* w, const char16_t* text) {
  for (;;) {
    uint32_t room = WriterBlock - w->used;
    uint32_t n = 0;
    for (; n < room && text[n]; n++) w->block[w->used + n] = static_cast<uint8_t>(text[n]);
    w->used += n;
    text += n;
    if (!*text) return;
    Flush(w);
  }
}

// The text a cell is written with: its formula when the sheet shows formulas, else its shown
// text. A number already worked out is formatted for the line without keeping its text in the
// cell: a file of a million numbers would otherwise hold a million small texts after its save.
static void WriteCell(TextWriter* w, uint32_t book, uint32_t sheet, Cell* cell,
                      char16_t separator) {
  const Sheet* s = GetSheet(book, sheet);
  char16_t* formula = nullptr;
  const char16_t* text = u"";
  if ((s->flags & SheetShowFormulas) && cell->formula.bytes) {
    formula = FormulaText(book, &cell->formula, cell->row, cell->col, 1, cell->row, cell->col);
    if (formula) text = formula;
  } else if (cell->state == CellCalculated && cell->value.tag == ValueNumber) {
    text = CellNumberText(book, cell, nullptr, 0, nullptr);
    if (!text) text = u"#";
  } else if (EnsureCellText(book, sheet, cell) && cell->text) {
    text = cell->text;
  }
  uint32_t flags = GetWorkbook(book)->xfs[cell->xf].flags;
  bool ascii;
  if (NeedsQuotes(text, separator, flags, &ascii)) {
    PutByte(w, '"');
    for (const char16_t* p = text; *p; p++) {
      if (*p == u'"') PutByte(w, '"');
      PutChar(w, *p);
    }
    PutByte(w, '"');
  } else if (ascii) {
    PutAscii(w, text);
  } else {
    for (const char16_t* p = text; *p; p++) PutChar(w, *p);
  }
  Release(formula);
}

int WriteDelimited(uint32_t book, FILE* file, DelimitedFlavour flavour) {
  Workbook* wb = GetWorkbook(book);
  uint32_t sheet = wb->currentSheet;
  Sheet* s = GetSheet(book, sheet);
  if (!SheetHasCells(s) || s->cells.count == 0) return 1;
  auto* w = static_cast<TextWriter*>(Allocate(sizeof(TextWriter)));
  if (!w) return 0;
  w->file = file;
  if (!OpenCodePage(wb->codePage, &w->page)) {
    Release(w);
    return 0;
  }
  char16_t separator =
      flavour == DelimitedTxt ? u'\t' : static_cast<char16_t>(ListSeparator[0] & 0xFF);
  uint32_t lastRow = s->cells.cells[s->cells.count - 1]->row;
  uint32_t lastCol = 0;
  for (uint32_t i = 0; i < s->cells.count; i++)
    if (s->cells.cells[i]->col > lastCol) lastCol = s->cells.cells[i]->col;
  uint32_t index = 0;
  for (uint32_t row = 0; row <= lastRow; row++) {
    // The cells are in row order: walk them alongside.
    uint32_t col = 0;
    for (; index < s->cells.count && s->cells.cells[index]->row == row; index++) {
      Cell* cell = s->cells.cells[index];
      for (; col < cell->col; col++) PutByte(w, static_cast<uint8_t>(separator));
      WriteCell(w, book, sheet, cell, separator);
      s = GetSheet(book, sheet);
    }
    if (flavour == DelimitedCsv)
      for (; col < lastCol; col++) PutByte(w, static_cast<uint8_t>(separator));
    PutByte(w, '\r');
    PutByte(w, '\n');
  }
  Flush(w);
  CloseCodePage(&w->page);
  Release(w);
  return std::ferror(file) ? 0 : 1;
}
