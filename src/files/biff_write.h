// The writer of Excel 97 (BIFF8, a "Workbook" stream) and Excel 95 (BIFF5/7, a "Book" stream)
// workbooks: the whole stream is built in memory, record by record, and then written into a
// compound file. The workbook's `biffVersion` (8 or 7) decides the form. Formulas go out as the
// BIFF8 tokens the model keeps, or through DowngradeTokens for Excel 95; what the older form
// cannot hold is counted in the save report rather than written wrong.
#pragma once
#include <cstdint>
#include <cstdio>

// What a save had to leave out or change, for the caller to tell the user.
struct BiffSaveReport {
  uint32_t formulasAsValues;  // Excel 95: formulas that reach past row 16,384 keep their value
  uint32_t textsShortened;    // Excel 95: cell texts cut to 255 characters
  uint32_t mergesDropped;     // Excel 95: merged areas, which it has no record for
  uint32_t cellsDropped;      // Excel 95: cells past row 16,384
};

// The whole BIFF stream of workbook `book` in `version` (8 or 7), in a block from the allocation
// wrapper that the caller releases. Dirty formulas are calculated first, so that the values
// written are current. Returns 0 only when memory runs out.
int BuildBiffStream(uint32_t book, uint8_t version, uint8_t** bytes, uint32_t* size,
                    BiffSaveReport* report);

// Writes workbook `book` as an .xls/.xlt compound file into `file` (opened for writing at offset
// 0), in the version its `biffVersion` names. Returns 0 when memory runs out or writing fails.
int WriteXlsFile(FILE* file, uint32_t book, BiffSaveReport* report);

// The report of the last xls save made through WriteXlsFile.
const BiffSaveReport* LastBiffSaveReport();

// The RK form of `x`: returns the mode (0 the top 30 bits of the double, 1 the same divided by
// 100, 2 a 30-bit integer, 3 an integer divided by 100) and sets *rk, or returns -1 when no RK
// form gives back exactly `x` (the cell is then written as NUMBER).
int EncodeRk(double x, uint32_t* rk);
