// Formula text and tokens in both directions: text compiles and prints back as the same text,
// and tokens print and compile back to equal tokens apart from the class bits. Hand-written
// formulas cover the forms one by one; a seeded generator adds a few hundred random ones.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "format/locale.h"
#include "formula/formula_text.h"
#include "formula/parser.h"
#include "model/workbook.h"
#include "token_builder.h"

namespace {

class RoundTrip : public ::testing::Test {
 public:
  uint32_t book = 0;
  void SetUp() override {
    ASSERT_TRUE(CreateWorkbook(u"C:\\dossier\\Classeur.xls", 0, &book));
    ASSERT_TRUE(InsertSheet(book, 1, u"Feuille2", SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 2, u"Feuil 3", SheetWorksheet, 0, 0));
    ASSERT_TRUE(InsertSheet(book, 3, u"2019", SheetWorksheet, 0, 0));
  }
  void TearDown() override {
    CloseAllWorkbooks();
    ApplyLocale(LocaleFrench);
  }

  ParseContext Context(int a1Style = 1) const { return ParseContext{book, 0, a1Style, 4, 2, 0, 0}; }

  // Compiles, or fails the test with the text.
  FormulaTokens Compile(const std::u16string& text, int a1Style = 1) {
    ParseContext ctx = Context(a1Style);
    FormulaTokens tokens{};
    CompileStatus status = CompileFormula(&ctx, text.c_str(), ClassCodeValue, &tokens);
    EXPECT_EQ(status, CompileOk) << TextToUtf8(text.c_str());
    return tokens;
  }
  std::u16string Print(const FormulaTokens* tokens, int a1Style = 1) {
    char16_t* text = FormulaText(book, tokens, 4, 2, a1Style, 4, 2);
    std::u16string s = text ? text : u"(null)";
    Release(text);
    return s;
  }
};

// The token bytes with every opcode's class bits folded away, then the extra data.
std::vector<uint8_t> Folded(const FormulaTokens* t) {
  std::vector<uint8_t> out(t->bytes, t->bytes + t->length + t->extraLength);
  for (uint32_t p = 0; p < t->length; p = NextTokenPosition(t->bytes, p))
    out[p] = FoldOpcode(out[p]);
  return out;
}

void ExpectTextRoundTrip(RoundTrip* f, const std::u16string& text, int a1Style = 1) {
  FormulaTokens tokens = f->Compile(text, a1Style);
  if (!tokens.bytes) return;
  std::u16string printed = f->Print(&tokens, a1Style);
  EXPECT_EQ(TextToUtf8(printed.c_str()), TextToUtf8(text.c_str()));
  // Printing is the inverse: the printed text compiles to the same bytes, class bits included.
  FormulaTokens again = f->Compile(printed, a1Style);
  if (again.bytes) {
    EXPECT_EQ(std::vector<uint8_t>(tokens.bytes, tokens.bytes + tokens.length + tokens.extraLength),
              std::vector<uint8_t>(again.bytes, again.bytes + again.length + again.extraLength))
        << TextToUtf8(text.c_str());
  }
  FreeTokens(&tokens);
  FreeTokens(&again);
}

TEST_F(RoundTrip, HandWrittenFormulasPrintAsTyped) {
  static const char16_t* const formulas[] = {
      // Operators, precedence as typed, unary signs and percent.
      u"=1+2*3-4/5",
      u"=(1+2)*3",
      u"=2^3^2",
      u"=-2^2",
      u"=-A1^2",
      u"=+A1",
      u"=--A1",
      u"=A1%",
      u"=50%*A1",
      u"=1&\"a\"",
      u"=A1=B1",
      u"=A1<>B1",
      u"=A1<B1",
      u"=A1<=B1",
      u"=A1>B1",
      u"=A1>=B1",
      u"=((1))",
      u"=1 2",
      u"=A1:B2 B1:C3",
      u"=(A1;B2)",
      u"=SOMME((A1;B2))",
      // Constants.
      u"=0",
      u"=65535",
      u"=65536",
      u"=0,5",
      u"=-0,25",
      u"=1E+20",
      u"=1,5E-07",
      u"=VRAI",
      u"=FAUX",
      u"=\"\"",
      u"=\"a\"\"b\"",
      u"=\"\u00E9t\u00E9 \u20AC \u4E2D\"",
      u"=#NULL!",
      u"=#DIV/0!",
      u"=#VALUE!",
      u"=#REF!",
      u"=#NAME?",
      u"=#NUM!",
      u"=#N/A",
      u"={1\\2;3\\4}",
      u"={\"a\"\\VRAI;#N/A\\-1,5}",
      // References.
      u"=A1",
      u"=$A1",
      u"=A$1",
      u"=$A$1",
      u"=IV65536",
      u"=A1:B2",
      u"=$A$1:B$2",
      u"=A:A",
      u"=$A:$C",
      u"=1:1",
      u"=$2:$5",
      u"=Feuille2!A1",
      u"=Feuille2!$A$1:B2",
      u"='Feuil 3'!A1",
      u"='2019'!C3",
      u"=Feuille1:Feuille2!A1",
      u"='Feuille2:Feuil 3'!A1:B2",
      u"=[Autre.xls]Feuil1!A1",
      u"='C:\\d\\[Autre.xls]Feuil1'!B2:C3",
      u"='[Mon classeur.xls]Feuil1'!A1",
      // Functions, jumps and sums.
      u"=SOMME(A1)",
      u"=SOMME(A1;B1)",
      u"=SOMME(A1:A10;5)",
      u"=SI(A1;1)",
      u"=SI(A1;1;2)",
      u"=SI(A1>0;SI(B1;\"x\";\"y\");-1)",
      u"=CHOISIR(2;\"a\";\"b\";\"c\")",
      u"=CHOISIR(A1;1;SOMME(B1:B3))",
      u"=ABS(-3)",
      u"=MAINTENANT()",
      u"=ALEA()+1",
      u"=PI()",
      u"=ET(VRAI;FAUX)",
      u"=NB.SI(A1:A5;\">=5\")",
      u"=INDEX(A1:C3;2;2)",
      u"=DECALER(A1;1;1)",
      u"=INDIRECT(\"A1\")",
      // Names.
      u"=nom",
      u"=nom+1",
      u"=Feuille2!local",
      u"=SOMME(total)",
      u"=ABS (1)",
  };
  for (const char16_t* text : formulas) ExpectTextRoundTrip(this, text);
}

TEST_F(RoundTrip, R1C1TextAndOtherSeparators) {
  static const char16_t* const r1c1[] = {u"=R1C1",      u"=RC",           u"=R[1]C[-1]",
                                         u"=R1C1:R2C2", u"=R[-4]C:RC[3]", u"=SOMME(R1:R3)",
                                         u"=C2:C3"};
  for (const char16_t* text : r1c1) ExpectTextRoundTrip(this, text, 0);
  ApplyLocale(LocaleEnglishUS);
  for (const char16_t* text : {u"=SOMME(1,2.5,A1:B2)", u"={1,2;3,4}", u"=(A1,B1)", u"=0.1"})
    ExpectTextRoundTrip(this, text);
}

// A random expression as the printer writes it: no blanks, the user's parentheses kept.
struct FormulaGenerator {
  std::mt19937 random{20261121};
  int Pick(int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); }

