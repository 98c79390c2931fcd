// Which partitions have a volume, and by what name and identity.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/win32_types.h"
#include "simulator/volume.h"

namespace simulator {

inline constexpr GUID kReservedPartitionType = {
    0xE3C9E316, 0x0B5C, 0x4DB8, {0x81, 0x7D, 0xF9, 0x2D, 0xF0, 0x02, 0x15, 0xAE}};

// The volume on a partition row, not looked at yet; nothing for an unused row, an extended
// container and the Microsoft reserved partition. It is named after the partition's id, which on an
// MBR disk is made of the disk's signature and the partition's start.
std::optional<Volume> VolumeOfPartition(std::uint32_t disk_number,
                                        const PARTITION_INFORMATION_EX& row);

}  // namespace simulator
