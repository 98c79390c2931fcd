// The disk of one scenario, made once in a process, and what lies on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "backup/block_map.h"
#include "campaign/scenario.h"
#include "simulator/storage/block_device.h"
#include "support/temp_folder.h"

namespace campaign {

using Bytes = std::vector<std::byte>;

class BaseDisk {
 public:
  explicit BaseDisk(const Scenario& scenario);

  const Scenario& scenario() const { return scenario_; }
  const std::filesystem::path& image() const { return image_; }
  std::uint64_t size() const { return size_; }
  // What a backup of the untouched disk holds.
  const velkora::BlockMap& blocks() const { return blocks_; }

 private:
  void TakeBlocks();

  const Scenario& scenario_;
  testing_support::TempFolder folder_;
  std::filesystem::path image_;
  std::uint64_t size_ = 0;
  velkora::BlockMap blocks_;
};

// The disk of the scenario, made when it is first asked for.
const BaseDisk& DiskOf(const Scenario& scenario);

// Bytes of a disk under an overlay. Throws std::runtime_error where they cannot be read.
Bytes ReadBytes(simulator::BlockDevice& disk, std::uint64_t offset, std::uint64_t length);
std::uint64_t LoadLittleEndian(const Bytes& bytes, std::size_t offset, std::size_t width);

}  // namespace campaign
