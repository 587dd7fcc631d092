// Compares a workbook with its copy read back from a saved file, cell by cell: values, formula
// text, the number format code, font and alignment of each cell's Xf, names, sheet names, row
// heights, column widths and merged areas. For an Excel 95 copy, the differences that follow from
// what that format cannot hold are recognised one by one and counted apart as expected: texts
// cut to 255 characters or narrowed through the code page, formulas that reach past row 16,384
// kept as their values, whole columns that end at row 16,384, and merged areas.
#pragma once
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "base/alloc.h"
#include "base/text.h"
#include "files/code_page.h"
#include "formula/formula_text.h"
#include "model/workbook.h"

struct WorkbookDifferences {
  int cells = 0;                        // cells compared
  int differences = 0;                  // unexplained
  std::map<std::string, int> expected;  // by reason
  std::vector<std::string> items;       // the first unexplained ones
};

namespace workbook_compare {

inline std::string Utf8(const char16_t* text) {
  return text ? TextToUtf8(text) : std::string();
}

inline std::string FormulaOf(uint32_t book, const Cell* c) {
  if (!c->formula.bytes) return {};
  char16_t* text = FormulaText(book, &c->formula, c->row, c->col, 1, c->row, c->col);
  std::string out = Utf8(text);
  Release(text);
  return out;
}

// The text as an Excel 95 file in `page` holds it: through the code page, at most `limit` bytes.
inline std::u16string Narrowed(CodePage* page, const char16_t* text, uint32_t limit) {
  std::string bytes;
  for (const char16_t* c = text; c && *c; c++) {
    uint8_t pair[2];
    uint32_t n = EncodeChar(page, *c, pair);
    if (bytes.size() + n > limit) break;
    bytes.append(reinterpret_cast<const char*>(pair), n);
  }
  char16_t* back = DecodeBytes(page, reinterpret_cast<const uint8_t*>(bytes.data()),
                               static_cast<uint32_t>(bytes.size()));
  std::u16string out = back ? back : u"";
  Release(back);
  return out;
}

inline bool SameValue(const Value& a, const Value& b) {
  if (a.tag != b.tag) return false;
  switch (a.tag) {
    case ValueNumber:
      return std::memcmp(&a.number, &b.number, 8) == 0 || a.number == b.number;
    case ValueText:
      return std::u16string(a.text ? a.text : u"") == std::u16string(b.text ? b.text : u"");
    case ValueBoolean:
      return a.boolean == b.boolean;
    case ValueError:
      return a.error == b.error;
    default:
      return true;
  }
}

// True when a token string holds an area from the first to the last row.
inline bool HasWholeColumn(const FormulaTokens* t) {
  for (uint32_t p = 0; p < t->length; p = NextTokenPosition(t->bytes, p)) {
    uint8_t base = FoldOpcode(t->bytes[p]);
    const uint8_t* a = t->bytes + p + 1 + (base == ptgArea3d || base == ptgAreaErr3d ? 2 : 0);
    if ((base == ptgArea || base == ptgArea3d || base == ptgMemArea) && a[0] == 0 && a[1] == 0 &&
        a[2] == 0xFF && a[3] == 0xFF)
      return true;
  }
  return false;
}

// True when a token string names a sheet's own name through ptgNameX: a local name of another
// sheet, or a sheet-level name of another book. Excel 95 links names by book only.
inline bool HasSheetNameX(uint32_t book, const FormulaTokens* t) {
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t p = 0; p < t->length; p = NextTokenPosition(t->bytes, p)) {
    if (FoldOpcode(t->bytes[p]) != ptgNameX) continue;
    uint16_t link = static_cast<uint16_t>(t->bytes[p + 1] | t->bytes[p + 2] << 8);
    if (link >= wb->sheetLinkCount) continue;
    const SheetLink& l = wb->sheetLinks[link];
    if (l.bookIndex < 0 || static_cast<uint32_t>(l.bookIndex) >= wb->externalBookCount) continue;
    const ExternalBook& external = wb->externalBooks[l.bookIndex];
    uint16_t index = static_cast<uint16_t>(t->bytes[p + 3] | t->bytes[p + 4] << 8);
    if (l.firstSheet >= 0 || external.kind == ExternalSelf ||
        (index && index <= external.nameCount && external.names[index - 1].field))
      return true;
  }
  return false;
}

// True when a book of the link table is named by a URL (encoded path mark 5).
inline bool HasUrlBook(uint32_t book) {
  const Workbook* wb = GetWorkbook(book);
  for (uint32_t i = 0; i < wb->externalBookCount; i++) {
    const char16_t* path = wb->externalBooks[i].path;
    if (path && path[0] == 1 && path[1] == 5) return true;
  }
  return false;
}

