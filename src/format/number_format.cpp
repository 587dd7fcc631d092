// The second and third stages of number formatting. The chosen section's body is read as a string
// of tokens by one scanner; a first walk counts the placeholders and settles the numbers to print
// (integer and decimal digits, exponent, fraction, date and time fields), and a second walk emits
// the text into one global buffer. Nothing is allocated.
#include "format/number_format.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "base/text.h"
#include "format/calendar.h"
#include "format/input.h"
#include "format/locale.h"
#include "functions/numeric.h"

// ---------------------------------------------------------------------------------------------
// Tokens

namespace {

enum TokenKind : uint8_t {
  TokenLiteral,      // one character printed as it is
  TokenQuoted,       // "..." with doubled quotes
  TokenEscaped,      // \x
  TokenSkip,         // _x: a blank as wide as x
  TokenFill,         // *x
  TokenPlaceholder,  // 0 # ?
  TokenPoint,
  TokenComma,
  TokenExponent,  // E+ E- e+ e- behind a placeholder
  TokenSlash,
  TokenDate,     // a run of d, m, y, h or s; seconds may carry ".00"
  TokenElapsed,  // [h] [mm] [ss] and the like
  TokenAmPm,
  TokenGeneral,
  TokenAt,
  TokenCurrency,  // [$text-id]: the text
};

struct Token {
  uint8_t kind;
  char16_t c;         // the character of one-character tokens; the letter of date tokens
  uint32_t start;     // offset in the body
  uint32_t length;    // characters of the body the token covers
  uint32_t count;     // letters of a date or elapsed token; the AM/PM form
  uint32_t fraction;  // zeros behind the seconds
};

struct Scanner {
  const char16_t* body;
  uint32_t length;
  uint32_t at;
};

}  // namespace

static bool IsPlaceholder(char16_t c) {
  return c == u'0' || c == u'#' || c == u'?';
}

static char16_t UpperAscii(char16_t c) {
  return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c;
}

static bool IsDateLetter(char16_t upper) {
  return upper == u'D' || upper == u'M' || upper == u'Y' || upper == u'H' || upper == u'S';
}

static uint32_t CountRun(const Scanner* s, uint32_t i, char16_t upper) {
  uint32_t n = 0;
  while (i + n < s->length && UpperAscii(s->body[i + n]) == upper) n++;
  return n;
}

static bool MatchAt(const Scanner* s, uint32_t i, const char16_t* text) {
  uint32_t n = TextLength(text);
  return n > 0 && i + n <= s->length && std::memcmp(s->body + i, text, n * sizeof(char16_t)) == 0;
}

// A bracket in the body: elapsed time or a currency text; anything else is a literal "[".
static bool ScanBracket(const Scanner* s, uint32_t i, Token* t) {
  uint32_t close = i + 1;
  while (close < s->length && s->body[close] != u']') close++;
  if (close == s->length || close == i + 1) return false;
  const char16_t* inside = s->body + i + 1;
  uint32_t n = close - i - 1;
  t->length = close - i + 1;
  if (inside[0] == u'$') {
    t->kind = TokenCurrency;
    return true;
  }
  char16_t upper = UpperAscii(inside[0]);
  if ((upper != u'H' && upper != u'M' && upper != u'S') || CountRun(s, i + 1, upper) != n)
    return false;
  t->kind = TokenElapsed;
  t->c = upper;
  t->count = n;
  return true;
}

// Reads the token at s->at and moves past it. Returns false at the end of the body.
static bool NextToken(Scanner* s, Token* t) {
  uint32_t i = s->at;
  if (i >= s->length) return false;
  const char16_t* b = s->body;
  char16_t c = b[i];
  *t = Token{TokenLiteral, c, i, 1, 0, 0};
  char16_t upper = UpperAscii(c);
  if (c == u'"') {
    uint32_t k = i + 1;
    while (k < s->length) {
      if (b[k] == u'"' && !(k + 1 < s->length && b[k + 1] == u'"')) break;
      k += b[k] == u'"' ? 2 : 1;
    }
    t->kind = TokenQuoted;
    t->length = (k < s->length ? k + 1 : s->length) - i;
  } else if ((c == u'\\' || c == u'_' || c == u'*') && i + 1 < s->length) {
    t->kind = c == u'\\' ? TokenEscaped : c == u'_' ? TokenSkip : TokenFill;
    t->c = b[i + 1];
    t->length = 2;
  } else if (IsPlaceholder(c)) {
    t->kind = TokenPlaceholder;
  } else if (c == u'.') {
    t->kind = TokenPoint;
  } else if (c == u',') {
    t->kind = TokenComma;
  } else if (c == u'/') {
    t->kind = TokenSlash;
  } else if (c == u'@') {
    t->kind = TokenAt;
  } else if (upper == u'E' && i > 0 && (b[i - 1] == u'0' || b[i - 1] == u'#') &&
             i + 1 < s->length && (b[i + 1] == u'+' || b[i + 1] == u'-')) {
    t->kind = TokenExponent;
    t->c = b[i + 1];
    t->length = 2;
  } else if (c == u'G' && MatchAt(s, i, u"General")) {
    t->kind = TokenGeneral;
    t->length = 7;
  } else if (c == u'[' && ScanBracket(s, i, t)) {
    // kind and length set by the bracket
  } else if (IsDateLetter(upper)) {
    t->kind = TokenDate;
    t->c = upper;
    t->count = CountRun(s, i, upper);
    t->length = t->count;
    if (upper == u'S' && i + t->length + 1 < s->length && b[i + t->length] == u'.' &&
        b[i + t->length + 1] == u'0') {
      uint32_t zeros = CountRun(s, i + t->length + 1, u'0');
      t->fraction = zeros;
      t->length += 1 + zeros;
    }
  } else if (upper == u'A') {
    for (uint32_t k = 0; k < AmPmTokenCount; k++) {
      if (MatchAt(s, i, AmPmTokens[k])) {
        t->kind = TokenAmPm;
        t->count = k;
        t->length = TextLength(AmPmTokens[k]);
        break;
      }
    }
  }
  s->at = i + t->length;
  return true;
}

