// Drive layouts as values, and as the bytes in which they cross the seam.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "platform/win32_device_types.h"
#include "platform/win32_types.h"

namespace conformance {

using Bytes = std::vector<std::byte>;

inline constexpr std::uint64_t kSector = 512;
inline constexpr std::uint64_t kMiB = 1024 * 1024;
inline constexpr std::uint64_t kSectorsPerMiB = kMiB / kSector;
inline constexpr DWORD kSignature = 0x5EA11D15;

inline constexpr GUID kBasicDataType = {
    0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
inline constexpr GUID kReservedType = {
    0xE3C9E316, 0x0B5C, 0x4DB8, {0x81, 0x7D, 0xF9, 0x2D, 0xF0, 0x02, 0x15, 0xAE}};
inline constexpr GUID kEfiSystemType = {
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};

template <typename T>
Bytes BytesOf(const T& value) {
  Bytes bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

// The structure at `offset`, zero where the bytes do not reach.
template <typename T>
T LoadAt(const Bytes& bytes, std::size_t offset = 0) {
  auto value = T();
  if (offset < bytes.size()) {
    const std::size_t rest = bytes.size() - offset;
    std::memcpy(&value, bytes.data() + offset, rest < sizeof value ? rest : sizeof value);
  }
  return value;
}

bool SameGuid(const GUID& left, const GUID& right);
std::uint64_t OffsetOf(const PARTITION_INFORMATION_EX& row);
std::uint64_t LengthOf(const PARTITION_INFORMATION_EX& row);

struct DriveLayout {
  DRIVE_LAYOUT_INFORMATION_EX header = DRIVE_LAYOUT_INFORMATION_EX();  // its own row is not used
  std::vector<PARTITION_INFORMATION_EX> rows;
};

// As SET_DRIVE_LAYOUT_EX takes it; the count of rows is the header's, whatever rows there are.
Bytes ToBytes(const DriveLayout& layout);
// As GET_DRIVE_LAYOUT_EX gives it.
DriveLayout ToLayout(const Bytes& bytes);

// Rows that are to be written. Places count in sectors.
PARTITION_INFORMATION_EX UnusedMbrRow();
PARTITION_INFORMATION_EX MbrRow(BYTE type, std::uint64_t first, std::uint64_t count);
PARTITION_INFORMATION_EX GptRow(const GUID& type, BYTE unique, std::uint64_t first,
                                std::uint64_t count);

// A layout with kSignature, filled up with unused rows to a multiple of four.
DriveLayout MbrLayout(std::vector<PARTITION_INFORMATION_EX> rows);
DriveLayout GptLayout(std::vector<PARTITION_INFORMATION_EX> rows);

// Two logical partitions of 20 MiB in an extended one from 100 MiB to 200 MiB, behind a primary one
// of 50 MiB at 1 MiB.
DriveLayout LayoutWithLogicals();

}  // namespace conformance
