// The host program when a conversion fails: exit status, words, events, and the disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "conversion/host_program_fixture.h"
#include "conversion/image_bytes.h"
#include "conversion/rolled_back_disk.h"

namespace conversion {
namespace {

using namespace ::testing;

using Callback = std::pair<int, int>;

constexpr char kFailedWrite[] = "DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX";
constexpr char kUndone[] = "\n  the changes were undone: the disk has its old table back\n";

class HostProgramRollback : public HostProgram {
 protected:
  void MakeVolumes(std::uint64_t size) {
    MakeDisk(partitions_, size);
    MakeFat32(partitions_[0]);
  }

  // The rest of the callbacks of a run that failed to write the table.
  static std::vector<Callback> FailedWith(const std::vector<Callback>& rest) {
    std::vector<Callback> all = {{1, 0}, {0, 1}, {1, 20}, {0, 2}, {1, 40}, {0, 3}, {1, 60}, {0, 4}};
    all.insert(all.end(), rest.begin(), rest.end());
    return all;
  }

  const Partitions partitions_ = {{2048, 75775, kBasicData}, {75776, 83967, kLinux}};
};

TEST_F(HostProgramRollback, AFailedConversionIsUndone) {
  MakeVolumes(256 * kMib);
  RolledBackDisk disk(Image(), partitions_);
  const Outcome outcome = Run(ToMbr({"--fail", kFailedWrite, "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, HasSubstr("  60 %  writing the partition table\n"
                                     "  60 %  undoing the changes\n"
                                     " 100 %  the changes are undone\n"
                                     "\nafter: GPT, 256 MiB, 2 partitions\n"));
  EXPECT_THAT(outcome.err,
              HasSubstr("the conversion failed while writing the partition table\n"
                        "  DeviceIoControl with IOCTL_DISK_SET_DRIVE_LAYOUT_EX error 31\n"
                        "  the changes were undone: the disk has its old table back\n  logs: "));
  const std::vector<Json> events = EventsOf(File("events"));
  EXPECT_EQ(Callbacks(events), FailedWith({{0, 9}, {1, 100}, {0, 10}}));
  EXPECT_EQ(events.back(), ResultEvent(1));
  EXPECT_THAT(LogLines(events, 1), Contains("Restore Succeed!"));
  disk.Expect();
}

TEST_F(HostProgramRollback, AFailureTowardsGptIsUndone) {
  MakeMbrDisk("start=2048, size=73728, type=c\n", 64 * kMib);
  MakeFat32({2048, 75775});
  RolledBackDisk disk(Image(), {{2048, 75775}});
  const Outcome outcome = Run(ToGpt({"--fail", kFailedWrite}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, HasSubstr("\nafter: MBR, 64 MiB, 1 partition\n"));
  EXPECT_THAT(outcome.err, HasSubstr(kUndone));
  disk.Expect();
}

// The tool that makes the style again refuses so small a disk.
TEST_F(HostProgramRollback, ASmallGptDiskLacksItsProtectiveRecord) {
  MakeVolumes(64 * kMib);
  RolledBackDisk disk(Image(), partitions_);
  const Outcome outcome = Run(ToMbr({"--fail", kFailedWrite}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, HasSubstr("\nafter: RAW, 64 MiB, no partition table\n"));
  EXPECT_THAT(outcome.err, HasSubstr(std::string(kUndone) + "  sector 0 lacks its protective "));
  disk.Expect();
}

// The disk is opened for the conversion, for the backup, and for each of three attempts.
TEST_F(HostProgramRollback, AFailedRollbackHasAStatusOfItsOwn) {
  MakeVolumes(256 * kMib);
  std::vector<std::string> options = {"--fail", kFailedWrite, "--events", "events"};
  for (const char* occurrence : {"3", "4", "5"}) {
    options.insert(options.end(),
                   {"--fail", std::string("CreateFileA/\\\\.\\PhysicalDrive1:") + occurrence});
  }
  const Outcome outcome = Run(ToMbr(options));
  EXPECT_EQ(outcome.status, 3);
  EXPECT_THAT(outcome.out, HasSubstr("  60 %  undoing the changes\n"
                                     " 100 %  the changes could not be undone\n"));
  EXPECT_THAT(outcome.err,
              HasSubstr("the conversion failed while writing the partition table\n"
                        "  DeviceIoControl with IOCTL_DISK_SET_DRIVE_LAYOUT_EX error 31\n"
                        "  the changes could not be undone; the picture shows what the disk holds "
                        "now\n  logs: "));
  const std::vector<Json> events = EventsOf(File("events"));
  EXPECT_EQ(Callbacks(events), FailedWith({{0, 9}, {1, 100}, {0, 11}}));
  EXPECT_THAT(LogLines(events, 3), Contains("RestoreDiskPartitionFromStorage fail 3 times, "
                                            "error: -2"));
  EXPECT_EQ(Column(Shown(), "start").at(0),
            std::to_string(34 * kSectorBytes));  // diskpart's reserved one
}

TEST_F(HostProgramRollback, TwoFailedAttemptsAreMadeUpForByTheThird) {
  MakeVolumes(256 * kMib);
  RolledBackDisk disk(Image(), partitions_);
  const Outcome outcome =
      Run(ToMbr({"--fail", kFailedWrite, "--fail", "CreateFileA/\\\\.\\PhysicalDrive1:3", "--fail",
                 "CreateFileA/\\\\.\\PhysicalDrive1:4"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr(kUndone));
  disk.Expect();
}

// The library counts such a rollback as done.
TEST_F(HostProgramRollback, BlocksThatCannotBeWrittenAreTold) {
  for (const char* occurrence : {"1", "2", "3", "4"}) {
    MakeVolumes(256 * kMib);
    const Outcome outcome =
        Run(ToMbr({"--fail", kFailedWrite, "--fail", std::string("WriteFile:") + occurrence}));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("\n  the changes were undone but for 1 of the backup's "
                                       "blocks, which could not be written; the log names them\n"));
    EXPECT_THAT(outcome.err, Not(HasSubstr("old table")));
  }
}

TEST_F(HostProgramRollback, AFailedBackupIsARefusal) {
  MakeVolumes(256 * kMib);
  const std::uint64_t hash = Hash(Image());
  const Outcome outcome =
      Run(ToMbr({"--fail", "CreateFileA/\\\\.\\PhysicalDrive1:2", "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, HasSubstr("\n   0 %  the backup failed\n\nafter: GPT, "));
  EXPECT_THAT(outcome.err, HasSubstr("the conversion failed before anything was touched\n"
                                     "  BackupDiskPartitionToStorage error -2\n  logs: "));
  EXPECT_THAT(Callbacks(EventsOf(File("events"))), ElementsAre(Callback(0, 8), Callback(1, 100)));
  EXPECT_EQ(Hash(Image()), hash);
}

TEST_F(HostProgramRollback, AFailedBackupTowardsGptIsNotHeard) {
  MakeMbrDisk("start=2048, size=73728, type=c\n", 64 * kMib);
  const std::uint64_t hash = Hash(Image());
  const Outcome outcome =
      Run(ToGpt({"--fail", "CreateFileA/\\\\.\\PhysicalDrive1:2", "--events", "events"}));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("the conversion failed before anything was touched\n"));
  EXPECT_THAT(Callbacks(EventsOf(File("events"))), IsEmpty());
  EXPECT_EQ(Hash(Image()), hash);
}

}  // namespace
}  // namespace conversion
