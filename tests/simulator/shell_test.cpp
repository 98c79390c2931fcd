#include "simulator/commands/shell.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "simulator/commands/shell_line.h"
#include "simulator/simulated_machine.h"
#include "support/temp_folder.h"

namespace simulator {
namespace {

using Words = std::vector<std::string>;

// ---- Texts only ---------------------------------------------------------------------------------

std::string AfterQuoteRule(std::string_view text) {
  return ApplyQuoteRule(text, [](std::string_view name) { return name == "C:\\my tools\\tool"; });
}

TEST(ApplyQuoteRule, LeavesALineThatDoesNotBeginWithAQuote) {
  EXPECT_EQ(AfterQuoteRule(R"(tool /s "a b" >> "c d")"), R"(tool /s "a b" >> "c d")");
  EXPECT_EQ(AfterQuoteRule("  tool"), "tool");
  EXPECT_EQ(AfterQuoteRule(""), "");
}

TEST(ApplyQuoteRule, KeepsOnePairAroundAnExecutableWithABlank) {
  EXPECT_EQ(AfterQuoteRule(R"("C:\my tools\tool" /x)"), R"("C:\my tools\tool" /x)");
}

TEST(ApplyQuoteRule, RemovesFirstAndLastQuoteOfMoreThanOnePair) {
  EXPECT_EQ(AfterQuoteRule(R"("C:\my tools\tool" "a b")"), R"(C:\my tools\tool" "a b)");
  EXPECT_EQ(AfterQuoteRule(R"(""C:\my tools\tool" "a b"")"), R"("C:\my tools\tool" "a b")");
}

TEST(ApplyQuoteRule, RemovesThePairWhenOneConditionIsMissing) {
  EXPECT_EQ(AfterQuoteRule(R"("C:\other tools\tool" /x)"), R"(C:\other tools\tool /x)");
  EXPECT_EQ(AfterQuoteRule(R"("tool" /x)"), "tool /x");
  const auto anything = [](std::string_view) { return true; };
  EXPECT_EQ(ApplyQuoteRule(R"("a & b")", anything), "a & b");
  EXPECT_EQ(ApplyQuoteRule(R"("a b")", anything), R"("a b")");
}

TEST(ApplyQuoteRule, KeepsTheTextBehindTheLastQuote) {
  EXPECT_EQ(AfterQuoteRule(R"("tool "a" b)"), R"(tool "a b)");
  EXPECT_EQ(AfterQuoteRule(R"("tool)"), "tool");
}

TEST(ParseShellLine, SplitsAtBlanksOutsideOfQuotes) {
  const auto line = ParseShellLine("tool  /s\t\"a b\" c\"d e\"f");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->words, (Words{"tool", "/s", "a b", "cd ef"}));
  EXPECT_FALSE(line->redirection);
}

TEST(ParseShellLine, TakesTheRedirectionOut) {
  const auto line = ParseShellLine(R"(tool a>>"X:\my logs\b" c)");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->words, (Words{"tool", "a", "c"}));
  ASSERT_TRUE(line->redirection);
  EXPECT_EQ(line->redirection->path, "X:\\my logs\\b");
  EXPECT_TRUE(line->redirection->append);
}

TEST(ParseShellLine, OneSignReplacesAndTheLastRedirectionCounts) {
  const auto line = ParseShellLine("tool >> first > second");
  ASSERT_TRUE(line && line->redirection);
  EXPECT_EQ(line->redirection->path, "second");
  EXPECT_FALSE(line->redirection->append);
}

TEST(ParseShellLine, ASignInQuotesIsNoRedirection) {
  const auto line = ParseShellLine(R"(tool "a > b")");
  ASSERT_TRUE(line);
  EXPECT_EQ(line->words, (Words{"tool", "a > b"}));
}

TEST(ParseShellLine, NothingForARedirectionWithoutAPath) {
  EXPECT_FALSE(ParseShellLine("tool >>"));
  EXPECT_FALSE(ParseShellLine("tool > \"\""));
}

TEST(ToolName, IsTheBareNameInLowerCase) {
  EXPECT_EQ(ToolName("diskpart"), "diskpart");
  EXPECT_EQ(ToolName("C:\\Windows\\System32\\DiskPart.EXE"), "diskpart");
}

TEST(FindInterpreterCommand, IsTheTextBehindTheSwitch) {
  const auto command = FindInterpreterCommand(" /q /C tool /c");
  ASSERT_TRUE(command);
  EXPECT_EQ(command->line, " tool /c");
  EXPECT_FALSE(command->stays);
  EXPECT_EQ(FindInterpreterCommand("/ctool")->line, "tool");
  EXPECT_TRUE(FindInterpreterCommand("/k tool")->stays);
}

TEST(FindInterpreterCommand, NothingWithoutTheSwitch) {
  EXPECT_FALSE(FindInterpreterCommand(R"(bootsect /nt60 C: /force /mbr >> "X:\a /c")"));
  EXPECT_FALSE(FindInterpreterCommand("/"));
  EXPECT_FALSE(FindInterpreterCommand(""));
}

// ---- On a machine -------------------------------------------------------------------------------

class Shell : public ::testing::Test {
 protected:
  Shell() {
    machine_.MapFolder('X', folder_.path());
    machine_.SetCommand("tool", [this](SimulatedMachine&, const Words& arguments) {
      runs_.push_back(arguments);
      return CommandResult{exit_status_, "text\r\n"};
    });
  }

