#include "support/tools/run_tool.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace testing_support {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File MakeTempFile() {
  File file(std::tmpfile(), &std::fclose);
  if (!file) throw std::runtime_error("cannot make a temporary file");
  return file;
}

std::string ReadAll(std::FILE* file) {
  std::string text;
  std::array<char, 65536> piece;
  std::rewind(file);
  while (const std::size_t bytes = std::fread(piece.data(), 1, piece.size(), file)) {
    text.append(piece.data(), bytes);
  }
  return text;
}

// Null-terminated, as exec takes them. The texts must outlive the result.
std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Programs of this project may hold a sanitizer, which must be the first library; so they are
// named with a path, and get no library preloaded.
std::vector<std::string> Environment(const std::string& program) {
  std::vector<std::string> variables;
  for (char** variable = environ; *variable != nullptr; ++variable) variables.push_back(*variable);
  if (program.find('/') == std::string::npos) {
    variables.push_back(std::string("LD_PRELOAD=") + VELKORA_NO_WAITS);
  }
  return variables;
}

// Disk tools often live where an ordinary user's PATH does not look.
int Spawn(pid_t& child, const posix_spawn_file_actions_t& actions, const std::vector<char*>& argv) {
  std::vector<std::string> variables = Environment(argv[0]);
  const std::vector<char*> environment = Pointers(variables);
  int error = ENOENT;
  for (const std::string folder : {"", "/usr/sbin/", "/sbin/"}) {
    const std::string program = folder + argv[0];
    error =
        posix_spawnp(&child, program.c_str(), &actions, nullptr, argv.data(), environment.data());
    if (error != ENOENT) break;
  }
  return error;
}

int WaitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) throw std::runtime_error("cannot wait for a tool");
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

ToolResult RunTool(const std::vector<std::string>& argv, std::string_view input) {
  const File in = MakeTempFile();
  const File out = MakeTempFile();
  if (!input.empty() && std::fwrite(input.data(), 1, input.size(), in.get()) != input.size()) {
    throw std::runtime_error("cannot prepare a tool's input");
  }
  std::rewind(in.get());

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fileno(in.get()), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(out.get()), STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, fileno(out.get()), STDERR_FILENO);
  std::vector<std::string> words = argv;
  pid_t child = -1;
  const int error = Spawn(child, actions, Pointers(words));
  posix_spawn_file_actions_destroy(&actions);
  if (error != 0) return {127, "cannot start " + argv[0]};
  const int exit_status = WaitFor(child);
  return {exit_status, ReadAll(out.get())};
}

}  // namespace testing_support
