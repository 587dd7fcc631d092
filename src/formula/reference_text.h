// The text form of cell and range references in A1 and R1C1 style, with their optional sheet,
// book and path qualifiers, and of qualified identifiers for names: reading and writing. Rows
// and columns count from 0 in memory and from 1 in text. The readers return the index behind
// what they read, or -1 for malformed text, and show no message: their callers decide.
#pragma once
#include <cstdint>

#include "model/range.h"

// One bit per relative component of a reference; a clear bit means absolute.
enum RefFlagBits : uint8_t {
  RefLastColRelative = 1,
  RefLastRowRelative = 2,
  RefFirstColRelative = 4,
  RefFirstRowRelative = 8,
};

constexpr uint32_t QualifierPathCapacity = 261;  // 260 characters and the terminator
constexpr uint32_t QualifierSheetCapacity = 32;  // 31 characters and the terminator
constexpr uint32_t MaxIdentifierLength = 255;

// What stands before "!" in a qualified reference or name. Empty strings for absent parts.
struct SheetQualifier {
  char16_t path[QualifierPathCapacity];  // directory, as typed, with its backslashes
  char16_t book[QualifierPathCapacity];  // file name of another workbook
  char16_t sheetFirst[QualifierSheetCapacity];
  char16_t sheetLast[QualifierSheetCapacity];
  int32_t bareBang;  // the text began with "!": the current workbook's level
};

// A qualified identifier read by ScanNameToken: the qualifier and where the bare name lies.
struct NameToken {
  SheetQualifier qualifier;
  int32_t qualified;  // non-zero when any qualifier (sheet, book, path or a bare "!") stood
  int32_t nameStart;  // index of the bare identifier in the text
  int32_t nameLength;
};

// Character classes shared with the formula parser.
// Letters A to Z in either case, "_", characters 192 to 511 and 1025 to 1257.
bool IsNameChar(char16_t c);
// "&", "*", "^", ":", "=", ">", "<", the list separator, "-", "%", "+", "/".
bool IsOperatorChar(char16_t c);
// The separator between the columns of a constant array: "," when the list separator is ",",
// otherwise "\".
char16_t ArrayColumnSeparator();
// The characters refused in a book or file name.
bool IsBadFileChar(char16_t c);

// Reads an optional "sheet!", "first:last!", "[book]sheet!", "'path\[book]sheet'!" or "!" prefix
// of text[start, end). Returns the index behind it, `start` when there is none, -1 when it is
// malformed or names a sheet that `book` lacks (another book's sheets are not looked up).
int32_t ParseSheetPrefix(const char16_t* text, int32_t start, int32_t end, uint32_t book,
                         SheetQualifier* out);
// Reads one cell, range, row range or column range without a qualifier. `baseRow`/`baseColumn`
// are what relative R1C1 parts count from. The range comes back normalised (first <= last) with
// the flags following their coordinates.
int32_t ParseCellReference(const char16_t* text, int32_t start, int32_t end, int a1Style,
                           uint16_t baseRow, uint8_t baseColumn, Range* range, uint8_t* flags);
// A whole qualified reference. With `externSheet` null it only checks and changes nothing in the
// workbook; otherwise *externSheet gets the sheet-link index for a qualified reference (creating
// the book entry, sheet names and link as needed) or -1 for an unqualified one.
int32_t ParseReferenceText(const char16_t* text, int32_t start, int32_t end, int a1Style,
                           uint16_t baseRow, uint8_t baseColumn, uint32_t book,
                           int32_t* externSheet, Range* range, uint8_t* flags);
// Reads a possibly qualified identifier; a bare part that looks like a cell is refused. The
// character behind it must end the identifier (the end, a blank, an operator, "(", ")", "}",
// ";" or the array column separator). Returns the index behind the identifier, or -1.
int32_t ScanNameToken(const char16_t* text, int32_t start, int32_t end, uint32_t book,
                      NameToken* out);
// True when a bare identifier of `length` characters could be read as a cell in either style
// ("R2D2", "C3", "RC", "A1", "IV12"), so that it must not stand as a name.
bool LooksLikeCellName(const char16_t* text, uint32_t length);
// True when a sheet or book name must be put in single quotes.
bool QuoteNeeded(const char16_t* name);

// Writing. Each writes into `out` (room for at least 16 characters), adds the terminator and
// returns the count of characters written.
uint32_t ColumnText(uint8_t column, char16_t* out);
uint32_t RowText(uint16_t row, char16_t* out);
uint32_t CellA1Text(uint16_t row, uint8_t column, bool rowAbsolute, bool columnAbsolute,
                    char16_t* out);
// "R", then the row (absolute: its number; relative: nothing when equal to the base, else
// "[difference]"), then "C" and the column the same way. Differences are plain integers.
uint32_t CellR1C1Text(char16_t* out, uint16_t row, uint8_t column, bool rowRelative,
                      bool columnRelative, uint16_t baseRow, uint8_t baseColumn);

// Options of RangeText: the four RefFlagBits, then these.
enum RangeTextOptions : uint32_t {
  RangeTextA1 = 16,
  RangeTextCompact = 32,
  RangeTextQualify = 64,  // "[book]sheet!" in front, quoted where a part needs it
  RangeTextEquals = 128,  // a leading "="
  RangeTextCopy = 256,    // return a block the caller owns and releases
};
// The text of a range on (book, sheet): whole rows as "1:3", whole columns as "A:C", a single
// cell, or "first:last"; in R1C1 style "R1:R3", "C1:C3", "R1C1" or "R1C1:R2C2". Returns a shared
// buffer valid until the next call, or with RangeTextCopy an owned copy (null on lost memory).
char16_t* RangeText(uint32_t book, uint32_t sheet, const Range* range, uint32_t options,
                    uint16_t baseRow, uint8_t baseColumn);
