// The handlers of the built-in functions, one declaration each, grouped by the file that defines
// them. The function table refers to them by these names.
#pragma once

#include "model/value.h"

// Rows whose family is not written yet: they give #N/A until their handler arrives.
void PendingFunction(Value* args, Value* result, const EvalContext* ctx);

// logical.cpp
void FnSomme(Value* args, Value* result, const EvalContext* ctx);
void FnSi(Value* args, Value* result, const EvalContext* ctx);
void FnEt(Value* args, Value* result, const EvalContext* ctx);
void FnOu(Value* args, Value* result, const EvalContext* ctx);
void FnNon(Value* args, Value* result, const EvalContext* ctx);
void FnVrai(Value* args, Value* result, const EvalContext* ctx);

// information.cpp
void FnEstErr(Value* args, Value* result, const EvalContext* ctx);
void FnEstErreur(Value* args, Value* result, const EvalContext* ctx);
void FnEstLogique(Value* args, Value* result, const EvalContext* ctx);
void FnEstNa(Value* args, Value* result, const EvalContext* ctx);
void FnEstNonTexte(Value* args, Value* result, const EvalContext* ctx);
void FnEstNum(Value* args, Value* result, const EvalContext* ctx);
void FnEstRef(Value* args, Value* result, const EvalContext* ctx);
void FnEstTexte(Value* args, Value* result, const EvalContext* ctx);
void FnEstVide(Value* args, Value* result, const EvalContext* ctx);
void FnEstPair(Value* args, Value* result, const EvalContext* ctx);
void FnEstImpair(Value* args, Value* result, const EvalContext* ctx);
void FnN(Value* args, Value* result, const EvalContext* ctx);
void FnNa(Value* args, Value* result, const EvalContext* ctx);
void FnNbVide(Value* args, Value* result, const EvalContext* ctx);
void FnType(Value* args, Value* result, const EvalContext* ctx);
void FnTypeErreur(Value* args, Value* result, const EvalContext* ctx);

// text_number.cpp
void FnTexte(Value* args, Value* result, const EvalContext* ctx);
void FnCtxt(Value* args, Value* result, const EvalContext* ctx);
void FnFranc(Value* args, Value* result, const EvalContext* ctx);
void FnUsDollar(Value* args, Value* result, const EvalContext* ctx);
void FnDateString(Value* args, Value* result, const EvalContext* ctx);
void FnNumberString(Value* args, Value* result, const EvalContext* ctx);

// text.cpp
void FnTrouve(Value* args, Value* result, const EvalContext* ctx);
void FnCherche(Value* args, Value* result, const EvalContext* ctx);
void FnStxt(Value* args, Value* result, const EvalContext* ctx);
void FnGauche(Value* args, Value* result, const EvalContext* ctx);
void FnDroite(Value* args, Value* result, const EvalContext* ctx);
void FnNbCar(Value* args, Value* result, const EvalContext* ctx);
void FnRemplacer(Value* args, Value* result, const EvalContext* ctx);
void FnSubstitue(Value* args, Value* result, const EvalContext* ctx);
void FnConcatener(Value* args, Value* result, const EvalContext* ctx);
void FnRept(Value* args, Value* result, const EvalContext* ctx);
void FnMajuscule(Value* args, Value* result, const EvalContext* ctx);
void FnMinuscule(Value* args, Value* result, const EvalContext* ctx);
void FnNomPropre(Value* args, Value* result, const EvalContext* ctx);
void FnSuppreSpace(Value* args, Value* result, const EvalContext* ctx);
void FnEpurage(Value* args, Value* result, const EvalContext* ctx);
void FnCode(Value* args, Value* result, const EvalContext* ctx);
void FnCar(Value* args, Value* result, const EvalContext* ctx);
void FnExact(Value* args, Value* result, const EvalContext* ctx);
void FnT(Value* args, Value* result, const EvalContext* ctx);
void FnCnum(Value* args, Value* result, const EvalContext* ctx);
void FnAsc(Value* args, Value* result, const EvalContext* ctx);
void FnDbcs(Value* args, Value* result, const EvalContext* ctx);
void FnPhonetique(Value* args, Value* result, const EvalContext* ctx);

