#include "simulator/commands/shell.h"

#include <fstream>
#include <string>
#include <vector>

#include "simulator/commands/diskpart.h"
#include "simulator/commands/shell_line.h"
#include "simulator/system.h"

namespace simulator {
namespace {

constexpr DWORD kShellFailure = 1;

// A wait without a limit ends after this many turns all the same.
constexpr int kMostWaits = 100'000;

bool OpenRedirection(const System& system, const Redirection& redirection, std::ofstream& output) {
  const auto path = system.HostPath(redirection.path);
  if (!path) return false;
  output.open(*path, std::ios::binary | (redirection.append ? std::ios::app : std::ios::trunc));
  return output.is_open();
}

CommandResult RunTool(System& system, const std::vector<std::string>& words,
                      std::string_view line) {
  const Tool* command = system.FindTool(words.front());
  // What the interpreter says of it goes to its error output, which a redirection leaves alone.
  if (command == nullptr) return {kShellFailure, ""};
  const std::string tool = ToolName(words.front());
  const std::vector<std::string> arguments(words.begin() + 1, words.end());
  const DWORD failure = system.calls().Note("command", tool, line);
  system.clock().Sleep(system.settings().command_milliseconds);
  if (failure == ERROR_SUCCESS) return (*command)(system, arguments);
  if (tool == "diskpart") TellDiskpartScript(system, arguments);
  return {failure, ""};
}

// The interpreter sits at its prompt; only a failure on demand lets it end by itself.
DWORD WaitForPerson(System& system) {
  for (int turn = 0; turn < kMostWaits; ++turn) {
    const DWORD failure = system.calls().Note("command", "cmd wait");
    if (failure != ERROR_SUCCESS) return failure;
  }
  throw CallBudgetSpent();
}

// What an interpreter does that got no command: wait, unless the machine has a "cmd" of its own.
DWORD RunWithoutCommand(System& system, std::string_view parameters) {
  if (system.FindTool("cmd") == nullptr) return WaitForPerson(system);
  std::vector<std::string> words = {"cmd"};
  if (const auto parsed = ParseShellLine(parameters)) {
    words.insert(words.end(), parsed->words.begin(), parsed->words.end());
  }
  return RunTool(system, words, parameters).exit_status;
}

}  // namespace

DWORD RunShellLine(System& system, std::string_view line) {
  const auto is_executable = [&system](std::string_view name) {
    return system.FindTool(name) != nullptr;
  };
  const std::string text = ApplyQuoteRule(line, is_executable);
  const auto parsed = ParseShellLine(text);
  if (!parsed) return kShellFailure;

  std::ofstream output;
  if (parsed->redirection && !OpenRedirection(system, *parsed->redirection, output)) {
    return kShellFailure;
  }
  if (parsed->words.empty()) return ERROR_SUCCESS;
  const CommandResult result = RunTool(system, parsed->words, text);
  if (output.is_open()) output << result.output;
  return result.exit_status;
}

DWORD RunCommandInterpreter(System& system, std::string_view parameters) {
  const auto command = FindInterpreterCommand(parameters);
  if (!command) return RunWithoutCommand(system, parameters);
  const DWORD exit_status = RunShellLine(system, command->line);
  return command->stays ? RunWithoutCommand(system, parameters) : exit_status;
}

}  // namespace simulator
