// The module for hosts in C++17, all in headers:
//
//   module.hpp           Module and Instance: the requests as functions, with Error as exception
//   library.hpp          Library: tallowin.dll loaded and unloaded
//   checkpoint_file.hpp  CheckpointFile: a job that goes on after its host died
//
// examples/minimal_host.cpp is a complete host. The last two are for Windows alone.
#pragma once

#include <tallow/tallow.h>
#include <tallow/module.hpp>
#ifdef _WIN32
#include <tallow/checkpoint_file.hpp>
#include <tallow/library.hpp>
#endif
