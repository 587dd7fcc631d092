// Reading of compound files. Opening loads the header, the whole allocation table (through the
// extra index sectors when there are more than 109 allocation sectors), the directory, and the
// list of the root storage's children, checking each against the file's size. A stream is read
// by one forward walk of its chain; runs of consecutive sectors are read in one call. The mini
// allocation table and the mini stream's sector list are loaded the first time a small stream is
// read. Every walk marks the sectors it visits, so a chain that comes back on itself is refused
// instead of read forever.
#include <cstring>
#include <string>

#include "base/alloc.h"
#include "base/bytes.h"
#include "base/message.h"
#include "base/text.h"
#include "files/compound.h"
#include "files/compound_format.h"

namespace {

using namespace compound_format;

// Streams are read into one block whose size is a uint32_t; anything near that is not a workbook.
constexpr uint64_t LargestStream = 0x7FFFFFFF;

struct ErrorText {
  uint32_t error;
  const char16_t* text;
};

constexpr ErrorText ErrorTexts[] = {
    {CompoundNotCompound, u"File format not recognized: this is not a compound file"},
    {CompoundBadHeader, u"Damaged file: the compound file header is invalid"},
    {CompoundBadSector, u"Damaged file: a sector lies outside the file"},
    {CompoundLoop, u"Damaged file: a chain of sectors loops"},
    {CompoundShortChain, u"Damaged file: a stream ends before its recorded size"},
    {CompoundBadDirectory, u"Damaged file: the directory is invalid"},
    {CompoundTooLarge, u"Damaged file: a stream is too large"},
    {CompoundReadFailed, u"Unable to read input file"},
    {CompoundNoMemory, u""},
};

int Fail(CompoundFile* compound, uint32_t error) {
  compound->error = error;
  // Exhausted memory has already been reported by the allocation wrapper.
  if (error != CompoundNoMemory) ShowMessage(CompoundErrorText(error), MessageError);
  return 0;
}

// Copies `count` bytes at `offset`, which the caller has checked to lie inside the file.
int ReadAt(CompoundFile* compound, uint64_t offset, void* target, size_t count) {
  if (compound->bytes) {
    std::memcpy(target, compound->bytes + offset, count);
    return 1;
  }
  if (fseeko(compound->file, static_cast<off_t>(offset), SEEK_SET) != 0) return 0;
  return std::fread(target, 1, count, compound->file) == count;
}

uint64_t SectorOffset(const CompoundFile* compound, uint32_t sector) {
  return (static_cast<uint64_t>(sector) + 1) << compound->sectorShift;
}

// Reads `wanted` bytes of consecutive sectors from `first` into `target`. The last sector of the
// file may be cut short; what it lacks reads as zeros.
int ReadSectors(CompoundFile* compound, uint32_t first, uint8_t* target, size_t wanted) {
  uint64_t offset = SectorOffset(compound, first);
  uint64_t available = compound->fileSize - offset;
  size_t take = wanted < available ? wanted : static_cast<size_t>(available);
  if (!ReadAt(compound, offset, target, take)) return Fail(compound, CompoundReadFailed);
  if (take < wanted) std::memset(target + take, 0, wanted - take);
  return 1;
}

void ClearVisited(CompoundFile* compound) {
  std::memset(compound->visited, 0, (compound->sectorCount + 7) / 8);
}

// Checks that `sector` may come next in a chain and marks it.
int VisitSector(CompoundFile* compound, uint32_t sector) {
  if (sector >= compound->sectorCount) return Fail(compound, CompoundBadSector);
  uint8_t bit = static_cast<uint8_t>(1u << (sector & 7));
  if (compound->visited[sector >> 3] & bit) return Fail(compound, CompoundLoop);
  compound->visited[sector >> 3] |= bit;
  return 1;
}

// Follows the chain from `start` through the allocation table and stores its sectors in a new
// array. With `wanted` nonzero the walk stops after that many sectors and a shorter chain is an
// error; with `wanted` zero it runs to the end of the chain.
int WalkChain(CompoundFile* compound, uint32_t start, uint32_t wanted, uint32_t** sectors,
              uint32_t* count) {
  *sectors = nullptr;
  *count = 0;
  uint32_t capacity = 0;
  ClearVisited(compound);
  uint32_t sector = start;
  while (wanted == 0 || *count < wanted) {
    if (sector == EndOfChain) {
      if (wanted) break;
      return 1;
    }
    if (!VisitSector(compound, sector)) break;
    if (!GrowArray(sectors, &capacity, *count + 1, 64)) {
      compound->error = CompoundNoMemory;
      break;
    }
    (*sectors)[(*count)++] = sector;
    sector = compound->fat[sector];
  }
  if (wanted && *count == wanted) return 1;
  if (compound->error == CompoundOk) Fail(compound, CompoundShortChain);
  Release(*sectors);
  *sectors = nullptr;
  *count = 0;
  return 0;
}

int Header(CompoundFile* compound, uint8_t header[512]) {
  if (compound->fileSize < 512) return Fail(compound, CompoundNotCompound);
  if (!ReadAt(compound, 0, header, 512)) return Fail(compound, CompoundReadFailed);
  if (std::memcmp(header, Signature, sizeof Signature) != 0)
    return Fail(compound, CompoundNotCompound);
  uint16_t shift = ReadU16(header + 30);
  if (shift != 9 && shift != 12) return Fail(compound, CompoundBadHeader);
  compound->sectorShift = shift;
  compound->sectorSize = 1u << shift;
  if (compound->fileSize < compound->sectorSize) return Fail(compound, CompoundBadHeader);
  uint64_t sectors = (compound->fileSize - 1) >> shift;  // the header takes the first slot
  compound->sectorCount =
      sectors > LastRegularSector ? LastRegularSector : static_cast<uint32_t>(sectors);
  if (compound->sectorCount == 0) return Fail(compound, CompoundBadHeader);
  return 1;
}

// Loads the allocation table. Allocation sectors are listed first in the header, then in the
// chain of extra index sectors, each of which ends with the number of the next. Only as many
// allocation sectors as cover the file are read: entries for sectors past its end are of no use.
int LoadAllocationTable(CompoundFile* compound, const uint8_t* header) {
  uint32_t perSector = compound->sectorSize / 4;
  uint32_t declared = ReadU32(header + 44);
  uint32_t covering = (compound->sectorCount + perSector - 1) / perSector;
  if (declared == 0 || declared > compound->sectorCount) return Fail(compound, CompoundBadHeader);
  uint32_t tableSectors = declared < covering ? declared : covering;

  compound->fat = static_cast<uint32_t*>(Allocate(sizeof(uint32_t) * compound->sectorCount));
  compound->visited = static_cast<uint8_t*>(Allocate((compound->sectorCount + 7) / 8));
  uint8_t* buffer = static_cast<uint8_t*>(Allocate(compound->sectorSize));
  if (!compound->fat || !compound->visited || !buffer) {
    Release(buffer);
    return Fail(compound, CompoundNoMemory);
  }
  for (uint32_t i = 0; i < compound->sectorCount; i++) compound->fat[i] = FreeSector;

  ClearVisited(compound);
  uint32_t indexSector = ReadU32(header + 68);
  const uint8_t* list = header + 76;
  uint32_t listLength = HeaderTableEntries;
  uint32_t inList = 0;
  int ok = 1;
  for (uint32_t k = 0; ok && k < tableSectors; k++, inList++) {
    if (inList == listLength) {
      // The next part of the list is the next extra index sector.
      ok = VisitSector(compound, indexSector) &&
           ReadSectors(compound, indexSector, buffer, compound->sectorSize);
      if (!ok) break;
      list = buffer;
      listLength = perSector - 1;
      indexSector = ReadU32(buffer + 4 * listLength);
      inList = 0;
    }
    uint32_t tableSector = ReadU32(list + 4 * inList);
    if (tableSector >= compound->sectorCount) {
      ok = Fail(compound, CompoundBadSector);
      break;
    }
    // Read the allocation sector into the table's slot for it, trimmed at the file's end.
    uint32_t first = k * perSector;
    uint32_t entries =
        compound->sectorCount - first < perSector ? compound->sectorCount - first : perSector;
    uint8_t entryBytes[4096];
    ok = ReadSectors(compound, tableSector, entryBytes, compound->sectorSize);
    for (uint32_t i = 0; ok && i < entries; i++)
      compound->fat[first + i] = ReadU32(entryBytes + 4 * i);
  }
  Release(buffer);
  return ok;
}

bool ValidName(const uint8_t* entry) {
  uint16_t length = ReadU16(entry + 64);
  return length >= 2 && length <= 64 && length % 2 == 0;
}

// Collects the entries of the root storage's tree (its left, right and child links from the
// root's child). A link outside the directory, or to an entry met before, is refused: the tree is
// broken. An entry that is neither a stream nor a storage with a sound name is left out together
// with the entries below it; some writers leave such debris in an otherwise sound tree.
int LoadRootChildren(CompoundFile* compound) {
  const uint8_t* root = compound->directory;
  if (root[66] != EntryRoot) return Fail(compound, CompoundBadDirectory);
  uint32_t count = compound->entryCount;
  compound->children = static_cast<uint32_t*>(Allocate(sizeof(uint32_t) * count));
  uint8_t* seen = static_cast<uint8_t*>(Allocate(count));
  uint32_t* stack = static_cast<uint32_t*>(Allocate(sizeof(uint32_t) * count));
  int ok = compound->children && seen && stack ? 1 : Fail(compound, CompoundNoMemory);
  uint32_t depth = 0;
  auto push = [&](uint32_t link) {
    if (link == NoEntry) return 1;
    if (link >= count || seen[link]) return Fail(compound, CompoundBadDirectory);
    seen[link] = 1;
    stack[depth++] = link;
    return 1;
  };
  if (ok) {
    seen[0] = 1;
    ok = push(ReadU32(root + 76));
  }
  while (ok && depth > 0) {
    uint32_t index = stack[--depth];
    const uint8_t* entry = compound->directory + EntrySize * index;
    if ((entry[66] != EntryStream && entry[66] != EntryStorage) || !ValidName(entry)) continue;
    compound->children[compound->childCount++] = index;
    ok = push(ReadU32(entry + 68)) && push(ReadU32(entry + 72));
  }
  Release(seen);
  Release(stack);
  return ok;
}

int LoadDirectory(CompoundFile* compound, const uint8_t* header) {
  uint32_t* sectors;
  uint32_t count;
  uint32_t first = ReadU32(header + 48);
  if (first == EndOfChain) return Fail(compound, CompoundBadDirectory);
  if (!WalkChain(compound, first, 0, &sectors, &count)) return 0;
  uint32_t perSector = compound->sectorSize / EntrySize;
  compound->directory =
      static_cast<uint8_t*>(Allocate(static_cast<size_t>(count) * compound->sectorSize));
  int ok = compound->directory ? 1 : Fail(compound, CompoundNoMemory);
  for (uint32_t i = 0; ok && i < count; i++)
    ok = ReadSectors(compound, sectors[i],
                     compound->directory + static_cast<size_t>(i) * compound->sectorSize,
                     compound->sectorSize);
  Release(sectors);
  if (!ok) return 0;
  compound->entryCount = count * perSector;
  return LoadRootChildren(compound);
}

int OpenLoaded(CompoundFile* compound) {
  uint8_t header[512];
  if (Header(compound, header) && LoadAllocationTable(compound, header) &&
      LoadDirectory(compound, header))
    return 1;
  CloseCompound(compound);
  return 0;
}

const uint8_t* Entry(const CompoundFile* compound, int32_t index) {
  return compound->directory + EntrySize * static_cast<uint32_t>(index);
}

uint64_t EntrySizeField(const CompoundFile* compound, const uint8_t* entry) {
  // Files of 512-byte sectors keep only the low half; their high half may hold anything.
  if (compound->sectorSize == 512) return ReadU32(entry + 120);
  return ReadU64(entry + 120);
}

// Loads the mini allocation table and the sector list of the mini stream (the root's chain).
int LoadMiniStream(CompoundFile* compound) {
  if (compound->miniFat) return 1;
  uint8_t header[512];
  if (!ReadAt(compound, 0, header, 512)) return Fail(compound, CompoundReadFailed);
  uint32_t* tableSectors;
  uint32_t tableCount;
  if (!WalkChain(compound, ReadU32(header + 60), 0, &tableSectors, &tableCount)) return 0;
  uint32_t perSector = compound->sectorSize / 4;
  compound->miniFat = static_cast<uint32_t*>(
      Allocate(sizeof(uint32_t) * (static_cast<size_t>(tableCount) * perSector + 1)));
  uint8_t* buffer = static_cast<uint8_t*>(Allocate(compound->sectorSize));
  int ok = compound->miniFat && buffer ? 1 : Fail(compound, CompoundNoMemory);
  for (uint32_t i = 0; ok && i < tableCount; i++) {
    ok = ReadSectors(compound, tableSectors[i], buffer, compound->sectorSize);
    for (uint32_t j = 0; ok && j < perSector; j++)
      compound->miniFat[i * perSector + j] = ReadU32(buffer + 4 * j);
  }
  Release(buffer);
  Release(tableSectors);
  if (!ok) {
    Release(compound->miniFat);
    compound->miniFat = nullptr;
    return 0;
  }
  compound->miniFatCount = tableCount * perSector;

  const uint8_t* root = Entry(compound, 0);
  uint64_t rootSize = EntrySizeField(compound, root);
  uint64_t wanted = (rootSize + compound->sectorSize - 1) >> compound->sectorShift;
  if (wanted > compound->sectorCount) return Fail(compound, CompoundShortChain);
  if (wanted == 0) return 1;
  if (WalkChain(compound, ReadU32(root + 116), static_cast<uint32_t>(wanted),
                &compound->miniSectors, &compound->miniSectorCount))
    return 1;
  Release(compound->miniFat);
  compound->miniFat = nullptr;
  compound->miniFatCount = 0;
  return 0;
}

int ReadMiniStream(CompoundFile* compound, uint32_t start, uint8_t* target, uint32_t size) {
  if (!LoadMiniStream(compound)) return 0;
  uint32_t wanted = (size + MiniSectorSize - 1) / MiniSectorSize;
  uint32_t perSector = compound->sectorSize / MiniSectorSize;
  uint32_t chain[MiniStreamCutoff / MiniSectorSize];
  uint32_t mini = start;
  for (uint32_t i = 0; i < wanted; i++) {
    if (mini == EndOfChain) return Fail(compound, CompoundShortChain);
    if (mini >= compound->miniFatCount || mini / perSector >= compound->miniSectorCount)
      return Fail(compound, CompoundBadSector);
    for (uint32_t j = 0; j < i; j++)
      if (chain[j] == mini) return Fail(compound, CompoundLoop);
    chain[i] = mini;
    uint32_t sector = compound->miniSectors[mini / perSector];
    uint64_t offset = SectorOffset(compound, sector) + (mini % perSector) * MiniSectorSize;
    uint32_t take =
        size - i * MiniSectorSize < MiniSectorSize ? size - i * MiniSectorSize : MiniSectorSize;
    if (offset + take > compound->fileSize) return Fail(compound, CompoundShortChain);
    if (!ReadAt(compound, offset, target + i * MiniSectorSize, take))
      return Fail(compound, CompoundReadFailed);
    mini = compound->miniFat[mini];
  }
  return 1;
}

// Reads a stream of the regular chain, one run of consecutive sectors at a time.
int ReadRegularStream(CompoundFile* compound, uint32_t start, uint8_t* target, uint32_t size) {
  uint32_t wanted = static_cast<uint32_t>(
      (static_cast<uint64_t>(size) + compound->sectorSize - 1) >> compound->sectorShift);
  ClearVisited(compound);
  uint32_t sector = start;
  uint32_t done = 0;
  while (done < wanted) {
    if (sector == EndOfChain) return Fail(compound, CompoundShortChain);
    uint32_t runStart = sector;
    uint32_t run = 0;
    while (done + run < wanted && sector == runStart + run) {
      if (!VisitSector(compound, sector)) return 0;
      sector = compound->fat[sector];
      run++;
    }
    size_t offset = static_cast<size_t>(done) << compound->sectorShift;
    size_t bytes = static_cast<size_t>(run) << compound->sectorShift;
    if (offset + bytes > size) bytes = size - offset;
    // The last sector of a file may be cut short behind the stream's end, never before it.
    if (SectorOffset(compound, runStart) + bytes > compound->fileSize)
      return Fail(compound, CompoundShortChain);
    if (!ReadSectors(compound, runStart, target + offset, bytes)) return 0;
    done += run;
  }
  return 1;
}

}  // namespace

