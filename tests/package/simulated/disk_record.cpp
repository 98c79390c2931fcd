#include "disk_record.h"

#include <stdexcept>
#include <string>

#include "simulator/disk.h"
#include "simulator/storage/file_system_probe.h"
#include "simulator/storage/partition_store.h"
#include "simulator/volume.h"

namespace {

// The record is all zeros before.
template <std::size_t kCapacity>
void CopyText(char (&field)[kCapacity], const std::string& text) {
  text.copy(field, kCapacity - 1);
}

DiskType StyleOf(simulator::Disk& disk) {
  simulator::DiskLayout layout;
  if (disk.Layout(layout) != ERROR_SUCCESS) return DiskType::kRaw;
  if (layout.header.PartitionStyle == PARTITION_STYLE_GPT) return DiskType::kGpt;
  return layout.header.PartitionStyle == PARTITION_STYLE_MBR ? DiskType::kMbr : DiskType::kRaw;
}

VolumeInfo RecordOf(simulator::SimulatedMachine& machine, simulator::Disk& disk,
                    const simulator::Volume& volume) {
  const simulator::VolumeExtent& place = volume.extents.front();
  const simulator::FileSystemInfo found = simulator::ProbeFileSystem(disk.device(), place.offset);
  VolumeInfo info{};
  CopyText(info.volume_id, volume.path);
  info.part_number = static_cast<std::uint16_t>(volume.partition_number);
  const std::string letters = machine.LettersOf(volume);
  if (!letters.empty()) CopyText(info.letter, letters.substr(0, 1) + ":");
  info.size = place.length;
  info.offset = place.offset;
  info.cluster_size = found.cluster_size;
  info.filesystem = found.kind == simulator::FileSystem::kFat32 ? VolumeFileSystem::kFat32
                                                                : VolumeFileSystem::kUnknown;
  // The disk that the machine runs from has its Windows on C.
  info.is_system = disk.number() == machine.system_disk() && letters == "C" ? 1 : 0;
  return info;
}

}  // namespace

DiskRecord::DiskRecord(simulator::SimulatedMachine& machine, std::uint32_t number) {
  simulator::Disk* const attached = machine.FindDisk(number);
  if (attached == nullptr) throw std::invalid_argument("no such disk");
  disk.disk_type = StyleOf(*attached);
  disk.is_system = machine.system_disk() == number ? 1 : 0;
  disk.index = number;
  disk.size = attached->device().size();
  CopyText(disk.id, attached->path());
  CopyText(disk.serial_num, attached->identity.serial_number.value_or(""));
  for (const simulator::Volume& volume : machine.volumes()) {
    if (volume.extents.empty() || volume.extents.front().disk_number != number) continue;
    volumes.push_back(RecordOf(machine, *attached, volume));
    disk.volumes[disk.volume_count++] = &volumes.back();
  }
}
