// A fallback file as one line of text.
#pragma once

#include <optional>
#include <string>

#include "inspect/verification.hpp"

namespace tallow::inspect {

enum class Colour { kNo, kYes };

// "[head][sync: 120, 140][N===O====~~~+]": N and O are the records of the newer and the older sync
// point, = other records, + an incomplete record. Proved by the data: ~ left over from before,
// ! damaged, ? no block of the data. In a long file, one letter stands for several records.
std::string drawLine(const FileImage& file, const std::optional<Verification>& verification,
                     Colour colour);

}  // namespace tallow::inspect
