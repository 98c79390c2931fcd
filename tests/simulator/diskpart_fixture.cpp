#include "simulator/diskpart_fixture.h"

#include <fstream>

#include "simulator/commands/diskpart.h"
#include "simulator/disk.h"
#include "simulator/seam_fixture.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/partition_store.h"

namespace testing_support {

using simulator::Disk;
using simulator::DiskLayout;

namespace {

void SetRows(simulator::SimulatedMachine& machine, Disk& disk,
             const std::vector<PARTITION_INFORMATION_EX>& rows) {
  DiskLayout layout = LayoutOf(disk);
  layout.rows = rows;
  layout.header.PartitionCount = static_cast<DWORD>(rows.size());
  EXPECT_EQ(machine.SetLayout(disk, layout), ERROR_SUCCESS);
}

}  // namespace

Disk& DiskpartTest::AttachDisk(std::uint64_t size) {
  const auto image = folder_.path() / "disk.img";
  simulator::CreateSparseImage(image, size);
  return machine_.AttachDisk(1, image);
}

void DiskpartTest::MakeGpt(Disk& disk, const std::vector<Range>& partitions) {
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_GPT;
  request.Gpt.DiskId = machine_.NextGuid();
  request.Gpt.MaxPartitionCount = 128;
  ASSERT_EQ(machine_.CreateDisk(disk, request), ERROR_SUCCESS);
  std::vector<PARTITION_INFORMATION_EX> rows;
  for (const Range& partition : partitions) {
    rows.push_back(NewRow(PARTITION_STYLE_GPT, partition.offset, partition.length));
    rows.back().Gpt.PartitionType = kBasicDataType;
    rows.back().Gpt.PartitionId = machine_.NextGuid();
  }
  if (!rows.empty()) SetRows(machine_, disk, rows);
}

void DiskpartTest::MakeMbr(Disk& disk) {
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_MBR;
  request.Mbr.Signature = 0x12345678;
  ASSERT_EQ(machine_.CreateDisk(disk, request), ERROR_SUCCESS);
  const PARTITION_INFORMATION_EX unused = MbrRow(0, 0, 0);
  SetRows(machine_, disk,
          {MbrRow(1 * kMiB, 8 * kMiB, 0x07), MbrRow(16 * kMiB, 8 * kMiB, 0x07),
           MbrRow(32 * kMiB, 16 * kMiB, 0x0F), unused, MbrRow(33 * kMiB, 8 * kMiB, 0x07), unused,
           unused, unused});
}

DWORD DiskpartTest::RunScript(std::string_view script) {
  std::ofstream(folder_.path() / "script.txt", std::ios::binary) << script;
  const auto result = simulator::RunDiskpart(machine_.system(), {"/s", "X:\\script.txt"});
  output_ = result.output;
  return result.exit_status;
}

DWORD DiskpartTest::Run(std::initializer_list<std::string_view> lines) {
  std::string script;
  for (const std::string_view line : lines) script += std::string(line) + "\r\n";
  return RunScript(script);
}

DWORD DiskpartTest::RunOnDisk(std::initializer_list<std::string_view> lines) {
  std::string script = "select disk 1\r\n";
  for (const std::string_view line : lines) script += std::string(line) + "\r\n";
  return RunScript(script);
}

DiskLayout LayoutOf(Disk& disk) {
  DiskLayout layout;
  EXPECT_EQ(disk.Layout(layout), ERROR_SUCCESS);
  return layout;
}

std::vector<std::byte> Bytes(Disk& disk, std::uint64_t offset, std::size_t length) {
  std::vector<std::byte> bytes(length);
  EXPECT_TRUE(disk.device().Read(offset, bytes));
  return bytes;
}

void Fill(Disk& disk, std::uint64_t offset, std::size_t length, std::byte value) {
  EXPECT_TRUE(disk.device().Write(offset, std::vector<std::byte>(length, value)));
}

}  // namespace testing_support
