// Formula tokens back to text, and the qualifier text of sheet links. The printer walks the
// tokens once, writing operands into one growing buffer and keeping a stack with the index at
// which each open operand starts; an operator joins operands by inserting its text at the start
// of the top one and popping it. The tokens keep the user's own parentheses (ptgParen), so no
// precedence logic is needed. Token strings from files are not trusted: every read is bounded by
// the token and extra-data lengths, and an operator short of operands prints what it has.
#include "formula/formula_text.h"

#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/text.h"
#include "format/input.h"
#include "format/locale.h"
#include "formula/reference_text.h"
#include "functions/table.h"
#include "model/names.h"
#include "model/value.h"
#include "model/workbook.h"

// --- A text buffer that grows, or cuts at a fixed capacity ---------------------------------

namespace {

struct TextBuffer {
  char16_t* text;
  uint32_t length;
  uint32_t capacity;  // characters, the terminator's slot included
  int growable;
  int failed;  // memory ran out: every later write is dropped
};

}  // namespace

// Room for `more` characters and the terminator; a fixed buffer gives what it has.
static uint32_t Room(TextBuffer* out, uint32_t more) {
  if (out->failed) return 0;
  uint64_t needed = static_cast<uint64_t>(out->length) + more + 1;
  if (out->growable && needed > out->capacity) {
    uint32_t step = out->capacity < 256 ? 256 : out->capacity;
    if (needed > UINT32_MAX / 2 ||
        !GrowArray(&out->text, &out->capacity, static_cast<uint32_t>(needed), step)) {
      out->failed = 1;
      return 0;
    }
  }
  uint32_t free = out->capacity > out->length ? out->capacity - out->length - 1 : 0;
  return more < free ? more : free;
}

static void Append(TextBuffer* out, const char16_t* s, uint32_t n) {
  n = Room(out, n);
  if (n) std::memcpy(out->text + out->length, s, n * sizeof(char16_t));
  out->length += n;
}

static void AppendText(TextBuffer* out, const char16_t* s) {
  Append(out, s, TextLength(s));
}

static void AppendChar(TextBuffer* out, char16_t c) {
  Append(out, &c, 1);
}

// A sheet or book piece inside single quotes doubles its own quotes, as the reader expects.
static void AppendPiece(TextBuffer* out, const char16_t* s, uint32_t n, bool quoted) {
  for (uint32_t i = 0; i < n; i++) {
    if (quoted && s[i] == u'\'') AppendChar(out, u'\'');
    AppendChar(out, s[i]);
  }
}

// Only the growable printer buffer inserts.
static void InsertAt(TextBuffer* out, uint32_t at, const char16_t* s, uint32_t n) {
  if (at > out->length || Room(out, n) < n) return;
  std::memmove(out->text + at + n, out->text + at, (out->length - at) * sizeof(char16_t));
  std::memcpy(out->text + at, s, n * sizeof(char16_t));
  out->length += n;
}

// --- Qualifiers ------------------------------------------------------------------------------

namespace {

// What stands before "!": an encoded book path, the sheet names, or "#REF" for a sheet that is
// gone. The book is bracketed when a sheet follows it, and bare for a book-level name.
struct Qualifier {
  const char16_t* path;  // encoded, or null for no book
  const char16_t* first;
  const char16_t* last;  // null or the same as first for one sheet
  bool deleted;
};

}  // namespace

// In an encoded path character 1 only introduces it, character 2 in its place stands for the
// root of drive C, and character 3 is the directory separator.
constexpr char16_t PathIntroducer = 1;
constexpr char16_t PathDriveC = 2;
constexpr char16_t PathSeparator = 3;

