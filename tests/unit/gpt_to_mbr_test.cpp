// Conversions of GPT data disks that succeed. Those that fail have a file of their own.
#include "convert/gpt_to_mbr.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

#include "frame/global_context.h"
#include "support/expected_events.h"
#include "support/gpt_disk_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

// A row of a boot record as it lies on the disk.
struct TableRow {
  int active = 0;
  int type = 0;
  std::uint32_t first = 0;
  std::uint32_t count = 0;
  bool operator==(const TableRow&) const = default;
};

void PrintTo(const TableRow& row, std::ostream* out) {
  *out << row.active << " " << row.type << " " << row.first << "+" << row.count;
}

class GptToMbr : public GptDiskTest {
 protected:
  std::vector<TableRow> RowsOfRecord(std::uint64_t lba) {
    const Sector sector = ReadSector(disk_, lba);
    std::vector<TableRow> rows;
    for (std::size_t offset = 446; offset < 510; offset += 16) {
      TableRow row{sector[offset], sector[offset + 4]};
      std::memcpy(&row.first, &sector[offset + 8], 4);
      std::memcpy(&row.count, &sector[offset + 12], 4);
      rows.push_back(row);
    }
    return rows;
  }

  bool Run() { return ConvertUnprotected(); }

  static constexpr std::uint32_t kMiB = 2048;  // in sectors
};

TEST_F(GptToMbr, ThreePartitionsStayPrimary) {
  SetUpDisk(SpacedEntries(3));
  EXPECT_TRUE(Run());
  EXPECT_EQ(RowsOfRecord(0), (std::vector<TableRow>{{0, 7, kMiB, 16 * kMiB},
                                                    {0, 7, 18 * kMiB, 16 * kMiB},
                                                    {0, 7, 35 * kMiB, 16 * kMiB},
                                                    {}}));
}

TEST_F(GptToMbr, FurtherPartitionsBecomeLogical) {
  SetUpDisk(SpacedEntries(5));
  EXPECT_TRUE(Run());
  const std::uint32_t extended = 51 * kMiB;
  const auto disk_sectors = static_cast<std::uint32_t>(kDiskSize / 512);
  EXPECT_EQ(RowsOfRecord(0), (std::vector<TableRow>{{0, 7, kMiB, 16 * kMiB},
                                                    {0, 7, 18 * kMiB, 16 * kMiB},
                                                    {0, 7, 35 * kMiB, 16 * kMiB},
                                                    {0, 15, extended, disk_sectors - extended}}));
  EXPECT_EQ(RowsOfRecord(extended),
            (std::vector<TableRow>{
                {0, 7, kMiB, 16 * kMiB}, {0, 5, 17 * kMiB, disk_sectors - 68 * kMiB}, {}, {}}));
  EXPECT_EQ(RowsOfRecord(68 * kMiB), (std::vector<TableRow>{{0, 7, kMiB, 16 * kMiB}, {}, {}, {}}));
}

TEST_F(GptToMbr, TheSignatureIsTheTime) {
  machine_.SetTime(0x0123456789);
  SetUpDisk(SpacedEntries(1));
  EXPECT_TRUE(Run());
  const Sector sector = ReadSector(disk_, 0);
  EXPECT_EQ((std::vector<int>{sector[440], sector[441], sector[442], sector[443]}),
            (std::vector<int>{0x89, 0x67, 0x45, 0x23}));
}

TEST_F(GptToMbr, RowsAreSortedForTheTable) {
  std::vector<GptEntry> entries = SpacedEntries(3);
  std::swap(entries[0], entries[2]);
  SetUpDisk(entries);
  EXPECT_TRUE(Run());
  EXPECT_EQ(RowsOfRecord(0), (std::vector<TableRow>{{0, 7, kMiB, 16 * kMiB},
                                                    {0, 7, 18 * kMiB, 16 * kMiB},
                                                    {0, 7, 35 * kMiB, 16 * kMiB},
                                                    {}}));
}

TEST_F(GptToMbr, EfiReservedAndHiddenLeaveTheTableAndTheirSectorsStay) {
  std::vector<GptEntry> entries = SpacedEntries(5);
  entries[0].type = kEfiSystemGuid;
  entries[1].type = kMicrosoftReservedGuid;
  entries[2].type = kHiddenGuid;
  entries[3].type = kRecoveryGuid;
  SetUpDisk(entries);
  const Sector marker = [] {
    Sector sector;
    sector.fill(0x5A);
    return sector;
  }();
  for (const GptEntry& entry : entries) WriteSector(disk_, entry.first_sector + 4096, marker);
  EXPECT_TRUE(Run());
  EXPECT_EQ(
      RowsOfRecord(0),
      (std::vector<TableRow>{{0, 7, 52 * kMiB, 16 * kMiB}, {0, 7, 69 * kMiB, 16 * kMiB}, {}, {}}));
  for (const GptEntry& entry : entries) {
    EXPECT_EQ(ReadSector(disk_, entry.first_sector + 4096), marker);
  }
  EXPECT_EQ(converter_.partition_offsets, (std::vector<std::uint64_t>{52 << 20, 69 << 20}));
}

