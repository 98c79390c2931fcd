// A backup that is kept in a file: no magic number, no version, no count and no checksum; its end
// is the end of the list. Integers are little-endian.
//
//   0       8 bytes of zero, reserved
//   8       2 bytes: L, the length of the device path
//   10      L bytes: the device path, without a terminator
//   10 + L  blocks to the end of the file, each
//             8 bytes: offset on the disk
//             8 bytes: N, the length of the data
//             N bytes: the data
#pragma once

#include <cstdio>
#include <string>

#include "backup/block_map.h"

namespace velkora {

// Writes the whole file at the stream's position. The path's length is cut to 16 bits. No result of
// a write is looked at: a full volume gives a cut file.
void WriteBackupFile(std::FILE* file, const char* device_id, const BlockMap& blocks);

// Reads the whole file into the map, the last block of an offset winning, and returns the device
// path. The reserved bytes are not looked at. Raises an access violation where a field or a block
// runs behind the file's end, and throws std::bad_alloc for a file of 2 GiB or more.
std::string LoadBackupFile(std::FILE* file, BlockMap& blocks);

}  // namespace velkora
