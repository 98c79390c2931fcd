#include "shrink/ntfs_diskpart_shrink.h"

#include <deque>

#include "frame/global_context.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

constexpr std::uint32_t kUntouched = 0xCDCDCDCD;
constexpr DWORD kTooBig = 0x80042574;
constexpr DWORD kDamaged = 0x8004259A;
constexpr DWORD kTooSmall = 0x80070057;

const char kShrinkLine[] =
    "diskpart /s \"X:\\logs\\DISKPART_compress_cmd.log\" >> "
    "\"X:\\logs\\DISKPART_compress_result.log\"";

// Disk 3 has two NTFS volumes; the second, partition 2, is shrunk. The tools end with the statuses
// that a test gives them, run by run, and with 0 behind those.
class CompressNtfsWithDiskpart : public MachineTest {
 protected:
  CompressNtfsWithDiskpart() {
    simulator::Disk& disk = NewDisk(3, 64 * kMiB);
    WriteMbr(disk, {{7, 2048, 30720}, {7, 34816, 30720}});
    WriteNtfsBootSector(disk, 2048, 30719);
    WriteNtfsBootSector(disk, 34816, 30719);
    machine_.UpdateProperties(disk);
    path_ = machine_.FindVolumeAt(3, 34816 * 512)->path;
    ScriptTool("diskpart", diskpart_);
    ScriptTool("chkdsk", chkdsk_);
    machine_.calls().Clear();
  }

  void ScriptTool(const char* name, std::deque<DWORD>& statuses) {
    machine_.SetCommand(name, [this, name, &statuses](auto&, const Texts&) {
      runs_.emplace_back(name);
      scripts_seen_.push_back(LogsFileText("DISKPART_compress_cmd.log"));
      const DWORD status = statuses.empty() ? 0 : statuses.front();
      if (!statuses.empty()) statuses.pop_front();
      return simulator::CommandResult{status, std::string(name) + " ran\r\n"};
    });
  }

  bool Shrink(std::uint32_t size_mib, bool retry_allowed = true) {
    return velkora::CompressNtfsWithDiskpart(3, size_mib, path_, &error_code_, retry_allowed);
  }

  static std::string Script(std::uint64_t size_mib) {
    return "sel disk 3\r\nsel partition 2\r\nshrink desired=" + std::to_string(size_mib) + "\r";
  }
  // The line of the process runner for a tool that ended with this status.
  static LogLine Ended(DWORD status) {
    return {3, "GetExitCodeProcess fail, error: " + std::to_string(static_cast<int>(status)) +
                   ", last error: 0"};
  }

  std::string path_;
  std::deque<DWORD> diskpart_;
  std::deque<DWORD> chkdsk_;
  Texts runs_;
  Texts scripts_seen_;
  std::uint32_t error_code_ = kUntouched;
};

const LogLine kBegin = {1, "Compress NTFS Partition..."};
const LogLine kSuccess = {1, "Compress NTFS Success!"};
const LogLine kDamageLine = {3, "Compress Ntfs Partition Error: Filesystem Damage!"};
const LogLine kChkdskBegin = {1, "CHKDSK Begin..."};
const LogLine kRetryLine = {
    2, "Compress Ntfs Partition Error: Compress Size Too Small! Compress Size Plus One And Retry."};

TEST_F(CompressNtfsWithDiskpart, RunsTheScriptThroughTheElevatedShell) {
  EXPECT_TRUE(Shrink(300));
  EXPECT_EQ(shell_lines_, Texts{std::string("elevated: /c ") + kShrinkLine});
  EXPECT_EQ(LogsFileText("DISKPART_compress_cmd.log"), Script(300));
  EXPECT_EQ(error_code_, kUntouched);
  EXPECT_EQ(log_, (Log{kBegin, kSuccess}));
}

TEST_F(CompressNtfsWithDiskpart, SizeZeroSucceedsWithoutAskingForAnything) {
  EXPECT_TRUE(Shrink(0));
  EXPECT_EQ(machine_.calls().calls().size(), 0U);
  EXPECT_EQ(error_code_, kUntouched);
  EXPECT_EQ(log_, (Log{kBegin, {1, "Compress Size : 0"}, {1, "Compress NTFS Partition End!"}}));
}

