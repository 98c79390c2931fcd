#include "shrink/narrow_path.h"

#include <system_error>

#include "platform/win32.h"

namespace velkora {
namespace {

[[noreturn]] void ThrowConversionError(DWORD error) {
  throw std::system_error(std::error_code(static_cast<int>(error), std::system_category()),
                          "bad path");
}

// The two calls of a conversion: for the size, and for the text. Both give 0 on failure.
template <typename Text, typename Convert>
Text Converted(Convert convert) {
  const int size = convert(nullptr, 0);
  if (size == 0) ThrowConversionError(win32::GetLastError());
  Text text(static_cast<std::size_t>(size), typename Text::value_type{});
  if (convert(text.data(), size) == 0) ThrowConversionError(win32::GetLastError());
  return text;
}

}  // namespace

std::string NarrowPath(const WideString& path) {
  const int length = static_cast<int>(path.size());
  auto narrow = Converted<std::string>([&](char* out, int size) {
    return win32::WideCharToMultiByte(CP_ACP, 0, path.data(), length, out, size, nullptr, nullptr);
  });
  // A character that the code page lacks has been replaced. Only the way back tells it for every
  // code page: UTF-8 does not report it.
  if (WidePath(narrow) != path) ThrowConversionError(ERROR_NO_UNICODE_TRANSLATION);
  return narrow;
}

WideString WidePath(const std::string& path) {
  const int length = static_cast<int>(path.size());
  return Converted<WideString>([&](WCHAR* out, int size) {
    return win32::MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, path.data(), length, out, size);
  });
}

}  // namespace velkora
