// Making an empty disk of a style: IOCTL_DISK_CREATE_DISK.
#include <algorithm>
#include <array>

#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

constexpr std::size_t kBootCodeLength = 440;
constexpr std::size_t kHeaderLength = 92;

std::uint32_t Crc32(const Bytes& bytes) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::byte byte : bytes) {
    crc ^= std::to_integer<std::uint32_t>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

Bytes Part(const Bytes& bytes, std::size_t offset, std::size_t length) {
  const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
  return Bytes(first, first + static_cast<std::ptrdiff_t>(length));
}

bool IsZero(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::byte b) { return b == std::byte{0}; });
}

class DiskCreate : public DiskTest {
 protected:
  DWORD Create(const CREATE_DISK& request) const {
    return Ask(OpenDisk(), IOCTL_DISK_CREATE_DISK, BytesOf(request)).error;
  }

  // Sector 0 with bytes everywhere, and the boot mark.
  Bytes FillSectorZero() const {
    Bytes sector(kSector, std::byte{0x90});
    std::fill_n(sector.begin() + 446, 64, std::byte{0});
    sector[510] = std::byte{0x55};
    sector[511] = std::byte{0xAA};
    SetSectors(0, sector);
    UpdateProperties();
    return sector;
  }

  void ExpectHeader(std::uint64_t place, std::uint64_t other, std::uint64_t array) const {
    Bytes header = Sectors(place);
    EXPECT_EQ(LoadAt<std::uint64_t>(header), 0x5452415020494645u);  // "EFI PART"
    EXPECT_EQ(LoadAt<std::uint32_t>(header, 8), 0x00010000u);
    EXPECT_EQ(LoadAt<std::uint32_t>(header, 12), kHeaderLength);
    EXPECT_EQ(LoadAt<std::uint64_t>(header, 24), place);
    EXPECT_EQ(LoadAt<std::uint64_t>(header, 32), other);
    EXPECT_EQ(LoadAt<std::uint64_t>(header, 40), 34u);
    EXPECT_EQ(LoadAt<std::uint64_t>(header, 48), sector_count_ - 34);
    EXPECT_EQ(LoadAt<std::uint64_t>(header, 72), array);
    EXPECT_EQ(LoadAt<std::uint32_t>(header, 80), 128u);
    EXPECT_EQ(LoadAt<std::uint32_t>(header, 84), 128u);
    const Bytes entries = Sectors(array, 32);
    EXPECT_TRUE(IsZero(entries));
    EXPECT_EQ(LoadAt<std::uint32_t>(header, 88), Crc32(entries));
    const auto crc = LoadAt<std::uint32_t>(header, 16);
    std::fill_n(header.begin() + 16, 4, std::byte{0});
    EXPECT_EQ(crc, Crc32(Part(header, 0, kHeaderLength)));
  }
};

TEST_F(DiskCreate, MbrDiskHasItsSignatureAndFourUnusedRows) {
  ASSERT_EQ(CreateMbr(0x11223344), DWORD{ERROR_SUCCESS});
  const DriveLayout layout = GetLayout();
  EXPECT_EQ(layout.header.PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_MBR));
  EXPECT_EQ(layout.header.Mbr.Signature, DWORD{0x11223344});
  ASSERT_EQ(layout.rows.size(), 4u);
  for (const PARTITION_INFORMATION_EX& row : layout.rows) EXPECT_EQ(row.Mbr.PartitionType, 0);
}

TEST_F(DiskCreate, MbrKeepsBootCodeAndReplacesTheTable) {
  const Bytes before = FillSectorZero();
  ASSERT_EQ(CreateMbr(0x11223344), DWORD{ERROR_SUCCESS});
  const Bytes after = Sectors(0);
  EXPECT_EQ(Part(after, 0, kBootCodeLength), Part(before, 0, kBootCodeLength));
  EXPECT_EQ(LoadAt<std::uint32_t>(after, 440), 0x11223344u);
  EXPECT_EQ(Part(after, 444, 2), Part(before, 444, 2));
  EXPECT_TRUE(IsZero(Part(after, 446, 64)));
  EXPECT_EQ(LoadAt<std::uint16_t>(after, 510), 0xAA55u);
}

TEST_F(DiskCreate, MbrLeavesTheHeadersOfAnEarlierGptBehind) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  const Bytes primary = Sectors(1);
  const Bytes backup = Sectors(sector_count_ - 1);
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Sectors(1), primary);
  EXPECT_EQ(Sectors(sector_count_ - 1), backup);
}

TEST_F(DiskCreate, GptWritesTwoSoundCopiesOfTheTable) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  ExpectHeader(1, sector_count_ - 1, 2);
  ExpectHeader(sector_count_ - 1, 1, sector_count_ - 33);
}

