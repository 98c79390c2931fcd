// What both directions share: the state of a run, the table as the library and the system read it,
// shrinking.
#pragma once

#include <cstdint>
#include <vector>

#include "conversion/model/disk.h"

namespace model {

// A partition with absolute sectors.
struct Row {
  std::uint64_t first = 0;
  std::uint64_t count = 0;
  std::uint8_t type = 0;  // MBR only

  std::uint64_t end() const { return first + count; }
};

inline constexpr std::uint64_t kSector = 512;
inline constexpr std::uint64_t kMiB = 2048;  // in sectors

class Run {
 public:
  explicit Run(const Case& given);

  // Percentage, then status.
  void Report(int percent, int status);
  // Takes `mib` MiB off the end of the partition at the sector. False leaves the table as it was.
  bool Shrink(std::uint64_t first, std::uint64_t mib);
  // The partitions get their positions in the list as numbers.
  void NumberVolumes(const std::vector<Row>& rows);
  // A failure ends in a rollback, which leaves numbers and record as they are.
  Outcome End(bool succeeded);
  // The end of a run whose backup failed.
  Outcome Refuse();

  Case disk;
  Outcome outcome;

 private:
  void RollBack();
  Outcome Finish();
  bool ShrinkMbr(std::uint64_t first, std::uint64_t sectors);
  bool ShrinkGpt(std::uint64_t first, std::uint64_t sectors);

  Table before_;
};

bool IsContainer(const MbrEntry& entry);
void SortByFirst(std::vector<Row>& rows);

// The partitions in the order in which the library meets them.
std::vector<Row> ReadMbr(const Table& table);
// Without those that no MBR table takes over.
std::vector<Row> ReadKeptGpt(const Table& table);

// Whether the system accepts these as GPT partitions of a disk with so many sectors.
bool AreGptPlaces(std::vector<Row> rows, std::uint64_t sectors);

// Whether all that a backup reads lies on the disk.
bool CanBackUp(const Case& disk);

Outcome ConvertToMbr(const Case& before);
Outcome ConvertToGpt(const Case& before);

}  // namespace model
