// Plain numbers to text with a given count of significant digits, as the C library's "%G" prints
// them, but without going through printf: that conversion is the bulk of the cost of every cell
// shown in the General format and of every number written to a delimited file.
//
// The digits come from the shortest decimal form that reads back to the same double
// (std::to_chars), rounded to the precision asked for. That shortest form is close enough to the
// double that rounding it gives the same digits as rounding the exact binary value, except in
// two cases, which take the exact fixed-precision conversion instead:
// - the shortest form ends exactly on the half of the last digit kept, so its rounding would be a
//   tie while the exact value may lie on either side of it;
// - it has no more digits than asked for, but the double is subnormal or the precision is above
//   15 digits: the exact value may then differ from the shortest form within the digits kept.
// Most numbers of a sheet, from 1e-8 to 1e15, need no decimal conversion at all: see ScaledDigits.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "format/input.h"
#include "format/locale.h"

namespace {

// A positive number as significant digits d1 d2 ... dcount (no trailing zeros) and the decimal
// exponent of d1: the value is d1.d2d3... times 10^exponent.
struct DecimalDigits {
  char digits[24];
  int32_t count;
  int32_t exponent;
};

// Reads what std::to_chars wrote in scientific form: "d[.ddd]e+XX".
void ReadScientific(const char* text, const char* end, DecimalDigits* d) {
  d->count = 0;
  const char* p = text;
  for (; p < end && *p != 'e'; p++)
    if (*p != '.') d->digits[d->count++] = *p;
  int32_t sign = 1, exponent = 0;
  if (p < end) p++;
  if (p < end && (*p == '-' || *p == '+')) sign = *p++ == '-' ? -1 : 1;
  for (; p < end; p++) exponent = exponent * 10 + (*p - '0');
  d->exponent = sign * exponent;
}

void TrimZeros(DecimalDigits* d) {
  while (d->count > 1 && d->digits[d->count - 1] == '0') d->count--;
}

// The exact rounding of the binary value to `precision` digits.
void ExactDigits(double x, int32_t precision, DecimalDigits* d) {
  char text[64];
  auto r = std::to_chars(text, text + sizeof text, x, std::chars_format::scientific, precision - 1);
  ReadScientific(text, r.ptr, d);
  TrimZeros(d);
}

constexpr uint64_t PowersOfFive[] = {1ull,
                                     5ull,
                                     25ull,
                                     125ull,
                                     625ull,
                                     3125ull,
                                     15625ull,
                                     78125ull,
                                     390625ull,
                                     1953125ull,
                                     9765625ull,
                                     48828125ull,
                                     244140625ull,
                                     1220703125ull,
                                     6103515625ull,
                                     30517578125ull,
                                     152587890625ull,
                                     762939453125ull,
                                     3814697265625ull,
                                     19073486328125ull,
                                     95367431640625ull,
                                     476837158203125ull,
                                     2384185791015625ull};

constexpr uint64_t PowersOfTen[] = {1ull,
                                    10ull,
                                    100ull,
                                    1000ull,
                                    10000ull,
                                    100000ull,
                                    1000000ull,
                                    10000000ull,
                                    100000000ull,
                                    1000000000ull,
                                    10000000000ull,
                                    100000000000ull,
                                    1000000000000ull,
                                    10000000000000ull,
                                    100000000000000ull,
                                    1000000000000000ull,
                                    10000000000000000ull};

__extension__ typedef unsigned __int128 Wide;

constexpr char DigitPairs[] =
    "0001020304050607080910111213141516171819202122232425262728293031323334353637383940414243444546"
    "4748495051525354555657585960616263646566676869707172737475767778798081828384858687888990919293"
    "949596979899";

// The `count` low decimal digits of n, with leading zeros, two at a time.
void PutDigits(uint32_t n, int32_t count, char* out) {
  int32_t i = count;
  for (; i >= 2; i -= 2, n /= 100) std::memcpy(out + i - 2, DigitPairs + 2 * (n % 100), 2);
  if (i == 1) out[0] = static_cast<char>('0' + n % 10);
}

// The `count` digits of n, which has that many; the two halves of a long one are independent.
void IntegerDigits(uint64_t n, int32_t count, DecimalDigits* d) {
  if (count > 8) {
    PutDigits(static_cast<uint32_t>(n / 100000000), count - 8, d->digits);
    PutDigits(static_cast<uint32_t>(n % 100000000), 8, d->digits + count - 8);
  } else {
    PutDigits(static_cast<uint32_t>(n), count, d->digits);
  }
  d->count = count;
}

// The common case, numbers from about 1e-8 to 1e15 at up to 15 digits, in integer arithmetic
// without any decimal conversion. x is m * 2^e with a 53-bit m; times 10^k, for the k that brings
// its first digit to the units of a `precision`-digit whole number, it is m * 5^k * 2^(e + k),
// whose first factor holds in 128 bits for k up to 22. Shifting that product right by -(e + k)
// gives the whole number, and the bits shifted out say exactly whether it rounds up, half to
// even as the C library rounds. Returns false outside that range.
bool ScaledDigits(double x, int32_t precision, DecimalDigits* d) {
  uint64_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  int32_t biased = static_cast<int32_t>((bits >> 52) & 0x7FF);
  if (biased == 0) return false;  // subnormal
  uint64_t mantissa = (bits & ((uint64_t{1} << 52) - 1)) | (uint64_t{1} << 52);
  int32_t binary = biased - 1075;
  // floor((biased - 1023) * log10(2)): the decimal exponent of x, or one less.
  int32_t exponent = ((biased - 1023) * 78913) >> 18;
  const uint64_t limit = PowersOfTen[precision];
  for (int attempt = 0; attempt < 2; attempt++, exponent++) {
    int32_t shift = precision - 1 - exponent;
    if (shift < 0 || shift > 22) return false;
    Wide product = static_cast<Wide>(mantissa) * PowersOfFive[shift];
    int32_t twos = binary + shift;
    Wide whole;
    bool up = false;
    if (twos >= 0) {
      if (twos > 8) return false;
      whole = product << twos;
    } else {
      int32_t out = -twos;
      if (out >= 127) return false;
      whole = product >> out;
      Wide rest = product - (whole << out);
      Wide half = static_cast<Wide>(1) << (out - 1);
      up = rest > half || (rest == half && (whole & 1));
    }
    if (whole >= limit) continue;  // the exponent was one too small
    uint64_t n = static_cast<uint64_t>(whole) + (up ? 1 : 0);
    if (n == limit) {
      // Nines that round up into the next decade.
      d->digits[0] = '1';
      d->count = 1;
      d->exponent = exponent + 1;
      return true;
    }
    if (n < limit / 10) return false;
    IntegerDigits(n, precision, d);
    d->exponent = exponent;
    TrimZeros(d);
    return true;
  }
  return false;
}

// The digits of x > 0 rounded to `precision` significant digits, as the exact value rounds.
void RoundedDigits(double x, int32_t precision, DecimalDigits* d) {
  if (precision <= 15 && ScaledDigits(x, precision, d)) return;
  char text[64];
  auto r = std::to_chars(text, text + sizeof text, x, std::chars_format::scientific);
  ReadScientific(text, r.ptr, d);
  if (d->count <= precision) {
    if (precision > 15 || x < 2.2250738585072014e-308) ExactDigits(x, precision, d);
    return;
  }
  char next = d->digits[precision];
  if (next == '5' && d->count == precision + 1) {
    ExactDigits(x, precision, d);
    return;
  }
  d->count = precision;
  if (next >= '5') {
    int32_t i = precision - 1;
    while (i >= 0 && d->digits[i] == '9') d->digits[i--] = '0';
    if (i >= 0) {
      d->digits[i]++;
    } else {
      // 9.99... rounds up to 10: one digit, one decade higher.
      d->digits[0] = '1';
      d->count = 1;
      d->exponent++;
    }
  }
  TrimZeros(d);
}

uint32_t PutExponent(char16_t* out, uint32_t n, int32_t exponent) {
  out[n++] = u'E';
  out[n++] = exponent < 0 ? u'-' : u'+';
  uint32_t magnitude = static_cast<uint32_t>(exponent < 0 ? -exponent : exponent);
  if (magnitude >= 100) out[n++] = static_cast<char16_t>(u'0' + magnitude / 100);
  out[n++] = static_cast<char16_t>(u'0' + magnitude / 10 % 10);
  out[n++] = static_cast<char16_t>(u'0' + magnitude % 10);
  return n;
}

// Non-finite values keep the C library's spelling.
uint32_t NonFiniteText(double number, char16_t* out) {
  char buffer[NumberTextCapacity];
  std::snprintf(buffer, sizeof buffer, "%G", number);
  uint32_t n = 0;
  for (; buffer[n]; n++) out[n] = static_cast<char16_t>(buffer[n]);
  out[n] = 0;
  return n;
}

}  // namespace

