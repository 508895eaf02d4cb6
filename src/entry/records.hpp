// The records behind the two kinds of handle, and their owners.
#pragma once

#include <list>
#include <memory>

#include "config/options_record.hpp"
#include "delivery/job.hpp"
#include "diag/failure_report.hpp"

namespace tallow::entry {

struct ModuleRecord;

// Behind an instance handle: one opened pipe. Begins with the message area that a failure report
// for the handle writes into.
struct ModuleInstance {
  explicit ModuleInstance(ModuleRecord& owner);

  diag::MessageArea messageArea = {};
  ModuleRecord& module;
  delivery::Job job;
};

using InstanceList = std::list<std::unique_ptr<ModuleInstance>>;

// Behind a module handle: the options, which begin with a message area too, and the instances
// opened through it. Lives from Init until the library is unloaded.
struct ModuleRecord {
  config::OptionsRecord options;
  InstanceList instances;  // in order of opening
  // Closed, but kept because the text of a failure in Close stands in their message area.
  InstanceList failedInClose;
};

// Takes a record into the list of all; it then lives until destroyAllModules.
void keepModule(std::unique_ptr<ModuleRecord> module);

// Destroys every record, the oldest first, each with the instances that are still open.
void destroyAllModules() noexcept;

}  // namespace tallow::entry
