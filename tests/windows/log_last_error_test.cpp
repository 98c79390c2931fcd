// LogEx leaves the last error and errno as they were, though its own work changes both.
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "logging/log.h"
#include "platform/win32.h"
#include "support/temp_folder.h"

namespace {

constexpr DWORD kLastError = 0x2000'1234;
constexpr int kErrno = 77;

class LogLastError : public ::testing::Test {
 protected:
  LogLastError() {
    win32::SetLastError(kLastError);
    errno = kErrno;
  }
  ~LogLastError() override { velkora::InitLogEx(nullptr, "test", nullptr, nullptr); }

  void InitLog(const std::filesystem::path& folder) const {
    velkora::InitLogEx(folder.string().c_str(), "test", nullptr, nullptr);
  }
  void SetErrors() const {
    win32::SetLastError(kLastError);
    errno = kErrno;
  }
  void ExpectErrorsUntouched() const {
    const int error = errno;
    const DWORD last_error = win32::GetLastError();
    EXPECT_EQ(last_error, kLastError);
    EXPECT_EQ(error, kErrno);
  }
  // What LogEx does to its file, without the care that it takes. Returns whether it could open it.
  bool OpenLikeALog(const std::filesystem::path& folder) const {
    std::FILE* file = nullptr;
    if (win32::_wfopen_s(&file, (folder / "test.log").c_str(), WIDE("ab")) != 0) return false;
    win32::fclose(file);
    return true;
  }
  std::string LogText() const { return testing_support::TextOf(temp_.path() / "test.log"); }

  testing_support::TempFolder temp_;
};

TEST_F(LogLastError, OpeningTheFileChangesTheLastErrorAndLoggingDoesNot) {
  SetErrors();
  ASSERT_TRUE(OpenLikeALog(temp_.path()));
  ASSERT_NE(win32::GetLastError(), kLastError);

  InitLog(temp_.path());
  SetErrors();
  velkora::LogEx("SDK", 1, "a line with %d", 5);
  ExpectErrorsUntouched();
  EXPECT_TRUE(LogText().ends_with(" [1] [SDK] a line with 5\n"));
}

TEST_F(LogLastError, FileThatCannotBeOpenedChangesNeither) {
  const std::filesystem::path absent = temp_.path() / "absent";
  SetErrors();
  ASSERT_FALSE(OpenLikeALog(absent));
  ASSERT_EQ(errno, ENOENT);
  ASSERT_NE(win32::GetLastError(), kLastError);

  InitLog(absent);
  SetErrors();
  velkora::LogEx("SDK", 3, "a line that is lost");
  ExpectErrorsUntouched();
}

TEST_F(LogLastError, ObserverMayChangeBoth) {
  const velkora::LogObserver observer = {[](void*, const char*, int, const char*) {
                                           win32::SetLastError(ERROR_ACCESS_DENIED);
                                           errno = ENOENT;
                                         },
                                         nullptr};
  velkora::InitLogEx(nullptr, "test", &observer, nullptr);
  SetErrors();
  velkora::LogEx("SDK", 2, "a line");
  ExpectErrorsUntouched();
}

}  // namespace
