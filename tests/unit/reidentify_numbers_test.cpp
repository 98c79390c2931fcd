#include <algorithm>
#include <cstring>

#include "disk/device_handle.h"
#include "disk/reidentify.h"
#include "simulator/handle_object.h"
#include "simulator/handle_table.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

constexpr char kGetLayout[] = "DeviceIoControl/IOCTL_DISK_GET_DRIVE_LAYOUT_EX";
constexpr char kSetLayout[] = "DeviceIoControl/IOCTL_DISK_SET_DRIVE_LAYOUT_EX";

// A disk of 64 MiB as number 1.
class RenumberPartitions : public MachineTest {
 protected:
  RenumberPartitions() : disk_(NewDisk(1, 64 * kMiB)) {}

  bool Renumber(const std::vector<MbrEntry>& entries) {
    WriteMbr(disk_, entries);
    return RenumberPresentTable();
  }
  // What stands in the table afterwards was written by the renumbering: behind the system's back it
  // is cleared before.
  bool RenumberClearedTable(const std::vector<MbrEntry>& entries) {
    WriteMbr(disk_, entries);
    machine_.UpdateProperties(disk_);
    Sector sector = ReadSector(disk_, 0);
    std::fill(sector.begin() + 446, sector.begin() + 510, std::uint8_t{0});
    WriteSector(disk_, 0, sector);
    return RenumberOpenDisk();
  }
  // The table that the disk has.
  bool RenumberPresentTable() {
    machine_.UpdateProperties(disk_);
    return RenumberOpenDisk();
  }
  // The first sectors of the table's four rows.
  std::vector<std::uint32_t> FirstSectors() {
    const Sector sector = ReadSector(disk_, 0);
    std::vector<std::uint32_t> sectors(4);
    for (std::size_t i = 0; i < 4; ++i) std::memcpy(&sectors[i], &sector[446 + 16 * i + 8], 4);
    return sectors;
  }

  simulator::Disk& disk_;

 private:
  bool RenumberOpenDisk() {
    const HANDLE disk = velkora::GetDeviceHandleById("\\\\.\\PhysicalDrive1");
    machine_.calls().Clear();
    return velkora::RenumberPartitions(disk);
  }
};

// A disk that gives out rows, of which the layout counts fewer, and keeps what is set.
class CountedRows : public simulator::HandleObject {
 public:
  struct Row {
    DWORD number;
    std::int64_t start;
  };
  CountedRows(DWORD count, std::vector<Row> rows, std::vector<std::byte>& sent)
      : count_(count), rows_(std::move(rows)), sent_(sent) {}
  std::string Describe() const override { return "rows"; }
  DWORD Control(DWORD code, std::span<const std::byte> in, std::span<std::byte> out,
                DWORD& returned) override {
    if (code == IOCTL_DISK_SET_DRIVE_LAYOUT_EX) {
      sent_.assign(in.begin(), in.end());
      return ERROR_SUCCESS;
    }
    std::memcpy(&out[offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionCount)], &count_, 4);
    for (std::size_t i = 0; i < rows_.size(); ++i) {
      PARTITION_INFORMATION_EX row{};
      row.PartitionNumber = rows_[i].number;
      row.StartingOffset.QuadPart = rows_[i].start;
      std::memcpy(&out[kFirstRow + i * sizeof row], &row, sizeof row);
    }
    returned = static_cast<DWORD>(out.size());
    return ERROR_SUCCESS;
  }

  static constexpr std::size_t kFirstRow = offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry);

 private:
  DWORD count_;
  std::vector<Row> rows_;
  std::vector<std::byte>& sent_;
};

PARTITION_INFORMATION_EX SentRow(const std::vector<std::byte>& sent, std::size_t index) {
  PARTITION_INFORMATION_EX row{};
  const std::size_t offset = CountedRows::kFirstRow + index * sizeof row;
  if (offset + sizeof row <= sent.size()) std::memcpy(&row, &sent[offset], sizeof row);
  return row;
}

std::string RowText(const char* when, int number, std::uint64_t first_sector,
                    std::uint64_t sector_count) {
  return std::string(when) + " part number: " + std::to_string(number) +
         ", start: " + std::to_string(first_sector * 512) +
         ", length: " + std::to_string(sector_count * 512);
}

TEST_F(RenumberPartitions, NumbersFollowTheStarts) {
  EXPECT_TRUE(Renumber({{7, 40960, 2048}, {7, 2048, 4096}, {7, 20480, 8192}}));
  EXPECT_EQ(log_, (Log{{1, RowText("before", 1, 40960, 2048)},
                       {1, RowText("before", 2, 2048, 4096)},
                       {1, RowText("before", 3, 20480, 8192)},
                       {1, RowText("now", 3, 40960, 2048)},
                       {1, RowText("now", 1, 2048, 4096)},
                       {1, RowText("now", 2, 20480, 8192)}}));
}

TEST_F(RenumberPartitions, RowsInUseAreSentWithTheirNumbersAndMarkedAndNoOthers) {
  std::vector<std::byte> sent;
  const std::vector<CountedRows::Row> rows = {{8, 5000}, {0, 700}, {9, 1000}, {6, 3000}, {7, 200}};
  const HANDLE disk =
      machine_.handles().Add(std::make_unique<CountedRows>(4, rows, sent));  // not the fifth one
  EXPECT_TRUE(velkora::RenumberPartitions(disk));
  const std::vector<DWORD> numbers = {3, 0, 1, 2, 7};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const PARTITION_INFORMATION_EX row = SentRow(sent, i);
    EXPECT_EQ(row.PartitionNumber, numbers[i]) << i;
    EXPECT_EQ(row.StartingOffset.QuadPart, rows[i].start) << i;
    EXPECT_EQ(row.RewritePartition != 0, i != 1 && i != 4) << i;
  }
  EXPECT_EQ(Lines(1).size(), 6U) << "two lines for each row in use with a number";
}

