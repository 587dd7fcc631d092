// Cost of the distribution and rate functions through their handlers, as the evaluator calls
// them: a million calls each of LOI.NORMALE.STANDARD, LOI.NORMALE.INVERSE, LOI.BETA and TRI on a
// reference to 20 cash flows, with ABS as the baseline of a handler that does almost nothing.
// Arguments vary over a fixed sequence so that no branch is always taken; each run reports the
// time per call (items per second inverted).
#include <benchmark/benchmark.h>

#include <vector>

#include "functions/handlers.h"
#include "functions/table.h"
#include "model/workbook.h"

namespace {

constexpr int Calls = 1000000;

// Calls `handler` Calls times with the arguments that `fill` puts in a fresh frame for call i.
template <typename Fill>
void CallMany(benchmark::State& state, FunctionHandler handler, const EvalContext* ctx, Fill fill) {
  for (auto _ : state) {
    for (int i = 0; i < Calls; i++) {
      Value frame[FunctionFrameSize] = {};
      fill(frame, i);
      Value result{};
      handler(frame, &result, ctx);
      benchmark::DoNotOptimize(result);
      for (Value& v : frame) FreeValue(&v);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * Calls);
}

// Values spread over a distribution's useful range: -4 to 4, or 0.001 to 0.999.
double Spread(int i, double low, double high) {
  return low + (high - low) * ((i % 1000) * 7919 % 1000 + 0.5) / 1000;
}

const EvalContext* NoCell() {
  static EvalContext ctx{};
  return &ctx;
}

void BM_AbsBaseline(benchmark::State& state) {
  CallMany(state, FnAbs, NoCell(), [](Value* f, int i) { f[0] = NumberValue(Spread(i, -4, 4)); });
}

void BM_LoiNormaleStandard(benchmark::State& state) {
  CallMany(state, FnLoiNormaleStandard, NoCell(),
           [](Value* f, int i) { f[0] = NumberValue(Spread(i, -4, 4)); });
}

void BM_LoiNormaleInverse(benchmark::State& state) {
  CallMany(state, FnLoiNormaleInverse, NoCell(), [](Value* f, int i) {
    f[0] = NumberValue(Spread(i, 0.001, 0.999));
    f[1] = NumberValue(10);
    f[2] = NumberValue(2);
  });
}

void BM_LoiBeta(benchmark::State& state) {
  CallMany(state, FnLoiBeta, NoCell(), [](Value* f, int i) {
    f[0] = NumberValue(Spread(i, 0.001, 0.999));
    f[1] = NumberValue(2 + i % 7);
    f[2] = NumberValue(3 + i % 5);
  });
}

// TRI over A1:A20 of a workbook: an outlay and nineteen returns, with a rate near 8%.
void BM_Tri20(benchmark::State& state) {
  uint32_t book = 0;
  if (!CreateWorkbook(nullptr, 0, &book)) {
    state.SkipWithError("no workbook");
    return;
  }
  for (uint16_t row = 0; row < 20; row++) {
    Cell cell{};
    cell.row = row;
    cell.xf = 15;
    cell.value = NumberValue(row == 0 ? -1000 : 100 + row);
    StoreCell(book, 0, &cell, 0, 0);
  }
  EvalContext ctx{book, 0, 30, 0, 0};
  CallMany(state, FnTri, &ctx, [](Value* f, int) { f[0] = RefValue(Range{0, 19, 0, 0}); });
  CloseAllWorkbooks();
}

BENCHMARK(BM_AbsBaseline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoiNormaleStandard)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoiNormaleInverse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoiBeta)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tri20)->Unit(benchmark::kMillisecond);

}  // namespace
