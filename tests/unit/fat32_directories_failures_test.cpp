// Moves of directories that fail on their way.
#include <new>
#include <ostream>

#include "fat32_directories_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Runs = std::vector<ClusterRun>;
using Rows = std::vector<DirectoryDebris>;

// ---- Transfers that fail or fall short ---------------------------------------------------------

TEST_F(MoveDirectoryDebrisTest, BootSectorIsReadInOneAttempt) {
  machine_.calls().FailOn("ReadFile", 1, 23);
  EXPECT_FALSE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 1U);
  EXPECT_EQ(log_.size(), 0U);
  ExpectNothingWritten();
}

TEST_F(MoveDirectoryDebrisTest, FatIsReadInOneAttempt) {
  machine_.calls().FailOn("ReadFile", 2, 23);
  EXPECT_FALSE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 2U);
  EXPECT_EQ(log_.size(), 0U);
  ExpectNothingWritten();
}

TEST_F(MoveDirectoryDebrisTest, FragmentIsReadInOneAttempt) {
  machine_.calls().FailOn("ReadFile", 3, 23);
  EXPECT_FALSE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(log_.size(), 0U);
  ExpectNothingWritten();
  EXPECT_EQ(runs_, (Runs{{kNew, 10}}));
}

TEST_F(MoveDirectoryDebrisTest, FragmentWithoutATargetIsReadAllTheSame) {
  runs_.clear();
  machine_.calls().FailOn("ReadFile", 3, 23);
  EXPECT_FALSE(Move({{0, kOld, 0, 1, 0}}));
}

TEST_F(MoveDirectoryDebrisTest, SeekThatFailsIsAFailureAtOnce) {
  for (const std::size_t seek : {1U, 2U, 3U, 4U}) {
    machine_.calls().Clear();
    machine_.calls().FailOn("SetFilePointer", seek, 87);
    EXPECT_FALSE(Move({{0, kOld, 0, 1, 0}})) << seek;
    EXPECT_EQ(machine_.calls().Count("SetFilePointer"), seek);
    ExpectNothingWritten();
  }
  EXPECT_EQ(log_.size(), 0U);
}

TEST_F(MoveDirectoryDebrisTest, FragmentIsWrittenInOneAttempt) {
  machine_.calls().FailOn("WriteFile", 1, 19);
  EXPECT_FALSE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 1U);
  EXPECT_EQ(log_.size(), 0U);
  EXPECT_EQ(EntryCluster(40, 1), kOld);
  EXPECT_EQ(FatEntry(0, kOld), kLast);
}

