#include "apps/velkora_image/events.h"

#include <cerrno>
#include <nlohmann/json.hpp>
#include <string>

#include "apps/velkora_image/input_error.h"

namespace velkora_image {
namespace {

using Json = nlohmann::ordered_json;

std::string Text(std::string_view text) {
  return std::string(text);
}

}  // namespace

EventFile::EventFile(const std::optional<std::filesystem::path>& file) : wanted_(file.has_value()) {
  if (!wanted_) return;
  out_.open(*file, std::ios::binary | std::ios::trunc);
  if (!out_) {
    throw InputError("--events: " + file->string() + ": " + std::generic_category().message(errno));
  }
}

template <typename AnyJson>
void EventFile::Write(const AnyJson& object) {
  if (!wanted_) return;
  // Names from a disk may hold anything; what is not UTF-8 is replaced.
  out_ << object.dump(-1, ' ', false, AnyJson::error_handler_t::replace) << "\n" << std::flush;
}

void EventFile::Callback(std::int32_t kind, std::int32_t value) {
  Write(Json{{"event", "callback"}, {"kind", kind}, {"value", value}});
}

void EventFile::Log(int level, std::string_view text) {
  Write(Json{{"event", "log"}, {"level", level}, {"text", Text(text)}});
}

void EventFile::Script(std::string_view text) {
  Write(Json{{"event", "script"}, {"text", Text(text)}});
}

void EventFile::Shell(simulator::ShellRoute route, std::string_view line) {
  const char* const name = route == simulator::ShellRoute::kSystem ? "system" : "elevated";
  Write(Json{{"event", "shell"}, {"route", name}, {"line", Text(line)}});
}

void EventFile::Result(std::int32_t value) {
  Write(Json{{"event", "result"}, {"value", value}});
}

}  // namespace velkora_image
