// The tables of a GPT disk: headers and entry arrays with their checksums. All functions that
// return a DWORD return a Windows error.
#pragma once

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/on_disk.h"
#include "simulator/storage/partition_store.h"

namespace simulator {

// Whether sector 0 marks a GPT disk: 55AA, type EE in the first entry and type 0 in the others.
bool IsProtective(const BootRecord& record);

// Gives the used entries in array order, from the primary table or, when that is bad, from the
// backup. ERROR_DISK_CORRUPT when both are.
[[nodiscard]] DWORD ReadGptLayout(BlockDevice& device, DiskLayout& layout);

// Writes the protective record (only the disk signature of a valid sector 0 stays), then an empty
// table and its backup. ERROR_INVALID_PARAMETER when the disk has no room for the entries.
[[nodiscard]] DWORD CreateGpt(BlockDevice& device, const CREATE_DISK_GPT& request);

// As WriteLayout. Rows with a zero type are left out, the rest packed from slot 0 in their order.
// Disk id and number of entries are those of the present header, without which it fails with
// ERROR_DISK_CORRUPT. ERROR_INVALID_PARAMETER when there are more rows than entries, or rows
// overlap or leave the usable range. The protective record is not touched.
[[nodiscard]] DWORD WriteGptLayout(BlockDevice& device, DiskLayout& layout);

}  // namespace simulator
