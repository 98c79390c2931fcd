// Shrinks an NTFS volume by rewriting its boot sector and the partition table.
#pragma once

#include <cstdint>
#include <string>

#include "platform/win32_types.h"

namespace velkora {

// Takes `size_mib` MiB off the end of the volume and of its partition. Moves no cluster and does
// not look whether the tail is free. `disk_handle` is the open disk and stays open; `volume_path`
// is dismounted. False at the first step that fails, with that step's message (level 3); nothing is
// undone then, so the boot sector may be shorter than the partition. The secondary boot sector is
// neither read nor written: it lies outside the partition afterwards.
// Public source: the NTFS boot sector's total sectors, 8 bytes at offset 40.
bool CompressNtfsPartition(HANDLE disk_handle, std::string volume_path, std::uint64_t size_mib);

}  // namespace velkora
