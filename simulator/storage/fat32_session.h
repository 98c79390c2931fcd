// The frame of each operation on the files of a FAT32 volume.
#pragma once

#include "simulator/storage/fat32_files.h"

namespace simulator {

// An operation that begins after somebody else has written to the device forgets what was read
// before; what the operation itself writes is known.
class Fat32Files::Session {
 public:
  explicit Session(Fat32Files& files) : files_(files) {
    files.is_working_ = true;
    files.device_.TellLateWriters();  // now, so that what they write counts as another's
    if (files.device_.bytes_written() != files.bytes_written_) files.Forget();
  }
  ~Session() {
    files_.bytes_written_ = files_.device_.bytes_written();
    files_.is_working_ = false;
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

 private:
  Fat32Files& files_;
};

}  // namespace simulator
