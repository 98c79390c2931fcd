#include "disk/letter_restore.h"

#include <cstring>

#include "frame/global_context.h"
#include "simulator/mount_manager.h"
#include "simulator/volume.h"
#include "two_volumes_fixture.h"

namespace testing_support {
namespace {

// Disks 1 and 2 have two NTFS volumes each, at the same offsets and without letters. The record is
// that of disk 1 and has no volumes yet.
class RestoreVolumeInfosAfterConvert : public TwoVolumesTest {
 protected:
  RestoreVolumeInfosAfterConvert() {
    AttachVolumes(2, 0x22222222);
    record_.index = 1;
    converter_.disk_info = &record_;
  }

  void AddRecord(std::uint64_t offset, const char* letter) {
    VolumeInfo& volume = volumes_.at(static_cast<std::size_t>(record_.volume_count));
    volume.offset = offset;
    std::strncpy(volume.letter, letter, sizeof(volume.letter) - 1);
    record_.volumes[record_.volume_count++] = &volume;
  }

  std::string LettersAt(std::uint32_t disk, std::uint64_t offset) {
    return machine_.LettersOf(*machine_.FindVolumeAt(disk, offset));
  }

  LogLine VolumeLine(const simulator::Volume& volume) {
    const std::string letters = machine_.LettersOf(volume);
    return {1, "volume_path: " + volume.path +
                   ", letter: " + (letters.empty() ? "" : letters.substr(0, 1) + ":\\") +
                   ", disk index: " + std::to_string(volume.extents.front().disk_number) +
                   ", part offset: " + std::to_string(volume.extents.front().offset)};
  }

  // Runs the restore and keeps the lines of a walk that meets no failure.
  bool Restore() {
    walk_.clear();
    for (const simulator::Volume& volume : machine_.volumes()) {
      if (!volume.extents.empty()) walk_.push_back(VolumeLine(volume));
    }
    return velkora::RestoreVolumeInfosAfterConvert(converter_);
  }

  // The lines of the two sweeps, between those of the walk and the last one.
  void ExpectSweeps(const Log& sweeps) {
    Log expected = {{1, "RestoreVolumeInfosAfterConvert Begin..."}};
    expected.insert(expected.end(), walk_.begin(), walk_.end());
    expected.insert(expected.end(), sweeps.begin(), sweeps.end());
    expected.push_back({1, "RestoreVolumeInfosAfterConvert End!"});
    EXPECT_EQ(log_, expected);
  }

  // Remembered for D and given E while away, the volume comes back with both.
  void GiveTwoLetters(std::uint64_t offset) {
    const simulator::Volume& volume = *machine_.FindVolumeAt(1, offset);
    machine_.SetLetter(1, offset, 'D');
    machine_.mount_manager().Leave(volume);
    machine_.mount_manager().Assign('E', volume);
    machine_.mount_manager().Arrive(volume, false);
  }

  void ExpectMountPointCalls(std::size_t deletions, std::size_t assignments) {
    EXPECT_EQ(machine_.calls().Count("DeleteVolumeMountPointA"), deletions);
    EXPECT_EQ(machine_.calls().Count("SetVolumeMountPointA"), assignments);
  }

