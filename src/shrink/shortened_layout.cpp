#include "shrink/shortened_layout.h"

#include "platform/win32.h"

namespace velkora {
namespace {

constexpr unsigned kMibShift = 20;
constexpr std::uint64_t kSectorBytes = 512;

}  // namespace

bool GetLayout(HANDLE disk, LayoutBuffer& layout) {
  DWORD returned = 0;
  return win32::DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, layout.data(),
                                layout.size(), &returned, nullptr) != FALSE;
}

std::uint64_t ShortenPartition(LayoutBuffer& layout, std::uint32_t partition_number,
                               std::uint64_t size_mib) {
  std::uint64_t sectors = 0;
  for (DWORD i = 0; i < layout.header().PartitionCount; ++i) {
    PARTITION_INFORMATION_EX row = layout.row(i);
    if (row.PartitionNumber != partition_number) continue;
    const std::uint64_t length =
        static_cast<std::uint64_t>(row.PartitionLength.QuadPart) - (size_mib << kMibShift);
    row.PartitionLength.QuadPart = static_cast<LONGLONG>(length);
    row.RewritePartition = TRUE;
    layout.SetRow(i, row);
    sectors = length / kSectorBytes;
  }
  return sectors;
}

}  // namespace velkora
