// Data that is no text at all, named by how it begins.
#pragma once

#include <string_view>

namespace tallow::load {

/// "gzip", "UTF-16 text", ...; empty for what may be text in UTF-8.
std::string_view foreignFormat(std::string_view beginning) noexcept;

}  // namespace tallow::load
