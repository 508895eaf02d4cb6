#include "load/job/load_parts.hpp"

#include <windows.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <utility>

#include "common/fallback_look.hpp"
#include "common/init_string.hpp"
#include "common/text.hpp"

namespace tallow::load {
namespace {

constexpr const char* kGone = "is gone";

// FNV-1a. Distinguishes jobs whose names differ only in characters that a file name cannot have.
std::uint32_t hashOf(const std::string& text) {
  std::uint32_t hash = 2166136261U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return hash;
}

}  // namespace

LoadParts::LoadParts(const LoadOptions& loadOptions, DatabaseFactory makeConnection,
                     LoadEvents loadEvents, WriterWatch& writerWatch)
    : options(loadOptions),
      events(std::move(loadEvents)),
      writer(writerWatch),
      initString(withFallbackFile(options.settings.init, options.job, options.settings.pipe)),
      fallbackPath(fallbackPathOf(initString)),
      store(std::move(makeConnection), options.job),
      session(store, options.job, options.settings),
      patience(std::chrono::seconds(options.retrySeconds)) {}

std::string LoadParts::fallbackFault(std::uint64_t position) const {
  const config::Options module = tools::explainInitString(initString).effective;
  const tools::FallbackOwner owner{options.settings.pipe,
                                   static_cast<std::uint32_t>(module.blockSize)};
  // A file that was just created has no checkpoint yet.
  const std::string fault = tools::lookAtFallbackFile(
      fallbackPath, owner, position > 0 ? std::optional(position) : std::nullopt);
  return fault == tools::kFallbackFileAbsent ? kGone : fault;
}

bool LoadParts::isFallbackFileGone() const {
  return fallbackFault(0) == kGone;
}

void LoadParts::dropFallbackFile() const {
  DeleteFileW(tools::toWide(fallbackPath).c_str());
}

std::string fallbackPathOf(const std::string& initString) {
  return tools::fallbackPath(tools::explainInitString(initString).effective);
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

}  // namespace tallow::load
