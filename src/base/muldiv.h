// Integer scaling for pixel arithmetic: multiply, then divide rounded to nearest.
#pragma once
#include <cstdint>

// (a * b) / c rounded half away from zero, computed in 64 bits; 0 when c is 0.
inline int32_t MulDiv(int32_t a, int32_t b, int32_t c) {
  if (c == 0) return 0;
  int64_t product = static_cast<int64_t>(a) * b;
  int64_t half = (c < 0 ? -static_cast<int64_t>(c) : c) / 2;
  int64_t sign = ((product < 0) != (c < 0)) ? -1 : 1;
  int64_t magnitude = (product < 0 ? -product : product) + half;
  int64_t divisor = c < 0 ? -static_cast<int64_t>(c) : c;
  return static_cast<int32_t>(sign * (magnitude / divisor));
}

// (a * b + c / 2) / c for non-negative sizes, 0 when c is 0: the conversion of twips and width
// units to pixels.
inline int32_t MulDivRound(int32_t a, int32_t b, int32_t c) {
  if (c == 0) return 0;
  return static_cast<int32_t>((static_cast<int64_t>(a) * b + c / 2) / c);
}
