// Storing a typed text in cells: classification, compilation, the choice of each cell's format,
// and the store itself. See entry.h for the contract.
#include "edit/entry.h"

#include "base/alloc.h"
#include "base/text.h"
#include "format/input.h"
#include "formula/parser.h"
#include "formula/tokens.h"
#include "model/cells.h"
#include "model/styles.h"
#include "model/value.h"
#include "model/workbook.h"

// LIEN_HYPERTEXTE: a formula calling it shows in the underlined link colour.
static constexpr uint16_t HyperlinkFunction = 359;
static constexpr uint16_t LinkColor = 12;

// Formats a user chose on purpose are kept against the format an entry would bring: the fixed
// two-decimal number, the currency forms, dates and times, and everything from 49 on (text and
// the workbook's own codes).
static bool KeepsOwnFormat(uint16_t id) {
  return id == 2 || (id >= 5 && id <= 8) || (id >= 14 && id <= 22) || id >= 49;
}

// What the entry brings to every cell's format, worked out once.
struct EntryFormat {
  int32_t formatId;  // built-in format id the entry asks for; -1 for none
  bool quotePrefix;
  bool wrap;
  bool hyperlink;
};

static int ChooseXf(uint32_t book, uint32_t sheet, uint32_t row, uint32_t col,
                    const EntryFormat* entry, uint16_t* out) {
  Workbook* wb = GetWorkbook(book);
  Xf xf = wb->xfs[XfForCell(book, sheet, row, col)];
  if (entry->quotePrefix)
    xf.flags |= XfQuotePrefix;
  else
    xf.flags &= ~XfQuotePrefix;
  if (entry->wrap) xf.flags |= XfWrap;
  if (entry->formatId >= 0 && xf.numberFormat < wb->numberFormatCount &&
      !KeepsOwnFormat(wb->numberFormats[xf.numberFormat].id)) {
    int32_t format = FindNumberFormatById(book, static_cast<uint32_t>(entry->formatId));
    if (format >= 0) xf.numberFormat = static_cast<uint16_t>(format);
  }
  if (entry->hyperlink && wb->fontCount) {
    FontRecord font = wb->fonts[0];
    font.attributes |= FontUnderline;
    font.color = LinkColor;
    font.screenHandle = nullptr;
    font.printHandle = nullptr;
    font.cachedMetric = 0;
    if (!InternFont(book, &font, &xf.font)) return 0;
  }
  return InternXf(book, &xf, out);
}

// The format hint of the first function the formula calls; -1 or 0 when it has none.
static int32_t FormulaFormatHint(const ParseContext* ctx, const char16_t* text) {
  int32_t length = static_cast<int32_t>(TextLength(text));
  int32_t start = 0;
  int unionAllowed = 1;
  if (text[0] == u'=') {
    start = 1;
    unionAllowed = 0;
    while (start < length && text[start] == u' ') start++;
  }
  int32_t hint = -1;
  ScanExpression(ctx, text, start, length, unionAllowed, &hint);
  return hint;
}

static bool HasLineFeed(const char16_t* text) {
  for (; *text; text++)
    if (*text == u'\n') return true;
  return false;
}

// Array formulas that lie wholly in the target are replaced by the entry.
static void RemoveArraysInside(Sheet* s, const Range* target) {
  uint32_t kept = 0;
  for (uint32_t i = 0; i < s->arrayFormulaCount; i++) {
    ArrayFormula* a = &s->arrayFormulas[i];
    Range overlap;
    if (IntersectRanges(&a->range, target, &overlap) && EqualRanges(&overlap, &a->range)) {
      FreeTokens(&a->formula);
      continue;
    }
    s->arrayFormulas[kept++] = *a;
  }
  s->arrayFormulaCount = kept;
}

static int AppendArrayFormula(Sheet* s, const Range* range) {
  auto* grown = static_cast<ArrayFormula*>(
      Reallocate(s->arrayFormulas, s->arrayFormulaCount * sizeof(ArrayFormula),
                 (s->arrayFormulaCount + 1) * sizeof(ArrayFormula)));
  if (!grown) return 0;
  s->arrayFormulas = grown;
  s->arrayFormulas[s->arrayFormulaCount++] = ArrayFormula{*range, FormulaTokens{}};
  return 1;
}

