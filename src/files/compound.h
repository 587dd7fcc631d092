// The OLE2 compound file: the container that holds the BIFF stream of an .xls or .xlt file.
//
// Reading: open a container from a path or from bytes in memory, find a stream among the root
// storage's children by name (case ignored), and read the whole stream into an owned buffer. The
// allocation table is loaded once at open time and every chain is walked forward exactly once, so
// reading takes time linear in the file. Everything that comes from the file is checked against
// the file's size: a damaged container is refused with a message, never read out of bounds.
// Sectors of 512 and 4096 bytes are supported.
//
// Writing: a streaming writer that lays down a fixed directory of named streams and writes their
// bytes straight to the file as they come; only the allocation table is held in memory. Each
// stream is padded with zeros to whole sectors and to at least 4096 bytes, so that no stream
// belongs to the mini stream. The allocation table follows the stream data, with extra index
// sectors when more than 109 allocation sectors are needed.
#pragma once
#include <cstdint>
#include <cstdio>

// Why a container was refused. CompoundErrorText gives the words the user is shown.
enum CompoundError : uint32_t {
  CompoundOk = 0,
  CompoundNotCompound,   // no signature, or shorter than a header
  CompoundBadHeader,     // sector size or table counts that cannot be
  CompoundBadSector,     // a sector number that lies outside the file
  CompoundLoop,          // a chain that comes back on itself
  CompoundShortChain,    // a chain that ends before its stream does
  CompoundBadDirectory,  // a directory entry or tree that cannot be
  CompoundTooLarge,      // a stream too large to hold in memory
  CompoundReadFailed,    // the file could not be read
  CompoundNoMemory,      // the allocation wrapper failed (and has said so)
};

// An open container. Fields are private to the reader; callers use the functions below.
struct CompoundFile {
  FILE* file;            // set when opened from a path; the container closes it
  const uint8_t* bytes;  // set when opened from memory; borrowed, must outlive the container
  uint64_t fileSize;     // bytes in the file
  uint32_t sectorShift;  // 9 or 12
  uint32_t sectorSize;   // 512 or 4096
  uint32_t sectorCount;  // sectors that begin inside the file
  uint32_t* fat;         // allocation table, one entry per sector of the file
  uint8_t* directory;    // every directory entry, 128 bytes each
  uint32_t entryCount;
  uint32_t* children;  // entries of the root storage's tree, checked at open time
  uint32_t childCount;
  uint8_t* visited;   // one bit per sector, for finding loops while a chain is walked
  uint32_t* miniFat;  // mini allocation table, loaded with the first mini stream read
  uint32_t miniFatCount;
  uint32_t* miniSectors;  // the sectors of the mini stream in order, loaded with miniFat
  uint32_t miniSectorCount;
  uint32_t error;  // CompoundError of the last failure
};

// An owned copy of one stream. Release `data` with ReleaseCompoundStream.
struct CompoundStream {
  uint8_t* data;
  uint32_t size;
};

// Opens the container at `path`. On failure shows "Unable to open input file\n<path>" or the
// reason the container is refused, closes what it opened and returns 0.
int OpenCompoundFile(CompoundFile* compound, const char16_t* path);
// Opens a container held in memory; `bytes` is borrowed. Shows the reason and returns 0 on failure.
int OpenCompoundBytes(CompoundFile* compound, const uint8_t* bytes, uint64_t size);
// Releases everything the container holds; safe on a zeroed or failed container.
void CloseCompound(CompoundFile* compound);

// The directory entry of the stream called `name` among the root storage's children, compared
// ignoring case; -1 when there is none. Silent.
int32_t FindCompoundStream(const CompoundFile* compound, const char16_t* name);
// Size recorded for the stream of entry `entry`.
uint64_t CompoundStreamSize(const CompoundFile* compound, int32_t entry);
// Reads the whole stream of entry `entry` into `stream`. On failure shows the reason, leaves
// `stream` empty and returns 0.
int ReadCompoundStream(CompoundFile* compound, int32_t entry, CompoundStream* stream);
// Reads the workbook stream: "Workbook" if there is one, else "Book". Returns 8 for "Workbook",
// 7 for "Book", and 0 after showing "Workbook not found in file" or the reason of a failed read.
int ReadWorkbookStream(CompoundFile* compound, CompoundStream* stream);
void ReleaseCompoundStream(CompoundStream* stream);
// The bytes of a stream of at least the mini-stream cutoff where they already lie, in a container
// opened from memory whose stream is one run of consecutive sectors (as writers lay streams
// down): such a stream needs no copy. Null, silently, in every other case; the caller then reads
// a copy with ReadCompoundStream, which also says what is wrong with a damaged chain.
const uint8_t* CompoundStreamInPlace(const CompoundFile* compound, int32_t entry, uint32_t* size);

// The user's words for a CompoundError.
const char16_t* CompoundErrorText(uint32_t error);

// The streaming writer. The file is opened by the caller (see SaveFileSafely), for writing and
// positioned at 0; the writer seeks in it but never reads.
struct CompoundWriter {
  FILE* file;
  uint32_t streamCount;       // streams named in the directory
  uint32_t directorySectors;  // sectors 0 .. directorySectors-1 hold the directory
  uint32_t current;           // stream being written, or streamCount for none
  uint32_t firstSector[64];   // start sector of each stream, 0xFFFFFFFE when empty
  uint32_t streamSize[64];    // bytes recorded for each stream
  char16_t names[64][32];     // names, terminated
  uint32_t* fat;              // allocation table of every sector written so far
  uint32_t fatUsed, fatCapacity;
  uint32_t streamSectors;  // sectors of the current stream written out
  uint32_t bufferUsed;     // bytes waiting in sectorBuffer
  uint8_t sectorBuffer[512];
  int failed;  // a write or an allocation failed
};

enum : uint32_t { CompoundMaxStreams = 64 };

// Begins a compound file whose directory names `count` streams (at most CompoundMaxStreams, each
// name at most 31 characters and different from the others ignoring case). Streams never begun
// stay empty. Returns 0 on bad arguments.
int BeginCompoundFile(CompoundWriter* writer, FILE* file, const char16_t* const* names,
                      uint32_t count);
// Begins stream `index` of the names given; each stream is written at most once, one at a time.
int BeginCompoundStream(CompoundWriter* writer, uint32_t index);
void CompoundWrite(CompoundWriter* writer, const void* data, uint32_t count);
void CompoundWriteU8(CompoundWriter* writer, uint8_t value);
void CompoundWriteU16(CompoundWriter* writer, uint16_t value);
void CompoundWriteU32(CompoundWriter* writer, uint32_t value);
void CompoundWriteZeros(CompoundWriter* writer, uint32_t count);
// Bytes written to the current stream so far.
uint32_t CompoundStreamPosition(const CompoundWriter* writer);
// Overwrites four bytes (little-endian) at `position` of the current stream, which must already
// have been written (position + 4 <= CompoundStreamPosition).
void CompoundPatchU32(CompoundWriter* writer, uint32_t position, uint32_t value);
// Pads the current stream with zeros to whole sectors and at least 4096 bytes, and closes it.
void EndCompoundStream(CompoundWriter* writer);
// Writes the allocation table, its index, the directory and the header, and releases the
// writer's memory. Returns 0 when anything failed on the way; the file is then not valid.
int EndCompoundFile(CompoundWriter* writer);
