// Images on a host file system with holes.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "simulator/storage/block_device.h"
#include "simulator/storage_disk.h"
#include "support/temp_folder.h"
#include "support/tools/run_tool.h"

namespace simulator::storage_testing {
namespace {

std::uint64_t AllocatedBytes(const std::filesystem::path& file) {
  struct stat status {};
  EXPECT_EQ(::stat(file.c_str(), &status), 0) << file;
  return static_cast<std::uint64_t>(status.st_blocks) * 512;
}

// Main memory takes files of any size, which the temporary path's file system may not.
class MemoryImage {
 public:
  explicit MemoryImage(std::uint64_t size)
      : path_("/dev/shm/velkora-test-" + std::to_string(::getpid()) + ".img") {
    CreateSparseImage(path_, size);
  }
  ~MemoryImage() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  MemoryImage(const MemoryImage&) = delete;
  MemoryImage& operator=(const MemoryImage&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

TEST(SparseImage, NewImageTakesNoRoom) {
  const testing_support::TempFolder folder;
  const auto image = folder.path() / "disk.img";
  CreateSparseImage(image, 100 * 1024 * kMiB);
  EXPECT_EQ(std::filesystem::file_size(image), 100 * 1024 * kMiB);
  EXPECT_LE(AllocatedBytes(image), 65536u);
}

TEST(SparseImage, ZeroGivesTheRoomBack) {
  const testing_support::TempFolder folder;
  const auto image = folder.path() / "disk.img";
  CreateSparseImage(image, 32 * kMiB);
  BlockDevice device(image);
  ASSERT_TRUE(device.Write(0, std::vector<std::byte>(32 * kMiB, std::byte{1})));
  ASSERT_TRUE(device.Zero(0, 32 * kMiB));
  EXPECT_LE(AllocatedBytes(image), 65536u);
}

TEST(SparseImage, SixteenTiBDiskHoldsATableThatSgdiskAccepts) {
  constexpr std::uint64_t kSize = std::uint64_t{16} << 40;
  const MemoryImage image(kSize);
  BlockDevice device(image.path());
  ASSERT_EQ(CreateDisk(device, GptRequest(1, 128)), ERROR_SUCCESS);
  auto layout =
      GptLayout({GptRow(kMiB, kSize / 2, 1, "first"), GptRow(kSize - 2 * kMiB, kMiB, 2, "last")});
  ASSERT_EQ(WriteLayout(device, layout, {}), ERROR_SUCCESS);
  const auto verified = testing_support::RunTool({"sgdisk", "-v", image.path().string()});
  EXPECT_NE(verified.output.find("No problems found"), std::string::npos) << verified.output;
  DiskLayout read;
  ASSERT_EQ(ReadLayout(device, read), ERROR_SUCCESS);
  ASSERT_EQ(read.rows.size(), 2u);
  EXPECT_EQ(read.rows[1].StartingOffset.QuadPart, static_cast<LONGLONG>(kSize - 2 * kMiB));
  EXPECT_LE(AllocatedBytes(image.path()), kMiB);
}

}  // namespace
}  // namespace simulator::storage_testing
