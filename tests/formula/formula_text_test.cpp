// The formula printer: every kind of token back to the text of the edit line, qualifiers of
// sheet links to this and other workbooks, the locale's separators, and token strings that are
// deep, truncated or malformed.
#include "formula/formula_text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/token_builder.h"
#include "model/names.h"
#include "model/value.h"
#include "model/workbook.h"

namespace {

constexpr uint8_t R = ClassReference, V = ClassValue;

struct Case {
  const char* what;
  TokenBuilder tokens;
  const char* expected;
};

struct FormulaTextTest : testing::Test {
  uint32_t book = 0;
  uint16_t second = 0, secondToBudget = 0, budget = 0, quoteSheet = 0, deleted = 0, bare = 0;
  uint16_t other = 0, otherSpaced = 0, otherRange = 0, otherBook = 0, pathed = 0, driveC = 0;
  uint16_t addIn = 0, total = 0, local = 0;

  int16_t AddBook(int32_t kind, const char16_t* path) {
    uint32_t index = 0;
    EXPECT_TRUE(FindOrAddExternalBook(book, kind, path, &index));
    return static_cast<int16_t>(index);
  }
  int16_t Sheet(int16_t external, const char16_t* name) {
    int16_t index = 0;
    EXPECT_TRUE(FindOrAddExternalSheet(book, static_cast<uint32_t>(external), name, &index));
    return index;
  }
  uint16_t Link(int16_t external, int16_t first, int16_t last) {
    int32_t index = -1;
    EXPECT_TRUE(FindOrAddSheetLink(book, external, first, last, &index));
    return static_cast<uint16_t>(index);
  }
  uint16_t AddNamed(const char16_t* text, uint16_t localSheet) {
    DefinedName name{};
    name.localSheet = localSheet;
    name.name = TextDuplicate(text);
    uint32_t index = 0;
    EXPECT_TRUE(AddName(book, &name, &index));
    return static_cast<uint16_t>(index + 1);
  }
  void ExternalName(int16_t external, const char16_t* text, uint16_t field) {
    uint32_t index = 0;
    EXPECT_TRUE(FindOrAddExternalName(book, static_cast<uint32_t>(external), text, field, &index));
  }

  void SetUp() override {
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(u"Book.xls", 0, &book));
    ASSERT_TRUE(InsertSheet(book, 1, u"Feuil2", SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 2, u"Mon budget", SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 3, u"L'an", SheetWorksheet, 0, 0));
    int16_t self = AddBook(ExternalSelf, nullptr);
    second = Link(self, 1, 1);
    secondToBudget = Link(self, 1, 2);
    budget = Link(self, 2, 2);
    quoteSheet = Link(self, 3, 3);
    deleted = Link(self, DeletedSheet, DeletedSheet);
    bare = Link(AddBook(ExternalUnused, nullptr), NoSheet, NoSheet);
    int16_t b = AddBook(ExternalOtherFile,
                        u"\x01"
                        u"b.xls");
    other = Link(b, Sheet(b, u"Feuil1"), Sheet(b, u"Feuil1"));
    otherSpaced = Link(b, Sheet(b, u"Ventes 2"), Sheet(b, u"Ventes 2"));
    otherRange = Link(b, 0, 1);
    otherBook = Link(b, NoSheet, NoSheet);
    ExternalName(b, u"Taux", 0);
    ExternalName(b, u"Prix", 1);
    int16_t c = AddBook(ExternalOtherFile,
                        u"\x01"
                        u"C:\x03"
                        u"dir\x03"
                        u"c.xls");
    pathed = Link(c, Sheet(c, u"Feuil1"), 0);
    int16_t d = AddBook(ExternalOtherFile,
                        u"\x02"
                        u"dir\x03"
                        u"d.xls");
    driveC = Link(d, Sheet(d, u"S"), 0);
    int16_t a = AddBook(ExternalAddIn, nullptr);
    addIn = Link(a, NoSheet, NoSheet);
    ExternalName(a, u"ADDPAIR", 0);
    total = AddNamed(u"Total", 0);
    local = AddNamed(u"Local", 3);
  }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    ApplyLocale(LocaleFrench);
    CloseAllWorkbooks();
  }

  static TokenBuilder T() { return TokenBuilder{}; }
  std::string Print(const TokenBuilder& t, int a1 = 1, uint16_t row = 0, uint8_t col = 0,
                    uint16_t rowOffset = 0, uint8_t colOffset = 0) {
    FormulaTokens f = t.Build();
    char16_t* text = FormulaText(book, &f, row, col, a1, rowOffset, colOffset);
    FreeTokens(&f);
    std::string s = text ? TextToUtf8(text) : "(null)";
    Release(text);
    return s;
  }
  void Expect(const std::vector<Case>& cases) {
    for (const Case& c : cases) EXPECT_EQ(Print(c.tokens), c.expected) << c.what;
  }
};

