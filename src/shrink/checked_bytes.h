// Values at places in bytes that came from a disk or the file system.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

#include "platform/guard.h"

namespace velkora {

// Raises an access violation for a range that leaves `size` bytes.
inline void CheckRange(std::size_t size, std::uint64_t offset, std::uint64_t length) {
  if (offset > size || length > size - offset) win32::RaiseFault(EXCEPTION_ACCESS_VIOLATION);
}

// Copies a little-endian number, or a structure of them, out of or into `bytes` at `offset`. Both
// raise an access violation where that leaves `bytes`.
template <typename Value>
Value LoadAt(std::span<const std::byte> bytes, std::uint64_t offset) {
  static_assert(std::is_trivially_copyable_v<Value>);
  CheckRange(bytes.size(), offset, sizeof(Value));
  Value value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

template <typename Value>
void StoreAt(std::span<std::byte> bytes, std::uint64_t offset, const Value& value) {
  static_assert(std::is_trivially_copyable_v<Value>);
  CheckRange(bytes.size(), offset, sizeof value);
  std::memcpy(bytes.data() + offset, &value, sizeof value);
}

}  // namespace velkora