struct Comparer {
  uint32_t a, b;
  bool biff5;
  CodePage page{};
  WorkbookDifferences* out;

  void Differ(const std::string& what) {
    out->differences++;
    if (out->items.size() < 40) out->items.push_back(what);
  }
  void Expect(const char* reason) { out->expected[reason]++; }

  // A text as the copy should hold it.
  bool SameText(const char16_t* was, const char16_t* now, bool* expected) {
    std::u16string x = was ? was : u"", y = now ? now : u"";
    *expected = false;
    if (x == y) return true;
    if (biff5 && Narrowed(&page, was, 255) == y) return *expected = true;
    return false;
  }

  void CompareCell(uint32_t s, const Cell* x, const Cell* y, const std::string& where) {
    out->cells++;
    std::string fx = FormulaOf(a, x), fy = FormulaOf(b, y);
    bool narrowed = false;
    if (x->value.tag == ValueText && y->value.tag == ValueText &&
        SameText(x->value.text, y->value.text, &narrowed)) {
      if (narrowed) Expect("text narrowed or cut to 255 characters");
    } else if (!SameValue(x->value, y->value)) {
      Differ(where + ": value differs");
    }
    if (fx != fy) {
      if (biff5 && fy.empty())
        Expect("formula reaching past row 16384 kept as its value");
      else if (biff5 && HasWholeColumn(&x->formula))
        Expect("whole column ends at row 16384");
      else if (biff5 && HasSheetNameX(a, &x->formula))
        Expect("name of a sheet linked by its book");
      else if (biff5 && fy == Utf8(Narrowed(&page, Utf8ToU16(fx).c_str(), 0xFFFF).c_str()))
        Expect("formula text narrowed through the code page");
      else
        Differ(where + ": formula " + fx + " / " + fy);
    }
    const Workbook* wa = GetWorkbook(a);
    const Workbook* wb = GetWorkbook(b);
    const Xf& xa = wa->xfs[x->xf];
    const Xf& xb = wb->xfs[y->xf];
    std::u16string ca = wa->numberFormats[xa.numberFormat].code;
    std::u16string cb = wb->numberFormats[xb.numberFormat].code;
    bool narrowedCode = false;
    if (!SameText(ca.c_str(), cb.c_str(), &narrowedCode))
      Differ(where + ": number format " + Utf8(ca.c_str()) + " / " + Utf8(cb.c_str()));
    else if (narrowedCode)
      Expect("number format narrowed through the code page");
    const FontRecord& fa = wa->fonts[xa.font < wa->fontCount ? xa.font : 0];
    const FontRecord& fb = wb->fonts[xb.font < wb->fontCount ? xb.font : 0];
    bool narrowedFace = false;
    if (fa.height != fb.height || fa.attributes != fb.attributes || fa.color != fb.color ||
        fa.weight != fb.weight || !SameText(fa.faceName, fb.faceName, &narrowedFace))
      Differ(where + ": font " + Utf8(fa.faceName) + " " + std::to_string(fa.height) + " " +
             std::to_string(fa.attributes) + " " + std::to_string(fa.color) + " " +
             std::to_string(fa.weight) + " / " + Utf8(fb.faceName) + " " +
             std::to_string(fb.height) + " " + std::to_string(fb.attributes) + " " +
             std::to_string(fb.color) + " " + std::to_string(fb.weight));
    else if (narrowedFace)
      Expect("font name narrowed through the code page");
    if (xa.horizontalAlign != xb.horizontalAlign || xa.verticalAlign != xb.verticalAlign ||
        (xa.flags & XfWrap) != (xb.flags & XfWrap))
      Differ(where + ": alignment");
    (void)s;
  }