  std::u16string Operand(int depth) {
    static const char16_t* const leaves[] = {u"1",           u"7",
                                             u"42",          u"65535",
                                             u"70000",       u"0,5",
                                             u"3,25",        u"\"t\"",
                                             u"\"\"",        u"VRAI",
                                             u"FAUX",        u"#N/A",
                                             u"#DIV/0!",     u"A1",
                                             u"$B$2",        u"C3:D4",
                                             u"A:A",         u"2:3",
                                             u"nom",         u"{1\\2}",
                                             u"Feuille2!A1", u"'Feuil 3'!B1:B2",
                                             u"E$5"};
    int kind = depth > 3 ? 0 : Pick(10);
    switch (kind) {
      case 1:
        return u"(" + Expression(depth + 1) + u")";
      case 2:
        return u"-" + Operand(depth + 1);
      case 3:
        return Operand(depth + 1) + u"%";
      case 4: {
        static const char16_t* const functions[] = {u"SOMME", u"MAX", u"MIN", u"ET", u"OU"};
        std::u16string call = std::u16string(functions[Pick(5)]) + u"(";
        int n = 1 + Pick(3);
        for (int i = 0; i < n; i++) call += (i ? u";" : u"") + Expression(depth + 1);
        return call + u")";
      }
      case 5: {
        std::u16string s = u"SI(" + Expression(depth + 1) + u";" + Expression(depth + 1);
        if (Pick(2)) s += u";" + Expression(depth + 1);
        return s + u")";
      }
      case 6:
        return u"ABS(" + Expression(depth + 1) + u")";
      default:
        return leaves[Pick(sizeof leaves / sizeof leaves[0])];
    }
  }
  std::u16string Expression(int depth) {
    static const char16_t* const operators[] = {u"+", u"-",  u"*", u"/", u"^",  u"&",
                                                u"=", u"<>", u"<", u">", u"<=", u">="};
    std::u16string s = Operand(depth);
    int n = Pick(depth > 2 ? 2 : 4);
    for (int i = 0; i < n; i++) s += std::u16string(operators[Pick(12)]) + Operand(depth + 1);
    return s;
  }
};