TEST_F(RenumberPartitions, WholeBufferGoesBothWays) {
  EXPECT_TRUE(Renumber({{7, 2048, 4096}}));
  EXPECT_EQ(machine_.calls().Lines(), (Texts{std::string(kGetLayout) + " disk 1 in 0 out 18624",
                                             std::string(kSetLayout) + " disk 1 in 18624 out 0"}));
}

// A write is what tells that the rows were marked: the machine leaves unmarked ones as they are on
// the disk.
TEST_F(RenumberPartitions, NumbersInOrderAreMarkedAndWrittenAllTheSame) {
  EXPECT_TRUE(RenumberClearedTable({{7, 2048, 4096}, {7, 20480, 8192}}));
  EXPECT_EQ(machine_.calls().Count(kSetLayout), 1U);
  EXPECT_EQ(FirstSectors(), (std::vector<std::uint32_t>{2048, 20480, 0, 0}));
}

TEST_F(RenumberPartitions, RowsWithoutANumberTakeNoPart) {
  EXPECT_TRUE(Renumber({{0, 0, 0}, {7, 2048, 4096}, {5, 20480, 8192}}));
  EXPECT_EQ(log_, (Log{{1, RowText("before", 1, 2048, 4096)}, {1, RowText("now", 1, 2048, 4096)}}));
}

TEST_F(RenumberPartitions, RowsWithoutANumberAreNotMarked) {
  EXPECT_TRUE(RenumberClearedTable({{7, 40960, 8192}, {5, 20480, 8192}, {7, 2048, 4096}}));
  EXPECT_EQ(FirstSectors(), (std::vector<std::uint32_t>{40960, 0, 2048, 0}));
}

TEST_F(RenumberPartitions, GptRowsAreNumberedByTheirStartsToo) {
  WriteGpt(disk_, {{kBasicDataGuid, 40960, 43007, 1},
                   {kEfiSystemGuid, 2048, 6143, 2},
                   {kLinuxGuid, 20480, 28671, 3}});
  const auto before = ReadBytes(disk_, 1024, 3 * 128);
  EXPECT_TRUE(RenumberPresentTable());
  EXPECT_EQ(log_[3], (LogLine{1, RowText("now", 3, 40960, 2048)}));
  EXPECT_EQ(log_[4], (LogLine{1, RowText("now", 1, 2048, 4096)}));
  EXPECT_EQ(log_[5], (LogLine{1, RowText("now", 2, 20480, 8192)}));
  EXPECT_EQ(ReadBytes(disk_, 1024, 3 * 128), before);
}

TEST_F(RenumberPartitions, HandleIsLeftOpen) {
  EXPECT_TRUE(Renumber({{7, 2048, 4096}}));
  EXPECT_EQ(machine_.handles().Open(), Texts{"disk 1"});
}

TEST_F(RenumberPartitions, RowsWithTheSameStartGetTheSameNumber) {
  EXPECT_TRUE(Renumber({{7, 20480, 8192}, {7, 2048, 4096}, {7, 2048, 2048}}));
  EXPECT_EQ(log_[3], (LogLine{1, RowText("now", 2, 20480, 8192)}));
  EXPECT_EQ(log_[4], (LogLine{1, RowText("now", 1, 2048, 4096)}));
  EXPECT_EQ(log_[5], (LogLine{1, RowText("now", 1, 2048, 2048)}));
}

// The last number is that of the last start, not that of the last row.
TEST_F(RenumberPartitions, SharedNumberIsCountedOnce) {
  EXPECT_TRUE(Renumber({{7, 2048, 4096}, {7, 2048, 2048}, {7, 20480, 8192}}));
  EXPECT_EQ(log_.back(), (LogLine{1, RowText("now", 2, 20480, 8192)}));
}

TEST_F(RenumberPartitions, LayoutThatCannotBeReadIsLogged) {
  machine_.calls().FailOn(kGetLayout, 1, 21);
  EXPECT_FALSE(Renumber({{7, 2048, 4096}}));
  EXPECT_EQ(log_, (Log{{3, "IOCTL_DISK_GET_DRIVE_LAYOUT_EX Error: 21"}}));
  EXPECT_EQ(machine_.calls().Count(kSetLayout), 0U);
}

TEST_F(RenumberPartitions, LayoutThatCannotBeWrittenIsLogged) {
  machine_.calls().FailOn(kSetLayout, 1, 5);
  EXPECT_FALSE(Renumber({{7, 2048, 4096}}));
  EXPECT_EQ(log_.back(), (LogLine{3, "IOCTL_DISK_SET_DRIVE_LAYOUT_EX Error: 5"}));
}

TEST_F(RenumberPartitions, EmptyTableIsWrittenBackEmpty) {
  EXPECT_TRUE(Renumber({}));
  EXPECT_EQ(machine_.calls().Count(kSetLayout), 1U);
  EXPECT_EQ(log_, Log{});
}

}  // namespace
}  // namespace testing_support
