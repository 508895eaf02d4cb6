#include "common/formatting.hpp"

#include <array>
#include <cmath>
#include <cstdio>

namespace tallow::tools {

std::string formatBytes(std::uint64_t bytes) {
  static constexpr std::array kUnits = {"KB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  while (value >= 999.95 && unit + 1 < kUnits.size()) {
    value /= 1000;
    ++unit;
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f %s", value, kUnits[unit]);
  return text.data();
}

std::string formatRate(std::uint64_t bytes, double seconds) {
  if (seconds <= 0) return "-";
  return formatBytes(static_cast<std::uint64_t>(static_cast<double>(bytes) / seconds)) + "/s";
}

std::string formatDuration(double seconds) {
  const auto whole = seconds > 0 ? std::llround(seconds) : 0LL;
  std::array<char, 40> text{};
  if (whole < 3600) {
    std::snprintf(text.data(), text.size(), "%lld:%02llu", whole / 60, whole % 60);
  } else {
    std::snprintf(text.data(), text.size(), "%lld:%02llu:%02llu", whole / 3600, whole / 60 % 60,
                  whole % 60);
  }
  return text.data();
}

std::string formatCount(std::uint64_t count, const std::string& noun) {
  std::string digits = std::to_string(count);
  for (std::size_t place = digits.size(); place > 3; place -= 3) digits.insert(place - 3, 1, ',');
  digits.append(" ").append(noun);
  if (count != 1) digits.append("s");
  return digits;
}

}  // namespace tallow::tools
