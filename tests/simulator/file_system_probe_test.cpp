#include "simulator/storage/file_system_probe.h"

#include <gtest/gtest.h>
#include <string_view>
#include <vector>

#include "simulator/storage_disk.h"

namespace simulator::storage_testing {
namespace {

// Two KiB that a test fills with a volume's first structures, and the place on a disk for them.
class ProbeTest : public ::testing::Test {
 protected:
  static constexpr std::uint64_t kOffset = kMiB;

  void Text(std::size_t offset, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      bytes_[offset + i] = static_cast<std::byte>(text[i]);
    }
  }
  template <typename T>
  void Number(std::size_t offset, T value) {
    Store(Little<T>(value), std::span(bytes_).subspan(offset));
  }
  void Byte(std::size_t offset, std::uint8_t value) { bytes_[offset] = std::byte{value}; }

  // What is found there, as "kind cluster size total sectors".
  std::string Found() {
    const FileSystemInfo info = Probe();
    return std::string(FileSystemName(info.kind)) + " " + std::to_string(info.cluster_size) + " " +
           std::to_string(info.total_sectors);
  }
  // The kind of what `make` makes, with one byte replaced.
  template <typename Make>
  FileSystem KindWith(Make make, std::size_t offset, std::uint8_t value) {
    make();
    Byte(offset, value);
    return Probe().kind;
  }
  FileSystemInfo Probe() {
    EXPECT_TRUE(disk_.device().Write(kOffset, bytes_));
    return ProbeFileSystem(disk_.device(), kOffset);
  }

  void MakeNtfs() {
    Text(3, "NTFS    ");
    Number<std::uint16_t>(11, 512);
    Byte(13, 8);
    Number<std::uint64_t>(40, 204799);
    Number<std::uint16_t>(510, kBootSignature);
  }
  void MakeExfat() {
    Text(3, "EXFAT   ");
    Number<std::uint64_t>(72, 204800);
    Byte(108, 9);
    Byte(109, 6);
    Number<std::uint16_t>(510, kBootSignature);
  }
  void MakeRefs() {
    Text(3, "ReFS");
    Text(16, "FSRS");
    Number<std::uint64_t>(24, 204800);
    Number<std::uint32_t>(32, 512);
    Number<std::uint32_t>(36, 8);
  }
  // `short_fat` 0 makes it a FAT32.
  void MakeFat(std::uint16_t root_entries, std::uint16_t short_fat, std::uint32_t total) {
    Byte(0, 0xEB);
    Number<std::uint16_t>(11, 512);
    Byte(13, 1);
    Number<std::uint16_t>(14, 1);
    Byte(16, 2);
    Number<std::uint16_t>(17, root_entries);
    Byte(21, 0xF8);
    Number<std::uint16_t>(22, short_fat);
    Number<std::uint32_t>(32, total);
    Number<std::uint32_t>(36, 600);
  }
  void MakeExt(std::uint32_t compatible, std::uint32_t incompatible, std::uint32_t read_only) {
    Number<std::uint32_t>(1024 + 24, 2);
    Number<std::uint16_t>(1024 + 56, 0xEF53);
    Number<std::uint32_t>(1024 + 92, compatible);
    Number<std::uint32_t>(1024 + 96, incompatible);
    Number<std::uint32_t>(1024 + 100, read_only);
  }

