#include "boot/boot_sector.h"

#include "frame/global_context.h"
#include "support/machine_fixture.h"

namespace testing_support {
namespace {

const std::string kLine = "bootsect /nt60 C: /force /mbr >> \"X:\\logs\\BOOTSECT_result.log\"";

class RecoverMbr : public MachineTest {
 protected:
  RecoverMbr() {
    velkora::GetGlobalContext().is_system = 1;
    Script(0);
  }

  // Makes bootsect end with `exit_status` and keep the arguments that it is given.
  void Script(DWORD exit_status) {
    machine_.SetCommand("bootsect", [this, exit_status](auto&, const Texts& arguments) {
      arguments_ = arguments;
      return simulator::CommandResult{exit_status, "Target volumes will be updated.\r\n"};
    });
  }

  Texts arguments_ = {"not run"};
};

TEST_F(RecoverMbr, RunsBootsectOnTheVolumeAndTheDisk) {
  EXPECT_TRUE(velkora::RecoverMbr("C"));
  EXPECT_EQ(arguments_, (Texts{"/nt60", "C:", "/force", "/mbr"}));
  EXPECT_EQ(shell_lines_, Texts{"system: " + kLine});
  EXPECT_EQ(log_,
            (Log{{1, "RecoverMbr Begin..."}, {1, "cmd=" + kLine}, {1, "RecoverMbr Success!"}}));
}

TEST_F(RecoverMbr, FailedToolIsAFailure) {
  Script(1);
  EXPECT_FALSE(velkora::RecoverMbr("C"));
  EXPECT_EQ(log_, (Log{{1, "RecoverMbr Begin..."}, {1, "cmd=" + kLine}, {3, "RecoverMbr fail!"}}));
}

TEST_F(RecoverMbr, ShellThatCannotBeStartedIsAFailure) {
  machine_.calls().FailOn("system");
  EXPECT_FALSE(velkora::RecoverMbr("C"));
  EXPECT_EQ(arguments_, Texts{"not run"});
  EXPECT_EQ(log_.back(), (LogLine{3, "RecoverMbr fail!"}));
}

TEST_F(RecoverMbr, NothingIsRetried) {
  Script(1);
  EXPECT_FALSE(velkora::RecoverMbr("C"));
  EXPECT_EQ(machine_.calls().Count("command/bootsect"), 1U);
}

TEST_F(RecoverMbr, ResultLogGrowsAcrossRuns) {
  EXPECT_TRUE(velkora::RecoverMbr("C"));
  Script(1);
  EXPECT_FALSE(velkora::RecoverMbr("C"));
  EXPECT_EQ(LogsFileText("BOOTSECT_result.log"),
            "Target volumes will be updated.\r\nTarget volumes will be updated.\r\n");
}

TEST_F(RecoverMbr, ResultLogThatCannotBeOpenedIsAFailure) {
  velkora::GetGlobalContext().logs_folder = "X:\\missing";
  EXPECT_FALSE(velkora::RecoverMbr("C"));
  EXPECT_EQ(arguments_, Texts{"not run"});
  EXPECT_EQ(log_.back(), (LogLine{3, "RecoverMbr fail!"}));
}

TEST_F(RecoverMbr, LongerLetterIsPassedThrough) {
  EXPECT_TRUE(velkora::RecoverMbr("CD"));
  EXPECT_EQ(arguments_, (Texts{"/nt60", "CD:", "/force", "/mbr"}));
}

TEST_F(RecoverMbr, StopIsNotLookedAt) {
  velkora::GetGlobalContext().stop_requested = 1;
  EXPECT_TRUE(velkora::RecoverMbr("C"));
}

// The elevated interpreter gets the bare line, which it ignores without /c.
TEST_F(RecoverMbr, ElevatedInterpreterGetsTheBareLine) {
  velkora::GetGlobalContext().is_system = 0;
  machine_.SetCommand("cmd", [](auto&, const Texts&) { return simulator::CommandResult{0, ""}; });
  EXPECT_TRUE(velkora::RecoverMbr("C"));
  EXPECT_EQ(shell_lines_, Texts{"elevated: " + kLine});
  EXPECT_EQ(arguments_, Texts{"not run"});
  EXPECT_EQ(log_.back(), (LogLine{1, "RecoverMbr Success!"}));
}

TEST_F(RecoverMbr, RefusedElevationIsAFailure) {
  velkora::GetGlobalContext().is_system = 0;
  machine_.calls().FailOn("ShellExecuteExW", 1, ERROR_CANCELLED);
  EXPECT_FALSE(velkora::RecoverMbr("C"));
  EXPECT_EQ(log_, (Log{{1, "RecoverMbr Begin..."},
                       {1, "cmd=" + kLine},
                       {3, "ShellExecuteExW fail"},
                       {3, "RecoverMbr fail!"}}));
}

}  // namespace
}  // namespace testing_support
