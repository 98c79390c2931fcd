#include "simulator/commands/shell.h"

#include <fstream>
#include <string>
#include <vector>

#include "simulator/commands/shell_line.h"
#include "simulator/simulated_machine.h"

namespace simulator {
namespace {

constexpr DWORD kShellFailure = 1;

// A wait that nobody limits ends after this many turns all the same.
constexpr int kMostWaits = 100'000;

bool OpenRedirection(const SimulatedMachine& machine, const Redirection& redirection,
                     std::ofstream& output) {
  const auto path = machine.HostPath(redirection.path);
  if (!path) return false;
  output.open(*path, std::ios::binary | (redirection.append ? std::ios::app : std::ios::trunc));
  return output.is_open();
}

CommandResult RunTool(SimulatedMachine& machine, const std::vector<std::string>& words,
                      std::string_view line) {
  const Command* command = machine.FindCommand(words.front());
  // What the interpreter says of it goes to its error output, which a redirection leaves alone.
  if (command == nullptr) return {kShellFailure, ""};
  const DWORD failure = machine.calls().Note("command", ToolName(words.front()), line);
  machine.clock().Sleep(machine.command_milliseconds);
  if (failure != ERROR_SUCCESS) return {failure, ""};
  return (*command)(machine, std::vector<std::string>(words.begin() + 1, words.end()));
}

// The interpreter sits at its prompt; only a failure on demand lets it end by itself.
DWORD WaitForPerson(SimulatedMachine& machine) {
  for (int turn = 0; turn < kMostWaits; ++turn) {
    const DWORD failure = machine.calls().Note("command", "cmd wait");
    if (failure != ERROR_SUCCESS) return failure;
  }
  throw CallBudgetSpent();
}

// What an interpreter does that got no command: wait, unless the machine has a "cmd" of its own.
DWORD RunWithoutCommand(SimulatedMachine& machine, std::string_view parameters) {
  if (machine.FindCommand("cmd") == nullptr) return WaitForPerson(machine);
  std::vector<std::string> words = {"cmd"};
  if (const auto parsed = ParseShellLine(parameters)) {
    words.insert(words.end(), parsed->words.begin(), parsed->words.end());
  }
  return RunTool(machine, words, parameters).exit_status;
}

}  // namespace

DWORD RunShellLine(SimulatedMachine& machine, std::string_view line) {
  const auto is_executable = [&machine](std::string_view name) {
    return machine.FindCommand(name) != nullptr;
  };
  const std::string text = ApplyQuoteRule(line, is_executable);
  const auto parsed = ParseShellLine(text);
  if (!parsed) return kShellFailure;

  std::ofstream output;
  if (parsed->redirection && !OpenRedirection(machine, *parsed->redirection, output)) {
    return kShellFailure;
  }
  if (parsed->words.empty()) return ERROR_SUCCESS;
  const CommandResult result = RunTool(machine, parsed->words, text);
  if (output.is_open()) output << result.output;
  return result.exit_status;
}

DWORD RunCommandInterpreter(SimulatedMachine& machine, std::string_view parameters) {
  const auto command = FindInterpreterCommand(parameters);
  if (!command) return RunWithoutCommand(machine, parameters);
  const DWORD exit_status = RunShellLine(machine, command->line);
  return command->stays ? RunWithoutCommand(machine, parameters) : exit_status;
}

}  // namespace simulator
