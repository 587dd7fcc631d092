// The reader of Excel 95 (BIFF5/7) and Excel 97 (BIFF8) workbook streams: the bytes of the
// "Workbook" or "Book" stream of a compound file become the sheets, cells, formulas, styles and
// names of a workbook. Formulas are kept as BIFF8 tokens; a BIFF5 file's tokens are upgraded as
// they are read. Every length, count and index in the stream is checked against what was read:
// a damaged stream fails the load with a message, and what was read before stays in the workbook.
#pragma once
#include <cstddef>
#include <cstdint>

#include "formula/tokens.h"

// Reads the stream into `book`, a workbook just made by CreateWorkbook (one empty worksheet and
// the default style tables). Returns 1 on success; 0 after showing the reason.
int ReadBiffWorkbook(uint32_t book, const uint8_t* stream, size_t size);

// Reads an .xls or .xlt file held in memory: the "Workbook" or "Book" stream of its compound file
// through ReadBiffWorkbook. Bytes that are not a compound file (the single-sheet streams of older
// versions among them) are refused with "Workbook not found in file".
int ReadXlsFile(uint32_t book, const uint8_t* bytes, size_t size);

// The number of an RK cell: a 30-bit integer or the high 30 bits of a double, optionally /100.
double DecodeRk(uint32_t rk);
// The program's error code of a BIFF error byte; an unknown byte gives #N/A.
uint32_t MapBiffError(uint8_t byte);
