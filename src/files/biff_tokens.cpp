// Formula tokens at the BIFF border. BIFF5 tokens are rewritten into the BIFF8 form the model
// keeps: references gain a 16-bit column word, names and 3-D references lose their long heads
// (the sheet part becomes an entry of the workbook's link table), strings become 8- or 16-bit
// text, and every jump is corrected for the sizes that changed before its target. Array constants
// and area lists in the extra data are widened the same way. The relative tokens of a shared
// formula are turned into plain references for each cell that uses it.
#include <cstring>

#include "base/alloc.h"
#include "base/byte_buffer.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/biff_internal.h"
#include "model/names.h"
#include "model/workbook.h"

// ---------------------------------------------------------------------------------------------
// Relative tokens

static void ExpandCorner(uint8_t* row, uint8_t* col, uint32_t cellRow, uint32_t cellCol) {
  uint8_t flags = col[1];
  if (flags & RefRowRelative) WriteU16(row, static_cast<uint16_t>(ReadU16(row) + cellRow));
  if (flags & RefColRelative) col[0] = static_cast<uint8_t>(col[0] + cellCol);
}

void ExpandRelativeTokens(FormulaTokens* tokens, uint32_t row, uint32_t col) {
  uint8_t* b = tokens->bytes;
  for (uint32_t p = 0; p < tokens->length; p = NextTokenPosition(b, p)) {
    uint8_t base = FoldOpcode(b[p]);
    if (base == ptgRefN) {
      ExpandCorner(b + p + 1, b + p + 3, row, col);
    } else if (base == ptgAreaN) {
      ExpandCorner(b + p + 1, b + p + 5, row, col);
      ExpandCorner(b + p + 3, b + p + 7, row, col);
    } else {
      continue;
    }
    b[p] = static_cast<uint8_t>(b[p] - 8);  // the same token without the offset form
  }
}

// ---------------------------------------------------------------------------------------------
// BIFF5 to BIFF8

// Token strings hold at most 0xFFFF bytes; a longer result is a malformed formula.
constexpr uint32_t TokenStringLimit = 0xFFFF;

// A jump whose operand must be rewritten once the new positions are known: the operand lies at
// `at` in the output, and the target is `target` in the source, counted from `base` in the
// source, which moves to `newBase` in the output.
struct Jump {
  uint32_t at;
  uint32_t target;
  uint32_t base;
  uint32_t newBase;
};

struct Upgrade {
  BiffLoad* load;
  const uint8_t* src;
  uint32_t length;  // tokens in the source
  uint32_t total;   // tokens and extra data
  uint32_t extra;   // read position in the source's extra data
  ByteBuffer out;
  ByteBuffer extraOut;
  uint32_t* map;  // source token position -> output position; 0xFFFFFFFF inside a token
  Jump* jumps;
  uint32_t jumpCount;
  uint32_t jumpCapacity;
  bool bad;
};

static void AddJump(Upgrade* u, uint32_t at, uint32_t target, uint32_t base, uint32_t newBase) {
  if (!GrowArray(&u->jumps, &u->jumpCapacity, u->jumpCount + 1, 8)) {
    u->out.failed = true;
    return;
  }
  u->jumps[u->jumpCount++] = Jump{at, target, base, newBase};
}

// A BIFF5 row word (two flag bits on top) and column byte, as a BIFF8 row and column word.
static void PutCorner(Upgrade* u, uint16_t row, uint8_t col, bool relativeForm) {
  uint16_t flags = row & 0xC000;
  row &= 0x3FFF;
  // An offset of a shared formula is signed in 14 bits; widen it so that 16-bit wrapping gives
  // the same row.
  if (relativeForm && (flags & 0x8000) && (row & 0x2000)) row |= 0xC000;
  PutU16(&u->out, row);
  PutU8(&u->out, col);
  PutU8(&u->out, static_cast<uint8_t>(flags >> 8));
}

