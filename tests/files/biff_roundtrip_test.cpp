// The workbook corpus through the writer: every file that loads is saved as Excel 97 and as
// Excel 95 into memory, read back, and compared cell by cell with what was loaded. Differences
// that Excel 95 cannot avoid are counted by reason; any other difference fails the test.
#include <gtest/gtest.h>

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
#include "files/workbook_compare.h"
#include "model/workbook.h"

namespace {

struct Totals {
  int files = 0, cells = 0, differences = 0, filesDiffering = 0, unreadable = 0;
  std::map<std::string, int> expected;
  std::vector<std::string> items;
};

void RoundTrip(uint32_t book, uint8_t version, const std::string& file, Totals* totals) {
  uint8_t* bytes = nullptr;
  uint32_t size = 0;
  BiffSaveReport report{};
  ASSERT_TRUE(BuildBiffStream(book, version, &bytes, &size, &report));
  uint32_t copy;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &copy));
  ClearLastMessage();
  if (!ReadBiffWorkbook(copy, bytes, size)) {
    totals->unreadable++;
    totals->items.push_back(file + ": the copy does not read: " + TextToUtf8(LastMessage()));
  } else {
    WorkbookDifferences d;
    CompareWorkbooks(book, copy, version == 7, &d);
    totals->files++;
    totals->cells += d.cells;
    totals->differences += d.differences;
    totals->filesDiffering += d.differences > 0;
    for (const auto& [reason, count] : d.expected) totals->expected[reason] += count;
    for (size_t i = 0; i < d.items.size() && i < 3 && totals->items.size() < 60; i++)
      totals->items.push_back(file + ": " + d.items[i]);
  }
  Release(bytes);
  CloseWorkbook(copy);
}

TEST(BiffRoundTrip, CorpusSavesAndReadsBackInBothVersions) {
  std::string folder = CorpusFolder();
  if (!std::filesystem::is_directory(folder)) {
    if (UnderCi()) FAIL() << "corpus missing at " << folder;
    GTEST_SKIP() << "corpus not found at " << folder;
  }
  Totals totals[2];
  int loaded = 0;
  for (const auto& item : std::filesystem::recursive_directory_iterator(folder)) {
    if (!item.is_regular_file() || !IsWorkbookFile(item.path())) continue;
    std::string relative = std::filesystem::relative(item.path(), folder).string();
    SCOPED_TRACE(relative);
    std::vector<uint8_t> bytes = ReadFileBytes(item.path());
    uint32_t book;
    ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
    if (ReadXlsFile(book, bytes.data(), bytes.size())) {
      loaded++;
      RoundTrip(book, 8, relative, &totals[0]);
      RoundTrip(book, 7, relative, &totals[1]);
    }
    CloseAllWorkbooks();
  }
  for (int v = 0; v < 2; v++) {
    const Totals& t = totals[v];
    std::printf(
        "round trip as %s: %d files, %d cells, %d unexplained differences in %d files, "
        "%d copies unreadable\n",
        v == 0 ? "BIFF8" : "BIFF5", t.files, t.cells, t.differences, t.filesDiffering,
        t.unreadable);
    for (const auto& [reason, count] : t.expected)
      std::printf("  expected %d: %s\n", count, reason.c_str());
    for (const std::string& item : t.items) std::printf("  differs: %s\n", item.c_str());
    EXPECT_EQ(t.unreadable, 0);
    EXPECT_EQ(t.differences, 0);
    EXPECT_EQ(t.files, loaded);
  }
}

}  // namespace