// ---------------------------------------------------------------------------------------------
// The first walk: counts and flags

namespace {

enum Phase : uint8_t { PhaseInteger, PhaseDecimal, PhaseExponent, PhaseDenominator, PhaseAfter };

struct Layout {
  int32_t intDigits, zeros, hashes, decimals, expDigits;
  int32_t numeratorDigits, denominatorDigits;
  int32_t placeholders;
  int32_t percents, scalingCommas;
  int32_t fixedDenominator;
  uint32_t numeratorStart, slash,
      denominatorEnd;    // offsets; slash is UINT32_MAX without a fraction
  int32_t secondDigits;  // zeros of "ss.00"
  bool thousands, scientific, hasPoint, twelveHour, hasDate, numeratorHasQuestion;
};

}  // namespace

constexpr uint32_t NoSlash = UINT32_MAX;

static void CountLayout(const char16_t* body, uint32_t length, Layout* l) {
  *l = Layout{};
  l->slash = NoSlash;
  l->secondDigits = -1;
  Scanner s{body, length, 0};
  Token t;
  uint8_t phase = PhaseInteger;
  uint32_t runStart = 0;
  int32_t runLength = 0, runZeros = 0, runHashes = 0, pendingCommas = 0;
  bool inRun = false;
  while (NextToken(&s, &t)) {
    bool placeholder = t.kind == TokenPlaceholder;
    if (placeholder) {
      if (pendingCommas > 0) l->thousands = true;
      pendingCommas = 0;
      l->placeholders++;
      if (phase == PhaseInteger) {
        if (!inRun) runStart = t.start, runLength = runZeros = runHashes = 0;
        runLength++;
        runZeros += t.c == u'0';
        runHashes += t.c == u'#';
        l->intDigits++;
        l->zeros += t.c == u'0';
        l->hashes += t.c == u'#';
      } else if (phase == PhaseDecimal) {
        l->decimals++;
      } else if (phase == PhaseExponent) {
        l->expDigits++;
      } else if (phase == PhaseDenominator) {
        if (t.start == l->denominatorEnd) {
          l->denominatorDigits++;
          l->denominatorEnd = t.start + 1;
        } else {
          phase = PhaseAfter;
        }
      }
    }
    inRun = placeholder;
    switch (t.kind) {
      case TokenPoint:
        l->hasPoint = true;
        if (phase == PhaseInteger) phase = PhaseDecimal;
        break;
      case TokenComma:
        if (l->placeholders > 0) pendingCommas++;
        break;
      case TokenLiteral:
        if (t.c == u'%') l->percents++;
        break;
      case TokenExponent:
        if (phase == PhaseInteger || phase == PhaseDecimal) {
          l->scientific = true;
          phase = PhaseExponent;
        }
        break;
      case TokenSlash:
        if (phase == PhaseInteger && runLength > 0 && runStart + runLength == t.start &&
            l->slash == NoSlash) {
          l->numeratorDigits = runLength;
          l->intDigits -= runLength;
          l->zeros -= runZeros;
          l->hashes -= runHashes;
          l->numeratorStart = runStart;
          l->slash = t.start;
          l->denominatorEnd = t.start + 1;
          for (uint32_t k = runStart; k < t.start; k++) l->numeratorHasQuestion |= body[k] == u'?';
          phase = PhaseDenominator;
          // Digits written behind the slash are a fixed denominator: "# ?/8".
          uint32_t k = t.start + 1;
          if (k < length && body[k] >= u'1' && body[k] <= u'9') {
            int32_t d = 0;
            for (; k < length && body[k] >= u'0' && body[k] <= u'9'; k++)
              if (d < 100000000) d = d * 10 + (body[k] - u'0');
            l->fixedDenominator = d;
            l->denominatorEnd = k;
            phase = PhaseAfter;
          }
        }
        break;
      case TokenDate:
      case TokenElapsed:
        l->hasDate = true;
        if (t.c == u'S' && t.fraction > 0 && l->secondDigits < 0)
          l->secondDigits = static_cast<int32_t>(t.fraction);
        break;
      case TokenAmPm:
        l->twelveHour = true;
        break;
      default:
        break;
    }
    runLength = inRun ? runLength : 0;
  }
  l->scalingCommas = pendingCommas;
}

