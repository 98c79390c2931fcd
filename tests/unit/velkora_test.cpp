// The converter object: what Convert does around the two conversions.
#include "frame/velkora.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "frame/global_context.h"
#include "frame/progress.h"
#include "platform/win32.h"
#include "support/caller_record.h"
#include "support/fault_of.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint64_t kDiskSize = 64 << 20;

class Convert : public MachineTest {
 protected:
  Convert() : disk_(NewDisk(1, kDiskSize)) {}

  void MakeGptDisk() {
    WriteGpt(disk_, {{kBasicDataGuid, 2048, 10239, 1}});
    Settle();
  }
  void MakeMbrDisk() {
    WriteMbr(disk_, {{7, 2048, 8192}});
    Settle();
  }

  std::int32_t Run(CallerRecord& record) {
    log_.clear();
    Events().clear();
    return converter_.Convert(&record.disk(), &RecordEvent);
  }

  // What is logged behind the print of the record, which has `volumes` lines for volumes.
  Texts LinesBehindRecord(std::size_t volumes = 0) const {
    const Texts lines = AllLines();
    const std::size_t printed = 3 + volumes;
    if (lines.size() < printed) return {"the record was not printed"};
    return {lines.begin() + static_cast<std::ptrdiff_t>(printed), lines.end()};
  }

  // Nothing was told, nothing is open.
  void ExpectRefused() {
    EXPECT_TRUE(Events().empty());
    EXPECT_EQ(converter_.disk_handle, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(machine_.handles().Open().empty());
  }

  simulator::Disk& disk_;
  Velkora converter_;

 private:
  // The system takes notice of the table.
  void Settle() {
    machine_.UpdateProperties(disk_);
    machine_.calls().Clear();
  }
};

TEST_F(Convert, PrintsTheRecordBeforeItOpensTheDisk) {
  CallerRecord record(DiskType::kGpt, 5, 1000);
  record.Add(512, VolumeFileSystem::kFat32, "E:").size = 99;
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(AllLines(),
            (Texts{"1 -----------diskinfo-----------",
                   "1 [disk] disk_type: GPT, id: \\\\.\\PhysicalDrive5, index: 5, serial_num: "
                   "SERIAL, is_system: 0, size: 1000, volume_count: 1",
                   "1 [part] offset: 512, size: 99, letter: E:, is_system: 0, filesystem: FAT32",
                   "1 ------------------------------",
                   "3 open device failed, device_id: \\\\.\\PhysicalDrive5, error_code: 2"}));
  ExpectRefused();
}

TEST_F(Convert, KeepsRecordAndCallback) {
  CallerRecord record(DiskType::kRaw);
  Run(record);
  EXPECT_EQ(converter_.disk_info, &record.disk());
  EXPECT_EQ(converter_.callback, &RecordEvent);
}

TEST_F(Convert, FailsWhenTheDiskCannotBeOpened) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt);
  record.disk().is_system = 1;
  machine_.calls().FailOn("CreateFileA", 1, 32);
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(),
            (Texts{"3 open device failed, device_id: \\\\.\\PhysicalDrive1, error_code: 32"}));
  ExpectRefused();
  EXPECT_EQ(GetGlobalContext().is_system, 0) << "taken over only from an open disk";
}

TEST_F(Convert, OpensTheDiskOnceByItsPath) {
  MakeGptDisk();
  CallerRecord record(DiskType::kMbr);
  Run(record);
  EXPECT_EQ(machine_.calls().Count("CreateFileA"), 1U);
  EXPECT_EQ(machine_.calls().calls().at(0).detail, "\\\\.\\PhysicalDrive1");
}

TEST_F(Convert, TakesOverIsSystem) {
  CallerRecord record(DiskType::kRaw);
  record.disk().is_system = 1;
  Run(record);
  EXPECT_EQ(GetGlobalContext().is_system, 1);
  record.disk().is_system = 0;
  Run(record);
  EXPECT_EQ(GetGlobalContext().is_system, 0);
}

TEST_F(Convert, TakesOverIsSystemBeforeTheStyleIsCompared) {
  MakeMbrDisk();
  CallerRecord record(DiskType::kGpt);
  record.disk().is_system = 1;
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(GetGlobalContext().is_system, 1);
}

TEST_F(Convert, RefusesAGptRecordOfAnMbrDisk) {
  MakeMbrDisk();
  CallerRecord record(DiskType::kGpt);
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(), (Texts{"3 Disk type (GPT/MBR) check conflict! stop convert."}));
  ExpectRefused();
}

TEST_F(Convert, RefusesAnMbrRecordOfAGptDisk) {
  MakeGptDisk();
  CallerRecord record(DiskType::kMbr);
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(), (Texts{"3 Disk type (GPT/MBR) check conflict! stop convert."}));
  ExpectRefused();
}

TEST_F(Convert, FailsWhenTheStyleCannotBeAsked) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt);
  machine_.calls().FailOn("DeviceIoControl/IOCTL_DISK_GET_PARTITION_INFO_EX", 1, 5);
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(),
            (Texts{"3 DeviceIoControl with IOCTL_DISK_GET_PARTITION_INFO_EX error 5"}));
  ExpectRefused();
}

