#include "simulator/volume_files.h"

#include <fstream>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

#include "simulator/disk.h"
#include "simulator/diskpart_fixture.h"
#include "simulator/seam_fixture.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/volume.h"

namespace simulator {
namespace {

using testing_support::kMegabyte;
using testing_support::kUntouchedError;

constexpr std::uint64_t kNtfs = 1 * kMegabyte;
constexpr std::uint64_t kFat = 16 * kMegabyte;
constexpr std::uint64_t kFatLength = 40 * kMegabyte;
constexpr std::uint64_t kNothing = 60 * kMegabyte;

// Disk 1: NTFS as N, FAT32 as F, a partition without a file system as R.
class VolumeFilesTest : public testing_support::SeamTest {
 protected:
  void SetUp() override {
    Disk& disk = AttachGpt(1,
                           {testing_support::GptRow(kNtfs, 8 * kMegabyte, 1),
                            testing_support::GptRow(kFat, kFatLength, 2),
                            testing_support::GptRow(kNothing, kMegabyte, 3)},
                           {kNtfs});
    ASSERT_EQ(FormatFat32(disk.device(), {kFat, kFatLength, 0, 1}), ERROR_SUCCESS);
    machine_.Mount(*machine_.FindVolumeAt(1, kFat));
    machine_.SetLetter(1, kNtfs, 'N');
    machine_.SetLetter(1, kFat, 'F');
    machine_.SetLetter(1, kNothing, 'R');
  }

