// The walk over all volumes of the machine, and where each of them lies.
//
// A volume path is `\\?\Volume{…}` without a trailing backslash, a volume root has one, a letter
// path is a letter, a colon and a backslash. What joins a volume to a partition is the pair of disk
// number and byte offset; names may change.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace velkora {

// Appends the paths of all volumes. False when the walk cannot begin ("FindFirstVolumeA error %lu",
// level 3) or a stop was asked for; then the list keeps what it has, and after a stop the find
// handle stays open. A walk that breaks off for another reason counts as complete.
bool GetVolumeDevicePaths(std::vector<std::string>& paths);

// The disk number and the byte offset of the volume's first extent; further extents do not count.
// False, with nothing stored, when the volume cannot be opened (no log line) or has no extents
// ("IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: %lu", level 3, also logged for a volume with
// several, where the call goes on; "…EXTENTS2 Error: %lu" when the repeated call fails).
bool GetPartitionDiskindexAndOffset(const std::string& volume_path, std::uint32_t& disk_index,
                                    std::uint64_t& offset);

// Replaces `letter` by the volume's mount points: the whole multi-string, with its terminators in
// the string's length, so that even a volume without a mount point gives a string of one NUL. Look
// at it as a C string. On failure logs "GetVolumePathNamesForVolumeNameA error %lu, device id %s"
// (level 3), leaves `letter` and returns false.
bool GetVolumeLetter(const std::string& volume_root, std::string& letter);

// The text in front of the last `separator`, or all of it if there is none.
std::string CutAtLastSeparator(std::string_view text, char separator);

}  // namespace velkora
