// Conversions between wide and narrow texts.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/seam_fixture.h"

namespace testing_support {
namespace {

class Win32TextTest : public SeamTest {
 protected:
  static std::string Narrow(const WideString& wide, DWORD flags = 0, BOOL* used = nullptr) {
    const int length = static_cast<int>(wide.size());
    const int size =
        win32::WideCharToMultiByte(CP_ACP, flags, wide.data(), length, nullptr, 0, nullptr, used);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    EXPECT_EQ(win32::WideCharToMultiByte(CP_ACP, flags, wide.data(), length, narrow.data(), size,
                                         nullptr, used),
              size);
    return narrow;
  }
  static WideString Wide(const std::string& narrow, DWORD flags = 0) {
    const int length = static_cast<int>(narrow.size());
    const int size = win32::MultiByteToWideChar(CP_ACP, flags, narrow.data(), length, nullptr, 0);
    WideString wide(static_cast<std::size_t>(size), WCHAR{});
    EXPECT_EQ(win32::MultiByteToWideChar(CP_ACP, flags, narrow.data(), length, wide.data(), size),
              size);
    return wide;
  }
};

const std::string kNarrow("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\0z", 12);
const WideString kWide(WIDE("a\u00E4\u20AC\U0001F600\0z"), 7);

TEST_F(Win32TextTest, TheCodePageIsUtf8InBothDirections) {
  EXPECT_EQ(Narrow(kWide), kNarrow);
  EXPECT_TRUE(Wide(kNarrow) == kWide);
}

TEST_F(Win32TextTest, ALengthOfMinusOneTakesTheNulAlong) {
  std::vector<char> narrow(8, 'x');
  EXPECT_EQ(
      win32::WideCharToMultiByte(CP_UTF8, 0, WIDE("ab"), -1, narrow.data(), 8, nullptr, nullptr),
      3);
  EXPECT_STREQ(narrow.data(), "ab");
  std::vector<WCHAR> wide(3);
  EXPECT_EQ(win32::MultiByteToWideChar(CP_UTF8, 0, "ab", -1, wide.data(), 3), 3);
}

TEST_F(Win32TextTest, ASmallBufferIsRefused) {
  std::vector<char> narrow(2);
  EXPECT_EQ(
      win32::WideCharToMultiByte(CP_ACP, 0, WIDE("abc"), 3, narrow.data(), 2, nullptr, nullptr), 0);
  EXPECT_EQ(win32::GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST_F(Win32TextTest, HalfASurrogatePairIsReplacedOrRefused) {
  const WideString half = {'a', static_cast<WCHAR>(0xD83D), 'b'};
  BOOL used = FALSE;
  EXPECT_EQ(Narrow(half, 0, &used),
            "a\xEF\xBF\xBD"
            "b");
  EXPECT_TRUE(used);
  EXPECT_EQ(win32::WideCharToMultiByte(CP_ACP, WC_ERR_INVALID_CHARS, half.data(), 3, nullptr, 0,
                                       nullptr, nullptr),
            0);
  EXPECT_EQ(win32::GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
  Narrow(kWide, 0, &used);
  EXPECT_FALSE(used);
}

TEST_F(Win32TextTest, WhatIsNoUtf8IsReplacedOrRefused) {
  for (const std::string bytes : {"\x80", "\xC0\xAF", "\xED\xA0\x80", "\xF5\x80\x80\x80", "\xC3"}) {
    EXPECT_EQ(Wide(bytes).front(), static_cast<WCHAR>(0xFFFD));
    EXPECT_EQ(win32::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, bytes.data(),
                                         static_cast<int>(bytes.size()), nullptr, 0),
              0);
    EXPECT_EQ(win32::GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
  }
}

TEST_F(Win32TextTest, CallsMayFailOnDemand) {
  machine_.calls().FailOn("WideCharToMultiByte", 1, 50);
  machine_.calls().FailOn("MultiByteToWideChar", 1, 51);
  EXPECT_EQ(win32::WideCharToMultiByte(CP_ACP, 0, WIDE("a"), 1, nullptr, 0, nullptr, nullptr), 0);
  EXPECT_EQ(win32::GetLastError(), 50U);
  EXPECT_EQ(win32::MultiByteToWideChar(CP_ACP, 0, "a", 1, nullptr, 0), 0);
  EXPECT_EQ(win32::GetLastError(), 51U);
}

}  // namespace
}  // namespace testing_support
