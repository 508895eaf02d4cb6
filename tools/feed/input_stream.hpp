// What tallow-feed sends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "common/unique_handle.hpp"

namespace tallow::feed {

/// A file, or standard input for "-", read once from front to back. Failures are ToolErrors.
class InputStream {
 public:
  explicit InputStream(const std::string& path);

  /// Bytes in all; none when that cannot be known.
  std::optional<std::uint64_t> size() const;
  /// The bytes that are there, at least one; 0 at the end.
  std::size_t read(std::span<std::byte> buffer);

 private:
  HANDLE get() const noexcept { return file_ ? file_.get() : standard_; }

  std::string name_;
  tools::UniqueFileHandle file_;
  HANDLE standard_ = INVALID_HANDLE_VALUE;
};

}  // namespace tallow::feed
