// The formula parser against hand-assembled token strings, for what printing the tokens back in
// the round-trip tests cannot show: order and precedence, the class of each reference, the jumps
// of SI and CHOISIR and the volatile mark, constant arrays, names and what calls by name create,
// relative mode, what the scan refuses, the budgets, lost memory, and jumps run end to end.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "evaluator_fixture.h"
#include "format/locale.h"
#include "formula/evaluator.h"
#include "formula/parser.h"
#include "model/names.h"
#include "model/workbook.h"
#include "token_builder.h"

namespace {

constexpr uint8_t R = ClassReference, V = ClassValue, A = ClassArray;
// Function numbers of the built-in table.
enum : uint16_t { Somme = 4, Abs = 24, Alea = 63, Maintenant = 74 };

TokenBuilder T() {
  return TokenBuilder{};
}
uint8_t WithClass(uint8_t ptg, uint8_t cls) {
  return static_cast<uint8_t>((ptg & 0x1F) | cls);
}
Value Txt(const char16_t* s) {
  return TextValue(const_cast<char16_t*>(s));
}

// A constant array as the parser writes it: a text is 8-bit unless a character needs 16 bits,
// laid out as the string token's count, flag and characters.
TokenBuilder ArrayOf(uint8_t rows, uint8_t columns, std::initializer_list<Value> elements,
                     uint8_t cls = V) {
  TokenBuilder t = T().Array(rows, columns, {}, cls);
  for (const Value& v : elements) {
    TokenBuilder one = v.tag == ValueText ? T().Str(v.text) : T().Array(1, 1, {v});
    if (v.tag == ValueText) t.extra.insert(t.extra.end(), {ValueText, one.bytes[1], 0});
    const std::vector<uint8_t>& from = v.tag == ValueText ? one.bytes : one.extra;
    t.extra.insert(t.extra.end(), from.begin() + (v.tag == ValueText ? 2 : 3), from.end());
  }
  return t;
}

std::string Hex(const FormulaTokens& t) {
  std::string s;
  char b[4];
  for (uint32_t i = 0; i < static_cast<uint32_t>(t.length) + t.extraLength; i++) {
    if (i == t.length) s += "| ";
    std::snprintf(b, sizeof b, "%02X ", t.bytes[i]);
    s += b;
  }
  return s;
}

struct ParserTest : testing::Test {
  uint32_t book = 0;
  ParseContext ctx{};

  void SetUp() override {
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(u"Classeur.xls", 0, &book));
    TextCopy(GetSheet(book, 0)->name, SheetNameCapacity, u"Feuil1");
    ASSERT_TRUE(InsertSheet(book, 1, u"Feuil2", SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 2, u"Feuil3", SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 3, u"Macro1", SheetMacro, 0, 0));
    ctx = ParseContext{book, 0, 1, 0, 0, 0, 0};
  }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    CloseAllWorkbooks();
    ApplyLocale(LocaleFrench);
  }

  // The bytes as hex, tokens then "|" and extra data; or the status when it is not CompileOk.
  std::string Compile(const std::u16string& text, ClassCode root = ClassCodeValue) {
    FormulaTokens t{};
    CompileStatus status = CompileFormula(&ctx, text.c_str(), root, &t);
    std::string s = status == CompileOk ? Hex(t) : "status " + std::to_string(status);
    if (status != CompileOk && t.bytes) s += " with tokens left";
    FreeTokens(&t);
    return s;
  }
  void Expect(const std::vector<std::pair<const char16_t*, TokenBuilder>>& cases,
              ClassCode root = ClassCodeValue) {
    for (const auto& [text, tokens] : cases) {
      FormulaTokens want = tokens.Build();
      EXPECT_EQ(Compile(text, root), Hex(want)) << TextToUtf8(text);
      FreeTokens(&want);
    }
  }
  std::string Run(const std::u16string& text) {
    FormulaTokens t{};
    if (CompileFormula(&ctx, text.c_str(), ClassCodeValue, &t) != CompileOk) return "not compiled";
    EvalContext at{book, 0, 0, 0, 0};
    Value v;
    Evaluate(&t, &v, &at);
    std::string s = evaltest::Show(v, book);
    FreeValue(&v);
    FreeTokens(&t);
    return s;
  }
  const Workbook* Book() const { return GetWorkbook(book); }
};

