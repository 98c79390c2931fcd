// The control codes that the FAT32 driver answers, by its own numbering of clusters: LCN 0 is
// cluster 2 of the table.
//
// Public source: Microsoft's sample of the FAT file system driver.
#pragma once

#include <cstddef>
#include <span>

#include "platform/win32_types.h"
#include "simulator/storage/fat32_files.h"

namespace simulator {

class System;
struct Volume;

// Each returns a Windows error. A buffer that the answer does not fit into gets what fits, and
// error 234; one that is too small for the fixed part is error 122.
[[nodiscard]] DWORD GetVolumeBitmap(Fat32Files& files, std::span<const std::byte> in,
                                    std::span<std::byte> out, DWORD& returned);
// ERROR_HANDLE_EOF behind the last cluster, so always for an empty file.
[[nodiscard]] DWORD GetRetrievalPointers(Fat32Files& files, const Fat32FileId& id,
                                         std::span<const std::byte> in, std::span<std::byte> out,
                                         DWORD& returned);
// Moves clusters of a file that is open on the same volume. A range behind the file's last cluster
// is cut off, and nothing to move is a success.
[[nodiscard]] DWORD MoveClusters(System& system, const Volume& volume,
                                 std::span<const std::byte> in);

}  // namespace simulator
