#include "conversion/model/raw_table.h"

#include <cstring>
#include <iomanip>
#include <sstream>

#include "conversion/model/run.h"
#include "support/machine_fixture.h"

namespace model {
namespace {

using testing_support::Sector;

constexpr std::size_t kTableOffset = 446;
constexpr std::size_t kMbrEntryBytes = 16;
constexpr std::size_t kGptEntryBytes = 128;
constexpr std::size_t kGptEntries = 128;
constexpr std::uint8_t kProtectiveType = 0xEE;

template <typename Bytes>
std::uint64_t Number(const Bytes& bytes, std::size_t offset, std::size_t width) {
  std::uint64_t number = 0;
  for (std::size_t i = width; i-- > 0;) {
    number = number << 8 | static_cast<std::uint8_t>(bytes.at(offset + i));
  }
  return number;
}

void PutNumber(Sector& sector, std::size_t offset, std::uint64_t number, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    sector.at(offset + i) = static_cast<std::uint8_t>(number >> (8 * i));
  }
}

// ---- MBR ----------------------------------------------------------------------------------------

void WriteRecord(simulator::Disk& disk, const BootRecord& record) {
  Sector sector{};
  for (std::size_t i = 0; i < record.entries.size(); ++i) {
    const MbrEntry& entry = record.entries[i];
    const std::size_t offset = kTableOffset + i * kMbrEntryBytes;
    sector.at(offset) = entry.flag;
    sector.at(offset + 4) = entry.type;
    PutNumber(sector, offset + 8, entry.first, 4);
    PutNumber(sector, offset + 12, entry.count, 4);
  }
  if (record.sector == 0) PutNumber(sector, 440, 0x5EEDD15C, 4);
  PutNumber(sector, 510, 0xAA55, 2);
  testing_support::WriteSector(disk, record.sector, sector);
}

BootRecord DecodeRecord(std::uint64_t place, const Sector& sector) {
  BootRecord record{place, {}};
  for (std::size_t i = 0; i < record.entries.size(); ++i) {
    const std::size_t offset = kTableOffset + i * kMbrEntryBytes;
    record.entries[i] = {sector.at(offset), sector.at(offset + 4),
                         static_cast<std::uint32_t>(Number(sector, offset + 8, 4)),
                         static_cast<std::uint32_t>(Number(sector, offset + 12, 4))};
  }
  return record;
}

// No chain of these disks is longer than `kLongest`, so a loop shows as too many records.
void ReadChain(simulator::Disk& disk, Table& table) {
  constexpr std::size_t kLongest = 64;
  std::uint64_t base = 0;
  while (table.records.size() < kLongest) {
    const MbrEntry* link = nullptr;
    for (const MbrEntry& entry : table.records.back().entries) {
      if (IsContainer(entry)) link = &entry;
    }
    if (link == nullptr) return;
    const std::uint64_t next = base + link->first;
    if (base == 0) base = next;
    table.records.push_back(DecodeRecord(next, testing_support::ReadSector(disk, next)));
  }
}

// ---- GPT ----------------------------------------------------------------------------------------

void WriteGptTable(simulator::Disk& disk, const Table& table) {
  std::vector<testing_support::GptEntry> entries;
  std::uint8_t id = 0;
  for (const GptEntry& entry : table.entries) {
    ++id;
    entries.push_back({entry.type, entry.first, entry.last, entry.has_id ? id : std::uint8_t{0}});
  }
  testing_support::WriteGpt(disk, entries);
}

GptEntry DecodeGptEntry(const std::vector<std::byte>& bytes, std::size_t offset) {
  GptEntry entry;
  std::memcpy(entry.type.data(), &bytes.at(offset), entry.type.size());
  entry.has_id = Number(bytes, offset + 16, 8) != 0 || Number(bytes, offset + 24, 8) != 0;
  entry.first = Number(bytes, offset + 32, 8);
  entry.last = Number(bytes, offset + 40, 8);
  entry.attributes = Number(bytes, offset + 48, 8);
  for (std::size_t at = offset + 56; at < offset + kGptEntryBytes; at += 2) {
    const std::uint64_t unit = Number(bytes, at, 2);
    if (unit == 0) break;
    entry.name += unit < 0x80 ? static_cast<char>(unit) : '?';
  }
  return entry;
}

Table ReadGptTable(simulator::Disk& disk) {
  const Sector header = testing_support::ReadSector(disk, 1);
  const auto array = testing_support::ReadBytes(disk, Number(header, 72, 8) * kSector,
                                                kGptEntries * kGptEntryBytes);
  Table table{Style::kGpt, {}, {}};
  for (std::size_t i = 0; i < kGptEntries; ++i) {
    table.entries.push_back(DecodeGptEntry(array, i * kGptEntryBytes));
  }
  while (!table.entries.empty() && table.entries.back() == GptEntry{}) table.entries.pop_back();
  return table;
}

// ---- Text ---------------------------------------------------------------------------------------

std::string DescribeMbr(const BootRecord& record, const MbrEntry& entry) {
  std::ostringstream text;
  text << "record " << record.sector << ": type " << int{entry.type} << " first " << entry.first
       << " count " << entry.count << " flag " << int{entry.flag};
  return text.str();
}

std::string DescribeGpt(const GptEntry& entry) {
  std::ostringstream text;
  text << "type " << std::hex << std::setfill('0');
  for (const std::uint8_t byte : entry.type) text << std::setw(2) << int{byte};
  text << std::dec << " first " << entry.first << " last " << entry.last << " attributes "
       << entry.attributes << " id " << entry.has_id << " name " << entry.name;
  return text.str();
}

}  // namespace

void WriteTable(simulator::Disk& disk, const Table& table) {
  for (const BootRecord& record : table.records) WriteRecord(disk, record);
  if (table.style == Style::kGpt) WriteGptTable(disk, table);
}

Table ReadTable(simulator::Disk& disk) {
  const Sector master = testing_support::ReadSector(disk, 0);
  if (Number(master, 510, 2) != 0xAA55) return {};
  Table table{Style::kMbr, {DecodeRecord(0, master)}, {}};
  if (table.records.front().entries[0].type == kProtectiveType) return ReadGptTable(disk);
  ReadChain(disk, table);
  return table;
}

std::vector<std::string> Describe(const Table& table) {
  std::vector<std::string> lines;
  lines.emplace_back(table.style == Style::kGpt   ? "gpt"
                     : table.style == Style::kMbr ? "mbr"
                                                  : "raw");
  for (const BootRecord& record : table.records) {
    lines.push_back("record " + std::to_string(record.sector));
    for (const MbrEntry& entry : record.entries) lines.push_back(DescribeMbr(record, entry));
  }
  for (const GptEntry& entry : table.entries) lines.push_back(DescribeGpt(entry));
  return lines;
}

}  // namespace model
