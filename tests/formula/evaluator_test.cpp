// The evaluator's main loop: constants, operators over every pairing of operand kinds, the
// comparison rules, references and their classes, the reference operators, the jumps of IF and
// CHOOSE, and what malformed token strings and lost memory give.
#include "evaluator_fixture.h"

namespace evaltest {
namespace {

void ExpectCases(EvaluatorTest* test, const std::vector<Case>& cases, EvalContext ctx) {
  for (const Case& c : cases) EXPECT_EQ(test->Run(c.tokens, ctx), c.expected) << c.what;
}

TEST_F(EvaluatorTest, ConstantsAndStrings) {
  std::vector<Case> cases = {
      {"int", T().Int(65535), "65535"},
      {"num", T().Num(-2.5), "-2.5"},
      {"bool", T().Bool(true), "TRUE"},
      {"error byte", T().Err(ErrDiv0), "#DIV/0!"},
      {"unknown error byte", T().Byte(ptgErr).Byte(0x99), "#N/A"},
      {"8-bit string widened", T().Str(u"\u00e9t\u00e9"), "\"\u00e9t\u00e9\""},
      {"wide string", T().Str(u"\u03a9x"), "\"\u03a9x\""},
      {"empty string", T().Str(u""), "\"\""},
      {"missing argument", T().Missing(), "blank"},
      {"no-effect tokens",
       T().Int(3).Op(ptgUplus).Op(ptgParen).Attr(AttrSpace, 0x0102).Attr(AttrVolatile), "3"},
      {"exp and extended tokens are stepped over",
       T().Byte(ptgExp).Word(1).Word(2).Byte(ptgExtended).Byte(1).Word(0).Word(0).Byte(0).Int(4),
       "4"},
      {"array of every element type",
       T().Array(2, 2, {NumberValue(1.5), Txt(u"\u00e9"), BooleanValue(true), ErrorValue(ErrRef)}),
       "{1.5,\"\u00e9\";TRUE,#REF!}"},
      {"two array constants take consecutive extra data",
       T().Array(1, 2, {NumberValue(1), NumberValue(2)}).Array(1, 1, {NumberValue(5)}).Op(ptgAdd),
       "{6,7}"},
  };
  ExpectCases(this, cases, At());
}

TEST_F(EvaluatorTest, ArrayElementOfUnknownTypeStaysBlankWithoutMovingTheCursor) {
  TokenBuilder t = T();
  t.Byte(ptgArray | A);
  for (int i = 0; i < 7; i++) t.Byte(0);
  t.extra = {2, 0, 0, ValueNumber, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F, 0, 0x77};  // 1 x 3
  EXPECT_EQ(Run(t), "{1,blank,blank}");
}

TEST_F(EvaluatorTest, ArithmeticOverEveryPairOfOperandKinds) {
  Put(0, 0, 0, NumberValue(5));  // A1
  Put(0, 1, 0, NumberValue(7));  // A2
  PutText(0, 2, 0, u"x");        // A3
  std::vector<Case> cases = {
      {"number op number", T().Int(7).Int(10).Op(ptgSub), "-3"},
      {"text parsed", T().Str(u"3").Int(1).Op(ptgAdd), "4"},
      {"text not a number", T().Str(u"x").Int(1).Op(ptgAdd), "#VALUE!"},
      {"boolean and blank", T().Bool(true).Missing().Op(ptgAdd), "1"},
      {"left error wins", T().Err(ErrRef).Err(ErrDiv0).Op(ptgMul), "#REF!"},
      {"right error", T().Int(1).Err(ErrNA).Op(ptgAdd), "#N/A"},
      {"number op array", T().Int(10).Array(1, 2, {NumberValue(1), Txt(u"2")}).Op(ptgSub), "{9,8}"},
      {"array op number", T().Array(1, 2, {NumberValue(1), BooleanValue(true)}).Int(10).Op(ptgSub),
       "{-9,-9}"},
      {"text element that is no number",
       T().Array(1, 2, {Txt(u"a"), ErrorValue(ErrNull)}).Int(1).Op(ptgAdd), "{#VALUE!,#NULL!}"},
      {"left error replaces every element",
       T().Err(ErrDiv0).Array(1, 3, {NumberValue(1), Txt(u"a"), ErrorValue(ErrNA)}).Op(ptgAdd),
       "{#DIV/0!,#DIV/0!,#DIV/0!}"},
      {"right error replaces only number elements",
       T().Array(1, 3, {NumberValue(1), Txt(u"a"), ErrorValue(ErrNA)}).Err(ErrDiv0).Op(ptgAdd),
       "{#DIV/0!,#VALUE!,#N/A}"},
      {"row by column",
       T().Array(1, 2, {NumberValue(1), NumberValue(2)})
           .Array(2, 1, {NumberValue(10), NumberValue(20)})
           .Op(ptgAdd),
       "{11,12;21,22}"},
      {"wider than the other",
       T().Array(1, 3, {NumberValue(1), NumberValue(2), NumberValue(3)})
           .Array(1, 2, {NumberValue(1), NumberValue(2)})
           .Op(ptgAdd),
       "{2,4,#N/A}"},
      {"element errors, left first",
       T().Array(1, 2, {NumberValue(1), ErrorValue(ErrNA)})
           .Array(1, 2, {ErrorValue(ErrDiv0), ErrorValue(ErrRef)})
           .Op(ptgAdd),
       "{#DIV/0!,#N/A}"},
      {"reference goes to array", RefT(T(), 0, 0, R).Int(1).Op(ptgAdd), "{6}"},
      {"area goes to array", AreaT(T(), 0, 2, 0, 0, R).Int(2).Op(ptgMul), "{10;14;#VALUE!}"},
      {"value-class reference is the cell's value", RefT(T(), 1, 0, V).Int(1).Op(ptgAdd), "8"},
      {"divide by zero", T().Int(1).Int(0).Op(ptgDiv), "#DIV/0!"},
      {"0^0", T().Int(0).Int(0).Op(ptgPower), "#NUM!"},
      {"negative base, fractional exponent",
       T().Int(8).Op(ptgUminus).Int(1).Int(3).Op(ptgDiv).Op(ptgPower), "#NUM!"},
      {"negative base, whole exponent", T().Int(2).Op(ptgUminus).Int(3).Op(ptgPower), "-8"},
      {"0^-1", T().Int(0).Int(1).Op(ptgUminus).Op(ptgPower), "#DIV/0!"},
      {"overflow", T().Num(1e308).Int(10).Op(ptgMul), "#NUM!"},
      {"overflow inside an array",
       T().Array(1, 2, {NumberValue(1e308), NumberValue(1)}).Int(10).Op(ptgMul), "{#NUM!,10}"},
  };
  ExpectCases(this, cases, At(0, 1, 3));
}

TEST_F(EvaluatorTest, Concatenation) {
  Put(0, 0, 0, NumberValue(2));
  std::vector<Case> cases = {
      {"two texts", T().Str(u"ab").Str(u"c").Op(ptgConcat), "\"abc\""},
      {"number, boolean, blank", T().Num(1.5).Bool(true).Op(ptgConcat).Missing().Op(ptgConcat),
       "\"1,5VRAI\""},
      {"error", T().Str(u"a").Err(ErrNA).Op(ptgConcat), "#N/A"},
      {"text and array",
       T().Str(u"x").Array(1, 2, {NumberValue(1), BooleanValue(false)}).Op(ptgConcat),
       "{\"x1\",\"xFAUX\"}"},
      {"array and right error",
       T().Array(1, 2, {Txt(u"a"), ErrorValue(ErrRef)}).Err(ErrNA).Op(ptgConcat), "{#N/A,#REF!}"},
      {"left error over array", T().Err(ErrNull).Array(1, 1, {Txt(u"a")}).Op(ptgConcat),
       "{#NULL!}"},
      {"reference", RefT(T(), 0, 0, R).Str(u"!").Op(ptgConcat), "{\"2!\"}"},
      {"arrays broadcast",
       T().Array(1, 2, {Txt(u"a"), Txt(u"b")}).Array(2, 1, {Txt(u"1"), Txt(u"2")}).Op(ptgConcat),
       "{\"a1\",\"b1\";\"a2\",\"b2\"}"},
  };
  ExpectCases(this, cases, At());
}

TEST_F(EvaluatorTest, ComparisonRules) {
  // A1 stays blank; B1 holds 1, C1 holds 2.
  Put(0, 0, 1, NumberValue(1));
  Put(0, 0, 2, NumberValue(2));
  auto blank = [] { return RefT(T(), 0, 0, V); };
  double nextAfterOne = 1.0000000000000002;
  std::vector<Case> cases = {
      {"0.1+0.2=0.3", T().Num(0.1).Num(0.2).Op(ptgAdd).Num(0.3).Op(ptgEQ), "TRUE"},
      {"0.1+0.2-0.3=0", T().Num(0.1).Num(0.2).Op(ptgAdd).Num(0.3).Op(ptgSub).Int(0).Op(ptgEQ),
       "FALSE"},
      {"close numbers are equal", T().Int(1).Num(nextAfterOne).Op(ptgEQ), "TRUE"},
      {"and neither is less", T().Int(1).Num(nextAfterOne).Op(ptgLT), "FALSE"},
      {"nor greater", T().Num(nextAfterOne).Int(1).Op(ptgGT), "FALSE"},
      {"<= within tolerance", T().Num(nextAfterOne).Int(1).Op(ptgLE), "TRUE"},
      {">= within tolerance", T().Int(1).Num(nextAfterOne).Op(ptgGE), "TRUE"},
      {"<> within tolerance", T().Int(1).Num(nextAfterOne).Op(ptgNE), "FALSE"},
      {"plain less", T().Int(1).Int(2).Op(ptgLT), "TRUE"},
      {"texts ignore case", T().Str(u"a").Str(u"A").Op(ptgEQ), "TRUE"},
      {"texts order ignoring case", T().Str(u"b").Str(u"A").Op(ptgGT), "TRUE"},
      {"accented letters fold", T().Str(u"\u00e9T\u00c9").Str(u"\u00c9t\u00e9").Op(ptgEQ), "TRUE"},
      {"text above number", T().Str(u"a").Int(1).Op(ptgGT), "TRUE"},
      {"boolean above text", T().Bool(true).Str(u"a").Op(ptgGT), "TRUE"},
      {"1 = \"1\"", T().Int(1).Str(u"1").Op(ptgEQ), "FALSE"},
      {"1 <> \"1\"", T().Int(1).Str(u"1").Op(ptgNE), "TRUE"},
      {"booleans as 0 and 1", T().Bool(false).Bool(true).Op(ptgLT), "TRUE"},
      {"\"\" = blank", T().Str(u"").Append(blank()).Op(ptgEQ), "TRUE"},
      {"0 = blank", T().Int(0).Append(blank()).Op(ptgEQ), "TRUE"},
      {"FALSE = blank", T().Bool(false).Append(blank()).Op(ptgEQ), "TRUE"},
      {"blank = blank", blank().Missing().Op(ptgEQ), "TRUE"},
      {"text > blank", T().Str(u"a").Append(blank()).Op(ptgGT), "TRUE"},
      {"blank is exactly 0", blank().Num(1e-300).Op(ptgLT), "TRUE"},
      {"left error first", T().Err(ErrNA).Err(ErrDiv0).Op(ptgEQ), "#N/A"},
      {"right error", T().Int(1).Err(ErrRef).Op(ptgLT), "#REF!"},
      {"array with right error",
       T().Array(1, 2, {NumberValue(1), ErrorValue(ErrNull)}).Err(ErrNA).Op(ptgEQ), "{#N/A,#N/A}"},
      {"left error with array",
       T().Err(ErrDiv0).Array(1, 2, {NumberValue(1), NumberValue(2)}).Op(ptgEQ),
       "{#DIV/0!,#DIV/0!}"},
      {"array with scalar keeps error elements",
       T().Array(1, 3, {NumberValue(1), ErrorValue(ErrRef), Txt(u"1")}).Int(1).Op(ptgEQ),
       "{TRUE,#REF!,FALSE}"},
      {"array by array",
       T().Array(1, 2, {NumberValue(1), NumberValue(2)})
           .Array(2, 1, {NumberValue(1), NumberValue(2)})
           .Op(ptgEQ),
       "{TRUE,FALSE;FALSE,TRUE}"},
      {"reference goes to array", AreaT(T(), 0, 0, 1, 2, R).Int(2).Op(ptgGE), "{FALSE,TRUE}"},
  };
  ExpectCases(this, cases, At());
}

TEST_F(EvaluatorTest, UnaryMinusAndPercent) {
  Put(0, 0, 0, NumberValue(4));
  Put(0, 0, 1, BooleanValue(true));
  std::vector<Case> cases = {
      {"-TRUE", T().Bool(true).Op(ptgUminus), "-1"},
      {"-FALSE", T().Bool(false).Op(ptgUminus), "0"},
      {"TRUE%", T().Bool(true).Op(ptgPercent), "0.01"},
      {"50%", T().Int(50).Op(ptgPercent), "0.5"},
      {"-\"2\"", T().Str(u"2").Op(ptgUminus), "-2"},
      {"-\"x\"", T().Str(u"x").Op(ptgUminus), "#VALUE!"},
      {"-blank", T().Missing().Op(ptgUminus), "0"},
      {"-error", T().Err(ErrDiv0).Op(ptgUminus), "#DIV/0!"},
      {"array elements",
       T().Array(1, 4, {BooleanValue(true), Txt(u"3"), Txt(u"x"), ErrorValue(ErrNA)}).Op(ptgUminus),
       "{-1,-3,#VALUE!,#N/A}"},
      {"array boolean percent", T().Array(1, 1, {BooleanValue(true)}).Op(ptgPercent), "{0.01}"},
      {"reference", AreaT(T(), 0, 0, 0, 1, R).Op(ptgUminus), "{-4,-1}"},
      {"two-area list", RefT(T(), 0, 0, R).Append(RefT(T(), 0, 1, R)).Op(ptgUnion).Op(ptgUminus),
       "#VALUE!"},
  };
  ExpectCases(this, cases, At());
}

TEST_F(EvaluatorTest, ReferenceTokensAndTheirClasses) {
  for (uint8_t r = 0; r < 6; r++)
    for (uint8_t c = 0; c < 3; c++) Put(0, r, c, NumberValue(r * 10 + c));
  Put(1, 0, 0, NumberValue(100));
  Put(1, 1, 0, NumberValue(110));
  int32_t second = Link(1, 1);
  int32_t bad = 999;
  std::vector<Case> cases = {
      {"ref R", RefT(T(), 2, 1, R), "ref B3"},
      {"ref V", RefT(T(), 2, 1, V), "21"},
      {"ref A is the first element", RefT(T(), 2, 1, A), "21"},
      {"area R", AreaT(T(), 0, 1, 0, 1, R), "ref A1:B2"},
      {"area V intersects the row of the cell", AreaT(T(), 0, 5, 1, 1, V), "31"},
      {"area V with no line-up", AreaT(T(), 0, 1, 0, 1, V), "#VALUE!"},
      {"area A", AreaT(T(), 0, 1, 0, 1, A), "{0,1;10,11}"},
      {"refN V is an offset from the cell", RefNT(T(), -1, 1, V), "22"},
      {"refN R", RefNT(T(), 2, -1, R), "ref A6"},
      {"areaN A",
       T().Byte(ptgAreaN | A)
           .Word(0xFFFF)
           .Word(0)
           .Byte(0)
           .Byte(RefRowRelative)
           .Byte(2)
           .Byte(RefRowRelative),
       "{20,21,22;30,31,32}"},
      {"ref3d R", Ref3dT(T(), static_cast<uint16_t>(second), 1, 0, R), "list S1 A2"},
      {"ref3d V", Ref3dT(T(), static_cast<uint16_t>(second), 1, 0, V), "110"},
      {"area3d V", Area3dT(T(), static_cast<uint16_t>(second), 0, 1, 0, 1, V), "#VALUE!"},
      {"area3d A", Area3dT(T(), static_cast<uint16_t>(second), 0, 1, 0, 0, A), "{100;110}"},
      {"link out of range", Ref3dT(T(), static_cast<uint16_t>(bad), 0, 0, R), "#REF!"},
      {"deleted references",
       T().RefErr(V).Byte(ptgAreaErr).Word(0).Word(0).Word(0).Word(0).Op(ptgAdd), "#REF!"},
  };
  ExpectCases(this, cases, At(0, 3, 1));
  // Offsets wrap at 16 bits for rows and 8 for columns.
  EXPECT_EQ(Run(RefNT(T(), -1, -1, R), At(0, 0, 0)), "ref IV65536");
  // In array mode a value-class area becomes an array instead of one cell.
  EXPECT_EQ(Run(AreaT(T(), 0, 1, 0, 0, V), At(0, 3, 1, 1)), "{0;10}");
}

TEST_F(EvaluatorTest, MemTokensGiveTheirResultAndSkipTheTokensBehind) {
  Put(0, 0, 0, NumberValue(1));
  Put(0, 1, 1, NumberValue(2));
  TokenBuilder area = T();
  area.Byte(ptgMemArea).Word(0).Word(0).Word(3).Int(999).Attr(AttrSum);
  area.extra = {2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0};  // A1, B2
  EXPECT_EQ(Run(area), "3");
  TokenBuilder error = T();
  error.Byte(ptgMemErr).Byte(ErrorToBiff(ErrDiv0)).Byte(0).Word(0).Word(3).Int(999);
  EXPECT_EQ(Run(error), "#DIV/0!");
  // ptgMemNoMem is read with six operand bytes.
  TokenBuilder noMem = T();
  noMem.Byte(ptgMemNoMem).Word(0).Word(0).Word(3).Int(999);
  EXPECT_EQ(Run(noMem), "#N/A");
  TokenBuilder func = T();
  func.Byte(ptgMemFunc).Word(3).Int(7);
  EXPECT_EQ(Run(func), "7");
  TokenBuilder shortList = T();
  shortList.Byte(ptgMemArea).Word(0).Word(0).Word(0);
  shortList.extra = {2, 0, 0, 0, 0, 0, 0, 0, 0, 0};  // two rectangles announced, one present
  EXPECT_EQ(Run(shortList), "#REF!");
}

TEST_F(EvaluatorTest, ReferenceOperators) {
  int32_t second = Link(1, 1);
  int32_t first = Link(0, 0);
  auto a1b2 = [] { return AreaT(T(), 0, 1, 0, 1, R); };
  auto c3d4 = [] { return AreaT(T(), 2, 3, 2, 3, R); };
  auto onSecond = [=](uint16_t r1, uint16_t r2, uint8_t c1, uint8_t c2) {
    return Area3dT(T(), static_cast<uint16_t>(second), r1, r2, c1, c2, R);
  };
  std::vector<Case> cases = {
      {"isect, no overlap", a1b2().Append(c3d4()).Op(ptgIsect), "#NULL!"},
      {"isect of two refs",
       AreaT(T(), 0, 2, 0, 2, R).Append(AreaT(T(), 1, 3, 1, 3, R)).Op(ptgIsect), "ref B2:C3"},
      {"isect of a two-area list",
       RefT(T(), 0, 0, R)
           .Append(RefT(T(), 1, 1, R))
           .Op(ptgUnion)
           .Append(RefT(T(), 2, 2, R))
           .Op(ptgIsect),
       "#REF!"},
      {"isect with a non-reference", a1b2().Int(1).Op(ptgIsect), "#REF!"},
      {"isect of two lists", onSecond(0, 2, 0, 2).Append(onSecond(2, 4, 2, 4)).Op(ptgIsect),
       "list S1 C3"},
      {"isect of list on the cell's sheet and ref",
       Area3dT(T(), static_cast<uint16_t>(first), 0, 2, 0, 2, R)
           .Append(RefT(T(), 1, 1, R))
           .Op(ptgIsect),
       "list S0 B2"},
      {"isect of list on another sheet and ref",
       onSecond(0, 2, 0, 2).Append(RefT(T(), 1, 1, R)).Op(ptgIsect), "#REF!"},
      {"union of two refs", RefT(T(), 0, 0, R).Append(RefT(T(), 1, 1, R)).Op(ptgUnion),
       "list S0 A1,B2"},
      {"union: ref then list, list first",
       RefT(T(), 4, 4, R)
           .Append(Area3dT(T(), static_cast<uint16_t>(first), 0, 1, 0, 0, R))
           .Op(ptgUnion),
       "list S0 A1:A2,E5"},
      {"union: list on another sheet and ref",
       onSecond(0, 0, 0, 0).Append(RefT(T(), 0, 0, R)).Op(ptgUnion), "#VALUE!"},
      {"union of two lists on one link",
       onSecond(0, 0, 0, 0).Append(onSecond(1, 1, 1, 1)).Op(ptgUnion), "list S1 A1,B2"},
      {"union of lists on different links",
       onSecond(0, 0, 0, 0)
           .Append(Area3dT(T(), static_cast<uint16_t>(first), 0, 0, 0, 0, R))
           .Op(ptgUnion),
       "#VALUE!"},
      {"union (A1,1)", RefT(T(), 0, 0, R).Int(1).Op(ptgUnion), "#REF!"},
      {"union (1,A1)", T().Int(1).Append(RefT(T(), 0, 0, R)).Op(ptgUnion), "#VALUE!"},
      {"union of an error and a ref loses the code",
       T().Err(ErrDiv0).Append(RefT(T(), 0, 0, R)).Op(ptgUnion), "#VALUE!"},
      {"range of two refs", a1b2().Append(RefT(T(), 4, 0, R)).Op(ptgRange), "ref A1:B5"},
      {"range of two lists on the same sheets",
       onSecond(3, 3, 3, 3).Append(onSecond(0, 0, 1, 1)).Op(ptgRange), "list S1 B1:D4"},
      {"range of lists on different sheets",
       onSecond(3, 3, 3, 3)
           .Append(Area3dT(T(), static_cast<uint16_t>(first), 0, 0, 0, 0, R))
           .Op(ptgRange),
       "#REF!"},
      {"range with a non-reference", a1b2().Int(2).Op(ptgRange), "#REF!"},
  };
  ExpectCases(this, cases, At());
}

TEST_F(EvaluatorTest, IfRunsOneBranchAndNeverItsFunction) {
  Put(0, 0, 0, NumberValue(1));
  TokenBuilder one = T().Int(1), two = T().Int(2);
  TokenBuilder arrayA = T().Array(1, 2, {NumberValue(1), NumberValue(2)});
  TokenBuilder arrayB = T().Array(1, 2, {NumberValue(3), NumberValue(4)});
  std::vector<Case> cases = {
      {"true", T().If(T().Bool(true), one, &two), "1"},
      {"false", T().If(T().Bool(false), one, &two), "2"},
      {"number condition", T().If(T().Int(5), one, &two), "1"},
      {"reference condition", T().If(RefT(T(), 0, 0, V), one, &two), "1"},
      {"no false branch gives FALSE", T().If(T().Bool(false), one), "FALSE"},
      {"no false branch, true", T().If(T().Bool(true), one), "1"},
      {"error condition stays", T().If(T().Err(ErrNA), one, &two), "#N/A"},
      {"error condition without false branch", T().If(T().Err(ErrRef), one), "#REF!"},
      {"text condition is #VALUE!", T().If(T().Str(u"x"), one, &two), "#VALUE!"},
      {"boolean text condition", T().If(T().Str(u"vrai"), one, &two), "1"},
      {"the evaluation goes on after IF", T().If(T().Bool(false), one, &two).Int(10).Op(ptgAdd),
       "12"},
      {"nested", T().If(T().Bool(false), one, &T().If(T().Bool(false), one, &two)), "2"},
      {"array constant in the skipped branch", T().If(T().Bool(false), arrayA, &arrayB), "{3,4}"},
      {"array constant after a skipped one",
       T().If(T().Bool(true), arrayA, &arrayB).Array(1, 1, {NumberValue(10)}).Op(ptgAdd),
       "{11,12}"},
  };
  ExpectCases(this, cases, At());
  EXPECT_EQ(ifCalls, 0);
}

TEST_F(EvaluatorTest, ChooseJumpsByIndexAndNeverRunsItsFunction) {
  auto choose = [](TokenBuilder index) {
    return T().Choose(index, {T().Str(u"a"), T().Str(u"b"), T().Str(u"c")});
  };
  std::vector<Case> cases = {
      {"first", choose(T().Int(1)), "\"a\""},
      {"last", choose(T().Int(3)), "\"c\""},
      {"truncated", choose(T().Num(2.9)), "\"b\""},
      {"text index", choose(T().Str(u"2")), "\"b\""},
      {"zero", choose(T().Int(0)), "#VALUE!"},
      {"beyond", choose(T().Int(4)), "#VALUE!"},
      {"huge", choose(T().Num(1e300)), "#VALUE!"},
      {"error index", choose(T().Err(ErrDiv0)), "#DIV/0!"},
      {"the evaluation goes on after", choose(T().Int(2)).Str(u"!").Op(ptgConcat), "\"b!\""},
      {"out of range, then on", choose(T().Int(9)).Str(u"!").Op(ptgConcat), "#VALUE!"},
  };
  ExpectCases(this, cases, At());
  EXPECT_EQ(chooseCalls, 0);
}

TEST_F(EvaluatorTest, MalformedStringsGiveErrorsNotCrashes) {
  TokenBuilder truncated = T().Int(1);
  truncated.Byte(ptgNum).Byte(0).Byte(0);
  TokenBuilder longArray = T();
  longArray.Byte(ptgArray | A);
  for (int i = 0; i < 7; i++) longArray.Byte(0);
  longArray.extra = {1, 0, 0, ValueNumber, 0, 0};  // two elements announced, a cut one present
  TokenBuilder longText = T();
  longText.Byte(ptgArray | A);
  for (int i = 0; i < 7; i++) longText.Byte(0);
  longText.extra = {0, 0, 0, ValueText, 9, 0, 0, 'a'};
  TokenBuilder noExtra = T();
  noExtra.Byte(ptgArray | A);
  for (int i = 0; i < 7; i++) noExtra.Byte(0);
  std::vector<Case> cases = {
      {"operator on an empty stack", T().Op(ptgAdd), "#VALUE!"},
      {"one operand missing", T().Int(1).Op(ptgMul), "#VALUE!"},
      {"union with one operand", RefT(T(), 0, 0, R).Op(ptgUnion), "#VALUE!"},
      {"function short of arguments", FuncVarT(T().Int(1), FnDescribeR, 3),
       "\"#VALUE!|#VALUE!|1\""},
      {"IF on an empty stack", T().If(T(), T().Int(1), nullptr), "#VALUE!"},
      {"sum on an empty stack", T().Sum(), "#VALUE!"},
      {"nothing left at the end", T(), "#VALUE!"},
      {"token cut short", truncated, "#VALUE!"},
      {"array constant past the extra data", longArray, "#N/A"},
      {"array text past the extra data", longText, "#N/A"},
      {"array constant without extra data", noExtra, "#N/A"},
      {"unknown fixed function", FuncT(T().Int(1), 999), "#NAME?"},
      {"more than thirty arguments", FuncVarT(T().Int(1), FnDescribeR, 31), "#VALUE!"},
  };
  ExpectCases(this, cases, At());
  // Values left under the top by a malformed string are released, not leaked.
  EXPECT_EQ(Run(T().Str(u"left").Str(u"behind").Int(3)), "3");
  FormulaTokens none{};
  Value v;
  EvalContext ctx = At();
  EXPECT_EQ(Evaluate(&none, &v, &ctx), 1);
  EXPECT_EQ(Show(v), "#VALUE!");
}

TEST_F(EvaluatorTest, LostMemoryGivesNAWithoutLeaks) {
  Put(0, 0, 0, NumberValue(3));
  TokenBuilder t = T().Str(u"abc").Str(u"def").Op(ptgConcat);
  t.Append(T().Array(2, 2, {Txt(u"x"), NumberValue(1), NumberValue(2), Txt(u"y")}))
      .Op(ptgConcat)
      .Append(RefT(T(), 0, 0, R))
      .Append(RefT(T(), 1, 1, R))
      .Op(ptgUnion)
      .Attr(AttrSum)
      .Op(ptgConcat);
  // Deep enough for the stack to grow past its first block.
  for (int i = 1; i < 12; i++) t.Int(static_cast<uint16_t>(i));
  for (int i = 1; i < 11; i++) t.Op(ptgAdd);
  t.Op(ptgConcat);
  std::string whole = Run(t);
  EXPECT_EQ(whole, "{\"abcdefx366\",\"abcdef1366\";\"abcdef2366\",\"abcdefy366\"}");
  FormulaTokens f = t.Build();
  EvalContext ctx = At();
  for (int64_t budget = 0; budget < 40; budget++) {
    SetAllocationFailureAfter(budget);
    Value v;
    Evaluate(&f, &v, &ctx);
    SetAllocationFailureAfter(-1);
    std::string s = Show(v);
    FreeValue(&v);
    EXPECT_TRUE(s == whole || s.find("#N/A") != std::string::npos) << budget << ": " << s;
  }
  FreeTokens(&f);
}

}  // namespace
}  // namespace evaltest
