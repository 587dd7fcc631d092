// The function workbooks of the corpus, recalculated: every formula cell must come out as the
// value the file holds (numbers within 1e-9 relative, text, booleans and errors exactly), unless
// recalc_exceptions.txt lists the cell with the reason it cannot. A listed cell that matches fails
// too, so the list only ever holds real divergences. Cells whose formula calls a function that
// still answers with the waiting handler (the rows of tests/functions/rows_waiting.txt) are
// counted apart and not checked, so that they start counting as their families land.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "base/bytes.h"
#include "base/text.h"
#include "files/corpus.h"
#include "files/open.h"
#include "format/locale.h"
#include "formula/recalc.h"
#include "formula/tokens.h"
#include "functions/handlers.h"
#include "functions/table.h"
#include "model/workbook.h"

namespace {

// The workbooks and what they exercise. All were written by English-language programs, so the
// recalculation runs under the US regional settings.
struct CorpusFile {
  const char* path;
  const char* families;
};

constexpr CorpusFile RecalcFiles[] = {
    {"poi/FormulaEvalTestData.xls", "every family, one row per function"},
    {"poi/DateTimeToNumberTestCases.xls", "date and time texts read as numbers"},
    {"poi/WeekNumFunctionTestCaseData.xls", "NO.SEMAINE"},
    {"poi/WeekNumFunctionTestCaseData2013.xls", "NO.SEMAINE"},
    {"poi/IndirectFunctionTestCaseData.xls", "INDIRECT"},
    {"poi/IrrNpvTestCaseData.xls", "TRI, VAN"},
    {"poi/57003-FixedFunctionTestCaseData.xls", "CTXT"},
    {"poi/CodeFunctionTestCaseData.xls", "CODE"},
    {"poi/StringFormulas.xls", "text"},
    {"poi/DGet.xls", "BDLIRE"},
    {"poi/countifExamples.xls", "NB.SI criteria"},
    {"poi/countblankExamples.xls", "NB.VIDE"},
    {"poi/ComplexFunctionTestCaseData.xls", "COMPLEXE"},
    {"poi/ImaginaryFunctionTestCaseData.xls", "COMPLEXE.IMAGINAIRE"},
    {"poi/DeltaFunctionTestCaseData.xls", "DELTA"},
    {"poi/QuotientFunctionTestCaseData.xls", "QUOTIENT"},
    {"poi/TwoOperandNumericFunctionTestCaseData.xls", "two-operand mathematics"},
    {"poi/MatrixFormulaEvalTestData.xls", "matrix functions"},
    {"poi/atp.xls", "add-in functions"},
    {"sheetjs/formula_stress_test.xls", "every family, engineering and bonds included"},
};

// A value as plain data, so that it outlives the recalculation that replaces the cell's own.
struct Plain {
  uint16_t tag = ValueEmpty;
  double number = 0;
  std::string text;
};

Plain PlainOf(const Value& v) {
  Plain p;
  p.tag = v.tag;
  switch (v.tag) {
    case ValueNumber:
      p.number = v.number;
      break;
    case ValueText:
      p.text = v.text ? TextToUtf8(v.text) : "";
      break;
    case ValueBoolean:
      p.number = v.boolean ? 1 : 0;
      break;
    case ValueError:
      p.text = TextToUtf8(ErrorText(v.error));
      break;
    default:
      p.tag = ValueEmpty;
  }
  return p;
}

// The file stores an empty text result as a typed "empty" result, which loads as an empty value.
bool Agree(const Plain& stored, const Plain& now) {
  if (stored.tag == ValueEmpty)
    return now.tag == ValueEmpty || (now.tag == ValueText && now.text.empty());
  if (stored.tag != now.tag) return false;
  if (stored.tag == ValueNumber) {
    double scale = std::max(std::fabs(stored.number), std::fabs(now.number));
    return stored.number == now.number || std::fabs(stored.number - now.number) <= 1e-9 * scale;
  }
  return stored.number == now.number && stored.text == now.text;
}

std::string Shown(const Plain& p) {
  char buffer[40];
  switch (p.tag) {
    case ValueNumber:
      std::snprintf(buffer, sizeof buffer, "%.17g", p.number);
      return buffer;
    case ValueText:
      return "\"" + p.text + "\"";
    case ValueBoolean:
      return p.number ? "TRUE" : "FALSE";
    case ValueError:
      return p.text;
    default:
      return "(empty)";
  }
}

std::string CellName(const Cell* c) {
  std::string name;
  if (c->col >= 26) name += static_cast<char>('A' + c->col / 26 - 1);
  name += static_cast<char>('A' + c->col % 26);
  return name + std::to_string(c->row + 1);
}

// The functions a formula calls, by their names in the table, and whether any of them still
// answers with the waiting handler.
struct Calls {
  std::set<std::string> names;
  bool waiting = false;
};

void AddCall(const FunctionEntry* e, Calls* calls) {
  if (!e) return;
  calls->names.insert(TextToUtf8(e->name));
  calls->waiting = calls->waiting || e->handler == PendingFunction;
}

Calls CallsOf(uint32_t book, const FormulaTokens* t) {
  Calls calls;
  const Workbook* wb = GetWorkbook(book);
  const FunctionTables* tables = ActiveFunctionTables();
  for (uint32_t p = 0; p < t->length; p = NextTokenPosition(t->bytes, p)) {
    const uint8_t* b = t->bytes + p;
    uint8_t base = FoldOpcode(b[0]);
    if (base == ptgFunc) {
      AddCall(FindFunctionByNumber(ReadU16(b + 1)), &calls);
    } else if (base == ptgFuncVar && ReadU16(b + 2) != 255) {
      AddCall(FindFunctionByNumber(ReadU16(b + 2)), &calls);
    } else if (base == ptgNameX) {
      uint16_t link = ReadU16(b + 1), index = ReadU16(b + 3);
      if (link >= wb->sheetLinkCount) continue;
      int16_t eb = wb->sheetLinks[link].bookIndex;
      if (eb < 0 || static_cast<uint32_t>(eb) >= wb->externalBookCount) continue;
      const ExternalBook* external = &wb->externalBooks[eb];
      if (external->kind != ExternalAddIn || !index || index > external->nameCount) continue;
      int32_t row = FindAddInByFileName(external->names[index - 1].text);
      if (row >= 0)
        AddCall(&tables->addIn[row], &calls);
      else
        calls.names.insert(TextToUtf8(external->names[index - 1].text));
    }
  }
  return calls;
}

// recalc_exceptions.txt: file, sheet, cell and reason, tab-separated; # starts a comment.
std::map<std::string, std::string> ReadExceptions() {
  std::map<std::string, std::string> list;
  std::ifstream in(std::string(TESSAREL_SOURCE_DIR) + "/tests/files/recalc_exceptions.txt");
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string file, sheet, cell, reason;
    std::getline(fields, file, '\t');
    std::getline(fields, sheet, '\t');
    std::getline(fields, cell, '\t');
    std::getline(fields, reason);
    list[file + "\t" + sheet + "\t" + cell] = reason;
  }
  return list;
}

