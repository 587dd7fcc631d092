// Reading and writing the text of cell and range references, in A1 and R1C1 style, with their
// sheet, book and path qualifiers, and reading qualified identifiers for defined names. The
// formula parser calls the readers as its look-ahead on arbitrary typed text, so each one stays
// inside text[start, end), never writes past the fixed capacities of SheetQualifier, and answers
// -1 for whatever it does not recognise, leaving the choice of what to try next to its caller.
#include "formula/reference_text.h"

#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

constexpr uint32_t RowCount = MaxRow + 1;
constexpr uint32_t ColumnCount = MaxCol + 1;
constexpr int32_t MaxSheetNameLength = QualifierSheetCapacity - 1;
constexpr int32_t MaxPathLength = QualifierPathCapacity - 1;
// Encoded book paths: character 1 introduces a file name, character 3 stands for a backslash.
constexpr char16_t EncodedPathStart = 1;
constexpr char16_t EncodedBackslash = 3;
// The text between quotes, once doubled quotes are undone: a path, "[book]" and two sheets.
constexpr int32_t QuotedTextCapacity = 2 * QualifierPathCapacity + 2 * QualifierSheetCapacity + 8;
constexpr uint32_t RangeTextCapacity = 1024;

// Cell letters and the R and C of R1C1 are plain Latin letters whatever the language, so only
// ASCII is upper-cased here: a folding rule that maps some other letter onto A to Z would turn
// that letter into a reference.
char16_t AsciiUpper(char16_t c) {
  return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
}
bool IsDigit(char16_t c) {
  return c >= u'0' && c <= u'9';
}
bool IsBlank(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n';
}
bool IsAsciiLetter(char16_t c) {
  char16_t u = AsciiUpper(c);
  return u >= u'A' && u <= u'Z';
}

// Reads the decimal digits at text[*i]. The value saturates far above any valid row so that a
// long run cannot overflow; the bound checks of the callers then refuse it.
bool ReadNumber(const char16_t* text, int32_t* i, int32_t end, uint32_t* value) {
  int32_t p = *i;
  uint32_t v = 0;
  while (p < end && IsDigit(text[p])) {
    if (v < 10000000) v = v * 10 + static_cast<uint32_t>(text[p] - u'0');
    p++;
  }
  if (p == *i) return false;
  *i = p;
  *value = v;
  return true;
}

// Two letters make a column only up to "IV"; otherwise the first letter alone is the column, so
// that "IW1" fails at the digits instead of reading as a column beyond the grid.
bool IsTwoLetterColumn(char16_t first, char16_t second) {
  first = AsciiUpper(first);
  second = AsciiUpper(second);
  return (first >= u'A' && first <= u'H' && second >= u'A' && second <= u'Z') ||
         (first == u'I' && second >= u'A' && second <= u'V');
}

bool ReadColumnLetters(const char16_t* text, int32_t* i, int32_t end, uint32_t* column) {
  int32_t p = *i;
  if (p >= end || !IsAsciiLetter(text[p])) return false;
  if (p + 1 < end && IsTwoLetterColumn(text[p], text[p + 1])) {
    *column = static_cast<uint32_t>(AsciiUpper(text[p]) - u'A' + 1) * 26 +
              static_cast<uint32_t>(AsciiUpper(text[p + 1]) - u'A');
    *i = p + 2;
    return true;
  }
  *column = static_cast<uint32_t>(AsciiUpper(text[p]) - u'A');
  *i = p + 1;
  return true;
}

// A row number of the text, 1 to 65536, as the 0-based row.
bool ReadRowNumber(const char16_t* text, int32_t* i, int32_t end, uint32_t* row) {
  uint32_t n = 0;
  int32_t p = *i;
  if (!ReadNumber(text, &p, end, &n) || n < 1 || n > RowCount) return false;
  *i = p;
  *row = n - 1;
  return true;
}

bool SkipDollar(const char16_t* text, int32_t* i, int32_t end) {
  if (*i < end && text[*i] == u'$') {
    (*i)++;
    return true;
  }
  return false;
}

// What may stand behind a complete reference or range.
bool EndsReference(const char16_t* text, int32_t i, int32_t end) {
  return i >= end || IsBlank(text[i]) || IsOperatorChar(text[i]) || text[i] == u')';
}
// Behind a first corner ":" would start a range, and "(" a call through the reference.
bool EndsFirstCorner(const char16_t* text, int32_t i, int32_t end) {
  if (i >= end) return true;
  char16_t c = text[i];
  return IsBlank(c) || c == u'(' || c == u')' || (IsOperatorChar(c) && c != u':');
}

