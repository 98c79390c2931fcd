// What partition tables and FAT32 volumes look like on the disk: bytes only, no behaviour.
//
//   sector   MBR disk                           GPT disk (512-byte sectors, 128 entries)
//   0        boot code, signature, 4 entries    protective boot record
//   1        -                                  primary header
//   2..33    -                                  primary entry array
//   ...      partitions; each boot record of    partitions, from sector 34 to sector N-34
//            the extended chain lies before
//            its logical partition
//   N-33..   -                                  backup entry array
//   N-1      -                                  backup header
//
// All numbers are little-endian, and every structure may lie at any address.
//
// Public sources: the UEFI specification (boot record, GPT), Microsoft's FAT32 File System
// Specification.
#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

namespace simulator {

// An unsigned number as it lies on the disk.
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

using Little16 = Little<std::uint16_t>;
using Little32 = Little<std::uint32_t>;
using Little64 = Little<std::uint64_t>;

// Copies a structure out of, or into, the start of `bytes`, which must be long enough.
template <typename T>
T Load(std::span<const std::byte> bytes) {
  static_assert(std::is_trivially_copyable_v<T> && alignof(T) == 1);
  assert(bytes.size() >= sizeof(T));
  T value;
  std::memcpy(&value, bytes.data(), sizeof(T));
  return value;
}

template <typename T>
void Store(const T& value, std::span<std::byte> bytes) {
  static_assert(std::is_trivially_copyable_v<T> && alignof(T) == 1);
  assert(bytes.size() >= sizeof(T));
  std::memcpy(bytes.data(), &value, sizeof(T));
}

// ---- Boot records -------------------------------------------------------------------------------

inline constexpr std::uint16_t kBootSignature = 0xAA55;  // the bytes 55 AA
inline constexpr std::uint8_t kActiveFlag = 0x80;
inline constexpr std::uint8_t kTypeUnused = 0x00;
inline constexpr std::uint8_t kTypeProtective = 0xEE;
inline constexpr std::size_t kTableEntries = 4;

// Cylinder, head and sector in three bytes: head; sector in bits 0-5 with bits 8-9 of the cylinder
// above it; bits 0-7 of the cylinder.
using Chs = std::array<std::uint8_t, 3>;

struct MbrEntry {
  std::uint8_t flag;  // kActiveFlag or 0
  Chs first_chs;
  std::uint8_t type;
  Chs last_chs;
  Little32 first_sector;  // in sectors; what it is relative to depends on the entry's place
  Little32 sector_count;
};
static_assert(sizeof(MbrEntry) == 16);
static_assert(offsetof(MbrEntry, type) == 4);
static_assert(offsetof(MbrEntry, first_sector) == 8);
static_assert(offsetof(MbrEntry, sector_count) == 12);

// The first 512 bytes of sector 0 and of each record in the extended chain. Larger sectors have
// unused bytes behind it.
struct BootRecord {
  std::array<std::uint8_t, 440> boot_code;
  Little32 disk_signature;  // sector 0 only
  Little16 reserved;
  std::array<MbrEntry, kTableEntries> entries;
  Little16 boot_signature;
};
static_assert(sizeof(BootRecord) == 512);
static_assert(offsetof(BootRecord, disk_signature) == 440);
static_assert(offsetof(BootRecord, entries) == 446);
static_assert(offsetof(BootRecord, boot_signature) == 510);

// ---- GPT ----------------------------------------------------------------------------------------

inline constexpr std::uint64_t kGptSignature = 0x5452415020494645;  // "EFI PART"
inline constexpr std::uint32_t kGptRevision = 0x00010000;           // 1.0
inline constexpr std::uint64_t kGptPrimaryHeaderSector = 1;
inline constexpr std::uint64_t kGptPrimaryArraySector = 2;
inline constexpr std::size_t kGptNameLength = 36;  // UTF-16 units

struct DiskGuid {
  Little32 data1;
  Little16 data2;
  Little16 data3;
  std::array<std::uint8_t, 8> data4;
};
static_assert(sizeof(DiskGuid) == 16);

struct GptHeader {
  Little64 signature;
  Little32 revision;
  Little32 header_size;  // bytes that header_crc covers
  Little32 header_crc;   // computed with this field zero
  Little32 reserved;
  Little64 own_sector;
  Little64 alternate_sector;
  Little64 first_usable_sector;
  Little64 last_usable_sector;
  DiskGuid disk_id;
  Little64 array_sector;
  Little32 entry_count;
  Little32 entry_size;  // bytes from one entry to the next
  Little32 array_crc;   // over entry_count * entry_size bytes
};
static_assert(sizeof(GptHeader) == 92);
static_assert(offsetof(GptHeader, header_crc) == 16);
static_assert(offsetof(GptHeader, own_sector) == 24);
static_assert(offsetof(GptHeader, disk_id) == 56);
static_assert(offsetof(GptHeader, array_sector) == 72);
static_assert(offsetof(GptHeader, array_crc) == 88);

struct GptEntry {
  DiskGuid type;  // zero: the slot is empty
  DiskGuid id;
  Little64 first_sector;
  Little64 last_sector;  // inclusive
  Little64 attributes;
  std::array<Little16, kGptNameLength> name;
};
static_assert(sizeof(GptEntry) == 128);
static_assert(offsetof(GptEntry, first_sector) == 32);
static_assert(offsetof(GptEntry, attributes) == 48);
static_assert(offsetof(GptEntry, name) == 56);

// ---- FAT32 --------------------------------------------------------------------------------------

struct Fat32BootSector {
  std::array<std::uint8_t, 3> jump;
  std::array<char, 8> oem_name;
  Little16 bytes_per_sector;
  std::uint8_t sectors_per_cluster;
  Little16 reserved_sectors;  // boot sector, FSInfo, their backups, up to the first FAT
  std::uint8_t fat_count;
  Little16 root_entries;      // 0 on FAT32
  Little16 total_sectors_16;  // 0 on FAT32
  std::uint8_t media;
  Little16 fat_sectors_16;  // 0 on FAT32
  Little16 sectors_per_track;
  Little16 heads;
  Little32 hidden_sectors;  // in front of the volume
  Little32 total_sectors;
  Little32 fat_sectors;  // of one FAT
  Little16 flags;        // 0: all FATs are kept alike
  Little16 version;
  Little32 root_cluster;
  Little16 info_sector;    // FSInfo, from the start of the volume
  Little16 backup_sector;  // second boot sector, from the start of the volume
  std::array<std::uint8_t, 12> reserved;
  std::uint8_t drive_number;
  std::uint8_t reserved_1;
  std::uint8_t extended_signature;  // 0x29: the three fields below are present
  Little32 serial_number;
  std::array<char, 11> label;
  std::array<char, 8> type_name;
  std::array<std::uint8_t, 420> boot_code;
  Little16 boot_signature;
};
static_assert(sizeof(Fat32BootSector) == 512);
static_assert(offsetof(Fat32BootSector, bytes_per_sector) == 11);
static_assert(offsetof(Fat32BootSector, hidden_sectors) == 28);
static_assert(offsetof(Fat32BootSector, fat_sectors) == 36);
static_assert(offsetof(Fat32BootSector, root_cluster) == 44);
static_assert(offsetof(Fat32BootSector, drive_number) == 64);
static_assert(offsetof(Fat32BootSector, type_name) == 82);
static_assert(offsetof(Fat32BootSector, boot_signature) == 510);

inline constexpr std::uint32_t kFsInfoLeadSignature = 0x41615252;    // "RRaA"
inline constexpr std::uint32_t kFsInfoStructSignature = 0x61417272;  // "rrAa"
inline constexpr std::uint32_t kFsInfoTrailSignature = 0xAA550000;

struct Fat32FsInfo {
  Little32 lead_signature;
  std::array<std::uint8_t, 480> reserved_1;
  Little32 struct_signature;
  Little32 free_clusters;
  Little32 next_free_cluster;
  std::array<std::uint8_t, 12> reserved_2;
  Little32 trail_signature;
};
static_assert(sizeof(Fat32FsInfo) == 512);
static_assert(offsetof(Fat32FsInfo, struct_signature) == 484);
static_assert(offsetof(Fat32FsInfo, trail_signature) == 508);

// A directory is a row of slots of 32 bytes. A file takes one, with its name of eight and three
// characters, behind as many slots as its long name needs (13 characters each, the last part
// first).
inline constexpr std::size_t kFat32SlotBytes = 32;
inline constexpr std::uint8_t kFat32EndOfDirectory =
    0x00;                                             // first byte of the slot: no more behind
inline constexpr std::uint8_t kFat32FreeSlot = 0xE5;  // first byte of the slot
inline constexpr std::uint8_t kFat32AttributeVolumeLabel = 0x08;
inline constexpr std::uint8_t kFat32AttributeFolder = 0x10;
inline constexpr std::uint8_t kFat32AttributeArchive = 0x20;
inline constexpr std::uint8_t kFat32AttributesLongName = 0x0F;

struct Fat32FileSlot {
  std::array<char, 11> name;  // eight and three characters, padded with blanks
  std::uint8_t attributes;
  std::uint8_t case_flags;  // 8: the eight are meant in lower case; 16: the three are
  std::uint8_t created_tenths;
  Little16 created_time;
  Little16 created_date;
  Little16 accessed_date;
  Little16 cluster_high;
  Little16 written_time;
  Little16 written_date;
  Little16 cluster_low;
  Little32 size;  // bytes; 0 for a folder
};
static_assert(sizeof(Fat32FileSlot) == kFat32SlotBytes);
static_assert(offsetof(Fat32FileSlot, cluster_high) == 20);
static_assert(offsetof(Fat32FileSlot, size) == 28);

inline constexpr std::uint8_t kFat32LastNamePart = 0x40;

struct Fat32NameSlot {
  std::uint8_t order;  // 1 for the first part; kFat32LastNamePart is added to the last
  std::array<Little16, 5> first;
  std::uint8_t attributes;  // kFat32AttributesLongName
  std::uint8_t kind;        // 0
  std::uint8_t checksum;    // of the eight and three characters
  std::array<Little16, 6> second;
  Little16 cluster;  // 0
  std::array<Little16, 2> third;
};
static_assert(sizeof(Fat32NameSlot) == kFat32SlotBytes);
static_assert(offsetof(Fat32NameSlot, checksum) == 13);
static_assert(offsetof(Fat32NameSlot, third) == 28);

}  // namespace simulator
