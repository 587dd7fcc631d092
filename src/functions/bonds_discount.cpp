// The securities without periodic coupons: discounted paper (TAUX.ESCOMPTE, VALEUR.ENCAISSEMENT,
// VALEUR.NOMINALE, TAUX.INTERET, RENDEMENT.SIMPLE), Treasury bills (the BON.TRESOR rows and
// TAUX.ESCOMPTE.R), and securities that pay their interest at maturity (INTERET.ACC.MAT,
// PRIX.TITRE.ECHEANCE, RENDEMENT.TITRE.ECHEANCE). Times are fractions of a year by the basis;
// Treasury bills count actual days over a year of 360.
#include "format/calendar.h"
#include "functions/bonds.h"
#include "functions/handlers.h"
#include "functions/numeric.h"

namespace {

// The dates in `slots` (settlement first, maturity second), two numbers and the basis at `basis`;
// settlement must come before maturity and both numbers be above 0, or #NUM!. `years` is the
// fraction of a year from settlement to maturity.
int DiscountArgs(Value* args, Value* result, const EvalContext* ctx, double* a, double* b,
                 double* years) {
  int32_t settlement, maturity, basis;
  double v[2] = {};
  if (!BondDateArg(&args[0], result, ctx, &settlement) ||
      !BondDateArg(&args[1], result, ctx, &maturity) || !ReadNumbers(args + 2, 2, v, result, ctx) ||
      !IntegerFromArg(&args[4], result, ctx, 0, &basis))
    return 0;
  if (settlement >= maturity || !ValidBasis(basis) || v[0] <= 0 || v[1] <= 0 ||
      !YearFraction(settlement, maturity, basis, years)) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  *a = v[0];
  *b = v[1];
  return 1;
}

// The Treasury bill rows: settlement, maturity at most a year later, and a number above 0.
// `days` is the actual days between the dates.
int BillArgs(Value* args, Value* result, const EvalContext* ctx, double* value, double* days) {
  int32_t settlement, maturity;
  if (!BondDateArg(&args[0], result, ctx, &settlement) ||
      !BondDateArg(&args[1], result, ctx, &maturity) ||
      !NumberFromArg(&args[2], result, ctx, value))
    return 0;
  int32_t y, m, d;
  SerialToDate(settlement, &y, &m, &d);
  int32_t yearLater = DateToSerial(y + 1, m, d > DaysInMonth(y + 1, m) ? DaysInMonth(y + 1, m) : d);
  if (settlement >= maturity || maturity > yearLater || *value <= 0) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  *days = static_cast<double>(maturity) - settlement;
  return 1;
}

// The securities paying interest at maturity: settlement, maturity, issue, rate, the yield or
// price, basis. Issue before settlement before maturity, a rate and fourth value not below 0.
// The year fractions run from issue to maturity, issue to settlement and settlement to maturity.
struct AtMaturity {
  double rate, fourth, whole, accrued, remaining;
};

int AtMaturityArgs(Value* args, Value* result, const EvalContext* ctx, AtMaturity* s) {
  int32_t settlement, maturity, issue, basis;
  double v[2] = {};
  if (!BondDateArg(&args[0], result, ctx, &settlement) ||
      !BondDateArg(&args[1], result, ctx, &maturity) ||
      !BondDateArg(&args[2], result, ctx, &issue) || !ReadNumbers(args + 3, 2, v, result, ctx) ||
      !IntegerFromArg(&args[5], result, ctx, 0, &basis))
    return 0;
  if (!(issue < settlement && settlement < maturity) || !ValidBasis(basis) || v[0] < 0 ||
      v[1] < 0 || !YearFraction(issue, maturity, basis, &s->whole) ||
      !YearFraction(issue, settlement, basis, &s->accrued) ||
      !YearFraction(settlement, maturity, basis, &s->remaining)) {
    *result = ErrorValue(ErrNum);
    return 0;
  }
  s->rate = v[0];
  s->fourth = v[1];
  return 1;
}

}  // namespace

// TAUX.ESCOMPTE: the discount rate that takes the redemption down to the price.
void FnTauxEscompte(Value* args, Value* result, const EvalContext* ctx) {
  double price, redemption, years;
  if (DiscountArgs(args, result, ctx, &price, &redemption, &years))
    GiveNumber(result, (redemption - price) / redemption / years);
}