TEST_F(MoveDirectoryDebrisTest, HowMuchOfAFragmentIsMovedIsNotLookedAt) {
  // Behind the end of the volume nothing is read or written, and both succeed.
  constexpr std::uint32_t kBehind = 76'790;
  sectors_per_cluster_ = 2;
  SetBootField(13, 2, 1);
  PutEntries(2, {{'D', kFolder, kBoundary + 1}});
  PutDirectory(kBoundary + 1, 0);
  runs_ = {{kBehind, 5}};
  EXPECT_TRUE(Move({{0, kBoundary + 1, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(2, 0), kBehind);
  EXPECT_EQ(FatEntry(0, kBehind), kLast);
}

TEST_F(MoveDirectoryDebrisTest, FragmentThatCannotBeReadInFullHasZerosBehind) {
  // Of two clusters the volume's end leaves the first.
  constexpr std::uint32_t kLastCluster = 40'000 - (kReserved + 2 * kFatSectors) / 2 + 1;
  sectors_per_cluster_ = 2;
  SetBootField(13, 2, 1);
  PutDirectory(kLastCluster, 0);
  FillCluster(2000, 0x77);
  FillCluster(2001, 0x77);
  runs_ = {{2000, 5}};
  EXPECT_TRUE(Move({{0, kLastCluster, 0, 2, 0}}));
  EXPECT_EQ(EntryCluster(2000, 0), 2000U);
  EXPECT_EQ(Cluster(2001), Bytes(1024));
}

struct FailingTransfer {
  const char* call;
  std::size_t occurrence;
  const char* line;
};
void PrintTo(const FailingTransfer& failing, std::ostream* out) {
  *out << failing.call << " " << failing.occurrence;
}

class FailingTransferTest : public MoveDirectoryDebrisTest,
                            public ::testing::WithParamInterface<FailingTransfer> {};

// Reads: boot sector, FAT, fragment, two subdirectories, parent. Writes: fragment, two
// subdirectories, parent, two FATs.
INSTANTIATE_TEST_SUITE_P(
    WithThreeAttempts, FailingTransferTest,
    ::testing::Values(FailingTransfer{"ReadFile", 4, "Read Data Error! error_code: 1117"},
                      FailingTransfer{"ReadFile", 5, "Read Data Error! error_code: 1117"},
                      FailingTransfer{"ReadFile", 6, "Read Data Error! error_code: 1117"},
                      FailingTransfer{"WriteFile", 2, "Write Data Error! error_code: 1117"},
                      FailingTransfer{"WriteFile", 3, "Write Data Error! error_code: 1117"},
                      FailingTransfer{"WriteFile", 4, "Write Data Error! error_code: 1117"},
                      FailingTransfer{"WriteFile", 5, "Write Data Error! error_code: 1117"},
                      FailingTransfer{"WriteFile", 6, "Write Data Error! error_code: 1117"}));

TEST_P(FailingTransferTest, EndsTheMoveBehindTheThirdAttempt) {
  const FailingTransfer& failing = GetParam();
  machine_.calls().FailOn(failing.call, failing.occurrence, 1117, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(Lines(3), Texts(3, failing.line));
  EXPECT_EQ(machine_.calls().Count(failing.call), failing.occurrence + 2);
}

TEST_P(FailingTransferTest, GoesOnBehindAnAttemptThatSucceeds) {
  const FailingTransfer& failing = GetParam();
  machine_.calls().FailOn(failing.call, failing.occurrence, 1117);
  EXPECT_TRUE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(Lines(3), Texts{failing.line});
  EXPECT_EQ(EntryCluster(2, 1), kNew);
  EXPECT_EQ(FatEntry(1, kNew), kLast);
}

TEST_F(MoveDirectoryDebrisTest, FailureBeforeTheFatsLeavesThemUntouched) {
  const Bytes fat = Fat(0);
  machine_.calls().FailOn("WriteFile", 4, 19, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(EntryCluster(40, 1), kNew) << "names a cluster that the FAT has free";
  EXPECT_EQ(EntryCluster(2, 1), kOld);
  EXPECT_EQ(Fat(0), fat);
}

TEST_F(MoveDirectoryDebrisTest, FailureAtTheSecondFatLeavesTheFirstNew) {
  const Bytes second = Fat(1);
  machine_.calls().FailOn("WriteFile", 6, 19, simulator::Repeat::kFromThenOn);
  EXPECT_FALSE(Move({{0, kOld, 0, 1, 0}}));
  EXPECT_EQ(FatEntry(0, kNew), kLast);
  EXPECT_EQ(Fat(1), second);
}

// ---- Values that lead out of a buffer ----------------------------------------------------------

TEST_F(MoveDirectoryDebrisTest, FragmentThatNoReadCanTakeIsOutOfMemory) {
  sectors_per_cluster_ = 128;
  SetBootField(13, 128, 1);
  EXPECT_THROW(Move({{0, kOld, 0, 65536, 0}}), std::bad_alloc);
  ExpectNothingWritten();
}

TEST_F(MoveDirectoryDebrisTest, LastEntryOfTheFatIsInBounds) {
  runs_ = {{76'798, 80'002}};
  EXPECT_TRUE(Move({{76'799, kOld, 1, 2, 0}}));
  EXPECT_EQ(FatEntry(0, 76'799), 76'798U);
}

class MoveDirectoryDebrisFault : public MoveDirectoryDebrisTest {
 protected:
  void ExpectFault(const Rows& rows) {
    EXPECT_EQ(FaultOf([&] { Move(rows); }), EXCEPTION_ACCESS_VIOLATION);
  }
};

TEST_F(MoveDirectoryDebrisFault, ClustersOfNoSectorsHaveNoRoomForAnEntry) {
  SetBootField(13, 0, 1);
  ExpectFault({{0, kOld, 0, 1, 0}});
  ExpectNothingWritten();
}

TEST_F(MoveDirectoryDebrisFault, FragmentOfNoClustersHasNoRoomForAnEntry) {
  ExpectFault({{0, kOld, 0, 0, 0}});
  ExpectNothingWritten();
}

TEST_F(MoveDirectoryDebrisFault, LaterFragmentOfNoClustersHasNoLastOne) {
  ExpectFault({{500, kOld, 1, 0, 0}});
}

TEST_F(MoveDirectoryDebrisFault, FreeingBehindTheFat) {
  ExpectFault({{500, 76'799, 1, 2, 0}});
}

TEST_F(MoveDirectoryDebrisFault, ChainBehindTheFat) {
  runs_ = {{76'799, 80'002}};
  ExpectFault({{500, kOld, 1, 2, 0}});
}

TEST_F(MoveDirectoryDebrisFault, LinkBehindTheFat) {
  ExpectFault({{76'800, kOld, 1, 1, 0}});
}

}  // namespace
}  // namespace velkora