// Words and areas: BIFF5 rows then columns, with both rows first in an area.
static void PutArea(Upgrade* u, const uint8_t* p, bool relativeForm) {
  uint16_t r1 = ReadU16(p), r2 = ReadU16(p + 2);
  uint8_t c1 = p[4], c2 = p[5];
  uint16_t f1 = r1 & 0xC000, f2 = r2 & 0xC000;
  r1 &= 0x3FFF;
  r2 &= 0x3FFF;
  if (relativeForm && (f1 & 0x8000) && (r1 & 0x2000)) r1 |= 0xC000;
  if (relativeForm && (f2 & 0x8000) && (r2 & 0x2000)) r2 |= 0xC000;
  PutU16(&u->out, r1);
  PutU16(&u->out, r2);
  PutU8(&u->out, c1);
  PutU8(&u->out, static_cast<uint8_t>(f1 >> 8));
  PutU8(&u->out, c2);
  PutU8(&u->out, static_cast<uint8_t>(f2 >> 8));
}

// The link table entry of the workbook itself.
static int SelfBook(uint32_t book, uint32_t* index) {
  return FindOrAddExternalBook(book, ExternalSelf, nullptr, index);
}

// The book an EXTERNSHEET entry names, and the sheet of it when it names one (else NoSheet).
// A name marked as a sheet of this workbook is looked up among its sheets.
static int BookOfEntry(uint32_t book, const ExternSheetEntry* e, uint32_t* externalBook,
                       int16_t* sheet) {
  *sheet = NoSheet;
  if (e->kind != ExternalOtherFile)
    return FindOrAddExternalBook(book, e->kind, nullptr, externalBook);
  const char16_t* text = e->name ? e->name : u"";
  if (text[0] == 2 || text[0] == 3) {
    int32_t found = FindSheetByName(book, text + 1);
    *sheet = found < 0 ? DeletedSheet : static_cast<int16_t>(found);
    return SelfBook(book, externalBook);
  }
  // "\1" then the path, the file name in brackets, then the sheet name.
  uint32_t length = TextLength(text), close = length;
  for (uint32_t i = 0; i < length; i++)
    if (text[i] == u']') close = i;
  char16_t* path = static_cast<char16_t*>(Allocate((length + 2) * sizeof(char16_t)));
  if (!path) return 0;
  uint32_t n = 0;
  path[n++] = 1;
  for (uint32_t i = text[0] == 1 ? 1 : 0; i < close; i++)
    if (text[i] != u'[') path[n++] = text[i];
  path[n] = 0;
  int ok = FindOrAddExternalBook(book, ExternalOtherFile, path, externalBook);
  Release(path);
  if (ok && close < length && text[close + 1])
    ok = FindOrAddExternalSheet(book, *externalBook, text + close + 1, sheet);
  return ok;
}

// The sheet link of a BIFF5 3-D reference: `entry` is the token's EXTERNSHEET index, negative for
// this workbook, whose sheets are then the token's own.
static int LinkOf3d(Upgrade* u, int16_t entry, int16_t first, int16_t last, uint16_t* link) {
  uint32_t book = u->load->book, externalBook = 0;
  int16_t sheet = NoSheet;
  const ExternSheetEntry* list;
  uint32_t count;
  CurrentExternSheets(u->load, &list, &count);
  bool own = entry < 0;
  if (!own) {
    if (entry == 0 || static_cast<uint32_t>(entry) > count) return u->bad = true, 0;
    const ExternSheetEntry* e = &list[entry - 1];
    if (!BookOfEntry(book, e, &externalBook, &sheet)) return 0;
    own = e->kind == ExternalSelf;
    if (!own) first = last = sheet;
  }
  if (own && !SelfBook(book, &externalBook)) return 0;
  if (own) {
    if (first < 0) first = DeletedSheet;
    if (last < 0) last = DeletedSheet;
  }
  int32_t index = 0;
  if (!FindOrAddSheetLink(book, static_cast<int16_t>(externalBook), first, last, &index)) return 0;
  *link = static_cast<uint16_t>(index);
  return 1;
}

