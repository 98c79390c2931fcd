// Conversions of disks made up from seeds, compared with a model of what should become of them.
//
// VELKORA_SEED=N runs that seed alone. VELKORA_LONG_TESTS=1 runs ten times as many seeds.
#include <cstdlib>
#include <string>
#include <vector>

#include "conversion/model/disk.h"
#include "conversion/model/random_disk.h"
#include "conversion/model/raw_table.h"
#include "frame/velkora.h"
#include "simulator/volume.h"
#include "support/caller_record.h"
#include "support/machine_fixture.h"

namespace {

using testing_support::CallerRecord;
using testing_support::MachineTest;
using testing_support::SetText;

constexpr std::uint64_t kSectorBytes = 512;

// A tool that succeeds with this text.
simulator::Command Saying(std::string text) {
  return [text = std::move(text)](simulator::SimulatedMachine&, const std::vector<std::string>&) {
    return simulator::CommandResult{0, text};
  };
}

class RandomDisks : public MachineTest, public ::testing::WithParamInterface<std::uint64_t> {
 protected:
  // Puts the made-up disk into the machine and fills record and case from what the machine sees.
  void SetUpDisk(const model::RandomDisk& made, model::Random& random) {
    case_ = made.disk;
    disk_ = &NewDisk(1, case_.sectors * kSectorBytes);
    model::WriteTable(*disk_, case_.table);
    for (const model::NtfsPlace& place : made.ntfs) {
      if (place.first < case_.sectors) {
        testing_support::WriteNtfsBootSector(*disk_, place.first, place.count);
        case_.ntfs_starts.push_back(place.first);
      }
    }
    machine_.UpdateProperties(*disk_);
    machine_.SetCommand("bootsect", Saying("Bootcode was successfully updated.\r\n"));
    machine_.SetCommand("bcdboot", Saying("Boot files successfully created.\r\n"));
    machine_.SetCommand(
        "bcdedit", Saying("resumeobject            {9dea862c-5cdd-4e70-acc1-f32b344d4795}\r\n"));
    record_.disk().size = case_.sectors * kSectorBytes;
    record_.disk().disk_type =
        case_.table.style == model::Style::kGpt ? DiskType::kGpt : DiskType::kMbr;
    record_.disk().is_system = case_.system_disk ? 1 : 0;
    FillVolumes(random);
  }

  // In any order; one in thirty is left out. A table entry without a volume is a volume whose path
  // leads nowhere.
  void FillVolumes(model::Random& random) {
    std::vector<model::Volume> volumes;
    for (const simulator::Volume& volume : machine_.volumes()) {
      if (random.Below(30) == 0) continue;
      volumes.push_back(DescribeVolume(volume));
    }
    for (const model::GptEntry& entry : case_.table.entries) {
      if (!entry.has_id || entry.type != model::Guid{}) continue;
      volumes.push_back({entry.first * kSectorBytes, true, false, false, false, 0});
    }
    random.Shuffle(volumes);
    if (case_.system_disk) MarkSystemVolumes(volumes, random);
    for (const model::Volume& volume : volumes) AddToRecord(volume);
    case_.volumes = volumes;
  }

  model::Volume DescribeVolume(const simulator::Volume& volume) const {
    return {volume.extents.front().offset,
            volume.file_system == simulator::FileSystem::kNtfs,
            false,
            !machine_.LettersOf(volume).empty(),
            true,
            volume.partition_number};
  }

  // Mostly one, sometimes two or none; now and then one without a letter.
  static void MarkSystemVolumes(std::vector<model::Volume>& volumes, model::Random& random) {
    if (volumes.empty()) return;
    const std::uint64_t count = random.Chance(85) ? 1 : random.Below(3);
    for (std::uint64_t i = 0; i < count; ++i) {
      model::Volume& volume = volumes[random.Below(volumes.size())];
      volume.system = true;
      if (random.Chance(5)) volume.has_letter = false;
    }
  }

