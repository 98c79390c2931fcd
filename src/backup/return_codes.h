// What the backup module's entry points return. One number names one cause, whatever the entry.
#pragma once

#include <cstdint>

namespace velkora {

inline constexpr std::int32_t kBackupDone = 0;
inline constexpr std::int32_t kDiskNotOpened = -2;
inline constexpr std::int32_t kFileNotOpened = -9;
inline constexpr std::int32_t kBootRecordUnreadable = -10;
inline constexpr std::int32_t kPropertiesNotUpdated = -11;
inline constexpr std::int32_t kGptUnreadable = -12;
inline constexpr std::int32_t kVolumeStartUnreadable = -13;
inline constexpr std::int32_t kFat16Unreadable = -14;
inline constexpr std::int32_t kFat32Unreadable = -15;
inline constexpr std::int32_t kNtfsUnreadable = -16;
inline constexpr std::int32_t kLayoutUnreadable = -17;
inline constexpr std::int32_t kCrashed = -18;

// The first argument of every message of the module; the second names the function.
inline constexpr char kBackupTag[] = "BackupRestore";

}  // namespace velkora
