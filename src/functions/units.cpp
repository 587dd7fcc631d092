// CONVERT: a number from one unit of measure to another of the same kind. Each unit is a row of
// one table with its kind and its size in the kind's reference unit; the metric units also take a
// one-letter decimal prefix ("km", "mg", "kPa"). Temperatures are the one kind whose scales do not
// share a zero, so they convert through kelvins with an offset. Unit names are case-sensitive;
// an unknown name, or two units of different kinds, is #N/A.
#include <cmath>

#include "base/text.h"
#include "functions/handlers.h"
#include "functions/numeric.h"

namespace {

enum UnitKind {
  Mass,
  Distance,
  Time,
  Pressure,
  Force,
  Energy,
  Power,
  Magnetism,
  Temperature,
  Volume
};

struct Unit {
  const char16_t* name;
  UnitKind kind;
  double size;  // in grams, metres, seconds, pascals, newtons, joules, watts, teslas, litres
  bool metric;  // takes a prefix
};

constexpr double Pound = 453.59237;                // grams
constexpr double Gravity = 9.80665;                // metres per second squared
constexpr double Inch = 0.0254;                    // metres
constexpr double Teaspoon = 0.00492892159375;      // litres: a US fluid ounce over six
constexpr double Horsepower = 745.69987158227022;  // watts: 550 foot-pounds a second

const Unit Units[] = {
    {u"g", Mass, 1, true},
    {u"sg", Mass, Pound* Gravity / (12 * Inch), false},
    {u"lbm", Mass, Pound, false},
    {u"u", Mass, 1.66053886e-24, true},
    {u"ozm", Mass, Pound / 16, false},
    {u"m", Distance, 1, true},
    {u"mi", Distance, 5280 * 12 * Inch, false},
    {u"Nmi", Distance, 1852, false},
    {u"in", Distance, Inch, false},
    {u"ft", Distance, 12 * Inch, false},
    {u"yd", Distance, 36 * Inch, false},
    {u"ang", Distance, 1e-10, true},
    {u"Pica", Distance, Inch / 72, false},
    {u"yr", Time, 365.25 * 86400, false},
    {u"day", Time, 86400, false},
    {u"hr", Time, 3600, false},
    {u"mn", Time, 60, false},
    {u"sec", Time, 1, true},
    {u"Pa", Pressure, 1, true},
    {u"p", Pressure, 1, true},
    {u"atm", Pressure, 101325, true},
    {u"at", Pressure, 101325, true},
    {u"mmHg", Pressure, 101325.0 / 760, true},
    {u"N", Force, 1, true},
    {u"dyn", Force, 1e-5, true},
    {u"dy", Force, 1e-5, true},
    {u"lbf", Force, Pound / 1000 * Gravity, false},
    {u"J", Energy, 1, true},
    {u"e", Energy, 1e-7, true},
    {u"c", Energy, 4.184, true},
    {u"cal", Energy, 4.1868, true},
    {u"eV", Energy, 1.60217653e-19, true},
    {u"ev", Energy, 1.60217653e-19, true},
    {u"HPh", Energy, Horsepower * 3600, false},
    {u"hh", Energy, Horsepower * 3600, false},
    {u"Wh", Energy, 3600, true},
    {u"wh", Energy, 3600, true},
    {u"flb", Energy, Pound / 1000 * Gravity * 12 * Inch, false},
    {u"BTU", Energy, 1055.05585262, false},
    {u"btu", Energy, 1055.05585262, false},
    {u"HP", Power, Horsepower, false},
    {u"h", Power, Horsepower, false},
    {u"W", Power, 1, true},
    {u"w", Power, 1, true},
    {u"T", Magnetism, 1, true},
    {u"ga", Magnetism, 1e-4, true},
    {u"C", Temperature, 1, false},
    {u"cel", Temperature, 1, false},
    {u"F", Temperature, 5.0 / 9, false},
    {u"fah", Temperature, 5.0 / 9, false},
    {u"K", Temperature, 1, true},
    {u"kel", Temperature, 1, true},
    {u"tsp", Volume, Teaspoon, false},
    {u"tbs", Volume, 3 * Teaspoon, false},
    {u"oz", Volume, 6 * Teaspoon, false},
    {u"cup", Volume, 48 * Teaspoon, false},
    {u"pt", Volume, 96 * Teaspoon, false},
    {u"us_pt", Volume, 96 * Teaspoon, false},
    {u"uk_pt", Volume, 0.56826125, false},
    {u"qt", Volume, 192 * Teaspoon, false},
    {u"gal", Volume, 768 * Teaspoon, false},
    {u"l", Volume, 1, true},
    {u"lt", Volume, 1, true},
};

struct Prefix {
  char16_t letter;
  double factor;
};

const Prefix Prefixes[] = {
    {u'E', 1e18}, {u'P', 1e15},  {u'T', 1e12},  {u'G', 1e9},   {u'M', 1e6},  {u'k', 1e3},
    {u'h', 1e2},  {u'e', 1e1},   {u'd', 1e-1},  {u'c', 1e-2},  {u'm', 1e-3}, {u'u', 1e-6},
    {u'n', 1e-9}, {u'p', 1e-12}, {u'f', 1e-15}, {u'a', 1e-18},
};

// Finds a unit by its exact name, or as a prefix letter followed by a metric unit's name. The
// exact names come first, so that "mi" is a mile and "Pa" a pascal.
const Unit* FindUnit(const char16_t* name, double* scale) {
  *scale = 1;
  for (const Unit& unit : Units)
    if (CompareText(name, unit.name) == 0) return &unit;
  if (!name[0]) return nullptr;
  for (const Prefix& prefix : Prefixes) {
    if (prefix.letter != name[0]) continue;
    for (const Unit& unit : Units) {
      if (unit.metric && CompareText(name + 1, unit.name) == 0) {
        *scale = prefix.factor;
        return &unit;
      }
    }
  }
  return nullptr;
}

// A temperature in kelvins and back; the scale factor of a prefix applies to kelvins only.
double ToKelvin(const Unit* unit, double x) {
  if (unit->name[0] == u'C' || unit->name[0] == u'c') return x + 273.15;
  if (unit->name[0] == u'F' || unit->name[0] == u'f') return (x - 32) * unit->size + 273.15;
  return x;
}

double FromKelvin(const Unit* unit, double k) {
  if (unit->name[0] == u'C' || unit->name[0] == u'c') return k - 273.15;
  if (unit->name[0] == u'F' || unit->name[0] == u'f') return (k - 273.15) / unit->size + 32;
  return k;
}

}  // namespace

void FnConvert(Value* args, Value* result, const EvalContext* ctx) {
  double x;
  const char16_t *fromName, *toName;
  if (!NumberFromArg(&args[0], result, ctx, &x) || !TextFromArg(&args[1], result, ctx, &fromName) ||
      !TextFromArg(&args[2], result, ctx, &toName))
    return;
  double fromScale, toScale;
  const Unit* from = FindUnit(fromName, &fromScale);
  const Unit* to = FindUnit(toName, &toScale);
  if (!from || !to || from->kind != to->kind) {
    *result = ErrorValue(ErrNA);
    return;
  }
  if (from->kind == Temperature)
    GiveNumber(result, FromKelvin(to, ToKelvin(from, x * fromScale)) / toScale);
  else
    GiveNumber(result, x * (from->size * fromScale) / (to->size * toScale));
}