  void AddToRecord(const model::Volume& volume) {
    VolumeInfo& added =
        record_.Add(volume.offset, volume.ntfs ? VolumeFileSystem::kNtfs : VolumeFileSystem::kExt4);
    added.is_system = volume.system ? 1 : 0;
    added.part_number = static_cast<std::uint16_t>(volume.number);
    SetText(added.volume_id, "\\\\?\\Volume{00000000-0000-0000-0000-000000000000}");
    const simulator::Volume* seen = machine_.FindVolumeAt(1, volume.offset);
    if (seen == nullptr) return;
    SetText(added.volume_id, seen->path);
    if (volume.has_letter) SetText(added.letter, machine_.LettersOf(*seen).substr(0, 1) + ":");
  }

  std::vector<std::pair<std::uint64_t, unsigned>> NumbersOfTheSystem() {
    simulator::DiskLayout layout;
    EXPECT_EQ(disk_->Layout(layout), DWORD{ERROR_SUCCESS});
    std::vector<std::pair<std::uint64_t, unsigned>> numbers;
    for (const PARTITION_INFORMATION_EX& row : layout.rows) {
      if (row.PartitionNumber == 0) continue;
      numbers.emplace_back(row.StartingOffset.QuadPart, row.PartitionNumber);
    }
    return numbers;
  }

  std::vector<unsigned> NumbersOfTheRecord() {
    std::vector<unsigned> numbers;
    for (std::size_t i = 0; i < case_.volumes.size(); ++i) {
      numbers.push_back(record_.volume(i).part_number);
    }
    return numbers;
  }

  simulator::Disk* disk_ = nullptr;
  model::Case case_;
  CallerRecord record_{DiskType::kRaw};
};

TEST_P(RandomDisks, BecomeWhatTheModelSays) {
  SCOPED_TRACE("VELKORA_SEED=" + std::to_string(GetParam()));
  model::Random random(GetParam());
  SetUpDisk(model::MakeRandomDisk(random), random);
  ASSERT_EQ(model::Describe(model::ReadTable(*disk_)), model::Describe(case_.table));
  const model::Outcome expected = model::Convert(case_);

  velkora::Velkora converter;
  const std::int32_t result = converter.Convert(&record_.disk(), &testing_support::RecordEvent);

  EXPECT_EQ(result, expected.result);
  EXPECT_EQ(testing_support::Events(), expected.events);
  EXPECT_EQ(model::Describe(model::ReadTable(*disk_)), model::Describe(expected.table));
  EXPECT_EQ(NumbersOfTheSystem(), model::SystemNumbers(expected.table));
  EXPECT_EQ(NumbersOfTheRecord(), expected.numbers);
  EXPECT_EQ(record_.disk().size, expected.record_size);
  if (HasFailure()) {
    std::string lines;
    for (const std::string& line : Lines(3)) lines += line + "\n";
    ADD_FAILURE() << "before:\n"
                  << ::testing::PrintToString(model::Describe(case_.table)) << "\nsectors "
                  << case_.sectors << " system " << case_.system_disk << "\n"
                  << lines;
  }
}

std::vector<std::uint64_t> Seeds() {
  if (const char* seed = std::getenv("VELKORA_SEED")) return {std::strtoull(seed, nullptr, 10)};
  const char* long_tests = std::getenv("VELKORA_LONG_TESTS");
  const bool is_long = long_tests != nullptr && std::string_view(long_tests) == "1";
  std::vector<std::uint64_t> seeds;
  for (std::uint64_t seed = 1; seed <= (is_long ? 2000u : 200u); ++seed) seeds.push_back(seed);
  return seeds;
}

INSTANTIATE_TEST_SUITE_P(Seed, RandomDisks, ::testing::ValuesIn(Seeds()),
                         [](const auto& seed) { return std::to_string(seed.param); });

}  // namespace
