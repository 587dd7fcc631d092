// Defined names (lookup, local shadowing, deletion) and the link table (self and external links,
// their resolution, and their survival of sheet insertion and lost memory).
#include <gtest/gtest.h>

#include "base/alloc.h"
#include "base/text.h"
#include "model/names.h"
#include "model/workbook.h"

namespace {

struct NamesTest : testing::Test {
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
  }
};

// A book whose sheets carry the given names, in order.
uint32_t Book(const char16_t* path, std::initializer_list<const char16_t*> sheets) {
  uint32_t book = 0;
  EXPECT_TRUE(CreateWorkbook(path, 0, &book));
  uint32_t sheet = 0;
  for (const char16_t* name : sheets) {
    EXPECT_TRUE(sheet == 0 || InsertSheet(book, sheet, name, SheetWorksheet, 0, 0));
    TextCopy(GetSheet(book, sheet++)->name, SheetNameCapacity, name);
  }
  return book;
}

// Adds a name with a small owned formula, so that leaks and double frees show.
int32_t Name(uint32_t book, const char16_t* text, uint16_t localSheet) {
  DefinedName name{};
  name.localSheet = localSheet;
  name.name = TextDuplicate(text);
  name.formula = FormulaTokens{3, 0, static_cast<uint8_t*>(Allocate(3))};
  uint32_t index = 0;
  EXPECT_TRUE(AddName(book, &name, &index));
  return static_cast<int32_t>(index);
}

int32_t Link(uint32_t from, uint32_t target, int32_t first, int32_t last) {
  LinkRequest req{from, target, first, last};
  int32_t index = -1;
  EXPECT_TRUE(FindOrAddLink(&req, &index));
  return index;
}

// "book first last", or "fail".
std::string Resolve(uint32_t from, int32_t link) {
  ResolvedLink r{from, 99, 99, 99};
  if (!ResolveLink(link, &r)) return "fail";
  return std::to_string(r.book) + " " + std::to_string(r.firstSheet) + " " +
         std::to_string(r.lastSheet);
}

// Each external book as "path[sheet name;...]", then the number of sheet links.
std::string Links(uint32_t book) {
  const Workbook* wb = GetWorkbook(book);
  std::string out;
  for (uint32_t i = 0; i < wb->externalBookCount; i++) {
    const ExternalBook& e = wb->externalBooks[i];
    out += TextToUtf8(e.path) + "[";
    for (uint32_t j = 0; j < e.sheetCount; j++) out += TextToUtf8(e.sheetNames[j]) + ";";
    out += "] ";
  }
  return out + std::to_string(wb->sheetLinkCount);
}

TEST_F(NamesTest, LocalNameShadowsGlobalOnItsSheetOnly) {
  uint32_t book = Book(nullptr, {u"A", u"B", u"C"});
  int32_t global = Name(book, u"Total", 0);
  int32_t onB = Name(book, u"TOTAL", 2);
  int32_t onC = Name(book, u"Été", 3);
  struct {
    uint32_t sheet;
    const char16_t* text;
    int32_t expected;
  } cases[] = {{0, u"total", global}, {1, u"tOtAl", onB}, {2, u"Total", global},
               {2, u"éTÉ", onC},      {0, u"été", -1},    {1, u"Tota", -1}};
  for (const auto& c : cases)
    EXPECT_EQ(FindName(book, c.sheet, c.text), c.expected) << TextToUtf8(c.text) << c.sheet;
}

TEST_F(NamesTest, DeleteKeepsOrTakesOutTheEntry) {
  uint32_t book = Book(nullptr, {u"A"});
  for (const char16_t* text : {u"First", u"Second", u"Third"}) Name(book, text, 0);
  const Workbook* wb = GetWorkbook(book);
  // Kept: later indices hold and the name is still found, without a definition.
  DeleteName(book, 1, 0);
  ASSERT_EQ(wb->nameCount, 3u);
  EXPECT_EQ(wb->names[1].formula.bytes, nullptr);
  EXPECT_EQ(FindName(book, 0, u"second"), 1);
  EXPECT_EQ(FindName(book, 0, u"third"), 2);
  DeleteName(book, 1, 1);
  ASSERT_EQ(wb->nameCount, 2u);
  EXPECT_EQ(FindName(book, 0, u"second"), -1);
  EXPECT_EQ(FindName(book, 0, u"third"), 1);
  EXPECT_NE(wb->names[1].formula.bytes, nullptr);
}

