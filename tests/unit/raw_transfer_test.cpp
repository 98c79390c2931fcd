#include "disk/raw_transfer.h"

#include <algorithm>

#include "disk/device_handle.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

constexpr std::uint64_t kGiB = 1024 * kMiB;
constexpr std::uint32_t kUntouched = 0xCDCDCDCD;
constexpr std::uint64_t kVolumeSectors = 30720;

Sector Filled(std::uint8_t value) {
  Sector sector{};
  sector.fill(value);
  return sector;
}

LARGE_INTEGER At(std::int64_t position) {
  LARGE_INTEGER value{};
  value.QuadPart = position;
  return value;
}

// Disk 1 has a FAT32 volume at sector 2048; `handle_` is the whole disk.
class RawTransferTest : public MachineTest {
 protected:
  RawTransferTest() : disk_(NewDisk(1, 64 * kMiB)) {
    WriteMbr(disk_, {{12, 2048, kVolumeSectors}});
    WriteFat32BootSector(disk_, 2048, kVolumeSectors);
    machine_.UpdateProperties(disk_);
    handle_ = velkora::GetDeviceHandleById(disk_.path().c_str());
    machine_.calls().Clear();
  }
  void TearDown() override {
    velkora::CloseDeviceHandle(handle_);
    EXPECT_EQ(machine_.handles().Open(), std::vector<std::string>{});
  }

  simulator::Disk& disk_;
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

class ReadData : public RawTransferTest {};
class WriteData : public RawTransferTest {};

TEST_F(ReadData, MovesTheBytesAtThePosition) {
  WriteSector(disk_, 9, Filled(0x39));
  WriteSector(disk_, 10, Filled(0x3A));
  LARGE_INTEGER position = At(9 * 512);
  std::array<std::uint8_t, 1024> buffer{};
  std::uint32_t done = kUntouched;
  EXPECT_TRUE(velkora::ReadData(&handle_, &position, buffer.data(), 1024, &done));
  EXPECT_EQ(done, 1024U);
  EXPECT_EQ(std::count(buffer.begin(), buffer.begin() + 512, 0x39), 512);
  EXPECT_EQ(std::count(buffer.begin() + 512, buffer.end(), 0x3A), 512);
  EXPECT_EQ(position.QuadPart, 9 * 512);
  EXPECT_EQ(log_, Log{});
}

TEST_F(ReadData, CountMayBeLeftOut) {
  WriteSector(disk_, 5, Filled(0x77));
  LARGE_INTEGER position = At(5 * 512);
  Sector buffer{};
  EXPECT_TRUE(velkora::ReadData(&handle_, &position, buffer.data(), 512, nullptr));
  EXPECT_EQ(buffer, Filled(0x77));
}

TEST_F(ReadData, PositionBeyondFourGibibytesIsReached) {
  simulator::Disk& large = NewDisk(2, 5 * kGiB);
  WriteSector(large, 4 * kGiB / 512 + 3, Filled(0x44));
  HANDLE handle = velkora::GetDeviceHandleById(large.path().c_str());
  LARGE_INTEGER position = At(4 * kGiB + 3 * 512);
  Sector buffer{};
  EXPECT_TRUE(velkora::ReadData(&handle, &position, buffer.data(), 512, nullptr));
  EXPECT_EQ(buffer, Filled(0x44));
  velkora::CloseDeviceHandle(handle);
}

TEST_F(ReadData, PositionWithAllLowBitsSetCountsAsFailedSeek) {
  simulator::Disk& large = NewDisk(2, 5 * kGiB);
  HANDLE handle = velkora::GetDeviceHandleById(large.path().c_str());
  LARGE_INTEGER position = At(0xFFFFFFFF);
  Sector buffer{};
  std::uint32_t done = kUntouched;
  EXPECT_FALSE(velkora::ReadData(&handle, &position, buffer.data(), 512, &done));
  EXPECT_EQ(done, kUntouched);
  EXPECT_EQ(machine_.calls().Count("SetFilePointer"), 3U);
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 0U);
  EXPECT_EQ(log_, Log{});
  velkora::CloseDeviceHandle(handle);
}

TEST_F(ReadData, FailedSeekIsRetriedWithoutALine) {
  machine_.calls().FailOn("SetFilePointer", 1, 87);
  machine_.calls().FailOn("SetFilePointer", 2, 87);
  LARGE_INTEGER position = At(512);
  Sector buffer{};
  EXPECT_TRUE(velkora::ReadData(&handle_, &position, buffer.data(), 512, nullptr));
  EXPECT_EQ(machine_.calls().Count("SetFilePointer"), 3U);
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 1U);
  EXPECT_EQ(log_, Log{});
}

TEST_F(ReadData, FailedReadIsLoggedAndRetried) {
  WriteSector(disk_, 1, Filled(0x11));
  machine_.calls().FailOn("ReadFile", 1, 23);
  LARGE_INTEGER position = At(512);
  Sector buffer{};
  std::uint32_t done = kUntouched;
  EXPECT_TRUE(velkora::ReadData(&handle_, &position, buffer.data(), 512, &done));
  EXPECT_EQ(done, 512U);
  EXPECT_EQ(buffer, Filled(0x11));
  EXPECT_EQ(log_, (Log{{3, "Read Data Error! error_code: 23"}}));
}