// Wrong tokens for these would still print back as the same text: the order, the classes, the
// choice of integer or number and of 8-bit or 16-bit strings are seen only here.
TEST_F(ParserTest, OperatorsPrecedenceAndConstants) {
  Expect({
      {u"=1-2-3", T().Int(1).Int(2).Op(ptgSub).Int(3).Op(ptgSub)},
      {u"=2^3^2", T().Int(2).Int(3).Op(ptgPower).Int(2).Op(ptgPower)},
      {u"=-2^2", T().Num(-2).Int(2).Op(ptgPower)},
      {u"=-A1^2", T().Ref(0, 0).Op(ptgUminus).Int(2).Op(ptgPower)},
      {u"=--1", T().Num(-1).Op(ptgUminus)},
      {u"=1&2=3", T().Int(1).Int(2).Op(ptgConcat).Int(3).Op(ptgEQ)},
      {u"=1+2*3^2-1",
       T().Int(1).Int(2).Int(3).Int(2).Op(ptgPower).Op(ptgMul).Op(ptgAdd).Int(1).Op(ptgSub)},
      {u"=50% ", T().Int(50).Op(ptgPercent)},
      {u"=SOMME(50% ;1)", T().Int(50).Op(ptgPercent).Int(1).FuncVar(Somme, 2)},
      {u"=-A1%", T().Ref(0, 0).Op(ptgUminus).Op(ptgPercent)},
      {u"=1 2", T().Int(1).Int(2).Op(ptgIsect)},
      {u"=A1 B1", T().Ref(0, 0, R).Ref(0, 1, R).Op(ptgIsect)},
      {u"=A1 + B1", T().Ref(0, 0).Ref(0, 1).Op(ptgAdd)},
      {u"=A1:B1 C1", T().Area(0, 0, 0, 1, R).Ref(0, 2, R).Op(ptgIsect)},
      {u"=65535", T().Int(65535)},
      {u"=65536", T().Num(65536)},
      {u"=,5", T().Num(0.5)},
      {u"=2 E -1", T().Num(0.2)},
      {u"=\"\u00e9t\u00e9\"", T().Str(u"\u00e9t\u00e9")},
      {u"=\"abc", T().Str(u"ab")},
      {u"=faux", T().Bool(false)},
      {u"=#n/a", T().Err(ErrNA)},
      {u"=#NULL! +1", T().Err(ErrNull).Int(1).Op(ptgAdd)},
  });
}

// A reference's class follows what the context welcomes and what stands behind it.
TEST_F(ParserTest, ReferenceFormsAndClasses) {
  Expect({
      {u"=A1", T().Ref(0, 0)},
      {u"=A1:nom", T().Ref(0, 0, R).Name(1, R).Op(ptgRange)},
      {u"=A1 :B1", T().Ref(0, 0).Ref(0, 1, R).Op(ptgRange)},
      {u"=SOMME(A1 :B1)", T().Ref(0, 0, R).Ref(0, 1, R).Op(ptgRange).Sum()},
      {u"=SOMME(A1;B1)", T().Ref(0, 0, R).Ref(0, 1, R).FuncVar(Somme, 2)},
      {u"=SOMME(A1)", T().Ref(0, 0, R).Sum()},
      {u"=SOMME(A1+1)", T().Ref(0, 0).Int(1).Op(ptgAdd).Sum()},
      {u"=SOMME((A1;B1))", T().Ref(0, 0, R).Ref(0, 1, R).Op(ptgUnion).Op(ptgParen).Sum()},
      {u"=SOMME(ABS(A1:B2))", T().Area(0, 1, 0, 1, V).Func(Abs).Sum()},
      {u"=ABS(A1)", T().Ref(0, 0).Func(Abs)},
      {u"=N(A1)", T().Ref(0, 0, R).Func(131)},
      {u"=LIGNES(A1:B2)", T().Area(0, 1, 0, 1, R).Func(76)},
      {u"=LIGNE()", T().FuncVar(8, 0)},
      {u"=COLONNE()+1", T().FuncVar(9, 0).Int(1).Op(ptgAdd)},
      {u"=LIGNE(B3)", T().Ref(2, 1, R).FuncVar(8, 1)},
      {u"=INDEX(A1:B2;1)", T().Area(0, 1, 0, 1, R).Int(1).FuncVar(29, 2)},
      {u"=SOMME(INDEX(A1:B2;1))", T().Area(0, 1, 0, 1, R).Int(1).FuncVar(29, 2, R).Sum()},
      {u"=SOMME({1\\2})", ArrayOf(1, 2, {NumberValue(1), NumberValue(2)}, A).Sum()},
  });
  // Where a reference result is asked for, a lone reference keeps it.
  Expect({{u"=A1", T().Ref(0, 0, R)}, {u"=A1+1", T().Ref(0, 0).Int(1).Op(ptgAdd)}},
         ClassCodeReference);
  ctx.arrayFormula = 1;
  Expect({
      {u"=SOMME(ABS(A1:B2))", T().Area(0, 1, 0, 1, A).Func(Abs, A).Sum()},
      {u"=SOMME(A1:B2*2)", T().Area(0, 1, 0, 1, A).Int(2).Op(ptgMul).Sum()},
  });
}

