#include "load/block_stream.hpp"

#include <windows.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "common/init_string.hpp"
#include "common/text.hpp"

namespace tallow::load {
namespace {

constexpr const char* kKeepFallbackFile = "PRESERVE_RESTART_INFO";

std::filesystem::path modulePathOrDefault(const std::string& path) {
  return path.empty() ? client::Module::besideProgram()
                      : std::filesystem::path(tools::toWide(path));
}

// FNV-1a. Distinguishes jobs whose names differ only in characters that a file name cannot have.
std::uint32_t hashOf(const std::string& text) {
  std::uint32_t hash = 2166136261U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return hash;
}

std::string environment(const wchar_t* name) {
  std::wstring value(32768, L'\0');
  value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
  return tools::toUtf8(value);
}

std::string defaultFolder() {
  std::string folder = environment(L"TEMP");
  if (!folder.empty()) return folder;
  folder = environment(L"WINDIR");
  return folder.empty() ? "c:\\" : folder + "\\temp";
}

}  // namespace

BlockStream::BlockStream(const std::string& modulePath, const std::string& initString,
                         const std::string& pipe)
    : module_(modulePathOrDefault(modulePath)) {
  handle_ = module_.init(tools::toAnsi(initString), "tallow-load");
  module_.setAttribute(handle_, "CHARSET_NAME", "UTF8");
  module_.setAttribute(handle_, kKeepFallbackFile, "YES");
  instance_.emplace(module_.open(handle_, pipe));
  for (std::vector<std::byte>& buffer : buffers_) buffer.resize(instance_->blockSize());
}

std::optional<std::string_view> BlockStream::read() {
  std::swap(buffers_[0], buffers_[1]);
  std::vector<std::byte>& buffer = buffers_[0];
  const client::ReadResult result = instance_->read(buffer);
  if (result.atEnd()) return std::nullopt;
  return std::string_view(reinterpret_cast<const char*>(buffer.data()), result.length);
}

void BlockStream::finish() {
  module_.setAttribute(handle_, kKeepFallbackFile, "NO");
  instance_->closeR();
  module_.shut();
}

std::string fallbackPath(const std::string& initString) {
  const config::Options options = tools::explainInitString(initString).effective;
  const std::string folder =
      options.fallbackDirectory.empty() ? defaultFolder() : options.fallbackDirectory;
  return folder + "\\" + options.fallbackFile;
}

bool namesFallbackFile(const std::string& initString) {
  return !tools::explainInitString(initString).effective.fallbackFile.empty();
}

std::string withFallbackFile(const std::string& initString, const std::string& job,
                             const std::string& pipe) {
  if (namesFallbackFile(initString)) return initString;
  std::string name = "tallow-load-";
  for (const char c : job.substr(0, 64)) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == '-' || c == '_';
    name += plain ? c : '_';
  }
  std::array<char, 16> hash{};
  std::snprintf(hash.data(), hash.size(), "-%08x", hashOf(job + "\n" + pipe));
  return "Fallback_file=" + name + hash.data() + ".fbf " + initString;
}

bool fileIsThere(const std::string& path) {
  return GetFileAttributesW(tools::toWide(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace tallow::load
