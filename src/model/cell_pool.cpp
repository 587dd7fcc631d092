// Where cell records live. They are carved in order from large blocks instead of being allocated
// one by one: a loaded sheet may hold 655,360 cells, and a heap block for each costs a fifth more
// memory and, above all, the time of touching that memory a small page at a time. A freed record
// goes on a free list, linked through its own first bytes, and is handed out again first. All the
// blocks are released together when the last cell of every workbook has gone.
//
// Under AddressSanitizer the records that are not in use are poisoned, so that reading a freed
// cell is reported as it would be with a heap block of its own.
#include <cstring>

#include "base/alloc.h"
#include "model/cells.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define CELL_POOL_POISON 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define CELL_POOL_POISON 1
#endif

#ifdef CELL_POOL_POISON
#include <sanitizer/asan_interface.h>
#define POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define POISON(p, n) ((void)(p), (void)(n))
#define UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace {

struct CellBlock {
  CellBlock* next;
  uint64_t used;  // records handed out from this block, in order
};

constexpr uint64_t CellsPerBlock = (LargeBlockSize - sizeof(CellBlock)) / sizeof(Cell);
static_assert(sizeof(CellBlock) % alignof(Cell) == 0, "records follow the block's head");

CellBlock* blocks;   // newest first; records are carved from the first
Cell* freeCells;     // freed records, each holding the next in its first bytes
uint64_t liveCells;  // records handed out and not yet released

Cell* BlockCells(CellBlock* block) {
  return reinterpret_cast<Cell*>(block + 1);
}

void ReleaseBlocks() {
  while (blocks) {
    CellBlock* next = blocks->next;
    UNPOISON(blocks, LargeBlockSize);
    ReleaseLarge(blocks, LargeBlockSize);
    blocks = next;
  }
  freeCells = nullptr;
}

}  // namespace

Cell* AllocateCell() {
  if (!CountAllocation()) return nullptr;
  Cell* cell;
  if (freeCells) {
    cell = freeCells;
    UNPOISON(cell, sizeof(Cell));
    std::memcpy(&freeCells, static_cast<const void*>(cell), sizeof freeCells);
  } else {
    if (!blocks || blocks->used == CellsPerBlock) {
      auto* block = static_cast<CellBlock*>(AllocateLarge(LargeBlockSize));
      if (!block) return nullptr;
      POISON(BlockCells(block), CellsPerBlock * sizeof(Cell));
      block->next = blocks;
      blocks = block;
    }
    cell = &BlockCells(blocks)[blocks->used++];
    UNPOISON(cell, sizeof(Cell));
  }
  std::memset(static_cast<void*>(cell), 0, sizeof(Cell));
  liveCells++;
  return cell;
}

void ReleaseCell(Cell* cell) {
  if (!cell) return;
  std::memcpy(static_cast<void*>(cell), &freeCells, sizeof freeCells);
  POISON(cell, sizeof(Cell));
  freeCells = cell;
  if (--liveCells == 0) ReleaseBlocks();
}
