// The clusters of a FAT32 volume: its allocation tables, and chains of clusters as bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/fat32_table.h"
#include "simulator/storage/on_disk.h"

namespace simulator {

inline constexpr DWORD kErrorUnrecognizedVolume = 1005;
inline constexpr std::uint32_t kFirstFatCluster = 2;

// A chain of clusters, each by its number in the table.
using Fat32Chain = std::vector<std::uint32_t>;

// Both tables are kept alike, and the count of free clusters in the information sector stays right.
// Functions return a Windows error: ERROR_FILE_CORRUPT for a chain that leaves the volume or runs
// in a circle, ERROR_DISK_FULL, or a failed transfer. Public source: Microsoft's FAT32 File System
// Specification.
class Fat32Clusters {
 public:
  Fat32Clusters(BlockDevice& device, std::uint64_t volume_offset)
      : device_(device), volume_offset_(volume_offset), table_(device) {}

  // To be called first, and again when the volume was changed by others.
  // kErrorUnrecognizedVolume when there is no sound FAT32.
  [[nodiscard]] DWORD Open();

  std::uint32_t root() const { return root_; }
  std::uint32_t cluster_count() const { return cluster_count_; }
  std::uint32_t cluster_bytes() const { return cluster_bytes_; }
  bool IsCluster(std::uint32_t cluster) const;

  // Cluster 0 stands for an empty chain.
  [[nodiscard]] DWORD Walk(std::uint32_t first, Fat32Chain& chain);
  // All bytes of the chain, which are whole clusters.
  [[nodiscard]] DWORD Read(std::uint32_t first, std::string& bytes);
  // Puts the bytes into the chain, which grows where they need it; what they leave of a cluster
  // becomes zero. Cluster 0 makes a new chain. Nothing is written when the room is not there.
  [[nodiscard]] DWORD Write(std::uint32_t& first, std::string_view bytes);
  [[nodiscard]] DWORD Free(std::uint32_t first);

  // A part of the chain, `offset` bytes from its beginning. Precondition: it lies within.
  [[nodiscard]] DWORD ReadPart(const Fat32Chain& chain, std::uint64_t offset,
                               std::span<std::byte> bytes);
  [[nodiscard]] DWORD WritePart(const Fat32Chain& chain, std::uint64_t offset,
                                std::span<const std::byte> bytes);

  // See Fat32Table.
  [[nodiscard]] DWORD Usage(std::span<const std::uint8_t>& bits) { return table_.Usage(bits); }
  // Moves up to `count` clusters of the chain, from its `index`-th on, to the free ones from
  // `target` on, at most 64 KiB at once: data, links, and at last the old clusters become free.
  // `head` is told where the chain begins when its first cluster moves. ERROR_INVALID_PARAMETER
  // when a target is not free; what was moved before stays moved.
  [[nodiscard]] DWORD Move(Fat32Chain chain, std::size_t index, std::size_t count,
                           std::uint32_t target, const std::function<DWORD(std::uint32_t)>& head);

 private:
  DWORD FindFree(std::size_t count, Fat32Chain& clusters);
  DWORD Append(Fat32Chain& chain, std::size_t count);
  DWORD NoteFree(std::int64_t change, std::uint32_t last_allocated);
  DWORD FreePiece(const Fat32Chain& chain, std::size_t index, std::size_t count);
  DWORD ExpectFree(std::uint32_t first, std::size_t count);
  DWORD CopyPiece(const Fat32Chain& chain, std::size_t index, std::size_t count,
                  std::uint32_t target);

  // Calls `transfer` with the place on the disk, the bytes done and the bytes to do, run by run.
  template <typename Transfer>
  DWORD EachRun(const Fat32Chain& chain, std::uint64_t offset, std::uint64_t length,
                const Transfer& transfer) const;
  std::uint64_t DataOffset(std::uint32_t cluster) const;

  BlockDevice& device_;
  std::uint64_t volume_offset_;
  Fat32Table table_;
  std::vector<std::byte> moved_;  // the data of a piece that is moved; kept for the next one
  Fat32BootSector boot_{};
  std::uint64_t data_offset_ = 0;  // of the first cluster, from the start of the disk
  std::uint32_t root_ = 0;
  std::uint32_t cluster_count_ = 0;
  std::uint32_t cluster_bytes_ = 0;
};

}  // namespace simulator
