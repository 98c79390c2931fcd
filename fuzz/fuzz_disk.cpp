#include "fuzz/fuzz_disk.h"

#include <algorithm>
#include <cstdlib>
#include <new>
#include <unistd.h>

#include "platform/win32.h"
#include "simulator/disk.h"

namespace fuzz {
namespace {

constexpr std::uint64_t kDiskBytes = std::uint64_t{1} << 30;

std::filesystem::path OwnFolder() {
  return std::filesystem::temp_directory_path() / ("velkora-fuzz-" + std::to_string(getpid()));
}

// What leaves the library here would be a finding elsewhere; a lack of memory is an end that the
// library itself gives to walks without one.
void RunToItsEnd(const std::function<void(HANDLE disk)>& body, HANDLE disk) {
  try {
    body(disk);
  } catch (const simulator::CallBudgetSpent&) {
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

FuzzDisk& FuzzDisk::Instance() {
  static FuzzDisk disk;
  return disk;
}

FuzzDisk::FuzzDisk() : folder_(OwnFolder()) {
  std::filesystem::create_directories(folder_);
  simulator::CreateSparseImage(folder_ / "disk.img", kDiskBytes);
  machine_.MapFolder('X', folder_);
  machine_.MakeCurrent();
  machine_.AttachDisk(1, folder_ / "disk.img", overlay_);
  disk_ =
      win32::CreateFileA("\\\\.\\PhysicalDrive1", GENERIC_READ | GENERIC_WRITE,
                         FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  if (disk_ == INVALID_HANDLE_VALUE) std::abort();
}

FuzzDisk::~FuzzDisk() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

void FuzzDisk::LayPieces(std::span<const std::uint8_t> input) {
  simulator::BlockDevice& device = machine_.FindDisk(1)->device();
  while (input.size() > kPieceHeaderBytes) {
    const std::uint32_t number = input[0] | std::uint32_t{input[1]} << 8 |
                                 std::uint32_t{input[2]} << 16 | std::uint32_t{input[3]} << 24;
    const std::uint64_t offset = number * kSectorBytes % kDiskBytes;
    const std::size_t wanted = input[4] * kSectorBytes;
    input = input.subspan(kPieceHeaderBytes);
    const std::size_t length = std::min({wanted, input.size(), kDiskBytes - offset});
    if (!device.Write(offset, std::as_bytes(input.first(length)))) std::abort();
    offsets_.push_back(offset);
    input = input.subspan(length);
  }
}

void FuzzDisk::Run(std::span<const std::uint8_t> input, std::size_t most_calls,
                   const std::function<void(HANDLE disk)>& body) {
  overlay_.Reset();
  offsets_.clear();
  LayPieces(input);
  machine_.calls().Clear();
  win32::SetFilePointer(disk_, 0, nullptr, FILE_BEGIN);
  machine_.calls().SetBudget(most_calls);
  RunToItsEnd(body, disk_);
  machine_.calls().SetBudget(static_cast<std::size_t>(-1));
}

}  // namespace fuzz
