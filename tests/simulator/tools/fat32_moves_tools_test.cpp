// Clusters that FSCTL_MOVE_FILE moves on volumes of other tools, judged by those tools.
#include <algorithm>
#include <fstream>
#include <map>
#include <random>

#include "simulator/tools/fat32_volume_fixture.h"

namespace testing_support {
namespace {

namespace fs = std::filesystem;

std::string Bytes(std::size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random() & 0xFF);
  return bytes;
}

void WriteFile(const fs::path& path, const std::string& content) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

// All files below a folder with their contents.
std::map<std::string, std::string> Tree(const fs::path& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = entry.path().lexically_relative(folder).string();
    if (entry.is_directory()) {
      files[name] = "folder";
      continue;
    }
    files[name] = TextOf(entry.path());
  }
  return files;
}

// The entries of both tables, read from the image's bytes by hand; empty when they differ.
std::vector<std::uint32_t> TableOf(const Fat32Disk& disk) {
  std::ifstream image(disk.image(), std::ios::binary);
  const auto bytes_at = [&image](std::uint64_t offset, std::size_t size) {
    std::string bytes(size, '\0');
    image.seekg(static_cast<std::streamoff>(offset));
    image.read(bytes.data(), static_cast<std::streamsize>(size));
    return bytes;
  };
  const auto number = [](const std::string& bytes, std::size_t at, std::size_t size) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i) {
      value |= std::uint32_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
    }
    return value;
  };
  const std::string boot = bytes_at(disk.offset(), 512);
  const std::uint64_t start = disk.offset() + std::uint64_t{number(boot, 14, 2)} * 512;
  const std::size_t length = std::size_t{number(boot, 36, 4)} * 512;
  const std::string first = bytes_at(start, length);
  std::vector<std::uint32_t> table;
  if (first != bytes_at(start + length, length)) return table;
  for (std::size_t at = 0; at < length; at += 4) table.push_back(number(first, at, 4) & 0xFFFFFFF);
  return table;
}

class Fat32Moves : public HostMadeVolumeTest, public ::testing::WithParamInterface<std::uint32_t> {
 protected:
  std::uint32_t cluster() const { return GetParam(); }

