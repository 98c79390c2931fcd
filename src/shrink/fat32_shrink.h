// Shrinks a FAT32 volume: files through the file system, directories by hand, then boot sector and
// partition table.
#pragma once

#include <cstdint>
#include <string>

#include "platform/win32_types.h"

namespace velkora {

// Takes `size_mib` MiB off the end of the mounted volume `volume_path` and of its partition, the
// `partition_number`-th of the disk `disk_path`. `cluster_size` is in bytes. The part of a cluster
// that the size leaves over is lost to the volume: the partition shrinks by the whole size.
//
// False at the first step that fails, with that step's message (level 3), or without one when the
// volume has no free cluster; nothing is undone then. Data that finds no room below the new end
// stays where it is, outside the volume, and that counts as success. All files and directories lose
// their attributes, and the handles of all files stay open until the process ends. Both FATs keep
// their length; neither the backup boot sector nor FSInfo is touched.
//
// Throws what EnumFilePath throws, and std::bad_alloc for a volume that is too large; the handles
// of disk and volume stay open then.
bool CompressFat32Partition(std::string disk_path, std::string volume_path,
                            std::uint32_t partition_number, std::uint64_t size_mib,
                            std::uint64_t cluster_size);

}  // namespace velkora
