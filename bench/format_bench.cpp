// Cost of the number format engine: a million values of mixed magnitude formatted through General,
// through a grouped two-decimal code, through a short date and through a date with time, and the
// same values through the C library's "%.15g" as the baseline of a plain conversion. Each run
// reports the time per value (items per second inverted).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <vector>

#include "format/number_format.h"

namespace {

constexpr size_t ValueCount = 1000000;

// Amounts from cents to millions, and dates between 1900 and 2100 with a time of day, from a fixed
// seed so that runs compare.
const std::vector<double>& Values() {
  static std::vector<double> values = [] {
    std::vector<double> v(ValueCount);
    std::mt19937_64 random(20261121);
    std::uniform_real_distribution<double> exponent(-2, 7), date(1, 73050);
    for (size_t i = 0; i < ValueCount; i++)
      v[i] = i % 2 ? date(random) : std::pow(10.0, exponent(random)) * (i % 4 ? 1 : -1);
    return v;
  }();
  return values;
}

void FormatAll(benchmark::State& state, const char16_t* code) {
  const std::vector<double>& values = Values();
  for (auto _ : state) {
    for (double v : values) benchmark::DoNotOptimize(FormatNumber(v, code, 0, nullptr, 0, nullptr));
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}

void BM_General(benchmark::State& state) {
  FormatAll(state, u"General");
}
void BM_GroupedTwoDecimals(benchmark::State& state) {
  FormatAll(state, u"#,##0.00");
}
void BM_ShortDate(benchmark::State& state) {
  FormatAll(state, u"dd\\/mm\\/yyyy");
}
void BM_DateAndTime(benchmark::State& state) {
  FormatAll(state, u"dddd d mmmm yyyy hh:mm:ss");
}
void BM_ConditionalColours(benchmark::State& state) {
  FormatAll(state, u"[Blue][>=1000]#,##0;[Red][<0]-0.00;0.0");
}

// The floor: the C library printing the same values with no format at all.
void BM_PrintfBaseline(benchmark::State& state) {
  const std::vector<double>& values = Values();
  char buffer[40];
  for (auto _ : state) {
    for (double v : values) {
      std::snprintf(buffer, sizeof buffer, "%.15g", v);
      benchmark::DoNotOptimize(buffer);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * values.size()));
}

BENCHMARK(BM_PrintfBaseline)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_General)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GroupedTwoDecimals)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ShortDate)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DateAndTime)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ConditionalColours)->Unit(benchmark::kMillisecond);

}  // namespace
