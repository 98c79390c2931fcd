// Folder listings of the seam, answered by the current simulated machine.
#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "simulator/folder_listing.h"
#include "simulator/handle_object.h"
#include "simulator/seam_call.h"
#include "simulator/text.h"
#include "simulator/wide_text.h"

namespace win32 {
namespace {

using simulator::FailsOnDemand;
using simulator::HandleObject;
using simulator::ListedFile;
using simulator::System;
using simulator::ToResult;

// A name that is too long for its place, which is all zeros, is cut.
template <std::size_t kSize>
void CopyName(const std::string& name, WCHAR (&out)[kSize]) {
  const WideString wide = simulator::Utf8ToUtf16(name);
  std::copy_n(wide.begin(), std::min(wide.size(), kSize - 1), out);
}

// Times are left at zero.
void Fill(const ListedFile& file, WIN32_FIND_DATAW& data) {
  data = {};
  data.dwFileAttributes = file.attributes;
  data.nFileSizeHigh = static_cast<DWORD>(file.size >> 32);
  data.nFileSizeLow = static_cast<DWORD>(file.size & 0xFFFFFFFF);
  CopyName(file.name, data.cFileName);
  CopyName(file.short_name, data.cAlternateFileName);
}

// The folder as it was when the listing began.
class FileWalk : public HandleObject {
 public:
  explicit FileWalk(std::vector<ListedFile> entries) : entries_(std::move(entries)) {}

  std::string Describe() const override { return "file walk"; }

  DWORD Next(WIN32_FIND_DATAW& data) {
    if (next_ == entries_.size()) return ERROR_NO_MORE_FILES;
    Fill(entries_[next_++], data);
    return ERROR_SUCCESS;
  }

 private:
  std::vector<ListedFile> entries_;
  std::size_t next_ = 0;
};

FileWalk* FindWalk(System& system, HANDLE find) {
  return dynamic_cast<FileWalk*>(system.handles().Find(find));
}

}  // namespace

HANDLE FindFirstFileW(const WCHAR* pattern, WIN32_FIND_DATAW* data) {
  System& system = System::Current();
  const std::string text = simulator::Utf16ToUtf8(pattern);
  if (FailsOnDemand(system, "FindFirstFileW", text)) return INVALID_HANDLE_VALUE;
  std::vector<ListedFile> entries;
  const DWORD error = simulator::ListFolder(system, text, entries);
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
  }
  auto walk = std::make_unique<FileWalk>(std::move(entries));
  walk->Next(*data);
  return system.handles().Add(std::move(walk));
}

BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* data) {
  System& system = System::Current();
  if (FailsOnDemand(system, "FindNextFileW")) return FALSE;
  FileWalk* walk = FindWalk(system, find);
  return ToResult(walk == nullptr ? ERROR_INVALID_HANDLE : walk->Next(*data));
}

BOOL FindClose(HANDLE find) {
  System& system = System::Current();
  if (FailsOnDemand(system, "FindClose")) return FALSE;
  if (FindWalk(system, find) == nullptr) return ToResult(ERROR_INVALID_HANDLE);
  system.handles().Close(find);
  return TRUE;
}

}  // namespace win32
