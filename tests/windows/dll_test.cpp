// The DLL as an application meets it: loaded by name, called through its two exports and two slots.
#include <gtest/gtest.h>

// clang-format off
#include <windows.h>
// clang-format on

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "frame/velkora_sdk.h"
#include "support/temp_folder.h"

namespace {

using InitFunction = decltype(&InitVelkoraSDK);
using DestroyFunction = decltype(&DestroyVelkoraSDK);
using ConvertFunction = std::int32_t (*)(VelkoraSDK*, DiskInfo*, VelkoraCallback);
using StopFunction = void (*)(VelkoraSDK*);

constexpr char kAbsentDisk[] = R"(\\.\PhysicalDrive99)";

int callbacks = 0;
std::int32_t CountCallback(std::int32_t, std::int32_t) {
  return ++callbacks;
}

class Dll : public ::testing::Test {
 protected:
  Dll() : module_(LoadLibraryW(L"VelkoraSDK.dll")) {}
  ~Dll() override {
    if (module_ != nullptr) FreeLibrary(module_);
  }

  void SetUp() override {
    ASSERT_NE(module_, nullptr) << GetLastError();
    ASSERT_NE(Find("InitVelkoraSDK"), nullptr);
    ASSERT_NE(Find("DestroyVelkoraSDK"), nullptr);
    std::filesystem::create_directory(logs_folder_);
    callbacks = 0;
  }

  void* Find(const char* name) const {
    return reinterpret_cast<void*>(GetProcAddress(module_, name));
  }
  // Starts the library with its log in `log_folder`.
  VelkoraSDK* Init(const std::filesystem::path& log_folder) const {
    const auto utf8 = log_folder.u8string();
    return reinterpret_cast<InitFunction>(Find("InitVelkoraSDK"))(
        utf8.c_str(), logs_folder_.string().c_str(), nullptr, nullptr);
  }
  VelkoraSDK* Init() const { return Init(temp_.path()); }
  void Destroy(VelkoraSDK* sdk) const {
    reinterpret_cast<DestroyFunction>(Find("DestroyVelkoraSDK"))(sdk);
  }

