// What both conversions do alike on data disks. What one of them does alone is in files of its own.
#include <algorithm>

#include "convert/gpt_to_mbr.h"
#include "convert/mbr_to_gpt.h"
#include "frame/global_context.h"
#include "support/disk_conversion_fixture.h"
#include "support/expected_events.h"

namespace velkora {
namespace {

using namespace testing_support;

struct Direction {
  const char* name;
  DiskType from;
  bool (*convert)(Velkora&);
  std::string style;   // the new one
  std::string layout;  // how its printed layout of one partition begins
  std::string create_error;
  std::string layout_error;
  std::string update_error;
  std::string letter_error;
};
void PrintTo(const Direction& direction, std::ostream* out) {
  *out << direction.name;
}

const std::string kControlError = "DeviceIoControl with IOCTL_DISK_";

const Direction kDirections[] = {
    {"GPT2MBR", DiskType::kGpt, &ConvertGptToMbr, "mbr", "PartitionCount: 4, PartitionStyle: 0",
     kControlError + "CREATE_DISK error ", kControlError + "SET_DRIVE_LAYOUT_EX error ",
     kControlError + "UPDATE_PROPERTIES error ", "RestoreVolumeInfos Error: "},
    {"MBR2GPT", DiskType::kMbr, &ConvertMbrToGpt, "gpt", "PartitionCount: 1, PartitionStyle: 1",
     "Set New Disk Error: ", "IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: ",
     "IOCTL_DISK_UPDATE_PROPERTIES Error: ", "RestoreVolumeInfos error: "},
};

class EitherConversion : public DiskConversionTest,
                         public ::testing::WithParamInterface<Direction> {
 protected:
  EitherConversion() : DiskConversionTest(GetParam().from, 256 << 20) {}

  // `count` NTFS volumes of 16 MiB, 1 MiB apart, the first at 1 MiB; in the table in this order or
  // from the last to the first.
  void SetUpDisk(std::size_t count, bool backwards = false, bool with_record = true) {
    constexpr std::uint64_t kMiB = 2048;  // in sectors
    std::vector<GptEntry> gpt;
    std::vector<MbrEntry> mbr;
    std::vector<std::uint64_t> offsets;
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint64_t first = (1 + 17 * (backwards ? count - 1 - i : i)) * kMiB;
      const auto unique = static_cast<std::uint8_t>(i + 1);
      gpt.push_back({kBasicDataGuid, first, first + 16 * kMiB - 1, unique});
      mbr.push_back({7, first, 16 * kMiB});
      offsets.push_back(first * 512);
    }
    GetParam().from == DiskType::kGpt ? WriteGpt(disk_, gpt) : WriteMbr(disk_, mbr);
    for (const MbrEntry& entry : mbr) WriteNtfsBootSector(disk_, entry.first_sector, 16 * kMiB);
    ShowDisk(offsets, with_record);
  }

