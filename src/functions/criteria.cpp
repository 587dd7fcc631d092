// The criterion test and the wildcard compare. A criterion is a number, a text with an optional
// leading operator ("=", "<>", "<", "<=", ">", ">="), or a boolean or error given as such. Texts
// in cells are read as numbers the way typed input is, so that "12/03/1999" meets a date.
#include "functions/criteria.h"

#include "base/text.h"
#include "format/input.h"

namespace {

bool SameCharacter(char16_t a, char16_t b, bool caseSensitive) {
  return caseSensitive ? a == b : FoldCase(a) == FoldCase(b);
}

bool IsWildcard(char16_t c) {
  return c == u'*' || c == u'?' || c == u'~';
}

// The number that `text` spells as typed input: a number, a date or a time. The conversion works
// on a copy, since it consumes the text it reads.
bool ReadsAsNumber(const char16_t* text, int date1904, double* out) {
  Value v = TextValue(TextDuplicate(text ? text : u""));
  if (!v.text) return false;
  TextToValue(&v, date1904);
  bool ok = v.tag == ValueNumber;
  if (ok) *out = v.number;
  FreeValue(&v);
  return ok;
}

// The literal a boolean or an error value is written as.
const char16_t* LiteralOf(const Value* value) {
  return value->tag == ValueBoolean ? BooleanText(value->boolean != 0) : ErrorText(value->error);
}

bool Ordered(int order, uint8_t op) {
  switch (op) {
    case OpLess:
      return order < 0;
    case OpLessEqual:
      return order <= 0;
    case OpGreater:
      return order > 0;
    case OpGreaterEqual:
      return order >= 0;
    default:
      return order != 0;
  }
}

int Order(double a, double b) {
  return (a > b) - (a < b);
}

bool MatchesEquals(const Criterion* c, const Value* value) {
  switch (value->tag) {
    case ValueEmpty:
      return !c->rest[0];
    case ValueNumber:
      return c->restIs == ValueNumber && value->number == c->number;
    case ValueText: {
      if (MatchWildcard(c->rest, value->text, false)) return true;
      double number;
      return c->restIs == ValueNumber && ReadsAsNumber(value->text, c->date1904, &number) &&
             number == c->number;
    }
    case ValueBoolean:
    case ValueError:
      return EqualTextNoCase(c->rest, LiteralOf(value));
    default:
      return false;
  }
}

bool MatchesCompare(const Criterion* c, const Value* value) {
  switch (value->tag) {
    case ValueNumber:
      return c->restIs == ValueNumber && Ordered(Order(value->number, c->number), c->op);
    case ValueText:
      return c->restIs == 0 && Ordered(CompareTextNoCase(value->text, c->rest), c->op);
    case ValueBoolean:
      // FAUX sorts below VRAI.
      return c->restIs == ValueBoolean && Ordered(Order(value->boolean != 0, c->code), c->op);
    case ValueEmpty:
    case ValueError:
      // Neither has an order: they only differ, from anything but themselves.
      return c->op == OpNotEqual && !MatchesEquals(c, value);
    default:
      return false;
  }
}

bool MatchesText(const Criterion* c, const Value* value) {
  switch (value->tag) {
    case ValueEmpty:
      return !c->rest[0];
    case ValueNumber:
      return c->restIs == ValueNumber && value->number == c->number;
    case ValueText:
      return MatchWildcard(c->rest, value->text, false);
    case ValueBoolean:
    case ValueError:
      return EqualTextNoCase(c->rest, LiteralOf(value));
    default:
      return false;
  }
}

}  // namespace

