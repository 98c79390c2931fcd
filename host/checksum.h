// CRC-32 of bytes and of the headers of a rescue file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <zlib.h>

namespace velkora_host {

// `before` is the checksum of the bytes that come first. 4 GiB at most.
inline std::uint32_t Crc32(std::span<const std::byte> bytes, std::uint32_t before = 0) {
  return static_cast<std::uint32_t>(
      crc32(before, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

template <typename T>
std::span<const std::byte> BytesOf(const T& value) {
  return std::as_bytes(std::span(&value, 1));
}

// What the last field of `header` has to be.
template <typename T>
std::uint32_t CrcOfHeader(const T& header) {
  return Crc32(BytesOf(header).first(offsetof(T, crc)));
}

}  // namespace velkora_host
