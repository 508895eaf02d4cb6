// The requests that this floor answers itself. Return code 0 is set by the caller; failures are
// raised as the module's error exception or told as a return code, as each comment says.
#pragma once

#include "entry/records.hpp"
#include "fallback/remove.hpp"
#include "tallow/tallow.h"

namespace tallow::entry {

// Creates an options record. Return code 18 for wrong interface levels, else as the option parser
// sets it; no handle then.
void init(TallowRequestBlock& request, TallowInitBlock& block);

// Opens a pipe and prepares its fallback file. Return code 13 for an invalid mode; raises messages
// 6, 13, 44, 73 and what opening the pipe raises.
void open(ModuleRecord& module, TallowRequestBlock& request, TallowOpenBlock& block);

// Ends an instance. When the teardown raises, pipe and file are closed all the same.
void close(ModuleInstance& instance, fallback::CloseKind kind);

// Names and versions of the module. Raises messages 39 to 42.
void identify(TallowIdBlock& block);

// Any of the four attribute requests; module may be null, which is return code 33 as is an unknown
// name.
void handleAttribute(ModuleRecord* module, TallowRequestBlock& request,
                     const TallowAttributeBlock& block);

}  // namespace tallow::entry
