// Cost of the cell store: storing a million cells in row order (each insertion lands at the end
// of the pointer array), storing a hundred thousand in random order (each insertion moves the
// tail of the array), and looking every one of them up again by binary search.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <random>
#include <vector>

#include "model/cells.h"
#include "model/workbook.h"

namespace {

struct Position {
  uint16_t row;
  uint8_t col;
};

std::vector<Position> RowOrder(uint32_t rows, uint32_t cols) {
  std::vector<Position> out;
  out.reserve(static_cast<size_t>(rows) * cols);
  for (uint32_t r = 0; r < rows; r++)
    for (uint32_t c = 0; c < cols; c++)
      out.push_back({static_cast<uint16_t>(r), static_cast<uint8_t>(c)});
  return out;
}

// Distinct positions in a random order, from a fixed seed so that runs compare.
std::vector<Position> RandomOrder(uint32_t count) {
  std::vector<Position> out = RowOrder(65536, 256);
  std::mt19937 random(12345);
  std::shuffle(out.begin(), out.end(), random);
  out.resize(count);
  return out;
}

void StoreAll(uint32_t book, const std::vector<Position>& positions) {
  Cell proto{};
  for (const Position& p : positions) {
    proto.row = p.row;
    proto.col = p.col;
    proto.value = NumberValue(p.row + p.col);
    if (!StoreCell(book, 0, &proto, 0, 0)) std::abort();
  }
}

void StoreAndFind(benchmark::State& state, const std::vector<Position>& positions) {
  for (auto _ : state) {
    uint32_t book = 0;
    if (!CreateWorkbook(nullptr, 0, &book)) std::abort();
    StoreAll(book, positions);
    const CellArray* cells = &GetSheet(book, 0)->cells;
    double sum = 0;
    for (const Position& p : positions) sum += CellAt(cells, p.row, p.col)->value.number;
    benchmark::DoNotOptimize(sum);
    state.PauseTiming();
    CloseAllWorkbooks();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(positions.size()));
}

void StoreInRowOrder(benchmark::State& state) {
  static const std::vector<Position> positions = RowOrder(15625, 64);  // 1,000,000 cells
  StoreAndFind(state, positions);
}

void StoreInRandomOrder(benchmark::State& state) {
  static const std::vector<Position> positions = RandomOrder(100000);
  StoreAndFind(state, positions);
}

// Lookups alone, over the million stored in row order, visited in a random order.
void FindInMillion(benchmark::State& state) {
  static const std::vector<Position> stored = RowOrder(15625, 64);
  std::vector<Position> probes = stored;
  std::shuffle(probes.begin(), probes.end(), std::mt19937(777));
  uint32_t book = 0;
  if (!CreateWorkbook(nullptr, 0, &book)) std::abort();
  StoreAll(book, stored);
  const CellArray* cells = &GetSheet(book, 0)->cells;
  for (auto _ : state) {
    uint32_t found = 0;
    for (const Position& p : probes) found += CellAt(cells, p.row, p.col) != nullptr;
    benchmark::DoNotOptimize(found);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(probes.size()));
  CloseAllWorkbooks();
}

BENCHMARK(StoreInRowOrder)->Unit(benchmark::kMillisecond);
BENCHMARK(StoreInRandomOrder)->Unit(benchmark::kMillisecond);
BENCHMARK(FindInMillion)->Unit(benchmark::kMillisecond);

}  // namespace
