#include <array>
#include <stdexcept>

#include "simulator/disk.h"
#include "simulator/seam_fixture.h"
#include "simulator/storage/partition_store.h"
#include "simulator/volume.h"

namespace testing_support {
namespace {

constexpr char kMbrVolumeAtOneMegabyte[] = "\\\\?\\Volume{1a2b3c4d-0000-0000-0000-100000000000}";

class Win32VolumesTest : public SeamTest {
 protected:
  static std::vector<std::string> Walk() {
    std::vector<std::string> roots;
    std::array<char, MAX_PATH> name{};
    const HANDLE find = win32::FindFirstVolumeA(name.data(), MAX_PATH);
    if (find == INVALID_HANDLE_VALUE) return roots;
    do {
      roots.emplace_back(name.data());
    } while (win32::FindNextVolumeA(find, name.data(), MAX_PATH) != FALSE);
    EXPECT_EQ(win32::GetLastError(), ERROR_NO_MORE_FILES);
    EXPECT_TRUE(win32::FindVolumeClose(find));
    return roots;
  }

  // The multi-string with its terminators, or "".
  static std::string PathNames(const std::string& root) {
    std::array<char, MAX_PATH> names{};
    DWORD returned = 0;
    const BOOL success =
        win32::GetVolumePathNamesForVolumeNameA(root.c_str(), names.data(), MAX_PATH, &returned);
    return success != FALSE ? std::string(names.data(), returned) : std::string();
  }

  static DWORD Set(const char* letter, const std::string& root) {
    const BOOL success = win32::SetVolumeMountPointA(letter, root.c_str());
    return success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  static DWORD Delete(const char* letter) {
    return win32::DeleteVolumeMountPointA(letter) != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  static std::string Root(BYTE id) { return GptVolumePath(id) + '\\'; }

  std::string Letters(std::uint64_t offset) {
    return machine_.LettersOf(*machine_.FindVolumeAt(1, offset));
  }
};

TEST_F(Win32VolumesTest, WalksAllVolumesInTheOrderOfTheirArrival) {
  AttachGpt(1, {GptRow(16 * kMegabyte, kMegabyte, 1), GptRow(kMegabyte, kMegabyte, 2)});
  AttachMbr(2, {MbrRow(kMegabyte, kMegabyte)});
  machine_.RemoveLetter('C');
  EXPECT_EQ(Walk(), (std::vector<std::string>{Root(1), Root(2),
                                              std::string(kMbrVolumeAtOneMegabyte) + '\\'}));
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Win32VolumesTest, AVolumeThatChangedItsNameAnswersByTheNewOneAlone) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  machine_.FindVolumeAt(1, kMegabyte)->path = GptVolumePath(2);
  EXPECT_EQ(Walk(), std::vector<std::string>{Root(2)});
  EXPECT_NE(Open(GptVolumePath(2)), INVALID_HANDLE_VALUE);
  EXPECT_EQ(PathNames(Root(2)), std::string("C:\\\0\0", 5));
  EXPECT_EQ(Open(GptVolumePath(1)), INVALID_HANDLE_VALUE);
  EXPECT_EQ(win32::GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(Win32VolumesTest, AWalkWithoutVolumesIsAtItsEnd) {
  std::array<char, MAX_PATH> name{};
  EXPECT_EQ(win32::FindFirstVolumeA(name.data(), MAX_PATH), INVALID_HANDLE_VALUE);
  EXPECT_EQ(win32::GetLastError(), ERROR_NO_MORE_FILES);
}

TEST_F(Win32VolumesTest, AWalkNeedsRoomForTheName) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  std::array<char, MAX_PATH> name{};
  EXPECT_EQ(win32::FindFirstVolumeA(name.data(), 49), INVALID_HANDLE_VALUE);
  EXPECT_EQ(win32::GetLastError(), 206u);
  EXPECT_NE(win32::FindFirstVolumeA(name.data(), 50), INVALID_HANDLE_VALUE);
  EXPECT_EQ(machine_.handles().Open(), std::vector<std::string>{"volume walk"});
}

TEST_F(Win32VolumesTest, OnlyAWalkIsWalkedAndClosed) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  const HANDLE disk = Open("\\\\.\\PhysicalDrive1");
  std::array<char, MAX_PATH> name{};
  EXPECT_FALSE(win32::FindNextVolumeA(disk, name.data(), MAX_PATH));
  EXPECT_EQ(win32::GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(win32::FindVolumeClose(disk));
  EXPECT_FALSE(win32::FindVolumeClose(nullptr));
  EXPECT_EQ(machine_.handles().Open().size(), 1u);
}

TEST_F(Win32VolumesTest, WithoutAutomountNothingGetsALetter) {
  machine_.switches().automount = false;
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  EXPECT_EQ(Letters(kMegabyte), "");
}

TEST_F(Win32VolumesTest, AnotherSignatureAtTheSamePlaceIsAnotherNameWithoutTheLetter) {
  simulator::Disk& disk = AttachMbr(1, {MbrRow(kMegabyte, kMegabyte)});
  machine_.SetLetter(1, kMegabyte, 'T');
  machine_.switches().automount = false;
  simulator::DiskLayout layout;
  ASSERT_EQ(disk.Layout(layout), ERROR_SUCCESS);
  layout.header.Mbr.Signature = 5;
  for (auto& row : layout.rows) row.RewritePartition = TRUE;
  ASSERT_EQ(machine_.SetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(machine_.FindVolumeAt(1, kMegabyte)->path,
            "\\\\?\\Volume{00000005-0000-0000-0000-100000000000}");
  EXPECT_EQ(Letters(kMegabyte), "");

  layout.header.Mbr.Signature = 0x1A2B3C4D;
  ASSERT_EQ(machine_.SetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(Letters(kMegabyte), "T");
}

TEST_F(Win32VolumesTest, SettingALetterNeedsBothBackslashesAndAVolume) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  EXPECT_EQ(Set("E:", Root(1)), ERROR_INVALID_NAME);
  EXPECT_EQ(Set("E:\\", GptVolumePath(1)), ERROR_INVALID_NAME);
  EXPECT_EQ(Set("1:\\", Root(1)), ERROR_INVALID_NAME);
  EXPECT_EQ(Set("E:\\", Root(2)), ERROR_FILE_NOT_FOUND);
}

TEST_F(Win32VolumesTest, LogicalDrivesCountFoldersToo) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  EXPECT_EQ(win32::GetLogicalDrives(), DWORD{1} << 2 | DWORD{1} << 23);
}

TEST_F(Win32VolumesTest, SetLetterTakesAwayWhatEitherHad) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1), GptRow(8 * kMegabyte, kMegabyte, 2)});
  machine_.SetLetter(1, kMegabyte, 'D');
  EXPECT_EQ(Letters(kMegabyte), "D");
  EXPECT_EQ(Letters(8 * kMegabyte), "");
  EXPECT_THROW(machine_.SetLetter(1, 5, 'D'), std::invalid_argument);
  EXPECT_THROW(machine_.SetLetter(1, kMegabyte, 'X'), std::invalid_argument);
}