// Exchanges the corners so that first <= last, carrying each relative bit with its coordinate.
void Normalise(Range* r, uint8_t* flags) {
  uint8_t f = *flags;
  if (r->firstRow > r->lastRow) {
    uint16_t t = r->firstRow;
    r->firstRow = r->lastRow;
    r->lastRow = t;
    f = static_cast<uint8_t>((f & ~(RefFirstRowRelative | RefLastRowRelative)) |
                             ((f & RefFirstRowRelative) ? RefLastRowRelative : 0) |
                             ((f & RefLastRowRelative) ? RefFirstRowRelative : 0));
  }
  if (r->firstCol > r->lastCol) {
    uint8_t t = r->firstCol;
    r->firstCol = r->lastCol;
    r->lastCol = t;
    f = static_cast<uint8_t>((f & ~(RefFirstColRelative | RefLastColRelative)) |
                             ((f & RefFirstColRelative) ? RefLastColRelative : 0) |
                             ((f & RefLastColRelative) ? RefFirstColRelative : 0));
  }
  *flags = f;
}

void SetRange(Range* r, uint32_t firstRow, uint32_t lastRow, uint32_t firstCol, uint32_t lastCol) {
  r->firstRow = static_cast<uint16_t>(firstRow);
  r->lastRow = static_cast<uint16_t>(lastRow);
  r->firstCol = static_cast<uint8_t>(firstCol);
  r->lastCol = static_cast<uint8_t>(lastCol);
}

// "1:3" and "$1:$3", entered with i behind the optional "$" of the first row.
int32_t ParseA1Rows(const char16_t* text, int32_t i, int32_t end, bool firstAbsolute, Range* r,
                    uint8_t* flags) {
  uint8_t f = firstAbsolute ? 0 : RefFirstRowRelative;
  uint32_t first = 0, last = 0;
  if (!ReadRowNumber(text, &i, end, &first)) return -1;
  if (i + 1 >= end || text[i] != u':') return -1;
  i++;
  if (!SkipDollar(text, &i, end)) f |= RefLastRowRelative;
  if (!ReadRowNumber(text, &i, end, &last) || !EndsReference(text, i, end)) return -1;
  SetRange(r, first, last, 0, MaxCol);
  *flags = f;
  return i;
}

// The second corner of "A1:B2", from behind the ":". Returns -1 when it is not well formed, in
// which case the caller keeps the first cell alone and leaves ":" to the parser.
int32_t ParseA1SecondCorner(const char16_t* text, int32_t i, int32_t end, uint32_t* row,
                            uint32_t* column, uint8_t* f) {
  uint8_t bits = 0;
  if (!SkipDollar(text, &i, end)) bits |= RefLastColRelative;
  if (!ReadColumnLetters(text, &i, end, column)) return -1;
  if (!SkipDollar(text, &i, end)) bits |= RefLastRowRelative;
  if (!ReadRowNumber(text, &i, end, row) || !EndsReference(text, i, end)) return -1;
  *f |= bits;
  return i;
}

int32_t ParseA1(const char16_t* text, int32_t i, int32_t end, Range* r, uint8_t* flags) {
  if (i >= end) return -1;
  bool columnAbsolute = SkipDollar(text, &i, end);
  uint32_t column = 0;
  if (!ReadColumnLetters(text, &i, end, &column))
    return ParseA1Rows(text, i, end, columnAbsolute, r, flags);
  uint8_t f = columnAbsolute ? 0 : RefFirstColRelative;
  if (i >= end) return -1;

  if (text[i] == u':') {  // "A:C"
    i++;
    uint32_t lastColumn = 0;
    if (!SkipDollar(text, &i, end)) f |= RefLastColRelative;
    if (!ReadColumnLetters(text, &i, end, &lastColumn) || !EndsReference(text, i, end)) return -1;
    SetRange(r, 0, MaxRow, column, lastColumn);
    *flags = f;
    return i;
  }

  if (!SkipDollar(text, &i, end)) f |= RefFirstRowRelative;
  uint32_t row = 0;
  if (!ReadRowNumber(text, &i, end, &row)) return -1;
  if (!EndsFirstCorner(text, i, end)) {
    if (text[i] != u':') return -1;
    uint32_t lastRow = 0, lastColumn = 0;
    int32_t behind = ParseA1SecondCorner(text, i + 1, end, &lastRow, &lastColumn, &f);
    if (behind >= 0) {
      SetRange(r, row, lastRow, column, lastColumn);
      *flags = f;
      return behind;
    }
  }
  SetRange(r, row, row, column, column);
  *flags = static_cast<uint8_t>(f | (f >> 2));
  return i;
}

