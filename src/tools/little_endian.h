// Fields of on-disk structures.
#pragma once

#include <cstddef>
#include <cstring>
#include <span>
#include <type_traits>

namespace velkora {

// The little-endian value at byte `offset`, which with all its bytes lies inside `bytes`.
template <typename Value>
Value LoadField(std::span<const std::byte> bytes, std::size_t offset) {
  static_assert(std::is_trivially_copyable_v<Value>);
  Value value;
  std::memcpy(&value, bytes.subspan(offset, sizeof value).data(), sizeof value);
  return value;
}

}  // namespace velkora