uint32_t ValueNumberText(double number, int digits, char16_t* out) {
  if (!std::isfinite(number)) return NonFiniteText(number, out);
  int32_t precision = digits < 1 ? 1 : digits > 17 ? 17 : digits;
  uint32_t n = 0;
  if (number < 0) out[n++] = u'-';
  DecimalDigits d;
  if (number == 0) {
    out[0] = u'0';  // never a negative zero
    out[1] = 0;
    return 1;
  }
  RoundedDigits(std::fabs(number), precision, &d);
  const char16_t point = DecimalSeparator[0];
  if (d.exponent < -4 || d.exponent >= precision) {
    out[n++] = static_cast<char16_t>(d.digits[0]);
    if (d.count > 1) {
      out[n++] = point;
      for (int32_t i = 1; i < d.count; i++) out[n++] = static_cast<char16_t>(d.digits[i]);
    }
    n = PutExponent(out, n, d.exponent);
  } else if (d.exponent >= 0) {
    int32_t whole = d.exponent + 1;
    for (int32_t i = 0; i < whole; i++)
      out[n++] = i < d.count ? static_cast<char16_t>(d.digits[i]) : u'0';
    if (d.count > whole) {
      out[n++] = point;
      for (int32_t i = whole; i < d.count; i++) out[n++] = static_cast<char16_t>(d.digits[i]);
    }
  } else {
    out[n++] = u'0';
    out[n++] = point;
    for (int32_t i = -1; i > d.exponent; i--) out[n++] = u'0';
    for (int32_t i = 0; i < d.count; i++) out[n++] = static_cast<char16_t>(d.digits[i]);
  }
  out[n] = 0;
  return n;
}
