// The library's own work: reading a full table, building a long layout, one whole conversion.
#include <benchmark/benchmark.h>
#include <cstdint>

#include "bench/bench_machine.h"
#include "convert/layout_builder.h"
#include "convert/partition_reader.h"
#include "disk/device_handle.h"
#include "frame/velkora_sdk.h"
#include "host/disk_record.h"

namespace {

using bench::Bench;
using bench::kGib;

constexpr std::uint64_t kSectorsPerMib = 2048;

void ReadTableOf128Rows(benchmark::State& state) {
  Bench ground;
  ground.WriteGpt(128);
  HANDLE disk = velkora::GetDeviceHandleById("\\\\.\\PhysicalDrive1");
  for (auto _ : state) {
    velkora::GptPartitionList rows;
    if (!velkora::ReadGptPartitions(disk, rows) || rows.size() != 128) {
      state.SkipWithError("the table was not read");
    }
    ground.machine().calls().Clear();
  }
  velkora::CloseDeviceHandle(disk);
}
BENCHMARK(ReadTableOf128Rows);

void BuildLayoutOf60Logicals(benchmark::State& state) {
  Bench ground;
  velkora::GptPartitionList rows(63);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    rows[i].first_sector = kSectorsPerMib * (1 + 18 * i);
    rows[i].last_sector = rows[i].first_sector + 16 * kSectorsPerMib - 1;
  }
  for (auto _ : state) {
    auto layout = velkora::BuildMbrLayout(rows, 8 * kGib, 1);
    benchmark::DoNotOptimize(layout);
    ground.machine().calls().Clear();
  }
}
BENCHMARK(BuildLayoutOf60Logicals);

void ConvertDiskOf8Gib(benchmark::State& state) {
  Bench ground;
  for (auto _ : state) {
    state.PauseTiming();
    // An object is good for one conversion.
    VelkoraSDK* sdk = InitVelkoraSDK(nullptr, "X:\\logs", nullptr, nullptr);
    ground.WriteGpt(5);
    velkora_host::DiskRecord record(1);
    state.ResumeTiming();
    const auto ignore = [](std::int32_t, std::int32_t) { return std::int32_t{0}; };
    if (sdk->Convert(&record.disk(), ignore) != 0) state.SkipWithError("not converted");
    ground.machine().calls().Clear();
    DestroyVelkoraSDK(sdk);
  }
}
BENCHMARK(ConvertDiskOf8Gib)->Unit(benchmark::kMillisecond);

}  // namespace
