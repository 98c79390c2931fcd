// The selection of a disk's metadata with all its file systems, over a disk of any bytes.
#include "backup/disk_parser.h"

#include "fuzz/fuzz_disk.h"
#include "platform/guard.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kMostCalls = 20000;
  fuzz::FuzzDisk& disk = fuzz::FuzzDisk::Instance();
  disk.Run({data, size}, kMostCalls, [&disk](HANDLE handle) {
    win32::Guarded(
        [&] {
          velkora::BlockMap blocks;
          velkora::Parse(handle, disk.offsets(), blocks);
        },
        [](EXCEPTION_POINTERS*) { return LONG{EXCEPTION_EXECUTE_HANDLER}; });
  });
  return 0;
}
