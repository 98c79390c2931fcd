#include "test_disk.h"

#include <cstring>
#include <fstream>
#include <span>
#include <stdexcept>

#include "simulator/disk.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/storage/partition_store.h"

namespace {

constexpr std::uint32_t kSectorSize = 512;
constexpr GUID kEfiSystem = {
    0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};
constexpr GUID kBasicData = {
    0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};

GUID MadeUpGuid(std::uint8_t value) {
  GUID guid{};
  std::memset(&guid, value, sizeof guid);
  return guid;
}

PARTITION_INFORMATION_EX RowOf(const TestPartition& partition, std::uint8_t id) {
  PARTITION_INFORMATION_EX row{};
  row.PartitionStyle = PARTITION_STYLE_GPT;
  row.StartingOffset.QuadPart = static_cast<LONGLONG>(partition.offset);
  row.PartitionLength.QuadPart = static_cast<LONGLONG>(partition.length);
  row.RewritePartition = TRUE;
  row.Gpt.PartitionType = partition.type;
  row.Gpt.PartitionId = MadeUpGuid(id);
  return row;
}

void Require(DWORD error, const char* what) {
  if (error != ERROR_SUCCESS) throw std::runtime_error(what);
}

// Little-endian, as all of both tables.
std::uint64_t NumberAt(const Bytes& bytes, std::size_t position, std::size_t length) {
  std::uint64_t number = 0;
  for (std::size_t i = length; i > 0; --i) number = number << 8 | bytes.at(position + i - 1);
  return number;
}

}  // namespace

std::vector<TestPartition> DataPartitions() {
  return {{kBasicData, 1 * kMib, 64 * kMib}, {kBasicData, 70 * kMib, 100 * kMib}};
}

std::vector<TestPartition> SystemPartitions() {
  return {{kEfiSystem, 1 * kMib, 64 * kMib}, {kBasicData, 70 * kMib, 100 * kMib}};
}

void MakeDisk(const std::filesystem::path& image, const std::vector<TestPartition>& partitions) {
  simulator::CreateSparseImage(image, kDiskSize);
  simulator::BlockDevice device(image);
  CREATE_DISK request{};
  request.PartitionStyle = PARTITION_STYLE_GPT;
  request.Gpt.DiskId = MadeUpGuid(0x77);
  request.Gpt.MaxPartitionCount = 128;
  Require(simulator::CreateDisk(device, request), "no empty table");
  simulator::DiskLayout layout;
  Require(simulator::ReadLayout(device, layout), "the table cannot be read");
  for (const TestPartition& partition : partitions) {
    const auto number = static_cast<std::uint8_t>(layout.rows.size() + 1);
    layout.rows.push_back(RowOf(partition, number));
    const auto first_sector = static_cast<std::uint32_t>(partition.offset / kSectorSize);
    Require(
        simulator::FormatFat32(device, {partition.offset, partition.length, first_sector, number}),
        "no file system");
  }
  layout.header.PartitionCount = static_cast<DWORD>(layout.rows.size());
  Require(simulator::WriteLayout(device, layout, {}), "the table cannot be written");
}

Bytes ReadImage(const std::filesystem::path& image, std::size_t length) {
  std::ifstream file(image, std::ios::binary);
  Bytes bytes(length);
  file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(length));
  if (!file) throw std::runtime_error("cannot read " + image.string());
  return bytes;
}

Bytes ReadDisk(simulator::Disk& disk, std::size_t length) {
  Bytes bytes(length);
  if (!disk.device().Read(0, std::as_writable_bytes(std::span(bytes)))) {
    throw std::runtime_error("cannot read the disk");
  }
  return bytes;
}

bool HoldsMbr(const Bytes& bytes, const std::vector<TestPartition>& partitions) {
  if (bytes.at(510) != 0x55 || bytes.at(511) != 0xAA) return false;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::size_t row = 446 + 16 * i;
    const std::uint8_t type = bytes[row + 4];
    if (i >= partitions.size()) {
      if (type != 0) return false;
      continue;
    }
    if (type == 0 || type == 0xEE) return false;
    if (NumberAt(bytes, row + 8, 4) != partitions[i].offset / kSectorSize) return false;
    if (NumberAt(bytes, row + 12, 4) != partitions[i].length / kSectorSize) return false;
  }
  return true;
}

bool HoldsGpt(const Bytes& bytes, const std::vector<TestPartition>& partitions) {
  if (bytes.at(446 + 4) != 0xEE) return false;
  if (std::memcmp(&bytes.at(kSectorSize), "EFI PART", 8) != 0) return false;
  for (std::size_t i = 0; i < 128; ++i) {
    const std::size_t entry = 2 * kSectorSize + 128 * i;
    if (i >= partitions.size()) {
      if (NumberAt(bytes, entry, 8) != 0) return false;
      continue;
    }
    const std::uint64_t end = partitions[i].offset + partitions[i].length;
    if (NumberAt(bytes, entry + 32, 8) != partitions[i].offset / kSectorSize) return false;
    if (NumberAt(bytes, entry + 40, 8) != end / kSectorSize - 1) return false;
  }
  return true;
}
