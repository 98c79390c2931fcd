#include "frame/global_context.h"

namespace velkora {

GlobalContext& GetGlobalContext() {
  static GlobalContext* const context = new GlobalContext;
  return *context;
}

bool StopRequested() {
  return GetGlobalContext().stop_requested.load() != 0;
}

}  // namespace velkora
