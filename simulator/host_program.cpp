#include "simulator/host_program.h"

#ifndef _WIN32

#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#endif

namespace simulator {

#ifdef _WIN32

std::optional<HostProgramResult> RunHostProgram(std::vector<std::string>) {
  return std::nullopt;
}

#else

namespace {

// Standard input from nowhere, both outputs into one stream.
class Redirections {
 public:
  explicit Redirections(std::FILE* output) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions_, fileno(output), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, fileno(output), STDERR_FILENO);
  }
  ~Redirections() { posix_spawn_file_actions_destroy(&actions_); }
  Redirections(const Redirections&) = delete;
  Redirections& operator=(const Redirections&) = delete;

  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

// The caller's environment, but for the language.
std::vector<char*> Environment(std::string& language) {
  std::vector<char*> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (!std::string_view(*entry).starts_with("LC_ALL=")) environment.push_back(*entry);
  }
  environment.push_back(language.data());
  environment.push_back(nullptr);
  return environment;
}

// Disk tools often live where an ordinary user's PATH does not look.
bool Spawn(pid_t& child, const Redirections& redirections, std::vector<std::string>& argv) {
  std::vector<char*> arguments;
  arguments.reserve(argv.size() + 1);
  for (std::string& word : argv) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  std::string language = "LC_ALL=C";
  const std::vector<char*> environment = Environment(language);
  for (const char* folder : {"", "/usr/sbin/", "/sbin/"}) {
    const std::string program = folder + argv.front();
    const int error = posix_spawnp(&child, program.c_str(), redirections.get(), nullptr,
                                   arguments.data(), environment.data());
    if (error != ENOENT) return error == 0;
  }
  return false;
}

int WaitFor(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string ReadAll(std::FILE* file) {
  std::string text;
  std::array<char, 4096> piece;
  std::rewind(file);
  while (const std::size_t length = std::fread(piece.data(), 1, piece.size(), file)) {
    text.append(piece.data(), length);
  }
  return text;
}

}  // namespace

std::optional<HostProgramResult> RunHostProgram(std::vector<std::string> argv) {
  std::FILE* output = std::tmpfile();
  if (output == nullptr) return std::nullopt;
  std::optional<HostProgramResult> result;
  pid_t child = 0;
  if (Spawn(child, Redirections(output), argv)) {
    const int exit_status = WaitFor(child);
    result = HostProgramResult{exit_status, ReadAll(output)};
  }
  std::fclose(output);
  return result;
}

#endif

}  // namespace simulator
