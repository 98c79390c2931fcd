#include "simulator/storage/fat32_format.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

#include "simulator/storage/on_disk.h"

namespace simulator {
namespace {

constexpr std::uint16_t kReservedSectors = 32;
constexpr std::uint16_t kInfoSector = 1;
constexpr std::uint16_t kBackupSector = 6;
constexpr std::uint8_t kFatCount = 2;
constexpr std::uint8_t kMediaFixed = 0xF8;
constexpr std::uint32_t kFirstCluster = 2;
constexpr std::uint32_t kMinClusters = 65525;
constexpr std::uint32_t kMaxClusters = 0x0FFFFFF5;  // numbers from 0FFFFFF7 on have other meanings
constexpr std::uint32_t kEndOfChain = 0x0FFFFFFF;

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;
constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

struct VolumePlan {
  std::uint32_t sector_size;
  std::uint32_t total_sectors;
  std::uint8_t sectors_per_cluster;
  std::uint32_t fat_sectors;  // of one FAT
  std::uint32_t clusters;
};

// Bytes in a cluster of a volume of `length` bytes.
std::uint32_t CustomaryClusterSize(std::uint64_t length) {
  if (length <= 260 * kMiB) return 512;
  if (length <= 8 * kGiB) return 4096;
  if (length <= 16 * kGiB) return 8192;
  if (length <= 32 * kGiB) return 16384;
  return 32768;
}

bool MakePlan(std::uint64_t length, std::uint32_t sector_size, VolumePlan& plan) {
  const std::uint64_t total = length / sector_size;
  if (total <= kReservedSectors || total > std::numeric_limits<std::uint32_t>::max()) return false;
  const std::uint64_t per_cluster =
      std::max<std::uint64_t>(CustomaryClusterSize(length) / sector_size, 1);
  // A FAT sector (times two) describes this many sectors, its own included; the first two entries
  // of a FAT describe none.
  const std::uint64_t described = per_cluster * (sector_size / 4) + kFatCount;
  const std::uint64_t to_describe =
      total - kReservedSectors + std::uint64_t{kFirstCluster} * per_cluster;
  const std::uint64_t fat_sectors = (to_describe + described - 1) / described;
  const std::uint64_t metadata = kReservedSectors + kFatCount * fat_sectors;
  if (total <= metadata) return false;
  const std::uint64_t clusters = (total - metadata) / per_cluster;
  if (clusters < kMinClusters || clusters > kMaxClusters) return false;
  plan = {sector_size, static_cast<std::uint32_t>(total), static_cast<std::uint8_t>(per_cluster),
          static_cast<std::uint32_t>(fat_sectors), static_cast<std::uint32_t>(clusters)};
  return true;
}

Fat32BootSector MakeBootSector(const VolumePlan& plan, const Fat32Geometry& geometry) {
  Fat32BootSector boot{};
  boot.jump = {0xEB, 0x58, 0x90};
  boot.oem_name = {'M', 'S', 'D', 'O', 'S', '5', '.', '0'};
  boot.bytes_per_sector = static_cast<std::uint16_t>(plan.sector_size);
  boot.sectors_per_cluster = plan.sectors_per_cluster;
  boot.reserved_sectors = kReservedSectors;
  boot.fat_count = kFatCount;
  boot.media = kMediaFixed;
  boot.sectors_per_track = 63;
  boot.heads = 255;
  boot.hidden_sectors = geometry.hidden_sectors;
  boot.total_sectors = plan.total_sectors;
  boot.fat_sectors = plan.fat_sectors;
  boot.root_cluster = kFirstCluster;
  boot.info_sector = kInfoSector;
  boot.backup_sector = kBackupSector;
  boot.drive_number = 0x80;
  boot.extended_signature = 0x29;
  boot.serial_number = geometry.serial_number;
  boot.label = {'N', 'O', ' ', 'N', 'A', 'M', 'E', ' ', ' ', ' ', ' '};
  boot.type_name = {'F', 'A', 'T', '3', '2', ' ', ' ', ' '};
  boot.boot_signature = kBootSignature;
  return boot;
}

Fat32FsInfo MakeFsInfo(const VolumePlan& plan) {
  Fat32FsInfo info{};
  info.lead_signature = kFsInfoLeadSignature;
  info.struct_signature = kFsInfoStructSignature;
  info.free_clusters = plan.clusters - 1;  // the root directory has one
  info.next_free_cluster = kFirstCluster + 1;
  info.trail_signature = kFsInfoTrailSignature;
  return info;
}

// Writes the beginning of a sector that is zero otherwise.
template <typename T>
bool WriteAtSector(BlockDevice& device, std::uint64_t volume_offset, std::uint64_t sector,
                   const T& value) {
  std::vector<std::byte> bytes(sizeof(T));
  Store(value, bytes);
  return device.Write(volume_offset + sector * device.sector_size(), bytes);
}

}  // namespace

DWORD FormatFat32(BlockDevice& device, const Fat32Geometry& geometry) {
  VolumePlan plan{};
  if (!MakePlan(geometry.length, device.sector_size(), plan)) return ERROR_INVALID_PARAMETER;
  if (geometry.offset > device.size() || geometry.length > device.size() - geometry.offset) {
    return ERROR_SECTOR_NOT_FOUND;
  }
  const Fat32BootSector boot = MakeBootSector(plan, geometry);
  const Fat32FsInfo info = MakeFsInfo(plan);
  // The media byte, the end mark of the second reserved entry, and the root directory's chain.
  const std::array<Little32, 3> fat_head = {0x0FFFFF00u | kMediaFixed, kEndOfChain, kEndOfChain};
  const std::uint64_t metadata = kReservedSectors + std::uint64_t{kFatCount} * plan.fat_sectors;

  bool written =
      device.Zero(geometry.offset, (metadata + plan.sectors_per_cluster) * device.sector_size());
  for (const std::uint64_t copy : {std::uint64_t{0}, std::uint64_t{kBackupSector}}) {
    written = written && WriteAtSector(device, geometry.offset, copy, boot) &&
              WriteAtSector(device, geometry.offset, copy + kInfoSector, info);
  }
  for (std::uint64_t fat = 0; fat < kFatCount; ++fat) {
    const std::uint64_t sector = kReservedSectors + fat * plan.fat_sectors;
    written = written && WriteAtSector(device, geometry.offset, sector, fat_head);
  }
  return written ? ERROR_SUCCESS : ERROR_WRITE_FAULT;
}

}  // namespace simulator
