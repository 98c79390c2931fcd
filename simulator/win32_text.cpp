// Code pages of the seam. The current simulated machine has one, UTF-8, under both of its numbers.
#include <algorithm>
#include <string>

#include "simulator/seam_call.h"
#include "simulator/text.h"
#include "simulator/wide_text.h"

namespace win32 {
namespace {

using simulator::FailsOnDemand;
using simulator::System;

constexpr DWORD kErrorInvalidFlags = 1004;

int Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

// Copies the result, or tells the size that is needed.
template <typename Character>
int Deliver(const std::basic_string<Character>& text, Character* out, int size) {
  const auto length = static_cast<int>(text.size());
  if (size == 0) return length;
  if (size < length) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::copy(text.begin(), text.end(), out);
  return length;
}

bool IsKnown(UINT code_page) {
  return code_page == CP_ACP || code_page == CP_UTF8;
}

// The text up to its NUL, or as long as the caller says.
template <typename Character>
std::basic_string<Character> TextOf(const Character* text, int length) {
  using Text = std::basic_string<Character>;
  return length < 0 ? Text(text) + Character{} : Text(text, static_cast<std::size_t>(length));
}

// Half a surrogate pair has no form in UTF-8.
bool HasLoneSurrogate(const WideString& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto unit = static_cast<std::uint16_t>(text[i]);
    const bool high = unit >= 0xD800 && unit < 0xDC00;
    const std::uint16_t next = i + 1 < text.size() ? static_cast<std::uint16_t>(text[i + 1]) : 0;
    if (high && next >= 0xDC00 && next < 0xE000) {
      ++i;
    } else if (unit >= 0xD800 && unit < 0xE000) {
      return true;
    }
  }
  return false;
}

// Also texts with a NUL in them.
std::string Narrow(const WideString& wide) {
  std::string narrow;
  for (std::size_t start = 0; start <= wide.size();) {
    const std::size_t end = std::min(wide.find(WCHAR{}, start), wide.size());
    narrow += simulator::Utf16ToUtf8(wide.substr(start, end - start).c_str());
    if (end < wide.size()) narrow += '\0';
    start = end + 1;
  }
  return narrow;
}

}  // namespace

int WideCharToMultiByte(UINT code_page, DWORD flags, const WCHAR* wide, int wide_length,
                        char* narrow, int size, const char* fallback, BOOL* used_fallback) {
  if (FailsOnDemand(System::Current(), "WideCharToMultiByte")) return 0;
  if (!IsKnown(code_page) || wide_length == 0 || size < 0) return Fail(ERROR_INVALID_PARAMETER);
  const bool strictly_utf8 = code_page == CP_UTF8;
  if (strictly_utf8 && (fallback != nullptr || used_fallback != nullptr)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  if (strictly_utf8 && (flags & ~DWORD{WC_ERR_INVALID_CHARS}) != 0) return Fail(kErrorInvalidFlags);
  const WideString text = TextOf(wide, wide_length);
  const bool lost = HasLoneSurrogate(text);
  if (lost && (flags & WC_ERR_INVALID_CHARS) != 0) return Fail(ERROR_NO_UNICODE_TRANSLATION);
  if (used_fallback != nullptr) *used_fallback = lost ? TRUE : FALSE;
  return Deliver(Narrow(text), narrow, size);
}

int MultiByteToWideChar(UINT code_page, DWORD flags, const char* narrow, int narrow_length,
                        WCHAR* wide, int size) {
  if (FailsOnDemand(System::Current(), "MultiByteToWideChar")) return 0;
  if (!IsKnown(code_page) || narrow_length == 0 || size < 0) return Fail(ERROR_INVALID_PARAMETER);
  if ((flags & ~DWORD{MB_ERR_INVALID_CHARS}) != 0) return Fail(kErrorInvalidFlags);
  bool sound = true;
  const WideString text = simulator::Utf8ToUtf16(TextOf(narrow, narrow_length), &sound);
  if (!sound && flags != 0) return Fail(ERROR_NO_UNICODE_TRANSLATION);
  return Deliver(text, wide, size);
}

}  // namespace win32
