// A part of a disk as a file of its own, for programs that cannot work inside an image.
#pragma once

#include <cstdint>
#include <filesystem>

#include "simulator/storage/block_device.h"

namespace simulator {

// The file lies in the host's temporary folder as long as this object lives. Empty parts stay
// sparse on either side, and only what differs is written back.
class ExtentCopy {
 public:
  // Copies `length` bytes from `offset`. Throws std::runtime_error when they cannot be read or the
  // file cannot be made.
  ExtentCopy(BlockDevice& device, std::uint64_t offset, std::uint64_t length);
  ~ExtentCopy();
  ExtentCopy(const ExtentCopy&) = delete;
  ExtentCopy& operator=(const ExtentCopy&) = delete;

  const std::filesystem::path& path() const { return path_; }

  // Cuts the file; what lies behind stays on the disk as it is.
  void Truncate(std::uint64_t length);
  // Brings the disk's bytes in line with the file. False when the disk refuses it.
  [[nodiscard]] bool WriteBack();

 private:
  void Fill();

  BlockDevice& device_;
  std::uint64_t offset_;
  std::uint64_t length_;
  std::filesystem::path path_;
};

}  // namespace simulator
