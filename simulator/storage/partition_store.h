// Reads and writes a disk's partition tables (master boot record, extended boot records, GPT with
// its checksums) as the Windows kernel does. Knows nothing of handles, caches and volumes.
//
// Public sources: the UEFI specification for the GPT; Microsoft's documentation of the structures.
#pragma once

#include <vector>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/store_switches.h"

namespace simulator {

// A drive layout with its rows in a vector; `header.PartitionEntry` is not used, and
// `header.PartitionCount` always equals the number of rows.
struct DiskLayout {
  DRIVE_LAYOUT_INFORMATION_EX header = DRIVE_LAYOUT_INFORMATION_EX();  // all bytes zero
  std::vector<PARTITION_INFORMATION_EX> rows;
};

// All return a Windows error code, ERROR_SUCCESS for success.

// Gives what IOCTL_DISK_GET_DRIVE_LAYOUT_EX would: an MBR disk has four rows for each table of the
// chain, a GPT disk its used entries, a disk without a table style RAW and no rows. 1393 when both
// GPT headers are bad.
[[nodiscard]] DWORD ReadLayout(BlockDevice& device, DiskLayout& layout);

// Gives the disk a new, empty table of the style asked for (also RAW). 50 for an unknown style.
[[nodiscard]] DWORD CreateDisk(BlockDevice& device, const CREATE_DISK& request);

// Writes the rows in the style of `layout.header`. On an MBR disk only the tables are written whose
// group has a row with RewritePartition, or (sector 0) another signature. On success the rows carry
// the partition numbers that a read would give. Nothing is written when a row is refused.
[[nodiscard]] DWORD WriteLayout(BlockDevice& device, DiskLayout& layout,
                                const StoreSwitches& switches);

}  // namespace simulator
