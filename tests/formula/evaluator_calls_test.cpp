// The evaluator's ways out of the main loop: function calls (frames, value-class reduction, the
// macro-command gate, array results, spreading over array arguments, calls of macro cells),
// names local, global and external, the one-argument sum, and the entry points used by charts and
// macros.
#include "evaluator_fixture.h"
#include "model/hooks.h"

namespace evaltest {
namespace {

// Gives an external book the names its name tokens count from 1.
void SetExternalNames(ExternalBook* external, std::initializer_list<const char16_t*> names) {
  external->names = static_cast<ExternalName*>(Allocate(names.size() * sizeof(ExternalName)));
  for (const char16_t* n : names) external->names[external->nameCount++].text = TextDuplicate(n);
}

// Adds an external book of `kind` holding `names`, with a sheet link to it; gives the link.
uint16_t AddExternalBook(uint32_t book, int32_t kind,
                         std::initializer_list<const char16_t*> names) {
  Workbook* wb = GetWorkbook(book);
  uint32_t b = wb->externalBookCount++, l = wb->sheetLinkCount++;
  wb->externalBooks = static_cast<ExternalBook*>(
      Reallocate(wb->externalBooks, b * sizeof(ExternalBook), (b + 1) * sizeof(ExternalBook)));
  wb->sheetLinks = static_cast<SheetLink*>(
      Reallocate(wb->sheetLinks, l * sizeof(SheetLink), (l + 1) * sizeof(SheetLink)));
  wb->externalBooks[b].kind = kind;
  SetExternalNames(&wb->externalBooks[b], names);
  wb->sheetLinks[l] = SheetLink{static_cast<int16_t>(b), NoSheet, NoSheet};
  return static_cast<uint16_t>(l);
}

TEST_F(EvaluatorTest, FunctionCalls) {
  Put(0, 0, 0, N(1));
  Put(0, 1, 0, N(2));
  Sheet* s = GetSheet(book, 0);
  s->arrayFormulas = static_cast<ArrayFormula*>(Allocate(sizeof(ArrayFormula)));
  s->arrayFormulas[0].range = Range{1, 2, 1, 2};  // B2:C3
  s->arrayFormulaCount = 1;
  uint16_t macro = Link(2, 2), second = Link(1, 1);
  uint16_t stop = AddNamed(u"Stop", 0, &T().FuncVar(FnAbort, 0));
  // Reference-class calls, so that a spread result is seen whole.
  auto pair = [](TokenBuilder a, TokenBuilder b) { return a.Append(b).FuncVar(FnPair, 2, R); };
  auto callCell = [](TokenBuilder first) { return first.Int(1).FuncVar(255, 2); };
  TokenBuilder square = T().Int(0).FuncVar(FnSquare, 1, V);
  std::vector<Case> cases = {
      {"fixed count from the class letters", T().Int(1).Int(2).Func(FnPair), "12"},
      {"class V argument reduced", T().Area(0, 2, 0, 0).FuncVar(FnDescribeV, 1), "\"2\""},
      {"class V argument in an array formula", T().Area(0, 1, 0, 0).FuncVar(FnDescribeV, 1),
       "{\"1\";\"2\"}", 0, 1},
      {"class R argument kept", T().Area(0, 2, 0, 0).FuncVar(FnDescribeR, 1), "\"ref A1:A3\""},
      {"unknown function pops", T().Int(5).Int(1).Int(2).FuncVar(999, 2).FuncVar(FnDescribeR, 2),
       "\"5|#NAME?\""},
      {"macro command outside a running macro", T().Int(1).FuncVar(FnCommand, 1), "FALSE"},
      {"category 255 is not a command", T().Int(1).FuncVar(FnAny, 1), "\"1\""},
      // Command equivalents carry bit 15 in their own number: it is part of the lookup.
      {"bit 15 names another function", T().Int(1).Int(2).FuncVar(FnPair | 0x8000, 2), "#NAME?"},
      {"class V array result outside an array formula", square, "1"},
      {"class V array result in an array formula", square, "{1,2;3,4}", 0, 1},
      {"class R array result stays", T().Int(0).FuncVar(FnSquare, 1, R), "{1,2;3,4}"},
      {"fixed-count call keeps its array", T().Int(0).Func(FnSquare, V), "{1,2;3,4}"},
      {"abort", T().Str(u"held").Int(1).FuncVar(FnAbort, 0).Op(ptgAdd), "control 129 (aborted)"},
      {"abort inside a name", T().Str(u"held").Name(stop), "control 129 (aborted)"},
      // Spreading a scalar function over arrays.
      {"array and scalar", pair(Row({N(1), N(2), N(3)}), T().Int(5)), "{15,25,35}"},
      {"column by row", pair(Col({N(1), N(2)}), Row({N(1), N(2)})), "{11,12;21,22}"},
      {"a wider argument reads with the result's stride",
       pair(T().Array(2, 3, {N(1), N(2), N(3), N(4), N(5), N(6)}),
            T().Array(2, 2, {N(1), N(2), N(3), N(4)})),
       "{11,22;33,44}"},
      {"a one-column argument is read down its own column",
       pair(Col({N(1), N(2), N(3)}), T().Array(3, 2, {N(1), N(2), N(3), N(4), N(5), N(6)})),
       "{11,12;23,24;35,36}"},
      {"texts are copied into every call", pair(T().Str(u"4"), Row({Txt(u"1"), N(2)})), "{41,42}"},
      {"a one-by-one array is passed whole", pair(Row({N(7)}), T().Int(1)), "71"},
      {"error elements go to the handler", pair(Row({N(1), Er(ErrNA)}), T().Int(1)), "{11,#N/A}"},
      {"class R does not spread", Row({N(1), N(2)}).Append(Row({N(3)})).FuncVar(FnDescribeR, 2),
       "\"{1,2}|{3}\""},
      {"an area is reduced outside array formulas", pair(T().Area(0, 1, 0, 0), T().Int(3)), "23"},
      {"and spread inside them", pair(T().Area(0, 1, 0, 0), T().Int(3)), "{13;23}", 0, 1},
      // Calling a macro cell while no macro runs.
      {"call of a reference on a worksheet", callCell(T().Ref(0, 0, R)), "#REF!"},
      {"call of an error", callCell(T().Err(ErrDiv0)), "#DIV/0!"},
      {"call of a cell of a macro sheet", callCell(T().Ref3d(macro, 0, 0, R)), "FALSE"},
      {"call of a cell of another worksheet", callCell(T().Ref3d(second, 0, 0, R)), "#REF!"},
      {"any call from a macro sheet off its running cell", callCell(T().Err(ErrDiv0)), "FALSE", 2},
  };
  Expect(cases, 1, 4);
  // An array result in the block of an array formula takes the element of its cell.
  EXPECT_EQ(Run(square, At(0, 2, 2)), "4");
  EXPECT_EQ(Run(square, At(0, 1, 2)), "2");
}

TEST_F(EvaluatorTest, NamesLocalGlobalAndExternal) {
  for (uint8_t r = 0; r < 10; r++)
    for (uint8_t c = 0; c < 4; c++) Put(0, r, c, N(r * 10 + c));
  uint16_t rate = AddNamed(u"Rate", 0, &T().Int(2));
  uint16_t localRate = AddNamed(u"RATE", 2, &T().Int(3));  // on the sheet "Second"
  uint16_t empty = AddNamed(u"Nothing", 0, nullptr);
  uint16_t bareLocal = AddNamed(u"Fallback", 1, nullptr);
  AddNamed(u"fallback", 0, &T().Int(5));
  // One column to the left of the cell of use, written relative as a name stores it.
  uint16_t left = AddNamed(u"LeftCell", 0, &T().Ref(0, 255, R));
  uint16_t above = AddNamed(u"Above", 0, &T().RefN(-1, 0, R));
  uint16_t column = AddNamed(u"Column", 0, &T().Area(0, 9, 0, 0, R, false));
  uint16_t loop = static_cast<uint16_t>(GetWorkbook(book)->nameCount + 1);
  EXPECT_EQ(AddNamed(u"Loop", 0, &T().Name(loop).Int(1).Op(ptgAdd)), loop);
  uint16_t chain = AddNamed(u"Chain0", 0, &T().Int(7));
  for (int i = 1; i < 20; i++)
    chain = AddNamed(Utf8ToU16("Chain" + std::to_string(i)).c_str(), 0, &T().Name(chain));

  uint32_t other = 0;
  ASSERT_TRUE(CreateWorkbook(u"C:\\files\\Other.xls", 0, &other));
  Put(0, 0, 0, N(10), other);
  Put(0, 0, 1, N(20), other);
  LinkRequest ownSheet{other, other, 0, 0};
  int32_t otherLink;
  ASSERT_TRUE(FindOrAddLink(&ownSheet, &otherLink));
  AddNamed(u"Price", 0, &T().Int(7), other);
  AddNamed(u"Cells", 0, &T().Area3d(static_cast<uint16_t>(otherLink), 0, 0, 0, 1), other);
  uint16_t self = Link(0, 0), toOther = Link(0, 0, other);
  Workbook* wb = GetWorkbook(book);
  SetExternalNames(&wb->externalBooks[wb->sheetLinks[toOther].bookIndex],
                   {u"price", u"Cells", u"Missing"});
  uint16_t addIns = AddExternalBook(book, ExternalAddIn, {u"addpair", u"NoSuchAddIn"});
  uint16_t unused = AddExternalBook(book, ExternalUnused, {u"X"});
  uint16_t broken = AddExternalBook(book, ExternalSelf, {});
  GetWorkbook(book)->sheetLinks[broken].bookIndex = 99;

  std::vector<Case> cases = {
      {"global", T().Name(rate), "2"},
      {"a local one of the same text wins on its sheet", T().Name(rate), "3", 1},
      {"local with a formula, used elsewhere", T().Name(localRate), "3"},
      {"local without formula gives way to global", T().Name(bareLocal), "5"},
      {"no formula", T().Name(empty), "#NAME?"},
      {"index 0", T().Name(0), "#NAME?"},
      {"index beyond the names", T().Name(99), "#NAME?"},
      {"relative ref moves once", T().Name(left), "41"},
      {"offset ref moves once", T().Name(above), "32"},
      {"class R keeps the reference", T().Name(column, R), "ref A1:A10"},
      {"class V intersects", T().Name(column), "40"},
      {"class A makes an array", T().Name(left, A), "{41}"},
      {"defined through itself", T().Name(loop), "#NAME?"},
      {"a chain well inside the limit", T().Name(chain), "7"},
      // External names.
      {"this workbook", T().NameX(self, rate), "2"},
      {"this workbook, references not moved", T().NameX(self, left, R), "ref IV1"},
      {"this workbook, bad index", T().NameX(self, 77), "#NAME?"},
      {"other workbook", T().NameX(toOther, 1), "7"},
      {"other workbook, reference brought home", T().NameX(toOther, 2, R), "list B1S0 A1:B1"},
      {"other workbook, name not there", T().NameX(toOther, 3), "#NAME?"},
      {"other workbook, index beyond the list", T().NameX(toOther, 4), "#NAME?"},
      {"add-in function called", T().NameX(addIns, 1, R).Int(3).Str(u"4").FuncVar(255, 3), "34"},
      {"add-in not in the table", T().NameX(addIns, 2, R), "#NAME?"},
      {"unused kind", T().NameX(unused, 1), "#NAME?"},
      {"link out of range", T().NameX(999, 1), "#REF!"},
      {"link to a missing book entry", T().NameX(broken, 1), "#REF!"},
  };
  Expect(cases, 4, 2);
}

TEST_F(EvaluatorTest, OneArgumentSum) {
  Put(0, 0, 0, N(1));
  Put(0, 1, 0, TextValue(TextDuplicate(u"5")));
  Put(0, 2, 0, Bv(true));
  Put(0, 3, 0, N(2));
  Put(0, 60000, 0, N(100));
  Put(1, 0, 0, N(10));
  Put(1, 1, 0, N(20));
  Put(1, 5, 0, Er(ErrDiv0));
  uint16_t both = Link(0, 1), first = Link(0, 0);
  Expect({
      {"area skips texts and booleans", T().Area(0, 3, 0, 0).Sum(), "3"},
      {"whole column", T().Area(0, 65535, 0, 0).Sum(), "103"},
      {"array", Row({N(1), Txt(u"a"), Bv(true), N(2)}).Sum(), "3"},
      {"first error of an array", Row({N(1), Er(ErrNA), Er(ErrDiv0)}).Sum(), "#N/A"},
      {"over two sheets", T().Area3d(both, 0, 1, 0, 0).Sum(), "31"},
      {"error cell on the second sheet", T().Area3d(both, 0, 9, 0, 0).Sum(), "#DIV/0!"},
      {"list of two areas", T().Area3d(first, 0, 0, 0, 0).Area(3, 3, 0, 0).Op(ptgUnion).Sum(), "3"},
      {"text is coerced", T().Str(u"3").Sum(), "3"},
      {"blank stays blank", T().Missing().Sum(), "blank"},
  });
  Range a1{0, 0, 0, 0};
  Value unresolved, sum;
  ASSERT_TRUE(MakeRefList(&unresolved, &a1, 4242));
  EvalContext ctx = At();
  SumRefList(&unresolved, &sum, &ctx);
  EXPECT_EQ(Show(sum), "#REF!");
  FreeValue(&unresolved);
}

// Both entry points evaluate at A1 of the sheet given; only NameIsMacroCell asks for a macro sheet.
// A case expects "what EvaluateToReference gives|what NameIsMacroCell gives".
TEST_F(EvaluatorTest, EvaluateToReferenceAndNameIsMacroCell) {
  uint16_t second = Link(1, 1), macro = Link(2, 2);
  std::vector<Case> cases = {
      {"area", T().Area(1, 2, 0, 1), "S0 A2:B3|"},
      {"cell of another worksheet", T().Area3d(second, 4, 4, 2, 2), "S1 C5|"},
      {"first area of a list", T().Ref(5, 5, R).Ref(0, 0, R).Op(ptgUnion), "S0 F6|"},
      {"cell of the macro sheet", T().Ref3d(macro, 1, 1, R), "S2 B2|S2 B2"},
      {"plain reference used on the macro sheet", T().Ref(1, 1, R), "S2 B2|S2 B2", 2},
      {"not a reference", T().Int(1), "|", 2},
  };
  auto where = [](int found, const uint32_t& sheet, const Range& area) {
    return found ? "S" + std::to_string(sheet) + " " + AreaName(area) : std::string();
  };
  for (const Case& c : cases) {
    FormulaTokens f = c.tokens.Build();
    uint32_t outBook = 99, sheet = 99;
    Range area{};
    std::string got =
        where(EvaluateToReference(book, c.sheet, &f, &sheet, &area, 0, 0), sheet, area);
    int found = NameIsMacroCell(book, c.sheet, &f, &outBook, &sheet, &area) && outBook == book;
    EXPECT_EQ(got + "|" + where(found, sheet, area), c.expected) << c.what;
    FreeTokens(&f);
  }
}

}  // namespace
}  // namespace evaltest
