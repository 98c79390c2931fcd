#include "simulator/storage/fat32_clusters.h"

#include <algorithm>
#include <array>
#include <span>

#include "simulator/storage/file_system_probe.h"

namespace simulator {
namespace {

constexpr std::uint32_t kFirstCluster = 2;
constexpr std::uint32_t kMaxClusters = 0x0FFFFFF5;
constexpr std::uint32_t kEndOfChain = 0x0FFFFFFF;
constexpr std::uint32_t kFirstEndMark = 0x0FFFFFF8;
// The upper four bits of an entry are not part of its value and stay as they are.
constexpr std::uint32_t kValueBits = 0x0FFFFFFF;
constexpr std::uint32_t kUnknown = 0xFFFFFFFF;

DWORD ReadAt(BlockDevice& device, std::uint64_t offset, std::span<std::byte> bytes) {
  return device.Read(offset, bytes) ? ERROR_SUCCESS : ERROR_READ_FAULT;
}

DWORD WriteAt(BlockDevice& device, std::uint64_t offset, std::span<const std::byte> bytes) {
  return device.Write(offset, bytes) ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}

}  // namespace

DWORD Fat32Clusters::Open() {
  if (ProbeFileSystem(device_, volume_offset_).kind != FileSystem::kFat32) {
    return kErrorUnrecognizedVolume;
  }
  std::array<std::byte, sizeof(Fat32BootSector)> bytes{};
  const DWORD error = ReadAt(device_, volume_offset_, bytes);
  if (error != ERROR_SUCCESS) return error;
  boot_ = Load<Fat32BootSector>(bytes);
  root_ = boot_.root_cluster;
  cluster_bytes_ = std::uint32_t{boot_.bytes_per_sector} * boot_.sectors_per_cluster;
  const std::uint64_t fat_sectors = boot_.fat_sectors;
  const std::uint64_t metadata = boot_.reserved_sectors + boot_.fat_count * fat_sectors;
  const std::uint64_t clusters = (boot_.total_sectors - metadata) / boot_.sectors_per_cluster;
  const std::uint64_t entries = fat_sectors * boot_.bytes_per_sector / sizeof(Little32);
  if (clusters > kMaxClusters || entries < clusters + kFirstCluster) {
    return kErrorUnrecognizedVolume;
  }
  cluster_count_ = static_cast<std::uint32_t>(clusters);
  return IsCluster(root_) ? ERROR_SUCCESS : kErrorUnrecognizedVolume;
}

DWORD Fat32Clusters::Read(std::uint32_t first, std::string& bytes) {
  std::vector<std::uint32_t> chain;
  const DWORD error = Walk(first, chain);
  if (error != ERROR_SUCCESS) return error;
  std::string read(chain.size() * cluster_bytes_, '\0');
  std::span<std::byte> rest = std::as_writable_bytes(std::span(read));
  for (const std::uint32_t cluster : chain) {
    if (!device_.Read(DataOffset(cluster), rest.first(cluster_bytes_))) return ERROR_READ_FAULT;
    rest = rest.subspan(cluster_bytes_);
  }
  bytes = std::move(read);
  return ERROR_SUCCESS;
}

DWORD Fat32Clusters::Write(std::uint32_t& first, std::string_view bytes) {
  std::vector<std::uint32_t> chain;
  DWORD error = Walk(first, chain);
  if (error != ERROR_SUCCESS) return error;
  const std::size_t needed = (bytes.size() + cluster_bytes_ - 1) / cluster_bytes_;
  if (needed > chain.size()) error = Append(chain, needed - chain.size());
  if (error != ERROR_SUCCESS) return error;
  for (std::size_t i = 0; i < needed; ++i) {
    std::string piece(bytes.substr(i * cluster_bytes_, cluster_bytes_));
    piece.resize(cluster_bytes_, '\0');
    error = WriteAt(device_, DataOffset(chain[i]), std::as_bytes(std::span(piece)));
    if (error != ERROR_SUCCESS) return error;
  }
  first = chain.empty() ? 0 : chain.front();
  return ERROR_SUCCESS;
}

DWORD Fat32Clusters::Free(std::uint32_t first) {
  std::vector<std::uint32_t> chain;
  DWORD error = Walk(first, chain);
  for (const std::uint32_t cluster : chain) {
    if (error == ERROR_SUCCESS) error = WriteEntry(cluster, 0);
  }
  if (error != ERROR_SUCCESS || chain.empty()) return error;
  return NoteFree(static_cast<std::int64_t>(chain.size()), /*last_allocated=*/0);
}

DWORD Fat32Clusters::ReadEntry(std::uint32_t cluster, std::uint32_t& value) {
  std::array<std::byte, sizeof(Little32)> bytes{};
  const DWORD error = ReadAt(device_, TableOffset(0, cluster), bytes);
  value = Load<Little32>(bytes) & kValueBits;
  return error;
}

DWORD Fat32Clusters::WriteEntry(std::uint32_t cluster, std::uint32_t value) {
  std::array<std::byte, sizeof(Little32)> bytes{};
  DWORD error = ReadAt(device_, TableOffset(0, cluster), bytes);
  const std::uint32_t kept = Load<Little32>(bytes) & ~kValueBits;
  Store(Little32(kept | value), bytes);
  for (std::uint32_t table = 0; table < boot_.fat_count && error == ERROR_SUCCESS; ++table) {
    error = WriteAt(device_, TableOffset(table, cluster), bytes);
  }
  return error;
}

DWORD Fat32Clusters::Walk(std::uint32_t first, std::vector<std::uint32_t>& chain) {
  if (first == 0) return ERROR_SUCCESS;
  for (std::uint32_t cluster = first; cluster < kFirstEndMark;) {
    if (!IsCluster(cluster) || chain.size() == cluster_count_) return kErrorFileCorrupt;
    chain.push_back(cluster);
    const DWORD error = ReadEntry(cluster, cluster);
    if (error != ERROR_SUCCESS) return error;
  }
  return ERROR_SUCCESS;
}

DWORD Fat32Clusters::FindFree(std::size_t count, std::vector<std::uint32_t>& clusters) {
  constexpr std::uint32_t kAtOnce = 1024;
  std::array<std::byte, kAtOnce * sizeof(Little32)> bytes{};
  const std::uint32_t end = cluster_count_ + kFirstCluster;
  for (std::uint32_t cluster = kFirstCluster; cluster < end; cluster += kAtOnce) {
    const std::uint32_t looked_at = std::min(kAtOnce, end - cluster);
    const auto piece = std::span(bytes).first(looked_at * sizeof(Little32));
    const DWORD error = ReadAt(device_, TableOffset(0, cluster), piece);
    if (error != ERROR_SUCCESS) return error;
    for (std::uint32_t i = 0; i < looked_at; ++i) {
      if ((Load<Little32>(piece.subspan(i * sizeof(Little32))) & kValueBits) != 0) continue;
      clusters.push_back(cluster + i);
      if (clusters.size() == count) return ERROR_SUCCESS;
    }
  }
  return ERROR_DISK_FULL;
}

DWORD Fat32Clusters::Append(std::vector<std::uint32_t>& chain, std::size_t count) {
  std::vector<std::uint32_t> added;
  DWORD error = FindFree(count, added);
  // From the end, so that the chain is whole at each moment.
  std::uint32_t next = kEndOfChain;
  for (auto cluster = added.rbegin(); cluster != added.rend(); ++cluster) {
    if (error == ERROR_SUCCESS) error = WriteEntry(*cluster, next);
    next = *cluster;
  }
  if (error == ERROR_SUCCESS && !chain.empty()) error = WriteEntry(chain.back(), next);
  if (error != ERROR_SUCCESS) return error;
  chain.insert(chain.end(), added.begin(), added.end());
  return NoteFree(-static_cast<std::int64_t>(count), added.back());
}

// Brings the information sector up to date, where there is one and it knows the count.
DWORD Fat32Clusters::NoteFree(std::int64_t change, std::uint32_t last_allocated) {
  const std::uint64_t offset =
      volume_offset_ + std::uint64_t{boot_.info_sector} * boot_.bytes_per_sector;
  std::array<std::byte, sizeof(Fat32FsInfo)> bytes{};
  const DWORD error = ReadAt(device_, offset, bytes);
  if (error != ERROR_SUCCESS) return error;
  auto info = Load<Fat32FsInfo>(bytes);
  if (info.lead_signature != kFsInfoLeadSignature ||
      info.struct_signature != kFsInfoStructSignature) {
    return ERROR_SUCCESS;
  }
  const std::int64_t free = std::int64_t{info.free_clusters} + change;
  const bool known = info.free_clusters != kUnknown && free >= 0 && free <= cluster_count_;
  info.free_clusters = known ? static_cast<std::uint32_t>(free) : kUnknown;
  if (last_allocated != 0) info.next_free_cluster = last_allocated;
  Store(info, bytes);
  return WriteAt(device_, offset, bytes);
}

bool Fat32Clusters::IsCluster(std::uint32_t cluster) const {
  return cluster >= kFirstCluster && cluster - kFirstCluster < cluster_count_;
}

std::uint64_t Fat32Clusters::TableOffset(std::uint32_t table, std::uint32_t cluster) const {
  const std::uint64_t sector =
      boot_.reserved_sectors + std::uint64_t{table} * std::uint32_t{boot_.fat_sectors};
  return volume_offset_ + sector * boot_.bytes_per_sector + cluster * sizeof(Little32);
}

std::uint64_t Fat32Clusters::DataOffset(std::uint32_t cluster) const {
  return TableOffset(boot_.fat_count, 0) + std::uint64_t{cluster - kFirstCluster} * cluster_bytes_;
}

}  // namespace simulator
