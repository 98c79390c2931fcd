// What an NTFS volume keeps of itself: boot sector, the first records of the MFT, and the start of
// the system files.
//
// An MFT record is taken to have 1024 bytes; its signature, its flags and the fix-ups at the ends
// of its sectors are not looked at. The MFT is taken to be contiguous from its first cluster.
//
// Public source: the customary description of NTFS on disk (boot sector, file records, attributes,
// mapping pairs).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "backup/block_map.h"
#include "platform/win32_types.h"

namespace velkora {

inline constexpr std::size_t kMftRecordBytes = 1024;

// Takes the volume's start on the disk in bytes and at least its boot sector; returns 0 or -16,
// logged at level 3: "[%s] %s: read ntfs mft error %d", "[%s] %s: read ntfs tmp error %d". What
// fails inside a record is logged and leaves the volume standing.
std::int32_t ParseNtfsVolume(HANDLE disk, std::uint64_t offset,
                             std::span<const std::byte> boot_sector, BlockMap& blocks);

// A record inside a block of the map. Its bytes are looked at in the block as it is at that moment,
// also after a run that selects the block's own place has resized it and read it again. The
// record's own end is not tested, so that a field may lie in the next record. Raises an access
// violation for a byte past the end of the block.
class MftRecord {
 public:
  // `start`: byte of the block at which the record begins. The block must outlive the record.
  MftRecord(const std::vector<std::byte>& block, std::size_t start)
      : block_(block), start_(start) {}

  template <typename Value>
  Value Load(std::uint64_t position) const {
    Value value;
    Copy(position, &value, sizeof value);
    return value;
  }

 private:
  void Copy(std::uint64_t position, void* value, std::size_t length) const;

  const std::vector<std::byte>& block_;
  std::size_t start_;
};

// Selects the first run, at most 4 MiB of it, of each non-resident attribute of type 0x80 and 0xA0
// of a record. With `collect` the record numbers of an index root are appended to `references`.
// `cluster_bytes`: bytes per sector times sectors per cluster. Returns 0, or -16 where a run cannot
// be read ("[%s] %s: read ntfs meta error %d", level 3); its block keeps its size then.
std::int32_t ParseNtfsMftRecord(const MftRecord& record, bool collect, HANDLE disk,
                                std::uint64_t volume_offset, std::uint64_t cluster_bytes,
                                BlockMap& blocks, std::vector<std::uint64_t>& references);

// The value of a run's field. Each byte is shifted inside a word of 32 bits, with the shift taken
// modulo 32, and the word is extended with its sign before it is added: a field of four bytes with
// its top bit set is negative, and the fifth and later bytes fall onto the low ones again. A field
// of up to three bytes is plain and unsigned. This decides which clusters a backup holds, and stays
// also where it is not the field's true value.
std::int64_t DecodeRunField(std::span<const std::uint8_t> field);

}  // namespace velkora
