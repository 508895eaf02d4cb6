// COPY's text format: what is written reads back as the same rows, one in each line.
#include "load/target/copy_text.hpp"

#include <algorithm>
#include <deque>

#include "../load/copy_text_reader.hpp"
#include "fuzz_target.hpp"

TALLOW_FUZZ_TARGET(copy_text) {
  using namespace tallow::load;
  tallow::fuzz::Input input(data, size);
  std::optional<std::string> nullText;
  if (input.byte() % 2 == 0) nullText = std::string(input.text(input.byte() % 4));
  CopyText text(nullText);
  std::vector<CopiedRow> rows;
  while (!input.empty()) {
    CopiedRow& wanted = rows.emplace_back();
    Row row;
    std::deque<std::string> values;
    for (int fields = 1 + input.byte() % 4; fields > 0; --fields) {
      const int kind = input.byte();
      std::string& value = values.emplace_back(input.text(static_cast<std::size_t>(kind) / 4));
      std::ranges::replace(value, '\0', '0');
      const bool isNull = kind % 4 == 0;
      row.fields.push_back({value, isNull});
      wanted.push_back(isNull || value == nullText ? std::nullopt : std::optional(value));
    }
    text.add(row);
  }
  const std::string_view written = text.text();
  const auto lines = static_cast<std::size_t>(std::ranges::count(written, '\n'));
  tallow::fuzz::require(lines == rows.size(), "each row is one line");
  tallow::fuzz::require(readCopyText(written) == rows, "the rows read back as they were");
  return 0;
}
