// What a failed call shows besides the disk: a line of the log, and a handle that stays open.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>

#include "campaign/verdict.h"

namespace campaign {

// Where a sign is met: in conversions of one direction, where tools run in processes of their own
// or in the command interpreter, as on a system disk, or at calls whose failure is forgiven.
enum class In { kAll, kToMbr, kToGpt, kProcesses, kInterpreter, kForgiven };

struct Sign {
  std::optional<Step> step = std::nullopt;  // none: any
  std::string_view call;
  // How the first line of level 3 begins that a run without failure does not have; null: none.
  const char* error = nullptr;
  In in = In::kAll;
  std::size_t occurrence = 0;         // 0: each one in the step
  const char* open_handle = nullptr;  // how its name begins; null: nothing is left open
};

// The first that fits a call counts.
std::span<const Sign> Signs();

// The sign of the call at `place` if it fails once; null for one of which none is known.
const Sign* FindSign(const Scenario& scenario, const Oracle& oracle, std::size_t place);

}  // namespace campaign
