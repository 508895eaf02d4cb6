#include "load/job/reject_limit.hpp"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace tallow::load {
namespace {

constexpr std::uint64_t kMostRows = 1'000'000'000;
constexpr std::uint64_t kMillion = 1'000'000;
constexpr std::uint64_t kPerMillionOfPercent = 10'000;
constexpr std::uint64_t kAlwaysAllowed = 10;  // on the way, with a share

// The digits as a number. None if there are none, or other characters.
std::optional<std::uint64_t> number(std::string_view digits) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return value;
}

// "0.5" as 5,000. None if it is no percentage from 0.0001 to 100.
std::optional<std::uint64_t> perMillionOf(std::string_view percent) {
  const std::size_t point = std::min(percent.find('.'), percent.size());
  std::string fraction(percent.substr(std::min(point + 1, percent.size())));
  const bool isWhole = point == percent.size();
  if (fraction.size() > 4 || (fraction.empty() && !isWhole)) return std::nullopt;
  fraction.resize(4, '0');
  const std::optional<std::uint64_t> whole = number(percent.substr(0, point));
  const std::optional<std::uint64_t> part = number(fraction);
  if (!whole || !part || *whole > 100) return std::nullopt;
  const std::uint64_t perMillion = *whole * kPerMillionOfPercent + *part;
  if (perMillion == 0 || perMillion > kMillion) return std::nullopt;
  return perMillion;
}

}  // namespace

std::optional<RejectLimit> RejectLimit::parse(std::string_view text) {
  RejectLimit limit;
  limit.text_ = text;
  const bool isShare = text.ends_with('%');
  if (isShare) text.remove_suffix(1);
  const std::optional<std::uint64_t> value = isShare ? perMillionOf(text) : number(text);
  if (!value || (!isShare && *value > kMostRows)) return std::nullopt;
  (isShare ? limit.perMillion_ : limit.rows_) = *value;
  return limit;
}

bool RejectLimit::allows(std::uint64_t rejects, std::uint64_t rows) const noexcept {
  return allowsAtEnd(rejects, rows) || (perMillion_ > 0 && rejects <= kAlwaysAllowed);
}

bool RejectLimit::allowsAtEnd(std::uint64_t rejects, std::uint64_t rows) const noexcept {
  if (perMillion_ == 0) return rejects <= rows_;
  // In two parts, so that no product is too large.
  return rejects <= rows / kMillion * perMillion_ + rows % kMillion * perMillion_ / kMillion;
}

}  // namespace tallow::load
