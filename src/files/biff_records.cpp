// The record layer of the BIFF reader: the cursor over the stream, the bounded reader of one
// record's body (which may go on into CONTINUE records), strings in both versions, RK numbers
// and error bytes.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "files/biff_internal.h"
#include "files/biff_read.h"

int NextRecord(BiffCursor* cursor, BiffRecord* record) {
  if (cursor->position >= cursor->size) return 0;
  if (cursor->size - cursor->position < 4) {
    cursor->truncated = true;
    return 0;
  }
  const uint8_t* head = cursor->data + cursor->position;
  uint16_t length = ReadU16(head + 2);
  if (cursor->size - cursor->position - 4 < length) {
    cursor->truncated = true;
    return 0;
  }
  record->id = ReadU16(head);
  record->length = length;
  record->body = head + 4;
  record->offset = cursor->position;
  cursor->position += 4u + length;
  return 1;
}

int32_t PeekRecordId(const BiffCursor* cursor) {
  if (cursor->size - cursor->position < 4 || cursor->position >= cursor->size) return -1;
  return ReadU16(cursor->data + cursor->position);
}

void BeginBody(BiffBody* body, const BiffRecord* record, BiffCursor* continues) {
  *body = BiffBody{record->body, record->length, 0, false, continues};
}

int NextContinue(BiffBody* body) {
  if (!body->continues || PeekRecordId(body->continues) != BiffContinue) return 0;
  BiffRecord next;
  if (!NextRecord(body->continues, &next)) return 0;
  body->bytes = next.body;
  body->length = next.length;
  body->position = 0;
  return 1;
}

// Makes `count` bytes readable at the position: moves into the next CONTINUE when this record is
// used up exactly (a field never straddles two records).
static const uint8_t* Take(BiffBody* body, uint32_t count) {
  if (body->overrun) return nullptr;
  if (BytesLeft(body) == 0 && count && body->continues) NextContinue(body);
  if (!HasBytes(body, count)) {
    body->overrun = true;
    return nullptr;
  }
  const uint8_t* p = body->bytes + body->position;
  body->position += count;
  return p;
}

uint8_t ReadByte(BiffBody* body) {
  const uint8_t* p = Take(body, 1);
  return p ? p[0] : 0;
}

uint16_t ReadWord(BiffBody* body) {
  const uint8_t* p = Take(body, 2);
  return p ? ReadU16(p) : 0;
}

uint32_t ReadLong(BiffBody* body) {
  const uint8_t* p = Take(body, 4);
  return p ? ReadU32(p) : 0;
}

double ReadNumber(BiffBody* body) {
  const uint8_t* p = Take(body, 8);
  return p ? ReadDouble(p) : 0;
}

const uint8_t* ReadBytes(BiffBody* body, uint32_t count) {
  if (body->overrun || !HasBytes(body, count)) {
    body->overrun = true;
    return nullptr;
  }
  const uint8_t* p = body->bytes + body->position;
  body->position += count;
  return p;
}

void SkipBytes(BiffBody* body, uint32_t count) {
  while (count && !body->overrun) {
    uint32_t here = BytesLeft(body);
    if (here >= count) {
      body->position += count;
      return;
    }
    count -= here;
    body->position = body->length;
    if (!NextContinue(body)) body->overrun = true;
  }
}

int Fail(BiffLoad* load, const char* reason) {
  if (!load->failure) load->failure = reason;
  return 0;
}

int FailOutOfMemory(BiffLoad* load) {
  if (!load->failure) {
    load->failure = "out of memory";
    load->failureTold = true;
  }
  return 0;
}

int EndRecord(BiffLoad* load, const BiffBody* body) {
  return body->overrun ? Fail(load, "a record is shorter than what it holds") : 1;
}

char16_t* ReadBiffString(BiffLoad* load, BiffBody* body, uint32_t count, bool) {
  if (load->version < 8) {
    const uint8_t* bytes = ReadBytes(body, count);
    return bytes ? DecodeBytes(&load->page, bytes, count) : nullptr;
  }
  uint8_t options = ReadByte(body);
  uint32_t runs = (options & 8) ? ReadWord(body) : 0;
  uint32_t extension = (options & 4) ? ReadLong(body) : 0;
  if (body->overrun) return nullptr;
  char16_t* text = static_cast<char16_t*>(Allocate((count + 1u) * sizeof(char16_t)));
  if (!text) return nullptr;
  bool wide = options & 1;
  for (uint32_t i = 0; i < count; i++) {
    // Characters go on in the next record, which starts with a fresh option byte.
    if (BytesLeft(body) == 0 && body->continues && NextContinue(body)) wide = ReadByte(body) & 1;
    const uint8_t* p = ReadBytes(body, wide ? 2 : 1);
    if (!p) {
      Release(text);
      return nullptr;
    }
    text[i] = wide ? static_cast<char16_t>(ReadU16(p)) : p[0];
  }
  text[count] = 0;
  SkipBytes(body, runs * 4u);
  SkipBytes(body, extension);
  if (body->overrun) {
    Release(text);
    return nullptr;
  }
  return text;
}

double DecodeRk(uint32_t rk) {
  double value;
  if (rk & 2) {
    value = static_cast<double>(static_cast<int32_t>(rk) >> 2);
  } else {
    uint64_t bits = static_cast<uint64_t>(rk & 0xFFFFFFFCu) << 32;
    std::memcpy(&value, &bits, sizeof value);
  }
  return (rk & 1) ? value / 100 : value;
}

uint32_t MapBiffError(uint8_t byte) {
  static const uint8_t codes[] = {0x00, 0x07, 0x0F, 0x17, 0x1D, 0x24};
  for (uint32_t i = 0; i < sizeof codes; i++)
    if (codes[i] == byte) return i;
  return ErrNA;
}