const char16_t* CompoundErrorText(uint32_t error) {
  for (const ErrorText& entry : ErrorTexts)
    if (entry.error == error) return entry.text;
  return u"";
}

int OpenCompoundBytes(CompoundFile* compound, const uint8_t* bytes, uint64_t size) {
  std::memset(compound, 0, sizeof *compound);
  compound->bytes = bytes;
  compound->fileSize = size;
  return OpenLoaded(compound);
}

int OpenCompoundFile(CompoundFile* compound, const char16_t* path) {
  std::memset(compound, 0, sizeof *compound);
  std::string name = TextToUtf8(path);
  compound->file = name.empty() ? nullptr : std::fopen(name.c_str(), "rb");
  if (!compound->file || fseeko(compound->file, 0, SEEK_END) != 0) {
    if (compound->file) std::fclose(compound->file);
    compound->file = nullptr;
    std::u16string message = u"Unable to open input file\n";
    if (path) message += path;
    compound->error = CompoundReadFailed;
    ShowMessage(message.c_str(), MessageError);
    return 0;
  }
  off_t end = ftello(compound->file);
  compound->fileSize = end > 0 ? static_cast<uint64_t>(end) : 0;
  return OpenLoaded(compound);
}

void CloseCompound(CompoundFile* compound) {
  if (compound->file) std::fclose(compound->file);
  Release(compound->fat);
  Release(compound->directory);
  Release(compound->children);
  Release(compound->visited);
  Release(compound->miniFat);
  Release(compound->miniSectors);
  uint32_t error = compound->error;
  std::memset(compound, 0, sizeof *compound);
  compound->error = error;
}