// dates.cpp
void FnAnnee(Value* args, Value* result, const EvalContext* ctx);
void FnAujourdhui(Value* args, Value* result, const EvalContext* ctx);
void FnDate(Value* args, Value* result, const EvalContext* ctx);
void FnDateDif(Value* args, Value* result, const EvalContext* ctx);
void FnDateVal(Value* args, Value* result, const EvalContext* ctx);
void FnFinMois(Value* args, Value* result, const EvalContext* ctx);
void FnFractionAnnee(Value* args, Value* result, const EvalContext* ctx);
void FnHeure(Value* args, Value* result, const EvalContext* ctx);
void FnJour(Value* args, Value* result, const EvalContext* ctx);
void FnJours360(Value* args, Value* result, const EvalContext* ctx);
void FnJourSem(Value* args, Value* result, const EvalContext* ctx);
void FnMaintenant(Value* args, Value* result, const EvalContext* ctx);
void FnMinute(Value* args, Value* result, const EvalContext* ctx);
void FnMois(Value* args, Value* result, const EvalContext* ctx);
void FnMoisDecaler(Value* args, Value* result, const EvalContext* ctx);
void FnNbJoursOuvres(Value* args, Value* result, const EvalContext* ctx);
void FnNoSemaine(Value* args, Value* result, const EvalContext* ctx);
void FnSeconde(Value* args, Value* result, const EvalContext* ctx);
void FnSerieJourOuvre(Value* args, Value* result, const EvalContext* ctx);
void FnTemps(Value* args, Value* result, const EvalContext* ctx);
void FnTempsVal(Value* args, Value* result, const EvalContext* ctx);

// lookup.cpp
void FnAdresse(Value* args, Value* result, const EvalContext* ctx);
void FnChoisir(Value* args, Value* result, const EvalContext* ctx);
void FnColonne(Value* args, Value* result, const EvalContext* ctx);
void FnColonnes(Value* args, Value* result, const EvalContext* ctx);
void FnDecaler(Value* args, Value* result, const EvalContext* ctx);
void FnEquiv(Value* args, Value* result, const EvalContext* ctx);
void FnIndex(Value* args, Value* result, const EvalContext* ctx);
void FnIndirect(Value* args, Value* result, const EvalContext* ctx);
void FnLienHypertexte(Value* args, Value* result, const EvalContext* ctx);
void FnLigne(Value* args, Value* result, const EvalContext* ctx);
void FnLignes(Value* args, Value* result, const EvalContext* ctx);
void FnRecherche(Value* args, Value* result, const EvalContext* ctx);
void FnRechercheH(Value* args, Value* result, const EvalContext* ctx);
void FnRechercheV(Value* args, Value* result, const EvalContext* ctx);
void FnTranspose(Value* args, Value* result, const EvalContext* ctx);
void FnZones(Value* args, Value* result, const EvalContext* ctx);
void FnGetPivotData(Value* args, Value* result, const EvalContext* ctx);

