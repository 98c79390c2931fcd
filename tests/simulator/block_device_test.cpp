#include "simulator/storage/block_device.h"

#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/temp_folder.h"

namespace simulator {
namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;
constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

class BlockDeviceTest : public ::testing::Test {
 protected:
  std::filesystem::path File(const std::string& name) const { return folder_.path() / name; }

  std::filesystem::path NewImage(std::uint64_t size) const {
    CreateSparseImage(File("disk.img"), size);
    return File("disk.img");
  }

  // The text of the exception that opening throws; empty when it throws none.
  static std::string OpenError(const std::filesystem::path& image,
                               std::uint32_t sector_size = 512) {
    try {
      const BlockDevice device(image, sector_size);
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return {};
  }

  testing_support::TempFolder folder_;
};

std::vector<std::byte> Pattern(std::size_t bytes) {
  std::vector<std::byte> data(bytes);
  for (std::size_t i = 0; i < bytes; ++i) data[i] = static_cast<std::byte>(i % 251 + 1);
  return data;
}

TEST_F(BlockDeviceTest, NewImageHasItsSizeAndReadsAsZeros) {
  BlockDevice device(NewImage(3 * kMiB));
  EXPECT_EQ(device.size(), 3 * kMiB);
  EXPECT_EQ(device.sector_count(), 6144u);
  std::vector<std::byte> bytes(kMiB, std::byte{1});
  ASSERT_TRUE(device.Read(2 * kMiB, bytes));
  EXPECT_EQ(bytes, std::vector<std::byte>(kMiB));
}

TEST_F(BlockDeviceTest, NewImageReplacesAnOldFile) {
  std::ofstream(File("disk.img"), std::ios::binary) << "old contents";
  BlockDevice device(NewImage(512));
  std::vector<std::byte> bytes(512, std::byte{1});
  ASSERT_TRUE(device.Read(0, bytes));
  EXPECT_EQ(bytes, std::vector<std::byte>(512));
}

TEST_F(BlockDeviceTest, ReadsBackWhatWasWrittenAtUnalignedPlaces) {
  BlockDevice device(NewImage(kMiB));
  const auto data = Pattern(1001);
  ASSERT_TRUE(device.Write(777, data));
  std::vector<std::byte> bytes(1001);
  ASSERT_TRUE(device.Read(777, bytes));
  EXPECT_EQ(bytes, data);
}

TEST_F(BlockDeviceTest, WhatWasWrittenIsInTheFileAfterwards) {
  const auto image = NewImage(kMiB);
  const auto data = Pattern(512);
  {
    BlockDevice device(image);
    ASSERT_TRUE(device.Write(512, data));
  }
  BlockDevice device(image);
  std::vector<std::byte> bytes(512);
  ASSERT_TRUE(device.Read(512, bytes));
  EXPECT_EQ(bytes, data);
}

TEST_F(BlockDeviceTest, ReadOnlyImageRefusesWritesAndIsLeftAsItWas) {
  const auto image = NewImage(kMiB);
  const auto data = Pattern(512);
  {
    BlockDevice device(image);
    ASSERT_TRUE(device.Write(512, data));
  }
  std::filesystem::permissions(image, std::filesystem::perms::owner_read);
  BlockDevice device(image, 512, Access::kReadOnly);
  EXPECT_FALSE(device.Write(512, Pattern(1)));
  EXPECT_FALSE(device.Zero(512, 512));
  EXPECT_EQ(device.bytes_written(), 0U);
  std::vector<std::byte> bytes(512);
  ASSERT_TRUE(device.Read(512, bytes));
  EXPECT_EQ(bytes, data);
}

TEST_F(BlockDeviceTest, PlacesBehindFourGiBAreTheirOwn) {
  BlockDevice device(NewImage(9 * kGiB));
  const auto data = Pattern(512);
  ASSERT_TRUE(device.Write(8 * kGiB + 512, data));
  std::vector<std::byte> bytes(512, std::byte{1});
  ASSERT_TRUE(device.Read(512, bytes));
  EXPECT_EQ(bytes, std::vector<std::byte>(512));
  ASSERT_TRUE(device.Read(8 * kGiB + 512, bytes));
  EXPECT_EQ(bytes, data);
}

TEST_F(BlockDeviceTest, LastByteCanBeWrittenAndReadButNothingBehindIt) {
  BlockDevice device(NewImage(1024));
  const auto data = Pattern(2);
  std::vector<std::byte> bytes(2);
  EXPECT_TRUE(device.Write(1022, data));
  EXPECT_TRUE(device.Read(1022, bytes));
  EXPECT_FALSE(device.Write(1023, data));
  EXPECT_FALSE(device.Read(1023, bytes));
  EXPECT_FALSE(device.Zero(1023, 2));
  EXPECT_FALSE(device.Read(std::numeric_limits<std::uint64_t>::max(), bytes));
}

TEST_F(BlockDeviceTest, WriteAcrossTheEndMovesNothing) {
  BlockDevice device(NewImage(1024));
  ASSERT_FALSE(device.Write(1000, Pattern(25)));
  std::vector<std::byte> bytes(24, std::byte{1});
  ASSERT_TRUE(device.Read(1000, bytes));
  EXPECT_EQ(bytes, std::vector<std::byte>(24));
  EXPECT_EQ(std::filesystem::file_size(device.image()), 1024u);
}

TEST_F(BlockDeviceTest, EmptyTransfersSucceedUpToTheEnd) {
  BlockDevice device(NewImage(1024));
  EXPECT_TRUE(device.Read(1024, {}));
  EXPECT_TRUE(device.Write(1024, {}));
  EXPECT_TRUE(device.Zero(1024, 0));
  EXPECT_FALSE(device.Read(1025, {}));
}

TEST_F(BlockDeviceTest, ZeroClearsExactlyItsRange) {
  BlockDevice device(NewImage(4 * kMiB));
  const auto data = Pattern(4 * kMiB);
  ASSERT_TRUE(device.Write(0, data));
  ASSERT_TRUE(device.Zero(1000, 3 * kMiB));
  auto expected = data;
  std::fill(expected.begin() + 1000, expected.begin() + 1000 + 3 * kMiB, std::byte{0});
  std::vector<std::byte> bytes(4 * kMiB);
  ASSERT_TRUE(device.Read(0, bytes));
  EXPECT_EQ(bytes, expected);
  EXPECT_EQ(std::filesystem::file_size(device.image()), 4 * kMiB);
}

TEST_F(BlockDeviceTest, IsAskedBeforeEachChangeWhichMayBeRefused) {
  BlockDevice device(NewImage(kMiB));
  const std::vector<std::byte> ones(512, std::byte{1});
  std::vector<std::pair<std::uint64_t, std::uint64_t>> asked;
  device.before_change = [&](std::uint64_t offset, std::uint64_t length) {
    asked.emplace_back(offset, length);
    return offset != 512;
  };
  EXPECT_TRUE(device.Write(0, ones));
  EXPECT_FALSE(device.Write(512, ones));
  EXPECT_FALSE(device.Zero(512, 1024));
  EXPECT_FALSE(device.Write(kMiB, ones)) << "past the end";
  EXPECT_EQ(asked, (decltype(asked){{0, 512}, {512, 512}, {512, 1024}}));
  EXPECT_EQ(device.bytes_written(), 512U);
  std::vector<std::byte> bytes(512);
  ASSERT_TRUE(device.Read(512, bytes));
  EXPECT_EQ(bytes, std::vector<std::byte>(512));
}

TEST_F(BlockDeviceTest, CountsTheBytesThatPassed) {
  BlockDevice device(NewImage(kMiB));
  std::vector<std::byte> bytes(512);
  ASSERT_TRUE(device.Write(0, bytes));
  ASSERT_TRUE(device.Zero(0, 4096));
  ASSERT_TRUE(device.Read(0, std::span(bytes).first(100)));
  ASSERT_FALSE(device.Read(kMiB, bytes));
  EXPECT_EQ(device.bytes_written(), 512u + 4096u);
  EXPECT_EQ(device.bytes_read(), 100u);
}

TEST_F(BlockDeviceTest, RefusesAnAbsentFileAndNamesIt) {
  const std::string error = OpenError(File("absent.img"));
  EXPECT_NE(error.find("absent.img"), std::string::npos) << error;
  EXPECT_NE(error.find("no such file"), std::string::npos) << error;
}

TEST_F(BlockDeviceTest, RefusesAFolder) {
  const std::string error = OpenError(folder_.path());
  EXPECT_NE(error.find("not an ordinary file"), std::string::npos) << error;
}

TEST_F(BlockDeviceTest, FlushTellsTheLateWritersAndNeedsNoRightToWrite) {
  struct Writer : LateWriter {
    void BeforeTransfer() override { ++calls; }
    int calls = 0;
  } writer;
  const auto image = NewImage(kMiB);
  BlockDevice device(image, 512);
  device.Add(writer);
  EXPECT_TRUE(device.Flush());
  EXPECT_EQ(writer.calls, 1);
  EXPECT_TRUE(BlockDevice(image, 512, Access::kReadOnly).Flush());
  ImageOverlay overlay;
  EXPECT_TRUE(BlockDevice(image, 512, overlay).Flush());
}

TEST_F(BlockDeviceTest, RefusesAnEmptyImage) {
  const std::string error = OpenError(NewImage(0));
  EXPECT_NE(error.find("empty"), std::string::npos) << error;
}

TEST_F(BlockDeviceTest, RefusesASizeThatIsNoMultipleOfTheSector) {
  const auto image = NewImage(4096 + 512);
  EXPECT_EQ(OpenError(image, 512), "");
  const std::string error = OpenError(image, 4096);
  EXPECT_NE(error.find("4608"), std::string::npos) << error;
  EXPECT_NE(error.find("4096"), std::string::npos) << error;
}

TEST_F(BlockDeviceTest, RefusesImpossibleSectorSizes) {
  const auto image = NewImage(kMiB);
  EXPECT_NE(OpenError(image, 0), "");
  EXPECT_NE(OpenError(image, 256), "");
  EXPECT_NE(OpenError(image, 1000), "");
  EXPECT_EQ(OpenError(image, 4096), "");
}

TEST_F(BlockDeviceTest, CreatingInAnAbsentFolderNamesTheFile) {
  try {
    CreateSparseImage(File("absent") / "disk.img", 512);
    FAIL() << "an image was created in a folder that does not exist";
  } catch (const std::runtime_error& error) {
    EXPECT_NE(std::string(error.what()).find("disk.img"), std::string::npos) << error.what();
  }
}

TEST_F(BlockDeviceTest, CreatingAnImpossibleSizeLeavesNoFile) {
  EXPECT_THROW(CreateSparseImage(File("big.img"), std::numeric_limits<std::uint64_t>::max()),
               std::runtime_error);
  EXPECT_FALSE(std::filesystem::exists(File("big.img")));
}

}  // namespace
}  // namespace simulator