  // Fails behind the events `reached`, with `last_line`.
  void ExpectFailure(const EventList& reached, const std::string& last_line) {
    EXPECT_FALSE(ConvertUnprotected());
    EXPECT_EQ(Events(), reached);
    EXPECT_EQ(LastLine(), "3 " + last_line);
  }
  void ExpectSuccess() {
    EXPECT_TRUE(ConvertUnprotected());
    EXPECT_EQ(Events(), kDataDiskEvents);
  }
};

INSTANTIATE_TEST_SUITE_P(Directions, EitherConversion, ::testing::ValuesIn(kDirections),
                         [](const auto& test) { return test.param.name; });

TEST_P(EitherConversion, SendsPercentBeforeStatus) {
  SetUpDisk(2);
  ExpectSuccess();
}

TEST_P(EitherConversion, LogsItsStepsInOrder) {
  SetUpDisk(1);
  ExpectSuccess();
  const std::string name = GetParam().name;
  const std::string style = GetParam().style;
  EXPECT_EQ(Steps(),
            (Texts{"1 " + name + " start", "1 Check and compress partition",
                   "1 DISKPART_Clean Begin...", "1 DISKPART_Clean Success!",
                   "1 Create " + style + " disk", "1 DISKPART_Rescan Begin...",
                   "1 DISKPART_Rescan Success!", "1 Set " + style + " partition table",
                   "1 ----------disklayout----------", "1 [disk] " + GetParam().layout,
                   "1 ------------------------------", "1 DISKPART_Rescan Begin...",
                   "1 DISKPART_Rescan Success!", "1 RestoreVolumeInfosAfterConvert Begin...",
                   "1 RestoreVolumeInfosAfterConvert End!", "1 " + name + " end"}));
}

TEST_P(EitherConversion, GivesDiskpartItsScripts) {
  SetUpDisk(1);
  ExpectSuccess();
  EXPECT_EQ(scripts_, (Texts{"select disk 1\r\nclean\r\n", "rescan\r\n", "rescan\r\n"}));
}

TEST_P(EitherConversion, SetsStyleThenLayoutAndTellsTheSystemEachTime) {
  SetUpDisk(1, false, /*with_record=*/false);
  ExpectSuccess();
  Texts steps = DeviceSteps();
  ASSERT_GE(steps.size(), 7U);
  steps.resize(7);  // what follows is the walk over the volumes
  EXPECT_EQ(steps,
            (Texts{"diskpart", "IOCTL_DISK_CREATE_DISK", "IOCTL_DISK_UPDATE_PROPERTIES", "diskpart",
                   "IOCTL_DISK_SET_DRIVE_LAYOUT_EX", "IOCTL_DISK_UPDATE_PROPERTIES", "diskpart"}));
}

TEST_P(EitherConversion, OffsetsAreInSectorOrderOnceTheTableIsSet) {
  SetUpDisk(3, /*backwards=*/true);
  ExpectSuccess();
  EXPECT_EQ(converter_.partition_offsets,
            (std::vector<std::uint64_t>{1 << 20, 18 << 20, 35 << 20}));
}

TEST_P(EitherConversion, OffsetsAreInTableOrderUntilTheTableIsSet) {
  SetUpDisk(3, /*backwards=*/true);
  machine_.calls().FailOn("command/diskpart");
  EXPECT_FALSE(ConvertUnprotected());
  EXPECT_EQ(converter_.partition_offsets,
            (std::vector<std::uint64_t>{35 << 20, 18 << 20, 1 << 20}));
}

TEST_P(EitherConversion, VolumesGetTheirLettersBack) {
  SetUpDisk(3);
  const Texts letters = {"M:", "K:", "L:"};
  for (std::size_t i = 0; i < 3; ++i) {
    machine_.SetLetter(1, record_.volume(i).offset, letters[i][0]);
    SetText(record_.volume(i).letter, letters[i]);
  }
  ExpectSuccess();
  for (std::size_t i = 0; i < 3; ++i) {
    const simulator::Volume* volume = machine_.FindVolumeAt(1, record_.volume(i).offset);
    ASSERT_NE(volume, nullptr);
    EXPECT_EQ(machine_.LettersOf(*volume) + ":", letters[i]);
  }
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_P(EitherConversion, AnUnreadableTableSendsNoStatus) {
  SetUpDisk(2);
  machine_.calls().FailOn("ReadFile", 1, 23);
  EXPECT_FALSE(GetParam().convert(converter_));
  EXPECT_EQ(AllLines(), (Texts{"3 Read Error: 23", "3 Get partitions fail!"}));
  EXPECT_TRUE(Events().empty());
  EXPECT_TRUE(scripts_.empty());
}

TEST_P(EitherConversion, AStopBeforeTheFirstReadSendsNoStatus) {
  SetUpDisk(2);
  GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(GetParam().convert(converter_));
  EXPECT_EQ(AllLines(), (Texts{"3 Get partitions fail!"}));
  EXPECT_TRUE(Events().empty());
}

TEST_P(EitherConversion, AFailedCleanEndsIt) {
  SetUpDisk(2);
  machine_.calls().FailOn("command/diskpart", 1, 1);
  ExpectFailure(kUpToClearing, "DISKPART_Clean Failed!");
  EXPECT_EQ(DeviceSteps(), (Texts{"diskpart"}));
}

TEST_P(EitherConversion, AFailedCreationOfTheStyleEndsIt) {
  SetUpDisk(2);
  FailControl("IOCTL_DISK_CREATE_DISK", 1, 5);
  ExpectFailure(kUpToCreating, GetParam().create_error + "5");
  EXPECT_EQ(CountControl("IOCTL_DISK_UPDATE_PROPERTIES"), 0U);
  EXPECT_EQ(scripts_.size(), 1U);
}

TEST_P(EitherConversion, AFailedLayoutEndsIt) {
  SetUpDisk(2);
  record_.volume(0).part_number = 77;
  FailControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX", 1, 1117);
  ExpectFailure(kUpToWriting, GetParam().layout_error + "1117");
  EXPECT_EQ(CountControl("IOCTL_DISK_UPDATE_PROPERTIES"), 1U);
  EXPECT_EQ(record_.volume(0).part_number, 77);
  EXPECT_EQ(scripts_.size(), 2U);
}

// ---- Failures that are passed over --------------------------------------------------------------

TEST_P(EitherConversion, FailedUpdatesOfPropertiesArePassedOver) {
  SetUpDisk(2);
  machine_.calls().FailOn("DeviceIoControl/IOCTL_DISK_UPDATE_PROPERTIES", 1, 1117,
                          simulator::Repeat::kFromThenOn);
  ExpectSuccess();
  EXPECT_EQ(Lines(3), Texts(2, GetParam().update_error + "1117"));
}

TEST_P(EitherConversion, FailedRescansArePassedOver) {
  SetUpDisk(2);
  machine_.calls().FailOn("command/diskpart", 2, 1, simulator::Repeat::kFromThenOn);
  ExpectSuccess();
  const Texts errors = Lines(3);
  EXPECT_EQ(std::count(errors.begin(), errors.end(), "DISKPART_Rescan Failed!"), 2);
}

TEST_P(EitherConversion, FailedLettersArePassedOver) {
  SetUpDisk(2);
  machine_.calls().FailOn("FindFirstVolumeA", 1, 8);
  ExpectSuccess();
  EXPECT_EQ(Lines(3), (Texts{"FindFirstVolumeA error 8", GetParam().letter_error + "8"}));
  EXPECT_EQ(LastLine(), "1 " + std::string(GetParam().name) + " end");
}

}  // namespace
}  // namespace velkora
