// The adapter of the outside vendor's crash library, with a stand-in for it beside the program and
// without.
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "platform/crash_services.h"
#include "windows/vendor/vendor_record.h"

namespace {

constexpr WCHAR kLibrary[] = WIDE("BugSplat64.dll");

std::uint32_t told = 0;
bool Record(std::uint32_t code, void*, void*) {
  told = code;
  return false;
}

std::string ReadVendorRecord(HMODULE library) {
  const auto read = reinterpret_cast<ReadRecordFunction>(
      reinterpret_cast<std::uintptr_t>(GetProcAddress(library, "ReadRecord")));
  if (read == nullptr) return "no record";
  char text[1000] = {};
  read(text, sizeof text);
  return text;
}

void TellEverything(win32::MiniDmpSender& sender) {
  sender.setMiniDumpType(sender.getMiniDumpType() | 0x1174);
  sender.setCallback(&Record);
  sender.sendAdditionalFile(WIDE("X:\\logs\\one.txt"));
  EXCEPTION_POINTERS pointers{};
  sender.createReport(&pointers);
}

win32::MiniDmpSender* NewSender() {
  return win32::NewMiniDmpSender(WIDE("base"), WIDE("program"), WIDE("1.2"), nullptr, 21);
}

TEST(CrashSender, WithTheVendorsLibraryEveryCallReachesIt) {
  const HMODULE library = LoadLibraryW(kLibrary);
  ASSERT_NE(library, nullptr) << GetLastError();
  win32::MiniDmpSender* const sender = NewSender();
  TellEverything(*sender);
  EXPECT_EQ(sender->getMiniDumpType(), 0x1175u);
  EXPECT_EQ(told, 80u);
  EXPECT_EQ(ReadVendorRecord(library),
            "construct on 0: base|program|1.2|null|21\n"
            "type 4469\n"
            "callback says no\n"
            "file X:\\logs\\one.txt\n"
            "report with pointers\n");
  FreeLibrary(library);
}

// The library's place is taken by a copy of a system library, which has none of the members.
TEST(CrashSender, WithALibraryThatLacksTheMembersItKeepsTheType) {
  char system_folder[MAX_PATH] = {};
  ASSERT_NE(GetSystemDirectoryA(system_folder, MAX_PATH), 0u);
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("sender" + std::to_string(GetCurrentProcessId()));
  std::filesystem::create_directory(folder);
  std::filesystem::copy_file(std::filesystem::path(system_folder) / "version.dll",
                             folder / kLibrary);
  // A library that is loaded already is found by its name, wherever it lies.
  const HMODULE other = LoadLibraryW((folder / kLibrary).c_str());
  ASSERT_NE(other, nullptr) << GetLastError();

  win32::MiniDmpSender* const sender = NewSender();
  EXPECT_EQ(sender->getMiniDumpType(), 0u);
  TellEverything(*sender);
  EXPECT_EQ(sender->getMiniDumpType(), 0x1174u);
  FreeLibrary(other);
  std::filesystem::remove_all(folder);
}

}  // namespace
