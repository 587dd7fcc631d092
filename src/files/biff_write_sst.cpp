// The shared string table of a BIFF8 save: every distinct cell text once, found again through an
// open-addressing hash over the texts, then written as the SST record, whose strings run on into
// CONTINUE records (a string cut there goes on after its option byte once more), and EXTSST, the
// index into it by stream position.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/biff_internal.h"
#include "files/biff_write_internal.h"

static uint32_t HashText(const char16_t* text) {
  uint32_t h = 2166136261u;
  for (; *text; text++) h = (h ^ *text) * 16777619u;
  return h;
}

static bool SameText(const char16_t* a, const char16_t* b) {
  while (*a && *a == *b) a++, b++;
  return *a == *b;
}

// The slot where `text` is, or the empty slot where it would go.
static uint32_t SlotOf(const SstTable* sst, const char16_t* text) {
  uint32_t mask = sst->slotCount - 1;
  for (uint32_t i = HashText(text) & mask;; i = (i + 1) & mask) {
    uint32_t entry = sst->slots[i];
    if (entry == 0 || SameText(sst->texts[entry - 1], text)) return i;
  }
}

static int Rehash(SstTable* sst, uint32_t slotCount) {
  uint32_t* slots = static_cast<uint32_t*>(Allocate(slotCount * sizeof(uint32_t)));
  if (!slots) return 0;
  std::memset(slots, 0, slotCount * sizeof(uint32_t));
  Release(sst->slots);
  sst->slots = slots;
  sst->slotCount = slotCount;
  for (uint32_t i = 0; i < sst->count; i++) sst->slots[SlotOf(sst, sst->texts[i])] = i + 1;
  return 1;
}

int AddSstText(BiffWriter* w, const char16_t* text, uint32_t* index) {
  SstTable* sst = &w->sst;
  if ((sst->count + 1) * 2 > sst->slotCount &&
      !Rehash(sst, sst->slotCount ? sst->slotCount * 2 : 1024))
    return 0;
  sst->total++;
  uint32_t slot = SlotOf(sst, text);
  if (sst->slots[slot]) {
    *index = sst->slots[slot] - 1;
    return 1;
  }
  if (!GrowArray(&sst->texts, &sst->capacity, sst->count + 1, 256)) return 0;
  sst->texts[sst->count] = text;
  sst->slots[slot] = ++sst->count;
  *index = sst->count - 1;
  return 1;
}

int FindSstText(const BiffWriter* w, const char16_t* text, uint32_t* index) {
  if (!w->sst.slotCount) return 0;
  uint32_t entry = w->sst.slots[SlotOf(&w->sst, text)];
  if (!entry) return 0;
  *index = entry - 1;
  return 1;
}

void FreeSst(SstTable* sst) {
  Release(sst->texts);
  Release(sst->slots);
  *sst = SstTable{};
}

namespace {
// The record being filled: its header lies at `start`.
struct SstRecord {
  uint32_t start;
};
}  // namespace

static void CloseRecord(BiffWriter* w, const SstRecord* r) {
  if (!w->failed) WriteU16(w->bytes + r->start + 2, static_cast<uint16_t>(w->size - r->start - 4));
}

static void OpenRecord(BiffWriter* w, SstRecord* r, uint16_t id) {
  r->start = w->size;
  if (uint8_t* p = Reserve(w, 4)) WriteU16(p, id);
}

static uint32_t RoomLeft(const BiffWriter* w, const SstRecord* r) {
  return Biff8RecordLimit - (w->size - r->start - 4);
}

void WriteSst(BiffWriter* w) {
  const SstTable* sst = &w->sst;
  uint32_t perBucket = sst->count / 128 + 1;
  if (perBucket < 8) perBucket = 8;
  uint32_t buckets = (sst->count + perBucket - 1) / perBucket;
  uint32_t* bucketAt = static_cast<uint32_t*>(Allocate((buckets + 1) * 2 * sizeof(uint32_t)));
  if (!bucketAt) {
    w->failed = true;
    return;
  }
  SstRecord r;
  OpenRecord(w, &r, 0x00FC);
  if (uint8_t* p = Reserve(w, 8)) {
    WriteU32(p, sst->total);
    WriteU32(p + 4, sst->count);
  }
  for (uint32_t i = 0; i < sst->count && !w->failed; i++) {
    const char16_t* text = sst->texts[i];
    uint32_t length = TextLength(text);
    if (length > 0xFFFF) length = 0xFFFF;
    uint32_t width = TextIsNarrow(text, length) ? 1 : 2;
    // A string header is never cut: it starts a new record when it and one character do not fit.
    if (RoomLeft(w, &r) < 3 + (length ? width : 0)) {
      CloseRecord(w, &r);
      OpenRecord(w, &r, BiffContinue);
    }
    if (i % perBucket == 0) {
      bucketAt[2 * (i / perBucket)] = w->size;
      bucketAt[2 * (i / perBucket) + 1] = w->size - r.start;
    }
    uint8_t* p = Reserve(w, 3);
    if (!p) break;
    WriteU16(p, static_cast<uint16_t>(length));
    p[2] = width == 1 ? 0 : 1;
    for (uint32_t at = 0; at < length;) {
      uint32_t room = RoomLeft(w, &r) / width;
      if (room == 0) {
        CloseRecord(w, &r);
        OpenRecord(w, &r, BiffContinue);
        if (uint8_t* option = Reserve(w, 1)) *option = width == 1 ? 0 : 1;
        continue;
      }
      uint32_t chars = length - at < room ? length - at : room;
      uint8_t* q = Reserve(w, chars * width);
      if (!q) break;
      PutBiff8Chars(q, text + at, chars, width == 2);
      at += chars;
    }
  }
  CloseRecord(w, &r);
  if (uint8_t* p = BeginRecord(w, 0x00FF, 2 + 8 * buckets)) {
    WriteU16(p, static_cast<uint16_t>(perBucket));
    for (uint32_t b = 0; b < buckets; b++) {
      WriteU32(p + 2 + 8 * b, bucketAt[2 * b]);
      WriteU16(p + 6 + 8 * b, static_cast<uint16_t>(bucketAt[2 * b + 1]));
      WriteU16(p + 8 + 8 * b, 0);
    }
  }
  Release(bucketAt);
}
