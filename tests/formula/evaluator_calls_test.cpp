// The evaluator's ways out of the main loop: function calls (frames, value-class reduction, the
// macro-command gate, array results, spreading over array arguments), names local and global,
// external names of every kind, the one-argument sum, and the entry points used by charts and
// macros.
#include <cstring>

#include "evaluator_fixture.h"
#include "model/hooks.h"

namespace evaltest {
namespace {

// Adds an external book of `kind` holding `names`, with a sheet link to it; gives the link.
int32_t AddExternalBook(uint32_t book, int32_t kind, std::initializer_list<const char16_t*> names) {
  Workbook* wb = GetWorkbook(book);
  uint32_t b = wb->externalBookCount, l = wb->sheetLinkCount;
  wb->externalBooks = static_cast<ExternalBook*>(
      Reallocate(wb->externalBooks, b * sizeof(ExternalBook), (b + 1) * sizeof(ExternalBook)));
  wb->sheetLinks = static_cast<SheetLink*>(
      Reallocate(wb->sheetLinks, l * sizeof(SheetLink), (l + 1) * sizeof(SheetLink)));
  ExternalBook* external = &wb->externalBooks[b];
  external->kind = kind;
  external->names = static_cast<ExternalName*>(Allocate(names.size() * sizeof(ExternalName)));
  for (const char16_t* n : names) external->names[external->nameCount++].text = TextDuplicate(n);
  wb->externalBookCount++;
  wb->sheetLinks[l] = SheetLink{static_cast<int16_t>(b), NoSheet, NoSheet};
  wb->sheetLinkCount++;
  return static_cast<int32_t>(l);
}

void ExpectCases(EvaluatorTest* test, const std::vector<Case>& cases, EvalContext ctx) {
  for (const Case& c : cases) EXPECT_EQ(test->Run(c.tokens, ctx), c.expected) << c.what;
}

TEST_F(EvaluatorTest, FunctionFramesAndValueArguments) {
  Put(0, 0, 0, NumberValue(1));
  Put(0, 1, 0, NumberValue(2));
  std::vector<Case> cases = {
      {"fixed count from the class letters", FuncT(T().Int(1).Int(2), FnPair), "12"},
      {"variable count, empty slots behind",
       FuncVarT(T().Int(1).Str(u"a").Bool(false), FnDescribeR, 3), "\"1|\"a\"|FALSE\""},
      {"class v argument reduced", FuncVarT(AreaT(T(), 0, 2, 0, 0, R), FnDescribeV, 1), "\"2\""},
      {"class R argument kept", FuncVarT(AreaT(T(), 0, 2, 0, 0, R), FnDescribeR, 1),
       "\"ref A1:A3\""},
      {"list argument reduced",
       FuncVarT(RefT(T(), 0, 0, R).Append(RefT(T(), 1, 0, R)).Op(ptgUnion), FnDescribeV, 1),
       "\"#VALUE!\""},
      {"unknown function pops its arguments",
       FuncVarT(FuncVarT(T().Int(5).Int(1).Int(2), 999, 2), FnDescribeR, 2), "\"5|#NAME?\""},
      {"macro command outside a running macro", FuncVarT(T().Int(1), FnCommand, 1), "FALSE"},
      {"category 255 is not a command", FuncVarT(T().Int(1), FnAnyCategory, 1), "99"},
      // Command equivalents carry bit 15 in their own number: it is part of the lookup.
      {"bit 15 names another function", FuncVarT(T().Int(1).Int(2), FnPair | 0x8000, 2), "#NAME?"},
      {"class V array result outside an array formula", FuncVarT(T().Int(0), FnSquare, 1, V), "1"},
      {"class R array result stays", FuncVarT(T().Int(0), FnSquare, 1, R), "{1,2;3,4}"},
      {"fixed-count call keeps its array", FuncT(T().Int(0), FnSquare, V), "{1,2;3,4}"},
  };
  ExpectCases(this, cases, At(0, 1, 4));
  EXPECT_EQ(commandCalls, 0);
  // In an array formula the value argument becomes the area's array, which the call spreads
  // over, and the array result stays whole.
  EXPECT_EQ(Run(FuncVarT(AreaT(T(), 0, 1, 0, 0, R), FnDescribeV, 1), At(0, 1, 4, 1)),
            "{\"1\";\"2\"}");
  EXPECT_EQ(Run(FuncVarT(T().Int(0), FnSquare, 1, V), At(0, 0, 0, 1)), "{1,2;3,4}");
}

TEST_F(EvaluatorTest, ArrayResultTakesTheElementOfItsBlock) {
  Sheet* s = GetSheet(book, 0);
  s->arrayFormulas = static_cast<ArrayFormula*>(Allocate(sizeof(ArrayFormula)));
  s->arrayFormulas[0].range = Range{1, 2, 1, 2};  // B2:C3
  s->arrayFormulaCount = 1;
  EXPECT_EQ(Run(FuncVarT(T().Int(0), FnSquare, 1, V), At(0, 2, 2)), "4");
  EXPECT_EQ(Run(FuncVarT(T().Int(0), FnSquare, 1, V), At(0, 1, 2)), "2");
}

TEST_F(EvaluatorTest, AbortFromAFunctionUnwindsTheEvaluation) {
  EXPECT_EQ(Run(FuncVarT(T().Str(u"held").Int(1), FnAbort, 0).Op(ptgAdd)), "control 129");
  EXPECT_EQ(lastStatus, 0);
  uint16_t stop = AddNamed(u"Stop", 0, &FuncVarT(T(), FnAbort, 0));
  EXPECT_EQ(Run(NameT(T().Str(u"held"), stop, V)), "control 129");
  EXPECT_EQ(lastStatus, 0);
}

TEST_F(EvaluatorTest, SpreadingAScalarFunctionOverArrays) {
  Put(0, 0, 0, NumberValue(1));
  Put(0, 1, 0, NumberValue(2));
  // Reference-class calls, so that the spread result is seen whole.
  auto pair = [](TokenBuilder a, TokenBuilder b) { return FuncVarT(a.Append(b), FnPair, 2, R); };
  auto row = [](std::initializer_list<Value> v) {
    return T().Array(1, static_cast<uint8_t>(v.size()), v);
  };
  auto column = [](std::initializer_list<Value> v) {
    return T().Array(static_cast<uint8_t>(v.size()), 1, v);
  };
  Value n1 = NumberValue(1), n2 = NumberValue(2), n3 = NumberValue(3), n4 = NumberValue(4),
        n5 = NumberValue(5), n6 = NumberValue(6);
  std::vector<Case> cases = {
      {"array and scalar", pair(row({n1, n2, n3}), T().Int(5)), "{15,25,35}"},
      {"column by row", pair(column({n1, n2}), row({n1, n2})), "{11,12;21,22}"},
      {"the smaller width wins", pair(row({n1, n2, n3}), row({n1, n2})), "{11,22}"},
      {"a wider argument is read with the result's stride",
       pair(T().Array(2, 3, {n1, n2, n3, n4, n5, n6}), T().Array(2, 2, {n1, n2, n3, n4})),
       "{11,22;33,44}"},
      {"a one-column argument is read down its own column",
       pair(column({n1, n2, n3}), T().Array(3, 2, {n1, n2, n3, n4, n5, n6})),
       "{11,12;23,24;35,36}"},
      {"a one-by-one array is passed whole", pair(row({NumberValue(7)}), T().Int(1)), "71"},
      {"error elements go to the handler", pair(row({n1, ErrorValue(ErrNA)}), T().Int(1)),
       "{11,#N/A}"},
      {"reference letters do not spread", FuncVarT(row({n1, n2}).Append(row({n3})), FnSum, 2), "6"},
  };
  ExpectCases(this, cases, At());
  // An area is reduced to one cell outside array formulas and spread inside them.
  TokenBuilder area = pair(AreaT(T(), 0, 1, 0, 0, R), T().Int(3));
  EXPECT_EQ(Run(area, At(0, 1, 3)), "23");
  EXPECT_EQ(Run(area, At(0, 1, 3, 1)), "{13;23}");
}

TEST_F(EvaluatorTest, CallFunctionReleasesItsArguments) {
  Value frame[FunctionFrameSize] = {};
  frame[0] = TextValue(TextDuplicate(u"4"));
  MakeArray(&frame[1], 1, 2);
  frame[1].elements[0] = TextValue(TextDuplicate(u"1"));
  frame[1].elements[1] = NumberValue(2);
  Value result;
  EvalContext ctx = At();
  CallFunction(frame, 2, &result, PairHandler, "VV", &ctx, FunctionFrameSize);
  EXPECT_EQ(Show(result), "{41,42}");
  FreeValue(&result);
}

TEST_F(EvaluatorTest, NamesLocalAndGlobal) {
  TokenBuilder two = T().Int(2), three = T().Int(3), five = T().Int(5);
  uint16_t rate = AddNamed(u"Rate", 0, &two);
  uint16_t localRate = AddNamed(u"RATE", 2, &three);  // on the sheet "Second"
  uint16_t empty = AddNamed(u"Nothing", 0, nullptr);
  uint16_t bareLocal = AddNamed(u"Fallback", 1, nullptr);
  AddNamed(u"fallback", 0, &five);
  struct {
    uint16_t index;
    uint32_t sheet;
    const char* expected;
  } cases[] = {
      {rate, 0, "2"},      {rate, 1, "3"},       {rate, 2, "2"},   {localRate, 0, "3"},
      {bareLocal, 0, "5"}, {empty, 0, "#NAME?"}, {0, 0, "#NAME?"}, {99, 0, "#NAME?"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Run(NameT(T(), c.index, V), At(c.sheet)), c.expected) << c.index << " on " << c.sheet;
}

TEST_F(EvaluatorTest, NameReferencesAndClasses) {
  for (uint8_t r = 0; r < 10; r++)
    for (uint8_t c = 0; c < 4; c++) Put(0, r, c, NumberValue(r * 10 + c));
  // One column to the left of the cell of use, written relative as a name stores it.
  TokenBuilder left = T().Ref(0, 255, R, true, true);
  uint16_t leftName = AddNamed(u"LeftCell", 0, &left);
  TokenBuilder above = RefNT(T(), -1, 0, R);
  uint16_t aboveName = AddNamed(u"Above", 0, &above);
  TokenBuilder column = AreaT(T(), 0, 9, 0, 0, R);
  uint16_t columnName = AddNamed(u"Column", 0, &column);
  std::vector<Case> cases = {
      {"relative ref moves once", NameT(T(), leftName, V), "41"},
      {"offset ref moves once", NameT(T(), aboveName, V), "32"},
      {"class R keeps the reference", NameT(T(), columnName, R), "ref A1:A10"},
      {"class V intersects", NameT(T(), columnName, V), "40"},
      {"class A makes an array", NameT(T(), leftName, A), "{41}"},
  };
  ExpectCases(this, cases, At(0, 4, 2));
}

TEST_F(EvaluatorTest, NamesDefinedThroughThemselvesStopWithAnError) {
  uint16_t next = static_cast<uint16_t>(GetWorkbook(book)->nameCount + 1);
  TokenBuilder loop = NameT(T(), next, V).Int(1).Op(ptgAdd);
  EXPECT_EQ(AddNamed(u"Loop", 0, &loop), next);
  TokenBuilder ping = NameT(T(), static_cast<uint16_t>(next + 2), V);
  TokenBuilder pong = NameT(T(), static_cast<uint16_t>(next + 1), V);
  AddNamed(u"Ping", 0, &ping);
  AddNamed(u"Pong", 0, &pong);
  EXPECT_EQ(Run(NameT(T(), next, V)), "#NAME?");
  EXPECT_EQ(Run(NameT(T(), static_cast<uint16_t>(next + 1), V)), "#NAME?");
  // A chain of names well inside the limit still works.
  TokenBuilder seven = T().Int(7);
  uint16_t previous = AddNamed(u"Chain0", 0, &seven);
  for (int i = 1; i < 20; i++) {
    TokenBuilder link = NameT(T(), previous, V);
    previous = AddNamed(Utf8ToU16("Chain" + std::to_string(i)).c_str(), 0, &link);
  }
  EXPECT_EQ(Run(NameT(T(), previous, V)), "7");
}

TEST_F(EvaluatorTest, ExternalNamesOfEveryKind) {
  Put(0, 0, 0, NumberValue(9));
  TokenBuilder two = T().Int(2);
  uint16_t rate = AddNamed(u"Rate", 0, &two);
  TokenBuilder left = T().Ref(0, 255, R, true, true);
  uint16_t leftName = AddNamed(u"LeftCell", 0, &left);

  uint32_t other = 0;
  ASSERT_TRUE(CreateWorkbook(u"C:\\files\\Other.xls", 0, &other));
  Put(0, 0, 0, NumberValue(10), other);
  Put(0, 0, 1, NumberValue(20), other);
  LinkRequest ownSheet{other, other, 0, 0};
  int32_t otherLink;
  ASSERT_TRUE(FindOrAddLink(&ownSheet, &otherLink));
  TokenBuilder price = T().Int(7);
  TokenBuilder cells = Area3dT(T(), static_cast<uint16_t>(otherLink), 0, 0, 0, 1, R);
  AddNamed(u"Price", 0, &price, other);
  AddNamed(u"Cells", 0, &cells, other);

  int32_t self = Link(0, 0);
  int32_t toOther = Link(0, 0, other);
  ExternalBook* external =
      &GetWorkbook(book)->externalBooks[GetWorkbook(book)->sheetLinks[toOther].bookIndex];
  external->names = static_cast<ExternalName*>(Allocate(3 * sizeof(ExternalName)));
  for (const char16_t* n : {u"price", u"Cells", u"Missing"})
    external->names[external->nameCount++].text = TextDuplicate(n);
  int32_t addIns = AddExternalBook(book, ExternalAddIn, {u"addtwo", u"NoSuchAddIn"});
  int32_t unused = AddExternalBook(book, ExternalUnused, {u"X"});
  int32_t brokenLink = AddExternalBook(book, ExternalSelf, {});
  GetWorkbook(book)->sheetLinks[brokenLink].bookIndex = 99;

  auto nameX = [](int32_t link, uint16_t index, uint8_t cls = V) {
    return NameXT(T(), static_cast<uint16_t>(link), index, cls);
  };
  std::vector<Case> cases = {
      {"this workbook", nameX(self, rate), "2"},
      {"this workbook, references not moved", nameX(self, leftName, R), "ref IV1"},
      {"this workbook, bad index", nameX(self, 77), "#NAME?"},
      {"other workbook", nameX(toOther, 1), "7"},
      {"other workbook, reference brought home", nameX(toOther, 2, R), "list B1S0 A1:B1"},
      {"other workbook, summed", nameX(toOther, 2, R).Sum(), "30"},
      {"other workbook, name not there", nameX(toOther, 3), "#NAME?"},
      {"other workbook, index beyond the list", nameX(toOther, 4), "#NAME?"},
      {"add-in function called", FuncVarT(nameX(addIns, 1, R).Int(3).Str(u"4"), 255, 3), "7"},
      {"add-in not in the table", nameX(addIns, 2, R), "#NAME?"},
      {"unused kind", nameX(unused, 1), "#NAME?"},
      {"link out of range", nameX(999, 1), "#REF!"},
      {"link to a missing book entry", nameX(brokenLink, 1), "#REF!"},
  };
  ExpectCases(this, cases, At(0, 4, 2));
}

TEST_F(EvaluatorTest, CallingAMacroCellWithoutAMacroRunning) {
  int32_t macro = Link(2, 2), second = Link(1, 1);
  auto call = [](TokenBuilder first) { return FuncVarT(first.Int(1), 255, 2); };
  std::vector<Case> cases = {
      {"reference on a worksheet", call(RefT(T(), 0, 0, R)), "#REF!"},
      {"error", call(T().Err(ErrDiv0)), "#DIV/0!"},
      {"number", call(T().Int(3)), "#REF!"},
      {"cell of a macro sheet", call(Ref3dT(T(), static_cast<uint16_t>(macro), 0, 0, R)), "FALSE"},
      {"cell of another worksheet", call(Ref3dT(T(), static_cast<uint16_t>(second), 0, 0, R)),
       "#REF!"},
  };
  ExpectCases(this, cases, At(0));
  // From a macro sheet that is not at its running cell, the call gives FALSE whatever it names.
  EXPECT_EQ(Run(call(T().Err(ErrDiv0)), At(2)), "FALSE");
}

TEST_F(EvaluatorTest, OneArgumentSum) {
  Put(0, 0, 0, NumberValue(1));
  PutText(0, 1, 0, u"5");
  Put(0, 2, 0, BooleanValue(true));
  Put(0, 3, 0, NumberValue(2));
  Put(0, 60000, 0, NumberValue(100));
  Put(1, 0, 0, NumberValue(10));
  Put(1, 1, 0, NumberValue(20));
  Put(1, 5, 0, ErrorValue(ErrDiv0));
  int32_t both = Link(0, 1), first = Link(0, 0);
  std::vector<Case> cases = {
      {"area skips texts and booleans", AreaT(T(), 0, 3, 0, 0, R).Sum(), "3"},
      {"whole column", AreaT(T(), 0, 65535, 0, 0, R).Sum(), "103"},
      {"array",
       T().Array(1, 4, {NumberValue(1), Txt(u"a"), BooleanValue(true), NumberValue(2)}).Sum(), "3"},
      {"first error of an array",
       T().Array(1, 3, {NumberValue(1), ErrorValue(ErrNA), ErrorValue(ErrDiv0)}).Sum(), "#N/A"},
      {"over two sheets", Area3dT(T(), static_cast<uint16_t>(both), 0, 1, 0, 0, R).Sum(), "31"},
      {"error cell on the second sheet",
       Area3dT(T(), static_cast<uint16_t>(both), 0, 9, 0, 0, R).Sum(), "#DIV/0!"},
      {"list of two areas",
       Area3dT(T(), static_cast<uint16_t>(first), 0, 0, 0, 0, R)
           .Append(AreaT(T(), 3, 3, 0, 0, R))
           .Op(ptgUnion)
           .Sum(),
       "3"},
      {"text is coerced", T().Str(u"3").Sum(), "3"},
      {"boolean is coerced", T().Bool(true).Sum(), "1"},
      {"text that is no number", T().Str(u"x").Sum(), "#VALUE!"},
      {"blank stays blank", T().Missing().Sum(), "blank"},
      {"error stays", T().Err(ErrNull).Sum(), "#NULL!"},
      {"the variadic handler walks lists the same way",
       FuncVarT(Area3dT(T(), static_cast<uint16_t>(both), 0, 1, 0, 0, R).Int(1), FnSum, 2), "32"},
  };
  ExpectCases(this, cases, At());
  Range a1{0, 0, 0, 0};
  Value unresolved, sum;
  ASSERT_TRUE(MakeRefList(&unresolved, &a1, 4242));
  EvalContext ctx = At();
  SumRefList(&unresolved, &sum, &ctx);
  EXPECT_EQ(Show(sum), "#REF!");
  FreeValue(&unresolved);
}

TEST_F(EvaluatorTest, EvaluateToReferenceAndNameIsMacroCell) {
  int32_t second = Link(1, 1), macro = Link(2, 2);
  struct {
    const char* what;
    TokenBuilder tokens;
    int found;
    uint32_t sheet;
    std::string area;
  } references[] = {
      {"area", AreaT(T(), 1, 2, 0, 1, R), 1, 0, "A2:B3"},
      {"other sheet", Area3dT(T(), static_cast<uint16_t>(second), 4, 4, 2, 2, R), 1, 1, "C5"},
      {"first area of a list", RefT(T(), 5, 5, R).Append(RefT(T(), 0, 0, R)).Op(ptgUnion), 1, 0,
       "F6"},
      {"number", T().Int(1), 0, 0, ""},
  };
  for (const auto& c : references) {
    FormulaTokens f = c.tokens.Build();
    uint32_t sheet = 99;
    Range range{};
    EXPECT_EQ(EvaluateToReference(book, 0, &f, &sheet, &range, 0, 0), c.found) << c.what;
    if (c.found) {
      EXPECT_EQ(sheet, c.sheet) << c.what;
      EXPECT_EQ(AreaName(range), c.area) << c.what;
    }
    FreeTokens(&f);
  }

  struct {
    const char* what;
    TokenBuilder tokens;
    uint32_t sheet;
    int expected;
  } macros[] = {
      {"cell of the macro sheet", Ref3dT(T(), static_cast<uint16_t>(macro), 1, 1, R), 0, 1},
      {"cell of a worksheet", Ref3dT(T(), static_cast<uint16_t>(second), 1, 1, R), 0, 0},
      {"plain reference used on the macro sheet", RefT(T(), 1, 1, R), 2, 1},
      {"not a reference", T().Int(1), 2, 0},
  };
  for (const auto& c : macros) {
    FormulaTokens f = c.tokens.Build();
    uint32_t outBook = 99, outSheet = 99;
    Range range{};
    EXPECT_EQ(NameIsMacroCell(book, c.sheet, &f, &outBook, &outSheet, &range), c.expected)
        << c.what;
    if (c.expected) {
      EXPECT_EQ(outBook, book);
      EXPECT_EQ(outSheet, 2u);
      EXPECT_EQ(AreaName(range), "B2");
    }
    FreeTokens(&f);
  }
}

}  // namespace
}  // namespace evaltest
