#include "apps/velkora_image/table_checks.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "apps/velkora_image/input_error.h"
#include "simulator/storage/on_disk.h"

namespace velkora_image {
namespace {

using simulator::BootRecord;
using simulator::DiskGuid;
using simulator::GptEntry;
using simulator::GptHeader;

constexpr std::uint64_t kSectorBytes = 512;
// What the backup takes for the table of every GPT disk.
constexpr std::uint64_t kArraySector = 2;
constexpr std::uint64_t kEntryCount = 128;

class TableChecks {
 public:
  TableChecks(simulator::BlockDevice& device, const DiskView& view)
      : device_(device), view_(view) {}

  // Without a sound sector 0 the backup holds nothing but that sector, and an undone conversion
  // leaves the disk empty.
  void CheckBootRecord() {
    const auto record = Read<BootRecord>(0);
    if (record.boot_signature != simulator::kBootSignature) {
      if (!HasGptHeader()) return;  // no table at all
      Refuse("sector 0, signature: " + Hex(record.boot_signature, 4) +
             " is not 0xAA55, in front of a GPT");
    }
    const std::uint8_t flag = record.entries[0].flag;
    if (flag != 0 && flag != simulator::kActiveFlag) {
      Refuse("sector 0, boot flag of the first row: " + Hex(flag, 2) + " is neither 0x00 nor 0x80");
    }
    if (view_.style == "mbr" && record.entries[0].type == simulator::kTypeProtective) {
      Refuse("sector 0, type of the first row: 0xEE is that of a GPT disk");
    }
  }

  // The backup takes the table at the usual place and of the usual size, and a rollback writes its
  // second copy to where AlternateLBA points.
  void CheckGptHeader() {
    if (!HasGptHeader()) Refuse("sector 1, signature: not that of a GPT header");
    const auto header = Read<GptHeader>(1);
    CheckField("PartitionEntryLBA", header.array_sector, kArraySector);
    CheckField("NumberOfPartitionEntries", header.entry_count, kEntryCount);
    CheckField("SizeOfPartitionEntry", header.entry_size, sizeof(GptEntry));
    const std::uint64_t last = device_.sector_count() - 1;
    if (header.alternate_sector != last) {
      Refuse("GPT header, AlternateLBA: " + std::to_string(header.alternate_sector) +
             " is not the disk's last sector, " + std::to_string(last));
    }
  }

  // The library's list of partitions ends at the first entry without a unique GUID, and the
  // backup's at the first one without a type.
  void CheckGptEntries() {
    const auto entries = Read<std::array<GptEntry, kEntryCount>>(kArraySector);
    std::size_t end = 0;  // number of the first empty entry
    for (std::size_t number = 1; number <= entries.size(); ++number) {
      const GptEntry& entry = entries[number - 1];
      const std::string name = "GPT entry " + std::to_string(number);
      const bool has_type = !IsZero(entry.type);
      const bool has_id = !IsZero(entry.id);
      if (has_type && !has_id) Refuse(name + ", unique GUID: all zero, though there is a type");
      if (!has_type && has_id)
        Refuse(name + ", type GUID: all zero, though there is a unique GUID");
      if (has_type && end != 0) {
        Refuse(name + ": in use behind entry " + std::to_string(end) + ", which is empty");
      }
      if (!has_type && end == 0) end = number;
    }
  }

  // The place of the EFI system partition comes from the ends of the others, counted in 32 bits.
  void CheckEnds() {
    constexpr std::uint64_t kTwoTib = std::uint64_t{1} << 32;  // sectors
    for (const PartitionView& partition : view_.partitions) {
      const std::uint64_t end = (partition.start + partition.length) / kSectorBytes;
      if (end < kTwoTib) continue;
      Refuse(PartitionName(partition) + ": its end, sector " + std::to_string(end) +
             ", is not below 2 TiB, as it must be on a system disk");
    }
  }

 private:
  [[noreturn]] void Refuse(const std::string& reason) const {
    throw InputError(device_.image().string() + ": " + reason);
  }

  template <typename T>
  T Read(std::uint64_t sector) const {
    std::vector<std::byte> bytes((sizeof(T) + kSectorBytes - 1) / kSectorBytes * kSectorBytes);
    if (!device_.Read(sector * kSectorBytes, bytes)) {
      Refuse("sector " + std::to_string(sector) + ": cannot be read");
    }
    return simulator::Load<T>(bytes);
  }

  bool HasGptHeader() const {
    return device_.sector_count() > 1 && Read<GptHeader>(1).signature == simulator::kGptSignature;
  }

  void CheckField(const char* name, std::uint64_t value, std::uint64_t expected) const {
    if (value == expected) return;
    Refuse(std::string("GPT header, ") + name + ": " + std::to_string(value) + " is not " +
           std::to_string(expected));
  }

  static bool IsZero(const DiskGuid& guid) {
    constexpr DiskGuid kZero = {};
    return std::memcmp(&guid, &kZero, sizeof guid) == 0;
  }

  static std::string Hex(unsigned value, int digits) {
    char text[12];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
  }

  simulator::BlockDevice& device_;
  const DiskView& view_;
};

}  // namespace

void CheckTable(simulator::BlockDevice& device, const DiskView& view, bool is_system) {
  TableChecks checks(device, view);
  checks.CheckBootRecord();
  if (view.style == "gpt") {
    checks.CheckGptHeader();
    checks.CheckGptEntries();
  } else if (is_system) {
    checks.CheckEnds();
  }
}

}  // namespace velkora_image
