// The MD5 of the data delivered so far.
#pragma once

#include <cstdint>

#include "fallback/md5.hpp"

namespace tallow::delivery {

// Remembers the last block that it covers, so that a block that is sent again is never added twice.
struct RunningDigest {
  fallback::Md5Context md5;
  std::uint64_t coveredBlockNo = 0;

  RunningDigest() { fallback::md5Init(md5); }
};

}  // namespace tallow::delivery
