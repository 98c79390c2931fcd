#include "support/backup_disk_fixture.h"

#include <stdexcept>

#include "platform/win32.h"

namespace testing_support {
namespace {

constexpr std::size_t kVolumeStart = 2048;
constexpr std::size_t kRunList = 64;

Bytes FatStart(const FatFields& fields) {
  Bytes bytes(kVolumeStart);
  PutNumber(bytes, 11, fields.bytes_per_sector, 2);
  PutNumber(bytes, 13, fields.sectors_per_cluster, 1);
  PutNumber(bytes, 14, fields.reserved_sectors, 2);
  PutNumber(bytes, 16, fields.fats, 1);
  PutNumber(bytes, 17, fields.root_entries, 2);
  PutNumber(bytes, 510, 0xAA55, 2);
  return bytes;
}

}  // namespace

ByteList Filled(std::size_t length, int value) {
  return ByteList(length, static_cast<std::byte>(value));
}

void PutNumber(Bytes& bytes, std::size_t offset, std::uint64_t value, std::size_t width) {
  for (std::size_t i = 0; i < width; ++i) {
    bytes.at(offset + i) = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

void PutText(Bytes& bytes, std::size_t offset, std::string_view text) {
  for (const char c : text) bytes.at(offset++) = static_cast<std::uint8_t>(c);
}

void WriteBytes(simulator::Disk& disk, std::uint64_t offset, const Bytes& bytes) {
  WriteBytes(disk, offset, std::as_bytes(std::span(bytes)));
}

void MarkRange(simulator::Disk& disk, std::uint64_t offset, std::uint64_t length) {
  Bytes bytes(length);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const std::uint64_t place = offset + i;
    bytes[i] = static_cast<std::uint8_t>((place >> 9) * 7 + place);
  }
  WriteBytes(disk, offset, bytes);
}

Bytes Fat16Start(const FatFields& fields) {
  Bytes bytes = FatStart(fields);
  PutNumber(bytes, 22, fields.sectors_per_fat, 2);
  PutText(bytes, 54, "FAT16   ");
  return bytes;
}

Bytes Fat32Start(const FatFields& fields) {
  Bytes bytes = FatStart(fields);
  PutNumber(bytes, 36, fields.sectors_per_fat, 4);
  PutNumber(bytes, 44, fields.root_cluster, 4);
  PutText(bytes, 82, "FAT32   ");
  return bytes;
}

Bytes NtfsStart(std::uint64_t mft_cluster, std::uint8_t sectors_per_cluster) {
  Bytes bytes(kVolumeStart);
  PutText(bytes, 3, "NTFS    ");
  PutNumber(bytes, 11, 512, 2);
  PutNumber(bytes, 13, sectors_per_cluster, 1);
  PutNumber(bytes, 48, mft_cluster, 8);
  PutNumber(bytes, 510, 0xAA55, 2);
  return bytes;
}

MftRecordBytes::MftRecordBytes(std::uint16_t first) : bytes_(1024), position_(first) {
  PutText(bytes_, 0, "FILE");
  PutNumber(bytes_, 20, first, 2);
}

std::size_t MftRecordBytes::Begin(std::uint8_t type, std::size_t length) {
  const std::size_t start = position_;
  length = (length + 7) / 8 * 8;
  PutNumber(bytes_, start, type, 4);
  PutNumber(bytes_, start + 4, length, 4);
  position_ += length;
  return start;
}

MftRecordBytes& MftRecordBytes::AddRuns(std::uint8_t type, const Bytes& runs) {
  const std::size_t start = Begin(type, kRunList + runs.size());
  PutNumber(bytes_, start + 8, 1, 1);
  PutNumber(bytes_, start + 32, kRunList, 2);
  for (std::size_t i = 0; i < runs.size(); ++i) bytes_.at(start + kRunList + i) = runs[i];
  return *this;
}

MftRecordBytes& MftRecordBytes::AddResident(std::uint8_t type) {
  Begin(type, 32);
  return *this;
}

MftRecordBytes& MftRecordBytes::AddIndexRoot(const std::vector<IndexEntry>& entries) {
  std::size_t length = 64;
  for (const IndexEntry& entry : entries) length += entry.length;
  std::size_t place = Begin(0x90, length + 16) + 64;
  for (const IndexEntry& entry : entries) {
    PutNumber(bytes_, place, entry.record, 4);
    PutNumber(bytes_, place + 8, entry.length, 2);
    place += entry.length;
  }
  return *this;
}

Bytes MftRecordBytes::Build() const {
  Bytes bytes = bytes_;
  if (position_ + 4 <= bytes.size()) PutNumber(bytes, position_, 0xFFFFFFFF, 4);
  return bytes;
}

void BackupDiskTest::Settle() {
  machine_.UpdateProperties(disk_);
  machine_.calls().Clear();
}

Texts BackupDiskTest::Dismounted() {
  Texts volumes;
  for (const simulator::Call& call : machine_.calls().calls()) {
    if (call.name == "DeviceIoControl" && call.detail == "FSCTL_DISMOUNT_VOLUME") {
      volumes.push_back(call.arguments.substr(0, call.arguments.find(" in ")));
    }
  }
  return volumes;
}

void BackupDiskTest::ExpectBytesOfDisk(const velkora::BlockMap& blocks) {
  for (const auto& [offset, bytes] : blocks) {
    EXPECT_EQ(bytes, ReadBytes(disk_, offset, bytes.size())) << "block at " << offset;
  }
}

DiskParserTest::DiskParserTest()
    : handle_(win32::CreateFileA(kDevice, GENERIC_READ | GENERIC_WRITE,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                 nullptr)) {
  if (handle_ == INVALID_HANDLE_VALUE) throw std::runtime_error("cannot open the disk");
  machine_.calls().Clear();
}

PlaceMap Places(const velkora::BlockMap& blocks) {
  PlaceMap places;
  for (const auto& [offset, bytes] : blocks) places[offset] = bytes.size();
  return places;
}

}  // namespace testing_support
