// Single entries of an MBR layout, the requests that create a style, and the printed layout.
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "convert/layout_builder.h"
#include "platform/win32.h"
#include "support/layout_bytes.h"

namespace velkora {
namespace {

using namespace testing_support;

class MbrEntries : public MachineTest {};

TEST_F(MbrEntries, APartitionGoesFromItsFirstToItsLastSector) {
  EXPECT_EQ(RowBytesOf(MakeMbrPartitionEntry(MakeGptRow({kBasicDataGuid, 2048, 6143, 1}), 0)),
            ExpectedMbrRow({1'048'576, 2'097'152, 1, 7, true}));
}

TEST_F(MbrEntries, APartitionOfOneSectorHas512Bytes) {
  EXPECT_EQ(RowBytesOf(MakeMbrPartitionEntry(MakeGptRow({kBasicDataGuid, 63, 63, 1}), 41)),
            ExpectedMbrRow({32'256, 512, 42, 7, true}));
}

TEST_F(MbrEntries, EfiReservedAndHiddenGetType255) {
  for (const GuidBytes& type : {kEfiSystemGuid, kMicrosoftReservedGuid, kHiddenGuid}) {
    EXPECT_EQ(RowBytesOf(MakeMbrPartitionEntry(MakeGptRow({type, 8, 15, 1}), 2)),
              ExpectedMbrRow({4096, 4096, 3, 0xFF, true}));
  }
}

TEST_F(MbrEntries, AllOtherTypesGetType7) {
  for (const GuidBytes& type : {kBasicDataGuid, kRecoveryGuid, kLinuxGuid, GuidBytes{}}) {
    EXPECT_EQ(RowBytesOf(MakeMbrPartitionEntry(MakeGptRow({type, 8, 15, 1}), 2)),
              ExpectedMbrRow({4096, 4096, 3, 7, true}));
  }
}

TEST_F(MbrEntries, ValuesOfAPartitionWrap) {
  constexpr std::uint64_t kTooFar = (std::uint64_t{1} << 55) + 1;
  EXPECT_EQ(RowBytesOf(MakeMbrPartitionEntry(MakeGptRow({kBasicDataGuid, kTooFar, kTooFar, 1}),
                                             0xFFFFFFFF)),
            ExpectedMbrRow({512, 512, 0, 7, true}));
  EXPECT_EQ(RowBytesOf(MakeMbrPartitionEntry(MakeGptRow({kBasicDataGuid, 10, 5, 1}), 0)),
            ExpectedMbrRow({5120, static_cast<std::uint64_t>(-2048), 1, 7, true}));
}

TEST_F(MbrEntries, AnExtendedPartitionHasItsTypeAndNoNumber) {
  EXPECT_EQ(RowBytesOf(MakeExtendedMbrEntry(100, 299, 15)),
            ExpectedMbrRow({51'200, 102'400, 0, 15, false}));
  EXPECT_EQ(RowBytesOf(MakeExtendedMbrEntry(100, 100, 5)),
            ExpectedMbrRow({51'200, 512, 0, 5, false}));
}

TEST_F(MbrEntries, AnEmptyEntryHasOnlyAnOffset) {
  EXPECT_EQ(RowBytesOf(MakeEmptyMbrEntry(0)), ExpectedMbrRow({0, 0, 0, 0, false}));
  EXPECT_EQ(RowBytesOf(MakeEmptyMbrEntry(6144)), ExpectedMbrRow({3'145'728, 0, 0, 0, false}));
  EXPECT_EQ(RowBytesOf(MakeEmptyMbrEntry(~std::uint64_t{0})),
            ExpectedMbrRow({static_cast<std::uint64_t>(-512), 0, 0, 0, false}));
}

TEST_F(MbrEntries, EachDrawsOneId) {
  const std::vector<GuidBytes> guids = NextGuids(machine_, 3);
  EXPECT_EQ(MbrPartitionId(MakeMbrPartitionEntry(MakeGptRow({kLinuxGuid, 8, 15, 1}), 0)), guids[0]);
  EXPECT_EQ(MbrPartitionId(MakeExtendedMbrEntry(1, 2, 5)), guids[1]);
  EXPECT_EQ(MbrPartitionId(MakeEmptyMbrEntry(1)), guids[2]);
  EXPECT_TRUE(log_.empty());
}

TEST_F(MbrEntries, EachStandsWhenNoIdCouldBeDrawn) {
  machine_.calls().FailOn("CoCreateGuid", 1, 8, simulator::Repeat::kFromThenOn);
  EXPECT_EQ(RowBytesOf(MakeMbrPartitionEntry(MakeGptRow({kLinuxGuid, 8, 15, 1}), 0)),
            ExpectedMbrRow({4096, 4096, 1, 7, true}));
  EXPECT_EQ(RowBytesOf(MakeExtendedMbrEntry(8, 15, 5)), ExpectedMbrRow({4096, 4096, 0, 5, false}));
  EXPECT_EQ(RowBytesOf(MakeEmptyMbrEntry(8)), ExpectedMbrRow({4096, 0, 0, 0, false}));
  EXPECT_EQ(AllLines(), Texts(3, "3 CoCreateGuid Error: 8"));
}

// ---- Requests that create a style ---------------------------------------------------------------

using CreateBytes = std::array<std::uint8_t, 24>;

CreateBytes BytesOf(const CREATE_DISK& request) {
  CreateBytes bytes{};
  std::memcpy(bytes.data(), &request, bytes.size());
  return bytes;
}

TEST(CreateDiskRequest, OfAnMbrHasTheSignature) {
  EXPECT_EQ(BytesOf(MakeMbrCreateDisk(0x11223344)),
            (CreateBytes{0, 0, 0, 0, 0x44, 0x33, 0x22, 0x11}));
}

TEST(CreateDiskRequest, OfAGptHasIdAndRowCount) {
  GUID id{};
  std::memcpy(&id, kLinuxGuid.data(), sizeof(id));
  CreateBytes expected{1};
  std::memcpy(&expected[4], kLinuxGuid.data(), kLinuxGuid.size());
  expected[20] = 5;
  EXPECT_EQ(BytesOf(MakeGptCreateDisk(id, 5)), expected);
}

// ---- The buffer and its print -------------------------------------------------------------------

TEST(LayoutBufferBytes, StartAsZerosOfHeaderAndRows) {
  LayoutBuffer layout(3);
  ASSERT_EQ(layout.size(), 48U + 3 * 144U);
  EXPECT_EQ(layout.row_count(), 3U);
  const auto* bytes = static_cast<const std::uint8_t*>(layout.data());
  EXPECT_EQ(std::vector<std::uint8_t>(bytes, bytes + layout.size()),
            std::vector<std::uint8_t>(layout.size()));
}

TEST(LayoutBufferBytes, AreTheHeaderAloneWithoutRows) {
  LayoutBuffer layout(0);
  EXPECT_EQ(layout.size(), 48U);
  EXPECT_EQ(layout.row_count(), 0U);
}

class LayoutLines : public MachineTest {};

TEST_F(LayoutLines, ShowCountStyleAndEachRow) {
  LayoutBuffer layout(2);
  layout.header().PartitionStyle = PARTITION_STYLE_GPT;
  layout.header().PartitionCount = 2;
  PARTITION_INFORMATION_EX row{};
  row.PartitionStyle = PARTITION_STYLE_GPT;
  row.PartitionNumber = 1;
  row.RewritePartition = 1;
  row.StartingOffset.QuadPart = 1'048'576;
  row.PartitionLength.QuadPart = 3'298'534'883'328;
  layout.SetRow(0, row);
  row.PartitionStyle = PARTITION_STYLE_MBR;
  row.PartitionNumber = 0;
  row.RewritePartition = 0;
  row.StartingOffset.QuadPart = -512;
  row.PartitionLength.QuadPart = 0;
  layout.SetRow(1, row);
  LogDiskLayout(layout);
  EXPECT_EQ(
      AllLines(),
      (Texts{"1 ----------disklayout----------", "1 [disk] PartitionCount: 2, PartitionStyle: 1",
             "1 [part] PartitionNumber: 1, PartitionStyle: 1, RewritePartition: 1, "
             "StartingOffset: 1048576, PartitionLength: 3298534883328",
             "1 [part] PartitionNumber: 0, PartitionStyle: 0, RewritePartition: 0, "
             "StartingOffset: 18446744073709551104, PartitionLength: 0",
             "1 ------------------------------"}));
}

TEST_F(LayoutLines, OfABuiltLayoutShowItsEmptyEntriesToo) {
  const auto layout = BuildMbrLayout({MakeGptRow({kBasicDataGuid, 2048, 4095, 1})}, 64 << 20, 1);
  ASSERT_TRUE(layout.has_value());
  LogDiskLayout(*layout);
  const std::string empty =
      "1 [part] PartitionNumber: 0, PartitionStyle: 0, RewritePartition: 1, StartingOffset: 0, "
      "PartitionLength: 0";
  EXPECT_EQ(
      AllLines(),
      (Texts{"1 ----------disklayout----------", "1 [disk] PartitionCount: 4, PartitionStyle: 0",
             "1 [part] PartitionNumber: 1, PartitionStyle: 0, RewritePartition: 1, "
             "StartingOffset: 1048576, PartitionLength: 1048576",
             empty, empty, empty, "1 ------------------------------"}));
}

}  // namespace
}  // namespace velkora
