// The formula printer on what the round-trip tests of typed formulas cannot reach: tokens that
// no typed text produces, names and sheet links of every kind, the list separator in arrays,
// offset forms, and token strings that are deep, truncated or malformed.
#include "formula/formula_text.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
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

TokenBuilder T() {
  return TokenBuilder{};
}

// Sheets Feuil1, Feuil2, "Mon budget", "L'an"; links to them, to another book b.xls (sheets
// Feuil1 and "Ventes 2", names Taux at book level and Prix on Feuil1), to a book on drive C and
// to an add-in; the defined names Total (global) and Local (on "Mon budget").
struct FormulaTextTest : testing::Test {
  uint32_t book = 0;
  uint16_t second, budget, quoteSheet, deleted, bare, other, otherRange, otherBook, driveC, addIn;
  uint16_t total, local;

  // An extern book with its sheets, and its names under field 0, 1, ...
  uint32_t Extern(int32_t kind, const char16_t* path,
                  std::initializer_list<const char16_t*> sheets = {},
                  std::initializer_list<const char16_t*> names = {}) {
    uint32_t index = 0, name = 0;
    int16_t sheet = 0;
    uint16_t field = 0;
    EXPECT_TRUE(FindOrAddExternalBook(book, kind, path, &index));
    for (const char16_t* s : sheets) EXPECT_TRUE(FindOrAddExternalSheet(book, index, s, &sheet));
    for (const char16_t* n : names)
      EXPECT_TRUE(FindOrAddExternalName(book, index, n, field++, &name));
    return index;
  }
  uint16_t Link(uint32_t external, int16_t first, int16_t last) {
    int32_t index = -1;
    EXPECT_TRUE(FindOrAddSheetLink(book, static_cast<int16_t>(external), first, last, &index));
    return static_cast<uint16_t>(index);
  }
  uint16_t Defined(const char16_t* text, uint16_t localSheet) {
    DefinedName name{};
    name.localSheet = localSheet;
    name.name = TextDuplicate(text);
    uint32_t index = 0;
    EXPECT_TRUE(AddName(book, &name, &index));
    return static_cast<uint16_t>(index + 1);
  }

  void SetUp() override {
    ApplyLocale(LocaleFrench);
    ASSERT_TRUE(CreateWorkbook(u"Book.xls", 0, &book));
    for (const char16_t* name : {u"Feuil2", u"Mon budget", u"L'an"})
      ASSERT_TRUE(InsertSheet(book, GetWorkbook(book)->sheetCount, name, SheetWorksheet, 0, 0));
    uint32_t self = Extern(ExternalSelf, nullptr);
    second = Link(self, 1, 1);
    budget = Link(self, 2, 2);
    quoteSheet = Link(self, 3, 3);
    deleted = Link(self, DeletedSheet, DeletedSheet);
    bare = Link(Extern(ExternalUnused, nullptr), NoSheet, NoSheet);
    uint32_t b =
        Extern(ExternalOtherFile, u"\1b.xls", {u"Feuil1", u"Ventes 2"}, {u"Taux", u"Prix"});
    other = Link(b, 0, 0);
    otherRange = Link(b, 0, 1);
    otherBook = Link(b, NoSheet, NoSheet);
    driveC = Link(Extern(ExternalOtherFile, u"\2dir\3d.xls", {u"S"}), 0, 0);
    addIn = Link(Extern(ExternalAddIn, nullptr, {}, {u"ADDPAIR"}), NoSheet, NoSheet);
    total = Defined(u"Total", 0);
    local = Defined(u"Local", 3);
  }
  void TearDown() override {
    SetAllocationFailureAfter(-1);
    ApplyLocale(LocaleFrench);
    CloseAllWorkbooks();
  }

  std::string Print(const TokenBuilder& t, int a1 = 1, uint16_t row = 0, uint8_t col = 0,
                    uint16_t rowOffset = 0, uint8_t colOffset = 0) {
    FormulaTokens f = t.Build();
    char16_t* text = FormulaText(book, &f, row, col, a1, rowOffset, colOffset);
    FreeTokens(&f);
    std::string s = text ? TextToUtf8(text) : "(null)";
    Release(text);
    return s;
  }
  void Expect(const std::vector<std::pair<TokenBuilder, const char*>>& cases) {
    for (const auto& [tokens, text] : cases) EXPECT_EQ(Print(tokens), text);
  }
};

