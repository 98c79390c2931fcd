// What every entry point of the backup module does with its worker.
#pragma once

#include <cstdint>

#include "backup/return_codes.h"
#include "frame/crash_reporting.h"
#include "logging/log.h"
#include "platform/guard.h"

namespace velkora {

// The worker's result, or -18 after a fault or an exception, logged at level 3 as
// "[%s] [E] %s crash!" with the entry point's name. Nothing is closed: a disk or file that
// the worker held open is abandoned.
template <typename Worker>
std::int32_t GuardEntryPoint(const char* name, Worker&& worker) {
  std::int32_t result = kCrashed;
  if (win32::Guarded([&] { result = worker(); }, DumpOnceFilter)) return result;
  LogEx(kLogModule, kLogError, "[%s] [E] %s crash!", kBackupTag, name);
  return kCrashed;
}

}  // namespace velkora
