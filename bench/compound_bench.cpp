// Cost of reading a workbook stream out of a compound file, from memory and from a file on disk,
// at 1 MB and 16 MB: the time per byte should stay flat as the stream grows, since the chain is
// walked once from its start. The containers come from our own writer.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/text.h"
#include "files/compound.h"

namespace {

std::string WriteContainer(uint32_t size) {
  std::string path = "/tmp/tessarel-compound-bench-" + std::to_string(getpid()) + "-" +
                     std::to_string(size) + ".xls";
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) std::abort();
  static CompoundWriter writer;
  const char16_t* names[] = {u"Workbook"};
  if (!BeginCompoundFile(&writer, file, names, 1) || !BeginCompoundStream(&writer, 0)) std::abort();
  std::vector<uint8_t> chunk(8192);
  for (size_t i = 0; i < chunk.size(); i++) chunk[i] = static_cast<uint8_t>(i * 31);
  for (uint32_t done = 0; done < size; done += 8192) CompoundWrite(&writer, chunk.data(), 8192);
  if (!EndCompoundFile(&writer)) std::abort();
  std::fclose(file);
  return path;
}

void ReadFromMemory(benchmark::State& state) {
  uint32_t size = static_cast<uint32_t>(state.range(0));
  std::string path = WriteContainer(size);
  std::vector<uint8_t> bytes;
  FILE* file = std::fopen(path.c_str(), "rb");
  int c;
  while ((c = std::fgetc(file)) != EOF) bytes.push_back(static_cast<uint8_t>(c));
  std::fclose(file);
  std::remove(path.c_str());
  for (auto _ : state) {
    CompoundFile compound;
    CompoundStream stream;
    if (!OpenCompoundBytes(&compound, bytes.data(), bytes.size()) ||
        !ReadWorkbookStream(&compound, &stream))
      std::abort();
    benchmark::DoNotOptimize(stream.data);
    ReleaseCompoundStream(&stream);
    CloseCompound(&compound);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}

void ReadFromFile(benchmark::State& state) {
  uint32_t size = static_cast<uint32_t>(state.range(0));
  std::string path = WriteContainer(size);
  std::u16string path16 = Utf8ToU16(path);
  for (auto _ : state) {
    CompoundFile compound;
    CompoundStream stream;
    if (!OpenCompoundFile(&compound, path16.c_str()) || !ReadWorkbookStream(&compound, &stream))
      std::abort();
    benchmark::DoNotOptimize(stream.data);
    ReleaseCompoundStream(&stream);
    CloseCompound(&compound);
  }
  std::remove(path.c_str());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * size);
}

}  // namespace

BENCHMARK(ReadFromMemory)->Arg(1 << 20)->Arg(16 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadFromFile)->Arg(1 << 20)->Arg(16 << 20)->Unit(benchmark::kMillisecond);
