// The text functions, run from formula text: search starts and wildcards, cutting at and beyond
// the ends, substitution of one or all matches, case and cleaning, codes without a code page,
// TEXTE through text sections, written denominators and serials outside the calendar, and the
// rows of the double-byte versions.
#include "format/locale.h"
#include "functions/formula_fixture.h"

namespace {

// A1 holds a text, A2 a number, A3 an error; B1:C2 a small block for PHONÉTIQUE.
struct TextTest : FormulaTest {
  void SetUp() override {
    Open({});
    Put(0, "A1", Text(u"Été"));
    Put(0, "A2", NumberValue(12.5));
    Put(0, "A3", ErrorValue(ErrDiv0));
    Put(0, "B1", Text(u"yomi"));
    Put(0, "C1", Text(u"other"));
  }
};

TEST_F(TextTest, SearchesCheckTheirStartAndCherchTakesWildcards) {
  const Calls rows[] = {
      {u"TROUVE", {{u"\"b\";\"abcb\";3", "4"}, {u"\"a\";\"abc\";4", "#VALUE!"}}},
      {u"TROUVE", {{u"\"a\";\"abc\";0", "#VALUE!"}, {u"\"\";\"abc\";2", "1"}}},
      {u"TROUVE", {{u"\"B\";\"abc\"", "#VALUE!"}, {u"\"bc\";\"abc\"", "2"}}},
      {u"TROUVE", {{u"\"a\";1/0;\"x\"", "#DIV/0!"}}},
      {u"CHERCHE", {{u"\"B\";\"abc\"", "2"}, {u"\"\";\"abc\";2", "1"}, {u"\"a?c\";\"xabc\"", "2"}}},
      {u"CHERCHE",
       {{u"\"b*d\";\"abcd\"", "2"}, {u"\"~*\";\"a*b\"", "2"}, {u"\"*\";\"ab\";2", "2"}}},
      {u"CHERCHE", {{u"\"z\";\"abc\"", "#VALUE!"}, {u"\"a\";\"abc\";4", "#VALUE!"}}},
      {u"SEARCHB", {{u"\"C\";\"abc\"", "3"}}},
      {u"FINDB", {{u"\"c\";\"abc\"", "3"}}},
  };
  ExpectCalls(rows);
}

TEST_F(TextTest, CuttingStopsAtTheEndsAndRefusesNegativeCounts) {
  const Calls rows[] = {
      {u"STXT",
       {{u"\"abc\";5;1", "s:"}, {u"\"abc\";0;1", "#VALUE!"}, {u"\"abc\";2;-1", "#VALUE!"}}},
      {u"STXT", {{u"\"abc\";2;10", "s:bc"}, {u"\"abc\";3;0", "s:"}}},
      {u"GAUCHE", {{u"\"abc\"", "s:a"}, {u"\"abc\";5", "s:abc"}, {u"\"abc\";-1", "#VALUE!"}}},
      {u"DROITE", {{u"\"abc\"", "s:c"}, {u"\"abc\";2", "s:bc"}, {u"\"abc\";9", "s:abc"}}},
      {u"DROITE", {{u"\"abc\";-1", "#VALUE!"}, {u"A3", "#DIV/0!"}}},
      {u"NBCAR", {{u"\"\"", "0"}, {u"A1", "3"}, {u"A2", "4"}, {u"VRAI", "4"}}},
      {u"REMPLACER", {{u"\"abcdef\";2;3;\"X\"", "s:aXef"}, {u"\"abc\";9;1;\"X\"", "s:abcX"}}},
      {u"REMPLACER", {{u"\"abc\";0;1;\"X\"", "#VALUE!"}, {u"\"abc\";2;-1;\"X\"", "#VALUE!"}}},
      {u"REMPLACER", {{u"\"abc\";2;9;\"\"", "s:a"}}},
      {u"MIDB", {{u"\"abc\";2;1", "s:b"}}},
      {u"LEFTB", {{u"\"abc\";2", "s:ab"}}},
      {u"RIGHTB", {{u"\"abc\";2", "s:bc"}}},
      {u"LENB", {{u"\"abc\"", "3"}}},
      {u"REPLACEB", {{u"\"abc\";1;1;\"z\"", "s:zbc"}}},
  };
  ExpectCalls(rows);
}

TEST_F(TextTest, SubstitutionAndBuilding) {
  const Calls rows[] = {
      {u"SUBSTITUE", {{u"\"aaaa\";\"a\";\"bb\";2", "s:abbaa"}, {u"\"aaaa\";\"aa\";\"b\"", "s:bb"}}},
      {u"SUBSTITUE", {{u"\"aaa\";\"aa\";\"b\"", "s:ba"}, {u"\"abc\";\"\";\"x\"", "s:abc"}}},
      {u"SUBSTITUE", {{u"\"abab\";\"b\";\"\";0", "s:aa"}, {u"\"abab\";\"b\";\"c\";3", "s:abab"}}},
      {u"SUBSTITUE", {{u"\"aBa\";\"b\";\"c\"", "s:aBa"}}},
      {u"CONCATENER", {{u"\"a\";1;VRAI;A2", "s:a1VRAI12,5"}, {u"\"a\";A3;1/0", "#DIV/0!"}}},
      {u"REPT", {{u"\"ab\";3", "s:ababab"}, {u"\"ab\";0", "s:"}, {u"\"ab\";-1", "#VALUE!"}}},
      {u"REPT", {{u"\"ab\";20000", "#VALUE!"}}},
  };
  ExpectCalls(rows);
}

TEST_F(TextTest, CaseCleaningCodesAndComparison) {
  const Calls rows[] = {
      {u"MAJUSCULE", {{u"\"été a1\"", "s:ÉTÉ A1"}}},
      {u"MINUSCULE", {{u"\"ÉTÉ A1\"", "s:été a1"}}},
      {u"NOMPROPRE", {{u"\"jean-pierre 2eme ÉTÉ\"", "s:Jean-Pierre 2Eme Été"}}},
      {u"SUPPRESPACE", {{u"\"  a   b  \"", "s:a b"}, {u"\"   \"", "s:"}}},
      {u"EPURAGE", {{u"\"a\"&CAR(9)&\"b\"&CAR(127)&CAR(160)", "s:ab\u00a0"}}},
      {u"CODE", {{u"\"é\"", "233"}, {u"\"\"", "#VALUE!"}, {u"\"Ab\"", "65"}}},
      {u"CAR", {{u"233", "s:é"}, {u"65,9", "s:A"}, {u"0", "#VALUE!"}, {u"256", "#VALUE!"}}},
      {u"EXACT", {{u"\"a\";\"A\"", "b:0"}, {u"\"é\";\"é\"", "b:1"}, {u"1;\"1\"", "b:1"}}},
      {u"T", {{u"A1", "s:Été"}, {u"A2", "s:"}, {u"A3", "#DIV/0!"}, {u"\"x\"", "s:x"}}},
      // A range is read by its first cell, wherever the formula stands.
      {u"T", {{u"A1:A3", "s:Été"}, {u"A2:C2", "s:"}, {u"B1:C1", "s:yomi"}}},
      {u"CNUM", {{u"\"12,5%\"", "0.125"}, {u"\"1 234\"", "1234"}, {u"\"x\"", "#VALUE!"}}},
      {u"CNUM", {{u"A2", "12.5"}, {u"\"01/01/1900\"", "1"}}},
      {u"ASC", {{u"\"\uff21\uff42\u3000c\"", "s:Ab c"}}},
      {u"DBCS", {{u"\"Ab c\"", "s:\uff21\uff42\u3000\uff43"}}},
      {u"PHONÉTIQUE", {{u"B1:C2", "s:yomi"}, {u"A2", "s:"}}},
  };
  ExpectCalls(rows);
}

// TEXTE reads a text that is no number through the code's text section; a written denominator
// keeps its digits; a date code refuses a serial outside the calendar. CTXT and FRANC round
// half away before they print.
TEST_F(TextTest, NumbersPrintedAsText) {
  const Calls rows[] = {
      {u"TEXTE", {{u"\"abc\";\"0;0;0;@\"\"!\"\"\"", "s:abc!"}, {u"\"abc\";\"0,0\"", "s:abc"}}},
      {u"TEXTE", {{u"\"abc\";\"\"\"<\"\"@\"", "s:<abc"}, {u"\"1,5\";\"0.00\"", "s:1,50"}}},
      {u"TEXTE", {{u"0,1;\"?/10\"", "s:1/10"}, {u"1,5;\"# ?/10\"", "s:1 5/10"}}},
      {u"TEXTE", {{u"-1;\"dd/mm/yyyy\"", "#VALUE!"}, {u"2958466;\"yyyy\"", "#VALUE!"}}},
      {u"TEXTE", {{u"2958465;\"yyyy\"", "s:9999"}, {u"-1;\"0\"", "s:-1"}}},
      {u"CTXT", {{u"1234,567;1", "s:1 234,6"}, {u"-2,5;0;VRAI", "s:-3"}}},
      {u"USDOLLAR", {{u"-1234,567", "s:($1 234,57)"}, {u"2,5;0", "s:$3"}}},
      {u"NUMBERSTRING", {{u"1234;1", "s:千二百三十四"}, {u"1234;2", "s:壱阡弐百参拾四"}}},
      {u"NUMBERSTRING", {{u"1020;3", "s:一〇二〇"}, {u"120000;1", "s:十二万"}}},
      {u"NUMBERSTRING", {{u"1;4", "#NUM!"}}},
      {u"DATESTRING", {{u"36000", "s:98年07月24日"}, {u"-1", "#VALUE!"}}},
  };
  ExpectCalls(rows);
}

// FRANC prints through the currency code of the regional settings, without the padding that lines
// up a column: the French code has none, the US one pads positive amounts.
TEST_F(TextTest, FrancLeavesOutTheCurrencyPadding) {
  const Calls french[] = {
      {u"FRANC", {{u"1234,567", "s:1 234,57 \u20AC"}, {u"-1;0", "s:-1 \u20AC"}}},
  };
  ExpectCalls(french);
  ApplyLocale(LocaleEnglishUS);
  const Calls us[] = {
      {u"FRANC", {{u"4.567", "s:$4.57"}, {u"-1", "s:($1.00)"}, {u"1234.5", "s:$1,234.50"}}},
  };
  ExpectCalls(us);
  ApplyLocale(LocaleFrench);
}

}  // namespace
