// The module's version and copyright notice; also included by the resource scripts.
#ifndef TALLOW_RESOURCES_VERSION_H
#define TALLOW_RESOURCES_VERSION_H

#define TALLOW_VERSION_NUMBERS 1, 0, 0, 0
#define TALLOW_VERSION "1.0.0.0"
#define TALLOW_COMPONENT_VERSION "01.00.00.00"
#define TALLOW_COPYRIGHT "Copyright (c) 2026 The Tallow Project"

#endif
