#include "simulator/device_setup.h"

#include <cstring>

#include "simulator/disk.h"
#include "simulator/memory_files.h"
#include "simulator/seam_fixture.h"
#include "simulator/volume.h"

namespace testing_support {
namespace {

constexpr GUID kDiskClass = {
    0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
constexpr GUID kVolumeClass = {
    0x53F5630D, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
constexpr DWORD kFlags = DIGCF_PRESENT | DIGCF_DEVICEINTERFACE;

class DeviceSetupTest : public SeamTest {
 protected:
  simulator::Disk& AddDisk(std::uint32_t number, std::uint64_t size = kMegabyte) {
    return machine_.AttachDisk(number, NewImage("disk" + std::to_string(number) + ".img", size));
  }

  static HDEVINFO OpenSet(const GUID& interface_class = kDiskClass) {
    return win32::SetupDiGetClassDevsW(&interface_class, nullptr, nullptr, kFlags);
  }
  static DWORD Enumerate(HDEVINFO set, DWORD index, SP_DEVICE_INTERFACE_DATA& data,
                         const GUID& interface_class = kDiskClass) {
    data.cbSize = sizeof data;
    return Error(win32::SetupDiEnumDeviceInterfaces(set, nullptr, &interface_class, index, &data));
  }
  static DWORD Error(BOOL success) {
    return success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  // The detail of a member in a buffer of `size` bytes, and what was required.
  DWORD Detail(HDEVINFO set, SP_DEVICE_INTERFACE_DATA& data, DWORD size, DWORD cb_size = 8) {
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_A*>(buffer_.data());
    detail->cbSize = cb_size;
    return Error(
        win32::SetupDiGetDeviceInterfaceDetailA(set, &data, detail, size, &required_, nullptr));
  }
  std::string Path() const { return buffer_.data() + 4; }

  // Asks the disk for its descriptor with this query and room for `out` bytes.
  DWORD Query(HANDLE disk, std::vector<DWORD> query, std::size_t out) {
    answer_.assign(out, std::byte{0xCD});
    return Error(win32::DeviceIoControl(disk, IOCTL_STORAGE_QUERY_PROPERTY, query.data(),
                                        static_cast<DWORD>(query.size() * sizeof(DWORD)),
                                        answer_.data(), static_cast<DWORD>(out), &returned_,
                                        nullptr));
  }
  DWORD Number(std::size_t offset) const {
    DWORD number = 0;
    std::memcpy(&number, answer_.data() + offset, sizeof number);
    return number;
  }

  alignas(8) std::array<char, 512> buffer_{};
  DWORD required_ = 0;
  DWORD returned_ = 0;
  std::vector<std::byte> answer_;
};

TEST_F(DeviceSetupTest, ListsDisksInTheOrderInWhichTheyCame) {
  AddDisk(5).identity.interface_path = "\\\\?\\five";
  AddDisk(2).identity.interface_path = "\\\\?\\two";
  const HDEVINFO set = OpenSet();
  SP_DEVICE_INTERFACE_DATA data{};
  EXPECT_EQ(Enumerate(set, 0, data), ERROR_SUCCESS);
  EXPECT_EQ(Detail(set, data, 512), ERROR_SUCCESS);
  EXPECT_EQ(Path(), "\\\\?\\five");
  EXPECT_EQ(required_, 4 + 8 + 1U);
  EXPECT_EQ(Enumerate(set, 1, data), ERROR_SUCCESS);
  EXPECT_EQ(Detail(set, data, 512), ERROR_SUCCESS);
  EXPECT_EQ(Path(), "\\\\?\\two");
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
  EXPECT_EQ(Enumerate(set, 2, data), ERROR_NO_MORE_ITEMS);
}

TEST_F(DeviceSetupTest, SetKeepsWhatWasThereWhenItWasOpened) {
  const HDEVINFO set = OpenSet();
  AddDisk(1);
  SP_DEVICE_INTERFACE_DATA data{};
  EXPECT_EQ(Enumerate(set, 0, data), ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(Enumerate(OpenSet(), 0, data), ERROR_SUCCESS);
}

TEST_F(DeviceSetupTest, OtherClassesHaveNoMembers) {
  AddDisk(1);
  SP_DEVICE_INTERFACE_DATA data{};
  EXPECT_EQ(Enumerate(OpenSet(kVolumeClass), 0, data, kVolumeClass), ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(Enumerate(OpenSet(), 0, data, kVolumeClass), ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(win32::SetupDiGetClassDevsW(nullptr, nullptr, nullptr, kFlags), INVALID_HANDLE_VALUE);
  EXPECT_EQ(win32::GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(DeviceSetupTest, SizesOfTheStructuresAreChecked) {
  AddDisk(1);
  const HDEVINFO set = OpenSet();
  SP_DEVICE_INTERFACE_DATA data{};
  EXPECT_EQ(Error(win32::SetupDiEnumDeviceInterfaces(set, nullptr, &kDiskClass, 0, &data)),
            ERROR_INVALID_USER_BUFFER);
  EXPECT_EQ(Enumerate(set, 0, data), ERROR_SUCCESS);
  EXPECT_EQ(Detail(set, data, 512, /*cb_size=*/512), ERROR_INVALID_USER_BUFFER);
}

TEST_F(DeviceSetupTest, HandlesThatAreNoSetsAreRefused) {
  AddDisk(1);
  SP_DEVICE_INTERFACE_DATA data{};
  const HANDLE disk = Open("\\\\.\\PhysicalDrive1");
  EXPECT_EQ(Enumerate(disk, 0, data), ERROR_INVALID_HANDLE);
  EXPECT_EQ(Detail(disk, data, 512), ERROR_INVALID_HANDLE);
  EXPECT_EQ(Detail(OpenSet(), data, 512), ERROR_INVALID_PARAMETER);  // no member was enumerated
}

TEST_F(DeviceSetupTest, DiskOpensByItsInterfacePathInAnyCase) {
  simulator::Disk& disk = AddDisk(1);
  EXPECT_NE(Open(disk.identity.interface_path), INVALID_HANDLE_VALUE);
  disk.identity.interface_path = "\\\\?\\Some#Disk";
  EXPECT_NE(Open("\\\\?\\sOME#dISK"), INVALID_HANDLE_VALUE);
  EXPECT_NE(Open("\\\\.\\PhysicalDrive1"), INVALID_HANDLE_VALUE);
}

TEST_F(DeviceSetupTest, FormerAndEmptyPathsLeadNowhere) {
  simulator::Disk& disk = AddDisk(1);
  const std::string former = disk.identity.interface_path;
  disk.identity.interface_path = "\\\\?\\new";
  EXPECT_EQ(Open(former), INVALID_HANDLE_VALUE);
  EXPECT_EQ(win32::GetLastError(), ERROR_FILE_NOT_FOUND);
  disk.identity.interface_path.clear();
  EXPECT_EQ(Open("\\\\?\\"), INVALID_HANDLE_VALUE);
  EXPECT_EQ(win32::GetLastError(), ERROR_FILE_NOT_FOUND);
  SP_DEVICE_INTERFACE_DATA data{};
  EXPECT_EQ(Enumerate(OpenSet(), 0, data), ERROR_NO_MORE_ITEMS);
}

TEST_F(DeviceSetupTest, DescriptorIsGivenAsFarAsThereIsRoom) {
  AddDisk(1).identity.serial_number = "12345678";
  const HANDLE disk = Open("\\\\.\\PhysicalDrive1");
  EXPECT_EQ(Query(disk, {0, 0, 0}, 8), ERROR_SUCCESS);
  EXPECT_EQ(returned_, 8U);
  EXPECT_EQ(Number(0), 40U);
  EXPECT_EQ(Number(4), 45U);  // 36 in front of the text, 8 and an end
  EXPECT_EQ(Query(disk, {0, 0, 0}, 64), ERROR_SUCCESS);
  EXPECT_EQ(returned_, 45U);
  EXPECT_EQ(Number(24), 36U);
  EXPECT_STREQ(reinterpret_cast<const char*>(answer_.data() + 36), "12345678");
}

TEST_F(DeviceSetupTest, DescriptorTellsWhatTheBuilderWants) {
  simulator::Disk& disk = AddDisk(1);
  const HANDLE handle = Open("\\\\.\\PhysicalDrive1");
  disk.identity.serial_number.reset();
  EXPECT_EQ(Query(handle, {0, 0, 0}, 64), ERROR_SUCCESS);
  EXPECT_EQ(Number(24), 0U);
  disk.identity.told_serial_offset = 5000;
  disk.identity.told_size = 100;
  EXPECT_EQ(Query(handle, {0, 0, 0}, 200), ERROR_SUCCESS);
  EXPECT_EQ(Number(4), 100U);
  EXPECT_EQ(Number(24), 5000U);
  EXPECT_EQ(returned_, 100U);
  disk.identity.told_size = 0;
  EXPECT_EQ(Query(handle, {0, 0, 0}, 8), ERROR_SUCCESS);
  EXPECT_EQ(Number(4), 0U);
}

TEST_F(DeviceSetupTest, QueriesThatTheDiskDoesNotKnowAreRefused) {
  AddDisk(1);
  const HANDLE disk = Open("\\\\.\\PhysicalDrive1");
  EXPECT_EQ(Query(disk, {0, 0}, 64), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Query(disk, {1, 0, 0}, 64), ERROR_INVALID_FUNCTION);
  EXPECT_EQ(Query(disk, {0, 1, 0}, 64), ERROR_INVALID_FUNCTION);
  EXPECT_EQ(Query(disk, {0, 0, 0}, 7), ERROR_BAD_LENGTH);
}

TEST_F(DeviceSetupTest, GeometryTellsTheSizeOfTheDisk) {
  AddDisk(1, 100 * kMegabyte);
  const HANDLE disk = Open("\\\\.\\PhysicalDrive1");
  DISK_GEOMETRY_EX geometry{};
  const auto ask = [&](DWORD size) {
    return Error(win32::DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, nullptr, 0,
                                        &geometry, size, &returned_, nullptr));
  };
  EXPECT_EQ(ask(40), ERROR_SUCCESS);
  EXPECT_EQ(returned_, 40U);
  EXPECT_EQ(geometry.DiskSize.QuadPart, LONGLONG{100} << 20);
  EXPECT_EQ(geometry.Geometry.BytesPerSector, 512U);
  EXPECT_EQ(geometry.Geometry.MediaType, FixedMedia);
  EXPECT_EQ(geometry.Geometry.Cylinders.QuadPart, 12);  // whole ones of 255 * 63 sectors
  EXPECT_EQ(ask(32), ERROR_SUCCESS);
  EXPECT_EQ(returned_, 32U);
  EXPECT_EQ(ask(31), ERROR_INSUFFICIENT_BUFFER);
}

TEST_F(DeviceSetupTest, RenumberedDiskTakesItsHandlesVolumesAndFilesAlong) {
  AttachGpt(1, {GptRow(kMegabyte, 8 * kMegabyte, 0xAB)}, {kMegabyte});
  machine_.SetSystemDisk(1);
  machine_.AddFile(1, kMegabyte, "folder\\file", "text");
  const char letter = machine_.LettersOf(*machine_.FindVolumeAt(1, kMegabyte)).at(0);
  const HANDLE handle = Open("\\\\.\\PhysicalDrive1");
  simulator::RenumberDisk(machine_, 1, 4);
  STORAGE_DEVICE_NUMBER number{};
  EXPECT_TRUE(win32::DeviceIoControl(handle, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number,
                                     sizeof number, &returned_, nullptr));
  EXPECT_EQ(number.DeviceNumber, 4U);
  EXPECT_EQ(machine_.FindVolumeAt(1, kMegabyte), nullptr);
  const simulator::Volume* volume = machine_.FindVolumeAt(4, kMegabyte);
  ASSERT_NE(volume, nullptr);
  EXPECT_EQ(volume, machine_.FindVolumeByLetter(letter));
  EXPECT_EQ(machine_.system_disk(), 4U);
  std::string content;
  EXPECT_EQ(machine_.memory_files(4, kMegabyte).Read("folder\\file", content), ERROR_SUCCESS);
  EXPECT_EQ(content, "text");
  EXPECT_EQ(Open("\\\\.\\PhysicalDrive1"), INVALID_HANDLE_VALUE);
  machine_.Rescan();
  EXPECT_EQ(machine_.volumes().size(), 1U);
}

TEST_F(DeviceSetupTest, RenumberingNeedsADiskAndAFreeNumber) {
  AddDisk(1);
  AddDisk(2);
  EXPECT_THROW(simulator::RenumberDisk(machine_, 1, 2), std::invalid_argument);
  EXPECT_THROW(simulator::RenumberDisk(machine_, 3, 4), std::invalid_argument);
}

}  // namespace
}  // namespace testing_support