static void AppendQualifier(TextBuffer* out, const Qualifier* q, int addBang) {
  const char16_t* path = q->path;
  bool driveC = false;
  if (path && path[0] == PathIntroducer) path++;
  if (path && path[0] == PathDriveC) path++, driveC = true;
  // A directory always holds a separator or a drive, which the reader only takes in quotes.
  const char16_t* leaf = path ? LeafName(path) : nullptr;
  bool hasDirectory = driveC || (path && leaf != path);
  bool bracket = path && (q->first || q->deleted);
  bool twoSheets = q->first && q->last && q->last != q->first;
  bool quote = hasDirectory || (leaf && leaf[0] && QuoteNeeded(leaf)) ||
               (q->first && !q->deleted && QuoteNeeded(q->first)) ||
               (twoSheets && !q->deleted && QuoteNeeded(q->last));
  if (quote) AppendChar(out, u'\'');
  if (driveC) AppendText(out, u"C:\\");
  for (const char16_t* p = path; p && p < leaf; p++) {
    char16_t c = *p == PathSeparator ? u'\\' : *p;
    AppendPiece(out, &c, 1, quote);
  }
  if (bracket) AppendChar(out, u'[');
  if (leaf) AppendPiece(out, leaf, TextLength(leaf), quote);
  if (bracket) AppendChar(out, u']');
  if (q->deleted) {
    AppendText(out, u"#REF");
  } else if (q->first) {
    AppendPiece(out, q->first, TextLength(q->first), quote);
    if (twoSheets) {
      AppendChar(out, u':');
      AppendPiece(out, q->last, TextLength(q->last), quote);
    }
  }
  if (quote) AppendChar(out, u'\'');
  if (addBang) AppendChar(out, u'!');
}

// The external book behind a sheet link, or null when the link or its book index is out of
// range.
static const ExternalBook* LinkBook(uint32_t book, int32_t link, SheetLink* found) {
  if (book >= App.workbookCount) return nullptr;
  const Workbook* wb = GetWorkbook(book);
  if (link < 0 || static_cast<uint32_t>(link) >= wb->sheetLinkCount) return nullptr;
  *found = wb->sheetLinks[link];
  if (found->bookIndex < 0 || static_cast<uint32_t>(found->bookIndex) >= wb->externalBookCount)
    return nullptr;
  return &wb->externalBooks[found->bookIndex];
}

// The name of sheet `index` as a link sees it: this workbook's own sheets, or the names kept for
// another file. Null for a sheet that is deleted or out of range, and for the other kinds.
static const char16_t* LinkSheetName(uint32_t book, const ExternalBook* external, int32_t index) {
  if (index < 0) return nullptr;
  if (external->kind == ExternalSelf) {
    const Workbook* wb = GetWorkbook(book);
    return static_cast<uint32_t>(index) < wb->sheetCount ? wb->sheets[index]->name : nullptr;
  }
  if (external->kind == ExternalOtherFile)
    return static_cast<uint32_t>(index) < external->sheetCount ? external->sheetNames[index]
                                                               : nullptr;
  return nullptr;
}

// Returns 0 when the link does not exist.
static int AppendLinkQualifier(TextBuffer* out, uint32_t book, int32_t link, int addBang) {
  SheetLink sheets{};
  const ExternalBook* external = LinkBook(book, link, &sheets);
  if (!external) return 0;
  Qualifier q{};
  if (external->kind == ExternalOtherFile) q.path = external->path ? external->path : u"";
  if (sheets.firstSheet != NoSheet) {
    int16_t last = sheets.lastSheet == NoSheet ? sheets.firstSheet : sheets.lastSheet;
    q.first = LinkSheetName(book, external, sheets.firstSheet);
    q.last = last == sheets.firstSheet ? q.first : LinkSheetName(book, external, last);
    q.deleted = !q.first || !q.last;
  }
  AppendQualifier(out, &q, addBang);
  return 1;
}

uint32_t ExternSheetText(uint32_t book, int32_t link, char16_t* out, uint32_t capacity,
                         int addBang) {
  if (!capacity) return 0;
  out[0] = 0;
  TextBuffer buffer{out, 0, capacity, 0, 0};
  if (!AppendLinkQualifier(&buffer, book, link, addBang)) return 0;
  out[buffer.length] = 0;
  return buffer.length;
}

// --- The printer -----------------------------------------------------------------------------

