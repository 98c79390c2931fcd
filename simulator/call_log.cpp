#include "simulator/call_log.h"

#include <algorithm>

namespace simulator {
namespace {

bool Matches(std::string_view pattern, std::string_view name, std::string_view detail) {
  if (pattern.empty()) return true;
  const std::size_t slash = pattern.find('/');
  if (slash == std::string_view::npos) return pattern == name;
  return pattern.substr(0, slash) == name && pattern.substr(slash + 1) == detail;
}

}  // namespace

DWORD CallLog::Note(std::string_view name, std::string_view detail, std::string_view arguments) {
  if (budget_ == 0) throw CallBudgetSpent();
  --budget_;
  DWORD error = ERROR_SUCCESS;
  for (Failure& failure : failures_) {
    if (!Matches(failure.pattern, name, detail)) continue;
    const bool again = failure.remaining == 0 && failure.repeat == Repeat::kFromThenOn;
    const bool now = failure.remaining == 1;
    if (failure.remaining > 0) --failure.remaining;
    if ((again || now) && error == ERROR_SUCCESS) error = failure.error;
  }
  ++noted_;
  if (keeps_calls) {
    calls_.push_back(
        {std::string(name), std::string(detail), std::string(arguments), error != ERROR_SUCCESS});
  }
  if (on_call) on_call(noted_);
  return error;
}

void CallLog::FailOn(std::string_view pattern, std::size_t occurrence, DWORD error, Repeat repeat) {
  if (occurrence == 0) throw std::invalid_argument("occurrences are counted from 1");
  failures_.push_back({std::string(pattern), occurrence, error, repeat});
}

void CallLog::FailNumber(std::size_t number, DWORD error, Repeat repeat) {
  const std::size_t remaining = number > noted_ ? number - noted_ : 0;
  failures_.push_back({std::string(), remaining, error, repeat});
}

void CallLog::ClearFailures() {
  failures_.clear();
}

void CallLog::SetBudget(std::size_t calls) {
  budget_ = calls;
}

std::size_t CallLog::Count(std::string_view pattern) const {
  const auto matches = [pattern](const Call& call) {
    return Matches(pattern, call.name, call.detail);
  };
  return static_cast<std::size_t>(std::count_if(calls_.begin(), calls_.end(), matches));
}

std::vector<std::string> CallLog::Lines() const {
  std::vector<std::string> lines;
  for (const Call& call : calls_) {
    std::string line = call.name;
    if (!call.detail.empty()) line += '/' + call.detail;
    if (!call.arguments.empty()) line += ' ' + call.arguments;
    lines.push_back(line);
  }
  return lines;
}

void CallLog::Clear() {
  calls_.clear();
  noted_ = 0;
}

}  // namespace simulator
