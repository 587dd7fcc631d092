// Writing of compound files, one stream after another, straight to the file. The layout is fixed:
// the header, then the directory from sector 0, then the sectors of each stream in the order the
// streams were written (each stream's sectors follow one another), then the allocation sectors,
// then the extra index sectors when there are more than 109 allocation sectors. The allocation
// table is kept in memory as the streams grow (four bytes for every 512 written); the header and
// the directory, which name where everything went, are written last.
#include <cstring>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/text.h"
#include "files/compound.h"
#include "files/compound_format.h"

namespace {

using namespace compound_format;

// Written files have 512-byte sectors.
constexpr uint32_t SectorSize = 512;
constexpr uint32_t PerSector = SectorSize / 4;
constexpr uint32_t EntriesPerSector = SectorSize / EntrySize;
// A stream is padded to this many sectors so that it stays out of the mini stream.
constexpr uint32_t SmallestStreamSectors = MiniStreamCutoff / SectorSize;
constexpr uint32_t LongestName = 31;

void Put(CompoundWriter* writer, const void* data, size_t count) {
  if (std::fwrite(data, 1, count, writer->file) != count) writer->failed = 1;
}

void SeekTo(CompoundWriter* writer, uint64_t offset) {
  if (fseeko(writer->file, static_cast<off_t>(offset), SEEK_SET) != 0) writer->failed = 1;
}

// Appends `value` as the allocation entry of the next sector.
void AddEntry(CompoundWriter* writer, uint32_t value) {
  if (!GrowArray(&writer->fat, &writer->fatCapacity, writer->fatUsed + 1, 4096)) {
    writer->failed = 1;
    return;
  }
  writer->fat[writer->fatUsed++] = value;
}

// Writes the buffered sector as the next sector of the current stream and links it to the one
// before.
void FlushSector(CompoundWriter* writer) {
  if (writer->failed) return;
  uint32_t sector = writer->fatUsed;
  if (writer->streamSectors > 0) writer->fat[sector - 1] = sector;
  AddEntry(writer, EndOfChain);
  Put(writer, writer->sectorBuffer, SectorSize);
  writer->streamSectors++;
  writer->bufferUsed = 0;
}

// Compound file order of names: shorter first, then by upper-cased characters.
int CompareNames(const char16_t* a, const char16_t* b) {
  uint32_t la = TextLength(a), lb = TextLength(b);
  if (la != lb) return la < lb ? -1 : 1;
  for (uint32_t i = 0; i < la; i++) {
    char16_t ca = UpperCase(a[i]), cb = UpperCase(b[i]);
    if (ca != cb) return ca < cb ? -1 : 1;
  }
  return 0;
}

bool ValidName(const char16_t* name) {
  uint32_t length = TextLength(name);
  if (length == 0 || length > LongestName) return false;
  for (uint32_t i = 0; i < length; i++)
    if (name[i] == u'/' || name[i] == u'\\' || name[i] == u':' || name[i] == u'!') return false;
  return true;
}

// Colours of a directory entry in the red-black tree of names.
constexpr uint8_t NodeRed = 0;
constexpr uint8_t NodeBlack = 1;

struct TreeLinks {
  uint32_t left[CompoundMaxStreams + 1];
  uint32_t right[CompoundMaxStreams + 1];
  uint8_t colour[CompoundMaxStreams + 1];
};

// Builds a balanced tree over order[low..high) (directory indexes in name order) and returns its
// root. Every empty link of such a tree lies at one of two depths; the nodes of the deeper level
// are red and all others black, which keeps the count of black nodes equal on every path.
uint32_t BuildTree(TreeLinks* links, const uint32_t* order, int low, int high, int depth,
                   int redDepth) {
  if (low >= high) return NoEntry;
  int middle = low + (high - low) / 2;
  uint32_t node = order[middle];
  links->left[node] = BuildTree(links, order, low, middle, depth + 1, redDepth);
  links->right[node] = BuildTree(links, order, middle + 1, high, depth + 1, redDepth);
  links->colour[node] = depth == redDepth ? NodeRed : NodeBlack;
  return node;
}

void WriteEntry(uint8_t* entry, const char16_t* name, uint8_t type, uint8_t colour, uint32_t left,
                uint32_t right, uint32_t child, uint32_t start, uint32_t size) {
  std::memset(entry, 0, EntrySize);
  uint32_t length = TextLength(name);
  for (uint32_t i = 0; i < length; i++) WriteU16(entry + 2 * i, name[i]);
  if (type) WriteU16(entry + 64, static_cast<uint16_t>(2 * (length + 1)));
  entry[66] = type;
  entry[67] = colour;
  WriteU32(entry + 68, left);
  WriteU32(entry + 72, right);
  WriteU32(entry + 76, child);
  WriteU32(entry + 116, start);
  WriteU32(entry + 120, size);
}

void WriteDirectory(CompoundWriter* writer) {
  uint32_t count = writer->streamCount;
  uint32_t order[CompoundMaxStreams];
  for (uint32_t i = 0; i < count; i++) {
    uint32_t j = i;
    while (j > 0 && CompareNames(writer->names[order[j - 1] - 1], writer->names[i]) > 0) {
      order[j] = order[j - 1];
      j--;
    }
    order[j] = i + 1;
  }
  int levels = 0;
  while ((1u << levels) - 1 < count) levels++;
  bool full = (1u << levels) - 1 == count;
  TreeLinks links;
  uint32_t top = BuildTree(&links, order, 0, static_cast<int>(count), 1, full ? -1 : levels);

  uint8_t sector[SectorSize];
  uint32_t slots = writer->directorySectors * EntriesPerSector;
  SeekTo(writer, SectorSize);
  for (uint32_t slot = 0; slot < slots; slot++) {
    uint8_t* entry = sector + EntrySize * (slot % EntriesPerSector);
    if (slot == 0) {
      WriteEntry(entry, u"Root Entry", EntryRoot, NodeBlack, NoEntry, NoEntry, top, EndOfChain, 0);
    } else if (slot <= count) {
      uint32_t i = slot - 1;
      WriteEntry(entry, writer->names[i], EntryStream, links.colour[slot], links.left[slot],
                 links.right[slot], NoEntry, writer->firstSector[i], writer->streamSize[i]);
    } else {
      WriteEntry(entry, u"", EntryEmpty, NodeRed, NoEntry, NoEntry, NoEntry, 0, 0);
    }
    if (slot % EntriesPerSector == EntriesPerSector - 1) Put(writer, sector, SectorSize);
  }
}

void WriteHeader(CompoundWriter* writer, uint32_t tableSectors, uint32_t tableStart,
                 uint32_t indexSectors) {
  uint8_t header[SectorSize];
  std::memset(header, 0, sizeof header);
  std::memcpy(header, Signature, sizeof Signature);
  WriteU16(header + 24, 0x003E);
  WriteU16(header + 26, 3);
  WriteU16(header + 28, 0xFFFE);
  WriteU16(header + 30, 9);
  WriteU16(header + 32, 6);
  WriteU32(header + 44, tableSectors);
  WriteU32(header + 48, 0);
  WriteU32(header + 56, 0x1000);
  WriteU32(header + 60, EndOfChain);
  WriteU32(header + 64, 0);
  WriteU32(header + 68, indexSectors ? tableStart + tableSectors : EndOfChain);
  WriteU32(header + 72, indexSectors);
  for (uint32_t k = 0; k < HeaderTableEntries; k++)
    WriteU32(header + 76 + 4 * k, k < tableSectors ? tableStart + k : FreeSector);
  SeekTo(writer, 0);
  Put(writer, header, SectorSize);
}

}  // namespace