// One R1C1 part: the letter alone (relative, offset 0), the letter and a number from 1 to
// `limit` (absolute; *value is 0-based), or the letter and "[offset]" with a magnitude up to
// `maxOffset` (relative; *value is the signed offset).
bool ReadR1C1Part(const char16_t* text, int32_t* i, int32_t end, char16_t letter, uint32_t limit,
                  uint32_t maxOffset, int32_t* value, bool* relative) {
  int32_t p = *i;
  if (p >= end || AsciiUpper(text[p]) != letter) return false;
  p++;
  uint32_t n = 0;
  if (p < end && text[p] == u'[') {
    p++;
    bool negative = false;
    if (p < end && (text[p] == u'+' || text[p] == u'-')) negative = text[p++] == u'-';
    if (!ReadNumber(text, &p, end, &n) || n > maxOffset) return false;
    if (p >= end || text[p] != u']') return false;
    p++;
    *value = negative ? -static_cast<int32_t>(n) : static_cast<int32_t>(n);
    *relative = true;
  } else if (p < end && IsDigit(text[p])) {
    if (!ReadNumber(text, &p, end, &n) || n < 1 || n > limit) return false;
    *value = static_cast<int32_t>(n - 1);
    *relative = false;
  } else {
    *value = 0;
    *relative = true;
  }
  *i = p;
  return true;
}

struct R1C1Part {
  int32_t value;
  bool relative;
};

uint32_t ResolveRow(R1C1Part p, uint16_t baseRow) {
  return p.relative ? static_cast<uint32_t>(baseRow + p.value) & MaxRow
                    : static_cast<uint32_t>(p.value);
}
uint32_t ResolveColumn(R1C1Part p, uint8_t baseColumn) {
  return p.relative ? static_cast<uint32_t>(baseColumn + p.value) & MaxCol
                    : static_cast<uint32_t>(p.value) & MaxCol;
}

bool ReadRowPart(const char16_t* text, int32_t* i, int32_t end, R1C1Part* p) {
  return ReadR1C1Part(text, i, end, u'R', RowCount, MaxRow, &p->value, &p->relative);
}
bool ReadColumnPart(const char16_t* text, int32_t* i, int32_t end, R1C1Part* p) {
  return ReadR1C1Part(text, i, end, u'C', ColumnCount, MaxCol, &p->value, &p->relative);
}

// Starting with "R": a cell "R1C1", a range "R1C1:R2C2", a row "R1" or rows "R1:R3".
int32_t ParseR1C1FromRow(const char16_t* text, int32_t i, int32_t end, uint16_t baseRow,
                         uint8_t baseColumn, Range* r, uint8_t* flags) {
  R1C1Part row1{}, col1{}, row2{}, col2{};
  if (!ReadRowPart(text, &i, end, &row1)) return -1;
  uint8_t f = row1.relative ? RefFirstRowRelative : 0;

  if (i < end && AsciiUpper(text[i]) == u'C') {
    if (!ReadColumnPart(text, &i, end, &col1)) return -1;
    if (col1.relative) f |= RefFirstColRelative;
    uint32_t firstRow = ResolveRow(row1, baseRow), firstCol = ResolveColumn(col1, baseColumn);
    if (!EndsFirstCorner(text, i, end)) {
      if (text[i] != u':') return -1;
      int32_t j = i + 1;
      if (ReadRowPart(text, &j, end, &row2) && ReadColumnPart(text, &j, end, &col2) &&
          EndsReference(text, j, end)) {
        f |= (row2.relative ? RefLastRowRelative : 0) | (col2.relative ? RefLastColRelative : 0);
        SetRange(r, firstRow, ResolveRow(row2, baseRow), firstCol, ResolveColumn(col2, baseColumn));
        *flags = f;
        return j;
      }
    }
    SetRange(r, firstRow, firstRow, firstCol, firstCol);
    *flags = static_cast<uint8_t>(f | (f >> 2));
    return i;
  }

  uint32_t firstRow = ResolveRow(row1, baseRow);
  if (!EndsFirstCorner(text, i, end)) {
    if (text[i] != u':') return -1;
    int32_t j = i + 1;
    if (ReadRowPart(text, &j, end, &row2) && EndsReference(text, j, end)) {
      f |= row2.relative ? RefLastRowRelative : 0;
      SetRange(r, firstRow, ResolveRow(row2, baseRow), 0, MaxCol);
      *flags = f;
      return j;
    }
  }
  SetRange(r, firstRow, firstRow, 0, MaxCol);
  *flags = static_cast<uint8_t>(f | (f >> 2));
  return i;
}

