// A volume with one directory behind the boundary, to be moved sector by sector.
#pragma once

#include "fat32_raw_volume_fixture.h"
#include "shrink/fat32_directories.h"

namespace testing_support {

inline constexpr std::uint64_t kBoundary = 1000;
inline constexpr std::uint32_t kOld = 1100;
inline constexpr std::uint32_t kNew = 70'000;  // needs both halves of a cluster number

// Cluster 2 is the root. Cluster 1100 is a directory of it, which holds a subdirectory at 40, a
// file, and a deleted subdirectory at 41.
class MoveDirectoryDebrisTest : public Fat32RawVolume {
 protected:
  MoveDirectoryDebrisTest() {
    SetFat(0, 0x0FFFFFF8);
    SetFat(1, kLast);
    for (const std::uint32_t cluster : {2U, kOld, 40U, 41U}) Chain({cluster});
    PutEntries(2, {{'F', kArchive, 30}, {'D', kFolder, kOld}});
    PutDirectory(kOld, 0, {{'S', kFolder, 40}, {'F', kArchive, 31}, {'\xE5', kFolder, 41}});
    PutDirectory(40, kOld);
    PutDirectory(41, kOld);
  }

  bool Move(const std::vector<velkora::DirectoryDebris>& rows) {
    return velkora::MoveDirectoryDebris(volume_, runs_, rows, kBoundary);
  }

  void ExpectNothingWritten() { EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U); }

  std::vector<velkora::ClusterRun> runs_ = {{kNew, 10}};
};

}  // namespace testing_support
