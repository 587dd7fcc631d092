// The function table: order, counts, lookups, the BIFF numbers compared with the published list,
// and the rows whose handlers have yet to be written.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "base/text.h"
#include "formula/evaluator.h"
#include "formula/token_builder.h"
#include "functions/handlers.h"
#include "functions/table.h"
#include "model/workbook.h"

namespace {

struct EnglishName {
  const char16_t* name;
  const char* english;
  bool addIn;
};
const EnglishName englishNames[] = {
#include "functions/english_names.inc"
};

// A row's name, "none" for no row.
std::string Utf8(const char16_t* s) {
  return s ? TextToUtf8(s) : "none";
}

// Both tables sorted and unique by name, argument lists within the frame, a handler on every
// row; the counts per category; and exactly the rows listed in rows_waiting.txt (which shrinks as
// the families arrive) still waiting for their handlers.
TEST(FunctionTable, IsSortedUniqueCompleteAndCountedByCategory) {
  const FunctionTables* t = ActiveFunctionTables();
  ASSERT_EQ(t->mainCount, 720u);
  ASSERT_EQ(t->addInCount, 112u);
  std::set<std::string> names, pending, waiting;
  std::map<uint32_t, int> counts;
  for (const auto& [rows, count] : {std::pair{t->main, t->mainCount}, {t->addIn, t->addInCount}}) {
    for (uint32_t i = 0; i < count; i++) {
      EXPECT_TRUE(names.insert(Utf8(rows[i].name)).second) << Utf8(rows[i].name);
      if (i > 0) {
        EXPECT_LT(CompareTextNoCase(rows[i - 1].name, rows[i].name), 0) << i;
      }
      EXPECT_LE(std::strlen(rows[i].args), 30u);
      EXPECT_NE(rows[i].handler, nullptr);
      // The add-in rows hold only their category.
      counts[rows == t->main ? FunctionCategory(&rows[i]) : rows[i].info & 0xFF]++;
      if (rows[i].handler == PendingFunction) pending.insert(Utf8(rows[i].name));
    }
  }
  EXPECT_EQ(names.size(), 832u);
  std::map<uint32_t, int> expected = {{0, 1},   {1, 53},  {2, 21},   {3, 59},   {4, 78},
                                      {5, 16},  {6, 12},  {7, 23},   {8, 5},    {9, 18},
                                      {10, 40}, {11, 16}, {12, 148}, {255, 342}};
  EXPECT_EQ(counts, expected);
  std::ifstream in(std::string(TESSAREL_SOURCE_DIR) + "/tests/functions/rows_waiting.txt");
  ASSERT_TRUE(in) << "rows_waiting.txt not found";
  for (std::string line; std::getline(in, line);)
    if (!line.empty() && line[0] != '#') waiting.insert(line);
  EXPECT_EQ(pending, waiting);
}

// Names are found in either table whatever their case, and only whole; numbers find the
// volatile rows, and the working row where an old command name shares its number.
TEST(FunctionTable, FindsByNameAndNumber) {
  int addIn = -1;
  const FunctionEntry* e = FindFunctionByName(u"somme(1;2)", 5, &addIn);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(Utf8(e->name), "SOMME");
  EXPECT_EQ(addIn, 0);
  EXPECT_EQ(FunctionNumber(e), 4u);
  EXPECT_EQ(FunctionFormatHint(e), -1);
  ASSERT_NE(FindFunctionByName(u"fin.mois", 8, &addIn), nullptr);
  EXPECT_EQ(addIn, 1);
  EXPECT_EQ(FindFunctionByName(u"SOMMES", 6, nullptr), nullptr);
  EXPECT_EQ(FindFunctionByName(u"SOMM", 4, nullptr), nullptr);
  EXPECT_NE(FindFunctionByName(u"entr\u00E9e", 6, nullptr), nullptr);

  const std::pair<uint32_t, std::string> numbers[] = {
      {63, "ALEA"},    {74, "MAINTENANT"},         {221, "AUJOURDHUI"}, {244, "INFO"},
      {78, "DECALER"}, {125, "CELLULE"},           {148, "INDIRECT"},   {344, "SOUS.TOTAL"},
      {9999, "none"},  {32975, "PROPRIETES.OBJET"}};
  for (const auto& [number, name] : numbers) EXPECT_EQ(Utf8(FunctionNameByNumber(number)), name);

  // All upper case below 0x8000 is a fixed argument count; the rest are variable.
  const std::pair<const char16_t*, const char*> forms[] = {
      {u"SOMME", "Rrrrrrrrrrrrrrrrrrrrrrrrrrrrrr"},
      {u"DECALER", "CVVvv"},
      {u"BDNB", "CwC"},
      {u"ABS", "V"},
      {u"PI", ""},
      {u"SI", "VRr"}};
  for (const auto& [name, args] : forms) {
    e = FindFunctionByName(name, TextLength(name), nullptr);
    ASSERT_NE(e, nullptr) << Utf8(name);
    EXPECT_STREQ(e->args, args) << Utf8(name);
  }
}

// The evaluator reaches the built-in rows by number: handlers that exist run, and the rows
// without an implementation give FALSE.
// Workbooks written by English programs call the add-in functions by their English names: each
// add-in row is found by its own name and by its English one, in any case; a main-table name or
// an unknown one is no add-in.
TEST(FunctionTable, FindsAddInsByTheNamesWorkbooksHold) {
  const FunctionTables* t = ActiveFunctionTables();
  int checked = 0;
  for (const EnglishName& e : englishNames) {
    if (!e.addIn) continue;
    int32_t own = FindAddInByFileName(e.name);
    ASSERT_GE(own, 0) << Utf8(e.name);
    EXPECT_EQ(Utf8(t->addIn[own].name), Utf8(e.name));
    std::string lower = e.english;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const std::string& english : {std::string(e.english), lower})
      EXPECT_EQ(FindAddInByFileName(Utf8ToU16(english).c_str()), own) << english;
    checked++;
  }
  EXPECT_EQ(checked, 112);
  const char16_t* none[] = {u"SOMME", u"SUM", u"", u"WEEKNUMS"};
  for (const char16_t* name : none) EXPECT_EQ(FindAddInByFileName(name), -1) << Utf8(name);
}

