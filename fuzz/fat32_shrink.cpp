// The shrink of a FAT32 volume as a whole, over a sound volume with bytes of any kind laid over it.
#include "shrink/fat32_shrink.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "frame/global_context.h"
#include "fuzz/fuzz_disk.h"
#include "platform/guard.h"
#include "simulator/disk.h"
#include "simulator/storage/fat32_files.h"
#include "simulator/storage/fat32_format.h"
#include "simulator/volume.h"

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kVolumeOffset = std::uint64_t{1} << 20;
constexpr std::uint64_t kVolumeBytes = std::uint64_t{34} << 20;  // hardly more than FAT32 needs
constexpr std::uint64_t kDiskBytes = kVolumeOffset + kVolumeBytes;
constexpr std::uint64_t kTakenOffMib = 30;
constexpr std::size_t kFillerClusters = 20'000;
// Ten times what the sound volume takes; folders in a circle go on to paths of 32767 characters.
constexpr std::size_t kMostCalls = 1500;

// An MBR with one partition of type 12.
void WriteTable(simulator::BlockDevice& device) {
  std::array<std::byte, fuzz::kSectorBytes> sector{};
  const auto put = [&sector](std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i)
      sector[offset + i] = static_cast<std::byte>(value >> (8 * i));
  };
  put(440, 0x1A2B3C4D);
  sector[450] = std::byte{12};
  put(454, kVolumeOffset / fuzz::kSectorBytes);
  put(458, kVolumeBytes / fuzz::kSectorBytes);
  sector[510] = std::byte{0x55};
  sector[511] = std::byte{0xAA};
  if (!device.Write(0, sector)) std::abort();
}

// Files and folders at both ends of the volume.
void Fill(const fs::path& image) {
  simulator::SimulatedMachine machine;
  machine.AttachDisk(1, image);
  const auto add = [&machine](const char* path, std::size_t clusters) {
    machine.AddFile(1, kVolumeOffset, path, std::string(clusters * fuzz::kSectorBytes, 'x'));
  };
  add("\\first", 30);
  add("\\front\\A long name.text", 5);
  add("\\filler", kFillerClusters);
  add("\\behind", 60);
  add("\\folder\\sub\\deep", 7);
  add("\\folder\\inner", 3);
  add("\\folder\\A name that is so long that its folder takes a second cluster for it.text", 2);
  simulator::Fat32Files files(machine.FindDisk(1)->device(), kVolumeOffset);
  if (files.Remove("\\filler") != ERROR_SUCCESS) std::abort();
}

class Ground {
 public:
  static Ground& Instance() {
    static Ground ground;
    return ground;
  }
  const fs::path& image() const { return image_; }

 private:
  Ground()
      : folder_(fs::temp_directory_path() / ("velkora-fuzz-fat32-" + std::to_string(getpid()))),
        image_(folder_ / "disk.img") {
    fs::create_directories(folder_);
    simulator::CreateSparseImage(image_, kDiskBytes);
    {
      simulator::BlockDevice device(image_);
      WriteTable(device);
      const simulator::Fat32Geometry geometry = {kVolumeOffset, kVolumeBytes,
                                                 kVolumeOffset / fuzz::kSectorBytes, 1};
      if (simulator::FormatFat32(device, geometry) != ERROR_SUCCESS) std::abort();
    }
    Fill(image_);
    velkora::GetGlobalContext().is_system = 1;
    velkora::GetGlobalContext().logs_folder = "X:";
  }
  ~Ground() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }

  fs::path folder_;
  fs::path image_;
};

// Where pieces may lie, in bytes from the start of the volume: each of these and the next 256 KiB.
std::array<std::uint64_t, 5> Regions(simulator::BlockDevice& device) {
  std::array<std::byte, fuzz::kSectorBytes> boot{};
  if (!device.Read(kVolumeOffset, boot)) std::abort();
  const auto number = [&boot](std::size_t offset) {
    return std::to_integer<std::uint64_t>(boot[offset]) |
           std::to_integer<std::uint64_t>(boot[offset + 1]) << 8;
  };
  const std::uint64_t first_fat = number(14) * fuzz::kSectorBytes;
  const std::uint64_t fat_bytes = number(36) * fuzz::kSectorBytes;
  const std::uint64_t data = first_fat + 2 * fat_bytes;
  return {0, first_fat, first_fat + fat_bytes, data, data + kFillerClusters * fuzz::kSectorBytes};
}

// A row of pieces: one byte of a region (taken modulo their number), two bytes of a place in it
// (little-endian, in units of four bytes), one byte that counts the bytes, then those bytes; the
// last piece may be cut.
void LayPieces(simulator::BlockDevice& device, std::span<const std::uint8_t> input) {
  constexpr std::size_t kHeaderBytes = 4;
  const auto regions = Regions(device);
  while (input.size() > kHeaderBytes) {
    const std::uint64_t units = input[1] | std::uint64_t{input[2]} << 8;
    const std::uint64_t place = regions[input[0] % regions.size()] + units * 4;
    const std::size_t wanted = input[3];
    input = input.subspan(kHeaderBytes);
    const std::size_t length = std::min(wanted, input.size());
    if (!device.Write(kVolumeOffset + place, std::as_bytes(input.first(length)))) std::abort();
    input = input.subspan(length);
  }
}

void Shrink(simulator::SimulatedMachine& machine) {
  simulator::Volume* volume = machine.FindVolumeAt(1, kVolumeOffset);
  if (volume == nullptr) std::abort();
  const std::string path = volume->path;
  try {
    win32::Guarded(
        [&] {
          velkora::CompressFat32Partition("\\\\.\\PhysicalDrive1", path, 1, kTakenOffMib,
                                          fuzz::kSectorBytes);
        },
        [](EXCEPTION_POINTERS*) { return LONG{EXCEPTION_EXECUTE_HANDLER}; });
  } catch (const simulator::CallBudgetSpent&) {
    // A walk that would never end.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Ground& ground = Ground::Instance();
  simulator::ImageOverlay overlay;
  {
    simulator::BlockDevice device(ground.image(), fuzz::kSectorBytes, overlay);
    LayPieces(device, {data, size});
  }
  simulator::SimulatedMachine machine;
  machine.switches().fat32_writes_late = size % 2 != 0;
  machine.MapFolder('X', ground.image().parent_path());
  machine.AttachDisk(1, ground.image(), overlay);
  machine.MakeCurrent();
  machine.calls().SetBudget(kMostCalls);
  Shrink(machine);
  return 0;
}
