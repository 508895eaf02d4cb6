// Recognises data that is not text by its first bytes.
#pragma once

#include <string_view>

namespace tallow::load {

// "gzip", "UTF-16 text", ... Empty for what may be text in UTF-8.
std::string_view foreignFormat(std::string_view beginning) noexcept;

}  // namespace tallow::load
