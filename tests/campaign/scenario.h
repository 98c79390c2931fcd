// The disks of the fault campaign and how each is converted.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>

#include "conversion/gpt_disk.h"

namespace campaign {

enum class Direction { kGptToMbr, kMbrToGpt };

struct Scenario {
  std::string name;
  Direction direction = Direction::kGptToMbr;
  // The volume that the machine runs from; none on a data disk.
  std::optional<conversion::Partition> system;
  // Of the rows that are kept, in their order. From C on they are those that the system gives by
  // itself to the rows of a new table, so that boot repair does not hang on the letters' return.
  char first_letter = 'M';
  // Runs of `detail volume` that fail after a change of the layout.
  std::uint32_t mount_delay_runs = 0;
  // The rows of the old table that a conversion keeps, in the order in which it reads them.
  conversion::Partitions kept;
  // Makes the image; `scratch` is a folder for files in between.
  std::function<void(const std::filesystem::path& image, const std::filesystem::path& scratch)>
      make;
};
void PrintTo(const Scenario& scenario, std::ostream* out);

std::span<const Scenario> Scenarios();
// Throws std::out_of_range.
const Scenario& FindScenario(const std::string& name);

}  // namespace campaign
