// The report of a failed request to the host.
#pragma once

#include <string_view>

#include "tallow/tallow.h"

namespace tallow::diag {

// Room for a failure text: the first member of every record that a handle points to.
using MessageArea = char[TALLOW_MESSAGE_AREA_SIZE];

// The message area of requests without a handle; shared by all of them.
MessageArea& moduleMessageArea() noexcept;

// Sets return code 34, copies the text into the area (the module-wide one if area is null), cut to
// 511 characters, and points the request block at it. The interface requires that the message
// length is that of the whole text, even if it was cut.
void reportFailure(TallowRequestBlock& request, MessageArea* area, std::string_view text) noexcept;

}  // namespace tallow::diag