TEST_F(DiskCreate, GptWritesAProtectiveEntryToTheEndOfWhat32BitsCount) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  constexpr std::array<int, 16> kEntry = {0, 0, 2, 0, 0xEE, 0xFF, 0xFF, 0xFF,
                                          1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
  const Bytes sector = Sectors(0);
  for (std::size_t i = 0; i < kEntry.size(); ++i) {
    EXPECT_EQ(std::to_integer<int>(sector[446 + i]), kEntry[i]) << "byte " << i;
  }
  EXPECT_TRUE(IsZero(Part(sector, 462, 48)));
  EXPECT_EQ(LoadAt<std::uint16_t>(sector, 510), 0xAA55u);
}

TEST_F(DiskCreate, GptZeroesBootCodeAndKeepsTheSignature) {
  const Bytes before = FillSectorZero();
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  const Bytes after = Sectors(0);
  EXPECT_TRUE(IsZero(Part(after, 0, kBootCodeLength)));
  EXPECT_EQ(Part(after, 440, 4), Part(before, 440, 4));
}

TEST_F(DiskCreate, GptMakesNoReservedPartition) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  const DriveLayout layout = GetLayout();
  EXPECT_EQ(layout.header.PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_GPT));
  EXPECT_EQ(layout.header.PartitionCount, 0u);
}

TEST_F(DiskCreate, GptHasRoomForAtLeast128Partitions) {
  auto request = CREATE_DISK();
  request.PartitionStyle = PARTITION_STYLE_GPT;
  request.Gpt.DiskId = {0x5EA11D15, 1, 2, {3}};
  request.Gpt.MaxPartitionCount = 1;
  ASSERT_EQ(Create(request), DWORD{ERROR_SUCCESS});
  const DriveLayout layout = GetLayout();
  EXPECT_EQ(layout.header.Gpt.MaxPartitionCount, 128u);
  EXPECT_TRUE(SameGuid(layout.header.Gpt.DiskId, request.Gpt.DiskId));
}

TEST_F(DiskCreate, RawTakesTheTableAwayAndKeepsBootCode) {
  const Bytes before = FillSectorZero();
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  auto request = CREATE_DISK();
  request.PartitionStyle = PARTITION_STYLE_RAW;
  ASSERT_EQ(Create(request), DWORD{ERROR_SUCCESS});
  const Bytes after = Sectors(0);
  EXPECT_EQ(Part(after, 0, kBootCodeLength), Part(before, 0, kBootCodeLength));
  EXPECT_EQ(LoadAt<std::uint32_t>(after, 440), 0u);
  EXPECT_TRUE(IsZero(Part(after, 446, 66)));
  EXPECT_EQ(GetLayout().header.PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_RAW));
}

TEST_F(DiskCreate, RawZeroesBothHeadersOfAGpt) {
  ASSERT_EQ(CreateGpt(), DWORD{ERROR_SUCCESS});
  auto request = CREATE_DISK();
  request.PartitionStyle = PARTITION_STYLE_RAW;
  ASSERT_EQ(Create(request), DWORD{ERROR_SUCCESS});
  EXPECT_TRUE(IsZero(Sectors(1)));
  EXPECT_TRUE(IsZero(Sectors(sector_count_ - 1)));
}

TEST_F(DiskCreate, ShortRequestIsError24) {
  Bytes request = BytesOf(CREATE_DISK());
  request.pop_back();
  EXPECT_EQ(Ask(OpenDisk(), IOCTL_DISK_CREATE_DISK, request).error, DWORD{ERROR_BAD_LENGTH});
}

TEST_F(DiskCreate, UnknownStyleIsError50) {
  Bytes request = BytesOf(CREATE_DISK());
  request[0] = std::byte{7};
  EXPECT_EQ(Ask(OpenDisk(), IOCTL_DISK_CREATE_DISK, request).error, DWORD{ERROR_NOT_SUPPORTED});
}

TEST_F(DiskCreate, HandleThatMayNotReadAndWriteIsError5) {
  auto request = CREATE_DISK();
  request.Mbr.Signature = kSignature;
  const File disk = OpenDisk(GENERIC_READ);
  EXPECT_EQ(Ask(disk, IOCTL_DISK_CREATE_DISK, BytesOf(request)).error, DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Ask(disk, IOCTL_DISK_SET_DRIVE_LAYOUT_EX, ToBytes(MbrLayout({}))).error,
            DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Ask(OpenDisk(GENERIC_WRITE), IOCTL_DISK_CREATE_DISK, BytesOf(request)).error,
            DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Ask(OpenDisk(0), IOCTL_DISK_GET_DRIVE_LAYOUT_EX, {}, 4096).error, DWORD{ERROR_SUCCESS});
}

}  // namespace
}  // namespace conformance
