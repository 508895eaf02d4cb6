// A fallback file as one line of text.
#pragma once

#include <optional>
#include <string>

#include "inspect/verification.hpp"

namespace tallow::inspect {

enum class Colour { kNo, kYes };

/// "[head][sync: 120, 140][N===O====~~~+]": N and O are the records of the newer and the older sync
/// point, = other records; proved by the data: ~ left over from before, ! damaged, ? no block of
/// the data; + a record cut short. A long file has several records to a letter.
std::string drawLine(const FallbackFile& file, const std::optional<Verification>& verification,
                     Colour colour);

}  // namespace tallow::inspect
