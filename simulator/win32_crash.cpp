// The calling process, libraries loaded at run time, and the crash sender of the seam.
#include <atomic>
#include <deque>
#include <memory>
#include <string>
#include <utility>

#include "platform/crash_services.h"
#include "simulator/handle_object.h"
#include "simulator/seam_call.h"
#include "simulator/text.h"

namespace win32 {
namespace {

using simulator::CrashSender;
using simulator::FailsOnDemand;
using simulator::HandleObject;
using simulator::System;
using simulator::ToResult;
using simulator::Utf16ToUtf8;

constexpr DWORD kErrorModuleNotFound = 126;
constexpr DWORD kErrorProcedureNotFound = 127;

constexpr DWORD kProcessId = 4712;
// Numbers of threads are multiples of four, as Windows gives them.
constexpr DWORD kThreadIdStep = 4;

class LoadedLibrary : public HandleObject {
 public:
  explicit LoadedLibrary(std::string name) : name_(std::move(name)) {}
  std::string Describe() const override { return "library " + name_; }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

LoadedLibrary* FindLibrary(System& system, HMODULE library) {
  return dynamic_cast<LoadedLibrary*>(system.handles().Find(reinterpret_cast<HANDLE>(library)));
}

// Null for a library that was taken away meanwhile, and for a name that it does not have.
FARPROC FindFunction(System& system, const LoadedLibrary& library, const std::string& name) {
  const auto functions = system.settings().libraries.find(simulator::ToLowerAscii(library.name()));
  if (functions == system.settings().libraries.end()) return nullptr;
  const auto function = functions->second.find(name);
  return function == functions->second.end() ? nullptr : function->second;
}

// Has no state: what it is told belongs to the machine that is current then.
class Sender final : public MiniDmpSender {
 public:
  std::uint32_t getMiniDumpType() override {
    return IsIgnored("getMiniDumpType") ? 0 : Record().dump_type;
  }
  void setMiniDumpType(std::uint32_t type) override {
    if (!IsIgnored("setMiniDumpType", {}, simulator::HexText(type))) Record().dump_type = type;
  }
  void setCallback(Callback callback) override {
    if (!IsIgnored("setCallback")) Record().callback = callback;
  }
  void sendAdditionalFile(const WCHAR* path) override {
    const std::string file = Utf16ToUtf8(path);
    if (IsIgnored("sendAdditionalFile", simulator::FileNameOf(file))) return;
    Record().attachments.push_back(file);
  }
  void createReport(EXCEPTION_POINTERS*) override {
    if (!IsIgnored("createReport")) ++Record().reports;
  }

 private:
  static bool IsIgnored(std::string_view name, std::string_view detail = {},
                        std::string_view arguments = {}) {
    return FailsOnDemand(System::Current(), name, detail, arguments);
  }
  static CrashSender& Record() { return System::Current().crash_sender(); }
};

// Senders are never freed.
Sender* NewSender() {
  static auto& senders = *new std::deque<Sender>;
  return &senders.emplace_back();
}

}  // namespace

// The value that Windows gives too; it is INVALID_HANDLE_VALUE as well.
HANDLE GetCurrentProcess() {
  return INVALID_HANDLE_VALUE;
}

DWORD GetCurrentProcessId() {
  return kProcessId;
}

DWORD GetCurrentThreadId() {
  static std::atomic<DWORD> threads = 0;
  thread_local const DWORD id = (++threads) * kThreadIdStep;
  return id;
}

HMODULE LoadLibraryW(const WCHAR* name) {
  System& system = System::Current();
  const std::string file = Utf16ToUtf8(name);
  if (FailsOnDemand(system, "LoadLibraryW", file)) return nullptr;
  if (!system.settings().libraries.contains(simulator::ToLowerAscii(file))) {
    SetLastError(kErrorModuleNotFound);
    return nullptr;
  }
  return reinterpret_cast<HMODULE>(system.handles().Add(std::make_unique<LoadedLibrary>(file)));
}

FARPROC GetProcAddress(HMODULE library, const char* name) {
  System& system = System::Current();
  if (FailsOnDemand(system, "GetProcAddress", name)) return nullptr;
  const LoadedLibrary* loaded = FindLibrary(system, library);
  const FARPROC function = loaded == nullptr ? nullptr : FindFunction(system, *loaded, name);
  if (function == nullptr) {
    SetLastError(loaded == nullptr ? kErrorModuleNotFound : kErrorProcedureNotFound);
  }
  return function;
}

BOOL FreeLibrary(HMODULE library) {
  System& system = System::Current();
  const LoadedLibrary* loaded = FindLibrary(system, library);
  const std::string name = loaded == nullptr ? std::string() : loaded->name();
  if (FailsOnDemand(system, "FreeLibrary", name)) return FALSE;
  if (loaded == nullptr) return ToResult(kErrorModuleNotFound);
  system.handles().Close(reinterpret_cast<HANDLE>(library));
  return TRUE;
}

MiniDmpSender* NewMiniDmpSender(const WCHAR* database, const WCHAR* application,
                                const WCHAR* version, const WCHAR* fourth, std::uint32_t flags) {
  System& system = System::Current();
  if (!FailsOnDemand(system, "NewMiniDmpSender", Utf16ToUtf8(application))) {
    CrashSender& record = system.crash_sender();
    ++record.senders_made;
    record.database = Utf16ToUtf8(database);
    record.application = Utf16ToUtf8(application);
    record.version = Utf16ToUtf8(version);
    record.has_fourth_text = fourth != nullptr;
    record.flags = flags;
  }
  return NewSender();
}

}  // namespace win32
