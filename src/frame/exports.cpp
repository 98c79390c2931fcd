#include <new>

#include "frame/global_context.h"
#include "frame/velkora.h"
#include "frame/velkora_sdk.h"
#include "logging/log.h"

namespace {

constexpr char kVersion[] = "1, 0, 0, 20-d-5130b0fa";

}  // namespace

extern "C" VelkoraSDK* InitVelkoraSDK(const void* log_folder, const char* logs_folder,
                                      const void* log_observer, const void* log_reserved) {
  using namespace velkora;
  InitLogEx(log_folder, kLogModule, log_observer, log_reserved);
  LogEx(kLogModule, kLogProgress, "Velkora SDK Version: %s", kVersion);
  LogEx(kLogModule, kLogProgress, "Logs Folder: %s", logs_folder);
  GetGlobalContext().logs_folder = logs_folder;
  return new (std::nothrow) Velkora;
}

extern "C" void DestroyVelkoraSDK(VelkoraSDK* sdk) {
  // The interface has no destructor to run: the storage goes, and with it the only pointers to the
  // partition offsets and the backup, which stay allocated.
  ::operator delete(static_cast<void*>(sdk));
}
