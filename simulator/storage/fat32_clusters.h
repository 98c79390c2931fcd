// The clusters of a FAT32 volume: its allocation tables, and chains of clusters as bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/on_disk.h"

namespace simulator {

inline constexpr DWORD kErrorUnrecognizedVolume = 1005;
inline constexpr DWORD kErrorFileCorrupt = 1392;

// Both tables are kept alike, and the count of free clusters in the information sector stays right.
// Functions return a Windows error: kErrorFileCorrupt for a chain that leaves the volume or runs in
// a circle, ERROR_DISK_FULL, or a failed transfer.
// Public source: Microsoft's FAT32 File System Specification.
class Fat32Clusters {
 public:
  Fat32Clusters(BlockDevice& device, std::uint64_t volume_offset)
      : device_(device), volume_offset_(volume_offset) {}

  // To be called first. kErrorUnrecognizedVolume when there is no sound FAT32.
  [[nodiscard]] DWORD Open();

  std::uint32_t root() const { return root_; }

  // All bytes of the chain, which are whole clusters. Cluster 0 stands for an empty chain.
  [[nodiscard]] DWORD Read(std::uint32_t first, std::string& bytes);
  // Puts the bytes into the chain, which grows where they need it; what they leave of a cluster
  // becomes zero. Cluster 0 makes a new chain. Nothing is written when the room is not there.
  [[nodiscard]] DWORD Write(std::uint32_t& first, std::string_view bytes);
  [[nodiscard]] DWORD Free(std::uint32_t first);

 private:
  DWORD ReadEntry(std::uint32_t cluster, std::uint32_t& value);
  DWORD WriteEntry(std::uint32_t cluster, std::uint32_t value);
  DWORD Walk(std::uint32_t first, std::vector<std::uint32_t>& chain);
  DWORD FindFree(std::size_t count, std::vector<std::uint32_t>& clusters);
  DWORD Append(std::vector<std::uint32_t>& chain, std::size_t count);
  DWORD NoteFree(std::int64_t change, std::uint32_t last_allocated);

  bool IsCluster(std::uint32_t cluster) const;
  std::uint64_t TableOffset(std::uint32_t table, std::uint32_t cluster) const;
  std::uint64_t DataOffset(std::uint32_t cluster) const;

  BlockDevice& device_;
  std::uint64_t volume_offset_;
  Fat32BootSector boot_{};
  std::uint32_t root_ = 0;
  std::uint32_t cluster_count_ = 0;
  std::uint32_t cluster_bytes_ = 0;
};

}  // namespace simulator
