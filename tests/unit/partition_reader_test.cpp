// Reading a GPT. The other table has a file of its own.
#include "convert/partition_reader.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "convert/partition_types.h"
#include "disk/device_handle.h"
#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

class ReadGpt : public MachineTest {
 protected:
  ReadGpt() : disk_(NewDisk(1, 64 << 20)) {
    handle_ =
        win32::CreateFileA("\\\\.\\PhysicalDrive1", GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    machine_.calls().Clear();
  }

  bool Read() { return ReadGptPartitions(handle_, rows_); }
  // Reads while a call fails; one line is logged.
  void ExpectFailureOf(std::string_view call, std::size_t occurrence, DWORD error,
                       const std::string& line) {
    machine_.calls().FailOn(std::string(call), occurrence, error);
    EXPECT_FALSE(Read());
    EXPECT_EQ(AllLines(), Texts{line});
  }

  // `count` rows, each a sector long, from sector 2048 on.
  static std::vector<GptEntry> Entries(std::size_t count) {
    std::vector<GptEntry> entries;
    for (std::size_t i = 0; i < count; ++i) {
      entries.push_back({kBasicDataGuid, 2048 + i, 2048 + i, static_cast<std::uint8_t>(i + 1)});
    }
    return entries;
  }

  static void Put(Sector& sector, std::size_t offset, const GptPartitionRow& row) {
    std::memcpy(&sector.at(offset), &row, sizeof(row));
  }

  std::vector<std::uint64_t> FirstSectors() const {
    std::vector<std::uint64_t> sectors;
    for (const GptPartitionRow& row : rows_) sectors.push_back(row.first_sector);
    return sectors;
  }

  simulator::Disk& disk_;
  HANDLE handle_ = INVALID_HANDLE_VALUE;
  GptPartitionList rows_;
};

using Sectors = std::vector<std::uint64_t>;

TEST_F(ReadGpt, GivesRowsInTableOrder) {
  WriteGpt(disk_, {{kLinuxGuid, 9000, 9999, 1},
                   {kEfiSystemGuid, 2048, 4095, 2},
                   {kBasicDataGuid, 5000, 5999, 3}});
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{9000, 2048, 5000}));
  EXPECT_TRUE(log_.empty());
}

TEST_F(ReadGpt, GivesEachByteOfARowAsItStands) {
  WriteGpt(disk_, Entries(5));
  Sector sector = ReadSector(disk_, 3);
  for (std::size_t i = 0; i < 128; ++i) sector[i] = static_cast<std::uint8_t>(255 - i);
  WriteSector(disk_, 3, sector);
  EXPECT_TRUE(Read());
  ASSERT_EQ(rows_.size(), 5U);
  EXPECT_EQ(std::memcmp(&rows_[4], sector.data(), 128), 0);
}

TEST_F(ReadGpt, AppendsToTheList) {
  WriteGpt(disk_, Entries(1));
  rows_.push_back(MakeGptRow({kLinuxGuid, 7, 8, 9}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{7, 2048}));
}

TEST_F(ReadGpt, FirstEntryWithoutUniqueGuidGivesAnEmptyList) {
  WriteGpt(disk_, {{}, {kBasicDataGuid, 2048, 4095, 1}});
  EXPECT_TRUE(Read());
  EXPECT_TRUE(rows_.empty());
}

TEST_F(ReadGpt, AHoleLosesEveryRowBehindIt) {
  auto entries = Entries(9);
  entries[6] = {};
  WriteGpt(disk_, entries);
  EXPECT_TRUE(Read());
  EXPECT_EQ(rows_.size(), 6U);
}

TEST_F(ReadGpt, AZeroTypeWithAUniqueGuidIsKeptAsUnknown) {
  WriteGpt(disk_, {{{}, 2048, 4095, 1}, {kBasicDataGuid, 4096, 5000, 2}});
  EXPECT_TRUE(Read());
  ASSERT_EQ(FirstSectors(), (Sectors{2048, 4096}));
  EXPECT_STREQ(GetPartitionTypeName(rows_[0]), "UNKNOW");
}