void FnValeurEncaissement(Value* args, Value* result, const EvalContext* ctx) {
  double discount, redemption, years;
  if (DiscountArgs(args, result, ctx, &discount, &redemption, &years))
    GiveNumber(result, redemption * (1 - discount * years));
}

// VALEUR.NOMINALE: what an investment at a discount rate returns at maturity; a discount that
// eats the whole amount is #NUM!.
void FnValeurNominale(Value* args, Value* result, const EvalContext* ctx) {
  double investment, discount, years;
  if (!DiscountArgs(args, result, ctx, &investment, &discount, &years)) return;
  double kept = 1 - discount * years;
  if (kept <= 0)
    *result = ErrorValue(ErrNum);
  else
    GiveNumber(result, investment / kept);
}

// TAUX.INTERET and RENDEMENT.SIMPLE: the simple annual rate that grows the first amount into the
// second.
void FnTauxInteret(Value* args, Value* result, const EvalContext* ctx) {
  double investment, redemption, years;
  if (DiscountArgs(args, result, ctx, &investment, &redemption, &years))
    GiveNumber(result, (redemption - investment) / investment / years);
}

void FnRendementSimple(Value* args, Value* result, const EvalContext* ctx) {
  FnTauxInteret(args, result, ctx);
}

void FnPrixBonTresor(Value* args, Value* result, const EvalContext* ctx) {
  double discount, days;
  if (!BillArgs(args, result, ctx, &discount, &days)) return;
  double price = 100 * (1 - discount * days / 360);
  if (price <= 0)
    *result = ErrorValue(ErrNum);
  else
    GiveNumber(result, price);
}

void FnRendementBonTresor(Value* args, Value* result, const EvalContext* ctx) {
  double price, days;
  if (BillArgs(args, result, ctx, &price, &days))
    GiveNumber(result, (100 - price) / price * 360 / days);
}

// TAUX.ESCOMPTE.R: the bond-equivalent yield of a bill, on a year of 365 days.
void FnTauxEscompteR(Value* args, Value* result, const EvalContext* ctx) {
  double discount, days;
  if (!BillArgs(args, result, ctx, &discount, &days)) return;
  double denominator = 360 - discount * days;
  if (denominator <= 0)
    *result = ErrorValue(ErrNum);
  else
    GiveNumber(result, 365 * discount / denominator);
}

// INTERET.ACC.MAT: issue, settlement, rate, par, basis; simple interest over the time between.
void FnInteretAccMat(Value* args, Value* result, const EvalContext* ctx) {
  int32_t issue, settlement, basis;
  double v[2] = {}, years;
  if (!BondDateArg(&args[0], result, ctx, &issue) ||
      !BondDateArg(&args[1], result, ctx, &settlement) ||
      !ReadNumbers(args + 2, 2, v, result, ctx) ||
      !IntegerFromArg(&args[4], result, ctx, 0, &basis))
    return;
  if (issue >= settlement || !ValidBasis(basis) || v[0] <= 0 || v[1] <= 0 ||
      !YearFraction(issue, settlement, basis, &years)) {
    *result = ErrorValue(ErrNum);
    return;
  }
  GiveNumber(result, v[1] * v[0] * years);
}

// PRIX.TITRE.ECHEANCE: the redemption with the whole interest, discounted at the yield over the
// time left, less the interest already accrued.
void FnPrixTitreEcheance(Value* args, Value* result, const EvalContext* ctx) {
  AtMaturity s;
  if (!AtMaturityArgs(args, result, ctx, &s)) return;
  GiveNumber(result, (100 + s.whole * s.rate * 100) / (1 + s.remaining * s.fourth) -
                         s.accrued * s.rate * 100);
}

void FnRendementTitreEcheance(Value* args, Value* result, const EvalContext* ctx) {
  AtMaturity s;
  if (!AtMaturityArgs(args, result, ctx, &s)) return;
  double paid = s.fourth / 100 + s.accrued * s.rate;
  if (s.fourth <= 0 || paid <= 0) {
    *result = ErrorValue(ErrNum);
    return;
  }
  GiveNumber(result, ((1 + s.whole * s.rate) / paid - 1) / s.remaining);
}
