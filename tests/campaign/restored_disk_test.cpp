// What comes back with a rollback, and what does not, on one disk of each scenario: the bytes
// against the untouched image, range by range, and the old table as sfdisk reads it.
#include <gtest/gtest.h>
#include <sstream>

#include "campaign/control_calls.h"
#include "campaign/judge.h"
#include "campaign/tables.h"
#include "conversion/converted_disk_fixture.h"
#include "conversion/tools.h"

namespace campaign {
namespace {

constexpr std::uint64_t kSector = 512;

// Writes the state into a file, over a copy of the image.
void WriteOut(const BaseDisk& disk, ImageOverlay& state, const std::filesystem::path& path) {
  conversion::CopyImage(disk.image(), path);
  const conversion::ImageFile file(path);
  simulator::BlockDevice device(disk.image(), 512, state);
  for (const ByteRange& range : Changes(disk, state)) {
    const Bytes bytes = ReadBytes(device, range.offset, range.length);
    file.Write(range.offset, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  }
}

// The lines of partitions that sfdisk dumps, without the image's name.
std::vector<std::string> TableBySfdisk(const std::filesystem::path& image) {
  std::istringstream output(conversion::Tool({"sfdisk", "--dump", image}));
  std::vector<std::string> rows;
  for (std::string line; std::getline(output, line);) {
    if (line.starts_with(image.string())) rows.push_back(line.substr(image.string().size()));
  }
  return rows;
}

class RestoredDisk : public ::testing::TestWithParam<Scenario> {
 protected:
  RestoredDisk() : disk_(DiskOf(GetParam())), judge_(JudgeOf(GetParam())) {}

  // A conversion whose last call that counts fails, when everything has been written.
  void FailLate(CampaignRun& run) {
    std::size_t place = judge_.oracle().calls().size() - 1;
    while (judge_.oracle().verdict(place) != Verdict::kFatal) --place;
    run.Fail(place, simulator::Repeat::kOnce);
    ASSERT_EQ(OutcomeOf(run, run.Convert()), Outcome::kRolledBack);
  }

  // Where bytes may differ from the untouched image: the ends of the disk outside the blocks, the
  // secondary GPT, whose blocks hold the primary's bytes, and what a conversion wrote between the
  // partitions or behind them.
  ByteRanges MayDiffer() {
    ByteRanges ranges = Outside(DiskEnds(disk_), BlockRanges(disk_));
    simulator::BlockDevice converted(disk_.image(), 512, judge_.converted());
    if (GetParam().direction == Direction::kGptToMbr) {
      ranges.push_back({disk_.size() - kSector, kSector});
      for (const std::uint64_t record : ReadBootRecordChain(converted)) {
        ranges.push_back({record * kSector, kSector});
      }
      return ranges;
    }
    for (const GptRange& row : ReadGpt(converted)) {
      if (!row.efi_system) continue;
      const ByteRange efi = {row.first * kSector, (row.last - row.first + 1) * kSector};
      const ByteRanges outside = Outside({efi}, BlockRanges(disk_));
      ranges.insert(ranges.end(), outside.begin(), outside.end());
    }
    return ranges;
  }

  const BaseDisk& disk_;
  Judge& judge_;
};

TEST_P(RestoredDisk, OnlyWrittenRangesDifferFromTheUntouchedImage) {
  CampaignRun run(disk_);
  ASSERT_NO_FATAL_FAILURE(FailLate(run));
  EXPECT_EQ(Outside(Changes(disk_, run.overlay()), MayDiffer()), ByteRanges());
  judge_.ExpectRolledBack(run);
}

TEST_P(RestoredDisk, SfdiskSeesTheOldTable) {
  CampaignRun run(disk_);
  ASSERT_NO_FATAL_FAILURE(FailLate(run));
  const std::filesystem::path restored = disk_.image().parent_path() / "restored.img";
  WriteOut(disk_, run.overlay(), restored);
  const std::vector<std::string> before = TableBySfdisk(disk_.image());
  EXPECT_FALSE(before.empty());
  EXPECT_EQ(TableBySfdisk(restored), before);
  std::filesystem::remove(restored);
}

INSTANTIATE_TEST_SUITE_P(Disks, RestoredDisk, ::testing::ValuesIn(Scenarios()),
                         [](const auto& instance) { return instance.param.name; });

// diskpart converts no disk under 128 MB to GPT, so that the table comes back and its protective
// record does not.
TEST(RestoredSmallDisk, AGptUnder128MbLacksTheProtectiveRecord) {
  Scenario scenario = FindScenario("gpt_data_beside_boot_partitions");
  scenario.name = "gpt_under_128_mb";
  scenario.kept = conversion::EvenPartitions(3, 8, 1);
  scenario.make = [&](const auto& image, const auto&) {
    conversion::MakeGptDisk(image, 64 * conversion::kMib, scenario.kept);
  };
  const BaseDisk disk(scenario);
  CampaignRun run(disk);
  run.run().machine().calls().FailOn(kSetLayout);
  ASSERT_EQ(OutcomeOf(run, run.Convert()), Outcome::kRolledBack);
  simulator::BlockDevice restored(disk.image(), 512, run.overlay());
  EXPECT_EQ(ReadBytes(restored, 0, kSector), Bytes(kSector));
  for (const auto& [offset, bytes] : disk.blocks()) {
    EXPECT_EQ(ReadBytes(restored, offset, bytes.size()), bytes) << offset;
  }
  EXPECT_EQ(ReadGpt(restored).size(), 3u);
}

}  // namespace
}  // namespace campaign