// Starting with "C": a column "C1" or columns "C1:C3". The number of this leading part may go up
// to 65536 and wraps onto the 256 columns, so "C300" is the column "C44"; the second part keeps
// the ordinary bound.
int32_t ParseR1C1FromColumn(const char16_t* text, int32_t i, int32_t end, uint8_t baseColumn,
                            Range* r, uint8_t* flags) {
  R1C1Part col1{}, col2{};
  if (!ReadR1C1Part(text, &i, end, u'C', RowCount, MaxCol, &col1.value, &col1.relative)) return -1;
  uint8_t f = col1.relative ? RefFirstColRelative : 0;
  uint32_t firstCol = ResolveColumn(col1, baseColumn);
  if (!EndsFirstCorner(text, i, end)) {
    if (text[i] != u':') return -1;
    int32_t j = i + 1;
    if (ReadColumnPart(text, &j, end, &col2) && EndsReference(text, j, end)) {
      f |= col2.relative ? RefLastColRelative : 0;
      SetRange(r, 0, MaxRow, firstCol, ResolveColumn(col2, baseColumn));
      *flags = f;
      return j;
    }
  }
  SetRange(r, 0, MaxRow, firstCol, firstCol);
  *flags = static_cast<uint8_t>(f | (f >> 2));
  return i;
}

// ---- Qualifiers ----

// A sheet name without quotes: no digit or "." first, then digits, "." and name characters.
bool IsPlainSheetName(const char16_t* s, int32_t length) {
  if (length < 1 || length > MaxSheetNameLength || IsDigit(s[0]) || s[0] == u'.') return false;
  for (int32_t k = 0; k < length; k++)
    if (!IsDigit(s[k]) && s[k] != u'.' && !IsNameChar(s[k])) return false;
  return true;
}
// Between quotes anything goes but the characters no sheet name may hold; ":" separates sheets.
bool IsQuotedSheetName(const char16_t* s, int32_t length) {
  if (length < 1 || length > MaxSheetNameLength) return false;
  for (int32_t k = 0; k < length; k++) {
    char16_t c = s[k];
    if (c == u'\\' || c == u'/' || c == u'?' || c == u'*' || c == u':') return false;
  }
  return true;
}
bool IsBookName(const char16_t* s, int32_t length) {
  if (length < 1 || length > MaxPathLength) return false;
  for (int32_t k = 0; k < length; k++)
    if (IsBadFileChar(s[k])) return false;
  return true;
}

// Copies s[0, length) into a fixed field; the caller has checked that it fits.
void CopyField(char16_t* field, const char16_t* s, int32_t length) {
  memcpy(field, s, static_cast<size_t>(length) * sizeof(char16_t));
  field[length] = 0;
}

int32_t FindChar(const char16_t* s, int32_t from, int32_t end, char16_t c) {
  for (int32_t k = from; k < end; k++)
    if (s[k] == c) return k;
  return -1;
}

bool SheetExists(uint32_t book, const char16_t* name) {
  return book < App.workbookCount && FindSheetByName(book, name) >= 0;
}

// "sheet" or "first:last", split at the first ":", each part by the plain or the quoted rules.
bool ReadSheetList(const char16_t* s, int32_t length, bool quoted, SheetQualifier* q) {
  int32_t colon = FindChar(s, 0, length, u':');
  int32_t firstLength = colon < 0 ? length : colon;
  auto valid = quoted ? IsQuotedSheetName : IsPlainSheetName;
  if (!valid(s, firstLength)) return false;
  if (colon >= 0 && !valid(s + colon + 1, length - colon - 1)) return false;
  CopyField(q->sheetFirst, s, firstLength);
  if (colon >= 0) CopyField(q->sheetLast, s + colon + 1, length - colon - 1);
  return true;
}

bool SheetsExist(uint32_t book, const SheetQualifier* q) {
  return SheetExists(book, q->sheetFirst) && (!q->sheetLast[0] || SheetExists(book, q->sheetLast));
}

// Sheets of this workbook, or, when reading a name and the text is no sheet here, another book's
// file name. Sheets that do not exist are refused otherwise.
bool ReadLocalPart(const char16_t* s, int32_t length, bool quoted, uint32_t book, bool forName,
                   SheetQualifier* q) {
  if (ReadSheetList(s, length, quoted, q) && SheetsExist(book, q)) return true;
  q->sheetFirst[0] = q->sheetLast[0] = 0;
  if (!forName || !IsBookName(s, length)) return false;
  CopyField(q->book, s, length);
  return true;
}

// "[book]sheet" within s[0, length), the sheets of the other book by the given rules; they are
// not looked up, since they belong to a workbook that may not be open.
bool ReadBracketPart(const char16_t* s, int32_t length, bool quoted, SheetQualifier* q) {
  int32_t close = FindChar(s, 1, length, u']');
  if (close < 0 || !IsBookName(s + 1, close - 1)) return false;
  CopyField(q->book, s + 1, close - 1);
  return ReadSheetList(s + close + 1, length - close - 1, quoted, q);
}

