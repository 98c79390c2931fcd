#include "host/device.h"

#include <algorithm>
#include <utility>

#include "host/host_error.h"

namespace velkora_host {
namespace {

constexpr std::size_t kMostAnswerBytes = std::size_t{1} << 22;

bool IsTooShort(DWORD error) {
  return error == ERROR_INSUFFICIENT_BUFFER || error == ERROR_MORE_DATA;
}

}  // namespace

std::string ErrorText(DWORD error) {
  return "error " + std::to_string(error);
}

Device::Device(std::string path)
    : path_(std::move(path)),
      handle_(win32::CreateFileA(path_.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 nullptr, OPEN_EXISTING, 0, nullptr)) {
  if (handle_ != INVALID_HANDLE_VALUE) return;
  throw HostError(path_ + " cannot be opened: " + ErrorText(win32::GetLastError()));
}

Device::~Device() {
  win32::CloseHandle(handle_);
}

std::optional<std::vector<std::byte>> Device::Ask(DWORD code, std::size_t size, DWORD& error,
                                                  std::span<const std::byte> in) const {
  std::vector<std::byte> question(in.begin(), in.end());
  std::vector<std::byte> answer(size);
  for (;;) {
    DWORD returned = 0;
    if (win32::DeviceIoControl(handle_, code, question.empty() ? nullptr : question.data(),
                               static_cast<DWORD>(question.size()), answer.data(),
                               static_cast<DWORD>(answer.size()), &returned, nullptr)) {
      answer.resize(std::min<std::size_t>(returned, answer.size()));
      return answer;
    }
    error = win32::GetLastError();
    if (!IsTooShort(error) || answer.size() >= kMostAnswerBytes) return std::nullopt;
    answer.resize(answer.size() * 2);
  }
}

void Device::AskFor(DWORD code, const char* question, std::span<std::byte> answer) const {
  DWORD error = ERROR_SUCCESS;
  const auto bytes = Ask(code, answer.size(), error);
  if (!bytes) throw HostError(path_ + ": " + question + " is not told: " + ErrorText(error));
  if (bytes->size() < answer.size()) {
    throw HostError(path_ + ": " + question + " is told in " + std::to_string(bytes->size()) +
                    " bytes instead of " + std::to_string(answer.size()));
  }
  std::copy_n(bytes->begin(), answer.size(), answer.begin());
}

bool Device::Read(std::uint64_t offset, std::span<std::byte> bytes) const {
  LARGE_INTEGER place{};
  place.QuadPart = static_cast<LONGLONG>(offset);
  if (!win32::SetFilePointerEx(handle_, place, nullptr, FILE_BEGIN)) return false;
  DWORD done = 0;
  return win32::ReadFile(handle_, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr) &&
         done == bytes.size();
}

}  // namespace velkora_host
