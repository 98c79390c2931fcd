#include "simulator/storage/gpt_table.h"

#include <cassert>
#include <cstring>
#include <zlib.h>

#include "simulator/storage/sector_io.h"

namespace simulator {
namespace {

std::uint32_t Crc32(std::span<const std::byte> bytes) {
  const auto* data = reinterpret_cast<const Bytef*>(bytes.data());
  return static_cast<std::uint32_t>(crc32_z(0, data, bytes.size()));
}

// `sector` holds a header whose size is `header_size`; its own checksum counts as zero.
std::uint32_t HeaderCrc(std::vector<std::byte> sector, std::uint32_t header_size) {
  auto header = Load<GptHeader>(sector);
  header.header_crc = 0;
  Store(header, sector);
  return Crc32(std::span(sector).first(header_size));
}

// ---- Reading ------------------------------------------------------------------------------------

bool ReadHeader(BlockDevice& device, std::uint64_t own_sector, GptHeader& header) {
  std::vector<std::byte> sector(device.sector_size());
  if (ReadSectors(device, own_sector, sector) != ERROR_SUCCESS) return false;
  header = Load<GptHeader>(sector);
  if (header.signature != kGptSignature || header.own_sector != own_sector) return false;
  if (header.header_size < sizeof(GptHeader) || header.header_size > sector.size()) return false;
  return HeaderCrc(sector, header.header_size) == header.header_crc;
}

// Entries may lie further apart than 128 bytes; what lies behind each is not looked at.
bool ReadEntries(BlockDevice& device, const GptHeader& header, std::vector<GptEntry>& entries) {
  const std::uint64_t count = header.entry_count;
  const std::uint64_t stride = header.entry_size;
  if (count == 0 || count > kMaxGptEntries) return false;
  if (stride < sizeof(GptEntry) || stride > device.sector_size() || stride % 8 != 0) return false;
  const std::uint64_t sector_size = device.sector_size();
  const std::uint64_t sectors = (count * stride + sector_size - 1) / sector_size;
  if (sectors > device.sector_count()) return false;
  std::vector<std::byte> array(static_cast<std::size_t>(sectors * sector_size));
  if (ReadSectors(device, header.array_sector, array) != ERROR_SUCCESS) return false;
  const auto used = std::span(array).first(static_cast<std::size_t>(count * stride));
  if (Crc32(used) != header.array_crc) return false;
  entries.clear();
  for (std::uint64_t i = 0; i < count; ++i) {
    entries.push_back(Load<GptEntry>(used.subspan(static_cast<std::size_t>(i * stride))));
  }
  return true;
}

bool ReadTable(BlockDevice& device, std::uint64_t own_sector, GptTable& table) {
  return ReadHeader(device, own_sector, table.header) &&
         ReadEntries(device, table.header, table.entries);
}

// ---- Writing ------------------------------------------------------------------------------------

std::uint64_t ArraySectors(const BlockDevice& device, std::uint32_t entry_count) {
  const std::uint64_t bytes = std::uint64_t{entry_count} * sizeof(GptEntry);
  return (bytes + device.sector_size() - 1) / device.sector_size();
}

DWORD WriteHeader(BlockDevice& device, const GptHeader& header) {
  std::vector<std::byte> sector(device.sector_size());
  Store(header, sector);
  GptHeader complete = header;
  complete.header_crc = HeaderCrc(sector, header.header_size);
  Store(complete, sector);
  return WriteSectors(device, header.own_sector, sector);
}

}  // namespace

GptPlaces PlaceGpt(const BlockDevice& device, std::uint32_t entry_count) {
  assert(HasRoomForGpt(device, entry_count));
  const std::uint64_t array_sectors = ArraySectors(device, entry_count);
  const std::uint64_t backup_header = device.sector_count() - 1;
  const std::uint64_t backup_array = backup_header - array_sectors;
  return {array_sectors, kGptPrimaryArraySector + array_sectors, backup_array - 1, backup_array,
          backup_header};
}

bool HasRoomForGpt(const BlockDevice& device, std::uint32_t entry_count) {
  constexpr std::uint64_t kOtherSectors = 4;  // protective record, two headers, one usable sector
  return entry_count <= kMaxGptEntries &&
         device.sector_count() >= 2 * ArraySectors(device, entry_count) + kOtherSectors;
}

bool FindGptTable(BlockDevice& device, GptTable& table) {
  return ReadTable(device, kGptPrimaryHeaderSector, table) ||
         ReadTable(device, device.sector_count() - 1, table);
}

DWORD WriteGptTables(BlockDevice& device, const DiskGuid& disk_id, std::uint32_t entry_count,
                     std::span<const GptEntry> entries) {
  assert(entries.size() <= entry_count);
  const GptPlaces places = PlaceGpt(device, entry_count);
  std::vector<std::byte> array(
      static_cast<std::size_t>(places.array_sectors * device.sector_size()));
  if (!entries.empty()) std::memcpy(array.data(), entries.data(), entries.size_bytes());

  GptHeader primary{};
  primary.signature = kGptSignature;
  primary.revision = kGptRevision;
  primary.header_size = sizeof(GptHeader);
  primary.own_sector = kGptPrimaryHeaderSector;
  primary.alternate_sector = places.backup_header;
  primary.first_usable_sector = places.first_usable;
  primary.last_usable_sector = places.last_usable;
  primary.disk_id = disk_id;
  primary.array_sector = kGptPrimaryArraySector;
  primary.entry_count = entry_count;
  primary.entry_size = sizeof(GptEntry);
  primary.array_crc = Crc32(std::span(array).first(entry_count * sizeof(GptEntry)));

  GptHeader backup = primary;
  backup.own_sector = places.backup_header;
  backup.alternate_sector = kGptPrimaryHeaderSector;
  backup.array_sector = places.backup_array;

  for (const GptHeader& header : {primary, backup}) {
    DWORD error = WriteSectors(device, header.array_sector, array);
    if (error == ERROR_SUCCESS) error = WriteHeader(device, header);
    if (error != ERROR_SUCCESS) return error;
  }
  return ERROR_SUCCESS;
}

}  // namespace simulator
