#include <array>

#include "simulator/seam_fixture.h"
#include "simulator/system.h"

namespace testing_support {
namespace {

class Win32ProcessesTest : public SeamTest {
 protected:
  Win32ProcessesTest() {
    machine_.SetCommand(
        "tool", [this](simulator::SimulatedMachine&, const std::vector<std::string>& arguments) {
          runs_.push_back(arguments);
          return simulator::CommandResult{exit_status_, ""};
        });
    machine_.on_shell_line = [this](simulator::ShellRoute route, std::string_view line) {
      const bool elevated = route == simulator::ShellRoute::kElevated;
      lines_.push_back((elevated ? "elevated: " : "system: ") + std::string(line));
    };
    info_.cbSize = sizeof info_;
    info_.fMask = SEE_MASK_NOCLOSEPROCESS;
    info_.lpVerb = WIDE("runas");
    info_.lpFile = WIDE("cmd.exe");
    info_.lpParameters = WIDE("/c tool one");
    info_.nShow = SW_HIDE;
  }

  SHELLEXECUTEINFOW info_{};
  DWORD exit_status_ = 0;
  std::vector<std::vector<std::string>> runs_;
  std::vector<std::string> lines_;
};

TEST_F(Win32ProcessesTest, AnElevatedShellRunsItsLine) {
  exit_status_ = 0x80042405;
  ASSERT_TRUE(win32::ShellExecuteExW(&info_));
  EXPECT_EQ(runs_, std::vector<std::vector<std::string>>{{"one"}});
  EXPECT_EQ(lines_, std::vector<std::string>{"elevated: /c tool one"});
  EXPECT_EQ(win32::WaitForMultipleObjects(1, &info_.hProcess, TRUE, INFINITE), WAIT_OBJECT_0);
  DWORD exit_code = 0;
  ASSERT_TRUE(win32::GetExitCodeProcess(info_.hProcess, &exit_code));
  EXPECT_EQ(exit_code, 0x80042405u);
  EXPECT_EQ(machine_.handles().Open(), std::vector<std::string>{"process"});
  EXPECT_TRUE(win32::CloseHandle(info_.hProcess));
  EXPECT_EQ(win32::GetLastError(), kUntouchedError);
}

TEST_F(Win32ProcessesTest, ParametersReachTheShellAsUtf8) {
  info_.lpParameters = WIDE("/c tool \u00e9\u20ac\U0001F600");
  ASSERT_TRUE(win32::ShellExecuteExW(&info_));
  ASSERT_EQ(runs_.size(), 1u);
  EXPECT_EQ(runs_[0], std::vector<std::string>{"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"});
}

TEST_F(Win32ProcessesTest, HalfASurrogatePairIsReplaced) {
  const std::array<WCHAR, 10> parameters = {'/', 'c', ' ', 't', 'o', 'o', 'l', ' ', 0xD83D, 0};
  info_.lpParameters = parameters.data();
  ASSERT_TRUE(win32::ShellExecuteExW(&info_));
  ASSERT_EQ(runs_.size(), 1u);
  EXPECT_EQ(runs_[0], std::vector<std::string>{"\xEF\xBF\xBD"});
}

TEST_F(Win32ProcessesTest, NoHandleComesBackUnlessAskedFor) {
  info_.fMask = 0;
  ASSERT_TRUE(win32::ShellExecuteExW(&info_));
  EXPECT_EQ(info_.hProcess, nullptr);
  EXPECT_TRUE(machine_.handles().Open().empty());
}

TEST_F(Win32ProcessesTest, OnlyTheShellIsThereToBeStarted) {
  info_.lpFile = WIDE("notepad.exe");
  EXPECT_FALSE(win32::ShellExecuteExW(&info_));
  EXPECT_EQ(win32::GetLastError(), ERROR_FILE_NOT_FOUND);
  info_.lpFile = WIDE("C:\\Windows\\System32\\CMD.EXE");
  EXPECT_TRUE(win32::ShellExecuteExW(&info_));
}

TEST_F(Win32ProcessesTest, ARefusedElevationStartsNothing) {
  machine_.calls().FailOn("ShellExecuteExW", 1, ERROR_CANCELLED);
  EXPECT_FALSE(win32::ShellExecuteExW(&info_));
  EXPECT_EQ(win32::GetLastError(), ERROR_CANCELLED);
  EXPECT_EQ(info_.hProcess, nullptr);
  EXPECT_TRUE(runs_.empty());
  EXPECT_TRUE(lines_.empty());
}

TEST_F(Win32ProcessesTest, AWrongStructureSizeIsRefused) {
  info_.cbSize = 4;
  EXPECT_FALSE(win32::ShellExecuteExW(&info_));
  EXPECT_EQ(win32::GetLastError(), ERROR_ACCESS_DENIED);
}

TEST_F(Win32ProcessesTest, AWaitNeedsOpenHandlesAndUpTo64) {
  const std::array<HANDLE, 65> none{};
  EXPECT_EQ(win32::WaitForMultipleObjects(1, none.data(), TRUE, INFINITE), WAIT_FAILED);
  EXPECT_EQ(win32::GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(win32::WaitForMultipleObjects(0, none.data(), TRUE, INFINITE), WAIT_FAILED);
  EXPECT_EQ(win32::GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(win32::WaitForMultipleObjects(65, none.data(), TRUE, INFINITE), WAIT_FAILED);
  EXPECT_EQ(win32::GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(Win32ProcessesTest, OnlyAProcessHasAnExitCode) {
  machine_.AttachDisk(1, NewImage("a.img", kMegabyte));
  DWORD exit_code = 55;
  EXPECT_FALSE(win32::GetExitCodeProcess(Open("\\\\.\\PhysicalDrive1"), &exit_code));
  EXPECT_EQ(win32::GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(exit_code, 55u);
}

TEST_F(Win32ProcessesTest, AProcessTakesNoTransfersAndCodes) {
  ASSERT_TRUE(win32::ShellExecuteExW(&info_));
  std::array<std::byte, 8> buffer{};
  DWORD done = 0;
  EXPECT_FALSE(win32::ReadFile(info_.hProcess, buffer.data(), 8, &done, nullptr));
  EXPECT_EQ(win32::GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(win32::WriteFile(info_.hProcess, buffer.data(), 8, &done, nullptr));
  EXPECT_EQ(win32::SetFilePointer(info_.hProcess, 0, nullptr, FILE_BEGIN),
            INVALID_SET_FILE_POINTER);
  EXPECT_EQ(Control(info_.hProcess, IOCTL_DISK_UPDATE_PROPERTIES), ERROR_INVALID_HANDLE);
}

TEST_F(Win32ProcessesTest, WaitsAndExitCodesFailOnDemand) {
  ASSERT_TRUE(win32::ShellExecuteExW(&info_));
  machine_.calls().FailOn("WaitForMultipleObjects");
  EXPECT_EQ(win32::WaitForMultipleObjects(1, &info_.hProcess, TRUE, INFINITE), WAIT_FAILED);
  machine_.calls().FailOn("GetExitCodeProcess");
  DWORD exit_code = 55;
  EXPECT_FALSE(win32::GetExitCodeProcess(info_.hProcess, &exit_code));
  EXPECT_EQ(win32::GetLastError(), ERROR_GEN_FAILURE);
  EXPECT_EQ(exit_code, 55u);
}

TEST_F(Win32ProcessesTest, SystemRunsALineAndReturnsItsStatus) {
  exit_status_ = 7;
  EXPECT_EQ(win32::system("tool one two"), 7);
  EXPECT_EQ(runs_, (std::vector<std::vector<std::string>>{{"one", "two"}}));
  EXPECT_EQ(lines_, std::vector<std::string>{"system: tool one two"});
  EXPECT_EQ(win32::system("unknown"), 1);
  EXPECT_NE(win32::system(nullptr), 0);
}

TEST_F(Win32ProcessesTest, AnHresultComesBackAsANegativeNumber) {
  exit_status_ = 0x80042405;
  EXPECT_EQ(win32::system("tool"), static_cast<int>(0x80042405));
}

TEST_F(Win32ProcessesTest, SystemFailsOnDemand) {
  machine_.calls().FailOn("system");
  EXPECT_EQ(win32::system("tool"), -1);
  EXPECT_TRUE(runs_.empty());
  EXPECT_TRUE(lines_.empty());
}

TEST_F(Win32ProcessesTest, ToolsAreFoundByAnyFormOfTheirName) {
  EXPECT_NE(machine_.system().FindTool("TOOL"), nullptr);
  EXPECT_NE(machine_.system().FindTool("tool.EXE"), nullptr);
  EXPECT_NE(machine_.system().FindTool("C:\\Windows\\tool.exe"), nullptr);
  EXPECT_EQ(machine_.system().FindTool("tool.com"), nullptr);
  EXPECT_NE(machine_.system().FindTool("diskpart"), nullptr);
}

TEST_F(Win32ProcessesTest, TheCallBudgetEndsARun) {
  machine_.calls().SetBudget(1);
  win32::GetLogicalDrives();
  EXPECT_THROW(win32::system("tool"), simulator::CallBudgetSpent);
}

}  // namespace
}  // namespace testing_support
