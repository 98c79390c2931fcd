#include "simulator/disk.h"

namespace simulator {

DWORD Disk::Layout(DiskLayout& layout) {
  if (!cached_) {
    DiskLayout read;
    const DWORD error = ReadLayout(device_, read);
    if (error != ERROR_SUCCESS) return error;
    cached_ = std::move(read);
  }
  layout = *cached_;
  return ERROR_SUCCESS;
}

}  // namespace simulator
