// Reads and writes of the whole disk, where no volume stands in the way.
#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

constexpr std::uint64_t kPlace = 64 * kMiB;

using DiskTransfer = DiskTest;

TEST_F(DiskTransfer, WrittenSectorsComeBack) {
  const Bytes bytes(3 * kSector, std::byte{0x5A});
  const File disk = OpenDisk();
  ASSERT_EQ(Write(disk, kPlace, bytes), DWORD{ERROR_SUCCESS});
  EXPECT_TRUE(win32::FlushFileBuffers(disk.get()));
  EXPECT_EQ(Read(disk, kPlace, bytes.size()).bytes, bytes);
}

TEST_F(DiskTransfer, TransferMovesThePosition) {
  const File disk = OpenDisk();
  ASSERT_EQ(Write(disk, kPlace, Bytes(kSector, std::byte{1})), DWORD{ERROR_SUCCESS});
  DWORD done = 0;
  const Bytes next(kSector, std::byte{2});
  ASSERT_TRUE(win32::WriteFile(disk.get(), next.data(), kSector, &done, nullptr));
  EXPECT_EQ(Read(disk, kPlace + kSector, kSector).bytes, next);
}

TEST_F(DiskTransfer, LastSectorIsReachable) {
  const File disk = OpenDisk();
  const Bytes bytes(kSector, std::byte{0x5A});
  const std::uint64_t place = (sector_count_ - 1) * kSector;
  ASSERT_EQ(Write(disk, place, bytes), DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Read(disk, place, kSector).bytes, bytes);
}

TEST_F(DiskTransfer, LengthThatIsNoMultipleOfTheSectorIsError87) {
  const File disk = OpenDisk();
  EXPECT_EQ(Read(disk, kPlace, 100).error, DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Write(disk, kPlace, Bytes(kSector + 1)), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskTransfer, PositionThatIsNoMultipleOfTheSectorIsError87) {
  const File disk = OpenDisk();
  EXPECT_EQ(Read(disk, kPlace + 100, kSector).error, DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Write(disk, kPlace + 1, Bytes(kSector)), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskTransfer, TransferBehindTheEndIsError27) {
  const File disk = OpenDisk();
  const std::uint64_t end = sector_count_ * kSector;
  EXPECT_EQ(Read(disk, end, kSector).error, DWORD{ERROR_SECTOR_NOT_FOUND});
  EXPECT_EQ(Write(disk, end, Bytes(kSector)), DWORD{ERROR_SECTOR_NOT_FOUND});
}

TEST_F(DiskTransfer, TransferAcrossTheEndIsRefusedWhole) {
  const File disk = OpenDisk();
  const std::uint64_t last = (sector_count_ - 1) * kSector;
  const Answer answer = Read(disk, last, 2 * kSector);
  EXPECT_EQ(answer.error, DWORD{ERROR_SECTOR_NOT_FOUND});
  EXPECT_TRUE(answer.bytes.empty());
  EXPECT_EQ(Write(disk, last, Bytes(2 * kSector, std::byte{0x33})), DWORD{ERROR_SECTOR_NOT_FOUND});
  EXPECT_EQ(Read(disk, last, kSector).bytes, Bytes(kSector));
}

TEST_F(DiskTransfer, AccessIsWhatTheOpenAskedFor) {
  EXPECT_EQ(Write(OpenDisk(GENERIC_READ), kPlace, Bytes(kSector)), DWORD{ERROR_ACCESS_DENIED});
  EXPECT_EQ(Read(OpenDisk(GENERIC_WRITE), kPlace, kSector).error, DWORD{ERROR_ACCESS_DENIED});
}

TEST_F(DiskTransfer, EndIsNoPlaceToCountFrom) {
  LARGE_INTEGER distance;
  distance.QuadPart = 0;
  const File disk = OpenDisk();
  EXPECT_FALSE(win32::SetFilePointerEx(disk.get(), distance, nullptr, FILE_END));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_FUNCTION});
}

TEST_F(DiskTransfer, CleanZeroesTheFirstAndTheLastMiB) {
  const Bytes dirty(kSector, std::byte{0x5A});
  const std::uint64_t places[] = {0, kSectorsPerMiB - 1, sector_count_ - kSectorsPerMiB,
                                  sector_count_ - 1};
  const std::uint64_t kept[] = {kSectorsPerMiB, sector_count_ - kSectorsPerMiB - 1};
  for (const std::uint64_t sector : places) SetSectors(sector, dirty);
  for (const std::uint64_t sector : kept) SetSectors(sector, dirty);
  ASSERT_EQ(Diskpart("clean\r\n"), 0u);
  for (const std::uint64_t sector : places) EXPECT_EQ(Sectors(sector), Bytes(kSector)) << sector;
  for (const std::uint64_t sector : kept) EXPECT_EQ(Sectors(sector), dirty) << sector;
}

}  // namespace
}  // namespace conformance
