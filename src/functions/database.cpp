// The "Base de données" functions: BDSOMME, BDMOYENNE and their siblings. Each takes a table whose
// first row names its columns, the column to aggregate (by its name, in any case, or by its
// number from 1), and a criteria range: a row of column names over rows of conditions. A record
// is selected when, in some row of conditions, every condition holds; an empty condition holds
// always. The selected values go through the aggregates that SOUS.TOTAL computes.
#include <string>

#include "base/text.h"
#include "functions/criteria.h"
#include "functions/handlers.h"
#include "functions/numeric.h"
#include "model/workbook.h"

namespace {

const Value* At(const Value* array, uint32_t row, uint32_t col) {
  return &array->elements[row * array->columns + col];
}

// Whether a heading or a name is blank: an empty cell or an empty text.
bool Blank(const Value* v) {
  return v->tag == ValueEmpty || (v->tag == ValueText && (!v->text || !v->text[0]));
}

// The column of `table` whose heading is `name`: texts compare without regard to case, numbers
// by value, and a text that spells a number names a heading of that number. Returns -1 when no
// column has that heading.
int32_t HeadingColumn(const Value* table, const Value* name) {
  double spelled = 0;
  bool spells = name->tag == ValueText && name->text && TextToNumber(name->text, &spelled);
  for (uint32_t c = 0; c < table->columns; c++) {
    const Value* h = At(table, 0, c);
    if (h->tag == ValueNumber && spells && h->number == spelled) return static_cast<int32_t>(c);
    if (h->tag != name->tag) continue;
    if (h->tag == ValueText &&
        EqualTextNoCase(h->text ? h->text : u"", name->text ? name->text : u""))
      return static_cast<int32_t>(c);
    if (h->tag == ValueNumber && h->number == name->number) return static_cast<int32_t>(c);
  }
  return -1;
}

// Reads the field argument, a heading or a column number, given as such or in the top-left cell
// of a reference. Returns 0 with the error in `result` when it names no column of `table`.
int FieldColumn(Value* field, const Value* table, const EvalContext* ctx, uint32_t* column,
                Value* result) {
  if (field->tag == ValueRef || field->tag == ValueRefList) {
    ReferenceTarget t;
    uint32_t error = LocateReference(field, ctx, &t);
    Value cell{};
    if (error != ReferenceFound)
      cell = ErrorValue(error);
    else
      ReadCellValue(t.book, t.firstSheet, t.areas[0].firstRow, t.areas[0].firstCol, &cell);
    FreeValue(field);
    *field = cell;
  }
  if (field->tag == ValueArray) ArrayElementForCell(field, ctx);
  int32_t found = -1;
  if (field->tag == ValueError) {
    *result = *field;
    return 0;
  }
  if (field->tag == ValueNumber) {
    int32_t n = TruncateToInt32(field->number);
    if (n >= 1 && static_cast<uint32_t>(n) <= table->columns) found = n - 1;
  } else if (field->tag == ValueText) {
    found = HeadingColumn(table, field);
  }
  if (found < 0) {
    *result = ErrorValue(ErrValue);
    return 0;
  }
  *column = static_cast<uint32_t>(found);
  return 1;
}

// The selection of records: the table and criteria as arrays, and for each criteria column the
// table column it tests (-1 for a column without a heading, which tests nothing).
struct Selection {
  const Value* table;
  const Value* criteria;
  int32_t* tested;
  int date1904;
};

// One condition of a criteria range. A plain text, with no operator and not spelling a number, a
// boolean or an error, selects the texts that begin with it (its wildcards kept); every other
// condition tests as SOMME.SI's criterion does.
bool ConditionHolds(const Value* condition, const Value* value, int date1904) {
  Criterion c;
  PrepareCriterion(&c, condition, date1904);
  if (c.kind != CriterionText || c.restIs != 0) return CriterionMatches(&c, value);
  if (value->tag != ValueText) return false;
  std::u16string pattern(c.rest ? c.rest : u"");
  pattern += u'*';
  return MatchWildcard(pattern.c_str(), value->text, false);
}

bool Selected(const Selection* s, uint32_t record) {
  const Value* criteria = s->criteria;
  // A criteria range of headings alone sets no condition.
  if (criteria->rows < 2) return true;
  for (uint32_t r = 1; r < criteria->rows; r++) {
    bool all = true;
    for (uint32_t c = 0; c < criteria->columns && all; c++) {
      const Value* condition = At(criteria, r, c);
      if (s->tested[c] < 0 || condition->tag == ValueEmpty) continue;
      all = ConditionHolds(condition, At(s->table, record, s->tested[c]), s->date1904);
    }
    if (all) return true;
  }
  return false;
}

// Reads the three arguments and hands each selected record to `visit`, in table order, until it
// returns 0. Returns 0 with the error in `result` when an argument is wrong or `visit` stopped the
// walk; `*column` is -1 for a field left out, which only the counts accept.
template <typename Visit>
int SelectRecords(Value* args, Value* result, const EvalContext* ctx, bool fieldOptional,
                  int32_t* column, Visit visit) {
  if (!ArrayArg(&args[0], result, ctx) || !ArrayArg(&args[2], result, ctx)) return 0;
  const Value* table = &args[0];
  const Value* criteria = &args[2];
  *column = -1;
  if (args[1].tag != ValueEmpty || !fieldOptional) {
    uint32_t c = 0;
    if (!FieldColumn(&args[1], table, ctx, &c, result)) return 0;
    *column = static_cast<int32_t>(c);
  }
  int32_t tested[256];
  if (criteria->columns > 256) {
    *result = ErrorValue(ErrValue);
    return 0;
  }
  // A column without a heading tests nothing, and may hold no condition either: even an empty
  // text under it is #VALUE!.
  for (uint32_t c = 0; c < criteria->columns; c++) {
    const Value* heading = At(criteria, 0, c);
    tested[c] = Blank(heading) ? -1 : HeadingColumn(table, heading);
    bool conditions = false;
    for (uint32_t r = 1; r < criteria->rows; r++)
      conditions = conditions || At(criteria, r, c)->tag != ValueEmpty;
    if (tested[c] < 0 && (!Blank(heading) || conditions)) {
      *result = ErrorValue(ErrValue);
      return 0;
    }
  }
  Selection s{table, criteria, tested, ContextDate1904(ctx)};
  for (uint32_t r = 1; r < table->rows; r++)
    if (Selected(&s, r) && !visit(r)) return 0;
  return 1;
}

// What the aggregates gather from the selected records.
struct Gathered {
  NumberList numbers;
  double nonEmpty;
  double records;
};

// Applies aggregate `function` (numbered as SOUS.TOTAL numbers them) to the field of the selected
// records. An error in that field is the result, except for the counts, which pass over it.
void Aggregate(Value* args, Value* result, const EvalContext* ctx, uint32_t function) {
  bool counting = function == 2 || function == 3;
  Gathered g{{}, 0, 0};
  int32_t column = -1;
  const Value* table = &args[0];
  auto gather = [&](uint32_t record) {
    g.records++;
    if (column < 0) return 1;
    const Value* v = At(table, record, static_cast<uint32_t>(column));
    if (v->tag == ValueEmpty) return 1;
    g.nonEmpty++;
    if (v->tag == ValueError && !counting) {
      *result = *v;
      return 0;
    }
    if (v->tag == ValueNumber && !AppendNumber(&g.numbers, v->number)) {
      *result = ErrorValue(ErrNA);
      return 0;
    }
    return 1;
  };
  if (SelectRecords(args, result, ctx, counting, &column, gather))
    *result = column < 0 ? NumberValue(g.records) : Subtotal(function, &g.numbers, g.nonEmpty);
  FreeNumberList(&g.numbers);
}

}  // namespace