  DiskInfo record_{};
  std::array<VolumeInfo, 4> volumes_{};
  velkora::Velkora converter_;
  Log walk_;
};

TEST_F(RestoreVolumeInfosAfterConvert, VolumeWithItsLetterIsLeftAlone) {
  machine_.SetLetter(1, kFirstOffset, 'D');
  AddRecord(kFirstOffset, "D:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({});
  ExpectMountPointCalls(0, 0);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "D");
}

TEST_F(RestoreVolumeInfosAfterConvert, EmptyWantedLetterTakesTheLetterAway) {
  machine_.SetLetter(1, kFirstOffset, 'D');
  AddRecord(kFirstOffset, "");
  EXPECT_TRUE(Restore());
  ExpectSweeps({{1, "Remove Letter D:\\"}});
  ExpectMountPointCalls(1, 0);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "");
}

TEST_F(RestoreVolumeInfosAfterConvert, WantedTextThatIsNoLetterTakesTheLetterAway) {
  machine_.SetLetter(1, kFirstOffset, 'D');
  AddRecord(kFirstOffset, "1:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({{1, "Remove Letter D:\\"}});
  ExpectMountPointCalls(1, 0);
}

TEST_F(RestoreVolumeInfosAfterConvert, VolumeWithoutALetterGetsOnlyTheAssignment) {
  AddRecord(kSecondOffset, "E:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({{1, "Remove Letter E:\\"},
                {1, "Restore Letter guid :" + RootAt(kSecondOffset) + ", letter: E:\\"}});
  ExpectMountPointCalls(0, 1);
  EXPECT_EQ(LettersAt(1, kSecondOffset), "E");
}

TEST_F(RestoreVolumeInfosAfterConvert, WantedLetterThatNobodyHoldsIsAnnouncedButNotDeleted) {
  machine_.SetLetter(1, kFirstOffset, 'D');
  AddRecord(kFirstOffset, "E:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({{1, "Remove Letter D:\\"},
                {1, "Remove Letter E:\\"},
                {1, "Restore Letter guid :" + RootAt(kFirstOffset) + ", letter: E:\\"}});
  ExpectMountPointCalls(1, 1);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "E");
}

// Each letter stands in the set twice: as the record says it and, longer by its terminators, as the
// machine does.
TEST_F(RestoreVolumeInfosAfterConvert, TwoVolumesSwapTheirLetters) {
  machine_.SetLetter(1, kFirstOffset, 'D');
  machine_.SetLetter(1, kSecondOffset, 'C');
  AddRecord(kFirstOffset, "C:");
  AddRecord(kSecondOffset, "D:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({{1, "Remove Letter C:\\"},
                {1, "Remove Letter C:\\"},
                {1, "Remove Letter D:\\"},
                {1, "Remove Letter D:\\"},
                {1, "Restore Letter guid :" + RootAt(kFirstOffset) + ", letter: C:\\"},
                {1, "Restore Letter guid :" + RootAt(kSecondOffset) + ", letter: D:\\"}});
  ExpectMountPointCalls(2, 2);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "C");
  EXPECT_EQ(LettersAt(1, kSecondOffset), "D");
}

TEST_F(RestoreVolumeInfosAfterConvert, LetterIsTakenFromAnotherDisksVolume) {
  machine_.SetLetter(2, kFirstOffset, 'E');
  AddRecord(kFirstOffset, "E:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({{1, "Remove Letter E:\\"},
                {1, "Restore Letter guid :" + RootAt(kFirstOffset) + ", letter: E:\\"}});
  ExpectMountPointCalls(1, 1);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "E");
  EXPECT_EQ(LettersAt(2, kFirstOffset), "");
}

// With A in use the list of free letters names A.
TEST_F(RestoreVolumeInfosAfterConvert, LetterWronglyTakenForFreeIsNotDeletedAndNotAssigned) {
  machine_.SetLetter(2, kSecondOffset, 'A');
  AddRecord(kFirstOffset, "A:");
  EXPECT_TRUE(Restore());
  ExpectSweeps(
      {{1, "Remove Letter A:\\"},
       {3, "SetVolumeMountPointA Error: 145, Letter: A:\\, Volume id: " + RootAt(kFirstOffset)},
       {1, "Restore Letter guid :" + RootAt(kFirstOffset) + ", letter: A:\\"}});
  ExpectMountPointCalls(0, 1);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "");
  EXPECT_EQ(LettersAt(2, kSecondOffset), "A");
}

