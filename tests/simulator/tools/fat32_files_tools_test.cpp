// Files that the machine puts on FAT32 volumes, judged by fsck.fat and read by mtools; and those
// of mtools, read by the machine.
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/commands/bcdboot.h"
#include "simulator/commands/bootsect.h"
#include "simulator/disk.h"
#include "simulator/diskpart_fixture.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"
#include "support/tools/run_tool.h"

namespace testing_support {
namespace {

using simulator::Fat32Files;
using simulator::VolumeFiles;

constexpr std::uint64_t kLength = 100 * kMiB;

// An EFI system partition that diskpart made, as S.
class EfiSystemPartition : public DiskpartTest {
 protected:
  void SetUp() override {
    MakeGpt(AttachDisk(512 * kMiB), {{kMiB, kLength}});
    ASSERT_EQ(RunOnDisk({"create part efi size=100", "format fs=fat32 quick override",
                         "assign letter=S"}),
              0U)
        << output_;
    const simulator::Volume* volume = machine_.FindVolumeByLetter('S');
    ASSERT_NE(volume, nullptr);
    offset_ = volume->extents.front().offset;
  }

  std::string Image() const { return (folder_.path() / "disk.img").string(); }
  std::string Inside() const { return Image() + "@@" + std::to_string(offset_); }
  std::string Mtools(std::vector<std::string> words) {
    words.insert(words.begin() + 1, {"-i", Inside()});
    const ToolResult result = RunTool(words);
    EXPECT_EQ(result.exit_status, 0) << result.output;
    return result.output;
  }
  void ExpectClean(const std::string& files) {
    const auto copy = folder_.path() / "volume.img";
    const ToolResult cut =
        RunTool({"dd", "if=" + Image(), "of=" + copy.string(), "bs=1M", "conv=sparse",
                 "iflag=skip_bytes", "skip=" + std::to_string(offset_), "count=100"});
    ASSERT_EQ(cut.exit_status, 0) << cut.output;
    const ToolResult checked = RunTool({"fsck.fat", "-n", "-v", copy.string()});
    EXPECT_EQ(checked.exit_status, 0) << checked.output;
    EXPECT_NE(checked.output.find(": " + files + " files, "), std::string::npos) << checked.output;
    for (const std::string_view complaint : {"differ", "wrong", "rror", "not fix", "Unused"}) {
      EXPECT_EQ(checked.output.find(complaint), std::string::npos) << checked.output;
    }
  }

  std::uint64_t offset_ = 0;
};

TEST_F(EfiSystemPartition, IsCleanWhenNew) {
  ExpectClean("0");
}

TEST_F(EfiSystemPartition, ShowsToMtoolsWhatBcdbootPutThere) {
  machine_.SetLetter(1, kMiB, 'C');
  ASSERT_EQ(RunOnDisk({"select part 1", "format fs=fat32 quick override"}), 0U);
  machine_.AddFile(1, kMiB, "Windows\\System32\\winload.exe");
  const auto result =
      simulator::RunBcdboot(machine_.system(), {"/v", "C:\\Windows", "/s", "S:", "/f", "uefi"});
  ASSERT_EQ(result.exit_status, 0U) << result.output;
  EXPECT_EQ(Mtools({"mdir", "-/", "-b", "::/"}),
            "::/EFI/\n"
            "::/EFI/Microsoft/\n"
            "::/EFI/Boot/\n"
            "::/EFI/Microsoft/Boot/\n"
            "::/EFI/Microsoft/Boot/bootmgfw.efi\n"
            "::/EFI/Microsoft/Boot/bootmgr.efi\n"
            "::/EFI/Microsoft/Boot/memtest.efi\n"
            "::/EFI/Microsoft/Boot/BCD\n"
            "::/EFI/Boot/bootx64.efi\n");
  EXPECT_EQ(Mtools({"mtype", "::/EFI/Boot/bootx64.efi"}), "UEFI boot manager\r\n");
  ExpectClean("9");
}

TEST_F(EfiSystemPartition, StaysCleanWhileFilesComeAndGo) {
  VolumeFiles files(machine_);
  const std::string big(300'000, 'b');
  for (int i = 0; i < 200; ++i) {
    const std::string name = "S:\\Folder of files\\File number " + std::to_string(i) + ".text";
    ASSERT_EQ(files.Write(name, i % 3 == 0 ? big : name), ERROR_SUCCESS);
  }
  for (int i = 0; i < 200; i += 2) {
    const std::string name = "S:\\Folder of files\\File number " + std::to_string(i) + ".text";
    ASSERT_EQ(files.Remove(name), ERROR_SUCCESS);
  }
  for (int i = 0; i < 30; ++i) {
    const std::string name = "S:\\Folder of files\\B" + std::to_string(i);
    ASSERT_EQ(files.Write(name, name), ERROR_SUCCESS);
  }
  ASSERT_EQ(files.Write("S:\\Folder of files\\File number 3.text", "short now"), ERROR_SUCCESS);
  EXPECT_EQ(Mtools({"mtype", "::/Folder of files/File number 3.text"}), "short now");
  EXPECT_EQ(Mtools({"mtype", "::/Folder of files/File number 9.text"}), big);
  EXPECT_EQ(Mtools({"mtype", "::/Folder of files/B29"}), "S:\\Folder of files\\B29");
  ExpectClean("131");
}

TEST_F(EfiSystemPartition, StaysCleanUnderBootsect) {
  const auto result = simulator::RunBootsect(machine_.system(), {"/nt60", "S:", "/force"});
  ASSERT_EQ(result.exit_status, 0U) << result.output;
  ExpectClean("0");
}

TEST_F(EfiSystemPartition, ShowsToTheMachineWhatMtoolsPutThere) {
  const std::string content = "written by another tool\n" + std::string(5000, 'x');
  const auto file = folder_.path() / "file";
  std::ofstream(file, std::ios::binary) << content;
  Mtools({"mmd", "::/EFI", "::/EFI/Microsoft"});
  Mtools({"mcopy", file.string(), "::/EFI/Microsoft/A long name.efi"});
  Mtools({"mcopy", file.string(), "::/EFI/Microsoft/lower.efi"});
  Fat32Files files(machine_.FindDisk(1)->device(), offset_);
  std::vector<simulator::Fat32Entry> entries;
  EXPECT_EQ(files.List("\\EFI\\Microsoft", entries), ERROR_SUCCESS);
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].name, "A long name.efi");
  EXPECT_EQ(entries[1].name, "lower.efi");
  std::string read;
  EXPECT_EQ(files.Read("\\EFI\\Microsoft\\A long name.efi", read), ERROR_SUCCESS);
  EXPECT_EQ(read, content);
  EXPECT_EQ(files.Remove("\\EFI\\Microsoft\\A long name.efi"), ERROR_SUCCESS);
  EXPECT_EQ(files.Remove("\\EFI\\Microsoft\\lower.efi"), ERROR_SUCCESS);
  ExpectClean("2");
}

}  // namespace
}  // namespace testing_support
