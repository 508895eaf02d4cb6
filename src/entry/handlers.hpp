// The requests that this folder handles itself. The caller sets return code 0. A failure is raised
// as the module's error exception or reported as a return code, as each comment says.
#pragma once

#include "entry/records.hpp"
#include "fallback/fallback_file.hpp"
#include "tallow/tallow.h"

namespace tallow::entry {

// Creates an options record. Return code 18 for wrong interface levels, else the one that the
// option parser sets. There is no handle unless the return code is 0.
void init(TallowRequestBlock& request, TallowInitBlock& block);

// Opens a pipe and prepares its fallback file. Return code 13 for an invalid mode; raises
// kRequestNotSupported, kBadOpenMode, kEmptyPipeName, kOneInputOnly and what opening the pipe
// raises.
void open(ModuleRecord& module, TallowRequestBlock& request, TallowOpenBlock& block);

// Ends an instance. The pipe and the file are closed even if the teardown raises a failure.
void close(ModuleInstance& instance, fallback::CloseKind kind);

// Names and versions of the module. Raises kModuleNameNotFound,
// kVersionSizeNotFound, kVersionNotReadable and kVersionBlockNotFound.
void identify(TallowIdBlock& block);

// Any of the four attribute requests. Return code 33 if module is null or the name is unknown.
void handleAttribute(ModuleRecord* module, TallowRequestBlock& request,
                     const TallowAttributeBlock& block);

}  // namespace tallow::entry