TEST_F(FormulaTextTest, OperatorsJoinTheirOperandsWithoutBlanks) {
  const struct {
    uint8_t ptg;
    const char* text;
  } binary[] = {{ptgAdd, "+"},    {ptgSub, "-"}, {ptgMul, "*"},   {ptgDiv, "/"},   {ptgPower, "^"},
                {ptgConcat, "&"}, {ptgLT, "<"},  {ptgLE, "<="},   {ptgEQ, "="},    {ptgGE, ">="},
                {ptgGT, ">"},     {ptgNE, "<>"}, {ptgIsect, " "}, {ptgUnion, ";"}, {ptgRange, ":"}};
  for (const auto& op : binary)
    EXPECT_EQ(Print(T().Int(1).Int(2).Op(op.ptg)), std::string("=1") + op.text + "2") << op.text;
  Expect({
      {"unary minus", T().Int(5).Op(ptgUminus), "=-5"},
      {"unary plus", T().Int(5).Op(ptgUplus), "=+5"},
      {"percent", T().Int(5).Op(ptgPercent).Op(ptgUminus), "=-5%"},
      {"user's parentheses", T().Int(1).Int(2).Op(ptgAdd).Op(ptgParen).Int(3).Op(ptgMul),
       "=(1+2)*3"},
      {"right operand in parentheses", T().Int(1).Int(2).Int(3).Op(ptgSub).Op(ptgParen).Op(ptgSub),
       "=1-(2-3)"},
      {"no parentheses of its own", T().Int(1).Int(2).Op(ptgAdd).Int(3).Op(ptgMul), "=1+2*3"},
  });
}

TEST_F(FormulaTextTest, Constants) {
  Expect({
      {"doubled quotes", T().Str(u"dit \"oui\""), "=\"dit \"\"oui\"\"\""},
      {"wide characters", T().Str(u"\u20AC \u0416"), "=\"\u20AC \u0416\""},
      {"empty string", T().Str(u""), "=\"\""},
      {"booleans", T().Bool(true).Bool(false).Op(ptgConcat), "=VRAI&FAUX"},
      {"errors", T().Err(ErrDiv0).Err(ErrNA).Op(ptgAdd), "=#DIV/0!+#N/A"},
      {"integer", T().Int(65535), "=65535"},
      {"fraction", T().Num(0.1), "=0,1"},
      {"negative number", T().Num(-2.5), "=-2,5"},
      {"fifteen digits", T().Num(2.0 / 3.0), "=0,666666666666667"},
      {"large number", T().Num(1e20), "=1E+20"},
  });
}

TEST_F(FormulaTextTest, ArrayConstantsFollowTheListSeparator) {
  Value text{};
  text.tag = ValueText;
  text.text = const_cast<char16_t*>(u"a\"b");
  TokenBuilder grid = T().Array(2, 2, {NumberValue(1), NumberValue(0.5), text, BooleanValue(1)});
  TokenBuilder mixed = T().Array(1, 2, {ErrorValue(ErrNA), NumberValue(-3)});
  EXPECT_EQ(Print(grid), "={1\\0,5;\"a\"b\"\\VRAI}");
  EXPECT_EQ(Print(T().Append(grid).Append(mixed).FuncVar(4, 2)),
            "=SOMME({1\\0,5;\"a\"b\"\\VRAI};{#N/A\\-3})");
  ApplyLocale(LocaleEnglishUS);
  EXPECT_EQ(Print(T().Append(grid).Num(0.1).FuncVar(4, 2)), "=SOMME({1,0.5;\"a\"b\",VRAI},0.1)");
  ApplyLocale(LocaleFrench);
}

