// The controls of a FAT32 volume: its bitmap, the clusters of a file, moving them.
#include <algorithm>

#include "conformance/disk/disk_fixture.h"

namespace conformance {
namespace {

constexpr std::size_t kBitmapHeader = offsetof(VOLUME_BITMAP_BUFFER, Buffer);
constexpr std::size_t kPointersHeader = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
constexpr std::size_t kExtentLength = 16;
constexpr std::size_t kFileClusters = 5;

struct Extent {
  std::uint64_t next_vcn;
  std::uint64_t lcn;
};

class DiskFat32 : public DiskTest {
 protected:
  void SetUp() override {
    DiskTest::SetUp();
    root_ = MakeFat32();
    const Bytes boot = Read(OpenVolume(root_), 0, kSector).bytes;
    const std::uint64_t per_cluster = std::to_integer<std::uint64_t>(boot.at(13));
    const std::uint64_t metadata =
        LoadAt<std::uint16_t>(boot, 14) +
        std::to_integer<std::uint64_t>(boot[16]) * LoadAt<std::uint32_t>(boot, 36);
    ASSERT_NE(per_cluster, 0u);
    data_offset_ = metadata * kSector;
    cluster_size_ = static_cast<std::size_t>(per_cluster * kSector);
    cluster_count_ = (LoadAt<std::uint32_t>(boot, 32) - metadata) / per_cluster;
    machine_.PutFile(root_, "file.bin", kFileClusters * cluster_size_);
  }

  static Answer Bitmap(const File& volume, std::uint64_t first, std::size_t room) {
    return Ask(volume, FSCTL_GET_VOLUME_BITMAP, BytesOf(first), room);
  }
  bool IsUsed(const File& volume, std::uint64_t lcn) const {
    const Answer answer = Bitmap(volume, 0, kBitmapHeader + cluster_count_ / 8 + 1);
    const auto byte = std::to_integer<unsigned>(answer.bytes.at(kBitmapHeader + lcn / 8));
    return (byte >> (lcn % 8) & 1) != 0;
  }

  static Answer Pointers(const File& file, std::uint64_t vcn, std::size_t room = 4096) {
    return Ask(file, FSCTL_GET_RETRIEVAL_POINTERS, BytesOf(vcn), room);
  }
  static std::vector<Extent> ExtentsOf(const File& file) {
    const Answer answer = Pointers(file, 0);
    EXPECT_EQ(answer.error, DWORD{ERROR_SUCCESS});
    std::vector<Extent> extents;
    for (DWORD i = 0; i < LoadAt<DWORD>(answer.bytes); ++i) {
      const std::size_t at = kPointersHeader + i * kExtentLength;
      extents.push_back(
          {LoadAt<std::uint64_t>(answer.bytes, at), LoadAt<std::uint64_t>(answer.bytes, at + 8)});
    }
    return extents;
  }

  static DWORD Move(const File& volume, const File& file, std::uint64_t vcn, std::uint64_t lcn,
                    DWORD count) {
    auto request = MOVE_FILE_DATA();
    request.FileHandle = file.get();
    request.StartingVcn.QuadPart = static_cast<LONGLONG>(vcn);
    request.StartingLcn.QuadPart = static_cast<LONGLONG>(lcn);
    request.ClusterCount = count;
    return Ask(volume, FSCTL_MOVE_FILE, BytesOf(request)).error;
  }

