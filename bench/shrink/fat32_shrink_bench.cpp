// Shrinks the FAT32 volume of an image once, as a conversion does, and tells what it took.
//
//   fat32_shrink_bench IMAGE MIB          one line of figures, each a name and a number
//   fat32_shrink_bench --parts IMAGE MIB  the same, and the library's time and the machine's apart
//   fat32_shrink_bench --count IMAGE MIB  the volume's sizes, and how many clusters of files and of
//                                         directories lie behind the end that it would get;
//                                         changes nothing
#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "bench/shrink/seam_clock.h"
#include "frame/global_context.h"
#include "shrink/fat32_free_space.h"
#include "shrink/fat32_shrink.h"
#include "simulator/disk.h"
#include "simulator/simulated_machine.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/storage/on_disk.h"
#include "simulator/volume.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kVolumeOffset = 1 << 20;

void Check(DWORD error) {
  if (error != ERROR_SUCCESS) throw std::runtime_error("error " + std::to_string(error));
}

double Milliseconds(std::chrono::nanoseconds time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

// A folder for what the tools write, gone with the object.
class TemporaryFolder {
 public:
  TemporaryFolder() { fs::create_directories(path_); }
  ~TemporaryFolder() { fs::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const fs::path& path() const { return path_; }

 private:
  fs::path path_ = fs::temp_directory_path() / "velkora-fat32-shrink-bench";
};

struct Sizes {
  std::uint64_t clusters = 0;
  std::uint64_t cluster_bytes = 0;
  std::uint64_t fat_bytes = 0;  // of one
};

Sizes SizesOf(simulator::BlockDevice& device) {
  std::array<std::byte, 512> sector{};
  if (!device.Read(kVolumeOffset, sector)) throw std::runtime_error("no boot sector");
  const auto boot = simulator::Load<simulator::Fat32BootSector>(sector);
  simulator::Fat32Clusters clusters(device, kVolumeOffset);
  Check(clusters.Open());
  return {clusters.cluster_count(), clusters.cluster_bytes(),
          std::uint64_t{boot.fat_sectors} * boot.bytes_per_sector};
}

struct Behind {
  std::uint64_t in_files = 0;
  std::uint64_t in_directories = 0;
};

void CountFolder(simulator::Fat32Files& files, const std::string& path, std::uint64_t boundary,
                 Behind& behind) {
  std::vector<simulator::Fat32Entry> entries;
  Check(files.List(path, entries));
  for (const simulator::Fat32Entry& entry : entries) {
    const std::string inner = path + "\\" + entry.name;
    simulator::Fat32FileId id;
    simulator::Fat32Chain chain;
    Check(files.Find(inner, id));
    Check(files.Chain(id, chain));
    std::uint64_t& count = entry.is_folder ? behind.in_directories : behind.in_files;
    for (const std::uint32_t cluster : chain) count += cluster > boundary ? 1 : 0;
    if (entry.is_folder) CountFolder(files, inner, boundary, behind);
  }
}

void Count(const fs::path& image, std::uint64_t size_mib) {
  simulator::BlockDevice device(image, 512, simulator::Access::kReadOnly);
  const Sizes sizes = SizesOf(device);
  simulator::Fat32Files files(device, kVolumeOffset);
  Behind behind;
  CountFolder(files, "", velkora::BoundaryCluster(sizes.clusters, size_mib, sizes.cluster_bytes),
              behind);
  std::cout << "files_behind " << behind.in_files << " directories_behind " << behind.in_directories
            << " clusters " << sizes.clusters << " fat_bytes " << sizes.fat_bytes << "\n";
}

void Shrink(const fs::path& image, std::uint64_t size_mib, bool in_parts) {
  const TemporaryFolder folder;
  simulator::SimulatedMachine machine;
  machine.switches().fat32_writes_late = true;
  machine.MapFolder('X', folder.path());
  simulator::Disk& disk = machine.AttachDisk(1, image);
  machine.calls().keeps_calls = false;
  machine.MakeCurrent();
  velkora::GetGlobalContext().logs_folder = "X:";
  velkora::GetGlobalContext().is_system = 1;
  const simulator::Volume* volume = machine.FindVolumeAt(1, kVolumeOffset);
  if (volume == nullptr) throw std::runtime_error("no volume at 1 MiB");
  const std::uint64_t cluster_bytes = SizesOf(disk.device()).cluster_bytes;
  const std::uint64_t read_before = disk.device().bytes_read();

  if (in_parts) bench::StartSeamClock();
  const Clock::time_point begin = Clock::now();
  const bool shrunk = velkora::CompressFat32Partition(
      disk.path(), volume->path, volume->partition_number, size_mib, cluster_bytes);
  const std::chrono::nanoseconds whole = Clock::now() - begin;
  if (!shrunk) throw std::runtime_error("not shrunk");

  const bench::SeamFigures seam = bench::Seam();
  std::cout << "shrink_ms " << Milliseconds(whole) << " calls " << seam.calls << " read "
            << disk.device().bytes_read() - read_before << " written "
            << disk.device().bytes_written() << " raw_writes " << seam.raw_writes << " raw_bytes "
            << seam.raw_bytes << " moved_clusters " << seam.moved_clusters;
  if (in_parts) {
    std::cout << " seam_ms " << Milliseconds(seam.time) << " library_ms "
              << Milliseconds(whole - seam.time);
  }
  std::cout << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string_view option = argc == 4 ? argv[1] : "";
    const bool known = argc == 3 || option == "--count" || option == "--parts";
    if (!known) throw std::runtime_error("wants [--count | --parts] IMAGE MIB");
    const fs::path image = argv[argc - 2];
    const std::uint64_t size_mib = std::stoull(argv[argc - 1]);
    if (option == "--count") {
      Count(image, size_mib);
    } else {
      Shrink(image, size_mib, option == "--parts");
    }
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::cerr << "fat32_shrink_bench: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
}
