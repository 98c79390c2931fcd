// The log: a stand-in for the closed logging library, with the same form of call.
//
// Levels: 1 progress, 2 a warning that does not end the run, 3 an error.
#pragma once

// Lets a compiler that can check the arguments of LogEx against the format.
#if defined(__MINGW32__)
#define VELKORA_PRINTF(format_index, first_argument) \
  __attribute__((format(gnu_printf, format_index, first_argument)))
#elif defined(__GNUC__)
#define VELKORA_PRINTF(format_index, first_argument) \
  __attribute__((format(printf, format_index, first_argument)))
#else
#define VELKORA_PRINTF(format_index, first_argument)
#endif

namespace velkora {

inline constexpr int kLogProgress = 1;
inline constexpr int kLogWarning = 2;
inline constexpr int kLogError = 3;

// The module text of every line of this library.
inline constexpr char kLogModule[] = "SDK";

// Called with each line as it is logged, before it goes to the file, on the thread that logs it:
// the one that calls InitVelkoraSDK or Convert, the one that calls Stop, and, while Convert waits
// for the volumes of a system disk, a timer thread of the library. The calls come one at a time: a
// thread waits while another one's call lasts, so the function must not wait for a thread that may
// log. It may log itself and call Stop. `text` is the formatted line without an end of line and
// lives for the call only. What the function throws passes through LogEx to whoever logs; on the
// timer thread it is dropped. An exception of another compiler's runtime counts as a fault.
struct LogObserver {
  void (*function)(void* context, const char* module, int level, const char* text);
  void* context;
};

// Opens the log, in place of an earlier one.
// `folder`: opaque to callers; a NUL-terminated UTF-8 text that names an existing folder, without a
//   trailing separator, or null for a log without a file.
// `name`: the log file is `<folder>\<name>.log`; lines are appended to it.
// `observer`: opaque to callers; a `const LogObserver*`, copied here, or null.
// `reserved`: opaque to callers; not looked at.
// Not to be called while another thread logs.
void InitLogEx(const void* folder, const char* name, const void* observer, const void* reserved);

// Logs one line, in the manner of printf. In the file it is one line of UTF-8:
//   2026-01-31 12:34:56Z [1] [SDK] text
// A file that cannot be opened or written loses the line silently. Leaves the last error and errno
// as it found them: many messages are followed by a read of the error that came before them.
void LogEx(const char* module, int level, const char* format, ...) VELKORA_PRINTF(3, 4);

}  // namespace velkora
