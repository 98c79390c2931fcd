#include "conversion/fat32_volume_fixture.h"

#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

#include "conversion/tools.h"
#include "frame/velkora.h"
#include "simulator/volume.h"
#include "support/machine_fixture.h"
#include "support/tools/run_tool.h"

namespace conversion {
namespace {

namespace fs = std::filesystem;
using testing_support::RunTool;

constexpr std::uint64_t kFirstSector = kSectorsPerMib;
constexpr std::uint64_t kFsInfo = kSectorBytes;
constexpr std::uint64_t kBackupBootSector = 6 * kSectorBytes;

// A random block that repeats itself, of a length that no cluster has.
std::string SomeBytes(std::size_t count, const std::string& seed) {
  constexpr std::size_t kBlock = 997;
  std::mt19937 random(static_cast<unsigned>(std::hash<std::string>()(seed)));
  std::string block(kBlock, '\0');
  for (char& byte : block) byte = static_cast<char>(random() & 0xFF);
  std::string bytes;
  while (bytes.size() < count) bytes += block;
  bytes.resize(count);
  return bytes;
}

// Whether mtools read a single file as it was, or list a single folder.
bool CanRead(const fs::path& volume, const std::string& path, std::size_t hash,
             const fs::path& scratch) {
  if (path.back() == '/') return RunTool({"mdir", "-i", volume, "::/" + path}).exit_status == 0;
  const fs::path copy = scratch / "copy";
  const auto copied = RunTool({"mcopy", "-n", "-i", volume, "::/" + path, copy});
  return copied.exit_status == 0 && std::hash<std::string>()(testing_support::TextOf(copy)) == hash;
}

// The number behind `word` in a call's arguments.
std::uint64_t NumberBehind(const std::string& arguments, const std::string& word) {
  return std::stoull(arguments.substr(arguments.find(word) + word.size()));
}

}  // namespace

Tree ReadTree(const fs::path& folder) {
  Tree tree;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string path = entry.path().lexically_relative(folder).string();
    if (entry.is_directory()) {
      tree[path + "/"] = 0;
    } else {
      tree[path] = std::hash<std::string>()(testing_support::TextOf(entry.path()));
    }
  }
  return tree;
}

std::vector<std::string> LostFiles(const fs::path& image, const SectorRange& range,
                                   const Tree& expected, const fs::path& scratch) {
  const fs::path volume = scratch / "volume.img";
  const fs::path folder = scratch / "copied";
  ExtractVolume(image, range, volume);
  fs::remove_all(folder);
  fs::create_directory(folder);
  RunTool({"mcopy", "-s", "-n", "-i", volume, "::/", folder});
  const Tree found = ReadTree(folder);
  std::vector<std::string> lost;
  for (const auto& [path, hash] : expected) {
    const auto same = found.find(path);
    // The copy of a whole tree ends where something cannot be read: what lies behind that is there.
    if (same == found.end() ? !CanRead(volume, path, hash, scratch) : same->second != hash) {
      lost.push_back(path);
    }
  }
  for (const auto& [path, hash] : found) EXPECT_EQ(expected.count(path), 1U) << path;
  return lost;
}

void Fat32VolumeTest::MakeVolume(std::uint64_t mib, std::uint32_t cluster_bytes) {
  testing_support::Fat32DiskPlan plan;
  plan.disk_size = (mib + 4) * kMib;
  plan.length = mib * kMib;
  plan.cluster_bytes = cluster_bytes;
  disk_ = std::make_unique<testing_support::Fat32Disk>(image(), plan);
  fs::create_directory(File("tree"));
  cluster_bytes_ = cluster_bytes;
  sectors_ = mib * kSectorsPerMib;
  total_clusters_ = TotalClusters();
}

void Fat32VolumeTest::GoOnAt(std::uint64_t cluster) {
  constexpr std::uint64_t kLastAllocated = kFsInfo + 492;
  std::array<std::uint8_t, 4> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>((cluster - 1) >> (8 * i));
  }
  ImageFile(image()).Write(kFirstSector * kSectorBytes + kLastAllocated, bytes);
}

void Fat32VolumeTest::AddFolder(const std::string& path) {
  fs::create_directory(File("tree") / path);
  disk_->Mtools({"mmd", "::/" + path});
}

void Fat32VolumeTest::AddFile(const std::string& path, std::size_t bytes) {
  const fs::path file = File("tree") / path;
  std::ofstream(file, std::ios::binary) << SomeBytes(bytes, path);
  disk_->Mtools({"mcopy", file, "::/" + path});
}

void Fat32VolumeTest::Remove(const std::string& path) {
  fs::remove(File("tree") / path);
  disk_->Mtools({"mdel", "::/" + path});
}

void Fat32VolumeTest::AddTree(const fs::path& folder) {
  disk_->CopyIn(folder);
  for (const auto& entry : fs::directory_iterator(folder)) {
    fs::rename(entry.path(), File("tree") / entry.path().filename());
  }
}

testing_support::ClusterRuns Fat32VolumeTest::RunsOf(const std::string& path) const {
  return disk_->RunsOf({"::/" + path}).at(0);
}

std::uint64_t Fat32VolumeTest::ClustersBehind(const std::string& path,
                                              std::uint64_t size_mib) const {
  std::uint64_t count = 0;
  for (const auto& [first, length] : RunsOf(path)) {
    for (std::uint64_t i = 0; i < length; ++i) count += first + i > Boundary(size_mib) ? 1U : 0U;
  }
  return count;
}

std::uint64_t Fat32VolumeTest::Boundary(std::uint64_t size_mib) const {
  return total_clusters_ + 1 - size_mib * kMib / cluster_bytes_;
}