  StorageDisk disk_{4 * kMiB};
  std::vector<std::byte> bytes_ = std::vector<std::byte>(2048);
};

TEST_F(ProbeTest, NothingIsNone) {
  EXPECT_EQ(Found(), "none 0 0");
}

TEST_F(ProbeTest, RangeThatLeavesTheDiskIsNone) {
  EXPECT_EQ(ProbeFileSystem(disk_.device(), 4 * kMiB).kind, FileSystem::kNone);
  EXPECT_EQ(ProbeFileSystem(disk_.device(), 4 * kMiB - 511).kind, FileSystem::kNone);
  EXPECT_EQ(ProbeFileSystem(disk_.device(), 4 * kMiB - 512).kind, FileSystem::kNone);
  EXPECT_EQ(ProbeFileSystem(disk_.device(), ~std::uint64_t{0}).kind, FileSystem::kNone);
}

TEST_F(ProbeTest, Ntfs) {
  MakeNtfs();
  EXPECT_EQ(Found(), "NTFS 4096 204799");
}

TEST_F(ProbeTest, NtfsWithLargeClustersNotesAPowerOfTwo) {
  MakeNtfs();
  Byte(13, 0xF4);
  EXPECT_EQ(Probe().cluster_size, 2048u * 1024);
}

TEST_F(ProbeTest, DamagedNtfsIsNone) {
  const std::vector<std::pair<std::size_t, std::uint8_t>> breaks = {
      {510, 0}, {511, 0}, {13, 0}, {13, 0x90}, {11, 0xF4}};
  for (const auto& [offset, value] : breaks) {
    EXPECT_EQ(KindWith([this] { MakeNtfs(); }, offset, value), FileSystem::kNone) << offset;
  }
}

TEST_F(ProbeTest, Exfat) {
  MakeExfat();
  EXPECT_EQ(Found(), "exFAT 32768 204800");
}

TEST_F(ProbeTest, DamagedExfatIsNone) {
  EXPECT_EQ(KindWith([this] { MakeExfat(); }, 108, 200), FileSystem::kNone);
  EXPECT_EQ(KindWith([this] { MakeExfat(); }, 109, 200), FileSystem::kNone);
}

TEST_F(ProbeTest, Refs) {
  MakeRefs();
  EXPECT_EQ(Found(), "ReFS 4096 204800");
}

TEST_F(ProbeTest, RefsWithoutItsSecondMarkIsNone) {
  EXPECT_EQ(KindWith([this] { MakeRefs(); }, 16, 0), FileSystem::kNone);
}

TEST_F(ProbeTest, Fat32HasNoShortFat) {
  MakeFat(0, 0, 80000);
  EXPECT_EQ(Found(), "FAT32 512 80000");
}

// Metadata: 1 reserved sector, two FATs of 16 sectors, 32 sectors of root directory.
TEST_F(ProbeTest, FourThousandEightyFiveClustersDivideFat12FromFat16) {
  MakeFat(512, 16, 65 + 4084);
  EXPECT_EQ(Probe().kind, FileSystem::kFat12);
  MakeFat(512, 16, 65 + 4085);
  EXPECT_EQ(Probe().kind, FileSystem::kFat16);
}

TEST_F(ProbeTest, ShortTotalIsPreferred) {
  MakeFat(512, 16, 99999);
  Number<std::uint16_t>(19, 30000);
  EXPECT_EQ(Probe().total_sectors, 30000u);
}

TEST_F(ProbeTest, EachBrokenFatParameterMakesItNone) {
  const std::vector<std::pair<std::size_t, std::uint8_t>> breaks = {
      {0, 0x00}, {11, 1}, {13, 0}, {13, 3}, {14, 0}, {16, 0}, {21, 0x42}};
  for (const auto& [offset, value] : breaks) {
    MakeFat(512, 16, 30000);
    Byte(offset, value);
    EXPECT_EQ(Probe().kind, FileSystem::kNone) << "byte " << offset;
  }
}

TEST_F(ProbeTest, FatWithoutRoomForDataIsNone) {
  MakeFat(512, 16, 65);
  EXPECT_EQ(Probe().kind, FileSystem::kNone);
}

TEST_F(ProbeTest, FatNeedsNoBootSignature) {
  MakeFat(0, 0, 80000);
  Number<std::uint16_t>(510, 0);
  EXPECT_EQ(Probe().kind, FileSystem::kFat32);
}

TEST_F(ProbeTest, ExtKindsDifferByTheirFeatures) {
  MakeExt(0, 0x2, 0x3);
  EXPECT_EQ(Probe().kind, FileSystem::kExt2);
  EXPECT_EQ(Probe().cluster_size, 4096u);
  MakeExt(0x4, 0x2, 0x3);
  EXPECT_EQ(Probe().kind, FileSystem::kExt3);
  MakeExt(0x4, 0x42, 0x3);  // extents
  EXPECT_EQ(Probe().kind, FileSystem::kExt4);
  MakeExt(0x4, 0x2, 0x403);  // checksums of metadata
  EXPECT_EQ(Probe().kind, FileSystem::kExt4);
}

TEST_F(ProbeTest, DamagedSuperblockIsNone) {
  MakeExt(0, 2, 3);
  Number<std::uint16_t>(1024 + 56, 0xEF54);
  EXPECT_EQ(Probe().kind, FileSystem::kNone);
  MakeExt(0, 2, 3);
  Number<std::uint32_t>(1024 + 24, 7);
  EXPECT_EQ(Probe().kind, FileSystem::kNone);
}

TEST_F(ProbeTest, BootSectorGoesBeforeALeftOverSuperblock) {
  MakeExt(0x4, 0x42, 0x3);
  MakeFat(0, 0, 80000);
  EXPECT_EQ(Probe().kind, FileSystem::kFat32);
}

TEST(FileSystemKinds, WindowsMountsItsOwn) {
  for (const FileSystem kind : {FileSystem::kNtfs, FileSystem::kFat12, FileSystem::kFat16,
                                FileSystem::kFat32, FileSystem::kExfat, FileSystem::kRefs}) {
    EXPECT_TRUE(IsMountedByWindows(kind)) << FileSystemName(kind);
  }
  for (const FileSystem kind :
       {FileSystem::kNone, FileSystem::kExt2, FileSystem::kExt3, FileSystem::kExt4}) {
    EXPECT_FALSE(IsMountedByWindows(kind)) << FileSystemName(kind);
  }
}

TEST(FileSystemKinds, NamesAreTheCustomaryOnes) {
  EXPECT_EQ(FileSystemName(FileSystem::kNone), "none");
  EXPECT_EQ(FileSystemName(FileSystem::kNtfs), "NTFS");
  EXPECT_EQ(FileSystemName(FileSystem::kFat12), "FAT12");
  EXPECT_EQ(FileSystemName(FileSystem::kFat16), "FAT16");
  EXPECT_EQ(FileSystemName(FileSystem::kFat32), "FAT32");
  EXPECT_EQ(FileSystemName(FileSystem::kExfat), "exFAT");
  EXPECT_EQ(FileSystemName(FileSystem::kRefs), "ReFS");
  EXPECT_EQ(FileSystemName(FileSystem::kExt2), "ext2");
  EXPECT_EQ(FileSystemName(FileSystem::kExt3), "ext3");
  EXPECT_EQ(FileSystemName(FileSystem::kExt4), "ext4");
}

}  // namespace
}  // namespace simulator::storage_testing
