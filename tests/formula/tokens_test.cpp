// Token strings: stepping, shifting of relative references, copies and the function search, and
// the validator that guards every token string from outside (fuzz/fuzz_tokens.cpp damages strings
// at random). Function 39 of the built-in table is MOD, of two arguments.
#include <gtest/gtest.h>

#include "formula/token_builder.h"
#include "formula/tokens.h"

namespace {

using TB = TokenBuilder;

struct Owned {
  FormulaTokens t;
  explicit Owned(const TB& b) : t(b.Build()) {}
  ~Owned() { FreeTokens(&t); }
};

TEST(TokensTest, StepsOverEveryKindOfToken) {
  TB b;
  b.Str(u"ab").Str(u"\u20ACx").Op(ptgConcat).Int(7).Num(2.5).Op(ptgAdd).Op(ptgConcat);
  Owned t(b.Choose(TB().Int(1), {TB().Int(2), TB().Int(3)}));
  std::vector<uint32_t> starts, expected = {0, 5, 12, 13, 16, 25, 26, 27, 30, 40, 43, 47, 50, 54};
  for (uint32_t p = 0; p < t.t.length; p = NextTokenPosition(t.t.bytes, p)) starts.push_back(p);
  EXPECT_EQ(starts, expected);
  uint8_t extended[] = {ptgExtended, 10, 0, 0, 0, 0, ptgExtended, 4};
  EXPECT_EQ(NextTokenPosition(extended, 0), 6u);
  EXPECT_EQ(NextTokenPosition(extended, 6), 8u);
}

// Whole rows and columns stay whole, coordinates wrap, absolute ones stay.
TEST(TokensTest, ShiftsOnlyRelativeCoordinates) {
  const uint8_t R = ClassReference, V = ClassValue;
  TB in, out;  // row-relative only, whole column C, whole row 5, wrapping, absolute
  in.Ref(10, 3, V, true, false).Area(0, 65535, 2, 2, R).Area(4, 4, 0, 255, R);
  in.Area(65535, 65535, 255, 255, R).Area(1, 2, 1, 2, R, false);
  out.Ref(12, 3, V, true, false).Area(0, 65535, 3, 3, R).Area(6, 6, 0, 255, R);
  out.Area(1, 1, 0, 0, R).Area(1, 2, 1, 2, R, false);
  Owned t(in);
  ShiftRelativeRefs(&t.t, 2, 1);
  EXPECT_EQ(std::vector<uint8_t>(t.t.bytes, t.t.bytes + t.t.length), out.bytes);
}

TEST(TokensTest, CopiesComparesAndFindsFunctions) {
  Owned a(TB().Int(1).Int(2).Func(39).Array(1, 2, {NumberValue(1), BooleanValue(true)}));
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

TEST(TokensTest, ValidatesStringsFromOutside) {
  TB yes = TB().Int(1), no = TB().Str(u"n\u00f4n\u20ac");  // a wide string
  TB shortArray = TB().Array(1, 2, {NumberValue(1), NumberValue(2)});
  shortArray.extra.resize(shortArray.extra.size() - 3);
  TB badIf = TB().If(TB().Bool(true), yes);
  badIf.bytes[5] += 1;  // the IF offset now lands inside the goto
  TB badChoose = TB().Choose(yes, {TB().Int(5)});
  badChoose.bytes[7] = 1;  // first table entry points into the jump table
  TB cutString = TB().Str(u"abcdef");
  cutString.bytes.resize(6);
  struct Case {
    const char* what;
    TB tokens;
    bool valid;
    int32_t context = TokensForCell;
  };
  std::vector<Case> cases = {
      {"binary operator", TB().Int(1).Int(2).Op(ptgAdd), true},
      {"IF with both branches", TB().If(TB().Bool(true), yes, &no), true},
      {"IF without false branch", TB().If(TB().Bool(true), yes), true},
      {"CHOOSE", TB().Choose(TB().Int(2), {yes, no, yes}), true},
      {"array",
       TB().Array(2, 2, {NumberValue(1), ErrorValue(ErrNA), BooleanValue(0), NumberValue(4)}),
       true},
      {"sum", TB().Area(0, 3, 0, 0).Sum(), true},
      {"space and fixed function", TB().Attr(AttrSpace, 0x0100).Int(3).Int(4).Func(39), true},
      {"relative token in a name", TB().RefN(1, 1), true, TokensForName},
      {"memory marker over a union",
       TB().Byte(ptgMemFunc | ClassReference)
           .Word(15)
           .Ref(0, 0, ClassReference)
           .Ref(1, 1, ClassReference)
           .Op(ptgUnion)
           .Op(ptgParen),
       true},
      {"underflow", TB().Int(1).Op(ptgAdd), false},
      {"two values left", TB().Int(1).Int(2), false},
      {"unknown opcode", TB().Int(1).Byte(0x1A), false},
      {"truncated number", TB().Byte(ptgNum).Word(0), false},
      {"truncated string", cutString, false},
      {"wide flag not 0 or 1", TB().Byte(ptgStr).Byte(1).Byte(7).Byte('a'), false},
      {"array data short", shortArray, false},
      {"unknown function", TB().Int(1).Func(999), false},
      {"too many arguments", TB().Int(1).FuncVar(4, 31), false},
      {"relative token in a cell", TB().RefN(1, 1), false},
      {"IF into a goto", badIf, false},
      {"CHOOSE into its table", badChoose, false},
      {"goto past the end", TB().Int(1).Attr(AttrGoto, 40), false},
      {"empty", TB(), false},
  };
  for (const Case& c : cases) {
    Owned t(c.tokens);
    const char* why = nullptr;
    EXPECT_EQ(ValidateTokens(&t.t, c.context, &why), c.valid ? 1 : 0)
        << c.what << ": " << (why ? why : "");
    EXPECT_EQ(why == nullptr, c.valid) << c.what;
  }
}

}  // namespace
