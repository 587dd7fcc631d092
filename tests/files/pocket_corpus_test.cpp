// The workbook corpus through the Pocket Excel format: every workbook that loads is saved as a
// .pxl stream and read back. Every value of a worksheet within the format's rows comes back, every
// formula the format can hold comes back with the same text, the others come back as their values,
// and the Pocket file, read and saved again, gives the same stream; saved from there as Excel 97
// and read back, it loses nothing more. What was left out is reported by reason. Pocket files of
// the corpus, if any, are read too.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/message.h"
#include "base/text.h"
#include "files/biff_read.h"
#include "files/biff_write.h"
#include "files/corpus.h"
#include "files/pocket.h"
#include "files/pocket_builder.h"
#include "files/workbook_compare.h"
#include "formula/formula_text.h"
#include "model/workbook.h"

namespace {

std::string Extension(const std::filesystem::path& path) {
  std::string ext = path.extension().string();
  for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

std::string FormulaOf(uint32_t book, const Cell* c) {
  char16_t* text = FormulaText(book, &c->formula, c->row, c->col, 1, c->row, c->col);
  std::string out = TextToUtf8(text);
  Release(text);
  return out;
}

// Values as comparable text; a formula's empty result is stored as the number 0.
std::string ValueOf(const Cell* c) {
  if (!c) return "absent";
  const Value& v = c->value;
  char buffer[64];
  switch (v.tag) {
    case ValueNumber:
      std::snprintf(buffer, sizeof buffer, "n%.17g", v.number);
      return buffer;
    case ValueText: {
      std::string text = "s";
      text += TextToUtf8(v.text);
      return text;
    }
    case ValueBoolean:
      return v.boolean ? "b1" : "b0";
    case ValueError:
      std::snprintf(buffer, sizeof buffer, "e%u", v.error);
      return buffer;
    default:
      return c->formula.bytes ? "n0" : "absent";
  }
}

bool InArray(const Sheet* s, const Cell* c) {
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++)
    if (RangeContains(&s->arrayFormulas[i].range, c->row, c->col)) return true;
  return false;
}

struct Tally {
  int files = 0, refused = 0, cells = 0, formulasKept = 0, formulasAsValues = 0, restable = 0;
  int xlsCells = 0;
  uint64_t drops[PocketDropKinds] = {};
  std::vector<std::string> differing;
};

void Differ(Tally* t, const std::string& what) {
  if (t->differing.size() < 30) t->differing.push_back(what);
}

void Compare(uint32_t book, uint32_t back, const std::string& file, Tally* t) {
  const Workbook* wb = GetWorkbook(book);
  if (GetWorkbook(back)->sheetCount != wb->sheetCount) return Differ(t, file + ": sheet count");
  for (uint32_t s = 0; s < wb->sheetCount; s++) {
    const Sheet* sheet = GetSheet(book, s);
    const Sheet* again = GetSheet(back, s);
    if (sheet->kind != SheetWorksheet) {
      if (again->cells.count) Differ(t, file + ": a sheet that is not a worksheet has cells");
      continue;
    }
    for (uint32_t i = 0; i < sheet->cells.count; i++) {
      const Cell* c = sheet->cells.cells[i];
      if (c->row > 16383) continue;
      const Cell* r = CellAt(&again->cells, c->row, c->col);
      std::string where = file + " sheet " + std::to_string(s) + " R" + std::to_string(c->row + 1) +
                          "C" + std::to_string(c->col + 1);
      t->cells++;
      bool kept = c->formula.bytes && !InArray(sheet, c) && PocketCanHold(book, &c->formula);
      std::string was = ValueOf(c), now = ValueOf(r);
      if (!kept && c->value.tag == ValueEmpty) {
        if (now != "absent") Differ(t, where + ": a blank came back as " + now);
        continue;
      }
      if (was != now) Differ(t, where + ": value " + was + " came back as " + now);
      if (!r) continue;
      if (kept) {
        t->formulasKept++;
        std::string text = FormulaOf(book, c), again = r->formula.bytes ? FormulaOf(back, r) : "";
        if (text != again) Differ(t, where + ": formula " + text + " came back as " + again);
      } else if (c->formula.bytes) {
        t->formulasAsValues++;
        if (r->formula.bytes) Differ(t, where + ": a formula the format cannot hold came back");
      }
    }
  }
}

Bytes ReadAll(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

Bytes Save(uint32_t book, PocketDrops* drops) {
  uint8_t* bytes = nullptr;
  size_t size = 0;
  EXPECT_TRUE(WritePocketBytes(book, &bytes, &size, drops));
  Bytes out(bytes, bytes + size);
  Release(bytes);
  return out;
}

// The records of a stream, with the cached results of formulas blanked and their texts left out.
std::vector<Bytes> WithoutResults(const Bytes& stream) {
  std::vector<Bytes> records;
  for (Bytes& r : SplitRecords(stream)) {
    if (!r.empty() && r[0] == 7) continue;
    if (!r.empty() && r[0] == 6) std::fill(r.begin() + 6, r.begin() + 14, 0);
    records.push_back(std::move(r));
  }
  return records;
}

TEST(PocketCorpus, WorkbooksKeepWhatTheFormatCanHold) {
  std::string folder = CorpusFolder();
  if (!std::filesystem::is_directory(folder)) {
    if (UnderCi()) FAIL() << "corpus missing at " << folder;
    GTEST_SKIP() << "corpus not found at " << folder;
  }
  Tally tally;
  for (const auto& item : std::filesystem::recursive_directory_iterator(folder)) {
    if (!item.is_regular_file()) continue;
    std::string ext = Extension(item.path());
    bool pocket = ext == ".pxl" || ext == ".pxt";
    if (!pocket && ext != ".xls" && ext != ".xlt" && ext != ".biff5") continue;
    std::string relative = std::filesystem::relative(item.path(), folder).string();
    SCOPED_TRACE(relative);
    Bytes bytes = ReadAll(item.path());
    ClearLastMessage();
    uint32_t book;
    ASSERT_TRUE(CreateWorkbook(u"corpus.xls", 0, &book));
    int loaded = pocket ? ReadPocketWorkbook(book, bytes.data(), bytes.size())
                        : ReadXlsFile(book, bytes.data(), bytes.size());
    if (!loaded) {
      tally.refused++;
      EXPECT_NE(LastMessage(), nullptr) << "refused without a message";
      CloseAllWorkbooks();
      continue;
    }
    tally.files++;
    PocketDrops drops;
    Bytes stream = Save(book, &drops);
    for (int32_t r = 0; r < PocketDropKinds; r++) tally.drops[r] += drops.count[r];
    uint32_t back;
    ASSERT_TRUE(CreateWorkbook(u"again.pxl", 0, &back));
    ClearLastMessage();
    ASSERT_EQ(ReadPocketWorkbook(back, stream.data(), stream.size()), 1)
        << (LastMessage() ? TextToUtf8(LastMessage()) : "");
    Compare(book, back, relative, &tally);
    // The workbook as the Pocket file gave it, on to Excel 97 and back.
    uint8_t* xls = nullptr;
    uint32_t xlsSize = 0;
    BiffSaveReport xlsReport{};
    ASSERT_TRUE(BuildBiffStream(back, 8, &xls, &xlsSize, &xlsReport));
    uint32_t fromXls;
    ASSERT_TRUE(CreateWorkbook(u"again.xls", 0, &fromXls));
    EXPECT_TRUE(ReadBiffWorkbook(fromXls, xls, xlsSize));
    Release(xls);
    WorkbookDifferences xlsDifferences;
    CompareWorkbooks(back, fromXls, false, &xlsDifferences);
    tally.xlsCells += xlsDifferences.cells;
    for (size_t i = 0; i < xlsDifferences.items.size() && i < 3; i++)
      Differ(&tally, relative + " pxl -> xls: " + xlsDifferences.items[i]);
    EXPECT_EQ(xlsDifferences.differences, 0);
    // A Pocket file read and saved again gives the same stream, apart from the results of the
    // formulas that are worked out again on saving (the volatile ones).
    Bytes second = Save(back, nullptr);
    uint32_t third;
    ASSERT_TRUE(CreateWorkbook(u"third.pxl", 0, &third));
    ASSERT_EQ(ReadPocketWorkbook(third, second.data(), second.size()), 1);
    if (WithoutResults(Save(third, nullptr)) == WithoutResults(second))
      tally.restable++;
    else
      Differ(&tally, relative + ": a Pocket file saves differently from how it was read");
    CloseAllWorkbooks();
  }
  std::printf(
      "pocket corpus: %d workbooks saved and read back (%d refused by their reader); "
      "%d cells compared, %d formulas kept, %d saved as their values; %d Pocket files "
      "saved as they were read; %d cells the same after pxl -> xls\n",
      tally.files, tally.refused, tally.cells, tally.formulasKept, tally.formulasAsValues,
      tally.restable, tally.xlsCells);
  for (int32_t r = PocketKept + 1; r < PocketDropKinds; r++)
    if (tally.drops[r])
      std::printf("  left out %llu: %s\n", static_cast<unsigned long long>(tally.drops[r]),
                  PocketDropName(r));
  for (const std::string& d : tally.differing) std::printf("  differs: %s\n", d.c_str());
  EXPECT_GT(tally.files, 0);
  EXPECT_TRUE(tally.differing.empty());
}

}  // namespace
