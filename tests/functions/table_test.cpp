// The function table: order, counts, lookups, the BIFF numbers compared with the published list,
// and the rows whose handlers have yet to be written.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "base/text.h"
#include "formula/evaluator.h"
#include "formula/token_builder.h"
#include "functions/handlers.h"
#include "functions/table.h"
#include "model/workbook.h"

namespace {

struct EnglishName {
  const char16_t* name;
  const char* english;
  bool addIn;
};
const EnglishName englishNames[] = {
#include "functions/english_names.inc"
};

std::string Utf8(const char16_t* s) {
  return TextToUtf8(s);
}

// Upper-case letters count the required arguments; the length is the maximum count.
int Required(const char* args) {
  int n = 0;
  for (const char* p = args; *p; p++) n += (*p >= 'A' && *p <= 'Z');
  return n;
}

TEST(FunctionTable, IsSortedUniqueAndComplete) {
  const FunctionTables* t = ActiveFunctionTables();
  ASSERT_EQ(t->mainCount, 720u);
  ASSERT_EQ(t->addInCount, 112u);
  std::set<std::string> names;
  for (const auto& [rows, count] : {std::pair{t->main, t->mainCount}, {t->addIn, t->addInCount}}) {
    for (uint32_t i = 0; i < count; i++) {
      EXPECT_TRUE(names.insert(Utf8(rows[i].name)).second) << Utf8(rows[i].name);
      if (i > 0) {
        EXPECT_LT(CompareTextNoCase(rows[i - 1].name, rows[i].name), 0) << i;
      }
      EXPECT_LE(std::strlen(rows[i].args), 30u);
      EXPECT_NE(rows[i].handler, nullptr);
    }
  }
  EXPECT_EQ(names.size(), 832u);
}

TEST(FunctionTable, CountsPerCategory) {
  const FunctionTables* t = ActiveFunctionTables();
  std::map<uint32_t, int> counts;
  for (uint32_t i = 0; i < t->mainCount; i++) counts[FunctionCategory(&t->main[i])]++;
  for (uint32_t i = 0; i < t->addInCount; i++) counts[t->addIn[i].info & 0xFF]++;
  std::map<uint32_t, int> expected = {{0, 1},   {1, 53},  {2, 21},   {3, 59},   {4, 78},
                                      {5, 16},  {6, 12},  {7, 23},   {8, 5},    {9, 18},
                                      {10, 40}, {11, 16}, {12, 148}, {255, 342}};
  EXPECT_EQ(counts, expected);
}

TEST(FunctionTable, FindsByNameAndNumber) {
  int addIn = -1;
  const char16_t lower[] = u"somme(1;2)";
  const FunctionEntry* e = FindFunctionByName(lower, 5, &addIn);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(Utf8(e->name), "SOMME");
  EXPECT_EQ(addIn, 0);
  EXPECT_EQ(FunctionNumber(e), 4u);
  EXPECT_EQ(FunctionFormatHint(e), -1);
  e = FindFunctionByName(u"fin.mois", 8, &addIn);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(addIn, 1);
  EXPECT_EQ(FindFunctionByName(u"SOMMES", 6, nullptr), nullptr);
  EXPECT_EQ(FindFunctionByName(u"SOMM", 4, nullptr), nullptr);
  const char16_t entree[] = u"entr\u00E9e";
  EXPECT_NE(FindFunctionByName(entree, 6, nullptr), nullptr);

  // The volatile rows, by their numbers.
  const std::pair<uint32_t, std::string> volatiles[] = {
      {63, "ALEA"},    {74, "MAINTENANT"}, {221, "AUJOURDHUI"}, {244, "INFO"},
      {78, "DECALER"}, {125, "CELLULE"},   {148, "INDIRECT"},   {344, "SOUS.TOTAL"}};
  for (const auto& [number, name] : volatiles) {
    ASSERT_NE(FunctionNameByNumber(number), nullptr) << number;
    EXPECT_EQ(Utf8(FunctionNameByNumber(number)), name);
  }
  // An old command name shares its number with the new one; the number finds the working row.
  EXPECT_EQ(Utf8(FunctionNameByNumber(32975)), "PROPRIETES.OBJET");
  EXPECT_EQ(FunctionNameByNumber(9999), nullptr);
}

TEST(FunctionTable, FixedAndVariableForms) {
  // All upper case below 0x8000 is a fixed argument count; the rest are variable.
  const std::pair<const char16_t*, const char*> rows[] = {
      {u"SOMME", "Rrrrrrrrrrrrrrrrrrrrrrrrrrrrrr"},
      {u"DECALER", "CVVvv"},
      {u"BDNB", "CwC"},
      {u"ABS", "V"},
      {u"PI", ""},
      {u"SI", "VRr"}};
  for (const auto& [name, args] : rows) {
    const FunctionEntry* e = FindFunctionByName(name, TextLength(name), nullptr);
    ASSERT_NE(e, nullptr) << Utf8(name);
    EXPECT_STREQ(e->args, args) << Utf8(name);
  }
}

// The evaluator reaches the built-in rows by number: handlers that exist run, the rows without an
// implementation give FALSE, and the rows whose family is still to come give #N/A.
TEST(FunctionTable, DispatchesThroughTheBuiltInRows) {
  uint32_t book;
  ASSERT_TRUE(CreateWorkbook(nullptr, 0, &book));
  struct Case {
    TokenBuilder tokens;
    Value expected;
  };
  const Case cases[] = {
      {TokenBuilder().Int(1).Int(2).Str(u"3").FuncVar(4, 3), NumberValue(6)},       // SOMME
      {TokenBuilder().Func(34), BooleanValue(true)},                                // VRAI()
      {TokenBuilder().Func(35), BooleanValue(false)},                               // FAUX()
      {TokenBuilder().Int(1).FuncVar(32798, 1), BooleanValue(false)},               // A1.L1C1(1)
      {TokenBuilder().Bool(true).Bool(false).FuncVar(36, 2), BooleanValue(false)},  // ET
      {TokenBuilder().Func(10).Func(2), BooleanValue(true)},                        // ESTNA(NA())
      {TokenBuilder().Int(1).Func(24), ErrorValue(ErrNA)},  // ABS: its family is still to come
  };
  for (const Case& c : cases) {
    FormulaTokens tokens = c.tokens.Build();
    ASSERT_TRUE(ValidateTokens(&tokens, TokensForCell, nullptr));
    EvalContext ctx{book, 0, 0, 0, 0};
    Value result{};
    ASSERT_TRUE(Evaluate(&tokens, &result, &ctx));
    EXPECT_EQ(result.tag, c.expected.tag);
    EXPECT_EQ(result.number, c.expected.number);
    FreeValue(&result);
    FreeTokens(&tokens);
  }
  CloseAllWorkbooks();
}

// Reads the published table of BIFF numbers: English name -> (number, minimum, maximum).
struct Published {
  uint32_t number;
  int minimum, maximum;
};
bool ReadPublished(const std::string& path, uint32_t base, std::map<std::string, Published>* out) {
  std::ifstream in(path);
  if (!in) return false;
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream fields(line);
    std::string index, name, minimum, maximum;
    std::getline(fields, index, '\t');
    std::getline(fields, name, '\t');
    std::getline(fields, minimum, '\t');
    std::getline(fields, maximum, '\t');
    if (index.empty() || name.empty()) continue;
    (*out)[name] = {base + static_cast<uint32_t>(std::stoul(index)), std::atoi(minimum.c_str()),
                    std::atoi(maximum.c_str())};
  }
  return true;
}

