// The ground of the suite: one set of tests, written against platform/win32.h, that every
// implementation of the seam passes.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include "conformance/machine.h"
#include "platform/win32.h"

namespace conformance {

// A last error that no operation sets by itself.
inline constexpr DWORD kUntouched = 0x2000'1234;

// A handle from CreateFileA or CreateFileW, closed at the end if it is one.
class File {
 public:
  explicit File(HANDLE handle) : handle_(handle) {}
  ~File() { Close(); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  HANDLE get() const { return handle_; }
  bool is_open() const { return handle_ != INVALID_HANDLE_VALUE; }
  void Close();

 private:
  HANDLE handle_;
};

class ConformanceTest : public ::testing::Test {
 protected:
  // `name` in the machine's folder.
  std::string Path(std::string_view name) const;
  WideString WidePath(const WideString& name) const;

  // Share reading and writing.
  static HANDLE Open(const std::string& path, DWORD access, DWORD disposition);
  static HANDLE OpenWide(const WideString& path, DWORD access, DWORD disposition);

  void WriteText(std::string_view name, std::string_view text) const;
  // Up to 4096 bytes; a test failure and "" if the file cannot be read.
  std::string ReadText(std::string_view name) const;
  static std::string ReadRest(const File& file);
  bool Exists(std::string_view name) const;

  Machine machine_;
};

}  // namespace conformance
