// Reading an MBR and its chains of extended boot records.
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "convert/partition_reader.h"
#include "disk/device_handle.h"
#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Sectors = std::vector<std::uint64_t>;

MbrPartitionRow Row(std::uint8_t type, std::uint32_t first, std::uint32_t count) {
  MbrPartitionRow row{};
  row.type = type;
  row.first_sector = first;
  row.sector_count = count;
  return row;
}

// A sector with the given rows from byte 446 on, and no boot signature.
Sector Record(const std::vector<MbrPartitionRow>& rows) {
  Sector sector{};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::memcpy(&sector.at(446 + 16 * i), &rows[i], sizeof(rows[i]));
  }
  return sector;
}

class ReadMbr : public MachineTest {
 protected:
  ReadMbr() : disk_(NewDisk(1, 64 << 20)) {
    handle_ =
        win32::CreateFileA("\\\\.\\PhysicalDrive1", GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    machine_.calls().Clear();
  }

  bool Read() { return ReadMbrPartitions(handle_, rows_); }
  // Reads while a call fails; one line is logged.
  void ExpectFailureOf(std::string_view call, std::size_t occurrence, DWORD error,
                       const std::string& line) {
    machine_.calls().FailOn(std::string(call), occurrence, error);
    EXPECT_FALSE(Read());
    EXPECT_EQ(AllLines(), Texts{line});
  }

  std::vector<std::uint64_t> FirstSectors() const {
    std::vector<std::uint64_t> sectors;
    for (const MbrPartitionRow& row : rows_) sectors.push_back(row.first_sector);
    return sectors;
  }

  // Asks for a stop as soon as a line is logged.
  static void StopAtTheNextLine() {
    const LogObserver observer{
        [](void*, const char*, int, const char*) { GetGlobalContext().stop_requested = 1; },
        nullptr};
    InitLogEx(nullptr, kLogModule, &observer, nullptr);
  }

  simulator::Disk& disk_;
  HANDLE handle_ = INVALID_HANDLE_VALUE;
  MbrPartitionList rows_;
};

TEST_F(ReadMbr, GivesPrimariesInTableOrder) {
  WriteMbr(disk_, {{7, 9000, 100}, {0x83, 2048, 100}, {0xFF, 5000, 100}, {12, 63, 10}});
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{9000, 2048, 5000, 63}));
  EXPECT_TRUE(log_.empty());
}

TEST_F(ReadMbr, GivesEachByteOfAPrimaryAsItStands) {
  const std::uint8_t bytes[16] = {0x80, 1, 2, 3, 7, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14};
  Sector sector{};
  std::memcpy(&sector[446 + 16], bytes, 16);
  WriteSector(disk_, 0, sector);
  EXPECT_TRUE(Read());
  ASSERT_EQ(rows_.size(), 1U);
  EXPECT_EQ(std::memcmp(&rows_[0], bytes, 16), 0);
}

TEST_F(ReadMbr, AppendsToTheList) {
  WriteMbr(disk_, {{7, 2048, 100}});
  rows_.push_back(Row(7, 5, 6));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{5, 2048}));
}

TEST_F(ReadMbr, SkipsUnusedRowsAndRowsWithoutSectors) {
  WriteSector(disk_, 0, Record({Row(7, 2048, 0), Row(0, 0, 0), Row(7, 4096, 1)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{4096}));
}

TEST_F(ReadMbr, KeepsARowOfTypeZeroThatHasSectors) {
  WriteSector(disk_, 0, Record({Row(0, 2048, 8)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{2048}));
}

TEST_F(ReadMbr, DoesNotLookAtTheBootSignature) {
  Sector sector = Record({Row(7, 2048, 8)});
  sector[510] = 0x12;
  WriteSector(disk_, 0, sector);
  EXPECT_TRUE(Read());
  EXPECT_EQ(rows_.size(), 1U);
}

// ---- Chains -------------------------------------------------------------------------------------

TEST_F(ReadMbr, ChainGivesAbsoluteSectorsBetweenItsNeighbours) {
  WriteMbr(disk_, {{7, 2048, 100}, {15, 8192, 100000}, {7, 4096, 100}},
           {{7, 10240, 1000}, {0x83, 20480, 1000}, {11, 40960, 1000}});
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{2048, 10240, 20480, 40960, 4096}));
  EXPECT_EQ(rows_[2].type, 0x83);
  EXPECT_EQ(rows_[2].sector_count, 1000U);
  EXPECT_EQ(AllLines(), (Texts{"1 test code 1", "1 test code 1", "1 test code 2"}));
}

