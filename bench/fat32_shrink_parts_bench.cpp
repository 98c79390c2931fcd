// The parts of a FAT32 shrink that touch no disk: the scan of the volume bitmap, beside a plain
// pass over the same bytes, and finding places for the pieces of files.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstring>
#include <random>

#include "shrink/fat32_files.h"
#include "shrink/fat32_free_space.h"

namespace {

using Bitmap = std::vector<std::byte>;

enum Pattern { kAllFree, kAllUsed, kLongRuns, kStriped, kRandom };

constexpr const char* kPatternNames[] = {"all free", "all used", "long runs", "striped", "random"};
constexpr std::size_t kRunBytes = 4096;  // of a long run: 32,768 clusters

Bitmap MakeBitmap(Pattern pattern, std::size_t bytes) {
  Bitmap bits(bytes);
  std::mt19937_64 random(1);
  for (std::size_t i = 0; i < bytes; ++i) {
    const bool is_used_run = i / kRunBytes % 2 != 0;
    const unsigned values[] = {0, 0xFF, is_used_run ? 0xFFU : 0U, 0x0F,
                               static_cast<unsigned>(random() & 0xFF)};
    bits[i] = static_cast<std::byte>(values[pattern]);
  }
  return bits;
}

std::size_t BitmapBytes(const benchmark::State& state) {
  return std::size_t{1} << (state.range(0) - 3);
}

void Report(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void SumOfBitmap(benchmark::State& state) {
  const Bitmap bits = MakeBitmap(kRandom, BitmapBytes(state));
  for (auto _ : state) {
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < bits.size(); i += sizeof sum) {
      std::uint64_t word = 0;
      std::memcpy(&word, &bits[i], sizeof word);
      sum += word;
    }
    benchmark::DoNotOptimize(sum);
  }
  Report(state, bits.size());
}
BENCHMARK(SumOfBitmap)->DenseRange(20, 28, 4);

void ScanOfBitmap(benchmark::State& state) {
  const auto pattern = static_cast<Pattern>(state.range(1));
  const Bitmap bits = MakeBitmap(pattern, BitmapBytes(state));
  std::vector<velkora::ClusterRun> runs;
  for (auto _ : state) {
    runs.clear();
    velkora::AppendFreeRuns(bits, bits.size() * 8, runs);
    benchmark::DoNotOptimize(runs.data());
  }
  state.SetLabel(kPatternNames[pattern]);
  Report(state, bits.size());
}
BENCHMARK(ScanOfBitmap)->ArgsProduct({{20, 24, 28}, {kAllFree, kAllUsed, kLongRuns}});
// One run in eight clusters and less: the list of runs is longer than the bitmap.
BENCHMARK(ScanOfBitmap)->ArgsProduct({{20, 24, 28}, {kStriped, kRandom}});

void Place100000PiecesIn1000000Runs(benchmark::State& state) {
  constexpr std::uint64_t kPieces = 100'000;
  constexpr std::uint64_t kRuns = 1'000'000;
  constexpr std::uint64_t kRunSpacing = 16;
  constexpr std::uint64_t kBoundary = kRuns * kRunSpacing + velkora::kFirstFatCluster;
  for (auto _ : state) {
    state.PauseTiming();
    std::mt19937_64 random(1);
    std::vector<velkora::ClusterRun> runs;
    for (std::uint64_t i = 0; i < kRuns; ++i) {
      runs.push_back({velkora::kFirstFatCluster + i * kRunSpacing, 1 + random() % 8});
    }
    std::vector<velkora::FileDebris> files(kPieces);
    std::uint64_t wanted = 0;
    for (velkora::FileDebris& file : files) {
      file.extents.push_back({0, 1 + random() % 32});
      wanted += file.extents.front().count;
    }
    std::uint64_t moved = 0;
    state.ResumeTiming();
    const bool placed =
        velkora::PlaceFileDebris(runs, files, kBoundary, [&moved](const velkora::FileMove& move) {
          moved += move.count;
          return true;
        });
    if (!placed || moved != wanted) state.SkipWithError("not all pieces found a place");
  }
}
BENCHMARK(Place100000PiecesIn1000000Runs)->Unit(benchmark::kMillisecond);

}  // namespace