TEST_F(CompressNtfsWithDiskpart, VolumeWithoutAPartitionNumberIsAFailureWithoutACode) {
  machine_.calls().FailOn("DeviceIoControl/IOCTL_STORAGE_GET_DEVICE_NUMBER", 1, 21);
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, kUntouched);
  EXPECT_EQ(runs_, Texts{});
  EXPECT_FALSE(std::filesystem::exists(LogsFile("DISKPART_compress_cmd.log")));
  EXPECT_EQ(log_, (Log{kBegin,
                       {3, "DeviceIoControl with IOCTL_STORAGE_GET_DEVICE_NUMBER error 21"},
                       {3, "GetDeviceIndex Failed!"}}));
}

TEST_F(CompressNtfsWithDiskpart, VolumeThatCannotBeOpenedIsAFailureWithoutACode) {
  machine_.calls().FailOn("CreateFileA", 1, ERROR_ACCESS_DENIED);
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, kUntouched);
  EXPECT_EQ(runs_, Texts{});
  EXPECT_EQ(log_, (Log{kBegin,
                       {3, "open device failed, device_id: " + path_ + ", error_code: 5"},
                       {3, "GetDeviceIndex Failed!"}}));
}

TEST_F(CompressNtfsWithDiskpart, LargestNumbersStandInPlainDecimal) {
  EXPECT_TRUE(velkora::CompressNtfsWithDiskpart(0xFFFFFFFF, 0xFFFFFFFF, path_, &error_code_, true));
  EXPECT_EQ(LogsFileText("DISKPART_compress_cmd.log"),
            "sel disk 4294967295\r\nsel partition 2\r\nshrink desired=4294967295\r");
}

TEST_F(CompressNtfsWithDiskpart, TooBigASizeHasACodeOfItsOwn) {
  diskpart_ = {kTooBig};
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1424U);
  EXPECT_EQ(runs_, Texts{"diskpart"});
  EXPECT_EQ(
      log_,
      (Log{kBegin, Ended(kTooBig), {3, "Compress Ntfs Partition Error: Compress Size Too Big!"}}));
}

TEST_F(CompressNtfsWithDiskpart, AnyOtherStatusIsReportedAsItIs) {
  diskpart_ = {0x80042405};
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1416U);
  EXPECT_EQ(log_, (Log{kBegin, Ended(0x80042405), {3, "Compress Ntfs Partition Error! 80042405"}}));
}

TEST_F(CompressNtfsWithDiskpart, RefusedElevationIsReportedWithStatusZero) {
  machine_.calls().FailOn("ShellExecuteExW", 1, ERROR_CANCELLED);
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1416U);
  EXPECT_EQ(log_,
            (Log{kBegin, {3, "ShellExecuteExW fail"}, {3, "Compress Ntfs Partition Error! 0"}}));
}

TEST_F(CompressNtfsWithDiskpart, ExitStatusThatCannotBeHadIsReportedAsZero) {
  machine_.calls().FailOn("GetExitCodeProcess");
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1416U);
  EXPECT_EQ(runs_, Texts{"diskpart"});
  EXPECT_EQ(log_, (Log{kBegin, {3, "Compress Ntfs Partition Error! 0"}}));
}

TEST_F(CompressNtfsWithDiskpart, TooSmallASizeIsTriedOnceMoreWithOneMiBMore) {
  diskpart_ = {kTooSmall};
  EXPECT_TRUE(Shrink(300));
  EXPECT_EQ(scripts_seen_, (Texts{Script(300), Script(301)}));
  EXPECT_EQ(LogsFileText("DISKPART_compress_cmd.log"), Script(301));
  EXPECT_EQ(error_code_, kUntouched);
  EXPECT_EQ(log_, (Log{kBegin, Ended(kTooSmall), kRetryLine, kBegin, kSuccess, kSuccess}));
}

TEST_F(CompressNtfsWithDiskpart, TooSmallASizeTwiceEndsWithTheFirstStatus) {
  diskpart_ = {kTooSmall, kTooSmall};
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1416U);
  EXPECT_EQ(runs_, (Texts{"diskpart", "diskpart"}));
  EXPECT_EQ(log_, (Log{kBegin,
                       Ended(kTooSmall),
                       kRetryLine,
                       kBegin,
                       Ended(kTooSmall),
                       {3, "Compress Ntfs Partition Error! 80070057"},
                       {3, "Retry Compress Ntfs Partition Error! 80070057"}}));
}

TEST_F(CompressNtfsWithDiskpart, RetryThatFailsOtherwiseKeepsItsOwnCode) {
  diskpart_ = {kTooSmall, kTooBig};
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1424U);
  EXPECT_EQ(log_.back(), (LogLine{3, "Retry Compress Ntfs Partition Error! 80070057"}));
}

