// What the caller's callback is told.
#pragma once

#include <cstdint>

#include "frame/velkora.h"

namespace velkora {

void SendStatus(const Velkora& converter, VelkoraStatus status);

// `percent` from 0 to 100.
void SendPercent(const Velkora& converter, std::int32_t percent);

}  // namespace velkora