std::string ReferenceFolder() {
  if (const char* dir = std::getenv("TESSAREL_REFERENCE")) return dir;
  return std::string(TESSAREL_SOURCE_DIR) + "/../shared/reference";
}

TEST(FunctionTable, NumbersMatchThePublishedList) {
  std::map<std::string, Published> sheet, commands;
  std::string folder = ReferenceFolder();
  bool found = ReadPublished(folder + "/biff-functions.txt", 0, &sheet) &&
               ReadPublished(folder + "/biff-command-functions.txt", 0x8000, &commands);
  if (!found) {
    if (std::getenv("CI") && std::string(std::getenv("CI")) == "true")
      FAIL() << "reference tables missing at " << folder;
    GTEST_SKIP() << "reference tables not found at " << folder;
  }
  int compared = 0;
  for (const EnglishName& row : englishNames) {
    if (row.addIn) continue;
    const FunctionEntry* e = FindFunctionByName(row.name, TextLength(row.name), nullptr);
    ASSERT_NE(e, nullptr);
    uint32_t number = FunctionNumber(e);
    const auto& published = number >= 0x8000 ? commands : sheet;
    auto it = published.find(row.english);
    if (it == published.end()) continue;
    compared++;
    EXPECT_EQ(number, it->second.number) << Utf8(row.name) << " = " << row.english;
    int length = static_cast<int>(std::strlen(e->args));
    bool fixed = number < 0x8000 && Required(e->args) == length;
    if (number < 0x8000 && it->second.maximum < 30) {
      EXPECT_EQ(length, it->second.maximum) << Utf8(row.name);
      if (fixed) {
        EXPECT_EQ(length, it->second.minimum) << Utf8(row.name);
      }
    } else if (number < 0x8000) {
      EXPECT_EQ(length, 30) << Utf8(row.name);
    }
  }
  EXPECT_GT(compared, 300);
}

