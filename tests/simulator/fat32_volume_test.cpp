// Files of a FAT32 volume through the seam: opening, reading, attributes, listing, dismounting.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/disk.h"
#include "simulator/seam_fixture.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/text.h"
#include "simulator/volume.h"
#include "simulator/volume_files.h"
#include "simulator/wide_text.h"

namespace simulator {
namespace {

using testing_support::GptRow;
using testing_support::GptVolumePath;
using testing_support::kMegabyte;
using testing_support::kUntouchedError;

constexpr std::uint64_t kFat = 1 * kMegabyte;
constexpr std::uint64_t kFatLength = 40 * kMegabyte;
constexpr std::uint64_t kNtfs = 45 * kMegabyte;

// Disk 1: FAT32 as F, NTFS as N.
class Fat32VolumeTest : public testing_support::SeamTest {
 protected:
  void SetUp() override {
    Disk& disk =
        AttachGpt(1, {GptRow(kFat, kFatLength, 1), GptRow(kNtfs, 8 * kMegabyte, 2)}, {kNtfs});
    ASSERT_EQ(FormatFat32(disk.device(), {kFat, kFatLength, 0, 1}), ERROR_SUCCESS);
    machine_.Mount(*machine_.FindVolumeAt(1, kFat));
    machine_.SetLetter(1, kFat, 'F');
    machine_.SetLetter(1, kNtfs, 'N');
    machine_.AddFile(1, kFat, "\\Folder name\\Long file name.text", "content of a file");
    machine_.AddFile(1, kFat, "\\EMPTY", "");
  }

