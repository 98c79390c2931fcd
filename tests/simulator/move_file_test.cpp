// The control codes of the FAT32 driver: bitmap, retrieval pointers, moves, and what they refuse.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/disk.h"
#include "simulator/seam_fixture.h"
#include "simulator/storage/fat32_format.h"

namespace simulator {
namespace {

using testing_support::GptRow;
using testing_support::GptVolumePath;
using testing_support::kMegabyte;

constexpr std::uint64_t kFirst = 1 * kMegabyte;
constexpr std::uint64_t kSecond = 41 * kMegabyte;
constexpr std::uint64_t kLength = 40 * kMegabyte;

// Two FAT32 volumes with clusters of 512 bytes. On the first: the root directory at LCN 0, "FOLDER"
// at 1, "FOLDER\FILE" of 300 clusters at 2 to 301, "SMALL" of 3 at 302 to 304, "EMPTY".
class MoveFileTest : public testing_support::SeamTest {
 protected:
  void SetUp() override {
    Disk& disk =
        AttachGpt(1, {GptRow(kFirst, kLength, 1), GptRow(kSecond, kLength, 2)}, {}, 96 * kMegabyte);
    for (const std::uint64_t offset : {kFirst, kSecond}) {
      ASSERT_EQ(FormatFat32(disk.device(), {offset, kLength, 0, 1}), ERROR_SUCCESS);
      machine_.Mount(*machine_.FindVolumeAt(1, offset));
      machine_.AddFile(1, offset, "\\FOLDER\\FILE", std::string(300 * 512, 'f'));
      machine_.AddFile(1, offset, "\\SMALL", std::string(3 * 512, 's'));
      machine_.AddFile(1, offset, "\\EMPTY", "");
    }
    volume_ = Open(GptVolumePath(1));
    file_ = Open(GptVolumePath(1) + "\\FOLDER\\FILE");
    small_ = Open(GptVolumePath(1) + "\\SMALL");
    ASSERT_NE(small_, INVALID_HANDLE_VALUE);
    total_ = Bitmap(0, 24).size;
    ASSERT_GT(total_, 65'525U);
  }

  static DWORD Result(BOOL success) {
    return success != FALSE ? ERROR_SUCCESS : win32::GetLastError();
  }

  DWORD Move(HANDLE file, LONGLONG vcn, LONGLONG lcn, DWORD count) {
    MOVE_FILE_DATA request{};
    request.FileHandle = file;
    request.StartingVcn.QuadPart = vcn;
    request.StartingLcn.QuadPart = lcn;
    request.ClusterCount = count;
    DWORD returned = 0;
    return Result(win32::DeviceIoControl(volume_, FSCTL_MOVE_FILE, &request, sizeof request,
                                         nullptr, 0, &returned, nullptr));
  }

  struct BitmapAnswer {
    DWORD error;
    DWORD returned;
    std::uint64_t size;
    std::vector<std::uint8_t> bits;
  };
  BitmapAnswer Bitmap(LONGLONG start, DWORD length) const {
    STARTING_LCN_INPUT_BUFFER in{};
    in.StartingLcn.QuadPart = start;
    std::vector<std::uint8_t> out(length + 24);
    BitmapAnswer answer{};
    answer.error = Result(win32::DeviceIoControl(volume_, FSCTL_GET_VOLUME_BITMAP, &in, sizeof in,
                                                 out.data(), length, &answer.returned, nullptr));
    std::memcpy(&answer.size, out.data() + 8, 8);
    if (answer.returned > 16) answer.bits.assign(out.begin() + 16, out.begin() + answer.returned);
    return answer;
  }

  struct PointersAnswer {
    DWORD error;
    DWORD returned;
    std::vector<std::int64_t> numbers;  // StartingVcn, then NextVcn and Lcn of each extent
    bool operator==(const PointersAnswer&) const = default;
  };
  static PointersAnswer Pointers(HANDLE file, LONGLONG vcn, DWORD length = 832) {
    STARTING_VCN_INPUT_BUFFER in{};
    in.StartingVcn.QuadPart = vcn;
    std::vector<std::int64_t> out(length / 8 + 4);
    PointersAnswer answer{};
    answer.error = Result(win32::DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &in, sizeof in,
                                                 out.data(), length, &answer.returned, nullptr));
    if (answer.returned == 0) return answer;
    const std::int64_t count = out[0] & 0xFFFFFFFF;
    answer.numbers.assign(out.begin() + 1, out.begin() + 2 + 2 * count);
    return answer;
  }

  // All extents from the start.
  static std::vector<std::int64_t> Extents(HANDLE file) { return Pointers(file, 0).numbers; }
  const std::vector<std::int64_t> unmoved_ = {0, 300, 2};

