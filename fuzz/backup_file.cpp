// The reader of backup files, over files of any bytes.
#include "backup/backup_file.h"

#include <cstdio>

#include "fuzz/fuzz_disk.h"
#include "platform/guard.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::FuzzDisk& ground = fuzz::FuzzDisk::Instance();
  if (size == 0) return 0;  // no stream without bytes
  std::FILE* file = fmemopen(const_cast<std::uint8_t*>(data), size, "rb");
  win32::Guarded(
      [&] {
        velkora::BlockMap blocks;
        velkora::LoadBackupFile(file, blocks);
      },
      [](EXCEPTION_POINTERS*) { return LONG{EXCEPTION_EXECUTE_HANDLER}; });
  std::fclose(file);
  ground.machine().calls().Clear();
  return 0;
}
