// The metadata of a disk that a backup holds: bytes by the place they came from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

namespace velkora {

// From a byte offset on the disk to the bytes that stood there. Nothing sorts it; every later stage
// takes the blocks in the container's order. Where two blocks overlap they were mostly read from
// the same disk in the same pass, so that their bytes agree. They do not where a run could not be
// read, or where a GPT's header points its secondary copy at other blocks: the order decides then.
using BlockMap = std::unordered_map<std::uint64_t, std::vector<std::byte>>;

// The block at `offset`, resized to `length` bytes. One that is there already is used again, so
// that the last selection of an offset decides its length. New bytes are zero. For a block that one
// read is to fill: throws std::bad_alloc, before any memory is taken, for a length that no read can
// address (more than 32 bits). The reference lives as long as the map.
std::vector<std::byte>& SelectBlock(BlockMap& blocks, std::uint64_t offset, std::uint64_t length);

// The same, filled with `bytes`, of any length.
void SelectBytes(BlockMap& blocks, std::uint64_t offset, std::span<const std::byte> bytes);

}  // namespace velkora