TEST_F(RestoreVolumeInfosAfterConvert, FirstOfTwoVolumesThatWantOneLetterGetsIt) {
  AddRecord(kSecondOffset, "E:");
  AddRecord(kFirstOffset, "E:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({{1, "Remove Letter E:\\"},
                {1, "Restore Letter guid :" + RootAt(kFirstOffset) + ", letter: E:\\"}});
  ExpectMountPointCalls(0, 1);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "E");
  EXPECT_EQ(LettersAt(1, kSecondOffset), "");
}

TEST_F(RestoreVolumeInfosAfterConvert, OfSeveralMountPathsTheFirstCounts) {
  GiveTwoLetters(kFirstOffset);
  ASSERT_EQ(LettersAt(1, kFirstOffset), "DE");

  AddRecord(kFirstOffset, "D:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({});
  ExpectMountPointCalls(0, 0);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "DE");
}

TEST_F(RestoreVolumeInfosAfterConvert, OfSeveralMountPathsTheFirstIsTakenAway) {
  GiveTwoLetters(kFirstOffset);
  ASSERT_EQ(LettersAt(1, kFirstOffset), "DE");

  AddRecord(kFirstOffset, "F:");
  EXPECT_TRUE(Restore());
  // E stays, and so the volume has a letter and is refused a second one.
  EXPECT_EQ(LettersAt(1, kFirstOffset), "E");
  ExpectMountPointCalls(1, 1);
  EXPECT_EQ(Lines(3).size(), 1U);
  EXPECT_EQ(Lines(3).front().rfind("SetVolumeMountPointA Error: 87, Letter: F:\\", 0), 0U);
}

TEST_F(RestoreVolumeInfosAfterConvert, VolumeWithoutARecordKeepsItsLetter) {
  machine_.SetLetter(1, kFirstOffset, 'D');
  AddRecord(kFirstOffset + 512, "E:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({});
  ExpectMountPointCalls(0, 0);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "D");
}

TEST_F(RestoreVolumeInfosAfterConvert, VolumeAtTheSameOffsetOfAnotherDiskIsLeftAlone) {
  machine_.SetLetter(1, kFirstOffset, 'C');
  machine_.SetLetter(2, kFirstOffset, 'D');
  AddRecord(kFirstOffset, "C:");
  EXPECT_TRUE(Restore());
  ExpectSweeps({});
  EXPECT_EQ(LettersAt(2, kFirstOffset), "D");
}

TEST_F(RestoreVolumeInfosAfterConvert, FirstRecordWithTheOffsetCounts) {
  AddRecord(kFirstOffset, "G:");
  AddRecord(kFirstOffset, "F:");
  EXPECT_TRUE(Restore());
  EXPECT_EQ(LettersAt(1, kFirstOffset), "G");
  ExpectMountPointCalls(0, 1);
}

TEST_F(RestoreVolumeInfosAfterConvert, FailedPlaceOfOneVolumeIsPassedOver) {
  AddRecord(kFirstOffset, "E:");
  AddRecord(kSecondOffset, "F:");
  const std::string path = PathAt(kFirstOffset);
  machine_.calls().FailOn("CreateFileA/" + path, 1, 32);
  EXPECT_TRUE(Restore());
  walk_.front() = {3, "GetPartitionDiskindexAndOffset error: 32, volume_id: " + path};
  ExpectSweeps({{1, "Remove Letter F:\\"},
                {1, "Restore Letter guid :" + RootAt(kSecondOffset) + ", letter: F:\\"}});
  EXPECT_EQ(LettersAt(1, kFirstOffset), "");
}