// The link and 1-based name index of a BIFF5 external name token; link 0xFFFF for a name of this
// workbook, which becomes a plain name token.
static int LinkOfName(Upgrade* u, int16_t entry, uint16_t nameIndex, uint16_t* link,
                      uint16_t* newIndex) {
  uint32_t book = u->load->book, externalBook = 0;
  int16_t sheet = NoSheet;
  const ExternSheetEntry* list;
  uint32_t count;
  CurrentExternSheets(u->load, &list, &count);
  uint32_t at = entry < 0 ? static_cast<uint32_t>(-entry) : static_cast<uint32_t>(entry);
  if (at == 0 || at > count) return u->bad = true, 0;
  const ExternSheetEntry* e = &list[at - 1];
  // A name of this workbook, local to another sheet: the index counts its NAME records.
  const char16_t* text = e->name ? e->name : u"";
  if (e->kind == ExternalSelf || (e->kind == ExternalOtherFile && (text[0] == 2 || text[0] == 3))) {
    *link = 0xFFFF;
    *newIndex = nameIndex;
    return 1;
  }
  if (nameIndex == 0 || nameIndex > e->nameCount) return u->bad = true, 0;
  if (!BookOfEntry(book, e, &externalBook, &sheet)) return 0;
  uint32_t index = 0;
  const ExternalName& name = e->names[nameIndex - 1];
  if (!FindOrAddExternalName(book, externalBook, name.text, name.field, &index)) return 0;
  int32_t linkIndex = 0;
  if (!FindOrAddSheetLink(book, static_cast<int16_t>(externalBook), NoSheet, NoSheet, &linkIndex))
    return 0;
  *link = static_cast<uint16_t>(linkIndex);
  *newIndex = static_cast<uint16_t>(index + 1);
  return 1;
}

// A BIFF5 array constant: column count (0 for 256) and row count, then the elements, whose
// strings have an 8-bit length and no option byte.
static void UpgradeArrayConstant(Upgrade* u) {
  const uint8_t* s = u->src;
  if (u->extra + 3 > u->total) return void(u->bad = true);
  uint32_t columns = s[u->extra] ? s[u->extra] : 256;
  uint32_t rows = ReadU16(s + u->extra + 1);
  if (rows == 0 || columns > 256) return void(u->bad = true);
  u->extra += 3;
  PutU8(&u->extraOut, static_cast<uint8_t>(columns - 1));
  PutU16(&u->extraOut, static_cast<uint16_t>(rows - 1));
  for (uint32_t i = 0; i < rows * columns && !u->bad; i++) {
    if (u->extra >= u->total) return void(u->bad = true);
    uint8_t type = s[u->extra];
    if (type == 2) {
      if (u->extra + 2 > u->total) return void(u->bad = true);
      uint32_t length = s[u->extra + 1];
      if (u->extra + 2 + length > u->total) return void(u->bad = true);
      char16_t* text = DecodeBytes(&u->load->page, s + u->extra + 2, length);
      if (!text) return void(u->extraOut.failed = true);
      uint32_t chars = TextLength(text);
      PutU8(&u->extraOut, 2);
      PutU16(&u->extraOut, static_cast<uint16_t>(chars));
      PutU8(&u->extraOut, 1);
      for (uint32_t c = 0; c < chars; c++) PutU16(&u->extraOut, text[c]);
      Release(text);
      u->extra += 2 + length;
    } else if (type == 0 || type == 1 || type == 4 || type == 16) {
      if (u->extra + 9 > u->total) return void(u->bad = true);
      PutBytes(&u->extraOut, s + u->extra, 9);
      u->extra += 9;
    } else {
      return void(u->bad = true);
    }
  }
}

// An area list of a ptgMemArea: 6-byte areas become 8-byte ones.
static void UpgradeAreaList(Upgrade* u) {
  if (u->extra + 2 > u->total) return void(u->bad = true);
  uint32_t count = ReadU16(u->src + u->extra);
  if (u->extra + 2 + count * 6 > u->total) return void(u->bad = true);
  PutU16(&u->extraOut, static_cast<uint16_t>(count));
  for (uint32_t i = 0; i < count; i++) {
    const uint8_t* a = u->src + u->extra + 2 + i * 6;
    PutU16(&u->extraOut, ReadU16(a) & 0x3FFF);
    PutU16(&u->extraOut, ReadU16(a + 2) & 0x3FFF);
    PutU16(&u->extraOut, a[4]);
    PutU16(&u->extraOut, a[5]);
  }
  u->extra += 2 + count * 6;
}

