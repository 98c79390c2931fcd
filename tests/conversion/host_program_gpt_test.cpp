// The host program towards GPT on data disks, and when it passes a stop on.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "conversion/host_program_fixture.h"
#include "conversion/image_bytes.h"
#include "conversion/judges.h"
#include "conversion/tools.h"
#include "conversion/volumes.h"

namespace conversion {
namespace {

using namespace ::testing;

// Two primary partitions and a logical one, with free space behind them.
constexpr char kRows[] =
    "start=2048, size=100000, type=c\nstart=102400, size=20480, type=83\n"
    "start=122880, size=124928, type=f\nstart=124928, size=100000, type=c\n";

TEST_F(HostProgram, ConvertsAnMbrDiskToGpt) {
  MakeMbrDisk(kRows, 256 * kMib);
  MakeFat32({2048, 102047});
  MakeFat32({124928, 224927});
  const Outcome outcome = Run(ToGpt({"--events", "events"}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.err, IsEmpty());
  EXPECT_THAT(outcome.out, StartsWith("before: MBR, 256 MiB, 3 partitions\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\nafter: GPT, 256 MiB, 3 partitions\n"));
  EXPECT_EQ(LinesOf(outcome.out).back(), "Converted: disk.img is GPT now.");
  EXPECT_THAT(Tool({"sgdisk", "-v", Image().string()}), HasSubstr("No problems found"));

  const Json shown = Shown();
  EXPECT_EQ(Field(shown, "style"), "gpt");
  EXPECT_EQ(ShownRows(shown), SfdiskRows(Image()));
  EXPECT_EQ(ShownRows(shown), (std::vector<ShownRow>{{2048 * 512, 100000 * 512, kBasicData},
                                                     {102400 * 512, 20480 * 512, kBasicData},
                                                     {124928 * 512, 100000 * 512, kBasicData}}));
  EXPECT_THAT(Column(shown, "filesystem"), ElementsAre("FAT32", "", "FAT32"));
  EXPECT_THAT(Column(shown, "logical"), ElementsAre("false", "false", "false"));

  const std::vector<Json> events = EventsOf(File("events"));
  const std::vector<std::pair<int, int>> expected = {{1, 0}, {0, 1},  {1, 20}, {0, 2},   {1, 40},
                                                     {0, 3}, {1, 60}, {0, 4},  {1, 100}, {0, 7}};
  EXPECT_EQ(Callbacks(events), expected);
  EXPECT_THAT(LogLines(events, 1), Contains("MBR2GPT end"));
  EXPECT_EQ(events.back(), ResultEvent(0));
}

TEST_F(HostProgram, AGptFailureIsToldByItsStage) {
  MakeMbrDisk(kRows, 256 * kMib);
  const Outcome outcome = Run(ToGpt({"--fail", "CoCreateGuid"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, StartsWith("velkora-image: disk.img: the conversion failed while "
                                      "creating the new partition style\n"
                                      "  CoCreateGuid Error: "));
}

// A volume that runs to the end of the disk gives up 1 MiB for the table's second copy.
class TailShrink : public HostProgram, public ::testing::WithParamInterface<const char*> {
 protected:
  static constexpr std::uint64_t kSize = 64 * kMib;
  const Partition partition_ = {2048, kSize / kSectorBytes - 1};

  void SetUp() override {
    MakeMbrDisk("start=2048, type=7\n", kSize);
    PutNtfs(Image(), partition_, files_, File("tmp"));
  }

  const Files files_ = MakeFiles(1);
};

TEST_F(TailShrink, MakesRoomForTheSecondTable) {
  const Outcome outcome = Run(ToGpt({}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, HasSubstr("   0 %  shrinking a partition\n  20 %  emptying the disk\n"));
  const Partition shrunk = {2048, partition_.last - 2048};
  EXPECT_THAT(Column(Shown(), "length"),
              ElementsAre(std::to_string(shrunk.count() * kSectorBytes)));
  ExpectShrunkNtfs(Image(), shrunk, files_, File("tmp"));
}

// A stop before the list is settled would make the library convert an empty list, with success.
TEST_P(TailShrink, HoldsAStopUntilTheListIsSettled) {
  const Outcome outcome = Run(ToGpt({"--stop-at", GetParam(), "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("after a stop was asked for\n"));
  const std::vector<Json> events = EventsOf(File("events"));
  const Json stop = LogEvent(1, "Set Convert Stop!");
  const auto stopped = std::find(events.begin(), events.end(), stop);
  ASSERT_NE(stopped, events.end());
  EXPECT_EQ(*std::prev(stopped), StatusEvent(2));
  EXPECT_EQ(std::count(events.begin(), events.end(), stop), 1);
  EXPECT_THAT(events, Contains(StatusEvent(5)));
  EXPECT_THAT(LogLines(events, 3), Not(Contains("Get partitions fail!")));
  EXPECT_THAT(events, Not(Contains(StatusEvent(7))));
  EXPECT_EQ(events.back(), ResultEvent(1));
}

INSTANTIATE_TEST_SUITE_P(Statuses, TailShrink, ::testing::Values("1", "5", "2"));

// Towards MBR a stop is honoured while room is made, with nothing cleared yet.
TEST_F(HostProgram, AStopTowardsMbrIsNotHeld) {
  MakeDisk({{2048, 100351, kBasicData}});
  ASSERT_EQ(Run(ToMbr({"--stop-at", "1", "--events", "events"})).status, 1);
  const std::vector<Json> events = EventsOf(File("events"));
  const Json stop = LogEvent(1, "Set Convert Stop!");
  const auto stopped = std::find(events.begin(), events.end(), stop);
  ASSERT_NE(stopped, events.end());
  EXPECT_EQ(*std::prev(stopped), StatusEvent(1));
}

// The library forgets that the list could not be read again; the host program does not. The backup
// and the shrink read 18 times before that.
TEST_F(TailShrink, TellsWhenTheNewTableLacksThePartitions) {
  const Outcome outcome = Run(ToGpt({"--fail", "ReadFile:19:23", "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("velkora-image: disk.img: the disk is GPT now, but these "
                                     "partitions are not in the new table:\n"
                                     "  partition 1 (NTFS, C:)\n  logs: "));
  EXPECT_THAT(outcome.out, Not(HasSubstr("Converted")));
  const std::vector<Json> events = EventsOf(File("events"));
  EXPECT_THAT(LogLines(events, 3), Contains("Get partitions fail!"));
  EXPECT_EQ(events.back(), ResultEvent(0));
  EXPECT_EQ(Field(Shown(), "partitions"), "[]");
}

}  // namespace
}  // namespace conversion
