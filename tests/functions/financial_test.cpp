// The annuity, rate and depreciation functions from formula text, on the arguments of their
// published examples, with references computed to 30 digits from the textbook formulas where the
// examples give only a few; and the rate searches and their failures.
#include "functions/formula_fixture.h"

namespace {

// A1:A5 and B1:B5 a schedule of payments and their dates; C1:C6 the cash flows of an
// investment.
struct FinancialTest : FormulaTest {
  void SetUp() override {
    FormulaTest::SetUp();
    Column("A1", {-10000, 2750, 4250, 3250, 2750});
    Column("B1", {39448, 39508, 39751, 39859, 39904});
    Column("C1", {-70000, 12000, 15000, 18000, 21000, 26000});
    Put(0, "C7", Text(u"note"));
  }
};

TEST_F(FinancialTest, AnnuitiesAndCashFlows) {
  const Expected rows[] = {
      {u"=VPM(0,1;2;100)", -57.619047619047619},
      {u"=VPM(8%/12;10;10000)", -1037.0320893591522},
      {u"=VC(6%/12;10;-200;-500;1)", 2581.4033740601792},
      {u"=VA(8%/12;12*20;500)", -59777.145851188022},
      {u"=NPM(12%/12;-100;-1000;10000;1)", 59.673865674294626},
      {u"=NPM(0;-100;1000)", 10},
      {u"=INTPER(0,1/12;1;36;8000)", -66.666666666666667},
      {u"=INTPER(0,1;3;3;8000)", -292.44712990936556},
      {u"=INTPER(0,1;2;3;8000;0;1)", -507.55287009063444},
      {u"=INTPER(0,1;1;3;8000;0;1)", 0},
      {u"=PRINCPER(0,1/12;1;24;2000)", -75.62318600836634},
      {u"=ISPMT(0,1/12;1;36;8000000)", -64814.814814814815},
      {u"=CUMUL.INTER(0,09/12;30*12;125000;13;24;0)", -11135.232130750843},
      {u"=CUMUL.PRINCPER(0,09/12;30*12;125000;13;24;0)", -934.10712342089831},
      {u"=VAN(10%;-10000;3000;4200;6800)", 1188.443412335223},
      {u"=VAN(10%;{-10000\\3000};C7;4200;6800)", 1188.443412335223},
      {u"=VAN.PAIEMENTS(0,09;A1:A5;B1:B5)", 2086.6476020315366},
      {u"=TRIM({-120000\\39000\\30000\\21000\\37000\\46000};0,1;0,12)", 0.12609413036590515},
      {u"=TAUX.EFFECTIF(0,0525;4)", 0.053542667370758057},
      {u"=TAUX.NOMINAL(0,053543;4)", 0.052500319868355864},
      {u"=PRIX.DEC(1,02;16)", 1.125},
      {u"=PRIX.FRAC(1,125;16)", 1.02},
      {u"=VC.PAIEMENTS(1;{0,09\\0,11\\0,1})", 1.33089},
      {u"=VPM(0;12;100)", 0, "#NUM!"},
      {u"=CUMUL.INTER(0,1;10;100;5;4;0)", 0, "#NUM!"},
      {u"=CUMUL.INTER(0,1;10;100;1;4;2)", 0, "#NUM!"},
      {u"=INTPER(0,1;4;3;8000)", 0, "#NUM!"},
      {u"=TRIM({1\\2};0,1;0,1)", 0, "#DIV/0!"},
      {u"=VAN.PAIEMENTS(0;A1:A5;B1:B5)", 0, "#NUM!"},
      {u"=VAN.PAIEMENTS(0,1;A1:A5;B1:B4)", 0, "#NUM!"},
      {u"=PRIX.DEC(1,02;0)", 0, "#DIV/0!"},
  };
  ExpectResults(rows, 1e-13);
}

// The searches accept a money amount within 1e-7 and then settle the rate to the precision of the
// doubles; a search that cannot settle in twenty rounds, or whose two side values are equal, gives
// #NUM!.
TEST_F(FinancialTest, RatesAreSearchedForTwentyRounds) {
  const Expected rows[] = {
      {u"=TAUX(4*12;-200;8000)", 0.0077014724882020438},
      {u"=TAUX(12;-100;1000)", 0.029228540769133695},
      {u"=TRI(C1:C6)", 0.086630948036531614},
      {u"=TRI(C1:C7;0,05)", 0.086630948036531614},
      {u"=TRI.PAIEMENTS(A1:A5;B1:B5)", 0.37336253351883151},
      {u"=TAUX(1;0;0)", 0, "#NUM!"},
      {u"=TRI({1\\2\\3})", 0, "#NUM!"},
      {u"=TRI(5)", 0, "#NUM!"},
      {u"=TRI.PAIEMENTS({1\\2};{39448\\39508})", 0, "#NUM!"},
      {u"=TRI.PAIEMENTS({-1\\2};{39448\\39400})", 0, "#NUM!"},
  };
  ExpectResults(rows, 1e-8);
  // Settled beyond the tolerance, as the results Excel stores, from a guess far below the rate,
  // where the first search runs past -1.
  const Expected settled[] = {
      {u"=TRI({-70000\\12000\\15000};-0,1)", -0.443506941334654},
  };
  ExpectResults(settled, 1e-12);
}

TEST_F(FinancialTest, Depreciation) {
  const Expected rows[] = {
      {u"=AMORLIN(30000;7500;10)", 2250},
      {u"=SYD(30000;7500;10;1)", 4090.9090909090909},
      {u"=DB(1000000;100000;6;1;7)", 186083.33333333333},
      {u"=DB(1000000;100000;6;7;7)", 15845.098473848073},
      {u"=DB(1000;100;5;1)", 369},
      {u"=DDB(1000;100;5;1)", 400},
      {u"=DDB(2400;300;10;1;2)", 480},
      {u"=DDB(1000;100;5;5)", 29.6},
      {u"=VDB(2400;300;10;0;1)", 480},
      {u"=AMORDEGRC(2400;39679;39813;300;1;0,15;1)", 776},
      {u"=AMORLINC(2400;39679;39813;300;1;0,15;1)", 360},
      {u"=AMORLIN(1;0;0)", 0, "#DIV/0!"},
      {u"=SYD(1;0;3;4)", 0, "#NUM!"},
      {u"=DB(1;0;0;1)", 0, "#NUM!"},
      {u"=DDB(1;0;0;1)", 0, "#NUM!"},
      {u"=VDB(2400;300;10;2;1)", 0, "#NUM!"},
      {u"=AMORDEGRC(2400;39679;39813;300;1;0,15;2)", 0, "#NUM!"},
  };
  ExpectResults(rows, 1e-13);
  // Published to the cent.
  const Expected cents[] = {
      {u"=DDB(2400;300;10*365;1)", 1.32},     {u"=DDB(2400;300;10;2;1,5)", 306},
      {u"=DDB(2400;300;10;10)", 22.12},       {u"=DB(1000000;100000;6;2;7)", 259639.42},
      {u"=VDB(2400;300;10*365;0;1)", 1.32},   {u"=VDB(2400;300;10*12;0;1)", 40},
      {u"=VDB(2400;300;10*12;6;18)", 396.31}, {u"=VDB(2400;300;10;0;0,875;1,5)", 315},
  };
  ExpectResults(cents, 4e-3);
}

}  // namespace
