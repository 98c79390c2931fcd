// Libraries loaded at run time, the dump writer and the crash sender of the machine.
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "platform/crash_services.h"
#include "simulator/crash_sender.h"
#include "simulator/seam_fixture.h"

namespace testing_support {
namespace {

constexpr DWORD kModuleNotFound = 126;
constexpr DWORD kProcedureNotFound = 127;
constexpr char kDumpPath[] = "X:\\a.dmp";

class Win32CrashTest : public SeamTest {
 protected:
  static MiniDumpWriteDumpFunction FindDumpWriter(HMODULE library) {
    const FARPROC found = win32::GetProcAddress(library, "MiniDumpWriteDump");
    return reinterpret_cast<MiniDumpWriteDumpFunction>(reinterpret_cast<std::uintptr_t>(found));
  }

  // The result of MiniDumpWriteDump into a new file, with or without an exception.
  static BOOL WriteDump(MINIDUMP_EXCEPTION_INFORMATION* exception) {
    const HMODULE library = win32::LoadLibraryW(WIDE("DbgHelp.dll"));
    const MiniDumpWriteDumpFunction write = FindDumpWriter(library);
    if (write == nullptr) return FALSE;
    const HANDLE file = win32::CreateFileA(kDumpPath, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                           CREATE_ALWAYS, 0, nullptr);
    const BOOL result = write(win32::GetCurrentProcess(), win32::GetCurrentProcessId(), file,
                              MiniDumpFilterMemory, exception, nullptr, nullptr);
    win32::CloseHandle(file);
    win32::FreeLibrary(library);
    return result;
  }

  std::string DumpText() const { return testing_support::TextOf(folder_.path() / "a.dmp"); }