std::uint64_t Fat32VolumeTest::PositionOf(std::uint64_t cluster) const {
  return FatPosition() + 2 * FatBytes() + (cluster - 2) * cluster_bytes_;
}

bool Fat32VolumeTest::Shrink(std::uint64_t size_mib) {
  free_count_ = Field(kFsInfo + 488, 4);
  ConversionRun run(image());
  run.machine().switches().fat32_writes_late = writes_late_;
  run.machine().Mount(run.machine().volumes().front());
  velkora::Velkora converter;
  converter.disk_info = &run.record().disk();
  converter.callback = testing_support::RecordEvent;
  const bool shrunk = converter.CompressPart(disk_->offset(), size_mib);
  if (shrunk) taken_off_ = size_mib * kSectorsPerMib;
  errors_ = run.Errors();
  calls_ = run.machine().calls().calls();
  return shrunk;
}

std::vector<Transfer> Fat32VolumeTest::RawWrites() const {
  std::vector<Transfer> writes;
  for (const simulator::Call& call : calls_) {
    if (call.name != "WriteFile") continue;
    writes.push_back(
        {NumberBehind(call.arguments, "offset "), NumberBehind(call.arguments, "length ")});
  }
  return writes;
}

std::vector<Transfer> Fat32VolumeTest::LastWrites() const {
  return {{FatPosition(), FatBytes()}, {FatPosition() + FatBytes(), FatBytes()}, {0, kSectorBytes}};
}

std::uint64_t Fat32VolumeTest::MovedClusters() const {
  std::uint64_t moved = 0;
  for (const simulator::Call& call : calls_) {
    if (call.detail == "FSCTL_MOVE_FILE") moved += NumberBehind(call.arguments, "clusters ");
  }
  return moved;
}

std::vector<std::string> Fat32VolumeTest::Lost() {
  return LostFiles(image(), NewRange(), Expected(), folder_.path());
}

void Fat32VolumeTest::ExpectFsck(const std::string& findings, std::uint64_t entries,
                                 std::uint64_t reclaimed) {
  const fs::path volume = File("volume.img");
  ExtractVolume(image(), NewRange(), volume);
  const std::uint64_t total = TotalClusters();
  const std::uint64_t used = UsedClusters() - reclaimed;
  std::ostringstream expected;
  if (taken_off_ != 0) {
    expected << "There are differences between boot sector and its backup.\n"
             << "This is mostly harmless. Differences: (offset:original/backup)\n  "
             << BootSectorDifferences() << "\n  Not automatically fixing this.\n";
  }
  expected << findings;
  if (free_count_ != total - used) {
    expected << "Free cluster summary wrong (" << free_count_ << " vs. really " << total - used
             << ")\n  Auto-correcting.\n";
  }
  if (expected.tellp() != 0) expected << "\nLeaving filesystem unchanged.\n";
  expected << volume.string() << ": " << entries << " files, " << used << "/" << total
           << " clusters\n";
  std::string output = RunTool({"fsck.fat", "-n", volume}).output;
  for (std::size_t at; (at = output.find(", date ")) != std::string::npos;) {
    output.erase(at, output.find('\n', at) - at);
  }
  EXPECT_EQ(output.substr(output.find('\n') + 1), expected.str());
}

void Fat32VolumeTest::ExpectSound() {
  ExpectFsck("", Expected().size());
  EXPECT_EQ(Lost(), std::vector<std::string>());
  EXPECT_EQ(PartitionSectors(), sectors_ - taken_off_);
}

std::uint64_t Fat32VolumeTest::PartitionSectors() const {
  const std::string dump = Tool({"sfdisk", "--dump", image()});
  return NumberBehind(dump, "size=");
}

std::uint64_t Fat32VolumeTest::Field(std::uint64_t offset, std::size_t width) const {
  std::array<std::uint8_t, 8> bytes{};
  ImageFile(image()).Read(kFirstSector * kSectorBytes + offset, bytes);
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < width; ++i) value |= std::uint64_t{bytes[i]} << (8 * i);
  return value;
}

std::uint64_t Fat32VolumeTest::TotalClusters() const {
  return (Field(32, 4) * kSectorBytes - FatPosition() - 2 * FatBytes()) / cluster_bytes_;
}

std::uint64_t Fat32VolumeTest::UsedClusters() const {
  constexpr std::uint32_t kEntry = 0x0FFFFFFF;
  std::vector<std::uint8_t> fat((TotalClusters() + 2) * 4);
  ImageFile(image()).Read(kFirstSector * kSectorBytes + FatPosition(), fat);
  std::uint64_t used = 0;
  for (std::size_t at = 8; at < fat.size(); at += 4) {
    const std::uint32_t entry = fat[at] | std::uint32_t{fat[at + 1]} << 8 |
                                std::uint32_t{fat[at + 2]} << 16 | std::uint32_t{fat[at + 3]} << 24;
    if ((entry & kEntry) != 0) ++used;
  }
  return used;
}

std::string Fat32VolumeTest::BootSectorDifferences() const {
  std::string differences;
  for (std::uint64_t i = 0; i < kSectorBytes; ++i) {
    const std::uint64_t now = Field(i, 1);
    const std::uint64_t then = Field(kBackupBootSector + i, 1);
    if (now == then) continue;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%s%u:%02x/%02x", differences.empty() ? "" : ", ",
                  static_cast<unsigned>(i), static_cast<unsigned>(now),
                  static_cast<unsigned>(then));
    differences += text.data();
  }
  return differences;
}

SectorRange Fat32VolumeTest::NewRange() const {
  return {kFirstSector, kFirstSector + sectors_ - taken_off_ - 1};
}

}  // namespace conversion
