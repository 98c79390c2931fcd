#include "windows/conformance/machine.h"

#include <ctime>
#include <filesystem>
#include <windows.h>

#include "support/temp_folder.h"

namespace conformance {

struct Machine::State {
  testing_support::TempFolder temp;
  std::string folder = temp.path().string();
};

Machine::Machine() : state_(std::make_unique<State>()) {}
Machine::~Machine() = default;

const std::string& Machine::folder() const {
  return state_->folder;
}

void Machine::MakeFolder(const std::string& name) const {
  std::filesystem::create_directory(state_->temp.path() / name);
}

char Machine::current_drive() const {
  return std::filesystem::current_path().root_name().string().front();
}

std::int64_t Machine::Now() const {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  ULARGE_INTEGER ticks;
  ticks.u.LowPart = now.dwLowDateTime;
  ticks.u.HighPart = now.dwHighDateTime;
  // Ticks of 100 ns since 1601.
  return static_cast<std::int64_t>(ticks.QuadPart / 10'000'000) - 11'644'473'600;
}

std::string Machine::ProgramWithBlank() const {
  const std::filesystem::path folder = state_->temp.path() / "with blank";
  const std::filesystem::path program = folder / "tool.exe";
  char system_folder[MAX_PATH];
  GetSystemDirectoryA(system_folder, MAX_PATH);
  std::filesystem::create_directory(folder);
  std::filesystem::copy_file(std::filesystem::path(system_folder) / "cmd.exe", program);
  return program.string();
}

bool Machine::IsWine() {
  return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace conformance
