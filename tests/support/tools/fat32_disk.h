// A disk with a FAT32 volume on it, made and looked at by the tools of the host: sfdisk, mkfs.fat,
// mtools, fsck.fat. Each tool that fails throws std::runtime_error. POSIX only.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

struct Fat32DiskPlan {
  std::uint64_t disk_size = std::uint64_t{64} << 20;
  std::uint64_t offset = std::uint64_t{1} << 20;   // of the volume's partition
  std::uint64_t length = std::uint64_t{48} << 20;  // FAT32 needs 65525 clusters
  std::uint32_t cluster_bytes = 512;
  bool gpt = true;  // MBR otherwise
};

// First cluster, as the table counts them, and number of clusters of each run of a file.
using ClusterRuns = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

class Fat32Disk {
 public:
  // Makes the image: sparse, with one partition, which holds an empty volume.
  Fat32Disk(std::filesystem::path image, const Fat32DiskPlan& plan);

  const std::filesystem::path& image() const { return image_; }
  std::uint64_t offset() const { return plan_.offset; }

  // Copies what is in a folder of the host, with the folders in it, into the root of the volume.
  void CopyIn(const std::filesystem::path& folder) const;
  // Copies the whole volume into a new folder of the host.
  void CopyOut(const std::filesystem::path& folder) const;
  // Leaves `count` holes of `bytes` each, between files "fill0", "fill2"... of the same size. What
  // is copied in next fills the holes.
  void MakeHoles(std::size_t count, std::size_t bytes) const;

  // Runs a tool of mtools on the volume: {"mdel", "::/file"}.
  std::string Mtools(std::vector<std::string> words) const;
  // Where files lie, from one run of mshowfat; paths begin with "::/".
  std::vector<ClusterRuns> RunsOf(const std::vector<std::string>& paths) const;
  // What `fsck.fat -n` says of the volume. It throws where anything is to be mended.
  std::string Check() const;

 private:
  std::string Inside() const;
  void ForgetNextFree() const;

  std::filesystem::path image_;
  Fat32DiskPlan plan_;
};

}  // namespace testing_support
