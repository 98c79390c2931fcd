// Changes that the FAT32 driver keeps back and writes together.
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <optional>
#include <string>

#include "simulator/storage/fat32_files.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/storage_disk.h"

namespace simulator::storage_testing {
namespace {

constexpr std::size_t kCluster = 512;

// Called in front of each transfer of the device that it watches, and now and then besides.
class Watcher : public LateWriter {
 public:
  Watcher(BlockDevice& device, std::function<void()> watch)
      : device_(device), watch_(std::move(watch)) {
    device.Add(*this);
  }
  ~Watcher() override { device_.Remove(*this); }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  void BeforeTransfer() override { watch_(); }

 private:
  BlockDevice& device_;
  std::function<void()> watch_;
};

// A volume with clusters of 512 bytes, 1 MiB into the disk, used by a driver that writes late, and
// a second one that sees nothing but the image file.
class Fat32LateWrites : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(FormatFat32(disk_.device(), {kMiB, 40 * kMiB, 2048, 1}), ERROR_SUCCESS);
    Fat32Files files(disk_.device(), kMiB);
    ASSERT_EQ(files.MakeFolder("\\FOLDER"), ERROR_SUCCESS);
    for (const char* path : {"\\ONE", "\\TWO", "\\FOLDER\\THREE", "\\FOLDER\\a long name.txt"}) {
      contents_[path] = std::string(3 * kCluster, path[1]) + path;
      ASSERT_EQ(files.Write(path, contents_[path]), ERROR_SUCCESS);
    }
    contents_["\\LARGE"] = std::string(300 * kCluster, 'l');
    ASSERT_EQ(files.Write("\\LARGE", contents_["\\LARGE"]), ERROR_SUCCESS);
  }

  BlockDevice& device() { return disk_.device(); }
  std::string Image() {
    std::string bytes(device().size(), '\0');
    std::ifstream(disk_.image(), std::ios::binary).read(bytes.data(), std::ssize(bytes));
    return bytes;
  }
  static Fat32FileId Id(Fat32Files& files, std::string_view path) {
    Fat32FileId id;
    EXPECT_EQ(files.Find(path, id), ERROR_SUCCESS) << path;
    return id;
  }
  static unsigned Attributes(Fat32Files& files, std::string_view path) {
    Fat32Entry entry;
    EXPECT_EQ(files.Look(Id(files, path), entry), ERROR_SUCCESS) << path;
    return entry.attributes;
  }
  static std::uint32_t FirstCluster(Fat32Files& files, std::string_view path) {
    Fat32Chain chain;
    EXPECT_EQ(files.Chain(Id(files, path), chain), ERROR_SUCCESS) << path;
    return chain.empty() ? 0 : chain.front();
  }
  static DWORD Move(Fat32Files& files, std::string_view path, std::uint32_t target,
                    std::size_t index = 0, std::size_t count = 1000) {
    return files.Move(Id(files, path), index, count, target);
  }
  // Of the image file as it is now.
  void ExpectEveryFileWhole() {
    BlockDevice image(disk_.image(), 512, Access::kReadOnly);
    Fat32Files files(image, kMiB);
    for (const auto& [path, content] : contents_) {
      std::string read;
      EXPECT_EQ(files.Read(path, read), ERROR_SUCCESS) << path;
      EXPECT_TRUE(read == content) << path;
    }
  }
  unsigned AttributesInImage(std::string_view path) {
    BlockDevice image(disk_.image(), 512, Access::kReadOnly);
    Fat32Files files(image, kMiB);
    return Attributes(files, path);
  }

  StorageDisk disk_{84 * kMiB};
  std::map<std::string, std::string> contents_;
};

TEST_F(Fat32LateWrites, ReachTheImageWithFlush) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  EXPECT_EQ(Attributes(files, "\\ONE"), unsigned{FILE_ATTRIBUTE_HIDDEN});
  EXPECT_EQ(AttributesInImage("\\ONE"), unsigned{FILE_ATTRIBUTE_ARCHIVE});
  EXPECT_EQ(files.Flush(), ERROR_SUCCESS);
  EXPECT_EQ(AttributesInImage("\\ONE"), unsigned{FILE_ATTRIBUTE_HIDDEN});
}

