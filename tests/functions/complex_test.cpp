// The complex-number functions: the text forms read and written (suffixes i and j, a lone
// suffix, signs, exponents, the locale's decimal comma), the arithmetic and elementary functions,
// the walk of COMPLEXE.SOMME and COMPLEXE.PRODUIT over ranges, and the errors of malformed text,
// mixed suffixes and values outside a function's domain.
#include "functions/formula_fixture.h"

namespace {

struct ComplexTest : FormulaTest {
  void Check(std::initializer_list<std::pair<const char16_t*, const char*>> rows) {
    for (const auto& [formula, expected] : rows)
      EXPECT_EQ(Eval(formula), expected) << TextToUtf8(formula);
  }
};

TEST_F(ComplexTest, TextFormsReadAndWritten) {
  Check({
      {u"=COMPLEXE(3;4)", "s:3+4i"},
      {u"=COMPLEXE(3;4;\"j\")", "s:3+4j"},
      {u"=COMPLEXE(3;4;\"\")", "s:3+4i"},
      {u"=COMPLEXE(0;1)", "s:i"},
      {u"=COMPLEXE(0;-1;\"j\")", "s:-j"},
      {u"=COMPLEXE(2;-1)", "s:2-i"},
      {u"=COMPLEXE(1;0)", "s:1"},
      {u"=COMPLEXE(0;0)", "s:0"},
      {u"=COMPLEXE(-0,5;-3,2)", "s:-0,5-3,2i"},
      {u"=COMPLEXE(1;2;\"I\")", "#VALUE!"},
      {u"=COMPLEXE(1;2;\"ij\")", "#VALUE!"},
      {u"=COMPLEXE(\"a\";1)", "#VALUE!"},
      {u"=COMPLEXE.REEL(\"1,5+2i\")", "1.5"},
      {u"=COMPLEXE.REEL(\"-2,5E2-j\")", "-250"},
      {u"=COMPLEXE.IMAGINAIRE(\"-2,5E2-j\")", "-1"},
      {u"=COMPLEXE.IMAGINAIRE(\"+i\")", "1"},
      {u"=COMPLEXE.REEL(\"1E-400+i\")", "0"},
      {u"=COMPLEXE.REEL(\"1E400+i\")", "#NUM!"},
      {u"=COMPLEXE.IMAGINAIRE(\"-4,5j\")", "-4.5"},
      {u"=COMPLEXE.IMAGINAIRE(\"14+0,88j\")", "0.88"},
      {u"=COMPLEXE.IMAGINAIRE(7)", "0"},
      {u"=COMPLEXE.REEL(\"7\")", "7"},
      {u"=COMPLEXE.IMAGINAIRE(\"3+4I\")", "#NUM!"},
      {u"=COMPLEXE.IMAGINAIRE(\"i3\")", "#NUM!"},
      {u"=COMPLEXE.IMAGINAIRE(\"3+\")", "#NUM!"},
      {u"=COMPLEXE.IMAGINAIRE(\"3i+4\")", "#NUM!"},
      {u"=COMPLEXE.IMAGINAIRE(\"3+4i \")", "#NUM!"},
      {u"=COMPLEXE.IMAGINAIRE(\"\")", "#NUM!"},
      {u"=COMPLEXE.IMAGINAIRE(VRAI)", "#VALUE!"},
      {u"=COMPLEXE.CONJUGUE(\"3-4j\")", "s:3+4j"},
  });
}

TEST_F(ComplexTest, ArithmeticAndElementaryFunctions) {
  Check({
      {u"=COMPLEXE.SOMME(\"3+4i\";\"5-3i\")", "s:8+i"},
      {u"=COMPLEXE.DIFFERENCE(\"13+4j\";\"5+3j\")", "s:8+j"},
      {u"=COMPLEXE.PRODUIT(\"3+4i\";\"5-3i\")", "s:27+11i"},
      {u"=COMPLEXE.PRODUIT(\"1+2i\";30)", "s:30+60i"},
      {u"=COMPLEXE.DIV(\"-238+240i\";\"10+24i\")", "s:5+12i"},
      {u"=COMPLEXE.PUISSANCE(\"2+3i\";3)", "s:-46+9,00000000000001i"},
      {u"=COMPLEXE.RACINE(\"1+i\")", "s:1,09868411346781+0,455089860562227i"},
      {u"=COMPLEXE.EXP(\"1+i\")", "s:1,46869393991589+2,28735528717884i"},
      {u"=COMPLEXE.LN(\"3+4i\")", "s:1,6094379124341+0,927295218001612i"},
      {u"=COMPLEXE.LOG10(\"3+4i\")", "s:0,698970004336019+0,402719196273373i"},
      {u"=COMPLEXE.LOG2(\"3+4i\")", "s:2,32192809488736+1,33780421245098i"},
      {u"=COMPLEXE.COS(\"1+i\")", "s:0,833730025131149-0,988897705762865i"},
      {u"=COMPLEXE.SIN(\"3+4i\")", "s:3,85373803791938-27,0168132580039i"},
      {u"=COMPLEXE.MODULE(\"5+12i\")", "13"},
      {u"=COMPLEXE.ARGUMENT(\"-1\")", "3.14159265358979"},
      {u"=COMPLEXE.DIV(\"1,85021985907055+1,41787163074572j\";\"0,556971676153418+0,"
       u"426821890855467j\")",
       "s:3,32192809488737-8,28846662730513E-15j"},
      {u"=COMPLEXE.SOMME(\"3+4i\";\"5-3j\")", "#VALUE!"},
      {u"=COMPLEXE.DIV(1;0)", "#NUM!"},
      {u"=COMPLEXE.LN(0)", "#NUM!"},
      {u"=COMPLEXE.PUISSANCE(0;-1)", "#NUM!"},
      {u"=COMPLEXE.ARGUMENT(0)", "#DIV/0!"},
  });
}

// Ranges are walked cell by cell: empty cells are skipped, and an error or a malformed text in
// one ends the walk with its error.
TEST_F(ComplexTest, SumAndProductWalkRanges) {
  Put(0, "A1", Text(u"1+i"));
  Put(0, "A2", NumberValue(2));
  Put(0, "A4", Text(u"-j"));
  Put(0, "B1", Text(u"x"));
  Check({
      {u"=COMPLEXE.SOMME(A1:A3)", "s:3+i"},
      {u"=COMPLEXE.PRODUIT(A1:A3;\"i\")", "s:-2+2i"},
      {u"=COMPLEXE.SOMME(A1:A4)", "#VALUE!"},
      {u"=COMPLEXE.SOMME(A2;A4)", "s:2-j"},
      {u"=COMPLEXE.SOMME(A1;B1)", "#NUM!"},
      {u"=COMPLEXE.SOMME(A1;1/0)", "#DIV/0!"},
  });
}

}  // namespace
