// The function table: order, counts, lookups, the BIFF numbers compared with the published list,
// and the rows whose handlers have yet to be written.
#include <gtest/gtest.h>

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

std::string Utf8(const char16_t* s) {
  return TextToUtf8(s);
}

// Upper-case letters count the required arguments; the length is the maximum count.
int Required(const char* args) {
  int n = 0;
  for (const char* p = args; *p; p++) n += (*p >= 'A' && *p <= 'Z');
  return n;
}

TEST(FunctionTable, IsSortedUniqueAndComplete) {
  const FunctionTables* t = ActiveFunctionTables();
  ASSERT_EQ(t->mainCount, 720u);
  ASSERT_EQ(t->addInCount, 112u);
  std::set<std::string> names;
  for (const auto& [rows, count] : {std::pair{t->main, t->mainCount}, {t->addIn, t->addInCount}}) {
    for (uint32_t i = 0; i < count; i++) {
      EXPECT_TRUE(names.insert(Utf8(rows[i].name)).second) << Utf8(rows[i].name);
      if (i > 0) {
        EXPECT_LT(CompareTextNoCase(rows[i - 1].name, rows[i].name), 0) << i;
      }
      EXPECT_LE(std::strlen(rows[i].args), 30u);
      EXPECT_NE(rows[i].handler, nullptr);
    }
  }
  EXPECT_EQ(names.size(), 832u);
}

TEST(FunctionTable, CountsPerCategory) {
  const FunctionTables* t = ActiveFunctionTables();
  std::map<uint32_t, int> counts;
  for (uint32_t i = 0; i < t->mainCount; i++) counts[FunctionCategory(&t->main[i])]++;
  for (uint32_t i = 0; i < t->addInCount; i++) counts[t->addIn[i].info & 0xFF]++;
  std::map<uint32_t, int> expected = {{0, 1},   {1, 53},  {2, 21},   {3, 59},   {4, 78},
                                      {5, 16},  {6, 12},  {7, 23},   {8, 5},    {9, 18},
                                      {10, 40}, {11, 16}, {12, 148}, {255, 342}};
  EXPECT_EQ(counts, expected);
}

TEST(FunctionTable, FindsByNameAndNumber) {
  int addIn = -1;
  const char16_t lower[] = u"somme(1;2)";
  const FunctionEntry* e = FindFunctionByName(lower, 5, &addIn);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(Utf8(e->name), "SOMME");
  EXPECT_EQ(addIn, 0);
  EXPECT_EQ(FunctionNumber(e), 4u);
  EXPECT_EQ(FunctionFormatHint(e), -1);
  e = FindFunctionByName(u"fin.mois", 8, &addIn);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(addIn, 1);
  EXPECT_EQ(FindFunctionByName(u"SOMMES", 6, nullptr), nullptr);
  EXPECT_EQ(FindFunctionByName(u"SOMM", 4, nullptr), nullptr);
  const char16_t entree[] = u"entr\u00E9e";
  EXPECT_NE(FindFunctionByName(entree, 6, nullptr), nullptr);

  // The volatile rows, by their numbers.
  const std::pair<uint32_t, std::string> volatiles[] = {
      {63, "ALEA"},    {74, "MAINTENANT"}, {221, "AUJOURDHUI"}, {244, "INFO"},
      {78, "DECALER"}, {125, "CELLULE"},   {148, "INDIRECT"},   {344, "SOUS.TOTAL"}};
  for (const auto& [number, name] : volatiles) {
    ASSERT_NE(FunctionNameByNumber(number), nullptr) << number;
    EXPECT_EQ(Utf8(FunctionNameByNumber(number)), name);
  }
  // An old command name shares its number with the new one; the number finds the working row.
  EXPECT_EQ(Utf8(FunctionNameByNumber(32975)), "PROPRIETES.OBJET");
  EXPECT_EQ(FunctionNameByNumber(9999), nullptr);
}

TEST(FunctionTable, FixedAndVariableForms) {
  // All upper case below 0x8000 is a fixed argument count; the rest are variable.
  const std::pair<const char16_t*, const char*> rows[] = {
      {u"SOMME", "Rrrrrrrrrrrrrrrrrrrrrrrrrrrrrr"},
      {u"DECALER", "CVVvv"},
      {u"BDNB", "CwC"},
      {u"ABS", "V"},
      {u"PI", ""},
      {u"SI", "VRr"}};
  for (const auto& [name, args] : rows) {
    const FunctionEntry* e = FindFunctionByName(name, TextLength(name), nullptr);
    ASSERT_NE(e, nullptr) << Utf8(name);
    EXPECT_STREQ(e->args, args) << Utf8(name);
  }
}