TEST_F(Fat32LateWrites, AreDoneAtOnceUnlessAskedFor) {
  Fat32Files files(device(), kMiB);
  EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  EXPECT_EQ(AttributesInImage("\\ONE"), unsigned{FILE_ATTRIBUTE_HIDDEN});
}

TEST_F(Fat32LateWrites, ReachTheImageWithTheObjectsEnd) {
  {
    Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
    EXPECT_EQ(Move(files, "\\ONE", 2000), ERROR_SUCCESS);
    EXPECT_EQ(files.SetAttributes("\\FOLDER\\THREE", FILE_ATTRIBUTE_SYSTEM), ERROR_SUCCESS);
  }
  BlockDevice image(disk_.image(), 512, Access::kReadOnly);
  Fat32Files files(image, kMiB);
  EXPECT_EQ(FirstCluster(files, "\\ONE"), 2000U);
  EXPECT_EQ(Attributes(files, "\\FOLDER\\THREE"), unsigned{FILE_ATTRIBUTE_SYSTEM});
  ExpectEveryFileWhole();
}

TEST_F(Fat32LateWrites, AreThereForWhoeverElseUsesTheDevice) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  Fat32Files others(device(), kMiB);
  EXPECT_EQ(Attributes(others, "\\ONE"), unsigned{FILE_ATTRIBUTE_HIDDEN});
  EXPECT_EQ(others.SetAttributes("\\ONE", FILE_ATTRIBUTE_SYSTEM), ERROR_SUCCESS);
  EXPECT_EQ(Attributes(files, "\\ONE"), unsigned{FILE_ATTRIBUTE_SYSTEM});
}

// What it has read before holds no longer, and it must not write that back.
TEST_F(Fat32LateWrites, AreThereForAnotherDriverThatHasReadTheFolderBefore) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  for (const auto writing : {Fat32Files::Writing::kAtOnce, Fat32Files::Writing::kLate}) {
    Fat32Files others(device(), kMiB, writing);
    Attributes(others, "\\ONE");
    EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
    EXPECT_EQ(Attributes(others, "\\ONE"), unsigned{FILE_ATTRIBUTE_HIDDEN});
    EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_SYSTEM), ERROR_SUCCESS);
    EXPECT_EQ(others.Write("\\NEW", "new"), ERROR_SUCCESS);
    EXPECT_EQ(others.SetAttributes("\\TWO", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
    EXPECT_EQ(Attributes(files, "\\ONE"), unsigned{FILE_ATTRIBUTE_SYSTEM});
    EXPECT_EQ(Attributes(files, "\\TWO"), unsigned{FILE_ATTRIBUTE_HIDDEN});
    EXPECT_EQ(files.Remove("\\NEW"), ERROR_SUCCESS);
  }
  ExpectEveryFileWhole();
}

TEST_F(Fat32LateWrites, OfNeighboursAreOneWriteWithTheLongNameBetweenThem) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  const std::uint64_t before = device().bytes_written();
  for (const char* path : {"\\FOLDER\\THREE", "\\FOLDER\\a long name.txt"}) {
    EXPECT_EQ(files.SetAttributes(path, FILE_ATTRIBUTE_NORMAL), ERROR_SUCCESS);
  }
  EXPECT_EQ(device().bytes_written(), before);
  EXPECT_EQ(files.Flush(), ERROR_SUCCESS);
  EXPECT_EQ(device().bytes_written() - before, 4U * 32);
  EXPECT_EQ(AttributesInImage("\\FOLDER\\THREE"), 0U);
  EXPECT_EQ(AttributesInImage("\\FOLDER\\a long name.txt"), 0U);
  ExpectEveryFileWhole();
}

