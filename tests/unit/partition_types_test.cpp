#include "convert/partition_types.h"

#include <algorithm>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/machine_fixture.h"

namespace velkora {
namespace {

using namespace testing_support;

using Offsets = std::vector<std::uint64_t>;

std::string NameOf(const GuidBytes& type) {
  return GetPartitionTypeName(MakeGptRow({type}));
}

MbrPartitionRow MbrRowAt(std::uint32_t first_sector) {
  MbrPartitionRow row{};
  row.first_sector = first_sector;
  return row;
}

template <typename Row>
std::vector<std::uint64_t> FirstSectors(const std::vector<Row>& rows) {
  std::vector<std::uint64_t> sectors;
  for (const Row& row : rows) sectors.push_back(row.first_sector);
  return sectors;
}

TEST(PartitionTypeName, NamesTheFourKnownTypes) {
  EXPECT_EQ(NameOf(kEfiSystemGuid), "ESP");
  EXPECT_EQ(NameOf(kMicrosoftReservedGuid), "MSR");
  EXPECT_EQ(NameOf(kBasicDataGuid), "BASIC_DATA");
  EXPECT_EQ(NameOf(kHiddenGuid), "HIDDEN");
}

TEST(PartitionTypeName, TakesAnyOtherTypeForUnknown) {
  EXPECT_EQ(NameOf(kRecoveryGuid), "UNKNOW");
  EXPECT_EQ(NameOf(kLinuxGuid), "UNKNOW");
  EXPECT_EQ(NameOf(GuidBytes{}), "UNKNOW");
}

TEST(PartitionTypeName, ComparesAllSixteenBytes) {
  for (const GuidBytes& known :
       {kEfiSystemGuid, kMicrosoftReservedGuid, kBasicDataGuid, kHiddenGuid}) {
    for (std::size_t i = 0; i < known.size(); ++i) {
      GuidBytes changed = known;
      changed[i] = static_cast<std::uint8_t>(changed[i] ^ 1);
      EXPECT_EQ(NameOf(changed), "UNKNOW") << "byte " << i;
    }
  }
}

TEST(PartitionTypeName, WantsTheMixedByteOrderOfTheDisk) {
  GuidBytes text_order = kEfiSystemGuid;
  std::reverse(text_order.begin(), text_order.begin() + 4);
  std::swap(text_order[4], text_order[5]);
  std::swap(text_order[6], text_order[7]);
  EXPECT_EQ(NameOf(text_order), "UNKNOW");
}

TEST(FilterPartitions, DropsEfiReservedAndHiddenAndKeepsTheOrder) {
  GptPartitionList rows = {MakeGptRow({kEfiSystemGuid, 1, 1}),
                           MakeGptRow({kBasicDataGuid, 90, 91}),
                           MakeGptRow({kMicrosoftReservedGuid, 3, 3}),
                           MakeGptRow({kRecoveryGuid, 20, 21}),
                           MakeGptRow({kHiddenGuid, 5, 5}),
                           MakeGptRow({kLinuxGuid, 70, 71}),
                           MakeGptRow({GuidBytes{}, 60, 61}),
                           MakeGptRow({kEfiSystemGuid, 8, 8})};
  FilterGptPartitions(rows);
  EXPECT_EQ(FirstSectors(rows), (Offsets{90, 20, 70, 60}));
}

TEST(FilterPartitions, LeavesAnEmptyListEmpty) {
  GptPartitionList rows;
  FilterGptPartitions(rows);
  EXPECT_TRUE(rows.empty());
}

TEST(FilterPartitions, EmptiesAListOfEfiAndReserved) {
  GptPartitionList rows = {MakeGptRow({kEfiSystemGuid, 1, 1}),
                           MakeGptRow({kMicrosoftReservedGuid, 3, 3})};
  FilterGptPartitions(rows);
  EXPECT_TRUE(rows.empty());
}

TEST(PartitionOffsets, AreFirstSectorsTimes512InListOrder) {
  EXPECT_EQ(
      GptPartitionOffsets({MakeGptRow({kLinuxGuid, 2048, 4095}), MakeGptRow({kLinuxGuid, 34, 40})}),
      (Offsets{1048576, 17408}));
  EXPECT_EQ(MbrPartitionOffsets({MbrRowAt(63), MbrRowAt(1)}), (Offsets{32256, 512}));
}

TEST(PartitionOffsets, HaveSixtyFourBits) {
  EXPECT_EQ(MbrPartitionOffsets({MbrRowAt(0xFFFFFFFF)}), (Offsets{0x1FFFFFFFE00}));
  EXPECT_EQ(GptPartitionOffsets({MakeGptRow({kLinuxGuid, (std::uint64_t{1} << 55) + 1, 0})}),
            (Offsets{512}));
}

TEST(PartitionOffsets, OfEmptyListsAreEmpty) {
  EXPECT_TRUE(GptPartitionOffsets({}).empty());
  EXPECT_TRUE(MbrPartitionOffsets({}).empty());
}

TEST(SortByFirst, OrdersGptRowsAsUnsignedNumbers) {
  constexpr std::uint64_t kTop = std::uint64_t{1} << 63;
  GptPartitionList rows = {MakeGptRow({kLinuxGuid, kTop, 0}), MakeGptRow({kLinuxGuid, 7, 0}),
                           MakeGptRow({kLinuxGuid, std::uint64_t{1} << 32, 0}),
                           MakeGptRow({kLinuxGuid, 0, 0})};
  SortByFirstSector(rows);
  EXPECT_EQ(FirstSectors(rows), (Offsets{0, 7, std::uint64_t{1} << 32, kTop}));
}

TEST(SortByFirst, OrdersMbrRowsAsUnsignedNumbers) {
  MbrPartitionList rows = {MbrRowAt(0x80000000), MbrRowAt(2048), MbrRowAt(0xFFFFFFFF),
                           MbrRowAt(63)};
  SortByFirstSector(rows);
  EXPECT_EQ(FirstSectors(rows), (Offsets{63, 2048, 0x80000000, 0xFFFFFFFF}));
}

TEST(SortByFirst, MovesWholeRows) {
  GptPartitionList rows = {MakeGptRow({kLinuxGuid, 9, 10, 1}),
                           MakeGptRow({kRecoveryGuid, 3, 4, 2})};
  SortByFirstSector(rows);
  EXPECT_EQ(rows[0].type_guid, kRecoveryGuid);
  EXPECT_EQ(rows[0].last_sector, 4U);
  EXPECT_EQ(rows[0].unique_guid[0], 2);
}

}  // namespace
}  // namespace velkora
