// The database functions over the orchard table: A4:E10 lists trees with their height, age, yield
// and profit, A1:F3 holds criteria over it (apple trees between 10 and 16 high in row 2, pear
// trees in row 3), and row 11 adds a tree whose profit is an error for the tests that reach it.
#include "functions/formula_fixture.h"

namespace {

struct DatabaseTest : FormulaTest {
  void SetUp() override {
    FormulaTest::SetUp();
    const char16_t* headings[] = {u"Arbre", u"Hauteur", u"Âge", u"Rendement", u"Bénéfice"};
    const char* columns[] = {"A", "B", "C", "D", "E"};
    for (int c = 0; c < 5; c++) {
      Put(0, (std::string(columns[c]) + "1").c_str(), Text(headings[c]));
      Put(0, (std::string(columns[c]) + "4").c_str(), Text(headings[c]));
    }
    Put(0, "F1", Text(u"Hauteur"));
    Put(0, "A2", Text(u"Pommier"));
    Put(0, "B2", Text(u">10"));
    Put(0, "F2", Text(u"<16"));
    Put(0, "A3", Text(u"Poirier"));
    const char16_t* trees[] = {u"Pommier", u"Poirier", u"Cerisier", u"Pommier",
                               u"Poirier", u"Pommier", u"Orme"};
    for (int r = 0; r < 7; r++) {
      std::string address = "A";
      address += std::to_string(r + 5);
      Put(0, address.c_str(), Text(trees[r]));
    }
    Column("B5", {18, 12, 13, 14, 9, 8, 20});
    Column("C5", {20, 12, 14, 15, 8, 9, 30});
    Column("D5", {14, 10, 9, 10, 8, 6, 1});
    Column("E5", {105, 96, 105, 75, 76.8, 45});
    Put(0, "E11", ErrorValue(ErrDiv0));
    // Criteria that name no column of the table, and one that selects nothing.
    Put(0, "H1", Text(u"Poids"));
    Put(0, "H2", NumberValue(1));
    Put(0, "I1", Text(u"arbre"));
    Put(0, "I2", Text(u"Chêne"));
  }
};

TEST_F(DatabaseTest, AggregatesOverSelectedRecords) {
  const Expected rows[] = {
      {u"=BDNB(A4:E10;\"Âge\";A1:F2)", 1},
      {u"=BDNBVAL(A4:E10;\"Bénéfice\";A1:F2)", 1},
      {u"=BDMAX(A4:E10;\"Bénéfice\";A1:A3)", 105},
      {u"=BDMIN(A4:E10;\"Bénéfice\";A1:B2)", 75},
      {u"=BDSOMME(A4:E10;\"Bénéfice\";A1:A2)", 225},
      {u"=BDSOMME(A4:E10;\"Bénéfice\";A1:F2)", 75},
      {u"=BDPRODUIT(A4:E10;\"Rendement\";A1:B2)", 140},
      {u"=BDMOYENNE(A4:E10;\"Rendement\";A1:B2)", 12},
      {u"=BDMOYENNE(A4:E10;3;A4:E10)", 13},
      {u"=BDECARTYPE(A4:E10;\"Rendement\";A1:A3)", 2.9664793948382651},
      {u"=BDECARTYPEP(A4:E10;\"Rendement\";A1:A3)", 2.6532998322843198},
      {u"=BDVAR(A4:E10;\"Rendement\";A1:A3)", 8.8},
      {u"=BDVARP(A4:E10;\"Rendement\";A1:A3)", 7.04},
      {u"=BDLIRE(A4:E10;\"Rendement\";A1:F2)", 10},
      {u"=BDLIRE(A4:E10;\"Rendement\";A1:A3)", 0, "#NUM!"},
      {u"=BDLIRE(A4:E10;\"Rendement\";I1:I2)", 0, "#VALUE!"},
      // The field by number, by heading in another case, or in a cell; left out for the counts.
      {u"=BDSOMME(A4:E10;5;A1:A2)", 225},
      {u"=BDSOMME(A4:E10;\"BÉNÉFICE\";A1:A2)", 225},
      {u"=BDSOMME(A4:E10;E4;A1:A2)", 225},
      {u"=BDNB(A4:E10;;A1:A2)", 3},
      {u"=BDNB(A4:E10;;A1:A3)", 5},
      {u"=BDSOMME(A4:E10;0;A1:A2)", 0, "#VALUE!"},
      {u"=BDSOMME(A4:E10;6;A1:A2)", 0, "#VALUE!"},
      {u"=BDSOMME(A4:E10;\"Poids\";A1:A2)", 0, "#VALUE!"},
      // An empty condition, and a criteria range of headings alone, select every record.
      {u"=BDSOMME(A4:E10;5;C1:C2)", 502.8},
      {u"=BDSOMME(A4:E10;5;A1)", 502.8},
      {u"=BDSOMME(A4:E10;5;H1:H2)", 0, "#VALUE!"},
      // Nothing selected.
      {u"=BDSOMME(A4:E10;5;I1:I2)", 0},
      {u"=BDMAX(A4:E10;5;I1:I2)", 0},
      {u"=BDMOYENNE(A4:E10;5;I1:I2)", 0, "#DIV/0!"},
      {u"=BDECARTYPE(A4:E10;5;A1:F2)", 0, "#DIV/0!"},
      // Texts and errors in the field: counted by the counts, an error ends the others.
      {u"=BDNB(A4:E11;1;C1:C2)", 0},
      {u"=BDNBVAL(A4:E11;1;C1:C2)", 7},
      {u"=BDNB(A4:E11;5;C1:C2)", 6},
      {u"=BDSOMME(A4:E11;5;C1:C2)", 0, "#DIV/0!"},
      {u"=BDSOMME(A4:E11;4;A1:A3)", 48},
      // Arrays stand for ranges.
      {u"=BDSOMME({\"a\"\\\"b\";1\\2;3\\4};\"B\";{\"a\";\">1\"})", 4},
      {u"=BDSOMME(A4:E10;5;1)", 0, "#VALUE!"},
  };
  ExpectResults(rows, 1e-14);
}

// A plain text condition selects the texts that begin with it; a column of the criteria without
// a heading may hold no condition; BDLIRE passes over selected records whose field is blank, and a
// field named by a text that spells a number finds the heading of that number.
TEST_F(DatabaseTest, ConditionsAndSingleRecordRules) {
  Put(0, "G4", NumberValue(7));
  Put(0, "G11", NumberValue(42));
  const Expected rows[] = {
      {u"=BDSOMME(A4:E10;5;{\"Arbre\";\"Po\"})", 397.8},
      {u"=BDSOMME(A4:E10;5;{\"Arbre\";\"P?m*r\"})", 225},
      {u"=BDSOMME(A4:E10;5;{\"Arbre\";\"=Po\"})", 0},
      {u"=BDSOMME(A4:E10;5;{\"Arbre\"\\\"\";\"Pommier\"\\\"x\"})", 0, "#VALUE!"},
      {u"=BDSOMME(A4:E10;5;{\"Arbre\"\\\"\";\"Pommier\"\\\"\"})", 0, "#VALUE!"},
      {u"=BDLIRE(A4:E11;\"Âge\";{\"Arbre\";\"Orme\"})", 30},
      {u"=BDLIRE(A4:G11;\"7\";{\"Hauteur\";\">0\"})", 42},
      {u"=BDLIRE(A4:G11;\"7\";{\"Arbre\";\"Po\"})", 0, "#VALUE!"},
      {u"=BDLIRE(A4:E11;\"3\";{\"Arbre\";\"Orme\"})", 0, "#VALUE!"},
  };
  ExpectResults(rows, 1e-14);
}

// BDLIRE looks for the one record that has the field filled: records whose field is empty or an
// empty text are passed over, so that none left is #VALUE! and one left is the answer.
TEST_F(DatabaseTest, BdLireCountsOnlyRecordsWithTheField) {
  Put(0, "J1", Text(u"Nom"));
  Put(0, "K1", Text(u"Note"));
  const char16_t* names[] = {u"a", u"b", u"b", u"c", u"c"};
  for (int r = 0; r < 5; r++) {
    std::string address = "J";
    address += std::to_string(r + 2);
    Put(0, address.c_str(), Text(names[r]));
  }
  Put(0, "K2", NumberValue(5));
  Put(0, "K4", Text(u""));
  Put(0, "K6", NumberValue(7));
  for (const char* column : {"M", "N", "O"})
    Put(0, (std::string(column) + "1").c_str(), Text(u"Nom"));
  Put(0, "M2", Text(u"a"));
  Put(0, "N2", Text(u"b"));
  Put(0, "O2", Text(u"c"));
  const Expected rows[] = {
      {u"=BDLIRE(J1:K6;\"Note\";M1:M2)", 5},
      {u"=BDLIRE(J1:K6;\"Note\";N1:N2)", 0, "#VALUE!"},
      {u"=BDLIRE(J1:K6;\"Note\";O1:O2)", 7},
      {u"=BDLIRE(J1:K6;\"Note\";J1:J6)", 0, "#NUM!"},
  };
  ExpectResults(rows, 0);
}

}  // namespace