TEST(FunctionTable, DispatchesThroughTheBuiltInRows) {
  uint32_t book;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
  const std::pair<TokenBuilder, Value> cases[] = {
      {TokenBuilder().Int(1).Int(2).Str(u"3").FuncVar(4, 3), NumberValue(6)},       // SOMME
      {TokenBuilder().Func(34), BooleanValue(true)},                                // VRAI()
      {TokenBuilder().Func(35), BooleanValue(false)},                               // FAUX()
      {TokenBuilder().Int(1).FuncVar(32798, 1), BooleanValue(false)},               // A1.L1C1(1)
      {TokenBuilder().Bool(true).Bool(false).FuncVar(36, 2), BooleanValue(false)},  // ET
      {TokenBuilder().Func(10).Func(2), BooleanValue(true)},                        // ESTNA(NA())
      {TokenBuilder().Num(-1.5).Func(24), NumberValue(1.5)},                        // ABS
  };
  for (const auto& [builder, expected] : cases) {
    FormulaTokens tokens = builder.Build();
    ASSERT_TRUE(ValidateTokens(&tokens, TokensForCell, nullptr));
    EvalContext ctx{book, 0, 0, 0, 0};
    Value result{};
    ASSERT_TRUE(Evaluate(&tokens, &result, &ctx));
    EXPECT_EQ(result.tag, expected.tag);
    EXPECT_EQ(result.number, expected.number);
    FreeValue(&result);
    FreeTokens(&tokens);
  }
  CloseAllWorkbooks();
}

// Reads the published table of BIFF numbers: English name -> (number, minimum, maximum). Lines
// hold the index, the name and the two counts first; comment lines do not read as numbers.
struct Published {
  uint32_t number;
  int minimum, maximum;
};
bool ReadPublished(const std::string& path, uint32_t base, std::map<std::string, Published>* out) {
  std::ifstream in(path);
  if (!in) return false;
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::string name;
    Published p;
    if (fields >> p.number >> name >> p.minimum >> p.maximum)
      (*out)[name] = {base + p.number, p.minimum, p.maximum};
  }
  return true;
}

// The argument list's length is the published maximum (30 for the open-ended ones), and a fixed
// list's length is also the minimum.
TEST(FunctionTable, NumbersMatchThePublishedList) {
  const char* dir = std::getenv("TESSAREL_REFERENCE");
  std::string folder = dir ? dir : std::string(TESSAREL_SOURCE_DIR) + "/../shared/reference";
  std::map<std::string, Published> sheet, commands;
  if (!ReadPublished(folder + "/biff-functions.txt", 0, &sheet) ||
      !ReadPublished(folder + "/biff-command-functions.txt", 0x8000, &commands)) {
    if (std::getenv("CI") && std::string(std::getenv("CI")) == "true")
      FAIL() << "reference tables missing at " << folder;
    GTEST_SKIP() << "reference tables not found at " << folder;
  }
  int compared = 0;
  for (const EnglishName& row : englishNames) {
    if (row.addIn) continue;
    const FunctionEntry* e = FindFunctionByName(row.name, TextLength(row.name), nullptr);
    ASSERT_NE(e, nullptr);
    uint32_t number = FunctionNumber(e);
    const auto& published = number >= 0x8000 ? commands : sheet;
    auto it = published.find(row.english);
    if (it == published.end()) continue;
    compared++;
    EXPECT_EQ(number, it->second.number) << Utf8(row.name) << " = " << row.english;
    if (number >= 0x8000) continue;
    int length = static_cast<int>(std::strlen(e->args)), required = 0;
    for (const char* p = e->args; *p; p++) required += (*p >= 'A' && *p <= 'Z');
    EXPECT_EQ(length, it->second.maximum < 30 ? it->second.maximum : 30) << Utf8(row.name);
    if (it->second.maximum < 30 && required == length) {
      EXPECT_EQ(length, it->second.minimum) << Utf8(row.name);
    }
  }
  EXPECT_GT(compared, 300);
}

}  // namespace