// The printed forms of sheet and book references are checked by the round-trip tests; the class
// and the offsets of relative mode are not visible there.
TEST_F(ParserTest, ReferencesToOtherSheetsAndRelativeMode) {
  Expect({{u"=SOMME(Feuil2!$A$1)", T().Ref3d(0, 0, 0, R).Sum()}});  // sheet link 0
  // Relative mode stores offsets from the active cell.
  GetSheet(book, 0)->activeRow = 2;
  GetSheet(book, 0)->activeCol = 1;
  ctx.relativeMode = 1;
  Expect({
      {u"=A1", T().RefN(-2, -1)},
      {u"=$A$1", T().Ref(0, 0, V, false, false)},
      {u"=A$1", T().Operand(ptgRefN, V).Word(0).Byte(0xFF).Byte(0x40)},
      {u"=A1:B4",
       T().Operand(ptgAreaN, V).Word(0xFFFE).Word(1).Byte(0xFF).Byte(0xC0).Byte(0).Byte(0xC0)},
      {u"=Feuil2!A1", T().Operand(ptgRef3d, V).Word(0).Word(0).Byte(0).Byte(0xC0)},
  });
}

// A reference into a deleted sheet reads back onto a link to that sheet; "#REF!" alone stays the
// error.
TEST_F(ParserTest, ReferencesIntoADeletedSheet) {
  Expect({
      {u"=#REF!A257", T().Operand(ptgRef3d, V).Word(0).Word(256).Byte(0).Byte(0xC0)},
      {u"=SOMME(#ref!$B$2:C3)",
       T().Operand(ptgArea3d, R).Word(0).Word(1).Word(2).Byte(1).Byte(0).Byte(2).Byte(0xC0).Sum()},
      {u"=#REF!+1", T().Err(ErrRef).Int(1).Op(ptgAdd)},
  });
  ASSERT_EQ(Book()->sheetLinkCount, 1u);
  EXPECT_EQ(Book()->sheetLinks[0].firstSheet, DeletedSheet);
  EXPECT_EQ(Book()->sheetLinks[0].lastSheet, DeletedSheet);
}

TEST_F(ParserTest, JumpsOfSiAndChoisirAndTheVolatileMark) {
  TokenBuilder a1 = T().Ref(0, 0), b1 = T().Ref(0, 1, R), c1 = T().Ref(0, 2, R);
  TokenBuilder two = T().Int(2), x = T().Str(u"x");
  // Where a reference is welcome, SI keeps the reference class.
  TokenBuilder inner = T().If(T().Ref(0, 1), T().Int(1), &two);
  inner.bytes[inner.bytes.size() - 4] = WithClass(ptgFuncVar, R);
  TokenBuilder summed = T().If(a1, b1);
  summed.bytes[summed.bytes.size() - 4] = WithClass(ptgFuncVar, R);
  Expect({
      {u"=SI(A1;1)", T().If(a1, T().Int(1))},
      {u"=SI(A1;B1;C1)", T().If(a1, b1, &c1)},
      {u"=SI(A1;SI(B1;1;2);\"x\")", T().If(a1, inner, &x)},
      {u"=CHOISIR(A1;B1;2;\"trois\")",
       T().Choose(a1, {T().Ref(0, 1, R), T().Int(2), T().Str(u"trois")})},
      {u"=CHOISIR(A1;B1;)", T().Choose(a1, {T().Ref(0, 1, R), T().Missing()})},
      {u"=SOMME(SI(A1;B1))", summed.Sum()},
  });
  TokenBuilder marked = T().Attr(AttrVolatile);
  Expect({
      {u"=ALEA()", TokenBuilder(marked).Func(Alea)},
      {u"=1+MAINTENANT()", TokenBuilder(marked).Int(1).Func(Maintenant).Op(ptgAdd)},
      {u"=DECALER(A1;1;1)", TokenBuilder(marked).Ref(0, 0, R).Int(1).Int(1).FuncVar(78, 3)},
      {u"=PI()", T().Func(19)},
  });
}