TEST_F(Fat32LateWrites, FarApartInAFolderAreWritesOfTheirOwn) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(files.Write("\\FOLDER\\" + std::to_string(i), "x"), ERROR_SUCCESS);
  }
  const std::uint64_t before = device().bytes_written();
  for (const char* path : {"\\FOLDER\\5", "\\FOLDER\\35"}) {
    EXPECT_EQ(files.SetAttributes(path, FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  }
  EXPECT_EQ(files.Flush(), ERROR_SUCCESS);
  EXPECT_EQ(device().bytes_written() - before, 2U * 32);
  EXPECT_EQ(AttributesInImage("\\FOLDER\\35"), unsigned{FILE_ATTRIBUTE_HIDDEN});
  EXPECT_EQ(AttributesInImage("\\FOLDER\\20"), unsigned{FILE_ATTRIBUTE_ARCHIVE});
}

// Moves whose writes depend on each other: pieces of one file, a file that moves twice, one that
// comes to where another was, parts from the middle, and parts from back to front.
void MoveAbout(
    Fat32Files& files,
    const std::function<DWORD(const char*, std::uint32_t, std::size_t, std::size_t)>& move) {
  EXPECT_EQ(move("\\LARGE", 5000, 0, 1000), ERROR_SUCCESS);
  EXPECT_EQ(move("\\ONE", 2000, 0, 1000), ERROR_SUCCESS);
  EXPECT_EQ(move("\\ONE", 2100, 0, 1000), ERROR_SUCCESS);
  EXPECT_EQ(move("\\TWO", 2000, 0, 1000), ERROR_SUCCESS);
  EXPECT_EQ(move("\\LARGE", 6000, 7, 130), ERROR_SUCCESS);
  EXPECT_EQ(move("\\LARGE", 8000, 5, 1), ERROR_SUCCESS);
  EXPECT_EQ(move("\\LARGE", 8100, 4, 1), ERROR_SUCCESS);
  EXPECT_EQ(move("\\LARGE", 8200, 3, 1), ERROR_SUCCESS);
  EXPECT_EQ(files.SetAttributes("\\FOLDER\\THREE", FILE_ATTRIBUTE_NORMAL), ERROR_SUCCESS);
  EXPECT_EQ(move("\\FOLDER\\THREE", 5007, 1, 2), ERROR_SUCCESS);
  EXPECT_EQ(move("\\FOLDER\\a long name.txt", 7000, 0, 2), ERROR_SUCCESS);
}

TEST_F(Fat32LateWrites, LeaveTheSameImageAsWritesAtOnce) {
  const std::string before = Image();
  std::string at_once;
  for (const auto writing : {Fat32Files::Writing::kAtOnce, Fat32Files::Writing::kLate}) {
    ASSERT_TRUE(device().Write(0, std::as_bytes(std::span(before))));
    {
      Fat32Files files(device(), kMiB, writing);
      MoveAbout(files,
                [&files](const char* path, std::uint32_t target, std::size_t index,
                         std::size_t count) { return Move(files, path, target, index, count); });
    }
    if (writing == Fat32Files::Writing::kAtOnce) at_once = Image();
  }
  EXPECT_TRUE(Image() == at_once);
  EXPECT_FALSE(Image() == before);
  ExpectEveryFileWhole();
}

TEST_F(Fat32LateWrites, LeaveEveryFileWholeWhereverTheyAreCutOff) {
  for (const auto writing : {Fat32Files::Writing::kAtOnce, Fat32Files::Writing::kLate}) {
    int transfers = 0;
    Fat32Files files(device(), kMiB, writing);
    const Watcher watcher(device(), [this, &transfers] {
      ++transfers;
      ExpectEveryFileWhole();
    });
    // The second time, back to the beginning of the volume's free part.
    const std::uint32_t shift = writing == Fat32Files::Writing::kAtOnce ? 0 : 10'000;
    MoveAbout(files,
              [&](const char* path, std::uint32_t target, std::size_t index, std::size_t count) {
                return Move(files, path, target + shift, index, count);
              });
    EXPECT_EQ(files.Flush(), ERROR_SUCCESS);
    EXPECT_GT(transfers, 15);
  }
  ExpectEveryFileWhole();
}

TEST_F(Fat32LateWrites, DoNotWaitWhenAFileComesToWhereAnotherStillIsOnTheDisk) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  const std::uint32_t place = FirstCluster(files, "\\ONE");
  EXPECT_EQ(Move(files, "\\ONE", 2000), ERROR_SUCCESS);
  EXPECT_EQ(Move(files, "\\TWO", place + 1, 0, 2), ERROR_SUCCESS);
  ExpectEveryFileWhole();
}

