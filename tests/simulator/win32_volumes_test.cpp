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

  // The multi-string with its terminators; the error is in `error_`.
  std::string PathNames(const std::string& root, DWORD length = MAX_PATH) {
    std::array<char, MAX_PATH> names{};
    returned_ = 0;
    const BOOL success =
        win32::GetVolumePathNamesForVolumeNameA(root.c_str(), names.data(), length, &returned_);
    error_ = success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
    return success != FALSE ? std::string(names.data(), returned_) : std::string();
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

  DWORD returned_ = 0;
  DWORD error_ = 0;
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

TEST_F(Win32VolumesTest, ReservedAndExtendedPartitionsHaveNoVolume) {
  AttachGpt(1,
            {GptRow(kMegabyte, kMegabyte, 1, kReservedType), GptRow(4 * kMegabyte, kMegabyte, 2)});
  // A container at 8 MiB whose first boot record holds a logical partition at 9 MiB.
  AttachMbr(2, {MbrRow(kMegabyte, kMegabyte), MbrRow(8 * kMegabyte, 8 * kMegabyte, 0x0F),
                MbrRow(0, 0, 0), MbrRow(0, 0, 0), MbrRow(9 * kMegabyte, kMegabyte)});
  ASSERT_EQ(machine_.volumes().size(), 3u);
  EXPECT_EQ(machine_.FindVolumeAt(1, 4 * kMegabyte)->partition_number, 2u);
  EXPECT_EQ(machine_.FindVolumeAt(2, 9 * kMegabyte)->partition_number, 2u);
  EXPECT_EQ(machine_.FindVolumeAt(2, 8 * kMegabyte), nullptr);
}

TEST_F(Win32VolumesTest, HiddenPartitionsGetNoLetterByThemselves) {
  PARTITION_INFORMATION_EX suppressed = GptRow(8 * kMegabyte, kMegabyte, 2);
  suppressed.Gpt.Attributes = DWORD64{1} << 63;
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1, kEfiSystemType), suppressed,
                GptRow(16 * kMegabyte, kMegabyte, 3)});
  AttachMbr(2, {MbrRow(kMegabyte, kMegabyte, 0x27), MbrRow(4 * kMegabyte, kMegabyte, 0x17)});
  EXPECT_EQ(Letters(kMegabyte), "");
  EXPECT_EQ(Letters(8 * kMegabyte), "");
  EXPECT_EQ(Letters(16 * kMegabyte), "C");
  EXPECT_EQ(machine_.LettersOf(*machine_.FindVolumeAt(2, kMegabyte)), "");
  EXPECT_EQ(machine_.LettersOf(*machine_.FindVolumeAt(2, 4 * kMegabyte)), "");
}

TEST_F(Win32VolumesTest, WithoutAutomountNothingGetsALetter) {
  machine_.switches().automount = false;
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  EXPECT_EQ(Letters(kMegabyte), "");
}

TEST_F(Win32VolumesTest, AnotherSignatureLosesTheLetterAndTheOldOneBringsItBack) {
  simulator::Disk& disk = AttachMbr(1, {MbrRow(kMegabyte, kMegabyte)});
  machine_.SetLetter(1, kMegabyte, 'T');
  machine_.switches().automount = false;
  simulator::DiskLayout layout;
  ASSERT_EQ(disk.Layout(layout), ERROR_SUCCESS);
  for (auto& row : layout.rows) row.RewritePartition = TRUE;

  CREATE_DISK request{};
  request.Mbr.Signature = 5;
  ASSERT_EQ(machine_.CreateDisk(disk, request), ERROR_SUCCESS);
  layout.header.Mbr.Signature = 5;
  ASSERT_EQ(machine_.SetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(machine_.FindVolumeAt(1, kMegabyte)->path,
            "\\\\?\\Volume{00000005-0000-0000-0000-100000000000}");
  EXPECT_EQ(Letters(kMegabyte), "");

  request.Mbr.Signature = 0x1A2B3C4D;
  ASSERT_EQ(machine_.CreateDisk(disk, request), ERROR_SUCCESS);
  layout.header.Mbr.Signature = 0x1A2B3C4D;
  ASSERT_EQ(machine_.SetLayout(disk, layout), ERROR_SUCCESS);
  EXPECT_EQ(machine_.FindVolumeAt(1, kMegabyte)->path, kMbrVolumeAtOneMegabyte);
  EXPECT_EQ(Letters(kMegabyte), "T");
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

TEST_F(Win32VolumesTest, AnotherStyleAtTheSamePlaceIsAnotherVolume) {
  simulator::Disk& disk = AttachMbr(1, {MbrRow(kMegabyte, kMegabyte)});
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_GPT;
  ASSERT_EQ(simulator::CreateDisk(disk.device(), request), ERROR_SUCCESS);
  simulator::DiskLayout layout;
  ASSERT_EQ(simulator::ReadLayout(disk.device(), layout), ERROR_SUCCESS);
  layout.rows = {GptRow(kMegabyte, kMegabyte, 9)};
  layout.header.PartitionCount = 1;
  ASSERT_EQ(simulator::WriteLayout(disk.device(), layout, {}), ERROR_SUCCESS);
  machine_.UpdateProperties(disk);
  EXPECT_EQ(machine_.FindVolumeAt(1, kMegabyte)->path, GptVolumePath(9));
}

TEST_F(Win32VolumesTest, PathNamesAreAMultiString) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1), GptRow(8 * kMegabyte, kMegabyte, 2)});
  machine_.RemoveLetter('D');
  EXPECT_EQ(PathNames(Root(1)), std::string("C:\\\0\0", 5));
  EXPECT_EQ(PathNames(Root(2)), std::string("\0", 1));
}

