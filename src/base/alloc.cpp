// The allocation wrapper: zeroed blocks, large blocks on large pages, one report per failure, and a
// countdown that tests use to make an allocation fail at a chosen point.
#include "base/alloc.h"

#include <cstdlib>
#include <cstring>

#if __has_include(<sys/mman.h>)
#include <sys/mman.h>
#endif

static OutOfMemoryHook outOfMemoryHook;
static int64_t failureCountdown = -1;

void SetOutOfMemoryHook(OutOfMemoryHook hook) {
  outOfMemoryHook = hook;
}

void SetAllocationFailureAfter(int64_t count) {
  failureCountdown = count;
}

static int ShouldFail() {
  if (failureCountdown < 0) return 0;
  if (failureCountdown == 0) return 1;
  failureCountdown--;
  return 0;
}

static void ReportOutOfMemory() {
  if (outOfMemoryHook) outOfMemoryHook();
}

void* Allocate(size_t size) {
  void* block = ShouldFail() ? nullptr : std::calloc(1, size ? size : 1);
  if (!block) ReportOutOfMemory();
  return block;
}

int CountAllocation() {
  if (!ShouldFail()) return 1;
  ReportOutOfMemory();
  return 0;
}

void* Reallocate(void* block, size_t oldSize, size_t newSize) {
  void* grown = ShouldFail() ? nullptr : std::realloc(block, newSize ? newSize : 1);
  if (!grown) {
    ReportOutOfMemory();
    return nullptr;
  }
  if (newSize > oldSize) std::memset(static_cast<char*>(grown) + oldSize, 0, newSize - oldSize);
  return grown;
}

// Large blocks are mapped from the system directly, where it can map memory and large pages: the
// pages come zeroed, and the block can be aligned to a large page. Under AddressSanitizer they
// stay ordinary heap blocks, so that the leak checker still sees the pointers they hold.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define LARGE_BLOCKS_ON_HEAP 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || !defined(MADV_HUGEPAGE)
#define LARGE_BLOCKS_ON_HEAP 1
#endif

static size_t LargeSize(size_t size) {
  return (size + LargeBlockSize - 1) / LargeBlockSize * LargeBlockSize;
}

#ifdef LARGE_BLOCKS_ON_HEAP
void* AllocateLarge(size_t size) {
  return Allocate(LargeSize(size));
}

void ReleaseLarge(void* block, size_t) {
  Release(block);
}
#else
void* AllocateLarge(size_t size) {
  size_t rounded = LargeSize(size);
  size_t span = rounded + LargeBlockSize;
  void* map = rounded < size || ShouldFail()
                  ? MAP_FAILED
                  : mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (map == MAP_FAILED) {
    ReportOutOfMemory();
    return nullptr;
  }
  // Keep the aligned part of the mapping and give back what lies before and behind it.
  uintptr_t first = reinterpret_cast<uintptr_t>(map);
  uintptr_t start = (first + LargeBlockSize - 1) / LargeBlockSize * LargeBlockSize;
  if (start > first) munmap(map, start - first);
  if (first + span > start + rounded)
    munmap(reinterpret_cast<void*>(start + rounded), first + span - (start + rounded));
  void* block = reinterpret_cast<void*>(start);
  madvise(block, rounded, MADV_HUGEPAGE);  // advice only: nothing changes if it is not taken
  return block;
}

void ReleaseLarge(void* block, size_t size) {
  if (block) munmap(block, LargeSize(size));
}
#endif

void Release(void* block) {
  std::free(block);
}

int GrowArray(void** items, uint32_t* capacity, uint32_t needed, uint32_t step,
              size_t elementSize) {
  if (needed <= *capacity) return 1;
  uint64_t wanted = *capacity;
  while (wanted < needed) wanted += step;
  if (wanted > UINT32_MAX || wanted * elementSize > SIZE_MAX / 2) {
    ReportOutOfMemory();
    return 0;
  }
  void* grown =
      Reallocate(*items, *capacity * elementSize, static_cast<size_t>(wanted) * elementSize);
  if (!grown) return 0;
  *items = grown;
  *capacity = static_cast<uint32_t>(wanted);
  return 1;
}
