#include "config/option_parser.hpp"
#include "entry/handlers.hpp"

namespace tallow::entry {

void init(TallowRequestBlock& request, TallowInitBlock& block) {
  if (block.interfaceLevel1 != TALLOW_INTERFACE_LEVEL_1 ||
      block.interfaceLevel2 != TALLOW_INTERFACE_LEVEL_2) {
    request.returnCode = pmrcBadInterfaceLevel;
    return;
  }
  auto module = std::make_unique<ModuleRecord>();
  config::parseOptions(module->options, request, block);
  if (request.returnCode != pmrcSuccess) return;
  ModuleRecord* handle = module.get();
  keepModule(std::move(module));
  block.moduleHandle = handle;
}

}  // namespace tallow::entry
