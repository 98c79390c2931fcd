#include "conversion/volumes.h"

#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "conversion/tools.h"
#include "support/tools/run_tool.h"

namespace conversion {
namespace {

namespace fs = std::filesystem;
using ::testing::UnorderedElementsAre;

void WriteFile(const fs::path& path, const std::string& contents) {
  std::ofstream file(path, std::ios::binary);
  if (!file.write(contents.data(), static_cast<std::streamsize>(contents.size()))) {
    throw std::runtime_error("cannot write " + path.string());
  }
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

// A folder with the files, in place of what was there.
fs::path WriteFiles(const fs::path& scratch, const Files& files) {
  const fs::path folder = scratch / "files";
  fs::remove_all(folder);
  fs::create_directory(folder);
  for (const auto& [name, contents] : files) WriteFile(folder / name, contents);
  return folder;
}

fs::path NewVolume(const fs::path& scratch, const Partition& partition) {
  const fs::path volume = scratch / "volume.img";
  CreateImage(volume, partition.count() * kSectorBytes);
  return volume;
}

fs::path Extract(const fs::path& image, const Partition& partition, const fs::path& scratch) {
  const fs::path volume = scratch / "volume.img";
  ExtractVolume(image, partition.range(), volume);
  return volume;
}

void ExpectNtfsFiles(const fs::path& volume, const Files& files) {
  Tool({"ntfsinfo", "--mft", volume});
  for (const auto& [name, contents] : files) {
    EXPECT_TRUE(Tool({"ntfscat", volume, name}) == contents) << name;
  }
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  std::string line;
  while (std::getline(stream, line)) lines.push_back(line);
  return lines;
}

}  // namespace

Files MakeFiles(unsigned seed) {
  Files files;
  for (const std::size_t size : {20u, 5'000u, 300'000u}) {
    std::string& contents = files["file" + std::to_string(size) + ".txt"];
    unsigned state = seed;
    while (contents.size() < size) {
      state = state * 1'664'525 + 1'013'904'223;
      contents += std::to_string(state) + "\n";
    }
  }
  return files;
}

void PutNtfs(const fs::path& image, const Partition& partition, const Files& files,
             const fs::path& scratch) {
  const fs::path volume = NewVolume(scratch, partition);
  Tool({"mkntfs", "--force", "--fast", "--quiet", "--partition-start",
        std::to_string(partition.first), "--sector-size", "512", "--cluster-size", "4096",
        "--heads", "255", "--sectors-per-track", "63", volume});
  const fs::path folder = WriteFiles(scratch, files);
  for (const auto& [name, contents] : files) {
    Tool({"ntfscp", "--quiet", volume, folder / name, name});
  }
  PlaceVolume(image, partition, volume);
}

void PutFat32(const fs::path& image, const Partition& partition, const Files& files,
              const fs::path& scratch) {
  const fs::path volume = NewVolume(scratch, partition);
  Tool({"mkfs.fat", "-F", "32", "-s", "1", "-i", "12345678", "-h", std::to_string(partition.first),
        volume});
  const fs::path folder = WriteFiles(scratch, files);
  for (const auto& [name, contents] : files) {
    Tool({"mcopy", "-i", volume, folder / name, "::" + name});
  }
  PlaceVolume(image, partition, volume);
}

void PutExt4(const fs::path& image, const Partition& partition, const Files& files,
             const fs::path& scratch) {
  const fs::path volume = NewVolume(scratch, partition);
  Tool({"mkfs.ext4", "-q", "-F", "-d", WriteFiles(scratch, files), volume});
  PlaceVolume(image, partition, volume);
}

void ExpectNtfs(const fs::path& image, const Partition& partition, const Files& files,
                const fs::path& scratch) {
  const fs::path volume = Extract(image, partition, scratch);
  Tool({"ntfsfix", "--no-action", volume});
  ExpectNtfsFiles(volume, files);
}

void ExpectFat32(const fs::path& image, const Partition& partition, const Files& files,
                 const fs::path& scratch) {
  const fs::path volume = Extract(image, partition, scratch);
  Tool({"fsck.fat", "-n", volume});
  for (const auto& [name, contents] : files) {
    const fs::path copy = scratch / "copy";
    fs::remove(copy);
    Tool({"mcopy", "-i", volume, "::" + name, copy});
    EXPECT_TRUE(ReadFile(copy) == contents) << name;
  }
}

void ExpectExt4(const fs::path& image, const Partition& partition, const Files& files,
                const fs::path& scratch) {
  const fs::path volume = Extract(image, partition, scratch);
  Tool({"e2fsck", "-f", "-n", volume});
  for (const auto& [name, contents] : files) {
    const fs::path copy = scratch / "copy";
    fs::remove(copy);
    Tool({"debugfs", "-R", "dump /" + name + " " + copy.string(), volume});
    EXPECT_TRUE(ReadFile(copy) == contents) << name;
  }
}

void ExpectShrunkNtfs(const fs::path& image, const Partition& partition, const Files& files,
                      const fs::path& scratch) {
  const fs::path volume = Extract(image, partition, scratch);
  ExpectNtfsFiles(volume, files);
  const auto check = testing_support::RunTool({"ntfsfix", "--no-action", volume});
  EXPECT_EQ(check.exit_status, 1);
  EXPECT_THAT(LinesOf(check.output),
              UnorderedElementsAre("Mounting volume... OK",
                                   "Processing of $MFT and $MFTMirr completed successfully.",
                                   "Checking the alternate boot sector... BAD",
                                   "Error: Failed to fix the alternate boot sector"));
}

}  // namespace conversion
