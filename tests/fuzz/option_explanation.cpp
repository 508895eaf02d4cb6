// tallow-host can explain any initialisation string, and explains it as the module reads it.
#include <algorithm>
#include <stdexcept>
#include <string>

#include "common/init_string.hpp"
#include "config/option_setting.hpp"
#include "config/option_tokens.hpp"
#include "fuzz_target.hpp"

TALLOW_FUZZ_TARGET(option_explanation) {
  using namespace tallow;
  using fuzz::require;
  std::string text(reinterpret_cast<const char*>(data), size);
  text.resize(std::min(text.find('\0'), text.size()));
  std::size_t options = 0;
  bool good = true;
  bool quoteMissing = false;
  try {
    for (config::OptionTokens tokens(text); tokens.next(); ++options) {
      good = good && config::readOption(tokens.keyword(), tokens.value()).verdict ==
                         config::OptionVerdict::kGood;
    }
  } catch (const std::out_of_range&) {
    quoteMissing = true;
  }
  const tools::InitStringReport report = tools::explainInitString(text);
  require(report.options.size() == options, "every option is explained");
  require(report.endsTheParse == quoteMissing, "the explanation ends as the parse does");
  require(report.accepted() == (good && !quoteMissing), "it accepts what the module accepts");
  require(report.accepted() || !report.firstComplaint().empty(), "a refusal has a reason");
  return 0;
}
