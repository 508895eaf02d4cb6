#include "load/target/copy_text.hpp"

#include <emmintrin.h>

#include <bit>

#include "load/rows/bytes.hpp"

namespace tallow::load {
namespace {

constexpr std::size_t kPiece = 16;

// What follows the backslash in place of the byte. '\0' if the byte stands for itself.
constexpr char escaped(char c) noexcept {
  switch (c) {
    case '\\':
      return '\\';
    case '\t':
      return 't';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    default:
      return '\0';
  }
}

// Which of the 16 bytes need a backslash, as bits.
unsigned specials(const char* bytes) noexcept {
  const __m128i piece = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
  const auto equal = [&](char c) { return _mm_cmpeq_epi8(piece, _mm_set1_epi8(c)); };
  const __m128i found =
      _mm_or_si128(_mm_or_si128(equal('\\'), equal('\t')), _mm_or_si128(equal('\n'), equal('\r')));
  return static_cast<unsigned>(_mm_movemask_epi8(found));
}

// The index of the first byte that needs a backslash, or `length`. Reads up to 15 bytes more.
std::size_t findSpecial(const char* text, std::size_t length) noexcept {
  for (std::size_t at = 0; at < length; at += kPiece) {
    if (const unsigned found = specials(text + at)) {
      const std::size_t index = at + static_cast<std::size_t>(std::countr_zero(found));
      return index < length ? index : length;
    }
  }
  return length;
}

}  // namespace

void CopyText::add(const Row& row) {
  for (const Field& field : row.fields) {
    // Two bytes for each of the value, the separator, and what findSpecial reads more.
    makeRoom(2 * field.text.size() + kPiece + 2);
    if (field.isNull || (nullText_ && field.text == *nullText_)) {
      buffer_[used_++] = '\\';
      buffer_[used_++] = 'N';
    } else {
      addValue(field.text);
    }
    buffer_[used_++] = '\t';
  }
  buffer_[used_ - 1] = '\n';
}

// Copies the value first and looks for special bytes in the copy, after which there is room.
void CopyText::addValue(std::string_view value) {
  char* target = buffer_.data() + used_;
  copyShort(target, value.data(), value.size());
  std::size_t at = findSpecial(target, value.size());
  target += at;
  while (at < value.size()) {
    const char c = value[at++];
    const char code = escaped(c);
    if (code != '\0') *target++ = '\\';
    *target++ = code != '\0' ? code : c;
  }
  used_ = static_cast<std::size_t>(target - buffer_.data());
}

void CopyText::makeRoom(std::size_t bytes) {
  if (buffer_.size() - used_ < bytes) buffer_.resize(2 * (used_ + bytes));
}

}  // namespace tallow::load