namespace {

struct Printer {
  TextBuffer out;
  uint32_t* starts;  // where each open operand begins in `out`
  uint32_t depth;
  uint32_t stackCapacity;
  uint32_t book;
  const uint8_t* bytes;
  uint32_t extra;  // cursor in the extra data, which the array and area-list tokens share
  uint32_t extraEnd;
};

}  // namespace

static void Push(Printer* pr) {
  if (!GrowArray(&pr->starts, &pr->stackCapacity, pr->depth + 1, 32)) {
    pr->out.failed = 1;
    return;
  }
  pr->starts[pr->depth++] = pr->out.length;
}

static void PushText(Printer* pr, const char16_t* s) {
  Push(pr);
  AppendText(&pr->out, s);
}

// Inserts at the start of operand `k`; the operands above it move along.
static void InsertBefore(Printer* pr, uint32_t k, const char16_t* s, uint32_t n) {
  uint32_t before = pr->out.length;
  InsertAt(&pr->out, pr->starts[k], s, n);
  uint32_t moved = pr->out.length - before;
  for (uint32_t j = k + 1; j < pr->depth; j++) pr->starts[j] += moved;
}

// The top operand, made empty first when the stack holds none.
static uint32_t Top(Printer* pr) {
  if (!pr->depth) Push(pr);
  return pr->depth ? pr->depth - 1 : 0;
}

static void Prefix(Printer* pr, const char16_t* s) {
  uint32_t top = Top(pr);
  if (pr->depth) InsertBefore(pr, top, s, TextLength(s));
}

static void Binary(Printer* pr, const char16_t* op) {
  if (pr->depth < 2) {
    Prefix(pr, op);
    return;
  }
  InsertBefore(pr, pr->depth - 1, op, TextLength(op));
  pr->depth--;
}

// Joins the top `count` operands (at most what the stack holds) into "name(a;b;c)", or pushes
// "name()" without arguments.
static void Call(Printer* pr, const char16_t* name, uint32_t count) {
  if (count > pr->depth) count = pr->depth;
  if (!count) {
    PushText(pr, name);
    AppendText(&pr->out, u"()");
    return;
  }
  uint32_t first = pr->depth - count;
  for (uint32_t k = first + 1; k < pr->depth; k++) InsertBefore(pr, k, ListSeparator, 1);
  pr->depth = first + 1;
  InsertBefore(pr, first, u"(", 1);
  InsertBefore(pr, first, name, TextLength(name));
  AppendChar(&pr->out, u')');
}

// Function 255 calls its first operand, a name or a reference, with the others as arguments.
static void CallThrough(Printer* pr, uint32_t count) {
  if (count > pr->depth) count = pr->depth;
  if (!count) {
    PushText(pr, u"?()");
    return;
  }
  uint32_t callee = pr->depth - count;
  if (count < 2) {
    AppendText(&pr->out, u"()");
    return;
  }
  for (uint32_t k = callee + 2; k < pr->depth; k++) InsertBefore(pr, k, ListSeparator, 1);
  InsertBefore(pr, callee + 1, u"(", 1);
  pr->depth = callee + 1;
  AppendChar(&pr->out, u')');
}

static const char16_t* FunctionName(uint32_t number) {
  const char16_t* name = FunctionNameByNumber(number);
  return name ? name : u"?";
}

static void AppendNumber(TextBuffer* out, double number) {
  char16_t text[NumberTextCapacity];
  Append(out, text, ValueNumberText(number, 15, text));
}

static void AppendError(TextBuffer* out, uint8_t biff) {
  AppendText(out, ErrorText(ErrorFromBiff(biff)));
}

