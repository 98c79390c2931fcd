// All that happens in a conversion, in order, as JSON objects of one line each.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>

#include "simulator/simulated_machine.h"

namespace velkora_image {

// Without a file it drops everything.
class EventFile {
 public:
  // Replaces the file. Throws InputError if it cannot be opened.
  explicit EventFile(const std::optional<std::filesystem::path>& file);

  void Callback(std::int32_t kind, std::int32_t value);
  void Log(int level, std::string_view text);
  void Script(std::string_view text);
  void Shell(simulator::ShellRoute route, std::string_view line);
  void Result(std::int32_t value);

  // False when a line could not be written.
  bool good() const { return out_.good(); }

 private:
  template <typename Json>
  void Write(const Json& object);

  bool wanted_;
  std::ofstream out_;
};

}  // namespace velkora_image