// ---------------------------------------------------------------------------------------------
// The numbers to print

constexpr uint32_t IntegerTextCapacity = 320;  // 309 digits of the largest double, and room
constexpr uint32_t DecimalTextCapacity = 64;   // digits past these are always 0
constexpr uint32_t SmallTextCapacity = 24;

namespace {

struct Numbers {
  double value;  // after percent and scaling
  char integer[IntegerTextCapacity];
  uint32_t integerLength;  // 0 when the integer part is 0
  char decimals[DecimalTextCapacity];
  uint32_t significantDecimals;
  char exponent[SmallTextCapacity];
  uint32_t exponentLength;
  bool exponentNegative;
  char numerator[IntegerTextCapacity];
  uint32_t numeratorLength;
  char denominator[SmallTextCapacity];
  uint32_t denominatorLength;
  // Date and time fields.
  int32_t year, month, day, weekday;
  int64_t elapsedHours, elapsedMinutes, elapsedSeconds;
  int32_t hour, minute, second;
  int64_t subsecond;
  bool pm;
};

}  // namespace

static const double powersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                     1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                     1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

static double PowerOfTen(int32_t n) {
  if (n >= 0 && n <= 22) return powersOfTen[n];
  return std::pow(10.0, n);
}

static uint32_t UnsignedDigits(uint64_t n, char* out) {
  char reversed[24];
  uint32_t length = 0;
  while (n > 0) {
    reversed[length++] = static_cast<char>('0' + n % 10);
    n /= 10;
  }
  for (uint32_t i = 0; i < length; i++) out[i] = reversed[length - 1 - i];
  return length;
}

// The fifteen significant digits of a positive finite value and the power of ten of the first.
static void SignificantDigits(double v, char digits[15], int32_t* power) {
  char buffer[40];
  std::snprintf(buffer, sizeof buffer, "%.14e", v);
  digits[0] = buffer[0];
  std::memcpy(digits + 1, buffer + 2, 14);
  *power = static_cast<int32_t>(std::strtol(buffer + 17, nullptr, 10));
}

// Prints v rounded half away from zero to `decimals` places: the integer digits (none for 0) and
// the decimal digits. Integer parts that a 64-bit integer holds exactly are computed exactly;
// beyond that, and for more decimals than a double carries, fifteen significant digits are kept
// and the rest are zeros, as spreadsheets show such numbers.
static void RoundedDigits(double v, int32_t decimals, Numbers* n) {
  n->integerLength = 0;
  n->significantDecimals = 0;
  uint32_t kept = decimals < static_cast<int32_t>(DecimalTextCapacity)
                      ? static_cast<uint32_t>(decimals)
                      : DecimalTextCapacity;
  std::memset(n->decimals, '0', kept);
  double scaled = v * PowerOfTen(decimals);
  if (decimals <= 15 && scaled < 1e15) {
    uint64_t whole = static_cast<uint64_t>(RoundHalfAway(scaled));
    uint64_t unit = static_cast<uint64_t>(powersOfTen[decimals]);
    n->integerLength = UnsignedDigits(whole / unit, n->integer);
    uint64_t rest = whole % unit;
    for (int32_t k = decimals - 1; k >= 0; k--, rest /= 10)
      n->decimals[k] = static_cast<char>('0' + rest % 10);
  } else if (v > 0) {
    char digits[16];
    int32_t power;
    SignificantDigits(v, digits, &power);
    // Round at the last decimal kept: the digit of power -(decimals + 1) decides.
    int32_t decide = power + decimals + 1;
    if (decide < 15) {
      bool up = decide >= 0 && digits[decide] >= '5';
      for (int32_t k = decide < 0 ? 0 : decide; k < 15; k++) digits[k] = '0';
      if (up) {
        int32_t k = decide - 1;
        while (k >= 0 && digits[k] == '9') digits[k--] = '0';
        if (k >= 0) {
          digits[k]++;
        } else {
          // Carried out of the first digit, or the value was below the last place.
          std::memset(digits, '0', 15);
          digits[0] = '1';
          power = decide < 0 ? -decimals : power + 1;
        }
      }
    }
    for (int32_t p = power; p >= 0 && n->integerLength < IntegerTextCapacity; p--) {
      int32_t k = power - p;
      n->integer[n->integerLength++] = k < 15 ? digits[k] : '0';
    }
    for (uint32_t d = 0; d < kept; d++) {
      int32_t k = power + 1 + static_cast<int32_t>(d);
      n->decimals[d] = k >= 0 && k < 15 ? digits[k] : '0';
    }
  }
  for (uint32_t d = 0; d < kept; d++)
    if (n->decimals[d] != '0') n->significantDecimals = d + 1;
}

// The integer digits of a whole non-negative value; fifteen significant digits above 1e15.
static uint32_t WholeDigits(double whole, char* out) {
  Numbers scratch;
  RoundedDigits(whole, 0, &scratch);
  std::memcpy(out, scratch.integer, scratch.integerLength);
  return scratch.integerLength;
}

// v * 10^k in steps that stay inside the range of a double where the result does.
static double ScaleByPowerOfTen(double v, int32_t k) {
  while (k > 300) v *= 1e300, k -= 300;
  while (k < -300) v *= 1e-300, k += 300;
  return v * PowerOfTen(k);
}