  std::string root_;
  std::uint64_t data_offset_ = 0;  // of the first cluster, in the volume
  std::size_t cluster_size_ = 0;
  std::uint64_t cluster_count_ = 0;
};

TEST_F(DiskFat32, BitmapCountsTheDataClustersAndBeginsWithTheRoot) {
  const File volume = OpenVolume(root_);
  const Answer answer = Bitmap(volume, 0, kBitmapHeader + cluster_count_ / 8 + 1);
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(LoadAt<std::uint64_t>(answer.bytes), 0u);
  EXPECT_EQ(LoadAt<std::uint64_t>(answer.bytes, 8), cluster_count_);
  EXPECT_EQ(answer.bytes.size(), kBitmapHeader + (cluster_count_ + 7) / 8);
  EXPECT_TRUE(IsUsed(volume, 0));
  EXPECT_FALSE(IsUsed(volume, cluster_count_ - 1));
}

TEST_F(DiskFat32, BitsBehindTheLastClusterAreClear) {
  const Answer answer = Bitmap(OpenVolume(root_), 0, kBitmapHeader + cluster_count_ / 8 + 1);
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  if (cluster_count_ % 8 == 0) return;
  EXPECT_EQ(std::to_integer<unsigned>(answer.bytes.back()) >> (cluster_count_ % 8), 0u);
}

TEST_F(DiskFat32, BitmapBeginsAtAMultipleOfEight) {
  const Answer answer = Bitmap(OpenVolume(root_), 13, kBitmapHeader + cluster_count_ / 8 + 1);
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(LoadAt<std::uint64_t>(answer.bytes), 8u);
  EXPECT_EQ(LoadAt<std::uint64_t>(answer.bytes, 8), cluster_count_ - 8);
}

TEST_F(DiskFat32, BitmapThatDoesNotFitIsCutWithError234) {
  const Answer answer = Bitmap(OpenVolume(root_), 0, kBitmapHeader + 16);
  EXPECT_EQ(answer.error, DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(answer.bytes.size(), kBitmapHeader + 16);
  EXPECT_EQ(LoadAt<std::uint64_t>(answer.bytes, 8), cluster_count_);
}

TEST_F(DiskFat32, BitmapRefusesShortBuffersAndAStartBehindTheEnd) {
  const File volume = OpenVolume(root_);
  EXPECT_EQ(Bitmap(volume, 0, 23).error, DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(Ask(volume, FSCTL_GET_VOLUME_BITMAP, Bytes(7), 4096).error,
            DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(Bitmap(volume, cluster_count_, 4096).error, DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Bitmap(volume, cluster_count_ - 1, 24).error, DWORD{ERROR_SUCCESS});
}

TEST_F(DiskFat32, PointersNameTheClustersOfTheBitmap) {
  const File file = OpenOn(root_, "file.bin");
  const std::vector<Extent> extents = ExtentsOf(file);
  ASSERT_FALSE(extents.empty());
  EXPECT_EQ(extents.back().next_vcn, kFileClusters);
  const File volume = OpenVolume(root_);
  EXPECT_TRUE(IsUsed(volume, extents.front().lcn));
}

TEST_F(DiskFat32, PointersCountFromTheFirstDataCluster) {
  const File file = OpenOn(root_, "file.bin");
  const std::vector<Extent> extents = ExtentsOf(file);
  ASSERT_FALSE(extents.empty());
  const Answer cluster =
      Read(OpenVolume(root_), data_offset_ + extents.front().lcn * cluster_size_, cluster_size_);
  EXPECT_EQ(cluster.bytes, Bytes(cluster_size_, std::byte{'v'}));
}

TEST_F(DiskFat32, PointersGiveTheWholeRunThatHoldsTheVcn) {
  const File file = OpenOn(root_, "file.bin");
  const std::vector<Extent> extents = ExtentsOf(file);
  const Answer answer = Pointers(file, 1);
  ASSERT_EQ(answer.error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(LoadAt<std::uint64_t>(answer.bytes, 8), 0u);
  EXPECT_EQ(LoadAt<std::uint64_t>(answer.bytes, kPointersHeader), extents.front().next_vcn);
}

TEST_F(DiskFat32, PointersBehindTheAllocationAreError38) {
  EXPECT_EQ(Pointers(OpenOn(root_, "file.bin"), kFileClusters).error, DWORD{ERROR_HANDLE_EOF});
  machine_.PutFile(root_, "empty.bin", 0);
  EXPECT_EQ(Pointers(OpenOn(root_, "empty.bin"), 0).error, DWORD{ERROR_HANDLE_EOF});
}

TEST_F(DiskFat32, PointersRefuseShortBuffers) {
  const File file = OpenOn(root_, "file.bin");
  EXPECT_EQ(Pointers(file, 0, 31).error, DWORD{ERROR_INSUFFICIENT_BUFFER});
  EXPECT_EQ(Ask(file, FSCTL_GET_RETRIEVAL_POINTERS, Bytes(7), 4096).error,
            DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(DiskFat32, PointersThatDoNotFitAreCutWithError234) {
  const File file = OpenOn(root_, "file.bin");
  ASSERT_EQ(Move(OpenVolume(root_), file, 2, cluster_count_ - 8, 1), DWORD{ERROR_SUCCESS});
  const Answer answer = Pointers(file, 0, sizeof(RETRIEVAL_POINTERS_BUFFER));
  EXPECT_EQ(answer.error, DWORD{ERROR_MORE_DATA});
  EXPECT_EQ(LoadAt<DWORD>(answer.bytes), 1u);
}

TEST_F(DiskFat32, FolderHasPointers) {
  machine_.PutFile(root_, "folder\\file.bin", 1);
  EXPECT_EQ(ExtentsOf(OpenOn(root_, "folder")).size(), 1u);
}

TEST_F(DiskFat32, MoveChangesTheClustersAndNotTheContent) {
  const File volume = OpenVolume(root_);
  const File file = OpenOn(root_, "file.bin");
  const std::uint64_t old = ExtentsOf(file).front().lcn;
  const std::uint64_t target = cluster_count_ - kFileClusters;
  ASSERT_EQ(Move(volume, file, 0, target, kFileClusters), DWORD{ERROR_SUCCESS});
  const std::vector<Extent> extents = ExtentsOf(file);
  ASSERT_EQ(extents.size(), 1u);
  EXPECT_EQ(extents.front().lcn, target);
  EXPECT_FALSE(IsUsed(volume, old));
  EXPECT_TRUE(IsUsed(volume, target));
  const Bytes content(kFileClusters * cluster_size_, std::byte{'v'});
  EXPECT_EQ(Read(file, 0, content.size()).bytes, content);
}

TEST_F(DiskFat32, MoveOfNoClustersIsError87) {
  EXPECT_EQ(Move(OpenVolume(root_), OpenOn(root_, "file.bin"), 0, cluster_count_ - 8, 0),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskFat32, MoveBehindTheEndIsError87) {
  const File volume = OpenVolume(root_);
  const File file = OpenOn(root_, "file.bin");
  EXPECT_EQ(Move(volume, file, 0, cluster_count_ - 1, 2), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Move(volume, file, cluster_count_, cluster_count_ - 8, 1),
            DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Move(volume, file, 0, std::uint64_t{1} << 32, 1), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Move(volume, file, std::uint64_t{1} << 32, cluster_count_ - 8, 1),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskFat32, MoveToClustersInUseIsError87AlsoToItsOwn) {
  const File volume = OpenVolume(root_);
  const File file = OpenOn(root_, "file.bin");
  EXPECT_EQ(Move(volume, file, 0, 0, 1), DWORD{ERROR_INVALID_PARAMETER});
  EXPECT_EQ(Move(volume, file, 0, ExtentsOf(file).front().lcn, 1), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskFat32, MoveBehindTheAllocationDoesNothingAndSucceeds) {
  const File file = OpenOn(root_, "file.bin");
  const std::uint64_t before = ExtentsOf(file).front().lcn;
  EXPECT_EQ(Move(OpenVolume(root_), file, kFileClusters, cluster_count_ - 8, 1),
            DWORD{ERROR_SUCCESS});
  EXPECT_EQ(ExtentsOf(file).front().lcn, before);
}

TEST_F(DiskFat32, FirstClusterOfAFolderIsNotMoved) {
  machine_.PutFile(root_, "folder\\file.bin", 1);
  EXPECT_EQ(Move(OpenVolume(root_), OpenOn(root_, "folder"), 0, cluster_count_ - 8, 1),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskFat32, MoveNeedsAVolumeAndAFileOfIt) {
  const File file = OpenOn(root_, "file.bin");
  EXPECT_EQ(Move(file, file, 0, cluster_count_ - 8, 1), DWORD{ERROR_INVALID_PARAMETER});
  WriteText("elsewhere.txt", "text");
  const File elsewhere(Open(Path("elsewhere.txt"), GENERIC_READ, OPEN_EXISTING));
  EXPECT_EQ(Move(OpenVolume(root_), elsewhere, 0, cluster_count_ - 8, 1),
            DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskFat32, ShortMoveIsError122) {
  EXPECT_EQ(Ask(OpenVolume(root_), FSCTL_MOVE_FILE, Bytes(31)).error,
            DWORD{ERROR_INSUFFICIENT_BUFFER});
}

TEST_F(DiskFat32, AttributesOfTheRootAreError87) {
  const WideString root(root_.begin(), root_.end());  // ASCII
  EXPECT_FALSE(win32::SetFileAttributesW(root.c_str(), FILE_ATTRIBUTE_NORMAL));
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_INVALID_PARAMETER});
}

TEST_F(DiskFat32, FirstClusterThatCannotBeIsError1392WhenTheFileIsOpened) {
  {
    const File volume = OpenVolume(root_);
    ASSERT_EQ(Lock(volume), DWORD{ERROR_SUCCESS});
    Bytes folder = Read(volume, data_offset_, cluster_size_).bytes;  // the root's first cluster
    constexpr std::string_view kName = "FILE    BIN";
    const auto entry =
        std::search(folder.begin(), folder.end(), kName.begin(), kName.end(),
                    [](std::byte byte, char c) { return std::to_integer<char>(byte) == c; });
    ASSERT_NE(entry, folder.end());
    entry[20] = std::byte{0xF0};
    entry[21] = std::byte{0x0F};
    ASSERT_EQ(Write(volume, data_offset_, folder), DWORD{ERROR_SUCCESS});
    ASSERT_EQ(Ask(volume, FSCTL_DISMOUNT_VOLUME).error, DWORD{ERROR_SUCCESS});
  }
  const File file(Open(root_ + "file.bin", GENERIC_READ, OPEN_EXISTING));
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(win32::GetLastError(), DWORD{ERROR_FILE_CORRUPT});
}

TEST_F(DiskFat32, DismountMakesFileHandlesError21) {
  const File file = OpenOn(root_, "file.bin");
  const File volume = OpenVolume(root_);
  ASSERT_EQ(Ask(volume, FSCTL_DISMOUNT_VOLUME).error, DWORD{ERROR_SUCCESS});
  EXPECT_EQ(Read(file, 0, 16).error, DWORD{ERROR_NOT_READY});
}

}  // namespace
}  // namespace conformance
