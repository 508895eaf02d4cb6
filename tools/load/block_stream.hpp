// The job's data, block by block, as the module delivers it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/module.hpp"

namespace tallow::load {

// One pipe that the module has opened. The fallback file is kept, whatever was read, unless
// finish() was called.
class BlockStream {
 public:
  // `initString` and `pipe` are UTF-8. Throws client::RequestFailed.
  BlockStream(const std::string& modulePath, const std::string& initString,
              const std::string& pipe);

  // The next block, valid until the next call but one. None at the end of the data.
  std::optional<std::string_view> read();
  std::uint64_t getPos() { return instance_->getPos(); }
  void setPos(std::uint64_t position) { instance_->setPos(position); }
  // Ends a job that is done: closes the pipe, and the module deletes the fallback file.
  void finish();

 private:
  client::Module module_;
  void* handle_ = nullptr;
  std::optional<client::Instance> instance_;
  std::array<std::vector<std::byte>, 2> buffers_;  // used in turn
};

// Where the module keeps the job's fallback file, in UTF-8. The module must accept the
// initialisation string, and the string must name the file.
std::string fallbackPath(const std::string& initString);

// Whether the string itself names the file. Such a file may be another job's by now.
bool namesFallbackFile(const std::string& initString);

// The initialisation string with a Fallback_file for this job, unless it names one already. The
// module finds a file that it named itself again only if its working directory is the file's
// folder.
std::string withFallbackFile(const std::string& initString, const std::string& job,
                             const std::string& pipe);

bool fileIsThere(const std::string& path);

}  // namespace tallow::load
