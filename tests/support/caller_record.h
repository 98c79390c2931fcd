// The record of a disk, as an application hands it to Convert.
#pragma once

#include <cstdint>
#include <deque>
#include <string_view>

#include "frame/velkora_sdk.h"

namespace testing_support {

// Owns a DiskInfo of \\.\PhysicalDrive<index> and its volumes, which start out as a data disk
// without volumes.
class CallerRecord {
 public:
  explicit CallerRecord(DiskType type, std::uint32_t index = 1, std::uint64_t size = 0);
  CallerRecord(const CallerRecord&) = delete;
  CallerRecord& operator=(const CallerRecord&) = delete;

  // Appends a volume. `offset` in bytes; `letter` with its colon or empty.
  VolumeInfo& Add(std::uint64_t offset, VolumeFileSystem filesystem = VolumeFileSystem::kNtfs,
                  std::string_view letter = "");

  DiskInfo& disk() { return disk_; }
  VolumeInfo& volume(std::size_t index) { return volumes_.at(index); }

 private:
  DiskInfo disk_{};
  std::deque<VolumeInfo> volumes_;
};

// Copies a text into a field of a record; throws std::length_error if it does not fit.
void SetText(char* field, std::size_t capacity, std::string_view text);
template <std::size_t kCapacity>
void SetText(char (&field)[kCapacity], std::string_view text) {
  SetText(field, kCapacity, text);
}

}  // namespace testing_support
