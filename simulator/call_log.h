// Every call that crosses the seam, recorded, counted, and made to fail on demand.
//
// A call has a name and a detail: "DeviceIoControl" and "IOCTL_DISK_CREATE_DISK", "CreateFileA" and
// the path, "_wfopen_s" and the file's own name, "command" and the tool's name ("diskpart"); where
// there is nothing to tell, the detail is empty. A pattern names calls: "DeviceIoControl" all of
// that name, "DeviceIoControl/IOCTL_DISK_CREATE_DISK" those with that detail, "command/diskpart"
// the runs of a tool. What only tells a number (GetLastError, GetCurrentThreadId) is not recorded.
//
// A call that fails on demand has no effect, but for fclose, which still closes, and Sleep, which
// cannot fail and waits. Its error becomes the last error; _wfopen_s also returns it as its errno
// value, fopen leaves it in errno: EACCES for ERROR_GEN_FAILURE.
#pragma once

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/win32_types.h"

namespace simulator {

// Ends a run that would never end by itself; see CallLog::SetBudget. Not derived from the fault
// type, so that no guard takes it for a crash.
class CallBudgetSpent : public std::runtime_error {
 public:
  CallBudgetSpent() : std::runtime_error("the budget of seam calls is spent") {}
};

// A call without a machine to go to: a mistake of the test, which no guard takes for one of the
// library.
class NoCurrentMachine : public std::logic_error {
 public:
  NoCurrentMachine() : std::logic_error("no simulated machine is current") {}
};

enum class Repeat { kOnce, kFromThenOn };

struct Call {
  std::string name;
  std::string detail;
  std::string arguments;  // for reading: offsets, sizes, texts
  bool failed_on_demand = false;
};

class CallLog {
 public:
  // Notes a call and returns the error it must fail with, or ERROR_SUCCESS to go on. Throws
  // CallBudgetSpent when the budget is used up.
  DWORD Note(std::string_view name, std::string_view detail = {}, std::string_view arguments = {});

  // The `occurrence`-th call (from 1, counted from now) that `pattern` names fails with `error`;
  // with kFromThenOn all later ones too. For "command/…" the error is the tool's exit status.
  // Throws std::invalid_argument for occurrence 0.
  void FailOn(std::string_view pattern, std::size_t occurrence = 1, DWORD error = ERROR_GEN_FAILURE,
              Repeat repeat = Repeat::kOnce);

  // The call with overall number `number` (from 1, over the whole log) fails; with kFromThenOn all
  // later ones too, also when that number has passed.
  void FailNumber(std::size_t number, DWORD error = ERROR_GEN_FAILURE,
                  Repeat repeat = Repeat::kOnce);
  void ClearFailures();

  // After `calls` further calls every call throws CallBudgetSpent.
  void SetBudget(std::size_t calls);

  // Calls are kept to be read unless this is false; they are counted and made to fail in any case.
  // For runs of very many calls that are not looked at.
  bool keeps_calls = true;

  // Runs when a call has come, in front of what it does or of its failure. `number` is that of
  // FailNumber.
  std::function<void(std::size_t number)> on_call;

  const std::vector<Call>& calls() const { return calls_; }
  std::size_t Count(std::string_view pattern) const;
  // "Name/detail arguments", one for each call.
  std::vector<std::string> Lines() const;
  // Forgets the calls, and numbers the next one 1. Failures that were asked for stay.
  void Clear();

 private:
  struct Failure {
    std::string pattern;    // empty: any call
    std::size_t remaining;  // matching calls until it fails, that one included; 0: has been
    DWORD error;
    Repeat repeat;
  };

  std::vector<Call> calls_;
  std::size_t noted_ = 0;  // since Clear()
  std::vector<Failure> failures_;
  std::size_t budget_ = static_cast<std::size_t>(-1);
};

}  // namespace simulator