static int32_t FloorLog10(double v) {
  int32_t l = static_cast<int32_t>(std::floor(std::log10(v)));
  if (PowerOfTen(l) > v) l--;
  if (PowerOfTen(l + 1) <= v) l++;
  return l;
}

static int32_t FloorDivide3(int32_t a) {
  return a >= 0 ? a / 3 : -((-a + 2) / 3);
}

// Scientific notation: the exponent that leaves the integer placeholders their digits, or a
// multiple of three when the mantissa has "#" placeholders (engineering notation). A mantissa that
// rounds up past its placeholders moves the exponent on.
static void ScientificDigits(double v, const Layout* l, Numbers* n) {
  int32_t exponent = 0;
  int32_t lead = l->zeros > 1 ? l->zeros : 1;
  if (v > 0) {
    int32_t log = FloorLog10(v);
    exponent = l->hashes > 0 ? FloorDivide3(log - lead + 1) * 3 : log - l->intDigits + 1;
    // Hundreds of integer placeholders would ask for a mantissa beyond any double.
    if (exponent < log - 300) exponent = log - 300;
  }
  for (int pass = 0; pass < 2; pass++) {
    RoundedDigits(v > 0 ? ScaleByPowerOfTen(v, -exponent) : 0, l->decimals, n);
    uint32_t room =
        l->hashes > 0 ? static_cast<uint32_t>(lead + 2) : static_cast<uint32_t>(l->intDigits);
    if (v == 0 || n->integerLength <= room) break;
    exponent += l->hashes > 0 ? 3 : 1;
  }
  n->exponentNegative = exponent < 0;
  n->exponentLength =
      UnsignedDigits(static_cast<uint64_t>(exponent < 0 ? -exponent : exponent), n->exponent);
}

// The closest fraction with a denominator below `limit`; the smallest denominator wins a tie, and
// the search stops at an exact match.
static int64_t BestDenominator(double f, int64_t limit) {
  int64_t best = 0;
  double bestError = 0;
  for (int64_t d = 2; d < limit; d++) {
    double error = std::fabs(f - std::trunc(d * f + 0.5) / d);
    if (best == 0 || error < bestError) {
      best = d;
      bestError = error;
      if (error == 0) break;
    }
  }
  return best == 0 ? 1 : best;
}

// For denominators of five digits and more a plain search is too slow; the best approximations
// are among the continued fraction's convergents and their intermediate fractions, which give the
// same answer in a few dozen steps.
static int64_t BestDenominatorLarge(double f, int64_t limit) {
  int64_t p0 = 0, q0 = 1, p1 = 1, q1 = 0;
  double x = f;
  int64_t best = 1;
  double bestError = std::fabs(f - std::trunc(f + 0.5));
  auto consider = [&](int64_t q) {
    if (q < 2 || q >= limit) return;
    double error = std::fabs(f - std::trunc(q * f + 0.5) / q);
    if (error < bestError || (error == bestError && q < best)) {
      best = q;
      bestError = error;
    }
  };
  for (int step = 0; step < 64 && bestError > 0; step++) {
    double a = std::floor(x);
    if (a > 1e12) break;
    int64_t ai = static_cast<int64_t>(a);
    // Of the intermediate fractions the one with the largest step is the closest.
    int64_t k = q1 > 0 && (limit - 1 - q0) / q1 < ai ? (limit - 1 - q0) / q1 : ai;
    if (k >= 1) consider(k * q1 + q0);
    int64_t p2 = ai * p1 + p0, q2 = ai * q1 + q0;
    if (q2 >= limit) break;
    p0 = p1, q0 = q1, p1 = p2, q1 = q2;
    double rest = x - a;
    if (rest <= 0) break;
    x = 1 / rest;
  }
  return best;
}

static void FractionDigits(double v, const Layout* l, Numbers* n) {
  double whole = std::trunc(v);
  double f = v - whole;
  n->numeratorLength = n->denominatorLength = 0;
  if (f == 0) {
    if (l->intDigits == 0) {
      n->numeratorLength = WholeDigits(whole, n->numerator);
      if (n->numeratorLength == 0) n->numerator[n->numeratorLength++] = '0';
      n->denominator[n->denominatorLength++] = '1';
    }
  } else {
    int64_t d = l->fixedDenominator;
    if (d == 0) {
      int32_t places = l->denominatorDigits < 12 ? l->denominatorDigits : 12;
      int64_t limit = static_cast<int64_t>(powersOfTen[places]);
      d = limit <= 10000 ? BestDenominator(f, limit) : BestDenominatorLarge(f, limit);
    }
    double numerator = std::trunc(static_cast<double>(d) * f + 0.5);
    if (l->intDigits == 0) numerator += whole * static_cast<double>(d);
    if (numerator != 0) {
      n->numeratorLength = WholeDigits(numerator, n->numerator);
      n->denominatorLength = UnsignedDigits(static_cast<uint64_t>(d), n->denominator);
    } else if (l->intDigits == 0) {
      n->denominator[n->denominatorLength++] = '1';
      n->numerator[n->numeratorLength++] = '0';
    }
  }
  n->integerLength = l->intDigits > 0 ? WholeDigits(whole, n->integer) : 0;
}

