#include "load/rows/data_format.hpp"

#include <algorithm>
#include <array>
#include <cstddef>

namespace tallow::load {
namespace {

using namespace std::string_view_literals;

struct Format {
  std::string_view mark;
  std::string_view name;
};

constexpr std::array kFormats = {Format{"\x1F\x8B"sv, "gzip"},
                                 Format{"\x28\xB5\x2F\xFD"sv, "zstd"},
                                 Format{"\xFD"
                                        "7zXZ\0"sv,
                                        "xz"},
                                 Format{"PK\x03\x04"sv, "a zip file"},
                                 Format{"\xFF\xFE"sv, "UTF-16 text"},
                                 Format{"\xFE\xFF"sv, "UTF-16 text"}};

// Whether the text looks like ASCII in UTF-16 without a byte order mark: every other byte is NUL,
// and no other is.
bool alternates(std::string_view text, std::size_t nulAt) {
  constexpr std::size_t kLooked = 16;
  if (text.size() < 4) return false;
  for (std::size_t i = 0; i < std::min(text.size(), kLooked); ++i) {
    if ((text[i] == '\0') != (i % 2 == nulAt)) return false;
  }
  return true;
}

}  // namespace

std::string_view foreignFormat(std::string_view beginning) noexcept {
  for (const Format& format : kFormats) {
    if (beginning.starts_with(format.mark)) return format.name;
  }
  return alternates(beginning, 0) || alternates(beginning, 1) ? "UTF-16 text"sv : ""sv;
}

}  // namespace tallow::load
