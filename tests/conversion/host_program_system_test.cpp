// The host program on the disk of the running system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "conversion/host_program_fixture.h"
#include "conversion/image_bytes.h"
#include "conversion/tools.h"
#include "support/tools/sfdisk_table.h"

namespace conversion {
namespace {

using namespace ::testing;

constexpr char kEfiType[] = "C12A7328-F81F-11D2-BA4B-00A0C93EC93B";

std::vector<std::string> ShellRoutes(const std::vector<Json>& events) {
  std::vector<std::string> routes;
  for (const Json& event : events) {
    if (Field(event, "event") == "shell") routes.push_back(Field(event, "route"));
  }
  return routes;
}

std::vector<std::string> ShellLinesOf(const std::vector<Json>& events, const std::string& tool) {
  std::vector<std::string> lines;
  for (const Json& event : events) {
    if (Field(event, "event") != "shell") continue;
    const std::string line = Field(event, "line");
    if (line.starts_with(tool + " ")) lines.push_back(line);
  }
  return lines;
}

class SystemDisk : public HostProgram {
 protected:
  // Two volumes, the system on the first; more than 300 MiB are free behind them.
  void MakeMbrSystemDisk() {
    MakeMbrDisk(
        "start=2048, size=131072, type=c, bootable\n"
        "start=133120, size=131072, type=c\n",
        512 * kMib);
    MakeFat32({2048, 133119});
    MakeFat32({133120, 264191});
  }
};

TEST_F(SystemDisk, GetsAnEfiSystemPartitionThatBoots) {
  MakeMbrSystemDisk();
  const Outcome outcome = Run(ToGpt({"--system", "--events", "events"}));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.err, IsEmpty());
  EXPECT_THAT(outcome.out, HasSubstr("  80 %  repairing boot\n 100 %  finished\n"));
  const std::string after = outcome.out.substr(outcome.out.find("after:"));
  EXPECT_THAT(after, ContainsRegex("1 +1 MiB +64 MiB .*FAT32 +C:"));
  EXPECT_THAT(after, ContainsRegex("3 +129 MiB +300 MiB .*EFI system +FAT32 +E:"));

  const Json shown = Shown();
  EXPECT_EQ(ShownRows(shown), SfdiskRows(Image()));
  EXPECT_THAT(Column(shown, "type"), ElementsAre(kBasicData, kBasicData, kEfiType));
  const std::string volume = Image().string() + "@@" + std::to_string(264192 * 512);
  for (const char* file :
       {"/EFI/Microsoft/Boot/bootmgfw.efi", "/EFI/Microsoft/Boot/BCD", "/EFI/Boot/bootx64.efi"}) {
    EXPECT_THAT(Tool({"mdir", "-b", "-i", volume, std::string("::") + file}), HasSubstr(file + 1));
  }
  const std::vector<Json> events = EventsOf(File("events"));
  EXPECT_THAT(events, Contains(StatusEvent(6)));
  EXPECT_THAT(ShellRoutes(events), Each("system"));
  EXPECT_EQ(ShellLinesOf(events, "bcdboot").size(), 1u);
  EXPECT_EQ(ShellLinesOf(events, "bcdedit").size(), 2u);
}

TEST_F(SystemDisk, TakesTheLetterItIsTold) {
  MakeMbrSystemDisk();
  ASSERT_EQ(Run(ToGpt({"--system=d", "--events", "events"})).status, 0);
  const std::vector<Json> lines = ShellLinesOf(EventsOf(File("events")), "bcdboot");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_THAT(lines[0], HasSubstr("bcdboot /v D:\\Windows /s E: /f uefi"));
}

TEST_F(SystemDisk, LeavesAWindowsFolderAsItIs) {
  MakeMbrSystemDisk();
  const std::string volume = Image().string() + "@@" + std::to_string(2048 * 512);
  Tool({"mmd", "-i", volume, "::/Windows", "::/Windows/System32"});
  Tool({"mcopy", "-i", volume, "-", "::/Windows/System32/winload.exe"}, "the loader");
  const std::uint64_t hash = HashSectors(Image(), {2048, 133119});
  ASSERT_EQ(Run(ToGpt({"--system"})).status, 0);
  EXPECT_EQ(HashSectors(Image(), {2048, 133119}), hash);
}

TEST_F(SystemDisk, BecomesActiveTowardsMbr) {
  MakeDisk({{2048, 133119, kEfiSystem}, {133120, 264191, kBasicData}});
  MakeFat32({2048, 133119});
  MakeFat32({133120, 264191});
  const Outcome outcome = Run(ToMbr({"--system", "--events", "events"}));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("  80 %  repairing boot\n 100 %  finished\n"));
  const auto rows = testing_support::ReadSfdiskTable(Image()).rows;
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_TRUE(rows[0].active);
  const std::vector<Json> events = EventsOf(File("events"));
  EXPECT_EQ(ShellLinesOf(events, "bootsect").size(), 1u);
  EXPECT_EQ(ShellLinesOf(events, "bcdboot").size(), 1u);
}

TEST_F(SystemDisk, AFailedBootToolFailsTheConversion) {
  for (const char* call : {"command/bcdboot", "command/bcdedit:2", "fopen/BCDEDIT_result.log"}) {
    MakeMbrSystemDisk();
    const Outcome outcome = Run(ToGpt({"--system", "--fail", call}));
    EXPECT_EQ(outcome.status, 1) << call;
    EXPECT_THAT(outcome.err, HasSubstr("the conversion failed while repairing boot\n")) << call;
  }
}

TEST_F(SystemDisk, AFileThatCannotBeRemovedFailsNothing) {
  for (const char* call : {"DeleteFileA", "remove"}) {
    MakeMbrSystemDisk();
    const Outcome outcome = Run(ToGpt({"--system", "--fail", call}));
    EXPECT_EQ(outcome.status, 0) << call;
    EXPECT_THAT(outcome.err, IsEmpty()) << call;
  }
}

// Its failure behind a shrink is not forgotten, so that a stop may come at any time.
TEST_F(SystemDisk, AStopIsNotHeld) {
  MakeMbrSystemDisk();
  const Outcome outcome = Run(ToGpt({"--system", "--stop-at", "1", "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("after a stop was asked for\n"));
  const std::vector<Json> events = EventsOf(File("events"));
  EXPECT_THAT(LogLines(events, 3), Contains("Get partitions fail!"));
  EXPECT_THAT(events, Not(Contains(StatusEvent(2))));
}

}  // namespace
}  // namespace conversion
