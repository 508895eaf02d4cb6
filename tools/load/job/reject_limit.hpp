// How many bad rows a load puts up with.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tallow::load {

// A number of rows, or a share of all rows. Whether the load stops at a row follows from the data
// alone, so it is the same whatever happens in between: the counts are those of the whole job.
class RejectLimit {
 public:
  // None.
  RejectLimit() = default;
  // "100", or a share such as "1%" with at most four digits after the point. None if the text is
  // neither.
  static std::optional<RejectLimit> parse(std::string_view text);

  bool isNone() const noexcept { return rows_ == 0 && perMillion_ == 0; }
  // Whether the load goes on with this many rejects among this many rows. With a share, ten are
  // always put up with on the way, so that the first rows do not decide.
  bool allows(std::uint64_t rejects, std::uint64_t rows) const noexcept;
  // Whether a load may end so.
  bool allowsAtEnd(std::uint64_t rejects, std::uint64_t rows) const noexcept;
  // As it was given.
  const std::string& text() const noexcept { return text_; }

 private:
  std::uint64_t rows_ = 0;
  std::uint64_t perMillion_ = 0;  // 0: the limit is a number
  std::string text_ = "0";
};

}  // namespace tallow::load