  VolumeFiles Files() { return VolumeFiles(machine_); }
  std::string Content(std::string_view path) {
    std::string content;
    EXPECT_EQ(Files().Read(path, content), ERROR_SUCCESS) << path;
    return content;
  }
  // The last error that DeleteFileA leaves, or "none" for a success.
  static std::string Delete(const char* path) {
    win32::SetLastError(kUntouchedError);
    const bool deleted = win32::DeleteFileA(path) != FALSE;
    return deleted && win32::GetLastError() == kUntouchedError
               ? "none"
               : std::to_string(win32::GetLastError());
  }
};

class EveryKindOfPlace : public VolumeFilesTest, public ::testing::WithParamInterface<char> {
 protected:
  std::string Path(std::string_view rest) const { return GetParam() + std::string(rest); }
};

TEST_P(EveryKindOfPlace, KeepsFilesBelowFoldersThatAreMadeOnTheWay) {
  EXPECT_EQ(Files().Write(Path(":\\EFI\\Boot\\bootx64.efi"), "one"), ERROR_SUCCESS);
  EXPECT_EQ(Files().Write(Path(":\\EFI\\Boot\\bootx64.efi"), "two"), ERROR_SUCCESS);
  EXPECT_EQ(Content(Path(":\\EFI\\Boot\\bootx64.efi")), "two");
  EXPECT_TRUE(Files().Exists(Path(":\\EFI")));
  EXPECT_TRUE(Files().Exists(Path(":\\EFI\\Boot\\bootx64.efi")));
  EXPECT_FALSE(Files().Exists(Path(":\\EFI\\Boot\\other")));
  EXPECT_EQ(Files().Remove(Path(":\\EFI\\Boot\\bootx64.efi")), ERROR_SUCCESS);
  EXPECT_FALSE(Files().Exists(Path(":\\EFI\\Boot\\bootx64.efi")));
}

TEST_P(EveryKindOfPlace, TellsWhatIsMissing) {
  ASSERT_EQ(Files().Write(Path(":\\folder\\file"), ""), ERROR_SUCCESS);
  std::string content;
  EXPECT_EQ(Files().Read(Path(":\\folder\\none"), content), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Files().Read(Path(":\\none\\file"), content), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(Files().Read(Path(":\\folder"), content), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Files().Remove(Path(":\\folder")), ERROR_ACCESS_DENIED);
}

TEST_P(EveryKindOfPlace, DeleteFileRemovesAFileAndNamesTheReasonOtherwise) {
  ASSERT_EQ(Files().Write(Path(":\\Boot\\BCD"), "store"), ERROR_SUCCESS);
  ASSERT_EQ(Files().Write(Path(":\\Boot\\memtest.exe"), ""), ERROR_SUCCESS);
  EXPECT_EQ(Delete(Path(":\\Boot\\BCD").c_str()), "none");
  EXPECT_FALSE(Files().Exists(Path(":\\Boot\\BCD")));
  EXPECT_TRUE(Files().Exists(Path(":\\Boot\\memtest.exe")));
  EXPECT_EQ(Delete(Path(":\\Boot\\BCD").c_str()), "2");
  EXPECT_EQ(Delete(Path(":\\EFI\\Microsoft\\Boot\\BCD").c_str()), "3");
  EXPECT_EQ(Delete(Path(":\\Boot").c_str()), "5");
}

INSTANTIATE_TEST_SUITE_P(Letters, EveryKindOfPlace, ::testing::Values('F', 'N', 'X', 'f', 'n'));

TEST_F(VolumeFilesTest, AFat32VolumeKeepsThemInTheImage) {
  ASSERT_EQ(Files().Write("F:\\EFI\\Microsoft\\file", "text"), ERROR_SUCCESS);
  Fat32Files image(machine_.FindDisk(1)->device(), kFat);
  std::string content;
  EXPECT_EQ(image.Read("\\EFI\\Microsoft\\file", content), ERROR_SUCCESS);
  EXPECT_EQ(content, "text");
}

TEST_F(VolumeFilesTest, AMappedFolderKeepsThemOnTheHost) {
  ASSERT_EQ(Files().Write("X:\\folder\\file", "text"), ERROR_SUCCESS);
  std::ifstream file(folder_.path() / "folder" / "file");
  std::string word;
  EXPECT_TRUE(file >> word);
  EXPECT_EQ(word, "text");
}

TEST_F(VolumeFilesTest, PlacesThatCannotBeUsed) {
  std::string content;
  EXPECT_EQ(Files().Read("Q:\\file", content), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(Files().Write("R:\\file", ""), kErrorUnrecognizedVolume);
  EXPECT_FALSE(Files().Exists("R:\\"));
  machine_.FindVolumeByLetter('F')->locked = true;
  EXPECT_EQ(Files().Write("F:\\file", ""), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Delete("Q:\\file"), "3");
  EXPECT_EQ(Delete(nullptr), "3");
}

TEST_F(VolumeFilesTest, AccessByNameMountsADismountedVolume) {
  const HANDLE volume = Open("\\\\.\\F:");
  EXPECT_EQ(Control(volume, FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
  EXPECT_FALSE(machine_.FindVolumeByLetter('F')->mounted);
  EXPECT_EQ(Files().Write("F:\\file", ""), ERROR_SUCCESS);
  EXPECT_TRUE(machine_.FindVolumeByLetter('F')->mounted);
  win32::CloseHandle(volume);
}

TEST_F(VolumeFilesTest, DeleteFileIsRecordedAndFailsOnDemand) {
  ASSERT_EQ(Files().Write("F:\\file", ""), ERROR_SUCCESS);
  machine_.calls().FailOn("DeleteFileA", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(Delete("F:\\file"), "5");
  EXPECT_TRUE(Files().Exists("F:\\file"));
  EXPECT_EQ(machine_.calls().Count("DeleteFileA/F:\\file"), 1U);
}

TEST_F(VolumeFilesTest, TheBuilderPutsFilesOnEitherKindOfVolume) {
  machine_.AddFile(1, kNtfs, "Windows\\System32\\winload.exe");
  machine_.AddFile(1, kFat, "EFI\\Boot\\bootx64.efi", "boot");
  EXPECT_TRUE(Files().Exists("N:\\windows\\system32"));
  EXPECT_EQ(Content("N:\\Windows\\System32\\WINLOAD.EXE"), "");
  EXPECT_EQ(Content("F:\\EFI\\Boot\\bootx64.efi"), "boot");
  EXPECT_THROW(machine_.AddFile(1, kNothing, "file"), std::invalid_argument);
  EXPECT_THROW(machine_.AddFile(1, 5, "file"), std::invalid_argument);
  EXPECT_THROW(machine_.AddFile(1, kNtfs, "a*b"), std::runtime_error);
}

TEST_F(VolumeFilesTest, FilesOfANtfsVolumeSurviveTheChangeOfStyle) {
  machine_.AddFile(1, kNtfs, "Windows\\notepad.exe", "text");
  Disk& disk = *machine_.FindDisk(1);
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_MBR;
  request.Mbr.Signature = 5;
  ASSERT_EQ(machine_.CreateDisk(disk, request), ERROR_SUCCESS);
  EXPECT_FALSE(Files().Exists("N:\\Windows"));
  DiskLayout layout = testing_support::LayoutOf(disk);
  layout.rows[0] = testing_support::MbrRow(kNtfs, 8 * kMegabyte);
  ASSERT_EQ(machine_.SetLayout(disk, layout), ERROR_SUCCESS);
  machine_.SetLetter(1, kNtfs, 'N');
  EXPECT_EQ(Content("N:\\Windows\\notepad.exe"), "text");
}

}  // namespace
}  // namespace simulator