TEST_F(ReadMbr, ChainRowsKeepTheirOtherBytes) {
  MbrPartitionRow logical = Row(0x83, 63, 500);
  logical.boot_indicator = 0x80;
  logical.first_chs[1] = 0x11;
  logical.last_chs[2] = 0x22;
  WriteSector(disk_, 0, Record({Row(5, 1000, 9000)}));
  WriteSector(disk_, 1000, Record({logical}));
  EXPECT_TRUE(Read());
  ASSERT_EQ(rows_.size(), 1U);
  logical.first_sector = 1063;
  EXPECT_EQ(std::memcmp(&rows_[0], &logical, sizeof(logical)), 0);
}

TEST_F(ReadMbr, ContainersOfBothTypesAreWalkedWhateverTheirCount) {
  for (const std::uint8_t type : {std::uint8_t{5}, std::uint8_t{15}}) {
    WriteSector(disk_, 0, Record({Row(type, 1000, 0)}));
    WriteSector(disk_, 1000, Record({Row(7, 63, 500)}));
    rows_.clear();
    EXPECT_TRUE(Read());
    EXPECT_EQ(FirstSectors(), (Sectors{1063})) << int{type};
  }
}

TEST_F(ReadMbr, LinksOfBothTypesAreFollowed) {
  for (const std::uint8_t type : {std::uint8_t{5}, std::uint8_t{15}}) {
    WriteSector(disk_, 0, Record({Row(5, 1000, 9000)}));
    WriteSector(disk_, 1000, Record({Row(7, 63, 500), Row(type, 2000, 600)}));
    WriteSector(disk_, 3000, Record({Row(7, 63, 500)}));
    rows_.clear();
    EXPECT_TRUE(Read());
    EXPECT_EQ(FirstSectors(), (Sectors{1063, 3063})) << int{type};
  }
}

