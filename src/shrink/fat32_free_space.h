// Free clusters of a FAT32 volume, and the line that a shrink draws through them.
//
// Clusters have two numberings. An LCN counts data clusters from 0; the file system's control codes
// speak of LCNs. A FAT cluster number counts them from 2; FAT entries, directory entries, the rows
// of the free list and the boundary are such numbers. FAT cluster number = LCN + 2.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/win32_types.h"

namespace velkora {

inline constexpr std::uint64_t kFirstFatCluster = 2;  // the FAT cluster number of LCN 0

struct ClusterRun {
  std::uint64_t first = 0;   // FAT cluster number of the first free cluster
  std::uint64_t length = 0;  // clusters
};

// The last FAT cluster number that the volume keeps when `size_mib` MiB are taken off it: the
// quotient of MiB and `cluster_size` (bytes) is rounded down, and a size above the volume wraps
// below zero. A cluster size of 0 raises a fault of integer division.
std::uint64_t BoundaryCluster(std::uint64_t total_clusters, std::uint64_t size_mib,
                              std::uint64_t cluster_size);

// Appends the free runs of a volume bitmap in ascending order. A clear bit is a free cluster, bit 0
// of byte 0 is LCN 0; `bits` holds at least `cluster_count` bits and whole bytes are looked at. The
// first eight clusters are never free. A run that reaches the end of the bitmap gets a length above
// `cluster_count`, wherever it begins.
void AppendFreeRuns(std::span<const std::byte> bits, std::uint64_t cluster_count,
                    std::vector<ClusterRun>& runs);

// Asks the mounted volume for its bitmap and appends its free runs as above; `total_clusters` gets
// the number of data clusters. A call that fails is logged "GET VOLUME BITMAP Error! error_code:
// %d" (level 3), gives false and leaves `runs`. Throws std::bad_alloc, before it allocates, for a
// bitmap that no call can ask for.
bool GetClusterLocation(HANDLE volume, std::vector<ClusterRun>& runs,
                        std::uint64_t& total_clusters);

}  // namespace velkora
