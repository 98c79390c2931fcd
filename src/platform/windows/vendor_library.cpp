#include "platform/windows/vendor_library.h"

#include <cstddef>
#include <string_view>

namespace win32 {
namespace {

constexpr WCHAR kLibrary[] = WIDE("BugSplat64.dll");

// A member is told from its overloads by what the decorated name holds of the arguments' types.
struct MemberName {
  std::string_view prefix;
  std::string_view argument;
};

constexpr MemberName kConstruct = {"??0MiniDmpSender@@", "_W000"};  // of four wide texts
constexpr MemberName kGetMiniDumpType = {"?getMiniDumpType@MiniDmpSender@@", ""};
constexpr MemberName kSetMiniDumpType = {"?setMiniDumpType@MiniDmpSender@@", ""};
constexpr MemberName kSetCallback = {"?setCallback@MiniDmpSender@@", "P6A"};
constexpr MemberName kSendAdditionalFile = {"?sendAdditionalFile@MiniDmpSender@@", "_W"};
constexpr MemberName kCreateReport = {"?createReport@MiniDmpSender@@", "EXCEPTION_POINTERS"};

const IMAGE_EXPORT_DIRECTORY* ExportsOf(const std::byte* image) {
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(image);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(image + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& entry =
      headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  if (entry.Size == 0) return nullptr;
  return reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(image + entry.VirtualAddress);
}

// The whole name under which the library exports the member, or null.
const char* FindName(HMODULE library, const MemberName& member) {
  const auto* image = reinterpret_cast<const std::byte*>(library);
  const IMAGE_EXPORT_DIRECTORY* exports = ExportsOf(image);
  if (exports == nullptr) return nullptr;
  const auto* names = reinterpret_cast<const DWORD*>(image + exports->AddressOfNames);
  for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
    const char* name = reinterpret_cast<const char*>(image + names[i]);
    std::string_view rest = name;
    if (!rest.starts_with(member.prefix)) continue;
    rest.remove_prefix(member.prefix.size() - 1);  // its last "@" opens the types
    if (rest.find(member.argument) != std::string_view::npos) return name;
  }
  return nullptr;
}

template <typename Function>
bool Find(HMODULE library, const MemberName& member, Function& function) {
  const char* name = FindName(library, member);
  if (name == nullptr) return false;
  function =
      reinterpret_cast<Function>(reinterpret_cast<std::uintptr_t>(::GetProcAddress(library, name)));
  return function != nullptr;
}

}  // namespace

bool LoadVendorLibrary(VendorMembers& members) {
  const HMODULE library = ::LoadLibraryW(kLibrary);
  if (library == nullptr) return false;
  if (Find(library, kConstruct, members.construct) &&
      Find(library, kGetMiniDumpType, members.get_mini_dump_type) &&
      Find(library, kSetMiniDumpType, members.set_mini_dump_type) &&
      Find(library, kSetCallback, members.set_callback) &&
      Find(library, kSendAdditionalFile, members.send_additional_file) &&
      Find(library, kCreateReport, members.create_report)) {
    return true;
  }
  ::FreeLibrary(library);
  return false;
}

}  // namespace win32
