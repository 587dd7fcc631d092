// The evaluator's main loop: constants, operators over every pairing of operand kinds, the
// comparison rules, references of every kind and class and the reference operators, the jumps of
// IF and CHOOSE, and what malformed token strings and lost memory give.
#include "evaluator_fixture.h"

namespace evaltest {
namespace {

TEST_F(EvaluatorTest, Constants) {
  Expect({
      {"8-bit string widened", T().Str(u"\u00e9t\u00e9"), "\"\u00e9t\u00e9\""},
      {"wide string", T().Str(u"\u03a9x"), "\"\u03a9x\""},
      {"no-ops", T().Int(3).Op(ptgUplus).Op(ptgParen).Attr(AttrSpace, 1).Attr(AttrVolatile), "3"},
      {"every element type", T().Array(2, 2, {N(1.5), Txt(u"\u00e9"), Bv(true), Er(ErrRef)}),
       "{1.5,\"\u00e9\";TRUE,#REF!}"},
      {"two arrays", Row({N(1), N(2)}).Append(Row({N(5)})).Op(ptgAdd), "{6,7}"},
      // 1 x 3: a number, then a type byte that is not known, read again for the third element.
      {"unknown element type stays blank",
       WithExtra(Row({}), {2, 0, 0, ValueNumber, 0, 0, 0, 0, 0, 0, 0xF0, 0x3F, 0, 0x77}),
       "{1,blank,blank}"},
  });
}

TEST_F(EvaluatorTest, OperatorsOverEveryOperandKind) {
  Put(0, 0, 0, N(5));                            // A1
  Put(0, 1, 0, N(7));                            // A2
  Put(0, 2, 0, TextValue(TextDuplicate(u"x")));  // A3
  Put(0, 0, 1, Bv(true));                        // B1; D1 stays blank
  auto blank = [] { return T().Ref(0, 3); };
  double up = 1.0000000000000002;  // the next double after 1
  Expect({
      // Arithmetic.
      {"number - number", T().Int(7).Int(10).Op(ptgSub), "-3"},
      {"boolean and blank", T().Bool(true).Missing().Op(ptgAdd), "1"},
      {"left error wins", T().Err(ErrRef).Err(ErrDiv0).Op(ptgMul), "#REF!"},
      {"right error", T().Int(1).Err(ErrNA).Op(ptgAdd), "#N/A"},
      {"number op array", T().Int(10).Append(Row({N(1), Txt(u"2")})).Op(ptgSub), "{9,8}"},
      {"array op number", Row({N(1), Bv(true)}).Int(10).Op(ptgSub), "{-9,-9}"},
      {"bad text element", Row({Txt(u"a"), Er(ErrNull)}).Int(1).Op(ptgAdd), "{#VALUE!,#NULL!}"},
      {"error fills", T().Err(ErrDiv0).Append(Row({N(1), Txt(u"a"), Er(ErrNA)})).Op(ptgAdd),
       "{#DIV/0!,#DIV/0!,#DIV/0!}"},
      {"array + error", Row({N(1), Txt(u"a"), Er(ErrNA)}).Err(ErrDiv0).Op(ptgAdd),
       "{#DIV/0!,#VALUE!,#N/A}"},
      {"row by column", Row({N(1), N(2)}).Append(Col({N(10), N(20)})).Op(ptgAdd), "{11,12;21,22}"},
      {"wider", Row({N(1), N(2), N(3)}).Append(Row({N(1), N(2)})).Op(ptgAdd), "{2,4,#N/A}"},
      {"errors", Row({N(1), Er(ErrNA)}).Append(Row({Er(ErrDiv0), Er(ErrRef)})).Op(ptgAdd),
       "{#DIV/0!,#N/A}"},
      {"area goes to array", T().Area(0, 2, 0, 0).Int(2).Op(ptgMul), "{10;14;#VALUE!}"},
      {"divide by zero", T().Int(1).Int(0).Op(ptgDiv), "#DIV/0!"},
      {"0^0", T().Int(0).Int(0).Op(ptgPower), "#NUM!"},
      {"(-8)^(1/3)", T().Int(8).Op(ptgUminus).Int(1).Int(3).Op(ptgDiv).Op(ptgPower), "#NUM!"},
      {"(-2)^3", T().Int(2).Op(ptgUminus).Int(3).Op(ptgPower), "-8"},
      {"0^-1", T().Int(0).Int(1).Op(ptgUminus).Op(ptgPower), "#DIV/0!"},
      {"1E308*10", T().Num(1e308).Int(10).Op(ptgMul), "#NUM!"},
      {"overflow inside an array", Row({N(1e308), N(1)}).Int(10).Op(ptgMul), "{#NUM!,10}"},
      // Concatenation, in the French locale.
      {"two texts", T().Str(u"ab").Str(u"c").Op(ptgConcat), "\"abc\""},
      {"1,5&TRUE&blank", T().Num(1.5).Bool(true).Op(ptgConcat).Missing().Op(ptgConcat),
       "\"1,5VRAI\""},
      {"text&array", T().Str(u"x").Append(Row({N(1), Bv(false)})).Op(ptgConcat),
       "{\"x1\",\"xFAUX\"}"},
      {"array & error", Row({Txt(u"a"), Er(ErrRef)}).Err(ErrNA).Op(ptgConcat), "{#N/A,#REF!}"},
      // Comparisons: a tolerance relative to the smaller magnitude, none against exactly 0.
      {"0.1+0.2=0.3", T().Num(0.1).Num(0.2).Op(ptgAdd).Num(0.3).Op(ptgEQ), "TRUE"},
      {"0.1+0.2-0.3=0", T().Num(0.1).Num(0.2).Op(ptgAdd).Num(0.3).Op(ptgSub).Int(0).Op(ptgEQ),
       "FALSE"},
      {"close: not less", T().Int(1).Num(up).Op(ptgLT), "FALSE"},
      {"nor greater", T().Num(up).Int(1).Op(ptgGT), "FALSE"},
      {"<= within tolerance", T().Num(up).Int(1).Op(ptgLE), "TRUE"},
      {">= within tolerance", T().Int(1).Num(up).Op(ptgGE), "TRUE"},
      {"<> within tolerance", T().Int(1).Num(up).Op(ptgNE), "FALSE"},
      {"texts order ignoring case", T().Str(u"b").Str(u"A").Op(ptgGT), "TRUE"},
      {"text above number", T().Str(u"a").Int(1).Op(ptgGT), "TRUE"},
      {"1 = \"1\"", T().Int(1).Str(u"1").Op(ptgEQ), "FALSE"},
      {"1 <> \"1\"", T().Int(1).Str(u"1").Op(ptgNE), "TRUE"},
      {"booleans as 0 and 1", T().Bool(false).Bool(true).Op(ptgLT), "TRUE"},
      {"\"\" = blank", T().Str(u"").Append(blank()).Op(ptgEQ), "TRUE"},
      {"0 = blank", T().Int(0).Append(blank()).Op(ptgEQ), "TRUE"},
      {"FALSE = blank", T().Bool(false).Append(blank()).Op(ptgEQ), "TRUE"},
      {"blank = blank", blank().Missing().Op(ptgEQ), "TRUE"},
      {"blank on the left is exactly 0", blank().Num(1e-300).Op(ptgLT), "TRUE"},
      {"left error first", T().Err(ErrNA).Err(ErrDiv0).Op(ptgEQ), "#N/A"},
      {"right error", T().Int(1).Err(ErrRef).Op(ptgLT), "#REF!"},
      {"error = array", T().Err(ErrDiv0).Append(Row({N(1), N(2)})).Op(ptgEQ), "{#DIV/0!,#DIV/0!}"},
      {"array = 1", Row({N(1), Er(ErrRef), Txt(u"1")}).Int(1).Op(ptgEQ), "{TRUE,#REF!,FALSE}"},
      {"array = array", Row({N(1), N(2)}).Append(Col({N(1), N(2)})).Op(ptgEQ),
       "{TRUE,FALSE;FALSE,TRUE}"},
      {"area goes to array", T().Area(0, 1, 0, 0).Int(6).Op(ptgGE), "{FALSE;TRUE}"},
      // Unary minus and percent: a boolean is -1 or 0 under minus, 1 or 0 under percent.
      {"-TRUE", T().Bool(true).Op(ptgUminus), "-1"},
      {"-FALSE", T().Bool(false).Op(ptgUminus), "0"},
      {"TRUE%", T().Bool(true).Op(ptgPercent), "0.01"},
      {"50%", T().Int(50).Op(ptgPercent), "0.5"},
      {"-blank", T().Missing().Op(ptgUminus), "0"},
      {"-array", Row({Bv(true), Txt(u"3"), Txt(u"x"), Er(ErrNA)}).Op(ptgUminus),
       "{-1,-3,#VALUE!,#N/A}"},
      {"-reference", T().Area(0, 0, 0, 1).Op(ptgUminus), "{-5,-1}"},
  });
}

TEST_F(EvaluatorTest, ReferencesOfEveryKindAndTheirOperators) {
  for (uint8_t r = 0; r < 6; r++)
    for (uint8_t c = 0; c < 3; c++) Put(0, r, c, N(r * 10 + c));
  Put(1, 0, 0, N(100));
  Put(1, 1, 0, N(110));
  uint16_t s1 = Link(1, 1), s0 = Link(0, 0), rowRel = RefRowRelative << 8;
  std::vector<Case> cases = {
      {"ref R", T().Ref(2, 1, R), "ref B3"},
      {"ref V", T().Ref(2, 1, V), "21"},
      {"ref A is the first element", T().Ref(2, 1, A), "21"},
      {"area R", T().Area(0, 1, 0, 1, R), "ref A1:B2"},
      {"area V takes the row of the cell", T().Area(0, 5, 1, 1, V), "31"},
      {"area V in an array formula", T().Area(0, 1, 0, 0, V), "{0;10}", 0, 1},
      {"area A", T().Area(0, 1, 0, 1, A), "{0,1;10,11}"},
      {"refN V is an offset from the cell", T().RefN(-1, 1, V), "22"},
      {"areaN A", T().Operand(ptgAreaN, A).Word(0xFFFF).Word(0).Word(rowRel).Word(2 | rowRel),
       "{20,21,22;30,31,32}"},
      {"ref3d V", T().Ref3d(s1, 1, 0, V), "110"},
      {"link out of range", T().Ref3d(999, 0, 0, R), "#REF!"},
      {"deleted refs", T().RefErr().Byte(ptgAreaErr).Word(0).Word(0).Word(0).Word(0).Op(ptgAdd),
       "#REF!"},
      // Mem tokens give their own result and skip the tokens that would work it out.
      {"mem area of A1 and B2",
       WithExtra(T().Byte(ptgMemArea).Word(0).Word(0).Word(3).Int(9).Sum(),
                 {2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0}),
       "11"},
      {"mem area past the extra data",
       WithExtra(T().Byte(ptgMemArea).Word(0).Word(0).Word(0), {2, 0, 0, 0, 0, 0, 0, 0, 0, 0}),
       "#REF!"},
      {"mem err", T().Byte(ptgMemErr).Byte(ErrorToBiff(ErrDiv0)).Byte(0).Word(0).Word(3).Int(9),
       "#DIV/0!"},
      {"mem no-mem, six bytes", T().Byte(ptgMemNoMem).Word(0).Word(0).Word(3).Int(9), "#N/A"},
      {"mem func", T().Byte(ptgMemFunc).Word(3).Int(7), "7"},
      // Intersection, union and range.
      {"isect, no overlap", T().Area(0, 1, 0, 1).Area(2, 3, 2, 3).Op(ptgIsect), "#NULL!"},
      {"isect of two refs", T().Area(0, 2, 0, 2).Area(1, 3, 1, 3).Op(ptgIsect), "ref B2:C3"},
      {"isect of a list", T().Ref(0, 0, R).Ref(1, 1, R).Op(ptgUnion).Ref(2, 2, R).Op(ptgIsect),
       "#REF!"},
      {"isect with a number", T().Area(0, 1, 0, 1).Int(1).Op(ptgIsect), "#REF!"},
      {"isect of errors, left first", T().Err(ErrName).Err(ErrDiv0).Op(ptgIsect), "#NAME?"},
      {"isect of lists", T().Area3d(s1, 0, 2, 0, 2).Area3d(s1, 2, 4, 2, 4).Op(ptgIsect),
       "list S1 C3"},
      {"list here ^ ref", T().Area3d(s0, 0, 2, 0, 2).Ref(1, 1, R).Op(ptgIsect), "list S0 B2"},
      {"list there ^ ref", T().Area3d(s1, 0, 2, 0, 2).Ref(1, 1, R).Op(ptgIsect), "#REF!"},
      {"union of two refs", T().Ref(0, 0, R).Ref(1, 1, R).Op(ptgUnion), "list S0 A1,B2"},
      {"ref, list", T().Ref(4, 4, R).Area3d(s0, 0, 1, 0, 0).Op(ptgUnion), "list S0 A1:A2,E5"},
      {"list there, ref", T().Ref3d(s1, 0, 0, R).Ref(0, 0, R).Op(ptgUnion), "#VALUE!"},
      {"lists on one link", T().Ref3d(s1, 0, 0, R).Ref3d(s1, 1, 1, R).Op(ptgUnion),
       "list S1 A1,B2"},
      {"lists across links", T().Ref3d(s1, 0, 0, R).Ref3d(s0, 0, 0, R).Op(ptgUnion), "#VALUE!"},
      {"union (A1,1)", T().Ref(0, 0, R).Int(1).Op(ptgUnion), "#REF!"},
      {"union (error,A1) loses the code", T().Err(ErrDiv0).Ref(0, 0, R).Op(ptgUnion), "#VALUE!"},
      {"range of two refs", T().Area(0, 1, 0, 1).Ref(4, 0, R).Op(ptgRange), "ref A1:B5"},
      {"list:list", T().Ref3d(s1, 3, 3, R).Ref3d(s1, 0, 1, R).Op(ptgRange), "list S1 B1:D4"},
      {"list:list across sheets", T().Ref3d(s1, 3, 3, R).Ref3d(s0, 0, 0, R).Op(ptgRange), "#REF!"},
      {"range with a number", T().Area(0, 1, 0, 1).Int(2).Op(ptgRange), "#REF!"},
  };
  Expect(cases, 3, 1);
  // Offsets wrap at 16 bits for rows and 8 for columns.
  EXPECT_EQ(Run(T().RefN(-1, -1, R), At(0, 0, 0)), "ref IV65536");
}

// The handlers of IF and CHOOSE are never reached: the fixture counts their calls.
TEST_F(EvaluatorTest, JumpsOfIfAndChoose) {
  TokenBuilder one = T().Int(1), two = T().Int(2), no = T().Bool(false);
  TokenBuilder first = Row({N(1), N(2)}), second = Row({N(3), N(4)});
  auto choose = [](TokenBuilder index) {
    return T().Choose(index, {T().Str(u"a"), T().Str(u"b"), T().Str(u"c")});
  };
  Expect({
      {"IF false, then on", T().If(no, one, &two).Int(10).Op(ptgAdd), "12"},
      {"IF without false branch, true", T().If(T().Bool(true), one), "1"},
      {"IF without false branch gives FALSE", T().If(no, one), "FALSE"},
      {"IF error condition stays", T().If(T().Err(ErrNA), one, &two), "#N/A"},
      {"IF error, no false branch", T().If(T().Err(ErrRef), one), "#REF!"},
      {"IF boolean text condition", T().If(T().Str(u"vrai"), one, &two), "1"},
      {"IF nested", T().If(no, one, &T().If(no, one, &two)), "2"},
      {"IF(FALSE,{1,2},{3,4})", T().If(no, first, &second), "{3,4}"},
      {"after a skipped array",
       T().If(T().Bool(true), first, &second).Append(Row({N(10)})).Op(ptgAdd), "{11,12}"},
      {"CHOOSE first, then on", choose(T().Int(1)).Str(u"!").Op(ptgConcat), "\"a!\""},
      {"CHOOSE last", choose(T().Int(3)), "\"c\""},
      {"CHOOSE truncates", choose(T().Num(2.9)), "\"b\""},
      {"CHOOSE zero", choose(T().Int(0)), "#VALUE!"},
      {"CHOOSE beyond, then on", choose(T().Int(4)).Str(u"!").Op(ptgConcat), "#VALUE!"},
      {"CHOOSE huge", choose(T().Num(1e300)), "#VALUE!"},
      {"CHOOSE error index", choose(T().Err(ErrDiv0)), "#DIV/0!"},
  });
}

// The validator trusts lengths and jumps; what it lets through still ends in an error value, as
// do tokens that are missing altogether.
TEST_F(EvaluatorTest, MalformedStringsGiveErrorsNotCrashes) {
  Expect({
      {"one operand missing", T().Int(1).Op(ptgMul), "#VALUE!"},
      {"function short of arguments", T().Int(1).FuncVar(FnDescribeR, 3), "\"#VALUE!|#VALUE!|1\""},
      {"IF on an empty stack", T().If(T(), T().Int(1), nullptr), "#VALUE!"},
      {"sum on an empty stack", T().Sum(), "#VALUE!"},
      {"nothing left at the end", T(), "#VALUE!"},
      {"values left under the top", T().Str(u"left").Str(u"behind").Int(3), "3"},
      {"token cut short", T().Int(1).Byte(ptgNum).Byte(0).Byte(0), "#VALUE!"},
      {"array past the extra data", WithExtra(Row({}), {1, 0, 0, ValueNumber, 0, 0}), "#N/A"},
      {"array text too long", WithExtra(Row({}), {0, 0, 0, ValueText, 9, 0, 0, 'a'}), "#N/A"},
      {"array without extra data", WithExtra(Row({}), {}), "#N/A"},
      {"unknown fixed function", T().Int(1).Func(999), "#NAME?"},
      {"more than thirty arguments", T().Int(1).FuncVar(FnDescribeR, 31), "#VALUE!"},
  });
  FormulaTokens none{};
  Value v;
  EvalContext ctx = At();
  EXPECT_EQ(Evaluate(&none, &v, &ctx), 1);
  EXPECT_EQ(Show(v), "#VALUE!");
}

TEST_F(EvaluatorTest, LostMemoryGivesNAWithoutLeaks) {
  Put(0, 0, 0, N(3));
  TokenBuilder t = T().Str(u"abc").Str(u"def").Op(ptgConcat);
  t.Array(2, 2, {Txt(u"x"), N(1), N(2), Txt(u"y")}).Op(ptgConcat);
  t.Ref(0, 0, R).Ref(1, 1, R).Op(ptgUnion).Sum().Op(ptgConcat);
  // Deep enough for the stack to grow past its first block.
  for (int i = 1; i < 12; i++) t.Int(static_cast<uint16_t>(i));
  for (int i = 1; i < 11; i++) t.Op(ptgAdd);
  t.Op(ptgConcat);
  std::string whole = Run(t, At());
  EXPECT_EQ(whole, "{\"abcdefx366\",\"abcdef1366\";\"abcdef2366\",\"abcdefy366\"}");
  for (int64_t budget = 0; budget < 40; budget++) {
    std::string s = Run(t, At(), budget);
    EXPECT_TRUE(s == whole || s.find("#N/A") != std::string::npos) << budget << ": " << s;
  }
}

}  // namespace
}  // namespace evaltest
