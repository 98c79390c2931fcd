#include "simulator/commands/bcdboot.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/commands/bcd_store.h"
#include "simulator/diskpart_fixture.h"
#include "simulator/storage/partition_store.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"

namespace testing_support {
namespace {

using simulator::BcdStore;
using simulator::ParseBcdFile;
using simulator::VolumeFiles;

constexpr std::uint64_t kWindows = 200 * kMiB;

const std::vector<std::string> kUefiFiles = {
    "\\EFI\\Microsoft\\Boot\\bootmgfw.efi", "\\EFI\\Microsoft\\Boot\\bootmgr.efi",
    "\\EFI\\Microsoft\\Boot\\memtest.efi", "\\EFI\\Microsoft\\Boot\\BCD",
    "\\EFI\\Boot\\bootx64.efi"};
const std::vector<std::string> kBiosFiles = {"\\bootmgr", "\\BOOTNXT", "\\Boot\\BCD",
                                             "\\Boot\\memtest.exe"};

// Disk 1 with a FAT32 volume S and another W behind it, which has a Windows folder.
class Bcdboot : public DiskpartTest {
 protected:
  void MakeGptDisk() {
    MakeGpt(AttachDisk(512 * kMiB), {{kMiB, 100 * kMiB}, {kWindows, 100 * kMiB}});
    FormatAndInstall(kWindows);
  }
  void FormatAndInstall(std::uint64_t windows) {
    ASSERT_EQ(RunOnDisk({"select part 1", "format fs=fat32 quick override", "remove letter=C",
                         "assign letter=S", "select part 2", "format fs=fat32 quick override"}),
              0U)
        << output_;
    machine_.SetLetter(1, windows, 'W');
    machine_.AddFile(1, windows, "Windows\\System32\\winload.exe");
  }