int32_t FindCompoundStream(const CompoundFile* compound, const char16_t* name) {
  uint32_t length = TextLength(name);
  for (uint32_t i = 0; i < compound->childCount; i++) {
    const uint8_t* entry = Entry(compound, static_cast<int32_t>(compound->children[i]));
    if (entry[66] != EntryStream || ReadU16(entry + 64) != 2 * (length + 1)) continue;
    uint32_t k = 0;
    while (k < length && FoldCase(ReadU16(entry + 2 * k)) == FoldCase(name[k])) k++;
    if (k == length) return static_cast<int32_t>(compound->children[i]);
  }
  return -1;
}

uint64_t CompoundStreamSize(const CompoundFile* compound, int32_t entry) {
  return EntrySizeField(compound, Entry(compound, entry));
}

int ReadCompoundStream(CompoundFile* compound, int32_t index, CompoundStream* stream) {
  stream->data = nullptr;
  stream->size = 0;
  compound->error = CompoundOk;
  if (index < 0 || static_cast<uint32_t>(index) >= compound->entryCount)
    return Fail(compound, CompoundBadDirectory);
  const uint8_t* entry = Entry(compound, index);
  if (entry[66] != EntryStream) return Fail(compound, CompoundBadDirectory);
  uint64_t size = EntrySizeField(compound, entry);
  if (size > LargestStream) return Fail(compound, CompoundTooLarge);
  // A regular stream cannot be longer than the sectors of the file.
  if (size >= MiniStreamCutoff &&
      size > (static_cast<uint64_t>(compound->sectorCount) << compound->sectorShift))
    return Fail(compound, CompoundShortChain);
  uint8_t* data = static_cast<uint8_t*>(Allocate(static_cast<size_t>(size)));
  if (!data) return Fail(compound, CompoundNoMemory);
  uint32_t start = ReadU32(entry + 116);
  uint32_t bytes = static_cast<uint32_t>(size);
  int ok = size == 0                 ? 1
           : size < MiniStreamCutoff ? ReadMiniStream(compound, start, data, bytes)
                                     : ReadRegularStream(compound, start, data, bytes);
  if (!ok) {
    Release(data);
    return 0;
  }
  stream->data = data;
  stream->size = bytes;
  return 1;
}

