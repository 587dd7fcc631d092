// Criteria: the single test that SOMME.SI and NB.SI apply to each cell, which the database
// functions apply to their fields too, and the wildcard compare behind it, which the lookup, text
// and filter code share.
#pragma once
#include <cstdint>

#include "model/value.h"

// Whether `text` matches `pattern`, in which "*" stands for any run of characters, "?" for any one
// character, and "~" makes a following "*", "?" or "~" literal. Null texts count as empty.
bool MatchWildcard(const char16_t* pattern, const char16_t* text, bool caseSensitive);

enum CriterionKind : uint8_t {
  CriterionEmpty,    // matches the number 0 only
  CriterionNumber,   // a number given as such
  CriterionBoolean,  // a boolean given as such
  CriterionError,    // an error given as such
  CriterionText,     // a text without an operator: wildcard compare, or the number it spells
  CriterionEquals,   // "=" then the rest
  CriterionCompare,  // "<", "<=", ">", ">=" or "<>" then the rest
};

enum CriterionOp : uint8_t {
  OpLess,
  OpLessEqual,
  OpGreater,
  OpGreaterEqual,
  OpNotEqual,
};

// A criterion read once, so that testing each cell does not read its text again. It points into
// the criterion's text, which must outlive it.
struct Criterion {
  uint8_t kind;
  uint8_t op;
  const char16_t* rest;  // the text after the operator (CriterionText: the whole text)
  uint8_t restIs;        // what the rest reads as: ValueNumber, ValueBoolean, ValueError or 0
  double number;         // CriterionNumber, or the rest read as a number
  uint32_t code;         // the rest read as a boolean (0 or 1) or an error code; CriterionBoolean,
                         // CriterionError: the criterion's own
  int date1904;          // the date system that texts read as dates are read in
};

// Reads `criterion`, a value already reduced to one (not a reference or an array).
void PrepareCriterion(Criterion* c, const Value* criterion, int date1904);
bool CriterionMatches(const Criterion* c, const Value* value);
// Both steps at once, for a single test.
bool CriteriaMatch(const Value* criterion, const Value* value, int date1904);
