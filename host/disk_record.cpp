#include "host/disk_record.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "host/device.h"
#include "host/host_error.h"
#include "host/volume_start.h"

namespace velkora_host {
namespace {

constexpr std::size_t kLayoutBytes = std::size_t{16} * 1024;

template <std::size_t kCapacity>
void CopyText(char (&field)[kCapacity], const std::string& text) {
  if (text.size() >= kCapacity) throw HostError(text + " is too long for the record");
  text.copy(field, kCapacity - 1);  // the record starts zeroed
}

std::string DiskPath(std::uint32_t number) {
  return "\\\\.\\PhysicalDrive" + std::to_string(number);
}

// A disk whose table the system does not tell is raw, which no conversion takes.
DiskType TypeOf(const Device& disk) {
  DWORD error = ERROR_SUCCESS;
  const auto layout = disk.Ask(IOCTL_DISK_GET_DRIVE_LAYOUT_EX, kLayoutBytes, error);
  DWORD style = PARTITION_STYLE_RAW;
  if (layout && layout->size() >= sizeof style) std::memcpy(&style, layout->data(), sizeof style);
  if (style == PARTITION_STYLE_GPT) return DiskType::kGpt;
  return style == PARTITION_STYLE_MBR ? DiskType::kMbr : DiskType::kRaw;
}

// "" for a disk that has none.
std::string SerialOf(const Device& disk) {
  const STORAGE_PROPERTY_QUERY query{};  // the device's descriptor, by the standard query
  DWORD error = ERROR_SUCCESS;
  const auto answer =
      disk.Ask(IOCTL_STORAGE_QUERY_PROPERTY, 1024, error, std::as_bytes(std::span(&query, 1)));
  STORAGE_DEVICE_DESCRIPTOR fixed{};
  if (!answer || answer->size() < sizeof fixed) return "";
  std::memcpy(&fixed, answer->data(), sizeof fixed);
  if (fixed.SerialNumberOffset == 0 || fixed.SerialNumberOffset >= answer->size()) return "";
  const char* text = reinterpret_cast<const char*>(answer->data()) + fixed.SerialNumberOffset;
  return {text, strnlen(text, answer->size() - fixed.SerialNumberOffset)};
}

// The first place of a volume; none for one that is on no disk, as an optical drive's.
std::optional<DISK_EXTENT> FirstExtent(const Device& volume) {
  DWORD error = ERROR_SUCCESS;
  const auto answer =
      volume.Ask(IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, sizeof(VOLUME_DISK_EXTENTS), error);
  if (!answer && (error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_READY)) return std::nullopt;
  if (!answer) throw HostError(volume.path() + ": its place is not told: " + ErrorText(error));
  if (answer->size() < sizeof(VOLUME_DISK_EXTENTS)) return std::nullopt;
  VOLUME_DISK_EXTENTS extents{};
  std::memcpy(&extents, answer->data(), sizeof extents);
  if (extents.NumberOfDiskExtents == 0) return std::nullopt;
  return extents.Extents[0];
}

// "D:" for the first letter among the mount points, or "".
std::string LetterOf(const std::string& root) {
  std::vector<char> names(MAX_PATH);
  DWORD length = 0;
  while (!win32::GetVolumePathNamesForVolumeNameA(root.c_str(), names.data(),
                                                  static_cast<DWORD>(names.size()), &length)) {
    const DWORD error = win32::GetLastError();
    if (error != ERROR_MORE_DATA || length <= names.size()) {
      throw HostError(root + ": its letters are not told: " + ErrorText(error));
    }
    names.resize(length);
  }
  for (const char* name = names.data(); *name != '\0'; name += std::strlen(name) + 1) {
    if (std::strlen(name) == 3 && name[1] == ':') return std::string(name, 2);
  }
  return "";
}

VolumeStart StartOf(const Device& disk, std::uint64_t disk_size, std::uint64_t offset) {
  std::vector<std::byte> bytes(kVolumeStartBytes);
  if (offset >= disk_size) return {};
  const std::size_t there =
      static_cast<std::size_t>(std::min<std::uint64_t>(kVolumeStartBytes, disk_size - offset));
  if (!disk.Read(offset, std::span(bytes).first(there))) {
    throw HostError(disk.path() + ": the volume at byte " + std::to_string(offset) +
                    " cannot be read: " + ErrorText(win32::GetLastError()));
  }
  return ReadVolumeStart(std::span<const std::byte, kVolumeStartBytes>(bytes));
}

// The roots of all volumes of the system.
std::vector<std::string> VolumeRoots() {
  char name[MAX_PATH] = {};
  const HANDLE find = win32::FindFirstVolumeA(name, MAX_PATH);
  if (find == INVALID_HANDLE_VALUE) {
    if (win32::GetLastError() == ERROR_NO_MORE_FILES) return {};
    throw HostError("the volumes are not listed: " + ErrorText(win32::GetLastError()));
  }
  std::vector<std::string> roots;
  do {
    roots.emplace_back(name);
  } while (win32::FindNextVolumeA(find, name, MAX_PATH));
  const DWORD error = win32::GetLastError();
  win32::FindVolumeClose(find);
  if (error != ERROR_NO_MORE_FILES) {
    throw HostError("the list of volumes ends too early: " + ErrorText(error));
  }
  return roots;
}

// The volume with this root if it begins on the disk.
std::optional<VolumeInfo> VolumeOn(const Device& disk, const DiskInfo& info,
                                   const std::string& root) {
  const Device volume(root.substr(0, root.size() - 1));
  const auto extent = FirstExtent(volume);
  if (!extent || extent->DiskNumber != info.index) return std::nullopt;
  VolumeInfo record{};
  CopyText(record.volume_id, volume.path());
  CopyText(record.letter, LetterOf(root));
  record.part_number = static_cast<std::uint16_t>(
      volume.Ask<STORAGE_DEVICE_NUMBER>(IOCTL_STORAGE_GET_DEVICE_NUMBER, "its partition")
          .PartitionNumber);
  record.offset = static_cast<std::uint64_t>(extent->StartingOffset.QuadPart);
  record.size = static_cast<std::uint64_t>(extent->ExtentLength.QuadPart);
  const VolumeStart start = StartOf(disk, info.size, record.offset);
  record.filesystem = start.filesystem;
  record.cluster_size = start.cluster_size;
  return record;
}

}  // namespace

DiskRecord::DiskRecord(std::uint32_t disk_number) {
  const Device disk(DiskPath(disk_number));
  const auto geometry =
      disk.Ask<DISK_GEOMETRY_EX>(IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, "its geometry");
  disk_.disk_type = TypeOf(disk);
  disk_.index = disk_number;
  disk_.size = static_cast<std::uint64_t>(geometry.DiskSize.QuadPart);
  CopyText(disk_.id, disk.path());
  CopyText(disk_.serial_num, SerialOf(disk));

  for (const std::string& root : VolumeRoots()) {
    const auto volume = VolumeOn(disk, disk_, root);
    if (volume) volumes_.push_back(*volume);
  }
  if (volumes_.size() > std::size(disk_.volumes)) {
    throw HostError(disk.path() + ": " + std::to_string(volumes_.size()) +
                    " volumes are too many, " + std::to_string(std::size(disk_.volumes)) +
                    " is the limit");
  }
  std::sort(volumes_.begin(), volumes_.end(),
            [](const VolumeInfo& a, const VolumeInfo& b) { return a.offset < b.offset; });
  disk_.volume_count = static_cast<std::int32_t>(volumes_.size());
  for (std::size_t i = 0; i < volumes_.size(); ++i) disk_.volumes[i] = &volumes_[i];
}

void DiskRecord::MarkSystem(char letter) {
  disk_.is_system = 1;
  for (VolumeInfo& volume : volumes_) volume.is_system = volume.letter[0] == letter ? 1 : 0;
}

}  // namespace velkora_host