int ReadWorkbookStream(CompoundFile* compound, CompoundStream* stream) {
  struct Candidate {
    const char16_t* name;
    int version;
  };
  static constexpr Candidate candidates[] = {{u"Workbook", 8}, {u"Book", 7}};
  for (const Candidate& candidate : candidates) {
    int32_t entry = FindCompoundStream(compound, candidate.name);
    if (entry >= 0) return ReadCompoundStream(compound, entry, stream) ? candidate.version : 0;
  }
  stream->data = nullptr;
  stream->size = 0;
  ShowMessage(u"Workbook not found in file", MessageError);
  return 0;
}

const uint8_t* CompoundStreamInPlace(const CompoundFile* compound, int32_t index, uint32_t* size) {
  if (!compound->bytes || index < 0 || static_cast<uint32_t>(index) >= compound->entryCount)
    return nullptr;
  const uint8_t* entry = Entry(compound, index);
  uint64_t bytes = EntrySizeField(compound, entry);
  if (entry[66] != EntryStream || bytes < MiniStreamCutoff || bytes > LargestStream) return nullptr;
  uint64_t wanted = (bytes + compound->sectorSize - 1) >> compound->sectorShift;
  uint64_t first = ReadU32(entry + 116);
  if (first + wanted > compound->sectorCount) return nullptr;
  // Consecutive sectors cannot loop, and all of them lie before sectorCount.
  for (uint64_t i = 0; i + 1 < wanted; i++)
    if (compound->fat[first + i] != first + i + 1) return nullptr;
  if (SectorOffset(compound, static_cast<uint32_t>(first)) + bytes > compound->fileSize)
    return nullptr;
  *size = static_cast<uint32_t>(bytes);
  return compound->bytes + SectorOffset(compound, static_cast<uint32_t>(first));
}

void ReleaseCompoundStream(CompoundStream* stream) {
  Release(stream->data);
  stream->data = nullptr;
  stream->size = 0;
}
