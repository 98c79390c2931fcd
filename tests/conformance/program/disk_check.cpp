#include "conformance/program/disk_check.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "conformance/conformance_fixture.h"
#include "conformance/disk/drive_layout.h"

namespace conformance {
namespace {

constexpr std::uint64_t kSmallest = 256 * kMiB;
constexpr std::size_t kMostExtents = 64;
constexpr std::size_t kMostLayoutBytes = 64 * 1024;
constexpr BYTE kMbrEfiSystemType = 0xEF;

HANDLE OpenDevice(const std::string& path, DWORD access) {
  return win32::CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, /*flags=*/0, nullptr);
}

// Nothing when the question fails.
std::optional<Bytes> Ask(const File& device, DWORD code, std::size_t room) {
  Bytes bytes(room);
  DWORD returned = 0;
  if (!win32::DeviceIoControl(device.get(), code, nullptr, 0, bytes.data(),
                              static_cast<DWORD>(room), &returned, nullptr)) {
    return std::nullopt;
  }
  bytes.resize(returned);
  return bytes;
}

// Whether the drive of `path` has a part on the disk; nothing when that cannot be told.
std::optional<bool> HoldsPath(std::uint32_t disk, const std::string& path) {
  if (path.size() < 2 || path[1] != ':' || !std::isalpha(static_cast<unsigned char>(path[0]))) {
    return std::nullopt;
  }
  const File volume(OpenDevice("\\\\.\\" + path.substr(0, 2), /*access=*/0));
  if (!volume.is_open()) return std::nullopt;
  constexpr std::size_t kExtents = offsetof(VOLUME_DISK_EXTENTS, Extents);
  const auto bytes = Ask(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS,
                         kExtents + kMostExtents * sizeof(DISK_EXTENT));
  if (!bytes) return std::nullopt;
  const auto count = LoadAt<DWORD>(*bytes);
  for (DWORD i = 0; i < count; ++i) {
    const auto extent = LoadAt<DISK_EXTENT>(*bytes, kExtents + i * sizeof(DISK_EXTENT));
    if (extent.DiskNumber == disk) return true;
  }
  return false;
}

std::string SystemDirectory() {
  char path[MAX_PATH] = {};
  const UINT length = win32::GetSystemDirectoryA(path, MAX_PATH);
  return length < MAX_PATH ? std::string(path, length) : "";
}

bool StartsMachines(const PARTITION_INFORMATION_EX& row) {
  if (row.PartitionStyle == PARTITION_STYLE_GPT) {
    return SameGuid(row.Gpt.PartitionType, kEfiSystemType);
  }
  return row.Mbr.BootIndicator != 0 || row.Mbr.PartitionType == kMbrEfiSystemType;
}

std::string ReasonInTable(const File& device) {
  const auto bytes = Ask(device, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, kMostLayoutBytes);
  if (!bytes) return "its partition table cannot be read; clean it with diskpart first";
  const DriveLayout layout = ToLayout(*bytes);
  if (std::none_of(layout.rows.begin(), layout.rows.end(), StartsMachines)) return "";
  return "it has a partition that a machine starts from, an active or an EFI system one; if the "
         "disk is to spare, clean it with diskpart first";
}

std::string ReasonInSize(const File& device) {
  const auto bytes = Ask(device, IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, sizeof(DISK_GEOMETRY_EX));
  if (!bytes) return "its geometry cannot be read";
  const auto geometry = LoadAt<DISK_GEOMETRY_EX>(*bytes);
  if (geometry.Geometry.BytesPerSector != kSector) {
    return "its sectors have " + std::to_string(geometry.Geometry.BytesPerSector) +
           " bytes and not 512";
  }
  const auto size = static_cast<std::uint64_t>(geometry.DiskSize.QuadPart);
  return size < kSmallest ? "it has " + std::to_string(size / kMiB) + " MiB and not 256" : "";
}

std::string ReasonNotToOpen() {
  const DWORD error = win32::GetLastError();
  if (error == ERROR_FILE_NOT_FOUND) return "there is no such disk";
  if (error == ERROR_ACCESS_DENIED) return "it may not be opened; run this as an administrator";
  return "it cannot be opened: error " + std::to_string(error);
}

}  // namespace

std::string ReasonToKeep(std::uint32_t disk, const std::vector<std::string>& paths_in_use) {
  const File device(
      OpenDevice("\\\\.\\PhysicalDrive" + std::to_string(disk), GENERIC_READ | GENERIC_WRITE));
  if (!device.is_open()) return ReasonNotToOpen();
  const std::optional<bool> holds_windows = HoldsPath(disk, SystemDirectory());
  if (!holds_windows) return "it cannot be told which disk holds Windows";
  if (*holds_windows) return "it holds Windows";
  for (const std::string& path : paths_in_use) {
    // What is on no volume of a disk, such as a network drive, is not on this one either.
    if (HoldsPath(disk, path).value_or(false)) return "it holds " + path + ", which is in use";
  }
  const std::string reason = ReasonInSize(device);
  return reason.empty() ? ReasonInTable(device) : reason;
}

}  // namespace conformance
