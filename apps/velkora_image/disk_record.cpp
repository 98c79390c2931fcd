#include "apps/velkora_image/disk_record.h"

#include <algorithm>
#include <stdexcept>
#include <string>

#include "simulator/disk.h"
#include "simulator/storage/file_system_probe.h"
#include "simulator/volume.h"

namespace velkora_image {
namespace {

using simulator::FileSystem;

VolumeFileSystem ToVolumeFileSystem(FileSystem kind) {
  switch (kind) {
    case FileSystem::kNtfs:
      return VolumeFileSystem::kNtfs;
    case FileSystem::kFat12:
      return VolumeFileSystem::kFat12;
    case FileSystem::kFat16:
      return VolumeFileSystem::kFat16;
    case FileSystem::kFat32:
      return VolumeFileSystem::kFat32;
    case FileSystem::kExfat:
      return VolumeFileSystem::kExfat;
    case FileSystem::kRefs:
      return VolumeFileSystem::kRefs;
    case FileSystem::kExt2:
      return VolumeFileSystem::kExt2;
    case FileSystem::kExt3:
      return VolumeFileSystem::kExt3;
    case FileSystem::kExt4:
      return VolumeFileSystem::kExt4;
    case FileSystem::kNone:
      break;
  }
  return VolumeFileSystem::kUnknown;
}

DiskType ToDiskType(DWORD partition_style) {
  switch (partition_style) {
    case PARTITION_STYLE_GPT:
      return DiskType::kGpt;
    case PARTITION_STYLE_MBR:
      return DiskType::kMbr;
    default:
      return DiskType::kRaw;
  }
}

template <std::size_t kCapacity>
void CopyText(char (&field)[kCapacity], const std::string& text) {
  text.copy(field, kCapacity - 1);  // the record starts zeroed
}

VolumeInfo MakeVolumeInfo(simulator::SimulatedMachine& machine, simulator::Disk& disk,
                          const simulator::Volume& volume) {
  const simulator::VolumeExtent& extent = volume.extents.front();
  const auto probe = simulator::ProbeFileSystem(disk.device(), extent.offset);
  VolumeInfo info{};
  CopyText(info.volume_id, volume.path);
  info.part_number = static_cast<std::uint16_t>(volume.partition_number);
  const std::string letters = machine.LettersOf(volume);
  if (!letters.empty()) CopyText(info.letter, letters.substr(0, 1) + ":");
  info.size = extent.length;
  info.offset = extent.offset;
  info.cluster_size = probe.cluster_size;
  info.filesystem = ToVolumeFileSystem(probe.kind);
  return info;
}

}  // namespace

DiskRecord::DiskRecord(simulator::SimulatedMachine& machine, std::uint32_t disk_number) {
  simulator::Disk* disk = machine.FindDisk(disk_number);
  if (disk == nullptr) throw std::invalid_argument("no disk " + std::to_string(disk_number));
  simulator::DiskLayout layout;
  const bool readable = disk->Layout(layout) == ERROR_SUCCESS;
  disk_.disk_type = readable ? ToDiskType(layout.header.PartitionStyle) : DiskType::kRaw;
  disk_.index = disk_number;
  disk_.size = disk->device().size();
  CopyText(disk_.id, disk->path());
  CopyText(disk_.serial_num, "SIMULATED-" + std::to_string(disk_number));

  for (const simulator::Volume& volume : machine.volumes()) {
    if (volume.extents.empty() || volume.extents.front().disk_number != disk_number) continue;
    volumes_.push_back(MakeVolumeInfo(machine, *disk, volume));
  }
  if (volumes_.size() > std::size(disk_.volumes)) {
    throw std::invalid_argument("more than 255 volumes on disk " + std::to_string(disk_number));
  }
  std::sort(volumes_.begin(), volumes_.end(),
            [](const VolumeInfo& a, const VolumeInfo& b) { return a.offset < b.offset; });
  disk_.volume_count = static_cast<std::int32_t>(volumes_.size());
  std::size_t index = 0;
  for (VolumeInfo& volume : volumes_) disk_.volumes[index++] = &volume;
}

void DiskRecord::MarkSystem(char letter) {
  disk_.is_system = 1;
  for (VolumeInfo& volume : volumes_) volume.is_system = volume.letter[0] == letter ? 1 : 0;
}

}  // namespace velkora_image
