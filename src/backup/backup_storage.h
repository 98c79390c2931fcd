// A backup that is kept in memory: the device path of its disk, and blocks of bytes by their place.
//
// An object ends in FreeBackupStorage. It stays behind as a husk then: its contents are freed, its
// address is not used again, and whoever comes back with the stale pointer meets an access
// violation and not somebody else's backup. Each operation here raises it for a released object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "backup/block_map.h"

namespace velkora {

inline constexpr std::size_t kStorageBlocks = 256;

struct BackupBlock {
  std::uint64_t offset;  // on the disk, in bytes
  std::uint64_t length;  // bytes in `data`
  std::byte* data;       // null when `length` is 0
};

struct BackupStorage {
  char* device_path;  // the only record of which disk the backup belongs to
  std::uint32_t count;
  BackupBlock* blocks[kStorageBlocks];  // the first `count` are in use
  bool released;
  BackupStorage* next_released;
};

// Copies device path and blocks into `*storage`. A null `*storage` is allocated first, and that is
// the only time that it is written; otherwise the object is taken as it stands and the blocks go
// behind those that it holds. At block 257 raises an access violation; the object then keeps its
// 256 blocks.
void FillBackupStorage(BackupStorage** storage, const char* device_id, const BlockMap& blocks);

// Copies the blocks into the map, the last one of an offset winning, and returns the device path.
// The object stays as it is.
std::string LoadBackupStorage(const BackupStorage* storage, BlockMap& blocks);

// The number of blocks in use.
std::uint32_t BlockCount(const BackupStorage* storage);

// Frees device path and blocks. The count stays.
void ReleaseBlocks(BackupStorage* storage);

// Ends the object, whose blocks have been released.
void FreeBackupStorage(BackupStorage* storage);

}  // namespace velkora
