// The backup module's own access to a disk: a handle without buffering, and reads that are judged
// by what arrived.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/win32_types.h"

namespace velkora {

// Opens the disk at the device path for reading and writing, shared, written through and without
// buffering, so that offsets and lengths have to be multiples of the sector size. The position is
// 0. The caller closes the handle with CloseHandle. On failure INVALID_HANDLE_VALUE, logged for
// `function` at level 1: "[%s] %s OpenDisk %s failed. error = %d".
HANDLE OpenDisk(const char* device_id, const char* function);

// Moves the disk's position to a byte offset from its start. False if another place was reached.
[[nodiscard]] bool SeekDisk(HANDLE disk, std::uint64_t offset);

// Reads at the position; returns the bytes that the call reports, whether or not it says that it
// failed.
std::uint64_t ReadHere(HANDLE disk, std::span<std::byte> buffer);

// Reads at `offset` and returns the bytes read; 0, with nothing read, when the place is not
// reached.
std::uint64_t ReadAt(HANDLE disk, std::uint64_t offset, std::span<std::byte> buffer);

// Reads all of `buffer` from `offset`. False when the place is not reached or less arrives.
[[nodiscard]] bool ReadAllAt(HANDLE disk, std::uint64_t offset, std::span<std::byte> buffer);

// Writes at `offset` and returns the bytes that the call reports; 0, with nothing written, when the
// place is not reached. The length reaches the call cut to 32 bits, so that a longer write comes
// back short.
std::uint64_t WriteAt(HANDLE disk, std::uint64_t offset, std::span<const std::byte> bytes);

}  // namespace velkora