TEST_F(Convert, RefusesARawRecordOfAnyDisk) {
  CallerRecord record(DiskType::kRaw);
  EXPECT_EQ(Run(record), 1) << "a disk without a table";
  EXPECT_EQ(LinesBehindRecord(), (Texts{"2 Disk type is raw!"}));
  ExpectRefused();

  MakeMbrDisk();
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(), (Texts{"2 Disk type is raw!"}));
  ExpectRefused();

  MakeGptDisk();
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(), (Texts{"2 Disk type is raw!"}));
  ExpectRefused();
}

TEST_F(Convert, TakesUnknownTypesForRaw) {
  MakeGptDisk();
  CallerRecord record(DiskType{3});
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(), (Texts{"2 Disk type is raw!"}));
  ExpectRefused();
}

TEST_F(Convert, ARawDiskPassesTheTestOfTheStyle) {
  CallerRecord record(DiskType::kGpt, 1, kDiskSize);
  EXPECT_EQ(Run(record), 0) << "a table of zeros has no partitions";
  EXPECT_EQ(LinesBehindRecord().at(1), "1 GPT2MBR start");
  EXPECT_EQ(Events().back(), (Event{0, 7}));
}

TEST_F(Convert, AnUnreadableTableIsNotHeardOf) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt);
  machine_.calls().FailOn("ReadFile", 1, 23);
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(), (Texts{"3 Read Error: 23", "3 Get partitions fail!"}));
  ExpectRefused();
}

TEST_F(Convert, AStopBeforeItIsNotHeardOf) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt);
  converter_.Stop();
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(), (Texts{"3 Get partitions fail!"}));
  ExpectRefused();
  EXPECT_TRUE(scripts_.empty());
}

TEST_F(Convert, AStopAfterASuccessFailsTheNextOne) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt, 1, kDiskSize);
  EXPECT_EQ(Run(record), 0);
  converter_.Stop();
  MakeGptDisk();
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(), (Texts{"3 Get partitions fail!"}));
  EXPECT_TRUE(Events().empty());
}

TEST_F(Convert, AStopByOneObjectStopsAnother) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt);
  Velkora().Stop();
  EXPECT_EQ(Run(record), 1);
  EXPECT_EQ(LinesBehindRecord(), (Texts{"3 Get partitions fail!"}));
}

TEST_F(Convert, ClosesTheDiskAfterASuccess) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt, 1, kDiskSize);
  bool open_during_run = false;
  EventHook() = [&](Event) { open_during_run = converter_.disk_handle != INVALID_HANDLE_VALUE; };
  EXPECT_EQ(Run(record), 0);
  EXPECT_TRUE(open_during_run);
  EXPECT_EQ(converter_.disk_handle, INVALID_HANDLE_VALUE);
  for (const std::string& handle : machine_.handles().Open()) {
    EXPECT_EQ(handle, "process") << "only the handles of elevated runs stay open";
  }
}

TEST_F(Convert, ADiskWithoutVolumesInTheRecordIsConverted) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt, 1, kDiskSize);
  EXPECT_EQ(Run(record), 0);
  EXPECT_EQ(Events().back(), (Event{0, 7}));
}

TEST_F(Convert, MoreThan255VolumesAreAnAccessViolationBeforeTheDiskIsOpened) {
  CallerRecord record(DiskType::kGpt);
  for (std::uint64_t i = 0; i < 255; ++i) record.Add(i * 512);
  record.disk().volume_count = 256;
  EXPECT_EQ(FaultOf([&] { Run(record); }), EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(machine_.calls().Count("CreateFileA"), 0U);
  EXPECT_TRUE(Events().empty());
}

TEST_F(Convert, ARecordOf255VolumesWorks) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt, 1, kDiskSize);
  for (std::uint64_t i = 0; i < 254; ++i) record.Add(100'000'000 + i).part_number = 9;
  record.Add(1'048'576).part_number = 9;
  EXPECT_EQ(Run(record), 0);
  EXPECT_EQ(record.volume(254).part_number, 1);
  EXPECT_EQ(record.volume(0).part_number, 9);
}

TEST(Progress, StatusIsKindZeroAndPercentKindOne) {
  Velkora converter;
  converter.callback = &RecordEvent;
  Events().clear();
  SendPercent(converter, 20);
  SendStatus(converter, VelkoraStatus::kClearing);
  SendStatus(converter, VelkoraStatus::kRollbackFailed);
  EXPECT_EQ(Events(), (std::vector<Event>{{1, 20}, {0, 2}, {0, 11}}));
}

TEST_F(Convert, IgnoresWhatTheCallbackReturns) {
  MakeGptDisk();
  CallerRecord record(DiskType::kGpt, 1, kDiskSize);
  const auto refuse = [](std::int32_t, std::int32_t) { return std::int32_t{1}; };
  EXPECT_EQ(converter_.Convert(&record.disk(), refuse), 0);
}

}  // namespace
}  // namespace velkora