// The date and time fields. Only a section with a date or time token needs them, and the text
// does not depend on when they are computed.
static void DateFields(double v, int date1904, const Layout* l, Numbers* n) {
  int32_t offset = date1904 ? Date1904Offset : 0;
  // Serials outside the calendar's range have no date to show; they print as day 0.
  bool inRange = v < 2958466.0 * 2;
  int32_t days = inRange ? static_cast<int32_t>(v) : 0;
  int32_t digits = l->secondDigits >= 0 ? l->secondDigits : l->hasPoint ? 1 : 0;
  if (digits > 9) digits = 9;
  int64_t scale = static_cast<int64_t>(powersOfTen[digits]);
  double within = inRange ? v - days : 0;
  int64_t ticks = static_cast<int64_t>(within * static_cast<double>(scale) * 86400 + 0.5);
  // A time that rounds up to midnight is midnight of the next day, not hour 24.
  if (ticks >= 86400 * scale) {
    ticks -= 86400 * scale;
    days++;
  }
  if (days + offset == 0) {
    // Serial 0 of the 1900 system is shown as the day before 1 January 1900: 0 January.
    n->year = 1900, n->month = 1, n->day = 0;
  } else {
    SerialToDate(days + offset, &n->year, &n->month, &n->day);
  }
  n->weekday = static_cast<int32_t>(static_cast<int64_t>(days + offset + 5) % 7);
  int64_t seconds = ticks / scale;
  n->subsecond = ticks % scale;
  n->hour = static_cast<int32_t>(seconds / 3600);
  n->minute = static_cast<int32_t>(seconds % 3600 / 60);
  n->second = static_cast<int32_t>(seconds % 60);
  n->elapsedHours = static_cast<int64_t>(days) * 24 + n->hour;
  n->elapsedMinutes = n->elapsedHours * 60 + n->minute;
  n->elapsedSeconds = n->elapsedMinutes * 60 + n->second;
  n->pm = false;
  if (l->twelveHour) {
    n->pm = n->hour >= 12;
    if (n->hour == 0) n->hour = 12;
    if (n->hour > 12) n->hour -= 12;
  }
}

static void SettleNumbers(double v, int date1904, const Layout* l, Numbers* n) {
  if (l->hasDate || l->twelveHour) DateFields(v, date1904, l, n);
  for (int32_t k = 0; k < l->percents; k++) v *= 100;
  for (int32_t k = 0; k < l->scalingCommas; k++) v *= 0.001;
  // A code with a great many "%" signs overflows; it shows the largest number instead.
  if (!(v <= DBL_MAX)) v = DBL_MAX;
  n->value = v;
  n->exponentLength = n->numeratorLength = n->denominatorLength = 0;
  if (l->slash != NoSlash)
    FractionDigits(v, l, n);
  else if (l->scientific)
    ScientificDigits(v, l, n);
  else
    RoundedDigits(v, l->decimals, n);
}

// ---------------------------------------------------------------------------------------------
// The second walk: emission

static char16_t output[FormatOutputCapacity];

namespace {

struct Emitter {
  uint32_t length;
  const TextMeasure* measure;
  int32_t availableWidth;
  int32_t fillAt;  // output position of the fill, -1 for none
  char16_t fill;
  const char16_t* atText;  // what "@" prints when a text goes through its section
};

}  // namespace

static void Put(Emitter* e, char16_t c) {
  if (e->length + 1 < FormatOutputCapacity) output[e->length++] = c;
}

static void PutText(Emitter* e, const char16_t* text, uint32_t length) {
  for (uint32_t i = 0; i < length; i++) Put(e, text[i]);
}

static void PutString(Emitter* e, const char16_t* text) {
  PutText(e, text, TextLength(text));
}

static void PutAscii(Emitter* e, const char* text, uint32_t length) {
  for (uint32_t i = 0; i < length; i++) Put(e, static_cast<char16_t>(text[i]));
}

static void PutNumber(Emitter* e, int64_t n, uint32_t width) {
  char digits[24];
  uint32_t length = UnsignedDigits(static_cast<uint64_t>(n < 0 ? -n : n), digits);
  for (uint32_t k = length; k < width; k++) Put(e, u'0');
  PutAscii(e, digits, length);
}

static void PutGroupSeparator(Emitter* e, const Layout* l, int32_t digitsAfter) {
  if (l->thousands && digitsAfter > 0 && digitsAfter % 3 == 0) PutText(e, ThousandsSeparator, 1);
}

// The filler of a placeholder that has no digit: "0" shows a zero, "?" a blank, "#" nothing.
static void PutFiller(Emitter* e, char16_t placeholder) {
  if (placeholder == u'0') Put(e, u'0');
  if (placeholder == u'?') Put(e, u' ');
}

