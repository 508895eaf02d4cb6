// What tallow-feed sends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "common/unique_handle.hpp"

namespace tallow::feed {

// A file, or standard input for "-", read once from front to back. Failures are ToolErrors.
class InputStream {
 public:
  explicit InputStream(const std::string& path);

  // The size in bytes. None if it cannot be known.
  std::optional<std::uint64_t> size() const;
  // Reads what is there, at least one byte, and returns the number of bytes. 0 at the end of the
  // data.
  std::size_t read(std::span<std::byte> buffer);

 private:
  HANDLE get() const noexcept { return file_ ? file_.get() : standard_; }

  std::string name_;
  tools::UniqueFileHandle file_;
  HANDLE standard_ = INVALID_HANDLE_VALUE;
};

}  // namespace tallow::feed