TEST_F(ReadMbr, OtherContainerTypesAreOrdinaryRows) {
  WriteSector(disk_, 0, Record({Row(0x85, 1000, 100), Row(0x1F, 3000, 100)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{1000, 3000}));
}

TEST_F(ReadMbr, LinksCountFromTheStartOfTheContainer) {
  WriteSector(disk_, 0, Record({Row(15, 1000, 9000)}));
  WriteSector(disk_, 1000, Record({Row(7, 10, 5), Row(5, 100, 50)}));
  WriteSector(disk_, 1100, Record({Row(7, 10, 5), Row(5, 200, 50)}));
  WriteSector(disk_, 1200, Record({Row(7, 10, 5)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{1010, 1110, 1210}));
}

TEST_F(ReadMbr, TwoContainersAreWalkedEachFromItsOwnStart) {
  WriteSector(disk_, 0, Record({Row(5, 1000, 500), Row(15, 5000, 500)}));
  WriteSector(disk_, 1000, Record({Row(7, 10, 5), Row(5, 100, 50)}));
  WriteSector(disk_, 1100, Record({Row(7, 10, 5)}));
  WriteSector(disk_, 5000, Record({Row(7, 10, 5), Row(5, 100, 50)}));
  WriteSector(disk_, 5100, Record({Row(7, 10, 5)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{1010, 1110, 5010, 5110}));
}

TEST_F(ReadMbr, ChainEndsAtTypeZeroInSecondRow) {
  WriteSector(disk_, 0, Record({Row(5, 1000, 9000)}));
  WriteSector(disk_, 1000, Record({Row(7, 63, 500), Row(0, 2000, 600), Row(5, 2000, 600)}));
  WriteSector(disk_, 3000, Record({Row(7, 63, 500)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{1063}));
  EXPECT_EQ(AllLines(), (Texts{"1 test code 2"}));
}

TEST_F(ReadMbr, EmptyExtendedPartitionAddsNoRow) {
  WriteSector(disk_, 0, Record({Row(5, 1000, 9000), Row(7, 20000, 8)}));
  WriteSector(disk_, 1000, Record({Row(0, 0, 0), Row(5, 2000, 600)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{20000}));
  EXPECT_TRUE(log_.empty());
}

TEST_F(ReadMbr, AnEmptyFirstRowEndsTheChainInALaterRecordToo) {
  WriteSector(disk_, 0, Record({Row(5, 1000, 9000)}));
  WriteSector(disk_, 1000, Record({Row(7, 63, 500), Row(5, 2000, 600)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{1063}));
  EXPECT_EQ(AllLines(), (Texts{"1 test code 1"}));
}

TEST_F(ReadMbr, ChainDoesNotLookAtTypeAndCountOfTheFirstRow) {
  MbrPartitionRow odd{};
  odd.last_chs[2] = 1;
  WriteSector(disk_, 0, Record({Row(5, 1000, 9000)}));
  WriteSector(disk_, 1000, Record({Row(5, 63, 0), Row(5, 2000, 600)}));
  WriteSector(disk_, 3000, Record({odd}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{1063, 3000}));
}

TEST_F(ReadMbr, ALogicalSectorWrapsAt32Bits) {
  WriteSector(disk_, 0, Record({Row(5, 1000, 9000)}));
  WriteSector(disk_, 1000, Record({Row(7, 0xFFFFFFFF, 1)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{999}));
}

TEST_F(ReadMbr, SpinsOnARecordWhoseSecondRowIsNeitherLinkNorEmpty) {
  WriteSector(disk_, 0, Record({Row(7, 63, 8), Row(5, 1000, 9000)}));
  WriteSector(disk_, 1000, Record({Row(7, 63, 500), Row(7, 2000, 600)}));
  machine_.calls().SetBudget(1000);
  EXPECT_THROW(Read(), simulator::CallBudgetSpent);
  EXPECT_EQ(FirstSectors(), (Sectors{63}));
  EXPECT_TRUE(log_.empty());

  std::vector<std::string> seeks;
  for (const simulator::Call& call : machine_.calls().calls()) {
    if (call.name == "SetFilePointer") seeks.push_back(call.detail + call.arguments);
  }
  ASSERT_GT(seeks.size(), 400U);
  EXPECT_EQ(std::set<std::string>(seeks.begin() + 1, seeks.end()).size(), 1U)
      << "every seek behind the first goes to the same sector";
  EXPECT_NE(seeks[0], seeks[1]);
}

TEST_F(ReadMbr, SpinningDoesNotLookForAStop) {
  WriteSector(disk_, 0, Record({Row(5, 1000, 9000)}));
  WriteSector(disk_, 1000, Record({Row(7, 63, 500), Row(5, 100, 9)}));
  WriteSector(disk_, 1100, Record({Row(7, 63, 500), Row(0x83, 0, 0)}));
  StopAtTheNextLine();
  machine_.calls().SetBudget(1000);
  EXPECT_THROW(Read(), simulator::CallBudgetSpent);
  EXPECT_TRUE(StopRequested());
  EXPECT_EQ(FirstSectors(), (Sectors{1063}));
}

// Such a chain would fill the list until memory is used up.
TEST_F(ReadMbr, AChainThatComesBackToItsOwnRecordsEndsInBadAlloc) {
  WriteSector(disk_, 0, Record({Row(5, 1000, 9000)}));
  WriteSector(disk_, 1000, Record({Row(7, 63, 500), Row(5, 2000, 600)}));
  WriteSector(disk_, 3000, Record({Row(7, 63, 500), Row(5, 0, 600)}));
  machine_.calls().SetBudget(1000);
  EXPECT_THROW(Read(), std::bad_alloc);
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(ReadMbr, FailsWhenTheFirstSectorCannotBeSought) {
  ExpectFailureOf("SetFilePointer", 1, 6, "3 SetFilePointer Error: 6");
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 0U);
}

TEST_F(ReadMbr, FailsWhenTheFirstSectorCannotBeRead) {
  ExpectFailureOf("ReadFile", 1, 23, "3 Read Error: 23");
}

TEST_F(ReadMbr, AFailedSeekInTheChainFailsTheReadAndKeepsTheRows) {
  WriteMbr(disk_, {{7, 63, 8}, {5, 8192, 100000}}, {{7, 10240, 1000}, {7, 20480, 1000}});
  machine_.calls().FailOn("SetFilePointer", 3, 6);
  EXPECT_FALSE(Read());
  EXPECT_EQ(AllLines(), (Texts{"1 test code 1", "3 SetFilePointer Error: 6"}));
  EXPECT_EQ(FirstSectors(), (Sectors{63, 10240}));
}

TEST_F(ReadMbr, AFailedReadInTheChainFailsTheReadAndKeepsTheRows) {
  WriteMbr(disk_, {{7, 63, 8}, {5, 8192, 100000}, {7, 4096, 8}}, {{7, 10240, 1000}});
  ExpectFailureOf("ReadFile", 2, 23, "3 Read Error: 23");
  EXPECT_EQ(FirstSectors(), (Sectors{63}));
}

TEST_F(ReadMbr, AContainerBehindTheDiskFailsTheRead) {
  WriteSector(disk_, 0, Record({Row(5, 0xFFFFFFFF, 1)}));
  EXPECT_FALSE(Read());
  EXPECT_EQ(AllLines(), (Texts{"3 Read Error: 27"}));
}

TEST_F(ReadMbr, AContainerBeyond4GibIsFoundThere) {
  simulator::Disk& disk = NewDisk(2, std::uint64_t{5} << 30);
  constexpr std::uint32_t kContainer = 0x900000;  // sector 0x900000 is at 4.5 GiB
  WriteSector(disk, 0, Record({Row(15, kContainer, 100000)}));
  WriteSector(disk, kContainer, Record({Row(7, 2048, 500)}));
  HANDLE handle = GetDeviceHandleById(disk.path().c_str());
  EXPECT_TRUE(ReadMbrPartitions(handle, rows_));
  CloseDeviceHandle(handle);
  EXPECT_EQ(FirstSectors(), (Sectors{kContainer + 2048}));
}

TEST_F(ReadMbr, TheSumOfContainerAndLinkWrapsAt32Bits) {
  WriteSector(disk_, 0, Record({Row(5, 2000, 100000)}));
  WriteSector(disk_, 2000, Record({Row(7, 10, 20), Row(5, 0xFFFFFC18, 100)}));
  WriteSector(disk_, 1000, Record({Row(7, 30, 40)}));
  EXPECT_TRUE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{2010, 1030}));
}

// ---- Stop ---------------------------------------------------------------------------------------

TEST_F(ReadMbr, AStopFailsItWithoutALine) {
  WriteMbr(disk_, {{7, 2048, 100}});
  GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(Read());
  EXPECT_TRUE(rows_.empty());
  EXPECT_TRUE(log_.empty());
}

TEST_F(ReadMbr, AStopInsideAChainIsSeenAtTheNextRowOfTheFirstSector) {
  WriteMbr(disk_, {{15, 8192, 100000}, {7, 2048, 100}},
           {{7, 10240, 1000}, {7, 20480, 1000}, {7, 40960, 1000}});
  StopAtTheNextLine();
  EXPECT_FALSE(Read());
  EXPECT_EQ(FirstSectors(), (Sectors{10240, 20480, 40960}));
}

TEST_F(ReadMbr, AStopInsideTheChainOfTheFourthRowIsNotSeen) {
  WriteMbr(disk_, {{7, 63, 8}, {7, 2048, 8}, {7, 3000, 8}, {15, 8192, 100000}},
           {{7, 10240, 1000}, {7, 20480, 1000}});
  StopAtTheNextLine();
  EXPECT_TRUE(Read());
  EXPECT_EQ(rows_.size(), 5U);
}

}  // namespace
}  // namespace velkora