// Placeholder `index` of `count` in a group whose number is right-aligned: the first one also
// prints the digits that exceed the group.
static void PutAligned(Emitter* e, const Layout* l, const char* digits, uint32_t length,
                       int32_t index, int32_t count, char16_t placeholder, bool grouped) {
  int32_t n = static_cast<int32_t>(length);
  if (index == 0) {
    for (int32_t j = 0; j < n - count; j++) {
      Put(e, static_cast<char16_t>(digits[j]));
      if (grouped) PutGroupSeparator(e, l, n - j - 1);
    }
  }
  int32_t fromRight = count - index;  // 1 for the last placeholder
  if (fromRight <= n) {
    Put(e, static_cast<char16_t>(digits[n - fromRight]));
  } else {
    PutFiller(e, placeholder);
    if (placeholder == u'#') return;
  }
  if (!grouped) return;
  if (fromRight <= n || placeholder == u'0')
    PutGroupSeparator(e, l, fromRight - 1);
  else if (l->thousands && fromRight - 1 > 0 && (fromRight - 1) % 3 == 0)
    Put(e, u' ');
}

static void PutIntegerDigits(Emitter* e, const Layout* l, const Numbers* n) {
  for (uint32_t j = 0; j < n->integerLength; j++) {
    Put(e, static_cast<char16_t>(n->integer[j]));
    PutGroupSeparator(e, l, static_cast<int32_t>(n->integerLength - j - 1));
  }
}

static int32_t Width(const Emitter* e, const char16_t* text, uint32_t length) {
  return e->measure->width(e->measure, text, length);
}

// General: fifteen significant digits. With a measure the text must fit the room left, so the
// decimals are given up one by one, or with an exponent the precision from 14 down to 2.
static void PutGeneral(Emitter* e, double v) {
  char16_t text[NumberTextCapacity];
  uint32_t length = ValueNumberText(v, 15, text);
  if (e->measure) {
    int32_t room = e->availableWidth - Width(e, output, e->length);
    bool exponent = false;
    int32_t decimals = 0;
    for (uint32_t i = 0; i < length; i++) {
      exponent = exponent || text[i] == u'E';
      if (text[i] == DecimalSeparator[0]) decimals = static_cast<int32_t>(length - i - 1);
    }
    if (exponent) {
      for (int precision = 14; precision >= 2 && Width(e, text, length) > room; precision--)
        length = ValueNumberText(v, precision, text);
    } else {
      while (decimals > 0 && Width(e, text, length) > room) {
        decimals--;
        double scale = PowerOfTen(decimals);
        length = ValueNumberText(RoundHalfAway(v * scale) / scale, 15, text);
      }
    }
  }
  PutText(e, text, length);
}

// Whether the "m" or "mm" at `at` is a minute: the date or time token before it was an hour, or
// the next one behind it is a second.
static bool MonthIsMinute(const char16_t* body, uint32_t length, uint32_t at, char16_t lastLetter) {
  if (lastLetter == u'H') return true;
  Scanner ahead{body, length, at};
  Token t;
  while (NextToken(&ahead, &t))
    if (t.kind == TokenDate || t.kind == TokenElapsed) return t.c == u'S';
  return false;
}

static void PutDate(Emitter* e, const Token* t, const Numbers* n, bool minute) {
  uint32_t count = t->count;
  int32_t weekday = n->weekday;
  int32_t month = n->month >= 1 && n->month <= 12 ? n->month - 1 : 0;
  switch (t->c) {
    case u'D':
      if (count <= 2)
        PutNumber(e, n->day, count);
      else
        PutString(e, count == 3 ? ShortDayNames[weekday] : DayNames[weekday]);
      break;
    case u'M':
      if (count <= 2)
        PutNumber(e, minute ? n->minute : n->month, count);
      else if (count == 3)
        PutString(e, ShortMonthNames[month]);
      else if (count == 5)
        Put(e, MonthNames[month][0]);
      else
        PutString(e, MonthNames[month]);
      break;
    case u'Y':
      if (count <= 2)
        PutNumber(e, ((n->year % 100) + 100) % 100, 2);
      else
        PutNumber(e, n->year, 4);
      break;
    case u'H':
      PutNumber(e, n->hour, count >= 2 ? 2 : 1);
      break;
    default:  // S
      PutNumber(e, n->second, count >= 2 ? 2 : 1);
      if (t->fraction > 0) {
        PutText(e, DecimalSeparator, 1);
        PutNumber(e, n->subsecond, t->fraction);
      }
      break;
  }
}

static void PutElapsed(Emitter* e, const Token* t, const Numbers* n) {
  int64_t amount = t->c == u'H'   ? n->elapsedHours
                   : t->c == u'M' ? n->elapsedMinutes
                                  : n->elapsedSeconds;
  PutNumber(e, amount, t->count);
}

// The morning or afternoon half of the AM/PM form found in the code, in that form's case.
static void PutAmPm(Emitter* e, uint32_t form, bool pm) {
  const char16_t* text = AmPmTokens[form];
  uint32_t slash = 0;
  while (text[slash] && text[slash] != u'/') slash++;
  if (pm)
    PutString(e, text + slash + 1);
  else
    PutText(e, text, slash);
}

static void PutQuoted(Emitter* e, const char16_t* body, const Token* t) {
  uint32_t end = t->start + t->length;
  if (end > t->start + 1 && body[end - 1] == u'"') end--;
  for (uint32_t k = t->start + 1; k < end; k++) {
    Put(e, body[k]);
    if (body[k] == u'"') k++;  // a doubled quote is one quote
  }
}

