// The ground of the benchmarks.
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "simulator/simulated_machine.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/partition_store.h"

namespace bench {

inline constexpr std::uint64_t kGib = std::uint64_t{1} << 30;

inline constexpr GUID kBasicData = {
    0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};

// A machine with one empty GPT disk in a temporary folder, which is its drive X.
class Bench {
 public:
  explicit Bench(std::uint64_t disk_bytes = 8 * kGib) {
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_ / "logs");
    simulator::CreateSparseImage(image(), disk_bytes);
    machine_.MapFolder('X', folder_);
    machine_.AttachDisk(1, image());
    machine_.MakeCurrent();
  }
  ~Bench() { std::filesystem::remove_all(folder_); }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  // Partitions of `mib` MiB with 2 MiB between them, the first at 1 MiB.
  void WriteGpt(std::uint32_t count, std::uint64_t mib = 16) {
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
      row.StartingOffset.QuadPart = static_cast<LONGLONG>((1 + (mib + 2) * i) << 20);
      row.PartitionLength.QuadPart = static_cast<LONGLONG>(mib << 20);
      row.Gpt.PartitionType = kBasicData;
      row.Gpt.PartitionId = machine_.NextGuid();
      layout.rows.push_back(row);
    }
    Check(machine_.SetLayout(disk(), layout));
  }

  simulator::SimulatedMachine& machine() { return machine_; }
  simulator::Disk& disk() { return *machine_.FindDisk(1); }
  const std::filesystem::path& folder() const { return folder_; }
  std::filesystem::path image() const { return folder_ / "disk.img"; }

 private:
  static void Check(DWORD error) {
    if (error != ERROR_SUCCESS) throw std::runtime_error("error " + std::to_string(error));
  }

  std::filesystem::path folder_ = std::filesystem::temp_directory_path() / "velkora-bench";
  simulator::SimulatedMachine machine_;
};

}  // namespace bench
