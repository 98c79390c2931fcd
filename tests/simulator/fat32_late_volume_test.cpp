// A machine whose FAT32 volumes write late: when their changes are in the image.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/disk.h"
#include "simulator/seam_fixture.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/volume.h"

namespace simulator {
namespace {

using testing_support::GptRow;
using testing_support::GptVolumePath;
using testing_support::kMegabyte;

// A FAT32 volume with a file, mounted while the switch was on.
class LateWritesOfAMachine : public testing_support::SeamTest {
 protected:
  void SetUp() override {
    Disk& disk = AttachGpt(1, {GptRow(kMegabyte, 40 * kMegabyte, 1)});
    image_ = disk.device().image();
    ASSERT_EQ(FormatFat32(disk.device(), {kMegabyte, 40 * kMegabyte, 2048, 1}), ERROR_SUCCESS);
    machine_.switches().fat32_writes_late = true;
    machine_.Mount(*machine_.FindVolumeAt(1, kMegabyte));
    machine_.AddFile(1, kMegabyte, "\\FILE", "content");
  }

  unsigned AttributesInImage() const {
    BlockDevice image(image_, 512, Access::kReadOnly);
    Fat32Files files(image, kMegabyte);
    Fat32FileId id;
    Fat32Entry entry;
    EXPECT_EQ(files.Find("\\FILE", id), ERROR_SUCCESS);
    EXPECT_EQ(files.Look(id, entry), ERROR_SUCCESS);
    return entry.attributes;
  }
  static void SetAttributes(DWORD attributes) {
    const std::string path = GptVolumePath(1) + "\\FILE";
    const WideString wide(path.begin(), path.end());
    ASSERT_TRUE(win32::SetFileAttributesW(wide.c_str(), attributes));
  }
  static void HideFile() { SetAttributes(FILE_ATTRIBUTE_HIDDEN); }
  static void ShowFile() { SetAttributes(FILE_ATTRIBUTE_ARCHIVE); }

  std::filesystem::path image_;
};

TEST_F(LateWritesOfAMachine, ReachTheImageWhenTheVolumeIsDismounted) {
  const HANDLE volume = Open(GptVolumePath(1));
  HideFile();
  EXPECT_EQ(AttributesInImage(), unsigned{FILE_ATTRIBUTE_ARCHIVE});
  EXPECT_EQ(Control(volume, FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
  EXPECT_EQ(AttributesInImage(), unsigned{FILE_ATTRIBUTE_HIDDEN});
}

TEST_F(LateWritesOfAMachine, ReachTheImageBeforeTheDiskIsRead) {
  HideFile();
  std::vector<std::byte> sector(512);
  EXPECT_EQ(ReadAt(Open("\\\\.\\PhysicalDrive1"), 0, sector), ERROR_SUCCESS);
  EXPECT_EQ(AttributesInImage(), unsigned{FILE_ATTRIBUTE_HIDDEN});
}

TEST_F(LateWritesOfAMachine, ReachTheImageWithAFlush) {
  for (const std::string& path :
       {std::string("\\\\.\\PhysicalDrive1"), GptVolumePath(1), GptVolumePath(1) + "\\FILE"}) {
    const HANDLE handle = Open(path);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE) << path;
    ShowFile();
    ASSERT_TRUE(win32::FlushFileBuffers(handle)) << path;
    HideFile();
    EXPECT_EQ(AttributesInImage(), unsigned{FILE_ATTRIBUTE_ARCHIVE}) << path;
    EXPECT_TRUE(win32::FlushFileBuffers(handle)) << path;
    EXPECT_EQ(AttributesInImage(), unsigned{FILE_ATTRIBUTE_HIDDEN}) << path;
  }
}

TEST_F(LateWritesOfAMachine, FlushOfAFileOfADismountedVolumeIsError21) {
  const HANDLE file = Open(GptVolumePath(1) + "\\FILE");
  ASSERT_EQ(Control(Open(GptVolumePath(1)), FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
  EXPECT_FALSE(win32::FlushFileBuffers(file));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_NOT_READY});
}

TEST_F(LateWritesOfAMachine, ThatFailLeaveTheVolumeMounted) {
  SimulatedMachine broken;
  broken.switches().fat32_writes_late = true;
  broken.AttachDisk(1, image_, 512, Access::kReadOnly);
  broken.MakeCurrent();
  const HANDLE volume = Open(GptVolumePath(1));
  HideFile();
  EXPECT_EQ(Control(volume, FSCTL_DISMOUNT_VOLUME), ERROR_WRITE_FAULT);
  EXPECT_TRUE(broken.FindVolumeAt(1, kMegabyte)->mounted);
  // Told once; nothing is left to be written.
  EXPECT_EQ(Control(volume, FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
}

}  // namespace
}  // namespace simulator
