// An empty disk of its own for a test of the storage, and rows to put on it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/win32_types.h"
#include "simulator/storage/block_device.h"
#include "simulator/storage/on_disk.h"
#include "simulator/storage/partition_store.h"
#include "support/temp_folder.h"

namespace simulator::storage_testing {

inline constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

// A sparse image in a temporary folder, opened.
class StorageDisk {
 public:
  explicit StorageDisk(std::uint64_t size, std::uint32_t sector_size = 512)
      : image_(MakeImage(folder_.path() / "disk.img", size)), device_(image_, sector_size) {}

  std::filesystem::path image() const { return image_; }
  BlockDevice& device() { return device_; }

  // The bytes of one sector; of none when it cannot be read.
  std::vector<std::byte> Sector(std::uint64_t sector) {
    std::vector<std::byte> bytes(device_.sector_size());
    if (!device_.Read(sector * bytes.size(), bytes)) bytes.clear();
    return bytes;
  }
  bool SetSector(std::uint64_t sector, const std::vector<std::byte>& bytes) {
    return device_.Write(sector * device_.sector_size(), bytes);
  }
  bool FillSector(std::uint64_t sector, std::byte value) {
    return SetSector(sector, std::vector<std::byte>(device_.sector_size(), value));
  }
  BootRecord Record(std::uint64_t sector) { return Load<BootRecord>(Sector(sector)); }
  // Replaces the first bytes of a sector.
  template <typename T>
  bool Put(std::uint64_t sector, const T& value) {
    std::vector<std::byte> bytes = Sector(sector);
    Store(value, bytes);
    return SetSector(sector, bytes);
  }

 private:
  static std::filesystem::path MakeImage(std::filesystem::path image, std::uint64_t size) {
    CreateSparseImage(image, size);
    return image;
  }

  testing_support::TempFolder folder_;
  std::filesystem::path image_;
  BlockDevice device_;
};

// A row to be written. Start and length in bytes.
inline PARTITION_INFORMATION_EX MbrRow(BYTE type, std::uint64_t start, std::uint64_t length,
                                       bool active = false) {
  auto row = PARTITION_INFORMATION_EX();
  row.PartitionStyle = PARTITION_STYLE_MBR;
  row.StartingOffset.QuadPart = static_cast<LONGLONG>(start);
  row.PartitionLength.QuadPart = static_cast<LONGLONG>(length);
  row.RewritePartition = 1;
  row.Mbr.PartitionType = type;
  row.Mbr.BootIndicator = active ? 1 : 0;
  return row;
}

inline PARTITION_INFORMATION_EX UnusedRow() {
  return MbrRow(0, 0, 0);
}

inline DiskLayout MbrLayout(DWORD signature, std::vector<PARTITION_INFORMATION_EX> rows) {
  DiskLayout layout;
  layout.header.PartitionStyle = PARTITION_STYLE_MBR;
  layout.header.PartitionCount = static_cast<DWORD>(rows.size());
  layout.header.Mbr.Signature = signature;
  layout.rows = std::move(rows);
  return layout;
}

inline constexpr DWORD kSignature = 0x1A2B3C4D;

inline DiskLayout OnePartition(BYTE type = 0x07) {
  return MbrLayout(kSignature,
                   {MbrRow(type, kMiB, 10 * kMiB), UnusedRow(), UnusedRow(), UnusedRow()});
}

// A container of `count` logical partitions of 1 MiB, each with its boot record 1 MiB in front of
// it. The container starts at 1 MiB.
inline DiskLayout ChainLayout(DWORD signature, std::uint64_t count) {
  std::vector<PARTITION_INFORMATION_EX> rows = {MbrRow(0x0F, kMiB, 2 * count * kMiB), UnusedRow(),
                                                UnusedRow(), UnusedRow()};
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t record = (1 + 2 * i) * kMiB;
    rows.push_back(MbrRow(0x07, record + kMiB, kMiB));
    rows.push_back(i + 1 < count ? MbrRow(0x05, record + 2 * kMiB, 2 * kMiB) : UnusedRow());
    rows.push_back(UnusedRow());
    rows.push_back(UnusedRow());
  }
  return MbrLayout(signature, rows);
}

inline GUID MakeGuid(std::uint32_t number) {
  return {number, 0x1234, 0x5678, {0x80, 1, 2, 3, 4, 5, 6, 7}};
}

// EBD0A0A2-B9E5-4433-87C0-68B6B72699C7.
inline constexpr GUID kBasicData = {
    0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};

inline bool SameGuid(const GUID& a, const GUID& b) {
  return a.Data1 == b.Data1 && a.Data2 == b.Data2 && a.Data3 == b.Data3 &&
         std::equal(a.Data4, a.Data4 + 8, b.Data4);
}

// `id` fills the unique GUID; `name` is ASCII.
inline PARTITION_INFORMATION_EX GptRow(std::uint64_t start, std::uint64_t length, std::uint32_t id,
                                       std::string_view name = {}, DWORD64 attributes = 0) {
  auto row = PARTITION_INFORMATION_EX();
  row.PartitionStyle = PARTITION_STYLE_GPT;
  row.StartingOffset.QuadPart = static_cast<LONGLONG>(start);
  row.PartitionLength.QuadPart = static_cast<LONGLONG>(length);
  row.Gpt.PartitionType = kBasicData;
  row.Gpt.PartitionId = MakeGuid(id);
  row.Gpt.Attributes = attributes;
  std::copy_n(name.begin(), std::min<std::size_t>(name.size(), 36), row.Gpt.Name);
  return row;
}

inline DiskLayout GptLayout(std::vector<PARTITION_INFORMATION_EX> rows) {
  DiskLayout layout;
  layout.header.PartitionStyle = PARTITION_STYLE_GPT;
  layout.header.PartitionCount = static_cast<DWORD>(rows.size());
  layout.rows = std::move(rows);
  return layout;
}

inline CREATE_DISK GptRequest(std::uint32_t id, DWORD max_partition_count) {
  auto request = CREATE_DISK();
  request.PartitionStyle = PARTITION_STYLE_GPT;
  request.Gpt.DiskId = MakeGuid(id);
  request.Gpt.MaxPartitionCount = max_partition_count;
  return request;
}

inline CREATE_DISK MbrRequest(DWORD signature) {
  auto request = CREATE_DISK();
  request.PartitionStyle = PARTITION_STYLE_MBR;
  request.Mbr.Signature = signature;
  return request;
}

inline CREATE_DISK RawRequest() {
  auto request = CREATE_DISK();
  request.PartitionStyle = PARTITION_STYLE_RAW;
  return request;
}

inline DWORD Write(StorageDisk& disk, DiskLayout layout, const StoreSwitches& switches = {}) {
  return WriteLayout(disk.device(), layout, switches);
}

// What the store reads of the disk now.
inline DiskLayout ReadBack(StorageDisk& disk) {
  DiskLayout layout;
  EXPECT_EQ(ReadLayout(disk.device(), layout), ERROR_SUCCESS);
  EXPECT_EQ(layout.header.PartitionCount, layout.rows.size());
  return layout;
}

}  // namespace simulator::storage_testing
