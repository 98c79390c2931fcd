// What a disk says of itself: by which path it is found and how it answers a query for its
// descriptor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/win32_types.h"

namespace simulator {

// Settable at any time: a disk may come to answer on another path, as it does after its table was
// rewritten, or on none.
struct DeviceIdentity {
  // Path of the disk's interface, by which it opens beside `\\.\PhysicalDriveN`. Empty for a disk
  // that offers none.
  std::string interface_path;
  // As the device gives it, blanks included; nothing for a device without one, whose descriptor has
  // the offset 0.
  std::optional<std::string> serial_number;
  // What the descriptor says instead of where the serial number lies and how long the whole is. A
  // longer descriptor is filled up with zeros, a shorter one cut.
  std::optional<DWORD> told_serial_offset;
  std::optional<DWORD> told_size;
};

// How a disk attached as `number` presents itself: a path of its own, the serial number
// "SIM-0000000N".
DeviceIdentity DefaultIdentity(std::uint32_t number);

// The answer to IOCTL_STORAGE_QUERY_PROPERTY; a Windows error. As much of the descriptor as `out`
// holds, at least its header. Believed: 24 for less room, 87 for a short query, 1 for another
// property or kind of query.
[[nodiscard]] DWORD QueryProperty(const DeviceIdentity& identity, std::span<const std::byte> in,
                                  std::span<std::byte> out, DWORD& returned);

// The answer to IOCTL_DISK_GET_DRIVE_GEOMETRY_EX; 122 without room for the size.
[[nodiscard]] DWORD QueryGeometry(std::uint64_t disk_size, std::uint32_t sector_size,
                                  std::span<std::byte> out, DWORD& returned);

}  // namespace simulator
