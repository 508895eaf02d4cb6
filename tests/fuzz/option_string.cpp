// The initialisation string, compared with a second tokeniser that is written only to be plain.
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "config/option_setting.hpp"
#include "config/option_tokens.hpp"
#include "fuzz_target.hpp"

namespace {

using namespace tallow;
using fuzz::require;

struct Option {
  std::string keyword;
  std::string value;
  bool operator==(const Option&) const = default;
};

struct Parse {
  std::vector<Option> options;
  bool quoteMissing = false;
  bool operator==(const Parse&) const = default;
};

void trim(std::string& rest, const char* characters) {
  rest.erase(0, std::min(rest.find_first_not_of(characters), rest.size()));
}

Parse plainParse(std::string rest) {
  Parse parse;
  for (;;) {
    trim(rest, " \t\n");
    Option option;
    option.keyword = rest.substr(0, rest.find_first_of("= \t\n"));
    if (option.keyword.empty()) return parse;
    rest = rest.substr(option.keyword.size());
    trim(rest, "= \t\n");
    std::size_t consumed = 0;
    if (rest.starts_with("''") || rest.starts_with("\"\"")) {
      consumed = 2;
    } else if (rest.starts_with('\'') || rest.starts_with('"')) {
      const char quote = rest.front();
      rest = rest.substr(1);
      option.value = rest.substr(0, rest.find(quote));
      consumed = option.value.size() + 1;
    } else {
      option.value = rest.substr(0, rest.find_first_of(" \t\n"));
      consumed = option.value.size();
    }
    if (consumed > rest.size()) {
      parse.quoteMissing = true;
      return parse;
    }
    rest = rest.substr(consumed);
    parse.options.push_back(option);
  }
}

Parse moduleParse(const std::string& text) {
  Parse parse;
  try {
    for (config::OptionTokens tokens(text); tokens.next();) {
      parse.options.push_back({std::string(tokens.keyword()), std::string(tokens.value())});
    }
  } catch (const std::out_of_range& error) {
    require(std::string_view(error.what()) == "invalid string position", "the error's text");
    parse.quoteMissing = true;
  }
  return parse;
}

void checkSetting(const Option& option) {
  const config::OptionSetting setting = config::readOption(option.keyword, option.value);
  if (setting.verdict != config::OptionVerdict::kGood) return;
  switch (setting.id) {
    case config::OptionId::kBlockSize:
      require(setting.number >= 1 && setting.number <= 16777216, "block size in range");
      break;
    case config::OptionId::kPipeWait:
      require(setting.number <= 600, "pipe wait in range");
      break;
    case config::OptionId::kSignatureCheck:
      require(setting.number <= 2, "signature check in range");
      break;
    case config::OptionId::kLogLevel:
      require(setting.number <= 6, "log level in range");
      break;
    case config::OptionId::kConfirmFallbackDeletion:
      require(setting.number == 0, "confirmation stays off");
      break;
    default:
      break;
  }
}

}  // namespace

TALLOW_FUZZ_TARGET(option_string) {
  std::string text(reinterpret_cast<const char*>(data), size);
  text.resize(std::min(text.find('\0'), text.size()));  // the parser works up to the first NUL
  const Parse parse = moduleParse(text);
  require(parse == plainParse(text), "both tokenisers agree");
  for (const Option& option : parse.options) checkSetting(option);
  return 0;
}
