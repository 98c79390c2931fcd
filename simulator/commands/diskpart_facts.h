// The numbers of diskpart: exit statuses and limits. Where a value is only believed to be the one
// of real systems, it says so here.
#pragma once

#include <cstdint>

#include "platform/win32_types.h"

namespace simulator::diskpart {

// ---- Exit statuses -----------------------------------------------------------------------------

inline constexpr DWORD kSuccess = 0;
// Believed, these three: the tool's own parameters, a script that it cannot open, a line that it
// does not understand.
inline constexpr DWORD kBadUsage = 2;
inline constexpr DWORD kScriptNotOpened = 3;
inline constexpr DWORD kSyntaxError = 0x80070057;
inline constexpr DWORD kObjectNotFound = 0x80042405;
inline constexpr DWORD kOperationDenied = 0x8004240A;
inline constexpr DWORD kNotEnoughSpace = 0x8004240F;
inline constexpr DWORD kIncompatibleFileSystem = 0x80042425;
inline constexpr DWORD kVolumeTooSmall = 0x8004242C;
inline constexpr DWORD kVolumeTooBig = 0x8004242D;
inline constexpr DWORD kCannotShrink = 0x8004251E;
inline constexpr DWORD kNotConvertible = 0x80042559;
inline constexpr DWORD kBadDriveLetter = 0x8004255E;
// Believed: the answer where what is in use does not fit.
inline constexpr DWORD kShrinkTooLarge = 0x80042574;
inline constexpr DWORD kFileSystemDamaged = 0x8004259A;
inline constexpr DWORD kDiskOffline = 0x8004280A;

// Believed: which of the statuses answers these.
inline constexpr DWORD kDiskAlreadyOnline = kOperationDenied;
inline constexpr DWORD kWrongStyleForVerb = kOperationDenied;
inline constexpr DWORD kTooSmallForGpt = kNotConvertible;

// A Windows error as the HRESULT that diskpart ends with.
constexpr DWORD StatusOf(DWORD error) {
  return error == ERROR_SUCCESS ? kSuccess : 0x80070000 | (error & 0xFFFF);
}

// ---- Limits and sizes, in bytes ----------------------------------------------------------------

inline constexpr std::uint64_t kMiB = std::uint64_t{1024} * 1024;

// What `clean` zeroes at either end of the disk.
inline constexpr std::uint64_t kCleanedEnd = kMiB;
inline constexpr std::uint64_t kPartitionAlignment = kMiB;
inline constexpr std::uint64_t kSmallestGptDisk = 128 * kMiB;

// Believed: the largest volume that is formatted with FAT32.
inline constexpr std::uint64_t kLargestFat32 = std::uint64_t{32} * 1024 * kMiB;

// Believed: the reserved partition reaches from the first usable sector to 16 MiB on disks of any
// size.
inline constexpr std::uint64_t kReservedPartitionEnd = 16 * kMiB;

}  // namespace simulator::diskpart
