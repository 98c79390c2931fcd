// Moving directories of a dismounted FAT32 volume, sector by sector, and rewriting its FATs.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/win32_types.h"
#include "shrink/fat32_files.h"
#include "shrink/fat32_free_space.h"
#include "shrink/fat32_volume.h"

namespace velkora {

// Copies each fragment that begins above `boundary` into the first run that is longer than it,
// repairs what names a moved directory, and takes what it uses off `runs`; runs are neither cut to
// the boundary nor kept below it, and a fragment that no run is longer than stays where it was. The
// FAT is edited in memory and written to both copies at the end, also when nothing has moved, so
// that the second FAT becomes a copy of the first. False as soon as a transfer fails, without a
// line of its own; nothing is undone then, and entries of parents and subdirectories may name
// clusters that the FATs on the disk still mark free.
//
// Of a directory's later fragments the chain alone moves, not the data. Rows keep the numbers that
// they had when they were listed: a directory of which two neighbouring fragments move is not
// linked correctly afterwards.
bool MoveDirectoryDebris(HANDLE volume, std::vector<ClusterRun>& runs,
                         const std::vector<DirectoryDebris>& debris, std::uint64_t boundary);

// Looks through the directory that begins at `parent_cluster` for entries whose first cluster is
// `old_first`, lets them name `new_first`, and writes the cluster. Deleted entries and those behind
// the directory's end count too; long-name entries do not. At most 128 clusters are looked at.
//
// Only the first cluster is repaired properly. The buffer that is written is always the first
// cluster's: a match in a later cluster replaces that cluster, on the disk, by the first one. A
// cluster size of 64 KiB or more raises an access violation behind the first cluster.
bool UpdateParentEntry(HANDLE volume, std::uint32_t parent_cluster, const FatTable& fat,
                       const Fat32Geometry& geometry, std::uint64_t old_first,
                       std::uint64_t new_first);

}  // namespace velkora