struct Count {
  int agree = 0, listed = 0, waiting = 0, wrong = 0;
};

TEST(RecalcCorpus, FunctionWorkbooksRecalculateToTheirStoredResults) {
  std::string folder = CorpusFolder();
  if (!std::filesystem::is_directory(folder)) {
    if (UnderCi()) FAIL() << "corpus missing at " << folder;
    GTEST_SKIP() << "corpus not found at " << folder;
  }
  std::map<std::string, std::string> exceptions = ReadExceptions();
  std::set<std::string> used;
  std::map<std::string, Count> byFile, byFunction;
  std::vector<std::string> failures;
  // The US settings for this test only, whichever way it ends.
  struct UsSettings {
    UsSettings() { ApplyLocale(LocaleEnglishUS); }
    ~UsSettings() { ApplyLocale(LocaleFrench); }
  } settings;
  for (const CorpusFile& file : RecalcFiles) {
    std::string path = folder + "/" + file.path;
    LoadReport report{};
    std::u16string path16 = Utf8ToU16(path);
    ASSERT_TRUE(LoadWorkbookFile(path16.c_str(), nullptr, &report)) << file.path;
    uint32_t book = report.book;
    const Workbook* wb = GetWorkbook(book);
    // The stored results first, then one recalculation of everything.
    std::vector<std::vector<Plain>> stored(wb->sheetCount);
    for (uint32_t s = 0; s < wb->sheetCount; s++) {
      const Sheet* sheet = wb->sheets[s];
      if (!SheetHasCells(sheet)) continue;
      for (uint32_t i = 0; i < sheet->cells.count; i++)
        stored[s].push_back(PlainOf(sheet->cells.cells[i]->value));
    }
    App.currentBook = book;
    RecalculateWorkbook();
    for (uint32_t s = 0; s < GetWorkbook(book)->sheetCount; s++) {
      Sheet* sheet = GetWorkbook(book)->sheets[s];
      if (!SheetHasCells(sheet)) continue;
      std::string sheetName = TextToUtf8(sheet->name);
      for (uint32_t i = 0; i < sheet->cells.count && i < stored[s].size(); i++) {
        Cell* cell = sheet->cells.cells[i];
        if (!cell->formula.bytes) continue;
        CalculateCell(book, s, cell);
        Plain now = PlainOf(cell->value);
        Calls calls = CallsOf(book, &cell->formula);
        std::string key = std::string(file.path) + "\t" + sheetName + "\t" + CellName(cell);
        bool agree = Agree(stored[s][i], now), listed = exceptions.count(key) != 0;
        auto tally = [&](int Count::*field) {
          byFile[file.path].*field += 1;
          for (const std::string& name : calls.names) byFunction[name].*field += 1;
        };
        if (calls.waiting && !listed) {
          tally(&Count::waiting);
        } else if (listed) {
          used.insert(key);
          tally(&Count::listed);
          // A value of chance or of the clock may agree by luck: only the others must differ.
          bool chance = exceptions[key].rfind("volatile", 0) == 0;
          if (agree && !chance) failures.push_back(key + ": listed, but now agrees: " + Shown(now));
        } else if (agree) {
          tally(&Count::agree);
        } else {
          tally(&Count::wrong);
          failures.push_back(key + ": stored " + Shown(stored[s][i]) + ", calculated " +
                             Shown(now));
        }
      }
    }
    CloseAllWorkbooks();
  }
  for (const auto& [key, reason] : exceptions)
    if (!used.count(key)) failures.push_back(key + ": listed, but no such formula cell is checked");

  std::printf("%-46s %6s %6s %6s %6s\n", "file", "agree", "listed", "wait", "wrong");
  for (const auto& [name, c] : byFile)
    std::printf("%-46s %6d %6d %6d %6d\n", name.c_str(), c.agree, c.listed, c.waiting, c.wrong);
  std::printf("\n%-46s %6s %6s %6s %6s\n", "function", "agree", "listed", "wait", "wrong");
  for (const auto& [name, c] : byFunction)
    std::printf("%-46s %6d %6d %6d %6d\n", name.c_str(), c.agree, c.listed, c.waiting, c.wrong);
  for (const std::string& f : failures) ADD_FAILURE() << f;
}

}  // namespace
