// The clusters of a FAT32 volume: its allocation tables, and chains of clusters as bytes.
#pragma once

#include <cstddef>
#include <cstdint>
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

  // ---- Moving ----------------------------------------------------------------------------------

  // How many clusters are moved at once: 64 KiB, or one cluster.
  std::size_t most_moved_at_once() const;
  // Whether what waits has to be saved before such a piece moves: its target may still be part of a
  // chain on the disk, or the piece itself be what leads to another part that has moved.
  bool MustSaveBefore(const Fat32Chain& chain, std::size_t index, std::size_t count,
                      std::uint32_t target) const;
  // Copies `count` clusters of the chain, from its `index`-th on, to the free ones from `target`
  // on, and notes in memory that they are part of the chain now and the old ones are free. Who
  // keeps the number of the chain's first cluster changes it afterwards, when `index` is 0. The
  // changes reach the disk by SaveNewLinks, what changes outside of the table, and SaveOldLinks, in
  // this order: so that the chain is whole at each moment. Nothing has changed after an error,
  // which is ERROR_INVALID_PARAMETER when a target is not free. Precondition: not MustSaveBefore.
  [[nodiscard]] DWORD MovePiece(Fat32Chain& chain, std::size_t index, std::size_t count,
                                std::uint32_t target);
  // After a failure Open is called, which forgets what was noted.
  [[nodiscard]] DWORD SaveNewLinks();
  [[nodiscard]] DWORD SaveOldLinks();
  // How many writes of tables wait, of neighbours as one.
  std::size_t waiting() const;

 private:
  // Neighbouring clusters.
  struct Range {
    std::uint32_t first = 0;
    std::uint32_t count = 0;
  };
  // Clusters whose entries are changed in memory only.
  struct Waiting {
    std::vector<Range> arrived;     // new parts of chains
    std::vector<Range> redirected;  // in front of them
    std::vector<Range> left;        // free
  };

  DWORD FindFree(std::size_t count, Fat32Chain& clusters);
  DWORD Append(Fat32Chain& chain, std::size_t count);
  DWORD NoteFree(std::int64_t change, std::uint32_t last_allocated);
  DWORD WriteEntry(std::uint32_t cluster, std::uint32_t value);
  DWORD SaveAll(const std::vector<Range>& ranges);
  DWORD ExpectFree(std::uint32_t first, std::size_t count);
  DWORD CopyData(const Fat32Chain& chain, std::size_t index, std::size_t count,
                 const Fat32Chain& targets);

  // Calls `transfer` with the place on the disk, the bytes done and the bytes to do, run by run.
  template <typename Transfer>
  DWORD EachRun(const Fat32Chain& chain, std::uint64_t offset, std::uint64_t length,
                const Transfer& transfer) const;
  std::uint64_t DataOffset(std::uint32_t cluster) const;

  BlockDevice& device_;
  std::uint64_t volume_offset_;
  Fat32Table table_;
  std::vector<std::byte> moved_;  // the data of a piece that is moved; kept for the next one
  Waiting waiting_;
  Fat32BootSector boot_{};
  std::uint64_t data_offset_ = 0;  // of the first cluster, from the start of the disk
  std::uint32_t root_ = 0;
  std::uint32_t cluster_count_ = 0;
  std::uint32_t cluster_bytes_ = 0;
};

}  // namespace simulator