TEST_F(Win32VolumesTest, ADiskNumberIsGivenOnce) {
  const auto image = NewImage("a.img", kMegabyte);
  machine_.AttachDisk(1, image);
  EXPECT_THROW(machine_.AttachDisk(1, image), std::invalid_argument);
  EXPECT_EQ(machine_.disks().size(), 1u);
}

TEST_F(Win32VolumesTest, FailuresOnDemandHaveNoEffect) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  std::array<char, MAX_PATH> name{};
  machine_.calls().FailOn("FindFirstVolumeA", 1, ERROR_ACCESS_DENIED);
  EXPECT_EQ(win32::FindFirstVolumeA(name.data(), MAX_PATH), INVALID_HANDLE_VALUE);
  EXPECT_EQ(win32::GetLastError(), ERROR_ACCESS_DENIED);
  const HANDLE find = win32::FindFirstVolumeA(name.data(), MAX_PATH);
  machine_.calls().FailOn("FindNextVolumeA");
  EXPECT_FALSE(win32::FindNextVolumeA(find, name.data(), MAX_PATH));
  EXPECT_EQ(win32::GetLastError(), ERROR_GEN_FAILURE);
  machine_.calls().FailOn("FindVolumeClose");
  EXPECT_FALSE(win32::FindVolumeClose(find));
  EXPECT_EQ(machine_.handles().Open().size(), 1u);

  machine_.calls().FailOn("GetVolumePathNamesForVolumeNameA");
  EXPECT_EQ(PathNames(Root(1)), "");
  EXPECT_EQ(win32::GetLastError(), ERROR_GEN_FAILURE);
  machine_.calls().FailOn("DeleteVolumeMountPointA/C:\\");
  EXPECT_EQ(Delete("C:\\"), ERROR_GEN_FAILURE);
  EXPECT_EQ(Letters(kMegabyte), "C");
  ASSERT_EQ(Delete("C:\\"), ERROR_SUCCESS);
  machine_.calls().FailOn("SetVolumeMountPointA");
  EXPECT_EQ(Set("E:\\", Root(1)), ERROR_GEN_FAILURE);
  EXPECT_EQ(Letters(kMegabyte), "");

  machine_.calls().FailOn("GetLogicalDrives");
  EXPECT_EQ(win32::GetLogicalDrives(), 0u);
  machine_.calls().FailOn("GetSystemDirectoryA");
  EXPECT_EQ(win32::GetSystemDirectoryA(name.data(), MAX_PATH), 0u);
}

}  // namespace
}  // namespace testing_support
