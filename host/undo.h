// Puts the old bytes of a disk back.
#pragma once

#include <cstdint>
#include <string>

#include "platform/win32_types.h"

namespace velkora_host {

// Writes what the rescue file keeps back to the disk, where the disk has other bytes now, and
// flushes the disk. Returns how many bytes were written.
//
// First all of the file is checked, the disk's size, and the witnesses: sectors of the disk that
// must be as they were. A witness that a later piece holds is not asked. Throws RescueError if
// anything is wrong; nothing is written then.
//
// The writer of the file must be destroyed before: it does not share the file.
//
// It may be ended at any moment and run again. A transfer that fails throws RescueError, too: run
// it again then. The handle is for reading and writing; volumes in the way are dismounted or locked
// by the caller, who also has the system look at the table again afterwards.
std::uint64_t Undo(const std::string& rescue_path, HANDLE disk, std::uint64_t disk_size);

}  // namespace velkora_host