TEST_F(Fat32LateWrites, KeepChangedEntriesOfAFolderThatMoves) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  for (int i = 0; i < 20; ++i) {
    const std::string path = "\\FOLDER\\" + std::to_string(i);
    ASSERT_EQ(files.Write(path, "x"), ERROR_SUCCESS);
  }
  const auto set_all = [&files](DWORD attributes) {
    for (int i = 0; i < 20; ++i) {
      const std::string path = "\\FOLDER\\" + std::to_string(i);
      ASSERT_EQ(files.SetAttributes(path, attributes), ERROR_SUCCESS);
    }
  };
  const auto expect_all = [this](unsigned attributes) {
    for (int i = 0; i < 20; ++i) {
      EXPECT_EQ(AttributesInImage("\\FOLDER\\" + std::to_string(i)), attributes) << i;
    }
  };
  set_all(FILE_ATTRIBUTE_HIDDEN);
  ASSERT_EQ(Move(files, "\\FOLDER", 2000, 1), ERROR_SUCCESS);
  EXPECT_EQ(files.Flush(), ERROR_SUCCESS);
  expect_all(FILE_ATTRIBUTE_HIDDEN);
  // They lie elsewhere now.
  set_all(FILE_ATTRIBUTE_SYSTEM);
  EXPECT_EQ(files.Flush(), ERROR_SUCCESS);
  expect_all(FILE_ATTRIBUTE_SYSTEM);
  ExpectEveryFileWhole();
}

TEST_F(Fat32LateWrites, AreKnownToTheBitmapThatIsReadAfterwards) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  const std::uint32_t place = FirstCluster(files, "\\ONE");
  EXPECT_EQ(Move(files, "\\ONE", 2000), ERROR_SUCCESS);
  std::span<const std::uint8_t> bits;
  std::uint32_t count = 0;
  ASSERT_EQ(files.Usage(bits, count), ERROR_SUCCESS);
  const auto is_used = [&bits](std::uint32_t cluster) {
    return (bits[(cluster - 2) / 8] >> ((cluster - 2) % 8) & 1) != 0;
  };
  EXPECT_TRUE(is_used(2000));
  EXPECT_FALSE(is_used(place));
}

TEST_F(Fat32LateWrites, GoInFrontOfOtherChanges) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  EXPECT_EQ(Move(files, "\\TWO", 2000), ERROR_SUCCESS);
  EXPECT_EQ(files.Write("\\NEW", "new"), ERROR_SUCCESS);
  contents_["\\NEW"] = "new";
  ExpectEveryFileWhole();
  EXPECT_EQ(AttributesInImage("\\ONE"), unsigned{FILE_ATTRIBUTE_HIDDEN});
  EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_SYSTEM), ERROR_SUCCESS);
  EXPECT_EQ(files.Remove("\\NEW"), ERROR_SUCCESS);
  EXPECT_EQ(AttributesInImage("\\ONE"), unsigned{FILE_ATTRIBUTE_SYSTEM});
  EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_READONLY), ERROR_SUCCESS);
  EXPECT_EQ(files.MakeFolder("\\OTHER"), ERROR_SUCCESS);
  EXPECT_EQ(AttributesInImage("\\ONE"), unsigned{FILE_ATTRIBUTE_READONLY});
}