  DWORD Run(const std::vector<std::string>& words) {
    return simulator::RunBcdboot(machine_.system(), words).exit_status;
  }
  std::vector<std::string> Present(const std::string& letter,
                                   const std::vector<std::string>& paths) {
    std::vector<std::string> present;
    for (const std::string& path : paths) {
      if (VolumeFiles(machine_).Exists(letter + path)) present.push_back(path);
    }
    return present;
  }
  BcdStore Store(std::string_view path) {
    std::string bytes;
    EXPECT_EQ(VolumeFiles(machine_).Read(path, bytes), ERROR_SUCCESS);
    const auto store = ParseBcdFile(bytes);
    EXPECT_TRUE(store);
    return store.value_or(BcdStore());
  }
};

TEST_F(Bcdboot, UefiFilesAreThoseOfAnEfiSystemPartition) {
  MakeGptDisk();
  EXPECT_EQ(Run({"/v", "W:\\Windows", "/s", "S:", "/f", "uefi"}), 0U);
  EXPECT_EQ(Present("S:", kUefiFiles), kUefiFiles);
  EXPECT_TRUE(Present("S:", kBiosFiles).empty());
}

TEST_F(Bcdboot, BiosFilesLieAtTheRoot) {
  MakeGptDisk();
  EXPECT_EQ(Run({"/v", "W:\\Windows", "/s", "W:", "/f", "bios"}), 0U);
  EXPECT_EQ(Present("W:", kBiosFiles), kBiosFiles);
  EXPECT_TRUE(Present("W:", kUefiFiles).empty());
}

TEST_F(Bcdboot, WithoutAFirmwareTheDisksStyleDecides) {
  MakeGptDisk();
  EXPECT_EQ(Run({"/v", "W:\\Windows", "/s", "S:"}), 0U);
  EXPECT_EQ(Present("S:", kUefiFiles), kUefiFiles);
  EXPECT_TRUE(Present("S:", kBiosFiles).empty());
}

TEST_F(Bcdboot, WithoutAFirmwareAnMbrDiskGetsBiosFiles) {
  simulator::Disk& disk = AttachDisk(512 * kMiB);
  MakeMbr(disk);
  simulator::DiskLayout layout = LayoutOf(disk);
  for (std::size_t row : {0U, 1U}) {
    layout.rows[row].StartingOffset.QuadPart = static_cast<LONGLONG>((1 + 200 * row) * kMiB);
    layout.rows[row].PartitionLength.QuadPart = static_cast<LONGLONG>(100 * kMiB);
    layout.rows[row].RewritePartition = TRUE;
  }
  layout.rows.resize(4);
  layout.rows[2] = layout.rows[3];
  layout.rows[2].RewritePartition = TRUE;
  layout.header.PartitionCount = 4;
  ASSERT_EQ(machine_.SetLayout(disk, layout), ERROR_SUCCESS);
  machine_.SetLetter(1, kMiB, 'C');
  FormatAndInstall(201 * kMiB);
  EXPECT_EQ(Run({"/v", "W:\\Windows", "/s", "S:"}), 0U);
  EXPECT_EQ(Present("S:", kBiosFiles), kBiosFiles);
}

TEST_F(Bcdboot, TheStoreNamesBothVolumesAndTheResumeObject) {
  MakeGptDisk();
  ASSERT_EQ(Run({"/v", "w:\\Windows", "/s", "s:", "/f", "UEFI"}), 0U);
  BcdStore store = Store("S:\\EFI\\Microsoft\\Boot\\BCD");
  ASSERT_NE(store.Find("{bootmgr}"), nullptr);
  ASSERT_NE(store.Find("{default}"), nullptr);
  EXPECT_EQ(store.Find("{bootmgr}")->Value("device"), "partition=S:");
  EXPECT_EQ(store.Find("{bootmgr}")->Value("path"), "\\EFI\\Microsoft\\Boot\\bootmgfw.efi");
  EXPECT_EQ(store.Find("{default}")->Value("device"), "partition=W:");
  EXPECT_EQ(store.Find("{default}")->Value("path"), "\\Windows\\system32\\winload.efi");
  const std::string_view resume = store.Find("{bootmgr}")->Value("resumeobject");
  EXPECT_EQ(store.Find("{default}")->Value("resumeobject"), resume);
  EXPECT_NE(store.Find(resume), nullptr);
}

TEST_F(Bcdboot, ANewStoreReplacesTheOldOne) {
  MakeGptDisk();
  ASSERT_EQ(Run({"W:\\Windows", "/s", "W:", "/f", "bios"}), 0U);
  const std::string first(Store("W:\\Boot\\BCD").Find("{default}")->Value("resumeobject"));
  ASSERT_EQ(Run({"W:\\Windows", "/s", "W:", "/f", "bios"}), 0U);
  EXPECT_NE(Store("W:\\Boot\\BCD").Find("{default}")->Value("resumeobject"), first);
}

TEST_F(Bcdboot, NeedsAWindowsFolder) {
  MakeGptDisk();
  EXPECT_EQ(Run({"/v", "S:\\Windows", "/s", "S:", "/f", "uefi"}), 1U);
  EXPECT_EQ(Run({"/v", "Q:\\Windows", "/s", "S:", "/f", "uefi"}), 1U);
  EXPECT_TRUE(Present("S:", kUefiFiles).empty());
}

TEST_F(Bcdboot, NeedsAVolumeToStartFrom) {
  MakeGptDisk();
  EXPECT_EQ(Run({"/v", "W:\\Windows", "/s", "Q:", "/f", "uefi"}), 1U);
  EXPECT_EQ(Run({"/v", "W:\\Windows", "/s", "X:", "/f", "uefi"}), 1U);
  machine_.FindVolumeByLetter('S')->locked = true;
  EXPECT_EQ(Run({"/v", "W:\\Windows", "/s", "S:", "/f", "uefi"}), 1U);
}

TEST_F(Bcdboot, FailsOnAFullVolume) {
  MakeGptDisk();
  simulator::VolumeFiles files(machine_);
  std::string filling(80 * kMiB, 'x');
  for (int i = 0; filling.size() >= 128; ++i) {
    if (files.Write("S:\\filling" + std::to_string(i), filling) != ERROR_SUCCESS) {
      filling.resize(filling.size() / 2);
    }
  }
  EXPECT_EQ(Run({"/v", "W:\\Windows", "/s", "S:", "/f", "uefi"}), 1U);
}

TEST_F(Bcdboot, OtherArgumentsAreRefused) {
  MakeGptDisk();
  EXPECT_EQ(Run({}), 1U);
  EXPECT_EQ(Run({"W:\\Windows"}), 1U);
  EXPECT_EQ(Run({"/s", "S:"}), 1U);
  EXPECT_EQ(Run({"W:\\Windows", "/s"}), 1U);
  EXPECT_EQ(Run({"W:\\Windows", "/s", "S"}), 1U);
  EXPECT_EQ(Run({"W:\\Windows", "/s", "S:", "/f", "other"}), 1U);
  EXPECT_EQ(Run({"W:\\Windows", "W:\\Windows", "/s", "S:"}), 1U);
  EXPECT_TRUE(Present("S:", kUefiFiles).empty());
}

}  // namespace
}  // namespace testing_support
