// Tables and boot sectors put together byte by byte, so that a test does not judge the library or
// the simulated machine by their own code.
#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <zlib.h>

#include "convert/partition_row.h"
#include "simulator/disk.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

constexpr std::size_t kSectorBytes = 512;
constexpr std::size_t kEntryBytes = 128;
constexpr std::size_t kEntries = 128;
constexpr std::uint64_t kArraySectors = kEntries * kEntryBytes / kSectorBytes;

// Stores `value` as little-endian number of `width` bytes.
template <typename Bytes>
void Put(Bytes& bytes, std::size_t offset, std::uint64_t value, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    bytes.at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

template <typename Bytes>
void PutText(Bytes& bytes, std::size_t offset, std::string_view text) {
  for (const char c : text) bytes.at(offset++) = static_cast<std::uint8_t>(c);
}

std::uint32_t Crc32(std::span<const std::uint8_t> bytes) {
  return static_cast<std::uint32_t>(
      crc32(crc32(0, nullptr, 0), bytes.data(), static_cast<uInt>(bytes.size())));
}

std::uint64_t SectorCount(simulator::Disk& disk) {
  return disk.device().size() / kSectorBytes;
}

// ---- GPT ----------------------------------------------------------------------------------------

using EntryArray = std::vector<std::uint8_t>;

EntryArray MakeEntryArray(const std::vector<GptEntry>& entries) {
  if (entries.size() > kEntries) throw std::invalid_argument("more than 128 GPT entries");
  EntryArray array(kEntries * kEntryBytes);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (entries[i].unique == 0) continue;
    const velkora::GptPartitionRow row = MakeGptRow(entries[i]);
    std::memcpy(&array[i * kEntryBytes], &row, kEntryBytes);
  }
  return array;
}

Sector MakeGptHeader(std::uint64_t own, std::uint64_t alternate, std::uint64_t array_sector,
                     std::uint64_t sector_count, std::uint32_t array_crc) {
  constexpr std::size_t kHeaderBytes = 92;
  Sector header{};
  PutText(header, 0, "EFI PART");
  Put(header, 8, 0x00010000, 4);
  Put(header, 12, kHeaderBytes, 4);
  Put(header, 24, own, 8);
  Put(header, 32, alternate, 8);
  Put(header, 40, 2 + kArraySectors, 8);
  Put(header, 48, sector_count - kArraySectors - 2, 8);
  PutText(header, 56, "a disk's own id.");
  Put(header, 72, array_sector, 8);
  Put(header, 80, kEntries, 4);
  Put(header, 84, kEntryBytes, 4);
  Put(header, 88, array_crc, 4);
  Put(header, 16, Crc32(std::span(header).first(kHeaderBytes)), 4);
  return header;
}

// ---- MBR ----------------------------------------------------------------------------------------

bool IsContainer(const MbrEntry& entry) {
  return entry.type == 5 || entry.type == 15;
}

Sector MakeBootRecord() {
  Sector record{};
  Put(record, 510, 0xAA55, 2);
  return record;
}

void PutMbrEntry(Sector& record, std::size_t place, const MbrEntry& entry) {
  const std::size_t offset = 446 + 16 * place;
  Put(record, offset, entry.active ? 0x80 : 0, 1);
  Put(record, offset + 1, 0xFFFFFE, 3);  // cylinder, head and sector of what lies too far out
  Put(record, offset + 4, entry.type, 1);
  Put(record, offset + 5, 0xFFFFFE, 3);
  Put(record, offset + 8, entry.first_sector, 4);
  Put(record, offset + 12, entry.sector_count, 4);
}

void WriteLogicals(simulator::Disk& disk, std::uint64_t base, const std::vector<MbrEntry>& logicals,
                   std::uint64_t gap) {
  std::uint64_t place = base;
  for (std::size_t i = 0; i < logicals.size(); ++i) {
    Sector record = MakeBootRecord();
    MbrEntry logical = logicals[i];
    logical.first_sector -= place;
    PutMbrEntry(record, 0, logical);
    const std::uint64_t own_place = place;
    if (i + 1 < logicals.size()) {
      place = logicals[i + 1].first_sector - gap;
      PutMbrEntry(record, 1, {5, place - base, gap + logicals[i + 1].sector_count, false});
    }
    WriteSector(disk, own_place, record);
  }
}

// What NTFS and FAT32 boot sectors share.
Sector MakeVolumeBootSector(std::uint64_t first_sector) {
  Sector sector = MakeBootRecord();
  Put(sector, 11, kSectorBytes, 2);
  Put(sector, 13, 8, 1);     // sectors in a cluster
  Put(sector, 21, 0xF8, 1);  // fixed medium
  Put(sector, 24, 63, 2);    // sectors in a track
  Put(sector, 26, 255, 2);   // heads
  Put(sector, 28, first_sector, 4);
  return sector;
}

}  // namespace

const GuidBytes kEfiSystemGuid = {0x28, 0x73, 0x2A, 0xC1, 0x1F, 0xF8, 0xD2, 0x11,
                                  0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B};
const GuidBytes kMicrosoftReservedGuid = {0x16, 0xE3, 0xC9, 0xE3, 0x5C, 0x0B, 0xB8, 0x4D,
                                          0x81, 0x7D, 0xF9, 0x2D, 0xF0, 0x02, 0x15, 0xAE};
const GuidBytes kBasicDataGuid = {0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44,
                                  0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7};
const GuidBytes kHiddenGuid = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
                               0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
