// Tests that walk over a mounted volume.
#pragma once

#include <string>
#include <vector>

#include "fat32_mounted_volume_fixture.h"
#include "shrink/fat32_files.h"
#include "shrink/narrow_path.h"

namespace testing_support {

class FileWalk : public Fat32MountedVolume {
 protected:
  bool Enum() { return velkora::EnumFilePath(Path(), files_, directories_); }

  // Behind the volume's path.
  std::vector<std::string> Names(const std::vector<velkora::DirectoryEntry>& entries) {
    std::vector<std::string> names;
    for (const velkora::DirectoryEntry& entry : entries) {
      const std::string path = velkora::NarrowPath(entry.path);
      EXPECT_TRUE(path.starts_with(Path() + '\\')) << path;
      names.push_back(path.substr(Path().size()));
    }
    return names;
  }

  std::vector<velkora::DirectoryEntry> files_;
  std::vector<velkora::DirectoryEntry> directories_;
};

}  // namespace testing_support
