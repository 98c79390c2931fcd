#include "backup/partition_extents.h"

#include <array>
#include <cstdio>

#include "backup/return_codes.h"
#include "disk/drive_layout.h"
#include "logging/log.h"
#include "platform/win32.h"

namespace velkora {
namespace {

constexpr std::size_t kLayoutRows = 101;
constexpr std::size_t kVolumePathBytes = 64;

std::string VolumePath(const PARTITION_INFORMATION_EX& row) {
  if (row.PartitionStyle == PARTITION_STYLE_MBR) return FormatVolumePath(row.Mbr.PartitionId);
  if (row.PartitionStyle == PARTITION_STYLE_GPT) return FormatVolumePath(row.Gpt.PartitionId);
  return {};
}

}  // namespace

std::int32_t GetDiskPartition(HANDLE disk, std::vector<PartitionExtent>& extents) {
  LayoutBuffer layout(kLayoutRows);
  DWORD returned = 0;
  if (!win32::DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, layout.data(),
                              layout.size(), &returned, nullptr)) {
    LogEx(kLogModule, kLogProgress, "[%s] %s failed. error=%d", kBackupTag, "GetDiskPartition",
          static_cast<int>(win32::GetLastError()));
    return kLayoutUnreadable;
  }
  for (DWORD i = 0; i < layout.header().PartitionCount; ++i) {
    const PARTITION_INFORMATION_EX row = layout.row(i);
    const auto start = static_cast<std::uint64_t>(row.StartingOffset.QuadPart);
    const auto length = static_cast<std::uint64_t>(row.PartitionLength.QuadPart);
    extents.push_back({start, start + length, VolumePath(row)});
  }
  return kBackupDone;
}

std::string FormatVolumePath(const GUID& guid) {
  std::array<char, kVolumePathBytes> path{};
  const auto& tail = guid.Data4;
  std::snprintf(path.data(), path.size(),
                "\\\\?\\Volume{%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x}",
                static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, tail[0], tail[1],
                tail[2], tail[3], tail[4], tail[5], tail[6], tail[7]);
  return path.data();
}

}  // namespace velkora
