// Conversions that the library reports as successes with partitions missing from the new table, as
// the host program tells them.
#include <algorithm>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "conversion/conversion_run.h"
#include "conversion/host_program_fixture.h"
#include "conversion/image_bytes.h"
#include "conversion/mbr_disk.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using namespace ::testing;

constexpr char kRescan[] = "script: rescan\\r\\n";

// A primary partition and two logical ones. The last is NTFS and runs to the end of the disk, so
// that it is shrunk and the list is read again: sector 0, then a boot record for each logical one.
class CutList : public HostProgram, public ::testing::WithParamInterface<std::size_t> {
 protected:
  static constexpr std::uint64_t kSize = 64 * kMib;

  void SetUp() override {
    const MbrTable table = {{rows_[0], {34816, rows_[2].last, kMbrContainer}},
                            {rows_[1], rows_[2]}};
    conversion::MakeMbrDisk(Image(), kSize, table);
    PutNtfs(Image(), rows_[2], MakeFiles(1), File("tmp"));
  }

  // How many sectors are read in front of that, told by a conversion of a copy.
  std::size_t ReadsBeforeTheRescan() {
    CopyImage(Image(), File("copy.img"));
    ConversionRun run(File("copy.img"));
    std::size_t reads = 0;
    run.on_line = [&](const std::string& line) {
      if (reads == 0 && line == kRescan) reads = run.machine().calls().Count("ReadFile");
    };
    EXPECT_EQ(run.Convert(), 0);
    EXPECT_GT(reads, 0u);
    return reads;
  }

  static ShownRow ShownAs(const Partition& partition) {
    return {partition.offset(), partition.count() * kSectorBytes, kBasicData};
  }

  const Partitions rows_ = {{2048, 34815, kMbrNtfs},
                            {36864, 69631, kMbrNtfs},
                            {71680, kSize / kSectorBytes - 1, kMbrNtfs}};
  const std::string names_[3] = {"  partition 1 (07 NTFS/exFAT)\n",
                                 "  partition 2 (07 NTFS/exFAT)\n", "  partition 3 (NTFS, C:)\n"};
};

// As many partitions are left as were read before the read that failed.
TEST_P(CutList, IsToldAsAFailureWithThePartitionsThatAreMissing) {
  const std::size_t kept = GetParam();
  const std::string read = std::to_string(ReadsBeforeTheRescan() + kept + 1);
  const Outcome outcome = Run(ToGpt({"--fail", "ReadFile:" + read + ":23", "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  std::string message =
      "velkora-image: disk.img: the disk is GPT now, but these partitions are not in the new "
      "table:\n";
  for (std::size_t i = kept; i < rows_.size(); ++i) message += names_[i];
  EXPECT_THAT(outcome.err, HasSubstr(message + "  logs: "));
  EXPECT_THAT(outcome.out, Not(HasSubstr("Converted")));
  const std::vector<Json> events = EventsOf(File("events"));
  EXPECT_THAT(LogLines(events, 3), Contains("Get partitions fail!"));
  EXPECT_EQ(events.back(), ResultEvent(0));
  std::vector<ShownRow> shown;
  for (std::size_t i = 0; i < kept; ++i) shown.push_back(ShownAs(rows_[i]));
  EXPECT_EQ(ShownRows(Shown()), shown);
}

INSTANTIATE_TEST_SUITE_P(PartitionsRead, CutList, ::testing::Values(0, 1, 2));

TEST_F(HostProgram, DoesNotMissWhatAnMbrLeavesOut) {
  MakeDisk({{2048, 100351, kEfiSystem},
            {100352, 200703, kReserved},
            {200704, 300031, kHidden},
            {300032, 400383, kBasicData}});
  const Outcome outcome = Run(ToMbr({}));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(ShownRows(Shown()), (std::vector<ShownRow>{{300032 * 512, 100352 * 512, "7"}}));
}

// An entry with a type and no length, as partition 1 of the table.
TEST_F(HostProgram, DoesNotMissAnEntryOfNoLength) {
  MakeMbrDisk("start=2048, size=2048, type=7\nstart=4096, size=2048, type=7\n", 64 * kMib);
  const ImageFile image(Image());
  Sector table = image.ReadSector(0);
  std::fill_n(table.begin() + 446 + 12, 4, std::uint8_t{0});
  image.WriteSector(0, table);
  const Outcome outcome = Run(ToGpt({}));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(ShownRows(Shown()), (std::vector<ShownRow>{{4096 * 512, 2048 * 512, kBasicData}}));
}

}  // namespace
}  // namespace conversion
