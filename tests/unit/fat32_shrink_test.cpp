#include "shrink/fat32_shrink.h"

#include <algorithm>
#include <filesystem>

#include "fat32_mounted_volume_fixture.h"
#include "simulator/disk.h"
#include "simulator/volume.h"

namespace velkora {
namespace {

using namespace testing_support;

using Bytes = std::vector<std::byte>;

constexpr char kUpdateProperties[] = "DeviceIoControl/IOCTL_DISK_UPDATE_PROPERTIES";
constexpr char kGetBitmap[] = "DeviceIoControl/FSCTL_GET_VOLUME_BITMAP";
constexpr char kGetPointers[] = "DeviceIoControl/FSCTL_GET_RETRIEVAL_POINTERS";
constexpr char kMoveFile[] = "DeviceIoControl/FSCTL_MOVE_FILE";
constexpr char kDismount[] = "DeviceIoControl/FSCTL_DISMOUNT_VOLUME";
constexpr char kGetLayout[] = "DeviceIoControl/IOCTL_DISK_GET_DRIVE_LAYOUT_EX";
constexpr char kSetLayout[] = "DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX";

std::uint32_t Number(const Sector& sector, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) value |= std::uint32_t{sector[offset + i]} << (8 * i);
  return value;
}

class CompressFat32Test : public Fat32MountedVolume {
 protected:
  // Files and folders at the low and at the high end.
  void Populate() {
    Add("\\low file", 30, 'l');
    Add("\\folder\\inner", 5, 'i');
    FillUpTo(Boundary() + 100);
    Add("\\high file", 300, 'h');
    Add("\\high folder\\sub\\deep file", 7, 'd');
    Add("\\high folder\\another", 3, 'a');
    Remove("\\filler");
    machine_.calls().Clear();
  }

  bool Shrink(std::uint64_t size_mib = kSizeMib, std::uint64_t cluster_size = 512,
              std::uint32_t partition = 1) {
    return CompressFat32Partition(disk_.path(), Path(), partition, size_mib, cluster_size);
  }

  void ExpectContents() {
    EXPECT_EQ(Content("\\low file"), std::string(30 * 512, 'l'));
    EXPECT_EQ(Content("\\folder\\inner"), std::string(5 * 512, 'i'));
    EXPECT_EQ(Content("\\high file"), std::string(300 * 512, 'h'));
    EXPECT_EQ(Content("\\high folder\\sub\\deep file"), std::string(7 * 512, 'd'));
    EXPECT_EQ(Content("\\high folder\\another"), std::string(3 * 512, 'a'));
  }

  std::uint32_t TotalSectors() { return Number(ReadSector(disk_, 2048), 32); }
  std::uint32_t PartitionSectors(std::size_t row) {
    return Number(ReadSector(disk_, 0), 446 + 16 * row + 12);
  }

