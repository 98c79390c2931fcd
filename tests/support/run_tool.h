// Runs a program of the host, for tests that let other tools make or judge a disk. POSIX only.
#pragma once

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace testing_support {

struct ToolResult {
  int exit_status;     // 128 + signal when a signal ended it, 127 when it could not be started
  std::string output;  // standard output and standard error as they came
};

namespace run_tool_internal {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

inline File MakeTempFile() {
  File file(std::tmpfile(), &std::fclose);
  if (!file) throw std::runtime_error("cannot make a temporary file");
  return file;
}

inline std::string ReadAll(std::FILE* file) {
  std::string text;
  std::array<char, 65536> piece;
  std::rewind(file);
  while (const std::size_t bytes = std::fread(piece.data(), 1, piece.size(), file)) {
    text.append(piece.data(), bytes);
  }
  return text;
}

// Disk tools often live where an ordinary user's PATH does not look.
inline int Spawn(pid_t& child, const posix_spawn_file_actions_t& actions,
                 const std::vector<char*>& argv) {
  int error = ENOENT;
  for (const std::string folder : {"", "/usr/sbin/", "/sbin/"}) {
    const std::string program = folder + argv[0];
    error = posix_spawnp(&child, program.c_str(), &actions, nullptr, argv.data(), environ);
    if (error != ENOENT) break;
  }
  return error;
}

inline int WaitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) throw std::runtime_error("cannot wait for a tool");
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace run_tool_internal

// Runs `argv[0]` (no shell; found by PATH or in the sbin folders) with `input` as its standard
// input, and waits for its end. Precondition: `argv` is not empty.
inline ToolResult RunTool(const std::vector<std::string>& argv, std::string_view input = {}) {
  namespace internal = run_tool_internal;
  const internal::File in = internal::MakeTempFile();
  const internal::File out = internal::MakeTempFile();
  if (!input.empty() && std::fwrite(input.data(), 1, input.size(), in.get()) != input.size()) {
    throw std::runtime_error("cannot prepare a tool's input");
  }
  std::rewind(in.get());

  std::vector<std::string> words = argv;
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fileno(in.get()), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(out.get()), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(out.get()), STDERR_FILENO);
  pid_t child = -1;
  const int error = internal::Spawn(child, actions, pointers);
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return {127, "cannot start " + argv[0]};
  const int exit_status = internal::WaitFor(child);
  return {exit_status, internal::ReadAll(out.get())};
}

}  // namespace testing_support
