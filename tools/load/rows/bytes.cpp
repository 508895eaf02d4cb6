#include "load/rows/bytes.hpp"

#include <emmintrin.h>

#include <bit>

namespace tallow::load {
namespace {

// Sixteen bytes at once, as bit masks. Three separate searches by the C library would cost as much
// as the parser.
struct Piece {
  explicit Piece(const char* bytes) noexcept {
    const __m128i piece = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    const auto equal = [&](char c) {
      return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(piece, _mm_set1_epi8(c))));
    };
    breaks = equal('\n') | equal('\r');
    nul = equal('\0');
    nonAscii = static_cast<unsigned>(_mm_movemask_epi8(piece));
  }

  unsigned breaks;
  unsigned nul;
  unsigned nonAscii;
};

constexpr std::size_t kPiece = 16;

}  // namespace

std::size_t scanLine(std::string_view text, ByteKinds& kinds) noexcept {
  std::size_t at = 0;
  for (; at + kPiece <= text.size(); at += kPiece) {
    const Piece piece(text.data() + at);
    const bool ends = piece.breaks != 0;
    const auto length = static_cast<unsigned>(std::countr_zero(piece.breaks));
    const unsigned before = ends ? (1U << length) - 1 : 0xFFFFU;
    kinds.nonAscii |= (piece.nonAscii & before) != 0;
    kinds.nul |= (piece.nul & before) != 0;
    if (ends) return at + length;
  }
  for (; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '\n' || c == '\r') break;
    kinds.nonAscii |= static_cast<unsigned char>(c) >= 0x80;
    kinds.nul |= c == '\0';
  }
  return at;
}

}  // namespace tallow::load
