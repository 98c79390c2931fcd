// The tables of an MBR disk: sector 0 and the extended chain. All functions return a Windows error.
#pragma once

#include <cstdint>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/on_disk.h"
#include "simulator/storage/partition_store.h"

namespace simulator {

// The types that hold an extended chain. 05 and 0F are certain; that Windows follows 15 and 1F too
// is believed.
constexpr bool IsContainerType(std::uint8_t type) {
  return type == 0x05 || type == 0x0F || type == 0x15 || type == 0x1F;
}

// Whether `record`, taken as sector 0 of a disk of `sector_count` sectors, holds a table: it ends
// in 55AA, has at most one container, no entry that starts behind the end of the disk and none that
// ends behind twice its size.
bool IsMasterBootRecord(const BootRecord& record, std::uint64_t sector_count);

// Gives four rows for each table of the chain that begins with `master`, the contents of sector 0.
// The chain ends at a record without 55AA, with two containers, or seen before.
[[nodiscard]] DWORD ReadMbrLayout(BlockDevice& device, const BootRecord& master,
                                  DiskLayout& layout);

// Writes sector 0 only, keeping its boot code: the signature and four unused entries. GPT headers
// that lie about stay (whether Windows wipes them is not known).
[[nodiscard]] DWORD CreateMbr(BlockDevice& device, DWORD signature);

// As WriteLayout. Overlaps are not looked for: a boot record is written where its row says, also
// onto a partition's first sector.
[[nodiscard]] DWORD WriteMbrLayout(BlockDevice& device, DiskLayout& layout,
                                   const StoreSwitches& switches);

}  // namespace simulator