TEST_F(ReadGpt, AUniqueGuidOfOneNonzeroByteCounts) {
  for (const std::size_t byte : {16U, 31U}) {
    WriteGpt(disk_, {});
    Sector sector{};
    sector[byte] = 1;
    WriteSector(disk_, 2, sector);
    rows_.clear();
    EXPECT_TRUE(Read());
    EXPECT_EQ(rows_.size(), 1U) << byte;
  }
}

TEST_F(ReadGpt, AFullArrayEndsAtAnEmptySectorBehindIt) {
  WriteGpt(disk_, Entries(128));
  EXPECT_TRUE(Read());
  EXPECT_EQ(rows_.size(), 128U);
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 1U + 32U + 1U);
}

TEST_F(ReadGpt, AFullArrayKeepsOneRowOfTheSectorBehindIt) {
  WriteGpt(disk_, Entries(128));
  Sector behind{};
  Put(behind, 0, MakeGptRow({kLinuxGuid, 34, 99, 1}));
  Put(behind, 128, MakeGptRow({kLinuxGuid, 100, 199, 2}));
  WriteSector(disk_, 34, behind);
  EXPECT_TRUE(Read());
  ASSERT_EQ(rows_.size(), 129U);
  EXPECT_EQ(rows_[128].first_sector, 34U);
}

TEST_F(ReadGpt, OnlyTheArraySectorOfTheHeaderIsLookedAt) {
  Sector header;
  header.fill(0xA5);
  for (std::size_t i = 72; i < 80; ++i) header[i] = 0;
  header[72] = 100;
  WriteSector(disk_, 1, header);
  Sector array{};
  Put(array, 0, MakeGptRow({kLinuxGuid, 5000, 5999, 1}));
  Put(array, 128, MakeGptRow({kLinuxGuid, 6000, 6999, 2}));
  WriteSector(disk_, 100, array);
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{5000, 6000}));
}

TEST_F(ReadGpt, AnArrayBehindTheDiskFailsTheRead) {
  Sector header{};
  header[76] = 1;  // sector 2^32
  WriteSector(disk_, 1, header);
  EXPECT_FALSE(Read());
  EXPECT_EQ(AllLines(), (Texts{"3 Read Error: 27"}));
}

TEST_F(ReadGpt, AnArrayAtANegativePositionFailsTheSeek) {
  Sector header{};
  header[78] = 0x40;  // sector 2^54, whose byte offset is the lowest negative number
  WriteSector(disk_, 1, header);
  EXPECT_FALSE(Read());
  EXPECT_EQ(AllLines(), (Texts{"3 SetFilePointer Error: 131"}));
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 1U);
}

// A volume's handle answers a read behind the volume's end with no bytes, and with success.
TEST_F(ReadGpt, ASectorOfWhichNothingIsReadCountsAsZeros) {
  constexpr std::uint64_t kStart = 2048;
  constexpr std::uint64_t kLength = 30720;
  WriteMbr(disk_, {{12, kStart, kLength}});
  WriteFat32BootSector(disk_, kStart, kLength);
  Sector header{};
  constexpr std::uint64_t kLastSector = kLength - 1;
  std::memcpy(&header.at(72), &kLastSector, sizeof kLastSector);
  WriteSector(disk_, kStart + 1, header);
  Sector array{};
  for (std::size_t i = 0; i < 4; ++i) Put(array, 128 * i, MakeGptRow(Entries(4)[i]));
  WriteSector(disk_, kStart + kLastSector, array);
  machine_.UpdateProperties(disk_);
  HANDLE volume = GetDeviceHandleById(machine_.FindVolumeAt(1, kStart * 512)->path.c_str());
  EXPECT_TRUE(ReadGptPartitions(volume, rows_));
  CloseDeviceHandle(volume);
  EXPECT_EQ(FirstSectors(), (Sectors{2048, 2049, 2050, 2051}));
  EXPECT_TRUE(log_.empty());
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(ReadGpt, FailsWhenTheHeaderCannotBeSought) {
  WriteGpt(disk_, Entries(5));
  ExpectFailureOf("SetFilePointer", 1, 131, "3 SetFilePointer Error: 131");
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 0U);
}

