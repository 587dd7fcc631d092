// The one allocation wrapper of the program. Every heap block of the model comes from here.
// Exhausted memory is reported once, through a notice hook that the program installs (the
// desktop shell shows its out-of-memory box, the command-line tool prints a line), and the call
// returns null so that the caller only has to unwind.
#pragma once
#include <cstddef>
#include <cstdint>

using OutOfMemoryHook = void (*)();

// Installs the notice shown when an allocation fails; null restores the silent default.
void SetOutOfMemoryHook(OutOfMemoryHook hook);

// Returns a zeroed block of `size` bytes, or null after reporting. A size of 0 gives a 1-byte
// block.
void* Allocate(size_t size);
// Resizes `block` (which may be null) from `oldSize` to `newSize` bytes; the bytes from `oldSize`
// on are zeroed. On failure the old block is left untouched and null is returned.
void* Reallocate(void* block, size_t oldSize, size_t newSize);
// A zeroed block of at least `size` bytes for a large table, aligned to LargeBlockSize and
// rounded up to a multiple of it, which the system is asked to back with large pages where it
// can: touching memory a small page at a time is a large share of the cost of loading a big
// workbook. Release it with ReleaseLarge and the same size, never with Release.
constexpr size_t LargeBlockSize = 2u << 20;
void* AllocateLarge(size_t size);
void ReleaseLarge(void* block, size_t size);
// Releases a block from Allocate or Reallocate; null is allowed.
void Release(void* block);

// Grows an array of `elementSize`-byte items so that it holds at least `needed` items, in steps
// of `step` items. `items` and `capacity` are updated only on success. Returns 0 on failure.
int GrowArray(void** items, uint32_t* capacity, uint32_t needed, uint32_t step, size_t elementSize);

template <typename T>
int GrowArray(T** items, uint32_t* capacity, uint32_t needed, uint32_t step) {
  void* raw = *items;
  if (!GrowArray(&raw, capacity, needed, step, sizeof(T))) return 0;
  *items = static_cast<T*>(raw);
  return 1;
}

// Grows by doubling, from `first` items for an empty array: for arrays that may reach many
// thousand entries, where a fixed step would copy the whole array again and again.
template <typename T>
int GrowArrayByDoubling(T** items, uint32_t* capacity, uint32_t needed, uint32_t first) {
  return GrowArray(items, capacity, needed, *capacity ? *capacity : first);
}

// Counts one allocation without making one, for a pool that hands out parts of the blocks it
// holds: so such a part can fail like any allocation (reported, and 0 returned) when tests make
// allocations fail. Returns 1 otherwise.
int CountAllocation();

// Test support: the next `count` allocations succeed, then every one fails until reset with -1.
void SetAllocationFailureAfter(int64_t count);
