// What to say about an argument that a program does not know.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tallow::tools {

// The name that is nearest to a mistyped one, ignoring case. Empty if none is near.
std::string nearestName(std::string_view mistyped, const std::vector<std::string>& names);

// One line about the first argument that is unknown. If it is not an option, the line says where it
// is but does not show it: it may be a piece of a secret that was given without quotes.
std::string unknownArgumentText(const std::vector<std::string>& arguments,
                                const std::string& unknown,
                                const std::vector<std::string>& optionNames);

}  // namespace tallow::tools