TEST_F(ReadGpt, FailsWhenTheHeaderCannotBeRead) {
  WriteGpt(disk_, Entries(5));
  ExpectFailureOf("ReadFile", 1, 23, "3 Read Error: 23");
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 1U);
}

TEST_F(ReadGpt, FailsWhenTheArrayCannotBeSought) {
  WriteGpt(disk_, Entries(5));
  ExpectFailureOf("SetFilePointer", 2, 6, "3 SetFilePointer Error: 6");
  EXPECT_TRUE(rows_.empty());
}

TEST_F(ReadGpt, FailsWhenTheArrayCannotBeRead) {
  WriteGpt(disk_, Entries(5));
  ExpectFailureOf("ReadFile", 2, 23, "3 Read Error: 23");
  EXPECT_TRUE(rows_.empty());
}

TEST_F(ReadGpt, AFailedSeekBetweenSectorsIsLoggedAndReadingGoesOn) {
  WriteGpt(disk_, Entries(9));
  machine_.calls().FailOn("SetFilePointer", 3, 6);
  EXPECT_TRUE(Read());
  EXPECT_EQ(AllLines(), (Texts{"3 SetFilePointer Error: 6"}));
  EXPECT_EQ(rows_.size(), 9U) << "the position stood at the next sector anyway";
}

TEST_F(ReadGpt, AFailedReadBetweenSectorsKeepsTheRowsReadSoFar) {
  WriteGpt(disk_, Entries(12));
  ExpectFailureOf("ReadFile", 4, 23, "3 Read Error: 23");
  EXPECT_EQ(rows_.size(), 8U);
}

// ---- Stop ---------------------------------------------------------------------------------------

TEST_F(ReadGpt, AStopFailsItBeforeTheFirstRowWithoutALine) {
  WriteGpt(disk_, Entries(5));
  GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(Read());
  EXPECT_TRUE(rows_.empty());
  EXPECT_TRUE(log_.empty());
}

TEST_F(ReadGpt, AStopFailsItEvenWhenTheListIsEmpty) {
  WriteGpt(disk_, {});
  GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(Read());
}

TEST_F(ReadGpt, AStopIsSeenBeforeTheNextRow) {
  WriteGpt(disk_, Entries(12));
  // The only way to act in the middle of a read: the failed seek between two sectors logs a line.
  const LogObserver observer{
      [](void*, const char*, int, const char*) { GetGlobalContext().stop_requested = 1; }, nullptr};
  InitLogEx(nullptr, kLogModule, &observer, nullptr);
  machine_.calls().FailOn("SetFilePointer", 4);
  EXPECT_FALSE(Read());
  EXPECT_EQ(rows_.size(), 9U) << "the first row of the third sector was under way";
}

TEST_F(ReadGpt, TheByteOffsetOfTheEntriesWrapsAt64Bits) {
  Sector header{};
  constexpr std::uint64_t kWrapsToSector100 = (std::uint64_t{1} << 55) + 100;
  std::memcpy(&header.at(72), &kWrapsToSector100, sizeof kWrapsToSector100);
  WriteSector(disk_, 1, header);
  Sector entries{};
  Put(entries, 0, MakeGptRow({kBasicDataGuid, 4096, 8191, 1}));
  WriteSector(disk_, 100, entries);
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (std::vector<std::uint64_t>{4096}));
}

}  // namespace
}  // namespace velkora
