// Disk images that the tests make themselves: a GPT with FAT32 volumes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "platform/win32_types.h"

namespace simulator {
class Disk;
}  // namespace simulator

inline constexpr std::uint64_t kMib = std::uint64_t{1} << 20;
// Large enough to have its whole table back after a rollback (128 MiB).
inline constexpr std::uint64_t kDiskSize = 256 * kMib;

struct TestPartition {
  GUID type;
  std::uint64_t offset;  // bytes
  std::uint64_t length;  // bytes
};

// Two volumes for data.
std::vector<TestPartition> DataPartitions();
// An EFI system partition, and the volume for Windows.
std::vector<TestPartition> SystemPartitions();

void MakeDisk(const std::filesystem::path& image, const std::vector<TestPartition>& partitions);

// The first `length` bytes: of the image file, and of the disk as the machine has it.
using Bytes = std::vector<std::uint8_t>;
inline constexpr std::size_t kTableBytes = 34 * 512;
Bytes ReadImage(const std::filesystem::path& image, std::size_t length = kTableBytes);
Bytes ReadDisk(simulator::Disk& disk, std::size_t length = kTableBytes);

// Whether these first bytes of a disk hold an MBR, or a GPT, with a row for each of the partitions,
// in order, and no more.
bool HoldsMbr(const Bytes& bytes, const std::vector<TestPartition>& partitions);
bool HoldsGpt(const Bytes& bytes, const std::vector<TestPartition>& partitions);