  static std::vector<std::string> LogLines(const std::filesystem::path& log_folder) {
    std::ifstream file(log_folder / "SDK.log", std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
  }
  std::vector<std::string> LogLines() const { return LogLines(temp_.path()); }

  HMODULE module_;
  testing_support::TempFolder temp_;
  std::filesystem::path logs_folder_ = temp_.path() / "logs";
};

DiskInfo AbsentDisk() {
  DiskInfo disk{};
  disk.disk_type = DiskType::kGpt;
  disk.index = 99;
  std::snprintf(disk.id, sizeof disk.id, "%s", kAbsentDisk);
  return disk;
}

bool EndsWith(const std::string& line, const std::string& end) {
  return line.size() >= end.size() && line.compare(line.size() - end.size(), end.size(), end) == 0;
}

// The names in the export directory of a loaded module.
std::vector<std::string> ExportedNames(HMODULE module, DWORD& function_count) {
  const auto* base = reinterpret_cast<const std::byte*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const DWORD address =
      nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress;
  const auto* exports = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY*>(base + address);
  const auto* names = reinterpret_cast<const DWORD*>(base + exports->AddressOfNames);
  function_count = exports->NumberOfFunctions;
  std::vector<std::string> result;
  for (DWORD i = 0; i < exports->NumberOfNames; ++i) {
    result.emplace_back(reinterpret_cast<const char*>(base + names[i]));
  }
  return result;
}

TEST_F(Dll, ExportsExactlyTwoNames) {
  DWORD function_count = 0;
  const std::vector<std::string> names = ExportedNames(module_, function_count);
  EXPECT_EQ(names, (std::vector<std::string>{"DestroyVelkoraSDK", "InitVelkoraSDK"}));
  EXPECT_EQ(function_count, 2u);  // none by number alone
}

TEST_F(Dll, InitWritesVersionAndFolderToTheLog) {
  VelkoraSDK* const sdk = Init();
  ASSERT_NE(sdk, nullptr);
  Destroy(sdk);
  const std::vector<std::string> lines = LogLines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_TRUE(EndsWith(lines[0], " [1] [SDK] Velkora SDK Version: 1, 0, 0, 20-d-5130b0fa"));
  EXPECT_TRUE(EndsWith(lines[1], " [1] [SDK] Logs Folder: " + logs_folder_.string()));
  const std::regex form(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\dZ \[[123]\] \[SDK\] .*)");
  for (const std::string& line : lines) EXPECT_TRUE(std::regex_match(line, form)) << line;
}

TEST_F(Dll, ConvertThroughTheClass) {
  VelkoraSDK* const sdk = Init();
  ASSERT_NE(sdk, nullptr);
  DiskInfo disk = AbsentDisk();
  EXPECT_EQ(sdk->Convert(&disk, CountCallback), 1);
  Destroy(sdk);
  EXPECT_EQ(callbacks, 0);
  EXPECT_TRUE(EndsWith(LogLines().back(), " [3] [SDK] open device failed, device_id: " +
                                              std::string(kAbsentDisk) + ", error_code: 2"));
}

TEST_F(Dll, SlotsAreConvertThenStop) {
  VelkoraSDK* const sdk = Init();
  ASSERT_NE(sdk, nullptr);
  void* const* const slots = *reinterpret_cast<void* const* const*>(sdk);
  DiskInfo disk = AbsentDisk();
  EXPECT_EQ(reinterpret_cast<ConvertFunction>(slots[0])(sdk, &disk, CountCallback), 1);
  EXPECT_EQ(callbacks, 0);
  EXPECT_TRUE(EndsWith(LogLines().back(), ", error_code: 2"));
  reinterpret_cast<StopFunction>(slots[1])(sdk);
  EXPECT_TRUE(EndsWith(LogLines().back(), " [1] [SDK] Set Convert Stop!"));
  Destroy(sdk);
}

TEST_F(Dll, StopThroughTheClass) {
  VelkoraSDK* const sdk = Init();
  ASSERT_NE(sdk, nullptr);
  sdk->Stop();
  EXPECT_TRUE(EndsWith(LogLines().back(), " [1] [SDK] Set Convert Stop!"));
  Destroy(sdk);
}

TEST_F(Dll, ConvertPrintsTheRecordInUtf8) {
  VelkoraSDK* const sdk = Init();
  ASSERT_NE(sdk, nullptr);
  VolumeInfo volume{};
  std::snprintf(volume.letter, sizeof volume.letter, "%s", "D:");
  volume.size = 0xFFFF'FFFF'FFFF'FFFF;
  volume.offset = 5'000'000'000;
  volume.filesystem = VolumeFileSystem::kNtfs;
  DiskInfo disk = AbsentDisk();
  disk.size = 3'000'000'000'000;
  disk.volume_count = 1;
  disk.volumes[0] = &volume;
  std::snprintf(disk.serial_num, sizeof disk.serial_num, "%s", "\xC3\x9C-1");
  EXPECT_EQ(sdk->Convert(&disk, CountCallback), 1);
  Destroy(sdk);
  const std::vector<std::string> lines = LogLines();
  ASSERT_GE(lines.size(), 5u);
  EXPECT_TRUE(
      EndsWith(lines[lines.size() - 4], "[disk] disk_type: GPT, id: " + std::string(kAbsentDisk) +
                                            ", index: 99, serial_num: \xC3\x9C-1, is_system: 0, "
                                            "size: 3000000000000, volume_count: 1"));
  EXPECT_TRUE(EndsWith(lines[lines.size() - 3],
                       "[part] offset: 5000000000, size: 18446744073709551615, letter: D:, "
                       "is_system: 0, filesystem: NTFS"));
}

TEST_F(Dll, LogFolderMayHaveAnyCharacters) {
  const std::filesystem::path folder = temp_.path() / L"Gr\u00fc\u00dfe \u65e5\u672c";
  ASSERT_TRUE(std::filesystem::create_directory(folder));
  VelkoraSDK* const sdk = Init(folder);
  ASSERT_NE(sdk, nullptr);
  Destroy(sdk);
  EXPECT_GE(LogLines(folder).size(), 2u);
}

TEST_F(Dll, DestroyIgnoresNull) {
  Destroy(nullptr);
  VelkoraSDK* const sdk = Init();
  EXPECT_NE(sdk, nullptr);
  Destroy(sdk);
}

class VersionResource : public Dll {
 protected:
  void SetUp() override {
    Dll::SetUp();
    wchar_t path[MAX_PATH] = {};
    ASSERT_NE(GetModuleFileNameW(module_, path, MAX_PATH), 0u);
    DWORD handle = 0;
    block_.resize(GetFileVersionInfoSizeW(path, &handle));
    ASSERT_FALSE(block_.empty());
    ASSERT_TRUE(GetFileVersionInfoW(path, 0, static_cast<DWORD>(block_.size()), block_.data()));
  }

  std::wstring Text(const std::wstring& name) const {
    void* text = nullptr;
    UINT length = 0;
    const std::wstring path = L"\\StringFileInfo\\040904B0\\" + name;
    if (!VerQueryValueW(block_.data(), path.c_str(), &text, &length)) return L"";
    return static_cast<const wchar_t*>(text);
  }

  std::vector<std::byte> block_;
};

TEST_F(VersionResource, NumbersAre1_0_0_20) {
  void* value = nullptr;
  UINT length = 0;
  ASSERT_TRUE(VerQueryValueW(block_.data(), L"\\", &value, &length));
  const auto* info = static_cast<const VS_FIXEDFILEINFO*>(value);
  EXPECT_EQ(info->dwFileVersionMS, 0x0001'0000u);
  EXPECT_EQ(info->dwFileVersionLS, 20u);
  EXPECT_EQ(info->dwProductVersionMS, 0x0001'0000u);
  EXPECT_EQ(info->dwProductVersionLS, 20u);
  EXPECT_EQ(info->dwFileType, DWORD{VFT_DLL});
}

TEST_F(VersionResource, TextsNameTheProduct) {
  EXPECT_EQ(Text(L"ProductName"), L"Velkora SDK");
  EXPECT_EQ(Text(L"InternalName"), L"VelkoraSDK");
  EXPECT_EQ(Text(L"OriginalFilename"), L"VelkoraSDK.dll");
  EXPECT_EQ(Text(L"FileVersion"), L"1.0.0.20");
  EXPECT_EQ(Text(L"ProductVersion"), L"1.0.0.20");
}

}  // namespace