// One element of an array constant at the extra cursor. Returns 0 when it runs past the extra
// data. An element of an unknown type is printed empty and not consumed, as the evaluator reads
// it.
static int ArrayElement(Printer* pr) {
  const uint8_t* b = pr->bytes;
  uint32_t e = pr->extra, left = pr->extraEnd - e;
  if (!left) return 0;
  uint8_t type = b[e];
  if (type == ValueNumber || type == ValueBoolean || type == ValueError) {
    if (left < 9) return 0;
    if (type == ValueNumber)
      AppendNumber(&pr->out, ReadDouble(b + e + 1));
    else if (type == ValueBoolean)
      AppendText(&pr->out, BooleanText(b[e + 1] != 0));
    else
      AppendError(&pr->out, b[e + 1]);
    pr->extra = e + 9;
    return 1;
  }
  if (type != ValueText) return 1;
  if (left < 4) return 0;
  uint32_t n = ReadU16(b + e + 1);
  bool wide = b[e + 3] != 0;
  if (left - 4 < n * (wide ? 2u : 1u)) return 0;
  // Inner quotes stay single: the array reader takes the text up to the next quote.
  AppendChar(&pr->out, u'"');
  for (uint32_t i = 0; i < n; i++)
    AppendChar(&pr->out, wide ? static_cast<char16_t>(ReadU16(b + e + 4 + 2 * i)) : b[e + 4 + i]);
  AppendChar(&pr->out, u'"');
  pr->extra = e + 4 + n * (wide ? 2u : 1u);
  return 1;
}

static void ArrayConstant(Printer* pr) {
  Push(pr);
  AppendChar(&pr->out, u'{');
  const uint8_t* b = pr->bytes;
  uint32_t columns = 1, count = 0;
  if (pr->extraEnd - pr->extra >= 3) {
    columns = b[pr->extra] + 1u;
    count = columns * (ReadU16(b + pr->extra + 1) + 1u);
    pr->extra += 3;
  }
  // Every element holds at least its type byte: a larger count cannot be the constant's own.
  if (count > pr->extraEnd - pr->extra) count = 0, pr->extra = pr->extraEnd;
  char16_t columnSeparator = ArrayColumnSeparator();
  for (uint32_t k = 0; k < count && !pr->out.failed; k++) {
    if (k) AppendChar(&pr->out, k % columns ? columnSeparator : u';');
    if (!ArrayElement(pr)) {
      pr->extra = pr->extraEnd;
      break;
    }
  }
  AppendChar(&pr->out, u'}');
}

static void StringConstant(Printer* pr, const uint8_t* s) {
  uint32_t n = s[0];
  bool wide = s[1] != 0;
  Push(pr);
  AppendChar(&pr->out, u'"');
  for (uint32_t i = 0; i < n; i++) {
    char16_t c = wide ? static_cast<char16_t>(ReadU16(s + 2 + 2 * i)) : s[2 + i];
    if (c == u'"') AppendChar(&pr->out, u'"');
    AppendChar(&pr->out, c);
  }
  AppendChar(&pr->out, u'"');
}

static void DefinedNameToken(Printer* pr, uint32_t index) {
  const Workbook* wb = pr->book < App.workbookCount ? GetWorkbook(pr->book) : nullptr;
  const char16_t* text =
      wb && index && index <= wb->nameCount ? wb->names[index - 1].name : nullptr;
  PushText(pr, text ? text : u"#NAME?");
}

// A name through a sheet link: of another book (book-level, or "[book]sheet" for a sheet-level
// one), of this workbook (with its sheet when it is local to one), or of an add-in.
static void ExternalNameToken(Printer* pr, int32_t link, uint32_t index) {
  Push(pr);
  SheetLink sheets{};
  const ExternalBook* external = LinkBook(pr->book, link, &sheets);
  const Workbook* wb = external ? GetWorkbook(pr->book) : nullptr;
  Qualifier q{};
  const char16_t* text = nullptr;
  bool qualify = false;
  if (external && external->kind == ExternalSelf) {
    const DefinedName* name = index && index <= wb->nameCount ? &wb->names[index - 1] : nullptr;
    text = name ? name->name : nullptr;
    if (name && name->localSheet && name->localSheet <= wb->sheetCount) {
      q.first = q.last = wb->sheets[name->localSheet - 1]->name;
      qualify = true;
    }
  } else if (external && index && index <= external->nameCount) {
    const ExternalName* name = &external->names[index - 1];
    text = name->text;
    if (external->kind == ExternalOtherFile) {
      q.path = external->path ? external->path : u"";
      if (name->field && name->field <= external->sheetCount)
        q.first = q.last = external->sheetNames[name->field - 1];
      qualify = true;
    }
  }
  if (!text) {
    AppendText(&pr->out, u"#NAME?");
    return;
  }
  if (qualify) AppendQualifier(&pr->out, &q, 1);
  AppendText(&pr->out, text);
}