TEST_F(NamesTest, ExternalLinkGoesThroughSheetNames) {
  uint32_t from = Book(u"/home/user/Book.xls", {u"A"});
  uint32_t other = Book(u"C:\\data\\Other.xls", {u"Start", u"Prices", u"Costs"});
  int32_t range = Link(from, other, 1, 2);
  int32_t costs = Link(from, other, 2, 2);
  int32_t whole = Link(from, other, NoSheet, NoSheet);
  TextCopy(GetSheet(other, 1)->name, SheetNameCapacity, u"PRICES");  // same entry: case ignored
  EXPECT_EQ(Link(from, other, 1, 2), range);

  EXPECT_EQ(Links(from), "C:\3data\3Other.xls[Prices;Costs;] 3");

  // Sheets are looked up by name at resolution, so reordering them is followed.
  TextCopy(GetSheet(other, 0)->name, SheetNameCapacity, u"Costs");
  TextCopy(GetSheet(other, 2)->name, SheetNameCapacity, u"Start");
  EXPECT_EQ(Resolve(from, range), "1 1 0");
  TextCopy(GetSheet(other, 0)->name, SheetNameCapacity, u"Expenses");
  EXPECT_EQ(Resolve(from, costs), "fail");
  EXPECT_EQ(Resolve(from, whole), "1 -2 -2");

  // The open book is found by its leaf name whatever the directory and separators.
  const char16_t* paths[] = {u"D:\3elsewhere\3OTHER.XLS", u"/srv/other.xls", u"Other.xls",
                             u"C:\3data\3Other.xlsx"};
  for (const char16_t* path : paths) {
    ExternalBook probe{};
    probe.path = const_cast<char16_t*>(path);
    uint32_t book = 99;
    uint32_t expected = path == paths[3] ? 99u : other;
    EXPECT_EQ(OpenLinkedBook(from, &probe, &book) ? book : 99u, expected) << TextToUtf8(path);
  }
}

TEST_F(NamesTest, InsertedSheetKeepsNamesAndSelfLinksOnTheirSheets) {
  uint32_t book = Book(nullptr, {u"A", u"B", u"C"});
  uint32_t other = Book(u"Other.xls", {u"X", u"Y", u"Z"});
  int32_t onA = Name(book, u"Here", 1);
  int32_t onB = Name(book, u"There", 2);
  int32_t bc = Link(book, book, 1, 2);
  int32_t aa = Link(book, book, 0, 0);
  int32_t whole = Link(book, book, NoSheet, NoSheet);
  int32_t external = Link(book, other, 1, 2);
  EXPECT_EQ(Links(book), "[] Other.xls[Y;Z;] 4");

  ASSERT_TRUE(InsertSheet(book, 1, u"New", SheetWorksheet, 0, 0));
  EXPECT_EQ(GetWorkbook(book)->names[onA].localSheet, 1);
  EXPECT_EQ(FindName(book, 2, u"there"), onB);
  EXPECT_EQ(FindName(book, 1, u"there"), -1);
  EXPECT_EQ(Resolve(book, bc), "0 2 3");
  EXPECT_EQ(Resolve(book, aa), "0 0 0");
  EXPECT_EQ(Resolve(book, whole), "0 -2 -2");
  EXPECT_EQ(Resolve(book, external), "1 1 2");
}

TEST_F(NamesTest, ResolutionOfBadOrSpecialEntries) {
  uint32_t book = Book(nullptr, {u"A", u"B"});
  uint32_t other = Book(u"Other.xls", {u"X"});
  int32_t self = Link(book, book, 0, 1);
  int32_t outside = Link(book, other, 0, 0);
  Workbook* wb = GetWorkbook(book);
  EXPECT_EQ(Resolve(book, -1), "fail");
  EXPECT_EQ(Resolve(book, static_cast<int32_t>(wb->sheetLinkCount)), "fail");

  SheetLink* link = &wb->sheetLinks[self];
  link->firstSheet = DeletedSheet;
  EXPECT_EQ(Resolve(book, self), "fail");
  *link = SheetLink{link->bookIndex, 0, 2};
  EXPECT_EQ(Resolve(book, self), "fail");
  wb->sheetLinks[outside].lastSheet = 1;  // past the one sheet name the entry holds
  EXPECT_EQ(Resolve(book, outside), "fail");

  // Add-in entries have no book; the unused kind means the book and sheet on show.
  *link = SheetLink{link->bookIndex, 0, 1};
  wb->externalBooks[link->bookIndex].kind = ExternalAddIn;
  EXPECT_EQ(Resolve(book, self), "fail");
  wb->externalBooks[link->bookIndex].kind = ExternalUnused;
  App.currentBook = other;
  EXPECT_EQ(Resolve(book, self), "1 0 0");
}

TEST_F(NamesTest, LostMemoryLeavesLinkTablesUsable) {
  // Once into empty tables, once into tables that already hold an entry of each kind.
  for (int filled = 0; filled < 2; filled++) {
    int ok = 0;
    for (int64_t failAfter = 0; !ok && failAfter < 50; failAfter++) {
      uint32_t from = Book(nullptr, {u"A"});
      uint32_t other = Book(u"Other.xls", {u"X", u"Y", u"Z"});
      if (filled) Link(from, other, 0, 0);
      LinkRequest req{from, other, 1, 2};
      int32_t index = -1;
      SetAllocationFailureAfter(failAfter);
      ok = FindOrAddLink(&req, &index);
      SetAllocationFailureAfter(-1);

      // Trying again gives one entry of each kind, whatever the failed try left behind.
      EXPECT_EQ(Resolve(from, Link(from, other, 1, 2)), "1 1 2") << failAfter;
      EXPECT_EQ(Links(from), filled ? "Other.xls[X;Y;Z;] 2" : "Other.xls[Y;Z;] 1") << failAfter;
      CloseAllWorkbooks();
    }
    EXPECT_TRUE(ok);
  }
}

}  // namespace