// math.cpp
void FnArrondi(Value* args, Value* result, const EvalContext* ctx);
void FnArrondiInf(Value* args, Value* result, const EvalContext* ctx);
void FnArrondiSup(Value* args, Value* result, const EvalContext* ctx);
void FnTronque(Value* args, Value* result, const EvalContext* ctx);
void FnEnt(Value* args, Value* result, const EvalContext* ctx);
void FnPlafond(Value* args, Value* result, const EvalContext* ctx);
void FnPlancher(Value* args, Value* result, const EvalContext* ctx);
void FnArrondiAuMultiple(Value* args, Value* result, const EvalContext* ctx);
void FnPair(Value* args, Value* result, const EvalContext* ctx);
void FnImpair(Value* args, Value* result, const EvalContext* ctx);
void FnMod(Value* args, Value* result, const EvalContext* ctx);
void FnQuotient(Value* args, Value* result, const EvalContext* ctx);
void FnPuissance(Value* args, Value* result, const EvalContext* ctx);
void FnLog(Value* args, Value* result, const EvalContext* ctx);
void FnLn(Value* args, Value* result, const EvalContext* ctx);
void FnLog10(Value* args, Value* result, const EvalContext* ctx);
void FnRacine(Value* args, Value* result, const EvalContext* ctx);
void FnRacinePi(Value* args, Value* result, const EvalContext* ctx);
void FnExp(Value* args, Value* result, const EvalContext* ctx);
void FnSin(Value* args, Value* result, const EvalContext* ctx);
void FnCos(Value* args, Value* result, const EvalContext* ctx);
void FnTan(Value* args, Value* result, const EvalContext* ctx);
void FnAsin(Value* args, Value* result, const EvalContext* ctx);
void FnAcos(Value* args, Value* result, const EvalContext* ctx);
void FnAtan(Value* args, Value* result, const EvalContext* ctx);
void FnAtan2(Value* args, Value* result, const EvalContext* ctx);
void FnSinh(Value* args, Value* result, const EvalContext* ctx);
void FnCosh(Value* args, Value* result, const EvalContext* ctx);
void FnTanh(Value* args, Value* result, const EvalContext* ctx);
void FnAsinh(Value* args, Value* result, const EvalContext* ctx);
void FnAcosh(Value* args, Value* result, const EvalContext* ctx);
void FnAtanh(Value* args, Value* result, const EvalContext* ctx);
void FnDegres(Value* args, Value* result, const EvalContext* ctx);
void FnRadians(Value* args, Value* result, const EvalContext* ctx);
void FnPi(Value* args, Value* result, const EvalContext* ctx);
void FnAbs(Value* args, Value* result, const EvalContext* ctx);
void FnSigne(Value* args, Value* result, const EvalContext* ctx);
void FnFact(Value* args, Value* result, const EvalContext* ctx);
void FnCombin(Value* args, Value* result, const EvalContext* ctx);
void FnAlea(Value* args, Value* result, const EvalContext* ctx);
void FnAleaEntreBornes(Value* args, Value* result, const EvalContext* ctx);
void FnRomain(Value* args, Value* result, const EvalContext* ctx);

// math_sums.cpp
void FnProduit(Value* args, Value* result, const EvalContext* ctx);
void FnSommeCarres(Value* args, Value* result, const EvalContext* ctx);
void FnMultinomiale(Value* args, Value* result, const EvalContext* ctx);
void FnPgcd(Value* args, Value* result, const EvalContext* ctx);
void FnPpcm(Value* args, Value* result, const EvalContext* ctx);
void FnSommeSeries(Value* args, Value* result, const EvalContext* ctx);
void FnSommeProd(Value* args, Value* result, const EvalContext* ctx);
void FnSommeX2My2(Value* args, Value* result, const EvalContext* ctx);
void FnSommeX2Py2(Value* args, Value* result, const EvalContext* ctx);
void FnSommeXMy2(Value* args, Value* result, const EvalContext* ctx);
void FnSommeSi(Value* args, Value* result, const EvalContext* ctx);
void FnNbSi(Value* args, Value* result, const EvalContext* ctx);
void FnSousTotal(Value* args, Value* result, const EvalContext* ctx);

// matrix.cpp
void FnDeterMat(Value* args, Value* result, const EvalContext* ctx);
void FnInverseMat(Value* args, Value* result, const EvalContext* ctx);
void FnProduitMat(Value* args, Value* result, const EvalContext* ctx);