  void CompareSheet(uint32_t s) {
    const Sheet* x = GetSheet(a, s);
    const Sheet* y = GetSheet(b, s);
    std::string name = Utf8(x->name);
    bool narrowedName = false;
    if (!SameText(x->name, y->name, &narrowedName))
      Differ("sheet name " + name);
    else if (narrowedName)
      Expect("sheet name narrowed through the code page");
    if (x->kind != y->kind) Differ(name + ": kind");
    if (!SheetHasCells(x)) return;
    uint32_t i = 0, j = 0, lastRow = 0;
    while (i < x->cells.count || j < y->cells.count) {
      const Cell* cx = i < x->cells.count ? x->cells.cells[i] : nullptr;
      const Cell* cy = j < y->cells.count ? y->cells.cells[j] : nullptr;
      uint32_t kx = cx ? cx->row * 256u + cx->col : UINT32_MAX;
      uint32_t ky = cy ? cy->row * 256u + cy->col : UINT32_MAX;
      std::string where = name + "!R" + std::to_string((kx < ky ? kx : ky) / 256 + 1) + "C" +
                          std::to_string((kx < ky ? kx : ky) % 256 + 1);
      if (kx == ky) {
        CompareCell(s, cx, cy, where);
        lastRow = cx->row;
        i++, j++;
      } else if (kx < ky && biff5 && cx->row >= 16384) {
        Expect("cell past row 16384");
        i++;
      } else if (kx < ky) {
        Differ(where + ": missing from the copy");
        i++;
      } else {
        Differ(where + ": only in the copy");
        j++;
      }
    }
    for (uint32_t r = 0; r < x->rows.count; r++)
      if (x->rows.records[r]->row > lastRow) lastRow = x->rows.records[r]->row;
    if (biff5 && lastRow > 16383) lastRow = 16383;
    for (uint32_t r = 0; r <= lastRow; r++)
      if (RowHeightTwips(a, s, r) != RowHeightTwips(b, s, r)) {
        Differ(name + ": height of row " + std::to_string(r + 1));
        break;
      }
    for (uint32_t c = 0; c <= MaxCol; c++)
      if (ColumnWidthUnits(a, s, c) != ColumnWidthUnits(b, s, c)) {
        if (biff5 && x->defaultColWidth % 256 && !FindColumnRecordAt(x, c))
          Expect("standard width in whole characters");
        else
          Differ(name + ": width of column " + std::to_string(c + 1));
        break;
      }
    bool sameMerges = x->mergeCount == y->mergeCount;
    for (uint32_t m = 0; sameMerges && m < x->mergeCount; m++)
      sameMerges = EqualRanges(&x->merges[m], &y->merges[m]);
    if (!sameMerges) {
      if (biff5 && y->mergeCount == 0)
        Expect("merged areas");
      else
        Differ(name + ": merged areas");
    }
  }

  static bool FindColumnRecordAt(const Sheet* s, uint32_t col) {
    uint32_t index;
    return FindColumnRecord(&s->columns, col, &index) != 0;
  }

  void CompareNames() {
    const Workbook* wa = GetWorkbook(a);
    const Workbook* wb = GetWorkbook(b);
    if (wa->nameCount != wb->nameCount) return Differ("name count");
    for (uint32_t n = 0; n < wa->nameCount; n++) {
      const DefinedName& x = wa->names[n];
      const DefinedName& y = wb->names[n];
      std::string name = Utf8(x.name);
      bool narrowed;
      if (!SameText(x.name, y.name, &narrowed) || x.localSheet != y.localSheet ||
          x.options != y.options)
        Differ("name " + name);
      char16_t* tx = x.formula.bytes ? FormulaText(a, &x.formula, 0, 0, 1, 0, 0) : nullptr;
      char16_t* ty = y.formula.bytes ? FormulaText(b, &y.formula, 0, 0, 1, 0, 0) : nullptr;
      std::string sx = Utf8(tx), sy = Utf8(ty);
      Release(tx);
      Release(ty);
      if (sx != sy) {
        if (biff5 && sy.empty())
          Expect("name formula BIFF5 cannot say");
        else if (biff5 && x.formula.bytes && HasWholeColumn(&x.formula))
          Expect("whole column ends at row 16384");
        else if (biff5 && x.formula.bytes && HasSheetNameX(a, &x.formula))
          Expect("name of a sheet linked by its book");
        else if (biff5 && sy == Utf8(Narrowed(&page, Utf8ToU16(sx).c_str(), 0xFFFF).c_str()))
          Expect("formula text narrowed through the code page");
        else if (biff5 && HasUrlBook(a))
          Expect("book path given as a URL");
        else
          Differ("name " + name + ": " + sx + " / " + sy);
      }
    }
  }
};

}  // namespace workbook_compare

// Compares workbook `original` with `copy`, read back from a save in Excel 95 form when `biff5`.
inline void CompareWorkbooks(uint32_t original, uint32_t copy, bool biff5,
                             WorkbookDifferences* out) {
  workbook_compare::Comparer c{original, copy, biff5, {}, out};
  OpenCodePage(GetWorkbook(copy)->codePage, &c.page);
  const Workbook* wa = GetWorkbook(original);
  const Workbook* wb = GetWorkbook(copy);
  if (wa->sheetCount != wb->sheetCount) {
    c.Differ("sheet count");
  } else {
    for (uint32_t s = 0; s < wa->sheetCount; s++) c.CompareSheet(s);
  }
  c.CompareNames();
  CloseCodePage(&c.page);
}
