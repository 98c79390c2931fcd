#include "backup/block_map.h"

#include <limits>
#include <new>

namespace velkora {

std::vector<std::byte>& SelectBlock(BlockMap& blocks, std::uint64_t offset, std::uint64_t length) {
  if (length > std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
  std::vector<std::byte>& block = blocks[offset];
  block.resize(length);
  return block;
}

void SelectBytes(BlockMap& blocks, std::uint64_t offset, std::span<const std::byte> bytes) {
  blocks[offset].assign(bytes.begin(), bytes.end());
}

}  // namespace velkora
