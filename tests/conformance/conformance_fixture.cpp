#include "conformance/conformance_fixture.h"

namespace conformance {

void File::Close() {
  if (is_open()) win32::CloseHandle(handle_);
  handle_ = INVALID_HANDLE_VALUE;
}

std::string ConformanceTest::Path(std::string_view name) const {
  return machine_.folder() + "\\" + std::string(name);
}

WideString ConformanceTest::WidePath(const WideString& name) const {
  const std::string prefix = Path("");  // ASCII
  return WideString(prefix.begin(), prefix.end()) + name;
}

HANDLE ConformanceTest::Open(const std::string& path, DWORD access, DWORD disposition) {
  return win32::CreateFileA(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

HANDLE ConformanceTest::OpenWide(const WideString& path, DWORD access, DWORD disposition) {
  return win32::CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void ConformanceTest::WriteText(std::string_view name, std::string_view text) const {
  const File file(Open(Path(name), GENERIC_WRITE, CREATE_ALWAYS));
  ASSERT_TRUE(file.is_open());
  DWORD done = 0;
  ASSERT_TRUE(
      win32::WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &done, nullptr));
  ASSERT_EQ(done, text.size());
}

std::string ConformanceTest::ReadText(std::string_view name) const {
  const File file(Open(Path(name), GENERIC_READ, OPEN_EXISTING));
  EXPECT_TRUE(file.is_open()) << name;
  return file.is_open() ? ReadRest(file) : "";
}

std::string ConformanceTest::ReadRest(const File& file) {
  std::string text(4096, '\0');
  DWORD done = 0;
  EXPECT_TRUE(
      win32::ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &done, nullptr));
  text.resize(done);
  return text;
}

bool ConformanceTest::Exists(std::string_view name) const {
  return File(Open(Path(name), GENERIC_READ, OPEN_EXISTING)).is_open();
}

}  // namespace conformance
