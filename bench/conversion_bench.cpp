// The library's own work: reading a full table, building a long layout, one whole conversion.
#include <benchmark/benchmark.h>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "apps/velkora_image/disk_record.h"
#include "convert/layout_builder.h"
#include "convert/partition_reader.h"
#include "disk/device_handle.h"
#include "frame/velkora_sdk.h"
#include "simulator/simulated_machine.h"

namespace {

constexpr std::uint64_t kGib = std::uint64_t{1} << 30;
constexpr std::uint64_t kSectorsPerMib = 2048;

constexpr GUID kBasicData = {
    0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};

// A machine with one empty GPT disk of 8 GiB in a temporary folder.
class Bench {
 public:
  Bench() {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_ / "logs");
    simulator::CreateSparseImage(folder_ / "disk.img", 8 * kGib);
    machine_.MapFolder('X', folder_);
    machine_.AttachDisk(1, folder_ / "disk.img");
    machine_.MakeCurrent();
  }
  ~Bench() { std::filesystem::remove_all(folder_); }

  // Partitions of 16 MiB with 2 MiB between them.
  void WriteGpt(std::uint32_t count) {
    CREATE_DISK request{};
    request.PartitionStyle = PARTITION_STYLE_GPT;
    request.Gpt.DiskId = machine_.NextGuid();
    Check(machine_.CreateDisk(disk(), request));
    simulator::DiskLayout layout;
    layout.header.PartitionStyle = PARTITION_STYLE_GPT;
    layout.header.PartitionCount = count;
    for (std::uint32_t i = 0; i < count; ++i) {
      PARTITION_INFORMATION_EX row{};
      row.PartitionStyle = PARTITION_STYLE_GPT;
      row.StartingOffset.QuadPart = static_cast<LONGLONG>((1 + 18 * std::uint64_t{i}) << 20);
      row.PartitionLength.QuadPart = LONGLONG{16} << 20;
      row.Gpt.PartitionType = kBasicData;
      row.Gpt.PartitionId = machine_.NextGuid();
      layout.rows.push_back(row);
    }
    Check(machine_.SetLayout(disk(), layout));
  }

  simulator::SimulatedMachine& machine() { return machine_; }
  simulator::Disk& disk() { return *machine_.FindDisk(1); }

 private:
  static void Check(DWORD error) {
    if (error != ERROR_SUCCESS) throw std::runtime_error("error " + std::to_string(error));
  }

  std::filesystem::path folder_ = std::filesystem::temp_directory_path() / "velkora-bench";
  simulator::SimulatedMachine machine_;
};

void ReadTableOf128Rows(benchmark::State& state) {
  Bench bench;
  bench.WriteGpt(128);
  HANDLE disk = velkora::GetDeviceHandleById("\\\\.\\PhysicalDrive1");
  for (auto _ : state) {
    velkora::GptPartitionList rows;
    if (!velkora::ReadGptPartitions(disk, rows) || rows.size() != 128) {
      state.SkipWithError("the table was not read");
    }
    bench.machine().calls().Clear();
  }
  velkora::CloseDeviceHandle(disk);
}
BENCHMARK(ReadTableOf128Rows);

void BuildLayoutOf60Logicals(benchmark::State& state) {
  Bench bench;
  velkora::GptPartitionList rows(63);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    rows[i].first_sector = kSectorsPerMib * (1 + 18 * i);
    rows[i].last_sector = rows[i].first_sector + 16 * kSectorsPerMib - 1;
  }
  for (auto _ : state) {
    auto layout = velkora::BuildMbrLayout(rows, 8 * kGib, 1);
    benchmark::DoNotOptimize(layout);
    bench.machine().calls().Clear();
  }
}
BENCHMARK(BuildLayoutOf60Logicals);

void ConvertDiskOf8Gib(benchmark::State& state) {
  Bench bench;
  VelkoraSDK* sdk = InitVelkoraSDK(nullptr, "X:\\logs", nullptr, nullptr);
  for (auto _ : state) {
    state.PauseTiming();
    bench.WriteGpt(5);
    velkora_image::DiskRecord record(bench.machine(), 1);
    state.ResumeTiming();
    const auto ignore = [](std::int32_t, std::int32_t) { return std::int32_t{0}; };
    if (sdk->Convert(&record.disk(), ignore) != 0) state.SkipWithError("not converted");
    bench.machine().calls().Clear();
  }
  DestroyVelkoraSDK(sdk);
}
BENCHMARK(ConvertDiskOf8Gib)->Unit(benchmark::kMillisecond);

}  // namespace