TEST_F(RoundTrip, GeneratedFormulasPrintAsTyped) {
  FormulaGenerator generator;
  for (int i = 0; i < 400; i++) {
    std::u16string text = u"=";
    text += generator.Expression(0);
    ExpectTextRoundTrip(this, text);
  }
}

// Tokens written by hand, with classes a parser would not choose, print and compile back to the
// same tokens once the class bits are folded away.
TEST_F(RoundTrip, TokensPrintAndCompileBack) {
  using T = TokenBuilder;
  FormulaTokens link = Compile(u"=Feuille2!A1");  // sheet link 0, used below
  FreeTokens(&link);
  const T falseBranch = T().Str(u"non");
  const T cases[] = {
      T().Ref(0, 0, ClassArray).Int(2).Op(ptgMul),
      T().Area(0, 9, 0, 0, ClassValue).Func(24, ClassArray),
      T().Num(0.1).Num(0.2).Op(ptgAdd).Num(0.3).Op(ptgEQ),
      T().Ref(1, 1).Sum(),
      T().If(T().Ref(0, 0), T().Int(1), &falseBranch),
      T().Choose(T().Int(2), {T().Int(10), T().Int(20), T().Int(30)}),
      T().Ref3d(0, 3, 3).Op(ptgUminus).Op(ptgParen),
      T().Array(2, 2, {NumberValue(1), NumberValue(2), BooleanValue(true), ErrorValue(ErrNA)}),
  };
  for (const T& c : cases) {
    FormulaTokens tokens = c.Build();
    std::u16string text = Print(&tokens);
    FormulaTokens again = Compile(text);
    if (again.bytes) {
      EXPECT_EQ(Folded(&tokens), Folded(&again)) << TextToUtf8(text.c_str());
    }
    FreeTokens(&tokens);
    FreeTokens(&again);
  }
}

// What is knowingly lost: a deleted reference prints "#REF!" and compiles to an error constant.
TEST_F(RoundTrip, DeletedReferenceComesBackAsAnErrorConstant) {
  FormulaTokens tokens = TokenBuilder().Byte(ptgRefErr | ClassValue).Word(0).Word(0).Build();
  std::u16string text = Print(&tokens);
  EXPECT_EQ(TextToUtf8(text.c_str()), "=#REF!");
  FormulaTokens again = Compile(text);
  ASSERT_TRUE(again.bytes);
  EXPECT_EQ(std::vector<uint8_t>(again.bytes, again.bytes + again.length),
            (std::vector<uint8_t>{ptgErr, 0x17}));
  FreeTokens(&tokens);
  FreeTokens(&again);
}

}  // namespace
