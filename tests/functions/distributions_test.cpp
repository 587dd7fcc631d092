// The probability functions from formula text: values against references computed to 30 digits
// (the arguments are those of the functions' published examples), the domain each one refuses,
// and the inverses, which iterate to a tolerance of 3e-7 on the probability.
#include "functions/formula_fixture.h"

namespace {

using DistributionsTest = FormulaTest;
constexpr const char* Num = "#NUM!";

TEST_F(DistributionsTest, DistributionFunctionsMatchReferenceValues) {
  const Expected rows[] = {
      {u"=LOI.NORMALE.STANDARD(0)", 0.5},
      {u"=LOI.NORMALE.STANDARD(41)", 1},
      {u"=LOI.NORMALE.STANDARD(-41)", 0},
      {u"=LOI.NORMALE(42;40;1,5;VRAI)", 0.90878878027413213},
      {u"=LOI.NORMALE(42;40;1,5;FAUX)", 0.10934004978399575},
      {u"=LOI.LOGNORMALE(4;3,5;1,2)", 0.039083555706800468},
      {u"=LOI.BETA(2;8;10;1;3)", 0.6854705810546875},
      {u"=LOI.BETA(0,5;8;10)", 0.6854705810546875},
      {u"=LOI.BINOMIALE(6;10;0,5;FAUX)", 0.205078125},
      {u"=LOI.BINOMIALE(6,9;10;0,5;VRAI)", 0.828125},
      {u"=LOI.KHIDEUX(18,307;10)", 0.05000058909139812},
      {u"=LOI.KHIDEUX(0;3)", 1},
      {u"=LOI.F(15,20686486;6;4)", 0.010000000001416584},
      {u"=LOI.GAMMA(10;9;2;FAUX)", 0.032639019674079372},
      {u"=LOI.GAMMA(10;9;2;VRAI)", 0.068093634721848559},
      {u"=LOI.GAMMA(0;2;3;VRAI)", 0},
      {u"=LOI.STUDENT(1,96;60;2)", 0.054644929736529325},
      {u"=LOI.STUDENT(1;5;1)", 0.18160873382456134},
      {u"=LOI.WEIBULL(105;20;100;VRAI)", 0.92958139006927678},
      {u"=LOI.WEIBULL(105;20;100;FAUX)", 0.035588864024504382},
      {u"=LOI.POISSON(2;5;FAUX)", 0.084224337488568339},
      {u"=LOI.POISSON(2;5;VRAI)", 0.12465201948308114},
      {u"=LOI.POISSON(3;0;FAUX)", 0},
      {u"=LOI.HYPERGEOMETRIQUE(1;4;8;20)", 0.36326109391124871},
      {u"=LOI.BINOMIALE.NEG(10;5;0,25)", 0.05504866037517786},
      {u"=LOI.EXPONENTIELLE(0,2;10;VRAI)", 0.86466471676338731},
      {u"=LOI.EXPONENTIELLE(0,2;10;FAUX)", 1.3533528323661269},
      {u"=INTERVALLE.CONFIANCE(0,05;2,5;50)", 0.69295191217483884},
      {u"=FISHER(0,75)", 0.97295507452765665},
      {u"=FISHER.INVERSE(0,972955)", 0.7499999673941484},
      {u"=FISHER.INVERSE(1000)", 1},
      {u"=LNGAMMA(4)", 1.791759469228055},
      {u"=LNGAMMA(1)", 0},
      {u"=CENTREE.REDUITE(42;40;1,5)", 4.0 / 3},
      {u"=CRITERE.LOI.BINOMIALE(6;0,5;0,75)", 4},
      {u"=CRITERE.LOI.BINOMIALE(6;0,5;1)", 6},
      {u"=PERMUTATION(100;3)", 970200},
      {u"=ERF(1)", 0.84270079294971487},
      {u"=ERF(0,5;1,5)", 0.44560526866226419},
      {u"=ERFC(1)", 0.15729920705028513},
      {u"=LOI.NORMALE.STANDARD.INVERSE(0,908789)", 1.3333346730441072},
      {u"=LOI.NORMALE.INVERSE(0,908789;40;1,5)", 42.000002009566161},
      {u"=LOI.LOGNORMALE.INVERSE(0,039084;3,5;1,2)", 4.0000252186806354},
      {u"=BETA.INVERSE(0,685470581;8;10;1;3)", 1.9999999999631428},
      {u"=KHIDEUX.INVERSE(0,05;10)", 18.307038053275147},
      {u"=KHIDEUX.INVERSE(1;10)", 0},
  };
  ExpectResults(rows, 1e-12);
  // The iterated inverses stop within 3e-7 of the probability, which leaves a few more digits
  // of error in x where the density is low.
  const Expected inverses[] = {
      {u"=INVERSE.LOI.F(0,01;6;4)", 15.20686486115753},
      {u"=INVERSE.LOI.F(0,5;1;1)", 1},
      {u"=INVERSE.LOI.F(0,99;3;5)", 0.035414425653480685},
      {u"=LOI.STUDENT.INVERSE(0,054645;60)", 1.9599994129833725},
      {u"=LOI.GAMMA.INVERSE(0,068094;9;2)", 10.000011191437178},
  };
  ExpectResults(inverses, 1e-4);
}

TEST_F(DistributionsTest, ArgumentsOutsideTheDomainAreRefused) {
  const Expected rows[] = {
      {u"=LOI.STUDENT(-1;5;2)", 0, Num},
      {u"=LOI.STUDENT(1;0,5;2)", 0, Num},
      {u"=LOI.STUDENT(1;5;3)", 0, Num},
      {u"=LNGAMMA(0)", 0, Num},
      {u"=LOI.NORMALE(1;0;0;VRAI)", 0, Num},
      {u"=LOI.LOGNORMALE(0;1;1)", 0, Num},
      {u"=LOI.BETA(4;8;10;1;3)", 0, Num},
      {u"=LOI.BETA(0,5;0;10)", 0, Num},
      {u"=BETA.INVERSE(0;8;10)", 0, Num},
      {u"=LOI.KHIDEUX(-1;3)", 0, Num},
      {u"=LOI.KHIDEUX(1;0)", 0, Num},
      {u"=KHIDEUX.INVERSE(1,5;3)", 0, Num},
      {u"=LOI.F(-1;2;3)", 0, Num},
      {u"=INVERSE.LOI.F(0,5;0;3)", 0, Num},
      {u"=LOI.GAMMA(-1;2;3;VRAI)", 0, Num},
      {u"=LOI.GAMMA(1;200;3;FAUX)", 0, Num},
      {u"=LOI.GAMMA.INVERSE(2;9;2)", 0, Num},
      {u"=LOI.BINOMIALE(7;6;0,5;VRAI)", 0, Num},
      {u"=LOI.BINOMIALE(1;6;1,5;VRAI)", 0, Num},
      {u"=LOI.POISSON(-1;2;VRAI)", 0, Num},
      {u"=LOI.HYPERGEOMETRIQUE(5;4;8;20)", 0, Num},
      {u"=PERMUTATION(3;4)", 0, Num},
      {u"=FISHER(1)", 0, Num},
      {u"=INTERVALLE.CONFIANCE(1;2;3)", 0, Num},
      {u"=LOI.EXPONENTIELLE(1;0;VRAI)", 0, Num},
      {u"=LOI.WEIBULL(1;0;1;VRAI)", 0, Num},
      {u"=ERF(-1)", 0, Num},
      {u"=ERFC(-1)", 0, Num},
      {u"=LOI.NORMALE.STANDARD.INVERSE(0)", 0, Num},
      {u"=LOI.NORMALE.STANDARD.INVERSE(1,1)", 0, Num},
      {u"=LOI.NORMALE(\"x\";1/0;1;VRAI)", 0, "#VALUE!"},
      {u"=LOI.BETA(1/0;\"x\";1)", 0, "#DIV/0!"},
  };
  ExpectResults(rows, 0);
}

}  // namespace