static void PutCurrency(Emitter* e, const char16_t* body, const Token* t) {
  uint32_t end = t->start + t->length - 1;
  for (uint32_t k = t->start + 2; k < end && body[k] != u'-'; k++) Put(e, body[k]);
}

// A digit of a denominator written in the code: it shows as written, or as a blank when the
// value is whole and no fraction is shown.
static void PutFixedDenominatorDigit(Emitter* e, const Numbers* n, char16_t digit) {
  Put(e, n->denominatorLength ? digit : u' ');
}

static void EmitSection(Emitter* e, const char16_t* body, uint32_t length, const Layout* l,
                        const Numbers* n) {
  Scanner s{body, length, 0};
  Token t;
  uint8_t phase = PhaseInteger;
  int32_t intIndex = 0, decIndex = 0, expIndex = 0, numIndex = 0, denIndex = 0, seen = 0;
  bool integerShown = false;
  char16_t lastLetter = 0;
  bool placeholdersInSection = l->placeholders > 0;
  while (NextToken(&s, &t)) {
    switch (t.kind) {
      case TokenPlaceholder:
        seen++;
        if (l->slash != NoSlash && t.start >= l->numeratorStart && t.start < l->slash) {
          if (n->numeratorLength == 0)
            PutFiller(e, t.c);
          else
            PutAligned(e, l, n->numerator, n->numeratorLength, numIndex, l->numeratorDigits, t.c,
                       false);
          numIndex++;
        } else if (l->slash != NoSlash && t.start > l->slash && t.start < l->denominatorEnd) {
          if (l->fixedDenominator) {
            // A written denominator prints as written, its zeros included.
            PutFixedDenominatorDigit(e, n, body[t.start]);
            break;
          }
          // Denominators are left-aligned so that the slashes of a column line up.
          if (denIndex < static_cast<int32_t>(n->denominatorLength)) {
            Put(e, static_cast<char16_t>(n->denominator[denIndex]));
            if (denIndex == l->denominatorDigits - 1)
              PutAscii(e, n->denominator + denIndex + 1, n->denominatorLength - denIndex - 1);
          } else {
            PutFiller(e, t.c);
          }
          denIndex++;
        } else if (phase == PhaseInteger) {
          PutAligned(e, l, n->integer, n->integerLength, intIndex++, l->intDigits, t.c, true);
          integerShown = true;
        } else if (phase == PhaseDecimal) {
          if (decIndex < static_cast<int32_t>(n->significantDecimals))
            Put(e, static_cast<char16_t>(n->decimals[decIndex]));
          else
            PutFiller(e, t.c);
          decIndex++;
        } else if (phase == PhaseExponent) {
          PutAligned(e, l, n->exponent, n->exponentLength, expIndex++, l->expDigits, t.c, false);
        } else {
          PutFiller(e, t.c);
        }
        break;
      case TokenPoint:
        if (phase == PhaseInteger && placeholdersInSection && l->slash == NoSlash) {
          if (!integerShown) PutIntegerDigits(e, l, n);
          integerShown = true;
          PutText(e, DecimalSeparator, 1);
          phase = PhaseDecimal;
        } else {
          Put(e, u'.');
        }
        break;
      case TokenComma:
        // Commas among placeholders group or scale; they print nothing themselves.
        if (seen == 0) Put(e, u',');
        break;
      case TokenExponent:
        if (l->scientific && phase != PhaseExponent) {
          Put(e, body[t.start]);
          if (t.c == u'+') Put(e, n->exponentNegative ? u'-' : u'+');
          if (t.c == u'-' && n->exponentNegative) Put(e, u'-');
          phase = PhaseExponent;
        } else {
          PutText(e, body + t.start, t.length);
        }
        break;
      case TokenSlash:
        if (t.start == l->slash) {
          bool blank = n->numeratorLength == 0 && l->numeratorHasQuestion;
          Put(e, blank ? u' ' : u'/');
          phase = PhaseDenominator;
        } else {
          Put(e, u'/');
        }
        break;
      case TokenQuoted:
        PutQuoted(e, body, &t);
        break;
      case TokenEscaped:
        Put(e, t.c);
        break;
      case TokenSkip:
        Put(e, u' ');
        break;
      case TokenFill:
        e->fillAt = static_cast<int32_t>(e->length);
        e->fill = t.c;
        break;
      case TokenAt: {
        if (e->atText) {
          PutString(e, e->atText);
          break;
        }
        char16_t text[NumberTextCapacity];
        PutText(e, text, ValueNumberText(n->value, 15, text));
        break;
      }
      case TokenGeneral:
        PutGeneral(e, n->value);
        break;
      case TokenDate: {
        bool minute = t.c == u'M' && t.count <= 2 && MonthIsMinute(body, length, s.at, lastLetter);
        PutDate(e, &t, n, minute);
        lastLetter = t.c;
        break;
      }
      case TokenElapsed:
        PutElapsed(e, &t, n);
        lastLetter = t.c;
        break;
      case TokenAmPm:
        PutAmPm(e, t.count, n->pm);
        break;
      case TokenCurrency:
        PutCurrency(e, body, &t);
        break;
      default:
        if (l->fixedDenominator && t.start > l->slash && t.start < l->denominatorEnd)
          PutFixedDenominatorDigit(e, n, t.c);
        else
          Put(e, t.c);
        break;
    }
  }
}

