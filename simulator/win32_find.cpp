// Folder listings of the seam, answered by the current simulated machine.
#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "simulator/folder_listing.h"
#include "simulator/seam_call.h"
#include "simulator/text.h"

namespace win32 {
namespace {

using simulator::FailsOnDemand;
using simulator::FolderEntry;
using simulator::HandleObject;
using simulator::SimulatedMachine;
using simulator::ToResult;

// Times are left at zero, and so is the short name: a file may have none.
void Fill(const FolderEntry& entry, WIN32_FIND_DATAW& data) {
  data = {};
  data.dwFileAttributes = entry.is_folder ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
  data.nFileSizeHigh = static_cast<DWORD>(entry.size >> 32);
  data.nFileSizeLow = static_cast<DWORD>(entry.size & 0xFFFFFFFF);
  const WideString name = simulator::Utf8ToUtf16(entry.name);
  std::copy_n(name.begin(), std::min(name.size(), std::size(data.cFileName) - 1), data.cFileName);
}

// The folder as it was when the listing began.
class FileWalk : public HandleObject {
 public:
  explicit FileWalk(std::vector<FolderEntry> entries) : entries_(std::move(entries)) {}

  std::string Describe() const override { return "file walk"; }

  DWORD Next(WIN32_FIND_DATAW& data) {
    if (next_ == entries_.size()) return ERROR_NO_MORE_FILES;
    Fill(entries_[next_++], data);
    return ERROR_SUCCESS;
  }

 private:
  std::vector<FolderEntry> entries_;
  std::size_t next_ = 0;
};

FileWalk* FindWalk(SimulatedMachine& machine, HANDLE find) {
  return dynamic_cast<FileWalk*>(machine.handles().Find(find));
}

}  // namespace

HANDLE FindFirstFileW(const WCHAR* pattern, WIN32_FIND_DATAW* data) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  const std::string text = simulator::Utf16ToUtf8(pattern);
  if (FailsOnDemand(machine, "FindFirstFileW", text)) return INVALID_HANDLE_VALUE;
  std::vector<FolderEntry> entries;
  const DWORD error = simulator::ListFolder(machine, text, entries);
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
  }
  auto walk = std::make_unique<FileWalk>(std::move(entries));
  walk->Next(*data);
  return machine.handles().Add(std::move(walk));
}

BOOL FindNextFileW(HANDLE find, WIN32_FIND_DATAW* data) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  if (FailsOnDemand(machine, "FindNextFileW")) return FALSE;
  FileWalk* walk = FindWalk(machine, find);
  return ToResult(walk == nullptr ? ERROR_INVALID_HANDLE : walk->Next(*data));
}

BOOL FindClose(HANDLE find) {
  SimulatedMachine& machine = SimulatedMachine::Current();
  if (FailsOnDemand(machine, "FindClose")) return FALSE;
  if (FindWalk(machine, find) == nullptr) return ToResult(ERROR_INVALID_HANDLE);
  machine.handles().Close(find);
  return TRUE;
}

}  // namespace win32
