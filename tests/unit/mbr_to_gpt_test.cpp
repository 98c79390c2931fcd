// Conversions of MBR disks that succeed. Those that fail have a file of their own.
#include "convert/mbr_to_gpt.h"

#include <cstring>

#include "support/expected_events.h"
#include "support/layout_bytes.h"
#include "support/mbr_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Places = std::vector<RowPlace>;

class MbrToGpt : public MbrDiskTest {
 protected:
  MbrToGpt() : MbrDiskTest(1024) {}
  bool Run() { return ConvertUnprotected(); }
};

// ---- Data disks ---------------------------------------------------------------------------------

TEST_F(MbrToGpt, PrimariesBecomeEntriesInSectorOrder) {
  std::vector<MbrEntry> entries = SpacedEntries(4);
  std::swap(entries[0], entries[3]);
  SetUpDisk(entries);
  EXPECT_TRUE(Run());
  EXPECT_EQ(PlacesOf(GptRowsOnDisk(5)), (Places{{kMiB, 16 * kMiB},
                                                {18 * kMiB, 16 * kMiB},
                                                {35 * kMiB, 16 * kMiB},
                                                {52 * kMiB, 16 * kMiB},
                                                {}}));
}

TEST_F(MbrToGpt, LogicalsBecomeEntriesAndTheContainerIsNone) {
  SetUpDisk({{15, 100 * kMiB, 200 * kMiB}, Between(1, 17)}, {Between(101, 110), Between(111, 120)});
  EXPECT_TRUE(Run());
  EXPECT_EQ(PlacesOf(GptRowsOnDisk(4)),
            (Places{{kMiB, 16 * kMiB}, {101 * kMiB, 9 * kMiB}, {111 * kMiB, 9 * kMiB}, {}}));
}

TEST_F(MbrToGpt, TypeAndActiveFlagPlayNoPart) {
  std::vector<MbrEntry> entries = SpacedEntries(4);
  entries[0].type = 0x83;
  entries[1].type = 0x0C;
  entries[2].type = 0xEF;
  entries[3].active = true;
  SetUpDisk(entries);
  EXPECT_TRUE(Run());
  for (const GptPartitionRow& row : GptRowsOnDisk(4)) {
    EXPECT_EQ(row.type_guid, kBasicDataGuid);
    EXPECT_EQ(row.attributes, 0U);
  }
  EXPECT_EQ(Names(4), Texts(4, "Basic Data Partition"));
}

TEST_F(MbrToGpt, TypeFFBecomesAHiddenPartition) {
  std::vector<MbrEntry> entries = SpacedEntries(2);
  entries[1].type = 0xFF;
  SetUpDisk(entries);
  EXPECT_TRUE(Run());
  const auto rows = GptRowsOnDisk(2);
  EXPECT_EQ(rows[1].type_guid, kHiddenGuid);
  EXPECT_EQ(rows[1].attributes, 0xC000000000000000U);
  EXPECT_EQ(Names(2), (Texts{"Basic Data Partition", "Hidden Partition"}));
}

TEST_F(MbrToGpt, DiskIdIsDrawnBeforeThoseOfTheEntries) {
  SetUpDisk(SpacedEntries(2));
  const auto guids = NextGuids(machine_, 3);
  EXPECT_TRUE(Run());
  GuidBytes disk_id{};
  std::memcpy(disk_id.data(), ReadBytes(disk_, 512 + 56, 16).data(), 16);
  EXPECT_EQ(disk_id, guids[0]);
  const auto rows = GptRowsOnDisk(2);
  EXPECT_EQ(rows[0].unique_guid, guids[1]);
  EXPECT_EQ(rows[1].unique_guid, guids[2]);
}

TEST_F(MbrToGpt, DataDiskGetsNoEfiPartition) {
  SetUpDisk({Between(400, 500)});
  EXPECT_TRUE(Run());
  const auto rows = GptRowsOnDisk(2);
  EXPECT_EQ(PlacesOf(rows), (Places{{400 * kMiB, 100 * kMiB}, {}}));
  EXPECT_EQ(rows[0].type_guid, kBasicDataGuid);
  EXPECT_TRUE(ToolLines().empty());
}

// The style is created for as many entries as there are rows, which a table of 128 would not hold.
TEST_F(MbrToGpt, MoreThan128LogicalsFit) {
  std::vector<MbrEntry> logicals;
  for (std::uint64_t i = 0; i < 130; ++i) logicals.push_back(Between(3 + 2 * i, 4 + 2 * i));
  SetUpDisk({{5, 2 * kMiB, 300 * kMiB}}, logicals, false);
  EXPECT_TRUE(Run());
  const Places places = PlacesOf(GptRowsOnDisk(130));
  EXPECT_EQ(places.front(), (RowPlace{3 * kMiB, kMiB}));
  EXPECT_EQ(places.back(), (RowPlace{261 * kMiB, kMiB}));
}

