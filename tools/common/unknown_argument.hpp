// What to say about an argument that a program does not know.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tallow::tools {

/// The name nearest to a mistyped one, letter case aside; empty when none is near.
std::string nearestName(std::string_view mistyped, const std::vector<std::string>& names);

/// One line about the first argument that was not understood. A word that is no option is not
/// shown, but its place is: it may be a piece of a secret that stands without quotes.
std::string unknownArgumentText(const std::vector<std::string>& arguments,
                                const std::string& unknown,
                                const std::vector<std::string>& optionNames);

}  // namespace tallow::tools
