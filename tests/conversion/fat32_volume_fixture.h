// The ground of the tests that shrink a whole FAT32 volume, made and judged by other tools.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "conversion/converted_disk_fixture.h"
#include "simulator/call_log.h"
#include "support/tools/fat32_disk.h"

namespace conversion {

// Hashes of files by their paths; the path of a folder ends in "/", its hash is 0.
using Tree = std::map<std::string, std::size_t>;
Tree ReadTree(const std::filesystem::path& folder);

// What of `expected` mtools do not find, or find different, in the volume in `range`. More than
// that is a failure.
std::vector<std::string> LostFiles(const std::filesystem::path& image, const SectorRange& range,
                                   const Tree& expected, const std::filesystem::path& scratch);

// Offset and length in bytes.
using Transfer = std::pair<std::uint64_t, std::uint64_t>;

// A disk with one volume, which is filled file by file at places of its own choice, and shrunk.
// Paths begin with neither slash nor "::". A copy of the tree is kept in the host's folder.
class Fat32VolumeTest : public ConversionTest {
 protected:
  void MakeVolume(std::uint64_t mib, std::uint32_t cluster_bytes);

  // The next file or folder is given the first free cluster from this one on.
  void GoOnAt(std::uint64_t cluster);
  void AddFolder(const std::string& path);
  void AddFile(const std::string& path, std::size_t bytes);
  void Remove(const std::string& path);
  // Copies what is in a folder of the host into the root. The folder is empty then.
  void AddTree(const std::filesystem::path& folder);

  // First cluster and number of clusters of each run.
  testing_support::ClusterRuns RunsOf(const std::string& path) const;
  std::uint64_t FirstClusterOf(const std::string& path) const { return RunsOf(path)[0].first; }
  // How many clusters of the file lie behind the one that is kept last.
  std::uint64_t ClustersBehind(const std::string& path, std::uint64_t size_mib) const;
  // The last cluster that a shrink keeps.
  std::uint64_t Boundary(std::uint64_t size_mib) const;
  // Where a cluster lies, from the start of the volume.
  std::uint64_t PositionOf(std::uint64_t cluster) const;
  std::uint32_t cluster_bytes() const { return cluster_bytes_; }

  // Shrinks the volume through the converter's own operation, on a machine of its own.
  bool Shrink(std::uint64_t size_mib);
  // Whether that machine's driver keeps writes back.
  bool writes_late_ = false;

  // ---- What the shrink did ---------------------------------------------------------------------

  const std::vector<std::string>& errors() const { return errors_; }
  // The library's own writes to the volume, in order.
  std::vector<Transfer> RawWrites() const;
  // What they always end with: both tables and the boot sector.
  std::vector<Transfer> LastWrites() const;
  // The clusters that the file system was asked to move.
  std::uint64_t MovedClusters() const;

  // ---- What other tools see --------------------------------------------------------------------

  // The tree as it was put in.
  Tree Expected() const { return ReadTree(File("tree")); }
  // What of it is lost in the volume's new sectors.
  std::vector<std::string> Lost();
  // All that `fsck.fat -n` says, but for its version: `findings`, and what comes of the boot
  // sector's second copy and the free count, which no shrink touches. `entries` are the files and
  // folders that it counts, `reclaimed` the clusters that no file has; dates are left out.
  void ExpectFsck(const std::string& findings, std::uint64_t entries, std::uint64_t reclaimed = 0);
  // No findings, all files as they were, and the partition that much shorter.
  void ExpectSound();
  // The partition as sfdisk reads it.
  std::uint64_t PartitionSectors() const;

 private:
  std::uint64_t Field(std::uint64_t offset, std::size_t width) const;
  std::uint64_t TotalClusters() const;
  std::uint64_t UsedClusters() const;
  std::uint64_t FatBytes() const { return Field(36, 4) * kSectorBytes; }
  std::uint64_t FatPosition() const { return Field(14, 2) * kSectorBytes; }
  std::string BootSectorDifferences() const;
  SectorRange NewRange() const;

  std::unique_ptr<testing_support::Fat32Disk> disk_;
  std::uint32_t cluster_bytes_ = 0;
  std::uint64_t sectors_ = 0;  // of the partition at first
  std::uint64_t total_clusters_ = 0;
  std::uint64_t taken_off_ = 0;  // sectors
  std::uint64_t free_count_ = 0;
  std::vector<std::string> errors_;
  std::vector<simulator::Call> calls_;
};

}  // namespace conversion
