#include "common/pipe_names.hpp"

#include <string_view>

#include "common/tool_error.hpp"

namespace tallow::tools {

void requirePipeName(const std::string& name) {
  static constexpr std::string_view kPrefix = "\\\\.\\pipe\\";
  if (name.size() > kPrefix.size() && name.starts_with(kPrefix)) return;
  throw MisuseError("\"" + name + "\" is not a pipe; its name is written \\\\.\\pipe\\NAME");
}

}  // namespace tallow::tools
