#include "frame/progress.h"

namespace velkora {

void SendStatus(const Velkora& converter, VelkoraStatus status) {
  converter.callback(kVelkoraKindStatus, static_cast<std::int32_t>(status));
}

void SendPercent(const Velkora& converter, std::int32_t percent) {
  converter.callback(kVelkoraKindPercent, percent);
}

}  // namespace velkora