// distributions.cpp
void FnLnGamma(Value* args, Value* result, const EvalContext* ctx);
void FnLoiBeta(Value* args, Value* result, const EvalContext* ctx);
void FnBetaInverse(Value* args, Value* result, const EvalContext* ctx);
void FnLoiGamma(Value* args, Value* result, const EvalContext* ctx);
void FnLoiGammaInverse(Value* args, Value* result, const EvalContext* ctx);
void FnLoiKhiDeux(Value* args, Value* result, const EvalContext* ctx);
void FnKhiDeuxInverse(Value* args, Value* result, const EvalContext* ctx);
void FnLoiStudent(Value* args, Value* result, const EvalContext* ctx);
void FnLoiStudentInverse(Value* args, Value* result, const EvalContext* ctx);
void FnLoiF(Value* args, Value* result, const EvalContext* ctx);
void FnInverseLoiF(Value* args, Value* result, const EvalContext* ctx);
void FnLoiNormaleStandard(Value* args, Value* result, const EvalContext* ctx);
void FnLoiNormale(Value* args, Value* result, const EvalContext* ctx);
void FnLoiLogNormale(Value* args, Value* result, const EvalContext* ctx);
void FnLoiNormaleStandardInverse(Value* args, Value* result, const EvalContext* ctx);
void FnLoiNormaleInverse(Value* args, Value* result, const EvalContext* ctx);
void FnLoiLogNormaleInverse(Value* args, Value* result, const EvalContext* ctx);
void FnCentreeReduite(Value* args, Value* result, const EvalContext* ctx);
void FnFisher(Value* args, Value* result, const EvalContext* ctx);
void FnFisherInverse(Value* args, Value* result, const EvalContext* ctx);
void FnLoiExponentielle(Value* args, Value* result, const EvalContext* ctx);
void FnLoiWeibull(Value* args, Value* result, const EvalContext* ctx);
void FnLoiBinomiale(Value* args, Value* result, const EvalContext* ctx);
void FnCritereLoiBinomiale(Value* args, Value* result, const EvalContext* ctx);
void FnLoiBinomialeNeg(Value* args, Value* result, const EvalContext* ctx);
void FnLoiHypergeometrique(Value* args, Value* result, const EvalContext* ctx);
void FnLoiPoisson(Value* args, Value* result, const EvalContext* ctx);
void FnPermutation(Value* args, Value* result, const EvalContext* ctx);
void FnIntervalleConfiance(Value* args, Value* result, const EvalContext* ctx);
void FnErf(Value* args, Value* result, const EvalContext* ctx);
void FnErfc(Value* args, Value* result, const EvalContext* ctx);

// statistics.cpp
void FnMoyenne(Value* args, Value* result, const EvalContext* ctx);
void FnMoyenneA(Value* args, Value* result, const EvalContext* ctx);
void FnVar(Value* args, Value* result, const EvalContext* ctx);
void FnVarP(Value* args, Value* result, const EvalContext* ctx);
void FnVarA(Value* args, Value* result, const EvalContext* ctx);
void FnVarPA(Value* args, Value* result, const EvalContext* ctx);
void FnEcartType(Value* args, Value* result, const EvalContext* ctx);
void FnEcartTypeP(Value* args, Value* result, const EvalContext* ctx);
void FnStDevA(Value* args, Value* result, const EvalContext* ctx);
void FnStDevPA(Value* args, Value* result, const EvalContext* ctx);
void FnSommeCarresEcarts(Value* args, Value* result, const EvalContext* ctx);
void FnEcartMoyen(Value* args, Value* result, const EvalContext* ctx);
void FnMoyenneGeometrique(Value* args, Value* result, const EvalContext* ctx);
void FnMoyenneHarmonique(Value* args, Value* result, const EvalContext* ctx);
void FnCoefficientAsymetrie(Value* args, Value* result, const EvalContext* ctx);
void FnKurtosis(Value* args, Value* result, const EvalContext* ctx);
void FnMax(Value* args, Value* result, const EvalContext* ctx);
void FnMin(Value* args, Value* result, const EvalContext* ctx);
void FnMaxA(Value* args, Value* result, const EvalContext* ctx);
void FnMinA(Value* args, Value* result, const EvalContext* ctx);
void FnNb(Value* args, Value* result, const EvalContext* ctx);
void FnNbVal(Value* args, Value* result, const EvalContext* ctx);
void FnMediane(Value* args, Value* result, const EvalContext* ctx);
void FnMode(Value* args, Value* result, const EvalContext* ctx);
void FnCentile(Value* args, Value* result, const EvalContext* ctx);
void FnQuartile(Value* args, Value* result, const EvalContext* ctx);
void FnGrandeValeur(Value* args, Value* result, const EvalContext* ctx);
void FnPetiteValeur(Value* args, Value* result, const EvalContext* ctx);
void FnMoyenneReduite(Value* args, Value* result, const EvalContext* ctx);
void FnRang(Value* args, Value* result, const EvalContext* ctx);
void FnRangPourcentage(Value* args, Value* result, const EvalContext* ctx);
void FnPente(Value* args, Value* result, const EvalContext* ctx);
void FnOrdonneeOrigine(Value* args, Value* result, const EvalContext* ctx);
void FnCoefficientCorrelation(Value* args, Value* result, const EvalContext* ctx);
void FnPearson(Value* args, Value* result, const EvalContext* ctx);
void FnCoefficientDetermination(Value* args, Value* result, const EvalContext* ctx);
void FnCovariance(Value* args, Value* result, const EvalContext* ctx);
void FnErreurTypeXY(Value* args, Value* result, const EvalContext* ctx);
void FnPrevision(Value* args, Value* result, const EvalContext* ctx);
void FnFrequence(Value* args, Value* result, const EvalContext* ctx);
void FnProbabilite(Value* args, Value* result, const EvalContext* ctx);
void FnTestZ(Value* args, Value* result, const EvalContext* ctx);
void FnTestStudent(Value* args, Value* result, const EvalContext* ctx);
void FnTestF(Value* args, Value* result, const EvalContext* ctx);
void FnTestKhiDeux(Value* args, Value* result, const EvalContext* ctx);