// The rows whose families are still to be written. The list shrinks as they arrive.
TEST(FunctionTable, RowsStillWaitingForTheirHandlers) {
  const std::set<std::u16string> waiting = {
      u"ABS",
      u"ACOS",
      u"ACOSH",
      u"ACTIVER",
      u"ACTIVER.CLASSEUR",
      u"ACTIVER.OBJET",
      u"ACTIVER.PREC",
      u"ACTIVER.SUIV",
      u"ADRESSE",
      u"AFFECTER.A.OBJET",
      u"AFFICHER.CELLULE.ACTIVE",
      u"AFFICHER.CLASSEUR",
      u"AIRES",
      u"AJOUTER.TEXTE",
      u"ALEA",
      u"ALEA.ENTRE.BORNES",
      u"ALERTE",
      u"AMORDEGRC",
      u"AMORLIN",
      u"AMORLINC",
      u"ANNEE",
      u"ANNULER",
      u"ARGUMENT",
      u"ARRETER",
      u"ARRIERE.PLAN",
      u"ARRONDI",
      u"ARRONDI.AU.MULTIPLE",
      u"ARRONDI.INF",
      u"ARRONDI.SUP",
      u"ASC",
      u"ASIN",
      u"ASINH",
      u"ATAN",
      u"ATAN2",
      u"ATANH",
      u"ATTEINDRE",
      u"ATTENDRE",
      u"AUJOURDHUI",
      u"AXES",
      u"BARRES",
      u"BDECARTYPE",
      u"BDECARTYPEP",
      u"BDLIRE",
      u"BDMAX",
      u"BDMIN",
      u"BDMOYENNE",
      u"BDNB",
      u"BDNBVAL",
      u"BDPRODUIT",
      u"BDSOMME",
      u"BDVAR",
      u"BDVARP",
      u"BESSELI",
      u"BESSELJ",
      u"BESSELK",
      u"BESSELY",
      u"BETA.INVERSE",
      u"BINDEC",
      u"BINHEX",
      u"BINOCT",
      u"BIP",
      u"CALCULER.DOCUMENT",
      u"CALCULER.MAINTENANT",
      u"CAR",
      u"CELLULE",
      u"CELLULE.ACTIVE",
      u"CELLULE.APPELANTE",
      u"CENTILE",
      u"CENTREE.REDUITE",
      u"CHERCHE",
      u"CHOISIR",
      u"CLASSEUR.PRECEDENT",
      u"CLASSEUR.SUIVANT",
      u"CNUM",
      u"CODE",
      u"COEFFICIENT.ASYMETRIE",
      u"COEFFICIENT.CORRELATION",
      u"COEFFICIENT.DETERMINATION",
      u"COLLAGE.SPECIAL",
      u"COLLER",
      u"COLONNE",
      u"COLONNES",
      u"COMBIN",
      u"COMMENTAIRES",
      u"COMPLETER.SELECTION",
      u"COMPLEXE",
      u"COMPLEXE.ARGUMENT",
      u"COMPLEXE.CONJUGUE",
      u"COMPLEXE.COS",
      u"COMPLEXE.DIFFERENCE",
      u"COMPLEXE.DIV",
      u"COMPLEXE.EXP",
      u"COMPLEXE.IMAGINAIRE",
      u"COMPLEXE.LN",
      u"COMPLEXE.LOG10",
      u"COMPLEXE.LOG2",
      u"COMPLEXE.MODULE",
      u"COMPLEXE.PRODUIT",
      u"COMPLEXE.PUISSANCE",
      u"COMPLEXE.RACINE",
      u"COMPLEXE.REEL",
      u"COMPLEXE.SIN",
      u"COMPLEXE.SOMME",
      u"CONCATENER",
      u"CONVERSION.FORMULE",
      u"CONVERT",
      u"COPIER",
      u"COS",
      u"COSH",
      u"COUPER",
      u"COURBES",
      u"COVARIANCE",
      u"CREER.OBJET",
      u"CRITERE.LOI.BINOMIALE",
      u"CROISSANCE",
      u"CTXT",
      u"CUMUL.INTER",
      u"CUMUL.PRINCPER",
      u"DATE",
      u"DATE.COUPON.PREC",
      u"DATE.COUPON.SUIV",
      u"DATEDIF",
      u"DATESTRING",
      u"DATEVAL",
      u"DB",
      u"DBCS",
      u"DDB",
      u"DECALER",
      u"DECBIN",
      u"DECHEX",
      u"DECOCT",
      u"DEFILEMENTH",
      u"DEFILEMENTV",
      u"DEFINIR.NOM",
      u"DEFINIR.VALEUR.CONTROLE",
      u"DEGRES",
      u"DELTA",
      u"DEREF",
      u"DETERMAT",
      u"DOCUMENTS",
      u"DONNEES.SERIE",
      u"DROITE",
      u"DROITEREG",
      u"DUPLIQUER",
      u"DUREE",
      u"DUREE.MODIFIEE",
      u"ECART.MOYEN",
      u"ECARTYPE",
      u"ECARTYPEP",
      u"ECHELLE",
      u"ECRAN",
      u"EDITION.SUPPRIMER",
      u"EFFACER",
      u"ENCADREMENT",
      u"ENREGISTRER",
      u"ENREGISTRER.DIALOGUE",
      u"ENREGISTRER.SOUS",
      u"ENT",
      u"ENTR\u00C9E",
      u"EPURAGE",
      u"EQUIV",
      u"ERF",
      u"ERFC",
      u"ERREUR",
      u"ERREUR.TYPE.XY",
      u"ETIQUETTES.DONNEES",
      u"EVALUER",
      u"EXACT",
      u"EXP",
      u"F.DIMENSION",
      u"F.ECRIRE",
      u"F.ECRIRE.LIGNE",
      u"F.FERMER",
      u"F.LIRE",
      u"F.LIRE.LIGNE",
      u"F.OUVRIR",
      u"F.POSITION",
      u"FACT",
      u"FACTDOUBLE",
      u"FICHIER.FERMER",
      u"FICHIER.SUPPRIMER",
      u"FICHIERS",
      u"FIGER.VOLETS",
      u"FILTRE",
      u"FILTRE.AFFICHER.TOUS",
      u"FILTRE.ELABORE",
      u"FIN.MOIS",
      u"FIN.SI",
      u"FINDB",
      u"FISHER",
      u"FISHER.INVERSE",
      u"FONCTION.APPELANTE",
      u"FORMAT.DEPLACEMENT",
      u"FORMAT.LEGENDE",
      u"FORMAT.NOMBRE",
      u"FORMAT.TEXTE",
      u"FORMULE",
      u"FORMULE.MATRICIELLE",
      u"FRACTION.ANNEE",
      u"FRANC",
      u"FREQUENCE",
      u"GAUCHE",
      u"GETPIVOTDATA",
      u"GRANDE.VALEUR",
      u"GRAPHIQUE.ANNEAU",
      u"GRILLE",
      u"HAUTEUR.LIGNE",
      u"HEURE",
      u"HEXBIN",
      u"HEXDEC",
      u"HEXOCT",
      u"HISTOGRAMMES",
      u"IMPAIR",
      u"INDEX",
      u"INDIRECT",
      u"INFO",
      u"INSERER",
      u"INSERER.CLASSEUR",
      u"INSERER.TITRE",
      u"INTERET.ACC",
      u"INTERET.ACC.MAT",
      u"INTERVALLE.CONFIANCE",
      u"INTPER",
      u"INVERSE.LOI.F",
      u"INVERSEMAT",
      u"ISPMT",
      u"JOUR",
      u"JOURS360",
      u"JOURSEM",
      u"KHIDEUX.INVERSE",
      u"KURTOSIS",
      u"LARGEUR.COLONNE",
      u"LARGEUR.STANDARD",
      u"LEFTB",
      u"LEGENDE",
      u"LENB",
      u"LIEN_HYPERTEXTE",
      u"LIGNE",
      u"LIGNEH",
      u"LIGNES",
      u"LIGNEV",
      u"LIRE.CELLULE",
      u"LIRE.COMMENTAIRES",
      u"LIRE.FORMULE",
      u"LIRE.NOM",
      u"LIRE.OBJET",
      u"LN",
      u"LNGAMMA",
      u"LOG",
      u"LOG10",
      u"LOGREG",
      u"LOI.BETA",
      u"LOI.BINOMIALE",
      u"LOI.BINOMIALE.NEG",
      u"LOI.EXPONENTIELLE",
      u"LOI.F",
      u"LOI.GAMMA",
      u"LOI.GAMMA.INVERSE",
      u"LOI.HYPERGEOMETRIQUE",
      u"LOI.KHIDEUX",
      u"LOI.LOGNORMALE",
      u"LOI.LOGNORMALE.INVERSE",
      u"LOI.NORMALE",
      u"LOI.NORMALE.INVERSE",
      u"LOI.NORMALE.STANDARD",
      u"LOI.NORMALE.STANDARD.INVERSE",
      u"LOI.POISSON",
      u"LOI.STUDENT",
      u"LOI.STUDENT.INVERSE",
      u"LOI.WEIBULL",
      u"MAINTENANT",
      u"MAJUSCULE",
      u"MASQUER.CLASSEUR",
      u"MASQUER.OBJET",
      u"MAX",
      u"MAXA",
      u"MEDIANE",
      u"MESSAGE",
      u"MIDB",
      u"MIN",
      u"MINA",
      u"MINUSCULE",
      u"MINUTE",
      u"MOD",
      u"MODE",
      u"MODIFIER.COULEUR",
      u"MODIFIER.SELECTION",
      u"MODIFIER.SERIES",
      u"MOIS",
      u"MOIS.DECALER",
      u"MOTIFS",
      u"MOYENNE",
      u"MOYENNE.GEOMETRIQUE",
      u"MOYENNE.HARMONIQUE",
      u"MOYENNE.REDUITE",
      u"MOYENNEA",
      u"MULTINOMIALE",
      u"NB",
      u"NB.COUPONS",
      u"NB.JOURS.COUPON.PREC",
      u"NB.JOURS.COUPON.SUIV",
      u"NB.JOURS.COUPONS",
      u"NB.JOURS.OUVRES",
      u"NB.SI",
      u"NBCAR",
      u"NBVAL",
      u"NO.SEMAINE",
      u"NOMMER.CLASSEUR",
      u"NOMPROPRE",
      u"NOMS",
      u"NOUVEAU.DOCUMENT",
      u"NPM",
      u"NUAGES.DE.POINTS",
      u"NUMBERSTRING",
      u"OCTBIN",
      u"OCTDEC",
      u"OCTHEX",
      u"OPTIONS.AFFICHAGE",
      u"ORDONNEE.ORIGINE",
      u"OUVRIR",
      u"OUVRIR.DIALOGUE",
      u"PAGEH",
      u"PAGEV",
      u"PAIR",
      u"PALETTE.COULEURS",
      u"PEARSON",
      u"PENTE",
      u"PERMUTATION",
      u"PETITE.VALEUR",
      u"PGCD",
      u"PHON\u00C9TIQUE",
      u"PI",
      u"PLAFOND",
      u"PLANCHER",
      u"POSER.NOM",
      u"POSER.VALEUR",
      u"POSITION",
      u"POUR",
      u"POUR.CELLULE",
      u"PPCM",
      u"PREMIER.PLAN",
      u"PREVISION",
      u"PRINCPER",
      u"PRIX.BON.TRESOR",
      u"PRIX.DCOUPON.IRREG",
      u"PRIX.DEC",
      u"PRIX.FRAC",
      u"PRIX.PCOUPON.IRREG",
      u"PRIX.TITRE",
      u"PRIX.TITRE.ECHEANCE",
      u"PROBABILITE",
      u"PRODUIT",
      u"PRODUITMAT",
      u"PROPRIETES.BARRE.DEFILEMENT",
      u"PROPRIETES.CASE.A.COCHER",
      u"PROPRIETES.ETIQUETTE",
      u"PROPRIETES.OBJET",
      u"PROPRIETES.POLICE",
      u"PROPRIETES.ZONE.LISTE",
      u"PROTECTION.CELLULE",
      u"PROTEGER.DOCUMENT",
      u"PUISSANCE",
      u"QUADRILLAGE",
      u"QUARTILE",
      u"QUITTER",
      u"QUOTIENT",
      u"RACINE",
      u"RACINE.PI",
      u"RADAR",
      u"RADIANS",
      u"RANG",
      u"RANG.POURCENTAGE",
      u"RECHERCHE",
      u"RECHERCHEH",
      u"RECHERCHER.PRECEDENT.SEL",
      u"RECHERCHER.SELECTION",
      u"RECHERCHER.SUIVANT.SEL",
      u"RECHERCHEV",
      u"RECOMMENCER",
      u"RECOPIER.BAS",
      u"RECOPIER.DROITE",
      u"RECOPIER.GAUCHE",
      u"RECOPIER.HAUT",
      u"REFABS",
      u"REFREL",
      u"REFTEXTE",
      u"REMPLACER",
      u"REMPLACER.CELLULE",
      u"REND.DCOUPON.IRREG",
      u"REND.PCOUPON.IRREG",
      u"RENDEMENT.BON.TRESOR",
      u"RENDEMENT.SIMPLE",
      u"RENDEMENT.TITRE",
      u"RENDEMENT.TITRE.ECHEANCE",
      u"REPERTOIRE",
      u"REPLACEB",
      u"REPT",
      u"RETOUR",
      u"RIGHTB",
      u"ROMAIN",
      u"SEARCHB",
      u"SECONDE",
      u"SECTEURS",
      u"SEL.DERNIERE.CELLULE",
      u"SELECTION",
      u"SELECTION.ATTEINDRE",
      u"SELECTIONNER",
      u"SELON.DOUBLECLIC",
      u"SELON.ENTREE",
      u"SELON.FEUILLE",
      u"SERIE.JOUR.OUVRE",
      u"SIGNE",
      u"SIN",
      u"SINH",
      u"SINON",
      u"SINON.SI",
      u"SOMME.CARRES",
      u"SOMME.CARRES.ECARTS",
      u"SOMME.SERIES",
      u"SOMME.SI",
      u"SOMME.X2MY2",
      u"SOMME.X2PY2",
      u"SOMME.XMY2",
      u"SOMMEPROD",
      u"SORTIR.BOUCLE",
      u"SOUS.TOTAL",
      u"STDEVA",
      u"STDEVPA",
      u"STXT",
      u"SUBSTITUE",
      u"SUIVANT",
      u"SUP.SEUIL",
      u"SUPPRESPACE",
      u"SUPPRIMER.CLASSEUR",
      u"SUPPRIMER.FORMAT",
      u"SUPPRIMER.NOM",
      u"SYD",
      u"T",
      u"TAN",
      u"TANH",
      u"TANT.QUE",
      u"TAUX",
      u"TAUX.EFFECTIF",
      u"TAUX.ESCOMPTE",
      u"TAUX.ESCOMPTE.R",
      u"TAUX.INTERET",
      u"TAUX.NOMINAL",
      u"TEMPS",
      u"TEMPSVAL",
      u"TENDANCE",
      u"TEST.F",
      u"TEST.KHIDEUX",
      u"TEST.STUDENT",
      u"TEST.Z",
      u"TEXTE",
      u"TEXTEREF",
      u"TOUCHE.ARRET",
      u"TRANSPOSE",
      u"TRI",
      u"TRI.PAIEMENTS",
      u"TRIER",
      u"TRIM",
      u"TRONQUE",
      u"TROUVE",
      u"USDOLLAR",
      u"VA",
      u"VALEUR.CIBLE",
      u"VALEUR.ENCAISSEMENT",
      u"VALEUR.NOMINALE",
      u"VAN",
      u"VAN.PAIEMENTS",
      u"VAR",
      u"VAR.P",
      u"VARA",
      u"VARPA",
      u"VC",
      u"VC.PAIEMENTS",
      u"VDB",
      u"VPM",
      u"ZONE.TEXTE",
      u"ZONES",
      u"ZOOM",
  };
  std::set<std::u16string> pending;
  const FunctionTables* t = ActiveFunctionTables();
  for (const auto& [rows, count] : {std::pair{t->main, t->mainCount}, {t->addIn, t->addInCount}})
    for (uint32_t i = 0; i < count; i++)
      if (rows[i].handler == PendingFunction) pending.insert(rows[i].name);
  EXPECT_EQ(pending, waiting);
}

}  // namespace
