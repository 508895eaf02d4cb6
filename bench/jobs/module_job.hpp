// The same job through the module.
#pragma once

#include <functional>
#include <string>

#include "common/module.hpp"
#include "jobs/feed.hpp"
#include "jobs/measure.hpp"
#include "jobs/shape.hpp"

namespace tallow::bench {

// The initialisation string of a job: log and fallback file in the scratch folder.
std::string initString(const Shape& shape, const std::string& scratch);

// One module, loaded for all jobs of the process.
class JobRunner {
 public:
  explicit JobRunner(std::string scratch);

  // Runs a whole job, with a checkpoint after the first block and then at regular intervals, and
  // removes the fallback file at the end. The clock runs from the first block to the end of the
  // data. Throws if the data has the wrong length. Calls afterBlock, if given, with each block's
  // bytes.
  Timing run(const Shape& shape, const Stream& stream,
             const std::function<void(const std::byte*, const Timing&)>& afterBlock = {});

  client::Module& module() { return module_; }
  const std::string& scratch() const { return scratch_; }

 private:
  std::string scratch_;
  client::Module module_;
};

}  // namespace tallow::bench
