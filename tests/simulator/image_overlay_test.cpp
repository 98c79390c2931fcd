#include "simulator/storage/image_overlay.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "simulator/seam_fixture.h"
#include "simulator/storage/block_device.h"

namespace testing_support {
namespace {

using simulator::Access;
using simulator::BlockDevice;
using simulator::ByteRange;
using simulator::ImageOverlay;

using Ranges = std::vector<ByteRange>;

constexpr std::uint64_t kSize = 3 * 4096 + 512;  // not a whole number of pages

class ImageOverlayTest : public ::testing::Test {
 protected:
  // Each byte of the image tells its sector.
  ImageOverlayTest() {
    std::ofstream file(image_, std::ios::binary);
    for (std::uint64_t i = 0; i < kSize; ++i) file.put(static_cast<char>(i / 512 + 1));
  }

  std::string FileContent() const { return testing_support::TextOf(image_); }
  static std::vector<std::byte> All(BlockDevice& device) {
    std::vector<std::byte> bytes(static_cast<std::size_t>(device.size()));
    EXPECT_TRUE(device.Read(0, bytes));
    return bytes;
  }
  Ranges Changes() const {
    BlockDevice image(image_, 512, Access::kReadOnly);
    return overlay_.Changes(image);
  }

  TempFolder folder_;
  std::filesystem::path image_ = folder_.path() / "disk.img";
  ImageOverlay overlay_;
};

TEST_F(ImageOverlayTest, WritesAreReadBackAndTheFileStaysAsItIs) {
  const std::string before = FileContent();
  BlockDevice device(image_, 512, overlay_);
  std::vector<std::byte> expected = All(device);
  // Within a page, across two, the last bytes.
  for (const std::uint64_t offset : {std::uint64_t{10}, std::uint64_t{4090}, kSize - 20}) {
    const std::vector<std::byte> data(20, std::byte{0xEE});
    ASSERT_TRUE(device.Write(offset, data));
    std::copy(data.begin(), data.end(), expected.begin() + static_cast<std::ptrdiff_t>(offset));
    EXPECT_EQ(All(device), expected);
  }
  EXPECT_EQ(FileContent(), before);
  EXPECT_EQ(device.bytes_written(), 60u);
}

TEST_F(ImageOverlayTest, ZerosOfWholeAndPartialPages) {
  BlockDevice device(image_, 512, overlay_);
  std::vector<std::byte> expected = All(device);
  ASSERT_TRUE(device.Zero(100, 9000));
  std::fill_n(expected.begin() + 100, 9000, std::byte{0});
  EXPECT_EQ(All(device), expected);
  // A page of zeros can be written to again.
  const std::vector<std::byte> data(10, std::byte{7});
  ASSERT_TRUE(device.Write(5000, data));
  std::fill_n(expected.begin() + 5000, 10, std::byte{7});
  EXPECT_EQ(All(device), expected);
  ASSERT_TRUE(device.Zero(0, kSize));
  EXPECT_EQ(All(device), std::vector<std::byte>(kSize));
}

TEST_F(ImageOverlayTest, TellsTheChangedBytesInOrder) {
  BlockDevice device(image_, 512, overlay_);
  EXPECT_EQ(Changes(), Ranges());
  const std::vector<std::byte> data(300, std::byte{0xEE});
  ASSERT_TRUE(device.Write(kSize - 300, data));
  ASSERT_TRUE(device.Write(4000, data));
  ASSERT_TRUE(device.Write(20, std::span(data).first(1)));
  EXPECT_EQ(Changes(), (Ranges{{20, 1}, {4000, 300}, {kSize - 300, 300}}));
}

TEST_F(ImageOverlayTest, BytesThatAreAsBeforeAreNoChange) {
  BlockDevice device(image_, 512, overlay_);
  std::vector<std::byte> sector(512);
  ASSERT_TRUE(device.Read(512, sector));
  sector[5] = std::byte{0xEE};
  ASSERT_TRUE(device.Write(512, sector));
  EXPECT_EQ(Changes(), (Ranges{{517, 1}}));
  sector[5] = sector[6];
  ASSERT_TRUE(device.Write(512, sector));
  EXPECT_EQ(Changes(), Ranges());
  EXPECT_FALSE(overlay_.empty());
}

TEST_F(ImageOverlayTest, OutlivesTheDeviceUntilItIsReset) {
  const std::vector<std::byte> data(512, std::byte{0xEE});
  { ASSERT_TRUE(BlockDevice(image_, 512, overlay_).Write(0, data)); }
  std::vector<std::byte> read(512);
  BlockDevice device(image_, 512, overlay_);
  ASSERT_TRUE(device.Read(0, read));
  EXPECT_EQ(read, data);
  overlay_.Reset();
  ASSERT_TRUE(device.Read(0, read));
  EXPECT_EQ(read, std::vector<std::byte>(512, std::byte{1}));
  EXPECT_TRUE(overlay_.empty());
}

TEST_F(ImageOverlayTest, TwoDevicesOfOneImageDoNotSeeEachOther) {
  ImageOverlay other_overlay;
  BlockDevice device(image_, 512, overlay_);
  BlockDevice other(image_, 512, other_overlay);
  ASSERT_TRUE(device.Write(0, std::vector<std::byte>(512, std::byte{0xEE})));
  std::vector<std::byte> read(1);
  ASSERT_TRUE(other.Read(0, read));
  EXPECT_EQ(read[0], std::byte{1});
}

TEST_F(ImageOverlayTest, TheRangeRulesAreThoseOfAnImage) {
  BlockDevice device(image_, 512, overlay_);
  EXPECT_FALSE(device.Write(kSize - 1, std::vector<std::byte>(2)));
  EXPECT_FALSE(device.Zero(kSize, 1));
  EXPECT_TRUE(device.Zero(kSize, 0));
  EXPECT_TRUE(overlay_.empty());
}

using OverlaidDiskTest = SeamTest;

TEST_F(OverlaidDiskTest, AMachineWritesToTheOverlayOnly) {
  AttachGpt(1, {GptRow(kMegabyte, 8 * kMegabyte, 1)}, {kMegabyte});
  const std::filesystem::path image = folder_.path() / "disk1.img";
  ImageOverlay overlay;
  simulator::SimulatedMachine machine;
  machine.AttachDisk(4, image, overlay);
  machine.MakeCurrent();
  EXPECT_NE(machine.FindVolumeAt(4, kMegabyte), nullptr);
  EXPECT_TRUE(overlay.empty());

  const HANDLE disk = Open("\\\\.\\PhysicalDrive4");
  ASSERT_EQ(WriteAt(disk, 0, std::vector<std::byte>(512, std::byte{0xA7})), ERROR_SUCCESS);
  BlockDevice base(image, 512, Access::kReadOnly);
  EXPECT_EQ(overlay.Changes(base), (Ranges{{0, 512}}));
}

TEST_F(OverlaidDiskTest, ANumberInUseIsRefused) {
  AttachGpt(1, {});
  ImageOverlay overlay;
  EXPECT_THROW(machine_.AttachDisk(1, folder_.path() / "disk1.img", overlay),
               std::invalid_argument);
}

}  // namespace
}  // namespace testing_support