// The "*" fill: as many copies of the character as the room left holds, at the noted place.
static void Fill(Emitter* e) {
  if (!e->measure || e->fillAt < 0) return;
  int32_t each = Width(e, &e->fill, 1);
  if (each <= 0) return;
  int32_t count = (e->availableWidth - Width(e, output, e->length)) / each;
  uint32_t room = FormatOutputCapacity - 1 - e->length;
  if (count <= 0) return;
  if (static_cast<uint32_t>(count) > room) count = static_cast<int32_t>(room);
  uint32_t at = static_cast<uint32_t>(e->fillAt);
  std::memmove(output + at + count, output + at, (e->length - at) * sizeof(char16_t));
  for (int32_t k = 0; k < count; k++) output[at + k] = e->fill;
  e->length += static_cast<uint32_t>(count);
}

// The code "General" alone, by far the most common one. Its single section prints every value
// through General with a "-" in front of a negative one, so the section machinery can be skipped.
static bool IsGeneralCode(const char16_t* code) {
  static const char16_t general[] = u"General";
  if (!code) return false;
  for (uint32_t i = 0; i < sizeof general / sizeof general[0]; i++)
    if (code[i] != general[i]) return false;
  return true;
}

const char16_t* FormatNumber(double value, const char16_t* code, int date1904,
                             const TextMeasure* measure, int32_t availableWidth,
                             uint8_t* colorOut) {
  Emitter e{0, measure, availableWidth, -1, 0, nullptr};
  if (!std::isfinite(value)) {
    PutText(&e, u"#NUM!", 5);
    output[e.length] = 0;
    return output;
  }
  if (IsGeneralCode(code)) {
    if (value < 0) Put(&e, u'-');
    PutGeneral(&e, std::fabs(value));
    output[e.length] = 0;
    return output;
  }
  FormatSection sections[FormatSectionCount];
  ParseFormatSections(code, sections);
  bool negative = false;
  int32_t choice = ChooseFormatSection(sections, value, &negative);
  if (choice == ChoiceNothing) {
    output[0] = 0;
    return output;
  }
  static const char16_t general[] = u"General";
  const char16_t* body = general;
  uint32_t length = 7;
  if (choice >= 0) {
    body = sections[choice].text;
    length = sections[choice].length;
    if (colorOut && sections[choice].color != FormatNoColor) *colorOut = sections[choice].color;
  }
  Layout layout;
  CountLayout(body, length, &layout);
  Numbers numbers;
  SettleNumbers(std::fabs(value), date1904, &layout, &numbers);
  if (negative) Put(&e, u'-');
  EmitSection(&e, body, length, &layout, &numbers);
  Fill(&e);
  output[e.length] = 0;
  return output;
}

// Whether a section holds an "@" of its own, outside quotes and escapes.
static bool SectionHasAt(const FormatSection* section) {
  Scanner s{section->text, section->length, 0};
  Token t;
  while (NextToken(&s, &t))
    if (t.kind == TokenAt) return true;
  return false;
}

const char16_t* FormatText(const char16_t* text, const char16_t* code, uint8_t* colorOut) {
  FormatSection sections[FormatSectionCount];
  ParseFormatSections(code, sections);
  const FormatSection* chosen = nullptr;
  if (sections[3].kind != SectionAbsent) {
    chosen = &sections[3];
  } else {
    for (uint32_t i = 0; i < 3 && !chosen; i++)
      if (sections[i].kind != SectionAbsent && SectionHasAt(&sections[i])) chosen = &sections[i];
  }
  if (!chosen) return nullptr;
  Emitter e{0, nullptr, 0, -1, 0, text ? text : u""};
  if (colorOut && chosen->color != FormatNoColor) *colorOut = chosen->color;
  Layout layout;
  CountLayout(chosen->text, chosen->length, &layout);
  Numbers numbers;
  SettleNumbers(0, 0, &layout, &numbers);
  EmitSection(&e, chosen->text, chosen->length, &layout, &numbers);
  output[e.length] = 0;
  return output;
}

bool FormatOutsideCalendar(double value, const char16_t* code, int date1904) {
  if (IsGeneralCode(code)) return false;
  FormatSection sections[FormatSectionCount];
  ParseFormatSections(code, sections);
  bool negative = false;
  int32_t choice = ChooseFormatSection(sections, value, &negative);
  if (choice < 0) return false;
  Layout layout;
  CountLayout(sections[choice].text, sections[choice].length, &layout);
  if (!layout.hasDate && !layout.twelveHour) return false;
  double limit = LastDateSerial + 1.0 - (date1904 ? Date1904Offset : 0);
  return value < 0 || value >= limit;
}

static int32_t FixedWidth(const TextMeasure* self, const char16_t*, uint32_t length) {
  return reinterpret_cast<const FixedWidthMeasure*>(self)->characterWidth *
         static_cast<int32_t>(length);
}

FixedWidthMeasure MakeFixedWidthMeasure(int32_t characterWidth) {
  return FixedWidthMeasure{{FixedWidth}, characterWidth};
}
