// The first stage of number formatting: a code is split at its semicolons into sections, each
// with an optional colour and condition in brackets at its start, and one section is chosen for
// the value by its sign and the conditions. Nothing is allocated: a section's body points into
// the code.
#include <charconv>

#include "base/text.h"
#include "format/number_format.h"

const char16_t* const FormatColorNames[FormatColorCount] = {
    u"Black", u"White", u"Red", u"Green", u"Blue", u"Yellow", u"Magenta", u"Cyan",
};

// Names that stand in brackets for elapsed time; they stay in the body for the emitter.
static const char16_t* const elapsedNames[] = {u"h", u"hh", u"m", u"mm", u"s", u"ss"};

static const char16_t generalText[] = u"General";

bool EvaluateCondition(uint8_t comparator, double bound, double value) {
  switch (comparator) {
    case CompareEqual:
      return value == bound;
    case CompareGreater:
      return value > bound;
    case CompareGreaterEqual:
      return value >= bound;
    case CompareLess:
      return value < bound;
    case CompareLessEqual:
      return value <= bound;
    case CompareNotEqual:
      return value != bound;
    default:
      return false;
  }
}

static bool BracketIs(const char16_t* text, uint32_t length, const char16_t* name) {
  return TextLength(name) == length && CompareTextNoCaseN(text, name, length) == 0;
}

namespace {

// The comparators, two-character forms first so that "<=" is not read as "<".
struct ComparatorText {
  const char16_t* text;
  uint8_t comparator;
};

}  // namespace
static const ComparatorText comparatorTexts[] = {
    {u"<=", CompareLessEqual}, {u"<>", CompareNotEqual}, {u">=", CompareGreaterEqual},
    {u"<", CompareLess},       {u"=", CompareEqual},     {u">", CompareGreater},
};

// Reads "[>=100.5]" and the like. The number is written with "." whatever the locale, as every
// number in a format code is. An unreadable number counts as 0.
static void ReadCondition(const char16_t* text, uint32_t length, FormatSection* section) {
  uint32_t used = 0;
  for (const ComparatorText& c : comparatorTexts) {
    uint32_t n = TextLength(c.text);
    if (n <= length && CompareTextNoCaseN(text, c.text, n) == 0) {
      section->comparator = c.comparator;
      used = n;
      break;
    }
  }
  char number[64];
  uint32_t count = 0;
  for (uint32_t i = used; i < length && count + 1 < sizeof number; i++) {
    char16_t c = text[i];
    if (c == u' ') continue;
    number[count++] = c < 128 ? static_cast<char>(c) : '?';
  }
  const char* first = number;
  if (count > 0 && number[0] == '+') first++;
  double bound = 0;
  std::from_chars(first, number + count, bound);
  section->bound = bound;
}

// Where a quoted text that opens at `i` ends: behind its closing quote, a doubled quote being one
// quote character of the text.
static uint32_t SkipQuoted(const char16_t* code, uint32_t i, uint32_t length) {
  for (i++; i < length; i++) {
    if (code[i] != u'"') continue;
    if (i + 1 < length && code[i + 1] == u'"') {
      i++;
      continue;
    }
    return i + 1;
  }
  return length;
}

static void CloseSection(FormatSection* section, const char16_t* code, uint32_t bodyStart,
                         uint32_t end) {
  section->text = code + bodyStart;
  section->length = end - bodyStart;
  bool decorated = section->comparator != CompareNone || section->color != FormatNoColor;
  if (section->length == 0 && !decorated) {
    section->kind = SectionBlank;
    return;
  }
  if (section->length == 0) {
    section->text = generalText;
    section->length = TextLength(generalText);
  }
  section->kind = section->comparator != CompareNone ? SectionConditional : SectionPlain;
}

static void ResetSection(FormatSection* section) {
  *section = FormatSection{};
  section->color = FormatNoColor;
}

