#include "conformance/machine.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <windows.h>

#include "conformance/windows/spare_disk.h"
#include "support/temp_folder.h"

namespace conformance {
namespace {

std::uint32_t spare_disk_number = 0;

}  // namespace

void SetSpareDisk(std::uint32_t number) {
  spare_disk_number = number;
}

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

std::uint32_t Machine::spare_disk() const {
  return spare_disk_number;
}

void Machine::PutFile(const std::string& volume_root, const std::string& name,
                      std::size_t size) const {
  const std::string path = volume_root + name;
  // A root without its backslash is the volume itself, and no folder.
  for (std::size_t end = path.find('\\', volume_root.size()); end != std::string::npos;
       end = path.find('\\', end + 1)) {
    CreateDirectoryA(path.substr(0, end).c_str(), nullptr);
  }
  const HANDLE file = CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                  FILE_FLAG_WRITE_THROUGH, nullptr);
  const std::string content(size, 'v');
  DWORD done = 0;
  const bool written = file != INVALID_HANDLE_VALUE &&
                       WriteFile(file, content.data(), static_cast<DWORD>(size), &done, nullptr) &&
                       done == size;
  const DWORD error = GetLastError();
  if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
  if (!written) throw std::runtime_error(path + ": error " + std::to_string(error));
}

void Machine::FormatAsNtfs(std::uint64_t) const {
  const std::filesystem::path script = state_->temp.path() / "ntfs.in";
  std::ofstream(script) << "select disk " << spare_disk_number
                        << "\nselect partition 1\nformat fs=ntfs quick override\n";
  const std::string line = "diskpart /s " + script.string() + " > nul";
  const int status = std::system(line.c_str());
  if (status != 0) throw std::runtime_error(line + ": status " + std::to_string(status));
}

bool Machine::IsWine() {
  return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

}  // namespace conformance