// Stops the scan for an unquoted qualifier. Beyond the blank, "(" and the operators, characters
// that can stand in no unquoted sheet name also stop it, so that a "!" further on in the formula
// is not mistaken for the end of a qualifier.
bool StopsPlainScan(char16_t c) {
  if (c == u'!' || c == u'(' || IsBlank(c) || (IsOperatorChar(c) && c != u':')) return true;
  return c == u')' || c == u'"' || c == u'{' || c == u'}' || c == u';' || c == u',' ||
         c == ArrayColumnSeparator();
}

int32_t ReadQuotedQualifier(const char16_t* text, int32_t start, int32_t end, uint32_t book,
                            bool forName, SheetQualifier* q) {
  char16_t inner[QuotedTextCapacity];
  int32_t n = 0, i = start + 1;
  for (; i < end; i++) {
    if (text[i] == u'\'') {
      if (i + 1 < end && text[i + 1] == u'\'') {
        i++;
      } else {
        break;
      }
    }
    if (n + 1 >= QuotedTextCapacity) return -1;
    inner[n++] = text[i];
  }
  if (i >= end || n == 0) return -1;
  int32_t behind = i + 1;
  bool bangBehind = behind < end && text[behind] == u'!';

  if (inner[0] == u'[') {
    if (!ReadBracketPart(inner, n, true, q) || !bangBehind) return -1;
    return behind + 1;
  }
  int32_t slash = n - 1;
  while (slash >= 0 && inner[slash] != u'\\') slash--;
  if (slash >= 0) {
    if (slash > MaxPathLength) return -1;
    CopyField(q->path, inner, slash);
    const char16_t* leaf = inner + slash + 1;
    int32_t leafLength = n - slash - 1;
    if (leafLength > 0 && leaf[0] == u'[') {
      if (!ReadBracketPart(leaf, leafLength, true, q)) return -1;
    } else {
      if (!IsBookName(leaf, leafLength)) return -1;
      CopyField(q->book, leaf, leafLength);
    }
    return bangBehind ? behind + 1 : -1;
  }

  if (!ReadLocalPart(inner, n, true, book, forName, q)) return -1;
  if (bangBehind) return behind + 1;
  // 'Sheet 1':Sheet2! where only the first sheet needed its quotes.
  if (behind >= end || text[behind] != u':' || q->book[0] || q->sheetLast[0]) return -1;
  int32_t j = behind + 1;
  while (j < end && !StopsPlainScan(text[j])) j++;
  int32_t length = j - behind - 1;
  if (j >= end || text[j] != u'!' || !IsPlainSheetName(text + behind + 1, length)) return -1;
  CopyField(q->sheetLast, text + behind + 1, length);
  if (!SheetExists(book, q->sheetLast)) return -1;
  return j + 1;
}

int32_t ReadQualifier(const char16_t* text, int32_t start, int32_t end, uint32_t book, bool forName,
                      SheetQualifier* q) {
  memset(q, 0, sizeof(*q));
  if (!text || start < 0) return -1;
  if (start >= end) return start;
  char16_t c = text[start];
  if (c == u'!') {
    q->bareBang = 1;
    return start + 1;
  }
  if (c == u'\'') return ReadQuotedQualifier(text, start, end, book, forName, q);
  if (c == u'[') {
    int32_t close = FindChar(text, start + 1, end, u']');
    int32_t bang = close < 0 ? -1 : FindChar(text, close + 1, end, u'!');
    if (bang < 0 || !ReadBracketPart(text + start, bang - start, false, q)) return -1;
    return bang + 1;
  }
  int32_t j = start;
  while (j < end && !StopsPlainScan(text[j])) j++;
  if (j >= end || text[j] != u'!') return start;
  if (!ReadLocalPart(text + start, j - start, false, book, forName, q)) return -1;
  return j + 1;
}

// Appends one character or string, never beyond the buffer; the caller terminates.
struct TextWriter {
  char16_t* out;
  uint32_t length;
  uint32_t capacity;
};
void Put(TextWriter* w, char16_t c) {
  if (w->length + 1 < w->capacity) w->out[w->length++] = c;
}
void PutText(TextWriter* w, const char16_t* s, bool doubleQuotes) {
  for (; *s; s++) {
    Put(w, *s);
    if (doubleQuotes && *s == u'\'') Put(w, u'\'');
  }
}

uint32_t DecimalText(int32_t value, char16_t* out) {
  char16_t digits[12];
  uint32_t n = 0, k = 0;
  uint32_t magnitude = value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
  do {
    digits[n++] = static_cast<char16_t>(u'0' + magnitude % 10);
    magnitude /= 10;
  } while (magnitude);
  if (value < 0) out[k++] = u'-';
  while (n) out[k++] = digits[--n];
  out[k] = 0;
  return k;
}