TEST_F(CompressNtfsWithDiskpart, WithoutPermissionToRetryTooSmallASizeIsAnOrdinaryFailure) {
  diskpart_ = {kTooSmall};
  EXPECT_FALSE(Shrink(300, /*retry_allowed=*/false));
  EXPECT_EQ(error_code_, 1416U);
  EXPECT_EQ(runs_, Texts{"diskpart"});
  EXPECT_EQ(log_, (Log{kBegin, Ended(kTooSmall), {3, "Compress Ntfs Partition Error! 80070057"}}));
}

// The enlarged size is an unsigned number like any other: behind the largest comes 0.
TEST_F(CompressNtfsWithDiskpart, LargestSizeWrapsToZeroInTheRetry) {
  diskpart_ = {kTooSmall};
  EXPECT_TRUE(Shrink(0xFFFFFFFF));
  EXPECT_EQ(runs_, Texts{"diskpart"});
  EXPECT_EQ(log_, (Log{kBegin,
                       Ended(kTooSmall),
                       kRetryLine,
                       kBegin,
                       {1, "Compress Size : 0"},
                       {1, "Compress NTFS Partition End!"},
                       kSuccess}));
}

TEST_F(CompressNtfsWithDiskpart, RetriedCallRepairsToo) {
  diskpart_ = {kTooSmall, kDamaged, 0};
  EXPECT_TRUE(Shrink(300));
  EXPECT_EQ(runs_, (Texts{"diskpart", "diskpart", "chkdsk", "diskpart"}));
  EXPECT_EQ(scripts_seen_.back(), Script(301));
}

TEST_F(CompressNtfsWithDiskpart, DamageIsRepairedAndTheSameScriptRunOnceMore) {
  diskpart_ = {kDamaged};
  EXPECT_TRUE(Shrink(300));
  EXPECT_EQ(runs_, (Texts{"diskpart", "chkdsk", "diskpart"}));
  EXPECT_EQ(shell_lines_,
            (Texts{std::string("elevated: /c ") + kShrinkLine,
                   "elevated: /c chkdsk " + path_ + " /x >> \"X:\\logs\\CHKDSK_cmd.log\"",
                   std::string("elevated: /c ") + kShrinkLine}));
  EXPECT_EQ(machine_.calls().Count("_wfopen_s"), 1U);  // the script is written once
  EXPECT_EQ(error_code_, kUntouched);
  EXPECT_EQ(
      log_,
      (Log{kBegin, Ended(kDamaged), kDamageLine, kChkdskBegin, {1, "CHKDSK Success!"}, kSuccess}));
}

TEST_F(CompressNtfsWithDiskpart, StatusOneOfChkdskIsARepair) {
  diskpart_ = {kDamaged};
  chkdsk_ = {1};
  EXPECT_TRUE(Shrink(300));
  EXPECT_EQ(runs_, (Texts{"diskpart", "chkdsk", "diskpart"}));
  EXPECT_EQ(log_, (Log{kBegin,
                       Ended(kDamaged),
                       kDamageLine,
                       kChkdskBegin,
                       Ended(1),
                       {1, "CHKDSK Success!"},
                       kSuccess}));
}

TEST_F(CompressNtfsWithDiskpart, StatusZeroOfChkdskIsARepairToo) {
  diskpart_ = {kDamaged};
  chkdsk_ = {0};
  EXPECT_TRUE(Shrink(300));
  EXPECT_EQ(runs_, (Texts{"diskpart", "chkdsk", "diskpart"}));
}

// Damage that is still there does not start another repair.
TEST_F(CompressNtfsWithDiskpart, VolumeIsRepairedOnce) {
  diskpart_ = {kDamaged, kDamaged};
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1416U);
  EXPECT_EQ(runs_, (Texts{"diskpart", "chkdsk", "diskpart"}));
}

// Nor does a size that is too small behind a repair start a retry.
TEST_F(CompressNtfsWithDiskpart, TooSmallASizeBehindARepairIsNotTriedAgain) {
  diskpart_ = {kDamaged, kTooSmall};
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1416U);
  EXPECT_EQ(runs_, (Texts{"diskpart", "chkdsk", "diskpart"}));
  EXPECT_EQ(log_.back(), (LogLine{3, "Compress Ntfs Partition Error! 0"}));
}

