// The descriptive statistics over cells and arrays: the aggregates and their A variants, the
// order statistics, the pair functions, FREQUENCE and PROBABILITE, and the four tests, against
// reference values computed to 30 digits from the same data.
#include "functions/formula_fixture.h"

namespace {

// A1:A8 hold 2 4 4 4 5 5 7 9 (mean 5, population deviation 2), A9 a text and A10 VRAI; B1:B8
// the values 1 3 2 5 4 6 8 7 paired with them; C1:D3 a table of observed counts and E1:F3 the
// counts expected.
struct StatisticsTest : FormulaTest {
  void SetUp() override {
    FormulaTest::SetUp();
    Column("A1", {2, 4, 4, 4, 5, 5, 7, 9});
    Put(0, "A9", Text(u"x"));
    Put(0, "A10", BooleanValue(true));
    Column("B1", {1, 3, 2, 5, 4, 6, 8, 7});
    Column("C1", {58, 11, 10});
    Column("D1", {35, 25, 23});
    Column("E1", {45.35, 17.56, 16.09});
    Column("F1", {47.65, 16.44, 13.91});
    Put(0, "G1", ErrorValue(ErrDiv0));
  }
};

TEST_F(StatisticsTest, AggregatesAndTheirAVariants) {
  const Expected rows[] = {
      {u"=MOYENNE(A1:A10)", 5},
      {u"=MOYENNE(A1:A10;\"3\";VRAI)", 4.4},
      {u"=MOYENNEA(A1:A10)", 4.1},
      {u"=VAR(A1:A10)", 32.0 / 7},
      {u"=VAR.P(A1:A10)", 4},
      {u"=ECARTYPEP(A1:A10)", 2},
      {u"=ECARTYPE(A1:A10)", 2.1380899352993950},
      {u"=VARA(A1:A10)", 7.2111111111111111},
      {u"=VARPA(A1:A10)", 6.49},
      {u"=STDEVPA(A1:A10)", 2.5475478405713993},
      {u"=STDEVA(A1:A10)", 2.6853512081497106},
      {u"=SOMME.CARRES.ECARTS(A1:A10)", 32},
      {u"=ECART.MOYEN(A1:A10)", 1.5},
      {u"=MOYENNE.GEOMETRIQUE(A1:A10)", 4.6032155960467367},
      {u"=MOYENNE.HARMONIQUE(A1:A10)", 4.2017507294706128},
      {u"=COEFFICIENT.ASYMETRIE(A1:A10)", 0.81848755335679963},
      {u"=KURTOSIS(A1:A10)", 0.9406249999999997},
      {u"=MAX(A1:A10;-1)", 9},
      {u"=MIN(A1:A10;{3\\1})", 1},
      {u"=MAX(A9)", 0},
      {u"=MAXA(A9:A10)", 1},
      {u"=MINA(A1:A10)", 0},
      {u"=NB(A1:A10;\"3\";\"x\";1/0)", 9},
      {u"=NBVAL(A1:A10;G1;\"x\";1/0)", 13},
      {u"=NBVAL({1\\\"a\"})", 2},
      {u"=VAR.P(1)", 0},
      {u"=ECARTYPE(1)", 0, "#DIV/0!"},
      {u"=MOYENNE(A9)", 0, "#DIV/0!"},
      {u"=MOYENNE(A1:A10;G1)", 0, "#DIV/0!"},
      {u"=MOYENNE(\"x\")", 0, "#VALUE!"},
      {u"=MOYENNE.GEOMETRIQUE(1;0)", 0, "#NUM!"},
      {u"=ECART.MOYEN(A9)", 0, "#NUM!"},
      {u"=KURTOSIS(1;2;3)", 0, "#DIV/0!"},
  };
  ExpectResults(rows, 1e-14);
}

TEST_F(StatisticsTest, OrderStatistics) {
  const Expected rows[] = {
      {u"=MEDIANE(1;2;3;4)", 2.5},
      {u"=MEDIANE(A1:A10)", 4.5},
      {u"=MODE(A1:A10)", 4},
      {u"=MODE(1;2;3)", 0, "#N/A"},
      // Ties go to the value met first; a typed text is no number.
      {u"=MODE(5;3;3;5)", 5},
      {u"=MODE(3;5;5;3)", 3},
      {u"=MODE(1;\"1\";2;3)", 0, "#N/A"},
      {u"=MODE(\"2\";2;2;3;3)", 2},
      {u"=CENTILE({1;2;3;4};0,5)", 2.5},
      {u"=CENTILE({1;2;3;4};0)", 1},
      {u"=CENTILE({1;2;3;4};1)", 4},
      {u"=CENTILE(A1:A8;0,3)", 4},
      {u"=CENTILE({1;2};1,5)", 0, "#NUM!"},
      {u"=QUARTILE(A1:A8;1)", 4},
      {u"=QUARTILE(A1:A8;3,9)", 5.5},
      {u"=QUARTILE(A1:A8;5)", 0, "#NUM!"},
      {u"=GRANDE.VALEUR(A1:A10;2)", 7},
      {u"=PETITE.VALEUR(A1:A10;1)", 2},
      {u"=PETITE.VALEUR(A1:A10;9)", 0, "#NUM!"},
      {u"=MOYENNE.REDUITE(A1:A8;0,25)", 29.0 / 6},
      {u"=MOYENNE.REDUITE(A1:A8;0)", 5},
      {u"=MOYENNE.REDUITE(A1:A8;1)", 0, "#NUM!"},
      {u"=RANG(4;A1:A10)", 5},
      {u"=RANG(4;A1:A10;1)", 2},
      {u"=RANG(3;A1:A10)", 0, "#N/A"},
      {u"=RANG.POURCENTAGE(A1:A8;4)", 0.142},
      {u"=RANG.POURCENTAGE(A1:A8;8)", 0.928},
      {u"=RANG.POURCENTAGE(A1:A8;9;2)", 1},
      {u"=RANG.POURCENTAGE(A1:A8;10)", 0, "#N/A"},
      {u"=RANG.POURCENTAGE(A1:A8;5;0)", 0, "#NUM!"},
  };
  ExpectResults(rows, 1e-14);
}

TEST_F(StatisticsTest, PairsOfArraysAndTests) {
  const Expected rows[] = {
      {u"=PENTE(B1:B8;A1:A8)", 0.96875},
      {u"=ORDONNEE.ORIGINE(B1:B8;A1:A8)", -0.34375},
      {u"=COEFFICIENT.CORRELATION(A1:A8;B1:B8)", 0.84559432466447048},
      {u"=PEARSON(A1:A8;B1:B8)", 0.84559432466447048},
      {u"=COEFFICIENT.DETERMINATION(B1:B8;A1:A8)", 0.7150297619047619},
      {u"=COVARIANCE(A1:A8;B1:B8)", 3.875},
      {u"=ERREUR.TYPE.XY(B1:B8;A1:A8)", 1.4123709380565244},
      {u"=PREVISION(6;B1:B8;A1:A8)", 5.46875},
      {u"=PENTE(B1:B9;A1:A9)", 0.96875},
      {u"=PENTE(B1:B8;A1:A7)", 0, "#N/A"},
      {u"=PENTE({1;2};{3;3})", 0, "#DIV/0!"},
      {u"=TEST.STUDENT(A1:A8;B1:B8;2;1)", 0.31589066295494232},
      {u"=TEST.STUDENT(A1:A8;B1:B8;2;2)", 0.67022232775029956},
      {u"=TEST.STUDENT(A1:A8;B1:B8;1;3)", 0.33517096746342607},
      {u"=TEST.STUDENT(A1:A8;B1:B8;3;1)", 0, "#NUM!"},
      {u"=TEST.F(A1:A8;B1:B8)", 0.72886002901035086},
      {u"=TEST.Z(A1:A8;4)", 0.092938366182937964},
      {u"=TEST.Z(A1:A8;4;1)", 0.0023388674905236329},
      {u"=TEST.KHIDEUX(C1:D3;E1:F3)", 1.637239994760133e-5},
      {u"=TEST.KHIDEUX(C1:D3;E1:F2)", 0, "#N/A"},
      {u"=PROBABILITE({0;1;2;3};{0,2;0,3;0,1;0,4};2)", 0.1},
      {u"=PROBABILITE({0;1;2;3};{0,2;0,3;0,1;0,4};1;3)", 0.8},
      {u"=PROBABILITE({0;1};{0,2;0,3};1)", 0, "#NUM!"},
  };
  ExpectResults(rows, 1e-12);
}

TEST_F(StatisticsTest, FrequenceCountsIntoTheBinsInTheirOwnOrder) {
  Value v = Evaluated(u"=FREQUENCE(A1:A8;{5;3})", 1);
  EXPECT_EQ(Show(v), "a3x1{n:5,n:1,n:2}");
  FreeValue(&v);
}

}  // namespace
