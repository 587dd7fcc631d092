// The allocation wrapper: zeroed blocks, one report per failure, and a countdown that tests use
// to make an allocation fail at a chosen point.
#include "base/alloc.h"

#include <cstdlib>
#include <cstring>

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

void* Reallocate(void* block, size_t oldSize, size_t newSize) {
  void* grown = ShouldFail() ? nullptr : std::realloc(block, newSize ? newSize : 1);
  if (!grown) {
    ReportOutOfMemory();
    return nullptr;
  }
  if (newSize > oldSize) std::memset(static_cast<char*>(grown) + oldSize, 0, newSize - oldSize);
  return grown;
}

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
