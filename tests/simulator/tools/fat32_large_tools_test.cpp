// FAT32 volumes with many files and of great size: what the machine does stays in proportion.
#include <fstream>
#include <set>

#include "simulator/disk.h"
#include "simulator/text.h"
#include "simulator/tools/fat32_volume_fixture.h"

namespace testing_support {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kGiB = std::uint64_t{1} << 30;

class Fat32Large : public HostMadeVolumeTest {
 protected:
  std::uint64_t BytesRead() { return machine_.FindDisk(1)->device().bytes_read(); }

  // Every file and folder below a path: the files into `files`, the folders into `folders`.
  static void Walk(const std::string& folder, std::vector<std::string>& files,
                   std::vector<std::string>& folders) {
    WIN32_FIND_DATAW data{};
    const std::string pattern = folder + "\\*";
    const HANDLE find = win32::FindFirstFileW(simulator::Utf8ToUtf16(pattern).c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return;
    do {
      const std::string name = simulator::Utf16ToUtf8(data.cFileName);
      if (name == "." || name == "..") continue;
      const std::string path = folder + '\\' + name;
      const bool is_folder = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      (is_folder ? folders : files).push_back(path);
      if (is_folder) Walk(path, files, folders);
    } while (win32::FindNextFileW(find, &data) != FALSE);
    EXPECT_TRUE(win32::FindClose(find));
  }
};

TEST_F(Fat32Large, TwentyThousandFilesAreReadOnce) {
  // A folder of 250 files is copied 80 times.
  const fs::path tree = folder_.path() / "files";
  fs::create_directories(tree);
  for (int i = 0; i < 250; ++i) {
    std::ofstream(tree / ("File with a long name " + std::to_string(i))) << i;
  }
  const Fat32Disk disk(folder_.path() / "disk.img", Fat32DiskPlan());
  for (int i = 0; i < 80; ++i) {
    disk.Mtools({"mcopy", "-s", tree.string(), "::/Folder number " + std::to_string(i)});
  }
  Attach(disk);
  std::vector<std::string> files;
  std::vector<std::string> folders;
  Walk(path_, files, folders);
  EXPECT_EQ(std::set<std::string>(files.begin(), files.end()).size(), 20'000U);
  EXPECT_EQ(folders.size(), 80U);
  const std::uint64_t listed = BytesRead();
  // The folders have some 80 bytes and more for each file; the table is less than 1 MiB.
  EXPECT_LT(listed, 6 * kMiB);
  const HANDLE volume = OpenVolume();
  std::set<std::uint64_t> places;
  for (const std::string& path : files) {
    const HANDLE file = Open(path);
    const ClusterRuns runs = Pointers(file, 1);
    ASSERT_EQ(runs.size(), 1U) << path;
    places.insert(runs.front().first);
    ASSERT_TRUE(win32::CloseHandle(file));
  }
  EXPECT_EQ(places.size(), files.size());
  EXPECT_LT(BytesRead() - listed, kMiB) << "nothing is read again for a file";
  const std::uint64_t opened = BytesRead();
  for (std::size_t i = 0; i < 1000; ++i) {
    const auto target = static_cast<std::int64_t>(90'000 + i);
    ASSERT_EQ(Move(volume, Open(files[i * 20]), 0, target, 1), ERROR_SUCCESS) << files[i * 20];
  }
  EXPECT_LT(BytesRead() - opened, kMiB) << "a move reads its one cluster";
  EXPECT_NE(disk.Check().find(": 20080 files, "), std::string::npos);
}

TEST_F(Fat32Large, ADeepTreeIsReadFolderByFolder) {
  const fs::path tree = folder_.path() / "files";
  fs::path deepest = tree;
  for (int i = 0; i < 25; ++i) deepest /= "level " + std::to_string(i);
  fs::create_directories(deepest);
  std::ofstream(deepest / "file") << "at the bottom";
  const Fat32Disk disk(folder_.path() / "disk.img", Fat32DiskPlan());
  disk.CopyIn(tree);
  Attach(disk);
  std::vector<std::string> files;
  std::vector<std::string> folders;
  Walk(path_, files, folders);
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(folders.size(), 25U);
  const std::uint64_t before = BytesRead();
  for (int i = 0; i < 100; ++i) ASSERT_NE(Open(files.front()), INVALID_HANDLE_VALUE);
  EXPECT_EQ(BytesRead(), before);
}

// The most sectors that the format can count.
TEST_F(Fat32Large, AVolumeOfTwoTebibytesHasItsBitmap) {
  Fat32DiskPlan plan;
  plan.disk_size = 2047 * kGiB;
  plan.length = 2046 * kGiB;
  plan.cluster_bytes = 32768;
  const Fat32Disk disk(folder_.path() / "disk.img", plan);
  const fs::path tree = folder_.path() / "files";
  fs::create_directories(tree);
  std::ofstream(tree / "file") << std::string(20'000, 'x');
  disk.CopyIn(tree);
  Attach(disk);
  const HANDLE volume = OpenVolume();
  const HANDLE file = Open(path_ + "\\file");
  STARTING_LCN_INPUT_BUFFER start{};
  std::vector<std::uint8_t> answer(24);
  DWORD returned = 0;
  EXPECT_FALSE(win32::DeviceIoControl(volume, FSCTL_GET_VOLUME_BITMAP, &start, sizeof start,
                                      answer.data(), 24, &returned, nullptr));
  EXPECT_EQ(win32::GetLastError(), ERROR_MORE_DATA);
  std::uint64_t total = 0;
  for (std::size_t i = 0; i < 8; ++i) total |= std::uint64_t{answer[8 + i]} << (8 * i);
  EXPECT_GT(total, 67'000'000U);
  const auto last = static_cast<std::int64_t>(total - 1);
  ASSERT_EQ(Move(volume, file, 0, last, 1), ERROR_SUCCESS);
  EXPECT_EQ(disk.RunsOf({"::/file"}).front(), (ClusterRuns{{total + 1, 1}}));
  answer.resize(16 + static_cast<std::size_t>((total + 7) / 8));
  EXPECT_TRUE(win32::DeviceIoControl(volume, FSCTL_GET_VOLUME_BITMAP, &start, sizeof start,
                                     answer.data(), static_cast<DWORD>(answer.size()), &returned,
                                     nullptr));
  std::uint64_t used = 0;
  for (std::size_t i = 16; i < answer.size(); ++i) {
    used += static_cast<unsigned>(__builtin_popcount(answer[i]));
  }
  EXPECT_EQ(used, 2U) << "the root directory and the file";
  EXPECT_EQ(disk.Mtools({"mtype", "::/file"}), std::string(20'000, 'x'));
}

}  // namespace
}  // namespace testing_support
