// What a rescue file looks like: bytes only, no behaviour.
//
//   place   content
//   0       FileHeader
//   44      pieces of the first set: each a PieceHeader and the bytes that it stores
//   ...     SealHeader and its Witness entries: the first set is complete
//   ...     further pieces, each flushed before the write that changes its bytes
//
// A piece holds the old bytes of a range of the disk. No two pieces overlap. The witnesses are
// sectors that lie in no piece of the first set: they tell the disk from any other.
//
// All numbers are little-endian, all checksums CRC-32 (that of zlib). A structure may lie at any
// address.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace velkora_host {

// An unsigned number as it lies in the file.
template <typename T>
class Little {
 public:
  constexpr Little() = default;
  constexpr Little(T value) {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
      bytes_[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
  }
  constexpr operator T() const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) value |= std::uint64_t{bytes_[i]} << (8 * i);
    return static_cast<T>(value);
  }

 private:
  std::array<std::uint8_t, sizeof(T)> bytes_{};
};

using Little32 = Little<std::uint32_t>;
using Little64 = Little<std::uint64_t>;

inline constexpr std::array<char, 8> kFileMagic = {'V', 'K', 'R', 'E', 'S', 'C', 'U', 'E'};
inline constexpr std::uint32_t kFormatVersion = 1;
inline constexpr std::uint32_t kPieceMagic = 0x43454950;  // "PIEC"
inline constexpr std::uint32_t kSealMagic = 0x4C414553;   // "SEAL"

inline constexpr std::uint32_t kPackedFlag = 1;             // stored as zlib packs it
inline constexpr std::uint32_t kMaxPieceLength = 1u << 20;  // bytes of the disk
inline constexpr std::uint32_t kMaxWitnesses = 64;
inline constexpr std::uint32_t kMinSectorSize = 512;  // bytes; a power of two
inline constexpr std::uint32_t kMaxSectorSize = 64u << 10;
inline constexpr std::uint64_t kMaxDiskSize = ~std::uint64_t{0} >> 1;  // bytes

// The last field of each header is the checksum of all fields before it.
struct FileHeader {
  std::array<char, 8> magic;
  Little32 version;
  Little32 sector_size;             // bytes
  Little64 disk_size;               // bytes, a multiple of the sector size
  std::array<std::uint8_t, 16> id;  // unlike that of any other file
  Little32 crc;
};
static_assert(sizeof(FileHeader) == 44 && alignof(FileHeader) == 1);
static_assert(offsetof(FileHeader, version) == 8);
static_assert(offsetof(FileHeader, disk_size) == 16);
static_assert(offsetof(FileHeader, id) == 24);
static_assert(offsetof(FileHeader, crc) == 40);

struct PieceHeader {
  Little32 magic;
  Little32
      file_crc;     // of the FileHeader: a piece that another file left on the medium is not taken
  Little32 index;   // from 0, counted over the whole file
  Little32 flags;   // kPackedFlag or 0
  Little64 offset;  // on the disk, a multiple of the sector size
  Little32 length;  // of the old bytes: a multiple of the sector size, kMaxPieceLength at most
  Little32 stored;  // bytes after this header: `length`, or less if packed
  Little32 data_crc;  // of the old bytes
  Little32 crc;
};
static_assert(sizeof(PieceHeader) == 40 && alignof(PieceHeader) == 1);
static_assert(offsetof(PieceHeader, offset) == 16);
static_assert(offsetof(PieceHeader, length) == 24);
static_assert(offsetof(PieceHeader, data_crc) == 32);
static_assert(offsetof(PieceHeader, crc) == 36);

struct SealHeader {
  Little32 magic;
  Little32 piece_count;    // of the first set
  Little32 content_crc;    // of all bytes of the file before the seal
  Little32 witness_count;  // kMaxWitnesses at most
  Little32 witness_crc;    // of the entries that follow
  Little32 crc;
};
static_assert(sizeof(SealHeader) == 24 && alignof(SealHeader) == 1);
static_assert(offsetof(SealHeader, content_crc) == 8);
static_assert(offsetof(SealHeader, witness_crc) == 16);
static_assert(offsetof(SealHeader, crc) == 20);

struct Witness {
  Little64 offset;  // of a sector on the disk
  Little32 crc;     // of its bytes
};
static_assert(sizeof(Witness) == 12 && alignof(Witness) == 1);
static_assert(offsetof(Witness, crc) == 8);

inline constexpr std::uint64_t kMaxPieceBytes = sizeof(PieceHeader) + kMaxPieceLength;

}  // namespace velkora_host