// "R", "R3" or "R[-2]" (and the same with "C"): the offset is a plain difference, with no wrap.
uint32_t R1C1PartText(char16_t* out, char16_t letter, int32_t value, bool relative, int32_t base) {
  uint32_t n = 0;
  out[n++] = letter;
  if (!relative) return n + DecimalText(value + 1, out + n);
  if (value != base) {
    out[n++] = u'[';
    n += DecimalText(value - base, out + n);
    out[n++] = u']';
  }
  out[n] = 0;
  return n;
}

// "[book]sheet!", in quotes when either part needs them.
void PutQualifier(TextWriter* w, uint32_t book, uint32_t sheet) {
  if (book >= App.workbookCount) return;
  const Workbook* wb = GetWorkbook(book);
  const char16_t* leaf = LeafName(wb->path);
  const char16_t* sheetName = sheet < wb->sheetCount ? GetSheet(book, sheet)->name : u"";
  bool quote = QuoteNeeded(leaf) || QuoteNeeded(sheetName);
  if (quote) Put(w, u'\'');
  Put(w, u'[');
  PutText(w, leaf, quote);
  Put(w, u']');
  PutText(w, sheetName, quote);
  if (quote) Put(w, u'\'');
  Put(w, u'!');
}

void PutPair(TextWriter* w, const char16_t* first, const char16_t* last, bool both) {
  PutText(w, first, false);
  if (!both) return;
  Put(w, u':');
  PutText(w, last, false);
}

}  // namespace

bool IsNameChar(char16_t c) {
  return IsAsciiLetter(c) || c == u'_' || (c >= 192 && c <= 511) || (c >= 1025 && c <= 1257);
}

bool IsOperatorChar(char16_t c) {
  switch (c) {
    case u'&':
    case u'*':
    case u'^':
    case u':':
    case u'=':
    case u'>':
    case u'<':
    case u'-':
    case u'%':
    case u'+':
    case u'/':
      return true;
    default:
      return c != 0 && c == ListSeparator[0];
  }
}

char16_t ArrayColumnSeparator() {
  return ListSeparator[0] == u',' ? u',' : u'\\';
}

// Control characters are refused as well: characters 1 and 3 have a meaning in encoded paths.
bool IsBadFileChar(char16_t c) {
  switch (c) {
    case u'\\':
    case u'/':
    case u':':
    case u'*':
    case u'?':
    case u'"':
    case u'<':
    case u'>':
    case u'|':
      return true;
    default:
      return c < 32;
  }
}

int32_t ParseSheetPrefix(const char16_t* text, int32_t start, int32_t end, uint32_t book,
                         SheetQualifier* out) {
  return ReadQualifier(text, start, end, book, false, out);
}

int32_t ParseCellReference(const char16_t* text, int32_t start, int32_t end, int a1Style,
                           uint16_t baseRow, uint8_t baseColumn, Range* range, uint8_t* flags) {
  if (!text || start < 0 || start >= end) return -1;
  Range r{};
  uint8_t f = 0;
  int32_t behind;
  if (a1Style) {
    behind = ParseA1(text, start, end, &r, &f);
  } else {
    char16_t c = AsciiUpper(text[start]);
    if (c == u'R') {
      behind = ParseR1C1FromRow(text, start, end, baseRow, baseColumn, &r, &f);
    } else if (c == u'C') {
      behind = ParseR1C1FromColumn(text, start, end, baseColumn, &r, &f);
    } else {
      behind = -1;
    }
  }
  if (behind < 0) return -1;
  Normalise(&r, &f);
  if (range) *range = r;
  if (flags) *flags = f;
  return behind;
}

