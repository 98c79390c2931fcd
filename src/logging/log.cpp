#include "logging/log.h"

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "platform/gate.h"
#include "platform/win32.h"
#include "tools/text_encoding.h"

namespace velkora {
namespace {

struct LogState {
  WideString file;  // empty for a log without a file
  LogObserver observer = {};
  win32::Gate* const observer_gate = win32::NewGate();
  // One line at a time: on Windows a second open for writing would fail, and lose its line.
  std::mutex file_turn;
};

LogState& State() {
  static LogState* const state = new LogState;  // logging works until the process ends
  return *state;
}

// Keeps the last error and errno across whatever happens in between.
class ErrorKeeper {
 public:
  ErrorKeeper() : errno_(errno), last_error_(win32::GetLastError()) {}
  ErrorKeeper(const ErrorKeeper&) = delete;
  ErrorKeeper& operator=(const ErrorKeeper&) = delete;
  void Restore() const {
    win32::SetLastError(last_error_);
    errno = errno_;
  }

 private:
  int errno_;
  DWORD last_error_;
};

std::string Format(const char* format, std::va_list arguments) VELKORA_PRINTF(1, 0);
std::string Format(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length <= 0) return {};
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();
  return text;
}

// "2026-01-31 12:34:56Z"
std::string TimeText(std::int64_t seconds) {
  using namespace std::chrono;
  const sys_seconds now{std::chrono::seconds{seconds}};
  const auto day = floor<days>(now);
  const year_month_day date{day};
  const hh_mm_ss clock{now - day};
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return text;
}

// Opened for each line: what has been logged is on the disk whatever happens to the process.
void AppendToFile(LogState& state, const char* module, int level, const std::string& text) {
  const std::string line = TimeText(win32::time(nullptr)) + " [" + std::to_string(level) + "] [" +
                           module + "] " + text + "\n";
  // Nothing under the lock may fault: a structured exception would leave it locked.
  const std::lock_guard turn(state.file_turn);
  std::FILE* stream = nullptr;
  if (win32::_wfopen_s(&stream, state.file.c_str(), WIDE("ab")) != 0) return;
  win32::fwrite(line.data(), 1, line.size(), stream);
  win32::fclose(stream);
}

}  // namespace

void InitLogEx(const void* folder, const char* name, const void* observer,
               const void* /*reserved*/) {
  LogState& state = State();
  state.file.clear();
  if (folder != nullptr) {
    const std::string path = std::string(static_cast<const char*>(folder)) + "\\" + name + ".log";
    if (!TryUtf8ToWide(path, state.file)) state.file.clear();
  }
  state.observer = observer != nullptr ? *static_cast<const LogObserver*>(observer) : LogObserver{};
}

void LogEx(const char* module, int level, const char* format, ...) {
  const ErrorKeeper keeper;
  std::va_list arguments;
  va_start(arguments, format);
  const std::string text = Format(format, arguments);
  va_end(arguments);
  LogState& state = State();
  if (state.observer.function != nullptr) {
    win32::InGate(state.observer_gate, [&] {
      state.observer.function(state.observer.context, module, level, text.c_str());
    });
  }
  if (!state.file.empty()) AppendToFile(state, module, level, text);
  keeper.Restore();
}

}  // namespace velkora