TEST_F(ParserTest, ConstantArrays) {
  Expect({
      {u"={ vrai \\ #N/A ;\"a\"\"b\"\\ -1,5 }",
       ArrayOf(2, 2, {BooleanValue(true), ErrorValue(ErrNA), Txt(u"a\"\"b"), NumberValue(-1.5)})},
      {u"={A1\\\"\u03a9;\"}", ArrayOf(1, 2, {Txt(u"A1"), Txt(u"\u03a9;")})},
      {u"={1}+{2}",
       ArrayOf(1, 1, {NumberValue(1)}).Append(ArrayOf(1, 1, {NumberValue(2)})).Op(ptgAdd)},
  });
}

// Unknown names are created undefined; links and external names are made as the text asks.
TEST_F(ParserTest, NamesAndCallsByName) {
  DefinedName rate{};
  rate.name = TextDuplicate(u"taux");
  ASSERT_TRUE(AddName(book, &rate, nullptr));  // index 1
  Expect({
      {u"=TAUX*2", T().Name(1).Int(2).Op(ptgMul)},
      {u"=nom+NOM", T().Name(2).Name(2).Op(ptgAdd)},
      {u"=ABS (1)", T().Name(3, R).Int(1).Op(ptgParen).Op(ptgIsect)},
      {u"=Feuil1!nom", T().NameX(0, 4)},         // self book 0, link 0
      {u"=!ext", T().NameX(1, 1)},               // unused-kind book 1, link 1
      {u"=[b.xls]Feuil2!ext", T().NameX(2, 1)},  // book 2, link 2
      {u"=ALEA.ENTRE.BORNES(1;6)", T().NameX(3, 1, R).Int(1).Int(6).FuncVar(255, 3)},
      {u"=mafonction(A1;)", T().Name(5, R).Ref(0, 0, R).Missing().FuncVar(255, 3)},
      {u"=A1(2)", T().Ref(0, 0, R).Int(2).FuncVar(255, 2)},
  });
  const Workbook* wb = Book();
  ASSERT_EQ(wb->nameCount, 5u);
  EXPECT_EQ(std::u16string(wb->names[2].name), u"ABS");
  EXPECT_TRUE(wb->names[3].localSheet == 1 && !wb->names[3].formula.bytes);
  ASSERT_EQ(wb->externalBookCount, 4u);
  std::string kinds;
  for (uint32_t i = 0; i < 4; i++) kinds += std::to_string(wb->externalBooks[i].kind);
  EXPECT_EQ(kinds, "1302");  // this book, "!", b.xls, add-ins
  ASSERT_EQ(wb->externalBooks[2].nameCount, 1u);
  EXPECT_EQ(wb->externalBooks[2].names[0].field, 1);  // under the book's first sheet name
  EXPECT_EQ(std::u16string(wb->externalBooks[3].names[0].text), u"ALEA.ENTRE.BORNES");
  EXPECT_EQ(wb->sheetLinkCount, 4u);
  EXPECT_EQ(wb->sheetLinks[3].firstSheet, NoSheet);
}

