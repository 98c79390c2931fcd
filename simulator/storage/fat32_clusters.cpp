#include "simulator/storage/fat32_clusters.h"

#include <algorithm>
#include <array>
#include <span>

#include "simulator/storage/file_system_probe.h"

namespace simulator {
namespace {

constexpr std::uint32_t kMaxClusters = 0x0FFFFFF5;
constexpr std::uint32_t kEndOfChain = 0x0FFFFFFF;
constexpr std::uint32_t kFirstEndMark = 0x0FFFFFF8;
constexpr std::uint32_t kUnknown = 0xFFFFFFFF;

DWORD ReadAt(BlockDevice& device, std::uint64_t offset, std::span<std::byte> bytes) {
  return device.Read(offset, bytes) ? ERROR_SUCCESS : ERROR_READ_FAULT;
}

DWORD WriteAt(BlockDevice& device, std::uint64_t offset, std::span<const std::byte> bytes) {
  return device.Write(offset, bytes) ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}

// How many clusters of the chain from `index` on lie one behind the other; at most `most`.
std::size_t RunLength(const Fat32Chain& chain, std::size_t index, std::size_t most) {
  const std::size_t end = index + std::min(most, chain.size() - index);
  std::size_t next = index + 1;
  while (next < end && chain[next] == chain[next - 1] + 1) ++next;
  return next - index;
}

}  // namespace

DWORD Fat32Clusters::Open() {
  waiting_ = {};
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
  if (clusters > kMaxClusters || entries < clusters + kFirstFatCluster) {
    return kErrorUnrecognizedVolume;
  }
  cluster_count_ = static_cast<std::uint32_t>(clusters);
  const std::uint64_t table_offset =
      volume_offset_ + std::uint64_t{boot_.reserved_sectors} * boot_.bytes_per_sector;
  data_offset_ = volume_offset_ + metadata * boot_.bytes_per_sector;
  table_.Reset(
      {table_offset, fat_sectors * boot_.bytes_per_sector, boot_.fat_count, cluster_count_});
  return IsCluster(root_) ? ERROR_SUCCESS : kErrorUnrecognizedVolume;
}

DWORD Fat32Clusters::Read(std::uint32_t first, std::string& bytes) {
  Fat32Chain chain;
  DWORD error = Walk(first, chain);
  if (error != ERROR_SUCCESS) return error;
  std::string read(chain.size() * cluster_bytes_, '\0');
  error = ReadPart(chain, 0, std::as_writable_bytes(std::span(read)));
  if (error == ERROR_SUCCESS) bytes = std::move(read);
  return error;
}

DWORD Fat32Clusters::Write(std::uint32_t& first, std::string_view bytes) {
  Fat32Chain chain;
  DWORD error = Walk(first, chain);
  if (error != ERROR_SUCCESS) return error;
  const std::size_t needed = (bytes.size() + cluster_bytes_ - 1) / cluster_bytes_;
  if (needed > chain.size()) error = Append(chain, needed - chain.size());
  if (error != ERROR_SUCCESS) return error;
  std::string padded(bytes);
  padded.resize(needed * cluster_bytes_, '\0');
  error = WritePart(chain, 0, std::as_bytes(std::span(padded)));
  if (error == ERROR_SUCCESS) first = chain.empty() ? 0 : chain.front();
  return error;
}

DWORD Fat32Clusters::Free(std::uint32_t first) {
  Fat32Chain chain;
  DWORD error = Walk(first, chain);
  for (const std::uint32_t cluster : chain) {
    if (error == ERROR_SUCCESS) error = WriteEntry(cluster, 0);
  }
  if (error != ERROR_SUCCESS || chain.empty()) return error;
  return NoteFree(static_cast<std::int64_t>(chain.size()), /*last_allocated=*/0);
}

template <typename Transfer>
DWORD Fat32Clusters::EachRun(const Fat32Chain& chain, std::uint64_t offset, std::uint64_t length,
                             const Transfer& transfer) const {
  for (std::uint64_t done = 0; done < length;) {
    const std::size_t index = (offset + done) / cluster_bytes_;
    const std::uint64_t within = (offset + done) % cluster_bytes_;
    const std::uint64_t touched = within + (length - done) + cluster_bytes_ - 1;
    const std::size_t run = RunLength(chain, index, touched / cluster_bytes_);
    const std::uint64_t bytes = std::min(run * cluster_bytes_ - within, length - done);
    const DWORD error = transfer(DataOffset(chain[index]) + within, done, bytes);
    if (error != ERROR_SUCCESS) return error;
    done += bytes;
  }
  return ERROR_SUCCESS;
}

DWORD Fat32Clusters::ReadPart(const Fat32Chain& chain, std::uint64_t offset,
                              std::span<std::byte> bytes) {
  return EachRun(chain, offset, bytes.size(),
                 [&](std::uint64_t place, std::uint64_t done, std::uint64_t length) {
                   return ReadAt(device_, place, bytes.subspan(done, length));
                 });
}

DWORD Fat32Clusters::WritePart(const Fat32Chain& chain, std::uint64_t offset,
                               std::span<const std::byte> bytes) {
  return EachRun(chain, offset, bytes.size(),
                 [&](std::uint64_t place, std::uint64_t done, std::uint64_t length) {
                   return WriteAt(device_, place, bytes.subspan(done, length));
                 });
}

DWORD Fat32Clusters::Walk(std::uint32_t first, Fat32Chain& chain) {
  if (first == 0) return ERROR_SUCCESS;
  for (std::uint32_t cluster = first; cluster < kFirstEndMark;) {
    if (!IsCluster(cluster) || chain.size() == cluster_count_) return ERROR_FILE_CORRUPT;
    chain.push_back(cluster);
    const DWORD error = table_.Read(cluster, cluster);
    if (error != ERROR_SUCCESS) return error;
  }
  return ERROR_SUCCESS;
}

DWORD Fat32Clusters::FindFree(std::size_t count, Fat32Chain& clusters) {
  const std::uint32_t end = cluster_count_ + kFirstFatCluster;
  for (std::uint32_t cluster = kFirstFatCluster; cluster < end; ++cluster) {
    std::uint32_t value = 0;
    const DWORD error = table_.Read(cluster, value);
    if (error != ERROR_SUCCESS) return error;
    if (value != 0) continue;
    clusters.push_back(cluster);
    if (clusters.size() == count) return ERROR_SUCCESS;
  }
  return ERROR_DISK_FULL;
}

DWORD Fat32Clusters::Append(Fat32Chain& chain, std::size_t count) {
  Fat32Chain added;
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

DWORD Fat32Clusters::WriteEntry(std::uint32_t cluster, std::uint32_t value) {
  table_.Set(cluster, {&value, 1});
  return table_.Save(cluster, 1);
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
  return cluster >= kFirstFatCluster && cluster - kFirstFatCluster < cluster_count_;
}

std::uint64_t Fat32Clusters::DataOffset(std::uint32_t cluster) const {
  return data_offset_ + std::uint64_t{cluster - kFirstFatCluster} * cluster_bytes_;
}

}  // namespace simulator
