// Partition tables of the store, judged by sfdisk, sgdisk and parted; and theirs, read by the
// store.
#include <algorithm>
#include <cstdio>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "simulator/storage_disk.h"
#include "simulator/tools/sfdisk_table.h"
#include "support/tools/run_tool.h"

namespace simulator::storage_testing {
namespace {

using testing_support::ReadSfdiskTable;
using testing_support::RunTool;
using testing_support::ToolResult;

constexpr std::uint64_t kGiB = 1024 * kMiB;

// sfdisk takes no more than 60 partitions on an MBR disk and leaves out the rest in silence; four
// numbers belong to the primaries. parted takes more.
constexpr std::size_t kSfdiskLogicalPartitions = 56;

void ExpectSuccess(const ToolResult& result) {
  EXPECT_EQ(result.exit_status, 0) << result.output;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// sfdisk, and parted (which lists one line a partition), find nothing to complain of.
void ExpectAccepted(StorageDisk& disk, std::size_t partitions) {
  const ToolResult verified = RunTool({"sfdisk", "--verify", disk.image().string()});
  ExpectSuccess(verified);
  EXPECT_TRUE(Contains(verified.output, "No errors detected")) << verified.output;
  const ToolResult listed =
      RunTool({"parted", "-s", "-m", disk.image().string(), "unit", "s", "print"});
  ExpectSuccess(listed);
  EXPECT_FALSE(Contains(listed.output, "Warning")) << listed.output;
  EXPECT_FALSE(Contains(listed.output, "Error")) << listed.output;
  const auto lines = std::count(listed.output.begin(), listed.output.end(), '\n');
  EXPECT_EQ(static_cast<std::size_t>(lines), partitions + 2) << listed.output;
}

void ExpectSgdiskAccepts(StorageDisk& disk) {
  const ToolResult verified = RunTool({"sgdisk", "-v", disk.image().string()});
  ExpectSuccess(verified);
  EXPECT_TRUE(Contains(verified.output, "No problems found")) << verified.output;
}

// Start and length in sectors, in the order of their starts.
using Extents = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

// parted gives a partition a line such as `5:4096s:6143s:2048s:::;`.
Extents PartedExtents(StorageDisk& disk) {
  std::istringstream lines(
      RunTool({"parted", "-s", "-m", disk.image().string(), "unit", "s", "print"}).output);
  Extents extents;
  for (std::string line; std::getline(lines, line);) {
    unsigned long long start = 0;
    unsigned long long end = 0;
    if (std::sscanf(line.c_str(), "%*u:%llus:%llus:", &start, &end) != 2) continue;
    extents.emplace_back(start, end - start + 1);
  }
  std::sort(extents.begin(), extents.end());
  return extents;
}

Extents RowExtents(const DiskLayout& layout) {
  Extents extents;
  for (const ListedPartition& row : ListRows(layout)) extents.emplace_back(row.start, row.count);
  std::sort(extents.begin(), extents.end());
  return extents;
}

// ---- Written by the store -----------------------------------------------------------------------

// Beside `count` logical partitions two primaries, the first of them active.
DiskLayout ManyLogicalRows(std::uint64_t count) {
  auto layout = ChainLayout(0x1A2B3C4D, count);
  layout.rows[1] = MbrRow(0x0C, 500 * kMiB, 100 * kMiB, true);
  layout.rows[2] = MbrRow(0x83, 700 * kMiB, 200 * kMiB);
  return layout;
}

TEST(StoreMbrTable, LogicalPartitionsAreAcceptedAndListedAlike) {
  StorageDisk disk(kGiB);
  DiskLayout layout = ManyLogicalRows(kSfdiskLogicalPartitions);
  ASSERT_EQ(WriteLayout(disk.device(), layout, {}), ERROR_SUCCESS);
  ExpectAccepted(disk, kSfdiskLogicalPartitions + 3);
  EXPECT_EQ(ReadSfdiskTable(disk.image()).id, "0x1a2b3c4d");
  EXPECT_EQ(SfdiskList(disk.image()), ListRows(layout));
}

TEST(StoreMbrTable, SixtyLogicalPartitionsAreAcceptedAndPlacedAlike) {
  StorageDisk disk(kGiB);
  DiskLayout layout = ManyLogicalRows(60);
  ASSERT_EQ(WriteLayout(disk.device(), layout, {}), ERROR_SUCCESS);
  ExpectAccepted(disk, 63);
  EXPECT_EQ(PartedExtents(disk), RowExtents(layout));
}

TEST(StoreMbrTable, EmptyTableIsAccepted) {
  StorageDisk disk(kGiB);
  ASSERT_EQ(CreateDisk(disk.device(), MbrRequest(0x55667788)), ERROR_SUCCESS);
  ExpectAccepted(disk, 0);
}

TEST(StoreGptTable, EmptyTableIsAccepted) {
  StorageDisk disk(kGiB);
  ASSERT_EQ(CreateDisk(disk.device(), GptRequest(1, 128)), ERROR_SUCCESS);
  ExpectAccepted(disk, 0);
  ExpectSgdiskAccepts(disk);
}

// `count` partitions of 1 MiB with names and, on some, attributes.
DiskLayout ManyGptRows(std::uint32_t count) {
  std::vector<PARTITION_INFORMATION_EX> rows;
  for (std::uint32_t i = 0; i < count; ++i) {
    const DWORD64 attributes = i % 3 == 0 ? 0x8000000000000001 : 0;
    rows.push_back(
        GptRow((1 + i) * kMiB, kMiB, 1000 + i, "partition " + std::to_string(i), attributes));
  }
  return GptLayout(rows);
}

class StoreGptEntries : public ::testing::TestWithParam<std::uint32_t> {};

TEST_P(StoreGptEntries, AreAcceptedAndListedAlikeWithNamesAndAttributes) {
  StorageDisk disk(kGiB);
  ASSERT_EQ(CreateDisk(disk.device(), GptRequest(1, GetParam())), ERROR_SUCCESS);
  DiskLayout layout = ManyGptRows(GetParam());
  ASSERT_EQ(WriteLayout(disk.device(), layout, {}), ERROR_SUCCESS);
  ExpectAccepted(disk, GetParam());
  ExpectSgdiskAccepts(disk);
  EXPECT_EQ(SfdiskList(disk.image()), ListRows(layout));
  const auto partitions = ReadSfdiskTable(disk.image()).rows;
  ASSERT_EQ(partitions.size(), GetParam());
  for (std::size_t i = 0; i < partitions.size(); ++i) {
    EXPECT_EQ(partitions[i].attributes, i % 3 == 0 ? "RequiredPartition GUID:63" : "")
        << "partition " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Counts, StoreGptEntries, ::testing::Values(128, 256));

TEST(StoreGptTable, WritingByTheBackupRestoresADamagedPrimary) {
  StorageDisk disk(kGiB);
  ASSERT_EQ(CreateDisk(disk.device(), GptRequest(1, 128)), ERROR_SUCCESS);
  DiskLayout layout = ManyGptRows(5);
  ASSERT_EQ(WriteLayout(disk.device(), layout, {}), ERROR_SUCCESS);
  ASSERT_TRUE(disk.FillSector(1, std::byte{0}) && disk.FillSector(2, std::byte{0}));
  DiskLayout read = ReadBack(disk);
  EXPECT_EQ(ListRows(read), ListRows(layout));
  ASSERT_EQ(WriteLayout(disk.device(), read, {}), ERROR_SUCCESS);
  ExpectAccepted(disk, 5);
  ExpectSgdiskAccepts(disk);
  EXPECT_EQ(SfdiskList(disk.image()), ListRows(layout));
}

// ---- Read by the store --------------------------------------------------------------------------

// An MBR with two primaries and as many logical partitions as sfdisk makes.
void MakeMbrWithSfdisk(StorageDisk& disk) {
  std::string script =
      "label: dos\nlabel-id: 0xdeadbeef\nunit: sectors\n"
      "start=2048, size=20480, type=7, bootable\n"
      "start=22528, size=20480, type=83\n"
      "start=43008, type=5\n";
  for (std::size_t i = 0; i < kSfdiskLogicalPartitions; ++i)
    script += "size=4096, type=" + std::string(i % 2 ? "7" : "c") + "\n";
  ExpectSuccess(RunTool({"sfdisk", "-q", disk.image().string()}, script));
}

void MakeGptWithSgdisk(StorageDisk& disk, int count) {
  std::vector<std::string> argv = {"sgdisk", "-o"};
  for (int i = 1; i <= count; ++i) {
    const std::string number = std::to_string(i);
    argv.insert(argv.end(), {"-n", number + ":0:+1M", "-c", number + ":name " + number, "-t",
                             number + (i % 2 ? ":0700" : ":8300")});
  }
  argv.insert(argv.end(), {"-A", "3:set:63", disk.image().string()});
  ExpectSuccess(RunTool(argv));
}

TEST(ForeignMbrTable, LogicalPartitionsOfSfdiskAreReadAlike) {
  StorageDisk disk(kGiB);
  MakeMbrWithSfdisk(disk);
  const DiskLayout layout = ReadBack(disk);
  EXPECT_EQ(layout.header.PartitionStyle, DWORD{PARTITION_STYLE_MBR});
  EXPECT_EQ(layout.header.Mbr.Signature, 0xDEADBEEFu);
  EXPECT_EQ(layout.rows.size(), (1 + kSfdiskLogicalPartitions) * 4);
  EXPECT_EQ(ListRows(layout), SfdiskList(disk.image()));
}

TEST(ForeignMbrTable, ReadAndWrittenBackItIsTheSame) {
  StorageDisk disk(kGiB);
  MakeMbrWithSfdisk(disk);
  const auto before = SfdiskList(disk.image());
  DiskLayout layout = ReadBack(disk);
  for (auto& row : layout.rows) row.RewritePartition = 1;
  ASSERT_EQ(WriteLayout(disk.device(), layout, {}), ERROR_SUCCESS);
  EXPECT_EQ(SfdiskList(disk.image()), before);
  ExpectAccepted(disk, kSfdiskLogicalPartitions + 3);
}

TEST(ForeignMbrTable, SixtyLogicalPartitionsOfPartedAreReadAlike) {
  StorageDisk disk(kGiB);
  std::vector<std::string> argv = {"parted",  "-s",       disk.image().string(),
                                   "mklabel", "msdos",    "mkpart",
                                   "primary", "1MiB",     "100MiB",
                                   "mkpart",  "extended", "100MiB",
                                   "900MiB"};
  for (int i = 0; i < 60; ++i) {
    const int start = 101 + 10 * i;
    argv.insert(argv.end(), {"mkpart", "logical", std::to_string(start) + "MiB",
                             std::to_string(start + 8) + "MiB"});
  }
  ExpectSuccess(RunTool(argv));
  const DiskLayout layout = ReadBack(disk);
  EXPECT_EQ(layout.rows.size(), 61u * 4);
  EXPECT_EQ(RowExtents(layout), PartedExtents(disk));
  EXPECT_EQ(RowExtents(layout).size(), 62u);
}

TEST(ForeignGptTable, EntriesOfSgdiskAreReadAlikeWithNamesAndAttributes) {
  StorageDisk disk(kGiB);
  MakeGptWithSgdisk(disk, 128);
  const DiskLayout layout = ReadBack(disk);
  EXPECT_EQ(layout.header.PartitionStyle, DWORD{PARTITION_STYLE_GPT});
  EXPECT_EQ(GuidText(layout.header.Gpt.DiskId), ReadSfdiskTable(disk.image()).id);
  EXPECT_EQ(ListRows(layout), SfdiskList(disk.image()));
  ASSERT_EQ(layout.rows.size(), 128u);
  EXPECT_EQ(layout.rows[2].Gpt.Attributes, 0x8000000000000000u);
}

TEST(ForeignGptTable, ReadAndWrittenBackItIsTheSame) {
  StorageDisk disk(kGiB);
  MakeGptWithSgdisk(disk, 128);
  const auto before = SfdiskList(disk.image());
  DiskLayout layout = ReadBack(disk);
  ASSERT_EQ(WriteLayout(disk.device(), layout, {}), ERROR_SUCCESS);
  EXPECT_EQ(SfdiskList(disk.image()), before);
  ExpectAccepted(disk, 128);
  ExpectSgdiskAccepts(disk);
}

TEST(ForeignGptTable, ResizedArrayIsReadAndWritten) {
  StorageDisk disk(kGiB);
  MakeGptWithSgdisk(disk, 3);
  ExpectSuccess(RunTool({"sgdisk", "-S", "300", disk.image().string()}));
  DiskLayout layout = ReadBack(disk);
  EXPECT_EQ(layout.header.Gpt.MaxPartitionCount, 300u);
  const auto before = SfdiskList(disk.image());
  ASSERT_EQ(WriteLayout(disk.device(), layout, {}), ERROR_SUCCESS);
  EXPECT_EQ(SfdiskList(disk.image()), before);
  ExpectSgdiskAccepts(disk);
}

}  // namespace
}  // namespace simulator::storage_testing