// financial.cpp
void FnVpm(Value* args, Value* result, const EvalContext* ctx);
void FnVc(Value* args, Value* result, const EvalContext* ctx);
void FnVa(Value* args, Value* result, const EvalContext* ctx);
void FnNpm(Value* args, Value* result, const EvalContext* ctx);
void FnIntPer(Value* args, Value* result, const EvalContext* ctx);
void FnPrincPer(Value* args, Value* result, const EvalContext* ctx);
void FnIspmt(Value* args, Value* result, const EvalContext* ctx);
void FnCumulInter(Value* args, Value* result, const EvalContext* ctx);
void FnCumulPrincPer(Value* args, Value* result, const EvalContext* ctx);
void FnVan(Value* args, Value* result, const EvalContext* ctx);
void FnTaux(Value* args, Value* result, const EvalContext* ctx);
void FnTri(Value* args, Value* result, const EvalContext* ctx);
void FnTriPaiements(Value* args, Value* result, const EvalContext* ctx);
void FnVanPaiements(Value* args, Value* result, const EvalContext* ctx);
void FnTrim(Value* args, Value* result, const EvalContext* ctx);
void FnAmorLin(Value* args, Value* result, const EvalContext* ctx);
void FnSyd(Value* args, Value* result, const EvalContext* ctx);
void FnDb(Value* args, Value* result, const EvalContext* ctx);
void FnDdb(Value* args, Value* result, const EvalContext* ctx);
void FnVdb(Value* args, Value* result, const EvalContext* ctx);
void FnAmorLinc(Value* args, Value* result, const EvalContext* ctx);
void FnAmorDegrc(Value* args, Value* result, const EvalContext* ctx);
void FnTauxEffectif(Value* args, Value* result, const EvalContext* ctx);
void FnTauxNominal(Value* args, Value* result, const EvalContext* ctx);
void FnPrixDec(Value* args, Value* result, const EvalContext* ctx);
void FnPrixFrac(Value* args, Value* result, const EvalContext* ctx);
void FnVcPaiements(Value* args, Value* result, const EvalContext* ctx);

// regression.cpp
void FnDroiteReg(Value* args, Value* result, const EvalContext* ctx);
void FnLogReg(Value* args, Value* result, const EvalContext* ctx);
void FnTendance(Value* args, Value* result, const EvalContext* ctx);
void FnCroissance(Value* args, Value* result, const EvalContext* ctx);

// database.cpp
void FnBdEcartype(Value* args, Value* result, const EvalContext* ctx);
void FnBdEcartypeP(Value* args, Value* result, const EvalContext* ctx);
void FnBdLire(Value* args, Value* result, const EvalContext* ctx);
void FnBdMax(Value* args, Value* result, const EvalContext* ctx);
void FnBdMin(Value* args, Value* result, const EvalContext* ctx);
void FnBdMoyenne(Value* args, Value* result, const EvalContext* ctx);
void FnBdNb(Value* args, Value* result, const EvalContext* ctx);
void FnBdNbVal(Value* args, Value* result, const EvalContext* ctx);
void FnBdProduit(Value* args, Value* result, const EvalContext* ctx);
void FnBdSomme(Value* args, Value* result, const EvalContext* ctx);
void FnBdVar(Value* args, Value* result, const EvalContext* ctx);
void FnBdVarP(Value* args, Value* result, const EvalContext* ctx);

