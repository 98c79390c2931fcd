// Waits until the volumes of a rewritten system disk come back.
#pragma once

#include <cstdint>

#include "frame/velkora.h"

namespace velkora {

inline constexpr std::int32_t kMountLimitSeconds = 120;

// Asks diskpart again and again for the volumes of partitions 1 and 2 of the disk, until either
// answers, `timer_seconds` have passed, or a stop was asked for; limit and stop are looked at
// between passes only. Returns true when a volume answered in time or there was nothing to wait for
// (no partition offsets), false after the limit or a stop, also if a volume answered in that last
// pass. Logs "System Volume Succeed Mounted!" (level 1) or, after each failed pass, "System Volume
// Not Mounted! Retry..." (level 3); the timer thread logs "WaitForSystemVolumeMount Timer Start"
// and "… Timer Terminated" (level 1) or "… Timer out, seconds is %d" (level 2). The thread has
// ended when the call returns or an exception leaves it; when a structured exception does, it goes
// on until the limit.
bool WaitForSystemVolumeMount(const Velkora& converter,
                              std::int32_t timer_seconds = kMountLimitSeconds);

}  // namespace velkora
