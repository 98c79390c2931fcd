#include "tools/logs_path.h"

#include "frame/global_context.h"

namespace velkora {

std::string LogsPath(std::string_view name) {
  return GetGlobalContext().logs_folder + std::string(name);
}

std::string Quoted(std::string_view path) {
  return '"' + std::string(path) + '"';
}

}  // namespace velkora