TEST_F(FormulaTextTest, FunctionCalls) {
  TokenBuilder a1 = T().Ref(0, 0), b1 = T().Ref(0, 1), text = T().Str(u"x");
  Expect({
      {"fixed, one argument", T().Int(1).Op(ptgUminus).Func(24), "=ABS(-1)"},
      {"fixed, two arguments", T().Num(1.5).Int(2).Func(27), "=ARRONDI(1,5;2)"},
      {"fixed, none", T().Func(19).Int(2).Op(ptgMul), "=PI()*2"},
      {"fixed, unknown number", T().Func(9999), "=?()"},
      {"variable", T().Int(1).Int(2).Int(3).FuncVar(7, 3), "=MAX(1;2;3)"},
      {"dialog bit ignored", T().Int(1).Int(2).FuncVar(7, 0x82), "=MAX(1;2)"},
      {"missing argument", T().Int(1).Missing().Int(2).FuncVar(4, 3), "=SOMME(1;;2)"},
      {"variable, unknown number", T().Int(1).FuncVar(9999, 1), "=?(1)"},
      {"nested", T().Int(1).Int(2).FuncVar(7, 2).Int(3).FuncVar(4, 2), "=SOMME(MAX(1;2);3)"},
      {"SI with both branches", T().If(T().Append(a1).Int(0).Op(ptgGT), T().Int(1), &text),
       "=SI(A1>0;1;\"x\")"},
      {"SI without else", T().If(a1, T().Append(b1)), "=SI(A1;B1)"},
      {"CHOISIR skips its jump table",
       T().Choose(T().Int(2), {T().Str(u"a"), T().Append(b1), T().Int(3)}),
       "=CHOISIR(2;\"a\";B1;3)"},
      {"tAttrSum", T().Area(0, 9, 0, 0).Sum(), "=SOMME(A1:A10)"},
      {"volatile and space attributes", T().Attr(AttrVolatile).Attr(AttrSpace, 1).Func(19),
       "=PI()"},
      {"table", T().Byte(ptgTbl).Word(0).Word(0), "=TABLE()"},
  });
}

TEST_F(FormulaTextTest, Names) {
  Expect({
      {"defined name", T().Name(total), "=Total"},
      {"index zero", T().Name(0), "=#NAME?"},
      {"index past the list", T().Name(99), "=#NAME?"},
      {"own name local to a quoted sheet", T().NameX(second, local), "='Mon budget'!Local"},
      {"own global name", T().NameX(second, total), "=Total"},
      {"other book, book level", T().NameX(other, 1), "=b.xls!Taux"},
      {"other book, sheet level", T().NameX(other, 2), "=[b.xls]Feuil1!Prix"},
      {"other book, bad index", T().NameX(other, 9), "=#NAME?"},
      {"link out of range", T().NameX(77, 1), "=#NAME?"},
      {"add-in called through function 255", T().NameX(addIn, 1).Int(1).Int(2).FuncVar(255, 3),
       "=ADDPAIR(1;2)"},
      {"reference called without arguments", T().Ref(0, 0, R).FuncVar(255, 1), "=A1()"},
  });
}