  static HANDLE OpenFile(const std::string& path, DWORD flags = 0,
                         DWORD access = GENERIC_READ | GENERIC_WRITE,
                         DWORD disposition = OPEN_EXISTING) {
    return win32::CreateFileW(Utf8ToUtf16(path).c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, disposition, flags, nullptr);
  }
  // The error of opening, or ERROR_SUCCESS.
  static DWORD OpenError(const std::string& path, DWORD flags = 0,
                         DWORD access = GENERIC_READ | GENERIC_WRITE) {
    const HANDLE file = OpenFile(path, flags, access);
    if (file == INVALID_HANDLE_VALUE) return win32::GetLastError();
    EXPECT_TRUE(win32::CloseHandle(file));
    return ERROR_SUCCESS;
  }
  static DWORD SetAttributes(const std::string& path, DWORD attributes) {
    const BOOL set = win32::SetFileAttributesW(Utf8ToUtf16(path).c_str(), attributes);
    return set != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }
  // "name attributes size" of each entry, or the last error behind what was listed.
  static std::vector<std::string> Listing(const std::string& pattern) {
    std::vector<std::string> lines;
    WIN32_FIND_DATAW data{};
    const HANDLE find = win32::FindFirstFileW(Utf8ToUtf16(pattern).c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return {std::to_string(win32::GetLastError())};
    do {
      lines.push_back(Utf16ToUtf8(data.cFileName) + ' ' + HexText(data.dwFileAttributes) + ' ' +
                      std::to_string(data.nFileSizeLow));
    } while (win32::FindNextFileW(find, &data) != FALSE);
    EXPECT_EQ(win32::GetLastError(), ERROR_NO_MORE_FILES);
    EXPECT_TRUE(win32::FindClose(find));
    return lines;
  }
  static DWORD AttributesOf(const std::string& path) {
    WIN32_FIND_DATAW data{};
    const HANDLE find = win32::FindFirstFileW(Utf8ToUtf16(path).c_str(), &data);
    EXPECT_NE(find, INVALID_HANDLE_VALUE) << path;
    win32::FindClose(find);
    return data.dwFileAttributes;
  }
  void SetSlotCluster(std::string_view short_name, std::uint16_t low) {
    BlockDevice& device = machine_.FindDisk(1)->device();
    std::vector<std::byte> bytes(4096);
    const std::uint64_t root = RootOffset();
    ASSERT_TRUE(device.Read(root, bytes));
    for (std::size_t at = 0; at < bytes.size(); at += kFat32SlotBytes) {
      if (std::memcmp(bytes.data() + at, short_name.data(), short_name.size()) != 0) continue;
      auto slot = Load<Fat32FileSlot>(std::span(bytes).subspan(at));
      slot.cluster_high = 0;
      slot.cluster_low = low;
      Store(slot, std::span(bytes).subspan(at));
    }
    ASSERT_TRUE(device.Write(root, bytes));
  }
  std::uint64_t RootOffset() {
    std::vector<std::byte> bytes(512);
    EXPECT_TRUE(machine_.FindDisk(1)->device().Read(kFat, bytes));
    const auto boot = Load<Fat32BootSector>(bytes);
    return kFat + (boot.reserved_sectors + std::uint64_t{2} * boot.fat_sectors) * 512;
  }

  const std::string file_ = GptVolumePath(1) + "\\Folder name\\Long file name.text";
};

TEST_F(Fat32VolumeTest, OpensFilesByVolumePathAndByLetterInAnyCase) {
  EXPECT_EQ(OpenError(file_), ERROR_SUCCESS);
  EXPECT_EQ(OpenError("F:\\Folder name\\Long file name.text"), ERROR_SUCCESS);
  EXPECT_EQ(OpenError("\\\\?\\f:\\FOLDER NAME\\long FILE name.TEXT"), ERROR_SUCCESS);
  EXPECT_EQ(OpenError("F:\\FOLDER~1\\longfi~1.tex"), ERROR_SUCCESS);
  const HANDLE narrow =
      win32::CreateFileA("F:\\EMPTY", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_NE(narrow, INVALID_HANDLE_VALUE);
}

TEST_F(Fat32VolumeTest, TellsWhatIsMissing) {
  EXPECT_EQ(OpenError(GptVolumePath(1) + "\\none"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenError(GptVolumePath(1) + "\\none\\file"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenError(GptVolumePath(1) + "\\EMPTY\\file"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenError(GptVolumePath(9) + "\\file"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenError("F:\\a?b"), ERROR_INVALID_NAME);
  EXPECT_EQ(OpenError("N:\\file"), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenError("Q:\\file"), ERROR_PATH_NOT_FOUND);
}

TEST_F(Fat32VolumeTest, OpensFoldersWithBackupSemanticsOnly) {
  EXPECT_EQ(OpenError("F:\\Folder name"), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenError("F:\\Folder name", FILE_FLAG_BACKUP_SEMANTICS), ERROR_SUCCESS);
  EXPECT_EQ(OpenError("F:\\", FILE_FLAG_BACKUP_SEMANTICS), ERROR_SUCCESS);
  EXPECT_EQ(OpenError(GptVolumePath(1) + '\\', FILE_FLAG_BACKUP_SEMANTICS), ERROR_SUCCESS);
}

TEST_F(Fat32VolumeTest, NeitherMakesNorReplacesFilesByOpening) {
  for (const DWORD disposition :
       {DWORD{CREATE_NEW}, DWORD{CREATE_ALWAYS}, DWORD{OPEN_ALWAYS}, DWORD{TRUNCATE_EXISTING}}) {
    EXPECT_EQ(OpenFile("F:\\EMPTY", 0, GENERIC_WRITE, disposition), INVALID_HANDLE_VALUE);
    EXPECT_EQ(win32::GetLastError(), ERROR_NOT_SUPPORTED);
  }
}

TEST_F(Fat32VolumeTest, ReadsTheContentUpToItsEnd) {
  const HANDLE file = OpenFile(file_);
  std::vector<std::byte> buffer(100);
  EXPECT_EQ(ReadAt(file, 11, buffer), ERROR_SUCCESS);
  EXPECT_EQ(done_, 6U);
  EXPECT_EQ(std::memcmp(buffer.data(), "a file", 6), 0);
  EXPECT_EQ(ReadAt(file, 17, buffer), ERROR_SUCCESS);
  EXPECT_EQ(done_, 0U);
  EXPECT_EQ(win32::SetFilePointer(file, -1, nullptr, FILE_END), 16U);
  EXPECT_EQ(ReadAt(OpenFile("F:\\", FILE_FLAG_BACKUP_SEMANTICS), 0, buffer),
            ERROR_INVALID_FUNCTION);
}

TEST_F(Fat32VolumeTest, SetsAndClearsTheAttributes) {
  const std::string folder = "F:\\Folder name";
  EXPECT_EQ(SetAttributes(file_, 0x27), ERROR_SUCCESS);
  EXPECT_EQ(AttributesOf(file_), 0x27U);
  EXPECT_EQ(OpenError(file_), ERROR_ACCESS_DENIED) << "read-only";
  EXPECT_EQ(OpenError(file_, 0, GENERIC_READ), ERROR_SUCCESS);
  EXPECT_EQ(SetAttributes(file_, FILE_ATTRIBUTE_NORMAL), ERROR_SUCCESS);
  EXPECT_EQ(AttributesOf(file_), FILE_ATTRIBUTE_NORMAL);
  EXPECT_EQ(SetAttributes(folder, FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  EXPECT_EQ(AttributesOf(folder), FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_HIDDEN);
  EXPECT_EQ(SetAttributes(folder, FILE_ATTRIBUTE_NORMAL), ERROR_SUCCESS);
  EXPECT_EQ(AttributesOf(folder), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(SetAttributes("F:\\EMPTY", FILE_ATTRIBUTE_DIRECTORY), ERROR_SUCCESS);
  EXPECT_EQ(AttributesOf("F:\\EMPTY"), FILE_ATTRIBUTE_NORMAL);
}

TEST_F(Fat32VolumeTest, RefusesAttributesOfWhatIsNotThere) {
  EXPECT_EQ(SetAttributes("F:\\none", 128), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(SetAttributes("F:\\none\\file", 128), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(SetAttributes("F:\\", 128), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(SetAttributes("N:\\none", 128), ERROR_FILE_NOT_FOUND);
  machine_.AddFile(1, kNtfs, "\\file");
  EXPECT_EQ(SetAttributes("N:\\file", 128), ERROR_SUCCESS);
  EXPECT_EQ(SetAttributes("X:\\none", 128), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(SetAttributes("X:\\", 128), ERROR_SUCCESS);
  machine_.FindVolumeByLetter('F')->locked = true;
  EXPECT_EQ(SetAttributes("F:\\EMPTY", 128), ERROR_ACCESS_DENIED);
}

TEST_F(Fat32VolumeTest, NoticesADamagedEntry) {
  SetSlotCluster("EMPTY", 1);
  EXPECT_EQ(SetAttributes("F:\\EMPTY", 128), ERROR_FILE_CORRUPT);
  EXPECT_EQ(OpenError("F:\\EMPTY"), ERROR_FILE_CORRUPT);
  SetSlotCluster("FOLDER~1", 0);
  EXPECT_EQ(SetAttributes("F:\\Folder name", 128), ERROR_FILE_CORRUPT);
  EXPECT_EQ(OpenError(file_), ERROR_FILE_CORRUPT);
}

TEST_F(Fat32VolumeTest, ListsAFolderWithItsLinksAndARootWithout) {
  EXPECT_EQ(Listing("F:\\*"), (std::vector<std::string>{"Folder name 0x10 0", "EMPTY 0x20 0"}));
  EXPECT_EQ(Listing(GptVolumePath(1) + "\\Folder name\\*"),
            (std::vector<std::string>{". 0x10 0", ".. 0x10 0", "Long file name.text 0x20 17"}));
  EXPECT_EQ(Listing("F:\\folder~1"), (std::vector<std::string>{"Folder name 0x10 0"}));
  EXPECT_EQ(Listing("F:\\none\\*"), (std::vector<std::string>{"3"}));
  EXPECT_EQ(Listing("F:\\none"), (std::vector<std::string>{"2"}));
}

TEST_F(Fat32VolumeTest, RecordsTheCallsByTheirPaths) {
  machine_.calls().FailOn("SetFileAttributesW/F:\\EMPTY", 1, ERROR_FILE_CORRUPT);
  EXPECT_EQ(SetAttributes("F:\\EMPTY", 0), ERROR_FILE_CORRUPT);
  EXPECT_EQ(AttributesOf("F:\\EMPTY"), FILE_ATTRIBUTE_ARCHIVE);
  EXPECT_EQ(machine_.calls().Count("SetFileAttributesW"), 1U);
}

TEST_F(Fat32VolumeTest, ADismountEndsFileHandlesAndLeavesTheVolumesOwn) {
  const HANDLE volume = Open(GptVolumePath(1));
  const HANDLE file = OpenFile(file_);
  ASSERT_EQ(Control(volume, FSCTL_DISMOUNT_VOLUME), ERROR_SUCCESS);
  std::vector<std::byte> sector(512);
  EXPECT_EQ(ReadAt(file, 0, sector), ERROR_NOT_READY);
  EXPECT_EQ(Control(file, FSCTL_GET_RETRIEVAL_POINTERS), ERROR_NOT_READY);
  EXPECT_EQ(Control(volume, FSCTL_GET_VOLUME_BITMAP), ERROR_NOT_READY);
  EXPECT_EQ(Control(volume, FSCTL_MOVE_FILE), ERROR_NOT_READY);
  EXPECT_EQ(ReadAt(volume, RootOffset() - kFat, sector), ERROR_SUCCESS);
  // "EMPTY" goes from its slot behind the two of the folder; the next access by name sees that.
  std::memset(sector.data() + 2 * kFat32SlotBytes, 0, kFat32SlotBytes);
  EXPECT_EQ(WriteAt(volume, RootOffset() - kFat, sector), ERROR_SUCCESS);
  EXPECT_EQ(Listing("F:\\*"), (std::vector<std::string>{"Folder name 0x10 0"}));
  EXPECT_EQ(ReadAt(file, 0, sector), ERROR_NOT_READY) << "a later mount does not revive it";
  EXPECT_EQ(OpenError(file_), ERROR_SUCCESS);
}

TEST_F(Fat32VolumeTest, WhatOthersWriteToTheDiskIsSeen) {
  EXPECT_EQ(OpenError("F:\\EMPTY"), ERROR_SUCCESS);
  ASSERT_EQ(FormatFat32(machine_.FindDisk(1)->device(), {kFat, kFatLength, 0, 2}), ERROR_SUCCESS);
  EXPECT_EQ(OpenError("F:\\EMPTY"), ERROR_FILE_NOT_FOUND);
}

TEST_F(Fat32VolumeTest, AVolumeThatLeftEndsItsHandles) {
  const HANDLE file = OpenFile(file_);
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_RAW;
  ASSERT_EQ(machine_.CreateDisk(*machine_.FindDisk(1), request), ERROR_SUCCESS);
  std::vector<std::byte> sector(512);
  EXPECT_EQ(ReadAt(file, 0, sector), ERROR_NOT_READY);
}

}  // namespace
}  // namespace simulator