  static DWORD NumberAt(const std::string& text, std::size_t at) {
    DWORD number = 0;
    if (at + sizeof number <= text.size()) std::memcpy(&number, text.data() + at, sizeof number);
    return number;
  }
};

TEST_F(Win32CrashTest, ThreadsHaveNumbersOfTheirOwn) {
  const DWORD here = win32::GetCurrentThreadId();
  DWORD there = here;
  std::thread([&there] { there = win32::GetCurrentThreadId(); }).join();
  EXPECT_NE(here, there);
  EXPECT_EQ(win32::GetCurrentThreadId(), here);
  EXPECT_NE(win32::GetCurrentProcessId(), 0u);
}

TEST_F(Win32CrashTest, ALibraryIsFoundInAnyCaseAndListedUntilItIsFreed) {
  const HMODULE library = win32::LoadLibraryW(WIDE("dbghelp.DLL"));
  ASSERT_NE(library, nullptr);
  EXPECT_EQ(machine_.handles().Open(), std::vector<std::string>{"library dbghelp.DLL"});
  EXPECT_TRUE(win32::FreeLibrary(library));
  EXPECT_TRUE(machine_.handles().Open().empty());
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
  EXPECT_FALSE(win32::FreeLibrary(library));
  EXPECT_EQ(win32::GetLastError(), kModuleNotFound);
}

TEST_F(Win32CrashTest, AnUnknownLibraryIsError126) {
  EXPECT_EQ(win32::LoadLibraryW(WIDE("other.dll")), nullptr);
  EXPECT_EQ(win32::GetLastError(), kModuleNotFound);
}

TEST_F(Win32CrashTest, LibrariesCanBeTakenAwayAndAdded) {
  machine_.libraries.clear();
  EXPECT_EQ(win32::LoadLibraryW(WIDE("DbgHelp.dll")), nullptr);
  machine_.libraries["other.dll"] = {};
  const HMODULE other = win32::LoadLibraryW(WIDE("Other.dll"));
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(FindDumpWriter(other), nullptr);
  EXPECT_EQ(win32::GetLastError(), kProcedureNotFound);
}

TEST_F(Win32CrashTest, AnUnknownFunctionIsError127) {
  const HMODULE library = win32::LoadLibraryW(WIDE("DbgHelp.dll"));
  EXPECT_EQ(win32::GetProcAddress(library, "MiniDumpReadDump"), nullptr);
  EXPECT_EQ(win32::GetLastError(), kProcedureNotFound);
  EXPECT_NE(FindDumpWriter(library), nullptr);
}

TEST_F(Win32CrashTest, ADumpNamesThreadCodeAndType) {
  EXCEPTION_RECORD record{};
  record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
  EXCEPTION_POINTERS pointers{&record, nullptr};
  MINIDUMP_EXCEPTION_INFORMATION exception{win32::GetCurrentThreadId(), &pointers, FALSE};
  ASSERT_TRUE(WriteDump(&exception));
  const std::string dump = DumpText();
  ASSERT_EQ(dump.size(), 32u + 12 + 168);
  EXPECT_EQ(dump.substr(0, 4), "MDMP");
  EXPECT_EQ(NumberAt(dump, 8), 1u);  // streams
  EXPECT_EQ(NumberAt(dump, 24), DWORD{MiniDumpFilterMemory});
  EXPECT_EQ(NumberAt(dump, 32), 6u);  // an exception stream
  EXPECT_EQ(NumberAt(dump, 44), win32::GetCurrentThreadId());
  EXPECT_EQ(NumberAt(dump, 52), DWORD{EXCEPTION_ACCESS_VIOLATION});
}

TEST_F(Win32CrashTest, ADumpWithoutAnExceptionHasNoStream) {
  ASSERT_TRUE(WriteDump(nullptr));
  EXPECT_EQ(DumpText().size(), 32u);
  EXPECT_EQ(NumberAt(DumpText(), 8), 0u);
}

TEST_F(Win32CrashTest, ADumpIntoAHandleThatIsNotOpenFails) {
  const HMODULE library = win32::LoadLibraryW(WIDE("DbgHelp.dll"));
  EXPECT_FALSE(FindDumpWriter(library)(win32::GetCurrentProcess(), 1, INVALID_HANDLE_VALUE,
                                       MiniDumpNormal, nullptr, nullptr, nullptr));
  EXPECT_EQ(win32::GetLastError(), 0x80070006u);
}

TEST_F(Win32CrashTest, EachStepFailsOnDemand) {
  machine_.calls().FailOn("LoadLibraryW/DbgHelp.dll");
  EXPECT_EQ(win32::LoadLibraryW(WIDE("DbgHelp.dll")), nullptr);
  machine_.calls().FailOn("GetProcAddress/MiniDumpWriteDump");
  const HMODULE library = win32::LoadLibraryW(WIDE("DbgHelp.dll"));
  EXPECT_EQ(FindDumpWriter(library), nullptr);
  machine_.calls().FailOn("MiniDumpWriteDump", 1, ERROR_DISK_FULL);
  EXPECT_FALSE(WriteDump(nullptr));
  EXPECT_EQ(DumpText(), "");
  EXPECT_EQ(machine_.calls().Count("MiniDumpWriteDump"), 1u);
}

bool SaysWhetherItIs80(std::uint32_t code, void*, void*) {
  return code == 80;
}

TEST_F(Win32CrashTest, TheCrashSenderIsRecorded) {
  machine_.crash_sender.dump_type = 3;
  win32::MiniDmpSender* sender =
      win32::NewMiniDmpSender(WIDE("base"), WIDE("program"), WIDE("1.2"), nullptr, 21);
  ASSERT_NE(sender, nullptr);
  EXPECT_EQ(sender->getMiniDumpType(), 3u);
  sender->setMiniDumpType(0x1177);
  sender->setCallback(&SaysWhetherItIs80);
  sender->sendAdditionalFile(WIDE("X:\\logs\\\u00fc.txt"));
  sender->createReport(nullptr);

  const simulator::CrashSender& record = machine_.crash_sender;
  EXPECT_EQ(record.senders_made, 1u);
  EXPECT_EQ(record.database, "base");
  EXPECT_EQ(record.application, "program");
  EXPECT_EQ(record.version, "1.2");
  EXPECT_FALSE(record.has_fourth_text);
  EXPECT_EQ(record.flags, 21u);
  EXPECT_EQ(record.dump_type, 0x1177u);
  EXPECT_EQ(record.attachments, std::vector<std::string>{"X:\\logs\\\xC3\xBC.txt"});
  EXPECT_EQ(record.reports, 1u);
  EXPECT_TRUE(record.Tell(80));
  EXPECT_FALSE(record.Tell(81));
}

TEST_F(Win32CrashTest, EachSenderIsOneOfItsOwnAndOutlivesTheMachine) {
  win32::MiniDmpSender* first =
      win32::NewMiniDmpSender(WIDE("a"), WIDE("b"), WIDE("c"), WIDE("d"), 1);
  win32::MiniDmpSender* second =
      win32::NewMiniDmpSender(WIDE("e"), WIDE("f"), WIDE("g"), nullptr, 2);
  EXPECT_NE(first, second);
  EXPECT_EQ(machine_.crash_sender.senders_made, 2u);
  EXPECT_EQ(machine_.crash_sender.database, "e");
  simulator::SimulatedMachine other;
  other.MakeCurrent();
  first->setMiniDumpType(5);
  EXPECT_EQ(other.crash_sender.dump_type, 5u);
  EXPECT_EQ(machine_.crash_sender.dump_type, 0u);
}

TEST_F(Win32CrashTest, WithoutACallbackNobodyHearsTheVendor) {
  EXPECT_FALSE(machine_.crash_sender.Tell(80));
}

}  // namespace
}  // namespace testing_support
