// A FAT32 volume put together byte by byte, of which the machine knows nothing: raw writes reach it
// as they reach a dismounted one.
#pragma once

#include <initializer_list>

#include "disk/device_handle.h"
#include "fat32_values.h"
#include "shrink/fat32_volume.h"
#include "support/machine_fixture.h"

namespace testing_support {

inline constexpr std::uint32_t kLast = 0x0FFFFFFF;
inline constexpr int kFolder = 0x10;
inline constexpr int kArchive = 0x20;
inline constexpr int kLongName = 0x0F;

struct RawEntry {
  char name = 'A';  // eight times; 0 for the end of the directory
  int attributes = kFolder;
  std::uint32_t cluster = 0;
};

// 4 reserved sectors, two FATs of 600 (76,800 entries), clusters of one sector.
class Fat32RawVolume : public MachineTest {
 protected:
  using Bytes = std::vector<std::byte>;

  static constexpr std::uint64_t kFirstSector = 2048;
  static constexpr std::uint64_t kSectors = 80'000;
  static constexpr std::uint64_t kReserved = 4;
  static constexpr std::uint64_t kFatSectors = 600;

  Fat32RawVolume();
  ~Fat32RawVolume() override;

  // One field of the boot sector.
  void SetBootField(std::size_t offset, std::uint64_t value, std::size_t width);
  velkora::Fat32Geometry Geometry();

  // A cluster's first sector on the disk.
  std::uint64_t SectorOf(std::uint64_t cluster) const;
  // Writes entries to the start of a cluster, as many as are given.
  void PutEntries(std::uint64_t cluster, const std::vector<RawEntry>& entries);
  // A cluster that begins with "." and "..", with `entries` behind them.
  void PutDirectory(std::uint32_t cluster, std::uint32_t parent,
                    const std::vector<RawEntry>& entries = {});
  // The first cluster in the `index`-th entry of a cluster.
  std::uint32_t EntryCluster(std::uint64_t cluster, std::size_t index);
  Bytes Cluster(std::uint64_t cluster);
  void FillCluster(std::uint64_t cluster, std::uint8_t value);

  // Entry of FAT 0 or 1 on the disk.
  std::uint32_t FatEntry(std::uint64_t fat, std::uint64_t cluster);
  // Sets it in FAT 0 alone.
  void SetFat(std::uint64_t cluster, std::uint32_t value);
  // Chains the clusters in FAT 0, the last one to nothing.
  void Chain(std::initializer_list<std::uint32_t> clusters);
  Bytes Fat(std::uint64_t fat);

  simulator::Disk& disk_;
  HANDLE volume_ = INVALID_HANDLE_VALUE;
  std::uint64_t sectors_per_cluster_ = 1;
};

}  // namespace testing_support
