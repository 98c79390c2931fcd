// The GPT layout.
#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "convert/layout_builder.h"
#include "convert/partition_types.h"
#include "frame/velkora.h"
#include "platform/win32.h"
#include "support/layout_bytes.h"

namespace velkora {
namespace {

using namespace testing_support;

constexpr std::uint64_t kHiddenAttributes = 0xC000000000000000;

MbrPartitionRow Row(std::uint8_t type, std::uint32_t first, std::uint32_t count) {
  MbrPartitionRow row{};
  row.type = type;
  row.first_sector = first;
  row.sector_count = count;
  return row;
}

class GptLayout : public MachineTest {
 protected:
  bool Build(const MbrPartitionList& rows, std::uint32_t efi_position = 0) {
    GUID disk_id{};
    std::memcpy(&disk_id, kLinuxGuid.data(), sizeof(disk_id));
    const auto built = BuildGptLayout(rows, efi_position, disk_id);
    if (built) layout_ = *built;
    return built.has_value();
  }

  void ExpectRows(const std::vector<GptLayoutRow>& expected) {
    ASSERT_EQ(layout_.row_count(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
      EXPECT_EQ(RowOf(layout_, i), ExpectedGptRow(expected[i])) << "entry " << i;
    }
  }

  LayoutBuffer layout_{0};
};

TEST_F(GptLayout, EveryTypeButHiddenBecomesBasicData) {
  MbrPartitionRow active = Row(7, 2048, 4096);
  active.boot_indicator = 0x80;
  ASSERT_TRUE(Build({active, Row(12, 8192, 1), Row(0x83, 16384, 2), Row(0, 20000, 3)}));
  ExpectRows({{1'048'576, 2'097'152, 1, kBasicDataGuid, 0, "Basic Data Partition"},
              {4'194'304, 512, 2, kBasicDataGuid, 0, "Basic Data Partition"},
              {8'388'608, 1024, 3, kBasicDataGuid, 0, "Basic Data Partition"},
              {10'240'000, 1536, 4, kBasicDataGuid, 0, "Basic Data Partition"}});
  EXPECT_TRUE(log_.empty());
}

TEST_F(GptLayout, Type255BecomesHidden) {
  ASSERT_TRUE(Build({Row(7, 8, 8), Row(0xFF, 2048, 4096)}));
  ExpectRows({{4096, 4096, 1, kBasicDataGuid, 0, "Basic Data Partition"},
              {1'048'576, 2'097'152, 2, kHiddenGuid, kHiddenAttributes, "Hidden Partition"}});
}

TEST_F(GptLayout, HiddenIsDroppedOnTheWayBack) {
  ASSERT_TRUE(Build({Row(0xFF, 2048, 4096), Row(7, 8192, 8)}));
  GptPartitionList back(2);
  for (std::size_t i = 0; i < 2; ++i) {
    const PARTITION_INFORMATION_EX row = layout_.row(i);
    std::memcpy(back[i].type_guid.data(), &row.Gpt.PartitionType, 16);
    back[i].first_sector = i;
  }
  EXPECT_STREQ(GetPartitionTypeName(back[0]), "HIDDEN");
  FilterGptPartitions(back);
  ASSERT_EQ(back.size(), 1U);
  EXPECT_EQ(back[0].first_sector, 1U);
}

TEST_F(GptLayout, TheEfiRowHasItsTypeAndTheNameOfTheOthers) {
  ASSERT_TRUE(Build({Row(7, 8, 8), Row(7, 16, 8), Row(7, 24, 8)}, 2));
  ExpectRows({{4096, 4096, 1, kBasicDataGuid, 0, "Basic Data Partition"},
              {8192, 4096, 2, kEfiSystemGuid, 0, "Basic Data Partition"},
              {12288, 4096, 3, kBasicDataGuid, 0, "Basic Data Partition"}});
}

TEST_F(GptLayout, TheEfiRowMayBeTheFirstOrTheLast) {
  for (const std::uint32_t place : {1U, 2U}) {
    ASSERT_TRUE(Build({Row(7, 8, 8), Row(7, 16, 8)}, place));
    const GuidBytes& first = place == 1 ? kEfiSystemGuid : kBasicDataGuid;
    const GuidBytes& second = place == 2 ? kEfiSystemGuid : kBasicDataGuid;
    ExpectRows({{4096, 4096, 1, first, 0, "Basic Data Partition"},
                {8192, 4096, 2, second, 0, "Basic Data Partition"}});
  }
}

TEST_F(GptLayout, AHiddenRowAtTheEfiPlaceStaysHidden) {
  ASSERT_TRUE(Build({Row(0xFF, 8, 8)}, 1));
  ExpectRows({{4096, 4096, 1, kHiddenGuid, kHiddenAttributes, "Hidden Partition"}});
}

TEST_F(GptLayout, AnEfiPlaceBehindTheListMatchesNoRow) {
  ASSERT_TRUE(Build({Row(7, 8, 8)}, 2));
  ExpectRows({{4096, 4096, 1, kBasicDataGuid, 0, "Basic Data Partition"}});
}

TEST_F(GptLayout, OffsetsAndLengthsHaveSixtyFourBits) {
  ASSERT_TRUE(Build({Row(7, 0xFFFFFFFF, 0xFFFFFFFF)}));
  ExpectRows({{0x1FFFFFFFE00, 0x1FFFFFFFE00, 1, kBasicDataGuid, 0, "Basic Data Partition"}});
}

TEST_F(GptLayout, HeaderHasCountIdAndRoomFor128) {
  ASSERT_TRUE(Build({Row(7, 8, 8), Row(7, 16, 8), Row(7, 24, 8)}));
  HeaderBytes expected{1, 0, 0, 0, 3};
  std::memcpy(&expected[8], kLinuxGuid.data(), kLinuxGuid.size());
  expected[40] = 128;
  EXPECT_EQ(HeaderOf(layout_), expected);
  EXPECT_EQ(layout_.size(), 48U + 3 * 144U);
}

TEST_F(GptLayout, SixtyRowsAreNumberedInOrder) {
  MbrPartitionList rows;
  std::vector<GptLayoutRow> expected;
  for (std::uint32_t i = 0; i < 60; ++i) {
    rows.push_back(Row(7, 100 * (i + 1), 50));
    expected.push_back(
        {100ULL * (i + 1) * 512, 25'600, i + 1, kBasicDataGuid, 0, "Basic Data Partition"});
  }
  ASSERT_TRUE(Build(rows));
  ExpectRows(expected);
}

TEST_F(GptLayout, NamesFill36UnitsWithZeros) {
  ASSERT_TRUE(Build({Row(7, 8, 8), Row(0xFF, 16, 8)}));
  const auto name_of = [&](std::size_t index) {
    const PARTITION_INFORMATION_EX row = layout_.row(index);
    return WideString(row.Gpt.Name, 36);
  };
  WideString basic = WIDE("Basic Data Partition");
  basic.resize(36);
  WideString hidden = WIDE("Hidden Partition");
  hidden.resize(36);
  EXPECT_EQ(name_of(0), basic);
  EXPECT_EQ(name_of(1), hidden);
}

TEST_F(GptLayout, EachEntryDrawsAnIdInTurn) {
  const std::vector<GuidBytes> guids = NextGuids(machine_, 3);
  ASSERT_TRUE(Build({Row(7, 8, 8), Row(0xFF, 16, 8), Row(7, 24, 8)}, 3));
  for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(GptPartitionId(layout_.row(i)), guids[i]) << i;
}

TEST_F(GptLayout, AFailedIdFailsTheBuildAtOnce) {
  machine_.calls().FailOn("CoCreateGuid", 2, 14);
  EXPECT_FALSE(Build({Row(7, 8, 8), Row(7, 16, 8), Row(7, 24, 8)}));
  EXPECT_EQ(AllLines(), (Texts{"3 CoCreateGuid error: 14"}));
  EXPECT_EQ(machine_.calls().Count("CoCreateGuid"), 2U);
}

TEST_F(GptLayout, AStopDoesNotDisturbTheBuild) {
  Velkora().Stop();
  EXPECT_TRUE(Build({Row(7, 8, 8)}));
}

}  // namespace
}  // namespace velkora