namespace {

struct PrintStyle {
  int a1;
  uint16_t baseRow;  // the cell of ptgRefN and ptgAreaN
  uint8_t baseColumn;
  uint16_t rowOffset;  // what relative R1C1 references count from
  uint8_t columnOffset;
};

}  // namespace

// A cell's four bytes: row, column, flags. `offsets` adds the base cell to relative parts.
static void CellToken(Printer* pr, const uint8_t* a, bool offsets, const PrintStyle* style) {
  uint16_t row = ReadU16(a);
  uint8_t col = a[2], flags = a[3];
  bool rowRelative = flags & RefRowRelative, colRelative = flags & RefColRelative;
  char16_t text[32];
  uint32_t n;
  if (offsets) {
    if (rowRelative) row = static_cast<uint16_t>(row + style->baseRow);
    if (colRelative) col = static_cast<uint8_t>(col + style->baseColumn);
  }
  if (offsets || style->a1)
    n = CellA1Text(row, col, !rowRelative, !colRelative, text);
  else
    n = CellR1C1Text(text, row, col, rowRelative, colRelative, style->rowOffset,
                     style->columnOffset);
  Append(&pr->out, text, n < 32 ? n : 31);
}

// An area's eight bytes: first and last row, then column and flags for each corner.
static void AreaToken(Printer* pr, const uint8_t* a, bool offsets, const PrintStyle* style) {
  Range r{ReadU16(a), ReadU16(a + 2), a[4], a[6]};
  uint8_t firstFlags = a[5], lastFlags = a[7];
  if (offsets) {
    if (firstFlags & RefRowRelative)
      r.firstRow = static_cast<uint16_t>(r.firstRow + style->baseRow);
    if (firstFlags & RefColRelative)
      r.firstCol = static_cast<uint8_t>(r.firstCol + style->baseColumn);
    if (lastFlags & RefRowRelative) r.lastRow = static_cast<uint16_t>(r.lastRow + style->baseRow);
    if (lastFlags & RefColRelative) r.lastCol = static_cast<uint8_t>(r.lastCol + style->baseColumn);
  }
  uint32_t options = ((firstFlags | (lastFlags >> 2)) >> 4) & 0xF;
  if (offsets || style->a1) options |= RangeTextA1;
  const char16_t* text = RangeText(pr->book, 0, &r, options, style->rowOffset, style->columnOffset);
  if (text) AppendText(&pr->out, text);
}

// The printer steps over ptgMemNoMem as the length table does.
static uint32_t TokenEnd(const uint8_t* b, uint32_t p, uint32_t length) {
  return CheckedTokenEnd(b, p, length, MemNoMemAsTable);
}

static const char16_t* const OperatorTexts[] = {
    u"+", u"-", u"*", u"/", u"^", u"&", u"<", u"<=", u"=", u">=", u">", u"<>", u" ",
};

