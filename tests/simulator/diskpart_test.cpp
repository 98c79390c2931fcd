#include "simulator/commands/diskpart.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

#include "simulator/commands/diskpart_layout.h"
#include "simulator/commands/shell.h"
#include "simulator/disk.h"
#include "simulator/diskpart_fixture.h"

namespace testing_support {
namespace {

using simulator::Disk;

class Diskpart : public DiskpartTest {};

bool AreAll(const std::vector<std::byte>& bytes, std::byte value) {
  return std::all_of(bytes.begin(), bytes.end(), [value](std::byte b) { return b == value; });
}

// ---- The run itself -----------------------------------------------------------------------------

TEST_F(Diskpart, ScriptIsAParameterAndAFileThatOpens) {
  EXPECT_EQ(simulator::RunDiskpart(machine_.system(), {}).exit_status, 2U);
  EXPECT_EQ(simulator::RunDiskpart(machine_.system(), {"/x", "X:\\script.txt"}).exit_status, 2U);
  EXPECT_EQ(simulator::RunDiskpart(machine_.system(), {"/s", "X:\\"}).exit_status, 3U);
  EXPECT_EQ(simulator::RunDiskpart(machine_.system(), {"/s", "Q:\\script.txt"}).exit_status, 3U);
}

TEST_F(Diskpart, TellsTheListenerTheScriptAsItStands) {
  std::vector<std::string> scripts;
  machine_.on_script = [&scripts](std::string_view text) { scripts.emplace_back(text); };
  EXPECT_EQ(RunScript("rescan\r\n\r\nRESCAN\r"), 0U);
  EXPECT_EQ(scripts, (std::vector<std::string>{"rescan\r\n\r\nRESCAN\r"}));
}

TEST_F(Diskpart, TellsTheListenerTheScriptOfARunThatFailsOnDemand) {
  std::vector<std::string> scripts;
  machine_.on_script = [&scripts](std::string_view text) { scripts.emplace_back(text); };
  std::ofstream(folder_.path() / "cmd.log", std::ios::binary) << "rescan\r\n";
  machine_.calls().FailOn("command/diskpart", 1, 5);
  EXPECT_EQ(simulator::RunShellLine(machine_.system(), R"(diskpart.exe /s "X:\cmd.log")"), 5U);
  EXPECT_EQ(scripts, (std::vector<std::string>{"rescan\r\n"}));
}

TEST_F(Diskpart, StopsAtTheFirstFailingLineAndKeepsWhatTheEarlierDid) {
  Disk& disk = AttachDisk(200 * kMiB);
  EXPECT_EQ(RunOnDisk({"convert gpt", "nonsense", "clean"}), kSyntaxError);
  EXPECT_EQ(LayoutOf(disk).header.PartitionStyle, DWORD{PARTITION_STYLE_GPT});
  EXPECT_TRUE(Printed("> nonsense"));
  EXPECT_TRUE(Printed("0x80070057"));
  EXPECT_FALSE(Printed("> clean"));
}

TEST_F(Diskpart, RefusesLinesThatItDoesNotKnow) {
  AttachDisk(200 * kMiB);
  for (const std::string_view line :
       {"select", "select disk", "select disk x", "select disk -1", "select volume 1", "clean all",
        "convert", "convert raw", "list", "rescan now", "create part efi", "offline", "disk 1"}) {
    EXPECT_EQ(RunOnDisk({line}), kSyntaxError) << line;
  }
}

// ---- Focus --------------------------------------------------------------------------------------

TEST_F(Diskpart, SelectDiskTakesWhatIsThere) {
  AttachDisk(200 * kMiB);
  EXPECT_EQ(Run({"sel disk 1"}), 0U);
  EXPECT_TRUE(Printed("Disk 1 is now the selected disk."));
  EXPECT_EQ(Run({"select disk 2"}), kObjectNotFound);
  // One more than 32 bits can hold, so that a cut number would be disk 1.
  EXPECT_EQ(Run({"select disk 4294967297"}), kObjectNotFound);
}

TEST_F(Diskpart, VerbsWithoutADiskInFocusFail) {
  for (const std::string_view line :
       {"select part 1", "list part", "detail volume", "clean", "convert gpt",
        "create part efi size=100", "format fs=fat32 quick override", "active", "assign letter=S",
        "remove letter=S", "offline disk", "online disk"}) {
    EXPECT_EQ(Run({line}), kObjectNotFound) << line;
  }
}

TEST_F(Diskpart, VerbsWithoutAPartitionInFocusFail) {
  MakeGpt(AttachDisk(200 * kMiB), {{kMiB, 8 * kMiB}});
  for (const std::string_view line : {"detail volume", "format fs=fat32 quick override", "active",
                                      "assign letter=S", "remove letter=S"}) {
    EXPECT_EQ(RunOnDisk({line}), kObjectNotFound) << line;
  }
}

TEST_F(Diskpart, SelectingADiskForgetsThePartition) {
  MakeGpt(AttachDisk(200 * kMiB), {{kMiB, 8 * kMiB}});
  EXPECT_EQ(RunOnDisk({"select part 1", "detail volume"}), 0U);
  EXPECT_EQ(RunOnDisk({"select part 1", "select disk 1", "detail volume"}), kObjectNotFound);
}

// ---- clean --------------------------------------------------------------------------------------

TEST_F(Diskpart, CleanOfADiskBelowOneMiBStaysInside) {
  Disk& disk = AttachDisk(64 * 1024);
  Fill(disk, 0, 64 * 1024, std::byte{0xA5});
  EXPECT_EQ(RunOnDisk({"clean"}), 0U);
  EXPECT_TRUE(AreAll(Bytes(disk, 0, 64 * 1024), std::byte{0}));
}

TEST_F(Diskpart, CleanTakesThePartitionOutOfFocus) {
  Disk& disk = AttachDisk(200 * kMiB);
  MakeGpt(disk, {{kMiB, 8 * kMiB}});
  EXPECT_EQ(RunOnDisk({"select part 1", "clean", "convert gpt", "format fs=fat32 quick override"}),
            kObjectNotFound);
}

TEST_F(Diskpart, CleanOfTheSystemDiskIsRefusedWhereTheMachineSaysSo) {
  Disk& disk = AttachDisk(64 * kMiB);
  Fill(disk, 0, 512, std::byte{0xA5});
  machine_.SetSystemDisk(1);
  machine_.switches().refuse_clean_of_system_disk = true;
  EXPECT_EQ(RunOnDisk({"clean"}), kOperationDenied);
  EXPECT_TRUE(AreAll(Bytes(disk, 0, 512), std::byte{0xA5}));
  machine_.SetSystemDisk(0);
  EXPECT_EQ(RunOnDisk({"clean"}), 0U);
  machine_.SetSystemDisk(1);
  machine_.switches().refuse_clean_of_system_disk = false;
  EXPECT_EQ(RunOnDisk({"clean"}), 0U);
}

// ---- convert ------------------------------------------------------------------------------------

TEST_F(Diskpart, ConvertGptMakesOneReservedPartitionWhereTheSystemMakesItToo) {
  Disk& disk = AttachDisk(200 * kMiB);
  machine_.switches().create_disk_makes_reserved_partition = true;
  EXPECT_EQ(RunOnDisk({"convert gpt"}), 0U);
  EXPECT_EQ(LayoutOf(disk).rows.size(), 1U);
}

TEST_F(Diskpart, ConvertMbrDrawsASignature) {
  Disk& disk = AttachDisk(64 * kMiB);
  EXPECT_EQ(RunOnDisk({"convert mbr"}), 0U);
  disk.Forget();
  EXPECT_NE(LayoutOf(disk).header.Mbr.Signature, 0U);
}

TEST_F(Diskpart, ConvertGptNeeds128MiB) {
  Disk& disk = AttachDisk(128 * kMiB - 512);
  EXPECT_EQ(RunOnDisk({"convert gpt"}), kNotConvertible);
  EXPECT_EQ(LayoutOf(disk).header.PartitionStyle, DWORD{PARTITION_STYLE_RAW});
  simulator::CreateSparseImage(folder_.path() / "enough.img", 128 * kMiB);
  machine_.AttachDisk(2, folder_.path() / "enough.img");
  EXPECT_EQ(Run({"select disk 2", "convert gpt"}), 0U);
}

// ---- offline ------------------------------------------------------------------------------------

TEST_F(Diskpart, AnOfflineDiskIsNotChanged) {
  Disk& disk = AttachDisk(200 * kMiB);
  MakeGpt(disk, {{kMiB, 8 * kMiB}});
  ASSERT_EQ(RunOnDisk({"offline disk"}), 0U);
  const auto before = Bytes(disk, 0, kMiB);
  for (const std::string_view line :
       {"offline disk", "clean", "convert mbr", "create part efi size=100",
        "format fs=fat32 quick override", "active", "assign letter=S", "remove letter=S"}) {
    EXPECT_EQ(RunOnDisk({"select part 1", line}), kDiskOffline) << line;
  }
  EXPECT_EQ(Bytes(disk, 0, kMiB), before);
}

}  // namespace
}  // namespace testing_support
