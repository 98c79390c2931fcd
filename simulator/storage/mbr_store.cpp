#include "simulator/storage/mbr_store.h"

#include <algorithm>
#include <array>
#include <limits>
#include <span>
#include <unordered_set>
#include <vector>

#include "simulator/storage/sector_io.h"

namespace simulator {
namespace {

// The geometry that every disk is taken to have.
constexpr std::uint64_t kHeads = 255;
constexpr std::uint64_t kSectorsPerTrack = 63;
constexpr std::uint64_t kLastCylinder = 1023;

constexpr std::uint64_t kMaxUint32 = std::numeric_limits<std::uint32_t>::max();

// A table and the sector that it lies in.
struct Table {
  std::uint64_t sector;
  BootRecord record;
};

const MbrEntry* FindContainer(const BootRecord& record) {
  const auto entry = std::find_if(record.entries.begin(), record.entries.end(),
                                  [](const MbrEntry& e) { return IsContainerType(e.type); });
  return entry == record.entries.end() ? nullptr : &*entry;
}

bool HasTwoContainers(const BootRecord& record) {
  return std::count_if(record.entries.begin(), record.entries.end(),
                       [](const MbrEntry& e) { return IsContainerType(e.type); }) > 1;
}

// ---- Reading ------------------------------------------------------------------------------------

// Gives the tables of the chain in order, and the sector of the first extended partition.
DWORD ReadChain(BlockDevice& device, const BootRecord& master, std::vector<Table>& tables,
                std::uint64_t& extended_base) {
  tables = {{0, master}};
  extended_base = 0;
  std::unordered_set<std::uint64_t> seen = {0};
  std::vector<std::byte> sector(device.sector_size());
  while (const MbrEntry* container = FindContainer(tables.back().record)) {
    const std::uint64_t next = extended_base + container->first_sector;
    if (tables.size() == 1) extended_base = next;
    if (!seen.insert(next).second) break;
    const DWORD error = ReadSectors(device, next, sector);
    if (error != ERROR_SUCCESS) return error;
    const auto record = Load<BootRecord>(sector);
    if (record.boot_signature != kBootSignature || HasTwoContainers(record)) break;
    tables.push_back({next, record});
  }
  return ERROR_SUCCESS;
}

// The identity of an MBR partition (believed): the disk signature, and the byte offset in the last
// eight bytes, little-endian.
GUID MbrPartitionId(std::uint32_t signature, std::uint64_t offset) {
  GUID id{};
  id.Data1 = signature;
  for (unsigned i = 0; i < 8; ++i) id.Data4[i] = static_cast<BYTE>(offset >> (8 * i));
  return id;
}

PARTITION_INFORMATION_EX DecodeRow(const MbrEntry& entry, std::uint64_t origin,
                                   std::uint32_t sector_size, std::uint32_t signature) {
  auto row = PARTITION_INFORMATION_EX();
  row.PartitionStyle = PARTITION_STYLE_MBR;
  if (entry.type == kTypeUnused) return row;
  const std::uint64_t offset = (origin + entry.first_sector) * sector_size;
  row.StartingOffset.QuadPart = static_cast<LONGLONG>(offset);
  row.PartitionLength.QuadPart =
      static_cast<LONGLONG>(std::uint64_t{entry.sector_count} * sector_size);
  row.Mbr.PartitionType = entry.type;
  row.Mbr.BootIndicator = (entry.flag & kActiveFlag) != 0 ? 1 : 0;
  row.Mbr.RecognizedPartition = IsContainerType(entry.type) ? 0 : 1;
  row.Mbr.HiddenSectors = entry.first_sector;
  row.Mbr.PartitionId = MbrPartitionId(signature, offset);
  return row;
}

// Unused rows and containers have number 0, the others count from 1 in row order.
void NumberRows(std::span<PARTITION_INFORMATION_EX> rows) {
  DWORD next = 1;
  for (PARTITION_INFORMATION_EX& row : rows) {
    const BYTE type = row.Mbr.PartitionType;
    row.PartitionNumber = type == kTypeUnused || IsContainerType(type) ? 0 : next++;
  }
}

// ---- Writing ------------------------------------------------------------------------------------

// Four rows, the sector that holds their table, and the entries of the rows to be rewritten.
struct Group {
  std::span<const PARTITION_INFORMATION_EX> rows;
  std::uint64_t sector;
  std::array<MbrEntry, kTableEntries> entries;
};

std::uint64_t StartSector(const PARTITION_INFORMATION_EX& row, std::uint32_t sector_size) {
  return static_cast<std::uint64_t>(row.StartingOffset.QuadPart) / sector_size;
}

std::uint64_t LengthInSectors(const PARTITION_INFORMATION_EX& row, std::uint32_t sector_size) {
  return static_cast<std::uint64_t>(row.PartitionLength.QuadPart) / sector_size;
}

// The last container of a group names the place of the next one. 0 when there is none.
std::uint64_t NextTableSector(std::span<const PARTITION_INFORMATION_EX> rows,
                              std::uint32_t sector_size) {
  std::uint64_t sector = 0;
  for (const PARTITION_INFORMATION_EX& row : rows) {
    if (IsContainerType(row.Mbr.PartitionType)) sector = StartSector(row, sector_size);
  }
  return sector;
}

// Believed: a row count that is no multiple of four, and a group that no container leads to, are
// refused. A table behind the first one must never land on sector 0.
bool MakeGroups(std::span<const PARTITION_INFORMATION_EX> rows, std::uint32_t sector_size,
                std::vector<Group>& groups) {
  if (rows.empty() || rows.size() % kTableEntries != 0) return false;
  std::uint64_t sector = 0;
  for (std::size_t first = 0; first < rows.size(); first += kTableEntries) {
    if (first != 0 && sector == 0) return false;
    const auto group = rows.subspan(first, kTableEntries);
    groups.push_back({group, sector, {}});
    sector = NextTableSector(group, sector_size);
  }
  return true;
}

// The cylinder is capped; head and sector go on as if it were not.
Chs MakeChs(std::uint64_t sector) {
  const std::uint64_t cylinder = std::min(sector / (kHeads * kSectorsPerTrack), kLastCylinder);
  const std::uint64_t head = sector / kSectorsPerTrack % kHeads;
  const std::uint64_t sector_in_track = sector % kSectorsPerTrack + 1;
  return {static_cast<std::uint8_t>(head),
          static_cast<std::uint8_t>(sector_in_track | (cylinder >> 8) << 6),
          static_cast<std::uint8_t>(cylinder & 0xFF)};
}

// `origin` is the sector that the entry's start counts from. Believed: values that do not fit
// 32 bits are refused (and so is a start before `origin`), unless they are to be cut.
bool EncodeRow(const PARTITION_INFORMATION_EX& row, std::uint64_t origin, std::uint32_t sector_size,
               const StoreSwitches& switches, MbrEntry& entry) {
  entry = {};
  entry.flag = row.Mbr.BootIndicator != 0 ? kActiveFlag : 0;
  entry.type = row.Mbr.PartitionType;
  if (entry.type == kTypeUnused) return true;
  const std::uint64_t start = StartSector(row, sector_size);
  const std::uint64_t length = LengthInSectors(row, sector_size);
  const std::uint64_t relative = start - origin;
  const bool fits = relative <= kMaxUint32 && length <= kMaxUint32;
  if (!fits && !switches.truncate_mbr_values) return false;
  entry.first_sector = static_cast<std::uint32_t>(relative);
  entry.sector_count = static_cast<std::uint32_t>(length);
  entry.first_chs = MakeChs(start);
  entry.last_chs = MakeChs(length == 0 ? start : start + length - 1);
  return true;
}

bool HasRewrittenRow(const Group& group) {
  return std::any_of(group.rows.begin(), group.rows.end(),
                     [](const auto& row) { return row.RewritePartition != 0; });
}

// Encodes the rows to be rewritten. Sector 0 counts from the start of the disk, links from the
// first extended partition, logical partitions from their own boot record.
bool EncodeGroup(Group& group, std::uint64_t extended_base, std::uint32_t sector_size,
                 const StoreSwitches& switches) {
  for (std::size_t i = 0; i < kTableEntries; ++i) {
    const PARTITION_INFORMATION_EX& row = group.rows[i];
    if (row.RewritePartition == 0) continue;
    const bool is_link = group.sector != 0 && IsContainerType(row.Mbr.PartitionType);
    const std::uint64_t origin = is_link ? extended_base : group.sector;
    if (!EncodeRow(row, origin, sector_size, switches, group.entries[i])) return false;
  }
  return true;
}

// Reads the group's sector, replaces what changes and writes it back. Bytes outside the table, and
// the entries of rows that are not rewritten, stay as they are.
DWORD WriteGroup(BlockDevice& device, const Group& group, DWORD signature) {
  const bool is_master = group.sector == 0;
  const bool is_rewritten = HasRewrittenRow(group);
  if (!is_master && !is_rewritten) return ERROR_SUCCESS;
  std::vector<std::byte> sector(device.sector_size());
  const DWORD error = ReadSectors(device, group.sector, sector);
  if (error != ERROR_SUCCESS) return error;
  auto record = Load<BootRecord>(sector);
  if (!is_rewritten && record.disk_signature == signature) return ERROR_SUCCESS;
  if (is_master) record.disk_signature = signature;
  for (std::size_t i = 0; i < kTableEntries; ++i) {
    if (group.rows[i].RewritePartition != 0) record.entries[i] = group.entries[i];
  }
  record.boot_signature = kBootSignature;
  Store(record, sector);
  return WriteSectors(device, group.sector, sector);
}

}  // namespace

bool IsMasterBootRecord(const BootRecord& record, std::uint64_t sector_count) {
  if (record.boot_signature != kBootSignature || HasTwoContainers(record)) return false;
  return std::all_of(record.entries.begin(), record.entries.end(), [&](const MbrEntry& entry) {
    if (entry.type == kTypeUnused) return true;
    const std::uint64_t start = entry.first_sector;
    return start <= sector_count && start + entry.sector_count <= 2 * sector_count;
  });
}

DWORD ReadMbrLayout(BlockDevice& device, const BootRecord& master, DiskLayout& layout) {
  std::vector<Table> tables;
  std::uint64_t extended_base = 0;
  const DWORD error = ReadChain(device, master, tables, extended_base);
  if (error != ERROR_SUCCESS) return error;
  layout = {};
  for (const Table& table : tables) {
    for (const MbrEntry& entry : table.record.entries) {
      const bool is_link = table.sector != 0 && IsContainerType(entry.type);
      layout.rows.push_back(DecodeRow(entry, is_link ? extended_base : table.sector,
                                      device.sector_size(), master.disk_signature));
    }
  }
  NumberRows(layout.rows);
  layout.header.PartitionStyle = PARTITION_STYLE_MBR;
  layout.header.PartitionCount = static_cast<DWORD>(layout.rows.size());
  layout.header.Mbr.Signature = master.disk_signature;
  return ERROR_SUCCESS;
}

DWORD CreateMbr(BlockDevice& device, DWORD signature) {
  std::vector<std::byte> sector(device.sector_size());
  const DWORD error = ReadSectors(device, 0, sector);
  if (error != ERROR_SUCCESS) return error;
  auto record = Load<BootRecord>(sector);
  record.disk_signature = signature;
  record.entries = {};
  record.boot_signature = kBootSignature;
  Store(record, sector);
  return WriteSectors(device, 0, sector);
}

DWORD WriteMbrLayout(BlockDevice& device, DiskLayout& layout, const StoreSwitches& switches) {
  const std::uint32_t sector_size = device.sector_size();
  std::vector<Group> groups;
  if (!MakeGroups(layout.rows, sector_size, groups)) return ERROR_INVALID_PARAMETER;
  const std::uint64_t extended_base =
      NextTableSector(std::span(layout.rows).first(kTableEntries), sector_size);
  for (Group& group : groups) {
    if (!EncodeGroup(group, extended_base, sector_size, switches)) return ERROR_INVALID_PARAMETER;
  }
  for (const Group& group : groups) {
    const DWORD error = WriteGroup(device, group, layout.header.Mbr.Signature);
    if (error != ERROR_SUCCESS) return error;
  }
  NumberRows(layout.rows);
  return ERROR_SUCCESS;
}

}  // namespace simulator