TEST_F(Fat32LateWrites, DoNotGatherWithoutEnd) {
  Fat32Files files(device(), kMiB, Fat32Files::Writing::kLate);
  const std::uint64_t before = device().bytes_written();
  // To and fro between two folders: no two changes are neighbours.
  int changes = 0;
  while (device().bytes_written() == before && changes < 300) {
    const char* path = ++changes % 2 == 0 ? "\\ONE" : "\\FOLDER\\THREE";
    ASSERT_EQ(files.SetAttributes(path, FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  }
  EXPECT_EQ(changes, 256);
}

TEST_F(Fat32LateWrites, OfTwoVolumesOfADiskDoNotDisturbEachOther) {
  constexpr std::uint64_t kOther = 42 * kMiB;
  ASSERT_EQ(FormatFat32(device(), {kOther, 40 * kMiB, 2048, 1}), ERROR_SUCCESS);
  {
    Fat32Files one(device(), kMiB, Fat32Files::Writing::kLate);
    Fat32Files other(device(), kOther, Fat32Files::Writing::kLate);
    ASSERT_EQ(other.Write("\\ONE", "one"), ERROR_SUCCESS);
    EXPECT_EQ(one.SetAttributes("\\ONE", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
    EXPECT_EQ(other.SetAttributes("\\ONE", FILE_ATTRIBUTE_SYSTEM), ERROR_SUCCESS);
    EXPECT_EQ(Move(one, "\\ONE", 2000), ERROR_SUCCESS);
    EXPECT_EQ(Move(other, "\\ONE", 3000), ERROR_SUCCESS);
  }
  Fat32Files one(device(), kMiB);
  Fat32Files other(device(), kOther);
  EXPECT_EQ(Attributes(one, "\\ONE"), unsigned{FILE_ATTRIBUTE_HIDDEN});
  EXPECT_EQ(Attributes(other, "\\ONE"), unsigned{FILE_ATTRIBUTE_SYSTEM});
  EXPECT_EQ(FirstCluster(one, "\\ONE"), 2000U);
  EXPECT_EQ(FirstCluster(other, "\\ONE"), 3000U);
  ExpectEveryFileWhole();
}

class LateWritesOfABrokenDisk : public Fat32LateWrites {
 protected:
  // Where the driver is when anything is written.
  Fat32Files& Broken() {
    if (!files_) files_.emplace(broken_, kMiB, Fat32Files::Writing::kLate);
    return *files_;
  }
  void ReadByAnother() {
    std::byte byte{};
    EXPECT_TRUE(broken_.Read(0, {&byte, 1}));
  }

  BlockDevice broken_{disk_.image(), 512, Access::kReadOnly};
  std::optional<Fat32Files> files_;
};

TEST_F(LateWritesOfABrokenDisk, AreLostWhenFlushFails) {
  Fat32Files& files = Broken();
  const std::uint32_t place = FirstCluster(files, "\\ONE");
  EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  EXPECT_EQ(files.Flush(), ERROR_WRITE_FAULT);
  EXPECT_EQ(Attributes(files, "\\ONE"), unsigned{FILE_ATTRIBUTE_ARCHIVE});
  EXPECT_EQ(FirstCluster(files, "\\ONE"), place);
  EXPECT_EQ(files.Flush(), ERROR_SUCCESS);
}

TEST_F(LateWritesOfABrokenDisk, AreToldToTheNextWhoChangesSomething) {
  Fat32Files& files = Broken();
  EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  ReadByAnother();
  EXPECT_EQ(Attributes(files, "\\ONE"), unsigned{FILE_ATTRIBUTE_ARCHIVE});
  EXPECT_EQ(files.SetAttributes("\\TWO", FILE_ATTRIBUTE_HIDDEN), ERROR_WRITE_FAULT);
  EXPECT_EQ(Attributes(files, "\\TWO"), unsigned{FILE_ATTRIBUTE_ARCHIVE});
}

TEST_F(LateWritesOfABrokenDisk, AreToldHoweverOftenOthersUseTheDevice) {
  Fat32Files& files = Broken();
  EXPECT_EQ(files.SetAttributes("\\ONE", FILE_ATTRIBUTE_HIDDEN), ERROR_SUCCESS);
  ReadByAnother();
  ReadByAnother();
  EXPECT_EQ(files.Flush(), ERROR_WRITE_FAULT);
  EXPECT_EQ(files.Flush(), ERROR_SUCCESS);
}

}  // namespace
}  // namespace simulator::storage_testing
