// The records that the two kinds of handle point to, and their owners.
#pragma once

#include <list>
#include <memory>

#include "config/options_record.hpp"
#include "delivery/job.hpp"
#include "diag/failure_report.hpp"

namespace tallow::entry {

struct ModuleRecord;

// What an instance handle points to: one opened pipe. It begins with the message area for failures
// of requests with this handle.
struct ModuleInstance {
  explicit ModuleInstance(ModuleRecord& owner);

  diag::MessageArea messageArea = {};
  ModuleRecord& module;
  delivery::Job job;
};

using InstanceList = std::list<std::unique_ptr<ModuleInstance>>;

// What a module handle points to: the options, and the instances opened with the handle. It begins
// with the message area for failures of requests with this handle. It lives from Init until the
// library is unloaded.
struct ModuleRecord {
  diag::MessageArea messageArea = {};
  config::OptionsRecord options;
  InstanceList instances;  // in order of opening
  // Closed, but kept because their message area holds the text of a failure in Close.
  InstanceList failedInClose;
};

// Keeps a record until destroyAllModules.
void keepModule(std::unique_ptr<ModuleRecord> module);

// Destroys every record, the oldest first, together with its instances that are still open.
void destroyAllModules() noexcept;

}  // namespace tallow::entry
