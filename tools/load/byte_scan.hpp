// Finds in one pass which kinds of bytes a row has.
#pragma once

#include <cstddef>
#include <string_view>

namespace tallow::load {

struct ByteKinds {
  bool nonAscii = false;
  bool nul = false;
};

// The index of the first LF or CR, or the text's size if there is none. Adds the kinds of the bytes
// before it to `kinds`.
std::size_t scanLine(std::string_view text, ByteKinds& kinds) noexcept;

}  // namespace tallow::load