TEST_F(ParserTest, SyntaxErrors) {
  const char16_t* refused[] = {
      u"",         u"=",      u"=1+",        u"=SOMME(1;", u"=(1",      u"=()",        u"={1;2\\3}",
      u"={}",      u"={1\\}", u"=R2D2",      u"=1)",       u"=SOMME()", u"=ABS(1;2)",  u"=ABS(+)",
      u"=ABS(1+)", u"=1,",    u"=1E",        u"=1E400",    u"=- 1",     u"=( 1)",      u"=(-A1;B1)",
      u"=1;2",     u"=A1,B1", u"=ARRETER()", u"=#N/A 1",   u"={\"a}",   u"=SOMME(1 2", u"=1%%*",
  };
  for (const char16_t* text : refused) {
    EXPECT_EQ(Compile(text), "status 0") << TextToUtf8(text);
    EXPECT_FALSE(IsFormulaText(&ctx, text)) << TextToUtf8(text);
  }
  EXPECT_TRUE(IsFormulaText(&ctx, u"1+2"));
  EXPECT_TRUE(IsFormulaText(&ctx, u"=SOMME(1 )"));
  // Macro functions are for macro sheets; an empty call of one with an optional argument passes
  // one missing argument.
  ctx.sheet = 3;
  Expect({{u"=ARRETER()", T().Missing().FuncVar(54, 1)}});
}

TEST_F(ParserTest, FormatHintOfTheFirstFunction) {
  auto hint = [&](const char16_t* text) {
    int32_t hint = -1, length = static_cast<int32_t>(TextLength(text));
    EXPECT_EQ(ScanExpression(&ctx, text, 0, length, 0, &hint), length) << TextToUtf8(text);
    return hint;
  };
  EXPECT_EQ(hint(u"=1+2"), -1);
  EXPECT_EQ(hint(u"=TAUX(1;2;3)"), 9);
  EXPECT_EQ(hint(u"=SOMME(TAUX(1;2;3))"), 9);
  EXPECT_EQ(hint(u"=ABS(TAUX(1;2;3))"), 0);
  EXPECT_EQ(hint(u"=1+MAINTENANT()"), 22);
  EXPECT_EQ(hint(u"=ALEA.ENTRE.BORNES(1;2)"), 0);
}

std::u16string Repeat(const std::u16string& s, int n) {
  std::u16string out;
  for (int i = 0; i < n; i++) out += s;
  return out;
}

// The token and extra budgets hold; what would pass them is refused and nothing is returned.
TEST_F(ParserTest, Limits) {
  std::u16string sum255 = u"=1" + Repeat(u"+1", 255);  // 256 terms: 1023 bytes
  EXPECT_EQ(Compile(sum255).size(), 1023u * 3);
  EXPECT_EQ(Compile(sum255 + u"+1"), "status -1");
  EXPECT_EQ(Compile(u"=ALEA()" + Repeat(u"+1", 255)), "status -1");  // 1023 bytes, 1027 marked
  EXPECT_EQ(Compile(u"=\"" + Repeat(u"x", 255) + u"\"").size(), 258u * 3);
  EXPECT_EQ(Compile(u"=\"" + Repeat(u"x", 256) + u"\""), "status -1");
  EXPECT_EQ(Compile(u"={1" + Repeat(u"\\1", 256) + u"}"), "status -1");  // 257 columns
  EXPECT_EQ(Compile(u"={1" + Repeat(u"\\1", 113) + u"}"), "status -1");  // 1029 bytes of data
  EXPECT_EQ(Compile(u"=" + Repeat(u"(", 1100) + u"1" + Repeat(u")", 1100)), "status -1");
  EXPECT_EQ(Compile(u"=" + Repeat(u"-", 2000) + u"A1"), "status -1");
  EXPECT_EQ(Compile(u"=" + Repeat(u"(1+", 1000) + u"1" + Repeat(u")", 1000)), "status -1");
}

TEST_F(ParserTest, LostMemoryLeavesNothing) {
  for (int64_t budget = 0;; budget++) {
    SetAllocationFailureAfter(budget);
    std::string result = Compile(u"=nom+[b.xls]Feuil1!$A$1");
    SetAllocationFailureAfter(-1);
    if (result.rfind("status", 0) != 0) break;
    ASSERT_EQ(result, "status -2") << budget;
    ASSERT_LT(budget, 50);
  }
}

// The jumps that the parser writes lead the evaluator to the right branch and case.
TEST_F(ParserTest, CompiledFormulasEvaluate) {
  EXPECT_EQ(Run(u"=SI(1>2;\"a\";CHOISIR(3;10;20;30+1))"), "31");
  EXPECT_EQ(Run(u"=SI(VRAI;SOMME(1;2))&\"x\""), "\"3x\"");
  EXPECT_EQ(Run(u"=ABS (1)"), "#NAME?");  // an undefined name
}

}  // namespace
