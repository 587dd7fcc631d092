// The fixed numbers of the compound file format, shared by its reader and its writer.
#pragma once
#include <cstdint>

namespace compound_format {

// Values of the allocation table other than the number of the next sector.
constexpr uint32_t FreeSector = 0xFFFFFFFF;
constexpr uint32_t EndOfChain = 0xFFFFFFFE;
constexpr uint32_t AllocationMark = 0xFFFFFFFD;  // the sector holds part of the table
constexpr uint32_t IndexMark = 0xFFFFFFFC;       // the sector holds part of its index
constexpr uint32_t LastRegularSector = 0xFFFFFFFA;

constexpr uint32_t NoEntry = 0xFFFFFFFF;      // an empty link of the directory tree
constexpr uint32_t HeaderTableEntries = 109;  // allocation sectors listed in the header
constexpr uint32_t EntrySize = 128;           // bytes of one directory entry
constexpr uint32_t MiniSectorSize = 64;
// Streams below this size live in the mini stream. The header repeats the value; we hold to the
// format's fixed 4096, as other readers do.
constexpr uint32_t MiniStreamCutoff = 4096;

constexpr uint8_t Signature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

enum EntryType : uint8_t { EntryEmpty = 0, EntryStorage = 1, EntryStream = 2, EntryRoot = 5 };

}  // namespace compound_format
