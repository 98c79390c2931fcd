// The DLL, linked through its import library: an object comes back, converts nothing that is not
// there, and is released.
#include <cstdio>
#include <filesystem>
#include <string>

#include "frame/velkora_sdk.h"

namespace {

int callbacks = 0;

std::int32_t CountProgress(std::int32_t, std::int32_t) {
  return ++callbacks;
}

int Fail(const char* what) {
  std::fprintf(stderr, "dll_user: %s\n", what);
  return 1;
}

}  // namespace

int main() {
  const std::string logs = std::filesystem::temp_directory_path().string();
  VelkoraSDK* const sdk = InitVelkoraSDK(nullptr, logs.c_str(), nullptr, nullptr);
  if (sdk == nullptr) return Fail("InitVelkoraSDK gives no object");

  DiskInfo disk{};
  disk.disk_type = DiskType::kGpt;
  disk.index = 99;
  std::snprintf(disk.id, sizeof disk.id, "%s", R"(\\.\PhysicalDrive99)");
  if (sdk->Convert(&disk, &CountProgress) != 1) return Fail("a disk that is not there converts");
  if (callbacks != 0) return Fail("progress is told of a disk that is not there");
  DestroyVelkoraSDK(sdk);
  std::printf("dll_user: started, refused an absent disk, released\n");
  return 0;
}
