#include "entry/records.hpp"

#include <cstddef>

namespace tallow::entry {
namespace {

using ModuleList = std::list<std::unique_ptr<ModuleRecord>>;

// A plain pointer, so that no destructor runs at the end of a process that never unloaded the
// library. The system then frees what is left.
constinit ModuleList* modules = nullptr;

}  // namespace

ModuleInstance::ModuleInstance(ModuleRecord& owner) : module(owner), job(owner.options) {}

void keepModule(std::unique_ptr<ModuleRecord> module) {
  if (modules == nullptr) modules = new ModuleList;
  modules->push_back(std::move(module));
}

void destroyAllModules() noexcept {
  if (modules == nullptr) return;
  while (!modules->empty()) modules->pop_front();
  delete modules;
  modules = nullptr;
}

}  // namespace tallow::entry
