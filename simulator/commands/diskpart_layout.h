// Rows for the partitions that diskpart makes, and the room that it makes them in.
#pragma once

#include <cstdint>
#include <optional>

#include "simulator/partition_volume.h"
#include "simulator/storage/partition_store.h"

namespace simulator::diskpart {

inline constexpr GUID kEfiSystemPartitionType = {
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};

bool IsSameGuid(const GUID& left, const GUID& right);

// True for a logical partition of an MBR layout, whose rows come in groups of four.
bool IsLogical(const DiskLayout& layout, std::size_t index);

// True for a layout that `convert` accepts: no partitions. Believed: the reserved partition, which
// `convert gpt` makes itself, does not count.
bool IsEmpty(const DiskLayout& layout);

// A GPT row with the name that Windows gives this type (an EFI system or a reserved partition).
PARTITION_INFORMATION_EX MakeGptRow(const GUID& type, const GUID& id, std::uint64_t offset,
                                    std::uint64_t length);

// The first aligned offset with `length` free bytes there, in the usable range of a GPT layout.
std::optional<std::uint64_t> FindFreeRegion(const DiskLayout& layout, std::uint64_t length);

}  // namespace simulator::diskpart