TEST_F(MbrToGpt, VolumesGetTheNumbersOfTheNewTable) {
  std::vector<MbrEntry> entries = SpacedEntries(2);
  std::swap(entries[0], entries[1]);
  SetUpDisk(entries);
  record_.Add(12345).part_number = 77;
  EXPECT_TRUE(Run());
  EXPECT_EQ(record_.volume(0).part_number, 2);
  EXPECT_EQ(record_.volume(1).part_number, 1);
  EXPECT_EQ(record_.volume(2).part_number, 77) << "matches no row";
}

TEST_F(MbrToGpt, SizeAbove2TiBStaysInTheRecord) {
  SetUpDisk(SpacedEntries(1));
  record_.disk().size = 3ULL << 40;
  EXPECT_TRUE(Run());
  EXPECT_EQ(record_.disk().size, 3ULL << 40);
}

TEST_F(MbrToGpt, EmptyListOnADataDiskWritesNoLayout) {
  SetUpDisk({});
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kEmptyListEvents);
  EXPECT_EQ(DeviceSteps(), (Texts{"diskpart", "IOCTL_DISK_CREATE_DISK",
                                  "IOCTL_DISK_UPDATE_PROPERTIES", "diskpart"}));
  EXPECT_EQ(LastLine(), "1 MBR2GPT end");
}

TEST_F(MbrToGpt, EmptyExtendedPartitionIsAnEmptyList) {
  SetUpDisk({{5, kMiB, 100 * kMiB}});
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kEmptyListEvents);
}

TEST_F(MbrToGpt, ListHandedInStaysAsItIs) {
  SetUpDisk({Between(100, 200), Between(1, 100)});
  const MbrPartitionList rows = MbrRowsOf({Between(100, 200), Between(1, 100)});
  EXPECT_TRUE(MBR2GPT(converter_, rows));
  EXPECT_EQ(PlacesOf(rows), (Places{{100 * kMiB, 100 * kMiB}, {kMiB, 99 * kMiB}}));
}

// ---- Room behind the last partition of a data disk ----------------------------------------------

TEST_F(MbrToGpt, TailRoomIsMadeByAShrink) {
  SetUpDisk({Between(1, 100), Between(100, 1024)});
  EXPECT_TRUE(Run());
  std::vector<Event> expected = kDataDiskEvents;
  expected.insert(expected.begin() + 2, {0, 5});
  EXPECT_EQ(Events(), expected);
  EXPECT_EQ(PlacesOf(GptRowsOnDisk(2)), (Places{{kMiB, 99 * kMiB}, {100 * kMiB, 923 * kMiB}}));
}

TEST_F(MbrToGpt, RowsInFrontOfTheLastAreNotShrunk) {
  SetUpDisk({Between(1, 100), Between(100, 1000)});
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kDataDiskEvents);
}

// A shrink that succeeds and a list that then cannot be read leave no rows, and a data disk goes on
// without the room: it ends in success, with an empty table.
TEST_F(MbrToGpt, StopDuringTheTailShrinkOfADataDiskEndsInAnEmptyTable) {
  SetUpDisk({Between(1, 1024)});
  StopAt({0, 5});
  EXPECT_TRUE(Run());
  std::vector<Event> expected = kEmptyListEvents;
  expected.insert(expected.begin() + 2, {0, 5});
  EXPECT_EQ(Events(), expected);
  EXPECT_EQ(Lines(3), Texts{"Get partitions fail!"});
  EXPECT_EQ(PlacesOf(GptRowsOnDisk(4)), Places(4));
  EXPECT_EQ(converter_.partition_offsets, std::vector<std::uint64_t>{1 << 20});
}

TEST_F(MbrToGpt, FailedReadBehindTheTailShrinkOfADataDiskEndsInAnEmptyTable) {
  SetUpDisk({Between(1, 1024)});
  machine_.on_script = [this](std::string_view) {
    machine_.calls().FailOn("ReadFile", 1, 23);
    machine_.on_script = nullptr;
  };
  EXPECT_TRUE(Run());
  EXPECT_EQ(Lines(3), (Texts{"Read Error: 23", "Get partitions fail!"}));
  EXPECT_EQ(LastLine(), "1 MBR2GPT end");
  EXPECT_EQ(CountControl("IOCTL_DISK_CREATE_DISK"), 1U);
  EXPECT_EQ(CountControl("IOCTL_DISK_SET_DRIVE_LAYOUT_EX"), 1U) << "the shrink has one";
  EXPECT_EQ(PlacesOf(GptRowsOnDisk(4)), Places(4));
}

}  // namespace
}  // namespace velkora