// BIFF5 operand bytes after the opcode for the tokens that are copied as they are.
static uint32_t CopiedLength(uint8_t base) {
  switch (base) {
    case ptgExp:
    case ptgTbl:
      return 4;
    case ptgErr:
    case ptgBool:
      return 1;
    case ptgInt:
    case ptgFunc:
      return 2;
    case ptgNum:
      return 8;
    case ptgArray:
      return 7;
    case ptgFuncVar:
      return 3;
    case ptgMemArea:
    case ptgMemErr:
    case ptgMemNoMem:
      return 6;
    case ptgMemFunc:
      return 2;
    default:
      return IsBinaryOperator(base) || (base >= ptgUplus && base <= ptgMissArg) ? 0 : 0xFFFF;
  }
}

// Converts the token at `p`; returns its source size, or 0 when it is malformed.
static uint32_t UpgradeToken(Upgrade* u, uint32_t p) {
  const uint8_t* s = u->src;
  uint8_t op = s[p], base = FoldOpcode(op);
  uint32_t left = u->length - p - 1;  // operand bytes available
  const uint8_t* a = s + p + 1;
  uint32_t start = u->out.count;
  switch (base) {
    case ptgStr: {
      if (left < 1 || a[0] > left - 1) return 0;
      char16_t* text = DecodeBytes(&u->load->page, a + 1, a[0]);
      if (!text) return u->out.failed = true, 1;
      uint32_t chars = TextLength(text);
      bool wide = false;
      for (uint32_t i = 0; i < chars; i++) wide = wide || text[i] > 255;
      PutU8(&u->out, op);
      PutU8(&u->out, static_cast<uint8_t>(chars));
      PutU8(&u->out, wide ? 1 : 0);
      for (uint32_t i = 0; i < chars; i++)
        wide ? PutU16(&u->out, text[i]) : PutU8(&u->out, static_cast<uint8_t>(text[i]));
      Release(text);
      return 2u + a[0];
    }
    case ptgExtended: {
      if (left < 1) return 0;
      uint8_t sub = a[0];
      uint32_t size =
          (sub >= 1 && sub <= 3) || sub == 6 || sub == 7 || (sub >= 10 && sub <= 16) || sub == 29
              ? 4
              : 0;
      if (left < 1 + size) return 0;
      PutBytes(&u->out, s + p, 2 + size);
      return 2 + size;
    }
    case ptgAttr: {
      if (left < 3) return 0;
      uint8_t kind = a[0];
      uint16_t operand = ReadU16(a + 1);
      uint32_t size = 4;
      if (kind & AttrChoose) size += (operand + 1u) * 2;
      if (left + 1 < size) return 0;
      PutBytes(&u->out, s + p, size);
      if (kind & AttrIf) AddJump(u, start + 2, p + 4 + operand, p + 4, start + 4);
      if (kind & AttrGoto) AddJump(u, start + 2, p + 4 + operand + 1, p + 4 + 1, start + 4 + 1);
      if (kind & AttrChoose)
        for (uint32_t i = 0; i <= operand; i++)
          AddJump(u, start + 4 + 2 * i, p + 4 + ReadU16(a + 3 + 2 * i), p + 4, start + 4);
      return size;
    }
    case ptgName:
      if (left < 14) return 0;
      PutU8(&u->out, op);
      PutU16(&u->out, ReadU16(a));
      PutU16(&u->out, 0);
      return 15;
    case ptgRef:
    case ptgRefErr:
    case ptgRefN:
      if (left < 3) return 0;
      PutU8(&u->out, op);
      PutCorner(u, ReadU16(a), a[2], base == ptgRefN);
      return 4;
    case ptgArea:
    case ptgAreaErr:
    case ptgAreaN:
      if (left < 6) return 0;
      PutU8(&u->out, op);
      PutArea(u, a, base == ptgAreaN);
      return 7;
    case ptgNameX: {
      if (left < 24) return 0;
      uint16_t link = 0, index = 0;
      if (!LinkOfName(u, static_cast<int16_t>(ReadU16(a)), ReadU16(a + 10), &link, &index))
        return u->out.failed = !u->bad, 1;
      if (link == 0xFFFF) {
        PutU8(&u->out, static_cast<uint8_t>((op & 0x60) | ptgName));
        PutU16(&u->out, index);
        PutU16(&u->out, 0);
        return 25;
      }
      PutU8(&u->out, op);
      PutU16(&u->out, link);
      PutU16(&u->out, index);
      PutU16(&u->out, 0);
      return 25;
    }
    case ptgRef3d:
    case ptgRefErr3d:
    case ptgArea3d:
    case ptgAreaErr3d: {
      bool area = base == ptgArea3d || base == ptgAreaErr3d;
      if (left < (area ? 20u : 17u)) return 0;
      uint16_t link = 0;
      if (!LinkOf3d(u, static_cast<int16_t>(ReadU16(a)), static_cast<int16_t>(ReadU16(a + 10)),
                    static_cast<int16_t>(ReadU16(a + 12)), &link))
        return u->out.failed = !u->bad, 1;
      PutU8(&u->out, op);
      PutU16(&u->out, link);
      if (area)
        PutArea(u, a + 14, false);
      else
        PutCorner(u, ReadU16(a + 14), a[16], false);
      return area ? 21 : 18;
    }
    default: {
      uint32_t size = CopiedLength(base);
      if (size == 0xFFFF || left < size) return 0;
      PutBytes(&u->out, s + p, 1 + size);
      if (base == ptgArray) UpgradeArrayConstant(u);
      if (base == ptgMemArea) UpgradeAreaList(u);
      // The length of the sub-expression a memory token stands for.
      if (base >= ptgMemArea && base <= ptgMemFunc) {
        uint32_t field = base == ptgMemFunc ? 0 : 4;
        uint32_t after = p + 1 + size;
        AddJump(u, start + 1 + field, after + ReadU16(a + field), after, start + 1 + size);
      }
      return 1 + size;
    }
  }
}

