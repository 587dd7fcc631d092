// Delimited text: comma-separated (csv) and tab-separated (txt) files in the workbook's code page.
// The reader fills the first sheet of a new workbook, each field typed in as a cell entry, so
// numbers, dates, booleans and formulas are recognised; the writer writes the current sheet as
// its cells show.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstdio>

// Where and why a read stopped early.
enum DelimitedFailure : int32_t {
  DelimitedOk = 0,
  DelimitedInvalid = 1,     // too many rows or columns, an unterminated quote, a stray quote
  DelimitedBadFormula = 2,  // a field begins like a formula and does not compile
  DelimitedNoMemory = 3,
};

struct DelimitedStop {
  DelimitedFailure failure;
  uint32_t row;  // the field where the read stopped, from 0
  uint32_t col;
};

// The longest field kept; the rest of a longer field is dropped.
constexpr uint32_t MaxFieldLength = 32767;

// Reads `size` bytes of delimited text into the first sheet of `book`, fields separated by
// `separator`, records ending on CR, LF or CR LF. On success the first sheet is current and the
// workbook not dirty. Returns 0 on failure, keeping what was read; an invalid file shows
// "Invalid data in input file", a formula that does not compile shows nothing (the caller reports
// `stop`, which may be null).
int ReadDelimited(uint32_t book, const uint8_t* bytes, size_t size, char16_t separator,
                  DelimitedStop* stop);

// The two flavours of the writer, by file type.
enum DelimitedFlavour : int32_t {
  DelimitedCsv = 0,  // fields separated by the list separator, every row as wide as the sheet
  DelimitedTxt = 5,  // fields separated by tab, each row stopping at its last cell
};

// Writes the current sheet of `book` into `file`: rows end with CR LF, a field holding the list
// separator, the flavour's separator, a quote, CR or LF, or typed behind an apostrophe, is quoted
// with its quotes doubled. Returns 0 when writing failed.
int WriteDelimited(uint32_t book, FILE* file, DelimitedFlavour flavour);
