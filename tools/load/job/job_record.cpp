#include "load/job/job_record.hpp"

#include <array>
#include <nlohmann/json.hpp>

#include "common/init_string.hpp"

namespace tallow::load {
namespace {

constexpr std::array<std::string_view, 3> kHeaderNames = {"none", "due", "read"};

std::optional<unsigned> hexDigit(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a') + 10;
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A') + 10;
  return std::nullopt;
}

std::string change(const std::string& what, const std::string& before, const std::string& now) {
  return "the " + what + " was \"" + before + "\" and is now \"" + now + "\"";
}

std::string spell(const std::optional<std::string>& nullText) {
  return nullText ? "\"" + *nullText + "\"" : "not given";
}

// Compares the options that decide how the data is cut, whether it is compared, and where the job's
// fallback file is. All others, such as what is logged, may differ from run to run.
std::string differenceOfInits(const std::string& recorded, const std::string& now) {
  const config::Options before = tools::explainInitString(recorded).effective;
  const config::Options after = tools::explainInitString(now).effective;
  if (before.blockSize != after.blockSize) {
    return change("Block_size", std::to_string(before.blockSize), std::to_string(after.blockSize));
  }
  if (before.signatureCheck != after.signatureCheck) {
    return change("Signature_check", std::to_string(before.signatureCheck),
                  std::to_string(after.signatureCheck));
  }
  if (before.fallbackDirectory != after.fallbackDirectory) {
    return change("Fallback_Directory", before.fallbackDirectory, after.fallbackDirectory);
  }
  if (before.fallbackFile != after.fallbackFile) {
    return change("Fallback_file", before.fallbackFile, after.fallbackFile);
  }
  return {};
}

}  // namespace

std::string toHex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

std::optional<std::string> fromHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  bytes.reserve(text.size() / 2);
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const std::optional<unsigned> high = hexDigit(text[i]);
    const std::optional<unsigned> low = hexDigit(text[i + 1]);
    if (!high || !low) return std::nullopt;
    bytes += static_cast<char>(*high << 4U | *low);
  }
  return bytes;
}

std::string joinColumns(const std::vector<std::string>& columns) {
  return nlohmann::json(columns).dump();
}

std::optional<std::vector<std::string>> splitColumns(const std::string& text) {
  const nlohmann::json list = nlohmann::json::parse(text, nullptr, false);
  if (!list.is_array()) return std::nullopt;
  std::vector<std::string> columns;
  for (const nlohmann::json& name : list) {
    if (!name.is_string()) return std::nullopt;
    columns.push_back(name.get<std::string>());
  }
  return columns;
}

std::string_view headerName(Header header) {
  return kHeaderNames[static_cast<std::size_t>(header)];
}

std::optional<Header> headerFromName(std::string_view name) {
  for (std::size_t i = 0; i < kHeaderNames.size(); ++i) {
    if (kHeaderNames[i] == name) return static_cast<Header>(i);
  }
  return std::nullopt;
}

std::string differenceOf(const JobSettings& recorded, const JobSettings& now) {
  if (recorded.pipe != now.pipe) return change("pipe", recorded.pipe, now.pipe);
  if (recorded.table != now.table) return change("table", recorded.table, now.table);
  if (recorded.delimiter != now.delimiter) {
    return change("delimiter", {recorded.delimiter}, {now.delimiter});
  }
  if (recorded.nullText != now.nullText) {
    return "--null was " + spell(recorded.nullText) + " and is now " + spell(now.nullText);
  }
  return differenceOfInits(recorded.init, now.init);
}

}  // namespace tallow::load