TEST_F(GptToMbr, VolumesGetTheNumbersOfTheNewTable) {
  std::vector<GptEntry> entries = SpacedEntries(3);
  entries[0].type = kEfiSystemGuid;
  std::swap(entries[1], entries[2]);
  SetUpDisk(entries, false);
  for (const GptEntry& entry : entries) record_.Add(entry.first_sector * 512).part_number = 77;
  record_.Add(12345).part_number = 77;
  EXPECT_TRUE(Run());
  EXPECT_EQ(record_.volume(0).part_number, 77) << "the EFI partition has no row";
  EXPECT_EQ(record_.volume(1).part_number, 2);
  EXPECT_EQ(record_.volume(2).part_number, 1);
  EXPECT_EQ(record_.volume(3).part_number, 77) << "matches no row";
}

TEST_F(GptToMbr, AMissingGapIsMadeByAShrink) {
  std::vector<GptEntry> entries = SpacedEntries(4);
  entries[2].last_sector = entries[3].first_sector - 1;
  SetUpDisk(entries);
  EXPECT_TRUE(Run());
  std::vector<Event> expected = kDataDiskEvents;
  expected.insert(expected.begin() + 2, {0, 5});
  EXPECT_EQ(Events(), expected);
  EXPECT_EQ(RowsOfRecord(0)[2], (TableRow{0, 7, 35 * kMiB, 12 * kMiB}));
  EXPECT_EQ(RowsOfRecord(0)[3].first, 47 * kMiB);
  EXPECT_EQ(scripts_,
            (Texts{"rescan\r\n", "select disk 1\r\nclean\r\n", "rescan\r\n", "rescan\r\n"}));
}

// ---- No partition survives ----------------------------------------------------------------------

TEST_F(GptToMbr, ADiskOfEfiAndReservedIsCleanedAndGetsNoLayout) {
  SetUpDisk({{kEfiSystemGuid, 2048, 34815, 1}, {kMicrosoftReservedGuid, 34816, 67583, 2}});
  record_.disk().size = 3ULL << 40;
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kEmptyListEvents);
  EXPECT_EQ(DeviceSteps(), (Texts{"diskpart", "IOCTL_DISK_CREATE_DISK",
                                  "IOCTL_DISK_UPDATE_PROPERTIES", "diskpart"}));
  EXPECT_EQ(RowsOfRecord(0), std::vector<TableRow>(4));
  EXPECT_EQ(record_.disk().size, 3ULL << 40);
  EXPECT_EQ(LastLine(), "1 GPT2MBR end");
}

TEST_F(GptToMbr, ASystemDiskWithoutPartitionsGetsNoBootRepair) {
  SetUpDisk({{kEfiSystemGuid, 2048, 34815, 1}});
  record_.disk().is_system = 1;
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kEmptyListEvents);
  EXPECT_EQ(scripts_, (Texts{"select disk 1\r\nclean\r\n", "rescan\r\n"}));
}

TEST_F(GptToMbr, NoPartitionsMeanThatAStopAfterTheFirstReadIsNotSeen) {
  SetUpDisk({});
  EventHook() = [](Event) { GetGlobalContext().stop_requested = 1; };
  EXPECT_TRUE(Run());
  EXPECT_EQ(Events(), kEmptyListEvents);
}

// ---- The size of the disk -----------------------------------------------------------------------

TEST_F(GptToMbr, ASizeAbove2TiBIsLoweredInTheRecord) {
  SetUpDisk(SpacedEntries(1));
  record_.disk().size = 0x20000000200;
  EXPECT_TRUE(Run());
  EXPECT_EQ(record_.disk().size, 0x20000000000U);
}

TEST_F(GptToMbr, ASizeOf2TiBStays) {
  SetUpDisk(SpacedEntries(1));
  record_.disk().size = 0x20000000000;
  EXPECT_TRUE(Run());
  EXPECT_EQ(record_.disk().size, 0x20000000000U);
}

TEST_F(GptToMbr, ASizeAbove2TiBStaysLoweredAfterAFailure) {
  SetUpDisk(SpacedEntries(1));
  record_.disk().size = 3ULL << 40;
  machine_.calls().FailOn("DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX");
  EXPECT_FALSE(Run());
  EXPECT_EQ(record_.disk().size, 0x20000000000U);
}

TEST_F(GptToMbr, TheLoweredSizeBoundsTheExtendedPartition) {
  SetUpDisk(SpacedEntries(4));
  record_.disk().size = 3ULL << 40;
  Run();
  const std::string extended =
      "[part] PartitionNumber: 0, PartitionStyle: 0, RewritePartition: 1, StartingOffset: "
      "53477376, PartitionLength: 2198969778176";
  const Texts lines = Lines(1);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), extended), 1);
}

}  // namespace
}  // namespace velkora
