// Formula tokens between memory and the Pocket Excel file: each kind of token that changes size
// or shape, jumps corrected across those changes, what the format cannot hold, malformed file
// tokens, and the function list against the function table.
#include <sstream>
#include <string>

#include "files/pocket_fixture.h"
#include "functions/table.h"
#include "model/names.h"

namespace {

FormulaTokens Tokens(const Bytes& b) {
  FormulaTokens t{};
  t.length = static_cast<uint16_t>(b.size());
  t.bytes = static_cast<uint8_t*>(Allocate(b.size() + 1));
  std::memcpy(t.bytes, b.data(), b.size());
  return t;
}

Bytes BytesOf(const FormulaTokens& t) {
  return Bytes(t.bytes, t.bytes + t.length);
}

struct TokenCase {
  const char* what;
  Rec memory;
  Rec file;
  bool both = true;  // false: only memory -> file
};

TEST_F(PocketTest, TokensChangeShapeAndJumpsFollow) {
  AddSheet(u"B");
  int32_t sheetLink = 0, bookLink = 0;
  uint32_t self = 0;
  ASSERT_TRUE(FindOrAddExternalBook(book, ExternalSelf, nullptr, &self));
  ASSERT_TRUE(FindOrAddSheetLink(book, static_cast<int16_t>(self), 1, 1, &sheetLink));
  ASSERT_TRUE(FindOrAddSheetLink(book, static_cast<int16_t>(self), NoSheet, NoSheet, &bookLink));
  const TokenCase cases[] = {
      {"relative reference", Rec().U8(0x44).U16(0).U8(0).U8(0xC0),
       Rec().U8(0x44).U16(0xC000).U8(0)},
      {"absolute area", Rec().U8(0x25).U16(0).U16(2).U8(0).U8(0).U8(1).U8(0xC0),
       Rec().U8(0x25).U16(0).U16(0xC002).U8(0).U8(1)},
      {"last row the file holds", Rec().U8(0x24).U16(16383).U8(255).U8(0x80),
       Rec().U8(0x24).U16(0xBFFF).U8(255)},
      {"name", Rec().U8(0x23).U16(1).U16(0), Rec().U8(0x23).U16(1).Zeros(12)},
      {"3-D reference", Rec().U8(0x3A).U16(static_cast<uint32_t>(sheetLink)).U16(4).U8(2).U8(0),
       Rec().U8(0x3A).Zeros(10).U16(1).U16(1).U16(4).U8(2)},
      {"3-D area",
       Rec()
           .U8(0x3B)
           .U16(static_cast<uint32_t>(sheetLink))
           .U16(0)
           .U16(9)
           .U8(0)
           .U8(0x40)
           .U8(3)
           .U8(0x40),
       Rec().U8(0x3B).Zeros(10).U16(1).U16(1).U16(0x4000).U16(0x4009).U8(0).U8(3)},
      {"name of this workbook", Rec().U8(0x39).U16(static_cast<uint32_t>(bookLink)).U16(1).U16(0),
       Rec().U8(0x39).Zeros(10).U16(1).Zeros(12)},
      {"wide string", Rec().U8(0x17).U8(2).U8(1).U16(0x3A9).U16('b'),
       Rec().U8(0x17).U8(2).U8(1).U16(0x3A9).U16('b')},
      {"sum of one argument loses its operand", Rec().U8(0x19).U8(0x10).U16(5),
       Rec().U8(0x19).U8(0x10).U16(0), false},
      {"IF around references: SI(VRAI;A1;B1)",
       Rec()
           .U8(0x1D)
           .U8(1)
           .U8(0x19)
           .U8(2)
           .U16(9)
           .U8(0x44)
           .U16(0)
           .U8(0)
           .U8(0xC0)
           .U8(0x19)
           .U8(8)
           .U16(12)
           .U8(0x44)
           .U16(0)
           .U8(1)
           .U8(0xC0)
           .U8(0x19)
           .U8(8)
           .U16(3)
           .U8(0x42)
           .U8(3)
           .U16(1),
       Rec()
           .U8(0x1D)
           .U8(1)
           .U8(0x19)
           .U8(2)
           .U16(8)
           .U8(0x44)
           .U16(0xC000)
           .U8(0)
           .U8(0x19)
           .U8(8)
           .U16(11)
           .U8(0x44)
           .U16(0xC000)
           .U8(1)
           .U8(0x19)
           .U8(8)
           .U16(3)
           .U8(0x42)
           .U8(3)
           .U16(1)},
      {"CHOOSE table: CHOISIR(2;A1;B1)",
       Rec()
           .U8(0x1E)
           .U16(2)
           .U8(0x19)
           .U8(4)
           .U16(2)
           .U16(6)
           .U16(15)
           .U16(24)
           .U8(0x44)
           .U16(0)
           .U8(0)
           .U8(0xC0)
           .U8(0x19)
           .U8(8)
           .U16(12)
           .U8(0x44)
           .U16(0)
           .U8(1)
           .U8(0xC0)
           .U8(0x19)
           .U8(8)
           .U16(3)
           .U8(0x42)
           .U8(3)
           .U16(100),
       Rec()
           .U8(0x1E)
           .U16(2)
           .U8(0x19)
           .U8(4)
           .U16(2)
           .U16(6)
           .U16(14)
           .U16(22)
           .U8(0x44)
           .U16(0xC000)
           .U8(0)
           .U8(0x19)
           .U8(8)
           .U16(11)
           .U8(0x44)
           .U16(0xC000)
           .U8(1)
           .U8(0x19)
           .U8(8)
           .U16(3)
           .U8(0x42)
           .U8(3)
           .U16(100)},
  };
  for (const TokenCase& c : cases) {
    SCOPED_TRACE(c.what);
    FormulaTokens memory = Tokens(c.memory.bytes), file{}, back{};
    ASSERT_TRUE(TokensToPocket(book, &memory, &file));
    EXPECT_EQ(BytesOf(file), c.file.bytes);
    if (c.both) {
      const char* why = nullptr;
      ASSERT_TRUE(PocketToTokens(book, c.file.bytes.data(),
                                 static_cast<uint32_t>(c.file.bytes.size()), &back, &why))
          << why;
      EXPECT_EQ(BytesOf(back), c.memory.bytes);
      EXPECT_EQ(back.extraLength, 0);
    }
    FreeTokens(&memory);
    FreeTokens(&file);
    FreeTokens(&back);
  }
}

TEST_F(PocketTest, FormulasTheFormatCannotHoldAreNamed) {
  uint32_t other = 0;
  int32_t otherLink = 0;
  ASSERT_TRUE(FindOrAddExternalBook(book, ExternalOtherFile, u"\1autre.xls", &other));
  ASSERT_TRUE(FindOrAddSheetLink(book, static_cast<int16_t>(other), 0, 0, &otherLink));
  const struct {
    Rec tokens;
    int32_t drop;
  } cases[] = {
      {Rec().U8(0x1E).U16(1).U8(0x41).U16(24), PocketKept},           // ABS
      {Rec().U8(0x1E).U16(1).U8(0x41).U16(336), PocketDropFunction},  // CONCATENER
      {Rec().U8(0x1E).U16(1).U8(0x42).U8(1).U16(4), PocketKept},      // SOMME
      {Rec().U8(0x1E).U16(1).U8(0x42).U8(1).U16(255), PocketDropFunction},
      {Rec().U8(0x24).U16(16384).U8(0).U8(0), PocketDropRows},
      {Rec().U8(0x25).U16(0).U16(65535).U8(0).U8(0).U8(0).U8(0), PocketDropRows},
      {Rec().U8(0x3A).U16(static_cast<uint32_t>(otherLink)).U16(0).U8(0).U8(0), PocketDropLink},
      {Rec().U8(0x39).U16(static_cast<uint32_t>(otherLink)).U16(1).U16(0), PocketDropLink},
      {Rec().U8(0x24).U16(0).U8(0).U8(0).U8(0x24).U16(1).U8(0).U8(0).U8(0x10), PocketDropToken},
      {Rec().U8(0x19).U8(0x40).U16(1).U8(0x1E).U16(1), PocketDropSpace},
      {Rec().U8(0x01).U16(0).U16(0), PocketDropToken},  // ptgExp
  };
  for (const auto& c : cases) {
    FormulaTokens t = Tokens(c.tokens.bytes);
    EXPECT_EQ(PocketFormulaDrop(book, &t), c.drop) << testing::PrintToString(c.tokens.bytes);
    FormulaTokens file{};
    EXPECT_EQ(TokensToPocket(book, &t, &file) != 0, c.drop == PocketKept);
    FreeTokens(&file);
    FreeTokens(&t);
  }
}

TEST_F(PocketTest, MalformedFileTokensAreRefusedWithAReason) {
  const Rec cases[] = {
      Rec().U8(0x44).U16(0),                              // a reference cut short
      Rec().U8(0x23).U16(1).Zeros(5),                     // a name cut short
      Rec().U8(0x3A).Zeros(14),                           // a 3-D reference cut short
      Rec().U8(0x17).U8(3).U8(0).U8('a'),                 // a string cut short
      Rec().U8(0x17).U8(1).U8(2).U8('a').U8('a'),         // a string of no known width
      Rec().U8(0x01).U16(0).U16(0),                       // ptgExp: not a token of the format
      Rec().U8(0x20).Zeros(7),                            // a constant array
      Rec().U8(0x19).U8(4).U16(3).U16(0),                 // a CHOOSE table cut short
      Rec().U8(0x19).U8(8).U16(0).U8(0x44).U16(0).U8(0),  // goto into the middle of a token
      Rec().U8(0x19).U8(2).U16(0x7FFF).U8(0x1E).U16(1),   // IF past the end
  };
  for (const Rec& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.bytes));
    FormulaTokens out{};
    const char* why = nullptr;
    EXPECT_FALSE(
        PocketToTokens(book, c.bytes.data(), static_cast<uint32_t>(c.bytes.size()), &out, &why));
    EXPECT_NE(why, nullptr);
    EXPECT_EQ(out.bytes, nullptr);
  }
}

