// The information functions called directly on a 30-slot frame: the ESTxxx tests, TYPE, N,
// TYPE.ERREUR, EST.PAIR and EST.IMPAIR over one table of values given directly and through
// references, then NB.VIDE, NA and the stand-in handler of unwritten rows.
#include "functions/handler_fixture.h"
#include "functions/handlers.h"

namespace {

struct InformationTest : HandlerTest {
  int32_t firstSheet = -1, bothSheets = -1;

  void SetUp() override {
    Open({SheetWorksheet});
    Put(0, "A1", NumberValue(3.5));
    Put(0, "A2", Text(u""));
    Put(0, "A3", Value{});  // stored, but without a value
    Put(0, "A4", Text(u"a"));
    Put(0, "A5", ErrorValue(ErrNA));
    Put(0, "B1", BooleanValue(true));
    Put(0, "B5", NumberValue(5));
    Put(1, "A1", Text(u"t"));
    firstSheet = Link(0, 0);
    bothSheets = Link(0, 1);
  }
};

TEST_F(InformationTest, EachFunctionReadsValuesAndReferences) {
  // One digit per test, in the order ESTERR, ESTERREUR, ESTLOGIQUE, ESTNA, ESTNONTEXTE, ESTNUM,
  // ESTREF, ESTTEXTE, ESTVIDE. EST.IMPAIR answers the opposite of EST.PAIR, or the same error.
  const FunctionHandler tests[] = {FnEstErr, FnEstErreur, FnEstLogique, FnEstNa,  FnEstNonTexte,
                                   FnEstNum, FnEstRef,    FnEstTexte,   FnEstVide};
  struct {
    const char* name;
    Value argument;
    const char *tests, *type, *n, *typeErreur, *even;
  } cases[] = {
      {"empty", Value{}, "000010001", "n:1", "n:0", "#N/A", "b:1"},
      {"number", NumberValue(3.5), "000011000", "n:1", "n:3.5", "#N/A", "b:0"},
      {"number truncated", NumberValue(2.9), "000011000", "n:1", "n:2.9", "#N/A", "b:1"},
      {"negative truncated", NumberValue(-3.7), "000011000", "n:1", "n:-3.7", "#N/A", "b:0"},
      {"text", Text(u"a"), "000000010", "n:2", "n:0", "#N/A", "#VALUE!"},
      {"number text", Text(u"4"), "000000010", "n:2", "n:0", "#N/A", "b:1"},
      {"empty text", Text(u""), "000000010", "n:2", "n:0", "#N/A", "#VALUE!"},
      {"boolean", BooleanValue(true), "001010000", "n:4", "n:1", "#N/A", "#VALUE!"},
      {"#N/A", ErrorValue(ErrNA), "010110000", "n:16", "#N/A", "n:7", "#N/A"},
      {"#DIV/0!", ErrorValue(ErrDiv0), "110010000", "n:16", "#DIV/0!", "n:2", "#DIV/0!"},
      {"#NULL!", ErrorValue(ErrNull), "110010000", "n:16", "#NULL!", "n:1", "#NULL!"},
      {"array", Array(2, {NumberValue(1), Text(u"x")}), "000011000", "n:64", "n:1", "#N/A", "b:0"},
      {"number cell", Ref("A1"), "000011100", "n:1", "n:3.5", "#N/A", "b:0"},
      {"empty text cell", Ref("A2"), "000000110", "n:2", "n:0", "#N/A", "#VALUE!"},
      {"stored cell without value", Ref("A3"), "000010101", "n:1", "n:0", "#N/A", "b:1"},
      {"cell not stored", Ref("A9"), "000010101", "n:1", "n:0", "#N/A", "b:1"},
      {"#N/A cell", Ref("A5"), "010110100", "n:16", "#N/A", "n:7", "#N/A"},
      {"boolean cell", Ref("B1"), "001010100", "n:4", "n:1", "#N/A", "#VALUE!"},
      {"list on one sheet", List("A4", firstSheet), "000000110", "n:2", "n:0", "#N/A", "#VALUE!"},
      // No cell lines up with the formula's: #VALUE!, but N takes the first cell all the same.
      {"range beside the cell", Ref("A1:A5"), "110010100", "n:16", "n:3.5", "n:3", "#VALUE!"},
      {"list over two sheets", List("A1", bothSheets), "110010100", "n:16", "n:3.5", "n:4",
       "#REF!"},
      {"list of a lost link", List("A1", 999), "110010100", "n:16", "#REF!", "n:4", "#REF!"},
  };
  for (auto& c : cases) {
    std::string answers;
    for (FunctionHandler test : tests) {
      std::string shown = Call(test, Copies({c.argument}));
      answers += shown == "b:1" ? "1" : shown == "b:0" ? "0" : shown;
    }
    EXPECT_EQ(answers, c.tests) << c.name;
    EXPECT_EQ(Call(FnType, Copies({c.argument})), c.type) << c.name;
    EXPECT_EQ(Call(FnN, Copies({c.argument})), c.n) << c.name;
    EXPECT_EQ(Call(FnTypeErreur, Copies({c.argument})), c.typeErreur) << c.name;
    std::string even = c.even, odd = even == "b:1" ? "b:0" : even == "b:0" ? "b:1" : even;
    EXPECT_EQ(Call(FnEstPair, Copies({c.argument})), even) << c.name;
    EXPECT_EQ(Call(FnEstImpair, {c.argument}), odd) << c.name;
  }
}

TEST_F(InformationTest, NbVideCountsCellsShowingNothing) {
  struct {
    const char* name;
    Value argument;
    const char* expected;
  } cases[] = {
      {"a column with gaps, an empty text and a blank record", Ref("A1:A9"), "n:6"},
      {"two columns", Ref("A1:B5"), "n:5"},
      {"a whole column", Ref("A1:A65536"), "n:65533"},
      {"a list on one sheet", List("A1:A5", firstSheet), "n:2"},
      {"a list over two sheets", List("A1:A5", bothSheets), "#REF!"},
      {"two areas", List("A1;A2", firstSheet), "#VALUE!"},
      {"a lost link", List("A1", 999), "#REF!"},
      {"a number", NumberValue(1), "#VALUE!"},
      {"an error", ErrorValue(ErrDiv0), "#DIV/0!"},
  };
  for (auto& c : cases) EXPECT_EQ(Call(FnNbVide, {c.argument}), c.expected) << c.name;
}

TEST_F(InformationTest, ArrayFormulaTypeNaAndPendingRows) {
  EXPECT_EQ(Call(FnNa, {}), "#N/A");
  EXPECT_EQ(Call(PendingFunction, {NumberValue(1)}), "#N/A");
  ctx.arrayMode = 1;  // a reference in an array formula is an array
  EXPECT_EQ(Call(FnType, {Ref("A1:A5")}), "n:64");
}

}  // namespace