TEST_F(RestoreVolumeInfosAfterConvert, VolumeWithoutExtentsIsPassedOver) {
  simulator::Volume drive;
  drive.path = "\\\\?\\Volume{00000000-0000-0000-0000-00000000abcd}";
  drive.automatic_letter = false;
  machine_.AddVolume(drive);
  AddRecord(kFirstOffset, "E:");
  EXPECT_TRUE(Restore());
  walk_.push_back({3, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: 1"});
  walk_.push_back({3, "GetPartitionDiskindexAndOffset error: 1, volume_id: " + drive.path});
  ExpectSweeps({{1, "Remove Letter E:\\"},
                {1, "Restore Letter guid :" + RootAt(kFirstOffset) + ", letter: E:\\"}});
}

TEST_F(RestoreVolumeInfosAfterConvert, FailedLetterOfOneVolumeIsPassedOver) {
  AddRecord(kFirstOffset, "E:");
  machine_.calls().FailOn("GetVolumePathNamesForVolumeNameA", 1, 1167);
  EXPECT_TRUE(Restore());
  const LogLine reason = {
      3, "GetVolumePathNamesForVolumeNameA error 1167, device id " + RootAt(kFirstOffset)};
  walk_.front() = {3, "GetVolumeLetter Error: 1167, volume_id: " + PathAt(kFirstOffset)};
  walk_.insert(walk_.begin(), reason);
  ExpectSweeps({});
  ExpectMountPointCalls(0, 0);
}

TEST_F(RestoreVolumeInfosAfterConvert, FailedRemovalLetsTheAssignmentFailToo) {
  machine_.SetLetter(2, kFirstOffset, 'E');
  AddRecord(kFirstOffset, "E:");
  machine_.calls().FailOn("DeleteVolumeMountPointA", 1, 1117);
  EXPECT_TRUE(Restore());
  ExpectSweeps(
      {{3, "DeleteVolumeMountPointA Error: 1117, Letter: E:\\"},
       {1, "Remove Letter E:\\"},
       {3, "SetVolumeMountPointA Error: 145, Letter: E:\\, Volume id: " + RootAt(kFirstOffset)},
       {1, "Restore Letter guid :" + RootAt(kFirstOffset) + ", letter: E:\\"}});
  EXPECT_EQ(LettersAt(2, kFirstOffset), "E");
}

TEST_F(RestoreVolumeInfosAfterConvert, FailedAssignmentLeavesTheVolumeWithoutALetter) {
  machine_.SetLetter(1, kFirstOffset, 'D');
  AddRecord(kFirstOffset, "E:");
  machine_.calls().FailOn("SetVolumeMountPointA", 1, 1117);
  EXPECT_TRUE(Restore());
  ExpectSweeps(
      {{1, "Remove Letter D:\\"},
       {1, "Remove Letter E:\\"},
       {3, "SetVolumeMountPointA Error: 1117, Letter: E:\\, Volume id: " + RootAt(kFirstOffset)},
       {1, "Restore Letter guid :" + RootAt(kFirstOffset) + ", letter: E:\\"}});
  ExpectMountPointCalls(1, 1);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "");
}

TEST_F(RestoreVolumeInfosAfterConvert, FailedEnumerationTouchesNoLetter) {
  machine_.SetLetter(1, kFirstOffset, 'D');
  AddRecord(kFirstOffset, "E:");
  machine_.calls().FailOn("FindFirstVolumeA", 1, 8);
  EXPECT_FALSE(Restore());
  EXPECT_EQ(log_,
            (Log{{1, "RestoreVolumeInfosAfterConvert Begin..."}, {3, "FindFirstVolumeA error 8"}}));
  ExpectMountPointCalls(0, 0);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "D");
}

TEST_F(RestoreVolumeInfosAfterConvert, StopTouchesNoLetter) {
  machine_.SetLetter(1, kFirstOffset, 'D');
  AddRecord(kFirstOffset, "E:");
  velkora::GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(Restore());
  EXPECT_EQ(log_, (Log{{1, "RestoreVolumeInfosAfterConvert Begin..."}}));
  ExpectMountPointCalls(0, 0);
  EXPECT_EQ(LettersAt(1, kFirstOffset), "D");
}

TEST_F(RestoreVolumeInfosAfterConvert, LeavesNoHandleOpen) {
  AddRecord(kFirstOffset, "E:");
  EXPECT_TRUE(Restore());
  EXPECT_EQ(machine_.handles().Open(), std::vector<std::string>{});
}

}  // namespace
}  // namespace testing_support
