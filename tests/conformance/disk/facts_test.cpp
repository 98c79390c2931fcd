// What a disk tells of itself: length, geometry, numbers, serial number, and when it looks again.
#include <algorithm>

#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

class DiskFacts : public DiskTest {
 protected:
  static Answer Query(const File& disk, DWORD property, std::size_t query_size, std::size_t room) {
    Bytes query(query_size);
    std::memcpy(query.data(), &property, sizeof property);
    return Ask(disk, IOCTL_STORAGE_QUERY_PROPERTY, query, room);
  }
  static constexpr std::size_t kQuery = sizeof(STORAGE_PROPERTY_QUERY);
};

TEST_F(DiskFacts, LengthOfTheWholeDiskIsThatOfItsGeometry) {
  ASSERT_EQ(CreateMbr(), DWORD{ERROR_SUCCESS});
  const Answer answer =
      Ask(OpenDisk(), IOCTL_DISK_GET_PARTITION_INFO_EX, {}, sizeof(PARTITION_INFORMATION_EX));
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  const auto info = LoadAt<PARTITION_INFORMATION_EX>(answer.bytes);
  EXPECT_EQ(info.PartitionStyle, PARTITION_STYLE_MBR);
  EXPECT_EQ(LengthOf(info), sector_count_ * kSector);
  EXPECT_EQ(OffsetOf(info), 0u);
  EXPECT_EQ(info.PartitionNumber, 0u);
  EXPECT_EQ(info.Mbr.PartitionType, 0);
}

TEST_F(DiskFacts, LengthWithTooLittleRoomIsError122) {
  EXPECT_EQ(
      Ask(OpenDisk(), IOCTL_DISK_GET_PARTITION_INFO_EX, {}, sizeof(PARTITION_INFORMATION_EX) - 1)
          .error,
      DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(DiskFacts, GeometryIs255TracksOf63Sectors) {
  const Answer answer =
      Ask(OpenDisk(), IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, {}, sizeof(DISK_GEOMETRY_EX));
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  const auto geometry = LoadAt<DISK_GEOMETRY_EX>(answer.bytes);
  EXPECT_EQ(geometry.Geometry.MediaType, FixedMedia);  // a stick may say 11, removable
  EXPECT_EQ(geometry.Geometry.TracksPerCylinder, 255u);
  EXPECT_EQ(geometry.Geometry.SectorsPerTrack, 63u);
  EXPECT_EQ(geometry.Geometry.BytesPerSector, kSector);
  EXPECT_EQ(static_cast<std::uint64_t>(geometry.Geometry.Cylinders.QuadPart),
            sector_count_ / (255 * 63));
}

TEST_F(DiskFacts, GeometryWithTooLittleRoomIsError122) {
  EXPECT_EQ(Ask(OpenDisk(), IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, {}, 31).error,
            DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(DiskFacts, DeviceNumberOfADiskHasPartitionZero) {
  const File disk = OpenDisk();
  const Answer answer =
      Ask(disk, IOCTL_STORAGE_GET_DEVICE_NUMBER, {}, sizeof(STORAGE_DEVICE_NUMBER));
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  const auto number = LoadAt<STORAGE_DEVICE_NUMBER>(answer.bytes);
  EXPECT_EQ(number.DeviceType, DWORD{FILE_DEVICE_DISK});
  EXPECT_EQ(number.DeviceNumber, machine_.spare_disk());
  EXPECT_EQ(number.PartitionNumber, 0u);
  EXPECT_EQ(Ask(disk, IOCTL_STORAGE_GET_DEVICE_NUMBER, {}, 11).error,
            DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(DiskFacts, DescriptorsHeaderTellsItsWholeSize) {
  const File disk = OpenDisk();
  const Answer header =
      Query(disk, StorageDeviceProperty, kQuery, sizeof(STORAGE_DESCRIPTOR_HEADER));
  ASSERT_EQ(header.error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(header.bytes.size(), sizeof(STORAGE_DESCRIPTOR_HEADER));
  const DWORD size = LoadAt<STORAGE_DESCRIPTOR_HEADER>(header.bytes).Size;
  EXPECT_GE(size, sizeof(STORAGE_DEVICE_DESCRIPTOR));
  const Answer whole = Query(disk, StorageDeviceProperty, kQuery, size);
  ASSERT_EQ(whole.error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(whole.bytes.size(), size);
}

TEST_F(DiskFacts, SerialNumberIsAsciiAndEndsInsideTheDescriptor) {
  const Answer answer = Query(OpenDisk(), StorageDeviceProperty, kQuery, 4096);
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  const DWORD offset = LoadAt<STORAGE_DEVICE_DESCRIPTOR>(answer.bytes).SerialNumberOffset;
  if (offset == 0) return;  // the disk has none
  ASSERT_GE(offset, offsetof(STORAGE_DEVICE_DESCRIPTOR, RawDeviceProperties));
  ASSERT_LT(offset, answer.bytes.size());
  const auto first = answer.bytes.begin() + static_cast<std::ptrdiff_t>(offset);
  const auto end = std::find(first, answer.bytes.end(), std::byte{0});
  EXPECT_NE(end, answer.bytes.end());
  EXPECT_TRUE(std::all_of(first, end,
                          [](std::byte b) { return b >= std::byte{' '} && b <= std::byte{'~'}; }));
}

TEST_F(DiskFacts, DescriptorInLessRoomThanItsHeaderIsError24) {
  EXPECT_EQ(Query(OpenDisk(), StorageDeviceProperty, kQuery, 7).error, DWORD{ERROR_BAD_LENGTH});
}

TEST_F(DiskFacts, QueryThatIsTooShortIsError87) {
  EXPECT_EQ(Query(OpenDisk(), StorageDeviceProperty, kQuery - 1, 64).error,
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskFacts, QueryOfAnUnknownPropertyIsError1) {
  EXPECT_EQ(Query(OpenDisk(), 0x7FFF, kQuery, 64).error, DWORD{ERROR_INVALID_FUNCTION});
}

TEST_F(DiskFacts, UnknownControlCodeIsError1) {
  constexpr DWORD kUnknown = 0x71FFC;  // a disk's, of any access, of a function that nobody has
  EXPECT_EQ(Ask(OpenDisk(), kUnknown).error, DWORD{ERROR_INVALID_FUNCTION});
}

TEST_F(DiskFacts, TableWrittenByHandIsSeenOnceTheSystemLooksAgain) {
  MakeMbr({MbrRow(7, kSectorsPerMiB, 50 * kSectorsPerMiB)});
  Bytes sector = Sectors(0);
  sector[446 + 4] = std::byte{0x0C};
  SetSectors(0, sector);
  EXPECT_EQ(GetLayout().rows[0].Mbr.PartitionType, 7);
  UpdateProperties();
  EXPECT_EQ(GetLayout().rows[0].Mbr.PartitionType, 0x0C);
}

}  // namespace
}  // namespace conformance