  std::string FileText(std::string_view name) const {
    return testing_support::TextOf(folder_.path() / name);
  }
  bool Exists(std::string_view name) const {
    return std::filesystem::exists(folder_.path() / name);
  }

  testing_support::TempFolder folder_;
  SimulatedMachine machine_;
  std::vector<Words> runs_;
  DWORD exit_status_ = 0;
};

TEST_F(Shell, RunsTheToolWithItsArgumentsAndReturnsItsStatus) {
  exit_status_ = 0x80042405;
  EXPECT_EQ(RunShellLine(machine_.system(), R"(TOOL.exe /s "a b")"), 0x80042405U);
  EXPECT_EQ(runs_, (std::vector<Words>{{"/s", "a b"}}));
}

TEST_F(Shell, NotesEachRunByTheBareName) {
  RunShellLine(machine_.system(), "Tool.exe a >> X:\\log");
  ASSERT_EQ(machine_.calls().Count("command/tool"), 1U);
  EXPECT_EQ(machine_.calls().calls().back().arguments, "Tool.exe a >> X:\\log");
}

TEST_F(Shell, AFailureOnDemandIsTheStatusAndTheToolDoesNothing) {
  machine_.calls().FailOn("command/tool", 2, 77);
  EXPECT_EQ(RunShellLine(machine_.system(), "tool >> X:\\log"), 0U);
  EXPECT_EQ(RunShellLine(machine_.system(), "tool >> X:\\log"), 77U);
  EXPECT_EQ(RunShellLine(machine_.system(), "tool >> X:\\log"), 0U);
  EXPECT_EQ(runs_.size(), 2U);
  EXPECT_EQ(FileText("log"), "text\r\ntext\r\n");
}

TEST_F(Shell, TheOutputOfAFailingToolIsWrittenToo) {
  exit_status_ = 5;
  EXPECT_EQ(RunShellLine(machine_.system(), "tool > X:\\log"), 5U);
  EXPECT_EQ(FileText("log"), "text\r\n");
}

TEST_F(Shell, TheRedirectionIsOpenedBeforeTheToolRuns) {
  bool existed = false;
  machine_.SetCommand("look", [&](SimulatedMachine&, const Words&) {
    existed = Exists("log");
    return CommandResult{};
  });
  EXPECT_EQ(RunShellLine(machine_.system(), "look >> X:\\log"), 0U);
  EXPECT_TRUE(existed);
}

TEST_F(Shell, ARedirectionThatCannotBeOpenedKeepsTheToolFromRunning) {
  EXPECT_EQ(RunShellLine(machine_.system(), "tool >> X:\\missing\\log"), 1U);
  EXPECT_EQ(RunShellLine(machine_.system(), "tool >> Q:\\log"), 1U);
  EXPECT_EQ(RunShellLine(machine_.system(), "tool >> X:\\"), 1U);
  EXPECT_EQ(RunShellLine(machine_.system(), "tool >>"), 1U);
  EXPECT_TRUE(runs_.empty());
  EXPECT_EQ(machine_.calls().Count("command"), 0U);
}

TEST_F(Shell, APathWithoutADriveIsOnTheCurrentOne) {
  EXPECT_EQ(RunShellLine(machine_.system(), "tool >> \"\\log\""), 0U);
  EXPECT_EQ(FileText("log"), "text\r\n");
}

TEST_F(Shell, NonAsciiPathsAreUtf8) {
  EXPECT_EQ(RunShellLine(machine_.system(), "tool \"é\" >> \"X:\\журнал.log\""), 0U);
  EXPECT_EQ(runs_, (std::vector<Words>{{"é"}}));
  EXPECT_TRUE(std::filesystem::exists(folder_.path() / std::filesystem::path(u8"журнал.log")));
}

TEST_F(Shell, AnUnknownToolGivesOneAndAnEmptyFile) {
  EXPECT_EQ(RunShellLine(machine_.system(), "unheard of > X:\\log"), 1U);
  EXPECT_TRUE(std::filesystem::exists(machine_.HostPath("X:\\log").value()));
  EXPECT_EQ(FileText("log"), "");
  EXPECT_EQ(machine_.calls().Count("command"), 0U);
}

TEST_F(Shell, AnEmptyLineDoesNothing) {
  EXPECT_EQ(RunShellLine(machine_.system(), "  "), 0U);
  EXPECT_TRUE(machine_.calls().calls().empty());
}

// ---- cmd.exe with parameters --------------------------------------------------------------------

TEST_F(Shell, InterpreterWithSwitchRunsTheLine) {
  exit_status_ = 9;
  EXPECT_EQ(RunCommandInterpreter(machine_.system(), R"(/c tool /s "X:\a" >> "X:\log")"), 9U);
  EXPECT_EQ(runs_, (std::vector<Words>{{"/s", "X:\\a"}}));
  EXPECT_EQ(FileText("log"), "text\r\n");
}

TEST_F(Shell, InterpreterWithoutSwitchWaitsUntilTheBudgetIsSpent) {
  machine_.calls().SetBudget(25);
  EXPECT_THROW(RunCommandInterpreter(machine_.system(), "tool >> \"X:\\log\""), CallBudgetSpent);
  EXPECT_TRUE(runs_.empty());
  EXPECT_FALSE(Exists("log"));
  EXPECT_EQ(machine_.calls().Count("command/cmd wait"), machine_.calls().calls().size());
}

TEST_F(Shell, InterpreterWithoutSwitchAndBudgetEndsToo) {
  EXPECT_THROW(RunCommandInterpreter(machine_.system(), ""), CallBudgetSpent);
}

TEST_F(Shell, InterpreterThatStaysRunsTheLineFirst) {
  machine_.calls().SetBudget(25);
  EXPECT_THROW(RunCommandInterpreter(machine_.system(), "/k tool a"), CallBudgetSpent);
  EXPECT_EQ(runs_, (std::vector<Words>{{"a"}}));
}

TEST_F(Shell, AFailureOnDemandEndsTheWait) {
  machine_.calls().FailOn("command/cmd wait", 3, 13);
  EXPECT_EQ(RunCommandInterpreter(machine_.system(), "tool"), 13U);
}

TEST_F(Shell, AScriptedInterpreterGivesItsStatus) {
  Words seen;
  machine_.SetCommand("cmd", [&seen](SimulatedMachine&, const Words& arguments) {
    seen = arguments;
    return CommandResult{3, ""};
  });
  EXPECT_EQ(RunCommandInterpreter(machine_.system(), "bootsect /nt60 C:"), 3U);
  EXPECT_EQ(seen, (Words{"bootsect", "/nt60", "C:"}));
  EXPECT_EQ(machine_.calls().Count("command/cmd"), 1U);
  EXPECT_EQ(RunCommandInterpreter(machine_.system(), "/c tool"), 0U);
}

}  // namespace
}  // namespace simulator