  // Small files, one of many clusters, one in pieces, one in folders, one empty.
  Fat32Disk MakeDisk() {
    Fat32DiskPlan plan;
    plan.cluster_bytes = cluster();
    plan.length = 66'000 * std::uint64_t{cluster()} + 2 * kMiB;
    plan.length -= plan.length % kMiB;
    plan.disk_size = plan.length + 2 * kMiB;
    Fat32Disk disk(folder_.path() / "disk.img", plan);
    disk.MakeHoles(20, 3 * cluster());
    const fs::path files = folder_.path() / "files";
    WriteFile(files / "A long name of a file.text", Bytes(5 * cluster() + 1, 1));
    WriteFile(files / "In holes", Bytes(40 * cluster(), 2));
    WriteFile(files / "folder" / "Deeper folder" / "large.bin", Bytes(300'000 + 9 * cluster(), 3));
    WriteFile(files / "folder" / "empty", "");
    WriteFile(files / "folder" / "LAST", Bytes(1, 4));
    disk.CopyIn(files);
    disk.CopyOut(folder_.path() / "before");
    return disk;
  }

  void ExpectWhole(const Fat32Disk& disk) {
    const std::string said = disk.Check();
    disk.CopyOut(folder_.path() / "after");
    EXPECT_TRUE(Tree(folder_.path() / "after") == Tree(folder_.path() / "before"));
  }
};

constexpr char kLarge[] = "\\folder\\Deeper folder\\large.bin";

TEST_P(Fat32Moves, PutWholeFilesWhereTheyAreAsked) {
  const Fat32Disk disk = MakeDisk();
  Attach(disk);
  const HANDLE volume = OpenVolume();
  std::int64_t target = 60'000;
  for (const char* name :
       {"\\A long name of a file.text", "\\In holes", kLarge, "\\folder\\LAST"}) {
    const HANDLE file = Open(path_ + name);
    ASSERT_NE(file, INVALID_HANDLE_VALUE) << name;
    DWORD count = 0;
    for (const auto& run : Pointers(file)) count += static_cast<DWORD>(run.second);
    EXPECT_EQ(Move(volume, file, 0, target, count), ERROR_SUCCESS) << name;
    const ClusterRuns moved = {{static_cast<std::uint64_t>(target) + 2, count}};
    EXPECT_EQ(Pointers(file), moved) << name;
    target += count + 3;
  }
  ExpectWhole(disk);
}

TEST_P(Fat32Moves, PutPartsOfAFileWhereTheyAreAsked) {
  const Fat32Disk disk = MakeDisk();
  Attach(disk);
  const HANDLE volume = OpenVolume();
  const HANDLE file = Open(path_ + "\\In holes");
  const ClusterRuns before = Pointers(file);
  ASSERT_GT(before.size(), 5U);
  EXPECT_EQ(Move(volume, file, 2, 50'000, 3), ERROR_SUCCESS);
  EXPECT_EQ(Move(volume, file, 39, 50'100, 7), ERROR_SUCCESS);
  EXPECT_EQ(Move(volume, file, 40, 50'200, 1), ERROR_SUCCESS);
  EXPECT_EQ(Move(volume, file, 0, 50'300, 1), ERROR_SUCCESS);
  const ClusterRuns after = Pointers(file);
  EXPECT_EQ(after.front(), (std::pair<std::uint64_t, std::uint64_t>(50'302, 1)));
  EXPECT_EQ(after.back(), (std::pair<std::uint64_t, std::uint64_t>(50'102, 1)));
  EXPECT_EQ(after[2], (std::pair<std::uint64_t, std::uint64_t>(50'002, 3)));
  EXPECT_EQ(disk.RunsOf({"::/In holes"}).front(), after);
  ExpectWhole(disk);
}

TEST_P(Fat32Moves, CarryLaterClustersOfAFolder) {
  Fat32Disk disk = MakeDisk();
  const fs::path many = folder_.path() / "many" / "folder of many";
  // Each name takes 17 slots, of 32 bytes.
  const std::string name = std::string(200, 'n') + " ";
  for (std::uint32_t i = 0; i < 2 * cluster() / (17 * 32) + 2; ++i) {
    WriteFile(many / (name + std::to_string(i)), std::to_string(i));
  }
  disk.CopyIn(many.parent_path());
  fs::remove_all(folder_.path() / "before");
  disk.CopyOut(folder_.path() / "before");
  Attach(disk);
  const HANDLE folder = Open(path_ + "\\folder of many", FILE_FLAG_BACKUP_SEMANTICS);
  ASSERT_NE(folder, INVALID_HANDLE_VALUE);
  const HANDLE volume = OpenVolume();
  EXPECT_EQ(Move(volume, folder, 1, 55'000, 1000), ERROR_SUCCESS);
  const ClusterRuns runs = Pointers(folder);
  ASSERT_GE(runs.size(), 2U);
  EXPECT_EQ(runs[1].first, 55'002U);
  EXPECT_EQ(disk.RunsOf({"::/folder of many"}).front(), runs);
  const HANDLE file = Open(path_ + "\\folder of many\\" + name + "1");
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_EQ(Move(volume, file, 0, 58'000, 1), ERROR_SUCCESS);
  ExpectWhole(disk);
}

TEST_P(Fat32Moves, AgreeWithTheBytesOfTheTable) {
  const Fat32Disk disk = MakeDisk();
  Attach(disk);
  const HANDLE volume = OpenVolume();
  ASSERT_EQ(Move(volume, Open(path_ + kLarge), 3, 61'000, 70), ERROR_SUCCESS);
  const std::vector<std::uint32_t> table = TableOf(disk);
  ASSERT_FALSE(table.empty()) << "the tables differ";
  const std::vector<std::uint8_t> usage = Usage(volume);
  for (std::size_t i = 0; i < usage.size(); ++i) {
    ASSERT_EQ(usage[i] != 0, table[i + 2] != 0) << "cluster " << i + 2;
  }
  for (const char* name : {"\\A long name of a file.text", "\\In holes", kLarge, "\\folder",
                           "\\folder\\Deeper folder", "\\folder\\LAST"}) {
    const ClusterRuns told = Pointers(Open(path_ + name, FILE_FLAG_BACKUP_SEMANTICS), 2);
    ASSERT_FALSE(told.empty()) << name;
    std::string path = std::string("::") + name;
    std::replace(path.begin(), path.end(), '\\', '/');
    EXPECT_EQ(disk.RunsOf({path}).front(), told) << name;
    std::uint64_t cluster = told.front().first;
    for (const auto& [first, count] : told) {
      for (std::uint64_t i = 0; i < count; ++i) {
        ASSERT_EQ(cluster, first + i) << name;
        cluster = table[cluster];
      }
    }
    EXPECT_GE(cluster, 0xFFFFFF8U) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(ClusterSizes, Fat32Moves, ::testing::Values(512, 4096, 65536));

}  // namespace
}  // namespace testing_support
