// The MBR layout. Its entries alone, the GPT layout and the printed lines have files of their own.
#include "convert/layout_builder.h"

#include <gtest/gtest.h>
#include <set>
#include <vector>

#include "frame/global_context.h"
#include "logging/log.h"
#include "platform/win32.h"
#include "support/fault_of.h"
#include "support/layout_bytes.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint32_t kSignature = 0x8899AABB;
constexpr std::uint64_t kDiskSectors = 1'000'000;
constexpr std::uint64_t kDiskSize = kDiskSectors * 512;

class MbrLayout : public MachineTest {
 protected:
  // Rows of 10000 sectors: row r from sector 20000 * (r + 1) on.
  static GptPartitionList Rows(std::size_t count) {
    GptPartitionList rows;
    for (std::uint64_t r = 1; r <= count; ++r) {
      rows.push_back(MakeGptRow({kBasicDataGuid, 20'000 * r, 20'000 * r + 9'999, 1}));
    }
    return rows;
  }

  static MbrLayoutRow Partition(std::uint32_t place) {
    return {20'000ULL * (place + 1) * 512, 10'000ULL * 512, place + 1, 7, true};
  }

  // From the end of the row at `place` to the end of the disk.
  static MbrLayoutRow Link(std::uint32_t place, std::uint8_t type,
                           std::uint64_t disk_sectors = kDiskSectors) {
    const std::uint64_t first = 20'000ULL * (place + 1) + 10'000;
    return {first * 512, (disk_sectors - first) * 512, 0, type, false};
  }

  // In front of the row at `place`, where its boot record goes.
  static MbrLayoutRow Empty(std::uint32_t place) {
    return {(20'000ULL * (place + 1) - 2048) * 512, 0, 0, 0, false};
  }

  bool Build(const GptPartitionList& rows, std::uint64_t disk_size = kDiskSize) {
    const auto built = BuildMbrLayout(rows, disk_size, kSignature);
    if (built) layout_ = *built;
    return built.has_value();
  }

  void ExpectRows(const std::vector<MbrLayoutRow>& expected) {
    ASSERT_EQ(layout_.row_count(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_EQ(RowOf(layout_, i), ExpectedMbrRow(expected[i])) << "entry " << i;
    }
  }

  LayoutBuffer layout_{0};
};

TEST_F(MbrLayout, OneRowIsFollowedByThreeEmptyEntries) {
  ASSERT_TRUE(Build(Rows(1)));
  ExpectRows({Partition(0), {}, {}, {}});
}

TEST_F(MbrLayout, TwoRowsAreFollowedByTwoEmptyEntries) {
  ASSERT_TRUE(Build(Rows(2)));
  ExpectRows({Partition(0), Partition(1), {}, {}});
}

TEST_F(MbrLayout, ThreeRowsGiveFourEntriesWithOneEmpty) {
  ASSERT_TRUE(Build(Rows(3)));
  ExpectRows({Partition(0), Partition(1), Partition(2), {}});
}

TEST_F(MbrLayout, FourRowsGiveEightEntriesWithOneLogical) {
  ASSERT_TRUE(Build(Rows(4)));
  ExpectRows({Partition(0), Partition(1), Partition(2), Link(2, 15),  //
              Partition(3), Empty(3), Empty(3), Empty(3)});
}

TEST_F(MbrLayout, FiveRowsGiveTwelveEntriesWithALinkInTheFirstGroup) {
  ASSERT_TRUE(Build(Rows(5)));
  ExpectRows({Partition(0), Partition(1), Partition(2), Link(2, 15),  //
              Partition(3), Link(3, 5), Empty(4), Empty(4),           //
              Partition(4), Empty(4), Empty(4), Empty(4)});
}

TEST_F(MbrLayout, SixRowsGiveSixteenEntriesWithTwoLinks) {
  ASSERT_TRUE(Build(Rows(6)));
  ExpectRows({Partition(0), Partition(1), Partition(2), Link(2, 15),  //
              Partition(3), Link(3, 5), Empty(4), Empty(4),           //
              Partition(4), Link(4, 5), Empty(5), Empty(5),           //
              Partition(5), Empty(5), Empty(5), Empty(5)});
}

TEST_F(MbrLayout, SixtyRowsGiveOneGroupForEachLogical) {
  constexpr std::uint64_t kSectors = 2'000'000;
  ASSERT_TRUE(Build(Rows(60), kSectors * 512));
  std::vector<MbrLayoutRow> expected = {Partition(0), Partition(1), Partition(2),
                                        Link(2, 15, kSectors)};
  for (std::uint32_t r = 3; r < 60; ++r) {
    const bool last = r == 59;
    const MbrLayoutRow empty = Empty(last ? r : r + 1);
    expected.insert(expected.end(),
                    {Partition(r), last ? empty : Link(r, 5, kSectors), empty, empty});
  }
  ExpectRows(expected);
  EXPECT_EQ(layout_.header().PartitionCount, 232U);
}

TEST_F(MbrLayout, HeaderHasCountAndSignatureAndNothingElse) {
  for (const auto& [rows, count] : std::vector<std::pair<std::size_t, std::uint8_t>>{
           {1, 4}, {3, 4}, {4, 8}, {5, 12}, {60, 232}}) {
    ASSERT_TRUE(Build(Rows(rows)));
    HeaderBytes expected{};
    expected[4] = count;
    expected[8] = 0xBB;
    expected[9] = 0xAA;
    expected[10] = 0x99;
    expected[11] = 0x88;
    EXPECT_EQ(HeaderOf(layout_), expected) << rows;
    EXPECT_EQ(layout_.size(), 48U + 144U * count) << rows;
  }
}

TEST_F(MbrLayout, TakesTheMostRowsThatATableCanHold) {
  ASSERT_TRUE(Build(Rows(129), std::uint64_t{4'000'000} * 512));
  EXPECT_EQ(layout_.header().PartitionCount, 508U);
  EXPECT_EQ(layout_.row_count(), 508U);
  EXPECT_EQ(RowOf(layout_, 504), ExpectedMbrRow(Partition(128)));
}

TEST_F(MbrLayout, EveryRowGetsTypeSevenWhateverItHeld) {
  GptPartitionList rows = {MakeGptRow({kRecoveryGuid, 2048, 4095, 1}),
                           MakeGptRow({kLinuxGuid, 4096, 8191, 2}),
                           MakeGptRow({GuidBytes{}, 8192, 9999, 3})};
  for (GptPartitionRow& row : rows) {
    row.attributes = ~std::uint64_t{0};
    row.name[0] = 'x';
  }
  ASSERT_TRUE(Build(rows));
  ExpectRows({{1'048'576, 1'048'576, 1, 7, true},
              {2'097'152, 2'097'152, 2, 7, true},
              {4'194'304, 1808 * 512, 3, 7, true},
              {}});
}

TEST_F(MbrLayout, AStartingOffsetInFrontOfTheDiskWraps) {
  GptPartitionList rows;
  for (std::uint64_t r = 0; r < 4; ++r) {
    rows.push_back(MakeGptRow({kBasicDataGuid, 34 + r, 34 + r, 1}));
  }
  ASSERT_TRUE(Build(rows));
  // Row 3 starts at sector 37, its boot record 2048 sectors in front of that.
  const MbrLayoutRow empty = {static_cast<std::uint64_t>(-(2048 - 37) * 512), 0, 0, 0, false};
  EXPECT_EQ(RowOf(layout_, 5), ExpectedMbrRow(empty));
  EXPECT_EQ(RowOf(layout_, 6), ExpectedMbrRow(empty));
  EXPECT_EQ(RowOf(layout_, 7), ExpectedMbrRow(empty));
}

TEST_F(MbrLayout, AnExtendedPartitionBehindTheEndOfTheDiskHasAWrappedLength) {
  ASSERT_TRUE(Build(Rows(4), 60'000 * 512));  // row 2 ends at sector 69999
  const MbrLayoutRow extended = {70'000 * 512, static_cast<std::uint64_t>(-10'000 * 512), 0, 15,
                                 false};
  EXPECT_EQ(RowOf(layout_, 3), ExpectedMbrRow(extended));
}

TEST_F(MbrLayout, APartOfASectorAtTheEndOfTheDiskDoesNotCount) {
  ASSERT_TRUE(Build(Rows(4), kDiskSize + 511));
  EXPECT_EQ(RowOf(layout_, 3), ExpectedMbrRow(Link(2, 15)));
}

TEST_F(MbrLayout, EachEntryDrawsAnIdInTurn) {
  const std::vector<GuidBytes> guids = NextGuids(machine_, 12);
  ASSERT_TRUE(Build(Rows(5)));
  for (std::size_t i = 0; i < 12; ++i) {
    EXPECT_EQ(MbrPartitionId(layout_.row(i)), guids[i]) << "entry " << i;
  }
  EXPECT_EQ(std::set<GuidBytes>(guids.begin(), guids.end()).size(), 12U);
}

TEST_F(MbrLayout, FailedIdsAreLoggedAndTheEntriesStand) {
  machine_.calls().FailOn("CoCreateGuid", 1, 14, simulator::Repeat::kFromThenOn);
  ASSERT_TRUE(Build(Rows(4)));
  EXPECT_EQ(AllLines(), Texts(8, "3 CoCreateGuid Error: 14"));
  ExpectRows({Partition(0), Partition(1), Partition(2), Link(2, 15),  //
              Partition(3), Empty(3), Empty(3), Empty(3)});
}

TEST_F(MbrLayout, AStopFailsTheBuildOfLogicalPartitionsWithoutALine) {
  GetGlobalContext().stop_requested = 1;
  EXPECT_FALSE(Build(Rows(4)));
  EXPECT_TRUE(log_.empty());
}

TEST_F(MbrLayout, AStopIsNotSeenWithThreeRows) {
  GetGlobalContext().stop_requested = 1;
  ASSERT_TRUE(Build(Rows(3)));
  ExpectRows({Partition(0), Partition(1), Partition(2), {}});
}

TEST_F(MbrLayout, AStopIsSeenBeforeEachLogicalPartition) {
  const LogObserver observer{
      [](void*, const char*, int, const char*) { GetGlobalContext().stop_requested = 1; }, nullptr};
  InitLogEx(nullptr, kLogModule, &observer, nullptr);
  machine_.calls().FailOn("CoCreateGuid", 5);  // the entry of row 3
  EXPECT_FALSE(Build(Rows(6)));
  EXPECT_EQ(machine_.calls().Count("CoCreateGuid"), 8U) << "row 3's group was finished";
}

TEST_F(MbrLayout, ADiskOfNoBytesHasItsLastSectorAtTheTopOfTheRange) {
  const auto layout = BuildMbrLayout(Rows(4), 0, kSignature);
  ASSERT_TRUE(layout.has_value());
  // From sector 70000 to sector 2^64 - 1, in bytes cut to 64 bits.
  const std::uint64_t length = (0 - std::uint64_t{70'000}) << 9;
  EXPECT_EQ(static_cast<std::uint64_t>(layout->row(3).PartitionLength.QuadPart), length);
}

TEST_F(MbrLayout, ACountThatIsCutTo16BitsEndsInAnAccessViolation) {
  // 4 * 16386 - 8 entries are 65536, of which 16 bits keep none.
  EXPECT_EQ(FaultOf([&] { (void)BuildMbrLayout(Rows(16'386), kDiskSize, kSignature); }),
            EXCEPTION_ACCESS_VIOLATION);
}

}  // namespace
}  // namespace velkora
