#include "host/volume_start.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <vector>

#include "simulator/storage/fat32_format.h"
#include "simulator/storage/file_system_probe.h"
#include "simulator/storage_disk.h"

namespace velkora_host {
namespace {

using simulator::storage_testing::kMiB;
using Bytes = std::array<std::byte, kVolumeStartBytes>;

// Builds the start of a volume field by field.
class Start {
 public:
  Start& Text(std::size_t offset, std::string_view text) {
    for (const char c : text) bytes_[offset++] = static_cast<std::byte>(c);
    return *this;
  }
  Start& Number(std::size_t offset, std::uint64_t number, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) bytes_[offset + i] = std::byte(number >> (8 * i));
    return *this;
  }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_{};
};

Start Ntfs(std::uint64_t sectors_per_cluster) {
  return Start()
      .Text(3, "NTFS    ")
      .Number(11, 512, 2)
      .Number(13, sectors_per_cluster, 1)
      .Number(510, 0xAA55, 2);
}
Start Exfat() {
  return Start().Text(3, "EXFAT   ").Number(108, 9, 1).Number(109, 6, 1).Number(510, 0xAA55, 2);
}
Start Refs() {
  return Start().Text(3, "ReFS").Text(16, "FSRS").Number(32, 4096, 4).Number(36, 16, 4);
}
Start Fat(std::uint64_t total, std::uint64_t root_entries, std::uint64_t short_fat) {
  Start start;
  start.Number(0, 0xEB, 1).Number(11, 512, 2).Number(13, 4, 1).Number(14, 32, 2).Number(16, 2, 1);
  start.Number(17, root_entries, 2).Number(21, 0xF8, 1).Number(22, short_fat, 2);
  return start.Number(32, total, 4).Number(36, short_fat == 0 ? 1000 : 0, 4);
}
Start Ext(std::uint64_t compatible, std::uint64_t incompatible, std::uint64_t read_only) {
  Start start;
  start.Number(1024 + 24, 2, 4).Number(1024 + 56, 0xEF53, 2).Number(1024 + 92, compatible, 4);
  return start.Number(1024 + 96, incompatible, 4).Number(1024 + 100, read_only, 4);
}

void ExpectStart(const Start& start, VolumeFileSystem filesystem, std::uint32_t cluster_size) {
  const VolumeStart found = ReadVolumeStart(start.bytes());
  EXPECT_EQ(found.filesystem, filesystem);
  EXPECT_EQ(found.cluster_size, cluster_size);
}

TEST(VolumeStart, EachFileSystemIsToldWithItsClusterSize) {
  ExpectStart(Ntfs(8), VolumeFileSystem::kNtfs, 4096);
  ExpectStart(Ntfs(0xF4), VolumeFileSystem::kNtfs, 512 << 12);
  ExpectStart(Exfat(), VolumeFileSystem::kExfat, 512 << 6);
  ExpectStart(Refs(), VolumeFileSystem::kRefs, 65'536);
  ExpectStart(Fat(4000, 512, 12), VolumeFileSystem::kFat12, 2048);
  ExpectStart(Fat(100'000, 512, 100), VolumeFileSystem::kFat16, 2048);
  ExpectStart(Fat(1'000'000, 0, 0), VolumeFileSystem::kFat32, 2048);
  ExpectStart(Ext(0, 2, 1), VolumeFileSystem::kExt2, 4096);
  ExpectStart(Ext(4, 2, 1), VolumeFileSystem::kExt3, 4096);
  ExpectStart(Ext(4, 0x40, 1), VolumeFileSystem::kExt4, 4096);
  ExpectStart(Ext(4, 2, 8), VolumeFileSystem::kExt4, 4096);
  ExpectStart(Start(), VolumeFileSystem::kUnknown, 0);
}

TEST(VolumeStart, AVolumeThatWindowsHasFormattedIsNotTheExtVolumeThatItWas) {
  Start start = Ntfs(8);
  start.Number(1024 + 24, 2, 4).Number(1024 + 56, 0xEF53, 2);
  ExpectStart(start, VolumeFileSystem::kNtfs, 4096);
}

// What the kit tells the library is what the system itself takes the volume for.
TEST(VolumeStart, AgreesWithTheMachineOnEveryChangedByte) {
  simulator::storage_testing::StorageDisk disk(kMiB);
  std::size_t known = 0;
  for (const Start& start : {Ntfs(8), Exfat(), Refs(), Fat(4000, 512, 12), Fat(100'000, 512, 100),
                             Fat(1'000'000, 0, 0), Ext(4, 0x40, 1)}) {
    for (std::size_t at = 0; at < 1200; ++at) {
      for (const unsigned mask : {0x01U, 0x80U, 0xFFU}) {
        Bytes bytes = start.bytes();
        bytes[at] ^= std::byte(mask);
        ASSERT_TRUE(disk.device().Write(0, bytes));
        const VolumeStart found = ReadVolumeStart(bytes);
        const simulator::FileSystemInfo info = simulator::ProbeFileSystem(disk.device(), 0);
        const bool is_known = found.filesystem != VolumeFileSystem::kUnknown;
        ASSERT_EQ(is_known, info.kind != simulator::FileSystem::kNone) << "byte " << at;
        ASSERT_EQ(found.cluster_size, info.cluster_size) << "byte " << at;
        known += is_known ? 1 : 0;
      }
    }
  }
  EXPECT_GT(known, 20'000U);
}

}  // namespace
}  // namespace velkora_host