// What ordinary formula text can spell is printed and compiled back by the round-trip tests;
// these are the token strings that text cannot produce or that a round trip would hide.
TEST_F(FormulaTextTest, TokensThatNoTypedTextProduces) {
  TokenBuilder condition = T().Ref(0, 0).Int(0).Op(ptgGT), x = T().Str(u"x");
  Expect({
      // No parentheses are added where the order would need them.
      {T().Int(1).Int(2).Op(ptgAdd).Int(3).Op(ptgMul), "=1+2*3"},
      {T().Int(1).Int(2).Op(ptgRange), "=1:2"},
      {T().Str(u"dit \"oui\""), "=\"dit \"\"oui\"\"\""},
      {T().Num(0.1).Num(2.0 / 3.0).Op(ptgMul), "=0,1*0,666666666666667"},
      // The jump and space attributes print nothing; tAttrSum prints as SOMME.
      {T().If(condition, T().Int(1), &x), "=SI(A1>0;1;\"x\")"},
      {T().Area(0, 9, 0, 0).Sum(), "=SOMME(A1:A10)"},
      {T().Attr(AttrVolatile).Attr(AttrSpace, 1).Func(19), "=PI()"},
      {T().Func(9999), "=?()"},
      {T().Int(1).FuncVar(9999, 1), "=?(1)"},
      {T().Int(1).Int(2).FuncVar(7, 0x82), "=MAX(1;2)"},  // the dialog bit is no argument
      {T().Int(1).Missing().Int(2).FuncVar(4, 3), "=SOMME(1;;2)"},
      {T().Byte(ptgTbl).Word(0).Word(0), "=TABLE()"},
      {T().Name(0), "=#NAME?"},
      {T().Name(99), "=#NAME?"},
      {T().NameX(second, local), "='Mon budget'!Local"},
      {T().NameX(second, total), "=Total"},
      {T().NameX(other, 1), "=b.xls!Taux"},
      {T().NameX(other, 2), "=[b.xls]Feuil1!Prix"},
      {T().NameX(other, 9), "=#NAME?"},
      {T().NameX(77, 1), "=#NAME?"},
      {T().NameX(addIn, 1).Int(1).Int(2).FuncVar(255, 3), "=ADDPAIR(1;2)"},
      {T().Ref(0, 0, R).FuncVar(255, 1), "=A1()"},
      {T().Operand(ptgAreaErr3d, R).Word(0).Word(0).Word(0).Word(0).Word(0), "=#REF!"},
      {T().Ref3d(quoteSheet, 0, 0), "='L''an'!$A$1"},
      {T().Ref3d(deleted, 0, 0), "=#REF!$A$1"},
      {T().Ref3d(99, 0, 0), "=#REF!"},  // a link out of range
      {T().Ref3d(bare, 0, 0), "=!$A$1"},
      {T().Ref3d(otherRange, 0, 0), "='[b.xls]Feuil1:Ventes 2'!$A$1"},
      {T().Ref3d(otherBook, 0, 0), "=b.xls!$A$1"},
      {T().Ref3d(driveC, 0, 0), "='C:\\dir\\[d.xls]S'!$A$1"},
  });
}

// Inner quotes stay single in an array, which is what the array reader expects.
TEST_F(FormulaTextTest, ArrayConstantsFollowTheListSeparator) {
  Value text{};
  text.tag = ValueText;
  text.text = const_cast<char16_t*>(u"a\"b");
  TokenBuilder grid = T().Array(2, 2, {NumberValue(1), NumberValue(0.5), text, BooleanValue(1)});
  TokenBuilder mixed = T().Array(1, 2, {ErrorValue(ErrNA), NumberValue(-3)});
  EXPECT_EQ(Print(T().Append(grid).Append(mixed).FuncVar(4, 2)),
            "=SOMME({1\\0,5;\"a\"b\"\\VRAI};{#N/A\\-3})");
  ApplyLocale(LocaleEnglishUS);
  EXPECT_EQ(Print(T().Append(grid).Num(0.1).FuncVar(4, 2)), "=SOMME({1,0.5;\"a\"b\",VRAI},0.1)");
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
  auto text = [&](int32_t link, uint32_t capacity, int bang) {
    uint32_t n = ExternSheetText(book, link, out, capacity, bang);
    std::string s = std::to_string(n);
    if (n) {
      s += ' ';  // piece by piece, which keeps GCC 12's -Wrestrict quiet
      s += TextToUtf8(out);
    }
    return s;
  };
  EXPECT_EQ(text(budget, 64, 1), "13 'Mon budget'!");
  EXPECT_EQ(text(otherRange, 64, 0), "24 '[b.xls]Feuil1:Ventes 2'");
  EXPECT_EQ(text(budget, 5, 1), "4 'Mon");
  EXPECT_EQ(text(500, 64, 1), "0");
  EXPECT_EQ(text(-1, 64, 1), "0");
}

TEST_F(FormulaTextTest, DeepNestingGrowsStackAndText) {
  TokenBuilder sum, parens = T().Ref(0, 0);
  std::string expected = "=1";
  for (int i = 1; i <= 200; i++) sum.Int(static_cast<uint16_t>(i));
  for (int i = 2; i <= 200; i++) {
    sum.Op(ptgAdd);
    expected += '+';
    expected += std::to_string(i);
  }
  EXPECT_EQ(Print(sum), expected);
  for (int i = 0; i < 300; i++) parens.Op(ptgParen);
  EXPECT_EQ(Print(parens), "=" + std::string(300, '(') + "A1" + std::string(300, ')'));
  SetAllocationFailureAfter(1);
  EXPECT_EQ(Print(sum), "(null)") << "lost memory gives no text";
}

TEST_F(FormulaTextTest, MalformedTokenStringsPrintWhatTheyCan) {
  TokenBuilder numbers = T().Array(1, 2, {NumberValue(1), NumberValue(2)});
  TokenBuilder cut = numbers, huge = numbers;
  cut.extra.resize(cut.extra.size() - 4);
  huge.extra[1] = 0xFF, huge.extra[2] = 0xFF;  // 65536 rows from a few bytes
  Expect({
      {T().Op(ptgAdd), "=+"},
      {T().Int(1).Op(ptgMul), "=*1"},
      {T().Op(ptgPercent), "=%"},
      {T().Int(1).Int(2).FuncVar(7, 5), "=MAX(1;2)"},  // more arguments than operands
      {T().FuncVar(255, 3), "=?()"},
      {T().Sum(), "=SOMME()"},
      {T().Int(7).Byte(ptgInt).Byte(1), "=7"},
      {T().Byte(ptgStr).Byte(200).Byte(0).Byte('a'), "="},
      {T().Int(1).Byte(ptgAttr).Byte(AttrChoose).Word(500).Word(0), "=1"},
      {T().Operand(ptgArray, ClassArray).Word(0).Word(0).Word(0).Byte(0), "={}"},
      {cut, "={1\\}"},
      {huge, "={}"},
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
    ASSERT_EQ(Print(t, round & 1, 5, 5, 5, 5).substr(0, 1), "=") << "round " << round;
  }
}

}  // namespace