  // Shrinks while a call fails, with these errors behind the opening lines.
  void ExpectFailureOf(std::string_view call, std::size_t occurrence, DWORD error,
                       const Texts& errors) {
    machine_.calls().FailOn(std::string(call), occurrence, error);
    EXPECT_FALSE(Shrink());
    ExpectFailure(errors);
  }
  // Behind the opening lines; no disk and no volume is open.
  void ExpectFailure(const Texts& errors) {
    Log expected = {{1, "Compress Fat32 Partition..."},
                    {1, "DISKPART_Rescan Begin..."},
                    {1, "DISKPART_Rescan Success!"}};
    for (const std::string& error : errors) expected.push_back({3, error});
    EXPECT_EQ(log_, expected);
    ExpectDevicesClosed();
  }
  void ExpectDevicesClosed() {
    for (const std::string& open : machine_.handles().Open()) {
      EXPECT_TRUE(open.starts_with("file ")) << open;
    }
  }
};

// ---- A shrink that succeeds --------------------------------------------------------------------

TEST_F(CompressFat32Test, EverythingBehindTheBoundaryMovesAndNothingIsLost) {
  Populate();
  const std::uint64_t boundary = Boundary();
  ASSERT_GT(Chain("\\high file").front(), boundary);
  ASSERT_GT(Chain("\\high folder").front(), boundary);
  EXPECT_TRUE(Shrink());
  EXPECT_EQ(log_, (Log{{1, "Compress Fat32 Partition..."},
                       {1, "DISKPART_Rescan Begin..."},
                       {1, "DISKPART_Rescan Success!"},
                       {1, "Compress Fat32 Partition End!"}}));
  ExpectContents();
  for (const char* path : {"\\high file", "\\high folder", "\\high folder\\sub",
                           "\\high folder\\sub\\deep file", "\\high folder\\another"}) {
    for (const std::uint32_t cluster : Chain(path)) EXPECT_LE(cluster, boundary) << path;
  }
  ExpectDevicesClosed();
}

TEST_F(CompressFat32Test, VolumeAndPartitionShrinkTogether) {
  Populate();
  const Sector boot_before = ReadSector(disk_, 2048);
  const Bytes reserved_before = ReadBytes(disk_, kStart + 512, 31 * 512);
  EXPECT_TRUE(Shrink());
  EXPECT_EQ(PartitionSectors(0), kSectors - kSizeMib * 2048);
  EXPECT_EQ(PartitionSectors(1), 10 * 2048U);
  Sector boot = ReadSector(disk_, 2048);
  EXPECT_EQ(Number(boot, 32), kSectors - kSizeMib * 2048);
  std::copy_n(&boot_before[32], 4, &boot[32]);
  EXPECT_EQ(boot, boot_before);
  // FSInfo's count of free clusters is the file system's own business; the backup boot sector is
  // nobody's.
  const Bytes reserved = ReadBytes(disk_, kStart + 512, 31 * 512);
  EXPECT_TRUE(
      std::equal(reserved.begin() + 5 * 512, reserved.end(), reserved_before.begin() + 5 * 512));
}

TEST_F(CompressFat32Test, StepsComeInTheirOrder) {
  Populate();
  EXPECT_TRUE(Shrink());
  Texts steps;
  for (const simulator::Call& call : machine_.calls().calls()) {
    std::string step = call.name == "DeviceIoControl" ? call.detail : call.name;
    const bool is_boot_sector_read = call.name == "ReadFile" && !steps.empty() &&
                                     steps.back() == "IOCTL_DISK_GET_DRIVE_LAYOUT_EX";
    if (call.name == "DeviceIoControl" || call.name == "WriteFile" || call.name == "CreateFileA" ||
        call.name == "FindFirstFileW" || call.name == "CreateFileW" || call.name == "command" ||
        is_boot_sector_read) {
      if (steps.empty() || steps.back() != step) steps.push_back(step);
    }
  }
  // The files, each opened and asked; the moves; the folders, each opened and asked.
  const auto repeat = [](Texts& to, int times) {
    for (int i = 0; i < times; ++i) {
      to.insert(to.end(), {"CreateFileW", "FSCTL_GET_RETRIEVAL_POINTERS"});
    }
  };
  Texts expected = {"command", "CreateFileA", "IOCTL_DISK_UPDATE_PROPERTIES",
                    "FSCTL_GET_VOLUME_BITMAP", "FindFirstFileW"};
  repeat(expected, 5);
  expected.insert(expected.end(), {"FSCTL_MOVE_FILE", "FSCTL_GET_VOLUME_BITMAP"});
  repeat(expected, 3);
  expected.insert(expected.end(),
                  {"FSCTL_DISMOUNT_VOLUME", "WriteFile", "IOCTL_DISK_GET_DRIVE_LAYOUT_EX",
                   "ReadFile", "WriteFile", "IOCTL_DISK_SET_DRIVE_LAYOUT_EX"});
  EXPECT_EQ(steps, expected);
}

TEST_F(CompressFat32Test, TheVolumeIsClosedAndThenTheDisk) {
  Populate();
  EXPECT_TRUE(Shrink());
  const auto& calls = machine_.calls().calls();
  Texts last;
  for (std::size_t i = calls.size() - 2; i < calls.size(); ++i) {
    last.push_back(calls[i].name + " " + calls[i].detail);
  }
  EXPECT_EQ(last, (Texts{"CloseHandle volume " + Path(), "CloseHandle disk 1"}));
}

TEST_F(CompressFat32Test, AttributesAreGoneAfterwards) {
  Populate();
  EXPECT_EQ(Files().SetAttributes("\\high file", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  EXPECT_EQ(Files().SetAttributes("\\high folder", FILE_ATTRIBUTE_SYSTEM), ERROR_SUCCESS);
  EXPECT_TRUE(Shrink());
  EXPECT_EQ(AttributesOf("\\high file"), 0U);
  EXPECT_EQ(AttributesOf("\\high folder"), DWORD{FILE_ATTRIBUTE_DIRECTORY});
}

TEST_F(CompressFat32Test, ControlCodesHaveTheirFixedSizes) {
  EXPECT_TRUE(Shrink(1));
  const auto arguments_of = [this](std::string_view detail) -> std::string {
    for (const simulator::Call& call : machine_.calls().calls()) {
      if (call.detail == detail) return call.arguments;
    }
    return "";
  };
  EXPECT_EQ(arguments_of("IOCTL_DISK_UPDATE_PROPERTIES"), "disk 1 in 0 out 0");
  EXPECT_EQ(arguments_of("FSCTL_DISMOUNT_VOLUME"), "volume " + Path() + " in 0 out 0");
  EXPECT_EQ(arguments_of("IOCTL_DISK_GET_DRIVE_LAYOUT_EX"), "disk 1 in 0 out 18624");
  EXPECT_EQ(arguments_of("IOCTL_DISK_SET_DRIVE_LAYOUT_EX"), "disk 1 in 18624 out 0");
}

TEST_F(CompressFat32Test, SecondFatBecomesACopyOfTheFirst) {
  Populate();
  EXPECT_TRUE(Shrink());
  EXPECT_EQ(ReadBytes(disk_, FirstFat() + FatBytes(), FatBytes()),
            ReadBytes(disk_, FirstFat(), FatBytes()));
}

TEST_F(CompressFat32Test, EmptyVolumeShrinks) {
  EXPECT_TRUE(Shrink(1));
  EXPECT_EQ(TotalSectors(), kSectors - 2048);
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(CompressFat32Test, FilesStayOpenBehindTheShrink) {
  Populate();
  EXPECT_TRUE(Shrink());
  EXPECT_EQ(machine_.handles().Open().size(), 5U);
}

TEST_F(CompressFat32Test, RescanThatFailsDoesNotEndIt) {
  machine_.calls().FailOn("command/diskpart", 1, 1);
  EXPECT_TRUE(Shrink(1));
  EXPECT_EQ(log_[2], (LogLine{3, "DISKPART_Rescan Failed!"}));
  EXPECT_EQ(log_.back(), (LogLine{1, "Compress Fat32 Partition End!"}));
}

TEST_F(CompressFat32Test, StopRequestIsNotLookedAt) {
  GetGlobalContext().stop_requested = 1;
  EXPECT_TRUE(Shrink(1));
}

TEST_F(CompressFat32Test, DataThatFindsNoRoomEndsUpOutsideAndIsNoFailure) {
  Populate();
  const std::uint32_t last = Chain("\\high file").back();
  FillUpTo(Boundary() - 20);
  EXPECT_TRUE(Shrink());
  EXPECT_EQ(TotalSectors(), kSectors - kSizeMib * 2048);
  EXPECT_GT(last, Boundary());
  EXPECT_EQ(ReadBytes(disk_, FirstFat() + last * 4U, 4),
            (Bytes{std::byte{0xFF}, std::byte{0xFF}, std::byte{0xFF}, std::byte{0x0F}}));
  EXPECT_EQ(ReadBytes(disk_, PositionOf(last), 512), Bytes(512, std::byte{'h'}));
}

// ---- Sizes -------------------------------------------------------------------------------------

TEST_F(CompressFat32Test, RestOfAClusterIsLostWhileThePartitionShrinksByAll) {
  Populate();
  const std::uint32_t first = Chain("\\high file").front();
  // By the caller's number 30 MiB are no whole cluster: the boundary is the volume's end.
  EXPECT_TRUE(Shrink(kSizeMib, 31 * kMib));
  EXPECT_EQ(machine_.calls().Count(kMoveFile), 0U);
  EXPECT_EQ(ReadBytes(disk_, PositionOf(first), 512), Bytes(512, std::byte{'h'}));
  EXPECT_EQ(PartitionSectors(0), kSectors - kSizeMib * 2048);
  EXPECT_EQ(TotalSectors(), kSectors - kSizeMib * 2048);
}

TEST_F(CompressFat32Test, SectorCountIsCutTo32Bits) {
  EXPECT_FALSE(Shrink(64));
  ExpectFailure({"Set Drive Layout Failed! error_code: 87"});
  EXPECT_EQ(TotalSectors(), static_cast<std::uint32_t>(kSectors - 64 * 2048));
}

TEST_F(CompressFat32Test, PartitionNumberThatNoRowHasLeavesASectorCountOfZero) {
  EXPECT_TRUE(Shrink(1, 512, 9));
  EXPECT_EQ(TotalSectors(), 0U);
  EXPECT_EQ(PartitionSectors(0), kSectors);
}

TEST_F(CompressFat32Test, ClusterSizeZeroIsADivisionByZeroBeforeTheWalk) {
  Populate();
  EXPECT_EQ(FaultOf([&] { Shrink(1, 0); }), EXCEPTION_INT_DIVIDE_BY_ZERO);
  EXPECT_EQ(machine_.calls().Count("FindFirstFileW"), 0U);
}

// ---- Each step that fails ----------------------------------------------------------------------

class FailedFat32Shrink : public CompressFat32Test {
 protected:
  FailedFat32Shrink() { Populate(); }

  void ExpectUnchangedSizes() {
    EXPECT_EQ(TotalSectors(), kSectors);
    EXPECT_EQ(PartitionSectors(0), kSectors);
  }
};

TEST_F(FailedFat32Shrink, OpenOfTheDiskStillOpensTheVolume) {
  ExpectFailureOf("CreateFileA", 1, 32,
                  {"open device failed, device_id: " + disk_.path() + ", error_code: 32"});
  EXPECT_EQ(machine_.calls().Count("CreateFileA"), 2U);
  EXPECT_EQ(machine_.calls().Count("DeviceIoControl"), 0U);
}

TEST_F(FailedFat32Shrink, OpenOfTheVolumeClosesTheDisk) {
  ExpectFailureOf("CreateFileA", 2, 32,
                  {"open device failed, device_id: " + Path() + ", error_code: 32"});
  EXPECT_EQ(machine_.calls().Count("DeviceIoControl"), 0U);
}

TEST_F(FailedFat32Shrink, UpdateOfTheDisk) {
  ExpectFailureOf(kUpdateProperties, 1, 1117, {"DISK UPDATE Error! error_code: 1117"});
  ExpectUnchangedSizes();
}

TEST_F(FailedFat32Shrink, FirstBitmap) {
  ExpectFailureOf(kGetBitmap, 2, 1117,
                  {"GET VOLUME BITMAP Error! error_code: 1117", "Get Cluster Location Error!"});
  EXPECT_EQ(machine_.calls().Count("FindFirstFileW"), 0U);
}

TEST_F(FailedFat32Shrink, WalkLeavesTheAttributesClearedSoFar) {
  EXPECT_NE(AttributesOf("\\low file") & FILE_ATTRIBUTE_ARCHIVE, 0U);
  ExpectFailureOf("SetFileAttributesW", 2, 5,
                  {"Set File Attributes Error! error_code: 5", "Enum File Path Error!"});
  EXPECT_EQ(AttributesOf("\\low file") & FILE_ATTRIBUTE_ARCHIVE, 0U);
  EXPECT_NE(AttributesOf("\\high file") & FILE_ATTRIBUTE_ARCHIVE, 0U);
  ExpectUnchangedSizes();
}

TEST_F(FailedFat32Shrink, FileThatIsLockedSomewhere) {
  ExpectFailureOf("CreateFileW", 1, 32, {"Get File Debris Error!"});
  EXPECT_EQ(AttributesOf("\\high file") & FILE_ATTRIBUTE_ARCHIVE, 0U) << "attributes are gone";
  ExpectUnchangedSizes();
}

TEST_F(FailedFat32Shrink, MoveKeepsWhatHasMoved) {
  ExpectFailureOf(kMoveFile, 2, 1117,
                  {"Move File Failed! error_code: 1117", "Move File Debris Error!"});
  EXPECT_LE(Chain("\\high file").back(), Boundary());
  ExpectContents();
  ExpectUnchangedSizes();
}

TEST_F(FailedFat32Shrink, SecondBitmap) {
  ExpectFailureOf(kGetBitmap, 3, 1117,
                  {"GET VOLUME BITMAP Error! error_code: 1117", "Get Cluster Location Error!"});
  ExpectContents();
}

TEST_F(FailedFat32Shrink, FragmentsOfDirectories) {
  ExpectFailureOf(kGetPointers, 6, 1117, {"Get Directory Debris Error!"});
  EXPECT_TRUE(machine_.FindVolumeAt(1, kStart)->mounted);
  ExpectContents();
}

TEST_F(FailedFat32Shrink, Dismount) {
  ExpectFailureOf(kDismount, 1, 1117, {"Volume Dismount Error! error_code: 1117"});
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U);
}

TEST_F(FailedFat32Shrink, MoveOfDirectories) {
  ExpectFailureOf("ReadFile", 1, 23, {"Move Directory Debris Error!"});
  ExpectUnchangedSizes();
}

TEST_F(FailedFat32Shrink, GetLayoutLeavesTheSizeAndTheVolumeDismounted) {
  ExpectFailureOf(kGetLayout, 1, 1117, {"Get Drive Layout Failed! error_code: 1117"});
  EXPECT_FALSE(machine_.FindVolumeAt(1, kStart)->mounted);
  ExpectUnchangedSizes();
  ExpectContents();
}

TEST_F(FailedFat32Shrink, ReadOfTheBootSector) {
  EXPECT_TRUE(Shrink());
  const std::size_t reads = machine_.calls().Count("ReadFile");
  log_.clear();
  // The second shrink moves nothing: boot sector, FAT, and the boot sector again.
  ASSERT_GT(reads, 3U);
  machine_.calls().FailOn("ReadFile", 3, 23, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Shrink(1));
  ExpectFailure({"Read Data Error! error_code: 23", "Read Data Error! error_code: 23",
                 "Read Data Error! error_code: 23", "Read Data Failed! error_code: 23"});
  EXPECT_EQ(TotalSectors(), kSectors - kSizeMib * 2048);
}

TEST_F(FailedFat32Shrink, WriteOfTheBootSector) {
  EXPECT_TRUE(Shrink());
  log_.clear();
  machine_.calls().FailOn("WriteFile", 3, 19, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Shrink(1));
  ExpectFailure({"Write Data Error! error_code: 19", "Write Data Error! error_code: 19",
                 "Write Data Error! error_code: 19", "Write Data Failed! error_code: 19"});
  EXPECT_EQ(TotalSectors(), kSectors - kSizeMib * 2048);
  EXPECT_EQ(PartitionSectors(0), kSectors - kSizeMib * 2048);
}

TEST_F(FailedFat32Shrink, SetLayoutLeavesTheBootSectorShorterThanThePartition) {
  ExpectFailureOf(kSetLayout, 1, 1117, {"Set Drive Layout Failed! error_code: 1117"});
  EXPECT_EQ(TotalSectors(), kSectors - kSizeMib * 2048);
  EXPECT_EQ(PartitionSectors(0), kSectors);
}

TEST_F(FailedFat32Shrink, ErrorOfAListingPassesThroughWithTheDevicesOpen) {
  machine_.calls().FailOn("FindNextFileW", 1, 1117);
  EXPECT_THROW(Shrink(), std::filesystem::filesystem_error);
  EXPECT_EQ(machine_.handles().Open(), (Texts{"disk 1", "volume " + Path()}));
}

TEST_F(CompressFat32Test, VolumeWithoutAFreeClusterEndsWithoutAMessage) {
  Add("\\filler", TotalClusters() - 1);
  EXPECT_FALSE(Shrink());
  ExpectFailure({});
  EXPECT_EQ(machine_.calls().Count("FindFirstFileW"), 0U);
}

}  // namespace
}  // namespace velkora
