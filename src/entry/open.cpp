#include <string>

#include "diag/log.hpp"
#include "diag/messages.hpp"
#include "entry/handlers.hpp"
#include "pipe/pipe_input.hpp"

namespace tallow::entry {
namespace {

using diag::LogLevel;
using diag::raise;

void checkOpenMode(TallowRequestBlock& request, int mode) {
  constexpr int kWriteModes[] = {2, 3};
  if (mode == TALLOW_OPEN_FOR_READING) return;
  if (mode == kWriteModes[0] || mode == kWriteModes[1]) {
    raise<MessageId::kRequestNotSupported>(diag::message<MessageId::kModuleTitle>().c_str());
  }
  request.returnCode = pmrcBadOpenMode;
  raise<MessageId::kBadOpenMode>(mode);
}

// Terminates the name in the host's block with a NUL and copies it.
std::string takePipeName(TallowOpenBlock& block) {
  block.pipeName[block.pipeNameLength] = '\0';
  if (block.pipeNameLength == 0) {
    raise<MessageId::kEmptyPipeName>(diag::message<MessageId::kModuleTitle>().c_str());
  }
  return block.pipeName;
}

void warnOfUnusedOptions(const config::OptionsRecord& options) {
  if (!options.fallbackFile.empty()) {
    diag::logMessage<MessageId::kFallbackFileIgnored>(LogLevel::kSetup,
                                                      options.fallbackFile.c_str());
  }
  if (!options.fallbackDirectory.empty()) {
    diag::logMessage<MessageId::kFallbackDirectoryIgnored>(LogLevel::kSetup,
                                                           options.fallbackDirectory.c_str());
  }
  diag::logMessage<MessageId::kNoFallbackRequested>(LogLevel::kSetup);
}

void prepareFallback(delivery::Job& job, const std::string& pipeName) {
  if (job.options.noFallback) {
    warnOfUnusedOptions(job.options);
  } else if (job.fallback.prepare(pipeName)) {
    job.state.mode = delivery::DeliveryMode::kRestartable;
  }
}

}  // namespace

void open(ModuleRecord& module, TallowRequestBlock& request, TallowOpenBlock& block) {
  config::OptionsRecord& options = module.options;
  checkOpenMode(request, block.openMode);
  const std::string name = takePipeName(block);
  if (!options.fallbackFile.empty() && !module.instances.empty()) {
    raise<MessageId::kOneInputOnly>();
  }
  auto instance = std::make_unique<ModuleInstance>(module);
  block.moduleHandle = &module;
  pipe::openPipe(instance->job.pipe, options, name);
  prepareFallback(instance->job, name);
  module.instances.push_back(std::move(instance));
  block.zero = 0;
  block.blockSize = static_cast<std::uint32_t>(options.blockSize);
  block.instanceHandle = module.instances.back().get();
}

}  // namespace tallow::entry
