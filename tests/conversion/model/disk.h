// A disk, its record and what a conversion should make of them, as plain values. The model shares
// no code with the library: it is a second telling of the same behaviour.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace model {

enum class Style { kRaw, kMbr, kGpt };

struct MbrEntry {
  std::uint8_t flag = 0;  // 0x80: active
  std::uint8_t type = 0;
  std::uint32_t first = 0;  // as on the disk: relative to what the entry counts from
  std::uint32_t count = 0;
  bool operator==(const MbrEntry&) const = default;
};

// The master boot record (sector 0) or an extended one.
struct BootRecord {
  std::uint64_t sector = 0;
  std::array<MbrEntry, 4> entries = {};
  bool operator==(const BootRecord&) const = default;
};

// Type GUIDs as they lie on the disk.
using Guid = std::array<std::uint8_t, 16>;

struct GptEntry {
  Guid type = {};
  bool has_id = false;  // an entry without an id of its own ends the list for the library
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  std::uint64_t attributes = 0;
  std::string name;
  bool operator==(const GptEntry&) const = default;
};

struct Table {
  Style style = Style::kRaw;
  std::vector<BootRecord> records;  // MBR: sector 0, then the chain
  std::vector<GptEntry> entries;    // GPT: up to the last one that is not all zero
  bool operator==(const Table&) const = default;
};

// A volume of the caller's record.
struct Volume {
  std::uint64_t offset = 0;  // bytes
  bool ntfs = false;
  bool system = false;
  bool has_letter = false;
  bool reachable = true;  // its path opens
  unsigned number = 0;
};

struct Case {
  Table table;
  std::uint64_t sectors = 0;  // of 512 bytes; the record's size says the same
  bool system_disk = false;
  std::vector<std::uint64_t> ntfs_starts;  // sectors with an NTFS boot sector
  std::vector<Volume> volumes;
};

using Event = std::pair<int, int>;

struct Outcome {
  int result = 1;
  std::vector<Event> events;
  Table table;
  std::uint64_t record_size = 0;  // bytes
  std::vector<unsigned> numbers;  // of the record's volumes, in their order
};

// Converts to the other style. An MBR system disk has at least one partition.
Outcome Convert(const Case& before);

// Which number the system gives to the partition at each byte offset, in its order.
std::vector<std::pair<std::uint64_t, unsigned>> SystemNumbers(const Table& table);

extern const Guid kEfiSystem;
extern const Guid kMicrosoftReserved;
extern const Guid kBasicData;
extern const Guid kHidden;

}  // namespace model
