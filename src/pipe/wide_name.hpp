// Conversion of a pipe name from UTF-8 for the wide system calls.
#pragma once

#include <optional>
#include <string>

namespace tallow::pipe {

// The UTF-16 form of a UTF-8 name. Empty if the name is plain ASCII and needs none. Nothing if the
// converter reports anything at all, even a warning. Ill-formed UTF-8 is replaced without an error.
std::optional<std::u16string> widenName(const std::string& name);

// Frees what the converter keeps between conversions. Called at the end.
void releaseConverter() noexcept;

}  // namespace tallow::pipe
