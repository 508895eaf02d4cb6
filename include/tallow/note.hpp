// What a host records at a checkpoint, and the text of the file that keeps it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tallow {

// How far a job has come.
struct Note {
  std::uint64_t position = 0;  // the block that comes again at a restart; 0: load from the start
  // How far the host's own output was before that block, in the host's unit, such as bytes of a
  // file or rows of a table. If done is true, how far the whole output is.
  std::uint64_t progress = 0;
  bool done = false;  // the data has ended, and all of it is in the output
};

// The note as text: four lines of ASCII, less than 256 bytes.
inline std::string noteText(const Note& note) {
  return "tallow note 1\nposition " + std::to_string(note.position) + "\nprogress " +
         std::to_string(note.progress) + "\ndone " + (note.done ? "1" : "0") + "\n";
}

namespace detail {

// Takes "NAME NUMBER\n" from the beginning of `text`.
inline std::optional<std::uint64_t> takeNumber(std::string_view& text, std::string_view name) {
  if (text.substr(0, name.size()) != name) return std::nullopt;
  text.remove_prefix(name.size());
  const std::size_t digits = text.find('\n');
  if (digits == 0 || digits > 19) return std::nullopt;  // more than 19 need not fit
  std::uint64_t number = 0;
  for (const char digit : text.substr(0, digits)) {
    if (digit < '0' || digit > '9') return std::nullopt;
    number = number * 10 + static_cast<std::uint64_t>(digit - '0');
  }
  text.remove_prefix(digits + 1);
  return number;
}

}  // namespace detail

// Reads a text that noteText has made. Nothing if the text is not a note.
inline std::optional<Note> readNote(std::string_view text) {
  constexpr std::string_view kHead = "tallow note 1\n";
  if (text.substr(0, kHead.size()) != kHead) return std::nullopt;
  text.remove_prefix(kHead.size());
  const auto position = detail::takeNumber(text, "position ");
  const auto progress = detail::takeNumber(text, "progress ");
  const auto done = detail::takeNumber(text, "done ");
  if (!position || !progress || !done || *done > 1 || !text.empty()) return std::nullopt;
  return Note{*position, *progress, *done == 1};
}

}  // namespace tallow