// The evaluator reaches the built-in rows by number: handlers that exist run, the rows without an
// implementation give FALSE, and the rows whose family is still to come give #N/A.
TEST(FunctionTable, DispatchesThroughTheBuiltInRows) {
  uint32_t book;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
  struct Case {
    TokenBuilder tokens;
    Value expected;
  };
  const Case cases[] = {
      {TokenBuilder().Int(1).Int(2).Str(u"3").FuncVar(4, 3), NumberValue(6)},       // SOMME
      {TokenBuilder().Func(34), BooleanValue(true)},                                // VRAI()
      {TokenBuilder().Func(35), BooleanValue(false)},                               // FAUX()
      {TokenBuilder().Int(1).FuncVar(32798, 1), BooleanValue(false)},               // A1.L1C1(1)
      {TokenBuilder().Bool(true).Bool(false).FuncVar(36, 2), BooleanValue(false)},  // ET
      {TokenBuilder().Func(10).Func(2), BooleanValue(true)},                        // ESTNA(NA())
      {TokenBuilder().Num(-1.5).Func(24), NumberValue(1.5)},                        // ABS
  };
  for (const Case& c : cases) {
    FormulaTokens tokens = c.tokens.Build();
    ASSERT_TRUE(ValidateTokens(&tokens, TokensForCell, nullptr));
    EvalContext ctx{book, 0, 0, 0, 0};
    Value result{};
    ASSERT_TRUE(Evaluate(&tokens, &result, &ctx));
    EXPECT_EQ(result.tag, c.expected.tag);
    EXPECT_EQ(result.number, c.expected.number);
    FreeValue(&result);
    FreeTokens(&tokens);
  }
  CloseAllWorkbooks();
}

// Reads the published table of BIFF numbers: English name -> (number, minimum, maximum).
struct Published {
  uint32_t number;
  int minimum, maximum;
};
bool ReadPublished(const std::string& path, uint32_t base, std::map<std::string, Published>* out) {
  std::ifstream in(path);
  if (!in) return false;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string index, name, minimum, maximum;
    std::getline(fields, index, '\t');
    std::getline(fields, name, '\t');
    std::getline(fields, minimum, '\t');
    std::getline(fields, maximum, '\t');
    if (index.empty() || name.empty()) continue;
    (*out)[name] = {base + static_cast<uint32_t>(std::stoul(index)), std::atoi(minimum.c_str()),
                    std::atoi(maximum.c_str())};
  }
  return true;
}

std::string ReferenceFolder() {
  if (const char* dir = std::getenv("TESSAREL_REFERENCE")) return dir;
  return std::string(TESSAREL_SOURCE_DIR) + "/../shared/reference";
}

TEST(FunctionTable, NumbersMatchThePublishedList) {
  std::map<std::string, Published> sheet, commands;
  std::string folder = ReferenceFolder();
  bool found = ReadPublished(folder + "/biff-functions.txt", 0, &sheet) &&
               ReadPublished(folder + "/biff-command-functions.txt", 0x8000, &commands);
  if (!found) {
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
    int length = static_cast<int>(std::strlen(e->args));
    bool fixed = number < 0x8000 && Required(e->args) == length;
    if (number < 0x8000 && it->second.maximum < 30) {
      EXPECT_EQ(length, it->second.maximum) << Utf8(row.name);
      if (fixed) {
        EXPECT_EQ(length, it->second.minimum) << Utf8(row.name);
      }
    } else if (number < 0x8000) {
      EXPECT_EQ(length, 30) << Utf8(row.name);
    }
  }
  EXPECT_GT(compared, 300);
}

// The rows whose families are still to be written: exactly those listed in rows_waiting.txt.
// The list shrinks as the families arrive.
TEST(FunctionTable, RowsStillWaitingForTheirHandlers) {
  std::ifstream in(std::string(TESSAREL_SOURCE_DIR) + "/tests/functions/rows_waiting.txt");
  ASSERT_TRUE(in) << "rows_waiting.txt not found";
  std::set<std::string> waiting, pending;
  for (std::string line; std::getline(in, line);)
    if (!line.empty() && line[0] != '#') waiting.insert(line);
  const FunctionTables* t = ActiveFunctionTables();
  for (const auto& [rows, count] : {std::pair{t->main, t->mainCount}, {t->addIn, t->addInCount}})
    for (uint32_t i = 0; i < count; i++)
      if (rows[i].handler == PendingFunction) pending.insert(Utf8(rows[i].name));
  EXPECT_EQ(pending, waiting);
}

}  // namespace