int32_t ParseReferenceText(const char16_t* text, int32_t start, int32_t end, int a1Style,
                           uint16_t baseRow, uint8_t baseColumn, uint32_t book,
                           int32_t* externSheet, Range* range, uint8_t* flags) {
  if (!text || start < 0 || start >= end) return -1;
  // "#REF!" in front: a reference into a sheet of this workbook that has been deleted. It keeps
  // its place and reads back onto a link to the deleted sheet.
  static const char16_t DeletedPrefix[] = u"#REF!";
  int32_t k = 0;
  while (DeletedPrefix[k] && start + k < end && AsciiUpper(text[start + k]) == DeletedPrefix[k])
    k++;
  if (!DeletedPrefix[k]) {
    int32_t behind =
        ParseCellReference(text, start + k, end, a1Style, baseRow, baseColumn, range, flags);
    if (behind < 0 || !externSheet) return behind;
    uint32_t self = 0;
    if (!FindOrAddExternalBook(book, ExternalSelf, nullptr, &self) ||
        !FindOrAddSheetLink(book, static_cast<int16_t>(self), DeletedSheet, DeletedSheet,
                            externSheet))
      return -1;
    return behind;
  }
  SheetQualifier q;
  int32_t p = ParseSheetPrefix(text, start, end, book, &q);
  if (p < 0 || p >= end) return -1;
  // A reference needs a sheet: 'C:\dir\b.xls'! alone names only a book, as names may.
  if (q.book[0] && !q.sheetFirst[0]) return -1;
  int32_t behind = ParseCellReference(text, p, end, a1Style, baseRow, baseColumn, range, flags);
  if (behind < 0 || !externSheet) return behind;

  *externSheet = -1;
  uint32_t entry = 0;
  int16_t first = NoSheet, last = NoSheet;
  if (q.bareBang) {
    if (!FindOrAddExternalBook(book, ExternalUnused, nullptr, &entry)) return -1;
  } else if (q.book[0]) {
    char16_t encoded[2 * QualifierPathCapacity + 2];
    uint32_t n = 0;
    encoded[n++] = EncodedPathStart;
    for (const char16_t* s = q.path; *s; s++) encoded[n++] = *s == u'\\' ? EncodedBackslash : *s;
    if (q.path[0]) encoded[n++] = EncodedBackslash;
    for (const char16_t* s = q.book; *s; s++) encoded[n++] = *s;
    encoded[n] = 0;
    if (!FindOrAddExternalBook(book, ExternalOtherFile, encoded, &entry) ||
        !FindOrAddExternalSheet(book, entry, q.sheetFirst, &first))
      return -1;
    last = first;
    if (q.sheetLast[0] && !FindOrAddExternalSheet(book, entry, q.sheetLast, &last)) return -1;
  } else if (q.sheetFirst[0]) {
    int32_t a = FindSheetByName(book, q.sheetFirst);
    int32_t b = q.sheetLast[0] ? FindSheetByName(book, q.sheetLast) : a;
    if (a < 0 || b < 0) return -1;
    // Sheet3:Sheet1 spans the same sheets as Sheet1:Sheet3; links keep them in order.
    first = static_cast<int16_t>(a < b ? a : b);
    last = static_cast<int16_t>(a < b ? b : a);
    if (!FindOrAddExternalBook(book, ExternalSelf, nullptr, &entry)) return -1;
  } else {
    return behind;
  }
  if (!FindOrAddSheetLink(book, static_cast<int16_t>(entry), first, last, externSheet)) return -1;
  return behind;
}

int32_t ScanNameToken(const char16_t* text, int32_t start, int32_t end, uint32_t book,
                      NameToken* out) {
  memset(out, 0, sizeof(*out));
  int32_t i = ReadQualifier(text, start, end, book, true, &out->qualifier);
  if (i < 0 || i >= end || !IsNameChar(text[i])) return -1;
  out->qualified = i != start;
  int32_t j = i + 1;
  while (j < end && (IsNameChar(text[j]) || IsDigit(text[j]) || text[j] == u'.')) j++;
  int32_t length = j - i;
  if (length > static_cast<int32_t>(MaxIdentifierLength)) return -1;
  if (LooksLikeCellName(text + i, static_cast<uint32_t>(length))) return -1;
  if (j < end) {
    char16_t c = text[j];
    if (!IsBlank(c) && !IsOperatorChar(c) && c != u'(' && c != u')' && c != u'}' && c != u';' &&
        c != ArrayColumnSeparator())
      return -1;
  }
  out->nameStart = i;
  out->nameLength = length;
  return j;
}

bool LooksLikeCellName(const char16_t* text, uint32_t length) {
  if (!text || length == 0) return false;
  int32_t n = static_cast<int32_t>(length);
  // The number that the digits at `from` form, and whether they run to the end of the name.
  auto digitsAt = [&](int32_t from, uint32_t* value, bool* toEnd) {
    int32_t p = from;
    if (!ReadNumber(text, &p, n, value)) return false;
    *toEnd = p == n;
    return true;
  };
  uint32_t v = 0;
  bool toEnd = false;
  char16_t c0 = AsciiUpper(text[0]);
  if (c0 == u'R' || c0 == u'C') {
    if (n == 1) return true;
    if (digitsAt(1, &v, &toEnd) && v >= 1 && v <= RowCount) return true;
    if (c0 == u'R' && AsciiUpper(text[1]) == u'C') {
      if (n == 2) return true;
      if (digitsAt(2, &v, &toEnd) && v >= 1 && v <= ColumnCount) return true;
    }
  }
  if (!IsAsciiLetter(c0)) return false;
  if (digitsAt(1, &v, &toEnd) && toEnd && v >= 1 && v <= ColumnCount) return true;
  return n > 2 && IsTwoLetterColumn(text[0], text[1]) && digitsAt(2, &v, &toEnd) && toEnd &&
         v >= 1 && v <= ColumnCount;
}

