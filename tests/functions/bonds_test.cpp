// The bond and security functions: the published worked examples of each row, the coupon
// schedule across frequencies, bases and month ends, the argument checks, and yields that
// must give back the price they were solved from.
#include <string>

#include "functions/formula_fixture.h"

namespace {

struct BondsTest : FormulaTest {};

// The worked examples, to the digits they are published with.
TEST_F(BondsTest, PublishedExamples) {
  const Expected rows[] = {
      {u"=PRIX.TITRE(DATE(2008;2;15);DATE(2017;11;15);5,75%;6,5%;100;2;0)", 94.634362},
      {u"=RENDEMENT.TITRE(DATE(2008;2;15);DATE(2016;11;15);5,75%;95,04287;100;2;0)", 0.065},
      {u"=DUREE(DATE(2008;1;1);DATE(2016;1;1);8%;9%;2;1)", 5.993775},
      {u"=DUREE.MODIFIEE(DATE(2008;1;1);DATE(2016;1;1);8%;9%;2;1)", 5.73567},
      {u"=INTERET.ACC(DATE(2008;3;1);DATE(2008;8;31);DATE(2008;5;1);10%;1000;2;0)", 16.666667},
      {u"=INTERET.ACC.MAT(DATE(2008;4;1);DATE(2008;6;15);10%;1000;3)", 20.54795},
      {u"=PRIX.BON.TRESOR(DATE(2008;3;31);DATE(2008;6;1);9%)", 98.45},
      {u"=RENDEMENT.BON.TRESOR(DATE(2008;3;31);DATE(2008;6;1);98,45)", 0.091417},
      {u"=TAUX.ESCOMPTE.R(DATE(2008;3;31);DATE(2008;6;1);9,14%)", 0.094151},
      {u"=TAUX.ESCOMPTE(DATE(2007;1;25);DATE(2007;6;15);97,975;100;1)", 0.052420},
      {u"=TAUX.INTERET(DATE(2008;2;15);DATE(2008;5;15);1000000;1014420;2)", 0.05768},
      {u"=VALEUR.ENCAISSEMENT(DATE(2008;2;16);DATE(2008;3;1);5,25%;100;2)", 99.795833},
      {u"=VALEUR.NOMINALE(DATE(2008;2;15);DATE(2008;5;15);1000000;5,75%;2)", 1014584.654},
      {u"=RENDEMENT.SIMPLE(DATE(2008;2;16);DATE(2008;3;1);99,795;100;2)", 0.052823},
      {u"=PRIX.TITRE.ECHEANCE(DATE(2008;2;15);DATE(2008;4;13);DATE(2007;11;11);6,1%;6,1%;0)",
       99.98449888},
      {u"=RENDEMENT.TITRE.ECHEANCE(DATE(2008;3;15);DATE(2008;11;3);DATE(2007;11;8);6,25%;"
       u"100,0123;0)",
       0.060954},
      {u"=PRIX.DCOUPON.IRREG(DATE(2008;2;7);DATE(2008;6;15);DATE(2007;10;15);3,75%;4,05%;100;2;0)",
       99.87829},
      {u"=REND.DCOUPON.IRREG(DATE(2008;4;20);DATE(2008;6;15);DATE(2007;12;24);3,75%;99,875;100;2;"
       u"0)",
       0.045192},
      {u"=PRIX.PCOUPON.IRREG(DATE(2008;11;11);DATE(2021;3;1);DATE(2008;10;15);DATE(2009;3;1);"
       u"7,85%;6,25%;100;2;1)",
       113.597717},
      {u"=REND.PCOUPON.IRREG(DATE(2008;11;11);DATE(2021;3;1);DATE(2008;10;15);DATE(2009;3;1);"
       u"5,75%;84,5;100;2;0)",
       0.077246},
  };
  ExpectResults(rows, 1e-5);
}

// For settlement 25 January 2007 and maturity 15 November 2008: the days before settlement,
// in the period and after it, by basis, and the schedule by frequency.
TEST_F(BondsTest, CouponScheduleByBasisAndFrequency) {
  const char16_t* dates = u"DATE(2007;1;25);DATE(2008;11;15)";
  struct Case {
    const char16_t* function;
    int frequency;
    int basis;
    double expected;
  } cases[] = {
      {u"NB.JOURS.COUPON.PREC", 2, 0, 70},
      {u"NB.JOURS.COUPONS", 2, 0, 180},
      {u"NB.JOURS.COUPON.SUIV", 2, 0, 110},
      {u"NB.JOURS.COUPON.PREC", 2, 1, 71},
      {u"NB.JOURS.COUPONS", 2, 1, 181},
      {u"NB.JOURS.COUPON.SUIV", 2, 1, 110},
      {u"NB.JOURS.COUPONS", 2, 2, 180},
      {u"NB.JOURS.COUPONS", 2, 3, 182.5},
      {u"NB.JOURS.COUPON.PREC", 2, 4, 70},
      {u"NB.JOURS.COUPONS", 4, 1, 92},
      {u"NB.JOURS.COUPONS", 1, 1, 365},
      {u"NB.COUPONS", 1, 0, 2},
      {u"NB.COUPONS", 2, 0, 4},
      {u"NB.COUPONS", 4, 0, 8},
      {u"DATE.COUPON.PREC", 1, 0, 39036},
      {u"DATE.COUPON.SUIV", 1, 0, 39401},
      {u"DATE.COUPON.PREC", 2, 1, 39036},
      {u"DATE.COUPON.SUIV", 2, 1, 39217},
      {u"DATE.COUPON.SUIV", 4, 1, 39128},
  };
  for (const Case& c : cases) {
    std::u16string formula = std::u16string(u"=") + c.function + u"(" + dates + u";" +
                             char16_t(u'0' + c.frequency) + u";" + char16_t(u'0' + c.basis) + u")";
    char expected[32];
    std::snprintf(expected, sizeof expected, "%g", c.expected);
    EXPECT_EQ(Eval(formula.c_str()), expected) << TextToUtf8(formula.c_str());
  }
}

// A maturity on a month's last day puts every coupon on a month's last day; a settlement on a
// coupon date starts that period.
TEST_F(BondsTest, MonthEndsAndCouponDays) {
  const std::pair<const char16_t*, const char*> rows[] = {
      {u"=DATE.COUPON.PREC(DATE(2008;3;15);DATE(2008;6;30);2;0)=DATE(2007;12;31)", "b:1"},
      {u"=DATE.COUPON.PREC(DATE(2008;10;1);DATE(2009;2;28);2;0)=DATE(2008;8;31)", "b:1"},
      {u"=DATE.COUPON.SUIV(DATE(2008;10;1);DATE(2009;2;28);4;0)=DATE(2008;11;30)", "b:1"},
      {u"=DATE.COUPON.PREC(DATE(2008;5;15);DATE(2009;11;15);2;1)=DATE(2008;5;15)", "b:1"},
      {u"=NB.JOURS.COUPON.PREC(DATE(2008;5;15);DATE(2009;11;15);2;1)", "0"},
      {u"=DATE.COUPON.PREC(DATE(2008;11;14);DATE(2009;11;15);2;1)=DATE(2008;5;15)", "b:1"},
      {u"=DATE.COUPON.SUIV(DATE(2008;3;31);DATE(2008;8;31);2;0)=DATE(2008;8;31)", "b:1"},
      {u"=NB.COUPONS(DATE(2008;3;31);DATE(2008;8;31);2;0)", "1"},
  };
  for (const auto& [formula, expected] : rows)
    EXPECT_EQ(Eval(formula), expected) << TextToUtf8(formula);
}

TEST_F(BondsTest, ArgumentChecks) {
  const std::pair<const char16_t*, const char*> rows[] = {
      {u"=NB.COUPONS(DATE(2008;11;15);DATE(2008;11;15);2;0)", "#NUM!"},
      {u"=NB.COUPONS(DATE(2009;1;1);DATE(2008;11;15);2;0)", "#NUM!"},
      {u"=NB.COUPONS(DATE(2007;1;25);DATE(2008;11;15);3;0)", "#NUM!"},
      {u"=NB.COUPONS(DATE(2007;1;25);DATE(2008;11;15);2;5)", "#NUM!"},
      {u"=NB.COUPONS(DATE(2007;1;25);DATE(2008;11;15);2;-1)", "#NUM!"},
      {u"=NB.COUPONS(-1;DATE(2008;11;15);2;0)", "#NUM!"},
      {u"=NB.COUPONS(\"x\";DATE(2008;11;15);2;0)", "#VALUE!"},
      {u"=NB.COUPONS(DATE(2007;1;25,7);DATE(2008;11;15);2,9)", "4"},
      {u"=DATE.COUPON.PREC(1;200;4;0)", "#NUM!"},
      {u"=PRIX.TITRE(DATE(2008;2;15);DATE(2017;11;15);-1%;6,5%;100;2;0)", "#NUM!"},
      {u"=PRIX.TITRE(DATE(2008;2;15);DATE(2017;11;15);5%;-1%;100;2;0)", "#NUM!"},
      {u"=PRIX.TITRE(DATE(2008;2;15);DATE(2017;11;15);5%;6%;0;2;0)", "#NUM!"},
      {u"=RENDEMENT.TITRE(DATE(2008;2;15);DATE(2017;11;15);5%;0;100;2;0)", "#NUM!"},
      {u"=DUREE(DATE(2008;1;1);DATE(2016;1;1);8%;9%;3;1)", "#NUM!"},
      {u"=INTERET.ACC(DATE(2008;5;1);DATE(2008;8;31);DATE(2008;5;1);10%;1000;2;0)", "#NUM!"},
      {u"=INTERET.ACC.MAT(DATE(2008;4;1);DATE(2008;6;15);0;1000;3)", "#NUM!"},
      {u"=PRIX.BON.TRESOR(DATE(2008;3;31);DATE(2009;4;1);9%)", "#NUM!"},
      {u"=PRIX.BON.TRESOR(DATE(2008;3;31);DATE(2008;6;1);0)", "#NUM!"},
      {u"=TAUX.ESCOMPTE(DATE(2007;6;15);DATE(2007;1;25);97;100;1)", "#NUM!"},
      {u"=VALEUR.NOMINALE(DATE(2008;2;15);DATE(2009;5;15);1000;90%;2)", "#NUM!"},
      {u"=PRIX.TITRE.ECHEANCE(DATE(2008;2;15);DATE(2008;4;13);DATE(2008;3;1);6%;6%;0)", "#NUM!"},
      {u"=PRIX.DCOUPON.IRREG(DATE(2007;10;1);DATE(2008;6;15);DATE(2007;10;15);4%;4%;100;2;0)",
       "#NUM!"},
      {u"=PRIX.PCOUPON.IRREG(DATE(2008;11;11);DATE(2021;3;1);DATE(2008;10;15);DATE(2008;11;1);"
       u"7%;6%;100;2;1)",
       "#NUM!"},
  };
  for (const auto& [formula, expected] : rows)
    EXPECT_EQ(Eval(formula), expected) << TextToUtf8(formula);
}

// The yield solved from a price gives that price back, for each frequency and basis, with many
// coupons left or only one, and for the odd first period.
TEST_F(BondsTest, YieldsReproduceTheirPrices) {
  Put(0, "A1", NumberValue(39493));  // 15 February 2008
  const char16_t* maturities[] = {u"DATE(2017;11;15)", u"DATE(2008;5;15)"};
  for (const char16_t* maturity : maturities) {
    for (int frequency : {1, 2, 4}) {
      for (int basis = 0; basis <= 4; basis++) {
        std::u16string tail = std::u16string(u";100;") + char16_t(u'0' + frequency) + u";" +
                              char16_t(u'0' + basis) + u")";
        std::u16string price = u"PRIX.TITRE(A1;" + std::u16string(maturity) + u";5,75%;6,5%" + tail;
        std::u16string formula =
            u"=RENDEMENT.TITRE(A1;" + std::u16string(maturity) + u";5,75%;" + price + tail;
        Value v = Evaluated(formula.c_str());
        ASSERT_EQ(v.tag, ValueNumber) << TextToUtf8(formula.c_str());
        EXPECT_NEAR(v.number, 0.065, 1e-12) << TextToUtf8(formula.c_str());
      }
    }
  }
  const Expected rows[] = {
      {u"=REND.PCOUPON.IRREG(DATE(2008;11;11);DATE(2021;3;1);DATE(2008;10;15);DATE(2009;3;1);"
       u"7,85%;PRIX.PCOUPON.IRREG(DATE(2008;11;11);DATE(2021;3;1);DATE(2008;10;15);"
       u"DATE(2009;3;1);7,85%;6,25%;100;2;1);100;2;1)",
       0.0625},
      {u"=REND.PCOUPON.IRREG(DATE(2008;1;11);DATE(2021;3;1);DATE(2007;5;15);DATE(2009;3;1);"
       u"7,85%;PRIX.PCOUPON.IRREG(DATE(2008;1;11);DATE(2021;3;1);DATE(2007;5;15);"
       u"DATE(2009;3;1);7,85%;6,25%;100;4;0);100;4;0)",
       0.0625},
      {u"=REND.DCOUPON.IRREG(DATE(2008;2;7);DATE(2008;6;15);DATE(2007;10;15);3,75%;"
       u"PRIX.DCOUPON.IRREG(DATE(2008;2;7);DATE(2008;6;15);DATE(2007;10;15);3,75%;4,05%;100;2;0);"
       u"100;2;0)",
       0.0405},
      {u"=RENDEMENT.TITRE.ECHEANCE(DATE(2008;2;15);DATE(2008;4;13);DATE(2007;11;11);6,1%;"
       u"PRIX.TITRE.ECHEANCE(DATE(2008;2;15);DATE(2008;4;13);DATE(2007;11;11);6,1%;5%;1);1)",
       0.05},
      {u"=TAUX.ESCOMPTE(A1;DATE(2008;9;1);VALEUR.ENCAISSEMENT(A1;DATE(2008;9;1);4%;100;3);100;3)",
       0.04},
  };
  ExpectResults(rows, 1e-10);
}

}  // namespace
