#include "campaign/scenario.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "conversion/converted_disk_fixture.h"
#include "conversion/mbr_disk.h"
#include "conversion/volumes.h"

namespace campaign {
namespace {

namespace fs = std::filesystem;
using conversion::EvenPartitions;
using conversion::EvenPrimaries;
using conversion::kMbrContainer;
using conversion::kMbrNtfs;
using conversion::kMib;
using conversion::kSectorBytes;
using conversion::kSectorsPerMib;
using conversion::MbrTable;
using conversion::Partition;
using conversion::Partitions;

constexpr std::uint64_t kSize = 128 * kMib;
constexpr std::uint64_t kSmall = 6 * kSectorsPerMib;
// Longer than 1 GiB, which a volume must be to give up room for the boot partition.
constexpr std::uint64_t kLong = 1100 * kSectorsPerMib;
constexpr std::uint64_t kFat32 = 40 * kSectorsPerMib;

using PutVolume = void (*)(const fs::path& image, const Partition& partition,
                           const conversion::Files& files, const fs::path& scratch);
// A volume by the place of its partition in the list.
using Volumes = std::vector<std::pair<std::size_t, PutVolume>>;

void PutAll(const fs::path& image, const fs::path& scratch, const Partitions& partitions,
            const Volumes& volumes) {
  unsigned seed = 1;
  for (const auto& [place, put] : volumes) {
    put(image, partitions.at(place), conversion::MakeFiles(seed++), scratch);
  }
}

Scenario Gpt(std::string name, std::uint64_t size, Partitions partitions, const Volumes& volumes) {
  Scenario scenario;
  scenario.name = std::move(name);
  scenario.kept = conversion::Kept(partitions);
  scenario.make = [size, partitions, volumes](const fs::path& image, const fs::path& scratch) {
    conversion::MakeGptDisk(image, size, partitions);
    PutAll(image, scratch, partitions, volumes);
  };
  return scenario;
}

// `volumes` go by the rows in disk order; `tail` sectors are free behind the last.
Scenario Mbr(std::string name, const MbrTable& table, std::uint64_t tail, const Volumes& volumes) {
  Scenario scenario;
  scenario.name = std::move(name);
  scenario.direction = Direction::kMbrToGpt;
  scenario.kept = table.Rows();
  scenario.make = [table, tail, volumes](const fs::path& image, const fs::path& scratch) {
    const Partitions rows = table.Rows();
    const std::uint64_t sectors = std::max(rows.back().last + 1 + tail, kSize / kSectorBytes);
    conversion::MakeMbrDisk(image, sectors * kSectorBytes, table);
    PutAll(image, scratch, rows, volumes);
  };
  return scenario;
}

Scenario RunningFrom(Scenario scenario, std::size_t kept) {
  scenario.system = scenario.kept.at(kept);
  scenario.first_letter = 'C';
  return scenario;
}

// The volumes of a new table need a while to be mounted.
Scenario MountedLate(Scenario scenario) {
  scenario.mount_delay_runs = 3;
  return scenario;
}

// Partitions of these lengths, each right behind the one before, from 1 MiB on.
Partitions Packed(std::initializer_list<std::uint64_t> lengths, const std::string& type) {
  Partitions partitions;
  std::uint64_t first = kSectorsPerMib;
  for (const std::uint64_t length : lengths) {
    partitions.push_back({first, first + length - 1, type});
    first += length;
  }
  return partitions;
}

Partitions WithBootPartitions(Partitions partitions) {
  partitions.at(0).type = conversion::kEfiSystem;
  partitions.at(1).type = conversion::kReserved;
  return partitions;
}

// One primary row, and a container up to the end of the last logical one.
MbrTable Logicals(const Partitions& logicals) {
  const std::uint64_t begin = logicals.front().first - kSectorsPerMib;
  return {{{kSectorsPerMib, begin - 1, kMbrNtfs}, {begin, logicals.back().last, kMbrContainer}},
          logicals};
}

constexpr PutVolume kNtfs = conversion::PutNtfs;
constexpr PutVolume kFat = conversion::PutFat32;
constexpr PutVolume kExt4 = conversion::PutExt4;

std::vector<Scenario> GptScenarios() {
  const Partitions packed =
      Packed({kSmall, kSmall, kSmall, kSmall, kSmall}, conversion::kBasicData);
  const Partitions boot = WithBootPartitions(EvenPartitions(5, 16, 1));
  Partitions boot_packed = WithBootPartitions(
      Packed({kSmall, kSmall, kSmall, kSmall, kSmall, kSmall, kSmall}, conversion::kBasicData));
  return {
      Gpt("gpt_data_three_rows", kSize, Packed({kSmall, kFat32, kSmall}, conversion::kBasicData),
          {{0, kNtfs}, {1, kFat}, {2, kExt4}}),
      Gpt("gpt_data_logical_rows", kSize, EvenPartitions(6, 16, 1), {{0, kNtfs}, {4, kExt4}}),
      Gpt("gpt_data_beside_boot_partitions", kSize, boot, {{2, kNtfs}, {3, kExt4}}),
      Gpt("gpt_data_shrink", kSize, packed, {{2, kNtfs}, {3, kNtfs}}),
      MountedLate(
          RunningFrom(Gpt("gpt_system_three_rows", 2 * kSize, boot, {{2, kNtfs}, {3, kNtfs}}), 0)),
      RunningFrom(Gpt("gpt_system_logical_row", kSize, WithBootPartitions(EvenPartitions(7, 12, 1)),
                      {{2, kNtfs}, {5, kNtfs}}),
                  0),
      RunningFrom(
          Gpt("gpt_system_shrink", kSize, boot_packed, {{3, kNtfs}, {4, kNtfs}, {5, kNtfs}}), 1),
  };
}

std::vector<Scenario> MbrScenarios() {
  const Partitions two = EvenPrimaries(2, 8);
  const std::uint64_t behind = kSectorsPerMib * 20;
  const MbrTable to_the_end = {
      {{kSectorsPerMib, behind - 1, kMbrNtfs}, {behind, kSize / kSectorBytes - 1, kMbrNtfs}}, {}};
  const MbrTable logicals_to_the_end =
      Logicals({{11 * kSectorsPerMib, 20 * kSectorsPerMib - 1, kMbrNtfs},
                {21 * kSectorsPerMib, 30 * kSectorsPerMib - 1, kMbrNtfs},
                {31 * kSectorsPerMib, kSize / kSectorBytes - 1, kMbrNtfs}});
  return {
      Mbr("mbr_data_primaries", {EvenPrimaries(3, 40), {}}, kSectorsPerMib,
          {{0, kNtfs}, {1, kFat}, {2, kExt4}}),
      Mbr("mbr_data_logicals", conversion::EvenLogicals(3, 16), kSectorsPerMib,
          {{0, kNtfs}, {2, kNtfs}}),
      Mbr("mbr_data_shrink", to_the_end, 0, {{0, kExt4}, {1, kNtfs}}),
      Mbr("mbr_data_shrink_logical", logicals_to_the_end, 0, {{0, kNtfs}, {3, kNtfs}}),
      RunningFrom(Mbr("mbr_system_room_at_the_end", {two, {}}, 302 * kSectorsPerMib,
                      {{0, kNtfs}, {1, kNtfs}}),
                  0),
      RunningFrom(Mbr("mbr_system_shrink", {Packed({kSmall, kLong}, kMbrNtfs), {}}, kSectorsPerMib,
                      {{0, kNtfs}, {1, kNtfs}}),
                  1),
      RunningFrom(Mbr("mbr_system_shrunk_twice", {Packed({kLong}, kMbrNtfs), {}}, 0, {{0, kNtfs}}),
                  0),
  };
}

}  // namespace

void PrintTo(const Scenario& scenario, std::ostream* out) {
  *out << scenario.name;
}

std::span<const Scenario> Scenarios() {
  static const std::vector<Scenario> scenarios = [] {
    std::vector<Scenario> all = GptScenarios();
    for (Scenario& scenario : MbrScenarios()) all.push_back(std::move(scenario));
    return all;
  }();
  return scenarios;
}

const Scenario& FindScenario(const std::string& name) {
  for (const Scenario& scenario : Scenarios()) {
    if (scenario.name == name) return scenario;
  }
  throw std::out_of_range("no scenario " + name);
}

}  // namespace campaign