int BeginCompoundFile(CompoundWriter* writer, FILE* file, const char16_t* const* names,
                      uint32_t count) {
  std::memset(writer, 0, sizeof *writer);
  if (!file || count > CompoundMaxStreams) return 0;
  for (uint32_t i = 0; i < count; i++) {
    if (!ValidName(names[i])) return 0;
    for (uint32_t j = 0; j < i; j++)
      if (EqualTextNoCase(names[i], names[j])) return 0;
    TextCopy(writer->names[i], LongestName + 1, names[i]);
    writer->firstSector[i] = EndOfChain;
  }
  writer->file = file;
  writer->streamCount = count;
  writer->current = count;
  writer->directorySectors = (count + 1 + EntriesPerSector - 1) / EntriesPerSector;
  for (uint32_t i = 0; i < writer->directorySectors; i++)
    AddEntry(writer, i + 1 < writer->directorySectors ? i + 1 : EndOfChain);
  // Room for the header and the directory, which are written at the end.
  std::memset(writer->sectorBuffer, 0, SectorSize);
  for (uint32_t i = 0; i <= writer->directorySectors; i++)
    Put(writer, writer->sectorBuffer, SectorSize);
  if (!writer->failed) return 1;
  Release(writer->fat);
  writer->fat = nullptr;
  return 0;
}

int BeginCompoundStream(CompoundWriter* writer, uint32_t index) {
  if (writer->current != writer->streamCount || index >= writer->streamCount ||
      writer->streamSize[index] != 0)
    return 0;
  writer->current = index;
  writer->firstSector[index] = writer->fatUsed;
  writer->streamSectors = 0;
  writer->bufferUsed = 0;
  return 1;
}

void CompoundWrite(CompoundWriter* writer, const void* data, uint32_t count) {
  const uint8_t* bytes = static_cast<const uint8_t*>(data);
  while (count > 0) {
    uint32_t room = SectorSize - writer->bufferUsed;
    uint32_t take = count < room ? count : room;
    std::memcpy(writer->sectorBuffer + writer->bufferUsed, bytes, take);
    writer->bufferUsed += take;
    bytes += take;
    count -= take;
    if (writer->bufferUsed == SectorSize) FlushSector(writer);
  }
}

void CompoundWriteU8(CompoundWriter* writer, uint8_t value) {
  CompoundWrite(writer, &value, 1);
}

