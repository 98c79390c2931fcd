// The ground of tests that back a disk's metadata up and write it back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <vector>

#include "backup/block_map.h"
#include "support/machine_fixture.h"

namespace testing_support {

using Bytes = std::vector<std::uint8_t>;
using ByteList = std::vector<std::byte>;
using PlaceMap = std::map<std::uint64_t, std::size_t>;  // offset and length of each block

ByteList Filled(std::size_t length, int value);

// Stores `value` as little-endian number of `width` bytes; throws std::out_of_range outside.
void PutNumber(Bytes& bytes, std::size_t offset, std::uint64_t value, std::size_t width);
void PutText(Bytes& bytes, std::size_t offset, std::string_view text);
void WriteBytes(simulator::Disk& disk, std::uint64_t offset, const Bytes& bytes);

// Fills a range with bytes that depend on their place, so that a wrong place shows.
void MarkRange(simulator::Disk& disk, std::uint64_t offset, std::uint64_t length);

// The fields of a FAT boot sector that a backup goes by.
struct FatFields {
  std::uint16_t bytes_per_sector = 512;
  std::uint8_t sectors_per_cluster = 1;
  std::uint16_t reserved_sectors = 4;
  std::uint8_t fats = 2;
  std::uint16_t root_entries = 0;
  std::uint32_t sectors_per_fat = 8;
  std::uint32_t root_cluster = 2;
};
// The first 2048 bytes of such a volume.
Bytes Fat16Start(const FatFields& fields);
Bytes Fat32Start(const FatFields& fields);
Bytes NtfsStart(std::uint64_t mft_cluster, std::uint8_t sectors_per_cluster = 8);

struct IndexEntry {
  std::uint32_t record = 0;
  std::uint16_t length = 16;
};

// An MFT record of 1024 bytes, attribute by attribute. Throws std::out_of_range when it is full.
class MftRecordBytes {
 public:
  // `first`: where the first attribute stands.
  explicit MftRecordBytes(std::uint16_t first = 56);
  // A non-resident attribute whose run list stands at byte 64.
  MftRecordBytes& AddRuns(std::uint8_t type, const Bytes& runs);
  // A resident attribute of 32 bytes.
  MftRecordBytes& AddResident(std::uint8_t type);
  MftRecordBytes& AddIndexRoot(const std::vector<IndexEntry>& entries);
  // The record with its end mark.
  Bytes Build() const;
  // Where the next attribute comes to stand.
  std::size_t position() const { return position_; }

 private:
  // Header of an attribute; `length` is made a multiple of eight.
  std::size_t Begin(std::uint8_t type, std::size_t length);

  Bytes bytes_;
  std::size_t position_;
};

// A disk of 64 MiB as number 1.
class BackupDiskTest : public MachineTest {
 protected:
  static constexpr char kDevice[] = "\\\\.\\PhysicalDrive1";
  static constexpr std::uint64_t kMiB = 1 << 20;  // bytes
  static constexpr std::uint64_t kDiskSize = 64 * kMiB;

  BackupDiskTest() : disk_(NewDisk(1, kDiskSize)) {}

  // Lets the machine see what was written, and counts its calls anew.
  void Settle();
  // Each block holds what stands on the disk at its place.
  void ExpectBytesOfDisk(const velkora::BlockMap& blocks);
  // The volumes that were dismounted, in order, as "volume <path>".
  Texts Dismounted();

  simulator::Disk& disk_;
};

// The same with an open handle and a map to select into.
class DiskParserTest : public BackupDiskTest {
 protected:
  DiskParserTest();

  HANDLE handle_;
  velkora::BlockMap blocks_;
};

PlaceMap Places(const velkora::BlockMap& blocks);

}  // namespace testing_support
