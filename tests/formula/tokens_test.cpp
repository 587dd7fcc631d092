// Token strings: stepping, class folding, shifting of relative references, function search,
// and the validator that guards every token string from outside.
#include <gtest/gtest.h>

#include <random>

#include "base/bytes.h"
#include "formula/token_builder.h"
#include "formula/tokens.h"
#include "functions/table.h"

namespace {

struct Owned {
  FormulaTokens t;
  explicit Owned(const TokenBuilder& b) : t(b.Build()) {}
  ~Owned() { FreeTokens(&t); }
};

// Positions at which tokens start, by the walkers' stepping.
std::vector<uint32_t> Starts(const FormulaTokens& t) {
  std::vector<uint32_t> out;
  for (uint32_t p = 0; p < t.length; p = NextTokenPosition(t.bytes, p)) out.push_back(p);
  return out;
}

void TestHandler(Value*, Value* result, const EvalContext*) {
  *result = NumberValue(1);
}

const FunctionEntry testRows[] = {
    {u"IF", "VVV", TestHandler, 1, u""},
    {u"TWO", "VV", TestHandler, 39, u""},
    {u"CHOOSE", "VVVVVVVVVVVVVVVVVVVVVVVVVVVVVV", TestHandler, 100, u""},
};
const FunctionTables testTables = {testRows, 3, nullptr, 0};

class TokensTest : public ::testing::Test {
 protected:
  void SetUp() override { SetFunctionTables(&testTables); }
  void TearDown() override { SetFunctionTables(nullptr); }
};

TEST_F(TokensTest, StepsOverEveryKindOfToken) {
  TokenBuilder b;
  b.Str(u"ab").Str(u"\u20ACx").Op(ptgConcat).Int(7).Num(2.5).Op(ptgAdd).Op(ptgConcat);
  b.Choose(TokenBuilder().Int(1), {TokenBuilder().Int(2), TokenBuilder().Int(3)});
  Owned t(b);
  std::vector<uint32_t> expected = {0, 5, 12, 13, 16, 25, 26, 27, 30, 40, 43, 47, 50, 54};
  EXPECT_EQ(Starts(t.t), expected);

  uint8_t extended[] = {ptgExtended, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, ptgExtended, 4};
  EXPECT_EQ(NextTokenPosition(extended, 0), 16u);
  EXPECT_EQ(NextTokenPosition(extended, 15), 17u);
}

TEST_F(TokensTest, ClassBitsFoldToTheReferenceForm) {
  for (uint8_t op : {0x24, 0x44, 0x64}) EXPECT_EQ(FoldOpcode(op), ptgRef);
  EXPECT_EQ(FoldOpcode(0x5A), ptgRef3d);
  EXPECT_EQ(FoldOpcode(ptgAdd), ptgAdd);
  EXPECT_EQ(TokenClass(0x44), ClassValue);
  EXPECT_EQ(TokenClass(ptgAdd), 0);
}

TEST_F(TokensTest, ShiftsOnlyRelativeCoordinatesAndKeepsWholeRowsAndColumns) {
  TokenBuilder b;
  b.Ref(10, 3, ClassValue, true, false);                 // row relative only
  b.Area(0, 65535, 2, 2, ClassReference, true);          // whole column C
  b.Area(4, 4, 0, 255, ClassReference, true);            // whole row 5
  b.Area(65535, 65535, 255, 255, ClassReference, true);  // wraps
  b.Area(1, 2, 1, 2, ClassReference, false);             // absolute
  Owned t(b);
  ShiftRelativeRefs(&t.t, 2, 1);
  const uint8_t* p = t.t.bytes;
  EXPECT_EQ(ReadU16(p + 1), 12);
  EXPECT_EQ(p[3], 3);
  EXPECT_EQ(ReadU16(p + 6), 0);  // C:C stays C:C but its column moves
  EXPECT_EQ(ReadU16(p + 8), 65535);
  EXPECT_EQ(p[10], 3);
  EXPECT_EQ(ReadU16(p + 15), 6);  // row 5 moves down, still whole
  EXPECT_EQ(p[19], 0);
  EXPECT_EQ(p[21], 255);
  EXPECT_EQ(ReadU16(p + 24), 1);  // 65535 + 2 wraps to 1
  EXPECT_EQ(p[28], 0);            // 255 + 1 wraps to 0
  EXPECT_EQ(ReadU16(p + 33), 1);  // absolute area unchanged
  EXPECT_EQ(p[37], 1);
}

TEST_F(TokensTest, CopiesComparesAndFindsFunctions) {
  Owned a(TokenBuilder().Int(1).Int(2).Func(39).Array(1, 2, {NumberValue(1), BooleanValue(true)}));
  FormulaTokens copy;
  ASSERT_TRUE(CopyTokens(&copy, &a.t));
  EXPECT_TRUE(EqualTokens(&copy, &a.t));
  copy.bytes[copy.length]++;  // the extra data takes part in equality
  EXPECT_FALSE(EqualTokens(&copy, &a.t));
  FreeTokens(&copy);
  EXPECT_EQ(copy.bytes, nullptr);

  const uint16_t two[] = {39}, other[] = {40, 1};
  EXPECT_TRUE(TokensCallFunction(&a.t, two, 1));
  EXPECT_FALSE(TokensCallFunction(&a.t, other, 2));
}

TEST_F(TokensTest, AcceptsWellFormedStrings) {
  TokenBuilder yes = TokenBuilder().Int(1);
  TokenBuilder no = TokenBuilder().Str(u"non");
  std::vector<TokenBuilder> good = {
      TokenBuilder().Int(1).Int(2).Op(ptgAdd),
      TokenBuilder().If(TokenBuilder().Bool(true), yes, &no),
      TokenBuilder().If(TokenBuilder().Bool(true), yes),
      TokenBuilder().Choose(TokenBuilder().Int(2), {yes, no, yes}),
      TokenBuilder().Array(
          2, 2, {NumberValue(1), ErrorValue(ErrNA), BooleanValue(false), NumberValue(4)}),
      TokenBuilder().Area(0, 3, 0, 0).Sum(),
      TokenBuilder().Attr(AttrSpace, 0x0100).Int(3).Int(4).Func(39),
  };
  for (size_t i = 0; i < good.size(); i++) {
    Owned t(good[i]);
    const char* why = nullptr;
    EXPECT_TRUE(ValidateTokens(&t.t, TokensForCell, &why)) << i << ": " << (why ? why : "");
  }
}

TEST_F(TokensTest, RefusesMalformedStrings) {
  struct Case {
    const char* what;
    TokenBuilder tokens;
    int32_t context;
  };
  TokenBuilder shortArray = TokenBuilder().Array(1, 2, {NumberValue(1), NumberValue(2)});
  shortArray.extra.resize(shortArray.extra.size() - 3);
  TokenBuilder badIf = TokenBuilder().If(TokenBuilder().Bool(true), TokenBuilder().Int(1));
  badIf.bytes[5] += 1;  // the IF offset now lands inside the goto
  TokenBuilder badChoose = TokenBuilder().Choose(TokenBuilder().Int(1), {TokenBuilder().Int(5)});
  badChoose.bytes[7] = 1;  // first table entry points into the jump table
  TokenBuilder truncatedString = TokenBuilder().Str(u"abcdef");
  truncatedString.bytes.resize(6);
  std::vector<Case> cases = {
      {"underflow", TokenBuilder().Int(1).Op(ptgAdd), TokensForCell},
      {"two values left", TokenBuilder().Int(1).Int(2), TokensForCell},
      {"unknown opcode", TokenBuilder().Int(1).Byte(0x1A), TokensForCell},
      {"truncated number", TokenBuilder().Byte(ptgNum).Word(0), TokensForCell},
      {"truncated string", truncatedString, TokensForCell},
      {"wide flag not 0 or 1", TokenBuilder().Byte(ptgStr).Byte(1).Byte(7).Byte('a'),
       TokensForCell},
      {"array data short", shortArray, TokensForCell},
      {"unknown function", TokenBuilder().Int(1).Func(999), TokensForCell},
      {"too many arguments", TokenBuilder().Int(1).FuncVar(4, 31), TokensForCell},
      {"relative token in a cell", TokenBuilder().RefN(1, 1), TokensForCell},
      {"IF into a goto", badIf, TokensForCell},
      {"CHOOSE into its table", badChoose, TokensForCell},
      {"goto past the end", TokenBuilder().Int(1).Attr(AttrGoto, 40), TokensForCell},
      {"empty", TokenBuilder(), TokensForCell},
  };
  for (Case& c : cases) {
    Owned t(c.tokens);
    const char* why = nullptr;
    EXPECT_FALSE(ValidateTokens(&t.t, c.context, &why)) << c.what;
    EXPECT_NE(why, nullptr) << c.what;
  }
  Owned relative(TokenBuilder().RefN(1, 1));
  EXPECT_TRUE(ValidateTokens(&relative.t, TokensForName, nullptr));
}

// Random damage to valid strings never makes the validator read out of bounds, and whatever it
// accepts can be walked by every walker without leaving the string.
TEST_F(TokensTest, SurvivesRandomDamage) {
  TokenBuilder yes = TokenBuilder().Int(1), no = TokenBuilder().Str(u"non");
  std::vector<TokenBuilder> seeds = {
      TokenBuilder().If(TokenBuilder().Ref(1, 1), yes, &no),
      TokenBuilder().Choose(TokenBuilder().Int(2), {yes, no}),
      TokenBuilder().Array(1, 3, {NumberValue(1), NumberValue(2), NumberValue(3)}).Sum(),
      TokenBuilder().Area3d(0, 1, 2, 3, 4).Ref(5, 6).Op(ptgUnion).Func(39),
  };
  std::mt19937 random(1234);
  for (int round = 0; round < 4000; round++) {
    TokenBuilder b = seeds[round % seeds.size()];
    int edits = 1 + static_cast<int>(random() % 3);
    for (int e = 0; e < edits; e++) {
      if (random() % 4 == 0 && b.bytes.size() > 1)
        b.bytes.resize(b.bytes.size() - 1 - random() % (b.bytes.size() - 1));
      else if (!b.bytes.empty())
        b.bytes[random() % b.bytes.size()] = static_cast<uint8_t>(random());
    }
    Owned t(b);
    if (!ValidateTokens(&t.t, TokensForName, nullptr)) continue;
    for (uint32_t p = 0; p < t.t.length; p = NextTokenPosition(t.t.bytes, p))
      ASSERT_LE(NextTokenPosition(t.t.bytes, p), t.t.length);
  }
}

}  // namespace
