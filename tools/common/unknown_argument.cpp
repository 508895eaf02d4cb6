#include "common/unknown_argument.hpp"

#include <algorithm>

#include "text/ascii.hpp"

namespace tallow::tools {
namespace {

// The number of edits that turn one word into the other, ignoring case.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      const std::size_t replaced =
          diagonal + (text::lower(a[i - 1]) == text::lower(b[j - 1]) ? 0 : 1);
      row[j] = std::min({above + 1, row[j - 1] + 1, replaced});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// An abbreviation is near too: "Block" means "Block_size".
bool begins(std::string_view word, std::string_view name) {
  return word.size() >= 3 && word.size() < name.size() &&
         text::equalIgnoringCase(word, name.substr(0, word.size()));
}

bool isOption(const std::string& argument) {
  return argument.size() > 1 && argument.front() == '-';
}

// The option before the word: "--in" if the word comes after that option's value.
std::string optionBefore(const std::vector<std::string>& arguments, const std::string& word) {
  const auto place = std::ranges::find(arguments, word);
  const auto option = std::find_if(std::reverse_iterator(place), arguments.rend(), isOption);
  return option == arguments.rend() ? std::string() : option->substr(0, option->find('='));
}

}  // namespace

std::string nearestName(std::string_view mistyped, const std::vector<std::string>& names) {
  std::size_t best = std::max<std::size_t>(1, mistyped.size() / 3) + 1;
  std::string nearest;
  for (const std::string& name : names) {
    const bool isShort = begins(mistyped, name);
    const auto [shorter, longer] = std::minmax({mistyped.size(), name.size()});
    if (!isShort && longer - shorter >= best) continue;  // it takes at least so many edits
    const std::size_t score = isShort ? 1 : distance(mistyped, name);
    if (score < best) {
      best = score;
      nearest = name;
    }
  }
  return nearest;
}

std::string unknownArgumentText(const std::vector<std::string>& arguments,
                                const std::string& unknown,
                                const std::vector<std::string>& optionNames) {
  if (isOption(unknown)) {
    const std::string name = unknown.substr(0, unknown.find('='));
    const std::string nearest = nearestName(name, optionNames);
    return "there is no option " + name +
           (nearest.empty() ? std::string() : " (did you mean " + nearest + "?)");
  }
  const std::string before = optionBefore(arguments, unknown);
  const std::string place =
      before.empty() ? "the command line begins with a word" : "after " + before + " stands a word";
  return place + " that belongs to no option; put quotes around a value that holds blanks";
}

}  // namespace tallow::tools
