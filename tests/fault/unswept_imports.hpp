// The imports of the module that the fault sweep leaves alone, and why.
#pragma once

#include <string>
#include <vector>

namespace tallow::test {

struct Unswept {
  const char* reason;
  std::vector<std::string> functions;
};

const std::vector<Unswept>& unsweptImports();

}  // namespace tallow::test
