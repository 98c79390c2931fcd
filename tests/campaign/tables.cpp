#include "campaign/tables.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace campaign {
namespace {

constexpr std::uint64_t kSector = 512;
constexpr std::uint64_t kGptArray = 1024;
constexpr std::size_t kGptEntry = 128;
constexpr std::size_t kGptEntries = 128;
constexpr std::size_t kMbrEntries = 446;
constexpr std::size_t kMbrEntry = 16;

// C12A7328-F81F-11D2-BA4B-00A0C93EC93B as the disk holds it.
constexpr std::array<unsigned char, 16> kEfiSystem = {
    0x28, 0x73, 0x2A, 0xC1, 0x1F, 0xF8, 0xD2, 0x11, 0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B};

// Where the entry of type 5 or 15 leads, counted from the record or from the first one; 0 for none.
std::uint64_t LinkOf(const Bytes& record) {
  for (std::size_t slot = 0; slot < 4; ++slot) {
    const std::size_t entry = kMbrEntries + kMbrEntry * slot;
    const std::uint64_t type = LoadLittleEndian(record, entry + 4, 1);
    if (type == 5 || type == 15) return LoadLittleEndian(record, entry + 8, 4);
  }
  return 0;
}

}  // namespace

std::vector<GptRange> ReadGpt(simulator::BlockDevice& disk) {
  const Bytes array = ReadBytes(disk, kGptArray, kGptEntry * kGptEntries);
  std::vector<GptRange> ranges;
  for (std::size_t at = 0; at < array.size(); at += kGptEntry) {
    const std::span<const std::byte> type(array.data() + at, 16);
    if (std::all_of(type.begin(), type.end(), [](std::byte b) { return b == std::byte{0}; })) {
      continue;
    }
    const bool efi =
        std::equal(type.begin(), type.end(), std::as_bytes(std::span(kEfiSystem)).begin());
    ranges.push_back(
        {LoadLittleEndian(array, at + 32, 8), LoadLittleEndian(array, at + 40, 8), efi});
  }
  return ranges;
}

std::vector<std::uint64_t> ReadBootRecordChain(simulator::BlockDevice& disk) {
  std::vector<std::uint64_t> records;
  const std::uint64_t base = LinkOf(ReadBytes(disk, 0, kSector));
  for (std::uint64_t next = base; next != 0;) {
    records.push_back(next);
    const std::uint64_t link = LinkOf(ReadBytes(disk, next * kSector, kSector));
    next = link == 0 ? 0 : base + link;
  }
  return records;
}

std::uint64_t MftOffset(simulator::BlockDevice& disk, std::uint64_t offset) {
  const Bytes boot = ReadBytes(disk, offset, kSector);
  constexpr std::string_view kNtfs = "NTFS";
  const auto name = std::as_bytes(std::span(kNtfs));
  if (!std::equal(name.begin(), name.end(), boot.begin() + 3)) return 0;
  const std::uint64_t cluster = LoadLittleEndian(boot, 11, 2) * LoadLittleEndian(boot, 13, 1);
  return offset + LoadLittleEndian(boot, 48, 8) * cluster;
}

}  // namespace campaign
