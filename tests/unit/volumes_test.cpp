#include "disk/volumes.h"

#include "frame/global_context.h"
#include "platform/win32.h"
#include "simulator/volume.h"
#include "two_volumes_fixture.h"

namespace testing_support {
namespace {

constexpr std::uint32_t kNoDisk = 0xCDCDCDCD;
constexpr std::uint64_t kNoOffset = 0xCDCDCDCDCDCDCDCD;
constexpr char kExtentsCall[] = "DeviceIoControl/IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS";
constexpr char kSpannedPath[] = "\\\\?\\Volume{00000000-0000-0000-0000-00000000abcd}";

// The first volume is D, the second has no letter.
class VolumesTest : public TwoVolumesTest {
 protected:
  VolumesTest() {
    machine_.SetLetter(1, kFirstOffset, 'D');
    win32::SetLastError(ERROR_SUCCESS);  // what an earlier call has left counts here
  }

  void AddVolume(const std::vector<simulator::VolumeExtent>& extents) {
    simulator::Volume volume;
    volume.path = kSpannedPath;
    volume.identity = "a volume of its own";
    volume.extents = extents;
    volume.automatic_letter = false;
    machine_.AddVolume(volume);
  }
};

// The disk and the offset that the query has stored.
struct Place {
  std::uint32_t disk = kNoDisk;
  std::uint64_t offset = kNoOffset;
  bool operator==(const Place&) const = default;
};

bool Query(const std::string& path, Place& place) {
  return velkora::GetPartitionDiskindexAndOffset(path, place.disk, place.offset);
}

class GetVolumeDevicePaths : public VolumesTest {};
class GetPartitionDiskindexAndOffset : public VolumesTest {};
class GetVolumeLetter : public VolumesTest {};

TEST_F(GetVolumeDevicePaths, AppendsAllVolumesWithoutTrailingBackslash) {
  Texts paths = {"an earlier one"};
  EXPECT_TRUE(velkora::GetVolumeDevicePaths(paths));
  EXPECT_EQ(paths, (Texts{"an earlier one", PathAt(kFirstOffset), PathAt(kSecondOffset)}));
  EXPECT_EQ(log_, Log{});
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(GetVolumeDevicePaths, WalkThatCannotBeginIsLogged) {
  machine_.calls().FailOn("FindFirstVolumeA", 1, 8);
  Texts paths;
  EXPECT_FALSE(velkora::GetVolumeDevicePaths(paths));
  EXPECT_EQ(paths, Texts{});
  EXPECT_EQ(log_, (Log{{3, "FindFirstVolumeA error 8"}}));
}

TEST_F(GetVolumeDevicePaths, WalkThatBreaksOffCountsAsComplete) {
  machine_.calls().FailOn("FindNextVolumeA", 1, 1117);
  Texts paths;
  EXPECT_TRUE(velkora::GetVolumeDevicePaths(paths));
  EXPECT_EQ(paths, Texts{PathAt(kFirstOffset)});
  EXPECT_EQ(machine_.calls().Count("FindVolumeClose"), 1U);
  EXPECT_EQ(machine_.handles().Open(), Texts{});
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetVolumeDevicePaths, StopKeepsTheListAndLeavesTheFindHandleOpen) {
  velkora::GetGlobalContext().stop_requested = 1;
  Texts paths;
  EXPECT_FALSE(velkora::GetVolumeDevicePaths(paths));
  EXPECT_EQ(paths, Texts{PathAt(kFirstOffset)});
  EXPECT_EQ(machine_.calls().Count("FindNextVolumeA"), 0U);
  EXPECT_EQ(machine_.calls().Count("FindVolumeClose"), 0U);
  EXPECT_EQ(machine_.handles().Open().size(), 1U);
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetPartitionDiskindexAndOffset, TellsWhereAVolumeStarts) {
  Place place;
  EXPECT_TRUE(Query(PathAt(kSecondOffset), place));
  EXPECT_EQ(place, (Place{1, kSecondOffset}));
  EXPECT_EQ(machine_.calls().Count(kExtentsCall), 1U);
  EXPECT_EQ(log_, Log{});
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(GetPartitionDiskindexAndOffset, VolumeIsOpenedToReadAndSharedWithWriters) {
  Place place;
  EXPECT_TRUE(Query(PathAt(kSecondOffset), place));
  ASSERT_FALSE(machine_.calls().calls().empty());
  const simulator::Call& open = machine_.calls().calls().front();
  EXPECT_EQ(open.name, "CreateFileA");
  EXPECT_EQ(open.detail, PathAt(kSecondOffset));
  EXPECT_EQ(open.arguments, "access 0x80000000 share 0x3 disposition 3 flags 0x80");
}

TEST_F(GetPartitionDiskindexAndOffset, StaleErrorOfMoreDataAsksTwiceAndSucceeds) {
  win32::SetLastError(ERROR_MORE_DATA);
  Place place;
  EXPECT_TRUE(Query(PathAt(kSecondOffset), place));
  EXPECT_EQ(place, (Place{1, kSecondOffset}));
  EXPECT_EQ(machine_.calls().Count(kExtentsCall), 2U);
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetPartitionDiskindexAndOffset, VolumeWithTwoExtentsLogsALineAndGivesTheFirst) {
  AddVolume({{3, 5 * kMiB, kMiB}, {4, 9 * kMiB, kMiB}});
  Place place;
  EXPECT_TRUE(Query(kSpannedPath, place));
  EXPECT_EQ(place, (Place{3, 5 * kMiB}));
  EXPECT_EQ(log_, (Log{{3, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: 234"}}));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(GetPartitionDiskindexAndOffset, FailedSecondCallIsLogged) {
  AddVolume({{3, 5 * kMiB, kMiB}, {4, 9 * kMiB, kMiB}});
  machine_.calls().FailOn(kExtentsCall, 2, 1167);
  Place place;
  EXPECT_FALSE(Query(kSpannedPath, place));
  EXPECT_EQ(place, Place{});
  EXPECT_EQ(log_, (Log{{3, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: 234"},
                       {3, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS2 Error: 1167"}}));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(GetPartitionDiskindexAndOffset, VolumeWithoutExtentsFails) {
  AddVolume({});
  Place place;
  EXPECT_FALSE(Query(kSpannedPath, place));
  EXPECT_EQ(place, Place{});
  EXPECT_EQ(log_, (Log{{3, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: 1"}}));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(GetPartitionDiskindexAndOffset, FailedFirstCallIsLogged) {
  machine_.calls().FailOn(kExtentsCall, 1, 1167);
  Place place;
  EXPECT_FALSE(Query(PathAt(kFirstOffset), place));
  EXPECT_EQ(place, Place{});
  EXPECT_EQ(machine_.calls().Count(kExtentsCall), 1U);
  EXPECT_EQ(log_, (Log{{3, "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS1 Error: 1167"}}));
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(GetPartitionDiskindexAndOffset, FailedOpenIsNotLogged) {
  machine_.calls().FailOn("CreateFileA", 1, 5);
  Place place;
  EXPECT_FALSE(Query(PathAt(kFirstOffset), place));
  EXPECT_EQ(place, Place{});
  EXPECT_EQ(win32::GetLastError(), 5U);
  EXPECT_EQ(machine_.calls().Count(kExtentsCall), 0U);
  EXPECT_EQ(log_, Log{});
}

TEST_F(GetVolumeLetter, GivesTheMultiStringWithItsTerminators) {
  std::string letter = "before";
  EXPECT_TRUE(velkora::GetVolumeLetter(RootAt(kFirstOffset), letter));
  EXPECT_EQ(letter, std::string("D:\\\0\0", 5));
}

TEST_F(GetVolumeLetter, VolumeWithoutAMountPointGivesOneTerminator) {
  std::string letter = "before";
  EXPECT_TRUE(velkora::GetVolumeLetter(RootAt(kSecondOffset), letter));
  EXPECT_EQ(letter, std::string(1, '\0'));
}

TEST_F(GetVolumeLetter, FailureIsLoggedAndLeavesTheLetter) {
  machine_.calls().FailOn("GetVolumePathNamesForVolumeNameA", 1, 1167);
  std::string letter = "before";
  EXPECT_FALSE(velkora::GetVolumeLetter(RootAt(kFirstOffset), letter));
  EXPECT_EQ(letter, "before");
  EXPECT_EQ(
      log_,
      (Log{{3, "GetVolumePathNamesForVolumeNameA error 1167, device id " + RootAt(kFirstOffset)}}));
}

TEST(CutAtLastSeparator, GivesTheTextInFrontOfTheLastOccurrence) {
  EXPECT_EQ(velkora::CutAtLastSeparator("\\\\?\\Volume{1}\\", '\\'), "\\\\?\\Volume{1}");
  EXPECT_EQ(velkora::CutAtLastSeparator("a/b/c", '/'), "a/b");
}

TEST(CutAtLastSeparator, EmptyTextGivesEmptyText) {
  EXPECT_EQ(velkora::CutAtLastSeparator("", '\\'), "");
}

TEST(CutAtLastSeparator, TextWithoutTheSeparatorStaysWhole) {
  EXPECT_EQ(velkora::CutAtLastSeparator("volume", '\\'), "volume");
}

TEST(CutAtLastSeparator, LeadingSeparatorAloneGivesEmptyText) {
  EXPECT_EQ(velkora::CutAtLastSeparator("\\volume", '\\'), "");
}

}  // namespace
}  // namespace testing_support
