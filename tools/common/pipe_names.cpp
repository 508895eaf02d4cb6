#include "common/pipe_names.hpp"

#include <string_view>

#include "common/tool_error.hpp"

namespace tallow::tools {

bool isPipeName(const std::string& name) {
  static constexpr std::string_view kPrefix = "\\\\.\\pipe\\";
  return name.size() > kPrefix.size() && name.starts_with(kPrefix);
}

void requirePipeName(const std::string& name) {
  if (isPipeName(name)) return;
  throw MisuseError("\"" + name + "\" is not a pipe; its name is written \\\\.\\pipe\\NAME");
}

}  // namespace tallow::tools
