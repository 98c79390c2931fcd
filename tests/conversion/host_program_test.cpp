// The host program's two commands: exit status, words, and files.
#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "conversion/host_program_fixture.h"
#include "conversion/image_bytes.h"

namespace conversion {
namespace {

namespace fs = std::filesystem;
using namespace ::testing;

// ---- show ---------------------------------------------------------------------------------------

TEST_F(HostProgram, ShowsAGptDiskAsSfdiskDoes) {
  const Partitions partitions = {{2048, 133119, kEfiSystem},
                                 {133120, 165887, kReserved},
                                 {165888, 264191, kBasicData},
                                 {264192, 300000, kLinux}};
  MakeDisk(partitions);
  MakeFat32(partitions[0]);
  MakeFat32(partitions[2]);
  const Outcome outcome = Run({"show", "disk.img", "--json"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.err, IsEmpty());
  const Json& shown = outcome.out;
  EXPECT_EQ(Field(shown, "style"), "gpt");
  EXPECT_EQ(Field(shown, "size"), std::to_string(256 * kMib));
  EXPECT_EQ(ShownRows(shown), SfdiskRows(Image()));
  EXPECT_THAT(Column(shown, "number"), ElementsAre("1", "2", "3", "4"));
  EXPECT_THAT(Column(shown, "filesystem"), ElementsAre("FAT32", "", "FAT32", ""));
  EXPECT_THAT(Column(shown, "letter"), ElementsAre("", "", "C", ""));
  EXPECT_THAT(Column(shown, "logical"), ElementsAre("false", "false", "false", "false"));
}

TEST_F(HostProgram, ShowsAWriteProtectedImageThatConvertRefuses) {
  MakeDisk({{2048, 133119, kBasicData}});
  MakeFat32({2048, 133119});
  fs::permissions(Image(), fs::perms::owner_read);
  const Outcome shown = RunBound({"show", "disk.img"});
  EXPECT_EQ(shown.status, 0);
  EXPECT_THAT(shown.err, IsEmpty());
  EXPECT_EQ(shown.out, Run({"show", "disk.img"}).out);
  EXPECT_THAT(shown.out, HasSubstr("FAT32"));
  const Outcome converted = RunBound(ToMbr({}));
  EXPECT_EQ(converted.status, 2);
  EXPECT_EQ(converted.err, "velkora-image: disk.img: cannot open: Permission denied\n");
}

TEST_F(HostProgram, ShowsAnMbrDiskAsSfdiskDoes) {
  MakeMbrDisk(
      "start=2048, size=100000, type=c\nstart=120000, type=f\n"
      "start=124096, size=40000, type=83\nstart=170000, size=4000, type=7\n",
      256 * kMib);
  const Outcome outcome = Run({"show", "disk.img", "--json"});
  EXPECT_EQ(outcome.status, 0);
  const Json& shown = outcome.out;
  EXPECT_EQ(Field(shown, "style"), "mbr");
  EXPECT_EQ(ShownRows(shown), SfdiskRows(Image()));
  EXPECT_THAT(Column(shown, "number"), ElementsAre("1", "2", "3"));
  EXPECT_THAT(Column(shown, "logical"), ElementsAre("false", "true", "true"));
}

TEST_F(HostProgram, ShowsADiskWithoutATable) {
  CreateImage(Image(), kMib);
  const Json shown = Shown();
  EXPECT_EQ(shown, R"({"partitions":[],"size":1048576,"style":"raw"})");
  const Outcome outcome = Run({"show", "disk.img"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, StartsWith("disk.img: RAW, 1 MiB, no partition table\n[..."));
}

TEST_F(HostProgram, ShowsEachPartitionInBarAndTable) {
  MakeDisk({{2048, 4095, kReserved}, {4096, 264191, kBasicData}});
  const std::vector<std::string> lines = LinesOf(Run({"show", "disk.img"}).out);
  ASSERT_EQ(lines.size(), 5u);
  EXPECT_EQ(lines[0], "disk.img: GPT, 256 MiB, 2 partitions");
  EXPECT_THAT(lines[1], ::testing::MatchesRegex("\\[\\.\\|1\\| *2 basic data *\\|\\.+\\]"));
  EXPECT_EQ(lines[1].size(), 70u);
  EXPECT_THAT(lines[4], HasSubstr("basic data"));
  EXPECT_THAT(lines[4], HasSubstr("127 MiB"));
}

// ---- convert ------------------------------------------------------------------------------------

TEST_F(HostProgram, ConvertsInPlaceAndTellsTheStages) {
  MakeDisk({{2048, 100351, kBasicData}, {100352, 200000, kBasicData}});
  MakeFat32({2048, 100351});
  const Outcome outcome = Run(ToMbr({}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.err, IsEmpty());
  EXPECT_THAT(outcome.out, StartsWith("before: GPT, 256 MiB, 2 partitions\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\n   0 %  checking the table and making room\n"
                                     "  20 %  emptying the disk\n"
                                     "  40 %  creating the new partition style\n"
                                     "  60 %  writing the partition table\n"
                                     " 100 %  finished\n"
                                     "\nafter: MBR, 256 MiB, 2 partitions\n"));
  EXPECT_EQ(LinesOf(outcome.out).back(), "Converted: disk.img is MBR now.");
  EXPECT_TRUE(fs::is_empty(File("tmp")));
  const Json shown = Shown();
  EXPECT_EQ(Field(shown, "style"), "mbr");
  EXPECT_EQ(ShownRows(shown), SfdiskRows(Image()));
}

TEST_F(HostProgram, WritesEventsInOrder) {
  MakeDisk({{2048, 100351, kBasicData}});
  ASSERT_EQ(Run(ToMbr({"--events", "events"})).status, 0);
  const std::vector<Json> events = EventsOf(File("events"));
  const std::vector<std::pair<int, int>> expected = {{1, 0}, {0, 1},  {1, 20}, {0, 2},   {1, 40},
                                                     {0, 3}, {1, 60}, {0, 4},  {1, 100}, {0, 7}};
  EXPECT_EQ(Callbacks(events), expected);
  EXPECT_THAT(Field(events.front(), "text"), StartsWith("Velkora SDK Version: "));
  EXPECT_EQ(events.back(), ResultEvent(0));
  const Json clean = ScriptEvent("select disk 1\r\nclean\r\n");
  const auto script = std::find(events.begin(), events.end(), clean);
  ASSERT_NE(script, events.end());
  ASSERT_NE(script, events.begin());
  EXPECT_EQ(*std::prev(script), ShellEvent("elevated",
                                           "/c diskpart /s \"X:\\DISKPART_cmd.log\" >> "
                                           "\"X:\\DISKPART_result.log\""));
}

TEST_F(HostProgram, KeepsTheLogsWhereTheyAreWanted) {
  MakeDisk({{2048, 100351, kBasicData}});
  ASSERT_EQ(Run(ToMbr({"--logs", "logs/of/today"})).status, 0);
  const fs::path logs = File("logs/of/today");
  EXPECT_EQ(TextOf(logs / "DISKPART_cmd.log"), "rescan\r\n");
  EXPECT_TRUE(fs::exists(logs / "DISKPART_result.log"));
  EXPECT_THAT(TextOf(logs / "velkora-image.log"), HasSubstr("[1] [SDK] GPT2MBR end\n"));
}

TEST_F(HostProgram, GivesLettersInDiskOrderUnlessTold) {
  const Partitions partitions = {{2048, 100351, kBasicData},
                                 {100352, 200703, kEfiSystem},
                                 {200704, 300031, kBasicData},
                                 {300032, 400383, kBasicData}};
  MakeDisk(partitions);
  for (const Partition& partition : partitions) MakeFat32(partition);
  const Json shown = Shown();
  EXPECT_THAT(Column(shown, "letter"), ElementsAre("C", "", "D", "E"));
  const Outcome outcome = Run(ToMbr({"--letter", "3=c", "--letter", "4=Q", "--events", "events"}));
  ASSERT_EQ(outcome.status, 0);
  std::vector<std::string> letters;
  for (const std::string& line : LogLines(EventsOf(File("events")), 1)) {
    const std::size_t at = line.find(", letter: ");
    if (line.starts_with("[part] offset") && at != std::string::npos) {
      letters.push_back(line.substr(at + 10, line.find(", is_system") - at - 10));
    }
  }
  EXPECT_THAT(letters, ElementsAre("D:", "", "C:", "Q:"));
  const std::string after = outcome.out.substr(outcome.out.find("after:"));
  EXPECT_THAT(after, ::testing::ContainsRegex("1 +1 MiB +48 MiB +primary .* D:"));
  EXPECT_THAT(after, ::testing::ContainsRegex("3 .*primary .* Q:"));
}

TEST_F(HostProgram, FailsACallOnDemand) {
  MakeDisk({{2048, 100351, kBasicData}});
  const Outcome outcome =
      Run(ToMbr({"--fail", "DeviceIoControl/IOCTL_DISK_CREATE_DISK:1:5", "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, StartsWith("velkora-image: disk.img: the conversion failed while "
                                      "creating the new partition style\n"
                                      "  DeviceIoControl with IOCTL_DISK_CREATE_DISK error 5\n"));
  const std::vector<Json> events = EventsOf(File("events"));
  EXPECT_EQ(events.back(), ResultEvent(1));
  EXPECT_THAT(LogLines(events, 3),
              ::testing::Contains("DeviceIoControl with IOCTL_DISK_CREATE_DISK error 5"));
  EXPECT_THAT(outcome.out, Not(HasSubstr("Converted")));
}

TEST_F(HostProgram, FailsTheOccurrenceOfAToolAndKeepsTheLogs) {
  MakeDisk({{2048, 100351, kBasicData}});
  const Outcome outcome = Run(ToMbr({"--fail", "command/diskpart"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("failed while emptying the disk\n"));
  EXPECT_THAT(outcome.err, HasSubstr("\n  DISKPART_Clean Failed!\n"));
  const std::string last = LinesOf(outcome.err).back();
  ASSERT_THAT(last, StartsWith("  logs: "));
  EXPECT_TRUE(fs::exists(fs::path(last.substr(8)) / "velkora-image.log")) << last;
  // The second run of diskpart only rescans, which may fail.
  MakeDisk({{2048, 100351, kBasicData}});
  EXPECT_EQ(Run(ToMbr({"--fail", "command/diskpart:2"})).status, 0);
}

TEST_F(HostProgram, EventsTellTheScriptOfADiskpartRunThatFails) {
  MakeDisk({{2048, 100351, kBasicData}});
  EXPECT_EQ(Run(ToMbr({"--fail", "command/diskpart", "--events", "events"})).status, 1);
  std::vector<std::string> scripts;
  for (const Json& event : EventsOf(File("events"))) {
    if (Field(event, "event") == "script") scripts.push_back(Field(event, "text"));
  }
  ASSERT_GE(scripts.size(), 2U);
  EXPECT_EQ(scripts[0], "select disk 1\r\nclean\r\n");
  EXPECT_EQ(scripts[1], scripts[0]) << "the rollback empties the disk, too";
}

TEST_F(HostProgram, SaysThatAFailureBeforeAnyStageTouchedNothing) {
  MakeDisk({{2048, 100351, kBasicData}});
  const std::uint64_t hash = Hash(Image());
  const Outcome outcome = Run(ToMbr({"--fail", "CreateFileA:1:32", "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err,
              StartsWith("velkora-image: disk.img: the conversion failed before anything was "
                         "touched\n"));
  EXPECT_THAT(Callbacks(EventsOf(File("events"))), IsEmpty());
  EXPECT_EQ(Hash(Image()), hash);
}

TEST_F(HostProgram, WarnsOfAFailureThatNeverCame) {
  MakeDisk({{2048, 100351, kBasicData}});
  const Outcome outcome = Run(ToMbr({"--fail", "ReadFile/no such detail"}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err,
            "velkora-image: warning: --fail ReadFile/no such detail: failed nothing, there were 0 "
            "such calls\n");
}

TEST_F(HostProgram, StopsWhenAStatusArrives) {
  MakeDisk({{2048, 100351, kBasicData}});
  const Outcome outcome = Run(ToMbr({"--stop-at", "3", "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("after a stop was asked for\n"));
  const std::vector<Json> events = EventsOf(File("events"));
  const auto arrived = std::find(events.begin(), events.end(), StatusEvent(3));
  ASSERT_NE(arrived, events.end());
  EXPECT_EQ(*std::next(arrived), LogEvent(1, "Set Convert Stop!"));
  EXPECT_THAT(Callbacks(events), Not(::testing::Contains(std::pair(0, 4))));
}

TEST_F(HostProgram, AStopAfterTheEndChangesNothing) {
  MakeDisk({{2048, 100351, kBasicData}});
  EXPECT_EQ(Run(ToMbr({"--stop-at", "7"})).status, 0);
}

TEST_F(HostProgram, WarnsOfPartitionsInTheFirstAndLastMib) {
  const std::uint64_t sectors = 256 * kMib / kSectorBytes;
  MakeDisk({{63, 4095, kBasicData},
            {4096, sectors - 2048 - 1, kBasicData},
            {sectors - 2048, sectors - 34, kBasicData}});
  const Outcome outcome = Run(ToMbr({}));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err,
            "velkora-image: warning: partition 1 (basic data) reaches into the first MiB of the "
            "disk, which is zeroed when the disk is cleared\n"
            "velkora-image: warning: partition 3 (basic data) reaches into the last MiB of the "
            "disk, which is zeroed when the disk is cleared\n");
}

}  // namespace
}  // namespace conversion
