// The listing of cells that `cells` and the other listing verbs print.
#include <charconv>
#include <string>

#include "base/alloc.h"
#include "base/text.h"
#include "cli/verbs.h"
#include "formula/formula_text.h"
#include "formula/parser.h"
#include "formula/recalc.h"
#include "formula/reference_text.h"
#include "model/value.h"
#include "model/workbook.h"

static std::string Escape(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\\':
        out += "\\\\";
        break;
      default:
        out += c;
    }
  }
  return out;
}

static std::string A1Address(uint16_t row, uint8_t col) {
  char16_t text[16];
  CellA1Text(row, col, false, false, text);
  return TextToUtf8(text);
}

// The formula as the formula bar shows it; empty for a constant.
static std::string FormulaField(uint32_t book, const Cell* cell) {
  if (!cell->formula.bytes) return "";
  char16_t* text =
      FormulaText(book, &cell->formula, cell->row, cell->col, A1Style, cell->row, cell->col);
  std::string out = text ? Escape(TextToUtf8(text)) : "";
  Release(text);
  return out;
}

static const char* TypeLetter(uint16_t tag) {
  switch (tag) {
    case ValueNumber:
      return "n";
    case ValueText:
      return "s";
    case ValueBoolean:
      return "b";
    case ValueError:
      return "e";
    default:
      return "-";
  }
}

static std::string ValueField(const Value& v) {
  switch (v.tag) {
    case ValueNumber: {
      char buffer[32];
      auto result = std::to_chars(buffer, buffer + sizeof buffer, v.number);
      return std::string(buffer, result.ptr);
    }
    case ValueText:
      return Escape(TextToUtf8(v.text));
    case ValueBoolean:
      return v.boolean ? "1" : "0";
    case ValueError:
      return TextToUtf8(ErrorText(v.error));
    default:
      return "";
  }
}

// The text the sheet shows for a cell: its value through the cell's number format.
static std::string DisplayedField(uint32_t book, uint32_t sheet, Cell* cell) {
  if (!EnsureCellText(book, sheet, cell) || !cell->text) return "";
  return Escape(TextToUtf8(cell->text));
}

void PrintCells(FILE* out, uint32_t book, int32_t onlySheet) {
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    if (onlySheet >= 0 && s != static_cast<uint32_t>(onlySheet)) continue;
    const Sheet* sheet = wb->sheets[s];
    if (!SheetHasCells(sheet)) continue;
    for (uint32_t i = 0; i < sheet->cells.count; i++) {
      Cell* cell = sheet->cells.cells[i];
      // The display comes first: making it may calculate the cell.
      std::string shown = DisplayedField(book, s, cell);
      std::string line = std::to_string(s) + "\t" + A1Address(cell->row, cell->col) + "\t" +
                         TypeLetter(cell->value.tag) + "\t" + ValueField(cell->value) + "\t" +
                         FormulaField(book, cell) + "\t" + shown + "\n";
      std::fputs(line.c_str(), out);
    }
  }
}
