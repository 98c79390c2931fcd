// What a backup holds of an NTFS volume, against what other tools say of the volume's system files.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>
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

using Places = std::map<std::uint64_t, std::uint64_t>;

constexpr std::uint64_t kVolumeOffset = 1 << 20;
constexpr std::uint64_t kCap = 4 << 20;

struct Case {
  const char* name;
  unsigned cluster;   // bytes
  std::uint64_t mib;  // size of the volume
};

class NtfsSelection : public testing_support::MachineTest,
                      public ::testing::WithParamInterface<Case> {
 protected:
  // A volume with enough files that the root folder has an index of its own.
  fs::path MakeVolume() const {
    fs::path volume = folder_.path() / "volume.img";
    CreateImage(volume, GetParam().mib << 20);
    Tool({"mkntfs", "--force", "--fast", "--quiet", "--partition-start", "2048", "--sector-size",
          "512", "--cluster-size", std::to_string(GetParam().cluster), "--heads", "255",
          "--sectors-per-track", "63", volume});
    const fs::path file = folder_.path() / "file";
    std::ofstream(file) << std::string(10'000, 'f');
    for (int i = 0; i < 12; ++i) {
      Tool({"ntfscp", "--quiet", volume, file, "a file with a long name " + std::to_string(i)});
    }
    return volume;
  }
  simulator::Disk& PutOnDisk(const fs::path& volume) {
    simulator::Disk& disk = NewDisk(1, (GetParam().mib + 2) << 20);
    CopySectors(ImageFile(volume), 0, GetParam().mib * kSectorsPerMib,
                ImageFile(disk.device().image()), kVolumeOffset / kSectorBytes);
    return disk;
  }
};

// One non-resident attribute's first run; -1 stands for a run without clusters.
struct Run {
  unsigned type = 0;
  std::int64_t cluster = 0;
  std::uint64_t count = 0;
};

// The first runs of a record as ntfscluster lists them: a line with the attribute's type, then a
// line of titles, then the runs.
std::vector<Run> FirstRuns(const fs::path& volume, unsigned record) {
  std::istringstream text(Tool({"ntfscluster", "-I", std::to_string(record), volume}));
  std::vector<Run> runs;
  std::string line;
  while (std::getline(text, line)) {
    if (line.find("non-resident") == std::string::npos) continue;
    Run run;
    run.type = static_cast<unsigned>(std::stoul(line, nullptr, 16));
    std::uint64_t virtual_cluster = 1;
    std::getline(text, line);
    if (!(text >> virtual_cluster >> run.cluster >> run.count) || virtual_cluster != 0) {
      throw std::runtime_error("ntfscluster lists no run of record " + std::to_string(record));
    }
    runs.push_back(run);
  }
  return runs;
}

// The records that the Extend folder lists, as ntfsinfo tells them.
std::vector<unsigned> RecordsOfExtend(const fs::path& volume) {
  std::istringstream text(Tool({"ntfsinfo", "--verbose", "--inode", "11", volume}));
  std::vector<unsigned> records;
  std::string line;
  while (std::getline(text, line)) {
    const auto place = line.find("FILE record number:");
    if (place != std::string::npos) {
      records.push_back(static_cast<unsigned>(std::stoul(line.substr(place + 19))));
    }
  }
  return records;
}

// The first cluster of the table, as ntfsinfo tells it.
std::uint64_t TableCluster(const fs::path& volume) {
  const std::string text = Tool({"ntfsinfo", "--mft", volume});
  const std::string title = "LCN of Data Attribute for FILE_MFT:";
  const auto place = text.find(title);
  if (place == std::string::npos) throw std::runtime_error("ntfsinfo does not tell the MFT");
  return std::stoull(text.substr(place + title.size()));
}

void AddRuns(const fs::path& volume, unsigned record, unsigned cluster_bytes, Places& places) {
  for (const Run& run : FirstRuns(volume, record)) {
    if (run.type != 0x80 && run.type != 0xA0) continue;
    const auto cluster = run.cluster < 0 ? 0 : static_cast<std::uint64_t>(run.cluster);
    places[kVolumeOffset + cluster * cluster_bytes] = std::min(run.count * cluster_bytes, kCap);
  }
}

TEST_P(NtfsSelection, HoldsTheSystemFilesThatOtherToolsTellOf) {
  const fs::path volume = MakeVolume();
  const std::uint64_t table = kVolumeOffset + TableCluster(volume) * GetParam().cluster;
  const std::vector<unsigned> extend = RecordsOfExtend(volume);
  EXPECT_EQ(std::set<unsigned>(extend.begin(), extend.end()), (std::set<unsigned>{24, 25, 26}));
  Places expected = {{kVolumeOffset, 512}, {table, 16384}};
  for (unsigned record = 1; record < 16; ++record) {
    AddRuns(volume, record, GetParam().cluster, expected);
  }
  for (const unsigned record : extend) {
    expected[table + record * 1024] = 1024;
    AddRuns(volume, record, GetParam().cluster, expected);
  }

  simulator::Disk& disk = PutOnDisk(volume);
  const HANDLE handle =
      win32::CreateFileA(disk.path().c_str(), GENERIC_READ | GENERIC_WRITE,
                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  velkora::BlockMap blocks;
  EXPECT_EQ(velkora::ParseFileSystem(handle, kVolumeOffset, blocks), 0);
  EXPECT_EQ(Lines(3), std::vector<std::string>());

  Places selected;
  for (const auto& [offset, bytes] : blocks) selected[offset] = bytes.size();
  EXPECT_EQ(selected, expected);
  EXPECT_GT(expected.size(), 10U);
  for (const auto& [offset, bytes] : blocks) {
    EXPECT_TRUE(bytes == testing_support::ReadBytes(disk, offset, bytes.size())) << offset;
  }
}

INSTANTIATE_TEST_SUITE_P(Volumes, NtfsSelection,
                         ::testing::Values(Case{"SmallestClusters", 512, 40},
                                           Case{"UsualClusters", 4096, 40},
                                           Case{"LargeClusters", 65536, 60},
                                           // The log file is longer than a block may be.
                                           Case{"LongSystemFiles", 4096, 1024}),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
}  // namespace conversion
