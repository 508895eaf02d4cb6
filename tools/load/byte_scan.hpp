// What a row's bytes are made of, found in one pass.
#pragma once

#include <cstddef>
#include <string_view>

namespace tallow::load {

struct ByteKinds {
  bool nonAscii = false;
  bool nul = false;
};

/// Index of the first LF or CR; the text's size when there is none. What comes before it is added
/// to `kinds`.
std::size_t scanLine(std::string_view text, ByteKinds& kinds) noexcept;

}  // namespace tallow::load