bool MatchWildcard(const char16_t* pattern, const char16_t* text, bool caseSensitive) {
  if (!pattern) pattern = u"";
  if (!text) text = u"";
  // Greedy matching that remembers the last "*": on a mismatch the star takes one more
  // character and the rest of the pattern is tried again. This finds a match whenever trying
  // every position recursively would, in linear steps for a single star.
  uint32_t p = 0, t = 0;
  int64_t starPattern = -1;
  uint32_t starText = 0;
  while (text[t]) {
    char16_t pc = pattern[p];
    if (pc == u'*') {
      starPattern = ++p;
      starText = t;
      continue;
    }
    if (pc == u'?') {
      p++;
      t++;
      continue;
    }
    if (pc) {
      uint32_t width = 1;
      if (pc == u'~' && pattern[p + 1] && IsWildcard(pattern[p + 1])) {
        pc = pattern[p + 1];
        width = 2;
      }
      if (SameCharacter(pc, text[t], caseSensitive)) {
        p += width;
        t++;
        continue;
      }
    }
    if (starPattern < 0) return false;
    p = static_cast<uint32_t>(starPattern);
    t = ++starText;
  }
  while (pattern[p] == u'*') p++;
  return !pattern[p];
}

void PrepareCriterion(Criterion* c, const Value* criterion, int date1904) {
  *c = Criterion{};
  c->date1904 = date1904;
  c->rest = u"";
  switch (criterion->tag) {
    case ValueNumber:
      c->kind = CriterionNumber;
      c->number = criterion->number;
      return;
    case ValueBoolean:
      c->kind = CriterionBoolean;
      c->code = criterion->boolean != 0;
      return;
    case ValueError:
      c->kind = CriterionError;
      c->code = criterion->error;
      return;
    case ValueText:
      break;
    default:
      c->kind = CriterionEmpty;
      return;
  }
  const char16_t* text = criterion->text ? criterion->text : u"";
  c->kind = CriterionText;
  c->rest = text;
  if (text[0] == u'=') {
    c->kind = CriterionEquals;
    c->rest = text + 1;
  } else if (text[0] == u'<' || text[0] == u'>') {
    c->kind = CriterionCompare;
    bool less = text[0] == u'<';
    if (text[1] == u'=') {
      c->op = less ? OpLessEqual : OpGreaterEqual;
      c->rest = text + 2;
    } else if (less && text[1] == u'>') {
      c->op = OpNotEqual;
      c->rest = text + 2;
    } else {
      c->op = less ? OpLess : OpGreater;
      c->rest = text + 1;
    }
  }
  // What the rest reads as decides which values it can meet.
  Value rest = TextValue(TextDuplicate(c->rest));
  if (rest.text) {
    TextToValue(&rest, date1904);
    if (rest.tag == ValueNumber) {
      c->restIs = ValueNumber;
      c->number = rest.number;
    } else if (rest.tag == ValueBoolean) {
      c->restIs = ValueBoolean;
      c->code = rest.boolean != 0;
    } else {
      uint8_t code;
      if (ParseErrorText(c->rest, &code)) {
        c->restIs = ValueError;
        c->code = code;
      }
    }
    FreeValue(&rest);
  }
}

bool CriterionMatches(const Criterion* c, const Value* value) {
  switch (c->kind) {
    case CriterionEmpty:
      return value->tag == ValueNumber && value->number == 0;
    case CriterionNumber: {
      if (value->tag == ValueNumber) return value->number == c->number;
      double number;
      return value->tag == ValueText && ReadsAsNumber(value->text, c->date1904, &number) &&
             number == c->number;
    }
    case CriterionBoolean:
      return value->tag == ValueBoolean && (value->boolean != 0) == (c->code != 0);
    case CriterionError:
      return value->tag == ValueError && value->error == c->code;
    case CriterionEquals:
      return MatchesEquals(c, value);
    case CriterionCompare:
      return MatchesCompare(c, value);
    default:
      return MatchesText(c, value);
  }
}

bool CriteriaMatch(const Value* criterion, const Value* value, int date1904) {
  Criterion c;
  PrepareCriterion(&c, criterion, date1904);
  return CriterionMatches(&c, value);
}