void CompoundWriteU16(CompoundWriter* writer, uint16_t value) {
  uint8_t bytes[2];
  WriteU16(bytes, value);
  CompoundWrite(writer, bytes, 2);
}

void CompoundWriteU32(CompoundWriter* writer, uint32_t value) {
  uint8_t bytes[4];
  WriteU32(bytes, value);
  CompoundWrite(writer, bytes, 4);
}

void CompoundWriteZeros(CompoundWriter* writer, uint32_t count) {
  static const uint8_t zeros[SectorSize] = {};
  while (count > 0) {
    uint32_t take = count < SectorSize ? count : SectorSize;
    CompoundWrite(writer, zeros, take);
    count -= take;
  }
}

uint32_t CompoundStreamPosition(const CompoundWriter* writer) {
  return writer->streamSectors * SectorSize + writer->bufferUsed;
}

void CompoundPatchU32(CompoundWriter* writer, uint32_t position, uint32_t value) {
  if (writer->current == writer->streamCount) return;
  uint32_t flushed = writer->streamSectors * SectorSize;
  bool moved = false;
  for (uint32_t i = 0; i < 4; i++) {
    uint32_t at = position + i;
    uint8_t byte = static_cast<uint8_t>(value >> (8 * i));
    if (at >= flushed) {
      if (at - flushed < writer->bufferUsed) writer->sectorBuffer[at - flushed] = byte;
      continue;
    }
    // Sectors of one stream are consecutive, so the byte's place in the file follows directly.
    uint64_t sector = writer->firstSector[writer->current] + at / SectorSize;
    SeekTo(writer, (sector + 1) * SectorSize + at % SectorSize);
    Put(writer, &byte, 1);
    moved = true;
  }
  if (moved) SeekTo(writer, (static_cast<uint64_t>(writer->fatUsed) + 1) * SectorSize);
}

void EndCompoundStream(CompoundWriter* writer) {
  if (writer->current == writer->streamCount) return;
  if (writer->bufferUsed > 0) {
    std::memset(writer->sectorBuffer + writer->bufferUsed, 0, SectorSize - writer->bufferUsed);
    FlushSector(writer);
  }
  std::memset(writer->sectorBuffer, 0, SectorSize);
  while (writer->streamSectors < SmallestStreamSectors && !writer->failed) FlushSector(writer);
  writer->streamSize[writer->current] = writer->streamSectors * SectorSize;
  writer->current = writer->streamCount;
}

int EndCompoundFile(CompoundWriter* writer) {
  EndCompoundStream(writer);
  // The allocation sectors must also cover themselves and the index sectors: grow both counts
  // until they agree.
  uint32_t dataSectors = writer->fatUsed;
  uint32_t tableSectors = 0, indexSectors = 0;
  for (;;) {
    uint64_t total = static_cast<uint64_t>(dataSectors) + tableSectors + indexSectors;
    uint32_t table = static_cast<uint32_t>((total + PerSector - 1) / PerSector);
    uint32_t index = table > HeaderTableEntries
                         ? (table - HeaderTableEntries + PerSector - 2) / (PerSector - 1)
                         : 0;
    if (table == tableSectors && index == indexSectors) break;
    tableSectors = table;
    indexSectors = index;
  }
  for (uint32_t i = 0; i < tableSectors; i++) AddEntry(writer, AllocationMark);
  for (uint32_t i = 0; i < indexSectors; i++) AddEntry(writer, IndexMark);
  while (writer->fatUsed < tableSectors * PerSector && !writer->failed)
    AddEntry(writer, FreeSector);

  if (!writer->failed) {
    uint8_t sector[SectorSize];
    SeekTo(writer, (static_cast<uint64_t>(dataSectors) + 1) * SectorSize);
    for (uint32_t k = 0; k < tableSectors; k++) {
      for (uint32_t i = 0; i < PerSector; i++)
        WriteU32(sector + 4 * i, writer->fat[k * PerSector + i]);
      Put(writer, sector, SectorSize);
    }
    uint32_t tableStart = dataSectors;
    for (uint32_t j = 0; j < indexSectors; j++) {
      for (uint32_t i = 0; i < PerSector - 1; i++) {
        uint32_t k = HeaderTableEntries + j * (PerSector - 1) + i;
        WriteU32(sector + 4 * i, k < tableSectors ? tableStart + k : FreeSector);
      }
      uint32_t next = j + 1 < indexSectors ? tableStart + tableSectors + j + 1 : EndOfChain;
      WriteU32(sector + 4 * (PerSector - 1), next);
      Put(writer, sector, SectorSize);
    }
    WriteDirectory(writer);
    WriteHeader(writer, tableSectors, tableStart, indexSectors);
    if (std::fflush(writer->file) != 0 || std::ferror(writer->file)) writer->failed = 1;
  }
  Release(writer->fat);
  writer->fat = nullptr;
  writer->fatUsed = writer->fatCapacity = 0;
  return !writer->failed;
}