TEST_F(FormulaTextTest, ReferencesAndQualifiers) {
  TokenBuilder areaN = T().Operand(ptgAreaN, R).Word(0xFFFF).Word(2).Byte(0).Byte(0xC0).Byte(1);
  areaN.Byte(0x40);  // last row absolute
  Expect({
      {"relative cell", T().Ref(0, 0), "=A1"},
      {"absolute cell", T().Ref(2, 27, V, false, false), "=$AB$3"},
      {"mixed cell", T().Ref(2, 1, V, true, false), "=$B3"},
      {"area", T().Area(0, 9, 0, 1), "=A1:B10"},
      {"absolute area", T().Area(0, 1, 0, 1, R, false), "=$A$1:$B$2"},
      {"whole column", T().Area(0, 65535, 2, 2), "=C:C"},
      {"ref error", T().RefErr(), "=#REF!"},
      {"area error 3d", T().Operand(ptgAreaErr3d, R).Word(0).Word(0).Word(0).Word(0).Word(0),
       "=#REF!"},
      {"own sheet", T().Ref3d(second, 0, 0), "=Feuil2!$A$1"},
      {"own sheet area", T().Area3d(second, 0, 1, 0, 1), "=Feuil2!$A$1:$B$2"},
      {"range of sheets", T().Ref3d(secondToBudget, 0, 0), "='Feuil2:Mon budget'!$A$1"},
      {"quoted sheet", T().Ref3d(budget, 0, 0), "='Mon budget'!$A$1"},
      {"quote inside a sheet name", T().Ref3d(quoteSheet, 0, 0), "='L''an'!$A$1"},
      {"deleted sheet", T().Ref3d(deleted, 0, 0), "=#REF!$A$1"},
      {"link out of range", T().Ref3d(99, 0, 0), "=#REF!"},
      {"bare bang", T().Ref3d(bare, 0, 0), "=!$A$1"},
      {"other book", T().Ref3d(other, 0, 0), "=[b.xls]Feuil1!$A$1"},
      {"other book, quoted sheet", T().Ref3d(otherSpaced, 0, 0), "='[b.xls]Ventes 2'!$A$1"},
      {"other book, sheet range", T().Ref3d(otherRange, 0, 0), "='[b.xls]Feuil1:Ventes 2'!$A$1"},
      {"other book, no sheet", T().Ref3d(otherBook, 0, 0), "=b.xls!$A$1"},
      {"other book with a path", T().Ref3d(pathed, 0, 0), "='C:\\dir\\[c.xls]Feuil1'!$A$1"},
      {"path on drive C", T().Ref3d(driveC, 0, 0), "='C:\\dir\\[d.xls]S'!$A$1"},
  });
}

TEST_F(FormulaTextTest, OffsetFormsCountFromTheBaseCellAndR1C1FromTheOffsets) {
  // First corner one row up, both parts relative; last corner row 2 absolute, column 1 relative.
  TokenBuilder areaN =
      T().Operand(ptgAreaN, R).Word(0xFFFF).Word(2).Byte(0).Byte(0xC0).Byte(1).Byte(0x40);
  TokenBuilder offsets = T().RefN(1, 2).RefN(-1, -1).Op(ptgAdd).Append(areaN).Op(ptgUnion);
  EXPECT_EQ(Print(offsets, 1, 3, 4), "=G5+D3;E3:F$3");
  EXPECT_EQ(Print(offsets, 0, 3, 4, 9, 9), "=G5+D3;E3:F$3") << "offset forms stay in A1";
  EXPECT_EQ(Print(T().RefN(-1, 0), 1, 0, 0), "=A65536") << "rows wrap at 16 bits";
  TokenBuilder r1c1 = T().Ref(4, 2).Ref(4, 2, V, false, false).Op(ptgAdd).Area(0, 1, 0, 1);
  r1c1.Op(ptgUnion).Ref3d(second, 0, 0).Op(ptgUnion);
  EXPECT_EQ(Print(r1c1, 0, 0, 0, 2, 2), "=R[2]C+R5C3;R[-2]C[-2]:R[-1]C[-1];Feuil2!R1C1");
}