static void PrintToken(Printer* pr, uint32_t p, const PrintStyle* style) {
  const uint8_t* b = pr->bytes;
  uint8_t base = FoldOpcode(b[p]);
  const uint8_t* a = b + p + 1;
  if (IsBinaryOperator(base)) {
    Binary(pr, base == ptgUnion   ? ListSeparator
               : base == ptgRange ? u":"
                                  : OperatorTexts[base - ptgAdd]);
    return;
  }
  switch (base) {
    case ptgUplus:
      Prefix(pr, u"+");
      break;
    case ptgUminus:
      Prefix(pr, u"-");
      break;
    case ptgPercent:
      Top(pr);
      AppendChar(&pr->out, u'%');
      break;
    case ptgParen:
      Prefix(pr, u"(");
      AppendChar(&pr->out, u')');
      break;
    case ptgMissArg:
      Push(pr);
      break;
    case ptgStr:
      StringConstant(pr, a);
      break;
    case ptgAttr:
      if (a[0] == AttrSum) Call(pr, FunctionName(4), 1);
      break;
    case ptgErr:
      Push(pr);
      AppendError(&pr->out, a[0]);
      break;
    case ptgBool:
      PushText(pr, BooleanText(a[0] != 0));
      break;
    case ptgInt: {
      char16_t text[NumberTextCapacity];
      Push(pr);
      Append(&pr->out, text, ValueNumberText(ReadU16(a), 15, text));
      break;
    }
    case ptgNum:
      Push(pr);
      AppendNumber(&pr->out, ReadDouble(a));
      break;
    case ptgArray:
      ArrayConstant(pr);
      break;
    case ptgFunc: {
      uint16_t number = ReadU16(a);
      const FunctionEntry* entry = FindFunctionByNumber(number);
      if (entry)
        Call(pr, entry->name, static_cast<uint32_t>(std::strlen(entry->args)));
      else
        Call(pr, u"?", 0);
      break;
    }
    case ptgFuncVar: {
      uint32_t count = a[0] & 0x7Fu;  // the eighth bit asks a command for its dialog
      uint16_t number = ReadU16(a + 1);
      if (number == 255)
        CallThrough(pr, count);
      else
        Call(pr, FunctionName(number), count);
      break;
    }
    case ptgTbl:
      Call(pr, FunctionName(0x8029), 0);
      break;
    case ptgName:
      DefinedNameToken(pr, ReadU16(a));
      break;
    case ptgNameX:
      ExternalNameToken(pr, ReadU16(a), ReadU16(a + 2));
      break;
    case ptgRef:
    case ptgRefN:
      Push(pr);
      CellToken(pr, a, base == ptgRefN, style);
      break;
    case ptgArea:
    case ptgAreaN:
      Push(pr);
      AreaToken(pr, a, base == ptgAreaN, style);
      break;
    case ptgRef3d:
    case ptgArea3d:
      Push(pr);
      // A link that is not in the table leaves nothing to name: the error alone, which at least
      // compiles back.
      if (!AppendLinkQualifier(&pr->out, pr->book, ReadU16(a), 1))
        AppendText(&pr->out, ErrorText(ErrRef));
      else if (base == ptgRef3d)
        CellToken(pr, a + 2, false, style);
      else
        AreaToken(pr, a + 2, false, style);
      break;
    case ptgRefErr:
    case ptgAreaErr:
    case ptgRefErr3d:
    case ptgAreaErr3d:
      PushText(pr, ErrorText(ErrRef));
      break;
    case ptgMemArea: {
      // Its rectangles take their share of the extra data; the sub-expression prints in place.
      uint32_t left = pr->extraEnd - pr->extra;
      uint32_t size = left < 2 ? left : 2 + 8u * ReadU16(b + pr->extra);
      pr->extra += size < left ? size : left;
      break;
    }
    default:  // ptgExp, the other memory tokens, ptgMemFunc, the extended token, unknown opcodes
      break;
  }
}

char16_t* FormulaText(uint32_t book, const FormulaTokens* tokens, uint16_t baseRow,
                      uint8_t baseColumn, int a1Style, uint16_t rowOffset, uint8_t columnOffset) {
  Printer pr{};
  pr.out.growable = 1;
  pr.book = book;
  AppendChar(&pr.out, u'=');
  if (tokens && tokens->bytes) {
    PrintStyle style{a1Style, baseRow, baseColumn, rowOffset, columnOffset};
    uint32_t length = tokens->length;
    pr.bytes = tokens->bytes;
    pr.extra = length;
    pr.extraEnd = length + static_cast<uint32_t>(tokens->extraLength);
    for (uint32_t p = 0; p < length && !pr.out.failed;) {
      uint32_t end = TokenEnd(pr.bytes, p, length);
      if (!end) break;
      PrintToken(&pr, p, &style);
      p = end;
    }
  }
  Release(pr.starts);
  if (pr.out.failed) {
    Release(pr.out.text);
    return nullptr;
  }
  pr.out.text[pr.out.length] = 0;
  return pr.out.text;
}
