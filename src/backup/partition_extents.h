// Where the system believes a disk's partitions to lie, and the volumes on them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/win32_types.h"

namespace velkora {

struct PartitionExtent {
  std::uint64_t start;      // bytes from the start of the disk
  std::uint64_t end;        // the first byte behind it
  std::string volume_path;  // empty for a row of neither style
};

// Appends a row for each row of the disk's layout, unused ones included. Returns 0, or -17 with
// "[%s] %s failed. error=%d" (level 1), also for a layout of more than 101 rows.
std::int32_t GetDiskPartition(HANDLE disk, std::vector<PartitionExtent>& extents);

// `\\?\Volume{…}` of a partition's id, in lower case, without a trailing backslash. The system is
// not asked whether a volume of that name exists.
std::string FormatVolumePath(const GUID& guid);

}  // namespace velkora
