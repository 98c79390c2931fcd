// Volumes and letters of the seam, answered by the current simulated machine.
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulator/handle_object.h"
#include "simulator/seam_call.h"
#include "simulator/text.h"
#include "simulator/volume.h"

namespace win32 {
namespace {

using simulator::FailsOnDemand;
using simulator::HandleObject;
using simulator::System;
using simulator::TextOrEmpty;
using simulator::ToResult;
using simulator::Volume;

constexpr DWORD kErrorNameTooLong = 206;

// The volumes as they were when the walk began.
class VolumeWalk : public HandleObject {
 public:
  explicit VolumeWalk(std::vector<std::string> roots) : roots_(std::move(roots)) {}

  std::string Describe() const override { return "volume walk"; }

  DWORD Next(char* name, DWORD length) {
    if (next_ == roots_.size()) return ERROR_NO_MORE_FILES;
    const std::string& root = roots_[next_];
    if (name == nullptr || length <= root.size()) return kErrorNameTooLong;
    std::copy_n(root.c_str(), root.size() + 1, name);
    ++next_;
    return ERROR_SUCCESS;
  }

 private:
  std::vector<std::string> roots_;
  std::size_t next_ = 0;
};

VolumeWalk* FindWalk(System& system, HANDLE handle) {
  return dynamic_cast<VolumeWalk*>(system.handles().Find(handle));
}

// The volume with this root, which ends in a backslash; otherwise null and the error (123 for the
// missing backslash is believed).
Volume* FindByRoot(System& system, std::string_view root, DWORD& error) {
  if (!root.ends_with('\\')) {
    error = ERROR_INVALID_NAME;
    return nullptr;
  }
  root.remove_suffix(1);
  Volume* volume = system.FindVolumeByPath(root);
  error = volume == nullptr ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
  return volume;
}

// The letter of `X:\`.
std::optional<char> LetterOf(std::string_view path) {
  if (path.size() != 3 || path[1] != ':' || path[2] != '\\') return std::nullopt;
  const char letter = simulator::ToUpperAscii(path[0]);
  if (letter < 'A' || letter > 'Z') return std::nullopt;
  return letter;
}

DWORD SetMountPoint(System& system, std::string_view letter_path, std::string_view root) {
  const auto letter = LetterOf(letter_path);
  if (!letter) return ERROR_INVALID_NAME;
  DWORD error = ERROR_SUCCESS;
  const Volume* volume = FindByRoot(system, root, error);
  return volume == nullptr ? error : system.mount_manager().Assign(*letter, *volume);
}

}  // namespace

HANDLE FindFirstVolumeA(char* name, DWORD length) {
  System& system = System::Current();
  if (FailsOnDemand(system, "FindFirstVolumeA")) return INVALID_HANDLE_VALUE;
  std::vector<std::string> roots;
  for (const Volume& volume : system.volumes()) roots.push_back(volume.path + '\\');
  auto walk = std::make_unique<VolumeWalk>(std::move(roots));
  const DWORD error = walk->Next(name, length);
  if (error != ERROR_SUCCESS) {
    SetLastError(error);
    return INVALID_HANDLE_VALUE;
  }
  return system.handles().Add(std::move(walk));
}

BOOL FindNextVolumeA(HANDLE find, char* name, DWORD length) {
  System& system = System::Current();
  if (FailsOnDemand(system, "FindNextVolumeA")) return FALSE;
  VolumeWalk* walk = FindWalk(system, find);
  return ToResult(walk == nullptr ? ERROR_INVALID_HANDLE : walk->Next(name, length));
}

BOOL FindVolumeClose(HANDLE find) {
  System& system = System::Current();
  if (FailsOnDemand(system, "FindVolumeClose")) return FALSE;
  if (FindWalk(system, find) == nullptr) return ToResult(ERROR_INVALID_HANDLE);
  system.handles().Close(find);
  return TRUE;
}

BOOL GetVolumePathNamesForVolumeNameA(const char* volume_root, char* names, DWORD length,
                                      DWORD* returned) {
  System& system = System::Current();
  const std::string_view root = TextOrEmpty(volume_root);
  if (FailsOnDemand(system, "GetVolumePathNamesForVolumeNameA", root)) return FALSE;
  DWORD error = ERROR_SUCCESS;
  const Volume* volume = FindByRoot(system, root, error);
  if (volume == nullptr) return ToResult(error);
  std::string text;
  for (const char letter : system.LettersOf(*volume)) {
    text += letter;
    text.append(":\\\0", 3);
  }
  text += '\0';
  if (returned != nullptr) *returned = static_cast<DWORD>(text.size());
  if (names == nullptr || length < text.size()) return ToResult(ERROR_MORE_DATA);
  std::copy(text.begin(), text.end(), names);
  return TRUE;
}

BOOL SetVolumeMountPointA(const char* letter_path, const char* volume_root) {
  System& system = System::Current();
  const std::string_view path = TextOrEmpty(letter_path);
  const std::string_view root = TextOrEmpty(volume_root);
  if (FailsOnDemand(system, "SetVolumeMountPointA", path, root)) return FALSE;
  return ToResult(SetMountPoint(system, path, root));
}

BOOL DeleteVolumeMountPointA(const char* letter_path) {
  System& system = System::Current();
  const std::string_view path = TextOrEmpty(letter_path);
  if (FailsOnDemand(system, "DeleteVolumeMountPointA", path)) return FALSE;
  const auto letter = LetterOf(path);
  return ToResult(letter ? system.mount_manager().Remove(*letter) : ERROR_INVALID_NAME);
}

DWORD GetLogicalDrives() {
  System& system = System::Current();
  if (FailsOnDemand(system, "GetLogicalDrives")) return 0;
  return system.mount_manager().Mask();
}

UINT GetSystemDirectoryA(char* buffer, UINT size) {
  System& system = System::Current();
  if (FailsOnDemand(system, "GetSystemDirectoryA")) return 0;
  const std::string path = std::string(1, system.current_drive()) + ":\\Windows\\system32";
  if (buffer == nullptr || size <= path.size()) return static_cast<UINT>(path.size() + 1);
  std::copy_n(path.c_str(), path.size() + 1, buffer);
  return static_cast<UINT>(path.size());
}

}  // namespace win32