TEST_F(CompressNtfsWithDiskpart, AnyOtherStatusOfChkdskEndsTheRun) {
  diskpart_ = {kDamaged};
  chkdsk_ = {3};
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1425U);
  EXPECT_EQ(runs_, (Texts{"diskpart", "chkdsk"}));
  EXPECT_EQ(log_, (Log{kBegin,
                       Ended(kDamaged),
                       kDamageLine,
                       kChkdskBegin,
                       Ended(3),
                       {3, "Repair Part Error!"}}));
}

TEST_F(CompressNtfsWithDiskpart, ChkdskThatCannotBeStartedEndsTheRun) {
  diskpart_ = {kDamaged};
  machine_.calls().FailOn("ShellExecuteExW", 2, ERROR_CANCELLED);
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1425U);
  EXPECT_EQ(log_.back(), (LogLine{3, "Repair Part Error!"}));
}

// What diskpart said the second time is not looked at, not even that the size is too big.
TEST_F(CompressNtfsWithDiskpart, SecondFailureBehindARepairReportsTheRepairsStatus) {
  for (const DWORD repair : {0U, 1U}) {
    log_.clear();
    diskpart_ = {kDamaged, kTooBig};
    chkdsk_ = {repair};
    error_code_ = kUntouched;
    EXPECT_FALSE(Shrink(300));
    EXPECT_EQ(error_code_, 1416U);
    EXPECT_EQ(log_.back(),
              (LogLine{3, "Compress Ntfs Partition Error! " + std::to_string(repair)}));
  }
}

TEST_F(CompressNtfsWithDiskpart, OnTheSystemRouteEveryRunOfTheShellIsASuccess) {
  velkora::GetGlobalContext().is_system = 1;
  for (const DWORD status : {kTooBig, kDamaged, kTooSmall}) {
    log_.clear();
    diskpart_ = {status};
    EXPECT_TRUE(Shrink(300));
    EXPECT_EQ(log_, (Log{kBegin, kSuccess}));
  }
  EXPECT_EQ(shell_lines_, Texts(3, std::string("system: ") + kShrinkLine));
  EXPECT_EQ(error_code_, kUntouched);
}

TEST_F(CompressNtfsWithDiskpart, ShellThatCannotBeStartedIsReportedWithStatusZero) {
  velkora::GetGlobalContext().is_system = 1;
  machine_.calls().FailOn("system");
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(error_code_, 1416U);
  EXPECT_EQ(log_, (Log{kBegin, {3, "Compress Ntfs Partition Error! 0"}}));
}

TEST_F(CompressNtfsWithDiskpart, ResultLogsGrowAndTheScriptIsReplaced) {
  diskpart_ = {kDamaged};
  EXPECT_TRUE(Shrink(300));
  diskpart_ = {kDamaged};
  EXPECT_TRUE(Shrink(400));
  EXPECT_EQ(LogsFileText("DISKPART_compress_result.log"),
            "diskpart ran\r\ndiskpart ran\r\ndiskpart ran\r\ndiskpart ran\r\n");
  EXPECT_EQ(LogsFileText("CHKDSK_cmd.log"), "chkdsk ran\r\nchkdsk ran\r\n");
  EXPECT_EQ(LogsFileText("DISKPART_compress_cmd.log"), Script(400));
}

// Neither the open nor the write is tested: diskpart runs all the same.
TEST_F(CompressNtfsWithDiskpart, ScriptThatCannotBeOpenedIsNotNoticed) {
  machine_.calls().FailOn("_wfopen_s");
  diskpart_ = {3};
  EXPECT_FALSE(Shrink(300));
  EXPECT_EQ(scripts_seen_, Texts{""});
  EXPECT_EQ(log_.back(), (LogLine{3, "Compress Ntfs Partition Error! 3"}));
}

TEST_F(CompressNtfsWithDiskpart, ScriptThatCannotBeWrittenIsNotNoticed) {
  machine_.calls().FailOn("fwrite");
  EXPECT_TRUE(Shrink(300));
  EXPECT_EQ(log_, (Log{kBegin, kSuccess}));
}

TEST_F(CompressNtfsWithDiskpart, StopIsNotLookedAt) {
  velkora::GetGlobalContext().stop_requested = 1;
  EXPECT_TRUE(Shrink(300));
}

TEST_F(CompressNtfsWithDiskpart, NothingIsLeftOpenButTheProcesses) {
  EXPECT_TRUE(Shrink(300));
  EXPECT_EQ(machine_.handles().Open(), Texts{"process"});
}

}  // namespace
}  // namespace testing_support
