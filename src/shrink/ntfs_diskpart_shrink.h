// The other way to shrink an NTFS partition: the system's diskpart, with chkdsk for a damaged file
// system. CompressPart goes by the boot sector instead, and no conversion calls this.
#pragma once

#include <cstdint>
#include <string>

namespace velkora {

// What CompressNtfsWithDiskpart writes to `error_code`.
inline constexpr std::uint32_t kShrinkFailed = 1416;  // the cause was not singled out
inline constexpr std::uint32_t kShrinkTooBig = 1424;
inline constexpr std::uint32_t kShrinkRepairFailed = 1425;

// Shrinks the partition of the volume `volume_path` (opened for its partition number, and given to
// chkdsk as it stands) on disk `disk_number` by `size_mib` MiB from its end; 0 succeeds at once.
// The script goes to "\DISKPART_compress_cmd.log", which it replaces; console texts are appended to
// "\DISKPART_compress_result.log" and "\CHKDSK_cmd.log" and never read: exit statuses decide.
//
// Damage is repaired with chkdsk and the same script run once more; with `retry_allowed` a size
// that diskpart finds too small is tried again once with 1 MiB more. Nothing is undone. On the disk
// of the running system statuses are never seen, and every run in which the shell could be started
// counts as a success.
//
// `error_code`, never null, is written only on a failure, and not when the volume does not tell its
// partition number. Logs what it does; the words stand with the steps.
bool CompressNtfsWithDiskpart(std::uint32_t disk_number, std::uint32_t size_mib,
                              std::string volume_path, std::uint32_t* error_code,
                              bool retry_allowed);

}  // namespace velkora
