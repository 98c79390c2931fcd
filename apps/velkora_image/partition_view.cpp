#include "apps/velkora_image/partition_view.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "apps/velkora_image/input_error.h"
#include "simulator/disk.h"
#include "simulator/storage/file_system.h"
#include "simulator/storage/file_system_probe.h"
#include "simulator/storage/partition_store.h"
#include "simulator/text.h"
#include "simulator/volume.h"

namespace velkora_image {
namespace {

using KindName = std::pair<std::string_view, std::string_view>;

constexpr KindName kGptKinds[] = {
    {"C12A7328-F81F-11D2-BA4B-00A0C93EC93B", "EFI system"},
    {"E3C9E316-0B5C-4DB8-817D-F92DF00215AE", "Microsoft reserved"},
    {"EBD0A0A2-B9E5-4433-87C0-68B6B72699C7", "basic data"},
    {"DE94BBA4-06D1-4D40-A16A-BFD50179D6AC", "Windows recovery"},
    {"0FC63DAF-8483-4772-8E79-3D69D8477DE4", "Linux"},
    {"0657FD6D-A4AB-43C4-84E5-0933C84B4F4F", "Linux swap"},
};
constexpr KindName kMbrKinds[] = {
    {"1", "01 FAT12"},       {"4", "04 FAT16"},
    {"6", "06 FAT16"},       {"7", "07 NTFS/exFAT"},
    {"b", "0B FAT32"},       {"c", "0C FAT32"},
    {"e", "0E FAT16"},       {"27", "27 Windows recovery"},
    {"82", "82 Linux swap"}, {"83", "83 Linux"},
    {"ef", "EF EFI system"},
};

template <std::size_t kCount>
std::string KindOf(const KindName (&kinds)[kCount], const std::string& type) {
  for (const auto& [key, name] : kinds) {
    if (key == type) return std::string(name);
  }
  return "type " + type;
}

std::string TypeText(const PARTITION_INFORMATION_EX& row) {
  if (row.PartitionStyle == PARTITION_STYLE_MBR) {
    char text[4];
    std::snprintf(text, sizeof text, "%x", unsigned{row.Mbr.PartitionType});
    return text;
  }
  const std::string braced = simulator::GuidText(row.Gpt.PartitionType);
  std::string text = braced.substr(1, braced.size() - 2);
  std::transform(text.begin(), text.end(), text.begin(), simulator::ToUpperAscii);
  return text;
}

bool IsPartition(const PARTITION_INFORMATION_EX& row) {
  if (row.PartitionStyle != PARTITION_STYLE_MBR) return true;
  return row.Mbr.PartitionType != 0 && row.Mbr.RecognizedPartition != 0;
}

PartitionView MakeView(simulator::SimulatedMachine& machine, simulator::Disk& disk,
                       const PARTITION_INFORMATION_EX& row, std::size_t position) {
  constexpr std::size_t kPrimaryRows = 4;
  const bool mbr = row.PartitionStyle == PARTITION_STYLE_MBR;
  PartitionView view;
  view.number = row.PartitionNumber;
  view.start = static_cast<std::uint64_t>(row.StartingOffset.QuadPart);
  view.length = static_cast<std::uint64_t>(row.PartitionLength.QuadPart);
  view.type = TypeText(row);
  view.kind = mbr ? KindOf(kMbrKinds, view.type) : KindOf(kGptKinds, view.type);
  view.logical = mbr && position >= kPrimaryRows;
  const auto probe = simulator::ProbeFileSystem(disk.device(), view.start);
  if (probe.kind != simulator::FileSystem::kNone) {
    view.file_system = simulator::FileSystemName(probe.kind);
  }
  const simulator::Volume* volume = machine.FindVolumeAt(disk.number(), view.start);
  if (volume != nullptr) view.letter = machine.LettersOf(*volume).substr(0, 1);
  return view;
}

std::string StyleText(DWORD style) {
  switch (style) {
    case PARTITION_STYLE_MBR:
      return "mbr";
    case PARTITION_STYLE_GPT:
      return "gpt";
    default:
      return "raw";
  }
}

}  // namespace

DiskView ReadDiskView(simulator::SimulatedMachine& machine, simulator::Disk& disk) {
  simulator::DiskLayout layout;
  const DWORD error = simulator::ReadLayout(disk.device(), layout);
  if (error != ERROR_SUCCESS) {
    throw InputError(disk.device().image().string() + ": the partition table cannot be read (" +
                     (error == ERROR_DISK_CORRUPT ? std::string("both GPT headers are damaged")
                                                  : "error " + std::to_string(error)) +
                     ")");
  }
  DiskView view;
  view.style = StyleText(layout.header.PartitionStyle);
  view.size = disk.device().size();
  for (std::size_t i = 0; i < layout.rows.size(); ++i) {
    if (!IsPartition(layout.rows[i])) continue;
    view.partitions.push_back(MakeView(machine, disk, layout.rows[i], i));
  }
  std::stable_sort(view.partitions.begin(), view.partitions.end(),
                   [](const auto& a, const auto& b) { return a.start < b.start; });
  return view;
}

std::string StyleName(const DiskView& view) {
  std::string name = view.style;
  std::transform(name.begin(), name.end(), name.begin(), simulator::ToUpperAscii);
  return name;
}

std::string PartitionName(const PartitionView& partition) {
  std::string details = partition.file_system.empty() ? partition.kind : partition.file_system;
  if (!partition.letter.empty()) details += ", " + partition.letter + ":";
  return "partition " + std::to_string(partition.number) + " (" + details + ")";
}

}  // namespace velkora_image
