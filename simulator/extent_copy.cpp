#include "simulator/extent_copy.h"

#include <algorithm>
#include <cstddef>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace simulator {
namespace {

constexpr std::uint64_t kBlock = 1 << 20;

// A name that no other file has.
std::filesystem::path NewPath() {
  std::random_device random;
  const std::string name = std::to_string(random()) + "-" + std::to_string(random());
  return std::filesystem::temp_directory_path() / ("simulated-volume-" + name + ".img");
}

bool IsZero(const std::vector<std::byte>& block) {
  return std::all_of(block.begin(), block.end(), [](std::byte b) { return b == std::byte{0}; });
}

// Calls `use(position, length)` for each block of the range until it returns false.
template <typename Use>
bool ForEachBlock(std::uint64_t length, const Use& use) {
  for (std::uint64_t position = 0; position < length; position += kBlock) {
    if (!use(position, static_cast<std::size_t>(std::min(kBlock, length - position)))) return false;
  }
  return true;
}

}  // namespace

ExtentCopy::ExtentCopy(BlockDevice& device, std::uint64_t offset, std::uint64_t length)
    : device_(device), offset_(offset), length_(length), path_(NewPath()) {
  if (offset > device.size() || length > device.size() - offset) {
    throw std::runtime_error("the part leaves the disk");
  }
  CreateSparseImage(path_, length);
  try {
    Fill();
  } catch (...) {
    std::filesystem::remove(path_);
    throw;
  }
}

ExtentCopy::~ExtentCopy() {
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

void ExtentCopy::Fill() {
  BlockDevice file(path_);
  std::vector<std::byte> block;
  const bool filled = ForEachBlock(length_, [&](std::uint64_t position, std::size_t length) {
    block.resize(length);
    if (!device_.Read(offset_ + position, block)) return false;
    return IsZero(block) || file.Write(position, block);
  });
  if (!filled) throw std::runtime_error("the part cannot be copied");
}

void ExtentCopy::Truncate(std::uint64_t length) {
  std::filesystem::resize_file(path_, length);
  length_ = length;
}

bool ExtentCopy::WriteBack() {
  BlockDevice file(path_);
  std::vector<std::byte> old_block;
  std::vector<std::byte> block;
  return ForEachBlock(length_, [&](std::uint64_t position, std::size_t length) {
    block.resize(length);
    old_block.resize(length);
    const std::uint64_t place = offset_ + position;
    if (!file.Read(position, block) || !device_.Read(place, old_block)) return false;
    if (block == old_block) return true;
    return IsZero(block) ? device_.Zero(place, length) : device_.Write(place, block);
  });
}

}  // namespace simulator
