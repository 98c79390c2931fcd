// What a backup holds of FAT volumes, against what other tools say of their layout.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "backup/disk_parser.h"
#include "conversion/gpt_disk.h"
#include "conversion/tools.h"
#include "platform/win32.h"
#include "simulator/disk.h"
#include "support/machine_fixture.h"

namespace conversion {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kVolumeOffset = 1 << 20;
constexpr std::uint64_t kMibs = 60;

struct Case {
  const char* name;
  std::vector<std::string> options;  // of mkfs.fat
  int files;                         // empty ones, in the root folder
};

// The number behind a text of the checker's report.
std::uint64_t NumberBehind(const std::string& report, const std::string& title) {
  const auto place = report.find(title);
  if (place == std::string::npos) throw std::runtime_error("fsck.fat does not tell " + title);
  return std::stoull(report.substr(place + title.size()));
}

// What stands in front of a text of the report, on its line.
std::uint64_t NumberInFront(const std::string& report, const std::string& title) {
  const auto place = report.find(title);
  if (place == std::string::npos) throw std::runtime_error("fsck.fat does not tell " + title);
  return std::stoull(report.substr(report.rfind('\n', place) + 1));
}

std::string FileName(int number) {
  std::ostringstream name;
  name << "F" << 1000 + number << "ABC.TXT";
  return name.str();
}

class FatSelection : public testing_support::MachineTest,
                     public ::testing::WithParamInterface<Case> {
 protected:
  fs::path MakeVolume() const {
    fs::path volume = folder_.path() / "volume.img";
    CreateImage(volume, kMibs << 20);
    std::vector<std::string> line = {"mkfs.fat"};
    line.insert(line.end(), GetParam().options.begin(), GetParam().options.end());
    line.push_back(volume);
    Tool(line);
    return volume;
  }
  // Empty files, which take entries of the root folder and no clusters.
  void AddFiles(const fs::path& volume, int first, int last) const {
    const fs::path source = folder_.path() / "files";
    fs::remove_all(source);
    fs::create_directory(source);
    std::vector<std::string> line = {"mcopy", "-i", volume};
    for (int i = first; i < last; ++i) {
      line.push_back(source / FileName(i));
      std::ofstream created(line.back());
    }
    line.push_back("::");
    if (first < last) Tool(line);
  }
  void AddData(const fs::path& volume) const {
    const fs::path data = folder_.path() / "DATA.BIN";
    std::ofstream(data) << std::string(50'000, 'd');
    Tool({"mcopy", "-i", volume, data, "::"});
  }
  velkora::BlockMap Select(const fs::path& volume) {
    disk_ = &NewDisk(1, (kMibs + 2) << 20);
    CopySectors(ImageFile(volume), 0, kMibs * kSectorsPerMib, ImageFile(disk_->device().image()),
                kVolumeOffset / kSectorBytes);
    const HANDLE handle =
        win32::CreateFileA(disk_->path().c_str(), GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    velkora::BlockMap blocks;
    EXPECT_EQ(velkora::ParseFileSystem(handle, kVolumeOffset, blocks), 0);
    EXPECT_EQ(Lines(3), std::vector<std::string>());
    return blocks;
  }
  void ExpectBytes(const velkora::BlockMap& blocks) {
    for (const auto& [offset, bytes] : blocks) {
      EXPECT_TRUE(bytes == testing_support::ReadBytes(*disk_, offset, bytes.size())) << offset;
    }
  }

  simulator::Disk* disk_ = nullptr;
};

class Fat16Selection : public FatSelection {};
class Fat32Selection : public FatSelection {};

TEST_P(Fat16Selection, HoldsEverythingInFrontOfTheData) {
  const fs::path volume = MakeVolume();
  AddFiles(volume, 0, GetParam().files);
  const std::string report = Tool({"fsck.fat", "-n", "-v", volume});
  ASSERT_NE(report.find("16 bit entries"), std::string::npos) << report;
  const velkora::BlockMap blocks = Select(volume);
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_EQ(blocks.begin()->first, kVolumeOffset);
  EXPECT_EQ(blocks.begin()->second.size(), NumberBehind(report, "Data area starts at byte"));
  ExpectBytes(blocks);
}

bool Holds(const velkora::BlockMap& blocks, const std::string& entry) {
  const auto name = std::as_bytes(std::span(entry));
  return std::any_of(blocks.begin(), blocks.end(), [name](const auto& block) {
    const auto& bytes = block.second;
    return std::search(bytes.begin(), bytes.end(), name.begin(), name.end()) != bytes.end();
  });
}

// The root folder is in several pieces where data was written between its files.
TEST_P(Fat32Selection, HoldsTheAreaInFrontOfTheDataAndTheRootFolder) {
  const fs::path volume = MakeVolume();
  AddFiles(volume, 0, GetParam().files / 2);
  const std::string before = Tool({"fsck.fat", "-n", "-v", volume});
  AddData(volume);
  const std::string with_data = Tool({"fsck.fat", "-n", "-v", volume});
  AddFiles(volume, GetParam().files / 2, GetParam().files);
  const std::string report = Tool({"fsck.fat", "-n", "-v", volume});
  ASSERT_NE(report.find("32 bit entries"), std::string::npos) << report;
  const auto used = [](const std::string& text) { return NumberBehind(text, " files, "); };
  const std::uint64_t cluster = NumberInFront(report, " bytes per cluster");
  const std::uint64_t data_area = NumberBehind(report, "Data area starts at byte");
  const std::uint64_t data_clusters = (50'000 + cluster - 1) / cluster;
  ASSERT_GE(used(with_data), used(before) + data_clusters);
  const std::uint64_t root_clusters = used(report) - data_clusters;

  const velkora::BlockMap blocks = Select(volume);
  ASSERT_TRUE(blocks.contains(kVolumeOffset));
  EXPECT_EQ(blocks.at(kVolumeOffset).size(), data_area);
  EXPECT_EQ(blocks.size(), 1 + root_clusters);
  velkora::BlockMap root = blocks;
  root.erase(kVolumeOffset);
  for (const auto& [offset, bytes] : root) {
    EXPECT_EQ(bytes.size(), cluster);
    EXPECT_EQ((offset - kVolumeOffset - data_area) % cluster, 0U);
  }
  for (int i = 0; i < GetParam().files; ++i) {
    EXPECT_TRUE(Holds(root, "F" + std::to_string(1000 + i) + "ABCTXT")) << i;
  }
  EXPECT_TRUE(Holds(root, "DATA    BIN"));
  ExpectBytes(blocks);
}

const auto kNameOf = [](const auto& tested) { return tested.param.name; };

INSTANTIATE_TEST_SUITE_P(
    Volumes, Fat16Selection,
    ::testing::Values(Case{"Usual", {"-F", "16", "-s", "4"}, 100},
                      Case{"OneFat", {"-F", "16", "-s", "8", "-f", "1"}, 0},
                      Case{"OtherFields", {"-F", "16", "-s", "4", "-R", "7", "-r", "1024"}, 10}),
    kNameOf);

INSTANTIATE_TEST_SUITE_P(
    Volumes, Fat32Selection,
    ::testing::Values(Case{"Usual", {"-F", "32", "-s", "1"}, 100},
                      Case{"OneFat", {"-F", "32", "-s", "1", "-f", "1"}, 40},
                      Case{"OtherReservedSectors", {"-F", "32", "-s", "1", "-R", "100"}, 0},
                      Case{"Unaligned", {"-F", "32", "-s", "1", "-a"}, 64}),
    kNameOf);

}  // namespace
}  // namespace conversion