// Fills the value or formula of one cell of the target from the classified entry.
static int FillCell(const EntryTarget* t, InputKind kind, const InputResult* input,
                    const FormulaTokens* tokens, const char16_t* text, Cell* proto) {
  switch (kind) {
    case InputFormula:
      if (!CopyTokens(&proto->formula, tokens)) return 0;
      if (t->fillSelection)
        ShiftRelativeRefs(&proto->formula, static_cast<int32_t>(proto->row) - t->anchorRow,
                          static_cast<int32_t>(proto->col) - t->anchorCol);
      return 1;
    case InputText: {
      char16_t* copy = TextDuplicate(text[0] == u'\'' ? text + 1 : text);
      if (!copy) return 0;
      proto->value = TextValue(copy);
      return 1;
    }
    case InputNumber:
      proto->value = NumberValue(input->number);
      return 1;
    case InputBoolean:
      proto->value = BooleanValue(input->boolean != 0);
      return 1;
    case InputError:
      proto->value = ErrorValue(input->error);
      return 1;
    default:
      return 1;
  }
}

int StoreEntry(const char16_t* text, const EntryTarget* t, EntryStatus* status) {
  *status = EntryStored;
  if (!text) text = u"";
  Sheet* s = GetSheet(t->book, t->sheet);
  if (!SheetHasCells(s)) return 0;
  const Range* r = &t->range;
  ParseContext ctx{.book = t->book,
                   .sheet = t->sheet,
                   .a1Style = A1Style,
                   .baseRow = r->firstRow,
                   .baseColumn = r->firstCol,
                   .relativeMode = ReferencesAsWritten,
                   .arrayFormula = t->arrayEntry};
  InputResult input{};
  EntryFormat format{
      .formatId = -1, .quotePrefix = text[0] == u'\'', .wrap = false, .hyperlink = false};
  bool textOnly = XfForCell(t->book, t->sheet, r->firstRow, r->firstCol) == TextOnlyXf;
  InputKind kind = textOnly ? InputText : ClassifyInput(&ctx, text, &input);
  FormulaTokens tokens{};
  switch (kind) {
    case InputFormula:
      switch (CompileFormula(&ctx, text, ClassCodeValue, &tokens)) {
        case CompileOk:
          break;
        case CompileNoMemory:
          return 0;
        default:
          *status = EntryBadFormula;
          return 0;
      }
      format.formatId = FormulaFormatHint(&ctx, text);
      if (format.formatId == 0) format.formatId = -1;
      format.hyperlink = TokensCallFunction(&tokens, &HyperlinkFunction, 1);
      break;
    case InputText:
      // A failed formula is never kept as text, but a lone "=", "+" or "-" is text.
      if (!textOnly && TextLength(text) > 1 &&
          (text[0] == u'=' || text[0] == u'+' || text[0] == u'-')) {
        *status = EntryBadFormula;
        return 0;
      }
      format.wrap = HasLineFeed(text);
      break;
    case InputNumber:
      format.formatId = BuiltInFormatForHint(input.hint, input.hintDetail);
      break;
    default:
      break;
  }

  s = GetSheet(t->book, t->sheet);
  RemoveArraysInside(s, r);
  int ok = 1;
  if (t->arrayEntry && kind == InputFormula) ok = AppendArrayFormula(s, r);
  for (uint32_t row = r->firstRow; ok && row <= r->lastRow; row++) {
    for (uint32_t col = r->firstCol; ok && col <= r->lastCol; col++) {
      Cell proto{};
      proto.row = static_cast<uint16_t>(row);
      proto.col = static_cast<uint8_t>(col);
      ok = FillCell(t, kind, &input, &tokens, text, &proto) &&
           ChooseXf(t->book, t->sheet, row, col, &format, &proto.xf) &&
           StoreCell(t->book, t->sheet, &proto, !t->loading, !t->loading);
      if (!ok) {
        FreeValue(&proto.value);
        FreeTokens(&proto.formula);
      }
    }
  }
  FreeTokens(&tokens);
  if (!t->loading) GetWorkbook(t->book)->dirty = 1;
  return ok;
}