TEST_F(ReadData, ThirdFailedReadEndsIt) {
  machine_.calls().FailOn("ReadFile", 1, 23);
  machine_.calls().FailOn("ReadFile", 2, 1117);
  machine_.calls().FailOn("ReadFile", 3, 55);
  LARGE_INTEGER position = At(512);
  Sector buffer{};
  EXPECT_FALSE(velkora::ReadData(&handle_, &position, buffer.data(), 512, nullptr));
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 3U);
  EXPECT_EQ(log_, (Log{{3, "Read Data Error! error_code: 23"},
                       {3, "Read Data Error! error_code: 1117"},
                       {3, "Read Data Error! error_code: 55"}}));
}

TEST_F(ReadData, SeeksAndReadsShareTheThreeAttempts) {
  machine_.calls().FailOn("SetFilePointer", 1, 87);
  machine_.calls().FailOn("ReadFile", 1, 23, simulator::Repeat::kFromThenOn);
  LARGE_INTEGER position = At(512);
  Sector buffer{};
  EXPECT_FALSE(velkora::ReadData(&handle_, &position, buffer.data(), 512, nullptr));
  EXPECT_EQ(machine_.calls().Count("SetFilePointer"), 3U);
  EXPECT_EQ(log_,
            (Log{{3, "Read Data Error! error_code: 23"}, {3, "Read Data Error! error_code: 23"}}));
}

// A volume handle trims a read that crosses the volume's end, and that is no error to the system:
// the code in the line is whatever was left from before.
TEST_F(ReadData, ThirdShortReadFromTheSamePositionEndsIt) {
  WriteSector(disk_, 2048 + kVolumeSectors - 1, Filled(0xEE));
  const std::string path = machine_.FindVolumeAt(1, 2048 * 512)->path;
  HANDLE volume = velkora::GetDeviceHandleById(path.c_str());
  LARGE_INTEGER position = At((kVolumeSectors - 1) * 512);
  std::array<std::uint8_t, 1024> buffer{};
  std::uint32_t done = kUntouched;
  win32::SetLastError(77);
  EXPECT_FALSE(velkora::ReadData(&volume, &position, buffer.data(), 1024, &done));
  EXPECT_EQ(done, 512U);
  EXPECT_EQ(std::count(buffer.begin(), buffer.end(), 0xEE), 512);
  EXPECT_EQ(machine_.calls().Count("SetFilePointer"), 3U);
  EXPECT_EQ(machine_.calls().Count("ReadFile"), 3U);
  EXPECT_EQ(log_, (Log{{3, "Read Data Error! error_code: 77"},
                       {3, "Read Data Error! error_code: 77"},
                       {3, "Read Data Error! error_code: 77"}}));
  velkora::CloseDeviceHandle(volume);
}

TEST_F(ReadData, HandleThatIsNotOpenIsAFailedSeek) {
  const HANDLE closed = INVALID_HANDLE_VALUE;
  LARGE_INTEGER position = At(0);
  Sector buffer{};
  EXPECT_FALSE(velkora::ReadData(&closed, &position, buffer.data(), 512, nullptr));
  EXPECT_EQ(log_, Log{});
}

TEST_F(WriteData, MovesTheBytesToThePosition) {
  LARGE_INTEGER position = At(100 * 512);
  const Sector data = Filled(0x64);
  std::uint32_t done = kUntouched;
  EXPECT_TRUE(velkora::WriteData(&handle_, &position, data.data(), 512, &done));
  EXPECT_EQ(done, 512U);
  EXPECT_EQ(ReadSector(disk_, 100), data);
  EXPECT_EQ(ReadSector(disk_, 99), Filled(0));
  EXPECT_EQ(ReadSector(disk_, 101), Filled(0));
  EXPECT_EQ(log_, Log{});
}

TEST_F(WriteData, PositionWithAllLowBitsSetCountsAsFailedSeek) {
  LARGE_INTEGER position = At(0xFFFFFFFF);
  const Sector data = Filled(1);
  EXPECT_FALSE(velkora::WriteData(&handle_, &position, data.data(), 512, nullptr));
  EXPECT_EQ(machine_.calls().Count("SetFilePointer"), 3U);
  EXPECT_EQ(machine_.calls().Count("WriteFile"), 0U);
  EXPECT_EQ(log_, Log{});
}

TEST_F(WriteData, FailedWriteIsLoggedAndRetried) {
  machine_.calls().FailOn("WriteFile", 1, 19);
  machine_.calls().FailOn("WriteFile", 2, 112);
  LARGE_INTEGER position = At(3 * 512);
  const Sector data = Filled(0x33);
  EXPECT_TRUE(velkora::WriteData(&handle_, &position, data.data(), 512, nullptr));
  EXPECT_EQ(ReadSector(disk_, 3), data);
  EXPECT_EQ(log_, (Log{{3, "Write Data Error! error_code: 19"},
                       {3, "Write Data Error! error_code: 112"}}));
}

TEST_F(WriteData, WriteIntoAMountedVolumeIsRefusedThreeTimes) {
  LARGE_INTEGER position = At((2048 + 64) * 512);
  const Sector data = Filled(0x33);
  std::uint32_t done = kUntouched;
  EXPECT_FALSE(velkora::WriteData(&handle_, &position, data.data(), 512, &done));
  EXPECT_EQ(done, 0U);
  EXPECT_EQ(ReadSector(disk_, 2048 + 64), Filled(0));
  EXPECT_EQ(log_, (Log{{3, "Write Data Error! error_code: 5"},
                       {3, "Write Data Error! error_code: 5"},
                       {3, "Write Data Error! error_code: 5"}}));
}

}  // namespace
}  // namespace testing_support