TEST_F(FormulaTextTest, ExternSheetTextCutsAtItsCapacity) {
  char16_t out[64];
  EXPECT_EQ(ExternSheetText(book, budget, out, 64, 1), 13u);
  EXPECT_EQ(TextToUtf8(out), "'Mon budget'!");
  EXPECT_EQ(ExternSheetText(book, otherRange, out, 64, 0), 24u);
  EXPECT_EQ(TextToUtf8(out), "'[b.xls]Feuil1:Ventes 2'");
  EXPECT_EQ(ExternSheetText(book, budget, out, 5, 1), 4u);
  EXPECT_EQ(TextToUtf8(out), "'Mon");
  EXPECT_EQ(ExternSheetText(book, 500, out, 64, 1), 0u);
  EXPECT_EQ(ExternSheetText(book, -1, out, 64, 1), 0u);
}

TEST_F(FormulaTextTest, DeepNestingGrowsStackAndText) {
  TokenBuilder sum, parens = T().Ref(0, 0);
  std::string expected = "=1";
  for (int i = 1; i <= 200; i++) sum.Int(static_cast<uint16_t>(i));
  for (int i = 2; i <= 200; i++) sum.Op(ptgAdd), expected += "+" + std::to_string(i);
  EXPECT_EQ(Print(sum), expected);
  for (int i = 0; i < 300; i++) parens.Op(ptgParen);
  EXPECT_EQ(Print(parens), "=" + std::string(300, '(') + "A1" + std::string(300, ')'));
  SetAllocationFailureAfter(1);
  EXPECT_EQ(Print(sum), "(null)") << "lost memory gives no text";
  SetAllocationFailureAfter(-1);
}

TEST_F(FormulaTextTest, MalformedTokenStringsPrintWhatTheyCan) {
  TokenBuilder numbers = T().Array(1, 2, {NumberValue(1), NumberValue(2)});
  TokenBuilder cut = numbers;
  cut.extra.resize(cut.extra.size() - 4);
  TokenBuilder huge = numbers;
  huge.extra[1] = 0xFF, huge.extra[2] = 0xFF;  // 65536 rows from a few bytes
  TokenBuilder badString = T().Byte(ptgStr).Byte(200).Byte(0).Byte('a');
  TokenBuilder badChoose = T().Int(1).Byte(ptgAttr).Byte(AttrChoose).Word(500).Word(0);
  Expect({
      {"operator alone", T().Op(ptgAdd), "=+"},
      {"binary with one operand", T().Int(1).Op(ptgMul), "=*1"},
      {"percent alone", T().Op(ptgPercent), "=%"},
      {"more arguments than operands", T().Int(1).Int(2).FuncVar(7, 5), "=MAX(1;2)"},
      {"call through nothing", T().FuncVar(255, 3), "=?()"},
      {"tAttrSum alone", T().Sum(), "=SOMME()"},
      {"two operands left", T().Int(1).Int(2), "=12"},
      {"truncated integer", T().Int(7).Byte(ptgInt).Byte(1), "=7"},
      {"truncated string", T().Append(badString), "="},
      {"truncated jump table", T().Append(badChoose), "=1"},
      {"array without extra data",
       T().Operand(ptgArray, ClassArray).Word(0).Word(0).Word(0).Byte(0), "={}"},
      {"array cut inside an element", cut, "={1\\}"},
      {"array larger than its data", huge, "={}"},
  });
  FormulaTokens empty{};
  char16_t* text = FormulaText(book, &empty, 0, 0, 1, 0, 0);
  EXPECT_EQ(TextToUtf8(text), "=");
  Release(text);

  // Random bytes, mostly valid opcodes, under the sanitizers: no read or write out of bounds.
  std::mt19937 random(1234);
  for (int round = 0; round < 4000; round++) {
    TokenBuilder t;
    size_t length = random() % 40, extraLength = random() % 24;
    for (size_t i = 0; i < length; i++)
      t.Byte(static_cast<uint8_t>(random() % 3 ? random() % 0x40 : random()));
    for (size_t i = 0; i < extraLength; i++) t.extra.push_back(static_cast<uint8_t>(random()));
    std::string s = Print(t, static_cast<int>(round & 1), 5, 5, 5, 5);
    ASSERT_EQ(s.substr(0, 1), "=") << "round " << round;
  }
}

}  // namespace
