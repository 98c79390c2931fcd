#include "support/tools/fat32_disk.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

#include "simulator/storage/block_device.h"
#include "support/temp_folder.h"
#include "support/tools/run_tool.h"

namespace testing_support {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kSectorBytes = 512;

std::string Run(const std::vector<std::string>& argv, std::string_view input = {}) {
  const ToolResult result = RunTool(argv, input);
  if (result.exit_status == 0) return result.output;
  throw std::runtime_error(argv[0] + " ended with " + std::to_string(result.exit_status) + ": " +
                           result.output);
}

// Sorted, so that the disk is the same whatever the host's file system.
std::vector<std::string> EntriesOf(const fs::path& folder) {
  std::vector<std::string> entries;
  for (const auto& entry : fs::directory_iterator(folder)) entries.push_back(entry.path().string());
  std::sort(entries.begin(), entries.end());
  return entries;
}

// Copies a range into a new file, holes as holes.
void CopyRange(const fs::path& from, std::uint64_t offset, std::uint64_t length,
               const fs::path& to) {
  simulator::CreateSparseImage(to, length);
  simulator::BlockDevice source(from);
  simulator::BlockDevice target(to);
  const int descriptor = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) throw std::runtime_error("cannot open " + from.string());
  const auto end = static_cast<off_t>(offset + length);
  bool copied = true;
  off_t data = ::lseek(descriptor, static_cast<off_t>(offset), SEEK_DATA);
  while (copied && data >= 0 && data < end) {
    const off_t hole = std::min(::lseek(descriptor, data, SEEK_HOLE), end);
    std::vector<std::byte> bytes(static_cast<std::size_t>(hole - data));
    const auto place = static_cast<std::uint64_t>(data);
    copied = source.Read(place, bytes) && target.Write(place - offset, bytes);
    data = ::lseek(descriptor, hole, SEEK_DATA);
  }
  ::close(descriptor);
  if (!copied) throw std::runtime_error("cannot copy " + from.string());
}

// "<5-9>" or "<12>".
std::pair<std::uint64_t, std::uint64_t> ParseRun(std::string_view text) {
  const std::string numbers(text.substr(1, text.size() - 2));
  char* end = nullptr;
  const std::uint64_t first = std::strtoull(numbers.c_str(), &end, 10);
  const std::uint64_t last = *end == '-' ? std::strtoull(end + 1, nullptr, 10) : first;
  return {first, last - first + 1};
}

}  // namespace

Fat32Disk::Fat32Disk(fs::path image, const Fat32DiskPlan& plan)
    : image_(std::move(image)), plan_(plan) {
  simulator::CreateSparseImage(image_, plan.disk_size);
  const std::string type = plan.gpt ? "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7" : "0C";
  std::ostringstream table;
  table << "label: " << (plan.gpt ? "gpt" : "dos") << "\nstart=" << plan.offset / kSectorBytes
        << ", size=" << plan.length / kSectorBytes << ", type=" << type << "\n";
  Run({"sfdisk", "--quiet", image_.string()}, table.str());
  Run({"mkfs.fat", "-F", "32", "-S", std::to_string(kSectorBytes), "-s",
       std::to_string(plan.cluster_bytes / kSectorBytes), "-i", "12345678", "-h",
       std::to_string(plan.offset / kSectorBytes), "--offset",
       std::to_string(plan.offset / kSectorBytes), image_.string(),
       std::to_string(plan.length / 1024)});
}

void Fat32Disk::CopyIn(const fs::path& folder) const {
  std::vector<std::string> words = {"mcopy", "-s", "-m"};
  for (const std::string& entry : EntriesOf(folder)) words.push_back(entry);
  words.push_back("::/");
  Mtools(words);
}

void Fat32Disk::CopyOut(const fs::path& folder) const {
  fs::create_directory(folder);
  Mtools({"mcopy", "-s", "-n", "::/", folder.string()});
}

void Fat32Disk::MakeHoles(std::size_t count, std::size_t bytes) const {
  const TempFolder files;
  std::vector<std::string> copy = {"mcopy"};
  std::vector<std::string> remove = {"mdel"};
  for (std::size_t i = 0; i < 2 * count; ++i) {
    const std::string name = "fill" + std::to_string(i);
    std::ofstream(files.path() / name, std::ios::binary) << std::string(bytes, 'f');
    copy.push_back((files.path() / name).string());
    if (i % 2 != 0) remove.push_back("::/" + name);
  }
  copy.push_back("::/");
  Mtools(copy);
  Mtools(remove);
  ForgetNextFree();
}

std::string Fat32Disk::Mtools(std::vector<std::string> words) const {
  words.insert(words.begin() + 1, {"-i", Inside()});
  return Run(words);
}

std::vector<ClusterRuns> Fat32Disk::RunsOf(const std::vector<std::string>& paths) const {
  std::vector<std::string> words = {"mshowfat"};
  words.insert(words.end(), paths.begin(), paths.end());
  std::istringstream lines(Mtools(words));
  std::vector<ClusterRuns> all;
  for (std::string line; std::getline(lines, line);) {
    // The name, which may have blanks, stands in front.
    ClusterRuns& runs = all.emplace_back();
    for (std::size_t at = line.find('<'); at != std::string::npos; at = line.find('<', at + 1)) {
      runs.push_back(ParseRun(std::string_view(line).substr(at, line.find('>', at) - at + 1)));
    }
  }
  if (all.size() != paths.size()) throw std::runtime_error("mshowfat left files out");
  return all;
}

std::string Fat32Disk::Check() const {
  const TempFolder folder;
  const fs::path volume = folder.path() / "volume.img";
  CopyRange(image_, plan_.offset, plan_.length, volume);
  const std::string output = Run({"fsck.fat", "-n", "-v", volume.string()});
  for (const std::string_view complaint : {"differ", "wrong", "rror", "not fix", "Unused"}) {
    if (output.find(complaint) != std::string::npos) throw std::runtime_error(output);
  }
  return output;
}

std::string Fat32Disk::Inside() const {
  return image_.string() + "@@" + std::to_string(plan_.offset);
}

// mtools goes on where it last stopped; without that note it begins at the start of the volume.
void Fat32Disk::ForgetNextFree() const {
  constexpr std::uint64_t kNextFreeOffset = 492;
  simulator::BlockDevice device(image_);
  const std::vector<std::byte> unknown(4, std::byte{0xFF});
  if (!device.Write(plan_.offset + kSectorBytes + kNextFreeOffset, unknown)) {
    throw std::runtime_error("cannot write " + image_.string());
  }
}

}  // namespace testing_support
