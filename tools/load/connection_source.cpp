#include "load/connection_source.hpp"

#include <cstdint>

#include "common/output_file.hpp"
#include "common/surroundings.hpp"
#include "common/tool_error.hpp"

namespace tallow::load {
namespace {

using tools::MisuseError;

constexpr const wchar_t* kVariable = L"TALLOW_TO";
constexpr std::uint64_t kLongestFile = std::uint64_t{64} * 1024;

std::string contentOf(const std::string& file) {
  try {
    return tools::readTextFile(file, kLongestFile);
  } catch (const tools::ToolError& error) {
    throw MisuseError(std::string("--to-file: ") + error.what());
  }
}

// The only line of the text, without what an editor adds around it.
std::string onlyLine(std::string text, const std::string& file) {
  if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  if (text.empty() || text.find_first_of(std::string("\r\n\0", 3)) != std::string::npos) {
    throw MisuseError("--to-file: " + file +
                      " must hold the connection string as its only line, in UTF-8");
  }
  return text;
}

}  // namespace

std::string connectionFrom(const std::string& given, const std::string& file) {
  if (!given.empty() && !file.empty()) {
    throw MisuseError("--to and --to-file both name the database; give one of them");
  }
  if (!given.empty()) return given;
  if (!file.empty()) return onlyLine(contentOf(file), file);
  std::string value = tools::environmentValue(kVariable);
  if (!value.empty()) return value;
  throw MisuseError(
      "no database is named; put its connection string into a file (--to-file FILE) or into the "
      "environment variable TALLOW_TO, or give it with --to");
}

}  // namespace tallow::load
