#include "tools/process_runner.h"

#include <stdexcept>

#include "frame/global_context.h"
#include "platform/win32.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

constexpr std::uint32_t kUntouched = 0xCDCDCDCD;

class RunElevatedAndWait : public MachineTest {
 protected:
  // Makes `tool` end with `exit_status` and keep the arguments that it is given.
  void Script(std::string_view tool, DWORD exit_status) {
    machine_.SetCommand(tool, [this, exit_status](auto&, const Texts& arguments) {
      arguments_ = arguments;
      return simulator::CommandResult{exit_status, "text of the tool\r\n"};
    });
  }

  Texts arguments_ = {"not run"};
};

TEST_F(RunElevatedAndWait, ToolThatEndsWithZeroIsASuccess) {
  Script("probe", 0);
  EXPECT_TRUE(velkora::RunElevatedAndWait("/c probe one \"two words\"", "cmd.exe", nullptr));
  EXPECT_EQ(shell_lines_, Texts{"elevated: /c probe one \"two words\""});
  EXPECT_EQ(arguments_, (Texts{"one", "two words"}));
  EXPECT_EQ(log_, Log{});
}

TEST_F(RunElevatedAndWait, AsksForTheRunasVerbWithoutAWindowAndWaitsForTheEnd) {
  Script("probe", 0);
  EXPECT_TRUE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", nullptr));
  const auto& calls = machine_.calls().calls();
  const auto is_start = [](const simulator::Call& call) { return call.name == "ShellExecuteExW"; };
  const auto start = std::find_if(calls.begin(), calls.end(), is_start);
  ASSERT_NE(start, calls.end());
  EXPECT_EQ(start->detail, "cmd.exe");
  EXPECT_EQ(start->arguments, "runas show 0 mask 0x40 /c probe");
  const auto is_wait = [](const simulator::Call& call) {
    return call.name == "WaitForMultipleObjects";
  };
  const auto wait = std::find_if(start, calls.end(), is_wait);
  ASSERT_NE(wait, calls.end());
  EXPECT_EQ(wait->arguments, "1 all 0xffffffff ms");
}

TEST_F(RunElevatedAndWait, SuccessLeavesTheExitCodeAsItWas) {
  Script("probe", 0);
  std::uint32_t exit_code = kUntouched;
  EXPECT_TRUE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", &exit_code));
  EXPECT_EQ(exit_code, kUntouched);
}

TEST_F(RunElevatedAndWait, StatusOfAFailedToolIsStoredAndLogged) {
  Script("probe", 3);
  std::uint32_t exit_code = kUntouched;
  win32::SetLastError(1234);
  EXPECT_FALSE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", &exit_code));
  EXPECT_EQ(exit_code, 3U);
  EXPECT_EQ(log_, (Log{{3, "GetExitCodeProcess fail, error: 3, last error: 1234"}}));
}

TEST_F(RunElevatedAndWait, StatusOfAFailedToolNeedsNoPlace) {
  Script("probe", 1);
  win32::SetLastError(0);
  EXPECT_FALSE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", nullptr));
  EXPECT_EQ(log_, (Log{{3, "GetExitCodeProcess fail, error: 1, last error: 0"}}));
}

TEST_F(RunElevatedAndWait, StatusWithTheHighestBitIsPrintedAsANegativeNumber) {
  Script("probe", 0x80042405);
  std::uint32_t exit_code = kUntouched;
  win32::SetLastError(7);
  EXPECT_FALSE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", &exit_code));
  EXPECT_EQ(exit_code, 0x80042405U);
  EXPECT_EQ(log_, (Log{{3, "GetExitCodeProcess fail, error: -2147212283, last error: 7"}}));
}

TEST_F(RunElevatedAndWait, EachRunLeavesOneProcessHandleOpen) {
  Script("probe", 0);
  EXPECT_TRUE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", nullptr));
  EXPECT_EQ(machine_.handles().Open(), Texts{"process"});
  Script("probe", 5);
  EXPECT_FALSE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", nullptr));
  EXPECT_EQ(machine_.handles().Open(), (Texts{"process", "process"}));
}

TEST_F(RunElevatedAndWait, RefusedStartIsLoggedWithoutItsError) {
  Script("probe", 0);
  machine_.calls().FailOn("ShellExecuteExW", 1, ERROR_CANCELLED);
  std::uint32_t exit_code = kUntouched;
  EXPECT_FALSE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", &exit_code));
  EXPECT_EQ(exit_code, kUntouched);
  EXPECT_EQ(log_, (Log{{3, "ShellExecuteExW fail"}}));
  EXPECT_EQ(arguments_, Texts{"not run"});
  EXPECT_EQ(machine_.calls().Count("WaitForMultipleObjects"), 0U);
  EXPECT_EQ(machine_.handles().Open(), Texts{});
}

TEST_F(RunElevatedAndWait, FailedWaitIsNotLookedAt) {
  Script("probe", 0);
  machine_.calls().FailOn("WaitForMultipleObjects", 1, 6);
  EXPECT_TRUE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", nullptr));
  EXPECT_EQ(log_, Log{});
}

TEST_F(RunElevatedAndWait, FailedQueryOfTheStatusIsSilent) {
  Script("probe", 0);
  machine_.calls().FailOn("GetExitCodeProcess", 1, 6);
  std::uint32_t exit_code = kUntouched;
  EXPECT_FALSE(velkora::RunElevatedAndWait("/c probe", "cmd.exe", &exit_code));
  EXPECT_EQ(exit_code, kUntouched);
  EXPECT_EQ(log_, Log{});
  EXPECT_EQ(machine_.handles().Open(), Texts{"process"});
}

TEST_F(RunElevatedAndWait, EmptyParametersAreLegal) {
  Script("cmd", 0);
  EXPECT_TRUE(velkora::RunElevatedAndWait("", "cmd.exe", nullptr));
  EXPECT_EQ(shell_lines_, Texts{"elevated: "});
  EXPECT_EQ(arguments_, Texts{});
}

TEST_F(RunElevatedAndWait, ToolThatNeverEndsBlocksAlsoAfterAStop) {
  // An interpreter without a command waits for a person; here the budget of calls ends it.
  machine_.calls().SetBudget(100);
  velkora::GetGlobalContext().stop_requested = 1;
  EXPECT_THROW(velkora::RunElevatedAndWait("diskpart", "cmd.exe", nullptr),
               simulator::CallBudgetSpent);
}

TEST_F(RunElevatedAndWait, TextThatIsNotAsciiArrivesUnchanged) {
  Script("probe", 0);
  EXPECT_TRUE(
      velkora::RunElevatedAndWait("/c probe X:\\gr\xC3\xBC\xC3\x9F"
                                  "e",
                                  "cmd.exe", nullptr));
  EXPECT_EQ(arguments_, Texts{"X:\\gr\xC3\xBC\xC3\x9F"
                              "e"});
}

TEST_F(RunElevatedAndWait, TextThatIsNotUtf8StartsNothing) {
  Script("probe", 0);
  EXPECT_THROW(velkora::RunElevatedAndWait("/c probe \xFF", "cmd.exe", nullptr), std::range_error);
  EXPECT_THROW(velkora::RunElevatedAndWait("/c probe", "cmd\xC3.exe", nullptr), std::range_error);
  EXPECT_EQ(machine_.calls().Count("ShellExecuteExW"), 0U);
}

}  // namespace
}  // namespace testing_support
