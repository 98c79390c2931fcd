// The ground of every test that runs the library on a simulated machine.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/simulated_machine.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace velkora {
struct GptPartitionRow;
}  // namespace velkora

namespace testing_support {

struct LogLine {
  int level = 0;
  std::string text;
  bool operator==(const LogLine&) const = default;
};
void PrintTo(const LogLine& line, std::ostream* out);

using Log = std::vector<LogLine>;
using Texts = std::vector<std::string>;

// (kind, value) as the callback gets them.
using Event = std::pair<int, int>;

// Puts what outlives a test in the process back to its start: stop flag, system flag, logs folder,
// dump flag, the log.
void ResetProcessState();

// A current machine with a temporary folder as drive X, the logs folder X:\logs, and everything
// that the library says captured. No file is written for the log.
class MachineTest : public ::testing::Test {
 protected:
  MachineTest();
  ~MachineTest() override;

  // A sparse image in the temporary folder.
  std::filesystem::path NewImage(std::string_view name, std::uint64_t size);
  // The same, attached as disk `number`.
  simulator::Disk& NewDisk(std::uint32_t number, std::uint64_t size);

  // Path on the host of a file in the logs folder, and its bytes ("" if there is none).
  std::filesystem::path LogsFile(std::string_view name) const;
  std::string LogsFileText(std::string_view name) const;

  // Lines of a level, in order; all lines as "level text".
  std::vector<std::string> Lines(int level) const;
  std::vector<std::string> AllLines() const;

  TempFolder folder_;
  std::filesystem::path logs_folder_;  // on the host; X:\logs on the machine
  simulator::SimulatedMachine machine_;
  std::vector<LogLine> log_;
  std::vector<std::string> scripts_;      // as diskpart was given them
  std::vector<std::string> shell_lines_;  // "system: line" or "elevated: line"
};

// The callback to hand to Convert, and what it was called with since the last test began. `hook`,
// if set, runs after each event is noted (to stop, or to look at the disk in between).
std::int32_t RecordEvent(std::int32_t kind, std::int32_t value);
std::vector<Event>& Events();
std::function<void(Event)>& EventHook();

// ---- Bytes on a disk, written without the library or the machine's table code -------------------

// Writes `bytes` at a byte offset of the image; aborts the test if that fails.
void WriteBytes(simulator::Disk& disk, std::uint64_t offset, std::span<const std::byte> bytes);
std::vector<std::byte> ReadBytes(simulator::Disk& disk, std::uint64_t offset, std::size_t length);

using Sector = std::array<std::uint8_t, 512>;
void WriteSector(simulator::Disk& disk, std::uint64_t lba, const Sector& sector);
Sector ReadSector(simulator::Disk& disk, std::uint64_t lba);

// Type GUIDs in on-disk byte order.
using GuidBytes = std::array<std::uint8_t, 16>;
extern const GuidBytes kEfiSystemGuid;
extern const GuidBytes kMicrosoftReservedGuid;
extern const GuidBytes kBasicDataGuid;
extern const GuidBytes kHiddenGuid;
extern const GuidBytes kRecoveryGuid;
extern const GuidBytes kLinuxGuid;

struct GptEntry {
  GuidBytes type = {};
  std::uint64_t first_sector = 0;
  std::uint64_t last_sector = 0;
  std::uint8_t unique = 0;  // fills the unique GUID; 0 leaves it all zero
};
// A row as the library reads it.
velkora::GptPartitionRow MakeGptRow(const GptEntry& entry);
// A whole GPT with checksums: protective MBR, both headers, both arrays of 128 entries, in the
// order given. An entry with unique 0 is an empty slot.
void WriteGpt(simulator::Disk& disk, const std::vector<GptEntry>& entries);

struct MbrEntry {
  std::uint8_t type = 7;
  std::uint64_t first_sector = 0;
  std::uint64_t sector_count = 0;
  bool active = false;
};
// A whole MBR: boot signature, up to four primaries as given (a container of type 5 or 15 among
// them), and for the logicals a chain of boot records: the first at the container's start, each
// other one `gap` sectors in front of its logical.
void WriteMbr(simulator::Disk& disk, const std::vector<MbrEntry>& primaries,
              const std::vector<MbrEntry>& logicals = {}, std::uint64_t gap = 2048,
              std::uint32_t signature = 0x1A2B3C4D);

// Makes the range look like an empty NTFS (or FAT32) volume to the machine: a boot sector with the
// right marks and the total sector count; nothing else of a file system.
void WriteNtfsBootSector(simulator::Disk& disk, std::uint64_t first_sector,
                         std::uint64_t sector_count);
void WriteFat32BootSector(simulator::Disk& disk, std::uint64_t first_sector,
                          std::uint32_t sector_count);

}  // namespace testing_support
