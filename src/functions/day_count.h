// Day counts between two dates for the interest and depreciation functions: the 30/360 count in
// its US and European forms, and the year fraction under the five bases that FRACTION.ANNEE and
// the financial functions take (0 US 30/360, 1 actual/actual, 2 actual/360, 3 actual/365,
// 4 European 30/360). Dates are serials of the 1900 system.
#pragma once
#include <cstdint>

// The days from `start` to `end` counting every month as 30 days.
int32_t Days360(int32_t start, int32_t end, bool european);

// The fraction of a year between two serials, in either order; 0 when the basis is outside 0 to 4.
int YearFraction(int32_t start, int32_t end, int32_t basis, double* out);
