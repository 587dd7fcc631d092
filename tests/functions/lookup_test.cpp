// The lookup and reference functions, run from formula text over a table in cells: approximate
// and exact matches on sorted and unsorted keys, wildcards in EQUIV, the line choice of
// RECHERCHE, INDEX and DECALER as references, the measures of references, and addresses.
#include "functions/formula_fixture.h"
#include "functions/handlers.h"

namespace {

// A1:C5 a table sorted on its first column with a text key, a boolean and a blank (C4); E1:E4
// keys in no order with a formula below them; G1:G3 texts. Sheet 1 holds a number in A1 for the
// references across sheets.
struct LookupTest : FormulaTest {
  void SetUp() override {
    Open({SheetWorksheet});
    const std::pair<const char*, Value> cells[] = {
        {"A1", NumberValue(1)},     {"B1", Text(u"one")},        {"C1", NumberValue(10)},
        {"A2", NumberValue(3)},     {"B2", Text(u"three")},      {"C2", NumberValue(30)},
        {"A3", NumberValue(5)},     {"B3", Text(u"five")},       {"C3", NumberValue(50)},
        {"A4", Text(u"Beta")},      {"B4", Text(u"beta")},       {"A5", BooleanValue(true)},
        {"B5", Text(u"true")},      {"C5", ErrorValue(ErrDiv0)}, {"E1", NumberValue(7)},
        {"E2", NumberValue(2)},     {"E3", NumberValue(9)},      {"E4", NumberValue(4)},
        {"G1", Text(u"apple")},     {"G2", Text(u"banana")},     {"G3", Text(u"cherry")},
        {"A65536", NumberValue(99)}};
    for (const auto& [at, value] : cells) Put(0, at, value);
    Put(1, "A1", NumberValue(42));
    // E5 holds =E1*10, left dirty: a lookup that reads it calculates it first.
    ParseContext pc{book, 0, A1Style, 4, 4, ReferencesAsWritten, SingleCellFormula};
    Cell cell{};
    cell.row = 4;
    cell.col = 4;
    ASSERT_EQ(CompileFormula(&pc, u"=E1*10", ClassCodeValue, &cell.formula), CompileOk);
    ASSERT_TRUE(StoreCell(book, 0, &cell, StoreOnly, KeepRowHeight));
    CellAt(&GetSheet(book, 0)->cells, 4, 4)->state = CellDirty;
    // Names for INDIRECT: one for the table's third column, one for a number, one for itself.
    const std::pair<const char16_t*, const char16_t*> names[] = {
        {u"Tiers", u"=$C$1:$C$3"}, {u"Nombre", u"=5"}, {u"Boucle", u"=INDIRECT(\"Boucle\")"}};
    for (const auto& [text, formula] : names) {
      DefinedName name{};
      name.name = TextDuplicate(text);
      ParseContext npc{book, 0, A1Style, 0, 0, ReferencesAsWritten, SingleCellFormula};
      ASSERT_EQ(CompileFormula(&npc, formula, ClassCodeReference, &name.formula), CompileOk);
      ASSERT_TRUE(AddName(book, &name, nullptr));
    }
  }
};

TEST_F(LookupTest, VerticalAndHorizontalTables) {
  const Calls rows[] = {
      // The walk from the last row finds the last key of the value's type not above it.
      {u"RECHERCHEV", {{u"4;A1:C5;2", "s:three"}, {u"5;A1:C5;3", "50"}, {u"0;A1:C5;2", "#N/A"}}},
      {u"RECHERCHEV", {{u"100;A1:C5;2", "s:five"}, {u"\"beta\";A1:C5;2", "s:beta"}}},
      {u"RECHERCHEV", {{u"\"z\";A1:C5;2", "s:beta"}, {u"VRAI;A1:C5;2", "s:true"}}},
      {u"RECHERCHEV", {{u"\"Beta\";A1:C5;3", "0"}, {u"VRAI;A1:C5;3", "#DIV/0!"}}},
      {u"RECHERCHEV", {{u"3;A1:C5;2;FAUX", "s:three"}, {u"4;A1:C5;2;FAUX", "#N/A"}}},
      {u"RECHERCHEV", {{u"\"BETA\";A1:C5;2;0", "s:beta"}, {u"\"b*\";A1:C5;2;0", "#N/A"}}},
      {u"RECHERCHEV", {{u"1;A1:C5;0", "#VALUE!"}, {u"1;A1:C5;4", "#REF!"}}},
      {u"RECHERCHEV", {{u"1/0;A1:C5;4", "#DIV/0!"}, {u"1;A1:C5;\"x\"", "#VALUE!"}}},
      {u"RECHERCHEV", {{u"5;{1\\\"a\";7\\\"b\"};2", "s:a"}, {u"5;{7\\\"b\";1\\\"a\"};2", "s:a"}}},
      // Unsorted keys: the last row that fits, not the closest key.
      {u"RECHERCHEV", {{u"8;E1:E4;1", "4"}, {u"3;E1:E4;1", "2"}}},
      // A whole column is read in place.
      {u"RECHERCHEV", {{u"1000;A:A;1", "99"}}},
      {u"RECHERCHEV", {{u"1;(A1:C5;E1);2", "#N/A"}, {u"1;Feuille1:Feuille2!A1:B2;2", "#VALUE!"}}},
      {u"RECHERCHEV", {{u"50;Feuille2!A1;1", "42"}, {u"40;Feuille2!A1;1", "#N/A"}}},
      {u"RECHERCHEH", {{u"3;{1\\3\\5;\"a\"\\\"b\"\\\"c\"};2", "s:b"}, {u"4;A1:C1;1", "1"}}},
      {u"RECHERCHEH", {{u"\"three\";B2:C2;2", "#REF!"}, {u"\"three\";B2:C2;1;FAUX", "s:three"}}},
  };
  ExpectCalls(rows);
}

TEST_F(LookupTest, EquivAndRecherche) {
  const Calls rows[] = {
      {u"EQUIV", {{u"2;{1;2;3};0", "2"}, {u"2;{1\\2;3\\4};0", "#N/A"}, {u"4;A1:A3", "2"}}},
      {u"EQUIV", {{u"0;A1:A3", "#N/A"}, {u"9;A1:A5", "3"}, {u"\"beta\";A1:A5;0", "4"}}},
      {u"EQUIV", {{u"\"b*\";G1:G3;0", "2"}, {u"\"?herry\";G1:G3;0", "3"}, {u"\"b*\";G1:G3", "1"}}},
      {u"EQUIV", {{u"\"ba\";G1:G3;1", "1"}, {u"\"zz\";G1:G3", "3"}, {u"\"~*\";{\"*\"};0", "1"}}},
      {u"EQUIV", {{u"6;{9;7;5;1};-1", "2"}, {u"10;{9;7};-1", "#N/A"}, {u"5;{9;7;5;1};-1", "3"}}},
      // Unsorted: the walk stops at the first element above the value.
      {u"EQUIV", {{u"2;E1:E4;0", "2"}, {u"8;E1:E4", "2"}, {u"VRAI;A1:A5;0", "5"}}},
      {u"EQUIV", {{u"1;A1:A3;1/0", "#DIV/0!"}, {u"70;E1:E5;0", "5"}}},
      {u"RECHERCHE", {{u"4;A1:A3;B1:B3", "s:three"}, {u"4;A1:A3;{\"x\"\\\"y\"\\\"z\"}", "s:y"}}},
      {u"RECHERCHE", {{u"0;A1:A3;B1:B3", "#N/A"}, {u"6;A1:A3;B1:B2", "#N/A"}}},
      // Taller than wide: keys down the first column, results from the last.
      {u"RECHERCHE", {{u"4;A1:C3", "30"}, {u"4;{1\\3\\5;\"a\"\\\"b\"\\\"c\"}", "s:b"}}},
  };
  ExpectCalls(rows);
}

TEST_F(LookupTest, IndexAndDecalerGiveReferences) {
  const Calls rows[] = {
      {u"INDEX", {{u"A1:C3;2;3", "30"}, {u"A1:C3;3;3", "50"}, {u"A1:C3;4;1", "#REF!"}}},
      {u"SOMME", {{u"INDEX(A1:C3;0;3)", "90"}, {u"INDEX(A1:C3;2;0)", "33"}}},
      {u"SOMME", {{u"INDEX((A1:A3;C1:C3);0;1;2)", "90"}, {u"INDEX(C1:C3;0)", "90"}}},
      {u"INDEX", {{u"(A1:A3;C1:C3);1;1;3", "#REF!"}, {u"A1:C1;3", "10"}, {u"A1:C3;-1", "#REF!"}}},
      {u"INDEX", {{u"{1\\2;3\\4};2;1", "3"}, {u"{1\\2\\3};2", "2"}, {u"{1\\2;3\\4};0;2", "2"}}},
      {u"INDEX", {{u"{1\\2;3\\4};3;1", "#REF!"}, {u"{1\\2;3\\4};1;1;2", "#REF!"}}},
      {u"INDEX", {{u"5;1;1", "5"}, {u"A1:C3;\"x\"", "#VALUE!"}}},
      {u"LIGNES", {{u"INDEX(A1:C3;0;2)", "3"}, {u"DECALER(A1;1;1;2;3)", "2"}}},
      {u"COLONNES", {{u"INDEX(A1:C3;2;0)", "3"}, {u"DECALER(A1;1;1;2;3)", "3"}}},
      {u"SOMME", {{u"DECALER(A1:A2;1;2)", "80"}, {u"DECALER(C3;0;0;-2)", "80"}}},
      {u"DECALER", {{u"A1;-1;0", "#REF!"}, {u"A1;0;0;0", "#REF!"}, {u"A1;65535;0", "99"}}},
      {u"DECALER", {{u"A1;65536;0", "#REF!"}, {u"A1;0;255;1;2", "#REF!"}, {u"1;0;0", "#VALUE!"}}},
      {u"DECALER", {{u"(A1;B2);0;0", "#VALUE!"}, {u"Feuille2!A1;0;0", "42"}}},
  };
  ExpectCalls(rows);
}

TEST_F(LookupTest, ReferencesFromTextAndTheirMeasures) {
  const Calls rows[] = {
      {u"INDIRECT", {{u"\"C2\"", "30"}, {u"\"Feuille2!A1\"", "42"}, {u"\"L2C3\";FAUX", "#REF!"}}},
      {u"INDIRECT", {{u"\"R2C3\";FAUX", "30"}, {u"\"R[-19]C[-18]\";FAUX", "30"}}},
      // A text that names no reference is #REF!; an error argument passes as it is.
      {u"INDIRECT", {{u"\"x y\"", "#REF!"}, {u"1/0", "#DIV/0!"}, {u"\"Nombre\"", "#REF!"}}},
      {u"INDIRECT", {{u"\"\"", "#REF!"}, {u"\"I3\";FAUX", "#REF!"}, {u"\"8\";FAUX", "#REF!"}}},
      {u"SOMME", {{u"INDIRECT(\"tiers\")", "90"}, {u"INDIRECT(\"Boucle\")", "#REF!"}}},
      {u"LIGNE", {{u"", "21"}, {u"C5:D9", "5"}, {u"1", "#VALUE!"}}},
      {u"COLONNE", {{u"", "21"}, {u"C5:D9", "3"}}},
      {u"LIGNES", {{u"A1:B5", "5"}, {u"{1;2;3}", "3"}, {u"(A1;B2)", "#REF!"}, {u"7", "1"}}},
      {u"COLONNES", {{u"A:C", "3"}, {u"{1\\2\\3}", "3"}}},
      {u"ZONES", {{u"(A1;B2;C3:D4)", "3"}, {u"A1:B2", "1"}, {u"Feuille1:Feuille2!A1", "1"}}},
      {u"CHOISIR", {{u"2;\"a\";\"b\"", "s:b"}, {u"3;\"a\";\"b\"", "#VALUE!"}, {u"0;1", "#VALUE!"}}},
      {u"SOMME", {{u"CHOISIR(2;A1;C1:C3)", "90"}}},
      {u"LIEN_HYPERTEXTE", {{u"\"http://x\";\"site\"", "s:site"}, {u"\"http://x\"", "s:http://x"}}},
      {u"GETPIVOTDATA", {{u"\"x\";A1", "#REF!"}, {u"1/0;A1", "#DIV/0!"}}},
  };
  ExpectCalls(rows);
  // In an array formula LIGNE and COLONNE give every row or column, TRANSPOSE the whole block.
  EXPECT_EQ(Eval(u"=LIGNE(A3:B5)", 1), "{3;4;5}");
  EXPECT_EQ(Eval(u"=COLONNE(A3:C3)", 1), "{1,2,3}");
  EXPECT_EQ(Eval(u"=TRANSPOSE(A1:C2)", 1), "{1,3;s:one,s:three;10,30}");
  EXPECT_EQ(Eval(u"=TRANSPOSE({1\\\"a\"})", 1), "{1;s:a}");
}

TEST_F(LookupTest, AddressesInBothStyles) {
  const Calls rows[] = {
      {u"ADRESSE", {{u"2;3", "s:$C$2"}, {u"2;3;2", "s:C$2"}, {u"2;3;3", "s:$C2"}}},
      {u"ADRESSE",
       {{u"2;3;4", "s:C2"}, {u"65536;256", "s:$IV$65536"}, {u"2;3;4;FAUX", "s:R[2]C[3]"}}},
      {u"ADRESSE", {{u"2;3;1;FAUX", "s:R2C3"}, {u"2;3;2;FAUX", "s:R2C[3]"}}},
      {u"ADRESSE", {{u"2;3;1;VRAI;\"Ma feuille\"", "s:'Ma feuille'!$C$2"}}},
      {u"ADRESSE", {{u"2;3;1;VRAI;\"Feuil2\"", "s:Feuil2!$C$2"}}},
      // A sheet of another book: quoted as a whole only when a part needs it.
      {u"ADRESSE",
       {{u"2;3;3;VRAI;\"[Livre1]Feuil1\"", "s:[Livre1]Feuil1!$C2"},
        {u"1;1;1;VRAI;\"[Livre1]Ma feuille\"", "s:'[Livre1]Ma feuille'!$A$1"},
        {u"1;1;1;VRAI;\"[Mon livre]Feuil1\"", "s:'[Mon livre]Feuil1'!$A$1"},
        {u"1;1;1;VRAI;\"[Livre1\"", "s:'[Livre1'!$A$1"}}},
      {u"ADRESSE", {{u"0;1", "#VALUE!"}, {u"65537;1", "#VALUE!"}, {u"1;257", "#VALUE!"}}},
      {u"ADRESSE", {{u"1;1;5", "#VALUE!"}, {u"1;1;0", "#VALUE!"}, {u"\"a\";1/0", "#VALUE!"}}},
  };
  ExpectCalls(rows);
}

}  // namespace