TEST(PocketFunctions, TheListNamesTheFunctionsOfTheFormat) {
  std::istringstream names(
      "ABS ACOS ALEA AMORLIN ANNEE ARRONDI ASIN ATAN ATAN2 BDECARTYPE BDECARTYPEP BDLIRE BDMAX "
      "BDMIN BDMOYENNE BDNB BDNBVAL BDPRODUIT BDSOMME BDVAR BDVARP CHOISIR CNUM COLONNES COS DATE "
      "DATEVAL DDB DEGRES DROITE ECARTYPE ECARTYPEP ENT EQUIV ESTERR ESTERREUR ESTLOGIQUE ESTNA "
      "ESTNONTEXTE ESTNUM ESTTEXTE ESTVIDE ET EXACT EXP FACT FAUX GAUCHE HEURE INDEX JOUR LIGNES "
      "LN "
      "LOG LOG10 MAINTENANT MAJUSCULE MAX MIN MINUSCULE MINUTE MOD MOIS MOYENNE N NA NB NB.SI "
      "NB.VIDE NBCAR NBVAL NOMPROPRE NON NPM OU PI PRODUIT PUISSANCE RACINE RADIANS RECHERCHEH "
      "RECHERCHEV REMPLACER REPT SECONDE SI SIN SOMME SOMME.SI STXT SUBSTITUE SUPPRESPACE SYD T "
      "TAN "
      "TAUX TEMPS TEMPSVAL TRI TRONQUE TROUVE TYPE.ERREUR VA VAN VAR VAR.P VC VPM VRAI");
  uint32_t i = 0;
  for (std::string name; names >> name; i++) {
    std::u16string text = Utf8ToU16(name);
    const FunctionEntry* e =
        FindFunctionByName(text.c_str(), static_cast<uint32_t>(text.size()), nullptr);
    ASSERT_NE(e, nullptr) << name;
    ASSERT_LT(i, PocketFunctionCount);
    EXPECT_EQ(FunctionNumber(e), PocketFunctions[i]) << name;
  }
  EXPECT_EQ(i, PocketFunctionCount);
}

}  // namespace