TEST_F(Win32VolumesTest, PathNamesTellTheLengthThatTheyNeed) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  PathNames(Root(1), 4);
  EXPECT_EQ(error_, ERROR_MORE_DATA);
  EXPECT_EQ(returned_, 5u);
  PathNames(Root(1), 5);
  EXPECT_EQ(error_, ERROR_SUCCESS);
}

TEST_F(Win32VolumesTest, PathNamesOfOtherNamesFail) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  PathNames(GptVolumePath(1));
  EXPECT_EQ(error_, ERROR_INVALID_NAME);
  PathNames(Root(2));
  EXPECT_EQ(error_, ERROR_FILE_NOT_FOUND);
}

TEST_F(Win32VolumesTest, LettersAreTakenAwayAndGiven) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1), GptRow(8 * kMegabyte, kMegabyte, 2)});
  EXPECT_EQ(Set("D:\\", Root(1)), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(Set("X:\\", Root(1)), ERROR_DIR_NOT_EMPTY);
  EXPECT_EQ(Set("E:\\", Root(1)), ERROR_INVALID_PARAMETER);
  ASSERT_EQ(Delete("C:\\"), ERROR_SUCCESS);
  ASSERT_EQ(Set("e:\\", Root(1)), ERROR_SUCCESS);
  EXPECT_EQ(Letters(kMegabyte), "E");
  EXPECT_EQ(win32::GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(Win32VolumesTest, SettingALetterNeedsBothBackslashesAndAVolume) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  EXPECT_EQ(Set("E:", Root(1)), ERROR_INVALID_NAME);
  EXPECT_EQ(Set("E:\\", GptVolumePath(1)), ERROR_INVALID_NAME);
  EXPECT_EQ(Set("1:\\", Root(1)), ERROR_INVALID_NAME);
  EXPECT_EQ(Set("E:\\", Root(2)), ERROR_FILE_NOT_FOUND);
}

TEST_F(Win32VolumesTest, DeletingALetterNeedsItsBackslashAndAHolder) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  EXPECT_EQ(Delete("C:"), ERROR_INVALID_NAME);
  EXPECT_EQ(Delete("E:\\"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Delete("X:\\"), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(Letters(kMegabyte), "C");
}

TEST_F(Win32VolumesTest, LogicalDrivesCountFoldersToo) {
  AttachGpt(1, {GptRow(kMegabyte, kMegabyte, 1)});
  EXPECT_EQ(win32::GetLogicalDrives(), DWORD{1} << 2 | DWORD{1} << 23);
}

TEST_F(Win32VolumesTest, TheSystemDirectoryLiesOnTheCurrentDrive) {
  std::array<char, MAX_PATH> path{};
  EXPECT_EQ(win32::GetSystemDirectoryA(path.data(), 19), 20u);
  EXPECT_EQ(path[0], '\0');
  EXPECT_EQ(win32::GetSystemDirectoryA(path.data(), 20), 19u);
  EXPECT_STREQ(path.data(), "X:\\Windows\\system32");
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
  PathNames(Root(1));
  EXPECT_EQ(error_, ERROR_GEN_FAILURE);
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