// engineering.cpp
void FnBesselI(Value* args, Value* result, const EvalContext* ctx);
void FnBesselJ(Value* args, Value* result, const EvalContext* ctx);
void FnBesselK(Value* args, Value* result, const EvalContext* ctx);
void FnBesselY(Value* args, Value* result, const EvalContext* ctx);
void FnBinDec(Value* args, Value* result, const EvalContext* ctx);
void FnBinHex(Value* args, Value* result, const EvalContext* ctx);
void FnBinOct(Value* args, Value* result, const EvalContext* ctx);
void FnDecBin(Value* args, Value* result, const EvalContext* ctx);
void FnDecHex(Value* args, Value* result, const EvalContext* ctx);
void FnDecOct(Value* args, Value* result, const EvalContext* ctx);
void FnDelta(Value* args, Value* result, const EvalContext* ctx);
void FnFactDouble(Value* args, Value* result, const EvalContext* ctx);
void FnHexBin(Value* args, Value* result, const EvalContext* ctx);
void FnHexDec(Value* args, Value* result, const EvalContext* ctx);
void FnHexOct(Value* args, Value* result, const EvalContext* ctx);
void FnOctBin(Value* args, Value* result, const EvalContext* ctx);
void FnOctDec(Value* args, Value* result, const EvalContext* ctx);
void FnOctHex(Value* args, Value* result, const EvalContext* ctx);
void FnSupSeuil(Value* args, Value* result, const EvalContext* ctx);

// bonds.cpp
void FnDateCouponPrec(Value* args, Value* result, const EvalContext* ctx);
void FnDateCouponSuiv(Value* args, Value* result, const EvalContext* ctx);
void FnDuree(Value* args, Value* result, const EvalContext* ctx);
void FnDureeModifiee(Value* args, Value* result, const EvalContext* ctx);
void FnInteretAcc(Value* args, Value* result, const EvalContext* ctx);
void FnNbCoupons(Value* args, Value* result, const EvalContext* ctx);
void FnNbJoursCouponPrec(Value* args, Value* result, const EvalContext* ctx);
void FnNbJoursCouponSuiv(Value* args, Value* result, const EvalContext* ctx);
void FnNbJoursCoupons(Value* args, Value* result, const EvalContext* ctx);
void FnPrixDCouponIrreg(Value* args, Value* result, const EvalContext* ctx);
void FnPrixPCouponIrreg(Value* args, Value* result, const EvalContext* ctx);
void FnPrixTitre(Value* args, Value* result, const EvalContext* ctx);
void FnRendDCouponIrreg(Value* args, Value* result, const EvalContext* ctx);
void FnRendPCouponIrreg(Value* args, Value* result, const EvalContext* ctx);
void FnRendementTitre(Value* args, Value* result, const EvalContext* ctx);

// bonds_discount.cpp
void FnInteretAccMat(Value* args, Value* result, const EvalContext* ctx);
void FnPrixBonTresor(Value* args, Value* result, const EvalContext* ctx);
void FnPrixTitreEcheance(Value* args, Value* result, const EvalContext* ctx);
void FnRendementBonTresor(Value* args, Value* result, const EvalContext* ctx);
void FnRendementSimple(Value* args, Value* result, const EvalContext* ctx);
void FnRendementTitreEcheance(Value* args, Value* result, const EvalContext* ctx);
void FnTauxEscompte(Value* args, Value* result, const EvalContext* ctx);
void FnTauxEscompteR(Value* args, Value* result, const EvalContext* ctx);
void FnTauxInteret(Value* args, Value* result, const EvalContext* ctx);
void FnValeurEncaissement(Value* args, Value* result, const EvalContext* ctx);
void FnValeurNominale(Value* args, Value* result, const EvalContext* ctx);

// complex.cpp
void FnComplexe(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeArgument(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeConjugue(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeCos(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeDifference(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeDiv(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeExp(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeImaginaire(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeLn(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeLog10(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeLog2(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeModule(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeProduit(Value* args, Value* result, const EvalContext* ctx);
void FnComplexePuissance(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeRacine(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeReel(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeSin(Value* args, Value* result, const EvalContext* ctx);
void FnComplexeSomme(Value* args, Value* result, const EvalContext* ctx);

// units.cpp
void FnConvert(Value* args, Value* result, const EvalContext* ctx);
