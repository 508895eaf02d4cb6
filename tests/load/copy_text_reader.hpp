// Reads back what COPY's text format says, as its documentation has it: for tests of its writer.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tallow::load {

using CopiedRow = std::vector<std::optional<std::string>>;

// Throws std::runtime_error for what is no whole number of rows.
inline std::vector<CopiedRow> readCopyText(std::string_view text) {
  std::vector<CopiedRow> rows;
  CopiedRow row;
  std::string value;
  bool isNull = false;
  const auto endValue = [&] {
    row.push_back(isNull ? std::nullopt : std::optional(value));
    value.clear();
    isNull = false;
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (isNull && c != '\t' && c != '\n') throw std::runtime_error("\\N stands beside a value");
    if (c == '\t') {
      endValue();
    } else if (c == '\n') {
      endValue();
      rows.push_back(std::move(row));
      row.clear();
    } else if (c == '\r' || c == '\0') {
      throw std::runtime_error("a byte stands bare that must not");
    } else if (c != '\\') {
      value += c;
    } else {
      if (++i == text.size()) throw std::runtime_error("a backslash ends the text");
      switch (text[i]) {
        case 'N':
          if (!value.empty()) throw std::runtime_error("\\N stands inside a value");
          isNull = true;
          break;
        case 't':
          value += '\t';
          break;
        case 'n':
          value += '\n';
          break;
        case 'r':
          value += '\r';
          break;
        case '\\':
          value += '\\';
          break;
        default:
          throw std::runtime_error("an unknown escape");
      }
    }
  }
  if (!row.empty() || !value.empty() || isNull) throw std::runtime_error("the last row is open");
  return rows;
}

}  // namespace tallow::load
