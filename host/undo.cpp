#include "host/undo.h"

#include <cstring>
#include <span>
#include <vector>

#include "host/checksum.h"
#include "host/range_set.h"
#include "host/raw_file.h"
#include "host/rescue_file.h"

namespace velkora_host {
namespace {

using Bytes = std::span<const std::byte>;

void CheckSize(const std::string& path, const RescueContents& contents, std::uint64_t disk_size) {
  if (disk_size == contents.disk_size) return;
  throw RescueError(path + ": is of another disk: that one has " +
                    std::to_string(contents.disk_size) + " bytes, this one " +
                    std::to_string(disk_size));
}

void CheckWitnesses(const std::string& path, const RescueContents& contents, const RawFile& disk) {
  RangeSet saved;
  for (const RescuePiece& piece : contents.pieces) saved.Add(piece.range);
  std::vector<std::byte> sector(contents.sector_size);
  for (const Witness& witness : contents.witnesses) {
    if (saved.FirstFree(witness.offset) != witness.offset) continue;
    disk.Read(witness.offset, sector);
    if (Crc32(sector) == witness.crc) continue;
    throw RescueError(path + ": is of another disk, or the disk was used since: the sector at " +
                      std::to_string(witness.offset) + " has other bytes than it had");
  }
}

// Whether the sector at `at` is the same in both.
bool IsSame(Bytes old_bytes, Bytes now, std::size_t at, std::size_t sector_size) {
  return std::memcmp(&old_bytes[at], &now[at], sector_size) == 0;
}

// Writes each run of sectors that differ, in one transfer. Returns their bytes.
std::uint64_t RestoreDifferences(const RawFile& disk, std::uint64_t offset, Bytes old_bytes,
                                 Bytes now, std::size_t sector_size) {
  std::uint64_t restored = 0;
  std::size_t at = 0;
  while (at < old_bytes.size()) {
    const std::size_t start = at;
    while (at < old_bytes.size() && !IsSame(old_bytes, now, at, sector_size)) at += sector_size;
    if (at == start) {
      at += sector_size;
      continue;
    }
    disk.Write(offset + start, old_bytes.subspan(start, at - start));
    restored += at - start;
  }
  return restored;
}

}  // namespace

std::uint64_t Undo(const std::string& rescue_path, HANDLE disk_handle, std::uint64_t disk_size) {
  const RescueReader rescue(rescue_path);
  const RescueContents& contents = rescue.contents();
  const RawFile disk(disk_handle, "the disk");
  CheckSize(rescue_path, contents, disk_size);
  CheckWitnesses(rescue_path, contents, disk);
  std::uint64_t restored = 0;
  std::vector<std::byte> now;
  for (const RescuePiece& piece : contents.pieces) {
    const std::vector<std::byte> old_bytes = rescue.Load(piece);
    now.resize(old_bytes.size());
    disk.Read(piece.range.offset, now);
    restored += RestoreDifferences(disk, piece.range.offset, old_bytes, now, contents.sector_size);
  }
  // Also with nothing to restore: an earlier run may have ended before its flush.
  disk.Flush();
  return restored;
}

}  // namespace velkora_host