const GuidBytes kRecoveryGuid = {0xA4, 0xBB, 0x94, 0xDE, 0xD1, 0x06, 0x40, 0x4D,
                                 0xA1, 0x6A, 0xBF, 0xD5, 0x01, 0x79, 0xD6, 0xAC};
const GuidBytes kLinuxGuid = {0xAF, 0x3D, 0xC6, 0x0F, 0x83, 0x84, 0x72, 0x47,
                              0x8E, 0x79, 0x3D, 0x69, 0xD8, 0x47, 0x7D, 0xE4};

void WriteBytes(simulator::Disk& disk, std::uint64_t offset, std::span<const std::byte> bytes) {
  if (!disk.device().Write(offset, bytes)) {
    throw std::runtime_error("cannot write at byte " + std::to_string(offset));
  }
}

std::vector<std::byte> ReadBytes(simulator::Disk& disk, std::uint64_t offset, std::size_t length) {
  std::vector<std::byte> bytes(length);
  if (!disk.device().Read(offset, bytes)) {
    throw std::runtime_error("cannot read at byte " + std::to_string(offset));
  }
  return bytes;
}

void WriteSector(simulator::Disk& disk, std::uint64_t lba, const Sector& sector) {
  WriteBytes(disk, lba * kSectorBytes, std::as_bytes(std::span(sector)));
}

Sector ReadSector(simulator::Disk& disk, std::uint64_t lba) {
  Sector sector{};
  const std::vector<std::byte> bytes = ReadBytes(disk, lba * kSectorBytes, kSectorBytes);
  std::memcpy(sector.data(), bytes.data(), kSectorBytes);
  return sector;
}

velkora::GptPartitionRow MakeGptRow(const GptEntry& entry) {
  velkora::GptPartitionRow row{};
  row.type_guid = entry.type;
  row.unique_guid.fill(entry.unique);
  row.first_sector = entry.first_sector;
  row.last_sector = entry.last_sector;
  return row;
}

void WriteGpt(simulator::Disk& disk, const std::vector<GptEntry>& entries) {
  const std::uint64_t sectors = SectorCount(disk);
  const EntryArray array = MakeEntryArray(entries);
  const std::uint64_t backup_array = sectors - 1 - kArraySectors;
  const std::uint32_t crc = Crc32(array);

  Sector protective = MakeBootRecord();
  PutMbrEntry(protective, 0, {0xEE, 1, std::min<std::uint64_t>(sectors - 1, 0xFFFFFFFF), false});
  Put(protective, 447, 0x000200, 3);  // the first sector behind this one
  WriteSector(disk, 0, protective);
  WriteSector(disk, 1, MakeGptHeader(1, sectors - 1, 2, sectors, crc));
  WriteBytes(disk, 2 * kSectorBytes, std::as_bytes(std::span(array)));
  WriteBytes(disk, backup_array * kSectorBytes, std::as_bytes(std::span(array)));
  WriteSector(disk, sectors - 1, MakeGptHeader(sectors - 1, 1, backup_array, sectors, crc));
}

void WriteMbr(simulator::Disk& disk, const std::vector<MbrEntry>& primaries,
              const std::vector<MbrEntry>& logicals, std::uint64_t gap, std::uint32_t signature) {
  if (primaries.size() > 4) throw std::invalid_argument("more than four primary entries");
  Sector record = MakeBootRecord();
  Put(record, 440, signature, 4);
  for (std::size_t i = 0; i < primaries.size(); ++i) PutMbrEntry(record, i, primaries[i]);
  WriteSector(disk, 0, record);
  if (logicals.empty()) return;
  const auto container = std::find_if(primaries.begin(), primaries.end(), IsContainer);
  if (container == primaries.end()) throw std::invalid_argument("logicals without a container");
  WriteLogicals(disk, container->first_sector, logicals, gap);
}

void WriteNtfsBootSector(simulator::Disk& disk, std::uint64_t first_sector,
                         std::uint64_t sector_count) {
  Sector sector = MakeVolumeBootSector(first_sector);
  Put(sector, 0, 0x9052EB, 3);
  PutText(sector, 3, "NTFS    ");
  Put(sector, 36, 0x00800080, 4);
  Put(sector, 40, sector_count, 8);
  Put(sector, 48, 4, 8);     // cluster of the file table
  Put(sector, 56, 2, 8);     // and of its mirror
  Put(sector, 64, 0xF6, 1);  // file records of 2^10 bytes
  Put(sector, 68, 1, 1);     // index records of one cluster
  Put(sector, 72, 0x1122334455667788, 8);
  WriteSector(disk, first_sector, sector);
}

void WriteFat32BootSector(simulator::Disk& disk, std::uint64_t first_sector,
                          std::uint32_t sector_count) {
  Sector sector = MakeVolumeBootSector(first_sector);
  Put(sector, 0, 0x9058EB, 3);
  PutText(sector, 3, "MSDOS5.0");
  Put(sector, 14, 32, 2);  // reserved sectors
  Put(sector, 16, 2, 1);   // FATs
  Put(sector, 32, sector_count, 4);
  Put(sector, 36, sector_count / 8 * 4 / kSectorBytes + 1, 4);
  Put(sector, 44, 2, 4);  // cluster of the root directory
  Put(sector, 48, 1, 2);  // FSInfo
  Put(sector, 50, 6, 2);  // second boot sector
  Put(sector, 64, 0x80, 1);
  Put(sector, 66, 0x29, 1);
  Put(sector, 67, 0x12345678, 4);
  PutText(sector, 71, "NO NAME    ");
  PutText(sector, 82, "FAT32   ");
  WriteSector(disk, first_sector, sector);
}

}  // namespace testing_support