void FnBdMoyenne(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 1);
}

void FnBdNb(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 2);
}

void FnBdNbVal(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 3);
}

void FnBdMax(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 4);
}

void FnBdMin(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 5);
}

void FnBdProduit(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 6);
}

void FnBdEcartype(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 7);
}

void FnBdEcartypeP(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 8);
}

void FnBdSomme(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 9);
}

void FnBdVar(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 10);
}

void FnBdVarP(Value* args, Value* result, const EvalContext* ctx) {
  Aggregate(args, result, ctx, 11);
}

// BDLIRE: the field of the one selected record; #VALUE! when none is selected, #NUM! when more
// than one is. A record whose field is empty (or an empty text) does not count: the value sought
// is there or not at all.
void FnBdLire(Value* args, Value* result, const EvalContext* ctx) {
  int32_t column = -1;
  uint32_t found = 0, count = 0;
  auto note = [&](uint32_t record) {
    if (Blank(At(&args[0], record, static_cast<uint32_t>(column)))) return 1;
    found = record;
    if (++count < 2) return 1;
    *result = ErrorValue(ErrNum);
    return 0;
  };
  if (!SelectRecords(args, result, ctx, false, &column, note)) return;
  if (count == 0) {
    *result = ErrorValue(ErrValue);
    return;
  }
  if (!CopyValue(result, At(&args[0], found, static_cast<uint32_t>(column))))
    *result = ErrorValue(ErrNA);
}