  HANDLE volume_ = nullptr;
  HANDLE file_ = nullptr;
  HANDLE small_ = nullptr;
  std::uint64_t total_ = 0;
};

TEST_F(MoveFileTest, RefusesAFileOfAnotherVolume) {
  const HANDLE other = Open(GptVolumePath(2) + "\\SMALL");
  ASSERT_NE(other, INVALID_HANDLE_VALUE);
  EXPECT_EQ(Move(other, 0, 1000, 3), ERROR_INVALID_PARAMETER);
}

TEST_F(MoveFileTest, RefusesWhatIsNoFileHandle) {
  EXPECT_EQ(Move(volume_, 0, 1000, 3), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Move(INVALID_HANDLE_VALUE, 0, 1000, 3), ERROR_INVALID_HANDLE);
}

TEST_F(MoveFileTest, RefusesTheFirstClusterOfAFolder) {
  for (const char* name : {"\\FOLDER", "\\"}) {
    const HANDLE folder =
        win32::CreateFileA((GptVolumePath(1) + name).c_str(), GENERIC_READ, 0, nullptr,
                           OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    ASSERT_NE(folder, INVALID_HANDLE_VALUE);
    EXPECT_EQ(Move(folder, 0, 1000, 1), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(Move(folder, 1, 1000, 1), ERROR_SUCCESS) << "there is no second one";
  }
}

TEST_F(MoveFileTest, PassesOverWhatLiesBehindTheFile) {
  EXPECT_EQ(Move(file_, 300, 1000, 5), ERROR_SUCCESS);
  EXPECT_EQ(Move(file_, 300, 0, 5), ERROR_SUCCESS) << "the target does not matter then";
  EXPECT_EQ(Extents(file_), unmoved_);
  EXPECT_EQ(Move(Open(GptVolumePath(1) + "\\EMPTY"), 0, 1000, 1), ERROR_SUCCESS);
}

TEST_F(MoveFileTest, CutsTheRangeAtTheEndOfTheFile) {
  ASSERT_EQ(Move(small_, 0, 1002, 1), ERROR_SUCCESS);
  EXPECT_EQ(Move(file_, 298, 1000, 1000), ERROR_SUCCESS) << "only two clusters must be free";
  EXPECT_EQ(Extents(file_), (std::vector<std::int64_t>{0, 298, 2, 300, 1000}));
}

// A piece of 64 KiB has 128 clusters here; a cluster in the way of the third stops it alone.
TEST_F(MoveFileTest, LeavesThePiecesMovedThatWentBeforeAFailure) {
  ASSERT_EQ(Move(small_, 0, 1299, 1), ERROR_SUCCESS);
  EXPECT_EQ(Move(file_, 0, 1000, 300), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(Extents(file_), (std::vector<std::int64_t>{0, 256, 1000, 300, 258}));
}

TEST_F(MoveFileTest, TakesWhatItsEarlierPiecesFreed) {
  ASSERT_EQ(Move(file_, 0, 1128, 300), ERROR_SUCCESS);
  EXPECT_EQ(Move(file_, 0, 1000, 300), ERROR_SUCCESS);
  EXPECT_EQ(Extents(file_), (std::vector<std::int64_t>{0, 300, 1000}));
}

TEST_F(MoveFileTest, FailsOnAnotherKindOfFileSystem) {
  testing_support::WriteNtfsBoot(machine_.FindDisk(1)->device(), kFirst);
  machine_.Mount(*machine_.FindVolumeAt(1, kFirst));
  EXPECT_EQ(Move(small_, 0, 1000, 3), ERROR_INVALID_FUNCTION);
  EXPECT_EQ(Bitmap(0, 100).error, ERROR_INVALID_FUNCTION);
  EXPECT_EQ(Pointers(small_, 0).error, ERROR_NOT_READY);
}

TEST_F(MoveFileTest, TheBitmapTellsTheClustersInUse) {
  const auto bytes = static_cast<DWORD>((total_ + 7) / 8);
  const BitmapAnswer whole = Bitmap(0, 16 + bytes);
  EXPECT_EQ(whole.error, ERROR_SUCCESS);
  EXPECT_EQ(whole.returned, 16 + bytes);
  ASSERT_EQ(whole.bits.size(), bytes);
  for (std::size_t i = 0; i < total_; ++i) {
    ASSERT_EQ(whole.bits[i / 8] >> (i % 8) & 1, i <= 304 ? 1 : 0) << "LCN " << i;
  }
  ASSERT_EQ(Move(small_, 1, 1001, 1), ERROR_SUCCESS);
  const BitmapAnswer later = Bitmap(0, 16 + bytes);
  EXPECT_EQ(later.bits[303 / 8], whole.bits[303 / 8] & ~(1 << 303 % 8));
  EXPECT_EQ(later.bits[1001 / 8], 1 << 1001 % 8);
}

TEST_F(MoveFileTest, PointersBeginWithTheWholeRunOfTheCluster) {
  ASSERT_EQ(Move(file_, 100, 2000, 50), ERROR_SUCCESS);
  EXPECT_EQ(Pointers(file_, 0),
            (PointersAnswer{ERROR_SUCCESS, 64, {0, 100, 2, 150, 2000, 300, 152}}));
  EXPECT_EQ(Pointers(file_, 120), (PointersAnswer{ERROR_SUCCESS, 48, {100, 150, 2000, 300, 152}}));
  EXPECT_EQ(Pointers(file_, 299), (PointersAnswer{ERROR_SUCCESS, 32, {150, 300, 152}}));
  EXPECT_EQ(Pointers(file_, 0, 63), (PointersAnswer{ERROR_MORE_DATA, 48, {0, 100, 2, 150, 2000}}));
  EXPECT_EQ(Pointers(volume_, 0).error, ERROR_INVALID_FUNCTION);
}

}  // namespace
}  // namespace simulator
