// Keeps passwords out of what the program prints.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tallow::load {

// The connection string, or a URL, with "***" in place of every password.
std::string withoutSecrets(std::string_view connection);

// Removes a connection string's passwords from texts of others, such as drivers.
class SecretMask {
 public:
  explicit SecretMask(std::string_view connection);

  std::string operator()(std::string text) const;

 private:
  std::vector<std::string> secrets_;  // the longest first
};

}  // namespace tallow::load
