#include <algorithm>

#include "entry/handlers.hpp"

namespace tallow::entry {
namespace {

// Moves an instance from one list to the other. False if it is not in the first.
bool moveOut(InstanceList& from, const ModuleInstance& instance, InstanceList& to) {
  const auto found = std::find_if(from.begin(), from.end(), [&instance](const auto& entry) {
    return entry.get() == &instance;
  });
  if (found == from.end()) return false;
  to.splice(to.end(), from, found);
  return true;
}

void tearDown(delivery::Job& job, fallback::CloseKind kind) {
  job.pipe.close();
  job.fallback.close();
  // If the host did not reach the end of the data, the file is kept for a restart.
  if (job.state.eofReturned) job.fallback.removeFinished(kind);
}

}  // namespace

void close(ModuleInstance& instance, fallback::CloseKind kind) {
  ModuleRecord& module = instance.module;
  InstanceList closing;
  if (!moveOut(module.instances, instance, closing)) {
    moveOut(module.failedInClose, instance, closing);
  }
  try {
    tearDown(instance.job, kind);
  } catch (...) {
    // The host is about to be shown the failure text in the instance's message area.
    module.failedInClose.splice(module.failedInClose.end(), closing);
    throw;
  }
}

}  // namespace tallow::entry
