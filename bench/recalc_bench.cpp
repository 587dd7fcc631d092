// Cost of recalculation: calculating a chain of 65,536 formulas from a fully dirty sheet (each
// cell reads the one above), marking the readers of one edited input among 30,000 rows of five
// formulas, and marking the whole chain from its first cell. The marking cases run against the
// plain restart scan (after each mark the scan starts again from the first cell) as a baseline,
// on sizes where that scan finishes.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "base/alloc.h"
#include "formula/recalc.h"
#include "model/workbook.h"

namespace {

// Hand-written tokens: a value-class reference, an integer, an operator.
struct Tokens {
  uint8_t bytes[16];
  uint16_t length = 0;
  Tokens& Ref(uint16_t row, uint8_t col) {
    uint8_t t[] = {ptgRef | ClassValue, static_cast<uint8_t>(row), static_cast<uint8_t>(row >> 8),
                   col, RefRowRelative | RefColRelative};
    for (uint8_t b : t) bytes[length++] = b;
    return *this;
  }
  Tokens& Int(uint16_t n) {
    uint8_t t[] = {ptgInt, static_cast<uint8_t>(n), static_cast<uint8_t>(n >> 8)};
    for (uint8_t b : t) bytes[length++] = b;
    return *this;
  }
  Tokens& Op(uint8_t ptg) {
    bytes[length++] = ptg;
    return *this;
  }
};

void PutFormula(uint32_t book, Cell* cell, const Tokens& t) {
  cell->formula.length = t.length;
  cell->formula.bytes = static_cast<uint8_t*>(Allocate(t.length));
  for (uint16_t i = 0; i < t.length; i++) cell->formula.bytes[i] = t.bytes[i];
  if (!BuildPrecedents(book, 0, cell)) std::abort();
  cell->state = CellCalculated;
}

// A1 holds 1; A2 to A(rows) each hold =A(n-1)+1.
uint32_t MakeChain(uint32_t rows) {
  CloseAllWorkbooks();
  uint32_t book = 0;
  if (!CreateWorkbook(nullptr, 0, &book)) std::abort();
  CellArray* cells = &GetSheet(book, 0)->cells;
  Cell* first = AppendCell(cells, 0, 0);
  first->value = NumberValue(1);
  first->state = CellCalculated;
  for (uint32_t row = 1; row < rows; row++)
    PutFormula(book, AppendCell(cells, row, 0),
               Tokens().Ref(static_cast<uint16_t>(row - 1), 0).Int(1).Op(ptgAdd));
  return book;
}

// Columns A to E hold numbers; F = A+B, G = F+C, H = G+D, I = H+E, J = F+I, on each row.
uint32_t MakeRows(uint32_t rows) {
  CloseAllWorkbooks();
  uint32_t book = 0;
  if (!CreateWorkbook(nullptr, 0, &book)) std::abort();
  CellArray* cells = &GetSheet(book, 0)->cells;
  for (uint32_t row = 0; row < rows; row++) {
    uint16_t r = static_cast<uint16_t>(row);
    for (uint8_t col = 0; col < 5; col++) {
      Cell* c = AppendCell(cells, row, col);
      c->value = NumberValue(col + 1);
      c->state = CellCalculated;
    }
    PutFormula(book, AppendCell(cells, row, 5), Tokens().Ref(r, 0).Ref(r, 1).Op(ptgAdd));
    PutFormula(book, AppendCell(cells, row, 6), Tokens().Ref(r, 5).Ref(r, 2).Op(ptgAdd));
    PutFormula(book, AppendCell(cells, row, 7), Tokens().Ref(r, 6).Ref(r, 3).Op(ptgAdd));
    PutFormula(book, AppendCell(cells, row, 8), Tokens().Ref(r, 7).Ref(r, 4).Op(ptgAdd));
    PutFormula(book, AppendCell(cells, row, 9), Tokens().Ref(r, 5).Ref(r, 8).Op(ptgAdd));
  }
  return book;
}

void ResetStates(uint32_t book) {
  CellArray* cells = &GetSheet(book, 0)->cells;
  for (uint32_t i = 0; i < cells->count; i++) cells->cells[i]->state = CellCalculated;
}

uint32_t CountDirty(uint32_t book) {
  CellArray* cells = &GetSheet(book, 0)->cells;
  uint32_t n = 0;
  for (uint32_t i = 0; i < cells->count; i++) n += cells->cells[i]->state == CellDirty;
  return n;
}

// The restart scan on the one sheet of the benchmark workbooks, same-sheet references only.
void RestartScan(uint32_t book, Range changed) {
  std::vector<Range> stack{changed};
  CellArray* cells = &GetSheet(book, 0)->cells;
  while (!stack.empty()) {
    Range top = stack.back();
    bool marked = false;
    for (uint32_t i = 0; i < cells->count && !marked; i++) {
      Cell* c = cells->cells[i];
      if (!c->formula.bytes || c->state == CellDirty) continue;
      bool reads = c->isVolatile != 0;
      for (uint32_t p = 0; p < c->precedentCount && !reads; p++) {
        Range overlap;
        reads = IntersectRanges(&c->precedents[p].range, &top, &overlap);
      }
      if (!reads) continue;
      c->state = CellDirty;
      stack.push_back(Range{c->row, c->row, c->col, c->col});
      marked = true;
    }
    if (!marked) stack.pop_back();
  }
}

void CalculateChain(benchmark::State& state) {
  uint32_t rows = static_cast<uint32_t>(state.range(0));
  uint32_t book = MakeChain(rows);
  Cell* last = CellAt(&GetSheet(book, 0)->cells, rows - 1, 0);
  for (auto _ : state) {
    state.PauseTiming();
    DirtySheet(0);
    state.ResumeTiming();
    if (!CalculateCell(book, 0, last)) std::abort();
  }
  if (last->value.number != rows) std::abort();
  state.counters["cells/s"] = benchmark::Counter(static_cast<double>(rows) * state.iterations(),
                                                 benchmark::Counter::kIsRate);
  CloseAllWorkbooks();
}
BENCHMARK(CalculateChain)->Arg(65536)->Unit(benchmark::kMillisecond);

template <bool restart>
void EditOneRow(benchmark::State& state) {
  uint32_t book = MakeRows(static_cast<uint32_t>(state.range(0)));
  CellArray* cells = &GetSheet(book, 0)->cells;
  uint16_t row = static_cast<uint16_t>(state.range(0) / 2);
  Cell* input = CellAt(cells, row, 2);  // C: read by G, and so by H, I and J
  for (auto _ : state) {
    input->value.number += 1;
    if (restart)
      RestartScan(book, Range{row, row, 2, 2});
    else
      MarkDependents(book, 0, input, 0);
    state.PauseTiming();
    if (CountDirty(book) != 4) std::abort();
    ResetStates(book);
    state.ResumeTiming();
  }
  CloseAllWorkbooks();
}
BENCHMARK(EditOneRow<false>)->Name("EditOneRow")->Arg(30000)->Unit(benchmark::kMicrosecond);
BENCHMARK(EditOneRow<true>)
    ->Name("EditOneRow/restartScan")
    ->Arg(30000)
    ->Unit(benchmark::kMicrosecond);

template <bool restart>
void MarkChain(benchmark::State& state) {
  uint32_t rows = static_cast<uint32_t>(state.range(0));
  uint32_t book = MakeChain(rows);
  Cell* first = CellAt(&GetSheet(book, 0)->cells, 0, 0);
  for (auto _ : state) {
    if (restart)
      RestartScan(book, Range{0, 0, 0, 0});
    else
      MarkDependents(book, 0, first, 0);
    state.PauseTiming();
    if (CountDirty(book) != rows - 1) std::abort();
    ResetStates(book);
    state.ResumeTiming();
  }
  CloseAllWorkbooks();
}
BENCHMARK(MarkChain<false>)
    ->Name("MarkChain")
    ->Arg(1024)
    ->Arg(4096)
    ->Arg(65536)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(MarkChain<true>)
    ->Name("MarkChain/restartScan")
    ->Arg(1024)
    ->Arg(4096)
    ->Unit(benchmark::kMillisecond);

}  // namespace