int UpgradeTokens(BiffLoad* load, FormulaTokens* tokens) {
  Upgrade u{};
  u.load = load;
  u.src = tokens->bytes;
  u.length = tokens->length;
  u.total = tokens->length + static_cast<uint32_t>(tokens->extraLength);
  u.extra = u.length;
  u.out.limit = u.extraOut.limit = TokenStringLimit;
  u.map = static_cast<uint32_t*>(Allocate((u.length + 1u) * sizeof(uint32_t)));
  if (!u.map) return FailOutOfMemory(load);
  std::memset(u.map, 0xFF, (u.length + 1u) * sizeof(uint32_t));
  uint32_t p = 0;
  while (p < u.length && !u.bad && !u.out.failed && !u.extraOut.failed) {
    u.map[p] = u.out.count;
    uint32_t size = UpgradeToken(&u, p);
    if (size == 0) u.bad = true;
    p += size;
  }
  u.map[u.length] = u.out.count;
  // Jumps land on the token they pointed at in its new place.
  for (uint32_t i = 0; i < u.jumpCount && !u.bad && !u.out.failed; i++) {
    const Jump& j = u.jumps[i];
    if (j.target > u.length || u.map[j.target] == 0xFFFFFFFF || u.map[j.target] < j.newBase) {
      u.bad = true;
      break;
    }
    WriteU16(u.out.bytes + j.at, static_cast<uint16_t>(u.map[j.target] - j.newBase));
  }
  // Extra data that no token took goes along as it is.
  if (!u.bad && u.extra < u.total) PutBytes(&u.extraOut, u.src + u.extra, u.total - u.extra);
  bool failed = u.out.failed || u.extraOut.failed;
  if (u.out.tooLong || u.extraOut.tooLong) u.bad = true;
  int ok = !u.bad && !failed;
  if (ok) {
    uint8_t* bytes = static_cast<uint8_t*>(Allocate(u.out.count + u.extraOut.count));
    if (bytes) {
      if (u.out.count) std::memcpy(bytes, u.out.bytes, u.out.count);
      if (u.extraOut.count) std::memcpy(bytes + u.out.count, u.extraOut.bytes, u.extraOut.count);
      FreeTokens(tokens);
      *tokens = FormulaTokens{static_cast<uint16_t>(u.out.count),
                              static_cast<uint16_t>(u.extraOut.count), bytes};
    } else {
      ok = 0;
      failed = true;
    }
  }
  Release(u.map);
  Release(u.jumps);
  Release(u.out.bytes);
  Release(u.extraOut.bytes);
  if (ok) return 1;
  return failed ? FailOutOfMemory(load) : Fail(load, "a formula is malformed");
}