void ParseFormatSections(const char16_t* code, FormatSection sections[FormatSectionCount]) {
  for (uint32_t s = 0; s < FormatSectionCount; s++) ResetSection(&sections[s]);
  uint32_t length = TextLength(code);
  uint32_t s = 0;
  uint32_t bodyStart = 0;
  uint32_t i = 0;
  while (i < length) {
    char16_t c = code[i];
    if (c == u'\\' || c == u'_' || c == u'*') {
      i = i + 2 < length ? i + 2 : length;
    } else if (c == u'"') {
      i = SkipQuoted(code, i, length);
    } else if (c == u'[' && i == bodyStart) {
      uint32_t close = i + 1;
      while (close < length && code[close] != u']') close++;
      if (close == length) {
        i++;
        continue;
      }
      const char16_t* inside = code + i + 1;
      uint32_t insideLength = close - i - 1;
      bool elapsed = false;
      for (const char16_t* name : elapsedNames)
        elapsed = elapsed || BracketIs(inside, insideLength, name);
      uint8_t color = FormatNoColor;
      for (uint8_t k = 0; k < FormatColorCount; k++)
        if (BracketIs(inside, insideLength, FormatColorNames[k])) color = k;
      i = close + 1;
      if (elapsed || (insideLength > 0 && inside[0] == u'$')) {
        // Printed by the emitter; the body keeps its bracket, and later brackets are text.
      } else if (color != FormatNoColor) {
        sections[s].color = color;
        bodyStart = i;
      } else {
        ReadCondition(inside, insideLength, &sections[s]);
        bodyStart = i;
      }
    } else if (c == u';') {
      CloseSection(&sections[s], code, bodyStart, i);
      i++;
      bodyStart = i;
      if (++s == FormatSectionCount) return;
    } else {
      i++;
    }
  }
  CloseSection(&sections[s], code, bodyStart, length);
}

// What the second or third section decides when the earlier ones did not: absent gives General
// (with the sign when `signed`), blank gives nothing, anything else prints itself.
static int32_t ByThird(const FormatSection* s2, int32_t index, bool sign, bool* negative) {
  if (s2->kind == SectionAbsent) {
    *negative = sign;
    return ChoiceGeneral;
  }
  if (s2->kind == SectionBlank) return ChoiceNothing;
  *negative = sign;
  return index;
}

int32_t ChooseFormatSection(const FormatSection sections[FormatSectionCount], double value,
                            bool* negative) {
  const FormatSection& s0 = sections[0];
  const FormatSection& s1 = sections[1];
  const FormatSection& s2 = sections[2];
  bool below = value < 0;
  *negative = false;
  bool s1Holds = s1.kind == SectionConditional && EvaluateCondition(s1.comparator, s1.bound, value);
  switch (s0.kind) {
    case SectionAbsent:
      *negative = below;
      return ChoiceGeneral;
    case SectionPlain:
      if (value > 0) return 0;
      if (below) {
        if (s1.kind == SectionAbsent) {
          *negative = true;
          return 0;
        }
        if (s1.kind == SectionBlank) return ChoiceNothing;
        if (s1.kind == SectionPlain) return 1;
        if (s1Holds) {
          *negative = true;
          return 1;
        }
        return ByThird(&s2, 2, true, negative);
      }
      if (s1.kind == SectionAbsent) return 0;
      if (s1.kind == SectionConditional) return s1Holds ? 1 : ByThird(&s2, 2, false, negative);
      if (s2.kind == SectionAbsent) return 0;
      return s2.kind == SectionBlank ? ChoiceNothing : 2;
    case SectionBlank:
      if (value > 0) return ChoiceNothing;
      if (below) {
        if (s1.kind == SectionBlank) return ChoiceNothing;
        if (s1.kind == SectionPlain) return 1;
        return s1Holds ? ChoiceNothing : ByThird(&s2, 2, true, negative);
      }
      if (s1.kind == SectionBlank || s1.kind == SectionPlain)
        return s2.kind == SectionPlain ? 2 : ChoiceNothing;
      return s1Holds ? ChoiceNothing : ByThird(&s2, 2, false, negative);
    default:  // conditional
      if (EvaluateCondition(s0.comparator, s0.bound, value)) {
        *negative = below;
        return 0;
      }
      if (s1.kind == SectionAbsent) {
        *negative = below;
        return ChoiceGeneral;
      }
      if (s1.kind == SectionBlank) {
        if (below) return ChoiceNothing;
        return s2.kind == SectionPlain ? 2 : ChoiceNothing;
      }
      if (s1.kind == SectionPlain) {
        if (below) return 1;
        if (s2.kind == SectionAbsent) return 1;
        return s2.kind == SectionBlank ? ChoiceNothing : 2;
      }
      if (s1Holds) {
        *negative = below;
        return 1;
      }
      return ByThird(&s2, 2, below, negative);
  }
}
