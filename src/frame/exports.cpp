#include <new>

#include "frame/crash_reporting.h"
#include "frame/global_context.h"
#include "frame/velkora.h"
#include "frame/velkora_sdk.h"
#include "logging/log.h"
#include "platform/guard.h"

namespace velkora {
namespace {

VelkoraSDK* StartLibrary(const void* log_folder, const char* logs_folder, const void* log_observer,
                         const void* log_reserved) {
  InitLogEx(log_folder, kLogModule, log_observer, log_reserved);
  LogEx(kLogModule, kLogProgress, "Velkora SDK Version: %s", kSdkVersion);
  LogEx(kLogModule, kLogProgress, "Logs Folder: %s", logs_folder);
  GetGlobalContext().logs_folder = logs_folder;
  // Setting it up answers 0, always, so that this line is never logged.
  if (InitCrashReporting("Kestrix_Win", "VelkoraSDK", kSdkVersion) != 0) {
    LogEx(kLogModule, kLogError, "Init bugsplat error");
  }
  return new (std::nothrow) Velkora;
}

}  // namespace
}  // namespace velkora

extern "C" VelkoraSDK* InitVelkoraSDK(const void* log_folder, const char* logs_folder,
                                      const void* log_observer, const void* log_reserved) {
  VelkoraSDK* sdk = nullptr;
  win32::Catching(
      [&] { sdk = velkora::StartLibrary(log_folder, logs_folder, log_observer, log_reserved); });
  // After null the caller may free what its observer uses.
  if (sdk == nullptr) {
    win32::Catching([] { velkora::InitLogEx(nullptr, velkora::kLogModule, nullptr, nullptr); });
  }
  return sdk;
}

extern "C" void DestroyVelkoraSDK(VelkoraSDK* sdk) {
  // The interface has no destructor to run: the storage goes, and with it the only pointers to the
  // partition offsets and the backup, which stay allocated.
  ::operator delete(static_cast<void*>(sdk));
}
