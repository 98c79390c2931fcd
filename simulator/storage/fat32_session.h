// The frame of each operation on the files of a FAT32 volume.
#pragma once

#include "simulator/storage/fat32_files.h"

namespace simulator {

// An operation that begins after somebody else has written to the device forgets what was read
// before; what the operation itself writes is known.
class Fat32Files::Session {
 public:
  explicit Session(Fat32Files& files) : files_(files) {
    if (files.device_.bytes_written() == files.bytes_written_) return;
    files.folders_.clear();
    files.last_parent_.clear();
    files.open_error_ = files.clusters_.Open();
  }
  ~Session() { files_.bytes_written_ = files_.device_.bytes_written(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

 private:
  Fat32Files& files_;
};

}  // namespace simulator