// A name needs quotes exactly when the unquoted reader would not take it back: so the letters
// here are the name characters of formulas rather than a locale's alphabet, and a Greek sheet
// name, which no unquoted reference may hold, is quoted.
bool QuoteNeeded(const char16_t* name) {
  if (!name || !name[0]) return false;
  if (IsDigit(name[0]) || name[0] == u'.') return true;
  for (const char16_t* s = name; *s; s++)
    if (!IsNameChar(*s) && !IsDigit(*s) && *s != u'.') return true;
  return false;
}

uint32_t ColumnText(uint8_t column, char16_t* out) {
  uint32_t n = 0;
  if (column >= 26) out[n++] = static_cast<char16_t>(u'@' + column / 26);
  out[n++] = static_cast<char16_t>(u'A' + column % 26);
  out[n] = 0;
  return n;
}

uint32_t RowText(uint16_t row, char16_t* out) {
  return DecimalText(static_cast<int32_t>(row) + 1, out);
}

uint32_t CellA1Text(uint16_t row, uint8_t column, bool rowAbsolute, bool columnAbsolute,
                    char16_t* out) {
  uint32_t n = 0;
  if (columnAbsolute) out[n++] = u'$';
  n += ColumnText(column, out + n);
  if (rowAbsolute) out[n++] = u'$';
  return n + RowText(row, out + n);
}

uint32_t CellR1C1Text(char16_t* out, uint16_t row, uint8_t column, bool rowRelative,
                      bool columnRelative, uint16_t baseRow, uint8_t baseColumn) {
  uint32_t n = R1C1PartText(out, u'R', row, rowRelative, baseRow);
  return n + R1C1PartText(out + n, u'C', column, columnRelative, baseColumn);
}

char16_t* RangeText(uint32_t book, uint32_t sheet, const Range* range, uint32_t options,
                    uint16_t baseRow, uint8_t baseColumn) {
  static char16_t buffer[RangeTextCapacity];
  TextWriter w{buffer, 0, RangeTextCapacity};
  if (options & RangeTextEquals) Put(&w, u'=');
  if (options & RangeTextQualify) PutQualifier(&w, book, sheet);

  const Range* r = range;
  bool firstRowRel = options & RefFirstRowRelative, lastRowRel = options & RefLastRowRelative;
  bool firstColRel = options & RefFirstColRelative, lastColRel = options & RefLastColRelative;
  bool a1 = options & RangeTextA1;
  char16_t first[24], last[24];
  if (r->firstCol == 0 && r->lastCol >= MaxCol && firstColRel == lastColRel) {
    if (a1) {
      uint32_t n = 0;
      if (!firstRowRel) first[n++] = u'$';
      RowText(r->firstRow, first + n);
      n = 0;
      if (!lastRowRel) last[n++] = u'$';
      RowText(r->lastRow, last + n);
      PutPair(&w, first, last, true);
    } else {
      R1C1PartText(first, u'R', r->firstRow, firstRowRel, baseRow);
      R1C1PartText(last, u'R', r->lastRow, lastRowRel, baseRow);
      // A1 needs "3:3" for one row, but "R3" alone already is the whole row.
      PutPair(&w, first, last, CompareText(first, last) != 0);
    }
  } else if (r->firstRow == 0 && r->lastRow >= MaxRow && firstRowRel == lastRowRel) {
    if (a1) {
      uint32_t n = 0;
      if (!firstColRel) first[n++] = u'$';
      ColumnText(r->firstCol, first + n);
      n = 0;
      if (!lastColRel) last[n++] = u'$';
      ColumnText(r->lastCol, last + n);
      PutPair(&w, first, last, true);
    } else {
      R1C1PartText(first, u'C', r->firstCol, firstColRel, baseColumn);
      R1C1PartText(last, u'C', r->lastCol, lastColRel, baseColumn);
      PutPair(&w, first, last, CompareText(first, last) != 0);
    }
  } else {
    bool single = r->firstRow == r->lastRow && r->firstCol == r->lastCol &&
                  firstRowRel == lastRowRel && firstColRel == lastColRel;
    if (a1) {
      CellA1Text(r->firstRow, r->firstCol, !firstRowRel, !firstColRel, first);
      CellA1Text(r->lastRow, r->lastCol, !lastRowRel, !lastColRel, last);
    } else {
      CellR1C1Text(first, r->firstRow, r->firstCol, firstRowRel, firstColRel, baseRow, baseColumn);
      CellR1C1Text(last, r->lastRow, r->lastCol, lastRowRel, lastColRel, baseRow, baseColumn);
    }
    PutPair(&w, first, last, !single);
  }
  buffer[w.length] = 0;
  return (options & RangeTextCopy) ? TextDuplicate(buffer) : buffer;
}
